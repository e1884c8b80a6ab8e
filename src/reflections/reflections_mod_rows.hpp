// Rows of a reflection list: turns an index triple into the rows of its wavelengths. Inside reflections_mod only.
// It owns the models of the phase in the pattern while a list is made, and appends to pattern_type::refl.
#pragma once
#include <array>
#include <optional>
#include <vector>

#include "kv_peak_geometry.hpp"
#include "reflections_mod.hpp"

namespace reflections_mod {

/// Says that the list is full, and stops.
void too_many_reflections(kalvaris_params::state_type& st);

class row_maker {
 public:
  /// low_limit: reflections below smin are left out too.
  row_maker(kalvaris_params::state_type& st, int ip, int ph, const generation_limits& limits, bool low_limit);

  /// Appends the rows of hkl, one per wavelength that reaches it within the limits. value: F for jbt -2 and -3, an
  /// intensity for 2 and 3; without it a profile-matching phase starts from the pattern. Indices that do not fit into a
  /// packed word (-128..127) are left out.
  void add(const std::array<int, 3>& hkl, int mult, std::optional<double> value);
  [[nodiscard]] int added() const { return added_; }
  void set_phasen(float phase_angle) { phasen_ = phase_angle; }  ///< phase of F of the rows to come [rad]

 private:
  struct wave_models {
    kv_peak_geometry::peak_model peak;
    lpabs_model lpabs;
    corrections_model corrections;
  };
  struct intensity_factors {
    double lp = 0, corr = 0, without_ratio = 0;
  };
  void store(const std::array<int, 3>& hkl, int wave, int mult, const kv_peak_geometry::peak& peak, double position,
             std::optional<double> value);
  [[nodiscard]] double start_ff(const kv_peak_geometry::peak& peak, double lambda, double position, int mult,
                                const intensity_factors& factors, std::optional<double> value) const;
  [[nodiscard]] double observed_ff(const kv_peak_geometry::peak& peak, double lambda, double position,
                                   const intensity_factors& factors) const;

  kalvaris_params::state_type& st_;
  int ip_, ph_;
  generation_limits limits_;
  bool low_limit_;
  kv_peak_geometry::shift_model shifts_;
  std::vector<wave_models> waves_;
  double volume_ = 0;  ///< of the cell [angstrom^3]
  float phasen_ = 0;
  int added_ = 0;
};

/// Volume of the cell [angstrom^3] from A..F of 1/d^2.
[[nodiscard]] double cell_volume(const std::array<double, 6>& cell);

}  // namespace reflections_mod

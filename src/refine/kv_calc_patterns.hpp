// kv_calc_patterns: one calculation of a constant-wavelength pattern, shared by the sources that are named so.
// It owns what lives for one calculation; it writes the reflection values and yc, and adds to the normal equations.
// kv_calc_patterns.cpp walks the points, _peaks.cpp places and shapes reflections, _bragg.cpp partitions intensities.
#pragma once
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "kv_assignk.hpp"
#include "kv_free_intensities.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_peak_geometry.hpp"
#include "kv_profil.hpp"
#include "kv_structure_factors.hpp"
#include "reflections_mod.hpp"

namespace kv_calc_patterns {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::reflection_key;
using kalvaris_params::reflection_list;
using kalvaris_params::state_type;
using kv_profil::n_peak_class;
using kv_profil::peak_class;

constexpr double degrees = 57.29577951308232;
constexpr std::size_t block_points = 128;

/// A refined slot: parameter n (0-based) feels it with weight r.
struct slot_use {
  int k = 0, n = 0;
  float r = 0;
};

/// How one parameter moves one reflection: the pattern changes by coef times the class of the peak.
struct term {
  int n = 0;
  peak_class cls = kv_profil::omega;
  float coef = 0;
};

/// All that is common to the reflections of a phase at one wavelength.
struct wave_model {
  kv_peak_geometry::peak_model geometry;
  reflections_mod::lpabs_model lp;
  reflections_mod::corrections_model corrections;
};

/// All that is common to the reflections of a phase in the pattern.
struct phase_work {
  bool contributes = false;
  double scale = 0;
  kv_peak_geometry::shift_model shifts;
  std::array<wave_model, 2> wave;
  kv_structure_factors::phase_model structure;
  std::vector<slot_use> profile_slots;    ///< refined slots of par
  std::vector<slot_use> structure_slots;  ///< refined columns of the atoms, in the order of structure.columns
};

/// Where a reflection stands in this cycle.
struct placed_peak {
  kv_peak_geometry::peak geometry;
  kv_peak_geometry::shifted_position at;
  kv_assignk::point_range reach;  ///< points within wdt widths, one more to either side; empty: contributes nothing
};

/// One reflection on its way through the blocks of points.
struct active_peak {
  kv_profil::peak_params peak;
  kv_profil::axial_params axial;
  double intensity = 0;
  double per_ff = 0;          ///< intensity of a reflection with ff 1
  std::uint32_t classes = 0;  ///< classes that some term asks for
  std::vector<term> terms;
};

/// F^2 of the list, both wavelengths of a reflection sharing one row.
struct structure_rows {
  std::vector<int> row_of;  ///< per reflection, -1 without structure
  std::vector<double> fsq, a, b;
  std::vector<float> dfsq;  ///< rows of `columns` derivatives
  std::size_t columns = 0;
};

class pattern_calculation {
 public:
  /// intensities: takes the equations of the intensities that follow the pattern, nullptr when they are not wanted.
  pattern_calculation(state_type& state, int pattern_index, bool with_derivatives,
                      kv_free_intensities::overlap_equations* intensities = nullptr);
  void run();                                                    ///< calc_patterns_2theta
  double integrate(kv_iterate_calc_cw::intensity_update update);  ///< bragg

 private:
  void prepare_phases();
  void count_points();
  void walk_blocks();
  void prepare_structure();
  void place_peaks();
  [[nodiscard]] placed_peak place_peak(int k);
  bool prepare_peak(int k, active_peak& out);
  void shape_peak(int k, const reflection_key& key, active_peak& out);
  void collect_terms(int k, const reflection_key& key, const reflections_mod::correction& corr, double per_scale,
                     active_peak& out) const;
  void profile_terms(const reflection_key& key, const placed_peak& place, const reflections_mod::correction& corr,
                     double lp_ff, double per_scale, active_peak& out) const;
  [[nodiscard]] bool asymmetric(double pos) const { return pos <= static_cast<double>(pattern.rlim); }
  [[nodiscard]] const phase_work& work_of(const reflection_key& key) const {
    return phases[static_cast<std::size_t>(key.phase)];
  }
  [[nodiscard]] const wave_model& wave_of(const reflection_key& key) const {
    return work_of(key).wave[static_cast<std::size_t>(key.wave - 1)];
  }
  void add_peak(int first, int count, int k, const active_peak& a);
  void share_between_waves();
  void add_rows(int first, int count, std::span<const float> background);
  void background_rows(int first, int count);
  [[nodiscard]] double variance(int i, double ycal, double difference) const;
  void take_calculated_variances(int first, int count, std::span<const float> background);
  [[nodiscard]] std::vector<slot_use> uses(std::span<const float> values, std::span<const int> numbers,
                                           std::span<const float> codes) const;

  state_type& st;
  int ip;
  pattern_type& pattern;
  reflection_list& refl;
  bool derivatives;
  kv_free_intensities::overlap_equations* free_intensities;
  std::vector<phase_work> phases;
  std::vector<slot_use> global_slots;
  std::vector<int> background_wanted;
  std::vector<slot_use> background_uses;
  structure_rows structure;
  std::vector<placed_peak> placed;  ///< per reflection
  lmix_powderprofiles_finger::gauss_rules rules;
  std::vector<float> rows;    ///< derivatives of a block: parameter-major, block_points long
  std::vector<char> touched;  ///< parameters with a row in the block
  std::vector<float> background_work;
  std::array<std::vector<float>, n_peak_class> class_rows;
};

}  // namespace kv_calc_patterns

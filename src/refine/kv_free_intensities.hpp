// kv_free_intensities: the intensities of profile-matching phases as linear parameters of one pattern. Their equations
// are banded, since only peaks that overlap share points, so that they are solved beside the full matrix of the other
// parameters instead of inside it: with G = Phi W Phi^T, C = J W Phi^T the shifts s of the others follow from
// (A - C G^-1 C^T) s = g - C G^-1 g_I, and those of the intensities from G^-1 (g_I - C^T s) (the intensities of
// G. S. Pawley, J. Appl. Cryst. 14 (1981) 357, taken out as the linear part of a separable problem: G. H. Golub &
// V. Pereyra, SIAM J. Numer. Anal. 10 (1973) 413). It owns G, C, g_I of a cycle; it writes reflection_list::ff.
#pragma once
#include <cstddef>
#include <span>
#include <vector>

#include "kalvaris_params.hpp"
#include "kv_assignk.hpp"

namespace kv_free_intensities {

/// Peaks of a phase whose intensities follow the pattern (jbt 2, -2).
[[nodiscard]] bool follows_pattern(const kalvaris_params::phase_type& phase);
[[nodiscard]] bool any_follows_pattern(const kalvaris_params::state_type& st);

/// What changed when the intensities moved.
struct movement {
  double in_sigmas = 0;   ///< root mean square of their changes, each in standard deviations of a unit-weight fit
  int at_floor = 0;       ///< intensities that want to become negative
};

class overlap_equations {
 public:
  /// Forgets all sums. reach: the points of each reflection of the list in this cycle; a reflection without points has
  /// no equation. parameters: number of the other unknowns. Both wavelengths of a reflection are one unknown.
  void reset(const kalvaris_params::state_type& st, const kalvaris_params::reflection_list& refl,
             std::span<const kv_assignk::point_range> reach, int parameters);

  [[nodiscard]] bool has_unknown(int reflection) const { return unknown_of_[static_cast<std::size_t>(reflection)] >= 0; }
  /// True when the bands would take more memory than a run may use; such a pattern keeps to the partition.
  [[nodiscard]] bool too_wide() const { return too_wide_; }

  /// One block of points: first the peaks of unit ff that live in it, then the weights of its points.
  void begin_block(std::size_t count);
  void add_peak(int reflection, std::size_t offset, std::span<const float> profile, double unit);
  /// derivatives: rows of `stride` floats by parameter (0-based), of which `active` are not zero.
  void end_block(const float* weights, const float* differences, const float* derivatives, std::size_t stride,
                 std::span<const int> active);

  /// Takes the intensities out of the equations of the other parameters (upper triangle and vector). An intensity at its
  /// lowest value whose equation wants it lower is left where it is; so is each that `hold_back` found, at the lowest
  /// value that a cycle leaves to it.
  void eliminate(normal_equations::normal_matrix& ne);

  /// Looks which intensities would fall below the lowest value that a cycle leaves to them (5 % of what they were) with
  /// these shifts of the other parameters. True when there are some that were not held back before: the equations of
  /// the others do not hold then.
  bool hold_back(std::span<const double> shifts);

  /// Moves the intensities by their own equations after the others have shifted by `shifts` [units of the parameters].
  /// Writes ff of every reflection that has an equation.
  movement follow(std::span<const double> shifts, kalvaris_params::reflection_list& refl);

 private:
  [[nodiscard]] std::size_t size() const { return value_.size(); }
  [[nodiscard]] double& g(std::size_t r, std::size_t s) { return band_[start_[r] + s - low_[r]]; }
  [[nodiscard]] double g(std::size_t r, std::size_t s) const { return band_[start_[r] + s - low_[r]]; }
  void start_holding();
  void factorise();
  [[nodiscard]] std::vector<double> solve(std::span<const double> shifts) const;
  [[nodiscard]] double lowest_move(std::size_t r) const;
  void solve_lower(std::span<double> x) const;
  void solve_upper(std::span<double> x) const;
  [[nodiscard]] std::vector<double> times_g(std::span<const double> x) const;
  [[nodiscard]] double floor_of(std::size_t r) const;

  std::vector<int> unknown_of_;         ///< by reflection, -1 without equation
  std::vector<double> value_;           ///< ff by unknown, in the order of their first points
  std::vector<std::size_t> low_;        ///< first unknown that shares points with unknown r, <= r
  std::vector<std::size_t> start_;      ///< of row r in the bands
  std::vector<double> band_, factor_;   ///< lower triangle of G, and of its Cholesky factor
  std::vector<double> c_;               ///< C^T: by unknown, rows of `parameters_`
  std::vector<double> gi_;              ///< g_I
  std::vector<char> held_;              ///< by unknown: it takes no part in the solution
  std::vector<double> held_move_;       ///< and moves by this
  std::size_t parameters_ = 0;
  bool too_wide_ = false;
  // the block under way
  std::size_t count_ = 0;
  std::vector<int> local_of_;           ///< by unknown, -1 when it is not in the block
  std::vector<std::size_t> local_;      ///< unknowns of the block
  std::vector<float> rows_, weighted_;  ///< profiles of the block, and times weight
};

}  // namespace kv_free_intensities

// kv_misfit: what makes a finished fit wrong, told from its residual alone, in words with the evidence in numbers.
// It owns nothing and changes nothing: the gathering reads the state, the kernels take and return numbers.
// kv_misfit.cpp gathers, _judge.cpp ranks; the kernels stand in _points.cpp, _peaks.cpp, _moves.cpp and _widths.cpp.
//
// A cause is named only when putting it right would take away a good part of what the sum has in excess of the number
// of points, and when its size matters beside the width of the peaks. A fit within its standard deviations, and one
// whose only fault is that its intensities or peak shapes are not perfect, is left in peace.
#pragma once
#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_misfit {

enum class kind { dead_points, weights, shift, cell, width, background, unexplained_peaks, empty_phase };

struct remark {
  kind what{};
  int pattern = 0;              ///< 0-based
  int phase = -1;               ///< 0-based; -1: not of one phase
  std::string text;             ///< one sentence or two, without line breaks
  std::vector<double> numbers;  ///< what the text tells, in its order: see the kind in kv_misfit_words.cpp
  double gain = 0;              ///< share of the excess of the sum that the cause explains
};

inline constexpr std::size_t most_remarks = 3;  ///< of a pattern

/// Remarks on all patterns that were fitted, the likeliest of each pattern first; none for calculated patterns, lists
/// of intensities and good fits.
[[nodiscard]] std::vector<remark> remarks(const kalvaris_params::state_type& st);

// ---- what the judgement rests on -----------------------------------------------------------------------------------

/// A calculated reflection.
struct line {
  double position = 0;  ///< with all shifts [deg]
  double width = 0;     ///< FWHM [deg], > 0
  double eta = 0;       ///< Lorentzian part of its shape
  double weight = 0;    ///< calculated area in a unit common to the phase, whatever the scale factor
  int phase = 0;
};

struct phase_view {
  bool contributes = false;
  bool matching = false;   ///< its intensities follow the data
  double scale = 0;        ///< what multiplies the weights of its lines
  double scale_sigma = 0;  ///< 0: not refined
};

/// Points that count, ascending in x, and the reflections.
struct fit_view {
  std::vector<double> x, y, calc, background, var;
  std::vector<line> lines;
  std::vector<phase_view> phases;
  bool two_theta = true;                             ///< abscissa in degrees
  bool unit_weights = false;                         ///< the scale of var means nothing
  bool positions_free = false, widths_free = false;  ///< refined: of two causes the one that is held is the likelier
  [[nodiscard]] std::size_t size() const { return x.size(); }
};

/// Remarks on one fit; `pattern` of the remarks stays 0, the likeliest comes first.
[[nodiscard]] std::vector<remark> remarks_of(const fit_view& fit);

// ---- kernels: points -----------------------------------------------------------------------------------------------

/// Variance of the scatter from point to point over the variance of the weights: 1 for data of counts. Third
/// differences leave out whatever is smooth; of two curves, data and residual, the quieter one counts, and the median
/// leaves out the peaks. 0 with fewer than 20 points.
[[nodiscard]] double scatter_ratio(const fit_view& fit);

struct dead_point_set {
  std::vector<std::size_t> index;
  double share = 0;    ///< of the weighted sum
  double tension = 0;  ///< what they would add to the sum if the curve ran through the points beside them, over the sum
};
/// Points whose residual stands alone: five times that of the points beside a run of at most three, one above, and ten
/// standard deviations. Largest part of the sum first.
[[nodiscard]] dead_point_set lone_points(const fit_view& fit);
/// Points far below the ground of the data around them, whatever was calculated: a fit bends to such points when their
/// sigma is small, so that their residual does not show them. Runs of at most three, or of any length near 0.
[[nodiscard]] dead_point_set sunken_points(const fit_view& fit);

struct background_offset {
  std::vector<double> x, offset;  ///< places between peaks, and observed minus calculated there
  double sum = 0;                 ///< weighted sum with the offset put right
  int above = 0, below = 0;       ///< places where the calculated background lies above, below by three sigma
};
/// Offset of the background at the points of each stretch where the calculated Bragg part is least; `stretch` [deg].
/// Chosen by what is calculated, these points are unbiased by the noise.
[[nodiscard]] background_offset offset_between_peaks(const fit_view& fit, double stretch);

// ---- kernels: peaks ------------------------------------------------------------------------------------------------

struct found_peak {
  double position = 0, height = 0, sigma = 0;
};
/// Width of the peaks as a straight line over the pattern.
struct width_line {
  double at_start = 0, slope = 0, x0 = 0;
  double least = 0;
  [[nodiscard]] double at(double x) const { return std::max(at_start + slope * (x - x0), least); }
};

/// Maxima of the curve seen through a peak of the width that stands on a straight ground; `least_sigma` heights over
/// their standard deviation. The ground need not be known.
[[nodiscard]] std::vector<found_peak> find_peaks(std::span<const double> x, std::span<const double> curve,
                                                 std::span<const double> var, const width_line& width,
                                                 double least_sigma);

/// Width of the observed peaks: the one through which the strongest stand out best, then their half-heights.
[[nodiscard]] std::optional<width_line> observed_width(std::span<const double> x, std::span<const double> curve,
                                                       std::span<const double> var);

/// Calculated peaks at the resolution of the data: lines nearer than 0.6 widths are one.
struct place {
  double position = 0, weight = 0;
  bool follows_data = false;
};
[[nodiscard]] std::vector<place> merged_lines(const fit_view& fit, const width_line& width, int only_phase);

/// How calculated positions move: all by the same, by a part of tan(theta) as when cell or wavelength change, by a part
/// of cos(theta) as when the sample is displaced, or by the first two together.
enum class family { common, stretch, displacement, common_and_stretch };
struct movement {
  double shift = 0;         ///< [deg]
  double stretch = 0;       ///< of ln sin(theta)
  double displacement = 0;  ///< coefficient of cos(theta) [deg]
};
/// Position [deg] after the movement.
[[nodiscard]] double moved(const movement& by, double position);

struct match {
  family how{};
  movement by, sigma;             ///< sigma: from the scatter of the matched peaks
  double score = 0;               ///< part of the observed peaks (roots of heights) that stand on calculated ones
  int matched = 0, observed = 0;  ///< peaks
  double odds = 1;                ///< chance that lines thrown at random match as well, all trials counted
};
/// How observed peaks stand on calculated ones after the movement.
[[nodiscard]] match match_of(std::span<const found_peak> observed, std::span<const place> calculated,
                             const width_line& width, const movement& by);
/// The same, and the movement of the family that the distances of the matched peaks still ask for, with its sigma.
[[nodiscard]] match refined_match(std::span<const found_peak> observed, std::span<const place> calculated,
                                  const width_line& width, family how);
/// The best movement of a family with shifts within +-reach [deg] and stretches within +-largest_stretch; none, score
/// 0, where the lines stand so close that even a match of all has odds above most_odds.
[[nodiscard]] match best_match(std::span<const found_peak> observed, std::span<const place> calculated,
                               const width_line& width, family how, double reach, double most_odds);
inline constexpr double largest_stretch = 0.06;

struct moved_sum {
  movement by;
  double sum = 0;
};
/// Least weighted sum with the Bragg part moved by up to +-reach [deg] where it moves most, its height free.
[[nodiscard]] moved_sum best_moved_sum(const fit_view& fit, family how, double reach);

struct width_change {
  double factor = 1, fall = 0;  ///< fall: of the sum
};
/// Factor on the calculated widths that makes the weighted sum fall most. Three ways are tried: plain peaks with the
/// factor, or with the observed width, the heights of the phases free, against the smaller of the sums of the fit and
/// of plain peaks as they are; and the change of the plain peaks by the factor added to what was calculated.
[[nodiscard]] width_change best_width_factor(const fit_view& fit, const width_line& observed);

/// Bragg part of one phase by plain pseudo-Voigts for a scale factor of 1; widths: of each line of the fit [deg].
[[nodiscard]] std::vector<double> plain_peaks(const fit_view& fit, int phase, std::span<const double> widths);
/// The calculated widths of the lines times a factor.
[[nodiscard]] std::vector<double> line_widths(const fit_view& fit, double factor = 1.0);

}  // namespace kv_misfit

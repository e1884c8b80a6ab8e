// kv_misfit: what makes a finished fit wrong, told from its residual alone, in words with the evidence in numbers.
// It owns nothing and changes nothing: the gathering reads the state, the kernels take and return numbers.
// kv_misfit.cpp gathers and ranks, _points.cpp judges points, _peaks.cpp finds and matches peaks, _words.cpp tells.
//
// A cause is named only when putting it right would take away a good part of what the sum has in excess of the number
// of points, and when its size matters beside the width of the peaks. A fit within its standard deviations, and one
// whose only fault is that its intensities or peak shapes are not perfect, is left in peace.
#pragma once
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

/// Remarks on all patterns that were fitted, the likeliest of each pattern first; none for calculated patterns, lists of
/// intensities and good fits.
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
  bool matching = false;      ///< its intensities follow the data
  double scale = 0;           ///< what multiplies the weights of its lines
  double scale_sigma = 0;     ///< 0: not refined
};

/// Points that count, ascending in x, and the reflections.
struct fit_view {
  std::vector<double> x, y, calc, background, var;
  std::vector<line> lines;
  std::vector<phase_view> phases;
  bool two_theta = true;      ///< abscissa in degrees
  bool unit_weights = false;  ///< the scale of var means nothing
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
  double share = 0;  ///< of the weighted sum
};
/// Points that stand alone: their residual is five times that of the points beside a run of at most three, and ten
/// standard deviations. Largest part of the sum first.
[[nodiscard]] dead_point_set dead_points(const fit_view& fit);

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
  [[nodiscard]] double at(double x) const { return at_start + slope * (x - x0); }
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

/// How calculated positions move: by an amount, by a part of tan(theta), by a part of cos(theta).
enum class movement { common, stretch, displacement };
/// Position [deg] moved by a [deg; stretch: by ln sin(theta)].
[[nodiscard]] double moved(movement how, double position, double a);

struct match {
  movement how{};
  double a = 0;                    ///< amount
  double sigma = 0;                ///< of the amount, from the scatter
  double score = 0;                ///< part of the observed peaks (roots of heights) that stand on calculated ones
  int matched = 0, observed = 0;   ///< peaks
  double odds = 1;                 ///< chance that lines thrown at random match as well, all trials counted
};
/// The best movement of one kind within +-reach; reach 0: as it stands.
[[nodiscard]] match best_match(std::span<const found_peak> observed, std::span<const place> calculated,
                               const width_line& width, movement how, double reach);

struct moved_sum {
  double a = 0, sum = 0;
};
/// Least weighted sum with the Bragg part moved by up to +-reach [deg, at the place of its largest movement] and its
/// height free.
[[nodiscard]] moved_sum best_moved_sum(const fit_view& fit, movement how, double reach);

struct width_sum {
  double factor = 1, sum = 0, sum_now = 0;
};
/// Least weighted sum over factors on the calculated widths, the heights of the phases free; sum_now: by the same
/// plain peaks with factor 1.
[[nodiscard]] width_sum best_width_factor(const fit_view& fit);

/// Bragg part of one phase by plain pseudo-Voigts, widths times factor, for a scale factor of 1.
[[nodiscard]] std::vector<double> plain_peaks(const fit_view& fit, int phase, double factor);

}  // namespace kv_misfit

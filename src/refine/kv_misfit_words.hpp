// kv_misfit_words: the remarks of kv_misfit as sentences, one function per cause.
// It owns the wording; it judges nothing.
#pragma once
#include "kv_misfit.hpp"

namespace kv_misfit_words {

using kv_misfit::remark;

/// Numbers: share of the sum [%], then the positions.
[[nodiscard]] remark dead_points(const kv_misfit::fit_view& fit, const kv_misfit::dead_point_set& dead);
/// Numbers: scatter over sigma, chi-square.
[[nodiscard]] remark weights(double variance_ratio, double chi2);
/// Numbers: shift, or coefficient of cos(theta) [deg], and its sigma; by how much the cell is too large [%] and its
/// sigma; peaks matched with it, observed, matched as they are. What the movement does not hold is 0. gain: share of
/// the excess when it was calculated.
[[nodiscard]] remark moved(const kv_misfit::fit_view& fit, const kv_misfit::match& m, int matched_now, int phase,
                           std::optional<double> gain);
/// Numbers: factor by which the observed peaks are wider than the calculated ones, observed width [deg].
[[nodiscard]] remark width(double factor, double observed, std::optional<double> gain);
/// Numbers: mean offset, observed minus calculated; in per cent of the background; places above, below, in all.
[[nodiscard]] remark background(const kv_misfit::fit_view& fit, const kv_misfit::background_offset& offset,
                                double gain);
/// Numbers: number of peaks, then position and height [% of the largest] of up to five.
[[nodiscard]] remark unexplained(std::span<const kv_misfit::found_peak> peaks, double highest, double gain);
/// Numbers: own lines; height of the strongest and its sigma [% of the largest observed].
[[nodiscard]] remark empty_phase(int phase, int own_lines, double height, double sigma);

}  // namespace kv_misfit_words

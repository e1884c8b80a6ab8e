// kv_sumarize: the summary of a run: the results that are quoted, and the analysis of the refinement.
// It owns nothing and writes the summary file (unit 8) alone. Standard deviations are those of the last cycle's report.
#pragma once
#include <array>
#include <vector>

#include "apply_shifts.hpp"
#include "kalvaris_params.hpp"

namespace kv_sumarize {

/// Results: phases with cell, volume, atoms and profile parameters, values with standard deviations in brackets, the
/// patterns with their parameters, agreement factors, numbers of reflections.
void write_results(kalvaris_params::state_type& st, const apply_shifts::shift_report& last);

/// Analysis of the refinement of pattern ip (0-based): ranges, mean width, residual by quarters, effective numbers of
/// reflections against numbers of parameters, by pattern and phase.
void summarize(kalvaris_params::state_type& st, int ip);

/// All refined parameters with value and standard deviation.
void write_parameters(kalvaris_params::state_type& st);

/// What makes the fits wrong, to the summary and to the console; nothing when there is nothing to say.
void write_remarks(kalvaris_params::state_type& st);

// ---- numbers of the analysis ---------------------------------------------------------------------------------------

/// Standard deviation of the cell volume of a phase from the covariance of the refined A..F of 1/d^2 in pattern ip
/// [angstrom^3]: V = det^(-1/2), so that sigma = V^3/2 sqrt(g cov g) with g the gradient of the determinant.
[[nodiscard]] double volume_sigma(const kalvaris_params::state_type& st, int ph, int ip);

/// Reflections of one phase as they share a pattern: positions [deg], widths [deg] and areas in any common unit.
struct reflection_share {
  double position = 0, width = 0, area = 0;
};
/// Effective number of reflections: each counts with its area over the sum of the areas, its own included, within
/// `reach` times its width. Equals the number of reflections when none overlap. Reflections without area count nothing.
[[nodiscard]] double effective_number(const std::vector<reflection_share>& reflections, double reach);

/// Refined parameters by what they act on, each counted once, in the first of the families that its slots belong to:
/// intensities (scale, overall B, preferred orientation, atoms), profile and cell of a phase, pattern.
struct parameter_counts {
  int global = 0, profile = 0, intensity = 0;
};
/// ph -1: of all phases in pattern ip; otherwise of that phase.
[[nodiscard]] parameter_counts count_parameters(const kalvaris_params::state_type& st, int ip, int ph);

}  // namespace kv_sumarize

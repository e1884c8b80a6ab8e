// kv_output_cycles: the listing of a refinement cycle: what became of every parameter, what the guards and limits did,
// how well the pattern agrees, and, at the end of the run, the reflections. It is the observer of the cycles: it prints
// the report that it gets and the results that stand in the patterns, and computes neither again. It owns nothing.
#pragma once
#include "kalvaris_params.hpp"
#include "kv_iterate_calc_cw.hpp"

namespace kv_output_cycles {

/// Block of one cycle in the listing, with the agreement factors on the console too. The last cycle of a run opens
/// with " ==> RESULTS OF REFINEMENT:" and adds the atom tables with standard deviations; the listing after convergence
/// carries both heads.
void output_cycles(kalvaris_params::state_type& st, const kv_iterate_calc_cw::cycle_report& report);

/// Agreement factors of pattern ip (0-based), over all points and over those with Bragg contributions; last: also the
/// factor for correlated residuals. Listing; the main lines of the first set also on the console.
void write_r_factors(kalvaris_params::state_type& st, int ip, bool last);

/// Reflections of pattern ip, phase by phase, before the first cycle: position on the abscissa [deg], d [angstrom].
/// Nothing with lst1 0.
void write_starting_reflections(kalvaris_params::state_type& st, int ip);

/// Reflections of pattern ip, phase by phase, with the intensities of the last cycle: position on the abscissa [deg],
/// FWHM [deg], d [angstrom], observed and calculated integrated intensity and F^2.
void write_reflections(kalvaris_params::state_type& st, int ip);

/// Correlations of the parameters from the covariance matrix of the last cycle [%]: the matrix, then those above 50 by
/// name (strong negative ones are not in that list). Nothing with mat 0 or without parameters.
void write_correlations(kalvaris_params::state_type& st);

}  // namespace kv_output_cycles

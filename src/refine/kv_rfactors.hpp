// kv_rfactors: sums and indices by which a profile fit is judged, over all points and over those with Bragg peaks.
// It writes the two agreement_set records and scor of a pattern; the listing prints them.
// Sums run in double precision. All R in per cent.
#pragma once
#include "kalvaris_params.hpp"

namespace kv_rfactors {

/// Variance of point i (0-based) of pattern p for the calculated value ycal, background included, by iwgt. Equations
/// and agreement factors are weighted with it alike, so that chi-square is what the equations minimise. 0, 1: that of
/// the data, which maximum likelihood (1) has replaced. 2: that of the data and (0.2 P)^2 with P = (y + 2 ycal)/3. 3:
/// that of the data and (a P)^2 + b P + d with P = ycal + f (y - ycal).
[[nodiscard]] double variance(const kalvaris_params::pattern_type& p, int i, double ycal);

/// Fills the sums, Rp, Rwp (plain and background-corrected) and the Durbin-Watson statistic of pattern ip (0-based)
/// from y, yc, bk, var and kr. last: also scor, the factor of J.-F. Berar & P. Lelann, J. Appl. Cryst. 24 (1991) 1,
/// by which the standard deviations would have to be multiplied for residuals that are correlated along the pattern.
/// Excluded points do not count. The deviance is that of a Poisson model.
void chisq1(kalvaris_params::state_type& st, int ip, bool last);

/// Fills the expected R, the reduced chi-square and deviance, the limit of Durbin and Watson at the 0.001 point
/// (R. J. Hill & H. D. Flack, J. Appl. Cryst. 20 (1987) 356) and the normal deviate of chi-square, from the sums.
void calc_rfac(kalvaris_params::state_type& st, int ip);

/// Parameters that a pattern answers for: an equal share of all, in whole numbers.
[[nodiscard]] int parameter_share(const kalvaris_params::state_type& st);

}  // namespace kv_rfactors

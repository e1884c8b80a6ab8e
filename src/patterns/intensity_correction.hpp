// intensity_correction: an efficiency of the experiment that varies with the abscissa, from the .cor file of a run. It
// owns nothing: read_cor fills pattern_type::correction; corr_prof alone changes the data, before they are used.
// icorr 1: a table that multiplies integrated intensities. icorr 2: a polynomial that does the same (itycorr 1) or
// divides the observed profile (itycorr 2).
#pragma once
#include "kalvaris_params.hpp"

namespace intensity_correction {

inline constexpr int NPRC = 150;  ///< rows of a table or coefficients of a polynomial

/// Reads the correction of pattern ip (0-based); nothing with icorr 0. Line 1 is a title; blank lines and those that
/// begin with ! or # do not count. icorr 1: rows `abscissa factor` to the end of the file, abscissae increasing,
/// factors above 0. icorr 2: `itycorr ityfunc n`, then n coefficients, constant term first, on as many lines as they
/// need. False with file_error and file_error_mess when the file is missing or does not read; the correction is then 1.
[[nodiscard]] bool read_cor(kalvaris_params::state_type& st, int ip);

/// Factor at abscissa x: linear between the rows of the table, its first and last interval going on outside (icorr 1);
/// otherwise the polynomial, which is 1 when no file was read.
[[nodiscard]] double corr_int(const kalvaris_params::correction_type& c, int icorr, double x);

/// The correction multiplies integrated intensities: icorr 1, or icorr 2 with itycorr 1.
[[nodiscard]] bool acts_on_reflections(const kalvaris_params::pattern_type& p);

/// With icorr 2 and itycorr 2 divides the observed intensities of pattern ip by the factor at each point, and their
/// variances by its square. False with file_error and file_error_mess, the data as they were, where a factor of either
/// kind is not above 0 at a point of the pattern.
[[nodiscard]] bool corr_prof(kalvaris_params::state_type& st, int ip);

}  // namespace intensity_correction

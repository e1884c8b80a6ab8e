// instrumental_resolution: what the instrument itself adds to width, shape and position of a peak, from a resolution
// file. It owns nothing: read_irf fills pattern_type::resolution and the fields of the pattern that the file settles;
// the list of reflections and the cycle ask apply_irf_cw for the terms of each peak.
#pragma once
#include "kalvaris_params.hpp"

namespace instrumental_resolution {

// --- The file ------------------------------------------------------------------------------------------------------

/// Reads the resolution file of pattern ip (0-based), whose name stands in fileres, by its ireso and ixunit; to be
/// called before the radiation line of the control file is read, as the file may change jobtyp, ilor (with disp_ds) and
/// nprof. Line 1 is a title. Blank lines and lines that begin with ! or # do not count, both marks also end a line.
/// Keywords may be in any case; unknown ones are passed over with a warning.
/// Also sets lamda, ratio, rkk, cthm, low_range, high_range, as far as the file gives them. Range, alpsd, widths and
/// tables stay in the record alone, so that a second call gives the same again. A pattern that is only calculated
/// remains one whatever radiation the file names.
/// CW: with ireso -1, 1, 2, 3 two lines of three numbers, four where the second wavelength has its own; with 4, 8 the
/// number of rows and the rows.
/// In T.O.F. a file with several NPROF lines holds one block per bank, each from its NPROF line to END or the next
/// NPROF; the n-th pattern that names the file takes the n-th block.
/// False with file_error and file_error_mess (what, file, line) when the file is missing or does not read; the record
/// is then that of no file.
[[nodiscard]] bool read_irf(kalvaris_params::state_type& st, int ip);

/// The model in words and numbers to a unit (listing or summary); nothing with ireso 0.
void write_irf_info(kalvaris_params::state_type& st, int ip, int unit);

// --- What the control file says of the same things -----------------------------------------------------------------

/// Values of the radiation line that a resolution file may give too.
struct radiation_line {
  float lamda1 = 0.f, lamda2 = 0.f, ratio2 = 0.f, cthm = 0.f, rkk = 0.f;
};
/// Each value is taken unless the resolution file gave it: wavelengths and ratio together, cthm, rkk. ratio[0] is 1.
void merge_radiation(kalvaris_params::pattern_type& p, const radiation_line& line);

/// Values of the cycles line, or of the pattern's own line below it.
struct range_line {
  float thmin = 0.f, step = 0.f, thmax = 0.f, alpsd = 0.f, sent0 = 0.f;
};
/// thmin, step, thmax: the larger of line and file where the file has THRG; alpsd so where it has a geometry. sent0
/// with a resolution file: the line's unless it is negative.
void merge_range(kalvaris_params::pattern_type& p, const range_line& line);

/// The file gives widths to the peaks of constant wavelength: ireso -1, 1, 2, 3, 4, 8.
[[nodiscard]] bool gives_widths(const kalvaris_params::pattern_type& p);

/// The angle of the detector bank comes from the resolution file (toftet_i).
[[nodiscard]] bool gives_bank_angle(const kalvaris_params::pattern_type& p);

// --- Its use -------------------------------------------------------------------------------------------------------

/// Which part of which record holds for the peaks of a wavelength; without record the instrument adds nothing. Points
/// into the pattern: to be made anew when patterns are.
struct cw_model {
  const kalvaris_params::resolution_type* resolution = nullptr;
  int ireso = 0;
  int wave = 1;
};
[[nodiscard]] cw_model make_cw_model(const kalvaris_params::pattern_type& p, int wave);

/// What the instrument adds to a peak.
struct cw_terms {
  double ggi = 0;             ///< Gaussian FWHM^2 [deg^2]; may be negative where U, V, W are
  double cci = 0;             ///< Lorentzian FWHM [deg]
  double sl_i = 0, dl_i = 0;  ///< S/L, D/L
};
/// At position x (2theta without sample shifts [deg], or energy [keV]), t2 = tan^2, t = tan, c = cos of theta (1 for
/// energy). By ireso: -1 HG, HL of a pseudo-Voigt with H^2 = U t2 + V t + W, eta = X + Y x (held in 0..1; H is 0 where
/// its square is not positive); 1 HG^2 = U t2 + V t + W, HL = X t + Y/c + Z; 2 HL = (X x + Y) x + Z; 3 besides
/// HG^2 = (U x + V) x + W; 4, 8 linear between the rows of the table, which goes on with its end rows. Others: nothing.
[[nodiscard]] cw_terms apply_irf_cw(const cw_model& m, double x, double t2, double t, double c);

/// What the look-up table adds to a T.O.F. peak; 0 where it has no such columns.
struct tof_terms {
  double ggi = 0;             ///< variance [us^2]
  double cci = 0;             ///< Lorentzian FWHM [us]
  double alfi = 0, beti = 0;  ///< rise and decay [1/us]
  double shift = 0;           ///< of the position [us]
};
/// At d [angstrom], linear between the rows, which go on with the end rows.
[[nodiscard]] tof_terms apply_irf_tof(const kalvaris_params::resolution_type& r, double d);

}  // namespace instrumental_resolution

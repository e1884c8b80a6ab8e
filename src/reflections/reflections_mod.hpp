// reflections_mod: the reflection list of every phase in a pattern, and what turns F^2 into an intensity.
// It writes pattern_type::refl, mix_type::num_refl and phase_type::atz; the cycle refreshes positions, widths, ff,
// corr. Constant-wavelength powder only: 2theta in degrees, s = sin(theta)/lambda = 1/(2d) in 1/angstrom.
#pragma once
#include <array>
#include <vector>

#include "kalvaris_params.hpp"

namespace reflections_mod {

/// The second wavelength counts: above 0.001 angstrom and not the first one again.
[[nodiscard]] bool has_second_wave(const kalvaris_params::pattern_type& pattern);

// --- Lists ---------------------------------------------------------------------------------------------------------

/// What a list must cover.
struct generation_limits {
  double smin = 0, smax = 0;     ///< range of s that covers both wavelengths
  double first = 0, last = 180;  ///< range of positions, all shifts included [deg]
};
/// From thmin and thmax, with room above for the tails (wdt times 3 FWHM; none for profile matching, which could not
/// know such an intensity), 2theta <= 179 deg and the user's limit of d.
[[nodiscard]] generation_limits make_limits(const kalvaris_params::state_type& st, int ip, int ph);

/// Empties the list of pattern ip. Then genera or reflec is called for its phases in order.
void clear_list(kalvaris_params::state_type& st, int ip);

/// Appends the reflections of phase ph to the list of pattern ip: generated from cell and group, Friedel mates taken
/// together, sorted by position, with position, width and LP. ff: 0, for profile matching estimated from the pattern
/// (its y and bk must be there; without points from 0). Stops when the list passes maxreflx - 2 rows, and for jbt 3 and
/// -3, whose relative intensities can only come from a file. Phases that do not contribute get no rows.
void genera(kalvaris_params::state_type& st, int ip, int ph);

/// As genera from a reflection file (irf 1: h k l mult; 2: a value besides, F for jbt -2 and -3, an intensity for 2
/// and 3, passed over for 0). Stops when the file is missing, a row does not read, or jbt 3, -3 lack the values.
void reflec(kalvaris_params::state_type& st, int ip, int ph);

/// The whole list of pattern ip: clear_list, then genera or reflec for each phase as irf says.
void make_list(kalvaris_params::state_type& st, int ip);

/// Sorts the rows of phase ph by position; rows of equal position keep their order. The slice must be contiguous.
void sort_rhkl(kalvaris_params::state_type& st, int ip, int ph);
/// Sorts the rows of all phases as one list.
void sort_all(kalvaris_params::state_type& st, int ip);

/// F(000): scattering at s = 0 times the number of atoms in the cell [electrons or 1e-12 cm]. For electrons the limit
/// of the Mott-Bethe relation.
[[nodiscard]] double calc_f000(const kalvaris_params::state_type& st, int ip, int ph);

// --- Lorentz, polarisation, absorption ------------------------------------------------------------------------------

/// What the angle-only factor of a phase in a pattern depends on.
struct lpabs_model {
  int ilor = 0, instr = 0, iabscor = 0;
  int jobtyp = 0;         ///< absolute value
  double sent0 = 0;       ///< angle below which the beam overfills the sample [deg]
  double alpsd = 0;       ///< incident angle [deg]
  double cthm = 1;        ///< monochromator, cos^2(2 theta_m)
  double rkk = 0;         ///< polarisation fraction
  double tmv = 0;         ///< mu R or mu t of the wavelength
  double rmua = 0;        ///< mu t of the phase's layer
  double rmua_above = 0;  ///< sum of mu t of the phases before it
  int icorr = 0;          ///< 0, or how the correction of the integrated intensities is given
  const kalvaris_params::correction_type* from_file = nullptr;  ///< of the pattern, with icorr not 0
};
[[nodiscard]] lpabs_model make_lpabs_model(const kalvaris_params::state_type& st, int ip, int ph, int wave);

/// Factor at sin^2(theta), sin(theta), cos(theta), 2theta [deg]. Lorentz 1/(2 sin^2(theta) cos(theta)), except for ilor
/// -1; polarisation for X-rays; absorption of a cylinder (iabscor 2: Rouse, Cooper, York & Chakera 1970; 4: the series
/// of Lobanov & Alte da Veiga in sin(theta)), of plates in transmission (ilor 2, 4) and of layers (5, 6). 0 where a
/// flat plate hides the beam (ilor 1, 2theta <= alpsd; ilor 4, alpsd + 2theta >= 180). All this times the correction at
/// 2theta that the .cor file gives for integrated intensities.
[[nodiscard]] double lpabs(const lpabs_model& m, double sinth2, double sinth, double costh, double two_theta);

// --- Corrections that depend on refinable parameters
// ------------------------------------------------------------------

/// What corr of a phase in a pattern and a wavelength depends on.
struct corrections_model {
  double b = 0;                                 ///< overall B [angstrom^2]
  double ratio = 1;                             ///< relative intensity of the wavelength
  bool preferred = false;                       ///< preferred orientation is alive (non-zero or refined)
  int nori = 0;                                 ///< 0 exponential, 1 March-Dollase
  double g1 = 0, g2 = 0;                        ///< its parameters
  std::array<double, 3> pref{};                 ///< direction, a reciprocal vector
  std::array<double, 6> metric{};               ///< A..F of 1/d^2
  std::vector<std::array<double, 9>> rotation;  ///< operators of the reduced set, element (i,j) at 3i+j
  bool roughness = false;                       ///< microabsorption is alive
  double p0 = 0, cp = 0, tau = 0;               ///< its parameters
};
/// Stops with " Illegal value of NOR  " when preferred orientation is alive and nori is neither 0 nor 1.
[[nodiscard]] corrections_model make_corrections_model(kalvaris_params::state_type& st, int ip, int ph, int wave);

/// corr and its derivatives by each parameter.
struct correction {
  double corr = 1;
  double by_b = 0;      ///< overall B
  double by_ratio = 0;  ///< ratio of this wavelength (a parameter for wave 2 only)
  double by_g1 = 0, by_g2 = 0;
  double by_p0 = 0, by_cp = 0, by_tau = 0;
};
/// exp(-2 B s^2) ratio SR PO for the reflection hkl with q = 1/d^2. PO: exp(G1 alpha^2) or March-Dollase (Dollase, J.
/// Appl. Cryst. 19 (1986) 267) averaged over the equivalent reflections; G1 below 1e-4 counts as 1e-4 there.
/// SR = 1 - P0 - Cp r (1 - r), r = tau/sin(theta) (Pitschke, Hermann & Mattern 1993).
[[nodiscard]] correction corrections(const corrections_model& m, const std::array<double, 3>& hkl, double q,
                                     double sinth2);

}  // namespace reflections_mod

// kv_peak_geometry: angle, position, width and shape of a constant-wavelength powder peak from the cell and the
// profile. It owns nothing: models are gathered from the state once per phase and wavelength, the kernels take and
// return numbers. The lists, the cycle, the point ranges and the plot files all call it, so that they cannot differ.
#pragma once
#include <array>

#include "instrumental_resolution.hpp"
#include "kalvaris_params.hpp"

namespace kv_peak_geometry {

/// What decides angle and width of the peaks of a phase in a pattern at one wavelength. Double precision, so that a
/// test can take central differences of it.
struct peak_model {
  int npro = 0;                            ///< peak shape
  double lambda = 1;                       ///< wavelength [angstrom]
  std::array<double, 6> cell{};            ///< A..F of 1/d^2 [1/angstrom^2]
  double u = 0, v = 0, w = 0;              ///< Gaussian width of this wavelength [deg^2]
  double gausiz = 0;                       ///< Gaussian size term, /cos^2(theta) [deg^2]
  double x = 0, y = 0;                     ///< Lorentzian widths [deg] (npro 7); coefficients of the shape (others)
  double xi = 0;                           ///< Lorentzian part of the strain (npro 7); width slope of eta (others)
  double shape1 = 0;                       ///< constant part of eta, or of m for npro 6
  double u_r = 0, v_r = 0, w_r = 0;        ///< right half of npro 11 [deg^2]
  double shape1_r = 0, x_r = 0;            ///< its eta and the 2theta slope of it
  double left_extra = 0, right_extra = 0;  ///< npro 11: over tan^2(theta), up to 90 deg left, above it right [deg^2]
  double sycos = 0, sysin = 0;             ///< sample shifts of the pattern, for the 90 deg limit of npro 11 [deg]
  bool disp_ds = false;                    ///< displacement goes with cos(2 theta)
  instrumental_resolution::cw_model instrument;  ///< by the resolution file of the pattern
};

/// Model of phase ph in pattern ip (0-based) for wave 1 or 2. Wave 2 takes its own U, V, W when iuvw is 1. Points to
/// the resolution record of the pattern.
[[nodiscard]] peak_model make_peak_model(const kalvaris_params::state_type& st, int ip, int ph, int wave);

/// What single reflections add to position and width; all 0 for a sample without size or strain model.
struct peak_additions {
  double strain2 = 0;  ///< DST2: square of the strain FWHM over tan(theta) [deg^2]
  double size = 0;     ///< DSZ: Lorentzian size FWHM times cos(theta) [deg]
  double layer = 0;    ///< broadening of layered crystals, FWHM times cos(theta) [deg]
  double shift = 0;    ///< hkl-dependent shift of the position [deg]
};

/// One peak. When out_of_reach is set only q, d and sinth2 hold.
struct peak {
  bool out_of_reach = false;      ///< sin^2(theta) >= 1, or 1/d^2 not above 0
  bool negative_gauss = false;    ///< the square of a Gaussian width was below 0: hg stands at 1e-10
  bool negative_lorentz = false;  ///< the Lorentzian width was below 0: hl stands at 1e-10
  double q = 0;                   ///< 1/d^2 [1/angstrom^2]
  double d = 0;                   ///< [angstrom]
  double sinth2 = 0;              ///< sin^2(theta)
  double sinth = 0, costh = 0, tanth = 0, sin2 = 0, cos2 = 0;  ///< of theta and of 2theta, by the cell alone
  double pos = 0;                                              ///< 2theta without zero and sample shifts [deg]
  double hg2 = 0;                                              ///< square of the Gaussian FWHM before its floor [deg^2]
  double hg = 0;                                               ///< Gaussian FWHM [deg], >= 1e-10
  double hl = 0;     ///< Lorentzian FWHM for npro 7, right-hand FWHM for npro 11, else 0 [deg]
  double h = 0;      ///< FWHM for the profile function, left-hand one for npro 11 [deg]
  double eta = 0;    ///< mixing parameter; the exponent m for npro 6; left half for npro 11
  double eta_r = 0;  ///< right half of npro 11
  instrumental_resolution::cw_terms instrument;  ///< what the resolution file gave at pos; its widths stand in hg, hl
};

/// 1/d^2 = A h^2 + B k^2 + C l^2 + D k l + E h l + F h k.
[[nodiscard]] double inverse_d2(const std::array<double, 6>& cell, const std::array<double, 3>& hkl);

/// Angle, position, width and shape of the reflection hkl (real indices).
/// HG^2 = ((1-xi)^2 DST2 + U) tan^2 + V tan + W + (P + G^2)/cos^2 + ggi, with xi = 0 unless npro is 7;
/// HL = (DSZ + Y)/cos + (xi sqrt(DST2) + X) tan + cci, and H, eta from both for npro 7 (Thompson, Cox & Hastings 1987).
/// eta = eta0 + x 2theta + xi H for npro 5, 11, 12; m = m0 + 100 x/2theta + 10^4 y/(2theta)^2 for npro 6.
[[nodiscard]] peak make_peak(const peak_model& model, const std::array<double, 3>& hkl,
                             const peak_additions& more = {});

/// Zero, displacement and transparency of a phase in a pattern, those of the phase added to those of the pattern.
struct shift_model {
  double zero = 0;    ///< [deg]
  double cosine = 0;  ///< coefficient of cos(theta), of cos(2 theta) with disp_ds [deg]
  double sine = 0;    ///< coefficient of sin(2 theta) [deg]
  bool disp_ds = false;
};
[[nodiscard]] shift_model make_shift_model(const kalvaris_params::state_type& st, int ip, int ph);

/// A position on the abscissa with its derivatives; the one by any zero shift is 1.
struct shifted_position {
  double pos = 0;        ///< [deg]
  double by_cosine = 0;  ///< cos(theta) or cos(2 theta)
  double by_sine = 0;    ///< sin(2 theta)
  double by_pos = 1;     ///< by the position without shifts
};
/// pos: 2theta without shifts [deg], the angle of which enters the cosine and sine.
[[nodiscard]] shifted_position apply_shifts(const shift_model& shifts, double pos);

/// Position of reflection k (0-based) of the list of pattern ip on the abscissa, all shifts included [deg].
[[nodiscard]] double peak_position(const kalvaris_params::state_type& st, int ip, int k);

}  // namespace kv_peak_geometry

// The pseudo-Voigt family and the conversion between Gaussian and Lorentzian widths and one width with a mixing
// parameter. Owns nothing: scalar kernels, each a template on the real type.
// x2 is (distance from the peak / FWHM)^2 everywhere; eta is the Lorentzian fraction, 0 to 1.
#pragma once
#include <algorithm>
#include <cmath>
#include <concepts>
#include <numbers>

#include "vector_math.hpp"

namespace pseudo_voigt_mod {

using vector_math::exp_of;

template <std::floating_point R>
inline constexpr R gauss_a = R(4 * std::numbers::ln2);  ///< exponent of a Gaussian of FWHM 1
template <std::floating_point R>
inline constexpr R gauss_norm = R(0.93943727869965137);  ///< 2 sqrt(ln2/pi): height of a Gaussian of FWHM 1
template <std::floating_point R>
inline constexpr R lorentz_norm = R(2 * std::numbers::inv_pi);  ///< height of a Lorentzian of FWHM 1

/// Pseudo-Voigt of FWHM 1 and area 1.
template <std::floating_point R>
R pv_w1(R eta, R x2) {
  return (1 - eta) * gauss_norm<R> * std::exp(-gauss_a<R> * x2) + eta * lorentz_norm<R> / (1 + 4 * x2);
}
/// -d pv_w1/d x2, never negative.
template <std::floating_point R>
R dpv_x(R eta, R x2) {
  const R l = 1 / (1 + 4 * x2);
  return (1 - eta) * gauss_a<R> * gauss_norm<R> * std::exp(-gauss_a<R> * x2) + eta * 4 * lorentz_norm<R> * l * l;
}
/// d pv_w1/d eta.
template <std::floating_point R>
R dpv_e(R x2) {
  return lorentz_norm<R> / (1 + 4 * x2) - gauss_norm<R> * std::exp(-gauss_a<R> * x2);
}
/// Pseudo-Voigt of FWHM 1 and height 1 ("no norm"), and its derivative by eta.
template <std::floating_point R>
R pv_nn(R eta, R x2) {
  return (1 - eta) * std::exp(-gauss_a<R> * x2) + eta / (1 + 4 * x2);
}
template <std::floating_point R>
R dpv_enn(R x2) {
  return 1 / (1 + 4 * x2) - std::exp(-gauss_a<R> * x2);
}

template <std::floating_point R>
struct tch_out {
  R H;    ///< FWHM, unit of the two widths
  R eta;  ///< mixing parameter, at least 1e-6
};
template <std::floating_point R>
struct dtch_out {
  R dHdG, dHdL;    ///< of the FWHM by the Gaussian and by the Lorentzian FWHM
  R dedG, dedL;    ///< of eta, as if it had no floor: a Lorentzian width can then start from 0
  R dHdG2, dedG2;  ///< by the square of the Gaussian FWHM, which counts as 1e-10 below that
};

template <std::floating_point R>
inline constexpr R smallest_eta = R(1e-6);

/// FWHM and mixing of a pseudo-Voigt that stands for the convolution of a Gaussian and a Lorentzian of FWHM HG and HL
/// (one unit, both >= 0, not both 0): Thompson, Cox & Hastings, J. Appl. Cryst. 20 (1987) 79. HL = 0: eta is its floor.
template <std::floating_point R>
tch_out<R> tch(R HG, R HL) {
  const R unit = std::max(HG, HL);  // the fifth powers of small widths would underflow in single precision
  if (!(unit > 0)) return {unit, smallest_eta<R>};
  const R g = HG / unit, l = HL / unit;
  const R sum = ((((g + R(2.69269) * l) * g + R(2.42843) * l * l) * g + R(4.47163) * l * l * l) * g +
                 R(0.07842) * l * l * l * l) *
                    g +
                l * l * l * l * l;
  const R h = std::pow(sum, R(0.2)), r = l / h;
  return {h * unit, std::max(r * (R(1.36603) + r * (R(-0.47719) + r * R(0.11116))), smallest_eta<R>)};
}

/// Derivatives of tch. Both widths 0: all are 0.
template <std::floating_point R>
dtch_out<R> dtch(R HG, R HL) {
  const R unit = std::max(HG, HL);
  if (!(unit > 0)) return {};
  const R H = tch(HG, HL).H;
  const R h = H / unit, g = HG / unit, l = HL / unit, r = l / h;
  const R c = R(0.2) / (h * h * h * h);
  const R by_gauss_over_g = ((5 * g + R(10.77076) * l) * g + R(7.28529) * l * l) * g + R(8.94326) * l * l * l;
  const R dHdG = (by_gauss_over_g * g + R(0.07842) * l * l * l * l) * c;
  const R dHdL = ((((R(2.69269) * g + R(4.85686) * l) * g + R(13.41489) * l * l) * g + R(0.31368) * l * l * l) * g +
                  5 * l * l * l * l) *
                 c;
  const R q = (R(0.33348) * r - R(0.95438)) * r + R(1.36603);
  dtch_out<R> d{};
  d.dHdG = dHdG;
  d.dHdL = dHdL;
  d.dedG = -r * q * dHdG / H;
  d.dedL = q * (1 - dHdL * r) / H;
  d.dHdG2 = dHdG / (2 * std::max(HG, R(0.05) * H));
  d.dedG2 = -r * q * d.dHdG2 / H;
  return d;
}

template <std::floating_point R>
struct gauss_lorentz_widths {
  R HG, HL;
};
/// Gaussian and Lorentzian FWHM whose convolution a pseudo-Voigt of FWHM H (>= 0) and mixing eta (0 to 1) stands for:
/// de Keijser, Langford, Mittemeijer & Vogels, J. Appl. Cryst. 15 (1982) 308. Inverts tch within about 2 % of H.
/// Near eta = 1 the approximation of the Gaussian part falls just below 0 and is taken as 0.
template <std::floating_point R>
gauss_lorentz_widths<R> keijser(R H, R eta) {
  constexpr R two_over_pi = lorentz_norm<R>;  // phi of a Lorentzian
  const R half_phi = (1 - eta) * R(0.46971863934982568) + eta * R(std::numbers::inv_pi);
  const R phi = 2 * half_phi, breadth = H / phi;
  const R excess = std::max(phi - two_over_pi, R(0));  // below 0 at eta = 1 by rounding only
  const R bG = (R(0.642) + R(1.4187) * std::sqrt(excess) + (R(3.7412) * half_phi - R(2.2043)) * phi) * breadth;
  const R bL = two_over_pi * breadth * (R(2.0207) + (R(-3.5512) * half_phi - R(0.4803)) * phi);
  return {std::max(gauss_norm<R> * bG, R(0)), bL};
}

}  // namespace pseudo_voigt_mod

// The peak functions of a constant-wavelength pattern: value and derivatives of one peak at one point or at a row of
// consecutive points. Owns nothing: a peak is filled by the pattern calculation, once per reflection and cycle.
// What is returned is the peak times its asymmetry correction, A Omega [1/deg], and the derivatives of that product.
//
//   npr  function                            width         width_2       shape        shape_2       shape_3  shape_4
//    0   Gaussian                            H^2           -             -            -             -        -
//    1   Lorentzian                          H^2           -             -            -             -        -
//    2,3 Pearson VII of m = 2 and m = 3/2    H^2           -             -            -             -        -
//    4   three pseudo-Voigts                 H^2           -             eta          ci            cd       dd
//   -4   two Lorentzians                     H^2           -             -            ci            -        dd
//    5   pseudo-Voigt                        H^2           -             eta          -             -        -
//    6   Pearson VII                         H^2           -             m            -             -        -
//    7   Thompson-Cox-Hastings pseudo-Voigt  HG^2          HL            -            -             -        -
//   11   split pseudo-Voigt                  H^2 of left   H^2 of right  eta of left  eta of right  -        -
//   12   pseudo-Voigt                        H^2           -             eta          -             -        -
//
// omega and position are filled for every npr; s_l and d_l for 7 and 12 (0 when no aberration is given); asym_a and
// asym_b when use_asym is set. A derivative by H^2 holds the one through eta, as deta_dH says (5, 11 left, 12).
#pragma once
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "lmix_powderprofiles_finger.hpp"
#include "pseudo_voigt_mod.hpp"

namespace kv_profil {

/// What the kernels return for a point. Each but omega is the derivative of omega by a quantity, so that the derivative
/// of the pattern by a parameter is intensity * sum over quantities (peak_class * d quantity/d parameter).
enum peak_class : int {
  omega,     ///< A Omega [1/deg]; 0 beyond the cut-off, as all others then are
  position,  ///< by the peak position [deg]
  width,     ///< by the square of the (Gaussian, left) FWHM [deg^2]
  width_2,   ///< by the Lorentzian FWHM [deg] (7), by the square of the right FWHM (11)
  shape,     ///< by eta, by m (6), by eta of the left side (11)
  shape_2,   ///< by eta of the right side (11), by ci (4, -4)
  shape_3,   ///< by cd (4)
  shape_4,   ///< by dd [deg] (4, -4)
  asym_a,  ///< Omega Fa: the derivative by P1 is this times -1/tan theta, by P3 times -1/tan 2theta; 0 on the floor of
           ///< A
  asym_b,  ///< Omega Fb: the same for P2 and P4
  s_l,     ///< by S/L
  d_l,     ///< by D/L
  n_peak_class
};

/// Constants of a Pearson VII function of FWHM 1.
template <std::floating_point R>
struct pearson_constants {
  R tf4 = 0, tf6 = 0, tf8 = 0, tf9 = 0, cc4 = 0;
};
inline constexpr double smallest_m = 0.6;  ///< the area of (1 + x^2)^-m diverges at 0.5

/// Constants for m >= smallest_m, by Gamma functions in double precision.
pearson_constants<double> prsvii(double m);

/// One reflection. The first part is set by the caller, the second by prepare.
template <std::floating_point R>
struct peak {
  int npr = 0;
  double position = 0;               ///< [deg]; double, because the difference to the abscissa is what counts
  R cut_off = 0;                     ///< points further than this many FWHM (of their side) get nothing; > 0
  R H = 0;                           ///< FWHM [deg], > 0, left one for 11; for 7 set by prepare
  R H_right = 0;                     ///< right FWHM [deg], > 0 (11)
  R HG = 0, HL = 0;                  ///< Gaussian and Lorentzian FWHM [deg], >= 0, not both 0 (7)
  R eta = 0;                         ///< Lorentzian fraction, left one for 11, m for 6; for 7 set by prepare
  R eta_right = 0;                   ///< (11)
  R deta_dH = 0;                     ///< how eta depends on H (5, 11, 12)
  R ci = 0, cd = 0;                  ///< weights of the two side peaks (4); of the one at -dd (-4)
  R dd = 0;                          ///< distance of the side peaks from the position [deg] (4, -4)
  bool use_asym = false;             ///< below the limit of the asymmetry correction
  R p1 = 0, p2 = 0, p3 = 0, p4 = 0;  ///< its parameters
  R tan_theta = 1, tan_2theta = 1;   ///< of the reflection, not 0
  const lmix_powderprofiles_finger::axial_peak<R>* axial = nullptr;  ///< prepared aberration (7, 12), or none

  R inv_H = 0, inv_H_right = 0;
  R asym_fa = 0, asym_fb = 0;               ///< p1/tan theta + p3/tan 2theta, and the same of p2, p4
  R dH_dwidth = 0, deta_dwidth = 0;         ///< of H and eta by HG^2 (7), by H^2 (5, 12)
  R dH_dHL = 0, deta_dHL = 0;               ///< (7)
  R inv_mean = 0;                           ///< 1/mean width (11)
  R mean_left = 0, mean_right = 0;          ///< d ln(mean width)/d(H^2) of a side (11)
  R mean_eta_left = 0, mean_eta_right = 0;  ///< d ln(mean width)/d(eta) of a side (11)
  pearson_constants<R> pearson{};           ///< (6)
};

enum class peak_status { ok, illegal_function, pearson_m_too_small };
/// Fills the second part of `p`. Any other status than ok leaves it unusable.
template <std::floating_point R>
[[nodiscard]] peak_status prepare(peak<R>& p);
/// What to stop with, and the line to write before it (either may be empty).
std::string_view stop_words(peak_status status);
std::string_view listing_words(peak_status status);

/// Bit c is set when the kernels fill class c for this peak.
template <std::floating_point R>
std::uint32_t classes_filled(const peak<R>& p);

/// Fa = 2 z exp(-z^2), Fb = (4 z^2 - 3) Fa, z = distance/FWHM, and their derivatives by z.
template <class V>
struct fabzp_out {
  V fa, fb, dfa, dfb;
};
template <class V>
[[gnu::always_inline]] inline fabzp_out<V> fabzp(V z) {
  using R = std::remove_cvref_t<decltype(vector_math::first_lane(z))>;
  const V q = z * z, e = vector_math::exp_of(V(-q));
  const V fa = R(2) * z * e;
  return {fa, (R(4) * q - R(3)) * fa, R(2) * (R(1) - R(2) * q) * e, ((R(36) - R(16) * q) * q - R(6)) * e};
}
inline constexpr double asym_floor = 1e-4;  ///< A where the correction would turn the peak negative

/// One point x [deg]: the plain form of peak_row. Classes that are not filled are 0; so are all but omega when
/// derivatives are not wanted.
template <std::floating_point R>
std::array<R, n_peak_class> profil(const peak<R>& p, R x, bool want_derivatives);

using peak_params = peak<float>;
using axial_params = lmix_powderprofiles_finger::axial_peak<float>;

/// Where peak_row writes. An empty span is not written; the others hold at least as many points as the row.
struct peak_row_out {
  std::array<std::span<float>, n_peak_class> of;
  std::span<float>& operator[](peak_class c) { return of[c]; }
};
/// Kinds of vector that peak_row is made for: 4, 8 and 16 points at a time.
enum class vector_kind { portable, avx2, avx512 };
/// The widest kind that this processor runs.
vector_kind widest_vectors();

/// Value and, when wanted, derivatives at consecutive points x [deg] in ascending or descending order, within 3e-6 of
/// the largest value of their class. Only the classes of classes_filled are written. `kind` must not be wider than
/// widest_vectors; the kinds differ by rounding only. No allocation.
void peak_row(const peak_params& p, std::span<const float> x, peak_row_out& out, bool want_derivatives,
              vector_kind kind = widest_vectors());

}  // namespace kv_profil

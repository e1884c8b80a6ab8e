#include "kv_profil.hpp"

#include <cmath>
#include <numbers>

#include "kv_profil_point.hpp"

namespace kv_profil {
namespace {

/// Digamma function for x > 0: recurrence up to 10, then the asymptotic series (Abramowitz & Stegun 6.3.5, 6.3.18).
double digamma(double x) {
  double below = 0;
  for (; x < 10; x += 1) below -= 1 / x;
  const double q = 1 / (x * x);
  const double series = q * (1.0 / 12 - q * (1.0 / 120 - q * (1.0 / 252 - q * (1.0 / 240 - q * (1.0 / 132)))));
  return below + std::log(x) - 0.5 / x - series;
}

/// Half-side constants of the split function: the area of a side of FWHM 1 and height 1 is a quarter of this.
template <std::floating_point R>
R side_area(R eta) {
  constexpr R gauss = R(2.1289340388624523), lorentz = R(std::numbers::pi);  // sqrt(pi/ln 2), pi
  return gauss + (lorentz - gauss) * eta;
}

template <std::floating_point R>
void prepare_split(peak<R>& p) {
  const R left = side_area(p.eta), right = side_area(p.eta_right);
  const R mean = (left * p.H + right * p.H_right) * R(0.25);
  p.inv_mean = 1 / mean;
  p.mean_left = R(0.125) * left / (p.H * mean);
  p.mean_right = R(0.125) * right / (p.H_right * mean);
  const R by_eta = side_area(R(1)) - side_area(R(0));
  p.mean_eta_left = R(0.25) * by_eta * p.H / mean;
  p.mean_eta_right = R(0.25) * by_eta * p.H_right / mean;
}

template <std::floating_point R>
void prepare_tch(peak<R>& p) {
  const auto [H, eta] = pseudo_voigt_mod::tch(p.HG, p.HL);
  const auto d = pseudo_voigt_mod::dtch(p.HG, p.HL);
  p.H = H;
  p.eta = eta;
  p.dH_dwidth = d.dHdG2;
  p.deta_dwidth = d.dedG2;
  p.dH_dHL = d.dHdL;
  p.deta_dHL = d.dedL;
}

}  // namespace

pearson_constants<double> prsvii(double m) {
  const double ln_p = std::numbers::ln2 / m, p = std::exp(ln_p), p_minus_1 = std::expm1(ln_p);
  const double gamma_ratio = std::exp(std::lgamma(m) - std::lgamma(m - 0.5));
  const double tf2 = p * std::numbers::ln2 / (2 * p_minus_1);
  pearson_constants<double> k;
  k.cc4 = std::sqrt(p_minus_1) * 2 * std::numbers::inv_sqrtpi * gamma_ratio;
  k.tf4 = p * 4 * std::numbers::ln2 / m;
  k.tf6 = 4 * m * p_minus_1;
  k.tf8 = digamma(m) - digamma(m - 0.5) - tf2 / (m * m);
  k.tf9 = 4 * p_minus_1;
  return k;
}

template <std::floating_point R>
peak_status prepare(peak<R>& p) {
  if (!point::classes_of(p.npr)) return peak_status::illegal_function;
  if (p.npr == 6) {
    if (!(p.eta >= R(smallest_m))) return peak_status::pearson_m_too_small;
    const auto k = prsvii(double(p.eta));
    p.pearson = {R(k.tf4), R(k.tf6), R(k.tf8), R(k.tf9), R(k.cc4)};
  }
  if (p.npr == 7) {
    prepare_tch(p);
  } else {
    p.dH_dwidth = R(0.5) / p.H;
    p.deta_dwidth = p.deta_dH * p.dH_dwidth;
  }
  p.inv_H = 1 / p.H;
  if (p.npr == 11) {
    p.inv_H_right = 1 / p.H_right;
    prepare_split(p);
  }
  p.asym_fa = p.p1 / p.tan_theta + p.p3 / p.tan_2theta;
  p.asym_fb = p.p2 / p.tan_theta + p.p4 / p.tan_2theta;
  return peak_status::ok;
}
template peak_status prepare(peak<float>&);
template peak_status prepare(peak<double>&);

std::string_view stop_words(peak_status status) {
  switch (status) {
    case peak_status::ok:
      return "";
    case peak_status::illegal_function:
      return " Illegal profile Function request";
    case peak_status::pearson_m_too_small:
      return " Pearson VII M-value unacceptable!";
  }
  return "";
}
std::string_view listing_words(peak_status status) {
  return status == peak_status::pearson_m_too_small ? " Unacceptable M value in calculating Pearson VII Function" : "";
}

template <std::floating_point R>
std::uint32_t classes_filled(const peak<R>& p) {
  return point::classes_of(p.npr) | (p.use_asym ? point::asym_bits : 0u);
}
template std::uint32_t classes_filled(const peak<float>&);
template std::uint32_t classes_filled(const peak<double>&);

namespace {
template <bool derivatives, class R, std::size_t... row>
std::array<R, n_peak_class> one_point(const peak<R>& p, R delta, std::index_sequence<row...>) {
  std::array<R, n_peak_class> t{};
  ((p.npr == point::npr_table[row].npr && (t = point::all<point::npr_table[row].npr, derivatives>(p, delta), true)) ||
   ...);
  return t;
}
}  // namespace

template <std::floating_point R>
std::array<R, n_peak_class> profil(const peak<R>& p, R x, bool want_derivatives) {
  const R delta = R(double(x) - p.position);
  constexpr auto rows = std::make_index_sequence<point::npr_table.size()>{};
  return want_derivatives ? one_point<true>(p, delta, rows) : one_point<false>(p, delta, rows);
}
template std::array<float, n_peak_class> profil(const peak<float>&, float, bool);
template std::array<double, n_peak_class> profil(const peak<double>&, double, bool);

}  // namespace kv_profil

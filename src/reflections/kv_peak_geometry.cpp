#include "kv_peak_geometry.hpp"

#include <cmath>
#include <numbers>

#include "pseudo_voigt_mod.hpp"

namespace kv_peak_geometry {

namespace {

using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

constexpr double rad = std::numbers::pi / 180.0;
constexpr double smallest_width = 1.0e-10;  // keeps (x - x0)/H finite

/// Root of the square of a width. A NaN stays.
double width_of(double square) {
  return square <= smallest_width * smallest_width ? smallest_width : std::sqrt(square);
}

/// Angle at which the extra terms of npro 11 change sides.
double sample_angle(const peak_model& m, const peak& p) {
  return p.pos + m.sycos * (m.disp_ds ? p.cos2 : p.costh) + m.sysin * p.sin2;
}

double gauss_square(const peak_model& m, const peak& p, const peak_additions& more) {
  const double xi = m.npro == 7 ? m.xi : 0.0;
  const double u = (1 - xi) * (1 - xi) * more.strain2 + m.u;
  double square = (u * p.tanth + m.v) * p.tanth + m.w + (m.gausiz + more.layer * more.layer) / (p.costh * p.costh) +
                  p.instrument.ggi;
  if (m.npro == 11 && sample_angle(m, p) <= 90) square += m.left_extra / (p.tanth * p.tanth);
  return square;
}

double right_square(const peak_model& m, const peak& p, const peak_additions& more) {
  double square = ((more.strain2 + m.u_r) * p.tanth + m.v_r) * p.tanth + m.w_r + m.gausiz / (p.costh * p.costh);
  if (sample_angle(m, p) > 90) square += m.right_extra / (p.tanth * p.tanth);
  return square;
}

void set_thompson_cox_hastings(const peak_model& m, const peak_additions& more, peak& p) {
  const double strain = m.xi * std::sqrt(std::abs(more.strain2)) + m.x;
  p.hl = (more.size + m.y) / p.costh + strain * p.tanth + p.instrument.cci;
  p.negative_lorentz = p.hl < 0;
  if (p.negative_lorentz) p.hl = smallest_width;
  const auto both = pseudo_voigt_mod::tch(p.hg, p.hl);
  p.h = both.H;
  p.eta = both.eta;
}

void set_shape(const peak_model& m, peak& p) {
  switch (m.npro) {
    case 1:
    case -4:
      p.eta = 1;
      break;
    case 4:
      p.eta = m.shape1;
      break;
    case 11:
      p.eta_r = p.pos * m.x_r + m.shape1_r;
      [[fallthrough]];
    case 5:
    case 12:
      p.eta = p.h * m.xi + p.pos * m.x + m.shape1;
      break;
    case 6:
      p.eta = m.shape1 + 100 * m.x / p.pos + 1.0e4 * m.y / (p.pos * p.pos);
      break;
    default:
      p.eta = 0;
  }
}

}  // namespace

peak_model make_peak_model(const state_type& st, int ip, int ph, int wave) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& mix = st.mix(ph, ip);
  const auto& par = mix.par;
  const bool own_widths = wave == 2 && pattern.iuvw == 1;
  peak_model m;
  m.npro = mix.npro;
  m.lambda = pattern.lamda[static_cast<std::size_t>(wave - 1)];
  for (std::size_t i = 0; i < 6; ++i) m.cell[i] = par[slot::cell_a + i];
  m.u = par[own_widths ? slot::u2 : slot::u];
  m.v = par[own_widths ? slot::v2 : slot::v];
  m.w = par[own_widths ? slot::w2 : slot::w];
  m.gausiz = par[slot::gausiz];
  m.x = par[slot::x];
  m.y = par[slot::y];
  m.xi = par[slot::xi];
  m.shape1 = par[slot::shape1];
  m.u_r = par[slot::u_r];
  m.v_r = par[slot::v_r];
  m.w_r = par[slot::w_r];
  m.shape1_r = par[slot::shape1_r];
  m.x_r = par[slot::x_r];
  m.left_extra = par[slot::s_l];
  m.right_extra = par[slot::d_l];
  m.sycos = pattern.glb[gslot::sycos];
  m.sysin = pattern.glb[gslot::sysin];
  m.disp_ds = pattern.disp_ds;
  m.instrument = instrumental_resolution::make_cw_model(pattern, wave);
  return m;
}

double inverse_d2(const std::array<double, 6>& c, const std::array<double, 3>& h) {
  return c[0] * h[0] * h[0] + c[1] * h[1] * h[1] + c[2] * h[2] * h[2] + c[3] * h[1] * h[2] + c[4] * h[0] * h[2] +
         c[5] * h[0] * h[1];
}

peak make_peak(const peak_model& m, const std::array<double, 3>& hkl, const peak_additions& more) {
  peak p;
  p.q = inverse_d2(m.cell, hkl);
  p.sinth2 = 0.25 * m.lambda * m.lambda * p.q;
  p.out_of_reach = !(p.q > 0) || !(p.sinth2 < 1);
  if (p.out_of_reach) return p;
  p.d = 1 / std::sqrt(p.q);
  p.sinth = std::sqrt(p.sinth2);
  p.costh = std::sqrt(1 - p.sinth2);
  p.tanth = p.sinth / p.costh;
  p.sin2 = 2 * p.sinth * p.costh;
  p.cos2 = 1 - 2 * p.sinth2;
  p.pos = 2 * std::atan(p.tanth) / rad + more.shift;
  p.instrument = instrumental_resolution::apply_irf_cw(m.instrument, p.pos, p.tanth * p.tanth, p.tanth, p.costh);
  p.hg2 = gauss_square(m, p, more);
  p.negative_gauss = p.hg2 < 0;
  p.hg = width_of(p.hg2);
  p.h = p.hg;
  if (m.npro == 7) {
    set_thompson_cox_hastings(m, more, p);
    return p;
  }
  if (m.npro == 11) p.hl = width_of(right_square(m, p, more));
  set_shape(m, p);
  return p;
}

shift_model make_shift_model(const state_type& st, int ip, int ph) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& par = st.mix(ph, ip).par;
  const auto& glb = pattern.glb;
  return {double{glb[gslot::zero]} + par[slot::zero_ph], double{glb[gslot::sycos]} + par[slot::sycos_ph],
          double{glb[gslot::sysin]} + par[slot::sysin_ph], pattern.disp_ds};
}

shifted_position apply_shifts(const shift_model& s, double pos) {
  const double two_theta = pos * rad, theta = 0.5 * two_theta;
  shifted_position out;
  out.by_cosine = s.disp_ds ? std::cos(two_theta) : std::cos(theta);
  out.by_sine = std::sin(two_theta);
  out.pos = pos + s.zero + s.cosine * out.by_cosine + s.sine * out.by_sine;
  const double cosine_slope = s.disp_ds ? -std::sin(two_theta) : -0.5 * std::sin(theta);
  out.by_pos = 1 + rad * (s.cosine * cosine_slope + s.sine * std::cos(two_theta));
  return out;
}

double peak_position(const state_type& st, int ip, int k) {
  const auto& list = st.pattern[static_cast<std::size_t>(ip)].refl;
  const auto i = static_cast<std::size_t>(k);
  const int ph = kalvaris_params::unpack_irefs(list.irefs[i]).phase;
  return apply_shifts(make_shift_model(st, ip, ph), list.pos[i]).pos;
}

}  // namespace kv_peak_geometry

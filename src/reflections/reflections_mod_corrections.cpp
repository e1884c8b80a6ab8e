// Corrections of an intensity that depend on refinable parameters: displacement, wavelength, texture, roughness.
#include <cmath>

#include "kv_peak_geometry.hpp"
#include "reflections_mod.hpp"

namespace reflections_mod {

namespace {

using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

constexpr double alive_above = 1.0e-7;      // a smaller G1 or G2 that is fixed is none
constexpr double smallest_march = 1.0e-4;   // G1 divides in the March-Dollase form
constexpr double right_angle2 = 2.4674011;  // (pi/2)^2
constexpr double perpendicular = 1.0e-8;    // cos^2 below which alpha is a right angle

/// Scalar product of two reciprocal vectors; mixed terms of the metric hold both orders.
double product(const std::array<double, 6>& g, const std::array<double, 3>& a, const std::array<double, 3>& b) {
  return g[0] * a[0] * b[0] + g[1] * a[1] * b[1] + g[2] * a[2] * b[2] +
         0.5 * (g[3] * (a[1] * b[2] + a[2] * b[1]) + g[4] * (a[0] * b[2] + a[2] * b[0]) +
                g[5] * (a[0] * b[1] + a[1] * b[0]));
}

struct texture {
  double value = 1, by_g1 = 0, by_g2 = 0;
};

texture exponential(const corrections_model& m, double c) {
  const double angle = std::atan(std::sqrt(std::abs((1 - c) / c)));
  const double alpha2 = std::abs(c) < perpendicular ? right_angle2 : angle * angle;
  const double e = std::exp(m.g1 * alpha2);
  return {(1 - m.g2) * e + m.g2, (1 - m.g2) * alpha2 * e, 1 - e};
}

/// h R runs over the equivalent reflections; R h would not where the axes are not orthogonal. The inverse of an
/// operator adds nothing, since c is even in h.
texture march_dollase(const corrections_model& m, const std::array<double, 3>& h, double norm) {
  const double g = m.g1 < smallest_march ? smallest_march : m.g1;
  double sum = 0, slope = 0;
  for (const auto& r : m.rotation) {
    const std::array<double, 3> hs{h[0] * r[0] + h[1] * r[3] + h[2] * r[6], h[0] * r[1] + h[1] * r[4] + h[2] * r[7],
                                   h[0] * r[2] + h[1] * r[5] + h[2] * r[8]};
    const double projection = product(m.metric, hs, m.pref);
    const double c = projection * projection * norm, rest = std::abs(1 - c);
    const double v = g * g * c + rest / g;
    const double term = 1 / (v * std::sqrt(v));
    sum += term;
    slope += -1.5 * term / v * (2 * g * c - rest / (g * g));
  }
  const double n = static_cast<double>(m.rotation.size());
  const double mean = sum / n;
  const double by_g1 = m.g1 < smallest_march ? 0 : (1 - m.g2) * slope / n;
  return {(1 - m.g2) * mean + m.g2, by_g1, 1 - mean};
}

texture preferred_orientation(const corrections_model& m, const std::array<double, 3>& h, double q) {
  if (!m.preferred) return {};
  const double norm = 1 / (q * product(m.metric, m.pref, m.pref));
  if (m.nori == 1) return march_dollase(m, h, norm);
  const double projection = product(m.metric, h, m.pref);
  return exponential(m, projection * projection * norm);
}

bool has_roughness(const kalvaris_params::pattern_type& p) {
  const bool given = p.iglmore == 1 || p.iglmore == 3;
  const bool geometry = p.ilor == -2 || p.ilor == -1 || p.ilor == 0 || p.ilor == 3;
  return given && geometry && p.radiation() == kalvaris_params::job::xrays;
}

std::vector<std::array<double, 9>> rotations(const lmix_crystallographic_symmetry::space_group_type& group) {
  std::vector<std::array<double, 9>> all(static_cast<std::size_t>(group.numops));
  for (std::size_t k = 0; k < all.size(); ++k)
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) all[k][3 * i + j] = group.symop[k].rot[i][j];
  return all;
}

}  // namespace

corrections_model make_corrections_model(state_type& st, int ip, int ph, int wave) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& mix = st.mix(ph, ip);
  corrections_model m;
  m.b = mix.par[slot::bov];
  m.ratio = pattern.ratio[static_cast<std::size_t>(wave - 1)];
  m.g1 = mix.par[slot::pref1];
  m.g2 = mix.par[slot::pref2];
  m.nori = pattern.nori;
  m.preferred = std::abs(m.g1) >= alive_above || std::abs(m.g2) >= alive_above || mix.lpar[slot::pref1] != 0 ||
                mix.lpar[slot::pref2] != 0;
  if (m.preferred && m.nori != 0 && m.nori != 1) kalvaris_inout::stop_cond(st.io, " Illegal value of NOR  ", true);
  for (std::size_t i = 0; i < 3; ++i) m.pref[i] = mix.pref[i];
  for (std::size_t i = 0; i < 6; ++i) m.metric[i] = mix.par[slot::cell_a + i];
  if (m.preferred && m.nori == 1) m.rotation = rotations(st.phase[static_cast<std::size_t>(ph)].spgr);
  m.roughness = has_roughness(pattern);
  m.p0 = pattern.glb[gslot::p0];
  m.cp = pattern.glb[gslot::cp];
  m.tau = pattern.glb[gslot::tau];
  return m;
}

correction corrections(const corrections_model& m, const std::array<double, 3>& hkl, double q, double sinth2) {
  const double s2 = 0.25 * q;
  const double overall = std::exp(-2 * m.b * s2);
  const texture po = preferred_orientation(m, hkl, q);
  const double inverse_sin = m.roughness ? 1 / std::sqrt(sinth2) : 0, r = m.tau * inverse_sin;
  const double sr = m.roughness ? 1 - (m.p0 + m.cp * r * (1 - r)) : 1;
  correction out;
  out.corr = overall * m.ratio * sr * po.value;
  out.by_b = -2 * s2 * out.corr;
  out.by_ratio = overall * sr * po.value;
  out.by_g1 = overall * m.ratio * sr * po.by_g1;
  out.by_g2 = overall * m.ratio * sr * po.by_g2;
  if (!m.roughness) return out;
  const double without = overall * m.ratio * po.value;
  out.by_p0 = -without;
  out.by_cp = -r * (1 - r) * without;
  out.by_tau = -(1 - 2 * r) * inverse_sin * m.cp * without;
  return out;
}

}  // namespace reflections_mod

#include "kv_structure_factors.hpp"

#include <algorithm>
#include <cmath>

namespace kv_structure_factors {

namespace {

using kalvaris_params::state_type;
namespace aslot = kalvaris_params::aslot;

constexpr double mott_bethe = 0.023934;  // m e^2/(2 h^2) in the units that go with electrons and angstrom

/// cos and sin of 2 pi t for many t at once. The turn is reduced to |r| <= 1/8 around a quarter turn; the polynomials
/// are Taylor's, exact to 3e-8 there.
[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] void cos_sin_turns(const float* turns,
                                                                                         float* cosine, float* sine,
                                                                                         int n) {
  constexpr float to_integer = 12582912.f;  // 1.5 * 2^23: adding and subtracting it rounds to the nearest integer
#pragma omp simd
  for (int i = 0; i < n; ++i) {
    const float t = turns[i] - ((turns[i] + to_integer) - to_integer);
    const float quarter = (4.f * t + to_integer) - to_integer;  // -2..2
    const float x = (t - 0.25f * quarter) * 6.2831855f, x2 = x * x;
    const float s = x * (1.f + x2 * (-1.f / 6.f + x2 * (1.f / 120.f + x2 * (-1.f / 5040.f + x2 * (1.f / 362880.f)))));
    const float c = 1.f + x2 * (-0.5f + x2 * (1.f / 24.f + x2 * (-1.f / 720.f + x2 * (1.f / 40320.f))));
    const bool odd = quarter == 1.f || quarter == -1.f;
    const bool half = quarter == 2.f || quarter == -2.f;
    const float plain_c = odd ? s : c, plain_s = odd ? c : s;
    cosine[i] = (quarter == 1.f || half) ? -plain_c : plain_c;
    sine[i] = (quarter == -1.f || half) ? -plain_s : plain_s;
  }
}

/// Rotated indices hs = h R and turns h t of every operator.
void rotate_indices(const phase_model& m, const std::array<float, 3>& h, workspace& w) {
  const auto n = static_cast<std::size_t>(m.n_ops);
  for (int j = 0; j < 3; ++j) {
    w.hs[j].resize(n);
    const float *r0 = m.rot[j].data(), *r1 = m.rot[3 + j].data(), *r2 = m.rot[6 + j].data();
    for (std::size_t i = 0; i < n; ++i) w.hs[j][i] = h[0] * r0[i] + h[1] * r1[i] + h[2] * r2[i];
  }
  w.ht.resize(n);
  for (std::size_t i = 0; i < n; ++i) w.ht[i] = h[0] * m.tr[0][i] + h[1] * m.tr[1][i] + h[2] * m.tr[2][i];
  w.cosine.resize(n);
  w.sine.resize(n);
}

/// Fills cosine and sine of the workspace with those of the atom's phase times its anisotropic factor.
void atom_phases(const phase_model::atom& t, workspace& w) {
  const int first = t.first_op, n = t.last_op - t.first_op;
  const float *h1 = w.hs[0].data() + first, *h2 = w.hs[1].data() + first, *h3 = w.hs[2].data() + first;
  float *c = w.cosine.data() + first, *s = w.sine.data() + first;
  const float* ht = w.ht.data() + first;
  for (int i = 0; i < n; ++i) c[i] = h1[i] * t.x + h2[i] * t.y + h3[i] * t.z + ht[i];
  cos_sin_turns(c, c, s, n);
  if (!t.anisotropic) return;
  for (int i = 0; i < n; ++i) {
    const float quadratic = t.beta[0] * h1[i] * h1[i] + t.beta[1] * h2[i] * h2[i] + t.beta[2] * h3[i] * h3[i] +
                            2.f * (t.beta[3] * h1[i] * h2[i] + t.beta[4] * h1[i] * h3[i] + t.beta[5] * h2[i] * h3[i]);
    const float factor = std::exp(-quadratic);
    c[i] *= factor;
    s[i] *= factor;
  }
}

/// Sums over operators of the cosine and sine terms times 1, hs_j, and the six products that go with the betas.
void operator_sums(const phase_model::atom& t, const workspace& w, std::array<double, 10>& dc,
                   std::array<double, 10>& ds) {
  dc.fill(0);
  ds.fill(0);
  for (int i = t.first_op; i < t.last_op; ++i) {
    const auto u = static_cast<std::size_t>(i);
    const float c = w.cosine[u], s = w.sine[u];
    dc[0] += c;
    ds[0] += s;
    if (!t.wants_position && !t.wants_beta) continue;
    const float h1 = w.hs[0][u], h2 = w.hs[1][u], h3 = w.hs[2][u];
    const float products[9] = {h1, h2, h3, h1 * h1, h2 * h2, h3 * h3, 2.f * h1 * h2, 2.f * h1 * h3, 2.f * h2 * h3};
    const int n = t.wants_beta ? 9 : 3;
    for (int k = 0; k < n; ++k) {
      dc[k + 1] += static_cast<double>(c * products[k]);
      ds[k + 1] += static_cast<double>(s * products[k]);
    }
  }
}

}  // namespace

scattering_value scattering_at(const kalvaris_params::scattering_entry& entry, double s2, bool electrons) {
  double f = 0;
  if (!entry.star.empty()) {
    const float s = static_cast<float>(std::sqrt(s2));
    const auto next = std::upper_bound(entry.star.begin(), entry.star.end(), s);
    if (next == entry.star.begin()) {
      f = entry.ftab.front();
    } else if (next == entry.star.end()) {
      f = entry.ftab.back();
    } else {
      const auto j = static_cast<std::size_t>(next - entry.star.begin());
      const float slope = (entry.ftab[j] - entry.ftab[j - 1]) / (entry.star[j] - entry.star[j - 1]);
      f = entry.ftab[j - 1] + slope * (s - entry.star[j - 1]);
    }
  } else {
    f = entry.ac[8];
    for (std::size_t j = 0; j < 4; ++j) f += entry.ac[2 * j] * std::exp(-static_cast<double>(entry.ac[2 * j + 1]) * s2);
  }
  f += entry.dfp;
  if (electrons) return {(entry.z - f) * mott_bethe / s2, 0.0};
  return {f, entry.dfpp};
}

phase_model prepare(const state_type& st, int ph, int ip, std::vector<column> columns) {
  const auto& phase = st.phase[static_cast<std::size_t>(ph)];
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& group = phase.spgr;
  phase_model m;
  m.nlatti = group.numlat;
  m.inversion_at_origin = group.centred == 2;
  m.n_ops = group.centred == 0 ? 2 * group.numops : group.numops;
  m.electrons = pattern.radiation() == kalvaris_params::job::electrons;
  m.entries = pattern.scattering;
  for (auto& r : m.rot) r.reserve(static_cast<std::size_t>(m.n_ops));
  for (int i = 0; i < m.n_ops; ++i) {
    const auto& op = group.symop[static_cast<std::size_t>(i)];
    for (std::size_t r = 0; r < 3; ++r) {
      for (std::size_t c = 0; c < 3; ++c) m.rot[3 * r + c].push_back(static_cast<float>(op.rot[r][c]));
      m.tr[r].push_back(op.tr[r]);
    }
  }
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const auto& atom = st.atom[static_cast<std::size_t>(ia)];
    phase_model::atom t;
    t.x = atom.xl[aslot::x];
    t.y = atom.xl[aslot::y];
    t.z = atom.xl[aslot::z];
    t.biso = atom.xl[aslot::biso];
    t.occ = atom.xl[aslot::occ];
    for (std::size_t k = 0; k < 6; ++k) t.beta[k] = atom.xl[aslot::b11 + k];
    t.anisotropic = atom.n_t >= 2;
    t.species = atom.species.empty() ? -1 : atom.species[static_cast<std::size_t>(ip)];
    const bool own_range = atom.isap[0] > 0 && atom.isap[1] > 0;
    t.first_op = own_range ? std::min(atom.isap[0] - 1, m.n_ops) : 0;
    t.last_op = own_range ? std::clamp(atom.isap[1], t.first_op, m.n_ops) : m.n_ops;
    m.atoms.push_back(t);
  }
  m.columns = std::move(columns);
  for (const column& c : m.columns) {
    auto& t = m.atoms[static_cast<std::size_t>(c.atom)];
    t.wants_position |= c.k <= aslot::z;
    t.wants_beta |= c.k >= aslot::b11 && c.k <= aslot::b23;
  }
  return m;
}

result stfac(const phase_model& m, const std::array<float, 3>& h, double s2, workspace& w, std::span<double> dfsq) {
  const std::size_t n = m.atoms.size();
  w.f.resize(m.entries.size());
  for (std::size_t e = 0; e < m.entries.size(); ++e) w.f[e] = scattering_at(m.entries[e], s2, m.electrons);
  w.f1.resize(n), w.f2.resize(n), w.d_cos.resize(n), w.d_sin.resize(n);
  rotate_indices(m, h, w);

  double s1 = 0, s2_sum = 0, s5 = 0, s6 = 0;  // sums of cos f1, cos f2, sin f1, sin f2 over the atoms
  for (std::size_t i = 0; i < n; ++i) {
    const auto& t = m.atoms[i];
    const double debye_waller = std::exp(-t.biso * s2);
    const scattering_value f = t.species >= 0 ? w.f[static_cast<std::size_t>(t.species)] : scattering_value{};
    w.f1[i] = f.re * debye_waller;  // without the occupancy, so that its derivative lives at 0 too
    w.f2[i] = f.im * debye_waller;
    atom_phases(t, w);
    operator_sums(t, w, w.d_cos[i], w.d_sin[i]);
    s1 += t.occ * w.d_cos[i][0] * w.f1[i];
    s2_sum += t.occ * w.d_cos[i][0] * w.f2[i];
    if (m.inversion_at_origin) continue;
    s5 += t.occ * w.d_sin[i][0] * w.f1[i];
    s6 += t.occ * w.d_sin[i][0] * w.f2[i];
  }
  const double nlatti = m.nlatti;
  const result r{nlatti * (s1 * s1 + s2_sum * s2_sum + s5 * s5 + s6 * s6), s1 - s6, s2_sum + s5};

  constexpr double two_pi = 6.283185307179586;
  for (std::size_t c = 0; c < dfsq.size(); ++c) {
    const auto i = static_cast<std::size_t>(m.columns[c].atom);
    const int k = m.columns[c].k;
    const auto& t = m.atoms[i];
    const double with_cos = s1 * w.f1[i] + s2_sum * w.f2[i], with_sin = s5 * w.f1[i] + s6 * w.f2[i];
    const auto combine = [&](double d_cos, double d_sin) { return 2 * nlatti * (with_cos * d_cos + with_sin * d_sin); };
    const auto& dc = w.d_cos[i];
    const auto& ds = w.d_sin[i];
    if (k <= aslot::z) {
      dfsq[c] = t.occ * two_pi * combine(-ds[static_cast<std::size_t>(k)], dc[static_cast<std::size_t>(k)]);
    } else if (k == aslot::biso) {
      dfsq[c] = -s2 * t.occ * combine(dc[0], ds[0]);
    } else if (k == aslot::occ) {
      dfsq[c] = combine(dc[0], ds[0]);
    } else if (k >= aslot::b11 && k <= aslot::b23 && t.anisotropic) {
      const auto j = static_cast<std::size_t>(4 + k - aslot::b11);
      dfsq[c] = -t.occ * combine(dc[j], ds[j]);
    } else {
      dfsq[c] = 0;
    }
  }
  return r;
}

}  // namespace kv_structure_factors

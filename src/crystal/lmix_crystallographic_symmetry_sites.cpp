#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "lmix_crystallographic_symmetry_parts.hpp"

namespace lmix_crystallographic_symmetry {
namespace {

template <std::size_t N>
using square = std::array<std::array<double, N>, N>;

// Components of a symmetric tensor in the order 11, 22, 33, 12, 13, 23.
constexpr std::array<std::array<std::size_t, 2>, 6> tensor_index{{{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}}};

square<6> tensor_action(const matrix3i& r) {
  square<6> m{};
  for (std::size_t p = 0; p < 6; ++p)
    for (std::size_t q = 0; q < 6; ++q) {
      const auto [i, j] = tensor_index[p];
      const auto [k, l] = tensor_index[q];
      m[p][q] = r[i][k] * r[j][l] + (k == l ? 0 : r[i][l] * r[j][k]);
    }
  return m;
}

square<3> vector_action(const matrix3i& r, int factor) {
  square<3> m{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) m[i][j] = factor * r[i][j];
  return m;
}

// The mean of a finite group of matrices projects on what all of them leave in place.
template <std::size_t N, class Action>
square<N> mean_action(std::span<const sym_oper_type> stabilizer, Action action) {
  square<N> mean{};
  if (stabilizer.empty()) {
    for (std::size_t i = 0; i < N; ++i) mean[i][i] = 1.0;
    return mean;
  }
  for (const sym_oper_type& op : stabilizer) {
    const square<N> m = action(op.rot);
    for (std::size_t i = 0; i < N; ++i)
      for (std::size_t j = 0; j < N; ++j) mean[i][j] += m[i][j] / static_cast<double>(stabilizer.size());
  }
  return mean;
}

// Coefficients that express all components by the chosen free ones, or nothing when these are not independent.
// The columns of the projector P span the allowed space; with the rows F of the free components, C = P (P_F)^-1 by
// elimination on columns.
template <std::size_t N>
bool express(const square<N>& projector, unsigned free_mask, square<N>& c) {
  c = projector;
  std::array<bool, N> used{};
  std::array<std::size_t, N> column_of{};
  for (std::size_t i = 0; i < N; ++i) {
    if (!(free_mask >> i & 1u)) continue;
    std::size_t best = N;
    for (std::size_t j = 0; j < N; ++j)
      if (!used[j] && (best == N || std::abs(c[i][j]) > std::abs(c[i][best]))) best = j;
    if (std::abs(c[i][best]) < 1e-6) return false;
    used[best] = true;
    column_of[i] = best;
    const double pivot = c[i][best];
    for (std::size_t r = 0; r < N; ++r) c[r][best] /= pivot;
    for (std::size_t j = 0; j < N; ++j) {
      if (j == best) continue;
      const double f = c[i][j];
      for (std::size_t r = 0; r < N; ++r) c[r][j] -= f * c[r][best];
    }
  }
  const square<N> reduced = c;
  c = {};
  for (std::size_t i = 0; i < N; ++i)
    if (free_mask >> i & 1u)
      for (std::size_t r = 0; r < N; ++r) c[r][i] = reduced[r][column_of[i]];
  return true;
}

// Every row has one term at most.
template <std::size_t N>
bool single_terms(const square<N>& c) {
  return std::ranges::all_of(
      c, [](const auto& row) { return std::ranges::count_if(row, [](double e) { return std::abs(e) > 1e-4; }) <= 1; });
}

template <std::size_t N>
square<N> choose_free(const square<N>& projector, int n_free, bool& single) {
  square<N> first{}, c{};
  bool any = false;
  // Early components are taken as free ones: masks are walked so that low components come first.
  std::vector<unsigned> masks;
  for (unsigned mask = 0; mask < (1u << N); ++mask)
    if (std::popcount(mask) == n_free) masks.push_back(mask);
  const auto reversed = [](unsigned mask) {
    unsigned out = 0;
    for (std::size_t i = 0; i < N; ++i) out |= (mask >> i & 1u) << (N - 1 - i);
    return out;
  };
  std::ranges::sort(masks, std::greater<>{}, reversed);
  for (const unsigned mask : masks) {
    if (!express(projector, mask, c)) continue;
    if (single_terms(c)) {
      single = true;
      return c;
    }
    if (!any) first = c;
    any = true;
  }
  single = false;
  return first;
}

template <std::size_t N>
site_relations relations_of(const square<N>& projector) {
  site_relations out;
  out.n = static_cast<int>(N);
  double trace = 0.0;  // of a projector: the dimension
  for (std::size_t i = 0; i < N; ++i) trace += projector[i][i];
  out.n_free = static_cast<int>(std::lround(trace));
  const square<N> c = choose_free(projector, out.n_free, out.single);
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j < N; ++j) {
      out.projector[i][j] = static_cast<float>(projector[i][j]);
      out.coefficient[i][j] = std::abs(c[i][j]) < 1e-6 ? 0.f : static_cast<float>(c[i][j]);
      component_relation& rel = out.component[i];
      if (std::abs(out.coefficient[i][j]) > std::abs(rel.multiplier) + 1e-5f)
        rel = {static_cast<int>(j), out.coefficient[i][j]};
    }
  return out;
}

bool same_position(const vector3& a, const vector3& b) {
  return lattice_trans({a[0] - b[0], a[1] - b[1], a[2] - b[2]}, 'P');
}

}  // namespace

orbit_type get_orbit(const vector3& x, const space_group_type& spg) {
  orbit_type out;
  for (std::size_t m = 0; m < spg.symop.size(); ++m) {
    const vector3 image = modulo_lat(applyso(spg.symop[m], x));
    if (same_position(image, x)) out.stabilizer.push_back(static_cast<int>(m));
    const auto known = std::ranges::find_if(out.orb, [&](const vector3& p) { return same_position(p, image); });
    out.image.push_back(static_cast<int>(known - out.orb.begin()));
    if (known != out.orb.end()) continue;
    out.orb.push_back(image);
    out.ptr.push_back(static_cast<int>(m));
  }
  out.mult = static_cast<int>(out.orb.size());
  return out;
}

int get_multip_pos_crys(const vector3& x, const space_group_type& spg) {
  if (spg.multip < 2) return spg.numlat;
  std::vector<vector3> distinct;
  // The operators of one lattice point: the others only add centring vectors.
  const std::size_t per_lattice_point = spg.symop.size() / static_cast<std::size_t>(std::max(spg.numlat, 1));
  for (std::size_t m = 0; m < per_lattice_point; ++m) {
    const vector3 image = applyso(spg.symop[m], x);
    const bool seen = std::ranges::any_of(distinct, [&](const vector3& p) {
      return lattice_trans({p[0] - image[0], p[1] - image[1], p[2] - image[2]}, spg.latt_trans);
    });
    if (!seen) distinct.push_back(image);
  }
  return static_cast<int>(distinct.size()) * spg.numlat;
}

float get_occ_site(const vector3& x, const space_group_type& spg) {
  return spg.multip > 0 ? static_cast<float>(get_multip_pos_crys(x, spg)) / static_cast<float>(spg.multip) : 1.f;
}

std::vector<sym_oper_type> get_stabilizerc(const vector3& x, const space_group_type& spg) {
  std::vector<sym_oper_type> out;
  for (sym_oper_type op : spg.symop) {
    const vector3 image = applyso(op, x);
    if (!same_position(image, x)) continue;
    for (std::size_t i = 0; i < 3; ++i) op.tr[i] -= std::round(image[i] - x[i]);
    out.push_back(op);
  }
  parts::close_site(out, product_symop, [](const auto& a, const auto& b) { return a.rot == b.rot; });
  return out;
}

site_relations position_relations(std::span<const sym_oper_type> stabilizer) {
  return relations_of(mean_action<3>(stabilizer, [](const matrix3i& r) { return vector_action(r, 1); }));
}

site_relations beta_relations(std::span<const sym_oper_type> stabilizer) {
  return relations_of(mean_action<6>(stabilizer, tensor_action));
}

site_relations moment_relations(std::span<const sym_oper_type> stabilizer) {
  return relations_of(mean_action<3>(stabilizer, [](const matrix3i& r) { return vector_action(r, determinant(r)); }));
}

site_relations moment_relations(std::span<const shubnikov_oper_type> stabilizer) {
  std::vector<sym_oper_type> turns;  // the action of an axial vector is that of these matrices on a polar one
  for (const shubnikov_oper_type& g : stabilizer) {
    const bool turn_over = determinant(g.op.rot) * g.time_inv < 0;
    turns.push_back({turn_over ? parts::negated(g.op.rot) : g.op.rot, {}});
  }
  return position_relations(turns);
}

site_relations fourier_relations(std::span<const fourier_oper_type> stabilizer) {
  square<6> mean{};
  for (std::size_t i = 0; i < 6; ++i) mean[i][i] = stabilizer.empty() ? 1.0 : 0.0;
  for (const fourier_oper_type& g : stabilizer) {
    const double turn = 2.0 * std::numbers::pi * static_cast<double>(g.phase), n = static_cast<double>(stabilizer.size());
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) {
        const double m = g.rot[i][j] / n;
        mean[i][j] += m * std::cos(turn);
        mean[i][j + 3] -= m * std::sin(turn);
        mean[i + 3][j] += m * std::sin(turn);
        mean[i + 3][j + 3] += m * std::cos(turn);
      }
  }
  // Powers of the mean tend to the projector also for a set that is no group: what is not left in place shrinks.
  constexpr int doublings = 12;
  for (int k = 0; k < doublings; ++k) {
    square<6> next{};
    for (std::size_t i = 0; i < 6; ++i)
      for (std::size_t j = 0; j < 6; ++j)
        for (std::size_t l = 0; l < 6; ++l) next[i][j] += mean[i][l] * mean[l][j];
    mean = next;
  }
  return relations_of(mean);
}

vector3 nearest_special_position(const vector3& x, std::span<const sym_oper_type> stabilizer) {
  if (stabilizer.empty()) return x;
  std::array<double, 3> sum{};
  for (const sym_oper_type& op : stabilizer) {
    for (std::size_t i = 0; i < 3; ++i) {
      sum[i] += static_cast<double>(op.tr[i]);
      for (std::size_t j = 0; j < 3; ++j) sum[i] += op.rot[i][j] * static_cast<double>(x[j]);
    }
  }
  vector3 out;
  for (std::size_t i = 0; i < 3; ++i) out[i] = static_cast<float>(sum[i] / static_cast<double>(stabilizer.size()));
  return out;
}

b_relations sym_b_relations(std::span<const sym_oper_type> stabilizer) {
  constexpr std::array<std::string_view, 6> name{"b11", "b22", "b33", "b12", "b13", "b23"};
  const site_relations rel = beta_relations(stabilizer);
  b_relations out;
  for (std::size_t i = 0; i < 6; ++i) {
    std::string term;
    for (std::size_t j = 0; j < 6; ++j) {
      const double c = static_cast<double>(rel.coefficient[i][j]);
      if (std::abs(c) < 1e-4) continue;
      term += c < 0 ? "-" : term.empty() ? "" : "+";
      const bool fraction = std::abs(c) < 1.0;
      const double size = fraction ? 1.0 / std::abs(c) : std::abs(c);
      if (!fraction && size > 1.0001) term += parts::fraction_text(size);
      term += name[j];
      if (fraction && size > 1.0001) term += "/" + parts::fraction_text(size);
    }
    out.text += (i ? ", " : "") + (term.empty() ? std::string("0") : term);
    out.codes[i] = rel.component[i].free + 1;
    out.multip[i] = rel.component[i].multiplier;
  }
  return out;
}

}  // namespace lmix_crystallographic_symmetry

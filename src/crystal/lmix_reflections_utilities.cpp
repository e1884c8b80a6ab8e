#include "lmix_reflections_utilities.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <numbers>

namespace lmix_reflections_utilities {
namespace {

/// Phases h t are multiples of 1/12 in every tabulated group; user translations may be rounded to three decimals.
constexpr double phase_tolerance = 0.05;
constexpr matrix3i identity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
/// Indices fit the key of the canonical order.
constexpr int max_index = 16383;

hkl_type turned(const hkl_type& h, const matrix3i& r) {
  return {h[0] * r[0][0] + h[1] * r[1][0] + h[2] * r[2][0], h[0] * r[0][1] + h[1] * r[1][1] + h[2] * r[2][1],
          h[0] * r[0][2] + h[1] * r[1][2] + h[2] * r[2][2]};
}

hkl_type mate(const hkl_type& h) { return {-h[0], -h[1], -h[2]}; }

bool whole_phase(const hkl_type& h, const std::array<double, 3>& t) {
  const double p = h[0] * t[0] + h[1] * t[1] + h[2] * t[2];
  return std::abs(p - static_cast<double>(std::lrint(p))) < phase_tolerance;
}

/// Rank in the canonical order, larger is better. One whole number, so that images are compared at once.
std::int64_t rank(const hkl_type& h) {
  const int negative = (h[0] < 0) + (h[1] < 0) + (h[2] < 0);
  std::int64_t key = h[2] >= 0;
  key = key * 4 + (3 - negative);
  key = key * 2 + (h[1] >= 0);
  for (const int index : h) key = key * 65536 + (index + 32768);
  return key;
}

int order_of(const reflection_rules& rules) {
  return static_cast<int>(rules.rotation.size()) * (rules.friedel ? 2 : 1);
}

bool no_negative(const hkl_type& h) { return (h[0] | h[1] | h[2]) >= 0; }
bool all_positive(const hkl_type& h) { return h[0] > 0 && h[1] > 0 && h[2] > 0; }

/// False when every index that is positive in h comes out negative somewhere in h R.
bool reaches_octant(const matrix3i& r) {
  for (std::size_t j = 0; j < 3; ++j)
    if (r[0][j] <= 0 && r[1][j] <= 0 && r[2][j] <= 0) return false;
  return true;
}

matrix3i opposite(matrix3i m) {
  for (auto& row : m)
    for (auto& e : row) e = -e;
  return m;
}

/// Whether the rotations, with Friedel mates, hold m.
bool holds(const reflection_rules& rules, const matrix3i& m) {
  return std::ranges::any_of(rules.rotation,
                             [&](const matrix3i& r) { return r == m || (rules.friedel && r == opposite(m)); });
}

/// Tells unique reflections. A rotation that turned a reflection away moves forward in its own list, so that most
/// others are turned away by the first few rotations.
class unique_test {
 public:
  explicit unique_test(const reflection_rules& rules)
      : rotation_(rules.rotation), friedel_(rules.friedel), order_(order_of(rules)) {
    if (!friedel_) return;
    for (const matrix3i& r : rotation_)
      for (const matrix3i& turn : {r, opposite(r)})
        if (turn != identity && reaches_octant(turn)) within_octant_.push_back(turn);
  }

  /// Multiplicity of h when it is canonical, 0 when an equivalent ranks higher.
  int mult_if_canonical(const hkl_type& h) {
    if (friedel_ && all_positive(h)) return mult_in_octant(h);
    int fixing = 0;
    // Only images without negative indices rank as high as such an h, and they rank by h, k, l.
    const bool octant = friedel_ && no_negative(h);
    for (std::size_t i = 0; i < rotation_.size(); ++i) {
      const hkl_type image = turned(h, rotation_[i]);
      const int fixed = octant ? compare_in_octant(h, image) : compare(h, image);
      if (fixed < 0) {
        std::swap(rotation_[i], rotation_[i / 2]);
        return 0;
      }
      fixing += fixed;
    }
    return order_ / fixing;
  }

 private:
  /// The same where no index is 0: few rotations have an image without negative indices, in mmm only the identity.
  int mult_in_octant(const hkl_type& h) const {
    int fixing = 1;  // the identity
    for (const matrix3i& r : within_octant_) {
      const hkl_type image = turned(h, r);
      if (image > h && no_negative(image)) return 0;
      fixing += image == h;
    }
    return order_ / fixing;
  }
  /// Images (the Friedel mate is one more) that equal h; -1 when one ranks higher.
  int compare(const hkl_type& h, const hkl_type& image) const {
    const std::int64_t own = rank(h);
    if (rank(image) > own || (friedel_ && rank(mate(image)) > own)) return -1;
    return (image == h) + (friedel_ && mate(image) == h);
  }
  static int compare_in_octant(const hkl_type& h, hkl_type image) {
    if (!no_negative(image)) {
      image = mate(image);
      if (!no_negative(image)) return 0;
    }
    return image > h ? -1 : image == h;
  }

  std::vector<matrix3i> rotation_, within_octant_;
  bool friedel_;
  int order_;
};

/// The lattice condition of the scan. Where all centring vectors are multiples of 1/period it repeats with that period
/// in h, k, l and is told by a table; period 0 stands for centring vectors off every customary grid.
class lattice_test {
 public:
  explicit lattice_test(const reflection_rules& rules) : rules_(rules), period_(period_of(rules)) {
    for (int l = 0; l < period_; ++l)
      for (int k = 0; k < period_; ++k)
        for (int h = 0; h < period_; ++h) absent_.push_back(hkl_lat_absent({h, k, l}, rules));
  }
  bool absent(const hkl_type& h) const {
    if (period_ == 0) return hkl_lat_absent(h, rules_);
    return absent_[static_cast<std::size_t>((residue(h[2]) * period_ + residue(h[1])) * period_ + residue(h[0]))] != 0;
  }

 private:
  static int period_of(const reflection_rules& rules) {
    for (const int period : {1, 2, 3, 4, 6, 8, 12}) {
      const auto on_grid = [period](double e) { return std::abs(e * period - std::round(e * period)) < 1e-3; };
      if (std::ranges::all_of(rules.centring, [&](const auto& c) { return std::ranges::all_of(c, on_grid); }))
        return period;
    }
    return 0;
  }
  int residue(int index) const {
    const int r = index % period_;
    return r < 0 ? r + period_ : r;
  }
  const reflection_rules& rules_;
  int period_;
  std::vector<char> absent_;
};

struct index_range {
  int first = 0, last = -1;
};

/// Whole x with a x^2 + b x + c <= 0, a > 0.
index_range inside(double a, double b, double c) {
  const double root = b * b - 4 * a * c;
  if (!(root >= 0)) return {};
  const double half = std::sqrt(root) / (2 * a), middle = -b / (2 * a);
  return {static_cast<int>(std::ceil(middle - half)), static_cast<int>(std::floor(middle + half))};
}

/// Half axes of the box around the sphere 1/d <= r in units of the reciprocal axes: r a, r b, r c; zeros for no cell.
hkl_type box(const metric_tensor& gr, double radius) {
  std::array<std::array<double, 3>, 3> g{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) g[i][j] = static_cast<double>(gr[i][j]);
  std::array<double, 3> minor{};
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
    minor[i] = g[j][j] * g[k][k] - g[j][k] * g[k][j];
  }
  const double det = g[0][0] * minor[0] - g[0][1] * (g[1][0] * g[2][2] - g[1][2] * g[2][0]) +
                     g[0][2] * (g[1][0] * g[2][1] - g[1][1] * g[2][0]);
  if (!(g[0][0] > 0 && minor[2] > 0 && det > 0)) return {};
  hkl_type half{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double top = radius * std::sqrt(minor[i] / det);
    if (!std::isfinite(top)) return {};
    half[i] = static_cast<int>(std::min(std::floor(top + 1e-4), double{max_index}));
  }
  return half;
}

/// Where canonical reflections lie, so that the scan leaves out what cannot be one: lowest indices, and orders of
/// indices that an exchange of axes brings (the canonical index is the one with the largest h, k, l).
struct canonical_region {
  hkl_type low{};
  bool k_not_below_l = false, h_not_below_k = false, h_not_below_l = false;

  int first_k(int l) const { return k_not_below_l ? std::max(low[1], l) : low[1]; }
  int first_h(int k, int l) const { return std::max({low[0], h_not_below_k ? k : low[0], h_not_below_l ? l : low[0]}); }
};

canonical_region region_of(const reflection_rules& rules, const hkl_type& half) {
  canonical_region region;
  region.low = {-half[0], -half[1], -half[2]};
  if (!rules.friedel) return region;
  const auto has = [&](const matrix3i& m) { return holds(rules, m); };
  const bool two_x = has({{{1, 0, 0}, {0, -1, 0}, {0, 0, -1}}}), two_y = has({{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}});
  const bool four_z = has({{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}}), six_z = has({{{1, -1, 0}, {1, 0, 0}, {0, 0, 1}}});
  if (!((two_x && two_y) || four_z || six_z)) {
    // On a threefold axis h, k, -h-k turn in a ring: one of the three pairs has k >= 0 and at most one negative index.
    const bool three_z = has({{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}});
    region.low = {-half[0], two_y || three_z ? 0 : -half[1], 0};
    return region;
  }
  region.low = {0, 0, 0};
  const bool ring = has({{{0, 1, 0}, {0, 0, 1}, {1, 0, 0}}});
  region.h_not_below_k = ring || has({{{0, 1, 0}, {1, 0, 0}, {0, 0, 1}}});
  region.h_not_below_l = ring || has({{{0, 0, 1}, {0, 1, 0}, {1, 0, 0}}});
  region.k_not_below_l = has({{{1, 0, 0}, {0, 0, 1}, {0, 1, 0}}});
  return region;
}

bool before(const reflection_type& a, const reflection_type& b) { return a.s != b.s ? a.s < b.s : a.h < b.h; }

/// Lattice points are spread evenly over the volume, so that shells of equal volume hold about one reflection each:
/// they are counted into their shells and only put in order inside of them.
void sort_by_s(std::vector<reflection_type>& list) {
  if (list.size() < 2) return;
  const auto [first, last] = std::ranges::minmax(list, {}, &reflection_type::s);
  const auto cube = [](float s) { return static_cast<double>(s) * static_cast<double>(s) * static_cast<double>(s); };
  const double origin = cube(first.s), width = cube(last.s) - origin;
  if (!(width > 0)) {
    std::ranges::sort(list, before);
    return;
  }
  const double scale = static_cast<double>(list.size() - 1) / width;
  const auto shell = [&](const reflection_type& r) { return static_cast<std::size_t>((cube(r.s) - origin) * scale); };
  std::vector<std::size_t> end(list.size() + 1);
  for (const reflection_type& r : list) ++end[shell(r) + 1];
  for (std::size_t i = 1; i < end.size(); ++i) end[i] += end[i - 1];
  std::vector<reflection_type> sorted(list.size());
  std::vector<std::size_t> place(end.begin(), end.end() - 1);
  for (const reflection_type& r : list) sorted[place[shell(r)]++] = r;
  for (std::size_t i = 0; i + 1 < end.size(); ++i)
    std::sort(sorted.begin() + static_cast<std::ptrdiff_t>(end[i]),
              sorted.begin() + static_cast<std::ptrdiff_t>(end[i + 1]), before);
  list = std::move(sorted);
}

}  // namespace

reflection_rules make_rules(const space_group_type& group, bool friedel) {
  reflection_rules rules;
  rules.friedel = friedel;
  for (std::size_t i = 1; i < group.latt_trans.size(); ++i) {
    const auto& v = group.latt_trans[i];
    rules.centring.push_back({static_cast<double>(v[0]), static_cast<double>(v[1]), static_cast<double>(v[2])});
  }
  const std::size_t per_lattice_point = group.symop.size() / std::max<std::size_t>(group.latt_trans.size(), 1);
  for (std::size_t m = 0; m < per_lattice_point; ++m) {
    const auto& op = group.symop[m];
    if (!holds(rules, op.rot)) rules.rotation.push_back(op.rot);
    const auto screw = lmix_crystallographic_symmetry::intrinsic_translation(op);
    if (std::ranges::all_of(screw, [](double e) { return std::abs(e - std::floor(e + 0.5)) <= 1e-4; })) continue;
    // A fixed list of operators may hold its centring vectors among the others.
    if (op.rot == identity)
      rules.centring.push_back(screw);
    else
      rules.translation.push_back({op.rot, screw});
  }
  if (rules.rotation.empty()) rules.rotation.push_back(identity);
  return rules;
}

bool hkl_lat_absent(const hkl_type& h, const reflection_rules& rules) {
  return std::ranges::any_of(rules.centring, [&](const auto& c) { return !whole_phase(h, c); });
}

bool hkl_absent(const hkl_type& h, const reflection_rules& rules) {
  return hkl_lat_absent(h, rules) || std::ranges::any_of(rules.translation, [&](const auto& rule) {
           return turned(h, rule.rot) == h && !whole_phase(h, rule.tr);
         });
}

bool hkl_absent(const hkl_type& h, const space_group_type& group) { return hkl_absent(h, make_rules(group)); }

int hkl_mult(const hkl_type& h, const reflection_rules& rules) {
  int fixing = 0;
  const hkl_type minus = mate(h);
  for (const matrix3i& r : rules.rotation) {
    const hkl_type image = turned(h, r);
    fixing += image == h;
    fixing += rules.friedel && image == minus;
  }
  return order_of(rules) / fixing;
}

int hkl_mult(const hkl_type& h, const space_group_type& group, bool friedel) {
  return hkl_mult(h, make_rules(group, friedel));
}

std::vector<hkl_type> hkl_equiv_list(const hkl_type& h, const space_group_type& group, bool friedel) {
  std::vector<hkl_type> list{h};
  const auto add = [&](const hkl_type& k) {
    if (std::ranges::find(list, k) == list.end()) list.push_back(k);
  };
  for (const matrix3i& r : make_rules(group, friedel).rotation) {
    const hkl_type image = turned(h, r);
    add(image);
    if (friedel) add(mate(image));
  }
  return list;
}

bool hkl_equiv(const hkl_type& h, const hkl_type& k, const space_group_type& group, bool friedel) {
  const std::vector<hkl_type> list = hkl_equiv_list(h, group, friedel);
  return std::ranges::find(list, k) != list.end();
}

hkl_type hkl_canonical(const hkl_type& h, const space_group_type& group, bool friedel) {
  const std::vector<hkl_type> list = hkl_equiv_list(h, group, friedel);
  return *std::ranges::max_element(list, {}, rank);
}

float hs_r(const std::array<float, 3>& h, const metric_tensor& gr) {
  double q = 0.0;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      q += static_cast<double>(h[i]) * static_cast<double>(gr[i][j]) * static_cast<double>(h[j]);
  return static_cast<float>(0.5 * std::sqrt(std::max(q, 0.0)));
}

float hkl_s(const hkl_type& h, const metric_tensor& gr) {
  return hs_r({static_cast<float>(h[0]), static_cast<float>(h[1]), static_cast<float>(h[2])}, gr);
}

namespace {

/// All canonical reflections with smin <= s <= smax that the lattice allows, sorted by s. `accept(h, mult)` gives the
/// flag of the entry, or a negative number for no entry.
template <class Accept>
std::vector<reflection_type> walk(const metric_tensor& gr, const reflection_rules& rules, float smin, float smax,
                                  Accept accept) {
  std::vector<reflection_type> list;
  if (!std::isfinite(smin) || !std::isfinite(smax) || !(smax > 0.f)) return list;
  const double q_max = 4.0 * static_cast<double>(smax) * static_cast<double>(smax) * (1.0 + 1e-6);
  const hkl_type half = box(gr, 2.0 * static_cast<double>(smax));
  const canonical_region region = region_of(rules, half);
  unique_test unique(rules);
  const lattice_test lattice(rules);
  const auto g = [&](std::size_t i, std::size_t j) { return static_cast<double>(gr[i][j]); };
  for (int l = region.low[2]; l <= half[2]; ++l)
    for (int k = region.first_k(l); k <= half[1]; ++k) {
      const double rest = g(1, 1) * k * k + 2.0 * g(1, 2) * k * l + g(2, 2) * l * l;
      const index_range row = inside(g(0, 0), 2.0 * (g(0, 1) * k + g(0, 2) * l), rest - q_max);
      for (int h = std::max(row.first, region.first_h(k, l)); h <= std::min(row.last, half[0]); ++h) {
        const hkl_type index{h, k, l};
        if (index == hkl_type{} || lattice.absent(index)) continue;
        const int mult = unique.mult_if_canonical(index);
        if (mult == 0) continue;
        const int flag = accept(index, mult);
        if (flag < 0) continue;
        const float s = hkl_s(index, gr);
        if (s >= smin && s <= smax) list.push_back({index, mult, s, flag});
      }
    }
  sort_by_s(list);
  return list;
}

}  // namespace

std::vector<reflection_type> hkl_gen(const metric_tensor& gr, const space_group_type& group, bool friedel, float smin,
                                     float smax) {
  const reflection_rules rules = make_rules(group, friedel);
  const int general_mult = order_of(rules);
  return walk(gr, rules, smin, smax, [&](const hkl_type& h, int mult) {
    // A general reflection is left in place by no operator that could forbid it.
    return mult < general_mult && hkl_absent(h, rules) ? -1 : 1;
  });
}

std::vector<reflection_type> hkl_gen_general(const metric_tensor& gr, const space_group_type& group, float smax) {
  return hkl_gen(gr, group, true, 0.f, smax);
}

std::vector<real_hkl> hkl_equivr(const real_hkl& h, const space_group_type& group, bool friedel) {
  constexpr float tolerance = 1e-4f;
  std::vector<real_hkl> list{h};
  const auto add = [&](const real_hkl& k) {
    const auto same = [&](const real_hkl& other) {
      return std::abs(k[0] - other[0]) + std::abs(k[1] - other[1]) + std::abs(k[2] - other[2]) < tolerance;
    };
    if (std::ranges::none_of(list, same)) list.push_back(k);
  };
  for (const matrix3i& r : make_rules(group, friedel).rotation) {
    real_hkl image{};
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t i = 0; i < 3; ++i) image[j] += h[i] * static_cast<float>(r[i][j]);
    add(image);
    if (friedel) add({-image[0], -image[1], -image[2]});
  }
  return list;
}

namespace {

using lmix_crystallographic_symmetry::shubnikov_oper_type;

/// What reflections feel of a magnetic group.
class magnetic_rules {
 public:
  magnetic_rules(std::span<const shubnikov_oper_type> operators, const metric_tensor& gr) : gr_(gr) {
    space_group_type nuclear, lattice;
    for (const auto& g : operators) {
      nuclear.symop.push_back(g.op);
      const bool translation = g.op.rot == identity && g.time_inv > 0;
      lattice.symop.push_back(translation ? g.op : lmix_crystallographic_symmetry::sym_oper_type{g.op.rot, {}});
    }
    nuclear_ = make_rules(nuclear, true);
    lattice_ = make_rules(lattice, true);
    for (const auto& g : operators) {
      auto group = std::ranges::find(by_rotation_, g.op.rot, &same_rotation::rot);
      if (group == by_rotation_.end()) group = by_rotation_.insert(group, {g.op.rot, {}});
      group->member.push_back(
          {{static_cast<double>(g.op.tr[0]), static_cast<double>(g.op.tr[1]), static_cast<double>(g.op.tr[2])},
           static_cast<double>(g.time_inv * lmix_crystallographic_symmetry::determinant(g.op.rot))});
    }
  }
  const reflection_rules& lattice() const { return lattice_; }
  bool nuclear(const hkl_type& h) const { return !hkl_absent(h, nuclear_); }

  /// The structure factor F(h) = sum of M exp(2 pi i h x) obeys F = (time reversal) det(R) exp(2 pi i h t) R F for all
  /// operators with h R = h. The mean of these matrices projects on what is left of F; the reflection is seen when that
  /// is more than the component along h.
  bool magnetic(const hkl_type& h) const {
    std::array<std::array<std::complex<double>, 3>, 3> mean{};
    for (const same_rotation& group : by_rotation_) {
      if (turned(h, group.rot) != h) continue;
      std::complex<double> weight = 0.0;
      for (const auto& m : group.member)
        weight += m.sign * std::polar(1.0, 2.0 * std::numbers::pi * (h[0] * m.tr[0] + h[1] * m.tr[1] + h[2] * m.tr[2]));
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) mean[i][j] += weight * static_cast<double>(group.rot[i][j]);
    }
    // h as a vector in direct axes, of which a column must not be a multiple.
    std::array<double, 3> along{};
    double size = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = 0; j < 3; ++j) along[i] += static_cast<double>(gr_[i][j]) * h[j];
      size = std::max(size, std::abs(along[i]));
    }
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t k = (i + 1) % 3;
        if (std::abs(mean[i][j] * along[k] - mean[k][j] * along[i]) > 1e-2 * size) return true;
      }
    return false;
  }

 private:
  struct member_type {
    std::array<double, 3> tr;
    double sign;
  };
  struct same_rotation {
    matrix3i rot;
    std::vector<member_type> member;
  };
  const metric_tensor& gr_;
  reflection_rules nuclear_, lattice_;
  std::vector<same_rotation> by_rotation_;
};

}  // namespace

std::vector<reflection_type> hkl_gen_shub(const metric_tensor& gr, std::span<const shubnikov_oper_type> operators,
                                          float smax) {
  const magnetic_rules rules(operators, gr);
  return walk(gr, rules.lattice(), 0.f, smax, [&](const hkl_type& h, int) {
    const bool nuclear = rules.nuclear(h), magnetic = rules.magnetic(h);
    return magnetic ? (nuclear ? shub_flag::nuclear_and_magnetic : shub_flag::magnetic_only)
                    : (nuclear ? shub_flag::nuclear_only : -1);
  });
}

}  // namespace lmix_reflections_utilities

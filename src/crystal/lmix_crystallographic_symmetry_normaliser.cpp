#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_symmetry_tables.hpp"

// What the choice of axes and origin of a setting leaves open: the way to the reference setting of its group, and the
// translations and the added inversion of the Euclidean normaliser (International Tables for Crystallography Vol. A,
// part 15).
namespace lmix_crystallographic_symmetry {
namespace {

using parts::affine;

// ---- shifts on the grid --------------------------------------------------------------------------------------------

constexpr int grid = 24;
using node = std::array<int, 3>;  ///< of the grid, 0 .. grid - 1

int wrapped(long v) { return static_cast<int>((v % grid + grid) % grid); }
std::size_t place(const node& n) { return static_cast<std::size_t>((n[0] * grid + n[1]) * grid + n[2]); }
node sum(const node& a, const node& b) { return {wrapped(a[0] + b[0]), wrapped(a[1] + b[1]), wrapped(a[2] + b[2])}; }

node on_grid(const vector3& t) {
  node n{};
  for (std::size_t i = 0; i < 3; ++i) n[i] = wrapped(std::lround(static_cast<double>(t[i]) * grid));
  return n;
}
vector3 fraction(const node& n, float part = 1.f) {
  return {part * static_cast<float>(n[0]) / grid, part * static_cast<float>(n[1]) / grid,
          part * static_cast<float>(n[2]) / grid};
}

/// A set of nodes that is closed under addition.
class node_group {
 public:
  node_group() : holds_(static_cast<std::size_t>(grid * grid * grid)) { insert({}); }
  bool holds(const node& n) const { return holds_[place(n)]; }
  void add_generator(const node& g) {
    const std::vector<node> old = member_;
    for (node step = g; !holds(step); step = sum(step, g))
      for (const node& m : old) insert(sum(m, step));
  }

 private:
  void insert(const node& n) {
    if (holds(n)) return;
    holds_[place(n)] = true;
    member_.push_back(n);
  }
  std::vector<bool> holds_;
  std::vector<node> member_;
};

/// One operator of each rotation on the grid, and the lattice.
struct group_on_grid {
  std::vector<std::pair<matrix3i, node>> op;
  node_group lattice;
  std::vector<std::array<int, 3>> polar;  ///< directions that every rotation leaves alone
  std::array<bool, 3> settled{};          ///< components that a shift along the polar directions makes 0
  bool whole = true;                      ///< all translations stand on the grid

  explicit group_on_grid(const space_group_type& spg) {
    matrix3i total{};
    for (const sym_oper_type& e : spg.symop) {
      for (const float t : e.tr) whole = whole && std::abs(t * grid - std::round(t * grid)) < 1e-3f;
      if (e.rot == parts::identity) lattice.add_generator(on_grid(e.tr));
      if (std::ranges::any_of(op, [&](const auto& o) { return o.first == e.rot; })) continue;
      op.emplace_back(e.rot, on_grid(e.tr));
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) total[i][j] += e.rot[i][j];
    }
    find_polar(total);
  }

  /// x -> n + sign x takes (R, t) to (R, sign t + n - R n): the group stays when that differs from t by the lattice.
  bool kept_by(const node& n, int sign) const {
    return std::ranges::all_of(op, [&](const auto& o) {
      const auto& [r, t] = o;
      node d{};
      for (std::size_t i = 0; i < 3; ++i)
        d[i] = wrapped(n[i] - r[i][0] * n[0] - r[i][1] * n[1] - r[i][2] * n[2] + (sign - 1) * t[i]);
      return lattice.holds(d);
    });
  }
  /// All nodes that do so, those with few and small components first.
  std::vector<node> keeping(int sign) const {
    std::vector<node> out;
    const auto last = [&](std::size_t i) { return settled[i] ? 1 : grid; };
    for (int x = 0; x < last(0); ++x)
      for (int y = 0; y < last(1); ++y)
        for (int z = 0; z < last(2); ++z)
          if (kept_by({x, y, z}, sign)) out.push_back({x, y, z});
    std::ranges::stable_sort(out, {}, [](const node& n) {
      return std::pair{(n[0] != 0) + (n[1] != 0) + (n[2] != 0), n[0] + n[1] + n[2]};
    });
    return out;
  }

 private:
  /// The sum of a finite group of rotations projects on what all of them leave alone: its columns, reduced.
  void find_polar(const matrix3i& total) {
    std::vector<std::array<int, 3>> column;
    for (std::size_t j = 0; j < 3; ++j) column.push_back({total[0][j], total[1][j], total[2][j]});
    for (std::size_t c = 0; c < 3; ++c) {
      const auto found = std::ranges::find_if(column, [&](const auto& u) { return u[c] != 0; });
      if (found == column.end()) continue;
      std::array<int, 3> pivot = *found;
      const int common = std::gcd(std::gcd(pivot[0], pivot[1]), pivot[2]) * (pivot[c] < 0 ? -1 : 1);
      for (int& e : pivot) e /= common;
      for (auto& u : column) {
        const int f = u[c];
        for (std::size_t i = 0; i < 3; ++i) u[i] = u[i] * pivot[c] - pivot[i] * f;
      }
      polar.push_back(pivot);
      settled[c] = true;
    }
  }
};

/// A small set of nodes that makes all of `allowed` from the lattice: those of the highest order first.
std::vector<vector3> generating(std::vector<node> allowed, node_group reached) {
  const auto order = [lattice = reached](const node& n) {
    int k = 1;
    for (node m = n; !lattice.holds(m); m = sum(m, n)) ++k;
    return k;
  };
  std::ranges::stable_sort(allowed, std::greater<>{}, order);
  std::vector<vector3> out;
  for (const node& n : allowed) {
    if (reached.holds(n)) continue;
    reached.add_generator(n);
    out.push_back(fraction(n));
  }
  return out;
}

// ---- the way to the table ------------------------------------------------------------------------------------------

/// Shift p of the origin, x' = x + p, that makes the operators of a those of b.
std::optional<node> shift_onto(const group_on_grid& a, const group_on_grid& b) {
  std::vector<std::array<node, 2>> pair;  // translations of one rotation in both
  std::vector<matrix3i> rotation;
  for (const auto& [r, t] : a.op) {
    const auto same = std::ranges::find_if(b.op, [&wanted = r](const auto& o) { return o.first == wanted; });
    if (same == b.op.end()) return {};
    rotation.push_back(r);
    pair.push_back({t, same->second});
  }
  const auto shifts = [&](const node& p) {
    for (std::size_t k = 0; k < pair.size(); ++k) {
      const matrix3i& r = rotation[k];
      node d{};
      for (std::size_t i = 0; i < 3; ++i)
        d[i] = wrapped(pair[k][0][i] - pair[k][1][i] + p[i] - r[i][0] * p[0] - r[i][1] * p[1] - r[i][2] * p[2]);
      if (!b.lattice.holds(d)) return false;
    }
    return true;
  };
  for (int n = 0; n < grid * grid * grid; ++n)
    if (const node p{n / grid / grid, n / grid % grid, n % grid}; shifts(p)) return p;
  return {};
}

/// A tabulated setting, and the given coordinates from those of the setting.
struct road {
  int row = 0;  ///< from 1; 0: none found
  affine change;
};

/// The setting that differs from a group by its origin only.
road by_shift(const parts::closed_group& group) {
  space_group_type spg;
  if (group.element.empty() || !parts::fill_record(spg, group)) return {};
  parts::add_tabulated_setting(spg);
  if (spg.numspg > 0) return {lmix_symmetry_tables::find_hall(spg.hall), {}};
  const group_on_grid given(spg);
  if (!given.whole) return {};
  const auto table = lmix_symmetry_tables::spgr_info();
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i].multip != spg.multip || table[i].numlat != spg.numlat ||
        lmix_symmetry_tables::get_pointgroup_str(table[i].pg) != spg.pg)
      continue;
    space_group_type tabulated;
    const parts::generator_set symbol = parts::get_so_from_hall(table[i].hall);
    if (symbol.err || !parts::fill_record(tabulated, parts::close_group(symbol.generators)) ||
        tabulated.spg_lat != spg.spg_lat)
      continue;
    const auto p = shift_onto(given, group_on_grid(tabulated));
    if (!p) continue;
    road out{static_cast<int>(i) + 1, {}};
    for (std::size_t k = 0; k < 3; ++k) out.change.t[k] = -static_cast<double>((*p)[k]) / grid;
    return out;
  }
  return {};
}

/// The same after an exchange of axes, or in the smaller cell of a base that is centred without need (C 4, F 4).
road by_axes(const parts::closed_group& group) {
  space_group_type spg;
  if (group.element.empty() || !parts::fill_record(spg, group)) return {};
  std::vector<parts::exact_op> op;
  for (const sym_oper_type& e : spg.symop) op.push_back(parts::exact(e));
  op.resize(op.size() / spg.latt_trans.size());
  for (const char* cell : {"x,y,z", "x-y,x+y,z"})
    for (const char* exchange : {"x,y,z", "y,z,x", "z,x,y"}) {
      affine first, second;
      if (parts::read_affine(exchange, first) || parts::read_affine(cell, second)) continue;
      const affine v = parts::product(second, first);
      const auto changed = parts::whole_operators(parts::change_axes(op, spg.latt_trans, v));
      if (!changed) continue;
      road out = by_shift(parts::close_group(*changed));
      if (out.row == 0) continue;
      out.change = parts::product(*parts::inverse(v), out.change);
      return out;
    }
  return {};
}

/// Axes that no row has: those of the Hall symbol that is found for them.
road road_to_table(const parts::closed_group& group) {
  if (const road near = by_axes(group); near.row != 0) return near;
  const std::string hall = parts::hall_symbol_of(group).symbol;
  const std::size_t bracket = hall.find('(');
  if (bracket == std::string::npos) return {};
  const parts::generator_set plain = parts::get_so_from_hall(hall.substr(0, bracket - 1));
  if (plain.err) return {};
  road out = by_axes(parts::close_group(plain.generators));
  affine change;
  const std::string text = hall.substr(bracket + 1, hall.size() - bracket - 2);
  if (text.find(',') != std::string::npos) {
    if (parts::read_affine(text, change)) return {};
  } else if (std::sscanf(text.c_str(), "%lf %lf %lf", &change.t[0], &change.t[1], &change.t[2]) == 3) {
    for (double& t : change.t) t /= 12.0;
  }
  out.change = parts::product(change, out.change);
  return out;
}

}  // namespace

setting_info get_setting_info(const space_group_type& spg) {
  setting_info out;
  std::vector<parts::exact_op> element;
  for (const sym_oper_type& op : spg.symop) element.push_back(parts::exact(op));
  if (element.empty()) return out;
  if (const road to = road_to_table(parts::close_group(element)); to.row != 0) {
    const auto table = lmix_symmetry_tables::spgr_info();
    const auto& row = table[static_cast<std::size_t>(to.row - 1)];
    const auto same_group = [&](const auto& s) { return s.number == row.number && s.basisop == "x,y,z"; };
    const auto reference = std::ranges::find_if(table, same_group);
    affine basis;
    if (reference != table.end() && !parts::read_affine(row.basisop, basis)) {
      const affine way = parts::product(to.change, basis);  // given coordinates from those of the reference
      setting_matrix setting;
      setting.origin = way.t;
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) setting.axes[j][i] = way.m[i][j];
      out.numspg = row.number;
      out.schoenflies = row.schoenflies;
      out.reference = reference->hm;
      if (reference->ext == "1" || reference->ext == "R") out.reference += ":" + std::string(reference->ext);
      out.to_reference = get_trasfm_symbol(setting);
      out.from_reference = get_trasfm_symbol(inverse_setting(setting));
    }
  }
  const group_on_grid group(spg);
  out.polar = group.polar;
  out.shifts = generating(group.keeping(+1), group.lattice);
  if (spg.centred != centring_code::acentric || !group.whole) return out;
  if (const auto inverting = group.keeping(-1); !inverting.empty()) {
    out.invertible = true;
    out.inversion = fraction(inverting[0], 0.5f);
  }
  return out;
}

}  // namespace lmix_crystallographic_symmetry

#include <algorithm>
#include <cmath>

#include "lmix_crystallographic_symmetry_parts.hpp"

// The way back from operators to a Hall symbol. Where the axes of the group are those that a symbol can name, only the
// origin is sought; else conventional axes are taken first, and the way back from them stands behind the symbol.
namespace lmix_crystallographic_symmetry::parts {
namespace {

using real3 = std::array<double, 3>;

constexpr double grid_tolerance = 5.0e-4;

bool near_whole(double v) { return std::abs(v - std::round(v)) < grid_tolerance; }

real3 turned(const matrix3i& r, const real3& v) {
  real3 out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
  return out;
}

// ---- what a symbol can name ----------------------------------------------------------------------------------------

/// One operator field without its translation.
struct field_axis {
  char order, axis;
  matrix3i rot;
  std::size_t along;  // axis to which a screw digit belongs; 3: none
};

constexpr field_axis two_z{'2', 'z', {{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}}, 2};
constexpr field_axis two_y{'2', 'y', {{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}}, 1};
constexpr field_axis two_x{'2', 'x', {{{1, 0, 0}, {0, -1, 0}, {0, 0, -1}}}, 0};
constexpr field_axis four_z{'4', 'z', {{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}}, 2};
constexpr field_axis four_y{'4', 'y', {{{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}}}, 1};
constexpr field_axis four_x{'4', 'x', {{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}}, 0};
constexpr field_axis three_z{'3', 'z', {{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}}, 2};
constexpr field_axis six_z{'6', 'z', {{{1, -1, 0}, {1, 0, 0}, {0, 0, 1}}}, 2};
constexpr field_axis three_body{'3', '*', {{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}}, 3};
constexpr field_axis two_minus{'2', '\'', {{{0, -1, 0}, {-1, 0, 0}, {0, 0, -1}}}, 3};
constexpr field_axis two_plus{'2', '"', {{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}}, 3};

/// Fields that generate a proper point group, with its order.
struct field_list {
  std::size_t order;
  std::array<const field_axis*, 3> field;
};
constexpr field_list field_lists[] = {
    {1, {}},
    {2, {&two_z}},
    {2, {&two_y}},
    {2, {&two_x}},
    {4, {&four_z}},
    {4, {&four_y}},
    {4, {&four_x}},
    {4, {&two_z, &two_x}},
    {3, {&three_z}},
    {3, {&three_body}},
    {6, {&six_z}},
    {6, {&three_z, &two_minus}},
    {6, {&three_z, &two_plus}},
    {6, {&three_body, &two_minus}},
    {8, {&four_z, &two_x}},
    {8, {&four_y, &two_x}},
    {8, {&four_x, &two_z}},
    {12, {&six_z, &two_minus}},
    {12, {&two_z, &two_x, &three_body}},
    {24, {&four_z, &two_x, &three_body}},
};

/// The axis that a symbol means when it names none.
char implied_axis(std::size_t place, char order, char previous_order) {
  if (place == 0) return 'z';
  if (place == 1 && order == '2') return previous_order == '2' || previous_order == '4' ? 'x' : '\'';
  return place == 2 && order == '3' ? '*' : '\0';
}

/// Letters (and screw digit, put in front) of a translation; empty when letters cannot tell it.
struct translation_text {
  std::string screw, letters;
};
std::optional<translation_text> letters_of(const field_axis& f, bool improper, real3 t) {
  translation_text out;
  if (f.along < 3 && !improper && !near_whole(4.0 * t[f.along])) {
    const int order = f.order - '0';
    const long k = std::lround(t[f.along] * order);
    if (!near_whole(t[f.along] * order) || k % order == 0) return {};
    out.screw = std::to_string((k % order + order) % order);
    t[f.along] = 0.0;
  }
  std::array<int, 3> quarters{};
  for (std::size_t i = 0; i < 3; ++i) {
    if (!near_whole(4.0 * t[i])) return {};
    quarters[i] = static_cast<int>((std::lround(4.0 * t[i]) % 4 + 4) % 4);
  }
  if (quarters == std::array{2, 2, 2}) return translation_text{out.screw, "n"};
  if (quarters == std::array{1, 1, 1}) return translation_text{out.screw, "d"};
  for (std::size_t i = 0; i < 3; ++i) {
    if (quarters[i] >= 2) out.letters += static_cast<char>('a' + i);
    if (quarters[i] % 2 != 0) out.letters += static_cast<char>('u' + i);
  }
  return out;
}

// ---- the group to be named -----------------------------------------------------------------------------------------

struct named_group {
  std::vector<exact_op> op;  // one of each rotation
  std::vector<vector3> centring;
  char lattice = 0;  // 0: no letter
};

const exact_op* with_rotation(const named_group& g, const matrix3i& rot) {
  const auto found = std::ranges::find(g.op, rot, &exact_op::rot);
  return found == g.op.end() ? nullptr : &*found;
}

named_group take(std::span<const exact_op> element) {
  named_group g;
  for (const exact_op& e : element) {
    if (e.rot == identity) g.centring.push_back(rounded(e).tr);
    if (!with_rotation(g, e.rot)) g.op.push_back(e);
  }
  const char letter = get_lattice_type(g.centring);
  g.lattice = letter == 'Z' ? '\0' : letter;
  return g;
}

std::vector<matrix3i> proper_rotations(const named_group& g) {
  std::vector<matrix3i> out;
  for (const exact_op& e : g.op) {
    const matrix3i r = lmix_crystallographic_symmetry::determinant(e.rot) < 0 ? negated(e.rot) : e.rot;
    if (std::ranges::find(out, r) == out.end()) out.push_back(r);
  }
  return out;
}

// ---- the origin ----------------------------------------------------------------------------------------------------

/// Operators of a group for the fields of a list, those of the group itself or their products with the inversion.
struct chosen_fields {
  const field_list* list;
  std::vector<exact_op> op;
};

/// t + v - R v.
real3 moved(const exact_op& op, const real3& v) {
  const real3 r = turned(op.rot, v);
  return {op.tr[0] + v[0] - r[0], op.tr[1] + v[1] - r[1], op.tr[2] + v[2] - r[2]};
}

/// The symbol with the origin moved by v, empty when letters cannot tell a translation.
std::string symbol_at(const named_group& g, const chosen_fields& fields, bool centric, const real3& v) {
  std::string out = std::string(centric ? "-" : "") + g.lattice;
  if (fields.op.empty()) return out + " 1";
  char previous = '1';
  for (std::size_t i = 0; i < fields.op.size(); ++i) {
    const field_axis& f = *fields.list->field[i];
    const bool improper = lmix_crystallographic_symmetry::determinant(fields.op[i].rot) < 0;
    std::optional<translation_text> text;
    for (const vector3& c : g.centring) {
      real3 t = moved(fields.op[i], v);
      for (std::size_t k = 0; k < 3; ++k) t[k] += static_cast<double>(c[k]);
      if ((text = letters_of(f, improper, t))) break;
    }
    if (!text) return {};
    out += std::string(" ") + (improper ? "-" : "") + f.order + text->screw;
    if (f.axis != implied_axis(i, f.order, previous)) out += f.axis;
    out += text->letters;
    previous = f.order;
  }
  return out;
}

/// Solves A x = b as far as it goes (3 rows, one column for each of the free directions), and moves `free` on to the
/// directions that A does not feel.
real3 solve_along(std::vector<real3>& free, const matrix3i& rot, const real3& b) {
  std::vector<real3> image;  // (1 - R) f for each free direction
  for (const real3& f : free) {
    const real3 r = turned(rot, f);
    image.push_back({f[0] - r[0], f[1] - r[1], f[2] - r[2]});
  }
  real3 rest = b, x{};
  std::vector<real3> still_free;
  // Columns are made orthogonal one after the other (Gram-Schmidt); a direction whose image vanishes stays free.
  for (std::size_t k = 0; k < free.size(); ++k) {
    double size = 0.0, along = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
      size += image[k][i] * image[k][i];
      along += image[k][i] * rest[i];
    }
    if (size < 1e-9) {
      still_free.push_back(free[k]);
      continue;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      x[i] += free[k][i] * along / size;
      rest[i] -= image[k][i] * along / size;
    }
    for (std::size_t l = k + 1; l < free.size(); ++l) {
      double overlap = 0.0;
      for (std::size_t i = 0; i < 3; ++i) overlap += image[l][i] * image[k][i];
      for (std::size_t i = 0; i < 3; ++i) {
        image[l][i] -= image[k][i] * overlap / size;
        free[l][i] -= free[k][i] * overlap / size;
      }
    }
  }
  free = std::move(still_free);
  return x;
}

/// Origin shift after which the first operators pass through the origin, the others as near as may be.
real3 origin_on(std::span<const exact_op> op) {
  real3 v{};
  std::vector<real3> free{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (const exact_op& e : op) {
    const exact_op here{e.rot, moved(e, v)};
    sym_oper_type single{here.rot, {}};
    for (std::size_t i = 0; i < 3; ++i) single.tr[i] = static_cast<float>(here.tr[i]);
    const real3 along = intrinsic_translation(single);
    const real3 step = solve_along(free, e.rot, {along[0] - here.tr[0], along[1] - here.tr[1], along[2] - here.tr[2]});
    for (std::size_t i = 0; i < 3; ++i) v[i] += step[i];
  }
  for (double& e : v)
    if (near_whole(24.0 * e)) e = std::round(24.0 * e) / 24.0;
  return v;
}

/// Calls `use` for the operators with all combinations of lattice vectors added, cell edges to the first one only,
/// until it is content. Parallel axes of one cell can be of different surroundings: only some serve as origin.
template <class Use>
bool with_lattice_vectors(const named_group& g, std::vector<exact_op> op, std::size_t next, Use use) {
  if (next == op.size()) return use(op);
  const exact_op as_it_is = op[next];
  for (int n = 0; n < (next == 0 ? 27 : 1); ++n)
    for (const vector3& c : g.centring) {
      const int edge[3] = {n % 3, n / 3 % 3, n / 9};
      for (std::size_t i = 0; i < 3; ++i)
        op[next].tr[i] = as_it_is.tr[i] + static_cast<double>(c[i]) + (edge[i] == 2 ? -1 : edge[i]);
      if (with_lattice_vectors(g, op, next + 1, use)) return true;
    }
  return false;
}

struct placed_symbol {
  std::string symbol;
  real3 v{};
};

placed_symbol place(const named_group& g, const chosen_fields& fields, const exact_op* inversion) {
  const bool centric = inversion != nullptr;
  if (const std::string here = symbol_at(g, fields, centric, {}); !here.empty())
    if (!centric || std::ranges::all_of(inversion->tr, near_whole)) return {here, {}};
  if (!centric) {
    placed_symbol found;
    const auto lies_well = [&](const std::vector<exact_op>& op) {
      found.v = origin_on(op);
      found.symbol = symbol_at(g, fields, false, found.v);
      return !found.symbol.empty();
    };
    // The first operator need not be the one through the origin: in I -4 3 d that is the threefold axis.
    std::vector<exact_op> op = fields.op;
    for (std::size_t first = 0; first < op.size(); ++first) {
      if (with_lattice_vectors(g, op, 0, lies_well)) return found;
      std::rotate(op.begin(), op.begin() + 1, op.end());
    }
    return {};
  }
  for (const vector3& c : g.centring)
    for (int n = 0; n < 8; ++n) {
      real3 v{};
      for (std::size_t i = 0; i < 3; ++i) v[i] = -(inversion->tr[i] + static_cast<double>(c[i]) + (n >> i & 1)) / 2.0;
      if (const std::string symbol = symbol_at(g, fields, true, v); !symbol.empty()) return {symbol, v};
    }
  return {};
}

/// A symbol on the axes as they are; empty when these cannot be named.
placed_symbol on_these_axes(const named_group& g) {
  if (g.lattice == 0) return {};
  const std::size_t order = proper_rotations(g).size();
  const exact_op* inversion = with_rotation(g, negated(identity));
  for (const field_list& list : field_lists) {
    if (list.order != order) continue;
    chosen_fields fields{&list, {}};
    bool complete = true;
    for (const field_axis* f : list.field) {
      if (!f) break;
      const exact_op* op = with_rotation(g, f->rot);
      if (!op) op = with_rotation(g, negated(f->rot));
      complete = complete && op;
      if (op) fields.op.push_back(*op);
    }
    if (!complete) continue;
    if (placed_symbol found = place(g, fields, inversion); !found.symbol.empty()) return found;
  }
  return {};
}

// ---- conventional axes ---------------------------------------------------------------------------------------------

/// Lattice vectors, shortest first, in a metric that the rotations leave alone.
std::vector<real3> short_vectors(const named_group& g) {
  std::array<std::array<double, 3>, 3> metric{};
  for (const exact_op& e : g.op)
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k) metric[i][j] += e.rot[k][i] * e.rot[k][j];
  const auto length = [&](const real3& v) {
    double q = 0.0;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) q += v[i] * metric[i][j] * v[j];
    return q;
  };
  constexpr int reach = 4;
  std::vector<std::pair<double, real3>> all;
  for (int x = -reach; x <= reach; ++x)
    for (int y = -reach; y <= reach; ++y)
      for (int z = -reach; z <= reach; ++z)
        for (const vector3& c : g.centring) {
          const real3 v{x + static_cast<double>(c[0]), y + static_cast<double>(c[1]), z + static_cast<double>(c[2])};
          if (const double q = length(v); q > 1e-6) all.emplace_back(q, v);
        }
  std::ranges::stable_sort(all, {}, [](const auto& p) { return std::round(p.first * 1e6); });
  std::vector<real3> out;
  for (const auto& p : all) out.push_back(p.second);
  return out;
}

bool same(const real3& a, const real3& b) {
  return std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]) < 1e-3;
}
real3 opposite(const real3& v) { return {-v[0], -v[1], -v[2]}; }

template <class Condition>
real3 shortest(const std::vector<real3>& vectors, Condition condition) {
  const auto found = std::ranges::find_if(vectors, condition);
  return found == vectors.end() ? real3{} : *found;
}

double triple(const std::array<real3, 3>& a) {
  affine m;
  m.m = a;
  return affine_determinant(m);
}

/// Axes a, b, c of a conventional cell.
std::array<real3, 3> conventional_cell(const named_group& g) {
  const std::vector<matrix3i> proper = proper_rotations(g);
  const std::vector<real3> vectors = short_vectors(g);
  std::vector<matrix3i> by_order[7];
  for (const matrix3i& r : proper)
    if (const int n = rotation_type(r); n > 0) by_order[n].push_back(r);
  const auto along = [&](const matrix3i& r) {
    return shortest(vectors, [&](const real3& v) { return same(turned(r, v), v); });
  };
  const auto normal = [&](const matrix3i& half_turn) {
    return [half_turn](const real3& v) { return same(turned(half_turn, v), opposite(v)); };
  };
  std::array<real3, 3> cell{};
  const bool cubic = by_order[3].size() == 8;
  const auto& main = by_order[6].empty() ? by_order[3] : by_order[6];
  if (cubic || (by_order[4].empty() && main.empty() && by_order[2].size() == 3)) {
    // Three axes at right angles: those of order 4, else those of order 2.
    std::vector<real3> axes;
    for (const matrix3i& r : by_order[4].empty() ? by_order[2] : by_order[4]) {
      const real3 u = along(r);
      if (std::ranges::none_of(axes, [&](const real3& a) { return same(a, u) || same(a, opposite(u)); }))
        axes.push_back(u);
    }
    if (axes.size() != 3) return {};
    cell = {axes[0], axes[1], axes[2]};
    if (triple(cell) < 0) std::swap(cell[0], cell[1]);
    return cell;
  }
  if (!main.empty()) {
    const matrix3i three = by_order[3][0];
    cell[0] = shortest(vectors, [&](const real3& v) {
      const real3 once = turned(three, v), twice = turned(three, once);
      return same({v[0] + once[0] + twice[0], v[1] + once[1] + twice[1], v[2] + once[2] + twice[2]}, {});
    });
    cell[1] = turned(three, cell[0]);
    cell[2] = along(three);
  } else if (!by_order[4].empty()) {
    const matrix3i four = by_order[4][0];
    cell[0] = shortest(vectors, normal(product(four, four)));
    cell[1] = turned(four, cell[0]);
    cell[2] = along(four);
  } else if (by_order[2].size() == 1) {
    const matrix3i two = by_order[2][0];
    cell[2] = shortest(vectors, normal(two));
    cell[0] = shortest(vectors, [&](const real3& v) {
      return normal(two)(v) && std::abs(triple({v, along(two), cell[2]})) > 1e-6;
    });
    cell[1] = along(two);
  } else {
    cell[0] = vectors[0];
    cell[1] = shortest(vectors, [&](const real3& v) {
      return !same({v[1] * cell[0][2] - v[2] * cell[0][1], v[2] * cell[0][0] - v[0] * cell[0][2],
                    v[0] * cell[0][1] - v[1] * cell[0][0]},
                   {});
    });
    cell[2] = shortest(vectors, [&](const real3& v) { return std::abs(triple({cell[0], cell[1], v})) > 1e-6; });
  }
  if (triple(cell) < 0) cell[2] = opposite(cell[2]);
  return cell;
}

/// Conventional coordinates from the given ones.
std::optional<affine> to_conventional(const std::array<real3, 3>& cell) {
  affine back;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) back.m[i][j] = cell[j][i];
  return inverse(back);
}

/// The symbol on conventional axes, with the axes.
struct conventional_symbol {
  placed_symbol found;
  affine v;
};
std::optional<conventional_symbol> on_conventional_axes(const named_group& g) {
  std::array<real3, 3> cell = conventional_cell(g);
  // A rhombohedral lattice comes in its obverse or its reverse setting; a half turn about c exchanges them.
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto v = to_conventional(cell);
    if (!v) return {};
    const auto moved_ops = whole_operators(change_axes(g.op, g.centring, *v));
    if (!moved_ops) return {};
    const named_group conventional = take(close_group(*moved_ops).element);
    if (placed_symbol found = on_these_axes(conventional); !found.symbol.empty()) return conventional_symbol{found, *v};
    cell[0] = opposite(cell[0]);
    cell[1] = opposite(cell[1]);
  }
  return {};
}

// ---- the text ------------------------------------------------------------------------------------------------------

/// Brackets behind the symbol: given coordinates = change (coordinates of the symbol).
found_hall with_change(const placed_symbol& found, const affine& back) {
  affine shift;
  shift.t = opposite(found.v);
  affine change = product(back, shift);
  for (double& t : change.t) t -= std::floor(t + grid_tolerance);
  const bool only_shift = change.m == affine{}.m;
  const auto twelfth = [](double t) { return near_whole(12.0 * t); };
  if (!only_shift || !std::ranges::all_of(change.t, twelfth))
    return {found.symbol + " (" + affine_text(change) + ")", false};
  std::string text;
  bool zero = true;
  for (const double t : change.t) {
    const long n = std::lround(12.0 * t) % 12;
    zero = zero && n == 0;
    text += (text.empty() ? "" : " ") + std::to_string(n);
  }
  return {zero ? found.symbol : found.symbol + " (" + text + ")", true};
}

bool gives(const std::string& symbol, const closed_group& group) {
  const generator_set set = get_so_from_hall(symbol);
  if (set.err) return false;
  const closed_group other = close_group(set.generators);
  return other.element.size() == group.element.size() && std::ranges::all_of(other.element, [&](const exact_op& e) {
           return std::ranges::any_of(group.element, [&](const exact_op& f) { return equal(e, f); });
         });
}

}  // namespace

found_hall hall_symbol_of(const closed_group& group) {
  if (group.element.empty()) return {};
  const named_group g = take(group.element);
  if (const placed_symbol here = on_these_axes(g); !here.symbol.empty())
    if (const found_hall hall = with_change(here, {}); gives(hall.symbol, group)) return hall;
  if (const auto found = on_conventional_axes(g))
    if (const auto back = inverse(found->v))
      if (const found_hall hall = with_change(found->found, *back); gives(hall.symbol, group)) return hall;
  return {};
}

}  // namespace lmix_crystallographic_symmetry::parts

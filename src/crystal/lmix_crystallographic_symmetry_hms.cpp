#include <algorithm>
#include <cctype>
#include <cmath>
#include <optional>

#include "lmix_crystallographic_symmetry_parts.hpp"

// Hermann-Mauguin symbols read by their own letters: International Tables for Crystallography Vol. A, the sections on
// symbols of symmetry elements and on the directions of the crystal systems.
//
// A field names a kind of element along a direction: its matrix and the translation along it (screw, glide). Where the
// element lies is not said. Those places are found as the first ones, beginning with "through the origin", for which
// all elements together form a group whose pure translations are those of the lattice letter.
namespace lmix_crystallographic_symmetry::parts {
namespace {

// ---- the letters of one field --------------------------------------------------------------------------------------

/// "21/c", "-4", "m", "1".
struct hm_field {
  int order = 0;          // of the axis; 0: none is named
  bool inverted = false;  // rotoinversion
  int screw = 0;
  char plane = 0;  // m a b c d e n, 0: none
  std::string text;
};

constexpr std::string_view repeated = " has been repeated within the same symmetry direction";
constexpr std::string_view two_planes = " There is more than one plane within the same symmetry direction";
constexpr std::string_view plane_then_axis = " A mirror plane cannot be immediately followed by a rotation axis";
constexpr std::string_view axis_then_plane = " A rotation axis cannot be immediately followed by a plane";
constexpr std::string_view fivefold = " The fivefold axis is not allowed";
constexpr std::string_view wrong_screw = " not allowed Screw axis";
constexpr std::string_view wrong_symbol = " Wrong space-group symbol";

std::string quoted(char c, std::string_view words) { return std::string(1, c).append(words); }

/// Reads a field; the words of the fault, empty when there is none.
class field_reader {
 public:
  explicit field_reader(std::string_view text) : text_(text) {}

  std::string read(hm_field& f) {
    for (at_ = 0; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      std::string fault;
      if (std::isdigit(static_cast<unsigned char>(c)))
        fault = digit(f, c);
      else if (std::string_view("mabcden").find(c) != std::string_view::npos)
        fault = plane(f, c);
      else if (c == '-' && at_ == 0)
        f.inverted = true;
      else if (c != '/' || f.order < 2 || f.inverted || f.plane != 0 || text_[at_ - 1] == '/')
        fault = wrong_symbol;
      if (!fault.empty()) return fault;
    }
    const bool cut_short = text_.empty() || text_.back() == '/' || text_.back() == '-';
    const bool no_such_axis = f.inverted && f.order != 1 && f.order != 3 && f.order != 4 && f.order != 6;
    return cut_short || no_such_axis ? std::string(wrong_symbol) : std::string();
  }

 private:
  std::string digit(hm_field& f, char c) const {
    if (f.plane != 0) return std::string(plane_then_axis);
    const int n = c - '0';
    if (f.order == 0) {
      if (n == 5) return std::string(fivefold);
      if (n < 1 || n == 7 || n > 6) return std::string(wrong_symbol);
      f.order = n;
      return {};
    }
    if (text_[at_ - 1] == '/') return std::string(wrong_symbol);
    if (n == f.order) return quoted(c, repeated);
    if (f.screw != 0 || f.inverted || n < 1 || n > f.order) return std::string(wrong_screw);
    f.screw = n;
    return {};
  }
  std::string plane(hm_field& f, char c) const {
    if (f.plane == c) return quoted(c, repeated);
    if (f.plane != 0) return std::string(two_planes);
    if (f.order != 0 && text_[at_ - 1] != '/') return std::string(axis_then_plane);
    f.plane = c;
    return {};
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

// ---- directions ----------------------------------------------------------------------------------------------------

enum class direction { x, y, z, diagonal, hex_x, hex_diagonal, body, none };

/// Matrix of the rotation by 2 pi / order about a direction; nothing where the direction has no such axis.
std::optional<matrix3i> rotation_about(direction d, int order) {
  struct row {
    direction d;
    int order;
    matrix3i rot;
  };
  static constexpr row rows[] = {
      {direction::x, 2, {{{1, 0, 0}, {0, -1, 0}, {0, 0, -1}}}},
      {direction::y, 2, {{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}}},
      {direction::z, 2, {{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}}},
      {direction::z, 3, {{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}}},
      {direction::z, 4, {{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}}},
      {direction::z, 6, {{{1, -1, 0}, {1, 0, 0}, {0, 0, 1}}}},
      {direction::diagonal, 2, {{{0, -1, 0}, {-1, 0, 0}, {0, 0, -1}}}},
      {direction::hex_x, 2, {{{1, -1, 0}, {0, -1, 0}, {0, 0, -1}}}},
      {direction::hex_diagonal, 2, {{{0, -1, 0}, {-1, 0, 0}, {0, 0, -1}}}},
      {direction::body, 3, {{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}}},
  };
  for (const row& r : rows)
    if (r.d == d && r.order == order) return r.rot;
  return {};
}

/// The directions that the fields of a symbol stand for.
struct axis_system {
  std::vector<direction> of_field;
  std::string_view name = "monoclinic or orthorhombic", fields = "1 or 3";  // in words
  bool cubic = false, hexagonal = false, rhombohedral = false, tetragonal = false;
};

bool named(const hm_field& f, int order) { return f.order == order; }

/// By the digits 3, 4 and 6 and where they stand. Empty when the number of fields fits no system.
axis_system system_of(std::vector<hm_field>& field, char lattice, bool rhombohedral_axes) {
  using enum direction;
  axis_system s;
  const std::size_t n = field.size();
  if (n >= 2 && named(field[1], 3)) {
    s.cubic = true, s.name = "cubic", s.fields = "2 or 3";
    if (n <= 3) s.of_field = {z, body, diagonal};
  } else if (named(field[0], 4)) {
    s.tetragonal = true, s.name = "tetragonal";
    if (n == 1 || n == 3) s.of_field = {z, x, diagonal};
  } else if (named(field[0], 3) && rhombohedral_axes) {
    s.rhombohedral = true, s.name = "rhombohedral", s.fields = "1 or 2";
    if (n <= 2) s.of_field = {body, diagonal, none};
  } else if (named(field[0], 3) || named(field[0], 6)) {
    s.hexagonal = true, s.name = named(field[0], 3) ? "trigonal" : "hexagonal";
    if (lattice == 'r') s.fields = "1, 2 or 3";
    const bool complete = n == 1 || n == 3 || (n == 2 && lattice == 'r');
    if (complete) s.of_field = {z, hex_x, hex_diagonal};
  } else if (std::ranges::all_of(field, [](const hm_field& f) { return f.order <= 2; })) {
    // Short monoclinic symbols mean the unique axis b but where the lattice or the glide can only be that of axis c.
    const direction unique_axis = lattice == 'b' || field[0].plane == 'b' ? z : y;
    if (n == 1) s.of_field = {field[0].order == 1 ? none : unique_axis};
    if (n == 3) s.of_field = {x, y, z};
  }
  if (!s.of_field.empty()) field.resize(s.of_field.size());
  return s;
}

// ---- exact arithmetic in 48ths -------------------------------------------------------------------------------------

constexpr int unit = 48;  // halves of 24ths occur at places of inversion centres
using vector48 = std::array<int, 3>;

int modulo(int a) { return (a % unit + unit) % unit; }
vector48 added(const vector48& a, const vector48& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }
vector48 minus(const vector48& a, const vector48& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
vector48 turned(const matrix3i& r, const vector48& v) {
  vector48 out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
  return out;
}

struct op48 {
  matrix3i rot = identity;
  vector48 tr{};
};
op48 product48(const op48& a, const op48& b) { return {product(a.rot, b.rot), added(a.tr, turned(a.rot, b.tr))}; }

using lattice48 = std::vector<vector48>;
bool in_lattice(const vector48& v, const lattice48& lattice) {
  return std::ranges::any_of(lattice, [&](const vector48& c) {
    return modulo(v[0] - c[0]) == 0 && modulo(v[1] - c[1]) == 0 && modulo(v[2] - c[2]) == 0;
  });
}

lattice48 lattice_of(char letter) {
  lattice48 out;
  for (const vector3& c : latsym(letter)) {
    vector48 v{};
    for (std::size_t i = 0; i < 3; ++i) v[i] = static_cast<int>(std::lround(static_cast<double>(c[i]) * unit));
    out.push_back(v);
  }
  return out;
}

/// One operator of each rotation; nothing when the generators hold more translations than the lattice.
std::optional<std::vector<op48>> close(std::span<const op48> generators, const lattice48& lattice) {
  constexpr std::size_t largest_point_group = 48;
  for (const op48& g : generators)
    for (const vector48& c : lattice)
      if (!in_lattice(turned(g.rot, c), lattice)) return {};
  std::vector<op48> element{op48{}};
  for (std::size_t i = 0; i < element.size(); ++i)
    for (const op48& g : generators) {
      const op48 p = product48(g, element[i]);
      const auto same = std::ranges::find(element, p.rot, &op48::rot);
      if (same == element.end()) {
        if (element.size() == largest_point_group) return {};
        element.push_back({p.rot, {modulo(p.tr[0]), modulo(p.tr[1]), modulo(p.tr[2])}});
      } else if (!in_lattice(minus(p.tr, same->tr), lattice)) {
        return {};
      }
    }
  return element;
}

// ---- what a field asks for -----------------------------------------------------------------------------------------

/// An element that a symbol names: one of the translations along it must be there, or all of them (the glide e).
struct named_element {
  matrix3i rot;
  std::vector<vector48> along;
  bool all = false;
};

/// Shortest lattice vector along a diagonal of the base, in units of (1, 1, 0): half of it where the base is centred.
int diagonal_unit(const lattice48& lattice) { return in_lattice({unit / 2, unit / 2, 0}, lattice) ? 1 : 2; }

/// Glide vectors that a letter stands for. Empty: the letter means nothing on a plane normal to that direction.
std::vector<vector48> glides(char letter, direction d, const axis_system& system, const lattice48& lattice) {
  constexpr int h = unit / 2, q = unit / 4;
  if (letter == 'm') return {{0, 0, 0}};
  if (d == direction::hex_x || d == direction::hex_diagonal)
    return letter == 'c' ? std::vector<vector48>{{0, 0, h}} : std::vector<vector48>{};
  if (system.rhombohedral)
    return letter == 'c' || letter == 'n' ? std::vector<vector48>{{h, h, h}} : std::vector<vector48>{};
  if (d == direction::diagonal) {
    // Half of a lattice vector in the plane, c before n. In a C cell (a + b + c)/2 is c already: the letters then stand
    // for half of the vector to the centre of the base, as in C 4 m b, which is P 4 b m, and C 42 m n, P 42 n m.
    const bool base_centred = diagonal_unit(lattice) == 1 && !in_lattice({0, h, h}, lattice);
    switch (letter) {
      case 'b':
        return base_centred ? std::vector<vector48>{{q, q, 0}} : std::vector<vector48>{};
      case 'c':
        return {{0, 0, h}};
      case 'n':
        return base_centred ? std::vector<vector48>{{q, q, h}} : std::vector<vector48>{{h, h, h}};
      case 'd':
        return {{q, q, q}, {q, q, -q}};
      default:
        return {};
    }
  }
  if (d != direction::x && d != direction::y && d != direction::z) return {};
  if (system.hexagonal) return {};
  const std::size_t normal = d == direction::x ? 0 : d == direction::y ? 1 : 2;
  const std::size_t first = normal == 0 ? 1 : 0, second = normal == 2 ? 1 : 2;
  const auto in_plane = [&](int a, int b) {
    vector48 v{};
    v[first] = a;
    v[second] = b;
    return v;
  };
  switch (letter) {
    case 'n':
      return {in_plane(h, h)};
    case 'd':
      return {in_plane(q, q), in_plane(-q, q)};
    case 'e':
      return {in_plane(h, 0), in_plane(0, h)};
    default: {
      const auto axis = static_cast<std::size_t>(letter - 'a');
      if (axis == normal) return {};
      vector48 v{};
      v[axis] = h;
      return {v};
    }
  }
}

/// Screw vector of an axis.
vector48 screw_vector(direction d, int screw, int order, const lattice48& lattice) {
  const int s = screw * unit / order;
  switch (d) {
    case direction::x:
      return {s, 0, 0};
    case direction::y:
      return {0, s, 0};
    case direction::z:
      return {0, 0, s};
    case direction::diagonal:
      return {s * diagonal_unit(lattice) / 2, -s * diagonal_unit(lattice) / 2, 0};
    default:
      return {s, s, s};
  }
}

/// The elements of a field; false when it names what its direction cannot have.
bool elements_of(const hm_field& f, direction d, const axis_system& system, const lattice48& lattice,
                 std::vector<named_element>& out) {
  if (f.order > 1) {
    const auto rot = rotation_about(d, f.order);
    if (!rot) return false;
    const bool along_lattice_row = d == direction::x || d == direction::y || d == direction::z ||
                                   (d == direction::diagonal && system.tetragonal && diagonal_unit(lattice) == 1);
    if (f.screw != 0 && !along_lattice_row) return false;
    out.push_back({f.inverted ? negated(*rot) : *rot, {screw_vector(d, f.screw, f.order, lattice)}, false});
  } else if (f.inverted) {
    if (d != direction::none) return false;
    out.push_back({negated(identity), {{0, 0, 0}}, false});
  }
  if (f.plane == 0) return true;
  const auto normal = rotation_about(d, 2);
  const std::vector<vector48> glide = glides(f.plane, d, system, lattice);
  if (!normal || glide.empty()) return false;
  out.push_back({negated(*normal), glide, f.plane == 'e'});
  return true;
}

// ---- the group -----------------------------------------------------------------------------------------------------

/// Whether the group holds an element with that matrix and that translation along it, up to lattice vectors.
bool has_element(const matrix3i& rot, const vector48& along, const std::vector<op48>& element,
                 const lattice48& lattice) {
  const auto found = std::ranges::find(element, rot, &op48::rot);
  if (found == element.end()) return false;
  const int type = rotation_type(rot);
  const int order = type < 0 && type % 2 != 0 ? -2 * type : std::max(std::abs(type), 1);
  // N times the translation along the element, N being the order: the sum of R^k t.
  const auto summed = [&](const vector48& t) {
    vector48 sum{};
    matrix3i power = identity;
    for (int k = 0; k < order; ++k) {
      sum = added(sum, turned(power, t));
      power = product(power, rot);
    }
    return sum;
  };
  for (const vector48& c : lattice)
    for (int n = 0; n < 27; ++n) {
      const vector48 l = added(c, {unit * (n % 3 - 1), unit * (n / 3 % 3 - 1), unit * (n / 9 - 1)});
      const vector48 sum = summed(added(found->tr, l));
      vector48 difference{};
      bool whole = true;
      for (std::size_t i = 0; i < 3; ++i) {
        const int d = sum[i] - order * along[i];
        whole = whole && d % order == 0;
        difference[i] = d / order;
      }
      if (whole && in_lattice(difference, lattice)) return true;
    }
  return false;
}

bool has_all(std::span<const named_element> names, const std::vector<op48>& element, const lattice48& lattice) {
  return std::ranges::all_of(names, [&](const named_element& name) {
    const auto has = [&](const vector48& along) { return has_element(name.rot, along, element, lattice); };
    return name.all ? std::ranges::all_of(name.along, has) : std::ranges::any_of(name.along, has);
  });
}

/// A field must tell all that its direction has; only the axis normal to a named plane may be left out, as in m m m.
bool tells_all(const hm_field& f, direction d, const std::vector<op48>& element) {
  const auto has = [&](const matrix3i& rot) { return std::ranges::find(element, rot, &op48::rot) != element.end(); };
  int axis = 1;
  for (const int order : {2, 3, 4, 6})
    if (const auto rot = rotation_about(d, order); rot && has(*rot)) axis = order;
  const auto normal = rotation_about(d, 2);
  const bool plane = normal && has(negated(*normal));
  if (f.plane != 0 && f.order == 0) return true;
  if (f.inverted) return f.order == 6 ? axis == 3 : f.order == 4 ? axis == 2 : f.order == 3 ? axis == 3 : !plane;
  // An axis of order 3 in -3, one of order 2 in -4.
  const auto hidden = rotation_about(d, axis == 3 ? 3 : 4);
  const bool inverted = (axis == 2 || axis == 3) && hidden && has(negated(*hidden));
  return axis == std::max(f.order, 1) && plane == (f.plane != 0) && !inverted;
}

/// Translations (1 - R) x of an element whose place x runs over eighths of the cell, fewest non-zero components first.
std::vector<vector48> places(const matrix3i& rot) {
  constexpr int steps = 8;
  std::vector<vector48> out;
  for (int n = 0; n < steps * steps * steps; ++n) {
    const vector48 x{n % steps * unit / steps, n / steps % steps * unit / steps, n / steps / steps * unit / steps};
    vector48 t = minus(x, turned(rot, x));
    for (int& e : t) e = modulo(e);
    if (std::ranges::find(out, t) == out.end()) out.push_back(t);
  }
  std::ranges::stable_sort(out, {},
                           [](const vector48& t) { return std::ranges::count_if(t, [](int e) { return e != 0; }); });
  return out;
}

struct search {
  std::span<const named_element> names;
  std::span<const hm_field> field;
  std::span<const direction> of_field;
  const lattice48& lattice;
  std::vector<op48> generator;

  bool complete(const std::vector<op48>& element) const {
    if (!has_all(names, element, lattice)) return false;
    for (std::size_t i = 0; i < field.size(); ++i)
      if (!tells_all(field[i], of_field[i], element)) return false;
    return true;
  }

  /// Places element number `next` of the generating ones and all behind it. The first one lies at the origin: that is
  /// what an origin is chosen for.
  bool place(std::span<const std::size_t> generating, std::size_t next) {
    if (next == generating.size()) {
      const auto element = close(generator, lattice);
      return element && complete(*element);
    }
    const named_element& name = names[generating[next]];
    const std::vector<vector48> at = next == 0 ? std::vector<vector48>{vector48{}} : places(name.rot);
    for (const vector48& along : name.along)
      for (const vector48& t : at) {
        generator.push_back({name.rot, added(along, t)});
        // What contradicts itself already needs no further elements.
        if (close(generator, lattice) && place(generating, next + 1)) return true;
        generator.pop_back();
      }
    return false;
  }
};

/// Elements that generate the point group, each new to those before it: rotoinversions first, then axes from the
/// highest order down, so that the origin comes to lie on them.
std::vector<std::size_t> generating_elements(std::span<const named_element> names) {
  std::vector<std::size_t> order(names.size()), chosen;
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::ranges::stable_sort(order, {}, [&](std::size_t i) {
    const int type = rotation_type(names[i].rot);
    return type < -2 ? type - 100 : -type;
  });
  std::vector<op48> generator;
  for (const std::size_t i : order) {
    const auto element = close(generator, {vector48{}});
    if (element && std::ranges::find(*element, names[i].rot, &op48::rot) != element->end()) continue;
    chosen.push_back(i);
    generator.push_back({names[i].rot, {}});
  }
  return chosen;
}

// ---- the origin ----------------------------------------------------------------------------------------------------

/// Operators that leave a point where it is; the point is told by twice its coordinates.
int site_order(const vector48& twice, const std::vector<op48>& element, const lattice48& lattice) {
  int n = 0;
  for (const op48& e : element) {
    const vector48 moved = minus(added(turned(e.rot, twice), added(e.tr, e.tr)), twice);
    if (std::ranges::all_of(moved, [](int m) { return m % 2 == 0; }))
      n += in_lattice({moved[0] / 2, moved[1] / 2, moved[2] / 2}, lattice);
  }
  return n;
}

/// Moves the origin to an inversion centre, the one of highest site symmetry and then nearest to 0.
void move_to_centre(std::vector<op48>& generator, const lattice48& lattice) {
  const auto element = close(generator, lattice);
  const auto inversion = std::ranges::find(*element, negated(identity), &op48::rot);
  if (inversion == element->end()) return;
  vector48 best{};
  int best_order = 0;
  for (const vector48& c : lattice)
    for (int n = 0; n < 8; ++n) {
      vector48 twice = added(inversion->tr, added(c, {unit * (n & 1), unit * (n >> 1 & 1), unit * (n >> 2 & 1)}));
      for (int& e : twice) e = ((e % (2 * unit)) + 2 * unit) % (2 * unit);
      const int order = site_order(twice, *element, lattice);
      if (order > best_order || (order == best_order && twice < best)) {
        best = twice;
        best_order = order;
      }
    }
  // t' = t + R v - v for the new origin v = best / 2; (R - 1) best is even where best is a centre's translation.
  for (op48& g : generator) {
    const vector48 shift = minus(turned(g.rot, best), best);
    for (std::size_t i = 0; i < 3; ++i) g.tr[i] += shift[i] / 2;
  }
}

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> fields;
  std::size_t i = 0;
  while ((i = text.find_first_not_of(" \t", i)) != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(" \t", i), text.size());
    fields.push_back(text.substr(i, end - i));
    i = end;
  }
  return fields;
}

generator_set refused(std::string_view words, std::string_view symbol, std::string_view why = {}) {
  return {
      {true, std::string(words) + ": " + std::string(symbol) + (why.empty() ? "" : ": ") + std::string(why)}, {}, 0};
}

std::string plain(std::string_view text) {
  std::string out;
  for (const char c : text)
    if (c != '_') out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

/// The lattice letter and the fields of a symbol, letters in lower case.
struct hm_symbol {
  char lattice = 0;
  std::string choice;
  std::vector<hm_field> field;
};

std::string read_symbol(std::string_view symbol, hm_symbol& out) {
  const std::size_t colon = symbol.find(':');
  const std::string body = plain(symbol.substr(0, colon));
  if (colon != std::string_view::npos)
    for (const char c : plain(symbol.substr(colon + 1)))
      if (c != ' ') out.choice += c;
  const bool known_choice = colon == std::string_view::npos || out.choice == "1" || out.choice == "2" ||
                            out.choice == "r" || out.choice == "h";
  std::vector<std::string_view> words = split(body);
  if (words.empty() || !known_choice) return std::string(wrong_symbol);
  out.lattice = words[0][0];
  if (std::string_view("pabcirfh").find(out.lattice) == std::string_view::npos) return std::string(wrong_symbol);
  words[0].remove_prefix(1);
  if (words[0].empty()) words.erase(words.begin());
  if (words.empty() || words.size() > 3) return std::string(wrong_symbol);
  for (const std::string_view word : words) {
    hm_field f;
    if (std::string fault = field_reader(word).read(f); !fault.empty()) return fault;
    f.text = word;
    out.field.push_back(f);
  }
  return {};
}

bool lattice_fits(const hm_symbol& s, const axis_system& system) {
  if (s.choice == "r" && !(s.lattice == 'r' && (system.rhombohedral))) return false;
  if (s.choice == "h" && !(s.lattice == 'r' && system.hexagonal)) return false;
  if (s.lattice == 'r' || s.lattice == 'h') return system.rhombohedral || (system.hexagonal && s.field[0].order == 3);
  return !system.hexagonal || s.lattice == 'p' || s.lattice == 'c';
}

}  // namespace

generator_set get_so_from_hms(std::string_view hms) {
  hm_symbol s;
  if (const std::string fault = read_symbol(hms, s); !fault.empty()) return refused(fault, hms);
  const axis_system system = system_of(s.field, s.lattice, s.choice == "r");
  const std::string symbol_of_system = "a " + std::string(system.name) + " symbol";
  if (system.of_field.empty())
    return refused(wrong_symbol, hms,
                   std::to_string(s.field.size()) + (s.field.size() == 1 ? " field" : " fields") +
                       " behind the lattice, " + symbol_of_system + " has " + std::string(system.fields));
  if (!lattice_fits(s, system)) return refused(wrong_symbol, hms, "no such lattice in " + symbol_of_system);
  // "m 3" is the older spelling of "m -3".
  if (system.cubic && s.field[0].plane != 0) s.field[1].inverted = true;

  const lattice48 lattice = system.rhombohedral ? lattice_of('P') : lattice_of(s.lattice);
  std::vector<named_element> names;
  for (std::size_t i = 0; i < s.field.size(); ++i)
    if (!elements_of(s.field[i], system.of_field[i], system, lattice, names))
      return refused(wrong_symbol, hms,
                     "field " + std::to_string(i + 1) + " of " + symbol_of_system + " cannot be " + s.field[i].text);
  const std::vector<std::size_t> generating = generating_elements(names);

  // I 2 2 2 and I 21 21 21 hold the same kinds of elements; the symbol is that of the primitive group to which the
  // centring is added, where there is one (not for diamond glides and the like).
  const lattice48 primitive = lattice_of('P');
  search literal{names, s.field, system.of_field, primitive, {}};
  search centred{names, s.field, system.of_field, lattice, {}};
  std::vector<op48>* found = nullptr;
  if (literal.place(generating, 0) && close(literal.generator, lattice))
    found = &literal.generator;
  else if (centred.place(generating, 0))
    found = &centred.generator;
  if (!found) return refused(wrong_symbol, hms, "no group has just these elements");

  if (s.choice != "1") move_to_centre(*found, lattice);
  generator_set out;
  out.numlat = static_cast<int>(lattice.size());
  for (const op48& g : *found) {
    exact_op op{g.rot, {}};
    for (std::size_t i = 0; i < 3; ++i) op.tr[i] = static_cast<double>(modulo(g.tr[i])) / unit;
    out.generators.push_back(op);
  }
  for (const vector48& c : lattice)
    if (c != vector48{})
      out.generators.push_back(
          {identity,
           {static_cast<double>(c[0]) / unit, static_cast<double>(c[1]) / unit, static_cast<double>(c[2]) / unit}});
  return out;
}

namespace {

/// "4/mmm" in fields: "4/m", "m", "m".
std::vector<std::string> fields_of_point_group(std::string_view pg) {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < pg.size();) {
    std::size_t end = i + (pg[i] == '-' ? 2 : 1);
    if (end < pg.size() && pg[end] == '/') end += 2;
    out.emplace_back(pg.substr(i, end - i));
    i = end;
  }
  return out;
}

}  // namespace

std::vector<symbol_piece> pieces_of_point_group(std::string_view pg, bool rhombohedral_axes) {
  const std::vector<std::string> text = fields_of_point_group(pg);
  std::vector<hm_field> field;
  for (const std::string& t : text) {
    hm_field f;
    if (!field_reader(t).read(f).empty()) return {};
    field.push_back(f);
  }
  const axis_system system = system_of(field, text.size() == 2 ? 'r' : 'p', rhombohedral_axes);
  std::vector<symbol_piece> out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i >= system.of_field.size()) return {};
    std::vector<named_element> names;
    if (!elements_of(field[i], system.of_field[i], system, {vector48{}}, names)) return {};
    if (names.empty()) out.push_back({text[i], identity});
    const std::size_t slash = text[i].find('/');
    for (std::size_t k = 0; k < names.size(); ++k)
      out.push_back({k == 0 ? text[i].substr(0, slash) : text[i].substr(slash), names[k].rot});
  }
  return out;
}

}  // namespace lmix_crystallographic_symmetry::parts

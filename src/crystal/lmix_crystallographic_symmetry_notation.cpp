#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_symmetry_tables.hpp"

// Operators as text: coordinates, symbols of International Tables, Seitz symbols, magnetic parts.
namespace lmix_crystallographic_symmetry {
namespace {

// Solves (R - 1) p = -w for a point of the locus with as many zero coordinates as possible; R - 1 may be singular.
std::array<double, 3> point_of_locus(const matrix3i& rot, const std::array<double, 3>& w) {
  std::array<std::array<double, 4>, 3> a{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) a[i][j] = rot[i][j] - (i == j ? 1 : 0);
    a[i][3] = -w[i];
  }
  // Elimination from the last column to the first leaves the first letters free: x,x+1/2,z and not x-1/2,x,z.
  std::array<int, 3> pivot_of_column{-1, -1, -1};
  std::size_t used = 0;
  for (std::size_t c = 3; c-- > 0 && used < 3;) {
    std::size_t best = used;
    for (std::size_t r = used; r < 3; ++r)
      if (std::abs(a[r][c]) > std::abs(a[best][c])) best = r;
    if (std::abs(a[best][c]) < 1e-9) continue;
    std::swap(a[best], a[used]);
    for (std::size_t r = 0; r < 3; ++r) {
      if (r == used) continue;
      const double f = a[r][c] / a[used][c];
      for (std::size_t k = 0; k < 4; ++k) a[r][k] -= f * a[used][k];
    }
    pivot_of_column[c] = static_cast<int>(used++);
  }
  std::array<double, 3> p{};
  for (std::size_t c = 0; c < 3; ++c)
    if (pivot_of_column[c] >= 0) {
      const auto r = static_cast<std::size_t>(pivot_of_column[c]);
      p[c] = a[r][3] / a[r][c];
    }
  return p;
}

// Sense of the axis that International Tables choose for a row of directions.
std::array<int, 3> conventional_direction(std::array<int, 3> u) {
  const int nonzero = (u[0] != 0) + (u[1] != 0) + (u[2] != 0);
  bool turn;
  if (nonzero == 3) {
    turn = u[0] * u[1] * u[2] < 0;
  } else {
    const int first = u[0] != 0 ? u[0] : u[1] != 0 ? u[1] : u[2];
    turn = first < 0;
    if (u[1] == 0 && u[0] * u[2] < 0) turn = u[0] > 0;  // -x,0,x
  }
  if (turn)
    for (int& e : u) e = -e;
  return u;
}

// Direction whose coordinates are polynomials of the letters: rows give the coefficient of each letter.
std::string locus_text(std::span<const std::array<int, 3>> directions, const std::array<double, 3>& point) {
  constexpr std::string_view letters = "xyz";
  std::string out;
  std::array<std::size_t, 2> letter{};
  for (std::size_t k = 0; k < directions.size(); ++k)
    letter[k] = directions[k][0] != 0 ? 0 : directions[k][1] != 0 ? 1 : 2;
  for (std::size_t i = 0; i < 3; ++i) {
    std::string term;
    for (std::size_t k = 0; k < directions.size(); ++k) {
      const int c = directions[k][i];
      if (c == 0) continue;
      if (c < 0) term += '-';
      if (c > 0 && !term.empty()) term += '+';
      if (std::abs(c) > 1) term += std::to_string(std::abs(c));
      term += letters[letter[k]];
    }
    const std::string shift = parts::fraction_text(point[i]);
    if (term.empty())
      term = shift;
    else if (shift != "0")
      term += (shift[0] == '-' ? "" : "+") + shift;
    out += (i ? "," : "") + term;
  }
  return out;
}

// Two directions that span the plane invariant under a reflection, in the form that the letters ask for.
std::vector<std::array<int, 3>> mirror_directions(const matrix3i& rot) {
  // Columns of 1 + R span the plane; reduce them to an echelon of whole numbers.
  std::vector<std::array<int, 3>> v;
  for (std::size_t j = 0; j < 3; ++j) {
    std::array<int, 3> u{};
    for (std::size_t i = 0; i < 3; ++i) u[i] = rot[i][j] + (i == j ? 1 : 0);
    v.push_back(u);
  }
  std::vector<std::array<int, 3>> echelon;
  for (std::size_t c = 0; c < 3 && echelon.size() < 2; ++c) {
    const auto pivot = std::ranges::find_if(v, [&](const auto& u) { return u[c] != 0; });
    if (pivot == v.end()) continue;
    const std::array<int, 3> p = *pivot;
    v.erase(pivot);
    const auto clear = [&](std::array<int, 3>& u) {
      const int f = u[c];
      for (std::size_t i = 0; i < 3; ++i) u[i] = u[i] * p[c] - p[i] * f;
    };
    for (auto& u : v) clear(u);
    for (auto& u : echelon) clear(u);
    echelon.push_back(p);
  }
  for (auto& u : echelon) {
    const int divisor = std::gcd(std::gcd(u[0], u[1]), u[2]);
    for (int& e : u) e /= divisor;
    u = conventional_direction(u);
  }
  return echelon;
}

std::string vector_text(const std::array<double, 3>& v) {
  return "(" + parts::fraction_text(v[0]) + "," + parts::fraction_text(v[1]) + "," + parts::fraction_text(v[2]) + ")";
}

bool is_zero(const std::array<double, 3>& v) {
  return std::ranges::all_of(v, [](double e) { return std::abs(e) < 1e-4; });
}

// Letter of a reflection with glide vector g in units of the cell.
std::string glide_letter(const std::array<double, 3>& g) {
  if (is_zero(g)) return "m";
  const auto is = [](double v, double to) { return std::abs(std::abs(v) - to) < 1e-4; };
  int halves = 0, quarters = 0;
  for (const double e : g) {
    halves += is(e, 0.5);
    quarters += is(e, 0.25);
  }
  if (quarters >= 2) return "d";
  if (halves == 1 && is(g[0] + g[1] + g[2], 0.5)) return is(g[0], 0.5) ? "a" : is(g[1], 0.5) ? "b" : "c";
  return halves >= 2 && quarters == 0 ? "n" : "g";
}

// "+" or "-": the sense of a rotation seen along its axis u.
std::string rotation_sense(const matrix3i& proper, const std::array<int, 3>& u) {
  // det(u, v, R v) has the sign of the turn for any v off the axis.
  std::array<int, 3> v{1, 0, 0};
  if (u[1] == 0 && u[2] == 0) v = {0, 1, 0};
  std::array<int, 3> r{};
  for (std::size_t i = 0; i < 3; ++i) r[i] = proper[i][0] * v[0] + proper[i][1] * v[1] + proper[i][2] * v[2];
  return determinant(matrix3i{{{u[0], v[0], r[0]}, {u[1], v[1], r[1]}, {u[2], v[2], r[2]}}}) > 0 ? "+" : "-";
}

}  // namespace

std::string get_symsymbi(const matrix3i& rot, const vector3& t) {
  std::string out;
  for (std::size_t i = 0; i < 3; ++i) {
    std::string term;
    for (std::size_t j = 0; j < 3; ++j) {
      const int c = rot[i][j];
      if (c == 0) continue;
      if (c < 0) term += '-';
      if (c > 0 && !term.empty()) term += '+';
      if (std::abs(c) > 1) term += std::to_string(std::abs(c));
      term += static_cast<char>('x' + j);
    }
    const std::string shift = parts::fraction_text(static_cast<double>(t[i]));
    if (term.empty())
      term = shift;
    else if (shift != "0")
      term += (shift[0] == '-' ? "" : "+") + shift;
    out += (i ? "," : "") + term;
  }
  return out;
}

std::string get_symsymbr(const std::array<std::array<float, 3>, 3>& rot, const vector3& t) {
  parts::affine a;
  for (std::size_t i = 0; i < 3; ++i) {
    a.t[i] = static_cast<double>(t[i]);
    for (std::size_t j = 0; j < 3; ++j) a.m[i][j] = static_cast<double>(rot[i][j]);
  }
  return parts::affine_text(a, true);
}

std::string symmetry_symbol_op(const sym_oper_type& op) {
  const int type = parts::rotation_type(op.rot);
  const std::array<double, 3> t{static_cast<double>(op.tr[0]), static_cast<double>(op.tr[1]),
                                static_cast<double>(op.tr[2])};
  if (type == 0) return "?";
  if (type == 1) return is_zero(t) ? "1" : "t " + vector_text(t);
  if (type == -1) return "-1 " + locus_text({}, point_of_locus(op.rot, t));
  if (type == -2) {
    const std::array<double, 3> g = intrinsic_translation(op);
    const std::string kind = glide_letter(g);
    const bool named = kind == "m" || kind == "a" || kind == "b" || kind == "c";
    const std::array<double, 3> w{t[0] - g[0], t[1] - g[1], t[2] - g[2]};
    return kind + " " + (named ? "" : vector_text(g) + " ") +
           locus_text(mirror_directions(op.rot), point_of_locus(op.rot, w));
  }
  const matrix3i proper = type < 0 ? parts::negated(op.rot) : op.rot;
  const std::array<std::array<int, 3>, 1> axis{conventional_direction(parts::rotation_axis(op.rot))};
  std::string out = std::to_string(type) + (type == 2 ? "" : rotation_sense(proper, axis[0])) + " ";
  if (type < 0) {
    const std::array<double, 3> centre = point_of_locus(op.rot, t);
    // The axis runs through the inversion point; told by the point of it where its own letter is 0.
    std::array<double, 3> on_axis = centre;
    const std::size_t letter = axis[0][0] != 0 ? 0 : axis[0][1] != 0 ? 1 : 2;
    for (std::size_t i = 0; i < 3; ++i) on_axis[i] -= centre[letter] * axis[0][i] / axis[0][letter];
    return out + locus_text(axis, on_axis) + "; " + locus_text({}, centre);
  }
  const std::array<double, 3> screw = intrinsic_translation(op);
  const std::array<double, 3> w{t[0] - screw[0], t[1] - screw[1], t[2] - screw[2]};
  return out + (is_zero(screw) ? "" : vector_text(screw) + " ") + locus_text(axis, point_of_locus(op.rot, w));
}

std::string symmetry_symbol_str(const matrix3i& rot, const vector3& t) { return symmetry_symbol_op({rot, t}); }

std::string symmetry_symbol_xyz(std::string_view text) {
  sym_oper_type op;
  return read_xsym(text, 0, op) ? std::string() : symmetry_symbol_op(op);
}

std::string get_shubnikov_operator_symbol(const sym_oper_type& op, int time_inv) {
  std::string out = symmetry_symbol_op(op);
  if (time_inv < 0) out.insert(std::min(out.find(' '), out.size()), "'");
  return out;
}

std::string get_seitz(const matrix3i& rot, int time_inv) {
  const int type = parts::rotation_type(rot);
  if (type == 0) return "?";
  std::string out = type == -2 ? "m" : std::to_string(type);
  if (std::abs(type) > 1) {
    const std::array<int, 3> axis = conventional_direction(parts::rotation_axis(rot));
    if (std::abs(type) > 2) out += rotation_sense(type < 0 ? parts::negated(rot) : rot, axis);
    out += '_';
    for (const int e : axis) out += std::to_string(e);
  }
  return time_inv < 0 ? out + "'" : out;
}

std::string get_seitz_symbol(const sym_oper_type& op, int time_inv) {
  const std::string t = get_transl_symbol(op.tr);
  return "{" + get_seitz(op.rot, time_inv) + "|" + t.substr(1, t.size() - 2) + "}";
}

int get_symkov(const matrix3i& rot) {
  for (const auto& row : lmix_symmetry_tables::point_operations()) {
    bool same = row.kovalev != 0;
    for (std::size_t k = 0; k < 9; ++k) same = same && rot[k / 3][k % 3] == row.rot[k];
    if (same) return row.kovalev;
  }
  return 0;
}

std::string get_transl_symbol(const vector3& t) {
  return "(" + parts::fraction_text(static_cast<double>(t[0])) + "," + parts::fraction_text(static_cast<double>(t[1])) +
         "," + parts::fraction_text(static_cast<double>(t[2])) + ")";
}

symmetry_element get_symel(const sym_oper_type& op) {
  symmetry_element out;
  out.order = parts::rotation_type(op.rot);
  if (out.order == 0) return out;
  std::array<double, 3> t{};
  for (std::size_t i = 0; i < 3; ++i) t[i] = static_cast<double>(op.tr[i]);
  const bool has_direction = std::abs(out.order) > 1;
  if (has_direction) out.direction = conventional_direction(parts::rotation_axis(op.rot));
  out.along = intrinsic_translation(op);
  if (out.order == 1) {
    out.symbol = is_zero(t) ? "1" : "t";
    return out;
  }
  out.location = point_of_locus(op.rot, {t[0] - out.along[0], t[1] - out.along[1], t[2] - out.along[2]});
  if (out.order == -2) {
    out.symbol = glide_letter(out.along);
    return out;
  }
  out.symbol = std::to_string(out.order);
  if (out.order < 0 || is_zero(out.along)) return out;
  // The pitch in units of the edge along the axis, for the turn in the positive sense.
  const std::size_t i = out.direction[0] != 0 ? 0 : out.direction[1] != 0 ? 1 : 2;
  double pitch = out.along[i] / out.direction[i] * out.order;
  if (rotation_sense(op.rot, out.direction) == "-" && out.order > 2) pitch = -pitch;
  const long screw = std::lround(pitch);
  const long reduced = (screw % out.order + out.order) % out.order;
  if (std::abs(pitch - static_cast<double>(screw)) < 1e-3 && reduced != 0) out.symbol += std::to_string(reduced);
  return out;
}

namespace {

std::string turned_letters(const matrix3i& rot, std::span<const std::string_view> letters) {
  std::string out;
  for (std::size_t i = 0; i < 3; ++i) {
    std::string row;
    for (std::size_t j = 0; j < 3; ++j) {
      const int c = rot[i][j];
      if (c == 0) continue;
      row += c < 0 ? "-" : row.empty() ? "" : "+";
      if (std::abs(c) > 1) row += std::to_string(std::abs(c));
      row += letters[j];
    }
    out += (i ? "," : "") + (row.empty() ? std::string("0") : row);
  }
  return out;
}

}  // namespace

std::string get_msymm(const msym_oper_type& op) {
  constexpr std::string_view letters[] = {"u", "v", "w"};
  char phase[32];
  std::snprintf(phase, sizeof phase, ",%.4f", static_cast<double>(op.phase));
  return turned_letters(op.rot, letters) + phase;
}

std::string get_magsymb(const matrix3i& rot) {
  constexpr std::string_view letters[] = {"mx", "my", "mz"};
  return turned_letters(rot, letters);
}

std::string get_depsymb(const matrix3i& rot) {
  constexpr std::string_view letters[] = {"dx", "dy", "dz"};
  return turned_letters(rot, letters);
}

}  // namespace lmix_crystallographic_symmetry

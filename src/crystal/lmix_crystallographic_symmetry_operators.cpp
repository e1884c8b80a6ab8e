#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_symmetry_tables.hpp"

namespace lmix_crystallographic_symmetry {
namespace parts {

matrix3i negated(const matrix3i& m) {
  matrix3i out = m;
  for (auto& row : out)
    for (auto& e : row) e = -e;
  return out;
}

matrix3i product(const matrix3i& a, const matrix3i& b) {
  matrix3i c{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) c[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
  return c;
}

exact_op product(const exact_op& a, const exact_op& b) {
  exact_op c{product(a.rot, b.rot), a.tr, a.time_inv * b.time_inv};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) c.tr[i] += a.rot[i][j] * b.tr[j];
  reduce(c);
  return c;
}

void reduce(exact_op& op) {
  for (double& t : op.tr) {
    t -= std::floor(t);
    if (t > 1.0 - 1e-6 || t < 1e-6) t = 0.0;
  }
}

void snap(exact_op& op, double rounding) {
  for (double& t : op.tr) {
    const double grid = std::round(t * 24.0) / 24.0;
    if (std::abs(t - grid) < rounding) t = grid;
  }
  reduce(op);
}

bool equal(const exact_op& a, const exact_op& b) {
  if (a.rot != b.rot || a.time_inv != b.time_inv) return false;
  for (std::size_t i = 0; i < 3; ++i) {
    const double d = a.tr[i] - b.tr[i];
    if (std::abs(d - std::round(d)) > translation_tolerance) return false;
  }
  return true;
}

bool is_new_op(const exact_op& op, std::span<const exact_op> known) {
  return std::ranges::none_of(known, [&](const exact_op& e) { return equal(e, op); });
}

exact_op exact(const sym_oper_type& op, double rounding) {
  exact_op out{op.rot, {}};
  for (std::size_t i = 0; i < 3; ++i) out.tr[i] = static_cast<double>(op.tr[i]);
  snap(out, rounding);
  return out;
}

sym_oper_type rounded(const exact_op& op) {
  sym_oper_type out{op.rot, {}};
  exact_op clean = op;
  snap(clean);
  for (std::size_t i = 0; i < 3; ++i) out.tr[i] = static_cast<float>(clean.tr[i]);
  return out;
}

closed_group close_group(std::span<const exact_op> generators) {
  closed_group g;
  std::vector<exact_op>& element = g.element;
  const auto add_if_new = [&](const exact_op& op) {
    if (is_new_op(op, element)) element.push_back(op);
    return element.size() <= max_order;
  };
  // A whole matrix of finite order has entries of at most a few units on any axes in use.
  const auto bounded = [](const matrix3i& m) {
    return std::ranges::all_of(
        m, [](const auto& r) { return std::ranges::all_of(r, [](int e) { return std::abs(e) < 100; }); });
  };
  element.emplace_back();
  for (std::size_t ig = 0; ig < generators.size(); ++ig) {
    const exact_op& generator = generators[ig];
    const std::size_t old = element.size();
    for (std::size_t i = 0; i < element.size(); ++i)
      // Elements of the subgroup closed so far need the new generator only.
      for (std::size_t k = i < old ? ig : 0; k <= ig; ++k) {
        const exact_op p = product(generators[k], element[i]);
        if (!bounded(p.rot) || !add_if_new(p)) return {};
      }
    if (element.size() > old && generator.rot != identity && generator.rot != negated(identity)) ++g.num_gen;
  }
  return g;
}

std::string fraction_text(double v, bool exact) {
  const double tolerance = exact ? rounding_of_records : 1e-4;
  for (int den = 1; den <= 24; ++den) {
    const double num = std::round(v * den);
    if (std::abs(v * den - num) > tolerance * den) continue;
    std::string text = std::to_string(static_cast<int>(num));
    return den == 1 ? text : text + "/" + std::to_string(den);
  }
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, exact ? "%.6f" : "%.4f", v);
  return buffer;
}

int rotation_type(const matrix3i& rot) {
  constexpr int order_of_trace[] = {2, 3, 4, 6, 1};  // -1, 0, 1, 2, 3
  const int det = determinant(rot);
  const int trace = det * (rot[0][0] + rot[1][1] + rot[2][2]);
  if (std::abs(det) != 1 || trace < -1 || trace > 3) return 0;
  const int order = order_of_trace[trace + 1];
  // A shear has the trace of a rotation too, but is of infinite order.
  const matrix3i proper = det < 0 ? negated(rot) : rot;
  matrix3i power = proper;
  for (int k = 1; k < order; ++k) power = product(power, proper);
  return power == identity ? det * order : 0;
}

std::array<int, 3> rotation_axis(const matrix3i& rot) {
  const int type = rotation_type(rot);
  const matrix3i proper = type < 0 ? negated(rot) : rot;
  if (std::abs(type) < 2) return {};
  // The sum of the powers of a rotation projects on its axis.
  matrix3i sum{}, power = identity;
  for (int k = 0; k < std::abs(type); ++k) {
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) sum[i][j] += power[i][j];
    power = product(power, proper);
  }
  for (std::size_t j = 0; j < 3; ++j) {
    std::array<int, 3> u{sum[0][j], sum[1][j], sum[2][j]};
    const int divisor = std::gcd(std::gcd(u[0], u[1]), u[2]);
    if (divisor == 0) continue;
    for (int& e : u) e /= divisor;
    return u;
  }
  return {};
}

}  // namespace parts

namespace {

err_symm_type failure(std::string text) { return {true, std::move(text)}; }

// A number under way: "12", "0.5", "1/3".
struct number_reader {
  double value = 0.0, decimal = 0.0, denominator = 0.0;
  bool any = false, in_denominator = false;

  void digit(int d) {
    any = true;
    if (in_denominator) {
      denominator = denominator * 10.0 + d;
    } else if (decimal > 0.0) {
      value += d * decimal;
      decimal *= 0.1;
    } else {
      value = value * 10.0 + d;
    }
  }
  // False where a point or a slash makes no sense.
  bool point() { return !in_denominator && decimal == 0.0 ? (decimal = 0.1, true) : false; }
  bool slash() { return any && !in_denominator ? (in_denominator = true, true) : false; }
  bool complete() const { return !in_denominator || denominator > 0.0; }
  double result() const { return in_denominator ? value / denominator : value; }
};

err_symm_type invalid_character(char c, std::string_view text) {
  return failure(std::string(" Invalid character... ") + c + " in operator string" + (text.empty() ? "" : ": ") +
                 std::string(text));
}

// Reads the terms of one field: numbers, and letters with a number before ("2x", "1/2x") or a divisor behind ("x/2").
// One sign stands between two terms, and one may stand before the first.
class field_reader {
 public:
  field_reader(char first_letter, std::array<double, 3>& row, double& translation)
      : first_(first_letter), row_(row), translation_(translation) {}

  bool take(char c) {
    const int letter = std::tolower(static_cast<unsigned char>(c)) - first_;
    if (letter >= 0 && letter < 3) return take_letter(letter);
    if (c == '+' || c == '-') return take_sign(c == '-' ? -1.0 : 1.0);
    if (std::isdigit(static_cast<unsigned char>(c))) {
      if (letter_ >= 0 && !number_.in_denominator) return false;
      number_.digit(c - '0');
      return true;
    }
    return c == '.' ? letter_ < 0 && number_.point() : c == '/' && number_.slash();
  }
  /// Adds the term under way; false when its divisor is missing.
  bool end_term() {
    if (number_.any) {
      content_ = true;
      (letter_ < 0 ? translation_ : row_[static_cast<std::size_t>(letter_)]) += sign_ * number_.result();
    }
    const bool complete = number_.complete();
    number_ = {};
    letter_ = -1;
    sign_ = 1.0;
    return complete;
  }
  bool content() const { return content_; }

 private:
  bool take_letter(int letter) {
    if (!number_.complete() || letter_ >= 0) return false;
    letter_ = letter;
    if (!number_.any) number_.digit(1);
    return true;
  }
  bool take_sign(double sign) {
    if (!number_.any && signed_) return false;
    const bool complete = end_term();
    sign_ = sign;
    signed_ = true;
    return complete;
  }

  char first_;
  std::array<double, 3>& row_;
  double& translation_;
  double sign_ = 1.0;
  bool signed_ = false;  // a sign was read: the next one needs a term before it
  int letter_ = -1;      // letter of the term under way, -1: none yet
  number_reader number_;
  bool content_ = false;
};

err_symm_type read_field(std::string_view field, std::string_view text, char first, std::array<double, 3>& row,
                         double& translation) {
  field_reader reader(first, row, translation);
  char last = ' ';
  for (const char c : field) {
    if (c == ' ' || c == '\t') continue;
    if (!reader.take(c)) return invalid_character(c, text);
    last = c;
  }
  if (!reader.end_term() || last == '+' || last == '-') return invalid_character(last, text);
  if (!reader.content()) return failure(" Blank operator field");
  return {};
}

}  // namespace

namespace parts {

err_symm_type read_affine(std::string_view text, affine& out, char first) {
  out = {};
  out.m = {};
  std::size_t start = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    if (start > text.size()) return failure(" Blank operator field");
    const std::size_t end = std::min(text.find_first_of(",*", start), text.size());
    if (auto err = read_field(text.substr(start, end - start), text, first, out.m[i], out.t[i])) return err;
    start = end + 1;
  }
  if (start <= text.size() && text.find_first_not_of(" \t", start - 1) != std::string_view::npos)
    return invalid_character(text[start - 1], text);
  return {};
}

bool whole(const affine& a, exact_op& op, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      const double e = a.m[i][j];
      if (!(std::abs(e - std::round(e)) <= tolerance) || std::abs(e) > 99.0) return false;
      op.rot[i][j] = static_cast<std::int32_t>(std::lround(e));
    }
    op.tr[i] = a.t[i];
  }
  return true;
}

}  // namespace parts

namespace {

// The operator as read: its translation is not reduced. False when the matrix holds a number that is not whole.
bool as_read(const parts::affine& text, sym_oper_type& op) {
  parts::exact_op e;
  if (!parts::whole(text, e)) return false;
  op.rot = e.rot;
  for (std::size_t i = 0; i < 3; ++i) op.tr[i] = static_cast<float>(e.tr[i]);
  return true;
}

}  // namespace

int determinant(const matrix3i& m) {
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

err_symm_type read_xsym(std::string_view info, std::size_t istart, sym_oper_type& op, bool ctrl) {
  if (istart > info.size()) return failure(" Blank operator field");
  const std::string_view text = info.substr(istart);
  parts::affine t;
  if (auto err = parts::read_affine(text, t)) return err;
  sym_oper_type read;
  if (!as_read(t, read) || (ctrl && determinant(read.rot) == 0))
    return failure(" The above operator is wrong: " + std::string(text));
  op = read;
  return {};
}

err_symm_type check_generator(std::string_view gen, sym_oper_type& op) {
  parts::affine t;
  if (auto err = parts::read_affine(gen, t)) return err;
  sym_oper_type read;
  if (!as_read(t, read)) return failure("The matrix corresponding to a generator has non-integer values!");
  if (std::abs(determinant(read.rot)) != 1)
    return failure("The matrix corresponding to a generator has a determinant with absolute value different of 1.0");
  op = read;
  return {};
}

err_symm_type read_msymm(std::string_view info, msym_oper_type& op, bool ctrl) {
  std::string text(info);
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string::npos) return failure(" Blank operator field");
  text.erase(0, start);
  if (text.starts_with("msym ") || text.starts_with("dsym ")) text.erase(0, 5);
  // The phase stands behind the third comma; a triplet alone has none.
  const std::size_t last = text.rfind(',');
  const bool has_phase = std::ranges::count(text, ',') > 2;
  msym_oper_type read;
  if (has_phase) {
    const float phase = std::strtof(text.c_str() + last + 1, nullptr);
    if (std::isfinite(phase)) read.phase = phase;
    text.erase(last);
  }
  const auto wrong = [&] { return failure(" The above operator is wrong: " + std::string(info)); };
  if (std::ranges::count(text, ',') > 2) return wrong();
  parts::affine a;
  if (auto err = parts::read_affine(text, a, 'u')) return err;
  parts::exact_op e;
  const bool shifted = std::ranges::any_of(a.t, [](double t) { return t != 0.0; });
  if (shifted || !parts::whole(a, e) || (ctrl && determinant(e.rot) == 0)) return wrong();
  read.rot = e.rot;
  op = read;
  return {};
}

std::array<double, 3> intrinsic_translation(const sym_oper_type& op) {
  const int type = parts::rotation_type(op.rot);
  // (R, t) taken to the order of R is a pure translation; rotoinversions of odd order need twice as many powers.
  const int order = type < 0 && type % 2 != 0 ? -2 * type : std::max(std::abs(type), 1);
  std::array<double, 3> w{};
  matrix3i power = parts::identity;
  for (int k = 0; k < order; ++k) {
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) w[i] += power[i][j] * static_cast<double>(op.tr[j]) / order;
    power = parts::product(power, op.rot);
  }
  return w;
}

vector3 applyso(const sym_oper_type& op, const vector3& v) {
  vector3 out = op.tr;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) out[i] += static_cast<float>(op.rot[i][j]) * v[j];
  return out;
}

sym_oper_type sym_prod(const sym_oper_type& a, const sym_oper_type& b) {
  return parts::rounded(parts::product(parts::exact(a), parts::exact(b)));
}

sym_oper_type product_symop(const sym_oper_type& a, const sym_oper_type& b) {
  return {parts::product(a.rot, b.rot), applyso(a, b.tr)};
}

vector3 modulo_lat(const vector3& t) {
  vector3 out = t;
  for (float& e : out) {
    e -= std::floor(e);
    if (e > 1.f - 1e-6f) e = 0.f;
  }
  return out;
}

bool equal_symop(const sym_oper_type& a, const sym_oper_type& b) {
  return a.rot == b.rot && lattice_trans({a.tr[0] - b.tr[0], a.tr[1] - b.tr[1], a.tr[2] - b.tr[2]}, 'P');
}

bool equiv_symop(const sym_oper_type& a, const sym_oper_type& b, std::span<const vector3> latt_trans) {
  return a.rot == b.rot && lattice_trans({a.tr[0] - b.tr[0], a.tr[1] - b.tr[1], a.tr[2] - b.tr[2]}, latt_trans);
}

int searchop(const matrix3i& rot, int first, int last) {
  const auto table = lmix_symmetry_tables::point_operations();
  const int det = determinant(rot);
  for (int number = std::max(first, 1); number <= std::min(last, 36); ++number) {
    const std::size_t row = static_cast<std::size_t>(number <= 24 ? number - 1 : 48 + number - 25);
    bool same = true;
    for (std::size_t k = 0; k < 9; ++k) same = same && rot[k / 3][k % 3] * det == table[row].rot[k];
    if (same) return det < 0 ? -number : number;
  }
  return 0;
}

std::vector<vector3> latsym(char symb) {
  constexpr float h = 0.5f, t = 1.f / 3.f, u = 2.f / 3.f;
  constexpr vector3 o{};
  switch (std::toupper(static_cast<unsigned char>(symb))) {
    case 'P':
      return {o};
    case 'A':
      return {o, {0, h, h}};
    case 'B':
      return {o, {h, 0, h}};
    case 'C':
      return {o, {h, h, 0}};
    case 'I':
      return {o, {h, h, h}};
    case 'R':
      return {o, {u, t, t}, {t, u, u}};
    case 'F':
      return {o, {0, h, h}, {h, 0, h}, {h, h, 0}};
    case 'S':
      return {o, {t, t, u}, {u, u, t}};
    case 'T':
      return {o, {t, u, t}, {u, t, u}};
    case 'H':
      return {o, {u, t, 0}, {t, u, 0}};
    default:
      return {};
  }
}

bool lattice_trans(const vector3& v, std::span<const vector3> latt_trans) {
  return std::ranges::any_of(latt_trans, [&](const vector3& c) {
    for (std::size_t i = 0; i < 3; ++i) {
      const float d = v[i] - c[i];
      if (!(std::abs(d - std::round(d)) <= position_tolerance)) return false;
    }
    return true;
  });
}

bool lattice_trans(const vector3& v, char lat) { return lattice_trans(v, latsym(lat)); }

}  // namespace lmix_crystallographic_symmetry

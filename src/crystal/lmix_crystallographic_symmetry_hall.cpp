#include <cctype>
#include <cstdlib>

#include "lmix_crystallographic_symmetry_parts.hpp"

// Hall symbols: S. R. Hall, Acta Cryst. A37 (1981) 517-525; International Tables for Crystallography Vol. B (2001),
// A1.4.2.
namespace lmix_crystallographic_symmetry::parts {
namespace {

generator_set refused(std::string_view words, std::string_view hall) {
  return {{true, std::string(words) + std::string(hall)}, {}, 0};
}

constexpr std::string_view wrong_symbol = " Wrong space-group symbol: ";
constexpr std::string_view wrong_axes = " Axes rotation wrong: ";
constexpr std::string_view wrong_screw = " not allowed Screw axis: ";

/// One operator field: [-] N [axis] [translations].
struct hall_field {
  bool improper = false;
  int order = 0;  // 1 2 3 4 6
  char axis = 0;  // x y z ' " * or 0: by default
  int screw = 0;
  int twelfths[3] = {0, 0, 0};
};

/// Rotation about z by 2 pi / order.
matrix3i rotation_z(int order) {
  switch (order) {
    case 2:
      return {{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}};
    case 3:
      return {{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}};
    case 4:
      return {{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}};
    case 6:
      return {{{1, -1, 0}, {1, 0, 0}, {0, 0, 1}}};
    default:
      return identity;
  }
}

/// The same matrix with the axes renamed so that z becomes axis `to` (0 x, 1 y, 2 z), in cyclic order.
matrix3i renamed(const matrix3i& m, std::size_t to) {
  matrix3i out{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) out[(i + to + 1) % 3][(j + to + 1) % 3] = m[i][j];
  return out;
}

constexpr matrix3i diagonal_threefold{{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}};
/// Twofold axes along a - b (') and a + b (").
constexpr matrix3i diagonal_minus{{{0, -1, 0}, {-1, 0, 0}, {0, 0, -1}}};
constexpr matrix3i diagonal_plus{{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}};

/// Reads one field; false with the words of the fault in `fault`.
bool read_field(std::string_view text, hall_field& f, std::string_view& fault) {
  fault = wrong_symbol;
  std::size_t i = 0;
  if (i < text.size() && text[i] == '-') {
    f.improper = true;
    ++i;
  }
  if (i >= text.size() || std::string_view("12346").find(text[i]) == std::string_view::npos) return false;
  f.order = text[i++] - '0';
  for (; i < text.size(); ++i) {
    const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    switch (c) {
      case 'x':
      case 'y':
      case 'z':
      case '\'':
      case '"':
      case '*':
        if (f.axis != 0) return fault = wrong_axes, false;
        f.axis = c;
        break;
      case 'a':
        f.twelfths[0] += 6;
        break;
      case 'b':
        f.twelfths[1] += 6;
        break;
      case 'c':
        f.twelfths[2] += 6;
        break;
      case 'n':
        for (int& t : f.twelfths) t += 6;
        break;
      case 'u':
        f.twelfths[0] += 3;
        break;
      case 'v':
        f.twelfths[1] += 3;
        break;
      case 'w':
        f.twelfths[2] += 3;
        break;
      case 'd':
        for (int& t : f.twelfths) t += 3;
        break;
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
        f.screw = c - '0';
        if (f.screw >= f.order || f.improper) return fault = wrong_screw, false;
        break;
      default:
        return false;
    }
  }
  return true;
}

/// Fills in the axis that the symbol leaves out: z first; then a for a twofold axis behind 2 or 4 and a - b behind 3 or
/// 6; the body diagonal for a threefold axis in the third place.
bool default_axis(hall_field& f, std::size_t place, int previous_order) {
  if (f.axis != 0 || f.order == 1) return true;
  if (place == 0)
    f.axis = 'z';
  else if (f.order == 2 && place == 1)
    f.axis = previous_order == 2 || previous_order == 4 ? 'x' : '\'';
  else if (f.order == 3 && place == 2)
    f.axis = '*';
  return f.axis != 0;
}

/// The operator of a complete field; `frame` is the last axis along x, y or z (0..2), to which ' and " refer.
std::optional<exact_op> operator_of(const hall_field& f, std::size_t& frame) {
  exact_op op;
  switch (f.axis) {
    case 0:
      break;
    case '*':
      if (f.order != 3) return {};
      op.rot = diagonal_threefold;
      frame = 2;
      break;
    case '\'':
    case '"':
      if (f.order != 2) return {};
      op.rot = renamed(f.axis == '"' ? diagonal_plus : diagonal_minus, frame);
      break;
    default:
      frame = static_cast<std::size_t>(f.axis - 'x');
      op.rot = renamed(rotation_z(f.order), frame);
  }
  for (std::size_t i = 0; i < 3; ++i) op.tr[i] = f.twelfths[i] / 12.0;
  if (f.screw != 0) {
    if (f.axis < 'x') return {};
    op.tr[frame] += static_cast<double>(f.screw) / f.order;
  }
  if (f.improper) op.rot = negated(op.rot);
  reduce(op);
  return op;
}

/// "(nx ny nz)" in twelfths.
bool read_shift(std::string_view text, std::array<double, 3>& shift) {
  const std::string inside(text);
  const char* at = inside.c_str();
  for (double& s : shift) {
    char* end = nullptr;
    const long n = std::strtol(at, &end, 10);
    if (end == at || std::abs(n) > 1200) return false;
    s = static_cast<double>(n) / 12.0;
    at = end;
  }
  while (*at == ' ') ++at;
  return *at == '\0';
}

std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> fields;
  std::size_t i = 0;
  while ((i = text.find_first_not_of(" \t_", i)) != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(" \t_", i), text.size());
    fields.push_back(text.substr(i, end - i));
    i = end;
  }
  return fields;
}

/// What stands in the brackets: "(nx ny nz)" in twelfths, or the new coordinates "(x-y,x+y,z+1/8)".
bool read_change(std::string_view text, affine& v) {
  if (text.find(',') == std::string_view::npos) return read_shift(text, v.t);
  return !read_affine(text, v).err_symm && inverse(v);
}

std::vector<vector3> lattice_of(std::string_view letter) {
  return letter.size() == 1 ? latsym(letter[0]) : std::vector<vector3>{};
}

}  // namespace

generator_set get_so_from_hall(std::string_view hall) {
  affine change;
  std::string_view body = hall;
  if (const std::size_t open = hall.find('('); open != std::string_view::npos) {
    const std::size_t close = hall.find(')', open);
    if (close == std::string_view::npos || hall.find_first_not_of(' ', close + 1) != std::string_view::npos ||
        !read_change(hall.substr(open + 1, close - open - 1), change))
      return refused(wrong_symbol, hall);
    body = hall.substr(0, open);
  }
  const std::vector<std::string_view> fields = split(body);
  if (fields.size() < 2 || fields.size() > 5) return refused(wrong_symbol, hall);

  std::string_view lattice = fields[0];
  const bool centric = lattice[0] == '-';
  if (centric) lattice.remove_prefix(1);
  const std::vector<vector3> centring = lattice_of(lattice);
  if (centring.empty()) return refused(wrong_symbol, hall);

  std::vector<exact_op> op;
  std::size_t frame = 2;
  int previous_order = 1;
  for (std::size_t place = 0; place + 1 < fields.size(); ++place) {
    hall_field f;
    std::string_view fault;
    if (!read_field(fields[place + 1], f, fault)) return refused(fault, hall);
    if (!default_axis(f, place, previous_order)) return refused(wrong_axes, hall);
    const std::optional<exact_op> e = operator_of(f, frame);
    if (!e) return refused(f.screw != 0 ? wrong_screw : wrong_axes, hall);
    previous_order = f.order;
    op.push_back(*e);
  }
  if (centric) op.push_back({negated(identity), {}});
  const auto on_axes = change_axes(op, centring, change);
  const auto changed = whole_operators(on_axes);
  if (!changed) return refused(wrong_symbol, hall);
  return {{}, *changed, static_cast<int>(on_axes->centring.size())};
}

}  // namespace lmix_crystallographic_symmetry::parts

#include <algorithm>
#include <cmath>

#include "lmix_crystallographic_symmetry_parts.hpp"

// Changes of axes: International Tables for Crystallography Vol. A, "Transformations of the coordinate system".
namespace lmix_crystallographic_symmetry::parts {
namespace {

using real3 = std::array<double, 3>;

/// Matrix elements and lattice vectors on other axes come out of divisions.
constexpr double rounding = 1.0e-4;

real3 times(const std::array<real3, 3>& m, const real3& v) {
  real3 out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
  return out;
}

bool is_lattice_vector(const real3& v, std::span<const vector3> centring) {
  return lattice_trans({static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])}, centring);
}

/// Lattice points of the old lattice in one cell of the new one, zero first.
std::optional<std::vector<real3>> points_in_cell(std::span<const vector3> centring, const affine& v,
                                                 const affine& back) {
  constexpr double largest_cell = 200.0;  // times the old one
  std::array<int, 3> low{}, high{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      if (!(std::abs(back.m[i][j]) < largest_cell)) return {};
      (back.m[i][j] < 0 ? low : high)[i] += static_cast<int>(std::floor(back.m[i][j]) + (back.m[i][j] < 0 ? 0 : 1));
    }
  const double volume = std::abs(affine_determinant(back));
  if (volume > largest_cell) return {};
  std::vector<real3> points{real3{}};
  for (int x = low[0] - 1; x <= high[0]; ++x)
    for (int y = low[1] - 1; y <= high[1]; ++y)
      for (int z = low[2] - 1; z <= high[2]; ++z)
        for (const vector3& c : centring) {
          const real3 old{x + static_cast<double>(c[0]), y + static_cast<double>(c[1]), z + static_cast<double>(c[2])};
          const real3 p = times(v.m, old);
          const bool inside = std::ranges::all_of(p, [](double e) { return e > -rounding && e < 1.0 - rounding; });
          const bool origin = std::ranges::all_of(p, [](double e) { return std::abs(e) < rounding; });
          if (inside && !origin) points.push_back(p);
        }
  const auto expected = std::lround(volume * static_cast<double>(centring.size()));
  if (static_cast<long>(points.size()) != expected) return {};
  return points;
}

}  // namespace

affine product(const affine& a, const affine& b) {
  affine c;
  c.m = {};
  c.t = times(a.m, b.t);
  for (std::size_t i = 0; i < 3; ++i) {
    c.t[i] += a.t[i];
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k) c.m[i][j] += a.m[i][k] * b.m[k][j];
  }
  return c;
}

double affine_determinant(const affine& a) {
  const auto& m = a.m;
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

std::optional<affine> inverse(const affine& a) {
  const double det = affine_determinant(a);
  if (!(std::abs(det) > 1e-9)) return {};
  affine out;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      const std::size_t r = (j + 1) % 3, s = (j + 2) % 3, p = (i + 1) % 3, q = (i + 2) % 3;
      out.m[i][j] = (a.m[r][p] * a.m[s][q] - a.m[r][q] * a.m[s][p]) / det;
    }
  const real3 t = times(out.m, a.t);
  out.t = {-t[0], -t[1], -t[2]};
  return out;
}

std::string affine_text(const affine& a, bool fraction_in_front) {
  const auto term = [&](double size, char letter) {
    if (std::abs(size - 1.0) < rounding) return std::string(1, letter);
    const std::string text = fraction_text(size, true);
    const std::size_t slash = text.find('/');
    if (fraction_in_front || slash == std::string::npos) return text + letter;
    const std::string numerator = text.substr(0, slash);
    return (numerator == "1" ? "" : numerator) + letter + text.substr(slash);
  };
  std::string out;
  for (std::size_t i = 0; i < 3; ++i) {
    std::string row;
    for (std::size_t j = 0; j < 3; ++j) {
      const double c = a.m[i][j];
      if (std::abs(c) < rounding) continue;
      row += c < 0 ? "-" : row.empty() ? "" : "+";
      row += term(std::abs(c), static_cast<char>('x' + j));
    }
    const std::string shift = fraction_text(a.t[i], true);
    if (row.empty())
      row = shift;
    else if (shift != "0")
      row += (shift[0] == '-' ? "" : "+") + shift;
    out += (i ? "," : "") + row;
  }
  return out;
}

std::optional<changed_axes> change_axes(std::span<const exact_op> op, std::span<const vector3> centring,
                                        const affine& v) {
  const auto back = inverse(v);
  if (!back) return {};
  // The new axes in the old coordinates must be translations of the lattice.
  for (std::size_t j = 0; j < 3; ++j)
    if (!is_lattice_vector({back->m[0][j], back->m[1][j], back->m[2][j]}, centring)) return {};
  const auto points = points_in_cell(centring, v, *back);
  if (!points) return {};
  changed_axes out{{}, *points};
  for (const exact_op& e : op) {
    affine old;
    old.t = e.tr;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) old.m[i][j] = e.rot[i][j];
    out.op.push_back(product(v, product(old, *back)));
  }
  return out;
}

std::optional<std::vector<exact_op>> whole_operators(const std::optional<changed_axes>& changed) {
  if (!changed) return {};
  std::vector<exact_op> out;
  for (const affine& a : changed->op) {
    exact_op e;
    if (!whole(a, e, rounding)) return {};
    snap(e);
    out.push_back(e);
  }
  for (std::size_t i = 1; i < changed->centring.size(); ++i) {
    exact_op e{identity, changed->centring[i]};
    snap(e);
    out.push_back(e);
  }
  return out;
}

}  // namespace lmix_crystallographic_symmetry::parts

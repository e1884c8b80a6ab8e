// Changes of the cell and the quadratic form of 1/d^2.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "lmix_crystal_metrics.hpp"

namespace lmix_crystal_metrics {

using namespace lmix_math_general;

namespace {

bool positive_definite(const mat3d& g) {
  return g[0][0] > 0 && g[0][0] * g[1][1] - g[0][1] * g[1][0] > 0 && determinant(g) > 0 && inverse(g).has_value();
}

/// Metric tensor of the axes (a, b, c) P.
mat3d transformed(const mat3d& g, const mat3d& p) { return multiply(transpose(p), multiply(g, p)); }

}  // namespace

lengths_and_angles cell_from_metrics(const mat3d& g) {
  lengths_and_angles c;
  for (std::size_t i = 0; i < 3; ++i) c.len[i] = std::sqrt(g[i][i]);
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
    c.ang[i] = acosd(g[j][k] / (c.len[j] * c.len[k]));
  }
  return c;
}

std::optional<changed_cell> change_setting_cell(const vec3d& cell, const vec3d& ang, const mat3d& p) {
  const mat3d g = metrics(cell, ang);
  if (!positive_definite(g) || !inverse(p)) return std::nullopt;
  const auto c = cell_from_metrics(transformed(g, p));
  return changed_cell{c.len, c.ang, p};
}

std::optional<changed_cell> get_primitive_cell(char lattice, const vec3d& cell, const vec3d& ang) {
  struct row {
    char letter;
    mat3d p;
  };
  constexpr double h = 0.5, t = 1.0 / 3.0;
  constexpr std::array<row, 7> centrings{{{'P', {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
                                          {'A', {{{-1, 0, 0}, {0, -h, h}, {0, h, h}}}},
                                          {'B', {{{-h, 0, h}, {0, -1, 0}, {h, 0, h}}}},
                                          {'C', {{{h, h, 0}, {h, -h, 0}, {0, 0, -1}}}},
                                          {'I', {{{-h, h, h}, {h, -h, h}, {h, h, -h}}}},
                                          {'F', {{{0, h, h}, {h, 0, h}, {h, h, 0}}}},
                                          {'R', {{{2 * t, -t, -t}, {t, t, -2 * t}, {t, t, t}}}}}};
  const auto hit = std::find_if(centrings.begin(), centrings.end(), [&](const row& r) { return r.letter == lattice; });
  return hit == centrings.end() ? std::nullopt : change_setting_cell(cell, ang, hit->p);
}

namespace {

/// One state of the reduction: the six numbers of the metric and the matrix from the first cell. The numbers are taken
/// from the first metric and the whole-number matrix each time, so rounding does not add up.
struct niggli_state {
  const mat3d& first;
  double eps;
  mat3d p = identity<double>();
  double a = 0, b = 0, c = 0, xi = 0, eta = 0, zeta = 0;

  niggli_state(const mat3d& g, double tolerance) : first(g), eps(tolerance) { apply(identity<double>()); }

  void apply(const mat3d& step) {
    p = multiply(p, step);
    const mat3d g = transformed(first, p);
    a = g[0][0], b = g[1][1], c = g[2][2];
    xi = 2 * g[1][2], eta = 2 * g[0][2], zeta = 2 * g[0][1];
  }

  [[nodiscard]] bool less(double x, double y) const { return x < y - eps; }
  [[nodiscard]] bool equal(double x, double y) const { return !less(x, y) && !less(y, x); }

  /// All three products xi, eta, zeta positive, or two of them negative and none zero.
  [[nodiscard]] bool positive_type() const {
    int zero = 0, positive = 0;
    for (const double x : {xi, eta, zeta}) {
      if (less(0, x)) {
        ++positive;
      } else if (!less(x, 0)) {
        ++zero;
      }
    }
    return positive == 3 || (zero == 0 && positive == 1);
  }

  /// Steps 3 and 4: signs of the axes that make all products positive, or none.
  void normalise_signs() {
    std::array<double, 3> sign{1, 1, 1};
    const std::array<double, 3> product{xi, eta, zeta};
    if (positive_type()) {
      for (std::size_t i = 0; i < 3; ++i)
        if (less(product[i], 0)) sign[i] = -1;
    } else {
      int free_axis = -1;
      for (std::size_t i = 0; i < 3; ++i) {
        if (less(0, product[i])) {
          sign[i] = -1;
        } else if (!less(product[i], 0)) {
          free_axis = static_cast<int>(i);
        }
      }
      if (sign[0] * sign[1] * sign[2] < 0 && free_axis >= 0) sign[static_cast<std::size_t>(free_axis)] = -1;
    }
    apply({{{sign[0], 0, 0}, {0, sign[1], 0}, {0, 0, sign[2]}}});
  }

  /// Steps 1, 2 and 5 to 8. True when the numbers have changed so that the reduction starts anew.
  bool step() {
    if (less(b, a) || (equal(a, b) && less(std::abs(eta), std::abs(xi)))) apply({{{0, -1, 0}, {-1, 0, 0}, {0, 0, -1}}});
    if (less(c, b) || (equal(b, c) && less(std::abs(zeta), std::abs(eta)))) {
      apply({{{-1, 0, 0}, {0, 0, -1}, {0, -1, 0}}});
      return true;
    }
    normalise_signs();
    if (less(b, std::abs(xi)) || (equal(xi, b) && less(2 * eta, zeta)) || (equal(xi, -b) && less(zeta, 0))) {
      apply({{{1, 0, 0}, {0, 1, xi > 0 ? -1.0 : 1.0}, {0, 0, 1}}});
    } else if (less(a, std::abs(eta)) || (equal(eta, a) && less(2 * xi, zeta)) || (equal(eta, -a) && less(zeta, 0))) {
      apply({{{1, 0, eta > 0 ? -1.0 : 1.0}, {0, 1, 0}, {0, 0, 1}}});
    } else if (less(a, std::abs(zeta)) || (equal(zeta, a) && less(2 * xi, eta)) || (equal(zeta, -a) && less(eta, 0))) {
      apply({{{1, zeta > 0 ? -1.0 : 1.0, 0}, {0, 1, 0}, {0, 0, 1}}});
    } else if (less(xi + eta + zeta + a + b, 0) ||
               (equal(xi + eta + zeta + a + b, 0) && less(0, 2 * (a + eta) + zeta))) {
      apply({{{1, 0, 1}, {0, 1, 1}, {0, 0, 1}}});
    } else {
      return false;
    }
    return true;
  }
};

}  // namespace

crys_error niggli_cell(const vec3d& cell, const vec3d& ang, changed_cell& reduced) {
  constexpr int most_steps = 1000;  // a cell of use needs fewer than twenty
  const mat3d g = metrics(cell, ang);
  if (!positive_definite(g)) return crys_error::because(" Bad cell parameters ");
  niggli_state state(g, 1e-5 * std::cbrt(determinant(g)));  // det g = V^2
  int steps = 0;
  while (state.step())
    if (++steps == most_steps)
      return crys_error::because("The limit of iterations in Niggli_Cell_NiggliMat has been reached!");
  const auto c = cell_from_metrics(transformed(g, state.p));
  reduced = {c.len, c.ang, state.p};
  return {};
}

// ---- quadratic form

namespace {

mat3d tensor_of(const quadratic_form& q) {
  return {{{q[0], q[5] / 2, q[4] / 2}, {q[5] / 2, q[1], q[3] / 2}, {q[4] / 2, q[3] / 2, q[2]}}};
}

cell_parameters joined(const lengths_and_angles& c) {
  return {c.len[0], c.len[1], c.len[2], c.ang[0], c.ang[1], c.ang[2]};
}

/// d(cell)/d(term): from dG = -G dG* G, a = sqrt(G11) and cos alpha = G23/(b c).
mat6d cell_derivatives(const mat3d& g, const lengths_and_angles& cell) {
  constexpr double degree = std::numbers::pi / 180.0;
  mat6d derivatives{};
  for (std::size_t j = 0; j < 6; ++j) {
    quadratic_form unit{};
    unit[j] = 1;
    const mat3d dg = multiply(g, multiply(tensor_of(unit), g));  // the sign follows below
    vec3d d_len;
    for (std::size_t i = 0; i < 3; ++i) derivatives[i][j] = d_len[i] = -dg[i][i] / (2 * cell.len[i]);
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t k = (i + 1) % 3, l = (i + 2) % 3;
      const double d_cos = -dg[k][l] / (cell.len[k] * cell.len[l]) -
                           cosd(cell.ang[i]) * (d_len[k] / cell.len[k] + d_len[l] / cell.len[l]);
      derivatives[3 + i][j] = -d_cos / (sind(cell.ang[i]) * degree);
    }
  }
  return derivatives;
}

}  // namespace

std::optional<quadratic_form> quadratic_form_from_cell(const cell_parameters& cell) {
  const mat3d g = metrics(vec3d{cell[0], cell[1], cell[2]}, vec3d{cell[3], cell[4], cell[5]});
  if (!positive_definite(g) || !(cell[0] > 0 && cell[1] > 0 && cell[2] > 0)) return std::nullopt;
  const mat3d r = *inverse(g);
  return quadratic_form{r[0][0], r[1][1], r[2][2], 2 * r[1][2], 2 * r[0][2], 2 * r[0][1]};
}

std::optional<cell_parameters> cell_from_quadratic_form(const quadratic_form& form) {
  const mat3d r = tensor_of(form);
  if (!positive_definite(r)) return std::nullopt;
  return joined(cell_from_metrics(*inverse(r)));
}

std::optional<direct_cell> direct_cell_from_quadratic_form(const quadratic_form& form, const mat6d& covariance) {
  const mat3d r = tensor_of(form);
  if (!positive_definite(r)) return std::nullopt;
  const mat3d g = *inverse(r);
  const auto cell = cell_from_metrics(g);
  direct_cell result;
  result.cell = joined(cell);
  result.derivatives = cell_derivatives(g, cell);
  const mat6d& d = result.derivatives;
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t j = 0; j < 6; ++j) {
      double sum = 0, size = 0;
      for (std::size_t k = 0; k < 6; ++k)
        for (std::size_t l = 0; l < 6; ++l) {
          const double term = d[i][k] * covariance[k][l] * d[j][l];
          sum += term;
          size += std::abs(term);
        }
      // Bound by symmetry (gamma of a hexagonal cell): the 36 terms cancel up to their rounding.
      const double rounding = 64 * std::numeric_limits<double>::epsilon() * size;
      result.covariance[i][j] = std::abs(sum) <= rounding ? 0.0 : sum;
    }
    result.sigma[i] = std::sqrt(std::max(result.covariance[i][i], 0.0));
  }
  return result;
}

}  // namespace lmix_crystal_metrics

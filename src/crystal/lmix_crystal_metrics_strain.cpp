// Strain between two states of a crystal.
#include <cmath>

#include "lmix_crystal_metrics.hpp"

namespace lmix_crystal_metrics {

using namespace lmix_math_general;

namespace {

mat3d combined(double x, const mat3d& m, double y, const mat3d& n) {
  mat3d r;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) r[i][j] = x * m[i][j] + y * n[i][j];
  return r;
}

/// Crystal to Cartesian matrix and its inverse.
struct frame_matrices {
  mat3d m, inverse_m;
};
std::optional<frame_matrices> matrices_of(const lengths_and_angles& cell, frame code) {
  const mat3d m = get_cryst_orthog_matrix(cell.len, cell.ang, code);
  const auto back = inverse(m);
  if (!back || !(determinant(m) > 0)) return std::nullopt;
  return frame_matrices{m, *back};
}

/// Places (0, 1, 2) of the direct and the reciprocal axis that lie along their own Cartesian axis.
struct frame_axes {
  std::size_t direct, reciprocal;
};
frame_axes axes_of(frame code) {
  switch (code) {
    case frame::AC:
      return {0, 2};
    case frame::BC:
      return {1, 2};
    case frame::BA:
      return {1, 0};
    case frame::CB:
      return {2, 1};
    case frame::CA:
      break;
  }
  return {2, 0};
}

vec3d unit(vec3d v) {
  const double length = norm(v);
  for (double& x : v) x /= length;
  return v;
}

/// The square root of a symmetric matrix with positive eigenvalues.
mat3d square_root(const mat3d& m) {
  const eigen3 e = symmetric_eigen(m);
  mat3d scaled = e.vector;
  for (std::size_t i = 0; i < 3; ++i)
    for (double& x : scaled[i]) x *= std::sqrt(e.value[i]);
  return multiply(transpose(e.vector), scaled);
}

/// Crystal to Cartesian matrix of the second state from that of the first and c = F^-T F^-1, both states in the same
/// frame. With s = c^(1/2), M1 = s^-1 Q M0 for one rotation Q; the direct axis d and the reciprocal axis r* of the
/// frame stay on their Cartesian axes e_d, e_r when Q e_d is along s e_d and Q e_r along s^-1 e_r.
std::optional<mat3d> second_state(const mat3d& m0, const mat3d& c, frame code) {
  if (!(symmetric_eigen(c).value[2] > 0)) return std::nullopt;
  const mat3d s = square_root(c);
  const auto back = inverse(s);
  if (!back) return std::nullopt;
  const frame_axes at = axes_of(code);
  const mat3d one = identity<double>();
  const vec3d to_d = unit(multiply(s, one[at.direct])), to_r = unit(multiply(*back, one[at.reciprocal]));
  mat3d q_transposed;
  q_transposed[at.direct] = to_d;
  q_transposed[at.reciprocal] = to_r;
  const std::size_t third = 3 - at.direct - at.reciprocal;
  const double sign = (at.direct + 1) % 3 == at.reciprocal ? 1 : -1;
  q_transposed[third] = cross(to_d, to_r);
  for (double& x : q_transposed[third]) x *= sign;
  return multiply(*back, multiply(transpose(q_transposed), m0));
}

}  // namespace

std::optional<mat3d> calc_cell_strain(strain_measure kind, const lengths_and_angles& cell0,
                                      const lengths_and_angles& cell1, frame code) {
  const auto first = matrices_of(cell0, code), second = matrices_of(cell1, code);
  if (!first || !second) return std::nullopt;
  const mat3d one = identity<double>(), f = multiply(second->m, first->inverse_m);
  if (kind == strain_measure::infinitesimal) return combined(1, combined(0.5, f, 0.5, transpose(f)), -1, one);
  if (kind == strain_measure::lagrangian) return combined(0.5, multiply(transpose(f), f), -0.5, one);
  const mat3d back = multiply(first->m, second->inverse_m);
  return combined(0.5, one, -0.5, multiply(transpose(back), back));
}

std::optional<mat3d> calc_deformed_metric(strain_measure kind, const lengths_and_angles& cell0, const mat3d& strain,
                                          frame code) {
  const auto first = matrices_of(cell0, code);
  if (!first) return std::nullopt;
  const mat3d one = identity<double>();
  const auto metric_of = [&](const mat3d& stretch2) {  // stretch2 = F^T F
    return multiply(transpose(first->m), multiply(stretch2, first->m));
  };
  mat3d g;
  if (kind == strain_measure::infinitesimal) {
    const mat3d f = combined(1, one, 1, strain);
    g = metric_of(multiply(transpose(f), f));
  } else if (kind == strain_measure::lagrangian) {
    g = metric_of(combined(1, one, 2, strain));
  } else {
    const auto m1 = second_state(first->m, combined(1, one, -2, strain), code);
    if (!m1) return std::nullopt;
    g = multiply(transpose(*m1), *m1);
  }
  if (!(symmetric_eigen(g).value[2] > 0)) return std::nullopt;
  return g;
}

std::optional<principal_strain> calc_paxes_angles(const mat3d& strain, const lengths_and_angles& cell, frame code) {
  const auto made = matrices_of(cell, code);
  if (!made) return std::nullopt;
  const eigen3 e = symmetric_eigen(strain);
  principal_strain p{e.value, e.vector, {}, {}};
  const mat3d direct = transpose(made->m);  // rows: a, b, c
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      p.to_direct[i][j] = acosd(dot(e.vector[i], direct[j]) / norm(direct[j]));
      p.to_reciprocal[i][j] =
          acosd(dot(e.vector[i], made->inverse_m[j]) / norm(made->inverse_m[j]));  // rows: a*, b*, c*
    }
  return p;
}

}  // namespace lmix_crystal_metrics

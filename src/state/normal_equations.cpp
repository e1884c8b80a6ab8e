#include "normal_equations.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace normal_equations {

namespace {

constexpr std::size_t lane = 8;
typedef float vec __attribute__((vector_size(lane * sizeof(float)), aligned(4)));

double lane_sum(const vec& v) {
  double sum = 0;
  for (std::size_t l = 0; l < lane; ++l) sum += static_cast<double>(v[l]);
  return sum;
}

/// Scalar products of R rows of `a` with C rows of `b`, each `count` long (a multiple of lane): the inner tile of the
/// rank-k update, whose R*C accumulators stay in registers.
template <int R, int C>
[[gnu::always_inline]] inline void tile(const float* const (&a)[R], const float* const (&b)[C], std::size_t count,
                                        double (&sum)[R][C]) {
  vec acc[R][C] = {};
  for (std::size_t p = 0; p < count; p += lane) {
    vec vb[C];
    for (int c = 0; c < C; ++c) vb[c] = *reinterpret_cast<const vec*>(b[c] + p);
    for (int r = 0; r < R; ++r) {
      const vec va = *reinterpret_cast<const vec*>(a[r] + p);
      for (int c = 0; c < C; ++c) acc[r][c] += va * vb[c];
    }
  }
  for (int r = 0; r < R; ++r)
    for (int c = 0; c < C; ++c) sum[r][c] = lane_sum(acc[r][c]);
}

constexpr int tile_rows = 4, tile_cols = 2;

/// Upper triangle of weighted * derivatives^T over the active rows, added to the matrix of order n.
[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] void rank_update(
    const float* weighted, const float* derivatives, std::size_t stride, std::size_t padded, const int* active,
    int n_active, double* matrix, int n) {
  const auto plain_row = [&](int i) { return derivatives + static_cast<std::size_t>(active[i]) * stride; };
  const auto weighted_row = [&](int i) { return weighted + static_cast<std::size_t>(i) * padded; };
  for (int i0 = 0; i0 < n_active; i0 += tile_rows) {
    for (int j0 = i0 - i0 % tile_cols; j0 < n_active; j0 += tile_cols) {
      const float* a[tile_rows];
      const float* b[tile_cols];
      for (int r = 0; r < tile_rows; ++r) a[r] = weighted_row(std::min(i0 + r, n_active - 1));
      for (int c = 0; c < tile_cols; ++c) b[c] = plain_row(std::min(j0 + c, n_active - 1));
      double sum[tile_rows][tile_cols];
      tile<tile_rows, tile_cols>(a, b, padded, sum);
      for (int r = 0; r < tile_rows && i0 + r < n_active; ++r)
        for (int c = 0; c < tile_cols && j0 + c < n_active; ++c)
          if (j0 + c >= i0 + r) matrix[static_cast<std::ptrdiff_t>(active[i0 + r]) * n + active[j0 + c]] += sum[r][c];
    }
  }
}

}  // namespace

void normal_matrix::reset(int n) {
  n_ = n;
  rjac_.assign(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 0.0);
  vx_.assign(static_cast<std::size_t>(n), 0.0);
  weighted_sum_ = 0;
}

void normal_matrix::add_row(std::span<const float> derivatives, double weight, double difference) {
  weighted_sum_ += weight * difference * difference;
  for (int i = 0; i < n_; ++i) {
    const double t = weight * static_cast<double>(derivatives[static_cast<std::size_t>(i)]);
    if (t == 0.0) continue;
    vx(i) += t * difference;
    for (int j = i; j < n_; ++j) rjac(i, j) += t * static_cast<double>(derivatives[static_cast<std::size_t>(j)]);
  }
}

void normal_matrix::add_block(const float* derivatives, std::size_t stride, std::size_t count, const float* weights,
                              const float* differences, std::span<const int> active) {
  const std::size_t padded = (count + lane - 1) / lane * lane;
  for (std::size_t p = 0; p < count; ++p)
    weighted_sum_ += static_cast<double>(weights[p]) * static_cast<double>(differences[p]) * differences[p];
  weighted_.resize(active.size() * padded);
  for (std::size_t i = 0; i < active.size(); ++i) {
    const float* d = derivatives + static_cast<std::size_t>(active[i]) * stride;
    float* w = weighted_.data() + i * padded;
    float sum = 0.f;
    for (std::size_t p = 0; p < count; ++p) {
      w[p] = d[p] * weights[p];
      sum += w[p] * differences[p];
    }
    std::fill(w + count, w + padded, 0.f);
    vx(active[i]) += static_cast<double>(sum);
  }
  rank_update(weighted_.data(), derivatives, stride, padded, active.data(), static_cast<int>(active.size()),
              rjac_.data(), n_);
}

void normal_matrix::fill_lower() {
  for (int i = 0; i < n_; ++i)
    for (int j = i + 1; j < n_; ++j) rjac(j, i) = rjac(i, j);
}

inversion dp_inv(std::span<double> matrix, std::span<double> vector, int n) {
  if (n <= 0) return {};
  if (n == 1) {
    matrix[0] = 1.0 / matrix[0];
    vector[0] *= matrix[0];
    return {false, 1.0, -1};
  }
  const auto size = static_cast<std::size_t>(n);
  std::vector<double> c(matrix.begin(), matrix.end()), x(vector.begin(), vector.end()), scale(size);
  std::vector<std::size_t> index(size);
  std::iota(index.begin(), index.end(), std::size_t{0});
  const auto row = [&](std::size_t i) { return c.data() + i * size; };

  // rows are scaled to a largest element of 1, so that a pivot of this size is rounding and nothing else
  const double smallest_pivot = 4.0 * n * std::numeric_limits<double>::epsilon();
  double anorm = 0;
  for (std::size_t i = 0; i < size; ++i) {
    double largest = 0, row_sum = 0;
    for (std::size_t j = 0; j < size; ++j) {
      largest = std::max(largest, std::abs(row(i)[j]));
      row_sum += std::abs(row(i)[j]);
    }
    if (!(largest > 0)) return {true, 0, static_cast<int>(i)};
    anorm = std::max(anorm, row_sum);
    scale[i] = largest;
    x[i] /= largest;
    for (std::size_t j = 0; j < size; ++j) row(i)[j] /= largest;
  }

  for (std::size_t k = 0; k < size; ++k) {
    std::size_t best = k;
    for (std::size_t i = k + 1; i < size; ++i)
      if (std::abs(row(index[i])[k]) > std::abs(row(index[best])[k])) best = i;
    std::swap(index[k], index[best]);
    double* pivot_row = row(index[k]);
    if (!(std::abs(pivot_row[k]) >= smallest_pivot)) return {true, 0, static_cast<int>(k)};
    const double t = 1.0 / pivot_row[k];
    pivot_row[k] = t;
    x[index[k]] *= t;
    for (std::size_t j = 0; j < size; ++j)
      if (j != k) pivot_row[j] *= t;
    for (std::size_t i = 0; i < size; ++i) {
      if (i == k) continue;
      double* q = row(index[i]);
      const double f = q[k];
      x[index[i]] -= x[index[k]] * f;
      for (std::size_t j = 0; j < size; ++j) q[j] -= pivot_row[j] * f;
      q[k] = -f * t;
    }
  }

  double inverse_norm = 0;
  for (std::size_t j = 0; j < size; ++j) {
    vector[j] = x[index[j]];
    double row_sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
      const double value = row(index[j])[i] / scale[index[i]];
      matrix[j * size + index[i]] = value;
      row_sum += std::abs(value);
    }
    inverse_norm = std::max(inverse_norm, row_sum);
  }
  return {false, anorm * inverse_norm, -1};
}

namespace {

/// Gauss-Jordan step on diagonal element k of a symmetric matrix of order n.
void sweep(std::span<double> a, std::size_t n, std::size_t k) {
  const double pivot = a[k * n + k];
  std::vector<double> column(n);
  for (std::size_t i = 0; i < n; ++i) column[i] = a[i * n + k];
  for (std::size_t j = 0; j < n; ++j) a[k * n + j] /= pivot;
  for (std::size_t i = 0; i < n; ++i) {
    if (i == k) continue;
    for (std::size_t j = 0; j < n; ++j)
      if (j != k) a[i * n + j] -= column[i] * a[k * n + j];
    a[i * n + k] = -column[i] / pivot;
  }
  a[k * n + k] = 1.0 / pivot;
}

}  // namespace

std::vector<dependent_set> dependent_sets(std::span<const double> matrix, int n) {
  constexpr double rounding = 1.0e-7, smallest_member = 0.01;
  const auto size = static_cast<std::size_t>(n);
  std::vector<double> a(matrix.begin(), matrix.end()), unit(size);
  for (std::size_t i = 0; i < size; ++i) unit[i] = a[i * size + i] > 0 ? std::sqrt(a[i * size + i]) : 0.0;
  for (std::size_t i = 0; i < size; ++i)
    for (std::size_t j = 0; j < size; ++j) a[i * size + j] = unit[i] > 0 && unit[j] > 0 ? a[i * size + j] / (unit[i] * unit[j]) : 0.0;
  std::vector<std::size_t> free(size);
  std::iota(free.begin(), free.end(), std::size_t{0});
  std::vector<char> swept(size, 0);
  while (!free.empty()) {
    const auto best = std::max_element(free.begin(), free.end(), [&](std::size_t i, std::size_t j) {
      return a[i * size + i] < a[j * size + j];
    });
    const std::size_t k = *best;
    if (!(a[k * size + k] > rounding)) break;
    sweep(a, size, k);
    swept[k] = 1;
    free.erase(best);
  }
  std::vector<dependent_set> sets;
  for (const std::size_t j : free) {
    dependent_set set{{static_cast<int>(j)}, {1.0}};
    for (std::size_t i = 0; i < size; ++i) {
      const double member = a[i * size + j];  // of the scaled unknown i in unknown j
      if (!swept[i] || !(unit[j] > 0) || std::abs(member) < smallest_member) continue;
      set.unknowns.push_back(static_cast<int>(i));
      set.step.push_back(-member * unit[j] / unit[i]);
    }
    sets.push_back(std::move(set));
  }
  return sets;
}

}  // namespace normal_equations

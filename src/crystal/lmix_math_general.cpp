#include "lmix_math_general.hpp"

#include <numbers>
#include <utility>

namespace lmix_math_general {
namespace {

constexpr double degree = std::numbers::pi / 180.0;
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

}  // namespace

double cosd(double x) {
  const double r = std::abs(std::remainder(x, 360.0));
  return r == 90.0 ? 0.0 : std::cos(r * degree);
}

double sind(double x) {
  const double r = std::remainder(x, 360.0);
  return std::abs(r) == 180.0 ? 0.0 : std::sin(r * degree);
}

double tand(double x) { return sind(x) / cosd(x); }

// std::clamp returns a NaN argument unchanged, so it stays visible.
double acosd(double x) { return std::acos(std::clamp(x, -1.0, 1.0)) / degree; }
double asind(double x) { return std::asin(std::clamp(x, -1.0, 1.0)) / degree; }
double atan2d(double y, double x) { return std::atan2(y, x) / degree; }

bool solve_linear(std::span<double> a, std::span<double> b) {
  const std::size_t n = b.size();
  if (a.size() != n * n) return false;
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t p = k;
    for (std::size_t i = k + 1; i < n; ++i)
      if (std::abs(a[i * n + k]) > std::abs(a[p * n + k])) p = i;
    const double pivot = a[p * n + k];
    if (!std::isfinite(pivot) || pivot == 0.0) return false;
    if (p != k) {
      for (std::size_t j = k; j < n; ++j) std::swap(a[p * n + j], a[k * n + j]);
      std::swap(b[p], b[k]);
    }
    for (std::size_t i = k + 1; i < n; ++i) {
      const double factor = a[i * n + k] / pivot;
      for (std::size_t j = k; j < n; ++j) a[i * n + j] -= factor * a[k * n + j];
      b[i] -= factor * b[k];
    }
  }
  for (std::size_t k = n; k-- > 0;) {
    for (std::size_t j = k + 1; j < n; ++j) b[k] -= a[k * n + j] * b[j];
    b[k] /= a[k * n + k];
  }
  return true;
}

eigen3 symmetric_eigen(const mat3d& m) {
  mat3d a = m, v = identity<double>();  // v a v^T stays what it was
  for (int sweep = 0; sweep < 20; ++sweep) {
    for (const auto& [p, q] : {std::array<std::size_t, 2>{0, 1}, {0, 2}, {1, 2}}) {
      if (a[p][q] == 0.0) continue;
      const double theta = 0.5 * std::atan2(2.0 * a[p][q], a[q][q] - a[p][p]), c = std::cos(theta), s = std::sin(theta);
      mat3d turn = identity<double>();
      turn[p][p] = turn[q][q] = c;
      turn[p][q] = -s;
      turn[q][p] = s;
      a[q][p] = a[p][q];
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < i; ++j) a[i][j] = a[j][i];
      a = multiply(turn, multiply(a, transpose(turn)));
      a[p][q] = 0.0;
      v = multiply(turn, v);
    }
  }
  std::array<std::size_t, 3> order{0, 1, 2};
  std::sort(order.begin(), order.end(), [&](std::size_t i, std::size_t j) { return a[i][i] > a[j][j]; });
  eigen3 e;
  for (std::size_t i = 0; i < 3; ++i) {
    e.value[i] = a[order[i]][order[i]];
    e.vector[i] = v[order[i]];
  }
  if (determinant(e.vector) < 0)
    for (double& x : e.vector[2]) x = -x;
  return e;
}

// The second derivatives m of a natural spline obey, at each inner point i with h_i = x_i+1 - x_i,
//   h_i-1 m_i-1 + 2 (h_i-1 + h_i) m_i + h_i m_i+1 = 6 [(y_i+1 - y_i)/h_i - (y_i - y_i-1)/h_i-1]:
// symmetric and tridiagonal, so the transposed problem that gives the weights has the same factors.
natural_spline::natural_spline(std::span<const double> x) : x_(x.begin(), x.end()), pivot_(x.size()) {
  for (std::size_t i = 1; i < x.size(); ++i) {
    if (!(x[i] > x[i - 1])) {
      x_.clear();
      return;
    }
  }
  for (std::size_t i = 1; i + 1 < x.size(); ++i) {
    const double below = x[i] - x[i - 1];
    pivot_[i] = 2.0 * (x[i + 1] - x[i - 1]) - (i > 1 ? below * below / pivot_[i - 1] : 0.0);
  }
}

void natural_spline::solve(std::span<double> z) const {
  const std::size_t n = size();
  for (std::size_t i = 2; i + 1 < n; ++i) z[i] -= (x_[i] - x_[i - 1]) / pivot_[i - 1] * z[i - 1];
  z[0] = z[n - 1] = 0.0;
  for (std::size_t i = n - 2; i >= 1; --i) z[i] = (z[i] - (x_[i + 1] - x_[i]) * z[i + 1]) / pivot_[i];
}

void natural_spline::second_derivatives(std::span<const double> y, std::span<double> y2) const {
  if (!valid()) {
    std::fill(y2.begin(), y2.end(), not_a_number);
    return;
  }
  for (std::size_t i = 1; i + 1 < size(); ++i)
    y2[i] = 6.0 * ((y[i + 1] - y[i]) / (x_[i + 1] - x_[i]) - (y[i] - y[i - 1]) / (x_[i] - x_[i - 1]));
  solve(y2);
}

natural_spline::place natural_spline::at(double t) const {
  const std::size_t i = std::clamp<std::size_t>(locate<double>(x_, t), 1, size() - 1) - 1;
  const double h = x_[i + 1] - x_[i];
  const double a = (x_[i + 1] - t) / h, b = (t - x_[i]) / h;
  return {i, a, b, (a * a * a - a) * h * h / 6.0, (b * b * b - b) * h * h / 6.0};
}

double natural_spline::value(std::span<const double> y, std::span<const double> y2, double t) const {
  if (!valid()) return not_a_number;
  const place p = at(t);
  return p.a * y[p.i] + p.b * y[p.i + 1] + p.c * y2[p.i] + p.d * y2[p.i + 1];
}

void natural_spline::weights(double t, std::span<double> w, std::span<double> work) const {
  if (!valid()) {
    std::fill(w.begin(), w.end(), not_a_number);
    return;
  }
  const place p = at(t);
  std::fill(w.begin(), w.end(), 0.0);
  w[p.i] = p.a;
  w[p.i + 1] = p.b;
  std::fill(work.begin(), work.end(), 0.0);
  work[p.i] = p.c;
  work[p.i + 1] = p.d;
  solve(work);
  for (std::size_t i = 1; i + 1 < size(); ++i) {
    const double left = 6.0 * work[i] / (x_[i] - x_[i - 1]), right = 6.0 * work[i] / (x_[i + 1] - x_[i]);
    w[i - 1] += left;
    w[i] -= left + right;
    w[i + 1] += right;
  }
}

std::vector<float> spline(std::span<const float> x, std::span<const float> y) {
  if (x.size() != y.size()) return {};
  const natural_spline curve(std::vector<double>(x.begin(), x.end()));
  if (!curve.valid()) return {};
  std::vector<double> y2(x.size());
  curve.second_derivatives(std::vector<double>(y.begin(), y.end()), y2);
  std::vector<float> result(x.size());
  std::transform(y2.begin(), y2.end(), result.begin(), [](double v) { return static_cast<float>(v); });
  return result;
}

float splint(std::span<const float> x, std::span<const float> y, std::span<const float> y2, float t) {
  const std::size_t i = std::clamp<std::size_t>(locate(x, t), 1, x.size() - 1) - 1;
  const double left = x[i], right = x[i + 1], h = right - left;
  const double a = (right - double{t}) / h, b = (double{t} - left) / h;
  return static_cast<float>(a * double{y[i]} + b * double{y[i + 1]} +
                            ((a * a * a - a) * double{y2[i]} + (b * b * b - b) * double{y2[i + 1]}) * h * h / 6.0);
}

void combined_generator::seed(std::int64_t seed1, std::int64_t seed2) {
  const auto into_range = [](std::int64_t s, std::int64_t modulus) {
    const std::int64_t r = (s % modulus + modulus) % modulus;
    return r == 0 ? modulus - 1 : r;
  };
  s1 = into_range(seed1, modulus1);
  s2 = into_range(seed2, modulus2);
}

double combined_generator::uniform() {
  s1 = s1 * multiplier1 % modulus1;
  s2 = s2 * multiplier2 % modulus2;
  const std::int64_t z = s1 - s2;
  return static_cast<double>(z < 1 ? z + modulus1 - 1 : z) / static_cast<double>(modulus1);
}

float combined_generator::uniform_float() {
  return std::min(static_cast<float>(uniform()), 1.0f - std::numeric_limits<float>::epsilon() / 2.0f);
}

}  // namespace lmix_math_general

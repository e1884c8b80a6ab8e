// Small mathematics: 3x3 matrices, trigonometry in degrees, linear systems, cubic splines, table search, Fourier
// transform, smoothing, special functions, random numbers. Owns nothing: every operation is a function of its
// arguments. The state of the random generator is a struct that its user holds.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

namespace lmix_math_general {

template <std::floating_point R>
using vec3 = std::array<R, 3>;
/// m[i][j]: row i, column j.
template <std::floating_point R>
using mat3 = std::array<std::array<R, 3>, 3>;
using vec3f = vec3<float>;
using mat3f = mat3<float>;
using vec3d = vec3<double>;
using mat3d = mat3<double>;

// ---- vectors and 3x3 matrices
template <std::floating_point R>
[[nodiscard]] constexpr R dot(const vec3<R>& u, const vec3<R>& v) {
  return u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
}
template <std::floating_point R>
[[nodiscard]] constexpr vec3<R> cross(const vec3<R>& u, const vec3<R>& v) {
  return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}
template <std::floating_point R>
[[nodiscard]] R norm(const vec3<R>& v) {
  return std::sqrt(dot(v, v));
}
template <std::floating_point R>
[[nodiscard]] constexpr mat3<R> identity() {
  return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
}
template <std::floating_point R>
[[nodiscard]] constexpr mat3<R> transpose(const mat3<R>& m) {
  return {{{m[0][0], m[1][0], m[2][0]}, {m[0][1], m[1][1], m[2][1]}, {m[0][2], m[1][2], m[2][2]}}};
}
/// m v, the vector as a column.
template <std::floating_point R>
[[nodiscard]] constexpr vec3<R> multiply(const mat3<R>& m, const vec3<R>& v) {
  return {dot(m[0], v), dot(m[1], v), dot(m[2], v)};
}
/// v m, the vector as a row.
template <std::floating_point R>
[[nodiscard]] constexpr vec3<R> multiply(const vec3<R>& v, const mat3<R>& m) {
  return multiply(transpose(m), v);
}
template <std::floating_point R>
[[nodiscard]] constexpr mat3<R> multiply(const mat3<R>& m, const mat3<R>& n) {
  return {multiply(m[0], n), multiply(m[1], n), multiply(m[2], n)};
}
template <std::floating_point R>
[[nodiscard]] constexpr R determinant(const mat3<R>& m) {
  return dot(m[0], cross(m[1], m[2]));
}
/// Inverse, or nullopt when the determinant cannot be told from 0: |det| at or below 8 epsilon times the product of the
/// row lengths, the largest value it can have for rows of these lengths. A NaN element gives nullopt too.
template <std::floating_point R>
[[nodiscard]] std::optional<mat3<R>> inverse(const mat3<R>& m) {
  const R det = determinant(m);
  const R bound = norm(m[0]) * norm(m[1]) * norm(m[2]);
  if (!(std::abs(det) > 8 * std::numeric_limits<R>::epsilon() * bound) || !std::isfinite(det)) return std::nullopt;
  mat3<R> adjoint = transpose(mat3<R>{cross(m[1], m[2]), cross(m[2], m[0]), cross(m[0], m[1])});
  for (auto& row : adjoint)
    for (R& element : row) element /= det;
  return adjoint;
}
/// The same numbers in another precision.
template <std::floating_point To, std::floating_point From>
[[nodiscard]] constexpr vec3<To> convert(const vec3<From>& v) {
  return {static_cast<To>(v[0]), static_cast<To>(v[1]), static_cast<To>(v[2])};
}
template <std::floating_point To, std::floating_point From>
[[nodiscard]] constexpr mat3<To> convert(const mat3<From>& m) {
  return {convert<To>(m[0]), convert<To>(m[1]), convert<To>(m[2])};
}

// ---- trigonometry in degrees; evaluated in double, exact at the multiples of 90 degrees
[[nodiscard]] double cosd(double x);
[[nodiscard]] double sind(double x);
[[nodiscard]] double tand(double x);   ///< infinite at odd multiples of 90
[[nodiscard]] double acosd(double x);  ///< an argument outside -1..1 counts as the nearer end
[[nodiscard]] double asind(double x);  ///< the same
[[nodiscard]] double atan2d(double y, double x);
[[nodiscard]] inline float cosd(float x) { return static_cast<float>(cosd(double{x})); }
[[nodiscard]] inline float sind(float x) { return static_cast<float>(sind(double{x})); }
[[nodiscard]] inline float tand(float x) { return static_cast<float>(tand(double{x})); }
[[nodiscard]] inline float acosd(float x) { return static_cast<float>(acosd(double{x})); }
[[nodiscard]] inline float asind(float x) { return static_cast<float>(asind(double{x})); }
[[nodiscard]] inline float atan2d(float y, float x) { return static_cast<float>(atan2d(double{y}, double{x})); }

// ---- linear systems
/// Solves a x = b for n = b.size() unknowns by elimination with partial pivoting; `a` holds n rows of n and is used up,
/// b becomes x. False, with b spoilt, when a pivot is 0 or not finite or `a` has not n*n elements.
[[nodiscard]] bool solve_linear(std::span<double> a, std::span<double> b);

/// Eigenvalues of a symmetric matrix, largest first, and their unit vectors in the rows, right-handed (C. G. J. Jacobi,
/// J. reine angew. Math. 30 (1846) 51-94). The upper triangle is used. NaN in, NaN out.
struct eigen3 {
  vec3d value;
  mat3d vector;
};
[[nodiscard]] eigen3 symmetric_eigen(const mat3d& m);

// ---- search
/// Number of elements of the increasing table that are not above x: 0 below the first, table.size() at or above the
/// last. As a 1-based index it is the last point at or below x. Bisection; a NaN gives 0.
template <std::floating_point R>
[[nodiscard]] std::size_t locate(std::span<const R> table, R x) {
  std::size_t low = 0, high = table.size();
  while (low < high) {
    const std::size_t middle = low + (high - low) / 2;
    if (table[middle] <= x) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

// ---- natural cubic spline (second derivative 0 at both ends)
/// The spline's matrix over a set of abscissae, factorised: it serves any number of curves on them.
class natural_spline {
 public:
  /// x strictly increasing, at least two points; otherwise valid() is false and the other operations give NaN.
  explicit natural_spline(std::span<const double> x);
  [[nodiscard]] bool valid() const { return x_.size() >= 2; }
  [[nodiscard]] std::size_t size() const { return x_.size(); }

  /// Second derivatives at the points, from the ordinates y. Both spans of size().
  void second_derivatives(std::span<const double> y, std::span<double> y2) const;
  /// Value at t. Outside the points the cubic of the first or last interval goes on.
  [[nodiscard]] double value(std::span<const double> y, std::span<const double> y2, double t) const;
  /// The value at t as a linear form of the ordinates: value = sum w_i y_i. `work` is scratch; both spans of size().
  void weights(double t, std::span<double> w, std::span<double> work) const;

 private:
  struct place {
    std::size_t i;      ///< left point of the interval
    double a, b, c, d;  ///< value = a y_i + b y_i+1 + c y2_i + d y2_i+1
  };
  [[nodiscard]] place at(double t) const;
  void solve(std::span<double> z) const;  ///< z of size(): right-hand side to solution, the ends become 0

  std::vector<double> x_;
  std::vector<double> pivot_;  ///< of the factors L D L^T of the tridiagonal matrix, element 0 and the last unused
};

/// Second derivatives of the natural spline through (x, y); empty if x is not strictly increasing, the sizes differ or
/// there are fewer than two points. Evaluated in double.
[[nodiscard]] std::vector<float> spline(std::span<const float> x, std::span<const float> y);
/// Value at t of the spline with the second derivatives y2 (all spans of one size >= 2). The cubic of the first or last
/// interval goes on outside.
[[nodiscard]] float splint(std::span<const float> x, std::span<const float> y, std::span<const float> y2, float t);

// ---- Fourier transform and smoothing
/// In-place transform sum_j a_j exp(sign 2 pi i j k/n), unscaled: forward (-1) and backward (+1) multiply by n. Radix 2
/// (J. W. Cooley & J. W. Tukey, Math. Comput. 19 (1965) 297-301). False, and nothing done, unless n is a power of two.
[[nodiscard]] bool fft(std::span<std::complex<double>> a, int sign);

/// Low-pass filter: the straight line between the means of the first and last `ends` points is taken off, harmonics are
/// damped by 1 - (f window)^2/4 down to 0 (f in cycles per point), the line is added back. What is narrower than
/// `window` points goes; a window of 1 or less, or fewer than 4 points, change nothing. The points are padded with
/// zeroes by two windows or more, twice their number at most. Method: W. H. Press et al., Numerical Recipes (1986),
/// sect. 13.9, SMOOFT.
void smooft(std::span<double> y, double window, std::size_t ends = 1);

/// Weight of the point i = -m..m in the value (or the derivative of the order `derivative`, per step) at t = -m..m of
/// the polynomial of degree `degree` <= 2m fitted to 2m+1 equidistant points (A. Savitzky & M. J. E. Golay, Anal. Chem.
/// 36 (1964) 1627-1639; by Gram polynomials, P. A. Gorry, Anal. Chem. 62 (1990) 570-573).
[[nodiscard]] double savitzky_golay_weight(int i, int t, int m, int degree, int derivative = 0);
/// The filter over a whole curve of equidistant points; the first and last m points are read off the polynomials of the
/// first and last windows. False, with `out` as it was, for degree < derivative, degree > 2m, fewer than 2m+1 points or
/// spans of different sizes.
[[nodiscard]] bool savitzky_golay(std::span<const double> y, int m, int degree, int derivative, std::span<double> out);

// ---- special functions
/// exp(x^2) erfc(x), which stays finite where erfc underflows: 1/(sqrt(pi) x) for large x. Infinite below -26.6.
/// Continued fraction of M. Abramowitz & I. A. Stegun, Handbook of Mathematical Functions (1964), 7.1.14. Relative
/// error below 1e-15 for x >= 0.
[[nodiscard]] double erfcx(double x);
/// exp(z) E1(z) on the principal branch; on the negative real axis the limit from above, so that the imaginary part of
/// E1 is -pi there. 1e300 at 0. Power series and continued fraction of Abramowitz & Stegun, 5.1.11 and 5.1.22,
/// asymptotic series 5.1.51 beside the negative axis beyond |z| = 50, where the part pi exp(z) of the imaginary part,
/// below 1e-21, is left out. Error below 1e-14 of the modulus.
[[nodiscard]] std::complex<double> expi_e1(std::complex<double> z);

// ---- random numbers
/// L'Ecuyer's combination of two multiplicative congruential generators (P. L'Ecuyer, Commun. ACM 31 (1988) 742-749),
/// period 2.3e18.
struct combined_generator {
  static constexpr std::int64_t modulus1 = 2147483563, modulus2 = 2147483399;
  static constexpr std::int64_t multiplier1 = 40014, multiplier2 = 40692;
  std::int64_t s1 = 1, s2 = 1;  ///< 1..modulus - 1

  /// Any seed is brought into its range by its modulus; one that falls on 0 becomes the top of the range.
  void seed(std::int64_t seed1, std::int64_t seed2);
  /// Uniform in (0,1), both ends excluded; steps of 1/modulus1.
  [[nodiscard]] double uniform();
  /// The same in single precision; the ends stay excluded after the rounding.
  [[nodiscard]] float uniform_float();
};

}  // namespace lmix_math_general

// Special functions.
#include <numbers>

#include "lmix_math_general.hpp"

namespace lmix_math_general {
namespace {

using complex = std::complex<double>;

/// E1(z) = -gamma - ln z - sum (-z)^k/(k k!).
complex e1_by_series(complex z) {
  complex power = 1.0, sum = 0.0;
  for (int k = 1; k < 500; ++k) {
    power *= -z / static_cast<double>(k);
    const complex term = power / static_cast<double>(k);
    sum += term;
    if (std::abs(term) < 1e-17 * std::abs(sum)) break;
  }
  return -std::numbers::egamma - std::log(z) - sum;
}

/// exp(z) E1(z) = 1/(z+1 - 1/(z+3 - 4/(z+5 - 9/(z+7 - ...)))). The error falls as exp(-4 sqrt(n (|z| + Re z)/2)) with
/// the number of terms n: 172/(|z| + Re z) terms leave exp(-37).
complex expi_e1_by_fraction(complex z) {
  const int n = 10 + static_cast<int>(172.0 / (std::abs(z) + z.real()));
  complex tail = z + (2.0 * n + 1.0);
  for (int k = n; k >= 1; --k) tail = z + (2.0 * k - 1.0) - static_cast<double>(k) * static_cast<double>(k) / tail;
  return 1.0 / tail;
}

/// exp(z) E1(z) ~ sum (-1)^k k!/z^(k+1), up to the smallest term, exp(-|z|).
complex expi_e1_asymptotic(complex z) {
  complex term = 1.0 / z, sum = term;
  for (int k = 1; k < std::abs(z) && std::abs(term) > 1e-17 * std::abs(sum); ++k) {
    term *= -static_cast<double>(k) / z;
    sum += term;
  }
  return sum;
}

}  // namespace

double erfcx(double x) {
  if (x < 10.0) {
    const double square = x * x;
    const double rounding = std::fma(x, x, -square);  // x^2 = square + rounding: exp() would blow its error up by x^2
    const double scale = std::exp(square);
    return std::isinf(scale) ? scale : scale * std::erfc(x) * (1.0 + rounding);
  }
  double tail = x;  // x + (1/2)/(x + (2/2)/(x + (3/2)/(x + ...))): from x = 10 on 12 terms leave 1e-17
  for (int k = 12; k >= 1; --k) tail = x + 0.5 * k / tail;
  return std::numbers::inv_sqrtpi / tail;
}

std::complex<double> expi_e1(std::complex<double> z) {
  z.imag(z.imag() + 0.0);  // -0 becomes +0: the cut belongs to its upper side
  const double r = std::abs(z);
  if (r == 0.0) return 1e300;
  // Beside the negative axis the sum of the series is as large as its terms and the fraction converges slowly;
  // elsewhere it is the other way round.
  if (r + z.real() >= 2.0) return expi_e1_by_fraction(z);
  return r <= 50.0 ? std::exp(z) * e1_by_series(z) : expi_e1_asymptotic(z);
}

}  // namespace lmix_math_general

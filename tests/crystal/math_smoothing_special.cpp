// Fourier transform, filters and special functions.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "lmix_math_general.hpp"

using namespace lmix_math_general;
using complex = std::complex<double>;

namespace {

std::vector<double> noise(std::size_t n, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> y(n);
  for (double& v : y) v = normal(random);
  return y;
}

}  // namespace

TEST(Fft, IsTheFourierSumAndComesBack) {
  for (const std::size_t n : {1u, 2u, 8u, 64u, 4096u}) {
    const auto re = noise(n, 3), im = noise(n, 4);
    std::vector<complex> a(n), b;
    for (std::size_t i = 0; i < n; ++i) a[i] = {re[i], im[i]};
    for (const int sign : {-1, 1}) {
      b = a;
      ASSERT_TRUE(fft(b, sign));
      for (const std::size_t k : {std::size_t{0}, n / 3, n - 1}) {
        complex sum = 0;
        for (std::size_t j = 0; j < n; ++j)
          sum += a[j] * std::polar(1.0, sign * 2 * std::numbers::pi * double(j * k % n) / double(n));
        EXPECT_NEAR(std::abs(b[k] - sum), 0, 1e-13 * double(n)) << n << ' ' << k;
      }
      ASSERT_TRUE(fft(b, -sign));
      for (std::size_t j = 0; j < n; ++j) EXPECT_NEAR(std::abs(b[j] / double(n) - a[j]), 0, 1e-14) << n;
    }
  }
  std::vector<complex> three(3, 1.0);
  EXPECT_FALSE(fft(three, 1));
  EXPECT_FALSE(fft({}, 1));
  EXPECT_EQ(three[0], 1.0);
}

TEST(Smooft, KeepsLinesAndSlowWavesAndTakesFastOnes) {
  const std::size_t n = 1000;
  const auto filtered = [&](auto f, double window) {
    std::vector<double> y(n);
    for (std::size_t i = 0; i < n; ++i) y[i] = f(double(i));
    smooft(y, window);
    return y;
  };
  const auto line = [](double i) { return 7.0 - 0.03 * i; };
  const auto y = filtered(line, 50);
  for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(y[i], line(double(i)), 1e-11);
  // A wave of frequency f inside the range is multiplied by 1 - (f w)^2/4; half a wave per window and faster ones die
  // at f w = 2.
  for (const double fw : {0.5, 1.0, 1.5, 2.1}) {
    const double w = 20, f = fw / w;
    const auto wave = [&](double i) { return std::sin(2 * std::numbers::pi * f * i); };
    const auto z = filtered(wave, w);
    const double factor = std::max(0.0, 1 - fw * fw / 4);
    for (std::size_t i = 250; i < 750; ++i) EXPECT_NEAR(z[i], factor * wave(double(i)), 0.01) << fw << ' ' << i;
  }
  for (const double window : {1.0, 0.0, -3.0, double(NAN), double(INFINITY)})
    EXPECT_EQ(filtered(line, window)[7], line(7)) << window;
  std::vector<double> three{1, 9, 1};
  smooft(three, 10);
  EXPECT_EQ(three[1], 9);
}

TEST(SavitzkyGolay, WeightsArePublished) {
  // A. Savitzky & M. J. E. Golay (1964), tables I and IV: quadratic smoothing over 5 and 9 points, first derivative
  // over 5 points; P. A. Gorry (1990): the first point of a quadratic over 5 points.
  struct row {
    int t, m, degree, derivative;
    std::vector<double> weights;
    double norm;
  };
  for (const row& r :
       {row{0, 2, 2, 0, {-3, 12, 17, 12, -3}, 35}, row{0, 2, 3, 0, {-3, 12, 17, 12, -3}, 35},
        row{0, 4, 2, 0, {-21, 14, 39, 54, 59, 54, 39, 14, -21}, 231}, row{0, 2, 2, 1, {-2, -1, 0, 1, 2}, 10},
        row{0, 2, 3, 2, {2, -1, -2, -1, 2}, 7}, row{-2, 2, 2, 0, {31, 9, -3, -5, 3}, 35}})
    for (int i = -r.m; i <= r.m; ++i)
      EXPECT_NEAR(savitzky_golay_weight(i, r.t, r.m, r.degree, r.derivative), r.weights[std::size_t(i + r.m)] / r.norm,
                  1e-14)
          << r.m << r.degree << r.derivative << ' ' << i;
}

TEST(SavitzkyGolay, ReproducesAPolynomialAndItsDerivativesUpToTheEnds) {
  std::vector<double> y(40), out(40);
  const auto f = [](double x) { return 2 - x + 0.3 * x * x - 0.01 * x * x * x; };
  for (std::size_t i = 0; i < y.size(); ++i) y[i] = f(double(i));
  const auto slope = [](double x) { return -1 + 0.6 * x - 0.03 * x * x; };
  for (const int m : {2, 5, 12}) {
    ASSERT_TRUE(savitzky_golay(y, m, 3, 0, out));
    for (std::size_t i = 0; i < y.size(); ++i) EXPECT_NEAR(out[i], y[i], 1e-11) << m;
    ASSERT_TRUE(savitzky_golay(y, m, 4, 1, out));
    for (std::size_t i = 0; i < y.size(); ++i) EXPECT_NEAR(out[i], slope(double(i)), 1e-10) << m << ' ' << i;
  }
  const auto before = out;
  for (const auto& [m, degree, derivative] : {std::array{20, 2, 0}, {2, 5, 0}, {2, 1, 2}, {-1, 0, 0}, {3, 2, -1}})
    EXPECT_FALSE(savitzky_golay(y, m, degree, derivative, out)) << m << degree << derivative;
  EXPECT_FALSE(savitzky_golay(y, 2, 2, 0, std::span(out).first(39)));
  EXPECT_EQ(out, before);
}

// Reference values: 40-digit arithmetic of mpmath 1.3, exp(x*x)*erfc(x) and exp(z)*e1(z).
TEST(SpecialFunctions, ErfcxAgainstHighPrecision) {
  struct row {
    double x, f;
  };
  for (const row t :
       {row{-5.0, 144009798674.66104041}, row{-0.5, 1.9523604891825570933}, row{0.0, 1.0},
        row{0.3, 0.73459933456765514229}, row{1.0, 0.42758357615580700441}, row{2.7, 0.19687412733195577729},
        row{7.9, 0.070857477367397134019}, row{9.99, 0.056196640706858821342}, row{10.0, 0.056140992743822585858},
        row{15.0, 0.037529606388505765746}, row{40.0, 0.014100335983377813625}, row{1e5, 5.6418958351954680777e-6}})
    EXPECT_NEAR(erfcx(t.x), t.f, 4 * DBL_EPSILON * t.f) << t.x;
  EXPECT_EQ(erfcx(-30), INFINITY);
  EXPECT_TRUE(std::isnan(erfcx(NAN)));
  EXPECT_EQ(erfcx(INFINITY), 0.0);
}

TEST(SpecialFunctions, ExponentialIntegralAgainstHighPrecision) {
  struct row {
    complex z, f;
  };
  for (const row& t : {row{{0.1, 0}, {2.0146425447084516791, 0.0}}, row{{1, 0}, {0.59634736232319407434, 0.0}},
                       row{{30, 0}, {0.032289738758980125216, 0.0}},
                       row{{1e-08, 1e-09}, {17.838490102108817317, -0.099668634649358450215}},
                       row{{0, 1}, {0.34337796155642703283, -0.62144962423581335764}},
                       row{{-1, 0.001}, {-0.69601980749006712735, -1.1554239473610006191}},
                       row{{-5, 0}, {-0.27076625549105719558, -0.021167884792604296731}},
                       row{{-5, -0.0}, {-0.27076625549105719558, -0.021167884792604296731}},
                       row{{-9, 3}, {-0.11014959491504060819, -0.043115978161948945417}},
                       row{{-20, 6}, {-0.047939796917147875405, -0.015229453611589828652}},
                       row{{-49.9, 0}, {-0.020458835513934644261, -6.6966133718566746725e-22}},
                       row{{-60, 1}, {-0.016949323824562963173, -0.00028745097015437612586}},
                       row{{-200, 15}, {-0.0049968596609886844991, -0.00037666691904437396217}},
                       row{{-0.7, -1.5}, {0.027047616445457098657, 0.55196901005361907146}},
                       row{{100, 300}, {0.0010079478395400344519, -0.0029939645756011401021}}})
    EXPECT_NEAR(std::abs(expi_e1(t.z) - t.f), 0, 1e-14 * std::abs(t.f)) << t.z;
  EXPECT_EQ(expi_e1(0), 1e300);
}

// d/dz [exp(z) E1(z)] = exp(z) E1(z) - 1/z: holds across every boundary between the methods, and E1(z*) = E1(z)*.
TEST(SpecialFunctions, ExponentialIntegralMeetsItsDifferentialEquation) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> radius(0.3, 70), angle(-3.1, 3.1);
  for (int i = 0; i < 3000; ++i) {
    const complex z = std::polar(radius(random), angle(random));
    const double h = 1e-3 * std::min(1.0, std::abs(z));
    const auto f = [&](double x) { return expi_e1(z + x * h); };
    const complex slope = (8.0 * (f(1) - f(-1)) - (f(2) - f(-2))) / (12 * h);
    const complex expected = f(0) - 1.0 / z;
    EXPECT_NEAR(std::abs(slope - expected), 0, 1e-9 * std::abs(f(0)) + 1e-9 * std::abs(expected)) << z;
    EXPECT_NEAR(std::abs(expi_e1(std::conj(z)) - std::conj(f(0))), 0, 1e-14 * std::abs(f(0))) << z;
  }
}

// Matrices, degrees, linear systems, search, splines and random numbers.
#include "lmix_math_general.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

using namespace lmix_math_general;

TEST(Mat3, InverseAndDeterminantAgreeWithHandCalculation) {
  const mat3d m{{{2, 0, 1}, {1, 3, 0}, {0, 1, 4}}};
  EXPECT_DOUBLE_EQ(determinant(m), 25.0);
  const auto inv = inverse(m);
  ASSERT_TRUE(inv);
  const mat3d by_hand{{{12, 1, -3}, {-4, 8, 1}, {1, -2, 6}}};
  const mat3d one = multiply(m, *inv);
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      EXPECT_NEAR((*inv)[i][j], by_hand[i][j] / 25, 1e-15);
      EXPECT_NEAR(one[i][j], i == j, 1e-15);
    }
  EXPECT_EQ(multiply(m, vec3d{1, 2, 3}), (vec3d{5, 7, 14}));
  EXPECT_EQ(multiply(vec3d{1, 2, 3}, m), (vec3d{4, 9, 13}));
}

TEST(Mat3, SingularAndNotFiniteHaveNoInverse) {
  for (const double scale : {1e-12, 1.0, 1e12}) {
    EXPECT_FALSE(inverse(mat3d{{{scale, 2 * scale, 3 * scale}, {4, 5, 6}, {7, 8, 9}}})) << scale;
    EXPECT_TRUE(inverse(mat3d{{{scale, 0, 0}, {0, scale, 0}, {0, 0, scale}}})) << scale;
  }
  EXPECT_FALSE(inverse(mat3f{{{NAN, 0, 0}, {0, 1, 0}, {0, 0, 1}}}));
  EXPECT_FALSE(inverse(mat3f{}));
}

TEST(Degrees, ExactAtTheCommonAngles) {
  for (int k = -8; k <= 8; ++k) {
    const int cosine[] = {1, 0, -1, 0}, sine[] = {0, 1, 0, -1};
    EXPECT_EQ(cosd(90.0 * k), cosine[((k % 4) + 4) % 4]) << k;
    EXPECT_EQ(sind(90.f * float(k)), float(sine[((k % 4) + 4) % 4])) << k;
  }
  EXPECT_EQ(cosd(120.f), -0.5f);
  EXPECT_EQ(sind(30.f), 0.5f);
  EXPECT_NEAR(sind(123.4), std::sin(123.4 * M_PI / 180), 1e-15);
  EXPECT_NEAR(cosd(-203.4), std::cos(-203.4 * M_PI / 180), 1e-15);
  EXPECT_NEAR(acosd(cosd(67.0)), 67.0, 1e-12);
  EXPECT_EQ(acosd(-1.0000001), 180.0);
  EXPECT_TRUE(std::isnan(acosd(NAN)));
}

TEST(LinearSystem, SolvesWithPivotingAndRefusesSingular) {
  std::vector<double> a{0, 2, 1, 1, 1, 0, 3, 0, 1}, b{7, 3, 6};  // x = 1, 2, 3
  ASSERT_TRUE(solve_linear(a, b));
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(b[std::size_t(i)], i + 1, 1e-14);
  std::vector<double> twice{1, 2, 2, 4}, c{1, 2}, d{1, 2, 3};
  EXPECT_FALSE(solve_linear(twice, c));
  EXPECT_FALSE(solve_linear(twice, d));
}

TEST(Locate, CountsTheElementsNotAboveX) {
  const std::vector<float> t{1.f, 2.f, 2.f, 4.f};
  struct row {
    float x;
    std::size_t n;
  };
  for (const row r :
       {row{0.5f, 0}, row{1.f, 1}, row{1.5f, 1}, row{2.f, 3}, row{3.f, 3}, row{4.f, 4}, row{9.f, 4}, row{NAN, 0}})
    EXPECT_EQ(locate<float>(t, r.x), r.n) << r.x;
  EXPECT_EQ(locate<float>({}, 1.f), 0u);
}

namespace {
const std::vector<double> nodes{-1.0, 0.2, 0.5, 1.7, 4.0, 4.3, 7.0};
const std::vector<double> heights{3.0, -1.0, 2.5, 0.3, 8.0, 7.0, -4.0};
}  // namespace

TEST(Spline, MeetsItsDefiningEquations) {
  const natural_spline curve(nodes);
  std::vector<double> y2(nodes.size());
  curve.second_derivatives(heights, y2);
  EXPECT_EQ(y2.front(), 0.0);
  EXPECT_EQ(y2.back(), 0.0);
  const auto f = [&](double t) { return curve.value(heights, y2, t); };
  const double h = 1e-4;
  for (std::size_t i = 0; i < nodes.size(); ++i) EXPECT_NEAR(f(nodes[i]), heights[i], 1e-12);
  for (std::size_t i = 1; i + 1 < nodes.size(); ++i) {  // slope and curvature continuous at each inner point
    const double x = nodes[i];
    const double left = (3 * f(x) - 4 * f(x - h) + f(x - 2 * h)) / (2 * h);
    const double right = (-3 * f(x) + 4 * f(x + h) - f(x + 2 * h)) / (2 * h);
    EXPECT_NEAR(left, right, 1e-5 * (1 + std::abs(left))) << i;
    const double bend_left = (f(x - 3 * h) - 2 * f(x - 2 * h) + f(x - h)) / (h * h);
    const double bend_right = (f(x + 3 * h) - 2 * f(x + 2 * h) + f(x + h)) / (h * h);
    EXPECT_NEAR(bend_left, y2[i], 0.02 * (1 + std::abs(y2[i]))) << i;
    EXPECT_NEAR(bend_right, y2[i], 0.02 * (1 + std::abs(y2[i]))) << i;
  }
}

TEST(Spline, SinglePrecisionIsTheSameCurve) {
  const std::vector<float> x(nodes.begin(), nodes.end()), y(heights.begin(), heights.end());
  const natural_spline curve(nodes);
  std::vector<double> wanted(nodes.size());
  curve.second_derivatives(heights, wanted);
  const auto y2 = spline(x, y);
  for (float t = -1.2f; t < 7.3f; t += 0.317f)
    EXPECT_NEAR(splint(x, y, y2, t), curve.value(heights, wanted, double(t)), 1e-4) << t;
}

TEST(Spline, WeightsAreTheLinearFormOfTheValue) {
  const natural_spline curve(nodes);
  const std::size_t n = nodes.size();
  std::vector<double> y2(n), w(n), work(n);
  curve.second_derivatives(heights, y2);
  for (double t = -1.5; t < 7.5; t += 0.173) {
    curve.weights(t, w, work);
    double value = 0, sum = 0, first_moment = 0;
    for (std::size_t i = 0; i < n; ++i) {
      value += w[i] * heights[i];
      sum += w[i];
      first_moment += w[i] * nodes[i];
    }
    EXPECT_NEAR(value, curve.value(heights, y2, t), 1e-11) << t;
    EXPECT_NEAR(sum, 1.0, 1e-12) << t;         // a constant is reproduced
    EXPECT_NEAR(first_moment, t, 1e-11) << t;  // and a straight line
  }
}

TEST(Spline, TwoPointsAreAStraightLineAndDisorderIsRefused) {
  const std::vector<double> x{1, 3}, y{10, 20};
  const natural_spline curve(x);
  std::vector<double> y2(2), w(2), work(2);
  curve.second_derivatives(y, y2);
  EXPECT_NEAR(curve.value(y, y2, 2.5), 17.5, 1e-14);
  curve.weights(2.5, w, work);
  EXPECT_NEAR(w[1], 0.75, 1e-14);
  EXPECT_FALSE(natural_spline(std::vector<double>{1, 2, 2, 3}).valid());
  EXPECT_FALSE(natural_spline(std::vector<double>{1}).valid());
  EXPECT_FALSE(natural_spline(std::vector<double>{1, NAN, 3}).valid());
  EXPECT_TRUE(spline(std::vector<float>{1, 1}, std::vector<float>{0, 0}).empty());
  EXPECT_TRUE(spline(std::vector<float>{1, 2}, std::vector<float>{0}).empty());
}

TEST(Generator, StateFollowsThePowersOfTheMultipliers) {
  const auto power = [](std::int64_t base, std::int64_t n, std::int64_t modulus) {
    std::int64_t result = 1;
    for (; n > 0; n /= 2, base = base * base % modulus)
      if (n % 2 == 1) result = result * base % modulus;
    return result;
  };
  combined_generator g;
  g.seed(12345, 67890);
  const std::int64_t n = 100000;
  double u = 0;
  for (std::int64_t i = 0; i < n; ++i) u = g.uniform();
  const std::int64_t s1 = power(40014, n, 2147483563) * 12345 % 2147483563;
  const std::int64_t s2 = power(40692, n, 2147483399) * 67890 % 2147483399;
  EXPECT_EQ(g.s1, s1);
  EXPECT_EQ(g.s2, s2);
  const std::int64_t z = s1 > s2 ? s1 - s2 : s1 - s2 + 2147483562;
  EXPECT_DOUBLE_EQ(u, double(z) / 2147483563.0);
  // Both multipliers are primitive roots: no power at a prime divisor of modulus - 1 is 1, so the period is full.
  for (const std::int64_t p : {2, 3, 7, 631, 81031}) EXPECT_NE(power(40014, 2147483562 / p, 2147483563), 1) << p;
  for (const std::int64_t p : {2, 19, 31, 1019, 1789}) EXPECT_NE(power(40692, 2147483398 / p, 2147483399), 1) << p;
}

TEST(Generator, SeedsComeIntoRange) {
  struct row {
    std::int64_t seed1, seed2, s1, s2;
  };
  for (const row t : {row{1, 1, 1, 1}, row{0, 0, 2147483562, 2147483398},
                      row{2147483563, 2147483399, 2147483562, 2147483398}, row{2147483647, 2147483647, 84, 248},
                      row{-1, -1, 2147483562, 2147483398}, row{-2147483648LL, -2147483648LL, 2147483478, 2147483150}}) {
    combined_generator g;
    g.seed(t.seed1, t.seed2);
    EXPECT_EQ(g.s1, t.s1) << t.seed1;
    EXPECT_EQ(g.s2, t.s2) << t.seed2;
  }
}

TEST(Generator, KeepsInsideTheOpenIntervalInSinglePrecision) {
  // From this state both parts become 123456789: the largest value of all, 1 - 5e-10, which rounds to 1 in single
  // precision.
  combined_generator top{1536472994, 1419045625};
  EXPECT_LT(top.uniform_float(), 1.f);
  EXPECT_EQ(top.s1, 123456789);
  EXPECT_EQ(top.s2, 123456789);
}

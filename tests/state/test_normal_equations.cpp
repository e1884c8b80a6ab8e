#include "normal_equations.hpp"

#include <gtest/gtest.h>

#include <array>

#include <random>

using normal_equations::dp_inv;
using normal_equations::normal_matrix;

namespace {
std::vector<double> random_spd(int n, std::mt19937& gen) {
  std::normal_distribution<double> g;
  std::vector<double> a(static_cast<std::size_t>(n * n)), m(static_cast<std::size_t>(n * n), 0.0);
  for (double& v : a) v = g(gen);
  for (int i = 0; i < n; ++i) m[static_cast<std::size_t>(i * n + i)] = n;  // keeps the condition moderate
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      for (int k = 0; k < n; ++k)
        m[static_cast<std::size_t>(i * n + j)] +=
            a[static_cast<std::size_t>(i * n + k)] * a[static_cast<std::size_t>(j * n + k)];
  return m;
}
TEST(DependentSets, NameTheStepsThatChangeNothing) {
  // columns of a design of 40 rows: 2 is 2 (0) - 0.5 (1), 3 has no effect, 4 is alone
  std::mt19937 gen(11);
  std::normal_distribution<double> g;
  normal_equations::normal_matrix ne;
  ne.reset(5);
  double sum = 0.0;
  for (int row = 0; row < 40; ++row) {
    const auto a = static_cast<float>(g(gen)), b = static_cast<float>(3.0 * g(gen)), c = static_cast<float>(g(gen));
    const std::array<float, 5> d{a, b, 2.f * a - 0.5f * b, 0.f, c};
    ne.add_row(d, 0.25, 2.0);
    sum += 0.25 * 4.0;
  }
  EXPECT_NEAR(ne.weighted_sum(), sum, 1e-12);
  ne.fill_lower();
  const auto sets = normal_equations::dependent_sets(ne.matrix(), 5);
  ASSERT_EQ(sets.size(), 2u);
  const auto& alone = sets[0].unknowns.size() == 1 ? sets[0] : sets[1];
  const auto& three = sets[0].unknowns.size() == 1 ? sets[1] : sets[0];
  EXPECT_EQ(alone.unknowns, std::vector<int>{3});
  ASSERT_EQ(three.unknowns.size(), 3u);
  std::array<double, 3> step{};
  for (std::size_t i = 0; i < 3; ++i) step[static_cast<std::size_t>(three.unknowns[i])] = three.step[i];
  EXPECT_NEAR(step[0] / step[2], -2.0, 1e-5);
  EXPECT_NEAR(step[1] / step[2], 0.5, 1e-5);
}

}  // namespace

TEST(NormalEquations, BlockUpdateEqualsTheRowsOneByOne) {
  std::mt19937 gen(5);
  std::normal_distribution<float> g;
  for (const int n : {1, 2, 5, 13, 40})
    for (const int count : {1, 7, 8, 61, 64}) {
      SCOPED_TRACE(testing::Message() << n << ' ' << count);
      const std::size_t stride = 64;
      std::vector<float> d(static_cast<std::size_t>(n) * stride, 0.f), w(stride), diff(stride);
      std::vector<int> active;
      for (int i = 0; i < n; ++i)
        if (i % 3 != 1) active.push_back(i);  // the others stay zero rows
      for (const int i : active)
        for (int p = 0; p < count; ++p) d[static_cast<std::size_t>(i) * stride + static_cast<std::size_t>(p)] = g(gen);
      for (std::size_t p = 0; p < stride; ++p) w[p] = std::abs(g(gen)), diff[p] = g(gen);
      normal_matrix block, rows;
      block.reset(n), rows.reset(n);
      block.add_block(d.data(), stride, static_cast<std::size_t>(count), w.data(), diff.data(), active);
      std::vector<float> row(static_cast<std::size_t>(n));
      for (int p = 0; p < count; ++p) {
        for (int i = 0; i < n; ++i)
          row[static_cast<std::size_t>(i)] = d[static_cast<std::size_t>(i) * stride + static_cast<std::size_t>(p)];
        rows.add_row(row, static_cast<double>(w[static_cast<std::size_t>(p)]),
                     static_cast<double>(diff[static_cast<std::size_t>(p)]));
      }
      for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(block.vx(i), rows.vx(i), 1e-4);
        for (int j = i; j < n; ++j) EXPECT_NEAR(block.rjac(i, j), rows.rjac(i, j), 1e-4) << i << ' ' << j;
      }
    }
}

TEST(DpInv, InverseAndSolutionOfBadlyScaledSystems) {
  std::mt19937 gen(11);
  for (const int n : {1, 2, 3, 10, 40}) {
    SCOPED_TRACE(n);
    std::vector<double> m = random_spd(n, gen), b(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
      b[static_cast<std::size_t>(i)] = i + 1;
      for (int j = 0; j < n; ++j) m[static_cast<std::size_t>(i * n + j)] *= std::pow(10.0, (i % 7) - 3 + (j % 7) - 3);
    }
    std::vector<double> inv = m, x = b;
    const auto result = dp_inv(inv, x, n);
    ASSERT_FALSE(result.singular);
    for (int i = 0; i < n; ++i) {
      double back = 0;
      for (int j = 0; j < n; ++j) back += m[static_cast<std::size_t>(i * n + j)] * x[static_cast<std::size_t>(j)];
      EXPECT_NEAR(back, b[static_cast<std::size_t>(i)], 1e-6 * (i + 1));
      double unit = 0;
      for (int k = 0; k < n; ++k)
        unit += m[static_cast<std::size_t>(i * n + k)] * inv[static_cast<std::size_t>(k * n + i)];
      EXPECT_NEAR(unit, 1.0, 1e-6);
    }
  }
}

TEST(DpInv, UnsymmetricMatrixWithAZeroOnTheDiagonalNeedsThePivoting) {
  std::vector<double> m{0, 2, 1, 1, 0, 3, 4, 1, 0}, x{1, 2, 3};
  const std::vector<double> a = m;
  ASSERT_FALSE(dp_inv(m, x, 3).singular);
  const double expected[3] = {1, 2, 3};
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(a[static_cast<std::size_t>(3 * i)] * x[0] + a[static_cast<std::size_t>(3 * i + 1)] * x[1] +
                    a[static_cast<std::size_t>(3 * i + 2)] * x[2],
                expected[i], 1e-12);
}

TEST(DpInv, EqualRowsAreSingular) {
  std::vector<double> m{1, 2, 1, 2}, x{1, 1};
  EXPECT_TRUE(dp_inv(m, x, 2).singular);
}

#include <gtest/gtest.h>

#include <random>

#include "kv_free_intensities.hpp"

namespace {

namespace kp = kalvaris_params;
using kv_free_intensities::overlap_equations;

constexpr int points = 60, parameters = 2;
constexpr double ridge = 0.003;

/// Three reflections, the first of two wavelengths, over two blocks; two other parameters.
struct problem {
  kp::state_type st;
  kp::reflection_list refl;
  std::vector<kv_assignk::point_range> reach{{0, 25}, {5, 30}, {10, 40}, {35, 60}};
  std::vector<std::array<double, 4>> profile;  ///< of a point, by row of the list
  std::vector<std::array<float, parameters>> derivative;
  std::vector<float> weight, difference;
  std::array<double, 4> unit{2.0, 1.0, 3.0, 0.5};
  std::array<int, 4> unknown{0, 0, 1, 2};
  normal_equations::normal_matrix ne;
  overlap_equations equations;

  explicit problem(const std::array<float, 3>& ff, unsigned seed = 5) {
    st.phase.resize(1);
    st.phase[0].jbt = 2;
    refl.resize(4);
    const std::array<kp::reflection_key, 4> keys{{{0, 1, 1, 0, 0}, {0, 2, 1, 0, 0}, {0, 1, 1, 1, 0}, {0, 1, 2, 0, 0}}};
    for (std::size_t k = 0; k < 4; ++k) {
      refl.irefs[k] = kp::pack_irefs(keys[k]);
      refl.ff[k] = ff[static_cast<std::size_t>(unknown[k])];
    }
    std::mt19937 gen(seed);
    std::normal_distribution<double> g;
    for (int p = 0; p < points; ++p) {
      std::array<double, 4> row{};
      for (std::size_t k = 0; k < 4; ++k)
        if (p >= reach[k].first && p < reach[k].last)
          row[k] = std::exp(-0.02 * std::pow(p - 0.5 * (reach[k].first + reach[k].last), 2));
      profile.push_back(row);
      derivative.push_back({static_cast<float>(g(gen)), static_cast<float>(1.0 + 0.02 * p)});
      weight.push_back(static_cast<float>(0.5 + 0.01 * p));
      difference.push_back(static_cast<float>(g(gen)));
    }
  }

  void fill() {
    equations.reset(st, refl, reach, parameters);
    ne.reset(parameters);
    constexpr int block = 30;
    for (int first = 0; first < points; first += block) {
      equations.begin_block(block);
      for (int k = 0; k < 4; ++k) {
        const int from = std::max(first, reach[static_cast<std::size_t>(k)].first);
        const int to = std::min(first + block, reach[static_cast<std::size_t>(k)].last);
        std::vector<float> row;
        for (int p = from; p < to; ++p)
          row.push_back(static_cast<float>(profile[static_cast<std::size_t>(p)][static_cast<std::size_t>(k)]));
        if (!row.empty())
          equations.add_peak(k, static_cast<std::size_t>(from - first), row, unit[static_cast<std::size_t>(k)]);
      }
      std::vector<float> rows(static_cast<std::size_t>(parameters) * block);
      for (int n = 0; n < parameters; ++n)
        for (int p = 0; p < block; ++p)
          rows[static_cast<std::size_t>(n * block + p)] =
              derivative[static_cast<std::size_t>(first + p)][static_cast<std::size_t>(n)];
      const std::vector<int> active{0, 1};
      ne.add_block(rows.data(), block, block, weight.data() + first, difference.data() + first, active);
      equations.end_block(weight.data() + first, difference.data() + first, rows.data(), block, active);
    }
  }

  /// Dense solution of both kinds of unknowns; `held`: intensities whose moves are given.
  [[nodiscard]] std::vector<double> dense(const std::vector<std::pair<int, double>>& held = {}) const {
    constexpr int n = parameters + 3;
    std::vector<double> a(static_cast<std::size_t>(n * n), 0.0), b(n, 0.0);
    for (int p = 0; p < points; ++p) {
      const auto u = static_cast<std::size_t>(p);
      std::array<double, n> j{};
      for (int i = 0; i < parameters; ++i) j[static_cast<std::size_t>(i)] = static_cast<double>(derivative[u][static_cast<std::size_t>(i)]);
      for (std::size_t k = 0; k < 4; ++k) j[static_cast<std::size_t>(parameters + unknown[k])] += unit[k] * profile[u][k];
      double d = static_cast<double>(difference[u]);
      for (const auto& [r, move] : held) {
        d -= j[static_cast<std::size_t>(parameters + r)] * move;
        j[static_cast<std::size_t>(parameters + r)] = 0.0;
      }
      for (std::size_t r = 0; r < n; ++r) {
        b[r] += static_cast<double>(weight[u]) * j[r] * d;
        for (std::size_t s = 0; s < n; ++s) a[r * n + s] += static_cast<double>(weight[u]) * j[r] * j[s];
      }
    }
    for (std::size_t r = parameters; r < n; ++r) a[r * n + r] *= 1.0 + ridge;
    for (const auto& [r, move] : held) a[static_cast<std::size_t>((parameters + r) * n + parameters + r)] = 1.0;
    normal_equations::dp_inv(a, b, n);
    for (const auto& [r, move] : held) b[static_cast<std::size_t>(parameters + r)] = move;
    return b;
  }

  /// Shifts of the other parameters with the answer of the intensities.
  std::vector<double> shifts() {
    std::vector<double> s;
    for (int pass = 0; pass < 4; ++pass) {
      normal_equations::normal_matrix reduced = ne;
      equations.eliminate(reduced);
      reduced.fill_lower();
      s.assign(reduced.vector().begin(), reduced.vector().end());
      normal_equations::dp_inv(reduced.matrix(), s, parameters);
      if (!equations.hold_back(s)) break;
    }
    return s;
  }
};

TEST(FreeIntensities, SolvedBesideTheOtherParametersTheyAreThoseOfOneLargeMatrix) {
  for (const unsigned seed : {5U, 6U, 7U}) {
    SCOPED_TRACE(seed);
    problem p({40.f, 50.f, 60.f}, seed);
    p.fill();
    const std::vector<double> both = p.dense(), s = p.shifts();
    for (std::size_t i = 0; i < parameters; ++i) EXPECT_NEAR(s[i], both[i], 1e-5 * (1.0 + std::abs(both[i])));
    const auto moved = p.equations.follow(s, p.refl);
    EXPECT_EQ(moved.at_floor, 0);
    EXPECT_GT(moved.in_sigmas, 0.0);
    const std::array<float, 3> before{40.f, 50.f, 60.f};
    for (std::size_t k = 0; k < 4; ++k) {
      const auto r = static_cast<std::size_t>(p.unknown[k]);
      EXPECT_NEAR(p.refl.ff[k], static_cast<double>(before[r]) + both[parameters + r], 2e-4) << k;
    }
    EXPECT_EQ(p.refl.ff[0], p.refl.ff[1]);  // both wavelengths of a reflection
  }
}

TEST(FreeIntensities, OneThatWouldBecomeNegativeStaysAtATwentiethAndTheOthersAreSolvedWithoutIt) {
  problem p({40.f, 0.2f, 60.f});
  for (int i = 10; i < 40; ++i) p.difference[static_cast<std::size_t>(i)] -= 3.f;
  p.fill();
  ASSERT_LT(p.dense()[parameters + 1], -0.2);
  const std::vector<double> s = p.shifts(), wanted = p.dense({{1, -0.95 * 0.2}});
  for (std::size_t i = 0; i < parameters; ++i) EXPECT_NEAR(s[i], wanted[i], 1e-5 * (1.0 + std::abs(wanted[i])));
  EXPECT_EQ(p.equations.follow(s, p.refl).at_floor, 1);
  EXPECT_NEAR(p.refl.ff[2], 0.01f, 1e-6f);
  EXPECT_NEAR(p.refl.ff[3], 60.0 + wanted[parameters + 2], 2e-4);
}

}  // namespace

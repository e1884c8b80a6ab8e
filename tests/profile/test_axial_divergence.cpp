#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <vector>

#include "lmix_powderprofiles_finger.hpp"

using namespace lmix_powderprofiles_finger;

namespace {

constexpr double radian = std::numbers::pi / 180;

/// The aberration in the variable that it is made of: h, the axial distance between a point of the sample and one of
/// the detector over the diffractometer radius, has a trapezoid as its distribution, and displaces the peak to the
/// angle whose cosine is sqrt(1 + h^2) times that of the peak.
struct truth {
  struct node {
    double offset, weight;
  };
  std::vector<node> nodes;

  truth(double twoth0, double s, double d) {
    const double c0 = std::cos(twoth0 * radian);
    const double end = std::min(s + d, std::abs(std::tan(twoth0 * radian))), bend = std::min(std::abs(s - d), end);
    double sum = 0;
    const int n = 4000;
    // h = end - v^2 (end - bend) takes the singularity at 0 or 180 deg away, where the cone closes to a line
    const auto add = [&](double h, double step) {
      const double angle = std::acos(std::clamp(c0 * std::sqrt(1 + h * h), -1.0, 1.0));
      const double share = std::min(2 * std::min(s, d), s + d - h);
      const double weight = share / ((1 + h * h) * std::sin(angle)) * step;
      nodes.push_back({twoth0 - angle / radian, weight});
      sum += weight;
    };
    for (int i = 0; i < n && end > bend; ++i) {
      const double v = (i + 0.5) / n;
      add(end - v * v * (end - bend), 2 * v * (end - bend) / n);
    }
    for (int i = 0; i < n && bend > 0; ++i) {
      const double v = (i + 0.5) / n, top = end > bend ? 0 : 1;  // singular at bend only when that is the end
      const double h = top ? bend * (1 - v * v) : bend * v;
      add(h, (top ? 2 * v : 1) * bend / n);
    }
    for (node& one : nodes) one.weight /= sum;
  }

  double operator()(double delta, double eta, double H) const {
    double value = 0;
    for (const node& one : nodes) {
      const double x2 = (delta + one.offset) * (delta + one.offset) / (H * H);
      value += one.weight * pseudo_voigt_mod::pv_w1(eta, x2) / H;
    }
    return value;
  }
};

/// Distances from well below to well above the peak and its tail.
std::vector<double> distances(double reach, double H) {
  std::vector<double> out;
  for (double q = -1; q <= 1; q += 0.08) out.push_back(-reach / 2 + q * (std::abs(reach) / 2 + 3 * H));
  return out;
}

double tail_length(const axial_peak<double>& axial) {
  double longest = 0;
  for (const double offset : axial.offset)
    if (std::abs(offset) > std::abs(longest)) longest = offset;
  return longest;
}

struct setting {
  double twoth0, s, d, H, eta;
};
const std::vector<setting> settings{
    {3, 0.02, 0.02, 0.03, 0.5},   {3, 0.03, 0.04, 0.06, 0.5},  {8, 0.03, 0.03, 0.06, 0.3},
    {8, 0.005, 0.04, 0.03, 1},    {20, 0.03, 0.02, 0.03, 0},   {20, 0.02, 0.0003, 0.1, 0.5},
    {45, 0.04, 0.01, 0.02, 0.7},  {89, 0.04, 0.03, 0.03, 0.5}, {91.5, 0.03, 0.02, 0.02, 0.4},
    {120, 0.03, 0.03, 0.03, 0.5}, {150, 0.02, 0.04, 0.02, 1},  {150, 0.02, 0.02, 0.1, 0},
    {1.5, 0.05, 0.01, 0.04, 0.5}, {20, 0, 0.03, 0.05, 0.5}};

TEST(AxialDivergence, ValueAgreesWithTheDistributionOfHeights) {
  gauss_rules rules;
  for (const setting& t : settings) {
    SCOPED_TRACE(testing::Message() << t.twoth0 << ' ' << t.s << ' ' << t.d << ' ' << t.H << ' ' << t.eta);
    axial_peak<double> axial;
    ASSERT_TRUE(prepare(axial, rules, t.twoth0, t.s, t.d, t.H));
    const truth exact(t.twoth0, std::max(t.s, 1e-6), t.d);
    double top = 0, worst = 0;
    for (const double delta : distances(tail_length(axial), t.H)) {
      const double want = exact(delta, t.eta, t.H);
      top = std::max(top, want);
      worst = std::max(worst, std::abs(prof_val<false>(axial, t.eta, 1 / t.H, delta).value - want));
    }
    EXPECT_LT(worst, 5e-5 * top);
    // the tail lies on the side of the nearer end of the range, where the cones shrink
    EXPECT_EQ(tail_length(axial) > 0, t.twoth0 < 90);
  }
}

TEST(AxialDivergence, AreaIsOne) {
  gauss_rules rules;
  axial_peak<double> axial;
  ASSERT_TRUE(prepare(axial, rules, 12, 0.03, 0.02, 0.06));
  double area = 0;
  const double step = 0.004;
  for (double delta = -3; delta < 3; delta += step) area += prof_val<false>(axial, 0.0, 1 / 0.06, delta).value * step;
  EXPECT_NEAR(area, 1, 1e-9);
}

/// What a derivative is taken by, and the central difference of the exact value.
double difference(const std::function<double(double)>& f, double h) { return (f(h) - f(-h)) / (2 * h); }

TEST(AxialDivergence, DerivativesAgreeWithDifferencesOfTheExactValue) {
  gauss_rules rules;
  for (const setting& t : settings) {
    SCOPED_TRACE(testing::Message() << t.twoth0 << ' ' << t.s << ' ' << t.d << ' ' << t.H << ' ' << t.eta);
    axial_peak<double> axial;
    ASSERT_TRUE(prepare(axial, rules, t.twoth0, t.s, t.d, t.H));
    const double s = std::max(t.s, 1e-5), h_s = 1e-3 * s, h_d = 1e-3 * t.d;
    const truth exact(t.twoth0, s, t.d), s_up(t.twoth0, s + h_s, t.d), s_down(t.twoth0, s - h_s, t.d);
    const truth d_up(t.twoth0, s, t.d + h_d), d_down(t.twoth0, s, t.d - h_d);
    std::array<double, 5> largest{}, worst{};
    for (const double delta : distances(tail_length(axial), t.H)) {
      const auto got = prof_val<true>(axial, t.eta, 1 / t.H, delta);
      const std::array<double, 5> have{got.dprdt, got.dprdg, got.dprde, got.dprds, got.dprdd};
      const std::array<double, 5> want{difference([&](double e) { return exact(delta - e, t.eta, t.H); }, 1e-5 * t.H),
                                       difference([&](double e) { return exact(delta, t.eta, t.H + e); }, 1e-5 * t.H),
                                       difference([&](double e) { return exact(delta, t.eta + e, t.H); }, 1e-3),
                                       (s_up(delta, t.eta, t.H) - s_down(delta, t.eta, t.H)) / (2 * h_s),
                                       (d_up(delta, t.eta, t.H) - d_down(delta, t.eta, t.H)) / (2 * h_d)};
      for (std::size_t i = 0; i < 5; ++i) {
        largest[i] = std::max(largest[i], std::abs(want[i]));
        worst[i] = std::max(worst[i], std::abs(have[i] - want[i]));
      }
    }
    // at 1.5 deg all cones are cut by the smaller height alone, which drops out of the shape: both derivatives are 0
    for (std::size_t i = 0; i < 5; ++i) EXPECT_LT(worst[i], 1e-3 * largest[i] + 1e-8) << "derivative " << i;
  }
}

TEST(AxialDivergence, SumAndDifferenceFormFoldsTheDerivatives) {
  gauss_rules rules;
  axial_peak<double> plain, folded;
  ASSERT_TRUE(prepare(plain, rules, 15, 0.02, 0.03, 0.06));
  ASSERT_TRUE(prepare(folded, rules, 15, 0.05, 0.01, 0.06, true));
  const auto a = prof_val<true>(plain, 0.4, 1 / 0.06, -0.05), b = prof_val<true>(folded, 0.4, 1 / 0.06, -0.05);
  EXPECT_NEAR(a.value, b.value, 1e-12);
  EXPECT_NEAR(b.dprds, (a.dprds + a.dprdd) / 2, 1e-9);
  EXPECT_NEAR(b.dprdd, (a.dprdd - a.dprds) / 2, 1e-9);

  axial_peak<double> sum_only, equal;
  ASSERT_TRUE(prepare(sum_only, rules, 15, 0.04, 0, 0.06));
  ASSERT_TRUE(prepare(equal, rules, 15, 0.02, 0.02, 0.06));
  EXPECT_NEAR(prof_val<false>(sum_only, 0.4, 1 / 0.06, -0.05).value, prof_val<false>(equal, 0.4, 1 / 0.06, -0.05).value,
              1e-12);
}

TEST(AxialDivergence, HeightsActByTheirMagnitude) {
  gauss_rules rules;
  axial_peak<double> positive, negative;
  ASSERT_TRUE(prepare(positive, rules, 15, 0.02, 0.03, 0.06));
  ASSERT_TRUE(prepare(negative, rules, 15, -0.02, 0.03, 0.06));
  const auto a = prof_val<true>(positive, 0.4, 1 / 0.06, -0.05), b = prof_val<true>(negative, 0.4, 1 / 0.06, -0.05);
  EXPECT_EQ(a.value, b.value);
  EXPECT_EQ(a.dprds, -b.dprds);
  EXPECT_EQ(a.dprdd, b.dprdd);
}

TEST(AxialDivergence, NothingToConvoluteIsSaid) {
  gauss_rules rules;
  axial_peak<double> axial;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(prepare(axial, rules, 90.39, 0.02, 0.03, 0.06));
  EXPECT_TRUE(prepare(axial, rules, 90.41, 0.02, 0.03, 0.06));
  EXPECT_TRUE(prepare(axial, rules, 89.59, 0.02, 0.03, 0.06));
  EXPECT_FALSE(prepare(axial, rules, 30, 0, 0, 0.06));
  EXPECT_FALSE(prepare(axial, rules, 30, nan, 0.02, 0.06));
  EXPECT_FALSE(prepare(axial, rules, 30, 0.02, nan, 0.06));
  EXPECT_FALSE(prepare(axial, rules, nan, 0.02, 0.02, 0.06));
  EXPECT_FALSE(prepare(axial, rules, 30, 0.02, 0.02, 0));
  EXPECT_FALSE(prepare(axial, rules, 180, 0.02, 0.02, 0.06));
}

TEST(GaussRules, IntegratePowersUpToTheirDegree) {
  gauss_rules rules;
  for (const int n : {1, 8, 11, 100, 1500, 9000}) {
    const auto& rule = rules.at_least(n);
    EXPECT_GE(rule.node.size(), std::size_t(std::min(n, 1500)));
    for (const int power : {0, 1, 7, 15}) {
      double sum = 0;
      for (std::size_t i = 0; i < rule.node.size(); ++i) sum += rule.weight[i] * std::pow(rule.node[i], power);
      EXPECT_NEAR(sum, 1.0 / (power + 1), 1e-13) << n << ' ' << power;
    }
    EXPECT_TRUE(std::is_sorted(rule.node.begin(), rule.node.end()));
  }
}

}  // namespace

// Agreement factors of both sets of points, the factor of correlated residuals and the weights of the equations, by the
// published sums over a pattern that holds points of every kind.
#include <gtest/gtest.h>

#include <random>

#include "kv_rfactors.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;

struct counted_point {
  double y, c, net, v;
  bool bragg;
  [[nodiscard]] double d() const { return y - c; }
  [[nodiscard]] double r() const { return d() / std::sqrt(v); }
};

/// Variance of a point by the scheme, from what the data brought.
double variance_of(const kp::pattern_type& p, std::size_t i, double c) {
  const double y = p.y[i], var = p.var[i], own = std::abs(c) / p.iww[i] * p.cnorm;
  const double of_mean = y + 2 * c, mean = (1 - p.wght.f) * c + p.wght.f * y;
  return p.iwgt == 0   ? var
         : p.iwgt == 1 ? own
         : p.iwgt == 2 ? var + of_mean * of_mean / 225
                       : var + std::pow(p.wght.a * mean, 2) + p.wght.b * mean + p.wght.d;
}

std::vector<counted_point> points_of(const kp::pattern_type& p) {
  std::vector<counted_point> points;
  for (std::size_t i = 0; i < static_cast<std::size_t>(p.npts); ++i) {
    if (p.kr[i] == 25000) continue;
    const double b = p.bk[i], c = p.yc[i] + b;
    points.push_back({p.y[i], c, p.y[i] - b, p.iwgt == 1 ? p.var[i] : variance_of(p, i, c), p.kr[i] != 0});
  }
  return points;
}

template <class F>
double sum_over(const std::vector<counted_point>& points, F&& f) {
  double sum = 0;
  for (const counted_point& q : points) sum += f(q);
  return sum;
}

/// Residuals of one sign in a row, as far as they go together, are one observation. The point behind the last run is
/// not known, so that the last residual stays out.
double correlated_residuals(std::vector<counted_point> points) {
  std::erase_if(points, [](const counted_point& q) { return !q.bragg; });
  double sum = 0, together = 0;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const double r = points[i].r(), next = points[i + 1].r();
    double share = 0;
    if (r * next > 0) {
      const double q = std::sqrt(2 * M_PI * (r * r + next * next));
      share = q / (q + 2);
    }
    together += std::abs(r) * share;
    sum += (1 - share * share) * r * r;
    if (share == 0 || i + 2 == points.size()) sum += together * together, together = 0;
  }
  return std::sqrt(sum / sum_over(points, [](const counted_point& q) { return q.r() * q.r(); }));
}

void expect_sums(const std::vector<counted_point>& points, double durbin_watson, double share,
                 const kp::agreement_set& a) {
  using set = kp::agreement_set;
  const auto sum = [&](auto&& f) { return sum_over(points, f); };
  const double n = static_cast<double>(points.size()), freed = n - share;
  const double s1 = sum([](const auto& q) { return std::abs(q.d()); });
  const double s2 = sum([](const auto& q) { return q.r() * q.r(); });
  const double d1 = sum([](const auto& q) { return q.y; });
  const double d2 = sum([](const auto& q) { return q.y * q.y / q.v; });
  const double net = sum([](const auto& q) { return q.net; });
  const double net2 = sum([](const auto& q) { return q.net * q.net / q.v; });
  const double deviance = 2 * sum([](const auto& q) {
                            return q.c == 0 || q.y == 0 ? 0.0 : q.y * std::log(std::abs(q.y / q.c)) - q.y + q.c;
                          });
  const double inverse = sum([](const auto& q) { return q.c == 0 ? 0.0 : 1 / (6 * q.c); });
  struct row {
    const char* name;
    float set::*member;
    double value;
  };
  for (const row& t : {row{"s1", &set::s1, s1},
                       row{"s2", &set::s2, s2},
                       row{"s3", &set::s3, sum([](const auto& q) { return q.c; })},
                       row{"d1", &set::d1, d1},
                       row{"d2", &set::d2, d2},
                       row{"net", &set::qq1, net},
                       row{"net squared", &set::qq2, net2},
                       row{"Rp", &set::r_patt, 100 * s1 / d1},
                       row{"Rwp", &set::r_wpatt, 100 * std::sqrt(s2 / d2)},
                       row{"Rexp", &set::r_expected, 100 * std::sqrt(freed / d2)},
                       row{"cRp", &set::cr_patt, 100 * s1 / net},
                       row{"cRwp", &set::cr_wpatt, 100 * std::sqrt(s2 / net2)},
                       row{"cRexp", &set::cr_expected, 100 * std::sqrt(freed / net2)},
                       row{"chi2", &set::chi2, s2 / freed},
                       row{"deviance", &set::devinc, deviance},
                       row{"Bartlett", &set::yinv, inverse},
                       row{"Dev*", &set::dstar, deviance / (inverse + freed)},
                       row{"Durbin-Watson", &set::dw, durbin_watson / s2},
                       row{"its limit", &set::qdw, 2 * ((n - 1) / freed - 3.0902 / std::sqrt(n + 2))},
                       row{"deviate", &set::n_s, std::sqrt(freed / 2) * (s2 / freed - 1)},
                       row{"degrees of freedom", &set::freed, freed}})
    EXPECT_NEAR(a.*t.member, t.value, 2e-6 * std::abs(t.value) + 1e-9) << t.name;
}

TEST(Rfactors, AreThePublishedSumsOverTheirPoints) {
  for (const int iwgt : {0, 1, 2, 3}) {
    SCOPED_TRACE(testing::Message() << "iwgt " << iwgt);
    kp::state_type st;
    st.run.n_patt = 2, st.run.maxs = 7;  // three for each
    st.pattern.resize(2);
    kp::pattern_type& p = st.pattern[1];
    p.iwgt = iwgt;
    p.wght = {.given = true, .a = 0.03f, .b = 0.2f, .d = 4.f, .f = 0.3f};
    p.npts = 300;
    std::mt19937 random(5u);
    std::normal_distribution<float> normal;
    for (int i = 0; i < p.npts; ++i) {
      const bool excluded = i == 0 || (i > 100 && i < 120), net_data = i > 200 && i<230, bragg = i % 50> 15;
      p.bk.push_back(net_data ? 0.f : 40.f + 0.1f * static_cast<float>(i));
      p.yc.push_back(bragg ? 30.f + 200.f * std::abs(normal(random)) : 0.f);
      p.var.push_back(5.f + 20.f * std::abs(normal(random)));
      const float c = p.yc.back() + p.bk.back();
      p.y.push_back(net_data && !bragg ? (i % 3 == 0 ? 0.f : normal(random))
                                       : c + 10.f * std::sin(0.7f * static_cast<float>(i)) + 8.f * normal(random));
      p.kr.push_back(excluded ? 25000 : bragg ? kp::pack_kr(1, 2, 25000) : 0);
      p.num += !excluded, p.num1 += bragg && !excluded;
    }
    kv_rfactors::chisq1(st, 1, true);
    kv_rfactors::calc_rfac(st, 1);
    const std::vector<counted_point> all = points_of(p);
    std::vector<counted_point> bragg = all;
    std::erase_if(bragg, [](const counted_point& q) { return !q.bragg; });
    double durbin_watson = 0;
    for (std::size_t i = 1; i < all.size(); ++i) durbin_watson += std::pow(all[i].r() - all[i - 1].r(), 2);
    expect_sums(all, durbin_watson, 3, p.all);
    expect_sums(bragg, durbin_watson, 3, p.bragg);
    EXPECT_NEAR(p.scor, correlated_residuals(all), 1e-5);
    EXPECT_GT(p.scor, 1.05f);
    const float before = p.scor;
    p.y[20] += 500.f;
    kv_rfactors::chisq1(st, 1, false);
    EXPECT_EQ(p.scor, before) << "of the last cycle only";
  }
}

// A pattern is linear in its scale: matrix and vector are sums over the Bragg part, by hand for every weighting. And
// what these equations minimise is what is printed.
TEST(Weights, OfTheEquationsAreThoseOfTheAgreementFactors) {
  for (const int iwgt : {0, 1, 2, 3}) {
    SCOPED_TRACE(testing::Message() << "iwgt " << iwgt);
    kp::state_type st = model_state::quartz(7);
    kp::pattern_type& p = st.pattern[0];
    auto& m = st.mixes[0];
    m.apar[kp::slot::scale] = 11.f;
    st.run.maxs = 1;
    p.iwgt = iwgt, p.w_pat = 0.6f, p.cnorm = 1.7f;
    p.wght = {.given = true, .a = 0.03f, .b = 0.2f, .d = 7.f, .f = 0.4f};
    p.excluded = {{30.01f, 33.01f}};
    model_state::set_up(st);
    std::vector<double> c = model_state::calculated(st);
    for (std::size_t i = 0; i < c.size(); ++i) {
      p.iww[i] = 1 + static_cast<int>(i % 3);
      p.var[i] = static_cast<float>(20.0 + 0.01 * static_cast<double>(i));
      p.y[i] = static_cast<float>(c[i] * (1.0 + 0.1 * std::sin(0.1 * static_cast<double>(i))));
    }
    double matrix = 0, vector = 0, residual = 0;
    for (std::size_t i = 0; i < c.size(); ++i) {
      if (p.txv[i] >= 30.01f && p.txv[i] <= 33.01f) continue;
      const double v = variance_of(p, i, c[i]), by_scale = p.yc[i] / double(m.par[kp::slot::scale]), d = p.y[i] - c[i];
      matrix += 0.6 * by_scale * by_scale / v;
      vector += 0.6 * by_scale * d / v;
      residual += d * d / v;
    }
    st.ne.reset(1);
    kv_iterate_calc_cw::calc_patterns_2theta(st, 0, true);
    kv_rfactors::chisq1(st, 0, false);
    EXPECT_NEAR(st.ne.rjac(0, 0) / matrix, 1.0, 1e-4);
    EXPECT_NEAR(st.ne.vx(0) / vector, 1.0, 1e-3);
    EXPECT_NEAR(p.all.s2 / residual, 1.0, 1e-4);
  }
}

}  // namespace

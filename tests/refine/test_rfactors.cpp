// Agreement factors of both sets of points, the factor of correlated residuals and the weights of the equations, by the
// published sums over a pattern that holds points of every kind.
#include <gtest/gtest.h>

#include <random>

#include "agreement_by_hand.hpp"
#include "kv_rfactors.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
using namespace agreement_by_hand;

void expect_set(const factors& f, const kp::agreement_set& a) {
  using set = kp::agreement_set;
  struct row {
    const char* name;
    float set::*member;
    double value;
  };
  for (const row& t : {row{"s1", &set::s1, f.s1},
                       row{"s2", &set::s2, f.s2},
                       row{"s3", &set::s3, f.s3},
                       row{"d1", &set::d1, f.d1},
                       row{"d2", &set::d2, f.d2},
                       row{"net", &set::qq1, f.net},
                       row{"net squared", &set::qq2, f.net2},
                       row{"Rp", &set::r_patt, f.rp},
                       row{"Rwp", &set::r_wpatt, f.rwp},
                       row{"Re", &set::r_expected, f.re},
                       row{"cRp", &set::cr_patt, f.crp},
                       row{"cRwp", &set::cr_wpatt, f.crwp},
                       row{"cRe", &set::cr_expected, f.cre},
                       row{"chi2", &set::chi2, f.chi2},
                       row{"deviance", &set::devinc, f.deviance},
                       row{"Bartlett", &set::yinv, f.inverse},
                       row{"Dev*", &set::dstar, f.dstar},
                       row{"Durbin-Watson", &set::dw, f.dw},
                       row{"its limit", &set::qdw, f.dw_limit},
                       row{"deviate", &set::n_s, f.deviate},
                       row{"degrees of freedom", &set::freed, f.freed}})
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
    const points all = points_of(p, 25000);
    expect_set(factors_of(all, durbin_watson_sum(all), 3), p.all);
    expect_set(factors_of(bragg_points(all), durbin_watson_sum(all), 3), p.bragg);
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

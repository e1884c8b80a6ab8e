#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

#include "kv_rfactors.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
using kv_iterate_calc_cw::cycle_hooks;
using kv_iterate_calc_cw::cycle_report;

/// Scale, zero, cell a (with F), B of silicon refined against the pattern of the model itself, noise added on demand.
struct refinement {
  kp::state_type st = model_state::quartz(7);
  std::ostringstream console;
  std::vector<cycle_report> reports;
  cycle_hooks hooks;

  explicit refinement(double noise) {
    st.io.console = &console;
    st.run.mcycle = 25;
    st.run.t_chi2_ini = 0.f;
    st.run.maxs = 4;
    auto& m = st.mixes[0];
    m.apar[kp::slot::scale] = 11.f;
    st.pattern[0].aglb[kp::gslot::zero] = 21.f;
    m.apar[kp::slot::cell_a] = 31.f;
    st.atom[0].a[kp::aslot::biso] = 41.f;
    model_state::set_up(st);
    std::mt19937 gen(3);
    std::normal_distribution<double> g;
    const auto truth = model_state::calculated(st);
    for (std::size_t i = 0; i < truth.size(); ++i) {
      st.pattern[0].var[i] = static_cast<float>(truth[i]);
      st.pattern[0].y[i] = static_cast<float>(truth[i] + noise * std::sqrt(truth[i]) * g(gen));
    }
    st.pattern[0].yo_max = *std::ranges::max_element(st.pattern[0].y);
    hooks.cycle_done = [this](const cycle_report& r) { reports.push_back(r); };
    hooks.console = [this](std::string_view text) { console << text << '\n'; };
  }
  void disturb() {
    st.mixes[0].par[kp::slot::scale] *= 1.1f;
    st.pattern[0].glb[kp::gslot::zero] += 0.01f;
    st.atom[0].xl[kp::aslot::biso] += 0.2f;
  }
};

TEST(Iterate, ComesBackToTheTruthAndSaysSo) {
  refinement r(1.0);
  r.disturb();
  ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
  ASSERT_GE(r.reports.size(), 3u);
  EXPECT_TRUE(r.reports.back().converged);
  EXPECT_NEAR(r.st.run.t_chi2, 1.0f, 0.1f);
  const auto& esd = r.st.parm.svalx;
  EXPECT_NEAR(r.st.mixes[0].par[kp::slot::scale], 0.05f, 3.5f * esd[1]);
  EXPECT_NEAR(r.st.pattern[0].glb[kp::gslot::zero], 0.013f, 3.5f * esd[2]);
  EXPECT_NEAR(r.st.atom[0].xl[kp::aslot::biso], 0.6f, 3.5f * esd[4]);
  EXPECT_NEAR(r.st.phase[0].cellp.cell[0], 4.9134f, 3.5f * r.st.phase[0].cell_esd[0]);
  EXPECT_EQ(r.st.phase[0].cellp.cell[0], r.st.phase[0].cellp.cell[1]);
  EXPECT_GT(r.st.phase[0].cell_esd[0], 0.f);
  EXPECT_EQ(r.st.phase[0].cell_esd[2], 0.f);
}

TEST(Iterate, EsdsAreTheScatterOfRepeatedMeasurements) {
  // 40 measurements of the same truth: the spread of B over its esd has a mean square near 1
  double sum = 0;
  refinement base(0.0);
  const auto truth = model_state::calculated(base.st);
  std::mt19937 gen(17);
  std::normal_distribution<double> g;
  for (int trial = 0; trial < 40; ++trial) {
    refinement r(0.0);
    for (std::size_t i = 0; i < truth.size(); ++i)
      r.st.pattern[0].y[i] = static_cast<float>(truth[i] + std::sqrt(truth[i]) * g(gen));
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    sum += std::pow((r.st.atom[0].xl[kp::aslot::biso] - 0.6f) / r.st.parm.svalx[4], 2);
  }
  EXPECT_NEAR(sum / 40, 1.0, 0.7);  // chi-square of 40: 3 sigma is 0.67
}

TEST(Iterate, WithoutParametersConvergesInTheFirstCycle) {
  refinement r(1.0);
  r.st.run.maxs = 0;
  ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
  EXPECT_EQ(r.st.run.cycles_done, 1);
  EXPECT_TRUE(r.reports.back().converged);
}

TEST(Iterate, NamesTheParameterWithoutDerivatives) {
  refinement r(1.0);
  r.st.mixes[0].lpar[kp::slot::u2] = 5;  // U of a second wavelength that has no widths of its own
  r.st.mixes[0].apar[kp::slot::u2] = 1.f;
  r.st.run.maxs = 5;
  r.st.parm.nampar.resize(6);
  r.st.parm.nampar[5] = "U2_ph1_pat1";
  EXPECT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 1);
  EXPECT_NE(r.console.str().find("Singular matrix!!, problem with U2_ph1_pat1"), std::string::npos);
}

TEST(Iterate, TwoParametersThatDoTheSameStopTheRun) {
  refinement r(1.0);
  r.st.mixes[0].lpar[kp::slot::zero_ph] = 5;
  r.st.mixes[0].apar[kp::slot::zero_ph] = 1.f;
  r.st.run.maxs = 5;
  EXPECT_THROW(kv_iterate_calc_cw::iterate(r.st, r.hooks), kalvaris_inout::run_stopped);
}

TEST(Iterate, NotANumberEndsAsDivergenceWithItsName) {
  refinement r(1.0);
  r.st.mixes[0].par[kp::slot::bov] = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 1);
  EXPECT_NE(r.console.str().find("not finite: reflection"), std::string::npos) << r.console.str();
}

TEST(ShiftMemory, FirstNegativeShiftIsHalvedAndAPositiveOneIsNot) {
  for (const float sign : {1.f, -1.f}) {
    refinement r(0.0);
    r.st.run.maxs = 1;
    r.st.run.mcycle = 1;
    r.st.mixes[0].par[kp::slot::scale] = 0.05f - sign * 0.001f;  // a linear parameter: the full shift is exact
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    EXPECT_NEAR(r.reports[0].shifts.changes[0].shift, sign > 0 ? 0.001f : -0.0005f, 2e-6f);
  }
}

TEST(ApplyShifts, LimitsGuardsAndMultipliers) {
  kp::state_type st = model_state::quartz(7);
  std::ostringstream console;
  st.io.console = &console;
  auto& m = st.mixes[0];
  m.par[kp::slot::x] = 0.02f, m.par[kp::slot::y] = 0.03f;
  m.apar[kp::slot::x] = 11.f;   // guarded: falls below 0
  m.apar[kp::slot::w] = 21.f;   // boxed
  m.apar[kp::slot::v] = -21.f;  // follows the boxed one with the other sign
  m.apar[kp::slot::u] = 30.5f;  // alone with half a multiplier: sigma is not halved
  st.run.limits.push_back({2, 0.f, 0.015f, 0.f, 0, ""});
  st.run.nrell = 1;
  st.run.maxs = 3;
  st.run.relax = {0.f, 1.f, 1.f, 0.8f, 1.f};
  model_state::load_cells(st);
  kalvaris_codes::mod_codes(st);
  st.ne.reset(3);
  st.ne.vx(0) = -0.05, st.ne.vx(1) = 0.02, st.ne.vx(2) = 0.01;
  for (int n = 0; n < 3; ++n) st.ne.rjac(n, n) = 4e-6;
  const auto report = apply_shifts::apply(st);
  EXPECT_FLOAT_EQ(m.par[kp::slot::x], 0.0001f);
  EXPECT_FLOAT_EQ(m.apar[kp::slot::x], 0.5f);
  EXPECT_FLOAT_EQ(m.par[kp::slot::u], 0.01f * 0.5f * 0.8f);
  // V stands before W in the walk: it is the first slot of number 2, and its value goes to the lower bound
  EXPECT_FLOAT_EQ(m.par[kp::slot::v], 0.f);
  EXPECT_FLOAT_EQ(m.par[kp::slot::w], 0.012f);
  ASSERT_EQ(report.limited.size(), 1u);
  EXPECT_EQ(report.limited[0], -2);
  ASSERT_EQ(report.warnings.size(), 1u);
  for (const auto& c : report.changes) EXPECT_NEAR(c.sigma, 2e-3f, 1e-6f) << c.k;
}

TEST(Iterate, AParameterAtItsGuardLeavesTheOthersTheirMinimum) {
  // Y of the truth is 0 and noise wants it below: with Y held at its guard the others end where they do with Y fixed
  std::array<float, 2> scale{};
  for (const bool free_y : {false, true}) {
    refinement r(0.0);
    auto& m = r.st.mixes[0];
    m.par[kp::slot::y] = 0.f, m.par[kp::slot::w] = 0.010f;  // data with narrower peaks than the model can reach
    const auto narrow = model_state::calculated(r.st);
    for (std::size_t i = 0; i < narrow.size(); ++i) r.st.pattern[0].y[i] = static_cast<float>(narrow[i]);
    m.par[kp::slot::y] = free_y ? 0.005f : 0.0001f, m.par[kp::slot::w] = 0.012f;
    if (free_y) {
      m.lpar[kp::slot::y] = r.st.run.maxs = 5;
      m.apar[kp::slot::y] = 1.f;
      r.st.parm.nampar.resize(6), r.st.parm.valx.resize(6);
    }
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    EXPECT_TRUE(r.reports.back().converged) << free_y;
    scale[free_y] = m.par[kp::slot::scale];
  }
  EXPECT_NEAR(scale[1] / scale[0], 1.f, 1e-4f);
}

TEST(Iterate, FindsBackFromStartsThatOvershoot) {
  struct row {
    const char* name;
    int k;
    float truth, start, within;
  };
  for (const row t : {row{"scale 20 times too small", kp::slot::scale, 0.05f, 0.0025f, 5e-4f},
                      row{"width far too large", kp::slot::w, 0.004f, 0.05f, 1e-4f},
                      row{"axial divergence near zero", kp::slot::s_l, 0.03f, 0.002f, 3e-4f},
                      row{"no axial divergence in the data", kp::slot::s_l, 0.f, 0.02f, 1e-3f}}) {
    SCOPED_TRACE(t.name);
    refinement r(0.0);
    auto& m = r.st.mixes[0];
    const auto k = static_cast<std::size_t>(t.k);
    m.par[kp::slot::s_l] = m.par[kp::slot::d_l] = t.k == kp::slot::s_l ? t.truth : 0.f;
    m.par[k] = t.truth;
    const auto y = model_state::calculated(r.st);
    for (std::size_t i = 0; i < y.size(); ++i) r.st.pattern[0].y[i] = static_cast<float>(y[i]);
    m.par[k] = t.start;
    if (t.k != kp::slot::scale) m.lpar[k] = r.st.run.maxs = 5, m.apar[k] = 1.f;
    if (t.k == kp::slot::s_l) m.par[kp::slot::d_l] = t.start, m.lpar[kp::slot::d_l] = 5, m.apar[kp::slot::d_l] = 1.f;
    r.st.parm.nampar.resize(6), r.st.parm.valx.resize(6), r.st.parm.svalx.resize(6);
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    EXPECT_TRUE(r.reports.back().converged);
    EXPECT_NEAR(m.par[k], t.truth, t.within);  // the peak feels S/L by its square: 1e-3 is nothing
    EXPECT_LT(r.st.pattern[0].all.chi2, 0.01f);
  }
}

TEST(Iterate, FewerPointsThanParametersEndAbnormally) {
  refinement r(1.0);
  r.st.pattern[0].excluded = {{20.06f, 70.f}};
  EXPECT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 1);
  EXPECT_NE(r.console.str().find("Too few points under reflections"), std::string::npos);
}

TEST(Rfactors, AgreeWithSumsByHandAndLeaveExcludedPointsOut) {
  kp::state_type st = model_state::quartz(7);
  kp::pattern_type& p = st.pattern[0];
  p.npts = 4;
  p.y = {10.f, 20.f, 40.f, 1000.f};
  p.yc = {0.f, 12.f, 33.f, 0.f};
  p.bk = {8.f, 6.f, 5.f, 1.f};
  p.var = {10.f, 20.f, 40.f, 1000.f};
  p.kr = {0, kp::pack_kr(1, 1, 25000), kp::pack_kr(1, 1, 25000), 25000};
  p.num = 3, p.num1 = 2;
  st.run.maxs = 1;
  kv_rfactors::chisq1(st, 0, true);
  kv_rfactors::calc_rfac(st, 0);
  EXPECT_NEAR(p.all.r_patt, 100.0 * (2 + 2 + 2) / 70, 1e-4);
  EXPECT_NEAR(p.all.r_wpatt, 100.0 * std::sqrt((0.4 + 0.2 + 0.1) / 70.0), 1e-4);
  EXPECT_NEAR(p.all.chi2, 0.7 / 2, 1e-5);
  EXPECT_NEAR(p.bragg.s2, 0.3, 1e-6);
  EXPECT_NEAR(p.bragg.chi2, 0.3, 1e-5);
  const double r[3] = {2 / std::sqrt(10.0), 2 / std::sqrt(20.0), 2 / std::sqrt(40.0)};
  EXPECT_NEAR(p.all.dw, (std::pow(r[1] - r[0], 2) + std::pow(r[2] - r[1], 2)) / 0.7, 1e-5);
}

TEST(Bragg, PartitionGivesBackTheIntensitiesOfAPerfectModel) {
  refinement r(0.0);
  kv_background::build(r.st.pattern[0]);
  kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
  kv_iterate_calc_cw::bragg(r.st, 0);
  EXPECT_LT(r.st.mixes[0].r_bragg, 0.05f);
  EXPECT_LT(r.st.mixes[0].r_f, 0.05f);
}

TEST(Bragg, LeBailFindsTheIntensitiesFromEqualOnes) {
  refinement r(0.0);
  kp::pattern_type& p = r.st.pattern[0];
  kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
  const std::vector<float> truth = p.refl.ff;
  r.st.phase[0].jbt = 2;
  std::fill(p.refl.ff.begin(), p.refl.ff.end(), 50.f);
  for (int cycle = 0; cycle < 60; ++cycle) {
    kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
    kv_iterate_calc_cw::bragg(r.st, 0);
  }
  std::map<long, std::array<double, 2>> of_spacing;  // h k l and k h l stand at one place: only their sum is observed
  for (std::size_t k = 0; k < truth.size(); ++k) {
    if (p.refl.pos[k] > 69.0) continue;  // the list goes on behind the pattern
    auto& [found, wanted] = of_spacing[std::lround(5000.f * p.refl.dspacing[k])];
    found += p.refl.ff[k];
    wanted += truth[k];
  }
  double difference = 0, sum = 0;
  for (const auto& [d, f] : of_spacing) {
    difference += std::abs(f[0] - f[1]);
    sum += f[1];
  }
  EXPECT_LT(difference / sum, 0.05);
  EXPECT_LT(r.st.mixes[0].r_bragg, 1.f);
}

}  // namespace

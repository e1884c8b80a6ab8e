#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

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

/// A state with the codes of P1 and P2, which no guard minds, and the solution of the equations.
kp::state_type asymmetry_of(float code_1, float code_2, double shift) {
  kp::state_type st = model_state::quartz(7);
  auto& m = st.mixes[0];
  m.par[kp::slot::asy1] = 0.04f, m.par[kp::slot::asy2] = 0.02f;
  m.apar[kp::slot::asy1] = code_1, m.apar[kp::slot::asy2] = code_2;
  st.run.relax = {0.f, 1.f, 1.f, 0.8f, 1.f};
  st.run.maxs = 1;
  model_state::load_cells(st);
  kalvaris_codes::mod_codes(st);
  st.ne.reset(1);
  st.ne.vx(0) = shift, st.ne.rjac(0, 0) = 4e-6;
  return st;
}

TEST(ApplyShifts, MultipliersLimitsAndDeviations) {
  struct row {
    float code_1, code_2;
    double shift;
    float low, high;  ///< limits of the first slot
    float p1, p2, sigma_2;
    int limited;
    double outward;  ///< of the solution, 0: free
  };
  for (const row& t : {row{11.f, 12.f, 0.01, -1, 1, 0.048f, 0.036f, 4e-3f, 0, 0},
                       row{10.5f, -11.f, 0.01, -1, 1, 0.044f, 0.012f, 4e-3f, 0, 0},
                       row{-11.f, 10.25f, 0.01, -1, 1, 0.032f, 0.022f, 5e-4f, 0, 0},
                       row{11.f, 12.f, 0.01, -1, 0.045f, 0.045f, 0.030f, 4e-3f, 1, 1},
                       row{11.f, -10.5f, -0.01, 0.037f, 1, 0.037f, 0.0215f, 1e-3f, -1, -1},
                       row{-11.f, 0.f, 0.01, 0.037f, 1, 0.037f, 0.02f, 0, -1, 1},
                       row{-11.f, 0.f, -0.01, -1, 0.045f, 0.045f, 0.02f, 0, 1, -1}}) {
    SCOPED_TRACE(testing::Message() << t.code_1 << ' ' << t.code_2 << ' ' << t.shift);
    kp::state_type st = asymmetry_of(t.code_1, t.code_2, t.shift);
    if (t.limited != 0) st.run.limits.push_back({1, t.low, t.high, 0.f, 0, ""}), st.run.nrell = 1;
    const auto report = apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
    EXPECT_FLOAT_EQ(st.mixes[0].par[kp::slot::asy1], t.p1);
    EXPECT_FLOAT_EQ(st.mixes[0].par[kp::slot::asy2], t.p2);
    ASSERT_EQ(report.changes.size(), t.code_2 == 0.f ? 1u : 2u);
    EXPECT_FLOAT_EQ(report.changes[0].sigma, 2e-3f);
    EXPECT_FLOAT_EQ(report.changes[0].shift, t.p1 - 0.04f);
    if (t.code_2 != 0.f) {
      EXPECT_FLOAT_EQ(report.changes[1].sigma, t.sigma_2);
    }
    EXPECT_FLOAT_EQ(st.parm.valx[1], t.p1);
    EXPECT_FLOAT_EQ(st.parm.svalx[1], 2e-3f);
    EXPECT_EQ(report.limited, t.limited == 0 ? std::vector<int>{} : std::vector{t.limited});
    ASSERT_EQ(report.held.size(), t.limited == 0 ? 0u : 1u);
    if (t.limited != 0) {
      EXPECT_EQ(report.held[0].outward, t.outward);
    }
  }
}

TEST(ApplyShifts, GuardsFixTheValueAndHalveTheMultiplier) {
  namespace s = kp::slot;
  struct row {
    int k, npro;
    float start, guarded, outward;
  };
  for (const row& t :
       {row{s::x, 7, 0.02f, 0.0001f, 1}, row{s::y, 7, 0.02f, 0.0001f, 1}, row{s::xi, 7, 0.02f, 0.00001f, 1},
        row{s::x, 5, 0.02f, -0.03f, 0}, row{s::scale, 5, 0.02f, 1e-10f, 1}, row{s::pref1, 7, 0.02f, 0.f, 1},
        row{s::bov, 7, 0.02f, -0.03f, 0}}) {
    SCOPED_TRACE(testing::Message() << t.k << ' ' << t.npro);
    for (const float code : {11.f, -11.f}) {
      kp::state_type st = asymmetry_of(0.f, 0.f, 0.0);
      const auto k = static_cast<std::size_t>(t.k);
      st.mixes[0].npro = t.npro;
      st.mixes[0].par[k] = t.start, st.mixes[0].lpar[k] = 1, st.mixes[0].apar[k] = code > 0 ? 1.f : -1.f;
      st.run.maxs = 1, st.run.relax[3] = 1.f;
      apply_shifts::set_reference_multipliers(st);
      st.ne.reset(1);
      st.ne.vx(0) = code > 0 ? -0.05 : 0.05;
      const auto report = apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
      EXPECT_FLOAT_EQ(st.mixes[0].par[k], t.guarded);
      EXPECT_FLOAT_EQ(std::abs(st.mixes[0].apar[k]), t.outward != 0 ? 0.5f : 1.f);
      EXPECT_EQ(report.warnings.empty(), t.outward == 0);
      ASSERT_EQ(report.held.size(), t.outward != 0 ? 1u : 0u);
      if (t.outward != 0) {
        EXPECT_EQ(report.held[0].outward, code > 0 ? -1 : 1);
      }
    }
  }
}

TEST(ApplyShifts, RadiationFollowsItsParameters) {
  kp::state_type st = asymmetry_of(0.f, 0.f, 0.0);
  kp::pattern_type& p = st.pattern[0];
  p.lglb[kp::gslot::lambda] = 1, p.aglb[kp::gslot::lambda] = 1.f, p.lglb[kp::gslot::ratio2] = 2,
  p.aglb[kp::gslot::ratio2] = 1.f;
  st.run.maxs = 2;
  apply_shifts::set_reference_multipliers(st);
  st.ne.reset(2);
  st.ne.vx(0) = 0.01, st.ne.vx(1) = -0.03;
  const std::array<float, 2> before = p.lamda;
  apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
  EXPECT_FLOAT_EQ(p.lamda[0], before[0] + 0.01f);
  EXPECT_FLOAT_EQ(p.lamda[1] / p.lamda[0], before[1] / before[0]);
  EXPECT_FLOAT_EQ(p.ratio[1], 0.47f);
}

TEST(Iterate, DeviationsGrowWithTheMisfitAndNeverShrink) {
  // the same residuals under other variances: deviations go with the variances while these cover the residuals, then
  // with the residuals
  const auto esd_of = [](float factor) {
    refinement r(1.0);
    for (float& v : r.st.pattern[0].var) v *= factor;
    EXPECT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    return r.st.parm.svalx[4];
  };
  const float esd = esd_of(1.f);
  EXPECT_NEAR(esd_of(16.f) / esd, 4.f, 0.1f);
  EXPECT_NEAR(esd_of(0.0625f) / esd, 1.f, 0.03f);
}

TEST(Iterate, FiltersTheBackgroundInEveryNthCycle) {
  refinement r(1.0);
  r.disturb();
  kp::pattern_type& p = r.st.pattern[0];
  p.nbckgd = 2, p.isbac = -1, p.fwindow = 40.f, p.win_cyc = 2;
  r.st.run.mcycle = 4, r.st.run.eps = 1e-6f;
  std::vector<std::vector<float>> backgrounds;
  r.hooks.cycle_done = [&](const cycle_report&) { backgrounds.push_back(p.bk); };
  ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
  ASSERT_EQ(backgrounds.size(), 4u);
  EXPECT_EQ(backgrounds[1], backgrounds[0]);
  EXPECT_NE(backgrounds[2], backgrounds[1]);
  EXPECT_EQ(backgrounds[3], backgrounds[2]);
}

TEST(Iterate, PointsFollowTheReflectionsWithIasOne) {
  for (const int iasg : {0, 1}) {
    refinement r(1.0);
    r.disturb();
    r.st.run.iasg = iasg;
    r.st.pattern[0].wdt = 8.f;
    r.st.pattern[0].glb[kp::gslot::zero] += 0.05f;
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    const auto assigned = r.st.pattern[0].kr;
    kv_assignk::assignk(r.st, 0);
    EXPECT_EQ(assigned == r.st.pattern[0].kr, iasg == 1);
  }
}

TEST(Iterate, NegativeWidthsAreToldAtOnceAndAtTheEnd) {
  struct row {
    int k;
    const char* words;
  };
  for (const row& t : {row{kp::slot::w, "negative GAUSSIAN"}, row{kp::slot::y, "negative LORENTZIAN"}}) {
    SCOPED_TRACE(t.words);
    refinement r(1.0);
    r.st.run.maxs = 0;
    float& width = r.st.mixes[0].par[static_cast<std::size_t>(t.k)];
    const float good = width;
    width = -0.2f;
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    EXPECT_NE(r.console.str().find(t.words), std::string::npos);
    EXPECT_NE(r.console.str().find("Negative GAUSSIAN and/or LORENTZIAN"), std::string::npos);
    width = good;
    kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
    EXPECT_FALSE(r.st.pattern[0].flag_gauss || r.st.pattern[0].flag_lorentz);
  }
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

/// Gives slot k of the phase the next parameter number.
void refine_slot(refinement& r, int k, const char* name) {
  auto& m = r.st.mixes[0];
  m.lpar[static_cast<std::size_t>(k)] = ++r.st.run.maxs;
  m.apar[static_cast<std::size_t>(k)] = 1.f;
  const auto n = static_cast<std::size_t>(r.st.run.maxs);
  r.st.parm.nampar.resize(n + 1), r.st.parm.valx.resize(n + 1), r.st.parm.svalx.resize(n + 1);
  r.st.parm.nampar[n] = name;
}

using how = kp::cycles_end_type::how;

TEST(Iterate, CorrelatedShiftsOfPositionEndAtTheMinimum) {
  // zero, displacement and cell move the peaks almost alike: halving one of their shifts leads out of the valley
  refinement r(1.0);
  r.st.pattern[0].lglb[kp::gslot::sycos] = ++r.st.run.maxs;
  r.st.pattern[0].aglb[kp::gslot::sycos] = 1.f;
  refine_slot(r, kp::slot::w, "W");
  r.disturb();
  ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
  EXPECT_EQ(r.st.run.cycles_end.end, how::converged);
  EXPECT_TRUE(r.st.run.cycles_end.whole());
  EXPECT_NEAR(r.st.run.t_chi2, 1.0f, 0.1f);
}

TEST(Iterate, NoEndBesideTheMinimumIsCalledWhole) {
  // from offsets of the peaks up to several widths, where their slopes tell little about the distance
  int reached = 0;
  for (const float offset : {0.05f, 0.09f, 0.13f, -0.11f, 0.2f, -0.25f}) {
    SCOPED_TRACE(offset);
    refinement r(1.0);
    for (const int k : {+kp::slot::w, +kp::slot::x}) refine_slot(r, k, "width");
    r.st.pattern[0].glb[kp::gslot::zero] += offset;
    r.st.mixes[0].par[kp::slot::w] *= 0.3f;
    r.st.run.mcycle = 40;
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    const bool at_minimum = r.st.run.t_chi2 < 1.1f;
    reached += at_minimum;
    EXPECT_TRUE(at_minimum || !r.st.run.cycles_end.whole()) << r.st.run.t_chi2;
  }
  EXPECT_GE(reached, 4);
}

TEST(Iterate, TheEndSaysWhatHoldsTheResult) {
  refinement few(1.0);
  few.disturb();
  few.st.run.mcycle = 2;
  ASSERT_EQ(kv_iterate_calc_cw::iterate(few.st, few.hooks), 0);
  EXPECT_EQ(few.st.run.cycles_end.end, how::used_up);
  EXPECT_NE(few.console.str().find("cycles asked for ended without convergence"), std::string::npos);
  EXPECT_EQ(few.console.str().find("Normal end"), std::string::npos);

  refinement limited(1.0);  // the truth, 0.6, lies outside of the limits
  limited.st.run.limits.push_back({4, 0.7f, 2.f, 0.f, 0, ""});
  limited.st.run.nrell = 1;
  limited.st.atom[0].xl[kp::aslot::biso] = 0.9f;
  ASSERT_EQ(kv_iterate_calc_cw::iterate(limited.st, limited.hooks), 0);
  const auto& end = limited.st.run.cycles_end;
  EXPECT_EQ(end.end, how::converged);
  EXPECT_FALSE(end.whole());
  ASSERT_EQ(end.remarks.size(), 1u);
  EXPECT_NE(end.remarks[0].find("held at its lower limit"), std::string::npos);
  EXPECT_EQ(limited.st.parm.remark[4], "held at its lower limit");

  refinement lost(1.0);  // peaks far from all observed ones: the scale factor falls to nothing, which is no minimum
  lost.st.pattern[0].glb[kp::gslot::zero] += 2.f;
  ASSERT_EQ(kv_iterate_calc_cw::iterate(lost.st, lost.hooks), 0);
  EXPECT_FALSE(lost.st.run.cycles_end.whole());
}

TEST(Iterate, NothingRefinedStillExtractsTheIntensities) {
  refinement r(1.0);
  r.st.run.maxs = 0;
  r.st.phase[0].jbt = 2;
  for (float& f : r.st.pattern[0].refl.ff) f = 50.f;
  ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
  EXPECT_EQ(r.st.run.cycles_end.end, how::converged);
  EXPECT_LT(r.st.run.t_chi2, 1.1f);
}

TEST(Iterate, ProfileMatchingSettlesOnEveryRoad) {
  // background, cell and widths free at once, from a cell 0.1 % and widths 1.5 times off
  for (const auto road : {kp::intensity_road::together, kp::intensity_road::partition}) {
    refinement r(1.0);
    r.st.run.intensities = road;
    r.st.phase[0].jbt = 2;
    r.st.atom[0].lp[kp::aslot::biso] = 0;
    r.st.pattern[0].wdt = 20.f;  // peaks that end: those behind the pattern leave no tails of free height in it
    r.st.run.maxs = 3;
    auto& m = r.st.mixes[0];
    for (const int k : {kp::slot::w, kp::slot::y}) refine_slot(r, k, "width");
    for (std::size_t k = 0; k < 3; ++k) {
      r.st.pattern[0].lglb[kp::gslot::bac + k] = ++r.st.run.maxs;
      r.st.pattern[0].aglb[kp::gslot::bac + k] = 1.f;
    }
    for (const int k : {+kp::slot::cell_a, kp::slot::cell_a + 1, +kp::slot::cell_f})
      m.par[static_cast<std::size_t>(k)] *= 1.002f;
    m.par[kp::slot::w] *= 2.25f, m.par[kp::slot::y] *= 1.5f;
    ASSERT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 0);
    EXPECT_EQ(r.st.run.cycles_end.end, how::converged) << r.console.str();
    EXPECT_LT(r.st.run.t_chi2, 1.1f);
    EXPECT_NEAR(r.st.phase[0].cellp.cell[0], 4.9134f, 5.f * r.st.phase[0].cell_esd[0]);
    EXPECT_LE(r.st.run.cycles_done, road == kp::intensity_road::together ? 12 : 25);
    // the scale factor, number 1, is absorbed by the intensities
    ASSERT_EQ(r.st.run.cycles_end.remarks.size(), 1u);
    EXPECT_NE(r.st.run.cycles_end.remarks[0].find("absorb"), std::string::npos);
  }
}

TEST(ApplyShifts, AWidthAtItsEdgeStopsNoOtherPhase) {
  kp::state_type st = model_state::quartz(7);
  st.run.nphase = 2;
  st.phase.push_back(st.phase[0]), st.mixes.push_back(st.mixes[0]);
  st.phase[1].natom = 0;
  st.mixes[0].par[kp::slot::w] = 1.0e-8f;  // its Gaussian width is nothing beside the Lorentzian one
  st.mixes[0].apar[kp::slot::w] = 11.f, st.mixes[1].apar[kp::slot::w] = 21.f;
  st.run.maxs = 2;
  model_state::load_cells(st);
  kalvaris_codes::mod_codes(st);
  ASSERT_EQ(look_scatt::lookup(st, 0), 0);
  reflections_mod::make_list(st, 0);
  st.ne.reset(2);
  st.ne.vx(0) = -1.0e-4, st.ne.vx(1) = -1.0e-3;
  apply_shifts::set_reference_multipliers(st);
  const float before = st.mixes[1].par[kp::slot::w];
  const auto report = apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
  EXPECT_NEAR(st.mixes[0].par[kp::slot::w], 1.0e-8f, 1e-9f);
  EXPECT_NEAR(st.mixes[1].par[kp::slot::w], before - 1.0e-3f, 1e-7f);
  ASSERT_EQ(report.held.size(), 1u);
  EXPECT_EQ(report.held[0].n, 1);
  EXPECT_LT(report.held[0].outward, 0.0);
}

TEST(Iterate, FewerPointsThanParametersEndAbnormally) {
  refinement r(1.0);
  r.st.pattern[0].excluded = {{20.06f, 70.f}};
  EXPECT_EQ(kv_iterate_calc_cw::iterate(r.st, r.hooks), 1);
  EXPECT_NE(r.console.str().find("Too few points under reflections"), std::string::npos);
}

TEST(Bragg, PartitionGivesBackTheIntensitiesOfAPerfectModel) {
  refinement r(0.0);
  kv_background::build(r.st.pattern[0]);
  kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
  kv_iterate_calc_cw::bragg(r.st, 0, kv_iterate_calc_cw::intensity_update::partition);
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
    kv_iterate_calc_cw::bragg(r.st, 0, kv_iterate_calc_cw::intensity_update::partition);
  }
  std::map<long, std::array<double, 2>> of_spacing;  // h k l and k h l stand at one place: only their sum is observed
  for (std::size_t k = 0; k < truth.size(); ++k) {
    if (p.refl.pos[k] > 69.0) continue;  // the list goes on behind the pattern
    auto& [found, wanted] = of_spacing[std::lround(5000.f * p.refl.dspacing[k])];
    found += p.refl.ff[k];
    wanted += truth[k];
  }
  std::map<std::int32_t, float> of_first;
  for (std::size_t k = 0; k < truth.size(); ++k) {
    auto key = kp::unpack_irefs(p.refl.irefs[k]);
    if (key.wave == 1) of_first[p.refl.irefs[k]] = p.refl.ff[k];
  }
  for (std::size_t k = 0; k < truth.size(); ++k) {
    auto key = kp::unpack_irefs(p.refl.irefs[k]);
    key.wave = 1;
    EXPECT_EQ(p.refl.ff[k], of_first.at(kp::pack_irefs(key))) << "both wavelengths have one";
  }
  double difference = 0, sum = 0;
  for (const auto& [d, f] : of_spacing) {
    difference += std::abs(f[0] - f[1]);
    sum += f[1];
  }
  EXPECT_LT(difference / sum, 0.05);
  EXPECT_LT(r.st.mixes[0].r_bragg, 1.f);
}

TEST(Bragg, ExtractedIntensitiesStayAboveZero) {
  refinement r(0.0);
  kp::pattern_type& p = r.st.pattern[0];
  kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
  r.st.phase[0].jbt = 2;
  p.wdt = 8.f;
  for (std::size_t i = 0; i < p.y.size(); ++i)
    if (p.txv[i] > 40.f) p.y[i] = 0.5f * p.bk[i];
  kv_iterate_calc_cw::calc_patterns_2theta(r.st, 0, false);
  kv_iterate_calc_cw::bragg(r.st, 0, kv_iterate_calc_cw::intensity_update::partition);
  for (const float f : p.refl.ff) EXPECT_GT(f, 0.f);
}

}  // namespace

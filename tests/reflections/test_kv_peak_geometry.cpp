#include <gtest/gtest.h>

#include <cmath>

#include "kv_peak_geometry.hpp"
#include "small_state.hpp"

using namespace kv_peak_geometry;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

namespace {
/// (100) of a cubic cell of edge 1 stands at 2theta 90 when lambda is sqrt(2): tan = 1, 1/cos^2 = 2.
peak_model at_90(int npro) {
  peak_model m;
  m.npro = npro;
  m.lambda = std::sqrt(2.0);
  m.cell = {1, 1, 1, 0, 0, 0};
  m.u = 0.1, m.v = -0.02, m.w = 0.03, m.gausiz = 0.01;
  return m;
}
}  // namespace

TEST(PeakGeometry, BraggsLawInASkewCell) {
  const std::array<double, 6> cell{5.1, 6.3, 7.2, 83, 97, 112};
  peak_model m;
  m.cell = small_state::reciprocal_metric(cell);
  m.lambda = 1.2;
  m.w = 0.01;
  const peak p = make_peak(m, {1, -2, 3});
  const auto g = m.cell;
  const double q = g[0] + 4 * g[1] + 9 * g[2] - 6 * g[3] + 3 * g[4] - 2 * g[5];
  EXPECT_NEAR(p.pos, 2 * std::asin(0.6 * std::sqrt(q)) / small_state::rad, 1e-12);
  EXPECT_NEAR(p.d, 1 / std::sqrt(q), 1e-12);
  EXPECT_NEAR(p.sin2, std::sin(p.pos * small_state::rad), 1e-14);
  EXPECT_NEAR(p.cos2, std::cos(p.pos * small_state::rad), 1e-14);
}

TEST(PeakGeometry, OutOfReachFromTheRightAngleOn) {
  peak_model m = at_90(0);
  m.lambda = 2;  // sin(theta) = 1 for (100)
  EXPECT_TRUE(make_peak(m, {1, 0, 0}).out_of_reach);
  EXPECT_TRUE(make_peak(m, {0, 0, 0}).out_of_reach);
  m.lambda = 1.9999;
  EXPECT_FALSE(make_peak(m, {1, 0, 0}).out_of_reach);
  m.cell[0] = NAN;
  EXPECT_TRUE(make_peak(m, {1, 0, 0}).out_of_reach);
}

TEST(PeakGeometry, WidthsByShape) {
  struct row {
    int npro;
    double xi, hg2;
  };
  peak_additions more;
  more.strain2 = 0.25, more.layer = 0.1;
  kalvaris_params::resolution_type instrument;
  instrument.wins[0] = 0.004f, instrument.zins[0] = 0.006f;
  // U + V + W + 2 (P + G^2) + 0.004 of the instrument = 0.154, and the strain by (1 - xi)^2 for npro 7 alone
  for (const row t :
       {row{0, 0.4, 0.404}, row{5, 0.4, 0.404}, row{7, 0.4, 0.244}, row{7, 1, 0.154}, row{11, 0, 0.404}}) {
    SCOPED_TRACE(testing::Message() << t.npro << ' ' << t.xi);
    peak_model m = at_90(t.npro);
    m.xi = t.xi;
    m.instrument = {&instrument, 1, 1};
    const peak p = make_peak(m, {1, 0, 0}, more);
    EXPECT_NEAR(p.hg2, t.hg2, 1e-9);
    EXPECT_NEAR(p.hg, std::sqrt(t.hg2), 1e-9);
    EXPECT_TRUE(t.npro == 7 || p.h == p.hg);
  }
  peak_model m = at_90(7);
  m.x = 0.03, m.y = 0.05, m.xi = 0.4, more.size = 0.02, more.shift = 0.3;
  m.instrument = {&instrument, 1, 1};
  const peak p = make_peak(m, {1, 0, 0}, more);
  EXPECT_NEAR(p.hl, 0.07 * std::sqrt(2.0) + 0.4 * 0.5 + 0.03 + 0.006, 1e-9);
  EXPECT_NEAR(p.pos, 90.3, 1e-12);
  EXPECT_GT(p.h, std::max(p.hg, p.hl));
  EXPECT_LT(p.h, p.hg + p.hl);
}

TEST(PeakGeometry, PureGaussianAndPureLorentzianLimits) {
  peak_model m = at_90(7);
  peak p = make_peak(m, {1, 0, 0});
  EXPECT_NEAR(p.h, p.hg, 1e-12);
  EXPECT_LT(p.eta, 1e-5);
  m.u = m.v = m.w = m.gausiz = 0, m.x = 0.2;
  p = make_peak(m, {1, 0, 0});
  EXPECT_NEAR(p.h, 0.2, 1e-8);
  EXPECT_NEAR(p.eta, 1.0, 1e-4);
}

TEST(PeakGeometry, NegativeSquaresAreFlooredAndFlagged) {
  peak_model m = at_90(7);
  m.w = -1, m.y = -1;
  peak p = make_peak(m, {1, 0, 0});
  EXPECT_TRUE(p.negative_gauss);
  EXPECT_TRUE(p.negative_lorentz);
  EXPECT_EQ(p.hg, 1e-10);
  EXPECT_EQ(p.hl, 1e-10);
  EXPECT_GT(p.h, 0);
  m.w = NAN;
  p = make_peak(m, {1, 0, 0});
  EXPECT_TRUE(std::isnan(p.h));
}

TEST(PeakGeometry, SplitPeakTermsChangeSidesAt90WithTheSampleShift) {
  peak_model m = at_90(11);
  m.left_extra = 0.5, m.right_extra = 0.7;
  m.u_r = 0.01, m.v_r = 0.02, m.w_r = 0.03;
  struct row {
    double sysin, left, right;
  };
  for (const row t : {row{-0.1, 0.63, 0.08}, row{0, 0.63, 0.08}, row{0.1, 0.13, 0.78}}) {
    SCOPED_TRACE(t.sysin);
    m.sysin = t.sysin;
    m.lambda = std::sqrt(2.0) * (1 - 1e-12);
    const peak p = make_peak(m, {1, 0, 0});
    EXPECT_NEAR(p.h * p.h, t.left, 1e-9);
    EXPECT_NEAR(p.hl * p.hl, t.right, 1e-9);
  }
}

TEST(PeakGeometry, ShapeParameters) {
  struct row {
    int npro;
    double eta;
  };
  // h = sqrt(0.13) at 90 deg
  const double h = std::sqrt(0.13);
  for (const row t : {row{0, 0}, row{1, 1}, row{-4, 1}, row{4, 0.5}, row{5, 0.5 + 90 * 0.001 + 0.2 * h},
                      row{12, 0.5 + 90 * 0.001 + 0.2 * h}, row{6, 0.5 + 100 * 0.001 / 90 + 1e4 * 0.003 / 8100}}) {
    SCOPED_TRACE(t.npro);
    peak_model m = at_90(t.npro);
    m.shape1 = 0.5, m.x = 0.001, m.y = 0.003, m.xi = 0.2;
    EXPECT_NEAR(make_peak(m, {1, 0, 0}).eta, t.eta, 1e-12);
  }
}

TEST(PeakGeometry, SecondWaveTakesItsOwnWidthsOnRequest) {
  auto f = small_state::make();
  auto& par = f.st.mix(0, 0).par;
  par[slot::u] = 1.f, par[slot::u2] = 2.f;
  f.pattern().lamda = {1.5f, 1.6f};
  EXPECT_EQ(make_peak_model(f.st, 0, 0, 2).u, 1.0);
  f.pattern().iuvw = 1;
  EXPECT_EQ(make_peak_model(f.st, 0, 0, 2).u, 2.0);
  EXPECT_EQ(make_peak_model(f.st, 0, 0, 1).u, 1.0);
  EXPECT_NEAR(make_peak_model(f.st, 0, 0, 2).lambda, 1.6, 1e-6);
}

TEST(PeakPosition, ShiftsOfPatternAndPhaseAdd) {
  auto f = small_state::make(2);
  auto& list = f.pattern().refl;
  list.resize(2);
  list.irefs = {kalvaris_params::pack_irefs({0, 1, 1, 0, 0}), kalvaris_params::pack_irefs({1, 1, 1, 0, 0})};
  list.pos = {60.0, 60.0};
  auto& glb = f.pattern().glb;
  glb[gslot::zero] = 0.25f, glb[gslot::sycos] = 0.5f, glb[gslot::sysin] = -0.125f;
  auto& par = f.st.mix(1, 0).par;
  par[slot::zero_ph] = 1.f, par[slot::sycos_ph] = 2.f, par[slot::sysin_ph] = 4.f;
  const double root = std::sqrt(3.0) / 2;
  EXPECT_NEAR(peak_position(f.st, 0, 0), 60.25 + 0.5 * root - 0.125 * root, 1e-12);
  EXPECT_NEAR(peak_position(f.st, 0, 1), 61.25 + 2.5 * root + 3.875 * root, 1e-12);
  f.pattern().disp_ds = true;
  EXPECT_NEAR(peak_position(f.st, 0, 0), 60.25 + 0.5 * 0.5 - 0.125 * root, 1e-12);
}

TEST(PeakPosition, DerivativesAgainstCentralDifferences) {
  for (const bool disp_ds : {false, true})
    for (const double pos : {12.0, 87.0, 151.0}) {
      SCOPED_TRACE(testing::Message() << disp_ds << ' ' << pos);
      const shift_model s{0.1, 0.7, -0.4, disp_ds};
      const double step = 1e-4;
      const auto out = apply_shifts(s, pos);
      const auto difference = [&](auto&& at) { return (at(step).pos - at(-step).pos) / (2 * step); };
      EXPECT_NEAR(out.by_cosine, difference([&](double e) {
                    return apply_shifts({s.zero, s.cosine + e, s.sine, disp_ds}, pos);
                  }),
                  1e-9);
      EXPECT_NEAR(out.by_sine, difference([&](double e) {
                    return apply_shifts({s.zero, s.cosine, s.sine + e, disp_ds}, pos);
                  }),
                  1e-9);
      EXPECT_NEAR(out.by_pos, difference([&](double e) { return apply_shifts(s, pos + e); }), 1e-9);
    }
}

#include <gtest/gtest.h>

#include <cmath>

#include "reflections_mod.hpp"
#include "small_state.hpp"

using namespace reflections_mod;
using small_state::rad;
namespace job = kalvaris_params::job;

namespace {

double lp_at(const lpabs_model& m, double theta) {
  const double s = std::sin(theta * rad);
  return lpabs(m, s * s, s, std::cos(theta * rad), 2 * theta);
}
/// Factor beside the Lorentz factor 1/(2 sin^2 cos).
double beside_lorentz(const lpabs_model& m, double theta) {
  const double s = std::sin(theta * rad);
  return lp_at(m, theta) * 2 * s * s * std::cos(theta * rad);
}
lpabs_model model(int ilor, int jobtyp) {
  lpabs_model m;
  m.ilor = ilor, m.jobtyp = jobtyp;
  m.cthm = 0.8, m.rkk = 0.3;
  return m;
}

/// Mean of exp(-mu (path in + path out)) over the section of a cylinder of radius 1, beam along +x, by polar midpoints.
double cylinder_absorption(double mur, double theta) {
  const int nr = 400, nphi = 720;
  const double out_x = std::cos(2 * theta * rad), out_y = std::sin(2 * theta * rad);
  double sum = 0;
  for (int i = 0; i < nr; ++i) {
    const double r = std::sqrt((i + 0.5) / nr);  // rings of equal area
    for (int j = 0; j < nphi; ++j) {
      const double x = r * std::cos(2 * small_state::rad * 180 * (j + 0.5) / nphi);
      const double y = r * std::sin(2 * small_state::rad * 180 * (j + 0.5) / nphi);
      const double in = x + std::sqrt(1 - y * y);
      const double along = x * out_x + y * out_y;
      const double out = -along + std::sqrt(along * along + 1 - r * r);
      sum += std::exp(-mur * (in + out));
    }
  }
  return sum / (nr * nphi);
}

struct parameter {
  const char* name;
  double corrections_model::*value;
  double correction::*derivative;
};
constexpr parameter parameters[] = {
    {"B", &corrections_model::b, &correction::by_b},       {"ratio", &corrections_model::ratio, &correction::by_ratio},
    {"G1", &corrections_model::g1, &correction::by_g1},    {"G2", &corrections_model::g2, &correction::by_g2},
    {"P0", &corrections_model::p0, &correction::by_p0},    {"Cp", &corrections_model::cp, &correction::by_cp},
    {"Tau", &corrections_model::tau, &correction::by_tau},
};

/// Cubic cell, symmetry of the identity alone.
corrections_model texture(int nori, double g1, double g2) {
  corrections_model m;
  m.preferred = true, m.nori = nori, m.g1 = g1, m.g2 = g2;
  m.pref = {0, 0, 1}, m.metric = {1, 1, 1, 0, 0, 0};
  m.rotation = {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
  return m;
}

}  // namespace

TEST(Lpabs, ClosedFormsAtTheta30) {
  // sin = 1/2, cos = sqrt(3)/2, cos^2(2theta) = 1/4, Lorentz 4/sqrt(3)
  const double l = 4 / std::sqrt(3.0), root = std::sqrt(0.8);
  const double plain = 1.2, partial = 0.3 / 4 + 0.7;
  const double mono = 0.7 * (1 + root / 4) / (1 + root) + 0.3 * 1.2 / 1.8;
  struct row {
    int ilor, jobtyp, instr;
    double expected;
  };
  for (const row t :
       {row{0, job::neutrons, 0, l}, row{0, job::calc_n, 0, l}, row{0, job::electrons, 0, l},
        row{0, job::xrays, 0, l * plain}, row{0, job::calc_x, 0, l * plain}, row{6, job::xrays, 0, l * plain},
        row{2, job::xrays, 0, l * mono}, row{4, job::xrays, 0, l * mono}, row{3, job::xrays, 0, l * partial},
        row{-2, job::xrays, 0, l * partial}, row{5, job::xrays, 0, l}, row{2, job::neutrons, 0, l},
        row{0, job::xrays, 4, l * partial}, row{-1, job::xrays, 0, 1}, row{-1, job::xrays, 4, partial},
        row{-1, job::calc_x, 4, 1}, row{-1, job::neutrons, 0, 1}}) {
    SCOPED_TRACE(testing::Message() << t.ilor << ' ' << t.jobtyp << ' ' << t.instr);
    lpabs_model m = model(t.ilor, t.jobtyp);
    m.instr = t.instr;
    EXPECT_NEAR(lp_at(m, 30), t.expected, 1e-12);
  }
}

TEST(Lpabs, FlatPlateWithFixedIncidence) {
  lpabs_model m = model(1, job::neutrons);
  m.alpsd = 30;  // equal angles: the beam is as wide on the sample as on the detector
  EXPECT_NEAR(beside_lorentz(m, 30), 0.5, 1e-12);
  m.alpsd = 60;  // the diffracted beam grazes the plate, then would have to go through it
  EXPECT_NEAR(lp_at(m, 30.0001), 0, 1e-4);
  EXPECT_EQ(lp_at(m, 29), 0);
}

TEST(Lpabs, IlluminationBelowTheAngleOfOverfilling) {
  lpabs_model m = model(0, job::xrays);
  const double full = lp_at(m, 5);
  m.sent0 = 20;
  EXPECT_NEAR(lp_at(m, 5) / full, std::sin(5 * rad) / std::sin(10 * rad), 1e-12);
  EXPECT_NEAR(lp_at(m, 10.01), lp_at(model(0, job::xrays), 10.01), 1e-12);
  m.jobtyp = job::neutrons;
  EXPECT_NEAR(lp_at(m, 5), lp_at(model(0, job::neutrons), 5), 1e-12);
}

TEST(Absorption, CylinderQuadraticAgainstIntegration) {
  lpabs_model m = model(0, job::neutrons);
  m.iabscor = 2;
  for (const double mur : {0.2, 0.6, 1.0})
    for (const double theta : {1.0, 30.0, 45.0, 60.0, 89.0}) {
      SCOPED_TRACE(testing::Message() << mur << ' ' << theta);
      m.tmv = mur;
      const double exact = cylinder_absorption(mur, theta);
      EXPECT_NEAR(beside_lorentz(m, theta) / exact, 1, 0.013);  // the published fit: 1.2 % at mu R 1
    }
}

TEST(Absorption, CylinderSeriesAgainstIntegration) {
  lpabs_model m = model(0, job::neutrons);
  m.iabscor = 4;
  for (const double mur : {0.5, 1.0, 2.0, 3.0, 3.5, 6.0})
    for (const double theta : {5.0, 30.0, 45.0, 60.0, 85.0}) {
      SCOPED_TRACE(testing::Message() << mur << ' ' << theta);
      m.tmv = mur;
      const double s = std::sin(theta * rad), c = std::cos(theta * rad);
      const double published = lpabs(m, s * s, s * s, c, 2 * theta) * 2 * s * s * c;  // sine squared for the sine
      EXPECT_NEAR(published / cylinder_absorption(mur, theta), 1, 0.013);
    }
  m.tmv = 1;
  EXPECT_NEAR(beside_lorentz(m, 30) / cylinder_absorption(1, 30), 1.11, 0.01);
}

TEST(Absorption, PlatesAgainstIntegrationOverDepth) {
  const int n = 20000;
  for (const double alpsd : {20.0, 40.0, 60.0, 59.999}) {  // the last two: equal paths at theta 30, and just beside
    SCOPED_TRACE(alpsd);
    lpabs_model m = model(4, job::neutrons);
    m.alpsd = alpsd, m.tmv = 0.8;
    const double in = std::sin(alpsd * rad), out = std::sin((alpsd + 60) * rad);
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      const double z = (i + 0.5) / n;
      sum += std::exp(-0.8 * (z / in + (1 - z) / out)) * 0.8 / in / n;
    }
    EXPECT_NEAR(beside_lorentz(m, 30), sum, 1e-4 * sum);
  }
  lpabs_model m = model(2, job::neutrons);
  m.tmv = 0.8;
  EXPECT_NEAR(beside_lorentz(m, 60), 2 * std::exp(-1.6), 1e-12);
  m = model(4, job::neutrons);
  m.alpsd = 130, m.tmv = 0.8;
  EXPECT_EQ(lp_at(m, 30), 0);
}

TEST(Absorption, LayersShareTheBeam) {
  // intensities of a stack of layers add up to that of one layer of the same thickness
  for (const int ilor : {5, 6}) {
    const auto intensity = [&](const std::vector<float>& stack) {
      auto f = small_state::make(static_cast<int>(stack.size()));
      f.pattern().ilor = ilor, f.pattern().jobtyp = job::xrays;
      for (std::size_t ph = 0; ph < stack.size(); ++ph) f.st.mixes[ph].rmua = stack[ph];
      double sum = 0;
      for (std::size_t ph = 0; ph < stack.size(); ++ph)
        sum += static_cast<double>(stack[ph]) * lp_at(make_lpabs_model(f.st, 0, static_cast<int>(ph), 1), 25);
      return sum;
    };
    EXPECT_NEAR(intensity({0.2f, 0.3f, 0.1f}) / intensity({0.6f}), 1, 1e-6);
  }
}

TEST(Corrections, MarchDollaseAveragesToOneOverTheSphere) {
  for (const double g1 : {0.3, 1.0, 2.5}) {
    SCOPED_TRACE(g1);
    const corrections_model m = texture(1, g1, 0);
    const int n = 20000;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
      const double c = (i + 0.5) / n;
      sum += corrections(m, {std::sqrt(1 - c * c), 0, c}, 1, 0.1).corr / n;
    }
    EXPECT_NEAR(sum, 1, 1e-6);
  }
  EXPECT_NEAR(corrections(texture(1, 1, 0), {3, -1, 2}, 14, 0.1).corr, 1, 1e-12);
}

TEST(Corrections, ExponentialFormAtTheLimits) {
  const corrections_model m = texture(0, 0.7, 0.25);
  EXPECT_NEAR(corrections(m, {0, 0, 3}, 9, 0.1).corr, 1, 1e-12);
  const double right = std::pow(small_state::rad * 90, 2);
  EXPECT_NEAR(corrections(m, {2, 1, 0}, 5, 0.1).corr, 0.75 * std::exp(0.7 * right) + 0.25, 1e-6);
  EXPECT_NEAR(corrections(m, {1, 0, 1}, 2, 0.1).corr, 0.75 * std::exp(0.7 * right / 4) + 0.25, 1e-12);
}

TEST(Corrections, OverallFactorAndRoughness) {
  corrections_model m;
  m.b = 1.5, m.ratio = 0.5;
  EXPECT_NEAR(corrections(m, {1, 0, 0}, 4, 0.25).corr, 0.5 * std::exp(-3.0), 1e-12);  // s = 1: exp(-2 B)
  m.b = 0, m.ratio = 1, m.roughness = true;
  m.p0 = 0.1, m.cp = 0.2, m.tau = 0.05;  // r = 0.1 at theta 30
  EXPECT_NEAR(corrections(m, {1, 0, 0}, 4, 0.25).corr, 1 - 0.1 - 0.2 * 0.1 * 0.9, 1e-12);
}

TEST(Corrections, DerivativesAgainstCentralDifferences) {
  for (const int nori : {0, 1}) {
    corrections_model m = texture(nori, nori == 0 ? -0.4 : 0.7, 0.2);
    m.metric = small_state::reciprocal_metric({4, 5, 6, 80, 95, 105});
    m.pref = {1, 2, -1};
    m.rotation.push_back({0, -1, 0, 1, 0, 0, 0, 0, 1});
    m.b = 0.6, m.ratio = 0.5, m.roughness = true, m.p0 = 0.06, m.cp = 0.3, m.tau = 0.04;
    const std::array<double, 3> h{2, -1, 3};
    const auto& g = m.metric;
    const double q = 4 * g[0] + g[1] + 9 * g[2] - 3 * g[3] + 6 * g[4] - 2 * g[5];
    const correction c = corrections(m, h, q, 0.2);
    for (const parameter& t : parameters) {
      SCOPED_TRACE(testing::Message() << nori << ' ' << t.name);
      const double step = 1e-5;
      corrections_model up = m, down = m;
      up.*t.value += step, down.*t.value -= step;
      const double numeric = (corrections(up, h, q, 0.2).corr - corrections(down, h, q, 0.2).corr) / (2 * step);
      EXPECT_NEAR(c.*t.derivative, numeric, 1e-8 * (1 + std::abs(numeric)));
      EXPECT_GT(std::abs(numeric), 1e-6);
    }
  }
}

TEST(Corrections, EquivalentReflectionsOfATrigonalCellHaveOneValue) {
  corrections_model m = texture(1, 0.6, 0.1);
  m.metric = small_state::reciprocal_metric({4, 4, 9, 90, 90, 120});
  m.pref = {1, 0, 1};
  m.rotation = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, -1, 0, 1, -1, 0, 0, 0, 1}, {-1, 1, 0, -1, 0, 0, 0, 0, 1}};
  const auto& g = m.metric;
  const double q = 4 * g[0] + g[1] + 9 * g[2] + 2 * g[5];
  const double value = corrections(m, {2, 1, 3}, q, 0.1).corr;
  EXPECT_GT(std::abs(value - 1), 0.01);
  for (const std::array<double, 3> h : {std::array<double, 3>{1, -3, 3}, {-3, 2, 3}, {-2, -1, -3}})
    EXPECT_NEAR(corrections(m, h, q, 0.1).corr, value, 1e-12);
}

TEST(Corrections, MarchDollaseNeverDividesByZero) {
  const correction low = corrections(texture(1, 0, 0), {1, 0, 1}, 2, 0.1);
  EXPECT_EQ(low.corr, corrections(texture(1, 1e-4, 0), {1, 0, 1}, 2, 0.1).corr);
  EXPECT_TRUE(std::isfinite(low.corr));
  EXPECT_EQ(low.by_g1, 0);
}

TEST(Corrections, ModelsAreGatheredFromTheState) {
  namespace slot = kalvaris_params::slot;
  auto f = small_state::make();
  f.pattern().ilor = 0, f.pattern().iglmore = 1;
  EXPECT_FALSE(make_corrections_model(f.st, 0, 0, 1).roughness);  // neutrons
  f.pattern().jobtyp = job::xrays;
  EXPECT_TRUE(make_corrections_model(f.st, 0, 0, 1).roughness);
  EXPECT_FALSE(make_corrections_model(f.st, 0, 0, 1).preferred);
  f.st.mix(0, 0).lpar[slot::pref1] = 3;
  EXPECT_TRUE(make_corrections_model(f.st, 0, 0, 1).preferred);
  f.pattern().nori = 2;
  EXPECT_EQ(small_state::stop_text([&] { (void)make_corrections_model(f.st, 0, 0, 1); }), " Illegal value of NOR");
}

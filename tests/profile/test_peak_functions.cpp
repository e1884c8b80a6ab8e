#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

#include "kv_profil.hpp"
#include "peak_cases.hpp"

using namespace kv_profil;
using peak_cases::all_npr;

namespace {

std::array<double, n_peak_class> at(peak<double> p, double delta) {
  EXPECT_EQ(prepare(p), peak_status::ok);
  p.position = 0;  // the distance then carries no rounding of the position
  return profil(p, delta, true);
}

/// Integral of f over a half line by the trapezoidal rule in t, x = unit exp(pi/2 sinh t): slow tails do no harm.
double half_line(const std::function<double(double)>& f, double unit) {
  double sum = 0;
  const double step = 0.02, half_pi = std::numbers::pi / 2;
  for (double t = -5.4; t < 5.41; t += step) {
    const double x = unit * std::exp(half_pi * std::sinh(t));
    sum += f(x) * x * half_pi * std::cosh(t) * step;
  }
  return sum;
}

double area(peak<double> p) {
  p.cut_off = 1e300;
  const auto value = [&](double delta) { return at(p, delta)[omega]; };
  return half_line(value, p.H) + half_line([&](double x) { return value(-x); }, p.H);
}

TEST(PeakFunctions, AreaIsOneForEveryFunction) {
  for (const int npr : all_npr) {
    SCOPED_TRACE(npr);
    EXPECT_NEAR(area(peak_cases::base<double>(npr)), 1, 1e-9);
    // the correction is odd about the peak, so it moves intensity but adds none; not for the split and uneven
    // multiplets
    const bool symmetric = npr != 11 && npr != 4 && npr != -4;
    EXPECT_NEAR(area(symmetric ? peak_cases::asymmetric<double>(npr) : peak_cases::base<double>(npr)), 1, 1e-9);
  }
  for (const double m : {0.65, 1.0, 2.3, 40.0}) {
    auto p = peak_cases::base<double>(6);
    p.eta = m;
    EXPECT_NEAR(area(p), 1, 1e-6) << m;
  }
}

TEST(PeakFunctions, ValueFallsToHalfAtHalfTheWidth) {
  for (const int npr : {0, 1, 2, 3, 5, 6, 11, 12}) {
    SCOPED_TRACE(npr);
    const auto p = peak_cases::base<double>(npr);
    const double top = at(p, 0)[omega], right = npr == 11 ? p.H_right : p.H;
    EXPECT_NEAR(at(p, -p.H / 2)[omega], top / 2, 1e-12 * top);
    EXPECT_NEAR(at(p, right / 2)[omega], top / 2, 1e-12 * top);
  }
}

/// A quantity that a class of the kernels differentiates by, and how to change it by h.
struct quantity {
  peak_class of;
  std::function<void(peak<double>&, double)> add;
};

void add_to_square(double& v, double h) { v = std::sqrt(v * v + h); }

std::vector<quantity> quantities(int npr) {
  const bool eta_follows = npr == 5 || npr == 11 || npr == 12;
  std::vector<quantity> q{{position, [](peak<double>& p, double h) { p.position += h; }},
                          {width, [=](peak<double>& p, double h) {
                             const double before = p.H;
                             add_to_square(npr == 7 ? p.HG : p.H, h);
                             if (eta_follows) p.eta += p.deta_dH * (p.H - before);
                           }}};
  if (npr == 7) q.push_back({width_2, [](peak<double>& p, double h) { p.HL += h; }});
  if (npr == 11) {
    q.push_back({width_2, [](peak<double>& p, double h) { add_to_square(p.H_right, h); }});
    q.push_back({shape_2, [](peak<double>& p, double h) { p.eta_right += h; }});
  }
  if (npr == 4 || npr == 5 || npr == 6 || npr == 11 || npr == 12)
    q.push_back({shape, [](peak<double>& p, double h) { p.eta += h; }});
  if (npr == 4 || npr == -4) {
    q.push_back({shape_2, [](peak<double>& p, double h) { p.ci += h; }});
    q.push_back({shape_4, [](peak<double>& p, double h) { p.dd += h; }});
  }
  if (npr == 4) q.push_back({shape_3, [](peak<double>& p, double h) { p.cd += h; }});
  return q;
}

TEST(PeakFunctions, DerivativesAgreeWithCentralDifferences) {
  for (const int npr : all_npr)
    for (const bool asym : {false, true}) {
      const auto p = asym ? peak_cases::asymmetric<double>(npr) : peak_cases::base<double>(npr);
      auto list = quantities(npr);
      if (asym) {
        list.push_back({asym_a, [](peak<double>& q, double h) { q.p1 -= h * q.tan_theta; }});
        list.push_back({asym_a, [](peak<double>& q, double h) { q.p3 -= h * q.tan_2theta; }});
        list.push_back({asym_b, [](peak<double>& q, double h) { q.p2 -= h * q.tan_theta; }});
        list.push_back({asym_b, [](peak<double>& q, double h) { q.p4 -= h * q.tan_2theta; }});
      }
      for (const double delta : {-0.31, -0.09, -0.02, 0.013, 0.06, 0.2}) {
        auto ready = p;
        ASSERT_EQ(prepare(ready), peak_status::ok);
        const auto got = profil(ready, p.position + delta, true);
        for (const quantity& q : list) {
          const double h = 1e-6;
          auto up = p, down = p;
          q.add(up, h);
          q.add(down, -h);
          ASSERT_EQ(prepare(up), peak_status::ok);
          ASSERT_EQ(prepare(down), peak_status::ok);
          const double x = p.position + delta;
          const double numeric = (profil(up, x, false)[omega] - profil(down, x, false)[omega]) / (2 * h);
          EXPECT_NEAR(got[q.of], numeric, 1e-6 * std::abs(numeric) + 2e-6)
              << "npr " << npr << " class " << q.of << " delta " << delta << " asymmetry " << asym;
        }
      }
    }
}

TEST(PeakFunctions, AsymmetryThatWouldTurnThePeakNegativeGivesTheFloor) {
  auto p = peak_cases::base<double>(0);
  const double plain = at(p, 0.05)[omega];
  p.use_asym = true;
  p.p1 = 10;
  const auto t = at(p, 0.05);
  EXPECT_NEAR(t[omega], 1e-4 * plain, 1e-12);
  EXPECT_EQ(t[asym_a], 0);
  auto moved = p;
  moved.p1 = 10.1;
  EXPECT_EQ(at(moved, 0.05)[omega], t[omega]);
}

TEST(PeakFunctions, LimitsOfTheMixtureArePureFunctions) {
  struct row {
    double HG, HL;
    int pure;
    double tolerance;
  };
  for (const row r :
       {row{0.1, 0, 0, 2e-6}, row{0, 0.1, 1, 1e-5}, row{1e-10, 0.1, 1, 1e-5}}) {  // 1.36603-0.47719+0.11116 = 1
    auto mixed = peak_cases::base<double>(7), pure = peak_cases::base<double>(r.pure);
    mixed.HG = r.HG;
    mixed.HL = r.HL;
    pure.H = 0.1;
    for (const double delta : {0.0, 0.04, -0.3}) {
      const auto a = at(mixed, delta), b = at(pure, delta);
      EXPECT_NEAR(a[omega], b[omega], r.tolerance * 10) << r.HG << ' ' << r.HL << ' ' << delta;
      for (const double v : a) EXPECT_TRUE(std::isfinite(v));
    }
  }
}

TEST(PeakFunctions, CutOffIncludesItsLimitAndKeepsNan) {
  peak<double> p = peak_cases::base<double>(1);
  p.H = 0.125;
  p.cut_off = 4;
  EXPECT_GT(at(p, 0.5)[omega], 0);
  EXPECT_GT(at(p, -0.5)[omega], 0);
  for (const double v : at(p, std::nextafter(0.5, 1))) EXPECT_EQ(v, 0);
  EXPECT_TRUE(std::isnan(at(p, std::numeric_limits<double>::quiet_NaN())[omega]));
}

TEST(PeakFunctions, RefusesWhatHasNoFunction) {
  for (const int npr : {-5, -1, 8, 9, 10, 13, 14}) {
    auto p = peak_cases::base<double>(npr);
    EXPECT_EQ(prepare(p), peak_status::illegal_function) << npr;
  }
  EXPECT_EQ(stop_words(peak_status::illegal_function), " Illegal profile Function request");
  auto p = peak_cases::base<double>(6);
  for (const double m : {0.599, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    p.eta = m;
    EXPECT_EQ(prepare(p), peak_status::pearson_m_too_small) << m;
  }
}

TEST(PseudoVoigt, TchDerivativesAgreeWithCentralDifferences) {
  using namespace pseudo_voigt_mod;
  struct row {
    double HG, HL;
  };
  for (const row t : {row{0.1, 1e-5}, row{0.1, 0.1}, row{0.02, 0.9}, row{1e-7, 2e-7}}) {
    SCOPED_TRACE(testing::Message() << t.HG << ' ' << t.HL);
    const double h = 1e-4 * std::min(t.HG, t.HL);
    const auto d = dtch(t.HG, t.HL);
    const auto g1 = tch(t.HG + h, t.HL), g0 = tch(t.HG - h, t.HL), l1 = tch(t.HG, t.HL + h), l0 = tch(t.HG, t.HL - h);
    EXPECT_NEAR(d.dHdG, (g1.H - g0.H) / (2 * h), 1e-6);
    EXPECT_NEAR(d.dHdL, (l1.H - l0.H) / (2 * h), 1e-6);
    EXPECT_NEAR(d.dedG * t.HG, (g1.eta - g0.eta) / (2 * h) * t.HG, 1e-6);
    EXPECT_NEAR(d.dedL * t.HL, (l1.eta - l0.eta) / (2 * h) * t.HL, 1e-6);
    const auto single = tch(float(t.HG), float(t.HL));
    EXPECT_NEAR(single.H, tch(t.HG, t.HL).H, 8 * FLT_EPSILON * tch(t.HG, t.HL).H);
  }
  EXPECT_EQ(tch(0.1, 0.0).eta, 1e-6);
  EXPECT_GT(dtch(0.1f, 0.f).dedL, 1.f);  // from zero a Lorentzian width can grow
}

/// A pseudo-Voigt is known to stay within 1.2 % of the height of the Voigt function.
TEST(PseudoVoigt, TchComesCloseToAVoigtFunction) {
  for (const double share : {0.2, 0.5, 0.8}) {
    auto p = peak_cases::base<double>(7);
    p.HG = 0.1 * (1 - share);
    p.HL = 0.1 * share;
    const double width = 0.5346 * p.HL + std::sqrt(0.2166 * p.HL * p.HL + p.HG * p.HG);  // Olivero & Longbothum (1977)
    EXPECT_NEAR(pseudo_voigt_mod::tch(p.HG, p.HL).H, width, 5e-3 * width);
    for (const double delta : {0.0, 0.03, 0.09, 0.2}) {
      // the convolution itself, by the rectangle rule over 8 widths of the Gaussian
      double voigt = 0;
      const double step = p.HG / 200, a = 4 * std::numbers::ln2 / (p.HG * p.HG);
      for (double u = -4 * p.HG; u < 4 * p.HG; u += step) {
        const double r = 2 * (delta - u) / p.HL;
        voigt +=
            std::sqrt(a / std::numbers::pi) * std::exp(-a * u * u) * 2 / (std::numbers::pi * p.HL * (1 + r * r)) * step;
      }
      const double top = at(p, 0)[omega];
      EXPECT_NEAR(at(p, delta)[omega], voigt, 1.3e-2 * top) << share << ' ' << delta;
    }
  }
}

TEST(PseudoVoigt, KeijserInvertsTch) {
  using namespace pseudo_voigt_mod;
  for (double eta = 0.02; eta <= 1; eta += 0.07) {
    const auto w = keijser(0.1, eta);
    EXPECT_NEAR(tch(w.HG, w.HL).H, 0.1, 0.002) << eta;
    EXPECT_NEAR(tch(w.HG, w.HL).eta, eta, 0.03) << eta;
  }
  EXPECT_EQ(keijser(0.1, 1.0).HG, 0);
  EXPECT_EQ(keijser(0.1f, 1.f).HG, 0.f);
  EXPECT_NEAR(keijser(0.1, 1.0).HL, 0.1, 1e-3);
}

TEST(PearsonVii, ConstantsMatchClosedForms) {
  // m = 1: Lorentzian; m = 2: 4 sqrt(sqrt2 - 1)/pi; m = 5/2: Gamma(5/2)/Gamma(2) = 3 sqrt(pi)/4
  EXPECT_NEAR(prsvii(1).cc4, 2 / std::numbers::pi, 1e-14);
  EXPECT_NEAR(prsvii(2).cc4, 4 * std::sqrt(std::numbers::sqrt2 - 1) / std::numbers::pi, 1e-14);
  EXPECT_NEAR(prsvii(2.5).cc4, 1.5 * std::sqrt(std::exp2(0.4) - 1), 1e-14);
}

}  // namespace

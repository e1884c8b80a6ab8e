#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "kv_profil.hpp"
#include "peak_cases.hpp"
#include "vector_math.hpp"

using namespace kv_profil;

namespace {

struct row_store {
  std::vector<float> numbers;
  peak_row_out out;
  std::size_t n;
  explicit row_store(std::size_t points) : numbers(points * n_peak_class, -77.f), n(points) {
    for (std::size_t c = 0; c < n_peak_class; ++c) out.of[c] = std::span(numbers).subspan(c * n, n);
  }
};

std::vector<float> abscissae(double middle, double step, std::size_t n) {
  std::vector<float> x(n);
  for (std::size_t i = 0; i < n; ++i) x[i] = float(middle + step * (double(i) - double(n) / 2));
  return x;
}

/// Compares rows in every kind of vector that this processor runs with the double-precision calculation at the same
/// abscissae; the error counts against the largest value of its class.
void expect_row_agrees(peak<float> single, peak<double> exact, std::span<const float> x, double tolerance) {
  ASSERT_EQ(prepare(single), peak_status::ok);
  ASSERT_EQ(prepare(exact), peak_status::ok);
  std::vector<std::array<double, n_peak_class>> want;
  std::array<double, n_peak_class> largest{};
  for (const float v : x) {
    want.push_back(profil(exact, double(v), true));
    for (std::size_t c = 0; c < n_peak_class; ++c) largest[c] = std::max(largest[c], std::abs(want.back()[c]));
  }
  for (const vector_kind kind : {vector_kind::portable, vector_kind::avx2, vector_kind::avx512}) {
    if (kind > widest_vectors()) continue;
    row_store row(x.size());
    peak_row(single, x, row.out, true, kind);
    for (std::size_t c = 0; c < n_peak_class; ++c)
      for (std::size_t i = 0; i < x.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "npr " << single.npr << " class " << c << " point " << i);
        if (classes_filled(single) >> c & 1)
          ASSERT_NEAR(row.out.of[c][i], want[i][c], tolerance * largest[c]);
        else
          ASSERT_EQ(row.out.of[c][i], -77.f);
      }
  }
}

TEST(PeakRow, AgreesWithDoublePrecisionForEveryFunctionAndLength) {
  for (const int npr : peak_cases::all_npr)
    for (const std::size_t n : {1u, 3u, 15u, 16u, 17u, 333u}) {
      const auto x = abscissae(24.0137, 0.02, n);
      expect_row_agrees(peak_cases::base<float>(npr), peak_cases::base<double>(npr), x, 3e-6);
      expect_row_agrees(peak_cases::asymmetric<float>(npr), peak_cases::asymmetric<double>(npr), x, 3e-6);
    }
}

TEST(PeakRow, NarrowPeakAtHighAngleKeepsItsPosition) {
  for (const int npr : {0, 5, 7}) {
    auto single = peak_cases::base<float>(npr);
    auto exact = peak_cases::base<double>(npr);
    single.position = exact.position = 147.123456789;
    single.H = 0.004f, exact.H = 0.004f;
    single.HG = 0.003f, exact.HG = 0.003f;
    single.HL = 0.002f, exact.HL = 0.002f;
    expect_row_agrees(single, exact, abscissae(147.1234, 0.0005, 200), 3e-6);
  }
}

TEST(PeakRow, AgreesWithAxialDivergence) {
  lmix_powderprofiles_finger::gauss_rules rules;
  for (const int npr : {7, 12})
    for (const double position : {6.1, 24.0137, 141.3}) {
      lmix_powderprofiles_finger::axial_peak<float> axial_single;
      lmix_powderprofiles_finger::axial_peak<double> axial_exact;
      ASSERT_TRUE(prepare(axial_single, rules, position, 0.02, 0.03, 0.1));
      ASSERT_TRUE(prepare(axial_exact, rules, position, 0.02, 0.03, 0.1));
      auto single = peak_cases::asymmetric<float>(npr);
      auto exact = peak_cases::asymmetric<double>(npr);
      single.position = exact.position = position;
      single.axial = &axial_single;
      exact.axial = &axial_exact;
      expect_row_agrees(single, exact, abscissae(position, 0.03, 211), 5e-6);
    }
}

TEST(PeakRow, WithoutDerivativesWritesTheValueOnly) {
  const auto x = abscissae(24.0137, 0.02, 37);
  auto p = peak_cases::asymmetric<float>(5);
  ASSERT_EQ(prepare(p), peak_status::ok);
  row_store with(x.size()), without(x.size());
  with.out[width] = {};  // not wanted
  peak_row(p, x, with.out, true);
  peak_row(p, x, without.out, false);
  for (std::size_t i = 0; i < x.size(); ++i) {
    EXPECT_EQ(with.out[omega][i], without.out[omega][i]);
    EXPECT_EQ(without.out[position][i], -77.f);
    EXPECT_EQ(with.numbers[width * x.size() + i], -77.f);
  }
  peak_row(p, {}, with.out, true);
}

TEST(PeakRow, FarFromThePeakNothingOverflows) {
  const std::vector<float> x{-3e3f, 0.f, 1e-3f, 24.f, 179.f, 3e3f};
  for (const int npr : peak_cases::all_npr) {
    auto p = peak_cases::asymmetric<float>(npr);
    p.H = p.H_right = p.HG = 1e-10f;
    p.HL = 0.f;
    p.cut_off = 1e30f;
    ASSERT_EQ(prepare(p), peak_status::ok);
    row_store row(x.size());
    peak_row(p, x, row.out, false);
    for (const float v : row.out[omega]) EXPECT_TRUE(std::isfinite(v)) << npr << ' ' << v;
  }
}

TEST(VectorMath, ExpAndLogKeepTheirAccuracy) {
  using vector = float __attribute__((vector_size(16)));
  double worst_exp = 0, worst_log = 0;
  for (double a = -86.9; a < 5; a += 0.00317) {
    const vector arg = vector{} + float(a), got = vector_math::exp_of(arg);
    worst_exp = std::max(worst_exp, std::abs(got[0] / std::exp(double(arg[0])) - 1));
    const vector power = vector{} + float(std::exp(std::abs(a))), log_got = vector_math::log_of(power);
    const double log_want = std::log(double(power[0]));
    worst_log = std::max(worst_log, std::abs(log_got[0] - log_want) / std::max(log_want, 0.1));
  }
  EXPECT_LT(worst_exp, 1.5 * FLT_EPSILON);
  EXPECT_LT(worst_log, 2 * FLT_EPSILON);
  const vector edge = vector_math::exp_of(vector{-88.f, -1e30f, std::numeric_limits<float>::quiet_NaN(), 0.f});
  EXPECT_EQ(edge[0], 0.f);
  EXPECT_EQ(edge[1], 0.f);
  EXPECT_TRUE(std::isnan(edge[2]));
  EXPECT_EQ(edge[3], 1.f);
}

}  // namespace

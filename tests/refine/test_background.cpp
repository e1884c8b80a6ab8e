#include <gtest/gtest.h>

#include <numbers>

#include "kv_background.hpp"

namespace {

namespace kp = kalvaris_params;
namespace gslot = kp::gslot;

struct kind {
  const char* name;
  int nbckgd, isbac, nodes;
};
constexpr kind kinds[] = {{"polynomial", 0, 1, 0}, {"debye", 1, -1, 0}, {"12 terms", 3, -1, 0}, {"cosine", 4, -1, 0},
                          {"chebychev", 5, -1, 0}, {"lines", 5, 1, 5},  {"spline", 7, -1, 7},   {"file", 1, 1, 0}};

kp::pattern_type pattern_of(const kind& t) {
  kp::pattern_type p;
  p.jobtyp = kp::job::calc_x;  // no clipping
  p.nbckgd = t.nbckgd, p.isbac = t.isbac;
  p.thmin = 10.f, p.step = 0.5f, p.thmax = 110.f, p.npts = 201, p.bkpos = 55.f;
  p.txv.resize(202);
  for (std::size_t i = 0; i < p.txv.size(); ++i) p.txv[i] = 10.f + 0.5f * static_cast<float>(i);
  for (int j = 0; j < t.nodes; ++j)
    p.pos.push_back(12.f + 90.f * static_cast<float>(j * j) / static_cast<float>((t.nodes - 1) * (t.nodes - 1)));
  p.brefint = t.nodes > 0;
  kv_background::set_flags(p);
  if (t.nodes == 5) {  // and two profiles of the user
    p.iglmore = 2, p.nbk_pr = 2;
    p.bk_pr.resize(2);
    for (std::size_t i = 0; i < 201; ++i)
      p.bk_pr[0].push_back(0.01f * static_cast<float>(i)), p.bk_pr[1].push_back(i > 100 ? 2.f : 0.5f);
  }
  for (const int k : kv_background::slots(p))
    p.glb[static_cast<std::size_t>(k)] = 50.f + 30.f * std::cos(1.7f * static_cast<float>(k));
  if (t.nbckgd == 1 && t.isbac == -1)
    for (int j = 0; j < 6; ++j)
      p.glb[static_cast<std::size_t>(gslot::debye_dist + j)] = 1.5f + 0.4f * static_cast<float>(j);
  if (p.brea) {
    for (int i = 0; i < p.npts; ++i) p.bk.push_back(100.f + 40.f * std::sin(0.11f * static_cast<float>(i)));
    p.glb[gslot::bfile_a] = 0.9f, p.glb[gslot::bfile_b] = 7.f, p.glb[gslot::bfile_c] = 0.01f,
    p.glb[gslot::bfile_d] = 0.1313f;  // no point falls on a bend
  }
  kv_background::build(p);
  return p;
}

std::vector<double> values(kp::pattern_type& p) {
  kv_background::build(p);
  std::vector<double> v;
  for (int i = 0; i < p.npts; ++i) v.push_back(static_cast<double>(kv_background::backa(p, i)));
  return v;
}

class Background : public testing::TestWithParam<kind> {};

TEST_P(Background, DerivativesOfEverySlotAgreeWithCentralDifferences) {
  kp::pattern_type p = pattern_of(GetParam());
  const std::vector<int> slots = kv_background::slots(p);
  ASSERT_FALSE(slots.empty());
  std::vector<float> rows(slots.size() * 256);
  kv_background::derivative_rows(p, slots, 0, p.npts, rows.data(), 256);
  for (std::size_t j = 0; j < slots.size(); ++j) {
    float& g = p.glb[static_cast<std::size_t>(slots[j])];
    const float start = g;
    const bool file_axis = p.brea && slots[j] >= gslot::bfile_c;
    const float h = file_axis ? 2e-4f : GetParam().nbckgd == 1 && slots[j] >= gslot::debye_dist ? 2e-3f : 8.f;
    g = start + h;
    const auto up = values(p);
    g = start - h;
    const auto down = values(p);
    g = start;
    double largest = 0;
    for (int i = 0; i < p.npts; ++i)
      largest = std::max(largest, std::abs(static_cast<double>(rows[j * 256 + static_cast<std::size_t>(i)])));
    int bad = 0;
    for (int i = 2; i < p.npts - 4; ++i) {
      const double numeric =
          (up[static_cast<std::size_t>(i)] - down[static_cast<std::size_t>(i)]) / (2.0 * static_cast<double>(h));
      const double exact = static_cast<double>(rows[j * 256 + static_cast<std::size_t>(i)]);
      if (std::abs(numeric - exact) > (file_axis ? 0.05 : 3e-3) * largest) ++bad;
    }
    EXPECT_EQ(bad, 0) << GetParam().name << " slot " << slots[j];
  }
}
INSTANTIATE_TEST_SUITE_P(Kinds, Background, testing::ValuesIn(kinds), [](const auto& row) {
  std::string name = row.param.name;
  std::erase_if(name, [](char c) { return c == ' '; });
  return name;
});

TEST(Background, ValuesAgreeWithTheClosedForms) {
  constexpr double degree = std::numbers::pi / 180;
  kp::pattern_type p = pattern_of({"", 4, -1, 0});
  const auto c = [&](int n) { return static_cast<double>(p.glb[static_cast<std::size_t>(gslot::bac + n)]); };
  double expected = 0;
  for (int n = 0; n < 18; ++n) expected += c(n) * std::cos(n * 40.0 * degree);
  EXPECT_NEAR(values(p)[60], expected, 1e-3);

  p = pattern_of({"", 5, -1, 0});
  expected = 0;
  for (int n = 0; n < 24; ++n) expected += c(n) * std::cos(n * std::acos(2 * (40.0 - 60.0) / 100.0));
  EXPECT_NEAR(values(p)[60], expected, 1e-3);

  p = pattern_of({"", 3, -1, 0});
  expected = 0;
  for (int n = 0; n < 9; ++n) expected += c(n) * std::pow(40.0 / 55.0 - 1.0, n);
  for (int n = 1; n <= 3; ++n) expected += c(8 + n) / std::pow(40.0, n);
  EXPECT_NEAR(values(p)[60], expected, 1e-3);

  p = pattern_of({"", 1, -1, 0});
  expected = 0;
  for (int n = 0; n < 6; ++n) expected += c(n) * std::pow(40.0 / 55.0 - 1.0, n);
  const double q = 4 * std::numbers::pi * std::sin(20.0 * degree) / static_cast<double>(p.lamda[0]);
  for (int j = 0; j < 6; ++j) {
    const double qr = q * static_cast<double>(p.glb[static_cast<std::size_t>(gslot::debye_dist + j)]);
    expected += static_cast<double>(p.glb[static_cast<std::size_t>(gslot::debye_amp + j)]) * std::sin(qr) / qr;
  }
  EXPECT_NEAR(values(p)[60], expected, 1e-3);
}

TEST(Background, SplineGoesThroughItsNodesAndIsSmoothThere) {
  kp::pattern_type p = pattern_of({"", 7, -1, 7});
  p.pos = {10.f, 20.f, 35.f, 50.f, 70.f, 90.f, 110.f};
  const auto v = values(p);
  for (std::size_t j = 0; j < p.pos.size(); ++j)
    EXPECT_NEAR(v[static_cast<std::size_t>((p.pos[j] - 10.f) * 2.f)], static_cast<double>(p.glb[gslot::bac + j]), 1e-3);
  for (std::size_t i = 50; i < 60; ++i)  // around the node at 35: second differences change slowly
    EXPECT_LT(std::abs((v[i + 1] - 2 * v[i] + v[i - 1]) - (v[i] - 2 * v[i - 1] + v[i - 2])), 0.05);
}

TEST(Background, RunsAwayToZeroInARefinementOnly) {
  kp::pattern_type p = pattern_of({"", 0, 1, 0});
  std::fill(p.glb.begin(), p.glb.end(), 0.f);
  p.yo_max = 100.f;
  for (const auto& [height, in_refinement] : {std::pair{150.f, 0.}, {-5.f, 0.}, {80.f, 80.}}) {
    p.glb[gslot::bac] = height;
    p.jobtyp = kp::job::xrays;
    EXPECT_EQ(values(p)[5], in_refinement);
    p.jobtyp = kp::job::calc_x;
    EXPECT_EQ(values(p)[5], static_cast<double>(height));
  }
}

TEST(Background, FileOfEitherFormGivesTheSameValues) {
  kp::pattern_type p = pattern_of({"", 1, 1, 0});
  std::string grid = "! head\n10.0 5.0 110.0 empty holder\n", pairs;
  for (int i = 0; i <= 20; ++i) {
    grid += std::to_string(100 + i * i) + (i % 10 == 9 ? "\n" : " ");
    pairs += std::to_string(10 + 5 * i) + " " + std::to_string(100 + i * i) + "\n";
  }
  std::string reason;
  ASSERT_TRUE(kv_background::load_file(grid, p, reason)) << reason;
  const auto from_grid = p.bk;
  ASSERT_TRUE(kv_background::load_file(pairs, p, reason)) << reason;
  EXPECT_EQ(from_grid, p.bk);
  EXPECT_FLOAT_EQ(p.bk[10], 101.f);
  EXPECT_FLOAT_EQ(p.bk[15], 102.5f);
  for (const char* bad : {"", "1 2\n3 x\n", "1 2 3 4\n", "5 1\n4 1\n3 1\n"})
    EXPECT_FALSE(kv_background::load_file(bad, p, reason)) << bad;
}

TEST(Background, FilterReturnsASlowCurveAndDropsPeaks) {
  kp::pattern_type p = pattern_of({"", 2, -1, 0});
  p.y.clear(), p.yc.assign(201, 0.f);
  for (int i = 0; i < 201; ++i) {
    const float slow = 200.f - 0.3f * static_cast<float>(i) + 20.f * std::cos(0.0157f * static_cast<float>(i));
    const float peak = 900.f * std::exp(-0.5f * std::pow(static_cast<float>(i - 100) / 2.f, 2.f));
    p.y.push_back(slow + peak);
    p.yc[static_cast<std::size_t>(i)] = peak;
  }
  kv_background::filter(p, 40.f);
  for (std::size_t i = 10; i < 190; ++i) EXPECT_NEAR(p.bk[i], p.y[i] - p.yc[i], 4.f) << i;
}

}  // namespace

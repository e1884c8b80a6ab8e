#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <numbers>
#include <set>

#include "lmix_reflections_utilities.hpp"
#include "symmetry_samples.hpp"

namespace {
using namespace lmix_reflections_utilities;
using symmetry_samples::group_of;

// Structure factor of point atoms in two general positions: zero for forbidden reflections only.
bool forbidden_by_structure_factor(const hkl_type& h, const space_group_type& spg) {
  for (const auto& x : {std::array<double, 3>{0.1317, 0.2911, 0.4073}, std::array<double, 3>{0.0719, 0.1933, 0.3541}}) {
    std::complex<double> f = 0.0;
    for (const auto& op : spg.symop) {
      double phase = 0.0;
      for (std::size_t i = 0; i < 3; ++i) {
        double image = static_cast<double>(op.tr[i]);
        for (std::size_t j = 0; j < 3; ++j) image += op.rot[i][j] * x[j];
        phase += h[i] * image;
      }
      f += std::polar(1.0, 2.0 * std::numbers::pi * phase);
    }
    if (std::abs(f) > 1e-3) return false;
  }
  return true;
}

// Every setting, with Friedel mates and without, against a walk over all points of a sphere: absences by the structure
// factor of general positions, orbits by the rotations of all operators.
TEST(HklGen, AllSettingsAgreeWithBruteForce) {
  const float smin = 0.12f, smax = 0.4f;
  const int half = 9;
  const auto orbit_of = [](const hkl_type& h, const space_group_type& spg, bool friedel) {
    std::set<hkl_type> orbit;
    for (const auto& op : spg.symop) {
      hkl_type image{};
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t i = 0; i < 3; ++i) image[j] += h[i] * op.rot[i][j];
      orbit.insert(image);
      if (friedel) orbit.insert({-image[0], -image[1], -image[2]});
    }
    return orbit;
  };
  for (const auto& row : lmix_symmetry_tables::spgr_info())
    for (const bool friedel : {true, false}) {
      SCOPED_TRACE(testing::Message() << row.hall << " friedel " << friedel);
      const space_group_type spg = group_of(row.hall, "HAL");
      const metric_tensor gr = symmetry_samples::metric_of(spg.symop);
      const auto list = hkl_gen(gr, spg, friedel, smin, smax);
      EXPECT_TRUE(std::ranges::is_sorted(list, {}, &reflection_type::s));
      std::map<hkl_type, int> listed;
      int sum = 0, points = 0, orbits = 0;
      for (const auto& r : list) {
        EXPECT_TRUE(listed.emplace(r.h, r.mult).second);
        sum += r.mult;
      }
      std::set<hkl_type> seen;
      for (int h = -half; h <= half; ++h)
        for (int k = -half; k <= half; ++k)
          for (int l = -half; l <= half; ++l) {
            const hkl_type index{h, k, l};
            const float s = hkl_s(index, gr);
            if (s < smin || s > smax || seen.count(index)) continue;
            ASSERT_LT(std::max({std::abs(h), std::abs(k), std::abs(l)}), half) << "box too small";
            const std::set<hkl_type> orbit = orbit_of(index, spg, friedel);
            seen.insert(orbit.begin(), orbit.end());
            const bool absent = forbidden_by_structure_factor(index, spg);
            EXPECT_EQ(hkl_absent(index, spg), absent) << h << ' ' << k << ' ' << l;
            if (absent) continue;
            ++orbits;
            points += static_cast<int>(orbit.size());
            const hkl_type canonical = hkl_canonical(index, spg, friedel);
            EXPECT_TRUE(orbit.count(canonical));
            EXPECT_EQ(listed[canonical], static_cast<int>(orbit.size())) << h << ' ' << k << ' ' << l;
          }
      EXPECT_EQ(sum, points);
      EXPECT_EQ(static_cast<int>(listed.size()), orbits);
    }
}

// Powder lines of corundum (a = 4.7591, c = 12.9918 angstrom) down to d = 1.37, indices and d of the reference pattern.
TEST(HklGen, CorundumLines) {
  struct line {
    hkl_type h;
    int mult;
    float d;
  };
  const float a = 4.7591f, c = 12.9918f, aa = 4.f / (3.f * a * a);
  const metric_tensor gr{{{aa, aa / 2, 0}, {aa / 2, aa, 0}, {0, 0, 1 / (c * c)}}};
  const auto list = hkl_gen(gr, group_of("R -3 c"), true, 0.f, 0.5f / 1.37f);
  const std::vector<line> lines{{{0, 1, 2}, 6, 3.480f},  {{1, 0, 4}, 6, 2.551f},  {{1, 1, 0}, 6, 2.380f},
                                {{0, 0, 6}, 2, 2.165f},  {{1, 1, 3}, 12, 2.085f}, {{2, 0, 2}, 6, 1.964f},
                                {{0, 2, 4}, 6, 1.740f},  {{1, 1, 6}, 12, 1.601f}, {{2, 1, 1}, 12, 1.546f},
                                {{1, 2, 2}, 12, 1.514f}, {{0, 1, 8}, 6, 1.511f},  {{2, 1, 4}, 12, 1.404f},
                                {{3, 0, 0}, 6, 1.374f}};
  ASSERT_EQ(list.size(), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(list[i].h, lines[i].h);
    EXPECT_EQ(list[i].mult, lines[i].mult);
    EXPECT_NEAR(0.5f / list[i].s, lines[i].d, 0.0015f);
  }
}

TEST(HklGen, RegionsOfTheLaueClasses) {
  struct row {
    const char* symbol;
    hkl_type any, canonical;
  };
  for (const row& t : {row{"P -1", {1, 1, -1}, {-1, -1, 1}}, row{"P -1", {1, -2, 0}, {-1, 2, 0}},
                       row{"P 1 2/m 1", {1, -1, -1}, {-1, 1, 1}}, row{"P m m m", {-1, 2, -3}, {1, 2, 3}},
                       row{"P 4/m", {-2, 1, 3}, {1, 2, 3}}, row{"P 4/m m m", {-1, 2, -3}, {2, 1, 3}},
                       row{"P 6/m m m", {-3, 1, 1}, {2, 1, 1}}, row{"P m -3", {1, 2, 0}, {2, 0, 1}},
                       row{"P m -3 m", {0, -1, 2}, {2, 1, 0}}})
    EXPECT_EQ(hkl_canonical(t.any, group_of(t.symbol)), t.canonical) << t.symbol;
}

TEST(HklGen, UselessInputGivesAnEmptyList) {
  const space_group_type spg = group_of("P 1");
  const metric_tensor good{{{0.01f, 0, 0}, {0, 0.01f, 0}, {0, 0, 0.01f}}};
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  metric_tensor flat = good, broken = good;
  flat[2][2] = 0.f;
  broken[0][0] = nan;
  EXPECT_TRUE(hkl_gen(flat, spg, true, 0.f, 0.3f).empty());
  EXPECT_TRUE(hkl_gen(broken, spg, true, 0.f, 0.3f).empty());
  for (const float smax : {0.f, -1.f, nan, inf, 0.04f})
    EXPECT_TRUE(hkl_gen(good, spg, true, 0.f, smax).empty()) << smax;
  EXPECT_TRUE(hkl_gen(good, spg, true, nan, 0.3f).empty());
  EXPECT_TRUE(hkl_gen(good, spg, true, 0.4f, 0.3f).empty());
  EXPECT_EQ(hkl_gen(good, spg, true, 0.05f, 0.05f).size(), 3u);  // limits belong to the range
}

TEST(HklAbsent, TextbookConditions) {
  struct row {
    const char* symbol;
    hkl_type h;
    bool absent;
  };
  for (const row& t :
       {row{"P 1 21/c 1", {0, 1, 0}, true}, row{"P 1 21/c 1", {0, 2, 0}, false}, row{"P 1 21/c 1", {1, 0, 1}, true},
        row{"P 1 21/c 1", {1, 1, 1}, false}, row{"F d -3 m", {2, 0, 0}, true}, row{"F d -3 m", {2, 2, 2}, false},
        row{"F d -3 m", {4, 2, 0}, true}, row{"F d -3 m", {1, 0, 0}, true}, row{"P 61", {0, 0, 3}, true},
        row{"P 61", {0, 0, 6}, false}, row{"R -3 c", {1, 0, 1}, true}, row{"R -3 c", {0, 0, 3}, true},
        row{"R -3 c", {1, 0, 2}, true}, row{"R -3 c", {-1, 0, 2}, false}, row{"R -3 c", {0, 0, 6}, false},
        row{"I a -3", {1, 1, 0}, true}, row{"I a -3", {2, 1, 1}, false}, row{"P 41", {0, 0, -2}, true}})
    EXPECT_EQ(hkl_absent(t.h, group_of(t.symbol)), t.absent) << t.symbol << t.h[0] << t.h[1] << t.h[2];
}

}  // namespace

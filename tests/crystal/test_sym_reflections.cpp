#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <numbers>
#include <set>

#include "lmix_reflections_utilities.hpp"
#include "lmix_symmetry_tables.hpp"

namespace {
using namespace lmix_reflections_utilities;
using lmix_crystallographic_symmetry::set_spacegroup;

space_group_type group_of(std::string_view symbol) {
  space_group_type spg;
  EXPECT_FALSE(set_spacegroup(symbol, spg)) << symbol;
  return spg;
}

// Reciprocal metric tensor that has the symmetry of the group: the mean of an arbitrary one over its rotations.
metric_tensor metric_of(const space_group_type& spg) {
  const double start[3][3] = {{0.031, 0.004, -0.003}, {0.004, 0.022, 0.005}, {-0.003, 0.005, 0.027}};
  std::array<std::array<double, 3>, 3> sum{};
  for (const auto& op : spg.symop)
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k)
          for (std::size_t l = 0; l < 3; ++l) sum[i][j] += op.rot[i][k] * start[k][l] * op.rot[j][l] / spg.multip;
  metric_tensor g{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) g[i][j] = static_cast<float>(sum[i][j]);
  return g;
}

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

// Groups of every Laue class and orientation, with all kinds of reflection conditions.
constexpr const char* samples[] = {"P 1",      "P -1",      "P 1 21/c 1", "C 1 c 1",      "A 1 1 2/a", "P 21 1 1",
                                   "P n m a",  "F d d d:1", "C m c a",    "P 21 21 21",   "I 41/a:1",  "P 43",
                                   "I -4",     "P 41 21 2", "I 41/a c d", "P 42/n m c:1", "P 31",      "R -3",
                                   "R 3:R",    "P 32 2 1",  "P 31 1 2",   "P 3 1 c",      "R -3 c",    "R -3 c:R",
                                   "P -3 1 m", "P 63/m",    "P 61",       "P 63 m c",     "P 6/m c c", "P -6 2 c",
                                   "P 21 3",   "I a -3",    "F d -3:1",   "F d -3 m",     "I -4 3 d",  "P 43 3 2",
                                   "F d -3 c", "P m -3 n",  "I 1 1 2",    "F 1 d 1",      "C 4 2 21"};

TEST(HklGen, ListIsWhatTheSphereHoldsWithoutTheForbiddenPoints) {
  for (const char* symbol : samples) {
    SCOPED_TRACE(symbol);
    const space_group_type spg = group_of(symbol);
    const metric_tensor gr = metric_of(spg);
    const float smin = 0.12f, smax = 0.62f;
    for (const bool friedel : {true, false}) {
      const auto list = hkl_gen(gr, spg, friedel, smin, smax);
      std::map<hkl_type, int> mult_of;
      int sum = 0;
      for (const auto& r : list) {
        EXPECT_TRUE(mult_of.emplace(r.h, r.mult).second);
        EXPECT_TRUE(r.s >= smin && r.s <= smax);
        EXPECT_EQ(r.mult, hkl_mult(r.h, spg, friedel));
        sum += r.mult;
      }
      int points = 0;
      const auto half = 14;
      for (int h = -half; h <= half; ++h)
        for (int k = -half; k <= half; ++k)
          for (int l = -half; l <= half; ++l) {
            const hkl_type index{h, k, l};
            const float s = hkl_s(index, gr);
            // Equivalents differ by rounding: leave out what lies on the limits.
            if (s < smin || s > smax || index == hkl_type{}) continue;
            if (std::max({std::abs(h), std::abs(k), std::abs(l)}) == half) ADD_FAILURE() << "box too small";
            const bool absent = forbidden_by_structure_factor(index, spg);
            if (friedel) {
              EXPECT_EQ(hkl_absent(index, spg), absent) << h << ' ' << k << ' ' << l;
            }
            if (absent) continue;
            ++points;
            const auto listed = mult_of.find(hkl_canonical(index, spg, friedel));
            ASSERT_NE(listed, mult_of.end()) << h << ' ' << k << ' ' << l;
          }
      EXPECT_EQ(sum, points);
      EXPECT_TRUE(std::ranges::is_sorted(list, {}, &reflection_type::s));
      EXPECT_GT(list.size(), 5u);
    }
  }
}

// Every setting, against a walk over all points of a sphere: absences by the structure factor of general positions,
// orbits by the rotations of all operators.
TEST(HklGen, AllSettingsAgreeWithBruteForce) {
  const float smax = 0.4f;
  const int half = 9;
  for (const auto& row : lmix_symmetry_tables::spgr_info()) {
    SCOPED_TRACE(row.hall);
    space_group_type spg;
    ASSERT_FALSE(set_spacegroup(row.hall, spg, {}, "HAL"));
    const metric_tensor gr = metric_of(spg);
    std::map<hkl_type, int> listed;
    for (const auto& r : hkl_gen(gr, spg, true, 0.f, smax)) {
      EXPECT_TRUE(listed.emplace(r.h, r.mult).second);
    }
    int orbits_met = 0;
    std::set<hkl_type> seen;
    for (int h = -half; h <= half; ++h)
      for (int k = -half; k <= half; ++k)
        for (int l = -half; l <= half; ++l) {
          const hkl_type index{h, k, l};
          if (index == hkl_type{} || hkl_s(index, gr) > smax || seen.count(index)) continue;
          ASSERT_LT(std::max({std::abs(h), std::abs(k), std::abs(l)}), half) << "box too small";
          std::set<hkl_type> orbit;
          for (const auto& op : spg.symop) {
            hkl_type image{};
            for (std::size_t j = 0; j < 3; ++j)
              for (std::size_t i = 0; i < 3; ++i) image[j] += index[i] * op.rot[i][j];
            orbit.insert(image);
            orbit.insert({-image[0], -image[1], -image[2]});
          }
          seen.insert(orbit.begin(), orbit.end());
          int members = 0, mult = 0;
          for (const hkl_type& member : orbit)
            if (const auto found = listed.find(member); found != listed.end()) {
              ++members;
              mult = found->second;
            }
          const bool allowed = !forbidden_by_structure_factor(index, spg);
          EXPECT_EQ(members, allowed ? 1 : 0) << h << ' ' << k << ' ' << l;
          EXPECT_EQ(hkl_absent(index, spg), !allowed);
          if (members == 1) {
            EXPECT_EQ(mult, static_cast<int>(orbit.size())) << h << ' ' << k << ' ' << l;
          }
          orbits_met += allowed;
        }
    EXPECT_EQ(static_cast<int>(listed.size()), orbits_met);
  }
}

TEST(HklGen, CanonicalIndexStandsForItsOrbit) {
  for (const char* symbol : samples) {
    SCOPED_TRACE(symbol);
    const space_group_type spg = group_of(symbol);
    for (const hkl_type h :
         {hkl_type{1, 2, 3}, hkl_type{-3, 1, 0}, hkl_type{2, -2, 1}, hkl_type{0, -4, 0}, hkl_type{1, -3, -5}}) {
      const auto orbit = hkl_equiv_list(h, spg);
      EXPECT_EQ(static_cast<int>(orbit.size()), hkl_mult(h, spg));
      for (const hkl_type& k : orbit) {
        EXPECT_EQ(hkl_canonical(k, spg), hkl_canonical(h, spg));
        EXPECT_TRUE(hkl_equiv(h, k, spg));
      }
      const hkl_type c = hkl_canonical(h, spg);
      EXPECT_GE(c[2], 0);
    }
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

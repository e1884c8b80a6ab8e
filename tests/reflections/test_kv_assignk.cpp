#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "../own_directory.hpp"
#include "kv_assignk.hpp"
#include "kv_peak_geometry.hpp"
#include "small_state.hpp"

using kalvaris_params::kr_excluded;
using kalvaris_params::kr_hi;
using kalvaris_params::kr_lo;
using small_state::stop_text;
namespace slot = kalvaris_params::slot;

namespace {

/// Puts reflections at the positions, all of one width, phases in turn from the list.
void put_reflections(small_state::fixture& f, const std::vector<double>& positions, float hw,
                     const std::vector<int>& phases = {}) {
  auto& list = f.pattern().refl;
  list.resize(positions.size());
  for (std::size_t k = 0; k < positions.size(); ++k) {
    list.pos[k] = positions[k];
    list.hw[k] = list.halfl[k] = hw;
    list.irefs[k] = kalvaris_params::pack_irefs({phases.empty() ? 0 : phases[k], 1, static_cast<int>(k) % 100, 0, 1});
  }
}

void run(small_state::fixture& f) {
  f.st.io.console = &f.console;
  kv_assignk::assignk(f.st, 0);
}

}  // namespace

TEST(Assignk, RangesAgainstEveryPairOfPointAndReflection) {
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> where(5, 125), width(0.02, 0.4);
  for (const bool constant : {true, false}) {
    SCOPED_TRACE(constant);
    auto f = small_state::make();
    auto& p = f.pattern();
    p.wdt = 4.f;
    p.iconstep = constant;
    p.glb[kalvaris_params::gslot::zero] = 0.3f;
    p.glb[kalvaris_params::gslot::sysin] = 0.2f;
    if (!constant)
      for (std::size_t i = 0; i < p.txv.size(); ++i) p.txv[i] += 0.02f * std::sin(0.7f * static_cast<float>(i));
    std::vector<double> positions(300);
    for (double& x : positions) x = where(gen);
    std::sort(positions.begin(), positions.end());
    put_reflections(f, positions, 0.1f);
    for (float& h : p.refl.hw) h = static_cast<float>(width(gen));
    run(f);
    bool reset = false;
    for (int i = 0; i < p.npts; ++i) {
      const double x = p.txv[static_cast<std::size_t>(i)];
      int lo = 0, hi = 0, lo_near = 0, hi_near = 0;  // surely reaching, and reaching within one step
      for (int k = 0; k < 300; ++k) {
        const double away = std::abs(x - kv_peak_geometry::peak_position(f.st, 0, k));
        const double reach = 4.0 * p.refl.hw[static_cast<std::size_t>(k)];
        if (away < reach - 1e-4) lo = lo ? lo : k + 1, hi = k + 1;
        if (away < reach + 0.1) lo_near = lo_near ? lo_near : k + 1, hi_near = k + 1;
        if (away < reach - 1e-4) {
          EXPECT_GE(i, p.refl.first_point[static_cast<std::size_t>(k)]);
          EXPECT_LT(i, p.refl.last_point[static_cast<std::size_t>(k)]);
        }
      }
      const auto kr = p.kr[static_cast<std::size_t>(i)];
      const int got_lo = kr_lo(kr, f.st.dim.maxreflx), got_hi = kr_hi(kr, f.st.dim.maxreflx);
      if (lo > 0) {
        EXPECT_LE(got_hi, hi_near);
        EXPECT_GE(got_hi, hi);
        EXPECT_LE(got_lo, lo);
        const bool starts_the_list = got_lo == 1 && lo_near > 1 && !std::exchange(reset, true);
        EXPECT_TRUE(starts_the_list || got_lo >= lo_near);
      }
      EXPECT_TRUE(hi_near > 0 || kr == 0);
    }
  }
}

TEST(Assignk, FirstContributingPointStartsFromTheFirstReflection) {
  auto f = small_state::make();
  put_reflections(f, {1.0, 2.0, 50.0, 90.0}, 0.1f);  // the first two lie below the pattern
  run(f);
  const auto& p = f.pattern();
  const int base = f.st.dim.maxreflx;
  const auto first = std::find_if(p.kr.begin(), p.kr.end(), [](auto kr) { return kr != 0; });
  EXPECT_EQ(kr_lo(*first, base), 1);
  EXPECT_EQ(kr_hi(*first, base), 3);
  EXPECT_EQ(kr_lo(*(first + 1), base), 3);
  EXPECT_EQ(p.refl.first_point[0], p.refl.last_point[0]);
}

TEST(Assignk, ExcludedPointsCarryTheMark) {
  auto f = small_state::make();
  f.pattern().excluded = {{0.f, 9.f}, {49.f, 51.f}, {100.f, 200.f}};
  put_reflections(f, {50.0, 90.0}, 0.1f);
  run(f);
  const auto& p = f.pattern();
  for (int i = 0; i < p.npts; ++i) {
    const double x = 10 + 0.05 * i;
    const bool inside = (x > 48.99 && x < 51.01) || x > 99.99;
    EXPECT_EQ(kr_excluded(p.kr[static_cast<std::size_t>(i)], f.st.dim.maxreflx), inside) << x;
  }
  EXPECT_EQ(kr_hi(p.kr[1600], f.st.dim.maxreflx), 2);  // 90 deg
}

TEST(Assignk, PhasesAreMergedInOrderOfPositionAndEqualOnesKeepTheirOrder) {
  auto f = small_state::make(2);
  put_reflections(f, {20, 40, 60, 10, 40, 80}, 0.1f, {0, 0, 0, 1, 1, 1});
  run(f);
  std::vector<int> phases;
  for (const auto word : f.pattern().refl.irefs) phases.push_back(kalvaris_params::unpack_irefs(word).phase);
  EXPECT_EQ(phases, (std::vector<int>{1, 0, 0, 1, 0, 1}));
  EXPECT_TRUE(std::is_sorted(f.pattern().refl.pos.begin(), f.pattern().refl.pos.end()));
}

TEST(Assignk, SplitPeaksReachByTheirOwnHalves) {
  auto f = small_state::make();
  f.st.mix(0, 0).npro = 11;
  f.pattern().wdt = 2.f;
  put_reflections(f, {50.0}, 0.5f);
  f.pattern().refl.halfl[0] = 2.f;
  run(f);
  EXPECT_EQ(f.pattern().refl.first_point[0], 780);     // 49 deg
  EXPECT_EQ(f.pattern().refl.last_point[0], 880 + 1);  // 54 deg
}

TEST(Assignk, TheTwoTablesGoToTheListing) {
  auto f = small_state::make();
  f.pattern().lst3 = 1, f.pattern().lst2 = 1;
  put_reflections(f, {50.0, 51.0}, 0.1f);
  f.st.io.directory = own_directory();
  f.st.io.filenam = "assignk";
  kalvaris_inout::openfile(f.st.io, {kalvaris_inout::file_key::listings, 0, 0, false});
  run(f);
  kalvaris_inout::close_all(f.st.io);
  std::ifstream in(own_directory() + "assignk.out");
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_NE(text.find("   No.  Code       H   K   L  Phase"), std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 2 + 1 + f.pattern().npts);
}

TEST(Assignk, Stops) {
  struct row {
    const char* what;
    void (*disturb)(small_state::fixture&);
    const char* text;
  };
  const std::vector<row> rows{
      {"none", [](small_state::fixture&) {}, ""},
      {"overlap at the limit", [](small_state::fixture& f) { f.st.dim.maxoverl = 1; }, ""},
      {"overlap", [](small_state::fixture& f) { f.st.dim.maxoverl = 0; }, " Excessive peak overlap"},
      {"outside", [](small_state::fixture& f) { f.pattern().glb[kalvaris_params::gslot::zero] = 300.f; },
       " NO REFLECTIONS FOUND -> Check your INS parameter for input data and/or ZERO point"},
      {"NaN", [](small_state::fixture& f) { f.pattern().glb[kalvaris_params::gslot::zero] = NAN; },
       " NO REFLECTIONS FOUND -> Check your INS parameter for input data and/or ZERO point"},
      {"asymmetry", [](small_state::fixture& f) { f.pattern().rlim = 50.f, f.st.mix(0, 0).lpar[slot::asy4] = 1; },
       " Asymmetry parameters usage invalid !!"},
      {"asymmetry acts", [](small_state::fixture& f) { f.pattern().rlim = 50.1f, f.st.mix(0, 0).lpar[slot::asy4] = 1; },
       ""},
      {"texture", [](small_state::fixture& f) { f.st.mix(0, 0).lpar[slot::pref2] = 1; },
       " Preferred orientation usage invalid !!"},
      {"texture acts",
       [](small_state::fixture& f) { f.st.mix(0, 0).lpar[slot::pref2] = 1, f.st.mix(0, 0).par[slot::pref1] = 0.9f; },
       ""},
  };
  for (const row& t : rows) {
    SCOPED_TRACE(t.what);
    auto f = small_state::make();
    put_reflections(f, {50.0, 50.2}, 0.1f);
    t.disturb(f);
    EXPECT_EQ(stop_text([&] { run(f); }), t.text);
  }
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "reflections_mod.hpp"
#include "small_state.hpp"

namespace {

using kalvaris_params::unpack_irefs;
using small_state::rad;
namespace slot = kalvaris_params::slot;

/// Primitive cubic, 1.5 and 1.6 angstrom, no width but that of the instrument.
small_state::fixture cubic(int ireso) {
  auto f = small_state::make();
  EXPECT_FALSE(lmix_crystallographic_symmetry::set_spacegroup("P m -3 m", f.st.phase[0].spgr));
  f.st.mix(0, 0).npro = 7;
  f.st.mix(0, 0).par[slot::w] = 0.f;
  auto& p = f.pattern();
  p.lamda = {1.5f, 1.6f}, p.ratio = {1.f, 0.5f}, p.single_wave = false;
  p.ireso = ireso;
  auto& r = p.resolution;
  r.uins = {0.01f, 0.02f}, r.vins = {-0.01f, -0.02f}, r.wins = {0.02f, 0.04f};
  r.xins = {0.03f, 0.01f}, r.yins = {0.04f, 0.05f}, r.zins = {0.f, 0.01f};
  r.asym_g = true, r.s_l = 0.02f, r.d_l = 0.03f;
  r.rows = {{20, 0.1f, 0.05f, 0.01f, 0.02f}, {100, 0.3f, 0.01f, 0.05f, 0.04f}};
  return f;
}

TEST(InstrumentInLists, EachRowHasTheTermsOfItsAngleAndWavelength) {
  for (const int ireso : {1, 4, 8, 5}) {
    auto f = cubic(ireso);
    reflections_mod::make_list(f.st, 0);
    const auto& list = f.pattern().refl;
    const auto& r = f.pattern().resolution;
    ASSERT_GT(list.size(), 20);
    for (std::size_t k = 0; k < static_cast<std::size_t>(list.size()); ++k) {
      SCOPED_TRACE(testing::Message() << ireso << " at " << list.pos[k]);
      const auto w = static_cast<std::size_t>(unpack_irefs(list.irefs[k]).wave - 1);
      const double t = std::tan(0.5 * list.pos[k] * rad), c = std::cos(0.5 * list.pos[k] * rad);
      const double part = std::clamp((list.pos[k] - 20) / 80, 0.0, 1.0);
      double ggi = 0, cci = 0, sl = 0, dl = 0;
      if (ireso == 1) {
        ggi = r.uins[w] * t * t + r.vins[w] * t + r.wins[w], cci = r.xins[w] * t + r.yins[w] / c + r.zins[w];
        sl = 0.02, dl = 0.03;
      } else if (ireso != 5) {
        ggi = std::pow(0.1 + 0.2 * part, 2), cci = 0.05 - 0.04 * part;
        if (ireso == 8) sl = 0.01 + 0.04 * part, dl = 0.02 + 0.02 * part;
      }
      EXPECT_NEAR(list.ggi[k], ggi, 1e-6);
      EXPECT_NEAR(list.cci[k], cci, 1e-6);
      EXPECT_NEAR(list.sl_i[k], sl, 1e-7);
      EXPECT_NEAR(list.dl_i[k], dl, 1e-7);
      EXPECT_NEAR(list.halfg[k], std::max(std::sqrt(ggi), 1e-10), 1e-5);
      EXPECT_NEAR(list.halfl[k], cci, 1e-6);
      EXPECT_TRUE(ireso == 5 || list.hw[k] > std::max(list.halfg[k], list.halfl[k]));
    }
  }
}

TEST(InstrumentInLists, TailsFromAboveTheRangeCountTheWidthOfTheInstrument) {
  auto f = cubic(5);
  const double bare = reflections_mod::make_limits(f.st, 0, 0).last;
  EXPECT_NEAR(bare, 120, 1e-3);
  f.pattern().ireso = 4;  // at 120 deg 0.3 and 0.01 deg: 3 wdt H above
  EXPECT_NEAR(reflections_mod::make_limits(f.st, 0, 0).last, 120 + 3 * f.pattern().wdt * 0.3054, 0.05);
}

TEST(InstrumentInLists, TheTableOfCorrectionsMultipliesTheFactorOfTheAngle) {
  auto plain = cubic(0), corrected = cubic(0);
  auto& p = corrected.pattern();
  p.icorr = 1;
  p.correction.corrp = {20, 60, 120}, p.correction.corrv = {0.5f, 2.f, 1.f};
  for (auto* f : {&plain, &corrected}) reflections_mod::make_list(f->st, 0);
  const auto &without = plain.pattern().refl, &with = p.refl;
  ASSERT_EQ(without.size(), with.size());
  for (std::size_t k = 0; k < static_cast<std::size_t>(with.size()); ++k) {
    const double x = double{with.pos[k]}, factor = x < 60 ? 0.5 + 1.5 * (x - 20) / 40 : 2 - (x - 60) / 60;
    EXPECT_NEAR(with.lp[k] / without.lp[k], factor, 1e-5) << x;
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <sstream>

#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
using kalvaris_codes::join;
using kalvaris_codes::split;

TEST(CodeWord, SplitsIntoNumberAndMultiplier) {
  struct row {
    float code;
    int number;
    float multiplier;
  };
  for (const row t : {row{11.f, 1, 1.f},
                      {-41.f, 4, -1.f},
                      {31.5f, 3, 1.5f},
                      {20.f, 2, 0.f},
                      {0.f, 0, 0.f},
                      {69.999996f, 6, 9.999996f}}) {
    SCOPED_TRACE(t.code);
    EXPECT_EQ(split(t.code).number, t.number);
    EXPECT_NEAR(split(t.code).multiplier, t.multiplier, 1e-5f);
  }
  EXPECT_EQ(join(split(0.5f), false), 0.f);
}

TEST(CodeWord, JoinIsTheExactInverseOfSplit) {
  for (int n = 0; n <= 500; ++n)
    for (int hundredths = 0; hundredths < 1000; hundredths += 7)
      for (const float sign : {1.f, -1.f}) {
        const float word = sign * (10.f * static_cast<float>(n) + 0.01f * static_cast<float>(hundredths));
        ASSERT_EQ(join(split(word), true), word);
      }
}

TEST(AutomaticCodes, FillGapsFirstThenGoOnAndCloseUp) {
  kp::state_type st = model_state::quartz(7);
  st.run.automatic = true;
  auto& m = st.mixes[0];
  st.pattern[0].aglb[kp::gslot::zero] = 1.f;  // first request in the walk: gap 2
  m.apar[kp::slot::scale] = 11.f;
  m.apar[kp::slot::w] = 31.f;
  m.apar[kp::slot::x] = -0.5f;  // next free number, multiplier kept
  m.apar[kp::slot::y] = 61.f;   // leaves the gaps 4 and 5: one is used, one closed up
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(st.pattern[0].lglb[kp::gslot::zero], 2);
  EXPECT_EQ(m.lpar[kp::slot::x], 4);
  EXPECT_FLOAT_EQ(m.apar[kp::slot::x], -0.5f);
  EXPECT_EQ(m.lpar[kp::slot::y], 5);
  EXPECT_EQ(st.run.maxs, 5);
  EXPECT_EQ(st.parm.nampar[5], "Y_ph1_pat1");
  EXPECT_EQ(st.parm.nampar[2], "Zero_pat1");
}

TEST(Codes, NumberAboveTheLimitIsRefusedAndAboveMaxsIsLeftOut) {
  kp::state_type st = model_state::quartz(7);
  st.mixes[0].apar[kp::slot::w] = 6001.f;
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(st.fmt.ierr_fmt, 100);
  EXPECT_EQ(st.fmt.mess_findfmt.txt[0], " Error in a code:      6001.00");
  EXPECT_EQ(st.fmt.mess_findfmt.txt[1], " The maximum number of parameters is:    500");

  kp::state_type many = model_state::quartz(7);
  many.run.automatic = true;
  many.dim.maxparam = 1;
  many.mixes[0].apar[kp::slot::scale] = many.mixes[0].apar[kp::slot::w] = 1.f;
  kalvaris_codes::mod_codes(many);
  EXPECT_EQ(many.fmt.ierr_fmt, 100);
  EXPECT_EQ(many.fmt.mess_findfmt.txt[0], " Error: number of refined parameters:     2");

  kp::state_type other = model_state::quartz(7);
  std::ostringstream console;
  other.io.console = &console;
  other.run.maxs = 1;
  other.mixes[0].apar[kp::slot::scale] = 11.f;
  other.mixes[0].apar[kp::slot::w] = 21.f;
  kalvaris_codes::mod_codes(other);
  EXPECT_EQ(other.fmt.ierr_fmt, 0);
  EXPECT_EQ(other.run.maxs, 1);
  EXPECT_NE(console.str().find(" Warning! Codes above the number of refined parameters are not refined: 2"),
            std::string::npos);
  EXPECT_EQ(apply_shifts::reference_weight(other, 2, 1.f), 0.f);
}

TEST(Codes, OfADeselectedPatternAreClearedAndTheOthersCloseUp) {
  kp::state_type st = model_state::quartz(7);
  st.run.n_patt = 2;
  st.pattern.push_back(st.pattern[0]);
  st.mixes.push_back(st.mixes[0]);
  st.pattern[0].affpat = 0;
  st.mixes[0].apar[kp::slot::scale] = 11.f;
  st.mixes[1].apar[kp::slot::scale] = 21.f;
  st.run.maxs = 2;
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(st.mixes[0].lpar[kp::slot::scale], 0);
  EXPECT_EQ(st.mixes[1].lpar[kp::slot::scale], 1);
  EXPECT_EQ(st.run.maxs, 1);
}

TEST(CellConst, TiesValuesAndCodesOfEveryLattice) {
  struct row {
    const char* group;
    std::array<float, 6> in, code_in, code_out;
  };
  const std::array<float, 6> odd{5.f, 6.f, 7.f, 80.f, 95.f, 110.f};
  const row rows[] = {
      {"P -1", odd, {11, 21, 31, 41, 51, 61}, {11, 21, 31, 41, 51, 61}},
      {"P 1 21/c 1", odd, {11, 21, 31, 41, 51, 61}, {11, 21, 31, 0, 51, 0}},
      {"P 1 1 21/b", odd, {11, 21, 31, 41, 51, 61}, {11, 21, 31, 0, 0, 61}},
      {"P n m a", odd, {11, 21, 31, 41, 51, 61}, {11, 21, 31, 0, 0, 0}},
      {"P 42/m n m", odd, {11, 0, 31, 0, 0, 61}, {11, 11, 31, 0, 0, 0}},
      {"R -3 c:R", odd, {11, 0, 0, 21, 0, 0}, {11, 11, 11, 21, 21, 21}},
      {"R -3 c", odd, {11, 0, 31, 0, 0, 0}, {11, 11, 31, 0, 0, 11}},
      {"P 63 m c", odd, {11, 0, 31, 0, 0, 0}, {11, 11, 31, 0, 0, 11}},
      {"F m -3 m", odd, {11, 0, 0, 51, 0, 0}, {11, 11, 11, 0, 0, 0}},
  };
  for (const row& t : rows) {
    SCOPED_TRACE(t.group);
    kp::state_type st = model_state::quartz(7);
    ASSERT_FALSE(lmix_crystallographic_symmetry::set_spacegroup(t.group, st.phase[0].spgr).err_symm);
    auto& m = st.mixes[0];
    for (std::size_t i = 0; i < 6; ++i)
      m.par[kp::slot::cell_a + i] = t.in[i], m.apar[kp::slot::cell_a + i] = t.code_in[i];
    ASSERT_TRUE(kalvaris_codes::cell_const(st, 0, 0, false));
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(m.apar[kp::slot::cell_a + i], t.code_out[i]) << i;
    // the quadratic form of the tied cell is invariant under every rotation of the group
    const auto q = [&](const std::array<int, 3>& h) {
      const float* f = &m.par[kp::slot::cell_a];
      const double a = h[0], b = h[1], c = h[2];
      return f[0] * a * a + f[1] * b * b + f[2] * c * c + f[3] * b * c + f[4] * a * c + f[5] * a * b;
    };
    for (const auto& op : st.phase[0].spgr.symop) {
      std::array<int, 3> hs{};
      const std::array<int, 3> h{1, 2, 5};
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t i = 0; i < 3; ++i) hs[j] += h[i] * op.rot[i][j];
      EXPECT_NEAR(q(hs) / q(h), 1.0, 1e-5);
    }
  }
}

TEST(CellConst, RefusesACellThatCannotClose) {
  kp::state_type st = model_state::quartz(7);
  ASSERT_FALSE(lmix_crystallographic_symmetry::set_spacegroup("P -1", st.phase[0].spgr).err_symm);
  for (int i = 0; i < 3; ++i)
    st.mixes[0].par[static_cast<std::size_t>(kp::slot::cell_a + 3 + i)] = i == 2 ? 170.f : 60.f;
  EXPECT_FALSE(kalvaris_codes::cell_const(st, 0, 0, false));
  EXPECT_EQ(st.fmt.ierr_fmt, 100);
  EXPECT_EQ(st.fmt.mess_findfmt.txt[0], " => Error in the cell of phase: 1 pattern: 1");
  EXPECT_EQ(st.fmt.mess_findfmt.txt[1],
            " Bad cell parameters: lengths must be positive and the angles must be able to close");
}

TEST(RestoreCodes, OnlyAGuardedMultiplierChangesTheWordThatWasRead) {
  kp::state_type st = model_state::quartz(7);
  auto& m = st.mixes[0];
  st.run.maxs = 2;
  m.apar[kp::slot::x] = m.apar_read[kp::slot::x] = 11.f;
  m.apar[kp::slot::y] = m.apar_read[kp::slot::y] = 21.f;
  kalvaris_codes::mod_codes(st);
  m.apar[kp::slot::x] *= 0.5f;
  kalvaris_codes::restore_codes(st);
  EXPECT_FLOAT_EQ(m.apar_read[kp::slot::x], 10.5f);
  EXPECT_FLOAT_EQ(m.apar_read[kp::slot::y], 21.f);
}

}  // namespace

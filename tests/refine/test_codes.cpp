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
  EXPECT_NE(
      console.str().find(" Warning! Codes above the number of refined parameters are not refined: 2 (W_ph1_pat1)"),
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
  st.mixes[1].apar_read[kp::slot::scale] = 21.f;
  st.run.limits = {{2, 0.f, 1.f, 0.f, 0, "", 2}};
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(st.mixes[0].lpar[kp::slot::scale], 0);
  EXPECT_EQ(st.mixes[1].lpar[kp::slot::scale], 1);
  EXPECT_EQ(st.run.maxs, 1);
  EXPECT_EQ(st.run.limits[0].number, 1);
  kalvaris_codes::restore_codes(st);  // the control file keeps its numbers
  EXPECT_EQ(st.mixes[1].apar_read[kp::slot::scale], 21.f);
  EXPECT_EQ(st.run.limits[0].number_read, 2);
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

/// Scale, U, V, W and X with the codes, limits and a linear restraint on the numbers.
kp::state_type with_numbers(const std::vector<float>& codes, int maxs, const std::vector<int>& named, bool automatic) {
  kp::state_type st = model_state::quartz(7);
  const int slots[] = {kp::slot::scale, kp::slot::u, kp::slot::v, kp::slot::w, kp::slot::x};
  for (std::size_t i = 0; i < codes.size(); ++i) {
    const auto k = static_cast<std::size_t>(slots[i]);
    st.mixes[0].apar[k] = st.mixes[0].apar_read[k] = codes[i];
  }
  st.run.maxs = st.run.maxs_read = maxs;
  st.run.automatic = st.run.automatic_read = automatic;
  kp::linear_restraint all;
  all.sval_lin = 1.f;
  for (const int n : named) {
    st.run.limits.push_back({n, 0.f, 1.f, 0.f, 0, "", n});
    all.para.push_back(n), all.coef.push_back(1.f);
  }
  all.para_read = all.para;
  if (!named.empty()) st.run.linear.push_back(all);
  return st;
}

struct numbering_row {
  const char* what;
  std::vector<float> codes;
  int maxs;
  std::vector<int> named;  ///< by limits and by a linear restraint
  bool automatic;
  int count;
  std::vector<int> named_now;
  std::vector<float> rewritten;
  std::vector<std::string> told;
};

TEST(ParameterNumbers, WithGapsAreClosedUpWithAllThatNamesThem) {
  const numbering_row rows[] = {
      {"none missing", {11, 21, 31.5f}, 3, {3}, false, 3, {3}, {11, 21, 31.5f}, {}},
      {"one fixed, its limits left",
       {11, 0, -31.5f, 41, 51},
       5,
       {2, 4},
       false,
       4,
       {0, 3},
       {11, 0, -21.5f, 31, 41},
       {"Note: gaps in the parameter numbers are closed: 3 to 5 -> 2 to 4; Maxs is 5, the codes carry 4 different "
        "numbers: 4 parameters are refined. The rewritten control file has these numbers",
        "Warning! limits of parameters that are not refined: 2", "Warning! linear restraints on"}},
      {"Maxs already lowered", {11, 0, 31, 41, 51}, 4, {5}, false, 4, {4}, {11, 0, 21, 31, 41}, {"3 to 5 -> 2 to 4"}},
      {"fewer wanted, with a gap",
       {11, 31, 41, 91},
       2,
       {3, 9},
       false,
       2,
       {2, 4},
       {11, 21, 31, 41},
       {"3 to 4 -> 2 to 3, 9 -> 4", "not refined: 4, 9 (V_ph1_pat1, W_ph1_pat1). Maxs is 2; 4 refines them all",
        "limits of parameters that are not refined: 9"}},
      {"nothing wanted", {11, 31}, 0, {3}, false, 0, {3}, {11, 31}, {"Maxs is 0: nothing is refined"}},
      {"nothing coded", {0, 0}, 2, {}, false, 0, {}, {0, 0}, {"Maxs is 2, the codes carry 0 different numbers"}},
      {"requests without automatic codes", {11, 1}, 1, {}, false, 1, {}, {11, 1}, {"automatic codes are off"}},
      {"by the program",
       {11, 1.f, 41, 61, 71},
       0,
       {2, 3, 6, 7},
       true,
       5,
       {2, 0, 5, 3},
       {11, 21, 41, 51, 31},
       {"6 -> 5, 7 -> 3", "limits of parameter numbers that no code had: 2 now belongs to U_ph1_pat1",
        "limits of parameters that are not refined: 3"}},
  };
  for (const numbering_row& row : rows) {
    SCOPED_TRACE(row.what);
    kp::state_type st = with_numbers(row.codes, row.maxs, row.named, row.automatic);
    std::ostringstream console;
    st.io.console = &console;
    kalvaris_codes::mod_codes(st);
    ASSERT_EQ(st.fmt.ierr_fmt, 0);
    EXPECT_EQ(st.run.maxs, row.count);
    for (std::size_t i = 0; i < row.named_now.size(); ++i) {
      EXPECT_EQ(st.run.limits[i].number, row.named_now[i]);
      EXPECT_EQ(st.run.linear[0].para[i], row.named_now[i]);
    }
    if (row.told.empty()) {
      EXPECT_EQ(console.str(), "");
    }
    for (const std::string& words : row.told) EXPECT_NE(console.str().find(words), std::string::npos) << console.str();
    kalvaris_codes::restore_codes(st);
    EXPECT_EQ(st.run.maxs_read, row.count);
    const int slots[] = {kp::slot::scale, kp::slot::u, kp::slot::v, kp::slot::w, kp::slot::x};
    for (std::size_t i = 0; i < row.rewritten.size(); ++i)
      EXPECT_FLOAT_EQ(st.mixes[0].apar_read[static_cast<std::size_t>(slots[i])], row.rewritten[i]) << i;
    for (std::size_t i = 0; i < row.named_now.size(); ++i)
      EXPECT_EQ(st.run.limits[i].number_read, row.named_now[i]) << i;
  }
}

TEST(ParameterNumbers, OfCodesThatTakeNoPartStayApartFromThoseInUse) {
  kp::state_type st = with_numbers({11, 0, 41}, 2, {2}, false);
  st.atom[1].a_read[kp::aslot::x] = 21.f;  // fixed by a word
  st.mixes[0].apar_read[kp::slot::y] = 31.f;
  kalvaris_codes::mod_codes(st);
  kalvaris_codes::restore_codes(st);
  EXPECT_EQ(st.run.maxs_read, 2);
  EXPECT_FLOAT_EQ(st.mixes[0].apar_read[kp::slot::v], 21.f);
  EXPECT_FLOAT_EQ(st.mixes[0].apar_read[kp::slot::y], 41.f);
  EXPECT_FLOAT_EQ(st.atom[1].a_read[kp::aslot::x], 31.f);
  EXPECT_EQ(st.run.limits[0].number_read, 3);
}

TEST(ParameterNumbers, FollowACellThatItsLatticeTies) {
  kp::state_type st = with_numbers({11}, 4, {}, false);
  auto& m = st.mixes[0];
  for (std::size_t i = 0; i < 3; ++i)
    m.apar[kp::slot::cell_a + i] = m.apar_read[kp::slot::cell_a + i] = 21.f + 10.f * static_cast<float>(i);
  model_state::load_cells(st);
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(st.run.maxs, 3);
  kalvaris_codes::restore_codes(st);
  const float expected[] = {21.f, 21.f, 31.f};
  for (std::size_t i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(m.apar_read[kp::slot::cell_a + i], expected[i]) << i;
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

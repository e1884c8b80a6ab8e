#include <gtest/gtest.h>

#include "kv_quantitative.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;

TEST(MassFractions, DoNotDependOnTheSettingOfAPhase) {
  // fluorite told in F m -3 m (inversion at the origin, four centring vectors) and in P 1 with all twelve atoms, the
  // scales chosen so that both scatter alike: half of the mass each
  kp::state_type st = model_state::quartz(7);
  st.run.nphase = 2;
  st.phase.resize(2), st.mixes.resize(2);
  ASSERT_FALSE(lmix_crystallographic_symmetry::set_spacegroup("F m -3 m", st.phase[0].spgr).err_symm);
  ASSERT_FALSE(lmix_crystallographic_symmetry::set_spacegroup("P 1", st.phase[1].spgr).err_symm);
  st.atom = {model_state::atom("Ca", "CA", 0, 0, 0, 0, 1.f / 48),
             model_state::atom("F", "F", 0.25f, 0.25f, 0.25f, 0, 1.f / 24)};
  for (int i = 0; i < 4; ++i) st.atom.push_back(model_state::atom("Ca", "CA", 0, 0, 0, 0, 1.f));
  for (int i = 0; i < 8; ++i) st.atom.push_back(model_state::atom("F", "F", 0, 0, 0, 0, 1.f));
  st.phase[0].natom = 2;
  st.phase[1].first_atom = 2, st.phase[1].natom = 12;
  for (auto& phase : st.phase) phase.cellp.cellvol = 163.f;
  st.mixes[1].par[kp::slot::scale] = 0.25f;
  st.mixes[0].par[kp::slot::scale] = 0.25f * 4 * 4;  // F^2 of the first leaves out 4 centrings and the doubled sum
  EXPECT_NEAR(kv_quantitative::cell_mass(st, 0), 4 * 78.075, 0.02);
  const auto half = kv_quantitative::mass_fractions(st, 0);
  ASSERT_EQ(half.size(), 2u);
  EXPECT_NEAR(half[0].fraction, 0.5, 1e-6);

  // sigma: one scale known to 2 %, the other exactly: 0.5 * 0.5 * 0.02
  st.mixes[0].lpar[kp::slot::scale] = 1, st.mixes[0].apar[kp::slot::scale] = 1.f;
  st.run.maxs = 1;
  st.parm.m_ref = {0.f, 1.f};
  st.ne.reset(1);
  st.ne.rjac(0, 0) = std::pow(0.02 * 4.0, 2);
  for (const auto& m : kv_quantitative::mass_fractions(st, 0)) EXPECT_NEAR(m.sigma, 0.005, 1e-5);

  st.atom[0].ntyp = "QQ";
  EXPECT_TRUE(kv_quantitative::mass_fractions(st, 0).empty());
}

}  // namespace

#include <gtest/gtest.h>

#include "kv_quantitative.hpp"
#include "kv_structure_factors.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;

/// Diamond in the group given and again in P 1 with all eight atoms, the scales such that both scatter alike.
kp::state_type told_twice(const char* group, float x, float occ) {
  kp::state_type st = model_state::quartz(7);
  st.run.nphase = 2;
  st.phase.resize(2), st.mixes.resize(2);
  EXPECT_FALSE(lmix_crystallographic_symmetry::set_spacegroup(group, st.phase[0].spgr).err_symm);
  EXPECT_FALSE(lmix_crystallographic_symmetry::set_spacegroup("P 1", st.phase[1].spgr).err_symm);
  st.atom = {model_state::atom("C", "C", x, x, x, 0, occ)};
  const float corners[4][3] = {{0, 0, 0}, {0, 0.5f, 0.5f}, {0.5f, 0, 0.5f}, {0.5f, 0.5f, 0}};
  for (const auto& c : corners)
    for (const float to : {0.f, 0.25f})
      st.atom.push_back(model_state::atom("C", "C", c[0] + to, c[1] + to, c[2] + to, 0, 1.f));
  st.phase[0].natom = 1;
  st.phase[1].first_atom = 1, st.phase[1].natom = 8;
  for (auto& phase : st.phase) phase.cellp.cellvol = 45.4f;
  EXPECT_EQ(look_scatt::lookup(st, 0), 0);
  std::array<double, 2> f2{};
  kv_structure_factors::workspace work;
  for (int ph : {0, 1})
    f2[static_cast<std::size_t>(ph)] =
        kv_structure_factors::stfac(kv_structure_factors::prepare(st, ph, 0, {}), {1.f, 1.f, 1.f}, 0.05, work, {}).fsq;
  st.mixes[1].par[kp::slot::scale] = 0.25f;
  st.mixes[0].par[kp::slot::scale] = static_cast<float>(0.25 * f2[1] / f2[0]);
  return st;
}

TEST(MassFractions, DoNotDependOnTheSettingOfAPhase) {
  struct row {
    const char* group;
    float x, occ;
  };
  // the centre is off the origin, then at the origin
  for (const row& t : {row{"F d -3 m:1", 0.f, 8.f / 192}, row{"F d -3 m:2", 0.125f, 8.f / 192}}) {
    SCOPED_TRACE(t.group);
    kp::state_type st = told_twice(t.group, t.x, t.occ);
    EXPECT_NEAR(kv_quantitative::cell_mass(st, 0), 8 * 12.011, 0.01);
    auto half = kv_quantitative::mass_fractions(st, 0);
    ASSERT_EQ(half.size(), 2u);
    EXPECT_NEAR(half[0].fraction, 0.5, 1e-5);
    EXPECT_EQ(half[0].sigma, 0.0);

    // one scale known to 2 %, the other half as well with the other sign: 0.5 * 0.5 * (0.02 + 0.01)
    for (const int ph : {0, 1}) st.mixes[static_cast<std::size_t>(ph)].lpar[kp::slot::scale] = 1;
    st.mixes[0].apar[kp::slot::scale] = 1.f;
    st.mixes[1].apar[kp::slot::scale] = -0.5f * st.mixes[1].par[kp::slot::scale] / st.mixes[0].par[kp::slot::scale];
    st.run.maxs = 1;
    st.parm.m_ref = {0.f, 1.f};
    st.ne.reset(1);
    st.ne.rjac(0, 0) = std::pow(0.02 * static_cast<double>(st.mixes[0].par[kp::slot::scale]), 2);
    for (const auto& m : kv_quantitative::mass_fractions(st, 0)) EXPECT_NEAR(m.sigma, 0.0075, 1e-5);

    st.atom[0].ntyp = "QQ";
    EXPECT_TRUE(kv_quantitative::mass_fractions(st, 0).empty());
  }
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_files.hpp"

namespace {

using control_files::run_directory;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ReadPcr, ShortFormFillsEveryRecord) {
  run_directory run;
  state_type& st = run.read(control_files::lab6_free());
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(st.run.title, "LaB6 line-profile standard, laboratory X-rays");
  EXPECT_TRUE(st.run.s_format);
  EXPECT_EQ(st.run.nphase, 1);
  EXPECT_EQ(st.run.mcycle, 15);
  EXPECT_EQ(st.run.maxs, 16);
  const auto& p = st.pattern.at(0);
  EXPECT_EQ(p.instr, 10);
  EXPECT_EQ(p.ianaly, 1);
  EXPECT_FLOAT_EQ(p.lamda[1], 1.54439f);
  EXPECT_FLOAT_EQ(p.ratio[1], 0.5f);
  EXPECT_FLOAT_EQ(p.rlim, 45.f);
  EXPECT_FLOAT_EQ(p.cthm, 0.7998f);
  EXPECT_FLOAT_EQ(p.thmax, 140.f);
  ASSERT_EQ(p.excluded.size(), 1u);
  EXPECT_FLOAT_EQ(p.excluded[0].ahigh, 18.f);
  EXPECT_FLOAT_EQ(p.glb[gslot::zero], 0.01f);
  EXPECT_FLOAT_EQ(p.aglb[gslot::zero], 21.f);
  EXPECT_FLOAT_EQ(p.glb[gslot::lambda], 1.54056f);
  EXPECT_FLOAT_EQ(p.glb[gslot::bac + 2], 6.f);
  EXPECT_FLOAT_EQ(p.aglb_read[gslot::bac + 5], 81.f);

  ASSERT_EQ(st.atom.size(), 2u);
  EXPECT_EQ(st.atom[0].atext, "La");
  EXPECT_EQ(st.atom[0].atm_info, " site 1a");
  EXPECT_EQ(st.atom[1].ntyp, "B");
  EXPECT_EQ(st.atom[1].n_t, 2);
  EXPECT_FLOAT_EQ(st.atom[1].xl[aslot::occ], 0.125f);
  EXPECT_FLOAT_EQ(st.atom[1].a[aslot::x], 101.f);
  EXPECT_FLOAT_EQ(st.atom[1].xl[aslot::b33], 0.00777f);
  EXPECT_FLOAT_EQ(st.atom[1].a[aslot::b22], 131.f);
  EXPECT_EQ(st.phase[0].symb, "P m -3 m");
  const auto& m = st.mix(0, 0);
  EXPECT_EQ(m.npro, 7);
  EXPECT_FLOAT_EQ(m.par[slot::scale], 2.5e-3f);
  EXPECT_FLOAT_EQ(m.par[slot::y], 0.015f);
  EXPECT_FLOAT_EQ(m.apar[slot::w], 151.f);
  EXPECT_FLOAT_EQ(m.par[slot::cell_a + 2], 4.15689f);
  EXPECT_FLOAT_EQ(m.par[slot::cell_f], 90.f);
  EXPECT_FLOAT_EQ(m.par[slot::d_l], 0.025f);
  EXPECT_FLOAT_EQ(m.apar_read[slot::s_l], 161.f);
}

}  // namespace

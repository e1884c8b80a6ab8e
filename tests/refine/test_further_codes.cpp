// Numbers and names of propagation vectors, magnetic domains and the slots of other kinds of data.
#include <gtest/gtest.h>

#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;

kp::vector_type vector_with(std::array<float, 4> k, std::array<float, 4> codes) {
  kp::vector_type v;
  v.pvk = k;
  v.avk = v.avk_read = codes;
  return v;
}

TEST(FurtherCodes, VectorsAndDomainsAreNumberedBetweenThePhaseAndItsAtoms) {
  kp::state_type st = model_state::quartz(7);
  st.run.automatic = true;
  st.mixes[0].apar[kp::slot::scale] = 1.f;
  st.phase[0].nvk = 1;
  st.phase[0].vector = {vector_with({0, 0.1f, 0.2f, 0.3f}, {0, 0, 1.f, -1.5f})};
  kp::domain_type first, last;
  first.value = last.value = {0, 0.5f, 1.f};
  first.code = last.code = {0, 1.f, 1.f};
  last.chirality = true;
  st.phase[0].magdom = {first, last};
  st.atom[0].a[kp::aslot::biso] = 1.f;
  kalvaris_codes::mod_codes(st);
  const std::vector<std::string> names(st.parm.nampar.begin() + 1, st.parm.nampar.end());
  // The population of the last domain follows from the others; a chirality that is not given is not refined.
  EXPECT_EQ(names, (std::vector<std::string>{"Scale_ph1_pat1", "Ky_1_ph1", "Kz_1_ph1", "Dom_1_ph1", "Chi_2_ph1",
                                             "Biso_" + st.atom[0].atext + "_ph1"}));
  EXPECT_FLOAT_EQ(st.parm.valx[3], 0.3f);
  EXPECT_FLOAT_EQ(st.phase[0].vector[0].avk[3], -0.5f);  // 1.5 asks for half a step
  EXPECT_EQ(st.phase[0].magdom[1].number[1], 0);
}

TEST(FurtherCodes, OppositeVectorsShareTheNumberWithTheOtherSign) {
  for (const bool automatic : {false, true}) {
    kp::state_type st = model_state::quartz(7);
    st.run.automatic = automatic;
    st.run.maxs = 1;
    st.phase[0].nvk = -1;
    const float code = automatic ? 1.f : 11.f;
    st.phase[0].vector = {vector_with({0, 0, 0, 0.25f}, {0, 0, 0, code}),
                          vector_with({0, 0, 0, -0.25f}, {0, 0, 0, -code})};
    kalvaris_codes::mod_codes(st);
    EXPECT_EQ(st.run.maxs, 1) << automatic;
    EXPECT_EQ(st.phase[0].vector[1].lvk[3], 1) << automatic;
    EXPECT_FLOAT_EQ(st.phase[0].vector[0].avk[3], 1.f) << automatic;
    EXPECT_FLOAT_EQ(st.phase[0].vector[1].avk[3], -1.f) << automatic;
  }
}

struct name_row {
  int ixunit, nprof;
  bool crystal;
  kp::slot_family family;
  int k;
  const char* name;
};
TEST(FurtherCodes, NamesFollowTheKindOfData) {
  using enum kp::slot_family;
  for (const name_row& row :
       {name_row{0, 7, false, global, 2, "SyCos_pat1"}, {1, 9, false, global, 2, "Dtt1_pat1"},
        {1, 9, false, global, 4, "Dtt_1overd_pat1"},    {1, 10, false, global, 4, "Zt_pat1"},
        {1, 10, false, global, 8, "Width_pat1"},        {1, 9, false, global, 14, "Bck_0_pat1"},
        {0, 7, false, global, 391, "AddBck_1_pat1"},    {0, 7, false, phase, 3, "U_ph1_pat1"},
        {1, 9, false, phase, 3, "Sig2_ph1_pat1"},       {1, 9, false, phase, 17, "Extinc_ph1_pat1"},
        {1, 9, false, phase, 43, "Abs1_ph1_pat1"},      {0, 7, false, phase, 51, "LorSiz_ph1_pat1"},
        {0, 7, false, phase, 52, "Size_2_ph1_pat1"},    {0, 7, false, phase, 25, "Str_8_ph1_pat1"},
        {0, 7, false, phase, 84, "GShift_21_ph1_pat1"}, {0, 7, false, phase, 85, "MD_1_ph1_pat1"},
        {0, 7, false, phase, 94, "Fr_5_ph1_pat1"},      {0, 7, false, phase, 112, "Spr_3_ph1_pat1"},
        {0, 0, true, phase, 12, "Sc_2_ph1_pat1"},       {0, 0, true, phase, 20, "Sc_7_ph1_pat1"},
        {0, 0, true, phase, 98, "Sc_19_ph1_pat1"},      {0, 0, true, phase, 115, "Sc_36_ph1_pat1"},
        {0, 0, true, phase, 36, "Ext_2_ph1_pat1"},      {0, 7, false, atom, 12, "MagPh_Si_ph1"},
        {0, 7, false, atom, 20, "Ff_2_Si_ph1"}}) {
    kp::state_type st = model_state::quartz(7);
    st.pattern[0].ixunit = row.ixunit;
    st.pattern[0].nprof = row.nprof;
    st.pattern[0].cry_pat = row.crystal;
    st.atom[0].atext = "Si";
    EXPECT_EQ(kalvaris_codes::slot_name(st, {row.family, 0, 0, row.k}), row.name);
  }
}

}  // namespace

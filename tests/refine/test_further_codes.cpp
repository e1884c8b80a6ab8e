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

TEST(FurtherCodes, ASharedParameterIsCalledByAllThatItMoves) {
  kp::state_type st = model_state::quartz(7);
  st.run.n_patt = 2;
  st.pattern.push_back(st.pattern[0]);
  st.mixes.push_back(st.mixes[0]);
  st.phase[0].natom = 4;
  st.atom.insert(st.atom.end(), {st.atom[1], st.atom[1]});  // Si and three atoms O
  using enum kp::slot_family;
  namespace slot = kp::slot;
  namespace aslot = kp::aslot;
  struct row {
    std::vector<kalvaris_codes::slot_place> slots;
    const char* name;
  };
  for (const row& t : {row{{{global, 0, 0, 1}, {global, 1, 1, 1}}, "Zero_pat1+2"},
                       {{{phase, 0, 0, slot::cell_a}, {phase, 0, 0, slot::cell_a + 1}}, "Cell_A_ph1_pat1"},
                       {{{phase, 0, 0, slot::cell_a}, {phase, 0, 1, slot::cell_a}}, "Cell_A_ph1_pat1+2"},
                       {{{phase, 0, 0, slot::s_l}, {phase, 0, 0, slot::d_l}}, "S_L+D_L_ph1_pat1"},
                       {{{atom, 0, 0, aslot::biso}, {atom, 1, 0, aslot::biso}}, "Biso_Si+O(1)_ph1"},
                       {{{atom, 2, 0, aslot::x}, {atom, 2, 0, aslot::y}}, "X_O(2)_ph1"},
                       {{{global, 0, 0, 1}, {atom, 0, 0, aslot::occ}}, "Zero+Occ_Si_ph1_pat1"}})
    EXPECT_EQ(kalvaris_codes::get_nampar(st, t.slots), t.name);
  std::vector<kalvaris_codes::slot_place> many;
  for (int k = slot::scale; k < slot::str3; ++k) many.push_back({phase, 0, 0, k});
  EXPECT_EQ(kalvaris_codes::get_nampar(st, many), "Scale_ph1_pat1+13_more");  // the six of the cell count once
}

TEST(FurtherCodes, BetasOfAnIsotropicVibrationDampLikeIt) {
  kp::state_type st = model_state::quartz(7);
  (void)lmix_crystallographic_symmetry::set_spacegroup("P -1", st.phase[0].spgr);
  const float cell[6] = {4.9f, 5.6f, 6.4f, 82.f, 97.f, 105.f};
  std::copy(cell, cell + 6, st.mixes[0].par.begin() + kp::slot::cell_a);
  model_state::load_cells(st);
  const auto b = kalvaris_codes::get_betas_from_biso(0.8f, st.phase[0].cellp);
  for (const auto& [h, k, l] : {std::array{1.f, 0.f, 0.f}, {2.f, 1.f, 3.f}, {-1.f, 4.f, 2.f}}) {
    const float* f = &st.mixes[0].par[kp::slot::cell_a];  // 1/d^2 = A h^2 + ... + F h k
    const float q = f[0] * h * h + f[1] * k * k + f[2] * l * l + f[3] * k * l + f[4] * h * l + f[5] * h * k;
    const float damping =
        b[0] * h * h + b[1] * k * k + b[2] * l * l + 2.f * (b[3] * h * k + b[4] * h * l + b[5] * k * l);
    EXPECT_NEAR(damping, 0.8f * q / 4.f, 1e-6f);
  }
}

TEST(FurtherCodes, StructureFactorsThatNothingChangesAreKept) {
  struct row {
    bool cell;
    bool kept;
  };
  for (const row t : {row{false, true}, {true, false}}) {
    std::vector<std::vector<float>> patterns;
    for (const bool reuse : {true, false}) {
      kp::state_type st = model_state::quartz(7);
      st.run.maxs = t.cell ? 2 : 1;
      st.run.mcycle = 4;
      st.mixes[0].apar[kp::slot::scale] = 11.f;
      if (t.cell) st.mixes[0].apar[kp::slot::cell_a] = 21.f;
      model_state::set_up(st);
      EXPECT_EQ(st.phase[0].stfac_nref, t.kept);
      const auto truth = model_state::calculated(st);
      for (std::size_t i = 0; i < truth.size(); ++i) st.pattern[0].y[i] = static_cast<float>(truth[i]);
      st.mixes[0].par[kp::slot::scale] *= 1.2f;
      if (!reuse) st.phase[0].stfac_nref = false;
      EXPECT_EQ(kv_iterate_calc_cw::iterate(st, {}), 0);
      EXPECT_GT(st.run.cycles_done, 1);
      patterns.push_back(st.pattern[0].yc);
    }
    EXPECT_EQ(patterns[0], patterns[1]);
  }
}

}  // namespace

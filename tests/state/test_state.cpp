#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "kalvaris_init.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kalvaris_params;

TEST(Irefs, PackingHoldsEveryPhaseWaveAndIndex) {
  EXPECT_EQ(pack_irefs({0, 1, 0, 0, 0}), (1 << 27) + (1 << 24) + (128 << 16) + (128 << 8) + 128);
  EXPECT_EQ(pack_irefs({8, 2, 1, -2, 3}), -pack_irefs({0, 2, 1, -2, 3}));
  for (const int phase : {0, 7, 8, 15})
    for (const int wave : {1, 2})
      for (const int h : {-128, -1, 0, 127})
        for (const int l : {-128, 0, 127}) {
          const reflection_key back = unpack_irefs(pack_irefs({phase, wave, h, -h - 1, l}));
          EXPECT_EQ(back.phase, phase);
          EXPECT_EQ(back.wave, wave);
          EXPECT_EQ(back.h, h);
          EXPECT_EQ(back.k, -h - 1);
          EXPECT_EQ(back.l, l);
        }
}

TEST(ReflectionList, PermuteMovesAllOfAReflectionTogether) {
  reflection_list list;
  list.resize(3);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto value = static_cast<float>(i + 1);
    for (auto* array :
         {&list.hw, &list.lp, &list.dspacing, &list.halfg, &list.halfl, &list.gam, &list.ggi, &list.cci, &list.sl_i,
          &list.dl_i, &list.ff, &list.corr, &list.phasen, &list.asfa, &list.bsfa, &list.iobs, &list.icalc})
      (*array)[i] = value;
    list.irefs[i] = list.mlt[i] = list.ihkl[i] = list.icod[i] = static_cast<int>(i) + 1;
    list.spec_ref[i] = static_cast<std::uint8_t>(i + 1);
    list.pos[i] = static_cast<double>(value);
  }
  list.permute({2, 0, 1});
  const std::vector<float> moved{3, 1, 2};
  for (auto* array :
       {&list.hw, &list.lp, &list.dspacing, &list.halfg, &list.halfl, &list.gam, &list.ggi, &list.cci, &list.sl_i,
        &list.dl_i, &list.ff, &list.corr, &list.phasen, &list.asfa, &list.bsfa, &list.iobs, &list.icalc})
    EXPECT_EQ(*array, moved);
  const std::vector<int> moved_int{3, 1, 2};
  EXPECT_EQ(list.irefs, moved_int);
  EXPECT_EQ(list.mlt, moved_int);
  EXPECT_EQ(list.ihkl, moved_int);
  EXPECT_EQ(list.icod, moved_int);
  EXPECT_EQ(list.spec_ref, (std::vector<std::uint8_t>{3, 1, 2}));
  EXPECT_EQ(list.pos, (std::vector<double>{3, 1, 2}));
}

class ReadDimensions : public testing::Test {
 protected:
  ReadDimensions() {
    const auto base = fs::temp_directory_path() / ("kv_read_dimensions" + std::to_string(getpid()));
    fs::remove_all(base);
    here = base / "here";
    there = base / "there";
    fs::create_directories(here);
    fs::create_directories(there);
    st.io.directory = here.string() + "/";
    st.io.console = &console;
    setenv("KALVARIS", there.c_str(), 1);
  }
  ~ReadDimensions() override {
    unsetenv("KALVARIS");
    fs::remove_all(here.parent_path());
  }
  std::vector<int> read() {
    console.str("");
    kalvaris_init::read_dimensions(st);
    return {st.dim.maxpoint, st.dim.maxreflx, st.dim.maxparam, st.dim.maxoverl};
  }

  fs::path here, there;
  std::ostringstream console;
  state_type st;
  const std::vector<int> standard{80000, 25000, 500, 9000};
};

TEST_F(ReadDimensions, WorkingDirectoryThenEnvironmentThenStandard) {
  EXPECT_EQ(read(), standard);
  EXPECT_EQ(console.str(), "");
  std::ofstream(there / "kalvaris.dim") << "MaxPOINT = 1 ! a\nb=2!\nc = 3 !\n= 4 !\n";
  EXPECT_EQ(read(), (std::vector<int>{1, 2, 3, 4}));
  std::ofstream(here / "kalvaris.dim") << "a = 5 !\nb = 6 ! = 7 !\nc = 8 !\nd = 9 !\n";
  EXPECT_EQ(read(), (std::vector<int>{5, 6, 8, 9}));
  unsetenv("KALVARIS");
  EXPECT_EQ(read(), (std::vector<int>{5, 6, 8, 9}));
}

TEST_F(ReadDimensions, UnreadableValuesFallBackWithAWarning) {
  for (const char* line :
       {"maxpoint = 900", "900 !", "! = 900", "= x !", "= !", "= 0 !", "= -3 !", "= 99999999999 !"}) {
    std::ofstream(here / "kalvaris.dim") << line << "\nb = 6 !\nc = 8 !\nd = 9 !\n";
    EXPECT_EQ(read(), (std::vector<int>{80000, 6, 8, 9})) << line;
    EXPECT_EQ(console.str(),
              "=>       WARNING: error reading MaxPOINT in file kalvaris.dim\n"
              "                  Standard value MaxPOINT = 80000 adopted\n");
  }
  std::ofstream(here / "kalvaris.dim") << "a = 5 !\n";  // the file ends early
  EXPECT_EQ(read(), (std::vector<int>{5, 25000, 500, 9000}));
  EXPECT_NE(console.str().find("Standard value MaxOVERL  = 9000 adopted"), std::string::npos);
  fs::remove(here / "kalvaris.dim");
  fs::create_directory(here / "kalvaris.dim");
  EXPECT_EQ(read(), standard);
  EXPECT_EQ(console.str(),
            "=>       WARNING: error opening file kalvaris.dim\n                  Standard dimensions are adopted\n");
}

TEST(InitVal, ASecondRunStartsAsTheFirst) {
  state_type first, second;
  for (state_type* st : {&first, &second}) st->run.n_patt = 2;
  second.run.title = "kept";
  second.pattern.resize(2);
  second.pattern[1].w_pat = 0.25f;
  second.pattern[1].affpat = 0;
  kalvaris_init::init_val(second);
  kalvaris_init::size_phases(second, 3);
  second.mix(2, 1).par[slot::scale] = 9.f;
  second.pattern[0].glb[gslot::zero] = 1.f;
  second.run.mcycle = 30;
  second.atom.resize(4);
  second.io.file_error = true;
  kalvaris_init::init_val(second);
  kalvaris_init::init_val(first);

  EXPECT_EQ(second.run.title, "kept");
  EXPECT_EQ(second.pattern[1].w_pat, 0.25f);
  EXPECT_EQ(second.pattern[1].affpat, 0);
  EXPECT_EQ(second.run.mcycle, 1);
  EXPECT_EQ(second.pattern[0].glb, first.pattern[0].glb);
  EXPECT_EQ(second.mixes.size(), 2u);
  EXPECT_EQ(second.mix(0, 0).par, first.mix(0, 0).par);
  EXPECT_TRUE(second.atom.empty());
  EXPECT_FALSE(second.io.file_error);
  EXPECT_EQ(first.pattern[0].lamda[1], 1.54439f);
  EXPECT_EQ(first.pattern[1].lamda[1], 0.f);
  EXPECT_EQ(first.mix(0, 0).par[slot::w], 0.006255f);
}

TEST(ForEachSlot, WalksPatternsThenPhasesWithTheirPatternsAndAtoms) {
  state_type st;
  st.run.n_patt = 2;
  kalvaris_init::init_val(st);
  kalvaris_init::size_phases(st, 2);
  st.atom.resize(3);
  st.phase[0].natom = 1;
  st.phase[1].natom = 2;
  st.phase[1].first_atom = 1;
  std::string order;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.k != 1) return;
    order += s.family == slot_family::global ? 'g' : s.family == slot_family::phase ? 'p' : 'a';
    order += std::to_string(s.owner) + std::to_string(s.ip) + ' ';
  });
  EXPECT_EQ(order, "g00 g11 p00 p01 a00 p10 p11 a10 a20 ");
}

}  // namespace

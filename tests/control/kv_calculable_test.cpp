// What is read and kept but cannot be calculated yet is refused before anything is calculated, by its own words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control_files.hpp"
#include "kv_calculable.hpp"

namespace {

using control_files::run_directory;
using control_files::with;
using kalvaris_params::state_type;

struct request_row {
  void (*change)(state_type&);
  const char* words;
};

TEST(Calculable, EachRequestIsNamedByItsOwnWords) {
  const std::vector<request_row> rows{
      {[](state_type& st) { st.run.icryg = -3; }, "    integrated intensities and searches (Cry) are not available"},
      {[](state_type& st) { st.run.linear.emplace_back(); }, "    linear restraints (Nli) are not available"},
      {[](state_type& st) { st.pattern[0].nori = 2; }, "    pattern: 1 preferred orientation of several axes (Nor)"},
      {[](state_type& st) { st.pattern[0].ixunit = 3; }, "    pattern: 1 time of flight, energy, Q and s data (Uni)"},
      {[](state_type& st) { st.pattern[0].anm = 1; }, "    pattern: 1 differences of patterns (Anm)"},
      {[](state_type& st) { st.pattern[0].cry_flag = 1; }, "    pattern: 1 integrated intensities (Int)"},
      {[](state_type& st) { st.pattern[0].iot = -1; }, "    pattern: 1 numerical profiles (Iot -1, -2)"},
      {[](state_type& st) { st.pattern[0].nbk_pr = 1; }, "    pattern: 1 user profiles in the background (More 2, 3)"},
      {[](state_type& st) { st.phase[0].mag_only_named = true; }, "    phase: 1 magnetic phases (MAG_ONLY, NUC_ONLY)"},
      {[](state_type& st) { st.phase[0].nuc_only_named = true; }, "    phase: 1 magnetic phases (MAG_ONLY, NUC_ONLY)"},
      {[](state_type& st) { st.phase[0].commands = true; }, "    phase: 1 command lines of a phase (COMMANDS)"},
      {[](state_type& st) { st.phase[0].ndic = 1; }, "    phase: 1 distance restraints (Dis)"},
      {[](state_type& st) { st.phase[0].nangc = 1; }, "    phase: 1 angle restraints (Ang)"},
      {[](state_type& st) { st.phase[0].isym = -2; }, "    phase: 1 symmetry given by hand (Isy)"},
      {[](state_type& st) { st.phase[0].istr = 1; }, "    phase: 1 strain and size models (Str)"},
      {[](state_type& st) { st.phase[0].nvk = -1; }, "    phase: 1 propagation vectors (Nvk)"},
      {[](state_type& st) { st.phase[0].jview = 1; }, "    phase: 1 a file for viewing the structure (Jview)"},
      {[](state_type& st) { st.phase[0].jdist = -2; }, "    phase: 1 distance and angle calculations (Jdist)"},
      {[](state_type& st) { st.phase[0].jhelix = 1; }, "    phase: 1 helical structures (Jhelix)"},
      {[](state_type& st) { st.phase[0].jsol = 1; }, "    phase: 1 hkl-dependent shifts (Jsol)"},
      {[](state_type& st) { st.phase[0].nmagc = 1; }, "    phase: 1 moment restraints (Nmagc)"},
      {[](state_type& st) { st.phase[0].n_domains = 1; }, "    phase: 1 domain fractions (N_domains)"},
      {[](state_type& st) { st.phase[0].ismo = -2; }, "    phase: 1 strain models (Strain-Model)"},
      {[](state_type& st) { st.phase[0].isi = 21; }, "    phase: 1 size models (Size-Model)"},
      {[](state_type& st) { st.phase[0].jbt = -10; }, "    phase: 1 this kind of phase is not available (Jbt -10)"},
      {[](state_type& st) { st.phase[0].symb = "Mag; 5.13"; },
       "    phase: 1  Error trying to read Shubnikov Group information"},
      {[](state_type& st) { st.mix(0, 0).irf = 4; },
       "    phase: 1 pattern: 1 this reflection list is not available (Irf 4)"},
      {[](state_type& st) { st.mix(0, 0).npro = 11; },
       "    phase: 1 pattern: 1 this peak shape is not available (Npr 11)"},
      {[](state_type& st) { st.mix(0, 0).nref_sp = 1; },
       "    phase: 1 pattern: 1 special reflections (Nref_sp) are not available"},
      {[](state_type& st) { st.atom[0].ntyp = "sash"; },
       "    phase: 1 form factors with lines of their own (sash) are not available"},
      {[](state_type& st) { st.atom[0].n_t = -4; }, "    phase: 1 this kind of atom is not available (N_t -4)"},
  };
  run_directory run;
  state_type& st = run.read(control_files::lab6_free());
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  ASSERT_TRUE(kv_calculable::calculable(st)) << run.message();
  EXPECT_EQ(st.fmt.ierr_fmt, 0);
  for (const request_row& row : rows) {
    state_type& changed = run.read(control_files::lab6_free());
    row.change(changed);
    EXPECT_FALSE(kv_calculable::calculable(changed)) << row.words;
    EXPECT_EQ(changed.fmt.ierr_fmt, 100);
    EXPECT_EQ(kv_calculable::obstacles(changed).size(), 1u) << row.words;
    EXPECT_THAT(run.message(),
                testing::StartsWith(std::string(" => The control file asks for what this release cannot calculate:\n") +
                                    row.words));
  }
}

TEST(Calculable, AFileThatAsksForManyThingsIsToldTheFirstFour) {
  run_directory run;
  state_type& st = run.read(control_files::boride);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_FALSE(kv_calculable::calculable(st));
  EXPECT_EQ(run.message(),
            " => The control file asks for what this release cannot calculate:\n"
            "    phase: 2 this kind of phase is not available (Jbt 1)\n"
            "    phase: 2 symmetry given by hand (Isy) is not available\n"
            "    phase: 2 propagation vectors (Nvk) are not available\n"
            "    phase: 2 this kind of atom is not available (N_t 1)\n");
}

TEST(Calculable, FlagsWithoutEffectAreTold) {
  const auto output = [](std::size_t flag, int value) {
    return [=](state_type& st) { st.pattern[0].output_flags[flag] = value; };
  };
  struct row {
    std::function<void(state_type&)> change;
    std::string told;
  };
  run_directory run;
  EXPECT_TRUE(kv_calculable::without_effect(run.read(control_files::lab6_free())).empty());
  for (const row& t : {row{[](state_type& s) { s.run.optimize = true; }, "Opt changes nothing"},
                       row{[](state_type& s) { s.run.output_flags[3] = -1; }, "Jci has no effect"},
                       row{[](state_type& s) { s.run.output_flags[5] = 1; }, "Sho has no effect"},
                       row{output(2, 2), "Ipc has no effect"}, row{output(4, -4), "Ls2 has no effect: no plot"},
                       row{output(4, 5), "Ls2 has no effect: no files"}, row{output(8, 1), "Jlk has no effect"},
                       row{output(9, 4), "Jfo has no effect"},
                       row{[](state_type& s) {
                             s.pattern[0].iwgt = 3, s.pattern[0].wght = {true, true};
                           },
                           "WGHT ... refine has no effect"},
                       row{[](state_type& s) { s.mix(0, 0).brinl = 0.5f; }, "phase 1: Brind has no effect"},
                       row{[](state_type& s) { s.mix(0, 0).rmuc = 1.f; }, "phase 1: Rmua, Rmub and Rmuc"}}) {
    SCOPED_TRACE(t.told);
    state_type& st = run.read(control_files::lab6_free());
    run.console.str("");
    t.change(st);
    kv_calculable::tell_without_effect(st);
    ASSERT_EQ(st.notices.size(), 1u);
    EXPECT_TRUE(st.notices[0].text.starts_with(t.told)) << st.notices[0].text;
    EXPECT_THAT(run.console.str(), testing::HasSubstr("Note: " + t.told));
  }
}

}  // namespace

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

TEST(ReadPcr, LongFormReadsPatternByPattern) {
  run_directory run;
  run.put("al2o3_x.dat", "");
  run.put("al2o3_n.dat", "");
  state_type& st = run.read(control_files::corundum_free());
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_FALSE(st.run.s_format);
  EXPECT_TRUE(st.run.w_pat_line);
  EXPECT_TRUE(st.io.multi_pattern);
  ASSERT_EQ(st.run.n_patt, 2);
  EXPECT_THAT(st.io.filedat, ElementsAre("al2o3_x", "al2o3_n"));
  EXPECT_THAT(st.io.extdat, ElementsAre(".dat", ".dat"));
  const auto &x = st.pattern[0], &n = st.pattern[1];
  EXPECT_FLOAT_EQ(x.w_pat, 0.5f);
  EXPECT_FALSE(x.disp_ds);
  EXPECT_TRUE(n.disp_ds);
  EXPECT_EQ(x.instr, 10);
  EXPECT_EQ(n.instr, 0);
  EXPECT_TRUE(n.single_wave);
  EXPECT_EQ(n.iabscor, 2);
  EXPECT_FLOAT_EQ(n.thmax, 155.f);
  EXPECT_FLOAT_EQ(n.step_read, 0.05f);
  EXPECT_TRUE(x.excluded.empty());
  ASSERT_EQ(n.excluded.size(), 1u);
  EXPECT_FLOAT_EQ(n.aglb[gslot::zero], 41.f);
  EXPECT_FLOAT_EQ(n.glb[gslot::bac], 210.f);
  EXPECT_FLOAT_EQ(n.aglb[gslot::bac + 2], 121.f);
  EXPECT_EQ(st.mix(0, 1).jtyp, 1);
  EXPECT_FLOAT_EQ(st.mix(0, 0).par[slot::scale], 1.2e-3f);
  EXPECT_FLOAT_EQ(st.mix(0, 1).par[slot::scale], 4.5f);
  EXPECT_FLOAT_EQ(st.mix(0, 1).apar[slot::y], 251.f);
  EXPECT_EQ(st.phase[0].spgr.multip, 36);
  EXPECT_EQ(st.run.n_pat_plot, 1);
  EXPECT_FLOAT_EQ(st.run.t2_lim, 130.f);
  read_pcr_mod::finish_reading(st);
  EXPECT_EQ(st.pattern[0].lst2, 4);
}

TEST(ReadPcr, ProfileMatchingNeedsNoAtomsAndTwoLinesOfBackground) {
  run_directory run;
  state_type& st = run.read(control_files::ceria);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(st.phase[0].jbt, 2);
  EXPECT_TRUE(st.atom.empty());
  EXPECT_EQ(st.pattern[0].nbckgd, 3);
  EXPECT_EQ(st.pattern[0].isbac, -1);
  EXPECT_FLOAT_EQ(st.pattern[0].aglb[gslot::bac + 9], 91.f);
  EXPECT_FLOAT_EQ(st.mix(0, 0).apar[slot::cell_a], 141.f);
}

TEST(ReadPcr, AtomCodesOfProfileMatchingAreReadAndThrownAway) {
  run_directory run;
  state_type& st =
      run.read(control_files::with(control_files::lab6_free(), "1.0   0   0   0   0   0 ", "1.0   2   0   0   0   0 "));
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_FLOAT_EQ(st.atom[1].a[aslot::x], 0.f);
  EXPECT_FLOAT_EQ(st.atom[1].a_read[aslot::x], 101.f);
}

TEST(ReadPcr, WordsOfVaryAndFixActOnTheirParametersOnly) {
  run_directory run;
  state_type& st = run.read(control_files::zincite);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  const auto& p = st.pattern[0];
  EXPECT_TRUE(st.run.automatic);
  EXPECT_TRUE(p.brefint);
  for (int j = 0; j < 6; ++j) EXPECT_EQ(p.aglb[gslot::bac + j], 1.f);
  EXPECT_EQ(p.aglb_read[gslot::bac], 0.f);
  EXPECT_EQ(p.aglb[gslot::sycos], 1.f);
  EXPECT_EQ(p.aglb[gslot::sysin], 0.f);
  EXPECT_EQ(st.mix(0, 0).apar[slot::scale], 1.f);
  for (int k = slot::cell_a; k <= slot::cell_f; ++k) EXPECT_EQ(st.mix(0, 0).apar[k], 1.f);
  EXPECT_EQ(st.mix(0, 0).apar[slot::w], 1.f);
  EXPECT_EQ(st.mix(0, 0).apar[slot::u], 0.f);
  EXPECT_EQ(p.pos.size(), 6u);
  // a point of the background in an excluded region stays fixed
  std::string text = control_files::with(control_files::zincite, "0   7   1   6   0", "0   7   1   6   1");
  const auto& q = run.read(control_files::with(text, "\n       0\n", "\n 50. 70.\n       0\n")).pattern[0];
  for (int j = 0; j < 6; ++j) EXPECT_EQ(q.aglb[gslot::bac + j], j == 2 ? 0.f : 1.f) << run.message();
}

struct command_row {
  const char* vary;
  const char* fix;
  float w, scale;  ///< codes expected: W stands as 1.00 in the file, the scale as 0.00
};
TEST(ReadPcr, CommandsArePickedByWholeWordsAndPhases) {
  for (const command_row& row : {command_row{"VARY Scale_Factors", "FIX none", 1, 1},
                                 {"VARY scale_factors,zero", "FIX Scale_Factors", 1, 0},
                                 {"VARY Scale_Factorsx", "FIX Ustrain", 1, 0},
                                 {"VARY Scale_Factors Phase No.: 2", "FIX zero", 1, 0},
                                 {"VARY Phase No.: 1, 3 Scale_Factors", "FIX zero", 1, 1},
                                 {"VARY zero ! Scale_Factors", "FIX zero", 1, 0}}) {
    SCOPED_TRACE(row.vary);
    run_directory run;
    std::string text = control_files::with_line(control_files::zincite, 6, row.vary);
    state_type& st = run.read(control_files::with_line(text, 7, row.fix));
    ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    EXPECT_EQ(st.mix(0, 0).apar[slot::w], row.w);
    EXPECT_EQ(st.mix(0, 0).apar[slot::scale], row.scale);
  }
}

TEST(ReadPcr, CommandsOfTheNameLineActOnCoordinates) {
  run_directory run;
  state_type& st = run.read(control_files::with(control_files::zincite, "ZnO wurtzite", "ZnO VARY xyz wurtzite"));
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(st.phase[0].phsnm, "ZnO  wurtzite");
  EXPECT_EQ(st.atom[0].a[aslot::z], 1.f);
  EXPECT_EQ(st.atom[0].a[aslot::biso], 1.f);
  state_type& fixed = run.read(control_files::with(control_files::zincite, "ZnO wurtzite", "ZnO wurtzite FIX xyz"));
  EXPECT_EQ(fixed.atom[1].a[aslot::z], 0.f);
  EXPECT_EQ(fixed.atom[1].a_read[aslot::z], 1.f);
  const std::string named = control_files::with(control_files::lab6_free(), "\nLaB6\n!Nat", "\nVARY xyz LaB6\n!Nat");
  EXPECT_EQ(run.read(named).atom[1].a[aslot::x], 101.f) << "a code that stands there is kept" << run.message();
  EXPECT_EQ(run.state->atom[1].a[aslot::y], 1.f);
}

TEST(ReadPcr, AWavelengthWithACodeTakesTheSecondOneAlong) {
  run_directory run;
  const std::string fixed = "0.00 0.00000     0.00     0\n";
  for (const auto& [words, first] :
       {std::pair{"0.00 1.600000    11.00     0\n", 1.6f}, {"0.00 1.600000 0.00 0\n", 1.54056f}}) {
    const auto& p = run.read(control_files::with(control_files::lab6_free(), fixed, words)).pattern[0];
    EXPECT_FLOAT_EQ(p.lamda[0], first) << run.message();
    EXPECT_FLOAT_EQ(p.lamda[1], 1.54439f * first / 1.54056f);
    EXPECT_FLOAT_EQ(p.glb[gslot::lambda], first);
  }
}

TEST(ReadPcr, ShapesWithoutAConstantMixingLoseItWithItsCode) {
  run_directory run;
  const std::string scale =
      "2.500000E-03   0.00000   0.00000   0.00000   0.00000   0.00000        0\n"
      "      11.00000      0.00      0.00      0.00      0.00      0.00\n";
  const std::string all =
      control_files::with(control_files::lab6_free(), scale, "2.5E-03 .4 .1 .2 .3 .4 0\n11 31 41 51 61 71\n");
  for (const int npr : {1, 3, 5, 7}) {
    SCOPED_TRACE(npr);
    const std::string flags = "0.000   0   " + std::to_string(npr) + "   0\n";
    const auto& m = run.read(control_files::with(all, "0.000   0   7   0\n", flags)).mix(0, 0);
    EXPECT_EQ(m.npro, npr) << run.message();
    EXPECT_FLOAT_EQ(m.par[slot::shape1], npr == 5 ? 0.4f : 0.f);
    EXPECT_EQ(m.apar[slot::shape1], npr == 5 ? 31.f : 0.f);
    for (int k = slot::str1; k <= slot::str3; ++k) EXPECT_EQ(m.apar[k] != 0.f, npr == 5);
    EXPECT_EQ(m.apar[slot::bov], 41.f);
  }
}

// --- What is read beside the examples
// ---------------------------------------------------------------------------------

TEST(ReadPcr, ForcedAndDefaultValues) {
  run_directory run;
  std::string text = control_files::ceria;
  text = control_files::with(text, "0   7   1  -3", "0   7   0  -3");  // no phase counts as one
  text = control_files::with(text, "   0.5000    80.000   14.0000", "  -0.5000    0.0000    2.0000");
  text = control_files::with(text, "   20    0.10", "   -1  0.0005");
  text = control_files::with(text, "0.7998    0.0000", "0.7998   -0.3000");
  const std::string last = "     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00\n";
  text = control_files::with(text, last, last + "0.001 11.0 0.002 0.0 0.003 21.0\n");
  state_type& st = run.read(text);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  const auto& p = st.pattern[0];
  EXPECT_EQ(st.run.nphase, 1);
  EXPECT_EQ(st.run.mcycle, 1);
  EXPECT_FLOAT_EQ(st.run.eps, 0.01f);
  EXPECT_FLOAT_EQ(p.wdt, 3.f);
  EXPECT_FLOAT_EQ(p.bkpos, 62.5f);  // half of 20..145
  EXPECT_EQ(p.iuvw, 1);
  EXPECT_FLOAT_EQ(p.ratio[1], 0.5f);
  EXPECT_EQ(p.iabscor, 4);
  EXPECT_FLOAT_EQ(p.tmv[0], 0.3f);
  EXPECT_FLOAT_EQ(p.tmv[1], 0.3f);
  EXPECT_FLOAT_EQ(st.mix(0, 0).par[slot::w2], 0.003f);
  EXPECT_FLOAT_EQ(st.mix(0, 0).apar[slot::u2], 11.f);
}

TEST(ReadPcr, WeightsOfPatternsLeaveOutTheDeselected) {
  run_directory run;
  run.put("al2o3_x.dat", "");
  run.put("al2o3_n.dat", "");
  std::string text = control_files::with(control_files::corundum_free(), "NPATT  2   1  1", "NPATT  2   1  0");
  EXPECT_FLOAT_EQ(run.read(control_files::with_line(text, 3, "w_pat 4. 9.")).pattern[0].w_pat, 1.f);
  EXPECT_EQ(run.state->pattern[1].affpat, 0);
  state_type& st = run.read(control_files::without_lines(control_files::corundum_free(), 3, 3));
  EXPECT_FLOAT_EQ(st.pattern[1].w_pat, 0.5f) << run.message();
  EXPECT_FALSE(st.run.w_pat_line);
}

TEST(ReadPcr, SeriesForcesItsOutputFlagsAndKeepsWhatWasRead) {
  run_directory run;
  run.put("code.pcr", control_files::ceria);
  state_type st;
  st.io.directory = run.path.string() + "/";
  st.io.filenam = "code";
  st.io.filedat = {"code"};
  st.io.console = &run.console;
  st.io.l_sequential = true;
  kalvaris_inout::openfile(st.io, {.key = 1});
  read_pcr_mod::read_pcr(st);
  kalvaris_inout::close_all(st.io);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << st.fmt.mess_findfmt.txt[0] << st.fmt.mess_findfmt.txt[1];
  EXPECT_EQ(st.run.jcil, -2);
  EXPECT_EQ(st.run.ishor, 1);
  EXPECT_EQ(st.pattern[0].ianaly, 0);
  EXPECT_EQ(st.pattern[0].output_flags.back(), 1);
}

TEST(ReadPcr, ScatteringEntriesInAllForms) {
  run_directory run;
  const auto read = [&](const char* nsc, const std::string& entries) -> const kalvaris_params::scattering_entry& {
    std::string text =
        control_files::with(control_files::ceria, "0   7   1  -3   0   0", std::string("0   7   1  -3   0  ") + nsc);
    const state_type& st = run.read(control_files::with(text, "\n      14\n", "\n" + entries + "      14\n"));
    EXPECT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    return st.pattern[0].scattering.at(0);
  };
  const auto& table = read("-1", "CE 0.1 0.2 1\n 0.0 58.\n 0.5 30. ! note\n-100. 0.\n");
  EXPECT_EQ(table.nam, "CE");
  EXPECT_THAT(table.ftab, ElementsAre(58.f, 30.f));
  const auto& pairs = read(" 1", "CE 0.1 0.2\n 0.0 58.\n 1 2 3 4 5 6 7 8 9\n");
  EXPECT_EQ(pairs.nam, "ce");
  EXPECT_THAT(pairs.scat, ElementsAre(58.f));
  EXPECT_EQ(pairs.ac[8], 9.f);
  EXPECT_EQ(read(" 1", "CE 0.1 0.2 2\n").ac[0], 0.f);

  std::string long_table = "CE 0 0 1\n";
  for (int k = 0; k < 61; ++k) long_table += "0.1 1.0\n";
  std::string text = control_files::with(control_files::ceria, "0   7   1  -3   0   0", "0   7   1  -3   0  -1");
  EXPECT_EQ(run.read(control_files::with(text, "\n      14\n", "\n" + long_table + "-100\n      14\n")).fmt.ierr_fmt,
            100);
  EXPECT_THAT(run.message(), testing::StartsWith(" Too many scattering factor entries\n => Please check"));
}

TEST(ReadPcr, HeadOfTheFile) {
  run_directory run;
  EXPECT_FLOAT_EQ(run.read("! a title ! of print_pcr\n! Current global Chi2 (Bragg contrib.) =  3.25 x\n\n" +
                           control_files::without_lines(control_files::ceria, 1, 1))
                      .run.t_chi2_ini,
                  3.25f)
      << run.message();
  EXPECT_EQ(run.state->run.title, "! a title ! of print_pcr");
  EXPECT_THAT(run.get("debug_PCR.lst"), HasSubstr("CeO2 fluorite"));
  state_type& st =
      run.read("\xEF\xBB\xBFNPATT in the title\r\n" + control_files::without_lines(control_files::ceria, 1, 1));
  EXPECT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(st.run.title, "NPATT in the title");
  EXPECT_THAT(run.console.str(), HasSubstr(" Warning! The title of the control file holds the word NPATT\n"));
  EXPECT_FLOAT_EQ(st.run.t_chi2_ini, 1.0e8f);
  EXPECT_EQ(run.read("").fmt.ierr_fmt, -2);
  EXPECT_EQ(run.message(), "  Error reading the *.PCR at the first line\n");
}

TEST(ReadPcr, DefaultDataFileIsToldOnTheConsole) {
  run_directory run;
  run.read(control_files::ceria);
  EXPECT_THAT(run.console.str(), testing::Not(HasSubstr("Data file")));
  run.state->io.filedat.clear();
  kalvaris_inout::openfile(run.state->io, {.key = 1});
  read_pcr_mod::read_pcr(*run.state);
  EXPECT_THAT(run.console.str(), HasSubstr(" => Data file taken by default: code\n"));
  EXPECT_THAT(run.state->io.filedat, ElementsAre("code"));
}

TEST(ReadPcr, WarningsOfAtomsGoToTheConsole) {
  run_directory run;
  std::string text = control_files::with(control_files::lab6_free(), "LA     0.000000", "LA     1.300000");
  text = control_files::with(text, "0.007770  0.007770", "0.600000  0.007770");
  text = control_files::with(text, "0.35000   0.020833", "-1.1 -1.2");
  EXPECT_EQ(run.read(text).fmt.ierr_fmt, 0) << run.message();
  for (const char* words : {" Warning!!, Fractional coordidate of atom La exceeds 1.2!",
                            " Warning!!, Isotropic temperature factor of atom La is strongly negative",
                            " Warning!!, Occupation factor of atom La is strongly negative",
                            " Warning!!, Some anisotropic Beta of atom B exceeds 0.5!"}) {
    EXPECT_THAT(run.console.str(), HasSubstr(words));
  }
}

}  // namespace

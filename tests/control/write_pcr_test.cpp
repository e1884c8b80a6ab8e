#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>

#include "control_files.hpp"
#include "kalvaris_codes.hpp"
#include "pcr_layout.hpp"
#include "pcr_numbers.hpp"

namespace {

using control_files::run_directory;
using control_files::with;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
using read_pcr_mod::pcr_target;
using read_pcr_mod::save_pcr;
using read_pcr_mod::write_decision;
using read_pcr_mod::write_pcr;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

constexpr std::string_view date_line = "01/02/2030  Time: 03:04:05.678";

TEST(WritePcr, BlankNameGetsWordsSinceABlankLineWouldBePassedOver) {
  run_directory run;
  EXPECT_EQ(run.read(with(control_files::zincite, "ZnO wurtzite", "VARY xyz")).phase[0].phsnm, "") << run.message();
  EXPECT_THAT(write_pcr(*run.state, date_line), HasSubstr("\nPhase 1 VARY xyz\n"));
}

TEST(WritePcr, CosineSeriesKeepsItsNumberOfTerms) {
  run_directory run;
  std::string text = with(control_files::ceria, "0   7   1  -3", "0   7   1  -4");
  EXPECT_EQ(run.read(text).pattern[0].n_bac, 12) << run.message();
  text = with(text, "CeO2 fluorite\n", "1 2 3 4 5 6\n 11 0 0 0 0 0\nCeO2 fluorite\n");
  EXPECT_EQ(run.read(text).pattern[0].n_bac, 18);
  EXPECT_FLOAT_EQ(run.state->pattern[0].glb[gslot::bac + 17], 6.f);
}

TEST(WritePcr, HeadStandsInTheLinesThatOthersLookAt) {
  run_directory run;
  state_type& st = run.read(control_files::lab6_free());
  st.run.cycles_done = 3;
  st.run.t_chi2 = 2.5f;
  const auto lines = control_files::lines_of(write_pcr(st, date_line));
  EXPECT_EQ(lines[1], "! Current global Chi2 (Bragg contrib.) =  2.500000E+00");
  EXPECT_EQ(lines[2], "!Date: 01/02/2030  Time: 03:04:05.678");
  EXPECT_EQ(lines[3], "! Files => DAT-file: code.dat,  PCR-file: code");
  EXPECT_THAT(lines[4], testing::StartsWith("!Job Npr"));
  EXPECT_EQ(lines[5], "   0   7   1   0   1   0   0   0   0   0   0   0   0   0   0   0   0   0   0");
  EXPECT_FLOAT_EQ(run.read(control_files::join(lines)).run.t_chi2_ini, 2.5f);
  run.state->run.cycles_done = 3;
  run.state->run.t_chi2 = std::numeric_limits<float>::infinity();
  EXPECT_THAT(write_pcr(*run.state, date_line), Not(HasSubstr("Current global Chi2")));
}

TEST(WritePcr, CellComesFromThePhaseOnceTheCodesAreSplit) {
  run_directory run;
  state_type& st = run.read(control_files::ceria);
  for (int k = slot::cell_a; k <= slot::cell_f; ++k) st.mix(0, 0).par[k] = 0.03f;
  st.phase[0].cellp.cell = {5.4f, 5.4f, 5.4f};
  st.phase[0].cellp.ang = {90.f, 90.f, 90.f};
  st.run.code_splitted = true;
  EXPECT_THAT(write_pcr(st, date_line),
              HasSubstr("\n    5.400000    5.400000    5.400000   90.000000   90.000000   90.000000\n"));
}

TEST(WritePcr, SplittingTheCodesChangesNothingInTheFile) {
  run_directory run;
  run.put("al2o3_x.dat", "");
  run.put("al2o3_n.dat", "");
  for (const std::string& text : {control_files::lab6_free(), control_files::corundum_free(), control_files::ceria}) {
    state_type& st = run.read(text);
    const std::string before = write_pcr(st, date_line);
    for (int ip = 0; ip < st.run.n_patt; ++ip) ASSERT_TRUE(kalvaris_codes::cell_const(st, 0, ip, false));
    kalvaris_codes::mod_codes(st);
    ASSERT_TRUE(st.run.code_splitted);
    EXPECT_NE(st.mix(0, 0).lpar[slot::cell_a], 0);
    kalvaris_codes::restore_codes(st);
    EXPECT_EQ(write_pcr(st, date_line), before);
  }
}

TEST(WritePcr, FoundNumbersAreStableFromTheNextRunOn) {
  run_directory run;
  std::string written = control_files::zincite;
  for (int pass = 0; pass < 3; ++pass) {
    state_type& st = run.read(written);
    ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    ASSERT_TRUE(kalvaris_codes::cell_const(st, 0, 0, true));
    ASSERT_TRUE(kalvaris_codes::cell_const(st, 0, 0, false));
    kalvaris_codes::set_symmetryconstraints(st);
    kalvaris_codes::mod_codes(st);
    EXPECT_GT(st.run.maxs, 10);
    kalvaris_codes::restore_codes(st);
    const std::string next = write_pcr(st, date_line);
    if (pass > 0) {
      EXPECT_EQ(next, written);
    }
    written = next;
  }
}

struct code_row {
  bool automatic, deselected;
  float multiplier;
  int number;
  float read, expected;
};
TEST(WritePcr, CodesAreAsReadButForHalvedMultipliersAndFoundNumbers) {
  for (const code_row& row : {code_row{false, false, 1.f, 11, 111.f, 111.f},
                              {false, false, 0.5f, 11, 111.f, 110.5f},  // a guard halved it
                              {false, false, -0.25f, 11, -110.5f, -110.25f},
                              {false, false, 1.f, 9, 111.f, 111.f},  // tied to another slot
                              {false, false, 1.f, 0, 1.f, 1.f},      // a request that Aut 0 does not serve
                              {true, false, 1.f, 4, 1.f, 41.f},
                              {true, false, -1.f, 0, 0.f, -1.f},
                              {true, false, 0.f, 0, 31.f, 0.f},  // fixed by a word
                              {true, true, 0.f, 0, 31.f, 31.f}}) {
    run_directory run;
    state_type& st = run.read(control_files::lab6_free());
    st.run.code_splitted = true;
    st.run.automatic = row.automatic;
    st.pattern[0].affpat = row.deselected ? 0 : 1;
    st.atom[0].a[aslot::biso] = row.multiplier;
    st.atom[0].lp[aslot::biso] = row.number;
    st.atom[0].a_read[aslot::biso] = row.read;
    kalvaris_codes::restore_codes(st);
    const std::string text = write_pcr(st, date_line);
    EXPECT_FLOAT_EQ(run.read(text).atom[0].a[aslot::biso], row.expected) << row.read << run.message();
  }
}

struct decision_row {
  const char* what;
  void (*change)(state_type&);
  bool failed;
  pcr_target target;
  bool worse;
};
TEST(WritePcr, DecisionFollowsItsTable) {
  const auto none = [](state_type&) {};
  for (const decision_row& row : {
           decision_row{"better", none, false, pcr_target::control_file, false},
           {"cycles failed", none, true, pcr_target::none, false},
           {"nxt 0", [](state_type& st) { st.run.nxt = 0; }, false, pcr_target::none, false},
           {"nxt 2 in a series",
            [](state_type& st) {
              st.run.nxt = 2;
              st.io.l_sequential = true;
            },
            false, pcr_target::new_file, false},
           {"search",
            [](state_type& st) {
              st.run.icryg = -3;
              st.run.t_chi2 = 99;
            },
            false, pcr_target::control_file, false},
           {"nothing refined",
            [](state_type& st) {
              st.run.maxs = 0;
              st.run.t_chi2 = 99;
            },
            false, pcr_target::control_file, false},
           {"calculated",
            [](state_type& st) {
              st.pattern[0].jobtyp = 3;
              st.run.t_chi2 = 99;
            },
            false, pcr_target::control_file, false},
           {"just tolerated", [](state_type& st) { st.run.t_chi2 = 2.39f; }, false, pcr_target::control_file, false},
           {"equality", [](state_type& st) { st.run.t_chi2 = 2.f * 1.2f; }, false, pcr_target::new_file, true},
           {"worse in a series",
            [](state_type& st) {
              st.run.t_chi2 = 9;
              st.io.l_sequential = true;
            },
            false, pcr_target::control_file, false},
           {"no number", [](state_type& st) { st.run.t_chi2 = NAN; }, false, pcr_target::new_file, true},
       }) {
    state_type st;
    st.pattern.resize(1);
    st.pattern[0].jobtyp = 0;
    st.run.maxs = 3;
    st.run.t_chi2_ini = 2.f;
    st.run.t_chi2 = 1.f;
    row.change(st);
    const auto decision = write_decision(st, row.failed);
    EXPECT_EQ(static_cast<int>(decision.target), static_cast<int>(row.target)) << row.what;
    EXPECT_EQ(decision.worse_chi2, row.worse) << row.what;
  }
}

TEST(WritePcr, WorseChiSquareSparesTheControlFile) {
  run_directory run;
  state_type& st = run.read(control_files::ceria);
  st.run.t_chi2_ini = 1.f;
  st.run.t_chi2 = 5.f;
  EXPECT_TRUE(save_pcr(st, false) && kalvaris_inout::commit(st.io));
  EXPECT_EQ(st.run.nxt, 2);
  EXPECT_EQ(run.get("code.pcr"), control_files::ceria);
  EXPECT_THAT(run.get("code.new"), HasSubstr("\n!Job"));
  EXPECT_THAT(run.get("code.new"), HasSubstr("\n   0   0   1   0   1   0"));  // Nxt as it was read
  EXPECT_THAT(run.console.str(), HasSubstr("final(Chi2) > 1.2*initial(Chi2)\n"));
  EXPECT_THAT(run.console.str(), HasSubstr(" Current parameters are saved in a file of extension NEW\n"));

  st.run.nxt = 1;
  st.run.t_chi2 = 0.5f;
  EXPECT_TRUE(save_pcr(st, false) && kalvaris_inout::commit(st.io));
  EXPECT_THAT(run.get("code.pcr"), HasSubstr("\n!Date: "));
  EXPECT_EQ(run.get("code.pcr.bak"), control_files::ceria);
  const std::string saved = run.get("code.pcr");
  st.mix(0, 0).par[slot::w] = NAN;
  EXPECT_FALSE(save_pcr(st, false));
  EXPECT_EQ(run.get("code.pcr"), saved);
  EXPECT_THAT(run.console.str(),
              HasSubstr(" Warning! The control file was not written: a parameter is not a number\n"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(run.path), {}), 3);
}

std::string n_12_6(float x) { return pcr_numbers::line{}.n(12, 6, x).str(); }
TEST(PcrNumbers, FieldsKeepTheirDigitsAndTheirDistance) {
  EXPECT_EQ(n_12_6(0.f), "    0.000000\n");
  EXPECT_EQ(n_12_6(0.1234567f), "   0.1234567\n");
  EXPECT_EQ(n_12_6(0.0025f), "    0.002500\n");
  EXPECT_EQ(n_12_6(0.01234567f), " 1.2345670E-02\n");
  EXPECT_EQ(n_12_6(-123456.78f), " -123456.781250\n");
  using pcr_numbers::line;
  EXPECT_EQ(line{}.k(6, 110.5f).k(6, 91.125f).k(6, -4091.f).str(), " 110.50 91.125 -4091.00\n");
  EXPECT_EQ(line{}.a(11, 6, 1.f / 3.f).i(4, -1000).text(6, "La").text("|").str(), "   0.333333 -1000La    |\n");

  std::mt19937 random(20300102u);
  std::uniform_real_distribution<float> exponent(-12.f, 9.f);
  for (int k = 0; k < 2000; ++k) {
    const float x = std::pow(10.f, exponent(random)) * (k % 2 == 0 ? 1.f : -1.f);
    for (const int decimals : {3, 4, 5, 6}) {
      const std::string text = line{}.n(12, decimals, x).str();
      EXPECT_EQ(std::stof(text), x) << text;
      EXPECT_LE(text.size(), 22u) << text;
    }
  }
}

}  // namespace

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

/// What a state holds beside its slots, as text: every flag and value that has a place in the file.
std::string flags_of(const state_type& st) {
  std::ostringstream out;
  const auto& run = st.run;
  out << run.title << run.s_format << run.w_pat_line << run.optimize << run.automatic_read << ' ' << run.mcycle << ' '
      << run.eps << ' ' << run.maxs_read << ' ' << run.pattern_to_plot << run.n_pat_plot << ' ' << run.t1_lim << '\n';
  for (const float x : run.relax) out << x << ' ';
  for (const auto& l : run.limits) out << l.number << l.vlim1 << l.vlim2 << l.step << l.condition << l.name;
  for (const int k : run.output_flags) out << k << ' ';
  for (const auto& f : pcr_layout::long_run_flags) out << run.*f.of_run << ' ';
  for (const auto& p : st.pattern) {
    for (const auto& f : pcr_layout::long_pattern_flags) out << p.*f.of_pattern << ' ';
    for (const int k : p.output_flags) out << k << ' ';
    out << p.isbac << p.disp_ds << p.single_wave << p.brefint << p.iuvw << p.iabscor << p.iglmore << p.affpat << '\n';
    for (const float x : {p.lamda[0], p.lamda[1], p.ratio[1], p.bkpos, p.wdt, p.cthm, p.tmv[0], p.tmv[1], p.rlim, p.rkk,
                          p.alpsd, p.sent0, p.thmin_read, p.step_read, p.thmax_read, p.w_pat, p.fwindow}) {
      out << x << ' ';
    }
    for (const float x : p.pos) out << x << ' ';
    for (const auto& e : p.excluded) out << e.alow << ' ' << e.ahigh << ' ';
    for (const auto& e : p.scattering) {
      out << e.nam << e.dfp << ' ' << e.dfpp << ' ' << e.ity;
      for (const auto& list : {std::vector<float>(e.ac.begin(), e.ac.end()), e.star, e.ftab, e.posi, e.scat}) {
        for (const float x : list) out << ' ' << x;
      }
    }
    out << p.vary_command << p.fix_command << p.win_cyc << ' ' << p.n_bac << p.wght.refine << p.wght.a << p.wght.f
        << '\n';
  }
  for (const auto& p : st.phase) {
    out << p.phsnm << p.vary_xyz << p.fix_xyz << p.natom << ' ' << p.jbt << ' ' << p.ifurt << ' ' << p.atz << p.imore
        << p.jter << p.symb << '\n';
  }
  for (const auto& m : st.mixes) {
    out << m.jcontr << m.irf << ' ' << m.npro << m.npro_read << m.jtyp << m.ph_shift << m.pref[0] << m.pref[2]
        << m.brinl << ' ' << m.rmua << m.file_hkl << m.p_ph << '\n';
  }
  for (const auto& a : st.atom) {
    out << a.atext << '|' << a.ntyp << '|' << a.n_t << a.isap[0] << a.isap[1] << a.sp_pointers << a.atm_info << '\n';
  }
  return out.str();
}

std::vector<std::array<float, 3>> slots_of(state_type& st) {
  std::vector<std::array<float, 3>> all;
  st.for_each_slot([&](const slot_ref& s) { all.push_back({s.value, s.code, s.code_read}); });
  return all;
}

std::string other_options() {
  // A second wavelength, shifts of the phase, microabsorption, points, entries of all kinds, remarks, limits.
  std::string text = with(control_files::zincite, "1   6   0   0   1", "1   6   1  -1   1");
  text = with(text, "0   0   0   0   0   0   0   0   1\n", "0   0   2   0   0   0   0   1\n");
  text = with(text, "    0.5000    70.000", "   -0.5000    70.000");
  text = with(text, "       0\n  0.00000    0.00",
              "10. 12.\nAl3+ 0.1234567 0 1\n0. 10.\n0.4 5.4321\n-100.\n 0\n  0.00000    0.00");
  text = with(text, "0.00000     0.00     0\n", "1.54060    41.0     1\n 0.1 11.0 0.2 0.0 0.3 -21.55\n");
  text = with(text, "0.000   0   7   0\n",
              "0.500   0   0   1\n0 0 0 0 0 1 0.1 0.2 0 0 0 0 1 0\nFILE_HKL \"my list.hkl\" 3\n");
  text = with(text, "ZnO wurtzite", "VARY xyz ZnO");
  return text +
         "0.01 0.0 -0.02 10.5 0.03 0\n0.001 0.002 0.003\n 31.0 0 0\n1 0 0.5 0.01 1 Zero\n3 -1 1\n! Pattern to plot\n "
         "20. 100. 1\n";
}

TEST(WritePcr, WhatIsWrittenReadsBackToTheSameState) {
  run_directory run;
  run.put("al2o3_x.dat", "");
  run.put("al2o3_n.dat", "");
  const std::string wght =
      with(control_files::ceria, "0   7   1  -3   0   0   0   0   0", "0   7   1  -3   0   1   0   0   3");
  const auto background = [](const char* flag, const char* lines) {
    const std::string text = with(control_files::ceria, "0   7   1  -3", std::string("0   7   1 ") + flag);
    std::vector<std::string> all = control_files::lines_of(text);
    all.erase(all.begin() + 8, all.begin() + 12);
    all.insert(all.begin() + 8, lines);
    return control_files::join(all);
  };
  const std::string six = "1 2 3 4 5 6.54321\n", codes = "11 21 0 0 0 0\n", pair = six + codes;
  const std::vector<std::string> files{
      control_files::lab6_free(),
      control_files::corundum_free(),
      control_files::ceria,
      control_files::zincite,
      other_options(),
      with(with(wght, "\n   0   0   1", "\nWGHT 0.1 0.2 0 0 0 0.333 refine\n   0   0   1"), "\n      14\n",
           "\nce 1 2 0\n0.1 58\n1 2 3 4 5 6 7 8 9.87654\n 14\n"),
      background(" 0", pair.c_str()),
      background(" 1", "0 0 0 0\n1 2 3 4"),
      background("-1", (pair + pair + pair).c_str()),
      background("-2", "1.5 3"),
      background("-4", (pair + pair).c_str()),
      background("-4", (pair + pair + six + "Codes 11 0 0 0 0 0").c_str()),
      background("-5", (pair + pair + pair + pair).c_str()),
  };
  for (const std::string& text : files) {
    SCOPED_TRACE(text.substr(0, 200));
    state_type& st = run.read(text);
    ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    const std::string flags = flags_of(st), written = write_pcr(st, date_line);
    const auto slots = slots_of(st);
    state_type& again = run.read(written);
    ASSERT_EQ(again.fmt.ierr_fmt, 0) << run.message() << written;
    EXPECT_EQ(flags_of(again), flags);
    const auto slots_again = slots_of(again);
    ASSERT_EQ(slots_again.size(), slots.size());
    for (std::size_t k = 0; k < slots.size(); ++k) {
      EXPECT_NEAR(slots_again[k][0], slots[k][0], 5e-6f * std::fabs(slots[k][0])) << k;
      EXPECT_NEAR(slots_again[k][1], slots[k][1], 1e-4f) << k;
      EXPECT_NEAR(slots_again[k][2], slots[k][2], 1e-4f) << k;
    }
    EXPECT_EQ(write_pcr(again, date_line), written);
  }
}

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
                              {false, false, 1.f, 9, 111.f, 111.f},  // renumbered, or tied to another slot
                              {false, false, 1.f, 0, 1.f, 1.f},      // a request that Aut 0 does not serve
                              {true, false, 1.f, 4, 1.f, 41.f},
                              {true, false, -1.f, 0, 0.f, -1.f},
                              {true, false, 0.f, 0, 31.f, 0.f},  // fixed by a word
                              {true, true, 0.f, 0, 31.f, 31.f}}) {
    run_directory run;
    state_type& st = run.read(control_files::lab6_free());
    st.run.code_splitted = true;
    st.run.automatic_read = row.automatic;
    st.pattern[0].affpat = row.deselected ? 0 : 1;
    st.atom[0].a[aslot::biso] = row.multiplier;
    st.atom[0].lp[aslot::biso] = row.number;
    st.atom[0].a_read[aslot::biso] = row.read;
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
  EXPECT_TRUE(save_pcr(st, false));
  EXPECT_EQ(st.run.nxt, 2);
  EXPECT_EQ(run.get("code.pcr"), control_files::ceria);
  EXPECT_THAT(run.get("code.new"), HasSubstr("\n!Job"));
  EXPECT_THAT(run.get("code.new"), HasSubstr("\n   0   0   1   0   1   0"));  // Nxt as it was read
  EXPECT_THAT(run.console.str(), HasSubstr("final(Chi2) > 1.2*initial(Chi2)\n"));
  EXPECT_THAT(run.console.str(), HasSubstr(" Current parameters are saved in a file of extension NEW\n"));

  st.run.nxt = 1;
  st.run.t_chi2 = 0.5f;
  EXPECT_TRUE(save_pcr(st, false));
  EXPECT_THAT(run.get("code.pcr"), HasSubstr("\n!Date: "));
  const std::string saved = run.get("code.pcr");
  st.mix(0, 0).par[slot::w] = NAN;
  EXPECT_FALSE(save_pcr(st, false));
  EXPECT_EQ(run.get("code.pcr"), saved);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(run.path), {}), 2);
}

std::string n_12_6(float x) { return pcr_numbers::line{}.n(12, 6, x).str(); }
TEST(PcrNumbers, FieldsKeepTheirDigitsAndTheirDistance) {
  EXPECT_EQ(n_12_6(0.f), "    0.000000\n");
  EXPECT_EQ(n_12_6(0.1234567f), "    0.123457\n");
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
      const float back = std::stof(text);
      EXPECT_NEAR(back, x, 5.1e-6f * std::fabs(x)) << text;
      EXPECT_EQ(line{}.n(12, decimals, std::stof(line{}.n(12, decimals, back).str())).str(),
                line{}.n(12, decimals, back).str());
    }
  }
}

}  // namespace

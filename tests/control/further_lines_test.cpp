// Lines of time of flight, single crystals, symmetry, restraints and searches: what they mean, and what is wrong in
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_files.hpp"
#include "sample_files.hpp"

namespace {

using control_files::run_directory;
using control_files::with;
using kalvaris_params::state_type;
using testing::ElementsAre;
using testing::HasSubstr;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

TEST(TimeOfFlight, ZeroLineTellsTheDetectorByAngleOrByTwiceItsSine) {
  run_directory run;
  const std::string words = "31.00      0.0000   0.00     144.845";
  const auto& p = run.read(control_files::yttria).pattern[0];
  ASSERT_EQ(run.state->fmt.ierr_fmt, 0) << run.message();
  EXPECT_NEAR(p.glb[gslot::two_sin], 2.0 * std::sin(144.845 / 2 * 0.017453292519943295), 1e-6);
  EXPECT_FLOAT_EQ(p.toftet, 144.845f);
  EXPECT_FLOAT_EQ(p.dtt1, 7476.91f);
  EXPECT_EQ(p.pl_prf, 3);
  EXPECT_FLOAT_EQ(p.aglb[gslot::dtt2], 31.f);
  const auto& by_sine = run.read(with(control_files::yttria, words, "31.00 1.4")).pattern[0];
  EXPECT_FLOAT_EQ(by_sine.glb[gslot::two_sin], 1.4f);
  EXPECT_NEAR(by_sine.toftet, 88.854, 1e-3);
  EXPECT_FLOAT_EQ(by_sine.glb[gslot::dtt_1overd], 0.f);
}

TEST(TimeOfFlight, SlotsThatActAlikeAreNotRefinedTogether) {
  run_directory run;
  std::string text =
      with(control_files::yttria, "       131.00        141.00          0.00          0.00          0.00",
           "       131.00        141.00          0.00          0.00          1.00");
  text = with(text, "         0.00        151.00          0.00          0.00          0.00",
              "         0.00        151.00          0.00          0.00        161.00");
  const auto& m = run.read(text).mix(0, 0);
  ASSERT_EQ(run.state->fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(m.apar[slot::sig1], 0.f);
  EXPECT_EQ(m.par[slot::sig1], 0.f);
  EXPECT_EQ(m.apar[slot::sig2], 131.f);
  EXPECT_EQ(m.apar[slot::gam1], 151.f);  // its partner, the strain part, is not refined
}

TEST(TimeOfFlight, WordsActOnTheSlotsOfItsOwnWidths) {
  run_directory run;
  const std::string text =
      with(control_files::yttria, "  12000.000   20.0000         3\n",
           "  12000.000   20.0000         3\nVARY dtt1 dtt_1overd Ustrain Xstrain Ysize Gsize Bover\n"
           "FIX zero dtt2\n");
  state_type& st = run.read(text);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  const auto& p = st.pattern[0];
  EXPECT_THAT((std::array{p.aglb[gslot::zero], p.aglb[gslot::dtt1], p.aglb[gslot::dtt2], p.aglb[gslot::dtt_1overd]}),
              ElementsAre(0.f, 1.f, 0.f, 1.f));
  const auto& m = st.mix(0, 0);
  for (const int k : {slot::iso_gstrain, slot::iso_lstrain, slot::iso_lsize, slot::iso_gsize, slot::bov}) {
    EXPECT_EQ(m.apar[k], 1.f) << k;
  }
}

struct word_row {
  const char* word;
  int slot_of_pattern;
};
TEST(TimeOfFlight, WordsOfTheSecondRegime) {
  for (const word_row& row : {word_row{"Zt", gslot::zero_t},
                              {"dtt1t", gslot::dtt1t},
                              {"dtt2t", gslot::dtt2t},
                              {"xcross", gslot::xcross},
                              {"width", gslot::wcross}}) {
    run_directory run;
    std::string text = with(control_files::yttria, "   1   9   1   0   1", "   1  10   1   0   1");
    text = with(text, "  12000.000   20.0000         3\n",
                std::string("  12000.000   20.0000         3\nVARY ") + row.word + "\n");
    text = with(text, " -5.20000   21.00 7476.9100    0.00 -1.5400   31.00      0.0000   0.00     144.845\n",
                " -5.2 21 7476.9 0 -1.5 31 1.4 0 0\n 2.5 0 7480.5 0 -0.5 0\n 1.5 0 0.25 0\n");
    const auto& p = run.read(text).pattern[0];
    ASSERT_EQ(run.state->fmt.ierr_fmt, 0) << run.message();
    for (int k = gslot::zero_t; k <= gslot::wcross; ++k) {
      EXPECT_EQ(p.aglb[k], k == row.slot_of_pattern ? 1.f : 0.f) << row.word << k;
    }
    EXPECT_FLOAT_EQ(p.glb[gslot::dtt1t], 7480.5f);
    EXPECT_FLOAT_EQ(p.glb[gslot::wcross], 0.25f);
  }
}

TEST(FurtherLines, FillTheirRecords) {
  run_directory run;
  run.put_named_files();
  state_type& boride = run.read(control_files::boride);
  ASSERT_EQ(boride.fmt.ierr_fmt, 0) << run.message();
  const auto& magnetic = boride.phase[1];
  ASSERT_EQ(magnetic.by_hand.op.size(), 1u);
  EXPECT_THAT(magnetic.by_hand.op[0].mag[0].m, ElementsAre(1, 0, 0, 0, 1, 0, 0, 0, 1));
  EXPECT_FLOAT_EQ(magnetic.vector.at(0).pvk[3], 0.5f);
  const auto& atom = boride.atom[2];
  EXPECT_EQ(atom.imagr, 1);
  EXPECT_FLOAT_EQ(atom.xl[aslot::rz], 1.74f);
  EXPECT_FLOAT_EQ(atom.a[aslot::rz], 131.f);

  state_type& crystal = run.read(control_files::crystal);
  ASSERT_EQ(crystal.fmt.ierr_fmt, 0) << run.message();
  EXPECT_TRUE(crystal.pattern[0].cry_pat);
  EXPECT_FLOAT_EQ(crystal.mix(0, 0).par[slot::scale], 900.f);
  EXPECT_FLOAT_EQ(crystal.mix(0, 0).rmua, 1.f);

  state_type& search = run.read(control_files::annealing);
  ASSERT_EQ(search.fmt.ierr_fmt, 0) << run.message();
  EXPECT_FLOAT_EQ(search.run.search.t_ini, 20.f);
  EXPECT_THAT(search.run.search.seed_sa, ElementsAre(1234, 5678));
  EXPECT_EQ(search.pattern[0].lst1, 0);

  state_type& broadened = run.read(control_files::anisotropic);
  ASSERT_EQ(broadened.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(broadened.io.fileres[0], "lab.irf");
  EXPECT_EQ(broadened.phase[0].isi, 21);
  EXPECT_FLOAT_EQ(broadened.mix(0, 0).par[slot::siz1 + 1], 0.5f);
  EXPECT_EQ(broadened.phase[1].ismo, 14);
  EXPECT_FLOAT_EQ(broadened.mix(1, 0).apar[slot::str1 + 1], 171.f);
  EXPECT_FLOAT_EQ(broadened.mix(1, 0).par[slot::xi], 0.5f);

  state_type& joint = run.read(control_files::corundum);
  ASSERT_EQ(joint.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(joint.phase[0].distances.at(0).catod[1], "O1");
  EXPECT_FLOAT_EQ(joint.phase[0].distances[0].sdio, 0.005f);
  EXPECT_EQ(run.read(control_files::lab6).run.linear.at(0).para.at(0), 11);
}

struct failure_row {
  std::string text;
  const char* words;
  int line;  ///< that the message names, 0 none
  int ierr_fmt = 100;
};

TEST(FurtherLines, WhatIsMalformedIsRefusedWithItsLine) {
  using namespace control_files;
  const std::string magnetic = boride.substr(boride.find("NdB6 magnetic"));
  const auto in_magnetic = [&](std::string_view from, std::string_view to) {
    return boride.substr(0, boride.size() - magnetic.size()) + with(magnetic, from, to);
  };
  const auto named = [&](std::string_view lines) {
    return with(ceria, "CeO2 fluorite\n", "CeO2\nCOMMANDS\n" + std::string(lines) + "\nEND\n");
  };
  std::string many;
  for (int k = 0; k < 101; ++k) many += "x\n";
  const std::string restraint = "   0.350000   0.100000   1     1.0000    11\n";
  const std::string distance = "Al     O1      1 ";
  const std::string axes_flags = "   0   7   1  -3   0   0   ";
  const auto axes = [&](const char* lines) { return with(ceria, axes_flags + "0", axes_flags + "2") + lines; };
  run_directory run;
  run.put_named_files();
  for (const failure_row& row : std::vector<failure_row>{
           {with(lab6, restraint, "0.35 0.1 11\n"), "number of terms must lie in 1..10", 46},
           {with(lab6, restraint, "0.35 0.1 -2000000000\n"), "number of terms must lie in 1..10", 46},
           {with(lab6, restraint, "0.35 0.1 1 1.0 501\n"), "parameter number must lie in 0..500", 46},
           {with(lab6, restraint, ""), "The control file ends before: linear restraint", 0, -1},
           {with(yttria, "0.0000   0.00     144.845", "144.845 1"),
            "  Error reading the items: zero, code, dtt1, code, dtt2, code ...\n", 15},
           {with(yttria, "144.845", "181.0"), "the detector angle must lie in 0..180", 15},
           {named("NN_GRID 3 x 4"), " Error reading the grid for density map in phase number: 1\n", 15},
           {named("LAYER_C"), " Error reading the order of the supercell in layered structure. Phase: 1\n", 15},
           {named("MAGDOM x,y,z 0.5 11.0"), " Error reading population of magnetic domains. Phase: 1\n", 15},
           {named("CONTENT Ce x"), "an element and its number expected", 15},
           {named(many), " Too many command lines for Phase: 1\n", 115},
           {named("TWIN 1 0 0"), "the nine numbers of a twin law expected", 15},
           {in_magnetic("    1    1    1    1\n", "0 1 1 1\n"), "number of operators must lie in 1..384", 36},
           {in_magnetic("    1    1    1    1\n", "1 1 15 1\n"), "Laue class must lie in 1..14", 36},
           {in_magnetic("    1    1    1    1\n", "1 1 1 9\n"), "number of magnetic matrices must lie in 0..8", 36},
           {in_magnetic("    1    1    1    1\n", "1 1 1 1 9\n"), "number of displacement matrices must lie in 0..8",
            36},
           {in_magnetic("SYMM  x,y,z\n", "1 0 0 0 0 1 0 0 0.5 0 1 0\n"), "matrix element is not an integer", 37},
           {in_magnetic("SYMM  x,y,z\n", "SYMM x,q,z\n"), "symmetry operator of phase: 2", 37},
           {in_magnetic("SYMM  x,y,z\n", "SYMM x,y,z*2\n"), " Invalid character... *", 37},
           {in_magnetic("SYMM  x,y,z\n", "SYMM x,2y,z\n"), "the determinant of the operator is not 1 or -1", 37},
           {in_magnetic("SYMM  x,y,z\n", "1 0 0 0 0 1 0 0 0 1 0 0\n"), "the determinant of the operator", 37},
           {in_magnetic("MSYM  u,v,w,0.00", "MSYM u,v,w,a"), "the phase behind the matrix cannot be read", 38},
           {in_magnetic("0.500000\n       0.00       0.00       0.00\n", "0.5\n0 0 0\n0 0 0\n"),
            "one line, or one and its codes, per vector expected", 40},
           {in_magnetic("MND3    1   1", "MND3    1   2"), "number of the propagation vector must lie in", 44},
           {with(corundum, distance, "Al     O2      1 "), "atom not found: O2", 79},
           {with(corundum, distance, "Al     O1     37 "), "operator number too large", 79},
           {with(corundum, "2.5000   0.0000\n", "2.5 0 BVS\n1 40 5\n"), "number of anions must lie in 0..30", 50},
           {with(corundum, "2.5000   0.0000\n", "2.5 0 BVS\n40 1 5\n"), "number of cations must lie in 0..30", 50},
           {with(corundum, "2.5000   0.0000\n", "2.5 0 BVS\n1 1 5\nAl+3\n"), "a name is missing", 51},
           {with(crystal, "0.00000      1\n", "0.00000     37\n"), "number of scale factors must lie in 0..36", 20},
           {with(crystal, "0.00000      0\n", "0.00000      5\n"), "extinction model must lie in 0..4", 23},
           {axes("6 0\n"), "  Maximum 5 preferred orientation directions", 0},
           {axes("0 0\n"), "number of axes must lie in 1..5", 25},
           {with(annealing, "     100        10        1          0     1234      5678\n", ""),
            "The control file ends before: search parameters", 0, -1},
           {with(anisotropic, "lab.irf", "none.irf"), "The IRF file: none.irf does not exist! -> Pattern#  1", 0},
           {with(anisotropic, "lab.irf", "# note"), "the name is missing", 4},
       }) {
    EXPECT_EQ(run.read(row.text).fmt.ierr_fmt, row.ierr_fmt) << row.words;
    EXPECT_THAT(run.message(), HasSubstr(row.words));
    if (row.line == 0) continue;
    const std::string number = std::to_string(row.line);
    EXPECT_THAT(run.message(), testing::EndsWith(" => Please check your input file at line: " +
                                                 std::string(6 - number.size(), ' ') + number + " !\n"));
  }
}

TEST(FurtherLines, WarningsGoToTheConsoleAndChangeNothing) {
  using namespace control_files;
  run_directory run;
  EXPECT_EQ(run.read(with(ceria, "CeO2 fluorite\n", "CeO2\nCOMMANDS\nREFERENCE_CELL 5 x\nEND\n")).fmt.ierr_fmt, 0);
  EXPECT_THAT(run.console.str(), HasSubstr(" WARNING: Error reading the reference cell in phase number: 1\n"));
  EXPECT_EQ(run.read(with(boride, "0.00000   0.00000   1.74000", "0.00000   0.00000  14.50000")).fmt.ierr_fmt, 0);
  EXPECT_THAT(run.console.str(), HasSubstr(" Warning!!, Some magnetic moment component of atom Nd exceeds 14 muB"));
  EXPECT_EQ(run.read(with(sample("Monte Carlo"), "     100        10   ", "     100        11   ")).fmt.ierr_fmt, 0);
  EXPECT_THAT(run.console.str(), HasSubstr(" Warning! At most 10 solutions of the search are kept\n"));
  run.put_named_files();
  const std::size_t neutrons = corundum.rfind("0.050000     0.000000     0.000000        0\n");
  EXPECT_EQ(
      run.read(corundum.substr(0, neutrons) + with(corundum.substr(neutrons), "        0\n", " 1\n")).fmt.ierr_fmt, 0);
  EXPECT_THAT(
      run.console.str(),
      HasSubstr(" Warning! The size model of phase 1 in pattern 2 is ignored, that of the first pattern holds\n"));
}

}  // namespace

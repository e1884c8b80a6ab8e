// Rigid bodies, symmetry modes, modulated atoms, Laue and multi-phase lists: what their lines mean, and what is wrong
// in them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_files.hpp"
#include "kv_calculable.hpp"
#include "sample_files.hpp"

namespace {

using control_files::run_directory;
using control_files::sample;
using control_files::with;
using kalvaris_params::state_type;
using testing::ElementsAre;
using testing::HasSubstr;
namespace aslot = kalvaris_params::aslot;
namespace bslot = kalvaris_params::bslot;
namespace gslot = kalvaris_params::gslot;

TEST(FurtherForms, FillTheirRecords) {
  run_directory run;
  run.put_named_files();
  state_type& bodies = run.read(sample("rigid bodies"));
  ASSERT_EQ(bodies.phase[0].bodies.size(), 2u) << run.message();
  const auto& dimer = bodies.phase[0].bodies[0];
  EXPECT_EQ(dimer.name, "dimer");
  EXPECT_THAT((std::array{dimer.first_atom, dimer.natoms, dimer.coordinates, dimer.type_angles, dimer.type_thermal}),
              ElementsAre(0, 2, 2, 1, 3));
  EXPECT_EQ(dimer.value[bslot::phi + 2], 30.f);
  EXPECT_EQ(dimer.code[bslot::phi], 11.f);
  EXPECT_EQ(dimer.value[bslot::s11 + 8], 9.5f);
  EXPECT_EQ(dimer.code_read[bslot::last], 131.f);
  EXPECT_EQ(bodies.phase[0].bodies[1].first_atom, 3);
  EXPECT_THAT(bodies.atom[3].connected, ElementsAre(1.f, 2.f, 3.f));
  EXPECT_EQ(bodies.atom[0].xl[aslot::z], 0.8f);
  EXPECT_EQ(bodies.atom[2].a[aslot::biso], 111.f);

  state_type& modes = run.read(sample("symmetry modes"));
  ASSERT_EQ(modes.phase[0].mode_sets.size(), 2u) << run.message();
  EXPECT_TRUE(modes.phase[0].mode_sets[0].amplitude_constraint);
  EXPECT_EQ(modes.phase[0].mode_sets[0].max_amplitude, 1.5f);
  EXPECT_EQ(modes.phase[0].mode_sets[1].max_amplitude, 2.f);
  ASSERT_EQ(modes.phase[0].modes.size(), 8u);
  EXPECT_THAT(modes.phase[0].modes[1].components[1].v, ElementsAre(-0.5f, 0.25f, 0.f));
  EXPECT_EQ(modes.phase[0].modes[6].value[1], 0.7f);
  EXPECT_EQ(modes.phase[0].modes[6].code[1], 131.f);
  EXPECT_EQ(modes.atom[1].xl[aslot::b22], 0.007f);  // parent atoms of Jbt 6 are nuclear
  EXPECT_EQ(run.read(sample("magnetic modes")).atom[0].xl[aslot::rz], 1.5f);

  state_type& waves = run.read(sample("superspace of three"));
  ASSERT_EQ(waves.fmt.ierr_fmt, 0) << run.message();
  EXPECT_THAT(run.console.str(), HasSubstr("  Reading 2 superspace atoms\n Reading Mcos and Msin amplitudes: \n"));
  EXPECT_EQ(waves.atom[0].xl[aslot::usin + aslot::per_harmonic], 0.4f);
  EXPECT_EQ(waves.atom[0].a[aslot::msin + 2 + aslot::per_harmonic], 151.f);
  EXPECT_THAT(waves.mix(0, 0).special[0], ElementsAre(1, 1, 1, 1, 1, 1));
  read_pcr_mod::finish_reading(waves);
  EXPECT_EQ(waves.pattern[0].pl_prf, 3);

  state_type& laue = run.read(sample("Laue, modelled spectrum"));
  ASSERT_EQ(laue.fmt.ierr_fmt, 0) << run.message();
  EXPECT_EQ(laue.run.icryg, 1);
  EXPECT_TRUE(laue.pattern[0].cry_pat);
  EXPECT_THAT(laue.pattern[0].lists.files, ElementsAre("one.int", "two.int"));
  EXPECT_EQ(laue.pattern[0].glb[gslot::laue_abs + 11], 6.f);
  state_type& crystals = run.read(sample("multi-phase crystals"));
  ASSERT_EQ(crystals.fmt.ierr_fmt, 0) << run.message();
  EXPECT_TRUE(crystals.pattern[0].cry_mphas && crystals.pattern[0].cry_pat && !crystals.pattern[1].cry_pat);
  EXPECT_EQ(crystals.run.icryg, 0);
}

TEST(FurtherForms, AreRefusedByNameBeforeAnythingIsCalculated) {
  run_directory run;
  run.put_named_files();
  for (const auto& [file, words] : std::vector<std::pair<const char*, const char*>>{
           {"rigid bodies", "Jbt 4"},
           {"rigid bodies, other sign", "Jbt -4"},
           {"symmetry modes", "Jbt 6"},
           {"magnetic modes", "Jbt -6"},
           {"superspace", "Jbt 7"},
           {"Laue, histogram", "Laue and multi-phase lists (Uni 10, Int 2) are not available"},
           {"multi-phase crystals", "Laue and multi-phase lists"}}) {
    state_type& st = run.read(sample(file));
    ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    EXPECT_FALSE(kv_calculable::calculable(st)) << file;
    EXPECT_THAT(run.message(), HasSubstr(words)) << file;
  }
}

struct failure_row {
  const char* file;
  const char *from, *to;
  const char* words;
  const char* line_begin;  ///< of the line that the message must name, null: none
  int ierr_fmt = 100;
};

TEST(FurtherForms, WhatIsMalformedIsRefusedWithItsLine) {
  run_directory run;
  run.put_named_files();
  for (const failure_row& row : std::vector<failure_row>{
           {"rigid bodies", "MOLE 2 2 dimer", "MOLE two", "the number of atoms and the kind of their", "MOLE two"},
           {"rigid bodies", "MOLE 2 2 dimer", "MOLE 5 2", "number of atoms must lie in 1..4", "MOLE 5"},
           {"rigid bodies", "MOLE 2 2 dimer", "MOLE 2 5", "kind of the coordinates must lie in 1..4", "MOLE 2 5"},
           {"rigid bodies", "20 30 1 3", "20 30 1 4", "kind of the thermal motion must lie in 0..3", "0.25 0.5 0.5"},
           {"symmetry modes", "V_MODES 7 max", "W_MODES 7 max", "a line V_MODES, M_MODES or O_MODES expected", "W_M"},
           {"symmetry modes", "V_MODES 7 max_amplitude 1.5", "V_MODES", "the number of modes expected", "V_MODES"},
           {"symmetry modes", "max_amplitude 1.5", "max_amplitude -1", "max_amplitude and a positive number", "V_M"},
           {"symmetry modes", "V_MODES 7", "V_MODES 301", "number of modes must lie in 1..300", "V_MODES"},
           {"symmetry modes", "O_MODES 1", "V_MODES 1", "modes of this kind were given before", "V_MODES 1"},
           {"symmetry modes", "GM2 2", "GM2 0", "number of components must lie in 1..830", "GM2"},
           {"symmetry modes", "GM2 2", "GM2GM2GM2 2", "FindFMT: separator missing !", "GM2GM2", 10},
           {"symmetry modes", "2 B -0.5", "2 Sr -0.5", "atom not found: Sr", "2 Sr"},
           {"superspace", "La MLA3 2", "La MLA3 6",
            " Error in the number of harmonics for atom: La, the maximum allowed is nharm", "La MLA3"},
           {"superspace", "La MLA3 2 0 0 0 .35 .020833 3", "La MLA3 2 0 0 0 .35 .020833 4", "(N_t 4)", "La MLA3"},
           {"Laue, histogram", "W_HISTOGRAM flux.dat", "flux.dat", "W_HISTOGRAM and the name of a file", "flux.dat"},
           {"Laue, histogram", "1 -1 1\n", "0 -1 1\n", "number of lists must lie in 1..99", "0 -1 1"},
           {"Laue, histogram", "1 -1 1\n", "1 61 1\n", "coefficients of the incident spectrum must lie in", "1 61"},
           {"Laue, histogram", "1 -1 1\n", "1 -1 3\n", "model of the absorption must lie in 0..2", "1 -1 3"},
           {"Laue, histogram", "1 -1 1\n", "1 -1 1 13\n", "coefficients of the efficiency must lie in 0..12", "1 -1 1"},
           {"multi-phase crystals", "1.54 1.54 0", "0 1.54 0", "the wavelength is not positive", "0 1.54"},
           // lines that had words of their own before
           {"user profiles", "2 one.dat", "11 one.dat", " Too many profiles contributing to background of pattern#1",
            "11 one.dat"},
           {"user profiles", "2 one.dat \"two words\"", "2 one.dat", "a name of a profile is missing", "2 one.dat"},
           {"symmetry-adapted form factor", "YLMP 7", "ylm 7",
            " Error in the type of SASH! allowed types: ylmp or klj ! ", "ylm 7"},
           {"user profiles", "2 one.dat", "x one.dat", "the number of profiles and their names expected", "x one.dat"},
           {"symmetry-adapted form factor", "YLMP 7", "YLMP 13", "number of terms must lie in 1..12", "YLMP 13"},
           {"basis functions", "1 1 1 2 2", "1 1 1 10 2", "number of representations must lie in", "1 1 1 10"},
           {"basis functions", "1 1 1 2 2", "1 1 1 2 99", "number of basis functions must lie in", "1 1 1 2 99"},
           {"basis functions", "0 1\n0 0\n", "0 2\n0 0\n", "indicator must lie in 0..1", "0 2\n"},
           {"basis functions", "BASR 1 0", "BASX 1 0", "a line BASR expected", "BASX"},
           {"shift by one parameter", "0.1 0.2 0.3 2", "0.1 0.2 0.3 999", "unknown shift model", "0.1 0.2 0.3 999"},
           {"two regimes", "191.0 -0.5 0\n", "191.0 -0.5\n", "one line of six and one of four or five values", " 2.5"},
           {"background file", "1 2 3 4", "Codes", "the line holds no values", "Codes"},
           {"restraints", "   2.5000   120.0000 BVS", "   2.5000   120.0.0 BVS", "FindFMT: begged dot", "   2.5000", 4},
           {"ceria", "   20    0.10", "   20    0.10e", "FindFMT: data string, read error !", "   20    0.10e", 2},
           {"ceria", "   20    0.10", "   20    e1", "FindFMT: incomplete E or D format !", "   20    e1", 11},
           {"ceria", "   20    0.10", "   E20    0.10", "FindFMT: invalid character in an integer field !", "   E20",
            5},
           {"ceria", "   20    0.10", "   20    -", "FindFMT: incomplete number !", "   20    -", 12},
       }) {
    SCOPED_TRACE(std::string(row.file) + ": " + row.words);
    const std::string text = with(sample(row.file), row.from, row.to);
    EXPECT_EQ(run.read(text).fmt.ierr_fmt, row.ierr_fmt);
    EXPECT_THAT(run.message(), HasSubstr(row.words));
    const std::string before = text.substr(0, text.find("\n" + std::string(row.line_begin)) + 1);
    const std::string number = std::to_string(1 + std::count(before.begin(), before.end(), '\n'));
    EXPECT_THAT(run.message(), HasSubstr("at line: " + std::string(6 - number.size(), ' ') + number + " !\n"));
  }
}

TEST(FurtherForms, ANameThatIsMissingAtTheEndOfTheFileIsTold) {
  run_directory run;
  const std::string resolution = control_files::anisotropic.substr(0, control_files::anisotropic.find("lab.irf"));
  EXPECT_EQ(run.read(resolution).fmt.ierr_fmt, -1);
  EXPECT_THAT(run.message(), HasSubstr(" Error reading the name of resolution file of pattern 1\n"));
  const std::string profile = sample("numerical profile");
  EXPECT_EQ(run.read(profile.substr(0, profile.find("my.spr"))).fmt.ierr_fmt, -1);
  EXPECT_THAT(run.message(), HasSubstr(" Error reading the name of *.spr file of pattern 1\n"));
}

}  // namespace

#include "sample_files.hpp"

#include <array>
#include <stdexcept>

#include "control_files.hpp"

namespace control_files {

namespace {

/// The text with `added` behind the line that holds `mark`.
std::string behind(const std::string& text, std::string_view mark, std::string_view added) {
  const std::size_t at = text.find(mark);
  if (at == std::string::npos) throw std::invalid_argument("the text does not hold: " + std::string(mark));
  const std::size_t end = text.find('\n', at) + 1;
  return text.substr(0, end) + std::string(added) + text.substr(end);
}
std::string before(const std::string& text, std::string_view mark, std::string_view added) {
  const std::size_t at = text.find(mark);
  if (at == std::string::npos) throw std::invalid_argument("the text does not hold: " + std::string(mark));
  return text.substr(0, at) + std::string(added) + text.substr(at);
}

const std::string last_profile_codes = "     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00\n";
const std::string phase_flags = "   0   0   0 0.0 0.0 1.0   2   0   0   0   0       0.000   0   7   0\n";

/// ceria with lines behind its profile block.
std::string with_lines(std::string text, std::string_view added) { return behind(text, last_profile_codes, added); }
std::string with_flags(std::string_view flags) { return with(ceria, phase_flags, flags); }
/// Strain model behind the scale line, size model behind the width line, and the field Str.
std::string with_models(int istr, int ismo, int isi, std::string_view lines) {
  std::string text =
      with_flags("   0   0   0 0.0 0.0 1.0   2   0   0   " + std::to_string(istr) + "   0       0.000   0   7   0\n");
  text = with(text, "0.00000   0.00000        0\n", "0.00000   0.00000   " + std::to_string(ismo) + "\n");
  text = with(text, "0.000000     0.000000        0\n", "0.000000     0.000000   " + std::to_string(isi) + "\n");
  return with_lines(text, lines);
}
std::string with_shift_model(int ishif, std::string_view lines) {
  const std::string text = with_flags(
      "   0   0   0 0.0 0.0 1.0   2   0   0   0   0       0.000   0   7   1\n0 0 0 1 0 0 0. 0. 0. 0. 0 0 0 0\n");
  return with_lines(text, "0.1 0.2 0.3 " + std::to_string(ishif) + "\n 151.0 0 0\n" + std::string(lines));
}
/// Pairs of lines of `n` values 0.1, 0.2 ... and codes, six to a line.
std::string pairs(int n) {
  std::string text;
  for (int from = 0; from < n; from += 6) {
    std::string values, codes;
    for (int k = from; k < std::min(n, from + 6); ++k) {
      values += " " + std::to_string(k + 1) + ".5";
      codes += k % 2 == 0 ? " 11.0" : " 0.0";
    }
    text += values + "\n" + codes + "\n";
  }
  return text;
}

/// The magnetic phase of the boride alone changed: its text begins at its name.
std::string boride_with(std::string_view from, std::string_view to) {
  const std::size_t at = boride.find("NdB6 magnetic");
  return boride.substr(0, at) + with(boride.substr(at), from, to);
}
const std::string magnetic_atom =
    "Nd     MND3    1   1  0.000000  0.000000  0.000000   0.20000   0.500000   0.00000   0.00000   1.74000\n"
    "                          0.00      0.00      0.00     61.00      0.00      0.00      0.00    131.00\n"
    "       0.00000   0.00000   0.00000  0.000000  0.000000  0.000000   0.00000\n"
    "          0.00      0.00      0.00      0.00      0.00      0.00      0.00\n";
/// The magnetic phase with a common list of atoms (Jbt 10).
std::string common_list(std::string_view atoms) {
  return with(boride_with("1.0   1   0   1   0   0 ", "1.0  10   0   1   0   0 "), magnetic_atom, atoms);
}

const std::string two_regimes =
    with(with(yttria, "   1   9   1   0   1", "   1  10   1   0   1"),
         " -5.20000   21.00 7476.9100    0.00 -1.5400   31.00      0.0000   0.00     144.845\n",
         " -5.20000   21.00 7476.9100    0.00 -1.5400   31.00      144.845   0.00   0\n"
         " 1.5 41.0 0.25 0.0 90.5\n 2.5 0 7480.5 191.0 -0.5 0\n");

std::string npro_10() {
  std::string text = with(two_regimes, "0.000   0   9   0\n", "0.000   0  10   0\n");
  return before(text, "!Absorption", "0.1 0.2 0.3 0.4\n 11.0 0 0 21.0\n");
}

std::string energy() {
  std::string text = with(ceria, "0   7   1  -3   0   0   0   0   0   0   0   0   0   0   0   0",
                          "0   7   1  -3   0   0   0   0   0   0   0   0   0   0   0   2");
  text = with(text,
              "  1.540560  1.544390    0.5000    80.000   14.0000    0.7998    0.0000     0.000    0.0000    0.0000\n",
              " 40.5 12.0 0\nVARY zero dtt1\nFIX dtt2\n");
  return with(text, "  0.00000    0.00 0.01000   11.00 0.00000    0.00 0.00000     0.00     0\n",
              "  0.00000    0.00 0.00000   11.00 0.00000    0.00 12.5     31.00     0\n");
}

std::string user_profiles() {
  return with(ceria, "0.00000     0.00     0\n",
              "0.00000     0.00     3\n.1 0 .2 11.0 .3 0\n2 one.dat \"two words\"\n"
              "0.5 1.5\n21.0 0\n");
}

std::string all_scales() {
  std::string text = with(crystal, "  900.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1\n",
                          "  900.00000    0.50000    0.25    0.125    0.5    0.5      36\n");
  return before(text, "! Extinction", pairs(30));
}

std::string restraints() {
  std::string text = with(corundum, "   2   1   0   0 ", "   2   2   1   0 ");
  text = with(text, "   2.5000   0.0000\n", "   2.5000   120.0000 BVS\n 1 1 5.0\n Al+3 O-2\n");
  return behind(text, "Al     O1      1", "Al O1 0 0.5 0 0 1.85 0\nO1 Al O1 1 2 0 0 0 0 0 1 90.5 0.5\n");
}

std::string commands() {
  return behind(ceria, "CeO2 fluorite",
                "COMMANDS\nCONTENT Ce 4 O 8\nNN_GRID 32 32 16\nreference_cell 5 5 5 90 90 90\nLAYER_B 3\nMAG_MERGE\n"
                "EFF_MOMENT\nSAVE_MAG_STRF\nMAG_ONLY ! note\nMAGDOM x,y,z :   0.50000    151.00\n"
                "MAGDOMT -x,y,-z :   0.25000     11.00   1.00000      0.00\n"
                "TWIN 1 0 0 0 1 0 0 0 -1\nSOMETHING of my own\nEND\n");
}

/// The phase of lab6 as one of another kind, its atoms replaced.
std::string lab6_kind(std::string_view flags, std::string_view atoms) {
  const std::string text =
      with(lab6_free(), "   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0\n", flags);
  const std::size_t first = text.find("La     LA"), end = text.find("!-------> Profile");
  return text.substr(0, first) + std::string(atoms) + text.substr(end);
}

std::string rigid_bodies() {
  return lab6_kind(
      "4 0 0 0 0 1 4 0 0 0 0 0 0 7 0\n",
      "MOLE 2 2 dimer ! Cartesian\nB1 B 0 0 0.8 0 0 0 0.5 0.125 1\nB2 B 0 0 -0.8 1 0 0 0.5 0.125\n"
      "0.25 0.5 0.5 10 20 30 1 3\n 101 0 0 11.0 0 0\n.1 .2 .3 0 0 0\n121 0 0 0 0 0\n1 2 3 .5 .5 .5\n0 0 0 0 0 0\n"
      "1 2 3 4 5 6 7 8 9.5\n0 0 0 0 0 0 0 0 131\n"
      "La LA 0 0 0 0.3 0.020833 0 0 0 0 # free\n0 0 0 111 0\n"
      "MOLE 1 4\nB3 B 1.6 90 120 1 2 3 0.5 0.125\n0 0 0 0 0 0\n0 0\n");
}

const std::string modes_behind =
    "V_MODES 7 max_amplitude 1.5\nGM1+ 1\n1 La 0.1 0 0 0.5\nGM2 2\n1 La 0 1 0\n2 B -0.5 0.25 0 0.75\nGM3 1\n1 B 1\n"
    "GM4 1\n1 B 1\nGM5 1\n1 B 1\nGM6 1\n1 B 1\nX1- 1\n1 B 1\n.1 .2 .3 .4 .5 .6\n121 0 0 0 0 0\n.7\n131\n"
    "O_MODES 1\nGM1 1\n1 B 1 0 0 1\n0.02\n0\n";

std::string symmetry_modes() {
  return lab6_kind("2 0 0 0 0 1 6 0 0 0 0 0 0 7 0\n",
                   "La LA 0 0 0 .35 .020833 0 0 0 0\n0 0 0 111 0\nB B .2 .5 .5 .3 .125 0 0 2\n101 0 0 0 0\n"
                   ".005 .007 .007 0 0 0\n0 0 0 0 0 0\n" +
                       modes_behind);
}
std::string magnetic_modes() {
  return lab6_kind("2 0 0 0 0 1 -6 0 0 0 0 0 0 7 0\n",
                   "La MLA3 1 0 0 0 0 .35 .020833 1 0\n0 0 0 111 0\n0 0 1.5\n0 0 121\nB B 1 0 .2 .5 .5 .3 .125\n101\n"
                   "M_MODES 1 max_amplitude 3\nmGM1 1\n1 La 0 0 1 1\n0.5\n131\n" +
                       modes_behind);
}

/// A modulated phase with one or more vectors, and special reflections with as many further indices.
std::string superspace(int vectors, int jbt) {
  std::string lines, indices;
  for (int j = 0; j < vectors; ++j) {
    lines += "0 " + std::to_string(j + 1) + "e-1 0.25\n0 0 11.0\n";
    indices += " 1";
  }
  std::string text = lab6_kind("2 0 0 0 0 1 " + std::to_string(jbt) + " 0 0 0 0 0 " + std::to_string(vectors) +
                                   " 7 1\n0 0 0 0 0 0 0. 0. 0. 0. 0 1 0 0\n",
                               lines +
                                   "La MLA3 2 0 0 0 .35 .020833 3 0 # remark\n0 0 0 111 0\n0 0 1.5\n0 0 121\n"
                                   ".1 .2 .3 0 0 0\n0 0 0 0 0 0\n"
                                   ".01 .02 .03 .04 .05 .06\n0 131 0 0 0 0\n.1 .2 .3 .4 .5 .6\n0 0 0 0 0 0\n"
                                   "1 2 3 1 2 3\n141 0 0 0 0 0\n.5 .5 .5 1 1 1\n0 0 0 0 0 151\n"
                                   "B B 0 .2 .5 .5 .3 .125\n101\n");
  text = with(text, "P m -3 m  ", "Pnma(0,0,g)0s0  ");
  return text + "1 1 1" + indices + " .1 11.0 .2 0 .3 0\n";
}

/// A crystal's file for Laue patterns: `lines` stand in the place of the radiation line.
std::string laue(std::string_view lines) {
  std::string text = with(crystal, "0   0   0   1   0   0   0   0\n", "0   0   0   0  10   0   0   0\n");
  return before(text, "   10    0.10", lines);
}
std::string multiphase() {
  std::string text = corundum_free();
  text = with_line(text, 7, "   0   0   0   0   0   0   0   0   0   0   0   0   0   2");
  text = with_line(text, 18, "! sets\n 2\n1.54 1.54 0\nfirst.int\nsecond.int");
  text = without_lines(text, 27, 27);  // its range
  const std::size_t zero = text.find("  0.00000   31.00"), zero_end = text.find("  0.05000   41.00");
  text = text.substr(0, zero) + text.substr(zero_end);
  const std::size_t block = text.find("  1.200000E-03"), cell = text.find("    4.759200", block);
  const std::size_t pref = text.find("  0.00000  0.00000", cell), next = text.find("!-------> Profile", cell);
  return text.substr(0, block) + "900 0 0 0 0 0 1\n11 0 0 0 0 0\n0 0 0 0 0 0 0\n0 0 0 0 0 0\n" +
         text.substr(cell, text.rfind("!  Pref1", pref) - cell) + text.substr(next);
}

/// ceria with another background: its flag and the lines in the place of its own.
std::string background(std::string_view flag, std::string_view lines) {
  const std::string text = with(ceria, "0   7   1  -3", "0   7   1 " + std::string(flag));
  std::vector<std::string> all = lines_of(text);
  all.erase(all.begin() + 8, all.begin() + 12);
  all.insert(all.begin() + 8, std::string(lines));
  return join(all);
}

/// A second wavelength, shifts of the phase, microabsorption, points, entries of all kinds, remarks, limits.
std::string other_options() {
  std::string text = with(zincite, "1   6   0   0   1", "1   6   1  -1   1");
  text = with(text, "0   0   0   0   0   0   0   0   1\n", "0   0   0   2   0   0   0   0   1\n");
  text = with(text, "  1.540560  1.544390    0.5000    70.000", "  1.5 3.0 -0.5000    70.000");
  text = with(text, "       0\n  0.00000    0.00",
              "10. 12.\nAl3+ 0.1234567 0 1\n0. 10.\n0.4 5.4321\n-100.\n 0\n  0.00000    0.00");
  text = with(text, "0.00000     0.00     0\n", "1.25    41.0     1\n 0.1 11.0 0.2 0.0 0.3 -21.55\n");
  text = with(text, "0.000   0   7   0\n",
              "0.500   0   0   1\n0 0 0 0 0 1 0.1 0.2 0 0 0 0 1 0\nFILE_HKL \"my list.hkl\" 3\n");
  text = with(text, "ZnO wurtzite", "VARY xyz ZnO");
  return text +
         "0.01 0.0 -0.02 10.5 0.03 0\n0.001 0.002 0.003\n 31.0 0 0\n1 0 0.5 0.01 1 Zero\n3 -1 1\n! Pattern to plot\n "
         "20. 100. 1\n";
}

}  // namespace

std::vector<file_row> all_files() {
  const std::string pair = pairs(6);
  std::vector<file_row> rows{
      {"lab6", lab6, {"! Linear restraints", "\n   0.35000   0.10000    1   1.00000    11\n"}},
      {"corundum", corundum, {"! Distance restraints"}},
      {"series of the absorption",
       with(lab6, "0.7998    0.0000    45.000    0.0000    0.0000", "0.7998   -0.5000    45.000    0.0000    0.6250"),
       {"  -0.500000", "  0.625000"}},
      {"ceria", ceria},
      {"yttria", yttria, {"144.8450", "!      Gamma-2", "Sigma-Q", "!Absorption"}},
      {"boride", boride, {"!Nsym Cen Laue MagMat\n", "\nMSYM  u,v,w,0.00\n", "! Propagation vectors: "}},
      {"crystal", crystal, {"Num_scale", "Ext-Model"}},
      {"annealing", annealing, {"T_ini", "Weight_sim"}},
      {"zincite", zincite},
      {"anisotropic", anisotropic, {"Y66+", "S_220", "(Xi)", "\nlab.irf\n"}},
      {"two regimes", two_regimes},
      {"npro 10", npro_10(), {"alph0t"}},
      {"seven words", with(yttria, "31.00      0.0000   0.00     144.845", "31.00   144.845")},
      {"Xt", with(yttria, "0.000   0   9   0\n", "0.000   0   7   0\n"), {"  Xt  "}},
      {"energy", energy(), {"Angle"}},
      {"Q", with(ceria, "0   0   0   0   0   0\n   0   0   1", "0   0   3   0   0   0\n   0   0   1")},
      {"user profiles", user_profiles(), {"\"two words\""}},
      {"numerical profile",
       with(ceria, "\n   0   0   1   0   1", "\n  -2   0   1   0   1\nmy.spr\n! next"),
       {"my.spr"}},
      {"restraint with many terms",
       with(lab6, "   0.350000   0.100000   1     1.0000    11\n", "0.5 0 -2 1.5 3 -2 4 ! note\n")},
      {"all scales", all_scales(), {"Sc7", "(Sc7 to Sc36)"}},
      {"short scale line",
       with(crystal, "  900.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1\n", " 900. 0.5 2\n")},
      {"Monte Carlo",
       with(with(annealing, "2   3   0   0   0   0\n   0   0   1", "2   2   0   0   0   0\n   0   0   1"),
            "    20.000   0.9000   5.0000        60       0          0\n", "")},
      {"restraints", restraints(), {"BVS", "! Angle restraints"}},
      {"commands", commands(), {"\nMAGDOM x,y,z :   0.50000    151.00\n", "SOMETHING of my own\nEND\n"}},
      {"words of the name", with(ceria, "CeO2 fluorite", "CeO2 NUC_ONLY fluorite MAG_ONLY"), {"MAG_ONLY NUC_ONLY"}},
      {"second widths", with_lines(with(ceria, "    0.5000    80.000", "   -0.5000    80.000"), ".1 11.0 .2 0 .3 0\n")},
      {"split peak", with_lines(with(ceria, "0.000   0   7   0\n", "0.000   0  11   0\n"), pairs(5))},
      {"axes",
       with_lines(with(ceria, "   0   7   1  -3   0   0   0", "   0   7   1  -3   0   0   3"),
                  "2 0\n1 0 0 0.9 151.0 0.75 0\n0 0 1 0.8 0 0.3 161.0\n"),
       {"(naxes, N_Int_steps)"}},
      {"special reflections",
       with_lines(with_flags("   0   0   0 0.0 0.0 1.0   2   0   0   0   0       0.000   0   7   1\n"
                             "0 0 0 0 0 0 0. 0. 0. 0. 0 2 0 0\n"),
                  "1 1 1 0 .1 11.0 .2 0 .3 0\n2 0 0 0 .1 0 .2 0 .3 0 .4 0 .5 21.0\n"),
       {"Del_U"}},
      {"vectors with codes",
       boride_with("   0.000000   0.000000   0.500000\n       0.00       0.00       0.00\n", "0 0 0.5 0 0 1.0\n")},
      {"vectors behind", boride_with("   0.000000   0.000000   0.500000\n       0.00       0.00       0.00\n", "") +
                             "0 0 0.25 0 0 31.0\n"},
      {"opposite vectors", boride_with("0.000   1   7   0", "0.000  -1   7   0")},
      {"numbers for text", with(boride_with("SYMM  x,y,z\n", "1 0 0 0 0 1 0 0.5 0 0 1 0\n"), "MSYM  u,v,w,0.00\n",
                                "1 0 0 0 -1 0 0 0 1 0.25\n")},
      {"displacements", with(boride_with("    1    1    1    1\n", "1 1 1 1 1\n"), "MSYM  u,v,w,0.00\n",
                             "MSYM  u,-v,w+u\nDSYM u,v,w\n")},
      {"basis functions",
       with(boride_with("1.0   1   0   1   0   0 ", "1.0   1   0  -2   0   0 "),
            "    1    1    1    1\nSYMM  x,y,z\nMSYM  u,v,w,0.00\n",
            "1 1 1 2 2\n0 1\n0 0\nSYMM x,y,z\nBASR 1 0 0 0 1 0\nBASR 0 0 1 0 0 0\nBASI 0 0 0 1 0 0\n"),
       {"! Nsym Cen Laue Ireps N_Bas", "BASI 0 0 0 1 0 0"}},
      {"Hall symbol with new axes",
       with(boride, "P m -3 m             <--", "HALL -P 4 2 3 (x+1/8,y,z)  <--"),
       {"HALL -P 4 2 3 (x+1/8,y,z) <--"}},
      {"I -1 with operators", boride_with("P 1    ", "I -1   ")},
      {"magnetic group", boride_with("P 1                  <-- space group symbol\n!Nsym  Cen  Laue MagMat\n"
                                     "    1    1    1    1\nSYMM  x,y,z\nMSYM  u,v,w,0.00\n",
                                     "Mag; 5.13\n")},
      {"common list",
       common_list("Nd MND3 1 1 0 0 0 .2 .5 1 0 # CONN nd ND3+ x\n 0 0 0 61 0\n0 0 1.74 0 0 0 .25\n0 0 131 0 0 0 0\n")},
      {"common list with all",
       with(common_list("Nd MND3 1 1 0 0 0 .2 .5 3 0\n 0 0 0 61 0\n0 0 1.74 0 0 0 0\n0 0 131 0 0 0 0\n"
                        ".1 .2 .3 0 0 0\n0 0 0 0 0 0\n0 1 0 0\n1 0 0 .25\n0 0 1 0\n"),
            "1.0  10   0   1   0   0       0.000   1   7   0\n",
            "1.0  10   0   1   0   0       0.000   1   7   1\n 0 2 0 0 1 0 0 0 0 0 0 0 0 0\n") +
           "Nd 1.74 0.1\n",
       {"! Moment restraints"}},
      {"form factor",
       common_list("Nd MND3 1 1 0 0 0 .2 .5 5 0\n 0 0 0 61 0\n1 2 3 4 5 6 7\n0 0 0 0 0 0 131\n1 2 3 4 5 6 7.5\n0 0\n"
                   ".1 .2 .3 0 0 0\n0 0 0 0 0 0\n")},
      {"multipole", common_list("Nd QUAD 1 1 0 0 0 .2 .5 -4 0\n 0 0 0 61 0\n1 2\n131\n3 4\n0\n5 6\n0\n7 8\n0\n"
                                "1 2 3 4 5 6\n.5 1 1.5 2\n1 2 Nd Pr\n")},
      {"symmetry-adapted form factor",
       common_list(
           "Nd SASH 1 1 0 0 0 .2 .5 4 0\n 0 0 0 61 0\nYLMP 7\n0 0 1 2 0 1\n1 2 3 4 5 6\n0 0 0 0 0 131\n7\n0\n")},
      {"platelet", with_models(0, 0, 1, "0 0 1\n")},
      {"size list", with_models(0, 0, -2, "0 0 1 2 0 1.5 151.0\n1 0 0 2 1 2.5 0\n"), {"Selective Size"}},
      {"size form", with_models(2, 0, 0, pairs(6)), {"2hk"}},
      {"strain and size form", with_models(3, 3, 0, pairs(6) + "0.5\n0\n" + pairs(6)), {"(Laue:mmm)"}},
      {"more strain", with_models(0, 9, 0, pairs(5)), {"5 additional strain"}},
      {"harmonics of the strain", with_models(4, -2, 0, pairs(9) + "0.5\n11.0\n"), {"Y44-"}},
      {"shift by one parameter", with_shift_model(2, "")},
      {"shift list", with_shift_model(-2, "0 0 1 2 0 1.5 151.0\n1 0 0 2 1 2.5 0\n"), {"Shift integers"}},
      {"other options", other_options()},
      {"weighting and table",
       with(with(with(ceria, "0   7   1  -3   0   0   0   0   0", "0   7   1  -3   0   1   0   0   3"),
                 "\n   0   0   1", "\nWGHT 0.1 0.2 0 0 0 0.333 refine\n   0   0   1"),
            "\n      14\n", "\nce 1 2 0\n0.1 58\n1 2 3 4 5 6 7 8 9.87654\n 14\n"),
       {"WGHT", "refine"}},
      {"polynomial", background(" 0", pair)},
      {"background file", background(" 1", "0 0 0 0\n1 2 3 4")},
      {"Debye terms", background("-1", pair + pair + pair)},
      {"Fourier filter", background("-2", "1.5 3")},
      {"12 cosine terms", background("-4", pair + pair)},
      {"18 cosine terms", background("-4", pair + pair + "1 2 3 4 5 6\nCodes 11 0 0 0 0 0")},
      {"Chebychev", background("-5", pair + pair + pair + pair)},
      {"rigid bodies", rigid_bodies(), {"\nMOLE    2    2  dimer\n", "! TLS parameters: \n", "Torsion-Ang"}},
      {"rigid bodies, other sign", with(rigid_bodies(), "0 0 1 4 0", "0 0 1 -4 0")},
      {"symmetry modes", symmetry_modes(), {"V_MODES    7  max_amplitude    1.500000\n", "O_MODES    1\n"}},
      {"magnetic modes", magnetic_modes(), {"M_MODES"}},
      {"superspace", superspace(1, 7), {"Max_Qcoeff", "h   k   l  m  D-HG"}},
      {"superspace of three", superspace(3, -7), {"h   k   l  m   n   p"}},
      {"Laue, modelled spectrum",
       laue("2 7 2 3 0.05 0.6 0.01\n1 2 3 4 5 6\n7\n.1 .2 .3 .4 .5 .6\n1 2 3 4 5 6\n1 0 0.5\n"
            "one.int\ntwo.int\nVARY flux_3 abs_12 eff_1\nFIX abs_2\n"),
       {"Laue_Sets", "VARY abs_n (max: VARY abs_12)"}},
      {"Laue, histogram",
       laue("1 -1 1\nW_HISTOGRAM flux.dat\n1 2 3 4\n11 0 0 21\none.int\n"),
       {"W_HISTOGRAM flux.dat"}},
      {"multi-phase crystals", multiphase(), {"! SXtal_Sets", "second.int"}},
      {"restraint alone", corundum_free()},
  };
  const std::array<std::pair<int, int>, 8> quartic{{{1, 15}, {2, 9}, {-2, 9}, {3, 6}, {5, 4}, {7, 4}, {9, 3}, {14, 2}}};
  for (const auto& [ismo, n] : quartic) {
    rows.push_back({"strain " + std::to_string(ismo), with_models(1, ismo, 0, pairs(n) + "0.5\n11.0\n"), {"S_400"}});
  }
  const std::array<int, 8> harmonics{9, 6, 5, 4, 5, 4, 5, 3};
  for (int k = 0; k < 8; ++k) {
    rows.push_back({"size " + std::to_string(15 + k), with_models(0, 0, 15 + k, pairs(harmonics[k])), {"(Laue:"}});
  }
  const std::array<std::pair<int, int>, 8> shifts{
      {{101, 21}, {102, 13}, {-102, 13}, {103, 9}, {104, 6}, {107, 6}, {112, 5}, {113, 3}}};
  for (const auto& [ishif, n] : shifts) {
    rows.push_back({"shift " + std::to_string(ishif), with_shift_model(ishif, pairs(n)), {"D2_200"}});
  }
  return rows;
}

std::string sample(std::string_view name) {
  for (file_row& row : all_files()) {
    if (row.name == name) return std::move(row.text);
  }
  throw std::invalid_argument("no such file: " + std::string(name));
}

}  // namespace control_files

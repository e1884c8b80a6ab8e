// What is read, written and read again is the same state, field by field, and the same bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_files.hpp"

namespace {

using control_files::join;
using control_files::lines_of;
using control_files::run_directory;
using control_files::with;
using kalvaris_params::state_type;
using read_pcr_mod::write_pcr;
using testing::HasSubstr;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

constexpr std::string_view date_line = "01/02/2030  Time: 03:04:05.678";

/// A control file and words that must stand in what is written of it.
struct file_row {
  std::string name, text;
  std::vector<std::string> words = {};
};

/// The text with `added` behind the line that holds `mark`.
std::string behind(const std::string& text, std::string_view mark, std::string_view added) {
  const std::size_t at = text.find(mark);
  EXPECT_NE(at, std::string::npos) << mark;
  const std::size_t end = text.find('\n', at) + 1;
  return text.substr(0, end) + std::string(added) + text.substr(end);
}
std::string before(const std::string& text, std::string_view mark, std::string_view added) {
  const std::size_t at = text.find(mark);
  EXPECT_NE(at, std::string::npos) << mark;
  return text.substr(0, at) + std::string(added) + text.substr(at);
}

const std::string& ceria = control_files::ceria;
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
  const std::size_t at = control_files::boride.find("NdB6 magnetic");
  return control_files::boride.substr(0, at) + with(control_files::boride.substr(at), from, to);
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
    with(with(control_files::yttria, "   1   9   1   0   1", "   1  10   1   0   1"),
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
  std::string text =
      with(control_files::crystal, "  900.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1\n",
           "  900.00000    0.50000    0.25    0.125    0.5    0.5      36\n");
  return before(text, "! Extinction", pairs(30));
}

std::string restraints() {
  std::string text = with(control_files::corundum, "   2   1   0   0 ", "   2   2   1   0 ");
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

std::vector<file_row> all_files() {
  std::vector<file_row> rows{
      {"lab6", control_files::lab6, {"! Linear restraints", "\n   0.35000   0.10000    1   1.00000    11\n"}},
      {"corundum", control_files::corundum, {"! Distance restraints"}},
      {"ceria", ceria},
      {"yttria", control_files::yttria, {"144.8450", "!      Gamma-2", "Sigma-Q", "!Absorption"}},
      {"boride", control_files::boride, {"!Nsym Cen Laue MagMat\n", "\nMSYM  u,v,w,0.00\n", "! Propagation vectors: "}},
      {"crystal", control_files::crystal, {"Num_scale", "Ext-Model"}},
      {"annealing", control_files::annealing, {"T_ini", "Weight_sim"}},
      {"zincite", control_files::zincite},
      {"anisotropic", control_files::anisotropic, {"Y66+", "S_220", "(Xi)", "\nlab.irf\n"}},
      {"two regimes", two_regimes},
      {"npro 10", npro_10(), {"alph0t"}},
      {"seven words", with(control_files::yttria, "31.00      0.0000   0.00     144.845", "31.00   144.845")},
      {"Xt", with(control_files::yttria, "0.000   0   9   0\n", "0.000   0   7   0\n"), {"  Xt  "}},
      {"energy", energy(), {"Angle"}},
      {"Q", with(ceria, "0   0   0   0   0   0\n   0   0   1", "0   0   3   0   0   0\n   0   0   1")},
      {"user profiles", user_profiles(), {"\"two words\""}},
      {"numerical profile",
       with(ceria, "\n   0   0   1   0   1", "\n  -2   0   1   0   1\nmy.spr\n! next"),
       {"my.spr"}},
      {"restraint with many terms",
       with(control_files::lab6, "   0.350000   0.100000   1     1.0000    11\n", "0.5 0 -2 1.5 3 -2 4 ! note\n")},
      {"all scales", all_scales(), {"Sc7", "(Sc7 to Sc36)"}},
      {"short scale line",
       with(control_files::crystal, "  900.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1\n",
            " 900. 0.5 2\n")},
      {"Monte Carlo", with(with(control_files::annealing, "2   3   0   0   0   0\n   0   0   1",
                                "2   2   0   0   0   0\n   0   0   1"),
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

void PrintTo(const file_row& row, std::ostream* out) { *out << row.name; }

class RoundTrip : public testing::TestWithParam<file_row> {};

TEST_P(RoundTrip, GivesTheSameStateAndTheSameBytes) {
  run_directory run, again;
  run.put_named_files();
  again.put_named_files();
  const file_row& row = GetParam();
  state_type& st = run.read(row.text);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  const std::string written = write_pcr(st, date_line);
  for (const std::string& words : row.words) EXPECT_THAT(written, HasSubstr(words));
  state_type& other = again.read(written);
  ASSERT_EQ(other.fmt.ierr_fmt, 0) << again.message() << written;
  for (auto* state : {&st, &other}) {
    for (auto& atom : state->atom) atom.line_nb = 0;  // comments stand above the atoms now
  }
  EXPECT_TRUE(other.run == st.run) << written;
  EXPECT_TRUE(other.pattern == st.pattern) << written;
  EXPECT_TRUE(other.phase == st.phase) << written;
  EXPECT_TRUE(other.atom == st.atom) << written;
  EXPECT_TRUE(other.mixes == st.mixes) << written;
  EXPECT_EQ(other.io.fileres, st.io.fileres);
  EXPECT_EQ(write_pcr(other, date_line), written);
}

INSTANTIATE_TEST_SUITE_P(Files, RoundTrip, testing::ValuesIn(all_files()),
                         [](const testing::TestParamInfo<file_row>& row) {
                           std::string name = std::to_string(row.index) + "_";
                           for (const char c : row.param.name) name += std::isalnum(c) != 0 ? c : '_';
                           return name;
                         });

}  // namespace

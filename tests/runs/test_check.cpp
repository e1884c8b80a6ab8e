// --check: each finding is provoked by a change to a control file that is clean without it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "program_run.hpp"

namespace {

using program_run::directory;
using program_run::outcome;
using program_run::with;
using program_run::with_word;
using testing::HasSubstr;

using change = std::function<void(const directory&, const std::string& code)>;

/// The first `from` of the control file replaced.
change replaced(const char* from, const char* to) {
  return
      [=](const directory& w, const std::string& code) { w.put(code + ".pcr", with(w.get(code + ".pcr"), from, to)); };
}
/// A word of the control file replaced, told by the words of the line above.
change word(const char* above, std::size_t n, const char* value, std::size_t below = 1) {
  return [=](const directory& w, const std::string& code) {
    w.put(code + ".pcr", with_word(w.get(code + ".pcr"), above, below, n, value));
  };
}
change appended(const char* line) {
  return [=](const directory& w, const std::string& code) { w.put(code + ".pcr", w.get(code + ".pcr") + line + "\n"); };
}
change removed(const char* file) {
  return [=](const directory& w, const std::string&) { std::filesystem::remove(w.file(file)); };
}
change in_data(const char* from, const char* to) {
  return
      [=](const directory& w, const std::string& code) { w.put(code + ".dat", with(w.get(code + ".dat"), from, to)); };
}
change all_of(std::vector<change> changes) {
  return [changes = std::move(changes)](const directory& w, const std::string& code) {
    for (const change& c : changes) c(w, code);
  };
}
change maxs(const char* n) { return word("! Number of refined", 0, n); }

/// A resolution file with a table from 40 to 80 degrees.
void with_resolution_table(const directory& w, const std::string& code) {
  w.put("table.irf", "instrument\n2\n40.0 0.05 0.03\n80.0 0.07 0.04\n");
  std::string text = with_word(w.get(code + ".pcr"), "!Job Npr", 1, 11, "4");
  w.put(code + ".pcr", with(text, "!Iot Ipl", "table.irf\n!Iot Ipl"));
}

struct provoked {
  const char* what;
  const char* code;
  change damage;
  std::vector<std::string> words;  ///< all in one line of the report
  int status = 0;
};

const char* const cell_head = "!     a          b";
const char* const oxygen = "O      O      0.333333   0.666667      0.375        0.5   0.166667";
const char* const zno = "zno_edge";

const provoked rows[] = {
    {"a letter in a number", zno, word("!Mcycle", 0, "3x"), {"error: zno_edge.pcr, line 9: ", "Mcycle"}, 1},
    {"reading ends at an error", zno, word("!Mcycle", 0, "3x"), {"note: ", "reading ended at that error"}, 1},
    {"a flag without effect", zno, word("!Job Npr", 17, "1"), {"note: ", "Opt changes nothing"}},
    {"another wavelength in the data",
     zno,
     in_data("! x y sigma", "! calibrated wavelength = 1.2951"),
     {"warning: ", "zno_edge.dat tells another radiation", "wavelength 1.2951 (line 4) against Lambda1 1.285"}},
    {"text behind the last line", zno, appended("words of nobody"), {"note: ", "is not read (1 line): words of nobody"}},
    {"first missing data file",
     "corundum_joint",
     all_of({removed("corundum_joint_x.dat"), removed("corundum_joint_n.dat")}),
     {"error: ", "corundum_joint_x.dat does not exist"},
     1},
    {"second missing data file",
     "corundum_joint",
     all_of({removed("corundum_joint_x.dat"), removed("corundum_joint_n.dat")}),
     {"error: ", "corundum_joint_n.dat does not exist"},
     1},
    {"no data file", zno, removed("zno_edge.dat"), {"error: ", "no data file"}, 1},
    {"no background file",
     "silicon_bac",
     removed("silicon_bac.bac"),
     {"error: ", "background of pattern 1", ".bac"},
     1},
    {"no reflection file", "ceo2_lebail", word("!Nat Dis", 7, "1"), {"error: ", "reflections of phase 1", "Irf 1"}, 1},
    {"a field lost in a symbol",
     zno,
     replaced("P 63 m c ", "P 63 m   "),
     {"error: zno_edge.pcr, line 33: ", "P 63 m: 2 fields", "Nearest symbols: ", "P 63 m c"},
     1},
    {"a symbol in other letters", zno, replaced("P 63 m c ", "P 63 n c "), {"error: ", "field 2 of a hexagonal"}, 1},
    {"a symbol of no table",
     "corundum_joint",
     replaced("R -3 c  ", "R -3 c 1"),
     {"note: ", "R -3 c 1 stands in no table of settings. Its letters say R -3 c (number 167)"}},
    {"a symbol with its own origin",
     "ceo2_lebail",
     replaced("F m -3 m", "F 43 3 2"),
     {"warning: ", "Phase 1: F 43 3 2 ", "F 41 3 2 (number 210) on other axes or another origin"}},
    {"no control file", zno, removed("zno_edge.pcr"), {"error: ", "there is no control file zno_edge.pcr"}, 1},
    {"what cannot be calculated",
     "corundum_joint",
     word("!Job Npr", 12, "1"),
     {"error: ", "differences of patterns"},
     1},
    {"more parameters wanted than numbers", zno, maxs("16"), {"note: ", "Maxs is 16, the codes carry 15 different"}},
    {"numbers that stay fixed", zno, maxs("13"), {"warning: ", "not refined: 14, 15 (Cell_A_ph1_pat1, "}},
    {"a gap in the numbers, and no data",
     zno,
     all_of({replaced("71.00", " 0.00"), removed("zno_edge.dat")}),
     {"note: ", "numbers are closed: 8 to 15 -> 7 to 14; Maxs is 15"},
     1},
    {"a request without automatic codes",
     zno,
     word("O      O      0.333", 0, "1.00"),
     {"warning: ", "Aut 0", "X_O_ph1"}},
    {"equal numbers, other values",
     "corundum_joint",
     replaced("4.7605        4.7605", "4.7705        4.7705"),
     {"warning: ", "parameter 18 starts at values that do not fit", "Cell_A_ph1_pat1 = 4.7705", "4.7605"}},
    {"different quantities on one number",
     zno,
     replaced("         0.00          0.00        111.00", "  0.00 11.00 111.00"),
     {"warning: ", "parameter 1 moves quantities of different kinds: Zero_pat1 and V_ph1_pat1"}},
    {"asymmetry without its angles",
     zno,
     all_of({word("!  Pref1", 2, "161.00", 2), maxs("16")}),
     {"warning: zno_edge.pcr, line 51: ", "Asy1_ph1_pat1 refines nothing", "Rlim"}},
    {"a scale factor in profile matching",
     "ceo2_lebail",
     all_of({word("!  Scale", 0, "91.00", 2), maxs("9")}),
     {"warning: ceo2_lebail.pcr, line 27: ", "Scale_ph1_pat1 refines nothing", "profile matching"}},
    {"a fixed angle",
     zno,
     word(cell_head, 3, "141.00", 2),
     {"warning: zno_edge.pcr, line 48: ", "code on alpha refines nothing: symmetry fixes the angle"}},
    {"b without a", zno, word(cell_head, 0, "0.00", 2), {"warning: ", "code on b refines nothing: it follows a"}},
    {"b unlike a",
     zno,
     word(cell_head, 1, "3.2602"),
     {"warning: zno_edge.pcr, line 47: ", "b = 3.2602", "wants 3.2502"}},
    {"outside of the limits",
     zno,
     all_of({word("!Job Npr", 13, "1"), appended("14 3.0 3.1 0.0 0")}),
     {"warning: ", "Cell_A_ph1_pat1 (parameter 14) starts at 3.2502, outside of its limits 3 to 3.1"}},
    {"limits of nothing",
     zno,
     all_of({word("!Job Npr", 13, "1"), appended("20 3.0 3.1 0.0 0")}),
     {"warning: ", "limits of parameters that are not refined: 20"}},
    {"overall and single B",
     zno,
     all_of({word("!  Scale", 2, "161.00", 2), maxs("16")}),
     {"warning: ", "overall B and the B of every atom"}},
    {"B and betas",
     "lab6_axial",
     word("B      B  ", 3, "81.00"),
     {"warning: ", "atom B: B and the betas are refined together"}},
    {"no vibration",
     "lab6_axial",
     replaced("0.006         0.006         0.006           0.0", "0.006 0.006 0.006 0.01"),
     {"warning: ", "atom B: its betas are no vibration"}},
    {"codes of betas off their site",
     "lab6_axial",
     replaced("101.00        111.00        111.00", "111.00 111.00 101.00"),
     {"warning: ", "of its betas break the symmetry", "Write the codes"}},
    {"beside a special position",
     zno,
     replaced(oxygen, "O O 0.330000 0.666667 0.375 0.5 0.500000"),
     {"warning: zno_edge.pcr, line 37: ",
      "within 0.01 of the special position 0.333333 0.666667 0.375 (multiplicity 2)"}},
    {"digits of a special position",
     zno,
     replaced(oxygen, "O O 0.333 0.667 0.375 0.5 0.166667"),
     {"note: ", "is taken as on the special position"}},
    {"off a special position",
     zno,
     all_of({word("Zn     ZN", 0, "161.00"), maxs("16")}),
     {"warning: zno_edge.pcr, line 3", "the codes 161.00 0.00 0.00", "off its special position",
      "Write the codes 0.00 0.00 0.00"}},
    {"more than a full site",
     zno,
     replaced("0.5   0.166667", "0.5   1.000000"),
     {"warning: zno_edge.pcr, line 37: ", "filled to 600 %", "0.166667 (2/12)"}},
    {"a site partly filled", zno, replaced("0.5   0.166667", "0.5   0.150000"), {"note: ", "filled to 90 %"}},
    {"exponential model off the axis",
     "calcite_quartz",
     word("!Job Npr", 6, "0"),
     {"warning: ", "symmetry turns the direction of preferred orientation 1 0 4"}},
    {"an excluded region turned over",
     "corundum_joint",
     replaced("84.9          87.6", "87.6          84.9"),
     {"warning: ", "87.6 to 84.9 ends before it begins"}},
    {"an unknown scatterer", "nacl_gauss", replaced("Cl     CL", "Cl     QQ"), {"warning: ", "NOT FOUND for QQ"}},
    {"zero deviations",
     "ceo2_lebail",
     in_data("24.025 88 9.4459", "24.025 88 0.0"),
     {"warning: ", "ceo2_lebail.dat: variance 0: point 2"}},
    {"points out of order",
     "ceo2_lebail",
     in_data("24.025 88", "23.9 88"),
     {"warning: ", "ceo2_lebail.dat", "24.0000"}},
    {"a letter in the data",
     "ceo2_lebail",
     in_data("24.025 88", "24.025 8x"),
     {"error: ", "data of pattern 1", "line: 8"},
     1},
    {"reflections outside of a table",
     zno,
     with_resolution_table,
     {"warning: ", "table of the resolution file table.irf (40 to 80)"}},
    {"no resolution file",
     zno,
     all_of({with_resolution_table, removed("table.irf")}),
     {"error: ", "The IRF file: table.irf does not exist"},
     1},
};

void PrintTo(const provoked& row, std::ostream* out) { *out << row.what; }

class Check : public testing::TestWithParam<provoked> {};

TEST_P(Check, FindsWhatAChangeProvokes) {
  const provoked& row = GetParam();
  const directory where(row.code);
  row.damage(where, row.code);
  const auto files = where.names();
  const outcome run = where.run(row.code, "", {"--check"});
  EXPECT_EQ(run.status, row.status) << run.console;
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(where.names(), files);
  const auto lines = program_run::lines_of(run.console);
  EXPECT_TRUE(std::ranges::any_of(lines,
                                  [&](const std::string& line) {
                                    return std::ranges::all_of(row.words, [&](const std::string& w) {
                                      return line.find(w) != std::string::npos;
                                    });
                                  }))
      << testing::PrintToString(row.words) << "\n"
      << run.console;
}

INSTANTIATE_TEST_SUITE_P(Rows, Check, testing::ValuesIn(rows), [](const testing::TestParamInfo<provoked>& row) {
  std::string name = row.param.what;
  std::erase_if(name, [](char c) { return c == ',' || c == '.'; });
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
});

TEST(CheckOfCleanFiles, FindsNothingAndWritesNothing) {
  for (const std::string& code : program_run::case_names()) {
    SCOPED_TRACE(code);
    const directory where(code);
    where.put(code + ".pcr", with(where.get(code + ".pcr"), "\n", " print_pcr\n"));
    const auto files = where.names();
    const outcome run = where.run(code, "", {"--check"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.console, code + ".pcr: 0 errors, 0 warnings, 0 notes\n");
    EXPECT_EQ(where.names(), files);
  }
}

}  // namespace

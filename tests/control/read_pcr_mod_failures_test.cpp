#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "control_files.hpp"

namespace {

using control_files::run_directory;
using control_files::with;
using control_files::with_line;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string at_line(int n) {
  const std::string number = std::to_string(n);
  return " => Please check your input file at line: " + std::string(6 - number.size(), ' ') + number + " !\n";
}

struct failure_row {
  std::string text;
  int ierr_fmt;
  std::string words;  ///< a part of the message
  int line;           ///< line that it names, 0 none
};

void expect_failure(run_directory& run, const failure_row& row) {
  SCOPED_TRACE(row.words);
  EXPECT_EQ(run.read(row.text).fmt.ierr_fmt, row.ierr_fmt);
  EXPECT_THAT(run.message(), HasSubstr(row.words));
  if (row.line > 0) {
    EXPECT_THAT(run.message(), EndsWith(at_line(row.line)));
  }
}

const std::string& lab6 = control_files::lab6;
const std::string& ceria = control_files::ceria;
const std::string free_lab6 = control_files::lab6_free();

TEST(ReadPcrFailure, ShortForm) {
  const auto job = [](std::string_view from, std::string_view to) { return with(free_lab6, from, to); };
  const std::string flags = "   0   7   1   0   1   0   0   0   0   0   0   0   0   0   0   0   0   0   0";
  const auto flag = [&](int k, int value) {
    std::string changed = flags, number = std::to_string(value);
    changed.replace(static_cast<std::size_t>(4 * k), 4, std::string(4 - number.size(), ' ') + number);
    return with(free_lab6, flags, changed);
  };
  const auto phase_of = [&](int jbt, int irf, int isym, int istr, int nvk, int npr) {
    std::ostringstream out;
    out << "2 0 0 0 0 1 " << jbt << ' ' << irf << ' ' << isym << ' ' << istr << " 0 0.0 " << nvk << ' ' << npr << " 0";
    return out.str();
  };
  const std::string phase = "   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0";
  const std::string more = "2 0 0 0.0 0.0 1.0 0 0 0 0 0 0.0 0 7 1\n";
  const auto phase_line = [&](std::string_view line) { return with(free_lab6, phase, line); };
  run_directory run;
  for (const failure_row& row : std::vector<failure_row>{
           {flag(0, 5), 100, "unknown kind of job", 3},
           {flag(2, 17), 100, "number of phases must lie in 0..16", 3},
           {flag(2, -1), 100, "number of phases must lie in 0..16", 3},
           {flag(3, 378), 100,
            "Number of backg. points/pattern:  378\n Maximum Number of backg. points/pattern:  377\n Too many", 0},
           {flag(3, -378), 100, " Too many background points \n", 0},
           {flag(4, 31), 100, "  Maximum number of excl. regions/pattern:    30\n Too many excluded regions \n", 0},
           {flag(4, -1), 100, "number of excluded regions is negative", 3},
           {flag(5, 31), 100, "number of scattering entries must lie in -30..30", 3},
           {flag(6, 4), 100, "unknown model of preferred orientation (Nor)", 3},
           {flag(8, 4), 100, "unknown weighting (Iwg)", 3},
           {flag(9, 7), 100, "unknown geometry (Ilo)", 3},
           {flag(16, 3), 100, "unknown corrections from a file (Cor)", 3},
           {flag(12, -1), 100, "the reduction of the number of points (Ste) is negative", 3},
           {flag(13, 501), 100, "number of parameters with limits must lie in 0..500", 3},
           {flag(14, 5), 100, "mode of the run (Cry) must lie in -4..4", 3},
           {flag(15, 5), 100, "unknown abscissa (Uni)", 3},
           {flag(0, -1), 100, "unknown kind of job", 3},
           {flag(1, 14), 100, "unknown peak shape (Npr)", 3},
           {flag(15, 10), 3, "integer field found real", 7},  // where the line of the Laue patterns stands
           {flag(11, 1), 100, "The IRF file: ", 0},
           {job("   0   7   1   0", "   0   7 1.5   0"), 3, "integer field found real", 3},
           {job("   0   7   1   0", "99999999999 7 1 0"), 2, "read error", 3},
           {job("  1.540560  1.544390", "  1.5405x0  1.544390"), 7, "invalid character in a numeric field", 7},
           {job("  1.540560  1.544390", "  0.0       1.544390"), 100, "the wavelength is not positive", 7},
           {job("  1.540560  1.544390", "  1e99      1.544390"), 2, "read error", 7},
           {job("  1.540560  1.544390", "  nan       1.544390"), 7, "", 7},
           {job("\n      16\n", "\n     501\n"), 100, "number of refined parameters must lie in 0..500", 13},
           {job("\n      16\n", "\n      -1\n"), 100, "number of refined parameters must lie in 0..500", 13},
           {job("0.00000     0.00     0", "0.00000     0.00     4"), 100, "flag More must lie in 0..3", 15},
           {phase_line("   0   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0"), 100,
            "intensities without atoms for phase 1\n  Introduce atoms or,", 0},
           {phase_line(" 831   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0"), 100,
            "number of atoms must lie in 0..830", 22},
           {phase_line(phase_of(8, 0, 0, 0, 0, 7)), 100, "unknown kind of phase (Jbt 8)", 22},
           {phase_line(phase_of(7, 0, 0, 0, 4, 7)), 100, "number of modulation vectors must lie in 1..3", 22},
           {phase_line(phase_of(0, 5, 0, 0, 0, 7)), 100, "reflection list (Irf) must lie in -4..4", 22},
           {phase_line(phase_of(0, 0, 3, 0, 0, 7)), 100, "kind of symmetry (Isy) must lie in -2..2", 22},
           {phase_line(phase_of(0, 0, 0, 5, 0, 7)), 100, "unknown strain model: Str must lie in 0..4", 22},
           {phase_line(phase_of(0, 0, 0, 0, 385, 7)), 100, "number of propagation vectors must lie in", 22},
           {phase_line(phase_of(0, 0, 0, 0, 0, 14)), 100, "peak shape (Npr) must lie in 0..13", 22},
           {job("0.00000   0.00000        0\n", "0.00000   0.00000       15\n"), 100, "unknown strain model", 34},
           {job("0.000000     0.000000        0\n", "0.000000     0.000000       23\n"), 100, "unknown size model", 37},
           {job("   0   1  10   0", "  51   1  10   0"), 100, "number of linear restraints must lie in 0..50", 5},
           {phase_line("2 9999 0 0.0 0.0 1.0 0 0 0 0 0 0.0 0 7 0"), 100, "number of distance restraints must lie in",
            22},
           {phase_line("2 0 9999 0.0 0.0 1.0 0 0 0 0 0 0.0 0 7 0"), 100, "number of angle restraints must lie in", 22},
           {phase_line(more + "0 0 0 0 9999 0 0. 0. 0. 0. 0 0 0 0"), 100, "number of moment restraints must lie in",
            23},
           {phase_line(more + "0 0 0 0 0 0 0. 0. 0. 0. 0 0 0 37"), 100, "number of domains must lie in 0..36", 23},
           {phase_line(more + "0 0 0 0 0 0 0. 0. 0. 0. 0 339 0 0"), 100,
            "number of special reflections must lie in 0..338", 23},
           {phase_line(phase + "\nFILE_HKL"), 100, "the name of the reflection file is missing", 23},
           {phase_line(phase + "\nFILE_HKL 2 a.hkl"), 100, "pattern number must lie in 1..1", 23},
           {phase_line(phase + "\nFILE_HKL a.hkl x"), 100, "the phase number of the reflection file cannot be read",
            23},
           {job("P m -3 m  ", "<"), 100, "the symbol is missing", 23},
           {job("P m -3 m  ", "P m -4 m  "), 100, "space group of phase: 1", 23},
           {job("P m -3 m  ", "-P 4 2 3  "), 100, "\n        A Hall symbol is written HALL -P 4 2 3\n", 23},
           {job("La     LA     0.0", "my.spr\n! 0.0"), 100, "the scattering species of atom my.spr (Typ) is missing",
            25},
           {job("0.020833   0   0   0", "0.020833   0   0   1"), 100, "this kind of atom is not available (N_t 1)", 25},
           {job("0.020833   0   0   0", "0.020833   1  49   0"), 100,
            "operator numbers (In, Fin) do not name operators", 25},
           {job("    0.006000    -0.004000     0.003500     0.008000     0.015000", "0 0 0 0 0"), 100,
            " Zero half-width parameters for phase  1 and NO resolution-file provided! \n", 0},
           {job("    4.156890    4.156890    4.156890   90", "    0.156890   -4.156890    4.156890   90"), 100,
            " => Error in the cell line of phase: 1 pattern: 1\n    a cell length is not positive", 40},
           {job("   90.000000\n", "  190.000000\n"), 100, "a cell angle does not lie between", 40},
       }) {
    expect_failure(run, row);
  }
}

TEST(ReadPcrFailure, LongForm) {
  run_directory run;
  const std::string text = control_files::corundum_free();
  expect_failure(run, {text, 100, "The data file: al2o3_x.dat does not exist! -> Pattern#  1", 0});
  EXPECT_TRUE(run.state->io.file_error);
  run.put("al2o3_x.dat", "");
  expect_failure(run, {text, 100, "The data file: al2o3_n.dat does not exist! -> Pattern#  2", 0});
  run.put("al2o3_n.dat", "");
  for (const failure_row& row : std::vector<failure_row>{
           {with(text, "NPATT  2", "NPATT 81"), 100, "number of patterns must lie in 1..80", 2},
           {with(text, "NPATT  2   1  1", "NPATT x"), 100, "the number of patterns cannot be read", 2},
           {with_line(text, 8, "1 7 0 1 0 0 0 0 0 0 10 0 0 0"), 100, "take one pattern", 8},
           {with_line(text, 8, "1 7 0 1 0 0 0 0 0 0 0 0 0 3"), 100,
            "flags of pattern: 2\n    unknown kind of data (Int)", 8},
           {with_line(text, 5, "   1   0   0   0   1   0   0"), 100, "take one pattern", 5},
           {with_line(text, 41, "1 2"), 100, "contribution must lie in 0..1", 41},
           {with(text, "   2   0   0   0   0   0   0  ", "   0   0   0   0   0   0   0  "), 100,
            "for phase 1 and pattern #1", 0},
           {with(text, "     20.000    130.000      1", "20. 130. 3"), 100, "pattern number must lie in 1..2", 77},
       }) {
    expect_failure(run, row);
  }
}

TEST(ReadPcrFailure, LimitsOfParameters) {
  run_directory run;
  const std::string base = with(ceria, "0   7   1  -3   0   0   0   0   0   0   0   0   0   0",
                                "0   7   1  -3   0   0   0   0   0   0   0   0   0   2");
  const auto limits = [&](const char* lines) { return base + "! limits\n" + lines; };
  auto& st = run.read(limits("1 0. 0.5 0.04 1 Zero name\n\n 2 0 1\n"));
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  ASSERT_EQ(st.run.limits.size(), 2u);
  EXPECT_EQ(st.run.limits[0].name, "Zero name");
  EXPECT_FLOAT_EQ(st.run.limits[0].step, 0.04f);
  expect_failure(run, {limits("1 0.5 0.1\n2 0 1\n"), 100, "lower limit above upper limit", 26});
  expect_failure(run, {limits("501 0 1\n2 0 1\n"), 100, "parameter number out of range", 26});
  expect_failure(run, {limits("-1 0 1\n2 0 1\n"), 100, "parameter number out of range", 26});
  expect_failure(run, {limits("0 0.5 0.1\n2 0 1\n"), 100, "lower limit above upper limit", 26});
  EXPECT_EQ(run.read(limits("0 0 1\n0 0 1\n")).fmt.ierr_fmt, 0);  // limits that wait for a number
  expect_failure(run, {limits("2 0 1\n2 0 1\n"), 100, "were given before", 27});
  expect_failure(run, {limits("2 0 1\n"), -1, " => The control file ends before: limits of a parameter", 0});
}

TEST(ReadPcrFailure, LineNumbersCountCommentsAndBlankLines) {
  run_directory run;
  const std::string text = with(free_lab6, "! Number of refined parameters (maxs)\n", "! one\n\n# two\n\t! three\n\n");
  expect_failure(run, {with(text, "\n      16\n", "\n      x6\n"), 7, "'x6'", 17});
  expect_failure(run, {with(text, "P m -3 m ", "\n!\nQ m -3 m "), 100, "space group", 29});
  expect_failure(run, {with(text, "0.35000   0.020833", "0.35000   0,020833"), 7, "", 29});
}

/// A file cut behind any line is either complete or is told where it ends; cut in the middle of a line it may be read
/// wrongly but never breaks the program.
TEST(ReadPcrFailure, EveryCutHasItsMessage) {
  run_directory run;
  run.put_named_files();
  for (const std::string& text :
       {free_lab6, control_files::corundum_free(), ceria, control_files::zincite, control_files::lab6,
        control_files::corundum, control_files::yttria, control_files::boride, control_files::crystal,
        control_files::annealing, control_files::anisotropic}) {
    const std::vector<std::string> lines = control_files::lines_of(text);
    int last_needed = 0;
    for (std::size_t n = 1; n <= lines.size(); ++n) {
      const std::string head = control_files::join({lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(n)});
      const int ierr = run.read(head).fmt.ierr_fmt;
      if (ierr == 0) continue;
      last_needed = static_cast<int>(n);
      EXPECT_EQ(ierr, -1) << n << run.message();
      EXPECT_THAT(run.message(), HasSubstr(" => The control file ends before: ")) << n;
      (void)run.read(head.substr(0, head.size() - 4));
    }
    EXPECT_GE(last_needed, static_cast<int>(lines.size()) - 3);
  }
}

}  // namespace

// What a user has written beside the fields stays in the rewritten file, and what does not fit is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "control_files.hpp"
#include "pcr_explain.hpp"

namespace {

using control_files::join;
using control_files::lab6_free;
using control_files::lines_of;
using control_files::run_directory;
using control_files::with;
using control_files::without_lines;
using kalvaris_params::state_type;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view date_line = "01/02/2030  Time: 03:04:05.678";

/// The line below the first one that begins with the words; blank when there is none.
std::string line_below(const std::string& text, std::string_view words) {
  const auto lines = lines_of(text);
  const auto found = std::ranges::find_if(lines, [&](const std::string& l) { return l.starts_with(words); });
  return found == lines.end() || found + 1 == lines.end() ? "" : *(found + 1);
}

std::size_t count_of(const std::string& text, std::string_view words) {
  std::size_t n = 0;
  for (const std::string& line : lines_of(text)) n += line.starts_with(words) ? 1 : 0;
  return n;
}

/// lab6 with comments of a user and headers of other hands.
std::string commented() {
  std::string text = with(lab6_free(), "!Job Npr",
                          "! my sample 3, measured 2/3\n! Current global Chi2 (Bragg contrib.) = 7.5\n!JOB  npr NPH");
  text = with(text, "P m -3 m", "! group of the paper\nP m -3 m");
  text = with(text, "B      B ", "!--- boron, see the note\n!Atom Typ X Y Z Biso\nB      B ");
  text = with(text, "        0.00         0.00       151.00",
              "! widths of the standard\n        0.00         0.00       151.00");
  return text + "! the end\n";
}

TEST(CommentsOfTheUser, StayWhereTheyStoodAndThoseOfTheProgramAreRenewed) {
  run_directory run;
  state_type& st = run.read(commented());
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  st.mix(0, 0).par[kalvaris_params::slot::scale] = 3.f;
  const std::string written = read_pcr_mod::write_pcr(st, date_line);
  EXPECT_THAT(line_below(written, "! my sample 3"), testing::StartsWith("!Job Npr"));
  EXPECT_THAT(line_below(written, "! group of the paper"), testing::StartsWith("P m -3 m"));
  EXPECT_THAT(line_below(written, "!--- boron"), testing::StartsWith("B "));
  EXPECT_THAT(line_below(written, "! widths of the standard"), HasSubstr("151.00"));
  EXPECT_EQ(lines_of(written).back(), "! the end") << written;
  EXPECT_EQ(count_of(written, "!Atom"), 1u) << written;
  EXPECT_EQ(count_of(written, "!JOB"), 0u);
  EXPECT_THAT(written, Not(HasSubstr("7.5")));
  const std::string again = read_pcr_mod::write_pcr(run.read(written), date_line);
  EXPECT_EQ(again, written);
}

TEST(CommentsOfTheUser, LeaveTheFlagsAmongTheFirstTenLines) {
  run_directory run;
  std::string many;
  for (int i = 0; i < 12; ++i) many += "! remark " + std::to_string(i) + "\n";
  std::string written = with(lab6_free(), "!Job Npr", many + "!Job Npr");
  for (int pass = 0; pass < 2; ++pass) {
    state_type& st = run.read(written);
    st.run.cycles_done = 1, st.run.t_chi2 = 2.f;
    written = read_pcr_mod::write_pcr(st, date_line);
    const auto lines = lines_of(written);
    const auto job = std::ranges::find_if(lines, [](const std::string& l) { return l.starts_with("!Job"); });
    EXPECT_LT(job - lines.begin(), 9) << written;
    EXPECT_EQ(count_of(written, "! remark"), 12u);
  }
}

TEST(CommentsOfTheUser, FindTheirPlaceInAFileThatIsWrittenOtherwise) {
  // a form that the program does not write: a key line of the plotted range without an exclamation mark
  run_directory run;
  const std::string text =
      with(lab6_free(), "La     LA", "! lanthanum\nLa     LA") + "Pattern to plot\n20 30 1\n! last\n";
  const std::string written = read_pcr_mod::write_pcr(run.read(text), date_line);
  EXPECT_THAT(line_below(written, "! lanthanum"), testing::StartsWith("La "));
  EXPECT_EQ(lines_of(written).back(), "! last") << written;
}

TEST(TextLeftOver, IsToldAndStaysInTheFile) {
  run_directory run;
  const std::string second = "Second phase\n! its flags\n   1   0   0\nF m -3 m\n";
  for (const char* plot : {"", "!  t1_lim      t2_lim   Pattern to plot\n     20.0000     30.0000    1\nmy notes\n"}) {
    state_type& st = run.read(lab6_free() + second + plot);
    ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    const std::string lines = *plot ? "(4 lines): Second phase" : "(3 lines): Second phase";
    EXPECT_THAT(run.console.str(), HasSubstr("Note: from line 45 on the control file is not read " + lines));
    EXPECT_THAT(run.console.str(), HasSubstr("(Nph 1, Nli 0, Nre 0)"));
    const std::string written = read_pcr_mod::write_pcr(st, date_line);
    EXPECT_THAT(written, HasSubstr("Second phase\n! its flags\n1   0   0\nF m -3 m\n"));
    EXPECT_EQ(count_of(written, "my notes"), *plot ? 1u : 0u);
    EXPECT_EQ(read_pcr_mod::write_pcr(run.read(written), date_line), written);
  }
  run.read(lab6_free());
  EXPECT_EQ(run.console.str(), "");
}

TEST(OutOfStep, IsToldWhereItBegins) {
  const std::string lab6 = lab6_free();
  const std::string flags = "   2   0   0 0.0 0.0 1.0";
  struct row {
    const char* what;
    std::string text, message, told;
  };
  for (const row& t : {
           row{"one atom too many", with(lab6, flags, "   3   0   0 0.0 0.0 1.0"),
               "Expected in field 2: Typ, scattering species", "number 3 of the 3 atoms of the phase (Nat 3)"},
           row{"the same with short numbers",
               with(with(lab6, flags, "   3   0   0 0.0 0.0 1.0"), "  2.500000E-03   0.00000", "  2.5   0.0"),
               "the scattering species (Typ) of an atom expected, the number 0.0 found", "number 3 of the 3 atoms"},
           row{"one atom too few", with(lab6, flags, "   1   0   0 0.0 0.0 1.0"), "Expected in field 1: Scale",
               "what stands behind the 1 atoms of the phase (Nat 1)"},
           row{"codes of the widths left out", without_lines(lab6, 38, 38), "The control file ends before",
               "line 39 was read as codes of "},
           row{"one phase too many", with(lab6, "   0   7   1   0   1", "   0   7   2   0   1"),
               "The control file ends before", "number 2 of the 2 phases (Nph 2)"},
       }) {
    SCOPED_TRACE(t.what);
    run_directory run;
    EXPECT_NE(run.read(t.text).fmt.ierr_fmt, 0);
    EXPECT_THAT(run.message(), HasSubstr(t.message));
    EXPECT_THAT(run.console.str(), HasSubstr("Warning! The lines may be out of step: "));
    EXPECT_THAT(run.console.str(), HasSubstr(t.told));
  }
}

TEST(MagneticDomains, AreExplainedWithTheirCodes) {
  run_directory run;
  pcr_lines::record kept;
  const std::string text = with(lab6_free(), "LaB6\n!Nat",
                                "LaB6\nCOMMANDS\nMAGDOM x, y, z : 0.5 171.00\nMAGDOM -x,-y,z : 0.5 0.00\nEND\n!Nat");
  state_type& st = run.read(text, &kept);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  EXPECT_FLOAT_EQ(st.phase[0].magdom[0].value[1], 0.5f);
  EXPECT_FLOAT_EQ(st.phase[0].magdom[0].code_read[1], 171.f);
  EXPECT_THAT(pcr_explain::explanation({st, text, kept, false}), HasSubstr("parameter 17, multiplier 1"));
}

}  // namespace

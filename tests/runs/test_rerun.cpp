// What a run leaves for the next one: the control file with the refined values, or code.new when it got worse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "program_run.hpp"

namespace {

using kalvaris_params::state_type;
using program_run::directory;
using program_run::with_word;
using testing::HasSubstr;
using testing::Not;

constexpr const char* chi2_line = "! Current global Chi2 (Bragg contrib.) =";
constexpr const char* maxs_line = "! Number of refined parameters";

/// Three digits, as the listing shows them.
std::string three_digits(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", static_cast<double>(value));
  return text;
}

std::vector<std::string> r_factors(const state_type& st) {
  std::vector<std::string> found;
  for (const auto& p : st.pattern) {
    found.push_back(three_digits(p.all.r_patt));
    found.push_back(three_digits(p.all.r_wpatt));
  }
  return found;
}

/// Its intensities start anew in every run, so that one cycle does not find them again.
constexpr const char* profile_matching = "ceo2_lebail";

std::vector<std::string> structure_cases() {
  auto names = program_run::case_names();
  std::erase(names, profile_matching);
  return names;
}

class Rerun : public testing::TestWithParam<std::string> {
 protected:
  std::string code() const { return GetParam(); }
  std::string control() const { return code() + ".pcr"; }
  std::string data() const { return code() + ".dat"; }
  bool matching() const { return code() == profile_matching; }
};

class RerunWithoutCycles : public Rerun {};

TEST_P(RerunWithoutCycles, TheWrittenFileHoldsTheModelOfTheLastListing) {
  const directory where(code());
  const auto first = where.run_and_keep(code(), data());
  ASSERT_TRUE(first.reached_end) << first.console;
  where.put(control(), with_word(where.get(control()), maxs_line, 1, 0, "0"));
  const auto second = where.run_and_keep(code(), data());
  ASSERT_TRUE(second.reached_end) << second.console;
  EXPECT_EQ(second.state->run.cycles_done, 1);
  EXPECT_EQ(second.state->run.maxs, 0);
  EXPECT_EQ(r_factors(*second.state), r_factors(*first.state));
}

TEST_P(Rerun, ARefinementFromItsOwnResultStaysThere) {
  const directory where(code());
  const auto first = where.run_and_keep(code(), data());
  ASSERT_TRUE(first.reached_end) << first.console;
  const auto second = where.run_and_keep(code(), data());
  ASSERT_TRUE(second.reached_end) << second.console;
  const int n = first.state->run.maxs;
  ASSERT_EQ(second.state->run.maxs, n);
  if (!matching()) {
    EXPECT_LE(second.state->run.cycles_done, 3);
  }
  // A shift below eps = 0.01 of the deviation ends a run, and damping may leave a few times that.
  const double of_sigma = matching() ? 0.3 : 0.03;
  for (std::size_t i = 1; i <= static_cast<std::size_t>(n); ++i) {
    EXPECT_NEAR(second.state->parm.valx[i], first.state->parm.valx[i], of_sigma * first.state->parm.svalx[i])
        << first.state->parm.nampar[i];
  }
}

const auto name_of_case = [](const testing::TestParamInfo<std::string>& row) { return row.param; };
INSTANTIATE_TEST_SUITE_P(Cases, Rerun, testing::ValuesIn(program_run::case_names()), name_of_case);
INSTANTIATE_TEST_SUITE_P(Cases, RerunWithoutCycles, testing::ValuesIn(structure_cases()), name_of_case);

class ControlFileOfTheNextRun : public testing::Test {
 protected:
  ControlFileOfTheNextRun() : where("nacl_gauss"), start(where.get("nacl_gauss.pcr")) {}
  std::string now() const { return where.get("nacl_gauss.pcr"); }
  void start_from(const std::string& text) {
    start = text;
    where.put("nacl_gauss.pcr", text);
  }
  /// Files of which no run may leave any: temporaries beside the control file.
  void expect_no_strangers() const {
    for (const std::string& name : where.names()) {
      const std::string extension = std::filesystem::path(name).extension();
      EXPECT_THAT(
          (std::vector<std::string>{".pcr", ".dat", ".ref", ".json", ".txt", ".out", ".sum", ".prf", ".new", ".bak"}),
          testing::Contains(extension))
          << name;
    }
  }

  directory where;
  std::string start;
};

TEST_F(ControlFileOfTheNextRun, ReplacesTheOldOneWhole) {
  ASSERT_EQ(where.run("nacl_gauss").status, 0);
  EXPECT_FALSE(where.has("nacl_gauss.new"));
  expect_no_strangers();
  const auto before = program_run::lines_of(start), after = program_run::lines_of(now());
  EXPECT_EQ(after.front(), before.front());
  EXPECT_THAT(after[1], testing::StartsWith(chi2_line));
  EXPECT_EQ(after.size(), before.size() + 3) << "three comments at the top, the rest line by line";
  EXPECT_EQ(std::stoi(after[program_run::line_with(after, maxs_line) + 1]), 12);
}

TEST_F(ControlFileOfTheNextRun, IsSparedWhenChiSquareRoseByMoreThanAFifth) {
  start_from(program_run::with(start, "\n", std::string("\n") + chi2_line + "  0.0100\n"));
  const auto run = where.run("nacl_gauss");
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.console, HasSubstr("final(Chi2) > 1.2*initial(Chi2)"));
  EXPECT_EQ(now(), start);
  expect_no_strangers();
  // The new file is a control file like any other, with the chi-square of this run: it is taken up as it stands.
  const std::string result = where.get("nacl_gauss.new");
  start_from(result);
  std::filesystem::remove(where.file("nacl_gauss.new"));
  const auto again = where.run("nacl_gauss");
  EXPECT_EQ(again.status, 0);
  EXPECT_THAT(again.console, Not(HasSubstr("extension NEW")));
  EXPECT_FALSE(where.has("nacl_gauss.new"));
  EXPECT_NE(now(), start);
}

TEST_F(ControlFileOfTheNextRun, IsNotWrittenWithoutTheFlagNxt) {
  start_from(with_word(start, "!Iot Ipl Ipc Mat Nxt", 1, 4, "0"));
  EXPECT_EQ(where.run("nacl_gauss").status, 0);
  EXPECT_EQ(now(), start);
  EXPECT_FALSE(where.has("nacl_gauss.new"));
}

TEST_F(ControlFileOfTheNextRun, GoesToCodeNewWithNxtTwo) {
  start_from(with_word(start, "!Iot Ipl Ipc Mat Nxt", 1, 4, "2"));
  EXPECT_EQ(where.run("nacl_gauss").status, 0);
  EXPECT_EQ(now(), start);
  EXPECT_THAT(where.get("nacl_gauss.new"), HasSubstr("NaCl halite"));
}

TEST(FilesOfARun, AreListingSummaryPlotFilesAndTheOldControlFileAndNoOthers) {
  struct row {
    const char* code;
    std::vector<std::string> left;
  };
  for (const row& t : {row{"nacl_gauss", {"nacl_gauss.out", "nacl_gauss.pcr.bak", "nacl_gauss.prf", "nacl_gauss.sum"}},
                       row{"corundum_joint",
                           {"corundum_joint.out", "corundum_joint.pcr.bak", "corundum_joint.sum",
                            "corundum_joint_1.prf", "corundum_joint_2.prf"}}}) {
    const directory where(t.code);
    const auto before = where.names();
    ASSERT_EQ(where.run(t.code).status, 0);
    std::vector<std::string> left;
    for (const std::string& name : where.names())
      if (std::find(before.begin(), before.end(), name) == before.end()) left.push_back(name);
    EXPECT_EQ(left, t.left);
  }
}

TEST(FilesOfARun, PrintTheFactorsOfTheLastCycle) {
  const directory where("nacl_gauss");
  const auto run = where.run_and_keep("nacl_gauss");
  ASSERT_TRUE(run.reached_end);
  const std::string listing = where.get("nacl_gauss.out");
  const auto last = listing.substr(listing.rfind("RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS"));
  for (const std::string& factor : r_factors(*run.state)) EXPECT_THAT(last, HasSubstr(factor));
  EXPECT_THAT(last, HasSubstr("=> Run finished at:"));
  EXPECT_THAT(where.get("nacl_gauss.sum"), HasSubstr("=> Run finished at:"));
}

}  // namespace

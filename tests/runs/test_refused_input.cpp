// Bad input of every kind: what the program says, how it ends, and that the user's control file stays as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "program_run.hpp"

namespace {

using program_run::directory;
using program_run::outcome;
using program_run::with;
using program_run::with_word;
using testing::HasSubstr;

constexpr const char* flags = "!Job Npr Nph";
constexpr const char* output_flags = "!Iot Ipl Ipc";
constexpr const char* cycles = "!Mcycle";
constexpr const char* maxs = "! Number of refined";
constexpr const char* widths = "!       U            V";

/// A case whose files are changed before a run by the command line; the control file must then stay as it is.
struct bad_input {
  const char* what;
  std::function<void(const directory&)> damage;
  std::vector<std::string> words;  ///< expected on console or standard error, all of them
  int status = 1;
  std::vector<std::string> options = {};
  std::string code = "nacl_gauss";
};

/// Changes the control file of nacl_gauss.
std::function<void(const directory&)> control_changed(std::function<std::string(const std::string&)> change) {
  return [change = std::move(change)](const directory& where) {
    where.put("nacl_gauss.pcr", change(where.get("nacl_gauss.pcr")));
  };
}

/// One blank-separated word of the control file replaced, told by the words of the line above.
std::function<void(const directory&)> word(const char* above, std::size_t n, const char* value, std::size_t below = 1) {
  return control_changed([=](const std::string& text) { return with_word(text, above, below, n, value); });
}

std::function<void(const directory&)> replaced(const char* from, const char* to) {
  return control_changed([=](const std::string& text) { return with(text, from, to); });
}

/// Changes the data file of nacl_gauss: one header line, ten counts to a line.
std::function<void(const directory&)> data_changed(std::function<std::string(const std::string&)> change) {
  return [change = std::move(change)](const directory& where) {
    where.put("nacl_gauss.dat", change(where.get("nacl_gauss.dat")));
  };
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n') + 1); }

/// Data line n (0-based, behind the header) with its first count replaced.
std::function<void(const directory&)> count_replaced(std::size_t n, const char* value) {
  return data_changed([=](const std::string& text) {
    auto lines = program_run::lines_of(text);
    std::string& line = lines.at(n + 1);
    line = value + line.substr(line.find(' '));
    return program_run::join(lines);
  });
}

std::function<void(const directory&)> both(const std::function<void(const directory&)>& one,
                                           const std::function<void(const directory&)>& other) {
  return [=](const directory& where) { one(where), other(where); };
}

std::function<void(const directory&)> header(const char* text_of_header) {
  return data_changed([=](const std::string& text) { return text_of_header + text.substr(text.find('\n')); });
}

/// A second phase like the first, their scales being the only parameters.
std::string two_equal_phases(const std::string& text) {
  auto lines = program_run::lines_of(with_word(with_word(text, flags, 1, 2, "2"), maxs, 1, 0, "2"));
  for (std::string& line : lines) {
    if (line.find(".00") == std::string::npos || line.starts_with("!")) continue;
    for (int number = 12; number > 0; --number) {
      const std::string code = std::to_string(10 * number + 1) + ".00";
      for (auto at = line.find(code); at != std::string::npos; at = line.find(code))
        line.replace(at, code.size(), number == 8 ? "11.0" : "0.00");
    }
  }
  const auto phase = static_cast<std::ptrdiff_t>(program_run::line_with(lines, "! Data for PHASE"));
  std::vector<std::string> second(lines.begin() + phase, lines.end());
  for (std::string& line : second)
    if (line.find("11.0 ") != std::string::npos) line.replace(line.find("11.0 "), 4, "21.0");
  lines.insert(lines.end(), second.begin(), second.end());
  return program_run::join(lines);
}

/// The background alone, its shift a thousand times too long.
std::string shifts_too_long(const std::string& text) {
  std::string t = with(with(text, "0.0 11.00", "0.0  0.00"), "21.00 ", "11.00 ");
  return with_word(with_word(t, maxs, 1, 0, "1"), cycles, 1, 5, "1000.0");
}

/// A thirteenth parameter: x of an atom that a centre of symmetry holds.
std::string coordinate_at_a_centre(const std::string& text) {
  return with_word(with_word(text, maxs, 1, 0, "13"), "Na     NA", 1, 0, "131.00");
}

void leave_request(const directory& where, std::string_view words) { where.put("kalvaris.tmp", words); }

// What is done, the words that must come, how the program ends.
const bad_input rows[] = {
    {"no data file",
     [](const directory& w) { std::filesystem::remove(w.file("nacl_gauss.dat")); },
     {"Error opening file", "CODEFIL=nacl_gauss"}},
    {"no control file",
     [](const directory& w) { std::filesystem::remove(w.file("nacl_gauss.pcr")); },
     {"Error opening file: nacl_gauss.pcr"}},
    {"no such group", replaced("F m -3 m ", "F q -3 m "), {"Wrong space-group symbol: F q -3 m", "line:     21"}},
    {"a letter in a code", replaced("121.00        121.00", "121.0o        121.00"), {"line:     36"}},
    {"a letter in a value", replaced("0.0429", "0.x429"), {"line:     29"}},
    {"a letter in a flag", word(flags, 2, "one"), {"line:      3"}},
    {"not a number in a value", replaced("0.0429", "nan   "), {"line:     29"}},
    {"infinity in a value", replaced("5.6425 ", "inf    "), {"line:     35"}},
    {"17 phases", word(flags, 2, "17"), {"number of phases must lie in 0..16"}},
    {"378 background points", word(flags, 3, "378"), {"Too many background points", "377"}},
    {"31 excluded regions", word(flags, 4, "31"), {"Too many excluded regions", "30"}},
    {"zero widths",
     control_changed([](const std::string& t) {
       return with_word(with_word(with_word(t, widths, 1, 0, "0.0"), widths, 1, 1, "0.0"), widths, 1, 2, "0.0");
     }),
     {"Zero half-width parameters for phase"}},
    {"number above maxparam",
     replaced("121.00        121.00", "9990.1        9990.1"),
     {"Error in a code:      9990.10", "The maximum number of parameters is:    500"}},
    {"maxs below zero", word(maxs, 0, "-3"), {"number of refined parameters must lie in 0..500"}},
    {"unknown job", word(flags, 0, "7"), {"unknown kind of job (Job)"}},
    {"unknown layout of data", word(output_flags, 10, "77"), {"Invalid INSTR parameter"}},
    {"empty data file",
     data_changed([](const std::string&) { return std::string(); }),
     {"nacl_gauss.dat holds no data", "End of file *.DAT"}},
    {"data end after their header",
     data_changed(first_line),
     {"nacl_gauss.dat, line: 1: the data end, intensity 1 of 3268 expected"}},
    {"data end in a line",
     data_changed([](const std::string& t) { return t.substr(0, t.size() / 2); }),
     {"nacl_gauss.dat, line: 159: the data end, intensity 1573 of 3268"}},
    {"step of zero", header("20.0 0.0 118.01"), {"line: 1: the step is 0.00000, a positive number expected"}},
    {"negative step", header("20.0 -0.03 118.01"), {"line: 1: the step is -0.3"}},
    {"minute step", header("20.0 1e-9 118.01"), {"Program can handle      80000 points", "Too many points"}},
    {"not a number in a header", header("nan 0.03 118.01"), {"line: 1, column: 1: \"nan\" found"}},
    {"letter in the data", count_replaced(50, "17x"), {"line: 52, column: 1: \"17x\" found, intensity 501 of 3268"}},
    {"not a number in the data", count_replaced(50, "nan"), {"line: 52, column: 1: \"nan\" found"}},
    {"infinity in the data", count_replaced(50, "inf"), {"line: 52, column: 1: \"inf\" found"}},
    {"infinity among deviations",
     [](const directory& w) { w.put("ceo2_lebail.dat", with(w.get("ceo2_lebail.dat"), "\n24.1 ", "\n24.1 inf ")); },
     {"ceo2_lebail.dat", "line"},
     1,
     {},
     "ceo2_lebail"},
    {"no data of the second pattern",
     [](const directory& w) { std::filesystem::remove(w.file("corundum_joint_n.dat")); },
     {"The data file: corundum_joint_n.dat does not exist! -> Pattern#  2"},
     1,
     {},
     "corundum_joint"},
    {"all points excluded",
     control_changed([](const std::string& t) {
       auto lines = program_run::lines_of(with_word(t, flags, 1, 4, "1"));
       lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(program_run::line_with(lines, cycles)) + 2,
                    "0.0 180.0");
       return program_run::join(lines);
     }),
     {"NO REFLECTIONS FOUND"}},
    {"more parameters than points",
     both(header("27.2 0.03 27.47"), data_changed([](const std::string& t) {
            const auto lines = program_run::lines_of(t);
            return program_run::join({lines[0], lines[1]});
          })),
     {"Too few points under reflections in pattern:   1 points:     10 parameters:    12"},
     3,
     {"--strict"}},
    {"a parameter without effect",
     control_changed(coordinate_at_a_centre),
     {"Singular matrix!!, problem with X_Na_ph1", "13"},
     0},
    {"the same, strictly", control_changed(coordinate_at_a_centre), {"Singular Matrix!!"}, 3, {"--strict"}},
    {"two parameters with one effect", control_changed(two_equal_phases), {"Singular Matrix!!", "Scale_ph2_pat1"}},
    {"start from infinite intensities",
     replaced("1.0   0.020833", "-9999 0.020833"),
     {"Strong DIVERGENCE!!, at cycle no.:   1", "not finite: reflection 1 1 1 of phase 1 in pattern 1"},
     0},
    {"stop request",
     [](const directory& w) { leave_request(w, "KALVARIS STOP REQUIRED\n"); },
     {"KALVARIS INTERRUPTED"}},
};

void PrintTo(const bad_input& row, std::ostream* out) { *out << row.what; }

class RefusedInput : public testing::TestWithParam<bad_input> {};

TEST_P(RefusedInput, EndsWithItsWordsAndLeavesTheControlFile) {
  const directory where(GetParam().code);
  const std::string control = GetParam().code + ".pcr";
  GetParam().damage(where);
  const bool there = where.has(control);
  const std::string before = where.get(control);
  const outcome run = where.run(GetParam().code, "", GetParam().options);
  EXPECT_EQ(run.status, GetParam().status);
  for (const std::string& expected : GetParam().words) {
    EXPECT_NE(run.words().find(expected), std::string::npos) << expected << "\nThe run said at its end:\n"
                                                             << run.last_words();
  }
  EXPECT_EQ(where.has(control), there);
  EXPECT_TRUE(where.get(control) == before) << "the control file was changed";
  EXPECT_FALSE(where.has(GetParam().code + ".new"));
}

INSTANTIATE_TEST_SUITE_P(Rows, RefusedInput, testing::ValuesIn(rows), [](const testing::TestParamInfo<bad_input>& row) {
  std::string name = row.param.what;
  std::erase_if(name, [](char c) { return c == ',' || c == '.'; });
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
});

// --- Files cut short -------------------------------------------------------------------------------------------------

class CutControlFile : public testing::TestWithParam<std::string> {};

TEST_P(CutControlFile, IsRefusedWithWhatIsMissingWhereverItIsCut) {
  const directory where(GetParam());
  const std::string control = GetParam() + ".pcr", whole = where.get(control);
  const auto lines = program_run::lines_of(whole);
  for (std::size_t n = 0; n < lines.size(); ++n) {
    SCOPED_TRACE("cut after line " + std::to_string(n));
    const std::string cut = program_run::join({lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(n)});
    where.put(control, cut);
    const outcome run = where.run(GetParam());
    EXPECT_EQ(run.status, 1);  // each line is needed, the last one too
    EXPECT_THAT(run.words(),
                HasSubstr(n == 0 ? "Error reading the *.PCR at the first line" : "The control file ends before: "));
    EXPECT_TRUE(where.get(control) == cut);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, CutControlFile, testing::ValuesIn(program_run::case_names()),
                         [](const testing::TestParamInfo<std::string>& row) { return row.param; });

// --- Not refused -----------------------------------------------------------------------------------------------------

TEST(OrderlyEnd, ShiftsThrownTooFarAreTakenBack) {
  const directory where("nacl_gauss");
  control_changed(shifts_too_long)(where);
  const outcome run = where.run("nacl_gauss", "", {"--strict"});
  EXPECT_NE(run.console.find("is restored, damping"), std::string::npos) << run.last_words();
  EXPECT_EQ(run.errors.find("DIVERGENCE"), std::string::npos);
}

TEST(OrderlyEnd, RequestToFinishEndsAfterThePresentCycle) {
  const directory where("nacl_gauss");
  where.put("kalvaris.tmp", "KALVARIS FINISH REQUIRED\n");
  const std::string before = where.get("nacl_gauss.pcr");
  const auto run = where.run_and_keep("nacl_gauss");
  EXPECT_TRUE(run.reached_end);
  EXPECT_EQ(run.state->run.cycles_done, 1);
  EXPECT_NE(where.get("nacl_gauss.pcr"), before);
  EXPECT_TRUE(where.has("kalvaris.tmp"));
}

TEST(OrderlyEnd, UnknownScattererIsNamedWithItsAtomAndLineAndTheRunGoesOn) {
  const directory where("nacl_gauss");
  auto lines = program_run::lines_of(with(where.get("nacl_gauss.pcr"), "Cl     CL", "Cl     QQ"));
  const auto line = program_run::line_with(lines, "Cl     QQ");
  where.put("nacl_gauss.pcr", with_word(program_run::join(lines), maxs, 1, 0, "0"));
  const outcome run = where.run("nacl_gauss");
  EXPECT_THAT(run.console, testing::ContainsRegex("NOT FOUND for QQ .atom Cl, line +" + std::to_string(line + 1)));
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.console, HasSubstr("Normal end"));
}

TEST(OrderlyEnd, NothingRefinedTakesOneCycle) {
  const directory where("nacl_gauss");
  where.put("nacl_gauss.pcr", with_word(where.get("nacl_gauss.pcr"), maxs, 1, 0, "0"));
  const auto run = where.run_and_keep("nacl_gauss");
  EXPECT_TRUE(run.reached_end);
  EXPECT_EQ(run.state->run.cycles_done, 1);
  EXPECT_EQ(run.state->parm.valx.size(), 1u);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "command_line.hpp"
#include "pcr_explain.hpp"
#include "program_stages.hpp"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string content_of(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

struct answer {
  int status = 0;
  std::string out, err;
};

/// A directory with control files, gone with the object.
class workplace {
 public:
  workplace() {
    std::string name = (std::filesystem::temp_directory_path() / "explainXXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~workplace() { std::filesystem::remove_all(path_); }
  workplace(const workplace&) = delete;
  workplace& operator=(const workplace&) = delete;

  [[nodiscard]] answer run(const std::string& control_file, std::vector<std::string> options) const {
    std::ofstream(path_ / "case.pcr", std::ios::binary) << control_file;
    options.push_back((path_ / "case").string());
    std::ostringstream out, err;
    const int status = command_line::run(options, program_stages::stages(), "0", out, err);
    return {status, out.str(), err.str()};
  }
  [[nodiscard]] std::size_t files() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
  }

 private:
  std::filesystem::path path_;
};

const std::filesystem::path root = KV_SOURCE_DIR;

std::string example() { return content_of(root / "examples/corundum_fluorite/corundum_fluorite.pcr"); }

std::string with(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

/// The indented lines below line `number`.
std::string told_of(const std::string& explanation, int number) {
  const std::string mark = "\n" + std::string(number < 10 ? "    " : "   ") + std::to_string(number) + " | ";
  const std::size_t at = explanation.find(mark);
  if (at == std::string::npos) return "no line " + std::to_string(number);
  const std::size_t begin = explanation.find('\n', at + 1) + 1, end = explanation.find(" | ", begin);
  return explanation.substr(begin, end - begin);
}

/// Blocks of the document that hold control files.
std::vector<std::string> files_of(const std::string& document) {
  std::vector<std::string> files;
  constexpr std::string_view open = "```pcr\n";
  for (std::size_t at = 0; (at = document.find(open, at)) != std::string::npos;) {
    at += open.size();
    files.push_back(document.substr(at, document.find("```", at) - at));
  }
  return files;
}

TEST(ControlDocument, HoldsTheTablesThatTheReaderWalks) {
  const std::string document = content_of(root / "docs/control-file.md");
  const std::size_t begin = document.find("-->\n\n", document.find("<!-- begin:")) + 5,
                    end = document.find("<!-- end -->");
  EXPECT_EQ(document.substr(begin, end - begin), pcr_explain::reference())
      << "renew it with scripts/control_reference PROGRAM";
}

TEST(ControlDocument, ItsFilesRunAndAreExplained) {
  const auto files = files_of(content_of(root / "docs/control-file.md"));
  ASSERT_EQ(files.size(), 2u);
  for (const std::string& file : files) {
    const workplace place;
    const answer explained = place.run(file, {"--explain"});
    EXPECT_EQ(explained.status, 0) << explained.out;
    EXPECT_EQ(place.files(), 1u) << "nothing may be written";
    const answer calculated = place.run(file, {});
    EXPECT_EQ(calculated.status, 0) << calculated.out << calculated.err;
  }
}

TEST(Explanation, RepeatsEachLineAndNamesItsValuesAndParameters) {
  const answer got = workplace().run(example(), {"--explain"});
  ASSERT_EQ(got.status, 0) << got.err;
  std::istringstream file(example());
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    EXPECT_THAT(got.out, HasSubstr(std::to_string(number) + " | " + line + "\n"));
  }
  struct told_row {
    int line;
    const char* words;
  };
  // the third number of the flags, a chosen value in words, units, codes shared by phases, the cell tied by symmetry
  for (const told_row& row :
       {told_row{3, "Nph   2     number of phases\n"},
        {3, "peak shape, unless a phase has its own -> pseudo-Voigt of Thompson, Cox and Hastings"},
        {7, "Lambda1  1.54056  wavelength [angstrom]\n"},
        {13, "code  11.00    parameter 1 Zero_pat1\n"},
        {24, "Z     61.00  parameter 6 Z_Al_ph1\n"},
        {24, "fixed: X, Y, Occ\n"},
        {25, "as line 23: Atom O, Typ O, X 0.302 a"},
        {33, "W       111.00  parameter 11 "},
        {36, "Cell_F  0.00    parameter 13 Cell_A_ph1_pat1 (by VARY or the symmetry)"}}) {
    EXPECT_THAT(told_of(got.out, row.line), HasSubstr(row.words)) << row.line;
  }
}

TEST(Explanation, FollowsWhatTheFileAsksFor) {
  struct asked_row {
    const char *from, *to;
    int line;
    const char* words;
  };
  for (const asked_row& row : {
           // a code above Maxs, a code that the cell does not keep, a multiplier, a field left out
           asked_row{"\n      21\n", "\n      20\n", 59, "which is not refined: Maxs is 20"},
           {"131.00        131.00        141.00          0.00", "131.00        131.00        141.00        141.00", 36,
            "not refined: FIX, the symmetry, the model or the task holds it"},
           {"171.00", "-170.50", 47, "parameter 17 Biso_Ca_ph2, multiplier -0.5"},
           {"2 0 0 0.0 0.0 1.0 0 0 0 0 0 0.000 0 7 0\n", "2 0 0 0.0 0.0 1.0\n", 20,
            "Jbt    -     kind of structure -> crystal"},
       }) {
    const answer got = workplace().run(with(example(), row.from, row.to), {"--explain"});
    EXPECT_THAT(told_of(got.out, row.line), HasSubstr(row.words)) << row.to;
  }
}

TEST(Explanation, TellsOfAMissingFileAtItsLineAndGoesOn) {
  std::string file = content_of(root / "tests/runs/truth/corundum_joint/corundum_joint.pcr");
  const answer whole = workplace().run(file, {"--explain"});
  EXPECT_EQ(whole.status, 0) << whole.out;
  EXPECT_THAT(told_of(whole.out, 10),
              HasSubstr("The data file: corundum_joint_x.dat does not exist! -> Pattern#  1\n"));
  EXPECT_THAT(told_of(whole.out, 11),
              HasSubstr("The data file: corundum_joint_n.dat does not exist! -> Pattern#  2\n"));
  EXPECT_THAT(whole.out, HasSubstr("Refined parameters and the lines of their codes:"));

  file = with(with(example(), "  0   7   2   0   0   0   1   0   0   0   1   0 ",
                   "  0   7   2   0   0   0   1   0   0   0   1   4 "),
              "!Iot", "none.irf\n!Iot");
  const answer without_resolution = workplace().run(file, {"--explain"});
  EXPECT_EQ(without_resolution.status, 0) << without_resolution.out;
  EXPECT_THAT(told_of(without_resolution.out, 4), HasSubstr("The IRF file: none.irf does not exist! -> Pattern#  1\n"));
  EXPECT_THAT(without_resolution.out, HasSubstr("Refined parameters and the lines of their codes:"));
}

TEST(Explanation, EndsAtTheFaultWithItsMessage) {
  const answer got = workplace().run(with(example(), "61.00      71.00", "61.00      7x.00"), {"--explain"});
  EXPECT_EQ(got.status, 1);
  EXPECT_THAT(got.out, HasSubstr("24 |                   0.00"));
  EXPECT_THAT(got.out, Not(HasSubstr("25 | O ")));
  EXPECT_THAT(got.out, HasSubstr(" => Expected in field 4: code of Biso, isotropic displacement B (number)\n"
                                 " => Please check your input file at line:     24 !\n"));
}

}  // namespace

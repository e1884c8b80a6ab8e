// Files as people write them: however a value is spelled and a line is ended, the same state is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "control_files.hpp"
#include "sample_files.hpp"

namespace {

using control_files::join;
using control_files::lines_of;
using control_files::run_directory;
using kalvaris_params::state_type;

/// The text with each line of numbers changed. Lines of text are those with a letter that is no exponent.
std::string with_number_lines(const std::string& text, std::string (*change)(std::string)) {
  std::vector<std::string> lines = lines_of(text);
  const std::regex numbers(R"(^[ \t]*([-+.0-9eE]+[ \t]*)+$)");
  for (std::size_t n = 1; n < lines.size(); ++n) {
    if (std::regex_match(lines[n], numbers)) lines[n] = change(lines[n]);
  }
  return join(lines);
}
std::string replaced(const std::string& text, const char* what, const char* by) {
  return std::regex_replace(text, std::regex(what), by);
}

struct spelling {
  const char* name;
  std::string (*of)(const std::string&);
};
const std::vector<spelling> spellings{
    {"tabs", [](const std::string& text) { return replaced(text, "  +(?=[-0-9.])", "\t"); }},
    {"DOS line ends", [](const std::string& text) { return replaced(text, "\n", "\r\n"); }},
    {"byte-order mark", [](const std::string& text) { return "\xEF\xBB\xBF" + text; }},
    {"all of these",
     [](const std::string& text) {
       return "\xEF\xBB\xBF" + replaced(replaced(text, "  +(?=[-0-9.])", " \t "), "\n", " \r\n");
     }},
    {"no end of the last line", [](const std::string& text) { return text.substr(0, text.size() - 1); }},
    {"comments behind the numbers",
     [](const std::string& text) {
       return with_number_lines(text, [](std::string line) { return line + " ! note, 1"; });
     }},
    {"other comments behind the numbers",
     [](const std::string& text) {
       return with_number_lines(text, [](std::string line) { return line + "\t# 2 note"; });
     }},
    {"comments and blank lines between the lines",
     [](const std::string& text) { return replaced(text, "\n", "\n! note\n\n \t\n   ! 1 2 3\n"); }},
    {"missing trailing numbers",
     [](const std::string& text) {
       return with_number_lines(text,
                                [](std::string line) { return replaced(line, "(\\S)(\\s+-?[0.]+)+\\s*$", "$1"); });
     }},
    {"Fortran exponents",
     [](const std::string& text) {
       return with_number_lines(text, [](std::string line) {
         return replaced(replaced(line, "E-0", "D-"), "(\\.[0-9]+)(?=\\s|$)", "$1d+00");
       });
     }},
    {"bare points and signs",
     [](const std::string& text) {
       return with_number_lines(text, [](std::string line) {
         return replaced(replaced(line, "\\.0+(?=\\s|$)", "."), "(^|\\s)(-?)0\\.(?=[0-9])", "$1$2.");
       });
     }},
    {"no blanks in front", [](const std::string& text) { return replaced(text, "\n +", "\n"); }},
};

/// What was read, without the numbers of the lines on which the atoms stood.
bool same(state_type& a, state_type& b) {
  for (auto* st : {&a, &b}) {
    for (auto& atom : st->atom) atom.line_nb = 0;
  }
  return a.run == b.run && a.pattern == b.pattern && a.phase == b.phase && a.atom == b.atom && a.mixes == b.mixes;
}

TEST(UserFiles, AreReadHoweverTheyAreSpelled) {
  run_directory run, other;
  run.put_named_files();
  other.put_named_files();
  for (const char* file : {"lab6", "corundum", "ceria", "boride", "crystal", "anisotropic", "rigid bodies",
                           "symmetry modes", "superspace", "Laue, modelled spectrum", "restraints"}) {
    const std::string text = control_files::sample(file);
    state_type& plain = run.read(text);
    for (const spelling& s : spellings) {
      SCOPED_TRACE(std::string(file) + ", " + s.name);
      const std::string spelled = s.of(text);
      EXPECT_NE(spelled, text);
      state_type& st = other.read(spelled);
      ASSERT_EQ(st.fmt.ierr_fmt, 0) << other.message() << spelled;
      EXPECT_TRUE(same(plain, st)) << spelled;
    }
  }
}

}  // namespace

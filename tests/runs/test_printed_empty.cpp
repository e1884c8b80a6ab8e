// Runs in which something is missing: no file that they leave holds what is not a number.
#include <regex>

#include "printed_pair.hpp"

namespace {

using namespace printed_pair;

struct row {
  const char* what;
  std::string (*change)(std::string);
};

std::string replaced(std::string text, std::initializer_list<std::pair<const char*, const char*>> rows) {
  for (const auto& [from, to] : rows) text = program_run::with(text, from, to);
  return text;
}
/// Nothing is refined.
std::string as_it_stands(const std::string& text) { return replaced(text, {{"\n41\n", "\n0\n"}}); }

const std::vector<row>& rows() {
  static const std::vector<row> all{
      {"no background between narrow peaks",
       [](std::string text) {
         return replaced(as_it_stands(text), {{"160.0 -60.0 25.0", "0 0 0"},
                                              {"11.0 120.0", "11.0 0"},
                                              {"45.0 100.0", "45.0 0"},
                                              {"70.0  90.0", "70.0 0"},
                                              {"90.0  95.0", "90.0 0"},
                                              {"110.0 105.0", "110.0 0"},
                                              {"50.0       8.0", "50.0       3.0"}});
       }},
      {"a phase without reflections",
       [](std::string text) {
         return replaced(as_it_stands(text),
                         {{"8.0830 8.0830 8.0830", "0.7 0.7 0.7"}, {"8.0830 8.0830 8.0830", "0.7 0.7 0.7"}});
       }},
      {"scales of 0",
       [](std::string text) {
         return replaced(as_it_stands(text), {{"\n0.02 0.0 0.15", "\n0.0 0.0 0.15"}, {"\n12.0 0.25", "\n0.0 0.25"}});
       }},
      {"all scales of 0",
       [](std::string text) {
         return replaced(as_it_stands(text), {{"\n0.02 0.0 0.15", "\n0.0 0.0 0.15"},
                                              {"\n12.0 0.25", "\n0.0 0.25"},
                                              {"\n1.2 0.25", "\n0.0 0.25"},
                                              {"\n0.6 0.0", "\n0.0 0.0"}});
       }},
      {"a pattern that takes no part",
       [](std::string text) {
         return replaced(text, {{"NPATT 2 1 1", "NPATT 2 1 0"}});
       }},
  };
  return all;
}

TEST(PrintedEmpty, NoFileHoldsWhatIsNotANumber) {
  const directory where;
  make_data(where);
  for (const row& t : rows()) {
    SCOPED_TRACE(t.what);
    where.put("pair.pcr", t.change(control_file()));
    const auto run = where.run("pair");
    EXPECT_EQ(run.status, 0) << run.last_words();
    const std::regex no_number("(^|[^a-z])(nan|inf|infinity)([^a-z]|$)", std::regex::icase);
    for (const std::string& name : where.names())
      for (const std::string& line : program_run::lines_of(where.get(name)))
        EXPECT_FALSE(std::regex_search(line, no_number)) << name << ": " << line;
    for (const std::string& line : program_run::lines_of(run.console))
      EXPECT_FALSE(std::regex_search(line, no_number)) << line;
  }
}

}  // namespace

#include "pcr_explain.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>

#include "control_files.hpp"
#include "lmix_text_input.hpp"
#include "sample_files.hpp"

namespace {

class Explained : public testing::TestWithParam<control_files::file_row> {};

/// Whatever line and model a file holds: each line that is no comment is told, and each of its fields has a meaning.
TEST_P(Explained, EveryLineToItsLastField) {
  const std::string& text = GetParam().text;
  control_files::run_directory run;
  run.put_named_files();
  pcr_lines::record kept;
  kalvaris_params::state_type& st = run.read(text, &kept);
  ASSERT_EQ(st.fmt.ierr_fmt, 0) << run.message();
  const std::vector<std::string> lines = control_files::lines_of(text);
  std::size_t next = 0;
  for (int number = 1; number <= kept.last; ++number) {
    const std::string& line = lines[static_cast<std::size_t>(number - 1)];
    const bool told = next < kept.lines.size() && kept.lines[next].number == number;
    const bool comment = lmix_text_input::is_blank_or_comment(line) && number > 1;
    if (!comment) {
      EXPECT_TRUE(told && !kept.lines[next].entries.empty()) << number << ": " << line;
    }
    if (told) ++next;
  }
  EXPECT_EQ(next, kept.lines.size()) << "the kept lines stand in the order of the file";
  for (const auto& line : kept.lines) {
    for (const auto& e : line.entries) {
      const bool row = e.kind == pcr_fields::kind::plain;
      const auto slot = slot_text::describe(st, e.slot);
      EXPECT_FALSE(row ? e.what.meaning.empty() : slot.meaning.empty())
          << line.number << ' ' << line.name << ' ' << (row ? std::string(e.what.name) : slot.name);
    }
  }
  EXPECT_THAT(pcr_explain::explanation({st, text, kept}), testing::HasSubstr("-- " + kept.lines.back().name));
}

INSTANTIATE_TEST_SUITE_P(Files, Explained, testing::ValuesIn(control_files::all_files()),
                         [](const testing::TestParamInfo<control_files::file_row>& row) {
                           std::string name = std::to_string(row.index) + "_";
                           for (const char c : row.param.name) name += std::isalnum(c) != 0 ? c : '_';
                           return name;
                         });

}  // namespace

// What is read, written and read again is the same state, field by field, and the same bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_files.hpp"
#include "sample_files.hpp"

namespace {

using control_files::file_row;
using control_files::run_directory;
using kalvaris_params::state_type;
using read_pcr_mod::write_pcr;
using testing::HasSubstr;

constexpr std::string_view date_line = "01/02/2030  Time: 03:04:05.678";

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
  EXPECT_EQ(other.io.filedat, st.io.filedat);
  EXPECT_EQ(write_pcr(other, date_line), written);
}

INSTANTIATE_TEST_SUITE_P(Files, RoundTrip, testing::ValuesIn(control_files::all_files()),
                         [](const testing::TestParamInfo<file_row>& row) {
                           std::string name = std::to_string(row.index) + "_";
                           for (const char c : row.param.name) name += std::isalnum(c) != 0 ? c : '_';
                           return name;
                         });

}  // namespace

#include "lmix_text_input.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "../own_directory.hpp"

namespace {

using lmix_text_input::text_source;

std::vector<std::string> all_lines(text_source& source) {
  std::vector<std::string> lines;
  while (const auto line = source.next()) lines.emplace_back(*line);
  return lines;
}

TEST(TextInput, LinesOfEveryEnding) {
  struct row {
    std::string text;
    std::vector<std::string> lines;
  };
  const std::string long_line(100000, 'x');
  const std::vector<row> rows{
      {"", {}},
      {"\n", {""}},
      {"a", {"a"}},
      {"a\n", {"a"}},
      {"a\r\nb\r\n", {"a", "b"}},
      {"a\n\nb\r", {"a", "", "b"}},
      {"\r\n\r\n", {"", ""}},
      {"\xEF\xBB\xBFtitle\n1", {"title", "1"}},
      {"\xEF\xBB\xBF", {}},
      {"\xEF\xBB", {"\xEF\xBB"}},
      {long_line + "\n 2", {long_line, " 2"}},
      {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text.substr(0, 20));
    text_source source = text_source::from_string(r.text);
    EXPECT_EQ(all_lines(source), r.lines);
    EXPECT_EQ(source.lines_taken(), static_cast<int>(r.lines.size()));
    EXPECT_FALSE(source.next());
    EXPECT_EQ(source.lines_taken(), static_cast<int>(r.lines.size()));
  }
}

TEST(TextInput, PeekTakesNothingAndAPlaceCanBeGivenBack) {
  text_source source = text_source::from_string("one\n  ! note\n\n\t# note\n  two\nthree");
  EXPECT_EQ(source.peek(), "one");
  EXPECT_EQ(source.peek_value(), "one");
  EXPECT_EQ(source.next(), "one");
  const text_source::mark place = source.save();
  EXPECT_EQ(source.peek(), "  ! note");
  EXPECT_EQ(source.peek_value(), "  two");
  EXPECT_EQ(source.lines_taken(), 1);
  EXPECT_EQ(all_lines(source).size(), 5u);
  EXPECT_EQ(source.peek_value(), std::nullopt);
  source.restore(place);
  EXPECT_EQ(source.lines_taken(), 1);
  EXPECT_EQ(source.next(), "  ! note");
  source.restore({1000000, 7});
  EXPECT_FALSE(source.next());
}

TEST(TextInput, ViewsOutliveAMoveOfTheSource) {
  text_source source = text_source::from_string("ab");
  const auto line = source.next();
  const text_source moved = std::move(source);
  EXPECT_EQ(line, "ab");
}

TEST(TextInput, AFileReadsAsItsText) {
  const std::string path = own_directory() + "text_input.txt";
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "line " + std::to_string(i) + "\r\n";
  std::ofstream(path, std::ios::binary) << "\xEF\xBB\xBF" << text;
  text_source source = text_source::from_file(path, 4);
  ASSERT_TRUE(source.ok());
  EXPECT_EQ(source.unit(), 4);
  int n = 0;
  while (const auto line = source.next()) ASSERT_EQ(*line, "line " + std::to_string(n++));
  EXPECT_EQ(n, 100000);
}

TEST(TextInput, AFileThatCannotBeReadSaysWhy) {
  const text_source missing = text_source::from_file(own_directory() + "no_such_file");
  EXPECT_EQ(missing.status(), ENOENT);
  EXPECT_FALSE(missing.peek());
  EXPECT_FALSE(missing.status_text().empty());
  const text_source folder = text_source::from_file(own_directory());
  EXPECT_EQ(folder.status(), EISDIR);
}

}  // namespace

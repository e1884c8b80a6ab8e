// The table of failure texts (tests/failure_texts.md) against the tests that it names and the reader's own refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::filesystem::path root = KV_SOURCE_DIR;

std::string content(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

struct table_row {
  std::string text, suite, test, file;
};

/// The rows "| `text` | Suite.Test | file |".
std::vector<table_row> table() {
  std::vector<table_row> rows;
  std::istringstream lines(content(root / "tests/failure_texts.md"));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.rfind("` | ");
    if (!line.starts_with("| `") || end == std::string::npos) continue;
    std::istringstream rest(line.substr(end + 4));
    std::string test, bar, file;
    rest >> test >> bar >> file;
    const std::size_t dot = test.find('.');
    rows.push_back({line.substr(3, end - 3), test.substr(0, dot), test.substr(dot + 1), file});
  }
  return rows;
}

TEST(FailureTexts, EachStandsInTheTestThatTheTableNames) {
  const std::vector<table_row> rows = table();
  EXPECT_GT(rows.size(), 200u);
  std::map<std::string, std::string> files;
  for (const table_row& row : rows) {
    SCOPED_TRACE(row.text);
    auto& source = files[row.file];
    if (source.empty()) source = content(root / row.file);
    const std::string name = "(" + row.suite + ", " + row.test + ") {";
    const bool found = source.find("\nTEST" + name) != std::string::npos ||
                       source.find("\nTEST_F" + name) != std::string::npos ||
                       source.find("\nTEST_P" + name) != std::string::npos;
    EXPECT_TRUE(found) << row.suite << '.' << row.test << " is not in " << row.file;
    EXPECT_NE(source.find(row.text), std::string::npos) << "is not in " << row.file;
  }
}

/// Longest text between quotes in the call that begins behind `at`; its brackets tell where the call ends.
std::string longest_literal(const std::string& source, std::size_t at) {
  std::string longest;
  for (int depth = 1; depth > 0 && at < source.size(); ++at) {
    if (source[at] == '(') ++depth;
    if (source[at] == ')') --depth;
    if (source[at] != '"') continue;
    const std::size_t end = source.find('"', at + 1);
    if (end - at - 1 > longest.size()) longest = source.substr(at + 1, end - at - 1);
    at = end;
  }
  return longest;
}

TEST(FailureTexts, EachRefusalOfTheReaderIsInTheTable) {
  const std::vector<table_row> rows = table();
  int refusals = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root / "src/control")) {
    if (!entry.path().filename().string().starts_with("read_pcr_mod")) continue;
    const std::string source = content(entry.path());
    for (const std::string call : {"refuse(", "fail_here(", "in_range(", "fail_of_phase(", "warn("}) {
      for (std::size_t at = source.find(call); at != std::string::npos; at = source.find(call, at + 1)) {
        const std::string text = trimmed(longest_literal(source, at + call.size()));
        if (text.empty()) continue;
        ++refusals;
        EXPECT_TRUE(std::ranges::any_of(rows,
                                        [&](const table_row& row) {
                                          const std::string known = trimmed(row.text);
                                          return known.find(text) != std::string::npos ||
                                                 text.find(known) != std::string::npos;
                                        }))
            << entry.path().filename() << ": " << text;
      }
    }
  }
  EXPECT_GT(refusals, 80);
}

}  // namespace

// One word of a control file made wrong: the reader says so at the right line, or reads a file that it can write again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "control_check.hpp"
#include "lmix_fixed_format.hpp"
#include "sample_files.hpp"

namespace {

using control_files::run_directory;

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

bool all_numbers(const std::vector<std::string>& words) {
  return std::all_of(words.begin(), words.end(), [](const std::string& word) {
    float number = 0.f;
    return lmix_fixed_format::parse_real(word, number);
  });
}

struct mutation {
  const char* what;
  bool refused;  ///< nothing but numbers may stand where the word stands
  std::vector<std::string> (*of)(std::vector<std::string>, std::size_t);
};
template <char... letters>
std::vector<std::string> replaced(std::vector<std::string> words, std::size_t k) {
  words[k] = std::string{letters...};
  return words;
}
const std::vector<mutation> mutations{
    {"deleted", false,
     [](std::vector<std::string> words, std::size_t k) {
       words.erase(words.begin() + static_cast<std::ptrdiff_t>(k));
       return words;
     }},
    {"doubled", false,
     [](std::vector<std::string> words, std::size_t k) {
       words.insert(words.begin() + static_cast<std::ptrdiff_t>(k), words[k]);
       return words;
     }},
    {"letter", true, replaced<'x'>},
    {"huge", true, replaced<'1', 'e', '9', '9', '9'>},
    {"NaN", true, replaced<'N', 'a', 'N'>},
};

int line_of(const std::string& message) {
  constexpr std::string_view words = "at line: ";
  const std::size_t at = message.rfind(words);
  return at == std::string::npos ? 0 : std::atoi(message.c_str() + at + words.size());
}

/// All of them when KV_MUTATIONS is set, else one of many, others in each file.
TEST(Mutation, OneWrongWordIsToldAtItsLineOrHarmless) {
  const bool all = std::getenv("KV_MUTATIONS") != nullptr;
  constexpr std::size_t one_of = 101;
  std::size_t counter = 0, tried = 0, refused = 0, at_its_line = 0;
  run_directory run;
  run.put_named_files();
  for (const control_files::file_row& file : control_files::all_files()) {
    std::vector<std::string> lines = control_files::lines_of(file.text);
    for (std::size_t n = 1; n < lines.size(); ++n) {
      const std::vector<std::string> words = words_of(lines[n]);
      if (words.empty() || words[0][0] == '!') continue;
      const bool numbers = all_numbers(words);
      const std::string line = lines[n];
      for (std::size_t k = 0; k < words.size(); ++k) {
        for (const mutation& change : mutations) {
          if (!all && ++counter % one_of != 0) continue;
          lines[n].clear();
          for (const std::string& word : change.of(words, k)) lines[n] += ' ' + word;
          SCOPED_TRACE(file.name + ", line " + std::to_string(n + 1) + ", " + change.what + ":" + lines[n]);
          EXPECT_EQ(control_files::complaint(run, control_files::join(lines)), "");
          const std::string message = run.state->fmt.ierr_fmt != 0 ? run.message() : "";
          const int told = line_of(message);
          ++tried;
          if (!message.empty()) ++refused;
          EXPECT_TRUE(told == 0 || told > static_cast<int>(n)) << message;  // nothing before the word can be wrong
          // A line of words may stand above the output flags of the long form, so that they may begin one line later.
          const bool passed_over = k == 0 && lines[n - 1].starts_with("!Mat Nxt Nli Jci");
          if (!numbers || !change.refused || passed_over) continue;
          EXPECT_EQ(told, static_cast<int>(n + 1)) << message;
          ++at_its_line;
        }
      }
      lines[n] = line;
    }
  }
  EXPECT_GT(tried, 300u);
  EXPECT_GT(at_its_line, 100u);
  RecordProperty("tried", std::to_string(tried));
  if (all) std::printf("%zu tried, %zu refused, %zu at their line\n", tried, refused, at_its_line);
}

}  // namespace

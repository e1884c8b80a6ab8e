// A file that people read, read back: each line that a test has compared is marked, so that numbers which nothing
// compares are found.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "program_run.hpp"

namespace program_run {

inline std::vector<std::string> words_of(const std::string& text) {
  std::istringstream source(text);
  std::vector<std::string> words;
  for (std::string word; source >> word;) words.push_back(word);
  return words;
}

/// The last digit that a printed number shows, as a number: 0.001 for 1.250, 100 for 0.318E+05.
inline double last_digit_of(const std::string& word) {
  const std::size_t exponent = word.find_first_of("Ee"), point = word.find('.');
  const std::size_t end = std::min(word.size(), exponent);
  const double decimals = point == std::string::npos ? 0.0 : static_cast<double>(end - point - 1);
  const double power = exponent == std::string::npos ? 0.0 : std::stod(word.substr(exponent + 1));
  return std::pow(10.0, power - decimals);
}

/// The word is the value, rounded to the digits that it shows, and shows at least so many of them.
inline void expect_printed(const std::string& word, double value, int digits = 3) {
  char* end = nullptr;
  const double shown = std::strtod(word.c_str(), &end);
  EXPECT_TRUE(end != word.c_str() && *end == '\0') << "no number: " << word;
  const double unit = last_digit_of(word);
  EXPECT_NEAR(shown, value, 0.501 * unit + 1e-6 * std::abs(value)) << word;
  if (std::abs(value) > 1e-7) {
    EXPECT_GT(std::abs(value) / unit, 0.99 * std::pow(10.0, digits - 1)) << word << " of " << value;
  }
}

/// "1.2345(12)": value and deviation with the same decimals, the deviation rounded up to a whole number from 2 to 20. A
/// value without deviation shows at least three digits.
inline void expect_quoted(const std::string& word, double value, double sigma) {
  const std::size_t open = word.find('(');
  if (sigma == 0.0) {
    EXPECT_EQ(open, std::string::npos) << word << ": not refined";
    return expect_printed(word, value, 2);
  }
  ASSERT_NE(open, std::string::npos) << word << ": refined, sigma " << sigma;
  const std::string number = word.substr(0, open);
  const double unit = last_digit_of(number), units = std::stod(word.substr(open + 1));
  EXPECT_NEAR(std::stod(number), value, 0.501 * unit + 1e-6 * std::abs(value)) << word;
  EXPECT_LE(sigma / unit, 1.001 * (units + 0.1)) << word << " of " << sigma;
  EXPECT_GE(sigma / unit, 0.999 * (units - 0.91)) << word << " of " << sigma;
  EXPECT_LE(units, sigma < 2.0 ? 20 : sigma + 1) << word;
  if (sigma < 2.0) {
    EXPECT_GE(units, 2) << word;
  }
}

class printed_file {
 public:
  explicit printed_file(std::string_view text) : lines_(lines_of(text)), read_(lines_.size(), false) {}

  /// The next line behind the place reached that begins with the words: what stands behind them.
  std::string behind(std::string_view words) {
    for (std::size_t i = at_; i < lines_.size(); ++i)
      if (lines_[i].starts_with(words)) {
        at_ = i + 1;
        read_[i] = true;
        return lines_[i].substr(words.size());
      }
    ADD_FAILURE() << "no line begins with \"" << words << "\" behind line " << at_;
    return {};
  }
  /// The next line that is not blank.
  std::string line() {
    while (at_ < lines_.size() && lines_[at_].find_first_not_of(' ') == std::string::npos) ++at_;
    if (at_ == lines_.size()) return {};
    read_[at_] = true;
    return lines_[at_++];
  }
  [[nodiscard]] bool at_end() const { return at_ >= lines_.size(); }
  [[nodiscard]] bool next_begins_with(std::string_view words) const {
    std::size_t i = at_;
    while (i < lines_.size() && lines_[i].find_first_not_of(' ') == std::string::npos) ++i;
    return i < lines_.size() && lines_[i].starts_with(words);
  }
  /// Lines that hold a digit and were not read, but for those that begin with one of the words.
  [[nodiscard]] std::string unread(const std::vector<std::string>& but) const {
    std::string text;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      const bool known = std::ranges::any_of(but, [&](const std::string& b) { return lines_[i].starts_with(b); });
      if (!read_[i] && !known && lines_[i].find_first_of("0123456789") != std::string::npos) text += lines_[i] + '\n';
    }
    return text;
  }

 private:
  std::vector<std::string> lines_;
  std::vector<bool> read_;
  std::size_t at_ = 0;
};

}  // namespace program_run

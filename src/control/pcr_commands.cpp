#include "pcr_commands.hpp"

#include <algorithm>
#include <cmath>

#include "lmix_fixed_format.hpp"
#include "lmix_string_utilities.hpp"
#include "pcr_lines.hpp"

namespace pcr_commands {

namespace {

constexpr std::string_view list_mark = "PHASE_NO.:";

std::vector<std::string> split(std::string_view line) {
  std::string upper = lmix_string_utilities::u_case(pcr_lines::without_comment(line));
  for (char& c : upper) {
    if (c == ',' || c == '\t') c = ' ';
  }
  upper = lmix_string_utilities::sstring_replace(upper, "PHASE NO.:", " PHASE_NO.: ");
  std::vector<std::string> words;
  std::string_view rest = upper;
  for (std::string_view word = lmix_string_utilities::cutst(rest); !word.empty();
       word = lmix_string_utilities::cutst(rest)) {
    words.emplace_back(word);
  }
  return words;
}

}  // namespace

bool is_parameter_word(std::string_view word) {
  using lmix_string_utilities::u_case;
  const std::string upper = u_case(word);
  const auto same = [&](std::string_view known) { return u_case(known) == upper; };
  const auto counted = [&](std::string_view known) {
    int number = 0;
    return upper.starts_with(u_case(known)) && lmix_fixed_format::parse_integer(upper.substr(known.size()), number);
  };
  return std::ranges::any_of(parameter_words, same) || std::ranges::any_of(counted_words, counted);
}

word_line::word_line(std::string_view line) {
  bool in_list = false;
  int lists = 0;
  groups_.emplace_back();
  for (const std::string& word : split(line)) {
    if (int number = 0; in_list && lmix_fixed_format::parse_integer(word, number)) {
      groups_.back().phases.push_back(number);
      continue;
    }
    if (in_list) groups_.emplace_back();
    in_list = word == list_mark;
    if (in_list) ++lists;
    if (!in_list) groups_.back().words.push_back(word);
  }
  if (lists == 1 && groups_.size() == 2) {
    groups_[0].words.insert(groups_[0].words.end(), groups_[1].words.begin(), groups_[1].words.end());
    groups_.pop_back();
  }
}

bool word_line::has(std::string_view word, int phase) const {
  const std::string upper = lmix_string_utilities::u_case(word);
  return std::any_of(groups_.begin(), groups_.end(), [&](const group& g) {
    const bool named = std::find(g.words.begin(), g.words.end(), upper) != g.words.end();
    const bool meant =
        phase == 0 || g.phases.empty() || std::find(g.phases.begin(), g.phases.end(), phase) != g.phases.end();
    return named && meant;
  });
}

int word_line::count_behind(std::string_view prefix) const {
  const std::string upper = lmix_string_utilities::u_case(prefix);
  int largest = 0;
  for (const group& g : groups_) {
    for (const std::string& word : g.words) {
      int number = 0;
      if (word.starts_with(upper) && lmix_fixed_format::parse_integer(word.substr(upper.size()), number)) {
        largest = std::max(largest, number);
      }
    }
  }
  return largest;
}

std::vector<std::string> word_line::words() const {
  std::vector<std::string> all;
  for (const group& g : groups_) all.insert(all.end(), g.words.begin(), g.words.end());
  return all;
}

void commands::apply(std::string_view word, float& code, int phase) const {
  if (vary(word, phase) && std::fabs(code) < absent_code) code = 1.f;
  if (fix(word, phase)) code = 0.f;
}

}  // namespace pcr_commands

// Files as people write them: however a value is spelled and a line is ended, the same state is read.
#include <gtest/gtest.h>

#include <algorithm>

#include "control_files.hpp"
#include "sample_files.hpp"

namespace {

using control_files::join;
using control_files::lines_of;
using control_files::run_directory;
using kalvaris_params::state_type;

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}
std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += ' ' + word;
  return line;
}

/// The text with each line of numbers changed.
std::string with_number_lines(const std::string& text, std::string (*change)(const std::string&)) {
  std::vector<std::string> lines = lines_of(text);
  for (std::size_t n = 1; n < lines.size(); ++n) {
    const bool numbers = lines[n].find_first_not_of("-+.0123456789eE \t") == std::string::npos;
    if (numbers && !words_of(lines[n]).empty()) lines[n] = change(lines[n]);
  }
  return join(lines);
}
std::string with_numbers(const std::string& text, std::string (*change)(std::string)) {
  std::vector<std::string> lines = lines_of(text);
  for (std::size_t n = 1; n < lines.size(); ++n) {
    std::vector<std::string> words = words_of(lines[n]);
    if (words.empty() || lines[n].find_first_not_of("-+.0123456789eE \t") != std::string::npos) continue;
    for (std::string& word : words) word = change(word);
    lines[n] = joined(words);
  }
  return join(lines);
}
std::string replaced(std::string text, std::string_view what, std::string_view by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}
/// Runs of blanks in front of numbers.
std::string with_tabs(const std::string& text, std::string_view tab) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t end = std::min(text.find_first_not_of(' ', at), text.size());
    const bool tabbed =
        end > at + 1 && end < text.size() && std::string_view("-.0123456789").find(text[end]) != std::string::npos;
    result += tabbed ? std::string(tab) : text.substr(at, end - at);
    at = end;
    if (at < text.size()) result += text[at];
  }
  return result;
}
std::string without_last_zeros(const std::string& line) {
  std::vector<std::string> words = words_of(line);
  while (words.size() > 1 && words.back().find_first_not_of("-0.") == std::string::npos) words.pop_back();
  return joined(words);
}
std::string fortran(std::string word) {
  const bool plain = word.find('.') != std::string::npos && word.find('E') == std::string::npos && word.back() != '.';
  return plain ? word + "d+00" : replaced(word, "E-0", "D-");
}
std::string bare(std::string word) {
  const std::size_t point = word.find('.');
  if (point == std::string::npos || word.find('E') != std::string::npos) return word;
  word.erase(std::max(word.find_last_not_of('0'), point) + 1);
  if (word.size() > 2 && word.starts_with("0.")) word.erase(0, 1);
  if (word.size() > 3 && word.starts_with("-0.")) word.erase(1, 1);
  return word;
}

struct spelling {
  const char* name;
  std::string (*of)(const std::string&);
};
const std::vector<spelling> spellings{
    {"tabs", [](const std::string& text) { return with_tabs(text, "\t"); }},
    {"DOS line ends", [](const std::string& text) { return replaced(text, "\n", "\r\n"); }},
    {"byte-order mark", [](const std::string& text) { return "\xEF\xBB\xBF" + text; }},
    {"all of these",
     [](const std::string& text) { return "\xEF\xBB\xBF" + replaced(with_tabs(text, " \t "), "\n", " \r\n"); }},
    {"no end of the last line", [](const std::string& text) { return text.substr(0, text.size() - 1); }},
    {"comments behind the numbers",
     [](const std::string& text) {
       return with_number_lines(text, [](const std::string& line) { return line + " ! note, 1"; });
     }},
    {"other comments behind the numbers",
     [](const std::string& text) {
       return with_number_lines(text, [](const std::string& line) { return line + "\t# 2 note"; });
     }},
    {"comments and blank lines between the lines",
     [](const std::string& text) { return replaced(text, "\n", "\n! note\n\n \t\n   ! 1 2 3\n"); }},
    {"missing trailing numbers", [](const std::string& text) { return with_number_lines(text, without_last_zeros); }},
    {"Fortran exponents", [](const std::string& text) { return with_numbers(text, fortran); }},
    {"bare points", [](const std::string& text) { return with_numbers(text, bare); }},
    {"no blanks in front", [](const std::string& text) { return replaced(text, "\n ", "\n"); }},
};

/// What was read, without the numbers of the lines on which the atoms stood and without the comments.
bool same(state_type& a, state_type& b) {
  for (auto* st : {&a, &b}) {
    for (auto& atom : st->atom) atom.line_nb = 0;
    st->run.comments.clear();
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

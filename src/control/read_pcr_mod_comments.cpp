// Comments of the user: which of the comment lines of a control file are his, and where they stand among the others.
#include <algorithm>
#include <cctype>

#include "lmix_text_input.hpp"
#include "pcr_sections.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::run_type;
using kalvaris_params::user_comment;

namespace {

/// A control file as lines of two kinds, without its title and blank lines.
struct outline {
  std::vector<std::string> lines;      ///< that are no comments
  std::vector<int> numbers;            ///< of the file, 1-based
  std::vector<user_comment> comments;  ///< with the number of `lines` above them
};

outline outline_of(std::string_view text) {
  outline o;
  auto source = lmix_text_input::text_source::from_string(text);
  source.next();  // the title, whatever it holds
  while (const auto line = source.next()) {
    const std::string shifted = pcr_lines::adjl_tab(*line);
    if (shifted.empty()) continue;
    if (lmix_text_input::is_blank_or_comment(*line)) {
      o.comments.push_back({static_cast<int>(o.lines.size()), false, std::string(*line)});
    } else {
      o.lines.push_back(shifted);
      o.numbers.push_back(source.lines_taken());
    }
  }
  return o;
}

/// Two lines hold the same: their first words are equal as numbers or as text.
bool correspond(std::string_view a, std::string_view b) {
  const std::string_view u = lmix_string_utilities::cutst(a), v = lmix_string_utilities::cutst(b);
  float x = 0.f, y = 0.f;
  if (lmix_fixed_format::parse_real(u, x) && lmix_fixed_format::parse_real(v, y))
    return std::abs(x - y) <= 1.0e-4f * std::max({std::abs(x), std::abs(y), 1.0e-3f});
  return u == v;
}

/// For each number of lines above a comment in `read` that in `written`. The files differ where the program leaves out
/// a line or breaks a list otherwise: then the lines are matched by a longest common subsequence.
std::vector<int> places_in(const std::vector<std::string>& written, const std::vector<std::string>& read) {
  const std::size_t n = read.size(), m = written.size();
  std::vector<int> place(n + 1, static_cast<int>(m));
  constexpr std::size_t most_cells = 4'000'000;
  if (n == m || n * m > most_cells) {
    for (std::size_t i = 0; i < n; ++i) place[i] = static_cast<int>(std::min(i, m));
    return place;
  }
  std::vector<int> common((n + 1) * (m + 1), 0);
  const auto at = [&](std::size_t i, std::size_t j) -> int& { return common[i * (m + 1) + j]; };
  for (std::size_t i = n; i-- > 0;)
    for (std::size_t j = m; j-- > 0;)
      at(i, j) = correspond(read[i], written[j]) ? at(i + 1, j + 1) + 1 : std::max(at(i + 1, j), at(i, j + 1));
  for (std::size_t i = 0, j = 0; i < n; ++i) {
    while (j < m && at(i, j) == at(i, j + 1)) ++j;
    place[i] = static_cast<int>(j);
    if (j < m && at(i, j) > at(i + 1, j)) ++j;
  }
  return place;
}

/// Letters alone, in lower case: what is left of a comment when its numbers change.
std::string letters_of(std::string_view text) {
  std::string letters;
  for (const char c : text)
    if (std::isalpha(static_cast<unsigned char>(c)) != 0)
      letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return letters;
}

/// Names of the fields of a line, as letters and digits in lower case.
std::vector<std::string> names_in(const kalvaris_params::state_type& st, const pcr_lines::record::line& line) {
  std::vector<std::string> names{"code", "codes"};
  for (const auto& entry : line.entries) {
    const bool plain = entry.kind == pcr_fields::kind::plain;
    const std::string name = plain ? std::string(entry.what.name) : slot_text::describe(st, entry.slot).name;
    names.push_back(letters_of(name));
  }
  return names;
}

/// The comment names fields of the line below: at least two, or all of its words.
bool names_fields(std::string_view comment, const std::vector<std::string>& names) {
  std::size_t words = 0, named = 0;
  std::string word;
  const auto end_word = [&] {
    const std::string letters = letters_of(word);
    word.clear();
    if (letters.empty()) return;
    ++words;
    named += std::ranges::find(names, letters) != names.end() ? 1 : 0;
  };
  for (const char c : comment) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_') {
      word += c;
    } else {
      end_word();
    }
  }
  end_word();
  return named > 0 && (named == words || (named >= 2 && 2 * named >= words));
}

/// Comments that the writer makes new in every file, whatever stands behind their beginning.
bool is_of_head(std::string_view comment) {
  constexpr std::array<std::string_view, 3> heads{"currentglobalchi", "date", "filesdatfile"};
  const std::string letters = letters_of(comment);
  return std::ranges::any_of(heads, [&](std::string_view head) { return letters.starts_with(head); });
}

}  // namespace

void keep_text_of_user(kalvaris_params::state_type& st, std::string_view text, const pcr_lines::record& kept) {
  run_type& run = st.run;
  run.comments.clear(), run.behind_plot.clear();
  const outline read = outline_of(text);
  if (run.pattern_to_plot) {
    for (std::size_t i = 0; i < read.lines.size(); ++i)
      if (read.numbers[i] > kept.last) run.behind_plot.push_back(read.lines[i]);
  }
  const outline written = outline_of(write_without_comments(st, ""));
  const std::vector<int> place = places_in(written.lines, read.lines);
  int header_above = -1;  // the line whose header was met last
  for (const user_comment& comment : read.comments) {
    const auto i = static_cast<std::size_t>(comment.lines_above);
    const int here = place[i];
    const std::string letters = letters_of(comment.text);
    const bool of_program = std::ranges::any_of(written.comments, [&](const user_comment& own) {
      const std::string known = letters_of(own.text);
      return own.lines_above == here && (known.empty() ? letters.empty() : letters.starts_with(known));
    });
    if (is_of_head(comment.text) || letters.find("patterntoplot") != std::string::npos) continue;
    if (of_program) {
      header_above = here;
      continue;
    }
    if (i < read.numbers.size()) {
      const auto line = std::ranges::find(kept.lines, read.numbers[i], &pcr_lines::record::line::number);
      if (line != kept.lines.end() && names_fields(comment.text, names_in(st, *line))) {
        header_above = here;
        continue;
      }
    }
    run.comments.push_back({here, header_above == here, comment.text});
  }
}

std::string with_user_comments(const run_type& run, std::string_view text) {
  if (run.comments.empty()) return std::string(text);
  // whoever looks for the flags or the number of patterns looks at the first ten lines only
  constexpr int most_above_the_flags = 4;
  std::string out;
  auto comment = run.comments.begin();
  auto source = lmix_text_input::text_source::from_string(text);
  std::vector<std::string> own;  // comments of the program in front of the line to come
  int lines = -1;                // that are no comments; the title is none of them
  const auto put = [&] {
    const auto behind_head = std::ranges::find_if_not(own, is_of_head);
    for (auto line = own.begin(); line != behind_head; ++line) out += *line + '\n';
    own.erase(own.begin(), behind_head);
    int n = 0;
    const auto put_those = [&](bool below_header) {
      for (; comment != run.comments.end() && comment->lines_above <= lines && comment->below_header == below_header;
           ++comment) {
        if (lines == 0 && ++n > most_above_the_flags) return;
        out += comment->text + '\n';
      }
    };
    put_those(false);
    for (const std::string& line : own) out += line + '\n';
    own.clear();
    put_those(true);
    put_those(false);
  };
  while (const auto line = source.next()) {
    const bool of_program = lines >= 0 && lmix_text_input::is_blank_or_comment(*line);
    if (of_program) {
      own.emplace_back(*line);
      continue;
    }
    put();
    out.append(*line).append("\n");
    ++lines;
  }
  put();
  for (; comment != run.comments.end(); ++comment) out += comment->text + '\n';
  return out;
}

}  // namespace read_pcr_mod

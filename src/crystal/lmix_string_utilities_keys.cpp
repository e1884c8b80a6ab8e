#include <algorithm>

#include "lmix_string_utilities.hpp"

namespace lmix_string_utilities {

namespace {

bool is_passed_over(std::string_view line, char comment) {
  const std::string_view text = trim(line);
  return text.empty() || text[0] == comment || text[0] == '!';
}

struct key_hit {
  int line = -1;
  std::string_view text;
};

/// The first line that holds the keyword, and what follows the keyword's word there.
key_hit find_key(std::span<const std::string> filevar, int first, int last, std::string_view keyword, char comment) {
  const std::string key = l_case(trim(keyword));
  if (key.empty()) return {};
  const int end = std::min(last, static_cast<int>(filevar.size()) - 1);
  for (int i = std::max(first, 0); i <= end; ++i) {
    const std::string& line = filevar[static_cast<std::size_t>(i)];
    if (is_passed_over(line, comment)) continue;
    const std::size_t place = l_case(line).find(key);
    if (place == std::string::npos) continue;
    std::string_view rest = std::string_view(line).substr(place);
    cutst(rest);
    return {i, rest};
  }
  return {};
}

void take_numbers(key_result& result) {
  getnum_result numbers = getnum(result.text);
  result.vet = std::move(numbers.vet);
  result.ivet = std::move(numbers.ivet);
  result.err = std::move(numbers.err);
}

void take_values_std(key_result& result) {
  getnum_std_result numbers = getnum_std(result.text);
  result.vet = std::move(numbers.value);
  result.std = std::move(numbers.std);
  result.err = std::move(numbers.err);
}

/// The search that the four routines share; `take` reads the numbers of a text that was found.
template <class Take>
key_result read_key(std::span<const std::string> filevar, int& nline_ini, int nline_end, std::string_view keyword,
                    char comment, Take take) {
  key_result result;
  const key_hit hit = find_key(filevar, nline_ini, nline_end, keyword, comment);
  if (hit.line < 0) return result;
  result.found = true;
  result.text = hit.text;
  take(result);
  if (!result.err.err_string) nline_ini = hit.line;
  return result;
}

}  // namespace

key_result read_key_str(std::span<const std::string> filevar, int& nline_ini, int nline_end, std::string_view keyword,
                        char comment) {
  return read_key(filevar, nline_ini, nline_end, keyword, comment, [](key_result&) {});
}

key_result read_key_strval(std::span<const std::string> filevar, int& nline_ini, int nline_end,
                           std::string_view keyword, char comment) {
  return read_key(filevar, nline_ini, nline_end, keyword, comment, take_numbers);
}

key_result read_key_value(std::span<const std::string> filevar, int& nline_ini, int nline_end, std::string_view keyword,
                          char comment) {
  return read_key(filevar, nline_ini, nline_end, keyword, comment, take_numbers);
}

key_result read_key_valuestd(std::span<const std::string> filevar, int& nline_ini, int nline_end,
                             std::string_view keyword, char comment) {
  return read_key(filevar, nline_ini, nline_end, keyword, comment, take_values_std);
}

std::optional<int> number_lines(const std::string& filename, std::string_view input_string) {
  text_source source = text_source::from_file(filename);
  if (!source.ok()) return std::nullopt;
  const std::string stop = u_case(trim(input_string));
  while (const auto line = source.next()) {
    if (!stop.empty() && u_case(line->substr(0, stop.size())) == stop) return source.lines_taken() - 1;
  }
  return source.lines_taken();
}

std::optional<std::vector<std::string>> reading_lines(const std::string& filename, int nlines) {
  text_source source = text_source::from_file(filename);
  if (!source.ok()) return std::nullopt;
  std::vector<std::string> lines;
  while (source.lines_taken() < nlines) {
    const auto line = source.next();
    if (!line) break;
    lines.emplace_back(*line);
  }
  return lines;
}

}  // namespace lmix_string_utilities

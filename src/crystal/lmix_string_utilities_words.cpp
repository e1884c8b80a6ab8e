#include <algorithm>
#include <cmath>

#include "lmix_string_utilities.hpp"

namespace lmix_string_utilities {

namespace {

constexpr std::size_t message_width = 150;
constexpr std::string_view not_a_number = "The variable cannot be computed as a number in GETNUM ";
constexpr std::string_view out_of_limits = "Limits of digit variable exceeded in GETNUM";

char upper_letter(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }
char lower_letter(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::string_view after_blanks(std::string_view s) { return s.substr(std::min(s.find_first_not_of(' '), s.size())); }

/// value 10^power in single precision, by the power and not by its reciprocal.
float times_power(float value, int power) { return value * std::pow(10.f, static_cast<float>(power)); }

struct number_parts {
  float value = 0.f;
  int integer = 0;
};

/// Integer part with one digit more, held at the limit of int.
int with_digit(int integer, int digit) {
  const long long grown = 10LL * integer + digit;
  return static_cast<int>(std::min<long long>(grown, std::numeric_limits<int>::max()));
}

/// Mantissa without its leading sign. False when it holds a further one.
bool sum_mantissa(std::string_view mantissa, number_parts& parts) {
  const std::string_view whole = mantissa.substr(0, mantissa.find('.'));
  int power = static_cast<int>(std::count_if(whole.begin(), whole.end(), is_digit)) - 1;
  for (const char c : mantissa) {
    if (c == '-') return false;
    if (c == '.') continue;
    const int digit = c - '0';
    if (digit != 0) parts.value += times_power(static_cast<float>(digit), power);
    if (power >= 0) parts.integer = with_digit(parts.integer, digit);
    --power;
  }
  return true;
}

/// Digits of an exponent with at most one `-`, in front.
bool read_exponent(std::string_view text, int& exponent) {
  constexpr int bound = 1000;
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  exponent = 0;
  for (const char c : text) {
    if (!is_digit(c)) return false;
    exponent = std::min(10 * exponent + (c - '0'), bound);
  }
  if (negative) exponent = -exponent;
  return true;
}

/// One upper-case word of getnum. Returns the error's text, empty for none.
std::string_view sum_word(std::string_view word, number_parts& parts) {
  if (word.find_first_not_of("E0123456789.-") != std::string_view::npos) return not_a_number;
  const bool negative = word.starts_with('-');
  if (negative) word.remove_prefix(1);
  const std::size_t letter = word.find('E');
  if (!sum_mantissa(word.substr(0, letter), parts)) return out_of_limits;
  if (letter != std::string_view::npos) {
    int exponent = 0;
    if (!read_exponent(word.substr(letter + 1), exponent)) return out_of_limits;
    if (parts.value != 0.f) parts.value = times_power(parts.value, exponent);
  }
  if (!std::isfinite(parts.value)) return out_of_limits;
  if (negative) parts = {-parts.value, -parts.integer};
  return {};
}

struct value_std {
  float value = 0.f;
  float std = 0.f;
};

/// One word of getnum_std. Returns the error's text, empty for none.
std::string_view sum_word_std(std::string_view word, value_std& out) {
  const std::size_t p = word.find('('), q = word.find(')');
  const bool opened = p != std::string_view::npos, closed = q != std::string_view::npos;
  if (opened != closed || (opened && q < p)) return "Wrong format using Standard values";
  const getnum_result value = getnum(word.substr(0, p));
  if (value.err.err_string || value.iv != 1) return "Bad format";
  out.value = value.vet[0];
  if (!opened) return {};
  const getnum_result digits = getnum(word.substr(p + 1, q - p - 1));
  if (digits.err.err_string || digits.iv != 1) return "Bad format";
  out.std = static_cast<float>(digits.ivet[0]);
  const std::size_t d = word.substr(0, p).find('.');
  if (d != std::string_view::npos) out.std = times_power(out.std, static_cast<int>(d) - static_cast<int>(p) + 1);
  return {};
}

}  // namespace

void err_string_type::set(std::string_view message) {
  err_string = true;
  err_string_mess = message.substr(0, message_width);
}

std::string_view cutst(std::string_view& line1) {
  const std::string_view line = trim(line1);
  const std::size_t end = std::min(line.find(' '), line.size());
  line1 = after_blanks(line.substr(end));
  return line.substr(0, end);
}

getword_result getword(std::string_view line, int most) {
  getword_result result;
  while (true) {
    line = trim(line);
    std::string_view word;
    if (line.starts_with('"')) {
      const std::size_t end = line.find('"', 1);
      if (end == std::string_view::npos) return result.err.set("Non balanced quotes!"), result;
      word = line.substr(1, end - 1);
      line.remove_prefix(end + 1);
    } else {
      word = cutst(line);
    }
    if (trim(word).empty()) return result;
    ++result.iv;
    if (result.iv > most) return result.err.set("Dimension of DIRE exceeded"), result;
    result.dire.push_back(word);
  }
}

getnum_result getnum(std::string_view line) {
  getnum_result result;
  const std::string upper = u_case(line);
  std::string_view rest = upper;
  for (std::string_view word = cutst(rest); !word.empty(); word = cutst(rest)) {
    number_parts parts;
    if (const std::string_view error = sum_word(word, parts); !error.empty()) return result.err.set(error), result;
    result.vet.push_back(parts.value);
    result.ivet.push_back(parts.integer);
    ++result.iv;
  }
  return result;
}

getnum_std_result getnum_std(std::string_view line) {
  getnum_std_result result;
  if (trim(line).empty()) return result.err.set("Blank line"), result;
  line = line.substr(0, line.find(line.find('!') != std::string_view::npos ? '!' : '#'));
  for (std::string_view word = cutst(line); !word.empty(); word = cutst(line)) {
    value_std number;
    if (const std::string_view error = sum_word_std(word, number); !error.empty()) {
      return result.err.set(error), result;
    }
    result.value.push_back(number.value);
    result.std.push_back(number.std);
    ++result.ic;
  }
  return result;
}

std::string_view trim(std::string_view s) {
  s = after_blanks(s);
  return s.substr(0, s.find_last_not_of(' ') + 1);
}

std::string pack_string(std::string_view s) {
  std::string packed(s);
  std::erase(packed, ' ');
  return packed;
}

void lcase(std::string& s) { std::transform(s.begin(), s.end(), s.begin(), lower_letter); }
void ucase(std::string& s) { std::transform(s.begin(), s.end(), s.begin(), upper_letter); }

std::string l_case(std::string_view s) {
  std::string copy(s);
  lcase(copy);
  return copy;
}

std::string u_case(std::string_view s) {
  std::string copy(s);
  ucase(copy);
  return copy;
}

std::string strip_string(std::string_view s, std::string_view to_strip) {
  if (s.ends_with(to_strip)) s.remove_suffix(to_strip.size());
  return std::string(s);
}

std::vector<int> get_substring_positions(std::string_view s, std::string_view part) {
  std::vector<int> positions;
  if (part.empty()) return positions;
  for (std::size_t at = s.find(part); at != std::string_view::npos; at = s.find(part, at + part.size())) {
    positions.push_back(static_cast<int>(at));
  }
  return positions;
}

int string_count(std::string_view s, std::string_view part) {
  return static_cast<int>(get_substring_positions(s, part).size());
}

std::string sstring_replace(std::string_view s, std::string_view part, std::string_view by) {
  std::string replaced;
  std::size_t from = 0;
  for (const int position : get_substring_positions(s, part)) {
    const std::size_t at = static_cast<std::size_t>(position);
    replaced.append(s.substr(from, at - from)).append(by);
    from = at + part.size();
  }
  return replaced.append(s.substr(from));
}

std::vector<int> get_separator_pos(std::string_view line, char car) {
  std::vector<int> positions;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == car && !quoted) positions.push_back(static_cast<int>(i));
  }
  return positions;
}

bool equal_sets_text(std::span<const std::string> set1, std::span<const std::string> set2) {
  return std::is_permutation(set1.begin(), set1.end(), set2.begin(), set2.end());
}

std::string_view get_basename(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

std::string_view get_dirname(std::string_view path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string_view::npos) return ".";
  return path.substr(0, std::max<std::size_t>(slash, 1));
}

std::string_view get_extension(std::string_view path) {
  const std::string_view name = get_basename(path);
  return name.substr(std::min(name.find_last_of('.'), name.size()));
}

}  // namespace lmix_string_utilities

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <limits>
#include <system_error>

#include "lmix_fixed_format.hpp"

namespace lmix_fixed_format {

namespace {

constexpr int most_columns = 10000;  ///< bound of the fields of a format and of the width of a line that it reaches
constexpr int exponent_bound = 100000;

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_sign(char c) { return c == '+' || c == '-'; }
bool is_exponent_letter(char c) { return c == 'E' || c == 'e' || c == 'D' || c == 'd'; }

/// A real taken apart. `mantissa` is digits and at most one point, without the sign.
struct real_parts {
  bool negative = false;
  std::string_view mantissa;
  bool has_point = false;
  int exponent = 0;
  bool plain = true;  ///< written as std::from_chars reads it
};

/// Size of an exponent, held at a bound far beyond every real; -1 for what is not all digits.
int exponent_digits(std::string_view digits) {
  int size = 0;
  for (const char c : digits) {
    if (!is_digit(c)) return -1;
    size = std::min(10 * size + (c - '0'), exponent_bound);
  }
  return digits.empty() ? -1 : size;
}

bool take_exponent(std::string_view text, real_parts& parts) {
  if (text.empty()) return true;
  parts.plain = text[0] == 'E' || text[0] == 'e';
  if (is_exponent_letter(text[0])) {
    text.remove_prefix(1);
  } else if (!is_sign(text[0])) {
    return false;
  }
  const bool negative = text.starts_with('-');
  if (!text.empty() && is_sign(text[0])) text.remove_prefix(1);
  const int size = exponent_digits(text);
  parts.exponent = negative ? -size : size;
  return size >= 0;
}

bool take_apart(std::string_view text, real_parts& parts) {
  parts.negative = text.starts_with('-');
  if (!text.empty() && is_sign(text[0])) text.remove_prefix(1);
  std::size_t n = 0;
  bool has_digit = false;
  for (; n < text.size() && (is_digit(text[n]) || (text[n] == '.' && !parts.has_point)); ++n) {
    (text[n] == '.' ? parts.has_point : has_digit) = true;
  }
  parts.mantissa = text.substr(0, n);
  return has_digit && take_exponent(text.substr(n), parts);
}

/// True when the number is below 1: how a result out of range is told to be too small, not too large.
bool below_one(const real_parts& parts) {
  const std::size_t point = std::min(parts.mantissa.find('.'), parts.mantissa.size());
  const std::size_t first = parts.mantissa.find_first_of("123456789");
  if (first == std::string_view::npos) return true;
  const long long power = static_cast<long long>(point) - static_cast<long long>(first) - (first < point ? 1 : 0);
  return power + parts.exponent < 0;
}

template <std::floating_point R>
bool parse_real_as(std::string_view text, R& value, int decimals) {
  real_parts parts;
  if (!take_apart(text, parts)) return false;
  const bool shifted = decimals != 0 && !parts.has_point;
  if (shifted) parts.exponent -= decimals;
  R result = 0;
  std::from_chars_result status;
  if (parts.plain && !shifted) {
    status = std::from_chars(parts.mantissa.data(), text.data() + text.size(), result);
  } else {
    const std::string rewritten = std::string(parts.mantissa) + 'e' + std::to_string(parts.exponent);
    status = std::from_chars(rewritten.data(), rewritten.data() + rewritten.size(), result);
  }
  if (status.ec == std::errc::result_out_of_range) {
    if (!below_one(parts)) return false;
    result = 0;
  }
  if (!std::isfinite(result)) return false;
  value = parts.negative ? -result : result;
  return true;
}

std::string_view without_end_blanks(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);  // npos + 1 is 0: all blank
}

/// Reader of a format text. `cursor` is the column that the next field starts behind.
struct format_parser {
  std::string_view text;
  std::size_t pos = 0;
  int cursor = 0;
  fixed_format format = {};
  int items_left = 10 * most_columns;  ///< ends nested groups that repeat without going forward

  char peek() {
    while (pos < text.size() && text[pos] == ' ') ++pos;
    if (pos >= text.size()) return '\0';
    const char c = text[pos];
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  }
  bool take(char wanted) {
    if (peek() != wanted) return false;
    ++pos;
    return true;
  }
  /// Digits at the cursor as a count, -1 when there are none or the count is out of bounds.
  int count() {
    int n = -1;
    while (is_digit(peek())) n = std::min(10 * std::max(n, 0) + (text[pos++] - '0'), most_columns + 1);
    return n > most_columns ? -1 : n;
  }

  bool add(field_kind kind, int repeat, int width, int decimals) {
    if (width < 1 || repeat < 1) return false;
    if (static_cast<int>(format.columns.size()) + repeat > most_columns) return false;
    if (cursor + static_cast<long long>(repeat) * width > most_columns) return false;
    for (int i = 0; i < repeat; ++i, cursor += width) format.columns.push_back({kind, cursor, width, decimals});
    if (kind == field_kind::real) format.n_real += repeat;
    return true;
  }
  bool move_to(int column) {
    cursor = std::max(column, 0);
    return cursor <= most_columns;
  }

  bool position_item() {
    const char direction = peek();
    if (direction == 'r' || direction == 'l') ++pos;
    const int n = count();
    if (n < 0) return false;
    if (direction == 'r') return move_to(cursor + n);
    if (direction == 'l') return move_to(cursor - n);
    return n > 0 && move_to(n - 1);
  }
  bool integer_item(int repeat) {
    const int width = count();
    if (take('.') && count() < 0) return false;
    return add(field_kind::integer, repeat, width, 0);
  }
  bool real_item(int repeat) {
    const int width = count();
    const int decimals = take('.') ? count() : 0;
    if (decimals < 0 || (take('e') && count() < 0)) return false;
    return add(field_kind::real, repeat, width, decimals);
  }
  bool text_item(int repeat) {
    const bool has_width = is_digit(peek());
    return add(field_kind::text, repeat, has_width ? count() : most_columns - cursor, 0);
  }
  bool group(int repeat, int depth) {
    constexpr int deepest = 8;
    if (depth > deepest || repeat < 1) return false;
    const std::size_t first = pos;
    for (int i = 0; i < repeat; ++i) {
      pos = first;
      if (!list(depth)) return false;
    }
    return true;
  }

  bool item(int depth) {
    if (--items_left < 0) return false;
    const bool counted = is_digit(peek());
    const int repeat = counted ? count() : 1;
    const char letter = peek();
    ++pos;
    switch (letter) {
      case '(':
        return group(repeat, depth + 1);
      case 'i':
        return integer_item(repeat);
      case 'f':
      case 'e':
      case 'd':
      case 'g':
        return real_item(repeat);
      case 'a':
        return text_item(repeat);
      case 'x':
        return repeat >= 0 && move_to(cursor + repeat);
      case 't':
        return !counted && position_item();
      default:
        return false;
    }
  }
  /// Items up to the closing bracket, which is taken.
  bool list(int depth) {
    while (true) {
      if (!item(depth)) return false;
      if (take(')')) return true;
      take(',');
    }
  }
};

}  // namespace

bool parse_integer(std::string_view text, int& value) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return false;
  }
  int result = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  value = result;
  return true;
}

bool parse_real(std::string_view text, float& value, int decimals) { return parse_real_as(text, value, decimals); }
bool parse_real(std::string_view text, double& value, int decimals) { return parse_real_as(text, value, decimals); }

const field_values::value* field_values::at(int k) const {
  return k >= 0 && k < size() ? &values_[static_cast<std::size_t>(k)] : nullptr;
}

int field_values::i(int k) const {
  const value* field = at(k);
  if (field == nullptr || field->column.kind == field_kind::text) return 0;
  if (field->column.kind == field_kind::integer) return field->integer;
  const double real = d(k);
  return std::abs(real) <= std::numeric_limits<int>::max() ? static_cast<int>(real) : 0;
}
float field_values::f(int k) const {
  const value* field = at(k);
  return field != nullptr ? field->real : 0.f;
}
double field_values::d(int k) const {
  const value* field = at(k);
  if (field == nullptr || field->column.kind == field_kind::text) return 0.;
  std::string packed;
  double real = 0.;
  parse_real(number_text(field->column, packed), real, field->column.decimals);
  return real;
}
std::string_view field_values::a(int k) const {
  const value* field = at(k);
  return field != nullptr ? without_end_blanks(columns_of(field->column)) : std::string_view();
}

void field_values::clear() {
  line.clear();
  failed = -1;
  values_.clear();
}

std::string_view field_values::columns_of(const field_column& column) const {
  const std::string_view text = line;
  const std::size_t offset = std::min(static_cast<std::size_t>(std::max(column.offset, 0)), text.size());
  return text.substr(offset, static_cast<std::size_t>(std::max(column.width, 0)));
}

std::string_view field_values::number_text(const field_column& column, std::string& packed) const {
  std::string_view text = columns_of(column);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  text = without_end_blanks(text);
  if (text.find(' ') == std::string_view::npos) return text;
  packed = text;
  std::erase(packed, ' ');
  return packed;
}

bool field_values::convert_field(const field_column& column) {
  value& field = values_.emplace_back();
  field.column = column;
  if (column.kind == field_kind::text) return true;
  std::string packed;
  const std::string_view text = number_text(column, packed);
  if (text.empty()) return true;
  if (column.kind == field_kind::real) return parse_real(text, field.real, column.decimals);
  const bool good = parse_integer(text, field.integer);
  field.real = static_cast<float>(field.integer);
  return good;
}

int field_values::convert(std::span<const field_column> columns) {
  values_.clear();
  for (const field_column& column : columns) {
    if (convert_field(column)) continue;
    const int bad = size() - 1;
    values_.clear();
    return bad;
  }
  return -1;
}

std::optional<fixed_format> fixed_format::parse(std::string_view text) {
  format_parser parser;
  parser.text = text;
  if (!parser.take('(') || !parser.list(0)) return std::nullopt;
  return parser.format;
}

int read_line(const fixed_format& format, std::string_view line, field_values& out) {
  out.line = line;
  return out.convert(format.columns);
}

std::string_view text_in_columns(std::string_view line, int first, int last) {
  const std::size_t offset = std::min(static_cast<std::size_t>(std::max(first, 1) - 1), line.size());
  const int width = last - std::max(first, 1) + 1;
  return without_end_blanks(line.substr(offset, static_cast<std::size_t>(std::max(width, 0))));
}

std::optional<int> integer_in_columns(std::string_view line, int first, int last) {
  field_values field;
  field.line = text_in_columns(line, first, last);
  const field_column column{field_kind::integer, 0, static_cast<int>(field.line.size()), 0};
  if (field.convert({&column, 1}) >= 0) return std::nullopt;
  return field.i(0);
}

std::optional<float> real_in_columns(std::string_view line, int first, int last, int decimals) {
  field_values field;
  field.line = text_in_columns(line, first, last);
  const field_column column{field_kind::real, 0, static_cast<int>(field.line.size()), decimals};
  if (field.convert({&column, 1}) >= 0) return std::nullopt;
  return field.f(0);
}

}  // namespace lmix_fixed_format

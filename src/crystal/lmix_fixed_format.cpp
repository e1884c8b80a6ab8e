#include "lmix_fixed_format.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace lmix_fixed_format {

namespace {

constexpr int most_decimals = 60;

void put_right(std::string& out, int width, std::string_view text) {
  const std::size_t columns = static_cast<std::size_t>(std::max(width, 0));
  if (columns == 0 || text.size() <= columns) {
    out.append(columns > text.size() ? columns - text.size() : 0, ' ').append(text);
  } else {
    out.append(columns, '*');
  }
}

/// NaN and infinities. The long word is used where it fits.
void put_special(std::string& out, int width, double value) {
  if (std::isnan(value)) return put_right(out, width, "NaN");
  const std::string_view words = value < 0 ? "-Infinity" : "Infinity";
  put_right(out, width, width >= static_cast<int>(words.size()) ? words : words.substr(0, value < 0 ? 4 : 3));
}

/// As put_right, but a text that is one column too long gives up the 0 before its point.
void put_number(std::string& out, int width, std::string& text) {
  const std::size_t zero = text.starts_with('-') ? 1 : 0;
  const bool too_long = width > 0 && text.size() > static_cast<std::size_t>(width);
  if (too_long && text.size() > zero + 2 && text[zero] == '0' && text[zero + 1] == '.') text.erase(zero, 1);
  put_right(out, width, text);
}

/// A finite number as sign, significant digits d1 d2 d3 ... and the exponent of d1.d2d3...
struct decimal_digits {
  bool negative;
  std::string digits;
  int exponent;
};

decimal_digits rounded_digits(double value, int n_digits) {
  std::array<char, most_decimals + 20> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::abs(value),
                                 std::chars_format::scientific, std::clamp(n_digits, 1, most_decimals) - 1)
                       .ptr;
  char* letter = std::find(buffer.data(), end, 'e');
  decimal_digits result{std::signbit(value), std::string(buffer.data(), letter), 0};
  std::erase(result.digits, '.');
  const char* power = letter[1] == '+' ? letter + 2 : letter + 1;  // from_chars takes no plus sign
  std::from_chars(power, end, result.exponent);
  return result;
}

std::string exponent_text(int exponent) {
  const int size = std::abs(exponent);
  std::string text = size > 99 ? "" : "E";
  text += exponent < 0 ? '-' : '+';
  if (size < 10) text += '0';
  return text += std::to_string(size);
}

}  // namespace

void put_i(std::string& out, int width, long long value) { put_right(out, width, std::to_string(value)); }

void put_f(std::string& out, int width, int decimals, double value) {
  if (!std::isfinite(value)) return put_special(out, width, value);
  std::array<char, most_decimals + 320> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed,
                                 std::clamp(decimals, 0, most_decimals))
                       .ptr;
  std::string text(buffer.data(), end);
  if (decimals <= 0) text += '.';
  put_number(out, width, text);
}

void put_e(std::string& out, int width, int decimals, double value) {
  if (!std::isfinite(value)) return put_special(out, width, value);
  const decimal_digits number = rounded_digits(value, decimals);
  std::string text = number.negative ? "-0." : "0.";
  text += number.digits + exponent_text(value == 0 ? 0 : number.exponent + 1);
  put_number(out, width, text);
}

void put_pe(std::string& out, int width, int decimals, double value) {
  if (!std::isfinite(value)) return put_special(out, width, value);
  const decimal_digits number = rounded_digits(value, decimals + 1);
  std::string text = number.negative ? "-" : "";
  text += number.digits.substr(0, 1) + '.' + number.digits.substr(1) + exponent_text(number.exponent);
  put_right(out, width, text);
}

void put_g(std::string& out, int width, int digits, double value) {
  if (!std::isfinite(value)) return put_special(out, width, value);
  // The power of ten above the value as rounded: 10^(before-1) <= |value| < 10^before.
  const int before = value == 0 ? 1 : rounded_digits(value, digits).exponent + 1;
  if (before < 0 || before > digits) return put_e(out, width, digits, value);
  put_f(out, width > 4 ? width - 4 : width, digits - before, value);
  if (width > 4) out.append(4, ' ');
}

void put_a(std::string& out, int width, std::string_view text) {
  const std::size_t columns = static_cast<std::size_t>(std::max(width, 0));
  text = text.substr(0, columns);
  out.append(text).append(columns - text.size(), ' ');
}

fmt_line& fmt_line::f(int width, int decimals, std::span<const float> values) {
  for (const float value : values) put_f(line_, width, decimals, value);
  return *this;
}

fmt_line& fmt_line::a_right(int width, std::string_view text) {
  const std::size_t columns = static_cast<std::size_t>(std::max(width, 0));
  put_right(line_, width, text.substr(0, columns));
  return *this;
}

fmt_line& fmt_line::x(int blanks) {
  line_.append(static_cast<std::size_t>(std::max(blanks, 0)), ' ');
  return *this;
}

fmt_line& fmt_line::t(int column) { return x(column - 1 - static_cast<int>(line_.size())); }

}  // namespace lmix_fixed_format

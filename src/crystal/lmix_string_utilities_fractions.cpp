#include <algorithm>
#include <cmath>

#include "lmix_string_utilities.hpp"

namespace lmix_string_utilities {

namespace {

using lmix_fixed_format::put_e;
using lmix_fixed_format::put_f;
using lmix_fixed_format::put_g;
using lmix_fixed_format::put_i;

constexpr float fraction_tolerance = 1e-5f;

/// Bounds of the search and layout of the decimals where it fails.
struct fraction_style {
  int largest_numerator;
  int largest_denominator;
  int width,
      decimals;  ///< of a positive decimal; a negative one has four decimals in ten (two digits) or eight columns
  int negative_width;
};
constexpr fraction_style one_digit{9, 9, 7, 3, 8};
constexpr fraction_style two_digits{24, 24, 9, 4, 10};

std::string integer_text(float rounded) {
  constexpr float wider_than_any_field = 1e6f;
  std::string text = rounded > 0.f ? "+" : "";
  put_i(text, rounded > 0.f ? 3 : 4, std::lrint(std::clamp(rounded, -wider_than_any_field, wider_than_any_field)));
  return pack_string(text);
}

std::string decimal_text(float v, const fraction_style& style) {
  std::string text = v > 0.f ? "+" : "";
  if (v > 0.f) {
    put_f(text, style.width, style.decimals, v);
  } else {
    put_f(text, style.negative_width, 4, v);
  }
  return pack_string(text);
}

std::string fraction_text(float v, const fraction_style& style) {
  const float rounded = std::round(v);
  if (std::abs(v - rounded) <= fraction_tolerance) return integer_text(rounded);
  for (int n = 1; n <= style.largest_numerator; ++n) {
    for (int d = 2; d <= style.largest_denominator; ++d) {
      const float reciprocal = 1.f / static_cast<float>(d);
      if (!(std::abs(static_cast<float>(n) * reciprocal - std::abs(v)) <= fraction_tolerance)) continue;
      return (v > 0.f ? "+" : "-") + std::to_string(n) + "/" + std::to_string(d);
    }
  }
  return decimal_text(v, style);
}

std::string translation_text(std::span<const float, 3> vec, const fraction_style& style) {
  constexpr std::size_t slot = 8;
  std::string text = "(";
  for (std::size_t i = 0; i < 3; ++i) {
    std::string component = fraction_text(vec[i], style).substr(0, slot);
    if (component.starts_with('+')) component.erase(0, 1);
    text += component + (i < 2 ? "," : ")");
  }
  return text;
}

/// The value with its standard deviation in brackets; both finite, std >= 1e-8.
std::string bracket_text(float value, float std) {
  int n = 0;
  float s = std;
  for (; s < 2.f; s *= 10.f) ++n;
  float bracket = std::floor(s);
  if (s - bracket > 0.09999f) bracket += 1.f;
  if (std < 1.f && bracket == 20.f) {
    bracket = 2.f;
    --n;
  }
  std::string text;
  put_f(text, 0, n, value);
  if (text.ends_with('.')) text.pop_back();
  text += '(';
  put_f(text, 0, 0, bracket);
  text.back() = ')';  // in the place of the point
  return text;
}

/// A value whose standard deviation says nothing.
std::string lone_value_text(float value) {
  constexpr float largest_fixed = 999999.f;
  std::string text;
  if (std::abs(value) <= largest_fixed) {
    put_f(text, 16, 5, value);
  } else {
    put_g(text, 20, 9, value);  // nine digits tell every single-precision number from its neighbours
  }
  return text;
}

std::string value_std_text(float value, float std) {
  constexpr float smallest_std = 1e-8f, largest_ratio = 1e6f;
  if (std < smallest_std || !std::isfinite(value) || !std::isfinite(std)) return rformat(value, 8);
  if (value == 0.f || std::abs(value / std) > largest_ratio) return lone_value_text(value);
  return bracket_text(value, std);
}

}  // namespace

setnum_std_result setnum_std(float value, float std) {
  setnum_std_result result;
  if (std < 0.f) {
    result.err.set("A negative standard deviation was passed on SetNum_Std procedure!");
    return result;
  }
  const std::string text = value_std_text(value, std);
  result.line = trim(text);
  if (!result.line.starts_with('-')) result.line.insert(0, 1, ' ');
  return result;
}

std::string rformat(float value, int width) {
  width = std::clamp(width, 1, 40);
  std::string text;
  if (!std::isfinite(value)) {
    const std::string_view name = std::isnan(value) ? "NaN" : "INF";
    return lmix_fixed_format::fmt_line{}.a_right(width, name).str();
  }
  const float v = value + 0.001f;
  const int k = v > 0.f ? 0 : 1;
  float size = std::abs(v);
  if (size <= std::pow(10.f, static_cast<float>(width - 1 - k)) - 1.f) {
    int decimals = width - 2 - k;
    do {
      size *= 0.1f;
      --decimals;
    } while (size > 1.f);
    put_f(text, width, std::max(decimals, 0), value);
  } else {
    put_e(text, width, std::max(width - k - 6, 1), value);
  }
  return text;
}

std::string get_fraction_1dig(float v) { return fraction_text(v, one_digit); }
std::string get_fraction_2dig(float v) { return fraction_text(v, two_digits); }
std::string frac_trans_1dig(std::span<const float, 3> vec) { return translation_text(vec, one_digit); }
std::string frac_trans_2dig(std::span<const float, 3> vec) { return translation_text(vec, two_digits); }

read_fract_result read_fract(std::string_view str) {
  read_fract_result result;
  const std::string symbol = pack_string(str);
  if (symbol == "+" || symbol == "-") {
    result.value = symbol == "+" ? 1.f : -1.f;
    return result;
  }
  const std::string_view text = symbol;
  const std::size_t slash = text.find('/');
  float numerator = 0.f, denominator = 1.f;
  bool good = lmix_fixed_format::parse_real(text.substr(0, slash), numerator);
  if (slash != std::string_view::npos) {
    const std::string_view below = text.substr(slash + 1);
    good = good && lmix_fixed_format::parse_real(below, denominator) && denominator > 0.f && below[0] != '+';
  }
  const float value = numerator / denominator;
  if (good && std::isfinite(value)) {
    result.value = value;
  } else {
    result.err.set(" The provided symbol is illegal: " + std::string(str));
  }
  return result;
}

}  // namespace lmix_string_utilities

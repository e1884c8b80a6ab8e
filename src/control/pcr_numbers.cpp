#include "pcr_numbers.hpp"

#include <cmath>

#include "lmix_fixed_format.hpp"

namespace pcr_numbers {

namespace {

std::string fixed(int decimals, float value) {
  std::string text;
  lmix_fixed_format::put_f(text, 0, decimals, value);
  return text;
}

bool gives_back(std::string_view text, float value, float tolerance) {
  float back = 0.f;
  return lmix_fixed_format::parse_real(text, back) && std::fabs(back - value) <= tolerance;
}

}  // namespace

line& line::field(std::size_t width, std::string_view number) {
  line_.append(number.size() < width ? width - number.size() : 1, ' ');
  line_ += number;
  return *this;
}

line& line::i(std::size_t width, int value) { return field(width, std::to_string(value)); }

line& line::n(std::size_t width, int decimals, float value) {
  const float well_resolved = std::pow(10.f, static_cast<float>(5 - decimals));
  std::string text = fixed(decimals, value);
  bool exact = gives_back(text, value, 0.f);
  if (!exact && std::fabs(value) >= well_resolved) {
    constexpr int digits_of_a_float = 9;
    for (int more = 1; !exact && more < digits_of_a_float; ++more) {
      text = fixed(decimals + more, value);
      exact = gives_back(text, value, 0.f);
    }
  }
  for (int digits = 7; !exact && digits <= 8; ++digits) {
    text.clear();
    lmix_fixed_format::put_pe(text, 0, digits, value);
    exact = gives_back(text, value, 0.f);
  }
  return field(width, text);
}

line& line::a(std::size_t width, int decimals, float value) { return field(width, fixed(decimals, value)); }

line& line::k(std::size_t width, float code) {
  int decimals = 2;
  while (decimals < 5 && !gives_back(fixed(decimals, code), code, 1.0e-4f)) ++decimals;
  return field(width, fixed(decimals, code));
}

line& line::text(std::string_view text) {
  line_ += text;
  return *this;
}

line& line::text(std::size_t width, std::string_view text) {
  line_ += text;
  if (text.size() < width) line_.append(width - text.size(), ' ');
  return *this;
}

}  // namespace pcr_numbers

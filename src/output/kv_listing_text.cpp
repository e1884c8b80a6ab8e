#include "kv_listing_text.hpp"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "lmix_string_utilities.hpp"

namespace kv_listing_text {

namespace {

using apply_shifts::slot_change;
using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;

auto key_of(const slot_change& c) { return std::tuple(static_cast<int>(c.family), c.owner, c.ip, c.k); }

/// Columns before the first digit that counts, so that three digits of the value show: 0.00123 needs five decimals.
bool swallowed(int decimals, double value) {
  constexpr double least_units = 100.0;  // three digits
  return value != 0.0 && std::abs(value) * std::pow(10.0, decimals) < least_units;
}

}  // namespace

std::string rule(char mark) { return std::string(page_width, mark); }

void list(state_type& st, std::string_view lines) {
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << lines << '\n';
}

void put_number(std::string& out, int width, int decimals, double value) {
  std::string fixed;
  lmix_fixed_format::put_f(fixed, width, decimals, value);
  if (fixed.find('*') == std::string::npos && !swallowed(decimals, value)) {
    out += fixed;
    return;
  }
  constexpr int around_mantissa = 8, float_decimals = 5;  // a blank, sign, digit, point, exponent
  lmix_fixed_format::put_pe(out, width, std::clamp(width - around_mantissa, 1, float_decimals), value);
}

std::string value_line(std::string_view words, int decimals, std::initializer_list<float> values) {
  constexpr int words_width = 56, number_width = 15;
  std::string line = fmt_line{}.a(words_width, words).str();
  for (const float v : values) put_number(line, number_width, decimals, static_cast<double>(v));
  return line;
}

std::string quoted(float value, float sigma, int decimals) {
  if (sigma > 0.f && std::isfinite(sigma) && std::isfinite(value))
    return lmix_string_utilities::setnum_std(value, sigma).line;
  std::string text;
  constexpr int columns = 16;
  put_number(text, columns, decimals, static_cast<double>(value));
  text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
  return text.starts_with('-') ? text : ' ' + text;
}

change_table::change_table(const apply_shifts::shift_report& report) {
  sorted_.reserve(report.changes.size());
  for (const slot_change& c : report.changes) sorted_.push_back(&c);
  std::sort(sorted_.begin(), sorted_.end(),
            [](const slot_change* a, const slot_change* b) { return key_of(*a) < key_of(*b); });
}

change_table::moved change_table::of(slot_family family, int owner, int ip, int k) const {
  const auto key = std::tuple(static_cast<int>(family), owner, ip, k);
  const auto found = std::lower_bound(sorted_.begin(), sorted_.end(), key,
                                      [](const slot_change* c, const auto& wanted) { return key_of(*c) < wanted; });
  if (found == sorted_.end() || key_of(**found) != key) return {};
  return {(*found)->shift, (*found)->sigma};
}

std::string phase_title(const state_type& st, int ph) {
  return fmt_line{}.i(2, ph + 1).x(2).a(at(st.phase, ph).phsnm).str();
}

bool takes_part(const pattern_type& pattern) { return pattern.affpat != 0 && !pattern.cry_pat; }

}  // namespace kv_listing_text

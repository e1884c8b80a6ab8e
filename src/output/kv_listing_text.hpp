// kv_listing_text: pieces of text that the echo of the input, the cycle listing and the summary have in common.
// It owns the layout of numbers and rules, and writes no state but the files of the listings.
// Decimals are the least that a printed value keeps; a value that they would swallow is printed with E.
#pragma once
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "apply_shifts.hpp"
#include "kalvaris_params.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_listing_text {

inline constexpr std::size_t page_width = 132;  ///< columns of the rules; other lines may be longer

/// Element i of an array counted with int.
template <class V>
[[nodiscard]] auto& at(V& v, int i) {
  return v[static_cast<std::size_t>(i)];
}

[[nodiscard]] std::string rule(char mark);
/// One line, or several with newlines between them, to the listing; a newline is put behind.
void list(kalvaris_params::state_type& st, std::string_view lines);

/// Appends a number in `width` columns with `decimals` decimals, or with an exponent where these would show fewer than
/// three digits of it or the field would overflow.
void put_number(std::string& out, int width, int decimals, double value);
/// Words and numbers as a line of the listing.
[[nodiscard]] std::string value_line(std::string_view words, int decimals, std::initializer_list<float> values);
/// "1.2345(12)" with a standard deviation above 0, else the value with its decimals as in put_number.
[[nodiscard]] std::string quoted(float value, float sigma, int decimals);

/// Finds what a cycle did to a slot. Holds a reference to the report.
class change_table {
 public:
  explicit change_table(const apply_shifts::shift_report& report);
  /// Shift and sigma of the slot; both 0 for a slot that is not refined.
  struct moved {
    float shift = 0, sigma = 0;
  };
  [[nodiscard]] moved of(kalvaris_params::slot_family family, int owner, int ip, int k) const;

 private:
  std::vector<const apply_shifts::slot_change*> sorted_;
};

/// Words behind "Phase No." such as " 1  Corundum".
[[nodiscard]] std::string phase_title(const kalvaris_params::state_type& st, int ph);
/// Points, reflections and agreement factors exist for this pattern.
[[nodiscard]] bool takes_part(const kalvaris_params::pattern_type& pattern);

}  // namespace kv_listing_text

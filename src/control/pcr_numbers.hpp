// pcr_numbers: the fields of a line of the control file as the writer sets them.
// It owns the line under construction. No field touches the one before it; no value loses a bit, no coordinate more
// than 5E-7.
#pragma once
#include <string>
#include <string_view>

namespace pcr_numbers {

/// A line built field by field. A field that needs more columns than it has takes them; one blank stands in front.
class line {
 public:
  line& i(std::size_t width, int value);
  /// Value that reads back exactly: fixed with `decimals`, or with as many more as it needs when it is at least
  /// 10^(5 - decimals) in size, or with an exponent.
  line& n(std::size_t width, int decimals, float value);
  line& a(std::size_t width, int decimals, float value);  ///< fixed always: coordinates
  line& k(std::size_t width, float code);  ///< code: two decimals, up to five where two do not give it back
  line& text(std::string_view text);
  line& text(std::size_t width, std::string_view text);  ///< left-justified in `width` columns, longer when it is
  [[nodiscard]] std::string str() const { return line_ + '\n'; }

 private:
  line& field(std::size_t width, std::string_view number);
  std::string line_;
};

}  // namespace pcr_numbers

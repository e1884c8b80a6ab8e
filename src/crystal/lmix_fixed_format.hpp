// Fixed formats: writes numbers and text in fields of fixed width, and reads the fields of fixed columns back.
// Owns the rules of the field descriptors (i4, f8.3, 1pe12.4, g10.3, a8); all other modules write and read through it.
// Keeps no state: a line under construction belongs to its fmt_line, what was read to its field_values.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lmix_fixed_format {

// --- Writing -------------------------------------------------------------------------------------------------------
// Each writer appends one field of `width` columns, right-justified; a value that does not fit gives a field of stars.
// Width 0 takes the columns that the value needs. A NaN is written as NaN, an infinity as Infinity or Inf. A float is
// passed as the double of the same value; rounding is that of its exact decimal expansion, ties to even.

void put_i(std::string& out, int width, long long value);
/// 12.346; the 0 before the point is left out only where the field is full without it.
void put_f(std::string& out, int width, int decimals, double value);
/// 0.1235E+02 with `decimals` significant digits; three-digit exponents lose the letter: 0.1235+102.
void put_e(std::string& out, int width, int decimals, double value);
/// 1.2346E+01: one digit before the point (the descriptor 1pe).
void put_pe(std::string& out, int width, int decimals, double value);
/// `digits` significant digits, fixed with four blanks behind it for 0 and for 0.1 <= |value| < 10^digits as rounded;
/// otherwise as put_e.
void put_g(std::string& out, int width, int digits, double value);
/// Left-justified, padded with blanks or cut: a character variable of `width` written in its own width.
void put_a(std::string& out, int width, std::string_view text);

/// A line built field by field: fmt_line{}.i(4, n).f(8, 3, x).x(2).a("text").str().
class fmt_line {
 public:
  fmt_line& i(int width, long long value) { return put_i(line_, width, value), *this; }
  fmt_line& f(int width, int decimals, double value) { return put_f(line_, width, decimals, value), *this; }
  fmt_line& f(int width, int decimals, std::span<const float> values);  ///< one field per value
  fmt_line& e(int width, int decimals, double value) { return put_e(line_, width, decimals, value), *this; }
  fmt_line& pe(int width, int decimals, double value) { return put_pe(line_, width, decimals, value), *this; }
  fmt_line& g(int width, int digits, double value) { return put_g(line_, width, digits, value), *this; }
  fmt_line& a(std::string_view text) { return line_ += text, *this; }
  fmt_line& a(int width, std::string_view text) { return put_a(line_, width, text), *this; }
  fmt_line& a_right(int width, std::string_view text);  ///< right-justified; a longer text is cut at its end
  fmt_line& x(int blanks);
  fmt_line& t(int column);  ///< blanks up to the 1-based column, so that the next field begins there
  std::string str() const { return line_; }

 private:
  std::string line_;
};

// --- Numbers in text -----------------------------------------------------------------------------------------------

/// The whole text as a 32-bit integer: digits with at most one sign. False, and `value` untouched, for anything else.
bool parse_integer(std::string_view text, int& value);
/// The whole text as a real: digits with or without a point, exponent as E5, D-3 or a bare sign (1.5-2). Without a
/// point the last `decimals` digits are decimals. Too small becomes 0; too large, NaN and Inf are refused. False, and
/// `value` untouched, when refused.
bool parse_real(std::string_view text, float& value, int decimals = 0);
bool parse_real(std::string_view text, double& value, int decimals = 0);

// --- Reading columns -----------------------------------------------------------------------------------------------

enum class field_kind { integer, real, text };

struct field_column {
  field_kind kind = field_kind::text;
  int offset = 0;    ///< columns before the field
  int width = 0;     ///< columns of the field
  int decimals = 0;  ///< implied decimals of a real written without a point
};

/// The fields of one line. Columns past its end and blank columns read as 0 or as no text; blanks inside a number do
/// not count.
class field_values {
 public:
  std::string line;  ///< the text that the fields were read from
  int failed = -1;   ///< field (0-based) at which the last reading of a line failed, -1: none

  int size() const { return static_cast<int>(values_.size()); }
  /// Field k (0-based). A field of another kind, or outside size(), reads as follows: an integer by f() as its value,
  /// a real by i() without its fraction (0 when out of range), text or nothing as 0.
  int i(int k) const;
  float f(int k) const;
  double d(int k) const;  ///< as f(), converted anew in double precision
  /// Text of the columns of field k, whatever its kind, without the blanks at its end.
  std::string_view a(int k) const;

  /// Converts the columns of `line`. Returns the first field (0-based) that is no number of its kind, or -1. After a
  /// failure there are no fields.
  int convert(std::span<const field_column> columns);
  void clear();  ///< no line, no fields

 private:
  struct value {
    field_column column;
    int integer = 0;
    float real = 0.f;
  };
  bool convert_field(const field_column& column);
  const value* at(int k) const;
  std::string_view columns_of(const field_column& column) const;
  std::string_view number_text(const field_column& column, std::string& packed) const;

  std::vector<value> values_;
};

/// A format such as (3i4,2f13.4,i3,4f8.4), (8F10.2) or (10(i2,i6)): items i, f, e, d, g, a with repeat counts, groups,
/// and the positions nx, tn, trn, tln. One line only: no `/`, no text, no scale factor.
struct fixed_format {
  std::vector<field_column> columns;
  int n_real = 0;  ///< fields of kind real

  /// Text behind the closing bracket is ignored. Empty for a text that is no such format, or that has more than 10000
  /// fields or columns.
  static std::optional<fixed_format> parse(std::string_view text);
};

/// Reads a line by a format into `out`. Returns the first bad field (0-based) or -1, as field_values::convert.
int read_line(const fixed_format& format, std::string_view line, field_values& out);

/// One field in the 1-based columns `first` to `last`; blank reads as 0, empty result for what is no number.
std::optional<int> integer_in_columns(std::string_view line, int first, int last);
std::optional<float> real_in_columns(std::string_view line, int first, int last, int decimals = 0);
std::string_view text_in_columns(std::string_view line, int first, int last);  ///< blanks at the end cut

}  // namespace lmix_fixed_format

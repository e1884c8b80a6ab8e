// pcr_fields: what the fields of a line of the control file are: name, kind, meaning, unit, values with their words.
// It owns the types; the rows stand in pcr_forms.hpp. The reader of lines walks them, the explanation prints them.
// A field either has a row of its own or fills a slot of the model, whose name and meaning come from the table of
// slots.
#pragma once
#include <array>
#include <span>
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"
#include "slot_text.hpp"

namespace pcr_fields {

/// A value of a flag in words.
struct choice {
  int value;
  std::string_view text;
};

struct field {
  std::string_view name;
  char letter = 'i';  ///< as for findfmt: i integer, f real, a digit a word of at most so many characters
  std::string_view meaning;
  std::string_view unit = {};
  std::span<const choice> choices = {};
};

/// A line that has always the same fields.
struct line_form {
  std::string_view name;    ///< as messages call it
  std::string_view stands;  ///< when it stands in the file and where
  std::span<const field> fields;
};

using slot_text::slot_place;

/// Values, codes and codes as read of one record of the state, and which record it is.
struct slot_arrays {
  std::span<float> value, code, code_read;
  kalvaris_params::slot_family family = kalvaris_params::slot_family::global;
  int owner = 0, ip = 0;
};

enum class kind {
  plain,  ///< described by its row
  value,  ///< value of a slot
  code,   ///< refinement code of a slot
};

/// Neighbouring fields of a line. A part lives as long as the call that it is passed to.
class part {
 public:
  /// A table of fields, once, or `times` over with numbers behind the names.
  part(std::span<const field> fields, int times = 1) : fields_(fields), times_(times) {}
  template <std::size_t n>
  part(const std::array<field, n>& fields, int times = 1) : fields_(fields), times_(times) {}

  static part values(const slot_arrays& to, std::span<const int> slots) { return {arrangement::values, to, slots}; }
  static part codes(const slot_arrays& to, std::span<const int> slots) { return {arrangement::codes, to, slots}; }
  /// value, code, value, code ...
  static part pairs(const slot_arrays& to, std::span<const int> slots) { return {arrangement::pairs, to, slots}; }

  struct element {
    kind is;
    const field* row;  ///< of a plain field
    int number;        ///< 1, 2, ... of a table that stands several times, 0: it stands once
    int k;             ///< slot
  };
  [[nodiscard]] int size() const;
  [[nodiscard]] element at(int j) const;
  [[nodiscard]] const slot_arrays& to() const { return to_; }

 private:
  enum class arrangement { fields, values, codes, pairs };
  part(arrangement a, const slot_arrays& to, std::span<const int> slots) : arrangement_(a), to_(to), slots_(slots) {}

  arrangement arrangement_ = arrangement::fields;
  std::span<const field> fields_;
  int times_ = 1;
  slot_arrays to_;
  std::span<const int> slots_;
};

/// The words of a value, blank when the field has none for it.
[[nodiscard]] std::string_view words_of(const field& row, int value);

}  // namespace pcr_fields

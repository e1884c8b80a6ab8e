// pcr_check: what looks wrong in a control file that reads well: codes that refine nothing or break the symmetry,
// values that contradict each other, atoms beside their positions. It owns one table of checks, each a small function.
// Reads the state that the control reader has filled, codes still as words, and writes nothing.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"
#include "pcr_lines.hpp"

namespace pcr_check {

enum class severity {
  error,    ///< a run would be refused
  warning,  ///< a run would go on, to an end that is hardly meant
  note,     ///< worth knowing
};
[[nodiscard]] std::string_view name_of(severity level);

/// One thing found, with what to do about it.
struct finding {
  severity level = severity::warning;
  int line = 0;        ///< of the control file, 0 when it is not known
  std::string text;    ///< what was found
  std::string advice;  ///< what to do, blank when the text says it
};

/// Where the slots of a model stand in the control file.
struct line_table {
  struct row {
    slot_text::slot_place slot;
    bool code = false;  ///< the line of the code, not of the value
    int line = 0;
  };
  std::vector<row> rows;
  /// 0 when it is not known.
  [[nodiscard]] int of(const slot_text::slot_place& slot, bool code) const;
};
[[nodiscard]] line_table lines_of(const pcr_lines::record& kept);

/// All that the checks find, in the order of their table.
[[nodiscard]] std::vector<finding> look_at(kalvaris_params::state_type& st, const line_table& lines);

/// A number as a user writes it: six digits, no zeros at the end.
[[nodiscard]] std::string text_of(double value);

}  // namespace pcr_check

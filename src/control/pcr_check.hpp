// pcr_check: what looks wrong in a control file that reads well: codes that refine nothing or break the symmetry,
// values that contradict each other, atoms beside their positions. It owns one table of checks, each a small function.
// Reads the state that the control reader has filled, codes still as words, and writes nothing.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"

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

/// All that the checks find, in the order of their table.
[[nodiscard]] std::vector<finding> look_at(kalvaris_params::state_type& st);

}  // namespace pcr_check

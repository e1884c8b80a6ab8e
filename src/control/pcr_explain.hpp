// pcr_explain: a control file explained line by line, from what its reader kept of it.
// It owns nothing: it turns the record of a reading, the text of the file and the state into text for a person.
// All words come from the tables of fields and of slots that the reader walks.
#pragma once
#include <string>
#include <string_view>

#include "pcr_lines.hpp"

namespace pcr_explain {

/// What is explained.
struct reading_result {
  kalvaris_params::state_type& st;  ///< only read
  std::string_view text;            ///< the file
  const pcr_lines::record& kept;    ///< of its reading
  bool numbered = false;            ///< codes are split: each slot has its parameter number and multiplier
};

/// Each line with its number; below a line that holds values its name, and per value: name, text, meaning with the
/// words of the chosen value, unit, and for a code the parameter that it refines. Fields of a line that stands several
/// times (atoms, points) are told in full once per phase and pattern. Ends at the last line that the reader took.
[[nodiscard]] std::string explanation(const reading_result& of);

/// All lines that a control file can have with the fields of each, as tables in Markdown: sections that begin with "###
/// ".
[[nodiscard]] std::string reference();

}  // namespace pcr_explain

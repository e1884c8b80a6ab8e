// What must hold for every text that is given to the reader of the control file, whatever it is.
#pragma once
#include <string>
#include <string_view>

#include "control_files.hpp"

namespace control_files {

/// Reads the text; blank, or what is wrong: a refusal without words, a line number outside the text, an accepted text
/// that is not written and read again to the same bytes.
std::string complaint(run_directory& run, std::string_view text);

}  // namespace control_files

// run_names: from the words of the command line to the names of a run: directory, code, data file.
// It owns the rules of search; the names themselves belong to inout_type.
// Called once by the command line before the run.
#pragma once
#include <string>
#include <string_view>

#include "kalvaris_inout.hpp"

namespace run_names {

/// Fills io.directory and io.filenam from the first word of the command line: text between double quotes, a path, a
/// name with or without .pcr (also .PCR, .Pcr, .PCr).
void set_code(kalvaris_inout::inout_type& io, std::string_view word);

/// Looks into the first ten lines of code.pcr and tells whether a data file is wanted for it: none is with NPATT, which
/// makes io.multi_pattern true, and with a job of calculation (2, 3, -2, -3 below a line with "!Job"), whose data file
/// becomes the code.
[[nodiscard]] bool peek_control_file(kalvaris_inout::inout_type& io);

/// Fills filedat[0] and extdat[0] from the second word, which must name a file that is there: otherwise stops through
/// stop_cond. A blank word stands for the code with the first extension for which a file exists, blank when none does.
void find_data_file(kalvaris_inout::inout_type& io, std::string_view word);

/// The three of them in order. A second word that is not wanted is told on the console.
void set_names(kalvaris_inout::inout_type& io, std::string_view code, std::string_view data);

}  // namespace run_names

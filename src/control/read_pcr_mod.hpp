// read_pcr_mod: reads the control file of a run into the shared state, and writes it again with the refined values.
// It owns the flags, values and raw code words of run, patterns, phases and atoms until the codes are split; then only
// the writer reads them. Which line comes next follows from flags read before: the order stands in the sources.
#pragma once
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"
#include "pcr_lines.hpp"

namespace read_pcr_mod {

/// Reads the control file that unit 1 was opened on, in both forms (one pattern, or `NPATT` and several). Calls
/// read_dimensions and init_val, then fills st.run, st.pattern, st.phase, st.mixes and st.atom. par holds the direct
/// cell, the code arrays hold the raw words: aglb, apar, a after the VARY and FIX lines, ..._read as they stood.
/// On a failure st.fmt.ierr_fmt is not 0 and st.fmt.mess_findfmt says what, where and at which line; io.file_error is
/// set as well when a named file is missing. Never stops the process.
/// keep: takes what the reader finds in each line, for an explanation, which writes no file; null costs nothing.
void read_pcr(kalvaris_params::state_type& st, pcr_lines::record* keep = nullptr);

/// What remains to be settled once the codes have their symmetry constraints: the pattern to plot and its flags.
void finish_reading(kalvaris_params::state_type& st);

/// Which file the run writes at its end.
enum class pcr_target {
  none,          ///< none
  control_file,  ///< code.pcr is replaced
  new_file,      ///< code.new, code.pcr stays
};
struct write_decision_type {
  pcr_target target = pcr_target::none;
  bool worse_chi2 = false;  ///< code.pcr is spared because chi-square rose by more than a fifth
};
/// cycles_failed: the cycles ended with a divergence or a singular matrix.
[[nodiscard]] write_decision_type write_decision(const kalvaris_params::state_type& st, bool cycles_failed);

/// The control file with the present values, in the form in which it was read. date_line: `dd/mm/yyyy  Time: ...`.
/// The cell comes from phase.cellp when run.code_splitted says that par holds the reciprocal metric. Codes are those
/// of the file, but for multipliers that a guard halved, and for runs with automatic codes.
[[nodiscard]] std::string write_pcr(const kalvaris_params::state_type& st, std::string_view date_line);

/// Decides, tells the console and hands the file over to kalvaris_inout::commit, which brings it to its place; new_file
/// for a worse chi-square sets run.nxt to 2. False when a parameter is not a number, which the console says: nothing is
/// written then.
bool save_pcr(kalvaris_params::state_type& st, bool cycles_failed);

}  // namespace read_pcr_mod

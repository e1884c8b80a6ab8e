// kalvaris_sub: one run from the opening of its files to their closing.
// It owns the order of the stages and the words that frame a run; what the stages do belongs to their modules.
// Called once per run by the command line; a series calls it once per data file.
#pragma once
#include <functional>

#include "kalvaris_params.hpp"

namespace kalvaris_sub {

/// The stages of a run. Each reports failure in the state (io.file_error, fmt.ierr_fmt, run.ctr_err) and returns, or
/// stops through stop_cond.
struct run_stages {
  using state_type = kalvaris_params::state_type;
  std::function<void(state_type&)> read_pcr;            ///< reads the control file open on its unit
  std::function<void(state_type&)> write_out;           ///< set-up: data, reflections, echo in the listing
  std::function<int(state_type&)> iterate;              ///< the cycles; not 0 when they ended abnormally
  std::function<void(state_type&)> final_calcn_output;  ///< results and the next control file
};

enum class run_end {
  normal,    ///< the end was reached
  open,      ///< the same, but not at a minimum of all parameters: run.cycles_end says why
  abnormal,  ///< the cycles diverged, met a singular matrix or asked to abort; nothing was rewritten
};

/// One run with the names in st.io (directory, filenam, filedat, extdat, multi_pattern). from_new takes code.new for
/// code.pcr. Closes its files however the cycles end. Throws run_stopped, through stop_cond, when a stage fails.
run_end kalvaris(kalvaris_params::state_type& st, const run_stages& stages, bool from_new = false);

/// The heading of listing, summary and console, line by line.
void write_banner(const std::function<void(std::string_view)>& line);

}  // namespace kalvaris_sub

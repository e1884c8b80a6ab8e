// kv_setup: the stage between reading the control file and the first cycle: codes, cells, data, background, scattering,
// reflection lists, with the echo of the input in the listing in its order. It leaves a state that iterate can run on.
#pragma once
#include <optional>

#include "kalvaris_params.hpp"

namespace kv_setup {

/// Runs the stage. Refusals of content come back in st.fmt (ierr_fmt above 0), of files in st.io.file_error; the reader
/// of the data and the reflection lists may stop the run through stop_cond.
void write_out(kalvaris_params::state_type& st);

/// Cells and codes alone, the first step of the stage: symmetry constraints on the raw codes, then their split, then
/// A..F of 1/d^2 in the cell slots. False with st.fmt set when they are refused.
[[nodiscard]] bool prepare_codes(kalvaris_params::state_type& st);

/// The temperature [K] of the present step of a series: number io.processed (0-based) of the list io.filetemp, one
/// value per line, text behind it free, blank lines and comments not counted. Empty with io.file_error when there is
/// none.
[[nodiscard]] std::optional<float> read_filetemp(kalvaris_params::state_type& st);

}  // namespace kv_setup

// kv_running_output_parts: what the sources of the echo share. It owns nothing and writes no state but the listing.
// Only sources of kv_running_output include it.
#pragma once
#include <string>

#include "kalvaris_params.hpp"

namespace kv_running_output {

/// The code word of a slot, as the control file would hold it.
[[nodiscard]] double code_word(int number, float multiplier);

/// Peak shape, preferred orientation, size, strain and shift models of phase ph in pattern ip (0-based), with the
/// conditions, directions and reflections that belong to them.
void echo_models(kalvaris_params::state_type& st, int ph, int ip);

}  // namespace kv_running_output

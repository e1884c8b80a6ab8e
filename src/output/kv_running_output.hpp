// kv_running_output: the echo of the input in the listing: conditions of the run, range of the data, phases with their
// groups, cells, atoms, parameters and codes. It prints what the set-up stage has made of the control file and computes
// nothing. It owns the words for the flags; it writes no state but the listing.
#pragma once
#include "kalvaris_params.hpp"

namespace kv_running_output {

/// Modes, geometry, weights, background, output options, radiation and cycles; before the data are read.
void echo_conditions(kalvaris_params::state_type& st);

/// Range of the measured points of pattern ip (0-based), once they are read.
void echo_data(kalvaris_params::state_type& st, int ip);

/// Group, operators, cell, atoms, profile parameters and codes of each phase; global parameters and scattering of each
/// pattern; the number of refined parameters with their names. Codes must be split and the scattering looked up.
void echo_phases(kalvaris_params::state_type& st);

}  // namespace kv_running_output

// kv_running_output: the echo of the input in the listing: conditions of the run, range of the data, phases with their
// groups, cells, atoms, models, parameters and codes. It prints what the set-up stage has made of the control file and
// computes nothing but the weight of a cell. It writes no state but the listing.
#pragma once
#include "kalvaris_params.hpp"

namespace kv_running_output {

/// Modes, geometry, weights, background, shapes, searches, output options, radiation, cycles and limits; before the
/// codes are split and the data are read, so that also a run that is refused later shows them.
void echo_conditions(kalvaris_params::state_type& st);

/// Background points, excluded regions and tables of scattering factors of pattern ip (0-based).
void echo_points(kalvaris_params::state_type& st, int ip);

/// The file of pattern ip, before it is read.
void echo_reading(kalvaris_params::state_type& st, int ip);

/// Range of the measured points of pattern ip, once they are read.
void echo_data(kalvaris_params::state_type& st, int ip);

/// Kind, group, operators, cell, atoms, models, profile parameters and codes of each phase; global parameters of each
/// pattern. Codes must be split.
void echo_phases(kalvaris_params::state_type& st);

/// The number of refined parameters with their names; the last of the echo, behind the reflection lists.
void echo_parameters(kalvaris_params::state_type& st);

}  // namespace kv_running_output

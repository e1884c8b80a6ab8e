// pcr_sections: the parts of the control file in the order in which they are read.
// It owns the reading of a run while it lasts: the lines and the state that they fill.
// Every operation takes the lines of its part; false after a failure, whose message stands in st.fmt.
#pragma once
#include <span>
#include <string_view>

#include "kalvaris_params.hpp"
#include "pcr_layout.hpp"
#include "pcr_lines.hpp"

namespace read_pcr_mod {

struct reading {
  kalvaris_params::state_type& st;
  pcr_lines::line_reader in;
  bool multi_pattern_of_driver = false;  ///< io.multi_pattern before the file was looked at
};

using pcr_fields::slot_arrays;
/// The slots of a record of the state, all numbers 0-based.
[[nodiscard]] slot_arrays slots_of_pattern(reading& r, int ip);
[[nodiscard]] slot_arrays slots_of_phase(reading& r, int ph, int ip);

[[nodiscard]] bool read_head(reading& r);              ///< title, comments, NPATT and W_PAT
[[nodiscard]] bool read_flags(reading& r);             ///< flags, WGHT
[[nodiscard]] bool read_data_files(reading& r);        ///< long form
[[nodiscard]] bool read_resolution_files(reading& r);  ///< forced flags, names of resolution files
[[nodiscard]] bool check_limits(reading& r);           ///< counts that have a message of their own
[[nodiscard]] bool read_output_flags(reading& r);
void read_commands(reading& r, int ip);         ///< VARY and FIX lines, when they stand
[[nodiscard]] bool read_radiation(reading& r);  ///< radiation, VARY, FIX
[[nodiscard]] bool read_cycles(reading& r);
[[nodiscard]] bool read_points_and_regions(reading& r);  ///< background points, excluded regions
[[nodiscard]] bool read_scattering(reading& r);
[[nodiscard]] bool read_global_parameters(reading& r);  ///< number of parameters, zero lines, background
[[nodiscard]] bool read_phases(reading& r);
[[nodiscard]] bool read_command_lines(reading& r, int ph);    ///< COMMANDS block, when it stands
[[nodiscard]] bool read_distance_limits(reading& r, int ph);  ///< with soft restraints: limits, bond valences
[[nodiscard]] bool read_space_group(reading& r, int ph);      ///< symbol, symmetry given by hand
[[nodiscard]] bool read_vectors(reading& r, int ph);          ///< propagation vectors, when they stand here
[[nodiscard]] bool read_vectors_behind(reading& r, int ph);   ///< otherwise
[[nodiscard]] bool read_restraints(reading& r, int ph);
/// Operators that a restraint or an atom can name.
[[nodiscard]] int number_of_operators(const kalvaris_params::phase_type& phase);
[[nodiscard]] bool read_form_factor(reading& r, int ph, kalvaris_params::atom_type& atom);
/// Refuses an atom without a scattering species: nothing tells what it scatters, and its line would not read back.
[[nodiscard]] bool has_species(reading& r, const pcr_lines::place& at, const kalvaris_params::atom_type& atom);
[[nodiscard]] bool read_atoms(reading& r, int ph);
[[nodiscard]] bool read_atom(reading& r, int ph);    ///< one atom with all its lines
[[nodiscard]] bool read_bodies(reading& r, int ph);  ///< rigid bodies and the atoms between them
[[nodiscard]] bool read_harmonics(reading& r, int ph, kalvaris_params::atom_type& atom);  ///< of a modulated atom
[[nodiscard]] bool read_modes(reading& r, int ph);                                        ///< symmetry modes
/// The phase of the place has an atom of that label; refused otherwise.
[[nodiscard]] bool check_atom_label(reading& r, const pcr_lines::place& at, const std::string& label);
[[nodiscard]] bool read_lists(reading& r, int ip);  ///< what Laue and multi-phase data have for a radiation line
[[nodiscard]] bool read_profile(reading& r, int ph, int ip);
[[nodiscard]] bool read_linear_restraints(reading& r);
[[nodiscard]] bool read_limits(reading& r);  ///< limits of parameters
[[nodiscard]] bool read_search(reading& r);  ///< what a search is asked for
[[nodiscard]] bool read_pattern_to_plot(reading& r);
/// Keeps what the user has written and the flags do not ask for: comments, and lines behind the last one read.
void keep_text_of_user(kalvaris_params::state_type& st, std::string_view text, const pcr_lines::record& kept);

}  // namespace read_pcr_mod

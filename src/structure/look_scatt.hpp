// look_scatt: connects the species names of the atoms with their scattering data, once per pattern at set-up.
// It writes pattern_type::scattering (behind the entries of the control file) and atom_type::species.
// Species that no table knows scatter nothing; that is said on the console and in the listing.
#pragma once
#include "kalvaris_params.hpp"

namespace look_scatt {

inline constexpr int max_species = 30;  ///< chemical species of a pattern

/// Finds the scattering entry of every atom of the phases with a calculated structure in pattern ip (0-based). Entries
/// of the control file win over the tables, by their name without regard to case. X-rays: form factor of
/// International Tables Vol. C with f', f'' of the tube line within 0.005 angstrom of the first wavelength, 0 and one
/// console warning when there is none. Neutrons: bound coherent length (Sears 1992); digits behind the element number
/// the site. Electrons: the X-ray form factor, turned by the Mott-Bethe relation in the structure factor.
/// Returns the number of species that were not found. Stops at a type that stands for a shape or a multipole (its form
/// factor is not calculated) and at more species than `max_species`.
int lookup(kalvaris_params::state_type& st, int ip);

}  // namespace look_scatt

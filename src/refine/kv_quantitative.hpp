// kv_quantitative: mass fractions of the crystalline phases of a mixture from their scale factors.
// It owns nothing and writes nothing; the summary prints what it returns.
// R. J. Hill & C. J. Howard, J. Appl. Cryst. 20 (1987) 467: the mass is proportional to scale times (cell mass) times
// V.
#pragma once
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_quantitative {

/// Mass of one phase in a pattern.
struct mass_fraction {
  int phase = 0;        ///< 0-based
  double fraction = 0;  ///< of the mass of all phases with a structure, 0 to 1
  double sigma = 0;     ///< from the covariance of the scale factors
};

/// Sum of atomic weight times occupancy over the cell [g/mol]; 0 when a species is no element of the tables.
[[nodiscard]] double cell_mass(const kalvaris_params::state_type& st, int ph);

/// Fractions of the phases with a calculated structure that contribute to pattern ip (0-based). F^2 leaves out the
/// centring vectors and the inversion at the origin, so a scale stands for that multiple of scattering matter. Empty
/// with fewer than two such phases, or when the mass of one is not known. Microabsorption is not corrected for.
[[nodiscard]] std::vector<mass_fraction> mass_fractions(const kalvaris_params::state_type& st, int ip);

}  // namespace kv_quantitative

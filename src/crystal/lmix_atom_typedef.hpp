// Atoms of an asymmetric unit as the library's own calculations take them.
// Owns the record atom_type. Whoever builds a list of atoms writes it; the library only reads it.
#pragma once

#include <string>
#include <vector>

#include "lmix_math_general.hpp"

namespace lmix_atom_typedef {

struct atom_type {
  std::string lab;                          ///< label, for listings
  std::string chemsymb;                     ///< element, any case
  int charge = 0;                           ///< oxidation state, 0 unknown
  lmix_math_general::vec3d x{};             ///< position [fractions of the cell]
  lmix_math_general::mat3d x_covariance{};  ///< of the position; on the diagonal the squares of the deviations
  double occ = 1.0;                         ///< part of the equivalent sites that is filled, 0..1
};

using atom_list = std::vector<atom_type>;

}  // namespace lmix_atom_typedef

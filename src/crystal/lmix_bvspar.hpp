// Bond-valence parameters: s = exp((R0 - d)/b).
// Owns the constant table of them. Nobody writes it: it is compiled in.
// Sources: I. D. Brown & D. Altermatt, Acta Cryst. B41 (1985) 244-247; N. E. Brese & M. O'Keeffe, Acta Cryst. B47
// (1991) 192-197. b = 0.37 angstrom in both.
#pragma once

#include <cmath>
#include <span>
#include <string_view>

namespace lmix_bvspar {

struct bvs_par_type {
  std::string_view cation;  ///< element, upper case, two characters
  int charge;               ///< its oxidation state
  std::string_view anion;   ///< the same of the anion, O2- or F-
  double r0;                ///< distance of a bond of valence 1 [angstrom]
};
inline constexpr double b_universal = 0.37;  ///< softness of a bond [angstrom]

/// 49 ions in oxides and three in fluorides: the rows whose published value is certain and fits Shannon's radii and the
/// bond lengths of simple structures. Neither source is given in full; phosphorus, yttrium, zirconium, tungsten and
/// most lanthanides are among those left out.
[[nodiscard]] std::span<const bvs_par_type> bvs_par();
/// Row of a pair; labels in any case, digits and signs are dropped. Null if it is not listed.
[[nodiscard]] const bvs_par_type* find_bvs_par(std::string_view cation, int charge, std::string_view anion);
/// Valence of a bond of length d.
[[nodiscard]] inline double bond_valence(const bvs_par_type& row, double d) {
  return std::exp((row.r0 - d) / b_universal);
}

}  // namespace lmix_bvspar

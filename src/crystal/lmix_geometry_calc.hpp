// Geometry of a crystal structure: distances, angles, torsion angles and bond-valence sums with standard deviations,
// lists of neighbours with their symmetry codes.
// Owns structure_type, a structure made ready for such calculations; make_structure alone fills it.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lmix_atom_typedef.hpp"
#include "lmix_crystal_metrics.hpp"
#include "lmix_crystallographic_symmetry.hpp"

namespace lmix_geometry_calc {

using lmix_crystal_metrics::mat6d;
using lmix_math_general::mat3d;
using lmix_math_general::vec3d;

/// A calculated quantity with its standard deviation.
struct measured {
  double value = 0, sigma = 0;
};

/// An atom of the list moved by an operator of the group and a lattice vector: x' = rot x + tr + shift.
struct image_type {
  std::size_t atom = 0;        ///< in structure_type::atoms
  std::size_t op = 0;          ///< in symop of the group, 0 the identity
  std::array<int, 3> shift{};  ///< [cells]
};

struct structure_type {
  lmix_atom_typedef::atom_list atoms;
  std::vector<lmix_crystallographic_symmetry::sym_oper_type> symop;
  std::vector<std::vector<std::size_t>> orbit;  ///< per atom: operators that make its distinct positions in a cell
  mat3d to_cartesian{};                         ///< angstrom from fractions
  std::array<mat3d, 6> by_cell{};               ///< its derivatives by a, b, c [1] and the angles [angstrom/degree]
  mat6d cell_covariance{};                      ///< of a, b, c [angstrom], alpha, beta, gamma [degrees]
  vec3d rcell{};                                ///< a*, b*, c* [1/angstrom]
};

/// Covariance of the cell parameters from their standard deviations, for the crystal system of a group: what symmetry
/// makes equal moves together (a = b in tetragonal, trigonal and hexagonal cells, all lengths in cubic and rhombohedral
/// ones with their angles), what it fixes has no deviation, the rest counts as independent.
[[nodiscard]] mat6d cell_covariance(const lmix_crystal_metrics::crystal_cell_type& cell,
                                    const lmix_crystallographic_symmetry::space_group_type& spg);
/// Covariance of a position from the standard deviations of its coordinates: coordinates that the site symmetry ties
/// together (x, 2x, z) move together, those that it fixes have none, the rest counts as independent.
[[nodiscard]] mat3d position_covariance(const vec3d& x, const vec3d& x_std,
                                        const lmix_crystallographic_symmetry::space_group_type& spg);

/// Nullopt for a cell that cannot close or a group without operators. Without `covariance`, cell_covariance is taken.
[[nodiscard]] std::optional<structure_type> make_structure(const lmix_crystal_metrics::crystal_cell_type& cell,
                                                           const lmix_crystallographic_symmetry::space_group_type& spg,
                                                           lmix_atom_typedef::atom_list atoms,
                                                           const mat6d* covariance = nullptr);

/// Position of an image [fractions of the cell].
[[nodiscard]] vec3d position(const structure_type& s, const image_type& at);
/// The operator of an image with its lattice vector as x,y,z text.
[[nodiscard]] std::string xyz_code(const structure_type& s, const image_type& at);
/// The same as n_klm: number of the operator (from 1) and 5 plus the lattice vector, "1_555" for the atom itself
/// (C. K. Johnson, ORTEP, report ORNL-3794 (1965); the form of CIF). Empty when a digit does not suffice.
[[nodiscard]] std::string klm_code(const image_type& at);

// Deviations are carried from the cell by the derivatives of the orthogonal matrix and from the positions by their
// covariances, to first order. Images of one atom move together: the distance of an atom to its image by a centre of
// inversion has twice the deviation of the position, that to its image by a lattice vector has none from the position.
// Different atoms count as independent of each other and of the cell.

/// Distance [angstrom].
[[nodiscard]] measured distance(const structure_type& s, const image_type& a, const image_type& b);
/// Angle at b [degrees]. 0 with two points in one place. A straight angle has no deviation of first order: 0.
[[nodiscard]] measured angle(const structure_type& s, const image_type& a, const image_type& b, const image_type& c);
/// Torsion angle a-b-c-d in -180..180 degrees, positive when, seen along b to c, d stands clockwise from a (IUPAC;
/// W. Klyne & V. Prelog, Experientia 16 (1960) 521-523). Gradient: A. Blondel & M. Karplus, J. Comput. Chem. 17 (1996)
/// 1132-1141. 0 when three points that follow each other lie on a line.
[[nodiscard]] measured torsion(const structure_type& s, const image_type& a, const image_type& b, const image_type& c,
                               const image_type& d);

struct neighbour_type {
  image_type image;
  measured d;  ///< distance [angstrom]
};
/// Positions closer than this are one site and no neighbours [angstrom].
inline constexpr double same_site = 0.1;
/// Longest distance that the lists take [angstrom].
inline constexpr double longest_search = 100.0;

/// All atoms within `limit` of an atom of the list, the nearest first, each position once. Empty unless
/// 0 < limit <= longest_search.
[[nodiscard]] std::vector<neighbour_type> coordination(const structure_type& s, std::size_t atom, double limit);
/// The same for every atom of the list.
[[nodiscard]] std::vector<std::vector<neighbour_type>> calc_dist(const structure_type& s, double limit);

struct angle_type {
  std::size_t first, second;  ///< in the list of neighbours
  measured value;             ///< at the central atom [degrees]
};
/// Angles between all pairs of neighbours of an atom.
[[nodiscard]] std::vector<angle_type> calc_angles(const structure_type& s, std::size_t atom,
                                                  std::span<const neighbour_type> neighbours);

struct bvs_type {
  measured sum;       ///< sum of the bond valences, each times the occupancy of the neighbour
  int n_bonds = 0;    ///< neighbours of opposite charge with parameters
  int n_missing = 0;  ///< neighbours of opposite charge without
};
/// Bond-valence sum of an atom over its neighbours within `limit`.
[[nodiscard]] bvs_type bond_valence_sum(const structure_type& s, std::size_t atom, double limit);

/// Listing of distances up to `limit` and the angles between bonds up to `angle_limit` (none when that is 0), atom by
/// atom, lines ended by newlines.
[[nodiscard]] std::string write_geometry(const structure_type& s, double limit, double angle_limit = 0);

}  // namespace lmix_geometry_calc

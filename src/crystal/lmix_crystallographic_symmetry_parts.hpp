// lmix_crystallographic_symmetry, inner part: exact operators while a group is built, their closure, Hall symbols.
// It owns nothing: the sources of the module share it, and no other module includes it.
// Translations are double precision here and become single precision in the record.
#pragma once
#include <algorithm>
#include <optional>

#include "lmix_crystallographic_symmetry.hpp"

namespace lmix_crystallographic_symmetry::parts {

inline constexpr matrix3i identity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

/// An operator in double precision, translation in [0,1) unless it was just read.
struct exact_op {
  matrix3i rot = identity;
  std::array<double, 3> tr{};
  int time_inv = 1;  ///< -1: joined with time reversal
};

/// Translations of two operators count as equal within this: user operators come with four decimals.
inline constexpr double translation_tolerance = 2.0e-4;

matrix3i negated(const matrix3i& m);
matrix3i product(const matrix3i& a, const matrix3i& b);
/// a after b, reduced. Elements grow without bound under products of a matrix of infinite order: see close_group.
exact_op product(const exact_op& a, const exact_op& b);
/// Brings the translation into [0,1); a value that rounding left just below 1 becomes 0.
void reduce(exact_op& op);
/// Translations that people write have as few as three decimals (0.333 is 1/3); those of a record are rounded to single
/// precision.
inline constexpr double rounding_of_users = 5.0e-4, rounding_of_records = 2.0e-6;
/// Moves a translation near a multiple of 1/24 onto it and reduces.
void snap(exact_op& op, double rounding = rounding_of_records);
bool equal(const exact_op& a, const exact_op& b);
bool is_new_op(const exact_op& op, std::span<const exact_op> known);
exact_op exact(const sym_oper_type& op, double rounding = rounding_of_records);
sym_oper_type rounded(const exact_op& op);

/// Takes the products into a list of operators that share a point; 96 of them at most (m-3m with time reversal).
template <class Op, class Product, class Same>
void close_site(std::vector<Op>& site, Product product, Same same) {
  const std::size_t generators = site.size();
  for (std::size_t i = 0; i < site.size() && site.size() < 96; ++i)
    for (std::size_t j = 0; j < generators; ++j) {
      const Op p = product(site[i], site[j]);
      if (std::ranges::none_of(site, [&](const Op& known) { return same(known, p); })) site.push_back(p);
    }
}

/// Largest order that is accepted: 48 rotations with 24 centring vectors.
inline constexpr std::size_t max_order = 1152;

/// Closes the generators, one after the other, so that the group of the first ones heads the list. The identity is
/// first. Empty when the order would exceed max_order. `num_gen` counts generators that enlarged the group and are
/// neither a translation nor an inversion.
struct closed_group {
  std::vector<exact_op> element;
  int num_gen = 0;
};
closed_group close_group(std::span<const exact_op> generators);

/// What a symbol asks for: operators, then the centring vectors.
struct generator_set {
  err_symm_type err;
  std::vector<exact_op> generators;
  int numlat = 0;  ///< lattice points per cell that the symbol names
};
/// Of a Hall symbol: its operators, then -1 if it says so, then the centring vectors.
generator_set get_so_from_hall(std::string_view hall);
/// Of a Hermann-Mauguin symbol, by its own letters: no table of settings is consulted.
generator_set get_so_from_hms(std::string_view hms);

/// x' = m x + t with real numbers: texts before it is known whether their matrix is whole, changes of axes.
struct affine {
  std::array<std::array<double, 3>, 3> m{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  std::array<double, 3> t{};
};
/// Reads three fields over three letters that follow each other, `first` and the next two: "x-y, 1/2x, z+1/8".
err_symm_type read_affine(std::string_view text, affine& out, char first = 'x');
/// "x/2+y/2,z,-x" as Hall symbols have it, or "1/2x+1/2y,z,-x" with the fraction in front.
std::string affine_text(const affine& a, bool fraction_in_front = false);
affine product(const affine& a, const affine& b);  ///< a after b
double affine_determinant(const affine& a);
/// Empty for a singular matrix.
std::optional<affine> inverse(const affine& a);
/// False when a matrix element is not whole within `tolerance` (or absurd).
bool whole(const affine& a, exact_op& op, double tolerance = 0.0);

/// Operators and lattice on other axes: x(new) = v x(old). `centring` are the lattice vectors in the new cell, zero
/// first. Empty when the new axes are no lattice vectors or the new cell is absurdly large.
struct changed_axes {
  std::vector<affine> op;
  std::vector<std::array<double, 3>> centring;
};
std::optional<changed_axes> change_axes(std::span<const exact_op> op, std::span<const vector3> centring,
                                        const affine& v);
/// The same as operators, centring vectors behind them; empty also when a matrix is not whole on the new axes.
std::optional<std::vector<exact_op>> whole_operators(const std::optional<changed_axes>& changed);

/// Record of a closed group; false when it holds no crystallographic point group. Nothing is taken from the tables.
bool fill_record(space_group_type& spg, const closed_group& group);
/// Fills in number, symbols and positions where the operators are those of a tabulated setting.
void add_tabulated_setting(space_group_type& spg);

/// Hall symbol of a group, found without the table of settings: `plain` tells that no general change of axes stands in
/// it. Empty when none was found.
struct found_hall {
  std::string symbol;
  bool plain = true;
};
found_hall hall_symbol_of(const closed_group& group);

/// Fractions as users write them: "1/3", "-0.1234"; with `exact` six decimals where no fraction of small numbers is
/// meant.
std::string fraction_text(double v, bool exact = false);

/// The pieces of a point-group symbol with the operations that they stand for: "4", "/m", "m", "m". Empty when a piece
/// names a direction that the conventional axes have not.
struct symbol_piece {
  std::string text;
  matrix3i rot;
};
std::vector<symbol_piece> pieces_of_point_group(std::string_view pg, bool rhombohedral_axes);

/// The type (order, negative with inversion) of a rotation: 1 2 3 4 6 -1 -2 -3 -4 -6; 0 for anything else.
int rotation_type(const matrix3i& rot);
/// Axis of a rotation or rotoinversion as whole numbers without a common divisor; 0 0 0 for 1 and -1.
std::array<int, 3> rotation_axis(const matrix3i& rot);

}  // namespace lmix_crystallographic_symmetry::parts

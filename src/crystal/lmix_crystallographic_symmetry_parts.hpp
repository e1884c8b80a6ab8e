// lmix_crystallographic_symmetry, inner part: exact operators while a group is built, their closure, Hall symbols.
// It owns nothing: the sources of the module share it, and no other module includes it.
// Translations are double precision here and become single precision in the record.
#pragma once
#include <optional>

#include "lmix_crystallographic_symmetry.hpp"

namespace lmix_crystallographic_symmetry::parts {

inline constexpr matrix3i identity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

/// An operator in double precision, translation in [0,1) unless it was just read.
struct exact_op {
  matrix3i rot = identity;
  std::array<double, 3> tr{};
};

/// Translations of two operators count as equal within this: user operators come with four decimals.
inline constexpr double translation_tolerance = 2.0e-4;

matrix3i negated(const matrix3i& m);
matrix3i product(const matrix3i& a, const matrix3i& b);
/// a after b, reduced. Elements grow without bound under products of a matrix of infinite order: see close_group.
exact_op product(const exact_op& a, const exact_op& b);
/// Brings the translation into [0,1); a value that rounding left just below 1 becomes 0.
void reduce(exact_op& op);
/// Moves a translation within 0.0005 of a multiple of 1/24 onto it (0.333 is 1/3) and reduces.
void snap(exact_op& op);
bool equal(const exact_op& a, const exact_op& b);
exact_op exact(const sym_oper_type& op);
sym_oper_type rounded(const exact_op& op);

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
};
/// Of a Hall symbol: its operators, then -1 if it says so, then the centring vectors.
generator_set get_so_from_hall(std::string_view hall);
/// Of a Hermann-Mauguin symbol, by its own letters: no table of settings is consulted.
generator_set get_so_from_hms(std::string_view hms);

/// Fractions as users write them: "1/3", "-0.1234".
std::string fraction_text(double v);

/// The type (order, negative with inversion) of a rotation: 1 2 3 4 6 -1 -2 -3 -4 -6; 0 for anything else.
int rotation_type(const matrix3i& rot);
/// Axis of a rotation or rotoinversion as whole numbers without a common divisor; 0 0 0 for 1 and -1.
std::array<int, 3> rotation_axis(const matrix3i& rot);

}  // namespace lmix_crystallographic_symmetry::parts

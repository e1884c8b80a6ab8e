// lmix_reflections_utilities: reflection conditions, multiplicities, equivalent indices and the list of unique
// reflections. It owns the record of a generated reflection and the rules that it draws from a space group; both are
// plain results. Nothing is written here but those results.
//
// A reflection is turned by an operator as h' = h R (row times matrix). s = sin(theta)/lambda = 1/(2d) [1/angstrom].
#pragma once
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "lmix_crystal_metrics.hpp"
#include "lmix_crystallographic_symmetry.hpp"

namespace lmix_reflections_utilities {

using lmix_crystallographic_symmetry::matrix3i;
using lmix_crystallographic_symmetry::space_group_type;
using hkl_type = std::array<int, 3>;
using metric_tensor = lmix_math_general::mat3f;  ///< reciprocal: 1/d^2 = h g h [1/angstrom^2]

struct reflection_type {
  hkl_type h{};
  int mult = 0;   ///< equivalents, with the Friedel mates when the list was made so
  float s = 0.f;  ///< 1/(2d) [1/angstrom]
  int flag = 1;   ///< 1: allowed by the space group; in magnetic lists one of shub_flag
};

/// Who scatters into a reflection of a magnetic list.
namespace shub_flag {
enum : int { nuclear_only = 0, nuclear_and_magnetic = 1, magnetic_only = 2 };
}

/// What reflections feel of a space group, drawn from it once. Make it outside of a loop over reflections.
struct reflection_rules {
  std::vector<matrix3i> rotation;  ///< distinct rotations; with Friedel mates one of each pair R, -R
  bool friedel = true;
  std::vector<std::array<double, 3>> centring;  ///< centring vectors but the origin
  struct translation_rule {
    matrix3i rot;
    std::array<double, 3> tr;  ///< screw or glide part
  };
  std::vector<translation_rule> translation;  ///< operators that can forbid a reflection which they leave in place
};
reflection_rules make_rules(const space_group_type& group, bool friedel = true);

/// True when the space group forbids the reflection: the lattice, or an operator with h R = h and h t not a whole
/// number (International Tables for Crystallography Vol. A, section on reflection conditions).
bool hkl_absent(const hkl_type& h, const reflection_rules& rules);
bool hkl_absent(const hkl_type& h, const space_group_type& group);
bool hkl_lat_absent(const hkl_type& h, const reflection_rules& rules);

/// Number of distinct equivalents. With `friedel` h and -h count as equivalent, as in a powder. 1 for 0 0 0.
int hkl_mult(const hkl_type& h, const reflection_rules& rules);
int hkl_mult(const hkl_type& h, const space_group_type& group, bool friedel = true);

/// The equivalents, h itself first.
std::vector<hkl_type> hkl_equiv_list(const hkl_type& h, const space_group_type& group, bool friedel = true);
bool hkl_equiv(const hkl_type& h, const hkl_type& k, const space_group_type& group, bool friedel = true);

/// The equivalent that stands for all of them: l not negative, then the fewest negative indices, then k not negative,
/// then the largest h, k, l in this order. So the region is h, k, l >= 0 in mmm; h >= k >= 0, l >= 0 in 4/mmm and
/// 6/mmm; h >= k >= l >= 0 in m-3m; k >= 0, l >= 0 in 2/m with unique axis b; and 0 1 2, 1 0 4, 1 1 3 in -3m on
/// hexagonal axes.
hkl_type hkl_canonical(const hkl_type& h, const space_group_type& group, bool friedel = true);

/// 1/(2d) of a real or whole index.
float hs_r(const std::array<float, 3>& h, const metric_tensor& gr);
float hkl_s(const hkl_type& h, const metric_tensor& gr);

/// All unique reflections with smin <= s <= smax that the group allows, without 0 0 0, each by its canonical index,
/// sorted by s (equal s: by h, k, l). Time and memory go with the volume of the sphere, so the caller limits smax.
/// Empty for a metric that is no positive cell and for limits that are not finite.
std::vector<reflection_type> hkl_gen(const metric_tensor& gr, const space_group_type& group, bool friedel, float smin,
                                     float smax);

inline std::vector<reflection_type> hkl_gen(const lmix_crystal_metrics::crystal_cell_type& cell,
                                            const space_group_type& group, bool friedel, float smin, float smax) {
  return hkl_gen(cell.gr, group, friedel, smin, smax);
}

/// The same from s = 0 with Friedel mates as equivalents: for groups told by their operators, among which centring
/// vectors may stand (fixed lists).
std::vector<reflection_type> hkl_gen_general(const metric_tensor& gr, const space_group_type& group, float smax);

/// All unique reflections up to smax of a magnetic group, told by the list of its operators with their time reversal (a
/// grey group by both halves). Equivalents are those of the point group without time reversal, and Friedel mates.
/// `flag` says who scatters; reflections to which neither contributes at any site are left out.
std::vector<reflection_type> hkl_gen_shub(
    const metric_tensor& gr, std::span<const lmix_crystallographic_symmetry::shubnikov_oper_type> operators,
    float smax);

/// The distinct equivalents of a real index (satellites), h itself first. Equal within 0.0001.
using real_hkl = std::array<float, 3>;
std::vector<real_hkl> hkl_equivr(const real_hkl& h, const space_group_type& group, bool friedel = true);

}  // namespace lmix_reflections_utilities

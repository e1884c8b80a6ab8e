// Unit cells: from six parameters to lengths, angles, metric tensors and frames; displacement parameters; cell changes.
// Owns the cell record `crystal_cell_type`. `set_crystal_cell` and `read_bin_crystal_cell` alone fill it.
// Formulas: International Tables for Crystallography Vol. B, ch. 1.1 and 3.1; W. R. Busing & H. A. Levy, Acta Cryst. 22
// (1967) 457-464 for the B matrix.
//
// Lengths in angstrom, angles in degrees. Six displacement components stand in the order 11, 22, 33, 12, 13, 23. The
// record is single precision; its numbers are evaluated in double and rounded once.
#pragma once

#include <array>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lmix_math_general.hpp"

namespace lmix_crystal_metrics {

using lmix_math_general::mat3;
using lmix_math_general::mat3d;
using lmix_math_general::mat3f;
using lmix_math_general::vec3;
using lmix_math_general::vec3d;
using lmix_math_general::vec3f;
using six_reals = std::array<float, 6>;

/// The module's flag and message, at most 150 characters. A fresh one is clear.
struct [[nodiscard]] crys_error {
  bool err_crys = false;
  std::string err_crys_mess;
  static crys_error because(std::string_view text) { return {true, std::string(text.substr(0, 150))}; }
};

struct crystal_cell_type {
  vec3f cell{}, ang{};                    ///< a, b, c and alpha, beta, gamma
  vec3f cell_std{}, ang_std{};            ///< their standard deviations
  vec3f rcell{}, rang{};                  ///< a*, b*, c* [1/angstrom] and alpha*, beta*, gamma*
  mat3f gd{}, gr{};                       ///< direct and reciprocal metric tensor [angstrom^2], [1/angstrom^2]
  mat3f cr_orth_cel{};                    ///< crystal to Cartesian: its columns are a, b, c in the Cartesian frame
  mat3f orth_cr_cel{};                    ///< its inverse
  mat3f bl_m{};                           ///< Busing-Levy B matrix, Hc = B H [1/angstrom]
  mat3f bl_minv{};                        ///< its inverse
  float cellvol = 0.f;                    ///< volume [angstrom^3]
  float stdvol = 0.f;                     ///< its standard deviation
  float rcellvol = 0.f;                   ///< reciprocal volume [1/angstrom^3]
  std::array<char, 2> cartype{'C', 'A'};  ///< code of the Cartesian frame, see `frame`
  bool operator==(const crystal_cell_type&) const = default;
};

/// Cartesian frames. The first letter is the direct axis, the second the reciprocal axis that lie along their own
/// Cartesian axis: a and a* along x, b and b* along y, c and c* along z. The third axis makes the frame right-handed.
enum class frame { CA, AC, BC, BA, CB };

/// The frame of a code in any case and with leading blanks: two letters, or A, B, C for AC, BC, CA. A blank and any
/// other single letter are CA. Nullopt for a longer code that is none of the five.
[[nodiscard]] std::optional<frame> find_frame(std::string_view cartype);

// ---- the steps of the record
template <std::floating_point R>
struct reciprocal_cell {
  vec3<R> rcell, rang;
  R vol, volr;
};
/// Reciprocal cell and volumes. Angles that cannot close give a negative number under the root of the volume: its
/// absolute value is taken, so the volume stays positive, and the cosine of a reciprocal angle counts as 1 or -1.
template <std::floating_point R>
[[nodiscard]] reciprocal_cell<R> recip(const vec3<R>& a, const vec3<R>& ang) {
  using namespace lmix_math_general;
  const vec3<R> c{cosd(ang[0]), cosd(ang[1]), cosd(ang[2])}, s{sind(ang[0]), sind(ang[1]), sind(ang[2])};
  reciprocal_cell<R> r;
  r.vol = a[0] * a[1] * a[2] * std::sqrt(std::abs(1 - dot(c, c) + 2 * c[0] * c[1] * c[2]));
  r.volr = 1 / r.vol;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
    r.rcell[i] = a[j] * a[k] * s[i] / r.vol;
    r.rang[i] = acosd((c[j] * c[k] - c[i]) / (s[j] * s[k]));
  }
  return r;
}
/// Metric tensor of lengths and angles, direct or reciprocal.
template <std::floating_point R>
[[nodiscard]] mat3<R> metrics(const vec3<R>& a, const vec3<R>& ang) {
  using lmix_math_general::cosd;
  const R bc = a[1] * a[2] * cosd(ang[0]), ac = a[0] * a[2] * cosd(ang[1]), ab = a[0] * a[1] * cosd(ang[2]);
  return {{{a[0] * a[0], ab, ac}, {ab, a[1] * a[1], bc}, {ac, bc, a[2] * a[2]}}};
}
/// Crystal to Cartesian matrix. A cell that cannot close gives a singular matrix.
[[nodiscard]] mat3d get_cryst_orthog_matrix(const vec3d& cellv, const vec3d& ang, frame code);
/// The same by the text of the code. An unknown code gives the matrix of CA and sets the error.
crys_error get_cryst_orthog_matrix(const vec3f& cellv, const vec3f& ang, mat3f& crystort,
                                   std::string_view cartype = {});

/// Fills the record. An angle below 1e-5 becomes 90. `scell` and `sangl` count only when both are given. An unknown
/// frame code is reported and CA taken, the record being complete; the one failure that leaves it incomplete (lengths,
/// angles and reciprocal cell only) is a cell that cannot close or is flat: " Bad cell parameters ".
crys_error set_crystal_cell(vec3f cellp, vec3f angl, crystal_cell_type& cell, std::string_view cartype = {},
                            const vec3f* scell = nullptr, const vec3f* sangl = nullptr);

[[nodiscard]] float volume_from_cell(const vec3f& cell, const vec3f& ang);
/// Standard deviation of the volume from those of lengths and angles, taken as independent.
[[nodiscard]] float volume_sigma_from_cell(const vec3f& cell, const vec3f& ang, const vec3f& scell, const vec3f& sang);
[[nodiscard]] float cell_volume_sigma(const crystal_cell_type& cell);

// ---- displacement parameters
// The temperature factor is exp(-(b11 h^2 + b22 k^2 + b33 l^2 + 2 b12 hk + 2 b13 hl + 2 b23 kl)).
[[nodiscard]] float u_equiv(const crystal_cell_type& cell,
                            const six_reals& th_u);       ///< a third of the trace [angstrom^2]
[[nodiscard]] six_reals convert_b_u(const six_reals& b);  ///< U = B/(8 pi^2)
[[nodiscard]] six_reals convert_u_b(const six_reals& u);
[[nodiscard]] six_reals convert_b_betas(const six_reals& b, const crystal_cell_type& cell);  ///< beta = B a*_i a*_j/4
[[nodiscard]] six_reals convert_betas_b(const six_reals& beta, const crystal_cell_type& cell);
[[nodiscard]] six_reals convert_u_betas(const six_reals& u, const crystal_cell_type& cell);  ///< 2 pi^2 U a*_i a*_j
[[nodiscard]] six_reals convert_betas_u(const six_reals& beta, const crystal_cell_type& cell);

// ---- vectors
/// Cartesian form c of a vector v. Modes: D direct, in units of a, b, c; R reciprocal, in units of a*, b*, c*, brought
/// into the frame of `cr_orth_cel`; BLD direct vector in the Busing-Levy frame; BL: c becomes bl_m c, and v is not
/// looked at, so the caller puts the reciprocal vector into c first. All upper or all lower case; any other mode leaves
/// c as it is.
void cart_vector(std::string_view mode, const vec3f& v, const crystal_cell_type& cell, vec3f& c);
/// The same, of length 1; a vector of length 0 stays.
void cart_u_vector(std::string_view mode, const vec3f& v, const crystal_cell_type& cell, vec3f& c);
/// Right-handed rotation by phi about u (O. Rodrigues, J. Math. Pures Appl. 5 (1840) 380-440). With a cell u is a
/// direct vector in units of a, b, c, without it Cartesian. An axis of no length stands for z.
[[nodiscard]] mat3f rot_matrix(const vec3f& u, float phi, const crystal_cell_type* cell = nullptr);
/// Angle between the Cartesian vector v and the axis iaxis = 1..3: a, b, c, or a*, b*, c* when mode begins with R or r.
/// 0 when v has no length or iaxis is no axis.
[[nodiscard]] float angle_to_cell_axis(int iaxis, const vec3f& v, std::string_view mode, const crystal_cell_type& cell);
/// Derivatives of `cr_orth_cel` by a, b, c [1] and alpha, beta, gamma [angstrom/degree], in this order, for the frame
/// of a code. An unknown code sets the error and leaves the result.
crys_error get_deriv_orth_cell(const crystal_cell_type& cell, std::array<mat3f, 6>& de_orthcell,
                               std::string_view cartype = {});

// ---- lattice
struct cryst_family {
  std::string car_family, car_symbol, car_system;
};
/// Family, symbol and system that the numbers of a cell allow, within 1e-4. b and c are compared with a, beta and gamma
/// with alpha, so a cell with beta = gamma and another alpha is triclinic here. A combination that no setting
/// has sets the error.
crys_error get_cryst_family(const crystal_cell_type& cell, cryst_family& family);

/// A cell and the matrix P that led to it: (a', b', c') = (a, b, c) P, the new axes in its columns.
struct changed_cell {
  vec3d cell{}, ang{};
  mat3d p = lmix_math_general::identity<double>();
};
/// The cell on other axes. Nullopt for a flat cell or a singular matrix.
[[nodiscard]] std::optional<changed_cell> change_setting_cell(const vec3d& cell, const vec3d& ang, const mat3d& p);
/// A primitive cell of a lattice P, A, B, C, I, F or R (obverse, hexagonal axes). Nullopt for another letter. Matrices:
/// International Tables Vol. A, Table 5.1.3.1.
[[nodiscard]] std::optional<changed_cell> get_primitive_cell(char lattice, const vec3d& cell, const vec3d& ang);
/// Niggli-reduced cell of a primitive cell (I. Krivy & B. Gruber, Acta Cryst. A32 (1976) 297-298, with the comparisons
/// of R. W. Grosse-Kunstleve, N. K. Sauter & P. D. Adams, Acta Cryst. A60 (2004) 1-6; tolerance 1e-5 V^(2/3)). On an
/// error the result is left.
crys_error niggli_cell(const vec3d& cell, const vec3d& ang, changed_cell& reduced);

/// Lengths and angles of a metric tensor that is positive definite.
struct lengths_and_angles {
  vec3d len, ang;
};
[[nodiscard]] lengths_and_angles cell_from_metrics(const mat3d& g);

/// The matrix that leads from one cell to another: whole numbers, or multiples of 1/denominator. Lengths have to agree
/// within `length_tolerance` of their size, angles within `angle_tolerance` degrees; of several right-handed matrices
/// (a lattice with symmetry has one for each rotation) the one that fits best is taken, then the one nearest to the
/// identity. Nullopt when there is none or a cell cannot close.
[[nodiscard]] std::optional<changed_cell> get_transfm_matrix(const vec3d& cell, const vec3d& ang, const vec3d& cell_to,
                                                             const vec3d& ang_to, double length_tolerance = 0.01,
                                                             double angle_tolerance = 0.5, int denominator = 1);

/// A twofold axis of a lattice: the row [direct] is normal to the plane (reciprocal), up to `delta`.
struct twofold_axis {
  std::array<int, 3> direct{}, reciprocal{};  ///< indices in the cell given, without common factor
  int product = 0;                            ///< their scalar product, 1 or 2: layers along the row to the next one
  double delta = 0;                           ///< angle between them [degrees]
  double length = 0;                          ///< repeat distance along the row [angstrom]
};
/// The twofold axes of the lattice of a primitive cell within `tolerance` degrees, the best first, at most nine. Every
/// lattice symmetry follows from them (Y. Le Page, J. Appl. Cryst. 15 (1982) 255-259). Empty for a bad cell.
[[nodiscard]] std::vector<twofold_axis> get_twofold_axes(const vec3d& cell, const vec3d& ang, double tolerance);

/// The conventional cell of the lattice of a primitive cell.
struct conventional_cell {
  changed_cell to;      ///< from the primitive cell; whole numbers in to.p
  char lattice = 'P';   ///< P, C, I, F or R
  char family = 'a';    ///< a, m, o, t, h or c
  int n_twofold = 0;    ///< 0 triclinic, 1, 3, 5, 7, 9 cubic
  double delta = 0;     ///< largest deviation of an axis [degrees]
  double mismatch = 0;  ///< largest relative difference of two axes that the family makes equal
};
/// The lattice's symmetry is the highest whose axes all lie within `tolerance` degrees. Axes: the symmetry directions;
/// rhombohedral lattices in hexagonal axes, obverse; orthorhombic with a < b < c for P, I and F and a < b for C;
/// monoclinic with b along the axis, a and c the shortest that give the letter P or C, beta not acute; triclinic the
/// reduced cell. The lengths and angles are those of the lattice as it is: nothing is set equal. Method: Le Page
/// (1982).
crys_error get_conventional_cell(const vec3d& cell, const vec3d& ang, double tolerance,
                                 conventional_cell& conventional);

// ---- strain between two states of a crystal
/// Measures of strain from the deformation F = M1 M0^-1, M the crystal to Cartesian matrices (Y. Ohashi, in R. M. Hazen
/// & L. W. Finger, Comparative Crystal Chemistry (1982) 92-102; J. L. Schlenker, G. V. Gibbs & M. B. Boisen, Acta
/// Cryst. A34 (1978) 52-54).
enum class strain_measure {
  infinitesimal,  ///< (F + F^T)/2 - 1; depends on how the frame ties the two states
  lagrangian,     ///< (F^T F - 1)/2, referred to the first state
  eulerian        ///< (1 - F^-T F^-1)/2, referred to the second
};
/// Strain tensor from cell 0 to cell 1 in the Cartesian frame of a code. Nullopt for a cell that cannot close.
[[nodiscard]] std::optional<mat3d> calc_cell_strain(strain_measure kind, const lengths_and_angles& cell0,
                                                    const lengths_and_angles& cell1, frame code = frame::CA);
/// Metric tensor of the cell that a strain makes of cell 0: the inverse of calc_cell_strain. Infinitesimal strain is
/// taken as F = 1 + strain, so that it comes back to second order only. Nullopt when no crystal can be strained so.
[[nodiscard]] std::optional<mat3d> calc_deformed_metric(strain_measure kind, const lengths_and_angles& cell0,
                                                        const mat3d& strain, frame code = frame::CA);
/// Principal strains, largest first, their axes in the Cartesian frame, and the angles [degrees] of each axis to a, b,
/// c and to a*, b*, c*, from 0 to 180.
struct principal_strain {
  vec3d value;
  mat3d axis;                      ///< rows, unit length, right-handed
  mat3d to_direct, to_reciprocal;  ///< [i][j]: axis i to a, b, c or a*, b*, c*
};
[[nodiscard]] std::optional<principal_strain> calc_paxes_angles(const mat3d& strain, const lengths_and_angles& cell,
                                                                frame code = frame::CA);

// ---- the quadratic form 1/d^2 = A h^2 + B k^2 + C l^2 + D kl + E hl + F hk
// A = a*^2, B = b*^2, C = c*^2, D = 2 b* c* cos alpha*, E = 2 a* c* cos beta*, F = 2 a* b* cos gamma* [1/angstrom^2].
// Cells are a, b, c, alpha, beta, gamma. Double precision: the terms are differences of near numbers in oblique cells.
using quadratic_form = std::array<double, 6>;
using cell_parameters = std::array<double, 6>;
using mat6d = std::array<std::array<double, 6>, 6>;

/// Nullopt when the cell cannot close.
[[nodiscard]] std::optional<quadratic_form> quadratic_form_from_cell(const cell_parameters& cell);
/// Nullopt when the form is not positive definite.
[[nodiscard]] std::optional<cell_parameters> cell_from_quadratic_form(const quadratic_form& form);

struct direct_cell {
  cell_parameters cell{};
  mat6d derivatives{};      ///< [i][j]: cell parameter i by term j, angles in degrees
  mat6d covariance{};       ///< of the cell parameters
  cell_parameters sigma{};  ///< standard deviations; exactly 0 where the variance is lost in the rounding of its terms
};
/// Cell, derivatives and standard deviations from the covariance of A..F. Nullopt as above.
[[nodiscard]] std::optional<direct_cell> direct_cell_from_quadratic_form(const quadratic_form& form,
                                                                         const mat6d& covariance);

// ---- listing and binary file
/// The record for a listing, lines ended by newlines.
[[nodiscard]] std::string write_crystal_cell(const crystal_cell_type& cell);
/// The record field by field as raw reals of this machine.
void write_bin_crystal_cell(const crystal_cell_type& cell, std::ostream& file);
/// False, and the record as it was, when the file ends early.
[[nodiscard]] bool read_bin_crystal_cell(crystal_cell_type& cell, std::istream& file);

}  // namespace lmix_crystal_metrics

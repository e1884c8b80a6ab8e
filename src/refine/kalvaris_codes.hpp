// kalvaris_codes: code words of the refinable slots: their split into parameter number and multiplier, automatic
// numbering, symmetry constraints of cells, positions, displacement tensors and moments, names, and the way back to
// words. It writes the number and code arrays, maxs, valx, nampar, and turns the cell slots into A..F of 1/d^2.
// A code word is sign (10 number + size of the multiplier): 21.00 is parameter 2 with multiplier 1.
#pragma once
#include <array>
#include <span>
#include <string>
#include <vector>

#include "kalvaris_params.hpp"
#include "slot_text.hpp"

namespace kalvaris_codes {

// ---- words ----------------------------------------------------------------------------------------------------------

/// A code word split up. The multiplier carries the sign and is below 10 in size.
struct split_code {
  int number = 0;
  float multiplier = 0.f;
};
[[nodiscard]] split_code split(float code);
/// The word of a slot, the exact inverse of split; 0 when it has no number, unless `automatic`, which keeps a bare
/// multiplier as a request.
[[nodiscard]] float join(const split_code& code, bool automatic);

inline constexpr float smallest_multiplier = 0.001f;  ///< a word without a number asks for one above this
/// Multiplier that a request stands for: the word 1.5 asks for 0.5, 1 and all below it for themselves.
[[nodiscard]] float requested_multiplier(float word);

/// Gives out numbers above the last one in use.
struct number_source {
  int last = 0;
  int next() { return ++last; }
};

// ---- all slots of a run ---------------------------------------------------------------------------------------------

/// The entry point after reading: splits all codes, settles the numbers, counts, and names the parameters. Codes of
/// patterns that take no part and of phases that none of the others uses are cleared. A number above maxparam, or more
/// parameters than that: st.fmt.ierr_fmt 100 with its message.
void mod_codes(kalvaris_params::state_type& st);

/// The numbers of a run, 1 to maxs, from the split codes. Given numbers (Aut 0): gaps are closed up in their order, and
/// maxs, the number of parameters asked for, keeps those above it out of the refinement; 0 refines nothing and changes
/// no number. In automatic mode, or with a pattern that takes no part, requests fill the gaps and the highest numbers
/// the gaps that are left. Limits and linear restraints follow: number 0 where no code carries theirs. Fills
/// number_now. What moved, what stays out and what reaches nothing is told (state_type::tell).
void settle_numbers(kalvaris_params::state_type& st);

/// By number the one that it gets when gaps are closed in order, 0 for those that no code carries; element 0 unused.
[[nodiscard]] std::vector<int> closed_up(std::span<const char> carried);

/// Makes what was read fit for writing: code_read by the numbers of the run, the numbers of limits and restraints, the
/// number of parameters. The multiplier of the file stays unless a guard has changed it; in automatic mode the words
/// are those of the run. Nothing is rewritten when a pattern is deselected, since its codes are gone.
void restore_codes(kalvaris_params::state_type& st);

/// Highest number in the raw codes.
[[nodiscard]] int get_code_max(kalvaris_params::state_type& st);

/// All raw code words in the order of the slots.
[[nodiscard]] std::vector<float> get_n_codes(kalvaris_params::state_type& st);

/// Sets stfac_nref of the phases whose structure factors no refined slot changes: none of their atoms, vectors, bodies
/// and modes, nor the cell through the form factors. Called once the numbers are settled.
void check_structure_codes(kalvaris_params::state_type& st);

/// Keeps the real and the imaginary part of the moments of helical phases perpendicular, by values that follow from the
/// others and whose codes are cleared: Iz along the cell axes; in spherical components the azimuth Iphi, or, where the
/// polar angles allow no azimuth, Iphi = Rphi and Itheta = Rtheta + 90. Acts on phases with a refined atom.
void tie_helices(kalvaris_params::state_type& st);

// ---- constraints ----------------------------------------------------------------------------------------------------

/// Applies the Laue class of the group of phase ph to the cell of pattern ip and to its codes. With fresh_numbers a
/// code that asks for a number without having one gets the next free one. Otherwise also fills phase.cellp (first
/// pattern) and loads A..F of 1/d^2 into the cell slots. False with st.fmt set when the cell cannot close.
bool cell_const(kalvaris_params::state_type& st, int ph, int ip, bool fresh_numbers);

/// How the Laue class ties a, b, c, alpha, beta, gamma: the one (from 0) that each takes value and code from, itself
/// when free, cell_fixed for an angle of 90 or, with `hexagonal`, gamma of 120 deg.
inline constexpr int cell_fixed = -1;
struct cell_rule {
  std::array<int, 6> follows{0, 1, 2, 3, 4, 5};
  bool hexagonal = false;
};
[[nodiscard]] cell_rule rule_of_cell(const lmix_crystallographic_symmetry::space_group_type& group);

// Raw code words that keep a quantity of an atom at x as its site symmetry wants it: zero, equal to another component,
// or a multiple of it. A request gets the next number of `fresh`; a code on any member of a group frees its independent
// component. False when the symmetry mixes two free components in one, which a code word cannot say: only the first of
// them then stays refined.
bool get_atompos_ctr(const lmix_crystallographic_symmetry::vector3& x,
                     const lmix_crystallographic_symmetry::space_group_type& spg, std::span<float, 3> codes,
                     number_source& fresh);
/// The same with the operators of a magnetic group.
bool get_matompos_ctr(const lmix_crystallographic_symmetry::vector3& x,
                      const lmix_crystallographic_symmetry::magnetic_space_group_type& mspg, std::span<float, 3> codes,
                      number_source& fresh);
/// Betas 11, 22, 33, 12, 13, 23.
bool get_atombet_ctr(const lmix_crystallographic_symmetry::vector3& x,
                     const lmix_crystallographic_symmetry::space_group_type& spg, std::span<float, 6> codes,
                     number_source& fresh);
/// Moment along the cell axes.
bool get_moment_ctr_old(const lmix_crystallographic_symmetry::vector3& x,
                        const lmix_crystallographic_symmetry::magnetic_space_group_type& mspg,
                        std::span<float, 3> codes, number_source& fresh);

/// Betas of an atom that vibrates isotropically with B [angstrom^2]: B/4 times the reciprocal metric tensor.
[[nodiscard]] std::array<float, 6> get_betas_from_biso(float biso, const lmix_crystal_metrics::crystal_cell_type& cell);

/// All of these over the atoms: positions, betas, then moments whose operations stand in a symmetry given by hand. Acts
/// on raw codes, in automatic mode, for phases with a calculated structure.
void set_symmetryconstraints(kalvaris_params::state_type& st);

// ---- names ----------------------------------------------------------------------------------------------------------

using slot_text::slot_place;
[[nodiscard]] inline slot_place place_of(const kalvaris_params::slot_ref& s) { return {s.family, s.owner, s.ip, s.k}; }

/// Name of a slot as a person reads it, such as Scale_ph1_pat1, Cell_A_ph1_pat1, Zero_pat1, X_O1_ph1; an atom that
/// shares its label with others of the phase counts among them: X_O(2)_ph1.
[[nodiscard]] std::string slot_name(const kalvaris_params::state_type& st, const slot_place& slot);

/// Name of a parameter by its slots, the first of which is its reference, at most 50 characters: that of the slot; of
/// several slots what they have in common, such as Biso_O1+O2_ph1, S_L+D_L_ph1_pat1, Zero_pat1+2; slots of one cell,
/// and coordinates, betas or moments of one atom, which symmetry ties, go by the first.
[[nodiscard]] std::string get_nampar(const kalvaris_params::state_type& st, std::span<const slot_place> slots);

// ---- words of messages
// ------------------------------------------------------------------------------------------------

/// Numbers as ranges: "3, 7 to 9".
[[nodiscard]] std::string number_list(std::span<const int> numbers);
/// The slots by name, at most four.
[[nodiscard]] std::string name_list(const kalvaris_params::state_type& st, std::span<const slot_place> slots);
/// Codes without a number where none is given out.
[[nodiscard]] kalvaris_params::notice unnumbered_requests(const kalvaris_params::state_type& st,
                                                          std::span<const slot_place> slots);

}  // namespace kalvaris_codes

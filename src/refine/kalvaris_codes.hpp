// kalvaris_codes: code words of the refinable slots: their split into parameter number and multiplier, automatic
// numbering, symmetry constraints of cells, positions and displacement tensors, names, and the way back to words.
// It writes the number and code arrays, maxs, valx, nampar, and turns the cell slots into A..F of 1/d^2.
// A code word is sign (10 number + size of the multiplier): 21.00 is parameter 2 with multiplier 1.
#pragma once
#include <string>

#include "kalvaris_params.hpp"

namespace kalvaris_codes {

/// A code word split up. The multiplier carries the sign and is below 10 in size.
struct split_code {
  int number = 0;
  float multiplier = 0.f;
};
[[nodiscard]] split_code split(float code);
/// The word of a slot; 0 when it has no number, unless `automatic`, which keeps a bare multiplier as a request.
[[nodiscard]] float join(const split_code& code, bool automatic);

/// The entry point after reading: splits all codes, numbers free requests when automatic, counts, and names the
/// parameters. Codes of patterns that take no part and of phases that none of the others uses are cleared, the numbers
/// then closed up. A number above maxparam, or one up to maxs that no slot carries: st.fmt.ierr_fmt 100 with its message.
/// With given numbering a number above maxs stays out of the refinement, said once on the console.
void mod_codes(kalvaris_params::state_type& st);

/// Puts the code words back together in code_read for writing: of every slot in automatic mode; otherwise only where a
/// guard has changed the multiplier, the others keep the word that was read. Nothing is rewritten when a pattern is
/// deselected, since the numbers of the others were closed up.
void restore_codes(kalvaris_params::state_type& st);

/// Applies the Laue class of the group of phase ph to the cell of pattern ip and to its codes. With fresh_numbers a
/// code that asks for a number without having one gets the next free one. Otherwise also fills phase.cellp (first
/// pattern) and loads A..F of 1/d^2 into the cell slots. False with st.fmt set when the cell cannot close.
bool cell_const(kalvaris_params::state_type& st, int ph, int ip, bool fresh_numbers);

/// Positions and betas of atoms on special positions get codes that keep them there: zero, equal, or a multiple. Acts
/// on raw codes, in automatic mode, for phases with a calculated structure; a request without a number gets one.
void set_symmetryconstraints(kalvaris_params::state_type& st);

/// Highest number in the raw codes.
[[nodiscard]] int get_code_max(kalvaris_params::state_type& st);

/// Name of a slot as a person reads it, such as Scale_ph1_pat1, Cell_A_ph1_pat1, Zero_pat1, X_O1_ph1.
[[nodiscard]] std::string slot_name(const kalvaris_params::state_type& st, const kalvaris_params::slot_ref& slot);

}  // namespace kalvaris_codes

// apply_shifts: carries the solution of the normal equations into the slots of the model, with relaxation, limits and
// the guards that refuse unphysical values. It writes the slots, their multipliers, the direct cells and their esds.
// What happened to every refined slot comes back as a record; the listing prints that record and computes nothing.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"

namespace apply_shifts {

/// One refined slot after a cycle. owner: pattern, phase or atom; n: parameter number (1-based).
struct slot_change {
  kalvaris_params::slot_family family = kalvaris_params::slot_family::global;
  int owner = 0, ip = 0, k = 0, n = 0;
  float value = 0, shift = 0, sigma = 0;
};

/// A parameter that a guard or a limit keeps at the edge of what is allowed.
struct held_parameter {
  int n = 0;             ///< parameter number (1-based)
  double outward = 0;    ///< sign of the shift that would leave the allowed side
  std::string_view why;  ///< what keeps it, for the reader
};

struct shift_report {
  std::vector<slot_change> changes;   ///< in the fixed order of the slots
  std::vector<int> limited;           ///< parameters held at a bound: positive upper, negative lower
  std::vector<std::string> warnings;  ///< what the guards did, console words
  std::vector<held_parameter> held;   ///< by guards and limits
  std::vector<double> taken;          ///< by parameter (0-based): the step that its reference slot really made
};

/// Sizes of the reference multipliers: the first slot in the fixed order with number n and a multiplier that is not 0
/// is the reference of parameter n; parm.m_ref[n] is the size of its multiplier, 0 when no slot moves. The parameter
/// is the value of its reference slot, so that a slot with multiplier m enters every derivative with m/m_ref.
void set_reference_multipliers(kalvaris_params::state_type& st);

/// Weight m/m_ref of a slot with number n >= 1 and multiplier m; 0 for a parameter above maxs or without a reference.
[[nodiscard]] float reference_weight(const kalvaris_params::state_type& st, int n, float m);

/// Standard deviation |m/m_ref| sqrt(rjac(n,n)) of a slot, from the inverse that the normal matrix holds after a cycle;
/// 0 for a slot that is not refined.
[[nodiscard]] float sigma_of(const kalvaris_params::state_type& st, int n, float m);

/// The refined slots as they stand, with their standard deviations and shifts of zero.
[[nodiscard]] shift_report standing(kalvaris_params::state_type& st);

/// Adds vx(n) m relax(class) to every refined slot. Of the shifts of U, V, W and P only the share is taken that leaves
/// every Gaussian width at least half of its square; the share belongs to the numbers that meet in one phase and
/// pattern, so that a phase at its edge does not stop the others. sigma = |m/m_ref| sqrt(rjac(n,n)) with the inverse in rjac. Then
/// rebuilds what depends on slots: wavelengths, ratio, direct cells with esds, valx and svalx.
/// at_guard: what becomes of the multiplier of a slot that a guard sets back.
enum class multiplier_at_guard { halved, kept };
shift_report apply(kalvaris_params::state_type& st, multiplier_at_guard at_guard);

/// Direct cell of a phase from the A..F of 1/d^2 in pattern ip, with esds from the inverse matrix (zero when maxs is
/// 0).
void direct(kalvaris_params::state_type& st, int ip, int ph);

}  // namespace apply_shifts

// kv_live_slots: which refinable slots of a model act on the calculated pattern, and why the others do not. It owns one
// table of slots by model, which follows the terms of the derivatives; nothing is calculated and nothing is written.
// A code on a slot that does not act makes the normal matrix singular.
#pragma once
#include <string_view>

#include "kalvaris_params.hpp"

namespace kv_live_slots {

/// Why slot k of par does nothing for phase ph in pattern ip; blank when it acts. Constant wavelength; slots of models
/// that cannot be calculated yet (of strain, size, shift, several axes, special reflections) count as acting where
/// their line stands in the control file.
[[nodiscard]] std::string_view why_phase_slot_is_idle(const kalvaris_params::state_type& st, int ph, int ip, int k);

/// The same for slot k of glb.
[[nodiscard]] std::string_view why_global_slot_is_idle(const kalvaris_params::pattern_type& pattern, int k);

}  // namespace kv_live_slots

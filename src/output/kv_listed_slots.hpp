// kv_listed_slots: which parameters of a pattern and of a phase the echo of the input, the cycle listing and the
// summary print, in the order of the control file, and what they call them. It owns these names and their decimals, and
// writes no state. Decimals are the least that a printed value keeps.
#pragma once
#include <string>
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_listed_slots {

/// A slot as a row of a listing; k 0: `words` is a heading over the rows that follow.
struct listed_slot {
  int k = 0;
  std::string words;
  int decimals = 0;
};

/// Slots of glb: zero and instrument, wavelength and ratio when they are refined, background under its headings.
[[nodiscard]] std::vector<listed_slot> of_pattern(const kalvaris_params::pattern_type& pattern);

/// Slots of par of phase ph in pattern ip (0-based) without the cell: those of every line of its profile block, less
/// those that are seldom used, 0 and fixed. Coefficients of size, strain and shift models carry their terms.
[[nodiscard]] std::vector<listed_slot> of_phase(const kalvaris_params::state_type& st, int ph, int ip);

}  // namespace kv_listed_slots

// slot_text: what a slot of the model is called, what it means and in which unit, as data, peak shape and models
// decide. It owns the one table of these texts; listings, names of parameters, messages and the explanation of a
// control file take them from here. It reads the state and changes nothing.
#pragma once
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"

namespace slot_text {

/// Where a slot lives: kalvaris_params::slot_ref without its references.
struct slot_place {
  kalvaris_params::slot_family family = kalvaris_params::slot_family::global;
  int owner = 0, ip = 0, k = 0;
  static slot_place of(const kalvaris_params::slot_ref& s) { return {s.family, s.owner, s.ip, s.k}; }
  bool operator==(const slot_place&) const = default;
};

struct text {
  std::string name;          ///< Zero, Scale, Cell_A, Biso: without phase, pattern and atom
  std::string_view meaning;  ///< blank for a slot that nothing uses
  std::string_view unit;     ///< blank for a pure number
};

/// Records that the place names and that the state does not have (yet) count as made by default.
[[nodiscard]] text describe(const kalvaris_params::state_type& st, const slot_place& place);

}  // namespace slot_text

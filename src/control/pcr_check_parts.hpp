// What the sources of pcr_check share: the state that is looked at, the words of slots, and the list that grows.
#pragma once
#include <functional>

#include "kalvaris_codes.hpp"
#include "lmix_fixed_format.hpp"
#include "pcr_check.hpp"

namespace pcr_check {

using kalvaris_codes::slot_place;
using kalvaris_params::atom_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::state_type;

/// A slot with its value and its split word, as reading left them.
struct coded_slot {
  slot_place place;
  float value = 0.f;
  kalvaris_codes::split_code code;
  bool refined = false;  ///< a run would refine it
};

struct examination {
  state_type& st;
  const line_table& lines;
  std::vector<finding> found;
  std::vector<coded_slot> coded;            ///< all slots with a word that is not 0
  std::vector<std::vector<coded_slot>> of;  ///< per parameter number the slots that carry it
  std::vector<int> number_now;              ///< per parameter number that of a run, 0: not refined

  examination(state_type& state, const line_table& where);
  [[nodiscard]] bool refines(int number) const {
    return number > 0 && number < static_cast<int>(number_now.size()) &&
           number_now[static_cast<std::size_t>(number)] > 0;
  }
  void error(int line, std::string text, std::string advice = {});
  void warn(int line, std::string text, std::string advice = {});
  void note(int line, std::string text, std::string advice = {});

  [[nodiscard]] std::string name(const slot_place& s) const { return kalvaris_codes::slot_name(st, s); }
  /// Line of the control file that the value or the code of a slot stands on, 0 when it is not known.
  [[nodiscard]] int line_of(const slot_place& s) const { return known_line(s, false); }
  [[nodiscard]] int line_of_code(const slot_place& s) const { return known_line(s, true); }
  /// The line of the slot, else that of its atom.
  [[nodiscard]] int known_line(const slot_place& s, bool code) const;
  /// Calls f with every phase whose atoms are calculated from, and each of its atoms.
  void each_atom(const std::function<void(const phase_type&, atom_type&, int)>& f);
};

/// "atom O1 of phase 2".
[[nodiscard]] std::string atom_text(const examination& e, const atom_type& atom);

/// A check and what it looks for.
struct check_row {
  std::string_view looks_for;
  void (*look)(examination& e);
};

// Checks of codes and their numbers (pcr_check_codes.cpp).
void requests_without_automatic(examination& e);
void numbers_too_high(examination& e);
void shared_numbers(examination& e);
void idle_slots(examination& e);
void boxes(examination& e);
void degenerate_sets(examination& e);

// Checks of atoms and cells (pcr_check_atoms.cpp).
void cells(examination& e);
void near_special_positions(examination& e);
void codes_of_sites(examination& e);
void occupancies(examination& e);
void displacement_tensors(examination& e);

}  // namespace pcr_check

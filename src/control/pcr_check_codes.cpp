// Checks of code words and parameter numbers.
#include <algorithm>
#include <array>
#include <cmath>

#include "kv_live_slots.hpp"
#include "pcr_check_parts.hpp"

namespace pcr_check {

using kalvaris_params::slot_family;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

namespace {

std::string number_text(int n) { return "parameter " + std::to_string(n); }

std::vector<slot_place> places_of(const std::vector<coded_slot>& slots) {
  std::vector<slot_place> places;
  for (const coded_slot& c : slots) places.push_back(c.place);
  return places;
}

}  // namespace

/// A word below 10 asks for a number of the program's choosing, which is given out with Aut 1 only.
void requests_without_automatic(examination& e) {
  if (e.st.run.automatic) return;
  std::vector<coded_slot> asked;
  for (const coded_slot& c : e.coded)
    if (c.code.number == 0 && std::abs(c.code.multiplier) > kalvaris_codes::smallest_multiplier) asked.push_back(c);
  if (asked.empty()) return;
  const kalvaris_params::notice told = kalvaris_codes::unnumbered_requests(e.st, places_of(asked));
  e.warn(e.line_of_code(asked.front().place), told.text, told.advice);
}

void numbers_too_high(examination& e) {
  std::vector<coded_slot> too_high;
  for (const coded_slot& c : e.coded)
    if (c.code.number > e.st.dim.maxparam) too_high.push_back(c);
  if (too_high.empty()) return;
  e.error(e.line_of_code(too_high.front().place),
          "parameter numbers above " + std::to_string(e.st.dim.maxparam) +
              ", the most that a run can refine: " + kalvaris_codes::name_list(e.st, places_of(too_high)),
          "A code is 10 times the number, plus the multiplier.");
}

// ---- parameters that share a number

namespace {

/// Slots of one kind hold the same quantity, so that slots which share a number are expected to start at values in the
/// ratio of their multipliers.
enum class kind { value, occupancy, position, cell, other };
kind kind_of(const slot_place& s) {
  if (s.family == slot_family::phase && s.k >= slot::cell_a && s.k <= slot::cell_f) return kind::cell;
  if (s.family != slot_family::atom) return s.family == slot_family::domain ? kind::other : kind::value;
  if (s.k <= aslot::z) return kind::position;
  return s.k == aslot::occ ? kind::occupancy : kind::value;
}

bool is_edge(const slot_place& s) { return s.k < slot::cell_a + 3; }

/// The same quantity, though perhaps of another atom, phase or pattern.
bool same_quantity(const slot_place& a, const slot_place& b) {
  if (a.family != b.family) return false;
  if (a.k == b.k) return true;
  const auto both_in = [&](int low, int high) { return a.k >= low && a.k <= high && b.k >= low && b.k <= high; };
  if (a.family == slot_family::phase) return both_in(slot::cell_a, slot::cell_f) || both_in(slot::s_l, slot::d_l);
  return a.family == slot_family::atom &&
         (both_in(aslot::x, aslot::z) || both_in(aslot::b11, aslot::b23) || both_in(aslot::rx, aslot::iz));
}

/// What value differs by more than the digits of a control file leave open.
bool differs(double value, double expected) {
  constexpr double digits = 2.0e-5, relative = 2.0e-3;
  return std::abs(value - expected) > digits + relative * std::max(std::abs(value), std::abs(expected));
}

/// Two slots of parameter n whose values do not fit their multipliers. Coordinates of one atom may differ by a constant
/// (x, x + 1/2, z), those of two atoms by a vector between them, lattice parameters are tied by the lattice itself, and
/// fractions that replace each other add up to a constant.
bool start_apart(const coded_slot& a, const coded_slot& b) {
  const double ratio = static_cast<double>(b.code.multiplier) / static_cast<double>(a.code.multiplier);
  switch (kind_of(b.place)) {
    case kind::cell:
      // the angle of a hexagonal cell carries the code of a
      if (a.place.owner == b.place.owner && (a.place.ip == b.place.ip || is_edge(a.place) != is_edge(b.place)))
        return false;
      break;
    case kind::occupancy:
      if (ratio < 0.0) return false;
      break;
    case kind::position: {
      // two atoms on one site: the same coordinate, almost the same value
      const double apart = std::abs(static_cast<double>(b.value - a.value));
      constexpr double on_one_site = 0.02, digits = 2.0e-5;
      return a.place.owner != b.place.owner && a.place.k == b.place.k && ratio > 0.0 && apart > digits &&
             apart < on_one_site;
    }
    case kind::value:
    case kind::other:
      break;
  }
  return differs(static_cast<double>(b.value), ratio * static_cast<double>(a.value));
}

std::string value_text(const examination& e, const coded_slot& c) {
  return e.name(c.place) + " = " + text_of(static_cast<double>(c.value)) + " (multiplier " +
         text_of(static_cast<double>(c.code.multiplier)) + ")";
}

void look_at_number(examination& e, int n, const std::vector<coded_slot>& slots) {
  std::vector<coded_slot> moving;
  for (const coded_slot& c : slots)
    if (c.code.multiplier != 0.f) moving.push_back(c);
  for (std::size_t i = 0; i < moving.size(); ++i) {
    const auto mate = std::find_if(moving.begin(), moving.begin() + static_cast<std::ptrdiff_t>(i),
                                   [&](const coded_slot& a) { return same_quantity(a.place, moving[i].place); });
    if (mate == moving.begin() + static_cast<std::ptrdiff_t>(i)) {
      if (i > 0)
        e.warn(e.line_of_code(moving[i].place),
               number_text(n) + " moves quantities of different kinds: " + e.name(moving[0].place) + " and " +
                   e.name(moving[i].place),
               "Give one of them a number of its own.");
      continue;
    }
    if (start_apart(*mate, moving[i]))
      e.warn(e.line_of(moving[i].place),
             number_text(n) + " starts at values that do not fit: " + value_text(e, *mate) + ", " +
                 value_text(e, moving[i]) + "; both take its shifts and keep their difference",
             "Make the values equal, or in the ratio of the multipliers.");
  }
}

}  // namespace

void shared_numbers(examination& e) {
  for (std::size_t n = 1; n < e.of.size(); ++n)
    if (e.of[n].size() > 1) look_at_number(e, static_cast<int>(n), e.of[n]);
}

void idle_slots(examination& e) {
  for (const coded_slot& c : e.coded) {
    if (!c.refined || c.code.multiplier == 0.f) continue;
    std::string_view why;
    const slot_place& s = c.place;
    if (s.family == slot_family::phase) why = kv_live_slots::why_phase_slot_is_idle(e.st, s.owner, s.ip, s.k);
    if (s.family == slot_family::global)
      why = kv_live_slots::why_global_slot_is_idle(e.st.pattern[static_cast<std::size_t>(s.ip)], s.k);
    if (why.empty()) continue;
    e.warn(e.line_of_code(s), "the code on " + e.name(s) + " refines nothing: " + std::string(why),
           "Set the code to 0, or change the model.");
  }
  // the reader has cleared these codes: nothing is calculated from such atoms
  for (const phase_type& phase : e.st.phase) {
    if (!phase.profile_matching()) continue;
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      const atom_type& atom = e.st.atom[static_cast<std::size_t>(ia)];
      if (std::ranges::any_of(atom.a_read, [](float code) { return code != 0.f; }))
        e.warn(atom.line_nb,
               atom_text(e, atom) + " has codes, but its phase is treated by profile matching (Jbt " +
                   std::to_string(phase.jbt) + "), which calculates nothing from atoms",
               "Set its codes to 0.");
    }
  }
}

void boxes(examination& e) {
  for (const auto& limit : e.st.run.limits) {
    const auto n = static_cast<std::size_t>(limit.number);
    if (n >= e.of.size()) continue;
    const auto reference = std::ranges::find_if(e.of[n], [](const coded_slot& c) { return c.code.multiplier != 0.f; });
    if (reference == e.of[n].end()) continue;
    if (reference->value >= limit.vlim1 && reference->value <= limit.vlim2) continue;
    e.warn(e.line_of(reference->place),
           e.name(reference->place) + " (" + number_text(limit.number) + ") starts at " +
               text_of(static_cast<double>(reference->value)) + ", outside of its limits " +
               text_of(static_cast<double>(limit.vlim1)) + " to " + text_of(static_cast<double>(limit.vlim2)),
           "Start it inside, or widen the limits.");
  }
}

// ---- sets that one more parameter makes degenerate

namespace {

bool is_refined(const examination& e, const slot_place& place) {
  return std::ranges::any_of(
      e.coded, [&](const coded_slot& c) { return c.place == place && c.refined && c.code.multiplier != 0.f; });
}

bool all_atoms_refined(const examination& e, const phase_type& phase, int k) {
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia)
    if (!is_refined(e, {slot_family::atom, ia, 0, k})) return false;
  return phase.natom > 0;
}

/// The phase contributes to this pattern alone.
bool only_pattern(const examination& e, int ph, int ip) {
  for (int other = 0; other < e.st.run.n_patt; ++other)
    if (other != ip && e.st.mix(ph, other).jcontr != 0) return false;
  return true;
}

}  // namespace

void degenerate_sets(examination& e) {
  for (int ph = 0; ph < e.st.run.nphase; ++ph) {
    const phase_type& phase = e.st.phase[static_cast<std::size_t>(ph)];
    const std::string where = "phase " + std::to_string(ph + 1) + ": ";
    for (int ip = 0; ip < e.st.run.n_patt && !phase.profile_matching(); ++ip) {
      if (e.st.mix(ph, ip).jcontr == 0 || !only_pattern(e, ph, ip)) continue;
      if (is_refined(e, {slot_family::phase, ph, ip, slot::bov}) && all_atoms_refined(e, phase, aslot::biso))
        e.warn(0, where + "the overall B and the B of every atom are refined together: they cannot be told apart",
               "Fix Bov.");
      if (is_refined(e, {slot_family::phase, ph, ip, slot::scale}) && all_atoms_refined(e, phase, aslot::occ))
        e.warn(
            0,
            where + "the scale factor and the occupancy of every atom are refined together: they cannot be told apart",
            "Fix the occupancy of one atom.");
    }
  }
  e.each_atom([&](const phase_type&, atom_type& atom, int ia) {
    bool betas = true;
    for (int k = aslot::b11; k <= aslot::b33; ++k) betas = betas && is_refined(e, {slot_family::atom, ia, 0, k});
    if (betas && is_refined(e, {slot_family::atom, ia, 0, aslot::biso}))
      e.warn(e.line_of_code({slot_family::atom, ia, 0, aslot::biso}),
             atom_text(e, atom) + ": B and the betas are refined together: they cannot be told apart",
             "Fix Biso of an atom with betas.");
  });
}

}  // namespace pcr_check

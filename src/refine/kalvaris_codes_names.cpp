#include "kalvaris_codes.hpp"

#include <algorithm>
#include <string>
#include <vector>

namespace kalvaris_codes {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;

/// The label of an atom, with its number among those of the same label in its phase when there are several.
std::string atom_label(const state_type& st, int ia) {
  const atom_type& atom = st.atom[static_cast<std::size_t>(ia)];
  const phase_type& phase = st.phase[static_cast<std::size_t>(atom.phase)];
  int same = 0, before = 0;
  for (int other = phase.first_atom; other < phase.first_atom + phase.natom; ++other) {
    if (st.atom[static_cast<std::size_t>(other)].atext != atom.atext) continue;
    ++same;
    if (other <= ia) ++before;
  }
  return same > 1 ? atom.atext + "(" + std::to_string(before) + ")" : atom.atext;
}

int phase_of(const state_type& st, const slot_place& s) {
  if (s.family == slot_family::atom) return st.atom[static_cast<std::size_t>(s.owner)].phase;
  return s.family == slot_family::global ? -1 : s.owner;
}
int pattern_of(const slot_place& s) {
  return s.family == slot_family::global || s.family == slot_family::phase ? s.ip : -1;
}

/// Slots that symmetry ties as a matter of course: of one cell; coordinates, betas, or moments of one atom.
bool tied_by_symmetry(const slot_place& a, const slot_place& b) {
  if (a.family != b.family || a.owner != b.owner || a.ip != b.ip) return false;
  const auto both_in = [&](int low, int high) { return a.k >= low && a.k <= high && b.k >= low && b.k <= high; };
  if (a.family == slot_family::phase) return both_in(slot::cell_a, slot::cell_f);
  return a.family == slot_family::atom &&
         (both_in(aslot::x, aslot::z) || both_in(aslot::b11, aslot::b23) || both_in(aslot::rx, aslot::iz));
}

/// Distinct texts, joined with '+' in the order of their first appearance.
class joined {
 public:
  void add(const std::string& word) {
    if (std::ranges::find(words_, word) == words_.end()) words_.push_back(word);
  }
  [[nodiscard]] std::string text(const char* lead) const {
    std::string all;
    for (const std::string& word : words_) all.append(all.empty() ? lead : "+").append(word);
    return all;
  }

 private:
  std::vector<std::string> words_;
};

}  // namespace

std::string slot_name(const state_type& st, const slot_place& s) { return get_nampar(st, {&s, 1}); }

std::string get_nampar(const state_type& st, std::span<const slot_place> slots) {
  constexpr std::size_t longest = 50;
  std::vector<slot_place> named;
  for (const slot_place& s : slots)
    if (std::ranges::none_of(named, [&](const slot_place& n) { return tied_by_symmetry(n, s); })) named.push_back(s);
  if (named.empty()) return {};
  joined quantities, atoms, phases, patterns;
  for (const slot_place& s : named) {
    quantities.add(slot_text::describe(st, s).name);
    if (s.family == slot_family::atom) atoms.add(atom_label(st, s.owner));
    if (const int ph = phase_of(st, s); ph >= 0) phases.add(std::to_string(ph + 1));
    if (const int ip = pattern_of(s); ip >= 0) patterns.add(std::to_string(ip + 1));
  }
  const std::string name = quantities.text("") + atoms.text("_") + phases.text("_ph") + patterns.text("_pat");
  if (name.size() <= longest || named.size() == 1) return name.substr(0, longest);
  const std::string others = std::string("+").append(std::to_string(named.size() - 1)).append("_more");
  return slot_name(st, named.front()).substr(0, longest - others.size()) + others;
}

}  // namespace kalvaris_codes

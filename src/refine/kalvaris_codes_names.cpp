#include "kalvaris_codes.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace kalvaris_codes {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

struct slot_label {
  int k;
  const char* name;
};
constexpr std::array global_labels{
    slot_label{gslot::zero, "Zero"},     slot_label{gslot::sycos, "SyCos"},  slot_label{gslot::sysin, "SySin"},
    slot_label{gslot::lambda, "Lambda"}, slot_label{gslot::p0, "P0"},        slot_label{gslot::cp, "Cp"},
    slot_label{gslot::tau, "Tau"},       slot_label{gslot::ratio2, "Ratio"},
};
constexpr std::array diffractometer_labels{
    slot_label{gslot::dtt1, "Dtt1"},
    slot_label{gslot::dtt2, "Dtt2"},
    slot_label{gslot::dtt_1overd, "Dtt_1overd"},
};
constexpr std::array second_regime_labels{
    slot_label{gslot::zero_t, "Zt"},     slot_label{gslot::dtt1t, "Dtt1t"},  slot_label{gslot::dtt2t, "Dtt2t"},
    slot_label{gslot::xcross, "Xcross"}, slot_label{gslot::wcross, "Width"},
};
constexpr std::array tof_phase_labels{
    slot_label{slot::sig2, "Sig2"},
    slot_label{slot::sig1, "Sig1"},
    slot_label{slot::sig0, "Sig0"},
    slot_label{slot::sigq, "SigQ"},
    slot_label{slot::iso_gstrain, "Iso_GStrain"},
    slot_label{slot::iso_gsize, "Iso_GSize"},
    slot_label{slot::extinc, "Extinc"},
    slot_label{slot::gam2, "Gam2"},
    slot_label{slot::gam1, "Gam1"},
    slot_label{slot::gam0, "Gam0"},
    slot_label{slot::iso_lstrain, "Iso_LorStrain"},
    slot_label{slot::iso_lsize, "Iso_LorSize"},
    slot_label{slot::alph0, "Alph0"},
    slot_label{slot::beta0, "Beta0"},
    slot_label{slot::alph1, "Alph1"},
    slot_label{slot::beta1, "Beta1"},
    slot_label{slot::alphq, "AlphQ"},
    slot_label{slot::betaq, "BetaQ"},
    slot_label{slot::abs1, "Abs1"},
    slot_label{slot::abs2, "Abs2"},
    slot_label{slot::alph0t, "Alph0t"},
    slot_label{slot::beta0t, "Beta0t"},
    slot_label{slot::alph1t, "Alph1t"},
    slot_label{slot::beta1t, "Beta1t"},
};
constexpr std::array phase_labels{
    slot_label{slot::scale, "Scale"},
    slot_label{slot::bov, "Bov"},
    slot_label{slot::u, "U"},
    slot_label{slot::v, "V"},
    slot_label{slot::w, "W"},
    slot_label{slot::cell_a, "Cell_A"},
    slot_label{slot::cell_a + 1, "Cell_B"},
    slot_label{slot::cell_a + 2, "Cell_C"},
    slot_label{slot::cell_a + 3, "Cell_D"},
    slot_label{slot::cell_a + 4, "Cell_E"},
    slot_label{slot::cell_f, "Cell_F"},
    slot_label{slot::pref1, "Pref1"},
    slot_label{slot::pref2, "Pref2"},
    slot_label{slot::asy1, "Asy1"},
    slot_label{slot::x, "X"},
    slot_label{slot::y, "Y"},
    slot_label{slot::shape1, "Shape1"},
    slot_label{slot::str1, "Str_1"},
    slot_label{slot::str1 + 1, "Str_2"},
    slot_label{slot::str3, "Str_3"},
    slot_label{slot::xi, "Xi"},
    slot_label{slot::gausiz, "GauSiz"},
    slot_label{slot::asy2, "Asy2"},
    slot_label{slot::asy3, "Asy3"},
    slot_label{slot::asy4, "Asy4"},
    slot_label{slot::shift1, "Shift_1"},
    slot_label{slot::shift1 + 1, "Shift_2"},
    slot_label{slot::shift3, "Shift_3"},
    slot_label{slot::s_l, "S_L"},
    slot_label{slot::d_l, "D_L"},
    slot_label{slot::u2, "U2"},
    slot_label{slot::v2, "V2"},
    slot_label{slot::w2, "W2"},
    slot_label{slot::u_r, "U_r"},
    slot_label{slot::v_r, "V_r"},
    slot_label{slot::w_r, "W_r"},
    slot_label{slot::shape1_r, "Shape1_r"},
    slot_label{slot::x_r, "X_r"},
    slot_label{slot::lorsiz, "LorSiz"},
    slot_label{slot::zero_ph, "Zero_ph"},
    slot_label{slot::sycos_ph, "SyCos_ph"},
    slot_label{slot::sysin_ph, "SySin_ph"},
};
constexpr std::array atom_labels{
    slot_label{aslot::x, "X"},       slot_label{aslot::y, "Y"},     slot_label{aslot::z, "Z"},
    slot_label{aslot::biso, "Biso"}, slot_label{aslot::occ, "Occ"}, slot_label{aslot::b11, "B11"},
    slot_label{aslot::b22, "B22"},   slot_label{aslot::b33, "B33"}, slot_label{aslot::b12, "B12"},
    slot_label{aslot::b13, "B13"},   slot_label{aslot::b23, "B23"}, slot_label{aslot::rx, "Rx"},
    slot_label{aslot::ry, "Ry"},     slot_label{aslot::rz, "Rz"},   slot_label{aslot::ix, "Ix"},
    slot_label{aslot::iy, "Iy"},     slot_label{aslot::iz, "Iz"},   slot_label{aslot::magph, "MagPh"},
};

/// Consecutive slots with a name and a number that counts from `first`.
struct numbered_label {
  int from, to;
  const char* name;
  int first;
};
constexpr std::array crystal_series{
    numbered_label{slot::sc2, slot::sc2 + 4, "Sc_", 2},     numbered_label{slot::sc7, slot::sc7 + 11, "Sc_", 7},
    numbered_label{slot::sc19, slot::sc19 + 11, "Sc_", 19}, numbered_label{slot::sc31, slot::sc31 + 5, "Sc_", 31},
    numbered_label{slot::ext1, slot::ext1 + 5, "Ext_", 1},
};
constexpr std::array profile_series{
    numbered_label{slot::str4, slot::str4 + 11, "Str_", 4},
    numbered_label{slot::siz1 + 1, slot::siz1 + 8, "Size_", 2},
    numbered_label{slot::gshift1, slot::gshift1 + 20, "GShift_", 1},
    numbered_label{slot::special, slot::last, "Spr_", 1},
};
std::string series_label(std::span<const numbered_label> rows, int k) {
  const auto row = std::ranges::find_if(rows, [&](const numbered_label& l) { return k >= l.from && k <= l.to; });
  return row == rows.end() ? std::string() : row->name + std::to_string(k - row->from + row->first);
}

/// The label of a slot in a table, empty when it is not there.
std::string table_label(std::span<const slot_label> table, int k) {
  const auto row = std::ranges::find_if(table, [&](const slot_label& l) { return l.k == k; });
  return row == table.end() ? std::string() : row->name;
}

std::string label(std::span<const slot_label> table, int k, const char* other) {
  const auto row = std::find_if(table.begin(), table.end(), [&](const slot_label& l) { return l.k == k; });
  return row != table.end() ? row->name : other + std::to_string(k);
}

}  // namespace

namespace {

std::string global_name(const pattern_type& p, int k) {
  if (k >= gslot::user_bk) return "AddBck_" + std::to_string(k - gslot::user_bk + 1);
  if (k >= gslot::bac) return "Bck_" + std::to_string(k - gslot::bac);
  namespace abscissa = kalvaris_params::abscissa;
  std::string name;
  if (p.ixunit == abscissa::tof && p.nprof == 10) name = table_label(second_regime_labels, k);
  if (name.empty() && (p.ixunit == abscissa::tof || p.ixunit == abscissa::energy))
    name = table_label(diffractometer_labels, k);
  return name.empty() ? label(global_labels, k, "Glb_") : name;
}

/// The name of a slot of a phase depends on what the pattern holds and on the size model.
std::string phase_name(const state_type& st, int ph, int ip, int k) {
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  std::string name;
  if (p.cry_pat) {
    name = series_label(crystal_series, k);
  } else {
    if (p.ixunit == kalvaris_params::abscissa::tof) name = table_label(tof_phase_labels, k);
    if (name.empty() && k == slot::siz1 && (phase.isi != 0 || phase.istr == 2 || phase.istr == 3)) name = "Size_1";
    if (name.empty() && k >= slot::md1 && k < slot::zero_ph)
      name = ((k - slot::md1) % 2 == 0 ? "MD_" : "Fr_") + std::to_string((k - slot::md1) / 2 + 1);
    if (name.empty()) name = series_label(profile_series, k);
  }
  return name.empty() ? label(phase_labels, k, "Par_") : name;
}

}  // namespace

namespace {

/// What a slot is, apart from where it is: Biso, Kx_1, Dom_2.
std::string quantity(const state_type& st, const slot_place& s) {
  constexpr int population = 1;
  switch (s.family) {
    case slot_family::global:
      return global_name(st.pattern[static_cast<std::size_t>(s.ip)], s.k);
    case slot_family::phase:
      return phase_name(st, s.owner, s.ip, s.k);
    case slot_family::vector:
      return std::string("K").append(1, "xyz"[s.k - 1]).append("_").append(std::to_string(s.ip + 1));
    case slot_family::domain:
      return (s.k == population ? "Dom_" : "Chi_") + std::to_string(s.ip + 1);
    case slot_family::atom:
      break;
  }
  return s.k >= aslot::ff ? "Ff_" + std::to_string(s.k - aslot::ff + 1) : label(atom_labels, s.k, "A_");
}

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
    quantities.add(quantity(st, s));
    if (s.family == slot_family::atom) atoms.add(atom_label(st, s.owner));
    if (const int ph = phase_of(st, s); ph >= 0) phases.add(std::to_string(ph + 1));
    if (const int ip = pattern_of(s); ip >= 0) patterns.add(std::to_string(ip + 1));
  }
  const std::string name = quantities.text("") + atoms.text("_") + phases.text("_ph") + patterns.text("_pat");
  if (name.size() <= longest || named.size() == 1) return name.substr(0, longest);
  const std::string others = "+" + std::to_string(named.size() - 1) + "_more";
  return slot_name(st, named.front()).substr(0, longest - others.size()) + others;
}

}  // namespace kalvaris_codes

#include "kalvaris_codes.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "apply_shifts.hpp"
#include "lmix_fixed_format.hpp"

namespace kalvaris_codes {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
using lmix_fixed_format::fmt_line;

constexpr float smallest_multiplier = 0.001f;  // anything smaller asks for nothing

void refuse(state_type& st, std::initializer_list<std::string> lines) {
  st.fmt.ierr_fmt = 100;
  st.fmt.mess_findfmt.clear();
  for (const std::string& line : lines) st.fmt.mess_findfmt.add(line);
}

/// The slot belongs to nothing that a selected pattern uses.
bool out_of_play(const state_type& st, const slot_ref& s) {
  switch (s.family) {
    case slot_family::global:
      return st.pattern[static_cast<std::size_t>(s.owner)].affpat == 0;
    case slot_family::phase:
      return st.pattern[static_cast<std::size_t>(s.ip)].affpat == 0 || st.mix(s.owner, s.ip).jcontr == 0;
    case slot_family::vector:
    case slot_family::domain:
    case slot_family::body:
    case slot_family::mode:
      return st.phase[static_cast<std::size_t>(s.owner)].suppress;
    case slot_family::atom:
      break;
  }
  const phase_type& phase = st.phase[static_cast<std::size_t>(st.atom[static_cast<std::size_t>(s.owner)].phase)];
  return phase.suppress || phase.profile_matching();
}

constexpr std::size_t population = 1, chirality = 2;  // slots of a magnetic domain

/// The populations of the domains add up to one, so that the last one follows from the others; a chirality that was not
/// given is not refined.
void clear_dependent_domains(phase_type& phase) {
  for (kalvaris_params::domain_type& domain : phase.magdom) {
    if (!domain.chirality) domain.code[chirality] = 0.f;
  }
  if (!phase.magdom.empty()) phase.magdom.back().code[population] = 0.f;
}

/// Splits every code word. False when a number is above the limit.
bool treat_codes(state_type& st) {
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
    clear_dependent_domains(phase);
    phase.suppress = true;
    for (int ip = 0; ip < st.run.n_patt; ++ip)
      if (st.mix(ph, ip).jcontr != 0 && st.pattern[static_cast<std::size_t>(ip)].affpat != 0) phase.suppress = false;
  }
  st.run.maximum_lcode = 0;
  bool good = true;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.code == 0.f || !good) return;
    if (out_of_play(st, s)) {
      s.code = 0.f;
      s.number = 0;
      return;
    }
    const split_code c = split(s.code);
    if (c.number > st.dim.maxparam) {
      refuse(st, {" Error in a code: " + fmt_line{}.f(12, 2, s.code).str(),
                  " The maximum number of parameters is: " + fmt_line{}.i(6, st.dim.maxparam).str()});
      good = false;
      return;
    }
    s.number = c.number;
    s.code = c.multiplier;
    st.run.maximum_lcode = std::max(st.run.maximum_lcode, c.number);
  });
  st.run.code_splitted = good;
  return good;
}

/// A negative number of vectors gives one half of them: the other half are their opposites, on the same parameters with
/// the multiplier of the other sign.
void tie_opposite_vectors(state_type& st, bool numbered) {
  for (phase_type& phase : st.phase) {
    if (phase.nvk >= 0) continue;
    const std::size_t half = phase.vector.size() / 2;
    for (std::size_t j = 0; j < half; ++j) {
      const kalvaris_params::vector_type& given = phase.vector[j];
      kalvaris_params::vector_type& opposite = phase.vector[half + j];
      for (std::size_t c = 1; c <= 3; ++c) {
        opposite.lvk[c] = numbered ? given.lvk[c] : 0;
        opposite.avk[c] = numbered ? -given.avk[c] : 0.f;
      }
    }
  }
}

/// Automatic numbering: requests get the free numbers in order, then new ones; what is still free is closed up.
void modify_codes(state_type& st) {
  std::vector<int> uses(static_cast<std::size_t>(st.run.maximum_lcode) + 1, 0);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number > 0) ++uses[static_cast<std::size_t>(s.number)];
  });
  std::vector<int> gaps;
  for (int n = 1; n <= st.run.maximum_lcode; ++n)
    if (uses[static_cast<std::size_t>(n)] == 0) gaps.push_back(n);
  std::size_t next_gap = 0;
  st.run.maxs = st.run.maximum_lcode;
  tie_opposite_vectors(st, false);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number != 0 || !(std::abs(s.code) > smallest_multiplier)) return;
    s.number = next_gap < gaps.size() ? gaps[next_gap++] : ++st.run.maxs;
    if (std::abs(s.code) > 1.001f) s.code -= std::copysign(1.f, s.code);  // the word 1.5 asks for a multiplier of 0.5
  });
  // the highest numbers move into the gaps that are left, counted from below
  std::vector<int> renamed(static_cast<std::size_t>(st.run.maxs) + 1);
  for (std::size_t n = 0; n < renamed.size(); ++n) renamed[n] = static_cast<int>(n);
  std::vector<char> empty(renamed.size(), 0);
  for (std::size_t g = next_gap; g < gaps.size(); ++g) empty[static_cast<std::size_t>(gaps[g])] = 1;
  for (std::size_t g = next_gap; g < gaps.size(); ++g) {
    while (st.run.maxs > 0 && empty[static_cast<std::size_t>(st.run.maxs)]) --st.run.maxs;
    if (gaps[g] > st.run.maxs) break;
    renamed[static_cast<std::size_t>(st.run.maxs)] = gaps[g];
    empty[static_cast<std::size_t>(gaps[g])] = 0;
    --st.run.maxs;
  }
  while (st.run.maxs > 0 && empty[static_cast<std::size_t>(st.run.maxs)]) --st.run.maxs;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number > 0) s.number = renamed[static_cast<std::size_t>(s.number)];
  });
  tie_opposite_vectors(st, true);
}

/// The first number from 1 to maxs that no slot carries, 0 when there is none.
int missing_number(state_type& st) {
  std::vector<char> carried(static_cast<std::size_t>(st.run.maxs) + 1, 0);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number >= 1 && s.number <= st.run.maxs) carried[static_cast<std::size_t>(s.number)] = 1;
  });
  for (int n = 1; n <= st.run.maxs; ++n)
    if (!carried[static_cast<std::size_t>(n)]) return n;
  return 0;
}

/// Names and starting values of the parameters, by their reference slot.
void name_parameters(state_type& st) {
  const auto size = static_cast<std::size_t>(st.run.maxs) + 1;
  st.parm.nampar.assign(size, std::string());
  st.parm.valx.assign(size, 0.f);
  st.parm.svalx.assign(size, 0.f);
  std::vector<char> has_reference(size, 0);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const auto n = static_cast<std::size_t>(s.number);
    if (st.parm.nampar[n].empty()) st.parm.nampar[n] = slot_name(st, s);
    if (has_reference[n] || s.code == 0.f) return;
    has_reference[n] = 1;
    st.parm.nampar[n] = slot_name(st, s);
    st.parm.valx[n] = s.value;
  });
}

/// How a lattice ties the cell: for each of a, b, c, alpha, beta, gamma the parameter whose value and code it takes,
/// itself when free, or `fixed_angle`.
struct cell_rule {
  std::array<int, 6> follows{0, 1, 2, 3, 4, 5};
  bool hexagonal = false;  ///< gamma is 120 deg, and F = a*^2 takes the code of a
};
constexpr int fixed_angle = -1;

struct laue_row {
  std::string_view laue;
  cell_rule rule;
};
constexpr cell_rule orthogonal{{0, 1, 2, -1, -1, -1}, false}, tetragonal{{0, 0, 2, -1, -1, -1}, false},
    rhombohedral{{0, 0, 0, 3, 3, 3}, false}, hexagonal{{0, 0, 2, -1, -1, -1}, true},
    cubic{{0, 0, 0, -1, -1, -1}, false};
constexpr std::array laue_rows{
    laue_row{"-1", {}},
    laue_row{"mmm", orthogonal},
    laue_row{"4/m", tetragonal},
    laue_row{"4/mmm", tetragonal},
    laue_row{"-3 R", rhombohedral},
    laue_row{"-3m R", rhombohedral},
    laue_row{"-3", hexagonal},
    laue_row{"-3m1", hexagonal},
    laue_row{"-31m", hexagonal},
    laue_row{"6/m", hexagonal},
    laue_row{"6/mmm", hexagonal},
    laue_row{"m-3", cubic},
    laue_row{"m-3m", cubic},
    laue_row{"m3", cubic},
    laue_row{"m3m", cubic},
};

/// Axis (0..2) that a monoclinic group keeps: the one on which its rotation or mirror acts with the other sign.
int unique_axis(const lmix_crystallographic_symmetry::space_group_type& group) {
  for (const auto& op : group.symop) {
    const int trace = op.rot[0][0] + op.rot[1][1] + op.rot[2][2];
    if (trace == 3 || trace == -3) continue;
    for (std::size_t i = 0; i < 3; ++i)
      if (op.rot[i][i] * trace < 0) return static_cast<int>(i);
  }
  return 1;
}

cell_rule rule_of(const lmix_crystallographic_symmetry::space_group_type& group) {
  if (group.laue == "2/m") {
    cell_rule r = orthogonal;
    const auto free_angle = static_cast<std::size_t>(3 + unique_axis(group));
    r.follows[free_angle] = static_cast<int>(free_angle);
    return r;
  }
  const auto row = std::ranges::find(laue_rows, group.laue, &laue_row::laue);
  return row == laue_rows.end() ? cell_rule{} : row->rule;
}

/// Next number that no code uses.
struct number_source {
  int last;
  int operator()() { return ++last; }
};

/// A request without a number gets one.
void number_request(float& code, number_source& fresh) {
  const split_code c = split(code);
  if (c.number == 0 && std::abs(c.multiplier) > smallest_multiplier)
    code = join(
        {fresh(), std::abs(c.multiplier) > 1.001f ? c.multiplier - std::copysign(1.f, c.multiplier) : c.multiplier},
        false);
}

/// Codes of the components first .. first + n - 1 by the relations of a site.
bool constrain_components(std::span<float> codes, const lmix_crystallographic_symmetry::site_relations& site,
                          number_source& fresh) {
  bool complete = true;
  const auto n = static_cast<std::size_t>(site.n);
  std::array<float, 6> wanted{};
  for (std::size_t i = 0; i < n; ++i) {  // a code on any member of a group frees its independent component
    const int j = site.component[i].free;
    if (j >= 0 && std::abs(codes[i]) > smallest_multiplier && wanted[static_cast<std::size_t>(j)] == 0.f)
      wanted[static_cast<std::size_t>(j)] = static_cast<int>(i) == j ? codes[i]
                                            : codes[static_cast<std::size_t>(j)] != 0.f
                                                ? codes[static_cast<std::size_t>(j)]
                                                : codes[i];
  }
  for (std::size_t j = 0; j < n; ++j) number_request(wanted[j], fresh);
  for (std::size_t i = 0; i < n; ++i) {
    int terms = 0;
    for (std::size_t j = 0; j < n; ++j) terms += std::abs(site.coefficient[i][j]) > 0.01f ? 1 : 0;
    const auto& c = site.component[i];
    if (terms > 1 || c.free < 0) {
      complete = complete && terms <= 1;
      codes[i] = 0.f;
      continue;
    }
    split_code code = split(wanted[static_cast<std::size_t>(c.free)]);
    code.multiplier *= c.multiplier;
    codes[i] = std::abs(code.multiplier) < smallest_multiplier ? 0.f : join(code, false);
  }
  return complete;
}

// --- names
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

split_code split(float code) {
  const float size = std::abs(code);
  const int number = static_cast<int>(std::min(size * 0.1f, 1.0e8f));
  return {number, std::copysign(size - 10.f * static_cast<float>(number), code)};
}

float join(const split_code& code, bool automatic) {
  if (code.number == 0 && !automatic) return 0.f;
  return std::copysign(std::abs(code.multiplier) + 10.f * static_cast<float>(code.number), code.multiplier);
}

int get_code_max(state_type& st) {
  int highest = 0;
  st.for_each_slot([&](const slot_ref& s) { highest = std::max(highest, split(s.code).number); });
  return highest;
}

void mod_codes(state_type& st) {
  if (!treat_codes(st)) return;
  const bool all_selected = std::ranges::none_of(st.pattern, [](const pattern_type& p) { return p.affpat == 0; });
  const bool calculation_only = std::ranges::any_of(st.pattern, [](const pattern_type& p) { return !p.refining(); });
  const int given = st.run.maxs;
  if (calculation_only) {
    st.run.maxs = 0;
  } else if (st.run.automatic || !all_selected) {
    modify_codes(st);
    if (!st.run.automatic && given == 0) st.run.maxs = 0;
  } else if (st.run.maximum_lcode > given && given > 0) {
    kalvaris_inout::mess_cons(st.io, " Warning! Codes above the number of refined parameters are not refined: " +
                                         std::to_string(st.run.maximum_lcode));
  }
  if (st.run.maxs > st.dim.maxparam) {
    refuse(st, {" Error: number of refined parameters:" + fmt_line{}.i(6, st.run.maxs).str(),
                " The maximum number of parameters is: " + fmt_line{}.i(6, st.dim.maxparam).str()});
    return;
  }
  if (const int n = missing_number(st); n != 0) {
    refuse(st, {" => Error in the codes: no code has the parameter number:" + fmt_line{}.i(5, n).str(),
                " The number of refined parameters is:" + fmt_line{}.i(5, st.run.maxs).str() +
                    ", and each number up to it must be used"});
    return;
  }
  name_parameters(st);
  apply_shifts::set_reference_multipliers(st);
}

void restore_codes(state_type& st) {
  const bool deselected = std::ranges::any_of(st.pattern, [](const pattern_type& p) { return p.affpat == 0; });
  if (deselected || !st.run.code_splitted) return;
  st.for_each_slot([&](const slot_ref& s) {
    if (out_of_play(st, s)) return;
    const float word = join({s.number, s.code}, st.run.automatic);
    const bool changed = std::abs(split(s.code_read).multiplier) > std::abs(s.code) * 1.0001f && s.number != 0;
    if (st.run.automatic || changed) s.code_read = word;
  });
}

bool cell_const(state_type& st, int ph, int ip, bool fresh_numbers) {
  mix_type& mix = st.mix(ph, ip);
  phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  const cell_rule rule = rule_of(phase.spgr);
  const auto value = [&](int i) -> float& { return mix.par[static_cast<std::size_t>(slot::cell_a + i)]; };
  const auto code = [&](int i) -> float& { return mix.apar[static_cast<std::size_t>(slot::cell_a + i)]; };
  if (fresh_numbers) {
    number_source fresh{get_code_max(st)};
    for (const int i : {0, 3})
      if (rule.follows[static_cast<std::size_t>(i)] == i) number_request(code(i), fresh);
  }
  for (int i = 0; i < 6; ++i) {
    const int j = rule.follows[static_cast<std::size_t>(i)];
    value(i) = j != fixed_angle ? value(j) : i == 5 && rule.hexagonal ? 120.f : 90.f;
    code(i) = j == fixed_angle ? 0.f : code(j);
  }
  if (rule.hexagonal) code(5) = code(0);
  if (fresh_numbers) return true;

  lmix_crystal_metrics::cell_parameters cell{};
  for (int i = 0; i < 6; ++i) {
    if (i >= 3 && value(i) < 1.0e-5f) value(i) = 90.f;
    cell[static_cast<std::size_t>(i)] = static_cast<double>(value(i));
  }
  const auto form = lmix_crystal_metrics::quadratic_form_from_cell(cell);
  if (!form) {
    refuse(st, {" => Error in the cell of phase: " + std::to_string(ph + 1) + " pattern: " + std::to_string(ip + 1),
                " Bad cell parameters: lengths must be positive and the angles must be able to close"});
    return false;
  }
  if (phase.cellp.cellvol == 0.f) {
    const auto error = set_crystal_cell({value(0), value(1), value(2)}, {value(3), value(4), value(5)}, phase.cellp);
    if (error.err_crys) {
      refuse(st, {error.err_crys_mess});
      return false;
    }
  }
  for (int i = 0; i < 6; ++i) value(i) = static_cast<float>((*form)[static_cast<std::size_t>(i)]);
  return true;
}

void set_symmetryconstraints(state_type& st) {
  if (!st.run.automatic) return;
  namespace sym = lmix_crystallographic_symmetry;
  number_source fresh{get_code_max(st)};
  for (const phase_type& phase : st.phase) {
    if (phase.profile_matching()) continue;
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      atom_type& atom = st.atom[static_cast<std::size_t>(ia)];
      const sym::vector3 x{atom.xl[aslot::x], atom.xl[aslot::y], atom.xl[aslot::z]};
      const auto stabiliser = sym::get_stabilizerc(x, phase.spgr);
      bool complete =
          constrain_components(std::span(atom.a).subspan(aslot::x, 3), sym::position_relations(stabiliser), fresh);
      if (atom.n_t >= 2)
        complete =
            constrain_components(std::span(atom.a).subspan(aslot::b11, 6), sym::beta_relations(stabiliser), fresh) &&
            complete;
      if (!complete)
        kalvaris_inout::mess_cons(st.io, " Warning! A symmetry relation of atom " + atom.atext +
                                             " needs two parameters in one code; that component is kept fixed");
    }
  }
}

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

std::string slot_name(const state_type& st, const slot_ref& s) {
  const std::string in_pattern = "_pat" + std::to_string(s.ip + 1), in_phase = "_ph" + std::to_string(s.owner + 1);
  switch (s.family) {
    case slot_family::global:
      return global_name(st.pattern[static_cast<std::size_t>(s.ip)], s.k) + in_pattern;
    case slot_family::phase:
      return phase_name(st, s.owner, s.ip, s.k) + in_phase + in_pattern;
    case slot_family::vector:
      return "K" + std::string(1, "xyz"[s.k - 1]) + "_" + std::to_string(s.ip + 1) + in_phase;
    case slot_family::domain:
      return (s.k == static_cast<int>(chirality) ? "Chi_" : "Dom_") + std::to_string(s.ip + 1) + in_phase;
    case slot_family::body:
      return "Body_" + std::to_string(s.ip + 1) + "_" + std::to_string(s.k) + in_phase;
    case slot_family::mode:
      return "Mode_" + std::to_string(s.ip + 1) + in_phase;
    case slot_family::atom:
      break;
  }
  const atom_type& atom = st.atom[static_cast<std::size_t>(s.owner)];
  const std::string name =
      s.k >= aslot::ff ? "Ff_" + std::to_string(s.k - aslot::ff + 1) : label(atom_labels, s.k, "A_");
  return name + "_" + atom.atext + "_ph" + std::to_string(atom.phase + 1);
}

}  // namespace kalvaris_codes

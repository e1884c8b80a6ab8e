#include "kalvaris_codes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "apply_shifts.hpp"
#include "lmix_fixed_format.hpp"

namespace kalvaris_codes {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;
using lmix_fixed_format::fmt_line;

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
    s.code = requested_multiplier(s.code);
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

/// Names and starting values of the parameters. The reference slot of a parameter, its first with a multiplier, gives
/// the value and stands first in the name.
void name_parameters(state_type& st) {
  const auto size = static_cast<std::size_t>(st.run.maxs) + 1;
  st.parm.nampar.assign(size, std::string());
  st.parm.valx.assign(size, 0.f);
  st.parm.svalx.assign(size, 0.f);
  std::vector<std::vector<slot_place>> moving(size), standing(size);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const auto n = static_cast<std::size_t>(s.number);
    if (s.code != 0.f && moving[n].empty()) st.parm.valx[n] = s.value;
    (s.code != 0.f ? moving : standing)[n].push_back(place_of(s));
  });
  for (std::size_t n = 1; n < size; ++n)
    st.parm.nampar[n] = get_nampar(st, moving[n].empty() ? standing[n] : moving[n]);
}

/// An azimuth that makes two directions with these polar angles perpendicular [deg]; none when no azimuth does.
std::optional<float> perpendicular_azimuth(float theta, float other) {
  constexpr double degree = 0.017453292519943295;
  const double t = theta * degree, o = other * degree;
  const double sines = std::sin(t) * std::sin(o), cosines = std::cos(t) * std::cos(o);
  if (!(std::abs(sines) > 1.0e-6) || std::abs(cosines) > std::abs(sines)) return std::nullopt;
  return static_cast<float>(std::acos(-cosines / sines) / degree);
}

void tie_helix_spherical(atom_type& atom) {
  enum : std::size_t { phi_r = aslot::ry, theta_r = aslot::rz, phi_i = aslot::iy, theta_i = aslot::iz };
  const auto azimuth = perpendicular_azimuth(atom.xl[theta_r], atom.xl[theta_i]);
  atom.xl[phi_i] = atom.xl[phi_r] + azimuth.value_or(0.f);
  atom.lp[phi_i] = 0, atom.a[phi_i] = 0.f;
  if (azimuth) return;
  atom.xl[theta_i] = atom.xl[theta_r] + 90.f;
  atom.lp[theta_i] = 0, atom.a[theta_i] = 0.f;
}

/// Components along the cell axes, whose cosines the scalar product needs.
void tie_helix_along_axes(atom_type& atom, const std::array<float, 3>& cosines) {
  const auto [bc, ac, ab] = cosines;
  const float rx = atom.xl[aslot::rx], ry = atom.xl[aslot::ry], rz = atom.xl[aslot::rz];
  const float along_x = rx + ry * ab + rz * ac, along_y = rx * ab + ry + rz * bc, along_z = rx * ac + ry * bc + rz;
  atom.lp[aslot::iz] = 0, atom.a[aslot::iz] = 0.f;
  constexpr float no_component = 1.0e-6f;  // any Iz is perpendicular then: it stays
  if (std::abs(along_z) > no_component)
    atom.xl[aslot::iz] = -(along_x * atom.xl[aslot::ix] + along_y * atom.xl[aslot::iy]) / along_z;
}

}  // namespace

split_code split(float code) {
  constexpr double largest_number = 1.0e8;
  const double size = std::abs(static_cast<double>(code));
  const int number = static_cast<int>(std::min(size / 10.0, largest_number));
  return {number, std::copysign(static_cast<float>(size - 10.0 * number), code)};
}

float join(const split_code& code, bool automatic) {
  if (code.number == 0 && !automatic) return 0.f;
  return std::copysign(std::abs(code.multiplier) + 10.f * static_cast<float>(code.number), code.multiplier);
}

float requested_multiplier(float word) { return std::abs(word) > 1.001f ? word - std::copysign(1.f, word) : word; }

int get_code_max(state_type& st) {
  int highest = 0;
  st.for_each_slot([&](const slot_ref& s) { highest = std::max(highest, split(s.code).number); });
  return highest;
}

std::vector<float> get_n_codes(state_type& st) {
  std::vector<float> codes;
  st.for_each_slot([&](const slot_ref& s) { codes.push_back(s.code); });
  return codes;
}

void check_structure_codes(state_type& st) {
  for (phase_type& phase : st.phase) phase.stfac_nref = true;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs || s.family == slot_family::global) return;
    const bool in_profile = s.family == slot_family::phase && (s.k < slot::cell_a || s.k > slot::cell_f);
    if (in_profile) return;
    const int ph = s.family == slot_family::atom ? st.atom[static_cast<std::size_t>(s.owner)].phase : s.owner;
    st.phase[static_cast<std::size_t>(ph)].stfac_nref = false;
  });
}

void tie_helices(state_type& st) {
  constexpr int helix = 1;
  for (const phase_type& phase : st.phase) {
    if (phase.jhelix != helix || std::abs(phase.jbt) != 1) continue;
    std::array<float, 3> cosines{};
    for (std::size_t i = 0; i < 3; ++i) cosines[i] = std::cos(phase.cellp.ang[i] * 0.017453293f);
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      atom_type& atom = st.atom[static_cast<std::size_t>(ia)];
      const bool refined = std::ranges::any_of(atom.lp, [](int n) { return n != 0; }) ||
                           std::ranges::any_of(atom.a, [](float m) { return m != 0.f; });
      if (!refined) continue;
      if (phase.jbt > 0) {
        tie_helix_along_axes(atom, cosines);
      } else {
        tie_helix_spherical(atom);
      }
    }
  }
}

void mod_codes(state_type& st) {
  if (!treat_codes(st)) return;
  tie_helices(st);
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
  check_structure_codes(st);
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

}  // namespace kalvaris_codes

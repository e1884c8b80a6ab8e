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
  settle_numbers(st);
  if (st.run.maxs > st.dim.maxparam) {
    refuse(st, {" Error: number of refined parameters:" + fmt_line{}.i(6, st.run.maxs).str(),
                " The maximum number of parameters is: " + fmt_line{}.i(6, st.dim.maxparam).str()});
    return;
  }
  check_structure_codes(st);
  name_parameters(st);
  apply_shifts::set_reference_multipliers(st);
}

void restore_codes(state_type& st) {
  const bool deselected = std::ranges::any_of(st.pattern, [](const pattern_type& p) { return p.affpat == 0; });
  if (deselected || !st.run.code_splitted) return;
  const bool automatic = st.run.automatic;
  const std::vector<int>& number_now = st.run.number_now;
  st.for_each_slot([&](const slot_ref& s) {
    const split_code read = split(s.code_read);
    const auto n = static_cast<std::size_t>(read.number);
    const int now = number_now.empty() ? read.number : n < number_now.size() ? number_now[n] : 0;
    const bool halved = s.number != 0 && std::abs(read.multiplier) > std::abs(s.code) * 1.0001f;
    const bool tied = now == 0 && s.number > 0;  // its own number is gone: it goes by that of the slot that it follows
    if (!out_of_play(st, s) && (automatic || halved || tied)) {
      s.code_read = join({s.number, s.code}, automatic);
    } else if (now != read.number) {
      s.code_read = join({now, read.multiplier}, false);
    }
  });
  if (automatic || !number_now.empty()) st.run.maxs_read = st.run.maxs;
  for (auto& limit : st.run.limits) limit.number_read = limit.number;
  for (auto& restraint : st.run.linear) restraint.para_read = restraint.para;
  st.run.number_now.clear();
}

}  // namespace kalvaris_codes

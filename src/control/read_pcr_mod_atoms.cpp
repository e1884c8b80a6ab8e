#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "pcr_layout.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_inout::console_line;
using kalvaris_params::atom_type;
using kalvaris_params::phase_type;
using pcr_fields::part;
using pcr_layout::atom_kind;
using pcr_lines::place;
namespace aslot = kalvaris_params::aslot;

namespace {

constexpr std::size_t info_length = 80;

/// The slots of an atom that will be the next one.
slot_arrays slots_of_next(reading& r, atom_type& atom) {
  return {atom.xl, atom.a, atom.a_read, kalvaris_params::slot_family::atom, static_cast<int>(r.st.atom.size()), 0};
}

void warn(reading& r, std::string_view what, const atom_type& atom, std::string_view how) {
  console_line(r.st.io, lmix_fixed_format::fmt_line{}.a(what).a(atom.atext).a(how).str());
}

void warn_of_values(reading& r, const atom_type& atom, const phase_type& phase) {
  const bool common_list = pcr_layout::atom_kind_of(phase) == atom_kind::common;
  for (const int k : {aslot::x, aslot::y, aslot::z}) {
    if (phase.layert != 0 && !common_list) break;  // the layers of a supercell reach beyond the cell
    if (std::fabs(atom.xl[k]) > 1.2f) warn(r, " Warning!!, Fractional coordidate of atom ", atom, " exceeds 1.2!");
  }
  if (atom.xl[aslot::biso] < -1.f) {
    warn(r, " Warning!!, Isotropic temperature factor of atom ", atom, " is strongly negative");
  }
  const float least_occupancy = common_list ? 0.f : -1.f;
  if (atom.xl[aslot::occ] < least_occupancy) {
    warn(r, " Warning!!, Occupation factor of atom ", atom, " is strongly negative");
  }
}

void warn_of_moments(reading& r, const atom_type& atom, const phase_type& phase) {
  constexpr float largest_moment = 14.f;
  for (int k = aslot::rx; k <= aslot::iz && phase.jbt == 1; ++k) {
    if (!(atom.xl[k] > largest_moment)) continue;
    warn(r, " Warning!!, Some magnetic moment component of atom ", atom, " exceeds 14 muB");
  }
}

/// The first line of an atom by the kind of its phase; text behind a # is a remark on the atom.
bool read_first_line(reading& r, const place& at, const phase_type& phase, atom_type& atom) {
  const pcr_layout::atom_line& layout = pcr_layout::atom_line_of(phase);
  const part values = part::values(slots_of_next(r, atom), layout.value_slots());
  if (r.in.peek().empty()) return r.in.values(at, {layout.front});  // words the end of the file
  std::string line = r.in.take();
  atom.line_nb = r.in.lines_taken();
  if (const std::size_t hash = line.find('#'); hash != std::string::npos) {
    atom.atm_info = line.substr(hash + 1, info_length);
    line.erase(hash);
  }
  if (!r.in.values_of(at, pcr_lines::without_comment(line), {layout.front, values, layout.behind})) return false;
  atom.atext = r.in.word(0);
  atom.ntyp = r.in.word(1);
  if (layout.pointers > 0) atom.imagr = r.in.i(2);
  if (layout.pointers > 1) atom.ikv = phase.nvk == 0 ? 0 : r.in.i(3);
  const int behind = 2 + layout.pointers + values.size();
  switch (layout.kind) {
    case atom_kind::nuclear:
      atom.isap = {r.in.i(behind), r.in.i(behind + 1)};
      atom.n_t = r.in.i(behind + 2);
      atom.sp_pointers = r.in.i(behind + 3);
      break;
    case atom_kind::moments:
      atom.n_t = 1;
      break;
    case atom_kind::common:
    case atom_kind::modulated:
      atom.n_t = r.in.i(behind);
      atom.sp_pointers = r.in.i(behind + 1);
      break;
  }
  return true;
}

bool check_atom(reading& r, const place& at, const atom_type& atom, const phase_type& phase) {
  const atom_kind kind = pcr_layout::atom_kind_of(phase);
  const bool moments_possible = kind != atom_kind::nuclear;
  const int last = kind == atom_kind::modulated ? 3 : 5;  // harmonics leave no place for a form factor
  const bool known = atom.n_t >= -last && atom.n_t <= last && atom.n_t != -1 && atom.n_t != -2;
  const bool moment_alone = atom.n_t == 1 || atom.n_t == -3;
  if (!known || (moment_alone && !moments_possible)) {
    return r.in.refuse(at, "this kind of atom is not available (N_t " + std::to_string(atom.n_t) + ")");
  }
  if (atom.isap[0] < 0 || atom.isap[1] < atom.isap[0] || atom.isap[1] > number_of_operators(phase)) {
    return r.in.refuse(at, "operator numbers (In, Fin) do not name operators of the space group");
  }
  if (kind == atom_kind::modulated && (atom.imagr < 0 || atom.imagr > kalvaris_params::NHARM)) {
    return r.in.fail_here(lmix_fixed_format::fmt_line{}
                              .a(" Error in the number of harmonics for atom: ")
                              .a(atom.atext)
                              .a(", the maximum allowed is nharm = ")
                              .i(0, kalvaris_params::NHARM)
                              .str());
  }
  const int vectors = std::abs(phase.nvk) * (phase.nvk < 0 ? 2 : 1);
  return r.in.in_range(at, "number of the propagation vector", atom.ikv, -vectors, vectors);
}

bool read_betas(reading& r, int ph, atom_type& atom) {
  const slot_arrays to = slots_of_next(r, atom);
  if (!r.in.values({"betas of the atom", ph + 1}, {part::values(to, pcr_layout::beta_slots)})) return false;
  for (const int k : pcr_layout::beta_slots) {
    if (!(std::fabs(atom.xl[k]) > 0.5f)) continue;
    warn(r, " Warning!!, Some anisotropic Beta of atom ", atom, " exceeds 0.5!");
    break;
  }
  return r.in.values({"codes of the betas", ph + 1}, {part::codes(to, pcr_layout::beta_slots)});
}

bool read_moments(reading& r, int ph, const phase_type& phase, atom_type& atom) {
  const auto slots = pcr_layout::moment_slots_of(phase);
  const slot_arrays to = slots_of_next(r, atom);
  if (!r.in.values({"moments of the atom", ph + 1}, {part::values(to, slots)})) return false;
  if (!r.in.values({"codes of the moments", ph + 1}, {part::codes(to, slots)})) return false;
  warn_of_moments(r, atom, phase);
  return true;
}

/// VARY xyz and FIX xyz of the name line.
void command_coordinates(const phase_type& phase, atom_type& atom) {
  for (const int k : {aslot::x, aslot::y, aslot::z}) {
    if (phase.vary_xyz && std::fabs(atom.a[k]) < 0.001f) atom.a[k] = 1.f;
    if (phase.fix_xyz) atom.a[k] = 0.f;
  }
}

/// Behind the word CONN of the remark stand two elements whose distances are listed: their names get the usual
/// spelling and lose charge and oxidation number.
void settle_connectivity(std::string& info) {
  const std::size_t word = lmix_string_utilities::u_case(info).find("CONN");
  if (word == std::string::npos) return;
  std::size_t at = word + 4;
  for (int element = 0; element < 2; ++element) {
    at = info.find_first_not_of(' ', at);
    if (at == std::string::npos) return;
    if (std::isalpha(static_cast<unsigned char>(info[at])) == 0) return;  // no element
    const std::size_t end = std::min(info.find(' ', at), info.size());
    bool first = true;
    for (bool name = true; at < end; ++at) {
      const auto c = static_cast<unsigned char>(info[at]);
      name = name && std::isalpha(c) != 0;
      info[at] = !name ? ' ' : static_cast<char>(first ? std::toupper(c) : std::tolower(c));
      first = false;
    }
  }
}

/// Another cell for the distances: three lines with a row of the matrix and a component of the origin.
bool read_distance_cell(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  for (std::size_t i = 0; i < 3; ++i) {
    if (!r.in.values(pcr_forms::distance_cell, ph + 1)) return false;
    for (int j = 0; j < 3; ++j) phase.rot_cell[3 * i + static_cast<std::size_t>(j)] = r.in.f(j);
    phase.t_cell[i] = r.in.f(3);
  }
  return true;
}

bool read_atom_list(reading& r, int ph) {
  const int natom = r.st.phase[ph].natom;
  for (int ia = 0; ia < natom; ++ia) {
    r.in.in_list("Nat", "atoms of the phase", ia + 1, natom);
    if (!read_atom(r, ph)) return false;
  }
  r.in.behind_list();
  return true;
}

}  // namespace

bool read_atom(reading& r, int ph) {
  const place at{"atom line", ph + 1};
  phase_type& phase = r.st.phase[ph];
  atom_type atom;
  atom.phase = ph;
  if (!read_first_line(r, at, phase, atom) || !has_species(r, at, atom) || !check_atom(r, at, atom, phase))
    return false;
  warn_of_values(r, atom, phase);
  const auto slots = pcr_layout::atom_line_of(phase).value_slots();
  if (!r.in.values({"codes of the atom", ph + 1}, {part::codes(slots_of_next(r, atom), slots)})) return false;
  if (pcr_layout::has_moment_line(phase, atom)) {
    phase.mag_phase = true;
    if (!read_moments(r, ph, phase, atom)) return false;
  }
  if (pcr_layout::has_betas(phase, atom) && !read_betas(r, ph, atom)) return false;
  if (!read_form_factor(r, ph, atom)) return false;
  if (pcr_layout::has_last_betas(phase, atom) && !read_betas(r, ph, atom)) return false;
  if (pcr_layout::atom_kind_of(phase) == atom_kind::modulated && !read_harmonics(r, ph, atom)) return false;
  command_coordinates(phase, atom);
  settle_connectivity(atom.atm_info);
  atom.atm_info.erase(atom.atm_info.find_last_not_of(' ') + 1);
  if (phase.profile_matching()) atom.a.fill(0.f);  // nothing is calculated from these atoms, so nothing is refined
  r.st.atom.push_back(std::move(atom));
  return true;
}

bool has_species(reading& r, const place& at, const atom_type& atom) {
  constexpr std::string_view begins_a_number = "0123456789.+-";
  if (!atom.ntyp.empty() && begins_a_number.find(atom.ntyp.front()) != std::string_view::npos)
    return r.in.refuse(at, "the scattering species (Typ) of an atom expected, the number " + atom.ntyp + " found");
  const bool named = atom.ntyp.find_first_not_of(' ') != std::string::npos;
  return named || r.in.refuse(at, "the scattering species of atom " + atom.atext + " (Typ) is missing");
}

bool read_atoms(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  phase.first_atom = static_cast<int>(r.st.atom.size());
  const int kind = pcr_layout::kind_of(phase);
  if (phase.natom == 0) return true;
  if (kind == pcr_layout::jbt::modulated) {
    console_line(r.st.io, lmix_fixed_format::fmt_line{}.a("  Reading ").i(0, phase.natom).a(" superspace atoms").str());
  }
  if (!(kind == pcr_layout::jbt::bodies ? read_bodies(r, ph) : read_atom_list(r, ph))) return false;
  if (kind == pcr_layout::jbt::modes && !read_modes(r, ph)) return false;
  return std::abs(phase.jdist) != 2 || read_distance_cell(r, ph);
}

}  // namespace read_pcr_mod

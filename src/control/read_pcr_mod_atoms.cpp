#include <array>
#include <cmath>

#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_inout::console_line;
using kalvaris_params::atom_type;
using kalvaris_params::phase_type;
using pcr_lines::place;
namespace aslot = kalvaris_params::aslot;

namespace {

constexpr std::array<int, 5> atom_slots{aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ};
constexpr std::array<int, 6> beta_slots{aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23};
constexpr std::size_t info_length = 80;

/// Species whose form factor takes further lines.
bool is_special_species(std::string_view ntyp) {
  constexpr std::array<std::string_view, 7> words{"SASH", "MULT", "HXAP", "DIPO", "QUAD", "DISP", "OCTU"};
  const std::string upper = lmix_string_utilities::u_case(ntyp);
  for (const std::string_view word : words) {
    if (upper == word) return true;
  }
  return false;
}

void warn(reading& r, std::string_view what, const atom_type& atom, std::string_view how) {
  console_line(r.st.io, lmix_fixed_format::fmt_line{}.a(what).a(atom.atext).a(how).str());
}

void warn_of_values(reading& r, const atom_type& atom) {
  for (const int k : {aslot::x, aslot::y, aslot::z}) {
    if (std::fabs(atom.xl[k]) > 1.2f) warn(r, " Warning!!, Fractional coordidate of atom ", atom, " exceeds 1.2!");
  }
  if (atom.xl[aslot::biso] < -1.f) {
    warn(r, " Warning!!, Isotropic temperature factor of atom ", atom, " is strongly negative");
  }
  if (atom.xl[aslot::occ] < -1.f) warn(r, " Warning!!, Occupation factor of atom ", atom, " is strongly negative");
}

/// Label, species, x, y, z, B, occupancy, In, Fin, N_t, Spc; text behind a # is a remark on the atom.
bool read_first_line(reading& r, const place& at, atom_type& atom) {
  if (r.in.peek().empty()) return r.in.values(at, "64fffffiiii");  // words the end of the file
  std::string line = r.in.take();
  atom.line_nb = r.in.lines_taken();
  if (const std::size_t hash = line.find('#'); hash != std::string::npos) {
    atom.atm_info = line.substr(hash + 1, info_length);
    line.erase(hash);
  }
  if (!r.in.values_of(at, pcr_lines::without_comment(line), "64fffffiiii")) return false;
  atom.atext = r.in.word(0);
  atom.ntyp = r.in.word(1);
  store_values(r, arrays_of(atom), atom_slots, 2);
  atom.isap = {r.in.i(7), r.in.i(8)};
  atom.n_t = r.in.i(9);
  atom.sp_pointers = r.in.i(10);
  return true;
}

bool check_atom(reading& r, const place& at, const atom_type& atom, const phase_type& phase) {
  if (is_special_species(atom.ntyp)) {
    return r.in.refuse(at, "form factors with lines of their own (" + atom.ntyp + ") are not available");
  }
  if (atom.n_t != 0 && atom.n_t != 2 && atom.n_t != 3) {
    return r.in.refuse(at, "this kind of atom is not available (N_t " + std::to_string(atom.n_t) + ")");
  }
  if (atom.isap[0] < 0 || atom.isap[1] < atom.isap[0] || atom.isap[1] > phase.spgr.multip) {
    return r.in.refuse(at, "operator numbers (In, Fin) do not name operators of the space group");
  }
  return true;
}

bool read_betas(reading& r, int ph, atom_type& atom) {
  if (!r.in.values({"betas of the atom", ph + 1}, "ffffff")) return false;
  store_values(r, arrays_of(atom), beta_slots);
  for (const int k : beta_slots) {
    if (!(std::fabs(atom.xl[k]) > 0.5f)) continue;
    warn(r, " Warning!!, Some anisotropic Beta of atom ", atom, " exceeds 0.5!");
    break;
  }
  if (!r.in.values({"codes of the betas", ph + 1}, "ffffff")) return false;
  store_codes(r, arrays_of(atom), beta_slots);
  return true;
}

/// VARY xyz and FIX xyz of the name line.
void command_coordinates(const phase_type& phase, atom_type& atom) {
  for (const int k : {aslot::x, aslot::y, aslot::z}) {
    if (phase.vary_xyz && std::fabs(atom.a[k]) < 0.001f) atom.a[k] = 1.f;
    if (phase.fix_xyz) atom.a[k] = 0.f;
  }
}

bool read_atom(reading& r, int ph) {
  const place at{"atom line", ph + 1};
  const phase_type& phase = r.st.phase[ph];
  atom_type atom;
  atom.phase = ph;
  if (!read_first_line(r, at, atom) || !check_atom(r, at, atom, phase)) return false;
  warn_of_values(r, atom);
  if (!r.in.values({"codes of the atom", ph + 1}, "fffff")) return false;
  store_codes(r, arrays_of(atom), atom_slots);
  if (atom.n_t != 0 && !read_betas(r, ph, atom)) return false;
  command_coordinates(phase, atom);
  if (phase.profile_matching()) atom.a.fill(0.f);  // nothing is calculated from these atoms, so nothing is refined
  r.st.atom.push_back(std::move(atom));
  return true;
}

}  // namespace

slot_arrays arrays_of(atom_type& atom) { return {atom.xl, atom.a, atom.a_read}; }

bool read_atoms(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  phase.first_atom = static_cast<int>(r.st.atom.size());
  for (int ia = 0; ia < phase.natom; ++ia) {
    if (!read_atom(r, ph)) return false;
  }
  return true;
}

}  // namespace read_pcr_mod

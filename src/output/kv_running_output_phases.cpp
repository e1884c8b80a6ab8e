// The part of the echo that belongs to phases: structure, symmetry, atoms, profile parameters, with the codes.
#include <array>

#include "kalvaris_codes.hpp"
#include "kv_echo_words.hpp"
#include "kv_listed_slots.hpp"
#include "kv_listing_text.hpp"
#include "kv_quantitative.hpp"
#include "kv_running_output.hpp"
#include "kv_running_output_parts.hpp"
#include "lmix_fixed_format.hpp"
#include "pcr_layout.hpp"
#include "slot_text.hpp"

namespace kv_running_output {

double code_word(int number, float multiplier) {
  return static_cast<double>(kalvaris_codes::join({number, multiplier}, false));
}

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::state_type;
using kv_echo_words::flag;
using kv_echo_words::words_of;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;
namespace aslot = kalvaris_params::aslot;
namespace slot = kalvaris_params::slot;

double d(float v) { return static_cast<double>(v); }

// ---- what kind of phase it is ---------------------------------------------------------------------------------------

/// A number of the phase, printed when it is not 0.
struct count_row {
  int phase_type::*field;
  std::string_view words;
};
constexpr std::array count_rows{
    count_row{&phase_type::ndic, " => Number of distance restraints: "},
    count_row{&phase_type::nangc, " => Number of angle restraints: "},
    count_row{&phase_type::nmagc, " => Number of moment restraints: "},
    count_row{&phase_type::n_domains, " => Number of domains: "},
    count_row{&phase_type::ifurt, " => Further parameters (Furth): "},
    count_row{&phase_type::jview, " => File for viewing the structure (Jvi): "},
    count_row{&phase_type::jdist, " => Calculation of distances and angles (Jdi): "},
    count_row{&phase_type::jhelix, " => Helical structure (Hel): "},
    count_row{&phase_type::jter, " => Flag Ter: "},
    count_row{&phase_type::layert, " => Layers stacked along the axis number "},
};
/// What a phase is asked for by a word.
struct request_row {
  bool phase_type::*field;
  std::string_view words;
};
constexpr std::array request_rows{
    request_row{&phase_type::mag_only, " => Only the magnetic part is calculated"},
    request_row{&phase_type::nuc_only, " => Only the nuclear part is calculated"},
    request_row{&phase_type::bvs, " => Bond-valence sums are calculated"},
    request_row{&phase_type::merg_mag, " => Magnetic reflections are merged"},
    request_row{&phase_type::eff_mom, " => Effective moments are calculated"},
    request_row{&phase_type::suppress, " => No selected pattern uses the phase"},
};

void echo_vectors(state_type& st, const phase_type& phase) {
  if (!phase.vector.empty()) list(st, "\n => Propagation vectors and codes ==>");
  for (const auto& v : phase.vector) {
    fmt_line line;
    line.x(4);
    for (int c = 1; c <= 3; ++c) line.f(10, 5, d(at(v.pvk, c)));
    for (int c = 1; c <= 3; ++c) line.f(10, 2, code_word(at(v.lvk, c), at(v.avk, c)));
    list(st, line.str());
  }
}

/// Kind of the phase, where its intensities come from, and what else its flags and words ask for.
void comments4(state_type& st, int ph) {
  const phase_type& phase = at(st.phase, ph);
  list(st, words_of(flag::structure, phase.jbt));
  list(st, words_of(flag::symmetry, phase.isym));
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const mix_type& mix = st.mix(ph, ip);
    if (mix.jcontr == 0) {
      list(st, fmt_line{}.a(" => The phase does not contribute to pattern#").i(3, ip + 1).str());
      continue;
    }
    std::string words = words_of(flag::reflections, mix.irf);
    if (!mix.file_hkl.empty()) words += ": " + mix.file_hkl;
    list(st, words);
  }
  for (const count_row& row : count_rows)
    if (phase.*row.field != 0) list(st, fmt_line{}.a(row.words).i(4, phase.*row.field).str());
  for (const request_row& row : request_rows)
    if (phase.*row.field) list(st, row.words);
  for (const std::string& line : phase.cmd_text) list(st, " => Command: " + line);
  if (const double mass = kv_quantitative::cell_mass(st, ph); mass > 0.0 && !phase.profile_matching())
    list(st, fmt_line{}.a(" => Weight of the atoms of the cell (ATZ): ").f(12, 3, mass).str());
  echo_vectors(st, phase);
}

// ---- symmetry -------------------------------------------------------------------------------------------------------

void write_symm_info(state_type& st, const phase_type& phase) {
  list(st, write_spacegroup(phase.spgr, true));
  const std::string generators = get_gensymb_from_gener(phase.spgr);
  if (!generators.empty()) list(st, " => Generators: " + generators);
  if (st.run.jsy != 0 && !phase.spgr.wyckoff.orbit.empty()) list(st, write_wyckoff(phase.spgr));
  if (phase.isym == 0) return;
  const auto& hand = phase.by_hand;
  list(st, fmt_line{}
               .a("\n => Operators of the control file: ")
               .i(4, hand.nsym)
               .a(hand.cen == 2 ? ", with the inversion at the origin" : "")
               .a("   sets of magnetic matrices: ")
               .i(3, hand.magmat)
               .str());
  for (const auto& op : hand.op)
    for (const std::string& line : op.lines) list(st, "    " + line);
}

// ---- atoms ----------------------------------------------------------------------------------------------------------

/// The values of one line of an atom over their codes.
void atom_row(state_type& st, const atom_type& atom, fmt_line values, std::span<const int> slots, int decimals) {
  constexpr int width = 11;
  fmt_line codes;
  codes.x(15);
  for (const int k : slots) {
    values.f(width, decimals, d(at(atom.xl, k)));
    codes.f(width, 2, code_word(at(atom.lp, k), at(atom.a, k)));
  }
  list(st, values.str() + '\n' + codes.str());
}

void echo_form_factor(state_type& st, const phase_type& phase, const atom_type& atom) {
  const auto form = pcr_layout::form_factor_of(phase, atom);
  const int values = form.spherical ? atom.sa_ylmp.es3 : form.values;
  for (int first = 0; first < values; first += form.per_line) {
    std::vector<int> slots;
    for (int i = first; i < std::min(first + form.per_line, values); ++i) slots.push_back(aslot::ff + i);
    atom_row(st, atom, fmt_line{}.a(15, first == 0 ? "     form factor:" : ""), slots, 5);
  }
}

/// Cosine and sine terms of a modulated atom, displacements and, of an atom with a moment, moments.
void echo_harmonics(state_type& st, const phase_type& phase, const atom_type& atom) {
  if (pcr_layout::atom_kind_of(phase) != pcr_layout::atom_kind::modulated) return;
  for (int n = 0; n < atom.imagr; ++n) {
    const std::string number = std::to_string(n + 1) + ":";
    atom_row(st, atom, fmt_line{}.a(15, "     U " + number), pcr_layout::harmonic_slots(n, aslot::ucos), 5);
    if (pcr_layout::has_moment_line(phase, atom))
      atom_row(st, atom, fmt_line{}.a(15, "     M " + number), pcr_layout::harmonic_slots(n, aslot::mcos), 5);
  }
}

void echo_atom(state_type& st, const phase_type& phase, const atom_type& atom) {
  const auto& line = pcr_layout::atom_line_of(phase);
  atom_row(st, atom, fmt_line{}.x(2).a(6, atom.atext).x(1).a(6, atom.ntyp), line.value_slots(), 5);
  if (line.pointers == 2)
    list(st, fmt_line{}.a("     matrices:").i(3, atom.imagr).a("   vector:").i(3, atom.ikv).str());
  if (pcr_layout::has_moment_line(phase, atom))
    atom_row(st, atom, fmt_line{}.a(15, "     moment:"), pcr_layout::moment_slots_of(phase), 5);
  if (pcr_layout::has_betas(phase, atom) || pcr_layout::has_last_betas(phase, atom))
    atom_row(st, atom, fmt_line{}.a(15, "     betas:"), pcr_layout::beta_slots, 6);
  echo_form_factor(st, phase, atom);
  echo_harmonics(st, phase, atom);
  if (atom.isap[0] != 0 || atom.isap[1] != 0)
    list(st, fmt_line{}.a("     operators from").i(4, atom.isap[0]).a(" to").i(4, atom.isap[1]).str());
}

void echo_atoms(state_type& st, const phase_type& phase) {
  list(st, "\n => Atom parameters and codes ==>");
  list(st, "  Name   Type         x          y          z          B       occ.");
  if (pcr_layout::atom_kind_of(phase) == pcr_layout::atom_kind::moments)
    list(st, "                 Rx, Ry, Rz behind occ., below them Ix, Iy, Iz, beta11, beta22, beta33, MagPh");
  else if (pcr_layout::atom_kind_of(phase) != pcr_layout::atom_kind::nuclear)
    list(st, "                 moment: Rx, Ry, Rz, Ix, Iy, Iz, MagPh");
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) echo_atom(st, phase, at(st.atom, ia));
}

// ---- parameters with codes ------------------------------------------------------------------------------------------

void code_line(state_type& st, std::string_view words, int decimals, float value, int number, float multiplier) {
  list(st, kv_listing_text::value_line(words, decimals, {value}) +
               fmt_line{}.f(15, 2, code_word(number, multiplier)).str());
}

/// Slots of rigid bodies and symmetry modes that are used or refined.
template <class record>
void echo_record(state_type& st, kalvaris_params::slot_family family, int ph, int n, const record& r) {
  for (int k = 1; k < static_cast<int>(r.value.size()); ++k) {
    if (at(r.value, k) == 0.f && at(r.number, k) == 0) continue;
    const auto text = slot_text::describe(st, {family, ph, n, k});
    code_line(st, " => " + text.name + ": " + std::string(text.meaning), 5, at(r.value, k), at(r.number, k),
              at(r.code, k));
  }
}

void echo_groups_of_atoms(state_type& st, int ph) {
  const phase_type& phase = at(st.phase, ph);
  for (int n = 0; n < static_cast<int>(phase.bodies.size()); ++n) {
    const auto& body = at(phase.bodies, n);
    list(st, fmt_line{}.a("\n => Rigid body ").i(2, n + 1).a(" " + body.name + ", atoms: ").i(4, body.natoms).str());
    echo_record(st, kalvaris_params::slot_family::body, ph, n, body);
  }
  if (!phase.modes.empty()) list(st, "\n => Amplitudes of symmetry modes and codes ==>");
  for (int n = 0; n < static_cast<int>(phase.modes.size()); ++n)
    echo_record(st, kalvaris_params::slot_family::mode, ph, n, at(phase.modes, n));
}

/// Profile parameters with codes. The cell slots hold A..F of 1/d^2 by now; the cell itself stands in the phase.
void print_codesprof(state_type& st, int ph, int ip) {
  const mix_type& mix = st.mix(ph, ip);
  const phase_type& phase = at(st.phase, ph);
  list(st, fmt_line{}.a("\n => Profile parameters and codes of this phase for pattern#").i(3, ip + 1).a(" ==>").str());
  for (const auto& row : kv_listed_slots::of_phase(st, ph, ip))
    code_line(st, row.words, row.decimals, at(mix.par, row.k), at(mix.lpar, row.k), at(mix.apar, row.k));
  constexpr std::array names{" => Cell a, code of A", " => Cell b, code of B", " => Cell c, code of C",
                             " => alpha, code of D",  " => beta, code of E",   " => gamma, code of F"};
  for (int i = 0; i < 6; ++i)
    code_line(st, at(names, i), i < 3 ? 6 : 4, i < 3 ? at(phase.cellp.cell, i) : at(phase.cellp.ang, i - 3),
              at(mix.lpar, slot::cell_a + i), at(mix.apar, slot::cell_a + i));
}

void echo_globals(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, "\n => Global parameters and codes ==>" + fmt_line{}.a("  pattern#").i(3, ip + 1).str());
  for (const auto& row : kv_listed_slots::of_pattern(p)) {
    if (row.k == 0)
      list(st, row.words);
    else
      code_line(st, row.words, row.decimals, at(p.glb, row.k), at(p.lglb, row.k), at(p.aglb, row.k));
  }
}

void echo_phase(state_type& st, int ph) {
  const phase_type& phase = at(st.phase, ph);
  list(st, "\n" + kv_listing_text::rule('-'));
  list(st, " => Phase No. " + kv_listing_text::phase_title(st, ph));
  list(st, kv_listing_text::rule('-'));
  comments4(st, ph);
  write_symm_info(st, phase);
  list(st, write_crystal_cell(phase.cellp));
  if (phase.natom > 0) echo_atoms(st, phase);
  echo_groups_of_atoms(st, ph);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    if (st.mix(ph, ip).jcontr == 0) continue;
    echo_models(st, ph, ip);
    print_codesprof(st, ph, ip);
  }
}

}  // namespace

void echo_phases(state_type& st) {
  for (int ph = 0; ph < st.run.nphase; ++ph) echo_phase(st, ph);
  for (int ip = 0; ip < st.run.n_patt; ++ip) echo_globals(st, ip);
}

void echo_parameters(state_type& st) {
  list(st, fmt_line{}.a("\n => Number of Least-Squares parameters varied: ").i(5, st.run.maxs).str());
  for (int n = 1; n <= st.run.maxs && n < static_cast<int>(st.parm.nampar.size()); ++n)
    list(st, fmt_line{}.x(4).i(5, n).a("  " + at(st.parm.nampar, n)).str());
  list(st, "");
}

}  // namespace kv_running_output

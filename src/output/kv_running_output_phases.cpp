// The part of the echo that belongs to phases: structure, profile parameters, scattering, with the codes.
#include <array>

#include "kalvaris_codes.hpp"
#include "kv_listing_text.hpp"
#include "kv_running_output.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_running_output {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::scattering_entry;
using kalvaris_params::state_type;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;
namespace aslot = kalvaris_params::aslot;
namespace gslot = kalvaris_params::gslot;
namespace slot = kalvaris_params::slot;

/// The code word of a slot, as the control file would hold it.
double code_word(int number, float multiplier) {
  return static_cast<double>(kalvaris_codes::join({number, multiplier}, false));
}

std::string_view phase_kind(const phase_type& phase) {
  switch (phase.jbt) {
    case 2:
    case -2:
      return " => Profile matching: intensities are extracted in every cycle";
    case 3:
    case -3:
      return " => Profile matching: relative intensities are constant";
    default:
      return " => Crystal structure refinement";
  }
}

void echo_atoms(state_type& st, const phase_type& phase) {
  list(st, "\n => Atom parameters and codes ==>");
  list(st, "  Name   Type         x          y          z          B       occ.");
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const atom_type& atom = at(st.atom, ia);
    const auto row = [&](std::initializer_list<int> slots, int width, int decimals, fmt_line values) {
      fmt_line codes;
      codes.x(15);
      for (const int k : slots) {
        values.f(width, decimals, static_cast<double>(at(atom.xl, k)));
        codes.f(width, 2, code_word(at(atom.lp, k), at(atom.a, k)));
      }
      list(st, values.str() + '\n' + codes.str());
    };
    row({aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ}, 11, 5,
        fmt_line{}.x(2).a(6, atom.atext).x(1).a(6, atom.ntyp));
    if (atom.n_t >= 2)
      row({aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23}, 11, 6,
          fmt_line{}.a(15, "     betas:"));
  }
}

void slot_line(state_type& st, std::string_view words, int decimals, float value, int number, float multiplier) {
  constexpr int words_width = 56, number_width = 15;
  std::string line = fmt_line{}.a(words_width, words).str();
  kv_listing_text::put_number(line, number_width, decimals, static_cast<double>(value));
  list(st, line + fmt_line{}.f(number_width, 2, code_word(number, multiplier)).str());
}

/// Profile parameters with codes. The cell slots hold A..F of 1/d^2 by now; the cell itself stands in the phase.
void print_codesprof(state_type& st, int ph, int ip) {
  const mix_type& mix = st.mix(ph, ip);
  const phase_type& phase = at(st.phase, ph);
  list(st, fmt_line{}.a("\n => Profile parameters and codes of this phase for pattern#").i(3, ip + 1).a(" ==>").str());
  list(st, fmt_line{}.a(" => Peak shape of the phase: ").i(4, mix.npro).str());
  for (const auto& row : kv_listing_text::profile_rows())
    if (kv_listing_text::worth_a_line(row, at(mix.par, row.k), at(mix.lpar, row.k)))
      slot_line(st, row.words, row.decimals, at(mix.par, row.k), at(mix.lpar, row.k), at(mix.apar, row.k));
  constexpr std::array names{" => Cell a, code of A", " => Cell b, code of B", " => Cell c, code of C",
                             " => alpha, code of D",  " => beta, code of E",   " => gamma, code of F"};
  for (int i = 0; i < 6; ++i)
    slot_line(st, at(names, i), i < 3 ? 6 : 4, i < 3 ? at(phase.cellp.cell, i) : at(phase.cellp.ang, i - 3),
              at(mix.lpar, slot::cell_a + i), at(mix.apar, slot::cell_a + i));
  list(st, fmt_line{}.a(" => Direction of preferred orientation: ").f(8, 3, mix.pref).str());
}

void echo_globals(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, "\n => Global parameters and codes ==>" + fmt_line{}.a("  pattern#").i(3, ip + 1).str());
  for (const auto& row : kv_listing_text::global_rows())
    if (kv_listing_text::worth_a_line(row, at(p.glb, row.k), at(p.lglb, row.k)))
      slot_line(st, row.words, row.decimals, at(p.glb, row.k), at(p.lglb, row.k), at(p.aglb, row.k));
  const auto radiation = [&](std::string_view words, int k) {
    if (at(p.lglb, k) != 0) slot_line(st, words, 6, at(p.glb, k), at(p.lglb, k), at(p.aglb, k));
  };
  radiation(" => Wavelength Lambda1", gslot::lambda);
  radiation(" => Ratio Lambda2/Lambda1", gslot::ratio2);
  for (const auto& group : kv_listing_text::background_groups(p)) {
    list(st, group.heading);
    for (const int k : group.slots)
      slot_line(st, fmt_line{}.x(4).i(4, k - group.slots.front() + 1).str(), 4, at(p.glb, k), at(p.lglb, k),
                at(p.aglb, k));
  }
}

void echo_scattering(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  if (p.scattering.empty()) return;
  const bool neutrons = p.radiation() == kalvaris_params::job::neutrons;
  list(st, fmt_line{}.a("\n => Scattering of the atoms in pattern#").i(3, ip + 1).str());
  list(st, neutrons ? "  Name  Length(1E-12 cm)  Imaginary" : "  Name       f'       f\"    a1 b1 a2 b2 a3 b3 a4 b4 c");
  for (const scattering_entry& entry : p.scattering) {
    fmt_line line;
    line.x(2).a(6, entry.nam).f(9, 4, static_cast<double>(entry.dfp)).f(9, 4, static_cast<double>(entry.dfpp));
    if (!neutrons) line.f(10, 5, entry.ac);
    list(st, line.str());
  }
}

void echo_phase(state_type& st, int ph) {
  const phase_type& phase = at(st.phase, ph);
  list(st, "\n" + kv_listing_text::rule('-'));
  list(st, " => Phase No. " + kv_listing_text::phase_title(st, ph));
  list(st, kv_listing_text::rule('-'));
  list(st, phase_kind(phase));
  list(st, write_spacegroup(phase.spgr, true));
  list(st, write_crystal_cell(phase.cellp));
  if (phase.natom > 0) echo_atoms(st, phase);
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    if (st.mix(ph, ip).jcontr != 0) print_codesprof(st, ph, ip);
}

}  // namespace

void echo_phases(state_type& st) {
  for (int ph = 0; ph < st.run.nphase; ++ph) echo_phase(st, ph);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    echo_globals(st, ip);
    echo_scattering(st, ip);
  }
  list(st, fmt_line{}.a("\n => Number of Least-Squares parameters varied: ").i(5, st.run.maxs).str());
  for (int n = 1; n <= st.run.maxs && n < static_cast<int>(st.parm.nampar.size()); ++n)
    list(st, fmt_line{}.x(4).i(5, n).a("  " + at(st.parm.nampar, n)).str());
  list(st, "");
}

}  // namespace kv_running_output

#include "pcr_layout.hpp"
#include "pcr_numbers.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::phase_type;
using pcr_layout::coded_line;
using pcr_numbers::line;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;

namespace {

void write_name(writing& w, int ph) {
  const phase_type& phase = w.st.phase[ph];
  w.text += line{}.text("!  Data for PHASE number: ").i(3, ph + 1).str();
  line name;
  if (phase.phsnm.empty()) {
    name.text("Phase ").text(std::to_string(ph + 1));  // a blank line would be passed over
  } else {
    name.text(phase.phsnm);
  }
  w.text += name.text(phase.vary_xyz ? " VARY xyz" : "").text(phase.fix_xyz ? " FIX xyz" : "").str();
}

void write_short_flags(writing& w, int ph) {
  const phase_type& p = w.st.phase[ph];
  const mix_type& m = w.st.mix(ph, 0);
  w.text += "!Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth ATZ Nvk Npr More\n";
  line out;
  out.i(4, p.natom).i(4, p.ndic).i(4, p.nangc).n(8, 3, m.pref[0]).n(8, 3, m.pref[1]).n(8, 3, m.pref[2]);
  out.i(4, p.jbt).i(4, m.irf).i(4, p.isym).i(4, p.istr).i(4, p.ifurt).n(12, 3, p.atz);
  w.text += out.i(4, p.nvk).i(4, m.npro_read).i(4, p.imore).str();
  if (p.imore == 0) return;
  w.text += "!Jview Jdist Jhelix Jsol Nmagc Jter Brinl Rmua Rmub Rmuc Jtyp Nref_sp Ph_shift N_domains\n";
  line more;
  more.i(4, p.jview).i(4, p.jdist).i(4, p.jhelix).i(4, p.jsol).i(4, p.nmagc).i(4, p.jter);
  more.n(8, 3, m.brinl).n(8, 3, m.rmua).n(8, 3, m.rmub).n(8, 3, m.rmuc);
  w.text += more.i(4, m.jtyp).i(4, m.nref_sp).i(4, m.ph_shift).i(4, p.n_domains).str();
}

void write_contribution(writing& w, const mix_type& m, int ip) {
  w.text += line{}.text("!Irf Npro Jtyp Nref_sp Ph_shift for Pattern#").i(3, ip + 1).str();
  w.text += line{}.i(4, m.irf).i(4, m.npro_read).i(4, m.jtyp).i(4, m.nref_sp).i(4, m.ph_shift).str();
  w.text += line{}.text("!  Pr1    Pr2    Pr3    Brinl    Rmua    Rmub    Rmuc for Pattern#").i(3, ip + 1).str();
  line out;
  out.n(8, 3, m.pref[0]).n(8, 3, m.pref[1]).n(8, 3, m.pref[2]);
  w.text += out.n(8, 3, m.brinl).n(8, 3, m.rmua).n(8, 3, m.rmub).n(8, 3, m.rmuc).str();
}

void write_long_flags(writing& w, int ph) {
  const phase_type& p = w.st.phase[ph];
  w.text += "!Nat Dis Ang Jbt Isy Str Furth      ATZ   Nvk More\n";
  line out;
  out.i(4, p.natom).i(4, p.ndic).i(4, p.nangc).i(4, p.jbt).i(4, p.isym).i(4, p.istr).i(4, p.ifurt);
  w.text += out.n(12, 3, p.atz).i(4, p.nvk).i(4, p.imore).str();
  if (p.imore != 0) {
    w.text += "!Jview Jdist Jhelix Jsol Nmagc Jter N_domains\n";
    line more;
    more.i(4, p.jview).i(4, p.jdist).i(4, p.jhelix).i(4, p.jsol);
    w.text += more.i(4, p.nmagc).i(4, p.jter).i(4, p.n_domains).str();
  }
  w.text += "! Contributions of the phase to the patterns\n";
  line contributions;
  for (int ip = 0; ip < w.st.run.n_patt; ++ip) contributions.i(4, w.st.mix(ph, ip).jcontr);
  w.text += contributions.str();
  for (int ip = 0; ip < w.st.run.n_patt; ++ip) {
    if (w.st.mix(ph, ip).jcontr == 1) write_contribution(w, w.st.mix(ph, ip), ip);
  }
}

void write_reflection_files(writing& w, int ph) {
  for (int ip = 0; ip < w.st.run.n_patt; ++ip) {
    const mix_type& m = w.st.mix(ph, ip);
    if (m.file_hkl.empty()) continue;
    const char* quote = m.file_hkl.find(' ') == std::string::npos ? "" : "\"";
    w.text +=
        line{}.text("FILE_HKL").i(4, ip + 1).text(" ").text(quote).text(m.file_hkl).text(quote).i(4, m.p_ph).str();
  }
}

void write_atom(writing& w, const atom_type& atom, bool profile_matching) {
  const auto code = [&](int k) {
    // In profile matching the codes of the atoms act nowhere and are kept for whoever goes back to the structure.
    return profile_matching ? atom.a_read[k] : w.codes(atom.a[k], atom.lp[k], atom.a_read[k]);
  };
  line values, codes;
  values.text(6, atom.atext).text(" ").text(4, atom.ntyp).text(" ");
  values.a(11, 6, atom.xl[aslot::x]).a(11, 6, atom.xl[aslot::y]).a(11, 6, atom.xl[aslot::z]);
  values.n(10, 5, atom.xl[aslot::biso]).a(11, 6, atom.xl[aslot::occ]);
  values.i(4, atom.isap[0]).i(4, atom.isap[1]).i(4, atom.n_t).i(4, atom.sp_pointers);
  if (!atom.atm_info.empty()) values.text("  #").text(atom.atm_info);
  codes.text(12, "").k(11, code(aslot::x)).k(11, code(aslot::y)).k(11, code(aslot::z));
  codes.k(10, code(aslot::biso)).k(11, code(aslot::occ));
  w.text += values.str() + codes.str();
  if (atom.n_t == 0) return;
  line betas, beta_codes;
  for (int k = aslot::b11; k <= aslot::b23; ++k) {
    betas.a(11, 7, atom.xl[k]);
    beta_codes.k(11, code(k));
  }
  w.text += betas.str() + beta_codes.str();
}

void write_atoms(writing& w, int ph) {
  const phase_type& phase = w.st.phase[ph];
  if (phase.natom == 0) return;
  w.text += "!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc\n";
  bool betas = false;
  for (int ia = 0; ia < phase.natom; ++ia) betas = betas || w.st.atom[phase.first_atom + ia].n_t != 0;
  if (betas) w.text += "!     beta11    beta22    beta33    beta12    beta13    beta23\n";
  for (int ia = 0; ia < phase.natom; ++ia) {
    write_atom(w, w.st.atom[phase.first_atom + ia], phase.profile_matching());
  }
}

/// The cell of the phase stands in its record once par holds the reciprocal metric.
float value_of(const writing& w, int ph, int ip, int k) {
  const auto& cell = w.st.phase[ph].cellp;
  const int place = k - slot::cell_a;
  if (!w.st.run.code_splitted || place < 0 || place >= 6) return w.st.mix(ph, ip).par[k];
  return place < 3 ? cell.cell[place] : cell.ang[place - 3];
}

void write_coded_line(writing& w, int ph, int ip, const coded_line& row, int model) {
  const mix_type& m = w.st.mix(ph, ip);
  line values, codes;
  for (std::size_t j = 0; j < row.size(); ++j) {
    const int k = row.slots[j];
    values.n(12, 6, value_of(w, ph, ip, k));
    codes.k(12, w.codes(m.apar[k], m.lpar[k], m.apar_read[k]));
  }
  if (row.letters.back() == 'i') values.i(9, model);
  w.text += std::string(row.header) + '\n' + values.str() + codes.str();
}

void write_profile(writing& w, int ph, int ip) {
  const phase_type& phase = w.st.phase[ph];
  const mix_type& m = w.st.mix(ph, ip);
  w.text += line{}.text("!-------> Profile Parameters for Pattern # ").i(2, ip + 1).str();
  for (const coded_line& row : pcr_layout::profile_lines) {
    write_coded_line(w, ph, ip, row, row.slots[0] == slot::scale ? phase.ismo : phase.isi);
  }
  if (w.st.pattern[ip].iuvw == 1) {
    w.text += "!Additional U,V,W parameters for Lambda2\n";
    line out;
    for (const int k : pcr_layout::second_width_slots) {
      out.n(12, 6, m.par[k]).k(10, w.codes(m.apar[k], m.lpar[k], m.apar_read[k]));
    }
    w.text += out.str();
  }
  if (m.ph_shift != 0) write_coded_line(w, ph, ip, pcr_layout::phase_shift_line, 0);
}

}  // namespace

void write_phase(writing& w, int ph) {
  write_name(w, ph);
  if (w.st.run.s_format) {
    write_short_flags(w, ph);
  } else {
    write_long_flags(w, ph);
  }
  write_reflection_files(w, ph);
  w.text += line{}.text(20, w.st.phase[ph].symb).text(" <-- space group symbol").str();
  write_atoms(w, ph);
  for (int ip = 0; ip < w.st.run.n_patt; ++ip) {
    if (w.st.mix(ph, ip).jcontr == 1) write_profile(w, ph, ip);
  }
}

}  // namespace read_pcr_mod

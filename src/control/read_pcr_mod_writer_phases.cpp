#include <algorithm>
#include <cstdlib>
#include <span>

#include "pcr_layout.hpp"
#include "pcr_numbers.hpp"
#include "pcr_profile.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::phase_type;
using pcr_numbers::line;
using pcr_profile::layout;
using pcr_profile::model;
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
  name.text(phase.vary_xyz ? " VARY xyz" : "").text(phase.fix_xyz ? " FIX xyz" : "");
  w.text += name.text(phase.mag_only_named ? " MAG_ONLY" : "").text(phase.nuc_only_named ? " NUC_ONLY" : "").str();
}

/// A line of the block as it was read, but for the populations of domains, which are refined.
void write_command_lines(writing& w, const phase_type& phase) {
  if (!phase.commands) return;
  w.text += "COMMANDS\n";
  std::size_t domain = 0;
  for (const std::string& text : phase.cmd_text) {
    std::string_view rest = text;
    const std::string key = lmix_string_utilities::u_case(lmix_string_utilities::cutst(rest));
    if (key != "MAGDOM" && key != "MAGDOMT") {
      w.text += text + '\n';
      continue;
    }
    const kalvaris_params::domain_type& d = phase.magdom[domain++];
    line out;
    out.text(key).text(" ").text(d.op).text(" :");
    for (std::size_t k = 1; k <= (d.chirality ? 2u : 1u); ++k) {
      out.n(10, 5, d.value[k]).k(10, d.code_read[k]);
    }
    w.text += out.str();
  }
  w.text += "END\n";
}

void write_distance_limits(writing& w, const phase_type& phase) {
  if (phase.ndic == 0 && phase.nangc == 0) return;
  w.text += "! Dis_max  Ang_max  (BVS)\n";
  w.text += line{}.n(10, 4, phase.dis_max).n(10, 4, phase.ang_max).text(phase.bvs ? "  BVS" : "").str();
  if (!phase.bvs) return;
  w.text += "! N_cations  N_anions  Tolerance\n";
  w.text += line{}.i(5, phase.n_cations).i(5, phase.n_anions).n(10, 4, phase.tolerance).str();
  line names;
  for (const std::string& name : phase.bvs_names) names.text(" ").text(6, name);
  w.text += names.str();
}

void write_symmetry(writing& w, const phase_type& phase) {
  const kalvaris_params::hand_symmetry_type& hand = phase.by_hand;
  if (hand.op.empty()) return;
  line header;
  header.i(5, hand.nsym).i(5, hand.cen).i(5, hand.laue);
  if (phase.isym == -2) {
    w.text += "! Nsym Cen Laue Ireps N_Bas\n" + header.i(5, hand.ireps).i(5, hand.n_bas).str();
    w.text += "! Real(0)-Imaginary(1) indicator for Ci\n";
    for (const std::vector<int>& row : hand.icompl) {
      line out;
      for (const int indicator : row) out.i(4, indicator);
      w.text += out.str();
    }
  } else {
    w.text += hand.depmat != 0 ? "!Nsym Cen Laue MagMat DepMat\n" : "!Nsym Cen Laue MagMat\n";
    header.i(5, hand.magmat);
    if (hand.depmat != 0) header.i(5, hand.depmat);
    w.text += header.str();
  }
  for (const auto& op : hand.op) {
    for (const std::string& text : op.lines) w.text += text + '\n';
  }
}

void write_vectors(writing& w, const phase_type& phase, bool behind) {
  if (phase.nvk == 0 || phase.vectors_behind != behind) return;
  w.text += "! Propagation vectors: \n";
  const std::size_t given = phase.nvk < 0 ? phase.vector.size() / 2 : phase.vector.size();
  for (std::size_t j = 0; j < given; ++j) {
    const kalvaris_params::vector_type& v = phase.vector[j];
    line values, codes;
    for (std::size_t c = 1; c <= 3; ++c) {
      values.a(11, 6, v.pvk[c]);
      codes.k(11, v.avk_read[c]);
    }
    w.text += values.str() + codes.str();
  }
}

void write_restraints(writing& w, const phase_type& phase) {
  const auto label = [](line& out, const std::string& atom) { out.text(6, atom).text(" "); };
  if (!phase.distances.empty()) w.text += "! Distance restraints: catod catod isymc transl(3) dio sdio\n";
  for (const auto& d : phase.distances) {
    line out;
    for (const std::string& atom : d.catod) label(out, atom);
    out.i(5, d.isymc);
    for (const float x : d.transl) out.n(10, 5, x);
    w.text += out.n(10, 5, d.dio).n(10, 5, d.sdio).str();
  }
  if (!phase.angles.empty()) w.text += "! Angle restraints: catoa(3) isymca(2) transla(6) angl scang\n";
  for (const auto& a : phase.angles) {
    line out;
    for (const std::string& atom : a.catoa) label(out, atom);
    out.i(5, a.isymca[0]).i(5, a.isymca[1]);
    for (const float x : a.transla) out.n(10, 5, x);
    w.text += out.n(10, 5, a.angl).n(10, 5, a.scang).str();
  }
  if (!phase.moments.empty()) w.text += "! Moment restraints: cmatom moment sigma\n";
  for (const auto& m : phase.moments) {
    line out;
    label(out, m.cmatom);
    w.text += out.n(10, 5, m.moment).n(10, 5, m.sigma).str();
  }
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

/// The atom that is being written.
struct atom_writer {
  writing& w;
  const phase_type& phase;
  const atom_type& atom;

  [[nodiscard]] float code(int k) const { return atom.a_read[k]; }
  void write() const;
  void write_first_lines() const;
  void write_moments() const;
  void write_betas() const;
  void write_form_factor() const;
  void write_spherical() const;
};

void atom_writer::write_first_lines() const {
  const pcr_layout::atom_line& layout_of_line = pcr_layout::atom_line_of(phase);
  line values, codes;
  values.text(6, atom.atext).text(" ").text(4, atom.ntyp).text(" ");
  codes.text(12, "");
  if (layout_of_line.pointers > 0) values.i(4, atom.imagr);
  if (layout_of_line.pointers > 1) values.i(4, atom.ikv);
  codes.text(static_cast<std::size_t>(4 * layout_of_line.pointers), "");
  for (const int k : layout_of_line.value_slots()) {
    const bool coordinate = k <= aslot::z || k == aslot::occ;
    const std::size_t width = coordinate ? 11 : 10;
    if (coordinate) {
      values.a(width, 6, atom.xl[k]);
    } else {
      values.n(width, 5, atom.xl[k]);
    }
    codes.k(width, code(k));
  }
  if (layout_of_line.kind == pcr_layout::atom_kind::nuclear) values.i(4, atom.isap[0]).i(4, atom.isap[1]);
  if (layout_of_line.kind != pcr_layout::atom_kind::moments) values.i(4, atom.n_t).i(4, atom.sp_pointers);
  if (!atom.atm_info.empty()) values.text("  #").text(atom.atm_info);
  w.text += values.str() + codes.str();
}

void atom_writer::write_moments() const {
  line values, codes;
  for (const int k : pcr_layout::moment_slots_of(phase)) {
    values.n(10, 5, atom.xl[k]);
    codes.k(10, code(k));
  }
  w.text += values.str() + codes.str();
}

void atom_writer::write_betas() const {
  line values, codes;
  for (const int k : pcr_layout::beta_slots) {
    values.a(11, 7, atom.xl[k]);
    codes.k(11, code(k));
  }
  w.text += values.str() + codes.str();
}

void atom_writer::write_spherical() const {
  const kalvaris_params::spherical_form_type& form = atom.sa_ylmp;
  line head, terms;
  head.text(4, form.kind).i(4, form.es3);
  for (const float x : form.axes) head.n(10, 5, x);
  for (const int n : form.lm) terms.i(3, n);
  w.text += head.str() + terms.str();
}

void atom_writer::write_form_factor() const {
  const pcr_layout::form_factor_lines lines = pcr_layout::form_factor_of(phase, atom);
  if (lines.spherical) write_spherical();
  const int count = lines.spherical ? atom.sa_ylmp.es3 : lines.values;
  for (int done = 0; done < count; done += lines.per_line) {
    line values, codes;
    for (int k = aslot::ff + done; k < aslot::ff + std::min(done + lines.per_line, count); ++k) {
      values.n(12, 6, atom.xl[k]);
      codes.k(12, code(k));
    }
    w.text += values.str() + codes.str();
  }
  if (!lines.radial) return;
  line kinds, scales, coupled;
  for (const int kind : atom.radial_kind) kinds.i(5, kind);
  for (const float scale : atom.radial_scale) scales.n(12, 6, scale);
  coupled.i(5, atom.coupled_kind[0]).i(5, atom.coupled_kind[1]);
  for (const std::string& label : atom.coupled) coupled.text(" ").text(6, label);
  w.text += kinds.str() + scales.str() + coupled.str();
}

void atom_writer::write() const {
  write_first_lines();
  if (pcr_layout::has_moment_line(phase, atom)) write_moments();
  if (pcr_layout::has_betas(phase, atom)) write_betas();
  write_form_factor();
  if (pcr_layout::has_last_betas(phase, atom)) write_betas();
  if (pcr_layout::atom_kind_of(phase) == pcr_layout::atom_kind::modulated) write_harmonics(w, atom);
}

void write_atoms(writing& w, int ph) {
  const phase_type& phase = w.st.phase[ph];
  if (phase.natom == 0) return;
  w.text += std::string(pcr_layout::atom_line_of(phase).header) + '\n';
  const auto atoms =
      std::span(w.st.atom).subspan(static_cast<std::size_t>(phase.first_atom), static_cast<std::size_t>(phase.natom));
  const bool betas = std::ranges::any_of(atoms, [&](const atom_type& atom) {
    return pcr_layout::has_betas(phase, atom) || pcr_layout::has_last_betas(phase, atom);
  });
  if (betas) w.text += "!     beta11    beta22    beta33    beta12    beta13    beta23\n";
  auto body = phase.bodies.begin();
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom;) {
    if (body != phase.bodies.end() && body->first_atom == ia) {
      write_body(w, *body);
      ia += body++->natoms;
    } else {
      atom_writer{w, phase, w.st.atom[ia++]}.write();
    }
  }
  write_modes(w, phase);
  if (std::abs(phase.jdist) != 2) return;
  w.text += "! Cell for the distances: rows of the matrix, origin\n";
  for (std::size_t i = 0; i < 3; ++i) {
    line out;
    for (std::size_t j = 0; j < 3; ++j) out.n(10, 5, phase.rot_cell[3 * i + j]);
    w.text += out.n(10, 5, phase.t_cell[i]).str();
  }
}

/// The cell of the phase stands in its record once par holds the reciprocal metric.
float value_of(const writing& w, int ph, int ip, int k) {
  const auto& cell = w.st.phase[ph].cellp;
  const int place = k - slot::cell_a;
  if (!w.st.run.code_splitted || place < 0 || place >= 6) return w.st.mix(ph, ip).par[k];
  return place < 3 ? cell.cell[place] : cell.ang[place - 3];
}

/// The profile block that is being written.
struct profile_writer {
  writing& w;
  int ph, ip;
  const mix_type& mix = w.st.mix(ph, ip);
  const phase_type& phase = w.st.phase[ph];
  pcr_profile::block block{w.st, ph, ip};

  [[nodiscard]] float value(int k) const { return value_of(w, ph, ip, k); }
  [[nodiscard]] float code(int k) const { return mix.apar_read[k]; }
  [[nodiscard]] int model_of(model behind) const;
  void write_coded(const pcr_profile::line& row, std::span<const int> slots);
  void write_axes();
  void write_conditions(std::span<const int> slots);
  void write_special();
  void write_line(const pcr_profile::line& row);
};

int profile_writer::model_of(model behind) const {
  switch (behind) {
    case model::strain:
      return phase.ismo;
    case model::size:
      return phase.isi;
    case model::shift:
      return phase.ishif;
    case model::scales:
      return mix.num_scale;
    case model::extinction:
      return mix.iextinc;
    case model::none:
      break;
  }
  return 0;
}

void profile_writer::write_coded(const pcr_profile::line& row, std::span<const int> slots) {
  const bool field_may_be_taken = row.behind == model::strain || row.behind == model::size;
  for (std::size_t from = 0; from < slots.size(); from += row.per_line) {
    line values, codes;
    for (const int k : slots.subspan(from, std::min(row.per_line, slots.size() - from))) {
      const bool taken = field_may_be_taken && pcr_profile::taken_by_coefficients(block, k);
      values.n(12, 6, taken ? 0.f : value(k));
      codes.k(12, taken ? 0.f : code(k));
    }
    if (row.behind != model::none) values.i(9, model_of(row.behind));
    w.text += values.str() + codes.str();
  }
}

void profile_writer::write_axes() {
  w.text += line{}.i(5, mix.naxes).i(5, mix.norstp).str();
  w.text += "!    Pref-hkl           MD-r   Code(MD-r)    Fraction  Code(Fract.)\n";
  for (std::size_t a = 0; a < mix.axes.size(); ++a) {
    line out;
    for (const float x : mix.axes[a]) out.n(8, 3, x);
    for (const int k : {slot::md1, slot::fr1}) {
      const int slot_of_axis = k + 2 * static_cast<int>(a);
      out.n(12, 6, value(slot_of_axis)).k(10, code(slot_of_axis));
    }
    w.text += out.str();
  }
}

void profile_writer::write_conditions(std::span<const int> slots) {
  const auto& list = slots[0] == slot::siz1 ? mix.size_cond : mix.shift_cond;
  for (std::size_t j = 0; j < slots.size(); ++j) {
    line out;
    for (const int n : list[j].n) out.i(5, n);
    w.text += out.n(12, 6, value(slots[j])).k(10, code(slots[j])).str();
  }
}

void profile_writer::write_special() {
  for (std::size_t j = 0; j < mix.special.size(); ++j) {
    line out;
    for (std::size_t k = 0; k < pcr_profile::special_indices(phase); ++k) out.i(5, mix.special[j][k]);
    for (int k = 0; k < slot::per_special; ++k) {
      const int s = slot::special + slot::per_special * static_cast<int>(j) + k;
      out.n(12, 6, value(s)).k(10, code(s));
    }
    w.text += out.str();
  }
}

void profile_writer::write_line(const pcr_profile::line& row) {
  const std::vector<int> slots = row.slots(block);
  w.text += row.comment(block) + '\n';
  switch (row.kind) {
    case layout::coded:
      return write_coded(row, slots);
    case layout::axes:
      return write_axes();
    case layout::conditions:
      return write_conditions(slots);
    case layout::special:
      return write_special();
    case layout::direction: {
      line out;
      for (const float x : mix.psz) out.n(12, 6, x);
      w.text += out.str();
      return;
    }
    case layout::pairs: {
      line out;
      for (const int k : slots) out.n(12, 6, value(k)).k(10, code(k));
      w.text += out.str();
      return;
    }
  }
}

void write_profile(writing& w, int ph, int ip) {
  profile_writer writer{w, ph, ip};
  w.text += line{}.text("!-------> Profile Parameters for Pattern # ").i(2, ip + 1).str();
  for (const pcr_profile::line& row : pcr_profile::lines()) {
    if (row.stands(writer.block)) writer.write_line(row);
  }
}

}  // namespace

void write_phase(writing& w, int ph) {
  const phase_type& phase = w.st.phase[ph];
  write_name(w, ph);
  write_command_lines(w, phase);
  if (w.st.run.s_format) {
    write_short_flags(w, ph);
  } else {
    write_long_flags(w, ph);
  }
  write_reflection_files(w, ph);
  write_distance_limits(w, phase);
  w.text +=
      line{}.text(std::max(20, static_cast<int>(phase.symb.size())), phase.symb).text(" <-- space group symbol").str();
  write_symmetry(w, phase);
  write_vectors(w, phase, false);
  write_atoms(w, ph);
  for (int ip = 0; ip < w.st.run.n_patt; ++ip) {
    if (w.st.mix(ph, ip).jcontr == 1) write_profile(w, ph, ip);
  }
  write_vectors(w, phase, true);
  write_restraints(w, phase);
}

}  // namespace read_pcr_mod

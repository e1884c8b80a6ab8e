#include <algorithm>
#include <cmath>

#include "pcr_layout.hpp"
#include "pcr_numbers.hpp"
#include "pcr_writer.hpp"
#include "read_pcr_mod.hpp"

namespace read_pcr_mod {

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using kalvaris_params::scattering_entry;
using kalvaris_params::state_type;
using pcr_layout::flag;
using pcr_numbers::line;
namespace gslot = kalvaris_params::gslot;

namespace {

/// Comment of a pattern: "! text of Pattern#  n" and what follows.
std::string pattern_comment(std::string_view text, int ip, std::string_view behind = {}) {
  return line{}.text("! ").text(text).text(" of Pattern#").i(3, ip + 1).text(behind).str();
}

int flag_value(const state_type& st, const flag& f, int ip) {
  const pattern_type& p = st.pattern[ip];
  if (f.of_pattern == &pattern_type::nbckgd) return p.isbac * p.nbckgd;
  return f.of_run != nullptr ? st.run.*f.of_run : p.*f.of_pattern;
}

/// An output flag as it was read, whatever the run made of it.
int output_flag_value(const state_type& st, const flag& f, int ip) {
  namespace layout = pcr_layout;
  for (std::size_t k = 0; k < layout::long_run_output_flags.size(); ++k) {
    if (f.of_run != nullptr && f.of_run == layout::long_run_output_flags[k].of_run) return st.run.output_flags[k];
  }
  for (std::size_t k = 0; k < layout::long_pattern_output_flags.size(); ++k) {
    if (f.of_pattern != nullptr && f.of_pattern == layout::long_pattern_output_flags[k].of_pattern) {
      return st.pattern[ip].output_flags[k];
    }
  }
  return 0;
}

template <class value_of>
void write_flag_line(writing& w, std::span<const flag> flags, int ip, value_of value, bool options = false) {
  line out;
  for (const flag& f : flags) out.i(4, value(w.st, f, ip));
  if (options) out.i(4, w.st.run.optimize ? 1 : 0).i(4, w.st.run.automatic_read ? 1 : 0);
  w.text += out.str();
}

void write_weighting(writing& w) {
  for (const pattern_type& p : w.st.pattern) {
    if (p.iwgt != 3 || !p.wght.given) continue;
    line out;
    out.text("WGHT");
    for (const float v : {p.wght.a, p.wght.b, p.wght.c, p.wght.d, p.wght.e, p.wght.f}) out.n(12, 6, v);
    w.text += out.text(p.wght.refine ? " refine" : "").str();
  }
}

void write_radiation(writing& w, const pattern_type& p) {
  line out;
  out.n(11, 6, p.lamda[0]).n(11, 6, p.lamda[1]).n(11, 6, p.iuvw == 1 ? -p.ratio[1] : p.ratio[1]);
  out.n(10, 4, p.bkpos).n(10, 4, p.wdt).n(11, 6, p.cthm).n(11, 6, p.iabscor == 4 ? -p.tmv[0] : p.tmv[0]);
  out.n(10, 4, p.rlim).n(11, 6, p.rkk).n(11, 6, p.tmv[1]);
  w.text += out.str();
  for (const std::string& command : {p.vary_command, p.fix_command}) {
    if (!command.empty()) w.text += command + '\n';
  }
}

void add_range(line& out, const pattern_type& p) {
  out.n(12, 4, p.thmin_read).n(12, 6, p.step_read).n(12, 4, p.thmax_read).n(9, 3, p.alpsd).n(9, 3, p.sent0);
}

void write_cycles(writing& w) {
  const run_type& run = w.st.run;
  line out;
  out.i(5, run.mcycle).n(9, 4, run.eps);
  for (int k = 1; k <= 4; ++k) out.n(8, 3, run.relax[k]);
  if (run.s_format) {
    w.text += "!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4      Thmin        Step       Thmax   Alpsd   Sent0\n";
    add_range(out, w.st.pattern[0]);
    w.text += out.str();
    return;
  }
  w.text += "!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4\n" + out.str();
  w.text += "!     Thmin        Step       Thmax   Alpsd   Sent0\n";
  for (const pattern_type& p : w.st.pattern) {
    line range;
    add_range(range, p);
    w.text += range.str();
  }
}

float code_of(const writing& w, const pattern_type& p, int k) { return w.codes(p.aglb[k], p.lglb[k], p.aglb_read[k]); }

void write_points_and_regions(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (pcr_layout::has_points(p)) {
    w.text += line{}.text("!     Position      Height      Code    Background points of Pattern#").i(3, ip + 1).str();
    for (int j = 0; j < p.nbckgd; ++j) {
      const int k = gslot::bac + j;
      w.text += line{}.n(14, 4, p.pos[j]).n(14, 4, p.glb[k]).k(10, code_of(w, p, k)).str();
    }
  }
  if (p.excluded.empty()) return;
  w.text += pattern_comment("Excluded regions (alow ahigh)", ip);
  for (const auto& region : p.excluded) w.text += line{}.n(14, 4, region.alow).n(14, 4, region.ahigh).str();
}

void write_scattering_table(writing& w, const pattern_type& p, const scattering_entry& entry) {
  if (p.nscat < 0) {
    for (std::size_t k = 0; k < entry.star.size(); ++k) {
      w.text += line{}.n(12, 6, entry.star[k]).n(12, 6, entry.ftab[k]).str();
    }
    w.text += line{}.n(12, 6, -100.f).n(12, 6, 0.f).str();
    return;
  }
  for (std::size_t k = 0; k < entry.posi.size(); ++k) {
    w.text += line{}.n(12, 6, entry.posi[k]).n(12, 6, entry.scat[k]).str();
  }
  line out;
  for (const float v : entry.ac) out.n(12, 6, v);
  w.text += out.str();
}

void write_scattering(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (p.nscat != 0) w.text += pattern_comment("Scattering entries: name  Dfp  Dfpp  Ity", ip);
  const bool neutrons = p.radiation() == kalvaris_params::job::neutrons;
  for (const scattering_entry& entry : p.scattering) {
    if (!entry.from_file) continue;
    w.text += line{}.text(4, entry.nam).n(11, 6, entry.dfp).n(11, 6, entry.dfpp).i(4, entry.ity).str();
    if (entry.ity != 2 && !(neutrons && entry.ity == 0)) write_scattering_table(w, p, entry);
  }
}

void write_pairs(writing& w, const pattern_type& p, std::initializer_list<int> slots, line out = {}) {
  for (const int k : slots) out.n(12, 5, p.glb[k]).k(9, code_of(w, p, k));
  w.text += out.str();
}

void write_coefficients(writing& w, int ip, const pcr_layout::background_lines& row) {
  const pattern_type& p = w.st.pattern[ip];
  w.text += pattern_comment("Background values and codes", ip, line{}.text("  (").text(row.name).text(")").str());
  w.text.pop_back();
  int left = p.n_bac;
  for (std::size_t l = 0; l < row.lines() && left > 0; ++l) {
    line values, codes;
    for (std::size_t j = 0; j < row.per_line; ++j, --left) {
      const int k = row.first_slot[l] + static_cast<int>(j);
      values.n(14, 5, p.glb[k]);
      codes.k(14, code_of(w, p, k));
    }
    w.text += values.str() + codes.str();
  }
}

void write_global_parameters(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  w.text += line{}
                .text("!    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More     Pattern#")
                .i(3, ip + 1)
                .str();
  line zero;
  for (const int k : {gslot::zero, gslot::sycos, gslot::sysin, gslot::lambda}) {
    // A wavelength without a code repeats the radiation line; a blank field says so.
    const bool fixed_wavelength = k == gslot::lambda && p.aglb_read[k] == 0.f;
    zero.n(12, 5, fixed_wavelength ? 0.f : p.glb[k]).k(9, code_of(w, p, k));
  }
  w.text += zero.i(5, p.iglmore).str();
  if (p.iglmore == 1) {
    w.text +=
        "! Microabsorption coefficients for Pattern\n!       P0     Code          Cp     Code         Tau     Code\n";
    write_pairs(w, p, {gslot::p0, gslot::cp, gslot::tau});
  }
  if (pcr_layout::is_filter(p)) {
    w.text += pattern_comment("Window of the Fourier filter and cycles between two filterings", ip);
    w.text += line{}.n(14, 5, p.fwindow).i(5, p.win_cyc).str();
  }
  if (const auto* row = pcr_layout::coefficient_lines(p)) write_coefficients(w, ip, *row);
}

}  // namespace

code_words::code_words(const state_type& st) : as_read_(!st.run.code_splitted), automatic_(st.run.automatic_read) {
  for (const pattern_type& p : st.pattern) as_read_ = as_read_ || p.affpat == 0;
}

float code_words::operator()(float multiplier, int number, float code_read) const {
  if (as_read_) return code_read;
  const float size = std::fabs(multiplier);
  const float restored = std::copysign(size + 10.f * static_cast<float>(number), multiplier);
  if (automatic_) return restored;
  // A multiplier that was halved in the run stays halved; a code that another slot's took the place of is as read.
  const float read = std::fabs(code_read);
  const bool same_number = number != 0 && number == static_cast<int>(read * 0.1f);
  const bool halved = same_number && std::fabs(size - (read - 10.f * static_cast<float>(number))) > 1.0e-3f;
  return halved ? restored : code_read;
}

void write_head(writing& w, std::string_view date_line) {
  const run_type& run = w.st.run;
  w.text += run.title + '\n';
  if (run.cycles_done > 0 && std::isfinite(run.t_chi2)) {
    w.text +=
        lmix_fixed_format::fmt_line{}.a("! Current global Chi2 (Bragg contrib.) =").pe(14, 6, run.t_chi2).a("\n").str();
  }
  w.text += line{}.text("!Date: ").text(date_line).str();
  line files;
  files.text("! Files => DAT-file: ");
  for (std::size_t ip = 0; ip < w.st.io.filedat.size(); ++ip) {
    files.text(ip == 0 ? "" : ", ").text(w.st.io.filedat[ip]).text(w.st.io.extdat[ip]);
  }
  w.text += files.text(",  PCR-file: ").text(w.st.io.filenam).str();
  if (run.s_format) return;

  line npatt, weights;
  npatt.text("NPATT").i(3, run.n_patt);
  weights.text("W_PAT");
  for (const pattern_type& p : w.st.pattern) {
    npatt.i(4, p.affpat);
    weights.n(10, 6, p.w_pat);
  }
  w.text += npatt.str();
  if (run.w_pat_line) w.text += weights.str();
}

void write_flags(writing& w) {
  namespace layout = pcr_layout;
  const state_type& st = w.st;
  if (st.run.s_format) {
    w.text += "!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut\n";
    write_flag_line(w, layout::short_flags, 0, flag_value, true);
    write_weighting(w);
    w.text += "!Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana\n";
    write_flag_line(w, layout::short_output_flags, 0, output_flag_value);
    return;
  }
  w.text += "!Nph Dum Ias Nre Cry Opt Aut\n";
  write_flag_line(w, layout::long_run_flags, 0, flag_value, true);
  w.text += "!Job Npr Nba Nex Nsc Nor Iwg Ilo Res Ste Uni Cor Anm Int\n";
  for (int ip = 0; ip < st.run.n_patt; ++ip) write_flag_line(w, layout::long_pattern_flags, ip, flag_value);
  write_weighting(w);
  const auto measured = [](const pattern_type& p) {
    return p.jobtyp < 2 || p.jobtyp == kalvaris_params::job::electrons;
  };
  if (std::any_of(st.pattern.begin(), st.pattern.end(), measured)) {
    w.text += "! Data files, one line per pattern\n";
    for (std::size_t ip = 0; ip < st.pattern.size(); ++ip) w.text += st.io.filedat[ip] + st.io.extdat[ip] + '\n';
  }
  w.text += "!Mat Nxt Nli Jci Jsy Sho\n";
  write_flag_line(w, layout::long_run_output_flags, 0, output_flag_value);
  w.text += "!Iot Ipl Ipc Ls1 Ls2 Ls3 Prf Ins Jlk Jfo Ana\n";
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    write_flag_line(w, layout::long_pattern_output_flags, ip, output_flag_value);
  }
}

void write_patterns(writing& w) {
  const run_type& run = w.st.run;
  w.text += "!  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)\n";
  for (const pattern_type& p : w.st.pattern) write_radiation(w, p);
  write_cycles(w);
  for (int ip = 0; ip < run.n_patt; ++ip) write_points_and_regions(w, ip);
  for (int ip = 0; ip < run.n_patt; ++ip) write_scattering(w, ip);
  const bool numbers_found = run.automatic_read && run.code_splitted;
  w.text += "! Number of refined parameters (maxs)\n";
  w.text += line{}.i(8, numbers_found ? run.maxs : run.maxs_read).str();
  for (int ip = 0; ip < run.n_patt; ++ip) write_global_parameters(w, ip);
}

void write_end(writing& w) {
  const run_type& run = w.st.run;
  if (!run.limits.empty()) w.text += "! Limits: number  low  high  step  condition  name\n";
  for (const auto& limit : run.limits) {
    const auto& names = w.st.parm.nampar;
    const auto number = static_cast<std::size_t>(limit.number);
    const bool named = number < names.size() && !lmix_string_utilities::trim(names[number]).empty();
    line out;
    out.i(6, limit.number).n(10, 5, limit.vlim1).n(10, 5, limit.vlim2).n(10, 5, limit.step).i(5, limit.condition);
    w.text += out.text("  ").text(lmix_string_utilities::trim(named ? names[number] : limit.name)).str();
  }
  if (!run.pattern_to_plot) return;
  w.text += "!  t1_lim      t2_lim   Pattern to plot\n";
  w.text += line{}.n(12, 4, run.t1_lim).n(12, 4, run.t2_lim).i(5, run.n_pat_plot).str();
}

}  // namespace read_pcr_mod

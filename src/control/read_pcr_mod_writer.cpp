#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "lmix_math_general.hpp"
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

/// A flag among `kept`, the values as they were read of the flags in `order`.
int kept_value(const flag& f, std::span<const flag> order, std::span<const int> kept) {
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (f.of_run == order[k].of_run && f.of_pattern == order[k].of_pattern) return kept[k];
  }
  return 0;
}

/// A flag as it was read, whatever the run made of it.
int flag_value(const state_type& st, const flag& f, int ip) {
  if (f.of_run != nullptr) return kept_value(f, pcr_layout::long_run_flags, st.run.flags_read);
  return kept_value(f, pcr_layout::long_pattern_flags, st.pattern[ip].flags_read);
}

int output_flag_value(const state_type& st, const flag& f, int ip) {
  if (f.of_run != nullptr) return kept_value(f, pcr_layout::long_run_output_flags, st.run.output_flags);
  return kept_value(f, pcr_layout::long_pattern_output_flags, st.pattern[ip].output_flags);
}

template <class value_of>
void write_flag_line(writing& w, std::span<const flag> flags, int ip, value_of value, bool options = false) {
  line out;
  for (const flag& f : flags) out.i(4, value(w.st, f, ip));
  if (options) out.i(4, w.st.run.optimize ? 1 : 0).i(4, w.st.run.automatic_read ? 1 : 0);
  w.text += out.str();
}

void write_resolution_files(writing& w) {
  for (std::size_t ip = 0; ip < w.st.pattern.size(); ++ip) {
    if (w.st.pattern[ip].ireso == 0) continue;
    w.text += pattern_comment("Resolution file", static_cast<int>(ip)) + w.st.io.fileres[ip] + '\n';
  }
}

/// The name of a numerical profile stands behind Iot -2 only.
void write_profile_name(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (p.output_flags[0] == -2) w.text += "! Numerical profile\n" + p.fileprof + '\n';
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

void write_commands(writing& w, const pattern_type& p) {
  for (const std::string& command : {p.vary_command, p.fix_command}) {
    if (!command.empty()) w.text += command + '\n';
  }
}

void write_radiation(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (pcr_layout::has_lists(p)) {
    write_lists(w, ip);
    write_commands(w, p);
  }
  if (p.cry_pat) return;
  line out;
  if (pcr_layout::has_diffractometer(p)) {
    w.text += "!     Bkpos       Wdt   Iabscor\n";
    w.text += out.n(12, 4, p.bkpos).n(10, 4, p.wdt).i(5, p.iabscor).str();
    write_commands(w, p);
    return;
  }
  w.text += "!  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)\n";
  out.n(11, 6, p.lamda[0]).n(11, 6, p.lamda[1]).n(11, 6, p.iuvw == 1 ? -p.ratio[1] : p.ratio[1]);
  out.n(10, 4, p.bkpos).n(10, 4, p.wdt).n(11, 6, p.cthm).n(11, 6, p.iabscor == 4 ? -p.tmv[0] : p.tmv[0]);
  out.n(10, 4, p.rlim).n(11, 6, p.rkk).n(11, 6, p.tmv[1]);
  w.text += out.str();
  write_commands(w, p);
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
  for (const pattern_type& p : w.st.pattern) {
    if (p.cry_pat) continue;
    if (&p == w.st.pattern.data()) w.text += "!     Thmin        Step       Thmax   Alpsd   Sent0\n";
    line range;
    add_range(range, p);
    w.text += range.str();
  }
}

void write_points_and_regions(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (pcr_layout::has_points(p) && !p.cry_pat) {
    w.text += line{}.text("!     Position      Height      Code    Background points of Pattern#").i(3, ip + 1).str();
    for (int j = 0; j < p.nbckgd; ++j) {
      const int k = gslot::bac + j;
      w.text += line{}.n(14, 4, p.pos[j]).n(14, 4, p.glb[k]).k(10, p.aglb_read[k]).str();
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

/// Values, each with its code behind it, and a last number when there is one.
void write_pairs(writing& w, const pattern_type& p, std::span<const int> slots, std::optional<float> last = {}) {
  line out;
  for (const int k : slots) out.n(12, 5, p.glb[k]).k(9, p.aglb_read[k]);
  if (last) out.n(10, 4, *last);
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
      codes.k(14, p.aglb_read[k]);
    }
    w.text += values.str() + codes.str();
  }
}

/// The detector angle in degrees where it gives back its sine and cannot be taken for it, else 2 sin(theta).
float detector_angle(const pattern_type& p) {
  const float two_sin = static_cast<float>(2.0 * lmix_math_general::sind(0.5 * static_cast<double>(p.toftet)));
  return p.toftet > 2.f && two_sin == p.glb[gslot::two_sin] ? p.toftet : p.glb[gslot::two_sin];
}

void write_tof_zero_line(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  const bool nine = p.tof_words == 9;
  w.text += line{}
                .text("!    Zero    Code      Dtt1    Code    Dtt2    Code")
                .text(nine ? "  Dtt_1overd   Code" : "")
                .text("       Angle     Pattern#")
                .i(3, ip + 1)
                .str();
  line out;
  for (const int k : {gslot::zero, gslot::dtt1, gslot::dtt2}) out.n(12, 5, p.glb[k]).k(9, p.aglb_read[k]);
  if (nine) out.n(12, 5, p.glb[gslot::dtt_1overd]).k(9, p.aglb_read[gslot::dtt_1overd]);
  w.text += out.n(10, 4, detector_angle(p)).str();
}

void write_zero_line(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  const bool diffractometer = pcr_layout::has_diffractometer(p);
  w.text += line{}
                .text(diffractometer
                          ? "!    Zero    Code    Dtt1    Code    Dtt2    Code   Angle     Code  More     Pattern#"
                          : "!    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More     Pattern#")
                .i(3, ip + 1)
                .str();
  line zero;
  for (const int k : {gslot::zero, gslot::sycos, gslot::sysin, gslot::lambda}) {
    // A wavelength without a code repeats the radiation line; a blank field says so.
    const bool fixed_wavelength = k == gslot::lambda && p.aglb_read[k] == 0.f;
    const float last = diffractometer ? detector_angle(p) : fixed_wavelength ? 0.f : p.glb[k];
    zero.n(12, 5, k == gslot::lambda ? last : p.glb[k]).k(9, p.aglb_read[k]);
  }
  w.text += zero.i(5, p.iglmore).str();
}

void write_second_regime(writing& w, const pattern_type& p) {
  if (!pcr_layout::has_second_regime(p)) return;
  w.text += "!  xcross    Code      Width    Code       Angle\n";
  write_pairs(w, p, pcr_layout::crossing_slots, detector_angle(p));
  w.text += "!      Zt    Code      Dtt1t    Code       Dtt2t    Code\n";
  write_pairs(w, p, pcr_layout::second_regime_slots);
}

void write_user_profiles(writing& w, const pattern_type& p) {
  if (p.nbk_pr == 0) return;
  w.text += "! Profiles that are added to the background: number and names\n";
  line names, values, codes;
  names.i(4, p.nbk_pr);
  for (int j = 0; j < p.nbk_pr; ++j) {
    const std::string& name = p.file_bpr[static_cast<std::size_t>(j)];
    const char* quote = name.find(' ') == std::string::npos ? "" : "\"";
    names.text("  ").text(quote).text(name).text(quote);
    values.n(14, 5, p.glb[gslot::user_bk + j]);
    codes.k(14, p.aglb_read[gslot::user_bk + j]);
  }
  w.text += names.str() + values.str() + codes.str();
}

void write_global_parameters(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  if (p.cry_pat) return;
  if (pcr_layout::has_tof_zero_line(p)) {
    write_tof_zero_line(w, ip);
  } else {
    write_zero_line(w, ip);
  }
  write_second_regime(w, p);
  if (p.iglmore == 1 || p.iglmore == 3) {
    w.text +=
        "! Microabsorption coefficients for Pattern\n!       P0     Code          Cp     Code         Tau     Code\n";
    write_pairs(w, p, std::array{int{gslot::p0}, int{gslot::cp}, int{gslot::tau}});
  }
  write_user_profiles(w, p);
  if (pcr_layout::is_filter(p)) {
    w.text += pattern_comment("Window of the Fourier filter and cycles between two filterings", ip);
    w.text += line{}.n(14, 5, p.fwindow).i(5, p.win_cyc).str();
  }
  if (const auto* row = pcr_layout::coefficient_lines(p)) write_coefficients(w, ip, *row);
}

}  // namespace

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
    write_resolution_files(w);
    w.text += "!Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana\n";
    write_flag_line(w, layout::short_output_flags, 0, output_flag_value);
    write_profile_name(w, 0);
    return;
  }
  w.text += "!Nph Dum Ias Nre Cry Opt Aut\n";
  write_flag_line(w, layout::long_run_flags, 0, flag_value, true);
  w.text += "!Job Npr Nba Nex Nsc Nor Iwg Ilo Res Ste Uni Cor Anm Int\n";
  for (int ip = 0; ip < st.run.n_patt; ++ip) write_flag_line(w, layout::long_pattern_flags, ip, flag_value);
  write_weighting(w);
  const auto measured = [](const pattern_type& p) {
    return p.flags_read[0] < 2 || p.flags_read[0] == kalvaris_params::job::electrons;
  };
  if (std::any_of(st.pattern.begin(), st.pattern.end(), measured)) {
    w.text += "! Data files, one line per pattern\n";
    for (std::size_t ip = 0; ip < st.pattern.size(); ++ip) w.text += st.io.filedat[ip] + st.io.extdat[ip] + '\n';
  }
  write_resolution_files(w);
  w.text += "!Mat Nxt Nli Jci Jsy Sho\n";
  write_flag_line(w, layout::long_run_output_flags, 0, output_flag_value);
  w.text += "!Iot Ipl Ipc Ls1 Ls2 Ls3 Prf Ins Jlk Jfo Ana\n";
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    write_flag_line(w, layout::long_pattern_output_flags, ip, output_flag_value);
    write_profile_name(w, ip);
  }
}

void write_patterns(writing& w) {
  const run_type& run = w.st.run;
  for (int ip = 0; ip < run.n_patt; ++ip) write_radiation(w, ip);
  write_cycles(w);
  for (int ip = 0; ip < run.n_patt; ++ip) write_points_and_regions(w, ip);
  for (int ip = 0; ip < run.n_patt; ++ip) write_scattering(w, ip);
  w.text += "! Number of refined parameters (maxs)\n";
  w.text += line{}.i(8, run.maxs_read).str();
  for (int ip = 0; ip < run.n_patt; ++ip) write_global_parameters(w, ip);
}

namespace {

void write_linear_restraints(writing& w) {
  const auto& restraints = w.st.run.linear;
  if (!restraints.empty()) w.text += "! Linear restraints: value  sigma  n  (coefficient  parameter) x n\n";
  for (const auto& restraint : restraints) {
    line out;
    out.n(10, 5, restraint.val_lin).n(10, 5, restraint.sval_lin).i(5, restraint.n);
    for (std::size_t k = 0; k < restraint.coef.size(); ++k)
      out.n(10, 5, restraint.coef[k]).i(6, restraint.para_read[k]);
    w.text += out.str();
  }
}

void write_search(writing& w) {
  const kalvaris_params::search_type& s = w.st.run.search;
  const auto integers = [&](std::initializer_list<int> values) {
    line out;
    for (const int value : values) out.i(9, value);
    w.text += out.str();
  };
  if (std::abs(w.st.run.icryg) == 2) {
    w.text += "!  Nconfg    Nsolu    Nselr  Nscalef    Seed1    Seed2\n";
    integers({s.nconfg, s.nsolu, s.nselr, s.nscalef, s.seed_sa[0], s.seed_sa[1]});
  } else if (std::abs(w.st.run.icryg) == 3) {
    w.text += "!   T_ini    Anneal   Acceptc Num_temps  Nalgor Initconfig\n";
    line first;
    first.n(10, 4, s.t_ini).n(10, 4, s.anneal).n(10, 4, s.acceptc);
    w.text += first.i(9, s.num_temps).i(9, s.nalgor).i(9, s.initconfig).str();
    w.text += "!  Nconfg Num_therm  Nscalef Weight_sim   Seed1    Seed2\n";
    integers({s.nconfg, s.num_therm, s.nscalef, s.weight_sim, s.seed_sa[0], s.seed_sa[1]});
  }
}

}  // namespace

void write_end(writing& w) {
  const run_type& run = w.st.run;
  write_linear_restraints(w);
  if (!run.limits.empty()) w.text += "! Limits: number  low  high  step  condition  name\n";
  for (const auto& limit : run.limits) {
    const auto& names = w.st.parm.nampar;
    const auto number = static_cast<std::size_t>(limit.number);
    const bool named = number < names.size() && !lmix_string_utilities::trim(names[number]).empty();
    line out;
    out.i(6, limit.number_read).n(10, 5, limit.vlim1).n(10, 5, limit.vlim2).n(10, 5, limit.step).i(5, limit.condition);
    w.text += out.text("  ").text(lmix_string_utilities::trim(named ? names[number] : limit.name)).str();
  }
  write_search(w);
  for (const std::string& text : run.left_over) w.text += text + '\n';
  if (!run.pattern_to_plot) return;
  w.text += "!  t1_lim      t2_lim   Pattern to plot\n";
  w.text += line{}.n(12, 4, run.t1_lim).n(12, 4, run.t2_lim).i(5, run.n_pat_plot).str();
  for (const std::string& text : run.behind_plot) w.text += text + '\n';
}

}  // namespace read_pcr_mod

#include "kv_running_output.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "kv_background.hpp"
#include "kv_echo_words.hpp"
#include "kv_listing_text.hpp"
#include "lmix_fixed_format.hpp"
#include "pcr_layout.hpp"

namespace kv_running_output {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using kalvaris_params::state_type;
using kv_echo_words::flag;
using kv_echo_words::words_of;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;
namespace abscissa = kalvaris_params::abscissa;
namespace gslot = kalvaris_params::gslot;
namespace slot = kalvaris_params::slot;

double d(float v) { return static_cast<double>(v); }

void list_words(state_type& st, std::string_view words) {
  if (!words.empty()) list(st, words);
}

void pattern_heading(state_type& st, int ip) {
  if (st.run.n_patt > 1) list(st, fmt_line{}.a("\n =>------->  PATTERN number:").i(3, ip + 1).str());
}

// ---- output options -------------------------------------------------------------------------------------------------

/// An output flag of the control file and what it asks for.
struct option_row {
  int pattern_type::*pattern_flag;
  int run_type::*run_flag;  ///< in place of the first
  int value;                ///< asked for by this value alone; 0: by any but 0
  std::string_view words;
};
constexpr option_row of_run(int run_type::*f, int value, std::string_view words) { return {nullptr, f, value, words}; }
constexpr option_row of_pattern(int pattern_type::*f, int value, std::string_view words) {
  return {f, nullptr, value, words};
}
constexpr std::array option_rows{
    of_run(&run_type::mat, 0, " => Output Correlation Matrix"),
    of_run(&run_type::mat, 2, "    and the diagonal of the normal matrix in every cycle"),
    of_run(&run_type::mat, 3, "    and the normal matrix in every cycle"),
    of_run(&run_type::nxt, 1, " => Generate new input file *.PCR"),
    of_run(&run_type::nxt, 2, " => Generate new input file *.NEW"),
    of_run(&run_type::jsy, 0, " => Print Wyckoff positions of the space groups"),
    of_pattern(&pattern_type::iot, 0, " => Print observed and calculated intensities"),
    of_pattern(&pattern_type::iot, -1, "    Reduced profile in the file of the run"),
    of_pattern(&pattern_type::iot, -2, "    Reduced profile in the file given"),
    of_pattern(&pattern_type::ipl, 1, " => Line-printer plot"),
    of_pattern(&pattern_type::ipl, 2, " => Generate background file *.BAC"),
    of_pattern(&pattern_type::ipl, 3, " => Generate difference curve in *.BAC"),
    of_pattern(&pattern_type::ipc, 0, " => Output of integrated intensities"),
    of_pattern(&pattern_type::lst1, 0, " => Print reflection list"),
    of_pattern(&pattern_type::lst2, 1, " => Print corrected data"),
    of_pattern(&pattern_type::lst3, 0, " => Print merged reflection list"),
    of_pattern(&pattern_type::pl_prf, 0, " => Generate file *.PRF for plot"),
    of_pattern(&pattern_type::pl_prf, 2, "    as a script"),
    of_pattern(&pattern_type::pl_prf, 3, "    in columns with tabs"),
    of_pattern(&pattern_type::pl_prf, -3, "    in columns with tabs"),
    of_pattern(&pattern_type::pl_prf, 4, "    as a drawing, in its place *.PGF"),
    of_pattern(&pattern_type::pl_prf, 5, "    as data sets for a plotting program, in its place"),
    of_pattern(&pattern_type::pl_prf, 6, "    in plain columns, in its place"),
    of_pattern(&pattern_type::pl_prf, 7, "    as a plotting project, in its place *.AGR"),
    of_pattern(&pattern_type::ianaly, 0, " => Analysis of refinement at the end"),
};

void echo_options(state_type& st, const pattern_type& p) {
  list(st, "\n ==> INPUT/OUTPUT OPTIONS:\n");
  for (const option_row& row : option_rows) {
    const int value = row.run_flag != nullptr ? st.run.*row.run_flag : p.*row.pattern_flag;
    if (row.value == 0 ? value != 0 : value == row.value) list(st, row.words);
  }
  if (p.refining()) list_words(st, words_of(flag::layout, p.instr));
}

// ---- model of a pattern ---------------------------------------------------------------------------------------------

/// Monte Carlo and annealing move the parameters with limits.
void echo_search(state_type& st) {
  const auto& search = st.run.search;
  const int kind = std::abs(st.run.icryg);
  const std::string words = words_of(flag::search, st.run.icryg);
  if (kind != 2 && kind != 3) return list_words(st, words);
  list(st, fmt_line{}.a(words).i(0, static_cast<long long>(st.run.limits.size())).a(" parameters").str());
  list(st, fmt_line{}.a("    Configurations: ").i(8, search.nconfg).str());
  if (kind == 2) {
    list(st,
         fmt_line{}.a("    Solutions kept: ").i(8, search.nsolu).a("   Reflections used: ").i(6, search.nselr).str());
    return;
  }
  list(st, fmt_line{}
               .a("    Starting temperature: ")
               .f(8, 3, d(search.t_ini))
               .a("   Cooling factor: ")
               .f(6, 3, d(search.anneal))
               .a("   Temperatures: ")
               .i(5, search.num_temps)
               .str());
}

void echo_weights(state_type& st, const pattern_type& p) {
  constexpr int shelx_like = 3;
  list_words(st, words_of(p.cry_pat ? flag::integrated_weights : flag::weights, p.iwgt));
  if (p.iwgt != shelx_like || !p.wght.given) return;
  const auto& w = p.wght;
  list(st, fmt_line{}.a("    a, b, c, d, e, f: ").f(11, 5, std::array{w.a, w.b, w.c, w.d, w.e, w.f}).str());
}

void echo_background(state_type& st, const pattern_type& p) {
  list(st, kv_background::find_bg(p.nbckgd, p.isbac).listing);
  if (pcr_layout::is_filter(p))
    list(st, fmt_line{}
                 .a("    Window [points]: ")
                 .f(10, 2, d(p.fwindow))
                 .a("   Cycles between two filterings: ")
                 .i(4, p.win_cyc)
                 .str());
  for (const std::string& name : p.file_bpr)
    if (!name.empty()) list(st, " => Profile contributing to the background: " + name);
}

bool asymmetry_in_use(const state_type& st, int ip) {
  if (at(st.pattern, ip).ixunit == abscissa::tof) return false;
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (const int k : {slot::asy1, slot::asy2, slot::asy3, slot::asy4}) {
      const auto& mix = st.mix(ph, ip);
      if (at(mix.par, k) != 0.f || at(mix.apar, k) != 0.f) return true;
    }
  return false;
}

/// What only a profile has.
void echo_profile(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  if (asymmetry_in_use(st, ip)) list(st, " => Asymmetry correction as in J.Appl.Cryst. 26,128(1993)");
  echo_background(st, p);
  list_words(st, words_of(flag::shape, p.nprof));
  if (p.ireso != 0 && static_cast<std::size_t>(ip) < st.io.fileres.size())
    list(st, fmt_line{}.a(" => Resolution file: " + at(st.io.fileres, ip) + ", of type ").i(2, p.ireso).str());
  if (p.istep > 1) list(st, fmt_line{}.a(" => Points are joined by ").i(3, p.istep).str());
  list_words(st, words_of(flag::assignment, st.run.iasg));
}

void echo_model(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, fmt_line{}.a("\n ==> CONDITIONS OF THIS RUN FOR PATTERN No.:").i(3, ip + 1).a("\n").str());
  const std::string job = words_of(flag::job, p.jobtyp);
  list(st, job.empty() ? fmt_line{}.a(" Invalid JOBTYP ").i(4, p.jobtyp).str() : job);
  list_words(st, words_of(flag::abscissa, p.ixunit));
  if (p.refining() && static_cast<std::size_t>(ip) < st.io.filedat.size() &&
      static_cast<std::size_t>(ip) < st.io.extdat.size())
    list(st, " => Data file: " + at(st.io.filedat, ip) + at(st.io.extdat, ip));
  if (p.affpat == 0) list(st, " => The pattern takes no part in the refinement");
  if (st.run.n_patt > 1) list(st, fmt_line{}.a(" => Weight of the pattern: ").f(8, 5, d(p.w_pat)).str());
  if (p.cry_pat && st.run.icryg == 0) list_words(st, words_of(flag::search, 1));
  list_words(st, words_of(flag::geometry, p.ilor));
  list_words(st, words_of(flag::correction_file, p.icorr));
  list(st, fmt_line{}.a(" => Number of phases: ").i(3, st.run.nphase).str());
  list(st, fmt_line{}.a(" => Number of excluded regions: ").i(3, p.nexcrg).str());
  list(st, fmt_line{}.a(" => Number of scattering factors supplied: ").i(3, std::abs(p.nscat)).str());
  list_words(st, words_of(flag::orientation, p.nori));
  if (p.refining()) echo_weights(st, p);
  if (p.anm != 0) list(st, " => Difference of patterns with anomalous scattering");
  if (!p.cry_pat) echo_profile(st, ip);
  echo_search(st);
}

// ---- radiation ------------------------------------------------------------------------------------------------------

/// A value with its words, printed only when it is not 0 unless `always`.
struct value_row {
  std::string_view words;
  float pattern_type::*field;
  int width, decimals;
  bool always;
  std::string_view unit;
};
constexpr std::array reach_rows{
    value_row{" => Reach of a peak (+/-) in units of its FWHM: ", &pattern_type::wdt, 8, 2, true, ""},
    value_row{" => Origin of the polynomial background: ", &pattern_type::bkpos, 9, 3, true, ""},
};
constexpr std::array sample_rows{
    value_row{" => Incident angle of the flat plate: ", &pattern_type::alpsd, 9, 3, false, " degrees"},
    value_row{" => The beam overfills the sample below: ", &pattern_type::sent0, 9, 3, false, " degrees"},
};
constexpr std::array monochromator_rows{
    value_row{" => Cos(Monochromator angle)= ", &pattern_type::cthm, 9, 4, true, ""},
    value_row{" => Polarization= ", &pattern_type::rkk, 9, 4, false, ""},
    value_row{" => Asymmetry correction for angles lower than ", &pattern_type::rlim, 9, 3, true, " degrees"},
};
constexpr std::array diffractometer_rows{
    value_row{" => Angle of the detector (2Theta): ", &pattern_type::toftet, 9, 3, true, " degrees"},
    value_row{" => Dtt1 with the resolution file: ", &pattern_type::dtt1, 12, 5, true, ""},
    value_row{" => Dtt2 with the resolution file: ", &pattern_type::dtt2, 12, 5, true, ""},
    value_row{" => Dtt_1overd with the resolution file: ", &pattern_type::dtt_1overd, 12, 5, false, ""},
};

template <std::size_t N>
void list_values(state_type& st, const pattern_type& p, const std::array<value_row, N>& rows) {
  for (const value_row& row : rows)
    if (row.always || p.*row.field != 0.f)
      list(st, fmt_line{}.a(row.words).f(row.width, row.decimals, d(p.*row.field)).a(row.unit).str());
}

void echo_radiation(state_type& st, const pattern_type& p) {
  list(st, "");
  if (pcr_layout::has_diffractometer(p)) {
    list_values(st, p, diffractometer_rows);
    if (p.ixunit == abscissa::tof) list_words(st, words_of(flag::absorption_tof, p.iabscor));
  } else {
    list(st, fmt_line{}.a(" => Wavelengths: ").f(10, 6, p.lamda).str());
    list(st, fmt_line{}.a(" => Alpha2/Alpha1 ratio: ").f(9, 4, d(p.ratio[1])).str());
    if (p.iuvw == 1) list(st, " => Different U,V,W parameters for Lambda(2) will be read");
    list_values(st, p, monochromator_rows);
    if (p.tmv[0] != 0.f || p.tmv[1] != 0.f)
      list(st, fmt_line{}.a(words_of(flag::absorption, p.iabscor)).f(9, 4, p.tmv).str());
  }
  if (p.cry_pat) return;
  list_values(st, p, reach_rows);
  list_values(st, p, sample_rows);
}

// ---- run ------------------------------------------------------------------------------------------------------------

void echo_cycles(state_type& st) {
  const run_type& run = st.run;
  list(st, fmt_line{}.a("\n => Number of cycles: ").i(5, run.mcycle).str());
  list(st, " => Relaxation factors ==>");
  list(st, fmt_line{}.a("    for coordinates: ").f(6, 2, d(run.relax[1])).str());
  list(st, fmt_line{}.a(" => for anisotropic temperature factors: ").f(6, 2, d(run.relax[2])).str());
  list(st, fmt_line{}.a(" => for halfwidth/strain/size/further parameters: ").f(6, 2, d(run.relax[3])).str());
  list(st, fmt_line{}.a(" => for lattice constants and propagation vectors: ").f(6, 2, d(run.relax[4])).str());
  list(st, fmt_line{}.a(" => EPS-value for convergence: ").f(8, 4, d(run.eps)).str());
  constexpr int stop_on_rise = 2;
  if (run.idum == stop_on_rise) list(st, " => The run stops when Chi2 rises");
  if (run.automatic) list(st, " => Automatic numbering of the parameters");
}

void echo_limits(state_type& st) {
  if (!st.run.limits.empty())
    list(st, "\n => Parameters with limits:  number        lower         upper          step");
  for (const auto& row : st.run.limits) {
    fmt_line line;
    line.x(24).i(10, row.number);
    for (const float v : {row.vlim1, row.vlim2, row.step}) line.f(14, 5, d(v));
    list(st, line.a(words_of(flag::limit, row.condition)).str());
  }
  if (!st.run.linear.empty())
    list(st, "\n => Linear restraints:     value         sigma   sum of coefficient times P(number)");
  for (const auto& row : st.run.linear) {
    fmt_line line;
    line.x(18).f(14, 5, d(row.val_lin)).f(14, 5, d(row.sval_lin)).x(3);
    for (int j = 0; j < static_cast<int>(row.coef.size()); ++j)
      line.f(10, 4, d(at(row.coef, j))).a(" P(").i(0, at(row.para, j)).a(")");
    list(st, line.a(row.noapply ? "   not applied" : "").str());
  }
}

void echo_supplied_tables(state_type& st, const pattern_type& p) {
  for (const auto& entry : p.scattering) {
    if (entry.star.empty()) continue;
    list(st, fmt_line{}
                 .a(" => Table of scattering factors of " + entry.nam + ":")
                 .i(4, static_cast<long long>(entry.star.size()))
                 .a(" values  (sinTheta/Lambda, f)")
                 .str());
    for (int j = 0; j < static_cast<int>(entry.star.size()); ++j)
      list(st, fmt_line{}.x(4).f(10, 5, d(at(entry.star, j))).f(12, 5, d(at(entry.ftab, j))).str());
  }
}

// ---- range ----------------------------------------------------------------------------------------------------------

/// How the range of an abscissa is told.
struct range_words {
  int ixunit;
  std::string_view heading, from, to;
};
constexpr std::array range_table{
    range_words{abscissa::two_theta, "\n ==> Angular range, step and number of points:", "     2Thmin:", "  2Thmax:"},
    range_words{abscissa::tof, "\n ==> T.O.F. range, and number of points:", "     TOFmin:", "  TOFmax:"},
    range_words{abscissa::energy, "\n ==> Energy range, and number of points: ", "     Enmin:", "  Enmax:"},
    range_words{abscissa::q, "\n ==> Q range, step and number of points:", "     Qmin:", "  Qmax:"},
    range_words{abscissa::s, "\n ==> s range, step and number of points:", "     smin:", "  smax:"},
};

}  // namespace

void echo_conditions(state_type& st) {
  list(st, "\n => Title: " + st.run.title);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    pattern_heading(st, ip);
    echo_model(st, ip);
    echo_options(st, at(st.pattern, ip));
    echo_radiation(st, at(st.pattern, ip));
  }
  echo_cycles(st);
  echo_limits(st);
}

void echo_points(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  pattern_heading(st, ip);
  if (!p.pos.empty()) list(st, "\n => Background points:       position      height  parameter");
  for (int j = 0; j < static_cast<int>(p.pos.size()); ++j)
    list(st, fmt_line{}
                 .x(22)
                 .f(14, 4, d(at(p.pos, j)))
                 .f(12, 4, d(at(p.glb, gslot::bac + j)))
                 .i(7, at(p.lglb, gslot::bac + j))
                 .str());
  if (!p.excluded.empty()) list(st, fmt_line{}.a("\n => Excluded regions for Pattern#").i(3, ip + 1).str());
  for (const auto& region : p.excluded)
    list(st, fmt_line{}.a("      From").f(10, 4, d(region.alow)).a(" to").f(10, 4, d(region.ahigh)).str());
  echo_supplied_tables(st, p);
  list(st, "");
}

void echo_reading(state_type& st, int ip) {
  list(st, fmt_line{}
               .a("\n => Reading intensity file of pattern ")
               .i(2, ip + 1)
               .a(": " + at(st.io.filedat, ip) + at(st.io.extdat, ip))
               .str());
}

void echo_data(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  pattern_heading(st, ip);
  if (p.istep > 1)
    list(st, fmt_line{}.a(" => The number of data points has been reduced by a factor of ").i(4, p.istep).str());
  const auto row = std::ranges::find(range_table, p.ixunit, &range_words::ixunit);
  const range_words& words = row == range_table.end() ? range_table.front() : *row;
  list(st, words.heading);
  list(st, fmt_line{}
               .a(words.from)
               .f(12, 6, d(p.thmin))
               .a(words.to)
               .f(12, 6, d(p.thmax))
               .a("  Step:")
               .f(10, 6, d(p.step))
               .a("  No. of points:")
               .i(7, p.npts)
               .str());
  if (!p.iconstep) list(st, "     Each point has its own abscissa; the step is their mean distance");
  if (p.tsamp != 0.f) list(st, fmt_line{}.a("     Temperature of the sample:").f(10, 2, d(p.tsamp)).str());
}

}  // namespace kv_running_output

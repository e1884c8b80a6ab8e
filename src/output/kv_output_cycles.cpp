#include "kv_output_cycles.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "kv_listed_slots.hpp"
#include "kv_listing_text.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_output_cycles {

namespace {

namespace aslot = kalvaris_params::aslot;
using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using kv_iterate_calc_cw::cycle_report;
using kv_listing_text::at;
using kv_listing_text::change_table;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;

constexpr float betas_unit = 1.0e4f;
constexpr std::array beta_slots{aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23};

bool has_betas(const atom_type& atom) { return atom.n_t >= 2; }

/// A standard deviation in units of the last of `decimals` digits, five columns.
std::string last_digits(float sigma, int decimals) {
  std::string text = fmt_line{}.f(6, 0, static_cast<double>(sigma) * std::pow(10.0, decimals)).str();
  if (text.ends_with('.')) text.pop_back();
  return text.size() > 5 ? text.substr(0, 5) : text;
}

/// One block of the listing: the state, and what the cycle did to its slots.
class cycle_listing {
 public:
  cycle_listing(state_type& state, const cycle_report& cycle) : st(state), report(cycle), changes(cycle.shifts) {}
  void write();

 private:
  void heads();
  void phase_block(int ph);
  void atom_shifts(int ia);
  void beta_shifts(int ia);
  void final_atoms(int ph);
  void profile_block(int ph, int ip);
  void cell_block(const phase_type& phase);
  void pattern_block(int ip);
  void limits();
  void phase_agreement(int ip);
  void slot_line(std::string_view words, int decimals, float value, change_table::moved moved);

  state_type& st;
  const cycle_report& report;
  change_table changes;
};

void cycle_listing::heads() {
  list(st, "\n" + kv_listing_text::rule('+'));
  if (!report.last || report.converged) list(st, fmt_line{}.a(" => CYCLE No.: ").i(4, report.cycle).str());
  if (report.converged) {
    list(st, " =>  Convergence reached at this CYCLE !!!!");
    list(st, " =>  Parameter shifts set to zero");
  }
  if (report.last) list(st, " ==> RESULTS OF REFINEMENT:");
  list(st, kv_listing_text::rule('+'));
}

void cycle_listing::slot_line(std::string_view words, int decimals, float value, change_table::moved moved) {
  list(st, kv_listing_text::value_line(words, decimals, {value, moved.shift, moved.sigma}));
}

void cycle_listing::atom_shifts(int ia) {
  const atom_type& atom = at(st.atom, ia);
  fmt_line line;
  line.a(7, atom.atext);
  for (const int k : {aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ}) {
    const auto moved = changes.of(slot_family::atom, ia, 0, k);
    const bool position = k <= aslot::z;
    const int width = position ? 8 : 6, decimals = position ? 5 : 3;
    for (const float v : {at(atom.xl, k), moved.shift, moved.sigma})
      line.x(1).f(width, decimals, static_cast<double>(v));
    line.a("(").i(position ? 4 : 3, at(atom.lp, k)).a(")");
  }
  list(st, line.i(4, atom.n_t).str());
}

void cycle_listing::beta_shifts(int ia) {
  const atom_type& atom = at(st.atom, ia);
  fmt_line values, moves, sigmas;
  values.a(7, atom.atext);
  moves.a(7, " shift");
  sigmas.a(7, " sigma");
  for (const int k : beta_slots) {
    const auto moved = changes.of(slot_family::atom, ia, 0, k);
    values.f(10, 2, static_cast<double>(at(atom.xl, k) * betas_unit)).a("(").i(4, at(atom.lp, k)).a(")");
    moves.f(10, 2, static_cast<double>(moved.shift * betas_unit)).x(6);
    sigmas.f(10, 2, static_cast<double>(moved.sigma * betas_unit)).x(6);
  }
  list(st, values.str() + '\n' + moves.str() + '\n' + sigmas.str());
}

/// Atoms of a phase as they stand at the end, standard deviations in units of the last digit, betas below.
void cycle_listing::final_atoms(int ph) {
  const phase_type& phase = at(st.phase, ph);
  list(st, "\n ==> ATOM PARAMETERS:\n");
  list(st, "  Name      x     sx       y     sy       z      sz      B   sB   occ. socc.");
  struct column {
    int k, width, decimals;
  };
  constexpr std::array columns{column{aslot::x, 9, 5}, column{aslot::y, 9, 5}, column{aslot::z, 9, 5},
                               column{aslot::biso, 8, 3}, column{aslot::occ, 8, 4}};
  bool betas = false;
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const atom_type& atom = at(st.atom, ia);
    betas = betas || has_betas(atom);
    fmt_line line;
    line.x(1).a(6, atom.atext);
    for (const column& c : columns) {
      const auto moved = changes.of(slot_family::atom, ia, 0, c.k);
      line.f(c.width, c.decimals, static_cast<double>(at(atom.xl, c.k)));
      line.a("(" + last_digits(moved.sigma, c.decimals) + ")");
    }
    list(st, line.str());
  }
  if (!betas) return;
  list(st, "\n =>   Anisotropic Betas*1E04\n");
  list(st, " Name        B11     B22     B33     B12     B13     B23  ");
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const atom_type& atom = at(st.atom, ia);
    if (!has_betas(atom)) continue;
    fmt_line values, sigmas;
    values.x(1).a(6, atom.atext);
    sigmas.x(7);
    for (const int k : beta_slots) {
      values.f(8, 2, static_cast<double>(at(atom.xl, k) * betas_unit));
      sigmas.f(8, 2, static_cast<double>(changes.of(slot_family::atom, ia, 0, k).sigma * betas_unit));
    }
    list(st, values.str() + '\n' + sigmas.str());
  }
}

void cycle_listing::cell_block(const phase_type& phase) {
  constexpr std::array names{" => Cell parameter a", " => Cell parameter b", " => Cell parameter c",
                             " => Cell angle alpha", " => Cell angle beta",  " => Cell angle gamma"};
  list(st, " => Cell parameters, and standard deviations:");
  for (std::size_t i = 0; i < names.size(); ++i) {
    const float value = i < 3 ? phase.cellp.cell[i] : phase.cellp.ang[i - 3];
    constexpr int words_width = 56;
    const int decimals = i < 3 ? 6 : 5;
    list(st, fmt_line{}
                 .a(words_width, names[i])
                 .f(15, decimals, static_cast<double>(value))
                 .f(15, decimals, static_cast<double>(phase.cell_esd[i]))
                 .str());
  }
}

void cycle_listing::profile_block(int ph, int ip) {
  const mix_type& mix = st.mix(ph, ip);
  list(st, fmt_line{}.a("\n ==> PROFILE PARAMETERS FOR PATTERN#").i(3, ip + 1).str());
  for (const auto& row : kv_listed_slots::of_phase(st, ph, ip))
    slot_line(row.words, row.decimals, at(mix.par, row.k), changes.of(slot_family::phase, ph, ip, row.k));
}

void cycle_listing::phase_block(int ph) {
  const phase_type& phase = at(st.phase, ph);
  list(st, kv_listing_text::rule('-'));
  list(st, " => Phase No. " + kv_listing_text::phase_title(st, ph));
  list(st, kv_listing_text::rule('-'));
  list(st, " => New parameters, shifts, and standard deviations\n");
  if (phase.natom > 0 && !phase.profile_matching()) {
    list(st,
         " Atom        x       dx      sx       y       dy      sy"
         "       z       dz      sz       B       dB      sB      occ.    docc.   socc.");
    const int end = phase.first_atom + phase.natom;
    for (int ia = phase.first_atom; ia < end; ++ia) atom_shifts(ia);
    bool headed = false;
    for (int ia = phase.first_atom; ia < end; ++ia) {
      if (!has_betas(at(st.atom, ia))) continue;
      if (!headed)
        list(st, "\n =>   Anisotropic Betas*1E04\n Name        B11     B22     B33     B12     B13     B23  ");
      headed = true;
      beta_shifts(ia);
    }
    if (report.last) final_atoms(ph);
  }
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    if (st.mix(ph, ip).jcontr != 0 && kv_listing_text::takes_part(at(st.pattern, ip))) profile_block(ph, ip);
  cell_block(phase);
}

void cycle_listing::pattern_block(int ip) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, kv_listing_text::rule('-'));
  list(st, fmt_line{}.a(" ==> GLOBAL PARAMETERS FOR PATTERN#").i(3, ip + 1).str());
  list(st, kv_listing_text::rule('-'));
  for (const auto& row : kv_listed_slots::of_pattern(p)) {
    if (row.k == 0)
      list(st, row.words);
    else
      slot_line(row.words, row.decimals, at(p.glb, row.k), changes.of(slot_family::global, ip, ip, row.k));
  }
}

void cycle_listing::limits() {
  if (report.shifts.limited.empty()) return;
  list(st, "\n => Parameters held at a limit in this cycle:");
  for (const int entry : report.shifts.limited) {
    const int n = std::abs(entry);
    const auto box = std::ranges::find(st.run.limits, n, &kalvaris_params::parameter_limit::number);
    const bool upper = entry > 0;
    fmt_line line;
    line.a("    Parameter no.:").i(5, n).a(upper ? "   at its upper limit " : "   at its lower limit ");
    if (box != st.run.limits.end()) line.g(14, 5, static_cast<double>(upper ? box->vlim2 : box->vlim1));
    if (n < static_cast<int>(st.parm.nampar.size())) line.x(2).a(at(st.parm.nampar, n));
    list(st, line.str());
  }
}

void cycle_listing::phase_agreement(int ip) {
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const mix_type& mix = st.mix(ph, ip);
    if (mix.jcontr == 0) continue;
    const std::string line = fmt_line{}
                                 .a(" => Phase: ")
                                 .i(2, ph + 1)
                                 .a("   Bragg R-factor: ")
                                 .g(10, 3, static_cast<double>(mix.r_bragg))
                                 .a("   RF-factor: ")
                                 .g(10, 3, static_cast<double>(mix.r_f))
                                 .str();
    list(st, line);
    kalvaris_inout::console_line(st.io, line);
  }
}

void cycle_listing::write() {
  heads();
  for (int ph = 0; ph < st.run.nphase; ++ph) phase_block(ph);
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    if (kv_listing_text::takes_part(at(st.pattern, ip))) pattern_block(ip);
  for (const std::string& warning : report.shifts.warnings) list(st, warning);
  limits();
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    if (!kv_listing_text::takes_part(at(st.pattern, ip))) continue;
    write_r_factors(st, ip, report.last);
    if (report.intensities) phase_agreement(ip);
  }
  const std::string global =
      fmt_line{}.a(" => Global Chi2 (Bragg contrib.): ").g(12, 5, static_cast<double>(st.run.t_chi2)).str();
  list(st, global);
  kalvaris_inout::console_line(st.io, global);
}

// ---- agreement factors ---------------------------------------------------------------------------------------------

struct agreement_view {
  const kalvaris_params::agreement_set& set;
  int points;
  std::string_view heading;
  bool on_console;
};

void write_agreement_set(state_type& st, int ip, const agreement_view& view) {
  const auto& a = view.set;
  const auto d = [](float v) { return static_cast<double>(v); };
  const auto both = [&](const std::string& line) {
    list(st, line);
    if (view.on_console) kalvaris_inout::console_line(st.io, line);
  };
  list(st, fmt_line{}.a(view.heading).i(3, ip + 1).a("\n").str());
  both(fmt_line{}
           .a(" => R-Factors: ")
           .g(10, 3, d(a.r_patt))
           .g(10, 3, d(a.r_wpatt))
           .a(" Chi2:")
           .g(10, 3, d(a.chi2))
           .a(" DW-Stat.:")
           .f(8, 4, d(a.dw))
           .a("   Patt#:")
           .i(3, ip + 1)
           .str());
  both(fmt_line{}.a(" => Expected :          ").g(10, 3, d(a.r_expected)).x(26).f(8, 4, d(a.qdw)).str());
  list(st, fmt_line{}.a(" => Deviance :").g(10, 3, d(a.devinc)).a("     Dev*: ").g(11, 4, d(a.dstar)).str());
  list(st, fmt_line{}.a(" => GoF-index:").g(9, 2, std::sqrt(d(a.s2) / view.points)).a("     Sqrt(Residual/N)").str());
  const int share = st.run.maxs / st.run.n_patt;
  list(st, fmt_line{}.a(" => N-P+C: ").i(5, view.points - share).str());
  list(st, " =>    SumYdif       SumYobs      SumYcal      SumwYobsSQ     Residual    Condition");
  fmt_line sums;
  for (const float v : {a.s1, a.d1, a.s3, a.d2, a.s2, st.run.cond}) sums.g(14, 4, d(v));
  list(st, sums.str());
  const double net = d(a.cr_wpatt) / d(a.cr_expected);
  both(fmt_line{}
           .a(" => Conventional Rietveld Rp,Rwp,Re and Chi2: ")
           .g(10, 3, d(a.cr_patt))
           .g(10, 3, d(a.cr_wpatt))
           .g(10, 3, d(a.cr_expected))
           .g(11, 4, net * net)
           .str());
  list(st, " => (Values obtained using Ynet, but true sigma(y))");
  list(st, fmt_line{}.a(" =>  SumYnet, Sum(w Ynet**2): ").g(14, 4, d(a.qq1)).g(14, 4, d(a.qq2)).str());
}

}  // namespace

void output_cycles(state_type& st, const cycle_report& report) { cycle_listing(st, report).write(); }

void write_r_factors(state_type& st, int ip, bool last) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, "");
  write_agreement_set(st, ip,
                      {p.all, p.num, " ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:", true});
  list(st, "");
  write_agreement_set(
      st, ip, {p.bragg, p.num1, " ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:", false});
  list(st, "");
  if (!last) return;
  const auto scor = static_cast<double>(p.scor);
  list(st, fmt_line{}
               .a(" => Scor:")
               .f(7, 4, scor)
               .a("   Standard deviations have to be multiplied by:")
               .f(7, 4, scor)
               .a("\n    because of correlated residuals (J.-F. Berar & P. Lelann, J. Appl. Cryst. 24 (1991) 1;")
               .a("\n    J.-F. Berar, Accuracy in Powder Diffraction II, NIST Spec. Publ. 846 (1992) 63)")
               .str());
}

}  // namespace kv_output_cycles

#include "kv_sumarize.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "kv_listed_slots.hpp"
#include "kv_listing_text.hpp"
#include "kv_quantitative.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_sumarize {

namespace {

namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;
using kalvaris_params::agreement_set;
using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using kv_listing_text::at;
using kv_listing_text::change_table;
using kv_listing_text::quoted;
using lmix_fixed_format::fmt_line;

void sum(state_type& st, std::string_view lines) {
  kalvaris_inout::out(st.io, kalvaris_inout::unit::summary) << lines << '\n';
}

constexpr int words_width = 58;

std::string end_of_cycles(kalvaris_params::cycles_end_type::how end) {
  using how = kalvaris_params::cycles_end_type::how;
  switch (end) {
    case how::not_run:
    case how::calculated:
      return "calculation only";
    case how::converged:
      return "convergence reached";
    case how::used_up:
      return "WITHOUT convergence, all cycles used";
    case how::asked_to:
      return "WITHOUT convergence, ended on request";
    case how::no_descent:
      return "WITHOUT convergence, no shift lowers the weighted sum of squares";
    case how::no_peaks:
      return "WITHOUT convergence, the calculated peaks of a pattern have vanished";
    case how::broken_off:
      break;
  }
  return "broken off";
}

/// The results of one run.
class result_writer {
 public:
  result_writer(state_type& state, const apply_shifts::shift_report& last) : st(state), changes(last) {}
  void phase(int ph);
  void pattern(int ip);

 private:
  void cell(int ph);
  void atoms(const phase_type& p);
  void profile(int ph, int ip);
  void agreement(int ip);
  void mass_fractions(int ip);
  void slot_line(std::string_view words, float value, float sigma, int decimals) {
    sum(st, fmt_line{}.a(words_width, words).a(quoted(value, sigma, decimals)).str());
  }

  state_type& st;
  change_table changes;
};

void result_writer::cell(int ph) {
  const phase_type& p = at(st.phase, ph);
  sum(st, "\n => Cell parameters      :");
  constexpr std::array names{"    a", "    b", "    c", "    alpha", "    beta", "    gamma"};
  for (int i = 0; i < 6; ++i)
    slot_line(at(names, i), i < 3 ? at(p.cellp.cell, i) : at(p.cellp.ang, i - 3), at(p.cell_esd, i), i < 3 ? 6 : 4);
  int ip = 0;
  while (ip + 1 < st.run.n_patt && st.mix(ph, ip).jcontr == 0) ++ip;
  slot_line(" => Cell volume (angstrom^3)", p.cellp.cellvol, static_cast<float>(volume_sigma(st, ph, ip)), 4);
}

void result_writer::atoms(const phase_type& p) {
  sum(st, "\n => Atom parameters      :");
  fmt_line head;
  head.a("    Name    ");
  for (const std::string_view name : {"x", "y", "z", "B", "occ."}) head.a(16, "  " + std::string(name));
  sum(st, head.str());
  for (int ia = p.first_atom; ia < p.first_atom + p.natom; ++ia) {
    const atom_type& atom = at(st.atom, ia);
    const auto row = [&](fmt_line line, std::initializer_list<int> slots) {
      for (const int k : slots) line.a(16, quoted(at(atom.xl, k), changes.of(slot_family::atom, ia, 0, k).sigma, 5));
      sum(st, line.str());
    };
    row(fmt_line{}.x(4).a(8, atom.atext), {aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ});
    if (atom.n_t >= 2)
      row(fmt_line{}.a(12, "      betas"), {aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23});
  }
}

void result_writer::profile(int ph, int ip) {
  const mix_type& mix = st.mix(ph, ip);
  sum(st, fmt_line{}.a("\n ==> Profile parameters for pattern#").i(3, ip + 1).str());
  for (const auto& row : kv_listed_slots::of_phase(st, ph, ip))
    slot_line(row.words, at(mix.par, row.k), changes.of(slot_family::phase, ph, ip, row.k).sigma, row.decimals);
  sum(st, fmt_line{}
              .a(" => Bragg R-factor: ")
              .g(10, 3, static_cast<double>(mix.r_bragg))
              .a("   RF-factor: ")
              .g(10, 3, static_cast<double>(mix.r_f))
              .str());
  const auto& refl = at(st.pattern, ip).refl;
  const auto first_wave = std::ranges::count_if(refl.irefs, [ph](std::int32_t word) {
    const auto key = kalvaris_params::unpack_irefs(word);
    return key.phase == ph && key.wave == 1;
  });
  sum(st, fmt_line{}
              .a(" => Number of reflections: ")
              .i(6, mix.num_refl)
              .a("   independent (first wavelength): ")
              .i(6, first_wave)
              .str());
}

void result_writer::phase(int ph) {
  const phase_type& p = at(st.phase, ph);
  sum(st, "\n" + kv_listing_text::rule('-'));
  sum(st, " => Phase No. " + kv_listing_text::phase_title(st, ph) + "     " + p.spgr.spg_symb);
  sum(st, kv_listing_text::rule('-'));
  cell(ph);
  if (p.natom > 0 && !p.profile_matching()) atoms(p);
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    if (st.mix(ph, ip).jcontr != 0 && kv_listing_text::takes_part(at(st.pattern, ip))) profile(ph, ip);
}

void result_writer::agreement(int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const auto d = [](float v) { return static_cast<double>(v); };
  struct view {
    const agreement_set& set;
    int points;
    std::string_view words;
  };
  for (const view& v :
       {view{p.all, p.num, " ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:"},
        view{p.bragg, p.num1, " ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:"}}) {
    const agreement_set& a = v.set;
    sum(st, fmt_line{}.a("\n").a(v.words).i(3, ip + 1).a("   points:").i(7, v.points).str());
    sum(st, fmt_line{}.a(" =>  R-factors (not corrected for background) for Pattern:").i(3, ip + 1).str());
    const auto four = [&](double rp, double rwp, double re, double chi2) {
      sum(st, fmt_line{}
                  .a(" => Rp: ")
                  .g(10, 3, rp)
                  .a("Rwp: ")
                  .g(10, 3, rwp)
                  .a("Rexp: ")
                  .g(10, 3, re)
                  .a("Chi2: ")
                  .g(11, 4, chi2)
                  .str());
    };
    four(d(a.r_patt), d(a.r_wpatt), d(a.r_expected), d(a.chi2));
    sum(st, fmt_line{}.a(" => Conventional Rietveld R-factors for Pattern:").i(3, ip + 1).str());
    const double net = d(a.cr_wpatt) / d(a.cr_expected);
    four(d(a.cr_patt), d(a.cr_wpatt), d(a.cr_expected), net * net);
    sum(st, fmt_line{}.a(" => Deviance: ").g(10, 3, d(a.devinc)).a("     Dev*  : ").g(10, 3, d(a.dstar)).str());
    sum(st, fmt_line{}.a(" => DW-Stat.: ").f(10, 4, d(a.dw)).a("     DW-exp: ").f(10, 4, d(a.qdw)).str());
    sum(st, fmt_line{}.a(" => N-sigma of the GoF: ").f(12, 3, d(a.n_s)).str());
  }
  sum(st, fmt_line{}
              .a("\n => Scor:")
              .f(7, 4, d(p.scor))
              .a("   Standard deviations have to be multiplied by:")
              .f(7, 4, d(p.scor))
              .a("\n    because of correlated residuals (J.-F. Berar & P. Lelann, J. Appl. Cryst. 24 (1991) 1)")
              .str());
}

void result_writer::pattern(int ip) {
  const pattern_type& p = at(st.pattern, ip);
  sum(st, "\n" + kv_listing_text::rule('-'));
  sum(st, fmt_line{}.a(" ==> GLOBAL PARAMETERS FOR PATTERN#").i(3, ip + 1).str());
  sum(st, kv_listing_text::rule('-'));
  for (const auto& row : kv_listed_slots::of_pattern(p)) {
    if (row.k == 0)
      sum(st, row.words);
    else
      slot_line(row.words, at(p.glb, row.k), changes.of(slot_family::global, ip, ip, row.k).sigma, row.decimals);
  }
  if (p.refining()) agreement(ip);
  mass_fractions(ip);
}

void result_writer::mass_fractions(int ip) {
  const auto list = kv_quantitative::mass_fractions(st, ip);
  if (list.empty()) return;
  sum(st, "\n => Mass fractions of the phases, per cent (Hill & Howard 1987, without microabsorption):");
  for (const auto& m : list)
    slot_line(fmt_line{}.x(4).i(3, m.phase + 1).x(2).a(at(st.phase, m.phase).phsnm).str(),
              static_cast<float>(100.0 * m.fraction), static_cast<float>(100.0 * m.sigma), 2);
}

}  // namespace

double volume_sigma(const state_type& st, int ph, int ip) {
  const mix_type& mix = st.mix(ph, ip);
  if (st.run.maxs == 0 || st.ne.order() < st.run.maxs) return 0.0;
  std::array<double, 6> q{}, weight{}, g{};
  std::array<int, 6> number{};
  for (int i = 0; i < 6; ++i) {
    at(q, i) = static_cast<double>(at(mix.par, slot::cell_a + i));
    at(number, i) = at(mix.lpar, slot::cell_a + i);
    at(weight, i) =
        static_cast<double>(apply_shifts::reference_weight(st, at(number, i), at(mix.apar, slot::cell_a + i)));
  }
  const auto [a, b, c, d, e, f] = q;
  g = {b * c - d * d / 4,     a * c - e * e / 4,     a * b - f * f / 4,
       e * f / 4 - a * d / 2, d * f / 4 - b * e / 2, d * e / 4 - c * f / 2};
  double variance = 0.0;
  for (int i = 0; i < 6; ++i)
    for (int j = 0; j < 6; ++j)
      if (at(weight, i) != 0.0 && at(weight, j) != 0.0)
        variance +=
            at(g, i) * at(g, j) * at(weight, i) * at(weight, j) * st.ne.rjac(at(number, i) - 1, at(number, j) - 1);
  const auto v = static_cast<double>(at(st.phase, ph).cellp.cellvol);
  return 0.5 * v * v * v * std::sqrt(std::max(variance, 0.0));
}

void write_results(state_type& st, const apply_shifts::shift_report& last) {
  result_writer writer(st, last);
  sum(st, " ==> RESULTS OF REFINEMENT:");
  sum(st, " => " + st.run.title);
  sum(st, fmt_line{}
              .a(" => No. of fitted parameters: ")
              .i(5, st.run.maxs)
              .a("   No. of cycles: ")
              .i(4, st.run.cycles_done)
              .str());
  sum(st, " => End of the cycles: " + end_of_cycles(st.run.cycles_end.end));
  for (const std::string& remark : st.run.cycles_end.remarks) sum(st, " => WARNING: " + remark);
  for (int ph = 0; ph < st.run.nphase; ++ph) writer.phase(ph);
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    if (kv_listing_text::takes_part(at(st.pattern, ip))) writer.pattern(ip);
  sum(st, fmt_line{}.a("\n => Global Chi2 of the last listing: ").g(12, 5, static_cast<double>(st.run.t_chi2)).str());
}

namespace {

/// Decimals that show three digits of a standard deviation, six at least.
int decimals_for(double sigma) {
  constexpr int least = 6, most = 12, digits = 3;
  if (!(sigma > 0.0) || !std::isfinite(sigma)) return least;
  return std::clamp(digits - 1 - static_cast<int>(std::floor(std::log10(sigma))), least, most);
}

}  // namespace

void write_parameters(state_type& st) {
  if (st.run.maxs == 0) return;
  sum(st, "\n => Refined parameters, values and standard deviations ==>\n");
  const int known = std::min({st.run.maxs, static_cast<int>(st.parm.nampar.size()) - 1,
                              static_cast<int>(st.parm.valx.size()) - 1, static_cast<int>(st.parm.svalx.size()) - 1});
  constexpr int name_width = 50;
  for (int n = 1; n <= known; ++n) {
    std::string line = fmt_line{}.i(6, n).x(2).a(name_width, at(st.parm.nampar, n)).str();
    const auto sigma = static_cast<double>(at(st.parm.svalx, n));
    const int decimals = decimals_for(sigma);
    kv_listing_text::put_number(line, 16, decimals, static_cast<double>(at(st.parm.valx, n)));
    kv_listing_text::put_number(line, 16, decimals, sigma);
    if (n < static_cast<int>(st.parm.remark.size()) && !at(st.parm.remark, n).empty()) line += "  " + at(st.parm.remark, n);
    sum(st, line);
  }
}

}  // namespace kv_sumarize

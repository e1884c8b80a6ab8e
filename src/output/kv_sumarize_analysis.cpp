// Analysis of a refinement: how much information the pattern holds against what was refined.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "kv_listing_text.hpp"
#include "kv_peak_geometry.hpp"
#include "kv_prf_columns.hpp"
#include "kv_rfactors.hpp"
#include "kv_sumarize.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_sumarize {

namespace {

namespace slot = kalvaris_params::slot;
using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using kv_listing_text::at;
using lmix_fixed_format::fmt_line;

constexpr std::array reaches{1.0, 0.5, 0.25};  ///< in units of the FWHM
constexpr std::array views{"Pessimistic", "Eclectic", "Optimistic"};
constexpr double degree = std::numbers::pi / 180.0;

void sum(state_type& st, std::string_view lines) {
  kalvaris_inout::out(st.io, kalvaris_inout::unit::summary) << lines << '\n';
}

/// First-wavelength reflections of a phase.
std::vector<reflection_share> shares_of(const state_type& st, int ip, int ph) {
  const auto& r = at(st.pattern, ip).refl;
  std::vector<reflection_share> shares;
  for (int k = 0; k < r.size(); ++k) {
    const auto key = kalvaris_params::unpack_irefs(at(r.irefs, k));
    if (key.phase != ph || key.wave != 1) continue;
    shares.push_back({kv_peak_geometry::peak_position(st, ip, k), static_cast<double>(at(r.hw, k)),
                      static_cast<double>(at(r.icalc, k))});
  }
  return shares;
}

double area_of(const std::vector<reflection_share>& shares) {
  double area = 0.0;
  for (const auto& s : shares) area += s.area;
  return area;
}

void range_lines(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const int last = p.refl.size() - 1;
  sum(st, fmt_line{}.a("    First and last reflections: ").i(7, 1).i(7, last + 1).str());
  sum(st, fmt_line{}
              .a("    2theta(degrees)/T.O.F(microsecs)/Energy(KeV) => ")
              .f(14, 3, kv_peak_geometry::peak_position(st, ip, 0))
              .f(14, 3, kv_peak_geometry::peak_position(st, ip, last))
              .str());
  const auto d0 = static_cast<double>(p.refl.dspacing.front()), d1 = static_cast<double>(p.refl.dspacing.back());
  const auto pair = [&](std::string_view words, double first, double second) {
    sum(st, fmt_line{}.a(words).f(10, 4, first).f(10, 4, second).str());
  };
  pair("    s (angstroms-1) => ", 1.0 / d0, 1.0 / d1);
  pair("    D (angstroms  ) => ", d0, d1);
  pair("    sin(theta/lamb) => ", 0.5 / d0, 0.5 / d1);
  pair("    Q (angstroms-1) => ", 2.0 * std::numbers::pi / d0, 2.0 * std::numbers::pi / d1);
}

void width_lines(state_type& st, const pattern_type& p) {
  double total = 0.0;
  for (const float h : p.refl.hw) total += static_cast<double>(h);
  const double mean = total / p.refl.size();
  sum(st, fmt_line{}
              .a("    The average FWHM is: ")
              .f(8, 4, mean)
              .a("  Fwhm(av)/step = ")
              .f(8, 4, mean / static_cast<double>(p.step))
              .str());
}

/// Signed residual of each quarter of the range, and what a perfect fit with these variances would leave.
void residual_lines(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  std::array<double, 4> quarter{};
  double mean_residual = 0.0, observed = 0.0, net = 0.0;
  for (int i = 0; i < p.npts; ++i) {
    const kv_prf::plot_point q = kv_prf::point_at(st, p, i);
    if (q.excluded) continue;
    at(quarter, std::min(3, 4 * i / p.npts)) += q.difference();
    mean_residual += std::sqrt(2.0 / std::numbers::pi * kv_rfactors::variance(p, i, q.calc));  // <|d|> of a normal law
    observed += q.obs;
    net += q.obs - q.background;
  }
  fmt_line line;
  line.a(" => Sum(Yiobs-Yical): ");
  for (const double v : quarter) line.f(11, 2, v);
  sum(st, line.a(" <- Four regions").str());
  sum(st, fmt_line{}.a("            Total ->  ").f(11, 2, quarter[0] + quarter[1] + quarter[2] + quarter[3]).str());
  const double expected = 100.0 * mean_residual / observed, expected_net = 100.0 * mean_residual / net;
  const auto pair = [&](std::string_view words, double e, float o) {
    sum(st, fmt_line{}.a(words).f(8, 2, e).a(" Observed-> ").f(8, 2, static_cast<double>(o)).str());
  };
  pair("  Expected Rp (background uncorrected): ", expected, p.all.r_patt);
  pair("  Expected cRp(background   corrected): ", expected_net, p.all.cr_patt);
  sum(st, fmt_line{}
              .a("  -> Ratio Rp/Exp=cRp/cExp:  Observed-> ")
              .f(8, 2, static_cast<double>(p.all.r_patt) / expected)
              .str());
}

void bragg_lines(state_type& st, int ip, const std::vector<std::vector<reflection_share>>& shares) {
  double area = 0.0, bragg = 0.0, rf = 0.0;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const double part = area_of(at(shares, ph));
    area += part;
    bragg += part * static_cast<double>(st.mix(ph, ip).r_bragg);
    rf += part * static_cast<double>(st.mix(ph, ip).r_f);
  }
  sum(st, fmt_line{}.a("  Weighted Average Bragg R-factor: ").f(8, 2, bragg / area).str());
  sum(st, fmt_line{}.a("  Weighted Average      RF-factor: ").f(8, 2, rf / area).str());
  sum(st, fmt_line{}.a("  Reduced Chi-square : ").f(8, 2, static_cast<double>(at(st.pattern, ip).bragg.chi2)).str());
}

void information_lines(state_type& st, int ip, const std::vector<std::vector<reflection_share>>& shares) {
  std::size_t independent = 0;
  std::array<double, reaches.size()> effective{};
  for (const auto& of_phase : shares) {
    independent += of_phase.size();
    for (std::size_t p = 0; p < reaches.size(); ++p) effective[p] += effective_number(of_phase, reaches[p]);
  }
  sum(st,
      fmt_line{}.a(" => Total number of independent reflections: ").i(7, static_cast<long long>(independent)).str());
  for (std::size_t p = 0; p < reaches.size(); ++p)
    sum(st, fmt_line{}
                .a(" => Effective number of reflections (p= ")
                .f(4, 2, reaches[p])
                .a("): ")
                .f(10, 1, effective[p])
                .str());
  const parameter_counts n = count_parameters(st, ip, -1);
  sum(st, fmt_line{}.a(" => Number of global parameters: ").i(5, n.global).str());
  sum(st, fmt_line{}.a(" => Number of profile parameters: ").i(5, n.profile).str());
  sum(st, fmt_line{}.a(" => Number of intensity-affecting parameters: ").i(5, n.intensity).str());
  sum(st, " => (Effective Number of reflections)/(Number of intensity parameters)");
  if (n.intensity == 0) return sum(st, "    no intensity parameter is refined");
  for (std::size_t p = 0; p < reaches.size(); ++p)
    sum(st, fmt_line{}
                .a("    ")
                .a(12, views[p])
                .a("(p= ")
                .f(4, 2, reaches[p])
                .a("): ")
                .f(10, 2, effective[p] / n.intensity)
                .str());
}

/// The reflection with the smallest width: 2theta, FWHM, Q, dQ, 2 pi/dQ and dd/d.
void sharpest_line(state_type& st, int ip, int ph, const std::vector<reflection_share>& shares) {
  const auto sharp = std::ranges::min_element(shares, {}, &reflection_share::width);
  if (sharp == shares.end()) return;
  const double theta = 0.5 * sharp->position * degree, half_width = 0.5 * sharp->width * degree;
  const double k = 4.0 * std::numbers::pi / static_cast<double>(at(st.pattern, ip).lamda[0]);
  const double dq = k * std::cos(theta) * half_width;
  sum(st, fmt_line{}
              .i(6, ph + 1)
              .f(14, 4, sharp->position)
              .f(10, 4, sharp->width)
              .f(10, 4, k * std::sin(theta))
              .f(10, 5, dq)
              .f(12, 2, 2.0 * std::numbers::pi / dq)
              .f(10, 4, 100.0 * half_width / std::tan(theta))
              .str());
}

void phase_lines(state_type& st, int ip, const std::vector<std::vector<reflection_share>>& shares) {
  sum(st, "\n => PHASE DEPENDENT INDICATORS:\n");
  sum(st, "    The sharpest reflection of each phase:");
  sum(st, " Phase    2Theta/TOF      FWHM         Q        DQ       Delta   Dd/d(%)");
  for (int ph = 0; ph < st.run.nphase; ++ph) sharpest_line(st, ip, ph, at(shares, ph));
  sum(st,
      "\n Phase   %Cont  Nintdp  Nprofp    Nref    Enref(Effective): p=1     p=1/2     p=1/4"
      "   Ratios to Nintdp: p=1     p=1/2     p=1/4");
  double total = 0.0;
  for (const auto& of_phase : shares) total += area_of(of_phase);
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const auto& of_phase = at(shares, ph);
    const parameter_counts n = count_parameters(st, ip, ph);
    fmt_line line, ratios;
    line.i(6, ph + 1)
        .f(8, 2, 100.0 * area_of(of_phase) / total)
        .i(8, n.intensity)
        .i(8, n.profile)
        .i(8, static_cast<long long>(of_phase.size()))
        .x(15);
    ratios.x(17);
    for (const double reach : reaches) {
      const double effective = effective_number(of_phase, reach);
      line.f(10, 1, effective);
      if (n.intensity > 0) ratios.f(10, 2, effective / n.intensity);
    }
    sum(st, line.str() + ratios.str());
  }
}

void deviation_lines(state_type& st, int ip, const std::vector<std::vector<reflection_share>>& shares) {
  sum(st, "\n => ANALYSIS OF STANDARD DEVIATIONS");
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    fmt_line line;
    line.a(" => Phase").i(3, ph + 1).a("  degrees of freedom of the integrated intensities, p=1, 1/2, 1/4:");
    for (const double reach : reaches)
      line.f(10, 1, effective_number(at(shares, ph), reach) - count_parameters(st, ip, ph).intensity);
    sum(st, line.str());
  }
  sum(st,
      " => The standard deviations tell the precision of the model, not its accuracy: systematic errors of the "
      "profile\n"
      "    are not in them.");
  sum(st, fmt_line{}.a(" -> SCOR = ").f(8, 4, static_cast<double>(at(st.pattern, ip).scor)).str());
}

}  // namespace

double effective_number(const std::vector<reflection_share>& reflections, double reach) {
  std::vector<reflection_share> sorted = reflections;
  std::ranges::sort(sorted, {}, &reflection_share::position);
  double total = 0.0;
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    if (!(sorted[i].area > 0.0)) continue;
    double within = sorted[i].area;
    const double limit = reach * sorted[i].width;
    for (std::size_t j = i; j-- > 0 && sorted[i].position - sorted[j].position <= limit;) within += sorted[j].area;
    for (std::size_t j = i + 1; j < sorted.size() && sorted[j].position - sorted[i].position <= limit; ++j)
      within += sorted[j].area;
    total += sorted[i].area / within;
  }
  return total;
}

parameter_counts count_parameters(const state_type& st, int ip, int ph) {
  enum : int { nothing, of_pattern, of_profile, of_intensity };
  std::vector<int> kind(static_cast<std::size_t>(st.run.maxs) + 1, nothing);
  const auto mark = [&](int n, int what) {
    if (n >= 1 && n <= st.run.maxs) at(kind, n) = std::max(at(kind, n), what);
  };
  if (ph < 0)
    for (const int n : at(st.pattern, ip).lglb) mark(n, of_pattern);
  for (int i = std::max(ph, 0); i < (ph < 0 ? st.run.nphase : ph + 1); ++i) {
    const auto& mix = st.mix(i, ip);
    for (int k = 1; k <= slot::last; ++k) {
      const bool intensity = k == slot::scale || k == slot::bov || k == slot::pref1 || k == slot::pref2;
      mark(at(mix.lpar, k), intensity ? of_intensity : of_profile);
    }
    const auto& phase = at(st.phase, i);
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia)
      for (const int n : at(st.atom, ia).lp) mark(n, of_intensity);
  }
  const auto count = [&](int what) { return static_cast<int>(std::ranges::count(kind, what)); };
  return {count(of_pattern), count(of_profile), count(of_intensity)};
}

void summarize(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  if (p.refl.size() == 0 || static_cast<int>(p.refl.icalc.size()) < p.refl.size()) return;
  sum(st, "\n" + kv_listing_text::rule('-'));
  sum(st, fmt_line{}.a("       -    ANALYSIS OF THE REFINEMENT FOR PATTERN # ").i(2, ip + 1).str());
  sum(st, kv_listing_text::rule('-'));
  std::vector<std::vector<reflection_share>> shares;
  for (int ph = 0; ph < st.run.nphase; ++ph) shares.push_back(shares_of(st, ip, ph));
  sum(st, "\n => GLOBAL INDICATORS:\n");
  range_lines(st, ip);
  width_lines(st, p);
  residual_lines(st, ip);
  bragg_lines(st, ip, shares);
  information_lines(st, ip, shares);
  phase_lines(st, ip, shares);
  deviation_lines(st, ip, shares);
}

}  // namespace kv_sumarize

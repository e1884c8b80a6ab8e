#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "kv_assignk.hpp"
#include "kv_background.hpp"
#include "kv_cycle_failures.hpp"
#include "kv_free_intensities.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_least_squares.hpp"
#include "kv_live_slots.hpp"
#include "kv_rfactors.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_string_utilities.hpp"

namespace kv_iterate_calc_cw {

namespace {

using kalvaris_params::cycles_end_type;
using kalvaris_params::intensity_road;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;

/// All that a cycle may have to go back to: the model, what was calculated from it, and its equations.
struct calculated_state {
  std::vector<pattern_type> pattern;
  std::vector<kalvaris_params::phase_type> phase;
  std::vector<kalvaris_params::atom_type> atom;
  std::vector<kalvaris_params::mix_type> mixes;
  kalvaris_params::parameter_table parm;
  normal_equations::normal_matrix ne;
  std::vector<kv_free_intensities::overlap_equations> intensities;
  kv_least_squares::solver solver;
  double sum = std::numeric_limits<double>::infinity();
  int cycle = 0;
};

/// The factor of the diagonal that is added to the normal matrix: 0 while the sum falls.
struct marquardt_factor {
  static constexpr double first = 0.01, least = 1.0e-6, most = 1.0e8;
  double lambda = 0.0;
  bool risen = false;  ///< some cycle of the run was taken back
  void failure() {
    lambda = std::max(first, 10.0 * lambda);
    risen = true;
  }
  void success() { lambda = lambda > least ? 0.1 * lambda : 0.0; }
  [[nodiscard]] bool lets_converge() const { return lambda <= first; }
};

class cycle_runner {
 public:
  cycle_runner(state_type& state, const cycle_hooks& cycle_hooks_in) : st(state), hooks(cycle_hooks_in) {}
  int run();

 private:
  enum class outcome { go_on, converged, calculation_only, no_descent, no_peaks, failed };

  void prepare();
  [[nodiscard]] std::vector<kv_least_squares::resting_parameter> absorbed_parameters();
  outcome one_cycle(int cycle);
  // the pattern of a cycle
  void prepare_patterns(int cycle);
  void calculate_patterns();
  void bring_intensities_to_the_profile(int cycle);
  double partition();
  void refresh_background(pattern_type& p, int ip, int cycle);
  void warn_negative_widths(const pattern_type& p, int ip);
  double joint_chi2(bool last);
  // what the sum did
  [[nodiscard]] bool risen(double chi2) const;
  void keep_best(int cycle);
  void restore_best();
  outcome take_back(int cycle, double chi2);
  // the shifts
  bool solve(double chi2);
  [[nodiscard]] bool whole_steps() const { return factor.risen || matching || st.run.whole_steps; }
  void damp_reversals();
  void rest();
  void report(int cycle, bool converged, bool last);
  void follow(const std::vector<double>& taken);
  bool has_converged();
  bool shifts_are_small();
  bool intensities_stand();
  [[nodiscard]] int pattern_without_peaks() const;
  // what ends the cycles
  bool too_few_points();
  bool starts_from_nothing(double chi2);
  void stop_as_singular(const kv_least_squares::solution& s);
  void tell_end(outcome end);
  void collect_remarks();

  [[nodiscard]] bool takes_part(const pattern_type& p) const { return p.affpat != 0 && !p.cry_pat; }
  [[nodiscard]] pattern_type& pattern(int ip) { return st.pattern[static_cast<std::size_t>(ip)]; }
  [[nodiscard]] std::string name_of(int n) const { return kv_cycle_failures::name_of(st, n); }
  void console(std::string_view text) const {
    if (hooks.console) hooks.console(text);
  }
  void listing(std::string_view text) const {
    if (hooks.listing) hooks.listing(text);
  }
  void tell(std::string_view text) const {
    listing(text);
    console(text);
  }

  state_type& st;
  const cycle_hooks& hooks;
  std::vector<double> last_shift;  ///< starts at 0, so that a first negative shift is halved (test ShiftMemory)
  double first_chi2 = 1.0e38, previous_chi2 = 1.0e38;
  bool negative_width = false;
  bool matching = false;      ///< some intensities follow the pattern
  bool together = false;      ///< and move by the solution of the equations
  double moved = 0.0;         ///< by the last partition, as a share
  kv_free_intensities::movement movement;
  marquardt_factor factor;
  kv_least_squares::solver solver;
  kv_least_squares::solution solution;
  std::vector<kv_free_intensities::overlap_equations> intensities;  ///< by pattern
  calculated_state best;
  bool taken_back = false;    ///< this cycle
  std::string largest_shift;  ///< of the last test of convergence
};

std::string cycle_number(int cycle) { return fmt_line{}.i(4, cycle).str(); }
std::string number(double value) { return std::string(lmix_string_utilities::trim(fmt_line{}.g(12, 4, value).str())); }

void cycle_runner::prepare() {
  last_shift.assign(static_cast<std::size_t>(st.run.maxs), 0.0);
  for (pattern_type& p : st.pattern) kv_background::set_flags(p);
  apply_shifts::set_reference_multipliers(st);
  const bool refining = st.pattern.front().refining();
  matching = refining && kv_free_intensities::any_follows_pattern(st);
  together = matching && st.run.intensities != intensity_road::fixed;
  intensities.resize(static_cast<std::size_t>(st.run.n_patt));
  st.run.cycles_end = {};
  if (matching) solver.leave_out(absorbed_parameters());
}

/// Parameters that only scale intensities which follow the pattern: whatever they do, the intensities take it back.
std::vector<kv_least_squares::resting_parameter> cycle_runner::absorbed_parameters() {
  const auto n = static_cast<std::size_t>(st.run.maxs) + 1;
  std::vector<std::string_view> why(n);
  std::vector<char> acts(n, 0);
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const auto u = static_cast<std::size_t>(s.number);
    const bool of_matching = s.family == kalvaris_params::slot_family::phase &&
                             kv_free_intensities::follows_pattern(st.phase[static_cast<std::size_t>(s.owner)]);
    const std::string_view idle =
        of_matching ? kv_live_slots::why_phase_slot_is_idle(st, s.owner, s.ip, s.k) : std::string_view();
    if (idle.empty())
      acts[u] = 1;
    else
      why[u] = idle;
  });
  std::vector<kv_least_squares::resting_parameter> list;
  for (std::size_t i = 1; i < n; ++i)
    if (!acts[i] && !why[i].empty()) list.push_back({static_cast<int>(i), why[i]});
  return list;
}

int cycle_runner::run() {
  prepare();
  outcome end = outcome::go_on;
  for (int cycle = 1; cycle <= st.run.mcycle; ++cycle) {
    end = one_cycle(cycle);
    if (end != outcome::go_on || st.run.ctr_err) break;
    if (hooks.poll_stop) hooks.poll_stop(cycle);
  }
  if (end == outcome::failed) {
    st.run.cycles_end.end = cycles_end_type::how::broken_off;
    return 1;
  }
  if (st.run.ctr_err) return 0;
  if (negative_width) {
    console("Negative GAUSSIAN and/or LORENTZIAN FWHM detected ...");
    console("Check the FWHM in the list of reflections given in the OUT file ...");
    console("Restart, eventually, with new values of half-width parameters ...");
  }
  tell_end(end);
  return 0;
}

cycle_runner::outcome cycle_runner::one_cycle(int cycle) {
  st.run.icycle_c = cycle;
  taken_back = false;
  console("");
  console(" ===================>>> CYCLE:" + cycle_number(cycle));
  console("Calculation of Yi for all points + Normal Matrix & Vector...");
  prepare_patterns(cycle);
  if (matching) bring_intensities_to_the_profile(cycle);
  calculate_patterns();
  st.run.cycles_done = cycle;
  const int job_1 = st.pattern.front().jobtyp;
  if (std::abs(job_1) > 1 && job_1 != kalvaris_params::job::electrons) return outcome::calculation_only;

  if (st.run.maxs > 0) console(" Solving L.S. equations...");
  const bool last_asked = cycle == st.run.mcycle;
  if (cycle == 1 && too_few_points()) return outcome::failed;
  double chi2 = joint_chi2(last_asked);
  if (cycle == 1 && starts_from_nothing(chi2)) return outcome::failed;
  const double calculated_chi2 = chi2;
  if (risen(chi2)) {
    if (st.run.idum != 2 && take_back(cycle, chi2) == outcome::no_descent) return outcome::no_descent;
    if (taken_back) chi2 = joint_chi2(last_asked);
  } else {
    factor.success();
    keep_best(cycle);
  }
  if (st.run.maxs > 0 && !solve(chi2)) return outcome::failed;
  if (last_asked && factor.risen)
    rest();  // a shift that nobody would test
  else if (!whole_steps())
    damp_reversals();
  console(" Writing results for cycle no.:" + cycle_number(cycle));
  report(cycle, false, last_asked);
  if (st.run.ctr_err) return outcome::go_on;

  if (st.run.idum == 2 && !(previous_chi2 > calculated_chi2)) {
    console(" STOP at cycle" + cycle_number(cycle) + " because of divergence");
    kalvaris_inout::stop_cond(st.io, " STOP because of divergence", true);
  }
  previous_chi2 = chi2;
  if (!has_converged()) return outcome::go_on;
  if (st.run.maxs > 0 && pattern_without_peaks() > 0) return outcome::no_peaks;

  std::fill(st.ne.vector().begin(), st.ne.vector().end(), 0.0);
  st.run.icycle_c = st.run.mcycle;
  joint_chi2(true);
  report(cycle, true, true);
  return outcome::converged;
}

// ---- the pattern of a cycle ----------------------------------------------------------------------------------------

void cycle_runner::refresh_background(pattern_type& p, int ip, int cycle) {
  if (kv_background::model_of(p) == kv_background::model::filter) {
    if ((cycle - 1) % p.win_cyc != 0) return;
    if (cycle == 1) calc_patterns_2theta(st, ip, false);  // the filter needs the Bragg part of the starting model
    kv_background::filter(p, p.fwindow);
  } else if (p.bref) {
    kv_background::build(p);
  }
}

void cycle_runner::prepare_patterns(int cycle) {
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    if (!takes_part(pattern(ip))) continue;
    if (st.run.iasg == 1 || cycle == 1) kv_assignk::assignk(st, ip);
    refresh_background(pattern(ip), ip, cycle);
  }
}

void cycle_runner::calculate_patterns() {
  st.ne.reset(st.run.maxs);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    pattern_type& p = pattern(ip);
    if (!takes_part(p)) continue;
    console(" Calculation for pattern:" + cycle_number(ip + 1));
    auto& overlap = intensities[static_cast<std::size_t>(ip)];
    const bool solved_with_the_rest = together && p.refining();
    calc_patterns_2theta(st, ip, st.run.maxs > 0 && p.refining(), solved_with_the_rest ? &overlap : nullptr);
    warn_negative_widths(p, ip);
  }
}

/// One partition of the net profiles; how far it moved the intensities, as a share of their sum.
double cycle_runner::partition() {
  double farthest = 0.0;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    if (!takes_part(pattern(ip))) continue;
    calc_patterns_2theta(st, ip, false);
    farthest = std::max(farthest, bragg(st, ip, intensity_update::partition));
  }
  return farthest;
}

/// Shifts from intensities that are not those of the profile would follow the misfit of the intensities.
void cycle_runner::bring_intensities_to_the_profile(int cycle) {
  constexpr int at_start = 10, per_cycle = 3;
  constexpr double settled = 1.0e-3;
  const bool solved_with_the_rest = st.run.intensities == intensity_road::together;
  const int most = cycle == 1 ? at_start : solved_with_the_rest ? 0 : per_cycle;
  for (int i = 0; i < most; ++i) {
    moved = partition();
    if (cycle == 1 && moved < settled) break;
  }
}

void cycle_runner::warn_negative_widths(const pattern_type& p, int ip) {
  const auto warn = [&](std::string_view kind) {
    console(" W A R N I N G: negative " + std::string(kind) + " FWHM somewhere in pattern:" + cycle_number(ip + 1));
    console(" The program continue ... but check FWHM parameters next run!");
  };
  if (p.flag_gauss) warn("GAUSSIAN");
  if (p.flag_lorentz) warn("LORENTZIAN");
  // kept: assigned pattern by pattern, so that a later clean pattern clears a fault of the Gaussian width alone
  negative_width = p.flag_gauss ? p.flag_gauss || p.flag_lorentz : p.flag_lorentz;
}

/// Weighted sum over the patterns of the reduced chi-square of the points under reflections. It is the same quantity in
/// every cycle: the control file carries it to the next run, which compares.
double cycle_runner::joint_chi2(bool last) {
  double sum = 0.0, residual = 0.0;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    pattern_type& p = pattern(ip);
    if (!takes_part(p) || !p.refining()) continue;
    kv_rfactors::chisq1(st, ip, last);
    kv_rfactors::calc_rfac(st, ip);
    const double part = p.bragg.s2 * p.w_pat;
    sum += part / (p.num1 - kv_rfactors::parameter_share(st));
    residual += part;
  }
  st.run.t_chi2 = static_cast<float>(sum);
  st.run.t_s2 = static_cast<float>(residual);
  return sum;
}

// ---- what the sum did ----------------------------------------------------------------------------------------------

/// More than 1 % above the best sum, and more than single precision can leave of a perfect fit.
bool cycle_runner::risen(double chi2) const {
  if (best.cycle == 0) return false;
  if (!std::isfinite(chi2) || !std::isfinite(st.ne.weighted_sum())) return true;
  constexpr double allowed = 1.01, rounding = 1.0e-10;  // of the sum of w y^2: an Rwp of 0.001 %
  double weighted_squares = 0.0;
  for (const pattern_type& p : st.pattern)
    if (takes_part(p) && p.refining()) weighted_squares += p.all.d2 * p.w_pat;
  return st.ne.weighted_sum() > allowed * best.sum + rounding * weighted_squares;
}

void cycle_runner::keep_best(int cycle) {
  const double sum = st.ne.weighted_sum();
  if (st.run.maxs == 0 || !(sum < best.sum)) return;
  best.pattern = st.pattern;
  best.phase = st.phase;
  best.atom = st.atom;
  best.mixes = st.mixes;
  best.parm = st.parm;
  best.ne = st.ne;
  best.intensities = intensities;
  best.solver = solver;
  best.sum = sum;
  best.cycle = cycle;
}

void cycle_runner::restore_best() {
  st.pattern = best.pattern;
  st.phase = best.phase;
  st.atom = best.atom;
  st.mixes = best.mixes;
  st.parm = best.parm;
  st.ne = best.ne;
  intensities = best.intensities;
  solver = best.solver;
}

/// Back to the best state, from where shorter shifts are tried.
cycle_runner::outcome cycle_runner::take_back(int cycle, double chi2) {
  factor.failure();
  taken_back = true;
  const double risen_to = st.ne.weighted_sum();
  restore_best();
  tell(" => The weighted sum of squares rose from" + fmt_line{}.g(14, 5, best.sum).str() + " to" +
       fmt_line{}.g(14, 5, risen_to).str() + (std::isfinite(chi2) ? "" : " (not finite)") + " in cycle" +
       cycle_number(cycle) + ": the state of cycle" + cycle_number(best.cycle) + " is restored, damping " +
       number(factor.lambda));
  return factor.lambda > marquardt_factor::most ? outcome::no_descent : outcome::go_on;
}

// ---- the shifts ----------------------------------------------------------------------------------------------------

/// The shifts of a cycle, with the answer of the intensities: one that would become negative is held back, and the
/// others are solved again.
bool cycle_runner::solve(double chi2) {
  constexpr int most_passes = 6;
  const bool first = st.run.cycles_done == 1;
  const normal_equations::normal_matrix all = st.ne;
  for (int pass = 0; pass < most_passes; ++pass) {
    if (together) {
      st.ne = all;
      for (auto& overlap : intensities) overlap.eliminate(st.ne);
    }
    st.ne.fill_lower();
    solution = solver.solve(st, factor.lambda, chi2, !first);
    if (!solution.solved()) {
      stop_as_singular(solution);
      return false;
    }
    bool again = false;
    if (st.run.intensities == intensity_road::together)
      for (auto& overlap : intensities) again |= overlap.hold_back(std::as_const(st.ne).vector());
    if (!again) break;
  }
  for (const auto& r : solution.resting)
    listing(" => Parameter held in this cycle: " + name_of(r.n) + ", " + std::string(r.why));
  if (solution.curbed)
    console(" A scale factor is far from its value: only scale factors and background move in this cycle");
  return true;
}

void cycle_runner::damp_reversals() {
  for (int i = 0; i < st.run.maxs; ++i) {
    double& old_shift = last_shift[static_cast<std::size_t>(i)];
    const double shift = st.ne.vx(i);
    const bool same_sign = std::signbit(old_shift) == std::signbit(shift);
    if (std::abs(shift) < 0.75 * std::abs(old_shift) || same_sign)
      old_shift = shift;
    else
      st.ne.vx(i) = 0.5 * shift;  // kept: a halved shift is not remembered
  }
}

void cycle_runner::rest() { std::fill(st.ne.vector().begin(), st.ne.vector().end(), 0.0); }

void cycle_runner::report(int cycle, bool converged, bool last) {
  cycle_report r;
  r.cycle = cycle;
  r.converged = converged;
  r.last = last;
  r.intensities = last;
  for (int ip = 0; ip < st.run.n_patt; ++ip)  // before the shifts: yc and the intensities belong together
    if (takes_part(pattern(ip)) && last) bragg(st, ip, intensity_update::none);
  using apply_shifts::multiplier_at_guard;
  r.shifts = apply_shifts::apply(st, whole_steps() ? multiplier_at_guard::kept : multiplier_at_guard::halved);
  if (!converged) follow(r.shifts.taken);
  solver.hold(r.shifts.held);
  for (const std::string& w : r.shifts.warnings) console(w);
  if (hooks.cycle_done) hooks.cycle_done(r);
}

/// The intensities take the step that belongs to the one that the parameters really took.
void cycle_runner::follow(const std::vector<double>& taken) {
  if (!matching || st.run.intensities != intensity_road::together) return;
  movement = {};
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    if (!takes_part(pattern(ip)) || !pattern(ip).refining()) continue;
    const auto m = intensities[static_cast<std::size_t>(ip)].follow(taken, pattern(ip).refl);
    movement.in_sigmas = std::max(movement.in_sigmas, m.in_sigmas);
    movement.at_floor += m.at_floor;
  }
}

bool cycle_runner::has_converged() {
  const bool small = shifts_are_small();
  if (solution.curbed || !factor.lets_converge() || (st.run.cycles_done == st.run.mcycle && factor.risen)) return false;
  return small && intensities_stand();
}

/// Every shift below eps standard deviations, also the one that would be taken without lambda.
bool cycle_runner::shifts_are_small() {
  double largest = 0.0;
  int which = 0;
  for (int i = 0; i < st.run.maxs; ++i) {
    const double s = std::max(st.run.eps * std::sqrt(std::abs(st.ne.rjac(i, i))), 1.0e-7);
    double shift = st.ne.vx(i);
    if (factor.lambda > 0.0) {
      const double whole = solution.undamped[static_cast<std::size_t>(i)];
      if (std::abs(whole) > std::abs(shift)) shift = whole;
    }
    const double ratio = shift / s;
    if (std::abs(ratio) > std::abs(largest)) largest = ratio, which = i + 1;
  }
  if (!(std::abs(largest) > 1.0)) return true;
  largest_shift = name_of(which) + ": " + number(largest * static_cast<double>(st.run.eps)) + " standard deviations";
  console(" Conv. not yet reached -> [Max] Shift(" + name_of(which) +
          ")/(eps*Sigma)=" + fmt_line{}.g(12, 4, largest).str() + " abs> 1");
  return false;
}

bool cycle_runner::intensities_stand() {
  if (!matching) return true;
  const bool by_solution = st.run.intensities == intensity_road::together;
  constexpr double settled = 1.0e-3;
  const double share = by_solution ? movement.in_sigmas / (static_cast<double>(st.run.eps) *
                                                           std::sqrt(std::max(static_cast<double>(st.run.t_chi2), 1.0)))
                                   : moved / settled;
  if (share <= 1.0) return true;
  largest_shift = "the free intensities";
  console(" Conv. not yet reached -> change of the intensities/(eps*Sigma)=" + fmt_line{}.g(12, 4, share).str() + " > 1");
  return false;
}

/// Number (1-based) of a pattern whose calculated peaks all together are within the noise, 0 without one: shifts are
/// small there only because nothing depends on the parameters any more.
int cycle_runner::pattern_without_peaks() const {
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    if (!takes_part(p) || !p.refining()) continue;
    double significance = 0.0;
    for (std::size_t i = 0; i < p.yc.size(); ++i)
      if (!kalvaris_params::kr_excluded(p.kr[i], st.dim.maxreflx))
        significance += static_cast<double>(p.yc[i]) * p.yc[i] / p.var[i];
    constexpr double three_sigma = 9.0;
    if (!(significance > three_sigma * std::max(static_cast<double>(p.bragg.chi2), 1.0))) return ip + 1;
  }
  return 0;
}

// ---- what ends the cycles ------------------------------------------------------------------------------------------

/// Every pattern needs more points under its reflections than its share of the parameters.
bool cycle_runner::too_few_points() {
  const int share = kv_rfactors::parameter_share(st);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = pattern(ip);
    if (!takes_part(p) || p.num1 > share) continue;
    tell(" Too few points under reflections in pattern:" + cycle_number(ip + 1) +
         " points:" + fmt_line{}.i(7, p.num1).str() + " parameters:" + fmt_line{}.i(6, share).str());
    kalvaris_inout::stop_cond(st.io, " Too few points for the parameters", false);
    console("WARNING: Abnormal end, nothing is rewritten");
    return true;
  }
  return false;
}

/// A first cycle whose sum is no number, which nothing can be gone back to.
bool cycle_runner::starts_from_nothing(double chi2) {
  if (st.run.t_chi2_ini < 0.0001f) st.run.t_chi2_ini = static_cast<float>(chi2);
  first_chi2 = chi2;
  if (std::isfinite(chi2)) return false;
  listing(" ==> Strong DIVERGENCE!!, at cycle no.:" + cycle_number(1));
  listing("  -> Please, fix some parameters in order to determine the origin of divergence");
  listing("  -> Check wrong box constraints, 0-initial values, etc");
  console("==> Strong DIVERGENCE!!, at cycle no.:" + cycle_number(1));
  console("==> The first value that is not finite: " + kv_cycle_failures::what_is_not_finite(st));
  console("==> Please, fix some parameters in order to determine the origin of divergence");
  console("==> Check wrong box constraints, 0-initial values, etc");
  kalvaris_inout::stop_cond(st.io, "Unrecoverable divergence!! ", false);
  console("WARNING: Abnormal end, final calculations and writing...");
  return true;
}

void cycle_runner::stop_as_singular(const kv_least_squares::solution& s) {
  for (const std::string& line : kv_cycle_failures::phases_without_intensity(st)) tell(line);
  for (const int i : s.without_effect) {
    const std::string of = fmt_line{}.i(5, i + 1).str();
    listing(" ==> Singular matrix!!, problem with parameter no.:" + of + " ->" + name_of(i + 1));
    console(" ==> Singular matrix!!, problem with " + name_of(i + 1) + " no.:" + of);
  }
  for (const std::string& line : kv_cycle_failures::lines_without_effect(st, s.without_effect)) tell(line);
  if (!s.dependent.empty()) {
    listing(" ==> Singular matrix!!, fix some parameters!");
    console(" Singular matrix!!, fix some parameters!");
    for (const std::string& line : kv_cycle_failures::lines_of_dependence(st, s.dependent)) tell(line);
  }
  kalvaris_inout::stop_cond(st.io, " Singular Matrix!! ", s.without_effect.empty());
  console("WARNING: Abnormal end, nothing is rewritten");
}

/// What holds the result, beside the values and as lines.
void cycle_runner::collect_remarks() {
  st.parm.remark.assign(static_cast<std::size_t>(st.run.maxs) + 1, {});
  for (const auto& r : solution.resting) {
    st.parm.remark[static_cast<std::size_t>(r.n)] = r.why;
    st.run.cycles_end.remarks.push_back("parameter" + fmt_line{}.i(5, r.n).str() + " " + name_of(r.n) + ": " +
                                        std::string(r.why));
  }
}

void cycle_runner::tell_end(outcome end) {
  using how = cycles_end_type::how;
  cycles_end_type& record = st.run.cycles_end;
  record.end = end == outcome::calculation_only ? how::calculated
               : end == outcome::converged      ? how::converged
               : end == outcome::no_descent     ? how::no_descent
               : end == outcome::no_peaks       ? how::no_peaks
               : st.run.finish_required         ? how::asked_to
                                                : how::used_up;
  if (end != outcome::calculation_only) collect_remarks();
  const std::string not_small = largest_shift.empty() ? std::string() : ", the largest shift is that of " + largest_shift;
  if (record.end == how::used_up)
    tell(" WARNING: the" + cycle_number(st.run.mcycle) + " cycles asked for ended without convergence" + not_small);
  if (record.end == how::asked_to) tell(" The cycles ended on request, without convergence" + not_small);
  if (record.end == how::no_descent)
    tell(" WARNING: no shift lowers the weighted sum of squares any more, without convergence" + not_small);
  if (record.end == how::no_peaks)
    tell(" WARNING: no calculated intensity is left in pattern" + cycle_number(pattern_without_peaks()) +
         ": its peaks miss the observed ones. Start with better zero, cell and widths, or with fewer parameters");
  for (const std::string& remark : record.remarks) tell(" WARNING: " + remark);
  const bool normal = record.end == how::converged || record.end == how::calculated;
  console(normal ? "Normal end, final calculations and writing..." : "End without convergence, final calculations and writing...");
}

}  // namespace

int iterate(state_type& st, const cycle_hooks& hooks) { return cycle_runner(st, hooks).run(); }

}  // namespace kv_iterate_calc_cw

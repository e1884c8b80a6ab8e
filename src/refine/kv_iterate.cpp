#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "kv_assignk.hpp"
#include "kv_background.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_rfactors.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_iterate_calc_cw {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;

/// State that lives over the cycles of one call.
struct cycle_memory {
  std::vector<double> last_shift;  ///< starts at 0, so that a first negative shift is halved (test ShiftMemory)
  double first_chi2 = 1.0e38;
  double previous_chi2 = 1.0e38;
  bool negative_width = false;
  std::vector<apply_shifts::held_parameter> held;  ///< kept at an edge by the shifts of the cycle before
  std::vector<char> linear;                        ///< by parameter (0-based): the pattern is linear in it
  std::vector<double> scale;  ///< by parameter (0-based): value of a scale factor, 0 for all others
};

class cycle_runner {
 public:
  cycle_runner(state_type& state, const cycle_hooks& cycle_hooks_in) : st(state), hooks(cycle_hooks_in) {}
  int run();

 private:
  enum class outcome { go_on, converged, calculation_only, failed };

  outcome one_cycle(int cycle);
  void calculate_patterns(int cycle);
  void refresh_background(pattern_type& p, int ip, int cycle);
  void warn_negative_widths(const pattern_type& p, int ip);
  double joint_chi2(bool last);
  bool too_few_points();
  bool diverged(int cycle, double chi2);
  bool solve(double chi2);
  void take_out(int i);
  bool fix_outward_shifts(std::vector<int>& fixed);
  bool fix_all_but_linear(std::vector<int>& fixed) const;
  void find_linear_parameters();
  void damp_reversals();
  void report(int cycle, bool converged, bool last);
  bool shifts_are_small();
  [[nodiscard]] bool takes_part(const pattern_type& p) const { return p.affpat != 0 && !p.cry_pat; }
  [[nodiscard]] std::string name_of(int n) const;
  [[nodiscard]] std::string what_is_not_finite() const;
  void console(std::string_view text) const {
    if (hooks.console) hooks.console(text);
  }
  void listing(std::string_view text) const {
    if (hooks.listing) hooks.listing(text);
  }

  state_type& st;
  const cycle_hooks& hooks;
  cycle_memory memory;
};

std::string cycle_number(int cycle) { return fmt_line{}.i(4, cycle).str(); }

int cycle_runner::run() {
  memory.last_shift.assign(static_cast<std::size_t>(st.run.maxs), 0.0);
  for (pattern_type& p : st.pattern) kv_background::set_flags(p);
  apply_shifts::set_reference_multipliers(st);
  for (int cycle = 1; cycle <= st.run.mcycle; ++cycle) {
    const outcome end = one_cycle(cycle);
    if (end == outcome::failed) return 1;
    if (end != outcome::go_on || st.run.ctr_err) break;
    if (hooks.poll_stop) hooks.poll_stop(cycle);
  }
  if (st.run.ctr_err) return 0;
  if (memory.negative_width) {
    console("Negative GAUSSIAN and/or LORENTZIAN FWHM detected ...");
    console("Check the FWHM in the list of reflections given in the OUT file ...");
    console("Restart, eventually, with new values of half-width parameters ...");
  }
  console("Normal end, final calculations and writing...");
  return 0;
}

cycle_runner::outcome cycle_runner::one_cycle(int cycle) {
  st.run.icycle_c = cycle;
  console("");
  console(" ===================>>> CYCLE:" + cycle_number(cycle));
  st.ne.reset(st.run.maxs);
  calculate_patterns(cycle);
  st.run.cycles_done = cycle;
  const int job_1 = st.pattern.front().jobtyp;
  if (std::abs(job_1) > 1 && job_1 != kalvaris_params::job::electrons) return outcome::calculation_only;

  if (st.run.maxs > 0) console(" Solving L.S. equations...");
  if (too_few_points()) return outcome::failed;
  const bool last_asked = cycle == st.run.mcycle;
  const double chi2 = joint_chi2(last_asked);
  if (diverged(cycle, chi2)) return outcome::failed;
  if (st.run.maxs > 0 && !solve(chi2)) return outcome::failed;
  damp_reversals();
  console(" Writing results for cycle no.:" + cycle_number(cycle));
  report(cycle, false, last_asked);
  if (st.run.ctr_err) return outcome::go_on;

  if (st.run.idum == 2 && !(memory.previous_chi2 > chi2)) {
    console(" STOP at cycle" + cycle_number(cycle) + " because of divergence");
    kalvaris_inout::stop_cond(st.io, " STOP because of divergence", true);
  }
  memory.previous_chi2 = chi2;
  if (!shifts_are_small()) return outcome::go_on;

  std::fill(st.ne.vector().begin(), st.ne.vector().end(), 0.0);
  st.run.icycle_c = st.run.mcycle;
  joint_chi2(true);
  report(cycle, true, true);
  return outcome::converged;
}

void cycle_runner::refresh_background(pattern_type& p, int ip, int cycle) {
  if (kv_background::model_of(p) == kv_background::model::filter) {
    if ((cycle - 1) % p.win_cyc != 0) return;
    if (cycle == 1) calc_patterns_2theta(st, ip, false);  // the filter needs the Bragg part of the starting model
    kv_background::filter(p, p.fwindow);
  } else if (p.bref) {
    kv_background::build(p);
  }
}

void cycle_runner::calculate_patterns(int cycle) {
  console("Calculation of Yi for all points + Normal Matrix & Vector...");
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    if (!takes_part(p)) continue;
    if (st.run.iasg == 1 || cycle == 1) kv_assignk::assignk(st, ip);
    refresh_background(p, ip, cycle);
    console(" Calculation for pattern:" + cycle_number(ip + 1));
    calc_patterns_2theta(st, ip, st.run.maxs > 0 && p.refining());
    warn_negative_widths(p, ip);
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
  memory.negative_width = p.flag_gauss ? p.flag_gauss || p.flag_lorentz : p.flag_lorentz;
}

/// Weighted sum over the patterns of the reduced chi-square of the points under reflections. It is the same quantity in
/// every cycle: the control file carries it to the next run, which compares.
double cycle_runner::joint_chi2(bool last) {
  double sum = 0.0, residual = 0.0;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
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

/// Every pattern needs more points under its reflections than its share of the parameters.
bool cycle_runner::too_few_points() {
  const int share = kv_rfactors::parameter_share(st);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    if (!takes_part(p) || p.num1 > share) continue;
    const std::string text = " Too few points under reflections in pattern:" + cycle_number(ip + 1) +
                             " points:" + fmt_line{}.i(7, p.num1).str() + " parameters:" + fmt_line{}.i(6, share).str();
    listing(text);
    console(text);
    kalvaris_inout::stop_cond(st.io, " Too few points for the parameters", false);
    console("WARNING: Abnormal end, nothing is rewritten");
    return true;
  }
  return false;
}

bool cycle_runner::diverged(int cycle, double chi2) {
  if (cycle == 1) {
    if (st.run.t_chi2_ini < 0.0001f) st.run.t_chi2_ini = static_cast<float>(chi2);
    memory.first_chi2 = chi2;
  }
  const bool finite = std::isfinite(chi2);
  if (finite && (cycle == 1 || !(memory.first_chi2 * 5000.0 < chi2))) return false;
  listing(" ==> Strong DIVERGENCE!!, at cycle no.:" + cycle_number(cycle));
  listing("  -> Please, fix some parameters in order to determine the origin of divergence");
  listing("  -> Check wrong box constraints, 0-initial values, etc");
  listing(" => Chi2_Previous: " + fmt_line{}.g(14, 5, memory.first_chi2).str());
  listing(" => Chi2__Current: " + fmt_line{}.g(14, 5, chi2).str());
  console("==> Strong DIVERGENCE!!, at cycle no.:" + cycle_number(cycle));
  if (!finite) console("==> The first value that is not finite: " + what_is_not_finite());
  console("==> Please, fix some parameters in order to determine the origin of divergence");
  console("==> Check wrong box constraints, 0-initial values, etc");
  kalvaris_inout::stop_cond(st.io, "Unrecoverable divergence!! ", false);
  console("WARNING: Abnormal end, final calculations and writing...");
  return true;
}

std::string cycle_runner::what_is_not_finite() const {
  for (int n = 1; n < static_cast<int>(st.parm.valx.size()); ++n)
    if (!std::isfinite(st.parm.valx[static_cast<std::size_t>(n)])) return "parameter " + name_of(n);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    const auto& r = p.refl;
    for (int k = 0; k < r.size(); ++k) {
      const auto u = static_cast<std::size_t>(k);
      if (std::isfinite(r.ff[u]) && std::isfinite(r.pos[u]) && std::isfinite(r.hw[u]) && std::isfinite(r.corr[u]))
        continue;
      const auto key = kalvaris_params::unpack_irefs(r.irefs[u]);
      return "reflection " + std::to_string(key.h) + ' ' + std::to_string(key.k) + ' ' + std::to_string(key.l) +
             " of phase " + std::to_string(key.phase + 1) + " in pattern " + std::to_string(ip + 1);
    }
    for (int i = 0; i < p.npts; ++i)
      if (!std::isfinite(p.bk[static_cast<std::size_t>(i)]))
        return "background at" + fmt_line{}.f(10, 4, p.txv[static_cast<std::size_t>(i)]).str();
  }
  return "the weighted sum of squares (are all points excluded, or are there more parameters than points?)";
}

std::string cycle_runner::name_of(int n) const {
  const auto& names = st.parm.nampar;
  return n < static_cast<int>(names.size()) ? names[static_cast<std::size_t>(n)] : std::string();
}

bool cycle_runner::solve(double chi2) {
  st.ne.fill_lower();
  for (int i = 0; i < st.run.maxs; ++i) {
    if (st.ne.rjac(i, i) >= 1.0e-30) continue;
    const std::string number = fmt_line{}.i(5, i + 1).str();
    listing(" ==> Singular matrix!!, problem with parameter no.:" + number + " ->" + name_of(i + 1));
    console(" ==> Singular matrix!!, problem with " + name_of(i + 1) + " no.:" + number);
    kalvaris_inout::stop_cond(st.io, " Singular Matrix!! ", false);
    console("WARNING: Abnormal end, nothing is rewritten");
    return false;
  }
  find_linear_parameters();
  const std::vector<double> matrix(st.ne.matrix().begin(), st.ne.matrix().end());
  const std::vector<double> vector(st.ne.vector().begin(), st.ne.vector().end());
  std::vector<int> fixed;
  normal_equations::inversion inverse;
  do {
    std::copy(matrix.begin(), matrix.end(), st.ne.matrix().begin());
    std::copy(vector.begin(), vector.end(), st.ne.vector().begin());
    for (const int i : fixed) take_out(i);
    inverse = normal_equations::dp_inv(st.ne.matrix(), st.ne.vector(), st.run.maxs);
    if (inverse.singular) {
      listing(" ==> Singular matrix!!, fix some parameters!");
      console(" Singular matrix!!, fix some parameters!");
      console(" The other parameters leave none of its own to " + name_of(inverse.column + 1) +
              " no.:" + fmt_line{}.i(5, inverse.column + 1).str());
      kalvaris_inout::stop_cond(st.io, " Singular Matrix!! ", true);
    }
  } while (fix_outward_shifts(fixed) || fix_all_but_linear(fixed));
  st.run.cond = static_cast<float>(inverse.condition);
  const double goodness = std::max(chi2, 1.0);  // standard deviations are never scaled down
  for (double& element : st.ne.matrix()) element *= goodness;
  for (const int i : fixed) st.ne.rjac(i, i) = 0.0;
  return true;
}

/// Parameter i (0-based) leaves the equations: its shift is 0 and no other feels it.
void cycle_runner::take_out(int i) {
  for (int j = 0; j < st.run.maxs; ++j) st.ne.rjac(i, j) = st.ne.rjac(j, i) = 0.0;
  st.ne.rjac(i, i) = 1.0;
  st.ne.vx(i) = 0.0;
}

/// A parameter that stands at the edge of what is allowed and would shift outward cannot move: it is added to `fixed`,
/// so that the shifts of the others lead to the minimum on the edge. True when the equations must be solved again.
/// Those that shift inward are free again.
bool cycle_runner::fix_outward_shifts(std::vector<int>& fixed) {
  const std::size_t before = fixed.size();
  for (const auto& held : memory.held)
    if (st.ne.vx(held.n - 1) * held.outward > 0.0) {
      fixed.push_back(held.n - 1);
      listing(" => Parameter held at its limit in this cycle: " + name_of(held.n));
    }
  if (fixed.size() > before) return true;
  std::erase_if(memory.held, [&](const auto& held) { return std::ranges::find(fixed, held.n - 1) == fixed.end(); });
  return false;
}

/// Scale factors and the linear coefficients of the background, over all slots of a number.
void cycle_runner::find_linear_parameters() {
  namespace gslot = kalvaris_params::gslot;
  using kalvaris_params::slot_family;
  memory.linear.assign(static_cast<std::size_t>(st.run.maxs), 1);
  memory.scale.assign(memory.linear.size(), 0.0);
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const auto n = static_cast<std::size_t>(s.number - 1);
    const bool is_scale = s.family == slot_family::phase && s.k == kalvaris_params::slot::scale;
    bool linear = is_scale;
    if (s.family == slot_family::global && s.k >= gslot::bac) {
      const auto model = kv_background::model_of(st.pattern[static_cast<std::size_t>(s.ip)]);
      linear = model == kv_background::model::debye  ? s.k < gslot::debye_dist || s.k >= gslot::user_bk
               : model == kv_background::model::file ? s.k <= gslot::bfile_b
                                                     : true;
    }
    if (!linear) memory.linear[n] = 0;
    if (is_scale && s.code != 0.f) memory.scale[n] = s.value;
  });
}

/// When a scale factor wants to move by more than itself, the slopes of widths, cell and all else that it multiplies
/// are wrong by as much, and their shifts with them: in such a cycle only what the pattern is linear in moves. True
/// when the equations must be solved again.
bool cycle_runner::fix_all_but_linear(std::vector<int>& fixed) const {
  bool far = false, others = false;
  for (int i = 0; i < st.run.maxs; ++i) {
    const auto u = static_cast<std::size_t>(i);
    const bool free = std::ranges::find(fixed, i) == fixed.end();
    far |= memory.scale[u] > 0.0 && free && std::abs(st.ne.vx(i)) > memory.scale[u];
    others |= !memory.linear[u] && free;
  }
  if (!far || !others) return false;
  for (int i = 0; i < st.run.maxs; ++i)
    if (!memory.linear[static_cast<std::size_t>(i)] && std::ranges::find(fixed, i) == fixed.end()) fixed.push_back(i);
  console(" A scale factor is far from its value: only scale factors and background move in this cycle");
  return true;
}

void cycle_runner::damp_reversals() {
  for (int i = 0; i < st.run.maxs; ++i) {
    double& old_shift = memory.last_shift[static_cast<std::size_t>(i)];
    const double shift = st.ne.vx(i);
    const bool same_sign = std::signbit(old_shift) == std::signbit(shift);
    if (std::abs(shift) < 0.75 * std::abs(old_shift) || same_sign)
      old_shift = shift;
    else
      st.ne.vx(i) = 0.5 * shift;  // kept: a halved shift is not remembered
  }
}

void cycle_runner::report(int cycle, bool converged, bool last) {
  cycle_report r;
  r.cycle = cycle;
  r.converged = converged;
  r.last = last;
  const bool matching = std::ranges::any_of(st.phase, [](const auto& phase) { return std::abs(phase.jbt) == 2; });
  for (int ip = 0; ip < st.run.n_patt; ++ip)  // before the shifts: yc and the intensities belong together
    if (takes_part(st.pattern[static_cast<std::size_t>(ip)]) && (matching || last)) bragg(st, ip);
  r.shifts = apply_shifts::apply(st);
  memory.held.insert(memory.held.end(), r.shifts.held.begin(), r.shifts.held.end());
  for (const std::string& w : r.shifts.warnings) console(w);
  if (hooks.cycle_done) hooks.cycle_done(r);
}

bool cycle_runner::shifts_are_small() {
  double largest = 0.0;
  int which = 0;
  for (int i = 0; i < st.run.maxs; ++i) {
    const double s = std::max(st.run.eps * std::sqrt(std::abs(st.ne.rjac(i, i))), 1.0e-7);
    const double ratio = st.ne.vx(i) / s;
    if (std::abs(ratio) > std::abs(largest)) largest = ratio, which = i + 1;
  }
  if (!(std::abs(largest) > 1.0)) return true;
  console(" Conv. not yet reached -> [Max] Shift(" + name_of(which) +
          ")/(eps*Sigma)=" + fmt_line{}.g(12, 4, largest).str() + " abs> 1");
  return false;
}

}  // namespace

int iterate(state_type& st, const cycle_hooks& hooks) { return cycle_runner(st, hooks).run(); }

}  // namespace kv_iterate_calc_cw

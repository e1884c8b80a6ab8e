#include "apply_shifts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace apply_shifts {

namespace {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

bool in_cell(int k) { return k >= slot::cell_a && k <= slot::cell_f; }

float relaxation(const state_type& st, const slot_ref& s) {
  switch (s.family) {
    case slot_family::atom:
      return st.run.relax[s.k < aslot::b11 ? 1 : 2];
    case slot_family::body:
    case slot_family::mode:
      return st.run.relax[1];
    case slot_family::phase:
      return st.run.relax[in_cell(s.k) ? 4 : 3];
    case slot_family::domain:
      return st.run.relax[3];
    case slot_family::vector:
    case slot_family::global:
      break;
  }
  return st.run.relax[4];
}

/// Range that a shift may not leave.
struct shift_bounds {
  float low, high;
  bool by_user;         ///< limits of the control file: reported
  bool low_is_an_edge;  ///< the parameter is held there, as it is at limits of the control file
  [[nodiscard]] std::string_view words(int side) const {
    if (!by_user) return "held at the smallest axial divergence that the peak feels";
    return side < 0 ? "held at its lower limit" : "held at its upper limit";
  }
};

/// The peak is even in S_L and D_L, so that its slope vanishes with them and a step from a small value overshoots by as
/// much as the value is too small: one cycle at most halves or doubles them.
std::optional<shift_bounds> aberration_bounds(const state_type& st, const slot_ref& s) {
  if (s.family != slot_family::phase || (s.k != slot::s_l && s.k != slot::d_l)) return std::nullopt;
  const int npro = st.mix(s.owner, s.ip).npro;
  if ((npro != 7 && npro != 12) || !(s.value > 0.f)) return std::nullopt;
  constexpr float smallest = 1.0e-4f;
  const bool at_edge = 0.5f * s.value <= smallest;
  return shift_bounds{at_edge ? std::min(smallest, s.value) : 0.5f * s.value, 2.f * s.value, false, at_edge};
}

/// Bounds of a parameter within one cycle: the first slot of the number is cut at the bound, the others follow it.
struct box_state {
  std::vector<int> box_of;    ///< index into run.limits, -1 none
  std::vector<char> handled;  ///< the first slot of the number was moved
  std::vector<float> taken;   ///< shift that it really took

  explicit box_state(const state_type& st)
      : box_of(static_cast<std::size_t>(st.run.maxs) + 1, -1), handled(box_of.size(), 0), taken(box_of.size(), 0.f) {
    for (std::size_t i = 0; i < st.run.limits.size(); ++i) {
      const int n = st.run.limits[i].number;
      if (n >= 1 && n <= st.run.maxs) box_of[static_cast<std::size_t>(n)] = static_cast<int>(i);
    }
  }

  [[nodiscard]] std::optional<shift_bounds> bounds(const state_type& st, const slot_ref& s) const {
    const int box = box_of[static_cast<std::size_t>(s.number)];
    if (box < 0) return aberration_bounds(st, s);
    const auto& limit = st.run.limits[static_cast<std::size_t>(box)];
    return shift_bounds{limit.vlim1, limit.vlim2, true, true};
  }

  /// Moves a slot by `shift`, or as its number was moved before in this cycle.
  void move(const state_type& st, const slot_ref& s, float shift, shift_report& report) {
    const auto u = static_cast<std::size_t>(s.number);
    if (handled[u]) {
      s.value += s.code * taken[u];
      return;
    }
    const auto allowed = bounds(st, s);
    if (!allowed) {
      s.value += shift;
      return;
    }
    handled[u] = 1;
    const float before = s.value, wanted = before + shift;
    s.value = std::clamp(wanted, allowed->low, allowed->high);
    taken[u] = s.value == wanted ? shift : s.value - before;
    if (s.value == wanted) return;
    const int side = wanted < allowed->low ? -1 : 1;
    if (allowed->by_user) report.limited.push_back(side * s.number);
    if (allowed->by_user || (side < 0 && allowed->low_is_an_edge))
      report.held.push_back({s.number, s.code > 0.f ? double(side) : -double(side), allowed->words(side)});
  }
};

bool in_gaussian_width(const slot_ref& s) {
  return s.family == slot_family::phase &&
         ((s.k >= slot::u && s.k <= slot::w) || s.k == slot::gausiz || (s.k >= slot::u2 && s.k <= slot::w2));
}

/// The refined terms of HG^2 of a phase in a pattern, at the first or at the second wavelength.
struct gaussian_terms {
  std::array<int, 4> number{};    ///< of U, V, W and P, 0 fixed
  std::array<double, 4> shift{};  ///< that they want
  [[nodiscard]] std::array<double, 4> changes(double tan_theta) const {
    return {shift[0] * tan_theta * tan_theta, shift[1] * tan_theta, shift[2], shift[3] * (1.0 + tan_theta * tan_theta)};
  }
};

gaussian_terms gaussian_terms_of(const state_type& st, const mix_type& mix, bool second) {
  gaussian_terms terms;
  const std::array<int, 4> slots{second ? slot::u2 : slot::u, second ? slot::v2 : slot::v, second ? slot::w2 : slot::w,
                                 slot::gausiz};
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const auto k = static_cast<std::size_t>(slots[i]);
    if (mix.lpar[k] < 1 || mix.lpar[k] > st.run.maxs) continue;
    terms.number[i] = mix.lpar[k];
    terms.shift[i] = st.ne.vx(mix.lpar[k] - 1) * mix.apar[k] * st.run.relax[3];
  }
  return terms;
}

/// Shares of the shifts of U, V, W and P by parameter number: past zero the model has no slope that would lead back.
class width_shares {
 public:
  explicit width_shares(const state_type& st) : share_(static_cast<std::size_t>(st.run.maxs) + 1, 1.0), root_(share_.size()) {
    for (std::size_t n = 0; n < root_.size(); ++n) root_[n] = n;
    for (int ip = 0; ip < st.run.n_patt; ++ip) look_at(st, ip);
  }
  [[nodiscard]] float of(int n) { return static_cast<float>(share_[root(static_cast<std::size_t>(n))]); }
  [[nodiscard]] const std::vector<held_parameter>& held() const { return held_; }

 private:
  void look_at(const state_type& st, int ip);
  void cut(const state_type& st, const gaussian_terms& terms, double tan_theta, double hg2, double least, double unseen2);
  void join(const gaussian_terms& terms);
  [[nodiscard]] std::size_t root(std::size_t n) {
    while (root_[n] != n) n = root_[n] = root_[root_[n]];
    return n;
  }

  std::vector<double> share_;      ///< by root number
  std::vector<std::size_t> root_;  ///< numbers that share a phase move together
  std::vector<held_parameter> held_;
};

void width_shares::join(const gaussian_terms& terms) {
  std::size_t first = 0;
  for (const int n : terms.number) {
    if (n == 0) continue;
    const std::size_t r = root(static_cast<std::size_t>(n));
    if (first == 0) first = r;
    share_[first] = std::min(share_[first], share_[r]);
    root_[r] = first;
  }
}

/// least: HG^2 that one cycle may leave; unseen2: below it the width makes no difference any more, and the term that
/// wants it smaller is held.
void width_shares::cut(const state_type& st, const gaussian_terms& terms, double tan_theta, double hg2, double least,
                       double unseen2) {
  const std::array<double, 4> changes = terms.changes(tan_theta);
  const double change = changes[0] + changes[1] + changes[2] + changes[3];
  if (!(hg2 > 1.0e-12) || !(change < 0.0) || !(hg2 + change < least)) return;
  const auto most = static_cast<std::size_t>(std::ranges::min_element(changes) - changes.begin());
  const auto number = static_cast<std::size_t>(terms.number[most]);
  double& share = share_[root(number)];
  share = std::min(share, std::max(hg2 - least, 0.0) / -change);
  if (hg2 > 1.01 * unseen2) return;
  const bool known = std::ranges::any_of(held_, [&](const auto& h) { return h.n == terms.number[most]; });
  if (!known)
    held_.push_back({terms.number[most], st.ne.vx(terms.number[most] - 1) > 0 ? 1.0 : -1.0,
                     "held where the Gaussian width vanishes"});
}

void width_shares::look_at(const state_type& st, int ip) {
  constexpr double degree = 0.017453292519943295;
  const auto& p = st.pattern[static_cast<std::size_t>(ip)];
  std::vector<std::array<gaussian_terms, 2>> of_phase;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const gaussian_terms first = gaussian_terms_of(st, st.mix(ph, ip), false);
    of_phase.push_back({first, p.iuvw == 1 ? gaussian_terms_of(st, st.mix(ph, ip), true) : first});
    for (const gaussian_terms& terms : of_phase.back()) join(terms);
  }
  for (std::size_t k = 0; k < p.refl.irefs.size(); ++k) {
    if (p.refl.pos[k] > p.thmax) continue;  // the list goes on behind the pattern
    const auto key = kalvaris_params::unpack_irefs(p.refl.irefs[k]);
    const gaussian_terms& terms = of_phase[static_cast<std::size_t>(key.phase)][static_cast<std::size_t>(key.wave - 1)];
    // a twentieth of the whole width, or a fifth of a step, is not seen in the pattern
    const double unseen = std::max(static_cast<double>(p.refl.hw[k]) / 20.0, static_cast<double>(p.step) / 5.0);
    const double hg2 = std::pow(p.refl.halfg[k], 2), h2 = std::pow(p.refl.hw[k], 2), unseen2 = unseen * unseen;
    // half of it, and more where the Lorentzian width is most of the whole
    const double least = std::max(0.5 * hg2 * std::min(1.0, hg2 / h2), unseen2);
    cut(st, terms, std::tan(0.5 * p.refl.pos[k] * degree), hg2, least, unseen2);
  }
}

/// A value that no shift may leave behind: below 0 it becomes `fixed`. The multiplier may be halved, so that later shifts
/// of this slot are smaller.
struct guard {
  int k;
  float fixed;
  bool lorentzian_only;  ///< only for the peak shapes that hold a Lorentzian width there
  std::string_view words, held;
};
constexpr std::string_view halved_words = ": Multiplier divided by 2";
constexpr std::array guards{
    guard{slot::x, 0.0001f, true, " WARNING, parameter X < 0, fixed to 0.0001",
          "held at 0.0001: a Lorentzian width is not negative"},
    guard{slot::y, 0.0001f, true, " WARNING, parameter Y < 0, fixed to 0.0001",
          "held at 0.0001: a Lorentzian width is not negative"},
    guard{slot::xi, 0.00001f, true,
          " WARNING, parameter L_Aniso_Strain < 0, fixed to 0.00001",
          "held at 0.00001: it is not negative"},
    guard{slot::scale, 1.0e-10f, false, " WARNING, Scale factor <0, fixed to 1.E-10",
          "held at 1.E-10: a scale factor is not negative"},
    guard{slot::pref1, 0.f, false, " WARNING, Pref. Or. parameter < 0, fixed to 0.0",
          "held at 0: it is not negative"},
};

void guard_phase_slot(const state_type& st, const slot_ref& s, multiplier_at_guard at_guard, slot_change& change,
                      shift_report& report) {
  const bool halved = at_guard == multiplier_at_guard::halved;
  const auto g = std::find_if(guards.begin(), guards.end(), [&](const guard& row) { return row.k == s.k; });
  if (g == guards.end() || !(s.value < 0.f)) return;
  const int npro = st.mix(s.owner, s.ip).npro;
  if (g->lorentzian_only && npro != 4 && npro != 7) return;
  // the exponential model of preferred orientation may have a negative G1 (plates against needles)
  if (s.k == slot::pref1 && st.pattern[static_cast<std::size_t>(s.ip)].nori == 0) return;
  s.value = g->fixed;
  report.held.push_back({s.number, s.code > 0.f ? -1.0 : 1.0, g->held});
  if (halved) s.code *= 0.5f;
  change.shift = g->lorentzian_only ? 1.f : change.shift;
  if (s.k == slot::scale) {
    report.warnings.push_back(" WARNING, Negative Scale factor for phase:" + std::to_string(s.owner + 1));
    report.warnings.emplace_back(halved ? " Program is fixing SCALE to 1.E-10 and dividing by 2 the multiplier of shifts"
                                        : " Program is fixing SCALE to 1.E-10");
  } else {
    report.warnings.push_back(std::string(g->words) + std::string(halved ? halved_words : ""));
  }
}

void guard_global_slot(const slot_ref& s, float before, multiplier_at_guard at_guard, slot_change& change,
                       shift_report& report) {
  const bool too_large = s.k == gslot::p0 && s.value > 1.f;
  const bool negative = s.k >= gslot::p0 && s.k <= gslot::tau && s.value < 0.f;
  if (!too_large && !negative) return;
  report.held.push_back({s.number, (too_large ? 1.0 : -1.0) * (s.code > 0.f ? 1.0 : -1.0),
                         too_large ? "held below 1" : "held: it is not negative"});
  s.value = before;
  if (at_guard == multiplier_at_guard::halved) s.code *= 0.5f;
  change.shift = 0.f;
  if (too_large) {
    report.warnings.emplace_back(" Warning! Microabsorption parameter P0 > 1, fixed to previous value !");
  } else {
    report.warnings.emplace_back(" Warning! Some microabsorption parameter < 0");
    report.warnings.emplace_back(" Program is fixing such parameters to previous values! ");
  }
}

/// The refined wavelength carries the second one with it; the refined ratio goes back to the radiation line.
void refresh_radiation(pattern_type& p) {
  if (p.lglb[gslot::lambda] != 0 && p.glb[gslot::lambda] > 0.f) {
    const float second = p.lamda[1] / p.lamda[0];
    p.lamda[0] = p.glb[gslot::lambda];
    p.lamda[1] = second * p.lamda[0];
  }
  if (p.lglb[gslot::ratio2] != 0) p.ratio[1] = p.glb[gslot::ratio2];
}

}  // namespace

void set_reference_multipliers(state_type& st) {
  st.parm.m_ref.assign(static_cast<std::size_t>(st.run.maxs) + 1, 0.f);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs || s.code == 0.f) return;
    float& m = st.parm.m_ref[static_cast<std::size_t>(s.number)];
    if (m == 0.f) m = std::abs(s.code);
  });
}

float reference_weight(const state_type& st, int n, float m) {
  if (n < 1 || n > st.run.maxs) return 0.f;
  const float ref = st.parm.m_ref[static_cast<std::size_t>(n)];
  return ref > 0.f ? m / ref : 0.f;
}

float sigma_of(const state_type& st, int n, float m) {
  if (n < 1 || n > st.run.maxs || st.ne.order() < st.run.maxs) return 0.f;
  const double variance = std::abs(st.ne.rjac(n - 1, n - 1));
  return std::abs(reference_weight(st, n, m)) * static_cast<float>(std::sqrt(variance));
}

shift_report standing(state_type& st) {
  shift_report report;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    report.changes.push_back({s.family, s.owner, s.ip, s.k, s.number, s.value, 0.f, sigma_of(st, s.number, s.code)});
  });
  return report;
}

shift_report apply(state_type& st, multiplier_at_guard at_guard) {
  shift_report report;
  box_state boxes(st);
  width_shares widths(st);
  report.held = widths.held();
  report.taken.assign(static_cast<std::size_t>(st.run.maxs), 0.0);
  std::vector<char> named(static_cast<std::size_t>(st.run.maxs) + 1, 0);
  st.parm.valx.resize(named.size());
  st.parm.svalx.resize(named.size());
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const int n = s.number;
    const float multiplier = s.code, before = s.value;
    const auto weight = static_cast<double>(reference_weight(st, n, multiplier));
    slot_change change{s.family, s.owner, s.ip, s.k, n, 0.f, 0.f, 0.f};
    change.sigma = sigma_of(st, n, multiplier);
    float shift = static_cast<float>(st.ne.vx(n - 1)) * multiplier * relaxation(st, s);
    if (in_gaussian_width(s)) shift *= widths.of(n);
    boxes.move(st, s, shift, report);
    change.shift = s.value - before;
    if (s.family == slot_family::phase) guard_phase_slot(st, s, at_guard, change, report);
    if (s.family == slot_family::global) guard_global_slot(s, before, at_guard, change, report);
    change.value = s.value;
    if (char& done = named[static_cast<std::size_t>(n)]; !done && multiplier != 0.f) {
      done = 1;
      st.parm.valx[static_cast<std::size_t>(n)] = s.value;
      st.parm.svalx[static_cast<std::size_t>(n)] = change.sigma;
      report.taken[static_cast<std::size_t>(n - 1)] = static_cast<double>(s.value - before) / weight;
    }
    report.changes.push_back(change);
  });
  for (pattern_type& p : st.pattern) refresh_radiation(p);
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (int ip = 0; ip < st.run.n_patt; ++ip)
      if (st.mix(ph, ip).jcontr != 0) {
        direct(st, ip, ph);
        break;
      }
  set_reference_multipliers(st);  // a guard may have halved one
  return report;
}

void direct(state_type& st, int ip, int ph) {
  const mix_type& mix = st.mix(ph, ip);
  auto& phase = st.phase[static_cast<std::size_t>(ph)];
  lmix_crystal_metrics::quadratic_form form{};
  lmix_crystal_metrics::mat6d covariance{};
  std::array<int, 6> number{};
  std::array<double, 6> weight{};
  for (std::size_t i = 0; i < 6; ++i) {
    form[i] = static_cast<double>(mix.par[slot::cell_a + i]);
    number[i] = mix.lpar[slot::cell_a + i];
    weight[i] = static_cast<double>(reference_weight(st, number[i], mix.apar[slot::cell_a + i]));
  }
  for (std::size_t i = 0; i < 6; ++i)
    for (std::size_t j = 0; j < 6; ++j)
      if (weight[i] != 0.0 && weight[j] != 0.0)
        covariance[i][j] = weight[i] * weight[j] * st.ne.rjac(number[i] - 1, number[j] - 1);
  const auto cell = lmix_crystal_metrics::direct_cell_from_quadratic_form(form, covariance);
  if (!cell) {
    kalvaris_inout::mess_cons(st.io, "Warning: the reciprocal metric of phase" + std::to_string(ph + 1) +
                                         " belongs to no cell; the last good cell is kept");
    return;
  }
  lmix_crystal_metrics::vec3f length{}, angle{}, length_std{}, angle_std{};
  for (std::size_t i = 0; i < 3; ++i) {
    length[i] = static_cast<float>(cell->cell[i]);
    angle[i] = static_cast<float>(cell->cell[i + 3]);
    length_std[i] = static_cast<float>(cell->sigma[i]);
    angle_std[i] = static_cast<float>(cell->sigma[i + 3]);
  }
  const auto error = set_crystal_cell(length, angle, phase.cellp, {}, &length_std, &angle_std);
  if (error.err_crys) kalvaris_inout::mess_cons(st.io, error.err_crys_mess);
  for (std::size_t i = 0; i < 6; ++i) phase.cell_esd[i] = static_cast<float>(cell->sigma[i]);
}

}  // namespace apply_shifts

#include "apply_shifts.hpp"

#include <algorithm>
#include <array>
#include <cmath>

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
    case slot_family::phase:
      return st.run.relax[in_cell(s.k) ? 4 : 3];
    case slot_family::global:
      break;
  }
  return st.run.relax[4];
}

/// Box of a parameter within one cycle: the first slot of the number is cut at the bound, the others follow it.
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

  void move(const state_type& st, int n, float shift, float mult, float& value, shift_report& report) {
    const auto u = static_cast<std::size_t>(n);
    if (box_of[u] < 0) {
      value += shift;
      return;
    }
    if (handled[u]) {
      value += mult * taken[u];
      return;
    }
    handled[u] = 1;
    const auto& box = st.run.limits[static_cast<std::size_t>(box_of[u])];
    const float wanted = value + shift;
    if (wanted < box.vlim1) {
      report.limited.push_back(-n);
      report.held.push_back({n, mult > 0.f ? -1.0 : 1.0});
      taken[u] = box.vlim1 - value;
      value = box.vlim1;
    } else if (wanted > box.vlim2) {
      report.limited.push_back(n);
      report.held.push_back({n, mult > 0.f ? 1.0 : -1.0});
      taken[u] = box.vlim2 - value;
      value = box.vlim2;
    } else {
      taken[u] = shift;
      value = wanted;
    }
  }
};

/// A value that no shift may leave behind: below `floor` it becomes `fixed` and the multiplier is halved, so that later
/// shifts of this slot are smaller.
struct guard {
  int k;
  float fixed;
  bool lorentzian_only;  ///< only for the peak shapes that hold a Lorentzian width there
  const char* words;
};
constexpr std::array guards{
    guard{slot::x, 0.0001f, true, " WARNING, parameter X < 0, fixed to 0.0001: Multiplier divided by 2"},
    guard{slot::y, 0.0001f, true, " WARNING, parameter Y < 0, fixed to 0.0001: Multiplier divided by 2"},
    guard{slot::xi, 0.00001f, true,
          " WARNING, parameter L_Aniso_Strain < 0, fixed to 0.00001: Multiplier divided by 2"},
    guard{slot::scale, 1.0e-10f, false, " WARNING, Scale factor <0, fixed to 1.E-10: Multiplier divided by 2"},
    guard{slot::pref1, 0.f, false, " WARNING, Pref. Or. parameter < 0, fixed to 0.0: Multiplier divided by 2"},
};

void guard_phase_slot(const state_type& st, const slot_ref& s, slot_change& change, shift_report& report) {
  const auto g = std::find_if(guards.begin(), guards.end(), [&](const guard& row) { return row.k == s.k; });
  if (g == guards.end() || !(s.value < 0.f)) return;
  const int npro = st.mix(s.owner, s.ip).npro;
  if (g->lorentzian_only && npro != 4 && npro != 7) return;
  // the exponential model of preferred orientation may have a negative G1 (plates against needles)
  if (s.k == slot::pref1 && st.pattern[static_cast<std::size_t>(s.ip)].nori == 0) return;
  s.value = g->fixed;
  report.held.push_back({s.number, s.code > 0.f ? -1.0 : 1.0});
  s.code *= 0.5f;
  change.shift = g->lorentzian_only ? 1.f : change.shift;
  if (s.k == slot::scale) {
    report.warnings.push_back(" WARNING, Negative Scale factor for phase:" + std::to_string(s.owner + 1));
    report.warnings.emplace_back(" Program is fixing SCALE to 1.E-10 and dividing by 2 the multiplier of shifts");
  } else {
    report.warnings.emplace_back(g->words);
  }
}

void guard_global_slot(const slot_ref& s, float before, slot_change& change, shift_report& report) {
  const bool too_large = s.k == gslot::p0 && s.value > 1.f;
  const bool negative = s.k >= gslot::p0 && s.k <= gslot::tau && s.value < 0.f;
  if (!too_large && !negative) return;
  s.value = before;
  s.code *= 0.5f;
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

shift_report apply(state_type& st) {
  shift_report report;
  box_state boxes(st);
  std::vector<char> named(static_cast<std::size_t>(st.run.maxs) + 1, 0);
  st.parm.valx.resize(named.size());
  st.parm.svalx.resize(named.size());
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const int n = s.number;
    const float multiplier = s.code, before = s.value;
    slot_change change{s.family, s.owner, s.ip, s.k, n, 0.f, 0.f, 0.f};
    change.sigma = sigma_of(st, n, multiplier);
    const float shift = static_cast<float>(st.ne.vx(n - 1)) * multiplier * relaxation(st, s);
    boxes.move(st, n, shift, multiplier, s.value, report);
    change.shift = s.value - before;
    if (s.family == slot_family::phase) guard_phase_slot(st, s, change, report);
    if (s.family == slot_family::global) guard_global_slot(s, before, change, report);
    change.value = s.value;
    if (char& done = named[static_cast<std::size_t>(n)]; !done && multiplier != 0.f) {
      done = 1;
      st.parm.valx[static_cast<std::size_t>(n)] = s.value;
      st.parm.svalx[static_cast<std::size_t>(n)] = change.sigma;
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

#include "kv_calc_patterns.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "apply_shifts.hpp"
#include "kv_background.hpp"

namespace kv_calc_patterns {

namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

pattern_calculation::pattern_calculation(state_type& state, int pattern_index, bool with_derivatives,
                                         kv_free_intensities::overlap_equations* intensities)
    : st(state),
      ip(pattern_index),
      pattern(state.pattern[static_cast<std::size_t>(pattern_index)]),
      refl(pattern.refl),
      derivatives(with_derivatives && state.run.maxs > 0),
      free_intensities(intensities) {
  for (auto& row : class_rows) row.resize(block_points);
  if (derivatives) {
    const auto n = static_cast<std::size_t>(st.run.maxs);
    rows.assign(n * block_points, 0.f);
    touched.assign(n, 0);
    global_slots = uses(pattern.glb, pattern.lglb, pattern.aglb);
    if (pattern.bref) {
      const std::vector<int> live = kv_background::slots(pattern);
      for (const slot_use& u : global_slots)
        if (std::binary_search(live.begin(), live.end(), u.k)) {
          background_wanted.push_back(u.k);
          background_uses.push_back(u);
        }
      background_work.resize(background_wanted.size() * block_points);
    }
  }
  prepare_phases();
}

std::vector<slot_use> pattern_calculation::uses(std::span<const float> values, std::span<const int> numbers,
                                                std::span<const float> codes) const {
  std::vector<slot_use> list;
  for (std::size_t k = 1; k < values.size(); ++k) {
    if (numbers[k] == 0) continue;
    const float r = apply_shifts::reference_weight(st, numbers[k], codes[k]);
    if (r != 0.f) list.push_back({static_cast<int>(k), numbers[k] - 1, r});
  }
  return list;
}

void pattern_calculation::prepare_phases() {
  phases.resize(static_cast<std::size_t>(st.run.nphase));
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const mix_type& mix = st.mix(ph, ip);
    const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
    phase_work& w = phases[static_cast<std::size_t>(ph)];
    w.contributes = mix.jcontr != 0;
    if (!w.contributes) continue;
    w.scale = mix.par[slot::scale];
    w.shifts = kv_peak_geometry::make_shift_model(st, ip, ph);
    for (int wave = 1; wave <= 2; ++wave)
      w.wave[wave - 1] = {kv_peak_geometry::make_peak_model(st, ip, ph, wave),
                          reflections_mod::make_lpabs_model(st, ip, ph, wave),
                          reflections_mod::make_corrections_model(st, ip, ph, wave)};
    std::vector<kv_structure_factors::column> columns;
    if (derivatives) {
      w.profile_slots = uses(mix.par, mix.lpar, mix.apar);
      for (int ia = 0; ia < phase.natom && !phase.profile_matching(); ++ia) {
        const auto& atom = st.atom[static_cast<std::size_t>(phase.first_atom + ia)];
        for (const slot_use& u : uses(atom.xl, atom.lp, atom.a)) {
          w.structure_slots.push_back(u);
          columns.push_back({ia, u.k});
        }
      }
    }
    if (!phase.profile_matching()) w.structure = kv_structure_factors::prepare(st, ph, ip, std::move(columns));
    structure.columns = std::max(structure.columns, w.structure_slots.size());
  }
}

void pattern_calculation::prepare_structure() {
  kv_structure_factors::workspace work;
  std::vector<double> dfsq(structure.columns);
  std::unordered_map<std::int64_t, int> row_of_index;
  const int n = refl.size();
  structure.row_of.assign(static_cast<std::size_t>(n), -1);
  for (int k = 0; k < n; ++k) {
    const auto u = static_cast<std::size_t>(k);
    reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]);
    const phase_work& w = phases[static_cast<std::size_t>(key.phase)];
    const phase_type& phase = st.phase[static_cast<std::size_t>(key.phase)];
    if (!w.contributes || phase.profile_matching() || (phase.stfac_nref && st.run.icycle_c > 1 && refl.ff[u] > 0.f)) continue;
    const reflection_key either_wave{key.phase, 1, key.h, key.k, key.l};
    const auto [known, fresh] =
        row_of_index.try_emplace(kalvaris_params::pack_irefs(either_wave), static_cast<int>(structure.fsq.size()));
    structure.row_of[u] = known->second;
    if (!fresh) continue;
    const std::array<float, 3> h{static_cast<float>(key.h), static_cast<float>(key.k), static_cast<float>(key.l)};
    const double q = kv_peak_geometry::inverse_d2(w.wave[0].geometry.cell, {h[0], h[1], h[2]});
    const auto f =
        kv_structure_factors::stfac(w.structure, h, 0.25 * q, work, std::span(dfsq).first(w.structure_slots.size()));
    structure.fsq.push_back(f.fsq);
    structure.a.push_back(f.a);
    structure.b.push_back(f.b);
    for (std::size_t c = 0; c < structure.columns; ++c)
      structure.dfsq.push_back(c < w.structure_slots.size() ? static_cast<float>(dfsq[c] * w.structure_slots[c].r)
                                                            : 0.f);
  }
}

/// Angle, width and reach of reflection k; refreshes them in the list unless it is out of reach of the wavelength.
placed_peak pattern_calculation::place_peak(int k) {
  const auto u = static_cast<std::size_t>(k);
  const reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]);
  placed_peak place;
  if (!work_of(key).contributes) return place;
  const wave_model& wave = wave_of(key);
  place.geometry = make_peak(wave.geometry, {double(key.h), double(key.k), double(key.l)});
  const kv_peak_geometry::peak& g = place.geometry;
  if (g.out_of_reach) return place;
  refl.pos[u] = g.pos;
  refl.dspacing[u] = static_cast<float>(g.d);
  refl.hw[u] = static_cast<float>(g.h);
  refl.halfg[u] = static_cast<float>(g.hg);
  refl.halfl[u] = static_cast<float>(g.hl);
  refl.gam[u] = static_cast<float>(g.eta);
  refl.ggi[u] = static_cast<float>(g.instrument.ggi);  // the instrument's share follows the angle as U, V, W do
  refl.cci[u] = static_cast<float>(g.instrument.cci);
  refl.sl_i[u] = static_cast<float>(g.instrument.sl_i);
  refl.dl_i[u] = static_cast<float>(g.instrument.dl_i);
  refl.lp[u] = static_cast<float>(lpabs(wave.lp, g.sinth2, g.sinth, g.costh, g.pos));
  place.at = kv_peak_geometry::apply_shifts(work_of(key).shifts, g.pos);
  const double left = pattern.wdt * g.h, right = wave.geometry.npro == 11 ? pattern.wdt * g.hl : left;
  place.reach = kv_assignk::points_between(pattern, place.at.pos - left, place.at.pos + right);
  place.reach.first = std::max(place.reach.first - 1, 0);  // rounding may lose a point; the peak function cuts exactly
  place.reach.last = std::min(place.reach.last + 1, pattern.npts);
  if (place.reach.first < place.reach.last) {  // the list goes on behind the pattern
    pattern.flag_gauss |= g.negative_gauss;
    pattern.flag_lorentz |= g.negative_lorentz;
  }
  return place;
}

void pattern_calculation::place_peaks() {
  placed.clear();
  for (int k = 0; k < refl.size(); ++k) placed.push_back(place_peak(k));
}

/// The peak function of reflection k.
void pattern_calculation::shape_peak(int k, const reflection_key& key, active_peak& out) {
  const auto u = static_cast<std::size_t>(k);
  const kv_peak_geometry::peak& g = placed[u].geometry;
  const mix_type& mix = st.mix(key.phase, ip);
  const auto& model = wave_of(key).geometry;
  kv_profil::peak_params& p = out.peak;
  p = {};
  p.npr = model.npro;
  p.position = placed[u].at.pos;
  p.cut_off = pattern.wdt;
  p.H = static_cast<float>(g.h);
  p.H_right = p.npr == 11 ? static_cast<float>(g.hl) : 0.f;
  p.HG = static_cast<float>(g.hg);
  p.HL = p.npr == 7 ? static_cast<float>(g.hl) : 0.f;
  p.eta = static_cast<float>(g.eta);
  p.eta_right = static_cast<float>(g.eta_r);
  p.deta_dH = p.npr == 5 || p.npr == 11 || p.npr == 12 ? static_cast<float>(model.xi) : 0.f;
  if (p.npr == 4 || p.npr == -4) {
    p.ci = mix.par[slot::x];
    p.cd = mix.par[slot::y] + mix.par[slot::d_l] * static_cast<float>(g.tanth);
    p.dd = mix.par[slot::s_l] * static_cast<float>(g.tanth * degrees);
  }
  p.tan_theta = static_cast<float>(g.tanth);
  p.tan_2theta = static_cast<float>(g.sin2 / g.cos2);
  if (!asymmetric(g.pos)) return;
  p.p1 = mix.par[slot::asy1], p.p2 = mix.par[slot::asy2], p.p3 = mix.par[slot::asy3], p.p4 = mix.par[slot::asy4];
  const auto is_refined = [](const slot_use& s) {
    return s.k == slot::asy1 || (s.k >= slot::asy2 && s.k <= slot::asy4);
  };
  p.use_asym = p.p1 != 0.f || p.p2 != 0.f || p.p3 != 0.f || p.p4 != 0.f ||
               std::ranges::any_of(work_of(key).profile_slots, is_refined);
  if ((p.npr == 7 || p.npr == 12) &&
      lmix_powderprofiles_finger::prepare(out.axial, rules, p.position, refl.sl_i[u] + mix.par[slot::s_l],
                                          refl.dl_i[u] + mix.par[slot::d_l], g.h))
    p.axial = &out.axial;
}

/// Peak function, intensity and derivative terms of a placed reflection; false when its shape is none.
bool pattern_calculation::prepare_peak(int k, active_peak& out) {
  const auto u = static_cast<std::size_t>(k);
  const reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]);
  const kv_peak_geometry::peak& g = placed[u].geometry;
  const auto corr = reflections_mod::corrections(wave_of(key).corrections,
                                                 {double(key.h), double(key.k), double(key.l)}, g.q, g.sinth2);
  refl.corr[u] = static_cast<float>(corr.corr);
  if (!structure.row_of.empty() && structure.row_of[u] >= 0) {
    const auto r = static_cast<std::size_t>(structure.row_of[u]);
    refl.ff[u] = static_cast<float>(refl.mlt[u] * structure.fsq[r]);
    refl.asfa[u] = static_cast<float>(structure.a[r]);
    refl.bsfa[u] = static_cast<float>(structure.b[r]);
    refl.phasen[u] = static_cast<float>(std::atan2(structure.b[r], structure.a[r]));
  }
  shape_peak(k, key, out);
  if (kv_profil::prepare(out.peak) != kv_profil::peak_status::ok) return false;

  const double per_scale = static_cast<double>(refl.lp[u]) * refl.ff[u] * corr.corr;
  out.intensity = work_of(key).scale * per_scale;
  out.per_ff = work_of(key).scale * refl.lp[u] * corr.corr;
  out.terms.clear();
  out.classes = 1u << kv_profil::omega;
  if (derivatives) collect_terms(k, key, corr, per_scale, out);
  return true;
}

void pattern_calculation::collect_terms(int k, const reflection_key& key, const reflections_mod::correction& corr,
                                        double per_scale, active_peak& out) const {
  const auto u = static_cast<std::size_t>(k);
  const phase_work& work = work_of(key);
  const auto& [g, at, reach] = placed[u];
  const double lp_ff = static_cast<double>(refl.lp[u]) * refl.ff[u];
  profile_terms(key, placed[u], corr, lp_ff, per_scale, out);

  const double i = out.intensity;
  for (const slot_use& s : global_slots) {
    const auto add = [&](peak_class c, double value) {
      out.terms.push_back({s.n, c, static_cast<float>(value * s.r)});
    };
    switch (s.k) {
      case gslot::zero:
        add(kv_profil::position, i);
        break;
      case gslot::sycos:
        add(kv_profil::position, i * at.by_cosine);
        break;
      case gslot::sysin:
        add(kv_profil::position, i * at.by_sine);
        break;
      // the second wavelength keeps its ratio to the first
      case gslot::lambda:
        add(kv_profil::position, i * at.by_pos * 2.0 * degrees * g.tanth / pattern.lamda[0]);
        break;
      case gslot::ratio2:
        if (key.wave == 2) add(kv_profil::omega, work.scale * lp_ff * corr.by_ratio);
        break;
      case gslot::p0:
        add(kv_profil::omega, work.scale * lp_ff * corr.by_p0);
        break;
      case gslot::cp:
        add(kv_profil::omega, work.scale * lp_ff * corr.by_cp);
        break;
      case gslot::tau:
        add(kv_profil::omega, work.scale * lp_ff * corr.by_tau);
        break;
      default:
        break;  // background slots act on the points, not on the peaks
    }
  }

  if (const int row = structure.row_of[u]; row >= 0 && !work.structure_slots.empty()) {
    const float* dfsq = structure.dfsq.data() + static_cast<std::size_t>(row) * structure.columns;
    const double factor = work.scale * refl.lp[u] * corr.corr * refl.mlt[u];
    for (std::size_t c = 0; c < work.structure_slots.size(); ++c)
      if (dfsq[c] != 0.f)
        out.terms.push_back({work.structure_slots[c].n, kv_profil::omega, static_cast<float>(factor * dfsq[c])});
  }
  for (const term& t : out.terms) out.classes |= 1u << t.cls;
}

/// Terms of the refined slots of par.
void pattern_calculation::profile_terms(const reflection_key& key, const placed_peak& place,
                                        const reflections_mod::correction& corr, double lp_ff, double per_scale,
                                        active_peak& out) const {
  using namespace kv_profil;
  const phase_work& work = work_of(key);
  const auto& [g, at, reach] = place;
  const double i = out.intensity, scale_lp_ff = work.scale * lp_ff;
  const int npr = out.peak.npr;
  const double t = g.tanth, c2 = g.costh * g.costh, h = key.h, k = key.k, l = key.l;
  const double lambda = wave_of(key).geometry.lambda;
  const double by_q = i * at.by_pos * degrees * 0.25 * lambda * lambda / (g.sinth * g.costh);
  const bool own_widths = key.wave == 2 && pattern.iuvw == 1;
  const bool eta_family = npr == 5 || npr == 11 || npr == 12;
  const bool low_angle = asymmetric(g.pos);
  for (const slot_use& s : work.profile_slots) {
    const auto add = [&](peak_class c, double value) {
      out.terms.push_back({s.n, c, static_cast<float>(value * s.r)});
    };
    switch (s.k) {
      case slot::scale:
        add(omega, per_scale);
        break;
      case slot::bov:
        add(omega, scale_lp_ff * corr.by_b);
        break;
      case slot::pref1:
        add(omega, scale_lp_ff * corr.by_g1);
        break;
      case slot::pref2:
        add(omega, scale_lp_ff * corr.by_g2);
        break;
      case slot::u:
        if (!own_widths) add(width, i * t * t);
        break;
      case slot::v:
        if (!own_widths) add(width, i * t);
        break;
      case slot::w:
        if (!own_widths) add(width, i);
        break;
      case slot::u2:
        if (own_widths) add(width, i * t * t);
        break;
      case slot::v2:
        if (own_widths) add(width, i * t);
        break;
      case slot::w2:
        if (own_widths) add(width, i);
        break;
      case slot::gausiz:
        add(width, i / c2);
        if (npr == 11) add(width_2, i / c2);
        break;
      case slot::cell_a:
        add(position, by_q * h * h);
        break;
      case slot::cell_a + 1:
        add(position, by_q * k * k);
        break;
      case slot::cell_a + 2:
        add(position, by_q * l * l);
        break;
      case slot::cell_a + 3:
        add(position, by_q * k * l);
        break;
      case slot::cell_a + 4:
        add(position, by_q * h * l);
        break;
      case slot::cell_f:
        add(position, by_q * h * k);
        break;
      case slot::zero_ph:
        add(position, i);
        break;
      case slot::sycos_ph:
        add(position, i * at.by_cosine);
        break;
      case slot::sysin_ph:
        add(position, i * at.by_sine);
        break;
      case slot::x:
        if (npr == 7) add(width_2, i * t);
        if (npr == 4 || npr == -4) add(shape_2, i);
        if (eta_family) add(shape, i * g.pos);
        if (npr == 6) add(shape, i * 100.0 / g.pos);
        break;
      case slot::y:
        if (npr == 7) add(width_2, i / g.costh);
        if (npr == 4) add(shape_3, i);
        if (npr == 6) add(shape, i * 10000.0 / (g.pos * g.pos));
        break;
      case slot::shape1:
        if (npr == 4 || npr == 6 || eta_family) add(shape, i);
        break;
      case slot::xi:
        if (eta_family) add(shape, i * g.h);  // the width's part of eta lives in the width class
        break;
      case slot::u_r:
        if (npr == 11) add(width_2, i * t * t);
        break;
      case slot::v_r:
        if (npr == 11) add(width_2, i * t);
        break;
      case slot::w_r:
        if (npr == 11) add(width_2, i);
        break;
      case slot::shape1_r:
        if (npr == 11) add(shape_2, i);
        break;
      case slot::x_r:
        if (npr == 11) add(shape_2, i * g.pos);
        break;
      case slot::asy1:
        if (out.peak.use_asym) add(asym_a, -i / g.tanth);
        break;
      case slot::asy2:
        if (out.peak.use_asym) add(asym_b, -i / g.tanth);
        break;
      case slot::asy3:
        if (out.peak.use_asym) add(asym_a, -i * g.cos2 / g.sin2);
        break;
      case slot::asy4:
        if (out.peak.use_asym) add(asym_b, -i * g.cos2 / g.sin2);
        break;
      case slot::s_l:
        if ((npr == 7 || npr == 12) && low_angle && out.peak.axial) add(kv_profil::s_l, i);
        if (npr == 4 || npr == -4) add(shape_4, i * t * degrees);
        if (npr == 11 && at.pos <= 90.0) add(width, i / (t * t));
        break;
      case slot::d_l:
        if ((npr == 7 || npr == 12) && low_angle && out.peak.axial) add(kv_profil::d_l, i);
        if (npr == 4) add(shape_3, i * t);
        if (npr == 11 && at.pos > 90.0) add(width_2, i / (t * t));
        break;
      default:
        break;  // slots of models that the reader refuses
    }
  }
}

}  // namespace kv_calc_patterns

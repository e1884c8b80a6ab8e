#include "reflections_mod_rows.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace reflections_mod {

namespace {

using kalvaris_params::state_type;
using kv_peak_geometry::peak;
namespace slot = kalvaris_params::slot;

constexpr double smallest_start = 0.001;  ///< least integrated intensity that profile matching starts from

/// value/divisor; 0 where nothing can be scattered (hidden beam, scale 0).
double quotient(double value, double divisor) { return divisor > 0 ? value / divisor : 0.0; }

/// Index of the point nearest to an abscissa, -1 without points.
int nearest_point(const kalvaris_params::pattern_type& p, double x) {
  const int n = std::min(p.npts, static_cast<int>(p.y.size()));
  if (n < 1) return -1;
  if (p.iconstep) return static_cast<int>(std::clamp((x - p.thmin) / p.step + 0.5, 0.0, n - 1.0));
  const auto end = p.txv.begin() + std::min<std::ptrdiff_t>(n, static_cast<std::ptrdiff_t>(p.txv.size()));
  const auto above = std::lower_bound(p.txv.begin(), end, static_cast<float>(x));
  if (above == end) return n - 1;
  if (above == p.txv.begin()) return 0;
  const int i = static_cast<int>(above - p.txv.begin());
  return *above - x < x - *(above - 1) ? i : i - 1;
}

bool packable(const std::array<int, 3>& hkl) {
  return std::all_of(hkl.begin(), hkl.end(), [](int index) { return index >= -128 && index <= 127; });
}

}  // namespace

double cell_volume(const std::array<double, 6>& cell) {
  const auto [a, b, c, d, e, f] = cell;
  return 1 / std::sqrt(a * b * c + 0.25 * (d * e * f - a * d * d - b * e * e - c * f * f));
}

void too_many_reflections(state_type& st) {
  kalvaris_inout::mess_cons(st.io, std::to_string(st.dim.maxreflx) + "  Too many reflections");
  kalvaris_inout::mess_cons(
      st.io, " => Maximum number or reflections attained! Increase MaxREFLX above " + std::to_string(st.dim.maxreflx));
  kalvaris_inout::stop_cond(st.io, " Too many reflections ", true);
}

row_maker::row_maker(state_type& st, int ip, int ph, const generation_limits& limits, bool low_limit)
    : st_(st),
      ip_(ip),
      ph_(ph),
      limits_(limits),
      low_limit_(low_limit),
      shifts_(kv_peak_geometry::make_shift_model(st, ip, ph)) {
  const int n_waves = has_second_wave(st.pattern[static_cast<std::size_t>(ip)]) ? 2 : 1;
  for (int wave = 1; wave <= n_waves; ++wave)
    waves_.push_back({kv_peak_geometry::make_peak_model(st, ip, ph, wave), make_lpabs_model(st, ip, ph, wave),
                      make_corrections_model(st, ip, ph, wave)});
  volume_ = cell_volume(waves_[0].peak.cell);
}

void row_maker::add(const std::array<int, 3>& hkl, int mult, std::optional<double> value) {
  if (!packable(hkl)) return;
  const std::array<double, 3> h{double(hkl[0]), double(hkl[1]), double(hkl[2])};
  const double s = 0.5 * std::sqrt(kv_peak_geometry::inverse_d2(waves_[0].peak.cell, h));
  if (!(s <= limits_.smax) || (low_limit_ && s < limits_.smin)) return;
  for (std::size_t w = 0; w < waves_.size(); ++w) {
    const peak p = kv_peak_geometry::make_peak(waves_[w].peak, h);
    if (p.out_of_reach || p.sinth2 < 1e-10) continue;
    const double position = kv_peak_geometry::apply_shifts(shifts_, p.pos).pos;
    if (position < limits_.first || position > limits_.last) continue;
    store(hkl, static_cast<int>(w) + 1, mult, p, position, value);
  }
}

void row_maker::store(const std::array<int, 3>& hkl, int wave, int mult, const peak& p, double position,
                      std::optional<double> value) {
  auto& list = st_.pattern[static_cast<std::size_t>(ip_)].refl;
  const auto k = static_cast<std::size_t>(list.size());
  if (list.size() >= st_.dim.maxreflx - 2) too_many_reflections(st_);
  list.resize(k + 1);
  const wave_models& models = waves_[static_cast<std::size_t>(wave - 1)];
  const std::array<double, 3> h{double(hkl[0]), double(hkl[1]), double(hkl[2])};
  const correction c = corrections(models.corrections, h, p.q, p.sinth2);
  const double lp = lpabs(models.lpabs, p.sinth2, p.sinth, p.costh, p.pos);
  list.irefs[k] = kalvaris_params::pack_irefs({ph_, wave, hkl[0], hkl[1], hkl[2]});
  list.mlt[k] = mult;
  list.hw[k] = static_cast<float>(p.h);
  list.pos[k] = p.pos;
  list.lp[k] = static_cast<float>(lp);
  list.dspacing[k] = static_cast<float>(p.d);
  list.halfg[k] = static_cast<float>(p.hg);
  list.halfl[k] = static_cast<float>(p.hl);
  list.gam[k] = static_cast<float>(p.eta);
  list.ggi[k] = static_cast<float>(p.instrument.ggi);
  list.cci[k] = static_cast<float>(p.instrument.cci);
  list.sl_i[k] = static_cast<float>(p.instrument.sl_i);
  list.dl_i[k] = static_cast<float>(p.instrument.dl_i);
  list.corr[k] = static_cast<float>(c.corr);
  list.phasen[k] = phasen_;
  list.ff[k] = static_cast<float>(start_ff(p, models.peak.lambda, position, mult, {lp, c.corr, c.by_ratio}, value));
  ++added_;
}

double row_maker::start_ff(const peak& p, double lambda, double position, int mult, const intensity_factors& factors,
                           std::optional<double> value) const {
  const double scale = st_.mix(ph_, ip_).par[slot::scale];
  switch (st_.phase[static_cast<std::size_t>(ph_)].jbt) {
    case -3:
      return mult * *value * *value;
    case 3:
      return quotient(*value, factors.lp * factors.without_ratio);
    case -2:
      return value ? mult * *value * *value : observed_ff(p, lambda, position, factors);
    case 2:
      return value ? quotient(*value, factors.lp * factors.without_ratio * scale)
                   : observed_ff(p, lambda, position, factors);
    default:
      return 0;
  }
}

/// Net height times FWHM, shared by the lattice points that a step of the powder pattern holds.
double row_maker::observed_ff(const peak& p, double lambda, double position, const intensity_factors& factors) const {
  constexpr double points_per_step = 0.8772982;  // 16 pi (pi/180)
  const auto& pattern = st_.pattern[static_cast<std::size_t>(ip_)];
  const int i = nearest_point(pattern, position);
  double net = 0;
  if (i >= 0) {
    const auto at = static_cast<std::size_t>(i);
    net = std::abs(double{pattern.y[at]} - (at < pattern.bk.size() ? pattern.bk[at] : 0.f));
  }
  const double lattice_points =
      points_per_step * pattern.step * volume_ * p.sinth2 * p.costh / (lambda * lambda * lambda);
  const double start = std::max(net * p.h / std::max(1.0, lattice_points), smallest_start);
  return quotient(start, factors.lp * st_.mix(ph_, ip_).par[slot::scale] * factors.corr);
}

}  // namespace reflections_mod

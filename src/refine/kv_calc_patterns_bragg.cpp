#include "kv_calc_patterns.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "kv_background.hpp"

namespace kv_calc_patterns {

namespace {

/// Numerators and denominators of R(Bragg) and R(F) of a phase.
struct r_sums {
  double bragg = 0, iobs = 0, f = 0, fobs = 0;
};

}  // namespace

/// Profile matching: the second wavelength of a reflection takes the intensity of the first.
void pattern_calculation::share_between_waves() {
  std::unordered_map<std::int32_t, float> of_first_wave;
  const auto matched = [&](const reflection_key& key) {
    return kv_free_intensities::follows_pattern(st.phase[static_cast<std::size_t>(key.phase)]);
  };
  for (std::size_t u = 0; u < refl.irefs.size(); ++u)
    if (const reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]); key.wave == 1 && matched(key))
      of_first_wave[refl.irefs[u]] = refl.ff[u];
  for (std::size_t u = 0; u < refl.irefs.size(); ++u) {
    const reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]);
    if (key.wave != 2 || !matched(key)) continue;
    const auto twin = of_first_wave.find(kalvaris_params::pack_irefs({key.phase, 1, key.h, key.k, key.l}));
    if (twin != of_first_wave.end()) refl.ff[u] = twin->second;
  }
}

double pattern_calculation::integrate(kv_iterate_calc_cw::intensity_update update) {
  const int n = refl.size();
  double moved = 0, matched = 0;
  std::vector<r_sums> sums(phases.size());
  place_peaks();
  active_peak a;
  std::vector<float> profile;
  for (int k = 0; k < n; ++k) {
    const auto u = static_cast<std::size_t>(k);
    const reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[u]);
    const kv_assignk::point_range range = placed[u].reach;
    if (range.first >= range.last || !prepare_peak(k, a)) continue;
    profile.resize(static_cast<std::size_t>(range.last - range.first));
    kv_profil::peak_row_out out;
    out.of[kv_profil::omega] = profile;
    kv_profil::peak_row(a.peak, std::span(pattern.txv).subspan(static_cast<std::size_t>(range.first), profile.size()),
                        out, false);
    double sum_c = 0, sum_o = 0;
    for (int i = range.first; i < range.last; ++i) {
      const auto p = static_cast<std::size_t>(i);
      const std::int64_t kr = pattern.kr[p];
      if (kr == 0 || kalvaris_params::kr_excluded(kr, st.dim.maxreflx)) continue;
      const double dx = static_cast<double>(pattern.txv[p + 1]) - pattern.txv[p];
      const double part = profile[static_cast<std::size_t>(i - range.first)] * dx;
      sum_c += part;
      const bool counts = std::abs(pattern.yc[p]) > pattern.yo_max * 1.0e-6f;
      sum_o += counts ? part * (pattern.y[p] - kv_background::backa(pattern, i)) / pattern.yc[p] : part;
    }
    if (sum_o < 0) sum_o = pattern.yo_max * 1.0e-6;
    const double i = a.intensity;
    const double iobs = i > 1.0e-6 ? sum_o * i : 1.0e-8, icalc = std::max(sum_c * i, 1.0e-8);
    refl.iobs[u] = static_cast<float>(iobs);
    refl.icalc[u] = static_cast<float>(icalc);
    r_sums& s = sums[static_cast<std::size_t>(key.phase)];
    const double unit = phases[static_cast<std::size_t>(key.phase)].scale * refl.lp[u];
    const double fobs = unit > 0.0 ? std::sqrt(std::abs(iobs / unit)) : 0.0;
    const double fcalc = unit > 0.0 ? std::sqrt(std::abs(icalc / unit)) : 0.0;
    s.bragg += std::abs(iobs - icalc);
    s.iobs += iobs;
    s.f += std::abs(fobs - fcalc);
    s.fobs += fobs;

    if (update == kv_iterate_calc_cw::intensity_update::none) continue;
    if (!kv_free_intensities::follows_pattern(st.phase[static_cast<std::size_t>(key.phase)]) || icalc <= 1.0e-8) continue;
    refl.ff[u] = static_cast<float>(refl.ff[u] * iobs / icalc);
    moved += std::abs(iobs - icalc);
    matched += icalc;
  }
  if (matched > 0) share_between_waves();
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const r_sums& s = sums[static_cast<std::size_t>(ph)];
    mix_type& mix = st.mix(ph, ip);
    mix.r_bragg = static_cast<float>(100.0 * s.bragg / std::max(1.0, s.iobs));
    mix.r_f = static_cast<float>(100.0 * s.f / std::max(1.0, s.fobs));
  }
  return matched > 0 ? moved / matched : 0.0;
}

}  // namespace kv_calc_patterns

double kv_iterate_calc_cw::bragg(kalvaris_params::state_type& st, int ip, intensity_update update) {
  return kv_calc_patterns::pattern_calculation(st, ip, false).integrate(update);
}

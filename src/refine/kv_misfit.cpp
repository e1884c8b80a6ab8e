#include "kv_misfit.hpp"

#include <cmath>
#include <cstdlib>

#include "kv_background.hpp"
#include "kv_peak_geometry.hpp"

namespace kv_misfit {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;

double shape_of(int npro, float gam) {
  switch (npro) {
    case 0:
      return 0.0;
    case 1:
      return 1.0;
    case 2:
    case 3:
    case 6:
      return 0.5;
    default:
      return std::clamp(static_cast<double>(gam), 0.0, 1.0);
  }
}

std::vector<line> lines_of(const state_type& st, int ip) {
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  std::vector<line> lines;
  for (int k = 0; k < p.refl.size(); ++k) {
    const auto u = static_cast<std::size_t>(k);
    const auto key = kalvaris_params::unpack_irefs(p.refl.irefs[u]);
    if (key.phase >= st.run.nphase || st.mix(key.phase, ip).jcontr == 0) continue;
    const line l{
        kv_peak_geometry::peak_position(st, ip, k), static_cast<double>(p.refl.hw[u]),
        shape_of(st.mix(key.phase, ip).npro, p.refl.gam[u]),
        static_cast<double>(p.refl.lp[u]) * static_cast<double>(p.refl.ff[u]) * static_cast<double>(p.refl.corr[u]),
        key.phase};
    if (std::isfinite(l.position) && l.width > 1e-6 && std::isfinite(l.width) && l.weight > 0.0 &&
        std::isfinite(l.weight))
      lines.push_back(l);
  }
  return lines;
}

template <class Numbers>
bool any_refined(const Numbers& numbers, std::initializer_list<int> slots) {
  return std::ranges::any_of(slots, [&](int k) { return numbers[static_cast<std::size_t>(k)] != 0; });
}

bool positions_are_refined(const state_type& st, int ip) {
  namespace gslot = kalvaris_params::gslot;
  if (any_refined(st.pattern[static_cast<std::size_t>(ip)].lglb,
                  {gslot::zero, gslot::sycos, gslot::sysin, gslot::lambda}))
    return true;
  for (int ph = 0; ph < st.run.nphase; ++ph)
    if (any_refined(st.mix(ph, ip).lpar,
                    {slot::cell_a, slot::cell_a + 1, slot::cell_a + 2, slot::cell_a + 3, slot::cell_a + 4, slot::cell_f,
                     slot::zero_ph, slot::sycos_ph, slot::sysin_ph}))
      return true;
  return false;
}

bool widths_are_refined(const state_type& st, int ip) {
  for (int ph = 0; ph < st.run.nphase; ++ph)
    if (any_refined(st.mix(ph, ip).lpar, {slot::u, slot::v, slot::w, slot::x, slot::y, slot::gausiz, slot::lorsiz,
                                          slot::u_r, slot::v_r, slot::w_r}))
      return true;
  return false;
}

fit_view view_of(const state_type& st, int ip) {
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  fit_view fit;
  fit.two_theta = p.ixunit == kalvaris_params::abscissa::two_theta;
  fit.unit_weights = p.iwgt == 2;
  for (int i = 0; i < p.npts; ++i) {
    const auto u = static_cast<std::size_t>(i);
    if (!p.kr.empty() && kalvaris_params::kr_excluded(p.kr[u], st.dim.maxreflx)) continue;
    const double background = kv_background::backa(p, i), calc = background + static_cast<double>(p.yc[u]);
    if (!std::isfinite(calc) || !(p.var[u] > 0.f)) continue;
    fit.x.push_back(static_cast<double>(p.txv[u]));
    fit.y.push_back(static_cast<double>(p.y[u]));
    fit.calc.push_back(calc);
    fit.background.push_back(background);
    fit.var.push_back(static_cast<double>(p.var[u]));
  }
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const auto& mix = st.mix(ph, ip);
    phase_view view;
    view.contributes = mix.jcontr != 0;
    view.matching = std::abs(st.phase[static_cast<std::size_t>(ph)].jbt) == 2;
    view.scale = static_cast<double>(mix.par[slot::scale]);
    fit.phases.push_back(view);
  }
  fit.lines = lines_of(st, ip);
  fit.positions_free = positions_are_refined(st, ip);
  fit.widths_free = widths_are_refined(st, ip);
  return fit;
}

}  // namespace

std::vector<remark> remarks(const state_type& st) {
  std::vector<remark> all;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    const auto n = static_cast<std::size_t>(p.npts);
    if (p.affpat == 0 || p.cry_pat || !p.refining() || p.npts == 0 || p.yc.size() < n || p.txv.size() < n) continue;
    for (remark& r : remarks_of(view_of(st, ip))) {
      r.pattern = ip;
      all.push_back(std::move(r));
    }
  }
  return all;
}

}  // namespace kv_misfit

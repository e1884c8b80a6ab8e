#include "kv_cycle_failures.hpp"

#include <algorithm>
#include <cmath>

#include "kv_live_slots.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_string_utilities.hpp"

namespace kv_cycle_failures {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
namespace slot = kalvaris_params::slot;

/// Below this share of the largest observed intensity a peak is nothing to single precision.
constexpr double invisible = 1.0e-7;

std::string number(double value) { return std::string(lmix_string_utilities::trim(fmt_line{}.g(12, 4, value).str())); }

std::string of_reflection(const pattern_type& p, std::size_t k, int ip) {
  const auto key = kalvaris_params::unpack_irefs(p.refl.irefs[k]);
  return "reflection " + std::to_string(key.h) + ' ' + std::to_string(key.k) + ' ' + std::to_string(key.l) +
         " of phase " + std::to_string(key.phase + 1) + " in pattern " + std::to_string(ip + 1);
}

/// Height of the highest peak of a phase as a share of the largest observed intensity; negative without a reflection.
double highest_peak(const pattern_type& p, double scale, int ph) {
  double highest = -1.0;
  for (std::size_t k = 0; k < p.refl.irefs.size(); ++k) {
    if (kalvaris_params::unpack_irefs(p.refl.irefs[k]).phase != ph || !(p.refl.pos[k] <= p.thmax)) continue;
    const double area = scale * p.refl.lp[k] * p.refl.ff[k] * p.refl.corr[k];
    highest = std::max(highest, area / std::max(static_cast<double>(p.refl.hw[k]), 1.0e-6));
  }
  return highest < 0.0 ? highest : highest / std::max(static_cast<double>(p.yo_max), 1.0e-30);
}

std::string why_without_effect(const state_type& st, const slot_ref& s) {
  if (s.family == slot_family::global)
    return std::string(kv_live_slots::why_global_slot_is_idle(st.pattern[static_cast<std::size_t>(s.ip)], s.k));
  if (s.family != slot_family::phase) return {};
  const std::string_view idle = kv_live_slots::why_phase_slot_is_idle(st, s.owner, s.ip, s.k);
  if (!idle.empty()) return std::string(idle);
  const auto& par = st.mix(s.owner, s.ip).par;
  if ((s.k == slot::s_l || s.k == slot::d_l) && par[slot::s_l] == 0.f && par[slot::d_l] == 0.f)
    return "the peak has no slope where S_L = D_L = 0: start from a value such as 0.02";
  return {};
}

}  // namespace

std::string name_of(const state_type& st, int n) {
  const auto& names = st.parm.nampar;
  return n >= 0 && n < static_cast<int>(names.size()) ? names[static_cast<std::size_t>(n)] : std::string();
}

std::string what_is_not_finite(const state_type& st) {
  for (int n = 1; n < static_cast<int>(st.parm.valx.size()); ++n)
    if (!std::isfinite(st.parm.valx[static_cast<std::size_t>(n)])) return "parameter " + name_of(st, n);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    const auto& r = p.refl;
    for (std::size_t k = 0; k < r.irefs.size(); ++k)
      if (!std::isfinite(r.ff[k]) || !std::isfinite(r.pos[k]) || !std::isfinite(r.hw[k]) || !std::isfinite(r.corr[k]))
        return of_reflection(p, k, ip);
    for (int i = 0; i < p.npts; ++i)
      if (!std::isfinite(p.bk[static_cast<std::size_t>(i)]))
        return "background at" + fmt_line{}.f(10, 4, p.txv[static_cast<std::size_t>(i)]).str();
  }
  return "the weighted sum of squares (are all points excluded, or are there more parameters than points?)";
}

std::vector<std::string> phases_without_intensity(const state_type& st) {
  std::vector<std::string> lines;
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (int ip = 0; ip < st.run.n_patt; ++ip) {
      const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
      const auto& mix = st.mix(ph, ip);
      if (mix.jcontr == 0 || p.affpat == 0 || p.cry_pat || !p.refining()) continue;
      const double highest = highest_peak(p, static_cast<double>(mix.par[slot::scale]), ph);
      if (highest > invisible) continue;
      const std::string of = " of phase" + fmt_line{}.i(3, ph + 1).str() + " in pattern" + fmt_line{}.i(3, ip + 1).str();
      if (highest < 0.0)
        lines.push_back(" No calculated intensity" + of + ": no reflection lies in the pattern. Check its cell, the wavelength and the range");
      else
        lines.push_back(" No calculated intensity" + of + ": its scale factor is" +
                        fmt_line{}.pe(12, 4, static_cast<double>(mix.par[slot::scale])).str() +
                        ". Start from a larger one, or take the phase out");
    }
  return lines;
}

std::vector<std::string> lines_without_effect(state_type& st, const std::vector<int>& parameters) {
  std::vector<std::string> lines;
  for (const int i : parameters) {
    std::string why;
    st.for_each_slot([&](const slot_ref& s) {
      if (s.number == i + 1 && why.empty()) why = why_without_effect(st, s);
    });
    if (why.empty()) why = "nothing in the pattern depends on it where it stands";
    lines.push_back(" Parameter" + fmt_line{}.i(5, i + 1).str() + " " + name_of(st, i + 1) + ": " + why +
                    ". Give it the code 0.00");
  }
  return lines;
}

std::vector<std::string> lines_of_dependence(const state_type& st,
                                             const std::vector<normal_equations::dependent_set>& sets) {
  std::vector<std::string> lines;
  for (const auto& set : sets) {
    std::string together;
    for (std::size_t i = 0; i < set.unknowns.size(); ++i) {
      together += i == 0 ? " " : set.step[i] < 0 ? " - " : " + ";
      together += number(i == 0 ? set.step[i] : std::abs(set.step[i])) + " " +
                  name_of(st, set.unknowns[i] + 1);
    }
    lines.push_back(" These steps together change nothing:" + together + ". Fix one of them (code 0.00)" +
                    (set.unknowns.size() > 1 ? ", or tie them" : ""));
  }
  return lines;
}

}  // namespace kv_cycle_failures

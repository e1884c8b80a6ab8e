// kv_prf_columns: what all plot files of a pattern have in common: its points as columns, its reflections, its title.
// It owns nothing and reads the state only.
#pragma once
#include <cmath>
#include <string>
#include <vector>

#include "kalvaris_params.hpp"
#include "kv_background.hpp"
#include "kv_listing_text.hpp"
#include "kv_peak_geometry.hpp"

namespace kv_prf {

/// One point as it is plotted.
struct plot_point {
  double x = 0, obs = 0, calc = 0, background = 0;
  bool excluded = false;
  [[nodiscard]] double difference() const { return excluded ? 0.0 : obs - calc; }
};

/// Point i (0-based) of the pattern.
[[nodiscard]] inline plot_point point_at(const kalvaris_params::state_type& st, const kalvaris_params::pattern_type& p,
                                         int i) {
  using kv_listing_text::at;
  plot_point q;
  q.x = static_cast<double>(at(p.txv, i));
  q.obs = static_cast<double>(at(p.y, i));
  q.background = static_cast<double>(kv_background::backa(p, i));
  q.calc = static_cast<double>(at(p.yc, i)) + q.background;
  q.excluded = !p.kr.empty() && kalvaris_params::kr_excluded(at(p.kr, i), st.dim.maxreflx);
  return q;
}

/// Positions with all shifts of the reflections of a phase [deg].
[[nodiscard]] inline std::vector<double> tick_positions(const kalvaris_params::state_type& st, int ip, int ph) {
  const auto& refl = kv_listing_text::at(st.pattern, ip).refl;
  std::vector<double> positions;
  for (int k = 0; k < refl.size(); ++k)
    if (kalvaris_params::unpack_irefs(kv_listing_text::at(refl.irefs, k)).phase == ph)
      positions.push_back(kv_peak_geometry::peak_position(st, ip, k));
  return positions;
}

/// Title of the run; the word "comm" that some files carry in front of it does not belong to it.
[[nodiscard]] inline std::string plot_title(const kalvaris_params::state_type& st) {
  std::string title = st.run.title.starts_with("comm") ? st.run.title.substr(4) : st.run.title;
  return title.substr(0, title.find_last_not_of(" \t\r") + 1);
}

}  // namespace kv_prf

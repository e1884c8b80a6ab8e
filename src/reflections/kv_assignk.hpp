// kv_assignk: which reflections reach which point of a constant-wavelength pattern.
// It writes pattern_type::kr and reflection_list::first_point, last_point; before that it merges the phases by
// position. Called once before the cycles, or in every cycle when asked for; positions and widths must be current.
#pragma once
#include "kalvaris_params.hpp"

namespace kv_assignk {

/// Points of a pattern, 0-based, last excluded.
struct point_range {
  int first = 0, last = 0;
};
/// Points from abscissa low to high: nearest points with a constant step, else from the last point at or below low to
/// the last one at or below high. Clipped to the pattern; empty when it lies outside or a bound is NaN.
[[nodiscard]] point_range points_between(const kalvaris_params::pattern_type& pattern, double low, double high);

/// Sorts the phases into one list and fills kr and the reach of each reflection: its position with all shifts, wdt
/// times its FWHM to either side (to the right the right-hand width for npro 11). The points of excluded regions stay
/// in the reach of a reflection; kr marks them. Tables to the listing as lst2 and lst3 ask. Stops: more than maxoverl
/// reflections over one point, no reflections at all, asymmetry refined with all peaks above rlim, preferred
/// orientation refined from 0.
void assignk(kalvaris_params::state_type& st, int ip);

}  // namespace kv_assignk

// What the sources of kv_misfit have in common.
#pragma once
#include <algorithm>
#include <numbers>
#include <utility>
#include <vector>

#include "kv_misfit.hpp"

namespace kv_misfit {

inline constexpr double degree = std::numbers::pi / 180.0;
inline constexpr double four_ln2 = 2.772588722239781;  ///< exponent of a Gaussian at a distance of one FWHM

/// The middle one of the values in their order, the upper of two; there must be one.
[[nodiscard]] inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

/// Weighted sum of the squares of observed minus calculated.
[[nodiscard]] double weighted_sum(const fit_view& fit);

/// Weighted sum of observed minus background minus the columns, the heights of the columns free and not negative.
[[nodiscard]] double least_sum(const fit_view& fit, const std::vector<std::vector<double>>& columns);

/// Least of a function on a grid, then by a parabola through the least and its neighbours.
template <class F>
std::pair<double, double> least_on_grid(double first, double step, int n, F&& f) {
  int best = 0;
  std::vector<double> value(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) {
    value[static_cast<std::size_t>(k)] = f(first + k * step);
    if (value[static_cast<std::size_t>(k)] < value[static_cast<std::size_t>(best)]) best = k;
  }
  const double here = value[static_cast<std::size_t>(best)];
  double at = first + best * step;
  if (best == 0 || best == n - 1) return {at, here};
  const double left = value[static_cast<std::size_t>(best - 1)], right = value[static_cast<std::size_t>(best + 1)];
  const double bend = left - 2.0 * here + right;
  if (!(bend > 0.0)) return {at, here};
  at += 0.5 * step * (left - right) / bend;
  return {at, std::min(here, f(at))};
}

}  // namespace kv_misfit

// Points: the scatter against the weights, points that stand alone, the ground between the peaks.
#include <cmath>

#include "kv_misfit_parts.hpp"

namespace kv_misfit {

namespace {

/// The four points from i on follow each other without a gap.
bool in_a_row(const std::vector<double>& x, std::size_t i) {
  const double step = std::min({x[i + 1] - x[i], x[i + 2] - x[i + 1], x[i + 3] - x[i + 2]});
  return x[i + 3] - x[i] < 3.5 * step;
}

double ratio_of(const fit_view& fit, bool residual) {
  constexpr double median_of_square = 0.4549;  // of a normal deviate
  const auto value = [&](std::size_t i) { return residual ? fit.y[i] - fit.calc[i] : fit.y[i]; };
  std::vector<double> ratios;
  for (std::size_t i = 0; i + 3 < fit.size(); ++i) {
    if (!in_a_row(fit.x, i)) continue;
    const double z = value(i) - 3.0 * value(i + 1) + 3.0 * value(i + 2) - value(i + 3);
    ratios.push_back(z * z / (fit.var[i] + 9.0 * fit.var[i + 1] + 9.0 * fit.var[i + 2] + fit.var[i + 3]));
  }
  return ratios.size() < 20 ? 0.0 : median(std::move(ratios)) / median_of_square;
}

double deviate(const fit_view& fit, std::size_t i) { return (fit.y[i] - fit.calc[i]) / std::sqrt(fit.var[i]); }

/// Largest deviate of the two points on either side of first..last.
double beside(const fit_view& fit, std::size_t first, std::size_t last) {
  double largest = 0.0;
  for (std::size_t k = 1; k <= 2; ++k) {
    if (first >= k) largest = std::max(largest, std::abs(deviate(fit, first - k)));
    if (last + k < fit.size()) largest = std::max(largest, std::abs(deviate(fit, last + k)));
  }
  return largest;
}

/// The stretch of points first..last (excluded): mean residual where the Bragg part is least, its sigma 0 when the
/// peaks leave no ground there.
struct ground {
  double x = 0, offset = 0, sigma = 0;
};
ground ground_of(const fit_view& fit, std::size_t first, std::size_t last) {
  constexpr std::size_t fewest = 5;
  const auto bragg = [&](std::size_t i) { return fit.calc[i] - fit.background[i]; };
  std::vector<std::size_t> order(last - first);
  for (std::size_t k = 0; k < order.size(); ++k) order[k] = first + k;
  std::ranges::stable_sort(order, {}, bragg);
  const double highest = bragg(order.back());
  order.resize(std::max(std::min(fewest, order.size()), order.size() / 4));
  if (order.size() < fewest) return {};
  double mean_bragg = 0.0, mean_ground = 0.0, x = 0.0;
  std::vector<double> residual;
  for (const std::size_t i : order) {
    mean_bragg += bragg(i), mean_ground += fit.background[i], x += fit.x[i];
    residual.push_back(fit.y[i] - fit.calc[i]);
  }
  if (mean_bragg > 0.2 * mean_ground && mean_bragg > 0.1 * highest * static_cast<double>(order.size())) return {};
  const double middle = median(residual);
  double sum = 0.0, var = 0.0;
  std::size_t n = 0;
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (std::abs(residual[k] - middle) > 4.0 * std::sqrt(fit.var[order[k]])) continue;  // a peak that no phase explains
    sum += residual[k], var += fit.var[order[k]];
    ++n;
  }
  if (2 * n < order.size()) return {};
  const auto count = static_cast<double>(n);
  return {x / static_cast<double>(order.size()), sum / count, std::sqrt(var) / count};
}

double interpolated(const std::vector<double>& x, const std::vector<double>& y, double at) {
  const auto right = static_cast<std::size_t>(std::ranges::lower_bound(x, at) - x.begin());
  if (right == 0) return y.front();
  if (right == x.size()) return y.back();
  const double t = (at - x[right - 1]) / (x[right] - x[right - 1]);
  return y[right - 1] + t * (y[right] - y[right - 1]);
}

/// Weighted sum with the offset taken off and the Bragg part free in height.
double sum_without(const fit_view& fit, const background_offset& ground) {
  double dd = 0.0, db = 0.0, bb = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double d = fit.y[i] - fit.calc[i] - interpolated(ground.x, ground.offset, fit.x[i]);
    const double b = fit.calc[i] - fit.background[i];
    dd += d * d / fit.var[i], db += d * b / fit.var[i], bb += b * b / fit.var[i];
  }
  return bb > 0.0 ? dd - db * db / bb : dd;
}

}  // namespace

double scatter_ratio(const fit_view& fit) { return std::min(ratio_of(fit, false), ratio_of(fit, true)); }

dead_point_set lone_points(const fit_view& fit) {
  constexpr double least = 10.0, alone = 5.0;
  constexpr std::size_t longest_run = 3;
  dead_point_set found;
  double total = 0.0, theirs = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) total += deviate(fit, i) * deviate(fit, i);
  for (std::size_t i = 0; i < fit.size();) {
    if (std::abs(deviate(fit, i)) < least) {
      ++i;
      continue;
    }
    std::size_t best_end = 0;
    const std::size_t longest = deviate(fit, i) > 0.0 ? 1 : longest_run;  // two high points may be a narrow peak
    for (std::size_t n = 1; n <= longest && i + n <= fit.size() && best_end == 0; ++n) {
      double smallest = std::abs(deviate(fit, i));
      for (std::size_t k = i; k < i + n; ++k) smallest = std::min(smallest, std::abs(deviate(fit, k)));
      if (smallest >= least && smallest > alone * beside(fit, i, i + n - 1)) best_end = i + n;
    }
    for (std::size_t k = i; k < best_end; ++k) {
      found.index.push_back(k);
      theirs += deviate(fit, k) * deviate(fit, k);
    }
    i = std::max(best_end, i + 1);
  }
  std::ranges::stable_sort(found.index, std::ranges::greater{},
                           [&](std::size_t i) { return std::abs(deviate(fit, i)); });
  found.share = total > 0.0 ? theirs / total : 0.0;
  return found;
}

namespace {

/// Lower tenth of the data within so many points of i: the ground, whatever peaks stand on it.
double ground_around(const fit_view& fit, std::size_t i) {
  constexpr std::size_t around = 50;
  const std::size_t first = i > around ? i - around : 0, last = std::min(i + around + 1, fit.size());
  std::vector<double> values(fit.y.begin() + static_cast<std::ptrdiff_t>(first),
                             fit.y.begin() + static_cast<std::ptrdiff_t>(last));
  const auto tenth = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 10);
  std::ranges::nth_element(values, tenth);
  return *tenth;
}

struct neighbours {
  double height = 0, sigma = 0;  ///< mean of the points beside a run, and sigma of one
};
neighbours beside_run(const fit_view& fit, std::size_t first, std::size_t end) {
  neighbours out;
  double n = 0.0;
  for (std::size_t k = 1; k <= 2; ++k)
    for (const std::size_t i : {first - k, end - 1 + k})  // an index below 0 wraps round beyond the end
      if (i < fit.size()) out.height += fit.y[i], out.sigma += std::sqrt(fit.var[i]), n += 1.0;
  if (n > 0.0) out.height /= n, out.sigma /= n;
  return out;
}

}  // namespace

dead_point_set sunken_points(const fit_view& fit) {
  constexpr double own_sigmas = 10.0, ground_sigmas = 5.0, nothing = 0.01;
  constexpr std::size_t longest_run = 3;
  dead_point_set found;
  double tension = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double ground = ground_around(fit, i);
    const auto sunken = [&](std::size_t k) {
      return fit.y[k] + own_sigmas * std::sqrt(fit.var[k]) < ground && fit.y[k] < 0.5 * ground;
    };
    std::size_t end = i;
    bool empty = true;
    for (; end < fit.size() && sunken(end); ++end) empty = empty && fit.y[end] < nothing * ground;
    const neighbours next = beside_run(fit, i, end);
    if (end > i && (empty || end - i <= longest_run) && next.height > ground - ground_sigmas * next.sigma)
      for (std::size_t k = i; k < end; ++k) {
        found.index.push_back(k);
        tension += (next.height - fit.y[k]) * (next.height - fit.y[k]) / fit.var[k];
      }
    i = std::max(i, end);
  }
  const double total = weighted_sum(fit);
  for (const std::size_t i : found.index) found.share += deviate(fit, i) * deviate(fit, i) / total;
  found.tension = tension / total;
  return found;
}

background_offset offset_between_peaks(const fit_view& fit, double stretch) {
  background_offset out;
  std::vector<ground> places;
  for (std::size_t first = 0; first < fit.size();) {
    std::size_t last = first;
    while (last < fit.size() && fit.x[last] < fit.x[first] + stretch) ++last;
    if (const ground g = ground_of(fit, first, last); g.sigma > 0.0) places.push_back(g);
    first = last;
  }
  for (std::size_t k = 0; k < places.size(); ++k) {
    const double before = places[k > 0 ? k - 1 : k].offset, after = places[std::min(k + 1, places.size() - 1)].offset;
    const double here = places[k].offset;
    out.x.push_back(places[k].x);
    out.offset.push_back(
        std::max(std::min(before, after), std::min(std::max(before, after), here)));  // median of three
    if (here < -3.0 * places[k].sigma) ++out.above;
    if (here > 3.0 * places[k].sigma) ++out.below;
  }
  out.sum = out.x.empty() ? 0.0 : sum_without(fit, out);
  return out;
}

}  // namespace kv_misfit

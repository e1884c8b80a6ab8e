// Peaks: found in a curve, matched with the calculated reflections, moved and widened until the sum is least.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "kv_misfit.hpp"

namespace kv_misfit {

namespace {

constexpr double degree = std::numbers::pi / 180.0;
constexpr double four_ln2 = 2.772588722239781;

/// Height of a Gaussian of the width at point i on a straight ground, by least squares; sigma 0 where the ground is not
/// seen on both sides. `shape` is room for the work.
found_peak height_at(std::span<const double> x, std::span<const double> curve, std::span<const double> var,
                     std::size_t i, double width, std::vector<double>& shape) {
  constexpr double reach = 1.25, seen = 0.7;  // in widths
  std::size_t first = i, last = i + 1;
  while (first > 0 && x[i] - x[first - 1] <= reach * width) --first;
  while (last < x.size() && x[last] - x[i] <= reach * width) ++last;
  if (last - first < 6 || x[i] - x[first] < seen * width || x[last - 1] - x[i] < seen * width) return {x[i], 0.0, 0.0};
  const auto n = static_cast<double>(last - first);
  double mean_g = 0, mean_t = 0;
  shape.resize(last - first);
  for (std::size_t k = first; k < last; ++k) {
    const double u = (x[k] - x[i]) / width, g = std::exp(-four_ln2 * u * u);
    shape[k - first] = g;
    mean_g += g / n, mean_t += (x[k] - x[i]) / n;
  }
  double tt = 0, gt = 0;
  for (std::size_t k = first; k < last; ++k) {
    const double t = x[k] - x[i] - mean_t;
    tt += t * t, gt += t * shape[k - first];
  }
  const double tilt = gt / tt;
  double gg = 0, gv = 0, ggvar = 0;
  for (std::size_t k = first; k < last; ++k) {
    const double g = shape[k - first] - mean_g - tilt * (x[k] - x[i] - mean_t);
    gg += g * g, gv += g * curve[k], ggvar += g * g * var[k];
  }
  return {x[i], gv / gg, std::sqrt(ggvar) / gg};
}

double strength(const found_peak& p) { return p.sigma > 0.0 ? p.height / p.sigma : 0.0; }

double middle_of(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

/// A straight line through the medians of the lower and the upper half of the positions.
width_line line_through(std::vector<std::pair<double, double>> of) {
  std::ranges::sort(of);
  std::vector<double> all, x[2], w[2];
  for (std::size_t k = 0; k < of.size(); ++k) {
    const std::size_t half = 2 * k < of.size() ? 0 : 1;
    all.push_back(of[k].second);
    x[half].push_back(of[k].first), w[half].push_back(of[k].second);
  }
  width_line line{middle_of(all), 0.0, of.front().first};
  constexpr std::size_t enough = 6;
  if (of.size() < enough) return line;
  const double x0 = middle_of(x[0]), x1 = middle_of(x[1]), w0 = middle_of(w[0]), w1 = middle_of(w[1]);
  line.slope = (w1 - w0) / (x1 - x0);
  line.at_start = w0 + line.slope * (of.front().first - x0);
  const double at_end = line.at(of.back().first), least = 0.5 * std::min(w0, w1);
  if (line.at_start < least || at_end < least) return {middle_of(all), 0.0, of.front().first};
  return line;
}

/// Chance of at least k successes in n trials of probability p.
double binomial_tail(int k, int n, double p) {
  double sum = 0.0;
  for (int j = k; j <= n; ++j)
    sum += std::exp(std::lgamma(n + 1.0) - std::lgamma(j + 1.0) - std::lgamma(n - j + 1.0) + j * std::log(p) +
                    (n - j) * std::log1p(-p));
  return std::min(1.0, sum);
}

/// Observed and calculated peak that stand on each other, by index.
struct pair {
  std::size_t observed = 0, calculated = 0;
  double distance = 0;  ///< observed minus moved calculated position
};

class matcher {
 public:
  matcher(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width, movement how)
      : observed_(observed), calculated_(calculated), width_(width), how_(how), moved_(calculated.size()) {}

  std::vector<pair> pairs(double a, double within) {
    for (std::size_t j = 0; j < moved_.size(); ++j) moved_[j] = moved(how_, calculated_[j].position, a);
    std::vector<pair> found;
    std::size_t j = 0;
    for (std::size_t i = 0; i < observed_.size() && !moved_.empty(); ++i) {
      const double p = observed_[i].position;
      while (j + 1 < moved_.size() && std::abs(moved_[j + 1] - p) <= std::abs(moved_[j] - p)) ++j;
      if (std::abs(p - moved_[j]) <= within * width_.at(p)) found.push_back({i, j, p - moved_[j]});
    }
    return found;
  }
  double score(double a) {
    constexpr double within = 0.7;
    double sum = 0.0, all = 0.0;
    for (const found_peak& p : observed_) all += std::sqrt(p.height);
    for (const pair& q : pairs(a, within)) {
      const found_peak& p = observed_[q.observed];
      sum += std::sqrt(p.height) * (1.0 - std::abs(q.distance) / (within * width_.at(p.position)));
    }
    return all > 0.0 ? sum / all : 0.0;
  }
  /// What the movement by 1 does at the place of an observed peak [deg].
  [[nodiscard]] double slope(const pair& q) const {
    const double theta = 0.5 * observed_[q.observed].position * degree;
    if (how_ == movement::common) return 1.0;
    return how_ == movement::displacement ? std::cos(theta) : 2.0 * std::tan(theta) / degree;
  }

 private:
  std::span<const found_peak> observed_;
  std::span<const place> calculated_;
  const width_line& width_;
  movement how_;
  std::vector<double> moved_;
};

/// Four-point interpolation of a curve on ascending abscissae; the ends are continued by their last value.
double curve_at(std::span<const double> x, std::span<const double> curve, double at, std::size_t& hint) {
  while (hint + 1 < x.size() && x[hint + 1] <= at) ++hint;
  while (hint > 0 && x[hint] > at) --hint;
  if (at <= x.front()) return curve.front();
  if (hint + 1 >= x.size()) return curve.back();
  const double t = (at - x[hint]) / (x[hint + 1] - x[hint]);
  const double p0 = curve[hint > 0 ? hint - 1 : hint], p1 = curve[hint], p2 = curve[hint + 1];
  const double p3 = curve[std::min(hint + 2, x.size() - 1)];
  return p1 + 0.5 * t * (p2 - p0 + t * (2.0 * p0 - 5.0 * p1 + 4.0 * p2 - p3 + t * (3.0 * (p1 - p2) + p3 - p0)));
}

/// Weighted sum of observed minus background minus the columns, their heights free and not negative.
double least_sum(const fit_view& fit, std::vector<std::vector<double>> columns) {
  const std::size_t m = columns.size();
  std::vector<std::vector<double>> a(m, std::vector<double>(m, 0.0));
  std::vector<double> b(m, 0.0), height(m, 0.0);
  double dd = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double d = fit.y[i] - fit.background[i], w = 1.0 / fit.var[i];
    dd += d * d * w;
    for (std::size_t j = 0; j < m; ++j) {
      b[j] += columns[j][i] * d * w;
      for (std::size_t k = 0; k <= j; ++k) a[j][k] += columns[j][i] * columns[k][i] * w;
    }
  }
  for (std::size_t j = 0; j < m; ++j)
    for (std::size_t k = 0; k < j; ++k) a[k][j] = a[j][k];
  // coordinate descent: few columns that overlap little, and each height stays at or above 0
  for (int round = 0; round < 50; ++round)
    for (std::size_t j = 0; j < m; ++j) {
      if (!(a[j][j] > 0.0)) continue;
      double rest = b[j];
      for (std::size_t k = 0; k < m; ++k)
        if (k != j) rest -= a[j][k] * height[k];
      height[j] = std::max(0.0, rest / a[j][j]);
    }
  double sum = dd;
  for (std::size_t j = 0; j < m; ++j) {
    sum -= 2.0 * height[j] * b[j];
    for (std::size_t k = 0; k < m; ++k) sum += height[j] * height[k] * a[j][k];
  }
  return sum;
}

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

}  // namespace

double moved(movement how, double position, double a) {
  const double theta = 0.5 * position * degree;
  if (how == movement::common) return position + a;
  if (how == movement::displacement) return position + a * std::cos(theta);
  return 2.0 * std::asin(std::min(1.0, std::sin(theta) * std::exp(a))) / degree;
}

std::vector<found_peak> find_peaks(std::span<const double> x, std::span<const double> curve,
                                   std::span<const double> var, const width_line& width, double least_sigma) {
  constexpr double places_per_width = 8.0;  // enough for a parabola through the top
  std::vector<found_peak> seen, peaks;
  std::vector<double> room;
  for (std::size_t i = 0; i < x.size(); ++i)
    if (seen.empty() || (x[i] - seen.back().position) * places_per_width > 0.999 * width.at(x[i]))
      seen.push_back(height_at(x, curve, var, i, width.at(x[i]), room));
  for (std::size_t i = 1; i + 1 < seen.size(); ++i) {
    if (!(strength(seen[i]) >= least_sigma)) continue;
    const double left = seen[i - 1].height, here = seen[i].height, right = seen[i + 1].height;
    if (left >= here || right > here) continue;
    found_peak p = seen[i];
    const double bend = left - 2.0 * here + right;
    if (bend < 0.0) p.position += 0.25 * (seen[i + 1].position - seen[i - 1].position) * (left - right) / bend;
    peaks.push_back(p);
  }
  return peaks;
}

std::optional<width_line> observed_width(std::span<const double> x, std::span<const double> curve,
                                         std::span<const double> var) {
  constexpr double growth = 1.25, least_sigma = 8.0;
  // the height is largest through a window a little wider than the peak: 1.12 for a Gaussian, 1.22 for a Lorentzian
  constexpr double window_over_width = 1.16;
  constexpr std::size_t most = 16;
  if (x.size() < 20) return {};
  const double step = (x.back() - x.front()) / static_cast<double>(x.size() - 1);
  struct candidate {
    double width = 0;
    found_peak peak;
  };
  std::vector<candidate> all, taken;
  for (double width = 2.4 * step; width < 0.05 * (x.back() - x.front()); width *= growth)
    for (const found_peak& p : find_peaks(x, curve, var, {width, 0.0, x.front()}, least_sigma))
      all.push_back({width, p});
  std::ranges::stable_sort(all, std::ranges::greater{}, [](const candidate& c) { return c.peak.height; });
  for (const candidate& c : all) {
    if (taken.size() == most) break;
    if (std::ranges::none_of(taken, [&](const candidate& t) {
          return std::abs(t.peak.position - c.peak.position) < std::max(t.width, c.width);
        }))
      taken.push_back(c);
  }
  if (taken.empty()) return {};
  std::vector<std::pair<double, double>> of;
  for (const candidate& c : taken) of.emplace_back(c.peak.position, c.width / window_over_width);
  return line_through(std::move(of));
}

std::vector<place> merged_lines(const fit_view& fit, const width_line& width, int only_phase) {
  constexpr double resolved = 0.6, least_weight = 0.02;
  std::vector<double> highest(fit.phases.size(), 0.0);
  for (const line& l : fit.lines) {
    double& h = highest[static_cast<std::size_t>(l.phase)];
    h = std::max(h, l.weight);
  }
  std::vector<place> lines;
  for (const line& l : fit.lines) {
    const phase_view& phase = fit.phases[static_cast<std::size_t>(l.phase)];
    if (!phase.contributes || (only_phase >= 0 && l.phase != only_phase)) continue;
    const double weight = phase.matching ? 1.0 : l.weight / highest[static_cast<std::size_t>(l.phase)];
    if (weight > 1e-4) lines.push_back({l.position, weight, phase.matching});
  }
  std::ranges::sort(lines, {}, &place::position);
  std::vector<place> merged;
  for (const place& l : lines) {
    if (!merged.empty() && l.position - merged.back().position < resolved * width.at(l.position)) {
      place& last = merged.back();
      last.position += (l.position - last.position) * l.weight / (last.weight + l.weight);
      last.weight += l.weight;
    } else {
      merged.push_back(l);
    }
  }
  std::erase_if(merged, [](const place& p) { return p.weight < least_weight; });
  return merged;
}

match best_match(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width,
                 movement how, double reach) {
  constexpr double within = 0.5;
  match best;
  best.how = how;
  best.observed = static_cast<int>(observed.size());
  if (observed.empty() || calculated.empty()) return best;
  matcher m(observed, calculated, width, how);
  const double first = observed.front().position, last = observed.back().position;
  const double narrow = std::min(width.at(first), width.at(last));
  const double largest = how == movement::stretch ? 2.0 * std::tan(0.5 * std::min(last, 150.0) * degree) / degree : 1.0;
  const double step = narrow / (3.0 * largest);
  best.score = m.score(0.0);
  const int n = static_cast<int>(reach / step);
  for (int k = -n; k <= n; ++k)
    if (const double s = m.score(k * step); s > best.score) best.score = s, best.a = k * step;
  for (int round = 0; round < 4; ++round) {
    double dd = 0.0, ds = 0.0, ss = 0.0;
    const auto pairs = m.pairs(best.a, within);
    for (const pair& q : pairs) {
      const double s = m.slope(q);
      ds += q.distance * s, ss += s * s, dd += q.distance * q.distance;
    }
    best.matched = static_cast<int>(pairs.size());
    if (pairs.size() < 2) break;
    best.sigma = std::sqrt(dd / static_cast<double>(pairs.size() - 1) / ss);
    if (reach > 0.0) best.a += ds / ss;
  }
  best.score = m.score(best.a);
  double covered = 0.0;
  for (const place& p : calculated)
    if (p.position > first - narrow && p.position < last + narrow) covered += 2.0 * within * width.at(p.position);
  const double chance = 1.0 - std::exp(-covered / (last - first + narrow));
  best.odds = binomial_tail(best.matched, best.observed, chance) * std::max(1.0, 2.0 * n / 3.0);
  return best;
}

moved_sum best_moved_sum(const fit_view& fit, movement how, double reach) {
  constexpr int steps = 12;
  std::vector<double> bragg(fit.size()), column(fit.size()), path(fit.size());
  double largest = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    bragg[i] = fit.calc[i] - fit.background[i];
    const double theta = 0.5 * std::min(fit.x[i], 170.0) * degree;
    path[i] = how == movement::common ? 1.0 : how == movement::stretch ? std::tan(theta) : std::cos(theta);
    largest = std::max(largest, path[i]);
  }
  const auto sum = [&](double a) {
    std::size_t hint = 0;
    for (std::size_t i = 0; i < fit.size(); ++i)
      column[i] = curve_at(fit.x, bragg, fit.x[i] - a * path[i] / largest, hint);
    return least_sum(fit, {column});
  };
  const auto [a, least] = least_on_grid(-reach, reach / steps, 2 * steps + 1, sum);
  return {how == movement::stretch ? a * degree / (2.0 * largest) : a / largest, least};
}

std::vector<double> plain_peaks(const fit_view& fit, int phase, double factor) {
  constexpr double reach = 10.0;  // in widths
  std::vector<double> sum(fit.size(), 0.0);
  for (const line& l : fit.lines) {
    if (l.phase != phase || !(l.weight > 0.0)) continue;
    const double width = l.width * factor;
    const double gauss = (1.0 - l.eta) * std::sqrt(four_ln2 / std::numbers::pi) / width;
    const double lorentz = l.eta * 2.0 / (std::numbers::pi * width);
    const auto first = std::ranges::lower_bound(fit.x, l.position - reach * width) - fit.x.begin();
    for (auto i = static_cast<std::size_t>(first); i < fit.size() && fit.x[i] < l.position + reach * width; ++i) {
      const double u = (fit.x[i] - l.position) / width;
      sum[i] += l.weight * (gauss * std::exp(-four_ln2 * u * u) + lorentz / (1.0 + 4.0 * u * u));
    }
  }
  return sum;
}

width_sum best_width_factor(const fit_view& fit) {
  constexpr double largest = 6.0;
  constexpr int steps = 12;
  const auto sum = [&](double ln_factor) {
    std::vector<std::vector<double>> columns;
    for (int ph = 0; ph < static_cast<int>(fit.phases.size()); ++ph)
      if (fit.phases[static_cast<std::size_t>(ph)].contributes)
        columns.push_back(plain_peaks(fit, ph, std::exp(ln_factor)));
    return least_sum(fit, std::move(columns));
  };
  const double reach = std::log(largest);
  const auto [ln_factor, least] = least_on_grid(-reach, reach / steps, 2 * steps + 1, sum);
  return {std::exp(ln_factor), least, sum(0.0)};
}

}  // namespace kv_misfit

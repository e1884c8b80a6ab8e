// Peaks: found in a curve, matched with the calculated reflections, moved and widened until the sum is least.
#include <algorithm>
#include <array>
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

/// A straight line through the medians of the lower and the upper half of the positions; the median of all where that
/// line would fall: a doublet that is not resolved below and resolved above is no narrowing of the peaks.
width_line line_through(std::vector<std::pair<double, double>> of) {
  constexpr std::size_t enough = 6;
  std::ranges::sort(of);
  std::vector<double> all, x[2], w[2];
  for (std::size_t k = 0; k < of.size(); ++k) {
    const std::size_t half = 2 * k < of.size() ? 0 : 1;
    all.push_back(of[k].second);
    x[half].push_back(of[k].first), w[half].push_back(of[k].second);
  }
  width_line line{middle_of(all), 0.0, of.front().first, 0.0};
  if (of.size() < enough) return line;
  const double x0 = middle_of(x[0]), x1 = middle_of(x[1]), w0 = middle_of(w[0]), w1 = middle_of(w[1]);
  if (!(w1 > w0)) return line;
  line.slope = (w1 - w0) / (x1 - x0);
  line.at_start = w0 + line.slope * (of.front().first - x0);
  line.least = 0.5 * w0;
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
  matcher(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width)
      : observed_(observed), width_(width) {
    for (const found_peak& p : observed) all_ += std::sqrt(p.height);
    for (const place& p : calculated) start_.push_back(p.position);
    place_at({});
  }
  void place_at(const movement& by) {
    moved_.clear();
    for (const double p : start_) moved_.push_back(moved(by, p));
  }
  /// Each observed peak with the nearest calculated one, shifted by so much more, where that is within so many widths.
  template <class F>
  void for_pairs(double shift, double within, F&& f) const {
    std::size_t j = 0;
    for (std::size_t i = 0; i < observed_.size() && !moved_.empty(); ++i) {
      const double p = observed_[i].position - shift;
      while (j + 1 < moved_.size() && std::abs(moved_[j + 1] - p) <= std::abs(moved_[j] - p)) ++j;
      const double width = width_.at(observed_[i].position), distance = p - moved_[j];
      if (std::abs(distance) <= within * width) f(pair{i, j, distance}, distance / width);
    }
  }
  [[nodiscard]] double score(double shift) const {
    constexpr double within = 0.7;
    double sum = 0.0;
    for_pairs(shift, within, [&](const pair& q, double in_widths) {
      sum += std::sqrt(observed_[q.observed].height) * (1.0 - std::abs(in_widths) / within);
    });
    return all_ > 0.0 ? sum / all_ : 0.0;
  }
  [[nodiscard]] double position(const pair& q) const { return observed_[q.observed].position; }

 private:
  std::span<const found_peak> observed_;
  const width_line& width_;
  std::vector<double> start_, moved_;
  double all_ = 0;
};

constexpr double match_within = 0.5;  ///< widths between peaks that stand on each other

/// What a movement by 1 does at an angle [deg].
struct slopes {
  double shift = 1, stretch = 0, displacement = 0;
};
slopes slopes_at(double position) {
  const double theta = 0.5 * std::min(position, 170.0) * degree;
  return {1.0, 2.0 * std::tan(theta) / degree, std::cos(theta)};
}

/// Least squares of the distances of matched peaks on the movements of the family.
void refine(const matcher& m, match& best) {
  double a11 = 0, a12 = 0, a22 = 0, b1 = 0, b2 = 0, dd = 0;
  int n = 0;
  m.for_pairs(0.0, match_within, [&](const pair& q, double) {
    const slopes s = slopes_at(m.position(q));
    const double s1 = best.how == family::stretch        ? s.stretch
                      : best.how == family::displacement ? s.displacement
                                                         : 1.0;
    const double s2 = best.how == family::common_and_stretch ? s.stretch : 0.0;
    a11 += s1 * s1, a12 += s1 * s2, a22 += s2 * s2;
    b1 += s1 * q.distance, b2 += s2 * q.distance, dd += q.distance * q.distance;
    ++n;
  });
  const int unknowns = best.how == family::common_and_stretch ? 2 : 1;
  if (n <= unknowns) return;
  if (unknowns == 1) a22 = 1.0;
  const double det = a11 * a22 - a12 * a12;
  if (!(det > 0.0)) return;
  const double x1 = (a22 * b1 - a12 * b2) / det, x2 = (a11 * b2 - a12 * b1) / det;
  const double scatter = std::max(0.0, dd - x1 * b1 - x2 * b2) / (n - unknowns);
  const double sigma1 = std::sqrt(scatter * a22 / det);
  best.sigma = {};
  switch (best.how) {
    case family::stretch: best.by.stretch += x1, best.sigma.stretch = sigma1; break;
    case family::displacement: best.by.displacement += x1, best.sigma.displacement = sigma1; break;
    case family::common_and_stretch:
      best.by.stretch += x2, best.sigma.stretch = std::sqrt(scatter * a11 / det);
      [[fallthrough]];
    case family::common: best.by.shift += x1, best.sigma.shift = sigma1; break;
  }
}

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

double moved(const movement& by, double position) {
  const double theta = 0.5 * position * degree;
  double at = position;
  if (by.stretch != 0.0) at = 2.0 * std::asin(std::min(1.0, std::sin(theta) * std::exp(by.stretch))) / degree;
  return at + by.shift + by.displacement * std::cos(theta);
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
  constexpr double narrowest = 2.4;  // in steps: seven points are seen through it
  constexpr std::size_t most = 16;
  if (x.size() < 20) return {};
  const double step = (x.back() - x.front()) / static_cast<double>(x.size() - 1);
  struct candidate {
    double width = 0;
    found_peak peak;
  };
  std::vector<candidate> all, taken;
  for (double width = narrowest * step; width < 0.05 * (x.back() - x.front()); width *= growth)
    for (const found_peak& p : find_peaks(x, curve, var, {width, 0.0, x.front(), 0.0}, least_sigma))
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
  width_line line = line_through(std::move(of));
  line.least = std::max(line.least, narrowest * step);
  return line;
}

std::vector<place> merged_lines(const fit_view& fit, const width_line& width, int only_phase) {
  constexpr double resolved = 0.6, least_weight = 0.02;
  constexpr int stretches = 16;  // the strength of a line is told beside its neighbours, so that a wrong B hides none
  const double low = fit.x.front(), range = fit.x.back() - low;
  const auto stretch_of = [&](double x) { return std::clamp(static_cast<int>((x - low) / range * stretches), 0, stretches - 1); };
  std::vector<std::array<double, stretches>> highest(fit.phases.size());
  for (const line& l : fit.lines)
    for (const int at : {stretch_of(l.position) - 1, stretch_of(l.position), stretch_of(l.position) + 1}) {
      if (at < 0 || at >= stretches) continue;
      double& h = highest[static_cast<std::size_t>(l.phase)][static_cast<std::size_t>(at)];
      h = std::max(h, l.weight);
    }
  std::vector<place> lines;
  for (const line& l : fit.lines) {
    const auto ph = static_cast<std::size_t>(l.phase);
    if (!fit.phases[ph].contributes || (only_phase >= 0 && l.phase != only_phase)) continue;
    const double strongest = highest[ph][static_cast<std::size_t>(stretch_of(l.position))];
    lines.push_back({l.position, fit.phases[ph].matching ? 1.0 : l.weight / strongest, fit.phases[ph].matching});
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

match match_of(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width,
               const movement& by) {
  match m;
  m.by = by;
  m.observed = static_cast<int>(observed.size());
  if (observed.empty() || calculated.empty()) return m;
  matcher places(observed, calculated, width);
  places.place_at(by);
  m.score = places.score(0.0);
  places.for_pairs(0.0, match_within, [&](const pair&, double) { ++m.matched; });
  const double first = observed.front().position, last = observed.back().position, edge = width.at(first);
  double covered = 0.0;
  for (const place& p : calculated)
    if (const double at = moved(by, p.position); at > first - edge && at < last + edge)
      covered += 2.0 * match_within * width.at(at);
  m.odds = binomial_tail(m.matched, m.observed, 1.0 - std::exp(-covered / (last - first + edge)));
  return m;
}

match refined_match(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width,
                    family how) {
  match m = match_of(observed, calculated, width, {});
  m.how = how;
  if (m.matched > 0) refine(matcher(observed, calculated, width), m);
  return m;
}

match best_match(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width,
                 family how, double reach) {
  constexpr double steps_per_width = 3.0;
  match best;
  best.how = how;
  if (observed.empty() || calculated.empty()) return best;
  const double first = observed.front().position, last = observed.back().position;
  const double step = std::min(width.at(first), width.at(last)) / steps_per_width;
  const double stretch_step = step / slopes_at(std::min(last, 150.0)).stretch;
  const bool shifts = how == family::common || how == family::common_and_stretch;
  const bool stretches = how == family::stretch || how == family::common_and_stretch;
  const int n_shift = shifts ? static_cast<int>(reach / step) : 0;
  const int n_stretch = stretches ? static_cast<int>(largest_stretch / stretch_step) : 0;
  const int n_displacement = how == family::displacement ? static_cast<int>(reach / step) : 0;
  matcher places(observed, calculated, width);
  for (int e = -n_stretch; e <= n_stretch; ++e)
    for (int c = -n_displacement; c <= n_displacement; ++c) {
      const movement base{0.0, e * stretch_step, c * step};
      places.place_at(base);
      for (int k = -n_shift; k <= n_shift; ++k)
        if (const double s = places.score(k * step); s > best.score) {
          best.score = s, best.by = base;
          best.by.shift = k * step;
        }
    }
  for (int round = 0; round < 4; ++round) {
    places.place_at(best.by);
    refine(places, best);
  }
  const match found = match_of(observed, calculated, width, best.by);
  best.score = found.score, best.matched = found.matched, best.observed = found.observed;
  const double trials = (2.0 * n_shift + 1) * (2.0 * n_stretch + 1) * (2.0 * n_displacement + 1);
  best.odds = found.odds * std::max(1.0, trials / (steps_per_width * (how == family::common_and_stretch ? 3.0 : 1.0)));
  return best;
}

namespace {

/// The Bragg part on its way: its sum with observed minus background when it is moved.
class moving_bragg {
 public:
  explicit moving_bragg(const fit_view& f) : fit(f), bragg(f.size()), column(f.size()) {
    for (std::size_t i = 0; i < fit.size(); ++i) bragg[i] = fit.calc[i] - fit.background[i];
  }
  double sum(const movement& by) {
    move(by);
    return least_sum(fit, {column});
  }
  /// One step of Gauss and Newton in shift, stretch and height.
  movement better(const movement& by, double most) {
    move(by);
    double a[3][4] = {};
    for (std::size_t i = 1; i + 1 < fit.size(); ++i) {
      const double slope = (column[i + 1] - column[i - 1]) / (fit.x[i + 1] - fit.x[i - 1]);
      const slopes s = slopes_at(fit.x[i]);
      const double row[4] = {-slope, -slope * s.stretch, column[i], fit.y[i] - fit.background[i]};
      for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 4; ++k) a[j][k] += row[j] * row[k] / fit.var[i];
    }
    for (int j = 0; j < 3; ++j) {  // elimination without pivoting: the matrix is positive definite
      if (!(a[j][j] > 0.0)) return by;
      for (int r = 0; r < 3; ++r) {
        if (r == j) continue;
        const double f = a[r][j] / a[j][j];
        for (int k = j; k < 4; ++k) a[r][k] -= f * a[j][k];
      }
    }
    const double height = a[2][3] / a[2][2];
    if (!(height > 0.0)) return by;
    movement next{a[0][3] / a[0][0] / height, a[1][3] / a[1][1] / height, 0.0};
    const double low = std::abs(next.shift + next.stretch * slopes_at(fit.x.front()).stretch);
    const double high = std::abs(next.shift + next.stretch * slopes_at(fit.x.back()).stretch);
    const double damp = std::min(1.0, most / std::max({low, high, 1e-12}));
    return {by.shift + damp * next.shift, by.stretch + damp * next.stretch, by.displacement};
  }

 private:
  void move(const movement& by) {
    std::size_t hint = 0;
    for (std::size_t i = 0; i < fit.size(); ++i) {
      const slopes s = slopes_at(fit.x[i]);
      const double from = fit.x[i] - by.shift - by.stretch * s.stretch - by.displacement * s.displacement;
      column[i] = curve_at(fit.x, bragg, from, hint);
    }
  }
  const fit_view& fit;
  std::vector<double> bragg, column;
};

}  // namespace

moved_sum best_moved_sum(const fit_view& fit, family how, double reach) {
  constexpr int steps = 12;
  moving_bragg curve(fit);
  const slopes end = slopes_at(fit.x.back()), start = slopes_at(fit.x.front());
  const auto by = [&](family one, double a) {
    if (one == family::stretch) return movement{0.0, a / end.stretch, 0.0};
    if (one == family::displacement) return movement{0.0, 0.0, a / start.displacement};
    return movement{a, 0.0, 0.0};
  };
  const auto along = [&](family one) {
    const auto [a, least] = least_on_grid(-reach, reach / steps, 2 * steps + 1,
                                          [&](double amount) { return curve.sum(by(one, amount)); });
    return moved_sum{by(one, a), least};
  };
  if (how != family::common_and_stretch) return along(how);
  moved_sum best = along(family::common);
  if (const moved_sum other = along(family::stretch); other.sum < best.sum) best = other;
  for (int round = 0; round < 10; ++round) {
    const movement next = curve.better(best.by, reach / steps);
    const double sum = curve.sum(next);
    if (!(sum < best.sum)) break;
    best = {next, sum};
  }
  return best;
}

std::vector<double> line_widths(const fit_view& fit, double factor) {
  std::vector<double> widths;
  for (const line& l : fit.lines) widths.push_back(l.width * factor);
  return widths;
}

std::vector<double> plain_peaks(const fit_view& fit, int phase, std::span<const double> widths) {
  constexpr double reach = 10.0;  // in widths
  std::vector<double> sum(fit.size(), 0.0);
  for (std::size_t k = 0; k < fit.lines.size(); ++k) {
    const line& l = fit.lines[k];
    if (l.phase != phase) continue;
    const double width = widths[k];
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

namespace {

/// Sums of a fit with other widths.
class widened_fit {
 public:
  explicit widened_fit(const fit_view& f) : fit(f), rest_(f.size()) {
    for (int ph = 0; ph < static_cast<int>(fit.phases.size()); ++ph)
      if (fit.phases[static_cast<std::size_t>(ph)].contributes) phases_.push_back(ph);
    for (std::size_t i = 0; i < fit.size(); ++i) {
      rest_[i] = fit.calc[i] - fit.background[i];
      now_ += (fit.y[i] - fit.calc[i]) * (fit.y[i] - fit.calc[i]) / fit.var[i];
    }
    const auto columns = plain(line_widths(fit));
    for (std::size_t j = 0; j < phases_.size(); ++j) add(rest_, columns[j], -scale(j));
    plain_now_ = std::min(now_, least_sum(fit, columns));
  }
  /// By how much plain peaks of these widths, with heights of their own, make the sum fall.
  [[nodiscard]] double fall_plain(std::span<const double> widths) const { return plain_now_ - least_sum(fit, plain(widths)); }
  /// The same, or by how much their change added to the calculated curve does.
  [[nodiscard]] double fall(double factor) const {
    auto columns = plain(line_widths(fit, factor));
    std::vector<double> added = rest_;
    for (std::size_t j = 0; j < phases_.size(); ++j) add(added, columns[j], scale(j));
    return std::max(plain_now_ - least_sum(fit, std::move(columns)), now_ - least_sum(fit, {std::move(added)}));
  }

 private:
  [[nodiscard]] std::vector<std::vector<double>> plain(std::span<const double> widths) const {
    std::vector<std::vector<double>> columns;
    for (const int ph : phases_) columns.push_back(plain_peaks(fit, ph, widths));
    return columns;
  }
  static void add(std::vector<double>& to, const std::vector<double>& curve, double height) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] += height * curve[i];
  }
  [[nodiscard]] double scale(std::size_t j) const { return fit.phases[static_cast<std::size_t>(phases_[j])].scale; }

  const fit_view& fit;
  std::vector<int> phases_;
  std::vector<double> rest_;  ///< what is calculated but not plain
  double now_ = 0, plain_now_ = 0;
};

}  // namespace

width_change best_width_factor(const fit_view& fit, const width_line& observed) {
  constexpr double largest = 6.0;
  constexpr int steps = 12;
  const widened_fit widened(fit);
  const double reach = std::log(largest);
  const auto [ln_factor, least] = least_on_grid(-reach, reach / steps, 2 * steps + 1, [&](double ln_f) {
    return -widened.fall(std::exp(ln_f));
  });
  std::vector<double> widths, ratios;
  for (const line& l : fit.lines) {
    widths.push_back(observed.at(l.position));
    if (l.position > fit.x.front() && l.position < fit.x.back()) ratios.push_back(widths.back() / l.width);
  }
  const double by_observed = ratios.empty() ? 0.0 : widened.fall_plain(widths);
  if (by_observed > -least) return {middle_of(std::move(ratios)), by_observed};
  return {std::exp(ln_factor), -least};
}

}  // namespace kv_misfit

// Movements: observed peaks matched with calculated ones, and the calculated curve moved.
#include <cmath>

#include "kv_misfit_parts.hpp"

namespace kv_misfit {

namespace {

/// Chance of at least k successes in n trials of probability p, which is kept off 0 and 1.
double binomial_tail(int k, int n, double p) {
  constexpr double edge = 1e-12;
  p = std::clamp(p, edge, 1.0 - edge);
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

/// Two lists of positions, the calculated one movable.
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
  /// Per shift from -n to n steps the observed peaks (roots of heights) that it brings within a step of a calculated
  /// one.
  void vote(double step, int n, std::vector<double>& votes) const {
    votes.assign(static_cast<std::size_t>(2 * n + 1), 0.0);
    if (n == 0) return;
    for (const found_peak& p : observed_) {
      const double reach = n * step;
      for (auto q = std::ranges::lower_bound(moved_, p.position - reach); q != moved_.end() && *q <= p.position + reach;
           ++q) {
        const int k = static_cast<int>(std::lround((p.position - *q) / step));
        for (int near = std::max(k - 1, -n); near <= std::min(k + 1, n); ++near)
          votes[static_cast<std::size_t>(near + n)] += std::sqrt(p.height);
      }
    }
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
    const double s1 = best.how == family::stretch ? s.stretch : best.how == family::displacement ? s.displacement : 1.0;
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
    case family::stretch:
      best.by.stretch += x1, best.sigma.stretch = sigma1;
      break;
    case family::displacement:
      best.by.displacement += x1, best.sigma.displacement = sigma1;
      break;
    case family::common_and_stretch:
      best.by.stretch += x2, best.sigma.stretch = std::sqrt(scatter * a11 / det);
      [[fallthrough]];
    case family::common:
      best.by.shift += x1, best.sigma.shift = sigma1;
      break;
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

double moved(const movement& by, double position) {
  const double theta = 0.5 * position * degree;
  double at = position;
  if (by.stretch != 0.0) at = 2.0 * std::asin(std::min(1.0, std::sin(theta) * std::exp(by.stretch))) / degree;
  return at + by.shift + by.displacement * std::cos(theta);
}

namespace {

/// Chance that an observed peak has a calculated one within reach wherever it stands.
double covered_part(std::span<const found_peak> observed, std::span<const place> calculated, const width_line& width,
                    const movement& by) {
  const double first = observed.front().position, last = observed.back().position, edge = width.at(first);
  double covered = 0.0;
  for (const place& p : calculated)
    if (const double at = moved(by, p.position); at > first - edge && at < last + edge)
      covered += 2.0 * match_within * width.at(at);
  return 1.0 - std::exp(-covered / (last - first + edge));
}

/// The steps of a search: as many to either side as lie within its reach, a third of the smallest width apart.
struct search_grid {
  double step = 0, stretch_step = 0;
  int n_shift = 0, n_stretch = 0, n_displacement = 0;
  double trials = 1;  ///< that do not depend on each other
};
search_grid grid_of(std::span<const found_peak> observed, const width_line& width, family how, double reach) {
  constexpr double steps_per_width = 3.0;
  search_grid g;
  const double first = observed.front().position, last = observed.back().position;
  g.step = std::min(width.at(first), width.at(last)) / steps_per_width;
  g.stretch_step = g.step / slopes_at(std::min(last, 150.0)).stretch;
  const int n = static_cast<int>(reach / g.step);
  const auto count = [&](int steps) {
    g.trials *= std::max(1.0, (2.0 * steps + 1.0) / steps_per_width);
    return steps;
  };
  if (how == family::common || how == family::common_and_stretch) g.n_shift = count(n);
  if (how == family::stretch || how == family::common_and_stretch)
    g.n_stretch = count(static_cast<int>(largest_stretch / g.stretch_step));
  if (how == family::displacement) g.n_displacement = count(n);
  return g;
}

/// The best place of the grid. Shifts are voted for by the distances of all pairs; the best vote of each row is tried
/// with its neighbours.
void search(matcher& places, const search_grid& g, match& best) {
  std::vector<double> votes;
  const auto try_shift = [&](const movement& base, int k) {
    if (const double s = places.score(k * g.step); s > best.score) {
      best.score = s, best.by = base;
      best.by.shift = k * g.step;
    }
  };
  best.score = places.score(0.0);
  for (int e = -g.n_stretch; e <= g.n_stretch; ++e)
    for (int c = -g.n_displacement; c <= g.n_displacement; ++c) {
      const movement base{0.0, e * g.stretch_step, c * g.step};
      places.place_at(base);
      places.vote(g.step, g.n_shift, votes);
      const int k = static_cast<int>(std::ranges::max_element(votes) - votes.begin()) - g.n_shift;
      for (int near = -1; near <= 1; ++near)
        if (std::abs(k + near) <= g.n_shift) try_shift(base, k + near);
    }
}

}  // namespace

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
  m.odds = binomial_tail(m.matched, m.observed, covered_part(observed, calculated, width, by));
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
                 family how, double reach, double most_odds) {
  match best;
  best.how = how;
  best.observed = static_cast<int>(observed.size());
  if (observed.empty() || calculated.empty()) return best;
  const search_grid grid = grid_of(observed, width, how, reach);
  const double of_all = binomial_tail(best.observed, best.observed, covered_part(observed, calculated, width, {}));
  if (of_all * grid.trials > most_odds) return best;  // lines so close that all would match somewhere
  matcher places(observed, calculated, width);
  search(places, grid, best);
  for (int round = 0; round < 4; ++round) {
    places.place_at(best.by);
    refine(places, best);
  }
  const match found = match_of(observed, calculated, width, best.by);
  best.score = found.score, best.matched = found.matched, best.odds = found.odds * grid.trials;
  return best;
}

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
    const auto [a, least] =
        least_on_grid(-reach, reach / steps, 2 * steps + 1, [&](double amount) { return curve.sum(by(one, amount)); });
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

}  // namespace kv_misfit

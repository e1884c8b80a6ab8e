// Agreement factors of a set of points by the published sums, calculated from a pattern without the program's own.
#pragma once
#include <cmath>
#include <vector>

#include "kalvaris_params.hpp"

namespace agreement_by_hand {

struct counted_point {
  double y, c, net, v;
  bool bragg;
  [[nodiscard]] double d() const { return y - c; }
  [[nodiscard]] double r() const { return d() / std::sqrt(v); }
};
using points = std::vector<counted_point>;

/// Variance of a point by the scheme, from what the data brought.
inline double variance_of(const kalvaris_params::pattern_type& p, std::size_t i, double c) {
  const double y = p.y[i], var = p.var[i], own = std::abs(c) / p.iww[i] * p.cnorm;
  const double of_mean = y + 2 * c, mean = (1 - p.wght.f) * c + p.wght.f * y;
  return p.iwgt == 0   ? var
         : p.iwgt == 1 ? own
         : p.iwgt == 2 ? var + of_mean * of_mean / 225
                       : var + std::pow(p.wght.a * mean, 2) + p.wght.b * mean + p.wght.d;
}

/// The points that count. With iwgt 1 the cycle has replaced the variances.
inline points points_of(const kalvaris_params::pattern_type& p, int maxreflx) {
  points list;
  for (std::size_t i = 0; i < static_cast<std::size_t>(p.npts); ++i) {
    if (p.kr[i] == maxreflx) continue;
    const double b = p.bk[i], c = p.yc[i] + b;
    list.push_back({p.y[i], c, p.y[i] - b, p.iwgt == 1 ? p.var[i] : variance_of(p, i, c), p.kr[i] != 0});
  }
  return list;
}

inline points bragg_points(points list) {
  std::erase_if(list, [](const counted_point& q) { return !q.bragg; });
  return list;
}

template <class F>
double sum_over(const points& list, F&& f) {
  double sum = 0;
  for (const counted_point& q : list) sum += f(q);
  return sum;
}

/// Sum of the squares of the steps from one weighted residual to the next.
inline double durbin_watson_sum(const points& all) {
  double sum = 0;
  for (std::size_t i = 1; i < all.size(); ++i) sum += std::pow(all[i].r() - all[i - 1].r(), 2);
  return sum;
}

/// Residuals of one sign in a row, as far as they go together, are one observation. The point behind the last run is
/// not known, so that the last residual stays out; so does the first point of the pattern, which is no Bragg point
/// here.
inline double correlated_residuals(const points& all) {
  const points list = bragg_points(all);
  double sum = 0, together = 0;
  for (std::size_t i = 0; i + 1 < list.size(); ++i) {
    const double r = list[i].r(), next = list[i + 1].r();
    double share = 0;
    if (r * next > 0) {
      const double q = std::sqrt(2 * M_PI * (r * r + next * next));
      share = q / (q + 2);
    }
    together += std::abs(r) * share;
    sum += (1 - share * share) * r * r;
    if (share == 0 || i + 2 == list.size()) sum += together * together, together = 0;
  }
  return std::sqrt(sum / sum_over(list, [](const counted_point& q) { return q.r() * q.r(); }));
}

struct factors {
  double n, freed, s1, s2, s3, d1, d2, net, net2, deviance, inverse;
  double rp, rwp, re, crp, crwp, cre, chi2, dstar, dw, dw_limit, deviate;
};

/// share: parameters that the pattern answers for; durbin_watson: the sum over all points, for either set.
inline factors factors_of(const points& list, double durbin_watson, double share) {
  factors f{};
  f.n = static_cast<double>(list.size());
  f.freed = f.n - share;
  for (const counted_point& q : list) {
    f.s1 += std::abs(q.d()), f.s2 += q.r() * q.r(), f.s3 += q.c;
    f.d1 += q.y, f.d2 += q.y * q.y / q.v;
    f.net += q.net, f.net2 += q.net * q.net / q.v;
    if (q.c == 0) continue;
    f.inverse += 1 / (6 * q.c);
    if (q.y != 0) f.deviance += 2 * (q.y * std::log(std::abs(q.y / q.c)) - q.y + q.c);
  }
  f.rp = 100 * f.s1 / f.d1, f.rwp = 100 * std::sqrt(f.s2 / f.d2), f.re = 100 * std::sqrt(f.freed / f.d2);
  f.crp = 100 * f.s1 / f.net, f.crwp = 100 * std::sqrt(f.s2 / f.net2), f.cre = 100 * std::sqrt(f.freed / f.net2);
  f.chi2 = f.s2 / f.freed;
  f.dstar = f.deviance / (f.inverse + f.freed);
  f.dw = durbin_watson / f.s2;
  f.dw_limit = 2 * ((f.n - 1) / f.freed - 3.0902 / std::sqrt(f.n + 2));
  f.deviate = std::sqrt(f.freed / 2) * (f.chi2 - 1);
  return f;
}

}  // namespace agreement_by_hand

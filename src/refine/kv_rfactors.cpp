#include "kv_rfactors.hpp"

#include <cmath>

#include "kv_background.hpp"

namespace kv_rfactors {

namespace {

using kalvaris_params::agreement_set;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;

/// What one point adds to the sums.
struct point_terms {
  double d = 0, var = 1, y = 0, c = 0, net = 0;
  static constexpr double nothing = 1.0e-10;  // between the peaks of net data the calculated value is 0
  [[nodiscard]] double deviance() const {
    return std::abs(c) > nothing && std::abs(y) > nothing ? y * std::log(std::abs(y / c)) - d : 0.0;
  }
  [[nodiscard]] double inverse() const { return std::abs(c) > nothing ? 1.0 / c : 0.0; }
};

struct sums {
  double s1 = 0, s2 = 0, s3 = 0, d1 = 0, d2 = 0, qq1 = 0, qq2 = 0, devinc = 0, yinv = 0;
  void add(const point_terms& t) {
    devinc += t.deviance();
    yinv += t.inverse();
    s1 += std::abs(t.d);
    s2 += t.d * t.d / t.var;
    s3 += t.c;
    d1 += t.y;
    d2 += t.y * t.y / t.var;
    qq1 += t.net;
    qq2 += t.net * t.net / t.var;
  }
  [[nodiscard]] sums without(const sums& o) const {
    return {s1 - o.s1,   s2 - o.s2,   s3 - o.s3,         d1 - o.d1,    d2 - o.d2,
            qq1 - o.qq1, qq2 - o.qq2, devinc - o.devinc, yinv - o.yinv};
  }
};

point_terms terms_at(const pattern_type& p, int i) {
  const auto u = static_cast<std::size_t>(i);
  const double b = kv_background::backa(p, i);
  const double c = static_cast<double>(p.yc[u]) + b;
  return {p.y[u] - c, variance(p, i, c), p.y[u], c, p.y[u] - b};
}

void store(const sums& s, double dw, agreement_set& a) {
  a.s1 = s.s1, a.s2 = s.s2, a.s3 = s.s3, a.d1 = s.d1, a.d2 = s.d2, a.qq1 = s.qq1, a.qq2 = s.qq2;
  a.devinc = 2.0 * s.devinc;
  a.yinv = s.yinv / 6.0;
  a.dw = dw;
  a.cr_patt = 100.0 * s.s1 / s.qq1;
  a.r_patt = 100.0 * s.s1 / s.d1;
  a.r_wpatt = 100.0 * std::sqrt(s.s2 / s.d2);
  a.cr_wpatt = 100.0 * std::sqrt(s.s2 / s.qq2);
}

/// Sum over runs of residuals of one sign, each run counted as one correlated observation.
double berar_lelann(const pattern_type& p, int maxreflx, double residual) {
  double previous_d = 0.0, previous_var = 1.0, amplitude = 0.0, sum = 0.0;
  bool in_run = false;
  for (int i = 1; i < p.npts; ++i) {
    const std::int64_t kr = p.kr[static_cast<std::size_t>(i)];
    if (kr == 0 || kalvaris_params::kr_excluded(kr, maxreflx)) continue;
    const point_terms t = terms_at(p, i);
    if (t.d * previous_d <= 0.0) {
      sum += amplitude * amplitude;
      amplitude = std::abs(previous_d) / std::sqrt(previous_var);
      in_run = false;
    } else {
      const double previous2 = previous_d * previous_d / previous_var;
      if (!in_run) sum += amplitude * amplitude;
      const double q = std::sqrt((t.d * t.d / t.var + previous2) * 6.2831855);
      const double share = q / (q + 2.0);
      amplitude = std::sqrt(previous2) * share + (in_run ? amplitude : 0.0);
      sum += (1.0 - share * share) * previous2;
      in_run = true;
    }
    previous_d = t.d;
    previous_var = t.var;
  }
  return std::sqrt((amplitude * amplitude + sum) / residual);
}

void expected_values(agreement_set& a, int points, int share) {
  const double freed = std::abs(points - share);
  a.freed = freed;
  const double re = 100.0 * std::sqrt(freed / a.d2);
  a.r_expected = re;
  a.cr_expected = 100.0 * std::sqrt(freed / a.qq2);
  a.chi2 = (a.r_wpatt / re) * (a.r_wpatt / re);
  a.dstar = a.devinc / (a.yinv + freed);
  a.qdw = 2.0 * ((points - 1) / freed - 3.0902 / std::sqrt(points + 2.0));
  a.n_s = std::sqrt(freed / 2.0) * (a.chi2 - 1.0);
}

}  // namespace

double variance(const pattern_type& p, int i, double ycal) {
  const auto u = static_cast<std::size_t>(i);
  switch (p.iwgt) {
    case 2: {
      const double mean = (p.y[u] + 2.0 * ycal) / 15.0;
      return mean * mean + p.var[u];
    }
    case 3: {
      const auto& w = p.wght;
      const double mean = ycal + w.f * (p.y[u] - ycal);
      return p.var[u] + (w.a * mean) * (w.a * mean) + w.b * mean + w.d;
    }
    default:
      return p.var[u];
  }
}

int parameter_share(const state_type& st) { return st.run.maxs / st.run.n_patt; }

void chisq1(state_type& st, int ip, bool last) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  const int maxreflx = st.dim.maxreflx;
  sums all, outside;
  double dw = 0.0, previous = 0.0;
  bool first = true;
  for (int i = 0; i < p.npts; ++i) {
    const std::int64_t kr = p.kr[static_cast<std::size_t>(i)];
    if (kalvaris_params::kr_excluded(kr, maxreflx)) continue;
    const point_terms t = terms_at(p, i);
    const double r = t.d / std::sqrt(t.var);
    if (!first) dw += (r - previous) * (r - previous);
    previous = r;
    first = false;
    all.add(t);
    if (kr == 0) outside.add(t);
  }
  const sums bragg = all.without(outside);
  store(all, dw / all.s2, p.all);
  store(bragg, dw / bragg.s2, p.bragg);  // kept: the whole Durbin-Watson sum over the smaller residual
  if (last) p.scor = berar_lelann(p, maxreflx, bragg.s2);
}

void calc_rfac(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  expected_values(p.all, p.num, parameter_share(st));
  expected_values(p.bragg, p.num1, parameter_share(st));
}

}  // namespace kv_rfactors

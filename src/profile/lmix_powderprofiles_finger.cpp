#include "lmix_powderprofiles_finger.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace lmix_powderprofiles_finger {
namespace {

/// A height below this acts as this: its share of the aberration is 0 in effect, and no limit needs its own formula.
constexpr double smallest_height = 1e-5;
constexpr double nodes_per_width = 6;  ///< the Lorentzian flanks set it: 5 would err by up to 3e-4 of the height
constexpr double radian = std::numbers::pi / 180;

/// Orders of the rules; the last one bounds the work for very sharp peaks with a long tail.
constexpr std::array ladder{8,   10,  12,  14,  16,  18,  20,  22,  25,  28,  32,  36,   40,   45,   50,
                            56,  63,  70,  78,  88,  98,  110, 123, 138, 155, 174, 195,  218,  244,  273,
                            306, 343, 384, 430, 482, 540, 605, 678, 760, 850, 950, 1060, 1190, 1340, 1500};

/// Roots of the Legendre polynomial by Newton's method from Tricomi's estimate.
gauss_rules::rule make_rule(int n) {
  gauss_rules::rule out;
  out.node.resize(std::size_t(n));
  out.weight.resize(std::size_t(n));
  for (int i = 0; i < (n + 1) / 2; ++i) {
    double x = (1 - (1 - 1.0 / n) / (8.0 * n * n)) * std::cos(std::numbers::pi * (i + 0.75) / (n + 0.5)), slope = 1;
    for (int iteration = 0; iteration < 8; ++iteration) {
      double below = 1, p = x;
      for (int k = 2; k <= n; ++k) {
        const double next = ((2 * k - 1) * x * p - (k - 1) * below) / k;
        below = p;
        p = next;
      }
      slope = n * (below - x * p) / ((1 - x) * (1 + x));
      const double step = p / slope;
      x -= step;
      if (std::abs(step) < 1e-15) break;
    }
    const double weight = 1 / ((1 - x) * (1 + x) * slope * slope);
    out.node[std::size_t(i)] = (1 - x) / 2;
    out.node[std::size_t(n - 1 - i)] = (1 + x) / 2;
    out.weight[std::size_t(i)] = out.weight[std::size_t(n - 1 - i)] = weight;
  }
  return out;
}

/// The two heights over the distance, and the angles [deg] that bound the aberration, as distances from the peak.
struct geometry {
  double apb;      ///< sum of the two heights
  double smaller;  ///< the smaller of the two
  double reach;    ///< peak minus the end of the aberration, < 0 above 90 deg
  double bend;     ///< peak minus the angle where the smaller height stops to matter, between 0 and reach
};

/// Peak minus the angle whose cosine is sqrt(height^2 + 1) cos(peak); the end of the range when there is none.
double distance_to(double height, double twoth0, double cos_peak) {
  const double v = std::sqrt(height * height + 1) * cos_peak;
  if (std::abs(v) > 1) return v > 0 ? twoth0 : twoth0 - 180;
  return twoth0 - std::acos(v) / radian;
}

geometry geometry_of(double s_l, double d_l, double twoth0) {
  const double c = std::cos(twoth0 * radian);
  geometry g{};
  g.apb = s_l + d_l;
  g.smaller = std::min(s_l, d_l);
  g.reach = distance_to(g.apb, twoth0, c);
  const double amb = std::abs(s_l - d_l);
  g.bend = amb > 1e-9 ? distance_to(amb, twoth0, c) : 0;
  return g;
}

/// Sums of one group of nodes before they are normalised.
struct group_sums {
  double weight = 0, slope = 0;
};

/// Appends the nodes from u1 to u2 of the variable u = sqrt(distance/reach), which takes the square-root singularity at
/// the peak out of the integrand. In the outer group both heights cut the diffraction cone, in the inner one only the
/// smaller does.
template <std::floating_point R>
group_sums add_group(axial_peak<R>& out, const geometry& g, double twoth0, const gauss_rules::rule& rule, double u1,
                     double u2, bool outer) {
  const double sin_peak = std::sin(twoth0 * radian), cos_peak = std::cos(twoth0 * radian);
  const double sin_twice = 2 * sin_peak * cos_peak, cos_twice = (cos_peak - sin_peak) * (cos_peak + sin_peak);
  group_sums sums;
  for (std::size_t j = 0; j < rule.node.size(); ++j) {
    const double u = u1 + (u2 - u1) * rule.node[j], offset = g.reach * u * u;
    const double so = std::sin(offset * radian), co = std::cos(offset * radian);
    // cos^2(node) - cos^2(peak) as a product: the difference would cancel near the peak
    const double t = so * (sin_twice * co - cos_twice * so);
    const double c = std::max(std::abs(cos_peak * co + sin_peak * so), 1e-15);
    const double height = t > 0 ? std::abs(cos_peak) / std::sqrt(t) : 0;
    const double slope = rule.weight[j] * (u2 - u1) * 2 * u * (outer ? 1 : 2) * height / c;
    const double weight =
        outer ? rule.weight[j] * (u2 - u1) * 2 * u * std::abs(g.apb * height - 1) / c : slope * g.smaller;
    out.offset.push_back(R(offset));
    out.weight.push_back(R(weight));
    out.slope.push_back(R(slope));
    sums.weight += weight;
    sums.slope += slope;
  }
  return sums;
}

}  // namespace

const gauss_rules::rule& gauss_rules::at_least(int n) {
  rules_.resize(ladder.size());
  const auto found = std::lower_bound(ladder.begin(), ladder.end() - 1, n);
  rule& r = rules_[std::size_t(found - ladder.begin())];
  if (r.node.empty()) r = make_rule(*found);
  return r;
}

template <std::floating_point R>
bool prepare(axial_peak<R>& out, gauss_rules& rules, double twoth0, double asym1, double asym2, double H,
             bool use_hps) {
  if (!(std::abs(twoth0 - 90) >= 0.4) || !(twoth0 > 0 && twoth0 < 180) || !(H > 0)) return false;
  out.folded = use_hps || asym2 < 0.0002;
  const double s_l = out.folded ? (asym1 - asym2) / 2 : asym1, d_l = out.folded ? (asym1 + asym2) / 2 : asym2;
  out.sign_s = s_l < 0 ? R(-1) : R(1);
  out.sign_d = d_l < 0 ? R(-1) : R(1);
  const double s = std::max(std::abs(s_l), smallest_height), d = std::max(std::abs(d_l), smallest_height);
  const geometry g = geometry_of(s, d, twoth0);
  if (!(std::abs(g.reach) >= 1e-6 * H) || !std::isfinite(g.apb)) return false;

  out.inner_is_s = s < d;
  out.offset.clear();
  out.weight.clear();
  out.slope.clear();
  const double u_bend = std::sqrt(std::clamp(g.bend / g.reach, 0.0, 1.0));
  group_sums outer, inner;
  const auto order = [&](double share) {
    return int(std::min(double(ladder.back()), 8 + nodes_per_width * share * std::abs(g.reach) / H));
  };
  if (u_bend < 1) outer = add_group(out, g, twoth0, rules.at_least(order(1 - u_bend * u_bend)), u_bend, 1, true);
  out.outer = out.offset.size();
  if (u_bend > 0) inner = add_group(out, g, twoth0, rules.at_least(order(u_bend * u_bend)), 0, u_bend, false);

  const double norm = outer.weight + inner.weight;
  if (!(norm > 0)) return false;
  for (R& w : out.weight) w = R(double(w) / norm);
  for (R& w : out.slope) w = R(double(w) / norm);
  out.slope_sum_outer = R(outer.slope / norm);
  out.slope_sum_inner = R(inner.slope / norm);
  return true;
}

template bool prepare(axial_peak<float>&, gauss_rules&, double, double, double, double, bool);
template bool prepare(axial_peak<double>&, gauss_rules&, double, double, double, double, bool);

}  // namespace lmix_powderprofiles_finger

// Axial divergence: the distribution of diffracted intensity over angle that finite heights of sample and detector
// cause, and its convolution with a pseudo-Voigt (Finger, Cox & Jephcoat, J. Appl. Cryst. 27 (1994) 892).
// Owns nothing; an axial_peak and the gauss_rules belong to the caller, who prepares a peak once per cycle by one
// thread.
#pragma once
#include <cstddef>
#include <vector>

#include "pseudo_voigt_mod.hpp"

namespace lmix_powderprofiles_finger {

/// Gauss-Legendre rules on (0, 1), made when first asked for and kept: one object per run or thread.
class gauss_rules {
 public:
  struct rule {
    std::vector<double> node, weight;  ///< in ascending order of the node; the weights sum to 1
  };
  /// The rule of at least n nodes (more than 1500 counts as 1500) from a ladder of orders about 12 % apart.
  const rule& at_least(int n);

 private:
  std::vector<rule> rules_;
};

/// The aberration of one reflection as a weighted sum over nodes: the peak is sum of weight * pseudo-Voigt(point -
/// node).
template <std::floating_point R>
struct axial_peak {
  std::vector<R> offset;  ///< peak position minus node [deg]: > 0 below 90 deg, < 0 above
  std::vector<R> weight;  ///< sums to 1
  std::vector<R> slope;   ///< derivative of the unnormalised weight by S/L and D/L where both act, over the same norm
  std::size_t outer = 0;  ///< nodes before this one feel S/L and D/L alike; the others only the smaller of the two
  R slope_sum_outer = 0, slope_sum_inner = 0;  ///< sums of slope over the two groups
  bool inner_is_s = false;                     ///< the smaller one is S/L
  bool folded = false;                         ///< asym1, asym2 are the sum and the difference of S/L and D/L
  R sign_s = 1, sign_d = 1;                    ///< signs of the two heights, which act by their magnitude
};

/// Fills `out` for a reflection at twoth0 [deg, 0 to 180]. asym1, asym2 are S/L and D/L; with use_hps, or with asym2
/// below 0.0002, they are the sum and the difference of the two, so that asym1 alone means S/L = D/L = asym1/2. H > 0
/// [deg] is the FWHM that sets the number of nodes. The sum differs from the integral by less than 5e-5 of the height.
/// Returns false, leaving `out` unspecified, when there is nothing to convolute: within 0.4 deg of 90, where the
/// aberration vanishes and changes sides, when it reaches less than 1e-6 H, or when an argument is not finite.
template <std::floating_point R>
bool prepare(axial_peak<R>& out, gauss_rules& rules, double twoth0, double asym1, double asym2, double H,
             bool use_hps = false);

/// Value and derivatives of a peak at one point: V is a real number or a vector of floats (one lane per point).
template <class V>
struct prof_terms {
  V value;             ///< [1/deg]
  V dprdt;             ///< by the peak position
  V dprdg;             ///< by the FWHM
  V dprde;             ///< by eta
  V dprds{}, dprdd{};  ///< by asym1 and asym2
};

/// Pseudo-Voigt of area 1, delta = point - peak [deg], H the FWHM; inv_H = 1/H.
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline prof_terms<V> psvoigtian(R eta, R inv_H, V delta) {
  using namespace pseudo_voigt_mod;
  const V z = delta * inv_H, x2 = z * z;
  const V gauss = gauss_norm<R> * exp_of(V(x2 * -gauss_a<R>)), lorentz = lorentz_norm<R> / (R(1) + R(4) * x2);
  prof_terms<V> t{};
  const V shape = (R(1) - eta) * gauss + eta * lorentz;
  t.value = shape * inv_H;
  if constexpr (derivatives) {
    const V fall = ((R(1) - eta) * gauss_a<R>)*gauss + (eta * R(4) / lorentz_norm<R>)*lorentz * lorentz;
    t.dprdt = R(2) * z * fall * (inv_H * inv_H);
    t.dprdg = (R(2) * x2 * fall - shape) * (inv_H * inv_H);
    t.dprde = (lorentz - gauss) * inv_H;
  }
  return t;
}

namespace detail {

/// Sums over nodes, G and L being Gaussian and Lorentzian of height 1: what value and derivatives are made from.
template <class V>
struct node_sums {
  V gauss{}, lorentz{}, gauss_x2{}, lorentz2{}, fall_z{};
};

/// Adds nodes first .. last-1. The Gaussian is left out where all lanes are further than 4 FWHM from the node (5e-20 of
/// its height): the lanes are consecutive points, so the first and the last bound the others.
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline V add_nodes(const axial_peak<R>& axial, std::size_t first, std::size_t last, R eta,
                                          R inv_H, V delta, node_sums<V>& sums) {
  using namespace pseudo_voigt_mod;
  const R gauss_fall = (R(1) - eta) * gauss_norm<R> * gauss_a<R>, lorentz_fall = eta * lorentz_norm<R> * R(4);
  const R gauss_part = (R(1) - eta) * gauss_norm<R>, lorentz_part = eta * lorentz_norm<R>;
  const R reach = R(4) / inv_H;
  const R edge_1 = vector_math::first_lane(delta), edge_2 = vector_math::last_lane(delta);
  const R low = edge_1 < edge_2 ? edge_1 : edge_2, high = edge_1 < edge_2 ? edge_2 : edge_1;
  const R* const offset = axial.offset.data();
  const R* const weight = axial.weight.data();
  const R* const slope = axial.slope.data();
  V slope_sum{};
  for (std::size_t j = first; j < last; ++j) {
    const V z = (delta + offset[j]) * inv_H, x2 = z * z;
    const V lorentz = R(1) / (R(1) + R(4) * x2);
    sums.lorentz += weight[j] * lorentz;
    V fall{}, shape{};
    if constexpr (derivatives) {
      const V lorentz2 = lorentz * lorentz;
      sums.lorentz2 += weight[j] * lorentz2;
      fall = lorentz_fall * lorentz2;
      shape = lorentz_part * lorentz;
    }
    if (!(low + offset[j] > reach || high + offset[j] < -reach)) {
      const V gauss = exp_of(V(x2 * -gauss_a<R>));
      sums.gauss += weight[j] * gauss;
      if constexpr (derivatives) {
        sums.gauss_x2 += weight[j] * (x2 * gauss);
        fall += gauss_fall * gauss;
        shape += gauss_part * gauss;
      }
    }
    if constexpr (derivatives) {
      sums.fall_z += weight[j] * (z * fall);
      slope_sum += slope[j] * shape;
    }
  }
  return slope_sum;
}

}  // namespace detail

/// The pseudo-Voigt convoluted with a prepared aberration. The lanes of delta must be consecutive points in order.
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline prof_terms<V> prof_val(const axial_peak<R>& axial, R eta, R inv_H, V delta) {
  using namespace pseudo_voigt_mod;
  detail::node_sums<V> s{};
  const V outer = detail::add_nodes<derivatives>(axial, 0, axial.outer, eta, inv_H, delta, s);
  const V inner = detail::add_nodes<derivatives>(axial, axial.outer, axial.offset.size(), eta, inv_H, delta, s);
  const R gauss_part = (R(1) - eta) * gauss_norm<R>, lorentz_part = eta * lorentz_norm<R>;
  const V shape = gauss_part * s.gauss + lorentz_part * s.lorentz;
  prof_terms<V> t{};
  t.value = shape * inv_H;
  if constexpr (derivatives) {
    t.dprdt = R(2) * s.fall_z * (inv_H * inv_H);
    const V fall_x2 = gauss_part * gauss_a<R> * s.gauss_x2 + lorentz_part * (s.lorentz - s.lorentz2);
    t.dprdg = (R(2) * fall_x2 - shape) * (inv_H * inv_H);
    t.dprde = (lorentz_norm<R> * s.lorentz - gauss_norm<R> * s.gauss) * inv_H;
    const V both = outer * inv_H - t.value * axial.slope_sum_outer;
    const V smaller = inner * inv_H - t.value * axial.slope_sum_inner;
    const V by_s = axial.sign_s * (axial.inner_is_s ? both + smaller : both);
    const V by_d = axial.sign_d * (axial.inner_is_s ? both : both + smaller);
    t.dprds = axial.folded ? R(0.5) * (by_s + by_d) : by_s;
    t.dprdd = axial.folded ? R(0.5) * (by_d - by_s) : by_d;
  }
  return t;
}

}  // namespace lmix_powderprofiles_finger

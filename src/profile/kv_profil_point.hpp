// The formulas of the peak functions for one point or one vector of points: the one source of profil and peak_row.
// Owns nothing. Included by the two sources of kv_profil only; V is a real number or a vector of floats.
#pragma once
#include <cstddef>
#include <initializer_list>
#include <utility>

#include "kv_profil.hpp"

namespace kv_profil::point {

template <class V>
using values = std::array<V, n_peak_class>;

consteval std::uint32_t bits_of(std::initializer_list<peak_class> classes) {
  std::uint32_t bits = 0;
  for (const peak_class c : classes) bits |= 1u << c;
  return bits;
}
constexpr std::uint32_t asym_bits = bits_of({asym_a, asym_b});

/// Classes of a function without those of the asymmetry correction.
struct npr_row {
  int npr;
  std::uint32_t classes;
};
inline constexpr std::array<npr_row, 11> npr_table{{
    {0, bits_of({omega, position, width})},
    {1, bits_of({omega, position, width})},
    {2, bits_of({omega, position, width})},
    {3, bits_of({omega, position, width})},
    {4, bits_of({omega, position, width, shape, shape_2, shape_3, shape_4})},
    {-4, bits_of({omega, position, width, shape_2, shape_4})},
    {5, bits_of({omega, position, width, shape})},
    {6, bits_of({omega, position, width, shape})},
    {7, bits_of({omega, position, width, width_2, s_l, d_l})},
    {11, bits_of({omega, position, width, width_2, shape, shape_2})},
    {12, bits_of({omega, position, width, shape, s_l, d_l})},
}};
constexpr std::uint32_t classes_of(int npr) {
  for (const npr_row& row : npr_table)
    if (row.npr == npr) return row.classes;
  return 0;
}

/// Replaces each class c of `bits` by f(c): a fold, not a loop, so that each value stays in its register.
template <std::uint32_t bits, class V, class F, std::size_t... c>
[[gnu::always_inline]] inline void change(values<V>& t, const F& f, std::index_sequence<c...>) {
  ((bits >> c & 1 ? void(t[c] = f(t[c])) : void()), ...);
}
using all_classes = std::make_index_sequence<n_peak_class>;

/// Functions of x^2 and H alone: from the value times H and its fall -d(value H)/d(x^2).
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline void of_one_width(const peak<R>& p, V z, V value, V fall, values<V>& t) {
  t[omega] = value * p.inv_H;
  if constexpr (derivatives) {
    t[position] = R(2) * z * fall * (p.inv_H * p.inv_H);
    t[width] = (z * z * fall - R(0.5) * value) * (p.inv_H * p.inv_H * p.inv_H);
  }
}

/// npr 0, 1, 2, 3.
template <int npr, bool derivatives, class R, class V>
[[gnu::always_inline]] inline void fixed_shape(const peak<R>& p, V z, values<V>& t) {
  using namespace pseudo_voigt_mod;
  const V x2 = z * z;
  if constexpr (npr == 0) {
    const V value = gauss_norm<R> * exp_of(V(x2 * -gauss_a<R>));
    of_one_width<derivatives>(p, z, value, V(gauss_a<R> * value), t);
  } else {
    // (1 + k x^2)^-m with k = 4 (2^(1/m) - 1); norm of area 1
    constexpr R m = npr == 1 ? R(1) : npr == 2 ? R(2) : R(1.5);
    constexpr R k = npr == 1 ? R(4) : npr == 2 ? R(1.6568542494923802) : R(2.3496042078727974);
    constexpr R norm = npr == 1 ? lorentz_norm<R> : npr == 2 ? R(0.8194496535636713) : R(0.7664209365408798);
    const V inverse = R(1) / (R(1) + k * x2);
    V value;
    if constexpr (npr == 1) value = norm * inverse;
    if constexpr (npr == 2) value = norm * inverse * inverse;
    if constexpr (npr == 3) value = norm * exp_of(V(R(-1.5) * vector_math::log_of(V(R(1) + k * x2))));
    of_one_width<derivatives>(p, z, value, V((m * k) * inverse * value), t);
  }
}

/// npr 6.
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline void pearson_vii(const peak<R>& p, V z, values<V>& t) {
  const V x2 = z * z, base = R(1) + p.pearson.tf9 * x2, log_base = vector_math::log_of(base);
  const V value = p.pearson.cc4 * vector_math::exp_of(V(-p.eta * log_base));
  const V inverse = R(1) / base;
  of_one_width<derivatives>(p, z, value, V(p.pearson.tf6 * inverse * value), t);
  if constexpr (derivatives) t[shape] = (p.pearson.tf8 - log_base + p.pearson.tf4 * x2 * inverse) * value * p.inv_H;
}

/// npr 4 and -4: pseudo-Voigts of one width at -dd, 0 and +dd. -4: Lorentzians at -dd and +dd only.
template <int npr, bool derivatives, class R, class V>
[[gnu::always_inline]] inline void multiplet(const peak<R>& p, V delta, values<V>& t) {
  using lmix_powderprofiles_finger::psvoigtian;
  const R eta = npr == 4 ? p.eta : R(1), at_minus = p.ci, at_plus = npr == 4 ? p.cd : R(1) - p.ci;
  const auto minus = psvoigtian<derivatives>(eta, p.inv_H, V(delta + p.dd));
  const auto plus = psvoigtian<derivatives>(eta, p.inv_H, V(delta - p.dd));
  lmix_powderprofiles_finger::prof_terms<V> middle{};
  R at_middle = 0;
  if constexpr (npr == 4) {
    middle = psvoigtian<derivatives>(eta, p.inv_H, delta);
    at_middle = R(1) - p.ci - p.cd;
  }
  const auto sum = [&](V a, V b, V c) __attribute__((always_inline)) {
    return at_minus * a + at_middle * b + at_plus * c;
  };
  t[omega] = sum(minus.value, middle.value, plus.value);
  if constexpr (derivatives) {
    t[position] = sum(minus.dprdt, middle.dprdt, plus.dprdt);
    t[width] = sum(minus.dprdg, middle.dprdg, plus.dprdg) * (R(0.5) * p.inv_H);
    t[shape_2] = minus.value - (npr == 4 ? middle.value : plus.value);
    t[shape_4] = at_plus * plus.dprdt - at_minus * minus.dprdt;
    if constexpr (npr == 4) {
      t[shape] = sum(minus.dprde, middle.dprde, plus.dprde);
      t[shape_3] = plus.value - middle.value;
    }
  }
}

/// npr 5, 7, 12.
template <int npr, bool derivatives, class R, class V>
[[gnu::always_inline]] inline void pseudo_voigt(const peak<R>& p, V delta, values<V>& t) {
  using namespace lmix_powderprofiles_finger;
  prof_terms<V> f{};
  if (npr != 5 && p.axial)
    f = prof_val<derivatives>(*p.axial, p.eta, p.inv_H, delta);
  else
    f = psvoigtian<derivatives>(p.eta, p.inv_H, delta);
  t[omega] = f.value;
  if constexpr (derivatives) {
    t[position] = f.dprdt;
    t[width] = f.dprdg * p.dH_dwidth + f.dprde * p.deta_dwidth;
    if constexpr (npr == 7) t[width_2] = f.dprdg * p.dH_dHL + f.dprde * p.deta_dHL;
    if constexpr (npr != 7) t[shape] = f.dprde;
    if constexpr (npr != 5) {
      t[s_l] = f.dprds;
      t[d_l] = f.dprdd;
    }
  }
}

/// npr 11: halves of different width and eta, of one height, joined at the position, which belongs to the left one.
/// Both widths and etas act at every point through the mean width that normalises.
template <bool derivatives, class R, class V>
[[gnu::always_inline]] inline void split(const peak<R>& p, V delta, V z, values<V>& t) {
  using namespace pseudo_voigt_mod;
  const auto right = delta > 0;
  const V x2 = z * z, eta = right ? p.eta_right + V{} : p.eta + V{};
  const V l = R(1) / (R(1) + R(4) * x2), g = exp_of(V(x2 * -gauss_a<R>));
  const V value = ((R(1) - eta) * g + eta * l) * p.inv_mean;
  t[omega] = value;
  if constexpr (derivatives) {
    const V zero{}, inv_H = right ? p.inv_H_right + zero : p.inv_H + zero;
    const V fall = (gauss_a<R> * (R(1) - eta) * g + R(4) * eta * l * l) * p.inv_mean;
    const V own_width = x2 * fall * inv_H * inv_H, own_eta = (l - g) * p.inv_mean;
    t[position] = R(2) * z * fall * inv_H;
    t[shape] = (right ? zero : own_eta) - p.mean_eta_left * value;
    t[shape_2] = (right ? own_eta : zero) - p.mean_eta_right * value;
    t[width] = (right ? zero : own_width) - p.mean_left * value + t[shape] * p.deta_dwidth;
    t[width_2] = (right ? own_width : zero) - p.mean_right * value;
  }
}

/// Multiplies by A(z) = 1 - asym_fa Fa - asym_fb Fb, z = delta/H: A has its own derivatives by position and widths.
template <int npr, bool derivatives, class R, class V>
[[gnu::always_inline]] inline void apply_asymmetry(const peak<R>& p, V delta, V z, values<V>& t) {
  const fabzp_out<V> f = fabzp(z);
  const V raw = R(1) - (p.asym_fa * f.fa + p.asym_fb * f.fb);
  const auto floored = raw <= R(0);
  const V zero{}, a = floored ? R(asym_floor) + zero : raw, plain = t[omega];
  t[omega] = plain * a;
  if constexpr (derivatives) {
    const V acting = floored ? zero : plain, slope = acting * (p.asym_fa * f.dfa + p.asym_fb * f.dfb);
    change<classes_of(npr) & ~bits_of({omega})>(
        t, [&](V v) __attribute__((always_inline)) { return V(v * a); }, all_classes{});
    t[asym_a] = acting * f.fa;
    t[asym_b] = acting * f.fb;
    if constexpr (npr == 11) {
      const auto right = delta > 0;
      const V inv_H = right ? p.inv_H_right + zero : p.inv_H + zero, by_width = slope * z * (R(0.5) * inv_H * inv_H);
      t[position] += slope * inv_H;
      t[width] += right ? zero : by_width;
      t[width_2] += right ? by_width : zero;
    } else {
      const V by_H = slope * z * p.inv_H;
      t[position] += slope * p.inv_H;
      t[width] += by_H * p.dH_dwidth;
      if constexpr (npr == 7) t[width_2] += by_H * p.dH_dHL;
    }
  }
}

/// All classes at distance delta = point - position.
template <int npr, bool derivatives, class R, class V>
[[gnu::always_inline]] inline values<V> all(const peak<R>& p, V delta) {
  values<V> t{};
  V z = delta * p.inv_H;
  if constexpr (npr == 11) z = delta > 0 ? delta * p.inv_H_right : z;
  if constexpr (npr == 0 || npr == 1 || npr == 2 || npr == 3) fixed_shape<npr, derivatives>(p, z, t);
  if constexpr (npr == 4 || npr == -4) multiplet<npr, derivatives>(p, delta, t);
  if constexpr (npr == 6) pearson_vii<derivatives>(p, z, t);
  if constexpr (npr == 5 || npr == 7 || npr == 12) pseudo_voigt<npr, derivatives>(p, delta, t);
  if constexpr (npr == 11) split<derivatives>(p, delta, z, t);
  if (p.use_asym) apply_asymmetry<npr, derivatives>(p, delta, z, t);
  const auto beyond = z * z > p.cut_off * p.cut_off;
  change<(derivatives ? classes_of(npr) | asym_bits : bits_of({omega}))>(
      t, [&](V v) __attribute__((always_inline)) { return V(beyond ? V{} : v); }, all_classes{});
  return t;
}

}  // namespace kv_profil::point

// exp and log for the peak kernels, on a scalar (float, double) or on a vector of floats (a type with vector_size).
// Owns nothing.
// The vector forms hold no branch and no table, so a lane's result never depends on the vector's length.
#pragma once
#include <cmath>
#include <concepts>

namespace vector_math {

/// First and last lane of a vector; the value itself for a scalar.
template <class V>
[[gnu::always_inline]] inline auto first_lane(const V& v) {
  if constexpr (std::floating_point<V>)
    return v;
  else
    return v[0];
}
template <class V>
[[gnu::always_inline]] inline auto last_lane(const V& v) {
  if constexpr (std::floating_point<V>)
    return v;
  else
    return v[sizeof(V) / sizeof(v[0]) - 1];
}

/// exp(a) for a <= 80, error below 1.5 ulp; below -87, near the smallest normal number, the result is 0. NaN stays NaN.
/// Cody-Waite reduction to |r| <= ln2/2, then a polynomial interpolating exp at the seven Chebyshev nodes of that
/// range.
template <class V>
[[gnu::always_inline]] inline V exp_of(V a) {
  if constexpr (std::floating_point<V>) {
    return std::exp(a);
  } else {
    typedef unsigned bits __attribute__((vector_size(sizeof(V))));  // unsigned: far below -87 the sum wraps
    constexpr float round_to_integer = 12582912.f;  // 1.5 * 2^23: the sum's low mantissa bits are the integer
    constexpr float ln2_high = 0.693359375f, ln2_low = -2.12194440e-4f;
    const V shifted = a * 1.44269504f + round_to_integer;
    const V n = shifted - round_to_integer;
    const V r = (a - n * ln2_high) - n * ln2_low;
    const V tail =
        ((((1.3941161e-3f * r + 8.3751683e-3f) * r + 4.1666352e-2f) * r + 1.6666415e-1f) * r + 5.0000000e-1f) * r;
    const V p = (tail * r + r * 1.0000000378f) + 1.f;
    const V scaled = reinterpret_cast<V>(reinterpret_cast<bits>(p) + (reinterpret_cast<bits>(shifted) << 23));
    return a < -87.f ? V{} : (a != a ? a : scaled);
  }
}

/// log(a) for normal a > 0, error below 2 ulp away from a = 1 and below 1e-8 absolute at it. NaN and infinity are not
/// told apart from numbers. log m = 2 atanh((m - 1)/(m + 1)), m in [sqrt(1/2), sqrt(2)).
template <class V>
[[gnu::always_inline]] inline V log_of(V a) {
  if constexpr (std::floating_point<V>) {
    return std::log(a);
  } else {
    using bits = decltype(a < a);
    const bits raw = reinterpret_cast<bits>(a);
    const bits exponent = (raw - 0x3f3504f3) >> 23;
    const V m = reinterpret_cast<V>(raw - (exponent << 23));
    const V n = __builtin_convertvector(exponent, V);
    const V s = (m - 1.f) / (m + 1.f), q = s * s;
    const V series = (((q * (1.f / 9.f) + 1.f / 7.f) * q + 0.2f) * q + 1.f / 3.f) * q;
    return n * 0.693359375f + (n * -2.12194440e-4f + (2.f * s * series + 2.f * s));
  }
}

}  // namespace vector_math

#include <cstring>

#include "kv_profil.hpp"
#include "kv_profil_point.hpp"

namespace kv_profil {
namespace {

using point::values;

template <std::uint32_t bits, class V, std::size_t... c>
[[gnu::always_inline]] inline void store(const values<V>& t, const peak_row_out& out, std::size_t first, std::size_t n,
                                         std::index_sequence<c...>) {
  const auto write = [&](std::span<float> to, const V& v) __attribute__((always_inline)) {
    if (to.empty()) return;
    if (n == sizeof(V) / sizeof(float))
      std::memcpy(to.data() + first, &v, sizeof(V));
    else
      std::memcpy(to.data() + first, &v, n * sizeof(float));
  };
  ((bits >> c & 1 ? write(out.of[c], t[c]) : void()), ...);
}

/// The row in vectors of type V; the last one may be partly filled, its spare lanes repeat the last point.
template <int npr, bool derivatives, class V>
[[gnu::always_inline]] inline void row_of(const peak_params& p, std::span<const float> x, const peak_row_out& out) {
  constexpr std::size_t lanes = sizeof(V) / sizeof(float);
  constexpr std::uint32_t bits = derivatives ? point::classes_of(npr) : point::bits_of({omega});
  // x - high is exact near the peak, so delta is as good as if formed in double precision
  const float high = float(p.position), low = float(p.position - double(high));
  for (std::size_t first = 0; first < x.size(); first += lanes) {
    const std::size_t n = std::min(lanes, x.size() - first);
    V at;
    if (n == lanes) {
      std::memcpy(&at, x.data() + first, sizeof(V));
    } else {
      at = x.back() + V{};
      std::memcpy(&at, x.data() + first, n * sizeof(float));
    }
    const values<V> t = point::all<npr, derivatives>(p, V((at - high) - low));
    store<bits>(t, out, first, n, point::all_classes{});
    if (derivatives && p.use_asym) store<point::asym_bits>(t, out, first, n, point::all_classes{});
  }
}

template <class V, std::size_t... row>
[[gnu::always_inline]] inline void any_row(const peak_params& p, std::span<const float> x, const peak_row_out& out,
                                           bool derivatives, std::index_sequence<row...>) {
  if (derivatives)
    ((p.npr == point::npr_table[row].npr && (row_of<point::npr_table[row].npr, true, V>(p, x, out), true)) || ...);
  else
    ((p.npr == point::npr_table[row].npr && (row_of<point::npr_table[row].npr, false, V>(p, x, out), true)) || ...);
}

using vector_4 = float __attribute__((vector_size(16)));
constexpr auto rows = std::make_index_sequence<point::npr_table.size()>{};

#if defined(__x86_64__)
using vector_8 = float __attribute__((vector_size(32)));
using vector_16 = float __attribute__((vector_size(64)));

[[gnu::target("arch=x86-64-v4")]] void row_avx512(const peak_params& p, std::span<const float> x,
                                                  const peak_row_out& out, bool derivatives) {
  any_row<vector_16>(p, x, out, derivatives, rows);
}
[[gnu::target("arch=x86-64-v3")]] void row_avx2(const peak_params& p, std::span<const float> x, const peak_row_out& out,
                                                bool derivatives) {
  any_row<vector_8>(p, x, out, derivatives, rows);
}
#endif

}  // namespace

vector_kind widest_vectors() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("x86-64-v4")) return vector_kind::avx512;
  if (__builtin_cpu_supports("x86-64-v3")) return vector_kind::avx2;
#endif
  return vector_kind::portable;
}

void peak_row(const peak_params& p, std::span<const float> x, peak_row_out& out, bool want_derivatives,
              vector_kind kind) {
#if defined(__x86_64__)
  if (kind == vector_kind::avx512) return row_avx512(p, x, out, want_derivatives);
  if (kind == vector_kind::avx2) return row_avx2(p, x, out, want_derivatives);
#endif
  any_row<vector_4>(p, x, out, want_derivatives, rows);
}

}  // namespace kv_profil

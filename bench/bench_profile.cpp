// Points times reflections per second of the row kernel: one peak over 201 points, as a pattern of 0.02 deg steps and
// FWHM 0.1 deg gives with a cut-off of 20.
#include <benchmark/benchmark.h>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include <vector>

#include "kv_profil.hpp"

namespace {

enum class correction { none, asymmetry, axial };

/// As the program does at its start: far flanks of a Gaussian would else be denormal and slow.
void flush_denormals() {
#if defined(__SSE__)
  _mm_setcsr(_mm_getcsr() | 0x8040);
#endif
}

void row(benchmark::State& state, int npr, correction which, bool derivatives) {
  flush_denormals();
  kv_profil::peak_params p;
  p.npr = npr;
  p.position = which == correction::axial ? 20.003 : 30.003;
  p.cut_off = 20.f;
  p.H = p.H_right = 0.1f;
  p.HG = 0.08f;
  p.HL = 0.04f;
  p.eta = npr == 6 ? 1.7f : 0.4f;
  p.ci = p.cd = 0.2f;
  p.dd = 0.05f;
  if (which == correction::asymmetry) {
    p.use_asym = true;
    p.p1 = 0.02f;
    p.tan_theta = 0.27f;
    p.tan_2theta = 0.58f;
  }
  kv_profil::axial_params axial;
  lmix_powderprofiles_finger::gauss_rules rules;
  if (which == correction::axial && lmix_powderprofiles_finger::prepare(axial, rules, p.position, 0.02, 0.015, 0.1))
    p.axial = &axial;
  if (kv_profil::prepare(p) != kv_profil::peak_status::ok) state.SkipWithError("no such function");

  std::vector<float> x(201), store(201 * kv_profil::n_peak_class);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(p.position - 2.0 + 0.02 * double(i));
  kv_profil::peak_row_out out;
  for (std::size_t c = 0; c < kv_profil::n_peak_class; ++c)
    out.of[c] = std::span(store).subspan(c * x.size(), x.size());
  for (auto _ : state) {
    kv_profil::peak_row(p, x, out, derivatives);
    benchmark::ClobberMemory();
  }
  state.counters["points/us"] =
      benchmark::Counter(double(x.size()) * double(state.iterations()) * 1e-6, benchmark::Counter::kIsRate);
  state.counters["nodes"] = double(axial.offset.size());
}

void prepare_axial(benchmark::State& state) {
  kv_profil::axial_params axial;
  lmix_powderprofiles_finger::gauss_rules rules;
  for (auto _ : state)
    benchmark::DoNotOptimize(lmix_powderprofiles_finger::prepare(axial, rules, 20.003, 0.02, 0.015, 0.1));
  state.counters["nodes"] = double(axial.offset.size());
}

#define ROW(npr, which)                                                         \
  BENCHMARK_CAPTURE(row, npr##_##which##_value, npr, correction::which, false); \
  BENCHMARK_CAPTURE(row, npr##_##which##_derivatives, npr, correction::which, true)
ROW(0, none);
ROW(0, asymmetry);
ROW(5, none);
ROW(5, asymmetry);
ROW(6, none);
ROW(7, none);
ROW(7, asymmetry);
ROW(7, axial);
ROW(11, none);
ROW(4, none);
BENCHMARK(prepare_axial);

}  // namespace

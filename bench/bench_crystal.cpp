// The ground floor: space groups, site multiplicities and reflection lists.
#include <benchmark/benchmark.h>

#include <string>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_reflections_utilities.hpp"
#include "lmix_symmetry_tables.hpp"

namespace {

namespace sym = lmix_crystallographic_symmetry;
namespace refl = lmix_reflections_utilities;

sym::space_group_type group_of(const char* symbol) {
  sym::space_group_type spg;
  if (sym::set_spacegroup(symbol, spg)) spg = {};
  return spg;
}

/// Every tabulated setting as a full record, Wyckoff positions included.
void all_settings(benchmark::State& state) {
  for (auto _ : state)
    for (const auto& row : lmix_symmetry_tables::spgr_info()) {
      sym::space_group_type spg;
      benchmark::DoNotOptimize(sym::set_spacegroup(row.hall, spg, {}, "HAL").err_symm);
      benchmark::DoNotOptimize(spg.multip);
    }
}
BENCHMARK(all_settings)->Unit(benchmark::kMillisecond);

void one_group(benchmark::State& state, const char* symbol) {
  for (auto _ : state) benchmark::DoNotOptimize(group_of(symbol).multip);
}
BENCHMARK_CAPTURE(one_group, Pnma, "P n m a")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(one_group, Fd3m, "F d -3 m")->Unit(benchmark::kMicrosecond);

void site_multiplicity(benchmark::State& state, const char* symbol) {
  const sym::space_group_type spg = group_of(symbol);
  const sym::vector3 x{0.125f, 0.125f, 0.3217f};
  for (auto _ : state) benchmark::DoNotOptimize(sym::get_multip_pos_crys(x, spg));
}
BENCHMARK_CAPTURE(site_multiplicity, Pnma, "P n m a");
BENCHMARK_CAPTURE(site_multiplicity, Fd3m, "F d -3 m");

/// A list of about 25,000 unique reflections: `edge` is the cell edge [angstrom] that gives it at s = 1.
void reflection_list(benchmark::State& state, const char* symbol, float edge, bool hexagonal) {
  const sym::space_group_type spg = group_of(symbol);
  const float g = 1.f / (edge * edge), f = hexagonal ? 4.f / 3.f : 1.f;
  const refl::metric_tensor gr{
      {{f * g, hexagonal ? 0.5f * f * g : 0.f, 0}, {hexagonal ? 0.5f * f * g : 0.f, f * g, 0}, {0, 0, g}}};
  std::size_t n = 0;
  for (auto _ : state) {
    const auto list = refl::hkl_gen(gr, spg, true, 0.f, 1.f);
    n = list.size();
    benchmark::DoNotOptimize(list.data());
  }
  state.counters["reflections"] = static_cast<double>(n);
}
BENCHMARK_CAPTURE(reflection_list, P1bar, "P -1", 11.4f, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, P21c, "P 1 21/c 1", 14.4f, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, Pnma, "P n m a", 18.3f, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, I41amd, "I 41/a m d", 29.5f, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, R3barc, "R -3 c", 33.f, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, P63mmc, "P 63/m m c", 27.f, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, Ia3bar, "I a -3", 33.5f, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(reflection_list, Fd3barm, "F d -3 m", 53.f, false)->Unit(benchmark::kMillisecond);

}  // namespace

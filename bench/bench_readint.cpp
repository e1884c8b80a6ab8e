// Reading of measured patterns: about 1 MB of text in each layout, file access included.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "kalvaris_init.hpp"
#include "kv_read_intens.hpp"
#include "lmix_fixed_format.hpp"

namespace {

using lmix_fixed_format::fmt_line;

constexpr std::size_t text_size = 1'000'000;

double intensity(int i) { return 100 + (i * 7919 % 10007) * 0.3; }

std::string layout_0() {
  std::string values;
  int n = 0;
  for (; values.size() < text_size; ++n) {
    values += fmt_line{}.f(8, 1, intensity(n)).str();
    if (n % 10 == 9) values += '\n';
  }
  return "5.0 0.001 " + std::to_string(5.0 + 0.001 * (n - 1)) + "\n" + values + "\n";
}

std::string layout_10(const char* before_x) {
  std::string text = "1\n2\n3\n4\n5\n6\n";
  for (int i = 0; text.size() < text_size; ++i) {
    text += before_x + fmt_line{}.f(0, 4, 5 + 0.001 * i).f(11, 3, intensity(i)).f(9, 3, 1 + intensity(i) / 100).str() +
            "\n";
  }
  return text;
}

void read(benchmark::State& bench, int instr, const std::string& text) {
  const auto directory = std::filesystem::temp_directory_path();
  std::ostringstream console;
  kalvaris_params::state_type st;
  st.run.n_patt = 1;
  kalvaris_init::init_val(st);
  st.dim.maxpoint = 1'000'000;
  st.io.console = &console;
  st.io.directory = directory.string() + "/";
  st.io.filedat = {"kv_bench_readint"};
  st.io.extdat = {".dat"};
  st.pattern[0].instr = instr;
  const auto path = directory / "kv_bench_readint.dat";
  std::ofstream(path) << text;
  for (auto _ : bench) {
    kv_read_intens::readint(st, 0);
    benchmark::DoNotOptimize(st.pattern[0].y.data());
  }
  bench.SetBytesProcessed(bench.iterations() * static_cast<long>(text.size()));
  bench.counters["points"] = st.pattern[0].npts;
  std::filesystem::remove(path);
}

void header_and_intensities(benchmark::State& bench) { read(bench, 0, layout_0()); }
void xy_sigma(benchmark::State& bench) { read(bench, 10, layout_10("  ")); }
/// Every line by the finder of fields, which sets in where a number is not plain: here for its sign.
void xy_sigma_by_the_finder(benchmark::State& bench) { read(bench, 10, layout_10(" +")); }

BENCHMARK(header_and_intensities)->Unit(benchmark::kMillisecond);
BENCHMARK(xy_sigma)->Unit(benchmark::kMillisecond);
BENCHMARK(xy_sigma_by_the_finder)->Unit(benchmark::kMillisecond);

}  // namespace

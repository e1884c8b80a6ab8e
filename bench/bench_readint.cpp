// Reading of measured patterns: about 1 MB of text in each layout (2 MB of intensities and sigmas, 50 MB of XRDML),
// file access included.
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

/// Lines of fixed fields, each value by `put`.
template <class F>
std::string columns(int per_line, F put) {
  std::string text;
  for (int n = 0; text.size() < text_size; n += per_line) {
    for (int i = 0; i < per_line; ++i) put(text, n + i);
    text += '\n';
  }
  return text;
}

std::string range_of(std::size_t points) {
  return "5.0 0.001 " + std::to_string(5.0 + 0.001 * (static_cast<double>(points) - 1)) + "\n";
}

std::string layout_1() {
  const std::string pairs =
      columns(10, [](std::string& text, int i) { text += fmt_line{}.i(2, 1 + i % 3).f(6, 0, intensity(i)).str(); });
  return range_of(pairs.size() / 81 * 10) + pairs;
}

std::string layout_8() {
  const auto block = [] {
    return columns(10, [](std::string& text, int i) { text += fmt_line{}.f(8, 2, intensity(i)).str(); });
  };
  const std::string intensities = block();
  return "a\nb\n" + range_of(intensities.size() / 81 * 10) + intensities + intensities;
}

std::string gsas_esd() {
  const std::string pairs = columns(5, [](std::string& text, int i) {
    text += fmt_line{}.f(8, 1, intensity(i)).f(8, 1, 1 + intensity(i) / 100).str();
  });
  const std::size_t points = pairs.size() / 81 * 5;
  return "title\nBANK 1 " + std::to_string(points) + " " + std::to_string(points / 5) + " CONST 500 0.1 0 0 ESD\n" +
         pairs;
}

std::string uxd() {
  return "_START=5\n_STEPSIZE=0.001\n_COUNTS\n" +
         columns(8, [](std::string& text, int i) { text += fmt_line{}.f(10, 0, intensity(i)).str(); });
}

/// Scans of 50 000 points up to so many bytes.
std::string xrdml(std::size_t size) {
  std::string text =
      "<xrdMeasurement>\n<positions axis=\"2Theta\" unit=\"deg\">\n<startPosition>5</startPosition>\n"
      "<endPosition>105</endPosition>\n</positions>\n";
  text.reserve(size + text_size);
  while (text.size() < size) {
    text += "<intensities unit=\"counts\">";
    for (int i = 0; i < 50000; ++i) text += std::to_string(static_cast<int>(intensity(i))) + ' ';
    text += "</intensities>\n";
  }
  return text + "</xrdMeasurement>\n";
}

void read(benchmark::State& bench, int instr, const std::string& text, const std::string& extension = ".dat") {
  const auto directory = std::filesystem::temp_directory_path();
  std::ostringstream console;
  kalvaris_params::state_type st;
  st.run.n_patt = 1;
  kalvaris_init::init_val(st);
  st.dim.maxpoint = 1'000'000;
  st.io.console = &console;
  st.io.directory = directory.string() + "/";
  st.io.filedat = {"kv_bench_readint"};
  st.io.extdat = {extension};
  st.pattern[0].instr = instr;
  const auto path = directory / ("kv_bench_readint" + extension);
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

void detector_pairs(benchmark::State& bench) { read(bench, 1, layout_1()); }
void intensities_then_sigmas(benchmark::State& bench) { read(bench, 8, layout_8()); }
void gsas(benchmark::State& bench) { read(bench, 12, gsas_esd()); }
void uxd_counts(benchmark::State& bench) { read(bench, 9, uxd()); }
void xrdml_50_mb(benchmark::State& bench) { read(bench, 13, xrdml(50 * text_size), ".xrdml"); }

BENCHMARK(header_and_intensities)->Unit(benchmark::kMillisecond);
BENCHMARK(xy_sigma)->Unit(benchmark::kMillisecond);
BENCHMARK(xy_sigma_by_the_finder)->Unit(benchmark::kMillisecond);
BENCHMARK(detector_pairs)->Unit(benchmark::kMillisecond);
BENCHMARK(intensities_then_sigmas)->Unit(benchmark::kMillisecond);
BENCHMARK(gsas)->Unit(benchmark::kMillisecond);
BENCHMARK(uxd_counts)->Unit(benchmark::kMillisecond);
BENCHMARK(xrdml_50_mb)->Unit(benchmark::kMillisecond);

}  // namespace

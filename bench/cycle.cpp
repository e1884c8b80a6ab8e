// One cycle of least squares: pattern with derivatives, normal equations, solution; and where its time goes.
//   small: 8,000 points, about 150 reflections at two wavelengths, 30 parameters
//   large: 30,000 points, about 3,000 reflections, 100 parameters
// Counters: rows of the reflection list, parameters, share of peaks (pattern without derivatives), of the matrix
// (add_block alone, blocks as large and as many) and of the derivatives (the rest) in per cent, largest resident size.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <fstream>
#include <numeric>
#include <ostream>
#include <random>
#include <sstream>
#include <string>

#include "floating_point.hpp"
#include "kalvaris_codes.hpp"
#include "kv_assignk.hpp"
#include "kv_background.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "look_scatt.hpp"
#include "reflections_mod.hpp"

namespace {

namespace kp = kalvaris_params;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

/// A task of given size: an orthorhombic or monoclinic crystal with atoms in general positions.
struct task {
  const char* group;
  std::array<float, 6> cell;
  int atoms, points;
  float first, step;
  bool two_waves;
  float width;     ///< W [deg^2]
  int parameters;  ///< as many as are refined, in the order of give_codes
};
const task small{"P m m m", {6.66f, 5.49f, 4.97f, 90.f, 90.f, 90.f}, 4, 8000, 15.f, 0.011f, true, 0.004f, 30};
const task large{"P 1 2/m 1", {16.97f, 11.58f, 14.57f, 90.f, 101.3f, 90.f}, 20, 30000, 5.f, 0.003f, false, 0.002f, 100};

kp::atom_type atom(int i, std::mt19937& random) {
  std::uniform_real_distribution<float> anywhere(0.05f, 0.45f);
  kp::atom_type a;
  a.atext = "A" + std::to_string(i);
  a.ntyp = i % 3 == 0 ? "FE" : "O";
  for (const int k : {aslot::x, aslot::y, aslot::z}) a.xl[static_cast<std::size_t>(k)] = anywhere(random);
  a.xl[aslot::biso] = 0.5f;
  a.xl[aslot::occ] = 1.f;
  return a;
}

/// Codes for the first `wanted` slots of pattern, profile, cell and atoms.
void give_codes(kp::state_type& st, int wanted) {
  int number = 0;
  const auto code = [&](float& word) {
    if (number < wanted) word = 10.f * static_cast<float>(++number) + 1.f;
  };
  auto& p = st.pattern[0];
  auto& m = st.mixes[0];
  code(p.aglb[gslot::zero]);
  for (int j = 0; j < 8; ++j) code(p.aglb[static_cast<std::size_t>(gslot::bac + j)]);
  for (const int k : {slot::scale, slot::u, slot::v, slot::w, slot::x, slot::y, slot::s_l})
    code(m.apar[static_cast<std::size_t>(k)]);
  for (int k = slot::cell_a; k < slot::cell_a + 3; ++k) code(m.apar[static_cast<std::size_t>(k)]);
  if (st.phase[0].symb == large.group) code(m.apar[slot::cell_a + 4]);
  for (kp::atom_type& a : st.atom)
    for (const int k : {aslot::x, aslot::y, aslot::z, aslot::biso}) code(a.a[static_cast<std::size_t>(k)]);
  st.run.maxs = number;
}

kp::state_type make_state(const task& t, std::ostream& console) {
  floating_point::flush_denormals();
  kp::state_type st;
  st.io.console = &console;
  st.run.n_patt = st.run.nphase = 1;
  st.run.mcycle = 1;
  st.pattern.resize(1), st.phase.resize(1), st.mixes.resize(1);
  st.io.filedat.resize(1), st.io.extdat.resize(1);
  kp::pattern_type& p = st.pattern[0];
  p.jobtyp = kp::job::xrays;
  p.nprof = 7;
  p.nbckgd = 5, p.isbac = -1;  // Chebychev
  p.ratio = {1.f, t.two_waves ? 0.5f : 0.f};
  if (!t.two_waves) p.lamda[1] = p.lamda[0];
  p.cthm = 0.8f, p.wdt = 12.f, p.rlim = 40.f, p.bkpos = 60.f;
  p.thmin = t.first, p.step = t.step, p.npts = t.points;
  p.thmax = p.thmin + static_cast<float>(t.points - 1) * p.step;
  const auto n = static_cast<std::size_t>(t.points);
  p.txv.resize(n + 1);
  for (std::size_t i = 0; i <= n; ++i) p.txv[i] = static_cast<float>(i) * p.step + p.thmin;
  p.y.assign(n, 0.f), p.var.assign(n, 1.f), p.iww.assign(n, 1), p.yc.assign(n, 0.f);
  p.yo_max = 1.0e9f;
  p.glb[gslot::lambda] = p.lamda[0], p.glb[gslot::ratio2] = p.ratio[1];
  p.glb[gslot::bac] = 200.f, p.glb[gslot::bac + 1] = -40.f, p.glb[gslot::bac + 2] = 15.f;

  std::mt19937 random(20);
  st.phase[0].natom = t.atoms;
  st.phase[0].symb = t.group;
  (void)lmix_crystallographic_symmetry::set_spacegroup(t.group, st.phase[0].spgr);
  for (int i = 0; i < t.atoms; ++i) st.atom.push_back(atom(i, random));
  kp::mix_type& m = st.mixes[0];
  m.npro = 7;
  m.par[slot::scale] = 0.01f;
  m.par[slot::u] = 0.004f, m.par[slot::v] = -0.002f, m.par[slot::w] = t.width;
  m.par[slot::x] = 0.01f, m.par[slot::y] = 0.03f, m.par[slot::s_l] = 0.02f, m.par[slot::d_l] = 0.02f;
  for (std::size_t i = 0; i < 6; ++i) m.par[slot::cell_a + i] = t.cell[i];

  give_codes(st, t.parameters);
  kalvaris_codes::cell_const(st, 0, 0, false);
  kalvaris_codes::mod_codes(st);
  kv_background::set_flags(p);
  kv_background::build(p);
  (void)look_scatt::lookup(st, 0);
  reflections_mod::make_list(st, 0);
  kv_assignk::assignk(st, 0);
  apply_shifts::set_reference_multipliers(st);
  kv_iterate_calc_cw::calc_patterns_2theta(st, 0, false);
  for (std::size_t i = 0; i < n; ++i) {
    const double mean = static_cast<double>(p.yc[i]) + static_cast<double>(p.bk[i]);
    p.y[i] = static_cast<float>(std::poisson_distribution<int>(std::max(mean, 1.0))(random));
    p.var[i] = std::max(p.y[i], 1.f);
  }
  return st;
}

void one_cycle(kp::state_type& st) {
  st.ne.reset(st.run.maxs);
  kv_background::build(st.pattern[0]);
  kv_iterate_calc_cw::calc_patterns_2theta(st, 0, true);
  st.ne.fill_lower();
  benchmark::DoNotOptimize(normal_equations::dp_inv(st.ne.matrix(), st.ne.vector(), st.run.maxs));
}

/// The same rank updates as a cycle makes, with every parameter alive everywhere.
void matrix_alone(normal_equations::normal_matrix& matrix, int order, int points) {
  constexpr std::size_t block = 128;
  const std::vector<float> rows(block * static_cast<std::size_t>(order), 0.37f), ones(block, 1.f);
  std::vector<int> active(static_cast<std::size_t>(order));
  std::iota(active.begin(), active.end(), 0);
  matrix.reset(order);
  for (int first = 0; first < points; first += static_cast<int>(block))
    matrix.add_block(rows.data(), block, block, ones.data(), ones.data(), active);
}

/// Shortest of several processor times [s].
template <class Work>
double shortest(Work work) {
  double best = 1.0e9;
  for (int i = 0; i < 7; ++i) {
    const std::clock_t start = std::clock();
    work();
    best = std::min(best, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
  }
  return best;
}

/// Largest resident size of the process so far [MB].
double largest_resident_size() {
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("VmHWM:")) continue;
    std::istringstream words(line.substr(6));
    double kilobytes = 0.0;
    words >> kilobytes;
    return kilobytes / 1024.0;
  }
  return 0.0;
}

void cycle(benchmark::State& bench, const task& t) {
  std::ostream nowhere(nullptr);
  kp::state_type st = make_state(t, nowhere);
  for (auto _ : bench) one_cycle(st);
  normal_equations::normal_matrix matrix;
  const double all = shortest([&] { one_cycle(st); });
  const double peaks = shortest([&] { kv_iterate_calc_cw::calc_patterns_2theta(st, 0, false); });
  const double update = shortest([&] { matrix_alone(matrix, st.run.maxs, t.points); });
  const double solution = shortest([&] {
    st.ne.reset(st.run.maxs);
    for (int i = 0; i < st.run.maxs; ++i) st.ne.rjac(i, i) = 1.0 + i;
    benchmark::DoNotOptimize(normal_equations::dp_inv(st.ne.matrix(), st.ne.vector(), st.run.maxs));
  });
  bench.counters["rows"] = st.pattern[0].refl.size();
  bench.counters["parameters"] = st.run.maxs;
  bench.counters["peaks%"] = 100.0 * peaks / all;
  bench.counters["matrix%"] = 100.0 * update / all;
  bench.counters["solution%"] = 100.0 * solution / all;
  bench.counters["derivatives%"] = 100.0 * (all - peaks - update - solution) / all;
  bench.counters["largest_MB"] = largest_resident_size();
}

BENCHMARK_CAPTURE(cycle, small, small)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(cycle, large, large)->Unit(benchmark::kMillisecond);

}  // namespace

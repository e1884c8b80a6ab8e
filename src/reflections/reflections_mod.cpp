// The list of a phase in a pattern: its limits, its rows, its order.
#include "reflections_mod.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numbers>
#include <numeric>

#include "kept_intensities.hpp"
#include "kv_peak_geometry.hpp"
#include "kv_structure_factors.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_reflections_utilities.hpp"
#include "pseudo_voigt_mod.hpp"
#include "reflections_mod_rows.hpp"

namespace reflections_mod {

namespace {

using kalvaris_inout::stop_cond;
using kalvaris_params::state_type;
using kv_peak_geometry::peak_model;
using lmix_fixed_format::fmt_line;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;

constexpr double rad = std::numbers::pi / 180.0;
constexpr double last_position = 179.0;  ///< [deg]
constexpr double steepest = 1.569051;    ///< theta limit of the generation [rad]
constexpr double user_limit = 0.001;     ///< dlim is alive above it [angstrom]

/// FWHM at 2theta [deg] by the profile parameters and the instrument.
double width_at(const peak_model& m, double two_theta) {
  const double t = std::tan(0.5 * two_theta * rad), c = std::cos(0.5 * two_theta * rad);
  const auto instrument = instrumental_resolution::apply_irf_cw(m.instrument, two_theta, t * t, t, c);
  const double square = (m.u * t + m.v) * t + m.w + m.gausiz / (c * c) + instrument.ggi;
  const double hg = square < 1e-20 ? 1e-10 : std::sqrt(square);
  if (m.npro != 7) return hg;
  return pseudo_voigt_mod::tch(hg, std::max(m.y / c + m.x * t + instrument.cci, 0.0)).H;
}

/// Room above thmax for the tails of peaks whose centre lies outside [deg].
double extension(const state_type& st, int ip, int ph, double last) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& phase = st.phase[static_cast<std::size_t>(ph)];
  if (phase.natom == 0 && (phase.jbt == 2 || phase.jbt == -2)) return 0;
  const double lambda = pattern.lamda[0];
  const double m = (phase.nvk != 0 ? 6.0 : 3.0) * (lambda < 0.5 ? 0.5 : lambda > 2.5 ? 3.0 : 1.0);
  return m * pattern.wdt * width_at(kv_peak_geometry::make_peak_model(st, ip, ph, 1), last);
}

/// Refuses a cell that no list can hold before anything of that size is made: no orbit counts more than 48 reflections.
void check_count(state_type& st, int ip, int ph, const generation_limits& limits) {
  const auto& group = st.phase[static_cast<std::size_t>(ph)].spgr;
  const double shell = std::pow(2 * limits.smax, 3) - std::pow(2 * limits.smin, 3);
  const double points = 4 * std::numbers::pi / 3 * shell *
                        cell_volume(kv_peak_geometry::make_peak_model(st, ip, ph, 1).cell) / std::max(group.numlat, 1);
  if (!(points / 48 <= st.dim.maxreflx)) too_many_reflections(st);
}

/// By the metric that the positions are calculated from. A rounding wider than the limits: row_maker holds them.
std::vector<lmix_reflections_utilities::reflection_type> unique_reflections(const state_type& st, int ip, int ph,
                                                                            const generation_limits& limits) {
  constexpr double rounding = 4 * FLT_EPSILON;
  const auto& par = st.mix(ph, ip).par;
  const auto slot_value = [&par](int k) { return par[static_cast<std::size_t>(slot::cell_a + k)]; };
  const float a = slot_value(0), b = slot_value(1), c = slot_value(2);
  const float bc = 0.5f * slot_value(3), ac = 0.5f * slot_value(4), ab = 0.5f * slot_value(5);
  return lmix_reflections_utilities::hkl_gen(
      {{{a, ab, ac}, {ab, b, bc}, {ac, bc, c}}}, st.phase[static_cast<std::size_t>(ph)].spgr, true,
      static_cast<float>(limits.smin * (1 - rounding)), static_cast<float>(limits.smax * (1 + rounding)));
}

void report_limits(state_type& st, const generation_limits& limits, std::size_t n, double smax_found) {
  auto& out = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
  out << fmt_line{}
             .a(" => Reflections generated between S(1/d)min:")
             .f(8, 4, 2 * limits.smin)
             .a(" and S(1/d)max:")
             .f(8, 4, 2 * limits.smax)
             .str()
      << '\n'
      << fmt_line{}.a(" => The number of reflections generated is: ").i(6, static_cast<long long>(n)).str() << '\n'
      << fmt_line{}.a(" => The max. scatt. variable (gen.ref.) is: ").f(8, 4, smax_found).str() << '\n';
}

void report_user_limit(state_type& st, int ip, int ph, const generation_limits& limits) {
  const double dlim = st.phase[static_cast<std::size_t>(ph)].dlim;
  if (!(dlim > user_limit)) return;
  const double sine = std::min(limits.smax * st.pattern[static_cast<std::size_t>(ip)].lamda[0], 1.0);
  kalvaris_inout::both_listings(st.io, fmt_line{}
                                           .a(" => Generation of reflections limited by user to d > dmin: ")
                                           .f(8, 4, dlim)
                                           .a("   2Theta(max) = ")
                                           .f(8, 3, 2 * std::asin(sine) / rad)
                                           .str());
}

void sort_rows(kalvaris_params::reflection_list& list, std::size_t first, std::size_t last) {
  std::vector<int> order(static_cast<std::size_t>(list.size()));
  std::iota(order.begin(), order.end(), 0);
  const auto at = [&order](std::size_t i) { return order.begin() + static_cast<std::ptrdiff_t>(i); };
  const auto before = [&list](int a, int b) {
    return list.pos[static_cast<std::size_t>(a)] < list.pos[static_cast<std::size_t>(b)];
  };
  std::stable_sort(at(first), at(last), before);
  if (!std::is_sorted(order.begin(), order.end())) list.permute(order);
}

/// Limit of (Z - f)/s^2 at s = 0, for the sum of Gaussians whose Z is f(0).
double forward_electron_scattering(const kalvaris_params::scattering_entry& entry) {
  constexpr double mott_bethe = 0.023934;
  double slope = 0;
  for (std::size_t j = 0; j < 4; ++j) slope += double{entry.ac[2 * j]} * entry.ac[2 * j + 1];
  return mott_bethe * slope;
}

}  // namespace

bool has_second_wave(const kalvaris_params::pattern_type& pattern) {
  const auto [first, second] = pattern.lamda;
  return !pattern.single_wave && second > 0.001f && !(std::abs(first - second) < 1.0e-6f);
}

generation_limits make_limits(const state_type& st, int ip, int ph) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& phase = st.phase[static_cast<std::size_t>(ph)];
  const double lambda = pattern.lamda[0], thmax = std::min(double{pattern.thmax}, last_position);
  const double extended = thmax + extension(st, ip, ph, thmax);
  generation_limits limits;
  limits.smin = std::max(std::sin(0.5 * pattern.thmin * rad) / lambda, 0.001);
  limits.smax = std::sin(std::min(0.5 * extended * rad, steepest)) / lambda;
  limits.first = pattern.thmin;
  limits.last = std::min(extended, last_position);
  if (phase.profile_matching() && !pattern.excluded.empty() && pattern.excluded.back().ahigh >= pattern.thmax)
    limits.last = std::min(limits.last, double{pattern.excluded.back().alow} + 0.5);
  if (has_second_wave(pattern)) {
    const double factor = lambda / pattern.lamda[1];
    (factor < 1 ? limits.smin : limits.smax) *= factor;
  }
  if (phase.dlim > user_limit) limits.smax = std::min(limits.smax, 0.5 / phase.dlim);
  return limits;
}

void clear_list(state_type& st, int ip) {
  st.pattern[static_cast<std::size_t>(ip)].refl.resize(0);
  for (int ph = 0; ph < st.run.nphase; ++ph) st.mix(ph, ip).num_refl = 0;
}

void genera(state_type& st, int ip, int ph) {
  auto& mix = st.mix(ph, ip);
  auto& phase = st.phase[static_cast<std::size_t>(ph)];
  mix.num_refl = 0;
  if (mix.jcontr == 0) return;
  if (phase.jbt == 3 || phase.jbt == -3)
    stop_cond(st.io,
              " Jbt = 3 and -3 keep relative intensities that a reflection list must give: phase " +
                  std::to_string(ph + 1) + " has Irf = 0",
              true);
  const generation_limits limits = make_limits(st, ip, ph);
  report_user_limit(st, ip, ph, limits);
  check_count(st, ip, ph, limits);
  const auto entries = unique_reflections(st, ip, ph, limits);
  const kept_intensities::kept kept = kept_intensities::read(st, ip, ph);
  row_maker rows(st, ip, ph, limits, true);
  double smax_found = 0;
  for (const auto& entry : entries) {
    smax_found = std::max(smax_found, double{entry.s});
    rows.add(entry.h, entry.mult, kept.of(entry.h));
  }
  report_limits(st, limits, entries.size(), smax_found);
  mix.num_refl = rows.added();
  sort_rhkl(st, ip, ph);
}

void make_list(state_type& st, int ip) {
  clear_list(st, ip);
  for (int ph = 0; ph < st.run.nphase; ++ph) (st.mix(ph, ip).irf == 0 ? genera : reflec)(st, ip, ph);
}

void sort_rhkl(state_type& st, int ip, int ph) {
  std::size_t first = 0;
  for (int before = 0; before < ph; ++before) first += static_cast<std::size_t>(st.mix(before, ip).num_refl);
  sort_rows(st.pattern[static_cast<std::size_t>(ip)].refl, first,
            first + static_cast<std::size_t>(st.mix(ph, ip).num_refl));
}

void sort_all(state_type& st, int ip) {
  auto& list = st.pattern[static_cast<std::size_t>(ip)].refl;
  sort_rows(list, 0, static_cast<std::size_t>(list.size()));
}

double calc_f000(const state_type& st, int ip, int ph) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto& phase = st.phase[static_cast<std::size_t>(ph)];
  const bool electrons = pattern.radiation() == kalvaris_params::job::electrons;
  double sum = 0;
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const auto& atom = st.atom[static_cast<std::size_t>(ia)];
    const int species = atom.species.empty() ? -1 : atom.species[static_cast<std::size_t>(ip)];
    if (species < 0) continue;
    const auto& entry = pattern.scattering[static_cast<std::size_t>(species)];
    sum += double{atom.xl[aslot::occ]} * phase.spgr.multip *
           (electrons ? forward_electron_scattering(entry) : kv_structure_factors::scattering_at(entry, 0.0, false).re);
  }
  return sum;
}

}  // namespace reflections_mod

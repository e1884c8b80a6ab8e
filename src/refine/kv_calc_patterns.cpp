#include "kv_calc_patterns.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include "kv_background.hpp"

namespace kv_calc_patterns {

namespace {

/// d pattern/d parameters of one reflection over a stretch of points.
[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] void add_scaled(float* __restrict row,
                                                                                      const float* __restrict values,
                                                                                      float coef, int n) {
#pragma omp simd
  for (int i = 0; i < n; ++i) row[i] += coef * values[i];
}

}  // namespace

/// Variance of a point for the weights, by iwgt.
double pattern_calculation::variance(int i, double ycal, double difference) const {
  const auto u = static_cast<std::size_t>(i);
  switch (pattern.iwgt) {
    case 2: {
      const double p = (pattern.y[u] + 2.0 * ycal) / 15.0;
      return p * p + pattern.var[u];
    }
    case 3: {
      const auto& w = pattern.wght;
      const double p = ycal + w.f * difference;
      return pattern.var[u] + (w.a * p) * (w.a * p) + w.b * p + w.d;
    }
    default:
      return pattern.var[u];
  }
}

/// Maximum likelihood (iwgt 1): the variance of every point in use is that of its calculated value, also where nothing
/// is refined, since the agreement factors are weighted with it.
void pattern_calculation::take_calculated_variances(int first, int count, std::span<const float> background) {
  if (pattern.iwgt != 1 || !pattern.refining()) return;
  for (int i = 0; i < count; ++i) {
    const auto u = static_cast<std::size_t>(first + i);
    if (kalvaris_params::kr_excluded(pattern.kr[u], st.dim.maxreflx)) continue;
    const double ycal = static_cast<double>(pattern.yc[u]) + background[static_cast<std::size_t>(i)];
    const double v = std::abs(ycal / pattern.iww[u]) * pattern.cnorm;
    if (v >= 1.0e-6) pattern.var[u] = static_cast<float>(v);
  }
}

void pattern_calculation::background_rows(int first, int count) {
  if (background_wanted.empty()) return;
  kv_background::derivative_rows(pattern, background_wanted, first, count, background_work.data(), block_points);
  for (std::size_t j = 0; j < background_uses.size(); ++j) {
    const slot_use& u = background_uses[j];
    add_scaled(rows.data() + static_cast<std::size_t>(u.n) * block_points, background_work.data() + j * block_points,
               u.r, count);
    touched[static_cast<std::size_t>(u.n)] = 1;
  }
}

/// One peak over the points of a block: into yc, and into the derivative rows.
void pattern_calculation::add_peak(int first, int count, int k, const active_peak& a) {
  const kv_assignk::point_range& reach = placed[static_cast<std::size_t>(k)].reach;
  const int from = std::max(first, reach.first), to = std::min(first + count, reach.last);
  if (from >= to) return;
  const auto n = static_cast<std::size_t>(to - from);
  kv_profil::peak_row_out out;
  for (std::size_t c = 0; c < n_peak_class; ++c)
    if (a.classes >> c & 1u) out.of[c] = std::span(class_rows[c]).first(n);
  kv_profil::peak_row(a.peak, std::span(pattern.txv).subspan(static_cast<std::size_t>(from), n), out, !a.terms.empty());
  add_scaled(pattern.yc.data() + from, class_rows[kv_profil::omega].data(), static_cast<float>(a.intensity), to - from);
  if (free_intensities != nullptr)
    free_intensities->add_peak(k, static_cast<std::size_t>(from - first),
                               std::span(class_rows[kv_profil::omega]).first(n), a.per_ff);
  for (const term& t : a.terms) {
    float* row = rows.data() + static_cast<std::size_t>(t.n) * block_points + (from - first);
    add_scaled(row, class_rows[t.cls].data(), t.coef, to - from);
    touched[static_cast<std::size_t>(t.n)] = 1;
  }
}

/// Weighted rows of a finished block to the normal equations.
void pattern_calculation::add_rows(int first, int count, std::span<const float> background) {
  std::array<float, block_points> weights{}, differences{};
  const int maxreflx = st.dim.maxreflx;
  for (int i = 0; i < count; ++i) {
    const auto u = static_cast<std::size_t>(first + i);
    const std::int64_t kr = pattern.kr[u];
    if (kalvaris_params::kr_excluded(kr, maxreflx) || (kr == 0 && !pattern.bref)) continue;
    const double ycal = static_cast<double>(pattern.yc[u]) + background[static_cast<std::size_t>(i)];
    const double difference = pattern.y[u] - ycal;
    weights[static_cast<std::size_t>(i)] = static_cast<float>(pattern.w_pat / variance(first + i, ycal, difference));
    differences[static_cast<std::size_t>(i)] = static_cast<float>(difference);
  }
  std::vector<int> active;
  for (int n = 0; n < st.run.maxs; ++n)
    if (touched[static_cast<std::size_t>(n)]) active.push_back(n);
  st.ne.add_block(rows.data(), block_points, static_cast<std::size_t>(count), weights.data(), differences.data(),
                  active);
  if (free_intensities != nullptr)
    free_intensities->end_block(weights.data(), differences.data(), rows.data(), block_points, active);
  for (const int n : active) {
    std::fill_n(rows.begin() + static_cast<std::ptrdiff_t>(n) * static_cast<std::ptrdiff_t>(block_points), block_points,
                0.f);
    touched[static_cast<std::size_t>(n)] = 0;
  }
}

void pattern_calculation::count_points() {
  pattern.num = pattern.num1 = 0;
  for (const std::int64_t kr : pattern.kr) {
    if (kalvaris_params::kr_excluded(kr, st.dim.maxreflx)) continue;
    ++pattern.num;
    if (kr != 0) ++pattern.num1;
  }
}

void pattern_calculation::run() {
  pattern.flag_gauss = pattern.flag_lorentz = false;
  pattern.yc.assign(static_cast<std::size_t>(pattern.npts), 0.f);
  count_points();
  prepare_structure();
  place_peaks();
  if (free_intensities != nullptr) {
    std::vector<kv_assignk::point_range> reach;
    for (const placed_peak& p : placed) reach.push_back(p.reach);
    free_intensities->reset(st, refl, reach, derivatives ? st.run.maxs : 0);
  }
  walk_blocks();
}

/// A peak is made when the first block that it reaches comes, and its place is used again behind the last one.
void pattern_calculation::walk_blocks() {
  std::vector<std::pair<int, int>> entry;  // first block that the reflection reaches, reflection
  for (int k = 0; k < refl.size(); ++k) {
    const auto& reach = placed[static_cast<std::size_t>(k)].reach;
    if (reach.first < reach.last) entry.emplace_back(reach.first / static_cast<int>(block_points), k);
  }
  std::sort(entry.begin(), entry.end());

  struct living_peak {
    int k;
    std::unique_ptr<active_peak> peak;
  };
  std::vector<living_peak> living;
  std::vector<std::unique_ptr<active_peak>> spare;
  std::array<float, block_points> background{};
  std::size_t next = 0;
  for (int first = 0, block = 0; first < pattern.npts; first += static_cast<int>(block_points), ++block) {
    const int count = std::min(static_cast<int>(block_points), pattern.npts - first);
    for (; next < entry.size() && entry[next].first <= block; ++next) {
      if (spare.empty()) spare.push_back(std::make_unique<active_peak>());
      const int k = entry[next].second;
      if (!prepare_peak(k, *spare.back())) continue;
      living.push_back({k, std::move(spare.back())});
      spare.pop_back();
    }
    if (free_intensities != nullptr) free_intensities->begin_block(static_cast<std::size_t>(count));
    for (const living_peak& l : living) add_peak(first, count, l.k, *l.peak);
    std::erase_if(living, [&](living_peak& l) {
      const bool done = placed[static_cast<std::size_t>(l.k)].reach.last <= first + count;
      if (done) spare.push_back(std::move(l.peak));
      return done;
    });
    for (int i = 0; i < count; ++i) background[static_cast<std::size_t>(i)] = kv_background::backa(pattern, first + i);
    take_calculated_variances(first, count, background);
    if (!derivatives && free_intensities == nullptr) continue;
    background_rows(first, count);
    add_rows(first, count, background);
  }
}

}  // namespace kv_calc_patterns

void kv_iterate_calc_cw::calc_patterns_2theta(kalvaris_params::state_type& st, int ip, bool derivatives,
                                              kv_free_intensities::overlap_equations* intensities) {
  kv_calc_patterns::pattern_calculation(st, ip, derivatives, intensities).run();
}

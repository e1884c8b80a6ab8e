#include "kv_free_intensities.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>

namespace kv_free_intensities {

namespace {

using kalvaris_params::reflection_key;
using kalvaris_params::reflection_list;
using kalvaris_params::state_type;

/// Added to the diagonal of G, as a share of it: peaks at one place have only their sum determined.
constexpr double ridge = 0.003;
constexpr double kept_share = 0.05;             ///< of an intensity in one cycle
constexpr double floor_in_sigmas = 1.0e-3;      ///< an intensity this small is 0 as far as the pattern can tell
constexpr std::size_t most_band = 48'000'000;   ///< elements of G: 384 MB
constexpr std::size_t row_length = 128;         ///< points of a block, at most

[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] float dot(const float* a, const float* b,
                                                                                 std::size_t n) {
  float sum = 0.f;
#pragma omp simd reduction(+ : sum)
  for (std::size_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] double dot(const double* a, const double* b,
                                                                                  std::size_t n) {
  double sum = 0.0;
#pragma omp simd reduction(+ : sum)
  for (std::size_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

/// y -= factor x
[[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] void subtract(double* __restrict y,
                                                                                     const double* __restrict x,
                                                                                     double factor, std::size_t n) {
#pragma omp simd
  for (std::size_t i = 0; i < n; ++i) y[i] -= factor * x[i];
}

}  // namespace

bool follows_pattern(const kalvaris_params::phase_type& phase) { return phase.jbt == 2 || phase.jbt == -2; }

bool any_follows_pattern(const state_type& st) { return std::ranges::any_of(st.phase, follows_pattern); }

void overlap_equations::reset(const state_type& st, const reflection_list& refl,
                              std::span<const kv_assignk::point_range> reach, int parameters) {
  struct unknown {
    int first, last;
    double value;
    std::vector<int> reflections;
  };
  std::vector<unknown> list;
  std::unordered_map<std::int32_t, std::size_t> known;
  const auto n = static_cast<std::size_t>(refl.size());
  for (std::size_t k = 0; k < n; ++k) {
    reflection_key key = kalvaris_params::unpack_irefs(refl.irefs[k]);
    if (!follows_pattern(st.phase[static_cast<std::size_t>(key.phase)]) || reach[k].first >= reach[k].last) continue;
    key.wave = 1;
    const auto [at, fresh] = known.try_emplace(kalvaris_params::pack_irefs(key), list.size());
    if (fresh) list.push_back({reach[k].first, reach[k].last, refl.ff[k], {}});
    unknown& u = list[at->second];
    u.first = std::min(u.first, reach[k].first);
    u.last = std::max(u.last, reach[k].last);
    u.reflections.push_back(static_cast<int>(k));
  }
  std::ranges::stable_sort(list, {}, &unknown::first);

  unknown_of_.assign(n, -1);
  value_.clear(), low_.clear(), start_.clear();
  std::size_t elements = 0;
  for (std::size_t r = 0; r < list.size(); ++r) {
    for (const int k : list[r].reflections) unknown_of_[static_cast<std::size_t>(k)] = static_cast<int>(r);
    value_.push_back(list[r].value);
    std::size_t low = r == 0 ? 0 : low_.back();
    // blocks, not points, decide what is added up together; a pair without a common point adds nothing
    while (low < r && list[low].last <= list[r].first) ++low;
    low_.push_back(low);
    start_.push_back(elements);
    elements += r - low + 1;
  }
  too_wide_ = elements > most_band;
  parameters_ = static_cast<std::size_t>(parameters);
  band_.assign(too_wide_ ? 0 : elements, 0.0);
  c_.assign(too_wide_ ? 0 : size() * parameters_, 0.0);
  gi_.assign(size(), 0.0);
  held_.clear();
  local_of_.assign(size(), -1);
  local_.clear();
  if (too_wide_) unknown_of_.assign(n, -1);
}

void overlap_equations::begin_block(std::size_t count) {
  for (const std::size_t r : local_) local_of_[r] = -1;
  local_.clear();
  count_ = count;
}

void overlap_equations::add_peak(int reflection, std::size_t offset, std::span<const float> profile, double unit) {
  const int r = unknown_of_[static_cast<std::size_t>(reflection)];
  if (r < 0) return;
  int& local = local_of_[static_cast<std::size_t>(r)];
  if (local < 0) {
    local = static_cast<int>(local_.size());
    local_.push_back(static_cast<std::size_t>(r));
    rows_.resize(local_.size() * row_length);
    std::fill_n(rows_.end() - static_cast<std::ptrdiff_t>(row_length), row_length, 0.f);
  }
  float* row = rows_.data() + static_cast<std::size_t>(local) * row_length + offset;
  const auto factor = static_cast<float>(unit);
  for (std::size_t i = 0; i < profile.size(); ++i) row[i] += factor * profile[i];
}

void overlap_equations::end_block(const float* weights, const float* differences, const float* derivatives,
                                  std::size_t stride, std::span<const int> active) {
  weighted_.assign(local_.size() * row_length, 0.f);
  for (std::size_t a = 0; a < local_.size(); ++a) {
    const float* row = rows_.data() + a * row_length;
    float* w = weighted_.data() + a * row_length;
    for (std::size_t i = 0; i < count_; ++i) w[i] = row[i] * weights[i];
    gi_[local_[a]] += static_cast<double>(dot(w, differences, count_));
    double* c = c_.data() + local_[a] * parameters_;
    for (const int n : active)
      c[n] += static_cast<double>(dot(w, derivatives + static_cast<std::size_t>(n) * stride, count_));
  }
  for (std::size_t a = 0; a < local_.size(); ++a)
    for (std::size_t b = 0; b < local_.size(); ++b) {
      const std::size_t r = local_[a], s = local_[b];
      if (s > r || s < low_[r]) continue;
      g(r, s) += static_cast<double>(dot(weighted_.data() + a * row_length, rows_.data() + b * row_length, count_));
    }
}

double overlap_equations::floor_of(std::size_t r) const { return floor_in_sigmas / std::sqrt(g(r, r)); }

/// Cholesky factor of G with the ridge; a held unknown, and one that no point feels, is decoupled.
void overlap_equations::factorise() {
  factor_.resize(band_.size());
  const auto l = [&](std::size_t r, std::size_t s) -> double& { return factor_[start_[r] + s - low_[r]]; };
  for (std::size_t r = 0; r < size(); ++r) {
    double diagonal = g(r, r) * (1.0 + ridge);
    const bool out = held_[r] != 0 || !(diagonal > 0);
    for (std::size_t s = low_[r]; s < r; ++s) {
      const std::size_t from = std::max(low_[r], low_[s]);
      const double sum = dot(&l(r, from), &l(s, from), s - from);
      l(r, s) = out || held_[s] != 0 ? 0.0 : (g(r, s) - sum) / l(s, s);
      diagonal -= l(r, s) * l(r, s);
    }
    // the ridge keeps every pivot above its own share
    l(r, r) = out ? 1.0 : std::sqrt(std::max(diagonal, 0.5 * ridge * g(r, r)));
  }
}

void overlap_equations::solve_lower(std::span<double> x) const {
  for (std::size_t r = 0; r < size(); ++r) {
    const double* row = factor_.data() + start_[r];
    x[r] = (x[r] - dot(row, x.data() + low_[r], r - low_[r])) / row[r - low_[r]];
  }
}

void overlap_equations::solve_upper(std::span<double> x) const {
  for (std::size_t r = size(); r-- > 0;) {
    const double* row = factor_.data() + start_[r];
    x[r] /= row[r - low_[r]];
    subtract(x.data() + low_[r], row, x[r], r - low_[r]);
  }
}

std::vector<double> overlap_equations::times_g(std::span<const double> x) const {
  std::vector<double> y(size(), 0.0);
  for (std::size_t r = 0; r < size(); ++r) {
    const double* row = band_.data() + start_[r];
    const std::size_t n = r - low_[r];
    y[r] += dot(row, x.data() + low_[r], n + 1);
    for (std::size_t i = 0; i < n; ++i) y[low_[r] + i] += row[i] * x[r];
  }
  return y;
}

/// How far down an intensity may go in a cycle.
double overlap_equations::lowest_move(std::size_t r) const {
  return std::min(std::max(kept_share * value_[r], floor_of(r)) - value_[r], 0.0);
}

/// An intensity that no point feels, or at its lowest value with an equation that wants it lower, stays where it is.
void overlap_equations::start_holding() {
  if (!held_.empty()) return;
  held_.assign(size(), 0);
  held_move_.assign(size(), 0.0);
  for (std::size_t r = 0; r < size(); ++r) held_[r] = !(g(r, r) > 0) || (value_[r] <= floor_of(r) && gi_[r] <= 0);
  factorise();
}

void overlap_equations::eliminate(normal_equations::normal_matrix& ne) {
  if (size() == 0 || too_wide_) return;
  start_holding();
  factorise();
  const std::vector<double> known = times_g(held_move_);
  std::vector<double> z(size(), 0.0);
  for (std::size_t r = 0; r < size(); ++r)
    if (!held_[r]) z[r] = gi_[r] - known[r];
  solve_lower(z);
  // L^-1 C^T, all parameters of an unknown together
  const std::size_t n = parameters_;
  std::vector<double> y(c_);
  for (std::size_t r = 0; r < size(); ++r) {
    double* yr = y.data() + r * n;
    if (held_[r]) {
      for (std::size_t i = 0; i < n; ++i) ne.vx(static_cast<int>(i)) -= yr[i] * held_move_[r];
      std::fill_n(yr, n, 0.0);
      continue;
    }
    const double* row = factor_.data() + start_[r];
    for (std::size_t s = low_[r]; s < r; ++s)
      if (row[s - low_[r]] != 0.0) subtract(yr, y.data() + s * n, row[s - low_[r]], n);
    for (std::size_t i = 0; i < n; ++i) yr[i] /= row[r - low_[r]];
    for (std::size_t i = 0; i < n; ++i) {
      if (yr[i] == 0.0) continue;
      ne.vx(static_cast<int>(i)) -= yr[i] * z[r];
      subtract(&ne.rjac(static_cast<int>(i), static_cast<int>(i)), yr + i, yr[i], n - i);
    }
  }
}

/// Moves of the intensities that belong to shifts of the other parameters.
std::vector<double> overlap_equations::solve(std::span<const double> shifts) const {
  const std::vector<double> known = times_g(held_move_);
  std::vector<double> x(size(), 0.0);
  for (std::size_t r = 0; r < size(); ++r) {
    if (held_[r]) continue;
    x[r] = gi_[r] - known[r];
    for (std::size_t i = 0; i < parameters_; ++i) x[r] -= c_[r * parameters_ + i] * shifts[i];
  }
  solve_lower(x);
  solve_upper(x);
  for (std::size_t r = 0; r < size(); ++r)
    if (held_[r]) x[r] = held_move_[r];
  return x;
}

bool overlap_equations::hold_back(std::span<const double> shifts) {
  if (size() == 0 || too_wide_) return false;
  start_holding();
  constexpr double noticed = 0.02;  // standard deviations below the lowest value
  const std::vector<double> x = solve(shifts);
  bool found = false;
  for (std::size_t r = 0; r < size(); ++r) {
    if (held_[r] || x[r] >= lowest_move(r)) continue;
    held_[r] = 1;
    held_move_[r] = lowest_move(r);
    found |= (held_move_[r] - x[r]) * std::sqrt(g(r, r)) > noticed;
  }
  if (found) return true;
  factorise();
  return false;
}

movement overlap_equations::follow(std::span<const double> shifts, reflection_list& refl) {
  if (size() == 0 || too_wide_) return {};
  constexpr int most_passes = 6;
  // the shifts that were taken may differ from those that the equations gave
  start_holding();
  factorise();
  for (int pass = 0; pass < most_passes && hold_back(shifts); ++pass) factorise();
  const std::vector<double> change = solve(shifts);
  const std::vector<double> effect = times_g(change);
  const double sum = std::inner_product(change.begin(), change.end(), effect.begin(), 0.0);
  movement result;
  result.in_sigmas = std::sqrt(std::max(sum, 0.0) / static_cast<double>(size()));
  result.at_floor = static_cast<int>(std::ranges::count_if(held_, [](char h) { return h != 0; }));
  for (std::size_t k = 0; k < unknown_of_.size(); ++k)
    if (const int r = unknown_of_[k]; r >= 0) {
      const auto u = static_cast<std::size_t>(r);
      refl.ff[k] = static_cast<float>(value_[u] + std::max(change[u], lowest_move(u)));
    }
  return result;
}

}  // namespace kv_free_intensities

#include "kv_least_squares.hpp"

#include <algorithm>
#include <cmath>

#include "kv_background.hpp"

namespace kv_least_squares {

using kalvaris_params::state_type;

/// Normal equations as the observations gave them.
struct solver::equations {
  int n;
  std::vector<double> matrix, vector;

  explicit equations(state_type& st)
      : n(st.run.maxs),
        matrix(st.ne.matrix().begin(), st.ne.matrix().end()),
        vector(st.ne.vector().begin(), st.ne.vector().end()) {}

  [[nodiscard]] double diagonal(int i) const {
    return matrix[static_cast<std::size_t>(i) * static_cast<std::size_t>(n) + static_cast<std::size_t>(i)];
  }

  struct answer {
    std::vector<double> inverse, shifts;
    normal_equations::inversion end;
    [[nodiscard]] double variance(int i) const {
      return inverse[static_cast<std::size_t>(i) * shifts.size() + static_cast<std::size_t>(i)];
    }
  };
  /// With lambda times the diagonal added, resting unknowns out: their shifts are 0 and no other feels them.
  [[nodiscard]] answer solve(double lambda, const std::vector<char>& resting) const {
    answer a{matrix, vector, {}};
    const auto size = static_cast<std::size_t>(n);
    for (std::size_t i = 0; i < size; ++i) {
      a.inverse[i * size + i] *= 1.0 + lambda;
      if (!resting[i]) continue;
      for (std::size_t j = 0; j < size; ++j) a.inverse[i * size + j] = a.inverse[j * size + i] = 0.0;
      a.inverse[i * size + i] = 1.0;
      a.shifts[i] = 0.0;
    }
    a.end = normal_equations::dp_inv(a.inverse, a.shifts, n);
    return a;
  }
};

namespace {

std::vector<char> flags_of(const std::vector<resting_parameter>& list, int n) {
  std::vector<char> flags(static_cast<std::size_t>(n), 0);
  for (const resting_parameter& r : list) flags[static_cast<std::size_t>(r.n - 1)] = 1;
  return flags;
}

constexpr std::string_view no_effect = "left out: nothing in the pattern depends on it";
constexpr std::string_view no_own_effect = "left out: the other parameters leave no effect of its own to it";

}  // namespace

void solver::hold(const std::vector<apply_shifts::held_parameter>& held) {
  for (const auto& h : held) {
    std::erase_if(held_, [&](const auto& known) { return known.n == h.n; });
    held_.push_back(h);
  }
}

/// A parameter that stands at the edge of what is allowed and would shift outward rests, so that the shifts of the
/// others lead to the minimum on the edge. True when the equations must be solved again.
bool solver::rest_at_edges(const std::vector<double>& shifts, solution& result) {
  const std::size_t before = result.resting.size();
  for (const auto& h : held_)
    if (shifts[static_cast<std::size_t>(h.n - 1)] * h.outward > 0.0) result.resting.push_back({h.n, h.why});
  if (result.resting.size() > before) return true;
  std::erase_if(held_, [&](const auto& h) {
    return std::ranges::find(result.resting, h.n, &resting_parameter::n) == result.resting.end();
  });
  return false;
}

/// Scale factors and the linear coefficients of the background, over all slots of a number.
void solver::find_linear_parameters(state_type& st) {
  namespace gslot = kalvaris_params::gslot;
  using kalvaris_params::slot_family;
  linear_.assign(static_cast<std::size_t>(st.run.maxs), 1);
  scale_.assign(linear_.size(), 0.0);
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) {
    if (s.number < 1 || s.number > st.run.maxs) return;
    const auto n = static_cast<std::size_t>(s.number - 1);
    const bool is_scale = s.family == slot_family::phase && s.k == kalvaris_params::slot::scale;
    bool linear = is_scale;
    if (s.family == slot_family::global && s.k >= gslot::bac) {
      const auto model = kv_background::model_of(st.pattern[static_cast<std::size_t>(s.ip)]);
      linear = model == kv_background::model::debye  ? s.k < gslot::debye_dist || s.k >= gslot::user_bk
               : model == kv_background::model::file ? s.k <= gslot::bfile_b
                                                     : true;
    }
    if (!linear) linear_[n] = 0;
    if (is_scale && s.code != 0.f) scale_[n] = static_cast<double>(s.value);
  });
}

/// When a scale factor wants to move by more than itself, the slopes of widths, cell and all else that it multiplies
/// are wrong by as much, and their shifts with them.
bool solver::scales_are_far(const std::vector<double>& shifts, const std::vector<char>& resting) const {
  bool far = scales_alone_, others = false;
  for (std::size_t i = 0; i < shifts.size(); ++i) {
    if (resting[i]) continue;
    far |= scale_[i] > 0.0 && std::abs(shifts[i]) > scale_[i];
    others |= !linear_[i];
  }
  return far && others;
}

/// In such a cycle only what the pattern is linear in moves, until the scale factors stand where the rest of the model
/// lets them: none wants to move by more than a tenth of itself and two standard deviations.
void solver::move_linear_alone(const equations& eq, double lambda, double chi2, std::vector<double>& shifts,
                               solution& result) {
  std::vector<char> resting = flags_of(result.resting, eq.n);
  for (std::size_t i = 0; i < resting.size(); ++i) resting[i] |= linear_[i] ? 0 : 1;
  const equations::answer alone = eq.solve(lambda, resting);
  if (alone.end.singular) return;
  for (int i = 0; i < eq.n; ++i) {
    const auto u = static_cast<std::size_t>(i);
    if (resting[u] || !(scale_[u] > 0.0)) continue;
    const double sigma = std::sqrt(std::max(alone.variance(i), 0.0) * chi2);
    result.curbed |= std::abs(alone.shifts[u]) > std::max(0.1 * scale_[u], 2.0 * sigma);
  }
  if (result.curbed) shifts = alone.shifts;
}

solution solver::solve(state_type& st, double lambda, double chi2, bool leave_out) {
  constexpr double smallest_diagonal = 1.0e-30;
  const equations eq(st);
  solution result;
  result.resting = left_out_;
  for (int i = 0; i < eq.n; ++i) {
    const bool out = std::ranges::find(left_out_, i + 1, &resting_parameter::n) != left_out_.end();
    if (out || eq.diagonal(i) >= smallest_diagonal) continue;
    result.without_effect.push_back(i);
    result.resting.push_back({i + 1, no_effect});
  }
  if (!leave_out && !result.without_effect.empty()) return result;
  result.without_effect.clear();

  find_linear_parameters(st);
  const double goodness = std::max(chi2, 1.0);  // standard deviations are never scaled down
  for (;;) {
    const std::vector<char> resting = flags_of(result.resting, eq.n);
    equations::answer whole = eq.solve(0.0, resting);
    if (whole.end.singular && !leave_out) {
      result.dependent = normal_equations::dependent_sets(eq.matrix, eq.n);
      if (result.dependent.empty()) result.dependent.push_back({{whole.end.column}, {1.0}});
      return result;
    }
    if (whole.end.singular) {
      result.resting.push_back({whole.end.column + 1, no_own_effect});
      continue;
    }
    std::vector<double> shifts = lambda > 0.0 ? eq.solve(lambda, resting).shifts : whole.shifts;
    if (rest_at_edges(shifts, result)) continue;
    if (scales_are_far(shifts, resting)) move_linear_alone(eq, lambda, goodness, shifts, result);
    scales_alone_ = result.curbed;
    std::ranges::transform(whole.inverse, st.ne.matrix().begin(), [&](double v) { return v * goodness; });
    std::ranges::copy(shifts, st.ne.vector().begin());
    for (int i = 0; i < eq.n; ++i)
      if (resting[static_cast<std::size_t>(i)]) st.ne.rjac(i, i) = 0.0;
    st.run.cond = static_cast<float>(whole.end.condition);
    result.undamped = std::move(whole.shifts);
    return result;
  }
}

}  // namespace kv_least_squares

// Widths: plain peaks in the place of the calculated ones, with widths of their own.
#include <cmath>

#include "kv_misfit_parts.hpp"

namespace kv_misfit {

/// Weighted sum of observed minus background minus the columns, their heights free and not negative.
double least_sum(const fit_view& fit, const std::vector<std::vector<double>>& columns) {
  const std::size_t m = columns.size();
  std::vector<std::vector<double>> a(m, std::vector<double>(m, 0.0));
  std::vector<double> b(m, 0.0), height(m, 0.0);
  double dd = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double d = fit.y[i] - fit.background[i], w = 1.0 / fit.var[i];
    dd += d * d * w;
    for (std::size_t j = 0; j < m; ++j) {
      b[j] += columns[j][i] * d * w;
      for (std::size_t k = 0; k <= j; ++k) a[j][k] += columns[j][i] * columns[k][i] * w;
    }
  }
  for (std::size_t j = 0; j < m; ++j)
    for (std::size_t k = 0; k < j; ++k) a[k][j] = a[j][k];
  // coordinate descent: few columns that overlap little, and each height stays at or above 0
  for (int round = 0; round < 50; ++round)
    for (std::size_t j = 0; j < m; ++j) {
      if (!(a[j][j] > 0.0)) continue;
      double rest = b[j];
      for (std::size_t k = 0; k < m; ++k)
        if (k != j) rest -= a[j][k] * height[k];
      height[j] = std::max(0.0, rest / a[j][j]);
    }
  double sum = dd;
  for (std::size_t j = 0; j < m; ++j) {
    sum -= 2.0 * height[j] * b[j];
    for (std::size_t k = 0; k < m; ++k) sum += height[j] * height[k] * a[j][k];
  }
  return sum;
}

std::vector<double> line_widths(const fit_view& fit, double factor) {
  std::vector<double> widths;
  for (const line& l : fit.lines) widths.push_back(l.width * factor);
  return widths;
}

std::vector<double> plain_peaks(const fit_view& fit, int phase, std::span<const double> widths) {
  constexpr double reach = 10.0;  // in widths
  std::vector<double> sum(fit.size(), 0.0);
  for (std::size_t k = 0; k < fit.lines.size(); ++k) {
    const line& l = fit.lines[k];
    if (l.phase != phase) continue;
    const double width = widths[k];
    const double gauss = (1.0 - l.eta) * std::sqrt(four_ln2 / std::numbers::pi) / width;
    const double lorentz = l.eta * 2.0 / (std::numbers::pi * width);
    const auto first = std::ranges::lower_bound(fit.x, l.position - reach * width) - fit.x.begin();
    for (auto i = static_cast<std::size_t>(first); i < fit.size() && fit.x[i] < l.position + reach * width; ++i) {
      const double u = (fit.x[i] - l.position) / width;
      sum[i] += l.weight * (gauss * std::exp(-four_ln2 * u * u) + lorentz / (1.0 + 4.0 * u * u));
    }
  }
  return sum;
}

namespace {

/// Sums of a fit with other widths.
class widened_fit {
 public:
  explicit widened_fit(const fit_view& f) : fit(f), rest_(f.size()) {
    for (int ph = 0; ph < static_cast<int>(fit.phases.size()); ++ph)
      if (fit.phases[static_cast<std::size_t>(ph)].contributes) phases_.push_back(ph);
    for (std::size_t i = 0; i < fit.size(); ++i) {
      rest_[i] = fit.calc[i] - fit.background[i];
      now_ += (fit.y[i] - fit.calc[i]) * (fit.y[i] - fit.calc[i]) / fit.var[i];
    }
    const auto columns = plain(line_widths(fit));
    for (std::size_t j = 0; j < phases_.size(); ++j) add(rest_, columns[j], -scale(j));
    plain_now_ = std::min(now_, least_sum(fit, columns));
  }
  /// By how much plain peaks of these widths, with heights of their own, make the sum fall.
  [[nodiscard]] double fall_plain(std::span<const double> widths) const {
    return plain_now_ - least_sum(fit, plain(widths));
  }
  /// The same, or by how much their change added to the calculated curve does.
  [[nodiscard]] double fall(double factor) const {
    auto columns = plain(line_widths(fit, factor));
    std::vector<double> added = rest_;
    for (std::size_t j = 0; j < phases_.size(); ++j) add(added, columns[j], scale(j));
    return std::max(plain_now_ - least_sum(fit, std::move(columns)), now_ - least_sum(fit, {std::move(added)}));
  }

 private:
  [[nodiscard]] std::vector<std::vector<double>> plain(std::span<const double> widths) const {
    std::vector<std::vector<double>> columns;
    for (const int ph : phases_) columns.push_back(plain_peaks(fit, ph, widths));
    return columns;
  }
  static void add(std::vector<double>& to, const std::vector<double>& curve, double height) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] += height * curve[i];
  }
  [[nodiscard]] double scale(std::size_t j) const { return fit.phases[static_cast<std::size_t>(phases_[j])].scale; }

  const fit_view& fit;
  std::vector<int> phases_;
  std::vector<double> rest_;  ///< what is calculated but not plain
  double now_ = 0, plain_now_ = 0;
};

}  // namespace

width_change best_width_factor(const fit_view& fit, const width_line& observed) {
  constexpr double largest = 6.0;
  constexpr int steps = 12;
  const widened_fit widened(fit);
  const double reach = std::log(largest);
  const auto [ln_factor, least] =
      least_on_grid(-reach, reach / steps, 2 * steps + 1, [&](double ln_f) { return -widened.fall(std::exp(ln_f)); });
  std::vector<double> widths, ratios;
  for (const line& l : fit.lines) {
    widths.push_back(observed.at(l.position));
    if (l.position > fit.x.front() && l.position < fit.x.back()) ratios.push_back(widths.back() / l.width);
  }
  const double by_observed = ratios.empty() ? 0.0 : widened.fall_plain(widths);
  const bool at_edge = std::abs(ln_factor) > reach * (1.0 - 1e-6);  // the widths seen tell how far it goes
  if (!ratios.empty() && (at_edge || by_observed > -least))
    return {median(std::move(ratios)), std::max(by_observed, -least)};
  return {std::exp(ln_factor), -least};
}

}  // namespace kv_misfit

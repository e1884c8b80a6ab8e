// Peaks: found in a curve, and how wide they are; lines merged to peaks.
#include <array>
#include <cmath>

#include "kv_misfit_parts.hpp"

namespace kv_misfit {

namespace {

/// Height of a Gaussian of the width at point i on a straight ground, by least squares; sigma 0 where the ground is not
/// seen on both sides. `shape` is room for the work.
found_peak height_at(std::span<const double> x, std::span<const double> curve, std::span<const double> var,
                     std::size_t i, double width, std::vector<double>& shape) {
  constexpr double reach = 1.25, seen = 0.7;  // in widths
  std::size_t first = i, last = i + 1;
  while (first > 0 && x[i] - x[first - 1] <= reach * width) --first;
  while (last < x.size() && x[last] - x[i] <= reach * width) ++last;
  if (last - first < 6 || x[i] - x[first] < seen * width || x[last - 1] - x[i] < seen * width) return {x[i], 0.0, 0.0};
  const auto n = static_cast<double>(last - first);
  double mean_g = 0, mean_t = 0;
  shape.resize(last - first);
  for (std::size_t k = first; k < last; ++k) {
    const double u = (x[k] - x[i]) / width, g = std::exp(-four_ln2 * u * u);
    shape[k - first] = g;
    mean_g += g / n, mean_t += (x[k] - x[i]) / n;
  }
  double tt = 0, gt = 0;
  for (std::size_t k = first; k < last; ++k) {
    const double t = x[k] - x[i] - mean_t;
    tt += t * t, gt += t * shape[k - first];
  }
  const double tilt = gt / tt;
  double gg = 0, gv = 0, ggvar = 0;
  for (std::size_t k = first; k < last; ++k) {
    const double g = shape[k - first] - mean_g - tilt * (x[k] - x[i] - mean_t);
    gg += g * g, gv += g * curve[k], ggvar += g * g * var[k];
  }
  return {x[i], gv / gg, std::sqrt(ggvar) / gg};
}

double strength(const found_peak& p) { return p.sigma > 0.0 ? p.height / p.sigma : 0.0; }

/// A straight line through the medians of the lower and the upper half of the positions; the median of all where that
/// line would fall: a doublet that is not resolved below and resolved above is no narrowing of the peaks.
width_line line_through(std::vector<std::pair<double, double>> of) {
  constexpr std::size_t enough = 6;
  std::ranges::sort(of);
  std::vector<double> all, x[2], w[2];
  for (std::size_t k = 0; k < of.size(); ++k) {
    const std::size_t half = 2 * k < of.size() ? 0 : 1;
    all.push_back(of[k].second);
    x[half].push_back(of[k].first), w[half].push_back(of[k].second);
  }
  width_line line{median(all), 0.0, of.front().first, 0.0};
  if (of.size() < enough) return line;
  const double x0 = median(x[0]), x1 = median(x[1]), w0 = median(w[0]), w1 = median(w[1]);
  if (!(w1 > w0)) return line;
  line.slope = (w1 - w0) / (x1 - x0);
  line.at_start = w0 + line.slope * (of.front().first - x0);
  line.least = 0.5 * w0;
  return line;
}

}  // namespace

std::vector<found_peak> find_peaks(std::span<const double> x, std::span<const double> curve,
                                   std::span<const double> var, const width_line& width, double least_sigma) {
  constexpr double places_per_width = 8.0;  // enough for a parabola through the top
  std::vector<found_peak> seen, peaks;
  std::vector<double> room;
  for (std::size_t i = 0; i < x.size(); ++i)
    if (seen.empty() || (x[i] - seen.back().position) * places_per_width > 0.999 * width.at(x[i]))
      seen.push_back(height_at(x, curve, var, i, width.at(x[i]), room));
  for (std::size_t i = 1; i + 1 < seen.size(); ++i) {
    if (!(strength(seen[i]) >= least_sigma)) continue;
    const double left = seen[i - 1].height, here = seen[i].height, right = seen[i + 1].height;
    if (left >= here || right > here) continue;
    found_peak p = seen[i];
    const double bend = left - 2.0 * here + right;
    if (bend < 0.0) p.position += 0.25 * (seen[i + 1].position - seen[i - 1].position) * (left - right) / bend;
    peaks.push_back(p);
  }
  return peaks;
}

std::optional<width_line> observed_width(std::span<const double> x, std::span<const double> curve,
                                         std::span<const double> var) {
  constexpr double growth = 1.25, least_sigma = 8.0;
  // the height is largest through a window a little wider than the peak: 1.12 for a Gaussian, 1.22 for a Lorentzian
  constexpr double window_over_width = 1.16;
  constexpr double narrowest = 2.4;  // in steps: seven points are seen through it
  constexpr std::size_t most = 16;
  if (x.size() < 20) return {};
  const double step = (x.back() - x.front()) / static_cast<double>(x.size() - 1);
  struct candidate {
    double width = 0;
    found_peak peak;
  };
  std::vector<candidate> all, taken;
  for (double width = narrowest * step; width < 0.05 * (x.back() - x.front()); width *= growth)
    for (const found_peak& p : find_peaks(x, curve, var, {width, 0.0, x.front(), 0.0}, least_sigma))
      all.push_back({width, p});
  std::ranges::stable_sort(all, std::ranges::greater{}, [](const candidate& c) { return c.peak.height; });
  for (const candidate& c : all) {
    if (taken.size() == most) break;
    if (std::ranges::none_of(taken, [&](const candidate& t) {
          return std::abs(t.peak.position - c.peak.position) < std::max(t.width, c.width);
        }))
      taken.push_back(c);
  }
  if (taken.empty()) return {};
  std::vector<std::pair<double, double>> of;
  for (const candidate& c : taken) of.emplace_back(c.peak.position, c.width / window_over_width);
  width_line line = line_through(std::move(of));
  line.least = std::max(line.least, narrowest * step);
  return line;
}

std::vector<place> merged_lines(const fit_view& fit, const width_line& width, int only_phase) {
  constexpr double resolved = 0.6, least_weight = 0.02;
  constexpr int stretches = 16;  // the strength of a line is told beside its neighbours, so that a wrong B hides none
  const double low = fit.x.front(), range = fit.x.back() - low;
  const auto stretch_of = [&](double x) {
    return std::clamp(static_cast<int>((x - low) / range * stretches), 0, stretches - 1);
  };
  std::vector<std::array<double, stretches>> highest(fit.phases.size());
  for (const line& l : fit.lines)
    for (const int at : {stretch_of(l.position) - 1, stretch_of(l.position), stretch_of(l.position) + 1}) {
      if (at < 0 || at >= stretches) continue;
      double& h = highest[static_cast<std::size_t>(l.phase)][static_cast<std::size_t>(at)];
      h = std::max(h, l.weight);
    }
  std::vector<place> lines;
  for (const line& l : fit.lines) {
    const auto ph = static_cast<std::size_t>(l.phase);
    if (!fit.phases[ph].contributes || (only_phase >= 0 && l.phase != only_phase)) continue;
    const double strongest = highest[ph][static_cast<std::size_t>(stretch_of(l.position))];
    lines.push_back({l.position, fit.phases[ph].matching ? 1.0 : l.weight / strongest, fit.phases[ph].matching});
  }
  std::ranges::sort(lines, {}, &place::position);
  std::vector<place> merged;
  for (const place& l : lines) {
    if (!merged.empty() && l.position - merged.back().position < resolved * width.at(l.position)) {
      place& last = merged.back();
      last.position += (l.position - last.position) * l.weight / (last.weight + l.weight);
      last.weight += l.weight;
    } else {
      merged.push_back(l);
    }
  }
  std::erase_if(merged, [](const place& p) { return p.weight < least_weight; });
  return merged;
}

}  // namespace kv_misfit

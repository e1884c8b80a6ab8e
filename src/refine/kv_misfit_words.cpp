#include "kv_misfit_words.hpp"

#include <algorithm>
#include <cmath>

#include "lmix_fixed_format.hpp"

namespace kv_misfit_words {

namespace {

using kv_misfit::family;
using kv_misfit::kind;

/// A number with so many decimals and no blanks.
std::string fixed(double value, int decimals) {
  std::string s = lmix_fixed_format::fmt_line{}.f(24, decimals, value).str();
  s.erase(0, s.find_first_not_of(' '));
  if (s.ends_with('.')) s.pop_back();
  return s;
}

/// A number with three figures.
std::string three_figures(double value) {
  const double size = std::abs(value);
  const int digits = size > 0.0 ? static_cast<int>(std::floor(std::log10(size))) : 0;
  return fixed(value, std::clamp(2 - digits, 0, 6));
}

std::string with_sigma(double value, double sigma) {
  const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(std::max(sigma, 1e-4)))), 2, 4);
  return fixed(value, decimals) + " +- " + fixed(sigma, decimals);
}

std::string percent(double share) { return fixed(100.0 * share, 0) + " %"; }

std::string phase_name(int phase) { return "phase " + std::to_string(phase + 1); }

}  // namespace

remark dead_points(const kv_misfit::fit_view& fit, const kv_misfit::dead_point_set& dead) {
  constexpr std::size_t most = 5;
  remark r;
  r.what = kind::dead_points;
  r.gain = std::max(dead.share, dead.tension / (1.0 + dead.tension));
  r.numbers.push_back(100.0 * dead.share);
  std::string where;
  for (std::size_t k = 0; k < dead.index.size(); ++k) {
    const std::size_t i = dead.index[k];
    r.numbers.push_back(fit.x[i]);
    if (k < most)
      where += (k > 0 ? ", " : "") + fixed(fit.x[i], 3) + " (observed " + three_figures(fit.y[i]) + ", calculated " +
               three_figures(fit.calc[i]) + ", sigma " + three_figures(std::sqrt(fit.var[i])) + ")";
  }
  const bool one = dead.index.size() == 1;
  r.text = one ? "One point" : std::to_string(dead.index.size()) + " points";
  if (dead.share >= 0.5 * dead.tension)
    r.text += (one ? " carries " : " carry ") + percent(dead.share) +
              " of the weighted sum, unlike the points beside " + (one ? "it" : "them");
  else
    r.text += std::string(one ? " lies" : " lie") +
              " far below the data on either side with a sigma that bends the fit to " + (one ? "it" : "them") +
              ": on a curve through the points beside " + (one ? "it" : "them") + " the weighted sum would be " +
              three_figures(1.0 + dead.tension) + " times as large";
  r.text += std::string(". Exclude ") + (one ? "it" : "them") + " or correct the data. " +
            (one ? "Place: " : "Places: ") + where + (dead.index.size() > most ? ", ..." : "") + ".";
  return r;
}

remark weights(double variance_ratio, double chi2) {
  remark r;
  r.what = kind::weights;
  const double factor = std::sqrt(variance_ratio);
  r.numbers = {factor, chi2};
  r.text = "The standard deviations of the data are about " + three_figures(factor < 1.0 ? 1.0 / factor : factor) +
           " times too " + (factor < 1.0 ? "large" : "small") +
           " for the scatter from point to point: were the data scaled" +
           (factor < 1.0 ? ", smoothed or interpolated" : "") +
           "? Chi-square, esds and expected R say nothing with such weights.";
  return r;
}

namespace {

/// "below" when the calculated peaks must move up.
std::string_view side(double amount) { return amount > 0.0 ? "below" : "above"; }

std::string cell_words(const kv_misfit::fit_view& fit, const kv_misfit::match& m, int phase) {
  const bool several = phase < 0 && std::ranges::count_if(fit.phases, &kv_misfit::phase_view::contributes) > 1;
  const double percent_of_cell = 100.0 * std::abs(std::expm1(m.by.stretch));
  const bool large = m.by.stretch > 0.0;
  std::string text = several ? "all cells" : phase >= 0 ? "the cell of " + phase_name(phase) : "the cell";
  text += std::string(several ? " are too " : " is too ") + (large ? "large" : "small") + " by " +
          with_sigma(percent_of_cell, 100.0 * m.sigma.stretch) + " %";
  if (phase < 0) text += std::string(", or the wavelength is too ") + (large ? "short" : "long") + " by as much";
  return text;
}

}  // namespace

remark moved(const kv_misfit::fit_view& fit, const kv_misfit::match& m, int matched_now, int phase,
             std::optional<double> gain) {
  remark r;
  r.phase = phase;
  r.gain = gain.value_or(1.0);
  const bool displaced = m.how == family::displacement;
  const double shift = displaced ? m.by.displacement : m.by.shift;
  const double shift_sigma = displaced ? m.sigma.displacement : m.sigma.shift;
  r.numbers = {shift,
               shift_sigma,
               100.0 * std::expm1(m.by.stretch),
               100.0 * m.sigma.stretch,
               double(m.matched),
               double(m.observed),
               double(matched_now)};
  const double at_middle = fit.x[fit.size() / 2];
  const double by_stretch = kv_misfit::moved({0.0, m.by.stretch, 0.0}, at_middle) - at_middle;
  r.what = std::abs(by_stretch) > std::abs(shift) ? kind::cell : kind::shift;
  const std::string amount = with_sigma(std::abs(shift), shift_sigma) + " deg";
  switch (m.how) {
    case family::common:
      r.text = "The calculated peaks stand " + amount + " " + std::string(side(shift)) +
               " the observed ones: the zero of the scale is wrong.";
      break;
    case family::displacement:
      r.text = "The calculated peaks stand " + amount + " times cos(theta) " + std::string(side(shift)) +
               " the observed ones: the displacement of the sample, or the zero of the scale, is wrong.";
      break;
    case family::stretch:
      r.text = "The calculated peaks stand " + std::string(side(m.by.stretch)) +
               " the observed ones, farther with growing angle as tan(theta): " + cell_words(fit, m, phase) + ".";
      break;
    case family::common_and_stretch:
      r.text =
          "The calculated peaks stand off the observed ones by a common shift and by a part of tan(theta): they are " +
          amount + " too " + (shift > 0.0 ? "low" : "high") + ", and " + cell_words(fit, m, phase) + ".";
      break;
  }
  r.text += " With that " + std::to_string(m.matched) + " of " + std::to_string(m.observed) +
            " observed peaks stand on calculated ones, " + std::to_string(matched_now) + " as it is";
  if (gain) r.text += ", and the sum falls by " + percent(*gain);
  r.text += ".";
  return r;
}

remark width(double factor, double observed, std::optional<double> gain) {
  remark r;
  r.what = kind::width;
  r.gain = gain.value_or(0.0);
  r.numbers = {factor, observed};
  r.text = "The calculated peaks are " + three_figures(std::max(factor, 1.0 / factor)) + " times too " +
           (factor > 1.0 ? "narrow" : "wide") + "; the observed ones are " + three_figures(observed) +
           " deg wide in the middle of the pattern.";
  if (gain) r.text += " With that the sum falls by " + percent(*gain) + ".";
  return r;
}

remark background(const kv_misfit::fit_view& fit, const kv_misfit::background_offset& offset, double gain) {
  remark r;
  r.what = kind::background;
  r.gain = gain;
  double mean = 0.0, level = 0.0;
  for (const double d : offset.offset) mean += d / static_cast<double>(offset.offset.size());
  for (const double b : fit.background) level += b / static_cast<double>(fit.size());
  const auto places = static_cast<double>(offset.x.size());
  r.numbers = {mean, level > 0.0 ? 100.0 * mean / level : 0.0, double(offset.above), double(offset.below), places};
  const std::string all = " of " + std::to_string(offset.x.size()) + " places between peaks";
  if (offset.above > 3 * offset.below || offset.below > 3 * offset.above)
    r.text = "The calculated background lies " + std::string(mean < 0.0 ? "above" : "below") + " the observed one in " +
             std::to_string(std::max(offset.above, offset.below)) + all + ", by " + three_figures(std::abs(mean)) +
             " in the mean" + (level > 0.0 ? " (" + fixed(100.0 * std::abs(mean) / level, 0) + " % of it)." : ".");
  else
    r.text = "The calculated background does not follow the observed one: it lies above in " +
             std::to_string(offset.above) + " and below in " + std::to_string(offset.below) + all + ".";
  r.text += " Put right, the sum falls by " + percent(gain) + ".";
  return r;
}

remark unexplained(std::span<const kv_misfit::found_peak> peaks, double highest, double gain) {
  constexpr std::size_t most = 5;
  remark r;
  r.what = kind::unexplained_peaks;
  r.gain = gain;
  std::vector<kv_misfit::found_peak> largest(peaks.begin(), peaks.end());
  std::ranges::stable_sort(largest, std::ranges::greater{}, &kv_misfit::found_peak::height);
  largest.resize(std::min(largest.size(), most));
  r.numbers.push_back(static_cast<double>(peaks.size()));
  std::string list;
  for (const auto& p : largest) {
    r.numbers.insert(r.numbers.end(), {p.position, 100.0 * p.height / highest});
    list += (list.empty() ? "" : ", ") + fixed(p.position, 2) + " deg (" + fixed(100.0 * p.height / highest, 0) +
            " %, " + fixed(p.height / p.sigma, 0) + " sigma)";
  }
  const bool one = peaks.size() == 1;
  r.text = (one ? "One observed peak is" : std::to_string(peaks.size()) + " observed peaks are") +
           " explained by no phase and " + (one ? "carries " : "carry ") + percent(gain) +
           " of the excess of the sum. " + (one ? "" : "The largest, in per cent of the largest peak: ") + list + ".";
  return r;
}

remark empty_phase(int phase, int own_lines, double height, double sigma) {
  remark r;
  r.what = kind::empty_phase;
  r.phase = phase;
  r.numbers = {double(own_lines), height, sigma};
  r.text = "Of " + phase_name(phase) + " no peak is observed: at its " + std::to_string(own_lines) +
           " lines away from those of other phases its largest peak would be " + with_sigma(height, sigma) +
           " % of the largest observed one. It is not there, or its lines stand elsewhere (cell, wavelength, zero).";
  return r;
}

}  // namespace kv_misfit_words

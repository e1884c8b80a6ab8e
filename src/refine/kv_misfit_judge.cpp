// The search for causes in one fit: thresholds, order, and what rules out what.
#include <cmath>
#include <limits>

#include "kv_misfit_parts.hpp"
#include "kv_misfit_words.hpp"

namespace kv_misfit {

namespace {

// ---- thresholds ----------------------------------------------------------------------------------------------------

/// The sum must exceed the number of points by so many of its standard deviations, sqrt(2 N), before a cause is sought.
constexpr double least_excess = 6.0;
/// Part of the excess that the cause of a remark explains. Imperfect peak shapes and intensities, the common lot of
/// measured patterns, spread theirs over many small causes.
constexpr double least_gain = 0.3;
/// A scatter this many times its variance, or that part of it, is no matter of counting: sigma is wrong by two.
constexpr double strange_scatter = 4.0;
/// Movements below this part of the width do not change what a fit says.
constexpr double least_shift = 0.1;
/// Widths wrong by less are a matter of the shape.
constexpr double least_width_factor = 1.2;
/// Peaks below this part of the largest are not called unexplained.
constexpr double least_height = 0.03;
constexpr double peak_sigma = 6.0;
/// Chance, all trials counted, below which a match of positions is none.
constexpr double most_odds = 1e-3;
constexpr int fewest_peaks = 4;
/// A movement must bring so many times the peaks onto calculated ones that stand there as it is.
constexpr double many_more = 1.25;

void erase_points(fit_view& fit, std::vector<std::size_t> index) {
  std::ranges::sort(index, std::ranges::greater{});
  for (const std::size_t i : index)
    for (auto* v : {&fit.x, &fit.y, &fit.calc, &fit.background, &fit.var})
      v->erase(v->begin() + static_cast<std::ptrdiff_t>(i));
}

/// Distance to the nearest of places in ascending order.
double distance_to(const std::vector<place>& places, double position) {
  const auto right = std::ranges::lower_bound(places, position, {}, &place::position);
  double distance = std::numeric_limits<double>::infinity();
  if (right != places.end()) distance = right->position - position;
  if (right != places.begin()) distance = std::min(distance, position - std::prev(right)->position);
  return distance;
}

/// From the plainest causes to those that are left when the others are known.
class judge {
 public:
  explicit judge(const fit_view& given) : fit(given) {}
  std::vector<remark> remarks();

 private:
  void judge_misfit();
  void judge_points();
  void judge_weights();
  bool see_peaks();
  void keep_strongest(std::vector<found_peak>& of) const;
  bool judge_far_movement();
  bool take_far(int phase, const std::vector<found_peak>& of);
  [[nodiscard]] bool convinces(const match& m, const match& now, const std::vector<found_peak>& of) const;
  [[nodiscard]] std::vector<found_peak> peaks_without_others(int ph) const;
  void judge_model();
  void judge_width_of_moved();
  void judge_seen_widths();
  void judge_unexplained();
  void see_scales();
  void judge_phases();
  [[nodiscard]] std::vector<place> own_lines(int ph) const;
  [[nodiscard]] found_peak height_of(int ph, const std::vector<place>& own) const;
  [[nodiscard]] double gain(double sum) const { return (total - sum) / excess; }
  [[nodiscard]] std::optional<remark> movement_remark() const;
  [[nodiscard]] std::optional<remark> width_remark() const;
  [[nodiscard]] std::optional<remark> background_remark() const;
  [[nodiscard]] double bragg(std::size_t i) const { return fit.calc[i] - fit.background[i]; }
  [[nodiscard]] bool near_a_line(const found_peak& p) const;
  [[nodiscard]] double explained_part(const found_peak& p) const;

  fit_view fit;  ///< without dead points, variances at the scale of the scatter
  std::vector<remark> found;
  double total = 0, excess = 0;
  width_line width;
  std::vector<found_peak> peaks;
  double highest = 0;                        ///< of the peaks
  std::vector<place> lines;                  ///< calculated, from the list
  std::vector<found_peak> calculated_peaks;  ///< from the calculated curve
  std::optional<match> far;                  ///< movement that brings calculated peaks on observed ones
  int far_phase = -1;
  std::vector<double> usual_scale;  ///< per phase, see_scales
};

std::vector<remark> judge::remarks() {
  constexpr std::size_t fewest_points = 50;
  if (fit.size() < fewest_points) return {};
  judge_points();
  judge_weights();
  total = weighted_sum(fit);
  const auto n = static_cast<double>(fit.size());
  excess = total - n;
  const bool bad = excess > least_excess * std::sqrt(2.0 * n);
  if (fit.two_theta && see_peaks()) {
    if (bad) judge_misfit();
    judge_phases();
  }
  if (found.size() > most_remarks) found.resize(most_remarks);
  return found;
}

void judge::judge_misfit() {
  if (std::ranges::count(found, kind::dead_points, &remark::what) > 0) return;  // the fit bends to them
  const std::size_t before = found.size();
  if (!judge_far_movement()) judge_model();
  judge_unexplained();
  if (found.size() == before) judge_seen_widths();
}

void judge::judge_points() {
  for (const auto& kind_of : {sunken_points, lone_points}) {
    const dead_point_set dead = kind_of(fit);
    if (std::max(dead.share, dead.tension) >= least_gain) found.push_back(kv_misfit_words::dead_points(fit, dead));
    erase_points(fit, dead.index);
  }
}

void judge::judge_weights() {
  const double ratio = scatter_ratio(fit);
  if (!(ratio > 0.0)) return;
  const bool strange = ratio > strange_scatter || ratio < 1.0 / strange_scatter;
  if (strange && !fit.unit_weights)
    found.push_back(kv_misfit_words::weights(ratio, weighted_sum(fit) / static_cast<double>(fit.size())));
  if (strange || fit.unit_weights)
    for (double& v : fit.var) v *= ratio;
}

bool judge::see_peaks() {
  const auto seen = observed_width(fit.x, fit.y, fit.var);
  if (!seen) return false;
  width = *seen;
  peaks = find_peaks(fit.x, fit.y, fit.var, width, peak_sigma);
  for (const found_peak& p : peaks) highest = std::max(highest, p.height);
  keep_strongest(peaks);
  lines = merged_lines(fit, width, -1);
  calculated_peaks = find_peaks(fit.x, fit.calc, fit.var, width, peak_sigma);
  keep_strongest(calculated_peaks);
  return !peaks.empty();
}

/// Peaks that are not small beside the largest observed one, the strongest of them, in the order of their positions.
void judge::keep_strongest(std::vector<found_peak>& of) const {
  constexpr std::size_t most = 80;
  std::erase_if(of, [&](const found_peak& p) { return p.height < least_height * highest; });
  std::ranges::stable_sort(of, std::ranges::greater{}, &found_peak::height);
  of.resize(std::min(of.size(), most));
  std::ranges::sort(of, {}, &found_peak::position);
}

/// Movements so far that calculated and observed peaks hardly overlap: sought on the lists of their positions.
bool judge::judge_far_movement() {
  if (take_far(-1, peaks)) return true;
  const int n = static_cast<int>(fit.phases.size());
  for (int ph = 0; ph < n && n > 1; ++ph)
    if (fit.phases[static_cast<std::size_t>(ph)].contributes && take_far(ph, peaks_without_others(ph))) return true;
  return false;
}

/// Observed peaks at which no line of another phase stands.
std::vector<found_peak> judge::peaks_without_others(int ph) const {
  std::vector<found_peak> left = peaks;
  for (int other = 0; other < static_cast<int>(fit.phases.size()); ++other) {
    if (other == ph) continue;
    const auto theirs = merged_lines(fit, width, other);
    std::erase_if(left,
                  [&](const found_peak& p) { return distance_to(theirs, p.position) < 0.5 * width.at(p.position); });
  }
  return left;
}

bool judge::take_far(int phase, const std::vector<found_peak>& of) {
  constexpr double reach_in_widths = 20.0, largest_zero = 2.5, part_of_range = 0.15;
  constexpr double clearly = 1.1;  // of the score of a plainer movement
  if (static_cast<int>(of.size()) < fewest_peaks) return false;
  const auto places = merged_lines(fit, width, phase);
  match now = match_of(of, places, width, {});
  std::vector<place> tops;
  for (const found_peak& p : calculated_peaks) tops.push_back({p.position, p.height, false});
  if (const match by_curve = match_of(of, tops, width, {}); phase < 0 && by_curve.score > now.score)
    now = by_curve;  // asymmetry moves the tops of peaks away from the lines
  if (now.observed < many_more * now.matched) return false;
  const double reach = std::min(std::max(reach_in_widths * width.at(of.front().position), largest_zero),
                                part_of_range * (fit.x.back() - fit.x.front()));
  std::optional<match> best;
  for (const family how : {family::common, family::stretch, family::displacement, family::common_and_stretch}) {
    if (phase >= 0 && how != family::stretch) continue;
    const match m = best_match(of, places, width, how, reach, most_odds);
    if (convinces(m, now, of) && (!best || m.score > clearly * best->score)) best = m;
  }
  if (!best) return false;
  far = best, far_phase = phase;
  found.push_back(kv_misfit_words::moved(fit, *best, now.matched, phase, std::nullopt));
  if (phase < 0 && !fit.widths_free) judge_width_of_moved();
  return true;
}

/// A movement that brings many peaks, not by chance, onto lines from which they are a good part of a width away.
bool judge::convinces(const match& m, const match& now, const std::vector<found_peak>& of) const {
  constexpr double much_better = 1.5, mends = 0.6, least_part = 0.4, least_distance = 0.25;
  if (m.matched < fewest_peaks || m.matched < least_part * m.observed || m.odds > most_odds) return false;
  if (m.matched < many_more * now.matched) return false;
  if (m.score < much_better * now.score && m.score - now.score < mends * (1.0 - now.score)) return false;
  double square = 0.0;
  for (const found_peak& p : of) {
    const double distance = (moved(m.by, p.position) - p.position) / width.at(p.position);
    square += distance * distance / static_cast<double>(of.size());
  }
  return square > least_distance * least_distance;
}

/// Peaks that overlap with the observed ones: what position, width and background leave in the sum.
void judge::judge_model() {
  std::optional<remark> best;
  for (auto& r : {movement_remark(), width_remark(), background_remark()})
    if (r && r->gain >= least_gain && (!best || r->gain > best->gain)) best = r;
  if (best) found.push_back(*best);
}

std::optional<remark> judge::movement_remark() const {
  constexpr double reach_in_widths = 3.0, clearly = 0.05;  // of the excess
  if (lines.empty()) return {};
  const double reach = reach_in_widths * width.at(0.5 * (fit.x.front() + fit.x.back()));
  moved_sum best{{}, total};
  match m;
  for (const family how : {family::common, family::stretch, family::displacement, family::common_and_stretch})
    if (const moved_sum s = best_moved_sum(fit, how, reach); best.sum - s.sum > clearly * excess) best = s, m.how = how;
  double largest = 0.0;
  std::vector<place> there = lines;
  for (place& p : there) {
    const double before = p.position;
    p.position = moved(best.by, before);
    if (before > fit.x.front() && before < fit.x.back())
      largest = std::max(largest, std::abs(p.position - before) / width.at(before));
  }
  if (largest < least_shift) return {};
  const int now = match_of(peaks, lines, width, {}).matched;
  const match after = refined_match(peaks, there, width, m.how);
  m.by = best.by, m.matched = after.matched, m.observed = after.observed, m.sigma = after.sigma;
  return kv_misfit_words::moved(fit, m, now, -1, gain(best.sum));
}

std::optional<remark> judge::width_remark() const {
  const width_change w = best_width_factor(fit, width);
  if (std::max(w.factor, 1.0 / w.factor) < least_width_factor) return {};
  return kv_misfit_words::width(w.factor, width.at(0.5 * (fit.x.front() + fit.x.back())), w.fall / excess);
}

/// Widths that are not refined, beside a movement: where positions are refined, they ran away because of the widths.
void judge::judge_width_of_moved() {
  fit_view there = fit;
  for (line& l : there.lines) l.position = moved(far->by, l.position);
  const width_change w = best_width_factor(there, width);
  if (std::max(w.factor, 1.0 / w.factor) < least_width_factor || w.fall < least_gain * excess) return;
  const auto place = fit.positions_free ? found.end() - 1 : found.end();
  found.insert(place,
               kv_misfit_words::width(w.factor, width.at(0.5 * (fit.x.front() + fit.x.back())), w.fall / excess));
}

/// Widths as they are seen, when no other cause was found: the intensities may be too far off for a sum to tell. That
/// peaks are too narrow must show in the calculated curve too, since observed peaks widen where they overlap.
void judge::judge_seen_widths() {
  constexpr double strange = 1.9, far_off = 3.0;  // a doublet that is just not resolved makes up for 1.6
  if (lines.empty() || total < far_off * static_cast<double>(fit.size())) return;
  const double middle = 0.5 * (fit.x.front() + fit.x.back()), calculated = median(line_widths(fit));
  const double factor = width.at(middle) / calculated;
  const auto curve = observed_width(fit.x, fit.calc, fit.var);
  const bool narrow =
      factor > strange && (calculated < width.least || (curve && width.at(middle) > strange * curve->at(middle)));
  if (narrow || factor < 1.0 / strange) found.push_back(kv_misfit_words::width(factor, width.at(middle), std::nullopt));
}

std::optional<remark> judge::background_remark() const {
  const double range = fit.x.back() - fit.x.front();
  const double stretch = std::max(10.0 * width.at(0.5 * (fit.x.front() + fit.x.back())), range / 40.0);
  const background_offset offset = offset_between_peaks(fit, stretch);
  if (offset.x.size() < 3) return {};
  return kv_misfit_words::background(fit, offset, gain(offset.sum));
}

/// Some calculated line stands at the peak, moved as found. Where no cause is known yet that displaces or widens the
/// peaks, a line of a structure counts when its area is a fair part of that of the peak.
bool judge::near_a_line(const found_peak& p) const {
  constexpr double near = 0.7, fair_part = 0.2;
  const double reach = near * width.at(p.position);
  const bool any_line = far || std::ranges::any_of(found, [](const remark& r) {
                          return r.what == kind::shift || r.what == kind::cell || r.what == kind::width;
                        });
  if (std::ranges::any_of(lines, [&](const place& q) {
        return (any_line || q.follows_data) &&
               std::abs((far ? moved(far->by, q.position) : q.position) - p.position) < reach;
      }))
    return true;
  double area = 0.0;
  for (const line& l : fit.lines)
    if (std::abs(l.position - p.position) < reach) area += l.weight * usual_scale[static_cast<std::size_t>(l.phase)];
  return !far && area > fair_part * p.height * width.at(p.position);
}

/// Per phase the scale factor, or what its lines that stand at observed peaks ask for in the middle: a fit with needles
/// for peaks has a scale that says nothing.
void judge::see_scales() {
  for (int ph = 0; ph < static_cast<int>(fit.phases.size()); ++ph) {
    std::vector<double> asked;
    for (const found_peak& p : peaks) {
      double weight = 0.0;
      for (const line& l : fit.lines)
        if (l.phase == ph && std::abs(l.position - p.position) < 0.7 * width.at(p.position)) weight += l.weight;
      if (weight > 0.0) asked.push_back(p.height * width.at(p.position) / weight);
    }
    const bool known = 2 * asked.size() > peaks.size();
    usual_scale.push_back(
        std::max(fit.phases[static_cast<std::size_t>(ph)].scale, known ? median(std::move(asked)) : 0.0));
  }
}

/// Calculated over observed Bragg part of the core of a peak.
double judge::explained_part(const found_peak& p) const {
  double calculated = 0.0, observed = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    if (std::abs(fit.x[i] - p.position) > 0.5 * width.at(p.position)) continue;
    calculated += bragg(i), observed += fit.y[i] - fit.background[i];
  }
  return observed > 0.0 ? calculated / observed : 1.0;
}

void judge::judge_unexplained() {
  constexpr double explained = 0.25, window = 1.2;
  see_scales();
  std::vector<found_peak> left = peaks;
  std::erase_if(left, [&](const found_peak& p) { return near_a_line(p) || (!far && explained_part(p) > explained); });
  if (left.empty()) return;
  double theirs = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double d = fit.y[i] - fit.calc[i];
    if (std::ranges::any_of(
            left, [&](const found_peak& p) { return std::abs(fit.x[i] - p.position) < window * width.at(p.position); }))
      theirs += d * d / fit.var[i] - 1.0;
  }
  const double share = theirs / excess;
  if (share < least_gain) return;
  remark r = kv_misfit_words::unexplained(left, highest, share);
  const auto before = std::ranges::find_if(found, [&](const remark& q) {  // the cause that explains more comes first
    return (q.what == kind::width || q.what == kind::background) && q.gain < r.gain;
  });
  found.insert(before, std::move(r));
}

/// Lines of a phase within the pattern and a width away from those of all others.
std::vector<place> judge::own_lines(int ph) const {
  std::vector<place> own = merged_lines(fit, width, ph);
  const auto not_own = [&](const std::vector<place>& theirs) {
    std::erase_if(own, [&](const place& p) { return distance_to(theirs, p.position) < width.at(p.position); });
  };
  std::erase_if(own, [&](const place& p) { return p.position < fit.x.front() || p.position > fit.x.back(); });
  for (int other = 0; other < static_cast<int>(fit.phases.size()); ++other)
    if (other != ph && fit.phases[static_cast<std::size_t>(other)].contributes)
      not_own(merged_lines(fit, width, other));
  return own;
}

/// Height of the largest peak of a phase from the points at its own lines, by least squares; height 0 and sigma 0 when
/// there are no such points. sigma holds what the points leave.
found_peak judge::height_of(int ph, const std::vector<place>& own) const {
  constexpr double core = 0.7;
  const std::vector<double> shape = plain_peaks(fit, ph, line_widths(fit));
  const double scale = fit.phases[static_cast<std::size_t>(ph)].scale;
  double sv = 0.0, ss = 0.0, top = 0.0, squares = 0.0, n = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    if (distance_to(own, fit.x[i]) > core * width.at(fit.x[i])) continue;
    const double net = fit.y[i] - fit.calc[i] + scale * shape[i];
    sv += net * shape[i] / fit.var[i], ss += shape[i] * shape[i] / fit.var[i];
    squares += net * net / fit.var[i], n += 1.0;
    top = std::max(top, shape[i]);
  }
  if (!(ss > 0.0)) return {};
  const double spread = std::max(1.0, (squares - sv * sv / ss) / std::max(1.0, n - 1.0));
  return {0.0, top * sv / ss, top * std::sqrt(spread / ss)};
}

/// Phases whose own lines stand on nothing.
void judge::judge_phases() {
  constexpr double significant = 3.0;
  if (far && far_phase < 0) return;
  for (int ph = 0; ph < static_cast<int>(fit.phases.size()); ++ph) {
    if (!fit.phases[static_cast<std::size_t>(ph)].contributes || ph == far_phase) continue;
    const auto own = own_lines(ph);
    const found_peak largest = height_of(ph, own);
    if (largest.sigma > 0.0 && largest.height <= significant * largest.sigma)
      found.push_back(kv_misfit_words::empty_phase(ph, static_cast<int>(own.size()), 100.0 * largest.height / highest,
                                                   100.0 * largest.sigma / highest));
  }
}

}  // namespace

double weighted_sum(const fit_view& fit) {
  double sum = 0.0;
  for (std::size_t i = 0; i < fit.size(); ++i) {
    const double d = fit.y[i] - fit.calc[i];
    sum += d * d / fit.var[i];
  }
  return sum;
}

std::vector<remark> remarks_of(const fit_view& fit) { return judge(fit).remarks(); }

}  // namespace kv_misfit

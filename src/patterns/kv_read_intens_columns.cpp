#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layouts of fixed columns: 1, 2, 3, 4, 6, 7, 8 and 11.

namespace kv_read_intens {

namespace {

/// Numbers of one line by a format; every field must be a number or blank.
bool header_columns(reading& r, std::string_view format, std::span<float> values, std::string_view expected) {
  std::string_view line;
  if (!take_line(r, line, expected)) return false;
  const column_block found = read_record(line, format, values);
  if (found.status == column_block::end::full) return true;
  return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found.token, found.column, expected));
}

/// Sizes y and iww of npts points from pairs of detectors and intensity.
void split_pairs(pattern_type& p, std::span<const float> pairs) {
  const std::size_t n = pairs.size() / 2;
  p.y.resize(n);
  p.iww.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    p.iww[i] = static_cast<int>(pairs[2 * i]);
    p.y[i] = pairs[2 * i + 1];
  }
}

/// A variance that is not above 1e-5 becomes 1, with a notice.
void raise_zero_variance(reading& r, std::size_t i, float x) {
  if (r.p.var[i] > negligible) return;
  r.p.var[i] = 1.f;
  r.note(notice::zero_variance, [&] { return "variance 0:" + point_text(i, x) + ", 1 is used"; });
}

}  // namespace

bool detector_pairs(reading& r) {
  pattern_type& p = r.p;
  if (!free_range(r)) return false;
  p.npts = count_points(p.thmin, p.step, p.thmax, 1.5f);
  if (!check_count(r, p.npts)) return false;
  std::vector<float> pairs(2 * static_cast<std::size_t>(p.npts));
  if (!whole_block(r, read_columns(r.file, "(10(i2,f6.0))", pairs), pairs.size(), 2)) return false;
  split_pairs(p, pairs);
  counts_over_detectors(r, 1.f);
  constant_grid(p);
  return true;
}

// --- Layout 2: 400 points in steps of 0.2 --------------------------------------------------------------------------

namespace {

bool heading_of_400(reading& r) {
  std::string_view line;
  if (!take_line(r, line, "the date")) return false;
  r.echo("=> Date of experiment: " + std::string(line.substr(0, 80)));
  if (!take_line(r, line, "a title") || !take_line(r, line, "two integers")) return false;
  int first = 0;
  const list_result found = lmix_list_input::read_values(line, first, r.p.numor);
  if (!found.full()) return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found, "two integers"));
  r.p.tsamp = static_cast<float>(r.p.numor);  // kept: the run number stands for the temperature in this layout
  r.inum = 1;
  return take_line(r, line, "a title") && take_line(r, line, "a title");
}

}  // namespace

bool fixed_400_points(reading& r) {
  constexpr int lines = 40, per_line = 10;
  constexpr std::string_view format = "(f7.3,10f6.0)";
  pattern_type& p = r.p;
  if (!heading_of_400(r)) return false;
  std::array<float, per_line + 1> values{};
  p.y.clear();
  for (int k = 0; k < lines; ++k) {
    // kept: the first line begins with the start angle; in the others the first intensity stands in the wide field
    // with three decimals (test Layout2.FirstFieldOfALineHasThreeDecimals)
    const std::size_t n = k == 0 ? per_line + 1 : per_line;
    if (!header_columns(r, format, std::span(values).first(n), "ten intensities")) return false;
    if (k == 0) p.thmin = 2.f * values[0];
    p.y.insert(p.y.end(), values.begin() + (k == 0 ? 1 : 0), values.begin() + static_cast<std::ptrdiff_t>(n));
  }
  p.y.front() = p.y[1];
  p.y.back() = p.y[p.y.size() - 2];
  p.step = 0.2f;
  p.npts = lines * per_line;
  p.thmax = p.thmin + 79.8f;
  if (!check_count(r, p.npts)) return false;
  variance_of_counts(r);
  constant_grid(p);
  return true;
}

// --- Layout 3: two axes --------------------------------------------------------------------------------------------

namespace {

bool heading_of_two_axes(reading& r, std::string& title) {
  std::array<float, 1> nset{};
  if (!header_columns(r, "(i5)", nset, "number of sets")) return false;
  r.echo("     Nset:" + fmt_line{}.i(5, static_cast<int>(nset[0])).str());
  std::string_view line;
  if (!take_line(r, line, "date and title")) return false;
  r.echo(line);
  if (!take_line(r, line, "two integers")) return false;
  int first = 0;
  const list_result found = lmix_list_input::read_values(line, first, r.p.numor);
  if (!found.full()) return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found, "two integers"));
  std::array<float, 12> axes{};
  if (!header_columns(r, "(f13.0,f9.0,1x,10(f8.3,1x))", axes, "twelve values of the axes")) return false;
  pattern_type& p = r.p;
  p.thmin = axes[2];
  p.step = axes[8];
  p.tsamp = axes[11];
  fmt_line further;
  for (const std::size_t i : {3u, 4u, 5u, 6u, 7u, 9u, 10u}) further.f(8, 3, static_cast<double>(axes[i]));
  r.echo(further.str());
  r.result_values = further.str();
  if (!check_step(r, r.file.lines_taken(), p.step) || !take_line(r, line, "number of points")) return false;
  std::array<float, 1> npts{};
  const column_block count = read_record(line, "(i4)", npts);
  if (count.status != column_block::end::full)
    return r.fail(check_instr, bad_value(r, r.file.lines_taken(), count.token, count.column, "number of points"));
  p.npts = static_cast<int>(npts[0]);
  title = line.substr(std::min<std::size_t>(4, line.size()));
  return check_count(r, p.npts);
}

}  // namespace

bool two_axes(reading& r) {
  constexpr int per_line = 10;
  pattern_type& p = r.p;
  std::string title;
  if (!heading_of_two_axes(r, title)) return false;
  r.result_values += title;
  // kept: so many lines of ten, rounded, stand in front of the last line; a rest below half a line has none
  const int whole = (p.npts + per_line / 2) / per_line * per_line;
  std::vector<float> pairs(2 * static_cast<std::size_t>(std::min(whole, p.npts)));
  if (!whole_block(r, read_columns(r.file, "(10(i2,f8.0))", pairs), pairs.size(), 2)) return false;
  split_pairs(p, pairs);
  set_count(r, p.y.size(), p.npts);
  std::array<float, 1> run{};
  if (!header_columns(r, "(i10)", run, "the run number behind the data")) return false;
  r.inum = static_cast<int>(run[0]);
  counts_over_detectors(r, 1.f);
  constant_grid(p);
  return check_count(r, p.npts);
}

// --- Layout 4: alternating lines of intensities and sigmas ---------------------------------------------------------

namespace {

bool range_behind_comments(reading& r) {
  auto begin = r.file.save();
  for (auto line = r.file.next(); line; line = r.file.next()) {
    const std::size_t first = line->find_first_not_of(" \t");
    if (first == std::string_view::npos || (*line)[first] != '!') break;
    begin = r.file.save();
  }
  r.file.restore(begin);
  return free_range(r);
}

/// The lines of intensities and of sigmas in turn. What stands behind the last point of its line is not read.
bool read_alternating(reading& r, std::vector<float>& sigma) {
  constexpr std::size_t per_line = 10;
  pattern_type& p = r.p;
  const auto n = static_cast<std::size_t>(p.npts);
  p.y.resize(n);
  sigma.resize(n);
  for (std::size_t i = 0; i < n; i += per_line) {
    const std::size_t here = std::min(per_line, n - i);
    if (!header_columns(r, "(10f8.0)", std::span(p.y).subspan(i, here),
                        "intensity " + std::to_string(i + 1) + " of " + std::to_string(n)) ||
        !header_columns(r, "(10f8.1)", std::span(sigma).subspan(i, here),
                        "sigma " + std::to_string(i + 1) + " of " + std::to_string(n)))
      return false;
  }
  return true;
}

}  // namespace

bool alternating_lines(reading& r) {
  pattern_type& p = r.p;
  if (!range_behind_comments(r)) return false;
  p.npts = count_points(p.thmin, p.step, p.thmax, 1.5f);
  std::vector<float> sigma;
  if (!check_count(r, p.npts) || !read_alternating(r, sigma)) return false;
  constant_grid(p);
  p.var.resize(p.y.size());
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    if (i > 0 && p.y[i] < negligible) {
      note_raised(r, i, p.txv[i], p.y[i], p.y[i - 1]);
      p.y[i] = p.y[i - 1];
    }
    p.var[i] = sigma[i] * sigma[i];
    if (sigma[i] < negligible) p.var[i] = 0.f;
    raise_zero_variance(r, i, p.txv[i]);
  }
  p.cnorm = mean_ratio(p.var, p.y);
  return true;
}

// --- Layout 6: two monitors ----------------------------------------------------------------------------------------

namespace {

bool heading_of_two_monitors(reading& r) {
  pattern_type& p = r.p;
  r.echo(" -> Heading of input data:");
  if (!take_title(r)) return false;
  std::array<float, 1> value{};
  if (!header_columns(r, "(16x,f8.3)", value, "the step behind column 16")) return false;
  p.step = value[0];
  if (!check_step(r, r.file.lines_taken(), p.step)) return false;
  if (!header_columns(r, "(f8.3)", value, "the first abscissa")) return false;
  p.thmin = value[0];
  std::array<float, 2> monitors{};
  if (!header_columns(r, "(2f8.0)", monitors, "two monitors")) return false;
  if (!(monitors[1] >= 1.f) || !(monitors[0] > 0.f)) monitors[1] = monitors[0];
  p.cnorm = monitors[1] == monitors[0] ? 1.f : monitors[0] / monitors[1];
  r.echo("   -> Monitors: " + number_text(monitors[0]) + " " + number_text(monitors[1]));
  return true;
}

}  // namespace

bool two_monitors(reading& r) {
  constexpr std::size_t per_line = 20;
  constexpr float full_range = 18.f, sentinel = -1000.f, sentinel_width = 0.001f;
  pattern_type& p = r.p;
  if (!heading_of_two_monitors(r)) return false;
  const float most_lines = std::round(full_range / p.step);
  std::vector<float> pairs, line(per_line);
  for (float k = 0.f; k < most_lines; ++k) {
    if (!header_columns(r, "(10(i2,f6.0))", line, "ten points or the end mark -1000")) return false;
    if (std::abs(line[1] - sentinel) < sentinel_width) break;
    pairs.insert(pairs.end(), line.begin(), line.end());
  }
  // kept: the last line of ten in front of the end mark is not part of the pattern
  pairs.resize(std::max(pairs.size(), per_line) - per_line);
  p.npts = static_cast<int>(pairs.size() / 2);
  if (!check_count(r, p.npts)) return false;
  split_pairs(p, pairs);
  counts_over_detectors(r, p.cnorm);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  constant_grid(p);
  return true;
}

// --- Layout 7: five triplets x, y, sigma per line ------------------------------------------------------------------

bool five_triplets(reading& r) {
  pattern_type& p = r.p;
  std::string_view line;
  if (!take_line(r, line, "number of points, temperature and title")) return false;
  std::array<float, 2> head{};
  const column_block found = read_record(line, "(i5,1x,f5.0)", head);
  if (found.status != column_block::end::full)
    return r.fail(check_instr,
                  bad_value(r, r.file.lines_taken(), found.token, found.column, "number of points and temperature"));
  p.npts = static_cast<int>(head[0]);
  p.tsamp = head[1];
  r.echo(line.substr(std::min<std::size_t>(12, line.size())));
  if (!check_count(r, p.npts)) return false;
  std::vector<float> triplets(3 * static_cast<std::size_t>(p.npts));
  const column_block block = read_columns(r.file, "(5(f7.2,1x,f8.1,1x,f5.1))", triplets);
  const std::size_t n = points_of_block(r, block, triplets.size(), 3);
  if (!check_count(r, static_cast<long long>(n))) return false;
  for (std::size_t i = 0; i < n; ++i) {
    r.x.push_back(triplets[3 * i]);
    p.y.push_back(triplets[3 * i + 1]);
    p.var.push_back(0.5f * triplets[3 * i + 2] * triplets[3 * i + 2]);
  }
  if (!order_points(r, check_instr)) return false;
  for (std::size_t i = 0; i < n; ++i) raise_zero_variance(r, i, r.x[i]);
  p.iconstep = false;
  p.npts = static_cast<int>(n);
  p.thmin = r.x.front();
  p.step = r.x[1] - r.x[0];
  p.thmax = r.x.back();
  p.cnorm = mean_ratio(p.var, p.y);
  note_uneven_step(r);
  p.txv = std::move(r.x);
  return check_step(r, r.file.lines_taken(), p.step);
}

// --- Layout 8: intensities, then sigmas ----------------------------------------------------------------------------

namespace {

/// A block that may end with the file, not with a fault. False for the fault.
bool block_or_end(reading& r, const column_block& block, std::size_t wanted) {
  return block.status == column_block::end::text_ended || whole_block(r, block, wanted, 1);
}

void variance_without_sigmas(reading& r, std::size_t found) {
  if (found > 0) return;
  variance_of_counts(r);
  r.note(notice::no_variances, "no standard deviations behind the intensities, the variance is the intensity");
}

}  // namespace

bool intensities_then_sigmas(reading& r) {
  constexpr int fewest = 20;
  constexpr std::string_view format = "(10f8.0)";
  pattern_type& p = r.p;
  r.echo(" -> Heading of input data:");
  if (!take_title(r) || !take_title(r) || !free_range(r)) return false;
  p.npts = count_points(p.thmin, p.step, p.thmax, 1.005f);
  if (p.npts < fewest)
    return r.fail(check_instr, place(r, r.file.lines_taken()) + ": " + std::to_string(p.npts) + " points, at least " +
                                   std::to_string(fewest) + " expected");
  if (!check_count(r, p.npts)) return false;
  const auto announced = static_cast<std::size_t>(p.npts);
  p.y.resize(announced);
  const column_block intensities = read_columns(r.file, format, p.y);
  if (!block_or_end(r, intensities, announced)) return false;
  const std::size_t n = points_of_block(r, intensities, announced, 1);
  p.y.resize(n);
  p.npts = static_cast<int>(n);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  if (!check_count(r, p.npts)) return false;
  std::vector<float> sigma(n, 0.f);
  const column_block sigmas = read_columns(r.file, format, sigma);
  if (!block_or_end(r, sigmas, n)) return false;
  p.var.resize(n);
  for (std::size_t i = 0; i < n; ++i) p.var[i] = sigma[i] * sigma[i];
  constant_grid(p);
  variance_without_sigmas(r, sigmas.count);
  for (std::size_t i = 0; i < n; ++i) raise_zero_variance(r, i, p.txv[i]);
  p.cnorm = mean_ratio(p.var, p.y);
  return true;
}

// --- Layout 11: variable counting time -----------------------------------------------------------------------------

bool variable_time(reading& r) {
  constexpr int titles = 4;
  constexpr float shortest_time = 1.0e-06f;
  pattern_type& p = r.p;
  r.echo(" -> Heading of input data:");
  for (int i = 0; i < titles; ++i)
    if (!take_title(r)) return false;
  if (!free_range(r)) return false;
  p.npts = count_points(p.thmin, p.step, p.thmax, 1.5f);
  r.echo("   -> THMIN,STEP,THMAX, NPTS: " + number_text(p.thmin) + " " + number_text(p.step) + " " +
         number_text(p.thmax) + " " + std::to_string(p.npts));
  if (!check_count(r, p.npts)) return false;
  const auto n = static_cast<std::size_t>(p.npts);
  std::vector<float> pairs(2 * n);
  if (!whole_block(r, read_columns(r.file, "(5(f6.0,f10.0))", pairs), pairs.size(), 2)) return false;
  constant_grid(p);
  double sum = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (!(pairs[2 * i] >= shortest_time))
      return r.fail(" Zero time in *.DAT ", " => File: " + r.name + ": counting time " + number_text(pairs[2 * i]) +
                                                " at" + point_text(i, p.txv[i]) + ", a positive number expected");
    sum += static_cast<double>(pairs[2 * i]);
  }
  const auto mean_time = static_cast<float>(sum / static_cast<double>(n));
  r.echo(" => Variable time data collection,");
  r.echo(" Normalizing Time: " + number_text(mean_time));
  p.y.resize(n);
  for (std::size_t i = 0; i < n; ++i) p.y[i] = pairs[2 * i + 1] * mean_time / pairs[2 * i];
  variance_of_counts(r);
  return true;
}

}  // namespace kv_read_intens

#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_math_general.hpp"
#include "lmix_string_utilities.hpp"

// Layout 10: lines of x, y, sigma with an optional heading.

namespace kv_read_intens {

namespace {

enum class interpolation { none = 0, internal = 1, supplied = 2 };

struct xy_heading {
  float fac_x = 1.f, fac_y = 1.f;
  interpolation flag = interpolation::none;
  float step = 0.f;
};

/// INTER  fac_x  fac_y  flag  step
bool inter_line(reading& r, std::string_view line, xy_heading& heading) {
  lmix_string_utilities::findfmt_state fmt;
  lmix_fixed_format::field_values fields;
  const int line_number = r.file.lines_taken();
  lmix_string_utilities::init_findfmt(fmt, line_number - 1);
  if (lmix_string_utilities::read_fields(fmt, line, "5ffif", fields) != 0) {
    return parse_fault(r, fmt, place(r, line_number) + ": INTER, two factors, flag and step expected");
  }
  const int flag = fields.i(3);
  if (flag < 0 || flag > 2) {
    return r.fail(interrupted,
                  place(r, line_number) + ": interpolation flag " + std::to_string(flag) + ", 0 to 2 expected");
  }
  heading.fac_x = fields.f(1) > 0.f ? fields.f(1) : 1.f;
  heading.fac_y = fields.f(2) > 0.f ? fields.f(2) : 1.f;
  heading.flag = static_cast<interpolation>(flag);
  heading.step = fields.f(4);
  r.echo(" -> Input X-values multiplied internally by " + number_text(heading.fac_x));
  r.echo(" -> Input Y & Sigma-values multiplied internally by " + number_text(heading.fac_y));
  return heading.flag == interpolation::none || check_step(r, line_number, heading.step);
}

/// Puts the file at its first line that begins with two numbers.
void skip_to_numbers(text_source& file) {
  for (auto before = file.save(); auto line = file.next(); before = file.save()) {
    float x = 0.f, y = 0.f;
    if (lmix_text_input::is_blank_or_comment(*line) || !lmix_list_input::read_values(*line, x, y).full()) continue;
    return file.restore(before);
  }
}

constexpr int heading_lines = 6;

bool keyword_heading(reading& r, xy_heading& heading) {
  r.echo(" => Heading of input data file X,Y,sigma");
  for (int i = 1; i < heading_lines; ++i) {
    const auto line = r.file.next();
    if (!line) break;
    r.echo(*line);
    if (line->starts_with("INTER") && !inter_line(r, *line, heading)) return false;
    if (!line->starts_with("TEMP")) continue;
    take_tsamp(*line, "TEMP", r.p.tsamp);
    r.inum = r.p.numor = 1;
  }
  skip_to_numbers(r.file);
  return true;
}

void comment_heading(reading& r, std::optional<std::string_view> line) {
  r.echo(" -> No recognizable heading in input data file X,Y,sigma");
  r.echo("    First 6 lines are considered as COMMENTS (except for TSAMP keyword)");
  for (int i = 0; i < heading_lines && line; ++i) {
    r.echo(" -> COMMENT: " + std::string(*line));
    float x = 0.f, y = 0.f;
    if (lmix_list_input::read_values(*line, x, y).full())
      r.note(notice::comment_data,
             "the first 6 lines count as comments, but line " + std::to_string(i + 1) + " begins with two numbers");
    take_tsamp(*line, "TSAMP", r.p.tsamp);
    if (i + 1 < heading_lines) line = r.file.next();
  }
}

bool heading_10(reading& r, xy_heading& heading) {
  const auto line = r.file.next();
  if (line && line->starts_with("XYDATA")) {
    if (!keyword_heading(r, heading)) return false;
  } else {
    comment_heading(r, line);
  }
  if (heading.flag == interpolation::internal) {
    r.echo(" -> Internal interpolation for constant STEP = " + number_text(heading.step));
  } else if (heading.flag == interpolation::supplied) {
    r.echo(" -> XY-DATA are supplied with constant STEP = " + number_text(heading.step));
  }
  r.p.iconstep = heading.flag != interpolation::none;
  return true;
}

struct xy_sums {
  double sigma2 = 0;
  long long kept = 0;  ///< points found, also those that are too many to hold
};

/// Scales the point and appends it.
bool keep_point(reading& r, const xy_heading& heading, const xy_point& read, xy_sums& sums) {
  pattern_type& p = r.p;
  const float x = read.x * heading.fac_x, sigma = read.sigma * heading.fac_y;
  float y = read.y * heading.fac_y, var = sigma * sigma;
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(var)) {
    return r.fail(interrupted, place(r, r.file.lines_taken()) + ": the scaled values or the square of sigma overflow");
  }
  sums.sigma2 += static_cast<double>(var);
  if (var < negligible) {
    r.note(notice::zero_variance, [&] {
      return "variance 0:" + point_text(r.x.size(), x) + ", line " + std::to_string(r.file.lines_taken()) +
             ", 1 is used";
    });
    var = 1.f;
  }
  if (y < negligible) {
    note_raised(r, r.x.size(), x, y, negligible);
    y = negligible;
    var = 1.f;
  }
  r.x.push_back(x);
  p.y.push_back(y);
  p.var.push_back(var);
  return true;
}

/// An empty line ends the data; a word of warning if anything stands behind it.
void end_at_empty_line(reading& r) {
  const int line_number = r.file.lines_taken();
  if (!r.file.peek_value()) return;
  r.note(notice::unread_rest, "the data end at the empty line " + std::to_string(line_number) + " of " + r.name +
                                  ", what follows is not read");
}

bool data_lines(reading& r, const xy_heading& heading, xy_sums& sums) {
  for (auto begin = r.file.save(); const auto line = r.file.next(); begin = r.file.save()) {
    if (line->find_first_not_of(" \t") == std::string_view::npos) {
      end_at_empty_line(r);
      return true;
    }
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    xy_point values;
    if (!read_xy(r, begin, *line, values)) return false;
    const bool blank_point = std::abs(values.x) < negligible && values.y < negligible && values.sigma < negligible;
    if (blank_point || !in_range(r.p, values.x)) continue;
    if (++sums.kept > r.st.dim.maxpoint) continue;
    if (!keep_point(r, heading, values, sums)) return false;
  }
  return true;
}

/// Without a column of sigmas the variance is the intensity.
void take_intensities_as_variances(reading& r) {
  r.forget(notice::zero_variance);
  variance_of_counts(r);
}

/// Natural spline of the values over the points read, on the grid of constant step; at least one count.
std::vector<float> on_grid(std::span<const float> x, std::span<const float> values, const pattern_type& p) {
  const std::vector<float> second = lmix_math_general::spline(x, values);
  std::vector<float> result(static_cast<std::size_t>(p.npts));
  for (std::size_t i = 0; i < result.size(); ++i) {
    const float value = lmix_math_general::splint(x, values, second, p.txv[i]);
    result[i] = value < 1.f ? 1.f : value;
  }
  return result;
}

bool interpolate(reading& r, const xy_heading& heading) {
  pattern_type& p = r.p;
  const auto twin = std::adjacent_find(r.x.begin(), r.x.end());
  if (twin != r.x.end()) {
    return r.fail(interrupted,
                  " => File: " + r.name + ": two points at x = " + number_text(*twin) + ", increasing values expected");
  }
  p.step = heading.step;
  if (heading.flag == interpolation::supplied) compare_with_grid(r, r.x);
  p.npts = count_points(p.thmin, p.step, p.thmax, 1.05f);
  if (!check_count(r, p.npts)) return false;
  constant_grid(p);
  p.y = on_grid(r.x, p.y, p);
  p.var = on_grid(r.x, p.var, p);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  return true;
}

}  // namespace

bool xy_sigma(reading& r) {
  pattern_type& p = r.p;
  xy_heading heading;
  xy_sums sums;
  if (!heading_10(r, heading) || !data_lines(r, heading, sums) || !check_count(r, sums.kept)) return false;
  if (!order_points(r, interrupted)) return false;
  p.npts = static_cast<int>(sums.kept);
  p.thmin = r.x.front();
  p.thmax = r.x.back();
  p.cnorm = mean_ratio(p.var, p.y);
  if (sums.sigma2 < static_cast<double>(negligible)) {
    take_intensities_as_variances(r);
    p.cnorm = 1.f;
  }
  if (heading.flag != interpolation::none) return interpolate(r, heading);
  p.step = (p.thmax - p.thmin) / static_cast<float>(p.npts - 1);
  note_uneven_step(r);
  p.txv = std::move(r.x);
  return check_step(r, r.file.lines_taken(), p.step);
}

}  // namespace kv_read_intens

#include "kv_read_intens.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_math_general.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_text_input.hpp"
#include "variances.hpp"

namespace kv_read_intens {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
using lmix_list_input::list_result;
using lmix_list_input::list_status;
using lmix_text_input::text_source;

namespace {

constexpr float negligible = 1.0e-5f;  ///< below it an intensity or variance counts as absent
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

constexpr std::string_view check_instr = " Error on Intensity file, check your instr parameter! ";
constexpr std::string_view end_of_file = " End of file *.DAT ";
constexpr std::string_view too_many = " Too many points ";
constexpr std::string_view interrupted = " Program interrupted";

/// One call of readint: where it reads, what it fills, and why it failed.
struct reading {
  state_type& st;
  pattern_type& p;
  text_source file;
  std::string name;                 ///< of the file, as in messages
  std::vector<float> x;             ///< abscissae of layouts with free ones
  int inum = 0;                     ///< run or bank number of the file, for the record of results
  std::vector<std::string> detail;  ///< what was wrong, on console and listings
  std::string stop_text;            ///< blank as long as all is well

  bool fail(std::string_view text) {
    stop_text = text;
    return false;
  }
  bool fail(std::string_view text, std::string line) {
    detail.push_back(std::move(line));
    return fail(text);
  }
  void echo(std::string_view line) { kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line << '\n'; }
};

std::string number_text(float value) {
  return std::string(lmix_string_utilities::trim(fmt_line{}.g(13, 6, static_cast<double>(value)).str()));
}

/// " => File: name, line: n" and, above 0, the column.
std::string place(const reading& r, int line, std::size_t column = 0) {
  std::string text = " => File: " + r.name + ", line: " + std::to_string(line);
  if (column > 0) text += ", column: " + std::to_string(column);
  return text;
}

std::string bad_value(const reading& r, int line, const list_result& found, std::string_view expected) {
  return place(r, line, found.column) + ": \"" + found.token + "\" found, " + std::string(expected) + " expected";
}

// --- What all layouts share ----------------------------------------------------------------------------------------

/// The next line that is no comment.
std::optional<std::string_view> next_value_line(reading& r) {
  auto line = r.file.next();
  while (line && !line->empty() && (line->front() == '!' || line->front() == '#')) line = r.file.next();
  return line;
}

/// The number behind the keyword, when the line holds the keyword; 0 when no number follows.
void take_tsamp(std::string_view line, std::string_view keyword, float& tsamp) {
  const auto at = line.find(keyword);
  if (at == std::string_view::npos) return;
  float value = 0.f;
  tsamp = lmix_list_input::read_values(line.substr(at + keyword.size()), value).full() ? value : 0.f;
}

bool check_step(reading& r, int line, float step) {
  if (step > 0.f && std::isfinite(step)) return true;
  return r.fail(check_instr, place(r, line) + ": the step is " + number_text(step) + ", a positive number expected");
}

/// Number of points between thmin and thmax; `rounding` tells how near the last one must come to thmax. Held at the
/// largest int; a range without points gives 0.
int count_points(float thmin, float step, float thmax, float rounding) {
  const float n = (thmax - thmin) / step + rounding;
  constexpr float most = 2.0e9f;
  if (!(n >= 1.f)) return 0;
  return n < most ? static_cast<int>(n) : std::numeric_limits<int>::max();
}

bool check_count(reading& r, long long npts) {
  constexpr long long fewest = 2;  // a pattern needs a step
  if (npts < fewest) {
    return r.fail(check_instr, " => File: " + r.name + ": " + std::to_string(npts) + " data points, at least " +
                                   std::to_string(fewest) + " expected");
  }
  if (npts <= r.st.dim.maxpoint) return true;
  r.detail.push_back(fmt_line{}.a(" => Program can handle").i(11, r.st.dim.maxpoint).a(" points, ").str());
  return r.fail(too_many, fmt_line{}.x(22).i(11, npts).a(" points were input").str());
}

void constant_grid(pattern_type& p) {
  p.txv.resize(static_cast<std::size_t>(p.npts));
  for (int i = 0; i < p.npts; ++i) {
    p.txv[static_cast<std::size_t>(i)] = static_cast<float>(i) * p.step + p.thmin;
  }
}

// --- Layout 0: header and intensities ------------------------------------------------------------------------------

bool is_not_finite_word(std::string_view word) {
  const auto first = word.find_first_not_of("+-");
  const std::string lower = lmix_string_utilities::l_case(word.substr(std::min(first, word.size())));
  return lower.starts_with("nan") || lower == "inf" || lower == "infinity";
}

/// BANK header: the bank and the number of points in columns 5 to 41, thmin and step in columns 47 to 90.
bool bank_header(reading& r, std::string_view line) {
  const auto columns = [&](int first, int last) { return lmix_fixed_format::text_in_columns(line, first, last); };
  pattern_type& p = r.p;
  float thmin = NaN, step = NaN;
  int npts = 0;
  const list_result counts = lmix_list_input::read_values(columns(5, 41), r.inum, npts);
  const list_result range = lmix_list_input::read_values(columns(47, 90), thmin, step);
  const int line_number = r.file.lines_taken();
  if (!counts.full()) return r.fail(check_instr, bad_value(r, line_number, counts, "bank and number of points"));
  if (!range.full() || !std::isfinite(thmin)) {
    return r.fail(check_instr, bad_value(r, line_number, range, "first abscissa and step behind column 46"));
  }
  if (!check_step(r, line_number, step)) return false;
  p.thmin = thmin;
  p.step = step;
  p.npts = npts;
  p.thmax = static_cast<float>(npts - 1) * step + thmin;
  return true;
}

/// Header of a .mdi file: thmin and step in the second line, thmax and the number of points behind its column 32.
bool mdi_header(reading& r) {
  const auto line = r.file.next();
  if (!line) return r.fail(end_of_file, " => File: " + r.name + " ends in its header");
  float thmin = NaN, step = NaN, thmax = NaN;
  int npts = 0;
  const int line_number = r.file.lines_taken();
  const list_result begin = lmix_list_input::read_values(*line, thmin, step);
  if (!begin.full() || !std::isfinite(thmin)) {
    return r.fail(check_instr, bad_value(r, line_number, begin, "first abscissa and step"));
  }
  const list_result rest =
      lmix_list_input::read_values(lmix_fixed_format::text_in_columns(*line, 33, 132), thmax, npts);
  if (!rest.full() || !std::isfinite(thmax)) {
    return r.fail(check_instr, bad_value(r, line_number, rest, "last abscissa and number of points behind column 32"));
  }
  if (!check_step(r, line_number, step)) return false;
  r.p.thmin = thmin;
  r.p.step = step;
  r.p.thmax = thmax;
  r.p.npts = npts;
  return true;
}

/// thmin, step, thmax in the line or in one of those that follow; titles in front of them are passed over.
bool free_header(reading& r, std::string_view first_line) {
  constexpr int most_lines = 8;
  std::optional<std::string_view> line = first_line;
  for (int tried = 0; tried < most_lines; ++tried) {
    if (tried > 0) line = next_value_line(r);
    if (!line)
      return r.fail(end_of_file, " => File: " + r.name + " ends before first abscissa, step and last abscissa");
    float thmin = NaN, step = NaN, thmax = NaN;
    const list_result found = lmix_list_input::read_values(*line, thmin, step, thmax);
    const int line_number = r.file.lines_taken();
    if (found.status == list_status::bad && is_not_finite_word(found.token)) {
      return r.fail(check_instr, bad_value(r, line_number, found, "a finite number"));
    }
    if (!found.full() || !(std::isfinite(thmin + thmax))) continue;
    if (!check_step(r, line_number, step)) return false;
    take_tsamp(*line, "TSAMP", r.p.tsamp);
    r.p.thmin = thmin;
    r.p.step = step;
    r.p.thmax = thmax;
    r.p.npts = count_points(thmin, step, thmax, 1.5f);
    return true;
  }
  return r.fail(check_instr, place(r, r.file.lines_taken()) + ": first abscissa, step and last abscissa not found in " +
                                 std::to_string(most_lines) + " lines");
}

bool header_0(reading& r) {
  const auto line = next_value_line(r);
  if (!line) return r.fail(end_of_file, " => File: " + r.name + " holds no data");
  if (line->starts_with("BANK")) return bank_header(r, *line);
  const std::string extension = r.st.io.extdat[static_cast<std::size_t>(&r.p - r.st.pattern.data())];
  if (lmix_string_utilities::l_case(extension) == ".mdi") return mdi_header(r);
  return free_header(r, *line);
}

bool read_intensities(reading& r) {
  pattern_type& p = r.p;
  p.y.assign(static_cast<std::size_t>(p.npts), NaN);
  const list_result found = lmix_list_input::read_list(r.file, std::span<float>(p.y));
  const std::string expected = "intensity " + std::to_string(found.count + 1) + " of " + std::to_string(p.npts);
  if (found.status == list_status::bad) {
    return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found, expected));
  }
  if (!found.full())
    return r.fail(check_instr, place(r, r.file.lines_taken()) + ": the data end, " + expected + " expected");
  const auto empty = std::find_if(p.y.begin(), p.y.end(), [](float value) { return std::isnan(value); });
  if (empty == p.y.end()) return true;
  return r.fail(check_instr, " => File: " + r.name + ": intensity " + std::to_string(empty - p.y.begin() + 1) +
                                 " is an empty place between two commas");
}

bool layout_0(reading& r) {
  if (!header_0(r) || !check_count(r, r.p.npts) || !read_intensities(r)) return false;
  r.p.var = r.p.y;
  // a point without counts gets the variance of one count: a weight cannot be made from 0
  for (float& v : r.p.var)
    if (v < negligible) v = 1.f;
  constant_grid(r.p);
  return true;
}

// --- Layout 10: lines of x, y, sigma -------------------------------------------------------------------------------

enum class interpolation { none = 0, internal = 1, supplied = 2 };

struct xy_heading {
  float fac_x = 1.f, fac_y = 1.f;
  interpolation flag = interpolation::none;
  float step = 0.f;
};

bool parse_fault(reading& r, const lmix_string_utilities::findfmt_state& fmt, std::string where) {
  r.detail.emplace_back(" Error reading a profile DATA file:#!");
  for (int i = 0; i < fmt.mess_findfmt.nlines; ++i)
    r.detail.push_back(fmt.mess_findfmt.txt[static_cast<std::size_t>(i)]);
  return r.fail(interrupted, std::move(where));
}

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

struct data_line {
  float x = 0.f, y = 0.f, sigma = 0.f;
};

const char* skip_blanks(const char* at, const char* end) {
  while (at != end && (*at == ' ' || *at == '\t')) ++at;
  return at;
}

/// The value at `at` in its plainest notation, followed by a blank or the end; null for anything else.
const char* plain_number(const char* at, const char* end, float& value) {
  const auto [after, error] = std::from_chars(at, end, value);
  if (error != std::errc() || !std::isfinite(value)) return nullptr;
  return after == end || *after == ' ' || *after == '\t' ? after : nullptr;
}

/// Reads the ordinary line: two or three plain numbers between blanks. False sends the line to the finder of fields,
/// which knows all notations and all faults; where this one succeeds both give the same values.
bool plain_line(std::string_view line, data_line& values) {
  const char* const end = line.data() + line.size();
  const char* at = plain_number(skip_blanks(line.data(), end), end, values.x);
  if (at != nullptr) at = plain_number(skip_blanks(at, end), end, values.y);
  if (at == nullptr) return false;
  at = skip_blanks(at, end);
  values.sigma = 0.f;
  return at == end || plain_number(at, end, values.sigma) != nullptr;
}

/// Column (1-based) of the first of the three fields that is no number, 0 when each alone is one.
std::size_t faulty_column(std::string_view line) {
  std::size_t at = 0;
  for (int field = 0; field < 3; ++field) {
    at = line.find_first_not_of(" \t", at);
    if (at == std::string_view::npos) return 0;
    const std::string_view word = line.substr(at, line.find_first_of(" \t", at) - at);
    float value = 0.f;
    if (!lmix_fixed_format::parse_real(word, value)) return at + 1;
    at += word.size();
  }
  return 0;
}

/// Reads the line that was taken last, which began at `begin`.
bool finder_line(reading& r, text_source::mark begin, std::string_view line, data_line& values) {
  lmix_string_utilities::findfmt_state fmt;
  lmix_fixed_format::field_values fields;
  r.file.restore(begin);
  lmix_string_utilities::init_findfmt(fmt, begin.lines);
  if (lmix_string_utilities::read_fields(fmt, r.file, "fff", fields, false) != 0) {
    return parse_fault(r, fmt, place(r, begin.lines + 1, faulty_column(line)) + ": x, y and sigma expected");
  }
  values = {fields.f(0), fields.f(1), fields.f(2)};
  return true;
}

bool in_range(const pattern_type& p, float x) {
  constexpr float off = 1.f;
  return !(p.low_range > off && x < p.low_range) && !(p.high_range > off && x > p.high_range);
}

struct xy_sums {
  double cnorm = 0, sigma2 = 0;
  long long kept = 0;  ///< points found, also those that are too many to hold
};

/// Scales the point and appends it.
bool keep_point(reading& r, const xy_heading& heading, const data_line& read, xy_sums& sums) {
  pattern_type& p = r.p;
  const float x = read.x * heading.fac_x, sigma = read.sigma * heading.fac_y;
  float y = read.y * heading.fac_y, var = sigma * sigma;
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(var)) {
    return r.fail(interrupted, place(r, r.file.lines_taken()) + ": the scaled values or the square of sigma overflow");
  }
  if (!r.x.empty() && (x < r.x.back() || (x == r.x.back() && heading.flag != interpolation::none))) {
    return r.fail(interrupted, place(r, r.file.lines_taken()) + ": x = " + number_text(x) + " after " +
                                   number_text(r.x.back()) + ", increasing values expected");
  }
  sums.sigma2 += static_cast<double>(var);
  if (var < negligible) var = 1.f;
  if (y < negligible) {
    y = negligible;
    var = 1.f;
  }
  constexpr float least_y = 0.001f;
  sums.cnorm += static_cast<double>(var / std::max(y, least_y));
  r.x.push_back(x);
  p.y.push_back(y);
  p.var.push_back(var);
  return true;
}

/// An empty line ends the data; a word of warning if anything stands behind it.
void end_at_empty_line(reading& r) {
  const int line_number = r.file.lines_taken();
  if (!r.file.peek_value()) return;
  const std::string text = " => WARNING: the data end at the empty line " + std::to_string(line_number) + " of " +
                           r.name + ", what follows is not read";
  kalvaris_inout::mess_cons(r.st.io, text);
  kalvaris_inout::both_listings(r.st.io, text);
}

bool data_lines(reading& r, const xy_heading& heading, xy_sums& sums) {
  for (auto begin = r.file.save(); const auto line = r.file.next(); begin = r.file.save()) {
    data_line values;
    if (!plain_line(*line, values)) {
      if (line->find_first_not_of(" \t") == std::string_view::npos) {
        end_at_empty_line(r);
        return true;
      }
      if (lmix_text_input::is_blank_or_comment(*line)) continue;
      if (!finder_line(r, begin, *line, values)) return false;
    }
    const bool blank_point = std::abs(values.x) < negligible && values.y < negligible && values.sigma < negligible;
    if (blank_point || !in_range(r.p, values.x)) continue;
    if (++sums.kept > r.st.dim.maxpoint) continue;
    if (!keep_point(r, heading, values, sums)) return false;
  }
  return true;
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

bool interpolate(reading& r, float step) {
  pattern_type& p = r.p;
  p.step = step;
  p.npts = count_points(p.thmin, step, p.thmax, 1.05f);
  if (!check_count(r, p.npts)) return false;
  constant_grid(p);
  p.y = on_grid(r.x, p.y, p);
  p.var = on_grid(r.x, p.var, p);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  return true;
}

bool layout_10(reading& r) {
  pattern_type& p = r.p;
  xy_heading heading;
  xy_sums sums;
  if (!heading_10(r, heading) || !data_lines(r, heading, sums) || !check_count(r, sums.kept)) return false;
  p.npts = static_cast<int>(sums.kept);
  p.thmin = r.x.front();
  p.thmax = r.x.back();
  p.cnorm = static_cast<float>(sums.cnorm / static_cast<double>(p.npts));
  if (sums.sigma2 < static_cast<double>(negligible)) {
    p.var = p.y;
    p.cnorm = 1.f;
  }
  if (heading.flag != interpolation::none) return interpolate(r, heading.step);
  p.step = (p.thmax - p.thmin) / static_cast<float>(p.npts - 1);
  p.txv = r.x;
  return check_step(r, r.file.lines_taken(), p.step);
}

// --- The table of layouts ------------------------------------------------------------------------------------------

struct layout {
  int instr;
  bool (*read)(reading&);  ///< null: known, but not available
};

constexpr std::array<layout, 18> layouts{{{0, layout_0},
                                          {1, nullptr},
                                          {2, nullptr},
                                          {3, nullptr},
                                          {4, nullptr},
                                          {-4, nullptr},
                                          {5, nullptr},
                                          {6, nullptr},
                                          {7, nullptr},
                                          {8, nullptr},
                                          {9, nullptr},
                                          {10, layout_10},
                                          {11, nullptr},
                                          {-11, nullptr},
                                          {12, nullptr},
                                          {13, nullptr},
                                          {14, nullptr},
                                          {-14, nullptr}}};

bool read_layout(reading& r) {
  const auto row = std::find_if(layouts.begin(), layouts.end(), [&](const layout& l) { return l.instr == r.p.instr; });
  if (row == layouts.end()) return r.fail(" Invalid INSTR parameter ");
  if (row->read == nullptr)
    return r.fail(" INSTR = " + std::to_string(r.p.instr) + ": this layout is not available yet");
  return row->read(r);
}

template <class T>
void keep_every(std::vector<T>& values, std::size_t istep, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) values[i] = values[i * istep];
  values.resize(n);
}

bool thin_out(reading& r) {
  pattern_type& p = r.p;
  if (p.istep <= 1) return true;
  p.npts /= p.istep;
  if (!check_count(r, p.npts)) return false;
  const auto n = static_cast<std::size_t>(p.npts), every = static_cast<std::size_t>(p.istep);
  p.step *= static_cast<float>(p.istep);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  keep_every(p.y, every, n);
  keep_every(p.var, every, n);
  keep_every(p.txv, every, n);
  return true;
}

void finish(reading& r) {
  pattern_type& p = r.p;
  const auto n = static_cast<std::size_t>(p.npts);
  p.iww.assign(n, 1);
  p.yc.assign(n, 0.f);
  p.bk.assign(n, 0.f);
  p.kr.assign(n, 0);
  p.yo_max = std::max(0.f, *std::max_element(p.y.begin(), p.y.end()));
  p.txv.push_back(2.f * p.txv[n - 1] - p.txv[n - 2]);
  if (r.st.run.jcil > 0) {
    constexpr int results_unit = 2;
    kalvaris_inout::out(r.st.io, results_unit)
        << fmt_line{}.a("DATT ").i(8, p.numor).i(4, r.inum).f(12, 2, static_cast<double>(p.tsamp)).str() << '\n';
  }
}

void stop(state_type& st, const std::vector<std::string>& detail, const std::string& text) {
  for (const std::string& line : detail) {
    kalvaris_inout::console_line(st.io, line);
    kalvaris_inout::both_listings(st.io, line);
  }
  kalvaris_inout::both_listings(st.io, text);
  kalvaris_inout::stop_cond(st.io, text, true);
}

}  // namespace

void readint(state_type& st, int ip) {
  reading r{st, st.pattern[static_cast<std::size_t>(ip)], {}, {}, {}, 0, {}, {}};
  pattern_type& p = r.p;
  p.iconstep = true;
  p.cnorm = 1.f;
  for (std::vector<float>* array : {&p.txv, &p.y, &p.var}) array->clear();

  kalvaris_inout::openfile(st.io, {kalvaris_inout::file_key::data, ip + 1});
  if (st.io.file_error) return stop(st, {}, st.io.file_error_mess);
  r.name = st.io.namefil;
  r.file = text_source::from_file(kalvaris_inout::run_path(st.io, r.name), kalvaris_inout::unit::data);
  kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::data);
  r.echo(" => Reading Intensity data  =>>");
  if (!r.file.ok()) return stop(st, {" => File: " + r.name + ": " + r.file.status_text()}, std::string(check_instr));
  if (!read_layout(r) || !thin_out(r)) return stop(st, r.detail, r.stop_text);
  finish(r);
}

void prepare_data(state_type& st, int ip) {
  constexpr int unit_weights = 2, table_weights = 3, plot_constant_step = 1, plot_free = -3;
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (!p.iconstep && p.pl_prf == plot_constant_step) p.pl_prf = plot_free;
  if (p.iwgt == unit_weights) std::fill(p.var.begin(), p.var.end(), 1.f);
  if (p.iwgt == table_weights) variances::corr_variances(st, ip, p.npts);
}

int nombre_de_colonnes(std::string_view line) {
  line = lmix_string_utilities::trim(line);
  int ncol = 1;
  for (std::size_t i = 1; i < line.size(); ++i)
    if (line[i - 1] == ' ' && line[i] != ' ') ++ncol;
  return ncol;
}

}  // namespace kv_read_intens

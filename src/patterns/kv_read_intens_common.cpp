#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

namespace kv_read_intens {

using lmix_fixed_format::field_column;
using lmix_fixed_format::field_kind;

// --- Words ---------------------------------------------------------------------------------------------------------

std::string number_text(float value) {
  return std::string(lmix_string_utilities::trim(fmt_line{}.g(13, 6, static_cast<double>(value)).str()));
}

std::string place(const reading& r, int line, std::size_t column) {
  std::string text = " => File: " + r.name + ", line: " + std::to_string(line);
  if (column > 0) text += ", column: " + std::to_string(column);
  return text;
}

std::string bad_value(const reading& r, int line, std::string_view token, std::size_t column,
                      std::string_view expected) {
  constexpr std::size_t longest = 40;
  std::string shown;
  for (const char c : token.substr(0, longest)) shown += c >= ' ' && c <= '~' ? c : '?';
  return place(r, line, column) + ": \"" + shown + "\" found, " + std::string(expected) + " expected";
}

std::string bad_value(const reading& r, int line, const list_result& found, std::string_view expected) {
  return bad_value(r, line, found.token, found.column, expected);
}

bool fail_at_end(reading& r, std::string_view expected) {
  return r.fail(check_instr,
                place(r, r.file.lines_taken()) + ": the file ends, " + std::string(expected) + " expected");
}

std::string point_text(std::size_t i, float x) { return " point " + std::to_string(i + 1) + ", x = " + number_text(x); }

// --- Headers -------------------------------------------------------------------------------------------------------

std::optional<std::string_view> next_value_line(reading& r) {
  auto line = r.file.next();
  while (line && !line->empty() && (line->front() == '!' || line->front() == '#')) line = r.file.next();
  return line;
}

bool take_line(reading& r, std::string_view& line, std::string_view expected) {
  const auto taken = r.file.next();
  if (!taken) return fail_at_end(r, expected);
  line = *taken;
  return true;
}

void take_tsamp(std::string_view line, std::string_view keyword, float& tsamp) {
  const auto at = line.find(keyword);
  if (at == std::string_view::npos) return;
  float value = 0.f;
  tsamp = lmix_list_input::read_values(line.substr(at + keyword.size()), value).full() ? value : 0.f;
}

void take_told(kalvaris_params::told_value& told, std::string_view word, std::string_view text, int line) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t,=:"), text.size()));
  float value = NaN;
  if (lmix_list_input::read_values(text, value).full() && value >= 0.f)
    told = {value, line, std::string(lmix_string_utilities::trim(word))};
}

bool take_title(reading& r, std::string* kept) {
  std::string_view line;
  if (!take_line(r, line, "a title")) return false;
  r.echo(line);
  take_tsamp(line, "TSAMP", r.p.tsamp);
  if (kept != nullptr) *kept = line;
  return true;
}

bool check_step(reading& r, int line, float step) {
  if (step > 0.f && std::isfinite(step)) return true;
  return r.fail(check_instr, place(r, line) + ": the step is " + number_text(step) + ", a positive number expected");
}

bool free_range(reading& r) {
  std::array<float, 3> range{NaN, NaN, NaN};
  const list_result found = lmix_list_input::read_list(r.file, std::span<float>(range));
  const int line = r.file.lines_taken();
  if (found.status == list_status::end) return fail_at_end(r, "first abscissa, step and last abscissa");
  if (!found.full() || !std::isfinite(range[0] + range[2])) {
    return r.fail(check_instr, bad_value(r, line, found, "first abscissa, step and last abscissa"));
  }
  r.p.thmin = range[0];
  r.p.step = range[1];
  r.p.thmax = range[2];
  return check_step(r, line, r.p.step);
}

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

// --- Points --------------------------------------------------------------------------------------------------------

bool parse_fault(reading& r, const lmix_string_utilities::findfmt_state& fmt, std::string where) {
  r.detail.emplace_back(" Error reading a profile DATA file:#!");
  for (int i = 0; i < fmt.mess_findfmt.nlines; ++i)
    r.detail.push_back(fmt.mess_findfmt.txt[static_cast<std::size_t>(i)]);
  return r.fail(interrupted, std::move(where));
}

namespace {

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

/// Reads the ordinary line: two or three plain numbers between blanks. False sends the line to the finder of fields;
/// where this one succeeds both give the same values.
bool plain_line(std::string_view line, xy_point& values) {
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

}  // namespace

bool read_xy(reading& r, text_source::mark begin, std::string_view line, xy_point& values) {
  if (plain_line(line, values)) return true;
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

void constant_grid(pattern_type& p) {
  p.txv.resize(static_cast<std::size_t>(p.npts));
  for (int i = 0; i < p.npts; ++i) {
    p.txv[static_cast<std::size_t>(i)] = static_cast<float>(i) * p.step + p.thmin;
  }
}

void set_count(reading& r, std::size_t found, long long announced) {
  if (static_cast<long long>(found) < announced) {
    r.note(notice::short_data, "fewer points than announced: " + std::to_string(found) + " of " +
                                   std::to_string(announced) + ", the data end at line " +
                                   std::to_string(r.file.lines_taken()));
  }
  r.p.npts = static_cast<int>(found);
  r.p.thmax = static_cast<float>(r.p.npts - 1) * r.p.step + r.p.thmin;
}

bool read_reals(reading& r, std::span<float> values, std::string_view what) {
  std::fill(values.begin(), values.end(), NaN);
  const list_result found = lmix_list_input::read_list(r.file, values);
  const auto expected = [&](std::size_t i) {
    return std::string(what) + " " + std::to_string(i + 1) + " of " + std::to_string(values.size());
  };
  const auto count = static_cast<std::size_t>(found.count);
  const int line = r.file.lines_taken();
  if (found.status == list_status::bad) return r.fail(check_instr, bad_value(r, line, found, expected(count)));
  if (!found.full()) return r.fail(check_instr, place(r, line) + ": the data end, " + expected(count) + " expected");
  const auto empty = std::find_if(values.begin(), values.end(), [](float value) { return std::isnan(value); });
  if (empty == values.end()) return true;
  return r.fail(check_instr, " => File: " + r.name + ": " + std::string(what) + " " +
                                 std::to_string(empty - values.begin() + 1) + " is an empty place between two commas");
}

void compare_with_grid(reading& r, std::span<const float> x) {
  constexpr float tolerance = 0.1f;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const float expected = static_cast<float>(i) * r.p.step + r.p.thmin;
    if (std::abs(x[i] - expected) <= tolerance * r.p.step) continue;
    r.note(notice::uneven_step, [&] {
      return "the step is not constant:" + point_text(i, x[i]) + " where " + number_text(expected) +
             " follows from first abscissa and step, which are used";
    });
  }
}

namespace {

template <class T>
void permute(std::vector<T>& values, std::span<const std::size_t> order) {
  if (values.size() != order.size()) return;
  std::vector<T> sorted(values.size());
  for (std::size_t i = 0; i < order.size(); ++i) sorted[i] = values[order[i]];
  values = std::move(sorted);
}

}  // namespace

bool order_points(reading& r, std::string_view stop_text) {
  constexpr std::size_t one_in = 10;
  std::size_t backward = 0;
  const auto step_text = [&](std::size_t i) { return point_text(i, r.x[i]) + " after " + number_text(r.x[i - 1]); };
  std::string first_back;
  for (std::size_t i = 1; i < r.x.size(); ++i) {
    if (r.x[i] > r.x[i - 1]) continue;
    const bool back = r.x[i] < r.x[i - 1];
    if (back && backward++ == 0) first_back = step_text(i);
    r.note(notice::out_of_order,
           [&] { return (back ? "points out of order, sorted by x:" : "two points at one abscissa:") + step_text(i); });
  }
  if (backward == 0) return true;
  if (backward * one_in > r.x.size() - 1) {
    return r.fail(stop_text, " => File: " + r.name + ":" + first_back + ", increasing values expected; " +
                                 std::to_string(backward) + " steps go back");
  }
  std::vector<std::size_t> order(r.x.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return r.x[a] < r.x[b]; });
  permute(r.p.y, order);
  permute(r.p.var, order);
  permute(r.p.iww, order);
  permute(r.x, order);
  return true;
}

void note_uneven_step(reading& r) {
  constexpr float tolerance = 0.1f, rounding = 4 * std::numeric_limits<float>::epsilon();
  if (r.p.ixunit != 0 || r.x.size() < 3) return;  // channels of time of flight widen by design
  std::vector<float> steps(r.x.size() - 1);
  for (std::size_t i = 0; i < steps.size(); ++i) steps[i] = r.x[i + 1] - r.x[i];
  std::vector<float> sorted = steps;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::nth_element(sorted.begin(), middle, sorted.end());
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const float allowed = tolerance * *middle + rounding * std::abs(r.x[i + 1]);
    if (std::abs(steps[i] - *middle) <= allowed) continue;
    r.note(notice::uneven_step, [&] {
      return "the step is not constant:" + point_text(i + 1, r.x[i + 1]) + ", step " + number_text(steps[i]) +
             " where " + number_text(*middle) + " is usual";
    });
  }
}

void note_raised(reading& r, std::size_t i, float x, float y, float used) {
  r.note(notice::raised, [&] {
    return "intensity not above 0:" + point_text(i, x) + ", y = " + number_text(y) + ", " + number_text(used) +
           " is used";
  });
}

void counts_over_detectors(reading& r, float factor) {
  pattern_type& p = r.p;
  p.var.resize(p.y.size());
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    if (!(p.y[i] > negligible)) {
      note_raised(r, i, static_cast<float>(i) * p.step + p.thmin, p.y[i], 1.f);
      p.y[i] = 1.f;
    }
    p.iww[i] = std::max(p.iww[i], 1);
    p.var[i] = p.y[i] * factor / static_cast<float>(p.iww[i]);
  }
}

void variance_of_counts(reading& r) {
  pattern_type& p = r.p;
  p.var = p.y;
  for (std::size_t i = 0; i < p.var.size(); ++i) {
    if (p.var[i] > negligible) continue;
    p.var[i] = 1.f;
    const float x = i < r.x.size() ? r.x[i] : static_cast<float>(i) * p.step + p.thmin;
    r.note(notice::zero_variance, [&] { return "no counts, so no variance:" + point_text(i, x) + ", 1 is used"; });
  }
}

float mean_ratio(std::span<const float> var, std::span<const float> y) {
  double sum = 0;
  for (std::size_t i = 0; i < y.size(); ++i) sum += static_cast<double>(var[i] / std::max(y[i], least_y));
  return y.empty() ? 1.f : static_cast<float>(sum / static_cast<double>(y.size()));
}

// --- Blocks of fixed columns ---------------------------------------------------------------------------------------

namespace {

enum class field_state { value, blank, bad };

std::string_view columns_of(const field_column& column, std::string_view line) {
  const auto offset = static_cast<std::size_t>(column.offset);
  if (offset >= line.size()) return {};
  return lmix_string_utilities::trim(line.substr(offset, static_cast<std::size_t>(column.width)));
}

field_state read_field(const field_column& column, std::string_view line, float& value) {
  const std::string_view text = columns_of(column, line);
  value = 0.f;
  if (text.empty()) return field_state::blank;
  std::string packed;
  if (text.find(' ') != std::string_view::npos) packed = lmix_string_utilities::pack_string(text);
  const std::string_view number = packed.empty() ? text : std::string_view(packed);
  if (column.kind == field_kind::real) {
    return lmix_fixed_format::parse_real(number, value, column.decimals) ? field_state::value : field_state::bad;
  }
  int integer = 0;
  if (!lmix_fixed_format::parse_integer(number, integer)) return field_state::bad;
  value = static_cast<float>(integer);
  return field_state::value;
}

/// Values of one line; the block's count, blank fields and fault are brought up to date.
void read_fields(const lmix_fixed_format::fixed_format& format, std::string_view line, int number,
                 std::span<float> values, column_block& block, std::size_t& last_value) {
  block.line = number;
  for (const field_column& column : format.columns) {
    if (block.count == values.size()) return;
    const field_state state = read_field(column, line, values[block.count]);
    if (state == field_state::bad) {
      block.status = column_block::end::bad_field;
      block.token = columns_of(column, line);
      block.column = static_cast<std::size_t>(column.offset) + 1;
      return;
    }
    ++block.count;
    if (state == field_state::value) last_value = block.count;
    if (state == field_state::blank && column.kind == field_kind::real && block.blank++ == 0) block.blank_line = number;
  }
}

}  // namespace

column_block read_columns(text_source& file, std::string_view format, std::span<float> values, bool banks) {
  column_block block;
  const auto columns = lmix_fixed_format::fixed_format::parse(format);
  std::size_t last_value = 0;
  block.line = file.lines_taken();
  while (columns && block.count < values.size()) {
    const auto begin = file.save();
    const auto line = file.next();
    if (!line) block.status = column_block::end::text_ended;
    if (line && banks && line->starts_with("BANK")) block.status = column_block::end::next_bank;
    if (block.status == column_block::end::full)
      read_fields(*columns, *line, file.lines_taken(), values, block, last_value);
    if (block.status == column_block::end::full) continue;
    if (line) file.restore(begin);
    break;
  }
  // blank columns behind the last number are no values: the text ended early
  if (block.status == column_block::end::full && last_value < values.size())
    block.status = column_block::end::text_ended;
  if (block.status != column_block::end::bad_field) block.count = last_value;
  return block;
}

column_block read_record(std::string_view line, std::string_view format, std::span<float> values) {
  column_block block;
  std::size_t last_value = 0;
  if (const auto columns = lmix_fixed_format::fixed_format::parse(format))
    read_fields(*columns, line, 0, values, block, last_value);
  return block;
}

bool whole_block(reading& r, const column_block& block, std::size_t wanted, std::size_t per_point) {
  const std::string expected =
      "point " + std::to_string(block.count / per_point + 1) + " of " + std::to_string(wanted / per_point);
  if (block.status == column_block::end::bad_field)
    return r.fail(check_instr, bad_value(r, block.line, block.token, block.column, expected));
  if (block.status != column_block::end::full)
    return r.fail(check_instr, place(r, r.file.lines_taken()) + ": the data end, " + expected + " expected");
  if (block.blank > 0)
    r.note(notice::empty_field, "columns without a number count as 0, first in line " +
                                    std::to_string(block.blank_line) + ", fields: " + std::to_string(block.blank));
  return true;
}

std::size_t points_of_block(reading& r, const column_block& block, std::size_t wanted, std::size_t per_point) {
  const std::size_t found = block.count / per_point;
  if (block.status == column_block::end::bad_field)
    r.note(notice::short_data,
           bad_value(r, block.line, block.token, block.column,
                     "point " + std::to_string(found + 1) + " of " + std::to_string(wanted / per_point))
               .substr(4));
  else if (block.status != column_block::end::full && block.count < wanted)
    r.note(notice::short_data, "fewer points than announced: " + std::to_string(found) + " of " +
                                   std::to_string(wanted / per_point) + ", the data end at line " +
                                   std::to_string(block.line));
  return found;
}

}  // namespace kv_read_intens

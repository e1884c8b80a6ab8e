#include <cmath>

#include "kv_read_intens_parts.hpp"

// Layout -4: blocks of an early position-sensitive instrument. The columns of a record follow from the month in the
// first line; counts are corrected for dead time and background and normalised to a reference monitor.

namespace kv_read_intens {

namespace {

/// Columns of a data record by the date of the experiment.
struct dated_columns {
  std::string_view date;
  std::string_view format;
  bool monitor_first;
};
constexpr std::array<dated_columns, 3> dated_table{{{"OCT85", "(24x,f7.0,1x,f7.0)", false},
                                                    {"FEB86", "(24x,f7.0,1x,f7.0)", false},
                                                    {"AUG86", "(51x,f10.0,1x,f10.0)", true}}};

struct block_head {
  float start, step, end, time, monitor_background, count_background;
};

bool read_head(reading& r, std::string_view format, std::span<float> values, std::string_view expected) {
  std::string_view line;
  if (!take_line(r, line, expected)) return false;
  const column_block found = read_record(line, format, values);
  if (found.status == column_block::end::full) return true;
  return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found.token, found.column, expected));
}

bool read_block_head(reading& r, block_head& head) {
  std::array<float, 6> v{};
  if (!read_head(r, "(6f8.0)", v, "start, step, end, time and two backgrounds of a block")) return false;
  head = {v[0], v[1], v[2], v[3], v[4], v[5]};
  const int line = r.file.lines_taken();
  if (!check_step(r, line, head.step)) return false;
  if (head.time > 0.f) return true;
  return r.fail(check_instr,
                place(r, line) + ": the counting time is " + number_text(head.time) + ", a positive number expected");
}

/// Normalises a raw count and monitor and appends the point.
bool keep_point(reading& r, const block_head& head, float count, float raw_monitor, float reference) {
  constexpr float dead_time = 2.4621e-06f, least = 0.01f;
  pattern_type& p = r.p;
  const float t = head.time, rate = count / t;
  const float live = 1.f - dead_time * rate, monitor = raw_monitor - head.monitor_background;
  float y = (rate / live - head.count_background) * reference / monitor;
  const float scale = t * monitor * live / reference;
  const float var = count / (scale * scale);
  if (!std::isfinite(y) || !std::isfinite(var))
    return r.fail(check_instr, place(r, r.file.lines_taken()) + ": count " + number_text(count) + " and monitor " +
                                   number_text(raw_monitor) + " cannot be normalised");
  if (std::abs(y) < least) {
    note_raised(r, p.y.size(), static_cast<float>(p.y.size()) * p.step + p.thmin, y, 1.f);
    y = 1.f;
  }
  p.y.push_back(y);
  p.var.push_back(var);
  return true;
}

/// The records of a block. Of a later block the first repeats the last of the block before, and is passed over.
bool read_block(reading& r, const dated_columns& columns, const block_head& head, float reference, bool later) {
  const int n = count_points(head.start, head.step, head.end, 1.5f);
  if (n < 1) return r.fail(check_instr, place(r, r.file.lines_taken()) + ": a block without points");
  const long long total = static_cast<long long>(r.p.y.size()) + n - (later ? 1 : 0);
  if (total > r.st.dim.maxpoint) return check_count(r, total);
  for (int i = 0; i < n; ++i) {
    std::array<float, 2> v{};
    if (!read_head(r, columns.format, v, "intensity and monitor")) return false;
    if (later && i == 0) continue;
    if (!keep_point(r, head, v[columns.monitor_first ? 1 : 0], v[columns.monitor_first ? 0 : 1], reference))
      return false;
  }
  return true;
}

const dated_columns* columns_of(std::string_view date) {
  for (const dated_columns& row : dated_table)
    if (row.date == date) return &row;
  return nullptr;
}

void finish_variances(reading& r) {
  pattern_type& p = r.p;
  double sum = 0;
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    sum += static_cast<double>(p.var[i] / p.y[i]);
    if (p.var[i] > negligible) continue;
    p.var[i] = 1.f;
    r.note(notice::zero_variance,
           [&] { return "variance 0:" + point_text(i, static_cast<float>(i) * p.step + p.thmin) + ", 1 is used"; });
  }
  p.cnorm = static_cast<float>(sum / static_cast<double>(p.y.size()));
}

}  // namespace

bool dated_blocks(reading& r) {
  pattern_type& p = r.p;
  std::string_view line;
  if (!take_line(r, line, "date and title")) return false;
  r.echo(line);
  const std::string date(line.substr(0, 5));
  const dated_columns* const columns = columns_of(date);
  if (columns == nullptr) {
    r.detail.emplace_back("     When was this data taken. OCT85,FEB86 or AUG86 ?");
    return r.fail(check_instr, bad_value(r, 1, date, 1, "OCT85, FEB86 or AUG86"));
  }
  std::array<float, 3> head{};
  if (!read_head(r, "(i8,f8.0,f10.0)", head, "number of blocks and reference monitor")) return false;
  const float reference = head[1];
  if (!(head[0] >= 1.f && reference > 0.f))
    return r.fail(check_instr, place(r, 2) + ": " + number_text(head[0]) + " blocks and the reference monitor " +
                                   number_text(reference) + ", positive numbers expected");
  for (float k = 0.f; k < head[0]; ++k) {
    block_head block{};
    if (!read_block_head(r, block)) return false;
    if (k == 0.f) p.thmin = block.start;
    if (k > 0.f && std::abs(block.step - p.step) > 0.1f * p.step)
      r.note(notice::uneven_step, "the step is not constant: " + number_text(block.step) + " in the block at line " +
                                      std::to_string(r.file.lines_taken()) + ", " + number_text(p.step) + " before");
    p.step = block.step;
    p.thmax = block.end;
    if (!read_block(r, *columns, block, reference, k > 0.f)) return false;
  }
  p.npts = static_cast<int>(p.y.size());
  if (!check_count(r, p.npts)) return false;
  finish_variances(r);
  constant_grid(p);
  return true;
}

}  // namespace kv_read_intens

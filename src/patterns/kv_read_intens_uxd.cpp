#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layout 9: UXD files, a header of keywords and rows of intensities with or without a column of abscissae.

namespace kv_read_intens {

namespace {

constexpr std::string_view uxd_error = " Error on Socabim UXD Intensity file, check your instr parameter! ";

/// What the header says.
struct uxd_header {
  float thmin = NaN, step = NaN, step_time = NaN;
  int npts = 0;             ///< 0 when it is not told
  bool x_column = false;    ///< each row begins with its abscissa
  bool per_second = false;  ///< intensities are to be multiplied by the step time
};

enum class key {
  counts,
  x_counts,
  x_rates,
  first_abscissa,
  step,
  step_time,
  step_count,
  wavelength1,
  wavelength2,
  wavelength_ratio
};
struct key_row {
  std::string_view word;
  key id;
};
/// The longer words stand in front of those that they begin with.
constexpr std::array<key_row, 12> keys{{{"_2THETACOUNTS", key::x_counts},
                                        {"_2THETACPS", key::x_rates},
                                        {"_COUNTS", key::counts},
                                        {"_CPS", key::counts},  // kept: a rate without abscissae stays as it is
                                        {"_2THETA", key::first_abscissa},
                                        {"_START", key::first_abscissa},
                                        {"_STEPSIZE", key::step},
                                        {"_STEPTIME", key::step_time},
                                        {"_STEPCOUNT", key::step_count},
                                        {"_WL1", key::wavelength1},
                                        {"_WL2", key::wavelength2},
                                        {"_WLRATIO", key::wavelength_ratio}}};

bool take_number(reading& r, std::string_view line, auto& value) {
  const auto equals = line.find('=');
  if (equals == std::string_view::npos || lmix_string_utilities::trim(line.substr(equals + 1)).empty()) return true;
  const list_result found = lmix_list_input::read_values(line.substr(equals + 1), value);
  if (found.full()) return true;
  return r.fail(uxd_error, bad_value(r, r.file.lines_taken(), found.token, found.column + equals + 1, "a number"));
}

bool take_uxd_tsamp(reading& r, std::string_view line) {
  const auto at = line.find("TSAMP");
  if (at == std::string_view::npos) return true;
  r.p.tsamp = 0.f;
  std::string_view behind = line.substr(at + 5);
  behind.remove_prefix(std::min(behind.find_first_not_of(" ="), behind.size()));
  if (lmix_list_input::read_values(behind, r.p.tsamp).full()) return true;
  return r.fail(uxd_error, place(r, r.file.lines_taken(), at + 6) + ": a number expected behind TSAMP");
}

/// Takes the keyword of a record. `starts`: the data begin behind it.
bool take_key(reading& r, std::string_view line, uxd_header& header, bool& starts) {
  const auto row = std::find_if(keys.begin(), keys.end(), [&](const key_row& k) { return line.starts_with(k.word); });
  if (row == keys.end()) return true;
  const auto told = [&](kalvaris_params::told_value& value) {
    take_told(value, row->word, line.substr(row->word.size()), r.file.lines_taken());
    return true;
  };
  switch (row->id) {
    case key::counts:
    case key::x_counts:
    case key::x_rates:
      starts = true;
      header.x_column = row->id != key::counts;
      header.per_second = row->id == key::x_rates;
      return true;
    case key::first_abscissa:
      return take_number(r, line, header.thmin);
    case key::step:
      return take_number(r, line, header.step);
    case key::step_time:
      return take_number(r, line, header.step_time);
    case key::step_count:
      return take_number(r, line, header.npts) && (header.npts <= r.st.dim.maxpoint || check_count(r, header.npts));
    case key::wavelength1:
      return told(r.p.told.lambda1);
    case key::wavelength2:
      return told(r.p.told.lambda2);
    case key::wavelength_ratio:
      return told(r.p.told.ratio);
  }
  return true;
}

bool read_header(reading& r, uxd_header& header) {
  r.echo(" => Reading intensity in a UXD file, the heading of the file is written below:");
  bool starts = false;
  while (!starts) {
    const auto line = r.file.next();
    if (!line)
      return r.fail(uxd_error, place(r, r.file.lines_taken()) +
                                   ": the file ends, _COUNTS, _CPS, _2THETACOUNTS or _2THETACPS expected");
    r.echo(*line);
    if (!take_uxd_tsamp(r, *line) || !take_key(r, *line, header, starts)) return false;
    if (!starts || line->find('=') == std::string_view::npos) continue;
    if (const auto further = r.file.next()) r.echo(*further);
  }
  return true;
}

/// The separator of the rows: tab, semicolon or comma, found in the first one; blank when there is none of them.
char separator_of(std::string_view line) {
  for (const char c : {'\t', ';', ','})
    if (line.find(c) != std::string_view::npos) return c;
  return ' ';
}

/// Numbers of a row. False at a piece that is no number, which `bad` then holds.
bool numbers_of(std::string_view line, char separator, std::vector<float>& values, std::string_view& bad) {
  values.clear();
  std::size_t at = 0;
  while (at < line.size()) {
    if (separator == ' ') at = std::min(line.find_first_not_of(" \t", at), line.size());
    if (at == line.size()) break;
    const std::size_t end =
        std::min(line.find_first_of(separator == ' ' ? " \t" : std::string_view(&separator, 1), at), line.size());
    const std::string_view piece = lmix_string_utilities::trim(line.substr(at, end - at));
    at = end + 1;
    if (piece.empty() && separator != ' ' && at >= line.size()) break;  // a separator at the end of the row
    float value = NaN;
    if (!lmix_fixed_format::parse_real(piece, value) &&
        !(lmix_list_input::read_values(piece, value).full() && std::isfinite(value))) {
      bad = piece;
      return false;
    }
    values.push_back(value);
  }
  return true;
}

struct uxd_rows {
  std::vector<float> x;  ///< first abscissa of each row and its point
  std::vector<std::size_t> x_point;
  long long found = 0;
};

void keep_row(reading& r, const uxd_header& header, std::span<const float> values, uxd_rows& rows) {
  if (header.x_column && values.size() > 1) {
    rows.x.push_back(values.front());
    rows.x_point.push_back(static_cast<std::size_t>(rows.found));
  }
  for (const float y : values.subspan(header.x_column ? 1 : 0)) {
    if (++rows.found <= r.st.dim.maxpoint) r.p.y.push_back(y);
  }
}

bool read_rows(reading& r, const uxd_header& header, uxd_rows& rows) {
  const auto first = r.file.peek();
  const char separator = separator_of(first.value_or(""));
  std::vector<float> values;
  for (auto begin = r.file.save(); const auto line = r.file.next(); begin = r.file.save()) {
    std::string_view bad;
    if (line->find_first_not_of(" \t\x1a") == std::string_view::npos) {
      if (!r.file.peek_value()) break;
      return r.fail(uxd_error, place(r, r.file.lines_taken()) + ": an empty record, intensities expected");
    }
    if (!numbers_of(*line, separator, values, bad)) {
      r.note(notice::unread_rest, [&] {
        return "the data end at line " + std::to_string(r.file.lines_taken()) + " of " + r.name + ", \"" +
               std::string(bad.substr(0, 20)) + "\" is no number";
      });
      r.file.restore(begin);
      break;
    }
    keep_row(r, header, values, rows);
  }
  if (rows.found > 0) return true;
  return r.fail(uxd_error, place(r, r.file.lines_taken() + 1) + ": intensities expected behind the header");
}

/// First abscissa and step from the column of abscissae where the header does not give them.
bool complete_range(reading& r, uxd_header& header, const uxd_rows& rows) {
  if (std::isnan(header.thmin) && !rows.x.empty()) header.thmin = rows.x.front();
  if (std::isnan(header.step) && rows.x.size() > 1)
    header.step = (rows.x.back() - rows.x.front()) / static_cast<float>(rows.x_point.back() - rows.x_point.front());
  if (!std::isfinite(header.thmin) || !std::isfinite(header.step))
    return r.fail(uxd_error, " => File: " + r.name + ": no " + (std::isfinite(header.thmin) ? "_STEPSIZE" : "_START") +
                                 " in the header");
  r.p.thmin = header.thmin;
  r.p.step = header.step;
  return check_step(r, r.file.lines_taken(), header.step);
}

bool multiply_by_time(reading& r, const uxd_header& header) {
  if (!header.per_second) return true;
  if (!(header.step_time > 0.f))
    return r.fail(uxd_error, " => File: " + r.name + ": a positive _STEPTIME expected with _2THETACPS");
  for (float& y : r.p.y) y *= header.step_time;
  return true;
}

/// The abscissa of each row against the constant step.
void compare_rows(reading& r, const uxd_rows& rows) {
  constexpr float tolerance = 0.1f;
  for (std::size_t k = 0; k < rows.x.size(); ++k) {
    const float expected = static_cast<float>(rows.x_point[k]) * r.p.step + r.p.thmin;
    if (std::abs(rows.x[k] - expected) <= tolerance * r.p.step) continue;
    r.note(notice::uneven_step, [&] {
      return "the step is not constant:" + point_text(rows.x_point[k], rows.x[k]) + " where " + number_text(expected) +
             " follows from first abscissa and step, which are used";
    });
  }
}

}  // namespace

bool data_socabim(reading& r) {
  uxd_header header;
  uxd_rows rows;
  if (!read_header(r, header) || !read_rows(r, header, rows) || !complete_range(r, header, rows)) return false;
  if (!check_count(r, rows.found) || !multiply_by_time(r, header)) return false;
  set_count(r, r.p.y.size(), header.npts);
  compare_rows(r, rows);
  variance_of_counts(r);
  constant_grid(r.p);
  return true;
}

}  // namespace kv_read_intens

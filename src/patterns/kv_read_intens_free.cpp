#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layouts in free format: a header and intensities (0), titles, a parameter line and intensities (5).

namespace kv_read_intens {

namespace {

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
  if (lmix_string_utilities::l_case(r.extension) == ".mdi") return mdi_header(r);
  return free_header(r, *line);
}

}  // namespace

bool header_and_intensities(reading& r) {
  if (!header_0(r) || !check_count(r, r.p.npts)) return false;
  r.p.y.resize(static_cast<std::size_t>(r.p.npts));
  if (!read_reals(r, r.p.y, "intensity")) return false;
  variance_of_counts(r);  // a point without counts gets the variance of one count: a weight cannot be made from 0
  constant_grid(r.p);
  return true;
}

namespace {

/// Numbers of the parameter line of layout 5.
struct parameters {
  int npts = 0;
  float tsamp = 0.f, regulation = 0.f;
  int sigmas = 0;  ///< not 0: sigmas stand behind the intensities
  float monitor_1 = 0.f, monitor_2 = 0.f;
};

bool read_parameters(reading& r, parameters& values) {
  std::optional<std::string_view> line = r.file.next();
  while (line && lmix_string_utilities::trim(*line).starts_with('!')) {
    r.echo(*line);
    line = r.file.next();
  }
  constexpr std::string_view expected = "points, two temperatures, flag of sigmas and two monitors";
  if (!line) return fail_at_end(r, expected);
  const list_result found = lmix_list_input::read_values(*line, values.npts, values.tsamp, values.regulation,
                                                         values.sigmas, values.monitor_1, values.monitor_2);
  if (!found.full()) return r.fail(check_instr, bad_value(r, r.file.lines_taken(), found, expected));
  r.echo("   -> NPTS: " + std::to_string(values.npts));
  r.echo(" Temperature (Sample & Regul): " + number_text(values.tsamp) + " " + number_text(values.regulation));
  r.p.tsamp = values.tsamp;
  r.p.npts = values.npts;
  return check_count(r, values.npts);
}

/// Intensities normalised to a monitor: their variance is y times the ratio of the monitors.
void variance_of_monitor(reading& r, const parameters& values) {
  const bool counts = !(values.monitor_1 > 1.f) || !(values.monitor_2 > 1.f);
  r.echo(counts ? "   -> Standard deviations of Yi assumed SQRT(Yi) "
                : "   -> Standard deviations of Yi assumed SQRT(Yi*Cnorm/Monitor) ");
  r.p.cnorm = counts ? 1.f : values.monitor_1 / values.monitor_2;
  variance_of_counts(r);
  for (float& v : r.p.var) v *= r.p.cnorm;
}

bool variance_of_sigmas(reading& r) {
  constexpr float least_intensity = 0.0001f, least_variance = 1.0e-06f;
  pattern_type& p = r.p;
  r.echo("   -> Standard deviations of Yi read from file ");
  p.var.resize(p.y.size());
  if (!read_reals(r, p.var, "standard deviation")) return false;
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    if (p.y[i] < least_intensity) {
      note_raised(r, i, static_cast<float>(i) * p.step + p.thmin, p.y[i], least_intensity);
      p.y[i] = least_intensity;
    }
    p.var[i] *= p.var[i];
    if (!(p.var[i] < least_variance)) continue;
    p.var[i] = 1.f;
    r.note(notice::zero_variance,
           [&] { return "variance 0:" + point_text(i, static_cast<float>(i) * p.step + p.thmin) + ", 1 is used"; });
  }
  p.cnorm = mean_ratio(p.var, p.y);
  return true;
}

}  // namespace

bool parameter_line(reading& r) {
  constexpr int titles = 3;
  r.echo(" -> Heading of input data:");
  for (int i = 0; i < titles; ++i)
    if (!take_title(r)) return false;
  parameters values;
  if (!read_parameters(r, values) || !free_range(r)) return false;
  pattern_type& p = r.p;
  const float announced_end = p.thmax;
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  if (std::abs(p.thmax - announced_end) > 0.5f * p.step)
    r.note(notice::uneven_step, "the last abscissa announced is " + number_text(announced_end) + ", " +
                                    number_text(p.thmax) + " follows from first abscissa, step and number of points");
  p.y.resize(static_cast<std::size_t>(p.npts));
  if (!read_reals(r, p.y, "intensity")) return false;
  constant_grid(p);
  if (values.sigmas != 0) return variance_of_sigmas(r);
  variance_of_monitor(r, values);
  return true;
}

}  // namespace kv_read_intens

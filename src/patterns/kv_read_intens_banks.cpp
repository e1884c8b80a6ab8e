#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layout 14: time-of-flight banks of x, y, sigma lines, separated by lines that begin with BANK.

namespace kv_read_intens {

namespace {

constexpr float default_fac_y = 1000.f;

/// The temperature between "T=" and the last "K" of the title.
bool take_title_temperature(std::string_view title, float& tsamp) {
  const auto begin = title.find("T=");
  const auto end = title.rfind('K');
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin + 2) return false;
  float value = 0.f;
  if (!lmix_list_input::read_values(title.substr(begin + 2, end - begin - 2), value).full()) return false;
  tsamp = value;
  return true;
}

void heading_line(reading& r, std::string_view line) {
  kalvaris_params::data_file_type& file = r.st.data_file;
  constexpr std::string_view instrument = "Instrument:";
  float fac_y = 0.f;
  if (const auto at = line.find("fac_y"); at != std::string_view::npos) {
    if (lmix_list_input::read_values(line.substr(at + 5), fac_y).full() && fac_y > 0.f) file.fac_y = fac_y;
  }
  if (const auto at = line.find(instrument); at != std::string_view::npos)
    file.txt2 = lmix_string_utilities::trim(line.substr(at + instrument.size()));
  if (const auto at = line.find("Run number :"); at != std::string_view::npos) {
    const auto name = line.find(file.txt2, at);
    int numor = 0;
    if (name != std::string_view::npos &&
        lmix_list_input::read_values(line.substr(std::max(name + file.txt2.size(), at + 12)), numor).full())
      r.p.numor = numor;
  }
  take_tsamp(line, line.find("TEMP2") != std::string_view::npos ? "TEMP2" : "TSAMP", r.p.tsamp);
  r.echo(" -> COMMENT: " + std::string(line));
}

bool find_bank(reading& r) {
  while (const auto line = r.file.next()) {
    if (line->starts_with("BANK")) return true;
  }
  return fail_at_end(r, "a line that begins with BANK");
}

bool heading(reading& r) {
  kalvaris_params::data_file_type& file = r.st.data_file;
  file.fac_y = default_fac_y;
  file.txt2.clear();
  std::string_view line;
  if (!take_line(r, line, "a title")) return false;
  file.txt1 = line;
  r.echo(" -> Format ISIS multi-bank ");
  r.echo(" -> Title: " + file.txt1);
  if (take_title_temperature(line, r.p.tsamp)) r.echo(" -> Temperature read in Kelvin:" + number_text(r.p.tsamp));
  while (true) {
    const auto next = r.file.next();
    if (!next) return fail_at_end(r, "a line that begins with BANK");
    if (next->starts_with("BANK")) return true;
    heading_line(r, *next);
  }
}

/// Keeps the point with the variance that its sigma gives.
bool keep_point(reading& r, const xy_point& read, float fac_y) {
  pattern_type& p = r.p;
  float y = read.y * fac_y;
  const float sigma = read.sigma * fac_y;
  float var = sigma * sigma;
  if (!std::isfinite(y) || !std::isfinite(var))
    return r.fail(interrupted, place(r, r.file.lines_taken()) + ": the scaled values or the square of sigma overflow");
  if (var < negligible) {
    r.note(notice::zero_variance, [&] {
      return "variance 0:" + point_text(r.x.size(), read.x) + ", line " + std::to_string(r.file.lines_taken()) + ", " +
             number_text(fac_y) + " is used";
    });
    var = fac_y;
  }
  if (y < negligible) {
    note_raised(r, r.x.size(), read.x, y, negligible);
    y = negligible;
    var = fac_y;
  }
  r.x.push_back(read.x);
  p.y.push_back(y);
  p.var.push_back(var);
  return true;
}

struct bank_sums {
  double sigma2 = 0;
  long long kept = 0;  ///< points found, also those that are too many to hold
};

/// Lines of the bank up to the next BANK line, which is taken, or to what is no data.
bool data_lines(reading& r, bank_sums& sums) {
  const float fac_y = r.st.data_file.fac_y;
  for (auto begin = r.file.save(); const auto line = r.file.next(); begin = r.file.save()) {
    if (line->find_first_not_of(" \t") == std::string_view::npos) return true;
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    if (line->starts_with("BANK")) {
      r.in_banks = true;
      return true;
    }
    xy_point values;
    if (!read_xy(r, begin, *line, values)) {  // the end of the data, told
      r.note(notice::unread_rest,
             "the bank ends at line " + std::to_string(begin.lines + 1) + ", which is not read: " + r.detail.back());
      r.detail.clear();
      r.stop_text.clear();
      return true;
    }
    if (!in_range(r.p, values.x)) continue;
    if (std::abs(values.x) < negligible && values.y < negligible && values.sigma < negligible) return true;
    if (++sums.kept > r.st.dim.maxpoint) continue;
    sums.sigma2 += static_cast<double>(values.sigma) * static_cast<double>(values.sigma);
    if (!keep_point(r, values, fac_y)) return false;
  }
  return true;
}

/// Counts of a channel become counts per time: the width is the distance to the next point, so that the last goes.
bool divide_by_widths(reading& r) {
  pattern_type& p = r.p;
  r.echo(" => Input Data for RALF binning type are internally modified");
  r.echo("          Ycorr(i)=fac_y*Yread(i)/(TOF(i+1)-TOF(i))");
  r.echo("          Scorr(i)=fac_y*Sread(i)/(TOF(i+1)-TOF(i))  (with fac_y=1000 by default)");
  for (std::size_t i = 0; i + 1 < r.x.size(); ++i) {
    const float width = r.x[i + 1] - r.x[i];
    if (!(width > 0.f))
      return r.fail(interrupted, " => File: " + r.name + ":" + point_text(i + 1, r.x[i + 1]) + " after " +
                                     number_text(r.x[i]) + ", increasing values expected");
    p.y[i] /= width;
    p.var[i] /= width * width;
  }
  for (std::vector<float>* values : {&r.x, &p.y, &p.var})
    if (!values->empty()) values->pop_back();
  return true;
}

/// How many counts would have the relative error of the point.
void detectors_of_points(pattern_type& p) {
  constexpr float most = 1.0e9f;
  p.iww.resize(p.y.size());
  for (std::size_t i = 0; i < p.y.size(); ++i)
    p.iww[i] = std::max(1, static_cast<int>(std::lround(std::min(p.y[i] / p.var[i], most))));
}

void check_variances(reading& r, double sigma2) {
  pattern_type& p = r.p;
  r.echo(fmt_line{}.a("    Sum of variances: ").g(14, 6, sigma2).str());
  if (sigma2 < static_cast<double>(negligible)) {
    r.forget(notice::zero_variance);
    variance_of_counts(r);
    p.cnorm = 1.f;
    r.note(notice::no_variances, "Problem reading variances! => Variance assumed to be equal to Intensity ");
    return;
  }
  double sum = 0;
  for (std::size_t i = 0; i < p.y.size(); ++i)
    sum += static_cast<double>(p.y[i]) * static_cast<double>(p.y[i]) / static_cast<double>(p.var[i]);
  r.echo(fmt_line{}.a("    Maximum R-expected: ").f(10, 4, 100 * std::sqrt(p.npts / sum)).str());
}

}  // namespace

bool time_of_flight_banks(reading& r) {
  kalvaris_params::data_file_type& file = r.st.data_file;
  pattern_type& p = r.p;
  p.iconstep = false;
  if (file.keep_open ? (!file.bank_taken && !find_bank(r)) : !heading(r)) return false;
  if (!file.keep_open) file.ralf_type = file.txt1.find("RALF") != std::string::npos;
  bank_sums sums;
  if (!data_lines(r, sums)) return false;
  file.bank_taken = r.in_banks;
  if (!check_count(r, sums.kept)) return false;
  if (file.ralf_type ? !divide_by_widths(r) : !order_points(r, interrupted)) return false;
  if (!check_count(r, static_cast<long long>(r.x.size()))) return false;
  p.npts = static_cast<int>(r.x.size());
  p.thmin = r.x.front();
  p.thmax = r.x.back();
  p.step = (p.thmax - p.thmin) / static_cast<float>(p.npts - 1);
  p.cnorm = mean_ratio(p.var, p.y);
  detectors_of_points(p);
  check_variances(r, sums.sigma2);
  p.txv = std::move(r.x);
  return check_step(r, r.file.lines_taken(), p.step);
}

}  // namespace kv_read_intens

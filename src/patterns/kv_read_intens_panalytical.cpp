#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layout 13, the keyed text formats: CSV, UDF and JCP.

namespace kv_read_intens {

namespace {

/// A keyword at the start of a record, and what it gives.
template <class Header>
struct keyword {
  std::string_view word;
  bool (*take)(reading&, std::string_view value, Header&);
};

/// A number behind a keyword; `value` may be followed by anything.
bool take_value(reading& r, std::string_view text, auto& value) {
  const list_result found = lmix_list_input::read_values(text, value);
  if (found.full()) return true;
  return r.fail(interrupted, bad_value(r, r.file.lines_taken(), found, "a number behind the keyword"));
}

bool echo_value(reading& r, std::string_view text, std::string_view title) {
  r.echo(std::string(title) + std::string(lmix_string_utilities::trim(text)));
  return true;
}

/// Reads records up to the one that begins with `end`; `format` names the file in the words of an early end.
template <class Header, std::size_t n>
bool read_keyed_header(reading& r, const std::array<keyword<Header>, n>& keys, std::string_view end,
                       std::string_view format, Header& header, auto&& data) {
  while (const auto line = r.file.next()) {
    if (line->starts_with(end)) return true;
    for (const keyword<Header>& key : keys) {
      if (!line->starts_with(key.word)) continue;
      if (!key.take(r, line->substr(key.word.size()), header)) return false;
      break;
    }
    if (!data(*line)) return false;
  }
  r.detail.push_back(" Error reading a profile " + std::string(format) + "-DATA file: end of file!");
  return r.fail(interrupted, place(r, r.file.lines_taken()) + ": \"" + std::string(end) + "\" expected");
}

constexpr auto no_data = [](std::string_view) { return true; };

struct scan_range {
  float thmin = NaN, thmax = NaN, step = NaN;
  int npts = 0;
};

/// A number of the radiation, echoed under its title.
template <kalvaris_params::told_value kalvaris_params::told_radiation::*told>
bool take_radiation(reading& r, std::string_view text, std::string_view title) {
  take_told(r.p.told.*told, title.substr(4, title.find(':') - 4), text, r.file.lines_taken());
  return echo_value(r, text, title);
}
constexpr auto take_lambda1 = take_radiation<&kalvaris_params::told_radiation::lambda1>;
constexpr auto take_lambda2 = take_radiation<&kalvaris_params::told_radiation::lambda2>;
constexpr auto take_ratio = take_radiation<&kalvaris_params::told_radiation::ratio>;

bool take_npts(reading& r, std::string_view text, scan_range& h) { return take_value(r, text, h.npts); }
bool take_step(reading& r, std::string_view text, scan_range& h) { return take_value(r, text, h.step); }
bool take_range(reading& r, std::string_view text, scan_range& h) {
  const list_result found = lmix_list_input::read_values(text, h.thmin, h.thmax);
  return found.full() ||
         r.fail(interrupted, bad_value(r, r.file.lines_taken(), found, "first and last abscissa behind the keyword"));
}

// --- CSV -----------------------------------------------------------------------------------------------------------

constexpr std::array<keyword<scan_range>, 7> csv_keys{{
    {"Title 1",
     [](reading& r, std::string_view v, scan_range&) { return echo_value(r, v, " -> Title of data file: "); }},
    {"K-Alpha1 wavelength",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda1(r, v, " -> K-Alpha1 wavelength: "); }},
    {"K-Alpha2 wavelength",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda2(r, v, " -> K-Alpha2 wavelength: "); }},
    {"Ratio K-Alpha2/K-Alpha1",
     [](reading& r, std::string_view v, scan_range&) { return take_ratio(r, v, " -> Ratio K-Alpha2/K-Alpha1: "); }},
    {"Data angle range,", take_range},
    {"Scan step size,", take_step},
    {"No. of points,", take_npts},
}};

/// x and y of a record, separated by a comma or by blanks.
bool csv_point(std::string_view line, float& x, float& y) {
  const auto comma = line.find(',');
  if (comma == std::string_view::npos) return lmix_list_input::read_values(line, x, y).full();
  return lmix_list_input::read_values(line.substr(0, comma), x).full() &&
         lmix_list_input::read_values(line.substr(comma + 1), y).full();
}

void csv_points(reading& r, int npts) {
  for (int i = 0; i < npts; ++i) {
    const auto begin = r.file.save();
    const auto line = r.file.next();
    float x = NaN, y = NaN;
    if (line && csv_point(*line, x, y) && std::isfinite(x + y)) {
      r.x.push_back(x);
      r.p.y.push_back(y);
      continue;
    }
    if (line) r.file.restore(begin);
    return;
  }
}

// --- UDF -----------------------------------------------------------------------------------------------------------

/// The number of points follows at once from the range, which must stand in front of the step.
bool take_udf_step(reading& r, std::string_view text, scan_range& h) {
  if (!take_value(r, text, h.step)) return false;
  const int line = r.file.lines_taken();
  if (!std::isfinite(h.thmin))
    return r.fail(interrupted, place(r, line) + ": DataAngleRange expected in front of ScanStepSize");
  if (!check_step(r, line, h.step)) return false;
  h.npts = count_points(h.thmin, h.step, h.thmax, 1.2f);
  return true;
}

constexpr std::array<keyword<scan_range>, 6> udf_keys{{
    {"SampleIdent,",
     [](reading& r, std::string_view v, scan_range&) { return echo_value(r, v, " -> Sample Identification: "); }},
    {"LabdaAlpha1,",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda1(r, v, " -> LabdaAlpha1: "); }},
    {"LabdaAlpha2,",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda2(r, v, " -> LabdaAlpha2: "); }},
    {"RatioAlpha21,",
     [](reading& r, std::string_view v, scan_range&) { return take_ratio(r, v, " -> RatioAlpha21: "); }},
    {"DataAngleRange,", take_range},
    {"ScanStepSize,", take_udf_step},
}};

// --- JCP -----------------------------------------------------------------------------------------------------------

constexpr std::array<keyword<scan_range>, 8> jcp_keys{{
    {"## TITLE=", [](reading& r, std::string_view v, scan_range&) { return echo_value(r, v, " -> Title: "); }},
    {"##$WAVELENGTH ALPHA1=",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda1(r, v, " -> Wavelength Alpha1: "); }},
    {"##$WAVELENGTH ALPHA2=",
     [](reading& r, std::string_view v, scan_range&) { return take_lambda2(r, v, " -> Wavelength Alpha2: "); }},
    {"##$INTENSITY RATIO ALPHA2/ALPHA1=",
     [](reading& r, std::string_view v, scan_range&) { return take_ratio(r, v, " -> Ratio Alpha2/Alpha1: "); }},
    {"## FIRSTX=", [](reading& r, std::string_view v, scan_range& h) { return take_value(r, v, h.thmin); }},
    {"## LASTX= ", [](reading& r, std::string_view v, scan_range& h) { return take_value(r, v, h.thmax); }},
    {"## DELTAX=", take_step},
    {"## NPOINTS=", take_npts},
}};

/// Records of an abscissa and five intensities. kept: of the last record only the first point belongs to the pattern
/// (test PanalyticalJcp.TheLastRecordGivesOnePoint).
bool jcp_points(reading& r, const scan_range& header) {
  constexpr std::size_t per_record = 5;
  if (!check_count(r, header.npts) || !check_step(r, r.file.lines_taken(), header.step)) return false;
  const std::size_t records = (static_cast<std::size_t>(header.npts) - 1) / per_record + 1;
  r.x.clear();
  r.p.y.clear();
  for (std::size_t k = 0; k < records; ++k) {
    const auto begin = r.file.save();
    const auto line = r.file.next();
    std::array<float, per_record + 1> v{};
    if (!line || line->starts_with("##") ||
        read_record(*line, "(f9.3,1x,5f11.3)", v).status != column_block::end::full) {
      if (line) r.file.restore(begin);
      return true;
    }
    const std::size_t wanted = k + 1 < records ? per_record : 1;
    for (std::size_t i = 0; i < wanted; ++i) {
      r.x.push_back(v[0] + static_cast<float>(i) * header.step);
      r.p.y.push_back(v[i + 1]);
    }
  }
  return true;
}

/// Ends a reader of free abscissae: range from the points, step from the header, else the mean.
bool finish_free(reading& r, const scan_range& header) {
  pattern_type& p = r.p;
  p.iconstep = false;
  if (!check_count(r, static_cast<long long>(r.x.size())) || !order_points(r, interrupted)) return false;
  p.thmin = r.x.front();
  p.step = header.step > 0.f ? header.step : (r.x.back() - r.x.front()) / static_cast<float>(r.x.size() - 1);
  set_count(r, r.x.size(), header.npts);
  p.thmax = r.x.back();
  note_uneven_step(r);
  variance_of_counts(r);
  p.txv = std::move(r.x);
  return check_step(r, r.file.lines_taken(), p.step);
}

}  // namespace

bool data_panalytical_csv(reading& r) {
  r.echo(" => Reading a profile DATA file in format: Philips_Xcelerator (csv)");
  scan_range header;
  if (!read_keyed_header(r, csv_keys, "[Scan points]", "CSV", header, no_data)) return false;
  if (!check_count(r, header.npts)) return false;
  if (!r.file.next()) return fail_at_end(r, "a line of headings");
  csv_points(r, header.npts);
  return finish_free(r, header);
}

bool data_panalytical_udf(reading& r) {
  r.echo(" => Reading a profile DATA file in format: PANalytical-UDF");
  scan_range header;
  if (!read_keyed_header(r, udf_keys, "RawScan", "UDF", header, no_data)) return false;
  if (!check_step(r, r.file.lines_taken(), header.step) || !check_count(r, header.npts)) return false;
  pattern_type& p = r.p;
  p.y.resize(static_cast<std::size_t>(header.npts));
  const column_block block = read_columns(r.file, "(7(f8.0,1x),f8.0)", p.y);
  const std::size_t n = points_of_block(r, block, p.y.size(), 1);
  p.y.resize(n);
  p.thmin = header.thmin;
  p.step = header.step;
  p.npts = static_cast<int>(n);
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  if (!check_count(r, p.npts)) return false;
  variance_of_counts(r);
  constant_grid(p);
  return true;
}

bool data_panalytical_jcp(reading& r) {
  r.echo(" => Reading a profile DATA file in format: PANalytical-JCP");
  scan_range header;
  const auto data = [&](std::string_view line) {
    return !line.starts_with("## XYDATA= X++<Y..Y>") || jcp_points(r, header);
  };
  if (!read_keyed_header(r, jcp_keys, "## END=", "JCP", header, data)) return false;
  return finish_free(r, header);
}

}  // namespace kv_read_intens

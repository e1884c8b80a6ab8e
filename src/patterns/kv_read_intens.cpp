#include "kv_read_intens.hpp"

#include <algorithm>
#include <cmath>
#include <functional>

#include "intensity_correction.hpp"
#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"
#include "variances.hpp"

namespace kv_read_intens {

namespace {

// --- The table of layouts ------------------------------------------------------------------------------------------

struct layout {
  format_row told;
  bool (*read)(reading&);
  bool opens_itself = false;  ///< reads the file line by line and does not want it in memory
};

constexpr std::array<layout, 21> layouts{{
    {{0, "", "header and intensities", "first abscissa, step, last abscissa (or a BANK line, or .mdi); intensities"},
     header_and_intensities},
    {{1, "", "counts of several detectors", "first abscissa, step, last abscissa; ten pairs I2,F6.0 a line"},
     detector_pairs},
    {{2, "", "400 points in steps of 0.2", "five lines of text; F7.3 start angle and ten F6.0; 39 lines of ten"},
     fixed_400_points},
    {{3, "", "two-axis diffractometer", "five lines of header; ten pairs I2,F8.0 a line; run number"}, two_axes},
    {{4, "", "alternating sigmas", "first abscissa, step, last abscissa; ten intensities, below them ten sigmas"},
     alternating_lines},
    {{-4, "", "dated blocks", "OCT85, FEB86 or AUG86 and a title; blocks of intensities with monitors"}, dated_blocks},
    {{5, "", "titles and parameters",
      "three titles; points, temperatures, flag, monitors; range; intensities (sigmas)"},
     parameter_line},
    {{6, "", "two monitors", "title, step, start, monitors; ten pairs I2,F6.0 a line; end mark -1000"}, two_monitors},
    {{7, "", "five triplets a line", "points, temperature, title; five times x F7.2, y F8.1, sigma F5.1 a line"},
     five_triplets},
    {{8, "", "intensities, then sigmas", "two titles; range; ten F8.0 a line: all intensities, then all sigmas"},
     intensities_then_sigmas},
    {{9, "", "UXD", "_START, _STEPSIZE and the like; _COUNTS, _CPS, _2THETACOUNTS or _2THETACPS; data"}, data_socabim},
    {{10, "", "x, y, sigma", "XYDATA and a heading, or six lines of text; x, y and perhaps sigma in each line"},
     xy_sigma},
    {{11, "", "variable counting time", "four titles; range; five pairs time F6.0, count F10.0 a line"}, variable_time},
    {{-11, "", "variable counting time", "as 11"}, variable_time},
    {{12, "", "GSAS", "title, BANK line of STD, ESD or ALT data in CONST or RALF binning; data; more banks"},
     read_gsas},
    {{13, ".csv .CSV .Csv .CSv", "PANalytical CSV", "[Measurement conditions]; [Scan points]; x,y in each line"},
     data_panalytical_csv},
    {{13, ".udf .UDF .Udf .UDf", "PANalytical UDF", "DataAngleRange, ScanStepSize; RawScan; eight intensities a line"},
     data_panalytical_udf},
    {{13, ".jcp .JCP .Jcp .JCp", "PANalytical JCP", "## FIRSTX=, ## DELTAX=; ## XYDATA= X++<Y..Y>; ## END="},
     data_panalytical_jcp},
    {{13, ".xrdml .XRDML .Xrdml .XRdml .XRDml .XRDMl .xrdML", "PANalytical XRDML",
      "<positions axis=\"2Theta\">; <intensities> or <counts>, scans are summed"},
     data_panalytical_xrdml,
     true},
    {{14, "", "time-of-flight banks", "title and comments; BANK; x, y, sigma in each line; more banks"},
     time_of_flight_banks},
    {{-14, "", "time-of-flight banks", "as 14"}, time_of_flight_banks},
}};

constexpr std::array<format_row, layouts.size()> told_rows() {
  std::array<format_row, layouts.size()> rows{};
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = layouts[i].told;
  return rows;
}
constexpr std::array<format_row, layouts.size()> format_rows = told_rows();

bool has_word(std::string_view words, std::string_view word) {
  for (std::size_t at = 0; at < words.size(); at = words.find_first_not_of(' ', words.find(' ', at)))
    if (words.substr(at, words.find(' ', at) - at) == word) return true;
  return false;
}

std::string first_word(std::string_view words) { return std::string(words.substr(0, words.find(' '))); }

/// All extensions of a layout that goes by them, one spelling each.
std::string extensions_of(int instr) {
  std::string text;
  for (const layout& row : layouts)
    if (row.told.instr == instr) text += (text.empty() ? "" : ", ") + first_word(row.told.extensions);
  return text;
}

/// The row of instr and, where the layout goes by it, extension; null without one.
const layout* find_layout(int instr, std::string_view extension) {
  const auto row = std::find_if(layouts.begin(), layouts.end(), [&](const layout& l) {
    return l.told.instr == instr && (l.told.extensions.empty() || has_word(l.told.extensions, extension));
  });
  return row == layouts.end() ? nullptr : &*row;
}

bool read_layout(reading& r) {
  const layout* const row = find_layout(r.p.instr, r.extension);
  if (row == nullptr) {
    const std::string others = extensions_of(r.p.instr);
    if (others.empty()) return r.fail(" Invalid INSTR parameter ");
    return r.fail(check_instr, " => File: " + r.name + ": extension \"" + r.extension + "\" found, one of " + others +
                                   " expected with instr = " + std::to_string(r.p.instr));
  }
  if (!row->told.extensions.empty()) {
    r.echo("      Data from PANalytical formats");
    r.echo("      Extension:  " + r.extension);
  }
  return row->read(r);
}

/// What every layout owes: npts points, finite, with a variance above 0.
bool check_points(reading& r) {
  pattern_type& p = r.p;
  const auto n = static_cast<std::size_t>(p.npts);
  if (p.iww.empty()) p.iww.assign(n, 1);
  for (std::size_t i = 0; i < n; ++i) {
    if (std::isfinite(p.txv[i]) && std::isfinite(p.y[i]) && std::isfinite(p.var[i]) && p.var[i] > 0.f) continue;
    return r.fail(check_instr, " => File: " + r.name + ":" + point_text(i, p.txv[i]) + ": intensity " +
                                   number_text(p.y[i]) + " with variance " + number_text(p.var[i]) +
                                   ", finite numbers and a variance above 0 expected");
  }
  return true;
}

// --- Which layout would fit ----------------------------------------------------------------------------------------

/// True when the layout reads the text from its beginning to its end and finds nothing to warn of but variances and
/// comments. `scratch` is a state with one pattern.
bool reads_whole(const layout& row, const reading& failed, text_source& text, state_type& scratch) {
  scratch.data_file = {};
  scratch.pattern.assign(1, {});
  pattern_type& p = scratch.pattern[0];
  p.jobtyp = failed.p.jobtyp;
  p.ixunit = failed.p.ixunit;
  p.instr = row.told.instr;
  reading r{scratch, p, row.told.extensions.empty() ? failed.extension : first_word(row.told.extensions)};
  r.name = failed.name;
  r.path = failed.path;
  r.file = std::move(text);
  r.file.rewind();
  bool whole = row.read(r) && check_points(r);
  whole = whole && (r.in_banks || !r.file.peek_value() || !row.told.extensions.empty());
  for (const notice kind : {notice::uneven_step, notice::out_of_order, notice::short_data, notice::empty_field,
                            notice::unread_rest, notice::no_variances})
    whole = whole && r.noted(kind).cases == 0;
  text = std::move(r.file);
  return whole;
}

/// A line for each other layout that the file fits.
void tell_fitting_layouts(reading& r) {
  constexpr int time_of_flight = 1;
  if (r.file.lines_taken() == 0) r.file = text_source::from_file(r.path);
  state_type scratch;
  scratch.dim = r.st.dim;
  std::vector<bool (*)(reading&)> tried;
  for (const layout& row : layouts) {
    if (std::find(tried.begin(), tried.end(), row.read) != tried.end()) continue;
    tried.push_back(row.read);
    const bool same = &row == find_layout(r.p.instr, r.extension);
    const bool banks_of_angles = row.read == time_of_flight_banks && r.p.ixunit != time_of_flight;
    if (same || banks_of_angles || !reads_whole(row, r, r.file, scratch)) continue;
    std::string text = " => The whole file can be read with instr = " + std::to_string(row.told.instr) + ": " +
                       std::string(row.told.name);
    if (!row.told.extensions.empty()) text += ", and the extension " + first_word(row.told.extensions);
    r.detail.push_back(std::move(text));
  }
}

/// Numbers behind the last point that the header announced: perhaps the header is none, and another layout fits.
void note_rest(reading& r) {
  if (r.in_banks || r.noted(notice::unread_rest).cases > 0) return;
  const layout* const row = find_layout(r.p.instr, r.extension);
  if (row == nullptr || row->opens_itself || !row->told.extensions.empty()) return;
  const auto rest = r.file.peek_value();
  float value = 0.f;
  if (!rest || !lmix_list_input::read_values(*rest, value).full()) return;
  r.note(notice::unread_rest, "numbers stand behind the last point, which are not read: \"" +
                                  std::string(rest->substr(0, 20)) + "\" and so on");
  const auto here = r.file.save();
  tell_fitting_layouts(r);
  r.file.restore(here);
}

// --- What the heading tells ----------------------------------------------------------------------------------------

/// "Calibrated wavelength = 0.4139", "Wavelength (A): 1.54" among the first lines of a file without keywords for it.
void take_wavelength_words(reading& r) {
  constexpr int heading_lines = 60;
  constexpr std::size_t reach = 12;  // of what may stand between the word and its number
  constexpr float longest = 50.f;    // angstrom; above it another unit
  const auto begin = r.file.save();
  for (int i = 0; i < heading_lines; ++i) {
    const auto line = r.file.next();
    if (!line) break;
    constexpr std::string_view word = "WAVELENGTH";
    const std::size_t at = lmix_string_utilities::u_case(*line).find(word);
    if (at == std::string_view::npos) continue;
    const std::string_view behind = line->substr(at + word.size());
    const std::size_t sign = behind.find_first_of("=:");
    if (sign > reach) continue;
    kalvaris_params::told_value told;
    take_told(told, line->substr(at, word.size()), behind.substr(sign), r.file.lines_taken());
    if (!(told.value > 0.f && told.value < longest)) continue;
    r.p.told.lambda1 = told;
    break;
  }
  r.file.restore(begin);
}

// --- The end of a call ---------------------------------------------------------------------------------------------

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
  keep_every(p.iww, every, n);
  return true;
}

void finish(reading& r) {
  pattern_type& p = r.p;
  const auto n = static_cast<std::size_t>(p.npts);
  p.yc.assign(n, 0.f);
  p.bk.assign(n, 0.f);
  p.kr.assign(n, 0);
  p.yo_max = std::max(0.f, *std::max_element(p.y.begin(), p.y.end()));
  p.txv.push_back(2.f * p.txv[n - 1] - p.txv[n - 2]);
  if (r.st.run.jcil <= 0) return;
  constexpr int results_unit = 2;
  kalvaris_inout::out(r.st.io, results_unit)
      << fmt_line{}.a("DATT ").i(8, p.numor).i(4, r.inum).f(12, 2, static_cast<double>(p.tsamp)).str()
      << r.result_values << '\n';
}

void tell(state_type& st, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    kalvaris_inout::console_line(st.io, line);
    kalvaris_inout::both_listings(st.io, line);
  }
}

void tell_notices(reading& r) {
  for (const reading::noticed& entry : r.notices) {
    if (entry.cases == 0) continue;
    std::string text = " => WARNING: " + r.name + ": " + entry.first;
    if (entry.cases > 1) text += " (the first of " + std::to_string(entry.cases) + ")";
    kalvaris_inout::mess_cons(r.st.io, text);
    kalvaris_inout::both_listings(r.st.io, text);
  }
  tell(r.st, r.detail);
}

void stop(state_type& st, const std::vector<std::string>& detail, const std::string& text) {
  tell(st, detail);
  kalvaris_inout::both_listings(st.io, text);
  kalvaris_inout::stop_cond(st.io, text, true);
}

// --- The file between patterns -------------------------------------------------------------------------------------

std::string element(const std::vector<std::string>& names, std::size_t i) {
  return i < names.size() ? names[i] : std::string();
}

/// The next pattern goes on in the file of time-of-flight banks that this one was read from.
bool next_goes_on(const state_type& st, std::size_t ip) {
  const auto same = [ip](const std::vector<std::string>& names) {
    return element(names, ip) == element(names, ip + 1);
  };
  return static_cast<int>(ip) + 1 < st.run.n_patt && st.pattern[ip].ixunit == 1 && same(st.io.filedat) &&
         same(st.io.extdat);
}

/// Opens the file of the pattern, or takes the one left open. False with file_error when it cannot be opened.
bool take_file(reading& r, int ip) {
  state_type& st = r.st;
  const auto i = static_cast<std::size_t>(ip);
  kalvaris_params::data_file_type& kept = st.data_file;
  kept.keep_open = kept.keep_open && kept.name == element(st.io.filedat, i) + element(st.io.extdat, i);
  if (kept.keep_open) {
    r.name = kept.name;
    r.extension = st.io.extdat[i];
    r.path = kalvaris_inout::run_path(st.io, r.name);
    r.file = std::move(kept.file);
    return true;
  }
  kept = {};
  kalvaris_inout::openfile(st.io, {kalvaris_inout::file_key::data, ip + 1});
  if (st.io.file_error) return false;
  r.name = st.io.namefil;
  r.extension = st.io.extdat[i];
  r.path = kalvaris_inout::run_path(st.io, r.name);
  const layout* const row = find_layout(r.p.instr, r.extension);
  if (row == nullptr || !row->opens_itself) r.file = text_source::from_file(r.path, kalvaris_inout::unit::data);
  kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::data);
  return true;
}

/// Keeps the file for the next pattern, or lets go of its text: a large one need not be held beside the points.
void leave_file(reading& r, int ip) {
  kalvaris_params::data_file_type& kept = r.st.data_file;
  if (!next_goes_on(r.st, static_cast<std::size_t>(ip))) {
    kept = {};
    r.file = {};
    return;
  }
  kept.keep_open = true;
  kept.name = r.name;
  kept.file = std::move(r.file);
}

}  // namespace

std::span<const format_row> formats() { return format_rows; }

std::string formats_text() {
  constexpr std::size_t extension_width = 11, name_width = 29;
  const auto padded = [](std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
  };
  std::string text = "instr  extension  name                         what a file looks like\n";
  for (const format_row& row : format_rows) {
    text += fmt_line{}.i(5, row.instr).x(2).str() +
            padded(row.extensions.empty() ? "any" : first_word(row.extensions), extension_width) +
            padded(std::string(row.name), name_width) + std::string(row.looks_like) + "\n";
  }
  return text;
}

void readint(state_type& st, int ip) {
  reading r{st, st.pattern[static_cast<std::size_t>(ip)], {}};
  pattern_type& p = r.p;
  p.iconstep = true;
  p.cnorm = 1.f;
  for (std::vector<float>* array : {&p.txv, &p.y, &p.var}) array->clear();
  p.iww.clear();
  p.told = {};

  if (!take_file(r, ip)) return stop(st, {}, st.io.file_error_mess);
  r.echo(" => Reading Intensity data  =>>");
  if (!r.file.ok()) return stop(st, {" => File: " + r.name + ": " + r.file.status_text()}, std::string(check_instr));
  if (p.ixunit == 0) take_wavelength_words(r);
  if (!read_layout(r) || !check_points(r) || !thin_out(r)) {
    if (r.stop_text != too_many) tell_fitting_layouts(r);
    return stop(st, r.detail, r.stop_text);
  }
  note_rest(r);
  leave_file(r, ip);
  finish(r);
  tell_notices(r);
}

void prepare_data(state_type& st, int ip) {
  constexpr int unit_weights = 2, table_weights = 3, plot_constant_step = 1, plot_free = -3;
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (!intensity_correction::corr_prof(st, ip)) stop(st, {}, st.io.file_error_mess);
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

#include <algorithm>
#include <cmath>

#include "kv_read_intens_parts.hpp"

// Layout 12: GSAS histograms, one or several banks in a file.

namespace kv_read_intens {

namespace {

/// The BANK line.
struct bank_line {
  int ibank = 0, nchan = 0, nrec = 0;
  std::string bintyp;
  std::array<float, 4> bcoef{};
  std::string datyp = "STD";
};

/// How the points of the types FXYE and FXY, which this layout does not have, can be read.
constexpr std::string_view as_layout_10 =
    "; lines of x, y and sigma are read with instr = 10 behind a heading of six lines, the first XYDATA, the second "
    "INTER 0.01 1.0 0 0.0 where x is in hundredths of a degree";

bool find_bank_line(reading& r, std::string_view& line) {
  constexpr int most_lines = 7;
  const bool going_on = r.st.data_file.keep_open;
  if (!going_on) r.echo(" => Heading of GSAS file:");
  for (int i = 0; i < most_lines; ++i) {
    const auto next = r.file.next();
    if (!next) break;
    if (!going_on) r.echo(next->substr(0, 80));
    line = *next;
    if (line.starts_with("BANK")) return true;
  }
  std::string where = place(r, r.file.lines_taken()) + ": a line that begins with BANK expected among the first " +
                      std::to_string(most_lines);
  while (const auto further = r.file.next()) {
    if (!further->starts_with("BANK")) continue;
    where += "; it stands in line " + std::to_string(r.file.lines_taken());
    where += further->find("FXY") == std::string_view::npos ? ", shorten the heading in front of it" : as_layout_10;
    break;
  }
  return r.fail(" => Error in the input GSAS-file: BANK not found!", std::move(where));
}

/// Numbers of the BANK line; blanks separate its words.
bool take_apart(reading& r, std::string_view line, bank_line& bank) {
  lmix_list_input::list_scanner scan(line.substr(4));
  const auto number = [&](auto& value, std::string_view expected) {
    if (scan.read(value) == list_status::value) return true;
    return r.fail(check_instr, bad_value(r, r.file.lines_taken(), scan.token(), scan.column() + 4, expected));
  };
  if (!number(bank.ibank, "bank number") || !number(bank.nchan, "number of channels") ||
      !number(bank.nrec, "number of records") || !number(bank.bintyp, "type of binning"))
    return false;
  for (float& coefficient : bank.bcoef) {
    const list_status status = scan.read(coefficient);
    if (status == list_status::end) break;
    if (status != list_status::value) {
      return r.fail(check_instr, bad_value(r, r.file.lines_taken(), scan.token(), scan.column() + 4,
                                           "four coefficients of the binning, then the type of data,"));
    }
  }
  std::string datyp;
  if (scan.read(datyp) == list_status::value) bank.datyp = datyp;
  r.inum = bank.ibank;
  r.echo(fmt_line{}.a(" -> IBANK,NCHAN,NREC: ").i(6, bank.ibank).i(8, bank.nchan).i(8, bank.nrec).str());
  r.echo(" -> BINTYP          : " + bank.bintyp);
  r.echo(fmt_line{}.a(" -> COEFFS          : ").f(14, 5, bank.bcoef).str());
  r.echo(" -> DATTYP          : " + bank.datyp);
  r.p.npts = bank.nchan;
  return check_count(r, bank.nchan);
}

/// Values of the bank by the format; the lines end where the next bank begins or where they are no data.
std::vector<float> bank_values(reading& r, std::string_view format, std::size_t per_point) {
  std::vector<float> values(per_point * static_cast<std::size_t>(r.p.npts));
  const column_block block = read_columns(r.file, format, values, true);
  const std::size_t n = points_of_block(r, block, values.size(), per_point);
  values.resize(n * per_point);
  r.p.npts = static_cast<int>(n);
  return values;
}

/// Coefficients of a constant step; `divisor` makes degrees of hundredths.
bool constant_step(reading& r, const bank_line& bank, float divisor) {
  r.p.thmin = bank.bcoef[0] / divisor;
  r.p.step = bank.bcoef[1] / divisor;
  return check_step(r, r.file.lines_taken(), r.p.step);
}

void finish_grid(pattern_type& p) {
  p.thmax = static_cast<float>(p.npts - 1) * p.step + p.thmin;
  constant_grid(p);
}

/// Squares of the sigmas, with a notice on those of 0.
void square_sigmas(reading& r, std::span<const float> x) {
  pattern_type& p = r.p;
  for (std::size_t i = 0; i < p.var.size(); ++i) {
    p.var[i] *= p.var[i];
    if (p.var[i] > 0.f) continue;
    p.var[i] = 1.f;
    r.note(notice::zero_variance, [&] { return "variance 0:" + point_text(i, x[i]) + ", 1 is used"; });
  }
}

/// Drops what lies outside the range of the pattern, which is alive when both limits are above 1.
void cut_range(pattern_type& p, std::vector<float>& x) {
  if (!(p.low_range > 1.f && p.high_range > 1.f)) return;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (x[i] < p.low_range) continue;
    if (x[i] > p.high_range) break;
    x[kept] = x[i];
    p.y[kept] = p.y[i];
    p.var[kept] = p.var[i];
    ++kept;
  }
  x.resize(kept);
  p.y.resize(kept);
  p.var.resize(kept);
  p.npts = static_cast<int>(kept);
  if (kept == 0) return;
  p.thmin = x.front();
  p.thmax = x.back();
}

// --- The types of data ---------------------------------------------------------------------------------------------

bool standard_data(reading& r, const bank_line& bank) {
  pattern_type& p = r.p;
  const bool pairs = p.jobtyp >= 0;
  if (!constant_step(r, bank, pairs ? 100.f : 1.f)) return false;
  const std::vector<float> values = bank_values(r, pairs ? "(10(i2,f6.0))" : "(10f8.0)", pairs ? 2 : 1);
  const auto n = static_cast<std::size_t>(p.npts);
  if (!check_count(r, p.npts)) return false;
  p.y.resize(n);
  p.iww.assign(n, 1);
  for (std::size_t i = 0; i < n; ++i) {
    p.y[i] = pairs ? values[2 * i + 1] : values[i];
    if (pairs) p.iww[i] = static_cast<int>(values[2 * i]);
  }
  counts_over_detectors(r, 1.f);
  finish_grid(p);
  return true;
}

bool intensities_with_sigmas(reading& r, const bank_line& bank) {
  pattern_type& p = r.p;
  if (!constant_step(r, bank, p.jobtyp >= 0 ? 100.f : 1.f)) return false;
  const std::vector<float> values = bank_values(r, "(10f8.0)", 2);
  if (!check_count(r, p.npts)) return false;
  for (std::size_t i = 0; i < values.size(); i += 2) {
    p.y.push_back(values[i]);
    p.var.push_back(values[i + 1]);
  }
  finish_grid(p);
  square_sigmas(r, p.txv);
  p.cnorm = mean_ratio(p.var, p.y);
  cut_range(p, p.txv);
  return true;
}

bool read_triplets(reading& r) {
  const std::vector<float> values = bank_values(r, "(4(f8.0,f7.4,f5.2))", 3);
  for (std::size_t i = 0; i < values.size(); i += 3) {
    r.x.push_back(values[i]);
    r.p.y.push_back(values[i + 1]);
    r.p.var.push_back(values[i + 2]);
  }
  return check_count(r, r.p.npts);
}

bool triplets_of_constant_step(reading& r, const bank_line& bank) {
  pattern_type& p = r.p;
  if (!constant_step(r, bank, 1.f) || !read_triplets(r)) return false;
  finish_grid(p);
  compare_with_grid(r, r.x);
  square_sigmas(r, p.txv);
  p.cnorm = mean_ratio(p.var, p.y);
  cut_range(p, p.txv);
  return true;
}

void tell_ralf(reading& r) {
  for (const std::string_view line :
       {" => Input Data for format RALF are internally modified",
        " => The format of the triplets TOF,Y,Sigma is read as", "                FMT = 4(F8.0,F7.4,F5.4)",
        "    The input TOF is divided by 32 and then ", "    Intensities and Standard deviations are trasformed as:",
        "          Ycorr(i)=1000*Yread(i)/(TOF(i+1)-TOF(i))", "          Scorr(i)=1000*Sread(i)/(TOF(i+1)-TOF(i))"})
    r.echo(line);
}

/// Clock ticks of 1/32 microsecond and counts per channel become microseconds and counts per time.
bool triplets_of_ralf(reading& r, const bank_line& bank) {
  constexpr float ticks = 32.f, per_time = 1000.f;
  pattern_type& p = r.p;
  p.iconstep = false;
  if (!constant_step(r, bank, ticks) || !read_triplets(r)) return false;
  tell_ralf(r);
  for (float& x : r.x) x /= ticks;
  const std::size_t read = r.x.size();
  for (std::size_t i = 0; i + 1 < read; ++i) {
    const float width = r.x[i + 1] - r.x[i];
    if (!(width > 0.f))
      return r.fail(check_instr, " => File: " + r.name + ":" + point_text(i + 1, r.x[i + 1]) + " after " +
                                     number_text(r.x[i]) + ", increasing values expected");
    p.y[i] = per_time * p.y[i] / width;
    p.var[i] = per_time * p.var[i] / width;
  }
  for (std::vector<float>* values : {&r.x, &p.y, &p.var}) values->pop_back();
  p.npts = static_cast<int>(r.x.size());
  if (!check_count(r, p.npts)) return false;
  p.thmax = r.x.back();
  square_sigmas(r, r.x);
  p.cnorm = mean_ratio(p.var, p.y) * static_cast<float>(p.npts) / static_cast<float>(read);
  cut_range(p, r.x);
  p.txv = std::move(r.x);
  return true;
}

/// What reads a type of data in a type of binning, and what is said of another binning.
struct data_row {
  std::string_view datyp, bintyp;
  bool (*read)(reading&, const bank_line&);
  std::string_view refusal;
};
constexpr std::array<data_row, 4> data_rows{{
    {"STD", "CONST", standard_data, " => Only BINTYP=CONST is allowed for standard data"},
    {"ESD", "CONST", intensities_with_sigmas, " => Only BINTYP=CONST is allowed for ESD data"},
    {"ALT", "CONST", triplets_of_constant_step, " => Only BINTYP=RALF or CONST is allowed for ALT data"},
    {"ALT", "RALF", triplets_of_ralf, " => Only BINTYP=RALF or CONST is allowed for ALT data"},
}};

}  // namespace

bool read_gsas(reading& r) {
  std::string_view line;
  bank_line bank;
  if (!find_bank_line(r, line) || !take_apart(r, line, bank)) return false;
  const int line_number = r.file.lines_taken();
  const data_row* of_type = nullptr;
  for (const data_row& row : data_rows) {
    if (row.datyp != bank.datyp) continue;
    of_type = &row;
    if (row.bintyp != bank.bintyp) continue;
    if (!row.read(r, bank) || !check_count(r, r.p.npts)) return false;
    const auto behind = r.file.peek_value();
    r.in_banks = behind && behind->starts_with("BANK");
    return true;
  }
  if (of_type != nullptr)
    return r.fail(of_type->refusal, place(r, line_number) + ": binning " + bank.bintyp + " of " + bank.datyp + " data");
  std::string words = place(r, line_number) + ": type of data \"" + bank.datyp + "\" found, STD, ESD or ALT expected";
  if (bank.datyp.starts_with("FXY")) words += as_layout_10;
  return r.fail(check_instr, std::move(words));
}

}  // namespace kv_read_intens

// Reading of resolution files.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "instrumental_resolution.hpp"
#include "lmix_list_input.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_text_input.hpp"

namespace instrumental_resolution {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::resolution_row;
using kalvaris_params::resolution_type;
using kalvaris_params::state_type;
using lmix_list_input::read_list;
using lmix_list_input::read_values;
using lmix_text_input::text_source;
namespace job = kalvaris_params::job;

constexpr std::string_view blanks = " \t\r";
constexpr std::string_view file_fault = " => Error in the resolution file";
constexpr std::string_view count_fault = " => Error reading NPOINS in the the LOOKUP table ";
constexpr std::string_view tof_row_fault =
    " => Error reading the LOOKUP table with items: d-spacing, sigma^2, gamma, alpha, beta & Shift at point #";
constexpr std::string_view cw_row_fault =
    " => Error reading the table with items: position, Gaussian FWHM, Lorentzian FWHM at point #";
constexpr std::string_view axial_row_fault =
    " => Error reading the table with items: position, Gaussian FWHM, Lorentzian FWHM, S/L, D/L at point #";

/// Columns of a table and the words for a row that does not read. `least`: columns that every row must have.
struct table_layout {
  std::size_t least;
  std::array<float resolution_row::*, 6> fields;  ///< null behind the last
  std::string_view fault;
};
constexpr table_layout cw_table{3, {&resolution_row::tins, &resolution_row::gins, &resolution_row::cins}, cw_row_fault};
constexpr table_layout axial_table{5,
                                   {&resolution_row::tins, &resolution_row::gins, &resolution_row::cins,
                                    &resolution_row::sl_ins, &resolution_row::dl_ins},
                                   axial_row_fault};
constexpr table_layout tof_table{5,
                                 {&resolution_row::tins, &resolution_row::gins, &resolution_row::cins,
                                  &resolution_row::alfins, &resolution_row::betins, &resolution_row::shiftins},
                                 tof_row_fault};

/// A T.O.F. keyword that is followed by numbers. Of two rows of one word the first whose `least` the line has is taken.
struct number_keyword {
  std::string_view word;
  std::size_t least;
  std::array<float resolution_type::*, 6> fields;  ///< null behind the last
};
using r = resolution_type;
constexpr std::array<number_keyword, 10> number_keywords{{
    {"D2TOF", 4, {&r::dtt1_i, &r::dtt2_i, &r::dtt_1overd_i, &r::zero_i}},
    {"D2TOF", 1, {&r::dtt1_i, &r::dtt2_i, &r::zero_i}},
    {"ZD2TOF", 3, {&r::zero_i, &r::dtt1_i, &r::dtt2_i}},
    {"D2TOT", 4, {&r::dtt1t_i, &r::dtt2t_i, &r::xcross_i, &r::wcross_i}},
    {"ZD2TOT", 5, {&r::zerot_i, &r::dtt1t_i, &r::dtt2t_i, &r::xcross_i, &r::wcross_i}},
    {"TWOTH", 1, {&r::toftet_i}},
    {"SIGMA", 3, {&r::sig2_i, &r::sig1_i, &r::sig0_i, &r::sigq_i}},
    {"GAMMA", 3, {&r::gamma2_i, &r::gamma1_i, &r::gamma0_i}},
    {"ALFBE", 4, {&r::alfa0_i, &r::beta0_i, &r::alfa1_i, &r::beta1_i, &r::alfaq_i, &r::betaq_i}},
    {"ALFBT", 4, {&r::alfa0t_i, &r::beta0t_i, &r::alfa1t_i, &r::beta1t_i}},
}};

/// Geometries of GEOM by the beginning of their name.
struct geometry {
  std::string_view word;
  int ilor;
  bool with_angle;  ///< the incident angle stands behind the word
};
constexpr std::array<geometry, 6> geometries{{{"TRMF", 1, true},
                                              {"TRMB", 4, true},
                                              {"DEBY", 3, false},
                                              {"BRAG", 0, false},
                                              {"SYNC", -2, false},
                                              {"TR", 2, false}}};

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The line up to a ! or #.
std::string_view without_remark(std::string_view line) { return trimmed(line.substr(0, line.find_first_of("!#"))); }

bool begins_with_number(std::string_view text) {
  double value = 0;
  return read_values(text, value).full();
}

/// What follows a keyword that the line begins with, in any case; letters that go on with the keyword belong to it.
std::optional<std::string_view> behind(std::string_view line, std::string_view keyword) {
  if (lmix_string_utilities::u_case(line.substr(0, keyword.size())) != keyword) return std::nullopt;
  line.remove_prefix(keyword.size());
  while (!line.empty() && (std::isalpha(static_cast<unsigned char>(line.front())) != 0 || line.front() == '_'))
    line.remove_prefix(1);
  return trimmed(line);
}

bool calculated_only(int jobtyp) { return std::abs(jobtyp) == job::calc_x || std::abs(jobtyp) == job::calc_n; }

class irf_reader {
 public:
  irf_reader(state_type& st, int ip) : st_(st), ip_(ip), p_(st.pattern[static_cast<std::size_t>(ip)]) {}
  bool read();

 private:
  using handler = bool (irf_reader::*)(std::string_view rest);
  struct keyword {
    std::string_view word;
    handler read;
  };
  static const std::array<keyword, 12> cw_keywords;
  static const std::array<keyword, 4> tof_keywords;

  bool open();
  bool read_cw();
  bool read_tof();
  [[nodiscard]] int block_of_pattern() const;
  bool go_to_block();
  std::optional<std::string_view> next_line();
  bool dispatch(std::span<const keyword> keywords, std::string_view line);
  bool take_numbers(std::string_view line, bool& known);
  bool read_coefficients(std::string_view line, std::size_t set);
  bool read_table(std::optional<std::string_view> count_line, const table_layout& layout, std::size_t columns);
  bool row_in_order(const resolution_row& row) const;
  void settle_pattern();

  bool wave(std::string_view rest);
  bool asym(std::string_view rest);
  bool prof(std::string_view rest);
  bool geom(std::string_view rest);
  bool sync(std::string_view rest);
  bool cthm(std::string_view rest);
  bool enrg(std::string_view rest);
  bool range(std::string_view rest);
  bool neut(std::string_view rest);
  bool neuc(std::string_view rest);
  bool jobt(std::string_view rest);
  bool tofc(std::string_view rest);
  bool list_with_shift(std::string_view rest);
  bool list(std::string_view rest);
  bool tof_table_of(std::size_t columns);

  bool fail(std::string_view head, std::string_view expected);
  void warn(std::string_view text);

  state_type& st_;
  int ip_;
  pattern_type& p_;
  resolution_type r_;
  text_source in_;
  std::string line_;  ///< the line in hand, as messages show it
  bool several_banks_ = false;
  // settled only when the whole file has been read
  std::array<float, 3> wave_{};  ///< lambda1, lambda2, ratio
  float rkk_ = 0.f, cthm_ = 0.f;
  int ilor_ = 0;
  std::optional<int> nprof_, jobtyp_;
};

constexpr std::array<irf_reader::keyword, 12> irf_reader::cw_keywords{{{"WAVE", &irf_reader::wave},
                                                                       {"ASYM", &irf_reader::asym},
                                                                       {"PROF", &irf_reader::prof},
                                                                       {"GEOM", &irf_reader::geom},
                                                                       {"SYNC", &irf_reader::sync},
                                                                       {"CTHM", &irf_reader::cthm},
                                                                       {"ENRG", &irf_reader::enrg},
                                                                       {"THRG", &irf_reader::range},
                                                                       {"NEUT", &irf_reader::neut},
                                                                       {"NEUC", &irf_reader::neuc},
                                                                       {"JOBT", &irf_reader::jobt},
                                                                       {"TOFC", &irf_reader::tofc}}};
constexpr std::array<irf_reader::keyword, 4> irf_reader::tof_keywords{
    {{"NPROF", &irf_reader::prof},
     {"TOFRG", &irf_reader::range},
     {"LIST_SIG_GAM_ALF_BET_SHIFT", &irf_reader::list_with_shift},
     {"LIST_SIG_GAM_ALF_BET", &irf_reader::list}}};

/// head (file name, line n: expected ..., found "...")
bool irf_reader::fail(std::string_view head, std::string_view expected) {
  constexpr std::size_t longest = 60;
  std::string text(head);
  text += " (file " + st_.io.namefil + ", line " + std::to_string(in_.lines_taken()) + ": expected ";
  text += expected;
  text += line_.empty() ? ", found the end of the file)" : ", found \"" + line_.substr(0, longest) + "\")";
  st_.io.file_error = true;
  st_.io.file_error_mess = std::move(text);
  return false;
}

void irf_reader::warn(std::string_view text) {
  const std::string line = " => WARNING: resolution file " + st_.io.namefil + ", line " +
                           std::to_string(in_.lines_taken()) + ": " + std::string(text);
  kalvaris_inout::mess_cons(st_.io, line);
  kalvaris_inout::both_listings(st_.io, line);
}

/// The next line that counts, without remark; at the end of the file line_ is blank.
std::optional<std::string_view> irf_reader::next_line() {
  line_.clear();
  while (const auto line = in_.next()) {
    const std::string_view text = without_remark(*line);
    if (text.empty()) continue;
    line_ = text;
    return line_;
  }
  return std::nullopt;
}

bool irf_reader::dispatch(std::span<const keyword> keywords, std::string_view line) {
  for (const keyword& k : keywords)
    if (const auto rest = behind(line, k.word)) return (this->*k.read)(*rest);
  warn("\"" + std::string(line.substr(0, 40)) + "\" is no keyword of this kind of file, passed over");
  return true;
}

bool irf_reader::wave(std::string_view rest) {
  auto& [first, second, ratio] = wave_;
  if (!read_list(rest, std::span<float>(wave_)).full() || !(first > 0.f && second >= 0.f && ratio >= 0.f))
    return fail(file_fault, "two wavelengths and their ratio");
  r_.wavel_g = true;
  return true;
}

bool irf_reader::asym(std::string_view rest) {
  if (!read_values(rest, r_.s_l, r_.d_l).full()) return fail(file_fault, "S/L and D/L");
  r_.asym_g = true;
  return true;
}

bool irf_reader::prof(std::string_view rest) {
  int value = 0;
  if (!read_values(rest, value).full() || value > 13 || (value < 0 && value != -4))
    return fail(file_fault, "the number of a peak shape");
  nprof_ = value;
  return true;
}

bool irf_reader::geom(std::string_view rest) {
  for (const geometry& g : geometries) {
    const auto numbers = behind(rest, g.word);
    if (!numbers) continue;
    r_.alpsd = 0.f;
    if (g.with_angle && !read_values(*numbers, r_.alpsd).full())
      return fail(file_fault, "the incident angle behind the name of the geometry");
    ilor_ = g.ilor;
    r_.geom_g = true;
    return true;
  }
  return fail(file_fault, "a geometry: trmf, trmb, deby, brag, sync or tran");
}

bool irf_reader::sync(std::string_view rest) {
  if (!read_values(rest, rkk_).full()) return fail(file_fault, "the polarisation of the synchrotron beam");
  r_.rkk_g = true;
  return true;
}

bool irf_reader::cthm(std::string_view rest) {
  if (!read_values(rest, cthm_).full()) return fail(file_fault, "cos^2 of the monochromator angle");
  r_.cthm_g = true;
  return true;
}

bool irf_reader::enrg(std::string_view) {
  return p_.ixunit == 2 || fail(file_fault, "no file for energy data, as the flag Uni of the pattern is not 2");
}

bool irf_reader::range(std::string_view rest) {
  if (!read_values(rest, r_.thmin, r_.step, r_.thmax).full() || !(r_.step > 0.f && r_.thmax > r_.thmin))
    return fail(file_fault, "first abscissa, step above 0, last abscissa");
  r_.range_g = true;
  return true;
}

bool irf_reader::neut(std::string_view) {
  jobtyp_ = -(calculated_only(p_.jobtyp) ? job::calc_n : job::neutrons);
  return true;
}

bool irf_reader::neuc(std::string_view) {
  jobtyp_ = calculated_only(p_.jobtyp) ? job::calc_n : job::neutrons;
  return true;
}

bool irf_reader::jobt(std::string_view rest) {
  const std::string word = lmix_string_utilities::u_case(rest.substr(0, rest.find_first_of(" \t,")));
  if (word == "TOF") return neut(rest);
  if (word == "TOFC") return tofc(rest);
  return fail(file_fault, "TOF or TOFC");
}

bool irf_reader::tofc(std::string_view) {
  jobtyp_ = -job::calc_n;
  return true;
}

bool irf_reader::list_with_shift(std::string_view) { return tof_table_of(6); }
bool irf_reader::list(std::string_view) { return tof_table_of(5); }

bool irf_reader::tof_table_of(std::size_t columns) {
  r_.shift_g = columns == 6;
  if (!read_table(next_line(), tof_table, columns)) return false;
  r_.sigam_g = r_.alfbet_g = true;
  return true;
}

/// Coefficients 2 set and 2 set + 1 of the wavelengths: U V W, X Y Z of the first, then of the second.
bool irf_reader::read_coefficients(std::string_view line, std::size_t set) {
  const std::size_t w = set / 2;
  const bool gauss = set % 2 == 0;
  auto &a = gauss ? r_.uins[w] : r_.xins[w], &b = gauss ? r_.vins[w] : r_.yins[w], &c = gauss ? r_.wins[w] : r_.zins[w];
  return read_values(line, a, b, c).full() || fail(file_fault, gauss ? "three numbers: U V W" : "three numbers: X Y Z");
}

bool irf_reader::row_in_order(const resolution_row& row) const {
  const bool ascends = r_.rows.empty() || row.tins > r_.rows.back().tins;
  return ascends && row.gins >= 0.f && row.cins >= 0.f;
}

/// Rows of `columns` numbers, as many as the line in hand says. Six columns in T.O.F.: a first row of five says that
/// the shifts are missing.
bool irf_reader::read_table(std::optional<std::string_view> count_line, const table_layout& layout,
                            std::size_t columns) {
  int npoins = 0;
  if (!count_line || !read_values(*count_line, npoins).full() || npoins < 1)
    return fail(count_fault, "the number of rows");
  r_.rows.clear();
  for (int i = 1; i <= npoins; ++i) {
    std::array<float, 6> values{};
    const auto line = next_line();
    const auto count =
        static_cast<std::size_t>(line ? read_list(*line, std::span<float>(values).first(columns)).count : 0);
    if (i == 1 && columns == 6 && count == 5) {
      warn("the rows have no column of shifts");
      columns = 5;
      r_.shift_g = false;
    }
    resolution_row row;
    for (std::size_t c = 0; c < columns; ++c) row.*layout.fields[c] = values[c];
    if (count < columns || !row_in_order(row))
      return fail(std::string(layout.fault) + std::to_string(i),
                  std::to_string(columns) + " numbers, the first above that of the row before, no negative width");
    r_.rows.push_back(row);
  }
  return true;
}

bool irf_reader::read_cw() {
  const bool table = p_.ireso == 4 || p_.ireso == 8;
  const bool coefficients = gives_widths(p_) && !table;
  if (!gives_widths(p_)) warn("Res " + std::to_string(p_.ireso) + " adds nothing to the peaks of constant wavelength");
  std::size_t sets = 0;
  while (const auto line = next_line()) {
    if (!begins_with_number(*line)) {
      if (!dispatch(cw_keywords, *line)) return false;
    } else if (table) {
      const table_layout& layout = p_.ireso == 8 ? axial_table : cw_table;
      if (r_.asym_g) warn("ASYM has no effect beside a table");
      return read_table(*line, layout, layout.least);
    } else if (coefficients && sets < 4) {
      if (!read_coefficients(*line, sets++)) return false;
    } else {
      warn("numbers passed over");
    }
  }
  if (table) return fail(count_fault, "the number of rows");
  if (coefficients && sets != 2 && sets != 4)
    return fail(file_fault, "the lines U V W and X Y Z of one or of two wavelengths");
  if (sets == 2)
    for (auto* pair : {&r_.uins, &r_.vins, &r_.wins, &r_.xins, &r_.yins, &r_.zins}) (*pair)[1] = (*pair)[0];
  return true;
}

/// A keyword of the table of numbers; known: the line began with one.
bool irf_reader::take_numbers(std::string_view line, bool& known) {
  const number_keyword* last = nullptr;
  for (const number_keyword& k : number_keywords) {
    const auto rest = behind(line, k.word);
    if (!rest) continue;
    known = true;
    last = &k;
    std::array<float, 6> values{};
    const auto n = static_cast<std::size_t>(std::ranges::find(k.fields, nullptr) - k.fields.begin());
    const auto result = read_list(*rest, std::span<float>(values).first(n));
    if (static_cast<std::size_t>(result.count) < k.least || result.status == lmix_list_input::list_status::bad)
      continue;
    for (std::size_t i = 0; i < n; ++i) r_.*k.fields[i] = values[i];
    return true;
  }
  return last == nullptr ||
         fail(file_fault, std::to_string(last->least) + " or more numbers behind " + std::string(last->word));
}

/// 1-based place of the pattern among those that name the same file.
int irf_reader::block_of_pattern() const {
  const auto& names = st_.io.fileres;
  const auto here = names.begin() + ip_;
  int place = 1;
  for (int i = 0; i < ip_; ++i)
    if (st_.pattern[static_cast<std::size_t>(i)].ireso != 0 && names[static_cast<std::size_t>(i)] == *here) ++place;
  return place;
}

/// In a file of several banks, stands before the NPROF line of the pattern's bank; otherwise stays.
bool irf_reader::go_to_block() {
  const auto start = in_.save();
  const int wanted = block_of_pattern();
  std::optional<text_source::mark> found;
  int blocks = 0;
  for (auto here = start; const auto line = next_line(); here = in_.save())
    if (behind(*line, "NPROF") && ++blocks == wanted) found = here;
  several_banks_ = blocks > 1;
  if (several_banks_ && !found) return fail(file_fault, "an NPROF line for each bank, " + std::to_string(wanted));
  in_.restore(several_banks_ ? *found : start);
  return true;
}

bool irf_reader::read_tof() {
  if (!go_to_block()) return false;
  while (const auto line = next_line()) {
    if (behind(*line, "END")) return true;
    if (several_banks_ && nprof_ && behind(*line, "NPROF")) return true;
    bool known = false;
    if (!take_numbers(*line, known)) return false;
    if (!known && !dispatch(tof_keywords, *line)) return false;
  }
  return true;
}

/// Hands over what the file decides for the pattern.
void irf_reader::settle_pattern() {
  if (r_.wavel_g) {
    p_.lamda = {wave_[0], wave_[1]};
    p_.ratio = {1.f, wave_[2]};
  }
  if (r_.rkk_g) p_.rkk = rkk_;
  if (r_.cthm_g) p_.cthm = cthm_;
  if (r_.range_g) p_.low_range = r_.thmin, p_.high_range = r_.thmax;
  if (nprof_) p_.nprof = *nprof_;
  if (jobtyp_) p_.jobtyp = *jobtyp_;
  if (r_.geom_g) p_.ilor = ilor_;
  if (r_.geom_g || jobtyp_) p_.disp_ds = p_.radiation() == job::neutrons || p_.ilor == 3 || p_.ilor == -2;
  p_.resolution = std::move(r_);
}

bool irf_reader::open() {
  if (ip_ >= kalvaris_params::NPATT) {
    st_.io.file_error = true;
    st_.io.file_error_mess = "The external instrumental function can be given only for " +
                             std::to_string(int{kalvaris_params::NPATT}) + " patterns!";
    return false;
  }
  st_.io.file_error = false;
  kalvaris_inout::openfile(st_.io, {.key = kalvaris_inout::file_key::resolution, .ipat = ip_ + 1});
  if (st_.io.file_error) return false;
  const auto text = kalvaris_inout::content(st_.io, kalvaris_inout::unit::resolution);
  kalvaris_inout::close_unit(st_.io, kalvaris_inout::unit::resolution);
  in_ = text_source::from_string(text.value_or(""));
  r_.title = trimmed(in_.next().value_or(""));
  return true;
}

bool irf_reader::read() {
  p_.resolution = {};
  if (!open() || !(p_.ixunit == 1 ? read_tof() : read_cw())) return false;
  settle_pattern();
  return true;
}

}  // namespace

bool read_irf(state_type& st, int ip) { return irf_reader(st, ip).read(); }

}  // namespace instrumental_resolution

// kv_read_intens, what its sources share: one call of readint (reading), the words for faults and warnings, and the
// block reader of fixed columns. Owns nothing beyond the reading that its caller holds.
// For the sources kv_read_intens*.cpp alone.
#pragma once
#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "kalvaris_params.hpp"
#include "kv_read_intens.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_text_input.hpp"

namespace kv_read_intens {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
using lmix_list_input::list_result;
using lmix_list_input::list_status;
using lmix_text_input::text_source;

constexpr float negligible = 1.0e-5f;  ///< below it an intensity or variance counts as absent
constexpr float least_y = 0.001f;      ///< divisor of var/y where y is smaller
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

constexpr std::string_view check_instr = " Error on Intensity file, check your instr parameter! ";
constexpr std::string_view end_of_file = " End of file *.DAT ";
constexpr std::string_view too_many = " Too many points ";
constexpr std::string_view interrupted = " Program interrupted";

/// What is worth a line of warning although the reading goes on.
enum class notice : std::size_t {
  zero_variance,  ///< a variance of 0 stood in the data
  raised,         ///< an intensity that is not above 0, and what stands for it
  uneven_step,    ///< the step is not constant, or not the one announced
  out_of_order,   ///< points not in the order of their abscissae
  short_data,     ///< fewer points than announced
  empty_field,    ///< blank columns where an intensity belongs
  unread_rest,    ///< data behind what counts as their end
  no_variances,   ///< no sigmas where the layout has them
  comment_data,   ///< numbers in the lines that count as comments
  last,
};

/// One call of readint: where it reads, what it fills, and why it failed.
struct reading {
  struct noticed {
    std::string first;    ///< words and place of the first case
    long long cases = 0;  ///< how many there are
  };

  state_type& st;
  pattern_type& p;
  std::string extension;                 ///< of the data file, with the point
  text_source file = {};                 ///< left empty by layouts that read `path` themselves
  std::string name = {};                 ///< of the file, as in messages
  std::string path = {};                 ///< where it is
  std::vector<float> x = {};             ///< abscissae of layouts with free ones
  int inum = 0;                          ///< run or bank number of the file, for the record of results
  std::string result_values = {};        ///< what a layout adds to that record
  bool in_banks = false;                 ///< the file goes on with the next bank
  std::vector<std::string> detail = {};  ///< what was wrong, on console and listings
  std::string stop_text = {};            ///< blank as long as all is well
  std::array<noticed, static_cast<std::size_t>(notice::last)> notices = {};

  bool fail(std::string_view text) {
    stop_text = text;
    return false;
  }
  bool fail(std::string_view text, std::string line) {
    detail.push_back(std::move(line));
    return fail(text);
  }
  void echo(std::string_view line) { kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line << '\n'; }
  /// Counts a case; of the first of its kind the words are kept, a text or a function that makes it.
  template <class Words>
  void note(notice kind, Words&& words) {
    noticed& entry = notices[static_cast<std::size_t>(kind)];
    if (entry.cases++ > 0) return;
    if constexpr (std::is_invocable_v<Words>) {
      entry.first = words();
    } else {
      entry.first = std::forward<Words>(words);
    }
  }
  void forget(notice kind) { notices[static_cast<std::size_t>(kind)] = {}; }
  const noticed& noted(notice kind) const { return notices[static_cast<std::size_t>(kind)]; }
};

// --- Words ---------------------------------------------------------------------------------------------------------

std::string number_text(float value);
/// " => File: name, line: n" and, above 0, the column.
std::string place(const reading& r, int line, std::size_t column = 0);
std::string bad_value(const reading& r, int line, std::string_view token, std::size_t column,
                      std::string_view expected);
std::string bad_value(const reading& r, int line, const list_result& found, std::string_view expected);
/// Fails at the end of the file.
bool fail_at_end(reading& r, std::string_view expected);

// --- Headers -------------------------------------------------------------------------------------------------------

/// The next line that is no comment.
std::optional<std::string_view> next_value_line(reading& r);
/// The next line, which must be there.
bool take_line(reading& r, std::string_view& line, std::string_view expected);
/// The number behind the keyword, when the line holds the keyword; 0 when no number follows.
void take_tsamp(std::string_view line, std::string_view keyword, float& tsamp);
/// A title: echoed, its TSAMP taken.
bool take_title(reading& r, std::string* kept = nullptr);
/// The number in front of whose blanks, commas and equals signs the text begins, as what the file tells of its
/// radiation under the word; a text without one tells nothing.
void take_told(kalvaris_params::told_value& told, std::string_view word, std::string_view text, int line);
/// thmin, step and thmax in free format, over as many lines as they need.
bool free_range(reading& r);
bool check_step(reading& r, int line, float step);
/// Number of points between thmin and thmax; `rounding` tells how near the last one must come to thmax. Held at the
/// largest int; a range without points gives 0.
int count_points(float thmin, float step, float thmax, float rounding);
bool check_count(reading& r, long long npts);

// --- Points --------------------------------------------------------------------------------------------------------

struct xy_point {
  float x = 0.f, y = 0.f, sigma = 0.f;
};
/// Reads a line of x, y and perhaps sigma, the line that was taken last and began at `begin`: plain numbers at once,
/// all else through the finder of fields, which knows all notations and names the faults.
bool read_xy(reading& r, text_source::mark begin, std::string_view line, xy_point& values);
/// Faults of the finder of fields.
bool parse_fault(reading& r, const lmix_string_utilities::findfmt_state& fmt, std::string where);
/// Inside low_range and high_range, each alive above 1.
bool in_range(const pattern_type& p, float x);

void constant_grid(pattern_type& p);
/// npts and thmax from the points read; a notice when fewer than announced, with the line where they end.
void set_count(reading& r, std::size_t found, long long announced);
/// Values in free format, each a number; a fault or an early end fails.
bool read_reals(reading& r, std::span<float> values, std::string_view what);
/// Notice when the abscissae read depart from those of thmin and step by more than a tenth of the step.
void compare_with_grid(reading& r, std::span<const float> x);
/// Puts the points of free abscissae (x, y, var, iww as far as they are there) in order, with a notice; refuses with
/// `stop_text` where more than a tenth of the steps go back: then x is no abscissa. Two points at one x get a notice.
bool order_points(reading& r, std::string_view stop_text);
/// Notice when steps of 2theta depart from the median by more than a tenth of it.
void note_uneven_step(reading& r);
/// Counts read with their detectors: below one count 1, below one detector 1, var = factor y/iww.
void counts_over_detectors(reading& r, float factor);
/// Notice of an intensity that is not above 0 and of the one that stands for it.
void note_raised(reading& r, std::size_t i, float x, float y, float used);
/// Variance equal to the intensity, 1 where that is not above 1e-5.
void variance_of_counts(reading& r);
/// Mean of var/max(y, 0.001).
float mean_ratio(std::span<const float> var, std::span<const float> y);
/// " point 17, x = 12.34"
std::string point_text(std::size_t i, float x);

// --- Blocks of fixed columns ---------------------------------------------------------------------------------------

struct column_block {
  enum class end { full, text_ended, bad_field, next_bank } status = end::full;
  std::size_t count = 0;  ///< values read, up to the last field that is not blank
  int line = 0;           ///< of the value that was refused, or the last one
  std::size_t column = 0;
  std::string token;
  std::size_t blank = 0;  ///< blank real fields among the values
  int blank_line = 0;     ///< line of the first
};
/// Reads values by the format (10(i2,f6.0)), line after line. Blank fields are 0. A line that is refused, or that
/// begins with BANK when `banks`, is the next to be taken.
column_block read_columns(text_source& file, std::string_view format, std::span<float> values, bool banks = false);
/// As read_columns for one line.
column_block read_record(std::string_view line, std::string_view format, std::span<float> values);
/// The block must be full: fails at its end or its bad field. `per_point`: values of one point.
bool whole_block(reading& r, const column_block& block, std::size_t wanted, std::size_t per_point);
/// Whole points that a block gives, with the notices on its early end and its blank fields.
std::size_t points_of_block(reading& r, const column_block& block, std::size_t wanted, std::size_t per_point);

// --- The layouts ---------------------------------------------------------------------------------------------------

bool header_and_intensities(reading& r);   // kv_read_intens_free.cpp
bool parameter_line(reading& r);           //
bool detector_pairs(reading& r);           // kv_read_intens_columns.cpp
bool fixed_400_points(reading& r);         //
bool two_axes(reading& r);                 //
bool alternating_lines(reading& r);        //
bool two_monitors(reading& r);             //
bool five_triplets(reading& r);            //
bool intensities_then_sigmas(reading& r);  //
bool variable_time(reading& r);            //
bool dated_blocks(reading& r);             // kv_read_intens_dated.cpp
bool xy_sigma(reading& r);                 // kv_read_intens_xy.cpp
bool time_of_flight_banks(reading& r);     // kv_read_intens_banks.cpp
bool data_socabim(reading& r);             // kv_read_intens_uxd.cpp
bool read_gsas(reading& r);                // kv_read_intens_gsas.cpp
bool data_panalytical_csv(reading& r);     // kv_read_intens_panalytical.cpp
bool data_panalytical_udf(reading& r);     //
bool data_panalytical_jcp(reading& r);     //
bool data_panalytical_xrdml(reading& r);   // kv_read_intens_xrdml.cpp

}  // namespace kv_read_intens

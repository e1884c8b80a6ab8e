// String utilities: measures and reads the lines of a control file, cuts words and numbers, searches keywords, writes
// fractions, values with their standard deviation and settings such as a+b,a-b,c.
// Owns no state: the reader's state (findfmt_state) and the error of a word routine (err_string_type) belong to the
// caller, and only the routines that get them write them.
#pragma once

#include <array>
#include <iosfwd>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lmix_fixed_format.hpp"
#include "lmix_text_input.hpp"

namespace lmix_string_utilities {

using lmix_fixed_format::field_values;
using lmix_text_input::text_source;

// --- The line reader -----------------------------------------------------------------------------------------------

/// Values of ierr_fmt. The numbers stand in messages and are tested by callers: never renumber.
/// Below end_of_file the value is -100 less the system's error number.
namespace fmt_error {
enum : int {
  end_of_file = -1,
  none = 0,
  empty_descriptor = 1,
  unreadable_field = 2,  ///< the columns of a field do not convert: no number, not finite, or too large
  real_in_integer = 3,
  unexpected_character = 4,  ///< second point, sign or exponent letter
  character_in_integer = 5,
  bad_descriptor = 6,
  character_in_number = 7,
  empty_field = 8,
  descriptor_too_long = 9,
  no_separator = 10,
  incomplete_exponent = 11,
  incomplete_number = 12,
};
}  // namespace fmt_error

/// Up to five lines of at most 132 characters.
struct findfmt_message {
  int nlines = 0;
  std::array<std::string, 5> txt;

  void clear();
  void add(std::string_view text);  ///< the next line; a sixth is dropped
};

/// State of the line reader of one file.
struct findfmt_state {
  int ierr_fmt = fmt_error::none;  ///< status of the last call
  int line_nb = 0;                 ///< running number of the last line taken
  findfmt_message mess_findfmt;    ///< filled when a call fails or meets the end of the file
  std::ostream* idebug = nullptr;  ///< when set, every line read is echoed here
  int max_fmtstring = 4096;        ///< longest descriptor; a longer one is fmt_error::descriptor_too_long
};

void init_findfmt(findfmt_state& state, int nline = 0);
void inc_linenum(findfmt_state& state, int n);
/// Builds the four lines of mess_findfmt for state.ierr_fmt: the reason, the line, a pointer below its character
/// number `ipos` (1-based), and the line number. Does nothing for 0 and -1.
void findfmt_err(findfmt_state& state, std::string_view aline, int ipos);

/// Takes the next line of `lun` that is neither blank nor a comment, measures its fields and returns in `fmtstring`
/// the descriptor of their columns, such as (i2,f5.0,tr1,a3). `aline` becomes the line with tabs made blanks, shifted
/// left. Every line taken is counted in line_nb.
/// `fmtfields` has a letter per field, in any case: I integer, F real, 1 to 9 a word of at most so many characters, A
/// to E a word of at most 10 to 14. Numbers end at a blank or before a sign (1-2 is two numbers); missing fields at
/// the end get blank columns; text behind the last field is ignored.
/// `cmtline`: when the last letter is F or I, the line is cut before its first # and its first !.
/// Returns state.ierr_fmt. Never stops the program.
int findfmt(findfmt_state& state, text_source& lun, std::string& aline, std::string_view fmtfields,
            std::string& fmtstring, bool cmtline = false);
/// The same for a line already in `aline`, which is measured as it is, only tabs become blanks on the way. line_nb
/// grows by 1. A blank line or one that begins with a tab is error 8 without a message when the first field is a
/// number.
int findfmt(findfmt_state& state, std::string& aline, std::string_view fmtfields, std::string& fmtstring);

/// findfmt and the conversion of its columns in one go: out.i(k), out.f(k), out.a(k) are the fields in order, out.line
/// the cleaned line. What does not convert is error 2 with its message; on any error `out` has no fields.
int read_fields(findfmt_state& state, text_source& lun, std::string_view letters, field_values& out,
                bool cmtline = true);
/// The same for a line in hand; here error 8 comes with its message.
int read_fields(findfmt_state& state, std::string_view aline, std::string_view letters, field_values& out);

// --- Words and numbers ---------------------------------------------------------------------------------------------

/// Error of a word or number routine: a flag and a message of at most 150 characters.
struct err_string_type {
  bool err_string = false;
  std::string err_string_mess;

  void set(std::string_view message);
};

/// Cuts the first blank-delimited word off `line1`, which keeps the rest without blanks at either end. Tabs are no
/// separators. Empty when the line is blank.
std::string_view cutst(std::string_view& line1);

struct getword_result {
  std::vector<std::string_view> dire;  ///< the words, views of the line
  int iv = 0;                          ///< their number, or `most` + 1 when there are more than `most`
  err_string_type err;
};
/// Splits a line into words; a word that begins with a double quote runs to the next one. An empty quoted word ends
/// the list.
getword_result getword(std::string_view line, int most = std::numeric_limits<int>::max() - 1);

struct getnum_result {
  std::vector<float> vet;  ///< value of each word
  std::vector<int> ivet;   ///< its integer part, held at the limits of int
  int iv = 0;
  err_string_type err;
};
/// Splits a line into numbers, summed digit by digit in single precision. The grammar is narrower than that of
/// findfmt: digits, point, `-` and E only, so that +5 and 1E+5 are refused. The numbers before a refused one stay.
getnum_result getnum(std::string_view line);

struct getnum_std_result {
  std::vector<float> value;
  std::vector<float> std;  ///< 0 for a number without brackets
  int ic = 0;
  err_string_type err;
};
/// As getnum for numbers with a bracketed uncertainty: 1.234(5) is 1.234 and 0.005. Cut before `!`, else before `#`.
getnum_std_result getnum_std(std::string_view line);

struct setnum_std_result {
  std::string line;
  err_string_type err;
};
/// A value with its standard deviation in units of the last digit, which are kept from 2 to 19: 1.250(13). Begins with
/// a blank or `-`.
setnum_std_result setnum_std(float value, float std);

/// A real in a field of `width` (1 to 40) columns with as many decimals as it can hold, E where it is too large.
std::string rformat(float value, int width);

// --- Fractions -----------------------------------------------------------------------------------------------------

/// A signed small fraction (+1/3, -5/24, +2, 0), or a signed decimal where none lies within 1e-5. Denominators up to 9
/// with numerators up to 9, and up to 24 with 24.
std::string get_fraction_1dig(float v);
std::string get_fraction_2dig(float v);
/// A translation as (1/2,1/4,0).
std::string frac_trans_1dig(std::span<const float, 3> vec);
std::string frac_trans_2dig(std::span<const float, 3> vec);

struct read_fract_result {
  float value = 0.f;
  err_string_type err;
};
/// 1/3, -0.25, 2; a lone + is 1, a lone - is -1. Blanks do not count.
read_fract_result read_fract(std::string_view str);

// --- Settings ------------------------------------------------------------------------------------------------------

using matrix_3 = std::array<std::array<float, 3>, 3>;
using vector_3 = std::array<float, 3>;

struct setting_result {
  matrix_3 mat{};  ///< row i holds the coefficients of the i-th expression
  vector_3 origin{};
  err_string_type err;
};
/// a+b,a-b,c;0,0,1/2 with letters abc or xyz, found by themselves. Double quotes around a part are passed over.
setting_result get_transf(std::string_view str, char separator = ';');
/// The part before the separator, in the three letters given; origin stays 0.
setting_result get_mat_from_symb(std::string_view symb, std::string_view letters = "abc");
/// The reverse; with an origin, it follows behind `;`.
std::string get_symb_from_mat(const matrix_3& mat, std::string_view letters = "abc");
std::string get_symb_from_mat(const matrix_3& mat, const vector_3& origin, std::string_view letters = "abc");
/// A coefficient as it stands before its letter: + for 1, - for -1, else a signed fraction.
std::string get_num_string(float coefficient);

// --- Small text routines -------------------------------------------------------------------------------------------
// Positions are 0-based. Case conversion touches ASCII letters only.

std::string_view trim(std::string_view s);  ///< without blanks at either end
std::string pack_string(std::string_view s);
std::string l_case(std::string_view s);
std::string u_case(std::string_view s);
void lcase(std::string& s);
void ucase(std::string& s);
/// `s` without the text `to_strip` at its end.
std::string strip_string(std::string_view s, std::string_view to_strip);
std::vector<int> get_substring_positions(std::string_view s, std::string_view part);  ///< not overlapping
int string_count(std::string_view s, std::string_view part);
std::string sstring_replace(std::string_view s, std::string_view part, std::string_view by);
/// Positions of `car` outside double quotes.
std::vector<int> get_separator_pos(std::string_view line, char car);
/// True when both hold the same texts, each as often, in any order.
bool equal_sets_text(std::span<const std::string> set1, std::span<const std::string> set2);
std::string_view get_basename(std::string_view path);   ///< behind the last /
std::string_view get_dirname(std::string_view path);    ///< before the last /; "." without one, "/" for the root
std::string_view get_extension(std::string_view path);  ///< the last point of the base name and what follows it

// --- Files and keywords --------------------------------------------------------------------------------------------

/// Lines of a text file before the first that begins (any case) with `input_string`, all when that is blank. Empty
/// when the file cannot be read.
std::optional<int> number_lines(const std::string& filename, std::string_view input_string = {});
/// The first `nlines` lines, fewer when the file is shorter. Empty when it cannot be read.
std::optional<std::vector<std::string>> reading_lines(const std::string& filename, int nlines);

struct key_result {
  bool found = false;
  std::string text;        ///< what follows the keyword's word
  std::vector<float> vet;  ///< its numbers
  std::vector<float> std;  ///< their standard deviations (read_key_valuestd)
  std::vector<int> ivet;   ///< their integer parts (read_key_value, read_key_strval)
  err_string_type err;
};
/// Search `filevar` from line `nline_ini` to line `nline_end` (0-based, both included, clipped) for the first line that
/// holds `keyword` in any case. Blank lines and those that begin with `comment` or ! are passed over. nline_ini becomes
/// the line that hit, unless the numbers behind the keyword cannot be read.
key_result read_key_str(std::span<const std::string> filevar, int& nline_ini, int nline_end, std::string_view keyword,
                        char comment = ' ');
key_result read_key_strval(std::span<const std::string> filevar, int& nline_ini, int nline_end,
                           std::string_view keyword, char comment = ' ');
key_result read_key_value(std::span<const std::string> filevar, int& nline_ini, int nline_end, std::string_view keyword,
                          char comment = ' ');
key_result read_key_valuestd(std::span<const std::string> filevar, int& nline_ini, int nline_end,
                             std::string_view keyword, char comment = ' ');

}  // namespace lmix_string_utilities

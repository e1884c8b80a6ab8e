#include <algorithm>
#include <cctype>
#include <ostream>

#include "lmix_string_utilities.hpp"

namespace lmix_string_utilities {

namespace {

using lmix_fixed_format::field_column;
using lmix_fixed_format::field_kind;
using lmix_fixed_format::fmt_line;

constexpr std::size_t message_width = 132;
constexpr int widest_field = 999;  ///< three digits in the descriptor

constexpr std::array<std::string_view, 13> error_texts{
    "FindFMT: no error",
    "FindFMT: empty format descriptor (0 field) !",
    "FindFMT: data string, read error !",
    "FindFMT: integer field found real !",
    "FindFMT: begged dot, sign or 'e' character !",
    "FindFMT: invalid character in an integer field !",
    "FindFMT: invalid field in format descriptor !",
    "FindFMT: invalid character in a numeric field !",
    "FindFMT: 0 character in current field !",
    "FindFMT: format string length exceeded !",
    "FindFMT: separator missing !",
    "FindFMT: incomplete E or D format !",
    "FindFMT: incomplete number !",
};

bool is_gap(char c) { return c == ' ' || c == '\t'; }
bool is_sign(char c) { return c == '+' || c == '-'; }
bool is_exponent_letter(char c) { return c == 'E' || c == 'e' || c == 'D' || c == 'd'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::string_view without_end_blanks(std::string_view text) { return text.substr(0, text.find_last_not_of(' ') + 1); }

std::string error_reason(int ierr_fmt) {
  if (ierr_fmt < fmt_error::end_of_file) {
    return fmt_line{}.a(" FindFMT: data line RUNTIME read error nber:").i(4, -100 - ierr_fmt).str();
  }
  if (ierr_fmt >= static_cast<int>(error_texts.size())) {
    return fmt_line{}.a(" FMT decode error number: ").i(2, ierr_fmt).str();
  }
  return fmt_line{}.x(1).a(error_texts[static_cast<std::size_t>(ierr_fmt)]).str();
}

/// Kind and greatest width of the field of a letter; width 0 for a letter that means nothing.
field_column field_of_letter(char letter) {
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  if (upper == 'I') return {field_kind::integer, 0, 1, 0};
  if (upper == 'F') return {field_kind::real, 0, 1, 0};
  if (upper >= '1' && upper <= '9') return {field_kind::text, 0, upper - '0', 0};
  if (upper >= 'A' && upper <= 'E') return {field_kind::text, 0, upper - 'A' + 10, 0};
  return {};
}

/// The measuring of one line. `ipos` counts the characters consumed; when an operation returns an error it is the
/// 1-based place of the character that caused it.
class line_measure {
 public:
  line_measure(std::string& aline, std::vector<field_column>& columns)
      : aline_(aline), columns_(columns), nlong_(without_end_blanks(aline).size()) {}

  int ipos() const { return static_cast<int>(ipos_); }
  /// True when the failure is the one that has no message: a number was wanted and nothing was consumed.
  bool nothing_to_measure() const { return nothing_to_measure_; }

  int run(std::string_view fmtfields, int longest_descriptor) {
    int length = 1;  // the opening bracket
    for (const char letter : fmtfields) {
      field_column column = field_of_letter(letter);
      if (column.width == 0) return fmt_error::bad_descriptor;
      const bool first = columns_.empty();
      const int ierr = first || ipos_ < nlong_ ? measure(column) : past_the_end(column);
      if (ierr != fmt_error::none) return ierr;
      length += static_cast<int>(descriptor(column, end_of_last()).size());
      if (column.width > widest_field || length > longest_descriptor) return fmt_error::descriptor_too_long;
      columns_.push_back(column);
    }
    return fmt_error::none;
  }

  /// Text of one field, comma included; `end_before` is the column up to which the fields before it reach.
  static std::string descriptor(const field_column& column, int end_before) {
    const std::string width = std::to_string(column.width);
    if (column.kind == field_kind::integer) return "i" + width + ",";
    if (column.kind == field_kind::real) return "f" + width + ".0,";
    const int skipped = column.offset - end_before;
    return (skipped > 0 ? "tr" + std::to_string(skipped) + "," : "") + "a" + width + ",";
  }

 private:
  int end_of_last() const { return columns_.empty() ? 0 : columns_.back().offset + columns_.back().width; }
  char at(std::size_t place) const { return aline_[place]; }
  int error_here(int ierr) {
    ++ipos_;
    return ierr;
  }

  int measure(field_column& column) {
    if (column.kind == field_kind::text) return character_field(column);
    const std::size_t first = ipos_;
    const int ierr = numeric_field(column.kind == field_kind::integer);
    if (ierr != fmt_error::none) return ierr;
    nothing_to_measure_ = ipos_ == first || first >= nlong_;
    column.offset = static_cast<int>(first);
    column.width = static_cast<int>(ipos_ - first);
    return nothing_to_measure_ ? fmt_error::empty_field : fmt_error::none;
  }

  /// A field behind the end of the line: a number gets one blank column, a word a gap and its greatest width.
  int past_the_end(field_column& column) const {
    column.offset = std::max(end_of_last(), ipos()) + (column.kind == field_kind::text ? 1 : 0);
    return fmt_error::none;
  }

  int numeric_field(bool integer) {
    if (ipos_ >= nlong_) return ++ipos_, fmt_error::none;
    const std::size_t first = ipos_;
    if (at(first) == '\t' && first == 0) return fmt_error::none;
    if (const int ierr = blanks_and_signs(); ierr != fmt_error::none) return ierr;
    if (ipos_ == nlong_) return fmt_error::none;
    if (ipos_ == first && first >= 2) return error_here(fmt_error::no_separator);
    const char c = at(ipos_);
    if (c == '.' && integer) return error_here(fmt_error::real_in_integer);
    if (is_exponent_letter(c)) {
      return error_here(integer ? fmt_error::character_in_integer : fmt_error::incomplete_exponent);
    }
    if (c != '.' && !is_digit(c)) return error_here(fmt_error::character_in_number);
    ++ipos_;
    return rest_of_number(integer, c == '.');
  }

  int blanks_and_signs() {
    for (const std::size_t first = ipos_; ipos_ < nlong_; ++ipos_) {
      if (at(ipos_) == '\t') aline_[ipos_] = ' ';
      const bool behind_sign = ipos_ > first && is_sign(at(ipos_ - 1));
      if (at(ipos_) == ' ' && behind_sign) return error_here(fmt_error::incomplete_number);
      if (at(ipos_) != ' ' && !is_sign(at(ipos_))) break;
    }
    return fmt_error::none;
  }

  int rest_of_number(bool integer, bool has_point) {
    for (; ipos_ < nlong_; ++ipos_) {
      const char c = at(ipos_), p = at(ipos_ - 1);
      if (is_gap(c)) return is_sign(p) ? error_here(fmt_error::incomplete_number) : fmt_error::none;
      if (is_sign(c)) {
        if (is_sign(p)) return error_here(fmt_error::unexpected_character);
        if (integer || !is_exponent_letter(p)) return fmt_error::none;
      } else if (c == '.') {
        if (has_point) return error_here(fmt_error::unexpected_character);
        if (integer) return error_here(fmt_error::real_in_integer);
        has_point = true;
      } else if (is_exponent_letter(c)) {
        // Taken in an integer field too: 12E3 measures, and is refused when it is converted.
        if (is_sign(p)) return error_here(fmt_error::incomplete_exponent);
        if (p == c) return error_here(fmt_error::unexpected_character);
      } else if (!is_digit(c)) {
        return error_here(fmt_error::character_in_number);
      }
    }
    return fmt_error::none;
  }

  int character_field(field_column& column) {
    column.offset = ipos();
    if (ipos_ >= nlong_) return fmt_error::none;
    if (ipos_ >= 2) {
      if (!is_gap(at(ipos_))) return error_here(fmt_error::no_separator);
      ++ipos_;
    }
    while (ipos_ < nlong_ && at(ipos_) == ' ') ++ipos_;
    const std::size_t first = ipos_;
    const std::size_t last = std::min(nlong_, first + static_cast<std::size_t>(column.width));
    while (ipos_ < last && !is_gap(at(ipos_))) ++ipos_;
    column.offset = static_cast<int>(first);
    column.width = static_cast<int>(ipos_ - first);
    return column.width == 0 ? error_here(fmt_error::empty_field) : fmt_error::none;
  }

  std::string& aline_;
  std::vector<field_column>& columns_;
  std::size_t nlong_;
  std::size_t ipos_ = 0;
  bool nothing_to_measure_ = false;
};

int fail(findfmt_state& state, int ierr, std::string_view aline, int ipos) {
  state.ierr_fmt = ierr;
  findfmt_err(state, aline, ipos);
  return ierr;
}

int start(findfmt_state& state, std::string_view fmtfields, std::string_view aline) {
  state.ierr_fmt = fmt_error::none;
  ++state.line_nb;
  return fmtfields.empty() ? fail(state, fmt_error::empty_descriptor, aline, 0) : fmt_error::none;
}

/// Cuts before the first `mark`, unless the line begins with it.
void cut_before(std::string& aline, char mark) {
  const std::size_t place = aline.find(mark);
  if (place != std::string::npos && place > 0) aline.erase(place);
}

void clean(std::string& aline, std::string_view raw, bool cut_comment) {
  const std::size_t first = std::min(raw.find_first_not_of(" \t"), raw.size());
  aline.assign(raw.substr(first));
  std::replace(aline.begin(), aline.end(), '\t', ' ');
  if (cut_comment) {
    cut_before(aline, '#');
    cut_before(aline, '!');
  }
  aline.erase(aline.find_last_not_of(' ') + 1);
}

/// Takes the next line that holds values into `aline`.
int take_line(findfmt_state& state, text_source& lun, std::string& aline, bool cut_comment) {
  while (true) {
    if (!lun.ok()) return fail(state, -100 - lun.status(), aline, 0);
    const auto raw = lun.next();
    if (!raw) {
      state.mess_findfmt.clear();
      state.mess_findfmt.add(fmt_line{}.a(" => Non FATAL End of file !,  logical unit: ").i(4, lun.unit()).str());
      return state.ierr_fmt = fmt_error::end_of_file;
    }
    clean(aline, *raw, cut_comment);
    if (state.idebug != nullptr) *state.idebug << aline << '\n';
    if (!aline.empty() && aline[0] != '!' && aline[0] != '#') return fmt_error::none;
    ++state.line_nb;
  }
}

bool ends_in_number(std::string_view fmtfields) {
  const char last = static_cast<char>(std::toupper(static_cast<unsigned char>(fmtfields.back())));
  return last == 'F' || last == 'I';
}

std::string descriptor_of(const std::vector<field_column>& columns, bool closed) {
  std::string text = "(";
  int end_before = 0;
  for (const field_column& column : columns) {
    text += line_measure::descriptor(column, end_before);
    end_before = column.offset + column.width;
  }
  if (closed) text.back() = ')';
  return text;
}

int measure_line(findfmt_state& state, std::string& aline, std::string_view fmtfields, std::string& fmtstring) {
  std::vector<field_column> columns;
  line_measure line(aline, columns);
  const int ierr = line.run(fmtfields, state.max_fmtstring);
  fmtstring = descriptor_of(columns, ierr == fmt_error::none);
  if (ierr == fmt_error::none || line.nothing_to_measure()) return state.ierr_fmt = ierr;
  return fail(state, ierr, aline, line.ipos());
}

int convert_line(findfmt_state& state, std::string_view fmtfields, field_values& out) {
  std::vector<field_column> columns;
  columns.reserve(fmtfields.size());
  line_measure line(out.line, columns);
  if (const int ierr = line.run(fmtfields, state.max_fmtstring); ierr != fmt_error::none) {
    out.failed = static_cast<int>(columns.size());
    return fail(state, ierr, out.line, line.ipos());
  }
  const int bad = out.convert(columns);
  if (bad < 0) return fmt_error::none;
  out.failed = bad;
  const std::size_t offset = static_cast<std::size_t>(columns[static_cast<std::size_t>(bad)].offset);
  const std::size_t place = std::min(out.line.find_first_not_of(' ', offset), out.line.size());
  return fail(state, fmt_error::unreadable_field, out.line, static_cast<int>(place) + 1);
}

}  // namespace

void findfmt_message::clear() {
  nlines = 0;
  for (std::string& line : txt) line.clear();
}

void findfmt_message::add(std::string_view text) {
  if (nlines < static_cast<int>(txt.size())) txt[static_cast<std::size_t>(nlines++)] = text.substr(0, message_width);
}

void init_findfmt(findfmt_state& state, int nline) {
  state.line_nb = nline;
  state.mess_findfmt.clear();
}

void inc_linenum(findfmt_state& state, int n) { state.line_nb += n; }

void findfmt_err(findfmt_state& state, std::string_view aline, int ipos) {
  if (state.ierr_fmt == fmt_error::none || state.ierr_fmt == fmt_error::end_of_file) return;
  aline = without_end_blanks(aline);
  const bool quoted = aline.size() < 130;
  // A dash below the quote and below each character before the bad one; past the message's width it would not be seen.
  const int dashes = std::min(quoted ? ipos : ipos - 1, static_cast<int>(message_width));
  const std::string pointer = std::string(static_cast<std::size_t>(std::max(dashes, 0)), '-') + '^';
  findfmt_message& mess = state.mess_findfmt;
  mess.clear();
  mess.add(error_reason(state.ierr_fmt));
  mess.add(quoted ? fmt_line{}.a(" '").a(aline).a("'").str() : fmt_line{}.x(1).a(aline).str());
  mess.add(quoted && ipos == 1 ? "  ^----" : fmt_line{}.x(1).a(pointer).str());
  mess.add(fmt_line{}.a(" => Please check your input file at line: ").i(6, state.line_nb).a(" !").str());
}

int findfmt(findfmt_state& state, text_source& lun, std::string& aline, std::string_view fmtfields,
            std::string& fmtstring, bool cmtline) {
  fmtfields = without_end_blanks(fmtfields);
  fmtstring = "()";
  if (const int ierr = start(state, fmtfields, aline); ierr != fmt_error::none) return ierr;
  const int ierr = take_line(state, lun, aline, cmtline && ends_in_number(fmtfields));
  return ierr != fmt_error::none ? ierr : measure_line(state, aline, fmtfields, fmtstring);
}

int findfmt(findfmt_state& state, std::string& aline, std::string_view fmtfields, std::string& fmtstring) {
  fmtfields = without_end_blanks(fmtfields);
  fmtstring = "()";
  if (const int ierr = start(state, fmtfields, aline); ierr != fmt_error::none) return ierr;
  return measure_line(state, aline, fmtfields, fmtstring);
}

int read_fields(findfmt_state& state, text_source& lun, std::string_view letters, field_values& out, bool cmtline) {
  letters = without_end_blanks(letters);
  out.clear();
  if (const int ierr = start(state, letters, out.line); ierr != fmt_error::none) return ierr;
  const int ierr = take_line(state, lun, out.line, cmtline && ends_in_number(letters));
  return ierr != fmt_error::none ? ierr : convert_line(state, letters, out);
}

int read_fields(findfmt_state& state, std::string_view aline, std::string_view letters, field_values& out) {
  letters = without_end_blanks(letters);
  out.clear();
  out.line = aline;
  if (const int ierr = start(state, letters, out.line); ierr != fmt_error::none) return ierr;
  return convert_line(state, letters, out);
}

}  // namespace lmix_string_utilities

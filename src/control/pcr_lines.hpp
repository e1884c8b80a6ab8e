// pcr_lines: takes the lines of a control file one after the other, and words every refusal of its reader.
// It owns the place in the text; the number of the line and the messages belong to the findfmt_state of the run.
// Only the reader of the control file moves it.
#pragma once
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lmix_string_utilities.hpp"
#include "pcr_fields.hpp"

namespace pcr_lines {

using pcr_fields::line_form;
using pcr_fields::part;

/// Where a line stands, for messages: its name, and the 1-based phase and pattern it belongs to (0: none).
struct place {
  std::string_view name;
  int phase = 0;
  int pattern = 0;
};

/// What the reader found in a line, kept for whoever explains the file. Filled only when the reader was given one.
struct record {
  struct entry {
    pcr_fields::kind kind = pcr_fields::kind::plain;
    pcr_fields::field what;       ///< of a plain field
    int number = 0;               ///< of the same field several times: 1, 2, ...; 0: it stands once
    pcr_fields::slot_place slot;  ///< of a value or a code
    std::string text;             ///< as it stands in the line, blank when it is missing
  };
  struct line {
    int number = 0;  ///< 1-based line of the file
    std::string name;
    int phase = 0, pattern = 0;
    std::vector<entry> entries;
  };
  std::vector<line> lines;
  int last = 0;  ///< last line that was taken
};

inline constexpr std::string_view message_continues = "        ";  ///< begins a line that goes on with a reason
inline constexpr int refused = 100;  ///< ierr_fmt of what the control file may not ask for

/// Tabs made blanks, blanks at both ends cut.
[[nodiscard]] std::string adjl_tab(std::string_view text);
/// The line without what follows its first `!` or `#`, blanks at the end cut.
[[nodiscard]] std::string without_comment(std::string_view line);
[[nodiscard]] bool begins_with(std::string_view line, std::string_view word);

class line_reader {
 public:
  line_reader(std::string_view text, int unit, lmix_string_utilities::findfmt_state& state);

  // All operations that return bool give false on a failure, whose message then stands in the findfmt_state.

  /// The first line as it stands, without the blanks at its end; empty when the text has no line.
  std::optional<std::string> first_line();
  /// The next line when it is a comment (begins with `!`) or blank; nothing is taken otherwise.
  std::optional<std::string> comment_line();
  /// The next value line, described field by field: fields that fill slots are stored in them, all stand in i(), f()
  /// and word() afterwards. A field that cannot be read is named in the message.
  [[nodiscard]] bool values(const place& at, std::span<const part> parts);
  [[nodiscard]] bool values(const place& at, std::initializer_list<part> parts) {
    return values(at, std::span(parts.begin(), parts.size()));
  }
  [[nodiscard]] bool values(const line_form& form, int phase = 0, int pattern = 0) {
    return values(place{form.name, phase, pattern}, {form.fields});
  }
  /// The same for the text of the line taken last, which its caller has cut.
  [[nodiscard]] bool values_of(const place& at, std::string_view line, std::initializer_list<part> parts);

  /// The next text line that is neither blank nor begins with `!`, shifted left. Empty at the end, which is a failure.
  std::optional<std::string> text(const place& at);
  /// The same for a line whose first field is all of it.
  std::optional<std::string> text(const line_form& form, int phase = 0, int pattern = 0);
  /// Says what the words of the line taken last are, of a line that is not read by letters. A table that is shorter
  /// than the words repeats its last row.
  void words(const place& at, std::span<const pcr_fields::field> fields, std::span<const std::string_view> words);
  /// From now on every line is kept in `to`, which must outlive the reading. Null: none.
  void keep(record* to) { record_ = to; }
  /// Messages name the slots of this state, which must outlive the reading.
  void name_slots_of(const kalvaris_params::state_type& st) { model_ = &st; }
  /// The next line, comment or not; empty at the end, which is no failure.
  std::optional<std::string> any_line();

  /// The next line that is no comment, shifted left, which stays to be read; blank at the end of the text.
  [[nodiscard]] std::string peek() { return peek(1); }
  /// The same for the n-th such line from here, n >= 1.
  [[nodiscard]] std::string peek(int n);
  /// Takes the line that peek() shows.
  std::string take();

  [[nodiscard]] int i(int k) const { return fields_.i(k); }
  [[nodiscard]] float f(int k) const { return fields_.f(k); }
  [[nodiscard]] std::string word(int k) const { return std::string(fields_.a(k)); }
  [[nodiscard]] const std::string& cleaned_line() const { return fields_.line; }

  /// Refuses what stands in the line taken last: names the line, the reason and the number of the line.
  bool refuse(const place& at, std::string_view reason);
  /// Refuses with lines of the caller's own.
  bool fail(std::initializer_list<std::string_view> lines, int ierr_fmt = refused);
  /// Refuses with words of its own and the number of the line taken last.
  bool fail_here(std::initializer_list<std::string_view> words);
  bool fail_here(std::string_view words) { return fail_here({words}); }
  /// Refuses a value outside low..high by the name of what it counts.
  [[nodiscard]] bool in_range(const place& at, std::string_view what, int value, int low, int high);

  [[nodiscard]] int lines_taken() const { return source_.lines_taken(); }

  // What a refusal may come from: counts that do not fit, lines that are missing.

  /// Entry k (1-based) of the `count` that the flag announces is read next.
  void in_list(std::string_view flag, std::string_view what, int k, int count) { list_ = {flag, what, k, count, 0}; }
  /// The list was read to its end.
  void behind_list() { list_.entry = list_.lines_behind = 0; }
  /// Where the lines that were read seem out of step with the file, and which count led to the line taken last; blank
  /// when there is nothing to say.
  [[nodiscard]] std::string out_of_step() const;

 private:
  struct list_place {
    std::string_view flag, what;
    int entry = 0;  ///< that is being read, 0: behind all of them
    int count = 0;
    int lines_behind = 0;
  };
  void look_for_odd_codes(const place& at, std::span<const part> parts);
  bool ends_before(const place& at);
  std::string take_value_line();
  const std::string& letters_of(std::span<const part> parts);
  bool finish(const place& at, std::span<const part> parts, int ierr);
  void name_expected(std::span<const part> parts);
  void store(std::span<const part> parts) const;
  record::line* recorded(const place& at);
  void keep_fields(const place& at, std::span<const part> parts);
  void count() { state_->line_nb = source_.lines_taken(); }

  lmix_text_input::text_source source_;
  lmix_string_utilities::findfmt_state* state_;
  lmix_string_utilities::field_values fields_;
  std::string letters_;  ///< of the line in hand
  record* record_ = nullptr;
  list_place list_;
  std::size_t values_above_ = 0;  ///< numbers on the line of values taken last, which codes follow
  std::string odd_codes_;         ///< the first line of codes that has another number of numbers
  const kalvaris_params::state_type* model_ = nullptr;
};

}  // namespace pcr_lines

// Text input: computes nothing; hands out the lines of a text that is held in memory as a whole.
// Owns the bytes of the text and the place of the next line; the lines handed out are views of those bytes.
// Only the holder of a text_source moves its place or writes it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lmix_text_input {

/// True for a line without characters other than blanks and tabs, and for a line whose first other character opens a
/// comment (`!` or `#`).
bool is_blank_or_comment(std::string_view line);

/// Lines end in LF or CRLF, may have any length, and the last one needs no end. A byte-order mark at the start of the
/// text is dropped. The views stay good as long as the source is neither assigned to nor destroyed.
class text_source {
 public:
  /// A place in the text, to come back to.
  struct mark {
    std::size_t offset = 0;  ///< first byte of the next line
    int lines = 0;           ///< lines before it
  };

  text_source() = default;

  /// A file that cannot be read gives a source without lines whose status() is the system's error number. Files above
  /// 1 GiB (an endless device, say) are refused with EFBIG.
  static text_source from_file(const std::string& path, int unit = 0);
  static text_source from_string(std::string_view text, int unit = 0);

  bool ok() const { return status_ == 0; }
  int status() const { return status_; }  ///< 0, or the system's error number
  std::string status_text() const;        ///< the system's words for status()
  int unit() const { return unit_; }      ///< number by which messages name the text

  std::optional<std::string_view> next();              ///< takes a line; empty at the end of the text
  std::optional<std::string_view> peek() const;        ///< the line that next() would take
  std::optional<std::string_view> peek_value() const;  ///< the next line that is neither blank nor a comment
  bool at_end() const { return here_.offset >= text_.size(); }

  int lines_taken() const { return here_.lines; }
  mark save() const { return here_; }
  void restore(mark place);
  void rewind() { here_ = {start_, 0}; }

 private:
  text_source(std::vector<char> text, int unit);
  std::string_view line_at(std::size_t offset, std::size_t& after) const;

  std::vector<char> text_;  // not a std::string: moving a short one would move the bytes below the views
  std::size_t start_ = 0;   // 3 behind a byte-order mark
  mark here_;
  int unit_ = 0;
  int status_ = 0;
};

}  // namespace lmix_text_input

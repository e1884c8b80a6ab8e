// List input: reads numbers and words in free format, the layout of most data files.
// Owns the rules of the free format; keeps no state beyond the scanner that its caller holds.
// Rules: values are separated by blanks, tabs, line ends or one comma; nothing between two commas leaves the item as it
// was; n*value stands for n values and n* for n items left as they were; `/` ends the list. Reals may have an exponent
// written E5, D-3 or as a bare sign (1.5-2). Integers must be written without a point.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "lmix_text_input.hpp"

namespace lmix_list_input {

enum class list_status {
  value,  ///< the item has its value
  null,   ///< an empty place in the list: the item is as it was
  slash,  ///< `/` ended the list; so will every further read say
  end,    ///< the text ended
  bad,    ///< no value of the kind asked for; so will every further read say
};

/// Takes one value after the other from a text, which may run over line ends.
class list_scanner {
 public:
  explicit list_scanner(std::string_view text) : text_(text) {}

  list_status read(float& item);
  list_status read(double& item);
  list_status read(int& item);
  list_status read(std::string& item);  ///< a word, or what stands between ' or "

  /// Goes on in the next line of the same list: a repeat or a separator still open carries over.
  void continue_in(std::string_view text);

  std::string_view token() const { return text_.substr(token_, pos_ - token_); }  ///< what was taken last
  std::size_t column() const;  ///< 1-based place of token() in its line
  std::size_t line() const;    ///< 1-based line of token() within the text

 private:
  template <class T>
  list_status read_item(T& item);
  template <class T>
  list_status serve_repeated(T& item);
  list_status next_token();
  std::string_view cut_word();
  list_status fail();

  std::string_view text_;
  std::size_t pos_ = 0;
  std::size_t token_ = 0;
  bool comma_may_follow_ = false;  ///< a value was taken, its separating comma not yet
  int repeats_left_ = 0;
  std::string repeated_;  ///< text of the repeated value, empty for n*
  list_status ended_ = list_status::value;
};

/// What a whole list came to.
struct list_result {
  list_status status = list_status::end;  ///< value: every item was served
  int count = 0;                          ///< items served, empty places included
  std::size_t column = 0;                 ///< 1-based column of the value that was refused
  std::string token;                      ///< that value

  bool full() const { return status == list_status::value; }
};

/// Reads up to items.size() values of one text.
list_result read_list(std::string_view text, std::span<float> items);
list_result read_list(std::string_view text, std::span<double> items);
list_result read_list(std::string_view text, std::span<int> items);
/// Reads over as many lines as the items need; the rest of the last line is passed over. The line of a refused value is
/// source.lines_taken().
list_result read_list(lmix_text_input::text_source& source, std::span<float> items);
list_result read_list(lmix_text_input::text_source& source, std::span<double> items);
list_result read_list(lmix_text_input::text_source& source, std::span<int> items);

list_result refused(const list_scanner& scanner, int count);

/// Reads values of different kinds from one text: read_values(line, npts, tsamp, title).
template <class... T>
list_result read_values(std::string_view text, T&... items) {
  list_scanner scanner(text);
  list_result result;
  const auto serve = [&](auto& item) {
    result.status = scanner.read(item);
    if (result.status == list_status::bad) result = refused(scanner, result.count);
    const bool served = result.status == list_status::value || result.status == list_status::null;
    result.count += served ? 1 : 0;
    return served;
  };
  if ((serve(items) && ...)) result.status = list_status::value;
  return result;
}

}  // namespace lmix_list_input

#include "lmix_list_input.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <system_error>
#include <type_traits>

#include "lmix_fixed_format.hpp"

namespace lmix_list_input {

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool ends_value(char c) { return is_blank(c) || c == ',' || c == '/'; }

bool convert(std::string_view text, float& item) { return lmix_fixed_format::parse_real(text, item); }
bool convert(std::string_view text, double& item) { return lmix_fixed_format::parse_real(text, item); }
bool convert(std::string_view text, int& item) { return lmix_fixed_format::parse_integer(text, item); }
bool convert(std::string_view text, std::string& item) {
  const bool quoted = text.size() >= 2 && (text[0] == '\'' || text[0] == '"') && text.back() == text[0];
  item = quoted ? text.substr(1, text.size() - 2) : text;
  return true;
}
/// Takes a number in the notation of std::from_chars that is followed by the end or a separator. Returns its length, 0
/// when the text must go the long way.
template <class T>
std::size_t convert_at(std::string_view text, T& item) {
  if constexpr (std::is_arithmetic_v<T>) {
    T value{};
    const char* begin = text.data();
    const char* end = begin + text.size();
    const auto [after, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || !(after == end || ends_value(*after))) return 0;
    if constexpr (std::floating_point<T>) {
      if (!std::isfinite(value)) return 0;
    }
    item = value;
    return static_cast<std::size_t>(after - begin);
  }
  return 0;
}

template <class T>
list_result read_span(list_scanner& scanner, std::span<T> items, int first) {
  list_result result;
  result.count = first;
  for (T& item : items.subspan(static_cast<std::size_t>(first))) {
    result.status = scanner.read(item);
    if (result.status == list_status::bad) return refused(scanner, result.count);
    if (result.status == list_status::slash || result.status == list_status::end) return result;
    ++result.count;
  }
  result.status = list_status::value;
  return result;
}

template <class T>
list_result read_text(std::string_view text, std::span<T> items) {
  list_scanner scanner(text);
  return read_span(scanner, items, 0);
}

template <class T>
list_result read_source(lmix_text_input::text_source& source, std::span<T> items) {
  list_scanner scanner({});
  list_result result;
  while (result.status == list_status::end) {
    const auto line = source.next();
    if (!line) break;
    scanner.continue_in(*line);
    result = read_span(scanner, items, result.count);
  }
  return result;
}

}  // namespace

list_status list_scanner::fail() { return ended_ = list_status::bad; }

void list_scanner::continue_in(std::string_view text) {
  text_ = text;
  pos_ = token_ = 0;
}

/// Finds the next token and leaves pos_ at its first character. `value` when there is one.
list_status list_scanner::next_token() {
  const auto skip_blanks = [this] {
    while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
  };
  skip_blanks();
  if (comma_may_follow_ && pos_ < text_.size() && text_[pos_] == ',') {
    comma_may_follow_ = false;
    ++pos_;
    skip_blanks();
  }
  token_ = pos_;
  if (pos_ == text_.size()) return list_status::end;
  if (text_[pos_] == '/') return ended_ = list_status::slash;
  if (text_[pos_] == ',') {
    ++pos_;
    return list_status::null;
  }
  comma_may_follow_ = true;
  return list_status::value;
}

/// Cuts the token that begins at pos_: a quoted one up to its closing quote, any other up to a separator.
std::string_view list_scanner::cut_word() {
  const char quote = text_[pos_];
  if (quote == '\'' || quote == '"') {
    pos_ = std::min(text_.find(quote, pos_ + 1), text_.size() - 1) + 1;
  } else {
    while (pos_ < text_.size() && !ends_value(text_[pos_])) ++pos_;
  }
  return token();
}

template <class T>
list_status list_scanner::serve_repeated(T& item) {
  --repeats_left_;
  if (repeated_.empty()) return list_status::null;
  return convert(repeated_, item) ? list_status::value : fail();
}

template <class T>
list_status list_scanner::read_item(T& item) {
  if (ended_ != list_status::value) return ended_;
  if (repeats_left_ > 0) return serve_repeated(item);
  const list_status found = next_token();
  if (found != list_status::value) return found;
  if (const std::size_t length = convert_at(text_.substr(pos_), item); length > 0) {
    pos_ += length;
    return list_status::value;
  }
  const std::string_view word = cut_word();
  const std::size_t star = word.find_first_not_of("0123456789");
  if (star == 0 || star == std::string_view::npos || word[star] != '*') {
    return convert(word, item) ? list_status::value : fail();
  }
  if (!lmix_fixed_format::parse_integer(word.substr(0, star), repeats_left_) || repeats_left_ < 1) return fail();
  repeated_ = word.substr(star + 1);
  return serve_repeated(item);
}

list_status list_scanner::read(float& item) { return read_item(item); }
list_status list_scanner::read(double& item) { return read_item(item); }
list_status list_scanner::read(int& item) { return read_item(item); }
list_status list_scanner::read(std::string& item) { return read_item(item); }

std::size_t list_scanner::column() const {
  const std::string_view before = text_.substr(0, token_);
  return token_ - (before.find_last_of('\n') + 1) + 1;  // npos + 1 is 0: the first line
}

std::size_t list_scanner::line() const {
  const std::string_view before = text_.substr(0, token_);
  return static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')) + 1;
}

list_result refused(const list_scanner& scanner, int count) {
  return {list_status::bad, count, scanner.column(), std::string(scanner.token())};
}

list_result read_list(std::string_view text, std::span<float> items) { return read_text(text, items); }
list_result read_list(std::string_view text, std::span<double> items) { return read_text(text, items); }
list_result read_list(std::string_view text, std::span<int> items) { return read_text(text, items); }

list_result read_list(lmix_text_input::text_source& source, std::span<float> items) {
  return read_source(source, items);
}
list_result read_list(lmix_text_input::text_source& source, std::span<double> items) {
  return read_source(source, items);
}
list_result read_list(lmix_text_input::text_source& source, std::span<int> items) { return read_source(source, items); }

}  // namespace lmix_list_input

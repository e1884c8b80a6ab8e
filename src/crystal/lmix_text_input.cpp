#include "lmix_text_input.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

namespace lmix_text_input {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::size_t largest_file = std::size_t{1} << 30;
constexpr std::size_t chunk = std::size_t{1} << 18;

struct close_file {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Bytes that the file holds by the system's word, 0 for what is no plain file.
std::size_t size_of(const std::string& path) {
  std::error_code ec;
  const auto size = std::filesystem::file_size(path, ec);
  return ec ? 0 : static_cast<std::size_t>(std::min<std::uintmax_t>(size, largest_file));
}

/// 0 or the system's error number. The text is given room once where the size is known: one byte more shows that the
/// file did not grow meanwhile.
int read_file(const std::string& path, std::vector<char>& text) {
  errno = 0;
  const std::unique_ptr<std::FILE, close_file> file(std::fopen(path.c_str(), "rb"));
  if (!file) return errno != 0 ? errno : EIO;
  std::size_t used = 0;
  text.resize(size_of(path) + 1);
  while (true) {
    if (used == text.size()) text.resize(used + std::max(chunk, used));
    const std::size_t got = std::fread(text.data() + used, 1, text.size() - used, file.get());
    used += got;
    if (used > largest_file) return EFBIG;
    if (got == 0) break;
  }
  const int status = std::ferror(file.get()) == 0 ? 0 : errno;
  text.resize(used);
  return status;
}

}  // namespace

bool is_blank_or_comment(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t");
  return first == std::string_view::npos || line[first] == '!' || line[first] == '#';
}

text_source::text_source(std::vector<char> text, int unit) : text_(std::move(text)), unit_(unit) {
  if (std::string_view(text_.data(), text_.size()).starts_with(byte_order_mark)) start_ = byte_order_mark.size();
  rewind();
}

text_source text_source::from_file(const std::string& path, int unit) {
  std::vector<char> text;
  const int status = read_file(path, text);
  if (status != 0) text.clear();
  text_source source(std::move(text), unit);
  source.status_ = status;
  return source;
}

text_source text_source::from_string(std::string_view text, int unit) {
  return text_source(std::vector<char>(text.begin(), text.end()), unit);
}

std::string text_source::status_text() const { return std::generic_category().message(status_); }

std::string_view text_source::line_at(std::size_t offset, std::size_t& after) const {
  const char* begin = text_.data() + offset;
  const std::size_t rest = text_.size() - offset;
  const void* newline = std::memchr(begin, '\n', rest);
  std::size_t length = rest;
  after = text_.size();
  if (newline != nullptr) {
    length = static_cast<std::size_t>(static_cast<const char*>(newline) - begin);
    after = offset + length + 1;
  }
  if (length > 0 && begin[length - 1] == '\r') --length;
  return {begin, length};
}

std::optional<std::string_view> text_source::next() {
  if (at_end()) return std::nullopt;
  std::size_t after = 0;
  const std::string_view line = line_at(here_.offset, after);
  here_ = {after, here_.lines + 1};
  return line;
}

std::optional<std::string_view> text_source::peek() const {
  if (at_end()) return std::nullopt;
  std::size_t after = 0;
  return line_at(here_.offset, after);
}

std::optional<std::string_view> text_source::peek_value() const {
  std::size_t offset = here_.offset;
  while (offset < text_.size()) {
    std::size_t after = 0;
    const std::string_view line = line_at(offset, after);
    if (!is_blank_or_comment(line)) return line;
    offset = after;
  }
  return std::nullopt;
}

void text_source::restore(mark place) { here_ = {std::clamp(place.offset, start_, text_.size()), place.lines}; }

}  // namespace lmix_text_input

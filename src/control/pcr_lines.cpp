#include "pcr_lines.hpp"

#include <algorithm>
#include <array>

#include "lmix_fixed_format.hpp"

namespace pcr_lines {

using lmix_fixed_format::fmt_line;
namespace fmt_error = lmix_string_utilities::fmt_error;

std::string adjl_tab(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\t', ' ');
  return std::string(lmix_string_utilities::trim(line));
}

std::string without_comment(std::string_view line) {
  return std::string(lmix_string_utilities::trim(line.substr(0, line.find_first_of("!#"))));
}

bool begins_with(std::string_view line, std::string_view word) { return line.substr(0, word.size()) == word; }

line_reader::line_reader(std::string_view text, int unit, lmix_string_utilities::findfmt_state& state)
    : source_(lmix_text_input::text_source::from_string(text, unit)), state_(&state) {}

std::optional<std::string> line_reader::any_line() {
  const auto line = source_.next();
  count();
  return line ? std::optional<std::string>(adjl_tab(*line)) : std::nullopt;
}

std::optional<std::string> line_reader::first_line() {
  const auto line = source_.next();
  count();
  if (!line) return std::nullopt;
  return std::string(line->substr(0, line->find_last_not_of(' ') + 1));
}

std::optional<std::string> line_reader::comment_line() {
  const auto line = source_.peek();
  if (!line) return std::nullopt;
  std::string shifted = adjl_tab(*line);
  if (!shifted.empty() && shifted[0] != '!') return std::nullopt;
  source_.next();
  count();
  return shifted;
}

const std::string& line_reader::letters_of(std::span<const part> parts) {
  letters_.clear();
  for (const part& p : parts) {
    for (int j = 0; j < p.size(); ++j) {
      const part::element field = p.at(j);
      letters_ += field.row != nullptr ? field.row->letter : 'f';
    }
  }
  return letters_;
}

void line_reader::store(std::span<const part> parts) const {
  int number = 0;
  for (const part& p : parts) {
    for (int j = 0; j < p.size(); ++j, ++number) {
      const part::element field = p.at(j);
      const auto k = static_cast<std::size_t>(field.k);
      if (field.is == pcr_fields::kind::value) p.to().value[k] = f(number);
      if (field.is == pcr_fields::kind::code) p.to().code[k] = p.to().code_read[k] = f(number);
    }
  }
}

std::string_view until_semicolon(std::string_view text) { return text.substr(0, text.find(';')); }

/// What the field at which the line failed should have been, above the number of the line.
void line_reader::name_expected(std::span<const part> parts) {
  int number = fields_.failed;
  if (number < 0) return;
  for (const part& p : parts) {
    if (number >= p.size()) {
      number -= p.size();
      continue;
    }
    const part::element field = p.at(number);
    fmt_line expected;
    expected.a(" => Expected in field ").i(0, fields_.failed + 1).a(": ");
    if (field.row != nullptr) {
      expected.a(field.row->name).a(", ").a(until_semicolon(field.row->meaning));
      expected.a(field.row->letter == 'i' ? " (integer)" : field.row->letter == 'f' ? " (number)" : " (word)");
    } else {
      if (field.is == pcr_fields::kind::code) expected.a("code of ");
      if (model_ != nullptr) {
        const auto slot = slot_text::describe(*model_, {p.to().family, p.to().owner, p.to().ip, field.k});
        expected.a(slot.name).a(", ").a(until_semicolon(slot.meaning));
      }
      expected.a(" (number)");
    }
    auto& message = state_->mess_findfmt;
    message.add(expected.str());
    if (message.nlines > 1) std::swap(message.txt[message.nlines - 1], message.txt[message.nlines - 2]);
    return;
  }
}

record::line* line_reader::recorded(const place& at) {
  if (record_ == nullptr) return nullptr;
  const int number = source_.lines_taken();
  // A line that is looked at twice is the same line, known better.
  if (record_->lines.empty() || record_->lines.back().number != number) record_->lines.emplace_back();
  record_->lines.back() = {number, std::string(at.name), at.phase, at.pattern, {}};
  return &record_->lines.back();
}

void line_reader::keep_fields(const place& at, std::span<const part> parts) {
  record::line* line = recorded(at);
  if (line == nullptr) return;
  int number = 0;
  for (const part& p : parts) {
    for (int j = 0; j < p.size(); ++j, ++number) {
      const part::element field = p.at(j);
      record::entry entry;
      entry.kind = field.is;
      if (field.row != nullptr) entry.what = *field.row;
      entry.number = field.number;
      entry.slot = {p.to().family, p.to().owner, p.to().ip, field.k};
      entry.text = lmix_string_utilities::trim(fields_.a(number));
      line->entries.push_back(std::move(entry));
    }
  }
}

bool line_reader::finish(const place& at, std::span<const part> parts, int ierr) {
  if (ierr == fmt_error::end_of_file) return ends_before(at);
  if (ierr != fmt_error::none) {
    name_expected(parts);
    return false;
  }
  store(parts);
  keep_fields(at, parts);
  look_for_odd_codes(at, parts);
  ++list_.lines_behind;
  return true;
}

namespace {

/// Numbers at the beginning of a line, up to the first word that is none.
std::size_t numbers_of(std::string_view line) {
  std::size_t n = 0;
  float value = 0.f;
  while (!lmix_string_utilities::trim(line).empty() &&
         lmix_fixed_format::parse_real(lmix_string_utilities::cutst(line), value))
    ++n;
  return n;
}

}  // namespace

/// A line of codes has as many numbers as there are slots, or as the line of their values has; another one is most
/// likely a line of values.
void line_reader::look_for_odd_codes(const place& at, std::span<const part> parts) {
  std::size_t slots = 0, codes = 0;
  for (const part& p : parts) {
    for (int j = 0; j < p.size(); ++j) {
      const part::element field = p.at(j);
      slots += field.is == pcr_fields::kind::plain ? 0 : 1;
      codes += field.is == pcr_fields::kind::code ? 1 : 0;
    }
  }
  const std::size_t numbers = numbers_of(fields_.line);
  if (codes == 0) values_above_ = std::min(numbers, slots);
  if (codes == 0 || codes < slots || !odd_codes_.empty()) return;
  if (numbers <= codes && numbers >= std::min(codes, values_above_)) return;
  fmt_line text;
  text.a("line ").i(0, source_.lines_taken()).a(" was read as ").a(at.name);
  if (at.phase > 0) text.a(" of phase ").i(0, at.phase);
  text.a(": it holds ").i(0, static_cast<long long>(numbers)).a(" numbers, of codes there are ");
  odd_codes_ = text.i(0, static_cast<long long>(codes)).str();
}

std::string line_reader::out_of_step() const {
  constexpr int near = 2;  // lines behind a list
  std::string text = odd_codes_;
  fmt_line list;
  if (list_.entry > 0)
    list.a("number ").i(0, list_.entry).a(" of the ").i(0, list_.count);
  else if (list_.count > 0 && list_.lines_behind < near)
    list.a("what stands behind the ").i(0, list_.count);
  if (list.str().empty()) return text;
  list.a(" ").a(list_.what).a(" (").a(list_.flag).a(" ").i(0, list_.count).a(") was read last");
  return text + (text.empty() ? "" : "; ") + list.str();
}

bool line_reader::values(const place& at, std::span<const part> parts) {
  count();
  return finish(at, parts, lmix_string_utilities::read_fields(*state_, source_, letters_of(parts), fields_));
}

bool line_reader::values_of(const place& at, std::string_view line, std::initializer_list<part> list) {
  const std::span parts(list.begin(), list.size());
  if (line.empty()) return refuse(at, "the line holds no values");
  count();
  --state_->line_nb;  // the line was counted when it was taken
  return finish(at, parts, lmix_string_utilities::read_fields(*state_, line, letters_of(parts), fields_));
}

void line_reader::words(const place& at, std::span<const pcr_fields::field> fields,
                        std::span<const std::string_view> words) {
  record::line* line = recorded(at);
  if (line == nullptr || fields.empty()) return;
  for (std::size_t k = 0; k < words.size(); ++k) {
    const std::size_t last = fields.size() - 1;
    record::entry entry;
    entry.what = fields[std::min(k, last)];
    entry.number = words.size() > last + 1 && k >= last ? static_cast<int>(k - last) + 1 : 0;
    entry.text = words[k];
    line->entries.push_back(std::move(entry));
  }
}

std::optional<std::string> line_reader::text(const place& at) {
  while (auto line = any_line()) {
    if (line->empty() || line->front() == '!') continue;
    recorded(at);
    return line;
  }
  ++state_->line_nb;
  state_->ierr_fmt = fmt_error::end_of_file;
  state_->mess_findfmt.clear();
  state_->mess_findfmt.add(fmt_line{}.a(" => Non FATAL End of file !,  logical unit: ").i(4, source_.unit()).str());
  ends_before(at);
  return std::nullopt;
}

std::optional<std::string> line_reader::text(const line_form& form, int phase, int pattern) {
  const place at{form.name, phase, pattern};
  auto line = text(at);
  if (line) words(at, form.fields, std::array{std::string_view(*line)});
  return line;
}

bool line_reader::ends_before(const place& at) {
  state_->mess_findfmt.add(fmt_line{}.a(" => The control file ends before: ").a(at.name).str());
  return false;
}

std::string line_reader::peek(int n) {
  const auto here = source_.save();
  std::string line;
  for (int k = 0; k < n; ++k) line = take_value_line();
  source_.restore(here);
  return line;
}

std::string line_reader::take() {
  std::string line = take_value_line();
  count();
  return line;
}

std::string line_reader::take_value_line() {
  while (const auto line = source_.next()) {
    if (!lmix_text_input::is_blank_or_comment(*line)) return adjl_tab(*line);
  }
  return {};
}

bool line_reader::fail(std::initializer_list<std::string_view> lines, int ierr_fmt) {
  state_->ierr_fmt = ierr_fmt;
  state_->mess_findfmt.clear();
  for (const std::string_view line : lines) state_->mess_findfmt.add(line);
  return false;
}

namespace {

/// The sentences of a reason in lines of a message, as many to a line as it holds.
std::vector<std::string> lines_of_reason(std::string_view reason) {
  constexpr std::size_t longest = 126;
  std::vector<std::string> lines;
  while (!reason.empty()) {
    const std::size_t stop = reason.find(". ");
    const std::string_view sentence = reason.substr(0, stop == std::string_view::npos ? stop : stop + 2);
    reason.remove_prefix(sentence.size());
    if (lines.empty() || lines.back().size() + sentence.size() > longest) lines.emplace_back(message_continues);
    lines.back() += sentence;
  }
  if (!lines.empty()) lines.front().erase(0, message_continues.size() - 4);
  return lines;
}

}  // namespace

bool line_reader::refuse(const place& at, std::string_view reason) {
  fmt_line where;
  where.a(" => Error in the ").a(at.name);
  if (at.phase > 0 || at.pattern > 0) where.a(" of");
  if (at.phase > 0) where.a(" phase: ").i(0, at.phase);
  if (at.pattern > 0) where.a(" pattern: ").i(0, at.pattern);
  fail({where.str()});
  for (const std::string& line : lines_of_reason(reason)) state_->mess_findfmt.add(line);
  state_->mess_findfmt.add(
      fmt_line{}.a(" => Please check your input file at line: ").i(6, source_.lines_taken()).a(" !").str());
  return false;
}

bool line_reader::fail_here(std::initializer_list<std::string_view> words) {
  fail(words);
  state_->mess_findfmt.add(
      fmt_line{}.a(" => Please check your input file at line: ").i(6, source_.lines_taken()).a(" !").str());
  return false;
}

bool line_reader::in_range(const place& at, std::string_view what, int value, int low, int high) {
  if (value >= low && value <= high) return true;
  return refuse(at, fmt_line{}.a(what).a(" must lie in ").i(0, low).a("..").i(0, high).str());
}

}  // namespace pcr_lines

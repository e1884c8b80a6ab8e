// What makes a fit wrong, as a block of the summary and as lines of the console.
#include <sstream>

#include "kv_listing_text.hpp"
#include "kv_misfit.hpp"
#include "kv_sumarize.hpp"

namespace kv_sumarize {

namespace {

/// The words of a text in lines of the page, with marks in front of the first and blanks before the others.
std::vector<std::string> in_lines(std::string_view marks, const std::string& text) {
  constexpr std::size_t width = 110;
  std::vector<std::string> lines{std::string(marks)};
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (lines.back().size() + 1 + word.size() > width) lines.emplace_back(marks.size(), ' ');
    lines.back() += " " + word;
  }
  return lines;
}

}  // namespace

void write_remarks(kalvaris_params::state_type& st) {
  const auto remarks = kv_misfit::remarks(st);
  if (remarks.empty()) return;
  const auto line = [&](const std::string& text) {
    kalvaris_inout::out(st.io, kalvaris_inout::unit::summary) << text << '\n';
    kalvaris_inout::console_line(st.io, text);
  };
  line("");
  line(kv_listing_text::rule('-'));
  line(" ==> REMARKS ON THE FIT, the likeliest cause of a wrong one first");
  line(kv_listing_text::rule('-'));
  for (const auto& r : remarks)
    for (const std::string& text : in_lines(" => Pattern " + std::to_string(r.pattern + 1) + ":", r.text)) line(text);
}

}  // namespace kv_sumarize

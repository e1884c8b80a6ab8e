#include "control_check.hpp"

#include <algorithm>
#include <cstdlib>

#include "kv_calculable.hpp"

namespace control_files {

namespace {

/// Line that the message names, -1 without one. The words may stand in the line that it quotes, too.
int line_of(const std::string& message) {
  constexpr std::string_view words = " => Please check your input file at line: ";
  const std::size_t at = message.rfind(words);
  return at == std::string::npos ? -1 : std::atoi(message.c_str() + at + words.size());
}

std::string refusal_complaint(const run_directory& run, std::string_view text) {
  const std::string message = run.message();
  if (message.empty()) return "refused without a message";
  const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
  const int line = line_of(message);
  return line == 0 || line > lines + 1 ? "line outside the text: " + message : "";
}

}  // namespace

std::string complaint(run_directory& run, std::string_view text) {
  pcr_lines::record lines;
  kalvaris_params::state_type& st = run.read(text, &lines);
  if (st.fmt.ierr_fmt != 0) return refusal_complaint(run, text);
  if (!run.message().empty() && st.fmt.mess_findfmt.nlines > 0) return "accepted with a message: " + run.message();
  (void)kv_calculable::obstacles(st);
  const std::string written = read_pcr_mod::write_pcr(st, "");
  const kalvaris_params::state_type& again = run.read(written);
  if (again.fmt.ierr_fmt != 0) return "what was written is refused: " + run.message() + written;
  const std::string next = read_pcr_mod::write_pcr(again, "");
  return next != written ? "what was written changes: " + written + "----\n" + next : "";
}

}  // namespace control_files

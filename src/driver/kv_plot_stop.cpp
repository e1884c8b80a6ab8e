#include "kv_plot_stop.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "lmix_string_utilities.hpp"
#include "run_signals.hpp"

namespace kv_plot_stop {

namespace {

constexpr std::string_view stop_words = "KALVARIS STOP REQUIRED";
constexpr std::string_view finish_words = "KALVARIS FINISH REQUIRED";

std::string request_path(const kalvaris_inout::inout_type& io) {
  const char* variable = std::getenv("KALVARIS");
  const std::string directory = variable == nullptr ? "" : variable;
  return kalvaris_inout::run_path(io, directory.empty() ? "kalvaris.tmp" : directory + "/kalvaris.tmp");
}

/// First line of the request; longer ones are no request.
std::string read_request(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return {};
  constexpr std::size_t longest = 256;
  std::string text(longest, '\0');
  std::ifstream file(path);
  file.read(text.data(), static_cast<std::streamsize>(longest));
  text.resize(static_cast<std::size_t>(file.gcount()));
  text.resize(std::min(text.find_first_of("\r\n"), text.size()));
  return std::string(lmix_string_utilities::trim(text));
}

}  // namespace

void kalvaris_stop(kalvaris_params::state_type& st, int& icycle) {
  const std::string request = read_request(request_path(st.io));
  if (request == stop_words) kalvaris_inout::stop_cond(st.io, "KALVARIS INTERRUPTED", true);
  const std::string_view signal = run_signals::asked_to_end();
  if (request != finish_words && signal.empty()) return;
  const std::string line =
      " => " + (signal.empty() ? request : std::string(signal)) + ": the cycles end here, the results are written";
  kalvaris_inout::mess_cons(st.io, line);
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line << '\n';
  icycle = st.run.mcycle + 1;
  st.run.finish_required = true;
}

}  // namespace kv_plot_stop

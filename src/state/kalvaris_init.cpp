#include "kalvaris_init.hpp"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "lmix_list_input.hpp"
#include "lmix_text_input.hpp"

namespace kalvaris_init {

using kalvaris_inout::console_line;
using kalvaris_inout::inout_type;
using kalvaris_params::dimensions;
using kalvaris_params::state_type;
using lmix_text_input::text_source;

namespace {

namespace slot = kalvaris_params::slot;

struct dimension_row {
  std::string_view name;  ///< as it stands in the warnings, blank included
  int dimensions::*value;
  int standard;
};
constexpr std::array<dimension_row, 4> dimension_rows{{
    {"MaxPOINT", &dimensions::maxpoint, 80000},
    {"MaxREFLX ", &dimensions::maxreflx, 25000},
    {"MaxPARAM ", &dimensions::maxparam, 500},
    {"MaxOVERL ", &dimensions::maxoverl, 9000},
}};

constexpr std::string_view warning = "=>       WARNING: ";
constexpr std::string_view consequence = "                  ";

/// Path of the file of dimensions, empty when there is none.
std::string dimension_file(const inout_type& io) {
  constexpr std::string_view name = "kalvaris.dim";
  std::error_code ec;
  if (std::string here = kalvaris_inout::run_path(io, name); std::filesystem::exists(here, ec)) return here;
  const char* variable = std::getenv("KALVARIS");
  std::string directory = variable == nullptr ? "" : variable;
  if (directory.empty()) return {};
  if (directory.back() != '/') directory += '/';
  std::string there = kalvaris_inout::run_path(io, directory + std::string(name));
  return std::filesystem::exists(there, ec) ? there : std::string{};
}

/// The positive integer between the first `=` and the first `!` of the line.
std::optional<int> dimension_value(std::string_view line) {
  constexpr std::size_t columns_read = 80;
  line = line.substr(0, columns_read);
  const auto equals = line.find('=');
  const auto mark = line.find('!');
  if (equals == std::string_view::npos || mark == std::string_view::npos || mark < equals) return std::nullopt;
  int value = 0;
  if (!lmix_list_input::read_values(line.substr(equals + 1, mark - equals - 1), value).full()) return std::nullopt;
  return value > 0 ? std::optional(value) : std::nullopt;
}

text_source open_dimensions(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec) ? text_source::from_file(path) : text_source::from_file("");
}

}  // namespace

void read_dimensions(state_type& st) {
  st.dim = dimensions{};
  const std::string path = dimension_file(st.io);
  if (path.empty()) return;
  text_source file = open_dimensions(path);
  if (!file.ok()) {
    console_line(st.io, std::string(warning) + "error opening file kalvaris.dim");
    console_line(st.io, std::string(consequence) + "Standard dimensions are adopted");
    return;
  }
  for (const dimension_row& row : dimension_rows) {
    const std::optional<std::string_view> line = file.next();
    const std::optional<int> value = line ? dimension_value(*line) : std::nullopt;
    st.dim.*row.value = value.value_or(row.standard);
    if (value) continue;
    const std::string name(row.name);
    console_line(st.io, std::string(warning) + "error reading " + name + " in file kalvaris.dim");
    console_line(
        st.io, std::string(consequence) + "Standard value " + name + " = " + std::to_string(row.standard) + " adopted");
  }
}

void init_val(state_type& st) {
  kalvaris_params::run_type run;
  run.title = st.run.title;
  run.s_format = st.run.s_format;
  run.w_pat_line = st.run.w_pat_line;
  run.n_patt = st.run.n_patt;
  run.optimize = st.run.optimize;
  run.automatic = st.run.automatic;
  run.t_chi2_ini = st.run.t_chi2_ini;
  run.whole_steps = st.run.whole_steps;
  run.intensities = st.run.intensities;
  st.run = run;

  std::vector<kalvaris_params::pattern_type> patterns(static_cast<std::size_t>(run.n_patt));
  for (std::size_t ip = 0; ip < patterns.size(); ++ip) {
    if (ip < st.pattern.size()) {
      patterns[ip].affpat = st.pattern[ip].affpat;
      patterns[ip].w_pat = st.pattern[ip].w_pat;
    }
    if (ip > 0) patterns[ip].lamda = patterns[ip].ratio = {};  // the laboratory doublet is the default of the first
  }
  st.pattern = std::move(patterns);

  st.data_file = {};
  st.phase.clear();
  st.mixes.clear();
  st.atom.clear();
  size_phases(st, 1);
  kalvaris_params::mix_type& first = st.mix(0, 0);
  first.jtyp = 2;
  first.par[slot::scale] = 0.001f;
  first.par[slot::u] = 0.004133f;
  first.par[slot::v] = -0.007618f;
  first.par[slot::w] = 0.006255f;
  first.par[slot::x] = 0.018961f;

  st.parm = {};
  st.ne.reset(0);
  st.io.file_error = false;
  st.io.file_error_mess.clear();
}

void size_phases(state_type& st, int nphase) {
  st.run.nphase = nphase;
  st.phase.resize(static_cast<std::size_t>(nphase));
  st.mixes.resize(static_cast<std::size_t>(nphase) * static_cast<std::size_t>(st.run.n_patt));
}

}  // namespace kalvaris_init

#include "read_pcr_mod.hpp"

#include <algorithm>
#include <array>
#include <fstream>

#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::parameter_limit;
using kalvaris_params::state_type;
using pcr_lines::place;

namespace {

bool read_sections(reading& r) {
  using section_reader = bool (*)(reading&);
  constexpr std::array<section_reader, 13> sections{
      read_head,      read_flags,  read_data_files,         check_limits,    read_output_flags,
      read_radiation, read_cycles, read_points_and_regions, read_scattering, read_global_parameters,
      read_phases,    read_limits, read_pattern_to_plot};
  return std::all_of(sections.begin(), sections.end(), [&](section_reader section) { return section(r); });
}

/// A title with the word asks for a copy of the lines that were read, up to the one that was refused.
void echo_lines(const state_type& st, std::string_view text, int lines) {
  if (lmix_string_utilities::u_case(st.run.title).find("PRINT_PCR") == std::string::npos) return;
  std::size_t end = 0;
  for (int k = 0; k < lines && end < text.size(); ++k) {
    const std::size_t line_end = text.find('\n', end);
    end = line_end == std::string_view::npos ? text.size() : line_end + 1;
  }
  std::ofstream echo(kalvaris_inout::run_path(st.io, "debug_PCR.lst"), std::ios::binary);
  echo << text.substr(0, end);
}

bool check_limit(reading& r, const place& at, const parameter_limit& limit) {
  if (limit.number < 1 || limit.number > r.st.dim.maxparam) return r.in.refuse(at, "parameter number out of range");
  if (limit.vlim1 > limit.vlim2) return r.in.refuse(at, "lower limit above upper limit");
  for (const parameter_limit& other : r.st.run.limits) {
    if (other.number == limit.number) return r.in.refuse(at, "the limits of this parameter were given before");
  }
  return true;
}

/// What follows the five numbers of a limit line.
std::string name_behind(std::string_view line, int fields) {
  for (int k = 0; k < fields; ++k) lmix_string_utilities::cutst(line);
  return std::string(lmix_string_utilities::trim(line));
}

}  // namespace

bool read_limits(reading& r) {
  const place at{"limits of a parameter"};
  r.st.run.limits.clear();
  for (int k = 0; k < r.st.run.nrell; ++k) {
    if (!r.in.values(at, "ifffi")) return false;
    const parameter_limit limit{r.in.i(0), r.in.f(1), r.in.f(2),
                                r.in.f(3), r.in.i(4), name_behind(r.in.cleaned_line(), 5)};
    if (!check_limit(r, at, limit)) return false;
    r.st.run.limits.push_back(limit);
  }
  return true;
}

bool read_pattern_to_plot(reading& r) {
  kalvaris_params::run_type& run = r.st.run;
  run.n_pat_plot = 1;
  run.t1_lim = r.st.pattern[0].thmin;
  run.t2_lim = r.st.pattern[0].thmax;
  run.pattern_to_plot = false;
  while (!run.pattern_to_plot) {
    const auto line = r.in.any_line();
    if (!line) return true;
    run.pattern_to_plot = line->find("Pattern to plot") != std::string::npos;
  }
  const place at{"pattern to plot"};
  if (!r.in.values(at, "ffi")) return false;
  run.t1_lim = r.in.f(0);
  run.t2_lim = r.in.f(1);
  if (run.n_patt > 1 && r.in.i(2) != 0) run.n_pat_plot = r.in.i(2);
  return r.in.in_range(at, "pattern number", run.n_pat_plot, 1, run.n_patt);
}

void read_pcr(state_type& st) {
  lmix_string_utilities::init_findfmt(st.fmt);
  st.fmt.ierr_fmt = 0;
  const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::control);
  const std::string_view lines = text ? std::string_view(*text) : std::string_view();
  reading r{st, pcr_lines::line_reader(lines, kalvaris_inout::unit::control, st.fmt), st.io.multi_pattern};
  const bool read = read_sections(r);
  echo_lines(st, lines, r.in.lines_taken());
  if (read) st.fmt.ierr_fmt = 0;
}

void finish_reading(state_type& st) {
  for (const kalvaris_params::mix_type& mix : st.mixes) {
    if (st.run.n_patt == 1 && mix.irf == 4) st.pattern[0].lst2 = 0;
  }
  int& lst2 = st.pattern[st.run.n_pat_plot - 1].lst2;
  if (lst2 == 0) lst2 = 4;
}

}  // namespace read_pcr_mod

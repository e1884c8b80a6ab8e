#include "read_pcr_mod.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::parameter_limit;
using kalvaris_params::state_type;
using pcr_lines::place;

namespace {

bool read_sections(reading& r) {
  using section_reader = bool (*)(reading&);
  constexpr std::array<section_reader, 16> sections{read_head,
                                                    read_flags,
                                                    read_data_files,
                                                    read_resolution_files,
                                                    check_limits,
                                                    read_output_flags,
                                                    read_radiation,
                                                    read_cycles,
                                                    read_points_and_regions,
                                                    read_scattering,
                                                    read_global_parameters,
                                                    read_phases,
                                                    read_linear_restraints,
                                                    read_limits,
                                                    read_search,
                                                    read_pattern_to_plot};
  return std::all_of(sections.begin(), sections.end(), [&](section_reader section) { return section(r); });
}

/// A title with the word asks for a copy of the lines that were read, up to the one that was refused.
void echo_lines(state_type& st, std::string_view text, int lines) {
  if (st.io.only_looking || lmix_string_utilities::u_case(st.run.title).find("PRINT_PCR") == std::string::npos) return;
  std::size_t end = 0;
  for (int k = 0; k < lines && end < text.size(); ++k) {
    const std::size_t line_end = text.find('\n', end);
    end = line_end == std::string_view::npos ? text.size() : line_end + 1;
  }
  kalvaris_inout::write_now(st.io, "debug_PCR.lst", std::string(text.substr(0, end)));
}

/// Where a refusal may come from when not from the line that it names.
void tell_out_of_step(const reading& r) {
  const std::string found = r.in.out_of_step();
  if (!found.empty()) r.st.tell({true, "The lines may be out of step: " + found, "Compare the counts with the lines"});
}

/// Text that the flags leave unread.
void tell_left_over(state_type& st, const pcr_lines::record& kept) {
  const kalvaris_params::run_type& run = st.run;
  const std::size_t lines = run.left_over.size() + run.behind_plot.size();
  if (lines == 0) return;
  const auto first = std::ranges::find(kept.lines, pcr_forms::passed_over_name, &pcr_lines::record::line::name);
  const int number = !run.left_over.empty() && first != kept.lines.end() ? first->number : kept.last + 1;
  const std::string& text = run.left_over.empty() ? run.behind_plot.front() : run.left_over.front();
  constexpr std::size_t shown = 40;
  st.tell({false,
           "from line " + std::to_string(number) + " on the control file is not read (" + std::to_string(lines) +
               (lines == 1 ? " line): " : " lines): ") + text.substr(0, shown),
           "The flags ask for nothing there (Nph " + std::to_string(run.flags_read[0]) + ", Nli " +
               std::to_string(run.nlinc) + ", Nre " + std::to_string(run.nrell) + "); the text stays in the file"});
}

bool check_limit(reading& r, const place& at, const parameter_limit& limit) {
  if (limit.number == 0) return limit.vlim1 <= limit.vlim2 || r.in.refuse(at, "lower limit above upper limit");
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

bool read_linear_restraints(reading& r) {
  const place at{pcr_forms::linear_restraint.name};
  for (int k = 0; k < r.st.run.nlinc; ++k) {
    r.in.in_list("Nli", "linear restraints", k + 1, r.st.run.nlinc);
    const auto text = r.in.text(at);
    if (!text) return false;
    const std::string line = pcr_lines::without_comment(*text);
    if (!r.in.values_of(at, line, {pcr_forms::linear_fields})) return false;
    kalvaris_params::linear_restraint restraint;
    restraint.val_lin = r.in.f(0), restraint.sval_lin = r.in.f(1), restraint.n = r.in.i(2);
    constexpr int most = 10;
    const int terms = restraint.n < 0 ? -std::max(restraint.n, -most - 1) : restraint.n;
    if (terms < 1 || terms > most) return r.in.refuse(at, "number of terms must lie in 1..10");
    const pcr_fields::part per_term(pcr_forms::term_fields, terms);
    if (!r.in.values_of(at, line, {pcr_forms::linear_fields, per_term})) return false;
    for (int j = 0; j < terms; ++j) {
      restraint.coef.push_back(r.in.f(3 + 2 * j));
      restraint.para.push_back(r.in.i(4 + 2 * j));
      if (!r.in.in_range(at, "parameter number", restraint.para.back(), 0, r.st.dim.maxparam)) return false;
    }
    restraint.para_read = restraint.para;
    restraint.noapply = restraint.n < 0 || !(restraint.sval_lin > 0.f);
    r.st.run.linear.push_back(std::move(restraint));
  }
  return true;
}

namespace {

bool read_seeds(reading& r, int first_field) {
  r.st.run.search.seed_sa = {r.in.i(first_field), r.in.i(first_field + 1)};
  return true;
}

bool read_monte_carlo(reading& r) {
  kalvaris_params::search_type& s = r.st.run.search;
  if (!r.in.values(pcr_forms::monte_carlo)) return false;
  s.nconfg = r.in.i(0), s.nsolu = r.in.i(1), s.nselr = r.in.i(2), s.nscalef = r.in.i(3);
  constexpr int most_solutions = 10;
  if (s.nsolu > most_solutions) {
    kalvaris_inout::console_line(r.st.io, " Warning! At most 10 solutions of the search are kept");
  }
  s.nsolu = std::clamp(s.nsolu, 1, most_solutions);
  return read_seeds(r, 4);
}

bool read_annealing(reading& r) {
  kalvaris_params::search_type& s = r.st.run.search;
  if (!r.in.values(pcr_forms::annealing)) return false;
  s.t_ini = r.in.f(0), s.anneal = r.in.f(1), s.acceptc = r.in.f(2);
  s.num_temps = r.in.i(3), s.nalgor = r.in.i(4), s.initconfig = r.in.i(5);
  if (!r.in.values(pcr_forms::annealing_more)) return false;
  s.nconfg = r.in.i(0), s.num_therm = r.in.i(1), s.nscalef = r.in.i(2), s.weight_sim = r.in.i(3);
  const kalvaris_params::search_type standard;
  constexpr int standard_configurations = 50;
  if (s.t_ini == 0.f) s.t_ini = standard.t_ini;
  if (!(s.anneal > 0.f && s.anneal < 1.f)) s.anneal = standard.anneal;
  if (s.num_temps == 0) s.num_temps = standard.num_temps;
  if (s.nconfg == 0) s.nconfg = standard_configurations;
  return read_seeds(r, 4);
}

}  // namespace

bool read_search(reading& r) {
  const int engine = std::abs(r.st.run.icryg);
  return engine == 2 ? read_monte_carlo(r) : engine != 3 || read_annealing(r);
}

bool read_limits(reading& r) {
  const place at{pcr_forms::limits.name};
  r.st.run.limits.clear();
  for (int k = 0; k < r.st.run.nrell; ++k) {
    r.in.in_list("Nre", "limits of parameters", k + 1, r.st.run.nrell);
    if (!r.in.values(pcr_forms::limits)) return false;
    parameter_limit limit{r.in.i(0), r.in.f(1), r.in.f(2), r.in.f(3), r.in.i(4), name_behind(r.in.cleaned_line(), 5),
                          r.in.i(0)};
    constexpr float steps_in_a_box = 20.f;
    if (r.st.run.icryg == 3 && !(limit.step > 0.f)) limit.step = (limit.vlim2 - limit.vlim1) / steps_in_a_box;
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
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    const auto& what = run.pattern_to_plot ? pcr_forms::plot_key_fields : pcr_forms::passed_over_fields;
    r.in.words({pcr_forms::passed_over_name}, what, std::array<std::string_view, 1>{*line});
    if (!run.pattern_to_plot) run.left_over.push_back(*line);
  }
  const place at{pcr_forms::pattern_to_plot.name};
  if (!r.in.values(pcr_forms::pattern_to_plot)) return false;
  run.t1_lim = r.in.f(0);
  run.t2_lim = r.in.f(1);
  if (run.n_patt > 1 && r.in.i(2) != 0) run.n_pat_plot = r.in.i(2);
  return r.in.in_range(at, "pattern number", run.n_pat_plot, 1, run.n_patt);
}

void read_pcr(state_type& st, pcr_lines::record* keep) {
  lmix_string_utilities::init_findfmt(st.fmt);
  st.fmt.ierr_fmt = 0;
  const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::control);
  const std::string_view lines = text ? std::string_view(*text) : std::string_view();
  reading r{st, pcr_lines::line_reader(lines, kalvaris_inout::unit::control, st.fmt), st.io.multi_pattern};
  pcr_lines::record own;
  pcr_lines::record& kept = keep != nullptr ? *keep : own;
  r.in.name_slots_of(st);
  r.in.keep(&kept);
  const bool read = read_sections(r);
  kept.last = r.in.lines_taken();
  if (keep == nullptr) echo_lines(st, lines, r.in.lines_taken());
  if (!read) return tell_out_of_step(r);
  st.fmt.ierr_fmt = 0;
  keep_text_of_user(st, lines, kept);
  tell_left_over(st, kept);
}

void finish_reading(state_type& st) {
  const auto modulated = [](const kalvaris_params::phase_type& p) {
    return pcr_layout::kind_of(p) == pcr_layout::jbt::modulated;
  };
  if (std::any_of(st.phase.begin(), st.phase.end(), modulated)) {
    for (kalvaris_params::pattern_type& p : st.pattern) p.pl_prf = 3;  // the other form has no place for the satellites
  }
  for (const kalvaris_params::mix_type& mix : st.mixes) {
    if (st.run.n_patt == 1 && mix.irf == 4) st.pattern[0].lst2 = 0;
  }
  int& lst2 = st.pattern[st.run.n_pat_plot - 1].lst2;
  if (lst2 == 0) lst2 = 4;
}

}  // namespace read_pcr_mod

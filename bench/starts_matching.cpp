#include <array>
#include <cstdio>
#include <iostream>

#include "starts_measures.hpp"

namespace starts_measures {

using starts_bases::read_control;
using starts_bases::scratch;
using starts_judge::base;
using starts_model::control_file;
using starts_run::case_folder;
using starts_run::outcome;
using starts_settings::settings;
namespace fs = std::filesystem;

namespace {

struct matching_result {
  std::array<outcome, 4> runs;  ///< from the refined values, again, from disturbed values, again
};

matching_result match(const settings& s, const case_folder& c, const base& from, const scratch& room) {
  constexpr double cell_factor = 1.001, width_factor = 1.5;
  matching_result result;
  for (const bool disturbed : {false, true}) {
    const fs::path directory = room / (c.name + (disturbed ? "_b" : "_a")), file = directory / (c.name + ".pcr");
    starts_run::copy_inputs(c, directory);
    starts_run::write_text(file, from.control);
    control_file control = read_control(file);
    control.make_profile_matching();
    control.set_cycles(s.cycles);
    starts_run::write_text(file, control.text());
    if (disturbed) {
      control_file other = read_control(file);
      other.change(cell_factor, width_factor);
      starts_run::write_text(file, other.text());
    }
    const std::size_t first = disturbed ? 2 : 0;
    for (const std::size_t i : {first, first + 1}) result.runs[i] = starts_run::run(s.program, directory, c.name);
    fs::remove_all(directory);
  }
  return result;
}

std::string cell_of(const outcome& o, double chi2) {
  std::array<char, 64> text{};
  if (chi2 > 0.0)
    std::snprintf(text.data(), text.size(), "%10.5g %4d %-6s", chi2, o.cycles, o.converged ? "yes" : "no");
  else
    std::snprintf(text.data(), text.size(), "%10s %4d %-6s", "-", o.cycles, "failed");
  return text.data();
}

}  // namespace

bool matching(const settings& s, const scratch& room) {
  std::cout << "program " << s.program.binary.string() << ", profile matching, " << s.cycles << " cycles" << std::endl;
  const auto bases = starts_bases::refine(s, room);
  std::vector<matching_result> results(s.cases.size());
  starts_bases::in_parallel(static_cast<int>(s.cases.size()), s.jobs, [&](int i) {
    const auto u = static_cast<std::size_t>(i);
    if (bases[u].good()) results[u] = match(s, s.cases[u], bases[u], room);
  });
  std::printf("\n%-28s %10s", "case", "structure");
  for (const char* name : {"A", "A again", "B", "B again"}) std::printf(" |%22s", name);
  std::printf("\n");
  for (std::size_t i = 0; i < results.size(); ++i) {
    std::printf("%-28s %10.5g", s.cases[i].name.c_str(), bases[i].result.chi2);
    for (const outcome& o : results[i].runs) std::printf(" |%s", cell_of(o, bases[i].chi2_of(o)).c_str());
    std::printf("\n");
  }
  std::printf(
      "chi-square on the points of the fit with the structure, cycles, converged. A: from the refined values; B: cell "
      "0.1 %% off, widths x1.5\n");
  for (std::size_t i = 0; i < results.size(); ++i)
    for (const outcome& o : results[i].runs)
      if (!o.reason.empty()) std::printf("! %s: %s\n", s.cases[i].name.c_str(), o.reason.c_str());
  return std::ranges::all_of(bases, &base::good);
}

}  // namespace starts_measures

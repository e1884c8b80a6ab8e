#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <sstream>

#include "starts_measures.hpp"

namespace starts_measures {

using starts_bases::read_control;
using starts_bases::scratch;
using starts_judge::base;
using starts_judge::counts;
using starts_judge::optima_table;
using starts_judge::verdict;
using starts_judge::words_of;
using starts_model::control_file;
using starts_run::case_folder;
using starts_run::outcome;
using starts_settings::settings;
namespace fs = std::filesystem;

namespace {

struct start {
  std::size_t case_number = 0, level = 0;
  int number = 0;
  std::uint64_t seed = 0;
  std::string control;  ///< the control file that it starts from
  outcome result;
  double chi2 = 0.0;  ///< on the points of the reference; 0 when it did not end normally
};

/// The stages of a person: each goes on from the result of the one before.
outcome run_in_usual_order(const settings& s, const fs::path& directory, const std::string& code) {
  const fs::path file = directory / (code + ".pcr");
  const control_file full = read_control(file);
  outcome all;
  int free_before = 0;
  for (const starts_model::step step : starts_model::steps) {
    control_file present = read_control(file);
    const int free = present.take_codes(full, step);
    if (free == free_before) continue;
    free_before = free;
    present.set_cycles(s.cycles);
    starts_run::write_text(file, present.text());
    outcome one = starts_run::run(s.program, directory, code);
    one.cycles += all.cycles;
    one.seconds += all.seconds;
    all = one;
    if (all.how != outcome::end::normal) break;
  }
  return all;
}

void run_start(const settings& s, const base& from, const scratch& room, start& it) {
  const case_folder& c = s.cases[it.case_number];
  const auto& level = s.levels[it.level];
  const fs::path directory = room / (c.name + "_" + std::string(level.name) + "_" + std::to_string(it.number));
  const fs::path file = directory / (c.name + ".pcr");
  starts_run::copy_inputs(c, directory);
  starts_run::write_text(file, from.control);
  it.seed = starts_model::seed_of(c.name, level.name, it.number, s.seed);
  starts_model::dice random(it.seed, s.corner);
  control_file control = read_control(file);
  control.disturb(level, random);
  control.set_cycles(s.cycles);
  it.control = control.text();
  starts_run::write_text(file, it.control);
  it.result = s.usual_order ? run_in_usual_order(s, directory, c.name) : starts_run::run(s.program, directory, c.name);
  it.chi2 = from.chi2_of(it.result);
  fs::remove_all(directory);
}

std::vector<start> run_starts(const settings& s, const std::vector<base>& bases, const scratch& room) {
  std::vector<start> all;
  for (std::size_t c = 0; c < s.cases.size(); ++c)
    for (std::size_t l = 0; l < s.levels.size(); ++l)
      for (int n = 1; n <= s.starts && bases[c].good(); ++n) all.push_back({c, l, n, 0, {}, {}, 0.0});
  starts_bases::in_parallel(static_cast<int>(all.size()), s.jobs, [&](int i) {
    start& it = all[static_cast<std::size_t>(i)];
    run_start(s, bases[it.case_number], room, it);
  });
  return all;
}

optima_table find_optima(const settings& s, const std::vector<base>& bases, const std::vector<start>& all) {
  auto table = s.optima.empty() ? optima_table() : optima_table::read(s.optima);
  for (std::size_t c = 0; c < s.cases.size(); ++c) table.take(s.cases[c].name, bases[c].result.chi2);
  for (const start& it : all) table.take(s.cases[it.case_number].name, it.chi2);
  for (std::size_t c = 0; c < s.cases.size(); ++c) {
    const double own = bases[c].result.chi2;
    if (!bases[c].good() || table.of(s.cases[c].name) * starts_judge::reaches >= own) continue;
    std::cout << "! " << s.cases[c].name << ": a chi-square of " << table.of(s.cases[c].name)
              << " was seen, below that of the reference, " << own << '\n';
  }
  if (!s.optima.empty()) table.write(s.optima);
  return table;
}

void print_heading() {
  std::printf("\n%-28s %-8s %6s %8s %7s %6s %6s %7s %7s %8s\n", "case", "level", "starts", "reached%", "cycles", "open",
              "false", "failed", "no end", "s/start");
}

void print_row(const std::string& name, std::string_view level, const counts& n) {
  const int reached = n.of(verdict::reached);
  std::printf("%-28s %-8s %6d %8.1f %7.1f %6d %6d %7d %7d %8.2f\n", name.c_str(), std::string(level).c_str(), n.starts,
              100.0 * reached / std::max(n.starts, 1), n.cycles / std::max(reached, 1), n.open,
              n.of(verdict::false_end), n.of(verdict::failed), n.of(verdict::not_converged),
              n.seconds / std::max(n.starts, 1));
}

void print_table(const settings& s, const std::vector<start>& all, const std::vector<verdict>& verdicts) {
  std::map<std::pair<std::size_t, std::size_t>, counts> by_case;
  std::map<std::size_t, counts> by_level;
  for (std::size_t i = 0; i < all.size(); ++i) {
    by_case[{all[i].case_number, all[i].level}].add(all[i].result, verdicts[i]);
    by_level[all[i].level].add(all[i].result, verdicts[i]);
  }
  print_heading();
  for (const auto& [key, n] : by_case) print_row(s.cases[key.first].name, s.levels[key.second].name, n);
  for (const auto& [level, n] : by_level) print_row("all", s.levels[level].name, n);
  std::printf(
      "cycles: mean of the starts that reach the optimum; open: of them, not converged; false: converged elsewhere;\n"
      "failed: diverged, singular, stopped; no end: neither converged nor there, cycles used up or given up\n");
}

std::string name_of(const settings& s, const start& it) {
  return s.cases[it.case_number].name + "_" + std::string(s.levels[it.level].name) + "_" + std::to_string(it.number);
}

void print_failing(const settings& s, const std::vector<start>& all, const std::vector<verdict>& verdicts,
                   const optima_table& optima) {
  std::printf("\n%-36s %-20s %-13s %6s %12s %10s\n", "start", "seed", "end", "cycles", "chi2", "/optimum");
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (verdicts[i] == verdict::reached) continue;
    const start& it = all[i];
    std::printf("%-40s %-20llu %-13s %6d", name_of(s, it).c_str(), static_cast<unsigned long long>(it.seed),
                words_of(verdicts[i]), it.result.cycles);
    if (verdicts[i] == verdict::failed)
      std::printf("  %s\n", it.result.reason.c_str());
    else
      std::printf(" %12.5g %10.4g\n", it.chi2, it.chi2 / optima.of(s.cases[it.case_number].name));
  }
}

void keep_failing(const settings& s, const std::vector<start>& all, const std::vector<verdict>& verdicts) {
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (verdicts[i] == verdict::reached) continue;
    const case_folder& c = s.cases[all[i].case_number];
    const fs::path directory = s.keep / name_of(s, all[i]);
    starts_run::copy_inputs(c, directory);
    starts_run::write_text(directory / (c.name + ".pcr"), all[i].control);
  }
}

void write_record(const settings& s, const std::vector<start>& all, const std::vector<verdict>& verdicts) {
  std::ostringstream text;
  text << "start\tseed\tend\tconverged\tchi2\tchi2 listed\tcycles\tseconds\n";
  for (std::size_t i = 0; i < all.size(); ++i) {
    const outcome& o = all[i].result;
    text << name_of(s, all[i]) << '\t' << all[i].seed << '\t' << words_of(verdicts[i]) << '\t' << o.converged << '\t'
         << all[i].chi2 << '\t' << o.chi2 << '\t' << o.cycles << '\t' << o.seconds << '\n';
  }
  starts_run::write_text(s.record, text.str());
}

}  // namespace

bool convergence(const settings& s, const scratch& room) {
  std::cout << "program " << s.program.binary.string() << ", order " << (s.usual_order ? "usual" : "at once") << ", "
            << s.starts << " starts a level" << (s.corner ? " at the corners" : "") << ", seed " << s.seed << ", "
            << s.cycles << " cycles" << (s.usual_order ? " a stage" : "") << std::endl;
  const auto bases = starts_bases::refine(s, room);
  const auto all = run_starts(s, bases, room);
  const auto optima = find_optima(s, bases, all);
  std::vector<verdict> verdicts;
  for (const start& it : all)
    verdicts.push_back(starts_judge::judge(it.chi2, it.result.converged, optima.of(s.cases[it.case_number].name)));
  print_table(s, all, verdicts);
  if (s.list) print_failing(s, all, verdicts, optima);
  if (!s.keep.empty()) keep_failing(s, all, verdicts);
  if (!s.record.empty()) write_record(s, all, verdicts);
  return std::ranges::all_of(bases, &base::good);
}

}  // namespace starts_measures

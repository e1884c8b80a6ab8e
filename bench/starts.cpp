// How surely refinements of a program converge from starts beside the optimum, to compare one program with another.
//   kalvaris_starts PROGRAM CASE_DIR... [options]        (kalvaris_starts --help lists them)
// Each case is refined to its end by a reference program; the refined control file is disturbed at random, by seeds
// that depend on case, level and number of the start only, and refined by PROGRAM. The table tells how many starts
// reach the smallest chi-square seen, in how many cycles, and how the others end.
// --matching: instead, each case as profile matching from the refined values and from disturbed ones, each run twice.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "starts_model.hpp"
#include "starts_run.hpp"

namespace {

namespace fs = std::filesystem;
using starts_model::control_file;
using starts_run::case_folder;
using starts_run::outcome;

constexpr double reaches = 1.01;          ///< a start within this factor of the optimum has reached it
constexpr int cycles_of_reference = 100;  ///< enough for a case to come to its end

struct settings {
  starts_run::program program, reference;
  std::vector<case_folder> cases;
  std::vector<starts_model::level> levels{starts_model::levels.begin(), starts_model::levels.end()};
  int starts = 20, cycles = 30, seed = 1, jobs = 2;
  bool usual_order = false, corner = false, list = false, matching = false;
  fs::path optima, keep, record;
};

// ---- command line
// ----------------------------------------------------------------------------------------------------

[[noreturn]] void refuse(const std::string& words) { throw std::invalid_argument(words); }

int positive(const std::string& option, const std::string& word) {
  char* end = nullptr;
  const long value = std::strtol(word.c_str(), &end, 10);
  if (word.empty() || *end != '\0' || value < 1 || value > 100000) refuse(option + " wants a number above 0");
  return static_cast<int>(value);
}

std::vector<std::string> words_of(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream source(text);
  for (std::string word; std::getline(source, word, separator);)
    if (!word.empty()) words.push_back(word);
  return words;
}

std::vector<starts_model::level> levels_of(const std::string& names) {
  std::vector<starts_model::level> found;
  for (const std::string& name : words_of(names, ',')) {
    const auto row = std::ranges::find(starts_model::levels, name, &starts_model::level::name);
    if (row == starts_model::levels.end()) refuse("no level " + name);
    found.push_back(*row);
  }
  if (found.empty()) refuse("--levels wants names");
  return found;
}

struct option_row {
  const char* name;
  const char* value;  ///< what stands behind it, blank for a switch
  const char* text;
  void (*take)(settings&, const std::string& word);
};
const std::array option_rows{
    option_row{"--order", "WORD",
               "at-once (all parameters free) or usual (scale and background; zero and cell; profile; all)",
               [](settings& s, const std::string& w) {
                 if (w != "at-once" && w != "usual") refuse("--order is at-once or usual");
                 s.usual_order = w == "usual";
               }},
    option_row{"--starts", "N", "starts of each case and level [20]",
               [](settings& s, const std::string& w) { s.starts = positive("--starts", w); }},
    option_row{"--levels", "LIST", "of near,typical,far [all]",
               [](settings& s, const std::string& w) { s.levels = levels_of(w); }},
    option_row{"--corner", "", "every disturbance at the full level, its sign at random",
               [](settings& s, const std::string&) { s.corner = true; }},
    option_row{"--cycles", "N", "cycles of a run [30]",
               [](settings& s, const std::string& w) { s.cycles = positive("--cycles", w); }},
    option_row{"--seed", "N", "another set of starts [1]",
               [](settings& s, const std::string& w) { s.seed = positive("--seed", w); }},
    option_row{"--reference", "PROGRAM", "refines the undisturbed cases [PROGRAM]",
               [](settings& s, const std::string& w) { s.reference.binary = w; }},
    option_row{"--options", "WORDS", "in front of the code, for PROGRAM",
               [](settings& s, const std::string& w) { s.program.options = words_of(w, ' '); }},
    option_row{"--optima", "FILE", "smallest chi-squares, shared between invocations: read, and rewritten",
               [](settings& s, const std::string& w) { s.optima = w; }},
    option_row{"--list", "", "each start that fails, with its seed and chi-square",
               [](settings& s, const std::string&) { s.list = true; }},
    option_row{"--keep", "DIR", "a folder for each start that fails, ready to be run",
               [](settings& s, const std::string& w) { s.keep = w; }},
    option_row{"--record", "FILE", "one line per start, separated by tabs",
               [](settings& s, const std::string& w) { s.record = w; }},
    option_row{"--jobs", "N", "runs at a time [2]",
               [](settings& s, const std::string& w) { s.jobs = positive("--jobs", w); }},
    option_row{
        "--timeout", "SECONDS", "of a run [60]",
        [](settings& s, const std::string& w) { s.program.timeout = s.reference.timeout = positive("--timeout", w); }},
    option_row{"--matching", "", "profile matching of each case instead of starts",
               [](settings& s, const std::string&) { s.matching = true; }},
};

std::string usage() {
  std::string text = "kalvaris_starts PROGRAM CASE_DIR... [options]\n";
  for (const option_row& row : option_rows) {
    std::string head = std::string("  ") + row.name + " " + row.value;
    head.resize(std::max<std::size_t>(head.size() + 1, 24), ' ');
    text += head + row.text + "\n";
  }
  return text;
}

case_folder case_of(const std::string& word) {
  fs::path path = fs::absolute(word).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  const std::string name = path.filename().string();
  if (!fs::is_regular_file(path / (name + ".pcr"))) refuse("no control file " + (path / (name + ".pcr")).string());
  return {name, path};
}

settings read_arguments(const std::vector<std::string>& arguments) {
  settings s;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto row = std::ranges::find_if(option_rows, [&](const auto& r) { return arguments[i] == r.name; });
    if (row == option_rows.end()) {
      if (arguments[i].starts_with("--")) refuse("no option " + arguments[i]);
      words.push_back(arguments[i]);
      continue;
    }
    const bool wants_word = *row->value != '\0';
    if (wants_word && i + 1 == arguments.size()) refuse(arguments[i] + " wants " + row->value);
    row->take(s, wants_word ? arguments[++i] : std::string());
  }
  if (words.size() < 2) refuse("a program and a case are wanted");
  s.program.binary = words.front();
  if (s.reference.binary.empty()) s.reference.binary = s.program.binary;
  for (fs::path* binary : {&s.program.binary, &s.reference.binary}) {
    *binary = fs::absolute(*binary);
    if (!fs::is_regular_file(*binary)) refuse("no program " + binary->string());
  }
  for (std::size_t i = 1; i < words.size(); ++i) s.cases.push_back(case_of(words[i]));
  return s;
}

// ---- runs
// ------------------------------------------------------------------------------------------------------------

/// A directory for all runs, gone at the end.
class scratch {
 public:
  scratch() : path_(fs::temp_directory_path() / ("kalvaris_starts_" + std::to_string(getpid()))) {
    fs::create_directories(path_);
  }
  ~scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  scratch(const scratch&) = delete;
  scratch& operator=(const scratch&) = delete;
  [[nodiscard]] fs::path operator/(const std::string& name) const { return path_ / name; }

 private:
  fs::path path_;
};

/// Calls job(0) ... job(count - 1), so many at a time.
template <class function>
void in_parallel(int count, int at_a_time, const function& job) {
  std::atomic<int> next{0};
  std::exception_ptr failure;
  std::mutex guard;
  std::vector<std::thread> workers;
  for (int k = 0; k < at_a_time; ++k)
    workers.emplace_back([&] {
      for (int i = next++; i < count; i = next++) try {
          job(i);
        } catch (...) {
          const std::lock_guard lock(guard);
          if (!failure) failure = std::current_exception();
          next = count;
        }
    });
  for (std::thread& worker : workers) worker.join();
  if (failure) std::rethrow_exception(failure);
}

control_file read_control(const fs::path& file) {
  control_file control(file);
  if (!control.refusal().empty()) throw std::runtime_error(file.string() + ": " + control.refusal());
  return control;
}

/// A case refined to its end.
struct base {
  outcome result;
  std::string control;          ///< its control file
  std::vector<double> weights;  ///< of the patterns
  [[nodiscard]] bool good() const { return result.how == outcome::end::normal && result.chi2 > 0.0; }
  [[nodiscard]] double chi2_of(const outcome& o) const;
};

/// The joint chi-square of another run on the points that lie under the reflections of this one. That of a listing
/// counts the points under its own reflections, which depend on the widths, with Ias 0 on those of the start: runs that
/// end with the same model differ by per cents. All points have the same weighted sum of squares in both.
double base::chi2_of(const outcome& o) const {
  if (o.how != outcome::end::normal || o.fits.size() != result.fits.size()) return 0.0;
  double chi2 = result.chi2;
  for (std::size_t ip = 0; ip < weights.size() && ip < o.fits.size(); ++ip)
    chi2 += weights[ip] * (o.fits[ip].residual - result.fits[ip].residual) / result.fits[ip].freedom;
  return chi2;
}

base refine_base(const settings& s, const case_folder& c, const scratch& room) {
  const fs::path directory = room / (c.name + "_base"), file = directory / (c.name + ".pcr");
  starts_run::copy_inputs(c, directory);
  fs::copy_file(c.path / (c.name + ".pcr"), file);
  control_file control = read_control(file);
  control.set_cycles(cycles_of_reference);
  starts_run::write_text(file, control.text());
  base b;
  for (const auto& p : control.state().pattern) b.weights.push_back(static_cast<double>(p.w_pat));
  b.result = starts_run::run(s.reference, directory, c.name);
  b.control = starts_run::text_of(file);
  fs::remove_all(directory);
  return b;
}

std::vector<base> refine_bases(const settings& s, const scratch& room) {
  std::vector<base> bases(s.cases.size());
  in_parallel(static_cast<int>(s.cases.size()), s.jobs, [&](int i) {
    const auto u = static_cast<std::size_t>(i);
    bases[u] = refine_base(s, s.cases[u], room);
  });
  for (std::size_t i = 0; i < bases.size(); ++i) {
    const std::string& name = s.cases[i].name;
    if (!bases[i].good()) {
      std::cout << "! " << name << ": the reference did not end normally: " << bases[i].result.reason << '\n';
    } else if (!bases[i].result.converged) {
      std::cout << "! " << name << ": the reference did not converge in " << cycles_of_reference << " cycles\n";
    }
  }
  return bases;
}

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
  in_parallel(static_cast<int>(all.size()), s.jobs, [&](int i) {
    start& it = all[static_cast<std::size_t>(i)];
    run_start(s, bases[it.case_number], room, it);
  });
  return all;
}

// ---- optima
// ----------------------------------------------------------------------------------------------------------

using optima_table = std::map<std::string, double>;

optima_table read_optima(const fs::path& file) {
  optima_table table;
  std::istringstream lines(file.empty() ? std::string() : starts_run::text_of(file));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    double chi2 = 0.0;
    if (!(words >> name >> chi2) || !(chi2 > 0.0)) refuse("not a line of optima: " + line);
    table[name] = chi2;
  }
  return table;
}

void write_optima(const fs::path& file, const optima_table& table) {
  if (file.empty()) return;
  std::ostringstream text;
  text.precision(8);
  for (const auto& [name, chi2] : table) text << name << ' ' << chi2 << '\n';
  starts_run::write_text(file, text.str());
}

optima_table find_optima(const settings& s, const std::vector<base>& bases, const std::vector<start>& all) {
  optima_table table = read_optima(s.optima);
  const auto take = [&](const std::string& name, double chi2) {
    const auto row = table.try_emplace(name, chi2).first;
    if (chi2 < row->second) row->second = chi2;
  };
  for (std::size_t c = 0; c < s.cases.size(); ++c)
    if (bases[c].good()) take(s.cases[c].name, bases[c].result.chi2);
  for (const start& it : all)
    if (it.chi2 > 0.0) take(s.cases[it.case_number].name, it.chi2);
  for (std::size_t c = 0; c < s.cases.size(); ++c) {
    if (!bases[c].good()) continue;
    const double best = table.at(s.cases[c].name);
    if (best * reaches < bases[c].result.chi2)
      std::cout << "! " << s.cases[c].name << ": a chi-square of " << best << " was seen, below that of the reference, "
                << bases[c].result.chi2 << '\n';
  }
  write_optima(s.optima, table);
  return table;
}

// ---- tables
// ----------------------------------------------------------------------------------------------------------

enum class verdict { reached, false_end, failed, out_of_cycles };
constexpr std::array verdict_words{"reached", "false end", "failed", "out of cycles"};

verdict judge(const start& it, double optimum) {
  if (!(it.chi2 > 0.0)) return verdict::failed;
  if (it.chi2 < reaches * optimum) return verdict::reached;
  return it.result.converged ? verdict::false_end : verdict::out_of_cycles;
}

struct counts {
  int starts = 0, open = 0;
  std::array<int, 4> by_verdict{};
  double cycles = 0.0, seconds = 0.0;

  [[nodiscard]] int of(verdict v) const { return by_verdict[static_cast<std::size_t>(v)]; }
  void add(const outcome& o, verdict v) {
    ++starts;
    ++by_verdict[static_cast<std::size_t>(v)];
    seconds += o.seconds;
    if (v != verdict::reached) return;
    cycles += o.cycles;
    open += o.converged ? 0 : 1;
  }
};

void print_heading() {
  std::printf("\n%-22s %-8s %6s %8s %7s %6s %6s %7s %7s %8s\n", "case", "level", "starts", "reached%", "cycles", "open",
              "false", "failed", "out of", "s/start");
}

void print_row(const std::string& name, std::string_view level, const counts& n) {
  const int reached = n.of(verdict::reached);
  std::printf("%-22s %-8s %6d %8.1f %7.1f %6d %6d %7d %7d %8.2f\n", name.c_str(), std::string(level).c_str(), n.starts,
              100.0 * reached / std::max(n.starts, 1), n.cycles / std::max(reached, 1), n.open,
              n.of(verdict::false_end), n.of(verdict::failed), n.of(verdict::out_of_cycles),
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
      "failed: diverged, singular, stopped; out of: cycles used up elsewhere\n");
}

std::string name_of(const settings& s, const start& it) {
  return s.cases[it.case_number].name + "_" + std::string(s.levels[it.level].name) + "_" + std::to_string(it.number);
}

void print_failing(const settings& s, const std::vector<start>& all, const std::vector<verdict>& verdicts,
                   const optima_table& optima) {
  std::printf("\n%-36s %-20s %-13s %12s %10s %6s\n", "start", "seed", "end", "chi2", "/optimum", "cycles");
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (verdicts[i] == verdict::reached) continue;
    const outcome& o = all[i].result;
    std::printf("%-36s %-20llu %-13s %12.5g %10.4g %6d  %s\n", name_of(s, all[i]).c_str(),
                static_cast<unsigned long long>(all[i].seed), verdict_words[static_cast<std::size_t>(verdicts[i])],
                all[i].chi2, all[i].chi2 / optima.at(s.cases[all[i].case_number].name), o.cycles, o.reason.c_str());
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
    text << name_of(s, all[i]) << '\t' << all[i].seed << '\t' << verdict_words[static_cast<std::size_t>(verdicts[i])]
         << '\t' << o.converged << '\t' << all[i].chi2 << '\t' << o.chi2 << '\t' << o.cycles << '\t' << o.seconds
         << '\n';
  }
  starts_run::write_text(s.record, text.str());
}

bool measure_starts(const settings& s, const scratch& room) {
  std::cout << "program " << s.program.binary.string() << ", order " << (s.usual_order ? "usual" : "at once") << ", "
            << s.starts << " starts a level" << (s.corner ? " at the corners" : "") << ", seed " << s.seed << ", "
            << s.cycles << " cycles" << (s.usual_order ? " a stage" : "") << std::endl;
  const auto bases = refine_bases(s, room);
  const auto all = run_starts(s, bases, room);
  const auto optima = find_optima(s, bases, all);
  std::vector<verdict> verdicts;
  for (const start& it : all) verdicts.push_back(judge(it, optima.at(s.cases[it.case_number].name)));
  print_table(s, all, verdicts);
  if (s.list) print_failing(s, all, verdicts, optima);
  if (!s.keep.empty()) keep_failing(s, all, verdicts);
  if (!s.record.empty()) write_record(s, all, verdicts);
  return std::ranges::all_of(bases, &base::good);
}

// ---- profile matching
// ------------------------------------------------------------------------------------------------

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

std::string cell_of(const outcome& o) {
  char text[64];
  const char* end = o.how != outcome::end::normal ? "failed" : o.converged ? "yes" : "no";
  std::snprintf(text, sizeof text, "%10.5g %4d %-6s", o.chi2, o.cycles, end);
  return text;
}

bool measure_matching(const settings& s, const scratch& room) {
  std::cout << "program " << s.program.binary.string() << ", profile matching, " << s.cycles << " cycles" << std::endl;
  const auto bases = refine_bases(s, room);
  std::vector<matching_result> results(s.cases.size());
  in_parallel(static_cast<int>(s.cases.size()), s.jobs, [&](int i) {
    const auto u = static_cast<std::size_t>(i);
    if (bases[u].good()) results[u] = match(s, s.cases[u], bases[u], room);
  });
  std::printf("\n%-22s %10s", "case", "structure");
  for (const char* name : {"A", "A again", "B", "B again"}) std::printf(" |%22s", name);
  std::printf("\n");
  for (std::size_t i = 0; i < results.size(); ++i) {
    std::printf("%-22s %10.5g", s.cases[i].name.c_str(), bases[i].result.chi2);
    for (const outcome& o : results[i].runs) std::printf(" |%s", cell_of(o).c_str());
    std::printf("\n");
  }
  std::printf("chi-square, cycles, converged. A: from the refined values; B: cell 0.1 %% off, widths x1.5\n");
  for (std::size_t i = 0; i < results.size(); ++i)
    for (const outcome& o : results[i].runs)
      if (!o.reason.empty()) std::printf("! %s: %s\n", s.cases[i].name.c_str(), o.reason.c_str());
  return std::ranges::all_of(bases, &base::good);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (std::ranges::find(arguments, "--help") != arguments.end()) return std::cout << usage(), 0;
  unsetenv("KALVARIS");
  constexpr int politeness = 10;
  if (nice(politeness) < 0) std::cerr << "the runs take their turn like all others\n";
  try {
    const settings s = read_arguments(arguments);
    const scratch room;
    return (s.matching ? measure_matching(s, room) : measure_starts(s, room)) ? 0 : 1;
  } catch (const std::invalid_argument& refused) {
    std::cerr << refused.what() << '\n' << usage();
    return 2;
  } catch (const std::exception& failed) {
    std::cerr << failed.what() << '\n';
    return 1;
  }
}

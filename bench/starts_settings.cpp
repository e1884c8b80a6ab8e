#include "starts_settings.hpp"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace starts_settings {

namespace fs = std::filesystem;
using starts_run::case_folder;

namespace {

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
        "--timeout", "SECONDS", "of a run, time of the processor [60]",
        [](settings& s, const std::string& w) { s.program.timeout = s.reference.timeout = positive("--timeout", w); }},
    option_row{"--matching", "", "profile matching of each case instead of starts",
               [](settings& s, const std::string&) { s.matching = true; }},
};

case_folder case_of(const std::string& word) {
  fs::path path = fs::absolute(word).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  const std::string name = path.filename().string();
  if (!fs::is_regular_file(path / (name + ".pcr"))) refuse("no control file " + (path / (name + ".pcr")).string());
  return {name, path};
}

void add_case(settings& s, case_folder c) {
  if (std::ranges::find(s.cases, c.name, &case_folder::name) != s.cases.end())
    refuse("two cases of the name " + c.name);
  s.cases.push_back(std::move(c));
}

}  // namespace

std::string usage() {
  std::string text = "kalvaris_starts PROGRAM CASE_DIR... [options]\n";
  for (const option_row& row : option_rows) {
    std::string head = std::string("  ") + row.name + " " + row.value;
    head.resize(std::max<std::size_t>(head.size() + 1, 24), ' ');
    text += head + row.text + "\n";
  }
  return text;
}

settings read(const std::vector<std::string>& arguments) {
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
  for (std::size_t i = 1; i < words.size(); ++i) add_case(s, case_of(words[i]));
  return s;
}

}  // namespace starts_settings

// Whole runs of the program inside the test's process: a directory with copies of a case, changes to its files, the
// run.
#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"

namespace program_run {

namespace fs = std::filesystem;

fs::path truth_root();    ///< the cases of known truth
fs::path example_root();  ///< the examples that come with the program

/// The cases of known truth by name, and the directory of each; the example is one of them.
std::vector<std::string> case_names();
std::vector<std::string> exact_case_names();  ///< those with a noise-free pattern: the example has none
fs::path case_directory(const std::string& name);

std::string text_of(const fs::path& file);
void write_text(const fs::path& file, std::string_view text);
std::vector<std::string> lines_of(std::string_view text);
std::string join(const std::vector<std::string>& lines);
/// The text with the first `from` replaced; a text that does not hold it fails the test.
std::string with(std::string text, std::string_view from, std::string_view to);
/// Index of the first line that holds the words; a text that does not hold them fails the test.
std::size_t line_with(const std::vector<std::string>& lines, std::string_view words);
/// The file with blank-separated word `word` (0-based) of the line `below` lines below the first one with `words`
/// replaced.
std::string with_word(std::string_view text, std::string_view words, std::size_t below, std::size_t word,
                      std::string_view value);

/// What a run by the command line left behind.
struct outcome {
  int status = -1;
  std::string console, errors;
  [[nodiscard]] std::string words() const { return console + errors; }
  [[nodiscard]] std::string last_words() const;  ///< the end of the console and all of standard error
};

/// A directory of its own for each test, filled from a case, removed at the end. Runs see no environment of the user.
class directory {
 public:
  directory();
  explicit directory(const std::string& case_name);
  ~directory();
  directory(const directory&) = delete;
  directory& operator=(const directory&) = delete;

  [[nodiscard]] fs::path file(std::string_view name) const { return path_ / name; }
  [[nodiscard]] std::string get(std::string_view name) const { return text_of(file(name)); }
  void put(std::string_view name, std::string_view text) const { write_text(file(name), text); }
  [[nodiscard]] bool has(std::string_view name) const { return fs::exists(file(name)); }
  [[nodiscard]] std::vector<std::string> names() const;  ///< of all files, sorted

  /// As the program does it, from the words behind the code on; options in front.
  [[nodiscard]] outcome run(const std::string& code, const std::string& data = "",
                            const std::vector<std::string>& options = {}) const;

  /// One run whose state is kept. before_final is called after the cycles with the state that they left.
  struct kept_run {
    std::unique_ptr<kalvaris_params::state_type> state;
    bool reached_end = false;  ///< the run was neither stopped nor ended abnormally
    std::string console;
  };
  [[nodiscard]] kept_run run_and_keep(
      const std::string& code, const std::string& data = "",
      const std::function<void(const kalvaris_params::state_type&)>& before_final = {}) const;

 private:
  fs::path path_;
};

}  // namespace program_run

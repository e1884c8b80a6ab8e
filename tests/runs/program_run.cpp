#include "program_run.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "command_line.hpp"
#include "floating_point.hpp"
#include "program_stages.hpp"
#include "run_names.hpp"

namespace program_run {

namespace {

constexpr std::string_view example = "corundum_fluorite";

/// Standard error goes to a text for as long as this lives.
class error_text {
 public:
  error_text() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
  ~error_text() { std::cerr.rdbuf(before_); }
  error_text(const error_text&) = delete;
  error_text& operator=(const error_text&) = delete;
  [[nodiscard]] std::string str() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

}  // namespace

fs::path truth_root() { return fs::path(KV_SOURCE_DIR) / "tests" / "runs" / "truth"; }
fs::path example_root() { return fs::path(KV_SOURCE_DIR) / "examples"; }

std::vector<std::string> case_names() {
  std::vector<std::string> names{std::string(example)};
  for (const auto& entry : fs::directory_iterator(truth_root()))
    if (fs::exists(entry.path() / "truth.txt")) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> exact_case_names() {
  auto names = case_names();
  std::erase(names, example);
  return names;
}

fs::path case_directory(const std::string& name) { return (name == example ? example_root() : truth_root()) / name; }

std::string text_of(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

void write_text(const fs::path& file, std::string_view text) { std::ofstream(file, std::ios::binary) << text; }

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const auto end = std::min(text.find('\n', at), text.size());
    lines.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::string join(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

std::string with(std::string text, std::string_view from, std::string_view to) {
  const auto at = text.find(from);
  if (at == std::string::npos) {
    ADD_FAILURE() << "the file does not hold " << from;
    return text;
  }
  return text.replace(at, from.size(), to);
}

std::size_t line_with(const std::vector<std::string>& lines, std::string_view words) {
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (lines[i].find(words) != std::string::npos) return i;
  ADD_FAILURE() << "the file does not hold " << words;
  return 0;
}

std::string with_word(std::string_view text, std::string_view words, std::size_t below, std::size_t word,
                      std::string_view value) {
  auto lines = lines_of(text);
  std::string& line = lines.at(line_with(lines, words) + below);
  std::istringstream source(line);
  std::vector<std::string> parts;
  for (std::string part; source >> part;) parts.push_back(part);
  parts.at(word) = value;
  line.clear();
  for (const std::string& part : parts) line += " " + part;
  return join(lines);
}

std::string outcome::last_words() const {
  constexpr std::size_t enough = 1000;
  return console.substr(console.size() - std::min(console.size(), enough)) + errors;
}

directory::directory() {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string("kv_runs_") + test->test_suite_name() + "_" + test->name();
  std::replace(name.begin(), name.end(), '/', '_');
  path_ = fs::temp_directory_path() / (name + "_" + std::to_string(getpid()));
  fs::remove_all(path_);
  fs::create_directories(path_);
  unsetenv("KALVARIS");
}

directory::directory(const std::string& case_name) : directory() {
  for (const auto& entry : fs::directory_iterator(case_directory(case_name)))
    if (entry.is_regular_file()) fs::copy_file(entry.path(), path_ / entry.path().filename());
}

directory::~directory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::vector<std::string> directory::names() const {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator(path_)) found.push_back(entry.path().filename().string());
  std::sort(found.begin(), found.end());
  return found;
}

outcome directory::run(const std::string& code, const std::string& data,
                       const std::vector<std::string>& options) const {
  floating_point::flush_denormals();
  std::vector<std::string> arguments = options;
  arguments.push_back(file(code).string());
  if (!data.empty()) arguments.push_back(data);
  std::ostringstream console;
  outcome result;
  const error_text errors;
  result.status = command_line::run(arguments, program_stages::stages(), "test", console, std::cerr);
  result.console = console.str();
  result.errors = errors.str();
  return result;
}

directory::kept_run directory::run_and_keep(
    const std::string& code, const std::string& data,
    const std::function<void(const kalvaris_params::state_type&)>& before_final) const {
  floating_point::flush_denormals();
  kept_run result;
  result.state = std::make_unique<kalvaris_params::state_type>();
  std::ostringstream console;
  result.state->io.console = &console;
  run_names::set_names(result.state->io, file(code).string(), data);
  kalvaris_sub::run_stages stages = program_stages::stages();
  const auto final_stage = stages.final_calcn_output;
  stages.final_calcn_output = [&](kalvaris_params::state_type& st) {
    if (before_final) before_final(st);
    final_stage(st);
  };
  const error_text errors;
  try {
    result.reached_end = kalvaris_sub::kalvaris(*result.state, stages) != kalvaris_sub::run_end::abnormal;
  } catch (const kalvaris_inout::run_stopped&) {
    result.reached_end = false;
  }
  result.console = console.str() + errors.str();
  result.state->io.console = nullptr;
  return result;
}

}  // namespace program_run

#include "starts_run.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace starts_run {

namespace {

constexpr const char* console_name = "starts_console.txt";
constexpr int place_of_residual = 5;  ///< in the line of sums of the listing

struct process_end {
  int status = 0;
  bool timed_out = false;
  double seconds = 0.0;
};

double seconds_of(const rusage& used) {
  const auto time = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return time(used.ru_utime) + time(used.ru_stime);
}

/// Waits for the process, which is killed when it takes too long: by the time of its processor, since other work makes
/// the runs wait, and long after that by the clock, since a process that hangs takes no time of the processor.
process_end wait_for(pid_t process, double timeout) {
  using clock = std::chrono::steady_clock;
  constexpr double waiting = 10.0;
  const auto seconds = static_cast<rlim_t>(std::ceil(timeout));
  const rlimit limit{seconds, seconds + 1};
  if (prlimit(process, RLIMIT_CPU, &limit, nullptr) != 0 && errno != ESRCH)
    throw std::runtime_error("the time of a run cannot be limited");
  const auto latest = clock::now() + std::chrono::duration<double>(waiting * timeout);
  process_end end;
  rusage used{};
  for (;;) {
    const pid_t done = wait4(process, &end.status, end.timed_out ? 0 : WNOHANG, &used);
    if (done == process) break;
    if (done < 0 && errno != EINTR) throw std::runtime_error("a run was lost");
    if (!end.timed_out && clock::now() > latest) {
      kill(process, SIGKILL);
      end.timed_out = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  end.timed_out = end.timed_out || (WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGXCPU);
  end.seconds = seconds_of(used);
  return end;
}

pid_t start(const std::vector<std::string>& words, const fs::path& console) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, console.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t process = 0;
  const int failed = posix_spawn(&process, words.front().c_str(), &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (failed != 0) throw std::runtime_error(words.front() + ": " + std::strerror(failed));
  return process;
}

/// The number behind the last `words` of the line, if it holds them.
std::optional<double> number_behind(std::string_view line, std::string_view words) {
  const auto found = line.find(words);
  if (found == std::string_view::npos) return std::nullopt;
  return std::strtod(std::string(line.substr(found + words.size())).c_str(), nullptr);
}

/// The last line that says why the cycles did not go on.
std::string reason_in(const std::string& console) {
  constexpr std::array<std::string_view, 6> tells{"ivergence", "DIVERGENCE", "ingular", "STOP", "Too few", "rror"};
  std::istringstream lines(console);
  std::string reason;
  for (std::string line; std::getline(lines, line);) {
    const bool says = std::ranges::any_of(tells, [&](auto words) { return line.find(words) != std::string::npos; });
    if (says) reason = line;
  }
  reason.erase(0, std::min(reason.size(), reason.find_first_not_of(" =>!")));
  return reason;
}

}  // namespace

std::string text_of(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

void write_text(const fs::path& file, std::string_view text) {
  std::ofstream out(file, std::ios::binary);
  out << text;
  out.close();
  if (!out) throw std::runtime_error("cannot write " + file.string());
}

void copy_inputs(const case_folder& from, const fs::path& to) {
  constexpr std::array results{".out", ".sum", ".prf", ".new", ".pcr", ".mic", ".ref", ".json"};
  fs::create_directories(to);
  for (const auto& entry : fs::directory_iterator(from.path)) {
    const std::string extension = entry.path().extension().string();
    if (!entry.is_regular_file() || std::ranges::find(results, extension) != results.end()) continue;
    fs::copy_file(entry.path(), to / entry.path().filename(), fs::copy_options::overwrite_existing);
  }
}

listed read_listing(std::string_view text) {
  enum class block { none, all_points, bragg };
  listed found;
  block in = block::none;
  std::size_t pattern = 0;
  bool sums_follow = false;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    if (sums_follow) {
      std::istringstream numbers(line);
      for (int i = 0; i < place_of_residual; ++i) numbers >> found.fits[pattern].residual;
    }
    for (const auto& [words, kind] : {std::pair{"WITH ALL NON-EXCLUDED POINTS FOR PATTERN:", block::all_points},
                                      std::pair{"WITH BRAGG CONTRIBUTIONS FOR PATTERN:", block::bragg}})
      if (const auto n = number_behind(line, words); n && *n >= 1.0) {
        in = kind, pattern = static_cast<std::size_t>(*n) - 1;
        if (found.fits.size() <= pattern) found.fits.resize(pattern + 1);
      }
    sums_follow = in == block::all_points && line.find("SumYdif") != std::string::npos;
    if (const auto n = number_behind(line, "N-P+C:"); n && in == block::bragg) found.fits[pattern].freedom = *n;
    if (const auto n = number_behind(line, "CYCLE No.:")) found.cycles = static_cast<int>(*n);
    if (const auto n = number_behind(line, "Global Chi2 (Bragg contrib.):")) found.chi2 = *n;
    found.converged = found.converged || line.find("Convergence reached") != std::string::npos;
  }
  return found;
}

outcome run(const program& with, const fs::path& directory, const std::string& code) {
  const auto file = [&](std::string_view extension) { return directory / (code + std::string(extension)); };
  for (const std::string_view old : {".out", ".sum", ".new"}) fs::remove(file(old));
  std::vector<std::string> words{with.binary.string()};
  words.insert(words.end(), with.options.begin(), with.options.end());
  words.push_back(file("").string());
  const fs::path console = directory / console_name;
  const process_end end = wait_for(start(words, console), with.timeout);

  outcome result;
  result.seconds = end.seconds;
  listed told = read_listing(text_of(file(".out")));
  result.chi2 = told.chi2, result.fits = std::move(told.fits);
  result.cycles = told.cycles, result.converged = told.converged;
  const std::string summary = text_of(file(".sum"));
  const bool complete = summary.find("Global Chi2 of the last listing") != std::string::npos;
  if (const auto n = number_behind(summary, "No. of cycles:")) result.cycles = static_cast<int>(*n);
  using how = outcome::end;
  const bool good_status = WIFEXITED(end.status) && WEXITSTATUS(end.status) == 0;
  result.how = end.timed_out ? how::timed_out : !good_status ? how::stopped : complete ? how::normal : how::abnormal;
  if (result.how != how::normal) result.reason = end.timed_out ? "timeout" : reason_in(text_of(console));
  if (result.how == how::stopped && result.reason.empty()) {
    const bool killed = WIFSIGNALED(end.status);
    result.reason =
        (killed ? "signal " : "status ") + std::to_string(killed ? WTERMSIG(end.status) : WEXITSTATUS(end.status));
  }
  if (fs::exists(file(".new"))) fs::rename(file(".new"), file(".pcr"));
  return result;
}

}  // namespace starts_run

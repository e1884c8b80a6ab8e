// run_signals: what the signals of the system mean to a run of the program.
// It owns the signal handlers while a guard lives, and the note of the signal that came. A handler reaches nothing
// else, so that this is the one place with a variable of the whole process.
#pragma once
#include <array>
#include <csignal>
#include <cstddef>
#include <string_view>

namespace run_signals {

/// As long as it lives: the first SIGINT, SIGTERM or SIGHUP asks the run to end after its cycle, the next one ends the
/// process at once. One that was ignored before stays ignored (nohup, a background job of a script).
class guard {
 public:
  guard();
  ~guard();
  guard(const guard&) = delete;
  guard& operator=(const guard&) = delete;

 private:
  static constexpr std::size_t count = 3;
  std::array<struct sigaction, count> before_{};
};

/// As long as it lives no such signal reaches the process: files that belong together are moved together.
class hold {
 public:
  hold();
  ~hold();
  hold(const hold&) = delete;
  hold& operator=(const hold&) = delete;
  /// What is asked for is done: signals that waited, and later ones, end nothing any more.
  void done();

 private:
  sigset_t before_{};
};

/// Name of the signal that asked the run to end since the guard was made, blank when none did.
[[nodiscard]] std::string_view asked_to_end();

}  // namespace run_signals

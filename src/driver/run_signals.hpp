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
/// process at once. One that was ignored before stays ignored (nohup, a background job of a script). Writing to a
/// closed pipe or beyond the limit of a file is a failed write and no signal.
class guard {
 public:
  guard();
  ~guard();
  guard(const guard&) = delete;
  guard& operator=(const guard&) = delete;

 private:
  static constexpr std::size_t count = 5;
  std::array<struct sigaction, count> before_{};
};

/// Name of the signal that asked the run to end since the guard was made, blank when none did.
[[nodiscard]] std::string_view asked_to_end();

}  // namespace run_signals

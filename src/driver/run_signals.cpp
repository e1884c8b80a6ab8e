#include "run_signals.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace run_signals {

namespace {

struct signal_row {
  int number;
  std::string_view name;
};
constexpr std::array<signal_row, 3> rows{{{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}};

volatile std::sig_atomic_t asked = 0;  // number of the signal; 0: none came
volatile std::sig_atomic_t over = 0;   // 1: the results stand at their places

void on_signal(int number) {
  constexpr std::string_view words =
      "\n => The run will end after this cycle and write its results; the next signal ends it at once\n";
  if (over != 0) return;
  const int error_before = errno;
  if (asked != 0) {
    std::signal(number, SIG_DFL);
    raise(number);  // comes as soon as the handler returns
  } else {
    asked = number;
    [[maybe_unused]] const ssize_t told = write(STDERR_FILENO, words.data(), words.size());
  }
  errno = error_before;
}

}  // namespace

guard::guard() {
  static_assert(rows.size() == count);
  asked = 0;
  over = 0;
  for (std::size_t k = 0; k < rows.size(); ++k) {
    sigaction(rows[k].number, nullptr, &before_[k]);
    if (before_[k].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    for (const signal_row& row : rows) sigaddset(&action.sa_mask, row.number);
    sigaction(rows[k].number, &action, nullptr);
  }
}

guard::~guard() {
  for (std::size_t k = 0; k < rows.size(); ++k) sigaction(rows[k].number, &before_[k], nullptr);
}

hold::hold() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const signal_row& row : rows) sigaddset(&ending, row.number);
  pthread_sigmask(SIG_BLOCK, &ending, &before_);
}

hold::~hold() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

void hold::done() { over = 1; }

std::string_view asked_to_end() {
  const auto row = std::ranges::find(rows, static_cast<int>(asked), &signal_row::number);
  return row == rows.end() ? std::string_view() : row->name;
}

}  // namespace run_signals

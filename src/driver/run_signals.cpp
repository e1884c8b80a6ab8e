#include "run_signals.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace run_signals {

namespace {

enum class meaning { ends_the_run, failed_write };
struct signal_row {
  int number;
  std::string_view name;
  meaning means;
};
constexpr std::array<signal_row, 5> rows{{
    {SIGINT, "SIGINT", meaning::ends_the_run},
    {SIGTERM, "SIGTERM", meaning::ends_the_run},
    {SIGHUP, "SIGHUP", meaning::ends_the_run},
    {SIGPIPE, "SIGPIPE", meaning::failed_write},
    {SIGXFSZ, "SIGXFSZ", meaning::failed_write},
}};

volatile std::sig_atomic_t asked = 0;  // number of the signal; 0: none came

void on_signal(int number) {
  constexpr std::string_view words =
      "\n => The run will end after this cycle and write its results; the next signal ends it at once\n";
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
  for (std::size_t k = 0; k < rows.size(); ++k) {
    sigaction(rows[k].number, nullptr, &before_[k]);
    if (before_[k].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = rows[k].means == meaning::ends_the_run ? on_signal : SIG_IGN;
    action.sa_flags = SA_RESTART;
    for (const signal_row& row : rows) sigaddset(&action.sa_mask, row.number);
    sigaction(rows[k].number, &action, nullptr);
  }
}

guard::~guard() {
  for (std::size_t k = 0; k < rows.size(); ++k) sigaction(rows[k].number, &before_[k], nullptr);
}

std::string_view asked_to_end() {
  const auto row = std::ranges::find(rows, static_cast<int>(asked), &signal_row::number);
  return row == rows.end() ? std::string_view() : row->name;
}

}  // namespace run_signals

// A limit on the size of files, the cheapest full disk.
#pragma once
#include <sys/resource.h>

#include <csignal>

/// No file may grow beyond the limit while this lives.
class smaller_files {
 public:
  explicit smaller_files(rlim_t bytes) : signal_before_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~smaller_files() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_before_);
  }
  smaller_files(const smaller_files&) = delete;
  smaller_files& operator=(const smaller_files&) = delete;

 private:
  rlimit before_{};
  void (*signal_before_)(int);
};

// starts_bases: the undisturbed cases refined to their end by the reference program, and what all runs share: a
// directory that goes away, several at a time.
#pragma once
#include <unistd.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "starts_judge.hpp"
#include "starts_model.hpp"
#include "starts_settings.hpp"

namespace starts_bases {

namespace fs = std::filesystem;

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

/// Throws when the file is refused.
[[nodiscard]] starts_model::control_file read_control(const fs::path& file);

/// One per case, those that did not end well among them; what is wrong with one is printed.
[[nodiscard]] std::vector<starts_judge::base> refine(const starts_settings::settings& s, const scratch& room);

}  // namespace starts_bases

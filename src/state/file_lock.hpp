// file_lock: a lock on a file that only one process can have, and that ends with the process however it ends.
// It owns the open descriptor that carries the lock. A run holds one on its control file.
#pragma once
#include <string>

namespace file_lock {

enum class outcome {
  had,         ///< this object holds it
  taken,       ///< another run holds it
  unavailable  ///< the file cannot be opened, or its file system knows no locks
};

class lock {
 public:
  lock() = default;
  ~lock();
  lock(lock&& other) noexcept;
  lock& operator=(lock&& other) noexcept;
  lock(const lock&) = delete;
  lock& operator=(const lock&) = delete;

  /// Locks the file that stands at the path now, also when another one took its place meanwhile. Does not wait.
  [[nodiscard]] outcome take(const std::string& path);
  [[nodiscard]] bool is_held() const { return descriptor_ >= 0; }

 private:
  void release();
  int descriptor_ = -1;
};

}  // namespace file_lock

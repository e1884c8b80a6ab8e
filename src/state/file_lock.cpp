#include "file_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace file_lock {

namespace {

/// A network file system locks only what is open for writing; where that is not allowed, reading must do.
int open_for_lock(const std::string& path) {
  constexpr int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const int descriptor = ::open(path.c_str(), O_RDWR | flags);
  return descriptor >= 0 ? descriptor : ::open(path.c_str(), O_RDONLY | flags);
}

bool stands_at(int descriptor, const std::string& path) {
  struct stat opened {
  }, named{};
  return ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

int lock_now(int descriptor) {
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0)
    if (errno != EINTR) return errno;
  return 0;
}

}  // namespace

lock::~lock() { release(); }
lock::lock(lock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
lock& lock::operator=(lock&& other) noexcept {
  if (this != &other) {
    release();
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

void lock::release() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

outcome lock::take(const std::string& path) {
  constexpr int most_changes = 100;  // of the file at the path between its opening and its locking
  for (int k = 0; k < most_changes; ++k) {
    release();
    descriptor_ = open_for_lock(path);
    if (descriptor_ < 0) return outcome::unavailable;
    const int error = lock_now(descriptor_);
    if (error == 0 && stands_at(descriptor_, path)) return outcome::had;
    if (error == 0) continue;
    release();
    return error == EWOULDBLOCK ? outcome::taken : outcome::unavailable;
  }
  release();
  return outcome::taken;
}

}  // namespace file_lock

#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace output_file {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view temporary_mark = ".kvtmp";

/// 0 or the number of the system's error.
int write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(descriptor, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return 0;
}

bool is_temporary(std::string_view name, std::string_view stem) {
  if (!name.starts_with(stem)) return false;
  name.remove_prefix(stem.size());
  if (!name.starts_with(temporary_mark)) return false;
  name.remove_prefix(temporary_mark.size());
  return !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

std::string directory_of(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string end_of_links(const std::string& path) {
  constexpr int longest_chain = 40;
  std::string end = path;
  std::error_code ec;
  for (int k = 0; k < longest_chain; ++k) {
    const std::string to = fs::read_symlink(end, ec).string();
    if (ec) return end;
    end = to.starts_with('/') ? to : directory_of(end) + to;
  }
  return path;
}

int obstacle_at(const std::string& path, links of_path) {
  const std::string place = of_path == links::followed ? end_of_links(path) : path;
  struct stat there {};
  if (lstat(place.c_str(), &there) != 0) {
    if (errno != ENOENT) return errno;
  } else if (!S_ISLNK(there.st_mode)) {
    if (S_ISDIR(there.st_mode)) return EISDIR;
    if (!S_ISREG(there.st_mode)) return EINVAL;
    constexpr mode_t anybody_writes = S_IWUSR | S_IWGRP | S_IWOTH;
    if ((there.st_mode & anybody_writes) == 0) return EACCES;
    if (access(place.c_str(), W_OK) != 0) return errno;
  } else if (of_path == links::followed) {
    return ELOOP;
  }
  const std::string directory = directory_of(place);
  return access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
}

void remove_leftovers(const std::string& directory, const std::string& stem) {
  std::error_code ec;
  fs::directory_iterator entry(directory.empty() ? "." : directory, ec);
  for (; !ec && entry != fs::directory_iterator(); entry.increment(ec)) {
    std::error_code of_entry;
    if (is_temporary(entry->path().filename().string(), stem) && fs::is_regular_file(entry->symlink_status(of_entry)))
      fs::remove(entry->path(), of_entry);
  }
}

file::file(std::string path, std::string name, std::string stem, way how, links of_path)
    : place_(of_path == links::followed ? end_of_links(path) : std::move(path)),
      like_(place_),
      name_(std::move(name)),
      stem_(std::move(stem)),
      way_(how),
      links_(of_path) {}

file::~file() {
  if (way_ == way::in_place && descriptor_ >= 0) static_cast<void>(send());
  static_cast<void>(close_descriptor());
  remove_temporary();
}

bool file::fail(int error) {
  failure_ = name_ + ": " + std::generic_category().message(error);
  return false;
}

bool file::open() { return may_take_place() && (way_ != way::in_place || open_in_place()); }

bool file::may_take_place() {
  const int obstacle = obstacle_at(place_, links_);
  return obstacle == 0 || fail(obstacle);
}

bool file::open_in_place() {
  constexpr mode_t by_umask = 0666;
  descriptor_ = ::open(place_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, by_umask);
  return descriptor_ >= 0 || fail(errno);
}

bool file::make_temporary() {
  constexpr int most_temporaries = 10000;
  constexpr mode_t by_umask = 0666, owner_only = 0600;  // until it has the rights of the file that it replaces
  const mode_t mode = ::access(like_.c_str(), F_OK) == 0 ? owner_only : by_umask;
  for (int n = 1; n < most_temporaries; ++n) {
    const std::string name = directory_of(place_) + stem_ + std::string(temporary_mark) + std::to_string(n);
    descriptor_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor_ >= 0) {
      temporary_ = name;
      return true;
    }
    if (errno != EEXIST) break;
  }
  return fail(errno);
}

int file::write_old_text() const {
  const int old = ::open(place_.c_str(), O_RDONLY | O_CLOEXEC);
  if (old < 0) return errno == ENOENT ? 0 : errno;
  std::array<char, 65536> piece{};
  ssize_t n = 0;
  int error = 0;
  while (error == 0 && (n = ::read(old, piece.data(), piece.size())) > 0)
    error = write_all(descriptor_, {piece.data(), static_cast<std::size_t>(n)});
  if (n < 0) error = errno;
  ::close(old);
  return error;
}

void file::keep_attributes() const {
  struct stat old {};
  if (::stat(like_.c_str(), &old) != 0) return;
  constexpr uid_t owner_stays = static_cast<uid_t>(-1);
  constexpr mode_t rights = 0777;
  const bool kept =
      ::fchown(descriptor_, old.st_uid, old.st_gid) == 0 || ::fchown(descriptor_, owner_stays, old.st_gid) == 0;
  // a group that could not be kept does not hand its rights to another one
  ::fchmod(descriptor_, old.st_mode & (kept ? rights : rights & ~static_cast<mode_t>(S_IRWXG)));
}

bool file::close_descriptor() {
  if (descriptor_ < 0) return true;
  return ::close(std::exchange(descriptor_, -1)) == 0;
}

void file::remove_temporary() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
  temporary_.clear();
}

bool file::send_whole(std::string_view text) {
  if (!temporary_.empty()) return true;
  if (!make_temporary()) return false;
  int error = way_ == way::append ? write_old_text() : 0;
  if (error == 0) error = write_all(descriptor_, text);
  if (error == 0) keep_attributes();
  if (!close_descriptor() && error == 0) error = errno;
  if (error == 0) return true;
  remove_temporary();  // the room that it took is perhaps what the listing needs to say so
  return fail(error);
}

bool file::send() {
  if (!failure_.empty()) return false;
  const std::string text = std::exchange(text_, std::ostringstream()).str();
  if (way_ == way::whole || way_ == way::append) return send_whole(text);
  const int error = write_all(descriptor_, text);
  return error == 0 || fail(error);
}

bool file::take_place() {
  if (!send()) return false;
  if (way_ == way::in_place) return close_descriptor() || fail(errno);
  if (std::rename(temporary_.c_str(), place_.c_str()) != 0) return fail(errno);
  temporary_.clear();
  return true;
}

}  // namespace output_file

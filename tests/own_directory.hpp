// A directory that no other process uses, for the files of tests.
#pragma once
#include <unistd.h>

#include <filesystem>
#include <string>

/// Made on the first call, removed when the program ends. Ends with a slash.
inline const std::string& own_directory() {
  struct directory {
    std::string path =
        (std::filesystem::temp_directory_path() / ("kv_test_" + std::to_string(getpid()))).string() + "/";
    directory() { std::filesystem::create_directories(path); }
    ~directory() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const directory d;
  return d.path;
}

// Control files that together hold every line and model of the format, composed of the complete ones and changes.
#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace control_files {

/// A control file and words that must stand in what is written of it.
struct file_row {
  std::string name, text;
  std::vector<std::string> words = {};
};

std::vector<file_row> all_files();
/// The text of one of them.
std::string sample(std::string_view name);

}  // namespace control_files

// starts_run: one run of a program in a directory of its own, and what it came to.
// It owns nothing; the directories belong to the caller.
#pragma once
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace starts_run {

namespace fs = std::filesystem;

/// A folder with a control file of its name and the files that it needs.
struct case_folder {
  std::string name;
  fs::path path;
};
/// Copies what a run reads; results of earlier runs and other control files stay behind.
void copy_inputs(const case_folder& from, const fs::path& to);

struct program {
  fs::path binary;
  std::vector<std::string> options;  ///< in front of the code
  double timeout = 60.0;             ///< [s] of the processor; ten times as long by the clock
};

/// How well one pattern fits.
struct pattern_fit {
  double residual = 0.0;  ///< weighted sum of squares of all points
  double freedom = 0.0;   ///< points under reflections less parameters
};

struct outcome {
  enum class end { normal, stopped, abnormal, timed_out };
  end how = end::abnormal;
  bool converged = false;
  int cycles = 0;
  double chi2 = 0.0;  ///< joint, of the last listing; 0 when there is none
  std::vector<pattern_fit> fits;
  double seconds = 0.0;  ///< of the processor
  std::string reason;    ///< why it did not end normally
};
/// Runs the program on code.pcr in the directory. Afterwards code.pcr holds what the run wrote, also when it wrote it
/// as a new file.
outcome run(const program& with, const fs::path& directory, const std::string& code);

/// What a listing tells of its last cycle.
struct listed {
  double chi2 = 0.0;
  std::vector<pattern_fit> fits;
  int cycles = 0;
  bool converged = false;
};
[[nodiscard]] listed read_listing(std::string_view text);

[[nodiscard]] std::string text_of(const fs::path& file);
/// Throws when the file cannot be written: a start that is not there must not count as a failing one.
void write_text(const fs::path& file, std::string_view text);

}  // namespace starts_run

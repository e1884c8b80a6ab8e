// starts_judge: what the outcome of a run means: its chi-square on common ground, whether it reached the optimum, and
// the counts of a table. It owns the limits of that judgement.
#pragma once
#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "starts_run.hpp"

namespace starts_judge {

using starts_run::outcome;

inline constexpr double reaches = 1.01;  ///< a chi-square within this factor of the optimum has reached it

/// A case refined to its end, with which other runs of it are compared.
struct base {
  outcome result;
  std::string control;          ///< its control file
  std::vector<double> weights;  ///< of the patterns
  [[nodiscard]] bool good() const { return chi2_of(result) > 0.0; }
  /// The joint chi-square of another run, or its own, on the points that lie under the reflections of this one; 0 when
  /// it did not end normally. That of a listing counts the points under its own reflections, which depend on the
  /// widths, with Ias 0 on those of the start: there, runs that end with the same model differ by per cents.
  [[nodiscard]] double chi2_of(const outcome& other) const;
};

/// Smallest chi-square seen of each case.
class optima_table {
 public:
  /// From a file of lines `case chi-square`; a file that does not exist is an empty table.
  static optima_table read(const std::filesystem::path& file);
  void write(const std::filesystem::path& file) const;
  void take(const std::string& case_name, double chi2);  ///< not above 0: passed over
  [[nodiscard]] double of(const std::string& case_name) const { return smallest_.at(case_name); }

 private:
  std::map<std::string, double> smallest_;
};

enum class verdict { reached, false_end, failed, not_converged };
inline constexpr std::array verdict_words{"reached", "false end", "failed", "not converged"};
/// chi2: on the points of the reference, 0 after a run that did not end normally.
[[nodiscard]] verdict judge(double chi2, bool converged, double optimum);
[[nodiscard]] const char* words_of(verdict v);

/// One row of the table.
struct counts {
  int starts = 0;
  int open = 0;  ///< have reached the optimum without having converged
  std::array<int, verdict_words.size()> by_verdict{};
  double cycles = 0.0;   ///< sum of those that have reached the optimum
  double seconds = 0.0;  ///< sum of all
  void add(const outcome& o, verdict v);
  [[nodiscard]] int of(verdict v) const { return by_verdict[static_cast<std::size_t>(v)]; }
};

}  // namespace starts_judge

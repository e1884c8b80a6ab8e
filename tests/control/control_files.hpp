// Complete control files for the tests, and the ways to change and read them.
#pragma once
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "read_pcr_mod.hpp"

namespace control_files {

extern const std::string yttria;       ///< time of flight, absorption
extern const std::string boride;       ///< a nuclear and a magnetic phase: operators by hand, a propagation vector
extern const std::string crystal;      ///< single crystal
extern const std::string annealing;    ///< simulated annealing
extern const std::string anisotropic;  ///< two phases: harmonics of the size, quartic strain; names lab.irf
extern const std::string laboratory_irf;
extern const std::string lab6;      ///< short form: betas, excluded region; a linear restraint at its end
extern const std::string corundum;  ///< long form, X-rays and neutrons; a distance restraint
extern const std::string ceria;     ///< short form, profile matching, 12-term background
extern const std::string zincite;   ///< short form, background points, VARY and FIX, automatic codes

/// The text with the first `from` replaced; the text must hold it.
std::string with(std::string text, std::string_view from, std::string_view to);
/// The text without the lines first..last (1-based).
std::string without_lines(std::string_view text, int first, int last);
/// Line n (1-based) replaced.
std::string with_line(std::string_view text, int n, std::string_view line);
std::vector<std::string> lines_of(std::string_view text);
std::string join(const std::vector<std::string>& lines);

std::string lab6_free();      ///< lab6 without its restraint, so that it is read to its end
std::string corundum_free();  ///< corundum without its restraint

/// A run in a directory of its own, with a console that is kept; removed at the end.
struct run_directory {
  run_directory();
  ~run_directory();
  run_directory(const run_directory&) = delete;
  run_directory& operator=(const run_directory&) = delete;

  void put(const std::string& name, std::string_view text) const;
  void put_named_files() const;  ///< the data and resolution files that the control files name
  [[nodiscard]] std::string get(const std::string& name) const;
  /// Reads the text as code.pcr into a state of its own.
  kalvaris_params::state_type& read(std::string_view text, pcr_lines::record* keep = nullptr);
  [[nodiscard]] std::string message() const;  ///< the lines of mess_findfmt, joined

  std::filesystem::path path;
  std::ostringstream console;
  std::unique_ptr<kalvaris_params::state_type> state;
};

}  // namespace control_files

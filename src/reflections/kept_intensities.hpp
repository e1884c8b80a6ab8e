// kept_intensities: the intensities that profile matching ended with, kept beside the control file so that the next run
// starts from them: one file CODE[phase][pattern].ints for each phase with jbt 2, -2 and a generated list, in the form of
// a reflection list (irf 2: two lines of title, then h k l multiplicity value; an intensity, for jbt -2 F).
// It writes these files and owns nothing.
#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "kalvaris_params.hpp"

namespace kept_intensities {

/// Phases of a pattern that keep their intensities.
[[nodiscard]] bool keeps(const kalvaris_params::state_type& st, int ip, int ph);

/// The values of a former run, by reflection.
class kept {
 public:
  void add(const std::array<int, 3>& hkl, double value);
  [[nodiscard]] std::optional<double> of(const std::array<int, 3>& hkl) const;
  [[nodiscard]] std::size_t size() const { return values_.size(); }

 private:
  std::unordered_map<std::int64_t, double> values_;
};

/// What a run of the same data and group left for phase ph in pattern ip; nothing, with a line on the console when there
/// is a file, where data or group are others or a row does not read.
[[nodiscard]] kept read(kalvaris_params::state_type& st, int ip, int ph);

/// Writes what the phases of pattern ip end with. A file that cannot be opened is told on the console.
void write(kalvaris_params::state_type& st, int ip);

}  // namespace kept_intensities

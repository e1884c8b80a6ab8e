// kv_check: a run looked at without being run: the control file is read with its data, resolution, background and
// reflection files, and everything that a run would refuse or that looks wrong is told. Nothing is calculated, nothing
// is written. It owns the order of looking and the words of the report.
#pragma once
#include <iosfwd>
#include <string>

#include "kalvaris_params.hpp"
#include "pcr_check.hpp"

namespace kv_check {

/// What was found. `file` of a finding is the control file unless its text names another.
struct report {
  std::vector<pcr_check::finding> findings;
  bool read_to_the_end = false;  ///< the control file holds no error of format
  [[nodiscard]] int count(pcr_check::severity level) const;
  [[nodiscard]] bool refused() const { return count(pcr_check::severity::error) > 0; }
};

/// Looks at the run whose names stand in st.io (as for kalvaris_sub::kalvaris). Does not throw run_stopped. The console
/// of st.io is left alone.
[[nodiscard]] report look_at(kalvaris_params::state_type& st);

/// The report as lines: severity, file and line, what was found, what to do; at last the counts.
[[nodiscard]] std::string text_of(const report& found, const std::string& control_file);

}  // namespace kv_check

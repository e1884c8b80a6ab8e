// kv_final_calc_out: the end of a run: control file, background, plot files, lists, summary, in their order.
// It decides from the flags which writers run; the writers own their layouts. Of the state it changes what the writers
// of the control file need (codes, nxt) and, in a run that only calculates, the observed pattern.
#pragma once
#include <string>

#include "kalvaris_params.hpp"

namespace kv_final_calc_out {

/// Runs once after the cycles when they ended normally. In a run that only calculates the computed pattern stands in
/// for the observed one, so that its plot and reflection list show it. A file that cannot be opened stops the run.
void final_calcn_output(kalvaris_params::state_type& st);

/// Limits of the run and bytes of its arrays, for the end of the listing.
[[nodiscard]] std::string print_dimensions(const kalvaris_params::state_type& st);

/// Bytes held by the arrays of the run.
struct array_memory {
  std::size_t points = 0, reflections = 0, parameters = 0, model = 0;
  [[nodiscard]] std::size_t total() const { return points + reflections + parameters + model; }
};
[[nodiscard]] array_memory memory_of(const kalvaris_params::state_type& st);

}  // namespace kv_final_calc_out

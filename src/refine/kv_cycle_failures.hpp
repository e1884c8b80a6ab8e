// kv_cycle_failures: why a cycle has no solution, in lines for the reader: which value is not finite, which parameters
// do nothing or the same, which phase has no intensity, and what to do about it. It reads the state and owns nothing.
#pragma once
#include <string>
#include <vector>

#include "kalvaris_params.hpp"
#include "kv_least_squares.hpp"

namespace kv_cycle_failures {

/// The first value of the model or of its pattern that is not a finite number.
[[nodiscard]] std::string what_is_not_finite(const kalvaris_params::state_type& st);

/// Phases that contribute but whose highest peak is nothing beside the observed ones, one line each with the reason
/// as far as it is known: the scale factor, or that no reflection lies in the pattern.
[[nodiscard]] std::vector<std::string> phases_without_intensity(const kalvaris_params::state_type& st);

/// Name of parameter n (1-based); blank for a number without one.
[[nodiscard]] std::string name_of(const kalvaris_params::state_type& st, int n);

/// Parameters (0-based) that nothing in the pattern depends on: one line each with the reason.
[[nodiscard]] std::vector<std::string> lines_without_effect(kalvaris_params::state_type& st,
                                                            const std::vector<int>& parameters);

/// Parameters that have one effect together: a line with the step of each that changes nothing, and what to fix.
[[nodiscard]] std::vector<std::string> lines_of_dependence(
    const kalvaris_params::state_type& st, const std::vector<normal_equations::dependent_set>& sets);

}  // namespace kv_cycle_failures

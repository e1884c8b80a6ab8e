// starts_measures: the two measurements of kalvaris_starts, each with its table on standard output.
// False when a case could not be measured, because the reference did not refine it.
#pragma once
#include "starts_bases.hpp"
#include "starts_settings.hpp"

namespace starts_measures {

/// Starts beside the optimum: how many reach it, in how many cycles, and how the others end.
bool convergence(const starts_settings::settings& s, const starts_bases::scratch& room);
/// Each case as profile matching, from the refined values and from disturbed ones, each run twice.
bool matching(const starts_settings::settings& s, const starts_bases::scratch& room);

}  // namespace starts_measures

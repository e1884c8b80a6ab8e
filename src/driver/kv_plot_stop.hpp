// kv_plot_stop: the request to stop a run from outside, left as a file beside it or sent as a signal.
// It owns the name and the words of that file, which it reads and never removes.
// The cycle loop polls it through an observer.
#pragma once
#include "kalvaris_params.hpp"

namespace kv_plot_stop {

/// Looks for "kalvaris.tmp" in the directory that the environment variable KALVARIS names, else in that of the run. Its
/// first line "KALVARIS STOP REQUIRED" stops the run at once; "KALVARIS FINISH REQUIRED" makes icycle mcycle + 1, so
/// that a counting loop ends after the present cycle, and sets run.finish_required, which console and listing say. A
/// signal that asks the run to end (run_signals) does the same. Anything else changes nothing.
void kalvaris_stop(kalvaris_params::state_type& st, int& icycle);

}  // namespace kv_plot_stop

// variances: lowers the weight of points by a table of corrections over 2theta, T.O.F., s or Q.
// It owns nothing; the table is a file beside the data.
// Writes var of a pattern and the two side files test_var.xy and test_var2.xy.
#pragma once
#include <span>
#include <vector>

#include "kalvaris_params.hpp"

namespace variances {

/// A table row: abscissa s and the square of the correction given there.
struct table_row {
  float s = 0.f, c2 = 0.f;
};

/// Linear interpolation in a table of increasing s; 0 outside its range and for a NaN. Both spans of one length.
void interpolate(std::span<const table_row> table, std::span<const float> abscissae, std::span<float> corr);

/// Divides every variance of pattern ip (0-based) by 1 + |corr|/3e7, corr from the table in filedat + ".wgt", else in
/// "corr_var.wgt"; at most n of its rows are read. A file that is missing, faulty or shorter than six rows leaves the
/// variances as they are, with a warning.
void corr_variances(kalvaris_params::state_type& st, int ip, int n);

}  // namespace variances

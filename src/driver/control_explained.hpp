// control_explained: reads a control file, calculates nothing, and prints what each of its lines means.
// It owns nothing; the run files of the state name the control file. Neither it nor any other file is written.
// Called by the command line alone.
#pragma once
#include <iosfwd>

#include "kalvaris_params.hpp"

namespace control_explained {

/// Prints the explanation, then what the reader warned of. A file that is refused is explained up to the line at fault,
/// then the message stands, and the result is false.
[[nodiscard]] bool explain(kalvaris_params::state_type& st, std::ostream& out);

}  // namespace control_explained

// undo_rewriting: the control file as it was before a run rewrote it.
// It owns nothing: the file kept by the run (kalvaris_inout::commit) and the control file change places.
#pragma once
#include "kalvaris_inout.hpp"

namespace undo_rewriting {

/// code.pcr and code.pcr.bak change places, so that a second call takes the first one back. Stops through stop_cond
/// when there is no such file, a run works on the control file, or the files cannot be written.
void undo(kalvaris_inout::inout_type& io);

}  // namespace undo_rewriting

// kv_calculable: what a control file may ask for and this release cannot calculate, or does not heed, found before
// anything is calculated. It owns the lists of such requests, each with its words; whoever builds one of them takes its
// row out. It reads the whole state that the control reader has filled and writes nothing but the messages.
#pragma once
#include <string>
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_calculable {

/// One request that cannot be met: the 1-based phase and pattern that it belongs to (0: none) and what it is.
struct obstacle {
  int phase = 0, pattern = 0;
  std::string reason;
};

/// All of them, in the order of the control file.
[[nodiscard]] std::vector<obstacle> obstacles(const kalvaris_params::state_type& st);

/// False when there is any: st.fmt.ierr_fmt is then 100 and st.fmt.mess_findfmt names the first four.
[[nodiscard]] bool calculable(kalvaris_params::state_type& st);

/// Flags without effect here: the run goes on without what they ask for.
[[nodiscard]] std::vector<obstacle> without_effect(const kalvaris_params::state_type& st);
/// Tells each of them as a note.
void tell_without_effect(kalvaris_params::state_type& st);

}  // namespace kv_calculable

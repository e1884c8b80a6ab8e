#include "control_explained.hpp"

#include <sstream>

#include "kv_setup.hpp"
#include "pcr_explain.hpp"
#include "read_pcr_mod.hpp"

namespace control_explained {

bool explain(kalvaris_params::state_type& st, std::ostream& out) {
  std::ostringstream warnings;
  st.io.console = &warnings;
  st.io.only_looking = true;
  kalvaris_inout::openfile(st.io, {kalvaris_inout::file_key::control});
  if (st.io.file_error) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  const std::string text = kalvaris_inout::content(st.io, kalvaris_inout::unit::control).value_or("");

  // An explanation needs no data, so that nobody is asked for them.
  if (!st.io.filedat.empty() && st.io.filedat[0].empty()) st.io.filedat[0] = st.io.filenam;

  pcr_lines::record kept;
  read_pcr_mod::read_pcr(st, &kept);
  const bool read = st.fmt.ierr_fmt == 0 && !st.io.file_error;
  const bool numbered = read && kv_setup::prepare_codes(st);
  out << pcr_explain::explanation({st, text, kept, numbered});
  if (!warnings.str().empty()) out << "\nThe reader says:\n" << warnings.str();
  if (!numbered) {
    out << "\nThe control file is refused:\n";
    for (int i = 0; i < st.fmt.mess_findfmt.nlines; ++i) {
      out << st.fmt.mess_findfmt.txt[static_cast<std::size_t>(i)] << '\n';
    }
  }
  kalvaris_inout::close_all(st.io);
  return numbered;
}

}  // namespace control_explained

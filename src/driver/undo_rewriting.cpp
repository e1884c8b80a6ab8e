#include "undo_rewriting.hpp"

#include <fcntl.h>

#include <cstdio>
#include <string>

#include "run_signals.hpp"

namespace undo_rewriting {

namespace {

/// In one step, where the file system knows it.
bool exchange([[maybe_unused]] const std::string& one, [[maybe_unused]] const std::string& other) {
#ifdef RENAME_EXCHANGE
  return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
#else
  return false;
#endif
}

void stop(kalvaris_inout::inout_type& io) { kalvaris_inout::stop_cond(io, io.file_error_mess, true); }

}  // namespace

void undo(kalvaris_inout::inout_type& io) {
  namespace file_key = kalvaris_inout::file_key;
  kalvaris_inout::openfile(io, {file_key::control});
  if (io.file_error) stop(io);
  const std::string name = io.filenam + ".pcr", control = kalvaris_inout::run_path(io, name), kept = control + ".bak";
  auto text = kalvaris_inout::text_of_file(kept);
  if (!text)
    kalvaris_inout::stop_cond(io, " => There is no file " + name + ".bak: no rewriting can be taken back", true);
  if (!kalvaris_inout::may_open(io, {file_key::control_out}) ||
      !kalvaris_inout::may_open(io, {file_key::control_backup}))
    stop(io);
  run_signals::hold signals;
  if (!exchange(output_file::end_of_links(control), output_file::end_of_links(kept))) {
    io.next_control = {std::move(*text)};
    if (!kalvaris_inout::commit(io)) stop(io);
  }
  signals.done();
  kalvaris_inout::close_all(io);
  kalvaris_inout::console_line(
      io, name + " is what it was before its last rewriting; what stood there is kept as " + name + ".bak");
}

}  // namespace undo_rewriting

#include <algorithm>
#include <utility>

#include "kalvaris_inout.hpp"

// The files that a run writes, from the unit to their place.

namespace kalvaris_inout {

namespace {

void set_write_error(inout_type& io, const output_file::file& file) {
  io.file_error = true;
  io.file_error_mess = " => Error writing file: " + file.failure();
}

std::string with_line_ends_of(std::string_view old, std::string text) {
  const std::size_t first = old.find('\n');
  if (first == std::string_view::npos || first == 0 || old[first - 1] != '\r') return text;
  std::string result;
  for (const char c : text) {
    if (c == '\n') result += '\r';
    result += c;
  }
  return result;
}

void tell_of_change(inout_type& io) {
  for (const std::string& line :
       {" => The control file " + io.filenam + ".pcr was changed while the run went on: it stays as it is",
        " => The refined values are in the file " + io.filenam + ".new"}) {
    mess_cons(io, line);
    out(io, unit::listing) << line << '\n';
  }
}

/// Writes the text under the key, to wait for its place with the others.
bool finish(inout_type& io, int key, int unit_number, const std::string& text, const std::string& like = {}) {
  openfile(io, {.key = key});
  if (io.file_error) return false;
  output_file::file& file = *io.units.at(unit_number).output;
  if (!like.empty()) file.attributes_of(like);
  file.stream() << text;
  close_unit(io, unit_number);
  return !io.file_error;
}

bool finish_control_file(inout_type& io) {
  if (!io.next_control) return true;
  next_control_type next = std::move(*io.next_control);
  io.next_control.reset();
  const std::string control = run_path(io, io.filenam + ".pcr");
  const bool changed = !next.to_new && text_of_file(control) != io.control_before;
  if (changed) tell_of_change(io);
  if (changed || next.to_new) return finish(io, file_key::new_control, unit::new_control, next.text);
  if (io.control_before && !finish(io, file_key::control_backup, unit::control_backup, *io.control_before, control))
    return false;
  return finish(io, file_key::control_out, unit::control_out, next.text);
}

/// Whole on the disk, all of them: the control file behind the others, the listing, which may have to tell of it, last.
bool finish_all(inout_type& io) {
  for (auto at = io.units.begin(); at != io.units.end();) {
    const int unit_number = (at++)->first;
    if (unit_number != unit::listing && io.units.at(unit_number).output) close_unit(io, unit_number);
  }
  if (io.file_error || !finish_control_file(io)) return false;
  close_unit(io, unit::listing);
  return !io.file_error;
}

bool move_all(inout_type& io) {
  const auto failed = [&](const auto& act) {
    const auto file = std::ranges::find_if_not(io.finished, act);
    if (file != io.finished.end()) set_write_error(io, **file);
    return file != io.finished.end();
  };
  return !failed([](const auto& file) { return file->may_take_place(); }) &&
         !failed([](const auto& file) { return file->take_place(); });
}

}  // namespace

void close_unit(inout_type& io, int unit_number) {
  const auto found = io.units.find(unit_number);
  if (found == io.units.end()) return;
  auto output = std::move(found->second.output);
  io.units.erase(found);
  if (!output) return;
  const bool grew = output->how() == output_file::way::in_place;
  if (!(grew ? output->take_place() : output->send())) return set_write_error(io, *output);
  if (grew) return;
  std::erase_if(io.finished, [&](const auto& file) { return file->path() == output->path(); });
  io.finished.push_back(std::move(output));
}

void close_all(inout_type& io) {
  io.units.clear();
  io.finished.clear();
  io.next_control.reset();
}

bool send_listing(inout_type& io) {
  const auto found = io.units.find(unit::listing);
  if (found != io.units.end() && !found->second.output->send()) set_write_error(io, *found->second.output);
  return !io.file_error;
}

void next_control_file(inout_type& io, std::string text, bool to_new) {
  const auto control = io.units.find(unit::control);
  const auto& read = control != io.units.end() && control->second.text ? control->second.text : io.control_before;
  io.next_control = {with_line_ends_of(read.value_or(""), std::move(text)), to_new};
}

bool commit(inout_type& io) {
  const bool done = !io.file_error && finish_all(io) && move_all(io);
  io.finished.clear();
  return done;
}

bool write_now(inout_type& io, std::string_view name, std::string text) {
  output_file::file file(run_path(io, name), std::string(name), io.filenam, output_file::way::whole,
                         output_file::links::replaced);
  file.stream() << std::move(text);
  if (file.open() && file.take_place()) return true;
  set_write_error(io, file);
  return false;
}

}  // namespace kalvaris_inout

#include "run_names.hpp"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "lmix_list_input.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_text_input.hpp"

namespace run_names {

using kalvaris_inout::inout_type;

namespace {

constexpr std::array<std::string_view, 4> control_extensions{"pcr", "PCR", "Pcr", "PCr"};
constexpr std::array<std::string_view, 7> data_extensions{".dat", ".uxd", ".int", ".udf", ".csv", ".xrdml", ".xys"};

/// The text between the first and the last double quote, all of it when there are not two.
std::string_view unquoted(std::string_view text) {
  const auto first = text.find('"'), last = text.rfind('"');
  return first == last ? text : text.substr(first + 1, last - first - 1);
}

bool exists(const inout_type& io, const std::string& name) {
  std::error_code ec;
  return std::filesystem::exists(kalvaris_inout::run_path(io, name), ec);
}

struct data_name {
  std::string file, extension;
};

/// Splits at the last point of the file name proper; points of directories do not count.
data_name split_data(std::string_view word) {
  constexpr std::size_t longest_extension = 6;
  const auto slash = word.rfind('/');
  const auto point = word.rfind('.');
  const bool none = point == std::string_view::npos || (slash != std::string_view::npos && point < slash);
  if (none) return {std::string(word), ".dat"};
  return {std::string(word.substr(0, point)), std::string(word.substr(point, longest_extension))};
}

bool data_exists(const inout_type& io, const data_name& name) {
  return exists(io, name.file + name.extension) || exists(io, name.file + ".int");
}

/// The file of the second word of the command line, looked for beside the control file and then where the program was
/// started. Whoever names a file wants no other one: when it is in neither place, the run ends.
data_name data_of_word(inout_type& io, std::string_view word) {
  data_name name = split_data(word);
  if (data_exists(io, name)) return name;
  std::error_code ec;
  name.file = std::filesystem::absolute(name.file, ec).string();
  if (!ec && data_exists(io, name)) return name;
  kalvaris_inout::stop_cond(io, " => Data file not found: " + std::string(word), true);
  return {};
}

data_name data_of_code(const inout_type& io) {
  for (const std::string_view extension : data_extensions)
    if (exists(io, io.filenam + std::string(extension))) return {io.filenam, std::string(extension)};
  if (exists(io, io.filenam + "1.int")) return {io.filenam, ".int"};
  return {};
}

bool is_calculation(int job) {
  constexpr int calculation_x = 2, calculation_n = 3;
  return job == calculation_x || job == -calculation_x || job == calculation_n || job == -calculation_n;
}

}  // namespace

void set_code(inout_type& io, std::string_view word) {
  word = unquoted(word);
  const auto slash = word.rfind('/');
  io.directory = slash == std::string_view::npos ? "" : word.substr(0, slash + 1);
  if (slash != std::string_view::npos) word.remove_prefix(slash + 1);
  if (const auto point = word.rfind('.'); point != std::string_view::npos) {
    for (const std::string_view extension : control_extensions) {
      if (word.substr(point + 1) != extension) continue;
      word = word.substr(0, point);
      break;
    }
  }
  io.filenam = word;
}

bool peek_control_file(inout_type& io) {
  constexpr int lines_peeked = 10;
  io.multi_pattern = false;
  const std::string name = io.filenam + ".pcr";
  const std::string path = kalvaris_inout::run_path(io, name);
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) {
    kalvaris_inout::console_line(io, "! Error opening the " + name + " file !");
    return true;
  }
  auto file = lmix_text_input::text_source::from_file(path);
  bool job_follows = false;
  for (int i = 0; i < lines_peeked; ++i) {
    const auto line = file.next();
    if (!line) return true;
    int job = 0;
    if (job_follows && lmix_list_input::read_values(*line, job).full() && is_calculation(job)) {
      io.filedat = {io.filenam};
      return false;
    }
    job_follows = line->find("!Job") != std::string_view::npos;
    if (line->find("NPATT") == std::string_view::npos) continue;
    io.multi_pattern = true;
    return false;
  }
  return true;
}

void find_data_file(inout_type& io, std::string_view word) {
  data_name name;
  if (!word.empty()) name = data_of_word(io, word);
  if (name.file.empty()) name = data_of_code(io);
  io.filedat = {name.file};
  io.extdat = {name.extension};
}

void set_names(inout_type& io, std::string_view code, std::string_view data) {
  io.filedat = {""};
  io.extdat = {""};
  set_code(io, code);
  data = lmix_string_utilities::trim(unquoted(data));
  if (peek_control_file(io)) return find_data_file(io, data);
  if (data.empty()) return;
  kalvaris_inout::mess_cons(
      io, " => Not used: the data file " + std::string(data) +
              (io.multi_pattern ? ", as the control file names its own" : ", as a calculation needs none"));
}

}  // namespace run_names

#include "kalvaris_inout.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>

#include "lmix_fixed_format.hpp"

namespace kalvaris_inout {

namespace {

namespace fs = std::filesystem;
using lmix_fixed_format::fmt_line;

/// How a file of the table is opened.
enum class open_mode {
  read,     ///< must exist
  replace,  ///< made anew
  append,   ///< grows from run to run
  grow,     ///< made anew, grows during the run
};

/// Keys whose names depend on more than the numbers of pattern and phase have a row per variant.
enum class variant { plain, other };

/// A kind of run file. Names are tried in order; in them %c is the code, %p the phase number, %t "_" and the pattern
/// number in runs with per-pattern names, %d the data file without and %e with its extension, %r the resolution file,
/// %n the plot number.
struct file_row {
  int key;
  variant form;
  int unit;
  open_mode mode;
  std::array<std::string_view, 4> names;
};

constexpr std::array<file_row, 41> file_table{{
    {-1, variant::plain, 1, open_mode::read, {"%c.new"}},
    {1, variant::plain, 1, open_mode::read, {"%c.pcr"}},
    {3, variant::plain, 3, open_mode::replace, {"%c.sym"}},
    {4, variant::plain, 2, open_mode::append, {"%c.rpa"}},
    {5, variant::plain, 4, open_mode::read, {"%e"}},
    {6, variant::plain, 15, open_mode::read, {"%c%p%t.hkl", "%d%t.int", "hkl%p%t.hkl", "%c%p%t.int"}},
    {6, variant::other, 15, open_mode::read, {"%e", "%d%t.int", "hkl%p%t.hkl", "%c%p%t.int"}},
    {7, variant::plain, 9, open_mode::replace, {"%c%t.fou"}},
    {7, variant::other, 9, open_mode::replace, {"%c%t.msf"}},
    {8, variant::plain, 10, open_mode::replace, {"%c%t.hkl"}},
    {9, variant::plain, 11, open_mode::append, {"%c.sav"}},
    {10, variant::plain, 16, open_mode::replace, {"%c%p%t.hkl"}},
    {10, variant::other, 16, open_mode::replace, {"hkl%p%t.hkl"}},
    {11, variant::plain, 17, open_mode::replace, {"%c%t.prf"}},
    {11, variant::other, 17, open_mode::replace, {"%c%t%n.prf"}},
    {105, variant::plain, 17, open_mode::replace, {"%c%t.xvgr"}},
    {106, variant::plain, 17, open_mode::replace, {"%c%t.xy"}},
    {107, variant::plain, 17, open_mode::replace, {"%c%t.agr"}},
    {12, variant::plain, 12, open_mode::read, {"%c%t.bac", "%d.bac"}},
    {-12, variant::plain, 12, open_mode::replace, {"%c%t.bac", "%d.bac"}},
    {13, variant::plain, 13, open_mode::read, {"%r"}},
    {14, variant::plain, 14, open_mode::replace, {"%c.sim"}},
    {15, variant::plain, 18, open_mode::replace, {"%c%p.sch"}},
    {16, variant::plain, 19, open_mode::replace, {"%c.new"}},
    {108, variant::plain, 39, open_mode::read, {"%c%p%t.ints"}},
    {109, variant::plain, 39, open_mode::replace, {"%c%p%t.ints"}},
    {17, variant::plain, 21, open_mode::replace, {"%c%t.inp"}},
    {17, variant::other, 21, open_mode::replace, {"%c.ins"}},
    {18, variant::plain, 22, open_mode::replace, {"%c%p.atm"}},
    {19, variant::plain, 23, open_mode::replace, {"%c%p%t.sub"}},
    {20, variant::plain, 24, open_mode::read, {"%c.shp", "global.shp"}},
    {21, variant::plain, 25, open_mode::read, {"%c%t.cor", "cor%t.cor"}},
    {22, variant::plain, 26, open_mode::replace, {"%c%p%t_cltr.int"}},
    {22, variant::other, 26, open_mode::replace, {"%c%p_cltr.int"}},
    {24, variant::plain, 29, open_mode::replace, {"%c%p%t.mic"}},
    {25, variant::plain, 31, open_mode::replace, {"%c.spf"}},
    {26, variant::plain, 32, open_mode::replace, {"edma.input"}},
    {101, variant::plain, 37, open_mode::replace, {"%c.pcr"}},
    {102, variant::plain, 38, open_mode::replace, {"%c.pcr.bak"}},
    {2, variant::plain, 7, open_mode::grow, {"%c.out"}},
    {2, variant::other, 8, open_mode::replace, {"%c.sum"}},
}};

/// Extensions tried for a data file after its own, in this order.
constexpr std::array<std::string_view, 6> data_extensions{".uxd", ".acq", ".csv", ".udf", ".jcp", ".xrdml"};

variant variant_of(const inout_type& io, const open_request& r) {
  const bool other = (r.key == file_key::reflections_in && r.cry_pat) || (r.key == file_key::fourier && r.fou_msf) ||
                     (r.key == file_key::reflections_out && io.ishkl == 1) || (r.key == file_key::plot && r.iph < -1) ||
                     (r.key == 17 && r.ipat == 0) || (r.key == 22 && r.ipat < 2);
  return other ? variant::other : variant::plain;
}

const file_row* find_row(int key, variant form) {
  const auto row = std::find_if(file_table.begin(), file_table.end(),
                                [&](const file_row& f) { return f.key == key && f.form == form; });
  return row == file_table.end() ? nullptr : &*row;
}

std::string element(const std::vector<std::string>& names, int ipat) {
  const auto i = static_cast<std::size_t>(std::max(ipat, 1) - 1);
  return i < names.size() ? names[i] : std::string{};
}

std::string tail(const inout_type& io, int ipat) {
  if (!io.multipatt) return {};
  return ipat == 0 ? "_" : "_" + std::to_string(ipat);
}

std::string expand(const inout_type& io, const open_request& r, std::string_view name) {
  std::string text;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] != '%') {
      text += name[i];
      continue;
    }
    switch (name[++i]) {
      case 'c':
        text += io.filenam;
        break;
      case 'p':
        text += std::to_string(r.iph);
        break;
      case 't':
        text += tail(io, r.ipat);
        break;
      case 'd':
        text += element(io.filedat, r.ipat);
        break;
      case 'e':
        text += element(io.filedat, r.ipat) + element(io.extdat, r.ipat);
        break;
      case 'r':
        text += element(io.fileres, r.ipat);
        break;
      default:
        text += std::to_string(-r.iph);
        break;
    }
  }
  return text;
}

std::string reason_of(int error) { return std::generic_category().message(error); }

/// Why the file cannot be read, blank when it can; ENOENT is for the caller to tell. A pipe or a device would make the
/// run wait or read without end.
std::string obstacle_to_reading(const std::string& path) {
  struct stat there {};
  if (stat(path.c_str(), &there) != 0) return reason_of(errno);
  if (S_ISDIR(there.st_mode)) return reason_of(EISDIR);
  if (!S_ISREG(there.st_mode)) return "it is no plain file";
  return access(path.c_str(), R_OK) == 0 ? std::string() : reason_of(errno);
}

/// What a control file names may lie anywhere; what a run writes under such a name lies in its folder.
bool in_run_folder(const inout_type& io, const std::string& path) {
  std::error_code ec;
  const auto real = [&](const std::string& directory) {
    return fs::canonical(directory.empty() ? "." : directory, ec) / "";
  };
  const fs::path folder = real(io.directory),
                 of_file = real(output_file::directory_of(output_file::end_of_links(path)));
  return !ec && of_file.native().starts_with(folder.native());
}

/// What a try to open one name came to.
struct try_result {
  bool open = false;
  std::string why;  ///< blank also for a file that is simply not there
};

try_result open_for_reading(inout_type& io, int unit_number, const std::string& path) {
  std::error_code ec;
  if (!fs::exists(path, ec) && !ec) return {};
  if (std::string why = obstacle_to_reading(path); !why.empty()) return {false, std::move(why)};
  io.units[unit_number].path = path;
  return {true, {}};
}

try_result open_for_writing(inout_type& io, int unit_number, open_mode mode, const std::string& path,
                            const std::string& name) {
  const auto how = mode == open_mode::grow     ? output_file::way::in_place
                   : mode == open_mode::append ? output_file::way::append
                                               : output_file::way::whole;
  auto output = std::make_unique<output_file::file>(path, name, io.filenam, how);
  if (!output->open()) return {false, output->failure().substr(name.size() + 2)};
  run_file file;
  file.path = path;
  file.output = std::move(output);
  io.units.insert_or_assign(unit_number, std::move(file));
  return {true, {}};
}

/// Locks and reads the control file, so that the run knows what it may replace, and clears away what killed runs left.
try_result open_control(inout_type& io, const std::string& path) {
  std::error_code ec;
  if (!io.only_looking && io.namefil.starts_with("starting") && !fs::exists(path, ec))
    std::ofstream(path, std::ios::app);
  try_result result = open_for_reading(io, unit::control, path);
  if (!result.open) return result;
  run_file& file = io.units.at(unit::control);
  const std::string control = run_path(io, io.filenam + ".pcr");
  const auto locked = io.only_looking ? file_lock::outcome::unavailable : file.lock.take(path);
  if (locked == file_lock::outcome::had)
    for (const std::string& directory : {io.directory, output_file::directory_of(output_file::end_of_links(control))})
      output_file::remove_leftovers(directory, io.filenam);
  file.text = text_of_file(path);
  io.control_before = path == control ? file.text : text_of_file(control);
  if (locked != file_lock::outcome::taken && file.text) return result;
  close_unit(io, unit::control);
  return {false, locked == file_lock::outcome::taken ? "another run works on it" : "it cannot be read"};
}

try_result open_name(inout_type& io, int unit_number, open_mode mode, const std::string& name) {
  const std::string path = run_path(io, name);
  if (unit_number == unit::control) return open_control(io, path);
  return mode == open_mode::read ? open_for_reading(io, unit_number, path)
                                 : open_for_writing(io, unit_number, mode, path, name);
}

void set_error(inout_type& io, std::string text) {
  io.file_error = true;
  io.file_error_mess = std::move(text);
}

std::string unit_text(int unit_number) { return fmt_line{}.a(" Unit:").i(2, unit_number).str(); }

void set_open_words(inout_type& io, const open_request& r, int unit_number) {
  const auto name = [&](std::string_view pattern) { return expand(io, r, pattern); };
  switch (r.key) {
    case file_key::data:
      return set_error(io, " ==> Error opening file CODEFIL.DAT(UXD,ACQ,CSV,UDF,JCP,XRDML) with CODEFIL=" + name("%d") +
                               unit_text(unit_number));
    case file_key::reflections_in:
      // a calculation has no data file: then only a name by the code is left
      return set_error(io, " => Error opening a (hkl)-file: " + name("%c%p%t.hkl") + "," + name("hkl%p%t.hkl") + "," +
                               name(element(io.filedat, r.ipat).empty() ? "%c%p%t.int" : "%d%t.int") +
                               unit_text(unit_number));
    case file_key::background:
      return set_error(io, " => Error opening a BAC-file: " + name("%c%t") + ".bac   - or - " + name("%d.bac"));
    case file_key::background_out:
      return set_error(io, " => Error opening a BAC-file: " + name("%d.bac"));
    case file_key::resolution:
      return set_error(io, "Error opening Instrumental Resolution File: " + name("%r"));
    default:
      return stop_err(io, unit_number);
  }
}

void set_open_error(inout_type& io, const open_request& r, int unit_number, const std::string& why) {
  set_open_words(io, r, unit_number);
  if (!why.empty()) io.file_error_mess += ": " + why;
}

/// The file with its own extension (.dat when there is none), then with the others; the one found is recorded.
try_result open_data(inout_type& io, const open_request& r, const file_row& row) {
  const auto ip = static_cast<std::size_t>(std::max(r.ipat, 1) - 1);
  if (io.extdat.size() <= ip) io.extdat.resize(ip + 1);
  if (io.extdat[ip].empty()) io.extdat[ip] = ".dat";
  const std::string file = element(io.filedat, r.ipat);
  io.namefil = file + io.extdat[ip];
  try_result first = open_name(io, row.unit, row.mode, io.namefil);
  if (first.open || !first.why.empty()) return first;
  for (const std::string_view extension : data_extensions) {
    io.extdat[ip] = extension;
    io.namefil = file + io.extdat[ip];
    if (try_result next = open_name(io, row.unit, row.mode, io.namefil); next.open || !next.why.empty()) return next;
  }
  return first;
}

try_result open_row(inout_type& io, const open_request& r, const file_row& row) {
  close_unit(io, row.unit);
  if (r.key == file_key::data) return open_data(io, r, row);
  try_result result;
  for (std::size_t k = 0; k < row.names.size() && !row.names[k].empty(); ++k) {
    io.namefil = expand(io, r, row.names[k]);
    if (r.key == file_key::reflections_in) io.ishkl = k == 0 ? 0 : 1;
    const bool named_in_control_file = row.names[k].starts_with("%d");
    try_result next;
    if (row.mode != open_mode::read && named_in_control_file && !in_run_folder(io, run_path(io, io.namefil)))
      next.why = io.namefil + " lies outside of the folder of the run";
    else
      next = open_name(io, row.unit, row.mode, io.namefil);
    if (next.open) return next;
    if (!next.why.empty()) result.why = next.why;
  }
  return result;
}

std::string_view trimmed(std::string_view text) {
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

bool second_is_equals(std::string_view text) { return text.starts_with('=') || (text.size() > 1 && text[1] == '='); }

std::ostream& console(const inout_type& io) { return io.console != nullptr ? *io.console : std::cout; }

}  // namespace

std::string run_path(const inout_type& io, std::string_view name) {
  return name.starts_with('/') ? std::string(name) : io.directory + std::string(name);
}

void stop_err(inout_type& io, int unit_number) {
  set_error(io, " => Error opening file: " + io.namefil + unit_text(unit_number));
}

void openfile(inout_type& io, const open_request& request) {
  if (request.key == file_key::per_pattern) {
    io.multipatt = true;
    return;
  }
  const file_row* row = find_row(request.key, variant_of(io, request));
  if (row == nullptr) return set_error(io, fmt_line{}.a(" => Illegal option nopf:").i(5, request.key).str());
  if (const auto opened = open_row(io, request, *row); !opened.open)
    return set_open_error(io, request, row->unit, opened.why);
  if (request.key != file_key::listings) return;
  const file_row* summary = find_row(file_key::listings, variant::other);
  if (const auto opened = open_row(io, request, *summary); !opened.open)
    set_open_error(io, request, summary->unit, opened.why);
}

bool may_open(inout_type& io, const open_request& request) {
  const bool before = std::exchange(io.file_error, false);
  openfile(io, request);
  if (const file_row* row = find_row(request.key, variant_of(io, request))) io.units.erase(row->unit);
  const bool opened = !io.file_error;
  io.file_error = io.file_error || before;
  return opened;
}

std::ostream& out(inout_type& io, int unit_number) {
  const auto found = io.units.find(unit_number);
  return found == io.units.end() || !found->second.output ? io.nothing : found->second.output->stream();
}

std::optional<std::string> content(inout_type& io, int unit_number) {
  const auto found = io.units.find(unit_number);
  if (found == io.units.end()) return std::nullopt;
  run_file& file = found->second;
  if (file.text) return file.text;
  if (file.output && file.output->how() != output_file::way::in_place) return file.output->pending();
  if (file.output && !file.output->send()) return std::nullopt;
  return text_of_file(file.path);
}

std::optional<std::string> text_of_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  const auto size = in ? static_cast<std::streamoff>(in.tellg()) : -1;
  if (size < 0) return std::nullopt;
  std::string text(static_cast<std::size_t>(size), '\0');
  in.seekg(0);
  in.read(text.data(), size);
  if (in.gcount() != size) return std::nullopt;
  return text;
}

int number_of_records(inout_type& io, int unit_number) {
  const std::optional<std::string> text = content(io, unit_number);
  if (!text || text->empty()) return 0;
  const auto ends = std::count(text->begin(), text->end(), '\n');
  return static_cast<int>(ends) + (text->back() == '\n' ? 0 : 1);
}

void console_line(inout_type& io, std::string_view line) { console(io) << line << '\n'; }

void mess_cons(inout_type& io, std::string_view text) {
  text = trimmed(text);
  if (text.empty()) return console_line(io, "  ");
  if (second_is_equals(text)) return console_line(io, text);
  if (!io.console_is_log) text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  console_line(io, " => " + std::string(text));
}

void message_cons(inout_type& io, std::string_view text, int ival, float rval, int ntype, std::string_view text2) {
  constexpr std::size_t console_width = 132;
  fmt_line line;
  line.a(second_is_equals(text) ? "   " : " =>").a(trimmed(text));
  const double real = static_cast<double>(rval);
  if (ntype == 1 || ntype == 3) line.i(8, ival);
  if (ntype == 3) line.a(" and ");
  if (ntype == 2 || ntype == 3) line.g(12, 4, real);
  if (!trimmed(text2).empty()) line.a(" ").a(trimmed(text2));
  console_line(io, line.str().substr(0, console_width));
}

void both_listings(inout_type& io, std::string_view line) {
  out(io, unit::listing) << line << '\n';
  out(io, unit::summary) << line << '\n';
}

void stop_cond(inout_type& io, std::string_view text, bool fatal) {
  console(io).flush();
  (io.errors != nullptr ? *io.errors : std::cerr) << trimmed(text) << '\n';
  if (fatal) throw run_stopped{std::string(trimmed(text))};
}

bool may_ask(const inout_type& io) {
  return !io.l_sequential && isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

std::string read_cons(const inout_type& io) {
  std::string answer;
  if (!may_ask(io)) return answer;
  console(io).flush();
  std::getline(std::cin, answer);
  return answer;
}

}  // namespace kalvaris_inout

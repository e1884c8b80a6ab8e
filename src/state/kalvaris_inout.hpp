// kalvaris_inout: names and streams of the run files, the console, and the one way to stop a run.
// It owns the table from unit number to open file and the files that wait for their place. Every room writes through
// it; no other piece builds a file name.
#pragma once
#include <fstream>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "file_lock.hpp"
#include "output_file.hpp"

namespace kalvaris_inout {

/// Thrown by stop_cond alone; caught by main and by the driver of a series.
struct run_stopped {
  std::string text;
};

/// Units by which the program knows its text files.
namespace unit {
enum : int {
  control = 1,
  data = 4,
  listing = 7,
  summary = 8,
  background = 12,
  resolution = 13,
  reflections_in = 15,
  plot = 17,
  new_control = 19,
  corrections = 25,
  control_out = 37,
  control_backup = 38,
  kept_intensities = 39
};
}

/// Keys of openfile: what is to be opened.
namespace file_key {
enum : int {
  control_rerun = -1,    ///< code.new
  control = 1,           ///< code.pcr
  listings = 2,          ///< code.out and code.sum
  data = 5,              ///< measured pattern, its extension found by trial
  reflections_in = 6,    ///< list of reflections or of integrated intensities
  fourier = 7,           ///< structure factors for a Fourier synthesis
  reflections_out = 10,  ///< reflection list of a phase
  plot = 11,
  background = 12,
  background_out = -12,
  resolution = 13,
  new_control = 16,      ///< code.new, written
  corrections = 21,      ///< code.cor, intensity corrections
  control_out = 101,     ///< code.pcr, written
  control_backup = 102,  ///< code.pcr.bak, the control file before its last rewriting
  plot_xvgr = 105,       ///< the plot file as data sets for xmgrace
  plot_xy = 106,         ///< the plot file as plain columns
  plot_agr = 107,        ///< the plot file as an xmgrace project
  intensities_in = 108,   ///< intensities that profile matching ended with, of a phase
  intensities_out = 109,
  per_pattern = 1000     ///< no file: from now on the names carry the pattern number
};
}

/// One open text file.
struct run_file {
  std::string path;
  std::optional<std::string> text;            ///< of a control file, as it was when it was opened
  file_lock::lock lock;                       ///< of the control file that a run works on
  std::unique_ptr<output_file::file> output;  ///< of a file that is written
};

/// A file that the control file names and that is not there.
struct missing_file {
  int line = 0;  ///< of the control file
  std::string words;
};

/// The control file for the next run, before it comes to its place.
struct next_control_type {
  std::string text;
  bool to_new = false;  ///< to code.new in any case
};

struct inout_type {
  std::string directory;             ///< where the run works, "" or ending in '/'; put before every run file name
  std::string filenam;               ///< code of the run: control file without its extension
  std::vector<std::string> filedat;  ///< data file of each pattern, without extension
  std::vector<std::string> extdat;   ///< its extension with the point
  std::vector<std::string> fileres;  ///< resolution file of each pattern
  bool file_error = false;           ///< a file could not be opened
  std::string file_error_mess;
  std::string namefil;              ///< last name built by openfile
  bool multi_pattern = false;       ///< the control file has the multi-pattern form
  bool multipatt = false;           ///< run files carry the pattern number (openfile key 1000)
  bool l_sequential = false;        ///< the run is part of a series
  int ishkl = 0;                    ///< 1 when the reflections came from a file of the second to fourth name
  std::ostream* console = nullptr;  ///< where console lines go; null: standard output
  std::ostream* errors = nullptr;   ///< where stop_cond says why; null: standard error
  /// The run is only looked at: nothing is locked or written, and a data or resolution file that is missing is put down
  /// in missing_files instead of ending the reading.
  bool only_looking = false;
  std::vector<missing_file> missing_files;
  std::map<int, run_file> units;                             ///< open files
  std::vector<std::unique_ptr<output_file::file>> finished;  ///< written whole, waiting for commit
  std::optional<next_control_type> next_control;
  std::optional<std::string> control_before;  ///< code.pcr as it was when the run opened its control file
  std::fstream nothing;                       ///< never opened: takes what is written to a unit that is not open
  bool console_is_log = false;                ///< console is the log file of a series: lines keep their leading blanks
  std::string filetemp;                       ///< list of the temperatures of a series, alive with file_temp
  bool file_temp = false;                     ///< filetemp was given
  int processed = 0;                          ///< runs of the series that are done
};

/// What openfile is asked for. ipat, iph: 1-based numbers, 0 when the name does not use them; iph below -1 with the
/// plot key: plot file number -iph.
struct open_request {
  int key = 0;
  int ipat = 0, iph = 0;
  bool fou_msf = false;  ///< magnetic structure factors instead of Fourier coefficients
  bool cry_pat = false;  ///< the pattern is a set of integrated intensities (reflections_in)
};

/// Opens the run file of the key (file_key and others, see its table) under its unit, closing what the unit held. Where
/// several names are possible they are tried in order. Only regular files are read. A file that is written, but for the
/// listing, changes nothing on the disk before commit. Failure sets file_error and file_error_mess and leaves the unit
/// closed; success leaves both as they were. Never stops the run.
/// A control file is locked for the run, unless it is only looked at: a second run on it is refused. Where no lock can
/// be had the run goes on. One whose name begins with "starting" is made, empty, when it does not exist.
void openfile(inout_type& io, const open_request& request);
/// Whether the file of the request could be opened now; failure as openfile. Changes nothing else, on the disk neither.
[[nodiscard]] bool may_open(inout_type& io, const open_request& request);
/// Number of lines of the file that a unit was opened on, the last one with or without its end; 0 when there is none.
[[nodiscard]] int number_of_records(inout_type& io, int unit_number);
/// Full path of a run file name (directory put in front unless the name is absolute).
[[nodiscard]] std::string run_path(const inout_type& io, std::string_view name);
/// Stream of a unit; a stream that swallows everything when the unit is not open.
[[nodiscard]] std::ostream& out(inout_type& io, int unit_number);
/// Whole content of the file that a unit was opened on, of one that is written what it took; nullopt when it cannot be
/// read.
[[nodiscard]] std::optional<std::string> content(inout_type& io, int unit_number);
/// Whole content of a file, nullopt when it cannot be read.
[[nodiscard]] std::optional<std::string> text_of_file(const std::string& path);
/// A file that is written then stands whole in a temporary and waits for commit; file_error is set when that failed.
void close_unit(inout_type& io, int unit_number);
/// What was written and not committed is dropped; the listing keeps what it has.
void close_all(inout_type& io);

/// Sends what the listing took to the disk. False when it or another file could not be written; file_error is set.
[[nodiscard]] bool send_listing(inout_type& io);
/// Hands over the text of the control file for the next run. commit puts it to its place with the line ends of the one
/// that was read: code.pcr, the old one being kept as code.pcr.bak, or code.new when to_new says so or when code.pcr
/// is not what it was at the start of the run, which console and listing then say.
void next_control_file(inout_type& io, std::string text, bool to_new);
/// Brings all files that were written to their places, the control file last. Before the first one is moved all are
/// whole on the disk. False when one could not be written or moved; file_error is set and the files not yet moved are
/// as they were.
[[nodiscard]] bool commit(inout_type& io);
/// Writes a file of this name at once; one that stands there is replaced, a link too. False, with file_error set, when
/// that failed.
bool write_now(inout_type& io, std::string_view name, std::string text);

/// Sets file_error with the words for a file (namefil) that could not be opened on the unit.
void stop_err(inout_type& io, int unit_number);

/// The line as it stands to the console.
void console_line(inout_type& io, std::string_view line);
/// One line to the console; " => " goes in front unless the first or second character is '='. Blank text: two blanks.
void mess_cons(inout_type& io, std::string_view text);
/// One line with numbers behind the text, by ntype: 1 ival, 2 rval, 3 both joined by " and ", other none.
void message_cons(inout_type& io, std::string_view text, int ival, float rval, int ntype, std::string_view text2 = {});
/// The line as it stands to listing and summary (units 7 and 8).
void both_listings(inout_type& io, std::string_view line);
/// Prints the text on standard error; fatal: throws run_stopped.
void stop_cond(inout_type& io, std::string_view text, bool fatal);
/// True when a question may be asked: standard input and output are both terminals and the run is not part of a series.
[[nodiscard]] bool may_ask(const inout_type& io);
/// Answer to a question already printed, blank for the default: also at the end of the input and, without waiting, when
/// may_ask is false.
[[nodiscard]] std::string read_cons(const inout_type& io);

}  // namespace kalvaris_inout

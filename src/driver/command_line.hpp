// command_line: what the words behind the program's name ask for, and the status with which the program ends.
// It owns the table of options, from which the parser and the help text are made.
// Called by main alone.
#pragma once
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"
#include "kalvaris_sub.hpp"

namespace command_line {

/// Exit statuses of the program.
namespace status {
enum : int {
  ended = 0,     ///< the run reached its end
  stopped = 1,   ///< it was stopped: file, control file or data refused, request to stop
  usage = 2,     ///< the command line was refused
  abnormal = 3,  ///< with --strict: the cycles ended abnormally
};
}  // namespace status

enum class option_id { help, version, formats, strict, explain, check, steps, intensities, undo, man_page, completion };

/// An option: long, and in front of the first word without a dash.
struct option_row {
  std::string_view name;
  option_id id;
  std::string_view text;
  std::string_view choices = {};  ///< words of which one follows the option, blank when none does
};
std::span<const option_row> options();

struct command {
  bool help = false, version = false, formats = false, strict = false, explain = false, check = false, undo = false,
       man_page = false, completion = false;
  bool whole_steps = false;
  kalvaris_params::intensity_road intensities = kalvaris_params::intensity_road::together;
  std::vector<std::string> words;  ///< what follows the options
  std::string refusal;             ///< why the command line is refused, blank when it is not
};
command parse(std::span<const std::string> arguments);

/// True when the word asks for a series of runs: seq, sequential, cyc, cyclic or cycle, in any case. A longer word or
/// one with an extension is the name of a control file.
bool asks_for_series(std::string_view word);

std::string usage_text();                        ///< the forms of the command
std::string help_text();                         ///< usage, options and statuses
std::string man_page(std::string_view version);  ///< the manual page, in the man macros of roff
std::string completion();                        ///< completion rules of the options and of control files for bash

/// Does what the arguments ask for and returns the exit status. Console lines go to `out`, why a command line was
/// refused and that lines of `out` were lost to `err`.
int run(std::span<const std::string> arguments, const kalvaris_sub::run_stages& stages, std::string_view version,
        std::ostream& out, std::ostream& err);

}  // namespace command_line

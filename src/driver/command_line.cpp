#include "command_line.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <ostream>
#include <sstream>

#include "control_explained.hpp"
#include "kv_check.hpp"
#include "kv_read_intens.hpp"
#include "lmix_string_utilities.hpp"
#include "pcr_explain.hpp"
#include "run_names.hpp"
#include "run_signals.hpp"
#include "standard_streams.hpp"
#include "undo_rewriting.hpp"

namespace command_line {

namespace {

constexpr std::array<option_row, 11> option_rows{{
    {"--help", option_id::help, "print this text and end"},
    {"--version", option_id::version, "print the version and end"},
    {"--formats", option_id::formats, "print the layouts of data files that can be read and end"},
    {"--strict", option_id::strict, "end with status 3 when the cycles end abnormally, without convergence, or with parameters held or left out"},
    {"--explain", option_id::explain,
     "print the control file with the meaning of each value and end; without CODE all lines"},
    {"--check", option_id::check,
     "tell what a run would refuse or what looks wrong, calculate nothing, and end with 1 when it would be refused"},
    {"--steps", option_id::steps,
     "whole: take every shift whole; halved (default): halve a shift that reverses the one before", "halved|whole"},
    {"--intensities", option_id::intensities,
     "profile matching: together (default): solve intensities with the other parameters; partition: shift the others "
     "with the answer of the intensities, then divide the profile; fixed: shift at fixed intensities, then divide",
     "together|partition|fixed"},
    {"--undo", option_id::undo,
     "put the control file back to what it was before its last rewriting; what stood there is kept as CODE.pcr.bak, "
     "and "
     "the same again puts it back"},
    {"--man-page", option_id::man_page, "print the manual page and end"},
    {"--completion", option_id::completion, "print completion rules for bash and end"},
}};

struct status_row {
  int value;
  std::string_view text;
};
constexpr std::array<status_row, 4> status_rows{{
    {status::ended, "the run reached its end"},
    {status::stopped, "the run was stopped: a file, the control file or the data were refused"},
    {status::usage, "the command line was refused"},
    {status::abnormal, "with --strict: the cycles ended abnormally, without convergence, or with parameters held or left out"},
}};

void set_option(command& result, option_id id) {
  switch (id) {
    case option_id::help:
      result.help = true;
      break;
    case option_id::version:
      result.version = true;
      break;
    case option_id::formats:
      result.formats = true;
      break;
    case option_id::strict:
      result.strict = true;
      break;
    case option_id::explain:
      result.explain = true;
      break;
    case option_id::check:
      result.check = true;
      break;
    case option_id::steps:
    case option_id::intensities:
      break;  // take a word of their own
    case option_id::undo:
      result.undo = true;
      break;
    case option_id::man_page:
      result.man_page = true;
      break;
    case option_id::completion:
      result.completion = true;
      break;
  }
}

bool set_choice(command& result, const option_row& row, std::string_view word) {
  using kalvaris_params::intensity_road;
  if (row.id == option_id::steps) {
    result.whole_steps = word == "whole";
    return result.whole_steps || word == "halved";
  }
  for (const auto& [name, road] : {std::pair{"together", intensity_road::together},
                                   std::pair{"partition", intensity_road::partition},
                                   std::pair{"fixed", intensity_road::fixed}}) {
    if (word != name) continue;
    result.intensities = road;
    return true;
  }
  return false;
}

std::string refusal_of_words(const command& asked) {
  const std::vector<std::string>& words = asked.words;
  const std::size_t most_words = asked.undo ? 1 : 2;
  if (words.empty() || words[0].empty()) return "the code of a control file is missing";
  if (asks_for_series(words[0])) {
    return words.size() == 1 ? words[0] + " needs the words of a series"
                             : words[0] + ": series of runs are not available yet";
  }
  if (words.size() > 1 && words[1].starts_with("-")) return "options stand before the code: " + words[1];
  if (words.size() > most_words) return "one word too many: " + words[most_words];
  if (asked.undo && (asked.strict || asked.check || asked.explain)) return "--undo stands alone";
  return {};
}

/// The command only prints something about itself.
bool asks_for_text(const command& asked) {
  return asked.help || asked.version || asked.formats || asked.man_page || asked.completion;
}

/// The names of the run that the words ask for; console lines go to `out`.
void set_names(const command& asked, kalvaris_inout::inout_type& io, std::ostream& out) {
  io.console = &out;
  run_names::set_names(io, asked.words[0], asked.words.size() > 1 ? asked.words[1] : "");
}

int explain(const command& asked, std::ostream& out) {
  if (asked.words.empty()) {
    out << pcr_explain::reference();
    return status::ended;
  }
  kalvaris_params::state_type st;
  set_names(asked, st.io, out);
  return control_explained::explain(st, out) ? status::ended : status::stopped;
}

int check(const command& asked, std::ostream& out) {
  kalvaris_params::state_type st;
  std::ostringstream console;
  set_names(asked, st.io, console);
  const kv_check::report found = kv_check::look_at(st);
  if (asked.words.size() > 1) out << console.str();  // a data file that was named and is not used
  out << kv_check::text_of(found, st.io.filenam + ".pcr");
  return found.refused() ? status::stopped : status::ended;
}

int one_run(const command& asked, const kalvaris_sub::run_stages& stages, std::ostream& out) {
  const run_signals::guard signals;
  kalvaris_params::state_type st;
  kalvaris_sub::write_banner([&](std::string_view line) { out << line << '\n'; });
  set_names(asked, st.io, out);
  st.run.whole_steps = asked.whole_steps;
  st.run.intensities = asked.intensities;
  const kalvaris_sub::run_end end = kalvaris_sub::kalvaris(st, stages);
  return end != kalvaris_sub::run_end::normal && asked.strict ? status::abnormal : status::ended;
}

int undo(const command& asked, std::ostream& out) {
  const run_signals::guard signals;
  kalvaris_inout::inout_type io;
  io.console = &out;
  run_names::set_code(io, asked.words[0]);
  undo_rewriting::undo(io);
  return status::ended;
}

int do_asked(const command& asked, const kalvaris_sub::run_stages& stages, std::string_view version, std::ostream& out,
             std::ostream& err) {
  if (asked.help) {
    out << help_text();
  } else if (asked.version) {
    out << "kalvaris " << version << "\n";
  } else if (asked.formats) {
    out << kv_read_intens::formats_text();
  } else if (asked.man_page) {
    out << man_page(version);
  } else if (asked.completion) {
    out << completion();
  }
  if (asks_for_text(asked)) return status::ended;
  try {
    if (asked.undo) return undo(asked, out);
    if (asked.check) return check(asked, out);
    return asked.explain ? explain(asked, out) : one_run(asked, stages, out);
  } catch (const kalvaris_inout::run_stopped&) {
    return status::stopped;  // its text is on standard error already
  } catch (const std::bad_alloc&) {
    err << " => Error allocating the arrays of the run\n";
  } catch (const std::exception& error) {
    err << " => Internal error: " << error.what() << "\n";
  }
  return status::stopped;
}

/// The command leaves nothing behind but what it prints.
bool only_prints(const command& asked) { return asks_for_text(asked) || asked.explain || asked.check; }

}  // namespace

std::span<const option_row> options() { return option_rows; }

command parse(std::span<const std::string> arguments) {
  command result;
  auto word = arguments.begin();
  for (; word != arguments.end() && word->starts_with("-"); ++word) {
    if (*word == "--") {
      ++word;
      break;
    }
    const auto row = std::find_if(option_rows.begin(), option_rows.end(),
                                  [&](const option_row& option) { return option.name == *word; });
    if (row == option_rows.end()) {
      result.refusal = "unknown option: " + *word;
      return result;
    }
    set_option(result, row->id);
    if (row->choices.empty()) continue;
    const std::string choice = ++word == arguments.end() ? std::string() : *word;
    if (!set_choice(result, *row, choice)) {
      result.refusal = std::string(row->name) + " wants one of " + std::string(row->choices) +
                       (choice.empty() ? "" : ", not " + choice);
      return result;
    }
  }
  result.words.assign(word, arguments.end());
  const bool reference = result.explain && result.words.empty();
  if (!asks_for_text(result) && !reference) result.refusal = refusal_of_words(result);
  return result;
}

bool asks_for_series(std::string_view word) {
  constexpr std::array<std::string_view, 5> words_of_series{"seq", "sequential", "cyc", "cyclic", "cycle"};
  return std::ranges::find(words_of_series, lmix_string_utilities::l_case(word)) != words_of_series.end();
}

std::string usage_text() {
  return "Usage: kalvaris [options] CODE [DATA]\n"
         "  CODE  control file, with or without .pcr; its directory is where the run works\n"
         "  DATA  data file, looked for beside the control file; without it CODE.dat and the like\n";
}

std::string help_text() {
  constexpr std::size_t name_width = 14;
  std::string text = usage_text() + "\nOptions, in front of CODE:\n";
  for (const option_row& row : option_rows) {
    text +=
        "  " + std::string(row.name) + std::string(name_width - row.name.size(), ' ') + std::string(row.text) + "\n";
  }
  text += "\nExit status:\n";
  for (const status_row& row : status_rows)
    text += "  " + std::to_string(row.value) + "  " + std::string(row.text) + "\n";
  return text;
}

std::string man_page(std::string_view version) {
  const auto item = [](std::string_view term, std::string_view text) {
    std::string name(term);
    for (std::size_t at = 0; (at = name.find('-', at)) != std::string::npos; at += 2) name.insert(at, "\\");
    return ".TP\n.B " + name + "\n" + std::string(text) + "\n";
  };
  std::string text =
      ".TH KALVARIS 1 \"\" \"kalvaris " + std::string(version) +
      "\"\n.SH NAME\nkalvaris \\- Rietveld and profile-matching refinement of diffraction data\n"
      ".SH SYNOPSIS\n.B kalvaris\n[options]\n.I CODE\n.RI [ DATA ]\n.SH DESCRIPTION\n"
      "Refines the model of the control file\n.I CODE.pcr\nagainst the measured pattern and writes the "
      "listing\n.IR CODE.out ,\nthe summary\n.IR CODE.sum ,\nthe plot file\n.I CODE.prf\nand the control "
      "file again with the refined values; what it held before is kept as\n.IR CODE.pcr.bak .\nThe data file is looked "
      "for beside the control file; without "
      "the second word it is\n.I CODE.dat\nand the like.\n.SH OPTIONS\n";
  for (const option_row& row : option_rows) text += item(row.name, row.text);
  text += ".SH EXIT STATUS\n";
  for (const status_row& row : status_rows) text += item(std::to_string(row.value), row.text);
  text += ".SH ENVIRONMENT\n" + item("KALVARIS",
                                     "directory that is searched for kalvaris.dim, the dimensions of a run, "
                                     "and for kalvaris.tmp, the request to stop");
  return text;
}

std::string completion() {
  std::string names;
  for (const option_row& row : option_rows) names += (names.empty() ? "" : " ") + std::string(row.name);
  return "complete -W '" + names + "' -o plusdirs -f -X '!*.pcr' kalvaris\n";
}

int run(std::span<const std::string> arguments, const kalvaris_sub::run_stages& stages, std::string_view version,
        std::ostream& out, std::ostream& err) {
  if (arguments.empty()) {
    err << usage_text();
    return status::usage;
  }
  const command asked = parse(arguments);
  if (!asked.refusal.empty()) {
    err << "kalvaris: " << asked.refusal << "\n" << usage_text();
    return status::usage;
  }
  const int result = do_asked(asked, stages, version, out, err);
  const std::string loss = standard_streams::loss(out, STDOUT_FILENO);
  if (loss.empty()) return result;
  err << "kalvaris: " << loss << "\n";
  return only_prints(asked) ? int{status::stopped} : result;
}

}  // namespace command_line

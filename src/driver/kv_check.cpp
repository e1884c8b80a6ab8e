#include "kv_check.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "kv_background.hpp"
#include "kv_calculable.hpp"
#include "kv_read_intens.hpp"
#include "kv_setup.hpp"
#include "lmix_string_utilities.hpp"
#include "read_pcr_mod.hpp"

namespace kv_check {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using pcr_check::finding;
using pcr_check::severity;

namespace {

std::string trimmed(std::string_view text) { return std::string(lmix_string_utilities::trim(text)); }

/// A line of console or message without the arrow in front.
std::string without_arrow(std::string_view line) {
  line = lmix_string_utilities::trim(line);
  while (!line.empty() && (line.front() == '=' || line.front() == '>')) line.remove_prefix(1);
  return trimmed(line);
}

/// The number behind "line:" or "line" in a message, 0 without one.
int line_in(std::string_view text) {
  const std::size_t at = text.rfind("line");
  if (at == std::string_view::npos) return 0;
  const std::size_t digit = text.find_first_of("0123456789", at);
  if (digit == std::string_view::npos || text.find_first_not_of(" :", at + 4) != digit) return 0;
  int line = 0;
  for (std::size_t i = digit; i < text.size() && text[i] >= '0' && text[i] <= '9' && line < 10'000'000; ++i)
    line = 10 * line + (text[i] - '0');
  return line;
}

/// What one stage of a run says while it is tried: its console and why it stopped.
class trial {
 public:
  explicit trial(state_type& st) : st_(st), console_(st.io.console), errors_(st.io.errors) {
    st.io.console = &said_;
    st.io.errors = &said_at_end_;
  }
  ~trial() { st_.io.console = console_, st_.io.errors = errors_; }
  trial(const trial&) = delete;
  trial& operator=(const trial&) = delete;

  /// Runs the stage; true when it neither stopped nor left an error in the state, which is cleared.
  template <class stage>
  bool run(stage&& f) {
    bool good = true;
    try {
      f();
    } catch (const kalvaris_inout::run_stopped& stopped) {
      good = false;
      reason_ = without_arrow(stopped.text);
    }
    if (st_.io.file_error) good = false, reason_ = without_arrow(st_.io.file_error_mess);
    if (st_.fmt.ierr_fmt > 0) {
      good = false;
      reason_ = message();
    }
    st_.io.file_error = false;
    st_.fmt.ierr_fmt = 0;
    return good;
  }

  [[nodiscard]] const std::string& reason() const { return reason_; }
  /// Lines of warning that were printed.
  [[nodiscard]] std::vector<std::string> warnings() const {
    std::vector<std::string> found;
    for (const std::string& line : lines()) {
      const std::string upper = lmix_string_utilities::u_case(line);
      std::size_t at = upper.find("WARNING");
      if (at == std::string::npos && upper.find("NOT FOUND") == std::string::npos) continue;
      at = at == std::string::npos ? 0 : line.find_first_not_of(" :!,", at + 7);
      if (at != std::string::npos) found.push_back(without_arrow(line.substr(at)));
    }
    return found;
  }
  /// Why it stopped, from the lines that were printed before the words of the stop: those that are neither progress nor
  /// warning.
  [[nodiscard]] std::string detail() const {
    constexpr std::array<std::string_view, 8> aside{"FindFMT:",    "Error reading a profile",      "Reading ",
                                                    "WARNING",     "Please check your input file", "Data from ",
                                                    "Extension: ", "Reflections file name"};
    std::string text;
    for (const std::string& line : lines()) {
      const std::string words = without_arrow(line);
      const bool beside =
          std::ranges::any_of(aside, [&](std::string_view a) { return words.find(a) != std::string::npos; });
      if (!beside && words.find_first_not_of("-^ ") != std::string::npos) text += (text.empty() ? "" : ". ") + words;
    }
    const bool says_nothing = reason_.empty() || reason_ == "Program interrupted";
    return text.empty() ? reason_ : says_nothing ? text : text + ". " + reason_;
  }
  /// The message of a refusal in one line, without the mark under the column and the line of the file.
  [[nodiscard]] std::string message() const {
    std::string text;
    const auto& m = st_.fmt.mess_findfmt;
    for (int i = 0; i < m.nlines; ++i) {
      std::string line = without_arrow(m.txt[static_cast<std::size_t>(i)]);
      if (constexpr std::string_view source = "FindFMT:"; line.starts_with(source))
        line = trimmed(line.substr(source.size()));
      if (line.ends_with(" !")) line.resize(line.size() - 2);
      const bool mark = line.find_first_not_of("-^ ") == std::string::npos;
      const bool place = line.find("Please check your input file") != std::string::npos;
      const bool continued = m.txt[static_cast<std::size_t>(i)].starts_with(pcr_lines::message_continues);
      if (!mark && !place) text += (text.empty() ? "" : continued ? " " : ": ") + line;
    }
    return text;
  }

 private:
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> all;
    std::istringstream text(said_.str());
    for (std::string line; std::getline(text, line);) all.push_back(line);
    return all;
  }

  state_type& st_;
  std::ostream *console_, *errors_;
  std::ostringstream said_, said_at_end_;
  std::string reason_;
};

struct examination {
  state_type& st;
  report out;

  void add(severity level, int line, std::string text, std::string advice = {}) {
    if (text.empty()) return;
    if (std::ranges::any_of(out.findings, [&](const finding& f) { return f.text == text; })) return;
    out.findings.push_back({level, line, std::move(text), std::move(advice)});
  }
  void add_warnings(const trial& t) {
    for (const std::string& text : t.warnings()) add(severity::warning, 0, text);
  }
  [[nodiscard]] bool has_error() const { return out.refused(); }
};

/// What the stages have told so far.
void add_notices(examination& e) {
  for (const kalvaris_params::notice& n : e.st.notices)
    e.add(n.warning ? severity::warning : severity::note, 0, n.text, n.advice);
}

/// Reads the control file. False when it ends before its end.
bool read_control_file(examination& e, pcr_check::line_table& lines) {
  state_type& st = e.st;
  const std::string name = st.io.filenam + ".pcr";
  std::error_code ec;
  if (!std::filesystem::is_regular_file(kalvaris_inout::run_path(st.io, name), ec)) {
    e.add(severity::error, 0, "there is no control file " + name, "Give the name of a control file.");
    return false;
  }
  trial t(st);
  int line = 0;
  std::string words;
  const bool read = t.run([&] {
    kalvaris_inout::openfile(st.io, {kalvaris_inout::file_key::control});
    if (st.io.file_error) return;
    pcr_lines::record kept;
    read_pcr_mod::read_pcr(st, &kept);
    if (st.fmt.ierr_fmt != 0) {
      const auto& m = st.fmt.mess_findfmt;
      for (int i = 0; i < m.nlines && line == 0; ++i) line = line_in(m.txt[static_cast<std::size_t>(i)]);
      words = t.message();
      st.fmt.ierr_fmt = 100;
    }
    lines = pcr_check::lines_of(kept);
    read_pcr_mod::finish_reading(st);
  });
  kalvaris_inout::close_all(st.io);
  e.add_warnings(t);
  for (const kalvaris_inout::missing_file& missing : st.io.missing_files)
    e.add(severity::error, missing.line, missing.words, "Put the file beside the control file, or correct its name.");
  if (read) return true;
  add_notices(e);
  e.add(severity::error, line, words.empty() ? t.reason() : words);
  e.add(severity::note, 0, "reading ended at that error: what stands behind it was not looked at",
        "Correct it and check again.");
  return false;
}

/// The data of each pattern, by the reader of a run.
void read_data(examination& e) {
  state_type& st = e.st;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const auto u = static_cast<std::size_t>(ip);
    if (!st.pattern[u].refining() || st.pattern[u].cry_pat) continue;
    const std::string name = u < st.io.filedat.size() ? st.io.filedat[u] + st.io.extdat[u] : std::string();
    const bool told = std::ranges::any_of(st.io.missing_files, [&](const kalvaris_inout::missing_file& m) {
      return m.words.find("data file: " + name + " ") != std::string::npos;
    });
    if (told) continue;
    trial t(st);
    const bool read = t.run([&] { kv_read_intens::readint(st, ip); });
    e.add_warnings(t);
    if (!read && t.reason().find("Error opening file CODEFIL") != std::string::npos) {
      e.add(severity::error, 0, "no data file: neither " + name + " nor " + name + ".dat or the like is there",
            "Name the data file as the second word of the command.");
    } else if (!read) {
      e.add(severity::error, 0, "data of pattern " + std::to_string(ip + 1) + ": " + t.detail());
    }
    st.data_file = {};
  }
}

/// Whether a file that a stage will open is there.
void need_file(examination& e, const kalvaris_inout::open_request& request, const std::string& what) {
  trial t(e.st);
  const bool there = t.run([&] { kalvaris_inout::openfile(e.st.io, request); });
  kalvaris_inout::close_all(e.st.io);
  if (!there) e.add(severity::error, 0, what + ": " + t.reason(), "Put the file beside the control file.");
}

void look_for_files(examination& e) {
  state_type& st = e.st;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
    if (!p.cry_pat && kv_background::model_of(p) == kv_background::model::file)
      need_file(e, {.key = kalvaris_inout::file_key::background, .ipat = ip + 1},
                "background of pattern " + std::to_string(ip + 1) + " (Nba 1)");
    for (int ph = 0; ph < st.run.nphase; ++ph) {
      const auto& mix = st.mix(ph, ip);
      if (mix.jcontr == 0 || mix.irf == 0) continue;
      const std::string what = "reflections of phase " + std::to_string(ph + 1) + " in pattern " +
                               std::to_string(ip + 1) + " (Irf " + std::to_string(mix.irf) + ")";
      std::error_code ec;
      if (mix.file_hkl.empty())
        need_file(e, {kalvaris_inout::file_key::reflections_in, ip + 1, ph + 1, p.cry_pat}, what);
      else if (!std::filesystem::is_regular_file(kalvaris_inout::run_path(st.io, mix.file_hkl), ec))
        e.add(severity::error, 0, what + ": the file " + mix.file_hkl + " does not exist");
    }
  }
}

/// A run would be refused, but not for what stands in its files.
void look_for_room(examination& e) {
  constexpr int to_new = 2;
  namespace file_key = kalvaris_inout::file_key;
  const int nxt = e.st.run.nxt;
  if (nxt == 0) return;
  trial t(e.st);
  const int key = nxt == to_new ? int{file_key::new_control} : int{file_key::control_out};
  if (t.run([&] { kalvaris_inout::openfile(e.st.io, {key}); })) return kalvaris_inout::close_all(e.st.io);
  e.add(severity::warning, 0, "a run could not write its results: " + t.reason(),
        "Make file and folder writable, or copy them to another place.");
}

/// Everything that a run does before its first cycle, with no listing open.
bool set_up(examination& e) {
  trial t(e.st);
  const bool good = t.run([&] { kv_setup::write_out(e.st); });
  kalvaris_inout::close_all(e.st.io);
  e.add_warnings(t);
  add_notices(e);
  if (!good) e.add(severity::error, 0, t.reason());
  return good;
}

/// The flags and the numbers of the parameters, where errors elsewhere stand in the way of all of set_up. What is
/// refused in them was found before.
void set_up_codes(examination& e) {
  trial t(e.st);
  kv_calculable::tell_without_effect(e.st);
  (void)t.run([&] { (void)kv_setup::prepare_codes(e.st); });
  add_notices(e);
}

/// Reflections that the table of a resolution file does not reach: its end row stands for them.
void reflections_outside_tables(examination& e) {
  for (int ip = 0; ip < e.st.run.n_patt; ++ip) {
    const pattern_type& p = e.st.pattern[static_cast<std::size_t>(ip)];
    if (p.resolution.rows.empty()) continue;
    const double first = static_cast<double>(p.resolution.rows.front().tins),
                 last = static_cast<double>(p.resolution.rows.back().tins);
    int below = 0, above = 0;
    for (const double position : p.refl.pos) {
      below += position < first && position >= static_cast<double>(p.thmin) ? 1 : 0;
      above += position > last && position <= static_cast<double>(p.thmax) ? 1 : 0;
    }
    if (below + above == 0) continue;
    e.add(severity::warning, 0,
          "pattern " + std::to_string(ip + 1) + ": " + std::to_string(below) + " reflections lie below and " +
              std::to_string(above) + " above the table of the resolution file " +
              (static_cast<std::size_t>(ip) < e.st.io.fileres.size() ? e.st.io.fileres[static_cast<std::size_t>(ip)]
                                                                     : "") +
              " (" + pcr_check::text_of(first) + " to " + pcr_check::text_of(last) + ")",
          "Add rows to the table: its end row stands for what lies outside.");
  }
}

void no_reflections(examination& e) {
  for (int ip = 0; ip < e.st.run.n_patt; ++ip)
    for (int ph = 0; ph < e.st.run.nphase; ++ph)
      if (e.st.mix(ph, ip).jcontr != 0 && e.st.mix(ph, ip).num_refl == 0)
        e.add(severity::warning, 0,
              "phase " + std::to_string(ph + 1) + " has no reflection in pattern " + std::to_string(ip + 1),
              "Check cell, wavelength and range.");
}

}  // namespace

int report::count(severity level) const {
  return static_cast<int>(std::ranges::count(findings, level, &finding::level));
}

report look_at(state_type& st) {
  examination e{st, {}};
  st.io.only_looking = true;
  pcr_check::line_table lines;
  e.out.read_to_the_end = read_control_file(e, lines);
  if (e.out.read_to_the_end) {
    for (finding& f : pcr_check::look_at(st, lines)) e.add(f.level, f.line, std::move(f.text), std::move(f.advice));
    look_for_files(e);
    look_for_room(e);
    read_data(e);
    const bool refused = e.has_error();
    if (refused) set_up_codes(e);
    if (!refused && set_up(e)) {
      reflections_outside_tables(e);
      no_reflections(e);
    } else {
      e.add(severity::note, 0, "because of the errors, the reflections were not looked at");
    }
  }
  st.io.only_looking = false;
  return std::move(e.out);
}

std::string text_of(const report& found, const std::string& control_file) {
  std::string text;
  for (const finding& f : found.findings) {
    text += std::string(pcr_check::name_of(f.level)) + ": " + control_file;
    if (f.line > 0) text += ", line " + std::to_string(f.line);
    text += ": " + f.text;
    if (!f.advice.empty()) text += (text.ends_with(".") ? " " : ". ") + f.advice;
    text += "\n";
  }
  const auto counted = [&](severity level) {
    const int n = found.count(level);
    return std::to_string(n) + " " + std::string(pcr_check::name_of(level)) + (n == 1 ? "" : "s");
  };
  text += control_file + ": " + counted(severity::error) + ", " + counted(severity::warning) + ", " +
          counted(severity::note) + (found.refused() ? ": a run would be refused\n" : "\n");
  return text;
}

}  // namespace kv_check

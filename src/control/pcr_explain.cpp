#include "pcr_explain.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "kalvaris_codes.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_text_input.hpp"
#include "pcr_forms.hpp"
#include "pcr_profile.hpp"

namespace pcr_explain {

using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using pcr_fields::kind;
using pcr_fields::slot_place;
using entry = pcr_lines::record::entry;
using kept_line = pcr_lines::record::line;

namespace {

constexpr std::size_t page_width = 112;
constexpr std::string_view indent = "         ";

std::string padded(std::string_view text, std::size_t width) {
  std::string out(text);
  if (out.size() < width) out.append(width - out.size(), ' ');
  return out;
}

std::string short_number(float value) {
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

/// A field that is missing counts as 0.
std::string shown(const entry& e) { return e.text.empty() ? "-" : e.text; }

/// A run of short texts in lines of the page's width.
class paragraph {
 public:
  paragraph(std::string& out, std::string_view first) : out_(out), line_(indent) { line_ += first; }
  void add(const std::string& word) {
    if (!empty_) line_ += ',';
    if (!empty_ && line_.size() + word.size() + 1 > page_width) {
      out_ += line_ + '\n';
      line_ = std::string(indent) + ' ';
    }
    line_ += ' ' + word;
    empty_ = false;
  }
  void end() {
    if (!empty_) out_ += line_ + '\n';
  }

 private:
  std::string& out_;
  std::string line_;
  bool empty_ = true;
};

class explainer {
 public:
  explicit explainer(const reading_result& of);
  std::string run();

 private:
  /// Name, meaning and unit of a field, from its own row or from its slot.
  struct words {
    std::string name, meaning, unit;
    std::string chosen;  ///< words of the value of a flag
  };
  [[nodiscard]] words words_of(const kept_line& line, const entry& e) const;
  [[nodiscard]] std::string abscissa_unit(int pattern) const;
  [[nodiscard]] std::size_t same_meaning(const kept_line& line, std::size_t from) const;
  [[nodiscard]] std::string code_words(const entry& e);
  void explain_line(const kept_line& line);
  void name_missing_files(int line);
  void list_fields(const kept_line& line);
  void list_compactly(const kept_line& line, int first_seen);
  void list_parameters();
  void introduce();

  const reading_result& of_;
  const state_type& st_;
  std::string out_;
  std::map<std::tuple<std::string, int, int>, int> seen_;  ///< lines told in full: name, phase, pattern
  std::map<std::tuple<slot_family, int, int, int>, kalvaris_codes::split_code> numbered_;  ///< slots with a number
  struct parameter {
    std::string name;
    std::set<int> lines;
  };
  std::map<int, parameter> parameters_;  ///< by number
  using entry_key = std::tuple<kind, slot_family, int, int, int>;
  static entry_key key_of(const entry& e) { return {e.kind, e.slot.family, e.slot.owner, e.slot.ip, e.slot.k}; }
  std::map<entry_key, int> last_line_;  ///< of a value or a code: a later line wins over an earlier one
  int line_ = 0;                        ///< line in hand
};

explainer::explainer(const reading_result& of) : of_(of), st_(of.st) {
  for (const kept_line& line : of.kept.lines) {
    for (const entry& e : line.entries) {
      if (e.kind != kind::plain) last_line_[key_of(e)] = line.number;
    }
  }
  if (!of.numbered) return;
  of.st.for_each_slot([&](const kalvaris_params::slot_ref& s) {
    if (s.number != 0) numbered_[{s.family, s.owner, s.ip, s.k}] = {s.number, s.code};
  });
}

std::string explainer::abscissa_unit(int pattern) const {
  namespace abscissa = kalvaris_params::abscissa;
  const auto ip = static_cast<std::size_t>(std::max(pattern, 1) - 1);
  switch (ip < st_.pattern.size() ? st_.pattern[ip].ixunit : int{abscissa::two_theta}) {
    case abscissa::tof:
      return "us";
    case abscissa::energy:
      return "keV";
    case abscissa::q:
    case abscissa::s:
      return "1/angstrom";
    default:
      return "deg";
  }
}

explainer::words explainer::words_of(const kept_line& line, const entry& e) const {
  if (e.kind != kind::plain) {
    const slot_text::text slot = slot_text::describe(st_, e.slot);
    words w{slot.name, std::string(slot.meaning), std::string(slot.unit), {}};
    if (e.slot.family == slot_family::phase) {
      const std::string_view term = pcr_profile::term_of({st_, e.slot.owner, e.slot.ip}, e.slot.k);
      if (!term.empty()) w.name += " (" + std::string(term) + ")";
    }
    const int later = last_line_.at(key_of(e));
    if (later != line.number) w.meaning = "that of line " + std::to_string(later) + " holds";
    return w;
  }
  words w{std::string(e.what.name), std::string(e.what.meaning), std::string(e.what.unit), {}};
  if (e.number > 0) w.name += ' ' + std::to_string(e.number);
  if (w.unit == "abscissa") w.unit = abscissa_unit(line.pattern);
  int value = 0;
  if (e.what.letter == 'i' && (e.text.empty() || lmix_fixed_format::parse_integer(e.text, value))) {
    w.chosen = pcr_fields::words_of(e.what, value);
  }
  return w;
}

std::string explainer::code_words(const entry& e) {
  float word = 0.f;
  if (!e.text.empty()) lmix_fixed_format::parse_real(e.text, word);
  if (const int later = last_line_.at(key_of(e)); later != line_)
    return "that of line " + std::to_string(later) + " holds";
  if (!of_.numbered) {
    const kalvaris_codes::split_code c = kalvaris_codes::split(word);
    if (c.number > 0) return "parameter " + std::to_string(c.number) + ", multiplier " + short_number(c.multiplier);
    return word == 0.f ? "fixed" : "refined with Aut 1, under a number of its own";
  }
  const auto found = numbered_.find({e.slot.family, e.slot.owner, e.slot.ip, e.slot.k});
  if (found == numbered_.end()) {
    if (word == 0.f) return "fixed";
    return st_.run.automatic || kalvaris_codes::split(word).number > 0
               ? "not refined: FIX, the symmetry, the model or the task holds it"
               : "not refined: a code without a number asks for one only with Aut 1";
  }
  const kalvaris_codes::split_code s = found->second;
  std::string text = "parameter " + std::to_string(s.number);
  const auto n = static_cast<std::size_t>(s.number);
  if (n < st_.parm.nampar.size() && s.number <= st_.run.maxs) {
    text += " " + st_.parm.nampar[n];
    parameter& p = parameters_[s.number];
    p.name = st_.parm.nampar[n];
    p.lines.insert(line_);
  } else {
    text += ", which is not refined: Maxs is " + std::to_string(st_.run.maxs);
  }
  if (s.multiplier != 1.f) text += ", multiplier " + short_number(s.multiplier);
  if (word == 0.f) text += " (by VARY or the symmetry)";
  return text;
}

/// Values in a row that mean the same are told once.
std::size_t explainer::same_meaning(const kept_line& line, std::size_t from) const {
  std::size_t end = from + 1;
  const auto groups = [](const entry& e) {
    return e.kind == kind::value || (e.kind == kind::plain && e.number > 0 && e.what.choices.empty());
  };
  if (!groups(line.entries[from])) return end;
  const words first = words_of(line, line.entries[from]);
  for (; end < line.entries.size() && groups(line.entries[end]); ++end) {
    const words w = words_of(line, line.entries[end]);
    if (w.meaning != first.meaning || w.unit != first.unit) break;
  }
  return end;
}

void explainer::list_fields(const kept_line& line) {
  if (line.entries.size() == 1 && line.entries[0].what.letter == pcr_forms::rest) {
    out_ += std::string(indent) + words_of(line, line.entries[0]).meaning + '\n';
    return;
  }
  std::size_t name_width = 4, text_width = 4;
  constexpr std::size_t widest_text = 24, several = 3;
  for (const entry& e : line.entries) {
    name_width = std::max(name_width, words_of(line, e).name.size());
    if (e.text.size() <= widest_text) text_width = std::max(text_width, e.text.size());
  }
  paragraph fixed(out_, "fixed:");
  for (std::size_t k = 0; k < line.entries.size(); ++k) {
    const entry& e = line.entries[k];
    const words w = words_of(line, e);
    const std::string unit = w.unit.empty() ? std::string() : " [" + w.unit + "]";
    if (const std::size_t end = same_meaning(line, k); end - k >= several) {
      paragraph values(out_, w.meaning + unit + ":");
      for (; k < end; ++k) values.add(words_of(line, line.entries[k]).name + ' ' + shown(line.entries[k]));
      values.end();
      --k;
      continue;
    }
    std::string told = w.meaning + unit;
    if (!w.chosen.empty()) told += " -> " + w.chosen;
    if (e.kind == kind::code) told = code_words(e);
    if (told == "fixed") {
      fixed.add(w.name);
      continue;
    }
    const bool below_its_value = e.kind == kind::code && k > 0 && line.entries[k - 1].slot == e.slot;
    const std::string name = below_its_value ? "  code" : w.name;
    out_ += std::string(indent) + padded(name, name_width) + "  " + padded(shown(e), text_width) + "  " + told + '\n';
  }
  fixed.end();
}

void explainer::list_compactly(const kept_line& line, int first_seen) {
  paragraph values(out_, "as line " + std::to_string(first_seen) + ":"), fixed(out_, "fixed:");
  for (const entry& e : line.entries) {
    const words w = words_of(line, e);
    const std::string code = e.kind == kind::code ? code_words(e) : std::string();
    if (code == "fixed") {
      fixed.add(w.name);
      continue;
    }
    std::string told = w.name + ' ' + shown(e);
    if (e.kind == kind::code) told += " " + code;
    if (!w.unit.empty() && e.kind != kind::code) told += ' ' + w.unit;
    if (!w.chosen.empty()) told += " (" + w.chosen + ")";
    values.add(told);
  }
  values.end();
  fixed.end();
}

void explainer::explain_line(const kept_line& line) {
  line_ = line.number;
  std::string title = "-- " + line.name;
  if (line.phase > 0) title += ", phase " + std::to_string(line.phase);
  if (line.pattern > 0) title += ", pattern " + std::to_string(line.pattern);
  out_ += "      " + title + '\n';
  if (line.entries.empty()) return;
  const auto [place, first] = seen_.try_emplace({line.name, line.phase, line.pattern}, line.number);
  if (first) {
    list_fields(line);
  } else {
    list_compactly(line, place->second);
  }
}

void explainer::name_missing_files(int line) {
  for (const kalvaris_inout::missing_file& missing : st_.io.missing_files)
    if (missing.line == line) out_ += std::string(indent) + missing.words + '\n';
}

void explainer::list_parameters() {
  if (parameters_.empty()) return;
  out_ += "\nRefined parameters and the lines of their codes:\n";
  std::size_t width = 0;
  for (const auto& [number, p] : parameters_) width = std::max(width, p.name.size());
  for (const auto& [number, p] : parameters_) {
    out_ += lmix_fixed_format::fmt_line{}.i(6, number).str() + "  " + padded(p.name, width) + "  line";
    for (const int line : p.lines) out_ += ' ' + std::to_string(line);
    out_ += '\n';
  }
}

/// What kind of file it is, when all of it could be read.
void explainer::introduce() {
  const auto count = [](int n, std::string_view what) {
    return std::to_string(n) + ' ' + std::string(what) + (n == 1 ? "" : "s");
  };
  if (of_.numbered) {
    out_ += std::string("Control file, ") + (st_.run.s_format ? "short" : "long") +
            " form: " + count(st_.run.n_patt, "pattern") + ", " + count(st_.run.nphase, "phase") + ", " +
            count(st_.run.maxs, "refined parameter") + ".\n";
  }
  out_ += "A dash stands for a field that is left out and counts as 0.\n\n";
}

std::string explainer::run() {
  introduce();
  auto source = lmix_text_input::text_source::from_string(of_.text);
  auto kept = of_.kept.lines.begin();
  while (source.lines_taken() < of_.kept.last) {
    const auto text = source.next();
    if (!text) break;
    const int number = source.lines_taken();
    std::string shown(*text);
    std::replace(shown.begin(), shown.end(), '\t', ' ');
    out_ += lmix_fixed_format::fmt_line{}.i(5, number).a(" | ").a(shown).str() + '\n';
    if (kept != of_.kept.lines.end() && kept->number == number) explain_line(*kept++);
    name_missing_files(number);
  }
  list_parameters();
  return std::move(out_);
}

}  // namespace

std::string explanation(const reading_result& of) { return explainer(of).run(); }

}  // namespace pcr_explain

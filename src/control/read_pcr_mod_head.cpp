#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>

#include "kalvaris_init.hpp"
#include "lmix_list_input.hpp"
#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_inout::console_line;
using kalvaris_inout::mess_cons;
using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using lmix_fixed_format::fmt_line;
using lmix_string_utilities::u_case;
using pcr_lines::place;

namespace {

constexpr std::size_t title_length = 150;
constexpr std::string_view chi2_comment = "! Current global Chi2 (Bragg contrib.) =";
constexpr std::string_view multi_pattern_word = "NPATT";

/// A title that holds one of these would be taken for the flags by whoever looks for them in the first lines.
void warn_of_title(reading& r) {
  for (const std::string_view word : {multi_pattern_word, std::string_view("!Job")}) {
    if (r.st.run.title.find(word) == std::string::npos) continue;
    console_line(r.st.io, fmt_line{}.a(" Warning! The title of the control file holds the word ").a(word).str());
  }
}

/// Joint chi-square that the last run left in a comment.
void read_chi2_comment(reading& r, std::string_view comment) {
  const std::size_t at = comment.find(chi2_comment);
  if (at == std::string_view::npos) return;
  float chi2 = 0.f;
  lmix_list_input::list_scanner numbers(comment.substr(at + chi2_comment.size()));
  if (numbers.read(chi2) == lmix_list_input::list_status::value && std::isfinite(chi2)) r.st.run.t_chi2_ini = chi2;
}

/// `NPATT n` and, behind n, a 0 for each pattern that takes no part.
bool read_npatt(reading& r) {
  const place at{pcr_forms::npatt.name};
  const std::string line = pcr_lines::without_comment(r.in.take());
  r.in.words(at, pcr_forms::npatt_fields, lmix_string_utilities::getword(line).dire);
  const std::string text = line.substr(multi_pattern_word.size());
  lmix_list_input::list_scanner numbers(text);
  int n_patt = 0;
  if (numbers.read(n_patt) != lmix_list_input::list_status::value) {
    return r.in.refuse(at, "the number of patterns cannot be read");
  }
  if (!r.in.in_range(at, "number of patterns", n_patt, 1, kalvaris_params::NPATT)) return false;
  r.st.run.n_patt = n_patt;
  r.st.run.s_format = false;
  r.st.io.multi_pattern = true;

  r.st.pattern.assign(static_cast<std::size_t>(n_patt), {});
  bool all_read = true;
  for (pattern_type& p : r.st.pattern) {
    all_read = all_read && numbers.read(p.affpat) == lmix_list_input::list_status::value;
  }
  for (pattern_type& p : r.st.pattern) p.affpat = !all_read || p.affpat != 0 ? 1 : 0;
  return true;
}

void read_w_pat(reading& r) {
  constexpr std::string_view word = "W_PAT";
  r.st.run.w_pat_line = pcr_lines::begins_with(u_case(r.in.peek()), word);
  if (!r.st.run.w_pat_line) return;
  std::vector<float> weights(r.st.pattern.size());
  const std::string line = pcr_lines::without_comment(r.in.take());
  r.in.words({pcr_forms::w_pat.name}, pcr_forms::w_pat_fields, lmix_string_utilities::getword(line).dire);
  const std::string text = line.substr(word.size());
  if (!lmix_list_input::read_list(text, std::span<float>(weights)).full()) {
    std::fill(weights.begin(), weights.end(), 1.f);
  }
  for (std::size_t ip = 0; ip < weights.size(); ++ip) r.st.pattern[ip].w_pat = weights[ip];
}

/// Weights of the patterns in the joint sum add up to 1 over the patterns that take part.
void normalise_weights(std::vector<pattern_type>& pattern) {
  float sum = 0.f;
  for (pattern_type& p : pattern) {
    if (p.affpat == 0) continue;
    if (!(p.w_pat > 0.0001f)) p.w_pat = 1.f;
    sum += p.w_pat;
  }
  if (!(sum > 0.f)) return;
  for (pattern_type& p : pattern) p.w_pat /= sum;
}

/// Name of the data file of a run that got none: asked for where there is somebody to answer, else the code.
void ask_for_data_file(reading& r) {
  kalvaris_inout::inout_type& io = r.st.io;
  std::string answer;
  if (kalvaris_inout::may_ask(io)) {
    mess_cons(io, "==> Give the name of data file (yy for yy.dat)");
    console_line(io, "                           (yy.uxd, or yy.acq)");
    console_line(io, fmt_line{}.a("                 (<cr> =").a(io.filenam).a("): ").str());
    answer = pcr_lines::adjl_tab(kalvaris_inout::read_cons(io));
  } else {
    mess_cons(io, fmt_line{}.a(" => Data file taken by default: ").a(io.filenam).str());
  }
  const std::size_t point = answer.find('.');
  io.filedat[0] = answer.empty() ? io.filenam : answer.substr(0, point);
  io.extdat[0] = point == std::string::npos ? "" : answer.substr(point);
}

/// init_val clears what is known by now of the files; both are kept.
void initialise(reading& r) {
  kalvaris_init::read_dimensions(r.st);
  kalvaris_init::init_val(r.st);
  const auto n_patt = static_cast<std::size_t>(r.st.run.n_patt);
  r.st.io.filedat.resize(n_patt);
  r.st.io.extdat.resize(n_patt);
  r.st.io.fileres.assign(n_patt, "");
}

}  // namespace

bool read_head(reading& r) {
  run_type& run = r.st.run;
  run = {};
  r.st.pattern.assign(1, {});
  const auto title = r.in.first_line();
  if (!title) return r.in.fail({"  Error reading the *.PCR at the first line"}, -2);
  run.title = pcr_lines::adjl_tab(title->substr(0, title_length));
  r.in.words({pcr_forms::title.name}, pcr_forms::title_fields, std::array<std::string_view, 1>{run.title});
  warn_of_title(r);
  while (const auto comment = r.in.comment_line()) read_chi2_comment(r, *comment);

  const std::string first = r.in.peek();
  const bool long_form = pcr_lines::begins_with(first, "NPATT") || pcr_lines::begins_with(first, "npatt");
  if (long_form) {
    if (!read_npatt(r)) return false;
    read_w_pat(r);
  }
  initialise(r);
  normalise_weights(r.st.pattern);
  const auto& names = r.st.io.filedat;
  if (!long_form && names[0].empty()) ask_for_data_file(r);
  return true;
}

}  // namespace read_pcr_mod

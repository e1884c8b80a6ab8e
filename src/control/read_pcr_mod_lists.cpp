// Lists of intensities: what stands in the place of a radiation line for Laue images (Uni 10) and for integrated
// intensities of several phases (Int 2). The coefficients that have no codes of their own are refined by the words
// flux_n, abs_n and eff_n of the VARY line, which free the first n of them.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "pcr_commands.hpp"
#include "pcr_forms_further.hpp"
#include "pcr_numbers.hpp"
#include "pcr_sections.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::intensity_lists_type;
using kalvaris_params::pattern_type;
using pcr_fields::part;
using pcr_lines::place;
using pcr_numbers::line;
namespace gslot = kalvaris_params::gslot;
namespace abscissa = kalvaris_params::abscissa;

namespace {

constexpr int most_flux = 60, most_efficiency = 12, histogram_of_file = -1;
enum absorption : int { exponential = 1, chebychev = 2 };
constexpr std::string_view histogram_word = "W_HISTOGRAM";

bool is_laue(const pattern_type& p) { return p.ixunit == abscissa::laue; }

/// A run of coefficients, six to a line; with codes below each line, or refined by a word.
struct coefficients {
  int (*count)(const intensity_lists_type&);
  int first;
  bool coded;
  std::string_view name, header;
};
constexpr std::array<coefficients, 5> coefficient_lines{{
    {[](const intensity_lists_type& l) { return std::max(l.inc_spect, 0); }, gslot::flux, false,
     "coefficients of the incident spectrum",
     "! Chebychev coefficients for modelling the incident spectrum (up to 60 values) "},
    {[](const intensity_lists_type& l) { return l.abs_model == exponential ? 4 : 0; }, gslot::laue_abs, true,
     "coefficients of the absorption", "! A, B, C, D coefficients (exponential) and codes"},
    {[](const intensity_lists_type& l) { return l.abs_model == chebychev ? 6 : 0; }, gslot::laue_abs, false,
     "coefficients of the absorption", "! Absorption Chebychev coefficients for horizontal variable "},
    {[](const intensity_lists_type& l) { return l.abs_model == chebychev ? 6 : 0; }, gslot::laue_abs + 6, false,
     "coefficients of the absorption",
     "! Absorption Chebychev coefficients for vertical variable \n"
     "! Codes are hidden, for refining use: VARY abs_n (max: VARY abs_12)"},
    {[](const intensity_lists_type& l) { return l.det_eff; }, gslot::effic, false,
     "coefficients of the efficiency of the detector", "! Chebychev coefficients for the efficiency of the detector"},
}};

/// A word with the number of coefficients behind it.
struct counted_word {
  std::string_view prefix;
  int first;
  int (*count)(const intensity_lists_type&);
};
constexpr std::array<counted_word, 3> counted_words{{
    {"flux_", gslot::flux, [](const intensity_lists_type& l) { return std::max(l.inc_spect, 0); }},
    {"abs_", gslot::laue_abs,
     [](const intensity_lists_type& l) { return l.abs_model == chebychev     ? 12
                                                : l.abs_model == exponential ? 4
                                                                             : 0; }},
    {"eff_", gslot::effic, [](const intensity_lists_type& l) { return l.det_eff; }},
}};

std::vector<int> slots_from(int first, int count) {
  std::vector<int> slots(static_cast<std::size_t>(count));
  std::iota(slots.begin(), slots.end(), first);
  return slots;
}
constexpr int per_line = 6;

bool read_coefficients(reading& r, int ip, const coefficients& row) {
  const pattern_type& p = r.st.pattern[ip];
  const place at{row.name, 0, ip + 1}, at_codes{"codes of the coefficients of the absorption", 0, ip + 1};
  const int count = row.count(p.lists);
  for (int done = 0; done < count; done += per_line) {
    const std::vector<int> slots = slots_from(row.first + done, std::min(per_line, count - done));
    const slot_arrays to = slots_of_pattern(r, ip);
    if (!r.in.values(at, {part::values(to, slots)})) return false;
    if (row.coded && !r.in.values(at_codes, {part::codes(to, slots)})) return false;
  }
  return true;
}

bool read_histogram(reading& r, int ip) {
  const place at{pcr_forms::histogram.name, 0, ip + 1};
  const auto text = r.in.text(at);
  if (!text) return false;
  const std::string words = pcr_lines::without_comment(*text);
  r.in.words(at, pcr_forms::histogram.fields, lmix_string_utilities::getword(words).dire);
  std::string& name = r.st.pattern[ip].lists.histogram;
  if (pcr_lines::begins_with(words, histogram_word)) {
    name = lmix_string_utilities::trim(std::string_view(words).substr(histogram_word.size()));
  }
  return !name.empty() || r.in.refuse(at, "W_HISTOGRAM and the name of a file expected");
}

bool check_counts(reading& r, const place& at, const intensity_lists_type& lists) {
  return r.in.in_range(at, "number of lists", lists.sets, 1, kalvaris_params::N_LISTS) &&
         r.in.in_range(at, "coefficients of the incident spectrum", lists.inc_spect, histogram_of_file, most_flux) &&
         r.in.in_range(at, "model of the absorption", lists.abs_model, 0, chebychev) &&
         r.in.in_range(at, "coefficients of the efficiency", lists.det_eff, 0, most_efficiency);
}

bool read_laue_header(reading& r, int ip) {
  const place at{pcr_forms::laue_patterns.name, 0, ip + 1};
  intensity_lists_type& lists = r.st.pattern[ip].lists;
  if (!r.in.values(at, {pcr_forms::laue_fields})) return false;
  lists.sets = r.in.i(0), lists.inc_spect = r.in.i(1), lists.abs_model = r.in.i(2), lists.det_eff = r.in.i(3);
  lists.smin = r.in.f(4), lists.smax = r.in.f(5), lists.ds = r.in.f(6);
  if (!check_counts(r, at, lists)) return false;
  if (lists.inc_spect == histogram_of_file && !read_histogram(r, ip)) return false;
  return std::ranges::all_of(coefficient_lines, [&](const coefficients& row) { return read_coefficients(r, ip, row); });
}

bool read_multiphase_header(reading& r, int ip) {
  const place at{pcr_forms::crystals.name, 0, ip + 1}, at_wavelength{pcr_forms::crystal_waves.name, 0, ip + 1};
  pattern_type& p = r.st.pattern[ip];
  if (!r.in.values(at, {pcr_forms::crystal_fields})) return false;
  p.lists.sets = r.in.i(0);
  if (!check_counts(r, at, p.lists) || !r.in.values(at_wavelength, {pcr_forms::crystal_wave_fields})) return false;
  if (!(r.in.f(0) > 0.f) || r.in.f(1) < 0.f) return r.in.refuse(at_wavelength, "the wavelength is not positive");
  p.lamda = {r.in.f(0), r.in.f(1) > 0.f ? r.in.f(1) : r.in.f(0)};
  p.single_wave = std::fabs(p.lamda[0] - p.lamda[1]) < 1.0e-5f;
  p.ratio = {1.f, r.in.f(2)};
  return true;
}

void apply_words(pattern_type& p) {
  const pcr_commands::commands commands(p.vary_command, p.fix_command);
  for (const counted_word& word : counted_words) {
    for (int j = 0; j < word.count(p.lists); ++j) {
      float& code = p.aglb[word.first + j];
      if (j < commands.varied(word.prefix) && std::fabs(code) < pcr_commands::absent_code) code = 1.f;
      if (j < commands.fixed(word.prefix)) code = 0.f;
    }
  }
}

}  // namespace

bool read_lists(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (!(is_laue(p) ? read_laue_header(r, ip) : read_multiphase_header(r, ip))) return false;
  const place at{pcr_forms::intensity_file.name, 0, ip + 1};
  for (int j = 0; j < p.lists.sets; ++j) {
    const auto text = r.in.text(at);
    if (!text) return false;
    p.lists.files.push_back(pcr_lines::without_comment(*text));
    r.in.words(at, pcr_forms::intensity_file.fields, lmix_string_utilities::getword(p.lists.files.back()).dire);
    if (p.lists.files.back().empty()) return r.in.refuse(at, "the name is missing");
  }
  read_commands(r, ip);
  apply_words(p);
  return true;
}

void write_lists(writing& w, int ip) {
  const pattern_type& p = w.st.pattern[ip];
  const intensity_lists_type& lists = p.lists;
  if (is_laue(p)) {
    w.text += "!   Information about Laue patterns\n";
    w.text += "! Laue_Sets Inc_Spect. Abs_Model Det_Eff SinTheta/L(min) SinTheta/L(max) Delta(SinT/Lamb)\n" +
              line{}
                  .i(9, lists.sets)
                  .i(9, lists.inc_spect)
                  .i(9, lists.abs_model)
                  .i(9, lists.det_eff)
                  .n(14, 6, lists.smin)
                  .n(14, 6, lists.smax)
                  .n(14, 6, lists.ds)
                  .str();
    if (lists.inc_spect == histogram_of_file) w.text += std::string(histogram_word) + " " + lists.histogram + "\n";
  } else {
    w.text += "!   Information about Monochromatic multiphasic single crystals\n! SXtal_Sets\n";
    w.text += line{}.i(9, lists.sets).str() + "! Lambda1 Lambda2 Ratio\n";
    w.text += line{}.n(11, 6, p.lamda[0]).n(11, 6, p.lamda[1]).n(11, 6, p.ratio[1]).str();
  }
  for (const coefficients& row : coefficient_lines) {
    const int count = row.count(lists);
    if (count > 0) w.text += std::string(row.header) + '\n';
    for (int done = 0; done < count; done += per_line) {
      line values, codes;
      for (const int k : slots_from(row.first + done, std::min(per_line, count - done))) {
        values.n(14, 6, p.glb[k]);
        codes.k(14, p.aglb_read[k]);
      }
      w.text += values.str() + (row.coded ? codes.str() : "");
    }
  }
  w.text += "!   List of Intensity files:\n";
  for (const std::string& name : lists.files) w.text += name + '\n';
}

}  // namespace read_pcr_mod

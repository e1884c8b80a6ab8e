#include <algorithm>
#include <array>

#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::phase_type;
using lmix_fixed_format::fmt_line;
using lmix_string_utilities::u_case;
using pcr_lines::place;

namespace {

std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  for (auto word = lmix_string_utilities::cutst(text); !word.empty(); word = lmix_string_utilities::cutst(text)) {
    words.emplace_back(word);
  }
  return words;
}

/// The text as numbers; false when a word is none.
bool numbers_of(std::string_view text, std::vector<float>& numbers) {
  numbers.clear();
  for (const std::string& word : words_of(text)) {
    float number = 0.f;
    if (!lmix_fixed_format::parse_real(word, number)) return false;
    numbers.push_back(number);
  }
  return true;
}

/// One key of the block: what stands behind the key, without comment. False: the message stands.
using key_reader = bool (*)(reading&, int ph, std::string_view text);

bool fail_of_phase(reading& r, int ph, std::string_view words) {
  return r.in.fail_here(fmt_line{}.a(words).i(0, ph + 1).str());
}

bool read_content(reading& r, int ph, std::string_view text) {
  phase_type& phase = r.st.phase[ph];
  const std::vector<std::string> words = words_of(text);
  for (std::size_t k = 0; k + 1 < words.size(); k += 2) {
    float number = 0.f;
    if (!lmix_fixed_format::parse_real(words[k + 1], number)) {
      return r.in.refuse({"command lines", ph + 1}, "an element and its number expected");
    }
    phase.content_element.push_back(words[k]);
    phase.content_number.push_back(number);
  }
  return true;
}

bool read_grid(reading& r, int ph, std::string_view text) {
  std::vector<float> n;
  if (!numbers_of(text, n) || n.size() < 3 ||
      !(std::ranges::all_of(n, [](float x) { return x >= 0.f && x < 1.e6f; }))) {
    return fail_of_phase(r, ph, " Error reading the grid for density map in phase number: ");
  }
  for (std::size_t k = 0; k < 3; ++k) r.st.phase[ph].nn_grid[k] = static_cast<int>(n[k]);
  return true;
}

bool read_reference_cell(reading& r, int ph, std::string_view text) {
  phase_type& phase = r.st.phase[ph];
  std::vector<float> cell;
  phase.refer_cell_given = numbers_of(text, cell) && cell.size() >= 6;
  if (phase.refer_cell_given) {
    std::copy_n(cell.begin(), 6, phase.refer_cell.begin());
  } else {
    kalvaris_inout::console_line(
        r.st.io, fmt_line{}.a(" WARNING: Error reading the reference cell in phase number: ").i(0, ph + 1).str());
  }
  return true;
}

template <int direction>
bool read_layer(reading& r, int ph, std::string_view text) {
  phase_type& phase = r.st.phase[ph];
  const std::vector<std::string> words = words_of(text);
  if (words.empty() || !lmix_fixed_format::parse_integer(words[0], phase.lay_subcell) || phase.lay_subcell < 1) {
    return fail_of_phase(r, ph, " Error reading the order of the supercell in layered structure. Phase: ");
  }
  phase.layert = direction;
  return true;
}

/// Operator : fraction code [chirality code]
template <bool time_reversal>
bool read_domain(reading& r, int ph, std::string_view text) {
  const std::size_t colon = text.find(':');
  std::vector<float> n;
  const bool read = colon != std::string_view::npos && numbers_of(text.substr(colon + 1), n);
  if (!read || (n.size() != 2 && n.size() != 4)) {
    return fail_of_phase(r, ph, " Error reading population of magnetic domains. Phase: ");
  }
  std::vector<kalvaris_params::domain_type>& domains = r.st.phase[ph].magdom;
  kalvaris_params::domain_type& domain = domains.emplace_back();
  domain.op = lmix_string_utilities::trim(text.substr(0, colon));
  domain.time_reversal = time_reversal;
  domain.chirality = n.size() == 4;
  std::string op = domain.op;
  std::erase(op, ' ');
  const slot_arrays to{domain.value,
                       domain.code,
                       domain.code_read,
                       kalvaris_params::slot_family::domain,
                       ph,
                       static_cast<int>(domains.size()) - 1};
  constexpr std::array slots{1, 2};
  const auto given = std::span(slots).first(n.size() / 2);
  const std::string line = (time_reversal ? "MAGDOMT " : "MAGDOM ") + op + " " + std::string(text.substr(colon + 1));
  return r.in.values_of({pcr_forms::commands.name, ph + 1}, line,
                        {pcr_forms::domain_fields, pcr_fields::part::pairs(to, given)});
}

bool read_twin(reading& r, int ph, std::string_view text) {
  std::vector<float> n;
  if (!numbers_of(text, n) || n.size() < 9) {
    return r.in.refuse({"command lines", ph + 1}, "the nine numbers of a twin law expected");
  }
  std::copy_n(n.begin(), 9, r.st.phase[ph].twin.emplace_back().begin());
  return true;
}

template <bool phase_type::*flag>
bool set_flag(reading& r, int ph, std::string_view) {
  r.st.phase[ph].*flag = true;
  return true;
}

struct key_row {
  std::string_view key;
  key_reader read;
};
constexpr std::array<key_row, 14> keys{{
    {"CONTENT", read_content},
    {"NN_GRID", read_grid},
    {"REFERENCE_CELL", read_reference_cell},
    {"LAYER_A", read_layer<1>},
    {"LAYER_B", read_layer<2>},
    {"LAYER_C", read_layer<3>},
    {"MAG_MERGE", set_flag<&phase_type::merg_mag>},
    {"EFF_MOMENT", set_flag<&phase_type::eff_mom>},
    {"SAVE_MAG_STRF", set_flag<&phase_type::save_mag_strf>},
    {"MAG_ONLY", set_flag<&phase_type::mag_only>},
    {"NUC_ONLY", set_flag<&phase_type::nuc_only>},
    {"MAGDOM", read_domain<false>},
    {"MAGDOMT", read_domain<true>},
    {"TWIN", read_twin},
}};

}  // namespace

bool read_command_lines(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  if (!pcr_lines::begins_with(r.in.peek(), "COMMANDS")) return true;
  const place at{pcr_forms::commands.name, ph + 1};
  r.in.words(at, pcr_forms::commands_fields, std::array<std::string_view, 1>{r.in.take()});
  phase.commands = true;
  constexpr std::size_t most_lines = 100;
  while (true) {
    const auto line = r.in.text({"end of the command lines (END)", ph + 1});
    if (!line) return false;
    if (pcr_lines::begins_with(u_case(*line), "END")) {
      r.in.words(at, pcr_forms::end_fields, std::array<std::string_view, 1>{*line});
      return true;
    }
    if (phase.cmd_text.size() == most_lines) return fail_of_phase(r, ph, " Too many command lines for Phase: ");
    phase.cmd_text.push_back(*line);
    const std::string plain = pcr_lines::without_comment(*line);
    std::string_view text = plain;
    const std::string key = u_case(lmix_string_utilities::cutst(text));
    r.in.words(at, pcr_forms::command_fields, std::array<std::string_view, 2>{key, text});
    const auto row = std::ranges::find(keys, std::string_view(key), &key_row::key);
    if (row != keys.end() && !row->read(r, ph, text)) return false;
  }
}

}  // namespace read_pcr_mod

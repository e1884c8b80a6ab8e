#include <algorithm>
#include <array>
#include <cmath>

#include "instrumental_resolution.hpp"
#include "lmix_math_general.hpp"
#include "pcr_commands.hpp"
#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::excluded_region;
using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using kalvaris_params::scattering_entry;
using lmix_string_utilities::l_case;
using pcr_fields::part;
using pcr_layout::background_lines;
using pcr_lines::place;
namespace job = kalvaris_params::job;
namespace gslot = kalvaris_params::gslot;
namespace abscissa = kalvaris_params::abscissa;
using lmix_fixed_format::fmt_line;

namespace {

pcr_commands::commands commands_of(const pattern_type& p) { return {p.vary_command, p.fix_command}; }

/// Applies the words of the VARY and FIX lines to one parameter of the pattern.
void command(pattern_type& p, std::string_view word, int k) { commands_of(p).apply(word, p.aglb[k]); }

void take_command_line(reading& r, std::string_view key, const pcr_fields::line_form& form, int ip, std::string& to) {
  if (!pcr_lines::begins_with(r.in.peek(), key)) return;
  to = r.in.take();
  const std::vector<std::string> words = pcr_commands::word_line(to).words();
  for (std::size_t k = 1; k < words.size(); ++k) {
    if (pcr_commands::is_parameter_word(words[k])) continue;
    kalvaris_inout::console_line(r.st.io, fmt_line{}
                                              .a(" Warning! Unknown word on the ")
                                              .a(key)
                                              .a(" line of pattern ")
                                              .i(0, ip + 1)
                                              .a(": ")
                                              .a(words[k])
                                              .str());
  }
  r.in.words({form.name, 0, ip + 1}, form.fields, lmix_string_utilities::getword(to).dire);
}

/// lambda1, lambda2, ratio, bkpos, wdt, cthm, tmv(1), rlim, rkk, tmv(2). The signs of the ratio and of tmv(1) are
/// flags.
bool take_radiation(reading& r, const place& at, pattern_type& p) {
  const pcr_lines::line_reader& in = r.in;
  instrumental_resolution::merge_radiation(p, {in.f(0), in.f(1), std::fabs(in.f(2)), in.f(5), in.f(8)});
  if (!(p.lamda[0] > 0.f) || p.lamda[1] < 0.f) return r.in.refuse(at, "the wavelength is not positive");
  if (p.lamda[1] == 0.f) p.lamda[1] = p.lamda[0];
  p.single_wave = std::fabs(p.lamda[0] - p.lamda[1]) < 1.0e-5f;
  p.iuvw = in.f(2) < 0.f ? 1 : 0;
  p.bkpos = in.f(3);
  constexpr float shortest_base = 3.f;  // FWHM; with less the tails are cut where they still count
  p.wdt = std::max(in.f(4), shortest_base);
  p.tmv = {std::fabs(in.f(6)), in.f(9)};
  if (in.f(6) < 0.f) {
    p.iabscor = 4;
  } else if (in.f(6) > 0.0001f) {
    p.iabscor = p.ilor == 2 ? 1 : 2;
  }
  p.rlim = in.f(7);
  if (p.ratio[1] > 0.f && p.ratio[1] < 1.f && !(p.tmv[1] > 1.0e-9f)) p.tmv[1] = p.tmv[0];
  return true;
}

/// Time of flight and energy: position of the origin of the background, reach of a peak, absorption.
bool read_short_radiation(reading& r, const place& at, pattern_type& p) {
  if (!r.in.values(at, {pcr_forms::radiation_tof_fields})) return false;
  p.bkpos = r.in.f(0);
  p.wdt = r.in.f(1);
  p.iabscor = r.in.i(2);
  const bool columns = p.pl_prf == 1 || std::abs(p.jobtyp) == job::calc_n;
  if (p.ixunit == abscissa::tof && columns) p.pl_prf = 3;
  return true;
}

void take_range(reading& r, pattern_type& p, int first_field) {
  p.thmin_read = r.in.f(first_field);
  p.step_read = r.in.f(first_field + 1);
  p.thmax_read = r.in.f(first_field + 2);
  instrumental_resolution::merge_range(
      p, {p.thmin_read, p.step_read, p.thmax_read, r.in.f(first_field + 3), r.in.f(first_field + 4)});
}

bool read_background_points(reading& r, int ip) {
  const place at{"background points", 0, ip + 1};
  pattern_type& p = r.st.pattern[ip];
  p.pos.assign(static_cast<std::size_t>(p.nbckgd), 0.f);
  for (int j = 0; j < p.nbckgd; ++j) {
    const int k = gslot::bac + j;
    if (!r.in.values(at, {pcr_forms::point_fields, part::pairs(slots_of_pattern(r, ip), std::array{k})})) return false;
    p.pos[j] = r.in.f(0);
    p.brefint = p.brefint || std::fabs(p.aglb[k]) > 0.5f;
  }
  return true;
}

bool read_excluded_regions(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  for (int j = 0; j < p.nexcrg; ++j) {
    if (!r.in.values(pcr_forms::regions, 0, ip + 1)) return false;
    p.excluded.push_back({r.in.f(0), r.in.f(1)});
  }
  return true;
}

/// The word backgd frees the points that lie in no excluded region, or fixes all of them.
void command_background_points(pattern_type& p) {
  const pcr_commands::commands commands = commands_of(p);
  constexpr float absent_height_code = 0.05f;
  const bool vary = commands.vary("backgd"), fix = commands.fix("backgd");
  for (int j = 0; j < p.nbckgd; ++j) {
    float& code = p.aglb[gslot::bac + j];
    const bool excluded = std::any_of(p.excluded.begin(), p.excluded.end(), [&](const excluded_region& e) {
      return p.pos[j] >= e.alow && p.pos[j] <= e.ahigh;
    });
    if (vary && !excluded && std::fabs(code) < absent_height_code) code = 1.f;
    if (fix) code = 0.f;
  }
  if (vary) p.brefint = true;
  if (fix) p.brefint = false;
}

/// Table of sin(theta)/lambda and f that ends at -100.
bool read_scattering_table(reading& r, int ip, scattering_entry& entry) {
  while (true) {
    if (!r.in.values(pcr_forms::scattering_table, 0, ip + 1)) return false;
    if (std::fabs(r.in.f(0) + 100.f) < 1.0e-4f) return true;
    if (entry.star.size() >= kalvaris_params::N_FORM) return r.in.fail_here(" Too many scattering factor entries");
    entry.star.push_back(r.in.f(0));
    entry.ftab.push_back(r.in.f(1));
  }
}

/// Nine coefficients of a form factor; lines whose third value is 0 before it are pairs of values.
bool read_form_factor(reading& r, int ip, scattering_entry& entry) {
  while (true) {
    if (!r.in.values(pcr_forms::form_factor, 0, ip + 1)) return false;
    for (int k = 0; k < 9; ++k) entry.ac[k] = r.in.f(k);
    if (std::fabs(entry.ac[2]) > 1.0e-6f) return true;
    if (entry.posi.size() >= kalvaris_params::N_FORM) return r.in.fail_here(" Too many scattering factor entries");
    entry.posi.push_back(entry.ac[0]);
    entry.scat.push_back(entry.ac[1]);
  }
}

bool read_scattering_entry(reading& r, int ip) {
  const pattern_type& p = r.st.pattern[ip];
  if (!r.in.values(pcr_forms::scattering, 0, ip + 1)) return false;
  scattering_entry entry;
  entry.nam = r.in.word(0);
  entry.dfp = r.in.f(1);
  entry.dfpp = r.in.f(2);
  entry.ity = r.in.i(3);
  entry.from_file = true;
  const bool neutrons = p.radiation() == job::neutrons;
  if (!neutrons && entry.ity == 0) entry.nam = l_case(entry.nam);
  if (entry.ity != 2 && !(neutrons && entry.ity == 0)) {
    if (!(p.nscat < 0 ? read_scattering_table(r, ip, entry) : read_form_factor(r, ip, entry))) return false;
  }
  r.st.pattern[ip].scattering.push_back(std::move(entry));
  return true;
}

/// A wavelength with a code of its own is the value of that parameter; both wavelengths keep their ratio.
void settle_wavelength(pattern_type& p) {
  float& slot_value = p.glb[gslot::lambda];
  if (!(slot_value > 0.f) || p.aglb[gslot::lambda] == 0.f) {
    slot_value = p.lamda[0];
  } else if (slot_value != p.lamda[0]) {
    p.lamda = {slot_value, p.lamda[1] * slot_value / p.lamda[0]};
  }
}

constexpr std::array<int, 4> zero_line_slots{gslot::zero, gslot::sycos, gslot::sysin, gslot::lambda};

int words_in(std::string_view line) { return lmix_string_utilities::getword(line).iv; }

/// A detector angle up to 2 is 2 sin(theta), above that 2theta; the constants of the diffractometer follow.
void settle_diffractometer(pattern_type& p) {
  float& two_sin = p.glb[gslot::two_sin];
  p.aglb[gslot::two_sin] = 0.f;
  const kalvaris_params::resolution_type& file = p.resolution;
  if (instrumental_resolution::gives_bank_angle(p)) two_sin = file.toftet_i;
  p.toftet = two_sin;
  if (two_sin > 2.f) {
    two_sin = static_cast<float>(2.0 * lmix_math_general::sind(0.5 * static_cast<double>(p.toftet)));
  } else {
    p.toftet = static_cast<float>(2.0 * lmix_math_general::asind(0.5 * static_cast<double>(two_sin)));
  }
  p.dtt1 = file.dtt1_i + p.glb[gslot::dtt1];
  p.dtt2 = file.dtt2_i + p.glb[gslot::dtt2];
  p.dtt_1overd = file.dtt_1overd_i + (p.nprof == 10 ? 0.f : p.glb[gslot::dtt_1overd]);
  constexpr float planck_times_c = 12.398419f;  // keV angstrom
  if (p.ixunit == abscissa::energy && p.ireso == 0 && !(p.dtt1 > 1.0e-6f) && two_sin >= 0.001f) {
    p.dtt1 = planck_times_c / two_sin;
  }
}

/// Time of flight: zero, dtt1, dtt2 with their codes, dtt_1overd when nine words stand, the detector angle.
bool read_tof_zero_line(reading& r, const place& at, int ip) {
  pattern_type& p = r.st.pattern[ip];
  const auto text = r.in.text(at);
  if (!text) return false;
  const std::string line = pcr_lines::without_comment(*text);
  const int words = words_in(line);
  if (words != 7 && words != 9) {
    return r.in.fail(
        {"  Error reading the items: zero, code, dtt1, code, dtt2, code ...",
         fmt_line{}.a(" => Please check your input file at line: ").i(6, r.in.lines_taken()).a(" !").str()});
  }
  const std::array<int, 4> slots{gslot::zero, gslot::dtt1, gslot::dtt2, gslot::dtt_1overd};
  const part pairs = part::pairs(slots_of_pattern(r, ip), std::span(slots).first(words == 9 ? 4 : 3));
  if (!r.in.values_of(at, line, {pairs, pcr_forms::angle_fields})) return false;
  p.glb[gslot::two_sin] = r.in.f(words - 1);
  p.tof_words = words;
  return true;
}

bool read_zero_line(reading& r, int ip) {
  const place at{"zero line", 0, ip + 1};
  pattern_type& p = r.st.pattern[ip];
  if (pcr_layout::has_tof_zero_line(p)) {
    if (!read_tof_zero_line(r, at, ip)) return false;
  } else {
    const part pairs = part::pairs(slots_of_pattern(r, ip), zero_line_slots);
    if (!r.in.values(at, {pairs, pcr_forms::more_global_fields})) return false;
    p.iglmore = r.in.i(8);
    if (!r.in.in_range(at, "flag More", p.iglmore, 0, 3)) return false;
  }
  command(p, "zero", gslot::zero);
  if (!pcr_layout::has_diffractometer(p)) {
    command(p, "sycos", gslot::sycos);
    command(p, "sysin", gslot::sysin);
    settle_wavelength(p);
    return true;
  }
  if (!(p.glb[gslot::two_sin] >= 0.f && p.glb[gslot::two_sin] < 180.f)) {
    return r.in.refuse(at, "the detector angle must lie in 0..180");
  }
  command(p, "dtt1", gslot::dtt1);
  command(p, "dtt2", gslot::dtt2);
  command(p, "dtt_1overd", gslot::dtt_1overd);
  settle_diffractometer(p);
  return true;
}

/// The second regime of time of flight: a line of Zt, dtt1t, dtt2t (six words) and one of the crossing (four or five).
bool read_second_regime(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (!pcr_layout::has_second_regime(p)) return true;
  const place at{"line of the second time-of-flight regime", 0, ip + 1};
  std::array<bool, 2> read{};
  for (int k = 0; k < 2; ++k) {
    const auto text = r.in.text(at);
    if (!text) return false;
    const std::string line = pcr_lines::without_comment(*text);
    const bool crossing = words_in(line) < 6;
    if (read[crossing ? 1 : 0]) return r.in.refuse(at, "one line of six and one of four or five values expected");
    read[crossing ? 1 : 0] = true;
    const slot_arrays to = slots_of_pattern(r, ip);
    const bool good =
        crossing ? r.in.values_of(at, line, {part::pairs(to, pcr_layout::crossing_slots), pcr_forms::angle_fields})
                 : r.in.values_of(at, line, {part::pairs(to, pcr_layout::second_regime_slots)});
    if (!good) return false;
    if (!crossing || !(r.in.f(4) > 0.f) || !(r.in.f(4) < 180.f)) continue;
    p.glb[gslot::two_sin] = r.in.f(4);
    settle_diffractometer(p);
  }
  constexpr std::array<std::string_view, 5> words{"Zt", "dtt1t", "dtt2t", "xcross", "width"};
  for (std::size_t k = 0; k < words.size(); ++k) command(p, words[k], gslot::zero_t + static_cast<int>(k));
  return true;
}

/// Names of up to ten profiles that are added to the background, their factors and the codes of these.
bool read_user_profiles(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (p.iglmore != 2 && p.iglmore != 3) return true;
  const place at{"profiles in the background", 0, ip + 1};
  const auto text = r.in.text(at);
  if (!text) return false;
  const std::string line = pcr_lines::without_comment(*text);
  const auto names = lmix_string_utilities::getword(line);
  r.in.words(at, pcr_forms::user_profile_fields, names.dire);
  if (names.dire.empty() || !lmix_fixed_format::parse_integer(names.dire[0], p.nbk_pr) || names.err.err_string) {
    return r.in.refuse(at, "the number of profiles and their names expected");
  }
  constexpr int most = 10;
  if (p.nbk_pr < 1 || p.nbk_pr > most) {
    return r.in.fail_here(fmt_line{}.a(" Too many profiles contributing to background of pattern#").i(0, ip + 1).str());
  }
  const auto n = static_cast<std::size_t>(p.nbk_pr);
  if (names.dire.size() < n + 1) return r.in.refuse(at, "a name of a profile is missing");
  p.file_bpr.assign(names.dire.begin() + 1, names.dire.begin() + 1 + p.nbk_pr);
  std::vector<int> slots(n);
  for (std::size_t k = 0; k < n; ++k) slots[k] = gslot::user_bk + static_cast<int>(k);
  const slot_arrays to = slots_of_pattern(r, ip);
  if (!r.in.values({"factors of the profiles in the background", 0, ip + 1}, {part::values(to, slots)})) return false;
  if (!r.in.values({"codes of the profiles in the background", 0, ip + 1}, {part::codes(to, slots)})) return false;
  for (const int k : slots) command(p, "add_back", k);
  return true;
}

bool read_microabsorption(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (p.iglmore != 1 && p.iglmore != 3) return true;
  constexpr std::array<int, 3> slots{gslot::p0, gslot::cp, gslot::tau};
  if (!r.in.values({"microabsorption line", 0, ip + 1}, {part::pairs(slots_of_pattern(r, ip), slots)})) return false;
  command(p, "P0", gslot::p0);
  command(p, "Cp", gslot::cp);
  command(p, "Tau", gslot::tau);
  if (commands_of(p).fix("Microabs")) p.aglb[gslot::p0] = p.aglb[gslot::cp] = p.aglb[gslot::tau] = 0.f;
  return true;
}

/// A word that may stand in front of the codes of a background.
constexpr std::string_view codes_word = "Codes";

std::string without_codes_word(const std::string& line) {
  return pcr_lines::without_comment(pcr_lines::begins_with(line, codes_word) ? line.substr(codes_word.size()) : line);
}

/// Six words, of which at least so many are numbers: a wrong one is told by the reader of the line.
bool is_six_numbers(const std::string& text, int least) {
  const auto words = lmix_string_utilities::getword(text).dire;
  const auto number = [](std::string_view word) {
    float value = 0.f;
    return lmix_fixed_format::parse_real(word, value);
  };
  return words.size() == 6 && std::count_if(words.begin(), words.end(), number) >= least;
}

/// The cosine series has 12 or 18 terms: 18 when the next two lines are six numbers each.
std::size_t lines_that_stand(reading& r, const background_lines& row, std::size_t line) {
  const bool optional = row.nbckgd == 4 && line == 2;
  const bool stands = is_six_numbers(pcr_lines::without_comment(r.in.peek(1)), 5) &&
                      is_six_numbers(without_codes_word(r.in.peek(2)), 5);
  return optional && !stands ? line : row.lines();
}

bool read_background_codes(reading& r, const place& at, const part& codes) {
  if (!pcr_lines::begins_with(r.in.peek(), codes_word)) return r.in.values(at, {codes});
  return r.in.values_of(at, without_codes_word(r.in.take()), {codes});
}

bool read_coefficients(reading& r, int ip, const background_lines& row) {
  const place at{"background coefficients", 0, ip + 1}, at_codes{"codes of the background coefficients", 0, ip + 1};
  pattern_type& p = r.st.pattern[ip];
  const slot_arrays to = slots_of_pattern(r, ip);
  p.n_bac = 0;
  for (std::size_t line = 0; line < lines_that_stand(r, row, line); ++line) {
    std::vector<int> slots(row.per_line);
    for (std::size_t j = 0; j < slots.size(); ++j) slots[j] = row.first_slot[line] + static_cast<int>(j);
    if (!r.in.values(at, {part::values(to, slots)})) return false;
    if (!read_background_codes(r, at_codes, part::codes(to, slots))) return false;
    for (const int k : slots) command(p, "back", k);
    p.n_bac += static_cast<int>(slots.size());
  }
  return true;
}

bool read_background(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (pcr_layout::is_filter(p)) {
    if (!r.in.values(pcr_forms::filter, 0, ip + 1)) return false;
    p.fwindow = r.in.f(0);
    p.win_cyc = r.in.i(1) == 0 ? 1 : r.in.i(1);
    return true;
  }
  const background_lines* row = pcr_layout::coefficient_lines(p);
  if (row == nullptr) return true;
  if (!read_coefficients(r, ip, *row)) return false;
  float& multiplier = p.glb[gslot::bfile_a];
  const bool from_file = p.isbac > 0 && p.nbckgd == 1;
  if (from_file && multiplier == 0.f && p.glb[gslot::bfile_b] == 0.f && p.glb[gslot::bfile_c] == 0.f &&
      p.glb[gslot::bfile_d] == 0.f) {
    multiplier = 1.f;
  }
  return true;
}

}  // namespace

slot_arrays slots_of_pattern(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  return {p.glb, p.aglb, p.aglb_read, kalvaris_params::slot_family::global, ip, ip};
}

void read_commands(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  take_command_line(r, "VARY", pcr_forms::vary, ip, p.vary_command);
  take_command_line(r, "FIX", pcr_forms::fix, ip, p.fix_command);
}

bool read_radiation(reading& r) {
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    const place at{"radiation line", 0, ip + 1};
    pattern_type& p = r.st.pattern[ip];
    if (pcr_layout::has_lists(p) && !read_lists(r, ip)) return false;
    if (p.cry_pat) continue;
    if (pcr_layout::has_diffractometer(p)) {
      if (!read_short_radiation(r, at, p)) return false;
      read_commands(r, ip);
      continue;
    }
    if (!r.in.values(at, {pcr_forms::radiation_fields}) || !take_radiation(r, at, p)) return false;
    read_commands(r, ip);
    p.glb[gslot::ratio2] = p.ratio[1];
    // A ratio to nothing has no derivative, so that with one wavelength the word must not ask for a parameter.
    if (!p.single_wave) command(p, "ratio", gslot::ratio2);
  }
  return true;
}

bool read_cycles(reading& r) {
  run_type& run = r.st.run;
  const bool short_form = run.s_format;
  const part behind = short_form ? part(pcr_forms::range_fields) : part(std::span<const pcr_fields::field>{});
  if (!r.in.values({pcr_forms::cycles.name}, {pcr_forms::cycles_fields, behind})) return false;
  run.mcycle = std::max(r.in.i(0), 1);
  run.eps = r.in.f(1) < 0.001f ? 0.01f : r.in.f(1);
  for (int k = 1; k <= 4; ++k) run.relax[k] = r.in.f(k + 1);
  if (short_form) {
    take_range(r, r.st.pattern[0], 6);
    return true;
  }
  for (int ip = 0; ip < run.n_patt; ++ip) {
    if (r.st.pattern[ip].cry_pat) continue;
    if (!r.in.values(pcr_forms::range, 0, ip + 1)) return false;
    take_range(r, r.st.pattern[ip], 0);
  }
  return true;
}

bool read_points_and_regions(reading& r) {
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    pattern_type& p = r.st.pattern[ip];
    if (!(p.bkpos > 0.f)) p.bkpos = (p.thmax - p.thmin) * 0.5f;
    const bool points = pcr_layout::has_points(p) && !p.cry_pat;
    if (points && !read_background_points(r, ip)) return false;
    if (!read_excluded_regions(r, ip)) return false;
    if (points) command_background_points(p);
  }
  return true;
}

bool read_scattering(reading& r) {
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    const int entries = std::abs(r.st.pattern[ip].nscat);
    for (int j = 0; j < entries; ++j) {
      if (!read_scattering_entry(r, ip)) return false;
    }
  }
  return true;
}

bool read_global_parameters(reading& r) {
  const place at{pcr_forms::maxs.name};
  run_type& run = r.st.run;
  if (!r.in.values(pcr_forms::maxs)) return false;
  run.maxs = run.maxs_read = r.in.i(0);
  if (!r.in.in_range(at, "number of refined parameters", run.maxs, 0, r.st.dim.maxparam)) return false;
  const auto calculated = [](const pattern_type& p) { return !p.refining(); };
  if (std::any_of(r.st.pattern.begin(), r.st.pattern.end(), calculated)) run.maxs = 0;
  for (int ip = 0; ip < run.n_patt; ++ip) {
    if (r.st.pattern[ip].cry_pat) continue;
    if (!read_zero_line(r, ip) || !read_second_regime(r, ip) || !read_microabsorption(r, ip)) return false;
    if (!read_user_profiles(r, ip) || !read_background(r, ip)) return false;
  }
  return true;
}

}  // namespace read_pcr_mod

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "instrumental_resolution.hpp"
#include "pcr_commands.hpp"
#include "pcr_forms_further.hpp"
#include "pcr_profile.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using lmix_fixed_format::fmt_line;
using pcr_fields::part;
using pcr_lines::place;
using pcr_profile::check;
using pcr_profile::layout;
using pcr_profile::model;
namespace slot = kalvaris_params::slot;
namespace abscissa = kalvaris_params::abscissa;

namespace {

/// The block that is being read.
struct profile_reader {
  reading& r;
  int ph, ip;
  mix_type& mix = r.st.mix(ph, ip);
  phase_type& phase = r.st.phase[ph];
  const pattern_type& pattern = r.st.pattern[ip];
  pcr_profile::block block{r.st, ph, ip};

  slot_arrays slots_of_block = slots_of_phase(r, ph, ip);

  [[nodiscard]] place at(std::string_view name) const { return {name, ph + 1, ip + 1}; }

  bool read_line(const pcr_profile::line& line);
  bool read_coded(const pcr_profile::line& line, std::span<const int> slots);
  bool read_axes(const pcr_profile::line& line);
  bool read_conditions(const pcr_profile::line& line, std::span<const int> slots);
  bool read_special(const pcr_profile::line& line);
  bool read_direction(const place& where);

  bool take_model(const pcr_profile::line& line, int value);
  bool take_model_of_phase(std::string_view what, int phase_type::*field, int value);
  bool take_short_scale_line(const place& where);

  bool run_check(check step);
  void settle_shape();
  void settle_time_of_flight();
  bool check_widths();
  bool check_cell();
  void settle_last_fraction();
};

/// Strain, size and shift models belong to the phase: the first powder pattern that it contributes to decides.
bool profile_reader::take_model_of_phase(std::string_view what, int phase_type::*field, int value) {
  bool first = true;
  for (int before = 0; before < ip; ++before) {
    first = first && (r.st.mix(ph, before).jcontr == 0 || r.st.pattern[before].cry_pat);
  }
  if (first) {
    phase.*field = value;
  } else if (value != 0 && value != phase.*field) {
    kalvaris_inout::console_line(r.st.io, fmt_line{}
                                              .a(" Warning! The ")
                                              .a(what)
                                              .a(" model of phase ")
                                              .i(0, ph + 1)
                                              .a(" in pattern ")
                                              .i(0, ip + 1)
                                              .a(" is ignored, that of the first pattern holds")
                                              .str());
  }
  return true;
}

/// The integer behind the values of a line.
bool profile_reader::take_model(const pcr_profile::line& line, int value) {
  const place where = at(line.name);
  switch (line.behind) {
    case model::none:
      return true;
    case model::strain:
      if (!pcr_profile::known_strain_model(phase.istr, value)) return r.in.refuse(where, "unknown strain model");
      return take_model_of_phase("strain", &phase_type::ismo, value);
    case model::size:
      if (!pcr_profile::known_size_model(value)) return r.in.refuse(where, "unknown size model");
      return take_model_of_phase("size", &phase_type::isi, value);
    case model::shift:
      if (!pcr_profile::known_shift_model(value)) return r.in.refuse(where, "unknown shift model");
      return take_model_of_phase("shift", &phase_type::ishif, value);
    case model::scales: {
      constexpr int most_scales = 36;
      if (!r.in.in_range(where, "number of scale factors", value, 0, most_scales)) return false;
      mix.num_scale = std::max(value, 1);
      return true;
    }
    case model::extinction:
      mix.iextinc = value;
      return r.in.in_range(where, "extinction model", value, 0, 4);
  }
  return true;
}

/// Three words on the first line of a single crystal: scale factors 1 and 2, their number.
bool profile_reader::take_short_scale_line(const place& where) {
  const std::string line = pcr_lines::without_comment(r.in.take());
  constexpr std::array<int, 2> scales{slot::scale, slot::sc2};
  if (!r.in.values_of(where, line, {part::values(slots_of_block, scales), pcr_forms::scales_fields})) return false;
  return take_model({.name = where.name, .header = {}, .behind = model::scales}, r.in.i(2));
}

bool profile_reader::read_coded(const pcr_profile::line& line, std::span<const int> slots) {
  const place where = at(line.name);
  const std::string name_of_codes = "codes of the " + std::string(line.name);
  for (std::size_t from = 0; from < slots.size(); from += line.per_line) {
    const auto some = slots.subspan(from, std::min(line.per_line, slots.size() - from));
    const bool three_words =
        line.behind == model::scales && lmix_string_utilities::getword(pcr_lines::without_comment(r.in.peek())).iv == 3;
    if (three_words) {
      if (!take_short_scale_line(where)) return false;
    } else {
      if (!r.in.values(where, {part::values(slots_of_block, some), pcr_profile::model_fields(line.behind, phase)}))
        return false;
      if (!take_model(line, line.behind == model::none ? 0 : r.in.i(static_cast<int>(some.size())))) return false;
    }
    if (line.then == check::cell && !check_cell()) return false;
    if (!r.in.values(at(name_of_codes), {part::codes(slots_of_block, some)})) return false;
  }
  return true;
}

bool profile_reader::read_direction(const place& where) {
  if (!r.in.values(where, {pcr_forms::size_direction_fields})) return false;
  mix.psz = {r.in.f(0), r.in.f(1), r.in.f(2)};
  return true;
}

/// The fractions of the axes add up to one.
void profile_reader::settle_last_fraction() {
  float others = 0.f;
  for (int a = 0; a + 1 < mix.naxes; ++a) others += mix.par[slot::fr1 + 2 * a];
  const int last = slot::fr1 + 2 * (mix.naxes - 1);
  mix.par[last] = 1.f - others;
  mix.apar[last] = 0.f;
}

bool profile_reader::read_axes(const pcr_profile::line& line) {
  const place where = at(line.name);
  if (!r.in.values(where, {pcr_forms::axes_fields})) return false;
  mix.naxes = r.in.i(0);
  mix.norstp = r.in.i(1);
  constexpr int most_axes = 5, standard_steps = 20;
  if (mix.norstp == 0 && pattern.nori == 3) mix.norstp = standard_steps;
  if (mix.naxes > most_axes) return r.in.fail_here("  Maximum 5 preferred orientation directions");
  if (mix.naxes < 1) return r.in.refuse(where, "number of axes must lie in 1..5");
  for (int a = 0; a < mix.naxes; ++a) {
    const std::array of_axis{slot::md1 + 2 * a, slot::fr1 + 2 * a};
    if (!r.in.values(where, {pcr_forms::axis_fields, part::pairs(slots_of_block, of_axis)})) return false;
    mix.axes.push_back({r.in.f(0), r.in.f(1), r.in.f(2)});
  }
  settle_last_fraction();
  return true;
}

bool profile_reader::read_conditions(const pcr_profile::line& line, std::span<const int> slots) {
  const place where = at(line.name);
  auto& list = slots.empty() || slots[0] == slot::siz1 ? mix.size_cond : mix.shift_cond;
  for (const int k : slots) {
    const std::array of_condition{k};
    if (!r.in.values(where, {pcr_forms::condition_fields, part::pairs(slots_of_block, of_condition)})) return false;
    list.push_back({{r.in.i(0), r.in.i(1), r.in.i(2), r.in.i(3), r.in.i(4)}});
  }
  return true;
}

bool profile_reader::read_special(const pcr_profile::line& line) {
  const bool modulated = pcr_layout::kind_of(phase) == pcr_layout::jbt::modulated;
  const int further = static_cast<int>(pcr_profile::special_indices(phase)) - 3;
  const part indices = modulated ? part(pcr_forms::modulation_index_fields) : part(pcr_forms::special_fields);
  const part satellite(pcr_forms::modulation_satellite_fields, modulated ? further : 0);
  for (int j = 0; j < mix.nref_sp; ++j) {
    std::array<int, slot::per_special> slots{};
    std::iota(slots.begin(), slots.end(), slot::special + slot::per_special * j);
    if (!r.in.values(at(line.name), {indices, satellite, part::pairs(slots_of_block, slots)})) return false;
    auto& reflection = mix.special.emplace_back();
    for (int k = 0; k < 3 + further; ++k) reflection[k] = r.in.i(k);
  }
  return true;
}

/// Shapes that have no constant mixing parameter lose it; the strain parameters are off without a strain model. In time
/// of flight the first of these slots is the extinction.
void profile_reader::settle_shape() {
  const bool without_eta = std::abs(mix.npro) < 4 || mix.npro == 7;
  if (without_eta && pattern.ixunit != abscissa::tof) {
    mix.par[slot::shape1] = 0.f;
    mix.apar[slot::shape1] = 0.f;
    for (int k = slot::str1; k <= slot::str3 && phase.ismo == 0; ++k) mix.apar[k] = 0.f;
  }
  constexpr float smallest_eta = 1.0e-5f;
  if (mix.npro == 5 && mix.par[slot::shape1] < smallest_eta) mix.par[slot::shape1] = smallest_eta;
}

/// Of two slots that act alike only the first is refined.
void profile_reader::settle_time_of_flight() {
  constexpr std::array<std::array<int, 2>, 4> alike{{{slot::iso_gstrain, slot::sig1},
                                                     {slot::iso_gsize, slot::sig2},
                                                     {slot::iso_lstrain, slot::gam1},
                                                     {slot::iso_lsize, slot::gam2}}};
  for (const auto& [sample, instrument] : alike) {
    if (mix.apar[sample] == 0.f || mix.apar[instrument] == 0.f) continue;
    mix.par[instrument] = 0.f;
    mix.apar[instrument] = 0.f;
  }
}

bool profile_reader::check_widths() {
  float sum = 0.f;
  for (const int k : {slot::u, slot::v, slot::w, slot::x, slot::y, slot::gausiz, slot::lorsiz}) {
    sum += std::fabs(mix.par[k]);
  }
  if (!(sum < 1.0e-6f) || instrumental_resolution::gives_widths(pattern)) return true;
  return r.in.fail_here(
      fmt_line{}.a(" Zero half-width parameters for phase").i(3, ph + 1).a(" and NO resolution-file provided! ").str());
}

/// What the crystal system leaves open may be 0 here and is completed with the constraints of the cell.
bool profile_reader::check_cell() {
  const place where = at("cell line");
  const float* cell = &mix.par[slot::cell_a];
  if (!(cell[0] > 0.f) || cell[1] < 0.f || cell[2] < 0.f) return r.in.refuse(where, "a cell length is not positive");
  const bool angles_in_range =
      std::all_of(cell + 3, cell + 6, [](float angle) { return angle >= 0.f && angle < 180.f; });
  return angles_in_range || r.in.refuse(where, "a cell angle does not lie between 0 and 180 degrees");
}

bool profile_reader::run_check(check step) {
  switch (step) {
    case check::shape:
      settle_shape();
      return true;
    case check::widths:
      return check_widths();
    case check::tof:
      settle_time_of_flight();
      return true;
    case check::cell:
    case check::none:
      break;
  }
  return true;
}

bool profile_reader::read_line(const pcr_profile::line& line) {
  const std::vector<int> slots = line.slots(block);
  switch (line.kind) {
    case layout::coded:
      return read_coded(line, slots) && run_check(line.then);
    case layout::pairs:
      return r.in.values(at(line.name), {part::pairs(slots_of_block, slots)});
    case layout::direction:
      return read_direction(at(line.name));
    case layout::axes:
      return read_axes(line);
    case layout::conditions:
      return read_conditions(line, slots);
    case layout::special:
      return read_special(line);
  }
  return true;
}

void command_slots(const pattern_type& p, const phase_type& phase, mix_type& mix, int ph) {
  const pcr_commands::commands commands(p.vary_command, p.fix_command);
  for (const pcr_layout::slot_word& row : pcr_layout::phase_words) {
    // Free intensities absorb the scale.
    if (row.first == slot::scale && std::abs(phase.jbt) == 2) continue;
    const bool other = row.tof != 0 && p.ixunit == abscissa::tof;
    const int first = other ? row.tof : row.first, last = other ? row.tof : row.last;
    for (int k = first; k <= last; ++k) commands.apply(row.word, mix.apar[k], ph + 1);
  }
}

}  // namespace

slot_arrays slots_of_phase(reading& r, int ph, int ip) {
  mix_type& mix = r.st.mix(ph, ip);
  return {mix.par, mix.apar, mix.apar_read, kalvaris_params::slot_family::phase, ph, ip};
}

bool read_profile(reading& r, int ph, int ip) {
  profile_reader reader{r, ph, ip};
  for (const pcr_profile::line& line : pcr_profile::lines()) {
    if (line.stands(reader.block) && !reader.read_line(line)) return false;
  }
  command_slots(r.st.pattern[ip], r.st.phase[ph], r.st.mix(ph, ip), ph);
  return true;
}

}  // namespace read_pcr_mod

#include <algorithm>
#include <cmath>

#include "pcr_commands.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using lmix_fixed_format::fmt_line;
using pcr_layout::coded_line;
using pcr_lines::place;
namespace slot = kalvaris_params::slot;

namespace {

/// A values line of the profile block; the model behind the values, when the line has one, must be 0.
bool read_values(reading& r, const place& at, mix_type& mix, const coded_line& line, std::string_view model) {
  if (!r.in.values(at, line.letters)) return false;
  store_values(r, arrays_of(mix), std::span(line.slots).first(line.size()));
  if (line.letters.back() == 'i' && r.in.i(static_cast<int>(line.size())) != 0) return r.in.refuse(at, model);
  return true;
}

bool read_codes(reading& r, const place& at, mix_type& mix, const coded_line& line) {
  if (!r.in.values(at, line.letters.substr(0, line.size()))) return false;
  store_codes(r, arrays_of(mix), std::span(line.slots).first(line.size()));
  return true;
}

/// Shapes that have no constant mixing parameter lose it; the strain parameters are off without a strain model.
void settle_shape(mix_type& mix) {
  if (std::abs(mix.npro) < 4 || mix.npro == 7) {
    mix.par[slot::shape1] = 0.f;
    mix.apar[slot::shape1] = 0.f;
    for (int k = slot::str1; k <= slot::str3; ++k) mix.apar[k] = 0.f;
  }
  constexpr float smallest_eta = 1.0e-5f;
  if (mix.npro == 5 && mix.par[slot::shape1] < smallest_eta) mix.par[slot::shape1] = smallest_eta;
}

bool check_widths(reading& r, int ph, const mix_type& mix) {
  float sum = 0.f;
  for (const int k : {slot::u, slot::v, slot::w, slot::x, slot::y, slot::gausiz, slot::lorsiz}) {
    sum += std::fabs(mix.par[k]);
  }
  if (!(sum < 1.0e-6f)) return true;
  return r.in.fail({fmt_line{}
                        .a(" Zero half-width parameters for phase")
                        .i(3, ph + 1)
                        .a(" and NO resolution-file provided! ")
                        .str()});
}

/// What the crystal system leaves open may be 0 here and is completed with the constraints of the cell.
bool check_cell(reading& r, const place& at, const mix_type& mix) {
  const float* cell = &mix.par[slot::cell_a];
  if (!(cell[0] > 0.f) || cell[1] < 0.f || cell[2] < 0.f) return r.in.refuse(at, "a cell length is not positive");
  const bool angles_in_range =
      std::all_of(cell + 3, cell + 6, [](float angle) { return angle >= 0.f && angle < 180.f; });
  return angles_in_range || r.in.refuse(at, "a cell angle does not lie between 0 and 180 degrees");
}

bool read_second_widths(reading& r, const place& at, mix_type& mix) {
  if (!r.in.values(at, "ffffff")) return false;
  store_pairs(r, arrays_of(mix), pcr_layout::second_width_slots);
  return true;
}

void command_slots(const pattern_type& p, const phase_type& phase, mix_type& mix, int ph) {
  const pcr_commands::commands commands(p.vary_command, p.fix_command);
  for (const pcr_layout::slot_word& row : pcr_layout::phase_words) {
    // Free intensities absorb the scale.
    if (row.first == slot::scale && std::abs(phase.jbt) == 2) continue;
    for (int k = row.first; k <= row.last; ++k) commands.apply(row.word, mix.apar[k], ph + 1);
  }
}

}  // namespace

slot_arrays arrays_of(mix_type& mix) { return {mix.par, mix.apar, mix.apar_read}; }

bool read_profile(reading& r, int ph, int ip) {
  mix_type& mix = r.st.mix(ph, ip);
  const pattern_type& p = r.st.pattern[ip];
  for (const coded_line& line : pcr_layout::profile_lines) {
    const place at{line.name, ph + 1, ip + 1};
    const int first = line.slots[0];
    if (!read_values(r, at, mix, line,
                     first == slot::scale ? "strain models (Strain-Model) are not available"
                                          : "size models (Size-Model) are not available")) {
      return false;
    }
    if (first == slot::cell_a && !check_cell(r, at, mix)) return false;
    const std::string name_of_codes = "codes of the " + std::string(line.name);
    if (!read_codes(r, {name_of_codes, ph + 1, ip + 1}, mix, line)) return false;
    if (first == slot::scale) settle_shape(mix);
    if (first == slot::u && !check_widths(r, ph, mix)) return false;
  }
  if (p.iuvw == 1 && !read_second_widths(r, {"widths of the second wavelength", ph + 1, ip + 1}, mix)) return false;
  if (mix.ph_shift != 0) {
    const coded_line& line = pcr_layout::phase_shift_line;
    const place at{line.name, ph + 1, ip + 1};
    if (!read_values(r, at, mix, line, {}) || !read_codes(r, at, mix, line)) return false;
  }
  command_slots(p, r.st.phase[ph], mix, ph);
  return true;
}

}  // namespace read_pcr_mod

// What atoms may do beyond resting at their places: harmonics of a modulation, and symmetry modes. Modes stand behind
// the atoms of the phase, kind by kind:
//   V_MODES  modes  [max_amplitude limit]    displacements; M_MODES moments, O_MODES occupancies
//   per mode: its name and the number of its components; per component: number, atom, three components, norm
//   amplitudes of all modes of the kind, six to a line, and their codes
#include <algorithm>
#include <array>
#include <cmath>

#include "pcr_forms_further.hpp"
#include "pcr_numbers.hpp"
#include "pcr_sections.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using kalvaris_params::mode_component;
using kalvaris_params::mode_set_type;
using kalvaris_params::mode_type;
using kalvaris_params::phase_type;
using lmix_string_utilities::u_case;
using pcr_fields::part;
using pcr_lines::place;
using pcr_numbers::line;
namespace aslot = kalvaris_params::aslot;

namespace {

// ---- harmonics ------------------------------------------------------------------------------------------------------

bool read_harmonic_lines(reading& r, int ph, atom_type& atom, int first) {
  const slot_arrays to{
      atom.xl, atom.a, atom.a_read, kalvaris_params::slot_family::atom, static_cast<int>(r.st.atom.size()), 0};
  for (int n = 0; n < atom.imagr; ++n) {
    const auto slots = pcr_layout::harmonic_slots(n, first);
    if (!r.in.values({"harmonic of the atom", ph + 1}, {part::values(to, slots)})) return false;
    if (!r.in.values({"codes of the harmonic", ph + 1}, {part::codes(to, slots)})) return false;
  }
  return true;
}

bool carries_moment(const atom_type& atom) { return atom.n_t == 1 || std::abs(atom.n_t) == 3; }

// ---- modes ----------------------------------------------------------------------------------------------------------

struct mode_kind {
  char kind;
  std::string_view key, header;
};
constexpr std::array<mode_kind, 3> kinds{{
    {'V', "V_MODES", "! Displacement modes: name, components; number, atom, Vx Vy Vz, norm"},
    {'M', "M_MODES", "! Magnetic modes: name, components; number, atom, Mx My Mz, norm"},
    {'O', "O_MODES", "! Scalar modes (occupancy): name, components; number, atom, value, -, -, norm"},
}};
constexpr std::string_view limit_word = "MAX_AMPLITUDE";

/// The kind of mode that the line announces, null when it announces none.
const mode_kind* kind_of(const std::string& line) {
  const auto row = std::ranges::find_if(
      kinds, [&](const mode_kind& kind) { return pcr_lines::begins_with(u_case(line), kind.key); });
  return row == kinds.end() ? nullptr : &*row;
}

bool read_key_line(reading& r, const place& at, mode_set_type& set) {
  const std::string key_line = pcr_lines::without_comment(r.in.take());
  const auto words = lmix_string_utilities::getword(key_line).dire;
  r.in.words(at, pcr_forms::mode_key.fields, words);
  if (words.size() < 2 || !lmix_fixed_format::parse_integer(words[1], set.count)) {
    return r.in.refuse(at, "the number of modes expected behind the key");
  }
  if (words.size() > 2) {
    set.amplitude_constraint = u_case(words[2]) == limit_word && words.size() > 3 &&
                               lmix_fixed_format::parse_real(words[3], set.max_amplitude) && set.max_amplitude > 0.f &&
                               std::isfinite(set.max_amplitude);
    if (!set.amplitude_constraint) return r.in.refuse(at, "max_amplitude and a positive number expected");
  }
  return r.in.in_range(at, "number of modes", set.count, 1, kalvaris_params::NMODES);
}

bool read_mode(reading& r, int ph, mode_type& mode) {
  const place at{pcr_forms::mode.name, ph + 1}, at_component{pcr_forms::component.name, ph + 1};
  if (!r.in.values(at, {pcr_forms::mode_fields})) return false;
  mode.name = r.in.word(0);
  const int components = r.in.i(1);
  if (!r.in.in_range(at, "number of components", components, 1, kalvaris_params::NATS)) return false;
  for (int j = 0; j < components; ++j) {
    if (!r.in.values(at_component, {pcr_forms::component_fields})) return false;
    mode.components.push_back({r.in.i(0), r.in.word(1), {r.in.f(2), r.in.f(3), r.in.f(4)}, r.in.f(5)});
    if (!check_atom_label(r, at_component, mode.components.back().atom)) return false;
  }
  return true;
}

constexpr std::size_t per_line = 6;
constexpr int amplitude = 1;

bool read_amplitudes(reading& r, int ph, std::size_t first) {
  constexpr std::array<int, 1> slots{static_cast<int>(amplitude)};
  std::vector<mode_type>& modes = r.st.phase[ph].modes;
  for (std::size_t from = first; from < modes.size(); from += per_line) {
    std::vector<part> values, codes;
    for (std::size_t j = from; j < std::min(from + per_line, modes.size()); ++j) {
      const slot_arrays to{
          modes[j].value,     modes[j].code, modes[j].code_read, kalvaris_params::slot_family::mode, ph,
          static_cast<int>(j)};
      values.push_back(part::values(to, slots));
      codes.push_back(part::codes(to, slots));
    }
    if (!r.in.values({pcr_forms::amplitudes.name, ph + 1}, values)) return false;
    if (!r.in.values({"codes of the amplitudes", ph + 1}, codes)) return false;
  }
  return true;
}

bool read_mode_set(reading& r, int ph, char kind) {
  const place at{pcr_forms::mode_key.name, ph + 1};
  phase_type& phase = r.st.phase[ph];
  mode_set_type set;
  set.kind = kind;
  if (!read_key_line(r, at, set)) return false;
  if (std::ranges::any_of(phase.mode_sets, [&](const mode_set_type& other) { return other.kind == kind; })) {
    return r.in.refuse(at, "modes of this kind were given before");
  }
  const std::size_t first = phase.modes.size();
  for (int j = 0; j < set.count; ++j) {
    mode_type mode;
    mode.kind = kind;
    if (!read_mode(r, ph, mode)) return false;
    phase.modes.push_back(std::move(mode));
  }
  phase.mode_sets.push_back(set);
  return read_amplitudes(r, ph, first);
}

void write_mode_set(writing& w, const mode_set_type& set, std::span<const mode_type> modes) {
  const auto kind = std::ranges::find(kinds, set.kind, &mode_kind::kind);
  w.text += std::string(kind->header) + '\n';
  line key;
  key.text(kind->key).i(5, set.count);
  if (set.amplitude_constraint) key.text("  max_amplitude").n(12, 6, set.max_amplitude);
  w.text += key.str();
  for (const mode_type& mode : modes) {
    w.text += line{}.text(8, mode.name).i(5, static_cast<int>(mode.components.size())).str();
    for (const mode_component& c : mode.components) {
      line out;
      out.i(5, c.number).text(" ").text(6, c.atom);
      for (const float v : c.v) out.n(12, 6, v);
      w.text += out.n(12, 6, c.norm).str();
    }
  }
  for (std::size_t from = 0; from < modes.size(); from += per_line) {
    line values, codes;
    for (const mode_type& mode : modes.subspan(from, std::min(per_line, modes.size() - from))) {
      values.n(12, 6, mode.value[amplitude]);
      codes.k(12, mode.code_read[amplitude]);
    }
    w.text += values.str() + codes.str();
  }
}

}  // namespace

bool read_harmonics(reading& r, int ph, atom_type& atom) {
  if (!read_harmonic_lines(r, ph, atom, aslot::ucos)) return false;
  if (!carries_moment(atom) || atom.imagr == 0) return true;
  kalvaris_inout::console_line(r.st.io, " Reading Mcos and Msin amplitudes: ");
  return read_harmonic_lines(r, ph, atom, aslot::mcos);
}

void write_harmonics(writing& w, const atom_type& atom) {
  for (const int first : {aslot::ucos, aslot::mcos}) {
    if (first == aslot::mcos && !carries_moment(atom)) return;
    for (int n = 0; n < atom.imagr; ++n) {
      line values, codes;
      for (const int k : pcr_layout::harmonic_slots(n, first)) {
        values.n(12, 6, atom.xl[k]);
        codes.k(12, atom.a_read[k]);
      }
      w.text += values.str() + codes.str();
    }
  }
}

bool read_modes(reading& r, int ph) {
  const place at{pcr_forms::mode_key.name, ph + 1};
  const mode_kind* kind = kind_of(r.in.peek());
  if (kind == nullptr) {
    if (!r.in.text(at)) return false;
    return r.in.refuse(at, "a line V_MODES, M_MODES or O_MODES expected");
  }
  for (; kind != nullptr; kind = kind_of(r.in.peek())) {
    if (!read_mode_set(r, ph, kind->kind)) return false;
  }
  return true;
}

void write_modes(writing& w, const phase_type& phase) {
  std::span<const mode_type> left = phase.modes;
  for (const mode_set_type& set : phase.mode_sets) {
    const auto count = static_cast<std::size_t>(set.count);
    write_mode_set(w, set, left.first(count));
    left = left.subspan(count);
  }
}

}  // namespace read_pcr_mod

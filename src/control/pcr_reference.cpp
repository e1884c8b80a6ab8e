#include <algorithm>
#include <array>
#include <set>

#include "kalvaris_init.hpp"
#include "pcr_explain.hpp"
#include "pcr_forms_further.hpp"
#include "pcr_layout.hpp"
#include "pcr_profile.hpp"

namespace pcr_explain {

using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using pcr_fields::field;
using pcr_fields::line_form;
namespace forms = pcr_forms;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
namespace abscissa = kalvaris_params::abscissa;

namespace {

/// A model that shows lines: what it is called in headings, and how it differs from one phase in one 2theta pattern.
struct sample {
  std::string_view name;
  void (*make)(state_type&);
};

state_type state_of(const sample& s) {
  state_type st;
  st.run.n_patt = 1;
  st.run.nphase = 1;
  st.pattern.assign(1, {});
  kalvaris_init::size_phases(st, 1);
  st.mix(0, 0).npro = st.pattern[0].nprof = 7;
  if (s.make != nullptr) s.make(st);
  return st;
}

constexpr sample plain{"", nullptr};
constexpr sample time_of_flight{"time of flight", [](state_type& st) {
                                  st.pattern[0].ixunit = abscissa::tof;
                                  st.pattern[0].iabscor = 1;
                                  st.pattern[0].nprof = st.mix(0, 0).npro = 10;
                                }};
constexpr sample spherical{"spherical components", [](state_type& st) {
                             st.phase[0].jbt = -1;
                             st.atom.emplace_back();
                           }};
constexpr std::array profile_samples{
    plain,
    sample{"with models",
           [](state_type& st) {
             st.pattern[0].iuvw = 1;
             st.pattern[0].nori = 2;
             kalvaris_params::mix_type& mix = st.mix(0, 0);
             mix.ph_shift = mix.nref_sp = 1;
             mix.naxes = 2;
             kalvaris_params::phase_type& phase = st.phase[0];
             phase.jsol = phase.istr = 1;
             phase.ismo = 3;
             phase.isi = -2;
             phase.ishif = -2;
           }},
    sample{"split peak shape, harmonics",
           [](state_type& st) {
             st.mix(0, 0).npro = 11;
             kalvaris_params::phase_type& phase = st.phase[0];
             phase.istr = 0;
             phase.ismo = 9;
             phase.isi = 16;
             phase.ishif = 103;
           }},
    sample{"needle or platelet", [](state_type& st) { st.phase[0].isi = 1; }},
    sample{"quadratic form", [](state_type& st) { st.phase[0].istr = 2; }},
    time_of_flight,
    sample{"integrated intensities",
           [](state_type& st) {
             st.pattern[0].cry_pat = true;
             st.mix(0, 0).num_scale = 8;
           }},
};

// ---- tables ---------------------------------------------------------------------------------------------------------

std::string kind_of(char letter) {
  if (letter == 'i') return "integer";
  if (letter == 'f') return "number";
  return letter == forms::rest ? "text" : "word";
}

std::string heading(std::string_view name, std::string_view of, std::string_view stands,
                    std::string_view says = "Stands: ") {
  std::string text = "### " + std::string(name);
  if (!of.empty()) text += " (" + std::string(of) + ")";
  return text + "\n\n" + (stands.empty() ? std::string() : std::string(says) + std::string(stands) + ".\n\n");
}

constexpr std::string_view head = "| Field | Kind | Meaning | Unit or values |\n|---|---|---|---|\n";

std::string row(std::string_view name, std::string_view kind, std::string_view meaning, std::string_view behind) {
  std::string text;
  for (const std::string_view cell : {name, kind, meaning, behind}) text += "| " + std::string(cell) + " ";
  return text + "|\n";
}

std::string rows(std::span<const field> fields) {
  std::string text;
  for (const field& f : fields) {
    std::string behind(f.unit);
    for (const pcr_fields::choice& c : f.choices) {
      if (!behind.empty()) behind += "; ";
      behind += "`" + std::to_string(c.value) + "` " + std::string(c.text);
    }
    text += row(f.name, kind_of(f.letter), f.meaning, behind);
  }
  return text;
}

/// Rows of slots; neighbours that mean the same share one.
std::string rows(const state_type& st, slot_family family, std::span<const int> slots) {
  std::string text;
  for (std::size_t k = 0; k < slots.size();) {
    const slot_text::text first = slot_text::describe(st, {family, 0, 0, slots[k]});
    std::string name = first.name;
    std::size_t end = k + 1;
    for (; end < slots.size(); ++end) {
      const slot_text::text next = slot_text::describe(st, {family, 0, 0, slots[end]});
      if (next.meaning != first.meaning || next.unit != first.unit) break;
      name = first.name + " ... " + next.name;
    }
    text += row(name, "number", first.meaning, first.unit);
    k = end;
  }
  return text;
}

std::string table(const line_form& form) {
  const std::string text = heading(form.name, "", form.stands) + std::string(head) + rows(form.fields) + "\n";
  return text;
}

std::string tables(std::initializer_list<const line_form*> list) {
  std::string text;
  for (const line_form* form : list) text += table(*form);
  return text;
}

/// Flag lines share their name and are told apart by where they stand.
std::string flags(const line_form& form) {
  return heading(form.name, form.stands, "") + std::string(head) + rows(form.fields) + "\n";
}

struct slot_line {
  std::string_view name, stands;
  slot_family family;
  sample of;
  std::span<const int> slots;
  std::span<const field> front = {}, behind = {};
};
std::string table(const slot_line& line) {
  const state_type st = state_of(line.of);
  return heading(line.name, line.of.name, line.stands) + std::string(head) + rows(line.front) +
         rows(st, line.family, line.slots) + rows(line.behind) + "\n";
}

// ---- chapters -------------------------------------------------------------------------------------------------------

std::string head_chapter() {
  return "## Head and flags\n\n" + tables({&forms::title, &forms::npatt, &forms::w_pat}) +
         flags(pcr_layout::short_flag_line.form) + flags(pcr_layout::long_run_flag_line.form) +
         flags(pcr_layout::long_pattern_flag_line.form) +
         tables({&forms::wght, &forms::data_file, &forms::resolution_file}) +
         flags(pcr_layout::short_output_line.form) + flags(pcr_layout::long_run_output_line.form) +
         flags(pcr_layout::long_pattern_output_line.form) + tables({&forms::profile_file});
}

constexpr std::array<int, 4> zero_slots{gslot::zero, gslot::sycos, gslot::sysin, gslot::lambda};
constexpr std::array<int, 3> time_slots{gslot::zero, gslot::dtt1, gslot::dtt2};
constexpr std::array<int, 3> microabsorption_slots{gslot::p0, gslot::cp, gslot::tau};
constexpr std::array<int, 2> background_slots{gslot::bac, gslot::bac + 5};

std::string pattern_chapter() {
  std::string text =
      "## Instrument and background\n\n" + flags(forms::radiation) + flags(forms::radiation_tof) +
      tables({&forms::laue_patterns, &forms::histogram, &forms::crystals, &forms::crystal_waves, &forms::intensity_file,
              &forms::vary, &forms::fix, &forms::cycles, &forms::range, &forms::points, &forms::regions,
              &forms::scattering, &forms::scattering_table, &forms::form_factor, &forms::maxs});
  constexpr slot_family global = slot_family::global;
  const std::array lines{
      slot_line{"zero line",
                "per powder pattern, each value with its code behind it",
                global,
                plain,
                zero_slots,
                {},
                forms::more_global_fields},
      slot_line{
          "zero line",
          "as that; with nine words Dtt_1overd and its code stand in front of the angle; shape 10 keeps the places "
          "of the other form",
          global,
          time_of_flight,
          time_slots,
          {},
          forms::angle_fields},
      slot_line{"line of the second time-of-flight regime", "shape 10, each value with its code", global,
                time_of_flight, pcr_layout::second_regime_slots},
      slot_line{"line of the second time-of-flight regime",
                "shape 10, second line",
                global,
                {"crossing", time_of_flight.make},
                pcr_layout::crossing_slots,
                {},
                forms::angle_fields},
      slot_line{"microabsorption line", "More 1 or 3, each value with its code", global, plain, microabsorption_slots},
      slot_line{"background coefficients", "coefficient models of Nba: lines of six values, each with codes below",
                global, plain, background_slots},
  };
  for (const slot_line& line : lines) text += table(line);
  return text + tables({&forms::user_profiles, &forms::filter});
}

std::string phase_chapter() {
  return "## Phase and symmetry\n\n" + tables({&forms::phase_name, &forms::commands}) + flags(forms::phase_short) +
         flags(forms::more_short) + flags(forms::phase_long) + flags(forms::more_long) +
         tables({&forms::contributions, &forms::contribution_flags, &forms::direction, &forms::hkl_file,
                 &forms::distance_limits, &forms::bvs, &forms::bvs_names, &forms::space_group}) +
         flags(forms::hand_symmetry) + flags(forms::basis_header) +
         tables({&forms::indicators, &forms::symmetry_operator, &forms::magnetic_matrix, &forms::displacement_matrix,
                 &forms::basis_functions}) +
         table(slot_line{"propagation vectors", "Nvk not 0, a line per vector, codes behind or below",
                         slot_family::vector, plain, std::array{1, 2, 3}});
}

std::string atom_chapter() {
  std::string text = "## Atoms\n\n";
  constexpr std::array<std::string_view, 4> kinds{"Jbt 0, 2, -2, 4, 6", "Jbt 1, -1, 5, -5", "Jbt 10, -10, -6",
                                                  "Jbt 7, -7"};
  constexpr slot_family atom = slot_family::atom;
  for (const pcr_layout::atom_line& line : pcr_layout::atom_lines) {
    const std::string_view kind = kinds[static_cast<std::size_t>(line.kind)];
    text += table(slot_line{"atom line",
                            "per atom; codes of the numbers below",
                            atom,
                            {kind, nullptr},
                            line.value_slots(),
                            line.front,
                            line.behind});
  }
  const std::array lines{
      slot_line{"betas of the atom", "N_t 2, 3, 5; codes below", atom, plain, pcr_layout::beta_slots},
      slot_line{"moments of the atom", "atoms with a moment; codes below", atom, plain, pcr_layout::moment_slots},
      slot_line{"moments of the atom", "Jbt below 0", atom, spherical, pcr_layout::moment_slots},
  };
  for (const slot_line& line : lines) text += table(line);
  return text + tables({&forms::spherical, &forms::body, &forms::body_atom, &forms::body_position, &forms::mode_key,
                        &forms::mode, &forms::component, &forms::amplitudes, &forms::distance_cell});
}

/// How the fields of a profile line stand.
std::string_view arrangement(const pcr_profile::line& line) {
  switch (line.kind) {
    case pcr_profile::layout::coded:
      return line.per_line < 8 ? "lines of six values, each with codes below" : "codes below";
    case pcr_profile::layout::pairs:
      return "each value with its code behind it";
    case pcr_profile::layout::direction:
      return "three numbers";
    case pcr_profile::layout::axes:
      return "number of axes, then a line per axis: direction, value and code, fraction and code";
    case pcr_profile::layout::conditions:
      return "a line per condition: five integers, value, code";
    case pcr_profile::layout::special:
      return "a line per reflection: four integers, five values with codes";
  }
  return {};
}

std::span<const field> front_of(const pcr_profile::line& line) {
  switch (line.kind) {
    case pcr_profile::layout::direction:
      return forms::size_direction_fields;
    case pcr_profile::layout::axes:
      return forms::axis_fields;
    case pcr_profile::layout::conditions:
      return forms::condition_fields;
    case pcr_profile::layout::special:
      return forms::special_fields;
    case pcr_profile::layout::coded:
    case pcr_profile::layout::pairs:
      break;
  }
  return {};
}

std::string profile_chapter() {
  std::string text = "## Profile block\n\n";
  std::set<std::string> told;  // a line that another model has just so is told once
  for (const sample& s : profile_samples) {
    const state_type st = state_of(s);
    const pcr_profile::block block{st, 0, 0};
    for (const pcr_profile::line& line : pcr_profile::lines()) {
      if (!line.stands(block)) continue;
      const std::string body = std::string(head) + rows(front_of(line)) +
                               rows(st, slot_family::phase, line.slots(block)) +
                               rows(pcr_profile::model_fields(line.behind, st.phase[0]));
      if (!told.insert(std::string(line.name) + body).second) continue;
      text += heading(line.name, s.name, arrangement(line), "Layout: ") + body + "\n";
    }
  }
  return text;
}

std::string last_chapter() {
  return "## Restraints, limits, search, plot\n\n" +
         tables({&forms::distance_restraint, &forms::angle_restraint, &forms::moment_restraint,
                 &forms::linear_restraint, &forms::limits}) +
         flags(forms::monte_carlo) + flags(forms::annealing) + flags(forms::annealing_more) +
         tables({&forms::pattern_to_plot});
}

}  // namespace

std::string reference() {
  return head_chapter() + pattern_chapter() + phase_chapter() + atom_chapter() + profile_chapter() + last_chapter();
}

}  // namespace pcr_explain

#include "pcr_check.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "kv_calculable.hpp"
#include "pcr_check_parts.hpp"

namespace pcr_check {

using kalvaris_params::slot_ref;

std::string_view name_of(severity level) {
  constexpr std::array<std::string_view, 3> names{"error", "warning", "note"};
  return names[static_cast<std::size_t>(level)];
}

namespace {

/// What the control file asks for and this release cannot calculate.
void obstacles(examination& e) {
  for (const kv_calculable::obstacle& o : kv_calculable::obstacles(e.st)) {
    std::string where;
    if (o.phase > 0) where += "phase " + std::to_string(o.phase) + ": ";
    if (o.pattern > 0) where += "pattern " + std::to_string(o.pattern) + ": ";
    e.error(0, where + std::string(lmix_string_utilities::trim(o.reason)), "Take the request out of the control file.");
  }
}

void excluded_regions(examination& e, const pattern_type& p, const std::string& where) {
  for (const auto& region : p.excluded) {
    const std::string text = where + "excluded region " + text_of(static_cast<double>(region.alow)) + " to " +
                             text_of(static_cast<double>(region.ahigh));
    if (region.alow > region.ahigh)
      e.warn(0, text + " ends before it begins: it excludes nothing", "Exchange its ends.");
    if (region.ahigh < p.thmin_read && p.refining() && p.thmin_read > 0.f)
      e.note(0, text + " lies below the range of the pattern");
  }
}

void background_points(examination& e, int ip, const std::string& where) {
  const pattern_type& p = e.st.pattern[static_cast<std::size_t>(ip)];
  for (std::size_t i = 1; i < p.pos.size(); ++i) {
    if (p.pos[i] > p.pos[i - 1]) continue;
    e.warn(0,
           where + "background points out of order: " + text_of(static_cast<double>(p.pos[i])) + " stands behind " +
               text_of(static_cast<double>(p.pos[i - 1])),
           "Write the points in ascending order.");
    return;
  }
}

/// Ranges that contradict themselves.
void ranges(examination& e) {
  for (int ip = 0; ip < e.st.run.n_patt; ++ip) {
    const pattern_type& p = e.st.pattern[static_cast<std::size_t>(ip)];
    const std::string where = "pattern " + std::to_string(ip + 1) + ": ";
    if (!p.refining() && !(p.thmax_read > p.thmin_read && p.step_read > 0.f))
      e.error(0, where + "Thmin, Step and Thmax give no points to calculate", "Correct the line of the cycles.");
    excluded_regions(e, p, where);
    background_points(e, ip, where);
    if (p.affpat == 0) e.note(0, where + "takes no part in the refinement (NPATT line): its codes are not used");
  }
}

/// An operation of the group turns the direction (as indices, h R) into neither itself nor its opposite.
bool turned_away(const phase_type& phase, const std::array<float, 3>& direction) {
  for (const auto& op : phase.spgr.symop) {
    float same = 0.f, opposite = 0.f;
    for (std::size_t i = 0; i < 3; ++i) {
      float image = 0.f;
      for (std::size_t j = 0; j < 3; ++j) image += direction[j] * static_cast<float>(op.rot[j][i]);
      same += std::abs(image - direction[i]);
      opposite += std::abs(image + direction[i]);
    }
    if (std::min(same, opposite) > 1.0e-4f) return true;
  }
  return false;
}

/// The exponential model of preferred orientation looks at one reflection of an orbit: only along an axis that symmetry
/// leaves alone have all of them the same angle with the direction.
void preferred_orientation(examination& e) {
  namespace slot = kalvaris_params::slot;
  for (int ph = 0; ph < e.st.run.nphase; ++ph)
    for (int ip = 0; ip < e.st.run.n_patt; ++ip) {
      const auto& mix = e.st.mix(ph, ip);
      const bool used = mix.par[slot::pref1] != 0.f || mix.apar[slot::pref1] != 0.f;
      const bool exponential = e.st.pattern[static_cast<std::size_t>(ip)].nori == 0;
      if (mix.jcontr == 0 || !exponential || !used) continue;
      if (!turned_away(e.st.phase[static_cast<std::size_t>(ph)], mix.pref)) continue;
      std::string direction;
      for (const float component : mix.pref) direction += " " + text_of(static_cast<double>(component));
      e.warn(0,
             "phase " + std::to_string(ph + 1) + ": symmetry turns the direction of preferred orientation" + direction +
                 " into others, but the exponential model (Nor 0) looks at one of them only",
             "Take the model of March and Dollase (Nor 1).");
    }
}

/// Symbols that no table of settings has. Where axes or origin are in doubt the reader has warned of it.
void symbols_read_by_letters(examination& e) {
  for (std::size_t ph = 0; ph < e.st.phase.size(); ++ph) {
    const auto& group = e.st.phase[ph].spgr;
    if (!group.note.empty() && group.numspg != 0) e.note(0, "phase " + std::to_string(ph + 1) + ": " + group.note);
  }
}

constexpr std::array<check_row, 15> checks{{
    {"requests that cannot be calculated", obstacles},
    {"space-group symbols that no table has", symbols_read_by_letters},
    {"ranges that contradict themselves", ranges},
    {"requests for a number without automatic codes", requests_without_automatic},
    {"parameter numbers above the most that a run can refine", numbers_too_high},
    {"parameters that share a number and do not fit", shared_numbers},
    {"codes on slots that the model does not use", idle_slots},
    {"starting values outside of their limits", boxes},
    {"parameters that cannot be told apart", degenerate_sets},
    {"cells that the lattice does not allow", cells},
    {"atoms beside a special position", near_special_positions},
    {"codes that take an atom off its position", codes_of_sites},
    {"occupancies that disagree with the sites", occupancies},
    {"displacement tensors that cannot be", displacement_tensors},
    {"a direction of preferred orientation that symmetry does not keep", preferred_orientation},
}};

}  // namespace

examination::examination(state_type& state, const line_table& where) : st(state), lines(where) {
  const bool automatic = st.run.automatic;
  bool calculation_only = false;
  for (const pattern_type& p : st.pattern) calculation_only = calculation_only || !p.refining();
  st.for_each_slot([&](const slot_ref& s) {
    if (s.code == 0.f) return;
    coded.push_back({kalvaris_codes::place_of(s), s.value, kalvaris_codes::split(s.code), false});
    const auto n = static_cast<std::size_t>(coded.back().code.number);
    if (n < 1 || coded.back().code.number > st.dim.maxparam) return;
    if (of.size() <= n) of.resize(n + 1);
    of[n].push_back(coded.back());
  });
  std::vector<char> carried(of.size(), 0);
  for (std::size_t n = 1; n < of.size(); ++n) carried[n] = !of[n].empty();
  number_now = kalvaris_codes::closed_up(carried);
  for (int& n : number_now)
    if (calculation_only || (!automatic && n > st.run.maxs)) n = 0;
  for (coded_slot& c : coded) {
    const bool asks = c.code.number == 0 && std::abs(c.code.multiplier) > kalvaris_codes::smallest_multiplier;
    c.refined = asks ? automatic && !calculation_only : refines(c.code.number);
  }
}

void examination::error(int line, std::string text, std::string advice) {
  found.push_back({severity::error, line, std::move(text), std::move(advice)});
}
void examination::warn(int line, std::string text, std::string advice) {
  found.push_back({severity::warning, line, std::move(text), std::move(advice)});
}
void examination::note(int line, std::string text, std::string advice) {
  found.push_back({severity::note, line, std::move(text), std::move(advice)});
}

int examination::known_line(const slot_place& s, bool code) const {
  const int line = lines.of(s, code);
  const bool of_atom = s.family == kalvaris_params::slot_family::atom;
  return line == 0 && of_atom ? st.atom[static_cast<std::size_t>(s.owner)].line_nb : line;
}

void examination::each_atom(const std::function<void(const phase_type&, atom_type&, int)>& f) {
  for (const phase_type& phase : st.phase) {
    if (phase.profile_matching()) continue;
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia)
      f(phase, st.atom[static_cast<std::size_t>(ia)], ia);
  }
}

std::string text_of(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

std::string atom_text(const examination& e, const atom_type& atom) {
  std::string text = "atom " + atom.atext;
  if (e.st.run.nphase > 1) text += " of phase " + std::to_string(atom.phase + 1);
  return text;
}

int line_table::of(const slot_place& slot, bool code) const {
  const auto found = std::ranges::find_if(rows, [&](const row& r) { return r.slot == slot && r.code == code; });
  return found == rows.end() ? 0 : found->line;
}

line_table lines_of(const pcr_lines::record& kept) {
  line_table table;
  for (const auto& line : kept.lines)
    for (const auto& entry : line.entries)
      if (entry.kind != pcr_fields::kind::plain)
        table.rows.push_back({entry.slot, entry.kind == pcr_fields::kind::code, line.number});
  return table;
}

std::vector<finding> look_at(state_type& st, const line_table& lines) {
  examination e(st, lines);
  for (const check_row& row : checks) row.look(e);
  return std::move(e.found);
}

}  // namespace pcr_check

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

#include "pcr_forms.hpp"
#include "pcr_layout.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using pcr_fields::part;
using pcr_lines::place;
namespace aslot = kalvaris_params::aslot;

namespace {

/// Symmetry-adapted form factor: kind and axes, l m sign of each term, the values of the terms in lines of six.
bool read_spherical(reading& r, int ph, atom_type& atom) {
  const place at{pcr_forms::spherical.name, ph + 1};
  kalvaris_params::spherical_form_type& form = atom.sa_ylmp;
  if (!r.in.values(at, {pcr_forms::spherical_type_fields, part(pcr_forms::spherical_axis_fields, 9)})) return false;
  form.kind = lmix_string_utilities::l_case(r.in.word(0));
  if (form.kind != "ylmp" && form.kind != "klj") {
    return r.in.fail_here(" Error in the type of SASH! allowed types: ylmp or klj ! ");
  }
  form.es3 = r.in.i(1);
  constexpr int most_terms = 12;
  if (!r.in.in_range(at, "number of terms", form.es3, 1, most_terms)) return false;
  for (int k = 0; k < 9; ++k) form.axes[k] = r.in.f(2 + k);
  if (std::ranges::all_of(form.axes, [](float x) { return x == 0.f; })) form.axes = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const part terms(pcr_forms::lm_fields, static_cast<int>(form.lm.size()) / 3);
  if (!r.in.values({"terms of the form factor (SASH)", ph + 1}, {terms})) return false;
  for (int k = 0; k < static_cast<int>(form.lm.size()); ++k) form.lm[k] = r.in.i(k);
  return true;
}

bool read_values_and_codes(reading& r, int ph, atom_type& atom, int first, int count) {
  std::vector<int> slots(static_cast<std::size_t>(count));
  std::iota(slots.begin(), slots.end(), first);
  const slot_arrays to{
      atom.xl, atom.a, atom.a_read, kalvaris_params::slot_family::atom, static_cast<int>(r.st.atom.size()), 0};
  return r.in.values({"form-factor line of the atom", ph + 1}, {part::values(to, slots)}) &&
         r.in.values({"codes of the form-factor line", ph + 1}, {part::codes(to, slots)});
}

/// Radial functions and coupled atoms of a multipole.
bool read_radial(reading& r, int ph, atom_type& atom) {
  if (!r.in.values({"kinds of the radial functions", ph + 1}, {part(pcr_forms::radial_kind_fields, 6)})) return false;
  for (int k = 0; k < 6; ++k) atom.radial_kind[k] = r.in.i(k);
  if (!r.in.values({"scales of the radial functions", ph + 1}, {part(pcr_forms::radial_scale_fields, 4)})) return false;
  for (int k = 0; k < 4; ++k) atom.radial_scale[k] = r.in.f(k);
  if (!r.in.values({"coupled atoms of the form factor", ph + 1},
                   {part(pcr_forms::coupled_kind_fields, 2), part(pcr_forms::coupled_fields, 4)})) {
    return false;
  }
  atom.coupled_kind = {r.in.i(0), r.in.i(1)};
  for (int k = 0; k < 4; ++k) atom.coupled[k] = r.in.word(2 + k);
  return true;
}

}  // namespace

bool read_form_factor(reading& r, int ph, atom_type& atom) {
  const pcr_layout::form_factor_lines lines = pcr_layout::form_factor_of(r.st.phase[ph], atom);
  if (lines.spherical && !read_spherical(r, ph, atom)) return false;
  const int values = lines.spherical ? atom.sa_ylmp.es3 : lines.values;
  for (int done = 0; done < values; done += lines.per_line) {
    if (!read_values_and_codes(r, ph, atom, aslot::ff + done, std::min(lines.per_line, values - done))) return false;
  }
  return !lines.radial || read_radial(r, ph, atom);
}

}  // namespace read_pcr_mod

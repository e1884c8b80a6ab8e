#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

#include "pcr_layout.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using pcr_lines::place;
namespace aslot = kalvaris_params::aslot;

namespace {

/// Symmetry-adapted form factor: kind and axes, l m sign of each term, the values of the terms in lines of six.
bool read_spherical(reading& r, int ph, atom_type& atom) {
  const place at{"form factor of the atom (SASH)", ph + 1};
  kalvaris_params::spherical_form_type& form = atom.sa_ylmp;
  if (!r.in.values(at, "4ifffffffff")) return false;
  form.kind = lmix_string_utilities::l_case(r.in.word(0));
  if (form.kind != "ylmp" && form.kind != "klj") {
    return r.in.fail_here(" Error in the type of SASH! allowed types: ylmp or klj ! ");
  }
  form.es3 = r.in.i(1);
  constexpr int most_terms = 12;
  if (!r.in.in_range(at, "number of terms", form.es3, 1, most_terms)) return false;
  for (int k = 0; k < 9; ++k) form.axes[k] = r.in.f(2 + k);
  if (std::ranges::all_of(form.axes, [](float x) { return x == 0.f; })) form.axes = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  if (!r.in.values(at, std::string(form.lm.size(), 'i'))) return false;
  for (int k = 0; k < static_cast<int>(form.lm.size()); ++k) form.lm[k] = r.in.i(k);
  return true;
}

bool read_values_and_codes(reading& r, int ph, atom_type& atom, int first, int count) {
  std::vector<int> slots(static_cast<std::size_t>(count));
  std::iota(slots.begin(), slots.end(), first);
  const std::string letters(slots.size(), 'f');
  if (!r.in.values({"form-factor line of the atom", ph + 1}, letters)) return false;
  store_values(r, arrays_of(atom), slots);
  if (!r.in.values({"codes of the form-factor line", ph + 1}, letters)) return false;
  store_codes(r, arrays_of(atom), slots);
  return true;
}

/// Radial functions and coupled atoms of a multipole.
bool read_radial(reading& r, int ph, atom_type& atom) {
  if (!r.in.values({"kinds of the radial functions", ph + 1}, "iiiiii")) return false;
  for (int k = 0; k < 6; ++k) atom.radial_kind[k] = r.in.i(k);
  if (!r.in.values({"scales of the radial functions", ph + 1}, "ffff")) return false;
  for (int k = 0; k < 4; ++k) atom.radial_scale[k] = r.in.f(k);
  if (!r.in.values({"coupled atoms of the form factor", ph + 1}, "ii6666")) return false;
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

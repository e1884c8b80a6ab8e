#include "kv_quantitative.hpp"

#include <cmath>

#include "apply_shifts.hpp"
#include "lmix_scattering_chemical_tables.hpp"

namespace kv_quantitative {

namespace {

using kalvaris_params::phase_type;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;

/// |F(cell)|^2 over the F^2 of the structure factor.
double left_out_of_f2(const phase_type& phase) { return phase.spgr.numlat * (phase.spgr.centred == 2 ? 4.0 : 1.0); }

}  // namespace

double cell_mass(const state_type& st, int ph) {
  const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  double mass = 0.0;
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const auto& atom = st.atom[static_cast<std::size_t>(ia)];
    const auto weight = lmix_scattering_chemical_tables::get_atomic_mass(atom.ntyp);
    if (!weight) return 0.0;
    mass += static_cast<double>(*weight) * atom.xl[aslot::occ] * phase.spgr.multip;
  }
  return mass;
}

std::vector<mass_fraction> mass_fractions(const state_type& st, int ip) {
  std::vector<mass_fraction> list;
  std::vector<double> mass, mass_per_scale;
  double total = 0.0;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
    if (st.mix(ph, ip).jcontr == 0 || phase.profile_matching() || phase.natom == 0) continue;
    const double factor = cell_mass(st, ph) * phase.cellp.cellvol / left_out_of_f2(phase);
    if (!(factor > 0.0)) return {};
    list.push_back({ph, 0.0, 0.0});
    mass_per_scale.push_back(factor);
    mass.push_back(factor * st.mix(ph, ip).par[slot::scale]);
    total += mass.back();
  }
  if (list.size() < 2 || !(total > 0.0)) return {};
  for (std::size_t i = 0; i < list.size(); ++i) list[i].fraction = mass[i] / total;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const auto slope = [&](std::size_t j) {
      return ((i == j ? 1.0 : 0.0) - list[i].fraction) * mass_per_scale[j] / total;
    };
    double variance = 0.0;
    for (std::size_t j = 0; j < list.size(); ++j)
      for (std::size_t k = 0; k < list.size(); ++k) {
        const auto& a = st.mix(list[j].phase, ip);
        const auto& b = st.mix(list[k].phase, ip);
        const double r =
            static_cast<double>(apply_shifts::reference_weight(st, a.lpar[slot::scale], a.apar[slot::scale])) *
            apply_shifts::reference_weight(st, b.lpar[slot::scale], b.apar[slot::scale]);
        if (r != 0.0)
          variance += slope(j) * slope(k) * r * st.ne.rjac(a.lpar[slot::scale] - 1, b.lpar[slot::scale] - 1);
      }
    list[i].sigma = std::sqrt(std::max(0.0, variance));
  }
  return list;
}

}  // namespace kv_quantitative

#include "look_scatt.hpp"

#include <algorithm>
#include <optional>

#include "lmix_fixed_format.hpp"
#include "lmix_scattering_chemical_tables.hpp"

namespace look_scatt {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::scattering_entry;
using kalvaris_params::state_type;
namespace job = kalvaris_params::job;
namespace tables = lmix_scattering_chemical_tables;
using lmix_fixed_format::fmt_line;

void copy_form_factor(const tables::xray_form_type& row, scattering_entry& entry) {
  for (std::size_t j = 0; j < 4; ++j) {
    entry.ac[2 * j] = row.a[j];
    entry.ac[2 * j + 1] = row.b[j];
  }
  entry.ac[8] = row.c;
  entry.z = static_cast<float>(row.z);
}

/// A species of the tables; empty when they do not know it.
std::optional<scattering_entry> from_tables(const std::string& name, const pattern_type& pattern) {
  scattering_entry entry;
  entry.nam = name;
  if (pattern.radiation() == job::neutrons) {
    const auto b = tables::find_neutron(name);
    if (!b) return std::nullopt;
    entry.dfp = b->b;
    entry.dfpp = b->b_im;
    return entry;
  }
  const auto* row = tables::find_xray_form(name);
  if (row == nullptr) return std::nullopt;
  copy_form_factor(*row, entry);
  if (pattern.radiation() == job::xrays)
    if (const auto f = tables::find_delta_fp_fpp(name, pattern.lamda[0])) {
      entry.dfp = f->fp;
      entry.dfpp = f->fpp;
    }
  return entry;
}

/// An entry of the control file may leave the form factor to the tables (ity 2), and never gives Z.
void complete_given_entry(scattering_entry& entry, const pattern_type& pattern) {
  if (pattern.radiation() == job::neutrons) return;
  if (entry.ity == 2 && entry.star.empty())
    if (const auto* row = tables::find_xray_form(entry.nam)) copy_form_factor(*row, entry);
  if (const auto* element = tables::find_element(entry.nam)) entry.z = static_cast<float>(element->z);
}

int index_of(const std::vector<scattering_entry>& entries, const std::string& name) {
  const auto same = [&](const scattering_entry& e) {
    return lmix_string_utilities::u_case(e.nam) == lmix_string_utilities::u_case(name);
  };
  const auto it = std::find_if(entries.begin(), entries.end(), same);
  return it == entries.end() ? -1 : static_cast<int>(it - entries.begin());
}

void list_entry(state_type& st, const pattern_type& pattern, const scattering_entry& entry) {
  fmt_line line;
  line.x(2).a(6, entry.nam);
  if (pattern.radiation() == job::neutrons) {
    line.f(10, 5, entry.dfp).f(10, 5, entry.dfpp);
  } else {
    float f0 = entry.ac[8];
    for (std::size_t j = 0; j < 8; j += 2) f0 += entry.ac[j];
    for (const float c : entry.ac) line.f(10, 4, c);
    line.f(10, 4, f0).f(6, 0, entry.z).f(9, 4, entry.dfp).f(9, 4, entry.dfpp);
  }
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line.str() << '\n';
}

/// Where an atom stands, for messages.
std::string place_of(const kalvaris_params::atom_type& atom) {
  return " (atom " + atom.atext + ", line" + fmt_line{}.i(6, atom.line_nb).str() + " of the control file)";
}

void stop_at_special_form(state_type& st, const kalvaris_params::atom_type& atom) {
  if (const auto* form = tables::find_special_form(atom.ntyp))
    kalvaris_inout::stop_cond(st.io,
                              " The form factor " + std::string(form->word) + " (" + std::string(form->what) +
                                  ") is not calculated" + place_of(atom),
                              true);
}

void stop_at_too_many(state_type& st, const pattern_type& pattern) {
  if (static_cast<int>(pattern.scattering.size()) <= max_species) return;
  kalvaris_inout::mess_cons(st.io, " => Maximum number of chemical species: " + std::to_string(max_species));
  kalvaris_inout::stop_cond(st.io, " Too many chemical species", true);
}

void warn_without_anomalous_terms(state_type& st, const pattern_type& pattern) {
  if (pattern.radiation() != job::xrays || tables::anomalous_line(pattern.lamda[0])) return;
  kalvaris_inout::mess_cons(st.io, "Warning: no tabulated f', f\" near the wavelength" +
                                       fmt_line{}.f(11, 5, pattern.lamda[0]).str() +
                                       "; they are 0 unless the control file gives them");
}

}  // namespace

int lookup(state_type& st, int ip) {
  auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  std::ostream& listing = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
  listing << (pattern.radiation() == job::neutrons
                  ? " => Scattering lengths:"
                  : " => X-ray scattering coeff. (A1, B1, A2,...C, f(0), Z, Dfp,Dfpp) => Scattering coefficients")
          << '\n';
  for (scattering_entry& entry : pattern.scattering) {
    complete_given_entry(entry, pattern);
    list_entry(st, pattern, entry);
  }

  stop_at_too_many(st, pattern);
  std::vector<std::string> missing;
  bool tables_used = false;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const auto& phase = st.phase[static_cast<std::size_t>(ph)];
    if (st.mix(ph, ip).jcontr == 0 || phase.profile_matching()) continue;
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      auto& atom = st.atom[static_cast<std::size_t>(ia)];
      atom.species.resize(st.pattern.size(), -1);
      int& species = atom.species[static_cast<std::size_t>(ip)];
      stop_at_special_form(st, atom);
      species = index_of(pattern.scattering, atom.ntyp);
      if (species >= 0) continue;
      if (auto entry = from_tables(atom.ntyp, pattern)) {
        species = static_cast<int>(pattern.scattering.size());
        list_entry(st, pattern, *entry);
        pattern.scattering.push_back(std::move(*entry));
        stop_at_too_many(st, pattern);
        tables_used = true;
      } else if (std::find(missing.begin(), missing.end(), atom.ntyp) == missing.end()) {
        missing.push_back(atom.ntyp);
        const std::string where = place_of(atom);
        listing << " Scattering coefficients NOT FOUND for " << atom.ntyp << where << '\n';
        kalvaris_inout::mess_cons(st.io, "Scattering coefficients NOT FOUND for " + atom.ntyp + where);
      }
    }
  }
  if (tables_used) warn_without_anomalous_terms(st, pattern);
  if (!missing.empty()) kalvaris_inout::mess_cons(st.io, " Some scattering coefficients NOT FOUND *");
  return static_cast<int>(missing.size());
}

}  // namespace look_scatt

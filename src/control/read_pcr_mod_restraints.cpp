#include <algorithm>

#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::phase_type;
using pcr_lines::place;

namespace {

bool is_atom(const reading& r, const place& at, const std::string& label) {
  const phase_type& phase = r.st.phase[at.phase - 1];
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    if (r.st.atom[ia].atext == label) return true;
  }
  return false;
}

bool check_atoms(reading& r, const place& at, std::span<const std::string> labels) {
  return std::ranges::all_of(labels, [&](const std::string& label) { return check_atom_label(r, at, label); });
}

/// 0 means the identity, which is the first operator.
bool take_operator(reading& r, const place& at, int number, int& to) {
  to = number == 0 ? 1 : number;
  const int order = number_of_operators(r.st.phase[at.phase - 1]);
  return (to >= 1 && to <= order) || r.in.refuse(at, "operator number too large");
}

bool read_distance(reading& r, const place& at, kalvaris_params::distance_restraint& d) {
  if (!r.in.values(at, {pcr_forms::distance_fields})) return false;
  d.catod = {r.in.word(0), r.in.word(1)};
  d.transl = {r.in.f(3), r.in.f(4), r.in.f(5)};
  d.dio = r.in.f(6), d.sdio = r.in.f(7);
  return check_atoms(r, at, d.catod) && take_operator(r, at, r.in.i(2), d.isymc);
}

bool read_angle(reading& r, const place& at, kalvaris_params::angle_restraint& a) {
  if (!r.in.values(at, {pcr_forms::angle_restraint_fields})) return false;
  a.catoa = {r.in.word(0), r.in.word(1), r.in.word(2)};
  for (int k = 0; k < 6; ++k) a.transla[k] = r.in.f(5 + k);
  a.angl = r.in.f(11), a.scang = r.in.f(12);
  if (!check_atoms(r, at, a.catoa)) return false;
  return take_operator(r, at, r.in.i(3), a.isymca[0]) && take_operator(r, at, r.in.i(4), a.isymca[1]);
}

bool read_moment(reading& r, const place& at, kalvaris_params::moment_restraint& m) {
  if (!r.in.values(at, {pcr_forms::moment_fields})) return false;
  m.cmatom = r.in.word(0);
  m.moment = r.in.f(1), m.sigma = r.in.f(2);
  return check_atoms(r, at, std::span(&m.cmatom, 1));
}

bool read_bond_valence(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  const place at{pcr_forms::bvs.name, ph + 1};
  if (!r.in.values(pcr_forms::bvs, ph + 1)) return false;
  phase.n_cations = r.in.i(0), phase.n_anions = r.in.i(1), phase.tolerance = r.in.f(2);
  using kalvaris_params::N_SPE;
  if (!r.in.in_range(at, "number of cations", phase.n_cations, 0, N_SPE)) return false;
  if (!r.in.in_range(at, "number of anions", phase.n_anions, 0, N_SPE)) return false;
  const place at_names{pcr_forms::bvs_names.name, ph + 1};
  const auto text = r.in.text(at_names);
  if (!text) return false;
  const std::string line = pcr_lines::without_comment(*text);
  const auto words = lmix_string_utilities::getword(line);
  r.in.words(at_names, pcr_forms::bvs_name_fields, words.dire);
  const auto n = static_cast<std::size_t>(phase.n_cations + phase.n_anions);
  if (words.dire.size() < n) return r.in.refuse(at_names, "a name is missing");
  phase.bvs_names.assign(words.dire.begin(), words.dire.begin() + static_cast<std::ptrdiff_t>(n));
  return true;
}

template <class restraint>
bool read_list(reading& r, const place& at, std::string_view flag, int n, std::vector<restraint>& to,
               bool (*read)(reading&, const place&, restraint&)) {
  to.resize(static_cast<std::size_t>(n));
  int k = 0;
  return std::ranges::all_of(to, [&](restraint& one) {
    r.in.in_list(flag, "restraints", ++k, n);
    return read(r, at, one);
  });
}

}  // namespace

bool check_atom_label(reading& r, const place& at, const std::string& label) {
  return is_atom(r, at, label) || r.in.refuse(at, "atom not found: " + label);
}

bool read_distance_limits(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  if (phase.ndic == 0 && phase.nangc == 0) return true;
  const place at{pcr_forms::distance_limits.name, ph + 1};
  const auto text = r.in.text(at);
  if (!text) return false;
  const std::string line = pcr_lines::without_comment(*text);
  std::string_view rest = line;
  if (!r.in.values_of(at, line, {std::span(pcr_forms::distance_limit_fields).first(2)})) return false;
  phase.dis_max = r.in.f(0), phase.ang_max = r.in.f(1);
  lmix_string_utilities::cutst(rest);
  lmix_string_utilities::cutst(rest);
  phase.bvs = lmix_string_utilities::u_case(lmix_string_utilities::cutst(rest)) == "BVS";
  if (phase.bvs) r.in.words(at, pcr_forms::distance_limit_fields, lmix_string_utilities::getword(line).dire);
  return !phase.bvs || read_bond_valence(r, ph);
}

bool read_restraints(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  return read_list(r, {pcr_forms::distance_restraint.name, ph + 1}, "Dis", phase.ndic, phase.distances,
                   read_distance) &&
         read_list(r, {pcr_forms::angle_restraint.name, ph + 1}, "Ang", phase.nangc, phase.angles, read_angle) &&
         read_list(r, {pcr_forms::moment_restraint.name, ph + 1}, "Nmagc", phase.nmagc, phase.moments, read_moment);
}

}  // namespace read_pcr_mod

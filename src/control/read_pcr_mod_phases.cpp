#include <algorithm>
#include <array>
#include <cstdlib>

#include "kalvaris_init.hpp"
#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::mix_type;
using kalvaris_params::phase_type;
using lmix_fixed_format::fmt_line;
using pcr_lines::place;

namespace {

constexpr std::size_t name_length = 164;
namespace slot = kalvaris_params::slot;

/// Cuts the word out of the name wherever it stands; false when it is not there.
bool cut_out(std::string& name, std::string_view word) {
  bool found = false;
  for (std::size_t at = name.find(word); at != std::string::npos; at = name.find(word)) {
    name.erase(at, word.size());
    found = true;
  }
  if (found) name = pcr_lines::adjl_tab(name);
  return found;
}

bool read_name(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  r.in.in_list("Nph", "phases", ph + 1, r.st.run.nphase);
  const auto line = r.in.text(pcr_forms::phase_name, ph + 1);
  if (!line) return false;
  phase.phsnm = pcr_lines::adjl_tab(line->substr(0, name_length));
  phase.vary_xyz = cut_out(phase.phsnm, "VARY xyz");
  phase.fix_xyz = cut_out(phase.phsnm, "FIX xyz");
  phase.mag_only = phase.mag_only_named = cut_out(phase.phsnm, "MAG_ONLY");
  phase.nuc_only = phase.nuc_only_named = cut_out(phase.phsnm, "NUC_ONLY");
  return read_command_lines(r, ph);
}

/// A count or flag of a phase and the values that it may have.
struct phase_range {
  int phase_type::*field;
  int low, high;
  std::string_view what;
};
constexpr std::array<phase_range, 5> flag_ranges{{
    {&phase_type::ndic, 0, kalvaris_params::NCONST, "number of distance restraints"},
    {&phase_type::nangc, 0, kalvaris_params::NCONST, "number of angle restraints"},
    {&phase_type::isym, -2, 2, "kind of symmetry (Isy)"},
    {&phase_type::istr, 0, 4, "unknown strain model: Str"},
    {&phase_type::nvk, -kalvaris_params::N_EQ / 2, kalvaris_params::N_EQ, "number of propagation vectors"},
}};
constexpr int most_scales = 36;
constexpr std::array<phase_range, 2> more_ranges{{
    {&phase_type::nmagc, 0, kalvaris_params::NCONST, "number of moment restraints"},
    {&phase_type::n_domains, 0, most_scales, "number of domains"},
}};

bool check(reading& r, const place& at, const phase_type& phase, std::span<const phase_range> rows) {
  return std::all_of(rows.begin(), rows.end(), [&](const phase_range& row) {
    return r.in.in_range(at, row.what, phase.*row.field, row.low, row.high);
  });
}

bool check_phase_flags(reading& r, const place& at, int ph) {
  phase_type& phase = r.st.phase[ph];
  const int kind = std::abs(phase.jbt);
  constexpr std::array<int, 9> kinds{0, 1, 2, 3, 4, 5, 6, 7, 10};
  if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
    return r.in.refuse(at, fmt_line{}.a("unknown kind of phase (Jbt ").i(0, phase.jbt).a(")").str());
  }
  if (!check(r, at, phase, flag_ranges)) return false;
  constexpr int most_modulations = 3;
  if (kind == pcr_layout::jbt::modulated &&
      !r.in.in_range(at, "number of modulation vectors", std::abs(phase.nvk), 1, most_modulations)) {
    return false;
  }
  const int places = kalvaris_params::NATS - static_cast<int>(r.st.atom.size());
  if (!r.in.in_range(at, "number of atoms", phase.natom, 0, places)) return false;
  if (kind == 3) phase.natom = 0;  // fixed relative intensities: such a phase has no atom lines
  return true;
}

bool check_mix(reading& r, const place& at, int ph, int ip) {
  mix_type& mix = r.st.mix(ph, ip);
  constexpr int last_list = 4, last_shape = 13, two_gaussians = -4;
  if (!r.in.in_range(at, "reflection list (Irf)", mix.irf, -last_list, last_list)) return false;
  mix.npro = mix.npro_read == 0 ? r.st.pattern[ip].nprof : mix.npro_read;
  if (mix.npro != two_gaussians && !r.in.in_range(at, "peak shape (Npr)", mix.npro, 0, last_shape)) return false;
  constexpr int most_special = (slot::last - slot::special + 1) / slot::per_special;
  if (!r.in.in_range(at, "number of special reflections", mix.nref_sp, 0, most_special)) return false;
  if (mix.jtyp == 0) mix.jtyp = std::abs(r.st.pattern[ip].jobtyp);
  return true;
}

/// A structure needs atoms; profile matching does not.
bool check_atoms_of_a_structure(reading& r, int ph, int ip) {
  const phase_type& phase = r.st.phase[ph];
  if (phase.natom > 0 || phase.profile_matching()) return true;
  fmt_line first;
  first.a("  ERROR: You are trying to perform a calculation of intensities without atoms for phase ").i(0, ph + 1);
  if (!r.st.run.s_format) first.a(" and pattern #").i(0, ip + 1);
  return r.in.fail_here(
      {first.str(), "  Introduce atoms or, if you have experimental data, just do a Profile Matching refinement!!!"});
}

bool read_short_flags(reading& r, int ph) {
  const place at{pcr_forms::phase_short.name, ph + 1};
  phase_type& p = r.st.phase[ph];
  mix_type& mix = r.st.mix(ph, 0);
  if (!r.in.values(pcr_forms::phase_short, ph + 1)) return false;
  p.natom = r.in.i(0), p.ndic = r.in.i(1), p.nangc = r.in.i(2);
  mix.pref = {r.in.f(3), r.in.f(4), r.in.f(5)};
  p.jbt = r.in.i(6), mix.irf = r.in.i(7), p.isym = r.in.i(8), p.istr = r.in.i(9), p.ifurt = r.in.i(10);
  p.atz = r.in.f(11);
  p.nvk = r.in.i(12), mix.npro_read = r.in.i(13), p.imore = r.in.i(14);
  if (!check_phase_flags(r, at, ph) || !check_mix(r, at, ph, 0)) return false;
  if (!check_atoms_of_a_structure(r, ph, 0)) return false;
  if (p.imore == 0) return true;

  const place at_more{pcr_forms::more_short.name, ph + 1};
  if (!r.in.values(pcr_forms::more_short, ph + 1)) return false;
  p.jview = r.in.i(0), p.jdist = r.in.i(1), p.jhelix = r.in.i(2), p.jsol = r.in.i(3);
  p.nmagc = r.in.i(4), p.jter = r.in.i(5);
  mix.brinl = r.in.f(6), mix.rmua = r.in.f(7), mix.rmub = r.in.f(8), mix.rmuc = r.in.f(9);
  mix.jtyp = r.in.i(10), mix.nref_sp = r.in.i(11), mix.ph_shift = r.in.i(12), p.n_domains = r.in.i(13);
  return check(r, at_more, p, more_ranges) && check_mix(r, at_more, ph, 0);
}

bool read_contribution(reading& r, int ph, int ip) {
  const place at{pcr_forms::contribution_flags.name, ph + 1, ip + 1};
  mix_type& mix = r.st.mix(ph, ip);
  if (!r.in.values(pcr_forms::contribution_flags, ph + 1, ip + 1)) return false;
  mix.irf = r.in.i(0), mix.npro_read = r.in.i(1), mix.jtyp = r.in.i(2), mix.nref_sp = r.in.i(3);
  mix.ph_shift = r.in.i(4);
  if (!check_mix(r, at, ph, ip) || !check_atoms_of_a_structure(r, ph, ip)) return false;
  if (!r.in.values(pcr_forms::direction, ph + 1, ip + 1)) return false;
  mix.pref = {r.in.f(0), r.in.f(1), r.in.f(2)};
  mix.brinl = r.in.f(3), mix.rmua = r.in.f(4), mix.rmub = r.in.f(5), mix.rmuc = r.in.f(6);
  return true;
}

bool read_long_flags(reading& r, int ph) {
  const place at{pcr_forms::phase_long.name, ph + 1};
  phase_type& p = r.st.phase[ph];
  if (!r.in.values(pcr_forms::phase_long, ph + 1)) return false;
  p.natom = r.in.i(0), p.ndic = r.in.i(1), p.nangc = r.in.i(2), p.jbt = r.in.i(3), p.isym = r.in.i(4);
  p.istr = r.in.i(5), p.ifurt = r.in.i(6);
  p.atz = r.in.f(7);
  p.nvk = r.in.i(8), p.imore = r.in.i(9);
  if (!check_phase_flags(r, at, ph)) return false;
  if (p.imore != 0) {
    const place at_more{pcr_forms::more_long.name, ph + 1};
    if (!r.in.values(pcr_forms::more_long, ph + 1)) return false;
    p.jview = r.in.i(0), p.jdist = r.in.i(1), p.jhelix = r.in.i(2), p.jsol = r.in.i(3);
    p.nmagc = r.in.i(4), p.jter = r.in.i(5), p.n_domains = r.in.i(6);
    if (!check(r, at_more, p, more_ranges)) return false;
  }
  const place at_contributions{pcr_forms::contributions.name, ph + 1};
  const pcr_fields::part per_pattern(pcr_forms::contribution_fields, r.st.run.n_patt);
  if (!r.in.values(at_contributions, {per_pattern})) return false;
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    r.st.mix(ph, ip).jcontr = r.in.i(ip);
    if (!r.in.in_range(at_contributions, "contribution", r.in.i(ip), 0, 1)) return false;
  }
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    if (r.st.mix(ph, ip).jcontr == 1 && !read_contribution(r, ph, ip)) return false;
  }
  return true;
}

/// FILE_HKL [pattern] name [phase in that file]; any number of such lines.
bool read_reflection_files(reading& r, int ph) {
  const place at{pcr_forms::hkl_file.name, ph + 1};
  while (pcr_lines::begins_with(r.in.peek(), "FILE_HKL")) {
    const std::string line = pcr_lines::without_comment(r.in.take());
    const auto words = lmix_string_utilities::getword(line).dire;
    std::size_t k = 1;
    int pattern = 1;
    if (words.size() > 2 && lmix_fixed_format::parse_integer(words[1], pattern)) k = 2;
    using fields = std::span<const pcr_fields::field>;
    r.in.words(at, k == 2 ? fields(pcr_forms::hkl_fields) : fields(pcr_forms::hkl_fields_short), words);
    if (words.size() <= k) return r.in.refuse(at, "the name of the reflection file is missing");
    if (!r.in.in_range(at, "pattern number", pattern, 1, r.st.run.n_patt)) return false;
    mix_type& mix = r.st.mix(ph, pattern - 1);
    mix.file_hkl = words[k];
    if (words.size() > k + 1 && !lmix_fixed_format::parse_integer(words[k + 1], mix.p_ph)) {
      return r.in.refuse(at, "the phase number of the reflection file cannot be read");
    }
  }
  return true;
}

bool read_phase(reading& r, int ph) {
  const bool flags_read = read_name(r, ph) && (r.st.run.s_format ? read_short_flags(r, ph) : read_long_flags(r, ph));
  if (!flags_read || !read_reflection_files(r, ph) || !read_distance_limits(r, ph)) return false;
  if (!read_space_group(r, ph) || !read_vectors(r, ph) || !read_atoms(r, ph)) return false;
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    if (r.st.mix(ph, ip).jcontr == 1 && !read_profile(r, ph, ip)) return false;
  }
  return read_vectors_behind(r, ph) && read_restraints(r, ph);
}

}  // namespace

bool read_phases(reading& r) {
  kalvaris_init::size_phases(r.st, r.st.run.nphase);
  for (int ph = 0; ph < r.st.run.nphase; ++ph) {
    if (!read_phase(r, ph)) return false;
  }
  return true;
}

}  // namespace read_pcr_mod

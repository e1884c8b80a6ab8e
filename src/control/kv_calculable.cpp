#include "kv_calculable.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "lmix_fixed_format.hpp"

namespace kv_calculable {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::run_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;

namespace {

/// A request of one kind of record: when it is made, and its words.
template <class record>
struct request {
  bool (*made)(const record&);
  std::string_view reason;
};

constexpr std::array<request<run_type>, 2> run_requests{{
    {[](const run_type& r) { return r.icryg != 0; }, "integrated intensities and searches (Cry) are not available"},
    {[](const run_type& r) { return !r.linear.empty(); }, "linear restraints (Nli) are not available"},
}};

constexpr std::array<request<pattern_type>, 7> pattern_requests{{
    {[](const pattern_type& p) { return p.nori > 1; }, "preferred orientation of several axes (Nor) is not available"},
    {[](const pattern_type& p) { return p.lists.sets != 0; },
     "Laue and multi-phase lists (Uni 10, Int 2) are not available"},
    {[](const pattern_type& p) { return p.ixunit != 0; },
     "time of flight, energy, Q and s data (Uni) are not available"},
    {[](const pattern_type& p) { return p.anm != 0; }, "differences of patterns (Anm) are not available"},
    {[](const pattern_type& p) { return p.cry_flag != 0; }, "integrated intensities (Int) are not available"},
    {[](const pattern_type& p) { return p.iot < 0; }, "numerical profiles (Iot -1, -2) are not available"},
    {[](const pattern_type& p) { return p.nbk_pr != 0; },
     "user profiles in the background (More 2, 3) are not available"},
}};

constexpr std::array<request<phase_type>, 15> phase_requests{{
    {[](const phase_type& p) { return p.mag_only_named || p.nuc_only_named; },
     "magnetic phases (MAG_ONLY, NUC_ONLY) are not available"},
    {[](const phase_type& p) { return p.commands; }, "command lines of a phase (COMMANDS) are not available"},
    {[](const phase_type& p) { return p.ndic != 0; }, "distance restraints (Dis) are not available"},
    {[](const phase_type& p) { return p.nangc != 0; }, "angle restraints (Ang) are not available"},
    {[](const phase_type& p) { return p.isym != 0; }, "symmetry given by hand (Isy) is not available"},
    {[](const phase_type& p) { return p.istr != 0; }, "strain and size models (Str) are not available"},
    {[](const phase_type& p) { return p.nvk != 0; }, "propagation vectors (Nvk) are not available"},
    {[](const phase_type& p) { return p.jview != 0; }, "a file for viewing the structure (Jview) is not available"},
    {[](const phase_type& p) { return p.jdist != 0; }, "distance and angle calculations (Jdist) are not available"},
    {[](const phase_type& p) { return p.jhelix != 0; }, "helical structures (Jhelix) are not available"},
    {[](const phase_type& p) { return p.jsol != 0; }, "hkl-dependent shifts (Jsol) are not available"},
    {[](const phase_type& p) { return p.nmagc != 0; }, "moment restraints (Nmagc) are not available"},
    {[](const phase_type& p) { return p.n_domains != 0; }, "domain fractions (N_domains) are not available"},
    {[](const phase_type& p) { return p.ismo != 0; }, "strain models (Strain-Model) are not available"},
    {[](const phase_type& p) { return p.isi != 0; }, "size models (Size-Model) are not available"},
}};

// ---- flags without effect
// ---------------------------------------------------------------------------------------------

/// Places of flags among those of the control file, which a series or a search changes for the run.
enum run_output : std::size_t { jci = 3, sho = 5 };
enum pattern_output : std::size_t { ipc = 2, ls2 = 4, jlk = 8, jfo = 9 };

constexpr std::array<request<run_type>, 3> idle_run_flags{{
    {[](const run_type& r) { return r.optimize; },
     "Opt changes nothing: the integrated intensities that it would leave to the last cycle are calculated in each"},
    {[](const run_type& r) { return r.output_flags[jci] != 0; }, "Jci has no effect: no files for other programs"},
    {[](const run_type& r) { return r.output_flags[sho] != 0; }, "Sho has no effect: the listing is not shortened"},
}};

constexpr std::array<request<pattern_type>, 6> idle_pattern_flags{{
    {[](const pattern_type& p) { return p.output_flags[ipc] != 0 && p.output_flags[ipc] != 1; },
     "Ipc has no effect beyond 1: the calculated pattern gets no file of its own"},
    {[](const pattern_type& p) { return std::abs(p.output_flags[ls2]) == 4; },
     "Ls2 has no effect: no plot is drawn in the cycles"},
    {[](const pattern_type& p) { return p.output_flags[ls2] == 5; },
     "Ls2 has no effect: no files for viewing the structure are written in the cycles"},
    {[](const pattern_type& p) { return p.output_flags[jlk] != 0; },
     "Jlk has no effect: no files of reflections for other programs are written"},
    {[](const pattern_type& p) { return p.output_flags[jfo] != 0; },
     "Jfo has no effect: no files for Fourier maps are written"},
    {[](const pattern_type& p) { return p.iwgt == 3 && p.wght.given && p.wght.refine; },
     "WGHT ... refine has no effect: the constants of the weights stay as they are"},
}};

constexpr std::array<request<mix_type>, 2> idle_mix_fields{{
    {[](const mix_type& m) { return m.brinl != 0.f; }, "Brind has no effect: fractions are not corrected by it"},
    {[](const mix_type& m) { return m.rmua != 0.f || m.rmub != 0.f || m.rmuc != 0.f; },
     "Rmua, Rmub and Rmuc have no effect"},
}};

bool shape_available(int npro) {
  constexpr std::array<int, 7> shapes{0, 1, 2, 3, 5, 7, 12};
  return std::find(shapes.begin(), shapes.end(), npro) != shapes.end();
}

bool special_species(std::string_view ntyp) {
  constexpr std::array<std::string_view, 7> words{"SASH", "MULT", "HXAP", "DIPO", "QUAD", "DISP", "OCTU"};
  const std::string upper = lmix_string_utilities::u_case(ntyp);
  return std::find(words.begin(), words.end(), upper) != words.end();
}

/// Reason with the flag that asks for it.
std::string flagged(std::string_view reason, std::string_view flag, int value) {
  return fmt_line{}.a(reason).a(" (").a(flag).a(" ").i(0, value).a(")").str();
}

void look_at_pattern(const pattern_type& p, int pattern, std::vector<obstacle>& found) {
  for (const auto& row : pattern_requests) {
    if (row.made(p)) found.push_back({0, pattern, std::string(row.reason)});
  }
}

void look_at_atoms(const state_type& st, int ph, std::vector<obstacle>& found) {
  const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const atom_type& atom = st.atom[static_cast<std::size_t>(ia)];
    if (special_species(atom.ntyp)) {
      found.push_back({ph + 1, 0, "form factors with lines of their own (" + atom.ntyp + ") are not available"});
    }
    if (atom.n_t != 0 && atom.n_t != 2 && atom.n_t != 3) {
      found.push_back({ph + 1, 0, flagged("this kind of atom is not available", "N_t", atom.n_t)});
    }
  }
}

void look_at_phase(const state_type& st, int ph, std::vector<obstacle>& found) {
  const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  const int kind = std::abs(phase.jbt);
  if (kind != 0 && kind != 2 && kind != 3) {
    found.push_back({ph + 1, 0, flagged("this kind of phase is not available", "Jbt", phase.jbt)});
  }
  if (phase.symb.find("Mag;") != std::string::npos) {
    found.push_back({ph + 1, 0, " Error trying to read Shubnikov Group information"});
  }
  for (const auto& row : phase_requests) {
    if (row.made(phase)) found.push_back({ph + 1, 0, std::string(row.reason)});
  }
  look_at_atoms(st, ph, found);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const mix_type& mix = st.mix(ph, ip);
    if (mix.jcontr == 0) continue;
    if (mix.irf < 0 || mix.irf > 2) {
      found.push_back({ph + 1, ip + 1, flagged("this reflection list is not available", "Irf", mix.irf)});
    }
    if (!shape_available(mix.npro)) {
      found.push_back({ph + 1, ip + 1, flagged("this peak shape is not available", "Npr", mix.npro)});
    }
    if (mix.nref_sp != 0) found.push_back({ph + 1, ip + 1, "special reflections (Nref_sp) are not available"});
  }
}

std::string line_of(const obstacle& o) {
  fmt_line text;
  text.a("    ");
  if (o.phase > 0) text.a("phase: ").i(0, o.phase).a(" ");
  if (o.pattern > 0) text.a("pattern: ").i(0, o.pattern).a(" ");
  return text.a(o.reason).str();
}

}  // namespace

std::vector<obstacle> obstacles(const state_type& st) {
  std::vector<obstacle> found;
  for (const auto& row : run_requests) {
    if (row.made(st.run)) found.push_back({0, 0, std::string(row.reason)});
  }
  for (int ip = 0; ip < st.run.n_patt; ++ip) look_at_pattern(st.pattern[static_cast<std::size_t>(ip)], ip + 1, found);
  for (int ph = 0; ph < st.run.nphase; ++ph) look_at_phase(st, ph, found);
  return found;
}

std::vector<obstacle> without_effect(const state_type& st) {
  std::vector<obstacle> found;
  for (const auto& row : idle_run_flags)
    if (row.made(st.run)) found.push_back({0, 0, std::string(row.reason)});
  for (int ip = 0; ip < st.run.n_patt; ++ip)
    for (const auto& row : idle_pattern_flags)
      if (row.made(st.pattern[static_cast<std::size_t>(ip)])) found.push_back({0, ip + 1, std::string(row.reason)});
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (int ip = 0; ip < st.run.n_patt; ++ip)
      for (const auto& row : idle_mix_fields)
        if (row.made(st.mix(ph, ip))) found.push_back({ph + 1, ip + 1, std::string(row.reason)});
  return found;
}

void tell_without_effect(state_type& st) {
  for (const obstacle& o : without_effect(st)) {
    std::string where;
    if (o.phase > 0) where += "phase " + std::to_string(o.phase) + ": ";
    if (o.pattern > 0 && st.run.n_patt > 1) where += "pattern " + std::to_string(o.pattern) + ": ";
    st.tell({false, where + o.reason, {}});
  }
}

bool calculable(state_type& st) {
  const std::vector<obstacle> found = obstacles(st);
  if (found.empty()) return true;
  constexpr std::size_t lines_of_a_message = 5;
  st.fmt.ierr_fmt = 100;
  st.fmt.mess_findfmt.clear();
  st.fmt.mess_findfmt.add(" => The control file asks for what this release cannot calculate:");
  for (std::size_t k = 0; k < std::min(found.size(), lines_of_a_message - 1); ++k) {
    st.fmt.mess_findfmt.add(line_of(found[k]));
  }
  return false;
}

}  // namespace kv_calculable

// Checks of cells and of atoms on their sites.
#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "pcr_check_parts.hpp"

namespace pcr_check {

namespace sym = lmix_crystallographic_symmetry;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;
using kalvaris_params::slot_family;

namespace {

constexpr std::array<const char*, 6> cell_names{"a", "b", "c", "alpha", "beta", "gamma"};

sym::vector3 position_of(const atom_type& atom) { return {atom.xl[aslot::x], atom.xl[aslot::y], atom.xl[aslot::z]}; }

std::string vector_text(const sym::vector3& x) {
  std::string text;
  for (const float c : x) text += (text.empty() ? "" : " ") + text_of(static_cast<double>(c));
  return text;
}

std::string code_text(std::span<const float> codes) {
  std::string text;
  for (const float c : codes) text += (text.empty() ? "" : " ") + lmix_fixed_format::fmt_line{}.f(0, 2, c).str();
  return text;
}

}  // namespace

namespace {

/// One of a, b, c, alpha, beta, gamma (from 0) of a phase in a pattern, against what the lattice wants of it.
void look_at_cell_parameter(examination& e, int ph, int ip, const kalvaris_codes::cell_rule& rule, std::size_t i) {
  const phase_type& phase = e.st.phase[static_cast<std::size_t>(ph)];
  const auto& mix = e.st.mix(ph, ip);
  const auto at = [](std::size_t k) { return static_cast<std::size_t>(slot::cell_a) + k; };
  const bool fixed = rule.follows[i] == kalvaris_codes::cell_fixed, hexagonal_gamma = i == 5 && rule.hexagonal;
  const std::size_t leader = fixed ? i : static_cast<std::size_t>(rule.follows[i]);
  const float value = mix.par[at(i)], expected = !fixed ? mix.par[at(leader)] : hexagonal_gamma ? 120.f : 90.f;
  const slot_place place{slot_family::phase, ph, ip, static_cast<int>(at(i))};
  const std::string where = "phase " + std::to_string(ph + 1) + ": ", name = cell_names[i];
  const bool unset_angle = i >= 3 && value == 0.f;
  if (!unset_angle && std::abs(value - expected) > 2.0e-6f * std::abs(expected))
    e.warn(e.line_of(place),
           where + name + " = " + text_of(static_cast<double>(value)) + ", but the lattice of " +
               std::string(lmix_string_utilities::trim(phase.symb.substr(0, phase.symb.find('<')))) + " wants " +
               text_of(static_cast<double>(expected)) + ", which a run takes",
           "Write that value, or check the space group.");
  if (mix.apar[at(i)] == 0.f || hexagonal_gamma) return;
  const std::string idle = where + "the code on " + name + " refines nothing: ";
  if (fixed) {
    e.warn(e.line_of_code(place), idle + "symmetry fixes the angle", "Set the code to 0.");
  } else if (mix.apar[at(leader)] == 0.f) {
    e.warn(e.line_of_code(place), idle + "it follows " + cell_names[leader] + ", which has no code",
           std::string("Write the code on ") + cell_names[leader] + ".");
  }
}

}  // namespace

void cells(examination& e) {
  for (int ph = 0; ph < e.st.run.nphase; ++ph) {
    const phase_type& phase = e.st.phase[static_cast<std::size_t>(ph)];
    if (phase.spgr.symop.empty() || phase.isym != 0) continue;
    const kalvaris_codes::cell_rule rule = kalvaris_codes::rule_of_cell(phase.spgr);
    for (int ip = 0; ip < e.st.run.n_patt; ++ip)
      for (std::size_t i = 0; i < 6 && e.st.mix(ph, ip).jcontr != 0; ++i) look_at_cell_parameter(e, ph, ip, rule, i);
  }
}

// ---- positions

namespace {

/// A special position beside a point.
struct special_point {
  sym::vector3 x{};
  std::size_t order = 0;  ///< operations that leave it in place
  float away = 0.f;       ///< largest difference of a coordinate
};

/// Where an operation leaves the neighbourhood of x in place: the mean of the images under its powers, each shifted by
/// the lattice vector that brings it next to x. Nothing when an image is further away than `reach`.
std::optional<sym::vector3> fixed_point(const sym::sym_oper_type& op, const sym::vector3& x, float reach) {
  std::array<double, 3> sum{};
  sym::vector3 image = x;
  int n = 0;
  constexpr int highest_order = 6;
  for (bool back = false; !back && n < highest_order; ++n) {
    image = sym::applyso(op, image);
    back = true;
    for (std::size_t i = 0; i < 3; ++i) {
      image[i] -= std::round(image[i] - x[i]);
      if (std::abs(image[i] - x[i]) > reach) return std::nullopt;
      back = back && std::abs(image[i] - x[i]) < 1.0e-6f;
      sum[i] += static_cast<double>(image[i]);
    }
  }
  sym::vector3 mean{};
  for (std::size_t i = 0; i < 3; ++i) mean[i] = static_cast<float>(sum[i] / n);
  return mean;
}

/// The special position within `reach` of x that keeps the most operations, the nearest of several.
std::optional<special_point> nearest_special(const sym::vector3& x, const sym::space_group_type& group, float reach) {
  std::optional<special_point> best;
  for (const sym::sym_oper_type& op : group.symop) {
    const auto point = fixed_point(op, x, 4.f * reach);
    if (!point) continue;
    const auto stabiliser = sym::get_stabilizerc(*point, group);
    special_point p{sym::nearest_special_position(*point, stabiliser), stabiliser.size(), 0.f};
    for (std::size_t i = 0; i < 3; ++i) p.away = std::max(p.away, std::abs(p.x[i] - x[i]));
    if (p.away >= reach || p.order < 2) continue;
    if (!best || p.order > best->order || (p.order == best->order && p.away < best->away)) best = p;
  }
  return best;
}

/// What is told of a site with so many operations: its position when just one of the group has that multiplicity.
std::string site_name(const sym::space_group_type& group, std::size_t order) {
  const int multiplicity = group.multip / static_cast<int>(order);
  const sym::wyck_pos_type* only = nullptr;
  for (const sym::wyck_pos_type& position : group.wyckoff.orbit) {
    if (position.multp != multiplicity) continue;
    if (only != nullptr) return "multiplicity " + std::to_string(multiplicity);
    only = &position;
  }
  if (only == nullptr) return "multiplicity " + std::to_string(multiplicity);
  return "position " + std::to_string(multiplicity) + only->letter;
}

}  // namespace

void near_special_positions(examination& e) {
  constexpr float near = 0.01f, digits = 1.0e-4f;
  e.each_atom([&](const phase_type& phase, atom_type& atom, int) {
    if (phase.spgr.symop.empty() || phase.isym != 0) return;
    const sym::vector3 x = position_of(atom);
    const std::size_t order = sym::get_stabilizerc(x, phase.spgr).size();
    const auto special = nearest_special(x, phase.spgr, near);
    if (!special || special->away <= digits) return;
    const std::string site = vector_text(special->x) + " (" + site_name(phase.spgr, special->order) + ")";
    if (special->order > order)
      e.warn(atom.line_nb,
             atom_text(e, atom) + " at " + vector_text(x) + " lies within 0.01 of the special position " + site +
                 " without being on it: a run takes it as off, with images of itself beside it",
             "Write the coordinates of the special position with all their digits, or move the atom away.");
    else
      e.note(atom.line_nb,
             atom_text(e, atom) + " at " + vector_text(x) + " is taken as on the special position " + site +
                 ", from which it is " + text_of(static_cast<double>(special->away)) + " away",
             "Write its coordinates with all their digits.");
  });
}

namespace {

/// A shift of one parameter takes the quantity off what its site allows.
bool leaves_site(std::span<const float> codes, const sym::site_relations& site, const examination& e) {
  std::vector<int> numbers;
  for (const float code : codes)
    if (const int n = kalvaris_codes::split(code).number; e.refines(n)) numbers.push_back(n);
  for (const int n : numbers) {
    std::array<float, 6> shift{};
    for (std::size_t i = 0; i < codes.size(); ++i)
      if (const auto c = kalvaris_codes::split(codes[i]); c.number == n) shift[i] = c.multiplier;
    for (std::size_t i = 0; i < codes.size(); ++i) {
      float kept = 0.f;
      for (std::size_t j = 0; j < codes.size(); ++j) kept += site.projector[i][j] * shift[j];
      if (std::abs(kept - shift[i]) > 2.0e-3f) return true;
    }
  }
  return false;
}

}  // namespace

/// With automatic codes the program sets these words itself; otherwise they stay as they are written.
void codes_of_sites(examination& e) {
  if (e.st.run.automatic) return;
  kalvaris_codes::number_source fresh{kalvaris_codes::get_code_max(e.st)};
  e.each_atom([&](const phase_type& phase, atom_type& atom, int ia) {
    if (phase.spgr.symop.empty() || phase.isym != 0) return;
    const sym::vector3 x = position_of(atom);
    const auto stabiliser = sym::get_stabilizerc(x, phase.spgr);
    const std::span<float, kalvaris_params::NAT_P + 1> codes(atom.a);
    const std::string advice = "Write the codes ";
    if (leaves_site(codes.subspan<aslot::x, 3>(), sym::position_relations(stabiliser), e)) {
      std::array<float, 3> right{atom.a[aslot::x], atom.a[aslot::y], atom.a[aslot::z]};
      kalvaris_codes::get_atompos_ctr(x, phase.spgr, right, fresh);
      e.warn(e.line_of_code({slot_family::atom, ia, 0, aslot::x}),
             atom_text(e, atom) + ": the codes " + code_text(codes.subspan<aslot::x, 3>()) +
                 " of its coordinates take it off its special position " + vector_text(x),
             advice + code_text(right) + ", or set Aut to 1.");
    }
    if (leaves_site(codes.subspan<aslot::b11, 6>(), sym::beta_relations(stabiliser), e)) {
      std::array<float, 6> right{};
      std::copy_n(atom.a.begin() + aslot::b11, 6, right.begin());
      kalvaris_codes::get_atombet_ctr(x, phase.spgr, right, fresh);
      e.warn(e.line_of_code({slot_family::atom, ia, 0, aslot::b11}),
             atom_text(e, atom) + ": the codes " + code_text(codes.subspan<aslot::b11, 6>()) +
                 " of its betas break the symmetry of its site, which wants (" + sym::sym_b_relations(stabiliser).text +
                 ")",
             advice + code_text(right) + ", or set Aut to 1.");
    }
  });
}

// ---- occupancies

namespace {

/// Atoms at one point, and the sum of their occupancies in units of a full site.
struct site_filling {
  sym::vector3 x{};
  float full = 0.f;  ///< site over general multiplicity
  double filled = 0.0;
  bool refined = false;
  std::vector<const atom_type*> atoms;
};

bool same_point(const sym::vector3& a, const sym::vector3& b) {
  return sym::lattice_trans({a[0] - b[0], a[1] - b[1], a[2] - b[2]}, 'P');
}

std::vector<site_filling> fillings_of(const examination& e, const phase_type& phase) {
  std::vector<site_filling> sites;
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const atom_type& atom = e.st.atom[static_cast<std::size_t>(ia)];
    const sym::vector3 x = position_of(atom);
    auto site = std::ranges::find_if(sites, [&](const site_filling& s) { return same_point(s.x, x); });
    if (site == sites.end()) {
      site_filling fresh;
      fresh.x = x;
      fresh.full = sym::get_occ_site(x, phase.spgr);
      site = sites.insert(sites.end(), fresh);
    }
    site->filled += static_cast<double>(atom.xl[aslot::occ] / site->full);
    site->refined = site->refined || atom.a[aslot::occ] != 0.f;
    site->atoms.push_back(&atom);
  }
  return sites;
}

constexpr double filling_tolerance = 0.01;  ///< of the digits that users write
bool close(double a, double b) { return std::abs(a - b) <= filling_tolerance * std::max(std::abs(a), std::abs(b)); }

/// The factor that most sites share; of several the one nearest to 1, then the largest.
double common_factor(const std::vector<site_filling>& sites) {
  double best = 1.0;
  std::ptrdiff_t most = 0;
  for (const site_filling& s : sites) {
    const auto n =
        std::ranges::count_if(sites, [&](const site_filling& other) { return close(other.filled, s.filled); });
    const bool nearer = std::abs(std::log(std::max(s.filled, 1e-9))) < std::abs(std::log(std::max(best, 1e-9))) - 1e-6;
    if (n > most || (n == most && nearer)) best = s.filled, most = n;
  }
  return best;
}

/// The range of operators of an atom (In, Fin) makes its occupancy another one.
bool sums_over_some_operators(const examination& e, const phase_type& phase) {
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia)
    if (e.st.atom[static_cast<std::size_t>(ia)].isap != std::array{0, 0}) return true;
  return false;
}

std::string labels_of(const site_filling& s) {
  std::string text;
  for (const atom_type* atom : s.atoms) text += (text.empty() ? "" : " and ") + atom->atext;
  return text;
}

}  // namespace

/// Occupancies stand in the file as chemical occupancy times site over general multiplicity; all of a phase may be
/// scaled by one factor, which then acts as a scale factor.
void occupancies(examination& e) {
  for (const phase_type& phase : e.st.phase) {
    if (phase.profile_matching() || phase.spgr.symop.empty() || phase.isym != 0 || phase.natom == 0) continue;
    if (sums_over_some_operators(e, phase)) continue;
    const std::vector<site_filling> sites = fillings_of(e, phase);
    const double factor = common_factor(sites);
    const std::string where =
        e.st.run.nphase > 1 ? "phase " + std::to_string(&phase - e.st.phase.data() + 1) + ": " : std::string();
    if (!close(factor, 1.0))
      e.note(
          sites.front().atoms.front()->line_nb,
          where + "most occupancies are " + text_of(factor) +
              " times the site over the general multiplicity: the scale factor takes that up, weight fractions do not",
          "Divide all occupancies by " + text_of(factor) + ".");
    for (const site_filling& s : sites) {
      if (close(s.filled, factor)) continue;
      const int line = s.atoms.front()->line_nb;
      const std::string text = where + "the site of " + labels_of(s) + " at " + vector_text(s.x) + " is filled to " +
                               text_of(std::round(1000.0 * s.filled / factor) / 10.0) + " %";
      const std::string advice = "A full site has the occupancy " + text_of(factor * static_cast<double>(s.full)) +
                                 " (" + std::to_string(sym::get_multip_pos_crys(s.x, phase.spgr)) + "/" +
                                 std::to_string(phase.spgr.multip) + ").";
      if (s.filled > factor)
        e.warn(line, text, advice);
      else if (!s.refined)
        e.note(line, text + ", and its occupancy is fixed", advice);
    }
  }
}

/// Displacement tensors that no vibration has, or that stand beside an isotropic B.
void displacement_tensors(examination& e) {
  e.each_atom([&](const phase_type&, atom_type& atom, int ia) {
    if (atom.n_t != 2 && atom.n_t != 3) return;
    const auto b = [&](int k) { return static_cast<double>(atom.xl[static_cast<std::size_t>(k)]); };
    const double b11 = b(aslot::b11), b22 = b(aslot::b22), b33 = b(aslot::b33), b12 = b(aslot::b12),
                 b13 = b(aslot::b13), b23 = b(aslot::b23);
    const bool none = b11 == 0.0 && b22 == 0.0 && b33 == 0.0;
    const double minor = b11 * b22 - b12 * b12;
    const double det = minor * b33 - b11 * b23 * b23 - b22 * b13 * b13 + 2.0 * b12 * b13 * b23;
    const int line = e.line_of({slot_family::atom, ia, 0, aslot::b11});
    if (none) {
      const auto cell = e.st.mix(atom.phase, 0).par;
      lmix_crystal_metrics::crystal_cell_type metric;
      const auto c = [&](int i) { return cell[static_cast<std::size_t>(slot::cell_a + i)]; };
      const auto failed = set_crystal_cell({c(0), c(1), c(2)}, {c(3), c(4), c(5)}, metric);
      std::string start;
      if (!failed.err_crys)
        for (const float beta : kalvaris_codes::get_betas_from_biso(std::max(atom.xl[aslot::biso], 0.5f), metric))
          start += " " + text_of(static_cast<double>(beta));
      e.note(line, atom_text(e, atom) + ": its betas are all zero",
             start.empty() ? start : "Start from those of an isotropic vibration:" + start + ", and Biso 0.");
    } else if (!(b11 > 0.0 && minor > 0.0 && det > 0.0)) {
      e.warn(line, atom_text(e, atom) + ": its betas are no vibration (not positive definite)",
             "Check their values and signs.");
    }
    if (!none && atom.xl[aslot::biso] != 0.f)
      e.note(line, atom_text(e, atom) + ": its B and its betas both act", "Set Biso to 0.");
  });
}

}  // namespace pcr_check

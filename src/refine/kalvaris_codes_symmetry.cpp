#include "kalvaris_codes.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "lmix_fixed_format.hpp"

namespace kalvaris_codes {

namespace {

using kalvaris_params::atom_type;
using kalvaris_params::mix_type;
using kalvaris_params::phase_type;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace aslot = kalvaris_params::aslot;
namespace sym = lmix_crystallographic_symmetry;

struct laue_row {
  std::string_view laue;
  cell_rule rule;
};
constexpr cell_rule orthogonal{{0, 1, 2, -1, -1, -1}, false}, tetragonal{{0, 0, 2, -1, -1, -1}, false},
    rhombohedral{{0, 0, 0, 3, 3, 3}, false}, hexagonal{{0, 0, 2, -1, -1, -1}, true},
    cubic{{0, 0, 0, -1, -1, -1}, false};
constexpr std::array laue_rows{
    laue_row{"-1", {}},
    laue_row{"mmm", orthogonal},
    laue_row{"4/m", tetragonal},
    laue_row{"4/mmm", tetragonal},
    laue_row{"-3 R", rhombohedral},
    laue_row{"-3m R", rhombohedral},
    laue_row{"-3", hexagonal},
    laue_row{"-3m1", hexagonal},
    laue_row{"-31m", hexagonal},
    laue_row{"6/m", hexagonal},
    laue_row{"6/mmm", hexagonal},
    laue_row{"m-3", cubic},
    laue_row{"m-3m", cubic},
    laue_row{"m3", cubic},
    laue_row{"m3m", cubic},
};

/// Axis (0..2) that a monoclinic group keeps: the one on which its rotation or mirror acts with the other sign.
int unique_axis(const sym::space_group_type& group) {
  for (const auto& op : group.symop) {
    const int trace = op.rot[0][0] + op.rot[1][1] + op.rot[2][2];
    if (trace == 3 || trace == -3) continue;
    for (std::size_t i = 0; i < 3; ++i)
      if (op.rot[i][i] * trace < 0) return static_cast<int>(i);
  }
  return 1;
}

}  // namespace

cell_rule rule_of_cell(const sym::space_group_type& group) {
  if (group.laue == "2/m") {
    cell_rule r = orthogonal;
    const auto free_angle = static_cast<std::size_t>(3 + unique_axis(group));
    r.follows[free_angle] = static_cast<int>(free_angle);
    return r;
  }
  const auto row = std::ranges::find(laue_rows, group.laue, &laue_row::laue);
  return row == laue_rows.end() ? cell_rule{} : row->rule;
}

namespace {

void refuse(state_type& st, std::initializer_list<std::string> lines) {
  st.fmt.ierr_fmt = 100;
  st.fmt.mess_findfmt.clear();
  for (const std::string& line : lines) st.fmt.mess_findfmt.add(line);
}

/// A request without a number gets one.
void number_request(float& code, number_source& fresh) {
  const split_code c = split(code);
  if (c.number != 0 || !(std::abs(c.multiplier) > smallest_multiplier)) return;
  code = join({fresh.next(), requested_multiplier(c.multiplier)}, false);
}

/// Free components of a site that the codes ask for, by the word of each; 0 fixed. A code on any member of a group
/// frees its independent component, whose own word is preferred.
std::array<float, 6> wanted_words(std::span<const float> codes, const sym::site_relations& site) {
  std::array<float, 6> wanted{};
  for (std::size_t i = 0; i < codes.size(); ++i) {
    const auto j = static_cast<std::size_t>(std::max(site.component[i].free, 0));
    if (site.component[i].free < 0 || !(std::abs(codes[i]) > smallest_multiplier) || wanted[j] != 0.f) continue;
    wanted[j] = codes[j] != 0.f ? codes[j] : codes[i];
  }
  return wanted;
}

/// A code ties to one parameter: of the free components that one row mixes, only the first asked for is kept. False
/// when one had to go.
bool leave_one_per_row(std::array<float, 6>& wanted, const sym::site_relations& site) {
  bool complete = true;
  for (std::size_t i = 0; i < static_cast<std::size_t>(site.n); ++i) {
    bool taken = false;
    for (std::size_t j = 0; j < static_cast<std::size_t>(site.n); ++j) {
      if (!(std::abs(site.coefficient[i][j]) > 0.01f) || wanted[j] == 0.f) continue;
      if (taken) wanted[j] = 0.f, complete = false;
      taken = true;
    }
  }
  return complete;
}

/// Words of the components of a site by the relations that hold there. Multipliers stay below 10 by halving all of a
/// group, so that no word runs into the next number. False when the symmetry asks for more than code words can say.
bool constrain(std::span<float> codes, const sym::site_relations& site, number_source& fresh) {
  std::array<float, 6> wanted = wanted_words(codes, site);
  const bool complete = leave_one_per_row(wanted, site);
  std::ranges::fill(codes, 0.f);
  for (std::size_t j = 0; j < codes.size(); ++j) {
    if (wanted[j] == 0.f) continue;
    number_request(wanted[j], fresh);
    split_code word = split(wanted[j]);
    constexpr float too_large = 9.9999f;  // of what a word can hold
    float largest = 0.f;
    for (std::size_t i = 0; i < codes.size(); ++i)
      largest = std::max(largest, std::abs(word.multiplier * site.coefficient[i][j]));
    for (; largest > too_large; largest *= 0.5f) word.multiplier *= 0.5f;
    for (std::size_t i = 0; i < codes.size(); ++i) {
      const float m = word.multiplier * site.coefficient[i][j];
      if (!(std::abs(site.coefficient[i][j]) > 0.01f)) continue;
      codes[i] = std::abs(m) < smallest_multiplier ? 0.f : join({word.number, m}, false);
    }
  }
  return complete;
}

/// Operations of a symmetry given by hand that leave x in place, as they turn the moments of set `imagr` (from 1) with
/// the propagation vector k: the image of x lies T away from it and has the coefficient exp(-2 pi i k T) S.
std::vector<sym::fourier_oper_type> moment_operations(const phase_type& phase, const sym::vector3& x, int imagr,
                                                      const sym::vector3& k) {
  std::vector<sym::fourier_oper_type> out;
  const std::vector<sym::vector3> origin_alone{sym::vector3{}};
  const auto& centring = phase.spgr.latt_trans.empty() ? origin_alone : phase.spgr.latt_trans;
  for (const kalvaris_params::hand_operator_type& op : phase.by_hand.op) {
    if (imagr < 1 || imagr > static_cast<int>(op.mag.size())) continue;
    const auto& turns = op.mag[static_cast<std::size_t>(imagr - 1)];
    for (const sym::vector3& t : centring) {
      sym::vector3 away{};
      double by_cells = 0.0;
      bool in_place = true;
      for (std::size_t i = 0; i < 3; ++i) {
        away[i] = op.t[i] + t[i] - x[i];
        for (std::size_t j = 0; j < 3; ++j) away[i] += static_cast<float>(op.s[3 * i + j]) * x[j];
        in_place = in_place && std::abs(away[i] - std::round(away[i])) < sym::position_tolerance;
        by_cells += static_cast<double>(k[i]) * (std::round(away[i]) - static_cast<double>(t[i]));
      }
      if (!in_place) continue;
      sym::fourier_oper_type g;
      for (std::size_t i = 0; i < 9; ++i) g.rot[i / 3][i % 3] = turns.m[i];
      g.phase = turns.ph + static_cast<float>(by_cells);
      out.push_back(g);
    }
  }
  return out;
}

/// Codes of the moment of an atom, where its components stand along the cell axes. False as for `constrain`.
bool constrain_moment(const phase_type& phase, atom_type& atom, number_source& fresh) {
  const bool along_axes = phase.jbt > 0 && phase.isym != -2;
  const std::span<float> codes = std::span(atom.a).subspan(aslot::rx, 6);
  const bool asked = std::ranges::any_of(codes, [](float c) { return std::abs(c) > smallest_multiplier; });
  if (!along_axes || !asked || phase.by_hand.op.empty()) return true;
  sym::vector3 k{};
  if (atom.ikv >= 1 && atom.ikv <= static_cast<int>(phase.vector.size())) {
    const auto& v = phase.vector[static_cast<std::size_t>(atom.ikv - 1)].pvk;
    k = {v[1], v[2], v[3]};
  }
  const sym::vector3 x{atom.xl[aslot::x], atom.xl[aslot::y], atom.xl[aslot::z]};
  return constrain(codes, sym::fourier_relations(moment_operations(phase, x, atom.imagr, k)), fresh);
}

}  // namespace

bool cell_const(state_type& st, int ph, int ip, bool fresh_numbers) {
  mix_type& mix = st.mix(ph, ip);
  phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  const cell_rule rule = rule_of_cell(phase.spgr);
  const auto value = [&](int i) -> float& { return mix.par[static_cast<std::size_t>(slot::cell_a + i)]; };
  const auto code = [&](int i) -> float& { return mix.apar[static_cast<std::size_t>(slot::cell_a + i)]; };
  if (fresh_numbers) {
    number_source fresh{get_code_max(st)};
    for (const int i : {0, 3})
      if (rule.follows[static_cast<std::size_t>(i)] == i) number_request(code(i), fresh);
  }
  for (int i = 0; i < 6; ++i) {
    const int j = rule.follows[static_cast<std::size_t>(i)];
    value(i) = j != cell_fixed ? value(j) : i == 5 && rule.hexagonal ? 120.f : 90.f;
    code(i) = j == cell_fixed ? 0.f : code(j);
  }
  if (rule.hexagonal) code(5) = code(0);
  if (fresh_numbers) return true;

  lmix_crystal_metrics::cell_parameters cell{};
  for (int i = 0; i < 6; ++i) {
    if (i >= 3 && value(i) < 1.0e-5f) value(i) = 90.f;
    cell[static_cast<std::size_t>(i)] = static_cast<double>(value(i));
  }
  const auto form = lmix_crystal_metrics::quadratic_form_from_cell(cell);
  if (!form) {
    refuse(st, {" => Error in the cell of phase: " + std::to_string(ph + 1) + " pattern: " + std::to_string(ip + 1),
                " Bad cell parameters: lengths must be positive and the angles must be able to close"});
    return false;
  }
  if (phase.cellp.cellvol == 0.f) {
    const auto error = set_crystal_cell({value(0), value(1), value(2)}, {value(3), value(4), value(5)}, phase.cellp);
    if (error.err_crys) {
      refuse(st, {error.err_crys_mess});
      return false;
    }
  }
  for (int i = 0; i < 6; ++i) value(i) = static_cast<float>((*form)[static_cast<std::size_t>(i)]);
  return true;
}

bool get_atompos_ctr(const sym::vector3& x, const sym::space_group_type& spg, std::span<float, 3> codes,
                     number_source& fresh) {
  return constrain(codes, sym::position_relations(sym::get_stabilizerc(x, spg)), fresh);
}

bool get_matompos_ctr(const sym::vector3& x, const sym::magnetic_space_group_type& mspg, std::span<float, 3> codes,
                      number_source& fresh) {
  std::vector<sym::sym_oper_type> stabiliser;
  for (const sym::shubnikov_oper_type& g : sym::get_stabilizerm(x, mspg)) stabiliser.push_back(g.op);
  return constrain(codes, sym::position_relations(stabiliser), fresh);
}

bool get_atombet_ctr(const sym::vector3& x, const sym::space_group_type& spg, std::span<float, 6> codes,
                     number_source& fresh) {
  constexpr float nothing_asked = 0.01f;
  float sum = 0.f;
  for (const float code : codes) sum += std::abs(code);
  if (sum < nothing_asked) return true;
  return constrain(codes, sym::beta_relations(sym::get_stabilizerc(x, spg)), fresh);
}

bool get_moment_ctr_old(const sym::vector3& x, const sym::magnetic_space_group_type& mspg, std::span<float, 3> codes,
                        number_source& fresh) {
  return constrain(codes, sym::moment_relations(sym::get_stabilizerm(x, mspg)), fresh);
}

std::array<float, 6> get_betas_from_biso(float biso, const lmix_crystal_metrics::crystal_cell_type& cell) {
  const auto& g = cell.gr;
  std::array<float, 6> betas{g[0][0], g[1][1], g[2][2], g[0][1], g[0][2], g[1][2]};
  for (float& b : betas) b *= 0.25f * biso;
  return betas;
}

namespace {

void list(state_type& st, const std::string& line) {
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line << '\n';
}

/// What the constraints made of the codes of an atom, where it asked for any.
void list_codes(state_type& st, const atom_type& atom, bool general) {
  const auto words = [&](int first, int count) {
    lmix_fixed_format::fmt_line text;
    for (int k = first; k < first + count; ++k) text.f(11, 2, atom.a[static_cast<std::size_t>(k)]);
    return text.str();
  };
  const auto asked = [&](int first, int count) {
    const auto codes = std::span(atom.a).subspan(static_cast<std::size_t>(first), static_cast<std::size_t>(count));
    return std::ranges::any_of(codes, [](float c) { return c != 0.f; });
  };
  list(st, "\n => Atom " + atom.atext + " of phase " + std::to_string(atom.phase + 1));
  if (general) list(st, "     The above atom is in a general position (no constraints in atom positions)");
  list(st, "     Codes for atom coordinates  (Automatic Constraints):" + words(aslot::x, 3));
  if (asked(aslot::b11, 6))
    list(st, "     Codes for anisotropic betas (Automatic Constraints):" + words(aslot::b11, 6));
}

}  // namespace

void set_symmetryconstraints(state_type& st) {
  if (!st.run.automatic) return;
  number_source fresh{get_code_max(st)};
  for (const phase_type& phase : st.phase) {
    if (phase.profile_matching()) continue;
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      atom_type& atom = st.atom[static_cast<std::size_t>(ia)];
      const sym::vector3 x{atom.xl[aslot::x], atom.xl[aslot::y], atom.xl[aslot::z]};
      const std::span<float, kalvaris_params::NAT_P + 1> codes(atom.a);
      bool complete = get_atompos_ctr(x, phase.spgr, codes.subspan<aslot::x, 3>(), fresh);
      complete = get_atombet_ctr(x, phase.spgr, codes.subspan<aslot::b11, 6>(), fresh) && complete;
      complete = constrain_moment(phase, atom, fresh) && complete;
      list_codes(st, atom, sym::get_stabilizerc(x, phase.spgr).size() == 1);
      if (!complete)
        kalvaris_inout::mess_cons(st.io, " Warning! A symmetry relation of atom " + atom.atext +
                                             " needs two parameters in one code: one of them is kept fixed");
    }
  }
}

}  // namespace kalvaris_codes

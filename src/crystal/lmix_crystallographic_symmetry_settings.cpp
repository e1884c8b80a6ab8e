#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_symmetry_tables.hpp"

// Groups on other axes, and groups within a group.
namespace lmix_crystallographic_symmetry {
namespace {

using parts::affine;
using parts::exact_op;

constexpr std::string_view empty_setting = " => The string containing the setting change is empty!";
constexpr std::string_view negative_determinant = " => The transformation matrix should have a positive determinant!";
constexpr std::string_view inversion_failed = "Inversion Matrix Failed on: Setting_Change_NonConv det:";
constexpr std::string_view not_recovered = " => Error! The total multiplicity has not been recovered -> det: ";

err_symm_type failure(std::string text) { return {true, std::move(text)}; }

std::string number(double v) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.5g", v);
  return buffer;
}

std::vector<exact_op> elements(const space_group_type& spg) {
  std::vector<exact_op> out;
  for (const sym_oper_type& op : spg.symop) out.push_back(parts::exact(op));
  return out;
}

/// Operators of one lattice point.
std::vector<exact_op> representatives(const space_group_type& spg) {
  std::vector<exact_op> out = elements(spg);
  out.resize(out.size() / std::max<std::size_t>(spg.latt_trans.size(), 1));
  return out;
}

setting_matrix matrix_of(const affine& change) {
  setting_matrix out;
  for (std::size_t i = 0; i < 3; ++i) {
    out.origin[i] = change.t[i];
    for (std::size_t j = 0; j < 3; ++j) out.axes[i][j] = change.m[j][i];
  }
  return out;
}

/// Old coordinates from new ones: x = P x' + p, the columns of P being the new axes.
affine back_of(const setting_matrix& setting) {
  affine back;
  back.t = setting.origin;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) back.m[j][i] = setting.axes[i][j];
  return back;
}

/// New coordinates from old ones, or why there are none.
struct forward {
  err_symm_type err;
  affine v;
  double det = 0.0;
};
forward forward_of(const setting_matrix& setting) {
  const affine back = back_of(setting);
  forward out;
  out.det = parts::affine_determinant(back);
  const auto v = parts::inverse(back);
  if (!v)
    out.err = failure(std::string(inversion_failed) + number(out.det));
  else if (out.det < 0)
    out.err = failure(std::string(negative_determinant));
  else
    out.v = *v;
  return out;
}

/// "a+b,a-b,c; 0,0,1/2" about the centring and the operators; `out` is written on success only.
err_symm_type changed_group(const space_group_type& spg, const setting_matrix& setting, space_group_type& out) {
  const forward to = forward_of(setting);
  if (to.err) return to.err;
  const auto generators = parts::whole_operators(parts::change_axes(representatives(spg), spg.latt_trans, to.v));
  space_group_type built;
  if (!generators || !parts::fill_record(built, parts::close_group(*generators)) ||
      built.multip != static_cast<int>(std::lround(spg.multip * to.det)))
    return failure(std::string(not_recovered) + number(to.det));
  parts::add_tabulated_setting(built);
  out = std::move(built);
  return {};
}

/// Names of a group that was made from another one: they tell the way from it where no row of the table does.
void name_after(const space_group_type& from, const setting_matrix& setting, space_group_type& spg) {
  const std::string text = get_trasfm_symbol(setting);
  spg.sg_setting = "Changed from " + (from.spg_symb.empty() ? from.hall : from.spg_symb) + ": " + text;
  if (spg.numspg != 0) return;
  spg.numspg = from.numspg;
  if (!from.hall.empty() && from.hall.find('(') == std::string::npos)
    spg.ghall = from.hall + " (" + parts::affine_text(forward_of(setting).v) + ")";
  else if (const auto hall = get_hallsymb_from_gener(spg.symop); !hall.err)
    (hall.general ? spg.ghall : spg.hall) = hall.symbol;
}

}  // namespace

setting_change read_setting(std::string_view text) {
  setting_change out;
  if (lmix_string_utilities::trim(text).empty()) {
    out.err = failure(std::string(empty_setting));
    return out;
  }
  std::string complete(text);
  if (complete.find(';') == std::string::npos) complete += ";0,0,0";
  const auto read = lmix_string_utilities::get_transf(complete);
  if (read.err.err_string) {
    out.err = failure(read.err.err_string_mess);
    return out;
  }
  // Fractions come in single precision: thirds and the like are taken back to what they stand for.
  const auto exact = [](float e) {
    const double v = static_cast<double>(e), grid = std::round(v * 5040.0) / 5040.0;
    return std::abs(v - grid) < 1e-6 ? grid : v;
  };
  for (std::size_t i = 0; i < 3; ++i) {
    out.setting.origin[i] = exact(read.origin[i]);
    for (std::size_t j = 0; j < 3; ++j) out.setting.axes[i][j] = exact(read.mat[i][j]);
  }
  return out;
}

std::string get_trasfm_symbol(const setting_matrix& setting) {
  lmix_string_utilities::matrix_3 mat{};
  vector3 origin{};
  for (std::size_t i = 0; i < 3; ++i) {
    origin[i] = static_cast<float>(setting.origin[i]);
    for (std::size_t j = 0; j < 3; ++j) mat[i][j] = static_cast<float>(setting.axes[i][j]);
  }
  return lmix_string_utilities::get_symb_from_mat(mat, origin);
}

setting_matrix inverse_setting(const setting_matrix& setting) {
  const auto v = parts::inverse(back_of(setting));
  return v ? matrix_of(*v) : setting_matrix{};
}

err_symm_type setting_change_conv(std::string_view setting, const space_group_type& spg, space_group_type& out) {
  const setting_change change = read_setting(setting);
  if (change.err) return change.err;
  space_group_type built;
  if (auto err = changed_group(spg, change.setting, built)) return err;
  name_after(spg, change.setting, built);
  out = std::move(built);
  return {};
}

err_symm_type setting_change_nonconv(std::string_view setting, const space_group_type& spg, ns_space_group_type& out) {
  const setting_change change = read_setting(setting);
  if (change.err) return change.err;
  const forward to = forward_of(change.setting);
  if (to.err) return to.err;
  const auto changed = parts::change_axes(representatives(spg), spg.latt_trans, to.v);
  if (!changed) return failure(std::string(not_recovered) + number(to.det));
  ns_space_group_type built;
  static_cast<group_labels&>(built) = spg;
  built.spg_lat = changed->centring.size() == 1 ? 'P' : 'Z';
  built.spg_latsy.clear();
  built.symopsymb.clear();
  built.wyckoff = {};
  built.r_asym_unit = group_labels{}.r_asym_unit;
  built.numlat = static_cast<int>(changed->centring.size());
  built.latt_trans.clear();
  for (const auto& c : changed->centring) {
    const vector3 shift{static_cast<float>(c[0]), static_cast<float>(c[1]), static_cast<float>(c[2])};
    built.latt_trans.push_back(modulo_lat(shift));
    for (const affine& a : changed->op) {
      ns_sym_oper_type op;
      for (std::size_t i = 0; i < 3; ++i) {
        op.tr[i] = static_cast<float>(a.t[i]) + shift[i];
        for (std::size_t j = 0; j < 3; ++j) op.rot[i][j] = static_cast<float>(a.m[i][j]);
      }
      op.tr = modulo_lat(op.tr);
      built.symop.push_back(op);
      built.symopsymb.push_back(get_symsymbr(op.rot, op.tr));
    }
  }
  const affine centre =
      parts::product(to.v, {affine{}.m,
                            {static_cast<double>(spg.centre_coord[0]), static_cast<double>(spg.centre_coord[1]),
                             static_cast<double>(spg.centre_coord[2])}});
  for (std::size_t i = 0; i < 3; ++i) built.centre_coord[i] = static_cast<float>(centre.t[i]);
  if (spg.centred != centring_code::acentric) {
    const bool at_origin = lattice_trans(built.centre_coord, 'P');
    built.centred = at_origin ? centring_code::centric_at_origin : centring_code::centric_elsewhere;
    built.centre = at_origin ? "Centric (-1 at origin)" : "Centric (-1 not at origin)";
    if (at_origin) built.centre_coord = {};
  }
  built.multip = static_cast<int>(built.symop.size());
  built.ghall = spg.hall.empty() ? std::string() : spg.hall + " (" + parts::affine_text(to.v) + ")";
  built.hall.clear();
  built.sg_setting = "Changed from " + spg.spg_symb + ": " + get_trasfm_symbol(change.setting);
  out = std::move(built);
  return {};
}

err_symm_type copy_ns_spg_to_spg(const ns_space_group_type& ns, space_group_type& out) {
  std::vector<exact_op> generators;
  for (const ns_sym_oper_type& op : ns.symop) {
    affine a;
    for (std::size_t i = 0; i < 3; ++i) {
      a.t[i] = static_cast<double>(op.tr[i]);
      for (std::size_t j = 0; j < 3; ++j) a.m[i][j] = static_cast<double>(op.rot[i][j]);
    }
    exact_op e;
    if (!parts::whole(a, e, 1e-3)) return failure("The matrix corresponding to a generator has non-integer values!");
    parts::snap(e);
    generators.push_back(e);
  }
  space_group_type built;
  if (!parts::fill_record(built, parts::close_group(generators)) || built.multip != ns.multip)
    return failure(std::string(not_recovered) + number(1.0));
  parts::add_tabulated_setting(built);
  if (built.numspg == 0) {
    built.numspg = ns.numspg;
    built.ghall = ns.ghall;
  }
  built.sg_setting = ns.sg_setting;
  out = std::move(built);
  return {};
}

err_symm_type similar_transf_sg(const setting_matrix& setting, const space_group_type& spg, space_group_type& out) {
  const forward to = forward_of(setting);
  if (to.err) return to.err;
  const auto changed = parts::change_axes(representatives(spg), spg.latt_trans, to.v);
  if (!changed) return failure(std::string(not_recovered) + number(to.det));
  parts::changed_axes kept{{}, changed->centring};
  for (const affine& a : changed->op)
    if (exact_op e; parts::whole(a, e, 1e-3)) kept.op.push_back(a);
  const auto generators = parts::whole_operators(kept);
  space_group_type built;
  if (!generators || !parts::fill_record(built, parts::close_group(*generators)))
    return failure(std::string(not_recovered) + number(to.det));
  parts::add_tabulated_setting(built);
  const bool complete = kept.op.size() == changed->op.size();
  if (complete)
    name_after(spg, setting, built);
  else
    built.sg_setting = "Subgroup of " + spg.spg_symb + " kept by: " + get_trasfm_symbol(setting);
  out = std::move(built);
  return {};
}

// ---- within a group ------------------------------------------------------------------------------------------------

bool spgr_equal(const space_group_type& a, const space_group_type& b) {
  return a.symop.size() == b.symop.size() && std::ranges::all_of(a.symop, [&](const sym_oper_type& op) {
           return std::ranges::any_of(b.symop, [&](const sym_oper_type& other) { return equal_symop(op, other); });
         });
}

multiplication_table set_spg_mult_table(const space_group_type& spg) {
  multiplication_table out;
  const std::vector<exact_op> element = elements(spg);
  for (const exact_op& a : element) {
    std::vector<int>& row = out.product.emplace_back();
    for (const exact_op& b : element) {
      const exact_op p = parts::product(a, b);
      const auto found = std::ranges::find_if(element, [&](const exact_op& e) { return parts::equal(e, p); });
      if (found == element.end()) {
        out.err = failure("Problems constructing the multiplication Table of the space group: " + spg.spg_symb);
        out.product.clear();
        return out;
      }
      row.push_back(static_cast<int>(found - element.begin()));
    }
  }
  return out;
}

namespace {

/// A set of at most 48 elements, bit i for element i.
using element_set = std::uint64_t;

/// Products of the factor group by the translations.
std::vector<std::vector<std::size_t>> factor_products(std::span<const exact_op> element) {
  std::vector<std::vector<std::size_t>> out;
  for (const exact_op& a : element) {
    auto& row = out.emplace_back();
    for (const exact_op& b : element) {
      const matrix3i rot = parts::product(a.rot, b.rot);
      const auto found = std::ranges::find(element, rot, &exact_op::rot);
      row.push_back(static_cast<std::size_t>(found - element.begin()));
    }
  }
  return out;
}

element_set closed(element_set set, const std::vector<std::vector<std::size_t>>& product) {
  for (;;) {
    element_set grown = set;
    for (std::size_t i = 0; i < product.size(); ++i)
      for (std::size_t j = 0; j < product.size(); ++j)
        if ((set >> i & 1u) && (set >> j & 1u)) grown |= element_set{1} << product[i][j];
    if (grown == set) return set;
    set = grown;
  }
}

}  // namespace

std::vector<space_group_type> get_t_subgroups(const space_group_type& spg) {
  std::vector<exact_op> element = representatives(spg);
  std::vector<space_group_type> out;
  if (element.empty() || element.size() > 48) return out;
  const auto product = factor_products(element);
  const bool group = std::ranges::all_of(product, [&](const auto& row) {
    return std::ranges::all_of(row, [&](std::size_t p) { return p < element.size(); });
  });
  if (!group) return out;
  // Every subgroup is reached from the trivial one by taking in one element after the other.
  std::vector<element_set> found{1};
  for (std::size_t k = 0; k < found.size(); ++k)
    for (std::size_t i = 0; i < element.size(); ++i) {
      if (found[k] >> i & 1u) continue;
      const element_set larger = closed(found[k] | element_set{1} << i, product);
      if (std::ranges::find(found, larger) == found.end()) found.push_back(larger);
    }
  std::ranges::stable_sort(found, std::greater<>{}, [](element_set s) { return std::popcount(s); });
  for (const element_set set : found) {
    if (std::popcount(set) == static_cast<int>(element.size())) continue;  // the group itself
    std::vector<exact_op> generators;
    for (std::size_t i = 0; i < element.size(); ++i)
      if (set >> i & 1u) generators.push_back(element[i]);
    for (const vector3& c : spg.latt_trans) generators.push_back(parts::exact({parts::identity, c}));
    space_group_type& sub = out.emplace_back();
    if (!parts::fill_record(sub, parts::close_group(generators))) continue;
    parts::add_tabulated_setting(sub);
    sub.sg_setting = "t-subgroup of " + spg.spg_symb;
  }
  return out;
}

// ---- names of a group from its operators ---------------------------------------------------------------------------

hall_symbol_result get_hallsymb_from_gener(std::span<const sym_oper_type> gen) {
  std::vector<exact_op> generators;
  for (const sym_oper_type& op : gen) generators.push_back(parts::exact(op));
  const parts::closed_group group = parts::close_group(generators);
  hall_symbol_result out;
  space_group_type spg;
  if (!group.element.empty() && parts::fill_record(spg, group)) {
    parts::add_tabulated_setting(spg);
    if (!spg.hall.empty()) return {{}, spg.hall, false};
    const parts::found_hall found = parts::hall_symbol_of(group);
    out.symbol = found.symbol;
    out.general = !found.plain;
  }
  if (out.symbol.empty()) out.err = failure(" Wrong space-group symbol: no Hall symbol for these operators");
  return out;
}

std::string get_gensymb_from_gener(const space_group_type& spg) {
  std::string out = std::string(1, spg.spg_lat) + ": ";
  std::vector<exact_op> lattice;
  for (const vector3& c : spg.latt_trans) lattice.push_back(parts::exact({parts::identity, c}));
  std::vector<exact_op> generators = lattice;
  std::size_t order = spg.latt_trans.size();
  bool any = false;
  const auto add = [&](const exact_op& e) {
    generators.push_back(e);
    const std::size_t grown = parts::close_group(generators).element.size();
    if (grown <= order) {
      generators.pop_back();
      return;
    }
    order = grown;
    const sym_oper_type op = parts::rounded(e);
    out += (any ? "; " : "") + get_symsymbi(op.rot, op.tr);
    any = true;
  };
  for (const exact_op& e : representatives(spg)) add(e);
  if (!any) out += "x,y,z";
  // A set of centring vectors without a letter is told in full.
  if (spg.spg_lat == 'Z')
    for (std::size_t i = 1; i < lattice.size(); ++i) {
      const sym_oper_type op = parts::rounded(lattice[i]);
      out += "; " + get_symsymbi(op.rot, op.tr);
    }
  return out;
}

}  // namespace lmix_crystallographic_symmetry

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_symmetry_tables.hpp"

// Magnetic groups from their operators. Types: 1 no operator is joined with time reversal; 2 (grey) time reversal
// itself is in the group; 3 it comes with rotations only; 4 it comes with a translation (D. B. Litvin, Magnetic Group
// Tables, IUCr 2013; the lattice and the operators are told in the manner of Belov, Neronova and Smirnova).
namespace lmix_crystallographic_symmetry {
namespace {

using parts::exact_op;

err_symm_type failure(std::string text) { return {true, std::move(text)}; }

constexpr exact_op time_reversal{parts::identity, {}, -1};

matrix3i magnetic_matrix(const exact_op& e) {
  return e.time_inv * determinant(e.rot) < 0 ? parts::negated(e.rot) : e.rot;
}

int type_of(std::span<const exact_op> element) {
  bool primed = false, anti_translation = false;
  for (const exact_op& e : element) {
    if (e.time_inv > 0) continue;
    if (parts::equal(e, time_reversal)) return 2;
    primed = true;
    anti_translation = anti_translation || e.rot == parts::identity;
  }
  return anti_translation ? 4 : primed ? 3 : 1;
}

/// Translations of one kind, the first of a list first.
std::vector<vector3> translations(std::span<const exact_op> element, int time_inv) {
  std::vector<vector3> out;
  for (const exact_op& e : element)
    if (e.rot == parts::identity && e.time_inv == time_inv) out.push_back(parts::rounded(e).tr);
  return out;
}

/// One operator of each rotation (without time reversal where there is a choice); with an inversion only the proper
/// ones.
std::vector<exact_op> reduced_set(std::span<const exact_op> element, bool centric) {
  std::vector<exact_op> out;
  for (const int time_inv : {1, -1})
    for (const exact_op& e : element) {
      if (e.time_inv != time_inv || (centric && determinant(e.rot) < 0)) continue;
      if (std::ranges::none_of(out, [&](const exact_op& r) { return r.rot == e.rot; })) out.push_back(e);
    }
  return out;
}

/// The inversion without time reversal, at the origin if there is one there.
const exact_op* inversion_of(std::span<const exact_op> element) {
  const exact_op* found = nullptr;
  for (const exact_op& e : element) {
    if (e.rot != parts::negated(parts::identity) || e.time_inv < 0) continue;
    if (parts::equal(e, {e.rot, {}})) return &e;
    if (!found) found = &e;
  }
  return found;
}

void append(magnetic_space_group_type& m, const exact_op& e) {
  const sym_oper_type op = parts::rounded(e);
  m.symop.push_back(op);
  m.symopsymb.push_back(get_symsymbi(op.rot, op.tr) + (e.time_inv < 0 ? ",-1" : ",+1"));
  m.msymop.push_back({magnetic_matrix(e), 0.f});
  m.msymopsymb.push_back(get_magsymb(m.msymop.back().rot));
}

void fill_operators(magnetic_space_group_type& m, std::span<const exact_op> element) {
  const exact_op* inversion = inversion_of(element);
  m.centred = centring_code::acentric;
  if (inversion) {
    const bool at_origin = parts::equal(*inversion, {inversion->rot, {}});
    m.centred = at_origin ? centring_code::centric_at_origin : centring_code::centric_elsewhere;
    for (std::size_t i = 0; i < 3; ++i)
      m.centre_coord[i] = at_origin ? 0.f : static_cast<float>(inversion->tr[i] / 2.0);
  }
  const std::vector<exact_op> reduced = reduced_set(element, inversion != nullptr);
  std::vector<exact_op> list = reduced;
  if (inversion)
    for (const exact_op& e : reduced) list.push_back(parts::product(e, *inversion));
  m.numops = static_cast<int>(reduced.size());
  const auto with_translations = [&](const std::vector<vector3>& shifts, int time_inv) {
    for (const vector3& shift : shifts) {
      exact_op t = parts::exact({parts::identity, shift});
      t.time_inv = time_inv;
      for (const exact_op& e : list) append(m, parts::product(t, e));
    }
  };
  with_translations(m.latt_trans, 1);
  with_translations(m.alat_trans, -1);
  m.multip = static_cast<int>(m.symop.size());
}

/// The crystallographic group of the operators without time reversal.
space_group_type family_of(std::span<const exact_op> element) {
  std::vector<exact_op> generators;
  for (exact_op e : element) {
    e.time_inv = 1;
    generators.push_back(e);
  }
  space_group_type spg;
  if (!parts::fill_record(spg, parts::close_group(generators))) return {};
  parts::add_tabulated_setting(spg);
  return spg;
}

/// "4/m m m" of the family with primes on what comes with time reversal only: "4'/mm'm".
std::string point_group_symbol(const magnetic_space_group_type& m, const space_group_type& family) {
  const bool grey = m.magtype == 2 || m.magtype == 4;
  if (grey) return family.pg + "1'";
  if (m.magtype == 1) return family.pg;
  std::vector<parts::symbol_piece> pieces = parts::pieces_of_point_group(family.pg, family.laue.ends_with("R"));
  const auto time_of = [&](const matrix3i& rot) {
    for (std::size_t i = 0; i < m.symop.size(); ++i)
      if (m.symop[i].rot == rot) return m.time_inv(i);
    return 0;
  };
  // The one direction of a monoclinic group is where its operator has it.
  if (pieces.size() <= 2 && family.laue == "2/m")
    for (auto& piece : pieces) {
      const int wanted = parts::rotation_type(piece.rot);
      for (const sym_oper_type& op : m.symop)
        if (parts::rotation_type(op.rot) == wanted) piece.rot = op.rot;
    }
  std::string out;
  for (const auto& piece : pieces) {
    const int time = time_of(piece.rot);
    if (time == 0) return {};
    out += piece.text + (time < 0 ? "'" : "");
  }
  return out;
}

std::string label(std::string_view text, std::string_view value) {
  constexpr std::size_t width = 32;
  std::string out(text.size() < width ? width - text.size() : 0, ' ');
  return out.append(text).append(" ").append(value).append("\n");
}

std::string triple(const vector3& v) {
  std::array<char, 64> buffer;
  std::snprintf(buffer.data(), buffer.size(), "(%8.5f,%8.5f,%8.5f )", static_cast<double>(v[0]),
                static_cast<double>(v[1]), static_cast<double>(v[2]));
  return buffer.data();
}

std::vector<exact_op> elements(const magnetic_space_group_type& m) {
  std::vector<exact_op> out;
  for (std::size_t i = 0; i < m.symop.size(); ++i) {
    exact_op e = parts::exact(m.symop[i]);
    e.time_inv = m.time_inv(i);
    out.push_back(e);
  }
  if (m.magtype == 2) out.push_back(time_reversal);
  return out;
}

err_symm_type from_elements(std::span<const exact_op> generators, magnetic_space_group_type& out) {
  const parts::closed_group group = parts::close_group(generators);
  if (group.element.empty())
    return failure(
        "Problems constructing the multiplication Table of the space group: the generators give no finite group");
  magnetic_space_group_type m;
  m.magtype = type_of(group.element);
  // A grey group is told by the operators without time reversal: each stands for two.
  std::vector<exact_op> element;
  for (const exact_op& e : group.element)
    if (m.magtype != 2 || e.time_inv > 0) element.push_back(e);
  m.latt_trans = translations(element, 1);
  m.alat_trans = translations(element, -1);
  m.num_lat = static_cast<int>(m.latt_trans.size());
  m.num_alat = static_cast<int>(m.alat_trans.size());
  fill_operators(m, element);
  const space_group_type family = family_of(element);
  if (family.laue.empty())
    return failure("Problems constructing the multiplication Table of the space group: no crystallographic group");
  m.laue = family.laue;
  m.parent_num = family.numspg;
  m.parent_spg = family.spg_symb;
  m.pg_symbol = point_group_symbol(m, family);
  out = std::move(m);
  return {};
}

}  // namespace

int magnetic_space_group_type::time_inv(std::size_t i) const { return determinant(msymop[i].rot) < 0 ? -1 : 1; }

err_symm_type read_shubnikov(std::string_view text, shubnikov_oper_type& op) {
  const std::size_t last = text.rfind(',');
  const auto commas = std::ranges::count(text, ',');
  int time_inv = 1;
  std::string_view body = text;
  if (commas == 3) {
    std::string_view time = text.substr(last + 1);
    while (!time.empty() && time.front() == ' ') time.remove_prefix(1);
    while (!time.empty() && time.back() == ' ') time.remove_suffix(1);
    if (time != "1" && time != "+1" && time != "-1")
      return failure(" The above operator is wrong: " + std::string(text));
    time_inv = time == "-1" ? -1 : 1;
    body = text.substr(0, last);
  } else if (body.ends_with('\'')) {
    time_inv = -1;
    body.remove_suffix(1);
  }
  sym_oper_type read;
  if (auto err = check_generator(body, read)) return err;
  op = {read, time_inv};
  return {};
}

err_symm_type set_magnetic_spacegroup(std::span<const shubnikov_oper_type> gen, magnetic_space_group_type& mspg) {
  if (gen.empty()) return failure(" Generators should be provided in GEN calling Set_SpaceGroup");
  std::vector<exact_op> generators;
  for (const shubnikov_oper_type& g : gen) {
    if (std::abs(determinant(g.op.rot)) != 1)
      return failure("The matrix corresponding to a generator has a determinant with absolute value different of 1.0");
    exact_op e = parts::exact(g.op, parts::rounding_of_users);
    e.time_inv = g.time_inv < 0 ? -1 : 1;
    generators.push_back(e);
  }
  return from_elements(generators, mspg);
}

err_symm_type set_magnetic_spacegroup(std::span<const std::string> gen, magnetic_space_group_type& mspg) {
  std::vector<shubnikov_oper_type> operators;
  for (const std::string& text : gen)
    if (auto err = read_shubnikov(text, operators.emplace_back())) return err;
  return set_magnetic_spacegroup(operators, mspg);
}

std::vector<shubnikov_oper_type> all_operators(const magnetic_space_group_type& mspg) {
  std::vector<shubnikov_oper_type> out;
  for (std::size_t i = 0; i < mspg.symop.size(); ++i) out.push_back({mspg.symop[i], mspg.time_inv(i)});
  if (mspg.magtype == 2)
    for (const sym_oper_type& op : mspg.symop) out.push_back({op, -1});
  return out;
}

err_symm_type setting_change_maggroup(std::string_view setting, const magnetic_space_group_type& mspg,
                                      magnetic_space_group_type& out) {
  const setting_change change = read_setting(setting);
  if (change.err) return change.err;
  parts::affine back;
  back.t = change.setting.origin;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) back.m[j][i] = change.setting.axes[i][j];
  const double det = parts::affine_determinant(back);
  const auto v = parts::inverse(back);
  if (!v) return failure(" => Wrong setting! Inversion Matrix Failed in Setting_Change_MagGroup!");
  if (det < 0) return failure(" => The transformation matrix should have a positive determinant!");
  char text[32];
  std::snprintf(text, sizeof text, "%.5g", det);
  const auto lost = [&] {
    return failure(std::string(" => Error! The total multiplicity has not been recovered -> det: ") + text);
  };
  const std::vector<exact_op> element = elements(mspg);
  auto moved = parts::whole_operators(parts::change_axes(element, mspg.latt_trans, *v));
  if (!moved) return lost();
  for (std::size_t i = 0; i < element.size(); ++i) (*moved)[i].time_inv = element[i].time_inv;
  magnetic_space_group_type built;
  if (auto err = from_elements(*moved, built)) return err;
  if (built.multip != static_cast<int>(std::lround(mspg.multip * det))) return lost();
  built.sh_number = mspg.sh_number;
  built.bns_number = mspg.bns_number;
  built.og_number = mspg.og_number;
  built.bns_symbol = mspg.bns_symbol;
  built.og_symbol = mspg.og_symbol;
  built.uni_symbol = mspg.uni_symbol;
  if (built.parent_num == 0) {
    built.parent_num = mspg.parent_num;
    built.parent_spg = mspg.parent_spg;
  }
  out = std::move(built);
  return {};
}

std::string write_magnetic_space_group(const magnetic_space_group_type& mspg, bool full) {
  std::string out =
      "\n        Information on Magnetic Space Group: \n        ------------------------------------ \n\n";
  out += label("Shubnikov Number:", std::to_string(mspg.sh_number));
  out += label("BNS Number:", mspg.bns_number);
  out += label("OG Number:", mspg.og_number);
  out += label("BNS Symbol:", mspg.bns_symbol);
  out += label("OG Symbol:", mspg.og_symbol);
  out += label("UNIFIED Symbol:", mspg.uni_symbol);
  out += label("Magnetic point group Symbol:", mspg.pg_symbol);
  out += label("Type of Magnetic group:", std::to_string(mspg.magtype));
  if (mspg.magtype == 2)
    out += " =>  This is a Paramagnetic Space Group: the number of cosets should be doubled with TimeReversal = +1\n";
  out += label("Parent group number:", std::to_string(mspg.parent_num));
  out += label("Parent group Symbol:", mspg.parent_spg);
  for (const auto& [text, value] : {std::pair{"Transformation   to parent:", &mspg.trn_to_parent},
                                    std::pair{"Transformation from parent:", &mspg.trn_from_parent},
                                    std::pair{"Transformation   to standard:", &mspg.trn_to_standard},
                                    std::pair{"Transformation from standard:", &mspg.trn_from_standard}})
    if (!value->empty()) out += label(text, *value);
  out += label("Laue Class for Cell constr.:", mspg.laue);
  constexpr std::array<std::string_view, 3> centre{"Centric (-1 not at origin)", "Acentric", "Centric (-1 at origin)"};
  out += label("Centrosymmetry:", centre[static_cast<std::size_t>(mspg.centred)]);
  if (mspg.centred == centring_code::centric_elsewhere) out += label("Centre at:", triple(mspg.centre_coord));
  out += label("Number of centring vectors:", std::to_string(mspg.num_lat));
  for (std::size_t i = 1; i < mspg.latt_trans.size(); ++i)
    out += label(i == 1 ? "Centring vectors:" : "", triple(mspg.latt_trans[i]));
  out += label("Number of anti-translations:", std::to_string(mspg.num_alat));
  for (std::size_t i = 0; i < mspg.alat_trans.size(); ++i)
    out += label(i == 0 ? "Anti-Centring vectors:" : "", triple(mspg.alat_trans[i]));
  out += label("Number of reduced set of S.O.:", std::to_string(mspg.numops));
  out += label("General Multiplicitiy:", std::to_string(mspg.multip));
  if (!full) return out;
  out += "\n => List of all Symmetry Operators and Symmetry Symbols\n\n";
  for (std::size_t i = 0; i < mspg.symop.size(); ++i) {
    std::array<char, 32> number;
    std::snprintf(number.data(), number.size(), " => SYMM(%3d): ", static_cast<int>(i) + 1);
    std::string line = number.data() + mspg.symopsymb[i];
    line.resize(std::max<std::size_t>(line.size(), 46), ' ');
    line += " " + mspg.msymopsymb[i];
    line.resize(std::max<std::size_t>(line.size(), 66), ' ');
    out += line + " Symbol: " + get_shubnikov_operator_symbol(mspg.symop[i], mspg.time_inv(i)) + "\n";
  }
  return out;
}

int get_multip_pos_mag(const vector3& x, const magnetic_space_group_type& mspg) {
  std::vector<vector3> distinct;
  for (const sym_oper_type& op : mspg.symop) {
    const vector3 image = applyso(op, x);
    const bool seen = std::ranges::any_of(distinct, [&](const vector3& p) {
      return lattice_trans({p[0] - image[0], p[1] - image[1], p[2] - image[2]}, 'P');
    });
    if (!seen) distinct.push_back(image);
  }
  return static_cast<int>(distinct.size());
}

std::vector<shubnikov_oper_type> get_stabilizerm(const vector3& x, const magnetic_space_group_type& mspg) {
  std::vector<shubnikov_oper_type> out;
  for (shubnikov_oper_type g : all_operators(mspg)) {
    const vector3 image = applyso(g.op, x);
    if (!lattice_trans({image[0] - x[0], image[1] - x[1], image[2] - x[2]}, 'P')) continue;
    for (std::size_t i = 0; i < 3; ++i) g.op.tr[i] -= std::round(image[i] - x[i]);
    out.push_back(g);
  }
  const auto product = [](const shubnikov_oper_type& a, const shubnikov_oper_type& b) {
    return shubnikov_oper_type{product_symop(a.op, b.op), a.time_inv * b.time_inv};
  };
  parts::close_site(out, product, [](const shubnikov_oper_type& a, const shubnikov_oper_type& b) {
    return a.op.rot == b.op.rot && a.time_inv == b.time_inv;
  });
  return out;
}

}  // namespace lmix_crystallographic_symmetry

#include "lmix_crystallographic_symmetry.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "lmix_symmetry_tables.hpp"

namespace lmix_crystallographic_symmetry {
namespace {

using lmix_symmetry_tables::spgr_info_row;
using parts::exact_op;

err_symm_type failure(std::string text) { return {true, std::move(text)}; }

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

const spgr_info_row& setting(int row) { return lmix_symmetry_tables::spgr_info()[static_cast<std::size_t>(row - 1)]; }

// ---- from elements to the record -----------------------------------------------------------------------------------

bool same_lattice(std::span<const vector3> a, std::span<const vector3> b) {
  return a.size() == b.size() && std::ranges::all_of(a, [&](const vector3& v) { return lattice_trans(v, b); });
}

// The letter of a set of centring vectors, whose vectors then take the conventional order; Z for any other set.
void set_lattice(space_group_type& spg, std::vector<vector3> centring) {
  spg.spg_lat = get_lattice_type(centring);
  if (spg.spg_lat != 'Z') centring = latsym(spg.spg_lat);
  spg.latt_trans = std::move(centring);
  spg.numlat = static_cast<int>(spg.latt_trans.size());
}

// Three columns for each number, whole ones in the middle, as in "  A: { 000;  0  1/2 1/2 }+".
std::string lattice_text(const space_group_type& spg) {
  std::string out = std::string("  ") + spg.spg_lat + ": { 000";
  for (std::size_t i = 1; i < spg.latt_trans.size(); ++i) {
    out += ";";
    for (const float e : spg.latt_trans[i]) {
      const std::string number = parts::fraction_text(static_cast<double>(e));
      out += number.size() == 1 ? "  " + number + " " : " " + number;
    }
  }
  if (out.back() == ' ') out.pop_back();
  return out + (spg.numlat > 1 ? " }+" : " }");
}

// The element with the inversion that the record is built on: at the origin if there is one, else the first.
const exact_op* inversion_of(std::span<const exact_op> element) {
  const matrix3i inversion = parts::negated(parts::identity);
  const exact_op* found = nullptr;
  for (const exact_op& e : element) {
    if (e.rot != inversion) continue;
    if (parts::equal(e, {inversion, {}})) return &e;
    if (!found) found = &e;
  }
  return found;
}

void set_centre(space_group_type& spg, const exact_op* inversion) {
  if (!inversion) {
    spg.centred = centring_code::acentric;
    spg.centre = "Acentric";
    return;
  }
  for (std::size_t i = 0; i < 3; ++i) spg.centre_coord[i] = static_cast<float>(inversion->tr[i] / 2.0);
  const bool at_origin = parts::equal(*inversion, {inversion->rot, {}});
  if (at_origin) spg.centre_coord = {};
  spg.centred = at_origin ? centring_code::centric_at_origin : centring_code::centric_elsewhere;
  spg.centre = at_origin ? "Centric (-1 at origin)" : "Centric (-1 not at origin)";
}

// One operator of each rotation, the proper one of a pair that the inversion joins, in the order of the closure.
std::vector<exact_op> reduced_set(std::span<const exact_op> element, bool centric) {
  std::vector<exact_op> reduced;
  for (const exact_op& e : element) {
    if (centric && determinant(e.rot) < 0) continue;
    if (std::ranges::none_of(reduced, [&](const exact_op& r) { return r.rot == e.rot; })) reduced.push_back(e);
  }
  return reduced;
}

// The full list in its fixed order.
void fill_operators(space_group_type& spg, std::span<const exact_op> reduced) {
  std::vector<exact_op> list(reduced.begin(), reduced.end());
  if (spg.centred != centring_code::acentric)
    for (const exact_op& r : reduced) {
      exact_op e{parts::negated(r.rot), {}};
      for (std::size_t i = 0; i < 3; ++i) e.tr[i] = 2.0 * static_cast<double>(spg.centre_coord[i]) - r.tr[i];
      parts::reduce(e);
      list.push_back(e);
    }
  const std::size_t per_lattice_point = list.size();
  for (std::size_t l = 1; l < spg.latt_trans.size(); ++l) {
    const exact_op shift = parts::exact({parts::identity, spg.latt_trans[l]});
    for (std::size_t m = 0; m < per_lattice_point; ++m) list.push_back(parts::product(shift, list[m]));
  }
  spg.symop.clear();
  spg.symopsymb.clear();
  for (const exact_op& e : list) {
    spg.symop.push_back(parts::rounded(e));
    spg.symopsymb.push_back(get_symsymbi(spg.symop.back().rot, spg.symop.back().tr));
  }
  spg.numops = static_cast<int>(reduced.size());
  spg.multip = static_cast<int>(list.size());
}

// The third column is not tested: in hexagonal rotations x and y mix, never z.
bool needs_hexagonal_table(const space_group_type& spg) {
  for (std::size_t m = 1; m < static_cast<std::size_t>(spg.numops); ++m)
    for (std::size_t column = 0; column < 2; ++column) {
      int sum = 0;
      for (std::size_t i = 0; i < 3; ++i) sum += std::abs(spg.symop[m].rot[i][column]);
      if (sum > 1) return true;
    }
  return false;
}

void set_class(space_group_type& spg, int laue, int pg) {
  constexpr std::string_view family = "amothhc";
  spg.laue = lmix_symmetry_tables::get_laue_str(laue);
  spg.pg = lmix_symmetry_tables::get_pointgroup_str(pg);
  const int system = lmix_symmetry_tables::crystal_system_of_laue(laue);
  if (system < 0) return;
  const auto i = static_cast<std::size_t>(system);
  spg.crystalsys = lmix_symmetry_tables::sys_cry[i];
  const bool rhombohedral_axes = laue == 6 || laue == 7;
  spg.spg_latsy = std::string(1, family[i]) + (rhombohedral_axes ? 'R' : spg.spg_lat);
}

}  // namespace

bool parts::fill_record(space_group_type& spg, const parts::closed_group& group) {
  std::vector<vector3> centring;
  for (const exact_op& e : group.element)
    if (e.rot == parts::identity) centring.push_back(parts::rounded(e).tr);
  set_lattice(spg, std::move(centring));
  spg.bravais = lattice_text(spg);
  set_centre(spg, inversion_of(group.element));
  fill_operators(spg, reduced_set(group.element, spg.centred != centring_code::acentric));
  if (spg.centred == centring_code::centric_elsewhere)
    spg.centre += "  Gen(-1): " + spg.symopsymb[static_cast<std::size_t>(spg.numops)];
  spg.num_gen = group.num_gen;
  spg.hexa = needs_hexagonal_table(spg);
  const laue_pg found = get_laue_pg(spg.symop);
  set_class(spg, found.laue, found.pg);
  return found.laue != 0;
}

namespace {

// ---- what the tables add -------------------------------------------------------------------------------------------

void add_wyckoff(space_group_type& spg, int row) {
  auto listed = lmix_symmetry_tables::wyckoff_info(row);  // a further setting may be another name of a listed one
  if (listed.empty()) listed = lmix_symmetry_tables::wyckoff_info(lmix_symmetry_tables::find_hall(setting(row).hall));
  for (const auto& w : listed) {
    wyck_pos_type& orbit = spg.wyckoff.orbit.emplace_back();
    orbit.letter = w.letter;
    orbit.site = w.site;
    orbit.str_orig = w.position;
    orbit.str_orbit = wyckoff_orbit(w.position, spg);
    orbit.norb = static_cast<int>(orbit.str_orbit.size());
    orbit.multp = orbit.norb * spg.numlat;
  }
  spg.wyckoff.num_orbit = static_cast<int>(spg.wyckoff.orbit.size());
}

void add_table_row(space_group_type& spg, int row) {
  const spgr_info_row& s = setting(row);
  spg.numspg = s.number;
  spg.spg_symb = s.hm;
  // The choice stands in the symbol only where it is not the one that the bare symbol means.
  if (s.ext == "1" || s.ext == "R") spg.spg_symb += ":" + std::string(s.ext);
  spg.hall = s.hall;
  spg.info = s.choice;
  set_class(spg, s.laue, s.pg);
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 2; ++k) spg.r_asym_unit[i][k] = static_cast<float>(s.asu[i + 3 * k]) * (1.0f / 24.0f);
  add_wyckoff(spg, row);
}

bool same_group(const space_group_type& a, const space_group_type& b) {
  return std::ranges::all_of(a.symop, [&](const sym_oper_type& op) {
    return std::ranges::any_of(b.symop, [&](const sym_oper_type& other) { return equal_symop(op, other); });
  });
}

err_symm_type from_hall(std::string_view hall, space_group_type& spg) {
  const parts::generator_set symbol = parts::get_so_from_hall(hall);
  if (symbol.err) return symbol.err;
  if (!parts::fill_record(spg, parts::close_group(symbol.generators)))
    return failure(" Wrong space-group symbol: " + std::string(hall));
  if (spg.numlat != symbol.numlat)
    return failure(" Wrong space-group symbol: " + std::string(hall) + ": its operators make a lattice of " +
                   std::to_string(spg.numlat) + " points, its letter one of " + std::to_string(symbol.numlat));
  spg.hall = hall;
  return {};
}

// The setting that has just these operators, 0 when none is tabulated.
int row_of_operators(const space_group_type& spg) {
  const auto table = lmix_symmetry_tables::spgr_info();
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i].multip != spg.multip || table[i].numlat != spg.numlat ||
        lmix_symmetry_tables::get_laue_str(table[i].laue) != spg.laue)
      continue;
    space_group_type candidate;
    if (!from_hall(table[i].hall, candidate) && same_group(spg, candidate)) return static_cast<int>(i) + 1;
  }
  return 0;
}

}  // namespace

void parts::add_tabulated_setting(space_group_type& spg) {
  if (const int row = row_of_operators(spg)) add_table_row(spg, row);
}

namespace {

// ---- the roads -----------------------------------------------------------------------------------------------------

err_symm_type from_row(int row, std::string_view how, space_group_type& spg) {
  if (auto err = from_hall(setting(row).hall, spg)) return err;
  add_table_row(spg, row);
  spg.sg_setting = how;
  return {};
}

err_symm_type close_generators(std::span<const std::string> gen, space_group_type& spg, parts::closed_group& group) {
  std::vector<exact_op> generators;
  for (const std::string& text : gen) {
    sym_oper_type op;
    if (auto err = check_generator(text, op)) return err;
    generators.push_back(parts::exact(op, parts::rounding_of_users));
  }
  group = parts::close_group(generators);
  if (group.element.empty() || !parts::fill_record(spg, group))
    return failure(
        "Problems constructing the multiplication Table of the space group: the generators give no finite group");
  return {};
}

// The generators of International Tables when the row is the standard setting of its number.
err_symm_type from_it_generators(int row, space_group_type& spg) {
  const auto& g = lmix_symmetry_tables::spg_gen()[static_cast<std::size_t>(setting(row).number - 1)];
  constexpr std::string_view how = "Generated from explicit IT generators";
  if (g.row != row) return from_row(row, how, spg);
  std::vector<std::string> gen;
  for (std::string_view list : {g.generators, g.centring})
    while (!list.empty()) {
      const std::size_t end = std::min(list.find(';'), list.size());
      gen.emplace_back(trimmed(list.substr(0, end)));
      list.remove_prefix(std::min(end + 1, list.size()));
    }
  parts::closed_group group;
  if (auto err = close_generators(gen, spg, group)) return err;
  add_table_row(spg, row);
  spg.sg_setting = how;
  return {};
}

err_symm_type from_generators(std::span<const std::string> gen, space_group_type& spg) {
  if (gen.empty()) return failure(" Generators should be provided in GEN calling Set_SpaceGroup");
  parts::closed_group group;
  if (auto err = close_generators(gen, spg, group)) return err;
  parts::add_tabulated_setting(spg);
  if (spg.hall.empty()) {
    const parts::found_hall hall = parts::hall_symbol_of(group);
    (hall.plain ? spg.hall : spg.ghall) = hall.symbol;
  }
  spg.sg_setting = "Non-Conventional (user-given operators)";
  return {};
}

err_symm_type from_fixed_list(std::string_view spacegen, std::span<const std::string> gen, space_group_type& spg) {
  if (gen.empty()) return failure(" Generators should be provided if FIX option is Used");
  std::vector<exact_op> list;
  for (const std::string& text : gen) {
    sym_oper_type op;
    if (auto err = read_xsym(text, 0, op)) return err;
    list.push_back(parts::exact(op, parts::rounding_of_users));
  }
  spg.latt_trans = {vector3{}};
  spg.numlat = 1;
  spg.spg_lat = spacegen.empty() ? 'Z' : upper(spacegen)[0];
  spg.bravais = lattice_text(spg);
  spg.centred = centring_code::acentric;
  spg.centre = "Acentric (an inversion, if any, stands in the list)";
  fill_operators(spg, list);
  spg.hexa = needs_hexagonal_table(spg);
  const laue_pg found = get_laue_pg(spg.symop);
  set_class(spg, found.laue, found.pg);
  spg.spg_symb = spacegen;
  spg.info = "Fixed";
  spg.sg_setting = "Fixed symmetry operators (no info)";
  return {};
}

// ". Nearest symbols: P m m m, P m m 2"; nothing for an empty list.
std::string list_of(std::string_view title, const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& item : items) out += (out.empty() ? ". " + std::string(title) + ": " : ", ") + item;
  return out;
}

std::vector<std::string> choices_of_number(int number) {
  std::vector<std::string> out;
  for (const spgr_info_row& s : lmix_symmetry_tables::spgr_info())
    if (s.number == number && !s.choice.empty()) out.emplace_back(s.choice);
  return out;
}

struct resolved {
  err_symm_type err;
  int row = 0;  // 0: not in the table
  bool by_number = false;
};

// Row of a number or a Hermann-Mauguin symbol with its setting choice.
resolved resolve(std::string_view text, bool numbers) {
  const std::size_t colon = text.find(':');
  const std::string_view base = trimmed(text.substr(0, colon));
  const std::string_view choice =
      colon == std::string_view::npos ? std::string_view{} : trimmed(text.substr(colon + 1));
  const bool choice_given = colon != std::string_view::npos;
  const auto no_choice = [&](const std::vector<std::string>& known) {
    return failure("Error in the provided symbol/number of the space group: " + std::string(base) +
                   " has no setting choice '" + std::string(choice) + "'" + list_of("It has", known));
  };
  resolved out;
  out.by_number = numbers && !base.empty() && base.find_first_not_of("0123456789") == std::string_view::npos;
  if (out.by_number) {
    const int number = base.size() > 4 ? 0 : std::atoi(std::string(base).c_str());
    if (number < 1 || number > 230) {
      out.err = failure(
          " Number of Space Group out of limits. The number of the space group should be in the interval [1,230]");
      return out;
    }
    if (!choice_given || !choice.empty()) out.row = lmix_symmetry_tables::find_number(number, choice);
    if (out.row == 0) out.err = no_choice(choices_of_number(number));
    return out;
  }
  out.row = lmix_symmetry_tables::preferred_row(lmix_symmetry_tables::find_hm(text));
  if (out.row != 0 || !choice_given) return out;
  const lmix_symmetry_tables::row_list rows = lmix_symmetry_tables::find_hm(base);
  std::vector<std::string> known;
  for (int i = 0; i < rows.size; ++i) known.emplace_back(setting(rows.row[static_cast<std::size_t>(i)]).ext);
  std::erase(known, "");
  if (rows.size > 0) out.err = no_choice(known);
  return out;
}

err_symm_type from_hall_text(std::string_view text, space_group_type& spg) {
  if (const int row = lmix_symmetry_tables::find_hall(text)) return from_row(row, "Generated from Hall symbol", spg);
  if (auto err = from_hall(text, spg)) {
    err.err_symm_mess += list_of("Nearest Hall symbols", nearest_hall_symbols(text));
    return err;
  }
  parts::add_tabulated_setting(spg);
  spg.sg_setting = "Generated from Hall symbol";
  return {};
}

// "C 1 21/C 1" as it is printed: "C 1 21/c 1".
std::string printed_symbol(std::string_view symbol) {
  const std::size_t colon = std::min(symbol.find(':'), symbol.size());
  std::string out;
  for (std::size_t i = 0; i < symbol.size(); ++i) {
    const auto c = static_cast<unsigned char>(symbol[i]);
    if (c == ' ' && (out.empty() || out.back() == ' ')) continue;
    out += static_cast<char>(i == 0 || i > colon ? std::toupper(c) : std::tolower(c));
  }
  return out;
}

err_symm_type from_hms_letters(std::string_view symbol, space_group_type& spg) {
  const parts::generator_set set = parts::get_so_from_hms(symbol);
  if (set.err) return set.err;
  if (!parts::fill_record(spg, parts::close_group(set.generators)))
    return failure(" Wrong space-group symbol: " + std::string(symbol));
  parts::add_tabulated_setting(spg);
  spg.spg_symb = printed_symbol(symbol);
  spg.sg_setting = "Generated from Hermann-Mauguin symbol";
  return {};
}

// What a symbol that stands in no table of settings was taken for.
std::string note_of_letters(const space_group_type& spg) {
  std::string note = spg.spg_symb + " stands in no table of settings. Its letters say ";
  if (const int row = lmix_symmetry_tables::find_hall(spg.hall))
    return note + std::string(setting(row).hm) + " (number " + std::to_string(spg.numspg) + ")";
  const setting_info info = get_setting_info(spg);
  const std::string operators = std::to_string(spg.multip) + " operators";
  if (info.numspg == 0) return note + "a group of " + operators + "; see its list in the listing";
  return note + info.reference + " (number " + std::to_string(info.numspg) + ") on other axes or another origin, " +
         operators + "; the way to that setting is " + info.to_reference;
}

// A text that no row of the table has: the Hermann-Mauguin symbol of another cell, by its letters.
err_symm_type from_unknown_text(std::string_view text, space_group_type& spg) {
  err_symm_type fault = from_hms_letters(text, spg);
  if (!fault) {
    spg.note = note_of_letters(spg);
    return {};
  }
  fault.err_symm_mess += list_of("Nearest symbols", nearest_symbols(text));
  if (const int row = lmix_symmetry_tables::find_hall(text))
    fault.err_symm_mess += ". A Hall symbol is written HALL " + std::string(setting(row).hall);
  return fault;
}

// A rhombohedral group on hexagonal axes under the letter that data banks of proteins give it.
struct bank_symbol {
  std::string_view symbol, meant;
};
constexpr bank_symbol bank_symbols[] = {{"H3", "R 3"}, {"H32", "R 3 2"}};

const bank_symbol* find_bank_symbol(std::string_view text) {
  std::string packed;
  for (const char c : upper(text))
    if (c != ' ' && c != '\t') packed += c;
  const auto found = std::ranges::find(bank_symbols, packed, &bank_symbol::symbol);
  return found == std::end(bank_symbols) ? nullptr : found;
}

// Settings that differ from another one by a letter behind its symbol, such as "P 21212(a)" and "I 2 3a".
bool symbol_is_nickname(std::string_view hm) {
  for (std::size_t i = 1; i < hm.size(); ++i)
    if (std::isdigit(static_cast<unsigned char>(hm[i - 1])) && (hm[i] == 'a' || hm[i] == '(')) return true;
  return false;
}

err_symm_type take_road(std::string_view text, space_group_type& spg, std::span<const std::string> gen,
                        std::string_view mode, bool force_hall) {
  if (mode == "GEN") return from_generators(gen, spg);
  if (mode == "FIX") return from_fixed_list(text, gen, spg);
  if (text.empty()) return failure("Error in the provided symbol/number of the space group");
  if (mode == "HAL") return from_hall_text(text, spg);
  if (!mode.empty() && mode != "HMS" && mode != "ITC") return failure(" Space Group Not Defined... Blank Option");
  if (const bank_symbol* bank = find_bank_symbol(text)) {
    if (auto err = take_road(bank->meant, spg, gen, mode, force_hall)) return err;
    spg.note = std::string(text) + " is taken as " + std::string(bank->meant) +
               ", rhombohedral lattice on hexagonal axes, as data banks of proteins write it";
    return {};
  }
  const resolved found = resolve(text, mode != "HMS");
  if (found.err) return found.err;
  if (mode == "ITC" && found.row == 0)
    return failure(" Problems in SpaceGroup: ITC " + std::string(text) +
                   " => the HM symbol or the number is incorrect ");
  if (mode == "ITC") return from_it_generators(found.row, spg);
  if (found.row != 0) {
    const bool by_hall = found.by_number || force_hall || symbol_is_nickname(setting(found.row).hm);
    return from_row(found.row, by_hall ? "Generated from Hall symbol" : "IT (Generated from Hermann-Mauguin symbol)",
                    spg);
  }
  return mode == "HMS" || gen.empty() ? from_unknown_text(text, spg) : from_generators(gen, spg);
}

}  // namespace

err_symm_type set_spacegroup(std::string_view spacegen, space_group_type& spacegroup, std::span<const std::string> gen,
                             std::string_view mode, bool force_hall) {
  spacegroup = {};
  space_group_type built;
  err_symm_type err = take_road(trimmed(spacegen), built, gen, upper(trimmed(mode)), force_hall);
  if (!err) spacegroup = std::move(built);
  return err;
}

err_symm_type get_so_from_hms(std::string_view symbol, space_group_type& spg) {
  spg = {};
  space_group_type built;
  err_symm_type err = from_hms_letters(trimmed(symbol), built);
  if (!err) spg = std::move(built);
  return err;
}

std::vector<std::string> wyckoff_orbit(std::string_view str_orig, const space_group_type& spg) {
  std::vector<std::string> out;
  sym_oper_type position;
  if (read_xsym(str_orig, 0, position, false)) return out;
  const int last = spg.numlat > 0 ? spg.multip / spg.numlat : 0;
  std::vector<exact_op> known;
  for (int m = 0; m < last; ++m) {
    const exact_op image = parts::product(parts::exact(spg.symop[static_cast<std::size_t>(m)]), parts::exact(position));
    const bool seen = std::ranges::any_of(known, [&](const exact_op& k) {
      vector3 d;
      for (std::size_t i = 0; i < 3; ++i) d[i] = static_cast<float>(image.tr[i] - k.tr[i]);
      return k.rot == image.rot && lattice_trans(d, spg.latt_trans);
    });
    if (seen) continue;
    known.push_back(image);
    const sym_oper_type r = parts::rounded(image);
    out.push_back(get_symsymbi(r.rot, r.tr));
  }
  return out;
}

namespace {

// What the rotations of a group say about its class.
struct rotation_census {
  std::vector<matrix3i> proper;        // distinct, rotoinversions times the inversion
  int count[7] = {};                   // proper parts by order
  int distinct = 0;                    // distinct rotations as they are
  bool centric = false, known = true;  // known: every matrix is a crystallographic rotation
  bool improper[7] = {};               // a rotoinversion of that order is there
};

rotation_census take_census(std::span<const sym_oper_type> symop) {
  rotation_census c;
  std::vector<matrix3i> seen;
  for (const sym_oper_type& op : symop) {
    if (std::ranges::find(seen, op.rot) != seen.end()) continue;
    seen.push_back(op.rot);
    const int type = parts::rotation_type(op.rot);
    if (type == 0 || seen.size() > 48) {
      c.known = false;
      return c;
    }
    if (type == -1) c.centric = true;
    if (type < 0) c.improper[-type] = true;
    const matrix3i proper = type < 0 ? parts::negated(op.rot) : op.rot;
    if (std::ranges::find(c.proper, proper) != c.proper.end()) continue;
    c.proper.push_back(proper);
    ++c.count[std::abs(type)];
  }
  c.distinct = static_cast<int>(seen.size());
  return c;
}

// Directions of the operations of one type.
std::vector<std::array<int, 3>> axes_of(std::span<const sym_oper_type> symop, int type) {
  std::vector<std::array<int, 3>> axes;
  for (const sym_oper_type& op : symop)
    if (parts::rotation_type(op.rot) == type) axes.push_back(parts::rotation_axis(op.rot));
  return axes;
}

bool along(const std::vector<std::array<int, 3>>& axes, std::array<int, 3> direction) {
  const std::array<int, 3> opposite{-direction[0], -direction[1], -direction[2]};
  return std::ranges::any_of(axes, [&](const auto& u) { return u == direction || u == opposite; });
}

// Laue classes by the order of the group of proper rotations and a count that tells equal orders apart.
struct class_row {
  int order, axis, count, laue;
  std::string_view centric, all_proper, with_improper;  // with_improper: the highest axis is proper
  std::string_view improper_axis;                       // the highest axis is a rotoinversion
};
constexpr class_row classes[] = {
    {1, 1, 1, 1, "-1", "1", "", ""},
    {2, 2, 1, 2, "2/m", "2", "m", "m"},
    {4, 4, 2, 4, "4/m", "4", "4", "-4"},
    {4, 2, 3, 3, "mmm", "222", "mm2", "mm2"},
    {3, 3, 2, 8, "-3", "3", "3", "3"},
    {6, 6, 2, 11, "6/m", "6", "-6", "-6"},
    {6, 2, 3, 9, "-3m", "32", "3m", "3m"},
    {8, 4, 2, 5, "4/mmm", "422", "4mm", "-42m"},
    {12, 3, 8, 13, "m-3", "23", "23", "23"},
    {12, 6, 2, 12, "6/mmm", "622", "6mm", "-62m"},
    {24, 4, 6, 14, "m-3m", "432", "-43m", "-43m"},
};

// Trigonal classes: rhombohedral axes, or the orientation of the axes normal to the threefold one.
laue_pg oriented_trigonal(std::span<const sym_oper_type> symop, int laue, std::string_view pg) {
  std::vector<std::array<int, 3>> threefold = axes_of(symop, 3);
  const bool hexagonal = along(threefold, {0, 0, 1});
  const int ipg = lmix_symmetry_tables::get_pointgroup_num(pg);
  if (laue == 8) return {hexagonal ? 8 : 6, ipg};
  if (!hexagonal) return {7, ipg};
  if (along(axes_of(symop, 2), {1, 0, 0}) || along(axes_of(symop, -2), {1, 0, 0})) return {9, ipg};
  const std::string_view other = pg == "32" ? "312" : pg == "3m" ? "31m" : "-31m";
  return {10, lmix_symmetry_tables::get_pointgroup_num(other)};
}

std::string_view oriented(std::span<const sym_oper_type> symop, std::string_view pg) {
  const auto twofold = [&] { return axes_of(symop, 2); };
  if (pg == "mm2") return along(twofold(), {0, 1, 0}) ? "m2m" : along(twofold(), {1, 0, 0}) ? "2mm" : "mm2";
  if (pg == "-42m") return along(axes_of(symop, -2), {1, 0, 0}) ? "-4m2" : pg;
  if (pg == "-62m") return along(axes_of(symop, -2), {1, 0, 0}) ? "-6m2" : pg;
  return pg;
}

}  // namespace

laue_pg get_laue_pg(std::span<const sym_oper_type> symop) {
  const rotation_census c = take_census(symop);
  if (!c.known) return {};
  const int order = static_cast<int>(c.proper.size());
  if (c.distinct != order * (c.centric ? 2 : 1)) return {};
  for (const class_row& row : classes) {
    if (row.order != order || c.count[row.axis] != row.count) continue;
    const bool all_proper = c.distinct == order && std::ranges::none_of(c.improper, [](bool b) { return b; });
    const std::string_view pg = c.centric                               ? row.centric
                                : all_proper                            ? row.all_proper
                                : c.improper[row.axis] && row.axis != 2 ? row.improper_axis
                                                                        : row.with_improper;
    if (row.laue == 8 || row.laue == 9) return oriented_trigonal(symop, row.laue, pg);
    return {row.laue, lmix_symmetry_tables::get_pointgroup_num(oriented(symop, pg))};
  }
  return {};
}

std::string_view get_crystal_system(std::span<const sym_oper_type> symop) {
  const int system = lmix_symmetry_tables::crystal_system_of_laue(get_laue_pg(symop).laue);
  return system < 0 ? std::string_view{} : lmix_symmetry_tables::sys_cry[static_cast<std::size_t>(system)];
}

char get_lattice_type(std::span<const vector3> latt_trans) {
  for (const char letter : std::string_view("PABCIRF"))
    if (same_lattice(latt_trans, latsym(letter))) return letter;
  return 'Z';
}

}  // namespace lmix_crystallographic_symmetry

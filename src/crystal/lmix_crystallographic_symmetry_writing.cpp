#include <algorithm>
#include <array>
#include <cstdio>

#include "lmix_crystallographic_symmetry.hpp"

namespace lmix_crystallographic_symmetry {
namespace {

constexpr std::size_t max_listed = 192;

std::string line(std::string_view label, std::string_view value) {
  constexpr std::size_t label_width = 30;
  std::string out(label.size() < label_width ? label_width - label.size() : 0, ' ');
  return out.append(label).append(" ").append(value).append("\n");
}

std::string triple(const vector3& v) {
  std::array<char, 64> buffer;
  std::snprintf(buffer.data(), buffer.size(), "(%8.5f,%8.5f,%8.5f )", static_cast<double>(v[0]),
                static_cast<double>(v[1]), static_cast<double>(v[2]));
  return buffer.data();
}

std::string asymmetric_unit(const space_group_type& spg) {
  constexpr std::array<char, 3> name{'x', 'y', 'z'};
  std::string out;
  for (std::size_t i = 0; i < 3; ++i) {
    std::array<char, 64> buffer;
    std::snprintf(buffer.data(), buffer.size(), "%7.4f <= %c <= %7.4f", static_cast<double>(spg.r_asym_unit[i][0]),
                  name[i], static_cast<double>(spg.r_asym_unit[i][1]));
    out += line(i == 0 ? "Asymmetric unit:" : "", buffer.data());
  }
  return out;
}

std::string operators(const space_group_type& spg) {
  std::string out = "\n => List of S.O. without inversion and lattice centring translations\n\n";
  const auto reduced = std::min(static_cast<std::size_t>(spg.numops), max_listed);
  for (std::size_t m = 0; m < reduced; ++m) out += write_sym(spg, m, false);
  out += "\n => List of all Symmetry Operators and Symmetry Symbols\n\n";
  const std::size_t all = std::min(spg.symop.size(), max_listed);
  for (std::size_t m = 0; m < all; ++m) out += write_sym(spg, m, true);
  if (all < spg.symop.size()) out += "   <= Maximum number of lines exhausted!\n";
  return out;
}

}  // namespace

std::string write_sym(const space_group_type& spg, std::size_t m, bool with_symbol) {
  std::array<char, 32> number;
  std::snprintf(number.data(), number.size(), " => SYMM(%3d): ", static_cast<int>(m) + 1);
  std::string out = number.data() + spg.symopsymb[m];
  if (with_symbol) {
    if (out.size() < 52) out.resize(52, ' ');
    out += "Symbol: " + symmetry_symbol_op(spg.symop[m]);
  }
  return out + "\n";
}

std::string write_spacegroup(const space_group_type& spg, bool full) {
  std::string out = "\n        Information on Space Group: \n        --------------------------- \n\n";
  out += line("Number of Space group:", std::to_string(spg.numspg));
  out += line("Hermann-Mauguin Symbol:", spg.spg_symb);
  out += line("Hall Symbol:", spg.hall);
  if (!spg.ghall.empty()) out += line("Generalized Hall Symbol:", spg.ghall);
  out += line("Crystal System:", spg.crystalsys);
  out += line("Laue Class:", spg.laue);
  out += line("Point Group:", spg.pg);
  if (!spg.info.empty()) out += line("Table Setting Choice:", spg.info);
  out += line("Setting Type:", spg.sg_setting);
  out += line("Lattice Symbol:", std::string(1, spg.spg_lat));
  out += line("Bravais Lattice:", spg.bravais);
  out += line("Centrosymmetry:", spg.centre);
  if (spg.centred == centring_code::centric_elsewhere) out += line("Centre at:", triple(spg.centre_coord));
  out += line("Reduced Number of S.O.:", std::to_string(spg.numops));
  out += line("General multiplicity:", std::to_string(spg.multip));
  out += line("Generators (exc. -1&L):", std::to_string(spg.num_gen));
  out += asymmetric_unit(spg);
  for (std::size_t i = 1; i < spg.latt_trans.size(); ++i)
    out += line(i == 1 ? "Centring vectors:" : "", triple(spg.latt_trans[i]));
  return full ? out + operators(spg) : out;
}

std::string write_wyckoff(const space_group_type& spg) {
  std::string out = "\n => Wyckoff positions (of one lattice point): \n\n";
  for (const wyck_pos_type& w : spg.wyckoff.orbit) {
    std::array<char, 32> head;
    std::snprintf(head.data(), head.size(), "  %4d %c  %-8s", w.multp, w.letter, w.site.c_str());
    out += head.data();
    constexpr std::size_t per_line = 4, column = 26;
    for (std::size_t i = 0; i < w.str_orbit.size(); ++i) {
      if (i > 0 && i % per_line == 0) out += "\n" + std::string(17, ' ');
      std::string cell = "(" + w.str_orbit[i] + ")";
      if (i % per_line != per_line - 1 && i + 1 < w.str_orbit.size()) cell.resize(std::max(cell.size(), column), ' ');
      out += cell;
    }
    out += "\n";
  }
  return out;
}

}  // namespace lmix_crystallographic_symmetry

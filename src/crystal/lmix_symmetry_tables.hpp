// lmix_symmetry_tables: the constant tables of space groups: settings, spellings, generators, Wyckoff positions, point
// operations. It owns the rows below tables/ and the names of crystal systems, Laue classes and point groups, and looks
// rows up. Nobody writes here: everything is constant.
#pragma once
#include <array>
#include <span>
#include <string>
#include <string_view>

namespace lmix_symmetry_tables {

/// One setting of a space group. Rows are counted from 1 wherever a row number is stored.
struct spgr_info_row {
  int number;                    ///< number in International Tables, 1..230
  std::string_view hm;           ///< Hermann-Mauguin symbol, fields separated by one blank
  std::string_view ext;          ///< "1", "2" origin choice, "H", "R" axes, else empty
  std::string_view short_hm;     ///< customary short symbol (a unique axis without the 1s)
  std::string_view choice;       ///< setting choice such as "b1", "-a1", "cab", "2cab", "1", "R"
  std::string_view hall;         ///< Hall symbol
  std::string_view schoenflies;  ///< such as "C2h^5"
  int laue, pg;                  ///< indices from 1 in laue_class and point_group
  std::array<int, 6> asu;        ///< asymmetric unit in 24ths: x y z min, x y z max
  int multip, numlat;            ///< operators of the group, centring vectors with the origin
  std::string_view basisop;      ///< B in x(setting) = B x(reference setting of the same number)
};

/// Another spelling of a symbol.
struct alias_row {
  std::string_view symbol;  ///< with ":1", ":2", ":R", ":H" where a choice belongs to it
  int row;
};

/// Generators of a group in its standard setting, row `number` - 1.
struct spg_gen_row {
  int row;                      ///< the setting
  std::string_view generators;  ///< x,y,z texts separated by "; "
  std::string_view centring;    ///< the same for the centring vectors, may be empty
};

/// One Wyckoff position of a setting.
struct wyckoff_row {
  int row;
  char letter;  ///< a..z, A for the 27th
  int multip;   ///< positions per cell
  int norb;     ///< positions without the centring vectors
  std::string_view site;
  std::string_view position;  ///< first representative, x,y,z text
};

/// One point operation: 48 of m-3m, then 24 of 6/mmm on hexagonal axes.
struct point_operation_row {
  std::string_view xyz;
  std::array<int, 9> rot;   ///< row by row
  std::string_view intsym;  ///< type and locus, rotoinversions with their inversion point
  std::string_view seitz;   ///< Seitz symbol, the axis behind the underscore
  int kovalev;              ///< Kovalev's number h1..h48 of the cubic operations, 0 for the hexagonal ones
};

std::span<const spgr_info_row> spgr_info();
std::span<const alias_row> spgr_aliases();
std::span<const spg_gen_row> spg_gen();
std::span<const point_operation_row> point_operations();
/// The positions of a setting, general position first; empty for the settings without tabulated positions.
std::span<const wyckoff_row> wyckoff_info(int row);

inline constexpr std::array<std::string_view, 7> sys_cry{"Triclinic", "Monoclinic", "Orthorhombic", "Tetragonal",
                                                         "Trigonal",  "Hexagonal",  "Cubic"};
/// "-3 R" and "-3m R" are the classes on rhombohedral axes; the last two are older spellings of 13 and 14.
inline constexpr std::array<std::string_view, 16> laue_class{"-1",    "2/m",  "mmm",  "4/m",  "4/mmm", "-3 R",
                                                             "-3m R", "-3",   "-3m1", "-31m", "6/m",   "6/mmm",
                                                             "m-3",   "m-3m", "m3",   "m3m"};
/// Point groups with their orientation; 40 and 41 are older spellings of 36 and 39, 42 names 23 in full.
inline constexpr std::array<std::string_view, 42> point_group{
    "1",   "-1",   "2",    "m",     "2/m",  "222",   "mm2", "m2m", "2mm", "mmm",  "4",    "-4",   "4/m", "422",
    "4mm", "-42m", "-4m2", "4/mmm", "3",    "-3",    "32",  "3m",  "-3m", "312",  "31m",  "-31m", "6",   "-6",
    "6/m", "622",  "6mm",  "-62m",  "-6m2", "6/mmm", "23",  "m-3", "432", "-43m", "m-3m", "m3",   "m3m", "-3m1"};

/// Index from 1 in laue_class, the older spellings folded on 13 and 14; 0 for a text that is none.
int get_laue_num(std::string_view laue);
/// Index from 1 in point_group, the last three rows folded on 36, 39 and 23; 0 for a text that is none.
int get_pointgroup_num(std::string_view pg);
/// Texts of the indices; empty out of range.
std::string_view get_laue_str(int ilaue);
std::string_view get_pointgroup_str(int ipg);
/// Crystal system (index from 0 in sys_cry) of a Laue class index, -1 out of range.
int crystal_system_of_laue(int ilaue);

/// Laue class text of a group number in its standard setting (hexagonal axes for R); "-1" out of range.
std::string_view get_laue_class(int ispg);

/// Rows (from 1) that a symbol names, in table order: without regard to case, and with or without the blanks between
/// its fields ("P 63 m c", "P63mc", "p 6_3 mc"); blanks that stand elsewhere name another symbol ("P 6 3 mc"). A suffix
/// ":1", ":2", ":H", ":R" or another setting choice selects; without one all settings that share the symbol are told
/// (both origin choices). `size` 0: unknown.
struct row_list {
  std::array<int, 8> row{};
  int size = 0;
};
row_list find_hm(std::string_view symbol);
/// Generators of a group by its number or a symbol of its standard setting, in any case; null for any other text.
const spg_gen_row* get_generators(std::string_view spgr);
/// Row of a number with a setting choice. Without a choice (empty) the first row, or the second origin choice where
/// there are two, also with axes alone ("cab"); "abc" is the first row of an orthorhombic group. "1" names the first
/// row of a group without choices too. 0: no such row.
int find_number(int number, std::string_view choice);
/// First row with that Hall symbol, blanks folded, without regard to case; 0: none.
int find_hall(std::string_view hall);
/// The row that stands for a symbol that names several (second origin choice, hexagonal axes), 0 for an empty list.
int preferred_row(const row_list& rows);

}  // namespace lmix_symmetry_tables

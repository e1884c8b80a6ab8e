// lmix_crystallographic_symmetry: the space-group record, the roads that build it, and what follows from its operators.
// It owns space_group_type and the operators in it; positions, stabilisers and relations are handed out as small
// records. Only set_spacegroup writes a record; all other operations read it. Failures come back as err_symm_type, none
// stops.
#pragma once
#include <array>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lmix_crystallographic_symmetry {

using matrix3i = std::array<std::array<std::int32_t, 3>, 3>;
using vector3 = std::array<float, 3>;

/// Outcome of an operation that can fail.
struct [[nodiscard]] err_symm_type {
  bool err_symm = false;
  std::string err_symm_mess;
  explicit operator bool() const { return err_symm; }  ///< true when it failed
};

/// One operator: x' = rot x + tr, in fractions of the cell.
struct sym_oper_type {
  matrix3i rot{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  vector3 tr{};
  bool operator==(const sym_oper_type&) const = default;
};

/// One Wyckoff position.
struct wyck_pos_type {
  int multp = 0;                       ///< positions per cell
  char letter = ' ';                   ///< Wyckoff letter, A for the 27th
  std::string site;                    ///< site symmetry, such as ".m."
  int norb = 0;                        ///< positions without the centring vectors
  std::string str_orig;                ///< the first one, x,y,z text
  std::vector<std::string> str_orbit;  ///< all `norb`
  bool operator==(const wyck_pos_type&) const = default;
};

struct wyckoff_type {
  int num_orbit = 0;
  std::vector<wyck_pos_type> orbit;  ///< from the general position down to a
  bool operator==(const wyckoff_type&) const = default;
};

/// Meaning of `centred`.
namespace centring_code {
enum : int {
  centric_elsewhere = 0,  ///< the inversion centre lies at centre_coord
  acentric = 1,
  centric_at_origin = 2,
};
}

/// All of a space group in one setting but its operators.
struct group_labels {
  int numspg = 0;                   ///< number 1..230, 0 unknown
  std::string spg_symb;             ///< Hermann-Mauguin symbol
  std::string hall;                 ///< Hall symbol
  std::string ghall;                ///< symbol of a transformed setting
  std::string crystalsys;           ///< one of lmix_symmetry_tables::sys_cry
  std::string laue;                 ///< one of laue_class
  std::string pg;                   ///< one of point_group, in the orientation of the setting
  std::string info;                 ///< setting choice of the table, such as "b1", "2", "R"
  std::string sg_setting;           ///< how the record was made
  std::string note;                 ///< what the text was taken for where no table of settings has it, else empty
  bool hexa = false;                ///< the rotations need the hexagonal table
  char spg_lat = ' ';               ///< P A B C I R F, or Z for any other set of centring vectors
  std::string spg_latsy;            ///< two letters, such as "oP"
  int numlat = 0;                   ///< centring vectors, the origin included
  std::vector<vector3> latt_trans;  ///< the centring vectors; the first is zero
  std::string bravais;              ///< their text
  std::string centre;               ///< text of `centred`
  int centred = centring_code::acentric;
  vector3 centre_coord{};              ///< the inversion centre
  int numops = 0;                      ///< size of the reduced set
  int multip = 0;                      ///< number of operators
  int num_gen = 0;                     ///< generators beside the inversion and the lattice
  std::vector<std::string> symopsymb;  ///< x,y,z texts of the operators
  wyckoff_type wyckoff;                ///< empty for a setting without tabulated positions
  std::array<std::array<float, 2>, 3> r_asym_unit{{{0.f, 1.f}, {0.f, 1.f}, {0.f, 1.f}}};  ///< lower and upper bounds
  bool operator==(const group_labels&) const = default;
};

/// A space group in one setting. Order of symop: the reduced set; then, for a centric group, the same `numops`
/// operators followed by the inversion; then this whole list again for each further centring vector.
struct space_group_type : group_labels {
  std::vector<sym_oper_type> symop;  ///< all `multip`
  bool operator==(const space_group_type&) const = default;
};

/// An operator on axes of which its matrix is not whole.
struct ns_sym_oper_type {
  std::array<std::array<float, 3>, 3> rot{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  vector3 tr{};
};
/// A space group on any axes that are lattice vectors, also of a cell that its rotations do not map on itself. The
/// operators of one lattice point head the list and come again with each further centring vector.
struct ns_space_group_type : group_labels {
  std::vector<ns_sym_oper_type> symop;
};

// ---- the record ----------------------------------------------------------------------------------------------------

/// Builds the record. `spacegen` is a Hermann-Mauguin symbol of any tabulated setting (any case, with or without the
/// blanks between its fields) or a number, either with a choice behind a colon ("F d -3 m:1", "227:2", "R -3 c:R",
/// "15:c1", "50:cab"). A group with two origins is taken at the second unless told. A text that no table knows is read
/// by its letters as the Hermann-Mauguin symbol of another cell, and `note` tells what they say; "H 3" and "H 32" are
/// R 3 and R 3 2 on hexagonal axes. A text that is none of that is refused with the nearest symbols: a Hall symbol must
/// be asked for, because most slips in a Hermann-Mauguin symbol are the Hall symbol of some other group.
/// `mode`: empty tries all that; "HMS" does without numbers, "ITC" (number or tabulated symbol) takes the generators of
/// International Tables, "HAL" reads a Hall symbol with an origin shift (twelfths) or new axes in brackets; "GEN"
/// closes the operators `gen` to a group, "FIX" takes them as they stand as the complete list, with the first letter of
/// `spacegen` (or Z) as lattice symbol; such a record has centred 1, numlat 1, numops = multip. `force_hall` sends a
/// tabulated symbol down the road of Hall symbols, which `sg_setting` then tells. On failure the record is left empty.
err_symm_type set_spacegroup(std::string_view spacegen, space_group_type& spacegroup,
                             std::span<const std::string> gen = {}, std::string_view mode = {},
                             bool force_hall = false);

/// Builds the record from the letters of a Hermann-Mauguin symbol, fields separated by blanks: no row of the table is
/// looked up, so that symbols of any cell are read ("C 1 21/c 1", "F 4/m m m", "B 2 2 21"). A symbol does not tell its
/// origin: that is an inversion centre of highest site symmetry (unless ":1" stands behind it), else a point where the
/// first elements meet. ":R" asks for rhombohedral axes. `numspg` is known only where the operators are those of a
/// tabulated setting. A symbol whose fields do not tell a group, or not all of it, is refused.
err_symm_type get_so_from_hms(std::string_view symbol, space_group_type& spg);

/// Tabulated symbols, at most `most` of different settings, that differ least from a text, the nearest first: field by
/// field where it has blanks, else letter by letter; a lost field or letter counts less than a surplus one.
std::vector<std::string> nearest_symbols(std::string_view text, std::size_t most = 4);
/// The same for Hall symbols.
std::vector<std::string> nearest_hall_symbols(std::string_view text, std::size_t most = 4);

/// Line of operator `m` (from 0) in the listing, with its symbol when asked for: " => SYMM(  2): -x,-y,z".
std::string write_sym(const space_group_type& spg, std::size_t m, bool with_symbol);
/// Listing of the record; with `full` also of its operators, at most 192 of them.
std::string write_spacegroup(const space_group_type& spg, bool full);
/// Listing of the Wyckoff positions with their orbits.
std::string write_wyckoff(const space_group_type& spg);

/// The stored form: numspg, spg_symb, hall, crystalsys, laue, pg, info, sg_setting, hexa, spg_lat, spg_latsy, numlat,
/// latt_trans, bravais, centre, centred, centre_coord, numops, multip, num_gen; per operator rot with tr, and its text;
/// r_asym_unit; the positions. Letters, site symmetries and multiplicities of the positions are not stored. One record
/// each, framed by its length in bytes; numbers in the byte order of the machine. False when the stream fails.
bool write_bin_spacegroup(const space_group_type& spg, std::ostream& to);
/// Reads it back; damaged or short input is refused and leaves the record alone.
err_symm_type read_bin_spacegroup(std::istream& from, space_group_type& spg);

/// Expands a position text with the operators of the group: the distinct positions without the centring vectors.
std::vector<std::string> wyckoff_orbit(std::string_view str_orig, const space_group_type& spg);

/// Laue class and point group of a set of rotations, indices from 1 in the tables, found from the kinds and directions
/// of its axes; 0, 0 when the rotations are no crystallographic point group.
struct laue_pg {
  int laue = 0, pg = 0;
};
laue_pg get_laue_pg(std::span<const sym_oper_type> symop);

/// Crystal system and lattice letter (Z: none of P A B C I R F) found from operators and centring vectors.
std::string_view get_crystal_system(std::span<const sym_oper_type> symop);
char get_lattice_type(std::span<const vector3> latt_trans);

// ---- operators -----------------------------------------------------------------------------------------------------

/// Reads one operator such as "-y,x-y,z+1/3" or "1/2+x, 0.5-y, z" from position `istart` (from 0) of `info`. With
/// `ctrl` a matrix of zero determinant is refused. The translation is kept as read, not reduced.
err_symm_type read_xsym(std::string_view info, std::size_t istart, sym_oper_type& op, bool ctrl = true);

/// Reads a generator: an operator with a determinant of 1 or -1 and whole numbers in the matrix.
err_symm_type check_generator(std::string_view gen, sym_oper_type& op);

/// x,y,z text of an operator: "-x+y,-x,z+1/3". Translations that are no simple fraction are written with four decimals.
std::string get_symsymbi(const matrix3i& rot, const vector3& t);

/// The same for a real matrix: "1/2x-1/2y,x,z".
std::string get_symsymbr(const std::array<std::array<float, 3>, 3>& rot, const vector3& t);

/// Type and locus as International Tables writes them: "2 (0,1/2,0) 0,y,1/4", "-3+ 0,0,z; 0,0,0", "n (1/2,0,1/2)
/// x,1/4,z".
std::string symmetry_symbol_op(const sym_oper_type& op);

/// The same from rotation and translation, and from an x,y,z text (empty for a text that is no operator).
std::string symmetry_symbol_str(const matrix3i& rot, const vector3& t);
std::string symmetry_symbol_xyz(std::string_view text);
/// The same with a prime for an operator that is joined with time reversal: "2' (0,0,1/2) 1/4,0,z", "t' (0,0,1/2)".
std::string get_shubnikov_operator_symbol(const sym_oper_type& op, int time_inv);

/// Seitz symbol of a point operation, "4+_001", "m_1-10", "-1" (A. M. Glazer, M. I. Aroyo & A. Authier, Acta Cryst. A70
/// (2014) 300-302), with a prime for time reversal; "?" for a matrix that is no crystallographic rotation.
std::string get_seitz(const matrix3i& rot, int time_inv = 1);
/// "{2_001|0,0,1/2}".
std::string get_seitz_symbol(const sym_oper_type& op, int time_inv = 1);
/// Kovalev's number 1..48 of an operation of m-3m, 0 for any other: his numbering of the hexagonal operations is not
/// known here with certainty. Nor are the labels of Zak, of Bradley and Cracknell, of Miller and Love and of Litvin's
/// lists, which are left out for that reason.
int get_symkov(const matrix3i& rot);
/// "(1/2,0,1/4)".
std::string get_transl_symbol(const vector3& t);

/// The geometric element of an operation.
struct symmetry_element {
  std::string symbol;              ///< "2", "21", "-4", "m", "c", "d", "t", "1"; the screw as seen along `direction`
  int order = 1;                   ///< of the rotation, negative with inversion (-2 for planes), 0: no element
  std::array<int, 3> direction{};  ///< axis, or normal of the plane as axis of its twofold rotation; 0 0 0 without one
  std::array<double, 3> along{};   ///< screw or glide vector, or translation
  std::array<double, 3> location{};  ///< a point of the element (the inversion point of rotoinversions)
};
symmetry_element get_symel(const sym_oper_type& op);

/// A magnetic operator part: moments turn by `rot`, with a phase in turns.
struct msym_oper_type {
  matrix3i rot{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  float phase = 0.f;
};
/// Reads "u,-v,w,0.5", also behind "MSYM " or "DSYM "; a phase that cannot be read is 0. With `ctrl` a matrix of zero
/// determinant is refused.
err_symm_type read_msymm(std::string_view info, msym_oper_type& op, bool ctrl = true);
/// "u,-v,w,0.5000" as read_msymm reads it.
std::string get_msymm(const msym_oper_type& op);
/// "mx,-my,mz": components of a moment, and "dx,-dy,dz" of a displacement, after a turn.
std::string get_magsymb(const matrix3i& rot);
std::string get_depsymb(const matrix3i& rot);

/// rot v + tr.
vector3 applyso(const sym_oper_type& op, const vector3& v);
/// a after b; the translation is reduced to [0,1).
sym_oper_type sym_prod(const sym_oper_type& a, const sym_oper_type& b);
/// a after b with the translation as it comes out: products of operators that share a point leave it in place.
sym_oper_type product_symop(const sym_oper_type& a, const sym_oper_type& b);
/// Every component brought into [0,1).
vector3 modulo_lat(const vector3& t);
/// Same rotation, and translations that differ by whole numbers.
bool equal_symop(const sym_oper_type& a, const sym_oper_type& b);
/// The same up to a centring vector.
bool equiv_symop(const sym_oper_type& a, const sym_oper_type& b, std::span<const vector3> latt_trans);
int determinant(const matrix3i& rot);
/// The part of the translation that no choice of origin removes (screw or glide vector): the mean of R^k t over the
/// powers of R. The translation itself for an operator whose matrix is no crystallographic rotation.
std::array<double, 3> intrinsic_translation(const sym_oper_type& op);

/// Number (from 1) of a rotation among the proper point operations: 1..24 of m-3m, 25..36 of 6/mmm, looked for in first
/// .. last. Negative for the operation times the inversion, 0 when it is none of them.
int searchop(const matrix3i& rot, int first = 1, int last = 36);

// ---- lattice -------------------------------------------------------------------------------------------------------

/// Centring vectors of a lattice letter P A B C I R F in either case (also S, T, H of Hall symbols); empty: no such
/// letter.
std::vector<vector3> latsym(char symb);
/// True if v is a centring vector (or a lattice vector) within 0.001.
bool lattice_trans(const vector3& v, char lat);
bool lattice_trans(const vector3& v, std::span<const vector3> latt_trans);

// ---- settings and subgroups ----------------------------------------------------------------------------------------

/// A change of axes: row i holds the new axis i in the old ones, the new origin is in old coordinates.
struct setting_matrix {
  std::array<std::array<double, 3>, 3> axes{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  std::array<double, 3> origin{};
};
struct setting_change {
  err_symm_type err;
  setting_matrix setting;
};
/// "a+b,-a+b,c; 0,0,1/4"; without the part behind the semicolon the origin stays.
setting_change read_setting(std::string_view text);
std::string get_trasfm_symbol(const setting_matrix& setting);
/// The way back; the identity for a singular matrix.
setting_matrix inverse_setting(const setting_matrix& setting);

/// The group on other axes. Refused: an empty text, a determinant that is not positive, axes that are no lattice
/// vectors or that the rotations do not map on the lattice which they span (see setting_change_nonconv).
err_symm_type setting_change_conv(std::string_view setting, const space_group_type& spg, space_group_type& out);
/// The group on any axes that are lattice vectors, with real matrices where need be.
err_symm_type setting_change_nonconv(std::string_view setting, const space_group_type& spg, ns_space_group_type& out);
/// Refused when a matrix is not whole.
err_symm_type copy_ns_spg_to_spg(const ns_space_group_type& ns, space_group_type& out);
/// The similar group on other axes; operators that do not map the new lattice on itself are left out, so that a
/// subgroup stays.
err_symm_type similar_transf_sg(const setting_matrix& setting, const space_group_type& spg, space_group_type& out);

/// Where a setting stands among those of its group, and what the choice of axes and origin leaves open.
struct setting_info {
  int numspg = 0;                            ///< 0: the group is not recognised, all else but the shifts is empty
  std::string schoenflies;                   ///< such as "D2h^16"
  std::string reference;                     ///< symbol of the reference setting
  std::string to_reference, from_reference;  ///< changes of axes as setting_change_conv reads them
  std::vector<std::array<int, 3>> polar;     ///< directions along which the origin is free
  std::vector<vector3> shifts;               ///< further origin shifts that change no operator, a generating set
  bool invertible = false;  ///< an inversion that maps an acentric group on itself; false for a centric group
  vector3 inversion{};      ///< its centre
};
/// Recognised are settings that differ from a tabulated one by their origin, by an exchange of axes or by a base
/// centred without need, and those whose Hall symbol leads to one of these. Origin shifts and inversions are the
/// translations and the added centre of the Euclidean normaliser (International Tables for Crystallography Vol. A, part
/// 15), sought on the grid of 1/24.
setting_info get_setting_info(const space_group_type& spg);

/// The same set of operators.
bool spgr_equal(const space_group_type& a, const space_group_type& b);
/// product[i][j] is the number (from 0) of operator i after operator j.
struct multiplication_table {
  err_symm_type err;
  std::vector<std::vector<int>> product;
};
multiplication_table set_spg_mult_table(const space_group_type& spg);
/// Subgroups with all the translations (translationengleiche), the largest first, the group itself left out.
std::vector<space_group_type> get_t_subgroups(const space_group_type& spg);

/// Hall symbol of the group that the operators generate: that of the table, else one found from the operators.
/// `general`: a change of axes or an origin off the twelfths stands in brackets behind it.
struct hall_symbol_result {
  err_symm_type err;
  std::string symbol;
  bool general = false;
};
hall_symbol_result get_hallsymb_from_gener(std::span<const sym_oper_type> gen);
/// Lattice letter and a smallest list of generators: "C: -x,y,-z+1/2; -x,-y,-z".
std::string get_gensymb_from_gener(const space_group_type& spg);

// ---- sites ---------------------------------------------------------------------------------------------------------

/// Positions are equal when they agree within this in every component [fractions of the cell].
inline constexpr float position_tolerance = 0.001f;

/// The orbit of a position in one cell.
struct orbit_type {
  int mult = 0;
  std::vector<vector3> orb;     ///< positions, reduced to [0,1); the first is x itself
  std::vector<int> ptr;         ///< ptr[i]: operator (from 0) that makes orb[i]
  std::vector<int> image;       ///< image[m]: position that operator m makes
  std::vector<int> stabilizer;  ///< operators that leave x in place up to a lattice vector
};
orbit_type get_orbit(const vector3& x, const space_group_type& spg);

/// Positions equivalent to x in one cell, centring included.
int get_multip_pos_crys(const vector3& x, const space_group_type& spg);
/// Multiplicity over general multiplicity.
float get_occ_site(const vector3& x, const space_group_type& spg);

/// Operators that leave x where it is, each with the translation (centring and lattice vector included) that brings the
/// position back on itself: applyso(op, x) = x within the tolerance. The identity comes first. Products are taken in
/// too, so that a position at the edge of the tolerance also has a group.
std::vector<sym_oper_type> get_stabilizerc(const vector3& x, const space_group_type& spg);

/// One component of a quantity at a site: `multiplier` times component `free`, or fixed at 0.
struct component_relation {
  int free = -1;           ///< component (from 0) that it follows; itself when it is free; -1: zero by symmetry
  float multiplier = 0.f;  ///< 1 for a free component
};

/// What a site symmetry allows. component i = sum over the free j of coefficient[i][j] * component j.
/// `single` tells that no row needs more than one free component, so that `component` says all; otherwise (skew axes)
/// `component` of such a row names its largest term and `coefficient` is the whole truth.
struct site_relations {
  int n = 0;       ///< 3 or 6 components
  int n_free = 0;  ///< independent ones
  bool single = true;
  std::array<component_relation, 6> component{};
  std::array<std::array<float, 6>, 6> coefficient{};
  std::array<std::array<float, 6>, 6> projector{};  ///< mean over the stabiliser: makes any quantity comply
};

/// Shifts of (x,y,z) that keep the site symmetry.
site_relations position_relations(std::span<const sym_oper_type> stabilizer);
/// Displacement tensor in the order 11, 22, 33, 12, 13, 23; beta' = R beta R^T. The same relations hold for any tensor
/// of this kind on fractional axes (beta, not U in skew cells).
site_relations beta_relations(std::span<const sym_oper_type> stabilizer);
/// Axial vector (moment) along the cell axes, M' = det(R) R M, for operators without time reversal. Holds for
/// components in units of length where the axes that a rotation mixes are equally long, as in all conventional
/// settings.
site_relations moment_relations(std::span<const sym_oper_type> stabilizer);
/// An operation that brings a site back on itself, as the Fourier coefficient S of its moment sees it:
/// S = exp(2 pi i phase) rot S, where `rot` turns moments (determinant and time reversal are in it).
struct fourier_oper_type {
  matrix3i rot{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  float phase = 0.f;  ///< [turns]
};
/// Real part (components 1 to 3) and imaginary part (4 to 6) of S that all these operations leave as they are. They
/// need not be a group.
site_relations fourier_relations(std::span<const fourier_oper_type> stabilizer);
/// The position at the middle of the images under its stabiliser: exactly on the symmetry element.
vector3 nearest_special_position(const vector3& x, std::span<const sym_oper_type> stabilizer);

/// Relations of the displacement tensor as text ("b11, b11, b33, b11/2, 0, 0") and as code words with which a
/// refinement would tie the components: code[i] = 0 fixed, otherwise the number (from 1) of the free component.
struct b_relations {
  std::string text;
  std::array<int, 6> codes{};
  std::array<float, 6> multip{};
};
b_relations sym_b_relations(std::span<const sym_oper_type> stabilizer);

// ---- magnetic groups -----------------------------------------------------------------------------------------------

/// An operator that may be joined with time reversal.
struct shubnikov_oper_type {
  sym_oper_type op;
  int time_inv = 1;  ///< -1 with time reversal
};

/// A magnetic group in one setting, told by its operators. Order of symop: the reduced set, then, for a group with an
/// inversion (without time reversal), its products with it; this list again for each centring vector, then for each
/// anti-translation. A grey group lists the operators without time reversal only: each stands for two.
struct magnetic_space_group_type {
  int sh_number = 0;                              ///< number in the list of 1651 groups, 0 unknown
  std::string bns_number, og_number;              ///< blank: unknown
  std::string bns_symbol, og_symbol, uni_symbol;  ///< blank: unknown
  std::string pg_symbol;                          ///< magnetic point group, such as "m'm'm"; blank off the usual axes
  int magtype = 0;                                ///< 1 colourless, 2 grey, 3 and 4 black and white
  int parent_num = 0;      ///< of the group without time reversal, 0 when its setting is untabulated
  std::string parent_spg;  ///< its symbol
  bool standard_setting = false, mcif = false, m_cell = false;  ///< written by readers of group tables
  std::string trn_to_parent, trn_from_parent, trn_to_standard, trn_from_standard;
  std::string laue;                       ///< Laue class of the rotations
  int num_lat = 0, num_alat = 0;          ///< centring vectors with the origin, anti-translations
  std::vector<vector3> latt_trans;        ///< the first is zero
  std::vector<vector3> alat_trans;        ///< translations that come with time reversal
  int centred = centring_code::acentric;  ///< of the inversion without time reversal
  vector3 centre_coord{};                 ///< the inversion centre
  int numops = 0, multip = 0;             ///< reduced set, all operators
  std::vector<sym_oper_type> symop;       ///< all `multip`
  std::vector<std::string> symopsymb;     ///< "x,-y,z+1/2,-1": the last field is the time reversal
  std::vector<msym_oper_type> msymop;     ///< how moments turn: time reversal times det(R) R
  std::vector<std::string> msymopsymb;    ///< "mx,-my,mz"
  int time_inv(std::size_t i) const;      ///< -1 when operator i comes with time reversal
};

/// Reads "x,-y,z+1/2,-1" (also "+1", or nothing, or a prime behind the triplet).
err_symm_type read_shubnikov(std::string_view text, shubnikov_oper_type& op);

/// Closes the operators to a group and fills the record; names and numbers of the group stay unknown. On failure the
/// record is left alone.
err_symm_type set_magnetic_spacegroup(std::span<const shubnikov_oper_type> gen, magnetic_space_group_type& mspg);
err_symm_type set_magnetic_spacegroup(std::span<const std::string> gen, magnetic_space_group_type& mspg);
/// Every operator with its time reversal, those of a grey group twice.
std::vector<shubnikov_oper_type> all_operators(const magnetic_space_group_type& mspg);
/// The group on other axes, refused as by setting_change_conv.
err_symm_type setting_change_maggroup(std::string_view setting, const magnetic_space_group_type& mspg,
                                      magnetic_space_group_type& out);
/// Listing, with `full` also of all operators.
std::string write_magnetic_space_group(const magnetic_space_group_type& mspg, bool full);

/// Positions equivalent to x in one cell, by operators with and without time reversal.
int get_multip_pos_mag(const vector3& x, const magnetic_space_group_type& mspg);
/// Operators that leave x where it is, as get_stabilizerc.
std::vector<shubnikov_oper_type> get_stabilizerm(const vector3& x, const magnetic_space_group_type& mspg);
/// Moment along the cell axes at a site with these operators, M' = (time reversal) det(R) R M.
site_relations moment_relations(std::span<const shubnikov_oper_type> stabilizer);

}  // namespace lmix_crystallographic_symmetry

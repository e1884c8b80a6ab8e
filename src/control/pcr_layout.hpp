// pcr_layout: the tables that the reader and the writer of the control file both walk: which slots stand on which line.
// It owns no data; a row added here is read and written.
#pragma once
#include <array>
#include <span>
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"
#include "pcr_forms_further.hpp"

namespace pcr_layout {

namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;

/// One integer of a flag line: what it is, and where it belongs, to the run or to a pattern.
struct flag {
  pcr_fields::field row;
  int run_type::*of_run = nullptr;
  int pattern_type::*of_pattern = nullptr;
};
constexpr flag run_flag(int run_type::*field, const pcr_fields::field& row) { return {row, field, nullptr}; }
constexpr flag pattern_flag(int pattern_type::*field, const pcr_fields::field& row) { return {row, nullptr, field}; }

/// The fields of a line of flags, then those behind them.
template <std::size_t n, std::size_t m = 0>
constexpr std::array<pcr_fields::field, n + m> fields_of(const std::array<flag, n>& flags,
                                                         const std::array<pcr_fields::field, m>& behind = {}) {
  std::array<pcr_fields::field, n + m> fields{};
  for (std::size_t k = 0; k < n; ++k) fields[k] = flags[k].row;
  for (std::size_t k = 0; k < m; ++k) fields[n + k] = behind[k];
  return fields;
}

/// The short form has the flags of the run and of its pattern on one line; behind these stand Opt and Aut.
inline constexpr std::array<flag, 17> short_flags{pattern_flag(&pattern_type::jobtyp, pcr_forms::job),
                                                  pattern_flag(&pattern_type::nprof, pcr_forms::npr),
                                                  run_flag(&run_type::nphase, pcr_forms::nph),
                                                  pattern_flag(&pattern_type::nbckgd, pcr_forms::nba),
                                                  pattern_flag(&pattern_type::nexcrg, pcr_forms::nex),
                                                  pattern_flag(&pattern_type::nscat, pcr_forms::nsc),
                                                  pattern_flag(&pattern_type::nori, pcr_forms::nor_flag),
                                                  run_flag(&run_type::idum, pcr_forms::dum),
                                                  pattern_flag(&pattern_type::iwgt, pcr_forms::iwg),
                                                  pattern_flag(&pattern_type::ilor, pcr_forms::ilo),
                                                  run_flag(&run_type::iasg, pcr_forms::ias),
                                                  pattern_flag(&pattern_type::ireso, pcr_forms::res),
                                                  pattern_flag(&pattern_type::istep, pcr_forms::ste),
                                                  run_flag(&run_type::nrell, pcr_forms::nre),
                                                  run_flag(&run_type::icryg, pcr_forms::cry),
                                                  pattern_flag(&pattern_type::ixunit, pcr_forms::uni),
                                                  pattern_flag(&pattern_type::icorr, pcr_forms::cor)};
inline constexpr std::array<flag, 5> long_run_flags{
    run_flag(&run_type::nphase, pcr_forms::nph), run_flag(&run_type::idum, pcr_forms::dum),
    run_flag(&run_type::iasg, pcr_forms::ias), run_flag(&run_type::nrell, pcr_forms::nre),
    run_flag(&run_type::icryg, pcr_forms::cry)};
inline constexpr std::array<flag, 14> long_pattern_flags{
    pattern_flag(&pattern_type::jobtyp, pcr_forms::job), pattern_flag(&pattern_type::nprof, pcr_forms::npr),
    pattern_flag(&pattern_type::nbckgd, pcr_forms::nba), pattern_flag(&pattern_type::nexcrg, pcr_forms::nex),
    pattern_flag(&pattern_type::nscat, pcr_forms::nsc),  pattern_flag(&pattern_type::nori, pcr_forms::nor_flag),
    pattern_flag(&pattern_type::iwgt, pcr_forms::iwg),   pattern_flag(&pattern_type::ilor, pcr_forms::ilo),
    pattern_flag(&pattern_type::ireso, pcr_forms::res),  pattern_flag(&pattern_type::istep, pcr_forms::ste),
    pattern_flag(&pattern_type::ixunit, pcr_forms::uni), pattern_flag(&pattern_type::icorr, pcr_forms::cor),
    pattern_flag(&pattern_type::anm, pcr_forms::anm),    pattern_flag(&pattern_type::cry_flag, pcr_forms::int_flag)};

inline constexpr std::array<flag, 17> short_output_flags{
    pattern_flag(&pattern_type::iot, pcr_forms::iot),   pattern_flag(&pattern_type::ipl, pcr_forms::ipl),
    pattern_flag(&pattern_type::ipc, pcr_forms::ipc),   run_flag(&run_type::mat, pcr_forms::mat),
    run_flag(&run_type::nxt, pcr_forms::nxt),           pattern_flag(&pattern_type::lst1, pcr_forms::ls1),
    pattern_flag(&pattern_type::lst2, pcr_forms::ls2),  pattern_flag(&pattern_type::lst3, pcr_forms::ls3),
    run_flag(&run_type::nlinc, pcr_forms::nli),         pattern_flag(&pattern_type::pl_prf, pcr_forms::prf),
    pattern_flag(&pattern_type::instr, pcr_forms::ins), run_flag(&run_type::jcil, pcr_forms::jci),
    run_flag(&run_type::jsy, pcr_forms::jsy),           pattern_flag(&pattern_type::jlkh, pcr_forms::jlk),
    pattern_flag(&pattern_type::jfou, pcr_forms::jfo),  run_flag(&run_type::ishor, pcr_forms::sho),
    pattern_flag(&pattern_type::ianaly, pcr_forms::ana)};
inline constexpr std::array<flag, 6> long_run_output_flags{
    run_flag(&run_type::mat, pcr_forms::mat),   run_flag(&run_type::nxt, pcr_forms::nxt),
    run_flag(&run_type::nlinc, pcr_forms::nli), run_flag(&run_type::jcil, pcr_forms::jci),
    run_flag(&run_type::jsy, pcr_forms::jsy),   run_flag(&run_type::ishor, pcr_forms::sho)};
inline constexpr std::array<flag, 11> long_pattern_output_flags{
    pattern_flag(&pattern_type::iot, pcr_forms::iot),    pattern_flag(&pattern_type::ipl, pcr_forms::ipl),
    pattern_flag(&pattern_type::ipc, pcr_forms::ipc),    pattern_flag(&pattern_type::lst1, pcr_forms::ls1),
    pattern_flag(&pattern_type::lst2, pcr_forms::ls2),   pattern_flag(&pattern_type::lst3, pcr_forms::ls3),
    pattern_flag(&pattern_type::pl_prf, pcr_forms::prf), pattern_flag(&pattern_type::instr, pcr_forms::ins),
    pattern_flag(&pattern_type::jlkh, pcr_forms::jlk),   pattern_flag(&pattern_type::jfou, pcr_forms::jfo),
    pattern_flag(&pattern_type::ianaly, pcr_forms::ana)};

inline constexpr auto short_flag_fields = fields_of(short_flags, pcr_forms::options);
inline constexpr auto long_run_flag_fields = fields_of(long_run_flags, pcr_forms::options);
inline constexpr auto long_pattern_flag_fields = fields_of(long_pattern_flags);
inline constexpr auto short_output_fields = fields_of(short_output_flags);
inline constexpr auto long_run_output_fields = fields_of(long_run_output_flags);
inline constexpr auto long_pattern_output_fields = fields_of(long_pattern_output_flags);

/// A line of flags.
struct flag_line {
  pcr_fields::line_form form;
  std::span<const flag> flags;
};
inline constexpr flag_line short_flag_line{{"flags", "short form", short_flag_fields}, short_flags};
inline constexpr flag_line long_run_flag_line{{"flags", "long form, of the run", long_run_flag_fields}, long_run_flags};
inline constexpr flag_line long_pattern_flag_line{{"flags", "long form, per pattern", long_pattern_flag_fields},
                                                  long_pattern_flags};
inline constexpr flag_line short_output_line{{"output flags", "short form", short_output_fields}, short_output_flags};
inline constexpr flag_line long_run_output_line{{"output flags", "long form, of the run", long_run_output_fields},
                                                long_run_output_flags};
inline constexpr flag_line long_pattern_output_line{
    {"output flags", "long form, per pattern", long_pattern_output_fields}, long_pattern_output_flags};

/// Kinds of a phase: the size of jbt.
namespace jbt {
enum : int { structure = 0, bodies = 4, modes = 6, modulated = 7, common_list = 10 };
}
[[nodiscard]] constexpr int kind_of(const kalvaris_params::phase_type& phase) {
  return phase.jbt < 0 ? -phase.jbt : phase.jbt;
}

/// How the atoms of a phase are written: nuclear atoms; atoms with a moment each; both in one list; modulated atoms.
enum class atom_kind { nuclear, moments, common, modulated };
[[nodiscard]] constexpr atom_kind atom_kind_of(const kalvaris_params::phase_type& phase) {
  const int kind = kind_of(phase);
  if (kind == jbt::common_list || phase.jbt == -jbt::modes) return atom_kind::common;
  if (kind == jbt::modulated) return atom_kind::modulated;
  const bool nuclear = kind == jbt::structure || kind == 2 || kind == jbt::bodies || kind == jbt::modes;
  return nuclear ? atom_kind::nuclear : atom_kind::moments;
}

/// First line of an atom and the slots of its reals; the codes line below has these slots.
struct atom_line {
  atom_kind kind;
  std::string_view header;
  std::span<const pcr_fields::field> front, behind;  ///< of the slots
  int pointers;        ///< behind the species: set of matrices and vector, or the number of harmonics
  std::size_t values;  ///< of the slots from x on
  static constexpr std::array<int, 8> slots{aslot::x,   aslot::y,  aslot::z,  aslot::biso,
                                            aslot::occ, aslot::rx, aslot::ry, aslot::rz};
  [[nodiscard]] constexpr std::span<const int> value_slots() const { return std::span(slots).first(values); }
};
inline constexpr std::array<atom_line, 4> atom_lines{{
    {atom_kind::nuclear, "!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc",
     pcr_forms::nuclear_atom_fields, pcr_forms::behind_nuclear_atom_fields, 0, 5},
    {atom_kind::moments,
     "!Atom   Typ  Imagr Ikv  X         Y         Z      Biso       Occ        Rx        Ry        Rz\n"
     "!            Ix        Iy        Iz    beta11    beta22    beta33     MagPh",
     pcr_forms::magnetic_atom_fields,
     {},
     2,
     8},
    {atom_kind::common, "!Atom   Typ  Imagr Ikv  X         Y         Z      Biso       Occ   N_t Spc",
     pcr_forms::magnetic_atom_fields, pcr_forms::behind_common_atom_fields, 2, 5},
    {atom_kind::modulated, "!Atom   Typ  Max_Qcoeff X         Y         Z      Biso       Occ   N_t Spc",
     pcr_forms::modulated_atom_fields, pcr_forms::behind_common_atom_fields, 1, 5},
}};
[[nodiscard]] constexpr const atom_line& atom_line_of(const kalvaris_params::phase_type& phase) {
  return atom_lines[static_cast<std::size_t>(atom_kind_of(phase))];
}

inline constexpr std::array<int, 6> beta_slots{aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23};
/// The second line of an atom with a moment holds three betas, too.
inline constexpr std::array<int, 7> second_moment_slots{aslot::ix,  aslot::iy,  aslot::iz,   aslot::b11,
                                                        aslot::b22, aslot::b33, aslot::magph};
inline constexpr std::array<int, 7> moment_slots{aslot::rx, aslot::ry, aslot::rz,   aslot::ix,
                                                 aslot::iy, aslot::iz, aslot::magph};
[[nodiscard]] constexpr std::span<const int> moment_slots_of(const kalvaris_params::phase_type& phase) {
  return atom_kind_of(phase) == atom_kind::moments ? std::span<const int>(second_moment_slots)
                                                   : std::span<const int>(moment_slots);
}
[[nodiscard]] constexpr bool has_moment_line(const kalvaris_params::phase_type& phase,
                                             const kalvaris_params::atom_type& atom) {
  const atom_kind kind = atom_kind_of(phase);
  return kind == atom_kind::moments ||
         (kind != atom_kind::nuclear && (atom.n_t == 1 || atom.n_t == 3 || atom.n_t == -3));
}
[[nodiscard]] constexpr bool has_betas(const kalvaris_params::phase_type& phase,
                                       const kalvaris_params::atom_type& atom) {
  return atom_kind_of(phase) != atom_kind::moments && (atom.n_t == 2 || atom.n_t == 3);
}
/// Betas behind the form factor.
[[nodiscard]] constexpr bool has_last_betas(const kalvaris_params::phase_type& phase,
                                            const kalvaris_params::atom_type& atom) {
  const atom_kind kind = atom_kind_of(phase);
  return kind != atom_kind::moments && kind != atom_kind::modulated && atom.n_t == 5;
}
/// Columns of a harmonic of a modulated atom, 0-based: three cosine terms, three sine terms, from `first` on.
[[nodiscard]] constexpr std::array<int, 6> harmonic_slots(int harmonic, int first) {
  const int k = first + aslot::per_harmonic * harmonic;
  return {k, k + 1, k + 2, k + 3, k + 4, k + 5};
}

/// Lines of the form factor of an atom.
struct form_factor_lines {
  bool spherical = false;  ///< symmetry-adapted: lines of its own, and as many values as these say
  int values = 0;          ///< parameters
  int per_line = 7;        ///< parameters on a line, their codes on the next
  bool radial = false;     ///< three lines of radial functions and coupled atoms
};
struct multipole_species {
  std::string_view ntyp;
  int rounds;
  bool radial;
};
inline constexpr std::array<multipole_species, 6> multipoles{{{"MULT", 5, true},
                                                              {"DIPO", 3, false},
                                                              {"QUAD", 4, true},
                                                              {"HXAP", 4, true},
                                                              {"DISP", 4, true},
                                                              {"OCTU", 4, true}}};
[[nodiscard]] inline form_factor_lines form_factor_of(const kalvaris_params::phase_type& phase,
                                                      const kalvaris_params::atom_type& atom) {
  if (atom_kind_of(phase) == atom_kind::modulated) return {};
  const std::string species = lmix_string_utilities::u_case(atom.ntyp);
  if (species == "SASH") return {true, 0, 6, false};
  if (atom.n_t * atom.n_t < 16) return {};
  for (const multipole_species& row : multipoles) {
    if (row.ntyp == species) return {false, 7 * row.rounds, 7, row.radial};
  }
  return {false, 14, 7, false};
}

/// Words of the VARY and FIX lines that name slots of a phase: first to last, and the slot in time of flight (0: same).
struct slot_word {
  std::string_view word;
  int first, last, tof = 0;
};
inline constexpr std::array<slot_word, 7> phase_words{{{"Scale_Factors", slot::scale, slot::scale},
                                                       {"Bover", slot::bov, slot::bov},
                                                       {"Ustrain", slot::u, slot::u, slot::iso_gstrain},
                                                       {"Xstrain", slot::x, slot::x, slot::iso_lstrain},
                                                       {"Gsize", slot::gausiz, slot::gausiz},
                                                       {"Ysize", slot::y, slot::y, slot::iso_lsize},
                                                       {"CELL:", slot::cell_a, slot::cell_f}}};

/// Coefficient lines of a background by its signed flag: per line the first slot, `per_line` values, then codes.
struct background_lines {
  int nbckgd, isbac;
  std::string_view name;
  std::size_t per_line;
  std::array<int, 4> first_slot;  ///< 0 behind the last line

  [[nodiscard]] constexpr std::size_t lines() const {
    std::size_t n = 0;
    while (n < first_slot.size() && first_slot[n] != 0) ++n;
    return n;
  }
};
inline constexpr std::array<background_lines, 6> background_table{{
    {0, 1, "polynomial", 6, {gslot::bac}},
    {1, 1, "file: a, b, c, d of a Back[(1+c)x+d] + b", 4, {gslot::bfile_a}},
    {1, -1, "polynomial, Debye amplitudes and distances", 6, {gslot::bac, gslot::debye_amp, gslot::debye_dist}},
    {3, -1, "12-term polynomial", 6, {gslot::bac, gslot::bac + 6}},
    {4, -1, "cosine Fourier series", 6, {gslot::bac, gslot::bac + 6, gslot::bac + 12}},
    {5, -1, "Chebychev polynomial", 6, {gslot::bac, gslot::bac + 6, gslot::bac + 12, gslot::bac + 18}},
}};
/// The row of the pattern, null when its background has no coefficient lines.
[[nodiscard]] constexpr const background_lines* coefficient_lines(const kalvaris_params::pattern_type& pattern) {
  for (const background_lines& row : background_table) {
    if (row.nbckgd == pattern.nbckgd && row.isbac == pattern.isbac) return &row;
  }
  return nullptr;
}
/// The background is given by points on lines of their own.
[[nodiscard]] constexpr bool has_points(const kalvaris_params::pattern_type& pattern) {
  return pattern.isbac > 0 ? pattern.nbckgd > 1 : pattern.nbckgd > 5;
}
/// Time of flight and energy: the abscissa follows from constants of the diffractometer, not from a wavelength.
[[nodiscard]] constexpr bool has_diffractometer(const kalvaris_params::pattern_type& pattern) {
  return pattern.ixunit == kalvaris_params::abscissa::tof || pattern.ixunit == kalvaris_params::abscissa::energy;
}
/// Laue images and integrated intensities of several phases come from lists that the control file names.
[[nodiscard]] constexpr bool has_lists(const kalvaris_params::pattern_type& pattern) {
  return pattern.ixunit == kalvaris_params::abscissa::laue || pattern.cry_mphas;
}
[[nodiscard]] constexpr bool has_second_regime(const kalvaris_params::pattern_type& pattern) {
  return pattern.ixunit == kalvaris_params::abscissa::tof && pattern.nprof == 10;
}
[[nodiscard]] constexpr bool has_tof_zero_line(const kalvaris_params::pattern_type& pattern) {
  return pattern.ixunit == kalvaris_params::abscissa::tof && pattern.nprof != 10;
}
inline constexpr std::array<int, 3> second_regime_slots{gslot::zero_t, gslot::dtt1t, gslot::dtt2t};
inline constexpr std::array<int, 2> crossing_slots{gslot::xcross, gslot::wcross};

/// The background is a Fourier filter.
[[nodiscard]] constexpr bool is_filter(const kalvaris_params::pattern_type& pattern) {
  return pattern.isbac < 0 && pattern.nbckgd == 2;
}

}  // namespace pcr_layout

// pcr_layout: the tables that the reader and the writer of the control file both walk: which slots stand on which line.
// It owns no data; a row added here is read and written.
#pragma once
#include <array>
#include <span>
#include <string_view>

#include "kalvaris_params.hpp"

namespace pcr_layout {

namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;

/// One integer of a flag line: it belongs to the run or to a pattern.
struct flag {
  int run_type::*of_run = nullptr;
  int pattern_type::*of_pattern = nullptr;
};
constexpr flag run_flag(int run_type::*field) { return {field, nullptr}; }
constexpr flag pattern_flag(int pattern_type::*field) { return {nullptr, field}; }

/// The short form has the flags of the run and of its pattern on one line; behind these stand Opt and Aut.
inline constexpr std::array<flag, 17> short_flags{
    pattern_flag(&pattern_type::jobtyp), pattern_flag(&pattern_type::nprof),  run_flag(&run_type::nphase),
    pattern_flag(&pattern_type::nbckgd), pattern_flag(&pattern_type::nexcrg), pattern_flag(&pattern_type::nscat),
    pattern_flag(&pattern_type::nori),   run_flag(&run_type::idum),           pattern_flag(&pattern_type::iwgt),
    pattern_flag(&pattern_type::ilor),   run_flag(&run_type::iasg),           pattern_flag(&pattern_type::ireso),
    pattern_flag(&pattern_type::istep),  run_flag(&run_type::nrell),          run_flag(&run_type::icryg),
    pattern_flag(&pattern_type::ixunit), pattern_flag(&pattern_type::icorr)};
inline constexpr std::array<flag, 5> long_run_flags{run_flag(&run_type::nphase), run_flag(&run_type::idum),
                                                    run_flag(&run_type::iasg), run_flag(&run_type::nrell),
                                                    run_flag(&run_type::icryg)};
inline constexpr std::array<flag, 14> long_pattern_flags{
    pattern_flag(&pattern_type::jobtyp), pattern_flag(&pattern_type::nprof),   pattern_flag(&pattern_type::nbckgd),
    pattern_flag(&pattern_type::nexcrg), pattern_flag(&pattern_type::nscat),   pattern_flag(&pattern_type::nori),
    pattern_flag(&pattern_type::iwgt),   pattern_flag(&pattern_type::ilor),    pattern_flag(&pattern_type::ireso),
    pattern_flag(&pattern_type::istep),  pattern_flag(&pattern_type::ixunit),  pattern_flag(&pattern_type::icorr),
    pattern_flag(&pattern_type::anm),    pattern_flag(&pattern_type::cry_flag)};

inline constexpr std::array<flag, 17> short_output_flags{
    pattern_flag(&pattern_type::iot),   pattern_flag(&pattern_type::ipl),
    pattern_flag(&pattern_type::ipc),   run_flag(&run_type::mat),
    run_flag(&run_type::nxt),           pattern_flag(&pattern_type::lst1),
    pattern_flag(&pattern_type::lst2),  pattern_flag(&pattern_type::lst3),
    run_flag(&run_type::nlinc),         pattern_flag(&pattern_type::pl_prf),
    pattern_flag(&pattern_type::instr), run_flag(&run_type::jcil),
    run_flag(&run_type::jsy),           pattern_flag(&pattern_type::jlkh),
    pattern_flag(&pattern_type::jfou),  run_flag(&run_type::ishor),
    pattern_flag(&pattern_type::ianaly)};
inline constexpr std::array<flag, 6> long_run_output_flags{run_flag(&run_type::mat),   run_flag(&run_type::nxt),
                                                           run_flag(&run_type::nlinc), run_flag(&run_type::jcil),
                                                           run_flag(&run_type::jsy),   run_flag(&run_type::ishor)};
inline constexpr std::array<flag, 11> long_pattern_output_flags{
    pattern_flag(&pattern_type::iot),    pattern_flag(&pattern_type::ipl),   pattern_flag(&pattern_type::ipc),
    pattern_flag(&pattern_type::lst1),   pattern_flag(&pattern_type::lst2),  pattern_flag(&pattern_type::lst3),
    pattern_flag(&pattern_type::pl_prf), pattern_flag(&pattern_type::instr), pattern_flag(&pattern_type::jlkh),
    pattern_flag(&pattern_type::jfou),   pattern_flag(&pattern_type::ianaly)};

/// A line of values in slots, followed by a line of their codes.
struct coded_line {
  std::string_view name;     ///< as messages call it
  std::string_view letters;  ///< of the values line; an `i` at its end is the model behind the values
  std::string_view header;   ///< comment above it
  std::array<int, 8> slots;  ///< in file order, 0 behind the last

  [[nodiscard]] constexpr std::size_t size() const {
    std::size_t n = 0;
    while (n < slots.size() && slots[n] != 0) ++n;
    return n;
  }
};

/// The four lines of a profile block that always stand.
inline constexpr std::array<coded_line, 4> profile_lines{{
    {"scale line",
     "ffffffi",
     "!  Scale          Shape1      Bov      Str1      Str2      Str3   Strain-Model",
     {slot::scale, slot::shape1, slot::bov, slot::str1, slot::str1 + 1, slot::str3}},
    {"width line",
     "fffffffi",
     "!       U            V            W             X            Y         GauSiz      LorSiz    Size-Model",
     {slot::u, slot::v, slot::w, slot::x, slot::y, slot::gausiz, slot::lorsiz}},
    {"cell line",
     "ffffff",
     "!     a          b         c        alpha      beta       gamma",
     {slot::cell_a, slot::cell_a + 1, slot::cell_a + 2, slot::cell_a + 3, slot::cell_a + 4, slot::cell_f}},
    {"line of preferred orientation and asymmetry",
     "ffffffff",
     "!  Pref1    Pref2      Asy1     Asy2     Asy3     Asy4      S_L      D_L",
     {slot::pref1, slot::pref2, slot::asy1, slot::asy2, slot::asy3, slot::asy4, slot::s_l, slot::d_l}},
}};
inline constexpr coded_line phase_shift_line{"line of the shifts of the phase",
                                             "fff",
                                             "!      Zero_ph      SyCos_ph      SySin_ph",
                                             {slot::zero_ph, slot::sycos_ph, slot::sysin_ph}};
inline constexpr std::array<int, 3> second_width_slots{slot::u2, slot::v2, slot::w2};

/// Words of the VARY and FIX lines that name slots of a phase, first to last.
struct slot_word {
  std::string_view word;
  int first, last;
};
inline constexpr std::array<slot_word, 7> phase_words{{{"Scale_Factors", slot::scale, slot::scale},
                                                       {"Bover", slot::bov, slot::bov},
                                                       {"Ustrain", slot::u, slot::u},
                                                       {"Xstrain", slot::x, slot::x},
                                                       {"Gsize", slot::gausiz, slot::gausiz},
                                                       {"Ysize", slot::y, slot::y},
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
/// The background is a Fourier filter.
[[nodiscard]] constexpr bool is_filter(const kalvaris_params::pattern_type& pattern) {
  return pattern.isbac < 0 && pattern.nbckgd == 2;
}

}  // namespace pcr_layout

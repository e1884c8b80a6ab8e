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

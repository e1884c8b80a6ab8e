// kv_echo_words: what the values of the flags of a control file mean, in the words of the listing.
// It owns one table per flag, each value of the control file with its line; it reads and writes no state.
#pragma once
#include <span>
#include <string_view>

namespace kv_echo_words {

/// A value of a flag and its line.
struct flag_words {
  int value;
  std::string_view words;
};

/// Flags with words. Some change their meaning with the kind of data and have a table for each.
enum class flag {
  job,                 ///< jobtyp
  search,              ///< icryg
  abscissa,            ///< ixunit
  geometry,            ///< ilor
  correction_file,     ///< icorr
  orientation,         ///< nori
  weights,             ///< iwgt, powder pattern
  integrated_weights,  ///< iwgt, integrated intensities
  shape,               ///< nprof and npro with a wavelength or energy
  shape_tof,           ///< the same, time of flight
  shape_formula,       ///< width and shape by the parameters of npro
  shape_formula_tof,
  absorption,      ///< iabscor with a wavelength
  absorption_tof,  ///< iabscor, time of flight
  structure,       ///< jbt
  symmetry,        ///< isym
  reflections,     ///< irf
  strain_kind,     ///< istr
  strain,          ///< ismo with istr 0 and 2
  size,            ///< isi
  shift,           ///< ishif
  extinction,      ///< iextinc
  limit,           ///< boundary condition of a parameter with limits
};

[[nodiscard]] std::span<const flag_words> table(flag name);

/// The line of a value; blank when it has none.
[[nodiscard]] std::string_view words_of(flag name, int value);

}  // namespace kv_echo_words

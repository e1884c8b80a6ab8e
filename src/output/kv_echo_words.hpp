// kv_echo_words: what the values of the flags of a control file mean, in the lines of the listing.
// It owns the lines whose wording is fixed; the other lines are made from the words that explain the control file.
// It reads and writes no state.
#pragma once
#include <string>

namespace kv_echo_words {

/// Flags with words. Some change their meaning with the kind of data and have words for each.
enum class flag {
  job,                 ///< jobtyp
  search,              ///< icryg
  abscissa,            ///< ixunit
  geometry,            ///< ilor
  correction_file,     ///< icorr
  orientation,         ///< nori
  weights,             ///< iwgt, powder pattern
  integrated_weights,  ///< iwgt, integrated intensities
  shape,               ///< nprof and npro
  shape_formula,       ///< width and shape by the parameters of npro, with a wavelength or energy
  shape_formula_tof,   ///< the same, time of flight
  assignment,          ///< iasg
  layout,              ///< instr
  absorption,          ///< iabscor with a wavelength
  absorption_tof,      ///< iabscor, time of flight
  structure,           ///< jbt
  symmetry,            ///< isym
  reflections,         ///< irf
  strain_kind,         ///< istr
  strain,              ///< ismo with istr 0 and 2
  size,                ///< isi
  shift,               ///< ishif
  extinction,          ///< iextinc
  limit,               ///< boundary condition of a parameter with limits
};

/// The line of a value; blank when it has none.
[[nodiscard]] std::string words_of(flag name, int value);

}  // namespace kv_echo_words

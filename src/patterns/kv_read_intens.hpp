// kv_read_intens: loads a measured pattern into the shared state, and applies the rules that follow the reading.
// It owns the layouts of data files; the layout is chosen by instr alone, never guessed from the content.
// Writes the measured points of a pattern (thmin to kr in pattern_type) and its tsamp and numor; nobody else does.
#pragma once
#include <span>
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"

namespace kv_read_intens {

/// A layout of data files that can be read.
struct format_row {
  int instr = 0;
  std::string_view extensions;  ///< spellings of the extension by which instr goes, blank: any
  std::string_view name;
  std::string_view looks_like;
};
std::span<const format_row> formats();
/// The rows as a table to print.
std::string formats_text();

/// Reads the data file of pattern ip (0-based) in the layout instr: opens it through openfile, thins by istep, fills
/// y, var, txv (one longer than npts), iww, yo_max and the scalars beside them, and sizes yc, bk and kr with zeros.
/// Every variance that it leaves is positive, every number finite, txv does not decrease; at least two points.
/// Whatever cannot be read so stops the run with a text on console and listings that names file, line and column, and
/// the layouts that would read the file whole. What is read although it is not as it should be (variances of 0,
/// intensities that are raised, uneven steps, points out of order, fewer or more than announced) gets a line of warning
/// each, with the first place, on console and listings.
/// A file whose next bank belongs to the next pattern (same name, ixunit 1) stays open in st.data_file.
void readint(kalvaris_params::state_type& st, int ip);

/// The steps between reading and refinement: a correction of the profile divides it (one that is not above 0 stops the
/// run), a free abscissa cannot go into the plot file of constant step (pl_prf 1 becomes -3), unit weights (iwgt 2) are
/// variances of 1, iwgt 3 corrects them from a table.
void prepare_data(kalvaris_params::state_type& st, int ip);

/// Number of blank-separated fields of a line; 1 for a blank line.
[[nodiscard]] int nombre_de_colonnes(std::string_view line);

}  // namespace kv_read_intens

// kalvaris_init: the dimensions of a run from "kalvaris.dim" and the defaults that the control file starts from.
// It owns nothing; the defaults themselves stand beside the fields, here are only those that differ by pattern or
// phase. The control-file reader calls both before it reads the first flag.
#pragma once
#include "kalvaris_params.hpp"

namespace kalvaris_init {

/// Reads the four dimensions from "kalvaris.dim" in the directory of the run, else in the directory that the
/// environment variable KALVARIS names; without a file the standard values are taken silently. One line per value in
/// fixed order, the integer standing between the first `=` and the first `!`. A value that cannot be read, or is not
/// positive, is replaced by the standard one with a warning on the console.
void read_dimensions(kalvaris_params::state_type& st);

/// Makes the records of run.n_patt patterns and one phase with their defaults, and clears the atoms, the results and
/// the file error of a former run. Kept is what is read before it: of the run title, s_format, w_pat_line, n_patt,
/// optimize, automatic and t_chi2_ini, of the patterns affpat and w_pat.
void init_val(kalvaris_params::state_type& st);

/// Makes run.nphase phases and their mixes; those that exist keep their content.
void size_phases(kalvaris_params::state_type& st, int nphase);

}  // namespace kalvaris_init

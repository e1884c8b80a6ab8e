// kv_prf: the plot files of a pattern, and the background or difference curve for the next run.
// It owns the layouts; a text is made from the state by one function per layout, and written by write_plot and
// write_background alone. Nothing in the state is changed. In every layout Ycal is the Bragg part plus the background.
#pragma once
#include <string>

#include "kalvaris_params.hpp"

namespace kv_prf {

/// Writes the plot file of pattern ip (0-based) in the layout that pl_prf asks for; nothing for 0 and for patterns
/// without points. A layout that this program does not write is refused on the console; a file that cannot be opened
/// stops the run. The compact layout holds no abscissae: for a variable step the reader of the data has changed pl_prf.
void write_plot(kalvaris_params::state_type& st, int ip);
/// Stops the run when a file that write_plot or write_background will make could not be written.
void refuse_unwritable(kalvaris_params::state_type& st);

/// ipl 2: background, 3: observed minus Bragg part, to the file that a run with a background file reads. Refused on the
/// console when that very file is the background of this run.
void write_background(kalvaris_params::state_type& st, int ip);

// ---- layouts -------------------------------------------------------------------------------------------------------

/// Compact form (pl_prf 1): heads, counts and calculated counts eight per line, packed reflections, their positions
/// without zero and sample shifts [deg]. Counts are multiplied by the second number of the second line, 1 below 1e6.
[[nodiscard]] std::string write_prf(const kalvaris_params::state_type& st, int ip);
/// Tab-separated columns (pl_prf 3): x, Yobs, Ycal, difference, background, position with all shifts, phase, hkl,
/// wavelength and satellite. The reflections ride along with the first points.
[[nodiscard]] std::string kaleida(const kalvaris_params::state_type& st, int ip);
/// Waves and commands for IGOR (pl_prf 2).
[[nodiscard]] std::string wigor(const kalvaris_params::state_type& st, int ip);
/// Data sets for xmgrace: observed, calculated, difference, ticks of each phase (pl_prf 5); the same as a project with
/// axes, symbols and legend (7).
[[nodiscard]] std::string plot_xvgr(const kalvaris_params::state_type& st, int ip);
[[nodiscard]] std::string plot_agr(const kalvaris_params::state_type& st, int ip);
/// Columns x, Yobs, Ycal, difference, background (pl_prf 6).
[[nodiscard]] std::string plot_xy(const kalvaris_params::state_type& st, int ip);

/// Pages for a line printer: x, observed, calculated, variance; 60 lines, four groups (iot).
[[nodiscard]] std::string lp_pattern(const kalvaris_params::state_type& st, int ip);
/// Plot of the pattern with characters, one line per point (ipl 1).
[[nodiscard]] std::string lp_plot(const kalvaris_params::state_type& st, int ip);

/// Background file: `thmin step thmax` and ten values per line, or x and value per line with a variable step.
/// difference: observed minus Bragg part in place of the background.
[[nodiscard]] std::string background_text(const kalvaris_params::state_type& st, int ip, bool difference);

/// Decimals of printed counts for the largest of them: 4 below 100, one less per power of ten, 0 from 1e5 on.
[[nodiscard]] int count_decimals(double ymax);
/// Factor that brings the largest count of the tab-separated form into its fields: 16.1/ymax up to 16, powers of 0.1
/// from 1e6 on, else 1; 1 without counts.
[[nodiscard]] double count_scale(double ymax);

}  // namespace kv_prf

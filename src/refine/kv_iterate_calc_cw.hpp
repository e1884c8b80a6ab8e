// kv_iterate_calc_cw: the cycles of weighted least squares, the calculation of a constant-wavelength pattern with its
// normal equations, and the update of the intensities of profile-matching phases.
// It writes yc, num, num1, the reflection values, the normal matrix, run.cycles_end and, through apply_shifts, the
// model. The cycle prints nothing: what it has to say goes to the hooks of its caller.
#pragma once
#include <functional>
#include <string_view>

#include "apply_shifts.hpp"
#include "kalvaris_params.hpp"

namespace kv_free_intensities {
class overlap_equations;
}

namespace kv_iterate_calc_cw {

/// What one cycle produced. The agreement factors stand in the patterns, the joint ones in st.run.
struct cycle_report {
  int cycle = 0;
  bool converged = false;       ///< the listing after convergence: all shifts are zero
  bool last = false;            ///< converged, or the last cycle asked for
  bool intensities = false;     ///< R(Bragg), R(F) and the observed intensities are those of this cycle
  apply_shifts::shift_report shifts;
};

/// Where the cycle speaks to. Any member may be empty.
struct cycle_hooks {
  std::function<void(std::string_view)> console;        ///< progress and warnings
  std::function<void(std::string_view)> listing;        ///< lines that belong in the listing alone
  std::function<void(const cycle_report&)> cycle_done;  ///< once per cycle, and once more on convergence
  std::function<void(int&)> poll_stop;                  ///< may raise the cycle number to end after this cycle
};

/// Runs up to mcycle cycles of full-matrix Gauss-Newton. Returns 0, or 1 when the first cycle has no solution: a value
/// that is not finite, a parameter without derivatives, too few points. A vanishing pivot there and, with idum 2, a
/// rise of chi-square stop the run through stop_cond.
/// While the weighted sum of squares falls, the damping is that of the relaxation factors and the halving of a shift
/// that reverses the one before without being smaller than 3/4 of it (not with run.whole_steps). After a rise by more
/// than 1 % the best state is restored whole and the equations are solved again with lambda times their diagonal added
/// (D. W. Marquardt, J. Soc. Indust. Appl. Math. 11 (1963) 431): 0.01, ten times more after each failure, ten times
/// less after each success; no shift is halved any more. Converged: every shift below eps standard deviations, with
/// and without lambda, and lambda at most 0.01; no cycle in which a rule let only some parameters move counts.
/// Standard deviations are those without lambda.
int iterate(kalvaris_params::state_type& st, const cycle_hooks& hooks);

/// Calculates pattern ip (0-based) from the current model: reflection positions, widths, F^2, corrections, yc; adds its
/// rows to st.ne when `derivatives`, and fills the equations of the intensities that follow the pattern when they are
/// given. Needs kr from assignk and bk. Sets num, num1 and the flags of negative widths.
void calc_patterns_2theta(kalvaris_params::state_type& st, int ip, bool derivatives,
                          kv_free_intensities::overlap_equations* intensities = nullptr);

/// What bragg does with the intensities of phases with jbt 2, -2.
enum class intensity_update { none, partition };

/// Integrated intensities of every reflection from the partition of the net profile (H. M. Rietveld, J. Appl. Cryst. 2
/// (1969) 65), R(Bragg) and R(F) of each phase; with `partition` phases with jbt 2, -2 take them as their next ff
/// (A. Le Bail, H. Duroy & J. L. Fourquet, Mat. Res. Bull. 23 (1988) 447), both wavelengths of a reflection sharing
/// one. Returns the sum of the changes of these over the sum of the intensities.
double bragg(kalvaris_params::state_type& st, int ip, intensity_update update);

}  // namespace kv_iterate_calc_cw

// kv_least_squares: from filled normal equations to the shifts of one cycle, under the rules that keep single parameters
// from moving: edges that they stand at, scale factors that are far from their values, parameters without an effect.
// It owns what these rules remember from cycle to cycle; it turns st.ne into the scaled inverse and the shifts.
#pragma once
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apply_shifts.hpp"
#include "kalvaris_params.hpp"

namespace kv_least_squares {

/// A parameter that takes no part in a cycle.
struct resting_parameter {
  int n = 0;             ///< parameter number (1-based)
  std::string_view why;  ///< for the reader
};

struct solution {
  std::vector<int> without_effect;                      ///< 0-based, when they are not to be left out: nothing is solved
  std::vector<normal_equations::dependent_set> dependent;  ///< the same of parameters that others determine
  bool curbed = false;                                  ///< only scale factors and background move
  std::vector<double> undamped;                         ///< shifts without lambda, by parameter (0-based)
  std::vector<resting_parameter> resting;
  [[nodiscard]] bool solved() const { return without_effect.empty() && dependent.empty(); }
};

/// The rules and their memory. Copied with the state that they belong to.
class solver {
 public:
  /// st.ne holds the symmetric matrix and the vector of a cycle. Afterwards its vector holds the shifts that follow with
  /// lambda times the diagonal added to the matrix, its matrix the inverse without lambda times max(1, chi2): 0 on the
  /// diagonal of resting parameters. leave_out: parameters that have no effect of their own rest in this cycle instead
  /// of ending it.
  solution solve(kalvaris_params::state_type& st, double lambda, double chi2, bool leave_out);

  /// Parameters that take no part in any cycle.
  void leave_out(std::vector<resting_parameter> parameters) { left_out_ = std::move(parameters); }

  /// Parameters that the shifts of a cycle brought to an edge; one that wants inward again is free again.
  void hold(const std::vector<apply_shifts::held_parameter>& held);

 private:
  struct equations;
  void find_linear_parameters(kalvaris_params::state_type& st);
  bool rest_at_edges(const std::vector<double>& shifts, solution& result);
  bool scales_are_far(const std::vector<double>& shifts, const std::vector<char>& resting) const;
  void move_linear_alone(const equations& eq, double lambda, double chi2, std::vector<double>& shifts,
                         solution& result);

  std::vector<resting_parameter> left_out_;
  std::vector<apply_shifts::held_parameter> held_;
  bool scales_alone_ = false;       ///< the rule of the scale factors acted in the cycle before
  std::vector<char> linear_;        ///< by parameter (0-based): the pattern is linear in it
  std::vector<double> scale_;       ///< by parameter (0-based): value of a scale factor, 0 for all others
};

}  // namespace kv_least_squares

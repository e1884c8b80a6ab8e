// kv_background: the background of a pattern in all its models, its value at every point and its derivatives.
// It owns pattern_type::bk once the background is refinable; file and filter backgrounds are loaded here too.
// Every model but the Debye distances and the scaled file is linear in its coefficients: value = sum of c_j basis_j.
#pragma once
#include <span>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_background {

enum class model { polynomial, file, debye, filter, polynomial12, cosine, chebychev, linear_nodes, spline_nodes };

/// One row per kind: the control file's flag, what the listing calls it, how many coefficients stand in the file.
struct bg_model {
  model kind;
  std::string_view listing;  ///< words of the echo
  int n_coefficients;        ///< glb slots from gslot::bac on; 0: one per node, or none (filter)
};
[[nodiscard]] const bg_model& find_bg(int nbckgd, int isbac);
[[nodiscard]] model model_of(const kalvaris_params::pattern_type& pattern);

/// glb slots that are parameters of the pattern's background, in ascending order (user profiles last).
[[nodiscard]] std::vector<int> slots(const kalvaris_params::pattern_type& pattern);

/// Sets bref and brea of the pattern: whether the background is rebuilt in each cycle, whether it is a scaled file.
void set_flags(kalvaris_params::pattern_type& pattern);

/// Values at points first .. first + count - 1 of d bk/d glb(k) for the slots of `wanted` (a subset of slots()):
/// rows[j * stride + p]; 0 where build cut the background, unless it cut most of it. count <=
/// stride.
/// Polynomials use the abscissa itself, also below 0.1 deg where the value holds 0.1.
void derivative_rows(const kalvaris_params::pattern_type& pattern, std::span<const int> wanted, int first, int count,
                     float* rows, std::size_t stride);

/// Rebuilds bk from the coefficients. In a refinement a value above yo_max or below 0 becomes 0.
/// Coefficients: polynomial sum c_n (x/bkpos - 1)^n (12-term: n = 0..8 and 1/x, 1/x^2, 1/x^3); cosine sum c_n cos(n x);
/// Chebychev on the range of the pattern; Debye terms A sin(Q r)/(Q r), Q = 4 pi sin(theta)/lambda; nodes joined by
/// lines or by a natural cubic spline, constant before the first and behind the last.
void build(kalvaris_params::pattern_type& pattern);

/// The background at point i (0-based): bk, or the scaled file a B((1 + c) x + d) + b.
[[nodiscard]] float backa(const kalvaris_params::pattern_type& pattern, int i);

/// Reads the content of a background file onto the grid of the pattern. Two forms: `thmin step thmax` and the values
/// free, or lines of x and value; `!` and `#` lines are comments. False, with the reason, when it holds neither.
[[nodiscard]] bool load_file(std::string_view content, kalvaris_params::pattern_type& pattern, std::string& reason);

/// Low-pass filtered observed minus Bragg intensity: the trend between the mean of both ends is taken off, harmonics
/// above 1/window of a point are damped by a parabola, the trend is added back. window [points] > 1.
void filter(kalvaris_params::pattern_type& pattern, float window);

}  // namespace kv_background

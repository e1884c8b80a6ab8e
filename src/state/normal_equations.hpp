// normal_equations: the normal matrix rjac and vector vx of the least-squares problem, and the operations that add to
// them. It owns the arrays; the pattern sums, integrated data and restraints add rows, the cycle solves and scales
// them. Sums run in single precision inside a block of rows and in double precision over the blocks.
#pragma once
#include <cstddef>
#include <span>
#include <vector>

namespace normal_equations {

/// Order n; parameters are 0-based in here. rjac is row-major n x n; only its upper triangle is filled before
/// fill_lower.
class normal_matrix {
 public:
  void reset(int n);  ///< order n, all sums zero
  [[nodiscard]] int order() const { return n_; }
  [[nodiscard]] double& rjac(int i, int j) { return rjac_[index(i, j)]; }
  [[nodiscard]] double rjac(int i, int j) const { return rjac_[index(i, j)]; }
  [[nodiscard]] double& vx(int i) { return vx_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] double vx(int i) const { return vx_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] std::span<double> matrix() { return rjac_; }
  [[nodiscard]] std::span<double> vector() { return vx_; }
  [[nodiscard]] std::span<const double> vector() const { return vx_; }
  /// What the shifts make smaller: weight times squared difference, over all observations added.
  [[nodiscard]] double weighted_sum() const { return weighted_sum_; }

  /// One observation: derivatives of its calculated value by the n parameters, weight 1/variance, observed -
  /// calculated.
  void add_row(std::span<const float> derivatives, double weight, double difference);

  /// A block of observations at once. derivatives: n rows of `stride` floats, the first `count` of a row alive;
  /// weights, differences: count. active: the parameters whose rows are not all zero, ascending.
  void add_block(const float* derivatives, std::size_t stride, std::size_t count, const float* weights,
                 const float* differences, std::span<const int> active);

  void fill_lower();  ///< copies the upper triangle to the lower

 private:
  [[nodiscard]] std::size_t index(int i, int j) const {
    return static_cast<std::size_t>(i) * static_cast<std::size_t>(n_) + static_cast<std::size_t>(j);
  }
  int n_ = 0;
  std::vector<double> rjac_, vx_;
  double weighted_sum_ = 0;
  std::vector<float> weighted_;  ///< work of add_block
};

/// Result of dp_inv.
struct inversion {
  bool singular = false;  ///< a pivot vanished within rounding; matrix and vector are then undefined
  double condition = 0;   ///< largest row sum of the matrix times that of its inverse
  int column = -1;        ///< 0-based unknown that the others already determine, when singular
};
/// Gauss-Jordan elimination with row equilibration and partial pivoting in double precision: matrix (row-major n x n)
/// becomes its inverse, vector the solution. A matrix of order 1 is divided without a test.
inversion dp_inv(std::span<double> matrix, std::span<double> vector, int n);

/// Steps of some unknowns that together change nothing: step[0] is 1, the others as many units of their own.
struct dependent_set {
  std::vector<int> unknowns;  ///< 0-based
  std::vector<double> step;
};
/// The dependent sets of a symmetric matrix (row-major n x n, no sign on its diagonal but plus), one for each unknown
/// that those with larger pivots determine: the matrix, scaled to a unit diagonal, is swept by its largest diagonal
/// element (J. H. Goodnight, Am. Stat. 33 (1979) 149) until none above 1e-7 is left, the rounding of single-precision
/// sums. An unknown whose row is zero is a set of its own. Members below 1 % of the scaled step are left out.
[[nodiscard]] std::vector<dependent_set> dependent_sets(std::span<const double> matrix, int n);

}  // namespace normal_equations

// Symmetry of a lattice from its numbers: twofold axes, conventional cell, matrix between two cells.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "lmix_crystal_metrics.hpp"

namespace lmix_crystal_metrics {

using namespace lmix_math_general;

namespace {

using index3 = std::array<int, 3>;

int dot_product(const index3& u, const index3& v) { return u[0] * v[0] + u[1] * v[1] + u[2] * v[2]; }
index3 negative(const index3& u) { return {-u[0], -u[1], -u[2]}; }
vec3d real(const index3& u) { return {double(u[0]), double(u[1]), double(u[2])}; }
int common_factor(const index3& u) { return std::gcd(std::gcd(u[0], u[1]), u[2]); }

index3 coprime_cross(const index3& u, const index3& v) {
  index3 w{u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
  const int factor = std::max(1, common_factor(w));
  for (int& x : w) x /= factor;
  return w;
}

mat3d matrix_of_columns(const std::array<index3, 3>& axes) {
  return transpose(mat3d{real(axes[0]), real(axes[1]), real(axes[2])});
}

index3 rounded(const vec3d& v) {
  return {static_cast<int>(std::lround(v[0])), static_cast<int>(std::lround(v[1])),
          static_cast<int>(std::lround(v[2]))};
}

/// Rows without common factor and indices up to `most`, one of each pair u, -u.
std::vector<index3> half_of_rows(int most) {
  std::vector<index3> rows;
  for (int i = -most; i <= most; ++i)
    for (int j = -most; j <= most; ++j)
      for (int k = -most; k <= most; ++k)
        if (const index3 u{i, j, k}; u > index3{} && common_factor(u) == 1) rows.push_back(u);
  return rows;
}

/// Twofold axes in the axes of a reduced cell: there all indices are 2 at most.
std::vector<twofold_axis> axes_of_reduced(const mat3d& g, double tolerance) {
  const std::vector<index3> rows = half_of_rows(2);
  const auto inverse_g = inverse(g);
  std::vector<twofold_axis> found;
  for (const index3& u : rows) {
    const double length = std::sqrt(dot(real(u), multiply(g, real(u))));
    twofold_axis best;
    best.delta = 2 * tolerance + 1;
    for (const index3& plane : rows) {
      const int product = std::abs(dot_product(u, plane));
      if (product != 1 && product != 2) continue;
      const double normal = std::sqrt(dot(real(plane), multiply(*inverse_g, real(plane))));
      // cos(delta) = product/(length normal); its sine by (1-c)(1+c), so that small angles keep their digits
      const double c = product / (length * normal);
      const double delta = atan2d(std::sqrt(std::max(0.0, (1 - c) * (1 + c))), c);
      if (delta < best.delta) best = {u, dot_product(u, plane) > 0 ? plane : negative(plane), product, delta, length};
    }
    if (best.delta <= tolerance) found.push_back(best);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const twofold_axis& x, const twofold_axis& y) { return x.delta < y.delta; });
  if (found.size() > 9) found.resize(9);
  return found;
}

/// Numbers of the other axes that stand at right angles to each axis.
std::vector<int> perpendicular_counts(std::span<const twofold_axis> axes) {
  std::vector<int> counts;
  for (const auto& x : axes)
    counts.push_back(static_cast<int>(std::count_if(
        axes.begin(), axes.end(), [&](const auto& y) { return dot_product(x.reciprocal, y.direct) == 0; })));
  return counts;
}

/// Choice of the axes of the conventional cell, all in the axes of the reduced cell with metric g.
class chooser {
 public:
  chooser(const mat3d& g, std::span<const twofold_axis> axes)
      : g_(g), axes_(axes.begin(), axes.end()), counts_(perpendicular_counts(axes)) {
    std::vector<std::size_t> order(axes_.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t i, std::size_t j) { return axes_[i].length < axes_[j].length; });
    std::vector<twofold_axis> sorted;
    std::vector<int> counts;
    for (const std::size_t i : order) {
      sorted.push_back(axes_[i]);
      counts.push_back(counts_[i]);
    }
    axes_ = sorted;
    counts_ = counts;
  }

  /// False when the axes do not make the pattern of any lattice symmetry.
  [[nodiscard]] bool choose(std::array<index3, 3>& abc, char& family) const {
    switch (axes_.size()) {
      case 9:
        family = 'c';
        return orthogonal_axes(4, abc);
      case 7:
        family = 'h';
        return about_main_axis(6, abc);
      case 5:
        family = 't';
        return about_main_axis(4, abc);
      case 3:
        family = counts_[0] == 2 ? 'o' : 'h';
        return counts_[0] == 2 ? orthogonal_axes(2, abc) : rhombohedral(abc);
      case 1:
        family = 'm';
        return monoclinic(abc);
      default:
        return false;
    }
  }

 private:
  [[nodiscard]] double product(const index3& u, const index3& v) const { return dot(real(u), multiply(g_, real(v))); }
  [[nodiscard]] double cosine(const index3& u, const index3& v) const {
    return product(u, v) / std::sqrt(product(u, u) * product(v, v));
  }
  /// The three axes that have `count` others at right angles.
  [[nodiscard]] bool orthogonal_axes(int count, std::array<index3, 3>& abc) const {
    std::size_t n = 0;
    for (std::size_t i = 0; i < axes_.size(); ++i) {
      if (counts_[i] != count) continue;
      if (n == 3) return false;
      abc[n++] = axes_[i].direct;
    }
    return n == 3;
  }
  /// c along the axis with `count` others at right angles, a along the shortest of these, b equivalent to a.
  [[nodiscard]] bool about_main_axis(int count, std::array<index3, 3>& abc) const {
    const auto main = std::find(counts_.begin(), counts_.end(), count);
    if (main == counts_.end()) return false;
    const twofold_axis& c = axes_[static_cast<std::size_t>(main - counts_.begin())];
    abc[2] = c.direct;
    return equivalent_pair(
        count == 6 ? -0.5 : 0.0, [&](const twofold_axis& x) { return &x != &c; }, abc);
  }
  [[nodiscard]] bool rhombohedral(std::array<index3, 3>& abc) const {
    if (counts_ != std::vector<int>{0, 0, 0}) return false;
    abc[2] = coprime_cross(axes_[0].reciprocal, axes_[1].reciprocal);
    return equivalent_pair(
        -0.5, [](const twofold_axis&) { return true; }, abc);
  }
  /// a the shortest of the axes that `allowed` lets pass, b the shortest at the angle with this cosine.
  template <class Predicate>
  [[nodiscard]] bool equivalent_pair(double cosine_ab, Predicate allowed, std::array<index3, 3>& abc) const {
    const auto a = std::find_if(axes_.begin(), axes_.end(), allowed);
    if (a == axes_.end()) return false;
    abc[0] = a->direct;
    for (const twofold_axis& x : axes_) {
      if (&x == &*a || !allowed(x)) continue;
      for (const index3& b : {x.direct, negative(x.direct)}) {
        if (std::abs(cosine(abc[0], b) - cosine_ab) > 0.2) continue;  // the nearest other angle is 30 degrees off
        abc[1] = b;
        return true;
      }
    }
    return false;
  }
  /// b along the axis, a and c the two shortest rows of the plane at right angles: those are a basis of the plane.
  [[nodiscard]] bool monoclinic(std::array<index3, 3>& abc) const {
    abc[1] = axes_[0].direct;
    std::vector<index3> rows = half_of_rows(5);
    std::erase_if(rows, [&](const index3& u) { return dot_product(u, axes_[0].reciprocal) != 0; });
    if (rows.size() < 2) return false;
    std::stable_sort(rows.begin(), rows.end(),
                     [&](const index3& u, const index3& v) { return product(u, u) < product(v, v); });
    abc[0] = rows[0];
    abc[2] = product(rows[0], rows[1]) > 0 ? negative(rows[1]) : rows[1];
    return true;
  }

  const mat3d& g_;
  std::vector<twofold_axis> axes_;  ///< the shortest first
  std::vector<int> counts_;
};

/// True when v is a vector of the lattice whose primitive axes have been given the axes P.
bool is_lattice_vector(const mat3d& p, const vec3d& v) {
  const vec3d u = multiply(p, v);
  return std::all_of(u.begin(), u.end(), [](double x) { return std::abs(x - std::round(x)) < 1e-6; });
}

/// Lattice letter of the axes P on a primitive cell; blank for a cell of another kind.
char letter_of(const mat3d& p) {
  constexpr double t = 1.0 / 3.0;
  const auto has = [&](const vec3d& v) { return is_lattice_vector(p, v); };
  switch (static_cast<int>(std::lround(std::abs(determinant(p))))) {
    case 1:
      return 'P';
    case 2:
      return has({0.5, 0.5, 0}) ? 'C' : has({0, 0.5, 0.5}) ? 'A' : has({0.5, 0, 0.5}) ? 'B' : 'I';
    case 3:
      return has({2 * t, t, t}) || has({t, 2 * t, t}) ? 'R' : ' ';
    case 4:
      return has({0.5, 0.5, 0}) && has({0, 0.5, 0.5}) ? 'F' : ' ';
    default:
      return ' ';
  }
}

/// Right-handed axes with the usual letter: C for A, B and monoclinic I, obverse for R.
char settle(std::array<index3, 3>& abc, char family, const mat3d& g) {
  const auto length2 = [&](const index3& u) { return dot(real(u), multiply(g, real(u))); };
  char letter = letter_of(matrix_of_columns(abc));
  if (family == 'm' && letter == 'A') std::swap(abc[0], abc[2]);
  if (family == 'm' && letter == 'I') {  // (a + b + c)/2 centres a + c, b: C, with the shorter of a and c as c
    const index3 c = length2(abc[0]) < length2(abc[2]) ? abc[0] : abc[2];
    for (std::size_t i = 0; i < 3; ++i) abc[0][i] += abc[2][i];
    if (dot(real(abc[0]), multiply(g, real(c))) > 0) abc[0] = negative(abc[0]);
    abc[2] = c;
  }
  if (family == 'o' && letter == 'A') abc = {abc[1], abc[2], abc[0]};
  if (family == 'o' && letter == 'B') abc = {abc[2], abc[0], abc[1]};
  if (family == 'o' && (letter == 'A' || letter == 'B') && length2(abc[1]) < length2(abc[0])) std::swap(abc[0], abc[1]);
  std::size_t reversed = 2;
  if (family == 'm') reversed = 1;
  if (determinant(matrix_of_columns(abc)) < 0) abc[reversed] = negative(abc[reversed]);
  letter = letter_of(matrix_of_columns(abc));
  constexpr double t = 1.0 / 3.0;
  if (letter == 'R' && !is_lattice_vector(matrix_of_columns(abc), {2 * t, t, t})) {
    abc[0] = negative(abc[0]);
    abc[1] = negative(abc[1]);
  }
  return letter;
}

/// Largest relative difference of the axes that a family makes equal.
double mismatch_of(char family, const vec3d& len) {
  const auto differ = [&](std::size_t i, std::size_t j) {
    return std::abs(len[i] - len[j]) / std::max(len[i], len[j]);
  };
  if (family == 't' || family == 'h') return differ(0, 1);
  return family == 'c' ? std::max({differ(0, 1), differ(0, 2), differ(1, 2)}) : 0.0;
}

}  // namespace

std::vector<twofold_axis> get_twofold_axes(const vec3d& cell, const vec3d& ang, double tolerance) {
  changed_cell reduced;
  if (niggli_cell(cell, ang, reduced).err_crys) return {};
  auto axes = axes_of_reduced(metrics(reduced.cell, reduced.ang), tolerance);
  const mat3d back = *inverse(reduced.p);
  for (twofold_axis& x : axes) {
    x.direct = rounded(multiply(reduced.p, real(x.direct)));
    x.reciprocal = rounded(multiply(real(x.reciprocal), back));
  }
  return axes;
}

crys_error get_conventional_cell(const vec3d& cell, const vec3d& ang, double tolerance,
                                 conventional_cell& conventional) {
  changed_cell reduced;
  if (auto err = niggli_cell(cell, ang, reduced); err.err_crys) return err;
  const mat3d g = metrics(reduced.cell, reduced.ang);
  const auto axes = axes_of_reduced(g, tolerance);
  for (const std::size_t n : {9u, 7u, 5u, 3u, 1u}) {
    if (n > axes.size()) continue;
    const std::span<const twofold_axis> best(axes.data(), n);
    std::array<index3, 3> abc{};
    conventional_cell made;
    if (!chooser(g, best).choose(abc, made.family)) continue;
    made.lattice = settle(abc, made.family, g);
    const auto to = change_setting_cell(cell, ang, multiply(reduced.p, matrix_of_columns(abc)));
    if (made.lattice == ' ' || !to) continue;
    made.to = *to;
    made.n_twofold = static_cast<int>(n);
    made.delta = best.back().delta;
    made.mismatch = mismatch_of(made.family, made.to.cell);
    conventional = made;
    return {};
  }
  conventional = {};
  conventional.to = reduced;
  return {};
}

std::optional<changed_cell> get_transfm_matrix(const vec3d& cell, const vec3d& ang, const vec3d& cell_to,
                                               const vec3d& ang_to, double length_tolerance, double angle_tolerance,
                                               int denominator) {
  const mat3d g = metrics(cell, ang);
  const auto star = inverse(g);
  if (denominator < 1 || !change_setting_cell(cell, ang, identity<double>()) ||
      !change_setting_cell(cell_to, ang_to, identity<double>()))
    return std::nullopt;
  // A component of a vector r is r.a*_i, hence no larger than |r| |a*_i|: the search is complete.
  std::array<std::vector<vec3d>, 3> candidates;
  const double longest = *std::max_element(cell_to.begin(), cell_to.end()) * (1 + length_tolerance);
  index3 most{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double bound = longest * std::sqrt((*star)[i][i]) * denominator;
    if (bound > 100) return std::nullopt;  // no two cells of one crystal differ so much
    most[i] = static_cast<int>(bound);
  }
  for (int i = -most[0]; i <= most[0]; ++i)
    for (int j = -most[1]; j <= most[1]; ++j)
      for (int k = -most[2]; k <= most[2]; ++k) {
        vec3d u = real({i, j, k});
        for (double& x : u) x /= denominator;
        const double length = std::sqrt(dot(u, multiply(g, u)));
        for (std::size_t axis = 0; axis < 3; ++axis)
          if (std::abs(length - cell_to[axis]) <= length_tolerance * cell_to[axis]) candidates[axis].push_back(u);
      }

  const auto angle = [&](const vec3d& u, const vec3d& v) {
    return acosd(dot(u, multiply(g, v)) / std::sqrt(dot(u, multiply(g, u)) * dot(v, multiply(g, v))));
  };
  std::optional<changed_cell> best;
  double best_misfit = std::numeric_limits<double>::infinity(), best_distance = best_misfit;
  for (const vec3d& a : candidates[0])
    for (const vec3d& b : candidates[1]) {
      if (std::abs(angle(a, b) - ang_to[2]) > angle_tolerance) continue;
      for (const vec3d& c : candidates[2]) {
        if (std::abs(angle(a, c) - ang_to[1]) > angle_tolerance || std::abs(angle(b, c) - ang_to[0]) > angle_tolerance)
          continue;
        const mat3d p = transpose(mat3d{a, b, c});
        if (determinant(p) <= 0) continue;
        const auto made = change_setting_cell(cell, ang, p);
        if (!made) continue;
        double misfit = 0, distance = 0;
        for (std::size_t i = 0; i < 3; ++i) {
          misfit += std::abs(made->cell[i] / cell_to[i] - 1) + std::abs(made->ang[i] - ang_to[i]) / 57.3;
          for (std::size_t j = 0; j < 3; ++j) distance += std::abs(p[i][j] - (i == j));
        }
        // Matrices that a rotation of the lattice makes of each other differ by rounding only.
        const bool better = misfit < best_misfit - 1e-9, equal = misfit < best_misfit + 1e-9;
        if (!better && !(equal && distance < best_distance)) continue;
        best = made;
        best_misfit = misfit;
        best_distance = distance;
      }
    }
  return best;
}

}  // namespace lmix_crystal_metrics

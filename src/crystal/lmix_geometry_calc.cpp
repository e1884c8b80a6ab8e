#include "lmix_geometry_calc.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "lmix_bvspar.hpp"
#include "lmix_string_utilities.hpp"

namespace lmix_geometry_calc {

using namespace lmix_math_general;
using lmix_atom_typedef::atom_type;
using lmix_crystal_metrics::crystal_cell_type;
using lmix_crystallographic_symmetry::space_group_type;
using lmix_crystallographic_symmetry::sym_oper_type;
using lmix_crystallographic_symmetry::vector3;

namespace {

constexpr double degrees = 180.0 / std::numbers::pi;

vec3d sum(const vec3d& u, const vec3d& v) { return {u[0] + v[0], u[1] + v[1], u[2] + v[2]}; }
vec3d scaled(double f, const vec3d& v) { return {f * v[0], f * v[1], f * v[2]}; }
vec3d difference(const vec3d& u, const vec3d& v) { return sum(u, scaled(-1, v)); }

mat3d rotation(const sym_oper_type& op) {
  mat3d r;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) r[i][j] = op.rot[i][j];
  return r;
}

/// The translations are whole twelfths in single precision (1/3, 1/6): their digits beyond it are restored.
vec3d translation(const sym_oper_type& op) {
  vec3d t;
  for (std::size_t i = 0; i < 3; ++i) {
    const double value = double{op.tr[i]}, twelfth = std::round(24 * value) / 24;
    t[i] = std::abs(value - twelfth) < 1e-5 ? twelfth : value;
  }
  return t;
}

vec3d cartesian(const structure_type& s, const image_type& at) { return multiply(s.to_cartesian, position(s, at)); }

/// How a quantity moves with the Cartesian position of one image.
struct slope_type {
  image_type image;
  vec3d gradient;
};

/// Standard deviation of a quantity. The slopes of one atom's images are added before they are squared.
double deviation(const structure_type& s, std::span<const slope_type> slopes) {
  std::array<double, 6> by_cell{};
  std::vector<std::pair<std::size_t, vec3d>> by_atom;
  for (const slope_type& slope : slopes) {
    const vec3d x = position(s, slope.image);
    for (std::size_t k = 0; k < 6; ++k) by_cell[k] += dot(slope.gradient, multiply(s.by_cell[k], x));
    const vec3d by_x = multiply(multiply(slope.gradient, s.to_cartesian), rotation(s.symop[slope.image.op]));
    const auto known =
        std::find_if(by_atom.begin(), by_atom.end(), [&](const auto& a) { return a.first == slope.image.atom; });
    if (known == by_atom.end()) {
      by_atom.emplace_back(slope.image.atom, by_x);
    } else {
      known->second = sum(known->second, by_x);
    }
  }
  double variance = 0;
  for (std::size_t k = 0; k < 6; ++k)
    for (std::size_t l = 0; l < 6; ++l) variance += by_cell[k] * s.cell_covariance[k][l] * by_cell[l];
  for (const auto& [atom, by_x] : by_atom) variance += dot(by_x, multiply(s.atoms[atom].x_covariance, by_x));
  return variance > 0 ? std::sqrt(variance) : 0.0;  // rounding may leave a variance of 0 just below it
}

/// Unit vector; 0 for two points in one place.
vec3d unit(const vec3d& v) {
  const double length = norm(v);
  return length > 0 ? scaled(1 / length, v) : vec3d{};
}

std::array<slope_type, 2> slopes_of_distance(const structure_type& s, const image_type& a, const image_type& b,
                                             double factor) {
  const vec3d u = scaled(factor, unit(difference(cartesian(s, b), cartesian(s, a))));
  return {{{a, scaled(-1, u)}, {b, u}}};
}

/// Groups of cell parameters that a crystal system makes equal (the same number) or fixes (-1).
std::array<int, 6> tied_cell_parameters(const crystal_cell_type& cell, std::string_view crystalsys) {
  if (crystalsys == "Triclinic" || crystalsys.empty()) return {0, 1, 2, 3, 4, 5};
  if (crystalsys == "Monoclinic") {  // the free angle is the one that is not 90, beta in an orthogonal cell
    std::array<int, 6> tied{0, 1, 2, -1, -1, -1};
    const std::size_t unique = cell.ang[0] != 90.f ? 0 : cell.ang[2] != 90.f ? 2 : 1;
    tied[3 + unique] = 3;
    return tied;
  }
  if (crystalsys == "Orthorhombic") return {0, 1, 2, -1, -1, -1};
  if (crystalsys == "Cubic") return {0, 0, 0, -1, -1, -1};
  if (crystalsys == "Trigonal" && std::abs(cell.ang[2] - 120.f) > 1e-3f) return {0, 0, 0, 3, 3, 3};
  return {0, 0, 2, -1, -1, -1};
}

}  // namespace

mat6d cell_covariance(const crystal_cell_type& cell, const space_group_type& spg) {
  const std::array<int, 6> tied = tied_cell_parameters(cell, spg.crystalsys);
  std::array<double, 6> sigma{};
  for (std::size_t i = 0; i < 3; ++i) {
    sigma[i] = double{cell.cell_std[i]};
    sigma[3 + i] = double{cell.ang_std[i]};
  }
  mat6d covariance{};
  for (std::size_t i = 0; i < 6; ++i)
    for (std::size_t j = 0; j < 6; ++j)
      if (tied[i] >= 0 && tied[i] == tied[j]) covariance[i][j] = sigma[i] * sigma[j];
  return covariance;
}

mat3d position_covariance(const vec3d& x, const vec3d& x_std, const space_group_type& spg) {
  const auto stabilizer = get_stabilizerc(convert<float>(x), spg);
  const auto relations = lmix_crystallographic_symmetry::position_relations(stabilizer);
  mat3d covariance{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k)
        covariance[i][j] +=
            double{relations.coefficient[i][k]} * double{relations.coefficient[j][k]} * x_std[k] * x_std[k];
  return covariance;
}

std::optional<structure_type> make_structure(const crystal_cell_type& cell, const space_group_type& spg,
                                             lmix_atom_typedef::atom_list atoms, const mat6d* covariance) {
  structure_type s;
  s.to_cartesian = lmix_crystal_metrics::get_cryst_orthog_matrix(convert<double>(cell.cell), convert<double>(cell.ang),
                                                                 lmix_crystal_metrics::frame::CA);
  std::array<mat3f, 6> by_cell{};
  if (!inverse(s.to_cartesian) || spg.symop.empty() || get_deriv_orth_cell(cell, by_cell, "CA").err_crys)
    return std::nullopt;
  for (std::size_t k = 0; k < 6; ++k) s.by_cell[k] = convert<double>(by_cell[k]);
  s.cell_covariance = covariance != nullptr ? *covariance : cell_covariance(cell, spg);
  s.rcell = lmix_crystal_metrics::recip(convert<double>(cell.cell), convert<double>(cell.ang)).rcell;
  s.symop = spg.symop;
  s.atoms = std::move(atoms);
  for (const atom_type& atom : s.atoms) {
    const auto orbit = get_orbit(convert<float>(atom.x), spg);
    s.orbit.emplace_back(orbit.ptr.begin(), orbit.ptr.end());
  }
  return s;
}

vec3d position(const structure_type& s, const image_type& at) {
  const sym_oper_type& op = s.symop[at.op];
  vec3d x = sum(multiply(rotation(op), s.atoms[at.atom].x), translation(op));
  for (std::size_t i = 0; i < 3; ++i) x[i] += at.shift[i];
  return x;
}

std::string xyz_code(const structure_type& s, const image_type& at) {
  const sym_oper_type& op = s.symop[at.op];
  vector3 t = op.tr;
  for (std::size_t i = 0; i < 3; ++i) t[i] += static_cast<float>(at.shift[i]);
  return lmix_crystallographic_symmetry::get_symsymbi(op.rot, t);
}

std::string klm_code(const image_type& at) {
  std::string code = std::to_string(at.op + 1) + "_";
  for (const int shift : at.shift) {
    if (shift < -5 || shift > 4) return {};
    code += static_cast<char>('5' + shift);
  }
  return code;
}

measured distance(const structure_type& s, const image_type& a, const image_type& b) {
  return {norm(difference(cartesian(s, b), cartesian(s, a))), deviation(s, slopes_of_distance(s, a, b, 1))};
}

measured angle(const structure_type& s, const image_type& a, const image_type& b, const image_type& c) {
  const vec3d at_b = cartesian(s, b);
  const vec3d ba = difference(cartesian(s, a), at_b), bc = difference(cartesian(s, c), at_b);
  const double length_a = norm(ba), length_c = norm(bc);
  if (!(length_a > 0) || !(length_c > 0)) return {};
  const vec3d u = unit(ba), v = unit(bc);
  const double sine = norm(cross(u, v)), cosine = dot(u, v);
  measured result{atan2d(sine, cosine), 0};
  if (sine < 1e-7) return result;
  const vec3d by_a = scaled(degrees / (length_a * sine), difference(scaled(cosine, u), v));
  const vec3d by_c = scaled(degrees / (length_c * sine), difference(scaled(cosine, v), u));
  result.sigma = deviation(s, std::array<slope_type, 3>{{{a, by_a}, {b, scaled(-1, sum(by_a, by_c))}, {c, by_c}}});
  return result;
}

measured torsion(const structure_type& s, const image_type& a, const image_type& b, const image_type& c,
                 const image_type& d) {
  const vec3d at_b = cartesian(s, b), at_c = cartesian(s, c);
  const vec3d f = difference(cartesian(s, a), at_b), g = difference(at_b, at_c), h = difference(cartesian(s, d), at_c);
  const vec3d m = cross(f, g), n = cross(h, g);
  const double mm = dot(m, m), nn = dot(n, n), length = norm(g);
  constexpr double flat = 1e-12;  // sin^2 of the angle at b or c
  if (!(mm > flat * dot(f, f) * dot(g, g)) || !(nn > flat * dot(h, h) * dot(g, g))) return {};
  const vec3d by_a = scaled(-degrees * length / mm, m), by_d = scaled(degrees * length / nn, n);
  const vec3d turn =
      difference(scaled(degrees * dot(f, g) / (mm * length), m), scaled(degrees * dot(h, g) / (nn * length), n));
  const std::array<slope_type, 4> slopes{
      {{a, by_a}, {b, difference(turn, by_a)}, {c, scaled(-1, sum(turn, by_d))}, {d, by_d}}};
  return {atan2d(dot(cross(n, m), g) / length, dot(m, n)), deviation(s, slopes)};
}

std::vector<neighbour_type> coordination(const structure_type& s, std::size_t atom, double limit) {
  std::vector<neighbour_type> found;
  if (atom >= s.atoms.size() || !(limit > 0) || limit > longest_search) return found;
  const image_type centre{atom, 0, {}};
  const vec3d x0 = position(s, centre);
  const auto in_one_cell = [&](const image_type& first) {
    // n cells away along an axis, a component differs by delta + n, and none is larger than limit times a*.
    const vec3d delta = difference(position(s, first), x0);
    std::array<int, 3> low{}, high{};
    for (std::size_t i = 0; i < 3; ++i) {
      low[i] = static_cast<int>(std::ceil(-delta[i] - limit * s.rcell[i]));
      high[i] = static_cast<int>(std::floor(-delta[i] + limit * s.rcell[i]));
    }
    for (int i = low[0]; i <= high[0]; ++i)
      for (int j = low[1]; j <= high[1]; ++j)
        for (int k = low[2]; k <= high[2]; ++k) {
          const vec3d r = multiply(s.to_cartesian, sum(delta, {double(i), double(j), double(k)}));
          const double d = norm(r);
          if (d < same_site || d > limit) continue;
          const image_type image{first.atom, first.op, {i, j, k}};
          found.push_back({image, {d, deviation(s, slopes_of_distance(s, centre, image, 1))}});
        }
  };
  for (std::size_t other = 0; other < s.atoms.size(); ++other)
    for (const std::size_t op : s.orbit[other]) in_one_cell({other, op, {}});
  // Equal distances stay in the order of the atoms and operators, whatever their last digits say.
  const auto key = [](const neighbour_type& n) { return std::llround(n.d.value * 1e5); };
  std::stable_sort(found.begin(), found.end(),
                   [&](const neighbour_type& x, const neighbour_type& y) { return key(x) < key(y); });
  return found;
}

std::vector<std::vector<neighbour_type>> calc_dist(const structure_type& s, double limit) {
  std::vector<std::vector<neighbour_type>> lists;
  for (std::size_t atom = 0; atom < s.atoms.size(); ++atom) lists.push_back(coordination(s, atom, limit));
  return lists;
}

std::vector<angle_type> calc_angles(const structure_type& s, std::size_t atom,
                                    std::span<const neighbour_type> neighbours) {
  std::vector<angle_type> angles;
  for (std::size_t i = 0; i < neighbours.size(); ++i)
    for (std::size_t j = i + 1; j < neighbours.size(); ++j)
      angles.push_back({i, j, angle(s, neighbours[i].image, {atom, 0, {}}, neighbours[j].image)});
  return angles;
}

bvs_type bond_valence_sum(const structure_type& s, std::size_t atom, double limit) {
  bvs_type result;
  std::vector<slope_type> slopes;
  for (const neighbour_type& n : coordination(s, atom, limit)) {
    const atom_type &centre = s.atoms[atom], &other = s.atoms[n.image.atom];
    if (centre.charge == 0 || other.charge == 0 || (centre.charge > 0) == (other.charge > 0)) continue;
    const atom_type &cation = centre.charge > 0 ? centre : other, &anion = centre.charge > 0 ? other : centre;
    const auto* row = lmix_bvspar::find_bvs_par(cation.chemsymb, cation.charge, anion.chemsymb);
    if (row == nullptr) {
      ++result.n_missing;
      continue;
    }
    const double valence = other.occ * lmix_bvspar::bond_valence(*row, n.d.value);
    result.sum.value += valence;
    ++result.n_bonds;
    for (const auto& slope : slopes_of_distance(s, {atom, 0, {}}, n.image, -valence / lmix_bvspar::b_universal))
      slopes.push_back(slope);
  }
  result.sum.sigma = deviation(s, slopes);
  return result;
}

std::string write_geometry(const structure_type& s, double limit, double angle_limit) {
  const auto text = [](const measured& m) {
    return lmix_string_utilities::setnum_std(static_cast<float>(m.value), static_cast<float>(m.sigma)).line;
  };
  const auto padded = [](std::string word, std::size_t width) {
    if (word.size() < width) word.resize(width, ' ');
    return word;
  };
  std::string out;
  for (std::size_t atom = 0; atom < s.atoms.size(); ++atom) {
    const std::string& name = s.atoms[atom].lab;
    out +=
        " => Distances of atom " + name + " up to" + lmix_fixed_format::fmt_line{}.f(9, 4, float(limit)).str() + "\n";
    const auto list = coordination(s, atom, limit);
    for (const neighbour_type& n : list)
      out += "    " + padded("(" + name + ")-(" + s.atoms[n.image.atom].lab + ")", 24) + padded(text(n.d), 16) +
             padded(klm_code(n.image), 12) + xyz_code(s, n.image) + "\n";
    const auto bonds = std::span(list).first(static_cast<std::size_t>(
        std::count_if(list.begin(), list.end(), [&](const auto& n) { return n.d.value <= angle_limit; })));
    for (const angle_type& a : calc_angles(s, atom, bonds)) {
      const image_type &i = bonds[a.first].image, &j = bonds[a.second].image;
      out += "    " + padded("(" + s.atoms[i.atom].lab + ")-(" + name + ")-(" + s.atoms[j.atom].lab + ")", 32) +
             padded(text(a.value), 16) + padded(klm_code(i), 12) + klm_code(j) + "\n";
    }
  }
  return out;
}

}  // namespace lmix_geometry_calc

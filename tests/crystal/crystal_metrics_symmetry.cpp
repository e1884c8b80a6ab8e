// Lattice symmetry found from numbers, matrices between cells, strain.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "lmix_crystal_metrics.hpp"

using namespace lmix_crystal_metrics;
using namespace lmix_math_general;

namespace {

struct lattice {
  char letter, family;
  int n_twofold;
  vec3d len, ang;
};

// One of each Bravais type, and shapes that look like a higher one from the side.
const std::vector<lattice> lattices{
    {'P', 'a', 0, {8.1, 12.8, 7.1}, {94.2, 116.6, 87.8}}, {'P', 'm', 1, {5.1, 9.7, 8.9}, {90, 105.6, 90}},
    {'C', 'm', 1, {9.7, 8.9, 5.2}, {90, 105.6, 90}},      {'P', 'o', 3, {4.7, 6.0, 10.2}, {90, 90, 90}},
    {'C', 'o', 3, {4.7, 10.2, 6.0}, {90, 90, 90}},        {'I', 'o', 3, {4.7, 6.0, 10.2}, {90, 90, 90}},
    {'F', 'o', 3, {4.7, 6.0, 10.2}, {90, 90, 90}},        {'P', 't', 5, {4.594, 4.594, 2.959}, {90, 90, 90}},
    {'I', 't', 5, {3.785, 3.785, 9.514}, {90, 90, 90}},   {'R', 'h', 3, {4.76, 4.76, 12.99}, {90, 90, 120}},
    {'R', 'h', 3, {4.5, 4.5, 6.1}, {90, 90, 120}},        {'P', 'h', 7, {3.25, 3.25, 5.21}, {90, 90, 120}},
    {'P', 'c', 9, {3.9, 3.9, 3.9}, {90, 90, 90}},         {'I', 'c', 9, {2.87, 2.87, 2.87}, {90, 90, 90}},
    {'F', 'c', 9, {5.43, 5.43, 5.43}, {90, 90, 90}}};

/// Another primitive cell of the same lattice.
changed_cell disguised(const lattice& l, std::mt19937& random) {
  const auto primitive = get_primitive_cell(l.letter, l.len, l.ang);
  std::uniform_int_distribution<int> axis(0, 2), sign(0, 1);
  mat3d p = identity<double>();
  for (int k = 0; k < 5; ++k) {
    const int i = axis(random), j = (i + 1 + sign(random)) % 3;
    mat3d shear = identity<double>();
    shear[std::size_t(i)][std::size_t(j)] = sign(random) == 0 ? 1 : -1;
    p = multiply(p, shear);
  }
  return *change_setting_cell(primitive->cell, primitive->ang, p);
}

double volume(const vec3d& len, const vec3d& ang) { return recip(len, ang).vol; }

lengths_and_angles of(const vec3d& len, const vec3d& ang) { return {len, ang}; }

}  // namespace

TEST(ConventionalCell, IsFoundFromAnyPrimitiveCell) {
  std::mt19937 random(5);
  for (const lattice& l : lattices) {
    for (int trial = 0; trial < 20; ++trial) {
      SCOPED_TRACE(testing::Message() << l.letter << l.family << ' ' << trial);
      const auto primitive = disguised(l, random);
      conventional_cell c;
      ASSERT_FALSE(get_conventional_cell(primitive.cell, primitive.ang, 0.05, c).err_crys);
      EXPECT_EQ(c.lattice, l.letter);
      EXPECT_EQ(c.family, l.family);
      EXPECT_EQ(c.n_twofold, l.n_twofold);
      EXPECT_LT(c.delta, 1e-5);
      EXPECT_LT(c.mismatch, 1e-10);
      EXPECT_GT(determinant(c.to.p), 0.5);
      EXPECT_NEAR(volume(c.to.cell, c.to.ang), volume(l.len, l.ang), 1e-8);
      if (l.family == 'm') {
        EXPECT_NEAR(c.to.cell[1], l.len[1], 1e-9);
        EXPECT_GE(c.to.ang[1], 90);
      }
      if (l.family == 'a' || l.family == 'm') continue;  // other axes of the same lattice may be as good
      for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(c.to.cell[i], l.len[i], 1e-9);
        EXPECT_NEAR(c.to.ang[i], l.ang[i], 1e-7);
      }
    }
  }
}

TEST(ConventionalCell, RhombohedralAxesAreObverse) {
  std::mt19937 random(6);
  for (int trial = 0; trial < 10; ++trial) {
    const auto primitive = disguised(lattices[9], random);
    conventional_cell c;
    ASSERT_FALSE(get_conventional_cell(primitive.cell, primitive.ang, 0.05, c).err_crys);
    const vec3d u = multiply(c.to.p, vec3d{2.0 / 3, 1.0 / 3, 1.0 / 3});
    for (const double x : u) EXPECT_NEAR(x, std::round(x), 1e-9);
  }
}

TEST(ConventionalCell, ToleranceDecidesForALatticeThatIsNearlyCubic) {
  // A tetragonal cell with c/a = 1.002: the diagonal axes of the cube are off by atan(1.002) - 45 degrees and the like.
  const auto p = get_primitive_cell('F', {5, 5, 5.01}, {90, 90, 90});
  conventional_cell c;
  ASSERT_FALSE(get_conventional_cell(p->cell, p->ang, 0.5, c).err_crys);
  EXPECT_EQ(c.family, 'c');
  EXPECT_NEAR(c.delta, 2 * (std::atan(1.002) - std::atan(1.0)) * 180 / M_PI, 1e-3);
  EXPECT_NEAR(c.mismatch, 0.01 / 5.01, 1e-9);
  ASSERT_FALSE(get_conventional_cell(p->cell, p->ang, 0.05, c).err_crys);
  EXPECT_EQ(c.family, 't');
  EXPECT_EQ(c.lattice, 'I');  // a face-centred tetragonal lattice has a smaller body-centred cell
  EXPECT_NEAR(c.to.cell[0], 5 / std::sqrt(2.0), 1e-9);
  EXPECT_TRUE(get_conventional_cell({5, 5, 5}, {40, 40, 100}, 0.5, c).err_crys);
}

TEST(TwofoldAxes, StandNormalToTheirPlanes) {
  std::mt19937 random(7);
  for (const lattice& l : lattices) {
    const auto primitive = disguised(l, random);
    const auto axes = get_twofold_axes(primitive.cell, primitive.ang, 0.1);
    ASSERT_EQ(int(axes.size()), l.n_twofold) << l.letter << l.family;
    const mat3d g = metrics(primitive.cell, primitive.ang);
    for (const auto& x : axes) {
      const vec3d u{double(x.direct[0]), double(x.direct[1]), double(x.direct[2])};
      const vec3d h{double(x.reciprocal[0]), double(x.reciprocal[1]), double(x.reciprocal[2])};
      EXPECT_EQ(dot(u, h), x.product);
      EXPECT_NEAR(x.length, std::sqrt(dot(u, multiply(g, u))), 1e-9);
      // The rotation r -> 2 u (h.r)/(h.u) - r is a matrix of whole numbers and leaves the metric as it is.
      mat3d rotation;
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) rotation[i][j] = 2 * u[i] * h[j] / x.product - (i == j);
      const mat3d turned = multiply(transpose(rotation), multiply(g, rotation));
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) {
          EXPECT_EQ(rotation[i][j], std::round(rotation[i][j]));
          EXPECT_NEAR(turned[i][j], g[i][j], 1e-7);
        }
    }
  }
}

TEST(TransfmMatrix, IsFoundBetweenCellsOfOneLattice) {
  const vec3d len{8.1, 12.8, 7.1}, ang{94.2, 116.6, 87.8};
  for (const mat3d& p : {mat3d{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, mat3d{{{1, 1, 0}, {-1, 1, 0}, {0, 0, 1}}},
                         mat3d{{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}}, mat3d{{{2, 1, 0}, {0, 1, -1}, {1, 0, 1}}}}) {
    const auto to = change_setting_cell(len, ang, p);
    const auto found = get_transfm_matrix(len, ang, to->cell, to->ang);
    ASSERT_TRUE(found);
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) EXPECT_EQ(found->p[i][j], p[i][j]);
  }
  const auto half = change_setting_cell(len, ang, {{{0.5, 0.5, 0}, {-0.5, 0.5, 0}, {0, 0, 1}}});
  EXPECT_FALSE(get_transfm_matrix(len, ang, half->cell, half->ang));
  ASSERT_TRUE(get_transfm_matrix(len, ang, half->cell, half->ang, 0.01, 0.5, 2));
  EXPECT_EQ(get_transfm_matrix(len, ang, half->cell, half->ang, 0.01, 0.5, 2)->p[1][0], -0.5);
  EXPECT_FALSE(get_transfm_matrix(len, ang, {3, 3, 3}, {90, 90, 90}));
  // Of the 24 rotations of a cube the identity stands for all.
  const auto cube = get_transfm_matrix({5, 5, 5}, {90, 90, 90}, {5.01, 5.01, 5.01}, {90, 90, 90});
  ASSERT_TRUE(cube);
  EXPECT_EQ(cube->p, identity<double>());
}

TEST(Eigen, ValuesAndVectorsRebuildTheMatrix) {
  std::mt19937 random(9);
  std::normal_distribution<double> normal;
  for (int trial = 0; trial < 200; ++trial) {
    mat3d m;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = i; j < 3; ++j) m[i][j] = m[j][i] = trial % 5 == 0 && i != j ? 0.0 : normal(random);
    const eigen3 e = symmetric_eigen(m);
    EXPECT_GE(e.value[0], e.value[1]);
    EXPECT_GE(e.value[1], e.value[2]);
    EXPECT_NEAR(determinant(e.vector), 1, 1e-13);
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) {
        double sum = 0;
        for (std::size_t k = 0; k < 3; ++k) sum += e.value[k] * e.vector[k][i] * e.vector[k][j];
        EXPECT_NEAR(sum, m[i][j], 1e-13);
      }
  }
  EXPECT_TRUE(std::isnan(symmetric_eigen({{{NAN, 1, 0}, {1, 2, 0}, {0, 0, 1}}}).value[0]));
}

TEST(CellStrain, OrthogonalAxesAreStretchedByTheirRatios) {
  const auto cell0 = of({4, 5, 6}, {90, 90, 90}), cell1 = of({4.04, 4.9, 6}, {90, 90, 90});
  struct row {
    strain_measure kind;
    double xx, yy;
  };
  for (const row t : {row{strain_measure::infinitesimal, 0.01, -0.02},
                      row{strain_measure::lagrangian, (1.01 * 1.01 - 1) / 2, (0.98 * 0.98 - 1) / 2},
                      row{strain_measure::eulerian, (1 - 1 / (1.01 * 1.01)) / 2, (1 - 1 / (0.98 * 0.98)) / 2}}) {
    const auto e = *calc_cell_strain(t.kind, cell0, cell1);
    EXPECT_NEAR(e[0][0], t.xx, 1e-12);
    EXPECT_NEAR(e[1][1], t.yy, 1e-12);
    EXPECT_NEAR(e[2][2], 0, 1e-12);
    const auto p = *calc_paxes_angles(e, cell0);
    EXPECT_NEAR(p.value[0], t.xx, 1e-12);
    EXPECT_NEAR(p.to_direct[0][0] > 90 ? 180 - p.to_direct[0][0] : p.to_direct[0][0], 0, 1e-5);
    EXPECT_NEAR(p.to_direct[0][1], 90, 1e-5);
    EXPECT_NEAR(p.to_reciprocal[2][1] > 90 ? 180 - p.to_reciprocal[2][1] : p.to_reciprocal[2][1], 0, 1e-5);
  }
  EXPECT_FALSE(calc_cell_strain(strain_measure::lagrangian, cell0, of({5, 6, 7}, {40, 40, 100})));
}

TEST(CellStrain, DeformedMetricIsTheInverseInEveryFrame) {
  const auto cell0 = of({8.1, 12.8, 7.1}, {94.2, 116.6, 87.8}), cell1 = of({8.3, 12.5, 7.2}, {95.0, 115.2, 88.9});
  const mat3d g1 = metrics(cell1.len, cell1.ang);
  mat3d lagrange_ca{};
  for (const frame code : {frame::CA, frame::AC, frame::BC, frame::BA, frame::CB}) {
    for (const strain_measure kind : {strain_measure::lagrangian, strain_measure::eulerian}) {
      const auto e = calc_cell_strain(kind, cell0, cell1, code);
      ASSERT_TRUE(e);
      const auto g = calc_deformed_metric(kind, cell0, *e, code);
      ASSERT_TRUE(g);
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) EXPECT_NEAR((*g)[i][j], g1[i][j], 1e-10) << int(code) << int(kind);
    }
    // Principal values and the angles of their axes to the cell belong to the crystal, not to the frame.
    const auto e = *calc_cell_strain(strain_measure::lagrangian, cell0, cell1, code);
    const auto p = *calc_paxes_angles(e, cell0, code);
    if (code == frame::CA) lagrange_ca = p.to_direct;
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) {
        const double a = p.to_direct[i][j], b = lagrange_ca[i][j];
        EXPECT_NEAR(std::abs(cosd(a)), std::abs(cosd(b)), 1e-9) << int(code);
      }
  }
  EXPECT_FALSE(calc_deformed_metric(strain_measure::lagrangian, cell0, {{{-0.6, 0, 0}, {0, 0, 0}, {0, 0, 0}}}));
  EXPECT_FALSE(calc_deformed_metric(strain_measure::eulerian, cell0, {{{0.6, 0, 0}, {0, 0, 0}, {0, 0, 0}}}));
}

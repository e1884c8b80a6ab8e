// Cells: identities of metrics and frames, derivatives against differences, conversions and their inverses, reduction.
#include "lmix_crystal_metrics.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <sstream>

using namespace lmix_crystal_metrics;
using namespace lmix_math_general;

namespace {

struct named_cell {
  const char* name;
  vec3f len, ang;
};
const std::array<named_cell, 6> cells{{{"cubic", {5.43f, 5.43f, 5.43f}, {90, 90, 90}},
                                       {"orthorhombic", {4.7f, 10.2f, 6.0f}, {90, 90, 90}},
                                       {"hexagonal", {4.76f, 4.76f, 12.99f}, {90, 90, 120}},
                                       {"rhombohedral", {5.13f, 5.13f, 5.13f}, {55.3f, 55.3f, 55.3f}},
                                       {"monoclinic", {9.7f, 8.9f, 5.2f}, {90, 105.6f, 90}},
                                       {"triclinic", {8.1f, 12.8f, 7.1f}, {94.2f, 116.6f, 87.8f}}}};
const std::array<const char*, 5> codes{"CA", "AC", "BC", "BA", "CB"};

crystal_cell_type made(const named_cell& c, const char* code = "") {
  crystal_cell_type cell;
  EXPECT_FALSE(set_crystal_cell(c.len, c.ang, cell, code).err_crys) << c.name;
  return cell;
}

void expect_equal(const mat3f& x, const mat3f& y, float relative, const std::string& what) {
  float size = 0;
  for (const auto& row : y)
    for (const float v : row) size = std::max(size, std::abs(v));
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) EXPECT_NEAR(x[i][j], y[i][j], relative * size) << what << ' ' << i << j;
}

}  // namespace

TEST(SetCrystalCell, FramesKeepTheMetricAndLieAsTheirLettersSay) {
  for (const auto& c : cells) {
    for (const char* code : codes) {
      const std::string what = std::string(c.name) + ' ' + code;
      const auto cell = made(c, code);
      EXPECT_EQ(std::string(cell.cartype.data(), 2), code);
      expect_equal(multiply(transpose(cell.cr_orth_cel), cell.cr_orth_cel), cell.gd, 1e-6f, what + " M^T M = G");
      EXPECT_NEAR(determinant(cell.cr_orth_cel), cell.cellvol, 2e-6f * cell.cellvol) << what << ": right-handed";
      expect_equal(multiply(cell.cr_orth_cel, cell.orth_cr_cel), identity<float>(), 1e-6f, what);
      expect_equal(multiply(cell.gd, cell.gr), identity<float>(), 3e-6f, what + " G G* = 1");
      expect_equal(multiply(cell.bl_m, cell.bl_minv), identity<float>(), 1e-6f, what + " B B^-1");
      expect_equal(multiply(transpose(cell.bl_m), cell.bl_m), cell.gr, 1e-6f, what + " B^T B = G*");
      expect_equal(cell.bl_m, made(c, "CA").bl_m, 1e-6f, what + " B is the same in every frame");
      const std::size_t direct = std::size_t(code[0] - 'A'), reciprocal = std::size_t(code[1] - 'A');
      vec3f axis{}, unit{}, cartesian{};
      unit[direct] = 1;
      axis[direct] = 1;
      cart_u_vector("D", axis, cell, cartesian);
      EXPECT_NEAR(dot(cartesian, unit), 1.f, 1e-6f) << what;
      unit = axis = {};
      unit[reciprocal] = axis[reciprocal] = 1;
      cart_u_vector("R", axis, cell, cartesian);
      EXPECT_NEAR(dot(cartesian, unit), 1.f, 2e-6f) << what;
    }
  }
}

TEST(SetCrystalCell, KnownHexagonalNumbers) {
  const auto hex = made(cells[2]);
  EXPECT_NEAR(hex.cellvol, 4.76 * 4.76 * 12.99 * std::sqrt(0.75), 2 * FLT_EPSILON * 255);
  EXPECT_NEAR(hex.rcell[0], 2 / (std::sqrt(3.0) * 4.76), 1e-7);
  EXPECT_EQ(hex.rang[2], 60.f);
  for (const auto& i : {0u, 1u}) {
    EXPECT_EQ(hex.gd[i][2], 0.f);  // right angles leave no rounding behind, in both tensors
    EXPECT_EQ(hex.gr[i][2], 0.f);
    EXPECT_EQ((*quadratic_form_from_cell({4.76, 4.76, 12.99, 90, 90, 120}))[3 + i], 0.0);
  }
}

TEST(SetCrystalCell, ZeroAnglesAreRightAngles) {
  crystal_cell_type cell;
  EXPECT_FALSE(set_crystal_cell({3, 4, 5}, {0, 0, 0}, cell).err_crys);
  EXPECT_EQ(cell.ang, (vec3f{90, 90, 90}));
  EXPECT_EQ(cell.cellvol, 60.f);
  EXPECT_EQ(cell.stdvol, 0.f);
}

TEST(SetCrystalCell, RefusesCellsThatCannotClose) {
  struct row {
    vec3f len, ang;
  };
  for (const row& t : {row{{5, 6, 7}, {40, 40, 100}}, row{{5, 6, 7}, {120, 120, 120}}, row{{0, 6, 7}, {90, 90, 90}},
                       row{{5, NAN, 7}, {90, 90, 90}}, row{{5, 6, 7}, {90, 180, 90}}}) {
    crystal_cell_type cell;
    const auto err = set_crystal_cell(t.len, t.ang, cell);
    EXPECT_TRUE(err.err_crys) << t.ang[0] << ' ' << t.ang[2];
    EXPECT_EQ(err.err_crys_mess, " Bad cell parameters ");
    EXPECT_EQ(cell.gd, mat3f{});
  }
  EXPECT_GT(recip(vec3f{5, 6, 7}, vec3f{40, 40, 100}).vol, 0.f);
}

TEST(SetCrystalCell, FrameCodesAreCompletedOrRefused) {
  struct row {
    const char *given, *taken;
    bool error;
  };
  for (const row t : {row{"", "CA", false}, row{"b", "BC", false}, row{"A", "AC", false}, row{"c", "CA", false},
                      row{"x", "CA", false}, row{" ba", "BA", false}, row{"ab", "CA", true}, row{"CAX", "CA", true}}) {
    crystal_cell_type cell;
    const auto err = set_crystal_cell(cells[5].len, cells[5].ang, cell, t.given);
    EXPECT_EQ(err.err_crys, t.error) << t.given;
    EXPECT_EQ(std::string(cell.cartype.data(), 2), t.taken);
    expect_equal(cell.cr_orth_cel, made(cells[5], t.taken).cr_orth_cel, 0.f, t.given);
    if (t.error) {
      EXPECT_EQ(err.err_crys_mess, "Invalid CarType in call to Get_Cryst_Orthog_Matrix. Reset to default");
    }
  }
}

TEST(VolumeSigma, IsThePropagationOfIndependentDeviations) {
  const vec3f scell{0.001f, 0.002f, 0.003f}, sang{0.01f, 0.02f, 0.03f};
  for (const auto& c : cells) {
    const auto volume = [&](std::size_t i, double h) {
      vec3d len = convert<double>(c.len), ang = convert<double>(c.ang);
      (i < 3 ? len[i] : ang[i - 3]) += h;
      return recip(len, ang).vol;
    };
    double variance = 0;
    for (std::size_t i = 0; i < 6; ++i) {
      const double slope = (volume(i, 1e-4) - volume(i, -1e-4)) / 2e-4;
      const double s = slope * double(i < 3 ? scell[i] : sang[i - 3]);
      variance += s * s;
    }
    crystal_cell_type cell;
    ASSERT_FALSE(set_crystal_cell(c.len, c.ang, cell, "", &scell, &sang).err_crys);
    EXPECT_NEAR(cell.stdvol, std::sqrt(variance), 1e-5 * std::sqrt(variance)) << c.name;
    ASSERT_FALSE(set_crystal_cell(c.len, c.ang, cell, "", &scell, nullptr).err_crys);
    EXPECT_EQ(cell.stdvol, 0.f) << "deviations count only when both are given";
  }
}

TEST(DerivOrthCell, AgreesWithCentralDifferencesInEveryFrame) {
  for (const auto& c : cells) {
    for (const char* code : codes) {
      std::array<mat3f, 6> de{};
      ASSERT_FALSE(get_deriv_orth_cell(made(c), de, code).err_crys);
      for (std::size_t k = 0; k < 6; ++k) {
        const auto moved = [&](double h) {
          vec3d len = convert<double>(c.len), ang = convert<double>(c.ang);
          (k < 3 ? len[k] : ang[k - 3]) += h;
          return get_cryst_orthog_matrix(len, ang, *find_frame(code));
        };
        const double h = 1e-4;
        const mat3d up = moved(h), down = moved(-h);
        for (std::size_t i = 0; i < 3; ++i)
          for (std::size_t j = 0; j < 3; ++j)
            EXPECT_NEAR(de[k][i][j], (up[i][j] - down[i][j]) / (2 * h), 2e-7) << c.name << code << k << i << j;
      }
    }
  }
  std::array<mat3f, 6> de{};
  EXPECT_EQ(get_deriv_orth_cell(made(cells[0]), de, "AB").err_crys_mess,
            "Invalid CarType in call to Get_Deriv_Orth_Cell");
}

// Random triclinic cells: one volume by every road, and conversions of displacements that come back.
TEST(SetCrystalCell, RandomCellsAgreeWithTheirOwnMatrices) {
  std::mt19937 random(31);
  std::uniform_real_distribution<float> length(3.f, 20.f), angle(62.f, 118.f);
  for (int trial = 0; trial < 300; ++trial) {
    const named_cell c{
        "random", {length(random), length(random), length(random)}, {angle(random), angle(random), angle(random)}};
    const auto r = recip(convert<double>(c.len), convert<double>(c.ang));
    const mat3d g = metrics(convert<double>(c.len), convert<double>(c.ang));
    if (determinant(g) < 0.02 * g[0][0] * g[1][1] * g[2][2]) continue;  // nearly flat
    SCOPED_TRACE(testing::Message() << c.ang[0] << ' ' << c.ang[1] << ' ' << c.ang[2]);
    const auto cell = made(c, codes[std::size_t(trial) % codes.size()]);
    EXPECT_NEAR(r.vol, std::sqrt(determinant(g)), 1e-10 * r.vol);
    EXPECT_NEAR(determinant(cell.cr_orth_cel), r.vol, 1e-5 * r.vol);
    EXPECT_NEAR(volume_from_cell(c.len, c.ang), r.vol, 1e-6 * r.vol);
    EXPECT_NEAR(cell.cellvol * cell.rcellvol, 1, 1e-6);
    expect_equal(cell.gr, convert<float>(*inverse(g)), 2e-5f, "reciprocal metric");
    const six_reals u{0.011f, 0.023f, 0.017f, 0.004f, -0.003f, 0.002f};
    const six_reals b = convert_u_b(u), beta = convert_u_betas(u, cell);
    for (const six_reals& back :
         {convert_b_u(b), convert_betas_u(beta, cell), convert_betas_u(convert_b_betas(b, cell), cell),
          convert_b_u(convert_betas_b(beta, cell))})
      for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(back[i], u[i], 3e-6f * std::abs(u[i]));
  }
}

TEST(Displacements, IsotropicMotionGivesTheDebyeWallerFactorOfB) {
  // Isotropic U means U_ij = U G*_ij/(a*_i a*_j); then the betas must give exp(-B s2) for every reflection.
  const float u = 0.02f, b = u * 78.95683f;
  for (const auto& c : cells) {
    const auto cell = made(c);
    const vec3f& r = cell.rcell;
    const six_reals iso{u,
                        u,
                        u,
                        u * cell.gr[0][1] / (r[0] * r[1]),
                        u * cell.gr[0][2] / (r[0] * r[2]),
                        u * cell.gr[1][2] / (r[1] * r[2])};
    EXPECT_NEAR(u_equiv(cell, iso), u, 1e-6f) << c.name;
    const six_reals beta = convert_u_betas(iso, cell);
    const vec3f h{3, -2, 4};
    const double exponent = beta[0] * h[0] * h[0] + beta[1] * h[1] * h[1] + beta[2] * h[2] * h[2] +
                            2 * (beta[3] * h[0] * h[1] + beta[4] * h[0] * h[2] + beta[5] * h[1] * h[2]);
    const double s2 = dot(h, multiply(cell.gr, h)) / 4;
    EXPECT_NEAR(exponent, b * s2, 1e-5 * b * s2) << c.name;
  }
}

TEST(CartVector, ModesAgree) {
  const auto cell = made(cells[5]);
  const vec3f v{0.3f, -1.2f, 0.7f};
  vec3f c{};
  cart_vector("D", v, cell, c);
  EXPECT_NEAR(dot(c, c), dot(v, multiply(cell.gd, v)), 1e-4);
  vec3f r{}, bl = v, bld{};
  cart_vector("r", v, cell, r);
  cart_vector("bl", {9, 9, 9}, cell, bl);  // the vector already in the result counts
  EXPECT_NEAR(dot(r, r), dot(v, multiply(cell.gr, v)), 1e-7);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(bl[i], r[i], 1e-6);  // in CA both frames are one
  cart_vector("BLD", v, cell, bld);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(bld[i], c[i], 1e-5);
  const vec3f before = c;
  for (const char* mode : {"", "X", "Bl", "bL", "dd"}) cart_vector(mode, v, cell, c);
  EXPECT_EQ(c, before);
}

TEST(Rotation, IsRightHandedAboutItsAxis) {
  const auto cell = made(cells[4]);
  const mat3f quarter = rot_matrix({0, 0, 2}, 90);
  EXPECT_EQ(multiply(quarter, vec3f{1, 0, 0}), (vec3f{0, 1, 0}));
  EXPECT_EQ(rot_matrix({0, 0, 0}, 90), quarter);
  const vec3f axis{1, 1, 0};
  const mat3f m = rot_matrix(axis, 77, &cell);
  const vec3f cartesian = multiply(cell.cr_orth_cel, axis), turned = multiply(m, cartesian);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(turned[i], cartesian[i], 1e-5);
  expect_equal(multiply(m, transpose(m)), identity<float>(), 1e-6f, "orthogonal");
  EXPECT_NEAR(m[0][0] + m[1][1] + m[2][2], 1 + 2 * cosd(77.f), 1e-6);
}

TEST(AngleToAxis, EqualsTheCellAngles) {
  const auto cell = made(cells[5], "AC");
  EXPECT_NEAR(angle_to_cell_axis(2, {1, 0, 0}, "D", cell), cell.ang[2], 1e-4);   // x lies along a
  EXPECT_NEAR(angle_to_cell_axis(1, {0, 0, 1}, "R", cell), cell.rang[1], 1e-4);  // z along c*
  EXPECT_NEAR(angle_to_cell_axis(2, {0, 0, 1}, "d", cell), 90.f, 1e-4);
  EXPECT_EQ(angle_to_cell_axis(4, {0, 0, 1}, "D", cell), 0.f);
  EXPECT_EQ(angle_to_cell_axis(1, {0, 0, 0}, "D", cell), 0.f);
}

TEST(CrystFamily, FollowsTheComparisonsInOrder) {
  struct row {
    vec3f len, ang;
    const char *family, *symbol, *system;
  };
  for (const row& t :
       {row{{5, 5, 5}, {90, 90, 90}, "Cubic", "c", "Cubic"},
        row{{5, 5, 6}, {90, 90, 90}, "Tetragonal", "t", "Tetragonal"},
        row{{4, 5, 6}, {90, 90, 90}, "Orthorhombic", "o", "Orthorhombic"},
        row{{4, 5, 5}, {90, 90, 90}, "Orthorhombic", "o", "Orthorhombic"},
        row{{5, 6, 5}, {90, 90, 90}, nullptr, "", ""}, row{{5, 5, 5}, {60, 60, 60}, "Hexagonal", "h", "Trigonal"},
        row{{5, 5, 6}, {60, 60, 60}, nullptr, "", ""}, row{{5, 5, 9}, {90, 90, 120}, "Hexagonal", "h", "Hexagonal"},
        row{{5, 6, 9}, {90, 90, 120}, nullptr, "", ""}, row{{5, 6, 9}, {90, 90, 101}, "Monoclinic", "m", "Monoclinic"},
        row{{5, 6, 9}, {88, 88, 101}, "Monoclinic", "m", "Monoclinic"},
        row{{5, 6, 9}, {90, 101, 90}, "Monoclinic", "m", "Monoclinic"}, row{{5, 6, 9}, {88, 101, 88}, nullptr, "", ""},
        row{{5, 6, 9}, {101, 90, 90}, "Triclinic", "a", "Triclinic"},
        row{{5, 6, 9}, {80, 85, 95}, "Triclinic", "a", "Triclinic"}}) {
    crystal_cell_type cell;
    cell.cell = t.len;
    cell.ang = t.ang;
    cryst_family family;
    const auto err = get_cryst_family(cell, family);
    SCOPED_TRACE(testing::Message() << t.len[1] << ' ' << t.len[2] << ' ' << t.ang[1] << ' ' << t.ang[2]);
    EXPECT_EQ(err.err_crys, t.family == nullptr);
    EXPECT_EQ(family.car_family, t.family == nullptr ? "" : t.family);
    EXPECT_EQ(family.car_symbol, t.symbol);
    EXPECT_EQ(family.car_system, t.system);
    if (t.family == nullptr) {
      EXPECT_EQ(err.err_crys_mess, " Error obtaining Crystal Familiy");
    }
  }
}

// ---- changes of cell

TEST(PrimitiveCell, VolumesAndKnownShapes) {
  struct row {
    char lattice;
    double part;
  };
  for (const row t : {row{'P', 1}, row{'A', 2}, row{'B', 2}, row{'C', 2}, row{'I', 2}, row{'F', 4}, row{'R', 3}}) {
    const auto p = get_primitive_cell(t.lattice, {8.1, 12.8, 7.1}, {94, 116, 88});
    ASSERT_TRUE(p) << t.lattice;
    EXPECT_NEAR(determinant(p->p), 1 / t.part, 1e-12) << t.lattice;  // right-handed
    EXPECT_NEAR(recip(p->cell, p->ang).vol * t.part, recip(vec3d{8.1, 12.8, 7.1}, vec3d{94, 116, 88}).vol, 1e-9);
  }
  const auto f = get_primitive_cell('F', {5, 5, 5}, {90, 90, 90}), i = get_primitive_cell('I', {5, 5, 5}, {90, 90, 90});
  EXPECT_NEAR(f->ang[1], 60, 1e-10);
  EXPECT_NEAR(f->cell[2], 5 / std::sqrt(2.0), 1e-12);
  EXPECT_NEAR(i->ang[0], std::acos(-1.0 / 3) * 180 / M_PI, 1e-10);
  const auto r = get_primitive_cell('R', {4.76, 4.76, 12.99}, {90, 90, 120});
  EXPECT_NEAR(r->cell[0], r->cell[2], 1e-12);
  EXPECT_NEAR(r->ang[0], r->ang[1], 1e-10);
  EXPECT_FALSE(get_primitive_cell('X', {5, 5, 5}, {90, 90, 90}));
}

TEST(NiggliCell, ReducesThePublishedExamples) {
  // I. Krivy & B. Gruber (1976): A = 9, B = 27, C = 4, xi = -5, eta = -4, zeta = -22 gives 4, 9, 9, 9, 3, 4.
  const vec3d len{3, std::sqrt(27.0), 2};
  const vec3d ang{acosd(-5.0 / (2 * len[1] * len[2])), acosd(-4.0 / (2 * len[0] * len[2])),
                  acosd(-22.0 / (2 * len[0] * len[1]))};
  changed_cell n;
  ASSERT_FALSE(niggli_cell(len, ang, n).err_crys);
  const mat3d g = metrics(n.cell, n.ang);
  const std::array<double, 6> form{g[0][0], g[1][1], g[2][2], 2 * g[1][2], 2 * g[0][2], 2 * g[0][1]};
  const std::array<double, 6> published{4, 9, 9, 9, 3, 4};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(form[i], published[i], 1e-9) << i;

  const auto f = get_primitive_cell('F', {5, 5, 5}, {90, 90, 90});
  ASSERT_FALSE(niggli_cell(f->cell, f->ang, n).err_crys);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(n.ang[i], 60, 1e-9);
  EXPECT_EQ(niggli_cell({5, 6, 7}, {40, 40, 100}, n).err_crys_mess, " Bad cell parameters ");
}

TEST(NiggliCell, IsTheSameFromEveryBasisOfALattice) {
  std::mt19937 random(20240607);  // seed of the sequence
  std::uniform_int_distribution<int> pick(0, 2), sign(0, 1);
  for (const auto& c : cells) {
    changed_cell reference;
    ASSERT_FALSE(niggli_cell(convert<double>(c.len), convert<double>(c.ang), reference).err_crys);
    for (int trial = 0; trial < 40; ++trial) {
      mat3d p = identity<double>();
      for (int k = 0; k < 6; ++k) {  // add or subtract one axis to another: any basis of the lattice
        const int i = pick(random), j = (i + 1 + sign(random)) % 3;
        mat3d shear = identity<double>();
        shear[std::size_t(i)][std::size_t(j)] = sign(random) == 0 ? 1 : -1;
        p = multiply(p, shear);
      }
      const auto other = change_setting_cell(convert<double>(c.len), convert<double>(c.ang), p);
      ASSERT_TRUE(other);
      changed_cell n;
      ASSERT_FALSE(niggli_cell(other->cell, other->ang, n).err_crys);
      EXPECT_NEAR(determinant(n.p), 1, 1e-9);
      const auto again = change_setting_cell(other->cell, other->ang, n.p);
      for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(n.cell[i], reference.cell[i], 1e-4) << c.name << trial;
        EXPECT_NEAR(n.ang[i], reference.ang[i], 1e-3) << c.name << trial;
        EXPECT_NEAR(n.cell[i], again->cell[i], 1e-9);
      }
    }
  }
}

// ---- quadratic form

TEST(QuadraticForm, GivesOneOverDSquaredAndComesBack) {
  for (const auto& c : cells) {
    const auto cell = made(c);
    const cell_parameters p{c.len[0], c.len[1], c.len[2], c.ang[0], c.ang[1], c.ang[2]};
    const auto q = quadratic_form_from_cell(p);
    ASSERT_TRUE(q);
    const double h = 2, k = -3, l = 5;
    const double d2 =
        (*q)[0] * h * h + (*q)[1] * k * k + (*q)[2] * l * l + (*q)[3] * k * l + (*q)[4] * h * l + (*q)[5] * h * k;
    const vec3f hkl{2, -3, 5};
    EXPECT_NEAR(d2, dot(hkl, multiply(cell.gr, hkl)), 2e-6 * d2) << c.name;
    EXPECT_NEAR((*q)[3], 2 * double(cell.rcell[1]) * cell.rcell[2] * cosd(double(cell.rang[0])), 1e-8) << c.name;
    const auto back = cell_from_quadratic_form(*q);
    ASSERT_TRUE(back);
    for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR((*back)[i], p[i], 1e-11 * p[i]) << c.name;
  }
  EXPECT_FALSE(quadratic_form_from_cell({5, 6, 7, 40, 40, 100}));
  EXPECT_FALSE(quadratic_form_from_cell({5, 6, 7, 120, 120, 120}));
  EXPECT_FALSE(quadratic_form_from_cell({5, 6, -7, 90, 90, 90}));
  for (const quadratic_form& q : {quadratic_form{}, quadratic_form{0.04, 0.04, 0.04, 0, 0, 0.081},
                                  quadratic_form{0.04, -0.04, 0.04, 0, 0, 0}, quadratic_form{0.04, NAN, 0.04, 0, 0, 0}})
    EXPECT_FALSE(cell_from_quadratic_form(q));
}

TEST(QuadraticForm, DerivativesAndSigmasAgreeWithDifferences) {
  for (const auto& c : cells) {
    const auto q = *quadratic_form_from_cell({c.len[0], c.len[1], c.len[2], c.ang[0], c.ang[1], c.ang[2]});
    mat6d cov{}, root{};  // cov = root root^T, a full positive matrix of sigmas near 1e-6
    for (std::size_t i = 0; i < 6; ++i)
      for (std::size_t j = 0; j <= i; ++j) root[i][j] = 1e-6 * (i == j ? 1.0 : 0.3 * std::sin(double(7 * i + j)));
    for (std::size_t i = 0; i < 6; ++i)
      for (std::size_t j = 0; j < 6; ++j)
        for (std::size_t k = 0; k < 6; ++k) cov[i][j] += root[i][k] * root[j][k];
    const auto direct = direct_cell_from_quadratic_form(q, cov);
    ASSERT_TRUE(direct);
    cell_parameters variance{};
    for (std::size_t k = 0; k < 6; ++k) {  // along each column of the root, which is one independent deviation
      quadratic_form up = q, down = q;
      for (std::size_t i = 0; i < 6; ++i) {
        up[i] += root[i][k];
        down[i] -= root[i][k];
      }
      const auto high = *cell_from_quadratic_form(up), low = *cell_from_quadratic_form(down);
      for (std::size_t i = 0; i < 6; ++i) variance[i] += (high[i] - low[i]) * (high[i] - low[i]) / 4;
    }
    for (std::size_t i = 0; i < 6; ++i)
      EXPECT_NEAR(direct->sigma[i], std::sqrt(variance[i]), 1e-5 * direct->sigma[i]) << c.name << i;
  }
}

TEST(QuadraticForm, AnglesBoundBySymmetryHaveNoSigma) {
  const auto q = *quadratic_form_from_cell({4.76, 4.76, 12.99, 90, 90, 120});
  EXPECT_NEAR(q[5], q[0], 1e-15);  // hexagonal: A = B = F
  mat6d cov{};
  for (const std::size_t i : {0u, 1u, 5u})
    for (const std::size_t j : {0u, 1u, 5u}) cov[i][j] = 1e-12;
  cov[2][2] = 1e-14;
  const auto direct = *direct_cell_from_quadratic_form(q, cov);
  EXPECT_EQ(direct.sigma[3], 0);
  EXPECT_EQ(direct.sigma[4], 0);
  EXPECT_EQ(direct.sigma[5], 0);
  EXPECT_NEAR(direct.sigma[0], 1e-6 * 4.76 / (2 * q[0]), 1e-10);  // a ~ A^(-1/2)
  EXPECT_NEAR(direct.sigma[0], direct.sigma[1], 1e-12);
  EXPECT_NEAR(direct.sigma[2], 1e-7 * 12.99 / (2 * q[2]), 1e-10);
}

// ---- listing and file

TEST(CellListing, HoldsTheNumbersInTheirFields) {
  const std::string text = write_crystal_cell(made(cells[2], "BC"));
  for (const char* part :
       {"Metric information:\n        -------------------\n", " => Direct cell parameters:",
        "a =      4.7600      alpha =      90.000\n", "gamma =     120.000\n", "Direct Cell Volume =    254.8905\n",
        " => Reciprocal cell parameters:", "gamma* =      60.000\n", " => Direct and Reciprocal Metric Tensors:", "GD",
        "GR", "     22.6576    -11.3288      0.0000         0.058847    0.029424    0.000000\n",
        " =>  Cartesian frame: y // b; x is in the ab-plane; z is x ^ y = c*\n", "Crystal_to_Orthonormal_Matrix",
        "Orthonormal_to_Crystal Matrix", "Busing-Levy B-matrix: Hc=B.H", "Inverse of the Busing-Levy B-matrix"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
  EXPECT_NE(write_crystal_cell(made(cells[2], "CB")).find("z // c; y is in the bc-plane"), std::string::npos);
  crystal_cell_type huge;
  huge.cell[0] = 1e20f;
  EXPECT_NE(write_crystal_cell(huge).find("a =************ "), std::string::npos);
}

TEST(CellFile, ComesBackAndAShortFileChangesNothing) {
  const vec3f scell{0.001f, 0.002f, 0.003f}, sang{0.01f, 0.02f, 0.03f};
  crystal_cell_type cell, back;
  ASSERT_FALSE(set_crystal_cell(cells[5].len, cells[5].ang, cell, "BA", &scell, &sang).err_crys);
  std::stringstream file;
  write_bin_crystal_cell(cell, file);
  const std::string bytes = file.str();
  EXPECT_EQ(bytes.size(), 4u * (6 * 3 + 6 * 9 + 3) + 2);
  ASSERT_TRUE(read_bin_crystal_cell(back, file));
  std::stringstream again;
  write_bin_crystal_cell(back, again);
  EXPECT_EQ(again.str(), bytes);
  EXPECT_EQ(std::string(back.cartype.data(), 2), "BA");
  crystal_cell_type kept = made(cells[0]);
  std::istringstream cut(bytes.substr(0, bytes.size() - 1));
  EXPECT_FALSE(read_bin_crystal_cell(kept, cut));
  EXPECT_EQ(kept.cell, cells[0].len);
}

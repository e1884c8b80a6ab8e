// Distances, angles, torsion angles, neighbours and bond valences of known structures; deviations against differences.
#include "lmix_geometry_calc.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "lmix_bvspar.hpp"
#include "lmix_scattering_chemical_tables.hpp"

using namespace lmix_geometry_calc;
using namespace lmix_math_general;
using lmix_atom_typedef::atom_list;
using lmix_atom_typedef::atom_type;
using lmix_crystal_metrics::crystal_cell_type;
using lmix_crystallographic_symmetry::space_group_type;

namespace {

crystal_cell_type cell_of(vec3f len, vec3f ang, vec3f slen = {}, vec3f sang = {}) {
  crystal_cell_type cell;
  EXPECT_FALSE(set_crystal_cell(len, ang, cell, "", &slen, &sang).err_crys);
  return cell;
}
space_group_type group_of(const char* symbol) {
  space_group_type spg;
  EXPECT_FALSE(set_spacegroup(symbol, spg).err_symm) << symbol;
  return spg;
}
atom_type atom(const char* lab, const char* symb, int charge, vec3d x, vec3d x_std = {}) {
  atom_type a{lab, symb, charge, x, {}, 1.0};
  for (std::size_t i = 0; i < 3; ++i) a.x_covariance[i][i] = x_std[i] * x_std[i];
  return a;
}
structure_type structure(const crystal_cell_type& cell, const char* symbol, const atom_list& atoms) {
  auto s = make_structure(cell, group_of(symbol), atoms);
  EXPECT_TRUE(s);
  return *s;
}

// alpha-Al2O3: L. W. Finger & R. M. Hazen, J. Appl. Phys. 49 (1978) 5823-5826.
structure_type corundum() {
  return structure(
      cell_of({4.7570f, 4.7570f, 12.9877f}, {90, 90, 120}, {0.0006f, 0.0006f, 0.0035f}), "R -3 c",
      {atom("Al", "Al", 3, {0, 0, 0.35218}, {0, 0, 2e-5}), atom("O", "O", -2, {0.3063, 0, 0.25}, {1e-4, 0, 0})});
}

}  // namespace

TEST(Coordination, KnownStructures) {
  const auto al = coordination(corundum(), 0, 2.7);
  ASSERT_GE(al.size(), 7u);
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(al[i].d.value, i < 3 ? 1.854 : 1.972, 0.002) << i;  // as published
  EXPECT_EQ(al[6].image.atom, 0u);  // Al-Al across the shared face
  EXPECT_NEAR(al[6].d.value, 12.9877 * 2 * (0.35218 - 0.25), 1e-5);
  EXPECT_EQ(al.size(), 7u);

  const auto salt = structure(cell_of({5.64f, 5.64f, 5.64f}, {90, 90, 90}), "F m -3 m",
                              {atom("Na", "Na", 1, {0, 0, 0}), atom("Cl", "Cl", -1, {0.5, 0.5, 0.5})});
  const auto na = coordination(salt, 0, 5.0);
  ASSERT_EQ(na.size(), 6u + 12u + 8u);
  for (std::size_t i = 0; i < na.size(); ++i) {
    EXPECT_NEAR(na[i].d.value, 5.64 * std::sqrt(i < 6 ? 0.25 : i < 18 ? 0.5 : 0.75), 1e-5);
    EXPECT_EQ(na[i].image.atom, i < 6 || i >= 18 ? 1u : 0u);
  }
  int right = 0, straight = 0;
  for (const auto& a : calc_angles(salt, 0, std::span(na).first(6))) {
    right += std::abs(a.value.value - 90) < 1e-6;
    straight += std::abs(a.value.value - 180) < 1e-6;
  }
  EXPECT_EQ(right, 12);
  EXPECT_EQ(straight, 3);
  for (const double limit : {0.0, -1.0, 101.0, double(NAN)}) EXPECT_TRUE(coordination(salt, 0, limit).empty()) << limit;
  EXPECT_TRUE(coordination(salt, 2, 3).empty());
  EXPECT_FALSE(make_structure(cell_of({5, 5, 5}, {90, 90, 90}), space_group_type{}, {}));
}

// Every list equals a plain search over all operators and a block of cells, positions compared pair by pair.
TEST(Coordination, EqualsAPlainSearch) {
  struct row {
    const char* symbol;
    vec3f len, ang;
    vec3d x0, x1;
  };
  for (const row& r :
       {row{"P -1", {4.1f, 6.3f, 5.2f}, {80, 112, 97}, {0.1, 0.23, 0.34}, {0.5, 0.5, 0}},
        row{"C 2/c", {9.7f, 8.9f, 5.2f}, {90, 105.6f, 90}, {0, 0.3, 0.25}, {0.31, 0.09, 0.24}},
        row{"P 63/m m c", {3.2f, 3.2f, 5.2f}, {90, 90, 120}, {1.0 / 3, 2.0 / 3, 0.25}, {0, 0, 0}},
        row{"R -3 m:R", {5.1f, 5.1f, 5.1f}, {55, 55, 55}, {0.2, 0.2, 0.2}, {0.5, 0.5, 0.1}},
        row{"I 41/a m d:2", {3.785f, 3.785f, 9.514f}, {90, 90, 90}, {0, 0.75, 0.125}, {0, 0.75, 0.3336}}}) {
    SCOPED_TRACE(r.symbol);
    const auto s = structure(cell_of(r.len, r.ang), r.symbol, {atom("A", "Fe", 3, r.x0), atom("B", "O", -2, r.x1)});
    const double limit = 5.5;
    const auto lists = calc_dist(s, limit);
    for (std::size_t i = 0; i < 2; ++i) {
      std::vector<vec3d> plain;
      const vec3d x0 = s.atoms[i].x;
      for (std::size_t j = 0; j < 2; ++j)
        for (std::size_t op = 0; op < s.symop.size(); ++op)
          for (int k = 0; k < 9 * 9 * 9; ++k) {
            const vec3d x = position(s, {j, op, {k % 9 - 4, k / 9 % 9 - 4, k / 81 - 4}});
            const auto length = [&](const vec3d& u, const vec3d& v) {
              return norm(multiply(s.to_cartesian, vec3d{u[0] - v[0], u[1] - v[1], u[2] - v[2]}));
            };
            const double d = length(x, x0);
            if (d > limit || d < 0.05) continue;
            if (std::none_of(plain.begin(), plain.end(), [&](const vec3d& p) { return length(p, x) < 0.05; }))
              plain.push_back(x);
          }
      EXPECT_EQ(lists[i].size(), plain.size());
      EXPECT_GT(plain.size(), 10u);
      double last = 0;
      for (const auto& n : lists[i]) {
        EXPECT_NEAR(n.d.value, distance(s, {i, 0, {}}, n.image).value, 1e-12);
        EXPECT_GE(n.d.value, last - 1e-4);
        last = n.d.value;
      }
    }
  }
}

TEST(SymmetryCodes, NameTheOperatorAndTheCell) {
  const auto s = structure(cell_of({4, 5, 6}, {90, 100, 90}), "P 1 21/c 1", {atom("A", "Fe", 3, {0.1, 0.2, 0.3})});
  EXPECT_EQ(klm_code({0, 0, {}}), "1_555");
  EXPECT_EQ(klm_code({0, 2, {1, -1, -5}}), "3_640");
  EXPECT_EQ(klm_code({0, 2, {5, 0, 0}}), "");
  EXPECT_EQ(xyz_code(s, {0, 0, {}}), "x,y,z");
  for (const auto& n : coordination(s, 0, 7)) {
    lmix_crystallographic_symmetry::sym_oper_type op;
    ASSERT_FALSE(read_xsym(xyz_code(s, n.image), 0, op).err_symm) << xyz_code(s, n.image);
    const auto x = applyso(op, {0.1f, 0.2f, 0.3f});
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(x[i], position(s, n.image)[i], 1e-5) << xyz_code(s, n.image);
  }
}

TEST(Torsion, SignAndSize) {
  const auto s =
      structure(cell_of({10, 10, 10}, {90, 90, 90}), "P 1",
                {atom("A", "C", 0, {0.1, 0, 0}), atom("B", "C", 0, {0, 0, 0}), atom("C", "C", 0, {0, 0, 0.1}),
                 atom("D", "C", 0, {0, 0.1, 0.1}), atom("E", "C", 0, {-0.1, 0, 0.1}), atom("F", "C", 0, {0.1, 0, 0.1}),
                 atom("G", "C", 0, {0, 0, 0.2})});
  const auto phi = [&](std::size_t d) { return torsion(s, {0, 0, {}}, {1, 0, {}}, {2, 0, {}}, {d, 0, {}}); };
  EXPECT_NEAR(phi(3).value, 90, 1e-9);  // seen along +z, from x to y is clockwise
  EXPECT_NEAR(std::abs(phi(4).value), 180, 1e-9);
  EXPECT_NEAR(phi(5).value, 0, 1e-9);
  EXPECT_EQ(phi(6).value, 0);                                                               // b, c, d on a line
  EXPECT_NEAR(torsion(s, {3, 0, {}}, {2, 0, {}}, {1, 0, {}}, {0, 0, {}}).value, 90, 1e-9);  // the same backwards
  EXPECT_EQ(angle(s, {0, 0, {}}, {0, 0, {}}, {1, 0, {}}).value, 0);
}

// Each independent source of error (a column of a root of a covariance) moves the quantity; the squares add.
TEST(Deviations, AgreeWithDifferencesForImagesOfAllKinds) {
  const vec3f len{6.1f, 7.8f, 5.1f}, ang{90, 106.6f, 90};
  const space_group_type spg = group_of("P 1 21/c 1");
  mat6d cell_root{}, cell_cov{};
  for (std::size_t i = 0; i < 6; ++i)
    for (std::size_t j = 0; j <= i; ++j) cell_root[i][j] = 2e-3 * (i == j ? 1 : 0.4 * std::sin(double(5 * i + j)));
  for (std::size_t i = 0; i < 6; ++i)
    for (std::size_t j = 0; j < 6; ++j)
      for (std::size_t k = 0; k < 6; ++k) cell_cov[i][j] += cell_root[i][k] * cell_root[j][k];
  atom_list atoms{atom("A", "Fe", 3, {0.12, 0.23, 0.34}), atom("B", "O", -2, {0.41, 0.13, 0.22}),
                  atom("C", "O", -2, {0.05, 0.07, 0.61})};
  std::array<mat3d, 3> roots{};
  for (std::size_t a = 0; a < 3; ++a) {
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j <= i; ++j)
        roots[a][i][j] = 3e-4 * (i == j ? 1 : 0.5 * std::cos(double(9 * a + 3 * i + j)));
    atoms[a].x_covariance = multiply(roots[a], transpose(roots[a]));
  }
  const auto s = *make_structure(cell_of(len, ang), spg, atoms, &cell_cov);
  const image_type a{0, 0, {}}, b{1, 0, {}}, c{2, 2, {0, 1, -1}}, a_inverted{0, 2, {1, 0, 0}}, a_screw{0, 1, {}},
      a_next{0, 0, {0, 0, 1}}, b_glide{1, 3, {0, -1, 0}};
  using quantity = std::function<measured(const structure_type&)>;
  const std::vector<quantity> quantities{[&](const auto& t) { return distance(t, a, b); },
                                         [&](const auto& t) { return distance(t, a, a_inverted); },
                                         [&](const auto& t) { return distance(t, a, a_screw); },
                                         [&](const auto& t) { return distance(t, a, a_next); },
                                         [&](const auto& t) { return angle(t, b, a, c); },
                                         [&](const auto& t) { return angle(t, b, a, b_glide); },
                                         [&](const auto& t) { return angle(t, a_screw, a, a_next); },
                                         [&](const auto& t) { return torsion(t, b, a, c, b_glide); },
                                         [&](const auto& t) { return torsion(t, a, b, a_inverted, c); },
                                         [&](const auto& t) { return bond_valence_sum(t, 0, 4.0).sum; }};
  const auto moved = [&](const vec3d& x0, const mat3d& root, std::size_t column, double step) {
    vec3d x = x0;
    for (std::size_t i = 0; i < 3; ++i) x[i] += step * root[i][column];
    return x;
  };
  for (std::size_t q = 0; q < quantities.size(); ++q) {
    double variance = 0;
    for (std::size_t column = 0; column < 6; ++column) {
      const auto at = [&](double step) {
        structure_type t = s;
        vec3d l = convert<double>(len), g = convert<double>(ang);
        for (std::size_t i = 0; i < 6; ++i) (i < 3 ? l[i] : g[i - 3]) += step * cell_root[i][column];
        t.to_cartesian = lmix_crystal_metrics::get_cryst_orthog_matrix(l, g, lmix_crystal_metrics::frame::CA);
        return quantities[q](t).value;
      };
      variance += std::pow((at(0.1) - at(-0.1)) / 0.2, 2);
    }
    for (std::size_t atom_moved = 0; atom_moved < 3; ++atom_moved)
      for (std::size_t column = 0; column < 3; ++column) {
        const auto at = [&](double step) {
          structure_type t = s;
          t.atoms[atom_moved].x = moved(s.atoms[atom_moved].x, roots[atom_moved], column, step);
          return quantities[q](t).value;
        };
        variance += std::pow((at(0.1) - at(-0.1)) / 0.2, 2);
      }
    EXPECT_NEAR(quantities[q](s).sigma, std::sqrt(variance), 2e-5 * std::sqrt(variance)) << q;
    EXPECT_GT(variance, 0) << q;
  }
}

TEST(Deviations, SymmetryOfTheSiteAndOfTheCellCounts) {
  // To the image by an inversion centre the deviation doubles, to that by a lattice vector only the cell's part stays.
  const auto s = structure(cell_of({4, 5, 6}, {90, 90, 90}, {0.004f, 0.005f, 0.006f}), "P -1",
                           {atom("A", "Fe", 3, {0.1, 0, 0}, {0.001, 0, 0})});
  const image_type a{0, 0, {}};
  const double position_part = 2 * 0.001 * 4, cell_part = 0.2 * 0.004;
  EXPECT_NEAR(distance(s, a, {0, 1, {}}).sigma, std::hypot(position_part, cell_part), 1e-7);
  EXPECT_NEAR(distance(s, a, {0, 0, {0, 0, 1}}).sigma, 0.006, 1e-7);
  // A cubic cell has one length: a distance along the diagonal has its relative deviation, and no angle has any.
  const auto salt = structure(cell_of({5.64f, 5.64f, 5.64f}, {90, 90, 90}, {0.001f, 0.001f, 0.001f}), "F m -3 m",
                              {atom("Na", "Na", 1, {0, 0, 0}), atom("Cl", "Cl", -1, {0.5, 0.5, 0.5})});
  for (const auto& n : coordination(salt, 0, 8)) EXPECT_NEAR(n.d.sigma, n.d.value * 0.001 / 5.64, 1e-8);
  EXPECT_NEAR(angle(salt, {0, 0, {1, 0, 0}}, {0, 0, {}}, {0, 0, {1, 1, 0}}).sigma, 0, 1e-7);
  // (x, 2x, z): both coordinates move together.
  const auto spg = group_of("P 63 m c");
  const mat3d c = position_covariance({0.2, 0.4, 0.1}, {0.001, 0.002, 0.003}, spg);
  EXPECT_NEAR(c[0][1], 2e-6, 1e-12);
  EXPECT_NEAR(c[1][1], 4e-6, 1e-12);
  EXPECT_NEAR(c[2][2], 9e-6, 1e-12);
  EXPECT_EQ(position_covariance({1.0 / 3, 2.0 / 3, 0.1}, {0.001, 0.002, 0.003}, spg)[0][0], 0);
  const auto mono = cell_covariance(cell_of({4, 5, 6}, {90, 100, 90}, {1, 2, 3}, {4, 5, 6}), group_of("P 1 2/m 1"));
  EXPECT_EQ(mono[4][4], 25);
  EXPECT_EQ(mono[3][3], 0);
  const auto rhombohedral =
      cell_covariance(cell_of({5, 5, 5}, {55, 55, 55}, {1, 1, 1}, {2, 2, 2}), group_of("R -3 m:R"));
  EXPECT_EQ(rhombohedral[3][5], 4);
  EXPECT_EQ(rhombohedral[0][2], 1);
  const auto hexagonal = cell_covariance(cell_of({5, 5, 7}, {90, 90, 120}, {1, 1, 2}, {3, 3, 3}), group_of("R -3 m"));
  EXPECT_EQ(hexagonal[0][1], 1);
  EXPECT_EQ(hexagonal[0][2], 0);
  EXPECT_EQ(hexagonal[5][5], 0);
}

// Valences of ions in simple structures, cells from the literature at room temperature. A sum within 12 % of the charge
// is what the method reaches in unstrained crystals, within 5 % for small ions of high charge.
TEST(BondValence, SumsAreTheChargesInSimpleStructures) {
  struct row {
    const char *group, *cation, *anion;
    int charge, anion_charge;
    double a, x_anion;
  };
  for (const row& r : {row{"F m -3 m", "Mg", "O", 2, -2, 4.2112, 0.5}, row{"F m -3 m", "Ca", "O", 2, -2, 4.8105, 0.5},
                       row{"F m -3 m", "Mn", "O", 2, -2, 4.4457, 0.5}, row{"F m -3 m", "Co", "O", 2, -2, 4.2615, 0.5},
                       row{"F m -3 m", "Ni", "O", 2, -2, 4.177, 0.5}, row{"F m -3 m", "Cd", "O", 2, -2, 4.6953, 0.5},
                       row{"F m -3 m", "Na", "F", 1, -1, 4.634, 0.5}, row{"F m -3 m", "Ca", "F", 2, -1, 5.4631, 0.25},
                       row{"P m -3 m", "Ti", "O", 4, -2, 3.905, 0}, row{"P m -3 m", "Sn", "O", 4, -2, 4.116, 0},
                       row{"P m -3 m", "Hf", "O", 4, -2, 4.171, 0}, row{"P m -3 m", "V", "O", 4, -2, 3.842, 0},
                       row{"P m -3 m", "Ta", "O", 5, -2, 3.9885, 0}}) {
    const float a = float(r.a);
    const auto s =
        structure(cell_of({a, a, a}, {90, 90, 90}), r.group,
                  {atom("M", r.cation, r.charge, {0, 0, 0}),
                   atom("X", r.anion, r.anion_charge, {r.x_anion == 0 ? 0.5 : r.x_anion, r.x_anion, r.x_anion})});
    const auto m = bond_valence_sum(s, 0, 3.0), x = bond_valence_sum(s, 1, 3.0);
    EXPECT_EQ(m.n_bonds, r.x_anion == 0.25 ? 8 : 6);
    EXPECT_NEAR(m.sum.value, r.charge, (r.charge < 4 ? 0.12 : 0.05) * r.charge) << r.cation;
    if (r.x_anion > 0) {  // with the anion alone beside it the formula is neutral
      EXPECT_NEAR(x.sum.value * r.charge, -m.sum.value * r.anion_charge, 1e-6);
    }
  }
  const auto al = bond_valence_sum(corundum(), 0, 2.5);
  EXPECT_EQ(al.n_bonds, 6);
  EXPECT_NEAR(al.sum.value, 3, 0.1);
  EXPECT_GT(al.sum.sigma, 0);
  const auto unknown = structure(cell_of({4, 4, 4}, {90, 90, 90}), "F m -3 m",
                                 {atom("Po", "Po", 2, {0, 0, 0}), atom("O", "O", -2, {0.5, 0.5, 0.5})});
  EXPECT_EQ(bond_valence_sum(unknown, 0, 2.5).n_missing, 6);
  EXPECT_EQ(bond_valence_sum(unknown, 0, 2.5).sum.value, 0);
}

// An ion in n-fold coordination has bonds of valence z/n at the sum of Shannon's radii: R0 = d + b ln(z/n).
TEST(BondValence, ParametersAgreeWithTheIonicRadii) {
  using lmix_scattering_chemical_tables::find_ionic_radius;
  int compared = 0;
  for (const auto& row : lmix_bvspar::bvs_par()) {
    EXPECT_EQ(lmix_bvspar::find_bvs_par(row.cation, row.charge, row.anion), &row);
    const double anion = row.anion == "F " ? 1.31 : 1.38;  // fourfold F-, fourfold O2-
    if (row.cation == "SE" && row.charge == 4) {  // radius for six neighbours only; selenite has three bonds of 1.70
      EXPECT_NEAR(row.r0, 1.70 + lmix_bvspar::b_universal * std::log(4.0 / 3), 0.02);
      ++compared;
      continue;
    }
    const bool lone_pair = row.cation == "TE" && row.charge == 4;  // three near neighbours
    for (const int n : lone_pair ? std::array{3, 4, 6, 8, 12} : std::array{6, 4, 8, 12, 3}) {
      const auto* radius = find_ionic_radius(row.cation, row.charge, n);
      if (radius == nullptr) continue;
      const double r0 = double(radius->ionic) + anion + lmix_bvspar::b_universal * std::log(double(row.charge) / n);
      EXPECT_NEAR(row.r0, r0, 0.075) << row.cation << row.charge << " in " << n;
      ++compared;
      break;
    }
  }
  EXPECT_EQ(compared, int(lmix_bvspar::bvs_par().size()));
  EXPECT_EQ(lmix_bvspar::find_bvs_par("fe+3", 3, "O1")->r0, 1.759);
  // Antimonates: six bonds of 1.976, the mean of the published structures.
  EXPECT_NEAR(6 * lmix_bvspar::bond_valence(*lmix_bvspar::find_bvs_par("Sb", 5, "O"), 1.976), 5.0, 0.1);
  EXPECT_EQ(lmix_bvspar::find_bvs_par("Fe", 5, "O"), nullptr);
}

TEST(GeometryListing, TellsDistancesAnglesAndCodes) {
  const std::string text = write_geometry(corundum(), 2.7, 1.9);
  for (const char* part : {" => Distances of atom Al up to   2.7000\n", "(Al)-(O)", "1.85", "(O)-(Al)-(O)", "_5",
                           "\n => Distances of atom O up to"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 + 7 + 3 + int(coordination(corundum(), 1, 2.7).size()) + 1);
}

#include <gtest/gtest.h>

#include <cmath>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_symmetry_tables.hpp"

namespace {
using namespace lmix_crystallographic_symmetry;
namespace tables = lmix_symmetry_tables;

space_group_type group_of(std::string_view symbol) {
  space_group_type spg;
  EXPECT_FALSE(set_spacegroup(symbol, spg)) << symbol;
  return spg;
}

using reals = std::array<double, 6>;

// The component that the relations give, from the free ones in `v`.
double by_relations(const site_relations& rel, const reals& v, int i) {
  double sum = 0.0;
  for (int j = 0; j < rel.n; ++j)
    sum += static_cast<double>(rel.coefficient[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)]) *
           v[static_cast<std::size_t>(j)];
  return sum;
}

void expect_compliant(const site_relations& rel, const reals& v) {
  for (int i = 0; i < rel.n; ++i) {
    EXPECT_NEAR(v[static_cast<std::size_t>(i)], by_relations(rel, v, i), 1e-6) << i;
    if (rel.single) {
      const component_relation c = rel.component[static_cast<std::size_t>(i)];
      const double told = c.free < 0 ? 0.0 : static_cast<double>(c.multiplier) * v[static_cast<std::size_t>(c.free)];
      EXPECT_NEAR(v[static_cast<std::size_t>(i)], told, 1e-6) << i;
    }
  }
}

int trace(const matrix3i& m) { return m[0][0] + m[1][1] + m[2][2]; }

// R B R^T of a tensor in the order 11, 22, 33, 12, 13, 23, by full matrices.
reals rotated_tensor(const matrix3i& r, const reals& b) {
  const double full[3][3] = {{b[0], b[3], b[4]}, {b[3], b[1], b[5]}, {b[4], b[5], b[2]}};
  double out[3][3] = {};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k)
        for (std::size_t l = 0; l < 3; ++l) out[i][j] += r[i][k] * full[k][l] * r[j][l];
  return {out[0][0], out[1][1], out[2][2], out[0][1], out[0][2], out[1][2]};
}

template <class Action>
reals averaged(const std::vector<sym_oper_type>& stabilizer, const reals& v, Action action) {
  reals mean{};
  for (const auto& op : stabilizer) {
    const reals image = action(op.rot, v);
    for (std::size_t i = 0; i < 6; ++i) mean[i] += image[i] / static_cast<double>(stabilizer.size());
  }
  return mean;
}

reals rotated_vector(const matrix3i& r, const reals& v) {
  reals out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
  return out;
}

// Everything that a site says, at a general point of every tabulated position of all 530 settings: multiplicity against
// Vol. A; the allowed shifts against the parameters of the position; numbers of free tensor components against the
// trace of the symmetrised square, moments against that of the axial representation.
TEST(WyckoffPositions, MultiplicityAndConstraintsOfAllTabulatedPositions) {
  const vector3 u{0.1237f, 0.2183f, 0.3391f};
  int row = 0, positions = 0, joint_terms = 0;
  for (const auto& s : tables::spgr_info()) {
    ++row;
    const auto listed = tables::wyckoff_info(row);
    if (listed.empty()) continue;
    std::string symbol(s.hm);
    if (!s.ext.empty()) symbol += ":" + std::string(s.ext);
    const space_group_type spg = group_of(symbol);
    ASSERT_EQ(spg.wyckoff.num_orbit, static_cast<int>(listed.size()));
    for (std::size_t w = 0; w < listed.size(); ++w) {
      SCOPED_TRACE(symbol + " " + listed[w].letter);
      EXPECT_EQ(spg.wyckoff.orbit[w].multp, listed[w].multip);
      EXPECT_EQ(spg.wyckoff.orbit[w].norb, listed[w].norb);
      sym_oper_type position;
      ASSERT_FALSE(read_xsym(listed[w].position, 0, position, false));
      const vector3 x = applyso(position, u);
      EXPECT_EQ(get_multip_pos_crys(x, spg), listed[w].multip);
      const orbit_type orbit = get_orbit(x, spg);
      EXPECT_EQ(orbit.mult, listed[w].multip);
      const auto stabilizer = get_stabilizerc(x, spg);
      ASSERT_EQ(static_cast<int>(stabilizer.size()) * listed[w].multip, spg.multip);
      EXPECT_EQ(orbit.stabilizer.size(), stabilizer.size());
      for (const auto& op : stabilizer) {
        const vector3 image = applyso(op, x);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(image[i], x[i], 1e-4f);
      }

      const site_relations shift = position_relations(stabilizer);
      EXPECT_TRUE(shift.single);
      expect_compliant(shift, rotated_vector(position.rot, {0.31, 0.52, 0.77}));
      int parameters = 0;
      for (const char c : std::string_view("xyz")) parameters += listed[w].position.find(c) != std::string_view::npos;
      EXPECT_EQ(shift.n_free, parameters);

      const site_relations beta = beta_relations(stabilizer);
      expect_compliant(beta, averaged(stabilizer, {1.0, 2.1, 3.3, 0.4, 0.55, 0.71}, rotated_tensor));
      const site_relations moment = moment_relations(stabilizer);
      int tensor = 0, axial = 0;
      for (const auto& op : stabilizer) {
        const int t = trace(op.rot), square = trace(sym_prod({op.rot, {}}, {op.rot, {}}).rot);
        tensor += (t * t + square) / 2;
        axial += determinant(op.rot) * t;
      }
      const int order = static_cast<int>(stabilizer.size());
      EXPECT_EQ(beta.n_free * order, tensor);
      EXPECT_EQ(moment.n_free * order, axial);
      ++positions;
      joint_terms += !beta.single + !moment.single;
    }
  }
  EXPECT_EQ(positions, 3467);
  RecordProperty("sites whose relations need two terms", joint_terms);
}

// International Tables Vol. C and W. J. A. M. Peterse & J. H. Palm, Acta Cryst. 20 (1966) 147-150.
TEST(SiteConstraints, PublishedTensorRelations) {
  struct row {
    const char* symbol;
    vector3 x;
    const char* betas;
  };
  for (const row& t : {
           row{"P 1", {0.1f, 0.2f, 0.3f}, "b11, b22, b33, b12, b13, b23"},
           row{"P 1 2/m 1", {0.f, 0.2f, 0.f}, "b11, b22, b33, 0, b13, 0"},
           row{"P m m m", {0.f, 0.f, 0.f}, "b11, b22, b33, 0, 0, 0"},
           row{"P m -3 m", {0.f, 0.f, 0.f}, "b11, b11, b11, 0, 0, 0"},
           row{"P m -3 m", {0.5f, 0.f, 0.f}, "b11, b22, b22, 0, 0, 0"},
           row{"P m -3 m", {0.1f, 0.1f, 0.1f}, "b11, b11, b11, b12, b12, b12"},
           row{"P m -3 m", {0.f, 0.2f, 0.2f}, "b11, b22, b22, 0, 0, b23"},
           row{"P 4/m m m", {0.1f, 0.1f, 0.2f}, "b11, b11, b33, b12, b13, b13"},
           row{"P 4/m m m", {0.1f, 0.9f, 0.2f}, "b11, b11, b33, b12, b13, -b13"},
           row{"R -3 c", {0.f, 0.f, 0.352f}, "b11, b11, b33, b11/2, 0, 0"},
           row{"R -3 c", {0.306f, 0.f, 0.25f}, "b11, b22, b33, b22/2, b13, 2b13"},
           row{"P 63 m c", {0.2f, 0.4f, 0.1f}, "b11, b22, b33, b22/2, b13, 2b13"},
           row{"P 63 m c", {0.2f, 0.8f, 0.1f}, "b11, b11, b33, b12, b13, -b13"},
           row{"P n m a", {0.1f, 0.25f, 0.3f}, "b11, b22, b33, 0, b13, 0"},
       }) {
    SCOPED_TRACE(testing::Message() << t.symbol << ' ' << t.x[0] << ' ' << t.x[1] << ' ' << t.x[2]);
    EXPECT_EQ(sym_b_relations(get_stabilizerc(t.x, group_of(t.symbol))).text, t.betas);
  }
}

TEST(SiteConstraints, PositionsAndMomentsOnSpecialSites) {
  const auto stabilizer = [](const char* symbol, vector3 x) { return get_stabilizerc(x, group_of(symbol)); };
  const auto diagonal = position_relations(stabilizer("P 4/m m m", {0.3f, 0.3f, 0.f}));
  EXPECT_EQ(diagonal.component[1].free, 0);
  EXPECT_FLOAT_EQ(diagonal.component[1].multiplier, 1.f);
  EXPECT_EQ(diagonal.component[2].free, -1);
  const auto doubled = position_relations(stabilizer("P 63 m c", {0.2f, 0.4f, 0.1f}));
  EXPECT_FLOAT_EQ(doubled.component[1].multiplier, 2.f);
  EXPECT_EQ(doubled.component[2].free, 2);
  const auto halved = position_relations(stabilizer("P 63 m c", {0.4f, 0.2f, 0.1f}));
  EXPECT_FLOAT_EQ(halved.component[1].multiplier, 0.5f);
  const auto opposite = position_relations(stabilizer("P 63 m c", {0.2f, -0.2f, 0.1f}));
  EXPECT_FLOAT_EQ(opposite.component[1].multiplier, -1.f);
  // A moment in a mirror plane's site stands normal to the plane, on a twofold axis along it.
  const auto mirror = moment_relations(stabilizer("P n m a", {0.1f, 0.25f, 0.3f}));
  EXPECT_EQ(mirror.n_free, 1);
  EXPECT_EQ(mirror.component[1].free, 1);
  EXPECT_EQ(moment_relations(stabilizer("P m -3 m", {0.f, 0.f, 0.f})).n_free, 0);
  const auto general = position_relations(stabilizer("F d -3 m", {0.01f, 0.02f, 0.04f}));
  EXPECT_EQ(general.n_free, 3);
}

TEST(SiteConstraints, PositionBesideAnElementIsMovedOntoIt) {
  const auto spg = group_of("P 63 m c");
  const vector3 x{0.3333f, 0.6667f, 0.1f};
  const vector3 exact = nearest_special_position(x, get_stabilizerc(x, spg));
  EXPECT_NEAR(exact[0], 1.f / 3.f, 1e-6f);
  EXPECT_NEAR(exact[1], 2.f / 3.f, 1e-6f);
  EXPECT_NEAR(exact[2], 0.1f, 1e-6f);
  EXPECT_FLOAT_EQ(get_occ_site(x, spg), 2.f / 12.f);
  EXPECT_FLOAT_EQ(get_occ_site({0.33f, 0.67f, 0.1f}, spg), 6.f / 12.f);  // further off than 0.001, but on the mirror
  EXPECT_FLOAT_EQ(get_occ_site({5.3333f, -2.3333f, 7.1f}, spg), 2.f / 12.f);
  // 0.0007 off a fourfold axis: the quarter turns move it by less than the tolerance, the half turn by more.
  const auto edge = get_stabilizerc({0.0007f, 0.f, 0.3f}, group_of("P 4"));
  ASSERT_EQ(edge.size(), 4u);
  EXPECT_EQ(beta_relations(edge).n_free, 2);
}

}  // namespace

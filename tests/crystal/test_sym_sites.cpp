// Sites: orbits, multiplicities and what the stabiliser allows to positions, displacement tensors and moments.
#include <algorithm>
#include <numeric>
#include <random>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

using integers = std::vector<long>;
using reals = std::vector<double>;

/// Rank by elimination in whole numbers (no rounding, no tolerance).
int rank_of(std::vector<integers> rows, std::size_t columns) {
  int rank = 0;
  for (std::size_t c = 0; c < columns; ++c) {
    const auto done = rows.begin() + rank;
    const auto pivot = std::find_if(done, rows.end(), [&](const integers& r) { return r[c] != 0; });
    if (pivot == rows.end()) continue;
    std::iter_swap(done, pivot);
    for (auto r = done + 1; r < rows.end(); ++r) {
      const long f = (*r)[c], g = (*done)[c];
      long common = 0;
      for (std::size_t k = 0; k < columns; ++k) {
        (*r)[k] = (*r)[k] * g - (*done)[k] * f;
        common = std::gcd(common, (*r)[k]);
      }
      for (long& x : *r)
        if (common > 1) x /= common;
    }
    ++rank;
  }
  return rank;
}

/// What an operator makes of a quantity of `n` components; linear, so that its matrix is found by unit vectors.
using action = reals (*)(const matrix3i&, const reals&);

reals moved_vector(const matrix3i& r, const reals& v) {
  reals out(3);
  for (std::size_t i = 0; i < 3; ++i) out[i] = r[i][0] * v[0] + r[i][1] * v[1] + r[i][2] * v[2];
  return out;
}
reals moved_moment(const matrix3i& r, const reals& v) {
  reals out = moved_vector(r, v);
  for (double& x : out) x *= determinant(r);
  return out;
}
reals moved_tensor(const matrix3i& r, const reals& b) {
  const double full[3][3] = {{b[0], b[3], b[4]}, {b[3], b[1], b[5]}, {b[4], b[5], b[2]}};
  const auto element = [&](std::size_t i, std::size_t j) {
    double sum = 0;
    for (std::size_t k = 0; k < 3; ++k)
      for (std::size_t l = 0; l < 3; ++l) sum += r[i][k] * full[k][l] * r[j][l];
    return sum;
  };
  return {element(0, 0), element(1, 1), element(2, 2), element(0, 1), element(0, 2), element(1, 2)};
}

int free_components(std::span<const sym_oper_type> stabilizer, std::size_t n, action move) {
  std::vector<integers> rows;
  for (const auto& op : stabilizer) {
    std::vector<integers> block(n, integers(n));
    for (std::size_t j = 0; j < n; ++j) {
      reals e(n);
      e[j] = 1;
      const reals image = move(op.rot, e);
      for (std::size_t i = 0; i < n; ++i) block[i][j] = std::lround(image[i]) - (i == j);
    }
    rows.insert(rows.end(), block.begin(), block.end());
  }
  return static_cast<int>(n) - rank_of(rows, n);
}

/// A quantity that obeys the relations, made from random values of the free components.
reals obeying(const site_relations& relations, std::mt19937& random) {
  std::uniform_real_distribution<double> uniform(-1, 1);
  reals v(static_cast<std::size_t>(relations.n)), out(v.size());
  for (double& x : v) x = uniform(random);
  for (std::size_t i = 0; i < v.size(); ++i)
    for (std::size_t j = 0; j < v.size(); ++j) out[i] += static_cast<double>(relations.coefficient[i][j]) * v[j];
  return out;
}

void expect_kept(std::span<const sym_oper_type> stabilizer, const site_relations& relations, action move,
                 std::mt19937& random) {
  EXPECT_EQ(relations.n_free, free_components(stabilizer, static_cast<std::size_t>(relations.n), move));
  const reals v = obeying(relations, random);
  for (std::size_t i = 0; i < v.size() && relations.single; ++i) {
    const component_relation c = relations.component[i];
    const double told = c.free < 0 ? 0.0 : static_cast<double>(c.multiplier) * v[static_cast<std::size_t>(c.free)];
    EXPECT_NEAR(v[i], told, 1e-6);
  }
  for (const auto& op : stabilizer) {
    const reals image = move(op.rot, v);
    for (std::size_t i = 0; i < v.size(); ++i) EXPECT_NEAR(image[i], v[i], 1e-6);
  }
}

/// Position, tensor and moment made by the relations stay what they are under every operator of the site.
void expect_site_obeyed(const vector3& x, std::span<const sym_oper_type> stabilizer, std::mt19937& random) {
  const site_relations shift = position_relations(stabilizer);
  expect_kept(stabilizer, shift, moved_vector, random);
  expect_kept(stabilizer, beta_relations(stabilizer), moved_tensor, random);
  expect_kept(stabilizer, moment_relations(stabilizer), moved_moment, random);
  const reals d = obeying(shift, random);
  vector3 moved = x;
  for (std::size_t i = 0; i < 3; ++i) moved[i] += static_cast<float>(0.1 * d[i]);
  for (const auto& s : stabilizer) {
    const vector3 image = applyso(s, moved);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(image[i], moved[i], 1e-5f);
  }
}

// A general point of every tabulated position of all 530 settings: multiplicity against Vol. A, free coordinates
// against the letters of the position, and the constraints.
TEST(WyckoffPositions, MultiplicityAndConstraintsOfAllTabulatedPositions) {
  std::mt19937 random(1);
  const vector3 u{0.1237f, 0.2183f, 0.3391f};
  int row = 0, positions = 0;
  for (const auto& s : tables::spgr_info()) {
    const auto listed = tables::wyckoff_info(++row);
    if (listed.empty()) continue;
    const space_group_type spg = group_of(symbol_of(s));
    ASSERT_EQ(spg.wyckoff.num_orbit, static_cast<int>(listed.size()));
    for (std::size_t w = 0; w < listed.size(); ++w, ++positions) {
      SCOPED_TRACE(symbol_of(s) + " " + listed[w].letter);
      EXPECT_EQ(spg.wyckoff.orbit[w].multp, listed[w].multip);
      EXPECT_EQ(spg.wyckoff.orbit[w].norb, listed[w].norb);
      sym_oper_type position;
      ASSERT_FALSE(read_xsym(listed[w].position, 0, position, false));
      const vector3 x = applyso(position, u);
      const orbit_type orbit = get_orbit(x, spg);
      const auto stabilizer = get_stabilizerc(x, spg);
      EXPECT_EQ(get_multip_pos_crys(x, spg), listed[w].multip);
      EXPECT_EQ(orbit.mult, listed[w].multip);
      ASSERT_EQ(static_cast<int>(stabilizer.size()) * listed[w].multip, spg.multip);
      EXPECT_EQ(orbit.stabilizer.size(), stabilizer.size());
      int parameters = 0;
      for (const char c : std::string_view("xyz")) parameters += listed[w].position.find(c) != std::string_view::npos;
      EXPECT_EQ(position_relations(stabilizer).n_free, parameters);
      EXPECT_TRUE(position_relations(stabilizer).single);
      expect_site_obeyed(x, stabilizer, random);
    }
  }
  EXPECT_EQ(positions, 3467);
}

TEST(RandomSpecialPositions, KeepPositionTensorAndMoment) {
  std::mt19937 random(20240713);
  std::uniform_real_distribution<float> coordinate(0.02f, 0.47f);
  const auto settings = tables::spgr_info();
  int tested = 0;
  while (tested < 1000) {
    const int row = std::uniform_int_distribution<int>(1, static_cast<int>(settings.size()))(random);
    const auto listed = tables::wyckoff_info(row);
    if (listed.size() < 2) continue;  // no positions tabulated, or none special
    const auto& setting = settings[static_cast<std::size_t>(row) - 1];
    const space_group_type spg = group_of(symbol_of(setting));
    const auto& w = listed[std::uniform_int_distribution<std::size_t>(1, listed.size() - 1)(random)];
    sym_oper_type representative;
    ASSERT_FALSE(read_xsym(w.position, 0, representative, false)) << w.position;
    // Any position of the orbit, not only the one that the table writes first.
    const auto& op = spg.symop[std::uniform_int_distribution<std::size_t>(0, spg.symop.size() - 1)(random)];
    const vector3 x =
        applyso(op, applyso(representative, {coordinate(random), coordinate(random), coordinate(random)}));
    SCOPED_TRACE(testing::Message() << symbol_of(setting) << ' ' << w.letter << ' ' << x[0] << ' ' << x[1] << ' '
                                    << x[2]);

    const auto stabilizer = get_stabilizerc(x, spg);
    ASSERT_GT(stabilizer.size(), 1u);
    EXPECT_EQ(get_multip_pos_crys(x, spg) * static_cast<int>(stabilizer.size()), spg.multip);
    expect_site_obeyed(x, stabilizer, random);
    ++tested;
  }
}

// International Tables Vol. C and W. J. A. M. Peterse & J. H. Palm, Acta Cryst. 20 (1966) 147-150.
TEST(SiteConstraints, PublishedTensorRelations) {
  struct row {
    const char* symbol;
    vector3 x;
    const char* betas;
  };
  for (const row& t : {row{"P 1", {0.1f, 0.2f, 0.3f}, "b11, b22, b33, b12, b13, b23"},
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
                       row{"P n m a", {0.1f, 0.25f, 0.3f}, "b11, b22, b33, 0, b13, 0"}}) {
    SCOPED_TRACE(testing::Message() << t.symbol << ' ' << t.x[0] << ' ' << t.x[1] << ' ' << t.x[2]);
    EXPECT_EQ(sym_b_relations(get_stabilizerc(t.x, group_of(t.symbol))).text, t.betas);
  }
}

TEST(SiteConstraints, TiedCoordinatesFollowTheFirst) {
  struct row {
    const char* symbol;
    vector3 x;
    int free;  // coordinate that y follows
    float multiplier;
  };
  for (const row& t : {row{"P 4/m m m", {0.3f, 0.3f, 0.f}, 0, 1.f}, row{"P 63 m c", {0.2f, 0.4f, 0.1f}, 0, 2.f},
                       row{"P 63 m c", {0.4f, 0.2f, 0.1f}, 0, 0.5f}, row{"P 63 m c", {0.2f, -0.2f, 0.1f}, 0, -1.f},
                       row{"P n m a", {0.1f, 0.25f, 0.3f}, -1, 0.f}}) {
    const component_relation y = position_relations(get_stabilizerc(t.x, group_of(t.symbol))).component[1];
    EXPECT_EQ(y.free, t.free) << t.symbol;
    EXPECT_FLOAT_EQ(y.multiplier, t.multiplier) << t.symbol;
  }
  // A moment on a mirror plane stands normal to it.
  const auto mirror = moment_relations(get_stabilizerc({0.1f, 0.25f, 0.3f}, group_of("P n m a")));
  EXPECT_TRUE(mirror.n_free == 1 && mirror.component[1].free == 1);
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

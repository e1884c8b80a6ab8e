// Site constraints at random special positions of random settings: what the relations say is left unchanged by every
// operator of the site, and they leave free exactly what the operators leave free.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_symmetry_tables.hpp"

namespace {

using namespace lmix_crystallographic_symmetry;
namespace tables = lmix_symmetry_tables;

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
  for (const auto& op : stabilizer) {
    const reals image = move(op.rot, v);
    for (std::size_t i = 0; i < v.size(); ++i) EXPECT_NEAR(image[i], v[i], 1e-6);
  }
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
    const std::string symbol = std::string(setting.hm) + (setting.ext.empty() ? "" : ":" + std::string(setting.ext));
    space_group_type spg;
    ASSERT_FALSE(set_spacegroup(symbol, spg)) << symbol;
    const auto& w = listed[std::uniform_int_distribution<std::size_t>(1, listed.size() - 1)(random)];
    sym_oper_type representative;
    ASSERT_FALSE(read_xsym(w.position, 0, representative, false)) << w.position;
    // Any position of the orbit, not only the one that the table writes first.
    const auto& op = spg.symop[std::uniform_int_distribution<std::size_t>(0, spg.symop.size() - 1)(random)];
    const vector3 x =
        applyso(op, applyso(representative, {coordinate(random), coordinate(random), coordinate(random)}));
    SCOPED_TRACE(testing::Message() << symbol << ' ' << w.letter << ' ' << x[0] << ' ' << x[1] << ' ' << x[2]);

    const auto stabilizer = get_stabilizerc(x, spg);
    ASSERT_GT(stabilizer.size(), 1u);
    EXPECT_EQ(get_multip_pos_crys(x, spg) * static_cast<int>(stabilizer.size()), spg.multip);
    const site_relations shift = position_relations(stabilizer);
    expect_kept(stabilizer, shift, moved_vector, random);
    expect_kept(stabilizer, beta_relations(stabilizer), moved_tensor, random);
    expect_kept(stabilizer, moment_relations(stabilizer), moved_moment, random);
    // The position itself, moved as the relations allow, stays on the element.
    const reals d = obeying(shift, random);
    vector3 moved = x;
    for (std::size_t i = 0; i < 3; ++i) moved[i] += static_cast<float>(0.1 * d[i]);
    for (const auto& s : stabilizer) {
      const vector3 image = applyso(s, moved);
      for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(image[i], moved[i], 1e-5f);
    }
    ++tested;
  }
}

}  // namespace

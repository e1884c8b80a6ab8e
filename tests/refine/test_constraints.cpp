// Atoms on every Wyckoff position of groups of all crystal systems: the codes that symmetry gives them leave just the
// freedom that their site has, and no shift through these codes takes the atom off its position.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
namespace sym = lmix_crystallographic_symmetry;
using matrix = std::vector<std::vector<double>>;

/// Dimension of the vectors that all rows annul, by elimination.
int nullity(matrix rows, std::size_t n) {
  std::size_t rank = 0;
  for (std::size_t c = 0; c < n && rank < rows.size(); ++c) {
    std::size_t best = rank;
    for (std::size_t r = rank; r < rows.size(); ++r)
      if (std::abs(rows[r][c]) > std::abs(rows[best][c])) best = r;
    if (std::abs(rows[best][c]) < 1e-6) continue;
    std::swap(rows[rank], rows[best]);
    for (std::size_t r = rank + 1; r < rows.size(); ++r) {
      const double f = rows[r][c] / rows[rank][c];
      for (std::size_t k = c; k < n; ++k) rows[r][k] -= f * rows[rank][k];
    }
    ++rank;
  }
  return static_cast<int>(n - rank);
}

/// How an operation acts on a quantity of n components.
using action = std::function<std::vector<double>(const std::vector<double>&)>;

void add_conditions(matrix& rows, std::size_t n, const action& act) {
  matrix m(n, std::vector<double>(n));
  for (std::size_t j = 0; j < n; ++j) {
    std::vector<double> unit(n);
    unit[j] = 1.0;
    const auto image = act(unit);
    for (std::size_t i = 0; i < n; ++i) m[i][j] = image[i] - unit[i];
  }
  rows.insert(rows.end(), m.begin(), m.end());
}

action on_vectors(const sym::matrix3i& r, double factor) {
  return [r, factor](const std::vector<double>& v) {
    std::vector<double> out(3);
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) out[i] += factor * r[i][j] * v[j];
    return out;
  };
}

/// beta' = R beta R^T.
action on_betas(const sym::matrix3i& r) {
  return [r](const std::vector<double>& b) {
    const double t[3][3] = {{b[0], b[3], b[4]}, {b[3], b[1], b[5]}, {b[4], b[5], b[2]}};
    double out[3][3] = {};
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k)
          for (std::size_t l = 0; l < 3; ++l) out[i][j] += r[i][k] * t[k][l] * r[j][l];
    return std::vector<double>{out[0][0], out[1][1], out[2][2], out[0][1], out[0][2], out[1][2]};
  };
}

/// Real and imaginary part, turned by exp(2 pi i phase).
action on_coefficients(const sym::matrix3i& r, double factor, double phase) {
  return [r, factor, phase](const std::vector<double>& s) {
    const auto re = on_vectors(r, factor)({s[0], s[1], s[2]}), im = on_vectors(r, factor)({s[3], s[4], s[5]});
    const double c = std::cos(2 * M_PI * phase), d = std::sin(2 * M_PI * phase);
    std::vector<double> out(6);
    for (std::size_t i = 0; i < 3; ++i) out[i] = c * re[i] - d * im[i], out[i + 3] = d * re[i] + c * im[i];
    return out;
  };
}

/// A quantity of an atom: its first slot, its size, and how the operations of the site act on it.
struct site_quantity {
  const char* name;
  std::size_t first, n;
  std::vector<action> acts;
};

/// The quantity has as many parameters as its site leaves it, and a shift of these by any amounts complies.
void expect_kept(kp::state_type& st, kp::atom_type& atom, const site_quantity& q, std::mt19937& random) {
  SCOPED_TRACE(q.name);
  matrix conditions;
  for (const action& act : q.acts) add_conditions(conditions, q.n, act);
  std::set<int> numbers;
  for (std::size_t i = 0; i < q.n; ++i)
    if (atom.lp[q.first + i] != 0) numbers.insert(atom.lp[q.first + i]);
  EXPECT_EQ(static_cast<int>(numbers.size()), nullity(conditions, q.n));
  std::uniform_real_distribution<double> size(-1.0, 1.0);
  std::vector<double> by_number(static_cast<std::size_t>(st.run.maxs) + 1), shift(q.n);
  for (double& s : by_number) s = size(random);
  for (std::size_t i = 0; i < q.n; ++i)
    shift[i] = static_cast<double>(atom.a[q.first + i]) * by_number[static_cast<std::size_t>(atom.lp[q.first + i])];
  for (const action& act : q.acts) {
    const auto image = act(shift);
    for (std::size_t i = 0; i < q.n; ++i) EXPECT_NEAR(image[i], shift[i], 1e-5);
  }
}

struct group_row {
  const char* symbol;
  std::array<float, 3> k{};  ///< propagation vector that all its operations leave in place
};
constexpr group_row groups[] = {{"P -1", {0.5f, 0.f, 0.5f}},
                                {"P 1 2/m 1", {0.f, 0.5f, 0.f}},
                                {"C 1 2/c 1"},
                                {"P 1 1 21/b"},
                                {"P n m a"},
                                {"C m m m", {0.f, 0.f, 0.5f}},
                                {"I b a m"},
                                {"F d d d"},
                                {"P m m 2", {0.f, 0.f, 0.3f}},
                                {"P 4/m m m", {0.5f, 0.5f, 0.f}},
                                {"I 41/a m d"},
                                {"P -4 21 m"},
                                {"I -4 2 d"},
                                {"R -3 m"},
                                {"R -3 c"},
                                {"P 32 2 1"},
                                {"P -3 m 1", {0.f, 0.f, 0.5f}},
                                {"P 3 1 2"},
                                {"P 6/m m m"},
                                {"P 63/m m c"},
                                {"P -6 2 c"},
                                {"P m -3 m", {0.5f, 0.5f, 0.5f}},
                                {"P a -3"},
                                {"I a -3 d"},
                                {"F d -3 m"}};

/// How far an operation takes x from itself, up to lattice vectors.
double distance_of_image(const sym::sym_oper_type& op, const sym::vector3& x) {
  const sym::vector3 image = sym::applyso(op, x);
  double away = 0.0;
  for (std::size_t i = 0; i < 3; ++i) {
    const double d = static_cast<double>(image[i]) - static_cast<double>(x[i]);
    away += std::abs(d - std::round(d));
  }
  return away;
}

/// A point of the position, clear of those with more symmetry.
sym::vector3 point_of(const sym::wyck_pos_type& position, const sym::space_group_type& group, std::mt19937& random) {
  sym::sym_oper_type representative;
  EXPECT_FALSE(sym::read_xsym(position.str_orig, 0, representative, false).err_symm);
  std::uniform_real_distribution<float> anywhere(0.07f, 0.43f);
  for (;;) {
    sym::vector3 x = sym::applyso(representative, {anywhere(random), anywhere(random), anywhere(random)});
    x = sym::applyso(group.symop[random() % group.symop.size()], x);
    if (std::ranges::none_of(group.symop, [&](const sym::sym_oper_type& op) {
          const double away = distance_of_image(op, x);
          return away > 1e-4 && away < 0.01;
        }))
      return x;
  }
}

class EveryPosition : public testing::TestWithParam<group_row> {};

TEST_P(EveryPosition, KeepsItsSymmetryUnderTheCodesThatItGets) {
  std::mt19937 random(7);
  kp::state_type st = model_state::quartz(7);
  st.run.automatic = true;
  kp::phase_type& phase = st.phase[0];
  ASSERT_FALSE(sym::set_spacegroup(GetParam().symbol, phase.spgr).err_symm);
  ASSERT_GT(phase.spgr.wyckoff.num_orbit, 0);
  phase.natom = 1, phase.jbt = 1, phase.isym = 1;
  const auto [kx, ky, kz] = GetParam().k;
  phase.nvk = 1;
  phase.vector = {{.pvk = {0.f, kx, ky, kz}}};
  for (int i = 0; i < phase.spgr.multip / phase.spgr.numlat; ++i) {
    const sym::sym_oper_type& op = phase.spgr.symop[static_cast<std::size_t>(i)];
    kp::hand_operator_type hand;
    kp::hand_matrix_type turn;
    for (std::size_t e = 0; e < 9; ++e) {
      hand.s[e] = op.rot[e / 3][e % 3];
      turn.m[e] = sym::determinant(op.rot) * hand.s[e];
    }
    hand.t = op.tr;
    hand.mag = {turn};
    phase.by_hand.op.push_back(hand);
  }

  for (const sym::wyck_pos_type& position : phase.spgr.wyckoff.orbit) {
    SCOPED_TRACE(position.str_orig);
    const sym::vector3 x = point_of(position, phase.spgr, random);
    site_quantity place{"position", kp::aslot::x, 3, {}}, betas{"betas", kp::aslot::b11, 6, {}},
        moment{"moment", kp::aslot::rx, 6, {}};
    for (std::size_t m = 0; m < phase.spgr.symop.size(); ++m) {
      const sym::sym_oper_type& op = phase.spgr.symop[m];
      const sym::vector3& centring =
          phase.spgr.latt_trans[m / (phase.spgr.symop.size() / static_cast<std::size_t>(phase.spgr.numlat))];
      const sym::vector3 image = sym::applyso(op, x);
      double by_cells = 0.0;
      if (distance_of_image(op, x) > 1e-4) continue;
      for (std::size_t i = 0; i < 3; ++i) {
        const double cells = std::round(static_cast<double>(image[i] - x[i]));
        by_cells += static_cast<double>(GetParam().k[i]) * (cells - static_cast<double>(centring[i]));
      }
      place.acts.push_back(on_vectors(op.rot, 1.0));
      betas.acts.push_back(on_betas(op.rot));
      // the operation without the centring vector brings the atom to its image less that vector
      double wrapped = 0.0;  // whole cells by which the listed translation was reduced
      const auto& listed = phase.by_hand.op[m % phase.by_hand.op.size()].t;
      for (std::size_t i = 0; i < 3; ++i)
        wrapped +=
            static_cast<double>(GetParam().k[i]) * std::round(static_cast<double>(op.tr[i] - listed[i] - centring[i]));
      moment.acts.push_back(on_coefficients(op.rot, sym::determinant(op.rot), by_cells - wrapped));
    }
    EXPECT_EQ(phase.spgr.multip / static_cast<int>(place.acts.size()), position.multp);

    kp::atom_type& atom = st.atom[0];
    atom.n_t = 3, atom.imagr = atom.ikv = 1;
    atom.a.fill(0.f), atom.lp.fill(0);
    for (const site_quantity* q : {&place, &betas, &moment})
      for (std::size_t i = 0; i < q->n; ++i) atom.a[q->first + i] = 1.f;
    for (std::size_t i = 0; i < 3; ++i) atom.xl[kp::aslot::x + i] = x[i];
    kalvaris_codes::set_symmetryconstraints(st);
    kalvaris_codes::mod_codes(st);
    ASSERT_EQ(st.fmt.ierr_fmt, 0);
    for (const site_quantity* q : {&place, &betas, &moment}) expect_kept(st, atom, *q, random);
  }
}

INSTANTIATE_TEST_SUITE_P(Groups, EveryPosition, testing::ValuesIn(groups),
                         [](const testing::TestParamInfo<group_row>& row) {
                           std::string name = row.param.symbol;
                           for (char& c : name)
                             if (c == ' ' || c == '/') c = '_';
                           for (std::size_t at; (at = name.find('-')) != std::string::npos;) name.replace(at, 1, "m");
                           return name;
                         });

TEST(SymmetryConstraints, MultipliersNeverRunIntoTheNextNumber) {
  kp::state_type st = model_state::quartz(7);
  st.run.automatic = true;
  ASSERT_FALSE(sym::set_spacegroup("P 63/m m c", st.phase[0].spgr).err_symm);
  st.phase[0].natom = 1;
  kp::atom_type& atom = st.atom[0];
  atom.xl[1] = 0.17f, atom.xl[2] = 0.34f, atom.xl[3] = 0.25f;
  atom.a[1] = 16.f;  // parameter 1 with multiplier 6; y moves by twice that
  kalvaris_codes::set_symmetryconstraints(st);
  kalvaris_codes::mod_codes(st);
  EXPECT_EQ(atom.lp[1], 1);
  EXPECT_EQ(atom.lp[2], 1);
  EXPECT_FLOAT_EQ(atom.a[2] / atom.a[1], 2.f);
}

TEST(Helix, TheTwoPartsOfTheMomentStayPerpendicular) {
  kp::state_type st = model_state::quartz(7);
  model_state::load_cells(st);
  kp::phase_type& phase = st.phase[0];
  phase.jhelix = 1;
  kp::atom_type& atom = st.atom[0];
  atom.a[kp::aslot::biso] = 11.f;
  st.run.maxs = 1;
  const std::array<float, 6> given{1.5f, 0.4f, -2.f, 0.3f, 1.1f, 9.f};
  std::copy(given.begin(), given.end(), atom.xl.begin() + kp::aslot::rx);
  phase.jbt = 1;
  atom.a[kp::aslot::iz] = 11.f;
  kalvaris_codes::mod_codes(st);
  // a and b at 120 degrees, c perpendicular
  const auto m = [&](int k) { return static_cast<double>(atom.xl[static_cast<std::size_t>(k)]); };
  EXPECT_NEAR(m(6) * m(9) + m(7) * m(10) + m(8) * m(11) - 0.5 * (m(6) * m(10) + m(7) * m(9)), 0.0, 1e-5);
  EXPECT_EQ(atom.lp[kp::aslot::iz], 0);

  phase.jbt = -1;
  for (const auto& [theta, other] : {std::pair{60.f, 110.f}, {30.f, 80.f}, {10.f, 20.f}, {40.f, 170.f}}) {
    SCOPED_TRACE(testing::Message() << theta << ' ' << other);
    atom.a[kp::aslot::biso] = 11.f, atom.a[kp::aslot::iy] = 21.f;
    atom.xl[7] = 25.f, atom.xl[8] = theta, atom.xl[10] = 3.f, atom.xl[11] = other;
    kalvaris_codes::mod_codes(st);
    const double d = M_PI / 180.0, t1 = m(8) * d, t2 = m(11) * d;
    EXPECT_NEAR(std::cos(t1) * std::cos(t2) + std::sin(t1) * std::sin(t2) * std::cos((m(10) - m(7)) * d), 0.0, 1e-6);
    EXPECT_EQ(atom.lp[kp::aslot::iy], 0);
  }
}

// On a fourfold axis a twofold axis across it turns a moment along the fourfold one; with time reversal it keeps it.
TEST(MagneticConstraints, TimeReversalDecidesWhatAMomentMayDo) {
  struct row {
    const char* twofold;
    float moment;
  };
  for (const row t : {row{"x,-y,-z,-1", 11.f}, row{"x,-y,-z,+1", 0.f}}) {
    SCOPED_TRACE(t.twofold);
    sym::magnetic_space_group_type group;
    ASSERT_FALSE(sym::set_magnetic_spacegroup(std::vector<std::string>{"-y,x,z,+1", t.twofold}, group));
    std::array<float, 3> moment{1.f, 1.f, 1.f}, position{1.f, 1.f, 1.f};
    kalvaris_codes::number_source fresh{0};
    EXPECT_TRUE(kalvaris_codes::get_moment_ctr_old({0.f, 0.f, 0.f}, group, moment, fresh));
    EXPECT_EQ(moment, (std::array{0.f, 0.f, t.moment}));
    fresh = {0};
    EXPECT_TRUE(kalvaris_codes::get_matompos_ctr({0.f, 0.f, 0.3f}, group, position, fresh));
    EXPECT_EQ(position, (std::array{0.f, 0.f, 11.f}));
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <map>
#include <numbers>

#include "lmix_reflections_utilities.hpp"
#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;
using namespace lmix_reflections_utilities;
using lmix_crystallographic_symmetry::space_group_type;

magnetic_space_group_type magnetic(const std::vector<std::string>& gen) {
  magnetic_space_group_type m;
  const err_symm_type err = set_magnetic_spacegroup(gen, m);
  EXPECT_FALSE(err) << err.err_symm_mess;
  return m;
}

struct magnetic_row {
  const char* name;
  std::vector<std::string> gen;
  int type, multip, num_lat, num_alat, centred;
  const char* pg;
};
const std::vector<magnetic_row>& groups() {
  static const std::vector<magnetic_row> rows{
      {"P n m a", {"-x,-y,-z,+1", "-x+1/2,-y,z+1/2,+1", "-x,y+1/2,-z,+1"}, 1, 8, 1, 0, 2, "mmm"},
      {"P n m a 1'", {"-x,-y,-z,+1", "-x+1/2,-y,z+1/2,+1", "-x,y+1/2,-z,+1", "x,y,z,-1"}, 2, 8, 1, 0, 2, "mmm1'"},
      {"P n' m a'", {"-x,-y,-z,+1", "-x+1/2,-y,z+1/2,-1", "-x,y+1/2,-z,+1"}, 3, 8, 1, 0, 2, "m'mm'"},
      {"P n' m' a'", {"-x,-y,-z,-1", "-x+1/2,-y,z+1/2,+1", "-x,y+1/2,-z,+1"}, 3, 8, 1, 0, 1, "m'm'm'"},
      {"P_2a m m m", {"-x,-y,-z,+1", "-x,-y,z,+1", "-x,y,-z,+1", "x+1/2,y,z,-1"}, 4, 16, 1, 1, 2, "mmm1'"},
      {"P -1'", {"-x,-y,-z,-1"}, 3, 2, 1, 0, 1, "-1'"},
      {"P 21'/c", {"-x,y+1/2,-z+1/2,-1", "-x,-y,-z,-1"}, 3, 4, 1, 0, 1, "2'/m"},
      {"P 4'/m m' m", {"-y,x,z,-1", "-x,-y,-z,+1", "x,-y,-z,-1"}, 3, 16, 1, 0, 2, "4'/mm'm"},
      {"I m' -3 m'", {"y,z,x", "-x,-y,z", "-x,-y,-z,-1", "y,x,-z", "x+1/2,y+1/2,z+1/2"}, 3, 96, 2, 0, 1, "m'-3'm'"},
      {"R -3 c'", {"-y,x-y,z", "y,x,-z+1/2,-1", "-x,-y,-z", "x+2/3,y+1/3,z+1/3"}, 3, 36, 3, 0, 2, "-3m'"},
      {"C_I-like", {"x+1/2,y+1/2,z", "x+1/2,y,z+1/2,-1", "-x,y,-z"}, 4, 8, 2, 2, 1, "21'"}};
  return rows;
}

TEST(MagneticGroup, TypeLatticeAndPointGroupAreFoundFromTheOperators) {
  for (const magnetic_row& t : groups()) {
    SCOPED_TRACE(t.name);
    const magnetic_space_group_type m = magnetic(t.gen);
    EXPECT_EQ(m.magtype, t.type);
    EXPECT_EQ(m.multip, t.multip);
    EXPECT_EQ(m.num_lat, t.num_lat);
    EXPECT_EQ(m.num_alat, t.num_alat);
    EXPECT_EQ(m.centred, t.centred);
    EXPECT_EQ(m.pg_symbol, t.pg);
    EXPECT_EQ(m.multip, m.numops * (m.centred == centring_code::acentric ? 1 : 2) * (m.num_lat + m.num_alat));
    EXPECT_EQ(m.symopsymb[0], "x,y,z,+1");
    // The written operators give the record back.
    const magnetic_space_group_type again = magnetic(m.symopsymb);
    if (m.magtype != 2) {
      EXPECT_EQ(again.magtype, m.magtype);
      EXPECT_EQ(again.multip, m.multip);
    }
    for (std::size_t i = 0; i < m.symop.size(); ++i) {
      const int sign = m.time_inv(i) * determinant(m.symop[i].rot);
      for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c) EXPECT_EQ(m.msymop[i].rot[r][c], sign * m.symop[i].rot[r][c]);
    }
  }
  EXPECT_EQ(magnetic(groups()[2].gen).parent_spg, "P n m a");
  EXPECT_EQ(magnetic(groups()[2].gen).parent_num, 62);
}

TEST(MagneticGroup, ListingTellsEverything) {
  const std::string grey = write_magnetic_space_group(magnetic(groups()[1].gen), false);
  EXPECT_NE(grey.find(" =>  This is a Paramagnetic Space Group: the number of cosets should be doubled with "
                      "TimeReversal = +1\n"),
            std::string::npos);
  const std::string text = write_magnetic_space_group(magnetic(groups()[4].gen), true);
  for (const char* part :
       {"Type of Magnetic group: 4\n", "Number of anti-translations: 1\n", "Anti-Centring vectors: ( 0.50000, 0.00000,",
        "General Multiplicitiy: 16\n", "Laue Class for Cell constr.: mmm\n", " => SYMM(  9): x+1/2,y,z,-1",
        "-mx,-my,-mz", "Symbol: t' (1/2,0,0)\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << text;
}

TEST(MagneticGroup, WrongOperatorsAreRefused) {
  magnetic_space_group_type m;
  for (const std::vector<std::string>& gen :
       {std::vector<std::string>{}, {"x,y"}, {"x,y,z,2"}, {"x,y,z,"}, {"2x,y,z,+1"}, {"x+y,y,z,-1"}, {"x,y,q,1"}})
    EXPECT_TRUE(set_magnetic_spacegroup(gen, m).err_symm);
  shubnikov_oper_type op;
  EXPECT_FALSE(read_shubnikov("-x,y,-z+1/2'", op));
  EXPECT_EQ(op.time_inv, -1);
}

TEST(MagneticGroup, ChangesItsAxes) {
  // Doubling the cell of the type 3 group keeps its type; a change and its inverse lead back.
  for (const magnetic_row& t : groups()) {
    SCOPED_TRACE(t.name);
    const magnetic_space_group_type m = magnetic(t.gen);
    magnetic_space_group_type changed, back;
    const std::string setting = "b,c,a;1/8,0.1,1/4";
    ASSERT_FALSE(setting_change_maggroup(setting, m, changed));
    EXPECT_EQ(changed.magtype, m.magtype);
    EXPECT_EQ(changed.multip, m.multip);
    ASSERT_FALSE(
        setting_change_maggroup(get_trasfm_symbol(inverse_setting(read_setting(setting).setting)), changed, back));
    ASSERT_EQ(back.multip, m.multip);
    for (std::size_t i = 0; i < m.symop.size(); ++i) {
      bool found = false;
      for (std::size_t k = 0; k < back.symop.size(); ++k)
        found = found || (equal_symop(m.symop[i], back.symop[k]) && m.time_inv(i) == back.time_inv(k));
      EXPECT_TRUE(found) << m.symopsymb[i];
    }
  }
  const magnetic_space_group_type m = magnetic(groups()[2].gen);
  magnetic_space_group_type out;
  EXPECT_EQ(setting_change_maggroup("a,a,c", m, out).err_symm_mess,
            " => Wrong setting! Inversion Matrix Failed in Setting_Change_MagGroup!");
  EXPECT_EQ(setting_change_maggroup("", m, out).err_symm_mess,
            " => The string containing the setting change is empty!");
  EXPECT_EQ(setting_change_maggroup("b,a,c", m, out).err_symm_mess,
            " => The transformation matrix should have a positive determinant!");
  EXPECT_EQ(setting_change_maggroup("a/2,b,c", m, out).err_symm, true);
  ASSERT_FALSE(setting_change_maggroup("2a,b,c", m, out));
  EXPECT_EQ(out.num_lat, 2);
  EXPECT_EQ(out.multip, 16);
}

// A moment that obeys the relations is left alone by every operator of the site, in number as many free components as
// the mean character of the action.
TEST(MagneticSites, MomentsComplyWithTheStabiliser) {
  for (const magnetic_row& t : groups()) {
    const magnetic_space_group_type m = magnetic(t.gen);
    for (const vector3& x : {vector3{0, 0, 0}, vector3{0.5f, 0, 0}, vector3{0.1f, 0.25f, 0.3f},
                             vector3{0.13f, 0.21f, 0.37f}, vector3{0.5f, 0.5f, 0.5f}, vector3{0, 0, 0.25f}}) {
      SCOPED_TRACE(testing::Message() << t.name << ' ' << x[0] << ' ' << x[1] << ' ' << x[2]);
      const auto stabilizer = get_stabilizerm(x, m);
      const auto order = all_operators(m).size();
      EXPECT_EQ(stabilizer.size() * static_cast<std::size_t>(get_multip_pos_mag(x, m)), order);
      const site_relations rel = moment_relations(stabilizer);
      int character = 0;
      for (const auto& g : stabilizer) {
        const auto& r = g.op.rot;
        character += g.time_inv * determinant(r) * (r[0][0] + r[1][1] + r[2][2]);
        const vector3 image = applyso(g.op, x);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(image[i], x[i], 1e-5f);
      }
      EXPECT_EQ(rel.n_free * static_cast<int>(stabilizer.size()), character);
      std::array<double, 3> moment{};
      const double free[3] = {1.0, 2.3, -0.7};
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) moment[i] += static_cast<double>(rel.coefficient[i][j]) * free[j];
      for (const auto& g : stabilizer)
        for (std::size_t i = 0; i < 3; ++i) {
          double turned = 0;
          for (std::size_t j = 0; j < 3; ++j) turned += g.time_inv * determinant(g.op.rot) * g.op.rot[i][j] * moment[j];
          EXPECT_NEAR(turned, moment[i], 1e-6);
        }
    }
  }
  EXPECT_EQ(moment_relations(get_stabilizerm({0.1f, 0.2f, 0.3f}, magnetic(groups()[1].gen))).n_free, 0);  // grey
}

// ---- lists ---------------------------------------------------------------------------------------------------------

// Sums over all atoms of two general sites with general moments.
struct scattering {
  bool nuclear = false, magnetic = false;
};
scattering of_general_sites(const hkl_type& h, const magnetic_space_group_type& m, const metric_tensor& gr) {
  scattering out;
  const double site[2][3] = {{0.1317, 0.2911, 0.4073}, {0.0719, 0.1933, 0.3541}};
  const double moment[2][3] = {{1.3, -0.4, 0.9}, {0.2, 1.7, -1.1}};
  for (int a = 0; a < 2; ++a) {
    std::complex<double> n = 0.0, f[3] = {};
    for (const auto& g : all_operators(m)) {
      double phase = 0.0;
      for (std::size_t i = 0; i < 3; ++i) {
        double image = static_cast<double>(g.op.tr[i]);
        for (std::size_t j = 0; j < 3; ++j) image += g.op.rot[i][j] * site[a][j];
        phase += h[i] * image;
      }
      const auto wave = std::polar(1.0, 2.0 * std::numbers::pi * phase);
      n += wave;
      for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
          f[i] += static_cast<double>(g.time_inv * determinant(g.op.rot) * g.op.rot[i][j]) * moment[a][j] * wave;
    }
    out.nuclear = out.nuclear || std::abs(n) > 1e-3;
    double along[3] = {};
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) along[i] += static_cast<double>(gr[i][j]) * h[j];
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t k = (i + 1) % 3;
      out.magnetic = out.magnetic || std::abs(f[i] * along[k] - f[k] * along[i]) > 1e-3;
    }
  }
  return out;
}

TEST(HklGenShub, ListsWhatNucleiAndMomentsScatter) {
  for (const magnetic_row& t : groups()) {
    SCOPED_TRACE(t.name);
    const magnetic_space_group_type m = magnetic(t.gen);
    const metric_tensor gr = metric_of(m.symop);
    const auto operators = all_operators(m);
    const float smax = 0.42f;
    const auto list = hkl_gen_shub(gr, operators, smax);
    std::map<hkl_type, int> flag_of;
    int sum = 0;
    for (const auto& r : list) {
      flag_of[r.h] = r.flag;
      sum += r.mult;
    }
    EXPECT_EQ(flag_of.size(), list.size());
    space_group_type family;  // equivalents by the rotations alone
    family.symop = m.symop;
    int points = 0;
    for (int h = -9; h <= 9; ++h)
      for (int k = -9; k <= 9; ++k)
        for (int l = -9; l <= 9; ++l) {
          const hkl_type index{h, k, l};
          if (index == hkl_type{} || hkl_s(index, gr) > smax) continue;
          const scattering s = of_general_sites(index, m, gr);
          if (!s.nuclear && !s.magnetic) continue;
          ++points;
          const auto found = flag_of.find(hkl_canonical(index, family));
          ASSERT_NE(found, flag_of.end()) << h << ' ' << k << ' ' << l;
          EXPECT_EQ(found->second, s.magnetic ? (s.nuclear ? 1 : 2) : 0) << h << ' ' << k << ' ' << l;
        }
    EXPECT_EQ(sum, points);
    EXPECT_GT(points, 20);
  }
}

TEST(HklGen, FixedListWithCentringVectorsAmongItsOperators) {
  space_group_type tabulated, fixed;
  ASSERT_FALSE(set_spacegroup("I 41/a m d", tabulated));
  ASSERT_FALSE(set_spacegroup("", fixed, tabulated.symopsymb, "FIX"));
  const metric_tensor gr{{{0.021f, 0, 0}, {0, 0.021f, 0}, {0, 0, 0.009f}}};
  const auto wanted = hkl_gen(gr, tabulated, true, 0.f, 0.8f);
  const auto list = hkl_gen_general(gr, fixed, 0.8f);
  ASSERT_EQ(list.size(), wanted.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    EXPECT_EQ(list[i].h, wanted[i].h);
    EXPECT_EQ(list[i].mult, wanted[i].mult);
  }
}

TEST(HklEquivr, SatellitesTurnWithTheGroup) {
  space_group_type spg;
  ASSERT_FALSE(set_spacegroup("P 4/m m m", spg));
  EXPECT_EQ(hkl_equivr({0.3f, 0.f, 1.f}, spg).size(), 8u);
  EXPECT_EQ(hkl_equivr({0.3f, 0.3f, 0.f}, spg).size(), 4u);
  EXPECT_EQ(hkl_equivr({0.3f, 0.1f, 0.2f}, spg).size(), 16u);
  EXPECT_EQ(hkl_equivr({0.f, 0.f, 0.f}, spg).size(), 1u);
  ASSERT_FALSE(set_spacegroup("P 4", spg));
  EXPECT_EQ(hkl_equivr({0.3f, 0.1f, 0.2f}, spg, false).size(), 4u);
  const auto list = hkl_equivr({0.3f, 0.1f, 0.2f}, spg, false);
  EXPECT_EQ(list[0], (std::array{0.3f, 0.1f, 0.2f}));
}

}  // namespace

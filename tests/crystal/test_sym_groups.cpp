#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

// Product worked out on the keys, apart from the code under test.
op_key times(const op_key& a, const op_key& b) {
  op_key c{};
  for (std::size_t i = 0; i < 3; ++i) {
    c[9 + i] = a[9 + i];
    for (std::size_t k = 0; k < 3; ++k) {
      for (std::size_t j = 0; j < 3; ++j) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
      c[9 + i] += a[3 * i + k] * b[9 + k];
    }
    c[9 + i] = (c[9 + i] % 24 + 24) % 24;
  }
  return c;
}

TEST(SpaceGroupTable, EverySettingHasItsOrderItsClassAndAClosedList) {
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(symbol_of(s));
    const space_group_type spg = group_of(symbol_of(s));
    EXPECT_EQ(spg.numspg, s.number);
    EXPECT_EQ(spg.hall, s.hall);
    EXPECT_EQ(spg.info, s.choice);
    EXPECT_EQ(spg.hexa, s.number >= 143 && s.number <= 194 && s.ext != "R");
    ASSERT_EQ(spg.multip, s.multip);
    ASSERT_EQ(spg.numlat, s.numlat);
    EXPECT_EQ(spg.multip, spg.numops * spg.numlat * (spg.centred == centring_code::acentric ? 1 : 2));
    const laue_pg found = get_laue_pg(spg.symop);  // from the axes, the table from Vol. A
    EXPECT_EQ(tables::get_laue_str(found.laue), tables::get_laue_str(s.laue));
    EXPECT_EQ(tables::get_pointgroup_str(found.pg), tables::get_pointgroup_str(s.pg));
    const std::set<op_key> keys = keys_of(spg);
    ASSERT_EQ(keys.size(), static_cast<std::size_t>(spg.multip));
    bool closed = true;
    for (const op_key& a : keys)
      for (int m = 0; m < spg.numops; ++m)
        closed = closed && keys.count(times(a, key_of(spg.symop[static_cast<std::size_t>(m)])));
    EXPECT_TRUE(closed);
  }
}

TEST(SpaceGroupTable, OperatorsStandInTheFixedOrder) {
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(symbol_of(s));
    const space_group_type spg = group_of(symbol_of(s));
    EXPECT_EQ(spg.symopsymb[0], "x,y,z");
    const auto n = static_cast<std::size_t>(spg.numops), per = spg.symop.size() / spg.latt_trans.size();
    for (std::size_t m = 0; m < per - n; ++m) {
      op_key expected = key_of(spg.symop[m]);
      for (int& e : expected) e = -e;
      for (std::size_t i = 0; i < 3; ++i) {
        const double centre = static_cast<double>(spg.centre_coord[i]);
        expected[9 + i] = (expected[9 + i] + static_cast<int>(std::lround(48.0 * centre)) + 48) % 24;
      }
      EXPECT_EQ(key_of(spg.symop[n + m]), expected);
    }
    for (std::size_t l = 0; l < spg.latt_trans.size(); ++l)
      for (std::size_t m = 0; m < per; ++m) {
        sym_oper_type shifted = spg.symop[m];
        for (std::size_t i = 0; i < 3; ++i) shifted.tr[i] += spg.latt_trans[l][i];
        EXPECT_EQ(key_of(spg.symop[l * per + m]), key_of(shifted));
      }
  }
}

TEST(SpaceGroupTable, HallSymbolAndGeneratorsOfInternationalTablesGiveTheSameGroup) {
  for (int number = 1; number <= 230; ++number) {
    SCOPED_TRACE(number);
    const space_group_type by_hall = group_of(std::to_string(number));
    const space_group_type by_generators = group_of(std::to_string(number), "ITC");
    EXPECT_EQ(by_generators.sg_setting, "Generated from explicit IT generators");
    EXPECT_EQ(by_generators.numspg, number);
    EXPECT_EQ(keys_of(by_hall), keys_of(by_generators));
    EXPECT_EQ(by_hall.laue, tables::get_laue_class(number));
  }
}

// The written operators, read back as the generators of a user, lead to the same group, its Hall symbol and its row.
TEST(SpaceGroupRecord, WrittenOperatorsOfEverySettingLeadBackToIt) {
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(symbol_of(s));
    const space_group_type wanted = group_of(symbol_of(s));
    std::vector<std::string> gen(wanted.symopsymb.rbegin(), wanted.symopsymb.rend());
    space_group_type spg;
    ASSERT_FALSE(set_spacegroup("", spg, gen, "gen"));
    EXPECT_TRUE(spgr_equal(spg, wanted));
    EXPECT_EQ(spg.numspg, s.number);
    EXPECT_EQ(spg.hall, s.hall);
    EXPECT_EQ(get_hallsymb_from_gener(spg.symop).symbol, s.hall);
    EXPECT_EQ(spg.wyckoff.num_orbit, wanted.wyckoff.num_orbit);
  }
}

TEST(SpaceGroupRecord, UntabulatedOriginIsBuiltFromGenerators) {
  space_group_type spg;
  const std::vector<std::string> gen{"-x+0.2,-y,-z+1.25"};
  ASSERT_FALSE(set_spacegroup("", spg, gen, "GEN"));
  EXPECT_EQ(spg.numspg, 0);
  EXPECT_EQ(spg.laue, "-1");
  EXPECT_EQ(spg.centred, centring_code::centric_elsewhere);
  EXPECT_NEAR(spg.centre_coord[0], 0.1f, 1e-6f);
  EXPECT_NEAR(spg.centre_coord[2], 0.125f, 1e-6f);
  EXPECT_NEAR(spg.symop[1].tr[2], 0.25f, 1e-6f);  // 1.25 is kept as 0.25
  EXPECT_EQ(spg.centre, "Centric (-1 not at origin)  Gen(-1): -x+1/5,-y,-z+1/4");
}

TEST(SpaceGroupRecord, RoundedThirdsCloseToTheGroupThatIsMeant) {
  space_group_type spg;
  const std::vector<std::string> gen{"-y+0.667,x-y+0.333,z+0.333", "x+0.6667,y+0.3333,z+.3333"};
  ASSERT_FALSE(set_spacegroup("", spg, gen, "GEN"));
  EXPECT_EQ(spg.numspg, 146);
  EXPECT_EQ(spg.multip, 9);
}

TEST(SpaceGroupRecord, FixedListIsTakenAsItStands) {
  space_group_type spg;
  const std::vector<std::string> gen{"x,y,z", "x+1/2,y+1/2,z", "-x,-y,-z", "-x+1/2,-y+1/2,-z"};
  ASSERT_FALSE(set_spacegroup("C", spg, gen, "FIX"));
  EXPECT_EQ(spg.multip, 4);
  EXPECT_EQ(spg.numops, 4);
  EXPECT_EQ(spg.spg_lat, 'C');
  EXPECT_EQ(spg.symopsymb[3], "-x+1/2,-y+1/2,-z");
  EXPECT_EQ(get_multip_pos_crys({0.1f, 0.2f, 0.3f}, spg), 4);
  EXPECT_EQ(get_multip_pos_crys({0.f, 0.f, 0.f}, spg), 2);
}

TEST(SpaceGroupRecord, ListingNamesTheGroupAndItsOperators) {
  const std::string text = write_spacegroup(group_of("P n m a"), true);
  for (const char* part :
       {"\n        Information on Space Group: \n", "Number of Space group: 62\n", "Hermann-Mauguin Symbol: P n m a\n",
        "Lattice Symbol: P\n", "Centrosymmetry: Centric (-1 at origin)\n", "General multiplicity: 8\n",
        "0.0000 <= y <=  0.2500\n", " => SYMM(  8): x,-y+1/2,z", "Symbol: n (0,1/2,1/2) 1/4,y,z\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << text;
  EXPECT_EQ(text.find("Generalized"), std::string::npos);
  EXPECT_EQ(text.find("Table Setting Choice"), std::string::npos);
  EXPECT_EQ(write_spacegroup(group_of("P n m a"), false).find("SYMM("), std::string::npos);
  EXPECT_EQ(group_of("A 1 1 2").bravais, "  A: { 000;  0  1/2 1/2 }+");
  const std::string cut = write_spacegroup(group_of("F m -3 m"), true);
  EXPECT_EQ(cut.find("Maximum number of lines"), std::string::npos);  // 192 operators: the longest list there is
}

TEST(SpaceGroupRecord, WyckoffListingHoldsEveryPosition) {
  const std::string text = write_wyckoff(group_of("P n m a"));
  for (const char* part :
       {"     8 d  1       (x,y,z)", "(-x+1/2,-y,z+1/2)", "     4 c  .m.     (x,1/4,z)", "     4 a  -1      (0,0,0)"})
    EXPECT_NE(text.find(part), std::string::npos) << part << text;
  EXPECT_EQ(get_crystal_system(group_of("R -3 c").symop), "Trigonal");
  EXPECT_EQ(get_lattice_type(group_of("I 41/a").latt_trans), 'I');
  EXPECT_EQ(get_lattice_type(std::vector<vector3>{{}, {0.25f, 0, 0}}), 'Z');
}

}  // namespace

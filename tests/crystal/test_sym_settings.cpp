#include <gtest/gtest.h>

#include <algorithm>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

// Textbook changes of axes; the rows beyond the table come out as the parser builds them from their symbols.
TEST(SettingChange, LeadsToTheSettingThatIsMeant) {
  struct row {
    const char* from;
    const char* setting;
    const char* to;
  };
  for (const row& t : {row{"P n m a", "c,a,b;0,0,0", "P b n m"}, row{"P n m a", "b,c,a", "P m c n"},
                       row{"C 1 2/c 1", "-a-c,b,a", "A 1 2/n 1"}, row{"P 1 21/c 1", "-a-c,b,a", "P 1 21/n 1"},
                       row{"R -3 m", "2/3a+1/3b+1/3c,-1/3a+1/3b+1/3c,-1/3a-2/3b+1/3c", "R -3 m:R"},
                       row{"R 3 c:R", "a-b,b-c,a+b+c", "R 3 c"}, row{"F d -3 m:1", "a,b,c;1/8,1/8,1/8", "F d -3 m:2"},
                       row{"P 4/n", "a,b,c;1/4,-1/4,0", "P 4/n:1"}, row{"P 4/m m m", "a-b,a+b,c", "C 4/m m m"},
                       row{"I 4/m m m", "a+b,-a+b,c", "F 4/m m m"}, row{"P 1 21/c 1", "2a,b,c", "P 1 21/c 1"},
                       row{"P -1", "2a,b,c", "P -1"}}) {
    SCOPED_TRACE(std::string(t.from) + " by " + t.setting);
    space_group_type changed, back;
    const err_symm_type err = setting_change_conv(t.setting, group_of(t.from), changed);
    ASSERT_FALSE(err) << err.err_symm_mess;
    const setting_change setting = read_setting(t.setting);
    const space_group_type wanted = group_of(t.to, "HMS");
    if (std::string_view(t.setting).find("2a") == std::string_view::npos) {
      EXPECT_TRUE(spgr_equal(changed, wanted));
    } else {
      EXPECT_EQ(changed.multip, 2 * wanted.multip);  // a doubled cell
    }
    ASSERT_FALSE(setting_change_conv(get_trasfm_symbol(inverse_setting(setting.setting)), changed, back));
    EXPECT_TRUE(spgr_equal(back, group_of(t.from)));
  }
}

TEST(SettingChange, WrongOnesAreRefusedInWords) {
  struct row {
    const char* setting;
    const char* words;
  };
  const space_group_type spg = group_of("P 4/m m m");
  for (const row& t : {row{"", " => The string containing the setting change is empty!"},
                       row{"   ", " => The string containing the setting change is empty!"},
                       row{"b,a,c;0,0,0", " => The transformation matrix should have a positive determinant!"},
                       row{"a,a,c;0,0,0", "Inversion Matrix Failed on: Setting_Change_NonConv det:"},
                       row{"1/2a,b,c;0,0,0", " => Error! The total multiplicity has not been recovered -> det: "},
                       row{"a,2b,c;0,0,0", " => Error! The total multiplicity has not been recovered -> det: "},
                       row{"99a,99b,99c", " => Error! The total multiplicity has not been recovered -> det: "},
                       row{"a,b;0,0,0", " Bad matrix setting...: "}, row{"a,b,c;0,0", " Bad origing setting...: "}}) {
    space_group_type out;
    out.multip = 7;
    const err_symm_type err = setting_change_conv(t.setting, spg, out);
    EXPECT_TRUE(err.err_symm) << t.setting;
    EXPECT_EQ(err.err_symm_mess.find(t.words), 0u) << err.err_symm_mess;
    EXPECT_EQ(out.multip, 7);  // a failing call leaves its result alone
  }
}

TEST(SettingChange, CellsThatTheRotationsLeaveHaveRealMatrices) {
  const space_group_type spg = group_of("P 4/n m m");
  ns_space_group_type ns;
  ASSERT_FALSE(setting_change_nonconv("a,2b,c;0,0,1/8", spg, ns));
  EXPECT_EQ(ns.multip, 32);
  EXPECT_EQ(ns.numlat, 2);
  const auto fourfold =
      std::ranges::find_if(ns.symopsymb, [](const std::string& s) { return s.find("1/2x") != std::string::npos; });
  ASSERT_NE(fourfold, ns.symopsymb.end());
  space_group_type out;
  EXPECT_EQ(copy_ns_spg_to_spg(ns, out).err_symm_mess,
            "The matrix corresponding to a generator has non-integer values!");
  // Only the operators that map the new lattice on itself stay in the similar group: mmm with two lattice points.
  space_group_type kept;
  ASSERT_FALSE(similar_transf_sg(read_setting("a,2b,c;0,0,1/8").setting, spg, kept));
  EXPECT_EQ(kept.pg, "mmm");
  EXPECT_EQ(kept.multip, 16);
  // On axes that the rotations respect the real form holds the same group.
  ns_space_group_type whole;
  space_group_type conventional;
  ASSERT_FALSE(setting_change_nonconv("a-b,a+b,c", spg, whole));
  ASSERT_FALSE(copy_ns_spg_to_spg(whole, out));
  ASSERT_FALSE(setting_change_conv("a-b,a+b,c", spg, conventional));
  EXPECT_TRUE(spgr_equal(out, conventional));
}

// The way to the reference setting is right, and the origin shifts and inversions change no operator. Their number is
// that of the normaliser: International Tables Vol. A, part 15.
TEST(SettingInfo, EverySettingKnowsItsReferenceAndItsNormaliser) {
  const auto shifted = [](const space_group_type& spg, const vector3& by) {
    setting_matrix to;
    for (std::size_t i = 0; i < 3; ++i) to.origin[i] = static_cast<double>(by[i]);
    space_group_type out;
    EXPECT_FALSE(setting_change_conv(get_trasfm_symbol(to), spg, out));
    return out;
  };
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(s.hall);
    const space_group_type spg = group_of(s.hall, "HAL");
    const setting_info info = get_setting_info(spg);
    EXPECT_EQ(info.numspg, s.number);
    EXPECT_EQ(info.schoenflies, s.schoenflies);
    space_group_type reference, back;
    ASSERT_FALSE(setting_change_conv(info.to_reference, spg, reference)) << info.to_reference;
    EXPECT_TRUE(spgr_equal(reference, group_of(info.reference)));
    ASSERT_FALSE(setting_change_conv(info.from_reference, reference, back)) << info.from_reference;
    EXPECT_TRUE(spgr_equal(back, spg));
    for (const vector3& shift : info.shifts) EXPECT_TRUE(spgr_equal(shifted(spg, shift), spg));
    for (const auto& u : info.polar)
      EXPECT_TRUE(spgr_equal(shifted(spg, {0.37f * u[0], 0.37f * u[1], 0.37f * u[2]}), spg));
    // Eleven pairs of groups are mirror images of each other: these alone have no inversion.
    constexpr int chiral[] = {76,  78,  91,  95,  92,  96,  144, 145, 151, 153, 152,
                              154, 169, 170, 171, 172, 178, 179, 180, 181, 212, 213};
    EXPECT_EQ(info.invertible, spg.centred == centring_code::acentric && !std::ranges::count(chiral, s.number));
    if (!info.invertible) continue;
    space_group_type inverted = shifted(spg, info.inversion);  // about the centre: t becomes -t
    for (auto& op : inverted.symop) op.tr = modulo_lat({-op.tr[0], -op.tr[1], -op.tr[2]});
    EXPECT_TRUE(spgr_equal(inverted, shifted(spg, info.inversion)));
  }
  struct row {
    const char* symbol;
    std::size_t polar, shifts;
  };
  for (const row& t : {row{"P 1", 3, 0}, row{"P -1", 0, 3}, row{"P 1 m 1", 2, 1}, row{"P n m a", 0, 3},
                       row{"P 41", 1, 1}, row{"P 3", 1, 1}, row{"P 63", 1, 0}, row{"F -4 3 m", 0, 1},
                       row{"F d -3 m", 0, 1}, row{"I a -3 d", 0, 0}, row{"P 4/m m m", 0, 2}}) {
    EXPECT_EQ(get_setting_info(group_of(t.symbol)).polar.size(), t.polar) << t.symbol;
    EXPECT_EQ(get_setting_info(group_of(t.symbol)).shifts.size(), t.shifts) << t.symbol;
  }
  EXPECT_EQ(get_setting_info(group_of("F -4 3 m")).shifts[0], (vector3{0.25f, 0.25f, 0.25f}));
  space_group_type changed, reference;  // a setting of no table, about an odd origin
  ASSERT_FALSE(setting_change_conv("a+b,-a+b,c;1/10,0.237,-1/8", group_of("I 41/a m d"), changed));
  const setting_info far = get_setting_info(changed);
  EXPECT_EQ(far.numspg, 141);
  ASSERT_FALSE(setting_change_conv(far.to_reference, changed, reference)) << far.to_reference;
  EXPECT_TRUE(spgr_equal(reference, group_of(far.reference)));
}

TEST(MultiplicationTable, IsALatinSquareOverTheOperators) {
  for (const char* symbol : {"P 1", "P n m a", "R -3 c", "I 41/a", "P -4 3 n"}) {
    const space_group_type spg = group_of(symbol);
    const multiplication_table table = set_spg_mult_table(spg);
    ASSERT_FALSE(table.err);
    for (std::size_t i = 0; i < table.product.size(); ++i) {
      std::vector<int> row = table.product[i];
      EXPECT_EQ(row[0], static_cast<int>(i));
      for (std::size_t j = 0; j < row.size(); ++j)
        EXPECT_TRUE(equal_symop(spg.symop[static_cast<std::size_t>(row[j])], sym_prod(spg.symop[i], spg.symop[j])));
      std::ranges::sort(row);
      for (std::size_t j = 0; j < row.size(); ++j) EXPECT_EQ(row[j], static_cast<int>(j));
    }
  }
  space_group_type broken = group_of("P n m a");
  broken.symop.pop_back();
  EXPECT_EQ(set_spg_mult_table(broken).err.err_symm_mess,
            "Problems constructing the multiplication Table of the space group: P n m a");
}

// Numbers of subgroups of the point groups (all, the group itself included): 98 of m-3m, 54 of 6/mmm, 35 of 4/mmm, 16
// of mmm, 30 of 432, 10 of 23, 5 of 2/m.
TEST(TSubgroups, AreAllSubgroupsOfThePointGroup) {
  struct row {
    const char* symbol;
    std::size_t subgroups;
  };
  for (const row& t : {row{"P 1", 0}, row{"P -1", 1}, row{"C 1 2/c 1", 4}, row{"P n m a", 15}, row{"I 41/a m d", 34},
                       row{"P 63/m m c", 53}, row{"F d -3 m", 97}, row{"P 43 3 2", 29}, row{"P 21 3", 9}}) {
    SCOPED_TRACE(t.symbol);
    const space_group_type spg = group_of(t.symbol);
    const auto subgroups = get_t_subgroups(spg);
    EXPECT_EQ(subgroups.size(), t.subgroups);
    for (const auto& sub : subgroups) {
      EXPECT_EQ(spg.multip % sub.multip, 0);
      EXPECT_LT(sub.multip, spg.multip);
      EXPECT_EQ(sub.numlat, spg.numlat);
      EXPECT_NE(sub.laue, "");
      for (const auto& op : sub.symop)
        EXPECT_TRUE(std::ranges::any_of(spg.symop, [&](const auto& other) { return equal_symop(op, other); }));
    }
  }
  // Those of P n m a that stand in the table with this origin.
  std::vector<std::string> found;
  for (const auto& sub : get_t_subgroups(group_of("P n m a"))) found.push_back(sub.spg_symb);
  for (const char* symbol : {"P 1 21/m 1", "P 1 1 21/a", "P 21/n 1 1", "P -1", "P 1"})
    EXPECT_NE(std::ranges::find(found, symbol), found.end()) << symbol;
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>

#include "lmix_crystallographic_symmetry_parts.hpp"
#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

parts::closed_group group_of_hall(const std::string& hall) {
  const parts::generator_set set = parts::get_so_from_hall(hall);
  EXPECT_FALSE(set.err) << hall << set.err.err_symm_mess;
  return parts::close_group(set.generators);
}

bool same_group(const parts::closed_group& a, const parts::closed_group& b) {
  return a.element.size() == b.element.size() && std::ranges::all_of(a.element, [&](const auto& e) {
           return std::ranges::any_of(b.element, [&](const auto& f) { return parts::equal(e, f); });
         });
}

TEST(HallSymbol, IsFoundFromTheOperatorsOfEverySettingWithoutTheTable) {
  int plain = 0;
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(s.hall);
    const auto group = group_of_hall(std::string(s.hall));
    const parts::found_hall found = parts::hall_symbol_of(group);
    ASSERT_NE(found.symbol, "");
    EXPECT_TRUE(same_group(group_of_hall(found.symbol), group)) << found.symbol;
    plain += found.plain;
  }
  EXPECT_EQ(plain, 557);  // seven first origin choices lie an eighth off: their shift is no multiple of 1/12
}

// The same groups about odd origins and on axes that no symbol can name.
TEST(HallSymbol, IsFoundOnAnyAxesAndOrigin) {
  const char* axes[] = {"a,b,c",     "c,a,b",       "a+b,-a+b,c",      "a,b,a+b+c", "a+c,b,c",
                        "a-b,b-c,c", "a+b,b+c,a+c", "2a+b,-a+b-c,a+c", "2a,b,c",    "a,-a-2b,c+a"};
  const char* origins[] = {"0,0,0", "1/10,0.237,-1/8", "1/3,1/5,1/7"};
  int transformed = 0, step = 0;
  for (const auto& s : tables::spgr_info()) {
    ++step;
    const std::string setting = std::string(axes[step % 10]) + ";" + origins[step / 10 % 3];
    SCOPED_TRACE(std::string(s.hall) + " on " + setting);
    const space_group_type spg = group_of(s.hall, "HAL");
    space_group_type changed;
    if (setting_change_conv(setting, spg, changed)) continue;  // the new lattice has not all of its rotations
    ++transformed;
    const hall_symbol_result found = get_hallsymb_from_gener(changed.symop);
    ASSERT_FALSE(found.err) << found.err.err_symm_mess;
    space_group_type back;
    ASSERT_FALSE(set_spacegroup(found.symbol, back, {}, "HAL")) << found.symbol;
    EXPECT_TRUE(spgr_equal(back, changed)) << found.symbol;
    if (!changed.ghall.empty()) {
      space_group_type by_ghall;
      ASSERT_FALSE(set_spacegroup(changed.ghall, by_ghall, {}, "HAL")) << changed.ghall;
      EXPECT_TRUE(spgr_equal(by_ghall, changed)) << changed.ghall;
    }
  }
  EXPECT_GT(transformed, 100);
}

// S. R. Hall & R. W. Grosse-Kunstleve, International Tables Vol. B, A1.4.2: the operator in brackets acts on
// coordinates.
TEST(HallSymbol, ChangeOfAxesInBrackets) {
  struct row {
    const char* hall;
    const char* same_as;
  };
  for (const row& t :
       {row{"-P 2yc (x,y,z)", "-P 2yc"}, row{"-P 2yc (z,x,y)", "-P 2a"}, row{"P 31 2 (x,y,z+1/3)", "P 31 2 (0 0 4)"},
        row{"-C 2yc (x,y,x+z)", "-I 2yc"}, row{"P 4 (x/2-y/2,1/2x+1/2y,z)", "C 4"}, row{"C 4 (x+y,-x+y,z)", "P 4"},
        row{"-R 3 2\" (x+z,-x+y+z,-y+z)", "-P 3* 2"}, row{"F 4d 2 3 -1d (x-1/8,y-1/8,z-1/8)", "-F 4vw 2vw 3"}})
    EXPECT_TRUE(same_group(group_of_hall(t.hall), group_of_hall(t.same_as))) << t.hall;
  EXPECT_EQ(group_of_hall("P 2 (x/2,y,z)").element.size(), 4u);  // doubled cell: another translation
  for (const char* wrong :
       {"P 2 (x,x,z)", "P 2 (2x,y,z)", "P 4 (x/2,y,z)", "P 2 (x,y)", "P 2 (x,y,z", "P 2 (x/0,y,z)", "P 2 (x/1000,y,z)"})
    EXPECT_TRUE(parts::get_so_from_hall(wrong).err.err_symm) << wrong;
}

TEST(GeneratorSymbol, GivesTheGroupBack) {
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(s.hall);
    const space_group_type spg = group_of(s.hall, "HAL");
    std::string symbol = get_gensymb_from_gener(spg);
    ASSERT_EQ(symbol[0], spg.spg_lat);
    std::vector<std::string> gen;
    for (std::size_t i = 1; i < spg.latt_trans.size(); ++i)
      gen.push_back(get_symsymbi(sym_oper_type{}.rot, spg.latt_trans[i]));
    for (std::size_t start = 3; start < symbol.size();) {
      const std::size_t end = std::min(symbol.find(';', start), symbol.size());
      gen.push_back(symbol.substr(start, end - start));
      start = end + 1;
    }
    EXPECT_LE(gen.size(), 4u + spg.latt_trans.size());
    space_group_type back;
    ASSERT_FALSE(set_spacegroup("", back, gen, "GEN")) << symbol;
    EXPECT_TRUE(spgr_equal(back, spg)) << symbol;
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

// The first shift p (in 24ths, nearest the origin first) with t + p - R p the translation of an operator of b, for all
// operators of a.
std::optional<std::array<int, 3>> shift_between(const space_group_type& a, const space_group_type& b) {
  if (a.multip != b.multip) return {};
  const std::set<op_key> from = keys_of(a), to = keys_of(b);
  const auto holds = [&](const std::array<int, 3>& p) {
    return std::ranges::all_of(from, [&](op_key e) {
      for (std::size_t i = 0; i < 3; ++i) {
        e[9 + i] += p[i];
        for (std::size_t j = 0; j < 3; ++j) e[9 + i] -= e[3 * i + j] * p[j];
        e[9 + i] = (e[9 + i] % 24 + 24) % 24;
      }
      return to.count(e) > 0;
    });
  };
  for (int n = 0; n < 24 * 24 * 24; ++n)
    if (const std::array p{n / 576, n / 24 % 24, n % 24}; holds(p)) return p;
  return {};
}

// Seven rows are told apart from others by a letter behind the symbol that is no symbol: "P 21212(a)", "I 2 3a".
bool is_nickname(std::string_view hm) {
  for (std::size_t i = 1; i < hm.size(); ++i)
    if (std::isdigit(static_cast<unsigned char>(hm[i - 1])) && (hm[i] == 'a' || hm[i] == '(')) return true;
  return false;
}

// The letters alone say the group but not its origin: an inversion centre, or where the first elements meet. 89
// settings have theirs elsewhere (first origin choices, P 21 21 21, P m n 21, P 31 2 1 and the like).
// The other spellings, full, short and older ones.
TEST(HermannMauguinParser, EveryAliasGivesItsGroup) {
  for (const auto& a : tables::spgr_aliases()) {
    SCOPED_TRACE(a.symbol);
    space_group_type spg;
    const err_symm_type err = get_so_from_hms(a.symbol, spg);
    ASSERT_FALSE(err) << err.err_symm_mess;
    const auto& row = tables::spgr_info()[static_cast<std::size_t>(a.row) - 1];
    EXPECT_TRUE(shift_between(spg, group_of(row.hall, "HAL"))) << row.hm;
  }
}

TEST(HermannMauguinParser, EveryTabulatedSymbolGivesItsGroup) {
  int same_origin = 0, shifted = 0, nicknames = 0;
  for (const auto& s : tables::spgr_info()) {
    SCOPED_TRACE(symbol_of(s));
    if (is_nickname(s.hm)) {
      ++nicknames;
      continue;
    }
    space_group_type spg;
    const err_symm_type err = get_so_from_hms(symbol_of(s), spg);
    ASSERT_FALSE(err) << err.err_symm_mess;
    const space_group_type tabulated = group_of(s.hall, "HAL");
    EXPECT_EQ(spg.pg, tabulated.pg);
    EXPECT_EQ(spg.laue, tabulated.laue);
    EXPECT_EQ(spg.spg_lat, tabulated.spg_lat);
    const auto shift = shift_between(spg, tabulated);
    ASSERT_TRUE(shift) << "another group";
    (*shift == std::array{0, 0, 0} ? same_origin : shifted) += 1;
    if (s.ext == "2") {
      EXPECT_EQ(spg.centred, centring_code::centric_at_origin);
    }
  }
  EXPECT_EQ(nicknames, 7);
  EXPECT_EQ(same_origin, 468);
  EXPECT_EQ(shifted, 89);
}

// Symbols of cells that no table lists: the order of the group, and the elements that make it.
TEST(HermannMauguinParser, SymbolsOfOtherCells) {
  struct row {
    const char* symbol;
    int multip;
    const char* pg;
    std::vector<std::string> holds;  // operators that must be there with the origin where the parser puts it
  };
  for (const row& t : {row{"C 1 21/c 1", 8, "2/m", {"-x,-y,-z", "-x,y+1/2,-z+1/2", "x+1/2,y+1/2,z"}},
                       row{"F 1 2/m 1", 16, "2/m", {"-x,y,-z", "x,y+1/2,z+1/2"}},
                       row{"A 2 2 21", 8, "222", {"x,-y,-z", "-x,-y,z+1/2"}},
                       row{"C 4/m m m", 32, "4/mmm", {"-y,x,z", "x,y,-z", "-x,y,z"}},
                       row{"F 4/m m m", 64, "4/mmm", {"-y,x,z", "x,y,-z", "-x,y,z", "y,x,z"}},
                       row{"F -4 m 2", 32, "-4m2", {"y,-x,-z", "-x,y,z", "y,x,-z"}},
                       row{"H 3 2 1", 18, "32", {"-y,x-y,z", "x-y,-y,-z", "x+2/3,y+1/3,z"}},
                       row{"R 3 2:R", 6, "32", {"z,x,y", "-y,-x,-z"}}, row{"P 3/m", 6, "-6", {"-y,x-y,-z"}},
                       row{"P b -3", 24, "m-3", {"-x,-y,-z", "z,x,y"}}, row{"P m 3", 24, "m-3", {"-x,-y,-z", "-x,y,z"}},
                       row{"p 2_1/N 2_1/m 2_1/A", 8, "mmm", {"-x,-y,-z"}}, row{"R 31", 9, "3", {"-y,x-y,z+1/3"}}}) {
    SCOPED_TRACE(t.symbol);
    space_group_type spg;
    const err_symm_type err = get_so_from_hms(t.symbol, spg);
    ASSERT_FALSE(err) << err.err_symm_mess;
    EXPECT_EQ(spg.multip, t.multip);
    EXPECT_EQ(spg.pg, t.pg);
    for (const std::string& text : t.holds)
      EXPECT_NE(std::ranges::find(spg.symopsymb, text), spg.symopsymb.end()) << text;
    space_group_type by_road;  // where the table does not know the symbol
    EXPECT_FALSE(set_spacegroup(t.symbol, by_road, {}, "HMS"));
    EXPECT_EQ(by_road.multip, t.multip);
  }
}

TEST(HermannMauguinParser, TheRoadIsToldInTheRecord) {
  struct row {
    const char* symbol;
    const char* mode;
    bool force_hall;
    const char* setting;
    const char* printed;
  };
  for (const row& t : {row{"P n m a", "", false, "IT (Generated from Hermann-Mauguin symbol)", "P n m a"},
                       row{"pnma", "HMS", false, "IT (Generated from Hermann-Mauguin symbol)", "P n m a"},
                       row{"P n m a", "", true, "Generated from Hall symbol", "P n m a"},
                       row{"62", "", false, "Generated from Hall symbol", "P n m a"},
                       row{"I 2 3a", "", false, "Generated from Hall symbol", "I 2 3a"},
                       row{"c 1  21/C 1", "HMS", false, "Generated from Hermann-Mauguin symbol", "C 1 21/c 1"},
                       row{"B 2 2 21", "", false, "Generated from Hermann-Mauguin symbol", "B 2 2 21"}}) {
    space_group_type spg;
    ASSERT_FALSE(set_spacegroup(t.symbol, spg, {}, t.mode, t.force_hall)) << t.symbol;
    EXPECT_EQ(spg.sg_setting, t.setting) << t.symbol;
    EXPECT_EQ(spg.spg_symb, t.printed);
  }
}

struct wrong_symbols {
  const char* words;
  std::vector<const char*> symbols;
};
const std::vector<wrong_symbols>& wrong() {
  static const std::vector<wrong_symbols> rows{
      {" has been repeated within the same symmetry direction",
       {"P mm m m", "P m mm m",   "P m m mm",   "P 22 2 2",   "P 2 22 2",   "P 33",       "P 44",
        "P 66",     "P 44/m m m", "P 4/mm m m", "P 4/m mm m", "P 66/m m m", "C 1 2/cc 1", "C 1 22/c 1",
        "P nn m a", "P n m aa",   "I aa -3 d",  "F dd -3 m",  "P 1 22 1",   "R 33 m",     "P -33 m 1",
        "P 4 22 2", "A bb a 2",   "A e ee 2",   "P 6 m mm"}},
      {" There is more than one plane within the same symmetry direction",
       {"P mc m m", "P nma", "P m cm m", "P m m cn", "P 4/mn m m", "P 4/n bm m", "C 1 2/cm 1", "I ad -3 d", "F dm -3 m",
        "P 6/mc m m", "P 4 bm m", "A em a 2", "P 1 ca 1", "R 3 cm", "P -4 2 mc", "P na 21", "P 4/nmm", "Pbcan"}},
      {" A mirror plane cannot be immediately followed by a rotation axis",
       {"P m2 m m", "P m m2 m", "P m m m2", "P 4/m2 m m", "C m2 m 2", "P n21 m a", "P c1 1 1", "I a3", "F d3 m",
        "P m3 m", "P 6/m3 m c", "R 3 m2", "P 1 c1 1", "P 1 2/m1 1", "A b2 a 2", "P 4 n2 m", "Pm3m5", "P a3"}},
      {" A rotation axis cannot be immediately followed by a plane",
       {"P 2m m m", "P m 2m m", "P 4m m m", "P 6m m m", "P 21c", "C 1 2c 1", "P 3m 1", "R 3m", "P 4n m m", "P 63m c",
        "P 1 2m 1", "P 41a m d", "I 41a", "P -3m 1", "P -4n 2", "F 41d d m", "P 42m m c", "Pm 3m n"}},
      {" The fivefold axis is not allowed",
       {"P 5", "P 5/m", "P 5 m m", "P -5", "P 1 5 1", "I 5 3", "F 5/m -3 m", "P m 5 m", "P 5 2 2", "C 1 5/c 1",
        "P 5 3 2", "R 3 5"}},
      {" not allowed Screw axis",
       {"P 23",  "P 24", "P 34",  "P 35",     "P 45",     "P 46",  "P 67",  "P 69",  "P 213",    "P 4132",
        "P 411", "P 20", "P 612", "P 30 2 1", "P 68 m c", "P -41", "P -31", "P -62", "P 1 23 1", "P -62m"}},
      {" Wrong space-group symbol",
       {// no lattice, no such lattice, letters and signs that mean nothing
        "P", "", "Q 2", "X n m a", "2 2 2", "-1", "n m a", "P z", "P n m z", "P k k k", "P 2*", "P 0", "P 7", "P 8 m m",
        "P 9", "P m m m m", "P 2 2 2 2", "P / m", "P 31/20", "P 2/", "P m/m m m", "P 2//m", "P - m m", "P m- m m",
        "P 4- 2 m", "P --1", "P -2", "P 1 -2 1", "P 1/m", "P 2/2", "P 4/2", "P m:3", "P n m a:x",
        "P n m a:", "P m m m:R", "R 3 m:3", "R m m m",
        // fields missing or too many for the system
        "P m m", "P 2 2", "P 4 m", "P 4 2", "P 6 m", "P 6/m m", "P 3 m", "P -3 c", "R 3 m 1 1", "P 21 21", "C m c",
        // elements where the system has none
        "P 2 3 2 2", "P 3 3", "P 6 3 2", "P 2 2 4", "P m 4 m", "P 2 6 2", "P 3 4", "R 4", "R 6 m", "R 2", "I 6", "F 3",
        "I 3 2 1", "A 6/m m m", "B 3", "R -4", "H 6", "P m m 3", "P -1 2", "P 1 -1 1",
        // glides that cannot lie in their plane, letters of other systems
        "P a m m", "P m b m", "P m m c", "P 1 b 1", "P 6/n m m", "P 6 a a", "P 3 n 1", "P 3 d 1", "R 3 b", "R 3 d",
        "P 4/c m m", "P e m m", "C 1 2/b 1", "P 4/e m m",
        // elements that form no group with these translations
        "P 41/m", "P 41/n", "P 43/m m m", "P 61/m", "P 62/m m m", "P 31 m 1", "P 3 21 1", "P 2 2 d", "P d d 2",
        "P d d d", "C d d d", "I d d d", "P 41 m m", "P 4 3 21", "P 4/d m m", "P 61 m m", "P -4 2 d", "F 21 3 m",
        "I 43 3 m", "P 31 2", "P n n c", "p 2_1/m 2_1/n 2_1/a", "P 21 3 m", "P m m 21", "P b c 2", "P 21 m m",
        // fields that contradict each other or do not tell all
        "P m m 1", "P 2 2 1", "P 4 2 1", "P 4 m 2", "P 4 2 m", "P -4 m m", "P -4 2 2", "P 4/m 2 2", "P m 2 2",
        "P 6 m 2", "P 6 2 m", "P -6 m m", "P -6 2 2", "P 3 2 2", "P 3 m m", "P -3 m m", "P -3 2 1", "P 4 3 m",
        "P 2 3 m", "P 2 3 2", "P 4 -3 m", "P m -3 2", "P 2 -3", "P 4 1 m", "P 2/m 2 2", "P 6/m 2 2"}}};
  return rows;
}

TEST(HermannMauguinParser, WrongSymbolsAreRefusedInWords) {
  int n = 0;
  for (const auto& [words, symbols] : wrong())
    for (const char* symbol : symbols) {
      ++n;
      SCOPED_TRACE(symbol);
      space_group_type spg;
      spg.multip = 7;
      const err_symm_type err = get_so_from_hms(symbol, spg);
      EXPECT_TRUE(err.err_symm) << spg.multip;
      EXPECT_NE(err.err_symm_mess.find(words), std::string::npos) << err.err_symm_mess;
      EXPECT_TRUE(spg.symop.empty() && spg.multip == 0 && spg.spg_symb.empty() && spg.latt_trans.empty());
    }
  EXPECT_GE(n, 200);
}

}  // namespace

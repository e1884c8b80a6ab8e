#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

// ---- notations -----------------------------------------------------------------------------------------------------

TEST(Notation, SeitzAndKovalevOfAllPointOperations) {
  std::map<int, int> kovalev;
  int n = 0;
  for (const auto& row : tables::point_operations()) {
    sym_oper_type op;
    ASSERT_FALSE(read_xsym(row.xyz, 0, op));
    EXPECT_EQ(get_seitz(op.rot), row.seitz) << row.xyz;
    if (++n > 48) break;
    ++kovalev[get_symkov(op.rot)];
    // h25 to h48 are h1 to h24 times the inversion.
    matrix3i inverted = op.rot;
    for (auto& line : inverted)
      for (auto& e : line) e = -e;
    EXPECT_EQ((get_symkov(op.rot) + 23) % 48, get_symkov(inverted) - 1);
  }
  EXPECT_EQ(kovalev.size(), 48u);
  EXPECT_EQ(get_symkov({{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}}), 0);  // hexagonal
}

TEST(Notation, SymbolsOfOperators) {
  struct row {
    const char* xyz;
    const char* seitz;
    const char* primed;
    const char* element;
    std::array<int, 3> direction;
  };
  for (const row& t : {row{"x,y,z", "{1|0,0,0}", "1'", "1", {0, 0, 0}},
                       row{"x+1/2,y,z+1/2", "{1|1/2,0,1/2}", "t' (1/2,0,1/2)", "t", {0, 0, 0}},
                       row{"-x,-y,z+1/2", "{2_001|0,0,1/2}", "2' (0,0,1/2) 0,0,z", "21", {0, 0, 1}},
                       row{"-y,x,z+1/4", "{4+_001|0,0,1/4}", "4+' (0,0,1/4) 0,0,z", "41", {0, 0, 1}},
                       row{"y,-x,z+1/4", "{4-_001|0,0,1/4}", "4-' (0,0,1/4) 0,0,z", "43", {0, 0, 1}},
                       row{"x-y,x,z+5/6", "{6+_001|0,0,5/6}", "6+' (0,0,5/6) 0,0,z", "65", {0, 0, 1}},
                       row{"y,x,-z", "{2_110|0,0,0}", "2' x,x,0", "2", {1, 1, 0}},
                       row{"x,-y+1/2,z+1/2", "{m_010|0,1/2,1/2}", "c' x,1/4,z", "c", {0, 1, 0}},
                       row{"-y,x,-z", "{-4-_001|0,0,0}", "-4-' 0,0,z; 0,0,0", "-4", {0, 0, 1}},
                       row{"-x+1/2,-y,-z", "{-1|1/2,0,0}", "-1' 1/4,0,0", "-1", {0, 0, 0}}}) {
    SCOPED_TRACE(t.xyz);
    sym_oper_type op;
    ASSERT_FALSE(read_xsym(t.xyz, 0, op));
    EXPECT_EQ(get_seitz_symbol(op), t.seitz);
    EXPECT_EQ(get_shubnikov_operator_symbol(op, -1), t.primed);
    EXPECT_EQ(get_symel(op).symbol, t.element);
    EXPECT_EQ(get_symel(op).direction, t.direction);
    EXPECT_EQ(symmetry_symbol_xyz(t.xyz), symmetry_symbol_op(op));
  }
  EXPECT_EQ(symmetry_symbol_xyz("x,y"), "");
  EXPECT_EQ(get_transl_symbol({0.5f, 0.f, -0.25f}), "(1/2,0,-1/4)");
  EXPECT_EQ(get_seitz({{{1, 1, 0}, {0, 1, 0}, {0, 0, 1}}}), "?");
  const symmetry_element axis = get_symel({{{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}}, {0.5f, 0.5f, 0.5f}});
  EXPECT_NEAR(axis.location[0], 0.25, 1e-9);
  EXPECT_NEAR(axis.location[1], 0.25, 1e-9);
}

TEST(Notation, MagneticPartsAreReadAndWritten) {
  struct row {
    const char* text;
    const char* written;
  };
  for (const row t : {row{"u,v,w,0.5", "u,v,w,0.5000"}, row{"MSYM u,v,w,0.5", "u,v,w,0.5000"},
                      row{"msym  -U, v ,-w, 0.25 ", "-u,v,-w,0.2500"}, row{"DSYM v,u-v,w,0.00", "v,u-v,w,0.0000"},
                      row{"u,v,w", "u,v,w,0.0000"}, row{"-u+v,v,w,what", "-u+v,v,w,0.0000"},
                      row{"2u,v,w,-0.125", "2u,v,w,-0.1250"}}) {
    SCOPED_TRACE(t.text);
    msym_oper_type op, again;
    const err_symm_type err = read_msymm(t.text, op);
    ASSERT_FALSE(err) << err.err_symm_mess;
    EXPECT_EQ(get_msymm(op), t.written);
    ASSERT_FALSE(read_msymm(get_msymm(op), again));
    EXPECT_EQ(again.rot, op.rot);
    EXPECT_EQ(again.phase, op.phase);
  }
  struct wrong {
    const char* text;
    const char* words;
  };
  msym_oper_type op;
  for (const wrong t :
       {wrong{"x,y,z,0.5", " Invalid character... x"}, wrong{"msymu,v,w,0.5", " Invalid character... m"},
        wrong{"", " Blank operator field"}, wrong{"u,,w,0.5", " Blank operator field"},
        wrong{"u,u,w,0.5", " The above operator is wrong: "}, wrong{"u+1/2,v,w,0", " The above operator is wrong: "},
        wrong{"u,v,w,0.5,0.5", " The above operator is wrong: "}, wrong{"u,v", " Blank operator field"}})
    EXPECT_EQ(read_msymm(t.text, op).err_symm_mess.find(t.words), 0u) << t.text << read_msymm(t.text, op).err_symm_mess;
  EXPECT_FALSE(read_msymm("u,u,w,0.5", op, false));
  EXPECT_EQ(get_magsymb({{{-1, 1, 0}, {0, 1, 0}, {0, 0, -1}}}), "-mx+my,my,-mz");
  EXPECT_EQ(get_depsymb({{{0, -1, 0}, {1, -1, 0}, {0, 0, 1}}}), "-dy,dx-dy,dz");
}

// ---- the stored form -----------------------------------------------------------------------------------------------

TEST(StoredGroup, ComesBackButForWhatIsNotStored) {
  for (const char* symbol : {"P 1", "P n m a", "F d -3 m", "R -3 c:R", "P -3 m 1", "A 1"}) {
    SCOPED_TRACE(symbol);
    space_group_type spg, back;
    ASSERT_FALSE(set_spacegroup(symbol, spg));
    std::stringstream file;
    ASSERT_TRUE(write_bin_spacegroup(spg, file));
    file << "what follows";
    ASSERT_FALSE(read_bin_spacegroup(file, back));
    space_group_type stored = spg;
    stored.hall.resize(std::min<std::size_t>(stored.hall.size(), 16));
    for (auto& w : stored.wyckoff.orbit) w.multp = 0, w.letter = ' ', w.site.clear();
    EXPECT_TRUE(back == stored) << write_spacegroup(back, false);
    std::string rest;
    std::getline(file, rest);
    EXPECT_EQ(rest, "what follows");
  }
}

TEST(StoredGroup, DamageIsRefused) {
  space_group_type spg;
  ASSERT_FALSE(set_spacegroup("P n m a", spg));
  std::stringstream file;
  ASSERT_TRUE(write_bin_spacegroup(spg, file));
  const std::string whole = file.str();
  for (std::size_t length = 0; length < whole.size(); length += 7) {
    std::istringstream cut(whole.substr(0, length));
    space_group_type back;
    back.multip = 5;
    EXPECT_TRUE(read_bin_spacegroup(cut, back).err_symm) << length;
    EXPECT_EQ(back.multip, 5);
  }
  for (std::size_t at = 0; at < whole.size(); at += 3) {  // any byte turned over: refused or read, never a crash
    std::string bent = whole;
    bent[at] = static_cast<char>(~bent[at]);
    std::istringstream from(bent);
    space_group_type back;
    if (!read_bin_spacegroup(from, back)) {
      EXPECT_EQ(back.symop.size(), static_cast<std::size_t>(back.multip));
    }
  }
}

}  // namespace

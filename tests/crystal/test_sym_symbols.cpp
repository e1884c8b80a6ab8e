#include <gtest/gtest.h>

#include "symmetry_samples.hpp"

namespace {
using namespace symmetry_samples;

TEST(SpaceGroupSymbol, IsReadAsUsersWriteIt) {
  struct row {
    const char* text;
    const char* symbol;
    const char* hall;
  };
  for (const row t : {row{"P n m a", "P n m a", "-P 2ac 2n"},
                      row{"Pnma", "P n m a", "-P 2ac 2n"},
                      row{"  PNMA ", "P n m a", "-P 2ac 2n"},
                      row{"62", "P n m a", "-P 2ac 2n"},
                      row{"P 63 m c", "P 63 m c", "P 6c -2c"},
                      row{"P6_3mc", "P 63 m c", "P 6c -2c"},
                      row{"R -3 c", "R -3 c", "-R 3 2\"c"},
                      row{"R-3c:H", "R -3 c", "-R 3 2\"c"},
                      row{"R -3 c:R", "R -3 c:R", "-P 3* 2n"},
                      row{"167:r", "R -3 c:R", "-P 3* 2n"},
                      row{"Fd3m", "F d -3 m", "-F 4vw 2vw 3"},
                      row{"227", "F d -3 m", "-F 4vw 2vw 3"},
                      row{"227:2", "F d -3 m", "-F 4vw 2vw 3"},
                      row{"227:1", "F d -3 m:1", "F 4d 2 3 -1d"},
                      row{"F d -3 m : 1", "F d -3 m:1", "F 4d 2 3 -1d"},
                      row{"I a 3", "I a -3", "-I 2b 2c 3"},
                      row{"C 2/c", "C 1 2/c 1", "-C 2yc"},
                      row{"P21/n", "P 1 21/n 1", "-P 2yn"},
                      row{"15:c1", "A 1 1 2/a", "-A 2a"},
                      row{"C m c e", "C m c a", "-C 2ac 2"},
                      row{"P 4/n:1", "P 4/n:1", "P 4ab -1ab"},
                      row{"50:cab", "P n c b", "-P 2b 2bc"},
                      row{"50:1cab", "P n c b:1", "P 2 2 -1bc"},
                      row{"68:abc", "C c c a", "-C 2a 2ac"},
                      row{"59:bca", "P m n m", "-P 2c 2a"},
                      row{"P 32", "P 32", "P 32"},
                      row{"P 312", "P 3 1 2", "P 3 2"},
                      row{"R 32", "R 3 2", "R 3 2\""},
                      row{"P 6_3 mc", "P 63 m c", "P 6c -2c"},
                      row{"F m-3m", "F m -3 m", "-F 4 2 3"},
                      row{"P 21 / n", "P 1 21/n 1", "-P 2yn"},
                      row{"P - 3 m 1", "P -3 m 1", "-P 3 2\""},
                      row{"I 2 3a", "I 2 3a", "I 2ab 2bc 3"},
                      row{"F -4 3 n", "F -4 3 c", "F -4a 2 3"},
                      row{"F m -3 n", "F m -3 c", "-F 4a 2 3"},
                      row{"F d -3 n", "F d -3 c", "-F 4ud 2vw 3"},
                      row{"Fd-3n:1", "F d -3 c:1", "F 4d 2 3 -1ad"}}) {
    SCOPED_TRACE(t.text);
    space_group_type spg;
    const err_symm_type err = set_spacegroup(t.text, spg);
    ASSERT_FALSE(err) << err.err_symm_mess;
    EXPECT_EQ(spg.spg_symb, t.symbol);
    EXPECT_EQ(spg.hall, t.hall);
    EXPECT_EQ(spg.note, "");
  }
  EXPECT_EQ(group_of("-f 4vw 2vw 3", "HAL").spg_symb, "F d -3 m");
  EXPECT_EQ(group_of("P 31 2 (0 0 4)", "HAL").spg_symb, "P 31 1 2");
}

// What no table has is told with what it was taken for.
TEST(SpaceGroupSymbol, OtherLettersAreTakenWithANote) {
  struct row {
    const char* text;
    int number;  // of the table, 0 where the axes or the origin are others
    int multip;
    const char* words;
  };
  for (const row& t : {row{"R 3 2 1", 155, 18, "Its letters say R 3 2 (number 155)"},
                       row{"R -3 c 1", 167, 36, "Its letters say R -3 c (number 167)"},
                       row{"C 21 1 1", 0, 4, "C 1 2 1 (number 5) on other axes or another origin, 4 operators"},
                       row{"F 4/m m c", 0, 64, "I 4/m c m (number 140)"},
                       row{"H3", 146, 9, "H3 is taken as R 3, rhombohedral lattice on hexagonal axes"},
                       row{"H 3 2", 155, 18, "H 3 2 is taken as R 3 2"}, row{"h 32", 155, 18, "h 32 is taken as R 3 2"},
                       row{"H 3 2 1", 0, 18, "P 3 1 2 (number 149)"}}) {
    SCOPED_TRACE(t.text);
    const space_group_type spg = group_of(t.text);
    EXPECT_EQ(spg.numspg, t.number);
    EXPECT_EQ(spg.multip, t.multip);
    EXPECT_NE(spg.note.find(t.words), std::string::npos) << spg.note;
  }
}

// What is read, why it is none, and what may have been meant.
TEST(SpaceGroupSymbol, RefusalsNameTheNearestSymbols) {
  struct row {
    const char* text;
    const char* mode;
    std::vector<const char*> words;
  };
  const char* lost_trigonal = "2 fields behind the lattice, a trigonal symbol has 1 or 3";
  for (const row& t :
       {row{"P 3 2", "", {"P 3 2: ", lost_trigonal, "Nearest symbols: P 32, P 3 1 2, P 3 2 1", "HALL P 3 2"}},
        row{"P 63 2", "", {"a hexagonal symbol has 1 or 3. Nearest symbols: P 63 2 2"}},
        row{"P 1 2", "", {"Nearest symbols: P 1 2 1, P 1 1 2"}},
        row{"P 31 2", "", {lost_trigonal, "P 31 1 2, P 31 2 1"}},
        row{"P 2 1/c", "", {"Nearest symbols: P 21/c"}},
        row{"P 4 2", "", {"Nearest symbols: P 42, P 4 2 2"}},
        row{"P 42 12", "", {"Nearest symbols: P 4 21 2"}},
        row{"P 3 21", "", {"Nearest symbols: P 3 2 1"}},
        row{"P 4 21", "", {"Nearest symbols: P 4 21 2"}},
        row{"I 2 3 a", "", {"field 3 of a cubic symbol cannot be a"}},
        row{"F 41 2 3", "", {"field 3 of a tetragonal symbol cannot be 3", "F 41 3 2"}},
        row{"P 4/m m b", "", {"field 3 of a tetragonal symbol cannot be b", "Nearest symbols: P 4/m m m"}},
        row{"P m -3 a", "", {"field 3 of a cubic symbol cannot be a", "Nearest symbols: P m -3 m"}},
        row{"P m -3 d", "", {"no group has just these elements"}},
        row{"I 3 2 1", "", {"no such lattice in a trigonal"}},
        row{"Pnmz", "", {"Pnmz", "P n m a"}},
        row{"-P 2ac 2n", "", {"A Hall symbol is written HALL -P 2ac 2n"}},
        row{"F d -3 m:3", "", {"no setting choice '3'. It has: 1, 2"}},
        row{"50:xyz", "", {"no setting choice 'xyz'. It has: 1, 2, 1cab, 2cab, 1bca, 2bca"}},
        row{"R 3 2 1", "HAL", {"a lattice of 9 points, its letter one of 3. Nearest Hall symbols: R 3 2\""}},
        row{"P 4 21", "HAL", {"a lattice of 2 points, its letter one of 1"}},
        row{"F 41 2 3", "HAL", {"F 41 2 3", "Nearest Hall symbols: "}}}) {
    SCOPED_TRACE(std::string(t.text) + t.mode);
    space_group_type spg;
    const err_symm_type err = set_spacegroup(t.text, spg, {}, t.mode);
    ASSERT_TRUE(err) << spg.spg_symb;
    for (const char* words : t.words) EXPECT_NE(err.err_symm_mess.find(words), std::string::npos) << err.err_symm_mess;
    EXPECT_EQ(spg.multip, 0);
  }
}

TEST(SpaceGroupSymbol, EveryAliasNamesItsRowWithAndWithoutBlanks) {
  for (const auto& a : tables::spgr_aliases()) {
    SCOPED_TRACE(a.symbol);
    std::string packed;
    for (const char c : a.symbol)
      if (c != ' ') packed += c;
    EXPECT_EQ(tables::preferred_row(tables::find_hm(a.symbol)), a.row);
    EXPECT_EQ(tables::preferred_row(tables::find_hm(packed)), a.row);
  }
}

// A Hall symbol that is in no table is built from its letters.
TEST(HallSymbol, OriginShiftMovesTheGroup) {
  space_group_type spg;
  ASSERT_FALSE(set_spacegroup("-P 2ac 2n (3 0 0)", spg, {}, "HAL"));
  EXPECT_EQ(spg.numspg, 0);
  EXPECT_EQ(spg.multip, 8);
  EXPECT_EQ(spg.pg, "mmm");
  EXPECT_EQ(spg.centred, centring_code::centric_elsewhere);
  EXPECT_NEAR(spg.centre_coord[0], 0.25f, 1e-6f);  // the centre moves with the shift of 3/12
  EXPECT_EQ(spg.symopsymb[1], "-x,-y,z+1/2");      // -x+1/2 moved by 2 * 1/4
}

TEST(SpaceGroupSymbol, UnknownTextIsRefusedAndLeavesAnEmptyRecord) {
  struct row {
    const char* text;
    const char* mode;
    const char* words;
  };
  for (const row t : {row{"", "", "Error in the provided symbol/number of the space group"},
                      row{"0", "", " Number of Space Group out of limits"},
                      row{"231", "", "[1,230]"},
                      row{"99999999999999999999", "", " Number of Space Group out of limits"},
                      row{"62:3", "", "Error in the provided symbol/number of the space group"},
                      row{"P n m a:R", "", "no setting choice 'R'"},
                      row{"P n m a:", "", "no setting choice"},
                      row{":1", "", " Wrong space-group symbol: "},
                      row{"P n m z", "", " Wrong space-group symbol: P n m z"},
                      row{"P n m z", "HMS", " Wrong space-group symbol: P n m z"},
                      row{"P n m z", "ITC", " => the HM symbol or the number is incorrect "},
                      row{"Q 2", "HAL", " Wrong space-group symbol: "},
                      row{"P", "HAL", " Wrong space-group symbol: "},
                      row{"P 5", "HAL", " Wrong space-group symbol: "},
                      row{"P 2 (0 0", "HAL", " Wrong space-group symbol: "},
                      row{"P 2 (0 0 x)", "HAL", " Wrong space-group symbol: "},
                      row{"P 22", "HAL", " not allowed Screw axis: "},
                      row{"P -31", "HAL", " not allowed Screw axis: "},
                      row{"P 4*", "HAL", " Axes rotation wrong"},
                      row{"P 2xy", "HAL", " Axes rotation wrong"},
                      row{"P 2 4", "HAL", " Axes rotation wrong"},
                      row{"P 6 4x", "HAL", " Wrong space-group symbol: "},  // no finite group
                      row{"P 1", "XYZ", " Space Group Not Defined... Blank Option"},
                      row{"P 1", "GEN", " Generators should be provided in GEN calling Set_SpaceGroup"},
                      row{"P 1", "FIX", " Generators should be provided if FIX option is Used"}}) {
    SCOPED_TRACE(std::string(t.text) + "|" + t.mode);
    space_group_type spg;
    spg.multip = 7;
    const err_symm_type err = set_spacegroup(t.text, spg, {}, t.mode);
    EXPECT_TRUE(err.err_symm);
    EXPECT_NE(err.err_symm_mess.find(t.words), std::string::npos) << err.err_symm_mess;
    EXPECT_EQ(spg.multip, 0);
    EXPECT_TRUE(spg.symop.empty());
  }
}

TEST(Operators, AreReadInEveryCustomaryForm) {
  struct row {
    const char* text;
    const char* written;
  };
  for (const row t : {row{"x,y,z+1/2", "x,y,z+1/2"}, row{"x,y,0.5+z", "x,y,z+1/2"}, row{"x, y, z+.5", "x,y,z+1/2"},
                      row{"1/2+x, 1/2-y, z", "x+1/2,-y+1/2,z"}, row{"-Y,X-Y,Z+1/3", "-y,x-y,z+1/3"},
                      row{"+x,-x+y,-z-1/4", "x,-x+y,-z-1/4"}, row{"z*x*y", "z,x,y"}, row{"x+7/12,y,z", "x+7/12,y,z"},
                      row{"x+0.1234,y,z", "x+0.1234,y,z"}, row{"2x,y,z", "2x,y,z"}, row{"y-x,y,1+z", "-x+y,y,z+1"}}) {
    SCOPED_TRACE(t.text);
    sym_oper_type op;
    const err_symm_type err = read_xsym(t.text, 0, op);
    ASSERT_FALSE(err) << err.err_symm_mess;
    EXPECT_EQ(get_symsymbi(op.rot, op.tr), t.written);
  }
  sym_oper_type op;
  ASSERT_FALSE(read_xsym("SYMM -x,y,-z", 5, op));
  EXPECT_EQ(get_symsymbi(op.rot, op.tr), "-x,y,-z");
}

TEST(Operators, BadTextIsRefusedWithTheReason) {
  struct row {
    const char* text;
    const char* words;
  };
  sym_oper_type op;
  for (const row t : {row{"x,,z", " Blank operator field"},
                      row{"x,y", " Blank operator field"},
                      row{"", " Blank operator field"},
                      row{"x,y,w", " Invalid character... w in operator string"},
                      row{"x,y,z+1/", " Invalid character... /"},
                      row{"x,y,z+1/0", " Invalid character... 0"},
                      row{"x,y,z+", " Invalid character... +"},
                      row{"x,y,1.2.3", " Invalid character... ."},
                      row{"x,x,z", " The above operator is wrong: x,x,z"},
                      row{"99999999999x,y,z", " The above operator is wrong: "},
                      row{"x,y,-+z", " Invalid character... +"},
                      row{"--x,y,z", " Invalid character... -"},
                      row{"x,y-+1/2,z", " Invalid character... +"},
                      row{"xy,y,z", " Invalid character... y"},
                      row{"x2,y,z", " Invalid character... 2"},
                      row{"x 1/2,y,z", " Invalid character... 1"},
                      row{"x/2y,y,z", " Invalid character... y"},
                      row{"x,y,z*2", " Invalid character... *"},
                      row{"x,y,z,", " Invalid character... ,"},
                      row{"2*x,y,z", " Invalid character... ,"}}) {
    SCOPED_TRACE(t.text);
    const err_symm_type err = read_xsym(t.text, 0, op);
    EXPECT_TRUE(err.err_symm);
    EXPECT_EQ(err.err_symm_mess.find(t.words), 0u) << err.err_symm_mess;
  }
  EXPECT_TRUE(read_xsym("x,y,z", 99, op));
  EXPECT_FALSE(read_xsym("x,x,z", 0, op, false));  // a position, not an operator
  EXPECT_EQ(check_generator("2x,y,z", op).err_symm_mess,
            "The matrix corresponding to a generator has a determinant with absolute value different of 1.0");
  EXPECT_EQ(check_generator("1/2x,y,z", op).err_symm_mess,
            "The matrix corresponding to a generator has non-integer values!");
  space_group_type spg;
  const std::vector<std::string> shear{"x+y,y,z"};  // determinant 1, but of infinite order
  EXPECT_EQ(set_spacegroup("", spg, shear, "GEN")
                .err_symm_mess.find("Problems constructing the multiplication Table of the space group: "),
            0u);
}

// The published symbols of all point operations, and of operators of Vol. A with screw and glide parts.
TEST(Operators, HaveTheirSymbolsOfInternationalTables) {
  int number = 0;
  for (const auto& row : tables::point_operations()) {
    sym_oper_type op;
    ASSERT_FALSE(read_xsym(row.xyz, 0, op));
    EXPECT_EQ(symmetry_symbol_op(op), row.intsym) << row.xyz;
    ++number;
    // Proper operations come first in both groups; 1..24 are those of m-3m, 25..36 those of 6/mmm.
    const int expected = number <= 24 ? number : number <= 48 ? 24 - number : number <= 60 ? number - 24 : 36 - number;
    EXPECT_EQ(searchop(op.rot, number <= 48 ? 1 : 25), expected);
  }
  struct row {
    const char* xyz;
    const char* symbol;
  };
  for (const row t :
       {row{"-x+1/2,-y,z+1/2", "2 (0,0,1/2) 1/4,0,z"}, row{"x+1/2,y,-z+1/2", "a x,y,1/4"},
        row{"-x+1/2,y+1/2,z+1/2", "n (0,1/2,1/2) 1/4,y,z"}, row{"y,x,-z+1/2", "2 x,x,1/4"},
        row{"-y+3/4,x+1/4,z+1/4", "4+ (0,0,1/4) 1/4,1/2,z"}, row{"x+3/4,-y+1/4,z+1/2", "g (3/4,0,1/2) x,1/8,z"},
        row{"x+1/4,y+1/4,-z", "d (1/4,1/4,0) x,y,0"}, row{"x+1/2,y+1/2,z", "t (1/2,1/2,0)"},
        row{"-x+1/2,-y,-z", "-1 1/4,0,0"}, row{"y+1/4,-x+3/4,-z+3/4", "-4+ 1/2,1/4,z; 1/2,1/4,3/8"}}) {
    sym_oper_type op;
    ASSERT_FALSE(read_xsym(t.xyz, 0, op));
    EXPECT_EQ(symmetry_symbol_op(op), t.symbol) << t.xyz;
  }
}

TEST(Operators, ProductsAndLikeness) {
  const sym_oper_type screw{{{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}}, {0.5f, 0.f, 0.5f}};
  EXPECT_EQ(product_symop(screw, screw), (sym_oper_type{sym_oper_type{}.rot, {0.f, 0.f, 1.f}}));
  EXPECT_EQ(sym_prod(screw, screw), sym_oper_type{});
  sym_oper_type centred = screw;
  centred.tr = {0.f, -0.5f, 1.5f};
  EXPECT_FALSE(equal_symop(screw, centred));
  EXPECT_TRUE(equiv_symop(screw, centred, latsym('C')));
  EXPECT_FALSE(equiv_symop(screw, centred, latsym('I')));
}

TEST(Lattice, CentringVectorsAreToldByTheirLetter) {
  struct row {
    vector3 v;
    const char* letters;  // lattices that hold it
  };
  for (const row& t :
       {row{{0.f, -1.f, 2.f}, "PABCIRF"}, row{{0.5f, 0.5f, 0.f}, "CF"}, row{{-0.5f, 1.5f, 1.0005f}, "CF"},
        row{{0.f, 0.5f, 0.5f}, "AF"}, row{{0.5f, 0.f, 0.5f}, "BF"}, row{{0.5f, 0.5f, 0.5f}, "I"},
        row{{0.6667f, 0.3333f, 0.3333f}, "R"}, row{{0.3333f, 0.6667f, 0.3333f}, ""}, row{{0.1f, 0.f, 0.f}, ""}})
    for (const char letter : std::string_view("PABCIRF")) {
      const bool holds = std::string_view(t.letters).find(letter) != std::string_view::npos;
      EXPECT_EQ(lattice_trans(t.v, letter), holds) << letter << t.v[0] << ' ' << t.v[1] << ' ' << t.v[2];
      EXPECT_EQ(lattice_trans(t.v, static_cast<char>(letter + 32)), holds);
    }
  EXPECT_TRUE(latsym('Q').empty());
}

TEST(Tables, OlderSpellingsFoldOnThePresentOnes) {
  EXPECT_EQ(tables::get_laue_num("m3"), tables::get_laue_num("m-3"));
  EXPECT_EQ(tables::get_laue_num("m3m  "), 14);
  EXPECT_EQ(tables::get_laue_num("m4"), 0);
  EXPECT_EQ(tables::get_pointgroup_num("m3m"), tables::get_pointgroup_num("m-3m"));
  EXPECT_EQ(tables::get_pointgroup_num("-3m1"), tables::get_pointgroup_num("-3m"));
  EXPECT_EQ(tables::get_laue_class(0), "-1");
  EXPECT_EQ(tables::get_laue_class(231), "-1");
  for (const char* text : {"19", "P 21 21 21", "p212121"})
    EXPECT_EQ(tables::get_generators(text), &tables::spg_gen()[18]) << text;
  for (const char* text : {"", "0", "231", "P b n m", "Q"}) EXPECT_EQ(tables::get_generators(text), nullptr) << text;
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "../own_directory.hpp"
#include "lmix_string_utilities.hpp"
#include "random_lines.hpp"

namespace {

using namespace lmix_string_utilities;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringWords, CutstTakesTheFirstWord) {
  struct row {
    std::string line, word, rest;
  };
  for (const row& r : {row{"", "", ""}, row{"   ", "", ""}, row{"x", "x", ""}, row{"  ab  cd e ", "ab", "cd e"},
                       row{"a\tb c", "a\tb", "c"}}) {
    SCOPED_TRACE(r.line);
    std::string_view line = r.line;
    EXPECT_EQ(cutst(line), r.word);
    EXPECT_EQ(line, r.rest);
  }
}

TEST(StringWords, GetwordHonoursQuotes) {
  EXPECT_THAT(getword("  one \"two three\"four  5 ").dire, ElementsAre("one", "two three", "four", "5"));
  EXPECT_THAT(getword("").dire, IsEmpty());
  EXPECT_THAT(getword("a \"\" b").dire, ElementsAre("a"));
  const getword_result open = getword("a \"b c");
  EXPECT_EQ(open.err.err_string_mess, "Non balanced quotes!");
  EXPECT_EQ(open.iv, 1);
  const getword_result many = getword("a b c d", 2);
  EXPECT_EQ(many.err.err_string_mess, "Dimension of DIRE exceeded");
  EXPECT_EQ(many.iv, 3);
  EXPECT_THAT(many.dire, ElementsAre("a", "b"));
}

TEST(StringWords, GetnumReadsItsNarrowGrammar) {
  struct row {
    std::string line;
    std::vector<float> vet;
    std::vector<int> ivet;
    std::string error;
  };
  const std::string no_number = "The variable cannot be computed as a number in GETNUM ";
  const std::string limits = "Limits of digit variable exceeded in GETNUM";
  const std::vector<row> rows{
      {"12 -3.5 .25", {12, -3.5, .25}, {12, -3, 0}, ""},
      {"1e2 2.5E-1", {100, .25}, {1, 2}, ""},
      {"", {}, {}, ""},
      {"007 1234567890123", {7, 1234567890123.f}, {7, 2147483647}, ""},
      {"000000000000000000000000000000000000000000000001", {1}, {1}, ""},
      {"1E+5", {}, {}, no_number},
      {"nan", {}, {}, no_number},
      {"1-2", {}, {}, limits},
      {"1E2E3", {}, {}, limits},
      {"1E99", {}, {}, limits},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.line);
    const getnum_result result = getnum(r.line);
    EXPECT_EQ(result.err.err_string_mess, r.error);
    EXPECT_EQ(result.err.err_string, !r.error.empty());
    EXPECT_EQ(result.iv, static_cast<int>(r.vet.size()));
    EXPECT_EQ(result.ivet, r.ivet);
    ASSERT_EQ(result.vet.size(), r.vet.size());
    for (std::size_t i = 0; i < r.vet.size(); ++i) EXPECT_NEAR(result.vet[i], r.vet[i], 2e-7f * std::abs(r.vet[i]));
  }
}

TEST(StringWords, GetnumStdReadsBrackets) {
  const getnum_std_result good = getnum_std(" 1.234(5) 12(3) 7.5 -0.25(12) ! 9");
  EXPECT_FALSE(good.err.err_string);
  EXPECT_EQ(good.ic, 4);
  const float value[] = {1.234f, 12.f, 7.5f, -.25f}, std[] = {.005f, 3.f, 0.f, .12f};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(good.value[i], value[i], 1e-6f);
    EXPECT_NEAR(good.std[i], std[i], 1e-6f);
  }
  EXPECT_EQ(getnum_std("1 # 2").ic, 1);
  EXPECT_EQ(getnum_std("1 # 2 ! 3").err.err_string_mess, "Bad format") << "with a ! only the ! cuts";
  EXPECT_EQ(getnum_std("  ").err.err_string_mess, "Blank line");
  for (const char* text : {"1.2)3(", "1.2(3", "1.2)"}) {
    EXPECT_EQ(getnum_std(text).err.err_string_mess, "Wrong format using Standard values") << text;
  }
  for (const char* text : {"1.2(x)", "x(1)", "(1)", "1.2()"}) {
    EXPECT_EQ(getnum_std(text).err.err_string_mess, "Bad format") << text;
  }
}

TEST(StringNumbers, SetnumStdKeepsTwoToNineteenUnits) {
  struct row {
    float value, std;
    std::string line;
  };
  const float nan = std::nanf("");
  for (const row& r :
       {row{1.25f, .0123f, " 1.250(13)"}, row{1.25f, .199f, " 1.2(2)"}, row{-1.25f, .5f, "-1.2(5)"},
        row{12.f, 3.f, " 12(3)"}, row{1234.56f, 25.2f, " 1235(26)"}, row{1234.5f, 25.05f, " 1234(25)"},
        row{5.4311f, .0002f, " 5.4311(2)"}, row{5.4311f, .00019f, " 5.43110(19)"}, row{1.25f, 1.99f, " 1.2(20)"},
        row{1e12f, 1e9f, " 999999995904(1000000000)"}, row{0.f, .1f, " 0.00000"}, row{1e6f, .1f, " 1000000.00"},
        row{2e5f, .1f, " 200000.00000"}, row{1.25f, 0.f, " 1.25000"}, row{-1.25f, 0.f, "-1.2500"},
        row{nan, 0.1f, " NaN"}, row{-INFINITY, 1.f, " INF"}}) {
    SCOPED_TRACE(r.line);
    EXPECT_EQ(setnum_std(r.value, r.std).line, r.line);
  }
  EXPECT_EQ(setnum_std(1.f, -1.f).err.err_string_mess,
            "A negative standard deviation was passed on SetNum_Std procedure!");
}

TEST(StringNumbers, BracketsReadBackWithinTheirRounding) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> mantissa(-10.f, 10.f), power(-3.f, 3.f);
  for (int i = 0; i < 5000; ++i) {
    const float std = std::pow(10.f, power(random)), value = mantissa(random) * std * 10.f;
    const std::string line = setnum_std(value, std).line;
    const getnum_std_result back = getnum_std(line);
    ASSERT_EQ(back.ic, 1) << line;
    ASSERT_NEAR(back.value[0], value, .26f * std) << line;  // half a unit of a bracket of 2 or more
    ASSERT_TRUE(back.std[0] > .95f * std && back.std[0] < 1.5f * std) << line << " for " << std;
  }
}

TEST(StringNumbers, RformatFillsItsWidth) {
  EXPECT_EQ(rformat(1.25f, 8), " 1.25000");
  EXPECT_EQ(rformat(12.5f, 8), " 12.5000");
  EXPECT_EQ(rformat(0.f, 8), " 0.00000");
  EXPECT_EQ(rformat(-1.25f, 8), " -1.2500");
  EXPECT_EQ(rformat(123456.f, 8), " 123456.");
  EXPECT_EQ(rformat(1.5e9f, 8), "0.15E+10");
  EXPECT_EQ(rformat(std::nanf(""), 6), "   NaN");
  EXPECT_EQ(rformat(INFINITY, 6), "   INF");
}

TEST(StringFractions, TextOfAReal) {
  struct row {
    float v;
    std::string two, one;
  };
  for (const row& r : {row{0.f, "0", "0"}, row{1.f, "+1", "+1"}, row{-2.f, "-2", "-2"}, row{.5f, "+1/2", "+1/2"},
                       row{-1.f / 3.f, "-1/3", "-1/3"}, row{2.f / 3.f, "+2/3", "+2/3"}, row{1.5f, "+3/2", "+3/2"},
                       row{5.f / 24.f, "+5/24", "+0.208"}, row{-.123f, "-0.1230", "-0.1230"},
                       row{.7123f, "+0.7123", "+0.712"}, row{1.000005f, "+1", "+1"}, row{2000.f, "+***", "+***"}}) {
    SCOPED_TRACE(r.two);
    EXPECT_EQ(get_fraction_2dig(r.v), r.two);
    EXPECT_EQ(get_fraction_1dig(r.v), r.one);
  }
  const float vec[] = {.5f, -.25f, 0.f}, fine[] = {1.f / 12.f, 1.f, .123f};
  EXPECT_EQ(frac_trans_1dig(vec), "(1/2,-1/4,0)");
  EXPECT_EQ(frac_trans_2dig(fine), "(1/12,1,0.1230)");
}

TEST(StringFractions, EveryReducedFractionReadsBack) {
  for (int d = 2; d <= 24; ++d) {
    for (int n = 1; n <= 24; ++n) {
      const float v = -static_cast<float>(n) / static_cast<float>(d);
      const read_fract_result back = read_fract(get_fraction_2dig(v));
      EXPECT_FALSE(back.err.err_string);
      EXPECT_NEAR(back.value, v, 1e-5f);
    }
  }
  EXPECT_EQ(read_fract("+").value, 1.f);
  EXPECT_EQ(read_fract(" - ").value, -1.f);
  EXPECT_EQ(read_fract("+0.25").value, .25f);
  for (const char* text : {"", "1/0", "1/", "/2", "1/-2", "1/+2", "a", "1/2/3", "nan"}) {
    EXPECT_EQ(read_fract(text).err.err_string_mess, std::string(" The provided symbol is illegal: ") + text);
  }
}

TEST(StringSettings, SymbolsReadAndWrite) {
  const setting_result good = get_transf(" a+b, 1/2A-b ,-c ; 0,-1/4,0.5");
  EXPECT_FALSE(good.err.err_string) << good.err.err_string_mess;
  EXPECT_EQ(good.mat, (matrix_3{{{1, 1, 0}, {.5f, -1, 0}, {0, 0, -1}}}));
  EXPECT_EQ(good.origin, (vector_3{0, -.25f, .5f}));
  EXPECT_EQ(get_symb_from_mat(good.mat), "a+b,1/2a-b,-c");
  EXPECT_EQ(get_symb_from_mat(good.mat, good.origin, "xyz"), "x+y,1/2x-y,-z;0,-1/4,1/2");
  EXPECT_EQ(get_transf("\"x-y,x,z\"|0,0,0", '|').mat, (matrix_3{{{1, -1, 0}, {1, 0, 0}, {0, 0, 1}}}));
  EXPECT_EQ(get_symb_from_mat(get_mat_from_symb("b,0,a+b+c").mat), "b,0,a+b+c");
}

TEST(StringSettings, FaultyTextIsNamed) {
  EXPECT_EQ(get_transf("a,b,c").err.err_string_mess,
            " No appropriate separator (;) is present in the input string:a,b,c");
  EXPECT_EQ(get_transf("a,b;0,0,0").err.err_string_mess, " Bad matrix setting...: a,b");
  EXPECT_EQ(get_transf("a,b,c;0,0").err.err_string_mess, " Bad origing setting...: 0,0");
  for (const char* text : {"", ",,", "a,b,2", "a,b,c,a", "a,b,ab", "a,b,1/0c", "a,b,x", "a,b,c+", "a,b,--c"}) {
    EXPECT_TRUE(get_mat_from_symb(text).err.err_string) << text;
  }
  EXPECT_TRUE(get_transf("a,b,c;0,0,z").err.err_string);
}

TEST(StringRoutines, ByTheirNames) {
  EXPECT_EQ(pack_string(" a b  c "), "abc");
  EXPECT_EQ(u_case("aZ\xe4{"), "AZ\xe4{");
  EXPECT_EQ(l_case("Az@["), "az@[");
  EXPECT_EQ(strip_string("name.pcr", ".pcr"), "name");
  EXPECT_EQ(string_count("aaaa", "aa"), 2);
  EXPECT_EQ(sstring_replace("a,b,c", ",", ", "), "a, b, c");
  EXPECT_EQ(sstring_replace("abc", "", "x"), "abc");
  EXPECT_THAT(get_separator_pos("a,\"b,c\",d", ','), ElementsAre(1, 7));
  const std::vector<std::string> one{"a", "b", "a"}, two{"b", "a", "a"}, three{"a", "b", "b"};
  EXPECT_TRUE(equal_sets_text(one, two));
  EXPECT_FALSE(equal_sets_text(one, three));
  struct row {
    std::string path, dir, base, extension;
  };
  for (const row& r : {row{"/a/b.c/d.dat", "/a/b.c", "d.dat", ".dat"}, row{"d", ".", "d", ""},
                       row{"/d.x.y", "/", "d.x.y", ".y"}, row{"a.b/", "a.b", "", ""}}) {
    EXPECT_EQ(get_dirname(r.path), r.dir);
    EXPECT_EQ(get_basename(r.path), r.base);
    EXPECT_EQ(get_extension(r.path), r.extension);
  }
}

TEST(StringKeys, TheFirstLineWithTheKeywordWins) {
  const std::vector<std::string> lines{
      "! cell 9", "", "# CELL 8", " Cell_par 5.4 90.0", "cell 7", "name  a B ", "bad +5", "esd 1.234(5) 2", "empty"};
  const int last = static_cast<int>(lines.size()) + 5;
  int line = 0;
  key_result result = read_key_value(lines, line, last, " CELL", '#');
  EXPECT_TRUE(result.found);
  EXPECT_EQ(line, 3);
  EXPECT_THAT(result.vet, ElementsAre(testing::FloatNear(5.4f, 1e-6f), 90.f));
  EXPECT_THAT(result.ivet, ElementsAre(5, 90));
  line = 4;
  EXPECT_EQ(read_key_str(lines, line, last, "name").text, "a B");
  EXPECT_EQ(line, 5);
  result = read_key_value(lines, line, last, "bad");
  EXPECT_TRUE(result.err.err_string);
  EXPECT_EQ(line, 5) << "a text that cannot be read leaves the place as it was";
  result = read_key_valuestd(lines, line, last, "esd");
  EXPECT_THAT(result.std, ElementsAre(testing::FloatNear(.005f, 1e-7f), 0.f));
  line = 0;
  result = read_key_strval(lines, line, last, "empty");
  EXPECT_TRUE(result.found && result.text.empty() && result.vet.empty() && !result.err.err_string);
  line = 0;
  EXPECT_FALSE(read_key_str(lines, line, 6, "esd").found);
  EXPECT_FALSE(read_key_str(lines, line, last, "").found);
  EXPECT_EQ(line, 0);
}

TEST(StringKeys, LinesOfAFile) {
  const std::string path = own_directory() + "string_keys.txt";
  std::ofstream(path) << "one\r\ntwo\nEND here\nfour";
  EXPECT_EQ(number_lines(path), 4);
  EXPECT_EQ(number_lines(path, "end"), 2);
  EXPECT_THAT(*reading_lines(path, 2), ElementsAre("one", "two"));
  EXPECT_EQ(reading_lines(path, 100)->size(), 4u);
  EXPECT_EQ(number_lines(path + ".missing"), std::nullopt);
  EXPECT_FALSE(reading_lines(path + ".missing", 1));
}

TEST(StringWords, GarbageIsSurvived) {
  const std::string characters = "0123456789.-E()/+,;\"abcxyz !#  ";
  std::mt19937 random(99);
  for (int i = random_lines() / 2; i > 0; --i) {
    const std::string text = random_text(random, characters, 25);
    getword(text);
    for (const float value : getnum(text).vet) ASSERT_TRUE(std::isfinite(value)) << text;
    getnum_std(text);
    ASSERT_TRUE(std::isfinite(read_fract(text).value)) << text;
    get_transf(text);
  }
}

}  // namespace

#include "lmix_fixed_format.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using lmix_fixed_format::field_values;
using lmix_fixed_format::fixed_format;
using lmix_fixed_format::fmt_line;
using lmix_fixed_format::parse_integer;
using lmix_fixed_format::parse_real;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// The expected fields follow the rules of the Fortran standard (ISO/IEC 1539-1, data edit descriptors).
TEST(FixedFormatWriter, RealFields) {
  struct row {
    char kind;
    int width, decimals;
    double value;
    std::string field;
  };
  const std::vector<row> rows{
      {'f', 8, 3, 12.3456, "  12.346"},
      {'f', 8, 3, -12.3456, " -12.346"},
      {'f', 5, 3, 0.5, "0.500"},
      {'f', 4, 3, 0.5, ".500"},
      {'f', 5, 3, -0.5, "-.500"},
      {'f', 4, 3, -0.5, "****"},
      {'f', 8, 3, 99999.9, "********"},
      {'f', 6, 0, 12.5, "   12."},
      {'f', 6, 0, 13.5, "   14."},
      {'f', 1, 0, 0.4, "*"},
      {'f', 0, 2, 3.14159, "3.14"},
      {'f', 12, 9, 0.1f, " 0.100000001"},
      {'f', 6, 2, nan, "   NaN"},
      {'f', 8, 2, inf, "Infinity"},
      {'f', 8, 2, -inf, "    -Inf"},
      {'e', 12, 4, 12.3456, "  0.1235E+02"},
      {'e', 12, 4, -0.00123456, " -0.1235E-02"},
      {'e', 12, 4, 0, "  0.0000E+00"},
      {'e', 12, 4, 0.99999, "  0.1000E+01"},
      {'e', 9, 4, 1, ".1000E+01"},
      {'e', 8, 4, 1, "********"},
      {'e', 12, 4, 1e120, "  0.1000+121"},
      {'p', 12, 4, 12.3456, "  1.2346E+01"},
      {'p', 12, 4, -9.99999e-5, " -1.0000E-04"},
      {'p', 12, 4, 0, "  0.0000E+00"},
      {'g', 10, 3, 0, "  0.00    "},
      {'g', 10, 3, 1, "  1.00    "},
      {'g', 10, 3, 0.0999, " 0.999E-01"},
      {'g', 10, 3, 0.09996, " 0.100    "},
      {'g', 10, 3, 123.4, "  123.    "},
      {'g', 10, 3, 999.4, "  999.    "},
      {'g', 10, 3, 999.6, " 0.100E+04"},
      {'g', 10, 3, -1234.5, "-0.123E+04"},
      {'g', 14, 4, 12.3456, "     12.35    "},
      {'g', 10, 3, nan, "       NaN"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.kind << r.width << '.' << r.decimals << " of " << r.value);
    fmt_line line;
    if (r.kind == 'f') line.f(r.width, r.decimals, r.value);
    if (r.kind == 'e') line.e(r.width, r.decimals, r.value);
    if (r.kind == 'p') line.pe(r.width, r.decimals, r.value);
    if (r.kind == 'g') line.g(r.width, r.decimals, r.value);
    EXPECT_EQ(line.str(), r.field);
  }
}

TEST(FixedFormatWriter, LineOfSeveralFields) {
  const float cell[] = {5.431f, 90.f};
  EXPECT_EQ(fmt_line{}.i(4, 12).i(3, -5).i(3, -12345).i(0, 7).str(), "  12 -5***7");
  EXPECT_EQ(fmt_line{}.a("d=").a(4, "abcdef").a(4, "x").a_right(4, "y").str(), "d=abcdx      y");
  EXPECT_EQ(fmt_line{}.f(9, 4, cell).x(2).a("!").str(), "   5.4310  90.0000  !");
  EXPECT_EQ(fmt_line{}.a("ab").t(5).a("c").t(2).a("d").str(), "ab  cd");
  EXPECT_EQ(fmt_line{}.i(12, std::numeric_limits<long long>::min()).i(2, 99).str(), "************99");
}

TEST(FixedFormatNumbers, Reals) {
  struct row {
    std::string text;
    int decimals;
    bool good;
    double value;
  };
  const std::vector<row> rows{
      {"1", 0, true, 1},          {"+1.5", 0, true, 1.5},
      {"-.5", 0, true, -.5},      {"5.", 0, true, 5},
      {"1.0D-3", 0, true, 1e-3},  {"1.5E2", 0, true, 150},
      {"1.5e+2", 0, true, 150},   {"1.5-2", 0, true, .015},
      {"-2+1", 0, true, -20},     {"15d2", 0, true, 1500},
      {"12345", 2, true, 123.45}, {"12.345", 2, true, 12.345},
      {"12E1", 1, true, 12},      {"0E99999", 0, true, 0},
      {"1E-50000", 0, true, 0},   {"0.0001E40", 0, true, 1e36},
      {"1E-46", 0, true, 0},      {"-3E-99999999999", 0, true, 0},
      {"", 0, false, 0},          {".", 0, false, 0},
      {"+", 0, false, 0},         {"1.2.3", 0, false, 0},
      {"1E", 0, false, 0},        {"1E+", 0, false, 0},
      {"1EE2", 0, false, 0},      {"E5", 0, false, 0},
      {"--1", 0, false, 0},       {"nan", 0, false, 0},
      {"-inf", 0, false, 0},      {"1x", 0, false, 0},
      {"1E39", 0, false, 0},      {"1E99999999999", 0, false, 0},
      {"0x10", 0, false, 0},      {"1 2", 0, false, 0},
      {"1,2", 0, false, 0},       {"1e2.", 0, false, 0},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    float value = 77.f;
    EXPECT_EQ(parse_real(r.text, value, r.decimals), r.good);
    EXPECT_EQ(value, r.good ? static_cast<float>(r.value) : 77.f);
  }
  double wide = 0.;
  EXPECT_TRUE(parse_real("1E39", wide));
  EXPECT_EQ(wide, 1e39);
  EXPECT_FALSE(parse_real("1D309", wide));
}

TEST(FixedFormatNumbers, Integers) {
  int value = 77;
  EXPECT_TRUE(parse_integer("+2147483647", value));
  EXPECT_EQ(value, 2147483647);
  EXPECT_TRUE(parse_integer("-2147483648", value));
  EXPECT_EQ(value, -2147483647 - 1);
  for (const char* text : {"2147483648", "-2147483649", "", "+", "-", "+-1", "1.", "1E2", "12a", " 1"}) {
    SCOPED_TRACE(text);
    value = 77;
    EXPECT_FALSE(parse_integer(text, value));
    EXPECT_EQ(value, 77);
  }
}

TEST(FixedFormatNumbers, WrittenNumbersComeBack) {
  std::mt19937 random(20240607);
  std::uniform_real_distribution<float> mantissa(-10.f, 10.f);
  std::uniform_int_distribution<int> power(-30, 30);
  for (int i = 0; i < 20000; ++i) {
    const float value = mantissa(random) * std::pow(10.f, static_cast<float>(power(random)));
    float back = 0.f;
    ASSERT_TRUE(parse_real(fmt_line{}.pe(0, 8, value).str(), back));
    ASSERT_EQ(back, value);  // nine digits tell every float apart
  }
}

TEST(FixedFormatReader, FormatsOfDataFiles) {
  field_values out;
  const auto hkl = fixed_format::parse("(3i4,2f13.4,i3,4f8.4)");
  ASSERT_TRUE(hkl);
  EXPECT_EQ(hkl->n_real, 6);
  ASSERT_EQ(hkl->columns.size(), 10u);
  EXPECT_EQ(read_line(*hkl, "   1  -2   3     123.4567          5.1  2   12345", out), -1);
  EXPECT_EQ(out.size(), 10);
  EXPECT_EQ(out.i(1), -2);
  EXPECT_EQ(out.f(3), 123.4567f);
  EXPECT_EQ(out.f(4), 5.1f);
  EXPECT_EQ(out.i(5), 2);
  EXPECT_EQ(out.f(6), 1.2345f);
  EXPECT_EQ(out.f(9), 0.f);
  EXPECT_EQ(out.f(99), 0.f);
  EXPECT_EQ(out.a(-1), "");

  const auto counts = fixed_format::parse(" ( 10( I2, i6 ) ) trailing text");
  ASSERT_TRUE(counts);
  EXPECT_EQ(counts->columns.size(), 20u);
  EXPECT_EQ(read_line(*counts, " 1   120 2   1 3", out), -1);
  EXPECT_EQ(out.i(0), 1);
  EXPECT_EQ(out.i(1), 120);
  EXPECT_EQ(out.i(3), 13) << "blanks inside a number do not count";

  const auto mixed = fixed_format::parse("(1x,a5,tr2,f7.3,tl7,a3,t1,a1,t20,2(2x,e8.2))");
  ASSERT_TRUE(mixed);
  EXPECT_EQ(read_line(*mixed, "Xlabel  1234567", out), -1);
  EXPECT_EQ(out.a(0), "label");
  EXPECT_EQ(out.f(1), 1234.567f);
  EXPECT_EQ(out.d(1), 1234.567);
  EXPECT_EQ(out.i(1), 1234);
  EXPECT_EQ(out.a(2), "123");
  EXPECT_EQ(out.a(3), "X");
}

TEST(FixedFormatReader, ABadFieldIsNamed) {
  field_values out;
  const auto format = fixed_format::parse("(2i4,f8.2)");
  ASSERT_TRUE(format);
  struct row {
    std::string line;
    int bad;
  };
  const std::vector<row> rows{{"", -1},
                              {"   1   2   3.00", -1},
                              {"   a   2   3.00", 0},
                              {"   1 2.0   3.00", 1},
                              {"   1   2 1.2.3", 2},
                              {"   1   2     NaN", 2},
                              {"   1   2    1E99", 2},
                              {"   1   2\t 1", 2}};
  for (const row& r : rows) {
    SCOPED_TRACE(r.line);
    EXPECT_EQ(read_line(*format, r.line, out), r.bad);
    EXPECT_EQ(out.size(), r.bad < 0 ? 3 : 0);
  }
}

TEST(FixedFormatReader, FormatsThatAreRefused) {
  for (const char* text : {"", "(", "()", "3i4", "(3i4", "(i)", "(0i4)", "(i0)", "(3z4)", "(f8.)", "(1p,e12.4)",
                           "(99999i4)", "(i4,/,i4)", "(t0,i4)", "(5000(i3))", "(9999(9999(9999(t1))))",
                           "((((((((((i4))))))))))", "(999999999999999999999i4)", "(tr99999,i4)"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(fixed_format::parse(text));
  }
}

TEST(FixedFormatReader, SingleColumns) {
  const std::string line = "KEY  12  3450 x";
  EXPECT_EQ(lmix_fixed_format::text_in_columns(line, 1, 5), "KEY");
  EXPECT_EQ(lmix_fixed_format::integer_in_columns(line, 4, 8), 12);
  EXPECT_EQ(lmix_fixed_format::real_in_columns(line, 9, 13, 2), 34.5f);
  EXPECT_EQ(lmix_fixed_format::real_in_columns(line, 40, 50), 0.f);
  EXPECT_EQ(lmix_fixed_format::integer_in_columns(line, 1, 3), std::nullopt);
  EXPECT_EQ(lmix_fixed_format::text_in_columns(line, 9, 3), "");
  EXPECT_EQ(lmix_fixed_format::text_in_columns(line, -5, 3), "KEY");
}

TEST(FixedFormatReader, GarbageFormatsAndLinesAreSurvived) {
  const std::string letters = "(((iiiifffadgextrl0123456789.,, )))-+E";
  std::mt19937 random(7);
  std::uniform_int_distribution<std::size_t> pick(0, letters.size() - 1), length(0, 20);
  field_values out;
  int parsed = 0;
  for (int i = 0; i < 100000; ++i) {
    std::string format_text = "(", line;
    for (std::size_t n = length(random); n > 0; --n) format_text += letters[pick(random)];
    for (std::size_t n = 3 * length(random); n > 0; --n) line += letters[pick(random)];
    const auto format = fixed_format::parse(format_text + ")");
    if (!format) continue;
    ++parsed;
    const int bad = read_line(*format, line, out);
    ASSERT_EQ(out.size(), bad < 0 ? static_cast<int>(format->columns.size()) : 0);
    for (int k = 0; k < out.size(); ++k) ASSERT_TRUE(std::isfinite(out.f(k)) && out.a(k).size() <= line.size());
  }
  EXPECT_GT(parsed, 100);
}

}  // namespace

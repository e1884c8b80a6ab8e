#include "lmix_list_input.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

using lmix_list_input::list_result;
using lmix_list_input::list_status;
using lmix_text_input::text_source;

TEST(ListInput, RowsOfReals) {
  struct row {
    std::string text;
    list_status status;
    std::vector<float> values;  // 9 stands for an item left as it was
  };
  const std::vector<row> rows{
      {"1 2 3 4", list_status::value, {1, 2, 3}},
      {"  1\t2\r\n3", list_status::value, {1, 2, 3}},
      {"1 2", list_status::end, {1, 2}},
      {"", list_status::end, {}},
      {"1 / 2 3", list_status::slash, {1}},
      {"1/2 3", list_status::slash, {1}},
      {"3*2.5", list_status::value, {2.5, 2.5, 2.5}},
      {"2* 7", list_status::value, {9, 9, 7}},
      {"999999999*0", list_status::value, {0, 0, 0}},
      {"1,,3", list_status::value, {1, 9, 3}},
      {",2 3", list_status::value, {9, 2, 3}},
      {"2*,5", list_status::value, {9, 9, 5}},
      {"1,", list_status::end, {1}},
      {"1\n,2,\n3", list_status::value, {1, 2, 3}},
      {"1.0D-3 1.5-2 +2E1", list_status::value, {1e-3f, 1.5e-2f, 20}},
      {"1E-60 -0 .5", list_status::value, {0, 0, .5f}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    std::array<float, 3> items{9, 9, 9};
    const list_result result = lmix_list_input::read_list(r.text, std::span<float>(items));
    EXPECT_EQ(result.status, r.status);
    EXPECT_EQ(result.count, static_cast<int>(r.values.size()));
    for (std::size_t i = 0; i < items.size(); ++i) EXPECT_EQ(items[i], i < r.values.size() ? r.values[i] : 9.f);
  }
}

TEST(ListInput, TheFirstBadTokenIsNamedWithItsColumn) {
  struct row {
    std::string text, token;
    std::size_t column;
  };
  const std::vector<row> rows{{"1 x2 3", "x2", 3},    {"nan", "nan", 1},
                              {"1\n-inf", "-inf", 1}, {"1,1e99", "1e99", 3},
                              {"1.2.3", "1.2.3", 1},  {"0*5", "0*5", 1},
                              {"*5", "*5", 1},        {"2*a", "2*a", 1},
                              {"1 2 1e", "1e", 5},    {"12345678901*1", "12345678901*1", 1},
                              {"1 2 3;", "3;", 5}};
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    std::array<float, 3> items{};
    const list_result result = lmix_list_input::read_list(r.text, std::span<float>(items));
    EXPECT_EQ(result.status, list_status::bad);
    EXPECT_EQ(result.token, r.token);
    EXPECT_EQ(result.column, r.column);
  }
  std::array<int, 2> counts{};
  EXPECT_EQ(lmix_list_input::read_list("12 1.5", std::span<int>(counts)).token, "1.5");
  EXPECT_EQ(lmix_list_input::read_list("1 2147483648", std::span<int>(counts)).column, 3u);
}

TEST(ListInput, ValuesOfDifferentKinds) {
  int n = 0;
  float x = 0.f;
  double w = 0.;
  std::string title = "kept", name;
  list_result result = lmix_list_input::read_values("12, 1.5 'a b/c', 2D0 plain", n, x, name, w, title);
  EXPECT_TRUE(result.full());
  EXPECT_EQ(n, 12);
  EXPECT_EQ(x, 1.5f);
  EXPECT_EQ(name, "a b/c");
  EXPECT_EQ(w, 2.);
  EXPECT_EQ(title, "plain");
  result = lmix_list_input::read_values("12 1.5 \"open", n, x, name, w);
  EXPECT_EQ(result.status, list_status::end);
  EXPECT_EQ(result.count, 3);
  EXPECT_EQ(lmix_list_input::read_values("7 bad", n, x).column, 3u);
}

TEST(ListInput, AListRunsOverLinesAndDropsTheRestOfItsLast) {
  text_source source = text_source::from_string("1 2*\n\n 2*5, 6\n7 8 9 10\n11\n1 oops\n");
  std::array<float, 6> items{};
  EXPECT_TRUE(lmix_list_input::read_list(source, std::span<float>(items)).full());
  EXPECT_EQ(items, (std::array<float, 6>{1, 0, 0, 5, 5, 6}));
  std::array<float, 2> pair{};
  EXPECT_TRUE(lmix_list_input::read_list(source, std::span<float>(pair)).full());
  EXPECT_EQ(pair[1], 8.f);
  const list_result bad = lmix_list_input::read_list(source, std::span<float>(items));
  EXPECT_EQ(bad.status, list_status::bad);
  EXPECT_EQ(bad.count, 2);
  EXPECT_EQ(source.lines_taken(), 6);
  EXPECT_EQ(lmix_list_input::read_list(source, std::span<float>(pair)).status, list_status::end);
}

TEST(ListInput, GarbageIsSurvived) {
  const std::string letters = "0123456789012345..,,//**+-EeDd   \t\n'\"xn";
  std::mt19937 random(11);
  std::uniform_int_distribution<std::size_t> pick(0, letters.size() - 1), length(0, 30);
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    for (std::size_t n = length(random); n > 0; --n) text += letters[pick(random)];
    std::array<float, 8> reals{};
    const list_result result = lmix_list_input::read_list(text, std::span<float>(reals));
    ASSERT_LE(result.count, 8);
    for (const float value : reals) ASSERT_TRUE(std::isfinite(value)) << text;
    int n = 0;
    std::string word;
    double x = 0.;
    lmix_list_input::read_values(text, word, n, x, word);
  }
}

}  // namespace

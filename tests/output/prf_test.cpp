#include "kv_prf.hpp"

#include <cstdlib>

#include "kv_background.hpp"
#include "output_state.hpp"

namespace {

using namespace output_tests;

class Prf : public Output {};
class Kaleida : public Output {};
class BackgroundFile : public Output {};

/// Numbers of a block in fixed columns, `per_line` of them to a line, from line `next` on.
std::vector<double> column_block(const std::vector<std::string>& lines, std::size_t& next, int count, int per_line,
                                 std::size_t width, std::size_t gap) {
  std::vector<double> values;
  for (; static_cast<int>(values.size()) < count; ++next)
    for (int j = 0; j < per_line && static_cast<int>(values.size()) < count; ++j)
      values.push_back(std::strtod(lines.at(next).substr(u(j) * (width + gap), width).c_str(), nullptr));
  return values;
}

std::vector<std::string> fields_of(const std::string& line) {
  std::vector<std::string> fields{""};
  for (const char c : line) c == '\t' ? fields.emplace_back() : fields.back() += c;
  return fields;
}

TEST(PrfCounts, DecimalsFollowTheLargestCount) {
  const std::pair<double, int> rows[] = {{0.0, 4},   {99.99, 4}, {100.0, 3}, {999.9, 3}, {1e3, 2},
                                         {9999., 2}, {1e4, 1},   {99999, 1}, {1e5, 0},   {2e6, 0}};
  for (const auto& [ymax, decimals] : rows) EXPECT_EQ(kv_prf::count_decimals(ymax), decimals) << ymax;
}

TEST(PrfCounts, ScaleFillsTheFieldsOfTheTabSeparatedForm) {
  const std::pair<double, double> rows[] = {{15.9, 16.1 / 15.9}, {16.0, 16.1 / 16.0}, {16.01, 1.0}, {999999.0, 1.0},
                                            {1e6, 0.1},          {2e6, 0.1},          {1e7, 0.01},  {0.0, 1.0}};
  for (const auto& [ymax, scale] : rows) EXPECT_NEAR(kv_prf::count_scale(ymax), scale, 1e-12) << ymax;
}

TEST_F(Prf, CompactFormIsReadBackByItsColumns) {
  kp::state_type st = small_state();
  st.run.title = "commA small case";
  const auto lines = lines_of(kv_prf::write_prf(st, 0));
  EXPECT_EQ(lines[0],
            "A small case    cell:    5.00000   5.00000   5.00000   90.0000   90.0000   90.0000"
            "   spgr: P m -3 m               temp:      0.00");
  EXPECT_EQ(lines[1], "3111   1.0000   1.0000");
  EXPECT_EQ(lines[2], "  30.000  20.000 0.50000       8       0");
  EXPECT_EQ(lines[3], "  1     21   1.50000   1.50000   0.12500   0.00000   0.00000");
  EXPECT_EQ(lines[4], "    3    0");
  std::size_t next = 5;
  const auto observed = column_block(lines, next, 21, 8, 7, 1), calculated = column_block(lines, next, 21, 8, 7, 1);
  for (int i = 0; i < 21; ++i) {
    EXPECT_NEAR(observed[u(i)], 100.0 + i, 1e-3);
    EXPECT_NEAR(calculated[u(i)], (i == 10 ? 60.0 : 10.0) + 90.0 + 0.5 * i, 1e-3);  // Bragg part plus background
  }
  const auto codes = column_block(lines, next, 3, 8, 10, 0), positions = column_block(lines, next, 3, 10, 8, 0);
  for (int k = 0; k < 3; ++k) {
    const auto key = kp::unpack_irefs(static_cast<std::int32_t>(codes[u(k)]));
    EXPECT_EQ((std::vector{key.phase, key.wave, key.h, key.k, key.l}), (std::vector{0, 1, k - 1, 2, -k}));
    EXPECT_NEAR(positions[u(k)], 22.0 + 2.0 * k, 5e-4);  // without the zero shift, which stands in line 4
  }
  EXPECT_EQ(lines[next], "       1");
  EXPECT_EQ(lines[next + 1], "   21.50   22.00");
  EXPECT_EQ(lines.size(), next + 2);
}

TEST_F(Prf, MoreThanEightPhasesTakeASecondLineOfCounts) {
  EXPECT_EQ(lines_of(kv_prf::write_prf(small_state(8), 0))[4].size(), 16 * 5u);
  const auto lines = lines_of(kv_prf::write_prf(small_state(9), 0));
  EXPECT_EQ(lines[4].size(), 16 * 5u);
  EXPECT_EQ(lines[5], "    0    0");
}

TEST_F(Prf, CountsThatOverflowTheirFieldLoseDecimalsOnly) {
  kp::state_type st = small_state();
  st.pattern[0].yo_max = 95.f;
  st.pattern[0].y[1] = -101.25f;  // -101.2500 needs nine columns
  st.pattern[0].y[2] = 3.0e6f;
  const auto small = lines_of(kv_prf::write_prf(st, 0));
  EXPECT_EQ(small[5].substr(8, 8), "-101.25 ");
  st.pattern[0].yo_max = 3.0e6f;
  const auto large = lines_of(kv_prf::write_prf(st, 0));
  EXPECT_EQ(large[1], "3111   1.0000   0.1000");
  EXPECT_EQ(large[5].substr(16, 8), "300000. ");
}

TEST_F(Kaleida, ColumnsHoldPointsAndReflectionsSideBySide) {
  kp::state_type st = small_state();
  const auto lines = lines_of(kv_prf::kaleida(st, 0));
  ASSERT_EQ(lines.size(), 5u + 21u);
  EXPECT_EQ(lines[2], "     3     0     1");
  EXPECT_EQ(lines[4], " 2Theta\tYobs\tYcal\tYobs-Yc\tBackg\tPosr\t\t(hkl)\tK");
  const auto head = fields_of(lines[4]);
  for (int i = 0; i < 21; ++i) {
    const auto fields = fields_of(lines[u(5 + i)]);
    ASSERT_EQ(fields.size(), i < 3 ? head.size() : 5u) << i;
    const double calculated = (i == 10 ? 60.0 : 10.0) + 90.0 + 0.5 * i;
    EXPECT_NEAR(std::stod(fields[0]), 20.0 + 0.5 * i, 1e-4);
    EXPECT_NEAR(std::stod(fields[1]), 100.0 + i, 1e-3);
    EXPECT_NEAR(std::stod(fields[2]), calculated, 1e-3);
    EXPECT_NEAR(std::stod(fields[3]), i == 3 || i == 4 ? 0.0 : 100.0 + i - calculated, 1e-3) << i;  // excluded: 0
    EXPECT_NEAR(std::stod(fields[4]), 90.0 + 0.5 * i, 1e-3);
    if (i >= 3) continue;
    EXPECT_NEAR(std::stod(fields[5]), 22.125 + 2.0 * i, 1e-4);  // with the zero shift
    EXPECT_EQ(fields[7].substr(0, 3), i == 0 ? " -1" : i == 1 ? "  0" : "  1");
  }
}

TEST_F(Kaleida, MoreReflectionsThanPointsGoOnBehindTheLastPoint) {
  kp::state_type st = small_state();
  st.pattern[0].npts = 2;
  st.pattern[0].yo_max = 2.0e6f;
  st.pattern[0].y[1] = 2.0e6f;
  const auto lines = lines_of(kv_prf::kaleida(st, 0));
  ASSERT_EQ(lines.size(), 5u + 3u);
  EXPECT_NEAR(std::stod(fields_of(lines[6])[1]), 2.0e5, 1.0);  // scaled by 0.1
  const auto extra = fields_of(lines[7]);
  ASSERT_EQ(extra.size(), 9u);
  EXPECT_EQ(extra[0] + extra[1] + extra[2] + extra[3] + extra[4], "");
  EXPECT_NEAR(std::stod(extra[5]), 26.125, 1e-4);
}

TEST_F(Prf, FileFollowsTheFlag) {
  struct row {
    int pl_prf;
    const char* name;
    const char* begin;
  };
  const row rows[] = {{1, "small.prf", "A small case    cell:"},
                      {3, "small.prf", "A small case  CHI2:"},
                      {-3, "small.prf", "A small case  CHI2:"},
                      {2, "small.prf", "IGOR\nWAVES/D/O TwoTheta, Iobs, Icalc, Diff, Backg\nBEGIN\n"},
                      {5, "small.xvgr", "@    title \"A small case\""},
                      {6, "small.xy", "# A small case"},
                      {7, "small.agr", "# Grace project file"}};
  for (const row& t : rows) {
    SCOPED_TRACE(t.pl_prf);
    SetUp();
    kp::state_type st = small_state();
    open(st);
    st.pattern[0].pl_prf = t.pl_prf;
    kv_prf::write_plot(st, 0);
    EXPECT_FALSE(exists(t.name));
    ASSERT_TRUE(kalvaris_inout::commit(st.io));
    EXPECT_TRUE(file(t.name).starts_with(t.begin)) << file(t.name).substr(0, 80);
  }
}

TEST_F(Prf, NothingIsWrittenWithoutFlagAndARefusedLayoutIsNamed) {
  kp::state_type st = small_state();
  open(st);
  st.pattern[0].pl_prf = 0;
  kv_prf::write_plot(st, 0);
  EXPECT_EQ(console.str(), "");
  st.pattern[0].pl_prf = 4;
  kv_prf::write_plot(st, 0);
  EXPECT_NE(console.str().find("pl_prf 4"), std::string::npos);
  EXPECT_FALSE(exists("small.prf"));
}

TEST_F(Prf, GraceProjectHoldsOneSetPerCurveAndPhase) {
  kp::state_type st = small_state(2);
  const auto lines = lines_of(kv_prf::plot_agr(st, 0));
  int sets = 0, points = 0;
  bool in_set = false;
  for (const auto& line : lines) {
    if (line.starts_with("@target G0.S")) {
      EXPECT_EQ(line, "@target G0.S" + std::to_string(sets));
    }
    if (line == "&") ++sets, in_set = false;
    if (in_set) ++points;
    if (line == "@type xy") in_set = true;
  }
  EXPECT_EQ(sets, 3 + 2);
  EXPECT_EQ(points, 3 * 21 + 3);  // the second phase has no reflection
}

TEST_F(Prf, PrinterPagesHoldEveryPointOnce) {
  kp::state_type st = small_state();
  const auto lines = lines_of(kv_prf::lp_pattern(st, 0));
  ASSERT_EQ(lines.size(), 1u + 21u);
  EXPECT_EQ(lines[0].substr(0, 33), "1 2THETA   YOBS    YCALC VARIANCE");
  EXPECT_EQ(lines[11], "  25.000    110.    155.    110. ");
}

TEST_F(BackgroundFile, IsReadBackByARunWithABackgroundFile) {
  for (const bool constant_step : {true, false})
    for (const int ipl : {2, 3}) {
      SCOPED_TRACE(testing::Message() << constant_step << ' ' << ipl);
      SetUp();
      kp::state_type st = small_state();
      open(st);
      kp::pattern_type& p = st.pattern[0];
      p.iconstep = constant_step;
      p.ipl = ipl;
      std::ofstream(directory / "small.bac") << std::string(5000, '7');  // an older, longer file
      kv_prf::write_background(st, 0);
      ASSERT_TRUE(kalvaris_inout::commit(st.io));
      kp::pattern_type next = p;
      next.bk.clear();
      std::string reason;
      ASSERT_TRUE(kv_background::load_file(file("small.bac"), next, reason)) << reason;
      for (int i = 0; i < p.npts; ++i)
        EXPECT_NEAR(next.bk[u(i)], ipl == 2 ? p.bk[u(i)] : p.y[u(i)] - p.yc[u(i)], 1e-3) << i;
    }
}

TEST_F(BackgroundFile, OfTheSameRunIsNotOverwritten) {
  kp::state_type st = small_state();
  open(st);
  st.pattern[0].nbckgd = 1, st.pattern[0].isbac = 1, st.pattern[0].ipl = 2;
  kv_prf::write_background(st, 0);
  EXPECT_FALSE(exists("small.bac"));
  EXPECT_NE(console.str().find("nbckgd 1"), std::string::npos);
}

}  // namespace

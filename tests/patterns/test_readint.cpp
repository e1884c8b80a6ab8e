#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "data_run.hpp"
#include "variances.hpp"

namespace {

using kalvaris_params::pattern_type;
using test_patterns::data_run;

std::string comments(int n = 6) {
  std::string text;
  for (int i = 0; i < n; ++i) text += "title line\n";
  return text;
}

TEST(ReadintLayout0, AllHeadersGiveTheSameGridAndIntensities) {
  struct row {
    const char* what;
    std::string content;
    std::string extension;
  };
  const std::string mdi_range(32 - 9, ' ');
  for (const row& t : {
           row{"plain", "10 0.5 12\n1 2 3 4 5\n", ".dat"},
           row{"comments in front", "! c\n# c\n10, 0.5, 12\n1 2\n3,4\n5 rest is not read\n", ".dat"},
           row{"seven titles", comments(7) + "10 0.5 12\n1 2 3 4 5\n", ".dat"},
           row{"CRLF, D exponent, no end of line", "1.0D1 0.5 12\r\n1 2 3 4\r\n5", ".dat"},
           row{"BANK", "BANK 1 5                                      10.0 0.5\n1 2 3 4 5\n", ".dat"},
           row{"mdi", "some title\n10.0 0.5 " + mdi_range + "12.0 5\n1 2 3 4 5\n", ".mdi"},
       }) {
    SCOPED_TRACE(t.what);
    data_run run(0, t.content, t.extension);
    run.read();
    ASSERT_EQ(run.stopped, "") << run.console.str();
    const pattern_type& p = run.pattern();
    ASSERT_EQ(p.npts, 5);
    EXPECT_TRUE(p.iconstep);
    EXPECT_FLOAT_EQ(p.thmin, 10.f);
    EXPECT_FLOAT_EQ(p.thmax, 12.f);
    EXPECT_EQ(p.y, (std::vector<float>{1, 2, 3, 4, 5}));
    EXPECT_EQ(p.var, p.y);
    EXPECT_EQ(p.txv, (std::vector<float>{10, 10.5, 11, 11.5, 12, 12.5}));  // one more than points
    EXPECT_FLOAT_EQ(p.yo_max, 5.f);
    EXPECT_EQ(p.iww, std::vector<int>(5, 1));
    EXPECT_EQ(p.yc.size() + p.bk.size() + p.kr.size(), 15u);
  }
}

TEST(ReadintLayout0, RepeatsZeroCountsAndTemperature) {
  data_run run(0, "10 1 13 TSAMP 77.5\n3*8.0 0\n");
  run.read();
  ASSERT_EQ(run.stopped, "");
  EXPECT_EQ(run.pattern().y, (std::vector<float>{8, 8, 8, 0}));
  EXPECT_EQ(run.pattern().var, (std::vector<float>{8, 8, 8, 1}));  // a weight can be made from it
  EXPECT_FLOAT_EQ(run.pattern().tsamp, 77.5f);
}

TEST(Readint, BadInputStopsWithItsWordsAndItsPlace) {
  struct row {
    const char* what;
    int instr;
    std::string content;
    std::string stop;
    std::string told;  ///< on the console
  };
  const std::string check = " Error on Intensity file, check your instr parameter!",
                    interrupted = " Program interrupted";
  for (const row& t : {
           row{"unknown layout", 99, "", " Invalid INSTR parameter", ""},
           row{"minus of a layout without one", -10, "", " Invalid INSTR parameter", ""},
           row{"empty file", 0, "", " End of file *.DAT", "d.dat"},
           row{"ends before its header", 0, "a\nb\n", " End of file *.DAT", "d.dat"},
           row{"nine titles", 0, comments(9) + "1 1 3\n1 1 1\n", check, "8 lines"},
           row{"zero step", 0, "1 0 3\n1 1 1\n", check, "line: 1"},
           row{"negative step", 0, "1 -0.1 3\n1 1 1\n", check, "positive"},
           row{"backward range", 0, "3 0.1 1\n1 1 1\n", check, "0 data points"},
           row{"no number in the header", 0, "nan 1 3\n1 1 1\n", check, "column: 1"},
           row{"letters", 0, "1 1 4\n5 6\n7 x8\n", check, "line: 3, column: 3: \"x8\" found, intensity 4 of 4"},
           row{"NaN", 0, "1 1 4\n5 6 nan 8\n", check, "line: 2, column: 5"},
           row{"overflow", 0, "1 1 4\n5 6 1e99 8\n", check, "\"1e99\""},
           row{"cut", 0, "1 1 4\n5 6 7\n", check, "intensity 4 of 4"},
           row{"ended by a slash", 0, "1 1 4\n5 6 /\n7 8\n", check, "intensity 3 of 4"},
           row{"empty place", 0, "1 1 4\n5 6,,7\n", check, "intensity 3"},
           row{"more than any file", 0, "1 1e-30 4\n5 6\n", " Too many points", "2147483647 points were input"},
           row{"bank of minus points", 0, "BANK 1 -5                                     10.0 0.5\n1\n", check,
               "data points"},
           row{"no points", 10, comments(), check, "0 data points"},
           row{"file of one line", 10, "1 2 3", check, "0 data points"},
           row{"one point", 10, comments() + "1 2 3\n", check, "1 data points"},
           row{"letters in x y sigma", 10, comments() + "1 2 3\n 2 3a 4\n", interrupted,
               "line: 8, column: 4: x, y and sigma"},
           row{"comma", 10, comments() + "1,2,3\n", interrupted, "invalid character"},
           row{"NaN in y", 10, comments() + "1 nan 3\n", interrupted, "column: 3"},
           row{"infinite x", 10, comments() + "inf 1 3\n", interrupted, "line: 7"},
           row{"square of sigma", 10, comments() + "1 1 1e30\n", interrupted, "overflow"},
           row{"backward x", 10, comments() + "2 1 1\n1 1 1\n", interrupted,
               "point 2, x = 1.00000 after 2.00000, increasing"},
           row{"one x", 10, comments() + "2 1 1\n2 1 1\n", check, "step"},
           row{"interpolation without step", 10, "XYDATA\nINTER 1 1 1 0\n\n\n\n\n1 2 3\n2 3 4\n", check, "line: 2"},
           row{"interpolation flag", 10, "XYDATA\nINTER 1 1 7 0.1\n\n\n\n\n1 2 3\n2 3 4\n", interrupted, "0 to 2"},
           row{"interpolation at one x", 10, "XYDATA\nINTER 1 1 1 .1\n\n\n\n\n1 2 3\n1 3 4\n", interrupted,
               "increasing"},
       }) {
    SCOPED_TRACE(t.what);
    data_run run(t.instr, t.content);
    run.read();
    EXPECT_EQ(run.stopped, t.stop);
    EXPECT_NE(run.console.str().find(t.told), std::string::npos) << run.console.str();
  }
}

TEST(Readint, MissingFileNamesTheExtensionsTried) {
  data_run run(0, "");
  run.st.io.filedat = {"absent"};
  run.read();
  EXPECT_EQ(run.stopped, " ==> Error opening file CODEFIL.DAT(UXD,ACQ,CSV,UDF,JCP,XRDML) with CODEFIL=absent Unit: 4");
}

TEST(Readint, MorePointsThanTheDimensionStop) {
  for (const int maxpoint : {4, 5}) {
    for (const int instr : {0, 10}) {
      data_run run(instr, instr == 0 ? "1 1 5\n1 2 3 4 5\n" : comments() + "1 1 1\n2 2 1\n3 3 1\n4 4 1\n5 5 1\n");
      run.st.dim.maxpoint = maxpoint;
      run.read();
      EXPECT_EQ(run.stopped, maxpoint == 5 ? "" : " Too many points");
      EXPECT_EQ(run.console.str().find(" 5 points were input") == std::string::npos, maxpoint == 5);
    }
  }
}

TEST(ReadintLayout10, SigmasBecomeVariances) {
  data_run run(10, comments() + "10.0 100 5\n10.1 0 0\n10.3 400 20 surplus\n");
  run.read();
  ASSERT_EQ(run.stopped, "") << run.console.str();
  const pattern_type& p = run.pattern();
  EXPECT_FALSE(p.iconstep);
  EXPECT_EQ(p.var, (std::vector<float>{25, 1, 400}));
  EXPECT_EQ(p.y, (std::vector<float>{100, 1.0e-5f, 400}));
  EXPECT_FLOAT_EQ(p.cnorm, (25.f / 100.f + 1.f / 0.001f + 1.f) / 3.f);
  EXPECT_NEAR(p.step, 0.15f, 1e-6f);
  EXPECT_FLOAT_EQ(p.thmax, 10.3f);
  EXPECT_NEAR(p.txv[3], 10.5f, 1e-5f);
}

TEST(ReadintLayout10, WithoutSigmasTheVarianceIsTheIntensity) {
  data_run run(10, comments() + "10 100\n10.5 200\n11 50\n");
  run.read();
  EXPECT_EQ(run.pattern().var, run.pattern().y);
  EXPECT_FLOAT_EQ(run.pattern().cnorm, 1.f);
}

TEST(ReadintLayout10, NotationsOfTheFinderGiveTheSameValuesAsPlainNumbers) {
  data_run plain(10, comments() + "10 100 10\n10.5 150 12\n11 200 0.05\n");
  data_run odd(10, comments() + "\t+1.0D1  100. 10\n!c\n10.5 +150 1.2E+1 a note\n# c\n 11+2.0E2 5-2\n");
  plain.read();
  odd.read();
  ASSERT_EQ(odd.stopped, "") << odd.console.str();
  EXPECT_EQ(odd.pattern().txv, plain.pattern().txv);
  EXPECT_EQ(odd.pattern().y, plain.pattern().y);
  EXPECT_EQ(odd.pattern().var, plain.pattern().var);
}

TEST(ReadintLayout10, AnEmptyLineEndsTheDataAndSaysSoWhenSomethingFollows) {
  data_run run(10, comments() + "1 1 1\n2 2 1\n  \n3 3 1\n");
  run.read();
  EXPECT_EQ(run.pattern().npts, 2);
  EXPECT_NE(run.console.str().find("empty line 9"), std::string::npos) << run.console.str();
  data_run quiet(10, comments() + "1 1 1\n2 2 1\n\n\n");
  quiet.read();
  EXPECT_EQ(quiet.pattern().npts, 2);
  EXPECT_EQ(quiet.console.str(), "");
}

TEST(ReadintLayout10, RangeFilterIsAliveAboveOneOnly) {
  struct row {
    float low, high;
    std::vector<float> x;
  };
  const std::string content = comments() + "0.5 1 1\n2 2 1\n3 3 1\n0 0 0\n4 4 1\n";
  for (const row& t : {row{1.f, 0.f, {0.5f, 2, 3, 4}}, row{1.5f, 0.f, {2, 3, 4}}, row{0.f, 3.f, {0.5f, 2, 3}},
                       row{2.f, 3.f, {2, 3}}}) {
    data_run run(10, content);
    run.pattern().low_range = t.low;
    run.pattern().high_range = t.high;
    run.read();
    ASSERT_EQ(run.stopped, "");
    std::vector<float> x = run.pattern().txv;
    x.pop_back();
    EXPECT_EQ(x, t.x) << t.low << ' ' << t.high;
  }
}

TEST(ReadintLayout10, HeadingScalesAndGivesTheTemperature) {
  data_run run(10, "XYDATA\nINTER 10.0 2.0 0 0.0\nTEMP 4.2\na\nb\nc\n! comment\nx y sigma\n1 10 1\n2 20 2\n");
  run.read();
  ASSERT_EQ(run.stopped, "") << run.console.str();
  const pattern_type& p = run.pattern();
  EXPECT_EQ(p.y, (std::vector<float>{20, 40}));
  EXPECT_EQ(p.var, (std::vector<float>{4, 16}));
  EXPECT_EQ(p.txv, (std::vector<float>{10, 20, 30}));
  EXPECT_FLOAT_EQ(p.tsamp, 4.2f);
  EXPECT_EQ(p.numor, 1);
}

TEST(ReadintLayout10, InterpolationReproducesASmoothCurveOnTheConstantGrid) {
  std::ostringstream content;
  content << "XYDATA\nINTER 1 1 1 0.1\n\n\n\n\n";
  const auto curve = [](double x) { return 1000 + 500 * std::sin(x); };
  for (int i = 0; i <= 200; ++i) {
    const double x = 2 + 0.05 * i + 0.004 * (i % 3);  // uneven
    content << x << ' ' << curve(x) << " 3\n";
  }
  data_run run(10, content.str());
  run.read();
  ASSERT_EQ(run.stopped, "") << run.console.str();
  const pattern_type& p = run.pattern();
  EXPECT_TRUE(p.iconstep);
  ASSERT_EQ(p.npts, 101);
  for (int i = 2; i < p.npts - 2; ++i) {
    const auto k = static_cast<std::size_t>(i);
    EXPECT_NEAR(p.txv[k], 2 + 0.1 * i, 1e-5);
    EXPECT_NEAR(p.y[k], curve(2 + 0.1 * i), 0.02);  // 6 digits in the file, cubic error 500 h^4/384
    EXPECT_NEAR(p.var[k], 9, 1e-4);
  }
}

TEST(ReadintThinning, KeepsEveryNthPointFromTheFirst) {
  for (const int instr : {0, 10}) {
    std::string content = instr == 0 ? "1 1 10\n" : comments();
    for (int i = 1; i <= 10; ++i) content += std::to_string(i) + (instr == 0 ? " " : " " + std::to_string(i) + " 2\n");
    data_run run(instr, content);
    run.pattern().istep = 3;
    run.read();
    const pattern_type& p = run.pattern();
    ASSERT_EQ(p.npts, 3) << run.stopped;
    EXPECT_EQ(p.y, (std::vector<float>{1, 4, 7}));
    EXPECT_EQ(p.txv, (std::vector<float>{1, 4, 7, 10}));
    EXPECT_FLOAT_EQ(p.step, 3.f);
    EXPECT_FLOAT_EQ(p.thmax, 7.f);
    EXPECT_FLOAT_EQ(p.yo_max, 7.f);
  }
  data_run none(0, "1 1 4\n1 2 3 4\n");
  none.pattern().istep = 5;
  EXPECT_EQ(none.read().stopped, " Error on Intensity file, check your instr parameter!");
}

TEST(PrepareData, UnitWeightsAndPlotOfFreeAbscissae) {
  data_run run(10, comments() + "1 10 3\n2 20 3\n");
  run.pattern().iwgt = 2;
  run.read();
  kv_read_intens::prepare_data(run.st, 0);
  EXPECT_EQ(run.pattern().var, (std::vector<float>{1, 1}));
  EXPECT_EQ(run.pattern().pl_prf, -3);
  data_run constant(0, "1 1 2\n1 2\n");
  constant.read();
  kv_read_intens::prepare_data(constant.st, 0);
  EXPECT_EQ(constant.pattern().pl_prf, 1);
  EXPECT_EQ(constant.pattern().var, (std::vector<float>{1, 2}));
}

std::string correction_file(int rows) {
  std::string text = "comment\n0 2.0\n";
  for (int i = 0; i < rows; ++i) text += std::to_string(1 + i) + " " + std::to_string(10000 * (i + 1)) + "\n";
  return text;
}

TEST(Variances, TableLowersTheWeightInsideItsRangeOnly) {
  data_run run(0, "0 0.5 4\n9*100\n");
  run.pattern().iwgt = 3;
  run.write("d.wgt", correction_file(6));
  run.read();
  kv_read_intens::prepare_data(run.st, 0);
  const pattern_type& p = run.pattern();
  EXPECT_EQ(p.var[0], 100.f);
  EXPECT_EQ(p.var[1], 100.f);
  EXPECT_NEAR(p.var[2], 100. / (1e8 / 3e7 + 1), 1e-3);
  EXPECT_NEAR(p.var[3], 100. / (2.5e8 / 3e7 + 1), 1e-3);  // halfway between the squares of 1e4 and 2e4
  std::ifstream side(run.directory / "test_var.xy");
  EXPECT_EQ(std::count(std::istreambuf_iterator<char>(side), {}, '\n'), 9);
}

TEST(Variances, TableInReciprocalSpacingUsesTheZeroAndTheWavelength) {
  data_run run(0, "29 1 31\n3*100\n");
  run.pattern().lamda[0] = 2.f;
  run.pattern().glb[kalvaris_params::gslot::zero] = 1.f;
  std::string table = "s = 1/d\n2 1.0\n";
  for (int i = 0; i < 6; ++i) table += std::to_string(0.1 + 0.1 * i) + " 10000\n";
  run.write("corr_var.wgt", table);
  run.read();
  variances::corr_variances(run.st, 0, 6);
  for (const float v : run.pattern().var) EXPECT_NEAR(v, 100. / (1e8 / 3e7 + 1), 1e-3);  // s = 0.24 to 0.26
}

TEST(Variances, TableOfTimeOfFlightAndOfReciprocalSpacing) {
  for (const int kind : {1, 2}) {
    data_run run(10, comments() + "10000 100 10\n20000 100 10\n40000 100 10\n");
    run.pattern().ixunit = 1;
    run.pattern().resolution.dtt1_i = 10000.f;  // 1/d = 1, 0.5, 0.25
    std::string table = "c\n" + std::to_string(kind) + " 1.0\n";
    for (int i = 0; i < 6; ++i)  // reaches the second and the third point, or the first and the second
      table += std::to_string(kind == 1 ? 15000 + 6000 * i : 0.4 + 0.2 * i) + " 10000\n";
    run.write("corr_var.wgt", table);
    run.read();
    variances::corr_variances(run.st, 0, 6);
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_NEAR(run.pattern().var[i], i == (kind == 1 ? 0u : 2u) ? 100 : 100. / (1e8 / 3e7 + 1), 1e-3) << kind << i;
  }
}

TEST(Variances, ShortMissingOrFaultyTablesChangeNothingAndWarn) {
  struct row {
    const char* content;
    const char* told;
  };
  const std::string five = correction_file(5);
  for (const row& t : {row{nullptr, "not found!"}, row{five.c_str(), "too small number of points"},
                       row{"c\nx\n", "error reading"}, row{"", "error reading"}}) {
    data_run run(0, "1 1 4\n4*100\n");
    if (t.content != nullptr) run.write("corr_var.wgt", t.content);
    run.read();
    variances::corr_variances(run.st, 0, run.pattern().npts);
    EXPECT_EQ(run.pattern().var, std::vector<float>(4, 100.f));
    EXPECT_NE(run.console.str().find(t.told), std::string::npos) << run.console.str();
    EXPECT_NE(run.console.str().find("=> WARNING: corrected variances are not used!"), std::string::npos);
  }
}

TEST(NombreDeColonnes, CountsBlankSeparatedFields) {
  EXPECT_EQ(kv_read_intens::nombre_de_colonnes("  1.0   2 3  "), 3);
  EXPECT_EQ(kv_read_intens::nombre_de_colonnes("1"), 1);
  EXPECT_EQ(kv_read_intens::nombre_de_colonnes(""), 1);
}

}  // namespace

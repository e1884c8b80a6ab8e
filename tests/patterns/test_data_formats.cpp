#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "data_run.hpp"

// Files are written here from the descriptions of the formats, with their own small writers.

namespace {

using kalvaris_params::pattern_type;
using test_patterns::data_run;

using numbers = std::vector<float>;

template <class... T>
std::string text(const char* format, T... values) {
  char line[256];
  std::snprintf(line, sizeof line, format, values...);
  return line;
}

/// n records made by `one(i)`, `per_line` on a line.
template <class F>
std::string lines(int n, int per_line, F one) {
  std::string all;
  for (int i = 0; i < n; ++i) all += one(i) + ((i + 1) % per_line == 0 || i + 1 == n ? "\n" : "");
  return all;
}

numbers made(int n, auto one) {
  numbers values;
  for (int i = 0; i < n; ++i) values.push_back(static_cast<float>(one(i)));
  return values;
}

int counts(int i) { return 100 + 7 * i % 53; }
double sigma(int i) { return 2 + i % 5; }

void expect_points(data_run& run, const numbers& x, const numbers& y, const numbers& var) {
  ASSERT_EQ(run.stopped, "") << run.console.str();
  const pattern_type& p = run.pattern();
  ASSERT_EQ(p.npts, static_cast<int>(y.size()));
  ASSERT_EQ(p.y.size(), y.size());
  ASSERT_EQ(p.iww.size(), y.size());
  ASSERT_EQ(p.txv.size(), y.size() + 1);
  for (std::size_t i = 0; i < y.size(); ++i) {
    EXPECT_NEAR(p.txv[i], x[i], 2e-6 * std::abs(x[i])) << i;
    EXPECT_NEAR(p.y[i], y[i], 2e-6 * std::abs(y[i])) << i;
    EXPECT_NEAR(p.var[i], var[i], 4e-6 * var[i]) << i;
  }
  EXPECT_NEAR(p.thmin, x.front(), 1e-5 * std::abs(x.front()));
  EXPECT_NEAR(p.thmax, x.back(), 1e-5 * std::abs(x.back()));
}

numbers grid(int n, double first, double step) {
  return made(n, [=](int i) { return first + step * i; });
}
numbers all_counts(int n) { return made(n, counts); }
numbers sigma_squares(int n) {
  return made(n, [](int i) { return sigma(i) * sigma(i); });
}

// --- Files ---------------------------------------------------------------------------------------------------------

std::string pairs(int n, const char* format = "%2d%6d") {
  return lines(n, 10, [&](int i) { return text(format, i % 3 + 1, counts(i)); });
}
std::string tens(int n, const char* format, auto value) {
  return lines(n, 10, [&](int i) { return text(format, static_cast<double>(value(i))); });
}

std::string file_1(int n) { return "10 0.5\n" + text("%g\n", 10 + 0.5 * (n - 1)) + pairs(n); }

std::string file_2() {
  std::string all = "1 JAN\ntitle\n3 295\nmore\nmore\n" + text("%7.3f", 5.0) +
                    lines(10, 10, [](int i) { return text("%6d", counts(i)); });
  for (int k = 1; k < 40; ++k)
    all += text("%7.1f", static_cast<double>(counts(10 * k))) +
           lines(9, 9, [&](int i) { return text("%6d", counts(10 * k + i + 1)); });
  return all;
}

std::string file_3(int n) {
  return "    2\n 01-JAN-90          EXP 5     a title\n1 777\n" + text("%13.0f%9.0f ", 1., 2.) +
         lines(10, 10,
               [](int i) {
                 const double axes[] = {20, 1, 2, 3, 4, 5, 0.25, 6, 7, 4.2};
                 return text("%8.3f ", axes[i]);
               }) +
         text("%4d the sample\n", n) + pairs(n, "%2d%8d") + text("%10d\n", 42);
}

std::string file_4(int n) {
  std::string all = "! note\n \t! note\n10 0.5 " + text("%g\n", 10 + 0.5 * (n - 1));
  for (int i = 0; i < n; i += 10) {
    const int here = std::min(10, n - i);
    all += tens(here, "%8.0f", [&](int k) { return counts(i + k); }) +
           tens(here, "%8.1f", [&](int k) { return sigma(i + k); });
  }
  return all;
}

std::string dated_record(const std::string& date, int count, int monitor) {
  if (date == "AUG86") return std::string(51, '.') + text("%10d %10d\n", monitor, count);
  return std::string(24, '.') + text("%7d %7d\n", count, monitor);
}

/// Two blocks of five points, 20 to 22 and 22 to 24: the second repeats the point at 22.
std::string file_dated(const std::string& date) {
  std::string all = date + " sample\n" + text("%8d%8.0f%10.3e\n", 2, 1000., 2.4e-6);
  for (int block = 0; block < 2; ++block) {
    all += lines(6, 6, [&](int i) {
      const double head[] = {20. + 2 * block, 0.5, 22. + 2 * block, 10, 50, 3};
      return text("%8.2f", head[i]);
    });
    for (int i = 0; i < 5; ++i) all += dated_record(date, 1000 * counts(4 * block + i), 2050);
  }
  return all;
}

std::string file_5(int n, int flag, const char* monitors) {
  return "t\nTSAMP 5\nt\n! a note\n" + text("%d 4.2 4.3 %d %s\n", n, flag, monitors) +
         text("10 0.5 %g\n", 10 + 0.5 * (n - 1)) + lines(n, 7, [](int i) { return text("%d ", counts(i)); }) +
         (flag != 0 ? lines(n, 7, [](int i) { return text("%g,", sigma(i)); }) : "");
}

std::string file_6(int full_lines) {
  return "title TSAMP 77\n" + std::string(16, '.') + text("%8.3f\n%8.3f\n%8.0f%8.0f\n", 0.5, 12., 3000., 1000.) +
         pairs(10 * full_lines) + text("%2d%6d\n", 1, -1000);
}

std::string file_7(int n) {
  return text("%5d %5.0f a title\n", n, 295.) + lines(n, 5, [](int i) {
           return text("%7.2f %8.1f %5.1f", 10 + 0.5 * i, static_cast<double>(counts(i)), sigma(i));
         });
}

std::string file_8(int n) {
  return "title\ntitle\n10 0.5 " + text("%g\n", 10 + 0.5 * (n - 1)) + tens(n, "%8.1f", counts) +
         tens(n, "%8.2f", sigma);
}

std::string file_10(int n) {
  return "1\n2\n3\n4\n5\n6\n" + lines(n, 1, [](int i) { return text("%g %d %g", 10 + 0.5 * i, counts(i), sigma(i)); });
}

std::string file_11(int n) {
  return "title TSAMP 5\nb\nc\nd\n10 0.5 " + text("%g\n", 10 + 0.5 * (n - 1)) +
         lines(n, 5, [](int i) { return text("%6.0f%10d", i % 2 == 0 ? 30. : 10., counts(i)); });
}

/// Abscissae of channels that widen.
double channel(int i) { return 1000 + 10 * i + 0.1 * i * i; }

std::string bank_of_lines(int bank, int n) {
  return text("BANK %d\n", bank) +
         lines(n, 1, [&](int i) { return text(" %.3f %.4f %.4f", channel(i), 0.001 * counts(i + bank), 0.002); });
}
std::string file_14(const std::string& title, int banks, int n) {
  std::string all = title + "\n# Instrument: GEM\n# Run number : GEM 5984\n# TSAMP 12.5\n# fac_y 500\n";
  for (int bank = 1; bank <= banks; ++bank) all += bank_of_lines(bank, n);
  return all;
}

std::string file_gsas(const std::string& coefficients, const std::string& data) {
  return "a title\nInstrument parameter file\nBANK " + coefficients + "\n" + data;
}
std::string gsas_esd(int n) {
  return lines(n, 5, [](int i) { return text("%8d%8.1f", counts(i), sigma(i)); });
}
/// Times in clock ticks of 1/32 microsecond, y with four and sigma with two decimals that are not written.
std::string gsas_ralf(int n, int bank = 0) {
  return lines(n, 4, [&](int i) { return text("%8.0f%7d%5d", 32 * channel(i), 10 * counts(i + bank), 20 + i % 5); });
}

std::string file_uxd(const std::string& start, const std::string& data) {
  return "; comment\n_SAMPLE='s'\n_STEPTIME=20.0\n_STEPSIZE=0.5\n_START=10.0\n_KV=\n_2THETA=10.0\n" + start + "\n" +
         data;
}

std::string file_csv(int n, int told) {
  return "[Measurement conditions]\nTitle 1,a sample\nK-Alpha1 wavelength,1.5406\nScan step size,0.5\n" +
         text("No. of points, %d\n[Scan points]\nAngle,Intensity\n", told) +
         lines(n, 1, [](int i) { return text("%.4f,%d.0", 10 + 0.5 * i, counts(i)); });
}

std::string file_udf(int n) {
  return "SampleIdent,zeolite ,/\nLabdaAlpha1, 1.54060,/\n" +
         text("DataAngleRange,   10.0000, %8.4f,/\nScanStepSize,   0.500,/\nRawScan\n", 10 + 0.5 * (n - 1)) +
         lines(n, 8, [&](int i) { return text("%8d", counts(i)) + (i + 1 == n   ? ",/"
                                                                   : i % 8 == 7 ? ""
                                                                                : ","); }) +
         "\x1a";
}

std::string file_jcp(int told) {
  std::string all = "## TITLE= sample\n##$WAVELENGTH ALPHA1= 1.54\n## FIRSTX= 10.0\n## LASTX= 15.0\n## DELTAX= 0.5\n" +
                    text("## NPOINTS= %d\n## XYDATA= X++<Y..Y>\n", told);
  for (int i = 0; i < told; i += 5) {
    all += text("%9.3f ", 10 + 0.5 * i) + lines(5, 5, [&](int k) { return text("%11.3f", 1. * counts(i + k)); });
  }
  return all + "## END=\n";
}

std::string xrdml_positions(int n) {
  return "<?xml version=\"1.0\"?>\n<xrdMeasurement>\n<positions axis=\"2Theta\" unit=\"deg\">\n"
         "  <startPosition>10.0</startPosition>\n" +
         text("  <endPosition>%g</endPosition>\n</positions>\n", 10 + 0.5 * (n - 1)) +
         "<positions axis=\"Omega\" unit=\"deg\">\n<startPosition>5</startPosition>\n</positions>\n";
}
std::string xrdml_scan(int n, const std::string& tag = "intensities") {
  return "  <" + tag + " unit=\"counts\">" + lines(n, n, [](int i) { return text("%d ", counts(i)); }).substr(0) +
         "</" + tag + ">\n";
}
std::string file_xrdml(int n, int scans, const std::string& tag = "intensities") {
  std::string all = xrdml_positions(n);
  for (int k = 0; k < scans; ++k) all += xrdml_scan(n, tag);
  return all + "</xrdMeasurement>\n<nonAmbientValues>77.5</nonAmbientValues>\n";
}

struct sample {
  int instr;
  std::string content;
  std::string extension = ".dat";
  int jobtyp = 0;
  int ixunit = 0;
};

/// A sound file of every layout and variant.
std::vector<sample> samples() {
  return {{0, "title\n10 0.5 15.5\n1 2 3 4 5 6\n7 2*8 9 10 11\n"},
          {1, file_1(12)},
          {2, file_2()},
          {3, file_3(20)},
          {4, file_4(12)},
          {-4, file_dated("OCT85")},
          {-4, file_dated("AUG86")},
          {5, file_5(12, 0, "1000 500")},
          {5, file_5(12, 1, "0 0")},
          {6, file_6(3)},
          {7, file_7(12)},
          {8, file_8(22)},
          {9, file_uxd("_COUNTS", tens(12, "%10.0f", counts))},
          {9, file_uxd("_2THETACPS", "10.0\t5.5\n10.5\t4.5\n")},
          {10, "XYDATA\nINTER 1 1 1 0.5\nTEMP 4\na\nb\nc\n" + file_10(12).substr(12)},
          {11, file_11(12)},
          {12, file_gsas("1 12 2 CONST 1000 50 0 0 STD", pairs(12))},
          {12, file_gsas("1 12 2 CONST 1000 50 0 0", tens(12, "%8.0f", counts)), ".dat", -1, 1},
          {12, file_gsas("1 12 3 CONST 1000 50 0 0 ESD", gsas_esd(12))},
          {12, file_gsas("1 12 3 RALF 32000 320 32000 0 ALT", gsas_ralf(12)), ".dat", -1, 1},
          {13, file_csv(12, 12), ".csv"},
          {13, file_udf(12), ".udf"},
          {13, file_jcp(11), ".jcp"},
          {13, file_xrdml(12, 2), ".xrdml"},
          {14, file_14("title T= 12 K", 1, 12), ".dat", -1, 1},
          {-14, file_14("title RALF", 1, 12), ".dat", -1, 1}};
}

// --- Layouts -------------------------------------------------------------------------------------------------------

TEST(Layout1, DetectorsDivideTheVariance) {
  data_run run(1, file_1(12));
  run.read();
  expect_points(run, grid(12, 10, 0.5), all_counts(12), made(12, [](int i) { return counts(i) / (i % 3 + 1.); }));
  EXPECT_EQ(run.pattern().iww[1], 2);
  data_run odd(1, "10 0.5 11\n 0   100 2     0-1    50\n");  // no detector, no count, a negative number of detectors
  odd.read();
  expect_points(odd, {10, 10.5, 11}, {100, 1, 50}, {100, 0.5, 50});
}

TEST(Layout2, FirstFieldOfALineHasThreeDecimals) {
  data_run run(2, file_2());
  run.read();
  numbers y = all_counts(400);
  y[0] = y[1];
  y[399] = y[398];
  expect_points(run, grid(400, 10, 0.2), y, y);
  EXPECT_EQ(run.pattern().numor, 295);
  EXPECT_EQ(run.pattern().tsamp, 295.f);
  std::string without_point = file_2();
  const auto second = without_point.find(text("%7.1f", static_cast<double>(counts(10))));
  data_run shifted(2, without_point.replace(second, 7, "  12345"));
  shifted.read();
  EXPECT_FLOAT_EQ(shifted.pattern().y[10], 12.345f);
}

TEST(Layout3, AxesAndRunNumber) {
  data_run run(3, file_3(20));
  run.st.run.jcil = 1;
  kalvaris_inout::openfile(run.st.io, {.key = 4});
  run.read();
  expect_points(run, grid(20, 20, 0.25), all_counts(20), made(20, [](int i) { return counts(i) / (i % 3 + 1.); }));
  EXPECT_FLOAT_EQ(run.pattern().tsamp, 4.2f);
  const auto record = kalvaris_inout::content(run.st.io, 2);
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(*record,
            "DATT      777  42        4.20   1.000   2.000   3.000   4.000   5.000   6.000   7.000 the sample\n");
}

TEST(Layout4, LinesAlternate) {
  for (const int n : {10, 12}) {
    data_run run(4, file_4(n));
    run.read();
    expect_points(run, grid(n, 10, 0.5), all_counts(n), sigma_squares(n));
  }
  data_run gaps(4, "1 1 3\n     100       0      50\n     2.0     3.0       0\n");
  gaps.read();
  expect_points(gaps, {1, 2, 3}, {100, 100, 50}, {4, 9, 1});
  EXPECT_FLOAT_EQ(gaps.pattern().cnorm, (0.04f + 0.09f + 0.02f) / 3);
  EXPECT_TRUE(gaps.told("variance 0: point 3, x = 3.00000"));
}

TEST(LayoutDated, BlocksAreNormalisedAndJoined) {
  for (const char* date : {"OCT85", "FEB86", "AUG86"}) {
    data_run run(-4, file_dated(date));
    run.read();
    const auto point = [](int i) {  // by hand: t = 10 s, M = 1000, m = 2050 - 50, background 3
      const double rate = 100. * counts(i), live = 1 - 2.4621e-6 * rate;
      const double y = (rate / live - 3) * 0.5, scale = 10 * 2. * live;
      return std::pair{y, 1000. * counts(i) / (scale * scale)};
    };
    expect_points(run, grid(9, 20, 0.5), made(9, [&](int i) { return point(i).first; }),
                  made(9, [&](int i) { return point(i).second; }));
  }
}

TEST(Layout5, MonitorsOrSigmasGiveTheVariance) {
  struct row {
    int flag;
    const char* monitors;
    double cnorm;
  };
  for (const row& t : {row{0, "1000 500", 2}, row{0, "1 500", 1}, row{0, "1000 0.5", 1}}) {
    data_run run(5, file_5(12, t.flag, t.monitors));
    run.read();
    expect_points(run, grid(12, 10, 0.5), all_counts(12), made(12, [&](int i) { return counts(i) * t.cnorm; }));
    EXPECT_FLOAT_EQ(run.pattern().cnorm, static_cast<float>(t.cnorm));
    EXPECT_FLOAT_EQ(run.pattern().tsamp, 4.2f);
  }
  data_run run(5, file_5(12, 1, "1000 500"));
  run.read();
  expect_points(run, grid(12, 10, 0.5), all_counts(12), sigma_squares(12));
}

TEST(Layout6, TheLastLineInFrontOfTheMarkIsDropped) {
  data_run run(6, file_6(3));
  run.read();
  expect_points(run, grid(20, 12, 0.5), all_counts(20), made(20, [](int i) { return 3. * counts(i) / (i % 3 + 1.); }));
  EXPECT_FLOAT_EQ(run.pattern().tsamp, 77.f);
  data_run at_limit(6, file_6(40));  // 18/0.5 lines are read at most
  at_limit.read();
  EXPECT_EQ(at_limit.pattern().npts, 350);
}

TEST(Layouts7And8And10, HoldTheSamePattern) {
  constexpr int n = 22;
  for (const auto& [instr, content] : {std::pair{7, file_7(n)}, std::pair{8, file_8(n)}, std::pair{10, file_10(n)}}) {
    SCOPED_TRACE(instr);
    data_run run(instr, content);
    run.read();
    expect_points(run, grid(n, 10, 0.5), all_counts(n),
                  made(n, [&](int i) { return (instr == 7 ? 0.5 : 1) * sigma(i) * sigma(i); }));
    EXPECT_EQ(run.pattern().iconstep, instr == 8);
    EXPECT_FLOAT_EQ(run.pattern().step, 0.5f);
    EXPECT_EQ(run.console.str(), "");
  }
}

TEST(Layout11, CountsAreBroughtToTheMeanTime) {
  for (const int instr : {11, -11}) {
    data_run run(instr, file_11(12));
    run.read();
    const numbers y = made(12, [](int i) { return counts(i) * 20. / (i % 2 == 0 ? 30. : 10.); });
    expect_points(run, grid(12, 10, 0.5), y, y);
  }
}

TEST(Layout14, BanksFollowOneAnotherInOneFile) {
  for (const bool ralf : {false, true}) {
    SCOPED_TRACE(ralf);
    data_run run(14, file_14(ralf ? "GEM RALF T= 4.5 K" : "GEM T= 4.5 K", 3, 12));
    run.set_banks(3);
    for (int ip = 0; ip < 3; ++ip) {
      run.read(ip);
      ASSERT_EQ(run.stopped, "") << run.console.str();
      const pattern_type& p = run.st.pattern[static_cast<std::size_t>(ip)];
      EXPECT_EQ(run.st.data_file.keep_open, ip < 2);
      ASSERT_EQ(p.npts, ralf ? 11 : 12);
      EXPECT_FALSE(p.iconstep);
      for (int i = 0; i < p.npts; ++i) {
        const double width = ralf ? channel(i + 1) - channel(i) : 1;
        EXPECT_NEAR(p.txv[static_cast<std::size_t>(i)], channel(i), 1e-3);
        EXPECT_NEAR(p.y[static_cast<std::size_t>(i)], 0.5 * counts(i + ip + 1) / width, 2e-3);
        EXPECT_NEAR(p.var[static_cast<std::size_t>(i)], 1 / (width * width), 1e-4);
        EXPECT_NEAR(p.iww[static_cast<std::size_t>(i)], 0.5 * counts(i + ip + 1) * width, 1);
      }
      if (ip == 0) {
        EXPECT_EQ(p.numor, 5984);
        EXPECT_FLOAT_EQ(p.tsamp, 12.5f);
      }
    }
  }
}

TEST(Layout14, AnotherFileOrAbscissaBeginsAnew) {
  data_run run(14, file_14("t", 2, 12));
  run.set_banks(2);
  run.write("e.dat", file_14("t", 1, 5));
  run.st.io.filedat[1] = "e";
  EXPECT_EQ(run.read(0).read(1).st.pattern[1].npts, 5) << run.stopped;
  run.st.io.filedat[1] = "d";
  run.st.pattern[0].ixunit = 0;
  run.read(0).read(1);
  EXPECT_EQ(run.st.pattern[1].y, run.st.pattern[0].y);  // the first bank again
}

TEST(Layout14, ZeroSigmasMeanCountingStatistics) {
  data_run run(14, "t\nBANK 1\n1 5 0\n2 6 0\n3 7 0\n");
  run.read();
  expect_points(run, {1, 2, 3}, {5000, 6000, 7000}, {5000, 6000, 7000});
  EXPECT_TRUE(run.told("Variance assumed to be equal to Intensity"));
}

// --- GSAS ----------------------------------------------------------------------------------------------------------

TEST(Gsas, TypesOfDataAndBinning) {
  const numbers shared = made(12, [](int i) { return counts(i) / (i % 3 + 1.); });
  for (const char* coefficients : {"1 12 2 CONST 1000 50 0 0 STD", "  1   12 2  CONST 1000. 50. 0 0"}) {
    data_run pair_run(12, file_gsas(coefficients, pairs(12)));
    expect_points(pair_run.read(), grid(12, 10, 0.5), all_counts(12), shared);
  }
  data_run plain(12, file_gsas("1 12 2 CONST 1000 50 0 0", tens(12, "%8.0f", counts)));
  plain.pattern().jobtyp = -1;
  expect_points(plain.read(), grid(12, 1000, 50), all_counts(12), all_counts(12));
  data_run esd(12, file_gsas("1 12 3 CONST 1000 50 0 0 ESD", gsas_esd(12)));
  expect_points(esd.read(), grid(12, 10, 0.5), all_counts(12), sigma_squares(12));
  data_run alt(12, file_gsas("1 12 3 CONST 1000 50 0 0 ALT", lines(12, 4, [](int i) {
                               return text("%8.0f%7.1f%5.1f", 1000. + 50 * i, 1. * counts(i), sigma(i));
                             })));
  expect_points(alt.read(), grid(12, 1000, 50), all_counts(12), sigma_squares(12));
  EXPECT_TRUE(alt.pattern().iconstep);
  EXPECT_EQ(alt.console.str() + esd.console.str() + plain.console.str(), "");
}

TEST(Gsas, RalfBanksAreDividedByTheirWidthsOneAfterTheOther) {
  std::string file = file_gsas("1 12 3 RALF 32000 320 32000 0 ALT", gsas_ralf(12));
  file += "BANK 2 12 3 RALF 32000 320 32000 0 ALT\n" + gsas_ralf(12, 2) + "BANK 3 12 3 RALF 32000 320 32000 0 ALT\n" +
          gsas_ralf(12, 3);
  for (const bool short_bank : {false, true}) {
    // a bank that ends early leaves the line of the next one
    if (short_bank) file.erase(file.find("BANK 2") - 48, 48).insert(file.find("BANK 2"), "\n");
    data_run run(12, file);
    run.set_banks(3);
    for (int ip = 0; ip < 3; ++ip) {
      run.read(ip);
      ASSERT_EQ(run.stopped, "") << run.console.str();
      const pattern_type& p = run.st.pattern[static_cast<std::size_t>(ip)];
      ASSERT_EQ(p.npts, short_bank && ip == 0 ? 8 : 11);
      const int bank = ip == 0 ? 0 : ip + 1;
      double cnorm = 0;
      for (int i = 0; i < p.npts; ++i) {
        const double width = channel(i + 1) - channel(i);
        const double y = 1000 * 0.001 * counts(i + bank) / width, var = std::pow(1000 * 0.01 * (20 + i % 5) / width, 2);
        EXPECT_NEAR(p.txv[static_cast<std::size_t>(i)], channel(i), 0.02);
        EXPECT_NEAR(p.y[static_cast<std::size_t>(i)], y, 4e-3 * y);  // ticks are rounded
        EXPECT_NEAR(p.var[static_cast<std::size_t>(i)], var, 8e-3 * var);
        cnorm += var / y;
      }
      EXPECT_NEAR(p.cnorm, cnorm / (p.npts + 1), 1e-2 * cnorm / p.npts);
    }
    EXPECT_EQ(run.told("fewer points than announced"), short_bank);
  }
}

TEST(Gsas, RangeCutsDataWithSigmasWhenBothLimitsAreAlive) {
  for (const bool both : {false, true}) {
    data_run run(12, file_gsas("1 12 3 CONST 1000 50 0 0 ESD", gsas_esd(12)));
    run.pattern().low_range = 10.9f;
    run.pattern().high_range = both ? 13.1f : 0.f;
    run.read();
    if (!both) {
      EXPECT_EQ(run.pattern().npts, 12);
      continue;
    }
    const numbers y = all_counts(12);
    expect_points(run, grid(5, 11, 0.5), numbers(y.begin() + 2, y.begin() + 7),
                  made(5, [](int i) { return sigma(i + 2) * sigma(i + 2); }));
  }
}

// --- UXD -----------------------------------------------------------------------------------------------------------

TEST(Uxd, ColumnsAndSeparators) {
  const std::string rows_of_x = lines(12, 1, [](int i) { return text("%g %d", 10 + 0.5 * i, counts(i)); });
  const auto separated = [&](char c) {
    std::string all = rows_of_x;
    for (char& k : all)
      if (k == ' ') k = c;
    return all;
  };
  struct row {
    const char* start;
    std::string data;
    double factor;
  };
  for (const row& t :
       {row{"_COUNTS", tens(12, "%10.0f", counts), 1}, row{"_CPS", tens(12, "%10.0f", counts) + "\n\n", 1},
        row{"_COUNTS=x\nfurther", tens(12, "%10.0f,", counts), 1}, row{"_2THETACOUNTS", rows_of_x, 1},
        row{"_2THETACOUNTS", separated('\t'), 1}, row{"_2THETACPS", separated(';'), 20},
        row{"_2THETACPS", separated(','), 20}}) {
    SCOPED_TRACE(std::string(t.start) + t.data);
    data_run run(9, file_uxd(t.start, t.data));
    run.read();
    const numbers y = made(12, [&](int i) { return counts(i) * t.factor; });
    expect_points(run, grid(12, 10, 0.5), y, y);
    EXPECT_TRUE(run.pattern().iconstep);
    EXPECT_EQ(run.console.str(), "");
  }
  data_run crlf(9, "TSAMP = 77\r\n_STEPSIZE=1\r\n_STEPCOUNT=3\r\n_START=5\r\n_COUNTS\r\n1 2\r\n0\r\n");
  crlf.read();
  expect_points(crlf, {5, 6, 7}, {1, 2, 0}, {1, 2, 1});
  EXPECT_FLOAT_EQ(crlf.pattern().tsamp, 77.f);
}

// --- PANalytical ---------------------------------------------------------------------------------------------------

TEST(PanalyticalCsv, PointsAndNumberOfPoints) {
  for (const int told : {12, 20, 7}) {
    data_run run(13, file_csv(12, told), ".csv");
    run.read();
    const int n = std::min(told, 12);
    expect_points(run, grid(n, 10, 0.5), all_counts(n), all_counts(n));
    EXPECT_FALSE(run.pattern().iconstep);
    EXPECT_EQ(run.told("fewer points than announced: 12 of 20"), told == 20);
  }
}

TEST(PanalyticalUdf, WholeAndRemainingRecords) {
  for (const int n : {16, 19, 1000}) {
    data_run run(13, file_udf(n), ".UDF");
    run.read();
    expect_points(run, grid(n, 10, 0.5), all_counts(n), all_counts(n));
    EXPECT_EQ(run.console.str(), "");
  }
}

TEST(PanalyticalJcp, TheLastRecordGivesOnePoint) {
  for (const auto& [told, n] : {std::pair{10, 6}, std::pair{11, 11}, std::pair{15, 11}}) {
    data_run run(13, file_jcp(told), ".jcp");
    run.read();
    expect_points(run, grid(n, 10, 0.5), all_counts(n), all_counts(n));
  }
}

TEST(PanalyticalXrdml, ScansAreSummed) {
  for (const std::string tag : {"intensities", "counts"}) {
    data_run run(13, file_xrdml(12, 3, tag), ".xrdml");
    run.read();
    const numbers y = made(12, [](int i) { return 3 * counts(i); });
    expect_points(run, grid(12, 10, 0.5), y, y);
    EXPECT_FLOAT_EQ(run.pattern().tsamp, 77.5f);
  }
  std::string one_line = file_xrdml(12, 1);
  std::erase(one_line, '\n');
  data_run minified(13, "\xEF\xBB\xBF" + one_line, ".XRDML");
  minified.read();
  expect_points(minified, grid(12, 10, 0.5), all_counts(12), all_counts(12));
  data_run second(13, file_xrdml(12, 1) + file_xrdml(12, 1), ".xrdml");  // only the first measurement counts
  second.read();
  expect_points(second, grid(12, 10, 0.5), all_counts(12), all_counts(12));
}

// --- Failures ------------------------------------------------------------------------------------------------------

TEST(DataFormats, FailuresSayWhatStoodWhere) {
  struct row {
    const char* what;
    sample file;
    std::string stop, told;
  };
  const std::string check = " Error on Intensity file, check your instr parameter!", program = " Program interrupted",
                    uxd = " Error on Socabim UXD Intensity file, check your instr parameter!",
                    xrdml = " Error reading a profile XRDML-DATA file: ";
  const std::string udf = file_udf(12), csv = file_csv(12, 12), jcp = file_jcp(11);
  const auto cut = [](const std::string& whole, const std::string& at) { return whole.substr(0, whole.find(at)); };
  const auto swap = [](std::string whole, const std::string& was, const std::string& is) {
    return whole.replace(whole.find(was), was.size(), is);
  };
  for (const row& t : {
           row{"empty", {1, ""}, check, "first abscissa, step and last abscissa expected"},
           row{"early end", {1, file_1(12).substr(0, 60)}, check, "line: 3: the data end, point 7 of 12 expected"},
           row{"letter", {1, swap(file_1(12), " 107", "x107")}, check, "line: 3, column: 11: \"x107\" found, point 2"},
           row{"cut", {2, file_2().substr(0, 900)}, check, "ten intensities expected"},
           row{"letter", {2, swap(file_2(), "295", "x")}, check, "line: 3, column: 3: \"x\" found, two integers"},
           row{"points", {3, swap(file_3(20), "  20 the", "  -5 the")}, check, "-5 data points"},
           row{"no run number", {3, cut(file_3(20), "        42")}, check, "run number behind the data"},
           row{"sigma", {4, swap(file_4(12), "2.0", "2.x")}, check, "sigma 1 of 12"},
           row{"month", {-4, file_dated("SEP85")}, check, "When was this data taken. OCT85,FEB86 or AUG86 ?"},
           row{"monitor", {-4, swap(file_dated("OCT85"), "2050", "  50")}, check, "cannot be normalised"},
           row{"points", {5, "t\nt\nt\n1000000000 1 1 0 0 0\n1 1 2\n1 2\n"}, " Too many points", "1000000000"},
           row{"sigmas", {5, cut(file_5(12, 1, "0 0"), "2,3,")}, check, "standard deviation 1 of 12"},
           row{"no end mark", {6, cut(file_6(3), "-1000")}, check, "point"},
           row{"points", {7, swap(file_7(12), "   12", "    x")}, check, "\"x\" found, number of points"},
           row{"fewest", {8, file_8(19)}, check, "19 points, at least 20 expected"},
           row{"fault in sigmas", {8, swap(file_8(22), "2.00", "2..0")}, check, "point 1 of 22"},
           row{"no start", {9, "_START=1\n"}, uxd, "_COUNTS, _CPS, _2THETACOUNTS or _2THETACPS expected"},
           row{"value", {9, "_START=x\n"}, uxd, "line: 1, column: 8: \"x\" found, a number expected"},
           row{"no data", {9, file_uxd("_COUNTS", "")}, uxd, "intensities expected"},
           row{"empty record", {9, file_uxd("_COUNTS", "1 2\n\n3 4\n")}, uxd, "line: 10: an empty record"},
           row{"temperature", {9, "TSAMP x\n"}, uxd, "a number expected behind TSAMP"},
           row{"count", {9, "_STEPCOUNT=99999999\n"}, " Too many points", "99999999 points were input"},
           row{"no time", {9, "_START=1\n_STEPSIZE=1\n_2THETACPS\n1 2\n2 3\n"}, uxd, "_STEPTIME"},
           row{"zero time",
               {11, swap(file_11(12), "    10       107", "     0       107")},
               " Zero time in *.DAT",
               "point 2, x = 10.5"},
           row{"no bank", {14, "title\n1 2 3\n"}, check, "BANK expected"},
           row{"channels", {14, "RALF\nBANK\n2 1 1\n1 1 1\n0.5 1 1\n"}, program, "increasing"},
           row{"bank in line 8",
               {12, "1\n2\n3\n4\n5\n6\n7\nBANK 1 2 1 CONST 1 1 0 0 STD\n"},
               " => Error in the input GSAS-file: BANK not found!",
               "first 7; it stands in line 8, shorten the heading"},
           row{"STD",
               {12, "BANK 1 12 3 RALF 1 1 0 0 STD\n"},
               " => Only BINTYP=CONST is allowed for standard data",
               "binning RALF"},
           row{"ESD", {12, "BANK 1 12 3 LOG6 1 1 0 0 ESD\n"}, " => Only BINTYP=CONST is allowed for ESD data", ""},
           row{"ALT",
               {12, "BANK 1 12 3 LOG6 1 1 0 0 ALT\n"},
               " => Only BINTYP=RALF or CONST is allowed for ALT data",
               ""},
           row{"FXYE", {12, "BANK 1 12 3 CONST 1 1 0 0 FXYE\n"}, check, "\"FXYE\" found, STD, ESD or ALT expected"},
           row{"channels",
               {12, "BANK 1 2x 3 CONST 1 1 0 0 STD\n"},
               check,
               "column: 8: \"2x\" found, number of channels"},
           row{"one triplet",
               {12, file_gsas("1 1 1 RALF 32 32 0 0 ALT", gsas_ralf(1)), ".dat", -1},
               check,
               "1 data points"},
           row{"step", {12, "BANK 1 12 3 CONST 1000 0 0 0 ESD\n" + gsas_esd(12)}, check, "the step is 0"},
           row{"extension", {13, csv, ".dat"}, check, "one of .csv, .udf, .jcp, .xrdml expected with instr = 13"},
           row{"spelling", {13, csv, ".csV"}, check, "extension \".csV\" found"},
           row{"csv", {13, cut(csv, "[Scan"), ".csv"}, program, " Error reading a profile CSV-DATA file: end of file!"},
           row{"udf",
               {13, cut(udf, "RawScan"), ".udf"},
               program,
               " Error reading a profile UDF-DATA file: end of file!"},
           row{"udf order",
               {13, cut(udf, "DataAngle") + "ScanStepSize, 1,/\nRawScan\n", ".udf"},
               program,
               "DataAngleRange expected in front"},
           row{"jcp",
               {13, cut(jcp, "## END"), ".jcp"},
               program,
               " Error reading a profile JCP-DATA file: end of file!"},
           row{"no positions", {13, "<a>\n", ".xrdml"}, program, xrdml + "end of file while trying to read Wavelength"},
           row{"no start",
               {13, cut(file_xrdml(12, 1), "<startP"), ".xrdml"},
               program,
               xrdml + "<startPosition> string not found!"},
           row{"no end",
               {13, cut(file_xrdml(12, 1), "<endP"), ".xrdml"},
               program,
               xrdml + "<endPosition> string not found!"},
           row{"no scan",
               {13, xrdml_positions(12) + "</xrdMeasurement>\n" + xrdml_scan(12), ".xrdml"},
               program,
               xrdml + "<intensities unit=\"counts\"> string not found!"},
           row{"bad scan",
               {13, swap(file_xrdml(12, 1), "107", "1x7"), ".xrdml"},
               program,
               xrdml + "error reading the intensities"},
           row{"short scan",
               {13, xrdml_positions(12) + xrdml_scan(12) + xrdml_scan(11), ".xrdml"},
               program,
               "intensity 12 of scan 2 expected"},
       }) {
    SCOPED_TRACE(std::to_string(t.file.instr) + ": " + t.what);
    data_run run(t.file.instr, t.file.content, t.file.extension);
    run.pattern().jobtyp = t.file.jobtyp;
    run.read();
    EXPECT_EQ(run.stopped, t.stop);
    EXPECT_TRUE(run.told(t.told)) << run.console.str();
  }
}

TEST(DataFormats, AFileOfAnotherLayoutIsToldWithTheInstrThatFits) {
  struct row {
    int instr;
    sample file;
    std::string told;
  };
  const std::string read_with = "The whole file can be read with instr = ";
  for (const row& t : {row{0, {10, file_10(12)}, read_with + "10: x, y, sigma"},
                       row{10,
                           {0, "10 0.5 15.5\n" + lines(12, 6, [](int i) { return text("%d ", counts(i)); })},
                           read_with + "0: header and intensities"},
                       row{10, {8, file_8(22)}, read_with + "8: intensities"},
                       row{12, {9, file_uxd("_COUNTS", tens(12, "%10.0f", counts))}, read_with + "9: UXD"},
                       row{0, {13, file_xrdml(12, 1)}, read_with + "13: PANalytical XRDML, and the extension .xrdml"},
                       row{8, {12, file_gsas("1 12 2 CONST 1000 50 0 0 STD", pairs(12))}, read_with + "12: GSAS"}}) {
    data_run run(t.instr, t.file.content);
    run.read();
    EXPECT_NE(run.stopped, "");
    EXPECT_TRUE(run.told(t.told)) << t.told << '\n' << run.console.str();
  }
  data_run none(12, "nothing\nof use\n");
  none.read();
  EXPECT_FALSE(none.told("can be read with"));
}

// --- Warnings ------------------------------------------------------------------------------------------------------

TEST(DataFormats, WhatIsNotAsItShouldBeGetsOneLineWithTheFirstPlace) {
  struct row {
    sample file;
    std::string told;
  };
  const std::string head = "1\n2\n3\n4\n5\n6\n";
  std::string twelve;
  for (int i = 1; i <= 12; ++i) twelve += text("%d 5 1\n", i);
  for (const row& t : {
           row{{0, "1 1 4\n5 0 0 8\n"}, "no counts, so no variance: point 2, x = 2.00000, 1 is used (the first of 2)"},
           row{{10, head + "1 5 1\n2 5 0\n3 5 1\n"}, "variance 0: point 2, x = 2.00000, line 8"},
           row{{10, head + "1 5 1\n2 -5 1\n3 0 1\n"},
               "intensity not above 0: point 2, x = 2.00000, y = -5.00000, 0.100000E-04 is used (the first of 2)"},
           row{{1, "1 1 3\n 1     5 1     0 1     7\n"},
               "intensity not above 0: point 2, x = 2.00000, y = 0.00000, 1.0"},
           row{{10, head + twelve + "14 5 1\n"}, "step is not constant: point 13, x = 14.0000, step 2.00000"},
           row{{10, head + twelve + "11.5 5 1\n"}, "points out of order, sorted by x: point 13, x = 11.5000 after 12"},
           row{{10, head + twelve + "12 5 1\n"}, "two points at one abscissa: point 13"},
           row{{10, "5 6 7\n" + head + twelve}, "line 1 begins with two numbers"},
           row{{10, "XYDATA\nINTER 1 1 2 1\n\n\n\n\n1 5 1\n2.5 5 1\n3 5 1\n"}, "step is not constant: point 2"},
           row{{1, "1 1 3\n 1     5 1       1     7\n"}, "columns without a number count as 0, first in line 2"},
           row{{3, file_3(14)}, "fewer points than announced: 10 of 14"},
           row{{7, file_7(12).substr(0, 20 + 111 + 44)}, "fewer points than announced: 7 of 12"},
           row{{8, file_8(22).substr(0, 24 + 81 + 81 + 1)}, "fewer points than announced: 20 of 22"},
           row{{8, file_8(20).substr(0, 24 + 162)}, "no standard deviations behind the intensities"},
           row{{9, "_START=1\n_STEPSIZE=1\n_STEPCOUNT=5\n_COUNTS\n1 2 3\n"}, "fewer points than announced: 3 of 5"},
           row{{9, "_START=1\n_STEPSIZE=1\n_2THETACOUNTS\n1 2\n2.5 3\n3 3\n"},
               "not constant: point 2, x = 2.50000 where 2"},
           row{{9, "_START=1\n_STEPSIZE=1\n_COUNTS\n1 2\n3 4\n; second range\n5 6\n"}, "data end at line 6"},
           row{{12, file_gsas("1 24 3 CONST 1000 50 0 0 STD", pairs(15))}, "fewer points than announced: 15 of 24"},
           row{{12, file_gsas("1 12 3 CONST 1000 50 0 0 ESD", "     5.0     0.0     6.0     1.0\n")},
               "variance 0: point 1"},
           row{{13, file_udf(12).substr(0, 140) + "\n", ".udf"}, "fewer points than announced"},
           row{{13, file_jcp(10), ".jcp"}, "fewer points than announced: 6 of 10"},
           row{{14, "t\nBANK 1\n1 5 1\n2 5 1\n3 x 1\n"}, "the bank ends at line 5"},
           row{{0, "1 1 4\n5 6 7 8\n9 10\n"}, "numbers stand behind the last point, which are not read: \"9 10\""},
           row{{8, file_8(22) + "       1\n"}, "numbers stand behind the last point"},
           row{{4, file_10(12)}, "The whole file can be read with instr = 10"},
       }) {
    SCOPED_TRACE(std::to_string(t.file.instr) + ": " + t.told);
    data_run run(t.file.instr, t.file.content, t.file.extension);
    kalvaris_inout::openfile(run.st.io, {.key = kalvaris_inout::file_key::listings});
    run.read();
    EXPECT_EQ(run.stopped, "");
    EXPECT_TRUE(run.told(t.told)) << run.console.str();
    EXPECT_NE(kalvaris_inout::content(run.st.io, 7).value_or("").find(t.told), std::string::npos);
    for (std::size_t i = 1; i + 1 < run.pattern().txv.size(); ++i)
      EXPECT_LE(run.pattern().txv[i - 1], run.pattern().txv[i]);
  }
}

TEST(DataFormats, SortedPointsKeepTheirIntensitiesAndDeviations) {
  std::string content = "1\n2\n3\n4\n5\n6\n";
  for (const int x : {1, 2, 3, 4, 6, 5, 7, 8, 9, 10, 11, 12}) content += text("%d %d %d\n", x, 10 * x, x);
  data_run run(10, content);
  run.read();
  ASSERT_EQ(run.stopped, "");
  const pattern_type& p = run.pattern();
  ASSERT_EQ(p.npts, 12);
  for (std::size_t i = 0; i < 12; ++i) {
    const auto x = static_cast<float>(i + 1);
    EXPECT_EQ((std::array{p.txv[i], p.y[i], p.var[i]}), (std::array{x, 10 * x, x * x}));
  }
}

// --- Hostile files -------------------------------------------------------------------------------------------------

void expect_sound(data_run& run, const std::string& content) {
  const pattern_type& p = run.pattern();
  const auto n = static_cast<std::size_t>(p.npts);
  ASSERT_GE(p.npts, 2) << content;
  ASSERT_EQ(p.txv.size(), n + 1) << content;
  ASSERT_TRUE(p.y.size() == n && p.var.size() == n && p.iww.size() == n && p.yc.size() == n) << content;
  for (std::size_t i = 0; i < n; ++i) {
    ASSERT_TRUE(std::isfinite(p.y[i]) && std::isfinite(p.txv[i])) << content;
    ASSERT_TRUE(p.var[i] > 0.f && std::isfinite(p.var[i])) << content;
    ASSERT_GE(p.iww[i], 1) << content;
    ASSERT_LE(p.txv[i], p.txv[i + 1]) << content;
  }
}

/// The file with its lines deleted or doubled, one at a time.
std::vector<std::string> with_lines_changed(const std::string& whole) {
  std::vector<std::string> all;
  for (std::size_t at = 0; at < whole.size();) {
    const std::size_t end = std::min(whole.find('\n', at), whole.size() - 1) + 1;
    all.push_back(whole.substr(0, at) + whole.substr(end));
    all.push_back(whole.substr(0, end) + whole.substr(at));
    at = end;
  }
  return all;
}

TEST(DataFormats, CutOrDamagedFilesEndWellOrWithAMessage) {
  constexpr unsigned seed = 20240601;
  std::mt19937 random(seed);
  const std::string bytes("\0\xff,/*-+eE.9 \n\t;=<", 17);
  for (const sample& file : samples()) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", instr " << file.instr << file.extension);
    std::vector<std::string> contents = with_lines_changed(file.content);
    for (int k = 0; k < 200; ++k) {
      const std::size_t at = random() % file.content.size();
      contents.push_back(file.content.substr(0, at));
      contents.push_back(std::string(file.content).replace(at, 1, 1, bytes[random() % bytes.size()]));
    }
    data_run run(file.instr, "", file.extension);
    run.pattern().jobtyp = file.jobtyp;
    run.pattern().ixunit = file.ixunit;
    for (const std::string& content : contents) {
      run.write("d" + file.extension, content);
      run.stopped.clear();
      run.console.str("");
      run.read();
      if (run.stopped.empty()) expect_sound(run, content);
      if (HasFatalFailure()) return;
    }
  }
}

/// One random change of a file: a cut, a byte, a line, a number, or a piece of another file.
std::string damaged(const std::string& file, const std::string& other, std::mt19937& random) {
  const std::vector<std::string> words{"-1", "0",  "1e38",   "-1e38", "1e-38", "99999999", "2147483648", "nan",
                                       "",   "1*", "9999*1", "BANK ", "\n",    "/",        "\t",         "5 5 5 5 5"};
  const auto any = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
  std::string text = file;
  const std::size_t at = any(text.size());
  switch (random() % 6) {
    case 0:
      return text.substr(0, at);
    case 1:
      return text.erase(at, any(12));
    case 2:
      return text.insert(at, words[any(words.size())]);
    case 3:
      return text.replace(at, any(12), words[any(words.size())]);
    case 4:
      return text.insert(at, text.substr(any(text.size()), any(100)));
    default:
      return text.substr(0, at) + other.substr(any(other.size()));
  }
}

/// Files damaged again and again, and for as many seconds as KV_FUZZ_SECONDS says.
TEST(DataFormats, FilesDamagedAtRandomEndWellOrWithAMessage) {
  const char* const asked = std::getenv("KV_FUZZ_SECONDS");
  const auto seconds = std::chrono::duration<double>(asked != nullptr ? std::atof(asked) : 0.0);
  constexpr long long without_asking = 2000;
  const unsigned seed = asked != nullptr ? std::random_device{}() : 1u;
  std::mt19937 random(seed);
  const std::vector<sample> all = samples();
  const auto start = std::chrono::steady_clock::now();
  long long files = 0;
  for (; files < without_asking || std::chrono::steady_clock::now() - start < seconds; ++files) {
    const sample& file = all[random() % all.size()];
    std::string content = file.content;
    for (unsigned k = 0; k <= random() % 4; ++k) content = damaged(content, all[random() % all.size()].content, random);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", file " << files << ", instr " << file.instr);
    data_run run(file.instr, content, file.extension);
    run.pattern().jobtyp = file.jobtyp;
    run.pattern().ixunit = file.ixunit;
    run.pattern().istep = static_cast<int>(random() % 3);
    run.pattern().low_range = random() % 4 == 0 ? 12.f : 0.f;
    run.pattern().high_range = random() % 4 == 0 ? 14.f : 0.f;
    run.set_banks(1 + static_cast<int>(random() % 2));
    run.pattern().ixunit = file.ixunit;
    run.read();
    if (run.stopped.empty()) expect_sound(run, content);
    if (run.stopped.empty() && run.st.run.n_patt > 1) run.read(1);
    if (HasFatalFailure()) return;
  }
  RecordProperty("files", std::to_string(files));
  if (asked != nullptr) std::cout << files << " files, seed " << seed << '\n';
}

TEST(DataFormats, EverySampleIsReadWithoutAWord) {
  for (const sample& file : samples()) {
    SCOPED_TRACE(testing::Message() << file.instr << file.extension << "\n" << file.content);
    data_run run(file.instr, file.content, file.extension);
    run.pattern().jobtyp = file.jobtyp;
    run.pattern().ixunit = file.ixunit;
    run.read();
    EXPECT_EQ(run.stopped, "");
    EXPECT_EQ(run.console.str(), "");
    expect_sound(run, file.content);
  }
}

TEST(DataFormats, EveryRowOfTheTableIsPrintedAndReached) {
  const std::string table = kv_read_intens::formats_text();
  for (const kv_read_intens::format_row& row : kv_read_intens::formats()) {
    EXPECT_NE(table.find(row.looks_like), std::string::npos);
    const std::string extension(row.extensions.substr(0, row.extensions.find(' ')));
    data_run run(row.instr, "", extension.empty() ? ".dat" : extension);
    run.read();
    EXPECT_NE(run.stopped, "");
    EXPECT_NE(run.stopped, " Invalid INSTR parameter") << row.instr;
    EXPECT_FALSE(run.told("extension \"")) << row.instr;
  }
}

TEST(ToldRadiation, IsTakenWithItsLine) {
  using kalvaris_params::told_value;
  const std::string xrdml_used =
      "<usedWavelength intended=\"K-Alpha 1\">\n<kAlpha1 unit=\"Angstrom\">1.5405980</kAlpha1>\n"
      "<kAlpha2 unit=\"Angstrom\">1.5444260</kAlpha2>\n<kBeta unit=\"Angstrom\">1.3922500</kBeta>\n"
      "<ratioKAlpha2KAlpha1>0.0000</ratioKAlpha2KAlpha1>\n</usedWavelength>\n";
  const auto swap = [](std::string whole, const std::string& was, const std::string& is) {
    return whole.replace(whole.find(was), was.size(), is);
  };
  const auto xrdml = [&](const std::string& used) {
    return swap(file_xrdml(12, 1), "<positions", used + "<positions");
  };
  struct row {
    const char* what;
    sample file;
    told_value lambda1, lambda2, ratio;
  };
  const row rows[] = {
      {"xrdml",
       {13, xrdml(xrdml_used), ".xrdml"},
       {1.540598f, 4, "kAlpha1"},
       {1.544426f, 5, "kAlpha2"},
       {0.f, 7, "ratioKAlpha2KAlpha1"}},
      {"xrdml of another line",
       {13, xrdml(swap(xrdml_used, "K-Alpha 1", "K-Beta")), ".xrdml"},
       {1.39225f, 6, "kBeta"},
       {},
       {}},
      {"xrdml in one line",
       {13, xrdml("<usedWavelength><kAlpha1 unit=\"A\">0.7093</kAlpha1></usedWavelength>"), ".xrdml"},
       {0.7093f, 3, "kAlpha1"},
       {},
       {}},
      {"uxd",
       {9, file_uxd("_WL1=1.540560\n_WL2=1.544390\n_WLRATIO=0.500000\n_RANGE_WL=9.9\n_COUNTS",
                    tens(12, "%10.0f", counts))},
       {1.54056f, 8, "_WL1"},
       {1.54439f, 9, "_WL2"},
       {0.5f, 10, "_WLRATIO"}},
      {"uxd without the number", {9, file_uxd("_WL1=\n_COUNTS", tens(12, "%10.0f", counts))}, {}, {}, {}},
      {"csv",
       {13, swap(file_csv(12, 12), "Scan step", "K-Alpha2 wavelength,1.54443\nRatio K-Alpha2/K-Alpha1,0.5\nScan step"),
        ".csv"},
       {1.5406f, 3, "K-Alpha1 wavelength"},
       {1.54443f, 4, "K-Alpha2 wavelength"},
       {0.5f, 5, "Ratio K-Alpha2/K-Alpha1"}},
      {"udf", {13, file_udf(12), ".udf"}, {1.5406f, 2, "LabdaAlpha1"}, {}, {}},
      {"jcp", {13, file_jcp(15), ".jcp"}, {1.54f, 2, "Wavelength Alpha1"}, {}, {}},
      {"heading",
       {0, "10.0 0.5 15.5 Wavelength (A): 0.413909\n" + tens(12, "%8.0f", counts)},
       {0.413909f, 1, "Wavelength"},
       {},
       {}},
      {"a word without a number",
       {0, "10.0 0.5 15.5 wavelength of the tube\n" + tens(12, "%8.0f", counts)},
       {},
       {},
       {}},
  };
  for (const row& t : rows) {
    SCOPED_TRACE(t.what);
    data_run run(t.file.instr, t.file.content, t.file.extension);
    run.pattern().told.lambda2 = {9.f, 9, "of another file"};
    run.read();
    ASSERT_EQ(run.stopped, "") << run.console.str();
    EXPECT_TRUE(run.pattern().told.lambda1 == t.lambda1)
        << run.pattern().told.lambda1.value << ' ' << run.pattern().told.lambda1.line;
    EXPECT_TRUE(run.pattern().told.lambda2 == t.lambda2);
    EXPECT_TRUE(run.pattern().told.ratio == t.ratio);
  }
}

}  // namespace

// What comes from files of the instrument gives the same refinement as the same numbers in the control file, and one
// pattern the same refinement in whatever layout it is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <sstream>

#include "program_run.hpp"

namespace {

using kalvaris_params::state_type;
using program_run::directory;
using program_run::with_word;
using testing::HasSubstr;

constexpr const char* flag_line = "!Job Npr";
constexpr std::size_t res_word = 11;

template <class... T>
std::string text(const char* format, T... values) {
  char line[160];
  std::snprintf(line, sizeof line, format, values...);
  return line;
}

// --- Resolution files ----------------------------------------------------------------------------------------------

/// Width of the instrument at 2theta [deg], the share of the file in the widths of the case.
struct instrument {
  double u = 0.004, v = -0.003, w = 0.002, x = 0.008, y = 0.012, s_l = 0.01, d_l = 0.01;

  [[nodiscard]] std::string coefficients() const {
    return text("ASYM %g %g\n%g %g %g\n%g %g 0\n", s_l, d_l, u, v, w, x, y);
  }
  /// Rows close enough for what lies between them to be linear.
  [[nodiscard]] std::string table(bool axial) const {
    std::string rows;
    int n = 0;
    for (double at = 10; at <= 140; at += 0.1, ++n) {
      const double theta = at * std::acos(-1.0) / 360, t = std::tan(theta);
      rows += text("%.2f %.7f %.7f", at, std::sqrt((u * t + v) * t + w), x * t + y / std::cos(theta));
      rows += axial ? text(" %g %g\n", s_l, d_l) : "\n";
    }
    return std::to_string(n) + "\n" + rows;
  }
};

/// The parameters by number, and the share of the instrument that the sample's number lacks.
struct share {
  std::size_t number;
  double of_file;
};

void expect_same_sample(const state_type& without, const state_type& with, std::initializer_list<share> shares) {
  for (std::size_t n = 1; n <= static_cast<std::size_t>(without.run.maxs); ++n) {
    double expected = static_cast<double>(without.parm.valx[n]);
    for (const share& s : shares)
      if (s.number == n) expected -= s.of_file;
    const double esd = static_cast<double>(without.parm.svalx[n]);
    EXPECT_NEAR(static_cast<double>(with.parm.valx[n]), expected, 0.02 * esd) << n;
    EXPECT_NEAR(static_cast<double>(with.parm.svalx[n]), esd, 0.02 * esd) << n;
  }
}

TEST(ResolutionFile, LeavesTheSampleToTheParameters) {
  const std::string code = "lab6_axial";
  const directory where(code);
  const std::string control = where.get(code + ".pcr");
  // U and V are not refined: those of the sample are what the file leaves of 0.006 and -0.004
  const auto plain = where.run_and_keep(code, code + ".dat");
  ASSERT_TRUE(plain.reached_end) << plain.console;
  const instrument lab;
  struct row {
    const char* ireso;
    std::string content;
    double axial;  ///< S/L of the instrument that the file gives
  };
  for (const row& t :
       {row{"1", lab.coefficients(), lab.s_l}, row{"4", lab.table(false), 0}, row{"8", lab.table(true), lab.s_l}}) {
    SCOPED_TRACE(t.ireso);
    where.put("lab.irf", "LaB6 on the laboratory instrument\nWAVE 1.54056 1.54439 0.5\nCTHM 0.7998\n" + t.content);
    std::string changed = with_word(control, flag_line, 1, res_word, t.ireso);
    changed = program_run::with(changed, "!Iot Ipl", "lab.irf\n!Iot Ipl");
    // what the file says holds against the radiation line
    changed = with_word(changed, "!  Lambda1", 1, 0, "9.9");
    changed = with_word(changed, "!  Lambda1", 1, 5, "0.1");
    changed = with_word(changed, "!       U  ", 1, 0, text("%g", 0.006 - lab.u));
    changed = with_word(changed, "!       U  ", 1, 1, text("%g", -0.004 - lab.v));
    changed = with_word(changed, "!       U  ", 1, 2, text("%g", 0.0045 - lab.w));
    changed = with_word(changed, "!       U  ", 1, 3, text("%g", 0.015 - lab.x));
    changed = with_word(changed, "!       U  ", 1, 4, text("%g", 0.025 - lab.y));
    for (const std::size_t word : {6u, 7u})
      changed = with_word(changed, "!  Pref1", 1, word, text("%g", 0.02 - t.axial));
    where.put("irf.pcr", changed);
    const auto run = where.run_and_keep("irf", code + ".dat");
    ASSERT_TRUE(run.reached_end) << run.console;
    expect_same_sample(*plain.state, *run.state, {{13, lab.w}, {14, lab.x}, {15, lab.y}, {17, t.axial}});
    EXPECT_NEAR(run.state->pattern[0].all.chi2, plain.state->pattern[0].all.chi2, 1e-4);
    const std::string listing = where.get("irf.out");
    EXPECT_THAT(listing, HasSubstr(" => Instrumental resolution file of pattern 1: lab.irf"));
    EXPECT_THAT(listing, HasSubstr(" => Title: LaB6 on the laboratory instrument"));
    // the control file written for the next run is read again, and the refinement stays where it is
    const auto again = where.run_and_keep("irf", code + ".dat");
    ASSERT_TRUE(again.reached_end) << again.console;
    expect_same_sample(*run.state, *again.state, {});
  }
}

TEST(ResolutionFile, EachPatternHasItsOwn) {
  const std::string code = "corundum_joint", data = code + "_x.dat";
  const directory where(code);
  const auto plain = where.run_and_keep(code, data);
  ASSERT_TRUE(plain.reached_end) << plain.console;
  where.put("x.irf", "X-rays\n0.003 0 0.001\n0 0.01 0\n");
  where.put("n.irf", "neutrons\nNEUC\n0.1 -0.1 0.1\n0 0 0\n");
  std::string changed = program_run::with(where.get(code + ".pcr"), "!Mat Nxt", "x.irf\nn.irf\n!Mat Nxt");
  constexpr std::size_t long_res_word = 8, second_block = 14;
  const char* const widths = "!       U  ";
  struct share_in_file {
    std::size_t below, word;
    const char* start;
  };
  for (const std::size_t below : {1u, 2u}) changed = with_word(changed, "!Job Npr Nba", below, long_res_word, "1");
  for (const share_in_file& t : {share_in_file{1, 0, "0.006"}, share_in_file{1, 2, "0.004"},
                                 share_in_file{1, 4, "0.025"}, share_in_file{second_block, 0, "0.1"},
                                 share_in_file{second_block, 1, "-0.23"}, share_in_file{second_block, 2, "0.2"}})
    changed = with_word(changed, widths, t.below, t.word, t.start);
  where.put("irf.pcr", changed);
  const auto run = where.run_and_keep("irf", data);
  ASSERT_TRUE(run.reached_end) << run.console;
  expect_same_sample(*plain.state, *run.state,
                     {{15, 0.003}, {16, 0.001}, {17, 0.01}, {22, 0.1}, {23, -0.1}, {24, 0.1}});
}

TEST(ResolutionFile, FaultsStopTheRunWithTheirPlace) {
  struct row {
    const char* content;
    const char* words;
  };
  for (const row& t : {row{"t\n1 2\n", "lab.irf, line 2: expected three numbers: U V W, found \"1 2\""},
                       row{nullptr, "The IRF file: lab.irf does not exist! -> Pattern#  1"}}) {
    const directory where("nacl_gauss");
    if (t.content != nullptr) where.put("lab.irf", t.content);
    const std::string control = with_word(where.get("nacl_gauss.pcr"), flag_line, 1, res_word, "1");
    where.put("nacl_gauss.pcr", program_run::with(control, "!Iot Ipl", "lab.irf\n!Iot Ipl"));
    const auto run = where.run("nacl_gauss", "nacl_gauss.dat");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.words(), HasSubstr(t.words));
  }
}

TEST(ResolutionFile, RangeCutsTheDataAndRaisesThatOfACalculation) {
  const std::string code = "lab6_axial";
  const directory where(code);
  const std::string control = with_word(where.get(code + ".pcr"), flag_line, 1, res_word, "1");
  where.put("range.pcr", program_run::with(control, "!Iot Ipl", "lab.irf\n!Iot Ipl"));
  where.put("lab.irf", "t\nTHRG 20 0.05 130\n0 0 0\n0 0 0\n");
  const auto data = where.run_and_keep("range", code + ".dat");
  ASSERT_TRUE(data.reached_end) << data.console;
  EXPECT_EQ(data.state->pattern[0].thmin, 20.f);
  EXPECT_EQ(data.state->pattern[0].thmax, 118.f);
  where.put("calc.pcr", with_word(where.get("range.pcr"), flag_line, 1, 0, "2"));
  const auto calculation = where.run_and_keep("calc");
  ASSERT_TRUE(calculation.reached_end) << calculation.console;
  EXPECT_EQ(calculation.state->pattern[0].thmin, 20.f);
  EXPECT_EQ(calculation.state->pattern[0].npts, 2201);
}

// --- Corrections of the intensities --------------------------------------------------------------------------------

TEST(IntensityCorrection, AFactorGoesIntoTheScaleOrIntoTheData) {
  const std::string code = "nacl_gauss";  // parameters 2 to 5 are the background, 8 is the scale
  const directory where(code);
  const auto plain = where.run_and_keep(code, code + ".dat");
  ASSERT_TRUE(plain.reached_end) << plain.console;
  struct row {
    const char* icorr;
    const char* file;
    double scale, background;
  };
  for (const row& t : {row{"1", "title\n10 1.25\n150 1.25\n", 0.8, 1}, row{"2", "title\n1 1 2\n1.25 0\n", 0.8, 1},
                       row{"2", "title\n2 1 1\n1.25\n", 0.8, 0.8}}) {
    SCOPED_TRACE(t.file);
    constexpr std::size_t cor_word = 16;
    where.put("cor.pcr", with_word(where.get(code + ".pcr"), flag_line, 1, cor_word, t.icorr));
    where.put("cor.cor", t.file);
    const auto run = where.run_and_keep("cor", code + ".dat");
    ASSERT_TRUE(run.reached_end) << run.console;
    for (std::size_t n = 1; n <= 12; ++n) {
      const double factor = n == 8 ? t.scale : n > 1 && n < 6 ? t.background : 1;
      const double esd = static_cast<double>(plain.state->parm.svalx[n]);
      EXPECT_NEAR(static_cast<double>(run.state->parm.valx[n]), factor * static_cast<double>(plain.state->parm.valx[n]),
                  0.02 * esd)
          << n;
    }
  }
  where.put("cor.cor", "title\n2 1 2\n1 -0.01\n");
  EXPECT_THAT(where.run("cor", code + ".dat").words(), HasSubstr("is not above 0 at 100"));
}

// --- Layouts of data -----------------------------------------------------------------------------------------------

struct point {
  double x = 0, y = 0, sigma = 0;
};

/// Points of a data file of x, y, sigma, their sigmas as layout 7 can hold them: with one decimal.
std::vector<point> points_of(const std::string& data) {
  std::vector<point> points;
  for (const std::string& line : program_run::lines_of(data)) {
    std::istringstream words(line);
    point p;
    if (line.starts_with('!') || !(words >> p.x >> p.y >> p.sigma)) continue;
    p.sigma = std::round(10 * p.sigma) / 10;
    points.push_back(p);
  }
  return points;
}

std::string in_layout_7(const std::vector<point>& points) {
  std::string all = text("%5d %5.0f title\n", static_cast<int>(points.size()), 295.);
  for (std::size_t i = 0; i < points.size(); ++i)
    all += text("%7.2f %8.1f %5.1f", points[i].x, points[i].y, points[i].sigma) + (i % 5 == 4 ? "\n" : "");
  return all + "\n";
}

std::string in_layout_10(const std::vector<point>& points) {
  std::string all = "1\n2\n3\n4\n5\n6\n";
  for (const point& p : points) all += text("%.2f %.1f %.6f\n", p.x, p.y, p.sigma / std::sqrt(2.));
  return all;
}

std::string in_layout_8(const std::vector<point>& points) {
  std::string all = "title\ntitle\n" + text("%g %g %g\n", points[0].x, points[1].x - points[0].x, points.back().x);
  const auto block = [&](const char* format, auto value) {
    for (std::size_t i = 0; i < points.size(); ++i)
      all += text(format, value(points[i])) + (i % 10 == 9 || i + 1 == points.size() ? "\n" : "");
  };
  block("%8.1f", [](const point& p) { return p.y; });
  block("%8.4f", [](const point& p) { return p.sigma / std::sqrt(2.); });
  return all;
}

/// Layout 7 halves the squares of its sigmas: in the others they are written smaller by the root of 2.
TEST(DataLayouts, OnePatternGivesOneRefinement) {
  const std::string code = "lab6_axial";
  const directory where(code);
  const std::string control = where.get(code + ".pcr");
  const std::vector<point> points = points_of(where.get(code + ".dat"));
  ASSERT_GT(points.size(), 300u);
  constexpr std::size_t ins_word = 10;
  const auto refined = [&](const char* instr, const std::string& data) {
    const std::string name = std::string("layout") + instr;
    where.put(name + ".pcr", with_word(control, "!Iot Ipl", 1, ins_word, instr));
    where.put(name + ".dat", data);
    return where.run_and_keep(name, name + ".dat");
  };
  const auto in_7 = refined("7", in_layout_7(points));
  ASSERT_TRUE(in_7.reached_end) << in_7.console;
  EXPECT_NEAR(in_7.state->pattern[0].all.chi2, 2.0, 0.3);
  for (const auto& [instr, data] : {std::pair{"10", in_layout_10(points)}, std::pair{"8", in_layout_8(points)}}) {
    const auto run = refined(instr, data);
    ASSERT_TRUE(run.reached_end) << run.console;
    ASSERT_EQ(run.state->pattern[0].npts, in_7.state->pattern[0].npts);
    EXPECT_NEAR(run.state->pattern[0].all.chi2, in_7.state->pattern[0].all.chi2, 1e-3) << instr;
    expect_same_sample(*in_7.state, *run.state, {});
  }
}

}  // namespace

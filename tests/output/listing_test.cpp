#include <gmock/gmock.h>

#include "kv_final_calc_out.hpp"
#include "kv_output_cycles.hpp"
#include "kv_sumarize.hpp"
#include "output_state.hpp"

namespace {

using namespace output_tests;
using kv_iterate_calc_cw::cycle_report;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class CycleListing : public Output {};
class Summary : public Output {};
class FinalStage : public Output {};

cycle_report report_of(kp::state_type& st, float shift) {
  cycle_report r;
  r.cycle = 3;
  r.shifts = apply_shifts::standing(st);
  for (auto& c : r.shifts.changes) c.shift = shift;
  return r;
}

/// The line of the text that begins with `words`, empty when there is none.
std::string line_with(const std::string& text, const std::string& words) {
  for (const auto& line : lines_of(text))
    if (line.find(words) != std::string::npos) return line;
  return {};
}

TEST_F(CycleListing, HeadsTellTheKindOfCycle) {
  struct row {
    bool converged, last, cycle_head, convergence, results;
  };
  for (const row& t : {row{false, false, true, false, false}, row{false, true, false, false, true},
                       row{true, true, true, true, true}}) {
    SCOPED_TRACE(testing::Message() << t.converged << t.last);
    SetUp();
    kp::state_type st = small_state();
    open(st);
    cycle_report r;
    r.cycle = 3, r.converged = t.converged, r.last = t.last;
    kv_output_cycles::output_cycles(st, r);
    const std::string text = listing(st);
    EXPECT_EQ(text.find(" => CYCLE No.:    3") != std::string::npos, t.cycle_head);
    EXPECT_EQ(text.find(" =>  Convergence reached at this CYCLE !!!!") != std::string::npos, t.convergence);
    EXPECT_EQ(text.find(" ==> RESULTS OF REFINEMENT:") != std::string::npos, t.results);
    EXPECT_EQ(text.find(" ==> ATOM PARAMETERS:") != std::string::npos, t.last);
    EXPECT_THAT(text, HasSubstr("\n" + std::string(132, '+') + "\n"));
    EXPECT_THAT(text, HasSubstr("\n" + std::string(132, '-') + "\n => Phase No.  1  Phase 1\n"));
  }
}

TEST_F(CycleListing, ShowsValueShiftAndSigmaOfEachSlot) {
  kp::state_type st = small_state();
  refine_three(st);
  open(st);
  kv_output_cycles::output_cycles(st, report_of(st, 0.003f));
  const std::string text = listing(st);
  EXPECT_THAT(line_with(text, "Al1 "),
              testing::StartsWith("Al1      0.25000  0.00300  0.02000(   2)  0.00000  0.00000  0.00000(   0)"));
  EXPECT_THAT(line_with(text, " => Overall scale factor"),
              testing::EndsWith("2.00000000     0.00300000     0.20000000"));
  EXPECT_THAT(line_with(text, "O1 "), HasSubstr("0.000"));
  EXPECT_THAT(text, ContainsRegex("\nO1 +123\\.00\\(   0\\)"));  // beta 11 times 1e4
}

TEST_F(CycleListing, ListsFixedParametersWithZeroShifts) {
  kp::state_type st = small_state();
  open(st);
  kv_output_cycles::output_cycles(st, cycle_report{});
  EXPECT_THAT(listing(st), HasSubstr("\nAl1      0.25000  0.00000  0.00000(   0)"));
}

TEST_F(CycleListing, NamesParametersHeldAtALimitAndRepeatsWarnings) {
  kp::state_type st = small_state();
  refine_three(st);
  st.run.limits = {{1, 0.5f, 2.5f, 0.f, 0, ""}, {2, 0.1f, 0.4f, 0.f, 0, ""}};
  open(st);
  cycle_report r = report_of(st, 0.f);
  r.shifts.limited = {1, -2};
  r.shifts.warnings = {" WARNING, parameter X < 0"};
  kv_output_cycles::output_cycles(st, r);
  const std::string text = listing(st);
  EXPECT_THAT(line_with(text, "Parameter no.:    1"), ContainsRegex("upper limit +2\\.5000 .*Scale_ph1_pat1"));
  EXPECT_THAT(line_with(text, "Parameter no.:    2"), ContainsRegex("lower limit +0\\.10000 .*X_Al1_ph1"));
  EXPECT_THAT(text, HasSubstr("\n WARNING, parameter X < 0\n"));
}

TEST_F(CycleListing, AgreementFactorsHaveTheirFields) {
  kp::state_type st = small_state();
  open(st);
  auto& a = st.pattern[0].all;
  a.r_patt = 4.383f, a.r_wpatt = 6.466f, a.chi2 = 1.21f, a.dw = 1.9929f, a.r_expected = 5.878f, a.qdw = 1.9207f;
  a.s2 = 76.f, a.cr_patt = 7.57f, a.cr_wpatt = 9.f, a.cr_expected = 6.f, a.devinc = 25.f, a.dstar = 1.5f;
  st.pattern[0].num = 19;
  st.pattern[0].scor = 1.5f;
  kv_output_cycles::write_r_factors(st, 0, true);
  const std::string text = listing(st);
  EXPECT_THAT(text, HasSubstr(" => R-Factors:   4.38      6.47     Chi2:  1.21     DW-Stat.:  1.9929   Patt#:  1\n"
                              " => Expected :            5.88                                1.9207\n"
                              " => Deviance :  25.0         Dev*:   1.500    \n"
                              " => GoF-index:  2.0         Sqrt(Residual/N)\n"
                              " => N-P+C:    19\n"));
  EXPECT_THAT(text,
              HasSubstr(" => Conventional Rietveld Rp,Rwp,Re and Chi2:   7.57      9.00      6.00      2.250    \n"));
  EXPECT_THAT(text, HasSubstr(" => Scor: 1.5000   Standard deviations have to be multiplied by: 1.5000\n"));
  EXPECT_THAT(console.str(), HasSubstr(" => R-Factors:   4.38      6.47"));
}

TEST_F(CycleListing, CorrelationsAboveFiftyPerCentAreNamedPositiveOnesOnly) {
  kp::state_type st = small_state();
  refine_three(st);  // 1-2: 0.00204/0.004 = 51 %, 1-3: -99 %
  st.run.mat = 1;
  open(st);
  kv_output_cycles::write_correlations(st);
  std::string text = listing(st);
  EXPECT_THAT(text, HasSubstr("\n    1   100   51  -99\n"));
  EXPECT_THAT(text, HasSubstr(" -> Correlation of parameter:    1  Scale_ph1_pat1  with    2  X_Al1_ph1 :   51%"));
  EXPECT_EQ(text.find("with    3"), std::string::npos);

  SetUp();
  st.ne.rjac(0, 1) = 0.0020;
  open(st);
  kv_output_cycles::write_correlations(st);
  EXPECT_EQ(listing(st).find("-> Correlation"), std::string::npos);  // 50 % is not above
}

TEST_F(CycleListing, ReflectionsCarryObservedAndCalculatedF2PerReflection) {
  kp::state_type st = small_state();
  open(st);
  kv_output_cycles::write_reflections(st, 0);
  EXPECT_EQ(line_with(listing(st), "     1   1   -1"),
            "     1   1   -1   2   0    6   0.20000    22.1250   4.000000        110.00        100.00       110.000"
            "       100.000");  // 600 over multiplicity 6, times 110/100
  SetUp();
  st.phase[0].jbt = 2;  // extracted: ff already holds what was observed
  open(st);
  kv_output_cycles::write_reflections(st, 0);
  EXPECT_THAT(line_with(listing(st), "     1   1   -1"), testing::EndsWith("       100.000       100.000"));
}

TEST_F(Summary, QuotesValuesWithTheirStandardDeviations) {
  kp::state_type st = small_state();
  refine_three(st);
  st.phase[0].cell_esd = {0.0001f, 0.0001f, 0.0001f, 0.f, 0.f, 0.f};
  st.mixes[0].r_bragg = 2.5f, st.mixes[0].r_f = 1.25f;
  st.pattern[0].all.r_wpatt = 6.5f;
  open(st);
  kv_sumarize::write_results(st, apply_shifts::standing(st));
  kv_sumarize::write_parameters(st);
  const std::string text = summary(st);
  EXPECT_THAT(line_with(text, "    a  "), testing::EndsWith(" 5.00000(10)"));
  EXPECT_THAT(line_with(text, "Al1"), HasSubstr(" 0.25(2) "));
  EXPECT_THAT(line_with(text, " => Overall scale factor"), testing::EndsWith(" 2.0(2)"));
  EXPECT_THAT(text, HasSubstr(" => Bragg R-factor:   2.50       RF-factor:   1.25"));
  EXPECT_THAT(text, HasSubstr(" => Number of reflections:      3   independent (first wavelength):      3"));
  EXPECT_THAT(text, HasSubstr("Rwp:   6.50"));
  EXPECT_THAT(line_with(text, "  Cell_A_ph1_pat1"), testing::EndsWith(" 0.039999999     0.000001000"));
}

TEST_F(Summary, VolumeOfACubicCellVariesThreeTimesAsItsEdge) {
  kp::state_type st = small_state();
  refine_three(st);
  // a = A^(-1/2): sigma(a) = a^3/2 sigma(A) = 62.5e-6; V = a^3: sigma(V) = 3 a^2 sigma(a)
  EXPECT_NEAR(kv_sumarize::volume_sigma(st, 0, 0), 3.0 * 25.0 * 62.5e-6, 1e-7);
  st.mixes[0].lpar[kp::slot::cell_a + 1] = st.mixes[0].lpar[kp::slot::cell_a + 2] = 0;  // a alone: V = 25 a
  EXPECT_NEAR(kv_sumarize::volume_sigma(st, 0, 0), 25.0 * 62.5e-6, 1e-7);
}

TEST(Analysis, EffectiveNumberCountsOverlappingReflectionsTogether) {
  using kv_sumarize::effective_number;
  EXPECT_DOUBLE_EQ(effective_number({{10, 0.2, 5}, {11, 0.2, 7}, {12, 0.2, 1}}, 1.0), 3.0);   // all apart
  EXPECT_DOUBLE_EQ(effective_number({{11, 0.2, 7}, {10, 0.2, 5}, {10, 0.2, 3}}, 0.25), 2.0);  // two coincide
  EXPECT_DOUBLE_EQ(effective_number({{10, 0.2, 5}, {10.15, 0.2, 5}}, 1.0), 1.0);
  EXPECT_DOUBLE_EQ(effective_number({{10, 0.2, 5}, {10.15, 0.2, 5}}, 0.5), 2.0);
  EXPECT_DOUBLE_EQ(effective_number({{10, 0.2, 0}, {20, 0.2, 5}}, 1.0), 1.0);
  // a chain: the middle one reaches both ends, the ends reach the middle only
  EXPECT_NEAR(effective_number({{10, 0.2, 1}, {10.15, 0.2, 1}, {10.3, 0.2, 1}}, 1.0), 0.5 + 1.0 / 3.0 + 0.5, 1e-12);
}

TEST_F(Summary, ParametersAreCountedOnceByWhatTheyActOn) {
  kp::state_type st = small_state();
  refine_three(st);
  st.run.maxs = 4;
  st.pattern[0].lglb[kp::gslot::zero] = 4;
  st.pattern[0].lglb[kp::gslot::bac] = 1;  // shared with the scale: counts as that
  const auto n = kv_sumarize::count_parameters(st, 0, -1);
  EXPECT_EQ((std::vector{n.global, n.profile, n.intensity}), (std::vector{1, 1, 2}));
  EXPECT_EQ(kv_sumarize::count_parameters(st, 0, 0).global, 0);
}

TEST_F(Summary, AnalysisPrintsResidualsByQuarters) {
  kp::state_type st = small_state();
  refine_three(st);
  open(st);
  kv_sumarize::summarize(st, 0);
  // y - yc - bk = i/2 (i = 10: -45), without points 3 and 4; quarters end at points 5, 10, 15:
  // (0+1+2+5)/2, (6+7+8+9)/2 - 45, (11+12+13+14+15)/2, (16+17+18+19+20)/2
  EXPECT_THAT(summary(st),
              HasSubstr(" => Sum(Yiobs-Yical):        4.00     -30.00      32.50      45.00 <- Four regions\n"
                        "            Total ->        51.50\n"));
  EXPECT_THAT(summary(st), HasSubstr(" => Total number of independent reflections:       3"));
}

TEST_F(FinalStage, ACalculatedPatternStandsInForTheObservedOne) {
  kp::state_type st = small_state();
  st.pattern[0].jobtyp = kp::job::calc_n;
  st.pattern[0].refl.resize(0);
  st.pattern[0].pl_prf = 6;
  st.pattern[0].ianaly = 1;
  st.run.nxt = 0;
  open(st);
  kv_final_calc_out::final_calcn_output(st);
  EXPECT_FLOAT_EQ(st.pattern[0].yo_max, 155.f);
  EXPECT_THAT(summary(st), Not(HasSubstr("ANALYSIS OF THE REFINEMENT")));
  EXPECT_THAT(summary(st), Not(HasSubstr("Refined parameters")));
  EXPECT_FALSE(exists("small.pcr"));
  EXPECT_THAT(listing(st), HasSubstr(" => Dimensions of dynamic allocated arrays in this run of Kalvaris:"));
  ASSERT_TRUE(kalvaris_inout::commit(st.io));
  EXPECT_EQ(lines_of(file("small.xy"))[12],
            "    25.00000        155.0000        155.0000          0.0000         95.0000");
}

TEST_F(FinalStage, OfParametersThatAreNoNumbersWritesNothing) {
  kp::state_type st = small_state();
  st.run.nxt = 1;
  st.mix(0, 0).par[kp::slot::w] = NAN;
  std::ostringstream words;
  st.io.errors = &words;
  open(st);
  EXPECT_THROW(kv_final_calc_out::final_calcn_output(st), kalvaris_inout::run_stopped);
  EXPECT_EQ(words.str(), " => A parameter is not a number: nothing is written\n");
  kalvaris_inout::close_all(st.io);
  EXPECT_FALSE(exists("small.pcr") || exists("small.sum"));
}

}  // namespace

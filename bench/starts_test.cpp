// kalvaris_starts: that a start is disturbed as its level says and only there, that parts of the codes and profile
// matching are written as files that read well, and that a run is judged by what it left.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <set>

#include "starts_judge.hpp"
#include "starts_model.hpp"
#include "starts_run.hpp"

namespace {

namespace fs = std::filesystem;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using slot_text::slot_place;
using starts_model::control_file;
using starts_model::dice;
using testing::HasSubstr;

class Starts : public testing::Test {
 protected:
  Starts() : room_(fs::temp_directory_path() / ("starts_test_" + std::to_string(getpid()))) {
    fs::remove_all(room_);
    fs::create_directories(room_);
  }
  ~Starts() override { fs::remove_all(room_); }

  static std::string case_text(const std::string& name) {
    const fs::path root(KV_SOURCE_DIR);
    const fs::path truth = root / "tests" / "runs" / "truth" / name / (name + ".pcr");
    return starts_run::text_of(fs::exists(truth) ? truth : root / "examples" / name / (name + ".pcr"));
  }
  [[nodiscard]] fs::path put(const std::string& text) const {
    starts_run::write_text(room_ / "x.pcr", text);
    return room_ / "x.pcr";
  }
  [[nodiscard]] control_file read(const std::string& text) const {
    control_file control(put(text));
    if (!control.refusal().empty()) throw std::runtime_error(control.refusal());
    return control;
  }
  /// The text with the first `from` behind the words replaced.
  static std::string with(std::string text, const std::string& behind, const std::string& from, const std::string& to) {
    const auto at = text.find(from, text.find(behind));
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
  }

  fs::path room_;
};

using values = std::map<std::tuple<slot_family, int, int, int>, double>;
values values_of(state_type& st) {
  values all;
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) {
    if (s.value != 0.f) all[{s.family, s.owner, s.ip, s.k}] = static_cast<double>(s.value);
  });
  return all;
}

constexpr double rounding = 1e-5;
constexpr double float_rounding = 1e-6;  ///< of the numbers in a control file

/// Slots that moved, with value after over value before, and after less before.
struct change {
  double ratio, shift;
};
std::map<std::tuple<slot_family, int, int, int>, change> changes(const values& before, const values& after) {
  std::map<std::tuple<slot_family, int, int, int>, change> found;
  for (const auto& [place, v] : before)
    if (const double w = after.at(place); w != v) found[place] = {w / v, w - v};
  return found;
}

void expect_within(double value, double limit, bool corner) {
  EXPECT_LE(std::abs(value), limit + float_rounding);
  if (corner) {
    EXPECT_NEAR(std::abs(value), limit, limit * 2e-3);
  }
}

TEST_F(Starts, EachLevelMovesWhatIsRefinedAsFarAsItSays) {
  // two patterns, hexagonal: zeros, scales, widths of two shapes, one cell, z of Al, x of O
  std::string text = case_text("corundum_joint");
  // the displacement refined beside the zero: it stays
  text = with(with(text, "maxs", "0.0 11.00 0.0 0.00", "0.0 11.00 0.01 251.00"), "maxs", "24\n", "25\n");
  const auto before = values_of(read(text).state());
  std::set<bool> signs;
  for (const auto& level : starts_model::levels)
    for (const bool corner : {false, true})
      for (int number = 1; number <= 5; ++number) {
        SCOPED_TRACE(testing::Message() << level.name << ' ' << corner << ' ' << number);
        control_file control = read(text);
        dice random(starts_model::seed_of("corundum_joint", level.name, number, 1), corner);
        control.disturb(level, random);
        const auto moved = changes(before, values_of(read(control.text()).state()));
        std::set<std::tuple<slot_family, int, int, int>> left;
        for (const auto& row : moved) left.insert(row.first);
        const auto take = [&](slot_family family, int owner, int ip, int k) {
          left.erase({family, owner, ip, k});
          const auto row = moved.find({family, owner, ip, k});
          return row == moved.end() ? change{1.0, 0.0} : row->second;
        };
        const auto zero = control.state().pattern[0].glb[gslot::zero];  // 0 in the file
        expect_within(static_cast<double>(zero), level.zero, corner);
        if (corner) signs.insert(zero > 0.f);
        expect_within(take(slot_family::global, 1, 1, gslot::zero).shift, level.zero, corner);
        for (int ip = 0; ip < 2; ++ip) {
          const auto phase = [&](int k) { return take(slot_family::phase, 0, ip, k).ratio; };
          expect_within(std::log(phase(slot::scale)), std::log(level.scale), corner);
          const double width = phase(slot::w);
          expect_within(std::log(width), 2 * std::log(level.width), false);
          EXPECT_NEAR(phase(slot::u), width, rounding * width);
          if (ip == 0) {
            EXPECT_NEAR(phase(slot::y), std::sqrt(width), rounding * width);  // V is fixed here
          } else {
            EXPECT_NEAR(phase(slot::v), width, rounding * width);
          }
          const double a = phase(slot::cell_a), b = phase(slot::cell_a + 1), c = phase(slot::cell_a + 2);
          expect_within(a - 1, level.cell, corner);
          expect_within(c - 1, level.cell, corner);
          EXPECT_EQ(a, b);
          EXPECT_EQ(c, control.state().mix(0, 0).par[slot::cell_a + 2] / before.at({slot_family::phase, 0, 0, 8}));
        }
        expect_within(take(slot_family::atom, 0, 0, aslot::z).shift * 12.995, level.atoms, corner);
        expect_within(take(slot_family::atom, 1, 0, aslot::x).shift * 4.7605, level.atoms, corner);
        EXPECT_TRUE(left.empty()) << "slot " << std::get<3>(*left.begin()) << " moved as well";
      }
  EXPECT_EQ(signs.size(), 2u);
}

TEST_F(Starts, ASeedGivesOneStart) {
  const std::string text = case_text("calcite_quartz");
  const auto start = [&](int number, int base) {
    control_file control = read(text);
    dice random(starts_model::seed_of("calcite_quartz", "far", number, base), false);
    control.disturb(starts_model::levels[2], random);
    return control.text();
  };
  EXPECT_EQ(start(1, 1), start(1, 1));
  EXPECT_NE(start(1, 1), start(2, 1));
  EXPECT_NE(start(1, 1), start(1, 2));
  // published offset and prime of FNV-1a, 64 bits, over "a/b/1/1"
  EXPECT_EQ(starts_model::seed_of("a", "b", 1, 1), 0x4f424c3087aa46a1ULL);
}

TEST_F(Starts, SlotsOfOneNumberMoveTogetherAndWithinTheirLimits) {
  // quartz O: y against half of x; B of calcite C takes the number that y gave up
  std::string text = with(case_text("calcite_quartz"), "0.264", "181.00", "-170.50");
  text = with(text, "C      C ", "0.00       0.00       0.00       0.00", "0.00       0.00       0.00       181.00");
  text = with(text, "  0   7   2  -4", "1   0   0   0   0   0", "1   0   0   1   0   0");
  text += "9 0.0073 0.0074 0.0 0 Scale_calcite\n";
  for (int number = 1; number <= 20; ++number) {
    control_file control = read(text);
    const auto before = values_of(control.state());
    const bool corner = number % 2 == 0;
    dice random(static_cast<std::uint64_t>(number), corner);
    control.disturb(starts_model::levels[2], random);
    const auto moved = changes(before, values_of(control.state()));
    const auto shift = [&](int atom, int k) { return moved.at({slot_family::atom, atom, 0, k}).shift; };
    EXPECT_NEAR(shift(4, aslot::y), -0.5 * shift(4, aslot::x), 1e-6);
    // hexagonal axes: |v|^2 = a^2 (x^2 + y^2 - x y) + c^2 z^2
    const double x = shift(4, aslot::x), y = shift(4, aslot::y), z = shift(4, aslot::z);
    const double size = std::sqrt(4.9145 * 4.9145 * (x * x + y * y - x * y) + 5.4066 * 5.4066 * z * z);
    expect_within(size, 0.1, corner);
    const float scale = control.state().mix(0, 0).par[slot::scale];
    EXPECT_GE(scale, 0.0073f);
    EXPECT_LE(scale, 0.0074f);
  }
}

TEST_F(Starts, AWidthThatFixedCoefficientsWouldMakeNegativeIsDrawnAgain) {
  // V alone fixed at a value that leaves little: at half of its square W no longer holds the Gaussian width above zero
  const std::string text = with(case_text("zno_edge"), "Scale", "-0.0006", "-0.0025");
  for (const bool corner : {false, true})
    for (int number = 1; number <= 20; ++number) {
      control_file control = read(text);
      dice random(static_cast<std::uint64_t>(number), corner);
      control.disturb(starts_model::levels[2], random);
      const auto& par = control.state().mix(0, 0).par;
      for (double theta = 11.0; theta < 48.0; theta += 0.5) {
        const double t = std::tan(theta * M_PI / 180);
        ASSERT_GT((double(par[slot::u]) * t + double(par[slot::v])) * t + double(par[slot::w]), 0.0) << number;
      }
    }
}

TEST_F(Starts, StagesFreeTheParametersInTheirOrder) {
  struct row {
    std::string name;
    std::array<int, 4> refined;  ///< counted in the control file
  };
  for (const row& r : {row{"corundum_joint", {9, 13, 20, 24}}, row{"ceo2_lebail", {3, 5, 8, 8}},
                       row{"calcite_quartz", {6, 11, 15, 25}}}) {
    SCOPED_TRACE(r.name);
    const control_file full = read(case_text(r.name));
    std::string text = case_text(r.name);
    for (std::size_t k = 0; k < starts_model::steps.size(); ++k) {  // each goes on from the file of the one before
      control_file part = read(text);
      EXPECT_EQ(part.take_codes(full, starts_model::steps[k]), r.refined[k]);
      text = part.text();
      EXPECT_EQ(read(text).refined(), r.refined[k]);
      EXPECT_EQ(values_of(part.state()), values_of(read(case_text(r.name)).state()));
    }
  }
}

TEST_F(Starts, AStageKeepsTheLimitsOfItsParameters) {
  std::string text = with(case_text("corundum_joint"), "!Nph", "  1   0   1   0", "  1   0   1   2");
  text += "12 0.2 0.4 0.0 0 X_O1\n20 1.0 9.0 0.0 0 Scale_2\n";
  const control_file full = read(text);
  control_file part = read(text);
  part.take_codes(full, starts_model::step::scale_and_background);
  control_file again = read(part.text());
  ASSERT_EQ(again.state().run.limits.size(), 1u);
  EXPECT_EQ(again.state().run.limits[0].number, 9);  // backgrounds 1 to 3 and 4 to 7, scales 8 and 9
  EXPECT_EQ(again.state().run.limits[0].vlim2, 9.f);
}

TEST_F(Starts, NumbersFoundByTheProgramBecomeCodes) {
  // requests in the place of numbers: the program counts zero, 4 of the background, scale, W, X, Y, the cell
  std::string text = case_text("zno_edge");
  for (const char* word : {"11.00", "21.00", "31.00", "41.00", "51.00", "61.00", "71.00", "81.00", "91.00", "101.00",
                           "111.00", "121.00", "131.00", "141.00", "141.00", "151.00"})
    text = with(text, "maxs", word, "1.00");
  text = with(text, "!Job", "0   0   0   0   0\n", "0   0   0   0   1\n");
  const control_file full = read(text);
  EXPECT_EQ(full.refined(), 15);
  control_file part = read(text);
  EXPECT_EQ(part.take_codes(full, starts_model::step::zero_and_cell), 9);
  control_file again = read(part.text());
  EXPECT_FALSE(again.state().run.automatic_read);
  EXPECT_EQ(again.refined(), 9);
}

TEST_F(Starts, ProfileMatchingKeepsWhatThePatternStillSays) {
  control_file control = read(case_text("corundum_fluorite"));
  EXPECT_TRUE(control.make_profile_matching());
  EXPECT_EQ(control.state().phase[1].first_atom, 0);
  // of 21: without 4 coordinates and B of corundum, 2 B of fluorite, 2 scales, preferred orientation
  control_file matching = read(control.text());
  EXPECT_EQ(matching.refined(), 12);
  for (const auto& phase : matching.state().phase) {
    EXPECT_EQ(phase.jbt, 2);
    EXPECT_EQ(phase.natom, 0);
  }
  matching.change(1.001, 1.5);
  const auto& first = matching.state().mix(0, 0).par;
  const auto& second = matching.state().mix(1, 0).par;
  EXPECT_NEAR(first[slot::cell_a + 2], 12.996 * 1.001, 1e-4);
  EXPECT_NEAR(second[slot::w], 0.0055 * 2.25, 1e-6);  // shared by both phases: once
  EXPECT_EQ(second[slot::w], first[slot::w]);
  EXPECT_NEAR(first[slot::y], 0.028 * 1.5, 1e-6);
  EXPECT_EQ(first[slot::x], 0.02f);  // fixed
  EXPECT_FALSE(read(case_text("ceo2_lebail")).make_profile_matching());
}

TEST_F(Starts, ARefusedFileSaysWhy) {
  const std::string text = case_text("ceo2_lebail");
  EXPECT_THAT(control_file(put(with(text, "maxs", "8\n", "9\n"))).refusal(), HasSubstr("9"));  // no slot carries 9
  EXPECT_THAT(control_file(put(with(text, "!Mcycle", "60", "x"))).refusal(), HasSubstr("Mcycle"));
  EXPECT_THAT(control_file(room_ / "none.pcr").refusal(), HasSubstr("none"));
}

// ---- runs and their judgement
// ----------------------------------------------------------------------------------------

constexpr const char* listing = R"( => CYCLE No.:    1
 => Global Chi2 (Bragg contrib.):  9.9
 => CYCLE No.:   12
 =>  Convergence reached at this CYCLE !!!!
 ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:  1
 => N-P+C:  3180
 =>    SumYdif       SumYobs      SumYcal      SumwYobsSQ     Residual    Condition
    0.1000E+05    0.2000E+06    0.3000E+06    0.4000E+06     3195.        77.00
 ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:  1
 => N-P+C:  1000
 =>    SumYdif       SumYobs      SumYcal      SumwYobsSQ     Residual    Condition
    0.1000E+05    0.2000E+06    0.3000E+06    0.4000E+06     1111.        77.00
 ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:  2
 => N-P+C:  5180
 =>    SumYdif       SumYobs      SumYcal      SumwYobsSQ     Residual    Condition
    0.1000E+05    0.2000E+06    0.3000E+06    0.4000E+06    0.5200E+04    77.00
 ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:  2
 => N-P+C:  2000
 => Global Chi2 (Bragg contrib.):  1.0425
)";

TEST(StartsListing, TheLastCycleIsRead) {
  const auto told = starts_run::read_listing(listing);
  EXPECT_EQ(told.chi2, 1.0425);
  EXPECT_EQ(told.cycles, 12);
  EXPECT_TRUE(told.converged);
  ASSERT_EQ(told.fits.size(), 2u);
  EXPECT_EQ(told.fits[0].residual, 3195.0);
  EXPECT_EQ(told.fits[0].freedom, 1000.0);
  EXPECT_EQ(told.fits[1].residual, 5200.0);
  EXPECT_EQ(told.fits[1].freedom, 2000.0);
}

TEST_F(Starts, ARunIsToldByWhatItLeaves) {
  using how = starts_run::outcome::end;
  struct row {
    std::string script;
    how end;
    std::string reason;
  };
  const std::string end =
      "echo ' => No. of fitted parameters: 3   No. of cycles:   7' > $2.sum; "
      "echo ' => Global Chi2 of the last listing: 1.5' >> $2.sum; "
      "echo ' => Global Chi2 (Bragg contrib.):  1.5' > $2.out; ";
  for (const row& r :
       {row{end + "echo new > $2.new", how::normal, ""},
        row{"echo ' => STOP for a reason'; exit 1", how::stopped, "STOP for"},
        row{"kill -SEGV $$", how::stopped, "signal 11"}, row{"exit 3", how::stopped, "status 3"},
        row{"echo ' Singular Matrix!! '", how::abnormal, "Singular Matrix"}, row{"sleep 20", how::timed_out, "timeout"},
        row{"while :; do :; done", how::timed_out, "timeout"}}) {
    SCOPED_TRACE(r.script);
    const fs::path binary = room_ / "program.sh";
    starts_run::write_text(binary, "#!/bin/sh\ntest \"$1\" = --strict || exit 9\n" + r.script + "\n");
    chmod(binary.c_str(), 0755);
    starts_run::write_text(room_ / "x.pcr", "old\n");
    starts_run::write_text(room_ / "x.sum", "Global Chi2 of the last listing, of an earlier run");
    const auto o = starts_run::run({binary, {"--strict"}, 0.3}, room_, "x");
    EXPECT_EQ(o.how, r.end);
    EXPECT_THAT(o.reason, HasSubstr(r.reason));
    EXPECT_EQ(o.cycles, r.end == how::normal ? 7 : 0);
    EXPECT_EQ(o.chi2, r.end == how::normal ? 1.5 : 0.0);
    EXPECT_EQ(starts_run::text_of(room_ / "x.pcr"), r.end == how::normal ? "new\n" : "old\n");
  }
}

TEST(StartsJudge, ChiSquareIsThatOnThePointsOfTheReference) {
  starts_judge::base base;
  base.weights = {0.25, 0.75};
  base.result.how = starts_run::outcome::end::normal;
  base.result.chi2 = 1.0;
  base.result.fits = {{3000.0, 1000.0}, {5000.0, 2000.0}};
  EXPECT_TRUE(base.good());
  starts_run::outcome other = base.result;
  other.chi2 = 0.5;  // fewer points under its reflections, the same fit
  EXPECT_EQ(base.chi2_of(other), 1.0);
  other.fits = {{3100.0, 500.0}, {5400.0, 900.0}};
  EXPECT_DOUBLE_EQ(base.chi2_of(other), 1.0 + 0.25 * 100 / 1000 + 0.75 * 400 / 2000);
  other.how = starts_run::outcome::end::abnormal;
  EXPECT_EQ(base.chi2_of(other), 0.0);
  base.result.fits.pop_back();
  EXPECT_FALSE(base.good());
}

TEST_F(Starts, VerdictsAndOptima) {
  using starts_judge::verdict;
  EXPECT_EQ(starts_judge::judge(1.0099, false, 1.0), verdict::reached);
  EXPECT_EQ(starts_judge::judge(1.0101, true, 1.0), verdict::false_end);
  EXPECT_EQ(starts_judge::judge(1.0101, false, 1.0), verdict::not_converged);
  EXPECT_EQ(starts_judge::judge(0.0, true, 1.0), verdict::failed);
  starts_judge::counts n;
  starts_run::outcome o;
  o.cycles = 8, o.seconds = 0.5;
  n.add(o, verdict::reached);
  o.cycles = 30;
  n.add(o, verdict::not_converged);
  EXPECT_EQ(n.cycles, 8.0);
  EXPECT_EQ(n.seconds, 1.0);
  EXPECT_EQ(n.open, 1);
  EXPECT_EQ(n.of(verdict::not_converged), 1);

  const fs::path file = room_ / "optima.txt";
  starts_run::write_text(file, "one 1.5\ntwo 2.5\n");
  auto table = starts_judge::optima_table::read(file);
  table.take("one", 1.25), table.take("two", 2.75), table.take("two", 0.0), table.take("three", 3.5);
  table.write(file);
  EXPECT_EQ(starts_run::text_of(file), "one 1.25\nthree 3.5\ntwo 2.5\n");
  starts_run::write_text(file, "one\n");
  EXPECT_THROW((void)starts_judge::optima_table::read(file), std::runtime_error);
}

}  // namespace

// Patterns whose parameters are known, calculated and refined by the program. truth/README.md says how they were made
// and how the columns of truth.txt are meant; tolerances stand here.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "kv_background.hpp"
#include "program_run.hpp"

namespace {

using kalvaris_params::state_type;
using program_run::directory;

struct truth_row {
  int number = 0;
  std::string name;
  double value = 0.0, fit = 0.0, esd = 0.0;
  bool fitted = false;
};

std::vector<truth_row> truth_of(const directory& where, const std::string& file = "truth.txt") {
  std::vector<truth_row> rows;
  for (const std::string& line : program_run::lines_of(where.get(file))) {
    if (line.starts_with("#")) continue;
    std::istringstream words(line);
    truth_row row;
    EXPECT_TRUE(words >> row.number >> row.name >> row.value) << line;
    row.fitted = static_cast<bool>(words >> row.fit >> row.esd);
    rows.push_back(row);
  }
  EXPECT_FALSE(rows.empty());
  return rows;
}

struct estimate {
  double value = 0.0, sigma = 0.0;
};

/// What the program found for a row: the direct cell for a cell constant, else the parameter of that number.
estimate found(const state_type& st, const truth_row& row) {
  constexpr std::array<std::string_view, 6> cell_names{"cell_a_",  "cell_b_",  "cell_c_",
                                                       "cell_al_", "cell_be_", "cell_ga_"};
  for (std::size_t i = 0; i < cell_names.size(); ++i) {
    if (!row.name.starts_with(cell_names[i])) continue;
    const auto ph = static_cast<std::size_t>(std::stoi(row.name.substr(row.name.rfind('_') + 1)) - 1);
    const auto& cell = st.phase.at(ph).cellp;
    const float value = i < 3 ? cell.cell[i] : cell.ang[i - 3];
    return {static_cast<double>(value), static_cast<double>(st.phase.at(ph).cell_esd[i])};
  }
  const auto n = static_cast<std::size_t>(row.number);
  return {static_cast<double>(st.parm.valx.at(n)), static_cast<double>(st.parm.svalx.at(n))};
}

bool is_excluded(const kalvaris_params::pattern_type& p, float x) {
  for (const auto& region : p.excluded)
    if (region.alow <= x && x <= region.ahigh) return true;
  return false;
}

bool has_matching_phase(const state_type& st) {
  for (const auto& phase : st.phase)
    if (phase.profile_matching()) return true;
  return false;
}

class KnownTruth : public testing::TestWithParam<std::string> {};
class NoiseFree : public testing::TestWithParam<std::string> {};

struct reference_point {
  double x = 0.0, total = 0.0, edge = 0.0;
};

std::vector<reference_point> reference_of(const directory& where, const std::string& file) {
  std::vector<reference_point> points;
  for (const std::string& line : program_run::lines_of(where.get(file))) {
    if (line.starts_with("#")) continue;
    std::istringstream words(line);
    reference_point point;
    double background = 0.0;
    words >> point.x >> point.total >> background >> point.edge;
    points.push_back(point);
  }
  return points;
}

/// Largest difference between the calculated pattern and the noise-free one in units of the maximum of the latter,
/// less what the end of a tail leaves open.
double worst_difference(const state_type& st, int ip, const std::vector<reference_point>& reference) {
  const auto& p = st.pattern[static_cast<std::size_t>(ip)];
  double worst = 0.0, highest = 0.0;
  for (const reference_point& point : reference) highest = std::max(highest, point.total);
  for (int i = 0; i < p.npts; ++i) {
    const auto u = static_cast<std::size_t>(i);
    const reference_point& point = reference[u];
    EXPECT_NEAR(static_cast<double>(p.txv[u]), point.x, 2e-4);
    if (is_excluded(p, p.txv[u])) continue;
    const double total = static_cast<double>(p.yc[u]) + static_cast<double>(kv_background::backa(p, i));
    worst = std::max(worst, std::abs(total - point.total) - point.edge);
  }
  return worst / highest;
}

TEST_P(NoiseFree, TheExactModelGivesThePatternPointByPoint) {
  const std::string exact = GetParam() + "_exact";
  const directory where(GetParam());
  std::vector<double> worst;
  const auto run = where.run_and_keep(exact, GetParam() + ".dat", [&](const state_type& st) {
    for (int ip = 0; ip < st.run.n_patt; ++ip) {
      const auto u = static_cast<std::size_t>(ip);
      const auto reference = reference_of(where, st.io.filedat[u] + ".ref");
      ASSERT_EQ(static_cast<int>(reference.size()), st.pattern[u].npts);
      worst.push_back(worst_difference(st, ip, reference));
    }
  });
  ASSERT_TRUE(run.reached_end) << run.console;
  ASSERT_EQ(static_cast<int>(worst.size()), run.state->run.n_patt);
  for (const double w : worst) {
    EXPECT_LT(w, 1e-4);
    RecordProperty("worst_difference", std::to_string(w));
  }
}

TEST_P(KnownTruth, TheRefinementFindsItFromADisturbedStart) {
  const directory where(GetParam());
  const auto run = where.run_and_keep(GetParam(), GetParam() + ".dat");
  ASSERT_TRUE(run.reached_end) << run.console;
  const state_type& st = *run.state;
  EXPECT_LT(st.run.cycles_done, st.run.mcycle) << "not converged";
  for (const auto& p : st.pattern) {
    EXPECT_GT(p.all.chi2, 0.9f);
    EXPECT_LT(p.all.chi2, 1.1f);
  }
  // The partition of a profile is repeated once a cycle, so that two programs end at slightly different points.
  const double of_fit = has_matching_phase(st) ? 0.5 : 0.3;
  // Weights of patterns that sum up to 1 make the matrix smaller by their number.
  const double of_weights = std::sqrt(static_cast<double>(st.run.n_patt));
  double farthest = 0.0;
  for (const truth_row& row : truth_of(where)) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(row.fitted);
    const estimate e = found(st, row);
    EXPECT_NEAR(e.value, row.value, 3.0 * row.esd);
    EXPECT_NEAR(e.value, row.fit, of_fit * row.esd) << (e.value - row.fit) / row.esd;
    EXPECT_NEAR(e.sigma / of_weights, row.esd, 0.1 * row.esd);
    farthest = std::max(farthest, std::abs(e.value - row.fit) / row.esd);
  }
  RecordProperty("farthest_from_fit", std::to_string(farthest));
  RecordProperty("cycles", std::to_string(st.run.cycles_done));
}

const auto name_of_case = [](const testing::TestParamInfo<std::string>& row) { return row.param; };
INSTANTIATE_TEST_SUITE_P(Cases, KnownTruth, testing::ValuesIn(program_run::case_names()), name_of_case);
INSTANTIATE_TEST_SUITE_P(Cases, NoiseFree, testing::ValuesIn(program_run::exact_case_names()), name_of_case);

TEST(FilteredBackground, LeavesTheCellToThePeaks) {
  const directory where("zno_edge");
  const auto run = where.run_and_keep("zno_edge_filter", "zno_edge.dat");
  ASSERT_TRUE(run.reached_end) << run.console;
  const state_type& st = *run.state;
  for (const truth_row& row : truth_of(where, "truth_filter.txt")) {
    if (row.name.starts_with("cell_")) {
      EXPECT_NEAR(found(st, row).value, row.value, 1e-4 * row.value) << row.name;
    }
  }
  EXPECT_LT(st.pattern[0].all.r_wpatt, 1.5f * st.pattern[0].all.r_expected);
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <numeric>
#include <set>

#include "../own_directory.hpp"
#include "kv_peak_geometry.hpp"
#include "reflections_mod.hpp"
#include "small_state.hpp"

using namespace reflections_mod;
using kalvaris_params::unpack_irefs;
using small_state::rad;
using small_state::stop_text;
namespace job = kalvaris_params::job;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

namespace {

using triple = std::array<int, 3>;
using six = std::array<double, 6>;

small_state::fixture phase_of(const char* symbol, const six& cell) {
  auto f = small_state::make();
  auto& phase = f.st.phase[0];
  phase.symb = symbol;
  EXPECT_FALSE(lmix_crystallographic_symmetry::set_spacegroup(symbol, phase.spgr));
  EXPECT_FALSE(lmix_crystal_metrics::set_crystal_cell({float(cell[0]), float(cell[1]), float(cell[2])},
                                                      {float(cell[3]), float(cell[4]), float(cell[5])}, phase.cellp)
                   .err_crys);
  small_state::set_cell(f.st, 0, cell);
  return f;
}

/// Orbits with Friedel mates that are not extinct, each by its largest member, with their size, s in the limits.
std::map<triple, int> orbits(const kalvaris_params::phase_type& phase, const six& cell, double smin, double smax) {
  const auto g = small_state::reciprocal_metric(cell);
  std::map<triple, int> found;
  std::array<int, 3> most{};
  for (std::size_t i = 0; i < 3; ++i) most[i] = static_cast<int>(2 * smax * cell[i]) + 1;
  for (int h = -most[0]; h <= most[0]; ++h)
    for (int k = -most[1]; k <= most[1]; ++k)
      for (int l = -most[2]; l <= most[2]; ++l) {
        const double q = g[0] * h * h + g[1] * k * k + g[2] * l * l + g[3] * k * l + g[4] * h * l + g[5] * h * k;
        const double s = 0.5 * std::sqrt(q);
        if (s < smin || s > smax) continue;
        std::set<triple> orbit;
        bool extinct = false;
        for (const auto& op : phase.spgr.symop) {
          const auto& r = op.rot;
          const triple e{h * r[0][0] + k * r[1][0] + l * r[2][0], h * r[0][1] + k * r[1][1] + l * r[2][1],
                         h * r[0][2] + k * r[1][2] + l * r[2][2]};
          const double turns = h * op.tr[0] + k * op.tr[1] + l * op.tr[2];
          extinct = extinct || (e == triple{h, k, l} && std::abs(turns - std::round(turns)) > 0.01);
          orbit.insert(e);
          orbit.insert({-e[0], -e[1], -e[2]});
        }
        if (!extinct) found[*orbit.rbegin()] = static_cast<int>(orbit.size());
      }
  return found;
}

triple largest_equivalent(const kalvaris_params::phase_type& phase, const triple& h) {
  triple best = h;
  for (const auto& op : phase.spgr.symop) {
    triple e{};
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t i = 0; i < 3; ++i) e[j] += h[i] * op.rot[i][j];
    best = std::max({best, e, triple{-e[0], -e[1], -e[2]}});
  }
  return best;
}

std::vector<triple> indices(const kalvaris_params::reflection_list& list, int wave) {
  std::vector<triple> all;
  for (const auto word : list.irefs)
    if (const auto key = unpack_irefs(word); key.wave == wave) all.push_back({key.h, key.k, key.l});
  return all;
}

/// fcc, edge 5: 111, 200, 220, 311, 222, 400, 331, 420 below 120 deg at 1.5 angstrom.
small_state::fixture rock_salt() { return phase_of("F m -3 m", {5, 5, 5, 90, 90, 90}); }

std::string write_list(const std::string& text) {
  std::ofstream(own_directory() + "list.hkl") << text;
  return "list.hkl";
}
small_state::fixture with_list(const std::string& text, int jbt, int irf) {
  auto f = rock_salt();
  f.st.phase[0].jbt = jbt;
  f.st.mix(0, 0).irf = irf;
  f.st.io.directory = own_directory();
  f.st.mix(0, 0).file_hkl = write_list(text);
  return f;
}

}  // namespace

TEST(Genera, OneGroupOfEachLaueClassAgainstACountOfAllLatticePoints) {
  struct row {
    const char* symbol;
    six cell;
  };
  for (const row& t : {row{"P -1", {5, 6, 7, 80, 95, 105}}, row{"P 21/c", {6, 7, 8, 90, 103, 90}},
                       row{"P n m a", {7, 5, 9, 90, 90, 90}}, row{"I 41/a", {6, 6, 11, 90, 90, 90}},
                       row{"P 42/m n m", {5, 5, 4, 90, 90, 90}}, row{"R -3", {9, 9, 7, 90, 90, 120}},
                       row{"P 3 1 m", {6, 6, 7, 90, 90, 120}}, row{"R -3 c", {5, 5, 14, 90, 90, 120}},
                       row{"P 63/m", {9, 9, 7, 90, 90, 120}}, row{"P 63/m m c", {4, 4, 7, 90, 90, 120}},
                       row{"P a -3", {6, 6, 6, 90, 90, 90}}, row{"F d -3 m", {8, 8, 8, 90, 90, 90}},
                       row{"P 1", {5, 6, 7, 80, 95, 105}}, row{"P 41 21 2", {5, 5, 7, 90, 90, 90}}}) {
    SCOPED_TRACE(t.symbol);
    auto f = phase_of(t.symbol, t.cell);
    f.pattern().wdt = 0.f;                                    // no room above
    f.pattern().thmin = 10.13f, f.pattern().thmax = 119.37f;  // no reflection of these cells on a limit
    genera(f.st, 0, 0);
    const auto& list = f.pattern().refl;
    const auto expected = orbits(f.st.phase[0], t.cell, std::sin(5.065 * rad) / 1.5, std::sin(59.685 * rad) / 1.5);
    std::map<triple, int> found;
    const auto rows = indices(list, 1);
    for (std::size_t k = 0; k < rows.size(); ++k) found[largest_equivalent(f.st.phase[0], rows[k])] = list.mlt[k];
    EXPECT_EQ(rows.size(), found.size());  // no orbit twice
    EXPECT_EQ(found, expected);
    EXPECT_EQ(f.st.mix(0, 0).num_refl, list.size());
    EXPECT_TRUE(std::is_sorted(list.pos.begin(), list.pos.end()));
  }
}

TEST(Genera, RowsHoldAngleWidthAndLorentzFactor) {
  auto f = rock_salt();
  genera(f.st, 0, 0);
  const auto& list = f.pattern().refl;
  const double d = 5 / std::sqrt(3.0), s = 0.75 / d;
  EXPECT_NEAR(list.pos[0], 2 * std::asin(s) / rad, 1e-5);
  EXPECT_NEAR(list.dspacing[0], d, 1e-6);
  EXPECT_NEAR(list.hw[0], 0.2, 1e-7);
  EXPECT_NEAR(list.lp[0], 1 / (2 * s * s * std::sqrt(1 - s * s)), 1e-5);
  EXPECT_EQ(list.mlt[0], 8);
  EXPECT_EQ(list.corr[0], 1.f);
  EXPECT_EQ(list.ff[0], 0.f);
}

TEST(Genera, BothWavelengthsAreCoveredWhicheverIsLonger) {
  for (const std::array<float, 2> lamda : {std::array<float, 2>{1.5f, 1.6f}, {1.6f, 1.5f}}) {
    SCOPED_TRACE(lamda[0]);
    auto f = phase_of("F m -3 m", {10, 10, 10, 90, 90, 90});
    f.pattern().lamda = lamda;
    f.pattern().single_wave = false;
    f.pattern().wdt = 0.f;
    genera(f.st, 0, 0);
    for (const int wave : {1, 2}) {
      const double l = lamda[static_cast<std::size_t>(wave - 1)];
      const auto expected = orbits(f.st.phase[0], {10, 10, 10, 90, 90, 90}, std::sin(5 * rad) / l, std::sin(60 * rad) / l);
      EXPECT_EQ(indices(f.pattern().refl, wave).size(), expected.size());
    }
  }
}

TEST(Genera, SecondWavelengthBeyondReachLeavesTheFirst) {
  auto f = rock_salt();
  f.pattern().lamda = {1.5f, 2.6f};
  f.pattern().single_wave = false;
  f.pattern().thmax = 179.f;
  genera(f.st, 0, 0);
  const auto first = indices(f.pattern().refl, 1), second = indices(f.pattern().refl, 2);
  EXPECT_EQ(first.size(), 18u);  // unmixed hkl up to N = 44, those of 27 and of 36 are two each
  EXPECT_EQ(second.size(), 5u);  // 0.26 sqrt(N) < 1: 3, 4, 8, 11, 12
}

TEST(Genera, LimitsFollowTailsUserAndExcludedRegions) {
  auto f = rock_salt();
  const double bare = std::sin(60 * rad) / 1.5;
  f.pattern().wdt = 5.f;  // 3 * 5 * 0.2 = 3 deg
  EXPECT_NEAR(make_limits(f.st, 0, 0).smax, std::sin(61.5 * rad) / 1.5, 1e-6);
  EXPECT_NEAR(make_limits(f.st, 0, 0).last, 123, 1e-5);
  f.pattern().lamda[0] = 0.4f;
  EXPECT_NEAR(make_limits(f.st, 0, 0).last, 121.5, 1e-5);
  f.pattern().lamda[0] = 2.6f;
  EXPECT_NEAR(make_limits(f.st, 0, 0).last, 129, 1e-5);
  f.pattern().lamda[0] = 1.5f;
  f.st.phase[0].dlim = 1.25f;
  EXPECT_NEAR(make_limits(f.st, 0, 0).smax, 0.4, 1e-6);
  f.st.phase[0].dlim = 0.f;
  f.st.phase[0].jbt = 2;
  EXPECT_NEAR(make_limits(f.st, 0, 0).smax, bare, 1e-6);
  f.pattern().excluded = {{1.f, 2.f}, {100.f, 120.f}};
  EXPECT_NEAR(make_limits(f.st, 0, 0).last, 100.5, 1e-5);
  f.st.phase[0].jbt = 0;
  f.pattern().thmax = 179.9f;
  EXPECT_NEAR(make_limits(f.st, 0, 0).last, 179, 1e-5);
}

TEST(Genera, PeakThatShiftsPutOutsideIsLeftOut) {
  auto f = rock_salt();
  f.pattern().thmin = 29.5f;  // 111 stands at 30.03
  genera(f.st, 0, 0);
  EXPECT_EQ(f.pattern().refl.mlt[0], 8);
  clear_list(f.st, 0);
  f.pattern().glb[gslot::zero] = -1.f;
  genera(f.st, 0, 0);
  EXPECT_EQ(f.pattern().refl.mlt[0], 6);
}

TEST(Genera, ListThatPassesItsLimitStops) {
  auto f = phase_of("P -1", {15, 16, 17, 80, 95, 105});
  f.st.io.console = &f.console;
  f.st.dim.maxreflx = 500;
  EXPECT_EQ(stop_text([&] { genera(f.st, 0, 0); }), " Too many reflections");
  EXPECT_NE(f.console.str().find("500  Too many reflections"), std::string::npos);
  EXPECT_NE(f.console.str().find(" => Maximum number or reflections attained! Increase MaxREFLX above 500"),
            std::string::npos);
  EXPECT_LE(f.pattern().refl.size(), 498);
  small_state::set_cell(f.st, 0, {9000, 9000, 9000, 90, 90, 90});  // must stop before it lists them
  EXPECT_EQ(stop_text([&] { genera(f.st, 0, 0); }), " Too many reflections");
}

TEST(Genera, RelativeIntensitiesNeedAList) {
  for (const int jbt : {3, -3}) {
    auto f = rock_salt();
    f.st.phase[0].jbt = jbt;
    EXPECT_NE(stop_text([&] { genera(f.st, 0, 0); }), "");
  }
}

TEST(Genera, ProfileMatchingStartsFromThePattern) {
  for (const int times : {1, 2}) {  // the longer cell has more than one lattice point in a step: they share the height
    const double edge = 5.0 * times;
    auto f = phase_of("F m -3 m", {edge, edge, edge, 90, 90, 90});
    auto& p = f.pattern();
    f.st.phase[0].jbt = 2;
    f.st.mix(0, 0).par[slot::scale] = 0.01f;
    p.glb[gslot::zero] = 1.f;  // the estimate must look where the peak stands
    const double at = 2 * std::asin(0.15 * std::sqrt(8.0)) / rad + 1;
    const auto i = static_cast<std::size_t>(std::lround((at - 10) / 0.05));
    p.y[i] = 900.f, p.bk[i] = 100.f;
    genera(f.st, 0, 0);
    const auto rows = indices(p.refl, 1);
    const triple there{2 * times, 2 * times, 0};
    const double lattice_points = 0.8772982 * 0.05 * std::pow(edge, 3) * 0.18 * std::sqrt(0.82) / 3.375;
    EXPECT_EQ(lattice_points > 1, times > 1);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      const bool is_there = largest_equivalent(f.st.phase[0], rows[k]) == there;
      const double net = is_there ? 800 * 0.2 / std::max(1.0, lattice_points) : 0.001;
      EXPECT_NEAR(p.refl.ff[k] * p.refl.lp[k] * 0.01 / net, 1, 1e-4) << k;
    }
    // without data there is a positive start too
    p.npts = 0, p.y.clear(), p.bk.clear();
    make_list(f.st, 0);
    EXPECT_GT(p.refl.ff[0], 0.f);
  }
}

TEST(Reflec, StartValuesByKindOfPhase) {
  const std::string text =
      "Two phases\nPhase No.: 7\nheader\n 1 1 1 8 1.0\nPhase No.: 1\n  h k l m\n"
      "! comment\nATZ: 250.5\n2 0 0 6 3.0\n1\t1\t1\t8\t5.0\n\n9 9 9 8 1.0\n0 0 0 1 1.0\nPhase No.: 2\n";
  struct row {
    int jbt;
    double (*ff)(double value, double mult, double lp);
  };
  for (const row t : {row{-3, [](double v, double m, double) { return m * v * v; }},
                      row{-2, [](double v, double m, double) { return m * v * v; }},
                      row{3, [](double v, double, double lp) { return v / lp; }},
                      row{2, [](double v, double, double lp) { return v / (lp * 0.25); }},
                      row{0, [](double, double, double) { return 0.0; }}}) {
    SCOPED_TRACE(t.jbt);
    auto f = with_list(text, t.jbt, 2);
    f.st.mix(0, 0).par[slot::scale] = 0.25f;
    f.pattern().ratio = {0.f, 0.f};  // the weight of the wavelength cancels, also when it is 0
    make_list(f.st, 0);
    const auto& list = f.pattern().refl;
    ASSERT_EQ(list.size(), 2);  // 999 is out of reach, 000 no reflection
    EXPECT_EQ(indices(list, 1), (std::vector<triple>{{1, 1, 1}, {2, 0, 0}}));
    EXPECT_EQ(list.mlt, (std::vector<int>{8, 6}));
    EXPECT_NEAR(list.ff[0], t.ff(5, 8, list.lp[0]), 1e-4);
    EXPECT_NEAR(list.ff[1], t.ff(3, 6, list.lp[1]), 1e-4);
    EXPECT_EQ(f.st.phase[0].atz, 250.5f);
    EXPECT_EQ(f.st.mix(0, 0).num_refl, 2);
  }
}

TEST(Reflec, ListWithoutValuesAndPhases) {
  auto f = with_list("Phase No.: 1\nheader\n1 1 1 8\n2 0 0 6", 2, 1);
  make_list(f.st, 0);
  EXPECT_EQ(f.pattern().refl.size(), 2);
  EXPECT_GT(f.pattern().refl.ff[0], 0.f);  // from the pattern
  f = with_list("Phase No.: 1\nheader\n1 1 1 8 0.5\n2 0 0 6 1.5", 0, 1);
  f.st.phase[0].jsol = 1;
  make_list(f.st, 0);
  EXPECT_EQ(f.pattern().refl.phasen, (std::vector<float>{0.5f, 1.5f}));
}

TEST(Reflec, DefaultFileHasTwoTitleLines) {
  auto f = with_list("", 0, 1);
  f.st.mix(0, 0).file_hkl.clear();
  f.st.io.filenam = "reflec_default";
  f.st.io.filedat = {"reflec_default"}, f.st.io.extdat = {".dat"};
  std::ofstream(own_directory() + "reflec_default1.hkl") << "title 1 1 1 8\ntitle\n1 1 1 8\n";
  make_list(f.st, 0);
  EXPECT_EQ(f.pattern().refl.size(), 1);
}

TEST(Reflec, Stops) {
  struct row {
    const char* text;
    int jbt, irf;
    const char* words;
  };
  for (const row t :
       {row{"Phase No.: 1\nhead\n1 1 1 8\n", 0, 2, "line 3"}, row{"Phase No.: 1\nhead\n1 1 1.5 8 2\n", 0, 2, "line 3"},
        row{"Phase No.: 1\nhead\n1 1 1 0 2\n", 0, 2, "line 3"},
        row{"Phase No.: 1\nhead\n1 1 1 8\none 1 1 8\n", 0, 1, "line 4"},
        row{"Phase No.: 1\nhead\n1 1 1e9 8\n", 0, 1, "line 3"},
        row{"Phase No.: 3\nhead\n1 1 1 8\n", 0, 1, "Phase No.: 1"},
        row{"Phase No.: 1\nhead\n1 1 1 8\n", 3, 1, "Irf = 2"}, row{"Phase No.: 1\nhead\n1 1 1 8\n", 0, 3, "Irf = 3"}}) {
    SCOPED_TRACE(t.text);
    auto f = with_list(t.text, t.jbt, t.irf);
    EXPECT_NE(stop_text([&] { make_list(f.st, 0); }).find(t.words), std::string::npos);
  }
  auto f = with_list("", 0, 1);
  f.st.mix(0, 0).file_hkl = "no_such_file.hkl";
  EXPECT_EQ(stop_text([&] { make_list(f.st, 0); }), " => Error opening the file no_such_file.hkl");
}

TEST(MakeList, SlicesFollowThePhasesAndPhasesThatDoNotContributeHaveNone) {
  auto f = small_state::make(3);
  const auto one = rock_salt();
  for (int ph = 0; ph < 3; ++ph) {
    f.st.phase[static_cast<std::size_t>(ph)] = one.st.phase[0];
    small_state::set_cell(f.st, ph, {5, 5, 5, 90, 90, 90});
  }
  f.st.mix(1, 0).jcontr = 0;
  make_list(f.st, 0);
  const int n = f.st.mix(0, 0).num_refl;
  EXPECT_GT(n, 5);
  EXPECT_EQ(f.st.mix(1, 0).num_refl, 0);
  EXPECT_EQ(f.st.mix(2, 0).num_refl, n);
  ASSERT_EQ(f.pattern().refl.size(), 2 * n);
  EXPECT_EQ(unpack_irefs(f.pattern().refl.irefs[static_cast<std::size_t>(n)]).phase, 2);
  make_list(f.st, 0);  // a second list replaces the first
  EXPECT_EQ(f.pattern().refl.size(), 2 * n);
}

TEST(SortRhkl, OrdersOneSliceStablyAndLeavesTheOthers) {
  auto f = small_state::make(2);
  auto& list = f.pattern().refl;
  list.resize(6);
  list.pos = {9, 8, 50, 30, 50, 30};
  std::iota(list.mlt.begin(), list.mlt.end(), 0);
  f.st.mix(0, 0).num_refl = 2, f.st.mix(1, 0).num_refl = 4;
  sort_rhkl(f.st, 0, 1);
  EXPECT_EQ(list.mlt, (std::vector<int>{0, 1, 3, 5, 2, 4}));
  sort_all(f.st, 0);
  EXPECT_EQ(list.mlt, (std::vector<int>{1, 0, 3, 5, 2, 4}));
}

TEST(CalcF000, CountsTheElectronsOfTheCell) {
  auto f = rock_salt();
  f.pattern().jobtyp = job::xrays;
  f.st.atom.resize(2);
  f.st.phase[0].natom = 2;
  kalvaris_params::scattering_entry na, cl;
  na.ac = {4, 1, 3, 2, 2, 3, 1, 4, 1};  // 11 electrons
  cl.ac = {8, 1, 4, 2, 3, 3, 1, 4, 1};  // 17
  f.pattern().scattering = {na, cl};
  for (std::size_t ia = 0; ia < 2; ++ia) {
    f.st.atom[ia].xl[kalvaris_params::aslot::occ] = 1.f / 48;  // 4 of 192 places
    f.st.atom[ia].species = {static_cast<int>(ia)};
  }
  EXPECT_NEAR(calc_f000(f.st, 0, 0), 4 * 28, 1e-4);
  f.pattern().jobtyp = job::electrons;  // (Z - f)/s^2 from a small angle, in units of the Mott-Bethe constant
  f.st.phase[0].natom = 1;
  const double s2 = 1e-5;
  double small = 0;
  for (std::size_t j = 0; j < 4; ++j) small += na.ac[2 * j] * -std::expm1(-double{na.ac[2 * j + 1]} * s2) / s2;
  EXPECT_NEAR(calc_f000(f.st, 0, 0), 4 * 0.023934 * small, 1e-3);
}

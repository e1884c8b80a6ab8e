#include <gtest/gtest.h>

#include <complex>
#include <numbers>
#include <random>

#include "kv_structure_factors.hpp"
#include "lmix_scattering_chemical_tables.hpp"
#include "look_scatt.hpp"

namespace {

namespace kp = kalvaris_params;
namespace aslot = kp::aslot;
using kv_structure_factors::column;

struct made_atom {
  const char* species;
  float x, y, z, b;
  std::array<float, 6> beta;
};

/// A phase with the atoms of the row in general positions and full occupancy; the last atom has betas.
kp::state_type phase_of(const char* group, int jobtyp, const std::vector<made_atom>& atoms) {
  kp::state_type st;
  st.run.n_patt = st.run.nphase = 1;
  st.pattern.resize(1), st.phase.resize(1), st.mixes.resize(1);
  st.pattern[0].jobtyp = jobtyp;
  EXPECT_FALSE(lmix_crystallographic_symmetry::set_spacegroup(group, st.phase[0].spgr).err_symm) << group;
  for (const made_atom& m : atoms) {
    kp::atom_type t;
    t.atext = t.ntyp = m.species;
    t.xl[aslot::x] = m.x, t.xl[aslot::y] = m.y, t.xl[aslot::z] = m.z, t.xl[aslot::biso] = m.b, t.xl[aslot::occ] = 0.8f;
    for (std::size_t k = 0; k < 6; ++k) t.xl[aslot::b11 + k] = m.beta[k];
    t.n_t = m.beta[0] != 0.f ? 2 : 0;
    st.atom.push_back(t);
  }
  st.phase[0].natom = static_cast<int>(atoms.size());
  look_scatt::lookup(st, 0);
  return st;
}

/// F(h) over all operators of the cell, centring and inversion included, in double precision.
std::complex<double> cell_f(const kp::state_type& st, const std::array<int, 3>& h, double s2, int sign) {
  std::complex<double> sum = 0;
  for (const auto& atom : st.atom) {
    const auto f =
        kv_structure_factors::scattering_at(st.pattern[0].scattering[static_cast<std::size_t>(atom.species[0])], s2,
                                            st.pattern[0].radiation() == kp::job::electrons);
    for (const auto& op : st.phase[0].spgr.symop) {
      double phase = 0, beta = 0;
      std::array<double, 3> hs{};
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t i = 0; i < 3; ++i) hs[j] += sign * h[i] * op.rot[i][j];
      for (std::size_t j = 0; j < 3; ++j) phase += hs[j] * atom.xl[1 + j] + sign * h[j] * static_cast<double>(op.tr[j]);
      if (atom.n_t >= 2) {
        const auto* b = &atom.xl[aslot::b11];
        beta = b[0] * hs[0] * hs[0] + b[1] * hs[1] * hs[1] + b[2] * hs[2] * hs[2] +
               2 * (b[3] * hs[0] * hs[1] + b[4] * hs[0] * hs[2] + b[5] * hs[1] * hs[2]);
      }
      sum += static_cast<double>(atom.xl[aslot::occ]) * std::complex<double>(f.re, f.im) *
             std::exp(-static_cast<double>(atom.xl[aslot::biso]) * s2 - beta) *
             std::polar(1.0, 2 * std::numbers::pi * phase);
    }
  }
  return sum;
}

struct group_case {
  const char* group;
  int jobtyp;
};
class StructureFactor : public testing::TestWithParam<group_case> {};

const std::vector<made_atom> some_atoms{
    {"FE", 0.11f, 0.23f, 0.37f, 0.4f, {}},
    {"O-2", 0.31f, 0.07f, 0.19f, 0.f, {0.011f, 0.013f, 0.009f, 0.002f, -0.003f, 0.001f}}};

TEST_P(StructureFactor, EqualsTheSumOverTheWholeCell) {
  const kp::state_type st = phase_of(GetParam().group, GetParam().jobtyp, some_atoms);
  const auto model = kv_structure_factors::prepare(st, 0, 0, {});
  const auto& group = st.phase[0].spgr;
  kv_structure_factors::workspace work;
  const double half = group.centred == 2 ? 4.0 : 1.0;  // an inversion at the origin doubles F without being summed
  const auto of_lattice = [&](const std::array<int, 3>& h) {  // the others are never in a list
    return std::ranges::all_of(group.latt_trans, [&](const auto& t) {
      const float turns = float(h[0]) * t[0] + float(h[1]) * t[1] + float(h[2]) * t[2];
      return std::abs(turns - std::round(turns)) < 1e-3f;
    });
  };
  int tried = 0;
  for (const std::array<int, 3>& h : {std::array{1, 1, 1},
                                      {2, 0, 4},
                                      {3, 1, 2},
                                      {-4, 2, 6},
                                      {0, 2, 2},
                                      {1, 1, 3},
                                      {2, 1, 4},
                                      {1, 2, -1},
                                      {3, 3, 6}}) {
    if (!of_lattice(h)) continue;
    ++tried;
    const double s2 = 0.02 * (h[0] * h[0] + h[1] * h[1] + h[2] * h[2]);
    const double mean = 0.5 * (std::norm(cell_f(st, h, s2, 1)) + std::norm(cell_f(st, h, s2, -1)));
    const auto f = kv_structure_factors::stfac(model, {float(h[0]), float(h[1]), float(h[2])}, s2, work, {});
    const double sum_of_sizes = std::pow(30.0 * group.multip, 2);
    EXPECT_NEAR(f.fsq * group.numlat * half, mean, 1e-6 * sum_of_sizes) << h[0] << h[1] << h[2];
    const std::complex<double> of_cell = cell_f(st, h, s2, 1) / (group.numlat * std::sqrt(half));  // of those summed
    EXPECT_NEAR(std::abs(std::complex<double>(f.a, f.b) - of_cell), 0.0, 1e-4 * group.multip) << h[0] << h[1] << h[2];
  }
  EXPECT_GE(tried, 3);
}

TEST_P(StructureFactor, DerivativesAgreeWithCentralDifferences) {
  kp::state_type st = phase_of(GetParam().group, GetParam().jobtyp, some_atoms);
  std::vector<column> columns;
  for (int k : {aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ}) columns.push_back({0, k});
  for (int k = aslot::b11; k <= aslot::b23; ++k) columns.push_back({1, k});
  columns.push_back({1, aslot::y});
  kv_structure_factors::workspace work;
  std::vector<double> d(columns.size());
  const std::array<float, 3> h{2.f, 1.f, 3.f};
  const double s2 = 0.09;
  kv_structure_factors::stfac(kv_structure_factors::prepare(st, 0, 0, columns), h, s2, work, d);
  for (std::size_t c = 0; c < columns.size(); ++c) {
    float& value = st.atom[static_cast<std::size_t>(columns[c].atom)].xl[static_cast<std::size_t>(columns[c].k)];
    const float start = value, step = columns[c].k >= aslot::b11 ? 2e-4f : columns[c].k <= aslot::z ? 5e-4f : 0.02f;
    std::array<double, 2> f{};
    std::array<double, 2> at{};
    for (const int side : {0, 1}) {
      value = start + (side ? step : -step);
      at[static_cast<std::size_t>(side)] = static_cast<double>(value);
      f[static_cast<std::size_t>(side)] =
          kv_structure_factors::stfac(kv_structure_factors::prepare(st, 0, 0, {}), h, s2, work, {}).fsq;
    }
    value = start;
    const double numeric = (f[1] - f[0]) / (at[1] - at[0]);
    EXPECT_NEAR(d[c], numeric, 2e-3 * std::abs(numeric) + 2e-5 * f[1] / static_cast<double>(step))
        << columns[c].atom << ' ' << columns[c].k;
  }
}

INSTANTIATE_TEST_SUITE_P(Groups, StructureFactor,
                         testing::Values(group_case{"P 1", 0}, group_case{"P 21 21 21", 0}, group_case{"P 63 m c", 0},
                                         group_case{"P -1", 0}, group_case{"C 2/c", 1}, group_case{"F d -3 m:1", 0},
                                         group_case{"F d -3 m:2", 0}, group_case{"R -3 c", 4},
                                         group_case{"I -4 3 d", 1}));

TEST(StructureFactor, AnAtomWithItsOwnRangeOfOperatorsIsSummedOverTheseAlone) {
  kp::state_type st = phase_of("P 21 21 21", 0, {some_atoms[0]});
  st.atom[0].isap = {2, 3};
  kp::state_type explicitly = phase_of("P 1", 0, {some_atoms[0], some_atoms[0]});
  for (const std::size_t i : {0u, 1u}) {
    const auto image = lmix_crystallographic_symmetry::applyso(st.phase[0].spgr.symop[i + 1], {0.11f, 0.23f, 0.37f});
    std::ranges::copy(image, explicitly.atom[i].xl.begin() + aslot::x);
  }
  kv_structure_factors::workspace work;
  for (const auto& h : {std::array{1.f, 2.f, 2.f}, {2.f, 0.f, 1.f}, {0.f, 3.f, -1.f}}) {
    const auto fsq = [&](const kp::state_type& s) {
      return kv_structure_factors::stfac(kv_structure_factors::prepare(s, 0, 0, {}), h, 0.05, work, {}).fsq;
    };
    EXPECT_NEAR(fsq(st) / fsq(explicitly), 1.0, 1e-4);
  }
}

TEST(StructureFactor, EquivalentReflectionsAreEqual) {
  const kp::state_type st = phase_of("P 63 m c", 0, some_atoms);
  const auto model = kv_structure_factors::prepare(st, 0, 0, {});
  kv_structure_factors::workspace work;
  const double f = kv_structure_factors::stfac(model, {2.f, 1.f, 3.f}, 0.1, work, {}).fsq;
  for (const auto& h : {std::array{-3.f, 1.f, 3.f}, {1.f, 2.f, 3.f}, {2.f, -3.f, -3.f}, {-2.f, -1.f, -3.f}})
    EXPECT_NEAR(kv_structure_factors::stfac(model, h, 0.1, work, {}).fsq / f, 1.0, 1e-5);
}

TEST(StructureFactor, DerivativeByAnOccupancyOfZeroIsAlive) {
  kp::state_type st = phase_of("P 1", 0, some_atoms);
  st.atom[0].xl[aslot::occ] = 0.f;
  kv_structure_factors::workspace work;
  std::array<double, 1> d{};
  kv_structure_factors::stfac(kv_structure_factors::prepare(st, 0, 0, {{0, aslot::occ}}), {1.f, 0.f, 1.f}, 0.05, work,
                              d);
  EXPECT_GT(std::abs(d[0]), 1.0);
}

TEST(ScatteringAt, TableIsInterpolatedAndKeepsItsEndValues) {
  kp::scattering_entry e;
  e.star = {0.f, 0.2f, 0.6f};
  e.ftab = {10.f, 8.f, 2.f};
  e.dfp = -0.5f, e.dfpp = 0.25f;
  for (const auto& [s, f] : {std::pair{0.1, 8.5}, {0.4, 4.5}, {0.6, 1.5}, {1.5, 1.5}})
    EXPECT_NEAR(kv_structure_factors::scattering_at(e, s * s, false).re, f, 1e-5) << s;
  EXPECT_FLOAT_EQ(static_cast<float>(kv_structure_factors::scattering_at(e, 0.01, false).im), 0.25f);
}

TEST(Lookup, EntriesOfTheControlFileWinAndUnknownSpeciesAreNamed) {
  kp::state_type st = phase_of("P 1", 1, {{"FE", 0, 0, 0, 0, {}}});
  std::ostringstream console;
  st.io.console = &console;
  st.pattern[0].scattering.assign(1, {});
  st.pattern[0].scattering[0].nam = "fe";
  st.pattern[0].scattering[0].dfp = 0.123f;
  kp::atom_type unknown;
  unknown.ntyp = "QQ", unknown.atext = "Q1", unknown.line_nb = 37;
  st.atom.push_back(unknown);
  st.phase[0].natom = 2;
  EXPECT_EQ(look_scatt::lookup(st, 0), 1);
  EXPECT_FLOAT_EQ(st.pattern[0].scattering[static_cast<std::size_t>(st.atom[0].species[0])].dfp, 0.123f);
  EXPECT_EQ(st.atom[1].species[0], -1);
  EXPECT_NE(console.str().find("QQ (atom Q1, line    37"), std::string::npos) << console.str();
}

TEST(Lookup, TablesGiveScatteringLengthsAndAnomalousTerms) {
  kp::state_type st = phase_of("P 1", 1, {{"GD", 0, 0, 0, 0, {}}});
  EXPECT_NEAR(st.pattern[0].scattering.at(0).dfp, 0.65, 0.01);  // [1e-12 cm]
  EXPECT_NEAR(st.pattern[0].scattering.at(0).dfpp, -1.382, 0.01);
  st = phase_of("P 1", 0, {{"FE", 0, 0, 0, 0, {}}});
  EXPECT_NEAR(st.pattern[0].scattering.at(0).dfp, -1.18, 0.1);  // copper
  EXPECT_NEAR(st.pattern[0].scattering.at(0).dfpp, 3.2, 0.1);
  EXPECT_NEAR(kv_structure_factors::scattering_at(st.pattern[0].scattering.at(0), 0.0, false).re, 26 - 1.18, 0.1);
}

TEST(Lookup, ShapesAndTooManySpeciesStopTheRun) {
  std::ostringstream console;
  std::string stopped;
  const auto stops = [&](const std::vector<made_atom>& atoms) {
    kp::state_type st = phase_of("P 1", 1, {});
    st.io.console = &console;
    for (const made_atom& m : atoms) {
      kp::atom_type t;
      t.atext = t.ntyp = m.species, t.line_nb = 41;
      st.atom.push_back(t);
    }
    st.phase[0].natom = static_cast<int>(atoms.size());
    console.str({});
    try {
      look_scatt::lookup(st, 0);
    } catch (const kalvaris_inout::run_stopped& e) {
      stopped = e.text;
      return true;
    }
    return false;
  };
  EXPECT_TRUE(stops({{"FE", 0, 0, 0, 0, {}}, {"Sphe", 0, 0, 0, 0, {}}}));
  EXPECT_NE(stopped.find("SPHE (spherical shell) is not calculated (atom Sphe, line    41"), std::string::npos)
      << stopped;
  std::vector<made_atom> many;
  for (const auto& row : lmix_scattering_chemical_tables::chem_info())
    if (many.size() < 31 && lmix_scattering_chemical_tables::get_fermi_length(row.symb))
      many.push_back({row.symb.data(), 0, 0, 0, 0, {}});
  ASSERT_EQ(many.size(), 31u);
  EXPECT_TRUE(stops(many));
  EXPECT_EQ(stopped, " Too many chemical species");
  EXPECT_NE(console.str().find(" => Maximum number of chemical species: 30"), std::string::npos);
  many.pop_back();
  EXPECT_FALSE(stops(many));
}

}  // namespace

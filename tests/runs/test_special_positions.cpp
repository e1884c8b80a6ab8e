// A whole refinement with atoms on special positions whose codes the program sets by symmetry: the Laves phase MgZn2
// (P 63/m m c; Mg at 1/3,2/3,z; Zn at the origin and at x,2x,1/4 with betas), a calculated pattern with noise.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kv_background.hpp"
#include "program_run.hpp"

namespace {

using kalvaris_params::state_type;
namespace aslot = kalvaris_params::aslot;
namespace sym = lmix_crystallographic_symmetry;
using program_run::directory;
using program_run::with_word;

/// With the true values; every code is a request.
constexpr const char* control = R"(MgZn2
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
  0   7   1   0   0   0   0   0   0   0   0   0   0   0   0   0   0   0   1
!Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana
  0   0   1   0   1   0   0   0   0   1   0   0   0   0   0   0   1
  1.54056   1.54056       1.0      65.0      20.0    0.7998       0.0       0.0       0.0       0.0
!Mcycle
  30 0.01 1.00 1.00 1.00 1.00 18.0 0.03 120.0 0.0 0.0
  0
  0.0 1.00 0.0 0.00 0.0 0.00 0.0 0.00 0
  200.0 -30.0 0.0 0.0 0.0 0.0
  1.00 1.00 0.00 0.00 0.00 0.00
MgZn2
  3 0 0 0.0 0.0 1.0 0 0 0 0 0 0.000 0 0 0
P 63/m m c
Mg MG 0.333333 0.666667 0.0620 0.80 0.166667 0 0 0 0
  1.00 1.00 1.00 1.00 0.00
Zn1 ZN 0.0 0.0 0.0 0.90 0.083333 0 0 0 0
  1.00 1.00 1.00 1.00 0.00
Zn2 ZN 0.8305 0.6610 0.2500 0.00 0.250000 0 0 2 0
  1.00 1.00 1.00 0.00 0.00
  0.0140 0.0110 0.0040 0.0055 0.0 0.0
  1.00 1.00 1.00 1.00 1.00 1.00
! scale
  0.002 0.0 0.0 0.0 0.0 0.0 0
  1.00 0.00 0.00 0.00 0.00 0.00
  0.010 -0.006 0.012 0.02 0.05 0.0 0.0 0
  0.00 0.00 0.00 0.00 0.00 0.00 0.00
! cell
  5.2200 5.2200 8.5660 90.0 90.0 120.0
  1.00 1.00 1.00 0.00 0.00 1.00
  0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0
  0.00 0.00 0.00 0.00 0.00 0.00 0.00 0.00
)";

/// The pattern of the true values with the noise of counts.
std::string noisy_pattern(const directory& where) {
  where.put("truth.pcr", with_word(control, "!Job", 1, 0, "2"));
  std::string text = "18.0 0.03 120.0\n";
  std::mt19937 random(2026);
  std::normal_distribution<double> normal;
  const auto run = where.run_and_keep("truth", "", [&](const state_type& st) {
    const auto& p = st.pattern[0];
    for (int i = 0; i < p.npts; ++i) {
      const double y =
          static_cast<double>(p.yc[static_cast<std::size_t>(i)]) + static_cast<double>(kv_background::backa(p, i));
      text += std::to_string(std::lround(y + std::sqrt(y) * normal(random))) + (i % 10 == 9 ? "\n" : " ");
    }
  });
  EXPECT_TRUE(run.reached_end) << run.console;
  return text + "\n";
}

/// An operation leaves the atom within this of itself, lattice vectors apart.
int operations_in_place(const sym::space_group_type& group, const kalvaris_params::atom_type& atom, float within) {
  const sym::vector3 x{atom.xl[aslot::x], atom.xl[aslot::y], atom.xl[aslot::z]};
  int n = 0;
  for (const sym::sym_oper_type& op : group.symop) {
    const sym::vector3 image = sym::applyso(op, x);
    float away = 0.f;
    for (std::size_t i = 0; i < 3; ++i) away = std::max(away, std::abs(image[i] - x[i] - std::round(image[i] - x[i])));
    n += away < within ? 1 : 0;
  }
  return n;
}

TEST(SpecialPositions, AtomsStayOnThemAndComeBackToTheTruth) {
  const directory where;
  where.put("laves.dat", noisy_pattern(where));
  std::string start = program_run::with(control, "0.0620", "0.0570");
  start = program_run::with(start, "0.8305 0.6610", "0.8260 0.6520");
  start = program_run::with(start, "0.0140 0.0110 0.0040 0.0055", "0.0100 0.0100 0.0060 0.0050");
  start = program_run::with(start, "5.2200 5.2200 8.5660", "5.2230 5.2230 8.5600");
  start = program_run::with(start, "  0.002 0.0", "  0.0023 0.0");
  where.put("laves.pcr", start);
  const auto run = where.run_and_keep("laves");
  ASSERT_TRUE(run.reached_end) << run.console;
  const state_type& st = *run.state;
  EXPECT_LT(st.run.cycles_done, st.run.mcycle);
  EXPECT_NEAR(st.pattern[0].all.chi2, 1.0, 0.1);
  // zero, two of the background, scale, a, c; z and B of Mg; B of Zn1; x and three betas of Zn2
  EXPECT_EQ(st.run.maxs, 13);

  struct row {
    std::size_t atom;
    int k;
    double truth;
  };
  for (const row t : {row{0, aslot::z, 0.0620},
                      {2, aslot::x, 0.8305},
                      {2, aslot::b11, 0.0140},
                      {2, aslot::b22, 0.0110},
                      {2, aslot::b33, 0.0040},
                      {0, aslot::biso, 0.80},
                      {1, aslot::biso, 0.90}}) {
    SCOPED_TRACE(testing::Message() << "atom " << t.atom << " slot " << t.k);
    const auto& atom = st.atom[t.atom];
    const auto k = static_cast<std::size_t>(t.k);
    const auto n = static_cast<std::size_t>(atom.lp[k]);
    ASSERT_GT(n, 0u);
    const double esd = static_cast<double>(st.parm.svalx[n]);
    EXPECT_GT(esd, 0.0);
    EXPECT_NEAR(static_cast<double>(atom.xl[k]), t.truth, 3.0 * esd);
    RecordProperty(st.parm.nampar[n], std::to_string((static_cast<double>(atom.xl[k]) - t.truth) / esd));
  }
  const auto& zn2 = st.atom[2].xl;
  EXPECT_NEAR(zn2[aslot::y], 2.f * zn2[aslot::x] - 1.f, 1e-6f);
  EXPECT_EQ(zn2[aslot::z], 0.25f);
  EXPECT_NEAR(zn2[aslot::b12], 0.5f * zn2[aslot::b22], 1e-6f);
  EXPECT_EQ(zn2[aslot::b13], 0.f);
  constexpr std::array site_order{6, 12, 4};  // of 4f, 2a and 6h
  for (std::size_t ia = 0; ia < site_order.size(); ++ia)
    EXPECT_EQ(operations_in_place(st.phase[0].spgr, st.atom[ia], 1e-5f), site_order[ia]) << ia;
  EXPECT_THAT(
      where.get("laves.out"),
      testing::ContainsRegex("Atom Zn2 of phase 1\n     Codes for atom coordinates  \\(Automatic Constraints\\): +"
                             "[0-9]+1.00 +[0-9]+2.00 +0.00\n     Codes for anisotropic betas"));
}

}  // namespace

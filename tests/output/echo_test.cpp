// The echo of the input: the words of every value of every flag, their order, and a line for every parameter.
#include <gmock/gmock.h>

#include <functional>
#include <set>

#include "kv_echo_words.hpp"
#include "kv_listed_slots.hpp"
#include "kv_running_output.hpp"
#include "output_state.hpp"
#include "pcr_profile.hpp"

namespace {

using namespace output_tests;
using kv_echo_words::flag;
using testing::HasSubstr;
using testing::Not;

class Echo : public Output {
 protected:
  /// The conditions of a small case after a change, before the codes are split.
  std::string conditions(const std::function<void(kp::state_type&)>& change) {
    SetUp();
    kp::state_type st = small_state();
    st.pattern[0].pl_prf = st.run.nxt = 0;
    change(st);
    open(st);
    kv_running_output::echo_conditions(st);
    return listing(st);
  }
  std::string phases(kp::state_type& st) {
    SetUp();
    open(st);
    kv_running_output::echo_phases(st);
    return listing(st);
  }
};

/// Expects the words one behind the other.
void expect_in_order(const std::string& text, const std::vector<const char*>& words) {
  std::size_t from = 0;
  for (const char* w : words) {
    const std::size_t found = text.find(w, from);
    ASSERT_NE(found, std::string::npos) << w;
    from = found + 1;
  }
}

TEST_F(Echo, KeepsItsOrder) {
  kp::state_type st = small_state();
  refine_three(st);
  st.run.mat = 1;
  st.pattern[0].istep = 2, st.pattern[0].nexcrg = 1;
  st.pattern[0].lglb[kp::gslot::zero] = 4, st.pattern[0].aglb[kp::gslot::zero] = 0.5f;
  open(st);
  kv_running_output::echo_conditions(st);
  kv_running_output::echo_points(st, 0);
  kv_running_output::echo_data(st, 0);
  kv_running_output::echo_phases(st);
  kv_running_output::echo_parameters(st);
  const std::string text = listing(st);
  expect_in_order(text, {" ==> CONDITIONS OF THIS RUN FOR PATTERN No.:  1",
                         " => Refinement, neutron data",
                         " => Geometry: Bragg-Brentano X-rays",
                         " => Number of phases:   1",
                         " => Number of excluded regions:   1",
                         " => Number of scattering factors supplied:   0",
                         " => Exponential function for preferred orientation",
                         " => Conventional weights: w=1.0/Variance(yobs)",
                         " => Background refined by polynomial function",
                         " => Peak shape: pseudo-Voigt of Thompson",
                         " ==> INPUT/OUTPUT OPTIONS:",
                         " => Output Correlation Matrix",
                         " => Wavelengths:   1.500000  1.500000",
                         " => Number of cycles:     5",
                         " => Relaxation factors ==>",
                         " => EPS-value for convergence: ",
                         " => Excluded regions for Pattern#  1\n      From   21.5000 to   22.0000",
                         " => The number of data points has been reduced by a factor of    2",
                         " ==> Angular range, step and number of points:",
                         "  No. of points:     21",
                         " => Phase No.  1  Phase 1",
                         " => Kind of phase: crystal structure",
                         "Hermann-Mauguin Symbol: P m -3 m",
                         "Direct Cell Volume =    125.0000",
                         " => Atom parameters and codes ==>\n  Name   Type",
                         "\n  Al1 ",
                         "21.00",
                         " => Size model of the phase: isotropic",
                         " => Strain model of the phase: no anisotropic strain",
                         " => Shift model of the phase: none",
                         "Overall scale factor                                     2.00000000          11.00\n",
                         " => Global parameters and codes ==>",
                         "Zero shift                                                  0.12500          40.50\n",
                         " => Background Polynomial Parameters ==>",
                         " => Number of Least-Squares parameters varied:     3",
                         "Cell_A_ph1_pat1"});
  EXPECT_THAT(text, Not(HasSubstr("PATTERN number")));  // only with several
}

// The values are those of the control file's tables.
TEST(EchoWords, EveryValueOfEveryFlagHasItsOwnWords) {
  struct row {
    flag name;
    std::vector<int> values, strangers;
    bool shared = false;  ///< some values have the same meaning
  };
  for (const row& t :
       {row{flag::job, {-4, -3, -2, -1, 0, 1, 2, 3, 4}, {-5, 5}, true},
        row{flag::search, {-3, -2, 1, 2, 3, 4}, {0, 5}, true},
        row{flag::abscissa, {0, 1, 2, 3, 4, 10}, {5}},
        row{flag::geometry, {-2, -1, 0, 1, 2, 3, 4, 5, 6}, {-3, 7}},
        row{flag::orientation, {0, 1, 2, 3}, {-1, 4}},
        row{flag::weights, {0, 1, 2, 3}, {-1, 4}},
        row{flag::integrated_weights, {0, 1, 2, 3}, {-1, 4}},
        row{flag::shape, {-4, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, {-3, 14}},
        row{flag::shape_formula, {-4, 0, 1, 2, 3, 4, 5, 6, 7, 8, 11, 12}, {9}, true},
        row{flag::shape_formula_tof, {7, 9, 10, 13}, {5}, true},
        row{flag::assignment, {0, 1}, {2}},
        row{flag::layout, {0, 1, 2, 3, 4, -4, 5, 6, 7, 8, 9, 10, 11, -11, 12, 13, 14, -14}, {15}, true},
        row{flag::absorption, {1, 2, 4}, {3}},
        row{flag::absorption_tof, {0, 1, 2, 3, 4}, {5}},
        row{flag::structure, {0, 1, -1, 2, -2, 3, -3, 4, -4, 5, -5, 6, -6, 7, -7, 10, -10}, {8, 9}, true},
        row{flag::symmetry, {0, 1, -1, 2, -2}, {3}, true},
        row{flag::reflections, {0, 1, 2, 3, 4, -4}, {5}},
        row{flag::strain_kind, {0, 1, 2, 3, 4}, {5}},
        row{flag::size,
            {0, 1, -1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, -14, 15, 16, 17, 18, 19, 20, 21, 22, 30},
            {23, -15}},
        row{flag::extinction, {0, 1, 2, 3, 4}, {5}},
        row{flag::limit, {0, 1, 2}, {3}}}) {
    SCOPED_TRACE(static_cast<int>(t.name));
    std::set<std::string> words;
    for (const int value : t.values) {
      EXPECT_FALSE(kv_echo_words::words_of(t.name, value).empty()) << value;
      words.insert(kv_echo_words::words_of(t.name, value));
    }
    EXPECT_TRUE(t.shared || words.size() == t.values.size());
    for (const int value : t.strangers) EXPECT_EQ(kv_echo_words::words_of(t.name, value), "") << value;
  }
}

TEST_F(Echo, ConditionsFollowTheFlags) {
  using pattern = kp::pattern_type;
  struct row {
    std::function<void(kp::state_type&)> change;
    std::string_view words, absent = "\n never \n";
  };
  const auto flag_of = [](int pattern::*field, int value) {
    return [=](kp::state_type& st) { st.pattern[0].*field = value; };
  };
  const auto of_run = [](int kp::run_type::*field, int value) {
    return [=](kp::state_type& st) { st.run.*field = value; };
  };
  const auto value_of = [](float pattern::*field, float value) {
    return [=](kp::state_type& st) { st.pattern[0].*field = value; };
  };
  const std::vector<row> rows{
      {flag_of(&pattern::jobtyp, 2), " => Pattern calculation, X-ray\n", "weights"},
      {flag_of(&pattern::jobtyp, -3), " => Pattern calculation, Neutrons\n"},
      {flag_of(&pattern::jobtyp, 7), " Invalid JOBTYP    7\n"},
      {flag_of(&pattern::ixunit, 1), " => Abcisa variable is T.O.F. in microsecs\n", "Wavelengths"},
      {flag_of(&pattern::ixunit, 2), " => Energy Dispersive X-ray data\n", "Monochromator"},
      {flag_of(&pattern::icorr, 1), " => Intensities corrections in file *.cor\n"},
      {flag_of(&pattern::nori, 1), " => March-Dollase model for preferred orientation\n"},
      {flag_of(&pattern::iwgt, 3), " => SHELX-like weights: w = 1 / [ variance(yobs) + (a*P)^2 + b*P + d ]\n"},
      {[](kp::state_type& st) { st.pattern[0].cry_pat = true, st.run.icryg = 1, st.pattern[0].iwgt = 2; },
       " => Modified weights: w(H)=1.0/(Variance(GobsH)+0.2*(GobsH+2GcalH)/3)\n", "Background"},
      {[](kp::state_type& st) { st.mixes[0].par[kp::slot::asy3] = 0.1f; },
       " => Asymmetry correction as in J.Appl.Cryst. 26,128(1993)\n"},
      {[](kp::state_type& st) { st.mixes[0].apar[kp::slot::asy1] = 21.f; }, " => Asymmetry correction as in"},
      {flag_of(&pattern::nbckgd, 1), " => Background read from file\n"},
      {[](kp::state_type& st) { st.pattern[0].nbckgd = 2, st.pattern[0].isbac = -1, st.pattern[0].fwindow = 300.f; },
       " => Background adjusted by Fourier filtering \n    Window [points]:     300.00"},
      {[](kp::state_type& st) { st.run.icryg = 2, st.run.limits.resize(3); },
       " => Montecarlo search for a number of 3 parameters\n"},
      {[](kp::state_type& st) { st.run.icryg = -3, st.run.limits.resize(12); },
       " => Simulated Annealing for a number of 12 parameters\n"},
      {of_run(&kp::run_type::mat, 1), " => Output Correlation Matrix\n"},
      {of_run(&kp::run_type::nxt, 1), " => Generate new input file *.PCR\n"},
      {flag_of(&pattern::lst3, 1), " => Print merged reflection list\n"},
      {flag_of(&pattern::pl_prf, 3), " => Generate file *.PRF for plot\n    in columns with tabs\n"},
      {flag_of(&pattern::lst2, 1), " => Print corrected data\n", "Plot pattern"},
      {flag_of(&pattern::ianaly, 1), " => Analysis of refinement at the end\n"},
      {flag_of(&pattern::ipl, 3), " => Generate difference curve in *.BAC\n", "Line-printer"},
      {[](kp::state_type& st) { st.pattern[0].ratio[1] = 0.5f; }, " => Alpha2/Alpha1 ratio:    0.5000\n"},
      {flag_of(&pattern::iuvw, 1), " => Different U,V,W parameters for Lambda(2) will be read\n"},
      {value_of(&pattern::cthm, 0.7998f), " => Cos(Monochromator angle)=    0.7998\n", "Polarization"},
      {value_of(&pattern::rkk, 0.95f), " => Polarization=    0.9500\n"},
      {value_of(&pattern::rlim, 60.f), " => Asymmetry correction for angles lower than    60.000 degrees\n"},
      {[](kp::state_type& st) {
         st.pattern[0].tmv = {0.5f, 0.5f}, st.pattern[0].iabscor = 4;
       },
       " => Absorption correction: cylinder, series for any mu.R:    0.5000   0.5000\n"},
      {[](kp::state_type& st) {
         st.run.relax = {0.f, 1.f, 0.5f, 1.f, 1.f};
       },
       " => for anisotropic temperature factors:   0.50\n"},
      {[](kp::state_type& st) {
         st.run.limits = {{4, 0.1f, 0.9f, 0.01f, 1, ""}};
       },
       "0.10000       0.90000"},
  };
  const std::string plain = conditions([](kp::state_type&) {});
  for (const row& t : rows) {
    SCOPED_TRACE(t.words);
    const std::string text = conditions(t.change);
    EXPECT_THAT(text, HasSubstr(std::string(t.words)));
    EXPECT_THAT(text, Not(HasSubstr(std::string(t.absent))));
    EXPECT_TRUE(text != plain || t.words.find("angles lower") != t.words.npos);  // that line stands always
  }
  EXPECT_THAT(plain,
              HasSubstr(" ==> INPUT/OUTPUT OPTIONS:\n\n => Layout of the data file: header"));  // no option is set
}

TEST_F(Echo, RangeIsToldInTheUnitOfTheAbscissa) {
  struct row {
    int ixunit;
    const char* words;
  };
  for (const row& t :
       {row{0, " ==> Angular range, step and number of points:\n     2Thmin:"},
        row{1, " ==> T.O.F. range, and number of points:\n"}, row{2, " ==> Energy range, and number of points: \n"},
        row{3, " ==> Q range, step and number of points:\n"}}) {
    SetUp();
    kp::state_type st = small_state();
    st.pattern[0].ixunit = t.ixunit;
    open(st);
    kv_running_output::echo_data(st, 0);
    EXPECT_THAT(listing(st), HasSubstr(t.words));
  }
}

// ---- parameters -----------------------------------------------------------------------------------------------------

/// A kind of profile block.
struct block_kind {
  const char* what;
  std::function<void(kp::state_type&)> set;
};

std::vector<block_kind> block_kinds() {
  std::vector<block_kind> kinds;
  for (const int ixunit : {0, 1, 2})
    for (const int npro : {5, 7, 9, 10, 11})
      kinds.push_back({"shape", [=](kp::state_type& st) {
                         st.pattern[0].ixunit = ixunit, st.mixes[0].npro = npro;
                         st.pattern[0].iuvw = 1, st.mixes[0].ph_shift = 1;
                       }});
  for (const int istr : {0, 1, 2, 3, 4})
    for (const int ismo : {0, 1, 2, -2, 3, 5, 7, 9, 11, 14})
      kinds.push_back({"strain", [=](kp::state_type& st) { st.phase[0].istr = istr, st.phase[0].ismo = ismo; }});
  for (int isi = -9; isi <= 30; ++isi) kinds.push_back({"size", [=](kp::state_type& st) { st.phase[0].isi = isi; }});
  for (const int ishif : {0, 1, -1, 2, -2, -10, 101, 102, -102, 103, 104, 106, 108, 113})
    kinds.push_back({"shift", [=](kp::state_type& st) { st.phase[0].jsol = 1, st.phase[0].ishif = ishif; }});
  for (const int nori : {1, 2, 3})
    kinds.push_back({"axes", [=](kp::state_type& st) { st.pattern[0].nori = nori, st.mixes[0].naxes = 5; }});
  kinds.push_back({"special", [](kp::state_type& st) { st.mixes[0].nref_sp = 7; }});
  for (const int scales : {1, 7, 13, 19, 25, 36})
    kinds.push_back({"crystal", [=](kp::state_type& st) {
                       st.pattern[0].cry_pat = true, st.mixes[0].num_scale = scales, st.mixes[0].iextinc = 4;
                     }});
  return kinds;
}

TEST(ListedSlots, EveryParameterOfEveryKindOfBlockHasItsOwnLine) {
  for (const block_kind& kind : block_kinds()) {
    kp::state_type st = small_state();
    kind.set(st);
    SCOPED_TRACE(testing::Message() << kind.what << " npro " << st.mixes[0].npro << " ixunit " << st.pattern[0].ixunit
                                    << " istr " << st.phase[0].istr << " ismo " << st.phase[0].ismo << " isi "
                                    << st.phase[0].isi << " ishif " << st.phase[0].ishif);
    st.mixes[0].par.fill(1.f);
    std::set<int> expected;
    const pcr_profile::block b{st, 0, 0};
    for (const pcr_profile::line& line : pcr_profile::lines())
      if (line.stands(b))
        for (const int k : line.slots(b))
          if (k < kp::slot::cell_a || k > kp::slot::cell_f) expected.insert(k);
    std::set<int> found;
    std::set<std::string> words;
    const auto slots = kv_listed_slots::of_phase(st, 0, 0);
    for (const auto& row : slots) {
      found.insert(row.k);
      words.insert(row.words);
      EXPECT_EQ(row.words.find(" => Parameter "), std::string::npos) << row.words;  // a slot without a name
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(slots.size(), found.size());
    EXPECT_EQ(words.size(), slots.size());
  }
}

TEST(ListedSlots, CoefficientsAreCalledByTheirTerms) {
  struct row {
    std::function<void(kp::state_type&)> set;
    int k;
    const char* words;
  };
  for (const row& t :
       {row{[](kp::state_type& st) { st.phase[0].istr = 1, st.phase[0].ismo = 3; }, kp::slot::str1 + 3,
            " => Strain parameter S_220"},
        row{[](kp::state_type& st) { st.phase[0].isi = 15; }, kp::slot::siz1 + 8, " => Size parameter Y44-"},
        row{[](kp::state_type& st) { st.phase[0].isi = 30; }, kp::slot::siz1 + 3, " => Size parameter 2hk"},
        row{[](kp::state_type& st) { st.phase[0].isi = -3; }, kp::slot::siz1 + 2, " => Size parameter 3"},
        row{[](kp::state_type& st) { st.phase[0].ishif = 113; }, kp::slot::gshift1 + 2, " => Shift parameter D4_220"},
        row{[](kp::state_type& st) { st.pattern[0].nori = 2, st.mixes[0].naxes = 2; }, kp::slot::fr1 + 2,
            " => March-Dollase, axis 2: fraction"},
        row{[](kp::state_type& st) { st.mixes[0].nref_sp = 3; }, kp::slot::special + 12,
            " => Special reflection 3: shift"},
        row{[](kp::state_type& st) { st.pattern[0].cry_pat = true, st.mixes[0].num_scale = 8; }, kp::slot::sc7 + 1,
            " => Scale factor Sc8"},
        row{[](kp::state_type& st) { st.pattern[0].ixunit = 1; }, kp::slot::gam1, " => Lorentzian width Gamma-1"}}) {
    kp::state_type st = small_state();
    t.set(st);
    st.mixes[0].par.fill(1.f);
    const auto slots = kv_listed_slots::of_phase(st, 0, 0);
    const auto found = std::ranges::find(slots, t.k, &kv_listed_slots::listed_slot::k);
    ASSERT_NE(found, slots.end()) << t.words;
    EXPECT_EQ(found->words, t.words);
  }
}

// ---- phases ---------------------------------------------------------------------------------------------------------

TEST_F(Echo, ModelsOfAPhaseAreTold) {
  struct row {
    std::function<void(kp::state_type&)> set;
    const char* words;
  };
  for (const row& t :
       {row{[](kp::state_type& st) { st.phase[0].jbt = -2; },
            " => Kind of phase: profile matching, intensities free, start from F"},
        row{[](kp::state_type& st) { st.phase[0].isi = 3; }, " => Size model of the phase: reflections 0 k 0"},
        row{[](kp::state_type& st) {
              st.phase[0].isi = -1, st.mixes[0].psz = {0.f, 0.f, 1.f};
            },
            "needle, direction below\n    direction:   0.000   0.000   1.000\n"},
        row{[](kp::state_type& st) {
              st.phase[0].isi = -2;
              st.mixes[0].size_cond = {{{1, 0, 0, 2, 1}}, {{0, 0, 1, 3, 0}}};
            },
            " => Size model of the phase: 2 conditions on hkl\n     1: 1h + 0k + 0l = 2n +/- 1\n     2: 0h + 0k + 1l = "
            "3n"},
        row{[](kp::state_type& st) { st.phase[0].isi = 22; }, " cubic harmonics (Laue: m-3m): K00 K41 K61\n"},
        row{[](kp::state_type& st) { st.phase[0].istr = 2; }, " => Size model of the phase: quadratic form"},
        row{[](kp::state_type& st) { st.phase[0].istr = 1, st.phase[0].ismo = 14; },
            " => Strain model of the phase: quartic form of the strain\n    (Laue: m-3m): S_400 S_220\n"},
        row{[](kp::state_type& st) { st.phase[0].ismo = 2; }, "    strain along a: 2 h2/(a2 hGh)\n"},
        row{[](kp::state_type& st) { st.phase[0].ismo = 9; }, "    model number   9\n"},
        row{[](kp::state_type& st) { st.phase[0].ishif = 2; }, " => Shift model of the phase: refraction-like"},
        row{[](kp::state_type& st) {
              st.phase[0].ishif = -2, st.mixes[0].shift_cond = {{{1, 1, 1, 2, 0}}};
            },
            " => Shift model of the phase: 2 conditions on hkl\n     1: 1h + 1k + 1l = 2n + 0\n"},
        row{[](kp::state_type& st) { st.phase[0].ishif = 103; }, "(Laue: mmm): D2_200"},
        row{[](kp::state_type& st) {
              st.pattern[0].nori = 2, st.mixes[0].axes = {{0, 0, 1}, {1, 1, 0}};
            },
            " => Axis of preferred orientation 2:   1.000   1.000   0.000\n"},
        row{[](kp::state_type& st) {
              st.mixes[0].special = {{0, 0, 3, 1}};
            },
            " => Special reflection   1:    0    0    3    1"},
        row{[](kp::state_type& st) { st.pattern[0].cry_pat = true, st.mixes[0].iextinc = 2; },
            " => Extinction: Becker-Coppens Gaussian\n"},
        row{[](kp::state_type& st) { st.mixes[0].irf = 1, st.mixes[0].file_hkl = "list.hkl"; },
            " => Reflections: h k l and multiplicity from the .hkl file: list.hkl\n"},
        row{[](kp::state_type& st) { st.phase[0].cmd_text = {"NN_GRID 8 8 8"}; }, " => Command: NN_GRID 8 8 8\n"}}) {
    SCOPED_TRACE(t.words);
    kp::state_type st = small_state();
    t.set(st);
    EXPECT_THAT(phases(st), HasSubstr(t.words));
  }
}

TEST_F(Echo, GroupComesWithItsOperatorsAndGenerators) {
  kp::state_type st = small_state();
  ASSERT_FALSE(set_spacegroup("P 21/c", st.phase[0].spgr).err_symm);
  const std::string text = phases(st);
  expect_in_order(text, {"Hermann-Mauguin Symbol: P 1 21/c 1", " => SYMM(  4): ", " => Generators: P: "});
  EXPECT_THAT(text, Not(HasSubstr("Wyckoff")));
  st.run.jsy = 1;
  EXPECT_THAT(phases(st), HasSubstr(" => Wyckoff positions"));
}

TEST_F(Echo, MagneticAtomsShowMomentsVectorsAndOperators) {
  kp::state_type st = small_state();
  kp::phase_type& phase = st.phase[0];
  phase.jbt = 1, phase.isym = 1, phase.nvk = 1, phase.natom = 1;
  phase.by_hand.nsym = 1, phase.by_hand.magmat = 1;
  phase.by_hand.op.resize(1);
  phase.by_hand.op[0].lines = {"SYMM  x,y,z", "MSYM  u,v,w,0.00"};
  phase.vector.resize(1);
  phase.vector[0].pvk = {0.f, 0.f, 0.f, 0.5f};
  st.atom[0].ntyp = "MND3", st.atom[0].imagr = st.atom[0].ikv = 1;
  st.atom[0].xl[kp::aslot::rz] = 1.74f, st.atom[0].lp[kp::aslot::rz] = 13, st.atom[0].a[kp::aslot::rz] = 1.f;
  st.atom[0].xl[kp::aslot::magph] = 0.125f;
  expect_in_order(phases(st),
                  {" => Kind of phase: magnetic structure, moments along the axes", " => Symmetry: operators by hand",
                   " => Propagation vectors and codes ==>\n       0.00000   0.00000   0.50000",
                   "    SYMM  x,y,z\n    MSYM  u,v,w,0.00\n", "  Al1    MND3", "    1.74000\n", "131.00",
                   "     matrices:  1   vector:  1", "     moment:", "0.12500\n"});
}

}  // namespace

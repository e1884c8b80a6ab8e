// A small state made by hand: one neutron pattern of 21 points, one cubic phase with two atoms, three reflections.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "apply_shifts.hpp"
#include "kalvaris_params.hpp"

namespace output_tests {

namespace kp = kalvaris_params;

inline std::size_t u(int i) { return static_cast<std::size_t>(i); }

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

/// Text of a pattern with y = 100 + i, yc = 10 (i = 10: 60), bk = 90 + i/2, step 0.5 from 20, points 3 and 4 excluded.
inline kp::pattern_type small_pattern(const kp::dimensions& dim) {
  kp::pattern_type p;
  p.jobtyp = kp::job::neutrons;
  p.npts = 21, p.thmin = 20.f, p.step = 0.5f, p.thmax = 30.f;
  p.lamda = {1.5f, 1.5f};
  p.ratio = {1.f, 0.f};
  for (int i = 0; i <= p.npts; ++i) p.txv.push_back(20.f + 0.5f * static_cast<float>(i));
  for (int i = 0; i < p.npts; ++i) {
    p.y.push_back(100.f + static_cast<float>(i));
    p.yc.push_back(i == 10 ? 60.f : 10.f);
    p.bk.push_back(90.f + 0.5f * static_cast<float>(i));
    p.var.push_back(p.y.back());
    p.kr.push_back(kp::pack_kr(1, 3, dim.maxreflx));
  }
  p.kr[3] = p.kr[4] = dim.maxreflx;
  p.excluded = {{21.5f, 22.f}};
  p.yo_max = 120.f;
  p.glb[kp::gslot::zero] = 0.125f;
  return p;
}

inline kp::state_type small_state(int phases = 1) {
  kp::state_type st;
  st.run.title = "A small case";
  st.run.n_patt = 1, st.run.nphase = phases, st.run.mcycle = 5;
  st.pattern = {small_pattern(st.dim)};
  st.phase.resize(u(phases));
  st.mixes.resize(u(phases));
  for (int ph = 0; ph < phases; ++ph) {
    st.phase[u(ph)].phsnm = "Phase " + std::to_string(ph + 1);
    st.phase[u(ph)].spgr.spg_symb = "P m -3 m";
    EXPECT_FALSE(
        lmix_crystal_metrics::set_crystal_cell({5.f, 5.f, 5.f}, {90.f, 90.f, 90.f}, st.phase[u(ph)].cellp).err_crys);
    for (int i = 0; i < 3; ++i) st.mixes[u(ph)].par[u(kp::slot::cell_a + i)] = 0.04f;
    st.mixes[u(ph)].npro = 7;
  }
  st.mixes[0].num_refl = 3;
  kp::reflection_list& r = st.pattern[0].refl;
  r.resize(3);
  for (int k = 0; k < 3; ++k) {
    r.irefs[u(k)] = kp::pack_irefs({0, 1, k - 1, 2, -k});
    r.mlt[u(k)] = 6;
    r.pos[u(k)] = 22.0 + 2.0 * k;
    r.hw[u(k)] = 0.2f;
    r.dspacing[u(k)] = 4.f - static_cast<float>(k);
    r.ff[u(k)] = 600.f;
    r.iobs[u(k)] = 110.f;
    r.icalc[u(k)] = 100.f;
  }
  st.atom.resize(2);
  st.atom[0].atext = "Al1";
  st.atom[0].xl[kp::aslot::x] = 0.25f, st.atom[0].xl[kp::aslot::biso] = 0.5f, st.atom[0].xl[kp::aslot::occ] = 1.f;
  st.atom[1].atext = "O1";
  st.atom[1].n_t = 2;
  st.atom[1].xl[kp::aslot::b11] = 0.0123f;
  st.phase[0].natom = 2;
  return st;
}

/// Three parameters: 1 scale, 2 x of the first atom, 3 the cubic cell (A, B, C), with the covariance matrix.
inline void refine_three(kp::state_type& st) {
  st.run.maxs = 3;
  st.ne.reset(3);
  const double covariance[3][3] = {{0.04, 0.00204, -0.00198}, {0.00204, 0.0004, 0.0}, {-0.00198, 0.0, 1.0e-4}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) st.ne.rjac(i, j) = covariance[i][j] * (i == 2 ? 1e-4 : 1.) * (j == 2 ? 1e-4 : 1.);
  st.parm.nampar = {"", "Scale_ph1_pat1", "X_Al1_ph1", "Cell_A_ph1_pat1"};
  st.parm.valx = {0.f, 2.f, 0.25f, 0.04f};
  st.parm.svalx = {0.f, 0.2f, 0.02f, 1e-6f};
  kp::mix_type& mix = st.mixes[0];
  mix.par[kp::slot::scale] = 2.f, mix.lpar[kp::slot::scale] = 1, mix.apar[kp::slot::scale] = 1.f;
  st.atom[0].lp[kp::aslot::x] = 2, st.atom[0].a[kp::aslot::x] = 1.f;
  for (int i = 0; i < 3; ++i) mix.lpar[u(kp::slot::cell_a + i)] = 3, mix.apar[u(kp::slot::cell_a + i)] = 1.f;
  apply_shifts::set_reference_multipliers(st);
}

/// Gives the state files of its own and a console that can be read.
class Output : public testing::Test {
 protected:
  void SetUp() override {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    directory = std::filesystem::temp_directory_path() /
                ("kv_output_" + std::string(info->name()) + std::to_string(::getpid()));
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
  }
  void TearDown() override { std::filesystem::remove_all(directory); }

  void open(kp::state_type& st) {
    st.io.directory = directory.string() + "/";
    st.io.filenam = "small";
    st.io.console = &console;
    kalvaris_inout::openfile(st.io, {.key = kalvaris_inout::file_key::listings});
    ASSERT_FALSE(st.io.file_error) << st.io.file_error_mess;
  }
  static std::string text_of(kp::state_type& st, int unit) {
    return kalvaris_inout::content(st.io, unit).value_or("no such file");
  }
  static std::string listing(kp::state_type& st) { return text_of(st, kalvaris_inout::unit::listing); }
  static std::string summary(kp::state_type& st) { return text_of(st, kalvaris_inout::unit::summary); }
  [[nodiscard]] std::string file(const std::string& name) const {
    std::ifstream in(directory / name);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  [[nodiscard]] bool exists(const std::string& name) const { return std::filesystem::exists(directory / name); }

  std::filesystem::path directory;
  std::ostringstream console;
};

}  // namespace output_tests

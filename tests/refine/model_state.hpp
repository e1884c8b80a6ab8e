// A run's state made by hand for the tests of the refinement: quartz without a centre of symmetry, two wavelengths.
#pragma once
#include <cmath>

#include "kalvaris_codes.hpp"
#include "kalvaris_params.hpp"
#include "kv_assignk.hpp"
#include "kv_background.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "look_scatt.hpp"
#include "reflections_mod.hpp"

namespace model_state {

namespace kp = kalvaris_params;

inline kp::atom_type atom(const char* label, const char* species, float x, float y, float z, float b, float occ) {
  kp::atom_type t;
  t.atext = label;
  t.ntyp = species;
  t.xl[kp::aslot::x] = x, t.xl[kp::aslot::y] = y, t.xl[kp::aslot::z] = z;
  t.xl[kp::aslot::biso] = b, t.xl[kp::aslot::occ] = occ;
  return t;
}

/// One pattern of quartz (P 32 2 1), copper doublet, npr as asked, 20 to 70 degrees; nothing is refined yet.
inline kp::state_type quartz(int npr) {
  kp::state_type st;
  st.run.n_patt = st.run.nphase = 1;
  st.run.mcycle = 1;
  st.pattern.resize(1), st.phase.resize(1), st.mixes.resize(1);
  st.io.filedat.resize(1), st.io.extdat.resize(1);
  kp::pattern_type& p = st.pattern[0];
  p.jobtyp = kp::job::xrays;
  p.nprof = npr;
  p.ratio = {1.f, 0.5f};
  // tails over the whole pattern: a cut tail jumps where a width changes, which no derivative holds
  p.cthm = 0.8f, p.wdt = 400.f, p.rlim = 45.f, p.bkpos = 45.f;
  p.nori = 1;
  p.thmin = 20.f, p.step = 0.02f, p.thmax = 70.f;
  p.npts = 2501;
  p.txv.resize(2502);
  for (std::size_t i = 0; i < p.txv.size(); ++i) p.txv[i] = static_cast<float>(i) * p.step + p.thmin;
  p.y.assign(2501, 0.f), p.var.assign(2501, 1.f), p.iww.assign(2501, 1), p.yc.assign(2501, 0.f);
  p.yo_max = 1.0e9f;
  p.glb[kp::gslot::zero] = 0.013f, p.glb[kp::gslot::sycos] = -0.02f, p.glb[kp::gslot::sysin] = 0.011f;
  p.glb[kp::gslot::lambda] = p.lamda[0], p.glb[kp::gslot::ratio2] = p.ratio[1];
  p.glb[kp::gslot::bac] = 100.f, p.glb[kp::gslot::bac + 1] = -20.f, p.glb[kp::gslot::bac + 2] = 8.f;

  kp::phase_type& phase = st.phase[0];
  phase.natom = 2;
  (void)lmix_crystallographic_symmetry::set_spacegroup("P 32 2 1", phase.spgr);
  st.atom = {atom("Si", "SI", 0.4697f, 0.f, 0.6667f, 0.6f, 0.5f), atom("O", "O", 0.4133f, 0.2672f, 0.7855f, 0.9f, 1.f)};
  kp::atom_type& oxygen = st.atom[1];
  oxygen.n_t = 2;
  oxygen.xl[kp::aslot::biso] = 0.f;
  const float betas[6] = {0.018f, 0.014f, 0.010f, 0.008f, -0.002f, -0.003f};
  for (int k = 0; k < 6; ++k) oxygen.xl[static_cast<std::size_t>(kp::aslot::b11 + k)] = betas[k];

  kp::mix_type& m = st.mixes[0];
  m.npro = npr;
  m.pref = {0.f, 0.f, 1.f};
  auto& par = m.par;
  par[kp::slot::scale] = 0.05f, par[kp::slot::bov] = 0.2f;
  par[kp::slot::pref1] = 0.9f, par[kp::slot::pref2] = 0.1f;
  par[kp::slot::w] = 0.012f;
  if (npr == 7) par[kp::slot::x] = 0.02f, par[kp::slot::y] = 0.03f;
  if (npr == 5) par[kp::slot::shape1] = 0.4f, par[kp::slot::x] = 0.002f;
  const float cell[6] = {4.9134f, 4.9134f, 5.4052f, 90.f, 90.f, 120.f};
  for (std::size_t i = 0; i < 6; ++i) par[kp::slot::cell_a + i] = cell[i];
  return st;
}

/// Direct cells to A..F, which also ties the codes of the cell as the lattice wants.
inline void load_cells(kp::state_type& st) {
  for (int ph = 0; ph < st.run.nphase; ++ph) ASSERT_TRUE(kalvaris_codes::cell_const(st, ph, 0, false));
}

/// Codes, scattering, reflections, points: what stands between reading and the cycle.
inline void set_up(kp::state_type& st) {
  if (st.phase[0].cellp.cellvol == 0.f) load_cells(st);
  kalvaris_codes::mod_codes(st);
  ASSERT_EQ(st.fmt.ierr_fmt, 0);
  kv_background::set_flags(st.pattern[0]);
  kv_background::build(st.pattern[0]);
  ASSERT_EQ(look_scatt::lookup(st, 0), 0);
  reflections_mod::make_list(st, 0);
  kv_assignk::assignk(st, 0);
}

/// Calculated pattern with its background from the present values.
inline std::vector<double> calculated(kp::state_type& st) {
  kv_background::build(st.pattern[0]);
  kv_iterate_calc_cw::calc_patterns_2theta(st, 0, false);
  std::vector<double> sum(st.pattern[0].yc.size());
  for (std::size_t i = 0; i < sum.size(); ++i)
    sum[i] = static_cast<double>(st.pattern[0].yc[i]) + static_cast<double>(st.pattern[0].bk[i]);
  return sum;
}

}  // namespace model_state

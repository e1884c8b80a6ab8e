// The table of idle slots against the calculation itself: a slot that it calls idle can take any value and the pattern
// stays as it is; any other changes it.
#include <gtest/gtest.h>

#include "kv_live_slots.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
namespace slot = kp::slot;
namespace gslot = kp::gslot;

struct model_row {
  int npro;
  float rlim = 60.f;
  int iuvw = 0;
  bool one_wave = false;
  int nori = 1;
  int nbckgd = 0, isbac = 1;
};
constexpr model_row models[] = {{0},
                                {1},
                                {2},
                                {3},
                                {7},
                                {5},
                                {12},
                                {7, 0.f},
                                {12, 20.f},
                                {7, 60.f, 1},
                                {5, 60.f, 1, true},
                                {7, 60.f, 0, false, 0},
                                {7, 60.f, 0, true, 1, 3, -1},
                                {0, 0.f, 0, true, 1, 5, -1}};

class IdleSlots : public testing::TestWithParam<model_row> {};

TEST_P(IdleSlots, AreThoseThatLeaveThePatternAsItIs) {
  const model_row& row = GetParam();
  kp::state_type st = model_state::quartz(row.npro);
  kp::pattern_type& p = st.pattern[0];
  p.rlim = row.rlim, p.iuvw = row.iuvw, p.nori = row.nori, p.nbckgd = row.nbckgd, p.isbac = row.isbac;
  p.thmin_read = p.thmin, p.bref = true, p.wdt = 20.f;
  p.step = 0.1f, p.npts = 400;
  p.txv.resize(401);
  for (std::size_t i = 0; i < p.txv.size(); ++i) p.txv[i] = static_cast<float>(i) * p.step + p.thmin;
  p.y.resize(400), p.var.resize(400), p.iww.resize(400), p.yc.resize(400);
  if (row.one_wave) p.lamda[1] = p.lamda[0], p.single_wave = true;
  for (const int k : {slot::u2, slot::v2, slot::w2}) st.mixes[0].par[static_cast<std::size_t>(k)] = 0.01f;
  model_state::set_up(st);
  const std::vector<double> before = model_state::calculated(st);
  const auto changes = [&](float& value) {
    const float start = value;
    value += 0.004f;
    p.ratio[1] = p.glb[gslot::ratio2];
    const bool different = model_state::calculated(st) != before;
    value = start;
    p.ratio[1] = p.glb[gslot::ratio2];
    return different;
  };
  for (int k = slot::scale; k <= slot::lorsiz; ++k) {
    const bool shift_model = k >= slot::shift1 && k <= slot::shift3, strain_model = k >= slot::str4 && k < slot::xi;
    if (shift_model || strain_model) continue;  // their lines stand with their models only
    EXPECT_EQ(changes(st.mixes[0].par[static_cast<std::size_t>(k)]),
              kv_live_slots::why_phase_slot_is_idle(st, 0, 0, k).empty())
        << "par " << k;
  }
  for (int k = gslot::zero; k < gslot::bac + 30; ++k) {
    const bool of_other_data = k >= gslot::dtt_1overd && k <= gslot::lambda,
               microabsorption = k >= gslot::p0 && k <= gslot::tau;
    if (of_other_data || microabsorption) continue;  // the wavelength is refreshed by the shifts
    EXPECT_EQ(changes(p.glb[static_cast<std::size_t>(k)]), kv_live_slots::why_global_slot_is_idle(p, k).empty())
        << "glb " << k;
  }
}

INSTANTIATE_TEST_SUITE_P(Models, IdleSlots, testing::ValuesIn(models));

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>

#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;
namespace slot = kp::slot;

struct widths {
  float u = 0.004f, v = -0.003f, w = 0.012f, x = 0.02f, y = 0.03f, s_l = 0.025f, d_l = 0.015f;
};

/// Quartz with all its width in the parameters, or all of it in the resolution file (ireso 1).
kp::state_type quartz(bool in_file) {
  kp::state_type st = model_state::quartz(7);
  auto& par = st.mixes[0].par;
  const widths a;
  if (in_file) {
    par[slot::w] = par[slot::x] = par[slot::y] = 0.f;
    st.pattern[0].ireso = 1;
    auto& r = st.pattern[0].resolution;
    r.uins = {a.u, a.u}, r.vins = {a.v, a.v}, r.wins = {a.w, a.w}, r.xins = {a.x, a.x}, r.yins = {a.y, a.y};
    r.asym_g = true, r.s_l = a.s_l, r.d_l = a.d_l;
  } else {
    par[slot::u] = a.u, par[slot::v] = a.v, par[slot::w] = a.w, par[slot::x] = a.x, par[slot::y] = a.y;
    par[slot::s_l] = a.s_l, par[slot::d_l] = a.d_l;
  }
  const std::array<int, 7> refined{slot::scale, slot::u, slot::w, slot::x, slot::y, slot::s_l, slot::d_l};
  st.run.maxs = static_cast<int>(refined.size());
  for (std::size_t i = 0; i < refined.size(); ++i)
    st.mixes[0].apar[static_cast<std::size_t>(refined[i])] = 10.f * static_cast<float>(i + 1) + 1.f;
  return st;
}

void expect_same_pattern(kp::state_type& a, kp::state_type& b) {
  const auto ya = model_state::calculated(a), yb = model_state::calculated(b);
  const double top = *std::ranges::max_element(ya);
  for (std::size_t i = 0; i < ya.size(); ++i) ASSERT_NEAR(ya[i], yb[i], 2e-5 * top) << i;
}

TEST(ResolutionFile, WidthsOfTheFileAndOfTheParametersAreTheSameModel) {
  auto parameters = quartz(false), file = quartz(true);
  model_state::set_up(parameters), model_state::set_up(file);
  expect_same_pattern(parameters, file);
  // the cell grows by 2 %: the share of the instrument follows the peaks
  for (auto* st : {&parameters, &file})
    for (std::size_t k = 0; k < 6; ++k) st->mixes[0].par[slot::cell_a + k] *= 0.96f;
  const auto before = file.pattern[0].refl.ggi;
  expect_same_pattern(parameters, file);
  EXPECT_NE(before, file.pattern[0].refl.ggi);
}

TEST(ResolutionFile, DerivativesOfTheWidthsAreThoseOfTheSameModel) {
  auto parameters = quartz(false), file = quartz(true);
  for (auto* st : {&parameters, &file}) {
    model_state::set_up(*st);
    kv_background::build(st->pattern[0]);
    st->ne.reset(st->run.maxs);
    kv_iterate_calc_cw::calc_patterns_2theta(*st, 0, true);
    st->ne.fill_lower();
  }
  for (int i = 0; i < parameters.run.maxs; ++i)
    for (int j = 0; j <= i; ++j) {
      const double scale = std::sqrt(parameters.ne.rjac(i, i) * parameters.ne.rjac(j, j));
      EXPECT_NEAR(parameters.ne.rjac(i, j) / scale, file.ne.rjac(i, j) / scale, 2e-4) << i << ' ' << j;
    }
}

}  // namespace

#include <gtest/gtest.h>

#include "apply_shifts.hpp"
#include "model_state.hpp"

namespace {

namespace kp = kalvaris_params;

/// A slot of the model with the step that a central difference takes there.
struct probe {
  const char* name;
  kp::slot_family family;
  int owner, k;
  float step;
};

float& value_of(kp::state_type& st, const probe& p) {
  const auto k = static_cast<std::size_t>(p.k);
  switch (p.family) {
    case kp::slot_family::global:
      return st.pattern[0].glb[k];
    case kp::slot_family::phase:
      return st.mixes[0].par[k];
    default:
      break;
  }
  return st.atom[static_cast<std::size_t>(p.owner)].xl[k];
}

float& code_of(kp::state_type& st, const probe& p) {
  const auto k = static_cast<std::size_t>(p.k);
  switch (p.family) {
    case kp::slot_family::global:
      return st.pattern[0].aglb[k];
    case kp::slot_family::phase:
      return st.mixes[0].apar[k];
    default:
      break;
  }
  return st.atom[static_cast<std::size_t>(p.owner)].a[k];
}

/// The solution of the equations is 0: the shifts that are applied only carry the slot to what follows from it.
std::vector<double> central_difference(kp::state_type& st, const probe& p) {
  float& value = value_of(st, p);
  const float start = value;
  value = start + p.step;
  const double up = static_cast<double>(value);
  apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
  std::vector<double> d = model_state::calculated(st);
  value = start - p.step;
  const double down = static_cast<double>(value);
  apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
  const std::vector<double> low = model_state::calculated(st);
  value = start;
  apply_shifts::apply(st, apply_shifts::multiplier_at_guard::halved);
  for (std::size_t i = 0; i < d.size(); ++i) d[i] = (d[i] - low[i]) / (up - down);
  return d;
}

constexpr auto global = kp::slot_family::global;
constexpr auto phase = kp::slot_family::phase;
constexpr auto atom = kp::slot_family::atom;

std::vector<probe> common_probes() {
  namespace s = kp::slot;
  namespace g = kp::gslot;
  namespace a = kp::aslot;
  return {
      {"zero", global, 0, g::zero, 1e-3f},    {"sycos", global, 0, g::sycos, 1e-3f},
      {"sysin", global, 0, g::sysin, 1e-3f},  {"ratio", global, 0, g::ratio2, 0.02f},
      {"bac 0", global, 0, g::bac, 1.f},      {"bac 1", global, 0, g::bac + 1, 1.f},
      {"bac 4", global, 0, g::bac + 4, 1.f},  {"scale", phase, 0, s::scale, 1e-3f},
      {"bov", phase, 0, s::bov, 0.02f},       {"w", phase, 0, s::w, 3e-4f},
      {"u", phase, 0, s::u, 3e-4f},           {"v", phase, 0, s::v, 3e-4f},
      {"gausiz", phase, 0, s::gausiz, 3e-4f}, {"pref1", phase, 0, s::pref1, 5e-3f},
      {"pref2", phase, 0, s::pref2, 0.02f},   {"x Si", atom, 0, a::x, 1e-3f},
      {"B Si", atom, 0, a::biso, 0.05f},      {"occ Si", atom, 0, a::occ, 0.01f},
      {"y O", atom, 1, a::y, 1e-3f},          {"z O", atom, 1, a::z, 1e-3f},
      {"beta22 O", atom, 1, a::b22, 5e-4f},   {"beta13 O", atom, 1, a::b13, 5e-4f},
  };
}

std::vector<probe> probes_of(int npr) {
  namespace s = kp::slot;
  std::vector<probe> list = common_probes();
  if (npr == 7) list.insert(list.end(), {{"x", phase, 0, s::x, 1e-3f}, {"y", phase, 0, s::y, 1e-3f}});
  if (npr == 5)
    list.insert(list.end(),
                {{"shape1", phase, 0, s::shape1, 0.01f}, {"x", phase, 0, s::x, 1e-4f}, {"xi", phase, 0, s::xi, 0.05f}});
  list.insert(list.end(), {{"asy1", phase, 0, s::asy1, 2e-3f},
                           {"asy2", phase, 0, s::asy2, 2e-3f},
                           {"asy3", phase, 0, s::asy3, 2e-3f},
                           {"asy4", phase, 0, s::asy4, 2e-3f}});
  return list;
}

/// Compares rjac and vx of a calculation with those built from central differences of the calculated pattern.
void expect_exact_derivatives(kp::state_type& st, const std::vector<probe>& probes) {
  model_state::load_cells(st);  // before the codes: here A..F are probed one by one
  for (std::size_t n = 0; n < probes.size(); ++n) code_of(st, probes[n]) = static_cast<float>(10 * (n + 1) + 1);
  st.run.maxs = static_cast<int>(probes.size());
  model_state::set_up(st);
  for (std::size_t i = 0; i < st.pattern[0].y.size(); ++i)
    st.pattern[0].y[i] = 200.f + 300.f * std::sin(0.37f * static_cast<float>(i));
  const std::vector<double> model = model_state::calculated(st);

  st.ne.reset(st.run.maxs);
  std::vector<std::vector<double>> d;
  for (const probe& p : probes) d.push_back(central_difference(st, p));
  kv_iterate_calc_cw::calc_patterns_2theta(st, 0, true);
  st.ne.fill_lower();

  std::vector<double> size(probes.size(), 0.0);
  for (std::size_t n = 0; n < d.size(); ++n)
    for (const double v : d[n]) size[n] += v * v;
  double residual = 0.0;
  for (std::size_t i = 0; i < model.size(); ++i)
    residual += std::pow(static_cast<double>(st.pattern[0].y[i]) - model[i], 2);
  for (std::size_t n = 0; n < d.size(); ++n) {
    SCOPED_TRACE(probes[n].name);
    ASSERT_GT(size[n], 0.0);
    double vx = 0.0;
    for (std::size_t i = 0; i < model.size(); ++i) vx += d[n][i] * (static_cast<double>(st.pattern[0].y[i]) - model[i]);
    EXPECT_NEAR(st.ne.vx(static_cast<int>(n)) / std::sqrt(size[n] * residual), vx / std::sqrt(size[n] * residual),
                1e-3);
    for (std::size_t m = n; m < d.size(); ++m) {
      double sum = 0.0;
      for (std::size_t i = 0; i < model.size(); ++i) sum += d[n][i] * d[m][i];
      const double scale = std::sqrt(size[n] * size[m]);
      EXPECT_NEAR(st.ne.rjac(static_cast<int>(n), static_cast<int>(m)) / scale, sum / scale, 2e-3) << probes[m].name;
    }
  }
}

class Derivatives : public testing::TestWithParam<int> {};

TEST_P(Derivatives, OfEverySlotAgreeWithCentralDifferencesOfThePattern) {
  kp::state_type st = model_state::quartz(GetParam());
  st.mixes[0].par[kp::slot::asy1] = 0.01f, st.mixes[0].par[kp::slot::asy3] = -0.006f;
  expect_exact_derivatives(st, probes_of(GetParam()));
}
INSTANTIATE_TEST_SUITE_P(PeakShape, Derivatives, testing::Values(0, 5, 7));

TEST(AxialDerivatives, OfBothHeightsAgreeWithCentralDifferences) {
  kp::state_type st = model_state::quartz(7);
  st.mixes[0].par[kp::slot::s_l] = 0.03f, st.mixes[0].par[kp::slot::d_l] = 0.02f;
  std::vector<probe> list = common_probes();
  list.insert(list.end(), {{"s_l", phase, 0, kp::slot::s_l, 5e-4f}, {"d_l", phase, 0, kp::slot::d_l, 5e-4f}});
  expect_exact_derivatives(st, list);
}

TEST(PositionDerivatives, OfCellAndWavelengthWhereOnlyThePositionFeelsThem) {
  // neutrons without thermal motion, orientation and Lorentz factor: the small part of the derivative that goes through
  // the angle into intensities and widths, which the refinement leaves out, is zero here
  kp::state_type st = model_state::quartz(7);
  kp::pattern_type& p = st.pattern[0];
  p.jobtyp = kp::job::neutrons, p.ilor = -1, p.nori = 0;
  auto& par = st.mixes[0].par;
  par[kp::slot::bov] = par[kp::slot::pref1] = par[kp::slot::pref2] = par[kp::slot::x] = par[kp::slot::y] = 0.f;
  par[kp::slot::scale] = 5.f;
  st.atom[0].xl[kp::aslot::biso] = 0.f;
  expect_exact_derivatives(st, {{"zero", global, 0, kp::gslot::zero, 1e-3f},
                                {"lambda", global, 0, kp::gslot::lambda, 4e-5f},
                                {"cell A", phase, 0, kp::slot::cell_a, 4e-6f},
                                {"cell B", phase, 0, kp::slot::cell_a + 1, 4e-6f},
                                {"cell C", phase, 0, kp::slot::cell_a + 2, 4e-6f},
                                {"cell D", phase, 0, kp::slot::cell_a + 3, 4e-6f},
                                {"cell E", phase, 0, kp::slot::cell_a + 4, 4e-6f},
                                {"cell F", phase, 0, kp::slot::cell_f, 4e-6f}});
}

TEST(SecondWavelength, HasItsOwnWidthsAndTheirDerivatives) {
  kp::state_type st = model_state::quartz(7);
  st.pattern[0].iuvw = 1;
  st.mixes[0].par[kp::slot::w2] = 0.02f;
  expect_exact_derivatives(st, {{"u", phase, 0, kp::slot::u, 3e-4f},
                                {"w", phase, 0, kp::slot::w, 3e-4f},
                                {"u2", phase, 0, kp::slot::u2, 3e-4f},
                                {"v2", phase, 0, kp::slot::v2, 3e-4f},
                                {"w2", phase, 0, kp::slot::w2, 3e-4f}});
}

TEST(SharedParameter, MultipliersWeightTheSlotsThatShareIt) {
  // B of both atoms on one number, the second moving half as far; then alone on its reference
  kp::state_type st = model_state::quartz(0);
  st.atom[1].n_t = 0;
  st.atom[1].xl[kp::aslot::biso] = 0.7f;
  st.atom[0].a[kp::aslot::biso] = 11.f;
  st.atom[1].a[kp::aslot::biso] = 10.5f;
  st.run.maxs = 1;
  model_state::set_up(st);
  st.ne.reset(1);
  kv_iterate_calc_cw::calc_patterns_2theta(st, 0, true);
  const float h = 0.05f;
  std::array<std::vector<double>, 2> at;
  for (const int sign : {1, -1}) {
    st.atom[0].xl[kp::aslot::biso] = 0.6f + sign * h;
    st.atom[1].xl[kp::aslot::biso] = 0.7f + sign * 0.5f * h;
    at[sign > 0 ? 0 : 1] = model_state::calculated(st);
  }
  double sum = 0.0;
  for (std::size_t i = 0; i < at[0].size(); ++i)
    sum += std::pow((at[0][i] - at[1][i]) / (2.0 * static_cast<double>(h)), 2);
  EXPECT_NEAR(st.ne.rjac(0, 0) / sum, 1.0, 1e-3);
}

}  // namespace

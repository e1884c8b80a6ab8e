// A state of one pattern and some phases, filled by hand. Tests only.
#pragma once
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "kalvaris_params.hpp"

namespace small_state {

inline constexpr double rad = std::numbers::pi / 180.0;

/// Reciprocal metric A..F from a, b, c, alpha, beta, gamma by vector products of explicit axes.
inline std::array<double, 6> reciprocal_metric(const std::array<double, 6>& cell) {
  using vec = std::array<double, 3>;
  const auto [a, b, c, al, be, ga] = cell;
  const double ca = std::cos(al * rad), cb = std::cos(be * rad), cg = std::cos(ga * rad), sg = std::sin(ga * rad);
  const double cy = (ca - cb * cg) / sg;
  const vec va{a, 0, 0}, vb{b * cg, b * sg, 0}, vc{c * cb, c * cy, c * std::sqrt(1 - cb * cb - cy * cy)};
  const auto cross = [](const vec& p, const vec& q) {
    return vec{p[1] * q[2] - p[2] * q[1], p[2] * q[0] - p[0] * q[2], p[0] * q[1] - p[1] * q[0]};
  };
  const auto dot = [](const vec& p, const vec& q) { return p[0] * q[0] + p[1] * q[1] + p[2] * q[2]; };
  const double v = dot(va, cross(vb, vc));
  vec ra = cross(vb, vc), rb = cross(vc, va), rc = cross(va, vb);
  for (vec* r : {&ra, &rb, &rc})
    for (double& x : *r) x /= v;
  return {dot(ra, ra), dot(rb, rb), dot(rc, rc), 2 * dot(rb, rc), 2 * dot(ra, rc), 2 * dot(ra, rb)};
}

struct fixture {
  kalvaris_params::state_type st;
  std::ostringstream console;
  kalvaris_params::pattern_type& pattern() { return st.pattern[0]; }
};

inline void set_cell(kalvaris_params::state_type& st, int ph, const std::array<double, 6>& cell) {
  auto& par = st.mix(ph, 0).par;
  const auto metric = reciprocal_metric(cell);
  for (std::size_t i = 0; i < 6; ++i) par[kalvaris_params::slot::cell_a + i] = static_cast<float>(metric[i]);
}

/// Neutrons of 1.5 angstrom, one wavelength, 10 to 120 deg in steps of 0.05, cubic cell of 5 angstrom, FWHM 0.2 deg.
inline fixture make(int nphase = 1) {
  fixture f;
  f.st.run.n_patt = 1;
  f.st.run.nphase = nphase;
  f.st.pattern.resize(1);
  f.st.phase.resize(static_cast<std::size_t>(nphase));
  f.st.mixes.resize(static_cast<std::size_t>(nphase));
  auto& p = f.pattern();
  p.jobtyp = kalvaris_params::job::neutrons;
  p.lamda = {1.5f, 1.5f};
  p.ratio = {1.f, 0.f};
  p.single_wave = true;
  p.thmin = 10.f, p.step = 0.05f, p.thmax = 120.f, p.npts = 2201;
  p.rlim = 0.f;
  const auto n = static_cast<std::size_t>(p.npts);
  for (std::size_t i = 0; i <= n; ++i) p.txv.push_back(10.f + 0.05f * static_cast<float>(i));
  p.y.assign(n, 0.f), p.var.assign(n, 1.f), p.bk.assign(n, 0.f);
  for (int ph = 0; ph < nphase; ++ph) {
    auto& mix = f.st.mix(ph, 0);
    mix.npro = 0;
    mix.par[kalvaris_params::slot::scale] = 1.f;
    mix.par[kalvaris_params::slot::w] = 0.04f;
    set_cell(f.st, ph, {5, 5, 5, 90, 90, 90});
  }
  return f;
}

/// Text of the stop that the call ends in; blank when it does not stop.
template <class F>
std::string stop_text(F&& call) {
  try {
    call();
  } catch (const kalvaris_inout::run_stopped& stop) {
    return stop.text;
  }
  return "";
}

}  // namespace small_state

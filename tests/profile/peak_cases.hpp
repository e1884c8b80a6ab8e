// Peaks of every kind for the tests of this room.
#pragma once
#include <vector>

#include "kv_profil.hpp"

namespace peak_cases {

template <class R>
kv_profil::peak<R> base(int npr) {
  kv_profil::peak<R> p;
  p.npr = npr;
  p.position = 24.0137;
  p.cut_off = R(30);
  p.H = R(0.11);
  p.H_right = R(0.07);
  p.HG = R(0.08);
  p.HL = R(0.05);
  p.eta = npr == 6 ? R(1.7) : R(0.35);
  p.eta_right = R(0.7);
  p.deta_dH = npr == 5 || npr == 11 || npr == 12 ? R(0.8) : R(0);
  p.ci = R(0.15);
  p.cd = R(0.25);
  p.dd = R(0.06);
  p.tan_theta = R(0.2127);
  p.tan_2theta = R(0.4455);
  return p;
}

template <class R>
kv_profil::peak<R> asymmetric(int npr) {
  auto p = base<R>(npr);
  p.use_asym = true;
  p.p1 = R(0.03);
  p.p2 = R(0.01);
  p.p3 = R(-0.02);
  p.p4 = R(0.015);
  return p;
}

inline const std::vector<int> all_npr{0, 1, 2, 3, 4, -4, 5, 6, 7, 11, 12};

}  // namespace peak_cases

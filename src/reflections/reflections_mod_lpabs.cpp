// Angle-only factors of an intensity: Lorentz, polarisation, absorption, illumination.
#include <cmath>
#include <numbers>

#include "intensity_correction.hpp"
#include "reflections_mod.hpp"

namespace reflections_mod {

namespace {

namespace job = kalvaris_params::job;
constexpr double rad = std::numbers::pi / 180.0;

bool xrays(const lpabs_model& m) { return m.jobtyp == job::xrays || m.jobtyp == job::calc_x; }

/// Part of the beam that meets the sample; all of it when sent0 is not above 0.
double illumination(const lpabs_model& m, double sinth) {
  const bool acts = xrays(m) && (m.ilor == -1 || m.ilor == 0 || m.ilor == 3);
  const double limit = std::sin(0.5 * m.sent0 * rad);
  return acts && sinth <= limit ? sinth / limit : 1.0;
}

/// Cylinder, mu R up to about 1.5: Rouse, Cooper, York & Chakera, Acta Cryst. A26 (1970) 682. t = mu R.
double cylinder_quadratic(double t, double sinth2) {
  return std::exp(((0.0368 * sinth2 - 1.7133) + (0.375 * sinth2 + 0.0927) * t) * t);
}

/// Cylinder of any mu R by the series of Lobanov & Alte da Veiga (1998).
/// kept: s is sin(theta) where the published series has its square, so that the value is 11 % high at mu R 1 and
/// 2theta 60 deg (test Absorption.CylinderSeriesAgainstIntegration, which reaches the published one by s -> s^2).
double cylinder_series(double t, double s) {
  const double r = std::sqrt(s);
  if (t <= 3) {
    const double k1 = std::exp(-0.024514 * s) * (25.99978 - 0.01911 * std::sqrt(r)) + 0.109561 * r - 26.0456;
    const double k2 =
        r * (0.871081 * s * s + 1.219077 * s) - 1.31268 * s * s - 0.2327 * s * s * s - 0.39499 * s - 0.02489;
    const double k3 = -0.03305 * s * s + 0.018167 * s + 0.003045;
    return std::exp(t * (-1.697653 - t * (k1 + t * (k2 + t * k3))));
  }
  const double v = (-0.0336778 * s + 0.1002088) * s - 0.0877629;
  const double p = std::pow(1 + 0.41051 * s, -148.42020);
  const double b = (0.013869 - 0.01249 * s) * std::exp(3.27094 * s) +
                   (0.337894 + 13.77317 * s) * std::pow(1 + 11.53544 * s, -1.555039);
  const double exponent = 1.933433 * std::pow(1 + 23.12967 * s, -1.686715) - 0.13576 * r + 1.163198;
  const double a7 = 0.00044365 - 0.0004259 * p;
  const double a4 = (s * v + 0.11075504) * s + 0.0004259 * p + 0.013895369;
  return std::pow(1 + b * (t - 3), -exponent) * a4 + a7;
}

/// Plate in transmission with a fixed incident angle.
double inclined_plate(double t, double alpsd, double two_theta) {
  const double in = std::sin(alpsd * rad), out = std::sin((alpsd + two_theta) * rad);
  if (!(out > 0)) return 0;
  if (!(in > 0)) return std::exp(-t / out);
  const double difference = 1 - in / out;
  if (std::abs(difference) < 1e-4) return t / in * std::exp(-t / in);  // the limit of equal paths
  return (std::exp(-t / out) - std::exp(-t / in)) / difference;
}

double absorption(const lpabs_model& m, double sinth2, double sinth, double costh, double two_theta) {
  const double t = m.tmv;
  if (t < 1e-6) return 1;
  switch (m.ilor) {
    case 2:
      return std::exp(-t / costh) / costh;
    case 4:
      return inclined_plate(t, m.alpsd, two_theta);
    case -2:
    case 0:
    case 3:
      return m.iabscor == 2 ? cylinder_quadratic(t, sinth2) : m.iabscor == 4 ? cylinder_series(t, sinth) : 1.0;
    default:
      return 1;
  }
}

/// Layer under other layers: what they let through, times its own share.
double layers(const lpabs_model& m, double sinth) {
  double a = std::exp(-2 * m.rmua_above / sinth);
  if (m.rmua > 1e-5) a *= -std::expm1(-2 * m.rmua / sinth) / (2 * m.rmua);
  return a;
}

/// 1/(2 sin^2 cos) over the widening of the beam on a flat plate. Not for ilor -1.
double lorentz(const lpabs_model& m, double sinth2, double costh, double two_theta) {
  if (m.ilor == -1) return 1;
  double widening = 1;
  if (m.ilor == 1) {
    const double out = std::sin((two_theta - m.alpsd) * rad);
    if (!(out > 0)) return 0;  // the plate hides the beam; the limit of the formula
    widening += std::sin(m.alpsd * rad) / out;
  }
  return 1 / (2 * widening * sinth2 * costh);
}

/// Polarisation with the illumination that belongs to it.
double polarisation(const lpabs_model& m, double sinth2, double sinth) {
  const bool acts = m.jobtyp == job::xrays || (m.jobtyp == job::calc_x && m.ilor != -1);
  if (!acts) return 1;
  const double cos2 = 1 - 2 * sinth2, c2 = cos2 * cos2, k = m.rkk;
  const double partial = c2 * k + 1 - k;
  if (m.instr == 4) return partial;
  switch (m.ilor) {
    case 0:
    case 1:
    case 6:
      return (1 + m.cthm * c2) * illumination(m, sinth);
    case 2:
    case 4: {
      const double root = std::sqrt(m.cthm);
      const double p = (1 - k) * (1 + c2 * root) / (1 + root) + k * (1 + c2 * m.cthm) / (1 + m.cthm);
      return p * illumination(m, sinth);
    }
    case -2:
    case 3:
      return partial;
    default:
      return 1;
  }
}

}  // namespace

lpabs_model make_lpabs_model(const kalvaris_params::state_type& st, int ip, int ph, int wave) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  lpabs_model m;
  m.ilor = pattern.ilor;
  m.instr = pattern.instr;
  m.iabscor = pattern.iabscor;
  m.jobtyp = std::abs(pattern.jobtyp);
  m.sent0 = pattern.sent0;
  m.alpsd = pattern.alpsd;
  m.cthm = pattern.cthm;
  m.rkk = pattern.rkk;
  m.tmv = pattern.tmv[static_cast<std::size_t>(wave - 1)];
  m.rmua = st.mix(ph, ip).rmua;
  for (int above = 0; above < ph; ++above) m.rmua_above += st.mix(above, ip).rmua;
  if (intensity_correction::acts_on_reflections(pattern)) {
    m.icorr = pattern.icorr;
    m.from_file = &pattern.correction;
  }
  return m;
}

// The slit factor of ilor 6, 2 tan(a) sin/((sin^2 - tan^2(a) cos^2) sin(a) (1/sin(th + a) + 1/sin(th - a))), is 1 for
// every slit a and angle th, so that it is not computed.
double lpabs(const lpabs_model& m, double sinth2, double sinth, double costh, double two_theta) {
  const bool layered = xrays(m) && (m.ilor == 5 || m.ilor == 6);
  const double a = layered ? layers(m, sinth) : absorption(m, sinth2, sinth, costh, two_theta);
  const double lp = a * lorentz(m, sinth2, costh, two_theta) * polarisation(m, sinth2, sinth);
  return m.from_file == nullptr ? lp : lp * intensity_correction::corr_int(*m.from_file, m.icorr, two_theta);
}

}  // namespace reflections_mod

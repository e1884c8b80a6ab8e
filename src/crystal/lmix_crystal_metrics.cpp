#include "lmix_crystal_metrics.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace lmix_crystal_metrics {

using namespace lmix_math_general;

namespace {

constexpr double degree = std::numbers::pi / 180.0;

struct frame_code {
  frame code;
  std::string_view text;
};
constexpr std::array<frame_code, 5> frame_codes{
    {{frame::CA, "CA"}, {frame::AC, "AC"}, {frame::BC, "BC"}, {frame::BA, "BA"}, {frame::CB, "CB"}}};

std::string_view text_of(frame code) {
  return std::find_if(frame_codes.begin(), frame_codes.end(), [&](const frame_code& f) { return f.code == code; })
      ->text;
}

std::string upper_case_without_blanks(std::string_view text) {
  std::string result;
  for (const char ch : text)
    if (ch != ' ' && ch != '\t') result += ch >= 'a' && ch <= 'z' ? static_cast<char>(ch - 'a' + 'A') : ch;
  return result;
}

constexpr std::string_view bad_cell = " Bad cell parameters ";

/// A number with its derivatives by a, b, c, alpha, beta, gamma: the product rule once, instead of by hand in five
/// frames.
struct gradient {
  double v = 0;
  std::array<double, 6> d{};
};
gradient combine(double v, const gradient& x, double by_x, const gradient& y, double by_y) {
  gradient r{v, {}};
  for (std::size_t i = 0; i < 6; ++i) r.d[i] = x.d[i] * by_x + y.d[i] * by_y;
  return r;
}
gradient operator*(const gradient& x, const gradient& y) { return combine(x.v * y.v, x, y.v, y, x.v); }
gradient operator-(const gradient& x, const gradient& y) { return combine(x.v - y.v, x, 1, y, -1); }
gradient operator/(const gradient& x, const gradient& y) {
  return combine(x.v / y.v, x, 1 / y.v, y, -x.v / (y.v * y.v));
}
gradient operator-(const gradient& x) { return gradient{} - x; }
gradient sine_from_cosine(const gradient& c) {
  const double s = std::sqrt(std::max(1 - c.v * c.v, 0.0));
  return combine(s, c, -c.v / s, c, 0);
}
double sine_from_cosine(double c) { return std::sqrt(std::max(1 - c * c, 0.0)); }

/// Lengths, cosines and sines of a cell, and those of the reciprocal angles from the direct ones.
template <class T>
struct trigonometry {
  std::array<T, 3> len, c, s, cr, sr;
  void reciprocal() {
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
      cr[i] = (c[j] * c[k] - c[i]) / (s[j] * s[k]);
      sr[i] = sine_from_cosine(cr[i]);
    }
  }
};

trigonometry<double> trigonometry_of(const vec3d& cell, const vec3d& ang) {
  trigonometry<double> t;
  for (std::size_t i = 0; i < 3; ++i) {
    t.len[i] = cell[i];
    t.c[i] = cosd(ang[i]);
    t.s[i] = sind(ang[i]);
  }
  t.reciprocal();
  return t;
}

trigonometry<gradient> gradients_of(const vec3d& cell, const vec3d& ang) {
  trigonometry<gradient> t;
  for (std::size_t i = 0; i < 3; ++i) {
    t.len[i].v = cell[i];
    t.len[i].d[i] = 1;
    t.c[i].v = cosd(ang[i]);
    t.c[i].d[3 + i] = -sind(ang[i]) * degree;
    t.s[i].v = sind(ang[i]);
    t.s[i].d[3 + i] = cosd(ang[i]) * degree;
  }
  t.reciprocal();
  return t;
}

/// a, b, c in the Cartesian frame.
template <class T>
std::array<std::array<T, 3>, 3> cartesian_axes(const trigonometry<T>& t, frame code) {
  const auto& [a, b, c] = t.len;
  const auto& [ca, cb, cg] = t.c;
  const auto& [sa, sb, sg] = t.s;
  const auto& [car, cbr, cgr] = t.cr;
  const auto& [sar, sbr, sgr] = t.sr;
  const T o{};
  switch (code) {
    case frame::AC:
      return {{{a, o, o}, {b * cg, b * sg, o}, {c * cb, -(c * sb * car), c * sb * sar}}};
    case frame::BC:
      return {{{a * sg, a * cg, o}, {o, b, o}, {-(c * sa * cbr), c * ca, c * sa * sbr}}};
    case frame::BA:
      return {{{a * sg * sbr, a * cg, -(a * sg * cbr)}, {o, b, o}, {o, c * ca, c * sa}}};
    case frame::CB:
      return {{{a * sb, o, a * cb}, {-(b * sa * cgr), b * sa * sgr, b * ca}, {o, o, c}}};
    case frame::CA:
      break;
  }
  return {{{a * sb * sgr, -(a * sb * cgr), a * cb}, {o, b * sa, b * ca}, {o, o, c}}};
}

/// Busing and Levy's B in their own frame, x along a*, z along c.
mat3d busing_levy(const reciprocal_cell<double>& r, const vec3d& cell, const vec3d& ang) {
  return {{{r.rcell[0], r.rcell[1] * cosd(r.rang[2]), r.rcell[2] * cosd(r.rang[1])},
           {0, r.rcell[1] * sind(r.rang[2]), -r.rcell[2] * sind(r.rang[1]) * cosd(ang[0])},
           {0, 0, 1 / cell[2]}}};
}

/// (V/abc)^2 within the rounding of its terms in single precision, the precision of the angles: (120, 120, 120) must
/// not pass by a rounding error. True for NaN.
bool is_flat(const reciprocal_cell<double>& r, const vec3d& len) {
  const double height = r.vol / (len[0] * len[1] * len[2]);
  return !(height * height > 8 * double{std::numeric_limits<float>::epsilon()});
}

}  // namespace

std::optional<frame> find_frame(std::string_view cartype) {
  const std::string code = upper_case_without_blanks(cartype);
  if (code.size() < 2) return code == "A" ? frame::AC : code == "B" ? frame::BC : frame::CA;
  const auto hit =
      std::find_if(frame_codes.begin(), frame_codes.end(), [&](const frame_code& f) { return f.text == code; });
  return hit == frame_codes.end() ? std::nullopt : std::optional<frame>(hit->code);
}

mat3d get_cryst_orthog_matrix(const vec3d& cellv, const vec3d& ang, frame code) {
  return transpose<double>(cartesian_axes(trigonometry_of(cellv, ang), code));
}

crys_error get_cryst_orthog_matrix(const vec3f& cellv, const vec3f& ang, mat3f& crystort, std::string_view cartype) {
  const auto code = find_frame(cartype);
  crystort =
      convert<float>(get_cryst_orthog_matrix(convert<double>(cellv), convert<double>(ang), code.value_or(frame::CA)));
  if (code) return {};
  return crys_error::because("Invalid CarType in call to Get_Cryst_Orthog_Matrix. Reset to default");
}

crys_error set_crystal_cell(vec3f cellp, vec3f angl, crystal_cell_type& cell, std::string_view cartype,
                            const vec3f* scell, const vec3f* sangl) {
  crystal_cell_type record;
  if (scell != nullptr && sangl != nullptr) {
    record.cell_std = *scell;
    record.ang_std = *sangl;
  }
  for (float& angle : angl)
    if (angle < 1e-5f) angle = 90.f;
  record.cell = cellp;
  record.ang = angl;

  const vec3d len = convert<double>(cellp), ang = convert<double>(angl);
  const auto r = recip(len, ang);
  record.rcell = convert<float>(r.rcell);
  record.rang = convert<float>(r.rang);
  record.cellvol = static_cast<float>(r.vol);
  record.rcellvol = static_cast<float>(r.volr);

  const frame code = find_frame(cartype).value_or(frame::CA);
  const crys_error report = get_cryst_orthog_matrix(cellp, angl, record.cr_orth_cel, cartype);
  std::copy_n(text_of(code).begin(), 2, record.cartype.begin());
  const mat3d orthog = get_cryst_orthog_matrix(len, ang, code);
  const auto orthog_inverse = inverse(orthog);
  const mat3d b = busing_levy(r, len, ang);
  const auto b_inverse = inverse(b);
  cell = record;
  if (is_flat(r, len) || !orthog_inverse || !b_inverse) return crys_error::because(bad_cell);

  cell.orth_cr_cel = convert<float>(*orthog_inverse);
  cell.stdvol = cell_volume_sigma(cell);
  cell.gd = convert<float>(metrics(len, ang));
  cell.gr = convert<float>(metrics(r.rcell, r.rang));
  // In the frame CA the rows of the inverse are a*, b*, c* in Busing and Levy's own frame.
  cell.bl_m = code == frame::CA ? transpose(cell.orth_cr_cel) : convert<float>(b);
  cell.bl_minv = code == frame::CA ? transpose(cell.cr_orth_cel) : convert<float>(*b_inverse);
  return report;
}

float volume_from_cell(const vec3f& cell, const vec3f& ang) {
  return static_cast<float>(recip(convert<double>(cell), convert<double>(ang)).vol);
}

float volume_sigma_from_cell(const vec3f& cell, const vec3f& ang, const vec3f& scell, const vec3f& sang) {
  constexpr double small = 1e-5;
  const auto sum = [](const vec3f& v) {
    return std::abs(double{v[0]}) + std::abs(double{v[1]}) + std::abs(double{v[2]});
  };
  if (sum(scell) < small && sum(sang) < small) return 0.f;
  const auto t = trigonometry_of(convert<double>(cell), convert<double>(ang));
  const double d = 1 + 2 * t.c[0] * t.c[1] * t.c[2] - dot(t.c, t.c);
  double ratio = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const double relative = double{scell[i]} / t.len[i];
    ratio += relative * relative;
    if (sum(sang) > small) {  // dV/V = sin alpha (cos alpha - cos beta cos gamma) d alpha / D, and cyclic
      const double slope = t.s[i] * (t.c[i] - t.c[(i + 1) % 3] * t.c[(i + 2) % 3]) / d * degree * double{sang[i]};
      ratio += slope * slope;
    }
  }
  return static_cast<float>(std::sqrt(ratio) * double{volume_from_cell(cell, ang)});
}

float cell_volume_sigma(const crystal_cell_type& cell) {
  return volume_sigma_from_cell(cell.cell, cell.ang, cell.cell_std, cell.ang_std);
}

// ---- displacement parameters

namespace {

constexpr float b_per_u = 78.95683f;          // 8 pi^2
constexpr float u_per_b = 0.012665148f;       // 1/(8 pi^2)
constexpr float two_pi_squared = 19.739208f;  // 2 pi^2

/// a*_i a*_j in the order of the components; the diagonal from the reciprocal tensor.
six_reals reciprocal_products(const crystal_cell_type& cell) {
  const vec3f& r = cell.rcell;
  return {cell.gr[0][0], cell.gr[1][1], cell.gr[2][2], r[0] * r[1], r[0] * r[2], r[1] * r[2]};
}
six_reals scaled(const six_reals& x, float factor) {
  six_reals y;
  std::transform(x.begin(), x.end(), y.begin(), [&](float v) { return v * factor; });
  return y;
}
six_reals multiplied(const six_reals& x, const six_reals& y, float factor) {
  six_reals z;
  std::transform(x.begin(), x.end(), y.begin(), z.begin(), [&](float v, float w) { return v * w * factor; });
  return z;
}
six_reals divided(const six_reals& x, const six_reals& y, float divisor) {
  six_reals z;
  std::transform(x.begin(), x.end(), y.begin(), z.begin(), [&](float v, float w) { return v / (w * divisor); });
  return z;
}

}  // namespace

six_reals convert_b_u(const six_reals& b) { return scaled(b, u_per_b); }
six_reals convert_u_b(const six_reals& u) { return scaled(u, b_per_u); }
six_reals convert_b_betas(const six_reals& b, const crystal_cell_type& cell) {
  return multiplied(b, reciprocal_products(cell), 0.25f);
}
six_reals convert_betas_b(const six_reals& beta, const crystal_cell_type& cell) {
  return divided(beta, reciprocal_products(cell), 0.25f);
}
six_reals convert_u_betas(const six_reals& u, const crystal_cell_type& cell) {
  return multiplied(u, reciprocal_products(cell), two_pi_squared);
}
six_reals convert_betas_u(const six_reals& beta, const crystal_cell_type& cell) {
  return divided(beta, reciprocal_products(cell), two_pi_squared);
}

float u_equiv(const crystal_cell_type& cell, const six_reals& th_u) {
  const float a = cell.cell[0] * cell.rcell[0], b = cell.cell[1] * cell.rcell[1], c = cell.cell[2] * cell.rcell[2];
  return 0.33333334f * (th_u[0] * a * a + th_u[1] * b * b + th_u[2] * c * c +
                        2.f * (th_u[3] * a * b * cosd(cell.ang[2]) + th_u[4] * a * c * cosd(cell.ang[1]) +
                               th_u[5] * b * c * cosd(cell.ang[0])));
}

// ---- vectors

void cart_vector(std::string_view mode, const vec3f& v, const crystal_cell_type& cell, vec3f& c) {
  if (mode == "D" || mode == "d") {
    c = multiply(cell.cr_orth_cel, v);
  } else if (mode == "R" || mode == "r") {
    c = multiply(cell.cr_orth_cel, multiply(cell.gr, v));
  } else if (mode == "BL" || mode == "bl") {
    c = multiply(cell.bl_m, c);  // kept: this mode takes its vector from the result (test CartVector.ModesAgree)
  } else if (mode == "BLD" || mode == "bld") {
    c = multiply(cell.bl_m, multiply(cell.gd, v));
  }
}

void cart_u_vector(std::string_view mode, const vec3f& v, const crystal_cell_type& cell, vec3f& c) {
  cart_vector(mode, v, cell, c);
  const float length = norm(c);
  if (length > 0.f)
    for (float& x : c) x /= length;
}

mat3f rot_matrix(const vec3f& u, float phi, const crystal_cell_type* cell) {
  vec3d n = convert<double>(cell != nullptr ? multiply(cell->cr_orth_cel, u) : u);
  const double length = norm(n);
  if (length < double{std::numeric_limits<float>::min()}) {
    n = {0, 0, 1};
  } else {
    for (double& x : n) x /= length;
  }
  const double c = cosd(double{phi}), s = sind(double{phi}), v = 1 - c;
  return convert<float>(mat3d{{{c + n[0] * n[0] * v, n[0] * n[1] * v - n[2] * s, n[0] * n[2] * v + n[1] * s},
                               {n[1] * n[0] * v + n[2] * s, c + n[1] * n[1] * v, n[1] * n[2] * v - n[0] * s},
                               {n[2] * n[0] * v - n[1] * s, n[2] * n[1] * v + n[0] * s, c + n[2] * n[2] * v}}});
}

float angle_to_cell_axis(int iaxis, const vec3f& v, std::string_view mode, const crystal_cell_type& cell) {
  if (iaxis < 1 || iaxis > 3) return 0.f;
  vec3f unit{}, axis{};
  unit[static_cast<std::size_t>(iaxis) - 1] = 1.f;
  const bool reciprocal = !mode.empty() && (mode[0] == 'R' || mode[0] == 'r');
  cart_vector(reciprocal ? "R" : "D", unit, cell, axis);
  const float lengths = norm(axis) * norm(v);
  return lengths > 0.f ? acosd(dot(axis, v) / lengths) : 0.f;
}

crys_error get_deriv_orth_cell(const crystal_cell_type& cell, std::array<mat3f, 6>& de_orthcell,
                               std::string_view cartype) {
  const auto code = find_frame(cartype);
  if (!code) return crys_error::because("Invalid CarType in call to Get_Deriv_Orth_Cell");
  const auto axes = cartesian_axes(gradients_of(convert<double>(cell.cell), convert<double>(cell.ang)), *code);
  for (std::size_t k = 0; k < 6; ++k)
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j) de_orthcell[k][i][j] = static_cast<float>(axes[j][i].d[k]);
  return {};
}

// ---- lattice

crys_error get_cryst_family(const crystal_cell_type& cell, cryst_family& family) {
  const auto equal = [](float x, float y) { return std::abs(x - y) < 1e-4f; };
  const crys_error no_family = crys_error::because(" Error obtaining Crystal Familiy");
  const bool b_is_a = equal(cell.cell[1], cell.cell[0]), c_is_a = equal(cell.cell[2], cell.cell[0]);
  const bool beta_is_alpha = equal(cell.ang[1], cell.ang[0]), gamma_is_alpha = equal(cell.ang[2], cell.ang[0]);
  const bool alpha_is_90 = equal(cell.ang[0], 90.f);
  const auto found = [&](const char* name, const char* symbol, const char* system = nullptr) {
    family = {name, symbol, system == nullptr ? name : system};
    return crys_error{};
  };
  if (!beta_is_alpha && !gamma_is_alpha) return found("Triclinic", "a");
  if (beta_is_alpha && gamma_is_alpha) {
    if (!alpha_is_90) return b_is_a && c_is_a ? found("Hexagonal", "h", "Trigonal") : no_family;
    if (b_is_a) return c_is_a ? found("Cubic", "c") : found("Tetragonal", "t");
    return c_is_a ? no_family : found("Orthorhombic", "o");
  }
  if (beta_is_alpha) {
    if (!equal(cell.ang[2], 120.f)) return found("Monoclinic", "m");
    return b_is_a ? found("Hexagonal", "h") : no_family;
  }
  return alpha_is_90 ? found("Monoclinic", "m") : no_family;
}

}  // namespace lmix_crystal_metrics

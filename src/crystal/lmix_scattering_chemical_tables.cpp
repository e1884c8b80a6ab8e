#include "lmix_scattering_chemical_tables.hpp"

#include <algorithm>

#include "lmix_math_general.hpp"

namespace lmix_scattering_chemical_tables {
namespace {

constexpr float none = std::numeric_limits<float>::quiet_NaN();

constexpr auto chem_info_table = std::to_array<chem_info_type>({
#include "tables/chem_info.inc"
});
static_assert(chem_info_table.size() == 109);

constexpr auto neutron_isotopes_table = std::to_array<neutron_isotope_type>({
#include "tables/neutron_isotopes.inc"
});
static_assert(neutron_isotopes_table.size() == 271);

constexpr auto xray_form_table = std::to_array<xray_form_type>({
#include "tables/xray_form.inc"
});
static_assert(xray_form_table.size() == 214);

constexpr auto xray_form_alt_table = std::to_array<xray_form_type>({
#include "tables/xray_form_alt.inc"
});

constexpr auto special_form_table = std::to_array<special_form_type>({
    {"SPHS", "sphere"},
    {"PARA", "parallelepiped"},
    {"ELLI", "ellipsoid"},
    {"CYLI", "cylinder"},
    {"SASH", "form factor in symmetry-adapted spherical harmonics"},
    {"TORE", "torus"},
    {"SPHE", "spherical shell"},
    {"ANOM", "anisotropic anomalous scatterer"},
    {"MPOL", "multipoles"},
    {"DIPO", "dipole"},
    {"QUAD", "quadrupole"},
    {"HXAP", "hexapole"},
    {"OCTU", "octupole"},
    {"DISP", "dispersion tensor"},
    {"MULT", "multipole expansion"},
});

constexpr auto anomalous_table = std::to_array<anomalous_scfac_type>({
#include "tables/anomalous_scfac.inc"
});
static_assert(anomalous_table.size() == 98);

constexpr auto wavelength_table = std::to_array<xray_wavelength_type>({
#include "tables/xray_wavelengths.inc"
});
static_assert(wavelength_table.size() == std::tuple_size_v<decltype(anomalous_scfac_type::fp)>);

constexpr auto magnetic_j0_table = std::to_array<magnetic_form_type>({
#include "tables/magnetic_dipole_fit.inc"
#include "tables/magnetic_j0.inc"
});
constexpr auto magnetic_j2_table = std::to_array<magnetic_form_type>({
#include "tables/magnetic_j2.inc"
});
constexpr auto magnetic_j4_table = std::to_array<magnetic_form_type>({
#include "tables/magnetic_j4.inc"
});
constexpr auto magnetic_j6_table = std::to_array<magnetic_form_type>({
#include "tables/magnetic_j6.inc"
});
static_assert(magnetic_j0_table.size() == 97 + 35);
static_assert(magnetic_j2_table.size() == 97 && magnetic_j4_table.size() == 97 && magnetic_j6_table.size() == 39);

constexpr auto magnetic_dipole_table = std::to_array<magnetic_dipole_type>({
#include "tables/magnetic_dipole.inc"
});

constexpr auto ionic_radius_table = std::to_array<ionic_radius_type>({
#include "tables/ionic_radii.inc"
});
static_assert(ionic_radius_table.size() == 493);

// Labels are plain ASCII: the locale must not change what a label means.
constexpr bool is_digit(char ch) { return ch >= '0' && ch <= '9'; }
constexpr char to_upper(char ch) { return ch >= 'a' && ch <= 'z' ? static_cast<char>(ch - 'a' + 'A') : ch; }
constexpr char to_lower(char ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch; }
constexpr bool is_letter(char ch) { return to_upper(ch) >= 'A' && to_upper(ch) <= 'Z'; }

std::string_view without_leading_blanks(std::string_view label) {
  const auto first = label.find_first_not_of(" \t");
  return first == std::string_view::npos ? std::string_view{} : label.substr(first);
}

std::array<char, 4> key_of(std::string_view label) {
  std::array<char, 4> key{' ', ' ', ' ', ' '};
  label = without_leading_blanks(label).substr(0, 4);
  std::transform(label.begin(), label.end(), key.begin(), to_lower);
  return key;
}

template <class Row>
const Row* find_by_key(std::span<const Row> table, std::string_view label) {
  const std::array<char, 4> key = key_of(label);
  const auto hit = std::find_if(table.begin(), table.end(),
                                [&](const Row& row) { return row.symb == std::string_view(key.data(), key.size()); });
  return hit == table.end() ? nullptr : &*hit;
}

std::optional<float> given(float value) { return std::isnan(value) ? std::nullopt : std::optional<float>(value); }

std::optional<float> element_value(std::string_view label, float chem_info_type::*field) {
  const chem_info_type* row = find_element(label);
  return row == nullptr ? std::nullopt : given(row->*field);
}

const neutron_isotope_type* find_isotope(int z, int mass) {
  const auto hit = std::find_if(neutron_isotopes_table.begin(), neutron_isotopes_table.end(),
                                [&](const neutron_isotope_type& row) { return row.z == z && row.mass == mass; });
  return hit == neutron_isotopes_table.end() ? nullptr : &*hit;
}

}  // namespace

std::span<const chem_info_type> chem_info() { return chem_info_table; }
std::span<const neutron_isotope_type> neutron_isotopes() { return neutron_isotopes_table; }
std::span<const xray_form_type> xray_form() { return xray_form_table; }
std::span<const xray_form_type> xray_form_alt() { return xray_form_alt_table; }
std::span<const special_form_type> special_forms() { return special_form_table; }
std::span<const anomalous_scfac_type> anomalous_scfac() { return anomalous_table; }
std::span<const xray_wavelength_type> xray_wavelengths() { return wavelength_table; }
std::span<const magnetic_form_type> magnetic_form() { return magnetic_j0_table; }
std::span<const magnetic_form_type> magnetic_j2() { return magnetic_j2_table; }
std::span<const magnetic_form_type> magnetic_j4() { return magnetic_j4_table; }
std::span<const magnetic_form_type> magnetic_j6() { return magnetic_j6_table; }
std::span<const magnetic_dipole_type> magnetic_dipole() { return magnetic_dipole_table; }
std::span<const ionic_radius_type> ionic_radii() { return ionic_radius_table; }

label_parts split_label(std::string_view label) {
  label = without_leading_blanks(label);
  label_parts parts;
  std::size_t i = 0;
  for (; i < label.size() && i < 3 && is_digit(label[i]); ++i) parts.mass = 10 * parts.mass + (label[i] - '0');
  for (; i < label.size() && parts.symb.size() < 2 && is_letter(label[i]); ++i) parts.symb += to_upper(label[i]);
  if (parts.symb.size() == 1) parts.symb += ' ';
  return parts;
}

std::string get_chemsymb(std::string_view label) {
  std::string symb = split_label(label).symb;
  return symb.empty() ? "  " : symb;
}

std::string symbol_text(std::string_view symb) {
  std::string text;
  for (const char ch : symb.substr(0, 2))
    if (is_letter(ch)) text += text.empty() ? to_upper(ch) : to_lower(ch);
  return text;
}

const chem_info_type* find_element(std::string_view label) {
  const std::string symb = split_label(label).symb;
  const auto hit = std::find_if(chem_info_table.begin(), chem_info_table.end(),
                                [&](const chem_info_type& row) { return row.symb == symb; });
  return hit == chem_info_table.end() ? nullptr : &*hit;
}

std::optional<float> get_atomic_mass(std::string_view label) {
  const int mass = split_label(label).mass;
  const chem_info_type* element = find_element(label);
  if (element == nullptr) return std::nullopt;
  return mass > 0 ? static_cast<float>(mass) : element->atwt;
}

std::optional<float> get_atomic_vol(std::string_view label) { return element_value(label, &chem_info_type::vatm); }
std::optional<float> get_covalent_radius(std::string_view label) { return element_value(label, &chem_info_type::rcov); }

std::optional<float> get_ionic_radius(std::string_view label, int valence) {
  const chem_info_type* row = find_element(label);
  if (row == nullptr || valence < 1 || valence > static_cast<int>(row->rion.size())) return std::nullopt;
  return given(row->rion[static_cast<std::size_t>(valence) - 1]);
}

const ionic_radius_type* find_ionic_radius(std::string_view label, int charge, int coordination) {
  const std::string symb = split_label(label).symb;
  // High spin stands before low spin, and the regular polyhedron before the square one, in each group of rows.
  const auto hit =
      std::find_if(ionic_radius_table.begin(), ionic_radius_table.end(), [&](const ionic_radius_type& row) {
        return row.symb == symb && row.charge == charge && row.coordination == coordination;
      });
  return hit == ionic_radius_table.end() ? nullptr : &*hit;
}

std::optional<neutron_data> find_neutron(std::string_view label) {
  label_parts parts = split_label(label);
  if (parts.symb == "T ") parts = {3, "H "};  // no natural tritium: the letter is the isotope
  const chem_info_type* element = find_element(parts.symb);
  if (element == nullptr) return std::nullopt;
  if (parts.mass == 0) {
    if (std::isnan(element->sctf)) return std::nullopt;
    return neutron_data{element->sctf, element->sctf_im, element->sedinc, element->sea};
  }
  const neutron_isotope_type* isotope = find_isotope(element->z, parts.mass);
  if (isotope == nullptr || std::isnan(isotope->b_coh)) return std::nullopt;
  return neutron_data{isotope->b_coh, isotope->b_coh_im, isotope->xs_inc, isotope->xs_abs};
}

std::optional<float> get_fermi_length(std::string_view label) {
  const auto row = find_neutron(label);
  return row ? std::optional<float>(row->b) : std::nullopt;
}
std::optional<float> get_inc_xs(std::string_view label) {
  const auto row = find_neutron(label);
  return row ? given(row->xs_inc) : std::nullopt;
}
std::optional<float> get_abs_xs(std::string_view label) {
  const auto row = find_neutron(label);
  return row ? given(row->xs_abs) : std::nullopt;
}

const xray_form_type* find_xray_form(std::string_view label) { return find_by_key(xray_form(), label); }

const xray_form_type* find_xray_form_alt(std::string_view label) { return find_by_key(xray_form_alt(), label); }

const special_form_type* find_special_form(std::string_view label) {
  std::array<char, 4> key = key_of(label);
  std::transform(key.begin(), key.end(), key.begin(), to_upper);
  const auto hit =
      std::find_if(special_form_table.begin(), special_form_table.end(),
                   [&](const special_form_type& row) { return row.word == std::string_view(key.data(), key.size()); });
  return hit == special_form_table.end() ? nullptr : &*hit;
}

std::optional<std::size_t> anomalous_line(float lambda) {
  constexpr float reach = 0.005f;  // far below the smallest distance of two lines of the table, 0.117 (Cu, Ni)
  for (std::size_t i = 0; i < wavelength_table.size(); ++i)
    if (std::abs(wavelength_table[i].kalpha1 - lambda) <= reach) return i;
  return std::nullopt;
}

std::optional<delta_f> find_delta_fp_fpp(std::string_view label, float lambda) {
  const auto line = anomalous_line(lambda);
  const chem_info_type* element = find_element(label);
  if (!line || element == nullptr || element->z > static_cast<int>(anomalous_table.size())) return std::nullopt;
  const anomalous_scfac_type& row = anomalous_table[static_cast<std::size_t>(element->z) - 1];
  return delta_f{row.fp[*line], row.fpp[*line]};
}

const magnetic_form_type* find_magnetic_form(std::string_view label, int order) {
  switch (order) {
    case 0:
      return find_by_key(magnetic_form(), label);
    case 2:
      return find_by_key(magnetic_j2(), label);
    case 4:
      return find_by_key(magnetic_j4(), label);
    case 6:
      return find_by_key(magnetic_j6(), label);
    default:
      return nullptr;
  }
}

magnetic_match find_magnetic_form(std::string_view label) {
  label = without_leading_blanks(label);
  int order = 0;
  if (label.size() > 4) {
    const std::string_view tail = without_leading_blanks(label.substr(4));
    const bool told = tail.size() >= 2 && to_lower(tail[0]) == 'j' && is_digit(tail[1]);
    if (told) order = tail[1] - '0';
  }
  return {find_magnetic_form(label, order), order};
}

const magnetic_dipole_type* find_magnetic_dipole(std::string_view label) {
  const std::array<char, 4> key = key_of(label);
  if (key[0] != 'm' && key[0] != 'j') return nullptr;
  const std::string_view ion(key.data() + 1, 3);
  const std::string symb = split_label(ion).symb;
  const auto digit = std::find_if(ion.begin(), ion.end(), is_digit);
  if (digit == ion.end()) return nullptr;
  const auto hit =
      std::find_if(magnetic_dipole_table.begin(), magnetic_dipole_table.end(),
                   [&](const magnetic_dipole_type& row) { return row.symb == symb && row.charge == *digit - '0'; });
  return hit == magnetic_dipole_table.end() ? nullptr : &*hit;
}

std::optional<float> get_magnetic_form_factor(std::string_view label, float s2) {
  const magnetic_form_type* row = find_magnetic_form(label, 0);
  if (row == nullptr) return std::nullopt;
  return magnetic_form_value<float>(row->sctm, 0, s2);
}

float sfint(std::span<const float> star, std::span<const float> f, float x, float unchanged) {
  const std::size_t n = std::min(star.size(), f.size());
  if (n < 2) return unchanged;
  if (x <= star[0]) return f[0];
  if (x >= star[n - 1]) return f[n - 1];
  const std::size_t i = std::clamp<std::size_t>(lmix_math_general::locate(star.first(n), x), 1, n - 1) - 1;
  return f[i] + (x - star[i]) / (star[i + 1] - star[i]) * (f[i + 1] - f[i]);
}

// ---- Gaussian fit

double gaussian_sum::value(double s) const {
  double f = c;
  for (std::size_t i = 0; i < 4; ++i) f += a[i] * std::exp(-b[i] * s * s);
  return f;
}

double chis(std::span<const float> s, std::span<const float> f, const gaussian_sum& coef) {
  double sum = 0;
  for (std::size_t k = 0; k < std::min(s.size(), f.size()); ++k) {
    const double r = double{f[k]} - coef.value(double{s[k]});
    sum += r * r;
  }
  return sum;
}

namespace {

/// Derivatives of the sum at s by a1..a4, b1..b4, c.
std::array<double, 9> curve_derivatives(const gaussian_sum& coef, double s) {
  std::array<double, 9> d{};
  for (std::size_t i = 0; i < 4; ++i) {
    d[i] = std::exp(-coef.b[i] * s * s);
    d[4 + i] = -coef.a[i] * s * s * d[i];
  }
  d[8] = 1;
  return d;
}

}  // namespace

std::array<double, 9> grad(std::span<const float> s, std::span<const float> f, const gaussian_sum& coef) {
  std::array<double, 9> g{};
  for (std::size_t k = 0; k < std::min(s.size(), f.size()); ++k) {
    const double x = double{s[k]}, r = double{f[k]} - coef.value(x);
    const auto d = curve_derivatives(coef, x);
    for (std::size_t i = 0; i < 9; ++i) g[i] -= 2 * r * d[i];
  }
  return g;
}

namespace {

constexpr std::array<std::size_t, 5> linear{0, 1, 2, 3, 8};  ///< places of a1..a4 and c among the nine parameters

/// Normal equations of the nine parameters a1..a4, ln b1..ln b4, c: matrix, and vector against the deviations.
struct normal_equations {
  std::array<double, 81> m{};
  std::array<double, 9> v{};
  normal_equations(std::span<const float> s, std::span<const float> f, const gaussian_sum& coef) {
    for (std::size_t k = 0; k < s.size(); ++k) {
      const double x = double{s[k]}, r = double{f[k]} - coef.value(x);
      auto d = curve_derivatives(coef, x);
      for (std::size_t i = 0; i < 4; ++i) d[4 + i] *= coef.b[i];
      for (std::size_t i = 0; i < 9; ++i) {
        v[i] += d[i] * r;
        for (std::size_t j = 0; j < 9; ++j) m[9 * i + j] += d[i] * d[j];
      }
    }
  }
};

/// Best a1..a4 and c for the exponents of `coef`. False when two exponents have run into one.
bool fit_amplitudes(std::span<const float> s, std::span<const float> f, gaussian_sum& coef) {
  coef.a = {};
  coef.c = 0;
  const normal_equations equations(s, f, coef);
  std::array<double, 25> m{};
  std::array<double, 5> v{};
  for (std::size_t i = 0; i < 5; ++i) {
    v[i] = equations.v[linear[i]];
    for (std::size_t j = 0; j < 5; ++j) m[5 * i + j] = equations.m[9 * linear[i] + linear[j]];
  }
  if (!lmix_math_general::solve_linear(m, v)) return false;
  std::copy_n(v.begin(), 4, coef.a.begin());
  coef.c = v[4];
  return true;
}

/// One damped step of ln b, the amplitudes following freely. False if the equations are singular.
bool step_exponents(normal_equations equations, double damping, gaussian_sum& coef) {
  constexpr double longest = 1.0;  // a factor e in b: beyond it the linearised exponential means nothing
  for (std::size_t i = 4; i < 8; ++i) equations.m[10 * i] *= 1.0 + damping;
  if (!lmix_math_general::solve_linear(equations.m, equations.v)) return false;
  for (std::size_t i = 0; i < 4; ++i) coef.b[i] *= std::exp(std::clamp(equations.v[4 + i], -longest, longest));
  return true;
}

bool can_be_fitted(std::span<const float> s, std::span<const float> f) {
  const auto finite = [](float v) { return std::isfinite(v); };
  return s.size() >= 10 && s.size() == f.size() && std::all_of(f.begin(), f.end(), finite) &&
         std::all_of(s.begin(), s.end(), [&](float v) { return finite(v) && v >= 0.f; }) &&
         *std::max_element(s.begin(), s.end()) > 0.f;
}

/// What the rounding of the points, sums of five single-precision terms, leaves in the sum of squares: no fit means
/// more, and along the flat valleys of nearly equal exponents it would creep for ever.
double rounding_level(std::span<const float> f) {
  constexpr double unit = 2 * double{std::numeric_limits<float>::epsilon()};
  double sum = 0;
  for (const float v : f) sum += unit * unit * double{v} * double{v};
  return sum;
}

/// The minimum reached from exponents spread evenly, in their logarithms, from `least` to `most` over reach^2.
gaussian_fit descend(std::span<const float> s, std::span<const float> f, double least, double most) {
  constexpr int most_iterations = 500;
  gaussian_fit fit;
  const double reach = double{*std::max_element(s.begin(), s.end())};
  for (int i = 0; i < 4; ++i)
    fit.coef.b[static_cast<std::size_t>(i)] = least * std::pow(most / least, i / 3.0) / (reach * reach);
  if (!fit_amplitudes(s, f, fit.coef)) return fit;
  fit.chi2 = chis(s, f, fit.coef);

  const double rounding = rounding_level(f);
  double damping = 1e-2;
  for (; fit.iterations < most_iterations && !fit.converged; ++fit.iterations) {
    gaussian_sum trial = fit.coef;
    const bool solved = step_exponents(normal_equations(s, f, fit.coef), damping, trial) && fit_amplitudes(s, f, trial);
    const double chi2 = solved ? chis(s, f, trial) : std::numeric_limits<double>::infinity();
    if (chi2 < fit.chi2) {
      fit.converged = chi2 < rounding || fit.chi2 - chi2 < std::max(1e-9 * fit.chi2, 1e-3 * rounding);
      fit.coef = trial;
      fit.chi2 = chi2;
      damping = std::max(damping / 4, 1e-12);
    } else {
      damping *= 8;
      fit.converged = damping > 1e12;  // not even the shortest step along the gradient helps: a minimum
    }
  }
  return fit;
}

}  // namespace

gaussian_fit steep(std::span<const float> s, std::span<const float> f, const gaussian_sum& start, int steps) {
  constexpr double enough = 1e-4, shortest = 1e-14;  // share of the linear gain that is asked for; relative step
  gaussian_fit fit{start, chis(s, f, start)};
  const auto moved = [&](const std::array<double, 9>& g, double step) {
    gaussian_sum m = fit.coef;
    for (std::size_t i = 0; i < 4; ++i) {
      m.a[i] -= step * g[i];
      m.b[i] *= std::exp(-step * g[4 + i]);
    }
    m.c -= step * g[8];
    return m;
  };
  for (double step = 1; fit.iterations < steps && !fit.converged; ++fit.iterations, step *= 4) {
    auto g = grad(s, f, fit.coef);
    double square = 0;
    for (std::size_t i = 0; i < 9; ++i) {
      if (i >= 4 && i < 8) g[i] *= fit.coef.b[i - 4];
      square += g[i] * g[i];
    }
    const auto gains = [&] { return chis(s, f, moved(g, step)) <= fit.chi2 - enough * step * square; };
    while (!gains() && step * std::sqrt(square) > shortest) step /= 2;
    fit.converged = !(step * std::sqrt(square) > shortest);
    if (fit.converged) break;
    fit.coef = moved(g, step);
    fit.chi2 = chis(s, f, fit.coef);
  }
  return fit;
}

gaussian_fit coef(std::span<const float> s, std::span<const float> f) {
  gaussian_fit best;
  if (!can_be_fitted(s, f)) return best;
  struct start {
    double least, most;
  };
  // A sum of exponentials has several minima; a narrow and two wide starts reach the lowest one in nearly every case.
  for (const start from : {start{2, 300}, start{0.3, 100}, start{5, 100}}) {
    const gaussian_fit fit = descend(s, f, from.least, from.most);
    if (fit.chi2 < best.chi2) best = fit;
  }
  return best;
}

}  // namespace lmix_scattering_chemical_tables

// Chemical and scattering tables: elements, neutron lengths, X-ray, electron and magnetic form factors, anomalous
// terms. Owns the constant tables (rows in tables/*.inc) and the numerical table of form factors told by sampled
// points. Nobody writes the tables: they are compiled in.
//
// Labels are compared without regard to case, leading blanks are dropped. s2 is always (sin(theta)/lambda)^2 in
// 1/angstrom^2. A look-up that finds nothing, or a row without a published value, gives nullopt or a null pointer.
#pragma once

#include <array>
#include <cmath>
#include <concepts>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace lmix_scattering_chemical_tables {

/// One element. A number without a published value is NaN (`none`).
struct chem_info_type {
  std::string_view symb;      ///< upper case, two characters, a single letter followed by a blank
  std::string_view name;      ///< at most 13 characters
  int z;                      ///< atomic number
  float atwt;                 ///< atomic weight
  float rcov;                 ///< covalent radius [angstrom]
  float vatm;                 ///< atomic volume [cm3/mol]; 1 cm3/mol is 1.66054 angstrom^3 per atom
  std::array<int, 5> oxid;    ///< oxidation states, the main ones first; 0 behind the last
  std::array<float, 5> rion;  ///< effective ionic radius of each state, sixfold coordination preferred [angstrom]
  float sctf, sctf_im;        ///< natural bound coherent neutron length, real and imaginary part [1e-12 cm]
  float sedinc;               ///< incoherent cross section [barn]
  float sea;                  ///< absorption cross section at 1.798 angstrom [barn]
};

/// One isotope for neutrons. NaN where the source gives no number.
struct neutron_isotope_type {
  std::string_view symb;         ///< mass number and symbol, as 11B
  int z, mass;                   ///< atomic number, mass number
  float b_coh, b_coh_im;         ///< bound coherent length [1e-12 cm]
  float b_inc, b_inc_im;         ///< bound incoherent length [1e-12 cm]
  float xs_coh, xs_inc, xs_tot;  ///< cross sections: coherent, incoherent, total scattering [barn]
  float xs_abs;                  ///< absorption cross section at 1.798 angstrom [barn]
};

/// X-ray form factor: f = sum a_i exp(-b_i s2) + c, good to s = 2 1/angstrom.
struct xray_form_type {
  std::string_view symb;      ///< lower case, four characters, the sign before the charge: "cu+2"
  int z, charge;              ///< atomic number, charge of the ion
  std::array<float, 4> a, b;  ///< [electrons], [angstrom^2]
  float c;                    ///< [electrons]
};

/// f' and f" in electrons at the K-alpha1 lines, in the order of `xray_wavelengths`. Row z - 1 holds element z.
struct anomalous_scfac_type {
  std::string_view symb;
  std::array<float, 7> fp, fpp;
};

/// Characteristic lines of an X-ray tube [angstrom].
struct xray_wavelength_type {
  std::string_view symb;  ///< target, upper case
  float kalpha1, kalpha2, kbeta;
};

/// Magnetic form factor: A exp(-a s2) + B exp(-b s2) + C exp(-c s2) + D, times s2 for the orders 2, 4 and 6.
struct magnetic_form_type {
  std::string_view symb;      ///< lower case, four characters: m, element, charge ("mfe3"); j for the dipole form
  std::array<float, 7> sctm;  ///< A, a, B, b, C, c, D
};

/// Lande factor and weight of <j2> in the dipole form <j0> + c2 <j2>; NaN for ions with J = 0.
struct magnetic_dipole_type {
  std::string_view symb;  ///< element, upper case, two characters
  int charge;
  float g_j, c2;
};

/// One ion in one coordination.
struct ionic_radius_type {
  std::string_view symb;  ///< element, upper case, two characters
  int charge, coordination;
  std::string_view kind;  ///< Roman numeral, with SQ (square planar) or PY (pyramidal)
  std::string_view spin;  ///< HS, LS or empty
  float ionic, crystal;   ///< effective ionic radius, crystal radius [angstrom]
};

// ---- the tables
[[nodiscard]] std::span<const chem_info_type> chem_info();               ///< 108 elements and deuterium
[[nodiscard]] std::span<const neutron_isotope_type> neutron_isotopes();  ///< 271 isotopes
[[nodiscard]] std::span<const xray_form_type> xray_form();               ///< 214 atoms and ions
[[nodiscard]] std::span<const xray_form_type> xray_form_alt();           ///< other sets of some rows: see the look-up
[[nodiscard]] std::span<const anomalous_scfac_type> anomalous_scfac();   ///< Z = 1 to 98
[[nodiscard]] std::span<const xray_wavelength_type> xray_wavelengths();  ///< Cr Fe Cu Mo Ag Co Ni
[[nodiscard]] std::span<const magnetic_form_type> magnetic_form();       ///< <j0>, then the fitted dipole forms (j...)
[[nodiscard]] std::span<const magnetic_form_type> magnetic_j2();
[[nodiscard]] std::span<const magnetic_form_type> magnetic_j4();
[[nodiscard]] std::span<const magnetic_form_type> magnetic_j6();
[[nodiscard]] std::span<const magnetic_dipole_type> magnetic_dipole();
[[nodiscard]] std::span<const ionic_radius_type> ionic_radii();

// ---- elements
/// What a label says about its element: "Fe+3" -> 0, "FE"; "11b" -> 11, "B "; "O2" -> 0, "O ".
/// A mass number stands before the symbol only: digits behind it number the site.
struct label_parts {
  int mass = 0;      ///< mass number, 0 when the label gives none; at most 999
  std::string symb;  ///< the first one or two letters, upper case, padded to two; empty without a letter
};
[[nodiscard]] label_parts split_label(std::string_view label);

/// The chemical symbol at the head of a label, upper case, two characters; digits and signs are dropped. A label
/// without a letter gives two blanks.
[[nodiscard]] std::string get_chemsymb(std::string_view label);

/// The same as it is written in a text: "Fe", "O".
[[nodiscard]] std::string symbol_text(std::string_view symb);

/// The row of the element at the head of a label, null if those letters are no element.
[[nodiscard]] const chem_info_type* find_element(std::string_view label);

/// Atomic weight. With a mass number in the label, that number (within 2 % of the isotope's weight).
[[nodiscard]] std::optional<float> get_atomic_mass(std::string_view label);
[[nodiscard]] std::optional<float> get_atomic_vol(std::string_view label);       ///< [cm3/mol]
[[nodiscard]] std::optional<float> get_covalent_radius(std::string_view label);  ///< [angstrom]
/// Ionic radius of the state `valence` = 1..5 in the order of `chem_info_type::oxid` [angstrom].
[[nodiscard]] std::optional<float> get_ionic_radius(std::string_view label, int valence);
/// Shannon's radius of an ion in a coordination, the high-spin one where both are given. Null if not listed.
[[nodiscard]] const ionic_radius_type* find_ionic_radius(std::string_view label, int charge, int coordination);

// ---- neutrons
/// Bound coherent length and cross sections of a label: the isotope if the label begins with a mass number ("11b",
/// "58Ni") or is d or t, else the natural element.
struct neutron_data {
  float b, b_im;         ///< [1e-12 cm]
  float xs_inc, xs_abs;  ///< incoherent, absorption at 1.798 angstrom [barn]; NaN if not given
};
[[nodiscard]] std::optional<neutron_data> find_neutron(std::string_view label);
[[nodiscard]] std::optional<float> get_fermi_length(std::string_view label);  ///< [1e-12 cm]
[[nodiscard]] std::optional<float> get_inc_xs(std::string_view label);        ///< [barn]
[[nodiscard]] std::optional<float> get_abs_xs(std::string_view label);        ///< [barn], at 1.798 angstrom

// ---- X-rays and electrons
/// The row whose name equals the first four characters of the label ("cu+2", "Cu"), null if there is none.
[[nodiscard]] const xray_form_type* find_xray_form(std::string_view label);

/// The second set of an ion, null without one: "o-2" in two Gaussians (E. Hovestreydt, Acta Cryst. A39 (1983) 268-269),
/// which agrees with the first within 0.04 electrons to s = 0.7 1/angstrom and ends at 1.594 instead of falling on.
[[nodiscard]] const xray_form_type* find_xray_form_alt(std::string_view label);

/// Types of scatterer that stand for a shape or a multipole and not for an atom: no table holds them, their numbers are
/// in the control file.
struct special_form_type {
  std::string_view word;  ///< four characters, upper case
  std::string_view what;  ///< for messages
};
[[nodiscard]] std::span<const special_form_type> special_forms();
/// The row whose word is the first four characters of the label, null for an ordinary type.
[[nodiscard]] const special_form_type* find_special_form(std::string_view label);

/// f at s2, without the anomalous terms [electrons].
template <std::floating_point R>
[[nodiscard]] R xray_form_factor(const xray_form_type& row, R s2) {
  R f = R(row.c);
  for (std::size_t i = 0; i < 4; ++i) f += R(row.a[i]) * std::exp(-R(row.b[i]) * s2);
  return f;
}

/// Electron form factor [angstrom] from the X-ray one by the Mott-Bethe relation, 0.023934 = m e^2/(8 pi eps0 h^2) in
/// 1/angstrom. s2 > 0: at 0 the relation is 0/0 for an atom and infinite for an ion.
template <std::floating_point R>
[[nodiscard]] constexpr R mott_bethe(R z, R f, R s2) {
  return (z - f) * R(0.023934) / s2;
}
template <std::floating_point R>
[[nodiscard]] R electron_form_factor(const xray_form_type& row, R s2) {
  return mott_bethe(R(row.z), xray_form_factor(row, s2), s2);
}

/// f' and f" [electrons].
struct delta_f {
  float fp, fpp;
};
/// The column of `anomalous_scfac` whose K-alpha1 is within 0.005 angstrom of a wavelength.
[[nodiscard]] std::optional<std::size_t> anomalous_line(float lambda);
/// f' and f" of the element at the head of a label. Nullopt when no line is near `lambda` or Z is above 98.
[[nodiscard]] std::optional<delta_f> find_delta_fp_fpp(std::string_view label, float lambda);

// ---- magnetic form factors
struct magnetic_match {
  const magnetic_form_type* row = nullptr;  ///< null if not found
  int order = 0;                            ///< 0, 2, 4 or 6
};
/// Row of <j_order> by the first four characters of a label. order is 0, 2, 4 or 6; any other finds nothing.
[[nodiscard]] const magnetic_form_type* find_magnetic_form(std::string_view label, int order);
/// The same with the order in the tail of the label: "mfe3", "MFe3 j2:", "mho3j6". Without a tail the order is 0.
[[nodiscard]] magnetic_match find_magnetic_form(std::string_view label);
/// g_J and c2 by the element and charge of a label with its m or j ("mho3", "JHO3").
[[nodiscard]] const magnetic_dipole_type* find_magnetic_dipole(std::string_view label);

/// <j_order> at s2 from the seven coefficients A, a, B, b, C, c, D.
template <std::floating_point R>
[[nodiscard]] R magnetic_form_value(std::span<const float, 7> sctm, int order, R s2) {
  R f = R(sctm[6]);
  for (std::size_t i = 0; i < 6; i += 2) f += R(sctm[i]) * std::exp(-R(sctm[i + 1]) * s2);
  return order == 0 ? f : f * s2;
}
/// <j0>, or the fitted dipole form, of a label at s2.
[[nodiscard]] std::optional<float> get_magnetic_form_factor(std::string_view label, float s2);

// ---- form factors given as tables
/// Linear interpolation in the points (star, f), star not decreasing, the end values outside. With fewer than two
/// points the result is `unchanged`. The shorter of the two spans counts.
[[nodiscard]] float sfint(std::span<const float> star, std::span<const float> f, float x, float unchanged);

/// Four Gaussians and a constant over s = sin(theta)/lambda: f = sum a_i exp(-b_i s^2) + c.
struct gaussian_sum {
  std::array<double, 4> a{}, b{};  ///< b > 0 after a fit
  double c = 0;
  [[nodiscard]] double value(double s) const;
};
struct gaussian_fit {
  gaussian_sum coef;
  double chi2 = std::numeric_limits<double>::infinity();  ///< sum of squared deviations over all points
  int iterations = 0;
  bool converged = false;  ///< false: too few points, values that are not finite, or no minimum found
};
/// Sum of squared deviations of a curve from the points (s, f).
[[nodiscard]] double chis(std::span<const float> s, std::span<const float> f, const gaussian_sum& coef);
/// Its gradient by a1..a4, b1..b4, c.
[[nodiscard]] std::array<double, 9> grad(std::span<const float> s, std::span<const float> f, const gaussian_sum& coef);
/// Least-squares fit to at least ten points (s >= 0). The amplitudes are eliminated by linear least squares, the four
/// exponents follow by damped Gauss-Newton steps on their logarithms (G. Golub & V. Pereyra, SIAM J. Numer. Anal. 10
/// (1973) 413-432), from three starts of which the best end is kept. Samples of any row of `xray_form` to s = 1.5 come
/// back with an rms deviation below 5e-4 electrons.
[[nodiscard]] gaussian_fit coef(std::span<const float> s, std::span<const float> f);
/// Steepest descent from `start` (b not 0, its sign stays) by at most `steps` steps along the gradient by a, ln|b| and
/// c: it goes down from anywhere, slowly, where the fit wants points enough for all nine numbers. Every step is
/// shortened until the sum of squares falls (L. Armijo, Pacific J. Math. 16 (1966) 1-3); converged when none does.
[[nodiscard]] gaussian_fit steep(std::span<const float> s, std::span<const float> f, const gaussian_sum& start,
                                 int steps);

}  // namespace lmix_scattering_chemical_tables

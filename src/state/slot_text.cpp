#include "slot_text.hpp"

#include <algorithm>
#include <array>
#include <span>

namespace slot_text {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
namespace bslot = kalvaris_params::bslot;
namespace abscissa = kalvaris_params::abscissa;

/// Peak shapes as bits, so that a row can hold several.
constexpr unsigned shape(int npro) { return 1u << static_cast<unsigned>(npro + 4); }
constexpr unsigned any = 0, tch = shape(7), mixed = shape(5) | shape(11) | shape(12), pearson = shape(6),
                   split = shape(11), triple = shape(4) | shape(-4);

/// One slot, or a run of slots whose names count from `first` (which is above 0 then).
struct row {
  int from, to;
  const char* name;
  std::string_view meaning;
  std::string_view unit = {};
  int first = 0;
  unsigned shapes = any;  ///< the row holds for these peak shapes only
};
constexpr row one(int k, const char* name, std::string_view meaning, std::string_view unit = {},
                  unsigned shapes = any) {
  return {k, k, name, meaning, unit, 0, shapes};
}

// ---- pattern --------------------------------------------------------------------------------------------------------

constexpr std::array wavelength_rows{
    one(gslot::zero, "Zero", "zero shift, added to calculated positions", "deg"),
    one(gslot::sycos, "SyCos", "sample displacement: coefficient of cos(theta), Debye-Scherrer cos(2theta)", "deg"),
    one(gslot::sysin, "SySin", "transparency: coefficient of sin(2theta)", "deg"),
    one(gslot::lambda, "Lambda", "first wavelength, used when it has a code", "angstrom"),
};
constexpr std::array second_regime_rows{
    one(gslot::zero_t, "Zt", "zero of the thermal regime", "us"),
    one(gslot::dtt1t, "Dtt1t", "coefficient of d, thermal regime", "us/angstrom"),
    one(gslot::dtt2t, "Dtt2t", "coefficient of 1/d, thermal regime", "us angstrom"),
    one(gslot::xcross, "Xcross", "1/d where the regimes cross", "1/angstrom"),
    one(gslot::wcross, "Width", "steepness of the crossing", "angstrom"),
};
constexpr std::array time_rows{
    one(gslot::zero, "Zero", "zero of the time of flight", "us"),
    one(gslot::dtt1, "Dtt1", "time of flight: coefficient of d", "us/angstrom"),
    one(gslot::dtt2, "Dtt2", "time of flight: coefficient of d^2", "us/angstrom^2"),
    one(gslot::dtt_1overd, "Dtt_1overd", "time of flight: coefficient of 1/d", "us angstrom"),
    one(gslot::two_sin, "TwoSin", "detector: 2theta above 2, else 2 sin(theta); never refined", "deg"),
};
constexpr std::array energy_rows{
    one(gslot::zero, "Zero", "zero of the energy", "keV"),
    one(gslot::dtt1, "Dtt1", "energy times d", "keV angstrom"),
    one(gslot::dtt2, "Dtt2", "energy times d, second term", "keV angstrom^2"),
    one(gslot::dtt_1overd, "Dtt_1overd", "without effect"),
    one(gslot::two_sin, "TwoSin", "detector: 2theta above 2, else 2 sin(theta); never refined", "deg"),
};
constexpr std::array pattern_rows{
    one(gslot::p0, "P0", "microabsorption, constant"),
    one(gslot::cp, "Cp", "microabsorption, amplitude"),
    one(gslot::tau, "Tau", "microabsorption, decay"),
    one(gslot::ratio2, "Ratio", "intensity of the second wavelength to the first"),
};
/// Laue patterns have no background: its slots hold what shapes their intensities.
constexpr std::array laue_rows{
    row{gslot::flux, gslot::laue_abs - 1, "Flux_", "incident spectrum: Chebychev coefficient", {}, 1},
    row{gslot::laue_abs, gslot::effic - 1, "Abs_", "absorption: coefficient", {}, 1},
    row{gslot::effic, gslot::effic + 11, "Eff_", "efficiency of the detector: Chebychev coefficient", {}, 1},
};
constexpr std::array file_background_rows{
    one(gslot::bfile_a, "Bck_0", "factor of the background file"),
    one(gslot::bfile_b, "Bck_1", "constant added to it", "counts"),
    one(gslot::bfile_c, "Bck_2", "stretch of its abscissa less 1"),
    one(gslot::bfile_d, "Bck_3", "shift of its abscissa"),
};
constexpr std::array debye_rows{
    row{gslot::debye_amp, gslot::debye_amp + 5, "Bck_", "Debye term: amplitude", "counts",
        gslot::debye_amp - gslot::bac},
    row{gslot::debye_dist, gslot::debye_dist + 5, "Bck_", "Debye term: distance", "angstrom",
        gslot::debye_dist - gslot::bac},
};

// ---- phase in a pattern ---------------------------------------------------------------------------------------------

constexpr std::array time_phase_rows{
    one(slot::sig2, "Sig2", "Gaussian variance: coefficient of d^4", "us^2/angstrom^4"),
    one(slot::sig1, "Sig1", "Gaussian variance: coefficient of d^2", "us^2/angstrom^2"),
    one(slot::sig0, "Sig0", "Gaussian variance: constant", "us^2"),
    one(slot::sigq, "SigQ", "Gaussian variance: coefficient of d", "us^2/angstrom"),
    one(slot::iso_gstrain, "Iso_GStrain", "Gaussian strain of the sample, added to Sig1", "us^2/angstrom^2"),
    one(slot::iso_gsize, "Iso_GSize", "Gaussian size of the sample, added to Sig2", "us^2/angstrom^4"),
    one(slot::extinc, "Extinc", "extinction"),
    one(slot::gam2, "Gam2", "Lorentzian width: coefficient of d^2", "us/angstrom^2"),
    one(slot::gam1, "Gam1", "Lorentzian width: coefficient of d", "us/angstrom"),
    one(slot::gam0, "Gam0", "Lorentzian width: constant", "us"),
    one(slot::iso_lstrain, "Iso_LorStrain", "Lorentzian strain of the sample, added to Gam1", "us/angstrom"),
    one(slot::iso_lsize, "Iso_LorSize", "Lorentzian size of the sample, added to Gam2", "us/angstrom^2"),
    one(slot::alph0, "Alph0", "rise: constant", "1/us"),
    one(slot::beta0, "Beta0", "decay: constant", "1/us"),
    one(slot::alph1, "Alph1", "rise: coefficient of 1/d", "angstrom/us"),
    one(slot::beta1, "Beta1", "decay: coefficient of 1/d^4", "angstrom^4/us"),
    one(slot::alphq, "AlphQ", "rise: coefficient of 1/sqrt(d)"),
    one(slot::betaq, "BetaQ", "decay: coefficient of 1/d^2"),
    one(slot::abs1, "Abs1", "absorption per angstrom of the wavelength", "1/angstrom"),
    one(slot::abs2, "Abs2", "absorption, second value"),
    one(slot::alph0t, "Alph0t", "rise, thermal regime"),
    one(slot::beta0t, "Beta0t", "decay, thermal regime"),
    one(slot::alph1t, "Alph1t", "rise, thermal regime, coefficient of 1/d"),
    one(slot::beta1t, "Beta1t", "decay, thermal regime, coefficient of 1/d"),
    one(slot::zero_ph, "Zero_ph", "zero shift of this phase", "us"),
    one(slot::sycos_ph, "SyCos_ph", "shift of this phase proportional to d", "us/angstrom"),
    one(slot::sysin_ph, "SySin_ph", "shift of this phase proportional to d^2", "us/angstrom^2"),
};
constexpr std::array energy_phase_rows{
    one(slot::u, "U", "Gaussian FWHM^2: coefficient of E^2"),
    one(slot::v, "V", "Gaussian FWHM^2: coefficient of E", "keV"),
    one(slot::w, "W", "Gaussian FWHM^2: constant", "keV^2"),
    one(slot::x, "X", "Lorentzian FWHM: coefficient of E"),
    one(slot::y, "Y", "Lorentzian FWHM: constant", "keV"),
    one(slot::gausiz, "GauSiz", "Gaussian size in the FWHM^2", "keV^2"),
    one(slot::zero_ph, "Zero_ph", "zero shift of this phase", "keV"),
};
constexpr std::array size_rows{
    row{slot::siz1, slot::siz1 + 8, "Size_", "parameter of the size model", "1000/angstrom", 1},
};
constexpr std::array phase_rows{
    one(slot::scale, "Scale", "scale factor of the phase in the pattern"),
    one(slot::bov, "Bov", "overall isotropic displacement B of the phase", "angstrom^2"),
    one(slot::u, "U", "Gaussian FWHM^2: coefficient of tan^2(theta)", "deg^2"),
    one(slot::v, "V", "Gaussian FWHM^2: coefficient of tan(theta)", "deg^2"),
    one(slot::w, "W", "Gaussian FWHM^2: constant", "deg^2"),
    one(slot::cell_a, "Cell_A", "cell edge a", "angstrom"),
    one(slot::cell_a + 1, "Cell_B", "cell edge b", "angstrom"),
    one(slot::cell_a + 2, "Cell_C", "cell edge c", "angstrom"),
    one(slot::cell_a + 3, "Cell_D", "cell angle alpha", "degrees"),
    one(slot::cell_a + 4, "Cell_E", "cell angle beta", "degrees"),
    one(slot::cell_f, "Cell_F", "cell angle gamma", "degrees"),
    one(slot::pref1, "Pref1", "preferred orientation G1; March-Dollase: 1 is none, below 1 platelets"),
    one(slot::pref2, "Pref2", "preferred orientation G2: fraction without texture"),
    one(slot::asy1, "Asy1", "asymmetry P1"),
    one(slot::asy2, "Asy2", "asymmetry P2"),
    one(slot::asy3, "Asy3", "asymmetry P3"),
    one(slot::asy4, "Asy4", "asymmetry P4"),
    one(slot::x, "X", "slope of the mixing eta with 2theta", "1/deg", mixed),
    one(slot::x, "X", "exponent m, coefficient of 100/2theta", {}, pearson),
    one(slot::x, "X", "weight of the side peaks", {}, triple),
    one(slot::x, "X", "Lorentzian FWHM: coefficient of tan(theta) (strain)", "deg"),
    one(slot::y, "Y", "exponent m, coefficient of (100/2theta)^2", {}, pearson),
    one(slot::y, "Y", "weight of the side peaks, second value", {}, triple),
    one(slot::y, "Y", "Lorentzian FWHM: coefficient of 1/cos(theta) (size)", "deg"),
    one(slot::shape1, "Shape1", "mixing eta, constant: 0 Gaussian, 1 Lorentzian", {}, mixed | triple),
    one(slot::shape1, "Shape1", "exponent m, constant", {}, pearson),
    one(slot::shape1, "Shape1", "not used by this peak shape"),
    row{slot::str1, slot::str3, "Str_", "parameter of the strain model", {}, 1},
    row{slot::str4, slot::str4 + 11, "Str_", "parameter of the strain model", {}, 4},
    one(slot::xi, "Xi", "coefficient of the FWHM in the mixing eta", {}, mixed),
    one(slot::xi, "Xi", "Lorentzian fraction of the anisotropic strain"),
    one(slot::gausiz, "GauSiz", "Gaussian FWHM^2: coefficient of 1/cos^2(theta) (size)", "deg^2"),
    one(slot::shift1, "Shift_1", "hkl-dependent shift"),
    one(slot::shift1 + 1, "Shift_2", "hkl-dependent shift"),
    one(slot::shift3, "Shift_3", "hkl-dependent shift"),
    one(slot::s_l, "S_L", "FWHM^2 term over tan^2(theta) up to 90 deg", "deg^2", split),
    one(slot::s_l, "S_L", "distance of the side peaks over tan(theta)", {}, triple),
    one(slot::s_l, "S_L", "axial divergence: half height of the sample over the radius"),
    one(slot::d_l, "D_L", "FWHM^2 term over tan^2(theta) above 90 deg", "deg^2", split),
    one(slot::d_l, "D_L", "weight of the side peaks over tan(theta)", {}, triple),
    one(slot::d_l, "D_L", "axial divergence: half height of the detector over the radius"),
    one(slot::u2, "U2", "U of the second wavelength", "deg^2"),
    one(slot::v2, "V2", "V of the second wavelength", "deg^2"),
    one(slot::w2, "W2", "W of the second wavelength", "deg^2"),
    one(slot::u_r, "U_r", "U of the right half", "deg^2"),
    one(slot::v_r, "V_r", "V of the right half", "deg^2"),
    one(slot::w_r, "W_r", "W of the right half", "deg^2"),
    one(slot::shape1_r, "Shape1_r", "mixing eta of the right half, constant"),
    one(slot::x_r, "X_r", "slope of the mixing of the right half with 2theta", "1/deg"),
    one(slot::lorsiz, "LorSiz", "Lorentzian size, parameter of the size model", "1000/angstrom"),
    row{slot::siz1 + 1, slot::siz1 + 8, "Size_", "parameter of the size model", "1000/angstrom", 2},
    row{slot::gshift1, slot::gshift1 + 20, "GShift_", "coefficient of the shift model", {}, 1},
    one(slot::zero_ph, "Zero_ph", "zero shift of this phase", "deg"),
    one(slot::sycos_ph, "SyCos_ph", "shift of this phase with cos(theta)", "deg"),
    one(slot::sysin_ph, "SySin_ph", "shift of this phase with sin(2theta)", "deg"),
    row{slot::special, slot::last, "Spr_", "of a special reflection: FWHM^2, Lorentzian FWHM, shift, two more", {}, 1},
};
constexpr std::array crystal_rows{
    one(slot::scale, "Scale", "first scale factor"),
    row{slot::sc2, slot::sc2 + 4, "Sc_", "scale factor, or fraction of a domain", {}, 2},
    row{slot::sc7, slot::sc7 + 11, "Sc_", "scale factor, or fraction of a domain", {}, 7},
    row{slot::sc19, slot::sc19 + 11, "Sc_", "scale factor, or fraction of a domain", {}, 19},
    row{slot::sc31, slot::sc31 + 5, "Sc_", "scale factor, or fraction of a domain", {}, 31},
    row{slot::ext1, slot::ext1 + 5, "Ext_", "extinction parameter", {}, 1},
};

// ---- atom, vector, domain -------------------------------------------------------------------------------------------

constexpr std::array atom_rows{
    one(aslot::x, "X", "coordinate x", "a"),
    one(aslot::y, "Y", "coordinate y", "b"),
    one(aslot::z, "Z", "coordinate z", "c"),
    one(aslot::biso, "Biso", "isotropic displacement B", "angstrom^2"),
    one(aslot::occ, "Occ", "occupancy times site over general multiplicity"),
    one(aslot::b11, "B11", "anisotropic displacement beta11"),
    one(aslot::b22, "B22", "anisotropic displacement beta22"),
    one(aslot::b33, "B33", "anisotropic displacement beta33"),
    one(aslot::b12, "B12", "anisotropic displacement beta12"),
    one(aslot::b13, "B13", "anisotropic displacement beta13"),
    one(aslot::b23, "B23", "anisotropic displacement beta23"),
    row{aslot::ff, aslot::last, "Ff_", "parameter of the form factor", {}, 1},
};
constexpr std::string_view magneton = "Bohr magnetons";
constexpr std::array moment_rows{
    one(aslot::rx, "Rx", "real part of the moment along a", magneton),
    one(aslot::ry, "Ry", "real part of the moment along b", magneton),
    one(aslot::rz, "Rz", "real part of the moment along c", magneton),
    one(aslot::ix, "Ix", "imaginary part of the moment along a", magneton),
    one(aslot::iy, "Iy", "imaginary part of the moment along b", magneton),
    one(aslot::iz, "Iz", "imaginary part of the moment along c", magneton),
    one(aslot::magph, "MagPh", "magnetic phase", "2 pi"),
};
constexpr std::array harmonic_parts{
    row{aslot::ucos, aslot::ucos + 2, "Ucos_", "displacement, cosine term", "cell edges", 1},
    row{aslot::usin, aslot::usin + 2, "Usin_", "displacement, sine term", "cell edges", 1},
    row{aslot::mcos, aslot::mcos + 2, "Mcos_", "moment, cosine term", magneton, 1},
    row{aslot::msin, aslot::msin + 2, "Msin_", "moment, sine term", magneton, 1},
};
constexpr std::array body_rows{
    row{bslot::xc, bslot::xc + 2, "Origin_", "origin of the rigid body along x, y, z", "cell edges", 1},
    one(bslot::phi, "Phi", "orientation of the rigid body, phi", "degrees"),
    one(bslot::phi + 1, "Theta", "orientation of the rigid body, theta", "degrees"),
    one(bslot::phi + 2, "Chi", "orientation of the rigid body, chi", "degrees"),
    row{bslot::t11, bslot::t11 + 5, "T_", "translation tensor 11 22 33 12 13 23", "angstrom^2", 1},
    row{bslot::l11, bslot::l11 + 5, "L_", "libration tensor 11 22 33 12 13 23", "degrees^2", 1},
    row{bslot::s11, bslot::last, "S_", "screw tensor, row by row", "degrees angstrom", 1},
};
constexpr std::array spherical_moment_rows{
    one(aslot::rx, "Rx", "real part of the moment, size", magneton),
    one(aslot::ry, "Ry", "real part of the moment, phi", "degrees"),
    one(aslot::rz, "Rz", "real part of the moment, theta", "degrees"),
    one(aslot::ix, "Ix", "imaginary part of the moment, size", magneton),
    one(aslot::iy, "Iy", "imaginary part of the moment, phi", "degrees"),
    one(aslot::iz, "Iz", "imaginary part of the moment, theta", "degrees"),
};
constexpr std::array basis_rows{
    one(aslot::rx, "Rx", "coefficient C1 of a basis function"),
    one(aslot::ry, "Ry", "coefficient C2"),
    one(aslot::rz, "Rz", "coefficient C3"),
    one(aslot::ix, "Ix", "coefficient C4"),
    one(aslot::iy, "Iy", "coefficient C5"),
    one(aslot::iz, "Iz", "coefficient C6"),
};

// ---- search ---------------------------------------------------------------------------------------------------------

/// The first row of the first table that has the slot, null without one.
const row* find(std::initializer_list<std::span<const row>> tables, int k, unsigned shapes = any) {
  for (const auto& table : tables) {
    const auto found = std::ranges::find_if(
        table, [&](const row& r) { return k >= r.from && k <= r.to && (r.shapes == any || (r.shapes & shapes) != 0); });
    if (found != table.end()) return &*found;
  }
  return nullptr;
}

text text_of(const row* found, std::string_view other, int k) {
  if (found == nullptr) return {std::string(other) + std::to_string(k), {}, {}};
  const std::string number = found->first > 0 ? std::to_string(k - found->from + found->first) : std::string();
  return {found->name + number, found->meaning, found->unit};
}

/// Widths and shifts of patterns over Q or s are in the unit of their abscissa, to which the tables give no name.
text without_degrees(text t, int ixunit) {
  if ((ixunit == abscissa::q || ixunit == abscissa::s) && t.unit.starts_with("deg") && t.unit != "degrees") t.unit = {};
  return t;
}

text background(const pattern_type& p, int k) {
  if (p.ixunit == abscissa::laue) return text_of(find({laue_rows}, k), "Bck_", k - gslot::bac);
  const int n = k - gslot::bac;
  const std::string name = "Bck_" + std::to_string(n);
  if (p.isbac > 0 && p.nbckgd == 1) return text_of(find({file_background_rows}, k), "Bck_", k);
  if (p.isbac < 0 && p.nbckgd == 1 && k >= gslot::debye_amp) return text_of(find({debye_rows}, k), "Bck_", k);
  if (p.isbac > 0 ? p.nbckgd > 1 : p.nbckgd > 5) return {name, "height of the background at the point", "counts"};
  return {name, "background coefficient", "counts"};
}

constexpr std::span<const row> none;

text of_pattern(const state_type& st, int ip, int k) {
  if (ip >= static_cast<int>(st.pattern.size())) return text_of(nullptr, "Glb_", k);
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (k >= gslot::user_bk) {
    return {"AddBck_" + std::to_string(k - gslot::user_bk + 1), "factor of a profile in the background", {}};
  }
  if (k >= gslot::bac) return background(p, k);
  const bool tof = p.ixunit == abscissa::tof, energy = p.ixunit == abscissa::energy;
  const std::span<const row> regime = tof && p.nprof == 10 ? std::span<const row>(second_regime_rows) : none;
  const std::span<const row> kind = tof      ? std::span<const row>(time_rows)
                                    : energy ? std::span<const row>(energy_rows)
                                             : std::span<const row>(wavelength_rows);
  return without_degrees(text_of(find({regime, kind, pattern_rows}, k), "Glb_", k), p.ixunit);
}

text of_phase(const state_type& st, int ph, int ip, int k) {
  if (ph >= static_cast<int>(st.phase.size()) || ip >= static_cast<int>(st.pattern.size())) {
    return text_of(nullptr, "Par_", k);
  }
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  const phase_type& phase = st.phase[static_cast<std::size_t>(ph)];
  if (p.cry_pat) return text_of(find({crystal_rows, phase_rows}, k, tch), "Par_", k);
  if (k >= slot::md1 && k < slot::zero_ph) {
    const std::string axis = std::to_string((k - slot::md1) / 2 + 1);
    if ((k - slot::md1) % 2 == 0) return {"MD_" + axis, "March-Dollase coefficient of the axis", {}};
    return {"Fr_" + axis, "fraction of the axis; that of the last follows from the others", {}};
  }
  const bool sizes = phase.isi != 0 || phase.istr == 2 || phase.istr == 3;
  const std::span<const row> models = sizes ? std::span<const row>(size_rows) : none;
  const std::span<const row> kind = p.ixunit == abscissa::tof      ? std::span<const row>(time_phase_rows)
                                    : p.ixunit == abscissa::energy ? std::span<const row>(energy_phase_rows)
                                                                   : none;
  const unsigned npro = shape(std::clamp(st.mix(ph, ip).npro, -4, 13));
  return without_degrees(text_of(find({models, kind, phase_rows}, k, npro), "Par_", k), p.ixunit);
}

/// A column of a modulated atom: the harmonic stands behind the component.
text harmonic(int k) {
  const int past = k - aslot::ff;
  text t = text_of(find({harmonic_parts}, aslot::ff + past % aslot::per_harmonic), "A_", k);
  t.name += "_" + std::to_string(past / aslot::per_harmonic + 1);
  return t;
}

text of_mode(const state_type& st, const slot_place& place) {
  text t{"Mode_" + std::to_string(place.ip + 1), "amplitude of the symmetry mode", {}};
  const auto ph = static_cast<std::size_t>(place.owner), n = static_cast<std::size_t>(place.ip);
  if (ph < st.phase.size() && n < st.phase[ph].modes.size()) {
    const char kind = st.phase[ph].modes[n].kind;
    t.unit = kind == 'V' ? std::string_view("angstrom") : kind == 'M' ? magneton : std::string_view();
  }
  return t;
}

text of_atom(const state_type& st, int ia, int k) {
  std::span<const row> moments = moment_rows;
  const auto ph = ia < static_cast<int>(st.atom.size())
                      ? static_cast<std::size_t>(st.atom[static_cast<std::size_t>(ia)].phase)
                      : st.phase.size();
  if (ph < st.phase.size()) {
    if (st.phase[ph].jbt < 0) moments = spherical_moment_rows;
    if (st.phase[ph].isym == -2) moments = basis_rows;
    constexpr int modulated = 7;
    if (k >= aslot::ff && (st.phase[ph].jbt == modulated || st.phase[ph].jbt == -modulated)) return harmonic(k);
  }
  return text_of(find({atom_rows, moments, moment_rows}, k), "A_", k);
}

}  // namespace

text describe(const state_type& st, const slot_place& place) {
  switch (place.family) {
    case slot_family::global:
      return of_pattern(st, place.ip, place.k);
    case slot_family::phase:
      return of_phase(st, place.owner, place.ip, place.k);
    case slot_family::vector: {
      const char axis = "xyz"[std::clamp(place.k - 1, 0, 2)];
      return {std::string("K").append(1, axis) + "_" + std::to_string(place.ip + 1),
              "component of the propagation vector", "reciprocal cell"};
    }
    case slot_family::domain:
      if (place.k == 1) return {"Dom_" + std::to_string(place.ip + 1), "population of the magnetic domain", {}};
      return {"Chi_" + std::to_string(place.ip + 1), "chirality of the magnetic domain", {}};
    case slot_family::body: {
      text t = text_of(find({body_rows}, place.k), "Body_", place.k);
      t.name = "Body_" + std::to_string(place.ip + 1) + "_" + t.name;
      return t;
    }
    case slot_family::mode:
      return of_mode(st, place);
    case slot_family::atom:
      break;
  }
  return of_atom(st, place.owner, place.k);
}

}  // namespace slot_text

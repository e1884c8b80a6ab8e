// kalvaris_params: the shared state of one run, made of records by role, with the limits and the slot numbers.
// It owns every array of a run; a test or main makes one state_type and passes it as the first argument.
// Who may write a field stands beside the record: the control reader, readint, the reflection lists, the cycle.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "kalvaris_inout.hpp"
#include "kalvaris_util.hpp"
#include "lmix_crystal_metrics.hpp"
#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_text_input.hpp"
#include "normal_equations.hpp"

namespace kalvaris_params {

/// Limits of this release. The names are those that the list of dimensions prints.
enum : int {
  NPATT = 80,     ///< patterns
  NATS = 830,     ///< atoms of all phases together
  MPAR = 1800,    ///< parameters of a phase in a pattern
  IEXCL = 30,     ///< excluded regions of a pattern
  IBACP = 377,    ///< background points of a pattern
  NPHT = 16,      ///< phases
  NGL = 400,      ///< global parameters of a pattern
  NAT_P = 80,     ///< parameters of an atom
  N_SPE = 30,     ///< scattering entries of a pattern
  N_FORM = 60,    ///< values in a table of scattering factors
  NMAGM = 8,      ///< sets of magnetic matrices of a phase
  NBASIS = 12,    ///< basis functions of an atom
  NIREPS = 9,     ///< irreducible representations of a phase
  N_EQ = 384,     ///< symmetry operators given by hand, propagation vectors
  N_LINC = 50,    ///< linear restraints
  NCONST = 3500,  ///< soft restraints of a kind in a phase
  NHARM = 5,      ///< harmonics of the modulation of an atom
  NMODES = 300,   ///< symmetry modes of a kind in a phase
  N_LISTS = 99,   ///< lists of intensities of a pattern
};

/// Dimensions of a run, read from "kalvaris.dim".
struct dimensions {
  int maxpoint = 80000;  ///< points of a pattern
  int maxreflx = 25000;  ///< reflections of a pattern; also the base of the packing of kr
  int maxparam = 500;    ///< refined parameters
  int maxoverl = 9000;   ///< reflections that may overlap at one point
};

/// Slots of par. The numbers are file format: never renumber; element 0 is unused.
namespace slot {
enum : int {
  scale = 1,  ///< scale factor of the phase in the pattern, >= 0
  bov = 2,    ///< overall B [angstrom^2]
  u = 3,
  v = 4,
  w = 5,  ///< Gaussian width: U, V, W [deg^2]
  cell_a = 6,
  cell_f = 11,  ///< as read a, b, c, alpha, beta, gamma; from set-up on A..F of 1/d^2 [1/angstrom^2]
  pref1 = 12,
  pref2 = 13,  ///< preferred orientation G1, G2
  asy1 = 14,   ///< asymmetry P1
  x = 15,
  y = 16,       ///< Lorentzian strain and size widths [deg]; x: 2theta slope of eta for npro 5
  shape1 = 17,  ///< eta0 of npro 5
  str1 = 18,
  str3 = 20,    ///< first three strain parameters
  xi = 33,      ///< Lorentzian part of anisotropic strain; for npro 5 width slope of eta
  gausiz = 34,  ///< Gaussian size, /cos^2(theta) [deg^2]
  asy2 = 35,
  asy3 = 36,
  asy4 = 37,  ///< asymmetry P2, P3, P4
  shift1 = 38,
  shift3 = 40,  ///< hkl-dependent shifts
  s_l = 41,
  d_l = 42,  ///< axial divergence S/L and D/L
  u2 = 43,
  v2 = 44,
  w2 = 45,  ///< Gaussian width of the second wavelength, with iuvw 1 [deg^2]
  u_r = 46,
  v_r = 47,
  w_r = 48,  ///< right half of npro 11 [deg^2]
  shape1_r = 49,
  x_r = 50,     ///< right eta and its slope of npro 11
  lorsiz = 51,  ///< size parameter [1000/angstrom]
  zero_ph = 95,
  sycos_ph = 96,
  sysin_ph = 97,  ///< shifts of the phase alone [deg]
  // further names of the same slots, by the kind of data and model
  extinc = 17,  ///< time of flight: extinction
  sig2 = 3,
  sig1 = 4,
  sig0 = 5,
  sigq = 15,         ///< time of flight: Gaussian variance [us^2 angstrom^-4, ^-2, ^0, ^-1]
  iso_gstrain = 16,  ///< time of flight: strain part of sig1
  iso_gsize = 34,    ///< time of flight: size part of sig2
  gam2 = 46,
  gam1 = 47,
  gam0 = 48,         ///< time of flight: Lorentzian width [us angstrom^-2, ^-1, ^0]
  iso_lstrain = 49,  ///< time of flight: strain part of gam1
  iso_lsize = 50,    ///< time of flight: size part of gam2
  alph0 = 14,
  beta0 = 35,
  alph1 = 36,
  beta1 = 37,  ///< time of flight: rise and decay
  alphq = 41,
  betaq = 42,
  abs1 = 43,
  abs2 = 44,  ///< time of flight: absorption
  alph0t = 60,
  beta0t = 61,
  alph1t = 62,
  beta1t = 63,   ///< rise and decay of the second regime, npro 10
  str4 = 21,     ///< strain parameters 4 to 15 follow
  siz1 = 51,     ///< size parameters 1 to 9
  gshift1 = 64,  ///< parameters 1 to 21 of the shift models
  md1 = 85,
  fr1 = 86,       ///< preferred orientation of several axes: coefficient and fraction, axes 1 to 5 in pairs
  sc2 = 12,       ///< single crystal: scale factors 2 to 6
  sc7 = 20,       ///< scale factors 7 to 18
  sc19 = 98,      ///< scale factors 19 to 30
  sc31 = 110,     ///< scale factors 31 to 36
  ext1 = 35,      ///< single crystal: extinction parameters 1 to 6
  special = 110,  ///< five parameters of each special reflection: widths, shift, further widths
  per_special = 5,
  last = MPAR,
};
static_assert(cell_f - cell_a == 5);
}  // namespace slot

/// Slots of glb, the parameters of a pattern.
namespace gslot {
enum : int {
  zero = 1,    ///< zero shift, added to the calculated position [deg]
  sycos = 2,   ///< displacement: coefficient of cos(theta), of cos(2 theta) with disp_ds [deg]
  sysin = 3,   ///< transparency: coefficient of sin(2 theta) [deg]
  lambda = 9,  ///< first wavelength [angstrom], alive only with a code
  p0 = 10,
  cp = 11,
  tau = 12,     ///< microabsorption
  ratio2 = 13,  ///< intensity ratio of the second wavelength
  bac = 14,     ///< first background coefficient or height (node j, 1-based: bac + j - 1)
  debye_amp = 26,
  debye_dist = 32,  ///< six Debye amplitudes, six distances [angstrom]
  bfile_a = 14,
  bfile_b = 15,
  bfile_c = 16,
  bfile_d = 17,   ///< scaled background file: a B((1+c)x+d) + b
  user_bk = 391,  ///< first of ten user profiles in the background
  // names of the same slots for time of flight and energy
  dtt1 = 2,        ///< [us/angstrom, keV angstrom]
  dtt2 = 3,        ///< [us/angstrom^2, keV angstrom^2]
  dtt_1overd = 4,  ///< [us angstrom]
  zero_t = 4,      ///< zero of the second regime, nprof 10 [us]
  dtt1t = 5,
  dtt2t = 6,    ///< second regime: [us/angstrom], [us angstrom]
  xcross = 7,   ///< where the regimes cross [1/angstrom]
  wcross = 8,   ///< steepness of the crossing [angstrom]
  two_sin = 9,  ///< 2 sin(theta) of the detector
  // Laue patterns have no background: its slots hold what shapes their intensities
  flux = 14,      ///< up to 60 Chebychev coefficients of the incident spectrum
  laue_abs = 74,  ///< absorption: A, B, C, D, or six coefficients of the horizontal and six of the vertical variable
  effic = 86,     ///< up to 12 coefficients of the efficiency of the detector
  last = NGL,
};
}  // namespace gslot

/// Slots of a rigid body.
namespace bslot {
enum : int {
  xc = 1,    ///< its origin: xc, yc, zc [fractions of the cell]
  phi = 4,   ///< its orientation: phi, theta, chi [deg]
  t11 = 7,   ///< translation tensor 11, 22, 33, 12, 13, 23 [angstrom^2]
  l11 = 13,  ///< libration tensor, the same order [deg^2]
  s11 = 19,  ///< screw tensor, nine components row by row [deg angstrom]
  last = 27,
};
}  // namespace bslot

/// Columns of xl, the parameters of an atom.
namespace aslot {
enum : int {
  x = 1,
  y = 2,
  z = 3,     ///< fractions of the cell
  biso = 4,  ///< isotropic B [angstrom^2]
  occ = 5,   ///< occupancy times site over general multiplicity
  b11 = 13,
  b22 = 14,
  b33 = 15,
  b12 = 16,
  b13 = 17,
  b23 = 18,  ///< betas
  rx = 6,
  ry = 7,
  rz = 8,  ///< real part of the moment [Bohr magnetons], or coefficients 1 to 3, or size and angles
  ix = 9,
  iy = 10,
  iz = 11,     ///< imaginary part
  magph = 12,  ///< magnetic phase [2 pi]
  ff = 19,     ///< first parameter of the form-factor lines
  // modulated atoms: twelve columns per harmonic, in the place of the form factor
  ucos = 19,  ///< displacement, cosine terms along x, y, z [fractions of the cell]
  usin = 22,  ///< and its sine terms
  mcos = 25,  ///< moment, cosine terms [Bohr magnetons]
  msin = 28,  ///< and its sine terms
  per_harmonic = 12,
  last = NAT_P,
};
}  // namespace aslot

/// Radiation codes of a pattern: the size of jobtyp.
namespace job {
enum : int { xrays = 0, neutrons = 1, calc_x = 2, calc_n = 3, electrons = 4 };
}

/// Abscissa of a pattern, ixunit.
namespace abscissa {
enum : int { two_theta = 0, tof = 1, energy = 2, q = 3, s = 4, laue = 10 };
}

/// Where a slot lives; the fixed order of walking is glb of each pattern; of each phase par of each pattern,
/// propagation vectors, magnetic domains, atoms, rigid bodies, symmetry modes.
enum class slot_family : std::uint8_t { global, phase, vector, domain, atom, body, mode };

/// One refinable slot, by reference into its record. owner: 0-based pattern, phase or atom; k: slot number. ip:
/// pattern, for vectors, domains, rigid bodies and modes of the phase `owner` their 0-based number.
struct slot_ref {
  slot_family family;
  int owner, ip, k;
  float& value;
  int& number;
  float& code;  ///< raw code word until treat_codes, then the signed multiplier
  float& code_read;
};

/// Terms of a symmetry-adapted form factor.
struct spherical_form_type {
  std::string kind;                   ///< ylmp or klj
  int es3 = 0;                        ///< terms, at most 12
  std::array<float, 9> axes{};        ///< its axes, rows of a matrix; all zero on the line means the identity
  std::array<std::int32_t, 36> lm{};  ///< l, m and sign of each term
  bool operator==(const spherical_form_type&) const = default;
};

/// A propagation vector, components 1 to 3 in reciprocal units; element 0 is unused.
struct vector_type {
  std::array<float, 4> pvk{};
  std::array<int, 4> lvk{};                ///< parameter numbers
  std::array<float, 4> avk{}, avk_read{};  ///< code words, then multipliers; as read
  bool operator==(const vector_type&) const = default;
};

/// Population of a magnetic domain (slot 1) and its chirality (slot 2).
struct domain_type {
  std::string op;              ///< operator that makes it, as text
  bool time_reversal = false;  ///< MAGDOMT
  bool chirality = false;      ///< the chirality is given
  std::array<float, 3> value{};
  std::array<int, 3> number{};
  std::array<float, 3> code{}, code_read{};
  bool operator==(const domain_type&) const = default;
};

/// A group of atoms that moves as one. Its atoms follow each other in the list of the phase.
struct rigid_body_type {
  std::string name;
  int first_atom = 0, natoms = 0;  ///< its atoms; the first is 0-based in the list of all atoms
  int coordinates = 1;             ///< of its atoms: 1 fractional, 2 Cartesian, 3 spherical, 4 Z-matrix
  int type_angles = 0;             ///< convention of the angles
  int type_thermal = 0;            ///< 0 B of the atoms, 1 T, 2 T and L, 3 T, L and S
  std::array<float, bslot::last + 1> value{};
  std::array<int, bslot::last + 1> number{};
  std::array<float, bslot::last + 1> code{}, code_read{};
  bool operator==(const rigid_body_type&) const = default;
};

/// What an atom does in a symmetry mode of amplitude one.
struct mode_component {
  int number = 0;    ///< in front of the line
  std::string atom;  ///< label
  std::array<float, 3> v{};
  float norm = 0.f;
  bool operator==(const mode_component&) const = default;
};
/// Displacements, moments or occupancies of atoms with a common amplitude (slot 1).
struct mode_type {
  char kind = 'V';   ///< V displacements, M moments, O occupancies
  std::string name;  ///< up to 8 characters
  std::vector<mode_component> components;
  std::array<float, 2> value{};
  std::array<int, 2> number{};
  std::array<float, 2> code{}, code_read{};
  bool operator==(const mode_type&) const = default;
};
/// The modes of a kind that a phase has, and how large their amplitudes may become.
struct mode_set_type {
  char kind = 'V';
  int count = 0;
  bool amplitude_constraint = false;  ///< the limit was given
  float max_amplitude = 2.f;          ///< [angstrom, Bohr magnetons]
  bool operator==(const mode_set_type&) const = default;
};

/// Lists of intensities of a pattern: Laue images, or several phases with one wavelength.
struct intensity_lists_type {
  int sets = 0;                            ///< lists
  int inc_spect = 0;                       ///< coefficients of the incident spectrum; -1: histogram in a file
  int abs_model = 0;                       ///< 0 none, 1 exponential, 2 Chebychev
  int det_eff = 0;                         ///< coefficients of the efficiency of the detector
  float smin = 0.f, smax = 0.f, ds = 0.f;  ///< range and step in sin(theta)/lambda [1/angstrom]
  std::string histogram;                   ///< file of the incident spectrum
  std::vector<std::string> files;
  bool operator==(const intensity_lists_type&) const = default;
};

/// A matrix and a phase (magnetic rotation) or a translation (displacement), as a line of ten numbers holds them.
struct hand_matrix_type {
  std::array<int, 9> m{};  ///< rows
  float ph = 0.f;          ///< phase [2 pi]
  bool operator==(const hand_matrix_type&) const = default;
};

/// One operator of a symmetry that was given by hand, with what stands below it.
struct hand_operator_type {
  std::array<int, 9> s{};                ///< rotation, rows
  std::array<float, 3> t{};              ///< translation
  std::vector<hand_matrix_type> mag;     ///< one per set of magnetic matrices
  std::vector<hand_matrix_type> dep;     ///< one per set of displacement matrices
  std::vector<std::vector<float>> basr;  ///< real basis functions per representation, three components each
  std::vector<std::vector<float>> basi;  ///< imaginary ones, empty when none are given
  std::vector<std::string> lines;        ///< all these lines as they stood
  bool operator==(const hand_operator_type&) const = default;
};

/// Symmetry given by hand (isym 1, -1, -2).
struct hand_symmetry_type {
  int nsym = 0, cen = 0, laue = 0, magmat = 0, depmat = 0;  ///< header of isym 1
  int ireps = 0, n_bas = 0;                                 ///< header of isym -2, in the place of the last two
  std::vector<std::vector<int>> icompl;  ///< per representation and basis function: 0 real, 1 imaginary coefficient
  std::vector<hand_operator_type> op;
  bool operator==(const hand_symmetry_type&) const = default;
};

/// Soft restraint on a distance.
struct distance_restraint {
  std::array<std::string, 2> catod;
  int isymc = 1;                  ///< operator applied to the second atom, 1-based
  std::array<float, 3> transl{};  ///< and its lattice translation
  float dio = 0.f, sdio = 0.f;    ///< wanted distance and sigma [angstrom]; not applied when sigma is not above 0
  bool operator==(const distance_restraint&) const = default;
};
/// Soft restraint on an angle; the second atom is the vertex.
struct angle_restraint {
  std::array<std::string, 3> catoa;
  std::array<int, 2> isymca{1, 1};
  std::array<float, 6> transla{};
  float angl = 0.f, scang = 0.f;  ///< [deg]
  bool operator==(const angle_restraint&) const = default;
};
/// Soft restraint on the size of a moment.
struct moment_restraint {
  std::string cmatom;
  float moment = 0.f, sigma = 0.f;  ///< [Bohr magnetons]
  bool operator==(const moment_restraint&) const = default;
};

/// Reflections with n1 h + n2 k + n3 l = n n4 + n5; the parameter of the list entry applies to them.
struct reflection_condition {
  std::array<int, 5> n{};
  bool operator==(const reflection_condition&) const = default;
};

struct atom_type {
  std::string atext;                      ///< label, up to 6 characters
  std::string ntyp;                       ///< scattering species, up to 4 characters, as written
  std::array<float, NAT_P + 1> xl{};      ///< values, columns aslot::
  std::array<int, NAT_P + 1> lp{};        ///< parameter numbers, 0 fixed
  std::array<float, NAT_P + 1> a{};       ///< raw code words until treat_codes, then signed multipliers
  std::array<float, NAT_P + 1> a_read{};  ///< code words as they stood in the control file
  int n_t = 0;                            ///< 0 isotropic; 2, 3 with betas
  std::array<int, 2> isap{};              ///< range of operators summed for this atom, 0 0: all
  int sp_pointers = 0;                    ///< field Spc
  std::string atm_info;                   ///< text behind the # of its line
  int line_nb = 0;                        ///< line of the control file that it stands on
  int phase = 0;                          ///< phase that it belongs to, 0-based
  std::vector<int> species;               ///< per pattern: index into pattern_type::scattering, -1 none (lookup)
  int imagr = 0;                          ///< set of magnetic matrices, or representation, 1-based
  int ikv = 0;                            ///< propagation vector, 1-based
  spherical_form_type sa_ylmp;            ///< symmetry-adapted form factor (species SASH)
  std::array<int, 6> radial_kind{};       ///< multipole species: kinds of the radial functions
  std::array<float, 4> radial_scale{};    ///< and their scales, none at or below 1e-7
  std::array<int, 2> coupled_kind{};      ///< and of the coupled atoms
  std::array<std::string, 4> coupled{};   ///< labels of the coupled atoms
  std::array<float, 3> connected{};       ///< atom of a rigid body: N1, N2, N3, the atoms that its coordinates refer to
  bool operator==(const atom_type&) const = default;
};

/// What one chemical species scatters in one pattern.
struct scattering_entry {
  std::string nam;                ///< name as used by the atoms
  float dfp = 0.f;                ///< X-rays: f'; neutrons: scattering length [1e-12 cm]
  float dfpp = 0.f;               ///< X-rays: f''; neutrons: imaginary part
  int ity = 0;                    ///< kind of entry as read
  std::array<float, 9> ac{};      ///< a1 b1 a2 b2 a3 b3 a4 b4 c of the form factor
  float z = 0.f;                  ///< atomic number, for electrons
  std::vector<float> star;        ///< abscissae sin(theta)/lambda of a table, [1/angstrom]
  std::vector<float> ftab;        ///< values of the table
  std::vector<float> posi, scat;  ///< pairs of values that stood before the coefficients, kept for the writer
  bool from_file = false;         ///< given in the control file
  bool operator==(const scattering_entry&) const = default;
};

struct excluded_region {
  float alow = 0.f, ahigh = 0.f;
  bool operator==(const excluded_region&) const = default;
};

/// SHELX-like weights: w = 1/(var + (a P)^2 + b P + d), P = calc + f (obs - calc).
struct weighting_scheme {
  bool refine = false, given = false;
  float a = 0.f, b = 0.f, c = 0.f, d = 0.f, e = 0.f, f = 0.f;
  bool operator==(const weighting_scheme&) const = default;
};

/// Merged reflection list of a pattern: arrays of one length, in ascending position over all phases after assignk.
struct reflection_list {
  std::vector<std::int32_t> irefs;           ///< packed phase, wavelength, h, k, l: kv_irefs functions below
  std::vector<int> mlt;                      ///< multiplicity (powder)
  std::vector<int> ihkl;                     ///< satellite number, 0 for a fundamental reflection
  std::vector<std::uint8_t> spec_ref;        ///< has own profile parameters
  std::vector<int> icod;                     ///< first par slot of these
  std::vector<float> hw;                     ///< refs(1): total FWHM [deg]
  std::vector<double> pos;                   ///< refs(2): position without zero and sample shifts [deg]
  std::vector<float> lp;                     ///< refs(3): Lorentz-polarisation-absorption
  std::vector<float> dspacing;               ///< refs(4): d [angstrom]
  std::vector<float> halfg, halfl, gam;      ///< Gaussian and Lorentzian FWHM [deg], mixing eta
  std::vector<float> ggi, cci;               ///< instrumental additions: Gaussian FWHM^2, Lorentzian FWHM
  std::vector<float> sl_i, dl_i;             ///< instrumental additions to S/L, D/L
  std::vector<float> ff;                     ///< multiplicity times F^2
  std::vector<float> corr;                   ///< intensity correction
  std::vector<float> phasen;                 ///< phase of F [rad]
  std::vector<float> asfa, bsfa;             ///< real and imaginary part of F
  std::vector<float> iobs, icalc;            ///< integrated intensities of the last bragg
  std::vector<int> first_point, last_point;  ///< points that it reaches, 0-based, last excluded (assignk writes, last)
  [[nodiscard]] int size() const { return static_cast<int>(irefs.size()); }
  void resize(std::size_t n);
  void permute(const std::vector<int>& order);  ///< element i becomes the former order[i], in every array
  bool operator==(const reflection_list&) const = default;
};

/// A reflection as it is packed into irefs. phase 0-based, wave 1 or 2.
struct reflection_key {
  int phase = 0, wave = 1, h = 0, k = 0, l = 0;
};
[[nodiscard]] std::int32_t pack_irefs(const reflection_key& key);  ///< phases 0..15, indices -128..127
[[nodiscard]] reflection_key unpack_irefs(std::int32_t word);

/// Range of reflections that reach a point. Stored 1-based: lo, hi; 0 0 none; excluded is a mark of its own.
[[nodiscard]] constexpr std::int64_t pack_kr(int lo, int hi, int maxreflx) { return std::int64_t{hi} * maxreflx + lo; }
[[nodiscard]] constexpr int kr_lo(std::int64_t kr, int maxreflx) { return static_cast<int>(kr % maxreflx); }
[[nodiscard]] constexpr int kr_hi(std::int64_t kr, int maxreflx) {
  return static_cast<int>((kr / maxreflx) % maxreflx);
}
[[nodiscard]] constexpr bool kr_excluded(std::int64_t kr, int maxreflx) { return kr == maxreflx; }

/// Sums and indices of one set of points (all non-excluded, or those with a Bragg contribution).
struct agreement_set {
  float s1 = 0, s2 = 0, s3 = 0, d1 = 0, d2 = 0, qq1 = 0, qq2 = 0, dw = 0, devinc = 0, yinv = 0;
  float r_patt = 0, r_wpatt = 0, cr_patt = 0, cr_wpatt = 0, r_expected = 0, cr_expected = 0;
  float chi2 = 0, dstar = 0, qdw = 0, n_s = 0, freed = 0;
  bool operator==(const agreement_set&) const = default;
};

/// One row of the table of a resolution file.
struct resolution_row {
  float tins = 0.f;                  ///< 2theta [deg] or energy [keV]; T.O.F.: d [angstrom]
  float gins = 0.f;                  ///< Gaussian FWHM [deg, keV]; T.O.F.: variance [us^2]
  float cins = 0.f;                  ///< Lorentzian FWHM [deg, keV, us]
  float sl_ins = 0.f, dl_ins = 0.f;  ///< axial divergence S/L, D/L
  float alfins = 0.f, betins = 0.f;  ///< T.O.F.: rise and decay [1/us]
  float shiftins = 0.f;              ///< T.O.F.: shift of the position [us]
  bool operator==(const resolution_row&) const = default;
};

/// What the resolution file of a pattern said. Written by instrumental_resolution::read_irf only.
struct resolution_type {
  std::string title;  ///< first line of the file
  // what the file gave; only then the values of the same name hold
  bool wavel_g = false;   ///< lamda and ratio of the pattern
  bool rkk_g = false;     ///< rkk of the pattern
  bool cthm_g = false;    ///< cthm of the pattern
  bool geom_g = false;    ///< ilor of the pattern, alpsd
  bool range_g = false;   ///< thmin, step, thmax, and the range that the reader of data applies
  bool asym_g = false;    ///< s_l, d_l
  bool sigam_g = false;   ///< T.O.F. table: variance and Lorentzian width
  bool alfbet_g = false;  ///< T.O.F. table: rise and decay
  bool shift_g = false;   ///< T.O.F. table: shift

  std::array<float, 2> uins{}, vins{}, wins{};  ///< Gaussian FWHM^2 per wavelength: three coefficients
  std::array<float, 2> xins{}, yins{}, zins{};  ///< Lorentzian FWHM, or eta: three coefficients
  float s_l = 0.f, d_l = 0.f;                   ///< axial divergence of the instrument
  float alpsd = 0.f;                            ///< incident angle [deg]
  float thmin = 0.f, step = 0.f, thmax = 0.f;   ///< range of the instrument
  std::vector<resolution_row> rows;             ///< table, tins increasing (npoins rows)
  // time of flight: the instrument's share of each constant
  float zero_i = 0.f;                                            ///< [us]
  float dtt1_i = 0.f, dtt2_i = 0.f, dtt_1overd_i = 0.f;          ///< [us/A, us/A^2, us A]
  float zerot_i = 0.f, dtt1t_i = 0.f, dtt2t_i = 0.f;             ///< thermal regime [us, us/A, us A]
  float xcross_i = 0.f, wcross_i = 0.f;                          ///< crossover 1/d [1/A] and its steepness [A]
  float toftet_i = 0.f;                                          ///< 2theta of the detector bank [deg]
  float sig2_i = 0.f, sig1_i = 0.f, sig0_i = 0.f, sigq_i = 0.f;  ///< variance [us^2 over powers of d]
  float gamma2_i = 0.f, gamma1_i = 0.f, gamma0_i = 0.f;          ///< Lorentzian FWHM [us over powers of d]
  float alfa0_i = 0.f, alfa1_i = 0.f, alfaq_i = 0.f;             ///< rise
  float beta0_i = 0.f, beta1_i = 0.f, betaq_i = 0.f;             ///< decay
  float alfa0t_i = 0.f, alfa1t_i = 0.f;                          ///< rise, thermal regime
  float beta0t_i = 0.f, beta1t_i = 0.f;                          ///< decay, thermal regime
  bool operator==(const resolution_type&) const = default;
};

/// Intensity correction of a pattern from its .cor file. Written by intensity_correction::read_cor only.
struct correction_type {
  int itycorr = 1;                ///< 1: integrated intensities are multiplied; 2: the observed profile is divided
  int ityfunc = 1;                ///< 1: polynomial
  std::vector<float> corrp;       ///< abscissae of the table, increasing (icorr 1)
  std::vector<float> corrv{1.f};  ///< values of the table, or coefficients of the polynomial, constant term first
  bool operator==(const correction_type&) const = default;
};

/// A number that a data file tells of its radiation.
struct told_value {
  float value = 0.f;  ///< 0: not told
  int line = 0;       ///< of the file
  std::string word;   ///< by which the file calls it
  bool operator==(const told_value&) const = default;
};
/// The radiation of a measurement by its data file. Written by readint; the control file rules, this is held against
/// it.
struct told_radiation {
  told_value lambda1, lambda2;  ///< wavelengths [angstrom]
  told_value ratio;             ///< intensity of the second over the first
  bool operator==(const told_radiation&) const = default;
};

struct pattern_type {
  // flags of the control file, as read; forced values are applied in place and noted beside the field
  int jobtyp = 2;    ///< 0 X-rays, 1 neutrons, 2/3 calculation only, 4 electrons; radiation by the absolute value
  int nprof = 7;     ///< default peak shape of the pattern
  int nbckgd = 0;    ///< absolute value of the background flag
  int isbac = 1;     ///< its sign
  int nexcrg = 0;    ///< excluded regions
  int nscat = 0;     ///< scattering entries, signed: negative for tables
  int nori = 0;      ///< preferred orientation: 0 exponential, 1 March-Dollase
  int iwgt = 0;      ///< weights: 0 1/var, 1 maximum likelihood, 2 unit, 3 SHELX-like
  int ilor = 0;      ///< geometry
  int ireso = 0;     ///< resolution file
  int istep = 0;     ///< thinning of the data
  int ixunit = 0;    ///< abscissa, 0 2theta
  int icorr = 0;     ///< intensity corrections from a file
  int anm = 0;       ///< long form: anomalous difference
  int cry_flag = 0;  ///< long form: field Int
  int iot = 0, ipl = 0, ipc = 0, lst1 = 0, lst2 = 0, lst3 = 0;  ///< output flags
  int pl_prf = 1;                      ///< plot file: 1 prf, 3 and -3 tab-separated columns, 0 none
  int instr = 0;                       ///< layout of the data file
  int jlkh = 0, jfou = 0, ianaly = 0;  ///< output flags
  int iuvw = 0;                        ///< 1: own U, V, W for the second wavelength
  int iabscor = 2;                     ///< absorption correction
  int iglmore = 0;                     ///< more global lines: 1 microabsorption, 2 user profiles, 3 both
  int nbk_pr = 0;                      ///< user profiles in the background
  int affpat = 1;                      ///< 0: takes no part in the refinement
  float w_pat = 1.f;                   ///< normalised weight in the joint sum
  bool cry_pat = false;                ///< integrated intensities
  bool disp_ds = false;                ///< displacement acts with cos(2 theta) (Debye-Scherrer)
  bool single_wave = false;
  bool brefint = false;  ///< some background point is refined
  bool bref = false;     ///< the background is rebuilt in every cycle
  bool brea = false;     ///< the background is a scaled file

  // values of the control file
  std::array<float, 2> lamda{1.54056f, 1.54439f};  ///< wavelengths [angstrom]
  std::array<float, 2> ratio{1.f, 0.5f};           ///< their relative intensities
  float bkpos = 40.f;                              ///< origin of the polynomial background
  float wdt = 8.f;                                 ///< reach of a peak in units of its FWHM
  float cthm = 0.91f;                              ///< monochromator, cos^2(2 theta_m)
  float rkk = 0.f;                                 ///< polarisation fraction
  std::array<float, 2> tmv{};                      ///< mu R or mu t per wavelength
  float rlim = 0.f;   ///< asymmetry and axial divergence act at and below this 2theta [deg]
  float alpsd = 0.f;  ///< incident angle of the flat plate [deg]
  float sent0 = 0.f;  ///< angle below which the beam overfills the sample [deg]
  float thmin_read = 1.f, step_read = 0.02f, thmax_read = 150.f;  ///< range as written in the control file
  std::array<float, NGL + 1> glb{};                               ///< values, slots gslot::
  std::array<int, NGL + 1> lglb{};                                ///< parameter numbers, 0 fixed
  std::array<float, NGL + 1> aglb{};       ///< raw code words until treat_codes, then signed multipliers
  std::array<float, NGL + 1> aglb_read{};  ///< code words as they stood in the control file
  std::vector<float> pos;                  ///< abscissae of the background points
  std::vector<excluded_region> excluded;
  weighting_scheme wght;
  std::vector<scattering_entry> scattering;  ///< those of the control file first, then what lookup adds
  std::vector<std::string> file_bpr;         ///< names of the user profiles
  std::string vary_command, fix_command;     ///< the VARY and FIX lines, blank when absent
  float fwindow = 0.f;                       ///< window of the Fourier filter of the background [points]
  int win_cyc = 1;                           ///< cycles between two filterings

  // the measured points (readint); all of one length npts, txv one longer
  float thmin = 1.f, step = 0.02f, thmax = 150.f;  ///< first abscissa, mean step, last abscissa
  int npts = 0;
  bool iconstep = true;                     ///< constant step: txv follows from thmin and step
  float low_range = 0.f, high_range = 0.f;  ///< limits that the reader applies, alive above 1
  float cnorm = 1.f;                        ///< mean of var/y
  float tsamp = 0.f;                        ///< sample temperature
  int numor = 0;                            ///< run number
  float yo_max = 0.f;                       ///< largest observed intensity
  std::vector<float> txv;                   ///< abscissae [deg]
  std::vector<float> y;                     ///< observed intensity
  std::vector<float> var;                   ///< VARIANCE of y, never sigma; > 0 for every point used
  std::vector<int> iww;                     ///< detectors summed into the point
  std::vector<float> yc;                    ///< calculated Bragg sum (the cycle)
  std::vector<float> bk;                    ///< background (the background model)
  std::vector<std::uint8_t> bk_cut;         ///< points where a refined background left its range and was set to 0
  std::vector<std::int64_t> kr;             ///< packed range of reflections of the point (assignk)
  std::vector<std::vector<float>> bk_pr;    ///< user profiles of the background on the grid of the data

  reflection_list refl;

  // results of the cycle
  int num = 0, num1 = 0;                          ///< points counted, points under reflections
  agreement_set all, bragg;                       ///< the second set is the one with the prefix e
  float scor = 0.f;                               ///< Berar-Lelann factor of the last cycle
  bool flag_gauss = false, flag_lorentz = false;  ///< a negative width was met in this cycle

  // what the writer of the control file needs and the run may change
  std::array<int, 11> output_flags{};  ///< iot ipl ipc lst1 lst2 lst3 pl_prf instr jlkh jfou ianaly, as read
  int n_bac = 0;                       ///< background coefficients that stand in the control file
  std::array<int, 14> flags_read{};    ///< flags of the pattern as read, in the order of the long form

  std::string fileprof;                            ///< file of a numerical profile, iot -1 and -2
  int tof_words = 7;                               ///< words on the zero line of time of flight: 7, with dtt_1overd 9
  float toftet = 0.f;                              ///< 2theta of the detector, time of flight and energy [deg]
  float dtt1 = 0.f, dtt2 = 0.f, dtt_1overd = 0.f;  ///< constants of the diffractometer, units as glb

  intensity_lists_type lists;  ///< Laue and multi-phase data
  bool cry_mphas = false;      ///< integrated intensities of several phases
  resolution_type resolution;  ///< instrument by its resolution file, alive with ireso not 0
  correction_type correction;  ///< intensity correction from a file, alive with icorr not 0
  told_radiation told;         ///< radiation by the data file

  /// Refinement data (as opposed to a pattern that is only calculated).
  [[nodiscard]] bool refining() const { return (jobtyp < 2 && jobtyp > -2) || jobtyp == job::electrons; }
  /// Radiation: job::xrays, job::neutrons or job::electrons.
  [[nodiscard]] int radiation() const {
    const int j = jobtyp < 0 ? -jobtyp : jobtyp;
    return j == job::calc_x ? job::xrays : j == job::calc_n ? job::neutrons : j;
  }
  bool operator==(const pattern_type&) const = default;
};

struct phase_type {
  std::string phsnm;  ///< name, without its VARY xyz and FIX xyz
  bool vary_xyz = false, fix_xyz = false;
  int natom = 0;            ///< atoms of the asymmetric unit
  int first_atom = 0;       ///< index of its first atom, 0-based
  int ndic = 0, nangc = 0;  ///< soft restraints (refused when above 0)
  int jbt = 0;              ///< 0 structure, +-2 profile matching, 3 fixed relative intensities
  int isym = 0, istr = 0, ifurt = 0, nvk = 0, imore = 0;
  float atz = 0.f;  ///< weight factor of the quantitative analysis
  int jview = 0, jdist = 0, jhelix = 0, jsol = 0, nmagc = 0, jter = 0, n_domains = 0;  ///< line of imore
  int ismo = 0, isi = 0, ishif = 0;  ///< strain, size and shift models
  std::string symb;                  ///< space-group symbol as read
  lmix_crystallographic_symmetry::space_group_type spgr;
  lmix_crystal_metrics::crystal_cell_type cellp;  ///< current direct cell
  std::array<float, 6> cell_esd{};                ///< esds of a, b, c, alpha, beta, gamma of the last cycle
  bool suppress = false;                          ///< no selected pattern uses it
  float dlim = 0.f;                               ///< user limit of d [angstrom], alive above 0.001
  // the COMMANDS block
  bool commands = false;                                ///< it stood in the file
  std::vector<std::string> cmd_text;                    ///< its lines without the first and the last
  bool mag_only = false, nuc_only = false;              ///< only the magnetic, only the nuclear part is calculated
  bool mag_only_named = false, nuc_only_named = false;  ///< asked for on the line of the name
  bool merg_mag = false, eff_mom = false, save_mag_strf = false;
  std::vector<std::string> content_element;  ///< content of the cell
  std::vector<float> content_number;
  std::array<int, 3> nn_grid{};  ///< grid of a density map
  bool refer_cell_given = false;
  std::array<float, 6> refer_cell{};  ///< reference cell
  int layert = 0, lay_subcell = 0;    ///< layered structure: stacking along a, b, c is 1, 2, 3; order of the supercell
  std::vector<domain_type> magdom;    ///< magnetic domains
  std::vector<std::array<float, 9>> twin;  ///< twin laws: rows of the matrix of the indices
  // symmetry and vectors
  hand_symmetry_type by_hand;
  char nlatti = ' ';                ///< lattice letter of a symmetry by hand
  std::vector<vector_type> vector;  ///< propagation vectors; with negative nvk the second half are the opposites
  bool vectors_behind = false;      ///< they stand behind the profile blocks
  bool mag_phase = false;           ///< some atom carries a moment
  // distances, angles, restraints
  float dis_max = 2.5f, ang_max = 0.f;  ///< limits of the calculation of distances and angles [angstrom, deg]
  bool bvs = false;                     ///< bond-valence sums are wanted
  int n_cations = 0, n_anions = 0;
  float tolerance = 0.f;                                     ///< of a bond-valence radius [%]
  std::vector<std::string> bvs_names;                        ///< cations, then anions
  std::array<float, 9> rot_cell{1, 0, 0, 0, 1, 0, 0, 0, 1};  ///< cell in which distances are calculated, rows
  std::array<float, 3> t_cell{};                             ///< and its origin
  std::vector<distance_restraint> distances;
  std::vector<angle_restraint> angles;
  std::vector<moment_restraint> moments;
  // rigid bodies, symmetry modes
  std::vector<rigid_body_type> bodies;
  std::vector<mode_set_type> mode_sets;
  std::vector<mode_type> modes;  ///< set by set
  bool stfac_nref = false;       ///< nothing refined changes its structure factors: those of the first cycle hold
  /// Profile matching in any form: the intensities are not calculated from atoms.
  [[nodiscard]] bool profile_matching() const { return jbt == 2 || jbt == -2 || jbt == 3 || jbt == -3; }
  bool operator==(const phase_type&) const = default;
};

/// What a phase holds in a pattern.
struct mix_type {
  int jcontr = 1;     ///< the phase contributes to the pattern
  int irf = 0;        ///< source of the reflection list: 0 generated
  int npro = 0;       ///< peak shape
  int npro_read = 0;  ///< as written (0 takes nprof of the pattern)
  int jtyp = 0, nref_sp = 0, ph_shift = 0;
  std::array<float, 3> pref{0.f, 0.f, 1.f};  ///< direction of preferred orientation
  float brinl = 0.f, rmua = 0.f, rmub = 0.f, rmuc = 0.f;
  std::string file_hkl;                     ///< reflection file of FILE_HKL, blank: the default name
  int p_ph = 1;                             ///< phase number looked for in that file
  std::array<float, MPAR + 1> par{};        ///< values, slots slot::
  std::array<int, MPAR + 1> lpar{};         ///< parameter numbers, 0 fixed
  std::array<float, MPAR + 1> apar{};       ///< raw code words until treat_codes, then signed multipliers
  std::array<float, MPAR + 1> apar_read{};  ///< code words as they stood in the control file
  int num_refl = 0;                         ///< reflections in the list of the pattern, both wavelengths
  float r_bragg = 0.f, r_f = 0.f;           ///< agreement of integrated intensities of the last cycle [%]
  int num_scale = 1;                        ///< single crystal: scale factors
  int iextinc = 0;                          ///< single crystal: extinction model
  int naxes = 0, norstp = 0;                ///< preferred orientation of several axes: axes, steps of the integration
  std::vector<std::array<float, 3>> axes;   ///< their directions
  std::vector<reflection_condition> size_cond, shift_cond;  ///< lists of the size and shift models
  std::array<float, 3> psz{};                               ///< direction of platelet or needle
  std::vector<std::array<int, 6>> special;  ///< special reflections: h, k, l, then vector, or m, n, p of a modulation
  bool operator==(const mix_type&) const = default;
};

/// A parameter with limits.
struct parameter_limit {
  int number = 0;  ///< parameter number, 0: of none
  float vlim1 = 0.f, vlim2 = 0.f, step = 0.f;
  int condition = 0;
  std::string name;
  int number_read = 0;  ///< parameter number of the control file
  bool operator==(const parameter_limit&) const = default;
};

/// A linear relation between parameters, sum of coefficient times parameter = value.
struct linear_restraint {
  float val_lin = 0.f, sval_lin = 0.f;
  int n = 0;             ///< terms as written; negative: listed only
  bool noapply = false;  ///< listed only: n is negative or the sigma is not above 0
  std::vector<float> coef;
  std::vector<int> para;       ///< parameter numbers, 0: none
  std::vector<int> para_read;  ///< those of the control file
  bool operator==(const linear_restraint&) const = default;
};

/// What Monte Carlo search and simulated annealing are asked for.
struct search_type {
  int nconfg = 0, nsolu = 1, nselr = 0, nscalef = 0;
  float t_ini = 10.f, anneal = 0.9f, acceptc = 0.f;
  int num_temps = 60, nalgor = 0, initconfig = 0, num_therm = 0, weight_sim = 0;
  std::array<int, 2> seed_sa{};  ///< 0 0: from the clock
  bool operator==(const search_type&) const = default;
};

/// How the cycles of a run ended. Written by the cycles; console, summary and exit status tell it.
struct cycles_end_type {
  enum class how : std::uint8_t {
    not_run,
    calculated,   ///< a calculation only
    converged,
    used_up,      ///< all cycles that were asked for, without convergence
    asked_to,     ///< by a request to finish
    no_descent,   ///< no shift lowers the sum, and the shifts are not small
    no_peaks,     ///< nothing is left of the calculated peaks of a pattern
    broken_off,   ///< divergence, singular matrix, too few points
  };
  how end = how::not_run;
  std::vector<std::string> remarks;  ///< what holds the result: parameters at limits, dropped, intensities at zero
  /// The result stands at a minimum of all parameters that were to be refined.
  [[nodiscard]] bool whole() const { return (end == how::converged && remarks.empty()) || end == how::calculated; }
  bool operator==(const cycles_end_type&) const = default;
};

/// How the intensities of profile-matching phases follow the pattern.
enum class intensity_road : std::uint8_t {
  together,   ///< moved by the solution of the normal equations
  partition,  ///< shifts that foresee their answer, then partitions of the net profile
  fixed,      ///< shifts at fixed intensities, then partitions of the net profile
};

/// A comment line that the user has written into the control file.
struct user_comment {
  int lines_above = 0;        ///< lines of the file above it that are no comments, without the title
  bool below_header = false;  ///< it stood behind the comment of the program on the next line
  std::string text;
  bool operator==(const user_comment&) const = default;
};

struct run_type {
  std::string title;
  bool s_format = true;     ///< short form of the control file
  bool w_pat_line = false;  ///< a W_PAT line stood in the file
  int n_patt = 1, nphase = 1;
  int idum = 0, iasg = 0, nrell = 0, icryg = 0;
  bool optimize = false, automatic = false;
  int mat = 0, nxt = 1, nlinc = 0, jcil = 0, jsy = 0, ishor = 0;  ///< output flags
  int mcycle = 1;                                                 ///< cycles asked for
  float eps = 0.1f;                                               ///< convergence: shift/sigma
  std::array<float, 5> relax{0.f, 1.f, 1.f, 1.f, 1.f};  ///< relax[1..4]: atoms, anisotropic, profile, cell and pattern
  int maxs = 0;                                         ///< refined parameters
  float t_chi2_ini = 1.0e8f;                            ///< joint chi-square that the control file carries
  float t_chi2 = 0.f, t_s2 = 0.f;                       ///< joint chi-square and weighted residual of the last cycle
  int icycle_c = 0;                                     ///< cycle now running
  int cycles_done = 0;                                  ///< cycles calculated
  float cond = 0.f;                                     ///< condition estimate of the last inversion
  bool ctr_err = false;                                 ///< the listing asked to abort
  bool code_splitted = false;                           ///< the code arrays hold multipliers
  bool finish_required = false;                         ///< a stop-request file asked to finish
  int n_pat_plot = 1;
  float t1_lim = 0.f, t2_lim = 0.f;
  int maximum_lcode = 0;         ///< highest parameter number met
  std::vector<int> number_now;   ///< of the run, by parameter number as read, 0: no code carries it; empty: as read
  bool pattern_to_plot = false;  ///< the line stood in the file
  std::vector<parameter_limit> limits;
  // what the writer of the control file needs and the run may change
  std::array<int, 6> output_flags{};     ///< mat nxt nlinc jcil jsy ishor, as read
  int maxs_read = 0;                     ///< number of refined parameters, as read
  bool automatic_read = false;           ///< flag Aut, as read
  std::array<int, 5> flags_read{};       ///< nphase idum iasg nrell icryg, as read
  std::vector<user_comment> comments;    ///< in the order of the file
  std::vector<std::string> left_over;    ///< lines behind the last one that the flags ask for, without comments
  std::vector<std::string> behind_plot;  ///< and behind the pattern to plot
  std::vector<linear_restraint> linear;
  search_type search;
  // asked for on the command line
  bool whole_steps = false;                             ///< a shift that reverses the one before is not halved
  intensity_road intensities = intensity_road::together;
  cycles_end_type cycles_end;
  bool operator==(const run_type&) const = default;
};

/// What a stage found in its input and the user should know: printed by a run, listed by a look at it.
struct notice {
  bool warning = false;  ///< the run goes on to an end that is hardly meant; otherwise a note
  std::string text;      ///< what was found
  std::string advice;    ///< what to do, a sentence; blank when the text says it
};

/// Bookkeeping of the refined parameters, 1-based: element 0 unused, maxs + 1 long.
struct parameter_table {
  std::vector<std::string> nampar;  ///< names, up to 50 characters
  std::vector<float> valx, svalx;   ///< value and sigma of the reference slot
  std::vector<float> m_ref;         ///< size of the reference slot's multiplier (0: no slot moves)
  std::vector<std::string> remark;  ///< what held it at the end, blank when it was free
};

/// The data file that readint keeps between patterns: a file of several banks stays open. Written by readint only.
struct data_file_type {
  bool keep_open = false;             ///< the next pattern goes on in this file
  bool ralf_type = false;             ///< its banks hold counts per channel (layout 14)
  bool bank_taken = false;            ///< the BANK line of the next pattern was taken already (layout 14)
  float fac_y = 1000.f;               ///< factor of its intensities (layout 14)
  std::string txt1, txt2;             ///< title and instrument (layout 14)
  std::string name;                   ///< of the file
  lmix_text_input::text_source file;  ///< its text and the place of the next line
};

struct state_type {
  dimensions dim;
  run_type run;
  std::vector<pattern_type> pattern;
  std::vector<phase_type> phase;
  std::vector<atom_type> atom;
  std::vector<mix_type> mixes;  ///< phase-major: mix(ph, ip)
  parameter_table parm;
  normal_equations::normal_matrix ne;
  kalvaris_inout::inout_type io;
  kalvaris_util::clock_type clock;
  lmix_string_utilities::findfmt_state fmt;  ///< ierr_fmt, line_nb, mess_findfmt of the control-file reader
  data_file_type data_file;
  std::vector<notice> notices;  ///< in the order of the stages

  /// Keeps the notice and, unless the run is only looked at, prints it on console and listing.
  void tell(notice said);

  [[nodiscard]] mix_type& mix(int ph, int ip) { return mixes[static_cast<std::size_t>(ph * run.n_patt + ip)]; }
  [[nodiscard]] const mix_type& mix(int ph, int ip) const {
    return mixes[static_cast<std::size_t>(ph * run.n_patt + ip)];
  }
  /// Walks every refinable slot in the fixed order: glb of each pattern; then of each phase par of each pattern, its
  /// propagation vectors, magnetic domains, atoms, rigid bodies and symmetry modes. The callback takes one slot_ref.
  template <class F>
  void for_each_slot(F&& f);
};

template <class F>
void state_type::for_each_slot(F&& f) {
  auto block = [&](slot_family family, int owner, int ip, auto& v, auto& n, auto& m, auto& r) {
    for (int k = 1; k < static_cast<int>(v.size()); ++k) {
      const auto i = static_cast<std::size_t>(k);
      f(slot_ref{family, owner, ip, k, v[i], n[i], m[i], r[i]});
    }
  };
  for (int ip = 0; ip < run.n_patt; ++ip) {
    pattern_type& p = pattern[static_cast<std::size_t>(ip)];
    block(slot_family::global, ip, ip, p.glb, p.lglb, p.aglb, p.aglb_read);
  }
  for (int ph = 0; ph < run.nphase; ++ph) {
    for (int ip = 0; ip < run.n_patt; ++ip) {
      mix_type& m = mix(ph, ip);
      block(slot_family::phase, ph, ip, m.par, m.lpar, m.apar, m.apar_read);
    }
    phase_type& p = phase[static_cast<std::size_t>(ph)];
    int number = 0;
    for (vector_type& v : p.vector) block(slot_family::vector, ph, number++, v.pvk, v.lvk, v.avk, v.avk_read);
    number = 0;
    for (domain_type& d : p.magdom) block(slot_family::domain, ph, number++, d.value, d.number, d.code, d.code_read);
    for (int ia = p.first_atom; ia < p.first_atom + p.natom; ++ia) {
      atom_type& t = atom[static_cast<std::size_t>(ia)];
      block(slot_family::atom, ia, 0, t.xl, t.lp, t.a, t.a_read);
    }
    number = 0;
    for (rigid_body_type& b : p.bodies) block(slot_family::body, ph, number++, b.value, b.number, b.code, b.code_read);
    number = 0;
    for (mode_type& m : p.modes) block(slot_family::mode, ph, number++, m.value, m.number, m.code, m.code_read);
  }
}

}  // namespace kalvaris_params

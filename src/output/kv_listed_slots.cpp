#include "kv_listed_slots.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "kv_background.hpp"
#include "kv_listing_text.hpp"
#include "lmix_fixed_format.hpp"
#include "pcr_layout.hpp"
#include "pcr_profile.hpp"

namespace kv_listed_slots {

namespace {

namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace abscissa = kalvaris_params::abscissa;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using kv_listing_text::at;
using lmix_fixed_format::fmt_line;
using pcr_profile::block;

struct slot_row {
  int k = 0;
  std::string_view words;
  int decimals = 0;
  bool always = false;  ///< printed also when it is 0 and fixed
};

constexpr std::array profile_rows{
    slot_row{slot::scale, " => Overall scale factor", 8, true},
    slot_row{slot::bov, " => Overall temperature factor B", 5, true},
    slot_row{slot::shape1, " => Shape parameter: eta0 or m0", 5, false},
    slot_row{slot::u, " => Halfwidth parameter U", 6, true},
    slot_row{slot::v, " => Halfwidth parameter V", 6, true},
    slot_row{slot::w, " => Halfwidth parameter W", 6, true},
    slot_row{slot::x, " => X (Lorentzian strain width, or slope of the shape)", 6, true},
    slot_row{slot::y, " => Y (Lorentzian size width, or slope of the shape)", 6, true},
    slot_row{slot::gausiz, " => Gaussian size parameter", 6, false},
    slot_row{slot::lorsiz, " => Lorentzian size parameter", 6, false},
    slot_row{slot::xi, " => Lorentzian part of the strain, or width slope of eta", 6, false},
    slot_row{slot::u2, " => Halfwidth parameter U of Lambda2", 6, false},
    slot_row{slot::v2, " => Halfwidth parameter V of Lambda2", 6, false},
    slot_row{slot::w2, " => Halfwidth parameter W of Lambda2", 6, false},
    slot_row{slot::u_r, " => Halfwidth parameter U, right half", 6, false},
    slot_row{slot::v_r, " => Halfwidth parameter V, right half", 6, false},
    slot_row{slot::w_r, " => Halfwidth parameter W, right half", 6, false},
    slot_row{slot::shape1_r, " => Shape parameter eta0, right half", 5, false},
    slot_row{slot::x_r, " => Slope of eta, right half", 6, false},
    slot_row{slot::pref1, " => Preferred orientation G1", 5, true},
    slot_row{slot::pref2, " => Preferred orientation G2", 5, true},
    slot_row{slot::asy1, " => Asymmetry parameter P1", 5, false},
    slot_row{slot::asy2, " => Asymmetry parameter P2", 5, false},
    slot_row{slot::asy3, " => Asymmetry parameter P3", 5, false},
    slot_row{slot::asy4, " => Asymmetry parameter P4", 5, false},
    slot_row{slot::s_l, " => Axial divergence S_L", 5, false},
    slot_row{slot::d_l, " => Axial divergence D_L", 5, false},
    slot_row{slot::zero_ph, " => Zero shift of the phase", 5, true},
    slot_row{slot::sycos_ph, " => Displacement of the phase", 5, true},
    slot_row{slot::sysin_ph, " => Transparency of the phase", 5, true},
};

/// Names that a slot has in time of flight; the other slots are called as with a wavelength.
constexpr std::array flight_rows{
    slot_row{slot::extinc, " => Extinction parameter", 5, false},
    slot_row{slot::sig2, " => Gaussian variance Sigma-2", 4, true},
    slot_row{slot::sig1, " => Gaussian variance Sigma-1", 4, true},
    slot_row{slot::sig0, " => Gaussian variance Sigma-0", 4, true},
    slot_row{slot::sigq, " => Gaussian variance Sigma-Q", 4, false},
    slot_row{slot::iso_gstrain, " => Gaussian isotropic strain (Sigma-1)", 4, false},
    slot_row{slot::iso_gsize, " => Gaussian isotropic size (Sigma-2)", 4, false},
    slot_row{slot::lorsiz, " => Lorentzian anisotropic size parameter", 4, false},
    slot_row{slot::gam2, " => Lorentzian width Gamma-2", 4, true},
    slot_row{slot::gam1, " => Lorentzian width Gamma-1", 4, true},
    slot_row{slot::gam0, " => Lorentzian width Gamma-0", 4, true},
    slot_row{slot::iso_lstrain, " => Lorentzian isotropic strain (Gamma-1)", 4, false},
    slot_row{slot::iso_lsize, " => Lorentzian isotropic size (Gamma-2)", 4, false},
    slot_row{slot::alph0, " => Rise alph0", 6, true},
    slot_row{slot::beta0, " => Decay beta0", 6, true},
    slot_row{slot::alph1, " => Rise alph1", 6, true},
    slot_row{slot::beta1, " => Decay beta1", 6, true},
    slot_row{slot::alphq, " => Rise alphQ", 6, false},
    slot_row{slot::betaq, " => Decay betaQ", 6, false},
    slot_row{slot::alph0t, " => Rise alph0t of the second regime", 6, true},
    slot_row{slot::beta0t, " => Decay beta0t of the second regime", 6, true},
    slot_row{slot::alph1t, " => Rise alph1t of the second regime", 6, true},
    slot_row{slot::beta1t, " => Decay beta1t of the second regime", 6, true},
    slot_row{slot::abs1, " => Absorption Abs1", 6, true},
    slot_row{slot::abs2, " => Absorption Abs2", 6, true},
};

constexpr std::array global_rows{
    slot_row{gslot::zero, " => Zero shift", 5, true},
    slot_row{gslot::sycos, " => SYCOS: displacement, cosine shift", 5, true},
    slot_row{gslot::sysin, " => SYSIN: transparency, sine shift", 5, true},
    slot_row{gslot::p0, " => Microabsorption P0", 5, false},
    slot_row{gslot::cp, " => Microabsorption CP", 5, false},
    slot_row{gslot::tau, " => Microabsorption Tau", 5, false},
};
constexpr std::array diffractometer_rows{
    slot_row{gslot::zero, " => Zero shift", 5, true},
    slot_row{gslot::dtt1, " => Dtt1", 5, true},
    slot_row{gslot::dtt2, " => Dtt2", 5, true},
    slot_row{gslot::dtt_1overd, " => Dtt_1overd", 5, false},
};
constexpr std::array second_regime_rows{
    slot_row{gslot::zero, " => Zero shift", 5, true},
    slot_row{gslot::dtt1, " => Dtt1", 5, true},
    slot_row{gslot::dtt2, " => Dtt2", 5, true},
    slot_row{gslot::zero_t, " => Zero shift Zt of the second regime", 5, true},
    slot_row{gslot::dtt1t, " => Dtt1t of the second regime", 5, true},
    slot_row{gslot::dtt2t, " => Dtt2t of the second regime", 5, true},
    slot_row{gslot::xcross, " => Crossing of the regimes (1/d)", 5, true},
    slot_row{gslot::wcross, " => Steepness of the crossing", 5, true},
};
/// With a wavelength only, and only when they are refined.
constexpr std::array radiation_rows{
    slot_row{gslot::lambda, " => Refined wavelength (Lambda1): ", 6, false},
    slot_row{gslot::ratio2, " => Refined ratio(Lamba2/Lambda1): ", 5, false},
};

std::span<const slot_row> rows_of(const pattern_type& p) {
  if (pcr_layout::has_second_regime(p)) return second_regime_rows;
  if (pcr_layout::has_diffractometer(p)) return diffractometer_rows;
  return global_rows;
}

// ---- background -----------------------------------------------------------------------------------------------------

std::string_view background_heading(kv_background::model model) {
  using kv_background::model::chebychev, kv_background::model::cosine, kv_background::model::file;
  switch (model) {
    case chebychev:
      return " => Chebychev Polynomials Background Parameters ==>";
    case cosine:
      return " => Cosine Fourier Background Parameters ==>";
    case file:
      return " => Background File Parameters ==>";
    case kv_background::model::linear_nodes:
    case kv_background::model::spline_nodes:
      return " => Background Points ==>";
    default:
      return " => Background Polynomial Parameters ==>";
  }
}

void add_background(const pattern_type& p, std::vector<listed_slot>& found) {
  constexpr int decimals = 4;
  const kv_background::model model = kv_background::model_of(p);
  const int nodes = static_cast<int>(p.pos.size());
  std::string_view group;
  int first = 0;
  for (const int k : kv_background::slots(p)) {
    const bool debye = model == kv_background::model::debye && k >= gslot::debye_amp && k < gslot::user_bk;
    const std::string_view heading = k >= gslot::user_bk ? " => Coefficients of the background profiles ==>"
                                     : debye             ? " => Background Debye-Parameters ==>"
                                                         : background_heading(model);
    if (heading != group) {
      group = heading;
      first = k;
      found.push_back({0, std::string(heading), 0});
    }
    fmt_line words;
    words.x(4).i(4, k - first + 1);
    if (k - gslot::bac < nodes) words.a("  at").f(12, 4, static_cast<double>(at(p.pos, k - gslot::bac)));
    found.push_back({k, words.str(), decimals});
  }
}

// ---- coefficients of models -----------------------------------------------------------------------------------------

/// Word `index` of a blank-separated list; its number when the list is shorter.
std::string term(std::string_view terms, int index) {
  std::size_t from = 0;
  for (int i = 0; i < index && from < terms.size(); ++i) from = std::min(terms.find(' ', from), terms.size() - 1) + 1;
  if (from >= terms.size()) return std::to_string(index + 1);
  return std::string(terms.substr(from, terms.find(' ', from) - from));
}

std::string_view strain_names(const block& b) {
  const int istr = b.phase().istr;
  return istr == 1 || istr == 3 || istr == 4 ? pcr_profile::strain_terms(istr, b.phase().ismo).terms : "";
}
std::string_view size_names(const block& b) {
  const auto& phase = b.phase();
  if (phase.istr == 2 || phase.istr == 3 || phase.isi == 30) return "h2 k2 l2 2hk 2hl 2kl";
  return pcr_profile::size_harmonics(phase.isi).terms;
}
std::string_view shift_names(const block& b) { return pcr_profile::shift_terms(b.phase().ishif).terms; }
std::string_view special_names(const block& b) {
  return b.pattern().ixunit == abscissa::tof ? "D-sigma2 D-gamma shift D-alpha D-beta" : "D-HG^2 D-HL shift D-U D-Y";
}
std::string_view no_names(const block&) { return {}; }
std::string_view axis_names(const block&) { return "r fraction"; }

/// Slots first to last are called by the words and by their term, or number; with `per` above 0 they come in groups of
/// so many, and the number of the group stands before the term.
struct slot_series {
  int first, last;
  bool crystal;
  std::string_view words;
  std::string_view (*names)(const block&);
  int number = 1;  ///< of the first
  int per = 0;
};
constexpr std::array series_rows{
    slot_series{slot::sc2, slot::sc2 + 4, true, " => Scale factor Sc", no_names, 2},
    slot_series{slot::sc7, slot::sc7 + 11, true, " => Scale factor Sc", no_names, 7},
    slot_series{slot::sc19, slot::sc19 + 11, true, " => Scale factor Sc", no_names, 19},
    slot_series{slot::sc31, slot::sc31 + 5, true, " => Scale factor Sc", no_names, 31},
    slot_series{slot::ext1, slot::ext1 + 5, true, " => Extinction parameter ", no_names},
    slot_series{slot::str1, slot::str1 + 14, false, " => Strain parameter ", strain_names},
    slot_series{slot::siz1, slot::siz1 + 8, false, " => Size parameter ", size_names},
    slot_series{slot::shift1, slot::shift3, false, " => Shift parameter Shift", no_names},
    slot_series{slot::gshift1, slot::gshift1 + 20, false, " => Shift parameter ", shift_names},
    slot_series{slot::md1, slot::md1 + 9, false, " => March-Dollase, axis ", axis_names, 1, 2},
    slot_series{slot::special, slot::last, false, " => Special reflection ", special_names, 1, slot::per_special},
};

std::string series_words(const slot_series& row, const block& b, int k) {
  const int i = k - row.first;
  if (row.per > 0)
    return std::string(row.words) + std::to_string(i / row.per + 1) + ": " + term(row.names(b), i % row.per);
  const std::string_view names = row.names(b);
  return std::string(row.words) + (names.empty() ? std::to_string(i + row.number) : term(names, i));
}

/// A size parameter of a platelet, a needle or none is one number with a name of its own.
bool lone_size(const block& b, int k) { return k == slot::lorsiz && size_names(b).empty() && b.phase().isi >= -1; }

struct found_row {
  listed_slot slot;
  bool always = false;
};

found_row row_of(const block& b, int k) {
  constexpr int series_decimals = 5;
  const bool crystal = b.pattern().cry_pat;
  const auto series = std::ranges::find_if(
      series_rows, [&](const slot_series& row) { return row.crystal == crystal && k >= row.first && k <= row.last; });
  if (series != series_rows.end() && !lone_size(b, k))
    return {{k, series_words(*series, b, k), series_decimals}, !crystal};
  if (b.pattern().ixunit == abscissa::tof && !crystal) {
    const auto row = std::ranges::find(flight_rows, k, &slot_row::k);
    if (row != flight_rows.end()) return {{k, std::string(row->words), row->decimals}, row->always};
  }
  const auto row = std::ranges::find(profile_rows, k, &slot_row::k);
  if (row != profile_rows.end()) return {{k, std::string(row->words), row->decimals}, row->always};
  return {{k, " => Parameter " + std::to_string(k), series_decimals}, true};
}

/// Strain fields of the scale line, which stand also without a model.
bool idle_strain(const block& b, int k) { return b.phase().ismo == 0 && k >= slot::str1 && k <= slot::str3; }

}  // namespace

std::vector<listed_slot> of_pattern(const pattern_type& pattern) {
  std::vector<listed_slot> found;
  const auto add = [&](const slot_row& row) {
    if (row.always || at(pattern.lglb, row.k) != 0 || at(pattern.glb, row.k) != 0.f)
      found.push_back({row.k, std::string(row.words), row.decimals});
  };
  std::ranges::for_each(rows_of(pattern), add);
  for (const slot_row& row : radiation_rows)
    if (!pcr_layout::has_diffractometer(pattern) && at(pattern.lglb, row.k) != 0) add(row);
  add_background(pattern, found);
  return found;
}

std::vector<listed_slot> of_phase(const state_type& st, int ph, int ip) {
  const block b{st, ph, ip};
  std::vector<listed_slot> found;
  for (const pcr_profile::line& line : pcr_profile::lines()) {
    if (!line.stands(b)) continue;
    const bool fields = line.behind == pcr_profile::model::strain || line.behind == pcr_profile::model::size;
    for (const int k : line.slots(b)) {
      if (k >= slot::cell_a && k <= slot::cell_f) continue;
      if (fields && pcr_profile::taken_by_coefficients(b, k)) continue;
      found_row row = row_of(b, k);
      if (idle_strain(b, k)) row.always = false;
      if (row.always || at(b.mix().par, k) != 0.f || at(b.mix().lpar, k) != 0) found.push_back(std::move(row.slot));
    }
  }
  return found;
}

}  // namespace kv_listed_slots

#include "kv_listing_text.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

#include "kv_background.hpp"
#include "lmix_string_utilities.hpp"

namespace kv_listing_text {

namespace {

namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
using apply_shifts::slot_change;
using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;

constexpr std::array profile_table{
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
    slot_row{slot::zero_ph, " => Zero shift of the phase", 5, false},
    slot_row{slot::sycos_ph, " => Displacement of the phase", 5, false},
    slot_row{slot::sysin_ph, " => Transparency of the phase", 5, false},
};

constexpr std::array global_table{
    slot_row{gslot::zero, " => Zero shift", 5, true},
    slot_row{gslot::sycos, " => SYCOS: displacement, cosine shift", 5, true},
    slot_row{gslot::sysin, " => SYSIN: transparency, sine shift", 5, true},
    slot_row{gslot::p0, " => Microabsorption P0", 5, false},
    slot_row{gslot::cp, " => Microabsorption CP", 5, false},
    slot_row{gslot::tau, " => Microabsorption Tau", 5, false},
};

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

auto key_of(const slot_change& c) { return std::tuple(static_cast<int>(c.family), c.owner, c.ip, c.k); }

/// Columns before the first digit that counts, so that three digits of the value show: 0.00123 needs five decimals.
bool swallowed(int decimals, double value) {
  constexpr double least_units = 100.0;  // three digits
  return value != 0.0 && std::abs(value) * std::pow(10.0, decimals) < least_units;
}

}  // namespace

std::string rule(char mark) { return std::string(page_width, mark); }

void list(state_type& st, std::string_view lines) {
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << lines << '\n';
}

std::span<const slot_row> profile_rows() { return profile_table; }
std::span<const slot_row> global_rows() { return global_table; }
bool worth_a_line(const slot_row& row, float value, int number) { return row.always || value != 0.f || number != 0; }

std::vector<background_group> background_groups(const pattern_type& pattern) {
  const bool debye = kv_background::model_of(pattern) == kv_background::model::debye;
  background_group base{background_heading(kv_background::model_of(pattern)), {}};
  background_group debye_terms{" => Background Debye-Parameters ==>", {}};
  background_group user{" => Coefficients of the background profiles ==>", {}};
  for (const int k : kv_background::slots(pattern))
    (k >= gslot::user_bk ? user : debye && k >= gslot::debye_amp ? debye_terms : base).slots.push_back(k);
  std::vector<background_group> groups;
  for (background_group* g : {&base, &debye_terms, &user})
    if (!g->slots.empty()) groups.push_back(std::move(*g));
  return groups;
}

void put_number(std::string& out, int width, int decimals, double value) {
  std::string fixed;
  lmix_fixed_format::put_f(fixed, width, decimals, value);
  if (fixed.find('*') == std::string::npos && !swallowed(decimals, value)) {
    out += fixed;
    return;
  }
  constexpr int around_mantissa = 8, float_decimals = 5;  // a blank, sign, digit, point, exponent
  lmix_fixed_format::put_pe(out, width, std::clamp(width - around_mantissa, 1, float_decimals), value);
}

std::string quoted(float value, float sigma, int decimals) {
  if (sigma > 0.f && std::isfinite(sigma) && std::isfinite(value))
    return lmix_string_utilities::setnum_std(value, sigma).line;
  std::string text;
  constexpr int columns = 16;
  put_number(text, columns, decimals, static_cast<double>(value));
  text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
  return text.starts_with('-') ? text : ' ' + text;
}

change_table::change_table(const apply_shifts::shift_report& report) {
  sorted_.reserve(report.changes.size());
  for (const slot_change& c : report.changes) sorted_.push_back(&c);
  std::sort(sorted_.begin(), sorted_.end(),
            [](const slot_change* a, const slot_change* b) { return key_of(*a) < key_of(*b); });
}

change_table::moved change_table::of(slot_family family, int owner, int ip, int k) const {
  const auto key = std::tuple(static_cast<int>(family), owner, ip, k);
  const auto found = std::lower_bound(sorted_.begin(), sorted_.end(), key,
                                      [](const slot_change* c, const auto& wanted) { return key_of(*c) < wanted; });
  if (found == sorted_.end() || key_of(**found) != key) return {};
  return {(*found)->shift, (*found)->sigma};
}

std::string phase_title(const state_type& st, int ph) {
  return fmt_line{}.i(2, ph + 1).x(2).a(at(st.phase, ph).phsnm).str();
}

bool takes_part(const pattern_type& pattern) { return pattern.affpat != 0 && !pattern.cry_pat; }

}  // namespace kv_listing_text

#include "pcr_profile.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

#include "pcr_forms_further.hpp"
#include "pcr_layout.hpp"

namespace pcr_profile {

namespace slot = kalvaris_params::slot;
namespace abscissa = kalvaris_params::abscissa;

namespace {

// ---- slots ----------------------------------------------------------------------------------------------------------

std::vector<int> run_of(int first, int count) {
  std::vector<int> slots(static_cast<std::size_t>(std::max(count, 0)));
  std::iota(slots.begin(), slots.end(), first);
  return slots;
}

template <int first, int count>
std::vector<int> fixed_run(const block&) {
  return run_of(first, count);
}

template <int... slots>
std::vector<int> fixed(const block&) {
  return {slots...};
}

// ---- models ---------------------------------------------------------------------------------------------------------

/// Names of the terms of a model; `number`: size of the model's flag, first to last.
struct term_set {
  int first, last;
  std::string_view terms;  ///< blank-separated names
  std::string_view laue;   ///< Laue class for the comment
};

/// Quartic forms of the strain by the size of the strain model.
constexpr std::array<term_set, 14> quartic_sets{{
    {1, 1, "S_400 S_040 S_004 S_220 S_202 S_022 S_211 S_121 S_112 S_310 S_301 S_130 S_103 S_013 S_031", "-1"},
    {2, 2, "S_400 S_040 S_004 S_220 S_202 S_022 S_121 S_301 S_103", "2/m"},
    {3, 3, "S_400 S_040 S_004 S_220 S_202 S_022", "mmm"},
    {4, 4, "S_400 S_004 S_220 S_202", "4/m"},
    {5, 5, "S_400 S_004 S_220 S_202", "4/mmm"},
    {6, 6, "S_400 S_004 S_112 S_301", "-3 R"},
    {7, 7, "S_400 S_004 S_112 S_301", "-3m R"},
    {8, 8, "S_400 S_112 S_004", "-3"},
    {9, 9, "S_400 S_112 S_004", "-31m"},
    {10, 10, "S_400 S_112 S_004", "-3m1"},
    {11, 11, "S_400 S_112 S_004", "6/m"},
    {12, 12, "S_400 S_112 S_004", "6/mmm"},
    {13, 13, "S_400 S_220", "m-3"},
    {14, 14, "S_400 S_220", "m-3m"},
}};
/// Monoclinic with unique axis c has other mixed terms.
constexpr term_set quartic_unique_c{2, 2, "S_400 S_040 S_004 S_220 S_202 S_022 S_112 S_310 S_130", "2/m unique c"};

/// Spherical harmonics of the size by the size model; each set serves the Laue classes beside it.
struct harmonic_set {
  int isi;
  int first_class, last_class;  ///< strain models (Laue classes) that use the same functions
  std::string_view terms, laue;
};
constexpr std::array<harmonic_set, 9> harmonic_sets{{
    {15, 2, 2, "Y00 Y20 Y22+ Y22- Y40 Y42+ Y42- Y44+ Y44-", "2/m"},
    {16, 3, 3, "Y00 Y20 Y22+ Y40 Y42+ Y44+", "mmm"},
    {17, 4, 4, "Y00 Y20 Y40 Y44+ Y44-", "4/m"},
    {18, 5, 5, "Y00 Y20 Y40 Y44+", "4/mmm"},
    {19, 8, 8, "Y00 Y20 Y40 Y43+ Y43-", "-3"},
    {20, 9, 10, "Y00 Y20 Y40 Y43", "-3m"},
    {21, 11, 12, "Y00 Y20 Y40 Y60 Y66+", "6/mmm"},
    {22, 13, 14, "K00 K41 K61", "m-3m"},
    // rhombohedral axes: the same functions about [111]
    {19, 6, 6, "Y00 Y20 Y40 Y43+ Y43-", "-3 R"},
}};
constexpr harmonic_set harmonics_of_3m_r{20, 7, 7, "Y00 Y20 Y40 Y43", "-3m R"};

/// Quartic forms of the shift: terms of degree 2, then of degree 4.
constexpr std::array<term_set, 7> shift_sets{{
    {101, 101,
     "D2_200 D2_020 D2_002 D2_011 D2_101 D2_110 D4_400 D4_040 D4_004 D4_220 D4_202 D4_022 D4_211 D4_121 D4_112 D4_310 "
     "D4_301 D4_130 D4_103 D4_031 D4_013",
     "-1"},
    {102, 102, "D2_200 D2_020 D2_002 D2_101 D4_400 D4_040 D4_004 D4_220 D4_202 D4_022 D4_121 D4_301 D4_103", "2/m"},
    {103, 103, "D2_200 D2_020 D2_002 D4_400 D4_040 D4_004 D4_220 D4_202 D4_022", "mmm"},
    {104, 105, "D2_200 D2_002 D4_400 D4_004 D4_220 D4_202", "4/mmm"},
    {106, 107, "D2_200 D2_002 D4_400 D4_004 D4_112 D4_301", "-3m R"},
    {108, 112, "D2_200 D2_002 D4_400 D4_112 D4_004", "6/mmm"},
    {113, 114, "D2_200 D4_400 D4_220", "m-3m"},
}};
constexpr term_set shift_unique_c{
    102, 102, "D2_200 D2_020 D2_002 D2_110 D4_400 D4_040 D4_004 D4_220 D4_202 D4_022 D4_112 D4_310 D4_130",
    "2/m unique c"};

terms_of_model quartic_terms(int ismo) {
  if (ismo == -2) return {quartic_unique_c.terms, quartic_unique_c.laue};
  for (const term_set& row : quartic_sets) {
    if (ismo >= row.first && ismo <= row.last) return {row.terms, row.laue};
  }
  return {};
}

terms_of_model harmonic_terms_of_class(int ismo) {
  if (ismo == harmonics_of_3m_r.first_class) return {harmonics_of_3m_r.terms, harmonics_of_3m_r.laue};
  for (const harmonic_set& row : harmonic_sets) {
    if (std::abs(ismo) >= row.first_class && std::abs(ismo) <= row.last_class) return {row.terms, row.laue};
  }
  return {};
}

}  // namespace

int terms_of_model::count() const {
  return terms.empty() ? 0 : static_cast<int>(std::count(terms.begin(), terms.end(), ' ')) + 1;
}

terms_of_model size_harmonics(int isi) {
  for (const harmonic_set& row : harmonic_sets) {
    if (row.isi == isi) return {row.terms, row.laue};
  }
  return {};
}

terms_of_model shift_terms(int ishif) {
  if (ishif == -102) return {shift_unique_c.terms, shift_unique_c.laue};
  for (const term_set& row : shift_sets) {
    if (ishif >= row.first && ishif <= row.last) return {row.terms, row.laue};
  }
  return {};
}

terms_of_model strain_terms(int istr, int ismo) {
  return istr == 4 ? harmonic_terms_of_class(ismo) : quartic_terms(ismo);
}

namespace {

/// Names of the terms, each over its column, and the class.
std::string term_header(const terms_of_model& model, std::string_view behind) {
  std::string text = "!";
  std::size_t at = 0;
  while (at < model.terms.size()) {
    const std::size_t end = std::min(model.terms.find(' ', at), model.terms.size());
    const std::string_view name = model.terms.substr(at, end - at);
    constexpr std::size_t column = 12;
    text.append(column - std::min(name.size() + (at == 0 ? 1 : 0), column), ' ').append(name);
    at = end + 1;
  }
  return text.append("      ").append(behind).append("(Laue:").append(model.laue).append(")");
}

// ---- when a line stands ---------------------------------------------------------------------------------------------

bool crystal(const block& b) { return b.pattern().cry_pat; }
bool powder(const block& b) { return !crystal(b); }
bool tof(const block& b) { return powder(b) && b.pattern().ixunit == abscissa::tof; }
bool not_tof(const block& b) { return powder(b) && b.pattern().ixunit != abscissa::tof; }
bool size_form(const block& b) { return b.phase().istr == 2 || b.phase().istr == 3 || b.phase().isi == 30; }
bool size_list(const block& b) { return powder(b) && b.phase().isi <= -2 && b.phase().isi >= -9; }
bool size_harmonic(const block& b) { return powder(b) && size_harmonics(b.phase().isi).count() > 0; }
bool strain_form(const block& b) {
  const int istr = b.phase().istr;
  return powder(b) && (istr == 1 || istr == 3 || istr == 4) && b.phase().ismo != 0;
}
bool needle(const block& b) { return powder(b) && std::abs(b.phase().isi) == 1; }
bool more_strain(const block& b) {
  const int istr = b.phase().istr;
  return powder(b) && (istr == 0 || istr == 2) && std::abs(b.phase().ismo) > 8;
}

int scales(const block& b) { return std::max(b.mix().num_scale, b.phase().n_domains); }

/// Scale factors behind the first six stand on lines of six, as many lines as are begun.
template <int beyond>
bool more_scales(const block& b) {
  return crystal(b) && scales(b) > beyond;
}

// ---- the lines ------------------------------------------------------------------------------------------------------

std::string scale_header(const block& b) {
  const int first = 6 * ((scales(b) - 1) / 6) + 1;
  return "!  Scale Factor + Domain Fractions (Sc7 to Sc" + std::to_string(first + 5) + ")";
}

std::string sigma_header(const block& b) {
  if (b.pattern().ireso != 0) {
    return "!  Instrumental Sigma interpolated from list in IRF file (Only sample contribution is refined)";
  }
  const bool xt = b.mix().npro == 7;
  return std::string("!      Sigma-2       Sigma-1       Sigma-0       ") + (xt ? "   Xt  " : "Sigma-Q") +
         "   Iso-GStrain     Iso-GSize     Ani-LSize   Size-Mode";
}

std::string gamma_header(const block& b) {
  if (b.pattern().ireso != 0) {
    return "!  Instrumental Gamma interpolated from list in IRF file (Only sample contribution is refined)";
  }
  return "!      Gamma-2       Gamma-1       Gamma-0   Iso-LorStrain   Iso-LorSize";
}

std::string alpha_header(const block& b) {
  if (b.pattern().ireso != 0) {
    return "!  Instrumental alpha & beta interpolated from list in IRF file (Only shifts can be refined)";
  }
  return "!      Pref1      Pref2        alph0       beta0       alph1       beta1       alphQ       betaQ";
}

std::string axes_header(const block& b) {
  return std::string("!  March-Dollase multi-axial model for preferred orientation ") +
         (b.pattern().nori == 3 ? "(naxes, N_Int_steps)" : "(naxes)");
}

std::string special_header(const block& b) {
  constexpr std::array<std::string_view, 3> indices_of_modulation{"m", "m   n", "m   n   p"};
  const bool modulated = pcr_layout::kind_of(b.phase()) == pcr_layout::jbt::modulated;
  const std::string_view last = modulated ? indices_of_modulation[special_indices(b.phase()) - 4] : "nvk";
  return "! Special reflections: \n!  h   k   l  " + std::string(last) + "  D-HG^2  Code  D-HL  Code  Shift  Code  " +
         (b.pattern().ixunit == abscissa::tof ? "Del_alpha  Code  Del_beta  Code" : "Del_U  Code  Del_Y  Code");
}

std::string harmonic_header(const block& b) { return term_header(size_harmonics(b.phase().isi), "Size harmonics "); }
std::string shift_header(const block& b) { return term_header(shift_terms(b.phase().ishif), ""); }
std::string strain_header(const block& b) { return term_header(strain_terms(b.phase().istr, b.phase().ismo), ""); }

std::vector<int> size_list_slots(const block& b) { return run_of(slot::siz1, -b.phase().isi); }
std::vector<int> shift_list_slots(const block& b) {
  const int ishif = b.phase().ishif;
  return run_of(slot::gshift1, std::abs(ishif) == 1 ? 1 : -ishif);
}
std::vector<int> harmonic_slots(const block& b) { return run_of(slot::siz1, size_harmonics(b.phase().isi).count()); }
std::vector<int> shift_form_slots(const block& b) {
  return run_of(slot::gshift1, shift_terms(b.phase().ishif).count());
}
std::vector<int> strain_form_slots(const block& b) {
  return run_of(slot::str1, strain_terms(b.phase().istr, b.phase().ismo).count());
}
std::vector<int> axes_slots(const block& b) { return run_of(slot::md1, 2 * b.mix().naxes); }
std::vector<int> special_slots(const block& b) { return run_of(slot::special, slot::per_special * b.mix().nref_sp); }

std::vector<int> scale_slots(const block&) {
  return {slot::scale, slot::shape1, slot::bov, slot::str1, slot::str1 + 1, slot::str3};
}
std::vector<int> cell_slots(const block&) { return run_of(slot::cell_a, 6); }
std::vector<int> pref_slots(const block&) {
  return {slot::pref1, slot::pref2, slot::asy1, slot::asy2, slot::asy3, slot::asy4, slot::s_l, slot::d_l};
}
std::vector<int> width_slots(const block&) {
  return {slot::u, slot::v, slot::w, slot::x, slot::y, slot::gausiz, slot::lorsiz};
}
std::vector<int> crystal_scale_slots(const block&) {
  return {slot::scale, slot::sc2, slot::sc2 + 1, slot::sc2 + 2, slot::sc2 + 3, slot::sc2 + 4};
}

constexpr std::string_view cell_header = "!     a          b         c        alpha      beta       gamma";
constexpr std::size_t six = 6;

constexpr std::array block_lines{
    // single crystal
    line{"scale line", layout::coded, "!      Sc1        Sc2        Sc3        Sc4        Sc5        Sc6   Num_scale",
         crystal, crystal_scale_slots, nullptr, model::scales},
    line{"line of scale factors", layout::coded, {}, more_scales<6>, fixed_run<slot::sc7, 6>, scale_header},
    line{"line of scale factors", layout::coded, {}, more_scales<12>, fixed_run<slot::sc7 + 6, 6>, scale_header},
    line{"line of scale factors", layout::coded, {}, more_scales<18>, fixed_run<slot::sc19, 6>, scale_header},
    line{"line of scale factors", layout::coded, {}, more_scales<24>, fixed_run<slot::sc19 + 6, 6>, scale_header},
    line{"line of scale factors", layout::coded, {}, more_scales<30>, fixed_run<slot::sc31, 6>, scale_header},
    line{"extinction line", layout::coded,
         "! Extinction parameters                                           Ext-Model", crystal,
         fixed_run<slot::ext1, 6>, nullptr, model::extinction},
    line{"cell line", layout::coded, cell_header, crystal, cell_slots, nullptr, model::none, check::cell},
    // constant wavelength, energy, Q and s; time of flight
    line{"scale line", layout::coded, "!  Scale          Shape1      Bov      Str1      Str2      Str3   Strain-Model",
         not_tof, scale_slots, nullptr, model::strain, check::shape},
    line{"scale line", layout::coded, "!  Scale          Extinc       Bov      Str1      Str2      Str3    Strain-Mode",
         tof, scale_slots, nullptr, model::strain, check::shape},
    line{"width line", layout::coded,
         "!       U            V            W             X            Y         GauSiz      LorSiz    Size-Model",
         not_tof, width_slots, nullptr, model::size, check::widths},
    line{"width line", layout::coded, {}, tof, width_slots, sigma_header, model::size, check::widths},
    line{"line of Lorentzian widths",
         layout::coded,
         {},
         tof,
         fixed_run<slot::gam2, 5>,
         gamma_header,
         model::none,
         check::tof},
    line{"cell line", layout::coded, cell_header, powder, cell_slots, nullptr, model::none, check::cell},
    line{"line of preferred orientation and asymmetry", layout::coded,
         "!  Pref1    Pref2      Asy1     Asy2     Asy3     Asy4      S_L      D_L", not_tof, pref_slots},
    line{"line of preferred orientation, rise and decay", layout::coded, {}, tof, pref_slots, alpha_header},
    line{"widths of the second wavelength", layout::pairs, "!Additional U,V,W parameters for Lambda2",
         [](const block& b) { return not_tof(b) && b.pattern().iuvw == 1; }, fixed_run<slot::u2, 3>},
    line{"rise and decay of the second regime", layout::coded, "!     alph0t      beta0t      alph1t      beta1t",
         [](const block& b) { return tof(b) && b.mix().npro == 10; }, fixed_run<slot::alph0t, 4>},
    line{"shape line of the right half", layout::coded, "!Additional shape parameters",
         [](const block& b) { return not_tof(b) && b.mix().npro == 11; }, fixed_run<slot::u_r, 5>},
    line{"absorption line", layout::coded, "!Absorption correction parameters",
         [](const block& b) { return tof(b) && b.pattern().iabscor > 0; }, fixed_run<slot::abs1, 2>},
    // what the flags of the phase ask for
    line{"line of the shifts of the phase", layout::coded, "!      Zero_ph      SyCos_ph      SySin_ph",
         [](const block& b) { return powder(b) && b.mix().ph_shift != 0; }, fixed_run<slot::zero_ph, 3>},
    line{"axes of preferred orientation",
         layout::axes,
         {},
         [](const block& b) { return powder(b) && b.pattern().nori > 1; },
         axes_slots,
         axes_header},
    line{"shift line", layout::coded, "!   Shift1    Shift2    Shift3    ModS",
         [](const block& b) { return powder(b) && b.phase().jsol != 0; }, fixed_run<slot::shift1, 3>, nullptr,
         model::shift},
    line{"conditions of the size", layout::conditions,
         "! Selective Size-Broadening:\n! hkl cond.      (n1.h + n2.k + n3.l=n n4 +/- n5)   Size-par      Code",
         size_list, size_list_slots},
    line{"conditions of the shift", layout::conditions,
         "! Shift integers (n1.h + n2.k + n3.l = n4.n + n5)   Shift-par    Code ",
         [](const block& b) {
           const int ishif = b.phase().ishif;
           return powder(b) && (std::abs(ishif) == 1 || (ishif <= -2 && ishif >= -10));
         },
         shift_list_slots},
    line{"direction of the size", layout::direction, "! Direction of the platelet or needle (Size):", needle, fixed<>},
    line{"size harmonics",
         layout::coded,
         {},
         size_harmonic,
         harmonic_slots,
         harmonic_header,
         model::none,
         check::none,
         six},
    line{"coefficients of the shift",
         layout::coded,
         {},
         [](const block& b) { return powder(b) && shift_terms(b.phase().ishif).count() > 0; },
         shift_form_slots,
         shift_header,
         model::none,
         check::none,
         six},
    line{"coefficients of the strain",
         layout::coded,
         {},
         strain_form,
         strain_form_slots,
         strain_header,
         model::none,
         check::none,
         six},
    line{"Lorentzian part of the strain", layout::coded, "!  Lorentzian part of the anisotropic strain (Xi)",
         strain_form, fixed_run<slot::xi, 1>},
    line{"size parameters", layout::coded,
         "! Generalised size parameters (quadratic form):\n!      h2           k2           l2          2hk          "
         "2hl    "
         "      2kl",
         [](const block& b) { return powder(b) && size_form(b); }, fixed_run<slot::siz1, 6>},
    line{"additional strain parameters", layout::coded, "! 5 additional strain parameters (IstrainModel>8)",
         more_strain, fixed_run<slot::str4, 5>},
    line{"special reflections",
         layout::special,
         {},
         [](const block& b) { return powder(b) && b.mix().nref_sp > 0; },
         special_slots,
         special_header},
};

}  // namespace

std::span<const line> lines() { return block_lines; }

std::size_t special_indices(const kalvaris_params::phase_type& phase) {
  const bool modulated = pcr_layout::kind_of(phase) == pcr_layout::jbt::modulated;
  return 3 + static_cast<std::size_t>(modulated ? std::clamp(std::abs(phase.nvk), 1, 3) : 1);
}

std::span<const pcr_fields::field> model_fields(model behind, const kalvaris_params::phase_type& phase) {
  switch (behind) {
    case model::none:
      break;
    case model::strain:
      if (phase.istr == 0 || phase.istr == 2) return pcr_forms::strain_model_fields;
      return pcr_forms::strain_class_fields;
    case model::size:
      return pcr_forms::size_model_fields;
    case model::shift:
      return pcr_forms::shift_model_fields;
    case model::scales:
      return pcr_forms::scales_fields;
    case model::extinction:
      return pcr_forms::extinction_fields;
  }
  return {};
}

std::string_view term_of(const block& b, int k) {
  struct terms_at {
    bool stand;
    int first;
    terms_of_model model;
  };
  const kalvaris_params::phase_type& phase = b.phase();
  const std::array forms{
      terms_at{strain_form(b), slot::str1, strain_terms(phase.istr, phase.ismo)},
      terms_at{size_harmonic(b), slot::siz1, size_harmonics(phase.isi)},
      terms_at{powder(b), slot::gshift1, shift_terms(phase.ishif)},
  };
  for (const terms_at& form : forms) {
    if (!form.stand || k < form.first || k >= form.first + form.model.count()) continue;
    std::string_view rest = form.model.terms;
    for (int skipped = form.first; skipped < k; ++skipped) lmix_string_utilities::cutst(rest);
    return lmix_string_utilities::cutst(rest);
  }
  return {};
}

bool taken_by_coefficients(const block& b, int k) {
  return std::ranges::any_of(block_lines, [&](const line& row) {
    const bool coefficients =
        row.kind == layout::conditions || row.per_line == six || row.slots == &fixed_run<slot::siz1, 6>;
    if (!coefficients || !row.stands(b)) return false;
    const std::vector<int> slots = row.slots(b);
    return std::find(slots.begin(), slots.end(), k) != slots.end();
  });
}

bool known_strain_model(int istr, int ismo) {
  constexpr int last_class = 14;
  if (istr < 0 || istr > 4) return false;
  if (ismo == 0) return true;
  if (istr == 0 || istr == 2) return std::abs(ismo) <= last_class;
  return (ismo > 0 || ismo == -2) && strain_terms(istr, ismo).count() > 0;
}

bool known_size_model(int isi) { return (isi >= -9 && isi <= 22) || isi == -14 || isi == 30; }

bool known_shift_model(int ishif) { return (ishif >= -10 && ishif <= 2) || shift_terms(ishif).count() > 0; }

}  // namespace pcr_profile

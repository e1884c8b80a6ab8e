// The part of the echo that tells how peaks of a phase are shaped, broadened and shifted.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "kv_echo_words.hpp"
#include "kv_listing_text.hpp"
#include "kv_running_output_parts.hpp"
#include "lmix_fixed_format.hpp"
#include "pcr_profile.hpp"

namespace kv_running_output {

namespace {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::reflection_condition;
using kalvaris_params::state_type;
using kv_echo_words::flag;
using kv_echo_words::words_of;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;
namespace abscissa = kalvaris_params::abscissa;

/// " (Laue: mmm)" with the names of the terms.
std::string terms_text(const pcr_profile::terms_of_model& model) {
  if (model.terms.empty()) return {};
  return " (Laue: " + std::string(model.laue) + "): " + std::string(model.terms);
}

std::string direction_text(const std::array<float, 3>& direction) { return fmt_line{}.f(8, 3, direction).str(); }

/// The reflections that the entries of a list apply to.
void list_conditions(state_type& st, const std::vector<reflection_condition>& conditions, std::string_view sign) {
  for (int j = 0; j < static_cast<int>(conditions.size()); ++j) {
    const auto& n = at(conditions, j).n;
    list(st, fmt_line{}
                 .a("    ")
                 .i(2, j + 1)
                 .a(": ")
                 .i(0, n[0])
                 .a("h + ")
                 .i(0, n[1])
                 .a("k + ")
                 .i(0, n[2])
                 .a("l = ")
                 .i(0, n[3])
                 .a("n")
                 .a(sign)
                 .i(0, n[4])
                 .str());
  }
}

void comsize(state_type& st, const phase_type& phase, const mix_type& mix) {
  const bool by_form = phase.istr == 2 || phase.istr == 3;
  constexpr int quadratic_form = 30, first_list = -2, last_list = -9;
  if (phase.isi <= first_list && phase.isi >= last_list) {
    list(st, fmt_line{}.a(" => Size model of the phase: ").i(0, -phase.isi).a(" conditions on hkl").str());
    list_conditions(st, mix.size_cond, " +/- ");
    return;
  }
  list(st,
       words_of(flag::size, by_form ? quadratic_form : phase.isi) + terms_text(pcr_profile::size_harmonics(phase.isi)));
  if (std::abs(phase.isi) == 1) list(st, "    direction:" + direction_text(mix.psz));
}

void comstra(state_type& st, const phase_type& phase) {
  if (phase.ismo == 0) return list(st, " => Strain model of the phase: no anisotropic strain");
  list(st, words_of(flag::strain_kind, phase.istr));
  const bool of_terms = phase.istr == 1 || phase.istr == 3 || phase.istr == 4;
  if (of_terms) return list(st, "   " + terms_text(pcr_profile::strain_terms(phase.istr, phase.ismo)));
  const std::string words = words_of(flag::strain, phase.ismo);
  list(st, words.empty() ? fmt_line{}.a("    model number ").i(3, phase.ismo).str() : words);
}

void comshif(state_type& st, const phase_type& phase, const mix_type& mix) {
  const auto terms = pcr_profile::shift_terms(phase.ishif);
  if (terms.count() > 0) return list(st, " => Shift model of the phase: quartic form in hkl" + terms_text(terms));
  if (std::abs(phase.ishif) == 1 || phase.ishif < 0) {
    list(st, fmt_line{}.a(" => Shift model of the phase: ").i(0, std::abs(phase.ishif)).a(" conditions on hkl").str());
    return list_conditions(st, mix.shift_cond, " + ");
  }
  list(st, words_of(flag::shift, phase.ishif));
}

void echo_orientation(state_type& st, const pattern_type& p, const mix_type& mix) {
  constexpr int several_axes = 2;
  if (p.nori < several_axes) {
    list(st, " => Direction of preferred orientation: " + direction_text(mix.pref));
    return;
  }
  for (int a = 0; a < static_cast<int>(mix.axes.size()); ++a)
    list(st,
         fmt_line{}.a(" => Axis of preferred orientation ").i(1, a + 1).a(":" + direction_text(at(mix.axes, a))).str());
  if (mix.norstp > 0) list(st, fmt_line{}.a("    steps of the integration: ").i(4, mix.norstp).str());
}

void echo_special(state_type& st, const mix_type& mix) {
  for (int i = 0; i < static_cast<int>(mix.special.size()); ++i) {
    fmt_line line;
    line.a(" => Special reflection ").i(3, i + 1).a(":");
    for (const int index : at(mix.special, i)) line.i(5, index);
    list(st, line.str());
  }
}

/// Shape of the peaks with its formulas.
void comments5(state_type& st, const pattern_type& p, const mix_type& mix) {
  list(st, fmt_line{}.a(" => Peak shape of the phase: ").i(4, mix.npro).str());
  const bool tof = p.ixunit == abscissa::tof;
  const std::string formula = words_of(tof ? flag::shape_formula_tof : flag::shape_formula, mix.npro);
  if (!formula.empty()) list(st, formula);
}

}  // namespace

void echo_models(state_type& st, int ph, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const phase_type& phase = at(st.phase, ph);
  const mix_type& mix = st.mix(ph, ip);
  list(st, fmt_line{}.a("\n => Models of this phase for pattern#").i(3, ip + 1).a(" ==>").str());
  if (p.cry_pat) {
    list(st, words_of(flag::extinction, mix.iextinc));
    return;
  }
  comments5(st, p, mix);
  comsize(st, phase, mix);
  comstra(st, phase);
  comshif(st, phase, mix);
  echo_orientation(st, p, mix);
  echo_special(st, mix);
}

}  // namespace kv_running_output

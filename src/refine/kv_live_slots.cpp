#include "kv_live_slots.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <initializer_list>

#include "kv_background.hpp"
#include "reflections_mod.hpp"

namespace kv_live_slots {

namespace {

using kalvaris_params::mix_type;
using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

/// A phase in a pattern.
struct use {
  const pattern_type& pattern;
  const phase_type& phase;
  const mix_type& mix;
};

bool shape_is(const use& u, std::initializer_list<int> shapes) {
  return std::ranges::find(shapes, u.mix.npro) != shapes.end();
}
bool second_wave(const pattern_type& p) { return reflections_mod::has_second_wave(p) && p.ratio[1] > 0.f; }
bool eta_family(const use& u) { return shape_is(u, {5, 11, 12}); }
bool intensities_free(const use& u) { return std::abs(u.phase.jbt) == 2; }
bool low_angle(const use& u) { return u.pattern.rlim > u.pattern.thmin_read; }

constexpr std::string_view of_shape = "the peak shape of the phase (Npr) has no such parameter";
constexpr std::string_view of_angles =
    "asymmetry and axial divergence act below Rlim only, which is not above the beginning of the pattern (Thmin)";
constexpr std::string_view of_matching = "profile matching takes the intensities from the pattern, which absorb it";
constexpr std::string_view of_axes = "the model of preferred orientation (Nor) has parameters per axis in its place";
constexpr std::string_view of_wave = "there is no second wavelength with widths of its own";
constexpr std::string_view of_strain = "no strain model is asked for (Str, Strain-Model)";
constexpr std::string_view of_size = "no size model is asked for (Str, Size-Model)";

struct row {
  int first, last;
  bool (*acts)(const use&);
  std::string_view why_not;
};
/// All rows that hold a slot must say that it acts.
constexpr std::array rows{
    row{slot::scale, slot::bov, [](const use& u) { return !intensities_free(u); }, of_matching},
    row{slot::pref1, slot::pref2, [](const use& u) { return !intensities_free(u); }, of_matching},
    row{slot::pref1, slot::pref2, [](const use& u) { return u.pattern.nori < 2; }, of_axes},
    row{slot::md1, slot::zero_ph - 1, [](const use& u) { return !intensities_free(u); }, of_matching},
    row{slot::asy1, slot::asy1, low_angle, of_angles},
    row{slot::asy2, slot::asy4, low_angle, of_angles},
    row{slot::x, slot::x,
        [](const use& u) {
          return shape_is(u, {4, -4, 6, 7}) || eta_family(u);
        },
        of_shape},
    row{slot::y, slot::y,
        [](const use& u) {
          return shape_is(u, {4, 6, 7});
        },
        of_shape},
    row{slot::shape1, slot::shape1,
        [](const use& u) {
          return shape_is(u, {4, 6}) || eta_family(u);
        },
        of_shape},
    row{slot::str1, slot::str3, [](const use& u) { return u.phase.ismo != 0; }, of_strain},
    row{slot::xi, slot::xi, [](const use& u) { return shape_is(u, {7}) || eta_family(u); }, of_shape},
    row{slot::xi, slot::xi, [](const use& u) { return eta_family(u) || u.phase.ismo != 0; }, of_strain},
    row{slot::lorsiz, slot::lorsiz, [](const use& u) { return u.phase.isi != 0 || u.phase.istr > 1; }, of_size},
    row{slot::u2, slot::w2, [](const use& u) { return u.pattern.iuvw == 1 && second_wave(u.pattern); }, of_wave},
    row{slot::u_r, slot::x_r, [](const use& u) { return shape_is(u, {11}); }, of_shape},
    row{slot::s_l, slot::s_l,
        [](const use& u) {
          return shape_is(u, {4, -4, 7, 11, 12});
        },
        of_shape},
    row{slot::d_l, slot::d_l,
        [](const use& u) {
          return shape_is(u, {4, 7, 11, 12});
        },
        of_shape},
    row{slot::s_l, slot::d_l,
        [](const use& u) {
          return !shape_is(u, {7, 12}) || low_angle(u);
        },
        of_angles},
};

}  // namespace

std::string_view why_phase_slot_is_idle(const kalvaris_params::state_type& st, int ph, int ip, int k) {
  const use u{st.pattern[static_cast<std::size_t>(ip)], st.phase[static_cast<std::size_t>(ph)], st.mix(ph, ip)};
  if (u.pattern.ixunit != kalvaris_params::abscissa::two_theta || u.pattern.cry_pat) return {};
  const auto idle = std::ranges::find_if(rows, [&](const row& r) { return k >= r.first && k <= r.last && !r.acts(u); });
  return idle == rows.end() ? std::string_view() : idle->why_not;
}

std::string_view why_global_slot_is_idle(const pattern_type& pattern, int k) {
  if (pattern.ixunit != kalvaris_params::abscissa::two_theta || pattern.cry_pat) return {};
  if (k == gslot::ratio2 && !second_wave(pattern)) return "there is no second wavelength";
  if (k >= gslot::bac) {
    const std::vector<int> live = kv_background::slots(pattern);
    if (std::ranges::find(live, k) == live.end()) return "the background model (Nba) has no such coefficient";
  }
  return {};
}

}  // namespace kv_live_slots

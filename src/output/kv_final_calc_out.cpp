#include "kv_final_calc_out.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "apply_shifts.hpp"
#include "kalvaris_codes.hpp"
#include "kept_intensities.hpp"
#include "kv_background.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_listing_text.hpp"
#include "kv_output_cycles.hpp"
#include "kv_prf.hpp"
#include "kv_sumarize.hpp"
#include "lmix_fixed_format.hpp"
#include "read_pcr_mod.hpp"

namespace kv_final_calc_out {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::reflection_list;
using kalvaris_params::state_type;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;

bool has_points(const pattern_type& p) { return kv_listing_text::takes_part(p) && p.npts > 0; }

/// The computed pattern in the place of the observed one, and the intensities that belong to it.
void observe_the_calculation(state_type& st, int ip) {
  pattern_type& p = at(st.pattern, ip);
  p.y.resize(static_cast<std::size_t>(p.npts));
  for (int i = 0; i < p.npts; ++i) at(p.y, i) = at(p.yc, i) + kv_background::backa(p, i);
  p.yo_max = *std::ranges::max_element(p.y);
  if (p.refl.size() > 0) kv_iterate_calc_cw::bragg(st, ip, kv_iterate_calc_cw::intensity_update::none);
}

void write_lists(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  kv_output_cycles::write_reflections(st, ip);
  if (p.iot != 0) list(st, kv_prf::lp_pattern(st, ip));
  if (p.ipl == 1) list(st, kv_prf::lp_plot(st, ip));
}

void write_summary(state_type& st) {
  kv_sumarize::write_results(st, apply_shifts::standing(st));
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = at(st.pattern, ip);
    if (has_points(p) && p.refining() && p.ianaly != 0 && st.run.maxs > 0) kv_sumarize::summarize(st, ip);
  }
  kv_sumarize::write_parameters(st);
}

template <class... V>
std::size_t bytes_of(const V&... v) {
  return ((v.size() * sizeof(typename V::value_type)) + ...);
}

std::size_t reflection_bytes(const reflection_list& r) {
  return bytes_of(r.irefs, r.mlt, r.ihkl, r.spec_ref, r.icod, r.hw, r.pos, r.lp, r.dspacing, r.halfg, r.halfl, r.gam,
                  r.ggi, r.cci, r.sl_i, r.dl_i, r.ff, r.corr, r.phasen, r.asfa, r.bsfa, r.iobs, r.icalc, r.first_point,
                  r.last_point);
}

}  // namespace

array_memory memory_of(const state_type& st) {
  array_memory m;
  for (const pattern_type& p : st.pattern) {
    m.points += bytes_of(p.txv, p.y, p.var, p.iww, p.yc, p.bk, p.kr);
    for (const auto& profile : p.bk_pr) m.points += bytes_of(profile);
    m.reflections += reflection_bytes(p.refl);
  }
  const auto n = static_cast<std::size_t>(st.ne.order());
  m.parameters = (n * n + n) * sizeof(double) + bytes_of(st.parm.valx, st.parm.svalx, st.parm.m_ref);
  m.model = bytes_of(st.pattern, st.phase, st.atom, st.mixes);
  return m;
}

std::string print_dimensions(const state_type& st) {
  const array_memory m = memory_of(st);
  struct row {
    std::string_view name;
    int limit;
    std::string_view words;
    std::size_t bytes;
  };
  const std::array rows{
      row{"    MaxPOINT= ", st.dim.maxpoint, " Max.num. of points(+int. Inten.)/diffraction pattern", m.points},
      row{"    MaxREFLT= ", st.dim.maxreflx, " Max.num. of reflections/diffraction pattern", m.reflections},
      row{"    MaxPARAM= ", st.dim.maxparam, " Max.num. of refinable parameters", m.parameters},
      row{"    MaxOVERL= ", st.dim.maxoverl, " Max.num. of overlapping reflections", 0},
  };
  std::string text = "\n => Dimensions of dynamic allocated arrays in this run of Kalvaris:\n\n";
  for (const row& r : rows)
    text +=
        fmt_line{}.a(r.name).i(9, r.limit).a(60, r.words).i(12, static_cast<long long>(r.bytes)).a(" bytes\n").str();
  return text + fmt_line{}
                    .a("\n => Total approximate array memory (dynamic + static): ")
                    .i(12, static_cast<long long>(m.total()))
                    .a(" bytes")
                    .str();
}

void final_calcn_output(state_type& st) {
  const auto for_each_pattern = [&](auto&& act) {
    for (int ip = 0; ip < st.run.n_patt; ++ip)
      if (has_points(at(st.pattern, ip))) act(ip);
  };
  for_each_pattern([&](int ip) {
    if (!at(st.pattern, ip).refining()) observe_the_calculation(st, ip);
  });
  for_each_pattern([&](int ip) { kv_prf::write_background(st, ip); });
  kalvaris_codes::restore_codes(st);
  if (!read_pcr_mod::save_pcr(st, false))
    kalvaris_inout::stop_cond(st.io, " => A parameter is not a number: nothing is written", true);
  for_each_pattern([&](int ip) { kept_intensities::write(st, ip); });
  for_each_pattern([&](int ip) { write_lists(st, ip); });
  for_each_pattern([&](int ip) { kv_prf::write_plot(st, ip); });
  kv_output_cycles::write_correlations(st);
  write_summary(st);
  kv_sumarize::write_remarks(st);
  list(st, print_dimensions(st));
}

}  // namespace kv_final_calc_out

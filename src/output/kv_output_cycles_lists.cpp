// The lists behind the last cycle: reflections with their intensities, and correlations of the parameters.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "kv_listing_text.hpp"
#include "kv_output_cycles.hpp"
#include "kv_peak_geometry.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_output_cycles {

namespace {

using kalvaris_params::phase_type;
using kalvaris_params::reflection_key;
using kalvaris_params::state_type;
using kv_listing_text::at;
using kv_listing_text::list;
using kv_listing_text::put_number;
using lmix_fixed_format::fmt_line;

bool extracted(const phase_type& phase) { return std::abs(phase.jbt) == 2; }

std::string reflection_line(const state_type& st, int ip, int k, int number) {
  const auto& r = at(st.pattern, ip).refl;
  const reflection_key key = kalvaris_params::unpack_irefs(at(r.irefs, k));
  const auto d = [](float v) { return static_cast<double>(v); };
  std::string line = fmt_line{}
                         .i(6, number)
                         .i(4, key.wave)
                         .i(5, key.h)
                         .i(4, key.k)
                         .i(4, key.l)
                         .i(5, at(r.mlt, k))
                         .f(10, 5, d(at(r.hw, k)))
                         .f(11, 4, kv_peak_geometry::peak_position(st, ip, k))
                         .f(11, 6, d(at(r.dspacing, k)))
                         .str();
  put_number(line, 14, 2, d(at(r.iobs, k)));
  put_number(line, 14, 2, d(at(r.icalc, k)));
  const double f2 = d(at(r.ff, k)) / std::max(at(r.mlt, k), 1);
  const double ratio = at(r.icalc, k) > 0.f ? d(at(r.iobs, k)) / d(at(r.icalc, k)) : 0.0;
  put_number(line, 14, 3, extracted(at(st.phase, key.phase)) ? f2 : f2 * ratio);  // extraction has applied the ratio
  put_number(line, 14, 3, f2);
  return line;
}

/// Correlation of two parameters in whole per cent; the sign follows that of the product of the diagonals.
int correlation(const state_type& st, int i, int j) {
  const double product = st.ne.rjac(i, i) * st.ne.rjac(j, j);
  const double c = 100.0 * st.ne.rjac(i, j) / std::sqrt(std::abs(product));
  if (!std::isfinite(c)) return 0;  // a parameter without variance is correlated with nothing
  return static_cast<int>(std::lround(product < 0.0 ? -c : c));
}

void correlation_matrix(state_type& st) {
  constexpr int columns = 20;
  list(st, "\n => Correlation Matrix (per cent):");
  for (int first = 0; first < st.run.maxs; first += columns) {
    const int last = std::min(first + columns, st.run.maxs);
    fmt_line head;
    head.x(6);
    for (int j = first; j < last; ++j) head.i(5, j + 1);
    list(st, "\n" + head.str());
    for (int i = 0; i < st.run.maxs; ++i) {
      fmt_line line;
      line.i(5, i + 1).x(1);
      for (int j = first; j < last; ++j) line.i(5, correlation(st, i, j));
      list(st, line.str());
    }
  }
}

}  // namespace

void write_starting_reflections(state_type& st, int ip) {
  const auto& p = at(st.pattern, ip);
  if (p.lst1 == 0) return;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    if (st.mix(ph, ip).jcontr == 0) continue;
    list(st, fmt_line{}
                 .a("\n => REFLECTIONS BEFORE THE REFINEMENT OF PHASE No. " + kv_listing_text::phase_title(st, ph))
                 .a("   IN PATTERN#")
                 .i(3, ip + 1)
                 .str());
    list(st, "\n   No. Code   H   K   L Mult     2theta      d-hkl\n");
    int number = 0;
    for (int k = 0; k < p.refl.size(); ++k) {
      const reflection_key key = kalvaris_params::unpack_irefs(at(p.refl.irefs, k));
      if (key.phase != ph) continue;
      fmt_line line;
      line.i(6, ++number).i(4, key.wave).i(5, key.h).i(4, key.k).i(4, key.l).i(5, at(p.refl.mlt, k));
      line.f(11, 4, kv_peak_geometry::peak_position(st, ip, k));
      list(st, line.f(11, 6, static_cast<double>(at(p.refl.dspacing, k))).str());
    }
  }
}

void write_reflections(state_type& st, int ip) {
  const auto& r = at(st.pattern, ip).refl;
  if (static_cast<int>(r.iobs.size()) < r.size()) return;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const auto& mix = st.mix(ph, ip);
    if (mix.jcontr == 0) continue;
    list(st, "\n" + kv_listing_text::rule('-'));
    list(st, fmt_line{}
                 .a(" => LIST OF REFLECTIONS OF PHASE No. " + kv_listing_text::phase_title(st, ph))
                 .a("   IN PATTERN#")
                 .i(3, ip + 1)
                 .str());
    list(st, fmt_line{}
                 .a(" => Bragg R-factor: ")
                 .g(10, 3, static_cast<double>(mix.r_bragg))
                 .a("   RF-factor: ")
                 .g(10, 3, static_cast<double>(mix.r_f))
                 .str());
    list(st,
         "\n   No. Code   H   K   L Mult        Hw     2theta      d-hkl          Iobs         Icalc         F2obs"
         "         F2cal\n");
    int number = 0;
    for (int k = 0; k < r.size(); ++k)
      if (kalvaris_params::unpack_irefs(at(r.irefs, k)).phase == ph) list(st, reflection_line(st, ip, k, ++number));
  }
}

void write_correlations(state_type& st) {
  if (st.run.mat == 0 || st.run.maxs == 0 || st.ne.order() < st.run.maxs) return;
  correlation_matrix(st);
  list(st, "\n => Parameters with Correlation greater that 50% ==>");
  for (int i = 0; i < st.run.maxs; ++i)
    for (int j = i + 1; j < st.run.maxs; ++j) {
      const int c = correlation(st, i, j);
      if (c <= 50) continue;
      list(st, fmt_line{}
                   .a(" -> Correlation of parameter: ")
                   .i(4, i + 1)
                   .a("  " + at(st.parm.nampar, i + 1) + "  with ")
                   .i(4, j + 1)
                   .a("  " + at(st.parm.nampar, j + 1) + " : ")
                   .i(4, c)
                   .a("%")
                   .str());
    }
}

}  // namespace kv_output_cycles

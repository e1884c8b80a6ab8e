#include "kv_setup.hpp"

#include <cmath>

#include "instrumental_resolution.hpp"
#include "intensity_correction.hpp"
#include "kalvaris_codes.hpp"
#include "kv_background.hpp"
#include "kv_calculable.hpp"
#include "kv_read_intens.hpp"
#include "kv_running_output.hpp"
#include "lmix_fixed_format.hpp"
#include "look_scatt.hpp"
#include "reflections_mod.hpp"

namespace kv_setup {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
namespace gslot = kalvaris_params::gslot;
using lmix_fixed_format::fmt_line;

/// The abscissae of a pattern that is calculated without data.
bool make_grid(state_type& st, pattern_type& p, int ip) {
  const double n = (static_cast<double>(p.thmax) - static_cast<double>(p.thmin)) / static_cast<double>(p.step) + 1.5;
  if (!(p.step > 0.f) || !(n >= 2.0) || !(n <= st.dim.maxpoint)) {
    st.fmt.ierr_fmt = 100;
    st.fmt.mess_findfmt.clear();
    st.fmt.mess_findfmt.add(" => Error in the range of pattern: " + std::to_string(ip + 1));
    st.fmt.mess_findfmt.add(" Thmin, Step, Thmax must give between 2 and " + std::to_string(st.dim.maxpoint) +
                            " points");
    return false;
  }
  p.npts = static_cast<int>(n);
  p.thmax = p.thmin + static_cast<float>(p.npts - 1) * p.step;
  p.iconstep = true;
  const auto size = static_cast<std::size_t>(p.npts);
  p.txv.resize(size + 1);
  for (std::size_t i = 0; i <= size; ++i) p.txv[i] = static_cast<float>(i) * p.step + p.thmin;
  p.y.assign(size, 0.f);
  p.yc.assign(size, 0.f);
  p.var.assign(size, 1.f);
  p.iww.assign(size, 1);
  return true;
}

/// A window of the Fourier filter below a sixth of the points would let the peaks through.
void check_filter_window(state_type& st, pattern_type& p) {
  if (kv_background::model_of(p) != kv_background::model::filter) return;
  const auto least = static_cast<float>(p.npts / 6);
  if (!(p.fwindow < least)) return;
  kalvaris_inout::mess_cons(
      st.io, " => The provided Window for Fourier filtering is too small! It should be larger than NPTS/6 !");
  p.fwindow = least;
  kalvaris_inout::mess_cons(st.io, " => The provided Window has been changed to " + fmt_line{}.f(10, 2, least).str());
}

/// First background, so that the start of profile matching can look at net intensities.
void prepare_background(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  kv_background::set_flags(p);
  p.bk.assign(static_cast<std::size_t>(p.npts), 0.f);
  if (kv_background::model_of(p) == kv_background::model::file) {
    kalvaris_inout::openfile(st.io, {.key = 12, .ipat = ip + 1});
    if (st.io.file_error) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
    const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::background);
    std::string reason = "the file cannot be read";
    if (!text || !kv_background::load_file(*text, p, reason))
      kalvaris_inout::stop_cond(st.io, " => Error reading the BAC-file " + st.io.namefil + ": " + reason, true);
    return;
  }
  check_filter_window(st, p);
  kv_background::build(p);
}

void read_data(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (!intensity_correction::read_cor(st, ip)) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  if (!p.refining()) {
    if (make_grid(st, p, ip) && !intensity_correction::corr_prof(st, ip))
      kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
    return;
  }
  kv_read_intens::readint(st, ip);
  kv_read_intens::prepare_data(st, ip);
}

/// Slots that mirror the radiation line.
void prepare_radiation(pattern_type& p) {
  if (p.lglb[gslot::lambda] == 0 || !(p.glb[gslot::lambda] > 0.f)) {
    p.glb[gslot::lambda] = p.lamda[0];
  } else {
    const float second = p.lamda[1] / p.lamda[0];
    p.lamda[0] = p.glb[gslot::lambda];
    p.lamda[1] = second * p.lamda[0];
  }
  p.glb[gslot::ratio2] = p.ratio[1];
}

}  // namespace

bool prepare_codes(state_type& st) {
  for (const bool only_numbers : {true, false}) {
    if (only_numbers && !st.run.automatic) continue;
    for (int ph = 0; ph < st.run.nphase; ++ph)
      for (int ip = 0; ip < st.run.n_patt; ++ip)
        if (st.mix(ph, ip).jcontr != 0 && !kalvaris_codes::cell_const(st, ph, ip, only_numbers)) return false;
    if (only_numbers) kalvaris_codes::set_symmetryconstraints(st);
  }
  kalvaris_codes::mod_codes(st);
  return st.fmt.ierr_fmt == 0;
}

void write_out(state_type& st) {
  if (!kv_calculable::calculable(st) || !prepare_codes(st)) return;
  for (pattern_type& p : st.pattern) prepare_radiation(p);
  kv_running_output::echo_conditions(st);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    instrumental_resolution::write_irf_info(st, ip, kalvaris_inout::unit::listing);
    read_data(st, ip);
    if (st.fmt.ierr_fmt != 0 || st.io.file_error) return;
    kv_running_output::echo_data(st, ip);
    prepare_background(st, ip);
    look_scatt::lookup(st, ip);
  }
  kv_running_output::echo_phases(st);
  for (int ip = 0; ip < st.run.n_patt; ++ip) reflections_mod::make_list(st, ip);
}

}  // namespace kv_setup

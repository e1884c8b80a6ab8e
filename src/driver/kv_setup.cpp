#include "kv_setup.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

#include "instrumental_resolution.hpp"
#include "intensity_correction.hpp"
#include "kalvaris_codes.hpp"
#include "kv_background.hpp"
#include "kv_calculable.hpp"
#include "kv_echo_words.hpp"
#include "kv_output_cycles.hpp"
#include "kv_read_intens.hpp"
#include "kv_running_output.hpp"
#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_text_input.hpp"
#include "look_scatt.hpp"
#include "reflections_mod.hpp"
#include "told_radiation_check.hpp"

namespace kv_setup {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
namespace gslot = kalvaris_params::gslot;
using lmix_fixed_format::fmt_line;

void refuse(state_type& st, std::string_view what, std::string_view reason) {
  st.fmt.ierr_fmt = 100;
  st.fmt.mess_findfmt.clear();
  st.fmt.mess_findfmt.add(std::string(what));
  if (!reason.empty()) st.fmt.mess_findfmt.add(std::string(reason));
}

bool check_job_types(state_type& st) {
  for (const pattern_type& p : st.pattern)
    if (kv_echo_words::words_of(kv_echo_words::flag::job, p.jobtyp).empty())
      return refuse(st, " Invalid JOBTYP " + std::to_string(p.jobtyp), {}), false;
  return true;
}

/// A search moves the parameters with limits; without any there is nothing to search.
void stop_at_empty_search(state_type& st) {
  if (!st.run.limits.empty()) return;
  if (std::abs(st.run.icryg) == 2) kalvaris_inout::stop_cond(st.io, "Montecarlo search for 0 parameters???", true);
  if (std::abs(st.run.icryg) == 3) kalvaris_inout::stop_cond(st.io, "Simulated Annealing for 0 parameters???", true);
}

/// The abscissae of a pattern that is calculated without data.
bool make_grid(state_type& st, pattern_type& p, int ip) {
  const double n = (static_cast<double>(p.thmax) - static_cast<double>(p.thmin)) / static_cast<double>(p.step) + 1.5;
  if (!(p.step > 0.f) || !(n >= 2.0)) {
    refuse(st, " => Error in the range of pattern: " + std::to_string(ip + 1),
           " Thmin, Step, Thmax must give at least 2 points");
    return false;
  }
  if (!(n < st.dim.maxpoint + 1.0)) {
    kalvaris_inout::mess_cons(
        st.io, " => Pattern: " + std::to_string(ip + 1) +
                   ", Thmin, Step, Thmax may give up to MaxPOINT = " + std::to_string(st.dim.maxpoint) + " points");
    kalvaris_inout::stop_cond(st.io, " Too many data points NPTS>MaxPOINT!", true);
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

/// A line for the console and the listing.
void tell(state_type& st, const std::string& line) {
  kalvaris_inout::mess_cons(st.io, line);
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << line << '\n';
}

/// The filter transforms points and window on both sides, as many values as the next power of two; beyond the limit a
/// window was most likely meant to be another number.
void check_filter_size(state_type& st, const pattern_type& p) {
  constexpr unsigned transform_limit = 1U << 22U;
  const double wanted = 2.0 * (p.npts + static_cast<double>(p.fwindow));
  const bool fits = wanted < transform_limit;
  if (fits && std::bit_ceil(static_cast<unsigned>(wanted)) < transform_limit) return;
  tell(st, fmt_line{}.a(" Too many data points for Fourier filtering, NPTS= ").i(8, p.npts).str());
  tell(st, fmt_line{}.a("                                          FWINDOW= ").f(12, 1, p.fwindow).str());
  const double power = std::exp2(std::min(std::ceil(std::log2(wanted)), 62.0));  // as far as an integer goes
  tell(st,
       fmt_line{}.a(" Power of 2 higher than 2*(NPTS+FWINDOW)-> M(2^k)= ").i(14, static_cast<long long>(power)).str());
  tell(st, fmt_line{}.a(" M(2^k) should be less than ").i(8, transform_limit).str());
  kalvaris_inout::stop_cond(st.io, " You should diminish your maximum 2Theta/TOF/En ! ", true);
}

/// A window of the Fourier filter below a sixth of the points would let the peaks through.
void check_filter_window(state_type& st, pattern_type& p) {
  if (kv_background::model_of(p) != kv_background::model::filter) return;
  const auto least = static_cast<float>(p.npts / 6);
  if (!(p.fwindow >= least)) {
    tell(st, " => The provided Window for Fourier filtering is too small! It should be larger than NPTS/6 !");
    p.fwindow = least;
    tell(st, " => The provided Window has been changed to " + fmt_line{}.f(10, 2, least).str());
  }
  check_filter_size(st, p);
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

/// The points of pattern ip, with the temperature that the list of the series gives to this step.
void read_data(state_type& st, int ip, const std::optional<float>& temperature) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (!intensity_correction::read_cor(st, ip)) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  if (!p.refining()) {
    if (make_grid(st, p, ip) && !intensity_correction::corr_prof(st, ip))
      kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
    return;
  }
  kv_running_output::echo_reading(st, ip);
  kv_read_intens::readint(st, ip);
  told_radiation_check::look_at(st, ip, st.io.namefil);
  kv_read_intens::prepare_data(st, ip);
  if (temperature) p.tsamp = *temperature;
}

/// Slots that mirror the radiation line; a wavelength with a code wins over it. Acts on raw codes.
void prepare_radiation(pattern_type& p) {
  if (p.aglb[gslot::lambda] == 0.f || !(p.glb[gslot::lambda] > 0.f)) {
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

std::optional<float> read_filetemp(state_type& st) {
  const auto refuse_list = [&st](const std::string& reason) -> std::optional<float> {
    st.io.file_error = true;
    st.io.file_error_mess = " => Error in the list of temperatures " + st.io.filetemp + ": " + reason;
    return std::nullopt;
  };
  auto source = lmix_text_input::text_source::from_file(kalvaris_inout::run_path(st.io, st.io.filetemp));
  if (!source.ok()) return refuse_list(source.status_text());
  int step = 0;
  while (const auto line = source.next()) {
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    float value = 0.f;
    if (lmix_list_input::list_scanner(*line).read(value) != lmix_list_input::list_status::value ||
        !std::isfinite(value))
      return refuse_list("line " + std::to_string(source.lines_taken()) + " holds no temperature");
    if (step++ == st.io.processed) return value;
  }
  return refuse_list(std::to_string(step) + " temperatures, none for step " + std::to_string(st.io.processed + 1));
}

void write_out(state_type& st) {
  if (!check_job_types(st)) return;
  for (pattern_type& p : st.pattern) prepare_radiation(p);
  kv_running_output::echo_conditions(st);
  stop_at_empty_search(st);
  if (!kv_calculable::calculable(st)) return;
  kv_calculable::tell_without_effect(st);
  if (!prepare_codes(st)) return;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    kv_running_output::echo_points(st, ip);
    instrumental_resolution::write_irf_info(st, ip, kalvaris_inout::unit::listing);
    look_scatt::lookup(st, ip);
  }
  std::optional<float> temperature;
  if (st.io.file_temp && !(temperature = read_filetemp(st))) return;
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    read_data(st, ip, temperature);
    if (st.fmt.ierr_fmt != 0 || st.io.file_error) return;
    kv_running_output::echo_data(st, ip);
    prepare_background(st, ip);
  }
  kv_running_output::echo_phases(st);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    reflections_mod::make_list(st, ip);
    kv_output_cycles::write_starting_reflections(st, ip);
  }
  kv_running_output::echo_parameters(st);
}

}  // namespace kv_setup

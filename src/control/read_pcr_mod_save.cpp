#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "pcr_writer.hpp"
#include "read_pcr_mod.hpp"

namespace read_pcr_mod {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;

write_decision_type write_decision(const state_type& st, bool cycles_failed) {
  const kalvaris_params::run_type& run = st.run;
  const auto calculated = [](const pattern_type& p) { return !p.refining(); };
  const bool nothing_refined = run.maxs == 0 || std::all_of(st.pattern.begin(), st.pattern.end(), calculated);
  constexpr float tolerated_rise = 1.2f;
  if (cycles_failed || run.nxt == 0) return {};
  if (run.nxt == 2) return {pcr_target::new_file, false};
  if (std::abs(run.icryg) > 1 || nothing_refined) return {pcr_target::control_file, false};
  if (run.t_chi2_ini * tolerated_rise > run.t_chi2 || st.io.l_sequential) return {pcr_target::control_file, false};
  return {pcr_target::new_file, true};  // also for a chi-square that is no number
}

std::string write_pcr(const state_type& st, std::string_view date_line) {
  return with_user_comments(st.run, write_without_comments(st, date_line));
}

std::string write_without_comments(const state_type& st, std::string_view date_line) {
  writing w{st, {}};
  write_head(w, date_line);
  write_flags(w);
  write_patterns(w);
  for (int ph = 0; ph < st.run.nphase; ++ph) write_phase(w, ph);
  write_end(w);
  return std::move(w.text);
}

bool save_pcr(state_type& st, bool cycles_failed) {
  const write_decision_type decision = write_decision(st, cycles_failed);
  if (decision.target == pcr_target::none) return true;
  bool finite = true;
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) { finite = finite && std::isfinite(s.value); });
  const kalvaris_util::date_time now = kalvaris_util::fecha(st.clock);
  if (!finite) {
    kalvaris_inout::console_line(st.io, " Warning! The control file was not written: a parameter is not a number");
    return false;
  }
  kalvaris_inout::next_control_file(st.io, write_pcr(st, now.dat + "  Time: " + now.tim),
                                    decision.target == pcr_target::new_file);
  if (decision.worse_chi2) {
    st.run.nxt = 2;
    kalvaris_inout::mess_cons(
        st.io, " Current parameters not saved to the current PCR file: final(Chi2) > 1.2*initial(Chi2) ");
    kalvaris_inout::mess_cons(st.io, " Current parameters are saved in a file of extension NEW ");
  }
  return true;
}

}  // namespace read_pcr_mod

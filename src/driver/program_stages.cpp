#include "program_stages.hpp"

#include "kv_final_calc_out.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_output_cycles.hpp"
#include "kv_plot_stop.hpp"
#include "kv_prf.hpp"
#include "kv_setup.hpp"
#include "read_pcr_mod.hpp"

namespace program_stages {

namespace {

using kalvaris_params::state_type;

void read_control_file(state_type& st) {
  read_pcr_mod::read_pcr(st);
  if (st.fmt.ierr_fmt == 0 && !st.io.file_error) read_pcr_mod::finish_reading(st);
}

/// A run whose results could not be written is refused before its cycles.
void refuse_unwritable(state_type& st) {
  namespace file_key = kalvaris_inout::file_key;
  constexpr int to_new = 2;
  if (st.run.nxt != 0 &&
      !kalvaris_inout::may_open(st.io, {st.run.nxt == to_new ? file_key::new_control : file_key::control_out}))
    kalvaris_inout::stop_cond(
        st.io, st.io.file_error_mess + ". A run writes it at its end, unless Nxt is 0: nothing was calculated", true);
  kv_prf::refuse_unwritable(st);
}

void set_up(state_type& st) {
  kv_setup::write_out(st);
  if (st.fmt.ierr_fmt <= 0 && !st.io.file_error) refuse_unwritable(st);
}

int run_cycles(state_type& st) {
  kv_iterate_calc_cw::cycle_hooks hooks;
  hooks.console = [&](std::string_view text) { kalvaris_inout::mess_cons(st.io, text); };
  hooks.listing = [&](std::string_view text) {
    kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << text << '\n';
  };
  hooks.cycle_done = [&](const kv_iterate_calc_cw::cycle_report& report) {
    kv_output_cycles::output_cycles(st, report);
    if (!kalvaris_inout::send_listing(st.io)) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  };
  hooks.poll_stop = [&](int& cycle) { kv_plot_stop::kalvaris_stop(st, cycle); };
  return kv_iterate_calc_cw::iterate(st, hooks);
}

}  // namespace

kalvaris_sub::run_stages stages() {
  return {read_control_file, set_up, run_cycles, kv_final_calc_out::final_calcn_output};
}

}  // namespace program_stages

#include "program_stages.hpp"

#include "kv_final_calc_out.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_output_cycles.hpp"
#include "kv_plot_stop.hpp"
#include "kv_setup.hpp"
#include "read_pcr_mod.hpp"

namespace program_stages {

namespace {

using kalvaris_params::state_type;

void read_control_file(state_type& st) {
  read_pcr_mod::read_pcr(st);
  if (st.fmt.ierr_fmt == 0 && !st.io.file_error) read_pcr_mod::finish_reading(st);
}

int run_cycles(state_type& st) {
  kv_iterate_calc_cw::cycle_hooks hooks;
  hooks.console = [&](std::string_view text) { kalvaris_inout::mess_cons(st.io, text); };
  hooks.listing = [&](std::string_view text) {
    kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << text << '\n';
  };
  hooks.cycle_done = [&](const kv_iterate_calc_cw::cycle_report& report) {
    kv_output_cycles::output_cycles(st, report);
  };
  hooks.poll_stop = [&](int& cycle) { kv_plot_stop::kalvaris_stop(st, cycle); };
  return kv_iterate_calc_cw::iterate(st, hooks);
}

}  // namespace

kalvaris_sub::run_stages stages() {
  return {read_control_file, kv_setup::write_out, run_cycles, kv_final_calc_out::final_calcn_output};
}

}  // namespace program_stages

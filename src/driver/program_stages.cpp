#include "program_stages.hpp"

#include "kv_final_calc_out.hpp"
#include "kv_iterate_calc_cw.hpp"
#include "kv_plot_stop.hpp"
#include "kv_running_output.hpp"
#include "read_pcr_mod.hpp"

namespace program_stages {

kalvaris_sub::run_stages stages() {
  using kalvaris_params::state_type;
  return {
      [](state_type& st) { read_pcr_mod::read_pcr(st); },
      [](state_type& st) { kv_running_output::write_out(st); },
      [](state_type& st) { return kv_iterate_calc_cw::iterate(st, kv_plot_stop::kalvaris_stop); },
      [](state_type& st) { kv_final_calc_out::final_calcn_output(st); },
  };
}

}  // namespace program_stages

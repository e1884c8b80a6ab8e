#include "kalvaris_sub.hpp"

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "run_signals.hpp"

namespace kalvaris_sub {

using kalvaris_inout::both_listings;
using kalvaris_inout::console_line;
using kalvaris_inout::stop_cond;
using kalvaris_params::state_type;
namespace file_key = kalvaris_inout::file_key;

namespace {

constexpr std::array<std::string_view, 6> banner{
    "        **********************************************************",
    "        ** PROGRAM Kalvaris.2k (Version 8.40 - Feb2026-QNZ VTM) **",
    "        **********************************************************",
    "                       M U L T I -- P A T T E R N                 ",
    "            Rietveld, Profile Matching & Integrated Intensity     ",
    "                 Refinement of X-ray and/or Neutron Data",
};

void open_or_stop(state_type& st, int key) {
  kalvaris_inout::openfile(st.io, {key});
  if (st.io.file_error) stop_cond(st.io, st.io.file_error_mess, true);
}

void listing_banner(state_type& st) {
  for (int i = 0; i < 2; ++i) both_listings(st.io, "");
  write_banner([&](std::string_view line) { both_listings(st.io, line); });
  for (int i = 0; i < 2; ++i) both_listings(st.io, "");
}

/// A line with date and time on the console, behind an empty one.
void console_date(state_type& st, std::string_view what, const kalvaris_util::date_time& now) {
  kalvaris_inout::mess_cons(st.io, "");
  kalvaris_inout::mess_cons(st.io, std::string(what) + now.dat + "  Time => " + now.tim);
}

void start_lines(state_type& st) {
  listing_banner(st);
  const kalvaris_util::date_time now = kalvaris_util::fecha(st.clock);
  both_listings(st.io, st.clock.dat_tim);
  both_listings(st.io, "");
  console_date(st, " => START Date:", now);
  both_listings(st.io, " => PCR file code: " + st.io.filenam);
  kalvaris_inout::mess_cons(st.io, " => Reading control file *.PCR ... " + st.io.filenam);
}

/// A listing that cannot be written ends the run: what it would say is part of the result.
void stop_without_listing(state_type& st) {
  if (!kalvaris_inout::send_listing(st.io)) stop_cond(st.io, st.io.file_error_mess, true);
}

/// The files of the run come to their places; the listing stays open to say why they did not.
void bring_to_places(state_type& st) {
  run_signals::hold signals;
  if (!kalvaris_inout::commit(st.io)) {
    kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << st.io.file_error_mess << '\n';
    stop_cond(st.io, st.io.file_error_mess, true);
  }
  signals.done();
  kalvaris_inout::close_all(st.io);
}

void end_lines(state_type& st) {
  kalvaris_util::ggtim(st.io, st.clock, 2);
  const kalvaris_util::date_time now = kalvaris_util::fecha(st.clock);
  both_listings(st.io, "");
  both_listings(st.io, " => Run finished at: " + st.clock.dat_tim);
  console_date(st, " => END   Date:", now);
}

/// Stops the run when the stage before could not open a file or refused what it read.
void stop_on_failure(state_type& st, bool refused, std::string_view words) {
  if (st.io.file_error) stop_cond(st.io, st.io.file_error_mess, true);
  if (!refused) return stop_without_listing(st);
  console_line(st.io, words);
  const auto& message = st.fmt.mess_findfmt;
  for (int i = 0; i < message.nlines; ++i) console_line(st.io, message.txt[static_cast<std::size_t>(i)]);
  stop_cond(st.io, " Program interrupted", true);
}

void refuse_search_engines(state_type& st) {
  constexpr int montecarlo = 2, annealing = 3;
  const int engine = std::abs(st.run.icryg);
  if (engine == annealing) stop_cond(st.io, " Simulated annealing is not available yet", true);
  if (engine == montecarlo) stop_cond(st.io, " Monte Carlo search is not available yet", true);
}

}  // namespace

void write_banner(const std::function<void(std::string_view)>& line) {
  for (const std::string_view text : banner) line(text);
}

run_end kalvaris(state_type& st, const run_stages& stages, bool from_new) {
  kalvaris_util::ggtim(st.io, st.clock, 1);
  open_or_stop(st, from_new ? file_key::control_rerun : file_key::control);
  open_or_stop(st, file_key::listings);
  start_lines(st);

  stages.read_pcr(st);
  stop_on_failure(st, st.fmt.ierr_fmt != 0, " Error reading the PCR file:");
  if (st.run.n_patt > 1 || !st.run.s_format) kalvaris_inout::openfile(st.io, {file_key::per_pattern});

  stages.write_out(st);
  stop_on_failure(st, st.fmt.ierr_fmt > 0, " Error during treating the content of the PCR file:");

  refuse_search_engines(st);
  const int ier = stages.iterate(st);
  if (!st.run.ctr_err) {
    if (ier == 0) stages.final_calcn_output(st);
    end_lines(st);
  }
  bring_to_places(st);
  if (st.run.ctr_err) return run_end::abnormal;
  if (ier != 0) return run_end::abnormal;
  return st.run.cycles_end.whole() ? run_end::normal : run_end::open;
}

}  // namespace kalvaris_sub

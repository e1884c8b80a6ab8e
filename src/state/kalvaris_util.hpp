// kalvaris_util: clock, date and the seeding of the random generator of a run.
// It owns clock_type; the driver starts and reads it.
#pragma once
#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "kalvaris_inout.hpp"
#include "lmix_math_general.hpp"

namespace kalvaris_util {

struct clock_type {
  std::chrono::duration<double> itick1{};  ///< processor time of the process at the start of the run
  std::string dat_tim;                     ///< "    Date: dd/mm/yyyy  Time: hh:mm:ss.sss"
};

/// i = 1 starts the clock; i = 2 prints the processor time that the run took, of all its threads, in seconds and
/// minutes on the console and in the listings.
void ggtim(kalvaris_inout::inout_type& io, clock_type& clock, int i);

struct date_time {
  std::string dat;  ///< dd/mm/yyyy
  std::string tim;  ///< hh:mm:ss.sss
};
/// Local date and time; fills dat_tim.
date_time fecha(clock_type& clock);

/// Seeds the generator with seed[0] and seed[1], each brought into its range; from the clock when seed[0] is 0 or
/// absent.
void init_ran(lmix_math_general::combined_generator& generator, std::span<const std::int32_t> seed);

}  // namespace kalvaris_util

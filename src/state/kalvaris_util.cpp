#include "kalvaris_util.hpp"

#include <array>
#include <ctime>
#include <string>

#include "lmix_fixed_format.hpp"

namespace kalvaris_util {

using kalvaris_inout::both_listings;
using kalvaris_inout::console_line;
using lmix_fixed_format::fmt_line;

namespace {

/// Two digits, or more when the value has more.
std::string padded(int value, std::size_t digits) {
  std::string text = std::to_string(value);
  if (text.size() < digits) text.insert(0, digits - text.size(), '0');
  return text;
}

void to_all(kalvaris_inout::inout_type& io, const std::string& line) {
  console_line(io, line);
  both_listings(io, line);
}

std::chrono::duration<double> processor_time() {
  std::timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace

void ggtim(kalvaris_inout::inout_type& io, clock_type& clock, int i) {
  if (i == 1) {
    clock.itick1 = processor_time();
    return;
  }
  constexpr double seconds_per_minute = 60.0;
  kalvaris_inout::mess_cons(io, "");
  kalvaris_inout::mess_cons(io, "");
  both_listings(io, "");
  const double used = (processor_time() - clock.itick1).count();
  to_all(io, fmt_line{}.x(14).a("CPU Time:").f(10, 3, used).a(" seconds").str());
  to_all(io, fmt_line{}.x(23).f(10, 3, used / seconds_per_minute).a(" minutes").str());
}

date_time fecha(clock_type& clock) {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const auto milliseconds = duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::time_t t = system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&t, &local);
  date_time result;
  result.dat = padded(local.tm_mday, 2) + "/" + padded(local.tm_mon + 1, 2) + "/" + padded(local.tm_year + 1900, 4);
  result.tim = padded(local.tm_hour, 2) + ":" + padded(local.tm_min, 2) + ":" + padded(local.tm_sec, 2) + "." +
               padded(static_cast<int>(milliseconds), 3);
  clock.dat_tim = "    Date: " + result.dat + "  Time: " + result.tim;
  return result;
}

void init_ran(lmix_math_general::combined_generator& generator, std::span<const std::int32_t> seed) {
  if (seed.empty() || seed[0] == 0) {
    const std::int64_t ticks = std::chrono::system_clock::now().time_since_epoch().count();
    constexpr std::int64_t split = 1'000'000'007;  // a prime, so that both seeds change from call to call
    generator.seed(ticks, ticks / 1000 % split);
    return;
  }
  generator.seed(seed[0], seed.size() > 1 ? seed[1] : 0);
}

}  // namespace kalvaris_util

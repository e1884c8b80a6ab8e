// How surely refinements of a program converge from starts beside the optimum, to compare one program with another.
//   kalvaris_starts PROGRAM CASE_DIR... [options]        (kalvaris_starts --help lists them)
// Each case is refined to its end by a reference program; the refined control file is disturbed at random, by seeds
// that depend on case, level and number of the start only, and refined by PROGRAM. The table tells how many starts
// reach the smallest chi-square seen, in how many cycles, and how the others end.
// --matching: instead, each case as profile matching from the refined values and from disturbed ones, each run twice.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "starts_measures.hpp"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (std::ranges::find(arguments, "--help") != arguments.end()) return std::cout << starts_settings::usage(), 0;
  unsetenv("KALVARIS");
  constexpr int politeness = 10;
  if (nice(politeness) < 0) std::cerr << "the runs take their turn like all others\n";
  try {
    const auto s = starts_settings::read(arguments);
    const starts_bases::scratch room;
    return (s.matching ? starts_measures::matching(s, room) : starts_measures::convergence(s, room)) ? 0 : 1;
  } catch (const std::invalid_argument& refused) {
    std::cerr << refused.what() << '\n' << starts_settings::usage();
    return 2;
  } catch (const std::exception& failed) {
    std::cerr << failed.what() << '\n';
    return 1;
  }
}

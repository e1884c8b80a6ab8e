#include <iostream>
#include <string>
#include <vector>

#include "command_line.hpp"
#include "floating_point.hpp"
#include "program_stages.hpp"
#include "standard_streams.hpp"

int main(int argc, char** argv) {
  standard_streams::prepare();
  floating_point::flush_denormals();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return command_line::run(arguments, program_stages::stages(), KALVARIS_VERSION, std::cout, std::cerr);
}

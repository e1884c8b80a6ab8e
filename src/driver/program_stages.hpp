// program_stages: the modules of which a run of the program is made.
// It owns nothing; a test of the sequence puts other stages in their place.
// Called by main.
#pragma once
#include "kalvaris_sub.hpp"

namespace program_stages {

kalvaris_sub::run_stages stages();

}  // namespace program_stages

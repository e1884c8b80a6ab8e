// told_radiation_check: the wavelengths that a data file tells, held against those that the run calculates with.
// It owns the tolerance and the words. It reads the pattern and tells a notice.
#pragma once
#include <string>

#include "kalvaris_params.hpp"

namespace told_radiation_check {

/// Tells where wavelengths or their ratio differ by more than 1e-4 of themselves: as a warning, or as a note where they
/// are refined. What the file does not tell, and a second wavelength that one side has no intensity for, is not held
/// against the other. file: name of the data file. Patterns over 2theta only; after the reading of the data.
void look_at(kalvaris_params::state_type& st, int ip, const std::string& file);

}  // namespace told_radiation_check

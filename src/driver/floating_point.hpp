// floating_point: the treatment of denormal results for the whole process.
// It owns nothing but a bit of the processor's control register.
// Called by main before anything else.
#pragma once

namespace floating_point {

/// Denormal results, and denormal operands where the processor knows that, become 0 in the calling thread. They cost a
/// hundred cycles each and mean nothing in a sum of intensities. No effect on processors without such a mode.
void flush_denormals();

}  // namespace floating_point

#include "floating_point.hpp"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace floating_point {

void flush_denormals() {
#if defined(__SSE__)
  constexpr unsigned flush_to_zero = 0x8000, denormals_are_zero = 0x0040;
  _mm_setcsr(_mm_getcsr() | flush_to_zero | denormals_are_zero);
#elif defined(__aarch64__)
  constexpr unsigned long flush_to_zero = 1ul << 24;
  unsigned long control;
  asm volatile("mrs %0, fpcr" : "=r"(control));
  asm volatile("msr fpcr, %0" : : "r"(control | flush_to_zero));
#endif
}

}  // namespace floating_point

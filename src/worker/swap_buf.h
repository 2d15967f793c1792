// Exchange of buffer-pair pointers: frames change role (free, under
// evaluation, best) by swapping pointers, never by copying pixels.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/simd_dispatch.h"

namespace qlis {

// Words exchanged per step of the vector path.
inline constexpr int32_t kSwapStep = 4;

namespace portable {
// Exchanges the pointer-sized words a[i], b[i] for i < n. For n > 5 with
// the first 16 bytes of a and b apart, four words of a and four of b are
// read before either is written; the rest one word at a time.
void swap_words(uint8_t *a, uint8_t *b, int32_t n);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
void swap_words(uint8_t *a, uint8_t *b, int32_t n);
}  // namespace neon
#endif

// True when four-word steps may be used for these arrays.
inline bool swap_uses_vector_steps(const uint8_t *a, const uint8_t *b, int32_t n) {
  constexpr uintptr_t kVectorBytes = 16;
  const uintptr_t pa = reinterpret_cast<uintptr_t>(a);
  const uintptr_t pb = reinterpret_cast<uintptr_t>(b);
  const uintptr_t distance = pa > pb ? pa - pb : pb - pa;
  return n > 5 && distance >= kVectorBytes;
}

// Exchanges one pointer-sized word; byte copies keep it free of aliasing
// assumptions about what the words hold.
inline void swap_word(uint8_t *a, uint8_t *b) {
  uintptr_t wa;
  uintptr_t wb;
  std::memcpy(&wa, a, sizeof wa);
  std::memcpy(&wb, b, sizeof wb);
  std::memcpy(a, &wb, sizeof wb);
  std::memcpy(b, &wa, sizeof wa);
}

}  // namespace qlis

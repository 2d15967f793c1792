#include <cstring>

#include "platform/neon.h"
#include "worker/swap_buf.h"

namespace qlis::neon {

void swap_words(uint8_t *a, uint8_t *b, int32_t n) {
  constexpr size_t kWord = sizeof(uintptr_t);
  // Four pointer-sized words are one 128-bit register on 32-bit targets
  // and two on 64-bit ones.
  constexpr int kVectors = static_cast<int>(kSwapStep * kWord / 16);
  int32_t i = 0;
  if (swap_uses_vector_steps(a, b, n)) {
    for (; i + kSwapStep <= n; i += kSwapStep) {
      uint8_t *pa = a + i * kWord;
      uint8_t *pb = b + i * kWord;
      uint8x16_t va[kVectors];
      uint8x16_t vb[kVectors];
      for (int k = 0; k < kVectors; ++k) va[k] = vld1q_u8(pa + 16 * k);
      for (int k = 0; k < kVectors; ++k) vb[k] = vld1q_u8(pb + 16 * k);
      for (int k = 0; k < kVectors; ++k) vst1q_u8(pa + 16 * k, vb[k]);
      for (int k = 0; k < kVectors; ++k) vst1q_u8(pb + 16 * k, va[k]);
    }
  }
  for (; i < n; ++i) swap_word(a + i * kWord, b + i * kWord);
}

}  // namespace qlis::neon

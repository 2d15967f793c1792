#include "worker/swap_buf.h"

#include <cstring>

#include "ql_is/ql_is.h"

namespace qlis::portable {

void swap_words(uint8_t *a, uint8_t *b, int32_t n) {
  constexpr size_t kWord = sizeof(uintptr_t);
  int32_t i = 0;
  if (swap_uses_vector_steps(a, b, n)) {
    for (; i + kSwapStep <= n; i += kSwapStep) {
      uint8_t from_a[kSwapStep * kWord];
      uint8_t from_b[kSwapStep * kWord];
      std::memcpy(from_a, a + i * kWord, sizeof from_a);
      std::memcpy(from_b, b + i * kWord, sizeof from_b);
      std::memcpy(a + i * kWord, from_b, sizeof from_b);
      std::memcpy(b + i * kWord, from_a, sizeof from_a);
    }
  }
  for (; i < n; ++i) swap_word(a + i * kWord, b + i * kWord);
}

}  // namespace qlis::portable

extern "C" void swap_buf(void *a, void *b, int32_t n) {
  if (n <= 0) return;
  qlis::kernels::swap_words(static_cast<uint8_t *>(a), static_cast<uint8_t *>(b), n);
}

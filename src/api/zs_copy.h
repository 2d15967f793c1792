// Block copies of the frame intake: 64-byte blocks in vector registers, the
// tail through the C library.
#pragma once

#include <cstdint>

#include "platform/simd_dispatch.h"

namespace qlis {

inline constexpr uint32_t kCopyBlock = 64;

namespace portable {
void copy_blocks(uint8_t *dst, const uint8_t *src, uint32_t n);
// The tail past the last whole block is zeroed, not filled with value.
void fill_blocks(uint8_t *dst, uint8_t value, uint32_t n);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
void copy_blocks(uint8_t *dst, const uint8_t *src, uint32_t n);
void fill_blocks(uint8_t *dst, uint8_t value, uint32_t n);
}  // namespace neon
#endif

}  // namespace qlis

#include <cstring>

#include "api/zs_copy.h"
#include "platform/neon.h"

namespace qlis::neon {
namespace {

inline void copy_block(uint8_t *dst, const uint8_t *src) {
  const uint8x16_t a = vld1q_u8(src);
  const uint8x16_t b = vld1q_u8(src + 16);
  const uint8x16_t c = vld1q_u8(src + 32);
  const uint8x16_t d = vld1q_u8(src + 48);
  vst1q_u8(dst, a);
  vst1q_u8(dst + 16, b);
  vst1q_u8(dst + 32, c);
  vst1q_u8(dst + 48, d);
}

}  // namespace

void copy_blocks(uint8_t *dst, const uint8_t *src, uint32_t n) {
  uint32_t blocks = n / kCopyBlock;
  // Four blocks per iteration keep sixteen loads in flight.
  for (; blocks >= 4; blocks -= 4) {
    copy_block(dst, src);
    copy_block(dst + 64, src + 64);
    copy_block(dst + 128, src + 128);
    copy_block(dst + 192, src + 192);
    dst += 256;
    src += 256;
  }
  for (; blocks > 0; --blocks) {
    copy_block(dst, src);
    dst += 64;
    src += 64;
  }
  std::memcpy(dst, src, n % kCopyBlock);
}

void fill_blocks(uint8_t *dst, uint8_t value, uint32_t n) {
  const uint8x16_t v = vdupq_n_u8(value);
  for (uint32_t blocks = n / kCopyBlock; blocks > 0; --blocks) {
    vst1q_u8(dst, v);
    vst1q_u8(dst + 16, v);
    vst1q_u8(dst + 32, v);
    vst1q_u8(dst + 48, v);
    dst += 64;
  }
  std::memset(dst, 0, n % kCopyBlock);
}

}  // namespace qlis::neon

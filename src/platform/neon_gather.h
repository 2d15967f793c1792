// Gathers the sample byte of packed RAW10 groups: byte 4 of every five-byte
// group, 16 samples from 80 bytes, with table lookups over whole 16-byte
// loads instead of one scalar load per sample.
#pragma once

#include <cstdint>

#include "platform/neon.h"

namespace qlis::neon {

// Samples of groups 0..15 starting at p; reads exactly p[0..79].
inline uint8x16_t gather_group_byte4_x16(const uint8_t *p) {
#if QLIS_NEON_A64
  // Samples 0..11 lie in the first 64 bytes, 12..15 at bytes 64, 69, 74, 79.
  static const uint8_t kLow[16] = {4,  9,  14, 19, 24,  29,  34,  39,
                                   44, 49, 54, 59, 255, 255, 255, 255};
  static const uint8_t kHigh[16] = {255, 255, 255, 255, 255, 255, 255, 255,
                                    255, 255, 255, 255, 0,   5,   10,  15};
  uint8x16x4_t table;
  table.val[0] = vld1q_u8(p);
  table.val[1] = vld1q_u8(p + 16);
  table.val[2] = vld1q_u8(p + 32);
  table.val[3] = vld1q_u8(p + 48);
  const uint8x16_t first = vqtbl4q_u8(table, vld1q_u8(kLow));
  return vqtbx1q_u8(first, vld1q_u8(p + 64), vld1q_u8(kHigh));
#else
  // A32 lookups work on 8-byte halves with tables of at most 32 bytes: each
  // half of the result takes 8 samples from 40 bytes, 6 of them from the
  // first 32 bytes and 2 (bytes 34 and 39) from the next 8.
  static const uint8_t kLow[8] = {4, 9, 14, 19, 24, 29, 255, 255};
  static const uint8_t kHigh[8] = {255, 255, 255, 255, 255, 255, 2, 7};
  const uint8x8_t low = vld1_u8(kLow);
  const uint8x8_t high = vld1_u8(kHigh);
  uint8x8_t half[2];
  for (int h = 0; h < 2; ++h) {
    const uint8_t *q = p + 40 * h;
    uint8x8x4_t table;
    table.val[0] = vld1_u8(q);
    table.val[1] = vld1_u8(q + 8);
    table.val[2] = vld1_u8(q + 16);
    table.val[3] = vld1_u8(q + 24);
    half[h] = vtbx1_u8(vtbl4_u8(table, low), vld1_u8(q + 32), high);
  }
  return vcombine_u8(half[0], half[1]);
#endif
}

// Samples of groups 0..count-1 of the row at `row` into out[0..count-1];
// reads row[0 .. 5 * count - 1] only.
inline void gather_group_byte4_row(const uint8_t *row, int32_t count,
                                   uint8_t *out) {
  int32_t g = 0;
  for (; g + 16 <= count; g += 16) {
    vst1q_u8(out + g, gather_group_byte4_x16(row + 5 * g));
  }
  for (; g < count; ++g) out[g] = row[5 * g + 4];
}

}  // namespace qlis::neon

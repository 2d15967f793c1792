// NEON twin of the plane block extractor. With dist = 1 a sample and its
// right neighbour are bytes 0 and 1 of a four-byte group, so one
// de-interleaving load of 64 bytes yields 16 samples and their right
// neighbours, and the same load one row down yields the lower neighbours.
#include <cstddef>

#include "feature/yuv_block.h"
#include "platform/neon.h"

namespace qlis::neon {
namespace {

constexpr int64_t kWideBytes = 64;    // 16 samples
constexpr int64_t kNarrowBytes = 32;  // 8 samples

// A chunk adds at most 4 x 2 x 255^2 = 520,200 to a 32-bit energy lane (two
// squares per pairwise widening add, four adds), and at most 4 x 255 to a
// sum lane; 8192 chunks stay below 2^32, so the lanes are flushed into the
// 64-bit totals every 8192 chunks and at the end of the block.
constexpr int32_t kChunksPerFlush = 8192;

struct Totals {
  uint64x2_t sum = vdupq_n_u64(0);
  uint64x2_t energy = vdupq_n_u64(0);
  uint32x4_t sum32 = vdupq_n_u32(0);
  uint32x4_t energy32 = vdupq_n_u32(0);
  int32_t chunks = 0;

  void count_chunk() {
    if (++chunks == kChunksPerFlush) flush();
  }
  void flush() {
    sum = vpadalq_u32(sum, sum32);
    energy = vpadalq_u32(energy, energy32);
    sum32 = vdupq_n_u32(0);
    energy32 = vdupq_n_u32(0);
    chunks = 0;
  }
};

// Bytes 0 and 1 of every four-byte group, and byte 0 of the groups below.
// A64 unzips four plain loads twice (byte 4k, then byte 4k + 1); SIMDe
// turns those into single shuffles where it would copy a de-interleaving
// load byte by byte. A32 has no unzip of one half only, so it keeps the
// de-interleaving load.
struct Samples16 {
  uint8x16_t s;
  uint8x16_t h;
  uint8x16_t v;
};

inline Samples16 load_wide(const uint8_t *p, const uint8_t *below) {
#if QLIS_NEON_A64
  const uint8x16_t a = vld1q_u8(p);
  const uint8x16_t b = vld1q_u8(p + 16);
  const uint8x16_t c = vld1q_u8(p + 32);
  const uint8x16_t d = vld1q_u8(p + 48);
  const uint8x16_t even = vuzp1q_u8(vuzp1q_u8(a, b), vuzp1q_u8(c, d));
  const uint8x16_t odd = vuzp1q_u8(vuzp2q_u8(a, b), vuzp2q_u8(c, d));
  const uint8x16_t down =
      vuzp1q_u8(vuzp1q_u8(vld1q_u8(below), vld1q_u8(below + 16)),
                vuzp1q_u8(vld1q_u8(below + 32), vld1q_u8(below + 48)));
  return {even, odd, down};
#else
  const uint8x16x4_t row = vld4q_u8(p);
  return {row.val[0], row.val[1], vld4q_u8(below).val[0]};
#endif
}

struct Samples8 {
  uint8x8_t s;
  uint8x8_t h;
  uint8x8_t v;
};

inline Samples8 load_narrow(const uint8_t *p, const uint8_t *below) {
#if QLIS_NEON_A64
  const uint8x8_t a = vld1_u8(p);
  const uint8x8_t b = vld1_u8(p + 8);
  const uint8x8_t c = vld1_u8(p + 16);
  const uint8x8_t d = vld1_u8(p + 24);
  const uint8x8_t even = vuzp1_u8(vuzp1_u8(a, b), vuzp1_u8(c, d));
  const uint8x8_t odd = vuzp1_u8(vuzp2_u8(a, b), vuzp2_u8(c, d));
  const uint8x8_t down = vuzp1_u8(vuzp1_u8(vld1_u8(below), vld1_u8(below + 8)),
                                  vuzp1_u8(vld1_u8(below + 16), vld1_u8(below + 24)));
  return {even, odd, down};
#else
  const uint8x8x4_t row = vld4_u8(p);
  return {row.val[0], row.val[1], vld4_u8(below).val[0]};
#endif
}

// Squares of |a - b| fit 16-bit lanes (255^2 = 65,025); pairs of them are
// widened into the 32-bit lanes.
inline uint32x4_t add_squared_diffs(uint32x4_t acc, uint8x8_t a, uint8x8_t b) {
  const uint8x8_t d = vabd_u8(a, b);
  return vpadalq_u16(acc, vmull_u8(d, d));
}

// 16 samples at p[0], p[4], ..., p[60]; reads p[0..63] and below[0..63].
inline void add_wide(Totals &t, const uint8_t *p, const uint8_t *below) {
  const Samples16 g = load_wide(p, below);
  const uint8x16_t s = g.s;
  const uint8x16_t h = g.h;
  const uint8x16_t down = g.v;
  t.sum32 = vpadalq_u16(t.sum32, vpaddlq_u8(s));
  t.energy32 = add_squared_diffs(t.energy32, vget_low_u8(h), vget_low_u8(s));
  t.energy32 = add_squared_diffs(t.energy32, vget_high_u8(h), vget_high_u8(s));
  t.energy32 = add_squared_diffs(t.energy32, vget_low_u8(down), vget_low_u8(s));
  t.energy32 =
      add_squared_diffs(t.energy32, vget_high_u8(down), vget_high_u8(s));
  t.count_chunk();
}

// 8 samples at p[0], p[4], ..., p[28]; reads p[0..31] and below[0..31].
inline void add_narrow(Totals &t, const uint8_t *p, const uint8_t *below) {
  const Samples8 g = load_narrow(p, below);
  t.sum32 = vaddw_u16(t.sum32, vpaddl_u8(g.s));
  t.energy32 = add_squared_diffs(t.energy32, g.h, g.s);
  t.energy32 = add_squared_diffs(t.energy32, g.v, g.s);
  t.count_chunk();
}

inline uint64_t horizontal_sum(uint64x2_t v) {
  return vgetq_lane_u64(v, 0) + vgetq_lane_u64(v, 1);
}

}  // namespace

uint64_t yuv_block_features(uint64_t *sum_out, uint64_t *aux_out,
                            YuvBlockArgs args) {
  YuvBlockArgs a = args;
  clamp_yuv_block(a);
  // The frame drivers always pass dist = 1; other distances, empty blocks
  // and invalid flags take the portable path, which handles them all.
  if (a.dist != 1 || yuv_block_is_empty(a) || !yuv_flags_valid(a)) {
    return portable::yuv_block_features(sum_out, aux_out, args);
  }

  // The last sample of a row lies below col_end and its right neighbour at
  // most at col_end, so no load, on either row, reaches past byte col_end.
  const int64_t read_end = static_cast<int64_t>(a.col_end) + 1;
  const size_t stride = static_cast<size_t>(a.stride);
  Totals t;
  uint64_t tail_sum = 0;
  uint64_t tail_energy = 0;
  for (int64_t y = a.row_begin; y < a.row_end; y += kYuvSampleStep) {
    const uint8_t *row = a.data + static_cast<size_t>(y) * stride;
    const uint8_t *below = row + stride;
    int64_t x = a.col_begin;
    for (; x + kWideBytes <= read_end; x += kWideBytes) {
      add_wide(t, row + x, below + x);
    }
    if (x + kNarrowBytes <= read_end) {
      add_narrow(t, row + x, below + x);
      x += kNarrowBytes;
    }
    for (; x < a.col_end; x += kYuvSampleStep) {
      const int32_t s = row[x];
      const int32_t dh = row[x + 1] - s;
      const int32_t dv = below[x] - s;
      tail_sum += static_cast<uint64_t>(s);
      tail_energy += static_cast<uint64_t>(dh * dh + dv * dv);
    }
  }
  t.flush();
  // 64-bit sums wrap alike in any order, so the split into lanes and tail
  // leaves the totals bit-exact with the portable visit order.
  const uint64_t sum = horizontal_sum(t.sum) + tail_sum;
  const uint64_t energy = horizontal_sum(t.energy) + tail_energy;
  *sum_out = a.stats_flag == 1 ? sum : 0;
  return a.gradient_flag == 1 ? energy : 0;
}

}  // namespace qlis::neon

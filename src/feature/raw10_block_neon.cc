// NEON twin of the RAW10 block extractor. Each sample row of the block is
// gathered once into a small line buffer (16 samples from 80 bytes by table
// lookups); the arithmetic then runs on contiguous bytes: s = line[g],
// h = line[g + 1], v = next_line[g].
//
// Bright and dark samples are counted with vector compares instead of a
// histogram: the portable version adds the histogram bins as doubles in
// ascending order, which equals the double of their integer total as long
// as partial sums stay below 2^53, far beyond any frame.
#include <algorithm>
#include <cstring>

#include "feature/raw10_block.h"
#include "platform/neon.h"
#include "platform/neon_gather.h"

namespace qlis::neon {
namespace {

constexpr int32_t kChunk = 16;  // samples per vector

// Blocks wider than this are cut into strips of columns. A strip row keeps
// the per-row lanes below their limits (see RowSums) and the line buffers
// on the stack small.
constexpr int32_t kStripSamples = 1024;
constexpr int32_t kStripChunks = kStripSamples / kChunk;

// A line holds the strip's samples, the right neighbour of its last one,
// and a vector of zeroed slack so that the masked last chunk loads whole
// vectors from initialised bytes.
constexpr int32_t kLineBytes = kStripSamples + 1 + kChunk;

// Prefetch this many sample rows ahead of the gather; the rows of a block
// are a stride apart, too far for the hardware's streams to follow at once.
constexpr int32_t kPrefetchRows = 4;
constexpr int32_t kCacheLine = 64;

// Loading 16 bytes at kTailMask + 16 - n sets lanes 0..n-1.
alignas(16) constexpr uint8_t kTailMask[2 * kChunk] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0,    0,    0,
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0};

// Lanes of one strip row, flushed into BlockSums at the end of the row.
// Per chunk a 16-bit sum lane takes two samples (at most 510), a 32-bit
// square lane four squares (at most 260,100) and a count lane at most 1;
// a strip row has at most kStripChunks = 64 chunks, so the lanes peak at
// 32,640, 16,646,400 and 64: none can overflow within a row.
struct RowSums {
  uint16x8_t sum = vdupq_n_u16(0);
  uint32x4_t sumsq = vdupq_n_u32(0);
  uint8x16_t bright = vdupq_n_u8(0);
  uint8x16_t dark = vdupq_n_u8(0);
};
static_assert(kStripChunks * 2 * 255 <= UINT16_MAX);
static_assert(kStripChunks * 4 * 255 * 255 <= UINT32_MAX);
static_assert(kStripChunks <= UINT8_MAX);

// Totals of the block. The energy lanes wrap at 32 bits, as the energy
// itself does: a sum of lanes modulo 2^32 equals the sum of all the terms
// modulo 2^32, so they are never flushed. The 64-bit lanes cannot overflow
// before the 64-bit totals would.
struct BlockSums {
  uint32x4_t energy = vdupq_n_u32(0);
  uint64x2_t sum = vdupq_n_u64(0);
  uint64x2_t sumsq = vdupq_n_u64(0);
  uint64x2_t bright = vdupq_n_u64(0);
  uint64x2_t dark = vdupq_n_u64(0);
};

inline uint64_t total(uint64x2_t v) {
  return vgetq_lane_u64(v, 0) + vgetq_lane_u64(v, 1);
}

inline uint64x2_t widen_counts(uint64x2_t acc, uint8x16_t counts) {
  return vpadalq_u32(acc, vpaddlq_u16(vpaddlq_u8(counts)));
}

// Adds the squares of the 16 bytes of d; each square fits a 16-bit lane.
inline uint32x4_t add_squares(uint32x4_t acc, uint8x16_t d) {
  const uint8x8_t low = vget_low_u8(d);
  const uint8x8_t high = vget_high_u8(d);
  acc = vpadalq_u16(acc, vmull_u8(low, low));
  return vpadalq_u16(acc, vmull_u8(high, high));
}

// Samples of groups 0..count-1 of `row` into out[0..count-1], reading only
// row[0 .. 5 count - 1]: a short last chunk is gathered again from the 16
// groups that end at the last one.
inline void gather_samples(const uint8_t *row, int32_t count, uint8_t *out) {
  if (count < kChunk) {
    for (int32_t g = 0; g < count; ++g) out[g] = row[5 * g + 4];
    return;
  }
  int32_t g = 0;
  for (; g + kChunk <= count; g += kChunk) {
    vst1q_u8(out + g, gather_group_byte4_x16(row + 5 * g));
  }
  if (g < count) {
    g = count - kChunk;
    vst1q_u8(out + g, gather_group_byte4_x16(row + 5 * g));
  }
}

inline void prefetch_span(const uint8_t *p, int32_t bytes) {
  for (int32_t b = 0; b < bytes; b += kCacheLine) __builtin_prefetch(p + b);
  __builtin_prefetch(p + bytes - 1);
}

// One chunk of 16 samples at line[0..15]; `mask` selects the lanes that
// belong to the block (all of them but in a row's last chunk).
template <bool kStatistics, bool kGradient, bool kMasked>
inline void add_chunk(BlockSums &t, RowSums &r, const uint8_t *line,
                      const uint8_t *next_line, uint8x16_t mask) {
  const uint8x16_t s = vld1q_u8(line);
  uint8x16_t bright = vcgeq_u8(s, vdupq_n_u8(kBrightFirst));
  uint8x16_t dark = vcleq_u8(s, vdupq_n_u8(kDarkLast));
  if (kMasked) {
    bright = vandq_u8(bright, mask);
    dark = vandq_u8(dark, mask);
  }
  // Compare masks are all ones: subtracting one adds 1.
  r.bright = vsubq_u8(r.bright, bright);
  r.dark = vsubq_u8(r.dark, dark);
  if (kGradient) {
    uint8x16_t dh = vabdq_u8(vld1q_u8(line + 1), s);
    uint8x16_t dv = vabdq_u8(vld1q_u8(next_line), s);
    if (kMasked) {
      dh = vandq_u8(dh, mask);
      dv = vandq_u8(dv, mask);
    }
    t.energy = add_squares(t.energy, dh);
    t.energy = add_squares(t.energy, dv);
  }
  if (kStatistics) {
    const uint8x16_t v = kMasked ? vandq_u8(s, mask) : s;
    r.sum = vpadalq_u8(r.sum, v);
    r.sumsq = add_squares(r.sumsq, v);
  }
}

// Samples line[0..n-1] of one strip row, n <= kStripSamples.
template <bool kStatistics, bool kGradient>
inline void add_row(BlockSums &t, const uint8_t *line, const uint8_t *next_line,
                    int32_t n) {
  RowSums r;
  const uint8x16_t all = vdupq_n_u8(0xFF);
  int32_t k = 0;
  for (; k + kChunk <= n; k += kChunk) {
    add_chunk<kStatistics, kGradient, false>(t, r, line + k, next_line + k,
                                             all);
  }
  if (k < n) {
    const uint8x16_t mask = vld1q_u8(kTailMask + kChunk - (n - k));
    add_chunk<kStatistics, kGradient, true>(t, r, line + k, next_line + k,
                                            mask);
  }
  if (kStatistics) {
    t.sum = vpadalq_u32(t.sum, vpaddlq_u16(r.sum));
    t.sumsq = vpadalq_u32(t.sumsq, r.sumsq);
  }
  t.bright = widen_counts(t.bright, r.bright);
  t.dark = widen_counts(t.dark, r.dark);
}

// Groups [0, n) of `rows` sample rows starting at `first`, a row pair
// (2 stride bytes) apart. With the gradient, the row below the last one
// and the group right of the last one are read too.
template <bool kStatistics, bool kGradient>
void add_strip(BlockSums &t, const uint8_t *first, size_t pair_stride,
               int32_t rows, int32_t n) {
  alignas(16) uint8_t lines[2][kLineBytes];
  const int32_t count = kGradient ? n + 1 : n;
  std::memset(lines[0] + count, 0, kChunk);
  std::memset(lines[1] + count, 0, kChunk);
  uint8_t *line = lines[0];
  uint8_t *next_line = lines[1];
  const int32_t last_row = kGradient ? rows : rows - 1;  // last row read
  if (kGradient) gather_samples(first, count, line);
  for (int32_t i = 0; i < rows; ++i) {
    const int32_t read_row = kGradient ? i + 1 : i;
    const uint8_t *row = first + static_cast<size_t>(read_row) * pair_stride;
    if (read_row + kPrefetchRows <= last_row) {
      prefetch_span(row + kPrefetchRows * pair_stride, 5 * count);
    }
    if (kGradient) {
      gather_samples(row, count, next_line);
      add_row<kStatistics, kGradient>(t, line, next_line, n);
      std::swap(line, next_line);
    } else {
      gather_samples(row, count, line);
      add_row<kStatistics, kGradient>(t, line, next_line, n);
    }
  }
}

template <bool kStatistics, bool kGradient>
void add_block(BlockSums &t, const Raw10BlockArgs &a,
               const Raw10SampleRect &rect) {
  const size_t pair_stride = 2 * static_cast<size_t>(a.stride);
  const uint8_t *first = a.data + static_cast<size_t>(rect.i0) * pair_stride;
  const int32_t rows = rect.i1 - rect.i0;
  for (int32_t g = rect.g0; g < rect.g1; g += kStripSamples) {
    const int32_t n = std::min(kStripSamples, rect.g1 - g);
    add_strip<kStatistics, kGradient>(t, first + 5 * static_cast<size_t>(g),
                                      pair_stride, rows, n);
  }
}

}  // namespace

int32_t raw10_block_features(const Raw10BlockOutputs &out,
                             const Raw10BlockArgs &a) {
  // The frame driver always passes dist = 1, for which the line buffers
  // hold the neighbours; other distances take the portable path.
  if (a.dist != 1) return portable::raw10_block_features(out, a);
  const Raw10SampleRect rect = raw10_sample_rect(a);
  if (rect.empty()) {
    *out.sum = 0;
    *out.deviation = 0;
    return -1;
  }
  *out.bright = 0.0;
  *out.dark = 0.0;
  const Raw10Computation computation =
      raw10_computation(a.stats_flag, a.gradient_flag);
  BlockSums t;
  switch (computation) {
    case Raw10Computation::kNone:
      return -1;
    case Raw10Computation::kFull:
      add_block<true, true>(t, a, rect);
      break;
    case Raw10Computation::kGradient:
      add_block<false, true>(t, a, rect);
      break;
    case Raw10Computation::kStatistics:
      add_block<true, false>(t, a, rect);
      break;
  }
  const bool gradient = computation != Raw10Computation::kStatistics;
  const bool statistics = computation != Raw10Computation::kGradient;
  store_raw10_block_results(out, statistics, total(t.sum), total(t.sumsq),
                            static_cast<double>(total(t.bright)),
                            static_cast<double>(total(t.dark)), raw10_sample_count(rect));
  const uint32_t energy = static_cast<uint32_t>(total(vpaddlq_u32(t.energy)));
  return gradient ? static_cast<int32_t>(energy) : 0;
}

}  // namespace qlis::neon

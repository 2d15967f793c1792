// NEON twin of the low-light block extractor. Each visited row is gathered
// once, 16 samples per table lookup, and worked on as contiguous bytes: the
// statistics and the differences in vector lanes, the difference counts by
// a scalar scatter into four sub-histograms. Integer totals do not depend
// on the order of visits, and the fractions are integer-valued doubles
// below 2^53, so the results are bit-exact with the portable extractor.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "feature/low_light_block.h"
#include "platform/neon.h"
#include "platform/neon_gather.h"

namespace qlis::neon {
namespace {

constexpr int32_t kChunk = 16;  // samples per gather

// A row is worked on in spans of at most kSpanGroups samples, so that the
// gathered lines fit on the stack. A span row is 64 full chunks and at most
// one overlapping tail chunk.
constexpr int32_t kSpanGroups = 1024;

// The frame drivers always pass dist = 1; distances beyond this (and below
// 1, which callers must not pass) take the portable path.
constexpr int32_t kMaxFastDist = 64;

// Row pairs ahead of the current one whose bytes are prefetched (two
// visited rows, eight frame rows).
constexpr int32_t kPrefetchRows = 4;
constexpr int32_t kCacheLine = 64;

// Consecutive increments go to different sub-histograms, so that runs of
// equal differences (flat areas) do not wait on their own stores.
constexpr int32_t kSubHistograms = 4;
constexpr int32_t kBins = 256;

// Lanes j >= first of vld1q_u8(kLaneRamp + 16 - first) are all ones.
alignas(16) constexpr uint8_t kLaneRamp[2 * kChunk] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0,    0,    0,    0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

inline uint8x16_t lanes_from(int32_t first) {
  return vld1q_u8(kLaneRamp + kChunk - first);
}
inline uint8x16_t lanes_below(int32_t count) {
  return vmvnq_u8(lanes_from(count));
}

inline uint64_t horizontal_sum(uint64x2_t v) {
  return vgetq_lane_u64(v, 0) + vgetq_lane_u64(v, 1);
}

// Samples enter the sums as t = s - 128 (s ^ 0x80 read as signed): squares
// of t fit 16-bit lanes (at most 16,384), masked-off lanes (t = 0) add to no
// sum and are neither bright nor dark, and one signed compare each finds
// the bright and the dark samples. Over the N samples added,
//   sum s = sum t + 128 N,  sum s^2 = sum t^2 + 256 sum t + 16384 N,
// integer identities, so the totals are exact.
constexpr int8_t kBrightAbove = kBrightFirst - 1 - 128;  // t > 67
constexpr int8_t kDarkBelow = kDarkLast + 1 - 128;       // t < -68

// Lane limits, per chunk of 16 samples:
// - sum16 lanes gain two values of t, |2 t| <= 256: 127 chunks fit 16 bits;
// - square32 lanes gain four squares, at most 65,536: 32,767 chunks fit;
// - bright8 / dark8 lanes gain at most 1: 255 chunks fit 8 bits.
// So the narrow lanes are flushed before more than 127 chunks are pending.
constexpr int32_t kMaxPendingChunks = 127;
static_assert(kMaxPendingChunks * 256 <= 32768);
static_assert(kSpanGroups / kChunk + 1 <= kMaxPendingChunks);

struct SampleTotals {
  int16x8_t sum16 = vdupq_n_s16(0);
  int32x4_t square32 = vdupq_n_s32(0);
  uint8x16_t bright8 = vdupq_n_u8(0);
  uint8x16_t dark8 = vdupq_n_u8(0);
  int32_t pending = 0;
  int64x2_t sum = vdupq_n_s64(0);
  uint64x2_t square = vdupq_n_u64(0);
  uint64x2_t bright = vdupq_n_u64(0);
  uint64x2_t dark = vdupq_n_u64(0);

  // Makes room for `chunks` more chunks (at most kMaxPendingChunks).
  void reserve(int32_t chunks) {
    if (pending + chunks > kMaxPendingChunks) flush();
    pending += chunks;
  }

  void add(uint8x16_t s) {
    accumulate(vreinterpretq_s8_u8(veorq_u8(s, vdupq_n_u8(0x80))));
  }

  // Only the lanes set in `keep` count.
  void add_masked(uint8x16_t s, uint8x16_t keep) {
    accumulate(
        vreinterpretq_s8_u8(vandq_u8(veorq_u8(s, vdupq_n_u8(0x80)), keep)));
  }

  void flush() {
    sum = vpadalq_s32(sum, vpaddlq_s16(sum16));
    square = vpadalq_u32(square, vreinterpretq_u32_s32(square32));
    bright = vpadalq_u32(bright, vpaddlq_u16(vpaddlq_u8(bright8)));
    dark = vpadalq_u32(dark, vpaddlq_u16(vpaddlq_u8(dark8)));
    sum16 = vdupq_n_s16(0);
    square32 = vdupq_n_s32(0);
    bright8 = vdupq_n_u8(0);
    dark8 = vdupq_n_u8(0);
    pending = 0;
  }

  // Flushes, and yields the sum and the sum of squares of the `samples`
  // samples added.
  void finish(int64_t samples, uint64_t *sum_s, uint64_t *sum_sq) {
    flush();
    const uint64_t sum_t = static_cast<uint64_t>(vgetq_lane_s64(sum, 0)) +
                           static_cast<uint64_t>(vgetq_lane_s64(sum, 1));
    const uint64_t n = static_cast<uint64_t>(samples);
    *sum_s = sum_t + 128 * n;
    *sum_sq = horizontal_sum(square) + 256 * sum_t + 16384 * n;
  }

 private:
  void accumulate(int8x16_t t) {
    sum16 = vpadalq_s8(sum16, t);
    // Even and odd lanes sign-extended in place: whole-register shifts
    // instead of widening the two halves.
    const int16x8_t pairs = vreinterpretq_s16_s8(t);
    const int16x8_t even = vshrq_n_s16(vshlq_n_s16(pairs, 8), 8);
    const int16x8_t odd = vshrq_n_s16(pairs, 8);
    square32 = vpadalq_s16(square32, vmulq_s16(even, even));
    square32 = vpadalq_s16(square32, vmulq_s16(odd, odd));
    // Comparison masks are all ones (-1): subtracting counts one.
    bright8 = vsubq_u8(bright8, vcgtq_s8(t, vdupq_n_s8(kBrightAbove)));
    dark8 = vsubq_u8(dark8, vcltq_s8(t, vdupq_n_s8(kDarkBelow)));
  }
};

// Samples of groups 0 .. count - 1 from the row at p into out; reads
// p[0 .. 5 count - 1] only. A ragged end is gathered as one chunk that
// overlaps the previous one and rewrites the same bytes.
void gather_line(const uint8_t *p, int32_t count, uint8_t *out) {
  if (count < kChunk) {
    gather_group_byte4_row(p, count, out);
    return;
  }
  int32_t k = 0;
  for (; k + kChunk <= count; k += kChunk) {
    vst1q_u8(out + k, gather_group_byte4_x16(p + 5 * k));
  }
  if (k < count) {
    vst1q_u8(out + count - kChunk,
             gather_group_byte4_x16(p + 5 * (count - kChunk)));
  }
}

// Chunks a span row of `count` samples is worked in.
inline int32_t chunks_of(int32_t count) {
  return (count + kChunk - 1) / kChunk;
}

// Asks for the bytes of `count` groups from p on ahead of their use: the
// visited rows of a block are four frame rows apart, too far for the
// hardware's streams to follow from one short row segment to the next.
inline void prefetch_groups(const uint8_t *p, int32_t count) {
  const int32_t bytes = 5 * count;
  for (int32_t b = 0; b < bytes; b += kCacheLine) __builtin_prefetch(p + b);
}

// Statistics of `count` (<= kSpanGroups) samples of the row at p, gathered
// straight into registers.
void add_row_statistics(SampleTotals &t, const uint8_t *p, int32_t count) {
  t.reserve(chunks_of(count));
  if (count < kChunk) {
    uint8_t line[kChunk] = {};
    gather_group_byte4_row(p, count, line);
    t.add_masked(vld1q_u8(line), lanes_below(count));
  } else {
    int32_t k = 0;
    for (; k + kChunk <= count; k += kChunk) {
      t.add(gather_group_byte4_x16(p + 5 * k));
    }
    if (k < count) {
      const int32_t fresh = count - k;
      t.add_masked(gather_group_byte4_x16(p + 5 * (count - kChunk)),
                   lanes_from(kChunk - fresh));
    }
  }
}

using SubHistograms = uint32_t[kSubHistograms][kBins];

// The three differences of each sample of a span row, one byte each: to
// the right neighbour, to the lower one, and between the two.
struct RowDifferences {
  alignas(16) uint8_t right[kSpanGroups];
  alignas(16) uint8_t lower[kSpanGroups];
  alignas(16) uint8_t across[kSpanGroups];
};

// Differences of the chunk of samples `at` .. at + 15.
inline void store_differences(RowDifferences &d, int32_t at, uint8x16_t s,
                              uint8x16_t h, uint8x16_t v) {
  vst1q_u8(d.right + at, vabdq_u8(h, s));
  vst1q_u8(d.lower + at, vabdq_u8(v, s));
  vst1q_u8(d.across + at, vabdq_u8(h, v));
}

// The counts are taken in a separate pass over the stored bytes. Counting
// straight from the vectors lets compilers unroll the 16 lanes into one
// lane move per increment (umov on AArch64, pextrb through SIMDe), which
// made the whole extractor ten times slower on the x86 host. A loop of
// byte loads whose trip count is known only at run time stays a plain
// scalar scatter.
void count_differences(SubHistograms &sub, const RowDifferences &d,
                       int32_t count) {
  for (int32_t j = 0; j < count; ++j) {
    ++sub[j & 3][d.right[j]];
    ++sub[(j + 1) & 3][d.lower[j]];
    ++sub[(j + 2) & 3][d.across[j]];
  }
}

// One visited row of a span: `line` holds its samples and those dist
// further right, `below` the samples 2 dist row pairs down.
void add_row_differences(SubHistograms &sub, RowDifferences &d, SampleTotals *t,
                         const uint8_t *line, int32_t dist,
                         const uint8_t *below, int32_t count) {
  if (t != nullptr) t->reserve(chunks_of(count));
  int32_t k = 0;
  for (; k + kChunk <= count; k += kChunk) {
    const uint8x16_t s = vld1q_u8(line + k);
    store_differences(d, k, s, vld1q_u8(line + k + dist), vld1q_u8(below + k));
    if (t != nullptr) t->add(s);
  }
  if (k < count) {
    // Short spans read past `count` into zeroed line bytes, whose
    // differences land past `count` and are not counted; ragged ends
    // overlap the last full chunk and rewrite its bytes with the same
    // values.
    const int32_t at = count < kChunk ? 0 : count - kChunk;
    const uint8x16_t s = vld1q_u8(line + at);
    store_differences(d, at, s, vld1q_u8(line + at + dist),
                      vld1q_u8(below + at));
    if (t != nullptr) {
      t->add_masked(s, vandq_u8(lanes_from(k - at), lanes_below(count - at)));
    }
  }
  count_differences(sub, d, count);
}

// Adds the sub-histograms into the caller's counts, wrapping at 32 bits
// like the counts themselves; any grouping of the additions agrees.
void fold_into(DiffHistogram *hist, const SubHistograms &sub) {
  for (int32_t b = 0; b < kBins; b += 4) {
    uint32x4_t acc = vreinterpretq_u32_s32(vld1q_s32(hist->count + b));
    for (int32_t k = 0; k < kSubHistograms; ++k) {
      acc = vaddq_u32(acc, vld1q_u32(sub[k] + b));
    }
    vst1q_s32(hist->count + b, vreinterpretq_s32_u32(acc));
  }
}

}  // namespace

int64_t low_light_block_features(const LowLightBlockOutputs &out,
                                 const LowLightBlockArgs &a) {
  if (a.dist < 1 || a.dist > kMaxFastDist) {
    return portable::low_light_block_features(out, a);
  }
  LowLightSampleRect r;
  if (!begin_low_light_block(out, a, &r)) return kLowLightEmptyBlock;

  const bool statistics = a.stats_flag == 1;
  const bool differences = a.gradient_flag == 1;
  const size_t stride = static_cast<size_t>(a.stride);
  const auto row_at = [&](int64_t i, int64_t g) {
    return a.data + 2 * static_cast<size_t>(i) * stride +
           5 * static_cast<size_t>(g);
  };
  const int32_t dist = a.dist;

  SampleTotals totals;
  if (differences) {
    alignas(16) SubHistograms sub;
    std::memset(sub, 0, sizeof(sub));
    RowDifferences diffs;
    alignas(16) uint8_t line_a[kSpanGroups + kMaxFastDist];
    alignas(16) uint8_t line_b[kSpanGroups + kMaxFastDist];
    alignas(16) uint8_t below_far[kSpanGroups];
    // Spans shorter than a chunk load whole chunks from the line starts.
    std::memset(line_a, 0, kChunk + kMaxFastDist);
    std::memset(line_b, 0, kChunk + kMaxFastDist);
    std::memset(below_far, 0, kChunk);
    for (int32_t ga = r.g0; ga < r.g1; ga += kSpanGroups) {
      const int32_t count = std::min(kSpanGroups, r.g1 - ga);
      uint8_t *line = line_a;
      uint8_t *next = line_b;
      gather_line(row_at(r.i0, ga), count + dist, line);
      for (int32_t i = r.i0; i < r.i1; i += 2) {
        if (i + kPrefetchRows < r.i1) {
          prefetch_groups(row_at(i + kPrefetchRows, ga), count + dist);
        }
        // With dist 1 the lower neighbours are the next visited row, so
        // that row is gathered once, right neighbours included.
        const uint8_t *below = next;
        if (dist == 1) {
          gather_line(row_at(i + 2, ga), count + 1, next);
        } else {
          gather_line(row_at(i + 2 * int64_t{dist}, ga), count, below_far);
          below = below_far;
        }
        add_row_differences(sub, diffs, statistics ? &totals : nullptr, line,
                            dist, below, count);
        if (i + 2 >= r.i1) break;
        if (dist == 1) {
          std::swap(line, next);
        } else {
          gather_line(row_at(i + 2, ga), count + dist, line);
        }
      }
    }
    fold_into(out.diff_hist, sub);
  } else if (statistics) {
    for (int32_t ga = r.g0; ga < r.g1; ga += kSpanGroups) {
      const int32_t count = std::min(kSpanGroups, r.g1 - ga);
      for (int32_t i = r.i0; i < r.i1; i += 2) {
        if (i + kPrefetchRows < r.i1) {
          prefetch_groups(row_at(i + kPrefetchRows, ga), count);
        }
        add_row_statistics(totals, row_at(i, ga), count);
      }
    }
  }

  if (statistics) {
    uint64_t sum = 0;
    uint64_t sum_sq = 0;
    totals.finish(static_cast<int64_t>(r.groups()) * r.visited_rows(), &sum,
                  &sum_sq);
    store_low_light_statistics(
        out, r, sum, sum_sq, static_cast<double>(horizontal_sum(totals.bright)),
        static_cast<double>(horizontal_sum(totals.dark)));
  }
  return 0;
}

}  // namespace qlis::neon

// Vector twin of the re-blur comparison. The planes are private to the
// call, so instead of a summed-area table the box sums come from column
// sums that slide down one row at a time and a horizontal sum over pairs of
// columns, all in 16-bit lanes. They give the same integers as the table,
// whose wrapped 32-bit differences equal the true box sums (all below
// 2^32), and the blurred plane is consumed as it is made.
#include <cstddef>
#include <cstring>
#include <limits>

#include "compare/reblur.h"
#include "compare/scratch_arena.h"
#include "platform/neon.h"
#include "platform/neon_gather.h"

namespace qlis::neon {
namespace {

constexpr double kNoScore = std::numeric_limits<double>::quiet_NaN();

// Box sums of up to 15 x 15 samples stay below 15 * 15 * 255 = 57375 and
// fit 16-bit lanes. The live path always uses radius 5.
constexpr int32_t kMaxVectorRadius = 7;
constexpr int32_t kLanes = 16;  // outputs per step

constexpr uint32_t kReciprocalOne = 262144;

constexpr size_t kRowStep = 4;
constexpr size_t kFirstRow = 3;

// Each step adds at most 2 * 255 to a 16-bit lane of the pairwise
// accumulators, so they are flushed to 32 bits every 128 steps.
constexpr int32_t kStepsPerFlush = 128;

inline uint32_t sum_lanes(uint32x4_t v) {
#if QLIS_NEON_A64
  return vaddvq_u32(v);
#else
  const uint32x2_t pair = vadd_u32(vget_low_u32(v), vget_high_u32(v));
  return vget_lane_u32(vpadd_u32(pair, pair), 0);
#endif
}

// Gathers sample row `row` into the small plane and asks for the next
// sampled row (four frame rows down) to be fetched meanwhile: the rows are
// too far apart for the hardware to follow from one to the next, so
// without the hint every row would start with a wait on memory.
void gather_sample_row(const uint8_t *image, uint32_t stride, int32_t row,
                       int32_t h4, int32_t w4, uint8_t *small) {
  constexpr size_t kLine = 64;
  const uint8_t *packed =
      image + (kRowStep * static_cast<size_t>(row) + kFirstRow) * stride;
  if (row + 1 < h4) {
    const uint8_t *next = packed + kRowStep * static_cast<size_t>(stride);
    const size_t bytes = 5 * static_cast<size_t>(w4);
    for (size_t offset = 0; offset < bytes; offset += kLine) {
      __builtin_prefetch(next + offset);
    }
  }
  gather_group_byte4_row(packed, w4, small + static_cast<size_t>(row) * w4);
}

// Widening and narrowing of byte lanes. A64 interleaves with zero and
// de-interleaves in one step each; A32 has only the 64-bit forms.
inline uint16x8_t widen_low(uint8x16_t v) {
#if QLIS_NEON_A64
  return vreinterpretq_u16_u8(vzip1q_u8(v, vdupq_n_u8(0)));
#else
  return vmovl_u8(vget_low_u8(v));
#endif
}

inline uint16x8_t widen_high(uint8x16_t v) {
#if QLIS_NEON_A64
  return vreinterpretq_u16_u8(vzip2q_u8(v, vdupq_n_u8(0)));
#else
  return vmovl_u8(vget_high_u8(v));
#endif
}

// Low bytes of 16 lanes whose values fit 8 bits.
inline uint8x16_t narrow(uint16x8_t low, uint16x8_t high) {
#if QLIS_NEON_A64
  return vuzp1q_u8(vreinterpretq_u8_u16(low), vreinterpretq_u8_u16(high));
#else
  return vcombine_u8(vmovn_u16(low), vmovn_u16(high));
#endif
}

void add_columns(uint16_t *column, const uint8_t *add, int32_t w4) {
  int32_t x = 0;
  for (; x + kLanes <= w4; x += kLanes) {
    const uint8x16_t a = vld1q_u8(add + x);
    vst1q_u16(column + x, vaddq_u16(vld1q_u16(column + x), widen_low(a)));
    vst1q_u16(column + x + 8,
              vaddq_u16(vld1q_u16(column + x + 8), widen_high(a)));
  }
  for (; x < w4; ++x) column[x] = static_cast<uint16_t>(column[x] + add[x]);
}

// Moves the column sums down one row (column += enter - leave) and stores
// pair[x] = column[x - 1] + column[x] for the horizontal pass (pair[0] is
// never read). 16-bit wrapping of the differences is harmless: a column
// sum is at most 15 * 255 and a pair sum twice that.
void slide_columns(uint16_t *column, uint16_t *pair, const uint8_t *enter,
                   const uint8_t *leave, int32_t w4) {
  uint16x8_t previous = vdupq_n_u16(0);
  int32_t x = 0;
  for (; x + kLanes <= w4; x += kLanes) {
    const uint8x16_t in = vld1q_u8(enter + x);
    const uint8x16_t out = vld1q_u8(leave + x);
    const uint16x8_t lo = vsubq_u16(
        vaddq_u16(vld1q_u16(column + x), widen_low(in)), widen_low(out));
    const uint16x8_t hi = vsubq_u16(
        vaddq_u16(vld1q_u16(column + x + 8), widen_high(in)), widen_high(out));
    vst1q_u16(column + x, lo);
    vst1q_u16(column + x + 8, hi);
    vst1q_u16(pair + x, vaddq_u16(lo, vextq_u16(previous, lo, 7)));
    vst1q_u16(pair + x + 8, vaddq_u16(hi, vextq_u16(lo, hi, 7)));
    previous = hi;
  }
  for (; x < w4; ++x) {
    column[x] = static_cast<uint16_t>(column[x] + enter[x] - leave[x]);
    pair[x] = static_cast<uint16_t>(column[x] + (x > 0 ? column[x - 1] : 0));
  }
}

// Box sums of the 8 columns centred on x .. x + 7: R pairs covering
// x - R .. x + R - 1, then column x + R.
template <int32_t R>
inline uint16x8_t box_sum_8(const uint16_t *column, const uint16_t *pair,
                            int32_t x) {
  uint16x8_t sum = vld1q_u16(column + x + R);
  for (int32_t j = 0; j < R; ++j) {
    sum = vaddq_u16(sum, vld1q_u16(pair + x - R + 1 + 2 * j));
  }
  return sum;
}

// Up to radius 5 a box sum is below 121 * 255 < 2^15 and fits a signed
// lane, so the product can use the rounding doubling multiply-high.
constexpr int32_t kMaxSignedRadius = 5;

// (recip * box) >> 18. Exact whenever the product stays below 255 * 2^18,
// which recip <= 2^18 / k^2 guarantees.
template <int32_t R>
inline uint16x8_t box_average_8(uint16x8_t box, uint16_t recip) {
  if constexpr (R <= kMaxSignedRadius) {
    // vqrdmulh gives (P + 2^14) >> 15 for P = box * recip; subtracting bit
    // 14 of P, read from the low 16-bit product, turns the rounding into
    // truncation: P >> 15. Three more right shifts give P >> 18.
    const int16x8_t factor = vdupq_n_s16(static_cast<int16_t>(recip));
    const uint16x8_t rounded = vreinterpretq_u16_s16(
        vqrdmulhq_s16(vreinterpretq_s16_u16(box), factor));
    const uint16x8_t low = vmulq_n_u16(box, recip);
    const uint16x8_t bit14 = vshrq_n_u16(vshlq_n_u16(low, 1), 15);
    return vshrq_n_u16(vsubq_u16(rounded, bit14), 3);
  } else {
    const uint16x4_t factor = vdup_n_u16(recip);
    const uint32x4_t lo = vmull_u16(vget_low_u16(box), factor);
    const uint32x4_t hi = vmull_u16(vget_high_u16(box), factor);
    return vshrq_n_u16(vcombine_u16(vshrn_n_u32(lo, 16), vshrn_n_u32(hi, 16)),
                       2);
  }
}

struct Accumulators {
  uint16x8_t diff16 = vdupq_n_u16(0);
  uint16x8_t luma16 = vdupq_n_u16(0);
  // 32-bit lanes wrap like the scalar sums; a sum of wrapped lanes equals
  // the wrapped total.
  uint32x4_t diff32 = vdupq_n_u32(0);
  uint32x4_t luma32 = vdupq_n_u32(0);
  int32_t steps = 0;

  void add(uint8x16_t diff, uint8x16_t luma) {
    diff16 = vpadalq_u8(diff16, diff);
    luma16 = vpadalq_u8(luma16, luma);
    if (++steps == kStepsPerFlush) flush();
  }
  void flush() {
    diff32 = vpadalq_u16(diff32, diff16);
    luma32 = vpadalq_u16(luma32, luma16);
    diff16 = vdupq_n_u16(0);
    luma16 = vdupq_n_u16(0);
    steps = 0;
  }
};

// Blurs 16 outputs at x of one interior row and accumulates the lanes that
// `keep` selects.
template <int32_t R>
inline void blur_step(const uint16_t *column, const uint16_t *pair,
                      const uint8_t *samples, int32_t x, uint16_t recip,
                      uint8x16_t keep, Accumulators &acc) {
  const uint8x16_t blurred =
      narrow(box_average_8<R>(box_sum_8<R>(column, pair, x), recip),
             box_average_8<R>(box_sum_8<R>(column, pair, x + 8), recip));
  const uint8x16_t s = vandq_u8(vld1q_u8(samples + x), keep);
  acc.add(vandq_u8(vabdq_u8(s, blurred), keep), s);
}

// Requires 1 <= R <= 7, h4 > 2R and an interior of at least 16 columns.
// `column` and `pair` hold w4 lanes each; `zeros` holds w4 zero bytes.
template <int32_t R>
double reblur_radius(const uint8_t *image, uint32_t stride, int32_t h4,
                     int32_t w4, uint8_t *small, uint16_t *column,
                     uint16_t *pair, const uint8_t *zeros) {
  constexpr uint32_t kSide = 2 * R + 1;
  constexpr uint16_t kRecip =
      static_cast<uint16_t>(kReciprocalOne / (kSide * kSide));
  static const uint8_t kLaneIndex[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                         8, 9, 10, 11, 12, 13, 14, 15};
  const uint8x16_t lane_index = vld1q_u8(kLaneIndex);
  const uint8x16_t all = vdupq_n_u8(0xFF);
  const size_t plane_stride = static_cast<size_t>(w4);
  auto plane_row = [&](int32_t y) {
    return small + static_cast<size_t>(y) * plane_stride;
  };
  const int32_t x_end = w4 - R;

  for (int32_t x = 0; x < w4; ++x) column[x] = 0;
  for (int32_t y = 0; y < 2 * R; ++y) {
    gather_sample_row(image, stride, y, h4, w4, small);
    add_columns(column, plane_row(y), w4);
  }

  Accumulators acc;
  for (int32_t y = R; y < h4 - R; ++y) {
    // From here the column sums cover rows y - R .. y + R.
    gather_sample_row(image, stride, y + R, h4, w4, small);
    slide_columns(column, pair, plane_row(y + R),
                  y == R ? zeros : plane_row(y - R - 1), w4);

    const uint8_t *samples = plane_row(y);
    int32_t x = R;
    for (; x + kLanes <= x_end; x += kLanes) {
      blur_step<R>(column, pair, samples, x, kRecip, all, acc);
    }
    if (x < x_end) {
      // The last step overlaps the previous one; lanes already counted are
      // masked out.
      const int32_t last = x_end - kLanes;
      const uint8x16_t keep =
          vcgeq_u8(lane_index, vdupq_n_u8(static_cast<uint8_t>(x - last)));
      blur_step<R>(column, pair, samples, last, kRecip, keep, acc);
    }
  }
  acc.flush();

  const uint32_t diff = sum_lanes(acc.diff32);
  const uint32_t luma = sum_lanes(acc.luma32);
  return static_cast<double>(diff) / static_cast<double>(luma);
}

}  // namespace

double reblur_with_luminance_compensation(const uint8_t *image, int32_t height,
                                          int32_t width, uint32_t stride,
                                          int32_t radius, ScratchArena arena) {
  const int32_t h4 = height >> 2;
  const int32_t w4 = width >> 2;
  // Radius 0 (a 1 x 1 box, recip 2^18), radii above 7, and frames too small
  // for one vector step of interior never occur on the live path (radius
  // 5, preview and capture frames): the portable version serves them.
  if (radius < 1 || radius > kMaxVectorRadius || h4 <= 2 * radius ||
      w4 - 2 * radius < kLanes) {
    return portable::reblur_with_luminance_compensation(image, height, width,
                                                        stride, radius, arena);
  }

  // The same three requests as the portable version, in the same order, so
  // that an exhausted arena fails and logs alike. The column and pair sums
  // live in the table's piece (4 w4 of its 4 (w4 + 1) (h4 + 1) bytes); the
  // blurred plane is never stored, and its piece lends a row of zeros.
  const uint32_t plane_bytes =
      static_cast<uint32_t>(w4) * static_cast<uint32_t>(h4);
  auto *small = static_cast<uint8_t *>(take_arena_piece(arena, plane_bytes));
  if (small == nullptr) return kNoScore;
  auto *column = static_cast<uint16_t *>(take_arena_piece(
      arena,
      (static_cast<uint32_t>(w4) + 1) * (static_cast<uint32_t>(h4) + 1) * 4));
  if (column == nullptr) return kNoScore;
  auto *zeros = static_cast<uint8_t *>(take_arena_piece(arena, plane_bytes));
  if (zeros == nullptr) return kNoScore;
  std::memset(zeros, 0, static_cast<size_t>(w4));
  uint16_t *pair = column + w4;

  switch (radius) {
    case 1:
      return reblur_radius<1>(image, stride, h4, w4, small, column, pair,
                              zeros);
    case 2:
      return reblur_radius<2>(image, stride, h4, w4, small, column, pair,
                              zeros);
    case 3:
      return reblur_radius<3>(image, stride, h4, w4, small, column, pair,
                              zeros);
    case 4:
      return reblur_radius<4>(image, stride, h4, w4, small, column, pair,
                              zeros);
    case 5:
      return reblur_radius<5>(image, stride, h4, w4, small, column, pair,
                              zeros);
    case 6:
      return reblur_radius<6>(image, stride, h4, w4, small, column, pair,
                              zeros);
    default:
      return reblur_radius<7>(image, stride, h4, w4, small, column, pair,
                              zeros);
  }
}

}  // namespace qlis::neon

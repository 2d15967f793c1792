// Vector twin of the re-blur comparison. The planes are private to the
// call, so instead of a summed-area table the box sums come from a running
// column sum and a horizontal tap sum, both in 16-bit lanes; they give the
// same integers as the table, whose wrapped 32-bit differences equal the
// true box sums (all below 2^32).
#include <cstddef>
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
// The 32-bit product (recip * box) >> 18 is taken as a 16-bit narrowing
// shift by 16 followed by a narrowing shift by 2.
constexpr int kProductHighShift = 16;
constexpr int kRemainingShift = 2;

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

void gather_sample_row(const uint8_t *image, uint32_t stride, int32_t row,
                       int32_t w4, uint8_t *small) {
  const uint8_t *packed =
      image + (kRowStep * static_cast<size_t>(row) + kFirstRow) * stride;
  gather_group_byte4_row(packed, w4, small + static_cast<size_t>(row) * w4);
}

// column += add - sub over w4 lanes. 16-bit wrapping is harmless: the
// column sum itself is at most (2R + 1) * 255.
void update_columns(uint16_t *column, const uint8_t *add, const uint8_t *sub,
                    int32_t w4) {
  int32_t x = 0;
  for (; x + kLanes <= w4; x += kLanes) {
    const uint8x16_t a = vld1q_u8(add + x);
    const uint8x16_t s = vld1q_u8(sub + x);
    uint16x8_t lo = vld1q_u16(column + x);
    uint16x8_t hi = vld1q_u16(column + x + 8);
    lo = vaddq_u16(lo, vsubl_u8(vget_low_u8(a), vget_low_u8(s)));
    hi = vaddq_u16(hi, vsubl_u8(vget_high_u8(a), vget_high_u8(s)));
    vst1q_u16(column + x, lo);
    vst1q_u16(column + x + 8, hi);
  }
  for (; x < w4; ++x) {
    column[x] = static_cast<uint16_t>(column[x] + add[x] - sub[x]);
  }
}

void add_columns(uint16_t *column, const uint8_t *add, int32_t w4) {
  int32_t x = 0;
  for (; x + kLanes <= w4; x += kLanes) {
    const uint8x16_t a = vld1q_u8(add + x);
    vst1q_u16(column + x, vaddw_u8(vld1q_u16(column + x), vget_low_u8(a)));
    vst1q_u16(column + x + 8,
              vaddw_u8(vld1q_u16(column + x + 8), vget_high_u8(a)));
  }
  for (; x < w4; ++x) column[x] = static_cast<uint16_t>(column[x] + add[x]);
}

// Box sums of the 8 columns centred on x .. x + 7.
template <int32_t R>
inline uint16x8_t box_sum_8(const uint16_t *column, int32_t x) {
  uint16x8_t sum = vld1q_u16(column + x - R);
  for (int32_t t = 1; t <= 2 * R; ++t) {
    sum = vaddq_u16(sum, vld1q_u16(column + x - R + t));
  }
  return sum;
}

// (recip * box) >> 18, low 8 bits: recip < 2^16 for R >= 1, and the
// product stays below 255 * 2^18.
inline uint8x8_t box_average_8(uint16x8_t box, uint16x4_t recip) {
  const uint32x4_t lo = vmull_u16(vget_low_u16(box), recip);
  const uint32x4_t hi = vmull_u16(vget_high_u16(box), recip);
  const uint16x8_t high_half = vcombine_u16(vshrn_n_u32(lo, kProductHighShift),
                                            vshrn_n_u32(hi, kProductHighShift));
  return vshrn_n_u16(high_half, kRemainingShift);
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
inline void blur_step(const uint16_t *column, const uint8_t *samples,
                      int32_t x, uint16x4_t recip, uint8x16_t keep,
                      Accumulators &acc) {
  const uint8x16_t blurred =
      vcombine_u8(box_average_8(box_sum_8<R>(column, x), recip),
                  box_average_8(box_sum_8<R>(column, x + 8), recip));
  const uint8x16_t s = vandq_u8(vld1q_u8(samples + x), keep);
  acc.add(vandq_u8(vabdq_u8(s, blurred), keep), s);
}

// Requires 1 <= R <= 7, h4 > 2R and an interior of at least 16 columns.
template <int32_t R>
double reblur_radius(const uint8_t *image, uint32_t stride, int32_t h4,
                     int32_t w4, uint8_t *small, uint16_t *column) {
  constexpr uint32_t kSide = 2 * R + 1;
  const uint16x4_t recip =
      vdup_n_u16(static_cast<uint16_t>(kReciprocalOne / (kSide * kSide)));
  static const uint8_t kLaneIndex[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                         8, 9, 10, 11, 12, 13, 14, 15};
  const uint8x16_t lane_index = vld1q_u8(kLaneIndex);
  const uint8x16_t all = vdupq_n_u8(0xFF);
  const size_t plane_stride = static_cast<size_t>(w4);
  const int32_t x_end = w4 - R;

  for (int32_t x = 0; x < w4; ++x) column[x] = 0;
  for (int32_t y = 0; y < 2 * R; ++y) {
    gather_sample_row(image, stride, y, w4, small);
    add_columns(column, small + y * plane_stride, w4);
  }

  Accumulators acc;
  for (int32_t y = R; y < h4 - R; ++y) {
    // The column sums cover rows y - R .. y + R from here on.
    gather_sample_row(image, stride, y + R, w4, small);
    const uint8_t *entering = small + static_cast<size_t>(y + R) * plane_stride;
    if (y == R) {
      add_columns(column, entering, w4);
    } else {
      update_columns(column, entering,
                     small + static_cast<size_t>(y - R - 1) * plane_stride, w4);
    }

    const uint8_t *samples = small + static_cast<size_t>(y) * plane_stride;
    int32_t x = R;
    for (; x + kLanes <= x_end; x += kLanes) {
      blur_step<R>(column, samples, x, recip, all, acc);
    }
    if (x < x_end) {
      // The last step overlaps the previous one; lanes already counted are
      // masked out.
      const int32_t last = x_end - kLanes;
      const uint8x16_t keep = vcgeq_u8(
          lane_index, vdupq_n_u8(static_cast<uint8_t>(x - last)));
      blur_step<R>(column, samples, last, recip, keep, acc);
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
  // that an exhausted arena fails and logs alike. The column sums live in
  // the table's piece (2 w4 of its 4 (w4 + 1) (h4 + 1) bytes); the blurred
  // plane is never stored.
  const uint32_t plane_bytes =
      static_cast<uint32_t>(w4) * static_cast<uint32_t>(h4);
  auto *small = static_cast<uint8_t *>(take_arena_piece(arena, plane_bytes));
  if (small == nullptr) return kNoScore;
  auto *column = static_cast<uint16_t *>(take_arena_piece(
      arena, (static_cast<uint32_t>(w4) + 1) * (static_cast<uint32_t>(h4) + 1) *
                 4));
  if (column == nullptr) return kNoScore;
  if (take_arena_piece(arena, plane_bytes) == nullptr) return kNoScore;

  switch (radius) {
    case 1: return reblur_radius<1>(image, stride, h4, w4, small, column);
    case 2: return reblur_radius<2>(image, stride, h4, w4, small, column);
    case 3: return reblur_radius<3>(image, stride, h4, w4, small, column);
    case 4: return reblur_radius<4>(image, stride, h4, w4, small, column);
    case 5: return reblur_radius<5>(image, stride, h4, w4, small, column);
    case 6: return reblur_radius<6>(image, stride, h4, w4, small, column);
    default: return reblur_radius<7>(image, stride, h4, w4, small, column);
  }
}

}  // namespace qlis::neon

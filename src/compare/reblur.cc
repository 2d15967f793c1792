#include "compare/reblur.h"

#include <cstddef>
#include <limits>

#include "compare/scratch_arena.h"
#include "platform/simd_dispatch.h"

namespace qlis::portable {
namespace {

constexpr double kNoScore = std::numeric_limits<double>::quiet_NaN();

// The box average is a multiplication by 2^18 / (k * k), rounded down,
// followed by a shift: recip * k * k stays just below 2^18, so the average
// is rounded down and never exceeds 255.
constexpr uint32_t kReciprocalOne = 262144;
constexpr uint32_t kReciprocalShift = 18;

// Sample of group j of packed row `row`: byte 4 of the five-byte group.
constexpr size_t kGroupBytes = 5;
constexpr size_t kSampleOffset = 4;
// One sampled row per four frame rows, starting at row 3.
constexpr size_t kRowStep = 4;
constexpr size_t kFirstRow = 3;

}  // namespace

double reblur_with_luminance_compensation(const uint8_t *image, int32_t height,
                                          int32_t width, uint32_t stride,
                                          int32_t radius, ScratchArena arena) {
  const int32_t h4 = height >> 2;
  const int32_t w4 = width >> 2;
  // Piece sizes wrap in 32 bits like the counters of the arena itself.
  const uint32_t h4_words = static_cast<uint32_t>(h4);
  const uint32_t w4_words = static_cast<uint32_t>(w4);
  const size_t plane_stride = static_cast<size_t>(w4 > 0 ? w4 : 0);
  const size_t table_stride = plane_stride + 1;

  auto *small =
      static_cast<uint8_t *>(take_arena_piece(arena, w4_words * h4_words));
  if (small == nullptr) return kNoScore;
  for (int32_t i = 0; i < h4; ++i) {
    const uint8_t *row =
        image + (kRowStep * static_cast<size_t>(i) + kFirstRow) * stride;
    uint8_t *out = small + static_cast<size_t>(i) * plane_stride;
    for (int32_t j = 0; j < w4; ++j) {
      out[j] = row[kGroupBytes * static_cast<size_t>(j) + kSampleOffset];
    }
  }

  auto *integral = static_cast<uint32_t *>(
      take_arena_piece(arena, (w4_words + 1) * (h4_words + 1) * 4));
  if (integral == nullptr) return kNoScore;
  for (int32_t x = 0; x <= w4; ++x) integral[x] = 0;
  // A negative width leaves rows of no words; nothing of the table is read.
  for (int32_t y = 0; y < h4 && w4 >= 0; ++y) {
    const uint32_t *above = integral + static_cast<size_t>(y) * table_stride;
    uint32_t *row = integral + static_cast<size_t>(y + 1) * table_stride;
    const uint8_t *samples = small + static_cast<size_t>(y) * plane_stride;
    row[0] = 0;
    uint32_t run = 0;
    for (int32_t x = 0; x < w4; ++x) {
      run += samples[x];
      row[x + 1] = above[x + 1] + run;
    }
  }

  const uint32_t k = 2 * static_cast<uint32_t>(radius) + 1;
  const uint32_t recip = kReciprocalOne / (k * k);  // k is odd: k * k != 0

  auto *blurred =
      static_cast<uint8_t *>(take_arena_piece(arena, w4_words * h4_words));
  if (blurred == nullptr) return kNoScore;
  // 64 bits: radius may be anything up to INT32_MAX here.
  if (static_cast<int64_t>(radius) >= static_cast<int64_t>(h4) - radius) {
    return kNoScore;
  }

  // From here 2 radius < h4, so every bound below fits in 32 bits.
  const int32_t r = radius;
  for (int32_t y = r; y < h4 - r; ++y) {
    const uint32_t *top = integral + static_cast<size_t>(y - r) * table_stride;
    const uint32_t *bottom =
        integral + static_cast<size_t>(y + r + 1) * table_stride;
    uint8_t *out = blurred + static_cast<size_t>(y) * plane_stride;
    for (int32_t x = r; x < w4 - r; ++x) {
      // Intermediate terms wrap; the box sum itself is below 2^32.
      const uint32_t box =
          bottom[x + r + 1] + top[x - r] - top[x + r + 1] - bottom[x - r];
      out[x] = static_cast<uint8_t>((recip * box) >> kReciprocalShift);
    }
  }

  // Both sums wrap at 32 bits, as the device's counters do.
  uint32_t diff = 0;
  uint32_t luma = 0;
  for (int32_t y = r; y < h4 - r; ++y) {
    const uint8_t *samples = small + static_cast<size_t>(y) * plane_stride;
    const uint8_t *averages = blurred + static_cast<size_t>(y) * plane_stride;
    for (int32_t x = r; x < w4 - r; ++x) {
      const uint32_t s = samples[x];
      const uint32_t b = averages[x];
      diff += s > b ? s - b : b - s;
      luma += s;
    }
  }
  // An interior without columns or without light gives 0 / 0.
  return static_cast<double>(diff) / static_cast<double>(luma);
}

}  // namespace qlis::portable

extern "C" double compare_reblue_with_luminance_compensation(
    const uint8_t *image, int32_t height, int32_t width, uint32_t stride,
    uint32_t /*mode*/, int32_t radius, ScratchArena arena) {
  return qlis::kernels::reblur_with_luminance_compensation(
      image, height, width, stride, radius, arena);
}

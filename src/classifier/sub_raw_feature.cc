// Mean gradient and gradient histogram of one rectangle of a packed RAW10
// frame at a caller-chosen neighbour distance d.
//
// The rectangle is clamped like the block extractors' (half-rows and
// groups, far edges pulled in by d + 1), but the lower neighbour is read
// 4 d lines below, twice as far as the d half-rows that the clamp keeps
// clear; the caller keeps the rectangle far enough from the frame's end.
// Visited half-rows step by 2, so only every fourth line is read.
#include <cstddef>
#include <cstdlib>

#include "classifier/frame_feature.h"
#include "feature/block_args.h"
#include "ql_is/ql_is.h"

namespace {

constexpr int32_t kRowStep = 2;         // half-rows per visited row
constexpr int32_t kLinesPerHalfRow = 2;
constexpr int32_t kDownLinesPerDist = 4;

}  // namespace

extern "C" int32_t get_sub_raw_feature(double *mean, uint32_t *histogram,
                                       const uint8_t *image, int32_t top,
                                       int32_t bottom, int32_t left,
                                       int32_t right, int32_t distance,
                                       int32_t height, int32_t width,
                                       uint32_t stride) {
  // The clamp reads only the rectangle, the distance and the frame size.
  const qlis::BlockArgs args{image,    top,    bottom, left, right, distance,
                             height,   width,  0,      0,    0};
  const qlis::Raw10SampleRect rect = qlis::raw10_sample_rect(args);
  if (rect.empty()) return 0;

  const size_t down_offset = static_cast<size_t>(kDownLinesPerDist) *
                             static_cast<size_t>(distance) * stride;
  const size_t right_offset =
      static_cast<size_t>(qlis::kGroupBytes) * static_cast<size_t>(distance);
  // A signed 32-bit sum, kept unsigned so that it wraps without undefined
  // behaviour on rectangles of more than 8 million samples.
  uint32_t sum = 0;
  for (int32_t t = rect.i0; t < rect.i1; t += kRowStep) {
    const size_t line = static_cast<size_t>(kLinesPerHalfRow) *
                        static_cast<size_t>(t);
    const uint8_t *row = image + line * stride;
    for (int32_t k = rect.g0; k < rect.g1; ++k) {
      const uint8_t *sample =
          row + qlis::kGroupBytes * static_cast<size_t>(k) + qlis::kSampleByte;
      const int32_t c = sample[0];
      const int32_t right_sample = sample[right_offset];
      const int32_t down_sample = sample[down_offset];
      const int32_t g =
          (std::abs(right_sample - c) + std::abs(down_sample - c)) >> 1;
      ++histogram[g];
      sum += static_cast<uint32_t>(g);
    }
  }

  // Both products are signed 32-bit; the row count rounds half-rows up,
  // matching the rows visited.
  const uint32_t groups = static_cast<uint32_t>(rect.g1 - rect.g0);
  const uint32_t rows = static_cast<uint32_t>((rect.i1 - rect.i0 + 1) >> 1);
  const int32_t count = static_cast<int32_t>(groups * rows);
  const uint32_t scaled = static_cast<uint32_t>(count) *
                          static_cast<uint32_t>(qlis::kMeanScale);
  *mean = static_cast<double>(static_cast<int32_t>(sum)) /
          static_cast<double>(static_cast<int32_t>(scaled));
  return count;
}

// Rectangle metrics of packed RAW10 frames without row padding: gradient
// energies over the byte at offset 4 of each five-byte group on every
// second line.
#pragma once

#include <cstdint>

namespace qlis {

// Lines, then pixel columns; the far edges are pulled in so that the
// neighbours stay inside the frame.
struct Raw10MetricArgs {
  const uint8_t *frame;
  int32_t top;
  int32_t bottom;
  int32_t left;
  int32_t right;
  int32_t height;
  int32_t width;
};

// Returned when nothing of the rectangle is left after the clamp.
inline constexpr int32_t kRaw10MetricEmpty = -1;

// Sum of (right - c)^2 + (down - c)^2 with neighbours `distance` groups to
// the right and 2 * distance lines down, over half-rows top >> 1 ..
// bottom >> 1 and groups left >> 2 .. right >> 2.
int32_t raw10_squared_gradient(const Raw10MetricArgs &a, uint32_t distance);

// Sum of |right - c| + |down - c| at distance 1, over half-rows top / 2 ..
// bottom / 2 and groups left / 4 .. right / 4 (rounding toward zero).
int32_t raw10_absolute_gradient(const Raw10MetricArgs &a);

}  // namespace qlis

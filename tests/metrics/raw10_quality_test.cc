#include <gtest/gtest.h>

#include <utility>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace qlis::test {
namespace {

// 16 x 16 pixels without row padding (8 half-rows of 4 groups) with
// sample (t, k) = 10 t + 3 k: every right neighbour d groups on is 3 d more, every one d half-rows down
// 10 d more. Descending, the same differences have the other sign.
PackedFrame ramp_16x16(bool descending = false) {
  PackedFrame f({16, 16, 20}, uint8_t{0});
  f.samples([=](int32_t t, int32_t k) {
    return static_cast<uint8_t>(descending ? 200 - 10 * t - 3 * k : 10 * t + 3 * k);
  });
  return f;
}

struct Case {
  int32_t top, bottom, left, right;
  uint32_t distance;
  int32_t squared;   // image_quality_for_raw_10bit_continuous_2
  int32_t absolute;  // ..._true_pitch1 (distance 1 always)
};

// Both metrics of a rectangle of a frame 16 pixels wide.
std::pair<int32_t, int32_t> both(const uint8_t *f, const Case &c, int32_t height) {
  return {image_quality_for_raw_10bit_continuous_2(f, c.top, c.bottom, c.left, c.right,
                                                   c.distance, height, 16),
          image_quality_for_raw_10bit_continuous_2_true_pitch1(
              f, c.top, c.bottom, c.left, c.right, c.distance, height, 16)};
}

TEST(Raw10Metric, ClampDistanceAndRoundingSelectTheSamples) {
  const Case cases[] = {
      // Half-rows 0..8 pull in to 8 - 1 - 1 = 6, groups 0..4 to 2: the
      // edge loses two of each. 12 samples of 3^2 + 10^2 = 109 (or 13).
      {0, 16, 0, 16, 1, 12 * 109, 12 * 13},
      // One half-row short of the edge is pulled in too.
      {0, 14, 0, 16, 1, 12 * 109, 12 * 13},
      // Distance 2: half-rows to 5, groups to 1; 5 samples of 6^2 + 20^2.
      {0, 16, 0, 16, 2, 5 * 436, 12 * 13},
      // Half-rows 1..5, group 1, away from the edges.
      {2, 10, 4, 8, 1, 4 * 109, 4 * 13},
      // Odd bounds: 3 >> 1 = 3 / 2, 7 >> 2 = 7 / 4.
      {3, 11, 7, 12, 1, 4 * 109, 4 * 13},
      // Nothing left: equal rows, rows clamped away, groups clamped away.
      {6, 7, 0, 16, 1, -1, -1},
      {12, 16, 0, 16, 1, -1, -1},
      {0, 16, 8, 16, 1, -1, -1},
      // Pulled in past the start by a large distance, also one beyond
      // INT32_MAX (the distance is unsigned).
      {0, 16, 0, 16, 7, -1, 12 * 13},
      {0, 16, 0, 16, 0xffffffffu, -1, 12 * 13},
  };
  for (const bool descending : {false, true}) {
    const PackedFrame f = ramp_16x16(descending);
    for (const Case &c : cases) {
      EXPECT_EQ(both(f.data(), c, 16), std::make_pair(c.squared, c.absolute))
          << c.top << ".." << c.bottom << " x " << c.left << " d " << c.distance;
    }
  }
  // top = -1 is half-row -1 by shift but half-row 0 by division. The frame
  // handed over starts at line 4 of the ramp, so half-row -1 is readable:
  // half-rows -1..2 (or 0..2) by groups 0..1.
  EXPECT_EQ(both(ramp_16x16().data() + 4 * 20, {-1, 6, 0, 8, 1, 0, 0}, 12),
            std::make_pair(8 * 109, 6 * 13));
}

}  // namespace
}  // namespace qlis::test

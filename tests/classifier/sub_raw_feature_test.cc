#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace {

constexpr double kUntouched = -7.25;
constexpr uint32_t kPreset = 1000;

struct Rect {
  int32_t top, bottom, left, right, distance;
};

// A 24 x 32 frame (8 groups a line) of random bytes on a page-end buffer.
class SubRawFeature : public ::testing::Test {
 protected:
  static constexpr int32_t kHeight = 24, kWidth = 32, kStride = 41;
  int32_t run(Rect r) {
    return get_sub_raw_feature(&mean_, histogram_.data(), frame_.data(), r.top,
                               r.bottom, r.left, r.right, r.distance, kHeight,
                               kWidth, kStride);
  }
  qlis::test::RandomFrame frame_{{kHeight, kWidth, kStride}, 8};
  double mean_ = kUntouched;
  std::vector<uint32_t> histogram_ = std::vector<uint32_t>(256, kPreset);
};

// Lines 0 and 4 are visited (half-rows 0 and 2 of [0, 4)), groups 0..2;
// the right neighbour is one group on, the lower one 4 lines down.
TEST_F(SubRawFeature, HalvesGradientsAndAddsToTheHistogram) {
  const uint8_t lines[3][4] = {{10, 20, 40, 80}, {30, 30, 0, 255}, {0, 100, 8, 9}};
  for (int32_t l = 0; l < 3; ++l) {
    for (int32_t g = 0; g < 4; ++g) {
      frame_.data()[4 * l * kStride + 5 * g + 4] = lines[l][g];
    }
  }
  // (10 + 20) / 2, (20 + 10) / 2, (40 + 40) / 2; (0 + 30) / 2,
  // (30 + 70) / 2, (255 + 8) / 2 truncated.
  EXPECT_EQ(run({0, 8, 0, 12, 1}), 6);
  EXPECT_EQ(mean_, 266 / (6 * 512.0));
  std::vector<uint32_t> want(256, kPreset);
  want[15] += 3, want[40] += 1, want[50] += 1, want[131] += 1;
  EXPECT_EQ(histogram_, want);
}

// The far edges are pulled in to (height / 2) - 1 - d half-rows and
// (width / 4) - 1 - d groups: from top 16 only line 16 is visited, with
// its lower neighbour on line 20. Every other half-row is visited, and an
// odd count of half-rows rounds up, in the count as in the visits.
TEST_F(SubRawFeature, CountsVisitedRowsAfterTheClamp) {
  const std::pair<Rect, int32_t> cases[] = {{{16, 24, 0, 32, 1}, 6 * 1},
                                            {{0, 10, 4, 20, 1}, 4 * 3},
                                            {{2, 9, 0, 20, 2}, 5 * 2},
                                            {{0, 20, 0, 32, 1}, 6 * 5}};
  for (const auto &[rect, count] : cases) {
    histogram_.assign(256, 0);
    EXPECT_EQ(run(rect), count) << rect.top << " " << rect.bottom;
    EXPECT_EQ(std::accumulate(histogram_.begin(), histogram_.end(), 0u),
              static_cast<uint32_t>(count));
  }
}

TEST_F(SubRawFeature, EmptyRectangleReturnsZeroAndWritesNothing) {
  for (const Rect r : {Rect{0, 8, 4, 7, 1}, Rect{0, 8, 8, 4, 1},
                       Rect{6, 7, 0, 12, 1}, Rect{18, 24, 0, 12, 2},
                       Rect{0, 8, 20, 32, 3}}) {
    EXPECT_EQ(run(r), 0) << r.top << " " << r.left;
    EXPECT_EQ(mean_, kUntouched);
    EXPECT_EQ(histogram_, std::vector<uint32_t>(256, kPreset));
  }
}

}  // namespace

#include "feature/yuv_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis::test {
namespace {

constexpr uint64_t kSentinel = 0x5a5a5a5a5a5a5a5aull;

// Byte (y, x) = x + 10 y: a right neighbour d bytes on is d more, a lower
// neighbour d rows down is 10 d more.
std::vector<uint8_t> ramp_frame(int32_t height, int32_t stride) {
  std::vector<uint8_t> frame(static_cast<size_t>(height) * stride);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < stride; ++x) {
      frame[static_cast<size_t>(y) * stride + x] =
          static_cast<uint8_t>(x + 10 * y);
    }
  }
  return frame;
}

struct Outputs {
  uint64_t sum = kSentinel;
  uint64_t aux = kSentinel;
  uint64_t result = 0;
};

Outputs extract(const uint8_t *data, int32_t row_begin, int32_t row_end,
                int32_t col_begin, int32_t col_end, int32_t dist,
                int32_t height, int32_t width, int32_t stride,
                int32_t stats_flag, int32_t gradient_flag, int32_t unused = 1) {
  Outputs out;
  out.result = image_feature_quality_for_yuv_skip2(
      &out.sum, &out.aux, data, row_begin, row_end, col_begin, col_end, dist,
      unused, height, width, stride, stats_flag, gradient_flag);
  return out;
}

struct FlagCase {
  int32_t stats_flag;
  int32_t gradient_flag;
  uint64_t sum;     // expected *sum_out
  uint64_t result;  // expected return value
};

class YuvBlockFlags : public ::testing::TestWithParam<FlagCase> {};

// Block rows and columns 0..8 of a 10 x 10 ramp: samples at (0|4, 0|4) are
// 0, 4, 40, 44 (sum 88), each with gradient 1^2 + 10^2 = 101 (energy 404).
TEST_P(YuvBlockFlags, FlagPairSelectsSumAndEnergy) {
  const FlagCase c = GetParam();
  const std::vector<uint8_t> frame = ramp_frame(10, 12);
  for (int32_t unused : {1, 0, -7, 1 << 30}) {
    const Outputs out = extract(frame.data(), 0, 8, 0, 8, 1, 10, 10, 12,
                                c.stats_flag, c.gradient_flag, unused);
    EXPECT_EQ(out.sum, c.sum);
    EXPECT_EQ(out.result, c.result);
    EXPECT_EQ(out.aux, kSentinel);
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllPairs, YuvBlockFlags,
    ::testing::Values(FlagCase{1, 1, 88, 404}, FlagCase{0, 1, 0, 404},
                      FlagCase{1, 0, 88, 0},
                      // Invalid pairs compute nothing and leave the sum.
                      FlagCase{0, 0, kSentinel, UINT64_MAX},
                      FlagCase{2, 1, kSentinel, UINT64_MAX},
                      FlagCase{1, 2, kSentinel, UINT64_MAX},
                      FlagCase{-1, 1, kSentinel, UINT64_MAX},
                      FlagCase{1, -1, kSentinel, UINT64_MAX}));

TEST(YuvBlock, ClampDropsLastSampleRowAndColumnOneEarly) {
  // Rows and columns 0..9: in a 10 x 10 frame the neighbours of sample 8
  // would still fit, but the ends are pulled in to 10 - 1 - 1 = 8.
  const std::vector<uint8_t> frame = ramp_frame(11, 12);
  const Outputs clamped =
      extract(frame.data(), 0, 9, 0, 9, 1, 10, 10, 12, 1, 1);
  EXPECT_EQ(clamped.sum, 88u);
  EXPECT_EQ(clamped.result, 404u);
  // One row and column more and nothing is clamped: samples at 0, 4, 8 in
  // both directions, sum 3 (0 + 4 + 8) + 30 (0 + 4 + 8), 9 x 101.
  const Outputs open = extract(frame.data(), 0, 9, 0, 9, 1, 11, 11, 12, 1, 1);
  EXPECT_EQ(open.sum, 396u);
  EXPECT_EQ(open.result, 909u);
}

TEST(YuvBlock, DistanceMovesBothNeighbours) {
  // dist 2: neighbours 2 bytes right and 2 rows down, 2^2 + 20^2 = 404.
  const std::vector<uint8_t> frame = ramp_frame(12, 12);
  const Outputs out = extract(frame.data(), 0, 8, 0, 8, 2, 12, 12, 12, 1, 1);
  EXPECT_EQ(out.sum, 88u);
  EXPECT_EQ(out.result, 4u * 404u);
}

TEST(YuvBlock, EnergyOfAVeryWideHighContrastBlockKeepsAll64Bits) {
  // One sample row of 144,000 samples, each 255 beside and above a 0:
  // 2 x 255^2 = 130,050 apiece, 18,727,200,000 in all: past 2^32, and past
  // what 32-bit vector lanes hold without being flushed.
  constexpr int32_t kSamples = 144000;
  constexpr int32_t kWidth = 4 * kSamples + 2;
  std::vector<uint8_t> frame(3 * static_cast<size_t>(kWidth), 0);
  for (int32_t x = 0; x < kWidth; x += 4) frame[x] = 255;
  const Outputs out =
      extract(frame.data(), 0, 1, 0, 4 * kSamples, 1, 3, kWidth, kWidth, 1, 1);
  EXPECT_EQ(out.sum, 255u * kSamples);
  EXPECT_EQ(out.result, 130050ull * kSamples);
}

struct EmptyCase {
  int32_t row_begin, row_end, col_begin, col_end, height, width;
  int32_t stats_flag, gradient_flag;
};

class YuvBlockEmpty : public ::testing::TestWithParam<EmptyCase> {};

TEST_P(YuvBlockEmpty, EmptyBlockZeroesBothCellsAndFails) {
  const EmptyCase c = GetParam();
  // The kernel must read nothing: the one readable byte sits at a page end.
  PageEndBuffer buffer(1);
  const Outputs out =
      extract(buffer.data(), c.row_begin, c.row_end, c.col_begin, c.col_end, 1,
              c.height, c.width, 16, c.stats_flag, c.gradient_flag);
  EXPECT_EQ(out.sum, 0u);
  EXPECT_EQ(out.aux, 0u);
  EXPECT_EQ(out.result, UINT64_MAX);
}

INSTANTIATE_TEST_SUITE_P(
    Rectangles, YuvBlockEmpty,
    ::testing::Values(EmptyCase{4, 4, 0, 8, 16, 16, 1, 1},
                      EmptyCase{0, 8, 8, 5, 16, 16, 1, 1},
                      // Clamped to nothing at the bottom / right edge.
                      EmptyCase{14, 16, 0, 8, 16, 16, 1, 1},
                      EmptyCase{0, 8, 14, 20, 16, 16, 0, 1},
                      // Emptiness is decided before the flags.
                      EmptyCase{4, 4, 0, 8, 16, 16, 0, 0},
                      EmptyCase{0, 8, 0, 8, 1, 1, 7, 7}));

#if QLIS_HAVE_NEON

struct PlaneGeometry {
  int32_t height, width, stride;
};

// Widths around the 64- and 32-byte load steps, padded strides, tiny planes.
const PlaneGeometry kPlaneGeometries[] = {
    {1, 1, 1},      {3, 5, 5},      {9, 9, 16},      {17, 63, 63},
    {20, 64, 64},   {21, 65, 67},   {33, 127, 128},  {40, 130, 130},
    {57, 200, 203}, {64, 257, 257}, {100, 640, 641}, {135, 1922, 1924},
};

struct Clamped {
  int64_t row_end, col_end;
};

Clamped clamp_like_the_extractor(const YuvBlockArgs &a) {
  Clamped c{a.row_end, a.col_end};
  if (c.row_end + a.dist >= a.height)
    c.row_end = int64_t{a.height} - 1 - a.dist;
  if (c.col_end + a.dist >= a.width) c.col_end = int64_t{a.width} - 1 - a.dist;
  return c;
}

bool flags_valid(int32_t s, int32_t g) {
  return (s == 1 && g == 1) || (s == 0 && g == 1) || (s == 1 && g == 0);
}

TEST(YuvBlockTwins, NeonMatchesPortableWithinTheBlocksBytes) {
  const int32_t kFlagPairs[][2] = {{1, 1}, {0, 1}, {1, 0}, {0, 0}, {2, 1}};
  const int32_t kDists[] = {1, 1, 1, 0, 2, 3};
  std::mt19937 engine(20240611);
  for (const PlaneGeometry &g : kPlaneGeometries) {
    SCOPED_TRACE(::testing::Message()
                 << g.height << "x" << g.width << "/" << g.stride);
    const RandomFrame master({g.height, g.width, g.stride}, engine());
    std::uniform_int_distribution<int32_t> row(0, g.height + 2);
    std::uniform_int_distribution<int32_t> col(0, g.width + 2);
    std::uniform_int_distribution<size_t> pick(0, 5);
    for (int trial = 0; trial < 60; ++trial) {
      YuvBlockArgs a{};
      if (trial < 6) {  // the whole plane, clamped at both far edges
        a.row_begin = 0, a.row_end = g.height, a.col_begin = 0,
        a.col_end = g.width;
      } else {
        a.row_begin = std::max(0, row(engine) - 2);
        a.row_end = row(engine);
        a.col_begin = std::max(0, col(engine) - 2);
        a.col_end = col(engine);
      }
      a.dist = trial < 6 ? 1 : kDists[pick(engine)];
      a.height = g.height, a.width = g.width, a.stride = g.stride;
      const int32_t *flags = kFlagPairs[trial % 5];
      a.stats_flag = flags[0], a.gradient_flag = flags[1];

      // Place the bytes the block may read so that the last one, dist past
      // col_end on the last lower-neighbour row, ends a page.
      const Clamped c = clamp_like_the_extractor(a);
      size_t readable = 1;
      if (c.row_end > a.row_begin && c.col_end > a.col_begin &&
          flags_valid(a.stats_flag, a.gradient_flag)) {
        const int64_t last_row =
            a.row_begin + (c.row_end - 1 - a.row_begin) / 4 * 4;
        readable = static_cast<size_t>((last_row + a.dist) * g.stride +
                                       c.col_end + a.dist);
      }
      PageEndBuffer buffer(readable);
      std::memcpy(buffer.data(), master.data(),
                  std::min(readable, static_cast<size_t>(g.height) * g.stride));
      a.data = buffer.data();

      uint64_t sum_p = kSentinel, aux_p = kSentinel;
      uint64_t sum_n = kSentinel, aux_n = kSentinel;
      const uint64_t result_p = portable::yuv_block_features(&sum_p, &aux_p, a);
      const uint64_t result_n = neon::yuv_block_features(&sum_n, &aux_n, a);
      ASSERT_EQ(result_n, result_p) << "trial " << trial;
      ASSERT_EQ(sum_n, sum_p) << "trial " << trial;
      ASSERT_EQ(aux_n, aux_p) << "trial " << trial;
    }
  }
}

#endif  // QLIS_HAVE_NEON

}  // namespace
}  // namespace qlis::test

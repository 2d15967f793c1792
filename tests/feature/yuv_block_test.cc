#include "feature/yuv_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "feature/feature_frames.h"
#include "ql_is/ql_is.h"

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

// The exported entry point; its ninth argument is not used.
Outputs extract(const BlockArgs &a) {
  Outputs out;
  out.result = image_feature_quality_for_yuv_skip2(
      &out.sum, &out.aux, a.data, a.row_begin, a.row_end, a.col_begin,
      a.col_end, a.dist, -7, a.height, a.width, a.stride, a.stats_flag,
      a.gradient_flag);
  return out;
}

// Sums and energies by hand on the ramp; *aux_out is left alone.
TEST(YuvBlock, FlagsClampAndDistancePickSumAndEnergy) {
  const struct {
    int32_t end, size;  // rows and columns 0 .. end of a size x size frame
    int32_t dist, stats_flag, gradient_flag;
    uint64_t sum, result;
  } cases[] = {
      // Rows and columns 0..8 of a 10 x 10 frame: samples at (0|4, 0|4)
      // are 0, 4, 40, 44 (sum 88), each with gradient 1^2 + 10^2 = 101.
      {8, 10, 1, 1, 1, 88, 404},
      {8, 10, 1, 0, 1, 0, 404},
      {8, 10, 1, 1, 0, 88, 0},
      // Invalid pairs compute nothing and leave the sum.
      {8, 10, 1, 0, 0, kSentinel, UINT64_MAX},
      {8, 10, 1, 2, 1, kSentinel, UINT64_MAX},
      {8, 10, 1, 1, 2, kSentinel, UINT64_MAX},
      // Rows and columns 0..9: the neighbours of sample 8 would still fit,
      // but the ends are pulled in to 10 - 1 - 1 = 8.
      {9, 10, 1, 1, 1, 88, 404},
      // One row and column more and nothing is clamped: samples 0, 4, 8,
      // sum 3 (0 + 4 + 8) + 30 (0 + 4 + 8), 9 x 101.
      {9, 11, 1, 1, 1, 396, 909},
      // Neighbours 2 bytes right and 2 rows down: 2^2 + 20^2 = 404 each.
      {8, 12, 2, 1, 1, 88, 4 * 404}};
  const std::vector<uint8_t> frame = ramp_frame(12, 12);
  for (const auto &c : cases) {
    const Outputs out = extract(
        block_args(frame.data(), {c.size, c.size, 12}, {0, c.end, 0, c.end},
                   c.dist, c.stats_flag, c.gradient_flag));
    SCOPED_TRACE(::testing::Message()
                 << "0.." << c.end << " of " << c.size << " dist " << c.dist
                 << " flags " << c.stats_flag << c.gradient_flag);
    EXPECT_EQ(out.sum, c.sum);
    EXPECT_EQ(out.result, c.result);
    EXPECT_EQ(out.aux, kSentinel);
  }
}

TEST(YuvBlock, EnergyOfAVeryWideHighContrastBlockKeepsAll64Bits) {
  // One sample row of 144,000 samples, each 255 beside and above a 0:
  // 2 x 255^2 = 130,050 apiece, 18,727,200,000 in all: past 2^32, and past
  // what 32-bit vector lanes hold without being flushed.
  constexpr int32_t kSamples = 144000;
  constexpr int32_t kWidth = 4 * kSamples + 2;
  std::vector<uint8_t> frame(3 * static_cast<size_t>(kWidth), 0);
  for (int32_t x = 0; x < kWidth; x += 4) frame[x] = 255;
  const Outputs out = extract(
      block_args(frame.data(), {3, kWidth, kWidth}, {0, 1, 0, 4 * kSamples}));
  EXPECT_EQ(out.sum, 255u * kSamples);
  EXPECT_EQ(out.result, 130050ull * kSamples);
}

// The kernel must read nothing: the one readable byte sits at a page end.
TEST(YuvBlock, EmptyBlockZeroesBothCellsAndFails) {
  const struct {
    BlockRect rect;
    int32_t size, stats_flag, gradient_flag;
  } cases[] = {{{0, 8, 8, 5}, 16, 1, 1},
               // Clamped to nothing at the bottom / right edge.
               {{14, 16, 0, 8}, 16, 1, 1},
               {{0, 8, 14, 20}, 16, 0, 1},
               // Emptiness is decided before the flags.
               {{4, 4, 0, 8}, 16, 0, 0}};
  PageEndBuffer buffer(1);
  for (const auto &c : cases) {
    const Outputs out =
        extract(block_args(buffer.data(), {c.size, c.size, 16}, c.rect, 1,
                           c.stats_flag, c.gradient_flag));
    EXPECT_TRUE(out.sum == 0 && out.aux == 0 && out.result == UINT64_MAX)
        << c.rect.row_begin << ".." << c.rect.row_end << " x "
        << c.rect.col_begin << ".." << c.rect.col_end;
  }
}

#if QLIS_HAVE_NEON
// Bytes up to the lower neighbour of the block's last sample row, so that
// the buffer can end right after them.
size_t bytes_read(YuvBlockArgs a) {
  clamp_yuv_block(a);
  if (yuv_block_is_empty(a) || !yuv_flags_valid(a)) return 1;
  const int64_t last_row = a.row_begin + (a.row_end - 1 - a.row_begin) / 4 * 4;
  return static_cast<size_t>((last_row + a.dist) * a.stride + a.col_end + a.dist);
}

// Widths around the 64- and 32-byte load steps, padded strides, tiny
// planes; random blocks, distances and flag pairs, each in a buffer that
// ends with the last byte the block may read.
TEST(YuvBlockTwins, NeonMatchesPortableWithinTheBlocksBytes) {
  const Geometry kPlanes[] = {
      {1, 1, 1},      {3, 5, 5},      {9, 9, 16},      {17, 63, 63},
      {20, 64, 64},   {21, 65, 67},   {33, 127, 128},  {40, 130, 130},
      {57, 200, 203}, {64, 257, 257}, {100, 640, 641}, {135, 1922, 1924},
  };
  const int32_t kDists[] = {1, 1, 1, 0, 2, 3};
  std::mt19937 engine(20240611);
  for (const Geometry &g : kPlanes) {
    SCOPED_TRACE(::testing::Message()
                 << g.height << "x" << g.width << "/" << g.stride);
    const RandomFrame master(g, engine());
    std::uniform_int_distribution<int32_t> row(0, g.height + 2);
    std::uniform_int_distribution<int32_t> col(0, g.width + 2);
    std::uniform_int_distribution<size_t> pick(0, 5);
    for (int trial = 0; trial < 60; ++trial) {
      const int32_t *flags = kTwinFlagPairs[trial % 5];
      // The first trials take the whole plane, clamped at both far edges.
      const BlockRect rect =
          trial < 6 ? BlockRect{0, g.height, 0, g.width}
                    : BlockRect{std::max(0, row(engine) - 2), row(engine),
                                std::max(0, col(engine) - 2), col(engine)};
      YuvBlockArgs a =
          block_args(nullptr, g, rect, trial < 6 ? 1 : kDists[pick(engine)],
                     flags[0], flags[1]);
      const size_t readable = bytes_read(a);
      PageEndBuffer buffer(readable);
      std::memcpy(buffer.data(), master.data(),
                  std::min(readable, static_cast<size_t>(g.height) * g.stride));
      a.data = buffer.data();

      uint64_t sum_p = kSentinel, aux_p = kSentinel;
      uint64_t sum_n = kSentinel, aux_n = kSentinel;
      const uint64_t result_p = portable::yuv_block_features(&sum_p, &aux_p, a);
      const uint64_t result_n = neon::yuv_block_features(&sum_n, &aux_n, a);
      ASSERT_TRUE(result_n == result_p && sum_n == sum_p && aux_n == aux_p)
          << "trial " << trial;
    }
  }
}

#endif  // QLIS_HAVE_NEON

}  // namespace
}  // namespace qlis::test

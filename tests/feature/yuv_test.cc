// The plane block extractor (YUV luma, or YUYV read as one plane) and its
// frame driver.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis::test {
namespace {

constexpr uint64_t kSentinel = 0x5a5a5a5a5a5a5a5aull;

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

// Sums and energies by hand on a ramp, byte (y, x) = x + 10 y: a right
// neighbour d bytes on is d more, a lower one d rows down 10 d more.
// *aux_out is left alone.
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
  std::vector<uint8_t> frame(144);
  for (size_t k = 0; k < 144; ++k) frame[k] = uint8_t(k % 12 + k / 12 * 10);
  for (const auto &c : cases) {
    const Outputs out = extract(block_args(frame.data(), {c.size, c.size, 12},
                                           {0, c.end, 0, c.end}, c.dist,
                                           c.stats_flag, c.gradient_flag));
    EXPECT_TRUE(out.sum == c.sum && out.result == c.result &&
                out.aux == kSentinel)
        << &c - cases;
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
        << &c - cases;
  }
}

uint64_t run_yuv(BlockFeatureSet &set, const uint8_t *data, Geometry g) {
  set = unwritten_records();
  return calc_feature_quality_with_sub_yuv(&set, data, g.height, g.width,
                                           g.stride);
}

// 32 pixels of Y 200, U 50, V 90 per row: 64 bytes. Blocks start on
// multiples of 8 bytes, so every sample is a Y0 whose right neighbour is U:
// 150^2 per sample, 4 samples, e = 90000 per block. Weighted: 225 wc wr,
// S = 225 * 20 * 20 = 90000, Q = 225^2 * 60^2 = 182250000;
// (Q / 64 - (S / 64)^2) / 10000 = (2847656 - 1406^2) / 10000 = 87.
TEST(YuvFrame, YuyvGradientMixesLumaAndChroma) {
  const uint8_t kPair[4] = {200, 50, 200, 90};
  std::vector<uint8_t> frame(64 * 64);
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = kPair[i % 4];
  BlockFeatureSet yuyv = unwritten_records(), yuv;
  EXPECT_EQ(calc_feature_quality_with_sub_yuyv(&yuyv, frame.data(), 64, 64, 64),
            87u * 90000u);
  EXPECT_EQ(run_yuv(yuv, frame.data(), {64, 64, 64}), 87u * 90000u);
  EXPECT_TRUE(same_bytes(yuyv, yuv));
  EXPECT_EQ(yuyv.block[0].sample_sum, 800.0);
}

// A 4 x 7 plane has only empty blocks: every energy is all ones, and
// (2^64 - wc wr) / 400 weighted and folded wraps to this value, worked out
// apart from the library.
TEST(YuvFrame, EmptyBlocksWeighTheirAllOnesEnergy) {
  const RandomFrame frame({4, 7, 7}, 3);
  BlockFeatureSet set;
  EXPECT_EQ(run_yuv(set, frame.data(), {4, 7, 7}), 12542310230596598336u);
  EXPECT_EQ(set.block[0].sample_sum, 0.0);
}

}  // namespace
}  // namespace qlis::test

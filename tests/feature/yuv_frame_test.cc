#include "feature/yuv_frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis::test {
namespace {

uint64_t run_yuv(BlockFeatureSet &set, const uint8_t *data, Geometry g) {
  set = unwritten_records();
  return calc_feature_quality_with_sub_yuv(&set, data, g.height, g.width,
                                           g.stride);
}

// 64 x 64 with padding of another value that must never be read: four
// samples per block (the last row and column of blocks lose their third
// sample to the edge clamp either way). Only field 0 is written: block
// sums on the checkerboard, 0.0 elsewhere.
TEST(YuvFrame, FlatFrameHasNoGradientAndChecksOnlyItsBlocks) {
  std::vector<uint8_t> frame(64 * 70, 7);
  for (int y = 0; y < 64; ++y) std::memset(&frame[y * 70], 100, 64);
  BlockFeatureSet set;
  EXPECT_EQ(run_yuv(set, frame.data(), {64, 64, 70}), 0u);
  for (int k = 0; k < 64; ++k) {
    EXPECT_TRUE(same_fields(set.block[k],
                            {on_checkerboard(k) ? 400.0 : 0.0, kUnwritten,
                             kUnwritten, kUnwritten, kUnwritten, kUnwritten}))
        << k;
  }
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

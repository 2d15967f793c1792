#include "feature/raw10_frame.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "feature/feature_frames.h"
#include "platform/log.h"
#include "support/host_hooks.h"

namespace qlis {
namespace {

using test::Geometry;
using test::kUnwritten;
using test::Noise;
using test::on_checkerboard;
using test::PackedFrame;

// 64 x 128 pixels of noise: 32 x 32 samples, blocks of 4 x 4 samples,
// except the last block row and column, which the clamp cuts to 2.
PackedFrame frame_of(uint8_t value) {
  PackedFrame f({64, 128, 160}, Noise{5});
  f.samples([value](int32_t, int32_t) { return value; });
  return f;
}

uint64_t run(const PackedFrame &f, BlockFeatureSet &set, uint32_t mode) {
  const Geometry &g = f.geometry();
  set = test::unwritten_records();
  return calc_feature_quality_with_sub(&set, mode, f.data(), g.height, g.width,
                                       g.stride);
}

// Flat frames in every mode, with the log of each call. Interior blocks
// hold 4 x 4 samples, the last row and column 4 x 2 or 2 x 4, the corner
// 2 x 2. Mode 1 (statistics only) skips the other blocks, mode 2
// (gradient only) zeroes the statistics everywhere. `reserved` is never
// written; a flat block has no deviation, and 0 / 0 variation when black.
TEST(Raw10Frame, FlatFramesFillEveryRecordAsTheModeSays) {
  for (uint8_t v : {255, 0}) {
    const PackedFrame f = frame_of(v);
    for (uint32_t mode : {0u, 1u, 2u}) {
      BlockFeatureSet set;
      test::LogCapture log;
      EXPECT_EQ(run(f, set, mode), 0u);
      const std::vector<std::string> lines = {
          "Vrel_calc_feature_quality_with_sub_start",
          mode == 1 ? "Vrel_valid_num:0" : "Vrel_valid_num:64",
          "Vrel_feature_valid_num_64"};
      EXPECT_EQ(log.texts(kTagAlgo), lines);
      for (const auto &line : log.lines()) EXPECT_EQ(line.priority, 6);
      for (int k = 0; k < 64; ++k) {
        const double n = (k / 8 == 7 ? 2 : 4) * (k % 8 == 7 ? 2 : 4);
        const bool stats = mode != 2 && on_checkerboard(k);
        const bool skipped = mode == 1 && !stats;
        const double variation =
            mode == 2 ? 0.0 : v == 0 ? std::numeric_limits<double>::quiet_NaN()
                                     : 0.0;
        const BlockFeature want{stats ? v * n : 0.0,
                                kUnwritten,
                                skipped ? kUnwritten : 0.0,
                                skipped ? kUnwritten : (v == 255 ? 1.0 : 0.0),
                                skipped ? kUnwritten : (v == 0 ? 1.0 : 0.0),
                                skipped ? kUnwritten : variation};
        EXPECT_TRUE(test::same_fields(set.block[k], want))
            << "value " << int{v} << " mode " << mode << " block " << k;
      }
    }
  }
}

// One set of outputs serves every block, so a gradient-only block shows
// the deviation and variation of the last statistics block next to its own
// fractions. Block 0 alternates 10 and 30 (N = 16, sum 320, sum of squares
// 8000: deviation 1600, variation sqrt(100) / 20); block 1 is bright;
// block 6 alternates 40 and 80 (deviation 6400, variation 20 / 60) and is
// carried across the end of its block row into block 8.
TEST(Raw10Frame, GradientOnlyBlocksCarryTheLastStatistics) {
  PackedFrame f = frame_of(100);
  for (int32_t i = 0; i < 4; ++i) {
    for (int32_t g = 0; g < 4; ++g) {
      f.set(i, g, (i + g) % 2 ? 30 : 10);
      f.set(i, g + 4, 200);
      f.set(i, g + 24, (i + g) % 2 ? 80 : 40);
    }
  }
  BlockFeatureSet set;
  run(f, set, 0);
  EXPECT_TRUE(test::same_fields(set.block[0],
                                {320.0, kUnwritten, 1600.0, 0.0, 1.0, 0.5}));
  EXPECT_TRUE(
      test::same_fields(set.block[1], {0.0, kUnwritten, 1600.0, 1.0, 0.0, 0.5}));
  EXPECT_EQ(set.block[6].variation, 20.0 / 60.0);
  EXPECT_TRUE(test::same_fields(
      set.block[8], {0.0, kUnwritten, 6400.0, 0.0, 0.0, 20.0 / 60.0}));
}

// One bright sample at (13, 13) of a black frame, in block (3, 3) of
// weight 4 x 4: its own energy 2 x 255^2 and one 255^2 for each of its
// left and upper neighbours. w = 260,100 x 16 / 400 = 10,404, the only
// nonzero weight. mean 10,404 / 64 = 162, mean of squares
// 10,404^2 / 64 = 1,691,300; spread (1,691,300 - 162^2) / 10,000 = 166.
// Statistics only returns the plain weighted sum, 0 without gradients.
TEST(Raw10Frame, FrameValueIsSpreadTimesWeightedSum) {
  PackedFrame f = frame_of(0);
  f.set(13, 13, 255);
  BlockFeatureSet set;
  EXPECT_EQ(run(f, set, 0), 166u * 10404u);
  EXPECT_EQ(run(f, set, 2), 166u * 10404u);
  EXPECT_EQ(run(f, set, 1), 0u);
}

// Blocks of 130 x 130 samples of a 0/255 checkerboard (128 in the last
// row and column): every energy wraps to a negative 32-bit value, and so
// does every 32-bit product with the weights but the corner's. The
// weighted sum, -28,180,585, and the frame value are formed from their
// unsigned 64-bit bits; worked out apart from the library.
TEST(Raw10Frame, WrappedNegativeEnergiesFollowUnsignedArithmetic) {
  PackedFrame f({2080, 4160, 5200}, 0);
  f.samples(test::checker_0_255);
  BlockFeatureSet set;
  EXPECT_EQ(run(f, set, 0), 16054467043519993417u);
}

TEST(Raw10Frame, FramesBelowEightPixelsHaveOnlyEmptyBlocks) {
  for (const Geometry g : {Geometry{7, 64, 80}, Geometry{64, 4, 5}}) {
    const PackedFrame f(g, Noise{3});
    for (uint32_t mode : {0u, 1u}) {
      BlockFeatureSet set;
      EXPECT_EQ(run(f, set, mode), 0u);
      for (int k = 0; k < 64; ++k) {
        const double rest = mode == 1 && !on_checkerboard(k) ? kUnwritten : 0.0;
        EXPECT_TRUE(test::same_fields(
            set.block[k], {0.0, kUnwritten, rest, rest, rest, rest}))
            << g.height << "x" << g.width << " mode " << mode << " block " << k;
      }
    }
  }
}

}  // namespace
}  // namespace qlis

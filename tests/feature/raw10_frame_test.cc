#include "feature/raw10_frame.h"

#include <gtest/gtest.h>

#include <cmath>
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

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

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

TEST(Raw10Frame, LogsValidCountsInEveryMode) {
  const PackedFrame f = frame_of(100);
  for (uint32_t mode : {0u, 1u, 2u, 7u}) {
    BlockFeatureSet set;
    test::LogCapture log;
    run(f, set, mode);
    const std::vector<std::string> expected = {
        "Vrel_calc_feature_quality_with_sub_start",
        mode == 1 ? "Vrel_valid_num:0" : "Vrel_valid_num:64",
        "Vrel_feature_valid_num_64"};
    EXPECT_EQ(log.texts(kTagAlgo), expected) << mode;
    for (const auto &line : log.lines()) EXPECT_EQ(line.priority, 6);
  }
}

// Flat frames in every mode. Interior blocks hold 4 x 4 samples, the last
// row and column 4 x 2 or 2 x 4, the corner 2 x 2. Gradient-only blocks
// carry the deviation and variation of the block before; mode 1 skips
// them, mode 2 (unlike 7, read as 0) zeroes the statistics everywhere.
// `reserved` is never written.
TEST(Raw10Frame, FlatFramesFillEveryRecordAsTheModeSays) {
  for (uint8_t v : {128, 0, 255}) {
    const PackedFrame f = frame_of(v);
    for (uint32_t mode : {0u, 1u, 2u, 7u}) {
      BlockFeatureSet set;
      EXPECT_EQ(run(f, set, mode), 0u);
      for (int k = 0; k < 64; ++k) {
        const double n = (k / 8 == 7 ? 2 : 4) * (k % 8 == 7 ? 2 : 4);
        const bool stats = mode != 2 && on_checkerboard(k);
        const bool skipped = mode == 1 && !stats;
        const double variation = mode == 2 ? 0.0 : v == 0 ? kNaN : 0.0;
        const BlockFeature want{stats ? v * n : 0.0,
                                kUnwritten,
                                skipped ? kUnwritten : 0.0,
                                skipped ? kUnwritten : (v >= 196 ? 1.0 : 0.0),
                                skipped ? kUnwritten : (v <= 59 ? 1.0 : 0.0),
                                skipped ? kUnwritten : variation};
        EXPECT_TRUE(test::same_fields(set.block[k], want))
            << "value " << int{v} << " mode " << mode << " block " << k;
      }
    }
  }
}

// Block 0 alternates 10 and 30 (N = 16, sum 320, sum of squares 8000:
// deviation 1600, variation sqrt(100) / 20); block 1 is bright. Block 1
// computes only its gradient and shows block 0's deviation and variation
// next to its own fractions. Block 6 alternates 40 and 80 (sum 960, sum of
// squares 64,000: deviation 6400, variation sqrt(400) / 60).
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
  const BlockFeature &stats = set.block[0];
  const BlockFeature &carried = set.block[1];
  EXPECT_EQ(stats.sample_sum, 320.0);
  EXPECT_EQ(stats.deviation_sum, 1600.0);
  EXPECT_EQ(stats.variation, 0.5);
  EXPECT_EQ(stats.dark_ratio, 1.0);
  EXPECT_EQ(carried.sample_sum, 0.0);
  EXPECT_EQ(carried.deviation_sum, 1600.0);
  EXPECT_EQ(carried.variation, 0.5);
  EXPECT_EQ(carried.bright_ratio, 1.0);
  EXPECT_EQ(carried.dark_ratio, 0.0);
  // Across a block row: block 8 follows block 7 (gradient only), which
  // follows block 6, the last one with statistics.
  EXPECT_EQ(set.block[6].deviation_sum, 6400.0);
  EXPECT_EQ(set.block[6].variation, 20.0 / 60.0);
  EXPECT_EQ(set.block[8].sample_sum, 0.0);
  EXPECT_EQ(set.block[8].deviation_sum, 6400.0);
  EXPECT_EQ(set.block[8].variation, 20.0 / 60.0);
  // Gradient only everywhere still records each block's own fractions.
  run(f, set, 2);
  EXPECT_EQ(set.block[0].dark_ratio, 1.0);
  EXPECT_EQ(set.block[1].bright_ratio, 1.0);
  EXPECT_EQ(set.block[2].bright_ratio + set.block[2].dark_ratio, 0.0);
}

// One bright sample at (13, 13) of a black frame, in block (3, 3) of
// weight 4 x 4: its own energy 2 x 255^2 and one 255^2 for each of its
// left and upper neighbours. w = 260,100 x 16 / 400 = 10,404, the only
// nonzero weight. mean 10,404 / 64 = 162, mean of squares
// 10,404^2 / 64 = 1,691,300; spread (1,691,300 - 162^2) / 10,000 = 166.
TEST(Raw10Frame, FrameValueIsSpreadTimesWeightedSum) {
  PackedFrame f = frame_of(0);
  f.set(13, 13, 255);
  BlockFeatureSet set;
  EXPECT_EQ(run(f, set, 0), 166u * 10404u);
  EXPECT_EQ(run(f, set, 2), 166u * 10404u);
  EXPECT_EQ(run(f, set, 1), 0u);
}

// Blocks of 130 x 130 samples of a 0/255 checkerboard: every energy wraps
// to a negative 32-bit value (the last row and column keep 128 samples,
// the corner block stays positive), so the weighted sum is negative and
// the frame value is formed from its unsigned bits.
TEST(Raw10Frame, WrappedNegativeEnergiesFollowUnsignedArithmetic) {
  PackedFrame f({2080, 4160, 5200}, 0);
  f.samples(test::checker_0_255);
  uint64_t weighted[64];
  for (int k = 0; k < 64; ++k) {
    const uint32_t samples =
        (k / 8 == 7 ? 128u : 130u) * (k % 8 == 7 ? 128u : 130u);
    const uint32_t energy = samples * 130050u;  // wraps
    const auto weight = static_cast<uint32_t>(test::kBlockWeight[k / 8] *
                                              test::kBlockWeight[k % 8]);
    const int64_t w = static_cast<int32_t>(energy * weight) / 400;
    weighted[k] = static_cast<uint64_t>(w);
  }
  BlockFeatureSet set;
  EXPECT_EQ(run(f, set, 0), test::spread_times_sum(weighted));
  int64_t signed_sum = 0;
  for (uint64_t w : weighted) signed_sum += static_cast<int64_t>(w);
  EXPECT_LT(signed_sum, 0);
}

TEST(Raw10Frame, FramesBelowEightPixelsHaveOnlyEmptyBlocks) {
  for (const Geometry g :
       {Geometry{0, 0, 0}, Geometry{7, 64, 80}, Geometry{64, 4, 5}}) {
    const PackedFrame f(g, Noise{3});
    for (uint32_t mode : {0u, 1u, 2u}) {
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

#if QLIS_HAVE_NEON
TEST(Raw10FrameTwins, NeonMatchesPortableInEveryMode) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.push_back({600, 1000, 1250});
  geometries.push_back({1200, 1600, 2003});
  for (const Geometry &g : geometries) {
    const test::RandomFrame frame(g, 40 + g.height);
    for (uint32_t mode : {0u, 1u, 2u}) {
      BlockFeatureSet p = test::unwritten_records();
      BlockFeatureSet n = test::unwritten_records();
      EXPECT_EQ(raw10_frame_features(&p, mode, frame.data(), g.height, g.width,
                                     g.stride, &portable::raw10_block_features),
                raw10_frame_features(&n, mode, frame.data(), g.height, g.width,
                                     g.stride, &neon::raw10_block_features))
          << g.height << "x" << g.width << " mode " << mode;
      EXPECT_TRUE(test::same_bytes(p, n))
          << g.height << "x" << g.width << " mode " << mode;
    }
  }
}
#endif

}  // namespace
}  // namespace qlis

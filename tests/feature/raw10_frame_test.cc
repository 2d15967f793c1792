#include "feature/raw10_frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/log.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"

namespace {

using qlis::test::Geometry;
using qlis::test::LogCapture;

constexpr double kSentinel = -777.25;

BlockFeatureSet sentinel_set() {
  BlockFeatureSet set;
  for (BlockFeature &b : set.block) {
    b = {kSentinel, kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
  }
  return set;
}

bool on_checkerboard(int k) { return (k / 8 + k % 8) % 2 == 0; }

// 64 x 128 pixels: 32 x 32 samples, blocks of 4 x 4 samples, except the
// last block row and column, which the clamp cuts to 2.
struct Frame {
  static constexpr int32_t kHeight = 64, kWidth = 128, kStride = 160;
  Frame() : bytes(kHeight * kStride) {
    std::mt19937 engine(5);
    qlis::test::fill_random(bytes.data(), bytes.size(), engine);
  }
  void set(int32_t i, int32_t g, uint8_t v) {
    qlis::test::set_raw10_sample(bytes.data(), kStride, i, g, v);
  }
  void fill(uint8_t v) {
    for (int32_t i = 0; i < 32; ++i) {
      for (int32_t g = 0; g < 32; ++g) set(i, g, v);
    }
  }
  uint64_t run(BlockFeatureSet &set, uint32_t mode) const {
    return calc_feature_quality_with_sub(&set, mode, bytes.data(), kHeight,
                                         kWidth, kStride);
  }
  std::vector<uint8_t> bytes;
};

struct ModeCase {
  uint32_t mode;
  int counted;
};

class Raw10FrameModes : public ::testing::TestWithParam<ModeCase> {};

TEST_P(Raw10FrameModes, LogsValidCountsAndLeavesReservedAlone) {
  Frame f;
  BlockFeatureSet set = sentinel_set();
  LogCapture log;
  f.run(set, GetParam().mode);
  const std::vector<std::string> expected = {
      "Vrel_calc_feature_quality_with_sub_start",
      "Vrel_valid_num:" + std::to_string(GetParam().counted),
      "Vrel_feature_valid_num_64"};
  EXPECT_EQ(log.texts(qlis::kTagAlgo), expected);
  for (const auto &line : log.lines()) EXPECT_EQ(line.priority, 6);
  for (const BlockFeature &b : set.block) EXPECT_EQ(b.reserved, kSentinel);
}

INSTANTIATE_TEST_SUITE_P(AllModes, Raw10FrameModes,
                         ::testing::Values(ModeCase{0, 64}, ModeCase{1, 0},
                                           ModeCase{2, 64}, ModeCase{7, 64}),
                         [](const ::testing::TestParamInfo<ModeCase> &info) {
                           return "Mode" + std::to_string(info.param.mode);
                         });

TEST(Raw10Frame, FlatGreyFrameScoresZeroWithoutDeviation) {
  Frame f;
  f.fill(128);
  BlockFeatureSet set = sentinel_set();
  EXPECT_EQ(f.run(set, 0), 0u);
  for (int k = 0; k < 64; ++k) {
    const BlockFeature &b = set.block[k];
    // Interior blocks hold 4 x 4 samples, the last row and column 4 x 2 or
    // 2 x 4, the corner 2 x 2.
    const int rows = k / 8 == 7 ? 2 : 4;
    const int cols = k % 8 == 7 ? 2 : 4;
    EXPECT_EQ(b.sample_sum, on_checkerboard(k) ? 128.0 * rows * cols : 0.0)
        << k;
    EXPECT_EQ(b.deviation_sum, 0.0) << k;
    EXPECT_EQ(b.variation, 0.0) << k;
    EXPECT_EQ(b.bright_ratio, 0.0) << k;
    EXPECT_EQ(b.dark_ratio, 0.0) << k;
  }
}

TEST(Raw10Frame, AllZeroFrameCarriesNaNVariationIntoEveryBlock) {
  Frame f;
  f.fill(0);
  BlockFeatureSet set = sentinel_set();
  EXPECT_EQ(f.run(set, 0), 0u);
  for (const BlockFeature &b : set.block) {
    EXPECT_TRUE(std::isnan(b.variation));
    EXPECT_EQ(b.dark_ratio, 1.0);
  }
}

TEST(Raw10Frame, StatisticsOnlyModeSkipsOffCheckerboardBlocks) {
  Frame f;
  BlockFeatureSet set = sentinel_set();
  EXPECT_EQ(f.run(set, 1), 0u);
  for (int k = 0; k < 64; ++k) {
    const BlockFeature &b = set.block[k];
    if (on_checkerboard(k)) {
      EXPECT_GT(b.sample_sum, 0.0) << k;
      EXPECT_NE(b.deviation_sum, kSentinel) << k;
      EXPECT_NE(b.variation, kSentinel) << k;
    } else {
      EXPECT_EQ(b.sample_sum, 0.0) << k;
      EXPECT_EQ(b.deviation_sum, kSentinel) << k;
      EXPECT_EQ(b.bright_ratio, kSentinel) << k;
      EXPECT_EQ(b.dark_ratio, kSentinel) << k;
      EXPECT_EQ(b.variation, kSentinel) << k;
    }
  }
}

// Block 0 alternates 10 and 30 (N = 16, sum 320, sum of squares 8000:
// deviation 1600, variation sqrt(100) / 20); block 1 is bright. Block 1
// computes only its gradient and shows block 0's deviation and variation
// next to its own fractions. Block 6 alternates 40 and 80 (sum 960, sum of
// squares 64,000: deviation 6400, variation sqrt(400) / 60).
TEST(Raw10Frame, GradientOnlyBlocksCarryTheLastStatistics) {
  Frame f;
  f.fill(100);
  for (int32_t i = 0; i < 4; ++i) {
    for (int32_t g = 0; g < 4; ++g) {
      f.set(i, g, (i + g) % 2 ? 30 : 10);
      f.set(i, g + 4, 200);
      f.set(i, g + 24, (i + g) % 2 ? 80 : 40);
    }
  }
  BlockFeatureSet set = sentinel_set();
  f.run(set, 0);
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
}

TEST(Raw10Frame, GradientOnlyModeRecordsFractionsOnly) {
  Frame f;
  f.fill(100);
  for (int32_t i = 0; i < 4; ++i) {
    for (int32_t g = 0; g < 4; ++g) f.set(i, g, (i + g) % 2 ? 30 : 200);
  }
  BlockFeatureSet set = sentinel_set();
  f.run(set, 2);
  for (const BlockFeature &b : set.block) {
    EXPECT_EQ(b.sample_sum, 0.0);
    EXPECT_EQ(b.deviation_sum, 0.0);
    EXPECT_EQ(b.variation, 0.0);
  }
  EXPECT_EQ(set.block[0].bright_ratio, 0.5);
  EXPECT_EQ(set.block[0].dark_ratio, 0.5);
  EXPECT_EQ(set.block[9].bright_ratio, 0.0);
}

// One bright sample at (13, 13) of a black frame, in block (3, 3) of
// weight 4 x 4: its own energy 2 x 255^2 and one 255^2 for each of its
// left and upper neighbours. w = 260,100 x 16 / 400 = 10,404, the only
// nonzero weight. mean 10,404 / 64 = 162, mean of squares
// 10,404^2 / 64 = 1,691,300; spread (1,691,300 - 162^2) / 10,000 = 166.
TEST(Raw10Frame, FrameValueIsSpreadTimesWeightedSum) {
  Frame f;
  f.fill(0);
  f.set(13, 13, 255);
  BlockFeatureSet set = sentinel_set();
  EXPECT_EQ(f.run(set, 0), 166u * 10404u);
  EXPECT_EQ(f.run(set, 2), 166u * 10404u);
  EXPECT_EQ(f.run(set, 1), 0u);
}

// Blocks of 130 x 130 samples of a 0/255 checkerboard: every energy wraps
// to a negative 32-bit value (the last row and column keep 128 samples,
// the corner block stays positive), so the weighted sum is negative and
// the frame value is formed from its unsigned bits.
TEST(Raw10Frame, WrappedNegativeEnergiesFollowUnsignedArithmetic) {
  const Geometry g{2080, 4160, 5200};
  qlis::test::PageEndBuffer frame(static_cast<size_t>(g.height) * g.stride);
  for (int32_t i = 0; i < g.height / 2; ++i) {
    for (int32_t k = 0; k < g.width / 4; ++k) {
      qlis::test::set_raw10_sample(frame.data(), g.stride, i, k,
                                   (i + k) % 2 ? 255 : 0);
    }
  }
  uint64_t sum = 0;
  uint64_t squares = 0;
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      const uint32_t samples = (r == 7 ? 128u : 130u) * (c == 7 ? 128u : 130u);
      const uint32_t energy = samples * 130050u;  // wraps
      const uint32_t weight = static_cast<uint32_t>((r <= 3 ? r + 1 : 8 - r) *
                                                    (c <= 3 ? c + 1 : 8 - c));
      const int64_t w = static_cast<int32_t>(energy * weight) / 400;
      sum += static_cast<uint64_t>(w);
      squares += static_cast<uint64_t>(w * w);
    }
  }
  ASSERT_GT(sum, uint64_t{1} << 63);  // negative as a signed sum
  const uint64_t mean = sum / 64;
  const uint64_t spread = (squares / 64 - mean * mean) / 10000;
  BlockFeatureSet set = sentinel_set();
  EXPECT_EQ(calc_feature_quality_with_sub(&set, 0, frame.data(), g.height,
                                          g.width, g.stride),
            spread * sum);
}

TEST(Raw10Frame, FramesBelowEightPixelsHaveOnlyEmptyBlocks) {
  for (const Geometry g :
       {Geometry{0, 0, 0}, Geometry{7, 64, 80}, Geometry{64, 4, 5}}) {
    const qlis::test::RandomFrame frame(g, 3);
    for (uint32_t mode : {0u, 1u, 2u}) {
      BlockFeatureSet set = sentinel_set();
      EXPECT_EQ(calc_feature_quality_with_sub(&set, mode, frame.data(),
                                              g.height, g.width, g.stride),
                0u);
      for (int k = 0; k < 64; ++k) {
        const BlockFeature &b = set.block[k];
        EXPECT_EQ(b.sample_sum, 0.0);
        if (mode == 1 && !on_checkerboard(k)) continue;
        EXPECT_EQ(b.deviation_sum, 0.0);
        EXPECT_EQ(b.variation, 0.0);
        EXPECT_EQ(b.bright_ratio, 0.0);
        EXPECT_EQ(b.dark_ratio, 0.0);
      }
    }
  }
}

#if QLIS_HAVE_NEON
TEST(Raw10FrameTwins, NeonMatchesPortableInEveryMode) {
  std::vector<Geometry> geometries = qlis::test::awkward_raw10_geometries();
  geometries.push_back({600, 1000, 1250});
  geometries.push_back({1200, 1600, 2003});
  for (const Geometry &g : geometries) {
    const qlis::test::RandomFrame frame(g, 40 + g.height);
    for (uint32_t mode : {0u, 1u, 2u}) {
      BlockFeatureSet portable = sentinel_set();
      BlockFeatureSet neon = sentinel_set();
      const uint64_t p = qlis::raw10_frame_features(
          &portable, mode, frame.data(), g.height, g.width, g.stride,
          &qlis::portable::raw10_block_features);
      const uint64_t n = qlis::raw10_frame_features(
          &neon, mode, frame.data(), g.height, g.width, g.stride,
          &qlis::neon::raw10_block_features);
      EXPECT_EQ(p, n) << g.height << "x" << g.width << " mode " << mode;
      EXPECT_EQ(0, std::memcmp(&portable, &neon, sizeof(BlockFeatureSet)))
          << g.height << "x" << g.width << " mode " << mode;
    }
  }
}
#endif

}  // namespace

#include "feature/low_light_frame.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis {
namespace {

using test::Geometry;
using test::same_bytes;

constexpr int32_t kBlocks = 64;
using Histograms = std::vector<DiffHistogram>;

// Histograms as a caller may hand them over: never cleared.
Histograms noise_histograms(uint32_t seed) {
  Histograms hists(kBlocks);
  std::mt19937 engine(seed);
  for (DiffHistogram &h : hists) {
    for (int32_t &c : h.count) c = static_cast<int32_t>(engine() >> 8);
  }
  return hists;
}

struct DriverRun {
  BlockFeatureSet features = test::unwritten_records();
  Histograms hists;
  uint64_t value = 0;
};

// Runs the exported entry point with histograms preset to seeded noise.
DriverRun drive(const uint8_t *data, Geometry g, uint32_t mode, uint32_t seed) {
  DriverRun out;
  out.hists = noise_histograms(seed);
  out.value = calc_feature_quality_with_sub_low_light(
      &out.features, out.hists.data(), mode, data, g.height, g.width, g.stride);
  return out;
}

// 80 x 160: blocks of 10 rows (row pairs 5r .. 5r + 4, visited 5r, 5r + 2,
// 5r + 4) and 20 columns (groups 5c .. 5c + 4); the last block row keeps
// row pairs 35..37 (visited 35, 37) and the last column groups 35..37.
// Mode 1 computes statistics only, 2 histograms only.
TEST(LowLightFrame, FlatFrameCountsThreeZeroDifferencesPerVisitedSample) {
  const test::PackedFrame flat({80, 160, 200}, 100);
  const Histograms preset = noise_histograms(7);
  for (uint32_t mode : {0u, 1u, 2u}) {
    const DriverRun got = drive(flat.data(), flat.geometry(), mode, 7);
    EXPECT_EQ(got.value, 0u) << mode;  // no empty block
    for (int32_t b = 0; b < kBlocks; ++b) {
      const int32_t n = (b / 8 == 7 ? 2 : 3) * (b % 8 == 7 ? 3 : 5);
      DiffHistogram want = preset[b];
      if (mode != 1) want.count[0] += 3 * n;
      ASSERT_TRUE(same_bytes(got.hists[b], want))
          << "block " << b << " mode " << mode;
      const BlockFeature &f = got.features.block[b];
      EXPECT_TRUE(test::same_fields(
          f, {mode == 2 ? 0.0 : 100.0, 0.0,
              mode == 2 ? 0.0 : (n * 1e4 - 1e4) * n, 0.0, 0.0, 0.0}))
          << "block " << b << " mode " << mode;
    }
  }
}

// A frame of 24 x 64: block row 7 (row pairs 10..12 clamped to 10..10) and
// block column 7 (groups 14..16 clamped to 14..14) are empty. Their -1
// results are recorded, weighted 4 to 7 by row and by column, and taken
// from the sum with the spread: S = -4 * 44 - 4 * 40 = -336, worked out apart from the
// library. Statistics only (mode 1) returns 0 with the same records.
TEST(LowLightFrame, EmptyBlocksRecordMinusOneAndWeighAgainstTheSum) {
  const test::RandomFrame frame({24, 64, 80}, 5);
  const DriverRun full = drive(frame.data(), frame.geometry(), 0, 1);
  EXPECT_EQ(full.value, 0xfffffffcfffffeb0u);
  EXPECT_EQ(drive(frame.data(), frame.geometry(), 2, 1).value,
            0xfffffffcfffffeb0u);
  const DriverRun stats = drive(frame.data(), frame.geometry(), 1, 1);
  EXPECT_EQ(stats.value, 0u);
  EXPECT_TRUE(same_bytes(stats.features, full.features));
  for (int32_t b = 0; b < kBlocks; ++b) {
    const BlockFeature &f = full.features.block[b];
    const bool empty = b / 8 == 7 || b % 8 == 7;
    EXPECT_EQ(f.reserved, empty ? -1.0 : 0.0) << b;
    if (empty) {
      EXPECT_TRUE(f.sample_sum == 0.0 && f.deviation_sum == 0.0);
      // An empty block leaves the fractions and the variation as the
      // block before it left them.
      const BlockFeature &prev = full.features.block[b - 1];
      EXPECT_EQ(std::memcmp(&f.bright_ratio, &prev.bright_ratio,
                            3 * sizeof(double)),
                0)
          << b;
    }
  }
}

// Below 8 rows or columns every block is empty: S = -44 * 44 = -1936,
// Q = 252^2, mean = 2^58 - 31, mean^2 = 2^59 + 961 (mod 2^64), so the
// value is 2^64 - 1936 - ((2^64 - 2^59 + 31) >> 28).
TEST(LowLightFrame, FrameBelowTheGridHasTheValueOfSixtyFourEmptyBlocks) {
  const test::PackedFrame flat({4, 4, 5}, 1);
  EXPECT_EQ(drive(flat.data(), flat.geometry(), 0, 2).value,
            0xfffffff07ffff870u);
}

}  // namespace
}  // namespace qlis

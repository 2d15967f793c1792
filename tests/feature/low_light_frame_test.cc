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

// The frame value as the block results e define it, written out apart from
// the driver: weights 4 5 6 7 7 5 6 4 by row and column, 64-bit wrapping.
uint64_t frame_value_of(const std::vector<int64_t> &e) {
  const uint64_t w[8] = {4, 5, 6, 7, 7, 5, 6, 4};
  uint64_t s = 0;
  uint64_t q = 0;
  for (int b = 0; b < kBlocks; ++b) {
    const uint64_t v = static_cast<uint64_t>(e[b]) * w[b / 8] * w[b % 8];
    s += v;
    q += v * v;
  }
  const uint64_t mean = s / kBlocks;
  const uint64_t spread = q / kBlocks - mean * mean;
  return s - (spread >> 28);
}

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

// Runs the exported entry point, or the driver over one twin, with
// histograms preset to seeded noise.
DriverRun drive(const uint8_t *data, Geometry g, uint32_t mode, uint32_t seed,
                LowLightBlockExtractor twin = nullptr) {
  DriverRun out;
  out.hists = noise_histograms(seed);
  out.value = twin == nullptr ? calc_feature_quality_with_sub_low_light(
                                    &out.features, out.hists.data(), mode, data,
                                    g.height, g.width, g.stride)
                              : low_light_frame_features(
                                    &out.features, out.hists.data(), mode, data,
                                    g.height, g.width, g.stride, twin);
  return out;
}

// 80 x 160: blocks of 10 rows (row pairs 5r .. 5r + 4, visited 5r, 5r + 2,
// 5r + 4) and 20 columns (groups 5c .. 5c + 4); the last block row keeps
// row pairs 35..37 (visited 35, 37) and the last column groups 35..37.
// Mode 1 computes statistics only, 2 histograms only.
TEST(LowLightFrame, FlatFrameCountsThreeZeroDifferencesPerVisitedSample) {
  const test::PackedFrame flat({80, 160, 200}, 100);
  const Histograms preset = noise_histograms(7);
  for (uint32_t mode : {0u, 1u, 2u, 9u}) {
    const DriverRun got = drive(flat.data(), flat.geometry(), mode, 7);
    EXPECT_EQ(got.value, 0u) << mode;  // no empty block
    for (int32_t b = 0; b < kBlocks; ++b) {
      const int32_t n = (b / 8 == 7 ? 2 : 3) * (b % 8 == 7 ? 3 : 5);
      DiffHistogram want = preset[b];
      if (mode != 1) want.count[0] += 3 * n;
      ASSERT_TRUE(same_bytes(got.hists[b], want))
          << "block " << b << " mode " << mode;
      const BlockFeature &f = got.features.block[b];
      EXPECT_EQ(f.reserved, 0.0);
      EXPECT_EQ(f.sample_sum, mode == 2 ? 0.0 : 100.0);
      EXPECT_EQ(f.deviation_sum, mode == 2 ? 0.0 : (n * 1e4 - 1e4) * n);
      EXPECT_EQ(f.bright_ratio, 0.0);
      EXPECT_EQ(f.dark_ratio, 0.0);
      EXPECT_EQ(f.variation, 0.0);
    }
  }
}

// A frame of 24 x 64: block row 7 (row pairs 10..12 clamped to 10..10) and
// block column 7 (groups 14..16 clamped to 14..14) are empty. Statistics
// only (mode 1) returns 0 with the same records.
TEST(LowLightFrame, EmptyBlocksRecordMinusOneAndWeighAgainstTheSum) {
  const test::RandomFrame frame({24, 64, 80}, 5);
  std::vector<int64_t> e(kBlocks, 0);
  for (int32_t b = 0; b < kBlocks; ++b) {
    if (b / 8 == 7 || b % 8 == 7) e[b] = -1;
  }
  const DriverRun full = drive(frame.data(), frame.geometry(), 0, 1);
  for (uint32_t mode : {0u, 2u, 3u, 1u}) {
    const DriverRun got = drive(frame.data(), frame.geometry(), mode, 1);
    EXPECT_EQ(got.value, mode == 1 ? 0u : frame_value_of(e)) << mode;
    if (mode == 1) {
      EXPECT_TRUE(same_bytes(got.features, full.features));
    }
    for (int32_t b = 0; b < kBlocks; ++b) {
      const BlockFeature &f = got.features.block[b];
      EXPECT_EQ(f.reserved, static_cast<double>(e[b])) << b;
      if (e[b] != 0) {
        EXPECT_EQ(f.sample_sum, 0.0);
        EXPECT_EQ(f.deviation_sum, 0.0);
        // An empty block leaves the fractions and the variation as the
        // block before it left them.
        const BlockFeature &prev = got.features.block[b - 1];
        EXPECT_EQ(std::memcmp(&f.bright_ratio, &prev.bright_ratio,
                              3 * sizeof(double)),
                  0)
            << b;
      }
    }
  }
}

// Below 8 rows or columns every block is empty: S = -44 * 44 = -1936,
// Q = 252^2, mean = 2^58 - 31, mean^2 = 2^59 + 961 (mod 2^64), so the
// value is 2^64 - 1936 - ((2^64 - 2^59 + 31) >> 28).
TEST(LowLightFrame, FrameBelowTheGridHasTheValueOfSixtyFourEmptyBlocks) {
  const test::PackedFrame flat({4, 4, 5}, 1);
  const uint64_t want = 0xfffffff07ffff870u;
  EXPECT_EQ(drive(flat.data(), flat.geometry(), 0, 2).value, want);
  EXPECT_EQ(drive(flat.data(), flat.geometry(), 2, 2).value, want);
  EXPECT_EQ(frame_value_of(std::vector<int64_t>(kBlocks, -1)), want);
}

#if QLIS_HAVE_NEON
bool same(const Histograms &a, const Histograms &b) {
  return std::memcmp(a.data(), b.data(), kBlocks * sizeof(DiffHistogram)) == 0;
}

TEST(LowLightFrameTwins, NeonMatchesPortableOnWholeFrames) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.push_back({600, 1000, 1250});
  geometries.push_back({64, 8400, 10600});  // rows of several spans
  uint32_t seed = 100;
  for (const Geometry &g : geometries) {
    const test::RandomFrame frame(g, seed++);
    for (uint32_t mode : {0u, 1u, 2u, 7u}) {
      SCOPED_TRACE(::testing::Message()
                   << g.height << "x" << g.width << " stride " << g.stride
                   << " mode " << mode);
      const DriverRun a = drive(frame.data(), g, mode, seed,
                                &portable::low_light_block_features);
      const DriverRun b =
          drive(frame.data(), g, mode, seed, &neon::low_light_block_features);
      EXPECT_EQ(a.value, b.value);
      EXPECT_TRUE(same_bytes(a.features, b.features));
      EXPECT_TRUE(same(a.hists, b.hists));
    }
  }
}
#endif

}  // namespace
}  // namespace qlis

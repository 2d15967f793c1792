#include "feature/low_light_frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis {
namespace {

using test::Geometry;

constexpr int32_t kBlocks = 64;

// The frame value as the block results e define it, written out apart from
// the driver: weights 4 5 6 7 7 5 6 4 by row and column, 64-bit wrapping.
uint64_t frame_value_of(const std::vector<int64_t> &e, uint64_t n) {
  const uint64_t w[8] = {4, 5, 6, 7, 7, 5, 6, 4};
  uint64_t s = 0;
  uint64_t q = 0;
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      const uint64_t v = static_cast<uint64_t>(e[8 * r + c]) * w[r] * w[c];
      s += v;
      q += v * v;
    }
  }
  const uint64_t mean = s / n;
  const uint64_t spread = q / n - mean * mean;
  return s - (spread >> 28);
}

struct DriverRun {
  BlockFeatureSet features;
  std::vector<DiffHistogram> hists = std::vector<DiffHistogram>(kBlocks);
  uint64_t value = 0;
};

// Histograms as a caller may hand them over: never cleared.
std::vector<DiffHistogram> noise_histograms(uint32_t seed) {
  std::vector<DiffHistogram> hists(kBlocks);
  std::mt19937 engine(seed);
  for (DiffHistogram &h : hists) {
    for (int32_t &c : h.count) c = static_cast<int32_t>(engine() >> 8);
  }
  return hists;
}

// Runs the driver with histograms preset to seeded noise and records
// preset to a pattern no block produces.
DriverRun drive(
    const uint8_t *data, Geometry g, uint32_t mode, uint32_t seed,
    LowLightBlockExtractor extractor = kernels::low_light_block_features) {
  DriverRun out;
  std::memset(&out.features, 0x5a, sizeof(out.features));
  out.hists = noise_histograms(seed);
  out.value =
      low_light_frame_features(&out.features, out.hists.data(), mode, data,
                               g.height, g.width, g.stride, extractor);
  return out;
}

struct Flat {
  explicit Flat(Geometry g, uint8_t v)
      : geometry(g), buffer(static_cast<size_t>(g.height) * g.stride) {
    std::memset(buffer.data(), v, buffer.size());
  }
  Geometry geometry;
  test::PageEndBuffer buffer;
};

// 80 x 160: blocks of 10 rows (row pairs 5r .. 5r + 4, visited 5r, 5r + 2,
// 5r + 4) and 20 columns (groups 5c .. 5c + 4); the last block row keeps
// row pairs 35..37 (visited 35, 37) and the last column groups 35..37.
TEST(LowLightFrame, FlatFrameCountsThreeZeroDifferencesPerVisitedSample) {
  const Flat flat({80, 160, 200}, 100);
  const std::vector<DiffHistogram> preset = noise_histograms(7);
  for (uint32_t mode : {0u, 2u, 9u}) {
    const DriverRun got = drive(flat.buffer.data(), flat.geometry, mode, 7);
    EXPECT_EQ(got.value, 0u) << mode;  // no empty block
    for (int32_t b = 0; b < kBlocks; ++b) {
      const int32_t rows = b / 8 == 7 ? 2 : 3;
      const int32_t groups = b % 8 == 7 ? 3 : 5;
      const int32_t n = rows * groups;
      DiffHistogram want = preset[b];
      want.count[0] += 3 * n;
      ASSERT_EQ(std::memcmp(&got.hists[b], &want, sizeof(want)), 0)
          << "block " << b << " mode " << mode;
      const BlockFeature &f = got.features.block[b];
      EXPECT_EQ(f.reserved, 0.0);
      if (mode == 2) {
        EXPECT_EQ(f.sample_sum, 0.0);
        EXPECT_EQ(f.deviation_sum, 0.0);
      } else {
        EXPECT_EQ(f.sample_sum, 100.0);
        EXPECT_EQ(f.deviation_sum, (n * 1e4 - 1e4) * n);
      }
      EXPECT_EQ(f.bright_ratio, 0.0);
      EXPECT_EQ(f.dark_ratio, 0.0);
      EXPECT_EQ(f.variation, 0.0);
    }
  }
}

TEST(LowLightFrame, StatisticsOnlyReturnsZeroAndLeavesHistogramsUntouched) {
  test::RandomFrame frame({96, 132, 165}, 3);
  const DriverRun stats = drive(frame.data(), frame.geometry(), 1, 11);
  const std::vector<DiffHistogram> preset = noise_histograms(11);
  EXPECT_EQ(stats.value, 0u);
  EXPECT_EQ(std::memcmp(stats.hists.data(), preset.data(),
                        kBlocks * sizeof(DiffHistogram)),
            0);
  // The statistics are those of the full computation.
  const DriverRun full = drive(frame.data(), frame.geometry(), 0, 11);
  EXPECT_EQ(std::memcmp(&stats.features, &full.features, sizeof(full.features)),
            0);
}

// A frame of 24 x 64: block row 7 (row pairs 10..12 clamped to 10..10) and
// block column 7 (groups 14..16 clamped to 14..14) are empty.
TEST(LowLightFrame, EmptyBlocksRecordMinusOneAndWeighAgainstTheSum) {
  test::RandomFrame frame({24, 64, 80}, 5);
  std::vector<int64_t> e(kBlocks, 0);
  for (int32_t b = 0; b < kBlocks; ++b) {
    if (b / 8 == 7 || b % 8 == 7) e[b] = -1;
  }
  for (uint32_t mode : {0u, 2u, 3u}) {
    const DriverRun got = drive(frame.data(), frame.geometry(), mode, 1);
    EXPECT_EQ(got.value, frame_value_of(e, 64)) << mode;
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
  EXPECT_EQ(drive(frame.data(), frame.geometry(), 1, 1).value, 0u);
}

// Below 8 rows or columns every block is empty: S = -44 * 44 = -1936,
// Q = 252^2, mean = 2^58 - 31, mean^2 = 2^59 + 961 (mod 2^64), so the
// value is 2^64 - 1936 - ((2^64 - 2^59 + 31) >> 28).
TEST(LowLightFrame, FrameBelowTheGridHasTheValueOfSixtyFourEmptyBlocks) {
  const Flat flat({4, 4, 5}, 1);
  const uint64_t want = 0xfffffff07ffff870u;
  EXPECT_EQ(drive(flat.buffer.data(), flat.geometry, 0, 2).value, want);
  EXPECT_EQ(drive(flat.buffer.data(), flat.geometry, 2, 2).value, want);
  EXPECT_EQ(frame_value_of(std::vector<int64_t>(kBlocks, -1), 64), want);
}

TEST(LowLightFrame, ExportedEntryPointsMatchTheDriver) {
  test::RandomFrame frame({177, 340, 425}, 12);
  const Geometry g = frame.geometry();
  const DriverRun want = drive(frame.data(), g, 0, 6);
  DriverRun got;
  got.hists = noise_histograms(6);
  std::memset(&got.features, 0x5a, sizeof(got.features));
  EXPECT_EQ(calc_feature_quality_with_sub_low_light(
                &got.features, got.hists.data(), 0, frame.data(), g.height,
                g.width, g.stride),
            want.value);
  EXPECT_EQ(std::memcmp(&got.features, &want.features, sizeof(want.features)),
            0);
  EXPECT_EQ(std::memcmp(got.hists.data(), want.hists.data(),
                        kBlocks * sizeof(DiffHistogram)),
            0);

  double out[5] = {};
  DiffHistogram hist = {};
  EXPECT_EQ(
      image_feature_quality_for_raw_10bit_continuous_2_low_light_4(
          &out[0], &out[1], &out[2], &out[3], &out[4], &hist, frame.data(), 0,
          g.height >> 3, 0, g.width >> 3, 1, g.height, g.width, g.stride, 1, 1),
      0);
  EXPECT_EQ(out[0], want.features.block[0].sample_sum);
  EXPECT_EQ(out[2], want.features.block[0].variation);
}

#if QLIS_HAVE_NEON
TEST(LowLightFrameTwins, NeonMatchesPortableOnWholeFrames) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.push_back({600, 1000, 1250});
  geometries.push_back({64, 8400, 10600});  // rows of several spans
  uint32_t seed = 100;
  for (const Geometry &g : geometries) {
    test::RandomFrame frame(g, seed++);
    for (uint32_t mode : {0u, 1u, 2u, 7u}) {
      SCOPED_TRACE(::testing::Message()
                   << g.height << "x" << g.width << " stride " << g.stride
                   << " mode " << mode);
      const DriverRun a = drive(frame.data(), g, mode, seed,
                                &portable::low_light_block_features);
      const DriverRun b =
          drive(frame.data(), g, mode, seed, &neon::low_light_block_features);
      EXPECT_EQ(a.value, b.value);
      EXPECT_EQ(std::memcmp(&a.features, &b.features, sizeof(a.features)), 0);
      EXPECT_EQ(std::memcmp(a.hists.data(), b.hists.data(),
                            kBlocks * sizeof(DiffHistogram)),
                0);
    }
  }
}
#endif

}  // namespace
}  // namespace qlis

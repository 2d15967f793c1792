#include "feature/yuv_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis::test {
namespace {

// The frame value written out plainly: clamped blocks, samples every fourth
// byte of every fourth row, sums wrapping at 64 bits.
uint64_t reference_value(const uint8_t *d, Geometry g, double sums[64]) {
  const int32_t bh = g.height / 8, bw = g.width / 8;
  uint64_t weighted[64];
  for (int k = 0; k < 64; ++k) {
    const int32_t r0 = k / 8 * bh, c0 = k % 8 * bw;
    const int32_t r1 = std::min(r0 + bh, g.height - 2);
    const int32_t c1 = std::min(c0 + bw, g.width - 2);
    uint64_t sum = 0, energy = 0;
    if (r1 <= r0 || c1 <= c0) {
      energy = UINT64_MAX;
    } else {
      for (int32_t y = r0; y < r1; y += 4) {
        for (int32_t x = c0; x < c1; x += 4) {
          const uint8_t *p = d + y * g.stride + x;
          const int dh = p[1] - p[0], dv = p[g.stride] - p[0];
          sum += p[0];
          energy += static_cast<uint64_t>(dh * dh + dv * dv);
        }
      }
    }
    sums[k] = on_checkerboard(k) ? static_cast<double>(sum) : 0.0;
    weighted[k] = energy * kBlockWeight[k % 8] * kBlockWeight[k / 8] / 400;
  }
  return spread_times_sum(weighted);
}

uint64_t run_yuv(BlockFeatureSet &set, const uint8_t *data, Geometry g) {
  set = unwritten_records();
  return calc_feature_quality_with_sub_yuv(&set, data, g.height, g.width,
                                           g.stride);
}

// 64 x 64 with padding of another value that must never be read: four
// samples per block (the last row and column of blocks lose their third
// sample to the edge clamp either way).
TEST(YuvFrame, FlatFrameHasNoGradientAndChecksOnlyItsBlocks) {
  std::vector<uint8_t> frame(64 * 70, 7);
  for (int y = 0; y < 64; ++y) std::memset(&frame[y * 70], 100, 64);
  BlockFeatureSet set;
  EXPECT_EQ(run_yuv(set, frame.data(), {64, 64, 70}), 0u);
  for (int k = 0; k < 64; ++k) {
    EXPECT_EQ(set.block[k].sample_sum, on_checkerboard(k) ? 400.0 : 0.0) << k;
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

const Geometry kFrames[] = {
    {4, 7, 7},  // every block empty: all energies are all-ones
    {8, 8, 8},       {16, 16, 16},    {23, 45, 48},    {64, 64, 64},
    {100, 130, 131}, {135, 257, 260}, {240, 320, 320},
};

// Only field 0 is written: block sums on the checkerboard, 0.0 elsewhere.
TEST(YuvFrame, MatchesPlainReferenceAndBothNamesAgree) {
  for (const Geometry &g : kFrames) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const RandomFrame frame(g, static_cast<uint32_t>(g.width));
    double sums[64];
    const uint64_t expected = reference_value(frame.data(), g, sums);
    BlockFeatureSet yuv, yuyv = unwritten_records();
    EXPECT_EQ(run_yuv(yuv, frame.data(), g), expected);
    EXPECT_EQ(calc_feature_quality_with_sub_yuyv(&yuyv, frame.data(), g.height,
                                                 g.width, g.stride),
              expected);
    for (int k = 0; k < 64; ++k) {
      EXPECT_TRUE(
          same_fields(yuv.block[k], {sums[k], kUnwritten, kUnwritten,
                                     kUnwritten, kUnwritten, kUnwritten}))
          << k;
    }
    EXPECT_TRUE(same_bytes(yuv, yuyv));
  }
}

#if QLIS_HAVE_NEON
TEST(YuvFrameTwins, NeonDriverMatchesPortableOnPageEndFrames) {
  std::vector<Geometry> frames(std::begin(kFrames), std::end(kFrames));
  frames.insert(frames.end(), {{17, 66, 66},
                               {33, 130, 133},
                               {480, 640, 640},
                               {270, 1922, 1922},
                               {1080, 1920, 1920}});
  for (const Geometry &g : frames) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const RandomFrame frame(g, 11u + static_cast<uint32_t>(g.height));
    BlockFeatureSet p = unwritten_records(), n = unwritten_records();
    const uint64_t vp =
        yuv_frame_features(&p, frame.data(), g.height, g.width, g.stride,
                           portable::yuv_block_features);
    const uint64_t vn = yuv_frame_features(&n, frame.data(), g.height, g.width,
                                           g.stride, neon::yuv_block_features);
    EXPECT_EQ(vn, vp);
    EXPECT_TRUE(same_bytes(n, p));
  }
}
#endif

}  // namespace
}  // namespace qlis::test

#include "feature/yuv_frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace qlis::test {
namespace {

constexpr uint64_t kFieldSentinel = 0x7ff4dead0000beefull;  // a NaN pattern

void prefill(BlockFeatureSet &set) {
  for (BlockFeature &b : set.block) {
    for (double *f : {&b.sample_sum, &b.reserved, &b.deviation_sum,
                      &b.bright_ratio, &b.dark_ratio, &b.variation}) {
      std::memcpy(f, &kFieldSentinel, sizeof(double));
    }
  }
}

uint64_t bits(double d) {
  uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return u;
}

bool on_checkerboard(int i) { return (i / 8 + i % 8) % 2 == 0; }

// The frame value written out plainly: clamped blocks, samples every fourth
// byte of every fourth row, weights 1..4..1, sums wrapping at 64 bits.
uint64_t reference_value(const uint8_t *d, int32_t h, int32_t w, int32_t stride,
                         double sums[64]) {
  static const uint64_t kWeight[8] = {1, 2, 3, 4, 4, 3, 2, 1};
  const int32_t bh = h / 8, bw = w / 8;
  uint64_t s_total = 0, q_total = 0;
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      const int32_t r0 = r * bh, c0 = c * bw;
      int32_t r1 = r0 + bh, c1 = c0 + bw;
      if (r1 + 1 >= h) r1 = h - 2;
      if (c1 + 1 >= w) c1 = w - 2;
      uint64_t sum = 0, energy = 0;
      if (r1 <= r0 || c1 <= c0) {
        energy = UINT64_MAX;
      } else {
        for (int32_t y = r0; y < r1; y += 4) {
          for (int32_t x = c0; x < c1; x += 4) {
            const int s = d[y * stride + x];
            const int dh = d[y * stride + x + 1] - s;
            const int dv = d[(y + 1) * stride + x] - s;
            sum += s;
            energy += static_cast<uint64_t>(dh * dh + dv * dv);
          }
        }
      }
      sums[8 * r + c] =
          on_checkerboard(8 * r + c) ? static_cast<double>(sum) : 0.0;
      const uint64_t weighted = energy * kWeight[c] * kWeight[r] / 400;
      s_total += weighted;
      q_total += weighted * weighted;
    }
  }
  const uint64_t mean = s_total / 64;
  return ((q_total / 64 - mean * mean) / 10000) * s_total;
}

TEST(YuvFrame, FlatFrameHasNoGradientAndChecksOnlyItsBlocks) {
  // 64 x 64 with padding of another value that must never be read: four
  // samples per block (the last row and column of blocks lose their third
  // sample to the edge clamp either way).
  const int32_t kStride = 70;
  std::vector<uint8_t> frame(64 * kStride, 7);
  for (int y = 0; y < 64; ++y) std::memset(&frame[y * kStride], 100, 64);
  BlockFeatureSet set;
  prefill(set);
  EXPECT_EQ(
      calc_feature_quality_with_sub_yuv(&set, frame.data(), 64, 64, kStride),
      0u);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(bits(set.block[i].sample_sum),
              bits(on_checkerboard(i) ? 400.0 : 0.0))
        << "block " << i;
  }
}

TEST(YuvFrame, WritesOnlySampleSum) {
  const RandomFrame frame({96, 160, 168}, 3);
  BlockFeatureSet set;
  prefill(set);
  calc_feature_quality_with_sub_yuv(&set, frame.data(), 96, 160, 168);
  for (int i = 0; i < 64; ++i) {
    const BlockFeature &b = set.block[i];
    if (!on_checkerboard(i)) {
      EXPECT_EQ(bits(b.sample_sum), 0u) << "block " << i;
    }
    for (double f : {b.reserved, b.deviation_sum, b.bright_ratio, b.dark_ratio,
                     b.variation}) {
      EXPECT_EQ(bits(f), kFieldSentinel) << "block " << i;
    }
  }
}

TEST(YuvFrame, YuyvGradientMixesLumaAndChroma) {
  // 32 pixels of Y 200, U 50, V 90 per row: 64 bytes. Blocks start on
  // multiples of 8 bytes, so every sample is a Y0 whose right neighbour is U:
  // 150^2 per sample, 4 samples, e = 90000 per block. Weighted: 225 wc wr,
  // S = 225 * 20 * 20 = 90000, Q = 225^2 * 60^2 = 182250000;
  // (Q / 64 - (S / 64)^2) / 10000 = (2847656 - 1406^2) / 10000 = 87.
  const uint8_t kPair[4] = {200, 50, 200, 90};
  std::vector<uint8_t> frame(64 * 64);
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = kPair[i % 4];
  BlockFeatureSet yuyv, yuv;
  prefill(yuyv);
  prefill(yuv);
  const uint64_t v_yuyv =
      calc_feature_quality_with_sub_yuyv(&yuyv, frame.data(), 64, 64, 64);
  const uint64_t v_yuv =
      calc_feature_quality_with_sub_yuv(&yuv, frame.data(), 64, 64, 64);
  EXPECT_EQ(v_yuyv, 87u * 90000u);
  EXPECT_EQ(v_yuv, v_yuyv);
  EXPECT_EQ(std::memcmp(&yuyv, &yuv, sizeof yuv), 0);
  EXPECT_EQ(yuyv.block[0].sample_sum, 800.0);
}

const Geometry kFrames[] = {
    {4, 7, 7},  // every block empty: all energies are all-ones
    {8, 8, 8},       {16, 16, 16},    {23, 45, 48},    {64, 64, 64},
    {100, 130, 131}, {135, 257, 260}, {240, 320, 320},
};

TEST(YuvFrame, MatchesPlainReferenceAndBothNamesAgree) {
  for (const Geometry &g : kFrames) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const RandomFrame frame(g, static_cast<uint32_t>(g.width));
    double expected_sums[64];
    const uint64_t expected = reference_value(frame.data(), g.height, g.width,
                                              g.stride, expected_sums);
    BlockFeatureSet yuv, yuyv;
    prefill(yuv);
    prefill(yuyv);
    EXPECT_EQ(calc_feature_quality_with_sub_yuv(&yuv, frame.data(), g.height,
                                                g.width, g.stride),
              expected);
    EXPECT_EQ(calc_feature_quality_with_sub_yuyv(&yuyv, frame.data(), g.height,
                                                 g.width, g.stride),
              expected);
    for (int i = 0; i < 64; ++i) {
      EXPECT_EQ(bits(yuv.block[i].sample_sum), bits(expected_sums[i])) << i;
    }
    EXPECT_EQ(std::memcmp(&yuv, &yuyv, sizeof yuv), 0);
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
    BlockFeatureSet p, n;
    prefill(p);
    prefill(n);
    const uint64_t vp =
        yuv_frame_features(&p, frame.data(), g.height, g.width, g.stride,
                           portable::yuv_block_features);
    const uint64_t vn = yuv_frame_features(&n, frame.data(), g.height, g.width,
                                           g.stride, neon::yuv_block_features);
    EXPECT_EQ(vn, vp);
    EXPECT_EQ(std::memcmp(&n, &p, sizeof p), 0);
  }
}
#endif

}  // namespace
}  // namespace qlis::test

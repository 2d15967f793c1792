#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "feature/feature_frames.h"
#include "support/host_hooks.h"

namespace qlis {
namespace {

using test::BlockRect;
using test::Geometry;
using test::Noise;
using test::PackedFrame;

constexpr uint64_t kUntouchedCount = 0x5A5A5A5A5A5A5A5Aull;
constexpr double kUntouched = 7.5;

// Sum of samples (i, g), i0 <= i < i1, g0 <= g < g1, of rows `pitch` bytes
// apart.
uint64_t reference_sum(const uint8_t *data, size_t pitch, int i0, int i1,
                       int g0, int g1) {
  uint64_t sum = 0;
  for (int i = i0; i < i1; ++i) {
    for (int g = g0; g < g1; ++g) sum += data[2 * i * pitch + 5 * g + 4];
  }
  return sum;
}

// Width 20 packs into 25 bytes a row, but the frame's stride is 32: the
// sum-only extractor still reads row pair i at 50 i, the wrong rows. The
// whole frame (8 row pairs, 5 groups) loses two of each to the clamp.
TEST(EarlierRaw10, SumOnlyExtractorReadsUnpaddedRowsAndZeroesAuxWhenEmpty) {
  const PackedFrame f({16, 20, 32}, Noise{3});
  uint64_t sum = kUntouchedCount, aux = kUntouchedCount;
  image_feature_for_raw_10bit_continuous_2(&sum, &aux, f.data(), 0, 16, 0, 20,
                                           1, 16, 20);
  EXPECT_EQ(sum, reference_sum(f.data(), 25, 0, 6, 0, 3));
  EXPECT_NE(sum, reference_sum(f.data(), 32, 0, 6, 0, 3));
  EXPECT_EQ(aux, kUntouchedCount);
  image_feature_for_raw_10bit_continuous_2(&sum, &aux, f.data(), 12, 16, 0, 20,
                                           1, 16, 20);
  EXPECT_TRUE(sum == 0 && aux == 0);
}

// 64 x 64 pixels unpadded (stride 80): blocks of 4 row pairs by 2 groups;
// the clamp leaves the last block row 2 row pairs and empties the last
// block column.
TEST(EarlierRaw10, DriverWritesCheckerboardSumsIntoFieldZeroOnly) {
  const PackedFrame f({64, 64, 80}, Noise{5});
  BlockFeatureSet set = test::unwritten_records();
  test::LogCapture log;
  const int32_t ret = calc_feature_with_sub(&set, f.data(), 64, 64);
  EXPECT_EQ(log.texts("QLIS_ALGO"),
            std::vector<std::string>{"Vrel_feature_valid_num_64"});
  EXPECT_EQ(ret, 25);  // the host log call's length of that line
  for (int b = 0; b < 64; ++b) {
    const int r = b / 8, c = b % 8;
    const uint64_t want =
        test::on_checkerboard(b)
            ? reference_sum(f.data(), 80, 4 * r, std::min(4 * r + 4, 30),
                            2 * c, std::min(2 * c + 2, 14))
            : 0;
    BlockFeature expected;
    std::memset(&expected, 0x5a, sizeof expected);
    expected.sample_sum = static_cast<double>(want);
    EXPECT_TRUE(test::same_fields(set.block[b], expected)) << "block " << b;
  }
}

// Clamped to 2 x 2 samples 10, 20 / 30, 71 with neighbours 40, 100 and
// 50, 90. By hand: energy 500 + 3001 + 2081 + 1202, sum 131, sum of squares
// 6441; 131^2 / 4 = 4290.25 truncates to 4290 in integers, so the integer
// deviation is 2151 where the live extractor's is 2150.75 -> 2150.
PackedFrame deviation_frame() {
  const uint8_t s[4][4] = {{10, 20, 40}, {30, 71, 100}, {50, 90, 0}};
  PackedFrame f({8, 16, 20}, Noise{1});
  f.samples([&](int32_t i, int32_t g) { return s[i][g]; });
  return f;
}

TEST(EarlierRaw10, IntegerStatisticsFollowTheFlagPair) {
  const PackedFrame f = deviation_frame();
  const struct {
    int32_t stats, gradient;
    int64_t ret;
    uint64_t sum, dev;
  } cases[] = {{1, 1, 6784, 131, 2151},
               {0, 1, 6784, 0, kUntouchedCount},
               {1, 0, 0, 131, 2151},
               {0, 0, -1, kUntouchedCount, kUntouchedCount},
               {2, 1, -1, kUntouchedCount, kUntouchedCount},
               {1, 2, -1, kUntouchedCount, kUntouchedCount}};
  for (const auto &c : cases) {
    for (const BlockRect rect : {BlockRect{0, 8, 0, 16}, BlockRect{4, 8, 0, 16}}) {
      const bool empty = rect.row_begin == 4;  // row pairs 2..2 after the clamp
      uint64_t sum = kUntouchedCount, dev = kUntouchedCount;
      const int64_t ret = image_feature_quality_for_raw_10bit_continuous_2(
          &sum, &dev, f.data(), rect.row_begin, rect.row_end, rect.col_begin,
          rect.col_end, 1, 8, 16, 20, c.stats, c.gradient);
      SCOPED_TRACE(::testing::Message() << c.stats << c.gradient << empty);
      EXPECT_EQ(ret, empty ? -1 : c.ret);  // sign-extended to 64 bits
      EXPECT_EQ(sum, empty ? 0 : c.sum);
      EXPECT_EQ(dev, empty ? 0 : c.dev);
    }
  }
  uint64_t sum = 0, dev = 0;
  double cv, bright, dark;
  image_feature_quality_for_raw_10bit_continuous_3(&sum, &dev, &cv, &bright,
                                                   &dark, f.data(), 0, 8, 0,
                                                   16, 1, 8, 16, 20, 1, 0);
  EXPECT_EQ(dev, 2150u);
}

// ---------------------------------------------------------------------------
// Earlier low-light extractors, run side by side on one rectangle.

struct LowLightCalls {
  double mean2 = kUntouched, spare2 = kUntouched, mean3 = kUntouched;
  int64_t dev3 = 12345;
  std::array<uint32_t, 256> hist2{}, hist3{};
  double mean = kUntouched, spare = kUntouched;
  int64_t ret2, ret3, ret;
};

LowLightCalls run_all(const PackedFrame &f, BlockRect r, int32_t stats,
                      int32_t gradient) {
  const Geometry &g = f.geometry();
  const auto s = static_cast<uint32_t>(g.stride);
  LowLightCalls c;
  c.hist2[0] = c.hist3[0] = 0xFFFFFFFFu;  // counters wrap
  c.ret2 = image_feature_quality_for_raw_10bit_continuous_2_low_light_2(
      &c.mean2, &c.spare2, c.hist2.data(), f.data(), r.row_begin, r.row_end,
      r.col_begin, r.col_end, 1, g.height, g.width, s, stats, gradient);
  c.ret3 = image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
      &c.mean3, &c.dev3, c.hist3.data(), f.data(), r.row_begin, r.row_end,
      r.col_begin, r.col_end, 1, g.height, g.width, s, stats, gradient);
  c.ret = image_feature_quality_for_raw_10bit_continuous_2_low_light(
      &c.mean, &c.spare, f.data(), r.row_begin, r.row_end, r.col_begin,
      r.col_end, 1, g.height, g.width, s, stats, gradient);
  return c;
}

// Row pair 0, groups 0 and 1 (N = 2): s = 10, 40 with h = 40, 25 and
// v = 4, 100 two row pairs down. By hand: g = 30 + 6 + 36 = 72 and
// 15 + 60 + 75 = 150; weighted 720 + 6000; mean 25; deviation
// 1700 - 2 * 25 * 25 = 450.
TEST(EarlierLowLight, FlagPairsOfHandBuiltBlock) {
  const uint8_t s[3][3] = {{10, 40, 25}, {99, 99, 99}, {4, 100}};
  PackedFrame f({16, 32, 40}, 0);
  f.samples([&](int32_t i, int32_t g) { return i < 3 && g < 3 ? s[i][g] : 0; });
  const struct {
    int32_t stats, gradient;
    double mean;
    int64_t plain;
  } cases[] = {{1, 1, 25.0, 222}, {0, 1, 0.0, 6720}, {1, 0, 25.0, 0},
               {0, 0, 0.0, 0}, {2, 2, 0.0, 0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.stats << c.gradient);
    const LowLightCalls r = run_all(f, {0, 4, 0, 8}, c.stats, c.gradient);
    EXPECT_TRUE(r.ret2 == 0 && r.ret3 == 0);
    EXPECT_EQ(r.ret, c.plain);
    EXPECT_TRUE(r.mean2 == c.mean && r.mean3 == c.mean && r.mean == c.mean);
    EXPECT_EQ(r.dev3, c.stats == 1 ? 450 : 0);
    EXPECT_TRUE(r.spare2 == 0.0 && r.spare == kUntouched);
    std::array<uint32_t, 256> want{};
    want[0] = 0xFFFFFFFFu;
    if (c.gradient == 1) {
      for (int bin : {30, 6, 36, 15, 60, 75}) ++want[bin];
    }
    EXPECT_TRUE(r.hist2 == want && r.hist3 == want);
  }
}

// Flat rectangles: three counts per visited sample into bin 0 (the preset
// 2^32 - 1 wraps), gradient sums 0, and the mean divided by
// groups * ((t1 - t0) >> 1): an odd count of row pairs visits its last one
// without counting it; one row pair counts none. The unsigned edge test
// pulls a bottom of -4 (t1 + dist = -1) in to the last usable row pair.
TEST(EarlierLowLight, FlatBlocksCountThreeZerosPerSampleAndDivideByEvenRows) {
  const struct {
    uint8_t value;
    BlockRect rect;
    uint32_t visited;
    double mean;  // NaN: 0 / 0
    int64_t dev;  // double deviation truncated; NaN gives 0
  } cases[] = {
      {50, {0, 8, 0, 16}, 8, 50.0, 0},          // t 0..4: rows 0, 2 of 2
      {50, {0, 6, 0, 16}, 8, 100.0, -20000},    // t 0..3: rows 0, 2 of 1
      {50, {0, 2, 0, 16}, 4, INFINITY, 0},      // t 0..1: row 0 of 0
      {0, {0, 2, 0, 16}, 4, NAN, 0},
      {50, {0, -4, 0, 16}, 36, 50.0, 0},        // t 0..18: 9 of 9 rows
  };
  const PackedFrame frames[2] = {PackedFrame({40, 64, 80}, 50),
                                 PackedFrame({40, 64, 80}, 0)};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << int{c.value} << " rows "
                                      << c.rect.row_begin << ".."
                                      << c.rect.row_end);
    const LowLightCalls r = run_all(frames[c.value == 0], c.rect, 1, 1);
    EXPECT_EQ(r.hist2[0], 3 * c.visited - 1);
    EXPECT_TRUE(r.hist3 == r.hist2);
    EXPECT_EQ(r.ret, 0);
    for (double mean : {r.mean2, r.mean3, r.mean}) {
      if (std::isnan(c.mean)) {
        EXPECT_TRUE(std::isnan(mean));
      } else {
        EXPECT_EQ(mean, c.mean);
      }
    }
    EXPECT_EQ(r.dev3, c.dev);
  }
}

// Empty rectangles return -1; _2 and _3 have cleared their outputs (and
// accept null ones), the plain variant clears mean and spare only here.
TEST(EarlierLowLight, EmptyRectangleClearsOutputsAndReturnsMinusOne) {
  const PackedFrame f({40, 64, 80}, 50);
  for (const BlockRect rect : {BlockRect{8, 8, 0, 16}, BlockRect{0, 8, 56, 64},
                               BlockRect{36, 40, 0, 16}}) {
    const LowLightCalls r = run_all(f, rect, 1, 1);
    EXPECT_TRUE(r.ret2 == -1 && r.ret3 == -1 && r.ret == -1);
    EXPECT_TRUE(r.mean2 == 0.0 && r.spare2 == 0.0 && r.mean3 == 0.0 &&
                r.dev3 == 0 && r.mean == 0.0 && r.spare == 0.0);
    EXPECT_TRUE(r.hist2[0] == 0xFFFFFFFFu && r.hist3[0] == 0xFFFFFFFFu);
    EXPECT_EQ(image_feature_quality_for_raw_10bit_continuous_2_low_light_2(
                  nullptr, nullptr, nullptr, f.data(), rect.row_begin,
                  rect.row_end, rect.col_begin, rect.col_end, 1, 40, 64, 80, 1,
                  1),
              -1);
    EXPECT_EQ(image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
                  nullptr, nullptr, nullptr, f.data(), rect.row_begin,
                  rect.row_end, rect.col_begin, rect.col_end, 1, 40, 64, 80, 1,
                  1),
              -1);
  }
}

}  // namespace
}  // namespace qlis

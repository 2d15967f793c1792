#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "feature/feature_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

constexpr double kUntouched = 7.5;

// 64 x 64 unpadded, every sample 1 among noise: blocks of 4 row pairs by
// 2 groups, so each block sum counts its samples; the clamp leaves the
// last block row 2 row pairs and empties the last block column.
TEST(EarlierRaw10, DriverWritesCheckerboardSumsIntoFieldZeroOnly) {
  PackedFrame f({64, 64, 80}, Noise{5});
  f.samples([](int32_t, int32_t) { return uint8_t{1}; });
  BlockFeatureSet set = unwritten_records();
  LogCapture log;
  EXPECT_EQ(calc_feature_with_sub(&set, f.data(), 64, 64), 25);  // its length
  EXPECT_EQ(log.texts("QLIS_ALGO"),
            std::vector<std::string>{"Vrel_feature_valid_num_64"});
  for (int b = 0; b < 64; ++b) {
    const double rows = b / 8 == 7 ? 2 : 4, groups = b % 8 == 7 ? 0 : 2;
    BlockFeature want;
    std::memset(&want, 0x5a, sizeof want);
    want.sample_sum = on_checkerboard(b) ? rows * groups : 0.0;
    EXPECT_TRUE(same_fields(set.block[b], want)) << "block " << b;
  }
}

// The three earlier low-light extractors on one rectangle, outputs preset.
struct LowLightCalls {
  double mean2 = kUntouched, spare2 = kUntouched, mean3 = kUntouched;
  double mean = kUntouched, spare = kUntouched;
  int64_t dev3 = 12345, ret2, ret3, ret;
  std::array<uint32_t, 256> hist2{0xFFFFFFFFu}, hist3{0xFFFFFFFFu};  // wrap
};

LowLightCalls run_all(const PackedFrame &f, BlockRect r, int32_t stats,
                      int32_t gradient) {
  const Geometry &g = f.geometry();
  const auto stride = static_cast<uint32_t>(g.stride);
  LowLightCalls c;
  c.ret2 = image_feature_quality_for_raw_10bit_continuous_2_low_light_2(
      &c.mean2, &c.spare2, c.hist2.data(), f.data(), r.row_begin, r.row_end,
      r.col_begin, r.col_end, 1, g.height, g.width, stride, stats, gradient);
  c.ret3 = image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
      &c.mean3, &c.dev3, c.hist3.data(), f.data(), r.row_begin, r.row_end,
      r.col_begin, r.col_end, 1, g.height, g.width, stride, stats, gradient);
  c.ret = image_feature_quality_for_raw_10bit_continuous_2_low_light(
      &c.mean, &c.spare, f.data(), r.row_begin, r.row_end, r.col_begin,
      r.col_end, 1, g.height, g.width, stride, stats, gradient);
  return c;
}

// Flat rectangles add three counts per visited sample to bin 0 and no
// gradient; the mean is divided by groups * ((t1 - t0) >> 1), so an odd
// count of row pairs visits its last one uncounted and one row pair counts
// none. The unsigned edge test pulls a bottom of -4 (t1 + dist = -1) in to
// the last usable row pair. Empty rectangles return -1 and clear every
// output (the plain variant only here).
TEST(EarlierLowLight, FlatAndEmptyBlocksCountDivideAndClearAsKept) {
  const struct {
    uint8_t value;
    BlockRect rect;
    uint32_t visited;
    double mean;  // NaN: 0 / 0
    int64_t dev;  // the double deviation truncated; NaN gives 0
  } cases[] = {
      {50, {0, 8, 0, 16}, 8, 50.0, 0},        // rows 0, 2 of 2 counted
      {50, {0, 6, 0, 16}, 8, 100.0, -20000},  // rows 0, 2 of 1
      {50, {0, 2, 0, 16}, 4, INFINITY, 0},    // row 0 of 0
      {0, {0, 2, 0, 16}, 4, NAN, 0},
      {50, {0, -4, 0, 16}, 36, 50.0, 0},  // t1 = 18: 9 of 9
      {50, {8, 8, 0, 16}, 0, 0.0, 0},     // empty as given
      {50, {0, 8, 56, 64}, 0, 0.0, 0},    // groups clamped to nothing
      {50, {36, 40, 0, 16}, 0, 0.0, 0},   // row pairs likewise
  };
  const PackedFrame frames[2] = {PackedFrame({40, 64, 80}, 50),
                                 PackedFrame({40, 64, 80}, 0)};
  for (const auto &c : cases) {
    const BlockRect &rc = c.rect;
    const PackedFrame &f = frames[c.value == 0];
    const LowLightCalls r = run_all(f, rc, 1, 1);
    const int64_t ret = c.visited == 0 ? -1 : 0;
    EXPECT_TRUE(r.ret2 == ret && r.ret3 == ret && r.ret == ret);
    EXPECT_EQ(r.hist2[0], 3 * c.visited - 1);
    EXPECT_TRUE(r.hist3 == r.hist2);
    for (double mean : {r.mean2, r.mean3, r.mean}) {
      EXPECT_TRUE(std::isnan(c.mean) ? std::isnan(mean) : mean == c.mean);
    }
    EXPECT_EQ(r.dev3, c.dev);
    EXPECT_TRUE(r.spare2 == 0.0 && r.spare == (ret < 0 ? 0.0 : kUntouched));
    if (ret < 0) {  // null outputs are accepted
      EXPECT_EQ(image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
                    nullptr, nullptr, nullptr, f.data(), rc.row_begin,
                    rc.row_end, rc.col_begin, rc.col_end, 1, 40, 64, 80, 1, 1),
                -1);
    }
  }
}

}  // namespace
}  // namespace qlis::test

// The low-light RAW10 block extractor and its frame driver.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <vector>

#include "feature/feature_frames.h"
#include "feature/low_light_block.h"

namespace qlis::test {
namespace {

constexpr double kX = 7.5;  // no computation produces it

struct Results {
  double mean = kX, dev = kX, cv = kX, bright = kX, dark = kX;
  DiffHistogram hist = {};
  LowLightBlockOutputs outputs() {
    return {&mean, &dev, &cv, &bright, &dark, &hist};
  }
};

// The exported entry point: the NEON kernel where there is one, which the
// low_light fuzz target ties to the portable one.
int64_t exported(const LowLightBlockOutputs &o, const LowLightBlockArgs &a) {
  return image_feature_quality_for_raw_10bit_continuous_2_low_light_4(
      o.mean, o.deviation, o.variation, o.bright, o.dark, o.diff_hist, a.data,
      a.row_begin, a.row_end, a.col_begin, a.col_end, a.dist, a.height, a.width,
      a.stride, a.stats_flag, a.gradient_flag);
}

// A 40 x 64 frame (20 row pairs, 16 groups) whose samples depend on the
// row pair i or the group g, every value worked out by hand. The deviation
// is (sum of squares - mean^2) N, not a variance; bin 0 starts at
// INT32_MAX, so the difference counts wrap. Empty blocks (row pairs 4..4,
// or emptied by the clamp) zero only the mean and deviation.
TEST(LowLightBlock, VisitsEverySecondRowPairAndCountsThreeDifferences) {
  const auto flat = [](int v) { return [v](int32_t, int32_t) { return v; }; };
  const auto ramp = [](int32_t i, int32_t) { return 10 + i; };
  const auto thresholds = [](int32_t, int32_t g) {  // 59, 60, 195, 196
    return (g & 2 ? 195 : 59) + (g & 1);
  };
  const BlockRect all{0, 16, 0, 32};
  const double dev77 = (189728.0 - 5929) * 32;
  const struct {
    std::function<int(int32_t, int32_t)> value;
    BlockRect rect;
    int32_t stats, gradient;
    int64_t ret;
    double mean, dev, cv, bright, dark;
    int32_t bin0, bin2;  // added to bins 0 and 2
  } cases[] = {
      // Row pairs 0, 2, 4, 6 of 0..7 by groups 0..7: N = 32; every flag pair.
      {flat(77), all, 1, 1, 0, 77, dev77, 0, 0, 0, 96, 0},
      {flat(77), all, 1, 0, 0, 77, dev77, 0, 0, 0, 0, 0},
      {flat(77), all, 0, 1, 0, 0, 0, kX, 0, 0, 96, 0},
      {flat(77), all, 2, 2, 0, 0, 0, kX, 0, 0, 0, 0},
      // Both sides of both thresholds, a quarter each: mean 127.5.
      {thresholds, all, 1, 0, 0, 127.5,
       (8 * 83522.0 - 16256.25) * 32, std::sqrt(83522.0 / 4 - 16256.25) / 127.5,
       0.25, 0.25, 0, 0},
      // Row pairs 0..2 visit 0 and 2 (an odd count counts its last one):
      // values 10 and 12 by 4 groups, N = 8, v two row pairs down is 2 more.
      {ramp, {0, 6, 0, 16}, 1, 1, 0, 11, (976.0 - 121) * 8, 1.0 / 11, 0, 1, 8,
       16},
      // Odd pixel rows round down to row pairs 1..4: visits 1 and 3.
      {ramp, {3, 9, 0, 16}, 1, 0, 0, 12, (4 * 121.0 + 4 * 169 - 144) * 8,
       1.0 / 12, 0, 1, 0, 0},
      // At the bottom right the clamp leaves row pairs 12..17 (visits 12,
      // 14, 16) and groups 8..13: N = 18.
      {flat(100), {24, 40, 32, 64}, 1, 1, 0, 100, (18e4 - 1e4) * 18, 0, 0, 0,
       54, 0},
      {flat(50), {8, 9, 0, 32}, 1, 1, -1, 0, 0, kX, kX, kX, 0, 0},
      {flat(50), {0, 16, 56, 64}, 1, 1, -1, 0, 0, kX, kX, kX, 0, 0},
      {flat(50), {36, 40, 0, 32}, 1, 1, -1, 0, 0, kX, kX, kX, 0, 0},
  };
  PackedFrame f({40, 64, 80}, 0);
  for (const auto &c : cases) {
    f.samples([&](int32_t i, int32_t g) { return uint8_t(c.value(i, g)); });
    Results r;
    r.hist.count[0] = INT32_MAX;
    DiffHistogram want = r.hist;
    want.count[0] = static_cast<int32_t>(uint32_t{INT32_MAX} + c.bin0);
    want.count[2] = c.bin2;
    const LowLightBlockArgs args =
        block_args(f.data(), f.geometry(), c.rect, 1, c.stats, c.gradient);
    EXPECT_EQ(exported(r.outputs(), args), c.ret);
    EXPECT_TRUE(same_bytes(r.hist, want) && r.mean == c.mean &&
                r.dev == c.dev && r.cv == c.cv && r.bright == c.bright &&
                r.dark == c.dark)
        << &c - cases << ": " << r.mean << " " << r.dev << " " << r.cv;
    if (c.ret < 0) {  // null mean and deviation outputs are accepted
      EXPECT_EQ(exported({nullptr, nullptr, &r.cv, &r.bright, &r.dark, &r.hist},
                         args),
                -1);
    }
  }
}

// Histograms as a caller may hand them over: never cleared.
const DiffHistogram kPreset{{0x5a5a5a5a, 77, INT32_MIN}};

struct DriverRun {
  BlockFeatureSet features = unwritten_records();
  std::vector<DiffHistogram> hists = std::vector<DiffHistogram>(64, kPreset);
  uint64_t value = 0;
};

DriverRun drive(const PackedFrame &f, uint32_t mode) {
  DriverRun out;
  const Geometry &g = f.geometry();
  out.value = calc_feature_quality_with_sub_low_light(
      &out.features, out.hists.data(), mode, f.data(), g.height, g.width,
      g.stride);
  return out;
}

// A frame of 24 x 64: block row 7 (row pairs 10..12 clamped to 10..10) and
// block column 7 (groups 14..16 clamped to 14..14) are empty. Their -1
// results are recorded, weighted 4 to 7 by row and by column, and taken
// from the sum with the spread: S = -4 * 44 - 4 * 40 = -336, worked out
// apart from the library. Statistics only (mode 1) returns 0 with the same
// records. Below 8 rows or columns every block is empty: S = -44 * 44 =
// -1936, Q = 252^2, mean = 2^58 - 31, mean^2 = 2^59 + 961 (mod 2^64), so
// the value is 2^64 - 1936 - ((2^64 - 2^59 + 31) >> 28).
TEST(LowLightFrame, EmptyBlocksRecordMinusOneAndWeighAgainstTheSum) {
  const PackedFrame frame({24, 64, 80}, Noise{5});
  const DriverRun full = drive(frame, 0);
  EXPECT_EQ(full.value, 0xfffffffcfffffeb0u);
  EXPECT_EQ(drive(frame, 2).value, 0xfffffffcfffffeb0u);
  const DriverRun stats = drive(frame, 1);
  EXPECT_TRUE(stats.value == 0 && same_bytes(stats.features, full.features));
  EXPECT_TRUE(same_bytes(full.hists[63], kPreset));  // never cleared
  // An empty block leaves the fractions and the variation as the block
  // before it left them.
  for (int32_t b = 0; b < 64; ++b) {
    const BlockFeature &f = full.features.block[b];
    const bool empty = b / 8 == 7 || b % 8 == 7;
    EXPECT_TRUE(f.reserved == (empty ? -1.0 : 0.0) &&
                (!empty || (f.sample_sum == 0.0 && f.deviation_sum == 0.0 &&
                            std::memcmp(&f.bright_ratio,
                                        &full.features.block[b - 1].bright_ratio,
                                        3 * sizeof(double)) == 0)))
        << b;
  }
  EXPECT_EQ(drive(PackedFrame({4, 4, 5}, 1), 0).value, 0xfffffff07ffff870u);
}

}  // namespace
}  // namespace qlis::test

#include "feature/low_light_block.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <ostream>
#include <random>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis {
namespace {

using test::block_args;
using test::BlockRect;
using test::Geometry;
using test::PackedFrame;
using Extractor = int64_t (*)(const LowLightBlockOutputs &,
                              const LowLightBlockArgs &);

constexpr double kUntouched = 7.5;

// The extractor's outputs, preset to a value no computation produces.
struct Results {
  double mean = kUntouched, dev = kUntouched, cv = kUntouched;
  double bright = kUntouched, dark = kUntouched;
  DiffHistogram hist = {};

  LowLightBlockOutputs outputs() {
    return {&mean, &dev, &cv, &bright, &dark, &hist};
  }
};

int64_t exported(const LowLightBlockOutputs &o, const LowLightBlockArgs &a) {
  return image_feature_quality_for_raw_10bit_continuous_2_low_light_4(
      o.mean, o.deviation, o.variation, o.bright, o.dark, o.diff_hist, a.data,
      a.row_begin, a.row_end, a.col_begin, a.col_end, a.dist, a.height, a.width,
      a.stride, a.stats_flag, a.gradient_flag);
}

// The hand-built cases run through the portable kernel and the exported
// entry point (the NEON kernel where there is one).
class LowLightBlock : public ::testing::TestWithParam<Extractor> {};
INSTANTIATE_TEST_SUITE_P(Kernels, LowLightBlock,
                         ::testing::Values(&exported,
                                           &portable::low_light_block_features));

// Two visited samples, s(0, 0) = 10 and s(0, 1) = 230, in a frame that
// holds the neighbours of both distances: one group right and two row
// pairs down (h = 230, 5; v = 200, 0), or two groups right and four row
// pairs down (h = 5, 100; v = 60, 255). Row pair 1 is never visited.
// Differences |h - s|, |v - s|, |h - v| by hand.
TEST_P(LowLightBlock, CountsDifferencesAndStatisticsOfHandBuiltSamples) {
  const uint8_t s[5][5] = {{10, 230, 5, 100}, {99}, {200, 0}, {}, {60, 255}};
  PackedFrame f({10, 20, 25}, 0);
  f.samples([&](int32_t i, int32_t g) { return s[i][g]; });
  const std::vector<int> bins[2] = {{220, 190, 30, 225, 230, 5},
                                    {5, 50, 55, 130, 25, 155}};
  for (int32_t dist : {1, 2}) {
    Results r;
    EXPECT_EQ(GetParam()(r.outputs(), block_args(f, {0, 4, 0, 8}, dist)), 0);
    DiffHistogram want = {};
    for (int bin : bins[dist - 1]) want.count[bin] = 1;
    EXPECT_TRUE(test::same_bytes(r.hist, want)) << "dist " << dist;
    // N = 2, sum 240, sum of squares 100 + 52900.
    EXPECT_EQ(r.mean, 120.0);
    EXPECT_EQ(r.dev, (53000.0 - 14400.0) * 2.0);
    EXPECT_EQ(r.cv, std::sqrt(26500.0 - 14400.0) / 120.0);
    EXPECT_EQ(r.bright, 0.5);
    EXPECT_EQ(r.dark, 0.5);
  }
}

// A 40 x 64 frame (20 row pairs, 16 groups) whose samples depend on the
// row pair i or the group g, every value worked out by hand. The deviation
// is (sum of squares - mean^2) N, not a variance; bin 0 starts at
// INT32_MAX, so the difference counts wrap.
TEST_P(LowLightBlock, VisitsEverySecondRowPairAndCountsThreeDifferences) {
  const auto flat = [](int v) { return [v](int32_t, int32_t) { return v; }; };
  const auto ramp = [](int32_t i, int32_t) { return 10 + i; };
  const auto thresholds = [](int32_t, int32_t g) {
    const int v[4] = {59, 60, 195, 196};
    return v[g % 4];
  };
  const struct {
    const char *what;
    std::function<int(int32_t, int32_t)> value;
    BlockRect rect;
    int32_t stats, gradient;
    double mean, dev, cv, bright, dark;
    int32_t bin0, bin2;  // added to bins 0 and 2
  } cases[] = {
      // Row pairs 0, 2, 4, 6 of 0..7 by groups 0..7: N = 32.
      {"flat", flat(77), {0, 16, 0, 32}, 1, 1, 77, (189728.0 - 5929) * 32, 0,
       0, 0, 96, 0},
      {"statistics only", flat(77), {0, 16, 0, 32}, 1, 0, 77,
       (189728.0 - 5929) * 32, 0, 0, 0, 0, 0},
      {"differences only", flat(77), {0, 16, 0, 32}, 0, 1, 0, 0, kUntouched, 0,
       0, 96, 0},
      {"neither", flat(77), {0, 16, 0, 32}, 2, 2, 0, 0, kUntouched, 0, 0, 0, 0},
      // Both sides of both thresholds, a quarter each: mean 127.5.
      {"thresholds", thresholds, {0, 16, 0, 32}, 1, 0, 127.5,
       (8 * 83522.0 - 16256.25) * 32, std::sqrt(83522.0 / 4 - 16256.25) / 127.5,
       0.25, 0.25, 0, 0},
      // Row pairs 0..2 visit 0 and 2 (an odd count counts its last one):
      // values 10 and 12 by 4 groups, N = 8, v two row pairs down is 2 more.
      {"ramp", ramp, {0, 6, 0, 16}, 1, 1, 11, (976.0 - 121) * 8, 1.0 / 11, 0, 1,
       8, 16},
      // Odd pixel rows round down to row pairs 1..4: visits 1 and 3.
      {"odd rows", ramp, {3, 9, 0, 16}, 1, 0, 12, (4 * 121.0 + 4 * 169 - 144) * 8,
       1.0 / 12, 0, 1, 0, 0},
      // At the bottom right the clamp leaves row pairs 12..17 (visits 12,
      // 14, 16) and groups 8..13: N = 18.
      {"edges", flat(100), {24, 40, 32, 64}, 1, 1, 100, (18e4 - 1e4) * 18, 0, 0,
       0, 54, 0},
  };
  PackedFrame f({40, 64, 80}, 0);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    f.samples([&](int32_t i, int32_t g) { return static_cast<uint8_t>(c.value(i, g)); });
    Results r;
    r.hist.count[0] = INT32_MAX;
    DiffHistogram want = r.hist;
    want.count[0] = static_cast<int32_t>(uint32_t{INT32_MAX} + c.bin0);
    want.count[2] = c.bin2;
    EXPECT_EQ(GetParam()(r.outputs(),
                            block_args(f, c.rect, 1, c.stats, c.gradient)),
              0);
    EXPECT_TRUE(test::same_bytes(r.hist, want));
    EXPECT_EQ(r.mean, c.mean);
    EXPECT_EQ(r.dev, c.dev);
    EXPECT_EQ(r.cv, c.cv);
    EXPECT_EQ(r.bright, c.bright);
    EXPECT_EQ(r.dark, c.dark);
  }
}

// Empty rectangles: only the mean and deviation are zeroed, the histogram
// and the other outputs keep their values, and null mean and deviation
// outputs are accepted.
TEST_P(LowLightBlock, EmptyBlockReturnsMinusOneAndZeroesOnlyMeanAndDeviation) {
  const PackedFrame f({32, 64, 80}, 50);
  const BlockRect empty[] = {
      {8, 9, 0, 32},    // row pairs 4..4
      {0, 16, 56, 64},  // groups 14..16 clamped to 14..14
      {30, 40, 0, 32},  // row pairs 15..20 clamped to 15..14
  };
  for (const BlockRect &rect : empty) {
    Results r;
    r.hist.count[0] = 3;
    const DiffHistogram before = r.hist;
    EXPECT_EQ(GetParam()(r.outputs(), block_args(f, rect)), -1);
    EXPECT_TRUE(r.mean == 0.0 && r.dev == 0.0);
    EXPECT_TRUE(r.cv == kUntouched && r.bright == kUntouched &&
                r.dark == kUntouched);
    EXPECT_TRUE(test::same_bytes(r.hist, before));
    LowLightBlockOutputs no_mean = r.outputs();
    no_mean.mean = nullptr;
    no_mean.deviation = nullptr;
    EXPECT_EQ(GetParam()(no_mean, block_args(f, rect)), -1);
  }
}

#if QLIS_HAVE_NEON
// One past the last byte a block reads: the last visited row pair, or the
// one 2 dist row pairs below it with the differences, whose samples are
// gathered one group beyond the block at dist 1 to serve as the next row.
size_t end_of_reads(const LowLightBlockArgs &a) {
  const Raw10SampleRect r = raw10_sample_rect(a);
  if (r.empty()) return 0;
  const int32_t last = r.i0 + 2 * (((r.i1 - r.i0 + 1) >> 1) - 1);
  if (a.gradient_flag == 1) {
    return test::raw10_end_of_reads(a.stride, last + 2 * a.dist,
                                    a.dist == 1 ? r.g1 : r.g1 - 1 + a.dist);
  }
  return a.stats_flag == 1 ? test::raw10_end_of_reads(a.stride, last, r.g1 - 1)
                           : 0;
}

class LowLightBlockTwins : public ::testing::TestWithParam<test::TwinCase> {};

// Histograms preset to the same noise for both; callers provide the
// dist - 1 row pairs below the frame that the lower neighbours reach.
TEST_P(LowLightBlockTwins, NeonMatchesPortable) {
  const auto run = [](bool neon, const LowLightBlockArgs &a) {
    Results r;
    for (int32_t k = 0; k < 256; ++k) {
      r.hist.count[k] = static_cast<int32_t>((k + a.row_begin) * 2654435761u);
    }
    (neon ? neon::low_light_block_features
          : portable::low_light_block_features)(r.outputs(), a);
    return r;
  };
  const test::TwinCase &c = GetParam();
  test::expect_twins_agree(c, test::twin_frame(c, 2 * (c.dist - 1)), run,
                           end_of_reads);
}

// Besides the awkward geometries: rows of several spans, flat extremes over
// enough rows to flush the narrow lanes, distances up to the line buffers'
// reach and beyond it, where a full span must take the portable path.
INSTANTIATE_TEST_SUITE_P(
    Frames, LowLightBlockTwins,
    ::testing::ValuesIn(test::twin_cases({{{20, 8400, 10500}, test::kRandom, 1, 12},
                                          {{1030, 1024, 1280}, 0, 1, 0},
                                          {{1030, 1024, 1280}, 255, 1, 0},
                                          {{360, 1300, 1700}, test::kRandom, 2, 3},
                                          {{360, 1300, 1700}, test::kRandom, 64, 3},
                                          {{360, 1300, 1700}, test::kRandom, 65, 3},
                                          {{360, 4600, 5750}, test::kRandom, 100, 1}})));
#endif

}  // namespace
}  // namespace qlis

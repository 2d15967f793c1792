#include "feature/low_light_block.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
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

// The exported entry point and both kernels: the hand-built cases run
// through each.
struct Twin {
  const char *name;
  Extractor fn;
};

void PrintTo(const Twin &t, std::ostream *os) { *os << t.name; }

std::vector<Twin> extractors() {
  std::vector<Twin> all = {{"exported", &exported},
                           {"portable", &portable::low_light_block_features}};
#if QLIS_HAVE_NEON
  all.push_back({"neon", &neon::low_light_block_features});
#endif
  return all;
}

class LowLightBlock : public ::testing::TestWithParam<Twin> {};
INSTANTIATE_TEST_SUITE_P(Twins, LowLightBlock,
                         ::testing::ValuesIn(extractors()));

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
    EXPECT_EQ(GetParam().fn(r.outputs(), block_args(f, {0, 4, 0, 8}, dist)), 0);
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

constexpr int kRamp = -1;

struct BlockCase {
  BlockRect rect;
  int value;  // of every sample, or kRamp: row pair i holds 10 + i
  int32_t stats_flag, gradient_flag;
  std::vector<int32_t> rows;  // visited row pairs, by hand
  int32_t groups;             // visited groups, by hand
};

void PrintTo(const BlockCase &c, std::ostream *os) {
  *os << "rows " << c.rect.row_begin << ".." << c.rect.row_end << " value "
      << c.value << " flags " << c.stats_flag << c.gradient_flag;
}

class LowLightBlockCases
    : public ::testing::TestWithParam<std::tuple<Twin, BlockCase>> {};

// Samples depend on the row pair only, so each visited sample adds
// |h - s| = 0 and |v - s| = |h - v| (v two row pairs down) to counts that
// wrap at 32 bits: three zeros per sample of a flat block. The deviation is
// (sumsq - mean^2) N, so (N k^2 - k^2) N rather than 0 for a flat block.
// Statistics run only for stats_flag 1 and differences only for gradient_flag
// 1; the fractions are zeroed whatever the pair.
TEST_P(LowLightBlockCases, VisitsEverySecondRowPairAndCountsEachSample) {
  const auto [twin, c] = GetParam();
  PackedFrame f({40, 64, 80}, 0);  // 20 row pairs, 16 groups
  const auto value = [&c](int32_t i) {
    return c.value == kRamp ? 10 + i : c.value;
  };
  f.samples([&](int32_t i, int32_t) { return static_cast<uint8_t>(value(i)); });
  Results r;
  r.hist.count[0] = INT32_MAX;
  r.hist.count[1] = 9;
  DiffHistogram want = r.hist;
  EXPECT_EQ(twin.fn(r.outputs(),
                    block_args(f, c.rect, 1, c.stats_flag, c.gradient_flag)),
            0);
  const bool stats = c.stats_flag == 1;
  const double n = static_cast<double>(c.rows.size()) * c.groups;
  double sum = 0.0, sumsq = 0.0, bright = 0.0, dark = 0.0;
  for (int32_t i : c.rows) {
    const int v = value(i);
    sum += c.groups * v;
    sumsq += c.groups * static_cast<double>(v) * v;
    bright += v >= 196 ? c.groups : 0;
    dark += v <= 59 ? c.groups : 0;
    if (c.gradient_flag != 1) continue;
    auto add = [&](int bin, int32_t k) {
      want.count[bin] =
          static_cast<int32_t>(static_cast<uint32_t>(want.count[bin]) + k);
    };
    add(0, c.groups);
    add(std::abs(value(i + 2) - v), 2 * c.groups);
  }
  EXPECT_TRUE(test::same_bytes(r.hist, want));
  const double mean = sum / n;
  EXPECT_EQ(r.mean, stats ? mean : 0.0);
  EXPECT_EQ(r.dev, stats ? (sumsq - mean * mean) * n : 0.0);
  const double cv = std::sqrt(sumsq / n - mean * mean) / mean;
  if (stats && std::isnan(cv)) {
    EXPECT_TRUE(std::isnan(r.cv));  // 0 / 0
  } else {
    EXPECT_EQ(r.cv, stats ? cv : kUntouched);
  }
  EXPECT_EQ(r.bright, stats ? bright / n : 0.0);
  EXPECT_EQ(r.dark, stats ? dark / n : 0.0);
}

// Row pairs 0, 2, 4, 6 of 0..7 and groups 0..7.
const BlockCase kTopLeft{{0, 16, 0, 32}, 77, 1, 1, {0, 2, 4, 6}, 8};

BlockCase with(BlockCase c, int value, int32_t stats = 1,
               int32_t gradient = 1) {
  c.value = value;
  c.stats_flag = stats;
  c.gradient_flag = gradient;
  return c;
}

BlockCase ramp(BlockRect rect, std::vector<int32_t> rows) {
  return {rect, kRamp, 1, 1, std::move(rows), 4};
}

INSTANTIATE_TEST_SUITE_P(
    ValuesFlagsAndRows, LowLightBlockCases,
    ::testing::Combine(
        ::testing::ValuesIn(extractors()),
        ::testing::Values(
            // Both sides of the bright and dark thresholds.
            kTopLeft, with(kTopLeft, 0), with(kTopLeft, 59), with(kTopLeft, 60),
            with(kTopLeft, 195), with(kTopLeft, 196), with(kTopLeft, 255),
            // At the bottom right the wider clamp leaves row pairs 12..17
            // (visited 12, 14, 16) and groups 8..13.
            BlockCase{{24, 40, 32, 64}, 100, 1, 1, {12, 14, 16}, 6},
            with(kTopLeft, 200, 1, 0), with(kTopLeft, 200, 0, 1),
            with(kTopLeft, 200, 0, 0), with(kTopLeft, 200, 2, 1),
            with(kTopLeft, 200, 1, 2),
            // Which row pairs are visited: every second, an odd last one
            // counted, pixel rows rounded down to pairs.
            ramp({0, 2, 0, 16}, {0}), ramp({0, 3, 0, 16}, {0}),
            ramp({0, 6, 0, 16}, {0, 2}), ramp({2, 10, 0, 16}, {1, 3}),
            ramp({3, 11, 0, 16}, {1, 3}), ramp({0, 13, 0, 16}, {0, 2, 4}),
            ramp({0, 14, 0, 16}, {0, 2, 4, 6}), ramp({6, 8, 3, 19}, {3}))));

// Empty rectangles: only the mean and deviation are zeroed, the histogram
// and the other outputs keep their values, and null mean and deviation
// outputs are accepted.
TEST_P(LowLightBlock, EmptyBlockReturnsMinusOneAndZeroesOnlyMeanAndDeviation) {
  const PackedFrame f({32, 64, 80}, 50);
  const BlockRect empty[] = {
      {8, 8, 0, 32},    // no rows
      {0, 16, 20, 22},  // groups 5..5
      {0, 16, 56, 64},  // groups 14..16 clamped to 14..14
      {30, 40, 0, 32},  // row pairs 15..20 clamped to 15..14
  };
  for (const BlockRect &rect : empty) {
    Results r;
    r.hist.count[0] = 3;
    const DiffHistogram before = r.hist;
    EXPECT_EQ(GetParam().fn(r.outputs(), block_args(f, rect)), -1);
    EXPECT_EQ(r.mean, 0.0);
    EXPECT_EQ(r.dev, 0.0);
    EXPECT_EQ(r.cv, kUntouched);
    EXPECT_EQ(r.bright, kUntouched);
    EXPECT_EQ(r.dark, kUntouched);
    EXPECT_TRUE(test::same_bytes(r.hist, before));
    LowLightBlockOutputs no_mean = r.outputs();
    no_mean.mean = nullptr;
    no_mean.deviation = nullptr;
    EXPECT_EQ(GetParam().fn(no_mean, block_args(f, rect)), -1);
  }
  const PackedFrame tiny({2, 4, 5}, 50);  // smaller than any neighbour
  Results r;
  EXPECT_EQ(GetParam().fn(r.outputs(), block_args(tiny, {0, 2, 0, 4})), -1);
}

#if QLIS_HAVE_NEON
// A frame for the twins: random bytes, or flat at `fill` (extreme flat
// blocks fill the narrow vector lanes fastest, so a block of many rows must
// be flushed in time), compared on the whole frame and `trials` random
// rectangles.
struct TwinCase {
  Geometry g;
  int fill;  // < 0: random bytes
  int32_t dist;
  int trials;
};

void PrintTo(const TwinCase &c, std::ostream *os) {
  *os << c.g.height << "x" << c.g.width << "/" << c.g.stride << " fill "
      << c.fill << " dist " << c.dist;
}

std::vector<TwinCase> twin_cases() {
  std::vector<Geometry> random = test::awkward_raw10_geometries();
  random.push_back({20, 8400, 10500});  // rows of several spans
  random.push_back({12, 4100, 5200});
  std::vector<TwinCase> cases;
  for (const Geometry &g : random) cases.push_back({g, -1, 1, 40});
  for (int v : {0, 59, 196, 255})
    cases.push_back({{1030, 1024, 1280}, v, 1, 0});
  for (int32_t d : {2, 3, 7, 64, 65})
    cases.push_back({{360, 1300, 1700}, -1, d, 3});
  return cases;
}

class LowLightBlockTwins : public ::testing::TestWithParam<TwinCase> {};

// Every flag pair, on page-end buffers that hold the dist - 1 row pairs
// below the last row that callers must provide; histograms preset to
// noise; whole records compared by bit pattern, so that NaN matches NaN.
TEST_P(LowLightBlockTwins, NeonMatchesPortable) {
  const TwinCase &c = GetParam();
  const uint32_t seed = static_cast<uint32_t>(c.g.width + c.dist);
  const Geometry held{c.g.height + 2 * (c.dist - 1), c.g.width, c.g.stride};
  const PackedFrame frame =
      c.fill < 0 ? PackedFrame(held, test::Noise{seed})
                 : PackedFrame(held, static_cast<uint8_t>(c.fill));
  std::mt19937 engine(seed);
  for (const BlockRect &rect : test::twin_rects(c.g, c.trials, seed)) {
    for (const auto [stats, gradient] : test::kTwinFlagPairs) {
      Results a;
      for (int32_t &count : a.hist.count)
        count = static_cast<int32_t>(engine());
      Results b = a;
      const LowLightBlockArgs args =
          block_args(frame.data(), c.g, rect, c.dist, stats, gradient);
      EXPECT_EQ(portable::low_light_block_features(a.outputs(), args),
                neon::low_light_block_features(b.outputs(), args));
      EXPECT_TRUE(test::same_bytes(a, b))
          << "rows " << rect.row_begin << ".." << rect.row_end << " cols "
          << rect.col_begin << ".." << rect.col_end << " flags " << stats
          << gradient;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Frames, LowLightBlockTwins,
                         ::testing::ValuesIn(twin_cases()));
#endif

}  // namespace
}  // namespace qlis

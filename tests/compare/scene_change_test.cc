#include "compare/scene_change.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "ql_is/ql_is.h"

namespace qlis::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Scene {
  BlockFeatureSet features{};
  uint8_t mask[64] = {};

  // Puts `value` into field 0 of block i and selects the block.
  void select(int i, double value) {
    features.block[i].sample_sum = value;
    mask[i] = 1;
  }
};

TEST(SceneChange, IdenticalSetsAreTheSameScene) {
  Scene s;
  for (int i = 0; i < 64; ++i) s.select(i, 1000.0 + 37.0 * (i % 11));
  EXPECT_EQ(judge_scene_change(&s.features, &s.features, s.mask), 0);
}

struct CountCase {
  int selected;  // blocks in the mask
  int changed;   // of those, blocks whose brightness moved
  double delta;
  int32_t expected;
};

class SceneChangeCount : public ::testing::TestWithParam<CountCase> {};

// b is uniform over the mask (variance 0, so tolerance 0) and a is b raised
// on `changed` blocks, which keeps a's median from being the smaller one:
// every raised block counts, however little it moved.
TEST_P(SceneChangeCount, MoreThanHalfOfTheMaskMustMove) {
  const CountCase c = GetParam();
  Scene a, b;
  for (int k = 0; k < c.selected; ++k) {
    const int block = (k * 23) % 64;  // spread over the grid
    b.select(block, 100.0);
    a.select(block, k < c.changed ? 100.0 + c.delta : 100.0);
  }
  EXPECT_EQ(judge_scene_change(&a.features, &b.features, b.mask), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Masks, SceneChangeCount,
    ::testing::Values(CountCase{2, 1, 50.0, 0}, CountCase{2, 2, 50.0, 1},
                      CountCase{3, 1, 50.0, 0}, CountCase{3, 2, 50.0, 1},
                      CountCase{4, 2, 50.0, 0}, CountCase{4, 3, 50.0, 1},
                      CountCase{1, 1, 1e-9, 1}, CountCase{64, 32, 0.5, 0},
                      CountCase{64, 33, 0.5, 1}));

// b: 10, 20, 30, 40 -> median (20 + 10) / 2 = 15 (one past the middle),
// variance 125, tolerance 125 * 0.03 * exp(0.15) = 4.357. A deviation
// instead of the variance, the usual middle pair or no exponential would
// each move the threshold across 4.3 or 4.4.
TEST(SceneChange, ToleranceIsVarianceScaledByExponentialOfMedian) {
  const int kBlocks[4] = {3, 17, 40, 62};
  const double kBase[4] = {30.0, 10.0, 40.0, 20.0};
  const double kTwoMoved[4] = {4.4, 4.4, 4.3, 4.3};
  const double kThreeMoved[4] = {4.4, 4.4, 4.4, 4.3};
  Scene b, two, three;
  for (int k = 0; k < 4; ++k) {
    b.select(kBlocks[k], kBase[k]);
    two.select(kBlocks[k], kBase[k] + kTwoMoved[k]);
    three.select(kBlocks[k], kBase[k] + kThreeMoved[k]);
  }
  EXPECT_EQ(judge_scene_change(&two.features, &b.features, b.mask), 0);
  EXPECT_EQ(judge_scene_change(&three.features, &b.features, b.mask), 1);
}

// {130, 400, 10}: median 130, variance 26600, tolerance 2928;
// {100, 130, 130}: median 130, variance 200, tolerance 22.
TEST(SceneChange, SmallerMedianOrTheSecondSetOnATieSetsTolerance) {
  Scene spread, flat_same_median, flat_higher;
  const double kSpread[3] = {130.0, 400.0, 10.0};
  const double kSameMedian[3] = {100.0, 130.0, 130.0};
  for (int i = 0; i < 3; ++i) {
    spread.select(i, kSpread[i]);
    flat_same_median.select(i, kSameMedian[i]);
    flat_higher.select(i, 200.0);
  }
  // Equal medians: the second set's wide tolerance, nothing moved.
  EXPECT_EQ(judge_scene_change(&flat_same_median.features, &spread.features,
                               spread.mask),
            0);
  // Same medians the other way round: the narrow tolerance, all moved.
  EXPECT_EQ(judge_scene_change(&spread.features, &flat_same_median.features,
                               spread.mask),
            1);
  // The first set's median is the smaller one: its wide tolerance wins.
  EXPECT_EQ(
      judge_scene_change(&spread.features, &flat_higher.features, spread.mask),
      0);
}

TEST(SceneChange, OnlyMaskBytesOfOneSelect) {
  Scene a, b;
  a.select(0, 100.0);
  b.select(0, 100.0);
  const uint8_t kOthers[3] = {2, 255, 0x81};
  for (int k = 0; k < 3; ++k) {
    a.features.block[1 + k].sample_sum = 5000.0;
    b.features.block[1 + k].sample_sum = 100.0;
    b.mask[1 + k] = kOthers[k];
  }
  // Counted, those would be 3 moved of 4.
  EXPECT_EQ(judge_scene_change(&a.features, &b.features, b.mask), 0);
  double variance = 0.0;
  EXPECT_EQ(calcMedianFeatureAndVarianceV2(&a.features, &variance, 0, b.mask),
            100.0);
  EXPECT_EQ(variance, 0.0);
}

TEST(SceneChange, EmptyMaskNeverChanges) {
  Scene a, b;
  for (int i = 0; i < 64; ++i) {
    a.features.block[i].sample_sum = 10.0 * i;
    b.features.block[i].sample_sum = 5000.0;
  }
  double variance = 0.0;
  EXPECT_EQ(calcMedianFeatureAndVarianceV2(&a.features, &variance, 0, a.mask),
            0.0);
  EXPECT_TRUE(std::isnan(variance));
  EXPECT_EQ(judge_scene_change(&a.features, &b.features, a.mask), 0);
}

TEST(SceneChange, NaNBrightnessNeverCountsAsMoved) {
  // a sorts to {NaN, 200, 0, ...}: median (200 + 0) / 2 = 100, not below
  // b's 50, so b's zero tolerance applies; only block 1 moves: 1 of 2.
  Scene a, b;
  a.select(0, kNaN);
  a.select(1, 200.0);
  b.select(0, 100.0);
  b.select(1, 100.0);
  EXPECT_EQ(judge_scene_change(&a.features, &b.features, b.mask), 0);
}

struct MedianCase {
  std::vector<double> values;  // placed at blocks 5, 14, 23, ...
  double median;
  double variance;
};

class MaskedMedian : public ::testing::TestWithParam<MedianCase> {};

TEST_P(MaskedMedian, MedianAndPopulationVarianceOfSortedEntries) {
  const MedianCase c = GetParam();
  Scene s;
  for (size_t k = 0; k < c.values.size(); ++k) {
    // Field 3, with a decoy in field 0 of every block.
    const int block = static_cast<int>(5 + 9 * k) % 64;
    s.features.block[block].bright_ratio = c.values[k];
    s.features.block[block].sample_sum = 1e9;
    s.mask[block] = 1;
  }
  double variance = -1.0;
  EXPECT_EQ(calcMedianFeatureAndVarianceV2(&s.features, &variance, 3, s.mask),
            c.median);
  EXPECT_EQ(variance, c.variance);
}

INSTANTIATE_TEST_SUITE_P(
    Sets, MaskedMedian,
    ::testing::Values(
        // Even count: entries 2 and 3 of the descending order.
        MedianCase{{10.0, 40.0, 20.0, 30.0}, 15.0, 125.0},
        MedianCase{{1.0, 9.0, 5.0}, 5.0, (81.0 + 25.0 + 1.0) / 3.0 - 25.0},
        // Two values: the smaller is averaged with an unselected zero.
        MedianCase{{6.0, 10.0}, 3.0, 4.0},
        // A negative value sorts behind the unselected zeros, so the
        // statistics see {3, 0}.
        MedianCase{{-5.0, 3.0}, 0.0, 2.25}));

TEST(MaskedMedian, EntriesStayAtTheirBlockIndexAndEqualValuesKeepOrder) {
  // -0.0 selected at block 5 stays behind the +0.0 entries ahead of it.
  Scene behind, front;
  behind.select(5, -0.0);
  front.select(0, -0.0);
  double variance = 0.0;
  EXPECT_FALSE(std::signbit(calcMedianFeatureAndVarianceV2(
      &behind.features, &variance, 0, behind.mask)));
  EXPECT_TRUE(std::signbit(calcMedianFeatureAndVarianceV2(
      &front.features, &variance, 0, front.mask)));
}

TEST(MaskedMedian, NaNBlocksEveryExchangeAcrossIt) {
  // {1, NaN, 5}: no comparison with NaN is true, so 5 never passes it and
  // the middle entry stays NaN.
  Scene s;
  s.select(0, 1.0);
  s.select(1, kNaN);
  s.select(2, 5.0);
  double variance = 0.0;
  EXPECT_TRUE(std::isnan(
      calcMedianFeatureAndVarianceV2(&s.features, &variance, 0, s.mask)));
  EXPECT_TRUE(std::isnan(variance));
}

TEST(AllBlockMedian, AscendingPairPastTheMiddleAndScaledSums) {
  // Values 0..63 in scrambled order. Ascending entries 32 and 33 give 32.5;
  // variance 85344 / 64 - 31.5^2 = 341.25. The masked variant over the same
  // set takes descending entries 32 and 33: 30.5.
  Scene s;
  for (int i = 0; i < 64; ++i) {
    s.features.block[i].variation = static_cast<double>((i * 37) % 64);
    s.mask[i] = 1;
  }
  double variance = 0.0;
  EXPECT_EQ(calcMedianFeatureAndVariance(&s.features, &variance, 5), 32.5);
  EXPECT_EQ(variance, 341.25);
  EXPECT_EQ(calcMedianFeatureAndVarianceV2(&s.features, &variance, 5, s.mask),
            30.5);
  EXPECT_EQ(variance, 341.25);
}

}  // namespace
}  // namespace qlis::test

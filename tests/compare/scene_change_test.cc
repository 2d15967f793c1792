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

  Scene() = default;
  Scene(const std::vector<int> &blocks, const std::vector<double> &values) {
    for (size_t k = 0; k < blocks.size(); ++k) select(blocks[k], values[k]);
  }
  // Puts `value` into field 0 of block i and selects the block.
  void select(int i, double value) {
    features.block[i].sample_sum = value;
    mask[i] = 1;
  }
};

int32_t judged(const Scene &a, const Scene &b, const Scene &masked) {
  return judge_scene_change(&a.features, &b.features, masked.mask);
}

// b is uniform over the mask (variance 0, so tolerance 0) and a is b raised
// on `changed` blocks, which keeps a's median from being the smaller one:
// every raised block counts, however little it moved.
TEST(SceneChange, MoreThanHalfOfTheMaskMustMove) {
  const struct {
    int selected;  // blocks in the mask
    int changed;   // of those, blocks whose brightness moved
    double delta;
    int32_t expected;
  } cases[] = {{2, 1, 50.0, 0}, {2, 2, 50.0, 1},  {3, 1, 50.0, 0},
               {3, 2, 50.0, 1}, {4, 2, 50.0, 0},  {4, 3, 50.0, 1},
               {1, 1, 1e-9, 1}, {64, 32, 0.5, 0}, {64, 33, 0.5, 1}};
  for (const auto &c : cases) {
    Scene a, b;
    for (int k = 0; k < c.selected; ++k) {
      const int block = (k * 23) % 64;  // spread over the grid
      b.select(block, 100.0);
      a.select(block, k < c.changed ? 100.0 + c.delta : 100.0);
    }
    EXPECT_EQ(judged(a, b, b), c.expected) << c.changed << " of " << c.selected;
  }
}

// b: 10, 20, 30, 40 -> median (20 + 10) / 2 = 15 (one past the middle),
// variance 125, tolerance 125 * 0.03 * exp(0.15) = 4.357. A deviation
// instead of the variance, the usual middle pair or no exponential would
// each move the threshold across 4.3 or 4.4.
TEST(SceneChange, ToleranceIsVarianceScaledByExponentialOfMedian) {
  const std::vector<int> blocks = {3, 17, 40, 62};
  const std::vector<double> base = {30.0, 10.0, 40.0, 20.0};
  const auto moved = [&](std::vector<double> by) {
    for (size_t k = 0; k < by.size(); ++k) by[k] += base[k];
    return Scene(blocks, by);
  };
  const Scene b(blocks, base);
  EXPECT_EQ(judged(moved({4.4, 4.4, 4.3, 4.3}), b, b), 0);
  EXPECT_EQ(judged(moved({4.4, 4.4, 4.4, 4.3}), b, b), 1);
}

// {130, 400, 10}: median 130, variance 26600, tolerance 2928;
// {100, 130, 130}: median 130, variance 200, tolerance 22.
TEST(SceneChange, SmallerMedianOrTheSecondSetOnATieSetsTolerance) {
  const Scene spread({0, 1, 2}, {130.0, 400.0, 10.0});
  const Scene same_median({0, 1, 2}, {100.0, 130.0, 130.0});
  const Scene higher({0, 1, 2}, {200.0, 200.0, 200.0});
  // Equal medians: the second set's wide tolerance, nothing moved.
  EXPECT_EQ(judged(same_median, spread, spread), 0);
  // Same medians the other way round: the narrow tolerance, all moved.
  EXPECT_EQ(judged(spread, same_median, spread), 1);
  // The first set's median is the smaller one: its wide tolerance wins.
  EXPECT_EQ(judged(spread, higher, spread), 0);
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
  EXPECT_EQ(judged(a, b, b), 0);
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
  EXPECT_EQ(judged(a, b, a), 0);
}

TEST(SceneChange, NaNBrightnessNeverCountsAsMoved) {
  // a sorts to {NaN, 200, 0, ...}: median (200 + 0) / 2 = 100, not below
  // b's 50, so b's zero tolerance applies; only block 1 moves: 1 of 2.
  const Scene a({0, 1}, {kNaN, 200.0}), b({0, 1}, {100.0, 100.0});
  EXPECT_EQ(judged(a, b, b), 0);
}

// Values placed in field 3 of blocks 5, 14, 23, ..., with a decoy in
// field 0 of each.
TEST(MaskedMedian, MedianAndPopulationVarianceOfSortedEntries) {
  const struct {
    std::vector<double> values;
    double median, variance;
  } cases[] = {// Even count: entries 2 and 3 of the descending order.
               {{10.0, 40.0, 20.0, 30.0}, 15.0, 125.0},
               {{1.0, 9.0, 5.0}, 5.0, (81.0 + 25.0 + 1.0) / 3.0 - 25.0},
               // Two values: the smaller is averaged with an unselected zero.
               {{6.0, 10.0}, 3.0, 4.0},
               // A negative value sorts behind the unselected zeros, so the
               // statistics see {3, 0}.
               {{-5.0, 3.0}, 0.0, 2.25}};
  for (const auto &c : cases) {
    Scene s;
    for (size_t k = 0; k < c.values.size(); ++k) {
      const int block = static_cast<int>(5 + 9 * k) % 64;
      s.features.block[block].bright_ratio = c.values[k];
      s.features.block[block].sample_sum = 1e9;
      s.mask[block] = 1;
    }
    double variance = -1.0;
    EXPECT_EQ(calcMedianFeatureAndVarianceV2(&s.features, &variance, 3, s.mask),
              c.median);
    EXPECT_EQ(variance, c.variance) << c.values[0];
  }
}

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
  Scene s({0, 1, 2}, {1.0, kNaN, 5.0});
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

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"

namespace {

using Difference = std::vector<double>;

// The label and the one line the score logs.
std::pair<int32_t, std::string> score(const Difference &d) {
  qlis::test::LogCapture log;
  const int32_t label = get_score_label(d.data());
  const std::vector<std::string> lines = log.texts("QLIS-I");
  EXPECT_EQ(lines.size(), 1u);
  return {label, lines.empty() ? "" : lines[0]};
}

TEST(ClassifierWeights, MatchTheTrainedTableByPosition) {
  EXPECT_TRUE(paramsClass[0] == 0.0 && std::signbit(paramsClass[0]));
  // Block column j, block row i at 1 + 8 j + i; bin b at 65 + b; the tail.
  const std::pair<int, double> spots[] = {
      {1 + 8 * 0 + 7, 26.315723}, {1 + 8 * 3 + 4, 131.700424},
      {1 + 8 * 7 + 7, -157.804367}, {65 + 0, -10.304722},
      {65 + 4, 0.0}, {65 + 8, 204.775406}, {65 + 31, 0.0}, {97, 19.273046}};
  for (const auto &[k, w] : spots) EXPECT_EQ(paramsClass[k], w) << k;
}

TEST(ClassifierScore, IdenticalFramesScoreOneHalfAndLabelZero) {
  const qlis::test::RandomFrame frame({400, 640, 800}, 4);
  std::vector<uint8_t> scratch(100 * 160);
  double features[320];
  get_feature_raw_10bitX5_(frame.data(), 400, 640, 800, 0, 0, features,
                           scratch.data());
  Difference d(97, 1.0);
  combine_feature(features, features, d.data());
  EXPECT_EQ(d, Difference(97, 0.0));
  EXPECT_EQ(score(d), std::make_pair(0, std::string("0.50 ")));
}

// Entry 96 is the difference of two sums taken in ascending order from
// 0.0: a leading 1.0 absorbs 223 addends of 2^-60 one by one, which in any
// other order (or as per-entry differences) would leave a trace.
TEST(ClassifierScore, ShareDifferenceSubtractsAscendingSums) {
  std::vector<double> a(320, std::ldexp(1.0, -60)), b(320, 0.0);
  a[96] = 1.0;
  Difference d(97);
  combine_feature(a.data(), b.data(), d.data());
  EXPECT_EQ(d[96], 1.0);
  b[96] = 1.0;
  combine_feature(a.data(), b.data(), d.data());
  EXPECT_EQ(d[96], 0.0);
}

// Probabilities worked out apart from the library, in float products. A
// zero weight (bin 6, entry 70) leaves the score at 0; NaN labels 0.
TEST(ClassifierScore, LogsTheProbabilityAndLabelsAboveOneHalf) {
  const struct {
    int entry;
    double value;
    int32_t label;
    const char *line;
  } cases[] = {{96, 0.01, 1, "0.55 "},  {96, -0.01, 0, "0.45 "},
               {0, 1.0, 1, "1.00 "},    {64, 1.0, 0, "0.00 "},
               {65, 0.001, 1, "0.53 "}, {70, 1000.0, 0, "0.50 "},
               {10, std::numeric_limits<double>::quiet_NaN(), 0, "nan "}};
  for (const auto &c : cases) {
    Difference d(97, 0.0);
    d[c.entry] = c.value;
    const auto [label, line] = score(d);
    EXPECT_EQ(label, c.label) << c.entry;
    // The sign a NaN prints with differs between targets.
    EXPECT_TRUE(line == c.line || (std::isnan(c.value) && line == "-nan "))
        << line;
  }
}

float f(double v) { return static_cast<float>(v); }

// A value for entry k whose product with its weight rounds to exactly
// -target, searched near -target / weight; 0 if there is none. With
// `fused_gap` the exact product must also lie above -target, so that a
// product fused into the addition of target leaves a positive sum.
double cancelling_value(int k, float target, bool fused_gap) {
  const float w = f(paramsClass[k + 1]);
  float v = -target / w;
  for (int step = 0; step < 32; ++step) v = std::nextafter(v, 0.0f);
  for (int step = 0; step < 64; ++step, v = std::nextafter(v, 2 * v)) {
    if (v * w == -target && (!fused_gap || std::fma(v, w, target) > 0.0f)) {
      return v;
    }
  }
  return 0.0;
}

// Products rounded to float, added in ascending order to one float sum:
// both cases sum to 0 (label 0) so, and to a positive score with a fused
// multiply-add or with 8 lane sums.
TEST(ClassifierScore, SumsRoundedProductsInAscendingOrder) {
  Difference fused(97, 0.0);
  for (double first = 1000.0; fused[1] == 0.0 && first < 1100.0; ++first) {
    fused[0] = first;
    fused[1] = cancelling_value(1, f(first) * f(paramsClass[1]), true);
  }
  ASSERT_NE(fused[1], 0.0);

  // Lanes would cancel entries 0 and 8 and keep entry 1, which the
  // ascending sum absorbs into entry 0's product.
  Difference lanes(97, 0.0);
  lanes[0] = 1e7;
  lanes[1] = 0.1;
  const float big = f(lanes[0]) * f(paramsClass[1]);
  ASSERT_EQ(big + f(lanes[1]) * f(paramsClass[2]), big);
  lanes[8] = cancelling_value(8, big, false);
  ASSERT_NE(lanes[8], 0.0);

  for (const Difference &d : {fused, lanes}) {
    EXPECT_EQ(score(d), std::make_pair(0, std::string("0.50 ")));
  }
}

}  // namespace

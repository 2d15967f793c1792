// The learned classifier: the frame features, the weight table, the score
// of a difference vector and the earlier sub-rectangle feature.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

using Features = std::array<double, 320>;

// Subsampled pixel (x, y): byte 4 of group x on line 4 y + 3.
uint8_t &sample(RandomFrame &f, int32_t x, int32_t y) {
  return f.data()[(4 * y + 3) * f.geometry().stride + 5 * x + 4];
}

void set_all(RandomFrame &f, uint8_t v) {
  for (int32_t y = 0; y < f.geometry().height / 4; ++y) {
    for (int32_t x = 0; x < f.geometry().width / 4; ++x) sample(f, x, y) = v;
  }
}

// The exported call, with the scratch image on a page-end buffer.
Features features(const RandomFrame &f, std::vector<uint8_t> *scratch = {}) {
  const Geometry &g = f.geometry();
  PageEndBuffer image(static_cast<size_t>(g.height / 4) * (g.width / 4));
  Features out;
  get_feature_raw_10bitX5_(f.data(), g.height, g.width, g.stride, 7, 9, out.data(),
                           image.data());
  if (scratch) scratch->assign(image.data(), image.data() + image.size());
  return out;
}

// One sample v in a frame of zeros: gradient 2 v there, v at its left and
// upper neighbours. 254 keeps its own bin; 255 and above share the last.
TEST(ClassifierFeatures, GradientsFrom255OnShareTheLastFeature) {
  // The raised value, then features 318 and 319.
  const double cases[][3] = {{127, 1 / 64.0, 0.0}, {128, 0.0, 1 / 64.0}, {255, 0.0, 3 / 64.0}};
  for (const auto &c : cases) {
    RandomFrame f({36, 36, 45}, 2);
    set_all(f, 0);
    sample(f, 3, 3) = static_cast<uint8_t>(c[0]);
    const Features got = features(f);
    EXPECT_EQ(got[318], c[1]) << c[0];
    EXPECT_EQ(got[319], c[2]) << c[0];
  }
}

// 80 x 120 subsamples to 20 x 30: blocks of 2 rows by 3 columns. The raised
// sample is the last one of block row 1, block column 5, so that its three
// gradients (20, 10, 10) all fall in that block. The scratch image holds
// the subsampled frame, row by row.
TEST(ClassifierFeatures, BlockMeansAreColumnMajor) {
  RandomFrame f({80, 120, 150}, 2);
  set_all(f, 9);
  sample(f, 17, 3) = 19;
  std::vector<uint8_t> scratch;
  const Features got = features(f, &scratch);
  std::vector<uint8_t> subsampled(20 * 30, 9);
  subsampled[3 * 30 + 17] = 19;
  EXPECT_EQ(scratch, subsampled);
  for (int k = 0; k < 64; ++k) {
    EXPECT_EQ(got[k], k == 8 * 5 + 1 ? 40 / (6 * 512.0) : 0.0) << k;
  }
  EXPECT_EQ(got[64], 381 / 384.0);
  EXPECT_EQ(got[64 + 10], 2 / 384.0);
  EXPECT_EQ(got[64 + 20], 1 / 384.0);
}

using Difference = std::vector<double>;

// The label and the one line the score logs.
std::pair<int32_t, std::string> score(const Difference &d) {
  LogCapture log;
  const int32_t label = get_score_label(d.data());
  const std::vector<std::string> lines = log.texts("QLIS-I");
  EXPECT_EQ(lines.size(), 1u);
  return {label, lines.empty() ? "" : lines[0]};
}

TEST(ClassifierWeights, MatchTheTrainedTableByPosition) {
  EXPECT_TRUE(paramsClass[0] == 0.0 && std::signbit(paramsClass[0]));
  // Block column j, block row i at 1 + 8 j + i; bin b at 65 + b; the tail.
  const std::pair<int, double> spots[] = {{1 + 8 * 3 + 4, 131.700424},
                                          {65 + 8, 204.775406}, {65 + 31, 0.0}, {97, 19.273046}};
  for (const auto &[k, w] : spots) EXPECT_EQ(paramsClass[k], w) << k;
}

// Entries 0..95 are per-entry differences; entry 96 is the difference of
// two sums taken in ascending order from 0.0: a leading 1.0 absorbs 223
// addends of 2^-60 one by one, which in any other order (or as per-entry
// differences) would leave a trace.
TEST(ClassifierScore, CombineSubtractsEntriesAndAscendingShareSums) {
  std::vector<double> a(320, std::ldexp(1.0, -60)), b(320, 0.0);
  a[96] = 1.0;
  Difference d(97, 1.0);
  combine_feature(a.data(), b.data(), d.data());
  Difference want(97, std::ldexp(1.0, -60));
  want[96] = 1.0;
  EXPECT_EQ(d, want);
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

// Products rounded to float, added in ascending order to one float sum.
// Worked out offline in float arithmetic: 1014 w1 and -1452.3625488 w2
// round to products that cancel exactly, but the exact second product lies
// above its rounding, so a fused multiply-add leaves a positive sum; 1e7 w1
// absorbs 0.1 w2 and cancels -6610891 w9, which 8 lane sums would pair
// with entry 0 instead, keeping 0.1 w2. Both sum to 0 (label 0) as kept.
TEST(ClassifierScore, SumsRoundedProductsInAscendingOrder) {
  Difference fused(97, 0.0), lanes(97, 0.0);
  fused[0] = 1014.0;
  fused[1] = -1452.362548828125;
  lanes[0] = 1e7;
  lanes[1] = 0.1;
  lanes[8] = -6610891.0;
  for (const Difference &d : {fused, lanes}) {
    EXPECT_EQ(score(d), std::make_pair(0, std::string("0.50 ")));
  }
}


constexpr double kUntouched = -7.25;
constexpr uint32_t kPreset = 1000;

struct Rect {
  int32_t top, bottom, left, right, distance;
};

// A 24 x 32 frame (8 groups a line) of random bytes on a page-end buffer.
class SubRawFeature : public ::testing::Test {
 protected:
  static constexpr int32_t kHeight = 24, kWidth = 32, kStride = 41;
  int32_t run(Rect r) {
    return get_sub_raw_feature(&mean_, histogram_.data(), frame_.data(), r.top,
                               r.bottom, r.left, r.right, r.distance, kHeight,
                               kWidth, kStride);
  }
  RandomFrame frame_{{kHeight, kWidth, kStride}, 8};
  double mean_ = kUntouched;
  std::vector<uint32_t> histogram_ = std::vector<uint32_t>(256, kPreset);
};

// Lines 0 and 4 are visited (half-rows 0 and 2 of [0, 4)), groups 0..2;
// the right neighbour is one group on, the lower one 4 lines down.
TEST_F(SubRawFeature, HalvesGradientsAndAddsToTheHistogram) {
  const uint8_t lines[3][4] = {{10, 20, 40, 80}, {30, 30, 0, 255}, {0, 100, 8, 9}};
  for (int32_t l = 0; l < 3; ++l) {
    for (int32_t g = 0; g < 4; ++g) frame_.data()[4 * l * kStride + 5 * g + 4] = lines[l][g];
  }
  // (10 + 20) / 2, (20 + 10) / 2, (40 + 40) / 2; (0 + 30) / 2,
  // (30 + 70) / 2, (255 + 8) / 2 truncated.
  EXPECT_EQ(run({0, 8, 0, 12, 1}), 6);
  EXPECT_EQ(mean_, 266 / (6 * 512.0));
  std::vector<uint32_t> want(256, kPreset);
  want[15] += 3, want[40] += 1, want[50] += 1, want[131] += 1;
  EXPECT_EQ(histogram_, want);
}

// The far edges are pulled in to (height / 2) - 1 - d half-rows and
// (width / 4) - 1 - d groups: from top 16 only line 16 is visited, with
// its lower neighbour on line 20. Every other half-row is visited, and an
// odd count of half-rows rounds up, in the count as in the visits. Empty
// rectangles (as given or after the clamp) count 0.
TEST_F(SubRawFeature, CountsVisitedRowsAfterTheClamp) {
  const std::pair<Rect, int32_t> cases[] = {
      {{16, 24, 0, 32, 1}, 6 * 1}, {{0, 10, 4, 20, 1}, 4 * 3},
      {{2, 9, 0, 20, 2}, 5 * 2},   {{0, 20, 0, 32, 1}, 6 * 5},
      {{0, 8, 4, 7, 1}, 0},        {{6, 7, 0, 12, 1}, 0},
      {{18, 24, 0, 12, 2}, 0},     {{0, 8, 20, 32, 3}, 0}};
  for (const auto &[rect, count] : cases) {
    EXPECT_EQ(run(rect), count) << rect.top << " " << rect.bottom;
  }
}

}  // namespace
}  // namespace qlis::test

#include "compare/dispatch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <string>

#include "compare/judgement_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using F = JudgedFrame;

struct FlipCase {
  double stored;
  double reported;
  bool flipped;
};

void PrintTo(const FlipCase &c, std::ostream *os) {
  *os << c.stored << " -> " << c.reported;
}

class RegimeFlip : public ::testing::TestWithParam<FlipCase> {};

TEST_P(RegimeFlip, FlipsAcrossTheLimitOrOnTheFirstDimFrame) {
  EXPECT_EQ(lighting_regime_flipped(GetParam().stored, GetParam().reported),
            GetParam().flipped);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RegimeFlip,
    ::testing::Values(FlipCase{255.0, 47.5, false}, FlipCase{255.0, 47.0, true},
                      FlipCase{254.9, 47.0, false},
                      FlipCase{100.0, 46.5, false}, FlipCase{100.0, 46.4, true},
                      FlipCase{40.0, 46.8, true}, FlipCase{40.0, 46.5, false},
                      FlipCase{46.5, 0.0, false}, FlipCase{46.5, 200.0, false},
                      FlipCase{kNaN, 0.0, false}, FlipCase{255.0, kNaN, false},
                      FlipCase{40.0, kNaN, false}));

// Normal-light luminance: twice the checkerboard blocks' 2916 samples
// times their value over 3072 (see the normal-light tests).
const F kBright =
    F().features(checker(50, 200)).sharpness(constant(128));  // 237
const F kJustAboveLimit =
    F().features(constant(25)).sharpness(constant(128));  // 47

class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override { scene_change_count = 0; }
  uint32_t judge(const F &frame, int32_t mode = 1) {
    return judge_scene_and_qualitye(
        mode, frame.data(), frame.data(), &base.quality, &base.features,
        base.hist.data(), base.raw.data(), &base.clarity, &luminance,
        F::kHeight, F::kWidth, F::kStride, test_arena());
  }
  // Which judgement ran, told by its log line.
  bool low_light_ran() const {
    for (const std::string &t : log.texts("QLIS-E"))
      if (t.find("sum_lumu_high_cnt") != std::string::npos) return true;
    return false;
  }
  bool base_cleared() const { return base.same_as(BaseImage{}); }

  BaseImage base;
  double luminance = 255.0;
  LogCapture log;
};

TEST_F(Dispatch, FreshSessionBrightFrameKeepsTheStartLuminance) {
  EXPECT_EQ(judge(kBright), 4u);
  EXPECT_FALSE(low_light_ran());
  EXPECT_EQ(luminance, 255.0);
  EXPECT_FALSE(base_cleared());
}

TEST_F(Dispatch, FreshSessionFrameJustAboveTheLimitResetsAndStaysNormal) {
  base.scribble();
  EXPECT_EQ(judge(kJustAboveLimit), 4u) << "verdict survives the reset";
  EXPECT_FALSE(low_light_ran());
  EXPECT_EQ(luminance, 47.0);
  EXPECT_TRUE(base_cleared());

  EXPECT_EQ(judge(kBright), 4u);
  EXPECT_FALSE(low_light_ran());
  EXPECT_EQ(luminance, 47.0);
}

TEST_F(Dispatch, LowLightMeanIsDoubledAndCanLeaveLowLight) {
  // Block means 24 on the first 26 blocks and 23 on the others:
  // 1498 / 64 = 23.40625, reported as 46.8125.
  const F dim = F().features([](int32_t i, int32_t g) -> uint8_t {
    return (i / 12) * 8 + g / 8 < 26 ? 24 : 23;
  });
  luminance = 40.0;
  base.scribble();
  judge(dim);
  EXPECT_TRUE(low_light_ran());
  EXPECT_EQ(luminance, 46.8125);
  EXPECT_TRUE(base_cleared());
}

TEST_F(Dispatch, StoredLimitTakesLowLightAndIsNeverLeftByTheCrossingRules) {
  luminance = 46.5;
  judge(F().features(constant(24)));  // reported 48
  EXPECT_TRUE(low_light_ran());
  EXPECT_EQ(luminance, 46.5);
  EXPECT_FALSE(base_cleared());
}

TEST_F(Dispatch, ModesWithoutAReportInNormalLightReadAsDarkAndReset) {
  base.scribble();
  EXPECT_EQ(judge(kBright, 0), 3u);
  EXPECT_TRUE(base_cleared());
  EXPECT_EQ(luminance, 0.0);

  luminance = 255.0;
  EXPECT_EQ(judge(kBright, 9), 0xFFFFFFFFu);
  EXPECT_EQ(luminance, 0.0);
}

}  // namespace
}  // namespace qlis::test

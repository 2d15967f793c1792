#include "compare/dispatch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "compare/judgement_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using F = JudgedFrame;

TEST(RegimeFlip, FlipsAcrossTheLimitOrOnTheFirstDimFrame) {
  const struct {
    double stored, reported;
    bool flipped;
  } cases[] = {{255.0, 47.5, false}, {255.0, 47.0, true},  {254.9, 47.0, false},
               {100.0, 46.5, false}, {100.0, 46.4, true},  {40.0, 46.8, true},
               {40.0, 46.5, false},  {46.5, 0.0, false},   {46.5, 200.0, false},
               {kNaN, 0.0, false},   {255.0, kNaN, false}, {40.0, kNaN, false}};
  for (const auto &c : cases) {
    EXPECT_EQ(lighting_regime_flipped(c.stored, c.reported), c.flipped)
        << c.stored << " -> " << c.reported;
  }
}

// Normal-light luminance: twice the checkerboard blocks' 2916 samples
// times their value over 3072 (see the normal-light tests): 237 for the
// textured frame of mean 125, 47 for this one.
const F kJustAboveLimit = F().features(constant(25)).sharpness(constant(128));

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
  EXPECT_EQ(judge(kTextured), 4u);
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

  EXPECT_EQ(judge(kTextured), 4u);
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
  EXPECT_EQ(judge(kTextured, 0), 3u);
  EXPECT_TRUE(base_cleared());
  EXPECT_EQ(luminance, 0.0);

  luminance = 255.0;
  EXPECT_EQ(judge(kTextured, 9), 0xFFFFFFFFu);
  EXPECT_EQ(luminance, 0.0);
}

}  // namespace
}  // namespace qlis::test

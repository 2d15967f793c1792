#include "compare/quality_normal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "compare/judgement_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using F = JudgedFrame;

// The checkerboard blocks that sum their samples hold 2916 samples in this
// geometry: 25 whole blocks of 12 x 8, three of 10 x 8 on the bottom row,
// three of 12 x 6 on the right, one of 10 x 6 (the far edges lose two
// samples). The luminance is 2 * 2916 * mean / (256 * 192 / 16), truncated.
constexpr double kLuminanceOfMean125 = 237.0;  // 729000 / 3072
constexpr double kLuminanceOfMean135 = 256.0;  // 787320 / 3072

const F kFlat = F().features(constant(125)).sharpness(constant(128));

BlockFeatureSet features_of(const F &frame, uint64_t *quality = nullptr) {
  BlockFeatureSet set{};
  const uint64_t q = calc_feature_quality_with_sub(
      &set, 0, frame.data(), F::kHeight, F::kWidth, F::kStride);
  if (quality != nullptr) *quality = q;
  return set;
}

double score_of(const F &frame) {
  return compare_reblue_with_luminance_compensation(
      frame.data(), F::kHeight, F::kWidth, F::kStride, 1, 5, test_arena());
}

class NormalLight : public ::testing::Test {
 protected:
  void SetUp() override { scene_change_count = 0; }
  int32_t judge(const F &frame, double *luminance = nullptr, int32_t mode = 1,
                const F &best = kFlat) {
    return calc_quality_with_base_image(
        mode, frame.data(), best.data(), &base.quality, &base.features,
        base.raw.data(), &base.clarity, luminance, F::kHeight, F::kWidth,
        F::kStride, test_arena());
  }
  BaseImage base;
};

TEST_F(NormalLight, ZeroedBaseTakesTheFirstFrameAsASceneChange) {
  LogCapture log;
  double luminance = -1.0;
  EXPECT_EQ(judge(kTexturedSharp, &luminance), 4);
  EXPECT_EQ(scene_change_count, 1u);
  uint64_t quality = 0;
  EXPECT_TRUE(same(base.features, features_of(kTexturedSharp, &quality)));
  EXPECT_EQ(base.quality, static_cast<int64_t>(quality));
  EXPECT_EQ(base.clarity, score_of(kTexturedSharp));
  EXPECT_EQ(luminance, kLuminanceOfMean125);
  // Every block is half at 200 (bright) and half at 50 (dark).
  EXPECT_EQ(log.texts("QLIS-E"),
            std::vector<std::string>{"\n ######## sum_lum_high_cnt:32.000000, "
                                     "sum_lum_low_cnt:32.000000 \n"});

  // Another scene right after: the counter runs on.
  EXPECT_EQ(judge(F().features(constant(250))), 4);
  EXPECT_EQ(scene_change_count, 2u);
}

TEST_F(NormalLight, SharperFrameBecomesTheBaseAndBlurrierKeepsIt) {
  ASSERT_EQ(judge(kTextured), 4);
  ASSERT_EQ(base.clarity, kPlaneOf128Score);
  EXPECT_EQ(judge(kTexturedSharp), 2);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_EQ(base.clarity, score_of(kTexturedSharp));
  EXPECT_GT(base.clarity, kPlaneOf128Score);
  // Ten steps brighter and blurrier: the same scene by the distance rule,
  // and the luminance reported is the base's.
  const BaseImage before = base;
  const F brighter = F().features(checker(60, 210)).sharpness(constant(128));
  double luminance = -1.0;
  EXPECT_EQ(judge(brighter, &luminance), 3);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_TRUE(base.same_as(before));
  EXPECT_EQ(luminance, kLuminanceOfMean125);
  EXPECT_EQ(
      normal_light_luminance(features_of(brighter), F::kHeight, F::kWidth),
      kLuminanceOfMean135);
}

TEST_F(NormalLight, FlatFrameReplacesTheBaseButReportsKeepForTheSameScore) {
  ASSERT_EQ(judge(kTexturedSharp), 4);
  // Same block sums as the textured base, no texture, blurrier.
  EXPECT_EQ(judge(kFlat), 4);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_EQ(base.clarity, kPlaneOf128Score);
  EXPECT_TRUE(same(base.features, features_of(kFlat)));
  // Fields the scene test ignores: visible only if the base is rewritten.
  for (BlockFeature &b : base.features.block) b.bright_ratio = 9.0;
  EXPECT_EQ(judge(kFlat), 3);
  EXPECT_TRUE(same(base.features, features_of(kFlat)));
}

TEST_F(NormalLight, UnknownModeWritesNothing) {
  base.scribble();
  const BaseImage before = base;
  scene_change_count = 5;
  double luminance = 9.0;
  EXPECT_EQ(judge(kTexturedSharp, &luminance, 2), -1);
  EXPECT_TRUE(base.same_as(before));
  EXPECT_EQ(luminance, 9.0);
  EXPECT_EQ(scene_change_count, 5u);
}

TEST_F(NormalLight, RebuildTakesTheBestFrameAndLeavesScoreAndLuminance) {
  base.scribble();
  double luminance = 9.0;
  BlockFeatureSet expected = base.features;  // `reserved` is never written
  const uint64_t quality = calc_feature_quality_with_sub(
      &expected, 0, kTexturedSharp.data(), F::kHeight, F::kWidth, F::kStride);
  EXPECT_EQ(judge(kFlat, &luminance, 0, kTexturedSharp), 3);
  EXPECT_TRUE(same(base.features, expected));
  EXPECT_EQ(base.quality, static_cast<int64_t>(quality));
  EXPECT_EQ(base.clarity, 0.75);
  EXPECT_EQ(luminance, 9.0);
}

// 148324^2 = 22000008976: above 1000 * 22000000, below 6500 * 22000001.
TEST(NormalLightScene, ChangedWhenDistanceExceedsFactorTimesBase) {
  const struct {
    double base_sum;   // block 5 of the base; the only non-zero block
    double frame_sum;  // block 5 of the frame
    bool changed;
  } cases[] = {{22000000, 22000000 + 148324.0, true},
               {22000001, 22000001 + 148324.0, false},
               {10, 110, false},  // 100^2 == 1000 * 10
               {10, 111, true},
               {10, -91, true},
               {10.9, 111.8, false},  // 111 - 10 truncated
               {0, 1, true},
               {0, 0, false},
               {0, kNaN, false}};
  for (const auto &c : cases) {
    BlockFeatureSet base{}, frame{};
    base.block[5].sample_sum = c.base_sum;
    frame.block[5].sample_sum = c.frame_sum;
    EXPECT_EQ(normal_light_scene_changed(frame, base), c.changed)
        << c.base_sum << " -> " << c.frame_sum;
  }
}

TEST(NormalLightDecision, VerdictAndBaseUpdate) {
  const struct {
    bool changed, flat;
    double score;  // against a base score of 0.5
    int32_t verdict;
    bool replaces;
  } cases[] = {{true, false, 0.1, 4, true},   {false, true, 0.1, 4, true},
               {false, true, 0.5, 3, true},   {false, true, kNaN, 4, true},
               {false, false, 0.6, 2, true},  {false, false, 0.5, 3, false},
               {false, false, kNaN, 3, false}};
  for (const auto &c : cases) {
    BlockFeatureSet base{}, frame{};
    if (c.changed) frame.block[0].sample_sum = 1.0;
    for (BlockFeature &b : frame.block) b.variation = c.flat ? 0.0 : 1.0;
    const NormalLightDecision d =
        decide_normal_light(frame, base, c.score, 0.5, 192, 256);
    SCOPED_TRACE(::testing::Message() << c.changed << c.flat << " " << c.score);
    EXPECT_EQ(d.changed, c.changed);
    EXPECT_EQ(d.flat, c.flat);
    EXPECT_EQ(d.verdict, c.verdict);
    EXPECT_EQ(d.replaces_base(), c.replaces);
  }
}

TEST(NormalLightTexture,
     ThresholdDropsBelowMeanSample35AndHalfTexturedIsNotFlat) {
  auto flat = [](double total, double variation, int textured) {
    BlockFeatureSet set{};
    set.block[0].sample_sum = total;  // mean sample = total / 3072
    for (int b = 0; b < textured; ++b) set.block[b].variation = variation;
    return decide_normal_light(set, set, 0.0, 0.0, 192, 256).flat;
  };
  EXPECT_TRUE(flat(35 * 3072, 0.18, 64));       // mean 35: threshold 0.2
  EXPECT_FALSE(flat(35 * 3072 - 1, 0.18, 64));  // threshold 0.15
  EXPECT_FALSE(flat(35 * 3072, 0.21, 32));
  EXPECT_TRUE(flat(35 * 3072, 0.21, 31));
}

}  // namespace
}  // namespace qlis::test

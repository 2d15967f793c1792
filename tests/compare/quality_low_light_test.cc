#include "compare/quality_low_light.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "compare/judgement_frames.h"
#include "support/host_hooks.h"

#if defined(__SANITIZE_ADDRESS__)
#define QLIS_TEST_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QLIS_TEST_LEAK_CHECKER 1
#endif
#endif
#if defined(QLIS_TEST_LEAK_CHECKER)
#include <sanitizer/lsan_interface.h>
#endif

namespace qlis::test {
namespace {

using F = JudgedFrame;

BlockFeatureSet features_of(const F &frame) {
  BlockFeatureSet set{};
  std::vector<DiffHistogram> unused(64);
  calc_feature_quality_with_sub_low_light(&set, unused.data(), 1, frame.data(),
                                          F::kHeight, F::kWidth, F::kStride);
  return set;
}

struct Session {
  int32_t judge(const F &frame, double *luminance = nullptr, int32_t mode = 1,
                const F &best = kTextured) {
    return calc_quality_with_base_image_low_light(
        mode, frame.data(), best.data(), &base.quality, &base.features,
        base.hist.data(), base.raw.data(), &base.clarity, luminance, F::kHeight,
        F::kWidth, F::kStride, test_arena());
  }
  BaseImage base;
};

class LowLight : public ::testing::Test, protected Session {
 protected:
  void SetUp() override { scene_change_count = 0; }
};

TEST_F(LowLight, ZeroedBaseTakesTheFirstFrameAsASceneChange) {
  base.quality = 77;
  std::memset(base.hist.data(), 0x3c, 64 * sizeof(DiffHistogram));
  LogCapture log;
  double luminance = -1.0;
  // Every block of the frame is above the class threshold, none of the base.
  EXPECT_EQ(judge(kTexturedSharp, &luminance), 4);
  EXPECT_EQ(scene_change_count, 1u);
  EXPECT_TRUE(same(base.features, features_of(kTexturedSharp)));
  // The statistics-only extraction returns 0 and leaves the working block zero.
  EXPECT_EQ(base.quality, 0);
  EXPECT_TRUE(same(base.hist, std::vector<DiffHistogram>(64)))
      << "working block copied";
  EXPECT_EQ(base.clarity, compare_reblue_with_luminance_compensation(
                              kTexturedSharp.data(), F::kHeight, F::kWidth,
                              F::kStride, 1, 5, test_arena()));
  EXPECT_EQ(luminance, 125.0);
  EXPECT_EQ(
      log.texts("QLIS-E"),
      std::vector<std::string>{" \n ######## sum_lumu_high_cnt:32.000000, "
                               "sum_lumu_low_cnt:32.000000 \n"});
}

TEST_F(LowLight, SharperFrameReturns2AndBlurrierKeepsTheBase) {
  ASSERT_EQ(judge(kTextured), 4);
  EXPECT_EQ(judge(kTexturedSharp), 2);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_GT(base.clarity, kPlaneOf128Score);
  // All blocks textured, blurrier than the base: nothing changes.
  const BaseImage before = base;
  EXPECT_EQ(judge(kTextured), 3);
  EXPECT_TRUE(base.same_as(before));
}

TEST_F(LowLight, SixtyThreeTexturedBlocksAreFlatAndMoveTheBaseWithoutVerdict4) {
  ASSERT_EQ(judge(kTexturedSharp), 4);
  // Block (3, 3) flat at the same mean: no class flip, no brightness change.
  const F one_flat = F().features([](int32_t i, int32_t g) -> uint8_t {
                          if (i / 12 == 3 && g / 8 == 3) return 125;
                          return (i + g) % 2 != 0 ? 200 : 50;
                        })
                         .sharpness(constant(128));
  EXPECT_EQ(judge(one_flat), 3);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_TRUE(same(base.features, features_of(one_flat)));
  EXPECT_EQ(base.clarity, kPlaneOf128Score);
}

TEST_F(LowLight, NullLuminanceOutputChangesNothingElse) {
  Session with_output;
  double luminance = 0.0;
  for (const F *frame : {&kTextured, &kTexturedSharp}) {
    EXPECT_EQ(judge(*frame), with_output.judge(*frame, &luminance));
    EXPECT_TRUE(base.same_as(with_output.base));
  }
}

TEST_F(LowLight, RebuildTakesStatisticsOfTheBestFrameAndLogsTheTime) {
  base.scribble();
  const BaseImage before = base;
  LogCapture log;
  double luminance = 9.0;
  EXPECT_EQ(judge(kTextured, &luminance, 0, kTexturedSharp), 3);
  EXPECT_TRUE(same(base.features, features_of(kTexturedSharp)));
  EXPECT_EQ(base.quality, 0);
  EXPECT_TRUE(same(base.hist, before.hist));
  EXPECT_EQ(base.clarity, before.clarity);
  EXPECT_EQ(luminance, 9.0);
  const std::vector<std::string> lines = log.texts("QLIS-I");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(std::regex_match(
      lines[0],
      std::regex(R"(qlas CQ raw:base Q = 0, time = -?[0-9]+\.[0-9]{6} ms)")))
      << lines[0];
}

TEST_F(LowLight, UnknownModeWritesNothing) {
  base.scribble();
  const BaseImage before = base;
  scene_change_count = 5;
  double luminance = 9.0;
  {
    // The working block of an unknown mode is never released (kept as it
    // always was); the leak checker is told to look away.
#if defined(QLIS_TEST_LEAK_CHECKER)
    __lsan::ScopedDisabler leak_kept;
#endif
    EXPECT_EQ(judge(kTexturedSharp, &luminance, 2), -1);
  }
  EXPECT_TRUE(base.same_as(before));
  EXPECT_EQ(luminance, 9.0);
  EXPECT_EQ(scene_change_count, 5u);
}

TEST(LowLightStats, ThresholdsSwitchAtMean20And35AndFlatUnlessAllTextured) {
  auto stats = [](double mean, int textured) {
    BlockFeatureSet set{};
    for (int b = 0; b < 64; ++b) {
      set.block[b].sample_sum = mean;
      if (b < textured) set.block[b].variation = 0.18;
    }
    return low_light_stats(set);
  };
  EXPECT_EQ(stats(20.0, 0).class_threshold, 50000.0);
  EXPECT_EQ(stats(19.75, 0).class_threshold, 10000.0);
  EXPECT_EQ(stats(20.0, 0).mean, 20.0);
  EXPECT_TRUE(stats(35.0, 64).flat);    // 0.18 is not above 0.2
  EXPECT_FALSE(stats(34.75, 64).flat);  // it is above 0.15
  EXPECT_TRUE(stats(34.75, 63).flat);
}

// Of the 28 ring and 36 core blocks, `ring` and `core` differ from the base
// in texture class or in brightness: more than four class flips, or more
// than half of the ring or of the core brighter, is a change.
TEST(LowLightSceneChange, FlipsOrMaskedBrightness) {
  const struct {
    int ring, core;  // blocks that differ
    bool by_class;   // in texture class (else in brightness)
    bool changed;
  } cases[] = {{4, 0, true, false},    {2, 2, true, false},
               {0, 4, true, false},    {3, 2, true, true},
               {0, 5, true, true},     {15, 0, false, true},
               {14, 18, false, false}, {0, 19, false, true}};
  for (const auto &c : cases) {
    constexpr double kThreshold = 50000.0;
    BlockFeatureSet base{}, frame{};
    int ring = 0, core = 0;
    for (int b = 0; b < 64; ++b) {
      const int r = b / 8, col = b % 8;
      const bool on_ring = r == 0 || r == 7 || col == 0 || col == 7;
      const bool differs = on_ring ? ring++ < c.ring : core++ < c.core;
      base.block[b].sample_sum = frame.block[b].sample_sum = 100.0;
      // By class: the base has no textured block. By brightness: all are.
      base.block[b].deviation_sum = c.by_class ? 0.0 : 1e6;
      frame.block[b].deviation_sum = c.by_class && !differs ? 0.0 : 1e6;
      if (!c.by_class && differs) frame.block[b].sample_sum = 200.0;
    }
    EXPECT_EQ(low_light_scene_changed(frame, base, kThreshold), c.changed)
        << c.ring << " ring, " << c.core << " core, class " << c.by_class;
  }
}

}  // namespace
}  // namespace qlis::test

// Preview frames judged end to end on the worker: which frame ends up as
// the best, when the base image is reset, and the YUV path.
#include <gtest/gtest.h>

#include <cstring>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using qlis::test::HostFrame;
using qlis::test::host_frame_of;
using qlis::test::preview_verdict;
using qlis::test::Scene;
using qlis::test::ScopedSession;

constexpr int32_t kRaw10 = 15;
constexpr int32_t kYuv = 13;
constexpr int32_t kSharper = 2;
constexpr int32_t kKeep = 3;
constexpr int32_t kReplacedBase = 4;

HostFrame raw10_preview(const Scene &s) {
  return host_frame_of(qlis::test::raw10_scene(s), kRaw10, s.width, s.height, s.stride, 64, 0);
}

bool best_frame_is(const HostFrame &f) {
  return std::memcmp(bufmax.image, f.image.data(), f.image.size()) == 0 &&
         std::memcmp(bufmax.side, f.side.data(), f.side.size()) == 0;
}

TEST(PreviewEvaluation, SharperFrameBecomesBestAndStaysThere) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  scene.amplitude = 30;
  const HostFrame soft = raw10_preview(scene);
  scene.amplitude = 50;
  const HostFrame sharp = raw10_preview(scene);
  scene.amplitude = 35;
  const HostFrame softer_again = raw10_preview(scene);

  EXPECT_EQ(preview_verdict(soft), kReplacedBase);  // the first frame sets the base
  EXPECT_EQ(scene_change_count, 1u);
  EXPECT_TRUE(best_frame_is(soft));
  EXPECT_EQ(preview_verdict(sharp), kSharper);
  EXPECT_EQ(scene_change_count, 0u);
  EXPECT_TRUE(best_frame_is(sharp));
  const double clarity = base_clarity;
  EXPECT_EQ(preview_verdict(softer_again), kKeep);
  EXPECT_TRUE(best_frame_is(sharp));
  EXPECT_EQ(base_clarity, clarity);
  EXPECT_TRUE(qlis::test::pairs_hold_buffers_once());
  EXPECT_EQ(last_luminance, 255.0);  // bright scene: no regime change
}

TEST(PreviewEvaluation, SceneChangeReplacesTheBaseEvenWhenBlurrier) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  scene.level_step = 25;
  scene.amplitude = 50;
  ASSERT_EQ(preview_verdict(raw10_preview(scene)), kReplacedBase);
  scene.mirrored = true;
  scene.amplitude = 30;
  const HostFrame other = raw10_preview(scene);
  EXPECT_EQ(preview_verdict(other), kReplacedBase);
  EXPECT_TRUE(best_frame_is(other));
}

// The first dim frame after session start is judged in normal light and
// flips the regime: base cleared, its luminance remembered, the next frame
// judged in low light.
TEST(PreviewEvaluation, FirstDimFrameFlipsToLowLight) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene dim;
  dim.base_level = 10;
  dim.level_step = 2;
  dim.amplitude = 6;
  EXPECT_EQ(preview_verdict(raw10_preview(dim)), kReplacedBase);
  EXPECT_LT(last_luminance, 46.5);
  EXPECT_EQ(base_quality, 0.0);  // reset after the judgement
  EXPECT_EQ(base_clarity, 0.0);
  const double regime = last_luminance;
  dim.amplitude = 8;
  EXPECT_EQ(preview_verdict(raw10_preview(dim)), kReplacedBase);  // empty base
  EXPECT_EQ(last_luminance, regime);  // same regime: not written
  EXPECT_GT(base_clarity, 0.0);
  dim.amplitude = 9;
  EXPECT_EQ(preview_verdict(raw10_preview(dim)), kSharper);
}

// Luminance between 46.5 and 47.5 right after session start resets the base
// by the start-up rule only, and the regime stays normal.
TEST(PreviewEvaluation, StartUpBandResetsBaseButStaysInNormalLight) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene band;
  band.base_level = 24;
  band.level_step = 0;
  band.amplitude = 10;
  // The reported luminance is 2 * (sum over the checkerboard blocks) /
  // (width * height / 16), in integers. The 32 checkerboard blocks hold
  // 20 x 30 samples each, less two columns in the right edge blocks and
  // two row pairs in the bottom ones; the texture averages out.
  const int64_t samples = 25 * 600 + 3 * 18 * 30 + 3 * 20 * 28 + 18 * 28;
  const double expected = static_cast<double>(2 * 24 * samples / (640 * 480 / 16));
  ASSERT_EQ(expected, 47.0);
  preview_verdict(host_frame_of(qlis::test::raw10_scene(band), kRaw10, band.width,
                                band.height, band.stride, 0, 0));
  EXPECT_EQ(last_luminance, expected);
  EXPECT_EQ(base_quality, 0.0);
  EXPECT_EQ(base_clarity, 0.0);
  band.amplitude = 12;
  // Normal light again: a base is set and the regime is not touched.
  EXPECT_EQ(preview_verdict(host_frame_of(qlis::test::raw10_scene(band), kRaw10,
                                          band.width, band.height, band.stride, 0, 0)),
            kReplacedBase);
  EXPECT_EQ(last_luminance, expected);
  EXPECT_GT(base_clarity, 0.0);
}

TEST(PreviewEvaluation, YuvFramesAreJudgedByTheirBlockQuality) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  scene.width = 320;
  scene.height = 240;
  scene.stride = 320;
  auto yuv = [&](int amplitude) {
    scene.amplitude = amplitude;
    return host_frame_of(qlis::test::yuv_scene(scene), kYuv, scene.width, scene.height,
                         scene.stride, 16, 0);
  };
  const HostFrame first = yuv(20);
  const HostFrame sharper = yuv(30);
  const HostFrame softer = yuv(10);
  EXPECT_EQ(preview_verdict(first), kReplacedBase);
  EXPECT_EQ(preview_verdict(sharper), kSharper);
  EXPECT_EQ(preview_verdict(softer), kKeep);
  EXPECT_TRUE(best_frame_is(sharper));
  EXPECT_EQ(last_luminance, 255.0);  // the YUV path keeps no regime
  EXPECT_EQ(base_clarity, 0.0);
}

}  // namespace

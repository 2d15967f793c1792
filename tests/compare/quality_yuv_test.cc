#include "compare/quality_yuv.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "compare/judgement_frames.h"

namespace qlis::test {
namespace {

constexpr int32_t kHeight = 192, kWidth = 256, kStride = 264;

std::vector<uint8_t> plane(uint32_t seed) {
  std::vector<uint8_t> bytes(kHeight * kStride);
  for (size_t k = 0; k < bytes.size(); ++k) {
    bytes[k] = static_cast<uint8_t>((k * 2654435761u + seed) >> 13);
  }
  return bytes;
}

const std::vector<uint8_t> kFrame = plane(1);
const std::vector<uint8_t> kOther = plane(99);

BlockFeatureSet features_of(const std::vector<uint8_t> &frame,
                            uint64_t *quality) {
  BlockFeatureSet set{};
  *quality = calc_feature_quality_with_sub_yuv(&set, frame.data(), kHeight,
                                               kWidth, kStride);
  return set;
}

class Yuv : public ::testing::Test {
 protected:
  int32_t judge(const std::vector<uint8_t> &frame, int32_t mode = 1,
                const std::vector<uint8_t> &best = kOther) {
    return calc_quality_with_base_image_yuv(mode, frame.data(), best.data(),
                                            &base.quality, &base.features,
                                            kHeight, kWidth, kStride);
  }
  BaseImage base;
};

TEST_F(Yuv, ZeroedBaseTakesTheFirstFrameAsASceneChange) {
  uint64_t quality = 0;
  const BlockFeatureSet expected = features_of(kFrame, &quality);
  EXPECT_EQ(judge(kFrame), 4);
  EXPECT_TRUE(same(base.features, expected));
  EXPECT_EQ(base.quality, static_cast<int64_t>(quality));
}

TEST_F(Yuv, OnlyAStrictlyLargerUnsignedQualityIsBetter) {
  ASSERT_EQ(judge(kFrame), 4);
  uint64_t quality = 0;
  features_of(kFrame, &quality);
  ASSERT_GT(quality, 0u);

  const BaseImage before = base;
  EXPECT_EQ(judge(kFrame), 3);
  EXPECT_TRUE(base.same_as(before));

  base.quality = static_cast<int64_t>(quality - 1);
  EXPECT_EQ(judge(kFrame), 2);
  EXPECT_EQ(base.quality, static_cast<int64_t>(quality));

  // All ones, -1 as stored, is the unsigned maximum.
  base.quality = -1;
  EXPECT_EQ(judge(kFrame), 3);
  EXPECT_EQ(base.quality, -1);
}

TEST_F(Yuv, RebuildTakesTheBestFrame) {
  base.scribble();
  EXPECT_EQ(judge(kFrame, 0, kOther), 3);
  BlockFeatureSet expected = base.features;  // fields 1 to 5 are kept
  const uint64_t quality = calc_feature_quality_with_sub_yuv(
      &expected, kOther.data(), kHeight, kWidth, kStride);
  EXPECT_TRUE(same(base.features, expected));
  EXPECT_EQ(base.quality, static_cast<int64_t>(quality));
}

TEST_F(Yuv, UnknownModeWritesNothing) {
  base.scribble();
  const BaseImage before = base;
  EXPECT_EQ(judge(kFrame, 5), -1);
  EXPECT_TRUE(base.same_as(before));
}

TEST(YuvSceneChange, DistanceMustExceed12000TimesTheBaseBrightness) {
  BlockFeatureSet base{}, frame{};
  base.block[9].sample_sum = 30.0;
  frame.block[9].sample_sum = 630.0;  // 600^2 == 12000 * 30
  EXPECT_FALSE(yuv_scene_changed(frame, base));
  frame.block[9].sample_sum = 631.0;
  EXPECT_TRUE(yuv_scene_changed(frame, base));
  // One factor for every brightness: 400000^2 is a change for the RAW10
  // rule (6500 * base) but not here.
  base.block[9].sample_sum = 22000001.0;
  frame.block[9].sample_sum = 22000001.0 + 400000.0;
  EXPECT_FALSE(yuv_scene_changed(frame, base));
}

}  // namespace
}  // namespace qlis::test

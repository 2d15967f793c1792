// Burst capture: sharpest and blurriest frame, and when the blurriest is
// replaced by the best preview frame.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using qlis::test::host_frame_of;
using qlis::test::preview_verdict;
using qlis::test::Scene;
using qlis::test::ScopedSession;

constexpr uint32_t kSideBytes = 40;

// A burst record over frames the test owns.
class BurstRecord {
 public:
  explicit BurstRecord(const std::vector<std::vector<uint8_t>> &frames, const Scene &s)
      : record_(QL_IS_BURST_RECORD_SIZE + 16, 0), images_(frames) {
    sides_.assign(frames.size(), std::vector<uint8_t>(kSideBytes, 0xEE));
    for (size_t i = 0; i < frames.size(); ++i) {
      const int n = static_cast<int>(i);
      ql_is_record_put_i32(record_.data(), QL_IS_BURST_WIDTH(n), s.width);
      ql_is_record_put_i32(record_.data(), QL_IS_BURST_HEIGHT(n), s.height);
      ql_is_record_put_i32(record_.data(), QL_IS_BURST_STRIDE(n), s.stride);
      ql_is_record_put_ptr(record_.data(), QL_IS_BURST_IMAGE(n), images_[i].data());
      ql_is_record_put_ptr(record_.data(), QL_IS_BURST_SIDE(n), sides_[i].data());
    }
    ql_is_record_put_i32(record_.data(), QL_IS_BURST_IMAGE_SIZE,
                         static_cast<int32_t>(frames[0].size()));
    ql_is_record_put_i32(record_.data(), QL_IS_BURST_SIDE_SIZE, kSideBytes);
    ql_is_record_put_i32(record_.data(), QL_IS_BURST_COUNT, static_cast<int32_t>(frames.size()));
    ql_is_record_put_i32(record_.data(), QL_IS_BURST_MODE, 1);
    ql_is_record_put_i32(record_.data(), QL_IS_BURST_RESULT, -77);
  }
  void *data() { return record_.data(); }
  int32_t result() const { return ql_is_record_get_i32(record_.data(), QL_IS_BURST_RESULT); }
  const std::vector<uint8_t> &image(int i) const { return images_[static_cast<size_t>(i)]; }
  const std::vector<uint8_t> &side(int i) const { return sides_[static_cast<size_t>(i)]; }

 private:
  std::vector<uint8_t> record_;
  std::vector<std::vector<uint8_t>> images_;
  std::vector<std::vector<uint8_t>> sides_;
};

// A dim scene: bursts are taken in low light, where the preview base holds
// block means that the burst frames can be compared with.
Scene dim_scene(int amplitude) {
  Scene s;
  s.base_level = 10;
  s.level_step = 2;
  s.amplitude = amplitude;
  return s;
}

// Runs the preview into low light with a base frame of amplitude 6.
std::vector<uint8_t> low_light_base() {
  const Scene first = dim_scene(5);
  EXPECT_EQ(preview_verdict(host_frame_of(qlis::test::raw10_scene(first), 15, first.width,
                                          first.height, first.stride, kSideBytes, 0)),
            4);
  EXPECT_LT(last_luminance, 46.5);
  const Scene base = dim_scene(6);
  std::vector<uint8_t> image = qlis::test::raw10_scene(base);
  EXPECT_EQ(preview_verdict(host_frame_of(image, 15, base.width, base.height, base.stride,
                                          kSideBytes, 0)),
            4);
  return image;
}

std::vector<std::vector<uint8_t>> dim_frames(std::initializer_list<int> amplitudes) {
  std::vector<std::vector<uint8_t>> frames;
  for (int a : amplitudes) frames.push_back(qlis::test::raw10_scene(dim_scene(a)));
  return frames;
}

TEST(BurstCapture, ConsistentBurstReplacesItsBlurriestFrameWithTheBest) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  const std::vector<uint8_t> base = low_light_base();
  const auto frames = dim_frames({8, 4, 10, 5});
  BurstRecord burst(frames, dim_scene(0));
  qlis::test::LogCapture log;
  ASSERT_EQ(ql_is_process_bat_takepicture(burst.data()), 0);
  EXPECT_EQ(burst.result(), 2);
  EXPECT_EQ(log.texts("QLIS-E").back(),
            "ql_is_process_bat_takepicture, 1274, bestId:2, replaceId:1");
  EXPECT_EQ(burst.image(1), base);
  EXPECT_EQ(0, std::memcmp(burst.side(1).data(), bufmax.side, kSideBytes));
  for (int i : {0, 2, 3}) EXPECT_EQ(burst.image(i), frames[static_cast<size_t>(i)]) << i;
  EXPECT_EQ(base_quality, 0.0);
  EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
}

TEST(BurstCapture, BurstSharperThanTheBaseKeepsEveryFrame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  low_light_base();
  const auto frames = dim_frames({9, 7, 8});
  BurstRecord burst(frames, dim_scene(0));
  ASSERT_EQ(ql_is_process_bat_takepicture(burst.data()), 0);
  EXPECT_EQ(burst.result(), 0);  // bestId
  for (int i = 0; i < 3; ++i) EXPECT_EQ(burst.image(i), frames[static_cast<size_t>(i)]);
}

TEST(BurstCapture, FrameAsSharpAsTheBaseForbidsReplacement) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  const std::vector<uint8_t> base = low_light_base();
  auto frames = dim_frames({4, 8});
  frames.push_back(base);  // re-blur score equal to the base clarity
  BurstRecord burst(frames, dim_scene(0));
  qlis::test::LogCapture log;
  ASSERT_EQ(ql_is_process_bat_takepicture(burst.data()), 0);
  EXPECT_EQ(log.texts("QLIS-E").back(),
            "ql_is_process_bat_takepicture, 1274, bestId:1, replaceId:0");
  EXPECT_EQ(burst.image(0), frames[0]);
}

TEST(BurstCapture, InconsistentFrameReportsArgMaxAndArgMinWithoutReplacing) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  low_light_base();
  Scene other = dim_scene(3);
  other.mirrored = true;
  auto frames = dim_frames({5, 9});
  frames.push_back(qlis::test::raw10_scene(other));
  frames.push_back(qlis::test::raw10_scene(dim_scene(4)));
  BurstRecord burst(frames, dim_scene(0));
  qlis::test::LogCapture log;
  ASSERT_EQ(ql_is_process_bat_takepicture(burst.data()), 0);
  EXPECT_EQ(burst.result(), 1);
  EXPECT_EQ(log.texts("QLIS-E").back(),
            "ql_is_process_bat_takepicture, 1274, bestId:1, replaceId:2");
  for (int i = 0; i < 4; ++i) EXPECT_EQ(burst.image(i), frames[static_cast<size_t>(i)]);
}

TEST(BurstCapture, DumpsBaseInputsAndReplacedOutput) {
  qlis::test::ScopedFsRoot root;
  root.make_dirs("/sdcard");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  low_light_base();
  qlis::test::ScopedProperty dump("debug.camera.dump_qlas_cap", "1");
  BurstRecord burst(dim_frames({8, 4}), dim_scene(0));
  ASSERT_EQ(ql_is_process_bat_takepicture(burst.data()), 0);
  const auto files = root.files();
  ASSERT_EQ(files.size(), 4u);
  const std::string stamp = R"(/sdcard/\d{8}-\d\d-\d\d-\d\d-\d{3})";
  EXPECT_TRUE(std::regex_match(files[0], std::regex(stamp + "_qlas_cap_inbase_800_640x480\\.raw")));
  EXPECT_TRUE(std::regex_match(files[1], std::regex(stamp + "_qlas_cap_input 0_800_640x480\\.raw")));
  EXPECT_TRUE(std::regex_match(files[2], std::regex(stamp + "_qlas_cap_input 1_800_640x480\\.raw")));
  EXPECT_TRUE(std::regex_match(files[3], std::regex(stamp + "_qlas_cap_output 0 1_800_640x480\\.raw")))
      << files[3];
}

TEST(BurstCapture, RefusesCountsOutsideTwoToSixNullFramesAndWrongMode) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  BurstRecord burst(dim_frames({4, 5}), dim_scene(0));
  for (int count : {1, 7, 0, -2}) {
    ql_is_record_put_i32(burst.data(), QL_IS_BURST_COUNT, count);
    EXPECT_EQ(ql_is_process_bat_takepicture(burst.data()), -1) << count;
  }
  ql_is_record_put_i32(burst.data(), QL_IS_BURST_COUNT, 3);  // frame 2 is null
  EXPECT_EQ(ql_is_process_bat_takepicture(burst.data()), -1);
  ql_is_record_put_i32(burst.data(), QL_IS_BURST_COUNT, 2);
  ql_is_record_put_i32(burst.data(), QL_IS_BURST_MODE, 0);
  EXPECT_EQ(ql_is_process_bat_takepicture(burst.data()), -1);
  EXPECT_EQ(burst.result(), -77);
  EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
}

}  // namespace

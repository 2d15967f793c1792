// Single and burst captures against the preview history.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <regex>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using qlis::test::HostFrame;
using qlis::test::host_frame_of;
using qlis::test::LogCapture;
using qlis::test::preview_verdict;
using qlis::test::Scene;
using qlis::test::ScopedSession;

constexpr int32_t kRaw10 = 15;

HostFrame raw10_frame(const Scene &s, int32_t mode) {
  return host_frame_of(qlis::test::raw10_scene(s), kRaw10, s.width, s.height, s.stride, 48,
                       mode);
}

bool all_zero(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; ++i) {
    if (b[i] != 0) return false;
  }
  return true;
}

void expect_base_cleared() {
  EXPECT_EQ(base_quality, 0.0);
  EXPECT_TRUE(all_zero(&base_feature, sizeof base_feature));
  EXPECT_TRUE(all_zero(base_diff_hist, 65536));
}

TEST(SingleCapture, BlurrierCaptureIsReplacedByTheBestPreviewFrame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  scene.amplitude = 50;
  const HostFrame preview = raw10_frame(scene, 0);
  ASSERT_EQ(preview_verdict(preview), 4);
  const double clarity = base_clarity;
  scene.amplitude = 30;
  HostFrame capture = raw10_frame(scene, 1);
  LogCapture log;
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  EXPECT_EQ(capture.image, preview.image);  // replaced byte for byte
  EXPECT_EQ(capture.side, preview.side);
  EXPECT_EQ(prevParam.result, 3);
  EXPECT_EQ(prevParam.capture, 1);
  EXPECT_EQ(log.texts("QLIS-E").back(), "ql_is_process_takepicture, 881, result:3");
  expect_base_cleared();
  EXPECT_EQ(base_clarity, clarity);  // deliberately kept
  EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
  EXPECT_TRUE(qlis::test::pairs_hold_buffers_once());
}

TEST(SingleCapture, SharperCaptureStandsAndBecomesTheBestFrame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  scene.amplitude = 30;
  ASSERT_EQ(preview_verdict(raw10_frame(scene, 0)), 4);
  scene.amplitude = 50;
  HostFrame capture = raw10_frame(scene, 1);
  const std::vector<uint8_t> original = capture.image;
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  EXPECT_EQ(prevParam.result, 2);
  EXPECT_EQ(capture.image, original);
  EXPECT_EQ(0, std::memcmp(bufmax.image, original.data(), original.size()));
  expect_base_cleared();
}

TEST(SingleCapture, UnsupportedFormatIsKeptAndTheBaseClearedAllTheSame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  ASSERT_EQ(preview_verdict(raw10_frame(scene, 0)), 4);
  HostFrame capture = raw10_frame(scene, 1);
  capture.param.format = 12;
  capture.image.assign(capture.image.size(), 7);
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  EXPECT_EQ(prevParam.result, 0);
  EXPECT_EQ(capture.image, std::vector<uint8_t>(capture.image.size(), 7));
  expect_base_cleared();
}

TEST(SingleCapture, WritesInbaseInputAndOutputDumps) {
  qlis::test::ScopedFsRoot root;
  root.make_dirs("/sdcard");
  qlis::test::ScopedProperty dump("debug.camera.dump_qlas_cap", "1");
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  Scene scene;
  ASSERT_EQ(preview_verdict(raw10_frame(scene, 0)), 4);
  scene.amplitude = 20;
  HostFrame capture = raw10_frame(scene, 1);
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  const auto files = root.files();
  ASSERT_EQ(files.size(), 3u);
  const std::string stamp = R"(/sdcard/\d{8}-\d\d-\d\d-\d\d-\d{3})";
  EXPECT_TRUE(std::regex_match(files[0], std::regex(stamp + "_qlas_cap_inbase_800_640x480\\.raw")))
      << files[0];
  EXPECT_TRUE(std::regex_match(files[1], std::regex(stamp + "_qlas_cap_input_800_640x480\\.raw")))
      << files[1];
  EXPECT_TRUE(std::regex_match(files[2], std::regex(stamp + "_qlas_cap_output3_800_640x480\\.raw")))
      << files[2];
  for (const auto &f : files) {
    EXPECT_EQ(std::filesystem::file_size(root.path() + f), capture.image.size()) << f;
  }
}

TEST(CaptureRefusals, BadArgumentsAndMissingSessionChangeNothing) {
  Scene scene;
  HostFrame capture = raw10_frame(scene, 1);
  EXPECT_EQ(ql_is_process_takepicture(&capture.param), -1);  // no session
  std::vector<uint8_t> burst(QL_IS_BURST_RECORD_SIZE, 0);
  EXPECT_EQ(ql_is_process_bat_takepicture(burst.data()), -1);

  ScopedSession session;
  ASSERT_TRUE(session.ok());
  EXPECT_EQ(ql_is_process_takepicture(nullptr), -1);
  capture.param.mode = 0;
  EXPECT_EQ(ql_is_process_takepicture(&capture.param), -1);
  capture.param.mode = 1;
  capture.param.image.ptr = nullptr;
  EXPECT_EQ(ql_is_process_takepicture(&capture.param), -1);
  EXPECT_EQ(ql_is_process_bat_takepicture(nullptr), -1);
  EXPECT_EQ(prevParam.capture, 0);
  EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
}

TEST(CaptureRefusals, CallsAfterDeinitReturnAtOnce) {
  Scene scene;
  HostFrame capture = raw10_frame(scene, 1);
  const std::vector<uint8_t> original = capture.image;
  ASSERT_EQ(ql_is_init(), 0);
  ql_is_deinit();
  EXPECT_EQ(ql_is_process_takepicture(&capture.param), -1);
  EXPECT_EQ(capture.image, original);
  std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE, 0);
  ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, 2);
  ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(0), capture.image.data());
  ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(1), capture.image.data());
  ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
  ql_is_record_put_i32(record.data(), QL_IS_BURST_RESULT, 9);
  EXPECT_EQ(ql_is_process_bat_takepicture(record.data()), -1);
  EXPECT_EQ(ql_is_record_get_i32(record.data(), QL_IS_BURST_RESULT), 9);
  EXPECT_EQ(g_asIQThdInfo.capture_calls, 0);
}

}  // namespace

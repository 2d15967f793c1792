// The library built with its Android backends on a Linux host: log lines
// go to Debian's liblog, properties come through bionic's
// __system_property_get (here the stand-in over libbase's property store),
// files are opened at the paths as they stand.
#include <android-base/properties.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/scenes.h"
#include "support/session.h"

namespace {

using namespace qlis::test;

// Debian's liblog writes every line to standard error ("QLIS-E E 01-31
// 12:00:00 pid tid text") unless a logger is installed in its place; this
// one keeps the library's error lines.
std::mutex lines_mutex;
std::vector<std::string> error_lines;

void keep_line(const __android_logger_data *line, const char *message) {
  if (line->priority != ANDROID_LOG_ERROR || std::string(line->tag) != "QLIS-E") return;
  std::lock_guard<std::mutex> lock(lines_mutex);
  error_lines.push_back(message);
}

std::string last_error_line() {
  std::lock_guard<std::mutex> lock(lines_mutex);
  return error_lines.empty() ? "" : error_lines.back();
}

HostFrame raw10(const Scene &s, int32_t mode) {
  return host_frame_of(raw10_scene(s), 15, s.width, s.height, s.stride, 40, mode);
}

Scene sharpness(int amplitude) { return {640, 480, 800, 60, 10, amplitude}; }

// Previews build the best frame, a blurrier capture is replaced by it, a
// burst names its sharpest frame; the results arrive in liblog.
TEST(AndroidPlatform, SessionOfPreviewsCaptureAndBurstLogsThroughLiblog) {
  __android_log_set_logger(keep_line);
  ASSERT_EQ(ql_is_init(), 0);
  const HostFrame previews[] = {raw10(sharpness(40), 0), raw10(sharpness(20), 0),
                                raw10(sharpness(60), 0)};
  std::vector<int32_t> verdicts;
  for (const HostFrame &p : previews) {
    ASSERT_TRUE(preview_until_evaluated(&p.param));
    verdicts.push_back(prevParam.result);
  }
  EXPECT_EQ(verdicts, (std::vector<int32_t>{4, 3, 2}));  // base, blurrier, sharper

  HostFrame capture = raw10(sharpness(20), 1);
  ASSERT_EQ(ql_is_process_takepicture(&capture.param), 0);
  EXPECT_EQ(last_error_line(), "ql_is_process_takepicture, 881, result:3");
  EXPECT_TRUE(capture.image == previews[2].image && capture.side == previews[2].side);

  const Scene small{256, 192, 320};
  Burst burst({raw10_scene({256, 192, 320, 60, 10, 20}), raw10_scene(small)}, small);
  ASSERT_EQ(burst.run(), 0);
  EXPECT_EQ(burst.result(), 1);  // the sharper
  EXPECT_EQ(last_error_line(), "ql_is_process_bat_takepicture, 1274, bestId:1, replaceId:0");

  EXPECT_EQ(ql_is_deinit(), 0);
  EXPECT_EQ(initDone, 0);
  __android_log_set_logger(__android_log_stderr_logger);
}

// The library reads a property afresh at every use: "2" in the copy mode
// drops every preview frame, "0" takes them again.
TEST(AndroidPlatform, PropertySetInLibbaseIsReadByTheLibrary) {
  ASSERT_EQ(ql_is_init(), 0);
  const HostFrame first = raw10(sharpness(40), 0), second = raw10(sharpness(20), 0);
  ASSERT_TRUE(preview_until_evaluated(&first.param));
  ASSERT_TRUE(android::base::SetProperty("debug.camera.qlas.mcpy", "2"));
  for (int i = 0; i < 50; ++i, usleep(1000)) ql_is_process_preview(&second.param);
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  EXPECT_EQ(prevParam.image, first.param.image.ptr);  // none handed over
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  ASSERT_TRUE(android::base::SetProperty("debug.camera.qlas.mcpy", "0"));
  EXPECT_TRUE(preview_until_evaluated(&second.param));
  EXPECT_EQ(ql_is_deinit(), 0);
}

// An absolute path is used as it stands: the host's file-system root
// ($QLIS_FS_ROOT) means nothing to the Android backend.
TEST(AndroidPlatform, FilesAreWrittenAtThePathAsItStands) {
  const std::string path = testing::TempDir() + "qlis_android_platform_dump.yuv";
  ASSERT_EQ(path[0], '/');
  setenv("QLIS_FS_ROOT", "/nonexistent", 1);
  const uint8_t data[] = {1, 2, 3, 4, 5};
  dumpYUV(data, sizeof data, path.c_str());
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> written{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(written, (std::vector<char>{1, 2, 3, 4, 5}));
  std::remove(path.c_str());
}

}  // namespace

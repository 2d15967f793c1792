#include <gtest/gtest.h>

#include <cstring>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/session.h"

namespace {

using qlis::test::HostFrame;
using qlis::test::LogCapture;
using qlis::test::make_host_frame;
using qlis::test::ScopedProperty;
using qlis::test::ScopedSession;

constexpr int32_t kUnsupported = 12;  // evaluated as "format not supported"

struct Snapshot {
  BufPair temp = buftemp;
  BufPair proc = bufproc;
  BufPair max = bufmax;
  PrevParam job = prevParam;
  uint8_t pending = g_asIQThdInfo.pending;
};

void expect_untouched(const Snapshot &before) {
  EXPECT_EQ(buftemp.image, before.temp.image);
  EXPECT_EQ(bufproc.image, before.proc.image);
  EXPECT_EQ(bufmax.image, before.max.image);
  EXPECT_EQ(0, std::memcmp(&prevParam, &before.job, sizeof prevParam));
  EXPECT_EQ(g_asIQThdInfo.pending, before.pending);
  EXPECT_EQ(g_asIQThdInfo.preview_calls, 0);
}

TEST(PreviewIntake, RefusesNullPointersAndCaptureFramesWithoutEffect) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  HostFrame frame = make_host_frame(kUnsupported, 64, 16, 80, 0, 1, 1);
  const Snapshot before;
  ql_is_process_preview(nullptr);
  ql_is_process_preview(&frame.param);  // mode 1
  frame.param.mode = 0;
  frame.param.image.ptr = nullptr;
  ql_is_process_preview(&frame.param);
  expect_untouched(before);
}

TEST(PreviewIntake, IgnoresFramesWithoutSessionOrAfterDeinit) {
  HostFrame frame = make_host_frame(kUnsupported, 64, 16, 80, 0, 0, 1);
  ql_is_process_preview(&frame.param);
  EXPECT_EQ(g_asIQThdInfo.preview_calls, 0);
  EXPECT_EQ(prevParam.width, 0);
  ASSERT_EQ(ql_is_init(), 0);
  ql_is_deinit();
  ql_is_process_preview(&frame.param);
  EXPECT_EQ(prevParam.width, 0);
  EXPECT_EQ(bufproc.image, nullptr);
}

TEST(PreviewIntake, CopyModeTwoDropsEveryFrame) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  ScopedProperty drop("debug.camera.qlas.mcpy", "2");
  HostFrame frame = make_host_frame(kUnsupported, 64, 16, 80, 32, 0, 1);
  const Snapshot before;
  for (int i = 0; i < 3; ++i) ql_is_process_preview(&frame.param);
  expect_untouched(before);
}

TEST(PreviewIntake, BusyWorkerLockDropsTheFrameWithoutCopying) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  HostFrame frame = make_host_frame(kUnsupported, 64, 16, 80, 32, 0, 1);
  const Snapshot before;
  pthread_mutex_lock(&g_asIQThdInfo.mutex);  // as the worker holds it while evaluating
  ql_is_process_preview(&frame.param);
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  expect_untouched(before);
  EXPECT_EQ(buftemp.image[0], 0);  // nothing copied into the free pair
}

// Both copy routines hand over the same bytes; the job record describes
// the frame with the host's pointers and the central half as region.
TEST(PreviewIntake, HandsTheFrameToTheWorkerWithEitherCopy) {
  for (const char *copy_mode : {"0", "1"}) {
    ScopedSession session;
    ASSERT_TRUE(session.ok());
    ScopedProperty mode("debug.camera.qlas.mcpy", copy_mode);
    LogCapture log;
    HostFrame frame = make_host_frame(kUnsupported, 66, 18, 90, 77, 0, 3);
    ASSERT_TRUE(qlis::test::preview_until_evaluated(&frame.param));
    EXPECT_EQ(0, std::memcmp(bufproc.image, frame.image.data(), frame.image.size()));
    EXPECT_EQ(0, std::memcmp(bufproc.side, frame.side.data(), frame.side.size()));
    EXPECT_EQ(prevParam.image, frame.image.data());
    EXPECT_EQ(prevParam.side, frame.side.data());
    EXPECT_EQ(prevParam.height, 18);
    EXPECT_EQ(prevParam.width, 66);
    EXPECT_EQ(prevParam.stride, 90);
    EXPECT_EQ(prevParam.format, kUnsupported);
    EXPECT_EQ(prevParam.one, 1);
    EXPECT_EQ(prevParam.roi_left, 16);
    EXPECT_EQ(prevParam.roi_top, 4);
    EXPECT_EQ(prevParam.roi_right, 66 - 16 - 1);
    EXPECT_EQ(prevParam.roi_bottom, 18 - 4 - 1);
    EXPECT_EQ(prevParam.image_size, frame.image.size());
    EXPECT_EQ(prevParam.side_size, 77u);
    EXPECT_EQ(prevParam.capture, 0);
    EXPECT_EQ(prevParam.result, 0);
    EXPECT_TRUE(qlis::test::pairs_hold_buffers_once());
    EXPECT_EQ(log.texts("QLIS-E"),
              std::vector<std::string>{"qlas PrevTh format not support 12\n"});
  }
}

TEST(PreviewIntake, NullSideWithZeroSizeIsAccepted) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  HostFrame frame = make_host_frame(kUnsupported, 64, 16, 80, 0, 0, 5);
  ASSERT_TRUE(qlis::test::preview_until_evaluated(&frame.param));
  EXPECT_EQ(prevParam.side, nullptr);
  EXPECT_EQ(0, std::memcmp(bufproc.image, frame.image.data(), frame.image.size()));
}

}  // namespace

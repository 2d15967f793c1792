#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "api/session_state.h"
#include "ql_is/ql_is.h"
#include "support/session.h"

namespace {

using qlis::test::ScopedSession;

bool all_zero(const uint8_t *p, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (p[i] != 0) return false;
  }
  return true;
}

TEST(SessionLifecycle, VersionNeedsNoSession) {
  EXPECT_STREQ(ql_is_get_version(), "QELARN-AS-V2.0.6");
  ScopedSession session;
  EXPECT_STREQ(ql_is_get_version(), "QELARN-AS-V2.0.6");
}

TEST(SessionLifecycle, SecondInitFailsAndSecondDeinitDoesNothing) {
  ASSERT_EQ(ql_is_init(), 0);
  uint8_t *const first = buf[0];
  EXPECT_EQ(ql_is_init(), -1);
  EXPECT_EQ(buf[0], first);
  EXPECT_EQ(initDone, 1);
  ql_is_deinit();
  EXPECT_EQ(initDone, 0);
  ql_is_deinit();
  EXPECT_EQ(initDone, 0);
  EXPECT_EQ(buf[0], nullptr);
}

TEST(SessionLifecycle, InitGivesSixZeroedBlocksInThreeDistinctPairs) {
  ScopedSession session;
  ASSERT_TRUE(session.ok());
  EXPECT_EQ(size[0], 32000000u);
  EXPECT_EQ(size[1], 400000u);
  EXPECT_EQ(buftemp.image, buf[0]);
  EXPECT_EQ(buftemp.side, buf[1]);
  EXPECT_EQ(bufmax.image, buf[2]);
  EXPECT_EQ(bufmax.side, buf[3]);
  EXPECT_EQ(bufproc.image, buf[4]);
  EXPECT_EQ(bufproc.side, buf[5]);
  EXPECT_TRUE(qlis::test::pairs_hold_buffers_once());
  for (int i = 0; i < 6; ++i) EXPECT_TRUE(all_zero(buf[i], size[i % 2])) << i;
  EXPECT_TRUE(all_zero(reinterpret_cast<uint8_t *>(base_diff_hist), 65536));
  EXPECT_TRUE(all_zero(base_raw_fea, 2560));
  EXPECT_EQ(alg_buf.total, 14001024u);
  EXPECT_EQ(alg_buf.used, 0u);
  EXPECT_NE(alg_buf.base, nullptr);
  EXPECT_EQ(base_quality, 0.0);
  EXPECT_EQ(g_asIQThdInfo.idle, 1);
  EXPECT_NE(g_asIQThdInfo.thread, pthread_t{});
}

TEST(SessionLifecycle, DeinitRestoresStartValuesForTheNextSession) {
  ASSERT_EQ(ql_is_init(), 0);
  dump_count = 17;
  last_luminance = 30.0;
  base_clarity = 0.5;
  ql_is_deinit();
  EXPECT_EQ(last_luminance, 255.0);
  EXPECT_EQ(base_clarity, 0.0);
  EXPECT_EQ(base_diff_hist, nullptr);
  EXPECT_EQ(base_raw_fea, nullptr);
  EXPECT_EQ(alg_buf.base, nullptr);
  EXPECT_EQ(alg_buf.total, 14001024u);  // kept by deinit
  EXPECT_EQ(buftemp.image, nullptr);
  EXPECT_EQ(g_asIQThdInfo.thread, pthread_t{});
  ASSERT_EQ(ql_is_init(), 0);
  EXPECT_EQ(dump_count, 0);
  EXPECT_EQ(last_luminance, 255.0);
  ql_is_deinit();
}

// Fails the allocation of the third image buffer.
void *fail_third_image(size_t bytes) {
  static int images = 0;
  if (bytes == qlis::kImageBufferBytes && ++images == 3) {
    images = 0;
    return nullptr;
  }
  return std::malloc(bytes);
}

TEST(SessionLifecycle, FailedBufferAllocationCleansUpOnlyWhatItDocuments) {
  qlis::session_allocator = fail_third_image;
  EXPECT_EQ(ql_is_init(), -1);
  qlis::session_allocator = std::malloc;
  EXPECT_EQ(initDone, 0);
  for (uint8_t *block : buf) EXPECT_EQ(block, nullptr);
  EXPECT_EQ(g_asIQThdInfo.thread, pthread_t{});
  // The histogram block is freed but its pointer is left in place; the
  // raw-feature block and the arena stay allocated.
  EXPECT_NE(base_diff_hist, nullptr);
  ASSERT_NE(base_raw_fea, nullptr);
  EXPECT_NE(alg_buf.base, nullptr);
  uint8_t *const left_behind = base_raw_fea;

  ASSERT_EQ(ql_is_init(), 0);
  EXPECT_NE(base_raw_fea, nullptr);
  EXPECT_TRUE(qlis::test::pairs_hold_buffers_once());
  ql_is_deinit();
  std::free(left_behind);  // init does not free an earlier raw-feature block
}

}  // namespace

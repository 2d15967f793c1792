#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/clock.h"
#include "ql_is/ql_is.h"

namespace {

// The stamp is in local time, so it is pinned in UTC (nothing else in this
// suite reads the zone). 1704186303 is 2024-01-02 09:05:03 UTC; the
// milliseconds are truncated, not rounded: 7,999,999 ns is 007.
TEST(Clock, StampIsZeroPaddedLocalTimeAndFollowsTheRealTimeClock) {
  setenv("TZ", "UTC0", 1);
  tzset();
  char text[24];
  EXPECT_EQ(21, qlis::format_time_stamp(text, {1704186303, 7999999}));
  EXPECT_STREQ(text, "20240102-09-05-03-007");
  qlis::format_time_stamp(text, {1704186303, 8000000});
  EXPECT_STREQ(text, "20240102-09-05-03-008");

  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(21, getNowTime(text));
  EXPECT_EQ(std::strlen(text), 21u);
  const double before = static_cast<double>(std::time(nullptr)) * 1000.0;
  const double ms = now_ms();
  EXPECT_TRUE(ms >= before - 1000.0 && ms <= before + 2000.0) << ms;
  EXPECT_LE(ms, now_ms());
}

}  // namespace

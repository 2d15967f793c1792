#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "diag/clock.h"
#include "ql_is/ql_is.h"

namespace {

// The stamp is in local time: pinned in UTC, the caller's zone restored.
TEST(Clock, StampHasZeroPaddedFieldsAndTruncatedMilliseconds) {
  const char *tz = std::getenv("TZ");
  const std::string saved = tz != nullptr ? tz : "";
  setenv("TZ", "UTC0", 1);
  tzset();
  std::tm when{};
  when.tm_year = 2024 - 1900;
  when.tm_mday = 2;
  when.tm_hour = 9;
  when.tm_min = 5;
  when.tm_sec = 3;
  char text[24];
  EXPECT_EQ(21, qlis::format_time_stamp(text, {timegm(&when), 7999999}));
  EXPECT_STREQ(text, "20240102-09-05-03-007");  // truncated, not rounded
  qlis::format_time_stamp(text, {timegm(&when), 8000000});
  EXPECT_STREQ(text, "20240102-09-05-03-008");
  if (tz != nullptr) {
    setenv("TZ", saved.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

TEST(Clock, StampAndMillisecondsFollowTheRealTimeClock) {
  char text[24];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(21, getNowTime(text));
  EXPECT_EQ(std::strlen(text), 21u);
  const double before = static_cast<double>(std::time(nullptr)) * 1000.0;
  const double ms = now_ms();
  EXPECT_GE(ms, before - 1000.0);
  EXPECT_LE(ms, before + 2000.0);
  EXPECT_LE(ms, now_ms());
}

}  // namespace

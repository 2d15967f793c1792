#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "diag/clock.h"
#include "ql_is/ql_is.h"

namespace {

// Runs the body with the local time zone set to UTC.
class UtcClock : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *tz = std::getenv("TZ");
    had_tz_ = tz != nullptr;
    if (had_tz_) saved_tz_ = tz;
    setenv("TZ", "UTC0", 1);
    tzset();
  }
  void TearDown() override {
    if (had_tz_) {
      setenv("TZ", saved_tz_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_tz_ = false;
  std::string saved_tz_;
};

TEST_F(UtcClock, StampHasZeroPaddedFieldsAndTruncatedMilliseconds) {
  std::tm when{};
  when.tm_year = 2024 - 1900;
  when.tm_mon = 0;
  when.tm_mday = 2;
  when.tm_hour = 9;
  when.tm_min = 5;
  when.tm_sec = 3;
  std::timespec ts{};
  ts.tv_sec = timegm(&when);
  ts.tv_nsec = 7999999;  // 7.999999 ms is still millisecond 7
  char text[24];
  EXPECT_EQ(21, qlis::format_time_stamp(text, ts));
  EXPECT_STREQ(text, "20240102-09-05-03-007");
}

TEST(NowTime, StampAndMillisecondsFollowTheRealTimeClock) {
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

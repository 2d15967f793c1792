#include "diag/clock.h"

#include <time.h>

#include <cstdio>

#include "ql_is/ql_is.h"

namespace qlis {

// Room for the stamp of any four-digit year with its terminating zero, and
// a little more for the years past 9999 that a wrong clock may report.
constexpr size_t kTimeStampCapacity = 24;

int32_t format_time_stamp(char *dst, const std::timespec &when) {
  std::tm local{};
  const time_t seconds = when.tv_sec;
  localtime_r(&seconds, &local);
  const int millis = static_cast<int>(when.tv_nsec / 1000000);
  return std::snprintf(dst, kTimeStampCapacity, "%04d%02d%02d-%02d-%02d-%02d-%03d",
                       local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                       local.tm_hour, local.tm_min, local.tm_sec, millis);
}

}  // namespace qlis

extern "C" int32_t getNowTime(char *dst) {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return qlis::format_time_stamp(dst, now);
}

extern "C" double now_ms(void) {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_nsec) / 1000000.0 +
         static_cast<double>(now.tv_sec) * 1000.0;
}

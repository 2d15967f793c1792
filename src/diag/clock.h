// Wall-clock stamps for dump file names and timing traces.
#pragma once

#include <cstdint>
#include <ctime>

namespace qlis {

// Formats `when` in local time as "YYYYMMDD-hh-mm-ss-mmm" into dst (at
// least 24 bytes); returns the number of characters written.
int32_t format_time_stamp(char *dst, const std::timespec &when);

}  // namespace qlis

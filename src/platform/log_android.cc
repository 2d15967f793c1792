#include "platform/log.h"

#include <android/log.h>

#include <cstdarg>

namespace qlis {

static_assert(kLogPriority == ANDROID_LOG_ERROR, "every line goes out as an error");

int log_line(const char *tag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int result = __android_log_vprint(kLogPriority, tag, format, args);
  va_end(args);
  return result;
}

}  // namespace qlis

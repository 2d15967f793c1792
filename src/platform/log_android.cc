#include "platform/log.h"

#include <android/log.h>

#include <cstdarg>

namespace qlis {

int log_line(const char *tag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int result = __android_log_vprint(kLogPriority, tag, format, args);
  va_end(args);
  return result;
}

}  // namespace qlis

#include "platform/log.h"

#include <android/log.h>

#include <cstdarg>

namespace qlis {

void log_line(const char *tag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  __android_log_vprint(kLogPriority, tag, format, args);
  va_end(args);
}

}  // namespace qlis

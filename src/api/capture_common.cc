#include "api/capture_common.h"

#include <cstdio>

#include "api/session_state.h"
#include "ql_is/ql_is.h"

namespace qlis {

void lock_for_capture() {
  AsIQThdInfo &info = g_asIQThdInfo;
  pthread_mutex_lock(&info.mutex);
  // One wait, as the worker signals once per evaluation; the flags tested
  // under the lock are what the capture relies on.
  if (info.pending == 1) pthread_cond_wait(&info.done, &info.mutex);
}

void dump_capture(const uint8_t *data, uint32_t size, const char *format, int a,
                  int b, int c, int d, int e) {
  char stamp[kCaptureNameCapacity] = {};
  getNowTime(stamp);
  char name[kCaptureNameCapacity] = {};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(name, sizeof name, format, stamp, a, b, c, d, e);
#pragma GCC diagnostic pop
  dumpYUV(data, size, name);
}

void finish_capture() {
  // The base image is cleared before the mutex is released, so that the
  // worker never judges against a half-cleared base.
  clear_base_after_capture();
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
}

}  // namespace qlis

#include "worker/worker.h"

#include <cstdio>

#include "api/session_state.h"
#include "platform/property.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace {

constexpr size_t kNameCapacity = 500;

void dump_preview_frame() {
  char stamp[kNameCapacity] = {};
  getNowTime(stamp);
  char name[kNameCapacity] = {};
  const int length = std::snprintf(name, sizeof name, "/sdcard/%s_qlas_prv_%d_%dx%d.raw",
                                   stamp, prevParam.stride, prevParam.width,
                                   prevParam.height);
  if (length < 0 || length >= static_cast<int>(sizeof name)) return;
  dumpYUV(bufproc.image, preview_plane_bytes(prevParam.height, prevParam.stride),
          name);
}

}  // namespace

uint32_t preview_plane_bytes(int32_t height, int32_t stride) {
  return static_cast<uint32_t>(height) * static_cast<uint32_t>(stride);
}

}  // namespace qlis

extern "C" void *startAsImageQualityThread(void * /*info: the global itself*/) {
  using namespace qlis;
  AsIQThdInfo &info = g_asIQThdInfo;
  for (;;) {
    pthread_mutex_lock(&info.mutex);
    // One wait, no predicate loop: a hand-over whose signal came while the
    // worker was not waiting is picked up with the next one. Only a quit
    // raised meanwhile is looked at first, so that deinit's single work
    // signal cannot be lost and leave it waiting to join forever.
    if (quit_flag().load() == 0) pthread_cond_wait(&info.work, &info.mutex);
    if (quit_flag().load() != 0) {
      pthread_cond_signal(&info.done);
      pthread_mutex_unlock(&info.mutex);
      return nullptr;
    }
    info.idle = 0;
    if (read_property_int(kPropDumpPreview) != 0) dump_preview_frame();
    PreviewThread(&prevParam);
    info.pending = 0;
    info.idle = 1;
    pthread_cond_signal(&info.done);
    pthread_mutex_unlock(&info.mutex);
  }
}

// Preview intake: hands a frame to the worker only when it can be done
// without waiting, otherwise drops it.
#include <cerrno>
#include <cstring>

#include "api/frame_record.h"
#include "api/session_state.h"
#include "platform/log.h"
#include "platform/property.h"

namespace qlis {
namespace {

constexpr const char *kPropCopyMode = "debug.camera.qlas.mcpy";
constexpr int kCopyWithMemcpy = 0;
constexpr int kDropEveryFrame = 2;

// Copies n bytes into a free buffer; false when the buffer is missing.
bool copy_in(uint8_t *dst, const uint8_t *src, uint32_t n, int copy_mode) {
  if (dst == nullptr) {
    if (n == 0) return true;
    log_line(kTagError, "qlas buftemp err.\n");
    return false;
  }
  if (n == 0) return true;
  if (copy_mode == kCopyWithMemcpy) {
    std::memcpy(dst, src, n);
  } else {
    zs_memcpy(dst, src, n);
  }
  return true;
}

}  // namespace
}  // namespace qlis

extern "C" void ql_is_process_preview(const FrameParam *frame) {
  using namespace qlis;
  if (frame == nullptr) return;
  const FrameView f = read_frame(frame);
  if (f.image == nullptr || f.mode != 0) return;
  AsIQThdInfo &info = g_asIQThdInfo;
  InFlightCall in_flight(info.preview_calls);
  if (!session_accepts_calls()) return;

  PrevParam job = make_job(f, 0);
  const int copy_mode = read_property_int(kPropCopyMode);
  if (copy_mode == kDropEveryFrame) return;
  // Only a busy lock drops the frame; any other failure counts as taken.
  if (pthread_mutex_trylock(&info.mutex) == EBUSY) return;
  // The worker cannot be busy while the lock was free; if it ever is, the
  // lock stays held here, as it always has.
  if (info.idle != 1) return;
  if (!copy_in(buftemp.image, f.image, f.image_size, copy_mode)) return;
  if (!copy_in(buftemp.side, f.side, f.side_size, copy_mode)) return;
  swap_buf(&bufproc, &buftemp, 2);
  prevParam = job;
  info.pending = 1;
  pthread_cond_signal(&info.work);
  pthread_mutex_unlock(&info.mutex);
}

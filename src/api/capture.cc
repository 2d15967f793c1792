// Single capture: the captured frame is judged against the base image on
// the caller's thread and replaced by the best preview frame when it is
// not better.
#include <cstring>

#include "api/capture_common.h"
#include "api/frame_record.h"
#include "api/session_state.h"
#include "platform/log.h"
#include "platform/property.h"

namespace qlis {
namespace {

constexpr int32_t kKeepBest = 3;
constexpr int kCaptureLogLine = 881;

void copy_if_any(uint8_t *dst, const uint8_t *src, uint32_t n) {
  if (n != 0) std::memcpy(dst, src, n);
}

}  // namespace
}  // namespace qlis

extern "C" int32_t ql_is_process_takepicture(FrameParam *frame) {
  using namespace qlis;
  if (frame == nullptr) return -1;
  const FrameView f = read_frame(frame);
  if (f.image == nullptr || f.mode != 1) return -1;
  InFlightCall in_flight(g_asIQThdInfo.capture_calls);
  if (!session_accepts_calls()) return -1;

  const PrevParam job = make_job(f, 1);
  lock_for_capture();
  // A session never lacks these buffers; if one did, the lock would stay
  // held here, as it always has.
  if ((buftemp.image == nullptr && f.image_size != 0) ||
      (buftemp.side == nullptr && f.side_size != 0)) {
    return -1;
  }
  copy_if_any(buftemp.image, f.image, f.image_size);
  copy_if_any(buftemp.side, f.side, f.side_size);
  swap_buf(&bufproc, &buftemp, 2);
  prevParam = job;

  if (read_property_int(kPropDumpCapture) != 0) {
    dump_capture(bufmax.image, f.image_size, "/sdcard/%s_qlas_cap_inbase_%d_%dx%d.raw",
                 f.stride, f.width, f.height);
    dump_capture(f.image, f.image_size, "/sdcard/%s_qlas_cap_input_%d_%dx%d.raw",
                 f.stride, f.width, f.height);
  }
  PreviewThread(&prevParam);
  const int32_t result = prevParam.result;
  if (result == kKeepBest) {
    copy_if_any(f.image, bufmax.image, f.image_size);
    copy_if_any(f.side, bufmax.side, f.side_size);
  }
  if (read_property_int(kPropDumpCapture) != 0) {
    dump_capture(f.image, f.image_size, "/sdcard/%s_qlas_cap_output%d_%d_%dx%d.raw",
                 result, f.stride, f.width, f.height);
  }
  log_line(kTagError, "%s, %d, result:%d", "ql_is_process_takepicture",
           kCaptureLogLine, result);
  finish_capture();
  return 0;
}

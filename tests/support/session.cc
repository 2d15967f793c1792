#include "support/session.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace qlis::test {

ScopedSession::ScopedSession() : ok_(ql_is_init() == 0) {}
ScopedSession::~ScopedSession() { ql_is_deinit(); }

HostFrame host_frame_of(std::vector<uint8_t> image, int32_t format, int32_t width,
                        int32_t height, int32_t stride, uint32_t side_size,
                        int32_t mode) {
  HostFrame f;
  f.image = std::move(image);
  f.side.resize(side_size);
  for (size_t i = 0; i < f.side.size(); ++i) f.side[i] = static_cast<uint8_t>(i * 3 + 1);
  f.param.format = format;
  f.param.width = width;
  f.param.height = height;
  f.param.stride = stride;
  f.param.image.ptr = f.image.data();
  f.param.side.ptr = side_size != 0 ? f.side.data() : nullptr;
  f.param.image_size = static_cast<uint32_t>(f.image.size());
  f.param.side_size = side_size;
  f.param.mode = mode;
  return f;
}

HostFrame make_host_frame(int32_t format, int32_t width, int32_t height,
                          int32_t stride, uint32_t side_size, int32_t mode,
                          uint8_t seed) {
  std::vector<uint8_t> image(static_cast<size_t>(height) * static_cast<size_t>(stride));
  for (size_t i = 0; i < image.size(); ++i) {
    image[i] = static_cast<uint8_t>(i * 7 + seed * 13 + (i >> 9));
  }
  HostFrame f = host_frame_of(std::move(image), format, width, height, stride, side_size, mode);
  for (size_t i = 0; i < f.side.size(); ++i) f.side[i] = static_cast<uint8_t>(seed + i);
  return f;
}

Burst::Burst(const Frames &frames, const Scene &s)
    : images(frames), sides(frames.size(), std::vector<uint8_t>(kSideBytes, 0xEE)) {
  for (int i = 0; i < static_cast<int>(frames.size()); ++i) {
    put(QL_IS_BURST_WIDTH(i), s.width);
    put(QL_IS_BURST_HEIGHT(i), s.height);
    put(QL_IS_BURST_STRIDE(i), s.stride);
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(i), images[i].data());
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_SIDE(i), sides[i].data());
  }
  put(QL_IS_BURST_IMAGE_SIZE, static_cast<int32_t>(frames[0].size()));
  put(QL_IS_BURST_SIDE_SIZE, kSideBytes);
  put(QL_IS_BURST_COUNT, static_cast<int32_t>(frames.size()));
  put(QL_IS_BURST_MODE, 1);
  put(QL_IS_BURST_RESULT, -77);
}

bool preview_until_evaluated(const FrameParam *frame) {
  // The job record names the host's image once the frame is handed over;
  // cleared first, it tells a hand-over from a frame the intake dropped
  // (right after init the worker holds the lock until it first waits).
  pthread_mutex_lock(&g_asIQThdInfo.mutex);
  prevParam.image = nullptr;
  pthread_mutex_unlock(&g_asIQThdInfo.mutex);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    ql_is_process_preview(frame);
    for (int poll = 0; poll < 100; ++poll) {
      pthread_mutex_lock(&g_asIQThdInfo.mutex);
      const bool evaluated = g_asIQThdInfo.pending == 0 && g_asIQThdInfo.idle == 1 &&
                             prevParam.image == frame->image.ptr;
      pthread_mutex_unlock(&g_asIQThdInfo.mutex);
      if (evaluated) return true;
      usleep(1000);
    }
  }
  return false;
}

int32_t preview_verdict(const HostFrame &frame) {
  if (!preview_until_evaluated(&frame.param)) return -100;
  return prevParam.result;
}

bool pairs_hold_buffers_once() {
  const BufPair *pairs[] = {&buftemp, &bufmax, &bufproc};
  std::vector<uint8_t *> seen;
  for (const BufPair *p : pairs) {
    seen.push_back(p->image);
    seen.push_back(p->side);
    // An image block sits at an even index of buf, its side right after.
    const auto it = std::find(buf, buf + 6, p->image);
    if (it == buf + 6 || (it - buf) % 2 != 0 || *(it + 1) != p->side) return false;
  }
  for (uint8_t *block : buf) {
    if (block == nullptr || std::count(seen.begin(), seen.end(), block) != 1) return false;
  }
  return true;
}

}  // namespace qlis::test

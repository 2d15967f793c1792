// Helpers for tests that run a whole session.
#pragma once

#include <cstdint>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/scenes.h"

namespace qlis::test {

// Initialises a session for the test and ends it afterwards.
class ScopedSession {
 public:
  ScopedSession();
  ~ScopedSession();
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

// A host frame record over buffers the test owns. Move-only: a move keeps
// the buffers the record points at, a copy would not.
struct HostFrame {
  HostFrame() = default;
  HostFrame(HostFrame &&) = default;
  HostFrame &operator=(HostFrame &&) = default;
  HostFrame(const HostFrame &) = delete;
  HostFrame &operator=(const HostFrame &) = delete;

  FrameParam param = {};
  std::vector<uint8_t> image;
  std::vector<uint8_t> side;
};

// A host frame over the given image bytes, with a side buffer of
// side_size bytes.
HostFrame host_frame_of(std::vector<uint8_t> image, int32_t format, int32_t width,
                        int32_t height, int32_t stride, uint32_t side_size,
                        int32_t mode);

HostFrame make_host_frame(int32_t format, int32_t width, int32_t height,
                          int32_t stride, uint32_t side_size, int32_t mode,
                          uint8_t seed);

// Hands a preview frame over and waits until the worker has evaluated it.
// The worker waits once per hand-over, so a signal sent before it waits
// (right after init, say) is only taken up with the next frame: like a
// preview stream, the frame is handed over again until it is evaluated.
bool preview_until_evaluated(const FrameParam *frame);

// Evaluates a preview frame and returns its verdict (-100 on time-out).
int32_t preview_verdict(const HostFrame &frame);

// The six blocks held by buftemp, bufmax and bufproc are those of buf,
// each exactly once, and every image keeps its own side buffer.
bool pairs_hold_buffers_once();

using Frames = std::vector<std::vector<uint8_t>>;

// A burst record in mode 1 over copies of `frames`, every frame of the
// scene's geometry, each with a side buffer of 40 bytes of 0xEE. The result
// field starts at -77, which the library never writes.
struct Burst {
  static constexpr int32_t kSideBytes = 40;
  Burst(const Frames &frames, const Scene &s);
  void put(int offset, int32_t v) { ql_is_record_put_i32(record.data(), offset, v); }
  int32_t run() { return ql_is_process_bat_takepicture(record.data()); }
  int32_t result() const { return ql_is_record_get_i32(record.data(), QL_IS_BURST_RESULT); }
  Frames images;
  Frames sides;
  std::vector<uint8_t> record = std::vector<uint8_t>(QL_IS_BURST_RECORD_SIZE);
};

}  // namespace qlis::test

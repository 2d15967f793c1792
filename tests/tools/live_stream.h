// A short synthetic preview stream and the same session driven directly
// through the library's entry points, as the reference that the host tool's
// runner and `qlis replay` are compared with.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "png_image.h"
#include "ql_is/ql_is.h"
#include "support/host_hooks.h"
#include "support/session.h"
#include "synth.h"

namespace qlis::test {

inline constexpr int32_t kStreamWidth = 640;
inline constexpr int32_t kStreamHeight = 480;
inline constexpr int32_t kStreamFrames = 8;

inline const std::vector<tool::SynthFrame> &live_stream() {
  static const std::vector<tool::SynthFrame> frames = [] {
    tool::SynthParams p;
    p.width = kStreamWidth;
    p.height = kStreamHeight;
    p.frames = kStreamFrames;
    p.seed = 5;
    return tool::synthesize(tool::read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png"), p);
  }();
  return frames;
}

// The blurriest frame of the stream: the capture a shaky hand would take.
inline size_t blurriest_frame() {
  const auto &s = live_stream();
  return static_cast<size_t>(
      std::max_element(s.begin(), s.end(),
                       [](const auto &a, const auto &b) {
                         return a.truth.blur_length_px < b.truth.blur_length_px;
                       }) -
      s.begin());
}

struct DirectOutcome {
  std::vector<int32_t> verdicts;
  std::vector<bool> low_light;
  int32_t kept = -1;  // last preview frame with verdict 2 or 4
  std::vector<uint8_t> best;  // bufmax's image after the previews
  int32_t capture_verdict = 0;
  std::vector<uint8_t> capture_after;
  int32_t burst_result = -1;
  std::string burst_line;
  std::vector<std::vector<uint8_t>> burst_after;
};

inline HostFrame preview_frame(const tool::SynthFrame &f, int32_t mode) {
  return host_frame_of(f.bytes, f.desc.format, f.desc.width, f.desc.height,
                       f.desc.stride, 0, mode);
}

// Every frame evaluated in order, then an optional capture of frame
// `capture` or a burst of the frames `burst`.
inline DirectOutcome drive_directly(int capture, const std::vector<size_t> &burst) {
  const auto &s = live_stream();
  DirectOutcome out;
  LogCapture log;
  ScopedSession session;
  EXPECT_TRUE(session.ok());
  for (size_t i = 0; i < s.size(); ++i) {
    HostFrame f = preview_frame(s[i], 0);
    pthread_mutex_lock(&g_asIQThdInfo.mutex);
    out.low_light.push_back(!(last_luminance > 46.5));
    pthread_mutex_unlock(&g_asIQThdInfo.mutex);
    EXPECT_TRUE(preview_until_evaluated(&f.param));
    pthread_mutex_lock(&g_asIQThdInfo.mutex);
    out.verdicts.push_back(prevParam.result);
    pthread_mutex_unlock(&g_asIQThdInfo.mutex);
    if (out.verdicts.back() == 2 || out.verdicts.back() == 4) out.kept = static_cast<int32_t>(i);
  }
  out.best.assign(bufmax.image, bufmax.image + s[0].bytes.size());
  if (capture >= 0) {
    HostFrame f = preview_frame(s[static_cast<size_t>(capture)], 1);
    EXPECT_EQ(ql_is_process_takepicture(&f.param), 0);
    out.capture_verdict = prevParam.result;
    out.capture_after = f.image;
  }
  if (!burst.empty()) {
    std::vector<std::vector<uint8_t>> frames;
    for (size_t i : burst) frames.push_back(s[i].bytes);
    std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE);
    uint8_t side[QL_IS_BURST_MAX_FRAMES] = {};
    const auto &d = s[0].desc;
    for (size_t i = 0; i < frames.size(); ++i) {
      const int k = static_cast<int>(i);
      ql_is_record_put_i32(record.data(), QL_IS_BURST_WIDTH(k), d.width);
      ql_is_record_put_i32(record.data(), QL_IS_BURST_HEIGHT(k), d.height);
      ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(k), frames[i].data());
      ql_is_record_put_i32(record.data(), QL_IS_BURST_STRIDE(k), d.stride);
      ql_is_record_put_ptr(record.data(), QL_IS_BURST_SIDE(k), &side[i]);
    }
    ql_is_record_put_i32(record.data(), QL_IS_BURST_IMAGE_SIZE,
                         static_cast<int32_t>(frames[0].size()));
    ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, static_cast<int32_t>(frames.size()));
    ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
    EXPECT_EQ(ql_is_process_bat_takepicture(record.data()), 0);
    out.burst_result = ql_is_record_get_i32(record.data(), QL_IS_BURST_RESULT);
    for (const std::string &t : log.texts("QLIS-E")) {
      if (t.find("bestId:") != std::string::npos) out.burst_line = t;
    }
    out.burst_after = frames;
  }
  return out;
}

}  // namespace qlis::test

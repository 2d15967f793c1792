// Shared by the tool's tests: files, the built qlis and its error
// contract, and a short synthetic preview stream with the same session
// driven directly through the library's entry points, as the reference that
// the tool's runner, `qlis replay` and `qlis score` are compared with.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "raw10_pack.h"
#include "support/host_hooks.h"
#include "support/session.h"
#include "synth_output.h"
#include "tool_error.h"

namespace qlis::test {

inline std::string slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

inline size_t occurrences(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A path as one shell word.
inline std::string q(const std::string &word) { return "'" + word + "'"; }

struct ToolRun {
  int status = -1;
  std::string out, err;
};

// Runs the built qlis with `args` (shell words) in the folder `work`.
inline ToolRun run_tool(const std::string &work, const std::string &args) {
  const std::string out = work + "/tool.out", err = work + "/tool.err";
  const int raw = std::system(("cd " + q(work) + " && " + q(QLIS_TOOL_EXE) + " " + args + " >" + q(out) +
                               " 2>" + q(err)).c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

// The error contract: one "qlis: ..." line naming `part` on standard
// error, nothing on standard output, and the exit status.
inline void expect_error(const ToolRun &run, int status, const std::string &part) {
  EXPECT_EQ(std::make_pair(run.status, run.out), std::make_pair(status, std::string())) << run.err;
  EXPECT_TRUE(run.err.rfind("qlis: ", 0) == 0 && run.err.find('\n') == run.err.size() - 1 &&
              run.err.find(part) != std::string::npos) << run.err;
}

inline const tool::RgbImage &coffee() {
  static const tool::RgbImage photo = tool::read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png");
  return photo;
}

// Eight RAW10 frames of 640x480; frame 3 has the longest smear (9.2 px),
// the capture a shaky hand would take.
inline constexpr size_t kBlurry = 3;
inline const std::vector<tool::SynthFrame> &live_stream() {
  static const std::vector<tool::SynthFrame> frames = [] {
    tool::SynthParams p;
    p.width = 640, p.height = 480, p.frames = 8, p.seed = 5;
    return tool::synthesize(coffee(), p);
  }();
  return frames;
}

struct DirectOutcome {
  std::vector<int32_t> verdicts;
  std::vector<bool> low_light;
  int32_t kept = -1;  // last preview frame with verdict 2 or 4
  int32_t capture_verdict = 0;
  int32_t burst_result = -1, best_id = -2, replace_id = -2;  // ids from the decision line
};

// Every frame evaluated in order, then an optional capture of frame
// `capture` and an optional burst of the frames `burst`.
inline DirectOutcome drive_directly(int capture, const std::vector<size_t> &burst) {
  const auto &s = live_stream();
  const tool::FrameDesc &d = s[0].desc;
  DirectOutcome out;
  LogCapture log;
  ScopedSession session;
  EXPECT_TRUE(session.ok());
  for (size_t i = 0; i < s.size(); ++i) {
    HostFrame f = host_frame_of(s[i].bytes, d.format, d.width, d.height, d.stride, 0, 0);
    pthread_mutex_lock(&g_asIQThdInfo.mutex);  // the luminance that chooses the regime
    out.low_light.push_back(!(last_luminance > 46.5));
    pthread_mutex_unlock(&g_asIQThdInfo.mutex);
    EXPECT_TRUE(preview_until_evaluated(&f.param));
    out.verdicts.push_back(prevParam.result);
    if (out.verdicts.back() == 2 || out.verdicts.back() == 4) out.kept = static_cast<int32_t>(i);
  }
  if (capture >= 0) {
    HostFrame f = host_frame_of(s[static_cast<size_t>(capture)].bytes, d.format, d.width, d.height, d.stride, 0, 1);
    EXPECT_EQ(ql_is_process_takepicture(&f.param), 0);
    out.capture_verdict = prevParam.result;
  }
  if (burst.empty()) return out;
  std::vector<uint8_t> record(QL_IS_BURST_RECORD_SIZE);
  uint8_t side[QL_IS_BURST_MAX_FRAMES] = {};
  std::vector<std::vector<uint8_t>> frames;  // the library may overwrite one
  for (size_t i : burst) frames.push_back(s[i].bytes);
  for (int k = 0; k < static_cast<int>(burst.size()); ++k) {
    ql_is_record_put_i32(record.data(), QL_IS_BURST_WIDTH(k), d.width);
    ql_is_record_put_i32(record.data(), QL_IS_BURST_HEIGHT(k), d.height);
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_IMAGE(k), frames[static_cast<size_t>(k)].data());
    ql_is_record_put_i32(record.data(), QL_IS_BURST_STRIDE(k), d.stride);
    ql_is_record_put_ptr(record.data(), QL_IS_BURST_SIDE(k), &side[k]);
  }
  ql_is_record_put_i32(record.data(), QL_IS_BURST_IMAGE_SIZE, static_cast<int32_t>(s[0].bytes.size()));
  ql_is_record_put_i32(record.data(), QL_IS_BURST_COUNT, static_cast<int32_t>(burst.size()));
  ql_is_record_put_i32(record.data(), QL_IS_BURST_MODE, 1);
  EXPECT_EQ(ql_is_process_bat_takepicture(record.data()), 0);
  out.burst_result = ql_is_record_get_i32(record.data(), QL_IS_BURST_RESULT);
  for (const std::string &t : log.texts("QLIS-E"))
    std::sscanf(t.c_str(), "ql_is_process_bat_takepicture, 1274, bestId:%d, replaceId:%d", &out.best_id,
                &out.replace_id);
  return out;
}

}  // namespace qlis::test

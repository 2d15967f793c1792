// Shared by the tool's tests: files, the built qlis and its error contract,
// and the short synthetic preview stream the decisions are pinned on.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/host_hooks.h"
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

// A path as one shell word.
inline std::string q(const std::string &word) { return "'" + word + "'"; }

struct ToolRun { int status; std::string out, err; };

// Runs the built qlis with `args` (shell words) in the folder `work`.
inline ToolRun run_tool(const std::string &work, const std::string &args) {
  const std::string out = work + "/tool.out", err = work + "/tool.err";
  const int raw = std::system(("cd " + q(work) + " && " + q(QLIS_TOOL_EXE) + " " + args + " >" + q(out) +
                               " 2>" + q(err)).c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

// Eight RAW10 frames of 640x480 (indices 1 to 8 in their names); frame 3
// has the longest smear (9.2 px), the capture a shaky hand would take.
inline constexpr size_t kBlurry = 3;
inline const std::vector<tool::SynthFrame> &live_stream() {
  static const std::vector<tool::SynthFrame> frames = [] {
    tool::SynthParams p;
    p.width = 640, p.height = 480, p.frames = 8, p.seed = 5;
    return tool::synthesize(tool::read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png"), p);
  }();
  return frames;
}

}  // namespace qlis::test

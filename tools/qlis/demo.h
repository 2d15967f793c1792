// The project's main job for a newcomer: a hand-held preview stream
// synthesised from the shipped photograph goes through a live session of
// the library (every preview frame judged on its worker, then a shaken
// single capture and a burst), and the decisions are set against the
// stream's ground truth.
#pragma once

#include <cstdint>
#include <string>

#include "png_image.h"
#include "report.h"
#include "synth.h"

namespace qlis::tool {

struct DemoOptions {
  int32_t frames = kSynthDefaultFrames;  // preview frames
  uint64_t seed = 1;
  int32_t width = kSynthDefaultWidth;
  int32_t height = kSynthDefaultHeight;
};

inline constexpr int32_t kDemoBurstFrames = 4;

// Runs the session and returns what the report shows; `account` holds the
// readable lines the command prints. Throws ToolError.
SessionReport run_demo(const RgbImage &photo, const std::string &photo_path,
                    const DemoOptions &options);

}  // namespace qlis::tool

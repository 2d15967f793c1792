// The synthetic hand-held camera: from one photograph, a preview stream of
// frames that differ by a known shake blur, a small shift and fresh sensor
// noise, as packed RAW10 (RGGB Bayer mosaic, 10 bits), planar YUV or YUYV.
// The blur lengths are the ground truth a sharpness judgement should
// recover. Everything is drawn from one seed: the same seed and parameters
// give the same bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "frame_file.h"
#include "png_image.h"
#include "raw10_pack.h"

namespace qlis::tool {

// A 4:3 preview size that keeps three dozen frames quick to generate.
inline constexpr int32_t kSynthDefaultWidth = 1600;
inline constexpr int32_t kSynthDefaultHeight = 1200;
inline constexpr int32_t kSynthDefaultFrames = 36;
// The library's dump counter stops at 2000 files; so does the generator.
inline constexpr int32_t kSynthMaxFrames = 2000;
inline constexpr double kSynthDefaultMaxBlur = 12.0;
inline constexpr double kSynthBlurLimit = 64.0;

// The sensor behind the RAW10 frames (YUV frames are developed from it).
struct SensorModel {
  int32_t black_level = 64;  // code of no light
  int32_t white_level = 1023;
  double full_well_electrons =
      4000.0;                  // electrons at white: sets the shot noise
  double read_noise_dn = 1.5;  // standard deviation in codes
};

struct SynthParams {
  int32_t width = kSynthDefaultWidth;    // a multiple of 4
  int32_t height = kSynthDefaultHeight;  // even
  int32_t frames = kSynthDefaultFrames;
  int32_t format = kFormatRaw10;  // kFormatRaw10, kFormatYuv13 or kFormatYuyv
  Raw10Packing packing = Raw10Packing::kTool;  // RAW10 only
  uint64_t seed = 1;
  double max_blur_px = kSynthDefaultMaxBlur;  // longest shake smear
  int32_t max_shift_px = 4;  // largest shift either way, per axis
  SensorModel sensor;
};

// What one frame went through.
struct FrameTruth {
  int32_t index = 0;            // 1, 2, ... as in the file names
  double blur_length_px = 0.0;  // length of the straight smear; 0 is sharp
  double blur_angle_deg = 0.0;  // direction of the smear, 0 to 179, y down
  int32_t shift_x = 0;          // where the frame looks, in pixels
  int32_t shift_y = 0;
  double noise_sigma_dn = 0.0;  // noise at 18% grey, in RAW10 codes
  int32_t sharpness_rank = 0;   // 1 for the shortest smear (ties: lower index)
};

struct SynthFrame {
  FrameDesc desc;
  FrameTruth truth;
  std::vector<uint8_t> bytes;  // frame_bytes(desc) bytes
};

// Throws ToolError for parameters the generator cannot honour.
void validate_synth(const SynthParams &params);
// The frame's geometry for these parameters (tight stride).
FrameDesc synth_frame_desc(const SynthParams &params);
// Every frame's shake, shift and rank, without rendering anything.
std::vector<FrameTruth> plan_frames(const SynthParams &params);

// Renders the frames in order and hands each to `sink` as soon as it is
// done, so that a writer holds one frame at a time.
void generate_frames(const RgbImage &photo, const SynthParams &params,
                     const std::function<void(SynthFrame &&)> &sink);
// All frames in memory.
std::vector<SynthFrame> synthesize(const RgbImage &photo,
                                   const SynthParams &params);

}  // namespace qlis::tool

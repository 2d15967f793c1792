// Writing a synthetic stream: one file per frame, named as the library's
// save_to_file dumps are so that replay recognises them, and a JSON
// manifest with the generator's parameters and each frame's ground truth.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "png_image.h"
#include "synth.h"

namespace qlis::tool {

inline constexpr const char *kManifestName = "manifest.json";

// "<w>X<h>_stride<s>_fmt<f>_index<%2d>.yuv", index printed as "%2d".
std::string saved_dump_name(const FrameDesc &desc, int32_t index);

// How the frame's bytes are laid out, in words.
std::string layout_text(int32_t format,
                        Raw10Packing packing = Raw10Packing::kTool);

nlohmann::json synth_manifest(const SynthParams &params,
                              const std::string &photo_path,
                              const std::vector<FrameTruth> &frames);

// The ground truth of the frames in `dir` by file name, from a manifest
// synth wrote there; empty when there is none, or when manifest.json is not
// synth's (someone else's file is not ours to judge, nor an error).
std::map<std::string, FrameTruth> read_manifest_truth(const std::string &dir);

struct SynthReport {
  std::vector<std::string> files;  // frame files, in index order
  std::string manifest;            // path of the manifest
  uint64_t bytes = 0;              // frame bytes written
};

// Generates and writes the stream into `dir`, which the caller has prepared
// (prepare_output_dir). Throws ToolError.
SynthReport write_synth(const RgbImage &photo, const std::string &photo_path,
                        const SynthParams &params, const std::string &dir);

}  // namespace qlis::tool

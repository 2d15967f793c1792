// The preview worker: one thread that evaluates the frames the preview
// intake hands over, holding the worker mutex for a whole evaluation.
#pragma once

#include <cstdint>

namespace qlis {

// Properties of the preview path.
inline constexpr const char *kPropDumpPreview = "debug.camera.dump_qlas_prv";
inline constexpr const char *kPropDumpFrames = "debug.camera.dump_qlfd";

// Bytes of the image buffer that the preview dump writes: one plane of
// `height` lines of `stride` bytes.
uint32_t preview_plane_bytes(int32_t height, int32_t stride);

}  // namespace qlis

// Choice between the normal-light and low-light judgements, and the reset
// of the base image when the lighting regime flips.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// Stored luminance above which frames are judged in normal light.
inline constexpr double kLowLightLimit = 46.5;
// The stored luminance of a fresh session.
inline constexpr double kSessionStartLuminance = 255.0;
// A fresh session flips to the first frame below this, not below the limit:
// hysteresis for that one case.
inline constexpr double kFirstFrameLimit = 47.5;

// True when the regime flips from stored luminance `stored` to the
// reported (in low light already doubled) luminance `reported`.
bool lighting_regime_flipped(double stored, double reported);

// The whole dispatch (the exported function's body).
uint32_t judge_scene_and_quality(int32_t mode, const uint8_t *frame,
                                 const uint8_t *best_frame,
                                 int64_t *base_quality,
                                 BlockFeatureSet *base_features,
                                 DiffHistogram *base_hist, uint8_t *base_raw,
                                 double *base_clarity, double *luminance,
                                 int32_t height, int32_t width, int32_t stride,
                                 ScratchArena arena);

}  // namespace qlis

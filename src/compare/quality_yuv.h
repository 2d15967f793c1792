// Judgement of a YUV frame against the base image: a larger extractor
// quality is better, and one brightness-distance rule finds scene changes.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// A scene change needs a distance above this multiple of the base
// brightness. One factor for every brightness, unlike the RAW10 rule.
inline constexpr uint64_t kYuvSceneFactor = 12000;

// factor * base brightness < scene distance, unsigned 64-bit (wrapping).
bool yuv_scene_changed(const BlockFeatureSet &frame,
                       const BlockFeatureSet &base);

// The whole judgement (the exported function's body); the geometry words
// are handed to the YUV frame driver unchanged.
int32_t judge_yuv(int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
                  int64_t *base_quality, BlockFeatureSet *base_features,
                  int32_t geometry_a, int32_t geometry_b, int32_t geometry_c);

}  // namespace qlis

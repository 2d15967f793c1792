// Judgement of a packed RAW10 frame against the base image in low light:
// the statistics of the frame's block records, the two-way scene-change
// test, and the judgement that composes them.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// deviation_sum above which a block counts as textured, by mean brightness.
inline constexpr double kBrightMeanForClass = 20.0;
inline constexpr double kBrightClassThreshold = 50000.0;
inline constexpr double kDimClassThreshold = 10000.0;
// More class flips than this is a scene change on its own.
inline constexpr int32_t kTolerableClassFlips = 4;

// The 64 KiB working block: one difference histogram per block.
inline constexpr int32_t kWorkHistograms = 64;

struct LowLightStats {
  double mean;             // mean of the block means
  double bright_total;     // sum of bright_ratio
  double dark_total;       // sum of dark_ratio
  double class_threshold;  // deviation_sum limit of a textured block
  bool flat;               // not every block above the variation threshold
};

LowLightStats low_light_stats(const BlockFeatureSet &frame);

// True when more than four blocks changed texture class, or the masked
// brightness test finds a change on the border ring, or on the core.
bool low_light_scene_changed(const BlockFeatureSet &frame,
                             const BlockFeatureSet &base,
                             double class_threshold);

// The whole judgement (the exported function's body).
int32_t judge_low_light(int32_t mode, const uint8_t *frame,
                        const uint8_t *best_frame, int64_t *base_quality,
                        BlockFeatureSet *base_features,
                        DiffHistogram *base_hist, double *base_clarity,
                        double *luminance_out, int32_t height, int32_t width,
                        int32_t stride, ScratchArena arena);

}  // namespace qlis

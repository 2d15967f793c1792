// Judgement of a packed RAW10 frame against the base image in normal light:
// block-level decisions on the 64 records, separated from the extraction
// so that their thresholds can be reached directly.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

// Base brightness above which a scene change needs the larger distance.
inline constexpr int64_t kBrightSceneBase = 22000000;
inline constexpr uint64_t kDimSceneFactor = 1000;
inline constexpr uint64_t kBrightSceneFactor = 6500;

struct NormalLightDecision {
  bool changed;  // the scene moved away from the base
  bool flat;     // fewer than half of the blocks are textured
  bool sharper;  // the re-blur score beats the base's
  double bright_total;
  double dark_total;
  int32_t verdict;

  bool replaces_base() const { return changed || flat || sharper; }
};

// changed: the scene distance exceeds factor * base brightness (unsigned
// 64-bit, wrapping product and comparison).
bool normal_light_scene_changed(const BlockFeatureSet &frame,
                                const BlockFeatureSet &base);

// The decision for `frame` with re-blur score `score` against `base` with
// score `base_score`; height and width scale the mean sample.
NormalLightDecision decide_normal_light(const BlockFeatureSet &frame,
                                        const BlockFeatureSet &base,
                                        double score, double base_score,
                                        int32_t height, int32_t width);

// Luminance of a feature set: twice its brightness total over
// (width * height) / 16, as an unsigned 64-bit quotient.
double normal_light_luminance(const BlockFeatureSet &features, int32_t height,
                              int32_t width);

// The whole judgement (the exported function's body): mode 0 rebuilds the
// base features and quality from best_frame and returns 3; mode 1 judges
// frame; other modes return -1 and touch nothing.
int32_t judge_normal_light(int32_t mode, const uint8_t *frame,
                           const uint8_t *best_frame, int64_t *base_quality,
                           BlockFeatureSet *base_features, double *base_clarity,
                           double *luminance_out, int32_t height, int32_t width,
                           int32_t stride, ScratchArena arena);

}  // namespace qlis

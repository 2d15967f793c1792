// What the judgements against the base image share: verdict and mode
// codes, the brightness totals and the scene distance over the 64 block
// records, and the scene-change counter update.
#pragma once

#include <cstdint>

#include "platform/convert.h"
#include "ql_is/ql_is.h"

namespace qlis {

inline constexpr int32_t kJudgedBlocks = 64;

inline constexpr int32_t kModeRebuildBase = 0;
inline constexpr int32_t kModeJudge = 1;

inline constexpr int32_t kVerdictSharper = 2;
inline constexpr int32_t kVerdictKeep = 3;
inline constexpr int32_t kVerdictReplaced = 4;  // scene change or flat frame
inline constexpr int32_t kVerdictUnknownMode = -1;

// Every judgement asks the re-blur comparison for an 11 x 11 box; its mode
// word is ignored there.
inline constexpr uint32_t kReblurMode = 1;
inline constexpr int32_t kReblurRadius = 5;

// A block is textured when its variation exceeds the threshold; darker
// frames (mean sample below the limit) accept a lower variation.
inline constexpr double kDimMeanSample = 35.0;
inline constexpr double kDimTextureThreshold = 0.15;
inline constexpr double kTextureThreshold = 0.2;

// Sum of the blocks' sample_sum fields, each truncated to a signed 64-bit
// integer first. Returned as the bit pattern of the wrapping signed sum;
// callers compare or divide it as an unsigned number, or convert it back.
inline uint64_t brightness_total(const BlockFeatureSet &set) {
  uint64_t total = 0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    const int64_t term = saturate_to_i64(set.block[b].sample_sum);
    total += static_cast<uint64_t>(term);
  }
  return total;
}

// Sum over the blocks of t * t, t the sample_sum difference truncated to a
// signed 64-bit integer. Square and sum wrap modulo 2^64 (the square of a
// negative t is the same modulo 2^64 when computed on its bit pattern).
inline uint64_t scene_distance(const BlockFeatureSet &frame,
                               const BlockFeatureSet &base) {
  uint64_t distance = 0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    const double difference =
        frame.block[b].sample_sum - base.block[b].sample_sum;
    const uint64_t t = static_cast<uint64_t>(saturate_to_i64(difference));
    distance += t * t;
  }
  return distance;
}

// The counter runs while consecutive judgements find a scene change and
// drops to 0 at the first that does not. It wraps after 2^32 changes.
inline void record_scene_change(bool changed) {
  scene_change_count = changed ? scene_change_count + 1u : 0u;
}

}  // namespace qlis

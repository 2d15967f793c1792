#include "compare/dispatch.h"

#include <cstring>

#include "compare/quality_low_light.h"
#include "compare/quality_normal.h"

namespace qlis {
namespace {

// The low-light mean sample is on half the normal-light scale.
constexpr double kLowLightScale = 2.0;
constexpr size_t kBaseHistBytes = 65536;
constexpr size_t kBaseRawBytes = 2560;

}  // namespace

bool lighting_regime_flipped(double stored, double reported) {
  return (stored > kLowLightLimit && reported < kLowLightLimit) ||
         (stored < kLowLightLimit && reported > kLowLightLimit) ||
         (stored >= kSessionStartLuminance && reported < kFirstFrameLimit);
}

uint32_t judge_scene_and_quality(int32_t mode, const uint8_t *frame,
                                 const uint8_t *best_frame,
                                 int64_t *base_quality,
                                 BlockFeatureSet *base_features,
                                 DiffHistogram *base_hist, uint8_t *base_raw,
                                 double *base_clarity, double *luminance,
                                 int32_t height, int32_t width, int32_t stride,
                                 ScratchArena arena) {
  const double stored = *luminance;
  // Stays 0.0 when the judgement reports nothing (mode 0, unknown mode); in
  // normal light that reads as a flip into low light and clears the base.
  double reported = 0.0;
  int32_t verdict = 0;
  if (stored > kLowLightLimit) {
    verdict = judge_normal_light(mode, frame, best_frame, base_quality,
                                 base_features, base_clarity, &reported, height,
                                 width, stride, arena);
  } else {
    // Also for a NaN stored luminance.
    verdict = judge_low_light(mode, frame, best_frame, base_quality,
                              base_features, base_hist, base_clarity, &reported,
                              height, width, stride, arena);
    reported *= kLowLightScale;
  }

  // The stored luminance changes only here, so the path follows the regime,
  // not each frame's brightness. A NaN report never flips it.
  if (lighting_regime_flipped(stored, reported)) {
    *base_quality = 0;
    std::memset(base_features, 0, sizeof(BlockFeatureSet));
    std::memset(base_hist, 0, kBaseHistBytes);
    std::memset(base_raw, 0, kBaseRawBytes);
    *base_clarity = 0.0;
    *luminance = reported;
  }
  return static_cast<uint32_t>(verdict);
}

}  // namespace qlis

extern "C" uint32_t judge_scene_and_qualitye(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features,
    DiffHistogram *base_hist, uint8_t *base_raw, double *base_clarity,
    double *luminance, int32_t height, int32_t width, int32_t stride,
    ScratchArena arena) {
  return qlis::judge_scene_and_quality(
      mode, frame, best_frame, base_quality, base_features, base_hist, base_raw,
      base_clarity, luminance, height, width, stride, arena);
}

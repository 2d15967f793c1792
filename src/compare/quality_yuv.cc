#include "compare/quality_yuv.h"

#include "compare/quality_common.h"

namespace qlis {

bool yuv_scene_changed(const BlockFeatureSet &frame,
                       const BlockFeatureSet &base) {
  const uint64_t distance = scene_distance(frame, base);
  // A zeroed base makes every non-zero distance a change.
  return kYuvSceneFactor * brightness_total(base) < distance;
}

int32_t judge_yuv(int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
                  int64_t *base_quality, BlockFeatureSet *base_features,
                  int32_t geometry_a, int32_t geometry_b, int32_t geometry_c) {
  if (mode == kModeRebuildBase) {
    const uint64_t quality = calc_feature_quality_with_sub_yuv(
        base_features, best_frame, geometry_a, geometry_b, geometry_c);
    *base_quality = static_cast<int64_t>(quality);
    return kVerdictKeep;
  }
  if (mode != kModeJudge) return kVerdictUnknownMode;

  // The YUV driver writes only sample_sum; the other fields stay zero.
  BlockFeatureSet features{};
  const uint64_t quality = calc_feature_quality_with_sub_yuv(
      &features, frame, geometry_a, geometry_b, geometry_c);
  const bool changed = yuv_scene_changed(features, *base_features);
  // Unsigned: a stored quality of all ones is never beaten.
  const bool better = static_cast<uint64_t>(*base_quality) < quality;
  if (!changed && !better) return kVerdictKeep;

  *base_features = features;
  *base_quality = static_cast<int64_t>(quality);
  return changed ? kVerdictReplaced : kVerdictSharper;
}

}  // namespace qlis

extern "C" int32_t calc_quality_with_base_image_yuv(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features, int32_t geometry_a,
    int32_t geometry_b, int32_t geometry_c) {
  return qlis::judge_yuv(mode, frame, best_frame, base_quality, base_features,
                         geometry_a, geometry_b, geometry_c);
}

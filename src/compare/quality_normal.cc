#include "compare/quality_normal.h"

#include "compare/quality_common.h"
#include "platform/log.h"

namespace qlis {
namespace {

// There is one sample per 4 x 2 pixel cell and only the checkerboard half
// of the blocks sums its samples: pixels / 16 samples in all.
constexpr double kSampledShare = 0.25;
// Twice the total over pixels / 16: the same scale as the mean sample of
// the checkerboard blocks, doubled.
constexpr uint64_t kLuminanceScale = 2;
constexpr int32_t kPixelsPerLuminanceUnit = 16;
constexpr float kBlocksAsFloat = 64.0f;
constexpr float kTexturedShare = 0.5f;

// width * height as the signed 32-bit product: computed on unsigned words so
// that an impossible frame wraps instead of overflowing.
int32_t pixel_count(int32_t height, int32_t width) {
  const uint32_t product =
      static_cast<uint32_t>(width) * static_cast<uint32_t>(height);
  return static_cast<int32_t>(product);
}

}  // namespace

bool normal_light_scene_changed(const BlockFeatureSet &frame,
                                const BlockFeatureSet &base) {
  const uint64_t distance = scene_distance(frame, base);
  const uint64_t base_total = brightness_total(base);
  const int64_t signed_base_total = static_cast<int64_t>(base_total);
  const uint64_t factor = signed_base_total <= kBrightSceneBase
                              ? kDimSceneFactor
                              : kBrightSceneFactor;
  // Product and comparison are unsigned 64-bit and wrap. A zeroed base
  // (after a reset) makes every non-zero distance a change.
  return distance > factor * base_total;
}

NormalLightDecision decide_normal_light(const BlockFeatureSet &frame,
                                        const BlockFeatureSet &base,
                                        double score, double base_score,
                                        int32_t height, int32_t width) {
  NormalLightDecision d{};
  d.sharper = base_score < score;  // never for a NaN on either side
  d.changed = normal_light_scene_changed(frame, base);

  const int64_t frame_total = static_cast<int64_t>(brightness_total(frame));
  const double sampled = static_cast<double>(pixel_count(height, width)) *
                         kSampledShare * kSampledShare;
  const double mean_sample = static_cast<double>(frame_total) / sampled;
  const double threshold =
      mean_sample < kDimMeanSample ? kDimTextureThreshold : kTextureThreshold;

  uint8_t textured = 0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    const BlockFeature &block = frame.block[b];
    if (block.variation > threshold) ++textured;
    d.bright_total += block.bright_ratio;
    d.dark_total += block.dark_ratio;
  }
  d.flat = static_cast<float>(textured) / kBlocksAsFloat < kTexturedShare;

  if (d.changed) {
    d.verdict = kVerdictReplaced;
  } else if (score != base_score && d.flat) {
    // A flat frame with an unchanged score still moves the base (see
    // replaces_base) but only reports 3.
    d.verdict = kVerdictReplaced;
  } else {
    d.verdict = d.sharper ? kVerdictSharper : kVerdictKeep;
  }
  return d;
}

double normal_light_luminance(const BlockFeatureSet &features, int32_t height,
                              int32_t width) {
  const uint64_t doubled = kLuminanceScale * brightness_total(features);
  const int32_t divisor = pixel_count(height, width) / kPixelsPerLuminanceUnit;
  // The signed divisor widens with its sign, as the division is unsigned.
  const uint64_t wide_divisor =
      static_cast<uint64_t>(static_cast<int64_t>(divisor));
  // Frames of fewer than 16 pixels are outside the contract; they get the
  // quotient an AArch64 division by zero yields, 0, instead of a trap.
  if (wide_divisor == 0) return 0.0;
  const uint64_t luminance = doubled / wide_divisor;
  return static_cast<double>(luminance);
}

int32_t judge_normal_light(int32_t mode, const uint8_t *frame,
                           const uint8_t *best_frame, int64_t *base_quality,
                           BlockFeatureSet *base_features, double *base_clarity,
                           double *luminance_out, int32_t height, int32_t width,
                           int32_t stride, ScratchArena arena) {
  if (mode == kModeRebuildBase) {
    // Only the features and the quality follow the best frame; its score
    // and luminance are left as they were.
    const uint64_t quality = calc_feature_quality_with_sub(
        base_features, 0, best_frame, height, width, stride);
    *base_quality = static_cast<int64_t>(quality);
    return kVerdictKeep;
  }
  if (mode != kModeJudge) return kVerdictUnknownMode;

  BlockFeatureSet features{};
  const uint64_t quality =
      calc_feature_quality_with_sub(&features, 0, frame, height, width, stride);
  const double score = compare_reblue_with_luminance_compensation(
      frame, height, width, static_cast<uint32_t>(stride), kReblurMode,
      kReblurRadius, arena);

  const NormalLightDecision d = decide_normal_light(
      features, *base_features, score, *base_clarity, height, width);
  record_scene_change(d.changed);
  log_line(kTagError, "\n ######## sum_lum_high_cnt:%f, sum_lum_low_cnt:%f \n",
           d.bright_total, d.dark_total);

  if (d.replaces_base()) {
    *base_features = features;
    *base_quality = static_cast<int64_t>(quality);
    *base_clarity = score;
  }
  // Read after the update: when the base stayed, this is the base image's
  // luminance, not the frame's; the dispatch follows the base.
  if (luminance_out != nullptr) {
    *luminance_out = normal_light_luminance(*base_features, height, width);
  }
  return d.verdict;
}

}  // namespace qlis

extern "C" {

// Shared with the low-light judgement; see record_scene_change.
uint32_t scene_change_count = 0;

int32_t calc_quality_with_base_image(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features,
    uint8_t * /*base_raw*/, double *base_clarity, double *luminance_out,
    int32_t height, int32_t width, int32_t stride, ScratchArena arena) {
  return qlis::judge_normal_light(mode, frame, best_frame, base_quality,
                                  base_features, base_clarity, luminance_out,
                                  height, width, stride, arena);
}

}  // extern "C"

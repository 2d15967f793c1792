#include "compare/quality_low_light.h"

#include <cstdlib>
#include <cstring>

#include "compare/quality_common.h"
#include "platform/log.h"

namespace qlis {
namespace {

constexpr int32_t kGrid = 8;
constexpr double kOneOverBlocks = 0.015625;  // 1/64, exact
// log2 of the block count: the shifted count is 1 only when every block is
// textured, stricter on purpose than the half the normal light asks for.
constexpr int32_t kBlockCountShift = 6;
constexpr double kTexturedShare = 0.5;

// Statistics only: the histograms of the working block stay untouched.
constexpr uint32_t kStatisticsOnly = 1;

bool on_border_ring(int32_t block) {
  const int32_t r = block / kGrid;
  const int32_t c = block % kGrid;
  return r == 0 || r == kGrid - 1 || c == 0 || c == kGrid - 1;
}

}  // namespace

LowLightStats low_light_stats(const BlockFeatureSet &frame) {
  LowLightStats stats{};
  double mean_total = 0.0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    const BlockFeature &block = frame.block[b];
    mean_total += block.sample_sum;
    stats.bright_total += block.bright_ratio;
    stats.dark_total += block.dark_ratio;
  }
  stats.mean = mean_total * kOneOverBlocks;
  stats.class_threshold = stats.mean >= kBrightMeanForClass
                              ? kBrightClassThreshold
                              : kDimClassThreshold;
  const double texture_threshold =
      stats.mean < kDimMeanSample ? kDimTextureThreshold : kTextureThreshold;

  uint8_t textured = 0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    if (frame.block[b].variation > texture_threshold) ++textured;
  }
  const int32_t all_textured = textured >> kBlockCountShift;
  stats.flat = all_textured < kTexturedShare;
  return stats;
}

bool low_light_scene_changed(const BlockFeatureSet &frame,
                             const BlockFeatureSet &base,
                             double class_threshold) {
  // A block textured in both frames joins the brightness test of its part
  // of the grid (ring or core); one that flips class counts toward the flip
  // limit instead; one flat in both takes part in neither.
  uint8_t ring_mask[kJudgedBlocks] = {};
  uint8_t core_mask[kJudgedBlocks] = {};
  uint8_t ring_flips = 0;
  uint8_t core_flips = 0;
  for (int32_t b = 0; b < kJudgedBlocks; ++b) {
    const bool frame_textured = class_threshold < frame.block[b].deviation_sum;
    const bool base_textured = class_threshold < base.block[b].deviation_sum;
    const bool both = frame_textured && base_textured;
    const bool flipped = frame_textured != base_textured;
    if (on_border_ring(b)) {
      ring_mask[b] = both ? 1 : 0;
      if (flipped) ++ring_flips;
    } else {
      core_mask[b] = both ? 1 : 0;
      if (flipped) ++core_flips;
    }
  }
  return ring_flips + core_flips > kTolerableClassFlips ||
         judge_scene_change(&base, &frame, ring_mask) == 1 ||
         judge_scene_change(&base, &frame, core_mask) == 1;
}

int32_t judge_low_light(int32_t mode, const uint8_t *frame,
                        const uint8_t *best_frame, int64_t *base_quality,
                        BlockFeatureSet *base_features,
                        DiffHistogram *base_hist, double *base_clarity,
                        double *luminance_out, int32_t height, int32_t width,
                        int32_t stride, ScratchArena arena) {
  // The working block is taken for every mode. An unknown mode returns
  // without giving it back: the leak is kept as it always was, since no
  // caller passes another mode.
  auto *work = static_cast<DiffHistogram *>(
      std::calloc(kWorkHistograms, sizeof(DiffHistogram)));

  if (mode == kModeRebuildBase) {
    // Statistics only: base_hist keeps its histograms and the quality is 0.
    const double start = now_ms();
    *base_quality =
        static_cast<int64_t>(calc_feature_quality_with_sub_low_light(
            base_features, base_hist, kStatisticsOnly, best_frame, height,
            width, stride));
    const double end = now_ms();
    log_line(kTagInfo, "qlas CQ raw:base Q = %lld, time = %f ms",
             static_cast<long long>(*base_quality), end - start);
    std::free(work);
    return kVerdictKeep;
  }
  if (mode != kModeJudge) return kVerdictUnknownMode;
  // Without its working block the frame is not judged: the current best and
  // the base stay as they are.
  if (work == nullptr) return kVerdictKeep;

  BlockFeatureSet features{};
  // Statistics only: the working block stays zero, and zeros are what
  // base_hist receives when this frame becomes the base.
  const uint64_t quality = calc_feature_quality_with_sub_low_light(
      &features, work, kStatisticsOnly, frame, height, width, stride);

  const LowLightStats stats = low_light_stats(features);
  log_line(kTagError,
           " \n ######## sum_lumu_high_cnt:%f, sum_lumu_low_cnt:%f \n",
           stats.bright_total, stats.dark_total);

  const double score = compare_reblue_with_luminance_compensation(
      frame, height, width, static_cast<uint32_t>(stride), kReblurMode,
      kReblurRadius, arena);
  const bool sharper = *base_clarity < score;  // never for a NaN
  const bool changed =
      low_light_scene_changed(features, *base_features, stats.class_threshold);
  record_scene_change(changed);

  // A flat frame moves the base but, unlike in normal light, does not by
  // itself report 4.
  if (changed || stats.flat || sharper) {
    *base_features = features;
    *base_quality = static_cast<int64_t>(quality);
    std::memcpy(base_hist, work, kWorkHistograms * sizeof(DiffHistogram));
    *base_clarity = score;
  }
  // The frame's own mean, whether or not it became the base; the dispatch
  // doubles it onto the normal-light scale.
  if (luminance_out != nullptr) *luminance_out = stats.mean;

  std::free(work);
  if (changed) return kVerdictReplaced;
  return sharper ? kVerdictSharper : kVerdictKeep;
}

}  // namespace qlis

extern "C" int32_t calc_quality_with_base_image_low_light(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features,
    DiffHistogram *base_hist, uint8_t * /*base_raw*/, double *base_clarity,
    double *luminance_out, int32_t height, int32_t width, int32_t stride,
    ScratchArena arena) {
  return qlis::judge_low_light(mode, frame, best_frame, base_quality,
                               base_features, base_hist, base_clarity,
                               luminance_out, height, width, stride, arena);
}

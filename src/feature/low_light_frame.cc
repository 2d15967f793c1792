#include "feature/low_light_frame.h"

#include "feature/block_grid.h"

namespace qlis {
namespace {

constexpr int32_t kNeighbourDist = 1;
constexpr uint32_t kStatisticsOnly = 1;
constexpr uint32_t kDifferencesOnly = 2;
// The spread of the weighted block values is scaled down by 2^28 before it
// is taken from their sum.
constexpr uint32_t kSpreadShift = 28;

// Block weights by block row and by block column. The second half is not
// the mirror of the first (5 and 6 trade places); the low-light comparison
// was tuned with exactly this table.
constexpr uint64_t kWeights[kGrid] = {4, 5, 6, 7, 7, 5, 6, 4};

}  // namespace

uint64_t low_light_frame_features(BlockFeatureSet *features,
                                  DiffHistogram *diff_hists, uint32_t mode,
                                  const uint8_t *data, int32_t height,
                                  int32_t width, int32_t stride,
                                  LowLightBlockExtractor extractor) {
  const int32_t bh = height >> 3;
  const int32_t bw = width >> 3;
  // No mode clears both flags, so every block goes to the extractor.
  const int32_t stats_flag = mode == kDifferencesOnly ? 0 : 1;
  const int32_t gradient_flag = mode == kStatisticsOnly ? 0 : 1;

  // One set of outputs serves every block. The extractor zeroes the mean
  // and deviation on entry and the fractions once a block is non-empty, so
  // the variation (and, after an empty block, the fractions) carries over.
  double mean = 0.0;
  double deviation = 0.0;
  double variation = 0.0;
  double bright = 0.0;
  double dark = 0.0;

  // Weighted values and their squares wrap at 64 bits.
  uint64_t sum = 0;
  uint64_t sum_sq = 0;
  uint64_t count = 0;
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      const int32_t b = kGrid * r + c;
      const LowLightBlockOutputs out{&mean,   &deviation, &variation,
                                     &bright, &dark,      &diff_hists[b]};
      const LowLightBlockArgs args{data,       r * bh,       (r + 1) * bh,
                                   c * bw,     (c + 1) * bw, kNeighbourDist,
                                   height,     width,        stride,
                                   stats_flag, gradient_flag};
      const int64_t e = extractor(out, args);
      count += static_cast<uint64_t>(gradient_flag);
      // Signed 64-bit product, formed in unsigned arithmetic so that it
      // wraps without overflow.
      const uint64_t w = static_cast<uint64_t>(e) * kWeights[c] * kWeights[r];
      sum += w;
      sum_sq += w * w;
      BlockFeature &f = features->block[b];
      f.sample_sum = mean;
      f.reserved = static_cast<double>(e);
      f.deviation_sum = deviation;
      f.bright_ratio = bright;
      f.dark_ratio = dark;
      f.variation = variation;
    }
  }

  if (mode == kStatisticsOnly) return 0;
  // Every non-empty block returns 0, so the sum holds only the weights of
  // empty blocks; the sharpness of the frame is in the histograms.
  const uint64_t mean_w = sum / count;
  const uint64_t mean_sq = sum_sq / count;
  return sum - ((mean_sq - mean_w * mean_w) >> kSpreadShift);
}

}  // namespace qlis

extern "C" {

QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_4(
    double *mean_out, double *dev_out, double *cv_out, double *bright_out,
    double *dark_out, DiffHistogram *diff_hist, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width, int32_t stride,
    int32_t stats_flag, int32_t gradient_flag) {
  return qlis::kernels::low_light_block_features(
      {mean_out, dev_out, cv_out, bright_out, dark_out, diff_hist},
      {data, row_begin, row_end, col_begin, col_end, dist, height, width,
       stride, stats_flag, gradient_flag});
}

QL_IS_API uint64_t calc_feature_quality_with_sub_low_light(
    BlockFeatureSet *features, DiffHistogram *diff_hists, uint32_t mode,
    const uint8_t *data, int32_t height, int32_t width, int32_t stride) {
  return qlis::low_light_frame_features(features, diff_hists, mode, data,
                                        height, width, stride);
}

}  // extern "C"

#include "feature/raw10_frame.h"

#include "feature/block_grid.h"
#include "feature/raw10_block.h"
#include "platform/log.h"
#include "platform/simd_dispatch.h"

namespace qlis {
namespace {

constexpr int32_t kGradientDist = 1;
constexpr int32_t kWeightDivisor = 400;

constexpr uint32_t kModeStatisticsOnly = 1;
constexpr uint32_t kModeGradientOnly = 2;

// (e * wc * wr) / 400 with a wrapping 32-bit product: energies that wrapped
// or blocks that returned -1 are weighted like any other value (an empty
// block's -1 weighs 0 after the division).
inline int32_t weighted_energy(int32_t energy, int32_t r, int32_t c) {
  const uint32_t product = static_cast<uint32_t>(energy) *
                           static_cast<uint32_t>(tent_weight(c)) *
                           static_cast<uint32_t>(tent_weight(r));
  return static_cast<int32_t>(product) / kWeightDivisor;
}

}  // namespace

uint64_t raw10_frame_features(BlockFeatureSet *features, uint32_t mode,
                              const uint8_t *data, int32_t height,
                              int32_t width, int32_t stride,
                              Raw10BlockExtractor extract) {
  log_line(kTagAlgo, "Vrel_calc_feature_quality_with_sub_start");
  uint8_t stats_flags[kBlocks] = {};
  uint8_t gradient_flags[kBlocks] = {};
  for (int32_t k = 0; k < kBlocks; ++k) {
    const bool checkerboard = (k / kGrid + k % kGrid) % 2 == 0;
    stats_flags[k] = mode != kModeGradientOnly && checkerboard ? 1 : 0;
    gradient_flags[k] = mode != kModeStatisticsOnly ? 1 : 0;
  }

  // One set of outputs serves every block, so a block keeps whatever the
  // extractor does not write: a gradient-only block carries the deviation
  // and variation of the last statistics block, and an empty block the
  // variation and fractions of the block before it. Both are kept.
  uint64_t sum = 0;
  uint64_t deviation = 0;
  double variation = 0.0;
  double bright = 0.0;
  double dark = 0.0;
  const Raw10BlockOutputs outputs{&sum, &deviation, &variation, &bright, &dark};

  // Signed 64-bit sums of the weighted energies and of their squares, kept
  // in unsigned words so that they wrap without undefined behaviour.
  uint64_t weighted_sum = 0;
  uint64_t weighted_squares = 0;
  int32_t counted = 0;
  const int32_t bw = width >> 3;
  const int32_t bh = height >> 3;
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      const int32_t k = kGrid * r + c;
      BlockFeature &record = features->block[k];
      if (stats_flags[k] == 0 && gradient_flags[k] == 0) {
        record.sample_sum = 0.0;
        continue;
      }
      const Raw10BlockArgs args{
          data,         r * bh,         (r + 1) * bh,     c * bw,
          (c + 1) * bw, kGradientDist,  height,           width,
          stride,       stats_flags[k], gradient_flags[k]};
      const int32_t energy = extract(outputs, args);
      counted += gradient_flags[k];
      const int64_t w = weighted_energy(energy, r, c);
      weighted_sum += static_cast<uint64_t>(w);
      weighted_squares += static_cast<uint64_t>(w * w);
      record.sample_sum = static_cast<double>(sum);
      record.deviation_sum = static_cast<double>(deviation);
      record.bright_ratio = bright;
      record.dark_ratio = dark;
      record.variation = variation;
    }
  }

  uint64_t result = weighted_sum;
  if (mode != kModeStatisticsOnly) {
    // counted is 64 in these modes.
    result = spread_times_sum(weighted_sum, weighted_squares, static_cast<uint64_t>(counted));
  }
  log_line(kTagAlgo, "Vrel_valid_num:%d", counted);
  log_line(kTagAlgo, "Vrel_feature_valid_num_%d", kBlocks);
  return result;
}

}  // namespace qlis

extern "C" int32_t image_feature_quality_for_raw_10bit_continuous_3(
    uint64_t *sum_out, uint64_t *dev_out, double *cv_out, double *bright_out,
    double *dark_out, const uint8_t *data, int32_t row_begin, int32_t row_end,
    int32_t col_begin, int32_t col_end, int32_t dist, int32_t height,
    int32_t width, int32_t stride, int32_t stats_flag, int32_t gradient_flag) {
  return qlis::kernels::raw10_block_features(
      {sum_out, dev_out, cv_out, bright_out, dark_out},
      {data, row_begin, row_end, col_begin, col_end, dist, height, width,
       stride, stats_flag, gradient_flag});
}

extern "C" uint64_t calc_feature_quality_with_sub(BlockFeatureSet *features,
                                                  uint32_t mode,
                                                  const uint8_t *data,
                                                  int32_t height, int32_t width,
                                                  int32_t stride) {
  return qlis::raw10_frame_features(features, mode, data, height, width, stride,
                                    &qlis::kernels::raw10_block_features);
}

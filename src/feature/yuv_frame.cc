#include "feature/yuv_frame.h"

#include "feature/block_grid.h"

namespace qlis {
namespace {

constexpr int32_t kNeighbourDist = 1;
// The weighted energy is scaled down before it is squared into the second
// moment.
constexpr uint64_t kWeightDivisor = 400;

constexpr uint64_t weight(int32_t i) { return static_cast<uint64_t>(tent_weight(i)); }

}  // namespace

uint64_t yuv_frame_features(BlockFeatureSet *features, const uint8_t *data,
                            int32_t height, int32_t width, int32_t stride,
                            YuvBlockExtractor extractor) {
  const int32_t bh = height >> 3;
  const int32_t bw = width >> 3;
  uint8_t stats_flags[kBlocks] = {};
  uint8_t gradient_flags[kBlocks] = {};
  for (int32_t i = 0; i < kBlocks; ++i) {
    stats_flags[i] = ((i / kGrid + i % kGrid) % 2 == 0) ? 1 : 0;
    gradient_flags[i] = 1;
  }

  // Sums of the weighted energies and of their squares wrap at 64 bits; an
  // empty block's all-ones energy is weighted like any other.
  uint64_t sum = 0;
  uint64_t sum_sq = 0;
  uint64_t count = 0;
  uint64_t sample_sum = 0;
  uint64_t aux = 0;
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      const int32_t i = kGrid * r + c;
      const YuvBlockArgs args{
          data,         r * bh,         (r + 1) * bh,     c * bw,
          (c + 1) * bw, kNeighbourDist, height,           width,
          stride,       stats_flags[i], gradient_flags[i]};
      const uint64_t energy = extractor(&sample_sum, &aux, args);
      count += gradient_flags[i];
      const uint64_t w =
          energy * weight(c) * weight(r) / kWeightDivisor;
      sum += w;
      sum_sq += w * w;
      features->block[i].sample_sum = static_cast<double>(sample_sum);
    }
  }

  return spread_times_sum(sum, sum_sq, count);
}

}  // namespace qlis

extern "C" {

QL_IS_API uint64_t image_feature_quality_for_yuv_skip2(
    uint64_t *sum_out, uint64_t *aux_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t /*unused*/, int32_t height, int32_t width,
    int32_t stride, int32_t stats_flag, int32_t gradient_flag) {
  return qlis::kernels::yuv_block_features(
      sum_out, aux_out,
      {data, row_begin, row_end, col_begin, col_end, dist, height, width,
       stride, stats_flag, gradient_flag});
}

// Both names read the frame as one byte plane; a YUYV frame's chroma bytes
// take part in the gradient just as they always have.
QL_IS_API uint64_t calc_feature_quality_with_sub_yuv(BlockFeatureSet *features,
                                                     const uint8_t *data,
                                                     int32_t height,
                                                     int32_t width,
                                                     int32_t stride) {
  return qlis::yuv_frame_features(features, data, height, width, stride);
}

QL_IS_API uint64_t calc_feature_quality_with_sub_yuyv(BlockFeatureSet *features,
                                                      const uint8_t *data,
                                                      int32_t height,
                                                      int32_t width,
                                                      int32_t stride) {
  return qlis::yuv_frame_features(features, data, height, width, stride);
}

}  // extern "C"

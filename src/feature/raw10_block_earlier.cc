// Earlier RAW10 block functions, still exported for hosts and called by
// nothing in the library: a sum-only extractor for frames without row
// padding with its checkerboard driver, and an extractor that forms the
// deviation in integers instead of doubles.
//
// Rectangles, samples and the edge clamp are those of the normal-light
// extractor (feature/raw10_block.h).
#include <cstddef>
#include <cstdint>

#include "feature/block_args.h"
#include "feature/block_grid.h"
#include "feature/raw10_block.h"
#include "platform/log.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace {

constexpr int32_t kDriverDist = 1;

inline int32_t sample(const uint8_t *data, size_t pitch, int32_t i, int32_t g) {
  return data[2 * static_cast<size_t>(i) * pitch + 5 * static_cast<size_t>(g) +
              4];
}

// Bytes per row of a frame packed without padding. The sum-only functions
// take no stride and assume this pitch, so on a padded frame they read the
// wrong rows; hosts that call them pass unpadded frames.
inline int32_t unpadded_pitch(int32_t width) {
  const uint32_t pitch = static_cast<uint32_t>(width) * 10u / 8u;
  return static_cast<int32_t>(pitch);  // below 2^29: always fits
}

// args.stride is the unpadded pitch. aux is zeroed for an empty rectangle
// only; hosts have always received it so.
void unpadded_block_sum(uint64_t *sum_out, uint64_t *aux_out,
                        const BlockArgs &args) {
  const Raw10SampleRect r = raw10_sample_rect(args);
  if (r.empty()) {
    *sum_out = 0;
    *aux_out = 0;
    return;
  }
  const size_t pitch = static_cast<size_t>(args.stride);
  uint64_t sum = 0;
  for (int32_t i = r.i0; i < r.i1; ++i) {
    for (int32_t g = r.g0; g < r.g1; ++g) {
      sum += static_cast<uint64_t>(sample(args.data, pitch, i, g));
    }
  }
  *sum_out = sum;
}

// Field 0 of the checkerboard blocks gets the block sum, of the other
// blocks 0.0; fields 1 to 5 are left as the caller had them.
int32_t unpadded_checkerboard_sums(BlockFeatureSet *features,
                                   const uint8_t *data, int32_t height,
                                   int32_t width) {
  const int32_t bw = width >> 3;
  const int32_t bh = height >> 3;
  const int32_t pitch = unpadded_pitch(width);
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      double &sample_sum = features->block[kGrid * r + c].sample_sum;
      if ((r + c) % 2 != 0) {
        sample_sum = 0.0;
        continue;
      }
      uint64_t sum = 0;
      uint64_t aux = 0;
      unpadded_block_sum(&sum, &aux,
                         {data, r * bh, (r + 1) * bh, c * bw, (c + 1) * bw,
                          kDriverDist, height, width, pitch, 0, 0});
      sample_sum = static_cast<double>(sum);
    }
  }
  return log_line(kTagAlgo, "Vrel_feature_valid_num_%d", kBlocks);
}

// Flags as for the live extractor, without histogram or fractions. The
// deviation sumsq - sum^2 / N truncates the division in integers, so it
// can exceed the live extractor's floating-point deviation by one.
int32_t integer_block_statistics(uint64_t *sum_out, uint64_t *dev_out,
                                 const BlockArgs &args) {
  const Raw10SampleRect r = raw10_sample_rect(args);
  if (r.empty()) {
    *sum_out = 0;
    *dev_out = 0;
    return -1;
  }
  const Raw10Computation computation =
      raw10_computation(args.stats_flag, args.gradient_flag);
  if (computation == Raw10Computation::kNone) return -1;
  const bool gradient = computation != Raw10Computation::kStatistics;
  const bool statistics = computation != Raw10Computation::kGradient;

  const size_t stride = static_cast<size_t>(args.stride);
  // Wraps at 32 bits for very large blocks of extreme contrast, like the
  // live extractor's energy.
  uint32_t energy = 0;
  uint64_t sum = 0;
  uint64_t sumsq = 0;
  for (int32_t i = r.i0; i < r.i1; ++i) {
    for (int32_t g = r.g0; g < r.g1; ++g) {
      const int32_t s = sample(args.data, stride, i, g);
      if (gradient) {
        const int32_t dh = sample(args.data, stride, i, g + args.dist) - s;
        const int32_t dv = sample(args.data, stride, i + args.dist, g) - s;
        energy += static_cast<uint32_t>(dh * dh + dv * dv);
      }
      if (statistics) {
        sum += static_cast<uint64_t>(s);
        sumsq += static_cast<uint64_t>(s * s);
      }
    }
  }

  if (statistics) {
    *sum_out = sum;
    // The 32-bit sample count widened as a signed value; it is positive for
    // any block a frame can hold.
    const uint64_t n = static_cast<uint64_t>(int64_t{raw10_sample_count(r)});
    const uint64_t sum_squared = sum * sum;  // 64-bit product, wraps
    *dev_out = sumsq - sum_squared / n;
  } else {
    *sum_out = 0;
  }
  return gradient ? static_cast<int32_t>(energy) : 0;
}

}  // namespace
}  // namespace qlis

extern "C" {

QL_IS_API void image_feature_for_raw_10bit_continuous_2(
    uint64_t *sum_out, uint64_t *aux_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width) {
  qlis::unpadded_block_sum(sum_out, aux_out,
                           {data, row_begin, row_end, col_begin, col_end, dist,
                            height, width, qlis::unpadded_pitch(width), 0, 0});
}

QL_IS_API int32_t calc_feature_with_sub(BlockFeatureSet *features,
                                        const uint8_t *data, int32_t height,
                                        int32_t width) {
  return qlis::unpadded_checkerboard_sums(features, data, height, width);
}

// Only the low 32 bits carry the value; the upper half is its sign.
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2(
    uint64_t *sum_out, uint64_t *dev_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width, int32_t stride,
    int32_t stats_flag, int32_t gradient_flag) {
  const int32_t value = qlis::integer_block_statistics(
      sum_out, dev_out,
      {data, row_begin, row_end, col_begin, col_end, dist, height, width,
       stride, stats_flag, gradient_flag});
  return int64_t{value};
}

}  // extern "C"

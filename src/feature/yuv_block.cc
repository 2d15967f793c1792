#include "feature/yuv_block.h"

#include <cstddef>

namespace qlis::portable {

uint64_t yuv_block_features(uint64_t *sum_out, uint64_t *aux_out,
                            YuvBlockArgs a) {
  clamp_yuv_block(a);
  if (yuv_block_is_empty(a)) {
    *sum_out = 0;  // the bits of 0.0
    *aux_out = 0;
    return kYuvBlockInvalid;
  }
  if (!yuv_flags_valid(a)) return kYuvBlockInvalid;

  const bool want_sum = a.stats_flag == 1;
  const bool want_gradient = a.gradient_flag == 1;
  const size_t stride = static_cast<size_t>(a.stride);
  const size_t dist = static_cast<size_t>(a.dist);
  uint64_t sum = 0;
  uint64_t energy = 0;
  // 64-bit positions: a block ending near INT32_MAX must not overflow the
  // step past its end.
  for (int64_t y = a.row_begin; y < a.row_end; y += kYuvSampleStep) {
    const uint8_t *row = a.data + static_cast<size_t>(y) * stride;
    for (int64_t x = a.col_begin; x < a.col_end; x += kYuvSampleStep) {
      const uint8_t *p = row + x;
      const int32_t s = p[0];
      if (want_sum) sum += static_cast<uint64_t>(s);
      if (want_gradient) {
        const int32_t dh = p[dist] - s;
        const int32_t dv = p[dist * stride] - s;
        energy += static_cast<uint64_t>(dh * dh + dv * dv);
      }
    }
  }
  *sum_out = want_sum ? sum : 0;
  return want_gradient ? energy : 0;
}

}  // namespace qlis::portable

// The plane extractor and the YUV and YUYV drivers. The build's block
// kernel matches the portable one bit for bit, both cells included, reading
// nothing past the lower neighbour of its block's last sample row; both
// drivers match the driver over the portable kernel.
#include <array>

#include "block_case.h"
#include "feature/yuv_block.h"
#include "feature/yuv_frame.h"
#include "ql_is/ql_is.h"

QLIS_FUZZ_TARGET(yuv) {
  using qlis::fuzz::same;
  qlis::fuzz::Input in(data, size);
  const qlis::fuzz::BlockCase c(in, false, in.range(0, 2));
  const qlis::BlockArgs &a = c.args;
  std::array<uint64_t, 3> p = {0x5a5a5a5a5a5a5a5a, 0x5a5a5a5a5a5a5a5a, 0}, k = p;
  p[2] = qlis::portable::yuv_block_features(&p[0], &p[1], a);
  qlis::BlockArgs b = a;
  qlis::clamp_yuv_block(b);
  const int64_t last_row = b.row_begin + (b.row_end - 1 - b.row_begin) / 4 * 4;
  const bool reads = !qlis::yuv_block_is_empty(b) && qlis::yuv_flags_valid(b);
  const qlis::fuzz::Cut cut(a.data,
                            reads ? static_cast<size_t>((last_row + b.dist) * b.stride + b.col_end + b.dist) : 0);
  // The ninth argument is not used: any value serves.
  k[2] = image_feature_quality_for_yuv_skip2(&k[0], &k[1], cut.data(), a.row_begin, a.row_end, a.col_begin, a.col_end,
                                             a.dist, static_cast<int32_t>(c.mode), a.height, a.width, a.stride,
                                             a.stats_flag, a.gradient_flag);
  QLIS_FUZZ_CHECK(p == k);

  BlockFeatureSet want{}, yuv{}, yuyv{};
  const uint64_t value =
      qlis::yuv_frame_features(&want, a.data, a.height, a.width, a.stride, &qlis::portable::yuv_block_features);
  QLIS_FUZZ_CHECK(calc_feature_quality_with_sub_yuv(&yuv, a.data, a.height, a.width, a.stride) == value &&
                  calc_feature_quality_with_sub_yuyv(&yuyv, a.data, a.height, a.width, a.stride) == value &&
                  same(yuv, want) && same(yuyv, want));
}

// The normal-light RAW10 extractors and drivers, and their earlier variants.
// The build's block kernel matches the portable one bit for bit, fields it
// leaves alone included, reading nothing past its block's last neighbour;
// the integer extractor returns the same energy and sum and a deviation at
// most one above; the sum-only extractor zeroes its second cell only for an
// empty block, and on unpadded frames it and its driver find the live sums.
// The drivers match over either kernel, and the scene test leaves the base
// refreshed with the frame's statistics (mode 1) or cleared.
#include "block_case.h"
#include "feature/raw10_block.h"
#include "feature/raw10_frame.h"
#include "ql_is/ql_is.h"

namespace {

struct Results {
  uint64_t sum = 0x5a5a5a5a5a5a5a5a, dev = 0x5a5a5a5a5a5a5a5a;
  double cv = 7.5, bright = 7.5, dark = 7.5;
  int64_t ret = 0;
};

}  // namespace

QLIS_FUZZ_TARGET(raw10) {
  using qlis::Raw10Computation;
  using qlis::fuzz::same;
  qlis::fuzz::Input in(data, size);
  const qlis::fuzz::BlockCase c(in, true, in.range(0, 2));
  const qlis::BlockArgs &a = c.args;
  Results p, k, e;
  p.ret = qlis::portable::raw10_block_features({&p.sum, &p.dev, &p.cv, &p.bright, &p.dark}, a);
  // The block's last sample, or with the gradient its neighbours.
  const qlis::Raw10SampleRect r = qlis::raw10_sample_rect(a);
  const Raw10Computation computed = qlis::raw10_computation(a.stats_flag, a.gradient_flag);
  const int32_t reach = computed == Raw10Computation::kStatistics ? 0 : a.dist;
  const bool reads = !r.empty() && computed != Raw10Computation::kNone;
  const qlis::fuzz::Cut cut(a.data, reads ? qlis::fuzz::raw10_end(a.stride, r.i1 - 1 + reach, r.g1 - 1 + reach) : 0);
  k.ret = qlis::fuzz::extract(image_feature_quality_for_raw_10bit_continuous_3, a, cut.data(), &k.sum, &k.dev, &k.cv,
                              &k.bright, &k.dark);
  e.ret = qlis::fuzz::extract(image_feature_quality_for_raw_10bit_continuous_2, a, a.data, &e.sum, &e.dev);
  QLIS_FUZZ_CHECK(same(p, k) && e.ret == p.ret && e.sum == p.sum && e.dev - p.dev <= 1);
  const bool unpadded = a.stride == a.width / 4 * 5;
  uint64_t sum = 0, aux = 7;
  image_feature_for_raw_10bit_continuous_2(&sum, &aux, a.data, a.row_begin, a.row_end, a.col_begin, a.col_end, a.dist,
                                           a.height, a.width);
  QLIS_FUZZ_CHECK(aux == (r.empty() ? 0 : 7) &&
                  (!unpadded || a.stats_flag != 1 || a.gradient_flag > 1 || sum == p.sum));

  BlockFeatureSet want{}, got{}, sums{}, base;
  const uint64_t value = qlis::raw10_frame_features(&want, c.mode, a.data, a.height, a.width, a.stride,
                                                    &qlis::portable::raw10_block_features);
  QLIS_FUZZ_CHECK(calc_feature_quality_with_sub(&got, c.mode, a.data, a.height, a.width, a.stride) == value &&
                  same(got, want));
  calc_feature_with_sub(&sums, a.data, a.height, a.width);
  for (int b = 0; b < 64; ++b) {
    QLIS_FUZZ_CHECK(!unpadded || c.mode != 1 || sums.block[b].sample_sum == want.block[b].sample_sum);
  }
  in.fill(reinterpret_cast<uint8_t *>(&base), sizeof base);  // as a caller may have left it
  double score = 7.5;
  const int32_t scene = calc_feature_with_base_image(a.data, &score, &base, a.height, a.width, a.stride);
  QLIS_FUZZ_CHECK((scene == 3 || scene == 4) &&
                  (c.mode != 1 || same(base, want) || (scene == 3 && score == 0.0 && same(base, BlockFeatureSet{}))));
}

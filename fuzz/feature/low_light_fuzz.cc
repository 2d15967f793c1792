// The low-light RAW10 extractors and driver. The build's block kernel
// matches the portable one bit for bit, counts included, reading nothing
// past the bytes its block needs, within the line buffers' reach of
// distances and beyond it. The earlier extractors agree with each other on
// the mean and the counts, and with the live one on the counts; the plain
// one sums what the counts hold. The driver matches over either kernel.
#include <vector>

#include "block_case.h"
#include "feature/low_light_block.h"
#include "feature/low_light_frame.h"
#include "ql_is/ql_is.h"

namespace {

struct Results {
  double mean = 7.5, dev = 7.5, cv = 7.5, bright = 7.5, dark = 7.5;
  DiffHistogram hist;
  int64_t ret = 0;
};

}  // namespace

QLIS_FUZZ_TARGET(low_light) {
  using qlis::fuzz::extract;
  using qlis::fuzz::same;
  qlis::fuzz::Input in(data, size);
  // One input in eight draws a distance past the NEON line buffers' reach;
  // the lower neighbours reach dist - 1 row pairs below the frame. Strips
  // are tall enough for such distances across a full span.
  const int32_t dist = in.range(1, in.range(0, 7) == 0 ? 100 : 8);
  const qlis::fuzz::BlockCase c(in, true, dist, 2 * (dist - 1), 400);
  const qlis::BlockArgs &a = c.args;
  Results p;
  in.fill(reinterpret_cast<uint8_t *>(&p.hist), sizeof p.hist);  // counts are never cleared
  const DiffHistogram preset = p.hist;
  Results k = p;
  p.ret = qlis::portable::low_light_block_features({&p.mean, &p.dev, &p.cv, &p.bright, &p.dark, &p.hist}, a);
  // The last visited row pair, or with the differences the one 2 dist row
  // pairs below, whose samples the NEON kernel gathers at dist 1 one group
  // past the block's right neighbours to serve as the next row.
  const qlis::Raw10SampleRect r = qlis::raw10_sample_rect(a);
  const int32_t last = r.i0 + 2 * (((r.i1 - r.i0 + 1) >> 1) - 1);
  const bool differences = a.gradient_flag == 1, reads = !r.empty() && (differences || a.stats_flag == 1);
  const int32_t reach = differences ? dist : 0;
  const qlis::fuzz::Cut cut(a.data, reads ? qlis::fuzz::raw10_end(a.stride, last + 2 * reach, r.g1 - 1 + reach) : 0);
  k.ret = extract(image_feature_quality_for_raw_10bit_continuous_2_low_light_4, a, cut.data(), &k.mean, &k.dev, &k.cv,
                  &k.bright, &k.dark, &k.hist);
  QLIS_FUZZ_CHECK(same(p, k));

  DiffHistogram counts[2] = {preset, preset};
  double mean[3] = {7.5, 7.5, 7.5}, spare = 7.5;
  int64_t dev = 0;
  const int64_t two = extract(image_feature_quality_for_raw_10bit_continuous_2_low_light_2, a, a.data, &mean[0], &spare,
                              reinterpret_cast<uint32_t *>(counts[0].count));
  const int64_t three = extract(image_feature_quality_for_raw_10bit_continuous_2_low_light_3, a, a.data, &mean[1], &dev,
                                reinterpret_cast<uint32_t *>(counts[1].count));
  const int64_t plain =
      extract(image_feature_quality_for_raw_10bit_continuous_2_low_light, a, a.data, &mean[2], &spare);
  const auto u = [](int32_t v) { return static_cast<uint32_t>(v); };
  uint64_t summed = 0;
  for (int32_t b = 0; b < 256; ++b) summed += static_cast<uint64_t>(b) * (u(counts[0].count[b]) - u(preset.count[b]));
  // Negative ends compare as huge in the earlier extractors' unsigned edge
  // test, which pulls them in to the frame's last row pair or group.
  const bool live_rect = a.row_end >= 0 && a.col_end >= 0;
  QLIS_FUZZ_CHECK(two == three && same(counts[0], counts[1]) && same(mean[0], mean[1]) && same(mean[0], mean[2]) &&
                  (!live_rect || (two == p.ret && same(counts[0], p.hist))) &&
                  (two < 0 || !differences || a.stats_flag != 1 || plain == static_cast<int64_t>(summed)));

  std::vector<DiffHistogram> hists(128, preset);
  BlockFeatureSet want{}, got{};
  const uint64_t value = qlis::low_light_frame_features(&want, hists.data(), c.mode, a.data, a.height, a.width,
                                                        a.stride, &qlis::portable::low_light_block_features);
  QLIS_FUZZ_CHECK(calc_feature_quality_with_sub_low_light(&got, hists.data() + 64, c.mode, a.data, a.height, a.width,
                                                          a.stride) == value &&
                  same(got, want) && std::memcmp(hists.data(), hists.data() + 64, 64 * sizeof(DiffHistogram)) == 0);
}

// Portable block extractor for packed RAW10 frames: every sample visited
// one by one, rows outer, groups inner, with the full 256-bin histogram.
#include "feature/raw10_block.h"

namespace qlis::portable {
namespace {

constexpr int32_t kHistogramBins = 256;

inline int32_t sample(const Raw10BlockArgs &a, int32_t i, int32_t g) {
  const size_t offset =
      2 * static_cast<size_t>(i) * static_cast<size_t>(a.stride) +
      5 * static_cast<size_t>(g) + 4;
  return a.data[offset];
}

}  // namespace

int32_t raw10_block_features(const Raw10BlockOutputs &out,
                             const Raw10BlockArgs &a) {
  uint64_t histogram[kHistogramBins] = {};
  const Raw10SampleRect rect = raw10_sample_rect(a);
  if (rect.empty()) {
    *out.sum = 0;
    *out.deviation = 0;
    return -1;
  }
  *out.bright = 0.0;
  *out.dark = 0.0;
  const Raw10Computation computation =
      raw10_computation(a.stats_flag, a.gradient_flag);
  if (computation == Raw10Computation::kNone) return -1;
  const bool gradient = computation != Raw10Computation::kStatistics;
  const bool statistics = computation != Raw10Computation::kGradient;

  // The energy wraps at 32 bits for very large blocks of extreme contrast;
  // the wrapped value is the result.
  uint32_t energy = 0;
  uint64_t sum = 0;
  uint64_t sumsq = 0;
  for (int32_t i = rect.i0; i < rect.i1; ++i) {
    for (int32_t g = rect.g0; g < rect.g1; ++g) {
      const int32_t s = sample(a, i, g);
      if (gradient) {
        const int32_t dh = sample(a, i, g + a.dist) - s;
        const int32_t dv = sample(a, i + a.dist, g) - s;
        energy += static_cast<uint32_t>(dh * dh + dv * dv);
      }
      ++histogram[s];
      if (statistics) {
        sum += static_cast<uint64_t>(s);
        sumsq += static_cast<uint64_t>(s * s);
      }
    }
  }

  double bright_total = 0.0;
  for (int32_t bin = kBrightFirst; bin < kHistogramBins; ++bin) {
    bright_total += static_cast<double>(histogram[bin]);
  }
  double dark_total = 0.0;
  for (int32_t bin = 0; bin <= kDarkLast; ++bin) {
    dark_total += static_cast<double>(histogram[bin]);
  }
  store_raw10_block_results(out, statistics, sum, sumsq, bright_total,
                            dark_total, raw10_sample_count(rect));
  return gradient ? static_cast<int32_t>(energy) : 0;
}

}  // namespace qlis::portable

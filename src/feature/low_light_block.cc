// Portable low-light block extractor: the arithmetic stated literally, the
// reference for the NEON twin.
#include "feature/low_light_block.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>

namespace qlis {
namespace {

constexpr int32_t kHistogramBins = 256;

inline uint8_t sample(const uint8_t *data, size_t stride, int64_t i,
                      int64_t g) {
  return data[2 * static_cast<size_t>(i) * stride + 5 * static_cast<size_t>(g) +
              4];
}

}  // namespace

bool begin_low_light_block(const LowLightBlockOutputs &out,
                           const LowLightBlockArgs &a,
                           LowLightSampleRect *rect) {
  if (out.mean != nullptr) *out.mean = 0.0;
  if (out.deviation != nullptr) *out.deviation = 0.0;
  const Raw10SampleRect r = raw10_sample_rect(a);
  if (r.empty()) return false;
  *rect = LowLightSampleRect{r.i0, r.i1, r.g0, r.g1};
  *out.bright = 0.0;
  *out.dark = 0.0;
  *out.deviation = 0.0;
  return true;
}

void store_low_light_statistics(const LowLightBlockOutputs &out,
                                const LowLightSampleRect &rect, uint64_t sum,
                                uint64_t sumsq, double bright_total,
                                double dark_total) {
  const int64_t samples = static_cast<int64_t>(rect.groups()) *
                          static_cast<int64_t>(rect.visited_rows());
  const double n = static_cast<double>(samples);
  const double mean = static_cast<double>(sum) / n;
  const double sumsq_d = static_cast<double>(sumsq);
  *out.mean = mean;
  // The undivided sum of squares against the squared mean, times N: not a
  // variance, but the low-light comparison is tuned to exactly this value.
  *out.deviation = (sumsq_d - mean * mean) * n;
  *out.variation = std::sqrt(sumsq_d / n - mean * mean) / mean;
  *out.bright = bright_total / n;
  *out.dark = dark_total / n;
}

namespace portable {

int64_t low_light_block_features(const LowLightBlockOutputs &out,
                                 const LowLightBlockArgs &a) {
  LowLightSampleRect r;
  if (!begin_low_light_block(out, a, &r)) return kLowLightEmptyBlock;
  const size_t stride = static_cast<size_t>(a.stride);

  if (a.stats_flag == 1) {
    // 32-bit bins cannot wrap: a block of 2^32 samples would need a frame
    // of more than 80 GB.
    uint32_t histogram[kHistogramBins] = {};
    uint64_t sum = 0;
    uint64_t sumsq = 0;
    for (int64_t i = r.i0; i < r.i1; i += 2) {
      for (int64_t g = r.g0; g < r.g1; ++g) {
        const uint32_t s = sample(a.data, stride, i, g);
        ++histogram[s];
        sum += s;
        sumsq += s * s;
      }
    }
    double bright = 0.0;
    for (int32_t b = kBrightFirst; b < kHistogramBins; ++b) {
      bright += static_cast<double>(histogram[b]);
    }
    double dark = 0.0;
    for (int32_t b = 0; b <= kDarkLast; ++b) {
      dark += static_cast<double>(histogram[b]);
    }
    store_low_light_statistics(out, r, sum, sumsq, bright, dark);
  }

  if (a.gradient_flag != 1) return 0;
  for (int64_t i = r.i0; i < r.i1; i += 2) {
    for (int64_t g = r.g0; g < r.g1; ++g) {
      const int32_t s = sample(a.data, stride, i, g);
      const int32_t h = sample(a.data, stride, i, g + a.dist);
      const int32_t v = sample(a.data, stride, i + 2 * int64_t{a.dist}, g);
      bump_diff_count(out.diff_hist, static_cast<uint32_t>(std::abs(h - s)));
      bump_diff_count(out.diff_hist, static_cast<uint32_t>(std::abs(v - s)));
      bump_diff_count(out.diff_hist, static_cast<uint32_t>(std::abs(h - v)));
    }
  }
  return 0;
}

}  // namespace portable
}  // namespace qlis

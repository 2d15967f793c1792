// Earlier low-light block extractors, still exported for hosts and called
// by nothing in the library. They visit the samples the live low-light
// extractor visits (every second row pair of the block, every group) but
// differ in what they clear, what they compute and how many samples they
// divide by.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/convert.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace {

// The arguments as these extractors take them: dist and stride unsigned.
struct EarlierLowLightArgs {
  const uint8_t *data;
  int32_t top;
  int32_t bottom;
  int32_t left;
  int32_t right;
  uint32_t dist;
  int32_t height;
  int32_t width;
  uint32_t stride;
  int32_t stats_flag;
  int32_t gradient_flag;
};

// Row pairs [t0, t1), of which t0, t0 + 2, ... are visited; groups [g0, g1).
struct VisitedRect {
  int32_t t0;
  int32_t t1;
  int32_t g0;
  int32_t g1;
};

// The far edges are pulled in one sample further than the neighbours need,
// as in the live extractors, but with an unsigned distance the edge test is
// an unsigned comparison: where t1 + dist (or g1 + dist) is negative it
// compares as huge, and the end is pulled in to the frame's last usable row
// pair or group instead of leaving the rectangle empty.
bool clip_rect(const EarlierLowLightArgs &a, VisitedRect *rect) {
  VisitedRect r{a.top >> 1, a.bottom >> 1, a.left >> 2, a.right >> 2};
  const uint32_t pairs = static_cast<uint32_t>(a.height >> 1);
  if (pairs <= static_cast<uint32_t>(r.t1) + a.dist) {
    r.t1 = static_cast<int32_t>(pairs - 1u - a.dist);
  }
  const uint32_t groups = static_cast<uint32_t>(a.width >> 2);
  if (groups <= static_cast<uint32_t>(r.g1) + a.dist) {
    r.g1 = static_cast<int32_t>(groups - 1u - a.dist);
  }
  *rect = r;
  return r.t0 < r.t1 && r.g0 < r.g1;
}

// What the means are divided by: (t1 - t0) >> 1 row pairs, so an odd count
// visits its last row pair without counting it, and a single row pair
// counts none (a mean of NaN or infinity); hosts have always received
// means formed so. A 32-bit product, like the counter it stands for.
double counted_samples(const VisitedRect &r) {
  const uint32_t groups = static_cast<uint32_t>(r.g1 - r.g0);
  const uint32_t rows = static_cast<uint32_t>((r.t1 - r.t0) >> 1);
  return static_cast<double>(static_cast<int32_t>(groups * rows));
}

inline int32_t sample(const EarlierLowLightArgs &a, size_t i, size_t g) {
  return a.data[2 * i * a.stride + 5 * g + 4];
}

// Calls visit(s, h, v) for every visited sample s with its right neighbour
// h (dist groups on) and its lower neighbour v (2 * dist row pairs down).
template <typename Visit>
void visit_with_neighbours(const EarlierLowLightArgs &a, const VisitedRect &r,
                           Visit visit) {
  for (int32_t t = r.t0; t < r.t1; t += 2) {
    const size_t i = static_cast<size_t>(t);
    for (int32_t gi = r.g0; gi < r.g1; ++gi) {
      const size_t g = static_cast<size_t>(gi);
      visit(sample(a, i, g), sample(a, i, g + a.dist),
            sample(a, i + 2 * size_t{a.dist}, g));
    }
  }
}

// Sum and sum of squares of the visited samples (neighbours are not read).
void visited_sums(const EarlierLowLightArgs &a, const VisitedRect &r,
                  uint64_t *sum, uint64_t *sumsq) {
  uint64_t s1 = 0;
  uint64_t s2 = 0;
  for (int32_t t = r.t0; t < r.t1; t += 2) {
    for (int32_t g = r.g0; g < r.g1; ++g) {
      const auto s = static_cast<uint64_t>(
          sample(a, static_cast<size_t>(t), static_cast<size_t>(g)));
      s1 += s;
      s2 += s * s;
    }
  }
  *sum = s1;
  *sumsq = s2;
}

// Three counts per visited sample; the counters wrap and are never cleared.
void count_differences(const EarlierLowLightArgs &a, const VisitedRect &r,
                       uint32_t *diff_hist) {
  visit_with_neighbours(a, r, [diff_hist](int32_t s, int32_t h, int32_t v) {
    ++diff_hist[std::abs(h - s)];
    ++diff_hist[std::abs(v - s)];
    ++diff_hist[std::abs(h - v)];
  });
}

int64_t mean_and_differences(double *mean_out, double *spare_out,
                             uint32_t *diff_hist,
                             const EarlierLowLightArgs &a) {
  if (mean_out != nullptr) *mean_out = 0.0;
  if (spare_out != nullptr) *spare_out = 0.0;
  VisitedRect r;
  if (!clip_rect(a, &r)) return -1;
  if (a.stats_flag == 1) {
    uint64_t sum;
    uint64_t sumsq;
    visited_sums(a, r, &sum, &sumsq);
    *mean_out = static_cast<double>(sum) / counted_samples(r);
  }
  if (a.gradient_flag == 1) count_differences(a, r, diff_hist);
  return 0;
}

int64_t deviation_and_differences(double *mean_out, int64_t *dev_out,
                                  uint32_t *diff_hist,
                                  const EarlierLowLightArgs &a) {
  if (mean_out != nullptr) *mean_out = 0.0;
  if (dev_out != nullptr) *dev_out = 0;
  VisitedRect r;
  if (!clip_rect(a, &r)) return -1;
  if (a.stats_flag == 1) {
    uint64_t sum;
    uint64_t sumsq;
    visited_sums(a, r, &sum, &sumsq);
    const double n = counted_samples(r);
    const double mean = static_cast<double>(sum) / n;
    *mean_out = mean;
    // With n = 0 the mean is NaN or infinite and so is the deviation;
    // the conversion saturates (NaN to 0) as the device's does.
    const double deviation = static_cast<double>(sumsq) - n * mean * mean;
    *dev_out = saturate_to_i64(deviation);
  }
  if (a.gradient_flag == 1) count_differences(a, r, diff_hist);
  return 0;
}

// g = |h - s| + |v - s| + |h - v| summed instead of counted. Without
// statistics each g is weighted by its own sample, so that edges in bright
// parts of the block weigh more.
int64_t summed_gradients(double *mean_out, double *spare_out,
                         const EarlierLowLightArgs &a) {
  VisitedRect r;
  if (!clip_rect(a, &r)) {
    *mean_out = 0.0;
    *spare_out = 0.0;
    return -1;
  }
  const bool statistics = a.stats_flag == 1;
  const bool gradient = a.gradient_flag == 1;
  uint64_t sum = 0;
  uint64_t gradients = 0;
  if (gradient) {
    visit_with_neighbours(a, r, [&](int32_t s, int32_t h, int32_t v) {
      const auto g = static_cast<uint64_t>(std::abs(h - s) + std::abs(v - s) +
                                           std::abs(h - v));
      sum += static_cast<uint64_t>(s);
      gradients += statistics ? g : g * static_cast<uint64_t>(s);
    });
  } else if (statistics) {
    uint64_t sumsq;
    visited_sums(a, r, &sum, &sumsq);
  }
  *mean_out = statistics ? static_cast<double>(sum) / counted_samples(r) : 0.0;
  return gradient ? static_cast<int64_t>(gradients) : 0;
}

}  // namespace
}  // namespace qlis

extern "C" {

QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_2(
    double *mean_out, double *spare_out, uint32_t *diff_hist,
    const uint8_t *data, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t dist, int32_t height, int32_t width,
    uint32_t stride, int32_t stats_flag, int32_t gradient_flag) {
  return qlis::mean_and_differences(
      mean_out, spare_out, diff_hist,
      {data, top, bottom, left, right, dist, height, width, stride, stats_flag,
       gradient_flag});
}

QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
    double *mean_out, int64_t *dev_out, uint32_t *diff_hist,
    const uint8_t *data, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t dist, int32_t height, int32_t width,
    uint32_t stride, int32_t stats_flag, int32_t gradient_flag) {
  return qlis::deviation_and_differences(
      mean_out, dev_out, diff_hist,
      {data, top, bottom, left, right, dist, height, width, stride, stats_flag,
       gradient_flag});
}

QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light(
    double *mean_out, double *spare_out, const uint8_t *data, int32_t top,
    int32_t bottom, int32_t left, int32_t right, uint32_t dist, int32_t height,
    int32_t width, uint32_t stride, int32_t stats_flag, int32_t gradient_flag) {
  return qlis::summed_gradients(mean_out, spare_out,
                                {data, top, bottom, left, right, dist, height,
                                 width, stride, stats_flag, gradient_flag});
}

}  // extern "C"

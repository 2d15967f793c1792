#include "compare/scene_change.h"

#include <cmath>
#include <utility>

namespace qlis {
namespace {

constexpr int32_t kSortRounds = kSceneBlocks / 2;
constexpr uint8_t kMaskSelected = 1;
// Brightness changes are tolerated in proportion to the scene's variance
// (not its deviation), scaled up exponentially with its median brightness:
// both are tuning and are kept as they are.
constexpr double kToleranceScale = 0.03;
constexpr double kToleranceGrowth = 0.01;
// 1/64: the earlier statistics scale the sums instead of dividing by n.
constexpr double kOneOver64 = 0.015625;

constexpr double BlockFeature::*kFields[] = {
    &BlockFeature::sample_sum,    &BlockFeature::reserved,
    &BlockFeature::deviation_sum, &BlockFeature::bright_ratio,
    &BlockFeature::dark_ratio,    &BlockFeature::variation,
};

// Exchange sort with alternating passes: each round carries one extreme
// value to the front bound (a pass from the back) and the opposite one to
// the back bound (a pass from the front); the bounds close in by one each
// round. `before(x, y)` is true when x belongs ahead of y. Only strict
// comparisons swap, so equal values (0.0 and -0.0 among them) keep their
// order and NaNs stay where the passes leave them.
template <typename Before>
void alternating_exchange_sort(double (&v)[kSceneBlocks], Before before) {
  int32_t front = 0;
  int32_t back = kSceneBlocks - 1;
  for (int32_t round = 0; round < kSortRounds; ++round) {
    for (int32_t j = back; j > front; --j) {
      if (before(v[j], v[j - 1])) std::swap(v[j], v[j - 1]);
    }
    ++front;
    for (int32_t j = front; j < back; ++j) {
      if (before(v[j + 1], v[j])) std::swap(v[j], v[j + 1]);
    }
    --back;
  }
}

}  // namespace

double masked_median_and_variance(const BlockFeatureSet &features,
                                  int32_t field, const uint8_t *mask,
                                  double *variance_out) {
  // Unselected blocks keep a 0.0 entry in their own place; sorted
  // descending, those zeros fall behind the non-negative feature values.
  double v[kSceneBlocks] = {};
  int32_t n = 0;
  for (int32_t i = 0; i < kSceneBlocks; ++i) {
    if (mask[i] == kMaskSelected) {
      v[i] = features.block[i].*kFields[field];
      ++n;
    }
  }
  alternating_exchange_sort(v, [](double x, double y) { return x > y; });

  // For even n the pair one past the usual middle is averaged; the
  // threshold is tuned to that. n = 0 averages entries 0 and 1.
  const int32_t mid = n / 2;
  const double median = (n % 2 != 0) ? v[mid] : (v[mid] + v[mid + 1]) * 0.5;

  double sum = 0.0;
  double sum_sq = 0.0;
  for (int32_t i = 0; i < n; ++i) {
    sum += v[i];
    sum_sq += v[i] * v[i];
  }
  // An empty selection gives 0 / 0: NaN.
  const double count = static_cast<double>(n);
  const double mean = sum / count;
  *variance_out = sum_sq / count - mean * mean;
  return median;
}

double median_and_variance_all(const BlockFeatureSet &features, int32_t field,
                               double *variance_out) {
  double v[kSceneBlocks];
  for (int32_t i = 0; i < kSceneBlocks; ++i) {
    v[i] = features.block[i].*kFields[field];
  }
  alternating_exchange_sort(v, [](double x, double y) { return x < y; });

  // Entries 32 and 33 of the ascending order: again one past the middle.
  const double median = (v[kSceneBlocks / 2] + v[kSceneBlocks / 2 + 1]) * 0.5;
  double sum = 0.0;
  double sum_sq = 0.0;
  for (int32_t i = 0; i < kSceneBlocks; ++i) {
    sum += v[i];
    sum_sq += v[i] * v[i];
  }
  const double mean = sum * kOneOver64;
  *variance_out = sum_sq * kOneOver64 - mean * mean;
  return median;
}

bool scene_changed(const BlockFeatureSet &a, const BlockFeatureSet &b,
                   const uint8_t *mask) {
  const int32_t kSampleSum = 0;
  double var_a = 0.0;
  double var_b = 0.0;
  const double median_a =
      masked_median_and_variance(a, kSampleSum, mask, &var_a);
  const double median_b =
      masked_median_and_variance(b, kSampleSum, mask, &var_b);
  // The darker frame's statistics set the tolerance; ties and NaN medians
  // take the second frame's.
  const bool a_darker = median_a < median_b;
  const double median = a_darker ? median_a : median_b;
  const double variance = a_darker ? var_a : var_b;
  // A NaN tolerance (empty mask) makes every comparison false.
  const double tolerance =
      variance * kToleranceScale * std::exp(median * kToleranceGrowth);

  uint32_t used = 0;
  uint32_t moved = 0;
  for (int32_t i = 0; i < kSceneBlocks; ++i) {
    if (mask[i] != kMaskSelected) continue;
    ++used;
    const double change =
        std::fabs(b.block[i].sample_sum - a.block[i].sample_sum);
    if (change > tolerance) ++moved;
  }
  return (used >> 1) < moved;
}

}  // namespace qlis

extern "C" {

QL_IS_API double calcMedianFeatureAndVarianceV2(const BlockFeatureSet *features,
                                                double *variance_out,
                                                int32_t field,
                                                const uint8_t *mask) {
  return qlis::masked_median_and_variance(*features, field, mask, variance_out);
}

QL_IS_API double calcMedianFeatureAndVariance(const BlockFeatureSet *features,
                                              double *variance_out,
                                              int32_t field) {
  return qlis::median_and_variance_all(*features, field, variance_out);
}

QL_IS_API int32_t judge_scene_change(const BlockFeatureSet *features_a,
                                     const BlockFeatureSet *features_b,
                                     const uint8_t *mask) {
  return qlis::scene_changed(*features_a, *features_b, mask) ? 1 : 0;
}

}  // extern "C"

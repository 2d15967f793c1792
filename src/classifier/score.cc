// The difference vector of two frames and the logistic score over it.
//
// The score is a single-precision dot product: every product is rounded to
// float before it is added, and the additions run in ascending index order.
// Both roundings decide labels near p = 0.5, so neither a fused
// multiply-add nor a reordered (lane-wise, pairwise) sum may stand in; the
// project builds with -ffp-contract=off to keep the compiler from fusing.
#include <cmath>
#include <cstdint>

#include "classifier/frame_feature.h"
#include "platform/log.h"
#include "ql_is/ql_is.h"

namespace {

constexpr int32_t kDifferences = 97;
// Entries 0..95 are plain differences; the last one compares the shares of
// gradients of 32 and above, features 96..319.
constexpr int32_t kShareFirst = 96;
constexpr int32_t kBiasEntry = 0;

double share_sum(const double *features) {
  double sum = 0.0;
  for (int32_t k = kShareFirst; k < qlis::kClassifierFeatures; ++k) {
    sum += features[k];
  }
  return sum;
}

}  // namespace

extern "C" void combine_feature(const double *a, const double *b,
                                double *difference) {
  for (int32_t k = 0; k < kShareFirst; ++k) difference[k] = a[k] - b[k];
  difference[kShareFirst] = share_sum(a) - share_sum(b);
}

extern "C" int32_t get_score_label(const double *difference) {
  float s = 0.0f;
  for (int32_t k = 0; k < kDifferences; ++k) {
    const float d = static_cast<float>(difference[k]);
    const float w = static_cast<float>(paramsClass[k + 1]);
    const float product = d * w;
    s += product;
  }
  const double z = -static_cast<double>(s) - paramsClass[kBiasEntry];
  const double p = 1.0 / (std::exp(z) + 1.0);
  qlis::log_line(qlis::kTagInfo, "%1.2f ", p);
  // Exactly 0.5 and NaN both give 0.
  return p > 0.5 ? 1 : 0;
}

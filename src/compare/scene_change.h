// Scene-change test between two frames from their per-block brightness,
// and the median and variance statistics it is built on.
#pragma once

#include <cstdint>

#include "ql_is/ql_is.h"

namespace qlis {

inline constexpr int32_t kSceneBlocks = 64;

// Median and population variance of one field over the blocks whose mask
// byte is 1; returns the median and stores the variance.
double masked_median_and_variance(const BlockFeatureSet &features,
                                  int32_t field, const uint8_t *mask,
                                  double *variance_out);

// The same over all 64 blocks, as the earlier statistics computed it.
double median_and_variance_all(const BlockFeatureSet &features, int32_t field,
                               double *variance_out);

// True when more than half of the masked blocks changed their sample_sum by
// more than the brightness-dependent tolerance.
bool scene_changed(const BlockFeatureSet &a, const BlockFeatureSet &b,
                   const uint8_t *mask);

}  // namespace qlis

// Portable classifier features: the subsampled image is copied one sample
// at a time, then every block's samples are visited in turn.
#include "classifier/frame_feature.h"

#include <cstddef>
#include <cstdlib>

#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"

namespace qlis {

void store_histogram_features(const uint32_t histogram[kGradientBins],
                              const ClassifierGrid &grid, double *features) {
  const double n = gradient_count(grid);
  for (int32_t b = 0; b < kOwnBins; ++b) {
    const int32_t count = static_cast<int32_t>(histogram[b]);
    features[kHistogramFeatures + b] = static_cast<double>(count) / n;
  }
  // The tail is at most the frame's gradient count, which a 32-bit counter
  // holds; it is summed as the counters are kept.
  uint32_t tail = 0;
  for (int32_t b = kOwnBins; b < kGradientBins; ++b) tail += histogram[b];
  features[kTailFeature] = static_cast<double>(static_cast<int32_t>(tail)) / n;
}

namespace portable {

void classifier_features(const uint8_t *image, int32_t height, int32_t width,
                         uint32_t stride, double *features, uint8_t *scratch) {
  const ClassifierGrid grid = classifier_grid(height, width);
  const size_t pitch = static_cast<size_t>(grid.width > 0 ? grid.width : 0);
  for (int32_t r = 0; r < grid.height; ++r) {
    const size_t line = static_cast<size_t>(kLineStep * r + kFirstLine);
    const uint8_t *row = image + line * stride;
    for (int32_t k = 0; k < grid.width; ++k) {
      scratch[static_cast<size_t>(r) * pitch + static_cast<size_t>(k)] =
          row[kGroupBytes * static_cast<size_t>(k) + kSampleByte];
    }
  }

  const auto p = [&](int32_t x, int32_t y) -> int32_t {
    return scratch[static_cast<size_t>(y) * pitch + static_cast<size_t>(x)];
  };
  uint32_t histogram[kGradientBins] = {};
  const double divisor = block_mean_divisor(grid);
  for (int32_t i = 0; i < kGrid; ++i) {
    for (int32_t j = 0; j < kGrid; ++j) {
      // A signed 32-bit sum, kept in an unsigned word so that a block of
      // more than 4 million samples wraps instead of overflowing.
      uint32_t block_sum = 0;
      for (int32_t y = i * grid.rows; y < i * grid.rows + grid.rows; ++y) {
        for (int32_t x = j * grid.cols; x < j * grid.cols + grid.cols; ++x) {
          const int32_t g =
              std::abs(p(x, y) - p(x, y + 1)) + std::abs(p(x, y) - p(x + 1, y));
          ++histogram[g];
          block_sum += static_cast<uint32_t>(g);
        }
      }
      const int32_t sum = static_cast<int32_t>(block_sum);
      features[kGrid * j + i] = static_cast<double>(sum) / divisor;
    }
  }
  store_histogram_features(histogram, grid, features);
}

}  // namespace portable
}  // namespace qlis

extern "C" double *get_feature_raw_10bitX5_(const uint8_t *image,
                                            int32_t height, int32_t width,
                                            uint32_t stride, uint32_t extra1,
                                            uint32_t extra2, double *features,
                                            uint8_t *scratch) {
  (void)extra1;  // accepted and never read
  (void)extra2;
  qlis::kernels::classifier_features(image, height, width, stride, features,
                                     scratch);
  return features;
}

// The classifier's feature vector of one packed RAW10 frame: 8 x 8 block
// mean gradients and a gradient histogram of a 1-in-16 subsampled image.
//
// The subsampled image takes byte 4 of every five-byte group on lines 3, 7,
// 11, ...: one sample per 4 x 4 pixels, rows back to back in the caller's
// scratch buffer. The gradient of sample p(x, y) is
// |p(x, y) - p(x, y + 1)| + |p(x, y) - p(x + 1, y)|, 0..510.
#pragma once

#include <cstdint>

#include "feature/block_grid.h"

namespace qlis {

// Entries of the feature vector: 64 block means, column-major (block row
// i, block column j at 8 j + i), then histogram bins 0..254 one by one and
// the share of all gradients of 255 and above in the last entry.
inline constexpr int32_t kClassifierFeatures = 320;
inline constexpr int32_t kGradientBins = 512;  // gradients 0..510 index it
inline constexpr int32_t kOwnBins = 255;
inline constexpr int32_t kHistogramFeatures = kBlocks;
inline constexpr int32_t kTailFeature = kHistogramFeatures + kOwnBins;

// Subsampled row r is frame line kFirstLine + kLineStep r; its sample k is
// byte kSampleByte of group k.
inline constexpr int32_t kFirstLine = 3;
inline constexpr int32_t kLineStep = 4;
inline constexpr int32_t kGroupBytes = 5;
inline constexpr int32_t kSampleByte = 4;

// Block means are divided by this on top of the block's sample count; a
// fixed scale, not a bin count.
inline constexpr int32_t kMeanScale = 512;

// Size of the subsampled image and of its blocks. The blocks cover
// rows [0, 8 rows) and columns [0, 8 cols); when the image is an exact
// multiple of 8 a block loses a row or column, so that the lower and right
// neighbours of the last covered sample stay inside the image. A frame
// with no subsampled rows (or columns) gets rows = -1: its blocks are
// empty and only the divisors see the -1.
struct ClassifierGrid {
  int32_t height;  // subsampled rows, height >> 2
  int32_t width;   // samples per subsampled row, width >> 2
  int32_t rows;    // rows per block
  int32_t cols;    // columns per block
};

inline ClassifierGrid classifier_grid(int32_t height, int32_t width) {
  ClassifierGrid g{height >> 2, width >> 2, 0, 0};
  g.rows = g.height >> 3;
  if (g.height == kGrid * g.rows) --g.rows;
  g.cols = g.width >> 3;
  if (g.width == kGrid * g.cols) --g.cols;
  return g;
}

// Signed 32-bit products, wrapped without undefined behaviour; a frame too
// small for the grid makes them 0 and every feature 0/0.
inline double block_mean_divisor(const ClassifierGrid &g) {
  const uint32_t product = static_cast<uint32_t>(g.rows) *
                           static_cast<uint32_t>(g.cols) *
                           static_cast<uint32_t>(kMeanScale);
  return static_cast<double>(static_cast<int32_t>(product));
}

inline double gradient_count(const ClassifierGrid &g) {
  const uint32_t product = static_cast<uint32_t>(kBlocks) *
                           static_cast<uint32_t>(g.rows) *
                           static_cast<uint32_t>(g.cols);
  return static_cast<double>(static_cast<int32_t>(product));
}

// features[64..319] from the histogram of a whole frame: counts taken as
// signed 32-bit, divided in double by the number of gradients.
void store_histogram_features(const uint32_t histogram[kGradientBins],
                              const ClassifierGrid &grid, double *features);

namespace portable {
// Writes the subsampled image to scratch and the 320 features.
void classifier_features(const uint8_t *image, int32_t height, int32_t width,
                         uint32_t stride, double *features, uint8_t *scratch);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
void classifier_features(const uint8_t *image, int32_t height, int32_t width,
                         uint32_t stride, double *features, uint8_t *scratch);
}  // namespace neon
#endif

}  // namespace qlis

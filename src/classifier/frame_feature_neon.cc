// NEON twin of the classifier features. The subsampled image is gathered
// one row at a time (16 samples from 80 bytes by table lookups), and the
// gradients of the row above are taken while both rows are still in the
// first-level cache, instead of in a second pass over the whole image.
//
// The block sums and the histogram are integer counts, so visiting the
// samples row by row across all blocks gives the portable results exactly.
// The histogram is split over four tables indexed by sample position, so
// that runs of equal gradients do not wait on one counter; the tables are
// added at the end (modulo 2^32, as the single counters would wrap).
#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "classifier/frame_feature.h"
#include "platform/neon.h"
#include "platform/neon_gather.h"

namespace qlis::neon {
namespace {

constexpr int32_t kChunk = 16;   // samples per vector
constexpr int32_t kTables = 4;   // histogram tables, one per sample mod 4
// Gradients are formed this many at a time into a stack buffer before
// they are counted.
constexpr int32_t kPiece = 256;

// Sampled lines are 4 frame rows apart, too far for the hardware's
// streams to follow from one to the next: fetch the line this many
// subsampled rows ahead while gathering the current one.
constexpr int32_t kPrefetchRows = 2;
constexpr int32_t kCacheLine = 64;

struct Counts {
  uint32_t histogram[kTables][kGradientBins] = {};
  // Block sums, column-major like the features. Signed 32-bit values kept
  // in unsigned words: they wrap instead of overflowing.
  uint32_t sums[kBlocks] = {};
};

inline void prefetch_line(const uint8_t *line, size_t bytes) {
  for (size_t b = 0; b < bytes; b += kCacheLine) __builtin_prefetch(line + b);
}

// Gradients of samples [0, count) of row `cur` with `below` the next row;
// reads cur[0..count] and below[0..count-1]. Adds them to the histogram
// tables and to *sum.
void add_gradients(const uint8_t *cur, const uint8_t *below, int32_t count,
                   Counts &c, uint32_t *sum) {
  alignas(16) uint16_t g[kPiece];
  uint32_t s = *sum;
  for (int32_t done = 0; done < count; done += kPiece) {
    const int32_t n = std::min(kPiece, count - done);
    const uint8_t *a = cur + done;
    const uint8_t *d = below + done;
    int32_t k = 0;
    // 8-bit differences widen to 16-bit lanes before they are added: a
    // gradient reaches 510.
    for (; k + kChunk <= n; k += kChunk) {
      const uint8x16_t p = vld1q_u8(a + k);
      const uint8x16_t dv = vabdq_u8(p, vld1q_u8(d + k));
      const uint8x16_t dh = vabdq_u8(p, vld1q_u8(a + k + 1));
      vst1q_u16(g + k, vaddl_u8(vget_low_u8(dv), vget_low_u8(dh)));
      vst1q_u16(g + k + 8, vaddl_u8(vget_high_u8(dv), vget_high_u8(dh)));
    }
    for (; k < n; ++k) {
      g[k] = static_cast<uint16_t>(std::abs(a[k] - d[k]) +
                                   std::abs(a[k] - a[k + 1]));
    }
    k = 0;
    for (; k + kTables <= n; k += kTables) {
      ++c.histogram[0][g[k]];
      ++c.histogram[1][g[k + 1]];
      ++c.histogram[2][g[k + 2]];
      ++c.histogram[3][g[k + 3]];
      s += static_cast<uint32_t>(g[k] + g[k + 1] + g[k + 2] + g[k + 3]);
    }
    for (; k < n; ++k) {
      ++c.histogram[0][g[k]];
      s += g[k];
    }
  }
  *sum = s;
}

}  // namespace

void classifier_features(const uint8_t *image, int32_t height, int32_t width,
                         uint32_t stride, double *features, uint8_t *scratch) {
  const ClassifierGrid grid = classifier_grid(height, width);
  Counts counts;
  // Rows and columns that start a gradient; none when the grid is empty.
  const bool covered = grid.rows > 0 && grid.cols > 0;
  const int32_t gradient_rows = covered ? kGrid * grid.rows : 0;
  const size_t pitch = static_cast<size_t>(std::max(grid.width, 0));
  const size_t line_bytes = kGroupBytes * pitch;
  const size_t row_step = static_cast<size_t>(kLineStep) * stride;
  const uint8_t *line = image + static_cast<size_t>(kFirstLine) * stride;
  for (int32_t r = 0; r < grid.height; ++r, line += row_step) {
    if (r + kPrefetchRows < grid.height) {
      prefetch_line(line + kPrefetchRows * row_step, line_bytes);
    }
    uint8_t *row = scratch + static_cast<size_t>(r) * pitch;
    gather_group_byte4_row(line, grid.width, row);
    const int32_t y = r - 1;
    if (y < 0 || y >= gradient_rows) continue;
    const int32_t i = y / grid.rows;
    const uint8_t *above = row - pitch;
    for (int32_t j = 0; j < kGrid; ++j) {
      const size_t x0 = static_cast<size_t>(j) * static_cast<size_t>(grid.cols);
      add_gradients(above + x0, row + x0, grid.cols, counts,
                    &counts.sums[kGrid * j + i]);
    }
  }

  const double divisor = block_mean_divisor(grid);
  for (int32_t k = 0; k < kBlocks; ++k) {
    const int32_t sum = static_cast<int32_t>(counts.sums[k]);
    features[k] = static_cast<double>(sum) / divisor;
  }
  uint32_t histogram[kGradientBins];
  for (int32_t b = 0; b < kGradientBins; ++b) {
    histogram[b] = counts.histogram[0][b] + counts.histogram[1][b] +
                   counts.histogram[2][b] + counts.histogram[3][b];
  }
  store_histogram_features(histogram, grid, features);
}

}  // namespace qlis::neon

// Synthetic frames for the kernel tests.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "support/page_end_buffer.h"

namespace qlis::test {

// Geometry of a packed frame: pixels and bytes per row.
struct Geometry {
  int32_t height;
  int32_t width;
  int32_t stride;
};

// Smallest stride that holds width / 4 five-byte groups.
inline int32_t raw10_min_stride(int32_t width) { return 5 * (width / 4); }

// Frame geometries that stress the vector kernels: widths that are not
// multiples of the vector step, padded strides, tiny frames and frames
// smaller than the block grid.
std::vector<Geometry> awkward_raw10_geometries();

// A frame of height * stride random bytes ending on a page boundary.
class RandomFrame {
 public:
  RandomFrame(Geometry g, uint32_t seed);
  const uint8_t *data() const { return buffer_.data(); }
  uint8_t *data() { return buffer_.data(); }
  const Geometry &geometry() const { return geometry_; }

 private:
  Geometry geometry_;
  PageEndBuffer buffer_;
};

// Fills every byte with random values from `engine`, biased toward the
// extremes so that bright and dark counts and wraps are exercised.
void fill_random(uint8_t *data, size_t size, std::mt19937 &engine);

// Sets RAW10 sample (i, g) = data[2 i stride + 5 g + 4] for the normal-light
// grid; the other bytes of the frame are left alone.
inline void set_raw10_sample(uint8_t *data, int32_t stride, int32_t i,
                             int32_t g, uint8_t v) {
  data[2 * static_cast<size_t>(i) * stride + 5 * static_cast<size_t>(g) + 4] = v;
}

}  // namespace qlis::test

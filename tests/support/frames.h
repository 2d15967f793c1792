// Synthetic frames for the kernel tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
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

// Fills every byte with random values from `engine`, biased toward the
// extremes so that bright and dark counts and wraps are exercised.
void fill_random(uint8_t *data, size_t size, std::mt19937 &engine);

// Seed of a frame of random bytes.
struct Noise {
  uint32_t seed;
};

// A frame of height * stride bytes on a page-end buffer, every byte `fill`
// or random; set() writes RAW10 sample (i, g), byte 4 of group g on row
// 2 i.
class PackedFrame {
 public:
  PackedFrame(Geometry g, uint8_t fill) : PackedFrame(g) {
    std::memset(buffer_->data(), fill, buffer_->size());
  }
  PackedFrame(Geometry g, Noise noise) : PackedFrame(g) {
    std::mt19937 engine(noise.seed);
    fill_random(buffer_->data(), buffer_->size(), engine);
  }
  void set(int32_t i, int32_t g, uint8_t v) {
    data()[2 * static_cast<size_t>(i) * geometry_.stride + 5 * g + 4] = v;
  }
  // Every sample of the frame to value(i, g).
  template <typename Value>
  PackedFrame &samples(Value value) {
    for (int32_t i = 0; i < geometry_.height / 2; ++i) {
      for (int32_t g = 0; g < geometry_.width / 4; ++g) set(i, g, value(i, g));
    }
    return *this;
  }
  uint8_t *data() { return buffer_->data(); }
  const uint8_t *data() const { return buffer_->data(); }
  const Geometry &geometry() const { return geometry_; }

 private:
  explicit PackedFrame(Geometry g)
      : geometry_(g),
        buffer_(std::make_unique<PageEndBuffer>(
            static_cast<size_t>(g.height) * static_cast<size_t>(g.stride))) {}
  Geometry geometry_;
  std::unique_ptr<PageEndBuffer> buffer_;  // movable frames
};

struct RandomFrame : PackedFrame {
  RandomFrame(Geometry g, uint32_t seed) : PackedFrame(g, Noise{seed}) {}
};

}  // namespace qlis::test

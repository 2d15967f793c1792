// Gradient energy of a rectangle of an interleaved 8-bit image: the sum of
// the absolute differences between every sample and its right and lower
// neighbours, 32-bit and wrapping.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qlis {

// An inclusive rectangle of an image whose lines are `width` pixels of
// `bytes_per_pixel` bytes with no gap between lines; a pixel's sample is its
// first byte. Bounds are held as the mathematical values of the exported
// arguments (some signed, some unsigned), so that every comparison between
// them means what it says.
struct EqualityRect {
  const uint8_t *frame;
  int64_t top;
  int64_t bottom;
  int64_t left;
  int64_t right;
  // The caller keeps right + distance < width and bottom + distance on the
  // frame; a negative distance is outside that contract.
  int64_t distance;
  uint64_t width;
  uint64_t bytes_per_pixel;

  bool empty() const { return top > bottom || right < left; }

  // Byte offsets in wrapping 64-bit arithmetic: for a rectangle inside the
  // frame they are the true offsets, and nothing out of contract can
  // overflow a signed type on the way.
  uint64_t pitch() const { return width * bytes_per_pixel; }
  const uint8_t *pixel(int64_t x, int64_t y) const {
    const uint64_t offset = static_cast<uint64_t>(y) * pitch() +
                            static_cast<uint64_t>(x) * bytes_per_pixel;
    return frame + static_cast<size_t>(offset);
  }
};

namespace portable {
// The literal sum over the rectangle, line by line, column by column.
uint32_t plane_gradient_sum(const EqualityRect &r);    // bytes_per_pixel 1
uint32_t strided_gradient_sum(const EqualityRect &r);  // any bytes_per_pixel
uint32_t yuyv_gradient_sum(const EqualityRect &r);     // bytes_per_pixel 2
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
uint32_t plane_gradient_sum(const EqualityRect &r);
uint32_t strided_gradient_sum(const EqualityRect &r);
uint32_t yuyv_gradient_sum(const EqualityRect &r);
}  // namespace neon
#endif

}  // namespace qlis

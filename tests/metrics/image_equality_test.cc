#include <gtest/gtest.h>

#include <vector>

#include "ql_is/ql_is.h"

namespace {

// A rectangle of an image of `width` pixels of `bpp` bytes per line.
struct Rect {
  int32_t top, bottom;
  uint32_t left;
  int32_t right, distance;
  uint32_t width, bpp;
};

// Through the common export; the fuzz target holds the plane and YUYV ones
// to it.
uint32_t measure(const std::vector<uint8_t> &f, const Rect &r) {
  return image_equality_common(f.data(), r.top, r.bottom, r.left, r.right, r.distance, r.bpp, 0,
                               r.width);
}

// Pixel (1, 1) of 3 x 3 is 100, its right neighbour 250, the one below 40.
TEST(ImageEquality, PixelAddsItsDifferencesToRightAndBelow) {
  for (const uint32_t bpp : {1u, 2u, 3u}) {
    std::vector<uint8_t> f(9 * bpp, 7);
    f[bpp * 4] = 100;
    f[bpp * 5] = 250;
    f[bpp * 7] = 40;
    EXPECT_EQ(measure(f, {1, 1, 1, 1, 1, 3, bpp}), 210u);
  }
}

// 0 and 255 alternating: every pixel adds 510, and 4096 x 2100 of them make
// 4,386,816,000, which wraps to 91,848,704.
TEST(ImageEquality, SumWrapsAt32Bits) {
  for (const uint32_t bpp : {1u, 2u}) {
    std::vector<uint8_t> image(bpp * 4097 * 2101, 0);
    // Pixel p = 4097 y + x is 255 where p is odd, i.e. where x + y is odd.
    for (size_t p = 1; bpp * p < image.size(); p += 2) image[bpp * p] = 255;
    EXPECT_EQ(measure(image, {0, 2099, 0, 4095, 1, 4097, bpp}), 91848704u);
  }
}

}  // namespace

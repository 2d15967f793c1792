#include "metrics/image_equality.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace qlis::test {
namespace {

// A rectangle of an image of `width` pixels of `bpp` bytes per line.
struct Rect {
  int32_t top, bottom;
  uint32_t left;
  int32_t right, distance;
  uint32_t width, bpp;
};

// Random bytes ending with the last byte of the last pixel the neighbours
// reach; with 0 bytes per pixel every sample is byte 0.
struct Image : PageEndBuffer {
  Image(const Rect &r, uint32_t seed)
      : PageEndBuffer(r.bpp == 0 ? 1
                                 : r.bpp * (static_cast<size_t>(r.bottom + r.distance) * r.width +
                                            static_cast<size_t>(r.right) + 1)) {
    std::mt19937 engine(seed);
    fill_random(data(), size(), engine);
  }
};

// The common export, checked against the plane (1 byte per pixel) or YUYV
// (2) one; the extra argument is never read.
uint32_t measure(const uint8_t *f, const Rect &r) {
  const uint32_t common = image_equality_common(f, r.top, r.bottom, r.left, r.right,
                                                r.distance, r.bpp, 0xdeadbeef, r.width);
  if (r.bpp == 1) {
    EXPECT_EQ(static_cast<uint32_t>(image_equality(f, r.top, r.bottom, r.left, r.right,
                                                   r.distance, 0xdeadbeef, r.width)),
              common);
  } else if (r.bpp == 2) {
    EXPECT_EQ(image_equality_for_yuyv(f, r.top, r.bottom, r.left, r.right, r.distance,
                                      0xdeadbeef, r.width),
              common);
  }
  return common;
}

// Pixel (1, 1) of 3 x 3 is 100, its right neighbour 250, the one below 40;
// distance 0 gives 0; empty rectangles read nothing (the frame pointer is
// the first unreadable byte) whatever their bounds' signs.
TEST(ImageEquality, SinglePixelZeroDistanceAndEmptyRectangles) {
  for (const uint32_t bpp : {1u, 2u, 3u}) {
    const Rect pixel{1, 1, 1, 1, 1, 3, bpp};
    Image f(pixel, bpp);
    f.data()[bpp * 4] = 100;
    f.data()[bpp * 5] = 250;
    f.data()[bpp * 7] = 40;
    EXPECT_EQ(measure(f.data(), pixel), 210u);
    const Rect zero_distance{0, 20, 3, 60, 0, 70, bpp};
    EXPECT_EQ(measure(Image(zero_distance, 3).data(), zero_distance), 0u);
  }
  PageEndBuffer none(1);
  const uint8_t *nothing = none.data() + none.size();
  const Rect empty[] = {{5, 4, 0, 10, 1, 20, 1},
                        {0, 3, 9, 8, 1, 20, 2},
                        {INT32_MAX, INT32_MIN, 0, 10, 1, 20, 3},
                        {0, 3, UINT32_MAX, INT32_MAX, 1, 20, 1},
                        {0, 3, 0x80000000u, -1, 1, 20, 2}};
  for (const Rect &e : empty) {
    EXPECT_EQ(measure(nothing, e), 0u);
    EXPECT_EQ(portable::strided_gradient_sum(
                  {nothing, e.top, e.bottom, e.left, e.right, e.distance, e.width, e.bpp}),
              0u);
  }
}

// 0 and 255 alternating: every pixel adds 510, and 4096 x 2100 of them make
// 4,386,816,000, which wraps to 91,848,704.
TEST(ImageEquality, SumWrapsAt32Bits) {
  for (const uint32_t bpp : {1u, 2u}) {
    const Rect r{0, 2099, 0, 4095, 1, 4097, bpp};
    Image image(r, 0);
    std::memset(image.data(), 0, image.size());
    // Pixel p = 4097 y + x is 255 where p is odd, i.e. where x + y is odd.
    for (size_t p = 1; bpp * p < image.size(); p += 2) image.data()[bpp * p] = 255;
    EXPECT_EQ(measure(image.data(), r), 91848704u);
  }
}

#if QLIS_HAVE_NEON
// Random rectangles, pixel sizes 0 .. 5 and distances 0 .. 4.
TEST(ImageEqualityTwins, NeonMatchesPortableBitForBit) {
  std::mt19937 engine(20240917);
  const auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(engine);
  };
  for (int trial = 0; trial < 400; ++trial) {
    const int32_t distance = pick(0, 4), width = pick(distance + 1, 300);
    const int32_t right = pick(0, width - distance - 1), top = pick(0, 6);
    const Rect r{top, top + pick(0, 5), static_cast<uint32_t>(pick(0, right)), right,
                 distance, static_cast<uint32_t>(width), static_cast<uint32_t>(trial % 6)};
    const Image image(r, engine());
    const EqualityRect e{image.data(), r.top,   r.bottom, r.left,
                         r.right,      r.distance, r.width, r.bpp};
    ASSERT_EQ(neon::strided_gradient_sum(e), portable::strided_gradient_sum(e)) << trial;
    if (r.bpp == 1) { ASSERT_EQ(neon::plane_gradient_sum(e), portable::plane_gradient_sum(e)); }
    if (r.bpp == 2) { ASSERT_EQ(neon::yuyv_gradient_sum(e), portable::yuyv_gradient_sum(e)); }
  }
}
#endif  // QLIS_HAVE_NEON

}  // namespace
}  // namespace qlis::test

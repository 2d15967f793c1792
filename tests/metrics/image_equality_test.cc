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

// Bytes up to the end of the last pixel the neighbours reach; with 0 bytes
// per pixel every sample is byte 0.
size_t image_bytes(const Rect &r) {
  if (r.bpp == 0) return 1;
  return r.bpp * (static_cast<size_t>(r.bottom + r.distance) * r.width +
                  static_cast<size_t>(r.right) + 1);
}

// Random bytes ending with the last byte the rectangle may read.
struct Image {
  Image(const Rect &r, uint32_t seed) : buffer(image_bytes(r)) {
    std::mt19937 engine(seed);
    fill_random(buffer.data(), buffer.size(), engine);
  }
  PageEndBuffer buffer;
};

// The exported function for the pixel size (plane, YUYV or common), which
// must agree with the common one given the same size.
uint32_t measure(const uint8_t *f, const Rect &r) {
  constexpr uint32_t kExtra = 0xdeadbeef;  // never read
  const uint32_t common = image_equality_common(
      f, r.top, r.bottom, r.left, r.right, r.distance, r.bpp, kExtra, r.width);
  uint32_t own = common;
  if (r.bpp == 1) {
    own = static_cast<uint32_t>(image_equality(
        f, r.top, r.bottom, r.left, r.right, r.distance, kExtra, r.width));
  } else if (r.bpp == 2) {
    own = image_equality_for_yuyv(f, r.top, r.bottom, r.left, r.right,
                                  r.distance, kExtra, r.width);
  }
  EXPECT_EQ(own, common) << "bytes per pixel " << r.bpp;
  return own;
}

// Pixel (1, 1) of 3 x 3 is 100, its right neighbour 250, the one below 40;
// flat images and distance 0 give 0; empty rectangles read nothing (the
// frame pointer is the first unreadable byte) whatever their bounds' signs.
TEST(ImageEquality, SinglePixelFlatAndEmptyRectangles) {
  for (const uint32_t bpp : {1u, 2u, 3u}) {
    const Rect pixel{1, 1, 1, 1, 1, 3, bpp};
    Image image(pixel, bpp);
    uint8_t *f = image.buffer.data();
    f[bpp * 4] = 100;
    f[bpp * 5] = 250;
    f[bpp * 7] = 40;
    EXPECT_EQ(measure(f, pixel), 210u);

    const Rect wide{0, 20, 3, 60, 2, 70, bpp};
    Image flat(wide, 0);
    std::memset(flat.buffer.data(), 77, flat.buffer.size());
    EXPECT_EQ(measure(flat.buffer.data(), wide), 0u);
    const Rect zero_distance{0, 20, 3, 60, 0, 70, bpp};
    EXPECT_EQ(measure(Image(zero_distance, 3).buffer.data(), zero_distance),
              0u);
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
    EXPECT_EQ(portable::strided_gradient_sum({nothing, e.top, e.bottom, e.left,
                                              e.right, e.distance, e.width,
                                              e.bpp}),
              0u);
  }
}

// 0 and 255 alternating: every pixel adds 510, and 4096 x 2100 of them make
// 4,386,816,000, which wraps to 91,848,704.
TEST(ImageEquality, SumWrapsAt32Bits) {
  for (const uint32_t bpp : {1u, 2u}) {
    const Rect r{0, 2099, 0, 4095, 1, 4097, bpp};
    PageEndBuffer image(image_bytes(r));
    std::memset(image.data(), 0, image.size());
    // Pixel p = 4097 y + x is 255 where p is odd, i.e. where x + y is odd.
    for (size_t p = 1; bpp * p < image.size(); p += 2) {
      image.data()[bpp * p] = 255;
    }
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
    const int32_t distance = pick(0, 4);
    const int32_t width = pick(distance + 1, 300);
    const int32_t right = pick(0, width - distance - 1);
    const int32_t top = pick(0, 6);
    const Rect r{top,   top + pick(0, 5),
                 static_cast<uint32_t>(pick(0, right)), right,
                 distance, static_cast<uint32_t>(width),
                 static_cast<uint32_t>(trial % 6)};
    const Image image(r, engine());
    const EqualityRect e{image.buffer.data(), r.top, r.bottom, r.left,
                         r.right, r.distance, r.width, r.bpp};
    ASSERT_EQ(neon::strided_gradient_sum(e), portable::strided_gradient_sum(e))
        << "trial " << trial;
    if (r.bpp == 1) {
      ASSERT_EQ(neon::plane_gradient_sum(e), portable::plane_gradient_sum(e));
    }
    if (r.bpp == 2) {
      ASSERT_EQ(neon::yuyv_gradient_sum(e), portable::yuyv_gradient_sum(e));
    }
  }
}
#endif  // QLIS_HAVE_NEON

}  // namespace
}  // namespace qlis::test

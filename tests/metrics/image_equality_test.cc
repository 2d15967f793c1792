#include "metrics/image_equality.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis::test {
namespace {

// A rectangle of an image of `width` pixels of `bpp` bytes per line.
struct Rect {
  int32_t top, bottom;
  uint32_t left;
  int32_t right, distance;
  uint32_t width, bpp;
};

// Bytes up to the end of the last pixel the rectangle's neighbours reach
// (with 0 bytes per pixel every sample is byte 0).
size_t image_bytes(const Rect &r) {
  if (r.bpp == 0) return 1;
  return r.bpp * (static_cast<size_t>(r.bottom + r.distance) * r.width +
                  static_cast<size_t>(r.right) + 1);
}

// The sum written out directly, one pixel at a time.
uint32_t reference(const uint8_t *f, const Rect &r) {
  const auto at = [&](int64_t x, int64_t y) {
    return static_cast<int>(f[r.bpp * (y * r.width + x)]);
  };
  uint32_t sum = 0;
  for (int64_t y = r.top; y <= r.bottom; ++y) {
    for (int64_t x = r.left; x <= r.right; ++x) {
      sum += std::abs(at(x, y) - at(x, y + r.distance)) +
             std::abs(at(x, y) - at(x + r.distance, y));
    }
  }
  return sum;
}

// The exported function for r.bpp: 1 the plane, 2 YUYV, 3 and more the
// common one. `common` sends every size to the common one.
uint32_t exported(const uint8_t *f, const Rect &r, bool common = false) {
  constexpr uint32_t kExtra = 0xdeadbeef;  // never read
  if (common || r.bpp > 2) {
    return image_equality_common(f, r.top, r.bottom, r.left, r.right,
                                 r.distance, r.bpp, kExtra, r.width);
  }
  if (r.bpp == 2) {
    return image_equality_for_yuyv(f, r.top, r.bottom, r.left, r.right,
                                   r.distance, kExtra, r.width);
  }
  return static_cast<uint32_t>(image_equality(
      f, r.top, r.bottom, r.left, r.right, r.distance, kExtra, r.width));
}

// An image of random bytes that ends with the last byte the rectangle may
// read.
struct Image {
  explicit Image(const Rect &r, uint32_t seed) : buffer(image_bytes(r)) {
    std::mt19937 engine(seed);
    fill_random(buffer.data(), buffer.size(), engine);
  }
  PageEndBuffer buffer;
};

TEST(ImageEquality, SinglePixelIsItsTwoNeighbourDifferences) {
  for (const uint32_t bpp : {1u, 2u, 3u}) {
    // 3 x 3 pixels; pixel (1, 1) is 100, its right neighbour 250, the one
    // below 40: |100 - 40| + |100 - 250| = 210.
    const Rect r{1, 1, 1, 1, 1, 3, bpp};
    Image image(r, 1);
    uint8_t *f = image.buffer.data();
    f[bpp * 4] = 100;
    f[bpp * 5] = 250;
    f[bpp * 7] = 40;
    EXPECT_EQ(exported(f, r), 210u) << bpp;
    EXPECT_EQ(exported(f, r, true), 210u) << bpp;
  }
}

// Flat images, zero distance and empty rectangles give 0; an empty
// rectangle reads nothing (the frame pointer is the first unreadable byte),
// whatever the signs of its bounds.
TEST(ImageEquality, FlatZeroDistanceAndEmptyRectanglesGiveZero) {
  PageEndBuffer nowhere(1);
  const uint8_t *nothing = nowhere.data() + nowhere.size();
  const Rect empty[] = {{5, 4, 0, 10, 1, 20, 1},
                        {0, 3, 9, 8, 1, 20, 2},
                        {INT32_MAX, INT32_MIN, 0, 10, 1, 20, 3},
                        {0, 3, UINT32_MAX, INT32_MAX, 1, 20, 1},
                        {0, 3, 0x80000000u, -1, 1, 20, 2}};
  for (const uint32_t bpp : {1u, 2u, 5u}) {
    const Rect flat{0, 20, 3, 60, 2, 70, bpp};
    PageEndBuffer buffer(image_bytes(flat));
    std::memset(buffer.data(), 77, buffer.size());
    EXPECT_EQ(exported(buffer.data(), flat), 0u) << bpp;
    const Rect zero_distance{0, 20, 3, 60, 0, 70, bpp};
    const Image noise(zero_distance, bpp);
    EXPECT_EQ(exported(noise.buffer.data(), zero_distance), 0u) << bpp;
  }
  for (const Rect &e : empty) {
    EXPECT_EQ(exported(nothing, e), 0u) << e.top << " " << e.left;
    EXPECT_EQ(exported(nothing, e, true), 0u) << e.top << " " << e.left;
  }
}

// Column counts around the 16- and 32-pixel steps, at several offsets and
// distances, against the pixel-by-pixel sum; every image ends with the
// last byte the rectangle reaches.
TEST(ImageEquality, EveryWidthMatchesThePlainSum) {
  uint32_t seed = 7;
  for (const uint32_t bpp : {1u, 2u, 3u, 4u, 5u}) {
    for (const int32_t columns : {1, 15, 16, 17, 31, 32, 33, 47, 48, 49, 65}) {
      for (const uint32_t left : {0u, 1u, 13u}) {
        for (const int32_t distance : {1, 2, 5}) {
          const int32_t right = static_cast<int32_t>(left) + columns - 1;
          const uint32_t width = static_cast<uint32_t>(right + distance + 1);
          const Rect r{2, 6, left, right, distance, width, bpp};
          const Image image(r, ++seed);
          const uint32_t want = reference(image.buffer.data(), r);
          ASSERT_EQ(exported(image.buffer.data(), r), want)
              << bpp << " bytes, " << columns << " columns from " << left;
          ASSERT_EQ(exported(image.buffer.data(), r, true), want)
              << bpp << " bytes, " << columns << " columns from " << left;
        }
      }
    }
  }
}

// 0 and 255 alternating: every pixel adds 510, and 4096 x 2100 of them make
// 4,386,816,000, which wraps to 91,848,704.
TEST(ImageEquality, SumWrapsAt32Bits) {
  for (const uint32_t bpp : {1u, 2u}) {
    const Rect r{0, 2099, 0, 4095, 1, 4097, bpp};
    PageEndBuffer buffer(image_bytes(r));
    uint8_t *f = buffer.data();
    std::memset(f, 0, buffer.size());
    for (size_t y = 0; y <= 2100; ++y) {
      for (size_t x = (y + 1) % 2; x < r.width; x += 2) {
        const size_t at = bpp * (y * r.width + x);
        if (at < buffer.size()) f[at] = 255;
      }
    }
    EXPECT_EQ(exported(f, r), 91848704u) << bpp;
    EXPECT_EQ(exported(f, r, true), 91848704u) << bpp;
  }
}

#if QLIS_HAVE_NEON
// Random rectangles, pixel sizes and distances; each image ends with the
// last byte its rectangle may read.
TEST(ImageEqualityTwins, NeonMatchesPortableBitForBit) {
  std::mt19937 engine(20240917);
  const auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(engine);
  };
  for (int trial = 0; trial < 400; ++trial) {
    const uint32_t bpp = static_cast<uint32_t>(trial % 6);  // 0 .. 5
    const int32_t distance = pick(0, 4);
    const int32_t width = pick(distance + 1, 300);
    const int32_t right = pick(0, width - distance - 1);
    const int32_t left = pick(0, right);
    const int32_t top = pick(0, 6);
    const Rect r{top, top + pick(0, 5), static_cast<uint32_t>(left), right,
                 distance, static_cast<uint32_t>(width), bpp};
    const Image image(r, engine());
    const EqualityRect e{image.buffer.data(), r.top, r.bottom, r.left,
                         r.right, r.distance, r.width, r.bpp};
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    ASSERT_EQ(neon::strided_gradient_sum(e), portable::strided_gradient_sum(e));
    if (bpp == 1) {
      ASSERT_EQ(neon::plane_gradient_sum(e), portable::plane_gradient_sum(e));
    }
    if (bpp == 2) {
      ASSERT_EQ(neon::yuyv_gradient_sum(e), portable::yuyv_gradient_sum(e));
    }
  }
}
#endif  // QLIS_HAVE_NEON

}  // namespace
}  // namespace qlis::test

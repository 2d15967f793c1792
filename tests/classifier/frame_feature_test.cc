#include "classifier/frame_feature.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace qlis {
namespace {

using test::Geometry;
using test::RandomFrame;
using Features = std::array<double, 320>;

// Subsampled pixel (x, y): byte 4 of group x on line 4 y + 3.
uint8_t &sample(RandomFrame &f, int32_t x, int32_t y) {
  return f.data()[(4 * y + 3) * f.geometry().stride + 5 * x + 4];
}

void set_all(RandomFrame &f, uint8_t v) {
  for (int32_t y = 0; y < f.geometry().height / 4; ++y) {
    for (int32_t x = 0; x < f.geometry().width / 4; ++x) sample(f, x, y) = v;
  }
}

// The exported call, with the scratch image on a page-end buffer.
Features features(const RandomFrame &f, std::vector<uint8_t> *scratch = {}) {
  const Geometry &g = f.geometry();
  test::PageEndBuffer image(static_cast<size_t>(g.height / 4) * (g.width / 4));
  Features out;
  EXPECT_EQ(get_feature_raw_10bitX5_(f.data(), g.height, g.width, g.stride, 7,
                                     9, out.data(), image.data()),
            out.data());
  if (scratch) scratch->assign(image.data(), image.data() + image.size());
  return out;
}

// One sample v in a frame of zeros: gradient 2 v there, v at its left and
// upper neighbours. 254 keeps its own bin; 255 and above share the last.
TEST(ClassifierFeatures, GradientsFrom255OnShareTheLastFeature) {
  const struct {
    uint8_t v;
    double bin_254, tail;
  } cases[] = {{127, 1 / 64.0, 0.0}, {128, 0.0, 1 / 64.0}, {255, 0.0, 3 / 64.0}};
  for (const auto &c : cases) {
    RandomFrame f({36, 36, 45}, 2);
    set_all(f, 0);
    sample(f, 3, 3) = c.v;
    const Features got = features(f);
    EXPECT_EQ(got[318], c.bin_254) << int{c.v};
    EXPECT_EQ(got[319], c.tail) << int{c.v};
  }
}

// 80 x 120 subsamples to 20 x 30: blocks of 2 rows by 3 columns. The raised
// sample is the last one of block row 1, block column 5, so that its three
// gradients (20, 10, 10) all fall in that block. The scratch image holds
// the subsampled frame, row by row.
TEST(ClassifierFeatures, BlockMeansAreColumnMajor) {
  RandomFrame f({80, 120, 150}, 2);
  set_all(f, 9);
  sample(f, 17, 3) = 19;
  std::vector<uint8_t> scratch;
  const Features got = features(f, &scratch);
  std::vector<uint8_t> subsampled(20 * 30, 9);
  subsampled[3 * 30 + 17] = 19;
  EXPECT_EQ(scratch, subsampled);
  for (int k = 0; k < 64; ++k) {
    EXPECT_EQ(got[k], k == 8 * 5 + 1 ? 40 / (6 * 512.0) : 0.0) << k;
  }
  EXPECT_EQ(got[64], 381 / 384.0);
  EXPECT_EQ(got[64 + 10], 2 / 384.0);
  EXPECT_EQ(got[64 + 20], 1 / 384.0);
}

// 1 to 8 subsampled rows or columns leave blocks of size 0: 0/0. None at
// all makes the size -1 in that direction: with no size 0 in the other,
// the features are zeros of the divisors' sign.
TEST(ClassifierFeatures, FramesTooSmallForTheGridGiveNaNOrZero) {
  for (const Geometry g : {Geometry{36, 32, 40}, Geometry{16, 100, 125},
                           Geometry{3, 3, 5}, Geometry{0, 100, 125}}) {
    for (double v : features(RandomFrame(g, 1))) {
      if (g.height >= 4) {
        ASSERT_TRUE(std::isnan(v)) << g.height << "x" << g.width;
      } else {
        ASSERT_TRUE(v == 0.0 && std::signbit(v) == (g.width >= 4)) << g.width;
      }
    }
  }
}

#if QLIS_HAVE_NEON
TEST(ClassifierFeatures, NeonTwinMatchesPortableBitForBit) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.insert(geometries.end(), {{67, 129, 170}, {1000, 1400, 1750},
                                       {48, 8400, 10500}});
  for (const Geometry g : geometries) {
    const RandomFrame frame(g, static_cast<uint32_t>(g.width));
    const size_t size = static_cast<size_t>(g.height / 4) * (g.width / 4);
    test::PageEndBuffer scratch[2] = {test::PageEndBuffer(size),
                                      test::PageEndBuffer(size)};
    Features got[2];
    portable::classifier_features(frame.data(), g.height, g.width, g.stride,
                                  got[0].data(), scratch[0].data());
    neon::classifier_features(frame.data(), g.height, g.width, g.stride,
                              got[1].data(), scratch[1].data());
    EXPECT_EQ(std::memcmp(got[0].data(), got[1].data(), sizeof got[0]), 0)
        << g.height << "x" << g.width;
    EXPECT_EQ(std::memcmp(scratch[0].data(), scratch[1].data(), size), 0)
        << g.height << "x" << g.width;
  }
}
#endif

}  // namespace
}  // namespace qlis

#include "classifier/frame_feature.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis {
namespace {

using test::Geometry;
using Features = std::array<double, 320>;

// A frame of random bytes on a page-end buffer whose subsampled pixel
// (x, y), byte 4 of group x on line 4 y + 3, can be set.
struct Frame {
  Frame(Geometry g, uint32_t seed)
      : geometry(g),
        bytes(static_cast<size_t>(g.height) * static_cast<size_t>(g.stride)) {
    std::mt19937 engine(seed);
    test::fill_random(bytes.data(), bytes.size(), engine);
  }
  uint8_t &sample(int32_t x, int32_t y) {
    return bytes.data()[(4 * static_cast<size_t>(y) + 3) * geometry.stride +
                        5 * static_cast<size_t>(x) + 4];
  }
  Frame &fill_samples(uint8_t v) {
    for (int32_t y = 0; y < geometry.height / 4; ++y) {
      for (int32_t x = 0; x < geometry.width / 4; ++x) sample(x, y) = v;
    }
    return *this;
  }
  // The exported call, with scratch on a page-end buffer too.
  Features features(std::vector<uint8_t> *scratch_out = nullptr) {
    const size_t scratch_size = static_cast<size_t>(geometry.height / 4) *
                                static_cast<size_t>(geometry.width / 4);
    test::PageEndBuffer scratch(scratch_size);
    Features f;
    EXPECT_EQ(get_feature_raw_10bitX5_(bytes.data(), geometry.height,
                                       geometry.width, geometry.stride, 7, 9,
                                       f.data(), scratch.data()),
              f.data());
    if (scratch_out) scratch_out->assign(scratch.data(), scratch.data() + scratch_size);
    return f;
  }
  Geometry geometry;
  test::PageEndBuffer bytes;
};

// Written out for grids whose blocks are single samples: block (i, j) is
// subsampled pixel (j, i), 64 gradients in all.
Features single_sample_blocks(Frame &f) {
  Features want{};
  int histogram[511] = {};
  for (int i = 0; i < 8; ++i) {
    for (int j = 0; j < 8; ++j) {
      const int p = f.sample(j, i);
      const int g = std::abs(p - f.sample(j, i + 1)) +
                    std::abs(p - f.sample(j + 1, i));
      want[8 * j + i] = g / 512.0;
      ++histogram[g];
    }
  }
  int tail = 0;
  for (int b = 0; b < 511; ++b) {
    if (b < 255) want[64 + b] = histogram[b] / 64.0;
    else tail += histogram[b];
  }
  want[319] = tail / 64.0;
  return want;
}

// 36 x 36 subsamples to 9 x 9 and 64 x 64 to 16 x 16: both give one-sample
// blocks, the second because a size of exactly 16 keeps the last row and
// column back as neighbours only. 44 x 40 subsamples to 11 x 10.
TEST(ClassifierFeatures, OneSampleBlocksMatchAWrittenOutReference) {
  for (const Geometry g : {Geometry{36, 36, 45}, Geometry{64, 64, 83},
                           Geometry{44, 40, 50}}) {
    SCOPED_TRACE(g.width);
    Frame f(g, 11);
    std::vector<uint8_t> scratch;
    EXPECT_EQ(f.features(&scratch), single_sample_blocks(f));
    for (int32_t y = 0; y < g.height / 4; ++y) {
      for (int32_t x = 0; x < g.width / 4; ++x) {
        ASSERT_EQ(scratch[y * (g.width / 4) + x], f.sample(x, y));
      }
    }
  }
}

// One sample v in a frame of zeros: its own gradient is 2 v and its left
// and upper neighbours' are v. 254 keeps its own bin, 255 and up share the
// last feature.
TEST(ClassifierFeatures, GradientsFrom255OnShareTheLastFeature) {
  const struct {
    uint8_t v;
    double bin_254, tail, bin_v;
  } cases[] = {{127, 1 / 64.0, 0.0, 2 / 64.0},
               {128, 0.0, 1 / 64.0, 2 / 64.0},
               {255, 0.0, 3 / 64.0, 0.0}};
  for (const auto &c : cases) {
    Frame f({36, 36, 45}, 3);
    f.fill_samples(0).sample(3, 3) = c.v;
    const Features got = f.features();
    EXPECT_EQ(got[318], c.bin_254) << int{c.v};
    EXPECT_EQ(got[319], c.tail) << int{c.v};
    if (c.v < 255) {
      EXPECT_EQ(got[64 + c.v], c.bin_v) << int{c.v};
    }
    EXPECT_EQ(got[64], 61 / 64.0) << int{c.v};
    EXPECT_EQ(got[8 * 3 + 3], 2 * c.v / 512.0) << int{c.v};
  }
}

// 80 x 120 subsamples to 20 x 30: blocks of 2 rows by 3 columns. The raised
// sample is the last of block row 1, block column 5, so all three of its
// gradients fall in that block.
TEST(ClassifierFeatures, BlockMeansAreColumnMajor) {
  Frame f({80, 120, 150}, 5);
  f.fill_samples(9).sample(17, 3) = 19;
  const Features got = f.features();
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
    const Features got = Frame(g, 1).features();
    const bool empty = g.height < 4;
    for (double v : got) {
      if (!empty) {
        ASSERT_TRUE(std::isnan(v)) << g.height << "x" << g.width;
      } else {
        ASSERT_EQ(v, 0.0) << g.height << "x" << g.width;
        ASSERT_EQ(std::signbit(v), g.width >= 4) << g.height << "x" << g.width;
      }
    }
  }
}

#if QLIS_HAVE_NEON
TEST(ClassifierFeatures, NeonTwinMatchesPortableBitForBit) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.insert(geometries.end(), {{36, 36, 45}, {67, 129, 170},
                                       {1000, 1400, 1750}, {48, 8400, 10500}});
  uint32_t seed = 1;
  for (const Geometry g : geometries) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const test::RandomFrame frame(g, seed++);
    const size_t scratch_size = static_cast<size_t>(g.height / 4) *
                                static_cast<size_t>(g.width / 4);
    test::PageEndBuffer scratch[2] = {test::PageEndBuffer(scratch_size),
                                      test::PageEndBuffer(scratch_size)};
    Features got[2];
    portable::classifier_features(frame.data(), g.height, g.width, g.stride,
                                  got[0].data(), scratch[0].data());
    neon::classifier_features(frame.data(), g.height, g.width, g.stride,
                              got[1].data(), scratch[1].data());
    EXPECT_EQ(std::memcmp(got[0].data(), got[1].data(), sizeof got[0]), 0);
    EXPECT_EQ(std::memcmp(scratch[0].data(), scratch[1].data(), scratch_size),
              0);
  }
}
#endif

}  // namespace
}  // namespace qlis

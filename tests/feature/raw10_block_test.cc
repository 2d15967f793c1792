#include "feature/raw10_block.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace {

using qlis::test::Geometry;
using qlis::test::PageEndBuffer;
using qlis::test::set_raw10_sample;

constexpr double kUntouched = -12345.5;
constexpr uint64_t kUntouchedCount = 0x5A5A5A5A5A5A5A5Aull;

// A packed frame whose non-sample bytes are noise, so that reading any
// byte but offset 4 of a group shows in the results.
struct Frame {
  Frame(int32_t height, int32_t width, int32_t stride, uint32_t seed = 1)
      : g{height, width, stride},
        bytes(static_cast<size_t>(height) * static_cast<size_t>(stride)) {
    std::mt19937 engine(seed);
    qlis::test::fill_random(bytes.data(), bytes.size(), engine);
  }
  void set(int32_t i, int32_t g_, uint8_t v) {
    set_raw10_sample(bytes.data(), g.stride, i, g_, v);
  }
  Geometry g;
  std::vector<uint8_t> bytes;
};

struct Results {
  uint64_t sum = kUntouchedCount;
  uint64_t dev = kUntouchedCount;
  double cv = kUntouched;  // cv, bright, dark adjacent: compared as one run
  double bright = kUntouched;
  double dark = kUntouched;
  int32_t ret = 0;
};

Results extract(const Frame &f, int32_t row_begin, int32_t row_end,
                int32_t col_begin, int32_t col_end, int32_t stats_flag,
                int32_t gradient_flag, int32_t dist = 1) {
  Results r;
  r.ret = image_feature_quality_for_raw_10bit_continuous_3(
      &r.sum, &r.dev, &r.cv, &r.bright, &r.dark, f.bytes.data(), row_begin,
      row_end, col_begin, col_end, dist, f.g.height, f.g.width, f.g.stride,
      stats_flag, gradient_flag);
  return r;
}

// 8 rows by 16 pixels: 4 x 4 samples, of which the clamp keeps 2 x 2; the
// third row and column serve only as neighbours.
Frame small_block_frame() {
  Frame f(8, 16, 20);
  const uint8_t values[3][3] = {{10, 20, 40}, {30, 70, 100}, {50, 90, 0}};
  for (int32_t i = 0; i < 3; ++i) {
    for (int32_t g = 0; g < 3; ++g) f.set(i, g, values[i][g]);
  }
  return f;
}

// By hand: energies 500 + 2900 + 2000 + 1300; samples 10, 20, 30, 70.
constexpr int32_t kSmallEnergy = 6700;
constexpr uint64_t kSmallSum = 130;
constexpr uint64_t kSmallDeviation = 6300 - 16900 / 4;

struct FlagCase {
  int32_t stats_flag;
  int32_t gradient_flag;
};

class Raw10BlockFlags : public ::testing::TestWithParam<FlagCase> {};

TEST_P(Raw10BlockFlags, FlagPairSelectsWhichOutputsAreWritten) {
  const FlagCase fc = GetParam();
  const Results r = extract(small_block_frame(), 0, 8, 0, 16, fc.stats_flag,
                            fc.gradient_flag);
  EXPECT_EQ(r.ret, fc.gradient_flag == 1 ? kSmallEnergy : 0);
  if (fc.stats_flag == 1) {
    EXPECT_EQ(r.sum, kSmallSum);
    EXPECT_EQ(r.dev, kSmallDeviation);
    EXPECT_EQ(r.cv, std::sqrt(518.75) / 32.5);
  } else {
    EXPECT_EQ(r.sum, 0u);
    EXPECT_EQ(r.dev, kUntouchedCount);
    EXPECT_EQ(r.cv, kUntouched);
  }
  EXPECT_EQ(r.bright, 0.0);
  EXPECT_EQ(r.dark, 0.75);
}

INSTANTIATE_TEST_SUITE_P(ValidPairs, Raw10BlockFlags,
                         ::testing::Values(FlagCase{1, 1}, FlagCase{0, 1},
                                           FlagCase{1, 0}),
                         [](const ::testing::TestParamInfo<FlagCase> &info) {
                           return "Stats" +
                                  std::to_string(info.param.stats_flag) +
                                  "Gradient" +
                                  std::to_string(info.param.gradient_flag);
                         });

// An invalid flag pair zeroes only the fractions; an empty rectangle (as
// given or after the clamp) only the sum and deviation, whatever the flags.
TEST(Raw10Block, RefusalsReturnMinusOneAndWriteOnlyWhatTheyMust) {
  const Frame f = small_block_frame();
  for (FlagCase fc :
       {FlagCase{0, 0}, FlagCase{2, 1}, FlagCase{1, 2}, FlagCase{-1, 0}}) {
    const Results r = extract(f, 0, 8, 0, 16, fc.stats_flag, fc.gradient_flag);
    EXPECT_EQ(r.ret, -1);
    EXPECT_TRUE(r.bright == 0.0 && r.dark == 0.0);
    EXPECT_TRUE(r.sum == kUntouchedCount && r.dev == kUntouchedCount &&
                r.cv == kUntouched);
  }
  const int32_t rows[][2] = {{0, 0}, {0, 1}, {4, 8}, {6, 8}};
  for (const auto &rr : rows) {
    for (FlagCase fc : {FlagCase{1, 1}, FlagCase{0, 0}}) {
      const Results r =
          extract(f, rr[0], rr[1], 0, 16, fc.stats_flag, fc.gradient_flag);
      EXPECT_EQ(r.ret, -1);
      EXPECT_TRUE(r.sum == 0 && r.dev == 0);
      EXPECT_TRUE(r.cv == kUntouched && r.bright == kUntouched &&
                  r.dark == kUntouched);
    }
  }
}

// Values on both sides of each threshold, a quarter of the block each:
// 196 and up is bright, 59 and below dark, 60..195 neither.
TEST(Raw10Block, BrightAndDarkThresholdsAreInclusive) {
  struct Case {
    uint8_t values[4];
    double bright;
    double dark;
  };
  const Case cases[] = {
      {{59, 60, 195, 196}, 0.25, 0.25},
      {{60, 100, 150, 195}, 0.0, 0.0},
      {{196, 200, 255, 255}, 1.0, 0.0},
      {{0, 1, 58, 59}, 0.0, 1.0},
  };
  for (const Case &c : cases) {
    Frame f(20, 40, 50);  // 10 x 10 samples; the block is the first 8 x 8
    for (int32_t i = 0; i < 10; ++i) {
      for (int32_t g = 0; g < 10; ++g) f.set(i, g, c.values[(i + g) % 4]);
    }
    for (FlagCase fc : {FlagCase{1, 1}, FlagCase{0, 1}, FlagCase{1, 0}}) {
      const Results r =
          extract(f, 0, 16, 0, 32, fc.stats_flag, fc.gradient_flag);
      EXPECT_EQ(r.bright, c.bright) << int(c.values[0]);
      EXPECT_EQ(r.dark, c.dark) << int(c.values[0]);
    }
  }
}

// Which samples a rectangle covers, after the clamp that keeps neighbours
// one sample further inside than they need.
struct RectCase {
  int32_t row_begin, row_end, col_begin, col_end, dist;
  int32_t i0, i1, g0, g1;  // expected sample rectangle
};

class Raw10BlockRect : public ::testing::TestWithParam<RectCase> {};

TEST_P(Raw10BlockRect, VisitsExactlyTheClampedSampleRectangle) {
  const RectCase c = GetParam();
  Frame f(16, 32, 45);  // 8 x 8 samples
  for (int32_t i = 0; i < 8; ++i) {
    for (int32_t g = 0; g < 8; ++g)
      f.set(i, g, static_cast<uint8_t>(1 + 9 * i + g));
  }
  uint64_t expected = 0;
  for (int32_t i = c.i0; i < c.i1; ++i) {
    for (int32_t g = c.g0; g < c.g1; ++g) expected += 1 + 9 * i + g;
  }
  const Results r =
      extract(f, c.row_begin, c.row_end, c.col_begin, c.col_end, 1, 0, c.dist);
  EXPECT_EQ(r.sum, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Geometry, Raw10BlockRect,
    ::testing::Values(
        // Bottom and right edges lose two sample rows and columns.
        RectCase{0, 16, 0, 32, 1, 0, 6, 0, 6},
        RectCase{8, 16, 16, 32, 1, 4, 6, 4, 6},
        // One sample short of the edge is pulled in too ...
        RectCase{0, 14, 0, 28, 1, 0, 6, 0, 6},
        // ... two short is not.
        RectCase{0, 12, 0, 24, 1, 0, 6, 0, 6},
        RectCase{0, 10, 0, 20, 1, 0, 5, 0, 5},
        // Odd pixel coordinates shift down to row pairs and groups.
        RectCase{3, 9, 5, 15, 1, 1, 4, 1, 3},
        // The margin follows the distance.
        RectCase{0, 16, 0, 32, 2, 0, 5, 0, 5},
        RectCase{0, 16, 0, 32, 0, 0, 7, 0, 7},
        // Past the frame.
        RectCase{2, 400, 4, 900, 1, 1, 6, 1, 6}),
    [](const ::testing::TestParamInfo<RectCase> &info) {
      const RectCase &c = info.param;
      return "Rows" + std::to_string(c.row_begin) + "To" +
             std::to_string(c.row_end) + "Cols" + std::to_string(c.col_begin) +
             "To" + std::to_string(c.col_end) + "Dist" + std::to_string(c.dist);
    });

// A 0/255 checkerboard adds 2 x 255^2 per sample; past 33,025 samples the
// 32-bit energy has wrapped once, between 16,513 and 33,024 it reads
// negative.
TEST(Raw10Block, GradientEnergyWrapsAt32Bits) {
  Frame f(404, 808, 1010);  // 202 x 202 samples
  for (int32_t i = 0; i < 202; ++i) {
    for (int32_t g = 0; g < 202; ++g) f.set(i, g, (i + g) % 2 ? 255 : 0);
  }
  const struct {
    int32_t rows, cols;
    int32_t samples;
  } cases[] = {{300, 600, 150 * 150}, {404, 808, 200 * 200}};
  for (const auto &c : cases) {
    const uint64_t exact = static_cast<uint64_t>(c.samples) * 130050u;
    const int32_t wrapped = static_cast<int32_t>(static_cast<uint32_t>(exact));
    EXPECT_EQ(extract(f, 0, c.rows, 0, c.cols, 0, 1).ret, wrapped);
  }
  EXPECT_LT(extract(f, 0, 300, 0, 600, 1, 1).ret, 0);
}

#if QLIS_HAVE_NEON
// Both twins on the same rectangle for dist 1 and 2 and every kind of flag
// pair; doubles compared by bit pattern, so that NaN matches NaN.
void expect_twins_agree(const uint8_t *data, const Geometry &g,
                        const int32_t rect[4]) {
  for (int32_t dist : {1, 2}) {
    for (FlagCase fc : {FlagCase{1, 1}, FlagCase{0, 1}, FlagCase{1, 0},
                        FlagCase{0, 0}, FlagCase{2, 1}}) {
      Results r[2];
      for (int twin = 0; twin < 2; ++twin) {
        const qlis::Raw10BlockOutputs out{&r[twin].sum, &r[twin].dev,
                                          &r[twin].cv, &r[twin].bright,
                                          &r[twin].dark};
        const qlis::Raw10BlockArgs args{
            data,     rect[0], rect[1],  rect[2],       rect[3],         dist,
            g.height, g.width, g.stride, fc.stats_flag, fc.gradient_flag};
        r[twin].ret = twin == 0
                          ? qlis::portable::raw10_block_features(out, args)
                          : qlis::neon::raw10_block_features(out, args);
      }
      ASSERT_TRUE(r[0].ret == r[1].ret && r[0].sum == r[1].sum &&
                  r[0].dev == r[1].dev &&
                  std::memcmp(&r[0].cv, &r[1].cv, 3 * sizeof(double)) == 0)
          << g.height << "x" << g.width << "/" << g.stride << " rect "
          << rect[0] << ".." << rect[1] << ", " << rect[2] << ".." << rect[3]
          << " dist " << dist << " flags " << fc.stats_flag << fc.gradient_flag;
    }
  }
}

TEST(Raw10BlockTwins, NeonMatchesPortableOnRandomRectangles) {
  std::mt19937 engine(11);
  std::vector<Geometry> geometries = qlis::test::awkward_raw10_geometries();
  geometries.push_back({64, 4400, 5500});  // wider than one strip
  for (const Geometry &g : geometries) {
    const qlis::test::RandomFrame frame(g, 100 + g.width);
    const int32_t whole[4] = {0, g.height, 0, g.width};
    expect_twins_agree(frame.data(), g, whole);
    for (int trial = 0; trial < 12; ++trial) {
      std::uniform_int_distribution<int32_t> row(0, g.height + 4);
      std::uniform_int_distribution<int32_t> col(0, g.width + 8);
      int32_t rect[4] = {row(engine), row(engine), col(engine), col(engine)};
      if (rect[0] > rect[1]) std::swap(rect[0], rect[1]);
      if (rect[2] > rect[3]) std::swap(rect[2], rect[3]);
      expect_twins_agree(frame.data(), g, rect);
    }
  }
}

// Constant and 0/255 frames drive every lane to its limit: the widest
// strips of bright samples and energies that wrap.
TEST(Raw10BlockTwins, NeonMatchesPortableAtLaneLimits) {
  for (const Geometry g :
       {Geometry{64, 8400, 10500}, Geometry{404, 808, 1010}}) {
    PageEndBuffer buffer(static_cast<size_t>(g.height) * g.stride);
    for (int pattern = 0; pattern < 3; ++pattern) {
      std::memset(buffer.data(), pattern == 0 ? 255 : 0, buffer.size());
      if (pattern == 2) {
        for (int32_t i = 0; i < g.height / 2; ++i) {
          for (int32_t k = 0; k < g.width / 4; ++k) {
            set_raw10_sample(buffer.data(), g.stride, i, k,
                             (i + k) % 2 ? 255 : 0);
          }
        }
      }
      const int32_t whole[4] = {0, g.height, 0, g.width};
      expect_twins_agree(buffer.data(), g, whole);
    }
  }
}
#endif

}  // namespace

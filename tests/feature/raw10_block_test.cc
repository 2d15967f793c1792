#include "feature/raw10_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "feature/feature_frames.h"

namespace qlis {
namespace {

using test::BlockRect;
using test::Geometry;
using test::Noise;
using test::PackedFrame;

constexpr double kUntouched = -12345.5;
constexpr uint64_t kUntouchedCount = 0x5A5A5A5A5A5A5A5Aull;

struct Results {
  uint64_t sum = kUntouchedCount;
  uint64_t dev = kUntouchedCount;
  double cv = kUntouched;
  double bright = kUntouched;
  double dark = kUntouched;
  int64_t ret = 0;  // 64 bits: no padding, so records compare with memcmp
};

Results extract(const PackedFrame &f, BlockRect r, int32_t stats_flag,
                int32_t gradient_flag, int32_t dist = 1) {
  const Geometry &g = f.geometry();
  Results out;
  out.ret = image_feature_quality_for_raw_10bit_continuous_3(
      &out.sum, &out.dev, &out.cv, &out.bright, &out.dark, f.data(),
      r.row_begin, r.row_end, r.col_begin, r.col_end, dist, g.height, g.width,
      g.stride, stats_flag, gradient_flag);
  return out;
}

// 8 rows by 16 pixels of noise: 4 x 4 samples, of which the clamp keeps
// 2 x 2; the third row and column serve only as neighbours.
// By hand: energies 500 + 2900 + 2000 + 1300; samples 10, 20, 30, 70.
PackedFrame small_block_frame() {
  const uint8_t s[4][4] = {{10, 20, 40}, {30, 70, 100}, {50, 90, 0}};
  PackedFrame f({8, 16, 20}, Noise{1});
  f.samples([&](int32_t i, int32_t g) { return s[i][g]; });
  return f;
}

constexpr int32_t kSmallEnergy = 6700;
constexpr uint64_t kSmallSum = 130;
constexpr uint64_t kSmallDeviation = 6300 - 16900 / 4;

using FlagCase = std::pair<int32_t, int32_t>;  // stats, gradient

// Only (1, 1), (0, 1) and (1, 0) compute; any other pair returns -1 and
// zeroes only the fractions.
TEST(Raw10Block, FlagPairSelectsWhichOutputsAreWritten) {
  const PackedFrame f = small_block_frame();
  for (const auto &[stats, gradient] :
       {FlagCase{1, 1}, FlagCase{0, 1}, FlagCase{1, 0}, FlagCase{0, 0},
        FlagCase{2, 1}, FlagCase{1, 2}, FlagCase{-1, 0}}) {
    SCOPED_TRACE(::testing::Message() << "flags " << stats << "," << gradient);
    const bool valid = (stats == 1 && (gradient == 0 || gradient == 1)) ||
                       (stats == 0 && gradient == 1);
    const Results r = extract(f, {0, 8, 0, 16}, stats, gradient);
    EXPECT_EQ(r.ret, !valid ? -1 : gradient == 1 ? kSmallEnergy : 0);
    if (valid && stats == 1) {
      EXPECT_EQ(r.sum, kSmallSum);
      EXPECT_EQ(r.dev, kSmallDeviation);
      EXPECT_EQ(r.cv, std::sqrt(518.75) / 32.5);
    } else {
      EXPECT_EQ(r.sum, valid ? 0u : kUntouchedCount);
      EXPECT_EQ(r.dev, kUntouchedCount);
      EXPECT_EQ(r.cv, kUntouched);
    }
    EXPECT_EQ(r.bright, 0.0);
    EXPECT_EQ(r.dark, valid ? 0.75 : 0.0);
  }
}

// An empty rectangle (as given or after the clamp) zeroes only the sum and
// deviation, whatever the flags.
TEST(Raw10Block, EmptyRectangleReturnsMinusOneAndZeroesSumAndDeviation) {
  const PackedFrame f = small_block_frame();
  for (const BlockRect rect :
       {BlockRect{0, 0, 0, 16}, BlockRect{0, 1, 0, 16}, BlockRect{4, 8, 0, 16},
        BlockRect{6, 8, 0, 16}}) {
    for (const auto &[stats, gradient] : {FlagCase{1, 1}, FlagCase{0, 0}}) {
      const Results r = extract(f, rect, stats, gradient);
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
  const struct {
    uint8_t values[4];
    double bright, dark;
  } cases[] = {{{59, 60, 195, 196}, 0.25, 0.25},
               {{60, 100, 150, 195}, 0.0, 0.0},
               {{196, 200, 255, 255}, 1.0, 0.0},
               {{0, 1, 58, 59}, 0.0, 1.0}};
  for (const auto &c : cases) {
    PackedFrame f({20, 40, 50}, Noise{1});  // block: the first 8 x 8 samples
    f.samples([&](int32_t i, int32_t g) { return c.values[(i + g) % 4]; });
    for (const auto &[stats, gradient] :
         {FlagCase{1, 1}, FlagCase{0, 1}, FlagCase{1, 0}}) {
      const Results r = extract(f, {0, 16, 0, 32}, stats, gradient);
      EXPECT_EQ(r.bright, c.bright) << int{c.values[0]};
      EXPECT_EQ(r.dark, c.dark) << int{c.values[0]};
    }
  }
}

// Which samples a rectangle covers, after the clamp that keeps neighbours
// one sample further inside than they need: sample (i, g) holds 1 + 9 i + g.
TEST(Raw10Block, VisitsExactlyTheClampedSampleRectangle) {
  const struct {
    BlockRect rect;
    int32_t dist;
    int32_t i0, i1, g0, g1;  // expected sample rectangle
  } cases[] = {// Bottom and right edges lose two sample rows and columns.
               {{0, 16, 0, 32}, 1, 0, 6, 0, 6},
               {{8, 16, 16, 32}, 1, 4, 6, 4, 6},
               // One sample short of the edge is pulled in too ...
               {{0, 14, 0, 28}, 1, 0, 6, 0, 6},
               // ... two short is not.
               {{0, 12, 0, 24}, 1, 0, 6, 0, 6},
               {{0, 10, 0, 20}, 1, 0, 5, 0, 5},
               // Odd pixel coordinates shift down to row pairs and groups.
               {{3, 9, 5, 15}, 1, 1, 4, 1, 3},
               // The margin follows the distance.
               {{0, 16, 0, 32}, 2, 0, 5, 0, 5},
               {{0, 16, 0, 32}, 0, 0, 7, 0, 7},
               // Past the frame.
               {{2, 400, 4, 900}, 1, 1, 6, 1, 6}};
  PackedFrame f({16, 32, 45}, Noise{1});  // 8 x 8 samples
  f.samples(
      [](int32_t i, int32_t g) { return static_cast<uint8_t>(1 + 9 * i + g); });
  for (const auto &c : cases) {
    uint64_t expected = 0;
    for (int32_t i = c.i0; i < c.i1; ++i) {
      for (int32_t g = c.g0; g < c.g1; ++g) expected += 1 + 9 * i + g;
    }
    EXPECT_EQ(extract(f, c.rect, 1, 0, c.dist).sum, expected)
        << "rows " << c.rect.row_begin << ".." << c.rect.row_end << " cols "
        << c.rect.col_begin << ".." << c.rect.col_end << " dist " << c.dist;
  }
}

// A 0/255 checkerboard adds 2 x 255^2 per sample; past 33,025 samples the
// 32-bit energy has wrapped once, between 16,513 and 33,024 it reads
// negative.
TEST(Raw10Block, GradientEnergyWrapsAt32Bits) {
  PackedFrame f({404, 808, 1010}, Noise{1});  // 202 x 202 samples
  f.samples(test::checker_0_255);
  // The whole frame keeps 200 x 200 samples after the clamp.
  for (const auto [rows, cols, side] :
       {std::array{300, 600, 150}, std::array{404, 808, 200}}) {
    const uint32_t wrapped = static_cast<uint32_t>(side * side) * 130050u;
    EXPECT_EQ(extract(f, {0, rows, 0, cols}, 0, 1).ret,
              static_cast<int32_t>(wrapped));
  }
  EXPECT_LT(extract(f, {0, 300, 0, 600}, 1, 1).ret, 0);
}

#if QLIS_HAVE_NEON
// A frame for the twins: random bytes, or a pattern that drives every lane
// to its limit (the widest strips of bright samples, energies that wrap),
// compared on the whole frame and `trials` random rectangles.
constexpr int kRandom = -1, kChecker = -2;

struct TwinCase {
  Geometry g;
  int fill;  // a byte value, kRandom or kChecker (0/255 samples)
  int trials;
};

void PrintTo(const TwinCase &c, std::ostream *os) {
  *os << c.g.height << "x" << c.g.width << "/" << c.g.stride << " fill "
      << c.fill;
}

std::vector<TwinCase> twin_cases() {
  std::vector<Geometry> random = test::awkward_raw10_geometries();
  random.push_back({64, 4400, 5500});  // wider than one strip
  std::vector<TwinCase> cases;
  for (const Geometry &g : random) cases.push_back({g, kRandom, 12});
  for (int fill : {0, 255, kChecker}) {
    cases.push_back({{64, 8400, 10500}, fill, 0});
    cases.push_back({{404, 808, 1010}, fill, 0});
  }
  return cases;
}

class Raw10BlockTwins : public ::testing::TestWithParam<TwinCase> {};

// dist 1 and 2 and every kind of flag pair on page-end buffers; doubles
// compared by bit pattern, so that NaN matches NaN.
TEST_P(Raw10BlockTwins, NeonMatchesPortable) {
  const TwinCase &c = GetParam();
  const auto seed = static_cast<uint32_t>(100 + c.g.width);
  PackedFrame frame =
      c.fill == kRandom
          ? PackedFrame(c.g, Noise{seed})
          : PackedFrame(c.g, static_cast<uint8_t>(std::max(c.fill, 0)));
  if (c.fill == kChecker) frame.samples(test::checker_0_255);
  for (const BlockRect &rect : test::twin_rects(c.g, c.trials, seed)) {
    for (int32_t dist : {1, 2}) {
      for (const auto [stats, gradient] : test::kTwinFlagPairs) {
        const Raw10BlockArgs args =
            test::block_args(frame, rect, dist, stats, gradient);
        Results r[2];
        for (int twin = 0; twin < 2; ++twin) {
          const Raw10BlockOutputs out{&r[twin].sum, &r[twin].dev, &r[twin].cv,
                                      &r[twin].bright, &r[twin].dark};
          r[twin].ret = twin == 0 ? portable::raw10_block_features(out, args)
                                  : neon::raw10_block_features(out, args);
        }
        ASSERT_TRUE(test::same_bytes(r[0], r[1]))
            << "rows " << rect.row_begin << ".." << rect.row_end << " cols "
            << rect.col_begin << ".." << rect.col_end << " dist " << dist
            << " flags " << stats << gradient;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Frames, Raw10BlockTwins,
                         ::testing::ValuesIn(twin_cases()));
#endif

}  // namespace
}  // namespace qlis

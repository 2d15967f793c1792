#include "feature/raw10_block.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
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
// 2 x 2 (10, 20 / 30, 70); the third row and column serve as neighbours.
// By hand: energies 500 + 2900 + 2000 + 1300 = 6700, sum 130, sum of
// squares 6300, deviation 6300 - 130^2 / 4 = 2075, variation
// sqrt(2075 / 4) / 32.5.
PackedFrame small_block_frame() {
  const uint8_t s[4][4] = {{10, 20, 40}, {30, 70, 100}, {50, 90, 0}};
  PackedFrame f({8, 16, 20}, Noise{1});
  f.samples([&](int32_t i, int32_t g) { return s[i][g]; });
  return f;
}

// Only (1, 1), (0, 1) and (1, 0) compute; any other pair returns -1 and
// zeroes only the fractions.
TEST(Raw10Block, FlagPairSelectsWhichOutputsAreWritten) {
  const PackedFrame f = small_block_frame();
  const struct {
    int32_t stats, gradient;
    int64_t ret;
    uint64_t sum, dev;
  } cases[] = {{1, 1, 6700, 130, 2075},
               {0, 1, 6700, 0, kUntouchedCount},
               {1, 0, 0, 130, 2075},
               {0, 0, -1, kUntouchedCount, kUntouchedCount},
               {2, 1, -1, kUntouchedCount, kUntouchedCount}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << "flags " << c.stats << c.gradient);
    const Results r = extract(f, {0, 8, 0, 16}, c.stats, c.gradient);
    EXPECT_EQ(r.ret, c.ret);
    EXPECT_EQ(r.sum, c.sum);
    EXPECT_EQ(r.dev, c.dev);
    EXPECT_EQ(r.cv, c.stats == 1 && c.ret >= 0 ? std::sqrt(518.75) / 32.5
                                               : kUntouched);
    EXPECT_EQ(r.bright, 0.0);
    EXPECT_EQ(r.dark, c.ret >= 0 ? 0.75 : 0.0);
  }
}

// Empty as given, or emptied by the clamp (row pairs 2..2, groups 2..2):
// only the sum and deviation are zeroed, whatever the flags.
TEST(Raw10Block, EmptyRectangleReturnsMinusOneAndZeroesSumAndDeviation) {
  const PackedFrame f = small_block_frame();
  for (const BlockRect rect : {BlockRect{0, 1, 0, 16}, BlockRect{4, 8, 0, 16},
                               BlockRect{0, 8, 8, 16}}) {
    for (const int32_t flags : {1, 0}) {
      const Results r = extract(f, rect, flags, flags);
      EXPECT_EQ(r.ret, -1);
      EXPECT_TRUE(r.sum == 0 && r.dev == 0);
      EXPECT_TRUE(r.cv == kUntouched && r.bright == kUntouched &&
                  r.dark == kUntouched);
    }
  }
}

// A quarter of the block on each side of each threshold: 196 and up is
// bright, 59 and below dark.
TEST(Raw10Block, BrightAndDarkThresholdsAreInclusive) {
  const uint8_t values[4] = {59, 60, 195, 196};
  PackedFrame f({20, 40, 50}, Noise{1});  // block: the first 8 x 8 samples
  f.samples([&](int32_t i, int32_t g) { return values[(i + g) % 4]; });
  const Results r = extract(f, {0, 16, 0, 32}, 1, 1);
  EXPECT_EQ(r.bright, 0.25);
  EXPECT_EQ(r.dark, 0.25);
}

// Which samples a rectangle covers, after the clamp that keeps neighbours
// one sample further inside than they need: sample (i, g) holds 1 + 9 i + g.
TEST(Raw10Block, VisitsExactlyTheClampedSampleRectangle) {
  const struct {
    BlockRect rect;
    int32_t dist;
    int32_t i0, i1, g0, g1;  // expected sample rectangle
  } cases[] = {// An end at the edge or one sample short of it is pulled in
               // to 8 - 1 - dist; two short is left alone.
               {{0, 16, 0, 28}, 1, 0, 6, 0, 6},
               {{0, 14, 0, 24}, 1, 0, 6, 0, 6},
               // Odd pixel coordinates shift down to row pairs and groups.
               {{3, 9, 5, 15}, 1, 1, 4, 1, 3},
               // The margin follows the distance.
               {{0, 16, 0, 32}, 2, 0, 5, 0, 5}};
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

// A 0/255 checkerboard adds 2 x 255^2 = 130,050 per sample. 150 x 150
// samples make 2,926,125,000, negative in 32 bits; 200 x 200 (the whole
// frame after the clamp) make 5,202,000,000, wrapped once.
TEST(Raw10Block, GradientEnergyWrapsAt32Bits) {
  PackedFrame f({404, 808, 1010}, Noise{1});  // 202 x 202 samples
  f.samples(test::checker_0_255);
  EXPECT_EQ(extract(f, {0, 300, 0, 600}, 1, 1).ret, -1368842296);
  EXPECT_EQ(extract(f, {0, 404, 0, 808}, 0, 1).ret, 907032704);
}

#if QLIS_HAVE_NEON
// One past the last byte a block reads: its sample rows and groups, and
// for the gradient the neighbours dist further on.
size_t end_of_reads(const Raw10BlockArgs &a) {
  const Raw10SampleRect r = raw10_sample_rect(a);
  const Raw10Computation c = raw10_computation(a.stats_flag, a.gradient_flag);
  if (r.empty() || c == Raw10Computation::kNone) return 0;
  const int32_t reach = c == Raw10Computation::kStatistics ? 0 : a.dist;
  return test::raw10_end_of_reads(a.stride, r.i1 - 1 + reach,
                                  r.g1 - 1 + reach);
}

class Raw10BlockTwins : public ::testing::TestWithParam<test::TwinCase> {};

TEST_P(Raw10BlockTwins, NeonMatchesPortable) {
  const auto run = [](bool neon, const Raw10BlockArgs &a) {
    Results r;
    const Raw10BlockOutputs out{&r.sum, &r.dev, &r.cv, &r.bright, &r.dark};
    r.ret = neon ? neon::raw10_block_features(out, a)
                 : portable::raw10_block_features(out, a);
    return r;
  };
  test::expect_twins_agree(GetParam(), test::twin_frame(GetParam()), run,
                           end_of_reads);
}

// Besides the awkward geometries: strips wider than one, flat and
// checkerboard extremes, and a distance the NEON kernel hands on.
INSTANTIATE_TEST_SUITE_P(
    Frames, Raw10BlockTwins,
    ::testing::ValuesIn(test::twin_cases({{{64, 4400, 5500}, test::kRandom, 1, 12},
                                          {{64, 8400, 10500}, 255, 1, 0},
                                          {{64, 8400, 10500}, test::kChecker, 1, 0},
                                          {{404, 808, 1010}, test::kChecker, 1, 0},
                                          {{130, 260, 333}, test::kRandom, 2, 12}})));
#endif

}  // namespace
}  // namespace qlis

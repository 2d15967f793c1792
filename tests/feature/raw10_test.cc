// The normal-light RAW10 block extractor and its frame driver.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "feature/feature_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

constexpr double kUntouched = -12345.5;
constexpr uint64_t kU = 0x5A5A5A5A5A5A5A5Aull;

struct Results {
  uint64_t sum = kU, dev = kU;
  double cv = kUntouched, bright = kUntouched, dark = kUntouched;
  int64_t ret = 0;  // 64 bits: no padding, so records compare with memcmp
};

Results extract(const PackedFrame &f, BlockRect r, int32_t stats,
                int32_t gradient, int32_t dist = 1) {
  const Geometry &g = f.geometry();
  Results o;
  o.ret = image_feature_quality_for_raw_10bit_continuous_3(
      &o.sum, &o.dev, &o.cv, &o.bright, &o.dark, f.data(), r.row_begin,
      r.row_end, r.col_begin, r.col_end, dist, g.height, g.width, g.stride,
      stats, gradient);
  return o;
}

// 8 rows by 16 pixels of noise: 4 x 4 samples, of which the clamp keeps
// 2 x 2 (10, 20 / 30, 71); the third row and column serve as neighbours.
// By hand: energies 500 + 3001 + 2081 + 1202 = 6784, sum 131, sum of
// squares 6441, deviation 6441 - 131^2 / 4 = 2150.75, stored as 2150 (the
// earlier integer extractor truncates 131^2 / 4 to 4290 and gets 2151),
// variation sqrt(2150 / 4) / 32.75. Only
// (1, 1), (0, 1) and (1, 0) compute; any other pair returns -1 and zeroes only
// the fractions. A rectangle empty as given or emptied by the clamp (row
// pairs 2..2, groups 2..2) zeroes only the sum and deviation, whatever the
// flags. Whole records compared.
TEST(Raw10Block, FlagPairAndEmptinessSelectWhichOutputsAreWritten) {
  const uint8_t s[4][4] = {{10, 20, 40}, {30, 71, 100}, {50, 90, 0}};
  PackedFrame f({8, 16, 20}, Noise{1});
  f.samples([&](int32_t i, int32_t g) { return s[i][g]; });
  const double cv = std::sqrt(537.5) / 32.75, kX = kUntouched;
  const struct {
    BlockRect rect;
    int32_t stats, gradient;
    Results want;
  } cases[] = {{{0, 8, 0, 16}, 1, 1, {131, 2150, cv, 0.0, 0.75, 6784}},
               {{0, 8, 0, 16}, 0, 1, {0, kU, kX, 0.0, 0.75, 6784}},
               {{0, 8, 0, 16}, 1, 0, {131, 2150, cv, 0.0, 0.75, 0}},
               {{0, 8, 0, 16}, 0, 0, {kU, kU, kX, 0.0, 0.0, -1}},
               {{0, 8, 0, 16}, 2, 1, {kU, kU, kX, 0.0, 0.0, -1}},
               {{0, 1, 0, 16}, 1, 1, {0, 0, kX, kX, kX, -1}},
               {{4, 8, 0, 16}, 0, 0, {0, 0, kX, kX, kX, -1}},
               {{0, 8, 8, 16}, 1, 1, {0, 0, kX, kX, kX, -1}}};
  for (const auto &c : cases) {
    EXPECT_TRUE(same_bytes(extract(f, c.rect, c.stats, c.gradient), c.want))
        << &c - cases;
  }
  uint64_t sum = 0, dev = 0;
  image_feature_quality_for_raw_10bit_continuous_2(&sum, &dev, f.data(), 0, 8,
                                                   0, 16, 1, 8, 16, 20, 1, 1);
  EXPECT_EQ(dev, 2151u);
}

// Sample (i, g) holds 1 + 9 i + g, a quarter of them each side of the
// thresholds (196 and up is bright, 59 and below dark) in the second
// frame. An end at the edge or one sample short of it is pulled in to
// 8 - 1 - dist, two short is left alone; odd pixel coordinates shift down.
TEST(Raw10Block, VisitsTheClampedSamplesAndCountsInclusiveThresholds) {
  PackedFrame f({16, 32, 45}, Noise{1});  // 8 x 8 samples
  f.samples([](int32_t i, int32_t g) { return uint8_t(1 + 9 * i + g); });
  const struct {
    BlockRect rect;
    int32_t dist;
    uint64_t sum;
  } cases[] = {{{0, 16, 0, 28}, 1, 936},  // samples 0..5 by 0..5
               {{0, 14, 0, 24}, 1, 936},
               {{3, 9, 5, 15}, 1, 123},    // 1..3 by 1..2
               {{0, 16, 0, 32}, 2, 525}};  // 0..4 by 0..4
  for (const auto &c : cases) {
    EXPECT_EQ(extract(f, c.rect, 1, 0, c.dist).sum, c.sum) << c.rect.row_end;
  }
  const uint8_t values[4] = {59, 60, 195, 196};
  f.samples([&](int32_t i, int32_t g) { return values[(i + g) % 4]; });
  const Results r = extract(f, {0, 8, 0, 16}, 1, 1);
  EXPECT_TRUE(r.bright == 0.25 && r.dark == 0.25);
}

uint64_t run(const PackedFrame &f, BlockFeatureSet &set, uint32_t mode) {
  const Geometry &g = f.geometry();
  set = unwritten_records();
  return calc_feature_quality_with_sub(&set, mode, f.data(), g.height, g.width,
                                       g.stride);
}

// 64 x 128 pixels of noise under flat samples: blocks of 4 x 4 samples,
// the last row and column 4 x 2 or 2 x 4, the corner 2 x 2. Mode 1
// (statistics only) skips the other blocks, mode 2 (gradient only) zeroes
// the statistics everywhere. `reserved` is never written; a flat block has
// no deviation, and 0 / 0 variation when black.
TEST(Raw10Frame, FlatFramesFillEveryRecordAsTheModeSaysAndLogIt) {
  for (uint8_t v : {255, 0}) {
    PackedFrame f({64, 128, 160}, Noise{5});
    f.samples([v](int32_t, int32_t) { return v; });
    for (uint32_t mode : {0u, 1u, 2u}) {
      BlockFeatureSet set;
      LogCapture log;
      EXPECT_EQ(run(f, set, mode), 0u);
      EXPECT_EQ(log.texts("QLIS_ALGO").at(1),
                mode == 1 ? "Vrel_valid_num:0" : "Vrel_valid_num:64");
      for (int k = 0; k < 64; ++k) {
        const double n = (k / 8 == 7 ? 2 : 4) * (k % 8 == 7 ? 2 : 4);
        const bool stats = mode != 2 && on_checkerboard(k);
        const double x = mode == 1 && !stats ? kUnwritten : 0.0;
        EXPECT_TRUE(same_fields(
            set.block[k],
            {stats ? v * n : 0.0, kUnwritten, x, v == 255 && x == 0.0 ? 1.0 : x,
             v == 0 && x == 0.0 ? 1.0 : x,
             v == 0 && mode != 2 && x == 0.0 ? NAN : x}))
            << int{v} << " mode " << mode << " block " << k;
      }
    }
  }
}

// One bright sample at (13, 13) of a black frame, in block (3, 3) of
// weight 4 x 4: its own energy 2 x 255^2 and one 255^2 for each of its
// left and upper neighbours. w = 260,100 x 16 / 400 = 10,404, the only
// nonzero weight. mean 10,404 / 64 = 162, mean of squares
// 10,404^2 / 64 = 1,691,300; spread (1,691,300 - 162^2) / 10,000 = 166.
// Statistics only returns the plain weighted sum, 0 without gradients.
// Blocks of 130 x 130 samples of a 0/255 checkerboard (128 in the last
// row and column) wrap every energy and all weighted products but the
// corner's to negative 32-bit values; the weighted sum, -28,180,585, and
// the frame value are formed from their unsigned 64-bit bits, worked out
// apart from the library. Below 8 rows or columns every block is empty.
TEST(Raw10Frame, FrameValueIsSpreadTimesWeightedSum) {
  PackedFrame f({64, 128, 160}, uint8_t{0});
  f.set(13, 13, 255);
  BlockFeatureSet set;
  EXPECT_EQ(run(f, set, 0), 166u * 10404u);
  EXPECT_EQ(run(f, set, 2), 166u * 10404u);
  EXPECT_EQ(run(f, set, 1), 0u);
  PackedFrame wraps({2080, 4160, 5200}, uint8_t{0});
  wraps.samples(checker_0_255);
  EXPECT_EQ(run(wraps, set, 0), 16054467043519993417u);
  for (const Geometry g : {Geometry{7, 64, 80}, Geometry{64, 4, 5}}) {
    EXPECT_EQ(run(PackedFrame(g, Noise{3}), set, 0), 0u);
    for (int k = 0; k < 64; ++k) {
      EXPECT_TRUE(same_fields(set.block[k], {0, kUnwritten, 0, 0, 0, 0})) << k;
    }
  }
}

}  // namespace
}  // namespace qlis::test

// The compare subsystem: the judgements against the base image (normal
// light, low light, YUV) and the dispatch between the RAW10 ones; the
// scene-change test; the re-blur comparison and the scratch arena it takes
// its planes from.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "compare/dispatch.h"
#include "compare/quality_low_light.h"
#include "compare/quality_normal.h"
#include "compare/quality_yuv.h"
#include "compare/scratch_arena.h"
#include "support/frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

// A 256 x 192 packed RAW10 frame with a padded stride. The block features
// read byte 4 of each group on the even rows: value(i, g) is the sample of
// row pair i, group g; blocks are 12 row pairs by 8 groups. The re-blur
// comparison reads byte 4 of each group on rows 3, 7, 11, ...: a plane of
// 128s when `sharp` is 1, with one 255 at (5, 20) when it is 2.
constexpr int32_t kH = 192, kW = 256, kS = 320;

struct F : std::vector<uint8_t> {
  template <typename Value>
  F(Value value, int sharp) : std::vector<uint8_t>(kH * kS, 0) {
    for (int32_t i = 0; i < kH / 2; ++i)
      for (int32_t g = 0; g < kW / 4; ++g)
        (*this)[2 * i * kS + 5 * g + 4] = value(i, g);
    for (int32_t i = 0; sharp > 0 && i < kH / 4; ++i)
      for (int32_t j = 0; j < kW / 4; ++j)
        (*this)[(4 * i + 3) * kS + 5 * j + 4] =
            sharp == 2 && i == 5 && j == 20 ? 255 : 128;
  }
};

// Blocks of alternating samples have the mean (a + b) / 2 and the sums of
// flat blocks of that mean. Low light reads every second row pair; with an
// even first row pair the checker alternates along the groups there too.
auto checker(int a, int b) {
  return [a, b](int32_t i, int32_t g) { return (i + g) % 2 != 0 ? b : a; };
}

// Blocks half at 200 (bright) and half at 50 (dark), mean 125; the same
// block sums without texture.
const F kTextured(checker(50, 200), 1);
const F kSharp(checker(50, 200), 2);
const F kFlat(checker(125, 125), 1);

// The session-sized arena, 64-aligned so that logged paddings are known,
// and full of junk: a piece must be written before it is read.
alignas(64) uint8_t arena_block[kScratchArenaBytes];

ScratchArena junk_arena(uint32_t total = kScratchArenaBytes) {
  std::memset(arena_block, 0xA5, sizeof arena_block);
  return {arena_block, total, 0};
}

std::vector<std::string> arena_error(const char *numbers) {
  return {std::string("quelarn_time:AssignMemSpace:error!") + numbers};
}

// The base image of a session, with guard bytes past the 64 histograms and
// the 2560 raw bytes that the library owns.
struct BaseImage {
  int64_t quality = 0;
  BlockFeatureSet features{};
  DiffHistogram hist[65] = {};
  uint8_t raw[2568] = {};
  double clarity = 0.0;

  BaseImage &scribble() {
    std::memset(static_cast<void *>(this), 0x5a, sizeof *this);
    return *this;
  }
};

// Read during static initialisation, before any judgement has run.
const uint32_t kCountAtLoad = scene_change_count;

TEST(SceneChangeCount, StartsAtZero) { EXPECT_EQ(kCountAtLoad, 0u); }

// Across the limit either way, or from the start luminance to below 47.5;
// NaN never flips.
TEST(RegimeFlip, FlipsAcrossTheLimitOrOnTheFirstDimFrame) {
  const std::tuple<double, double, bool> cases[] = {
      {255.0, 47.5, false}, {255.0, 47.0, true},  {100.0, 46.5, false},
      {100.0, 46.4, true},  {40.0, 46.8, true},   {40.0, 46.5, false},
      {46.5, 0.0, false},   {46.5, 200.0, false}, {255.0, std::nan(""), false}};
  for (auto [stored, reported, flipped] : cases) {
    EXPECT_EQ(lighting_regime_flipped(stored, reported), flipped)
        << stored << " -> " << reported;
  }
}

// One session in each light, judged frame by frame.
TEST(Judgement, SessionsInBothLights) {
  scene_change_count = 0;
  BaseImage n, l;
  double luminance = -1.0;
  const auto normal = [&](const F &frame, int32_t mode = 1) {
    return calc_quality_with_base_image(
        mode, frame.data(), kFlat.data(), &n.quality, &n.features, n.raw,
        &n.clarity, &luminance, kH, kW, kS, junk_arena());
  };
  const auto low = [&](const F &frame, int32_t mode = 1) {
    return calc_quality_with_base_image_low_light(
        mode, frame.data(), kSharp.data(), &l.quality, &l.features, l.hist,
        l.raw, &l.clarity, nullptr, kH, kW, kS, junk_arena());
  };
  const auto both = [&](const F &frame) {
    return std::pair{normal(frame), low(frame)};
  };
  n.quality = 77;
  l.scribble().features = BlockFeatureSet{};
  LogCapture log;
  // Against a zeroed base any brightness is a change in normal light, and
  // in low light every block flips class. Normal light reports the
  // luminance of the base (237 for mean 125); low light takes quality 0 and
  // the zeroed working block. The re-blur score of the plane of 128s: the
  // 11 x 11 average comes out as 127 everywhere, so the score is n / (128
  // n).
  EXPECT_EQ(both(kTextured), std::pair(4, 4));
  EXPECT_EQ(scene_change_count, 2u);
  EXPECT_TRUE(n.clarity == 1 / 128.0 && l.clarity == 1 / 128.0 &&
              l.quality == 0);
  EXPECT_EQ(luminance, 237.0);
  EXPECT_TRUE(std::all_of(l.hist[0].count, l.hist[64].count,
                          [](int32_t c) { return c == 0; }) &&
              l.hist[64].count[0] == 0x5a5a5a5a);
  EXPECT_EQ(
      log.texts("QLIS-E"),
      (std::vector<std::string>{"\n ######## sum_lum_high_cnt:32.000000, "
                                "sum_lum_low_cnt:32.000000 \n",
                                " \n ######## sum_lumu_high_cnt:32.000000, "
                                "sum_lumu_low_cnt:32.000000 \n"}));

  // With the 255, inside the 38 x 54 interior, the boxes around it average
  // 129 and still differ by 1 from their 128s; the 255 itself differs by
  // 126: (2051 + 126) / (2051 * 128 + 255).
  EXPECT_EQ(both(kSharp), std::pair(2, 2));
  EXPECT_TRUE(n.clarity == 2177 / 262783.0 && l.clarity == 2177 / 262783.0);
  // In normal light ten steps brighter and blurrier is the same scene, and
  // the luminance is still the base's.
  EXPECT_EQ(normal(F(checker(60, 210), 1)), 3);
  EXPECT_EQ(luminance, 237.0);

  // A flat frame moves the base; only normal light reports 4 (there when
  // the score changed). No gradient energy: quality 0.
  EXPECT_EQ(both(kFlat), std::pair(4, 3));
  EXPECT_EQ(n.quality, 0);

  // The rebuild takes the features and quality of the best frame: flat for
  // normal light, where block 1 carries block 0's variation. In low light
  // it logs the time it took: a span, not a date, under a minute and a half
  // either way.
  n.scribble();
  EXPECT_EQ(normal(kSharp, 0), 3);
  EXPECT_TRUE(n.features.block[1].variation == 0.0 && n.quality == 0);
  EXPECT_EQ(low(kFlat, 0), 3);
  EXPECT_TRUE(std::regex_match(
      log.texts("QLIS-I").at(0),
      std::regex(R"(qlas CQ raw:base Q = 0, time = -?\d{1,5}\.\d{6} ms)")));
}

// fill(e, t, v): every block of brightness e, the first t of variation v;
// the record after the set is textured and must not count. In low light
// the class threshold follows the mean of the block means, a block is
// textured above 0.2, or 0.15 below mean 35, and a frame is flat unless
// every block is. In normal light the mean sample is the brightness total
// over 256 * 192 / 16 = 3072 (35 for 64 blocks of 1680), and a frame is
// flat when fewer than half of its blocks are textured. Fewer than 16
// pixels leave no divisor for the luminance: 0.
TEST(TextureThresholds, ByMeanBrightnessInEitherLight) {
  BlockFeatureSet set[2]{};
  set[1].block[0].variation = 1.0;
  auto fill = [&](double e, int t, double v) -> const BlockFeatureSet & {
    for (int b = 0; b < 64; ++b) {
      set[0].block[b].sample_sum = e;
      set[0].block[b].variation = b < t ? v : 0.0;
    }
    return set[0];
  };
  EXPECT_EQ(low_light_stats(fill(20.0, 0, 0)).class_threshold, 50000.0);
  EXPECT_EQ(low_light_stats(fill(19.75, 0, 0)).class_threshold, 10000.0);
  EXPECT_TRUE(low_light_stats(fill(35.0, 64, 0.2)).flat);
  EXPECT_FALSE(low_light_stats(fill(34.75, 64, 0.18)).flat);
  EXPECT_TRUE(low_light_stats(fill(34.75, 63, 0.18)).flat);
  auto normal_flat = [&](double e, int t, double v) {
    return decide_normal_light(fill(e, t, v), set[0], 0, 0, kH, kW).flat;
  };
  EXPECT_TRUE(normal_flat(1680, 64, 0.2));
  EXPECT_FALSE(normal_flat(1679, 64, 0.18));
  EXPECT_FALSE(normal_flat(1680, 32, 0.21));
  EXPECT_TRUE(normal_flat(1680, 31, 0.21));
  EXPECT_EQ(normal_light_luminance(set[0], 3, 5), 0.0);
}

// Of the 28 ring and 36 core blocks, `ring` and `core` differ from the
// others, taken alternately from the start and the end of the grid. A kind
// gives the base's and the frame's class (T textured, F exactly at the
// threshold, which is not above it) and a '+' where the frame is brighter.
// More than four class flips are a change on their own (the first three
// cases). Among blocks textured in both, more than half of the ring or of
// the core brighter is a change (the next three). Flipped blocks and blocks
// flat in both take no part in that test. Both sets sit in front of a
// record that would flip.
TEST(LowLightSceneChange, FlipsOrMaskedBrightness) {
  const std::tuple<int, int, const char *, const char *, bool> cases[] = {
      {4, 0, "FT", "FF", false},   {3, 2, "FT", "TT", true},
      {0, 5, "TF", "FF", true},    {15, 0, "TT+", "TT", true},
      {0, 19, "TT+", "TT", true},  {4, 0, "FT+", "FF", false},
      {15, 0, "FF+", "FF", false}, {0, 19, "FF+", "FF", false}};
  for (auto [ring, core, differing, others, changed] : cases) {
    BlockFeatureSet base[2]{}, frame[2]{};
    frame[1].block[0].deviation_sum = 1e6;
    for (int k = 0, r = 0, c = 0; k < 64; ++k) {
      const int b = k % 2 != 0 ? 63 - k / 2 : k / 2;
      const bool on_ring = b < 8 || b >= 56 || b % 8 == 0 || b % 8 == 7;
      const char *kind =
          (on_ring ? r++ < ring : c++ < core) ? differing : others;
      base[0].block[b].deviation_sum = kind[0] == 'T' ? 1e6 : 50000.0;
      frame[0].block[b].deviation_sum = kind[1] == 'T' ? 1e6 : 50000.0;
      base[0].block[b].sample_sum = 100.0;
      frame[0].block[b].sample_sum = kind[2] == '+' ? 200.0 : 100.0;
    }
    EXPECT_EQ(low_light_scene_changed(frame[0], base[0], 50000.0), changed)
        << ring << " ring, " << core << " core " << differing;
  }
}

// The frame differs from the base in block 0 by `step`; both have the
// brightness `total` in block 63. The base sits in front of a bright
// record, which a sum running one block too far would take in.
// 100000^2 == 1000 * 1e7, 650000^2 == 6500 * 6.5e7 and 600000^2 == 12000 *
// 3e7: one step either side pins each factor to the unit. 148324^2 =
// 22000008976: above 1000 * 22000000, below 6500 times anything brighter.
// Then the square of a negative step; both sides truncated (100^2 == 1000 *
// 10); a zeroed base, where any distance is a change.
TEST(SceneFactors, DistanceMustExceedFactorTimesBaseBrightness) {
  const std::tuple<double, double, bool, bool> cases[] = {
      {1e7, 99999, false, false},       {1e7, 100000, false, false},
      {1e7, 100001, true, false},       {6.5e7, 649999, false, false},
      {6.5e7, 650000, false, false},    {6.5e7, 650001, true, false},
      {3e7, 599999, true, false},       {3e7, 600000, true, false},
      {3e7, 600001, true, true},        {22000000, 148324, true, false},
      {22000001, 148324, false, false}, {10, -101, true, false},
      {10.9, 100.9, false, false},      {0, 1, true, true}};
  for (auto [total, step, raw10, yuv] : cases) {
    BlockFeatureSet base[2]{}, frame{};
    base[1].block[0].sample_sum = 1e15;
    base[0].block[63].sample_sum = frame.block[63].sample_sum = total;
    frame.block[0].sample_sum = step;
    EXPECT_EQ(normal_light_scene_changed(frame, base[0]), raw10) << step;
    EXPECT_EQ(yuv_scene_changed(frame, base[0]), yuv) << step;
  }
}

// sample_sum values of the blocks that the mask selects. The byte past the
// mask is 1 too, and must not select.
struct Scene {
  BlockFeatureSet features{};
  uint8_t mask[64] = {};
  uint8_t past_the_mask = 1;

  Scene(std::vector<int> blocks, std::vector<double> values) {
    for (size_t k = 0; k < blocks.size(); ++k) {
      features.block[blocks[k]].sample_sum = values[k];
      mask[blocks[k]] = 1;
    }
  }
};

int32_t judged(const Scene &a, const Scene &b, const Scene &masked) {
  return judge_scene_change(&a.features, &b.features, masked.mask);
}

// b: 10, 20, 30, 40 -> median (20 + 10) / 2 = 15 (one past the middle),
// variance 125, tolerance 125 * 0.03 * exp(0.15) = 4.357. A deviation
// instead of the variance, the usual middle pair or no exponential would
// each move the threshold across 4.3 or 4.4. Then {130, 400, 10}: median
// 130, variance 26600, tolerance 2928; {100, 130, 130}: median 130,
// variance 200, tolerance 22. Equal medians take the second set's
// tolerance: wide, nothing moved; narrow, all moved. A uniform set has
// no variance, so no tolerance: only a change beyond it, however small,
// counts.
TEST(SceneChange, ToleranceFromTheDarkerSetsVarianceAndMedian) {
  const std::vector<int> blocks = {3, 17, 40, 62};
  const Scene b(blocks, {30.0, 10.0, 40.0, 20.0});
  EXPECT_EQ(judged(Scene(blocks, {34.4, 14.4, 44.3, 24.3}), b, b), 0);
  EXPECT_EQ(judged(Scene(blocks, {34.4, 14.4, 44.4, 24.3}), b, b), 1);
  const Scene spread({0, 1, 2}, {130.0, 400.0, 10.0});
  const Scene same_median({0, 1, 2}, {100.0, 130.0, 130.0});
  EXPECT_EQ(judged(same_median, spread, spread), 0);
  EXPECT_EQ(judged(spread, same_median, spread), 1);
  const Scene flat(blocks, {5.0, 5.0, 5.0, 5.0});
  EXPECT_EQ(judged(flat, flat, flat), 0);
  EXPECT_EQ(judged(Scene(blocks, {5.0, 5.0 + 1e-9, 5.0 + 1e-9, 5.0 + 1e-9}), flat, flat), 1);
}

// The box average multiplies by 2^18 / k^2 rounded down, so from radius 1
// on a constant plane of 255s blurs to 254s: the score is 1 / 255. Radius 0
// averages nothing away. The frame takes more than 128 vector steps, and
// its 255s fill the box sums.
TEST(Reblur, ConstantPlaneBlursOneStepDown) {
  RandomFrame frame({600, 400, 500}, 7);
  for (int32_t i = 0; i < 150; ++i)
    for (int32_t j = 0; j < 100; ++j)
      frame.data()[(4 * i + 3) * 500 + 5 * j + 4] = 255;
  for (int32_t r = 0; r <= 8; ++r) {
    EXPECT_EQ(compare_reblue_with_luminance_compensation(
                  frame.data(), 600, 400, 500, 1, r, junk_arena()),
              r == 0 ? 0.0 : 1.0 / 255.0);
  }
}

// W4 = 41, H4 = 10: pieces of 410, 1848 and 410 bytes from an aligned
// base, requested in that order by either kernel, and before the frame is
// found too small for the box.
TEST(Reblur, ExhaustedArenaIsNaNAndLogsTheFailedRequest) {
  RandomFrame frame({40, 164, 205}, 13);
  LogCapture log;
  EXPECT_TRUE(std::isnan(compare_reblue_with_luminance_compensation(
      frame.data(), 40, 164, 205, 1, 5, junk_arena(500))));
  EXPECT_EQ(log.texts("QLIS-E"),
            arena_error("total_len=500,used_len=410,offset_add=38,"
                        "last_use=1848,lack_len=1758\n"));
}

// A request that exactly fills the arena takes the piece at the next
// 64-byte boundary, even when it fills the whole 32-bit range; one byte
// more fails, logs its counters as signed words and leaves the arena.
TEST(ScratchArena, FillOfThe32BitRangeFitsAndMoreFailsWithLog) {
  ScratchArena full{arena_block, UINT32_MAX, UINT32_MAX - 127}, arena = full;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(AssignMemSpace(&full, 127, 1)),
            reinterpret_cast<uintptr_t>(arena_block) + UINT32_MAX - 127);
  EXPECT_EQ(full.used, UINT32_MAX);
  LogCapture log;
  EXPECT_EQ(AssignMemSpace(&arena, 128, 1), nullptr);
  EXPECT_EQ(arena.used, UINT32_MAX - 127);
  EXPECT_EQ(log.texts("QLIS-E"),
            arena_error("total_len=-1,used_len=-128,offset_add=0,last_use=128,"
                        "lack_len=1\n"));
}

}  // namespace
}  // namespace qlis::test

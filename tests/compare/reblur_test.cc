#include "compare/reblur.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "compare/scratch_arena.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"
#include "support/page_end_buffer.h"

namespace qlis {
namespace {

using test::Geometry;
using test::PageEndBuffer;
using test::RandomFrame;

using Reblur = double (*)(const uint8_t *, int32_t, int32_t, uint32_t, int32_t,
                          ScratchArena);

struct Twin {
  const char *name;
  Reblur fn;
};

void PrintTo(const Twin &twin, std::ostream *os) { *os << twin.name; }

std::vector<Twin> twins() {
  std::vector<Twin> list = {
      {"exported",
       [](const uint8_t *image, int32_t h, int32_t w, uint32_t stride,
          int32_t r, ScratchArena arena) {
         return compare_reblue_with_luminance_compensation(image, h, w, stride,
                                                           1, r, arena);
       }},
      {"portable", &portable::reblur_with_luminance_compensation}};
#if QLIS_HAVE_NEON
  list.push_back({"neon", &neon::reblur_with_luminance_compensation});
#endif
  return list;
}

// The session-sized arena, 64-aligned so that logged paddings are known.
alignas(64) uint8_t arena_block[kScratchArenaBytes];

ScratchArena arena(uint32_t total = kScratchArenaBytes, uint32_t used = 0) {
  return {arena_block, total, used};
}

// Re-blur sample (i, j): byte 4 of group j on row 4 i + 3.
uint8_t &sample(uint8_t *frame, int32_t stride, int32_t i, int32_t j) {
  return frame[(4 * static_cast<size_t>(i) + 3) * stride +
               5 * static_cast<size_t>(j) + 4];
}

// Obviously correct and slow: each box summed directly.
double reference_reblur(uint8_t *frame, Geometry g, int32_t r) {
  const int32_t h4 = g.height / 4, w4 = g.width / 4, k = 2 * r + 1;
  const uint64_t recip = 262144 / (k * k);
  uint64_t diff = 0, luma = 0;
  for (int32_t y = r; y < h4 - r; ++y) {
    for (int32_t x = r; x < w4 - r; ++x) {
      uint64_t box = 0;
      for (int32_t dy = -r; dy <= r; ++dy) {
        for (int32_t dx = -r; dx <= r; ++dx) {
          box += sample(frame, g.stride, y + dy, x + dx);
        }
      }
      const int64_t blurred = static_cast<int64_t>((recip * box) >> 18);
      const int32_t s = sample(frame, g.stride, y, x);
      diff += static_cast<uint64_t>(std::llabs(s - blurred));
      luma += static_cast<uint64_t>(s);
    }
  }
  return static_cast<double>(diff) / static_cast<double>(luma);
}

class ReblurTest : public ::testing::TestWithParam<Twin> {
 protected:
  double run(const uint8_t *frame, Geometry g, int32_t r,
             ScratchArena scratch = arena()) {
    return GetParam().fn(frame, g.height, g.width,
                         static_cast<uint32_t>(g.stride), r, scratch);
  }
};

// The box average is (262144 / k^2) k^2 v / 2^18, a little below v: at
// r = 5 it is 254 for 255 (ratio 1/255) and 0 for 1 (ratio 1). A black
// plane has no brightness to compare against.
TEST_P(ReblurTest, ConstantPlaneLosesTheRoundingOfTheReciprocal) {
  const Geometry g{64, 164, 211};
  RandomFrame frame(g, 7);
  const auto plane_of = [&](int v) {
    for (int32_t i = 0; i < g.height / 4; ++i) {
      for (int32_t j = 0; j < g.width / 4; ++j) {
        sample(frame.data(), g.stride, i, j) = static_cast<uint8_t>(v);
      }
    }
    return frame.data();
  };
  for (int v : {0, 1, 2, 100, 254, 255}) {
    plane_of(v);
    for (int32_t r : {1, 5, 7}) {
      const int k2 = (2 * r + 1) * (2 * r + 1);
      const int blurred = (262144 / k2) * k2 * v / 262144;
      const double got = run(frame.data(), g, r);
      if (v == 0) {
        EXPECT_TRUE(std::isnan(got)) << "r=" << r;
      } else {
        EXPECT_EQ(got, static_cast<double>(v - blurred) / v)
            << "r=" << r << " v=" << v;
      }
    }
  }
  EXPECT_EQ(run(plane_of(255), g, 5), 1.0 / 255.0);
  EXPECT_EQ(run(plane_of(1), g, 5), 1.0);
}

TEST_P(ReblurTest, MatchesDirectBoxSumsOnRandomFrames) {
  for (const Geometry g : {Geometry{80, 120, 150}, Geometry{130, 260, 333},
                           Geometry{101, 203, 260}}) {
    RandomFrame frame(g, 11);
    for (int32_t r : {1, 2, 5}) {
      EXPECT_EQ(run(frame.data(), g, r), reference_reblur(frame.data(), g, r))
          << g.height << "x" << g.width << " r=" << r;
    }
  }
}

// 44 rows or columns give one interior row or column at radius 5.
TEST_P(ReblurTest, FrameTooSmallForTheBoxIsNaN) {
  RandomFrame frame({200, 200, 300}, 3);
  EXPECT_TRUE(std::isnan(run(frame.data(), {43, 200, 300}, 5)));
  EXPECT_FALSE(std::isnan(run(frame.data(), {44, 200, 300}, 5)));
  EXPECT_TRUE(std::isnan(run(frame.data(), {200, 43, 300}, 5)));
  EXPECT_FALSE(std::isnan(run(frame.data(), {200, 44, 300}, 5)));
}

// Rows and columns past the last whole sample are not read; an arena whose
// caller has used some of it gives the same score (the used count is the
// callee's copy, so the caller's stays as it was).
TEST_P(ReblurTest, IgnoresRemainderRowsAndColumnsAndTheArenaUsedCount) {
  const Geometry whole{96, 180, 240};
  RandomFrame frame({whole.height + 3, whole.width, whole.stride}, 5);
  const double expected = run(frame.data(), whole, 5);
  EXPECT_EQ(
      run(frame.data(), {whole.height + 3, whole.width + 3, whole.stride}, 5),
      expected);
  EXPECT_EQ(run(frame.data(), whole, 5, arena(kScratchArenaBytes, 1000)),
            expected);
}

// W4 = 41, H4 = 16: pieces of 656, 2856 and 656 bytes from an aligned base.
// The 40-row frame shows that the requests come before the size check.
TEST_P(ReblurTest, ExhaustedArenaIsNaNAndLogsTheFailedRequest) {
  const struct {
    int32_t height;
    uint32_t total;
    const char *line;
  } cases[] = {
      {64, 500,
       "quelarn_time:AssignMemSpace:error!total_len=500,used_len=0,"
       "offset_add=0,last_use=656,lack_len=156\n"},
      {64, 1000,
       "quelarn_time:AssignMemSpace:error!total_len=1000,used_len=656,"
       "offset_add=48,last_use=2856,lack_len=2512\n"},
      {64, 4000,
       "quelarn_time:AssignMemSpace:error!total_len=4000,used_len=3560,"
       "offset_add=24,last_use=656,lack_len=216\n"},
      {40, 500,
       "quelarn_time:AssignMemSpace:error!total_len=500,used_len=410,"
       "offset_add=38,last_use=1848,lack_len=1758\n"},
  };
  for (const auto &c : cases) {
    const Geometry g{c.height, 164, 205};
    RandomFrame frame(g, 13);
    test::LogCapture log;
    EXPECT_TRUE(std::isnan(run(frame.data(), g, 5, arena(c.total))));
    EXPECT_EQ(log.texts("QLIS-E"), std::vector<std::string>{c.line});
  }
}

INSTANTIATE_TEST_SUITE_P(Twins, ReblurTest, ::testing::ValuesIn(twins()));

#if QLIS_HAVE_NEON
// Geometries whose interior at radius 5 is just below, at and above one
// and two vector steps, besides the shared awkward ones.
std::vector<Geometry> twin_geometries() {
  std::vector<Geometry> list = test::awkward_raw10_geometries();
  for (int32_t w4 : {25, 26, 27, 41, 42, 43, 57}) {
    list.push_back({4 * 13 + 1, 4 * w4 + 2, 5 * w4 + 3});
  }
  list.push_back({1080, 1920, 2400});
  return list;
}

TEST(ReblurTwins, NeonMatchesPortableBitForBit) {
  uint32_t seed = 100;
  for (const Geometry &g : twin_geometries()) {
    RandomFrame frame(g, seed++);
    const uint32_t w4 = g.width / 4, h4 = g.height / 4;
    // An arena of exactly the documented size, ending on a page boundary
    // and not 64-aligned at its start.
    const uint32_t size = 2 * w4 * h4 + 4 * (w4 + 1) * (h4 + 1) + 189;
    PageEndBuffer block(size);
    const ScratchArena arena{block.data(), size, 0};
    for (int32_t r : {0, 1, 3, 5, 7, 8}) {
      const double portable = portable::reblur_with_luminance_compensation(
          frame.data(), g.height, g.width, g.stride, r, arena);
      const double neon = neon::reblur_with_luminance_compensation(
          frame.data(), g.height, g.width, g.stride, r, arena);
      EXPECT_EQ(std::bit_cast<uint64_t>(neon),
                std::bit_cast<uint64_t>(portable))
          << g.height << "x" << g.width << " stride " << g.stride << " r=" << r;
    }
  }
}
#endif

}  // namespace
}  // namespace qlis

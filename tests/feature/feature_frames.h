// Frames, block arguments, record comparisons and the NEON-against-portable
// harness shared by the feature and metrics tests.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "feature/block_args.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis::test {

// 0 and 255 alternating: the largest gradient every sample can have.
inline uint8_t checker_0_255(int32_t i, int32_t g) {
  return (i + g) % 2 != 0 ? 255 : 0;
}

// A block rectangle in pixels (RAW10) or bytes (planes), ends exclusive.
struct BlockRect {
  int32_t row_begin, row_end, col_begin, col_end;
};

inline BlockArgs block_args(const uint8_t *data, Geometry g, BlockRect r,
                            int32_t dist = 1, int32_t stats_flag = 1,
                            int32_t gradient_flag = 1) {
  return {data,     r.row_begin, r.row_end, r.col_begin, r.col_end,    dist,
          g.height, g.width,     g.stride,  stats_flag,  gradient_flag};
}

// One past the last byte of RAW10 sample (row pair, group).
inline size_t raw10_end_of_reads(int32_t stride, int32_t last_row,
                                 int32_t last_group) {
  return 2 * static_cast<size_t>(last_row) * static_cast<size_t>(stride) +
         5 * static_cast<size_t>(last_group) + 5;
}

template <typename T>
bool same_bytes(const T &a, const T &b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Records are preset to this pattern, which no producer writes.
inline const double kUnwritten = std::bit_cast<double>(0x5a5a5a5a5a5a5a5aull);

inline BlockFeatureSet unwritten_records() {
  BlockFeatureSet set;
  std::memset(&set, 0x5a, sizeof set);
  return set;
}

// Field by field by bit pattern, except that any NaN matches any NaN: the
// sign of a computed NaN differs between targets.
inline bool same_fields(BlockFeature got, const BlockFeature &want) {
  double *g = &got.sample_sum;
  for (const double *w = &want.sample_sum; g != &got.sample_sum + 6; ++g, ++w) {
    if (std::isnan(*g) && std::isnan(*w)) *g = *w;
  }
  return same_bytes(got, want);
}

// Blocks (r, c) with r + c even.
inline bool on_checkerboard(int block) {
  return (block / 8 + block % 8) % 2 == 0;
}

// A frame the two kernels are compared on: random bytes, flat at `fill`
// (flat extremes fill the narrow vector lanes fastest) or 0/255 samples
// (the largest gradients, energies that wrap), over the whole frame and
// `trials` random rectangles at neighbour distance `dist`.
inline constexpr int kRandom = -1, kChecker = -2;

struct TwinCase {
  Geometry g;
  int fill;
  int32_t dist;
  int trials;
};

// `cases`, then random frames of awkward geometry at dist 1.
inline std::vector<TwinCase> twin_cases(std::vector<TwinCase> cases) {
  for (const Geometry &g : awkward_raw10_geometries()) {
    cases.push_back({g, kRandom, 1, 12});
  }
  return cases;
}

// The case's frame with `below` more rows, for lower neighbours that
// reach past the frame.
inline PackedFrame twin_frame(const TwinCase &c, int32_t below = 0) {
  const Geometry held{c.g.height + below, c.g.width, c.g.stride};
  if (c.fill == kRandom) return PackedFrame(held, Noise{uint32_t(c.g.width + c.dist)});
  PackedFrame f(held, static_cast<uint8_t>(c.fill < 0 ? 0 : c.fill));
  if (c.fill == kChecker) f.samples(checker_0_255);
  return f;
}

// For the whole frame and the case's random rectangles, whose ends may lie
// past the frame's, under every flag pair (the three that compute and two
// that do not): run(neon, args) of the NEON kernel, given a copy of the
// frame that ends with the last byte the block needs (end(args), 0 for
// nothing) so that reading one byte further crashes, must equal the
// portable kernel's bit for bit.
template <typename Run, typename End>
void expect_twins_agree(const TwinCase &c, const PackedFrame &frame, Run run,
                        End end) {
  std::mt19937 engine(static_cast<uint32_t>(c.g.height + c.trials));
  const auto pick = [&](int32_t hi) {
    return std::uniform_int_distribution<int32_t>(0, hi)(engine);
  };
  const int32_t kFlagPairs[5][2] = {{1, 1}, {1, 0}, {0, 1}, {0, 0}, {2, 1}};
  for (int trial = 0; trial <= c.trials; ++trial) {
    const int32_t row = trial == 0 ? 0 : pick(c.g.height);
    const int32_t col = trial == 0 ? 0 : pick(c.g.width);
    const BlockRect rect = {
        row, trial == 0 ? c.g.height : row + pick(c.g.height + 8), col,
        trial == 0 ? c.g.width : col + pick(c.g.width + 16)};
    for (const auto &[stats, gradient] : kFlagPairs) {
      BlockArgs args =
          block_args(frame.data(), c.g, rect, c.dist, stats, gradient);
      const auto portable = run(false, args);
      const size_t needed = end(args);
      PageEndBuffer cut(needed == 0 ? 1 : needed);
      std::memcpy(cut.data(), frame.data(), needed);
      args.data = cut.data();
      ASSERT_TRUE(same_bytes(portable, run(true, args)))
          << "trial " << trial << " flags " << stats << gradient;
    }
  }
}

}  // namespace qlis::test

// Frames, block arguments and record comparisons shared by the feature
// tests.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "feature/block_args.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"

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

}  // namespace qlis::test

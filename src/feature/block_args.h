// What every block extractor is given, and the pieces of the block
// rectangle that the RAW10 extractors share.
#pragma once

#include <cstdint>

namespace qlis {

// Samples of this value or more are bright, of kDarkLast or less dark.
inline constexpr int32_t kBrightFirst = 196;
inline constexpr int32_t kDarkLast = 59;

// Inputs of one extractor call: the frame, the block rectangle (pixels or
// bytes, ends exclusive), the neighbour distance, the frame geometry and
// which computations to run.
struct BlockArgs {
  const uint8_t *data;
  int32_t row_begin;
  int32_t row_end;
  int32_t col_begin;
  int32_t col_end;
  int32_t dist;
  int32_t height;
  int32_t width;
  int32_t stride;
  int32_t stats_flag;
  int32_t gradient_flag;
};

// A RAW10 block in sample coordinates: row pairs [i0, i1), groups [g0, g1).
struct Raw10SampleRect {
  int32_t i0;
  int32_t i1;
  int32_t g0;
  int32_t g1;

  bool empty() const { return i1 <= i0 || g1 <= g0; }
};

// Converts a RAW10 block to sample coordinates and pulls the far edges in
// so that the neighbours stay inside the frame. The margin is one sample
// wider than the neighbours need, so a block at the bottom or right edge
// loses two sample rows or columns; that is kept because the features of
// edge blocks depend on it. Sums are formed in 64 bits so that no argument
// combination overflows.
inline Raw10SampleRect raw10_sample_rect(const BlockArgs &a) {
  Raw10SampleRect r{a.row_begin >> 1, a.row_end >> 1, a.col_begin >> 2, a.col_end >> 2};
  const int64_t pairs = a.height >> 1;
  const int64_t groups = a.width >> 2;
  if (pairs <= static_cast<int64_t>(r.i1) + a.dist) {
    r.i1 = static_cast<int32_t>(pairs - 1 - a.dist);
  }
  if (groups <= static_cast<int64_t>(r.g1) + a.dist) {
    r.g1 = static_cast<int32_t>(groups - 1 - a.dist);
  }
  return r;
}

}  // namespace qlis

// Block extractor for 8-bit planes (YUV luma, or a YUYV frame read as if it
// were one): sample sum and gradient energy over every fourth byte of every
// fourth row of a block.
#pragma once

#include <cstdint>

#include "feature/block_args.h"

namespace qlis {

// Result of an empty block or of an invalid flag pair.
inline constexpr uint64_t kYuvBlockInvalid = UINT64_MAX;

// Samples are four bytes and four rows apart.
inline constexpr int32_t kYuvSampleStep = 4;

// The plane extractor's inputs: rows and byte columns, ends exclusive;
// dist is the neighbour distance in bytes (right) and rows (below).
using YuvBlockArgs = BlockArgs;

// Pulls the far edges in so that both neighbours of every sample stay
// inside the frame, one byte (row) wider than strictly needed. Comparisons
// are made in 64 bits so that no argument combination overflows.
inline void clamp_yuv_block(YuvBlockArgs &a) {
  if (static_cast<int64_t>(a.row_end) + a.dist >= a.height) {
    a.row_end =
        static_cast<int32_t>(static_cast<int64_t>(a.height) - 1 - a.dist);
  }
  if (static_cast<int64_t>(a.col_end) + a.dist >= a.width) {
    a.col_end =
        static_cast<int32_t>(static_cast<int64_t>(a.width) - 1 - a.dist);
  }
}

inline bool yuv_block_is_empty(const YuvBlockArgs &a) {
  return a.row_end <= a.row_begin || a.col_end <= a.col_begin;
}

// The three computations a flag pair selects; anything else does nothing.
inline bool yuv_flags_valid(const YuvBlockArgs &a) {
  return (a.stats_flag == 1 &&
          (a.gradient_flag == 0 || a.gradient_flag == 1)) ||
         (a.stats_flag == 0 && a.gradient_flag == 1);
}

namespace portable {
// *sum_out receives the 64-bit sample sum, or 0 (the bits of 0.0) when only
// the gradient was asked for or the block is empty; *aux_out is zeroed only
// for an empty block. Returns the 64-bit gradient energy, 0 for a
// statistics-only call, kYuvBlockInvalid for an empty block or bad flags.
uint64_t yuv_block_features(uint64_t *sum_out, uint64_t *aux_out,
                            YuvBlockArgs args);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
uint64_t yuv_block_features(uint64_t *sum_out, uint64_t *aux_out,
                            YuvBlockArgs args);
}  // namespace neon
#endif

}  // namespace qlis

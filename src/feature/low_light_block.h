// Block extractor for packed RAW10 frames in low light: brightness
// statistics of one rectangle and a histogram of absolute differences
// between each sample and its neighbours.
//
// Sample (i, g) is the byte at offset 4 of five-byte group g of frame row
// 2 i. Only every second row pair of the block is visited (i0, i0 + 2, ...),
// so one frame row in four is read.
#pragma once

#include <cstdint>

#include "feature/block_args.h"
#include "ql_is/ql_is.h"

namespace qlis {

// Result of a block whose clamped rectangle is empty (0 otherwise).
inline constexpr int64_t kLowLightEmptyBlock = -1;

// The low-light extractor's inputs; dist is the neighbour distance in
// samples: dist groups to the right and 2 * dist row pairs down.
using LowLightBlockArgs = BlockArgs;

// Where the extractor stores its results. mean and deviation may be null
// for a block that turns out empty. Outputs the extractor does not write
// keep what they held: the frame driver hands the same outputs to every
// block and records what they carry.
struct LowLightBlockOutputs {
  double *mean;
  double *deviation;
  double *variation;
  double *bright;
  double *dark;
  DiffHistogram *diff_hist;
};

// The rectangle in sample coordinates: row pairs [i0, i1) of which every
// second is visited, groups [g0, g1).
struct LowLightSampleRect {
  int32_t i0;
  int32_t i1;
  int32_t g0;
  int32_t g1;

  // Visited row pairs: an odd count of row pairs counts its last one.
  int32_t visited_rows() const { return (i1 - i0 + 1) >> 1; }
  int32_t groups() const { return g1 - g0; }
};

// Zeroes the mean and deviation outputs (where given), converts and clamps
// the rectangle like the normal-light extractor (the margin is one sample
// wider than the neighbours need) and, for a non-empty block, zeroes the
// fractions and the deviation. Returns false for an empty block, whose
// fractions and variation are left untouched. Shared by both kernels so
// that their entry steps cannot drift apart.
bool begin_low_light_block(const LowLightBlockOutputs &out,
                           const LowLightBlockArgs &args,
                           LowLightSampleRect *rect);

// Stores mean, deviation, variation and the two fractions of a block from
// its 64-bit sample sum and sum of squares. bright_total and dark_total are
// the counts of bright and dark samples as doubles (integer-valued, so any
// order of adding them gives the same value).
void store_low_light_statistics(const LowLightBlockOutputs &out,
                                const LowLightSampleRect &rect, uint64_t sum,
                                uint64_t sumsq, double bright_total,
                                double dark_total);

// Adds one to a difference count. The counts are never cleared by the
// library and wrap like the 32-bit counters they are.
inline void bump_diff_count(DiffHistogram *hist, uint32_t bin) {
  hist->count[bin] =
      static_cast<int32_t>(static_cast<uint32_t>(hist->count[bin]) + 1u);
}

namespace portable {
// Statistics when stats_flag is 1, difference counts (three per visited
// sample) when gradient_flag is 1. Returns 0, or kLowLightEmptyBlock.
int64_t low_light_block_features(const LowLightBlockOutputs &out,
                                 const LowLightBlockArgs &args);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
int64_t low_light_block_features(const LowLightBlockOutputs &out,
                                 const LowLightBlockArgs &args);
}  // namespace neon
#endif

}  // namespace qlis

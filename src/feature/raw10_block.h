// Block extractor for packed RAW10 frames in normal light: the gradient
// energy of one rectangle of samples and its brightness statistics.
//
// Sample (i, g) is the byte at offset 4 of five-byte group g of frame row
// 2 i: only even rows are read, one byte of each group.
#pragma once

#include <cmath>
#include <cstdint>

#include "feature/block_args.h"
#include "platform/convert.h"

namespace qlis {

// The normal-light extractor's inputs.
using Raw10BlockArgs = BlockArgs;

// Where the extractor stores its results. Fields it does not write keep
// what they held, which the frame driver relies on: it hands the same
// outputs to every block.
struct Raw10BlockOutputs {
  uint64_t *sum;
  uint64_t *deviation;
  double *variation;
  double *bright;
  double *dark;
};

// Samples of a RAW10 rectangle, a 32-bit count like the sample counter it
// stands for: products beyond 2^31 wrap.
inline int32_t raw10_sample_count(const Raw10SampleRect &r) {
  const uint32_t groups = static_cast<uint32_t>(r.g1 - r.g0);
  const uint32_t rows = static_cast<uint32_t>(r.i1 - r.i0);
  return static_cast<int32_t>(groups * rows);
}

// What a flag pair asks for. kGradient also fills the histogram (for the
// two fractions); any pair but (1, 1), (0, 1) and (1, 0) does nothing.
enum class Raw10Computation { kNone, kFull, kGradient, kStatistics };

inline Raw10Computation raw10_computation(int32_t stats_flag,
                                          int32_t gradient_flag) {
  if (stats_flag == 1 && gradient_flag == 1) return Raw10Computation::kFull;
  if (stats_flag == 0 && gradient_flag == 1) return Raw10Computation::kGradient;
  if (stats_flag == 1 && gradient_flag == 0) {
    return Raw10Computation::kStatistics;
  }
  return Raw10Computation::kNone;
}

// Stores the results of a visited, non-empty block in the documented order.
// The variation is formed from the stored sum and deviation (read back
// through the outputs). bright_total and dark_total are the counts of
// bright and dark samples as doubles; samples is the 32-bit sample count.
inline void store_raw10_block_results(const Raw10BlockOutputs &out,
                                      bool statistics, uint64_t sum,
                                      uint64_t sumsq, double bright_total,
                                      double dark_total, int32_t samples) {
  const double n = static_cast<double>(samples);
  if (statistics) {
    *out.sum = sum;
    const uint64_t sum_squared = sum * sum;  // 64-bit product, wraps
    const double deviation =
        static_cast<double>(sumsq) - static_cast<double>(sum_squared) / n;
    // Rounding can make the deviation slightly negative; the device's
    // conversion saturates that to 0.
    *out.deviation = saturate_to_u64(deviation);
    const double mean = static_cast<double>(*out.sum) / n;
    *out.variation = std::sqrt(static_cast<double>(*out.deviation) / n) / mean;
  } else {
    *out.sum = 0;
  }
  *out.bright = bright_total / n;
  *out.dark = dark_total / n;
}

namespace portable {
// Returns the 32-bit (wrapped) gradient energy, 0 for a statistics-only
// call, -1 for an empty rectangle (sum and deviation zeroed, nothing else
// written) or an invalid flag pair (only the fractions zeroed).
int32_t raw10_block_features(const Raw10BlockOutputs &out,
                             const Raw10BlockArgs &args);
}  // namespace portable

#if QLIS_HAVE_NEON
namespace neon {
int32_t raw10_block_features(const Raw10BlockOutputs &out,
                             const Raw10BlockArgs &args);
}  // namespace neon
#endif

}  // namespace qlis

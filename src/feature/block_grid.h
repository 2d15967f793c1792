// The 8 x 8 block grid shared by the normal-light and plane frame drivers:
// the position weights and the way the weighted block energies fold into
// one frame value.
#pragma once

#include <cstdint>

namespace qlis {

inline constexpr int32_t kGrid = 8;
inline constexpr int32_t kBlocks = kGrid * kGrid;

// 1, 2, 3, 4, 4, 3, 2, 1 along a block row or column: the centre of the
// frame counts most.
constexpr int32_t tent_weight(int32_t index) {
  return index <= 3 ? index + 1 : kGrid - index;
}

// The frame value from the sum and the sum of squares of n weighted block
// energies: ((Q / n - (S / n)^2) / 10000) * S in unsigned 64-bit arithmetic
// with truncating divisions and wrapping products, so that it grows with
// both the total energy and how unevenly it is spread. A negative sum
// (wrapped energies) is taken as its two's-complement bits.
constexpr uint64_t spread_times_sum(uint64_t sum, uint64_t sum_of_squares, uint64_t n) {
  constexpr uint64_t kSpreadDivisor = 10000;
  const uint64_t mean = sum / n;
  const uint64_t mean_of_squares = sum_of_squares / n;
  return (mean_of_squares - mean * mean) / kSpreadDivisor * sum;
}

}  // namespace qlis

// Double-to-integer conversions as the ARM targets perform them: truncation
// toward zero, saturation at the ends of the range, NaN to 0. C++ leaves
// out-of-range conversions undefined; the device's results are the reference.
#pragma once

#include <cstdint>
#include <limits>

namespace qlis {

inline uint64_t saturate_to_u64(double v) {
  if (!(v > 0.0)) return 0;  // negative, zero and NaN
  if (v >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
  return static_cast<uint64_t>(v);
}

}  // namespace qlis

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

// The signed twin: truncation toward zero, INT64_MIN / INT64_MAX beyond the
// ends, NaN to 0. The judgements feed it sums of block means and block
// sample sums, which stay below 2^40 on any frame the session buffers hold,
// so on real frames it is a plain truncation; the saturation keeps infinities
// and NaNs from being undefined.
inline int64_t saturate_to_i64(double v) {
  if (v != v) return 0;
  if (v >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
  if (v < -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(v);
}

}  // namespace qlis

#include "platform/convert.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace qlis {
namespace {

// Truncation toward zero, exact up to the largest double below 2^63, and
// saturation beyond it and for infinities; NaN converts to 0.
TEST(SaturateToI64, TruncatesTowardZeroAndSaturates) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
  const std::pair<double, int64_t> cases[] = {
      {2.9, 2},
      {-2.9, -2},
      {9223372036854774784.0, 9223372036854774784},
      {9223372036854775808.0, kMax},
      {-kInf, kMin},
      {-9223372036854775808.0, kMin},
      {std::numeric_limits<double>::quiet_NaN(), 0}};
  for (const auto &[in, out] : cases) EXPECT_EQ(saturate_to_i64(in), out) << in;
}

}  // namespace
}  // namespace qlis

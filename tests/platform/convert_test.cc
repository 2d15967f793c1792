#include "platform/convert.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <ostream>

namespace qlis {
namespace {

struct SignedCase {
  double in;
  int64_t out;
};

void PrintTo(const SignedCase &c, std::ostream *os) { *os << c.in; }

class SaturateToI64 : public ::testing::TestWithParam<SignedCase> {};

TEST_P(SaturateToI64, TruncatesTowardZeroAndSaturates) {
  EXPECT_EQ(saturate_to_i64(GetParam().in), GetParam().out);
}

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr double kInf = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Values, SaturateToI64,
    ::testing::Values(SignedCase{2.9, 2}, SignedCase{-2.9, -2},
                      SignedCase{-0.5, 0},
                      // The largest double below 2^63 converts exactly.
                      SignedCase{9223372036854774784.0, 9223372036854774784},
                      SignedCase{9223372036854775808.0, kMax},
                      SignedCase{kInf, kMax},
                      SignedCase{-9223372036854775808.0, kMin},
                      SignedCase{-1e300, kMin}, SignedCase{-kInf, kMin},
                      SignedCase{std::numeric_limits<double>::quiet_NaN(), 0}));

}  // namespace
}  // namespace qlis

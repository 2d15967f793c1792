#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "api/zs_copy.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"

namespace {

using qlis::test::PageEndBuffer;

TEST(ZsMemset, FillsWholeBlocksWithValueAndZeroesTheTail) {
  std::vector<uint8_t> buffer(80, 0x11);
  zs_memset(buffer.data(), 0xAB, 70);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(buffer[i], 0xAB) << i;
  for (int i = 64; i < 70; ++i) EXPECT_EQ(buffer[i], 0x00) << i;
  for (int i = 70; i < 80; ++i) EXPECT_EQ(buffer[i], 0x11) << i;
}

TEST(ZsMemset, ShortRangeIsAllZeroAndUsesLowByteOfValue) {
  std::vector<uint8_t> buffer(200, 0x11);
  zs_memset(buffer.data(), 0x1CD, 63);
  for (int i = 0; i < 63; ++i) EXPECT_EQ(buffer[i], 0) << i;
  zs_memset(buffer.data(), 0x1CD, 128);
  for (int i = 0; i < 128; ++i) EXPECT_EQ(buffer[i], 0xCD) << i;
  EXPECT_EQ(buffer[128], 0x11);
}

// Lengths around the block and four-block boundaries, at every alignment,
// with both ends of the destination checked for stray writes.
TEST(ZsMemcpy, CopiesExactlyNBytesAtAnyLengthAndAlignment) {
  std::mt19937 engine(7);
  const uint32_t lengths[] = {0, 1, 15, 63, 64, 65, 127, 128, 255, 256, 257,
                              319, 320, 511, 1000, 4096 + 37};
  for (uint32_t n : lengths) {
    for (uint32_t shift = 0; shift < 4; ++shift) {
      std::vector<uint8_t> src(n + 8);
      qlis::test::fill_random(src.data(), src.size(), engine);
      std::vector<uint8_t> dst(n + 16, 0x5A);
      zs_memcpy(dst.data() + 4 + shift, src.data() + shift, n);
      ASSERT_EQ(0, std::memcmp(dst.data() + 4 + shift, src.data() + shift, n)) << n;
      for (uint32_t i = 0; i < 4 + shift; ++i) ASSERT_EQ(dst[i], 0x5A);
      for (uint32_t i = 4 + shift + n; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0x5A);
    }
  }
}

TEST(ZsMemcpy, StaysInsidePageEndBuffers) {
  std::mt19937 engine(3);
  for (uint32_t n : {1u, 64u, 300u, 4097u}) {
    PageEndBuffer src(n);
    PageEndBuffer dst(n);
    qlis::test::fill_random(src.data(), n, engine);
    zs_memcpy(dst.data(), src.data(), n);
    EXPECT_EQ(0, std::memcmp(dst.data(), src.data(), n));
    zs_memset(dst.data(), 7, n);
    EXPECT_EQ(dst.data()[0], n >= 64 ? 7 : 0);
  }
}

#if QLIS_HAVE_NEON
TEST(ZsCopyTwins, NeonFillMatchesPortable) {
  for (uint32_t n : {0u, 5u, 64u, 70u, 200u, 1024u, 1029u}) {
    std::vector<uint8_t> a(n + 4, 0x33);
    std::vector<uint8_t> b(n + 4, 0x33);
    qlis::portable::fill_blocks(a.data(), 0x9E, n);
    qlis::neon::fill_blocks(b.data(), 0x9E, n);
    EXPECT_EQ(a, b) << n;
  }
}
#endif

}  // namespace

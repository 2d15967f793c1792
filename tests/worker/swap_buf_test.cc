#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "ql_is/ql_is.h"
#include "worker/swap_buf.h"

namespace {

std::vector<uintptr_t> words(int n, uintptr_t first) {
  std::vector<uintptr_t> v(static_cast<size_t>(n));
  std::iota(v.begin(), v.end(), first);
  return v;
}

TEST(SwapBuf, ExchangesEveryWordForAnyCount) {
  for (int n : {1, 2, 3, 5, 6, 7, 8, 9, 13, 16, 33}) {
    auto a = words(n, 100);
    auto b = words(n, 900);
    const auto a0 = a;
    const auto b0 = b;
    swap_buf(a.data(), b.data(), n);
    EXPECT_EQ(a, b0) << n;
    EXPECT_EQ(b, a0) << n;
  }
}

TEST(SwapBuf, NonPositiveCountChangesNothing) {
  for (int n : {0, -1, -100}) {
    auto a = words(4, 1);
    auto b = words(4, 50);
    swap_buf(a.data(), b.data(), n);
    EXPECT_EQ(a, words(4, 1));
    EXPECT_EQ(b, words(4, 50));
  }
}

TEST(SwapBuf, RotatesBufferPairsWithoutLosingABlock) {
  uint8_t blocks[6];
  uint8_t *pairs[3][2] = {{&blocks[0], &blocks[1]},
                          {&blocks[2], &blocks[3]},
                          {&blocks[4], &blocks[5]}};
  for (int step = 0; step < 50; ++step) {
    const int x = step % 3;
    const int y = (step * 7 + 1) % 3;
    if (x != y) swap_buf(pairs[x], pairs[y], 2);
    std::vector<uint8_t *> seen = {pairs[0][0], pairs[0][1], pairs[1][0],
                                   pairs[1][1], pairs[2][0], pairs[2][1]};
    for (int k = 0; k < 6; ++k) {
      EXPECT_EQ(1, std::count(seen.begin(), seen.end(), &blocks[k]));
    }
    // Every image pointer stays with its own side pointer.
    for (auto &p : pairs) EXPECT_EQ(p[1], p[0] + 1);
  }
}

// Overlapping arrays show the order of loads and stores; both versions
// must agree on it, including the word-by-word fallback.
TEST(SwapBufTwins, OverlappingArraysGiveTheSameResult) {
  for (int n : {2, 6, 7, 9, 12}) {
    for (int offset = 0; offset <= 9; ++offset) {
      auto p = words(40, 1);
      auto q = p;
      auto *pb = reinterpret_cast<uint8_t *>(p.data());
      auto *qb = reinterpret_cast<uint8_t *>(q.data());
      const size_t shift = static_cast<size_t>(offset) * sizeof(uintptr_t);
      qlis::portable::swap_words(pb, pb + shift, n);
      qlis::kernels::swap_words(qb, qb + shift, n);
      EXPECT_EQ(p, q) << "n " << n << " offset " << offset;
    }
  }
}

TEST(SwapBufTwins, VectorStepsNeedSixWordsAndSixteenBytesApart) {
  uint8_t buffer[256] = {};
  EXPECT_FALSE(qlis::swap_uses_vector_steps(buffer, buffer + 64, 5));
  EXPECT_TRUE(qlis::swap_uses_vector_steps(buffer, buffer + 64, 6));
  EXPECT_TRUE(qlis::swap_uses_vector_steps(buffer + 16, buffer, 6));
  EXPECT_FALSE(qlis::swap_uses_vector_steps(buffer + 15, buffer, 6));
}

}  // namespace

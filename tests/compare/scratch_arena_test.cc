#include "compare/scratch_arena.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace qlis {
namespace {

struct alignas(64) Block {
  uint8_t bytes[4096];
};

uintptr_t address(const void *p) { return reinterpret_cast<uintptr_t>(p); }

class ScratchArenaTest : public ::testing::TestWithParam<uint32_t> {};

// The parameter is how far the base sits past a 64-byte boundary.
TEST_P(ScratchArenaTest, PiecesAreAlignedAndTakeOnlyThePaddingBeforeThem) {
  Block block;
  uint8_t *base = block.bytes + GetParam();
  ScratchArena arena{base, 4000, 0};
  // A zero-byte request returns the next aligned address.
  const uint32_t padding = (64 - GetParam()) % 64;
  EXPECT_EQ(AssignMemSpace(&arena, 0, 1), base + padding);
  EXPECT_EQ(arena.used, padding);
  for (uint32_t length : {1u, 3u, 64u, 100u, 7u}) {
    const uint32_t used_before = arena.used;
    void *piece = AssignMemSpace(&arena, length, 4);
    ASSERT_NE(piece, nullptr);
    EXPECT_EQ(address(piece) % 64, 0u);
    EXPECT_EQ(arena.used, address(piece) + length - address(base));
    EXPECT_LT(arena.used - used_before - length, 64u);
  }
}

INSTANTIATE_TEST_SUITE_P(BaseOffsets, ScratchArenaTest,
                         ::testing::Values(0u, 1u, 17u, 63u));

TEST(ScratchArena, OneByteRequestsFromAlignedBaseAre64Apart) {
  Block block;
  ScratchArena arena{block.bytes, 4096, 0};
  auto *first = static_cast<uint8_t *>(AssignMemSpace(&arena, 1, 1));
  auto *second = static_cast<uint8_t *>(AssignMemSpace(&arena, 1, 1));
  EXPECT_EQ(first, block.bytes);
  EXPECT_EQ(second, block.bytes + 64);
  EXPECT_EQ(arena.used, 65u);
}

struct Overflow {
  uint32_t used;
  uint32_t length;   // the request that exactly fills the arena
  const char *line;  // logged for one byte more
};

void PrintTo(const Overflow &o, std::ostream *os) {
  *os << "used " << o.used << ", length " << o.length;
}

class ScratchArenaFillTest : public ::testing::TestWithParam<Overflow> {};

TEST_P(ScratchArenaFillTest, ExactFillSucceedsAndOneByteMoreFailsWithLog) {
  Block block;
  const Overflow &c = GetParam();
  ScratchArena full{block.bytes, 1000, c.used};
  EXPECT_NE(AssignMemSpace(&full, c.length, 1), nullptr);
  EXPECT_EQ(full.used, 1000u);

  test::LogCapture log;
  ScratchArena arena{block.bytes, 1000, c.used};
  EXPECT_EQ(AssignMemSpace(&arena, c.length + 1, 1), nullptr);
  EXPECT_EQ(arena.used, c.used);
  EXPECT_EQ(log.texts("QLIS-E"), std::vector<std::string>{c.line});
}

// The shortfall leaves the padding out, so it can come out negative.
INSTANTIATE_TEST_SUITE_P(
    Fills, ScratchArenaFillTest,
    ::testing::Values(
        Overflow{0, 1000,
                 "quelarn_time:AssignMemSpace:error!total_len=1000,"
                 "used_len=0,offset_add=0,last_use=1001,lack_len=1\n"},
        Overflow{10, 936,
                 "quelarn_time:AssignMemSpace:error!total_len=1000,"
                 "used_len=10,offset_add=54,last_use=937,lack_len=-53\n"}));

TEST(ScratchArena, LengthNearTwoToThe32FailsInsteadOfWrapping) {
  Block block;
  test::LogCapture log;
  ScratchArena arena{block.bytes, 1000, 100};
  // 28 + (2^32 - 128) + 100 wraps to 0 in 32 bits.
  EXPECT_EQ(AssignMemSpace(&arena, UINT32_MAX - 127, 1), nullptr);
  EXPECT_EQ(arena.used, 100u);
  EXPECT_EQ(log.texts("QLIS-E"),
            std::vector<std::string>{
                "quelarn_time:AssignMemSpace:error!total_len=1000,"
                "used_len=100,offset_add=28,last_use=-128,lack_len=-1028\n"});
}

}  // namespace
}  // namespace qlis

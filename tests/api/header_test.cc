#include <gtest/gtest.h>

extern "C" int qlis_header_c99_block_count(void);

namespace {

TEST(PublicHeader, CompilesAsC99WithTheSameRecords) {
  EXPECT_EQ(qlis_header_c99_block_count(), 64);
}

}  // namespace

#include <gtest/gtest.h>

#include <array>
#include <regex>
#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

// 64 x 64 pixels without row padding: blocks of 4 half-rows by 2 groups.
// A spike of v among zeros adds 2 v^2 as a sample and v^2 to its left and
// upper neighbours: 4 v^2 in the one block that holds all three.
PackedFrame spikes(std::initializer_list<std::array<int32_t, 3>> at) {
  PackedFrame f({64, 64, 80}, uint8_t{0});
  for (const auto &[t, k, v] : at) f.set(t, k, static_cast<uint8_t>(v));
  return f;
}

// A spike of 100 makes 40,000 in block 0 (weight 1) or block 27 (weight
// 16), weighted to 100 or 1,600; the right-hand blocks are pulled in to
// nothing (-1, weighted to 0). S = 1600: (2,560,000 / 64 - 25^2) / 10000
// * 1600 = 3 * 1600; S = 100 leaves a spread below 10000. Each of four
// threads logs its start and its join, in order.
TEST(QualityWithSub, CentreBlocksWeighSixteenTimesTheCornersOnFourThreads) {
  const struct {
    int32_t t, k, block;
    int64_t value;
    uint64_t figure;
  } cases[] = {{1, 1, 0, 100, 0}, {13, 7, 27, 1600, 4800}};
  std::vector<int32_t> rects;  // the 8 x 8 grid of 8 x 8 pixel blocks
  for (int32_t b = 0; b < 64; ++b) {
    rects.insert(rects.end(), {b / 8 * 8, b / 8 * 8 + 8, b % 8 * 8, b % 8 * 8 + 8});
  }
  const std::vector<uint8_t> mask(64, 1);
  for (const auto &c : cases) {
    const PackedFrame f = spikes({{c.t, c.k, 100}});
    std::vector<int64_t> results(64, -7), want(64, 0);
    want[c.block] = c.value;
    calc_quality_with_sub_inner(f.data(), 0, 8, rects.data(), results.data(), mask.data(), 8,
                                8, 64, 64);
    EXPECT_EQ(results, want);
    LogCapture log;
    EXPECT_EQ(calc_quality_with_sub(f.data(), 64, 64), c.figure);
    std::string pattern = "Vrel_pthread_true\n", got;
    for (int k = 0; k < 4; ++k) {
      pattern += "QLFD_quality_pthread, creat " + std::to_string(k) + " ok\n";
    }
    for (int k = 0; k < 4; ++k) {
      pattern += "QLFD, multi:thread\\[" + std::to_string(k) +
                 "\\] qbox mean func join ok! id=-?[0-9]+\n";
    }
    pattern += "Vrel_quality_pthread_time:[0-9]+\\.[0-9]{6} result_" +
               std::to_string(c.value) + "\nVrel_valid_num:64\n";
    for (const std::string &line : log.texts("QLIS_ALGO")) got += line + "\n";
    EXPECT_TRUE(std::regex_match(got, std::regex(pattern))) << got;
    EXPECT_TRUE(log.texts("QLIS-E").empty());
  }
}

// The 264 x 528 checkerboard of 0 and 255 (130 x 130 samples of 2 x 255^2)
// measures 2,197,845,000 wrapped to -2,097,122,296, which weight 1 makes
// -5,242,805 (toward zero), weight 4 (201,445,408 modulo 2^32) 503,613 and
// weight 16 (805,781,632 modulo 2^32) 2,014,454; an empty block's -1 is 0.
TEST(QualityWithSub, WrappedMetricsAreWeightedModulo32Bits) {
  PackedFrame f({264, 528, 660}, uint8_t{0});
  f.samples([](int32_t i, int32_t g) { return (i + g) % 2 != 0 ? 255 : 0; });
  std::vector<int32_t> rects;  // the whole frame, but block 26 is empty
  for (int b = 0; b < 64; ++b) rects.insert(rects.end(), {0, 264, 0, 528});
  rects[4 * 26 + 1] = 0;
  const std::vector<uint8_t> mask(64, 1);
  std::vector<int64_t> results(64, -7);
  calc_quality_with_sub_inner(f.data(), 0, 4, rects.data(), results.data(), mask.data(), 8, 8, 264, 528);
  EXPECT_EQ(results[0], -5242805);
  EXPECT_EQ(results[24], 503613);
  EXPECT_EQ(results[26], 0);
  EXPECT_EQ(results[27], 2014454);
}

// The 16 central blocks unweighted, printed one per line, then the figure
// (Q / 16 - (S / 16)^2) * S; results[k] becomes 1 where block k + 1
// measured lower, results[15] keeps its value. Spikes of 10 and 20 in
// central blocks 0 and 5: S = 2000, Q = 2,720,000, (170,000 - 125^2) *
// 2000. In a 16 x 16 frame three central block columns of four are
// empty: twelve -1s, which compare above 0 as unsigned values, and
// S = -12, mean 2^60 - 1, spread 2^61 - 1: the figure wraps to 2^63 + 12.
TEST(QualityWithSubO2, PrintsCentralBlocksAndKeepsNeighbourComparisons) {
  const struct {
    PackedFrame frame;
    std::vector<int64_t> q, results;
    uint64_t figure;
  } cases[] = {
      {spikes({{9, 5, 10}, {13, 7, 20}}),
       {400, 0, 0, 0, 0, 1600, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       308750000},
      {PackedFrame({16, 16, 20}, uint8_t{0}),
       {-1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1},
       {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, -1},
       0x800000000000000cu},
  };
  for (const auto &c : cases) {
    std::string printed;
    for (int64_t q : c.q) printed += std::to_string(q) + "\n";
    printed += "sum_quality:" + std::to_string(static_cast<int64_t>(c.figure)) + "\n";
    std::vector<int64_t> results(16, -7);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(calc_quality_with_sub_o2(c.frame.data(), results.data(),
                                       c.frame.geometry().height, c.frame.geometry().width),
              c.figure);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), printed);
    EXPECT_EQ(results, c.results);
  }
}

}  // namespace
}  // namespace qlis::test

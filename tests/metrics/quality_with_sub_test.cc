#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "feature/feature_frames.h"
#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

Geometry unpadded(int32_t height, int32_t width) {
  return {height, width, width * 10 / 8};
}

// The squared-gradient metric at distance 1 from its definition: half-rows
// and groups, far edges pulled in one sample wider than needed.
int32_t reference_metric(const uint8_t *f, const int32_t *rect, int32_t height,
                         int32_t width) {
  const int64_t pitch = int64_t{width} * 10 / 8;
  int32_t t0 = rect[0] >> 1, t1 = rect[1] >> 1;
  int32_t g0 = rect[2] >> 2, g1 = rect[3] >> 2;
  if ((height >> 1) <= t1 + 1) t1 = (height >> 1) - 2;
  if ((width >> 2) <= g1 + 1) g1 = (width >> 2) - 2;
  if (t1 <= t0 || g1 <= g0) return -1;
  uint32_t sum = 0;
  for (int64_t t = t0; t < t1; ++t) {
    for (int64_t k = g0; k < g1; ++k) {
      const uint8_t *c = f + 2 * t * pitch + 5 * k + 4;
      const int32_t dh = c[5] - c[0], dv = c[2 * pitch] - c[0];
      sum += static_cast<uint32_t>(dh * dh + dv * dv);
    }
  }
  return static_cast<int32_t>(sum);
}

// The 8 x 8 grid: block b at rects[4 b], top, bottom, left, right.
std::vector<int32_t> grid_rects(const Geometry &g) {
  const int32_t hb = g.height >> 3, wb = g.width >> 3;
  std::vector<int32_t> rects;
  for (int32_t b = 0; b < 64; ++b) {
    const int32_t i = b / 8, j = b % 8;
    rects.insert(rects.end(), {i * hb, (i + 1) * hb, j * wb, (j + 1) * wb});
  }
  return rects;
}

int32_t reference_block(const PackedFrame &f, int32_t b) {
  const Geometry &g = f.geometry();
  return reference_metric(f.data(), &grid_rects(g)[4 * b], g.height, g.width);
}

// (wr * wc * q) modulo 2^32 as a signed value, / 400 toward zero.
int64_t reference_weighted(int32_t q, int32_t b) {
  const uint64_t w = kBlockWeight[b / 8] * kBlockWeight[b % 8];
  return static_cast<int32_t>(static_cast<uint32_t>(w) *
                              static_cast<uint32_t>(q)) / 400;
}

uint64_t threaded_figure(const PackedFrame &f) {
  return calc_quality_with_sub(f.data(), f.geometry().height,
                               f.geometry().width);
}

// 64 weighted blocks folded with (Q / 64 - (S / 64)^2) / 10000 * S, and the
// trace of four threads created and joined.
TEST(QualityWithSub, FourThreadsMatchASingleThreadedReference) {
  uint32_t seed = 11;
  for (const Geometry &g : {unpadded(64, 64), unpadded(100, 136),
                            unpadded(30, 44), unpadded(600, 804)}) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const PackedFrame f(g, Noise{++seed});
    uint64_t weighted[64];
    uint64_t sum = 0;
    for (int32_t b = 0; b < 64; ++b) {
      weighted[b] = static_cast<uint64_t>(
          reference_weighted(reference_block(f, b), b));
      sum += weighted[b];
    }
    std::vector<std::string> want = {"Vrel_pthread_true"};
    for (int k = 0; k < 4; ++k) {
      want.push_back("QLFD_quality_pthread, creat " + std::to_string(k) + " ok");
    }
    for (int k = 0; k < 4; ++k) {
      want.push_back("QLFD, multi:thread\\[" + std::to_string(k) +
                     "\\] qbox mean func join ok! id=-?[0-9]+");
    }
    want.push_back("Vrel_quality_pthread_time:[0-9]+\\.[0-9]{6} result_" +
                   std::to_string(static_cast<int64_t>(sum)));
    want.push_back("Vrel_valid_num:64");

    LogCapture log;
    EXPECT_EQ(threaded_figure(f), spread_times_sum(weighted));
    EXPECT_TRUE(log.texts("QLIS-E").empty());
    const std::vector<std::string> lines = log.texts("QLIS_ALGO");
    ASSERT_EQ(lines.size(), want.size());
    for (size_t n = 0; n < want.size(); ++n) {
      EXPECT_TRUE(std::regex_match(lines[n], std::regex(want[n]))) << lines[n];
    }
  }
  EXPECT_EQ(threaded_figure(PackedFrame(unpadded(64, 64), uint8_t{93})), 0u);
}

// A spike of 100 among zeros adds 2 x 100^2 as a sample and 100^2 to its
// left and upper neighbours: 40,000 in the one block of 4 half-rows by 2
// groups that holds all three, weighted 1 in the corner, 16 in the centre.
// The right-hand blocks are pulled in to nothing: -1, weighted to 0.
TEST(QualityWithSub, CentreBlocksWeighSixteenTimesTheCorners) {
  // S = 1600: (2,560,000 / 64 - 25^2) / 10000 * 1600 = 3 * 1600; S = 100
  // leaves a spread below 10000.
  const struct {
    int32_t t, k, block;
    int64_t value;
    uint64_t figure;
  } spikes[] = {{1, 1, 0, 100, 0}, {13, 7, 27, 1600, 4800}};
  const Geometry g = unpadded(64, 64);
  const std::vector<int32_t> rects = grid_rects(g);
  const std::vector<uint8_t> mask(64, 1);
  for (const auto &s : spikes) {
    PackedFrame f(g, uint8_t{0});
    f.set(s.t, s.k, 100);
    std::vector<int64_t> results(64, -7);
    EXPECT_EQ(calc_quality_with_sub_inner(f.data(), 0, 8, rects.data(),
                                          results.data(), mask.data(), 8, 8,
                                          64, 64),
              1);
    for (int32_t b = 0; b < 64; ++b) {
      EXPECT_EQ(results[b], b == s.block ? s.value : 0) << b;
    }
    EXPECT_EQ(threaded_figure(f), s.figure);
  }
}

// quality_pthread measures rows first_row .. end_row - 1, blocks whose mask
// byte is exactly 1, all 8 columns whatever the grid fields say. The
// 264 x 528 checkerboard measures -2,097,122,296, which weight 1 makes
// -5,242,805 (toward zero) and weight 16 (805,781,632 modulo 2^32)
// 2,014,454.
TEST(QualityWithSub, WorkerMeasuresItsMaskedRowsWithWrappedWeights) {
  PackedFrame f(unpadded(264, 528), uint8_t{0});
  f.samples(checker_0_255);
  std::vector<int32_t> rects;  // the whole frame, but block 26 is empty
  for (int b = 0; b < 64; ++b) rects.insert(rects.end(), {0, 264, 0, 528});
  rects[4 * 26 + 1] = 0;
  std::vector<uint8_t> mask(64, 1);
  mask[5] = mask[25] = 0;
  mask[28] = 2;
  std::vector<int64_t> results(64, -7);
  QualityThreadRecord record{{},           f.data(), 0, 1, rects.data(),
                             results.data(), mask.data(), 1, 2, 264, 528};
  EXPECT_EQ(quality_pthread(&record), nullptr);
  record.first_row = 3;
  record.end_row = 4;
  EXPECT_EQ(quality_pthread(&record), nullptr);
  for (int32_t b = 0; b < 64; ++b) {
    const bool measured = (b < 8 || (b >= 24 && b < 32)) && mask[b] == 1;
    const int64_t want = b == 26 ? 0 : reference_weighted(-2097122296, b);
    EXPECT_EQ(results[b], measured ? want : -7) << b;
  }
  EXPECT_EQ(results[0], -5242805);
  EXPECT_EQ(results[27], 2014454);
}

// The 16 central blocks unweighted, printed one per line, then the figure
// (Q / 16 - (S / 16)^2) * S; results[k] becomes 1 where block k + 1
// measured lower as unsigned 64-bit values, results[15] keeps its value.
// The 16 x 16 frame has empty (-1) central blocks; the large one a
// checkerboard block that wraps negative, so unsigned the largest.
TEST(QualityWithSubO2, PrintsCentralBlocksAndKeepsNeighbourComparisons) {
  std::vector<PackedFrame> frames;
  frames.emplace_back(unpadded(64, 64), Noise{41});
  frames.emplace_back(unpadded(240, 320), Noise{42});
  frames.emplace_back(unpadded(16, 16), Noise{43});
  PackedFrame &wrap = frames.emplace_back(unpadded(2944, 2944), uint8_t{0});
  for (int32_t t = 2 * 184; t < 3 * 184; ++t) {  // block (2, 3)
    for (int32_t k = 3 * 92; k < 4 * 92; ++k) wrap.set(t, k, checker_0_255(t, k));
  }
  for (const PackedFrame &f : frames) {
    SCOPED_TRACE(::testing::Message() << f.geometry().width);
    std::vector<int64_t> q;
    std::string printed;
    uint64_t sum = 0, squares = 0;
    for (int32_t b = 0; b < 64; ++b) {
      if (b / 8 < 2 || b / 8 > 5 || b % 8 < 2 || b % 8 > 5) continue;
      q.push_back(reference_block(f, b));
      printed += std::to_string(q.back()) + "\n";
      sum += static_cast<uint64_t>(q.back());
      squares += static_cast<uint64_t>(q.back() * q.back());
    }
    const uint64_t figure = (squares / 16 - (sum / 16) * (sum / 16)) * sum;
    printed += "sum_quality:" + std::to_string(static_cast<int64_t>(figure)) + "\n";
    if (&f == &wrap) {
      ASSERT_LT(q[1], 0);
    }

    std::vector<int64_t> results(16, -7);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(calc_quality_with_sub_o2(f.data(), results.data(),
                                       f.geometry().height, f.geometry().width),
              figure);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), printed);
    for (int k = 0; k < 15; ++k) {
      const bool lower = static_cast<uint64_t>(q[k + 1]) < static_cast<uint64_t>(q[k]);
      EXPECT_EQ(results[k], lower ? 1 : 0) << k;
    }
    EXPECT_EQ(results[15], q[15]);
  }
}

}  // namespace
}  // namespace qlis::test

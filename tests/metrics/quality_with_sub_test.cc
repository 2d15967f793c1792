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

// The squared-gradient metric at distance 1 written out from its
// definition: half-rows and groups, far edges pulled in one sample wider
// than the neighbours need.
int32_t reference_metric(const uint8_t *f, int32_t top, int32_t bottom,
                         int32_t left, int32_t right, int32_t height,
                         int32_t width) {
  const int64_t pitch = int64_t{width} * 10 / 8;
  int32_t t0 = top >> 1, t1 = bottom >> 1, g0 = left >> 2, g1 = right >> 2;
  if ((height >> 1) <= t1 + 1) t1 = (height >> 1) - 2;
  if (t1 <= t0) return -1;
  if ((width >> 2) <= g1 + 1) g1 = (width >> 2) - 2;
  if (g1 <= g0) return -1;
  uint32_t sum = 0;
  for (int64_t t = t0; t < t1; ++t) {
    for (int64_t k = g0; k < g1; ++k) {
      const uint8_t *c = f + 2 * t * pitch + 5 * k + 4;
      const int32_t dh = c[5] - c[0];
      const int32_t dv = c[2 * pitch] - c[0];
      sum += static_cast<uint32_t>(dh * dh + dv * dv);
    }
  }
  return static_cast<int32_t>(sum);
}

// The 8 x 8 grid: block (i, j) at rects[32 i + 4 j].
std::vector<int32_t> grid_rects(const Geometry &g) {
  const int32_t hb = g.height >> 3, wb = g.width >> 3;
  std::vector<int32_t> rects;
  for (int32_t i = 0; i < 8; ++i) {
    for (int32_t j = 0; j < 8; ++j) {
      rects.insert(rects.end(), {i * hb, (i + 1) * hb, j * wb, (j + 1) * wb});
    }
  }
  return rects;
}

int32_t reference_block(const PackedFrame &f, int32_t block) {
  const Geometry &g = f.geometry();
  const std::vector<int32_t> r = grid_rects(g);
  const int32_t *b = &r[4 * block];
  return reference_metric(f.data(), b[0], b[1], b[2], b[3], g.height,
                          g.width);
}

// (wr * wc * q) modulo 2^32 as a signed value, / 400 toward zero.
int64_t reference_weighted(int32_t q, int32_t block) {
  const uint64_t w = kBlockWeight[block / 8] * kBlockWeight[block % 8];
  return static_cast<int32_t>(static_cast<uint32_t>(w) *
                              static_cast<uint32_t>(q)) / 400;
}

uint64_t threaded_figure(const PackedFrame &f) {
  return calc_quality_with_sub(f.data(), f.geometry().height,
                               f.geometry().width);
}

// The 64 weighted blocks, folded with the mean and mean square over 64
// blocks and the spread divided by 10000.
TEST(QualityWithSub, FourThreadsMatchASingleThreadedReference) {
  const Geometry kFrames[] = {unpadded(64, 64), unpadded(100, 136),
                              unpadded(30, 44), unpadded(240, 320),
                              unpadded(600, 804)};
  uint32_t seed = 11;
  for (const Geometry &g : kFrames) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const PackedFrame f(g, Noise{++seed});
    uint64_t weighted[64];
    for (int32_t b = 0; b < 64; ++b) {
      weighted[b] = static_cast<uint64_t>(
          reference_weighted(reference_block(f, b), b));
    }
    uint64_t sum = 0;
    for (const uint64_t w : weighted) sum += w;

    LogCapture log;
    EXPECT_EQ(threaded_figure(f), spread_times_sum(weighted));
    EXPECT_TRUE(log.texts("QLIS-E").empty());
    const std::vector<std::string> lines = log.texts("QLIS_ALGO");
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[0], "Vrel_pthread_true");
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(lines[1 + k],
                "QLFD_quality_pthread, creat " + std::to_string(k) + " ok");
      EXPECT_TRUE(std::regex_match(
          lines[5 + k],
          std::regex("QLFD, multi:thread\\[" + std::to_string(k) +
                     "\\] qbox mean func join ok! id=-?[0-9]+")))
          << lines[5 + k];
    }
    EXPECT_TRUE(std::regex_match(
        lines[9], std::regex("Vrel_quality_pthread_time:[0-9]+\\.[0-9]{6} "
                             "result_" +
                             std::to_string(static_cast<int64_t>(sum)))))
        << lines[9];
    EXPECT_EQ(lines[10], "Vrel_valid_num:64");
  }
  const PackedFrame flat(unpadded(64, 64), uint8_t{93});
  EXPECT_EQ(threaded_figure(flat), 0u);
}

// One spike of 100 in a frame of zeros adds 2 x 100^2 as a sample and
// 100^2 to its left and upper neighbours: 40,000 for the one block that
// holds all three, weighted 1 in the corner and 16 in the centre.
TEST(QualityWithSub, CentreBlocksWeighSixteenTimesTheCorners) {
  struct Spike {
    int32_t t, k, block;
    int64_t value;
    uint64_t figure;
  };
  // 64 x 64: blocks of 4 half-rows by 2 groups. S = 1600: (2,560,000 / 64
  // - 25^2) / 10000 * 1600 = 3 * 1600. S = 100 leaves a spread below
  // 10000.
  const Spike spikes[] = {{1, 1, 0, 100, 0}, {13, 7, 27, 1600, 4800}};
  const Geometry g = unpadded(64, 64);
  const std::vector<int32_t> rects = grid_rects(g);
  std::vector<uint8_t> mask(64, 1);
  for (const Spike &s : spikes) {
    PackedFrame f(g, uint8_t{0});
    f.set(s.t, s.k, 100);
    std::vector<int64_t> results(64, -7);
    EXPECT_EQ(calc_quality_with_sub_inner(f.data(), 0, 8, rects.data(),
                                          results.data(), mask.data(), 8, 8,
                                          64, 64),
              1);
    for (int32_t b = 0; b < 64; ++b) {
      // The right-hand blocks (groups 14..15) are pulled in to nothing:
      // -1, weighted to 0.
      EXPECT_EQ(results[b], b == s.block ? s.value : 0) << b;
    }
    EXPECT_EQ(threaded_figure(f), s.figure);
  }
}

// quality_pthread passes its record on: rows first_row .. end_row - 1,
// blocks whose mask byte is exactly 1, all 8 columns whatever the grid
// fields say. A wrapped metric is weighted modulo 2^32 and divided toward
// zero: the 264 x 528 checkerboard measures -2,097,122,296, which weight 1
// makes -5,242,805 and weight 16 (modulo 2^32: 805,781,632) 2,014,454.
TEST(QualityWithSub, WorkerMeasuresItsMaskedRowsWithWrappedWeights) {
  const Geometry g = unpadded(264, 528);
  PackedFrame f(g, uint8_t{0});
  f.samples(checker_0_255);
  // Every block is the whole frame, except block 26, which is empty.
  std::vector<int32_t> rects;
  for (int b = 0; b < 64; ++b) rects.insert(rects.end(), {0, 264, 0, 528});
  rects[4 * 26 + 1] = 0;
  std::vector<uint8_t> mask(64, 1);
  mask[25] = 0;
  mask[28] = 2;
  mask[5] = 0;
  std::vector<int64_t> results(64, -7);
  QualityThreadRecord record{};
  record.frame = f.data();
  record.first_row = 0;
  record.end_row = 4;
  record.rects = rects.data();
  record.results = results.data();
  record.mask = mask.data();
  record.grid_rows = 1;
  record.grid_cols = 2;
  record.height = g.height;
  record.width = g.width;
  for (const auto &rows : {std::pair{0, 1}, std::pair{3, 4}}) {
    record.first_row = rows.first;
    record.end_row = rows.second;
    EXPECT_EQ(quality_pthread(&record), nullptr);
  }
  const int32_t q = -2097122296;
  for (int32_t b = 0; b < 64; ++b) {
    const bool measured =
        (b < 8 || (b >= 24 && b < 32)) && b != 5 && b != 25 && b != 28;
    const int64_t want = b == 26 ? 0 : reference_weighted(q, b);
    EXPECT_EQ(results[b], measured ? want : -7) << b;
  }
  EXPECT_EQ(results[0], -5242805);
  EXPECT_EQ(results[27], 2014454);
}

struct PrintedFigure {
  std::string printed;
  std::vector<int64_t> results;
  uint64_t figure;
};

PrintedFigure run_o2(const PackedFrame &f) {
  PrintedFigure out{{}, std::vector<int64_t>(16, -7), 0};
  ::testing::internal::CaptureStdout();
  out.figure = calc_quality_with_sub_o2(f.data(), out.results.data(),
                                        f.geometry().height,
                                        f.geometry().width);
  out.printed = ::testing::internal::GetCapturedStdout();
  return out;
}

// The 16 central blocks unweighted, printed one per line; the results then
// hold 1 where the next block measured lower as unsigned 64-bit values,
// and the last block's value. The figure is (Q / 16 - (S / 16)^2) * S.
TEST(QualityWithSubO2, PrintsCentralBlocksAndKeepsNeighbourComparisons) {
  const Geometry kFrames[] = {unpadded(64, 64), unpadded(240, 320),
                              unpadded(16, 16)};
  uint32_t seed = 40;
  for (const Geometry &g : kFrames) {
    SCOPED_TRACE(::testing::Message() << g.height << "x" << g.width);
    const PackedFrame f(g, Noise{++seed});
    std::vector<int64_t> q;
    std::string printed;
    uint64_t sum = 0, squares = 0;
    for (int32_t i = 2; i < 6; ++i) {
      for (int32_t j = 2; j < 6; ++j) {
        q.push_back(reference_block(f, 8 * i + j));
        printed += std::to_string(q.back()) + "\n";
        sum += static_cast<uint64_t>(q.back());
        squares += static_cast<uint64_t>(q.back() * q.back());
      }
    }
    const uint64_t mean = sum / 16;
    const uint64_t figure = (squares / 16 - mean * mean) * sum;
    printed += "sum_quality:" + std::to_string(static_cast<int64_t>(figure)) + "\n";

    const PrintedFigure got = run_o2(f);
    EXPECT_EQ(got.printed, printed);
    EXPECT_EQ(got.figure, figure);
    for (int k = 0; k < 15; ++k) {
      const bool lower = static_cast<uint64_t>(q[k + 1]) <
                         static_cast<uint64_t>(q[k]);
      EXPECT_EQ(got.results[k], lower ? 1 : 0) << k;
    }
    EXPECT_EQ(got.results[15], q[15]);
  }
}

// A central block of 0/255 checkerboard large enough to wrap negative: as
// unsigned it is the largest value, so it is not below the block before
// it, and the (flat) block after it is below it.
TEST(QualityWithSubO2, WrappedBlockComparesAsUnsigned) {
  const Geometry g = unpadded(2944, 2944);  // blocks of 184 x 92 samples
  PackedFrame f(g, uint8_t{0});
  for (int32_t t = 2 * 184; t < 3 * 184; ++t) {
    for (int32_t k = 3 * 92; k < 4 * 92; ++k) f.set(t, k, checker_0_255(t, k));
  }
  const int32_t wrapped = reference_block(f, 8 * 2 + 3);
  ASSERT_LT(wrapped, 0);
  const PrintedFigure got = run_o2(f);
  EXPECT_EQ(got.results[0], 0);
  EXPECT_EQ(got.results[1], 1);
  const std::string line = std::to_string(wrapped);
  EXPECT_EQ(got.printed.substr(got.printed.find('\n') + 1, line.size()), line);
}

}  // namespace
}  // namespace qlis::test

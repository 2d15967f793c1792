#include "feature/low_light_block.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <ostream>
#include <random>
#include <vector>

#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis {
namespace {

using test::Geometry;
using test::set_raw10_sample;
using Extractor = int64_t (*)(const LowLightBlockOutputs &,
                              const LowLightBlockArgs &);

constexpr double kUntouched = 7.5;

struct Rect {
  int32_t row_begin, row_end, col_begin, col_end;
};

void PrintTo(const Rect &r, std::ostream *os) {
  *os << "rows " << r.row_begin << ".." << r.row_end << " cols " << r.col_begin
      << ".." << r.col_end;
}

// The extractor's outputs, preset to a value no computation produces.
struct Results {
  double mean = kUntouched;
  double dev = kUntouched;
  double cv = kUntouched;
  double bright = kUntouched;
  double dark = kUntouched;
  DiffHistogram hist = {};

  LowLightBlockOutputs outputs() {
    return {&mean, &dev, &cv, &bright, &dark, &hist};
  }
};

// A frame on a page-end buffer with every byte set to `fill`.
struct Frame {
  Frame(Geometry g, uint8_t fill)
      : geometry(g),
        buffer(static_cast<size_t>(g.height) * static_cast<size_t>(g.stride)) {
    std::memset(buffer.data(), fill, buffer.size());
  }
  void set(int32_t i, int32_t g, uint8_t v) {
    set_raw10_sample(buffer.data(), geometry.stride, i, g, v);
  }
  LowLightBlockArgs args(Rect r, int32_t dist = 1, int32_t stats_flag = 1,
                         int32_t gradient_flag = 1) const {
    return {buffer.data(),   r.row_begin, r.row_end,       r.col_begin,
            r.col_end,       dist,        geometry.height, geometry.width,
            geometry.stride, stats_flag,  gradient_flag};
  }
  Geometry geometry;
  test::PageEndBuffer buffer;
};

// One of the twin kernels, printed by name in test names.
struct Twin {
  const char *name;
  Extractor fn;
  int64_t operator()(const LowLightBlockOutputs &out,
                     const LowLightBlockArgs &args) const {
    return fn(out, args);
  }
};

void PrintTo(const Twin &t, std::ostream *os) { *os << t.name; }

std::vector<Twin> extractors() {
  std::vector<Twin> all = {{"portable", &portable::low_light_block_features}};
#if QLIS_HAVE_NEON
  all.push_back({"neon", &neon::low_light_block_features});
#endif
  return all;
}

class LowLightBlock : public ::testing::TestWithParam<Twin> {};
INSTANTIATE_TEST_SUITE_P(Twins, LowLightBlock,
                         ::testing::ValuesIn(extractors()));

// Two visited samples, each with its right and lower neighbour:
//   s(0,0) = 10,  s(0,1) = 230, s(0,2) = 5
//   s(2,0) = 200, s(2,1) = 0
// Differences |h - s|, |v - s|, |h - v|: 220, 190, 30 and 225, 230, 5.
TEST_P(LowLightBlock, CountsDifferencesAndStatisticsOfHandBuiltSamples) {
  Frame f({12, 16, 20}, 0);
  f.set(0, 0, 10);
  f.set(0, 1, 230);
  f.set(0, 2, 5);
  f.set(2, 0, 200);
  f.set(2, 1, 0);
  f.set(1, 0, 99);  // unvisited row pair
  Results r;
  EXPECT_EQ(GetParam()(r.outputs(), f.args({0, 4, 0, 8})), 0);
  DiffHistogram want = {};
  for (int bin : {220, 190, 30, 225, 230, 5}) want.count[bin] = 1;
  EXPECT_EQ(std::memcmp(&r.hist, &want, sizeof(want)), 0);
  EXPECT_EQ(r.mean, 120.0);
  EXPECT_EQ(r.dev, (53000.0 - 14400.0) * 2.0);  // sumsq 100 + 52900
  EXPECT_EQ(r.cv, std::sqrt(26500.0 - 14400.0) / 120.0);
  EXPECT_EQ(r.bright, 0.5);
  EXPECT_EQ(r.dark, 0.5);
}

// With dist 2 the neighbours are two groups right and four row pairs down:
// s = 10, 230; h = 40, 100; v = 0, 255.
TEST_P(LowLightBlock, DistanceTwoReachesTwoGroupsRightAndFourRowPairsDown) {
  Frame f({10, 20, 25}, 0);
  f.set(0, 0, 10);
  f.set(0, 1, 230);
  f.set(0, 2, 40);
  f.set(0, 3, 100);
  f.set(4, 0, 0);
  f.set(4, 1, 255);
  f.set(2, 0, 77);  // the dist 1 neighbours must not be read
  f.set(2, 1, 77);
  Results r;
  EXPECT_EQ(GetParam()(r.outputs(), f.args({0, 4, 0, 8}, 2, 0, 1)), 0);
  DiffHistogram want = {};
  for (int bin : {30, 10, 40, 130, 25, 155}) want.count[bin] = 1;
  EXPECT_EQ(std::memcmp(&r.hist, &want, sizeof(want)), 0);
}

struct FlatCase {
  Rect rect;
  uint8_t value;
  int32_t samples;  // visited samples, counted by hand
  double bright;
  double dark;
};

void PrintTo(const FlatCase &c, std::ostream *os) {
  PrintTo(c.rect, os);
  *os << " value " << int{c.value};
}

class LowLightFlatBlock
    : public ::testing::TestWithParam<std::tuple<Twin, FlatCase>> {};

// A flat block: three zero differences per visited sample, deviation
// (N k^2 - k^2) N rather than 0, and the fractions by the value's range.
TEST_P(LowLightFlatBlock, PutsThreeCountsPerSampleInBinZero) {
  const auto [extract, c] = GetParam();
  Frame f({32, 64, 80}, c.value);  // 16 row pairs, 16 groups
  Results r;
  r.hist.count[0] = 5;
  r.hist.count[1] = 9;
  EXPECT_EQ(extract(r.outputs(), f.args(c.rect)), 0);
  EXPECT_EQ(r.hist.count[0], 5 + 3 * c.samples);
  EXPECT_EQ(r.hist.count[1], 9);
  const double n = c.samples;
  const double k2 = static_cast<double>(c.value) * c.value;
  EXPECT_EQ(r.mean, c.value);
  EXPECT_EQ(r.dev, (n * k2 - k2) * n);
  if (c.value == 0) {
    EXPECT_TRUE(std::isnan(r.cv));  // 0 / 0
  } else {
    EXPECT_EQ(r.cv, 0.0);
  }
  EXPECT_EQ(r.bright, c.bright);
  EXPECT_EQ(r.dark, c.dark);
}

INSTANTIATE_TEST_SUITE_P(
    ValuesAndEdges, LowLightFlatBlock,
    ::testing::Combine(::testing::ValuesIn(extractors()),
                       ::testing::Values(
                           // Row pairs 0, 2, 4, 6 of 0..7; groups 0..7.
                           FlatCase{{0, 16, 0, 32}, 77, 32, 0.0, 0.0},
                           FlatCase{{0, 16, 0, 32}, 0, 32, 0.0, 1.0},
                           FlatCase{{0, 16, 0, 32}, 59, 32, 0.0, 1.0},
                           FlatCase{{0, 16, 0, 32}, 60, 32, 0.0, 0.0},
                           FlatCase{{0, 16, 0, 32}, 195, 32, 0.0, 0.0},
                           FlatCase{{0, 16, 0, 32}, 196, 32, 1.0, 0.0},
                           FlatCase{{0, 16, 0, 32}, 255, 32, 1.0, 0.0},
                           // At the bottom right the wider clamp leaves row
                           // pairs 8..13 (visited 8, 10, 12) and groups 8..13.
                           FlatCase{{16, 32, 32, 64}, 100, 18, 0.0, 0.0})));

struct RowCase {
  Rect rect;
  std::vector<int32_t> visited;  // row pairs, by hand
};

void PrintTo(const RowCase &c, std::ostream *os) { PrintTo(c.rect, os); }

class LowLightRows
    : public ::testing::TestWithParam<std::tuple<Twin, RowCase>> {};

// Row pair i holds 10 + i everywhere, so each visited sample adds one zero
// difference (right) and two of 2 (down, and right against down), and the
// mean tells which row pairs were visited.
TEST_P(LowLightRows, VisitsEverySecondRowPairAndCountsAnOddLastOne) {
  const auto [extract, c] = GetParam();
  Frame f({40, 32, 40}, 0);  // 20 row pairs, 8 groups
  for (int32_t i = 0; i < 20; ++i) {
    for (int32_t g = 0; g < 8; ++g) f.set(i, g, static_cast<uint8_t>(10 + i));
  }
  Results r;
  EXPECT_EQ(extract(r.outputs(), f.args(c.rect)), 0);
  const int32_t groups = 4;
  const int32_t n = groups * static_cast<int32_t>(c.visited.size());
  EXPECT_EQ(r.hist.count[0], n);
  EXPECT_EQ(r.hist.count[2], 2 * n);
  double sum = 0.0;
  double sumsq = 0.0;
  for (int32_t i : c.visited) {
    sum += groups * (10.0 + i);
    sumsq += groups * (10.0 + i) * (10.0 + i);
  }
  const double mean = sum / n;
  EXPECT_EQ(r.mean, mean);
  EXPECT_EQ(r.dev, (sumsq - mean * mean) * n);
  EXPECT_EQ(r.cv, std::sqrt(sumsq / n - mean * mean) / mean);
}

INSTANTIATE_TEST_SUITE_P(
    RowPairs, LowLightRows,
    ::testing::Combine(::testing::ValuesIn(extractors()),
                       ::testing::Values(RowCase{{0, 2, 0, 16}, {0}},
                                         RowCase{{0, 3, 0, 16}, {0}},
                                         RowCase{{0, 6, 0, 16}, {0, 2}},
                                         RowCase{{2, 10, 0, 16}, {1, 3}},
                                         RowCase{{3, 11, 0, 16}, {1, 3}},
                                         RowCase{{0, 13, 0, 16}, {0, 2, 4}},
                                         RowCase{{0, 14, 0, 16}, {0, 2, 4, 6}},
                                         RowCase{{6, 8, 3, 19}, {3}})));

// Empty rectangles: only the mean and deviation are zeroed, the histogram
// and the other outputs keep their values, and null mean and deviation
// outputs are accepted.
TEST_P(LowLightBlock, EmptyBlockReturnsMinusOneAndZeroesOnlyMeanAndDeviation) {
  Frame f({32, 64, 80}, 50);
  const Rect empty[] = {
      {8, 8, 0, 32},    // no rows
      {0, 16, 20, 22},  // groups 5..5
      {0, 16, 56, 64},  // groups 14..16 clamped to 14..14
      {30, 40, 0, 32},  // row pairs 15..20 clamped to 15..14
  };
  for (const Rect &rect : empty) {
    Results r;
    r.hist.count[0] = 3;
    const DiffHistogram before = r.hist;
    EXPECT_EQ(GetParam()(r.outputs(), f.args(rect)), -1);
    EXPECT_EQ(r.mean, 0.0);
    EXPECT_EQ(r.dev, 0.0);
    EXPECT_EQ(r.cv, kUntouched);
    EXPECT_EQ(r.bright, kUntouched);
    EXPECT_EQ(r.dark, kUntouched);
    EXPECT_EQ(std::memcmp(&r.hist, &before, sizeof(before)), 0);
    LowLightBlockOutputs no_mean = r.outputs();
    no_mean.mean = nullptr;
    no_mean.deviation = nullptr;
    EXPECT_EQ(GetParam()(no_mean, f.args(rect)), -1);
  }
  Frame tiny({2, 4, 5}, 50);  // smaller than any neighbour
  Results r;
  EXPECT_EQ(GetParam()(r.outputs(), tiny.args({0, 2, 0, 4})), -1);
}

// Statistics run only for stats_flag 1 and differences only for
// gradient_flag 1; the fractions are zeroed whatever the pair.
TEST_P(LowLightBlock, FlagPairsSelectStatisticsAndDifferences) {
  Frame f({32, 64, 80}, 200);
  const int32_t pairs[][2] = {{1, 1}, {1, 0}, {0, 1}, {0, 0}, {2, 1}, {1, 2}};
  for (const auto &p : pairs) {
    SCOPED_TRACE(::testing::Message() << p[0] << "," << p[1]);
    Results r;
    EXPECT_EQ(GetParam()(r.outputs(), f.args({0, 16, 0, 32}, 1, p[0], p[1])),
              0);
    const bool stats = p[0] == 1;
    EXPECT_EQ(r.mean, stats ? 200.0 : 0.0);
    EXPECT_EQ(r.dev, stats ? (32.0 * 40000.0 - 40000.0) * 32.0 : 0.0);
    EXPECT_EQ(r.cv, stats ? 0.0 : kUntouched);
    EXPECT_EQ(r.bright, stats ? 1.0 : 0.0);
    EXPECT_EQ(r.dark, 0.0);
    EXPECT_EQ(r.hist.count[0], p[1] == 1 ? 96 : 0);
  }
}

TEST_P(LowLightBlock, DifferenceCountsWrapAtThirtyTwoBits) {
  Frame f({32, 64, 80}, 9);
  Results r;
  r.hist.count[0] = INT32_MAX;
  EXPECT_EQ(GetParam()(r.outputs(), f.args({0, 16, 0, 32}, 1, 0, 1)), 0);
  EXPECT_EQ(r.hist.count[0], INT32_MIN + 95);  // 96 counts added
}

#if QLIS_HAVE_NEON
void expect_twins_agree(const LowLightBlockArgs &args, uint32_t seed) {
  Results a;
  std::mt19937 engine(seed);
  for (int32_t &c : a.hist.count) c = static_cast<int32_t>(engine());
  Results b = a;
  const int64_t ra = portable::low_light_block_features(a.outputs(), args);
  const int64_t rb = neon::low_light_block_features(b.outputs(), args);
  EXPECT_EQ(ra, rb);
  // Whole records by bit pattern, so that NaN matches NaN.
  EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0);
}

// Random rectangles and flag pairs over awkward geometries, page-end
// buffers, and rows wide enough for several spans of the NEON kernel.
TEST(LowLightBlockTwins, NeonMatchesPortableOnRandomBlocks) {
  std::vector<Geometry> geometries = test::awkward_raw10_geometries();
  geometries.push_back({20, 8400, 10500});
  geometries.push_back({12, 4100, 5200});
  const int32_t flags[][2] = {{1, 1}, {1, 0}, {0, 1}, {0, 0}, {2, 1}};
  uint32_t seed = 1;
  for (const Geometry &g : geometries) {
    test::RandomFrame frame(g, seed++);
    std::mt19937 engine(seed);
    const auto pick = [&](int32_t hi) {
      return std::uniform_int_distribution<int32_t>(0, hi)(engine);
    };
    for (int trial = 0; trial < 40; ++trial) {
      const int32_t rb = pick(g.height);
      const int32_t cb = pick(g.width);
      const auto &f = flags[trial % 5];
      const LowLightBlockArgs args{frame.data(),
                                   rb,
                                   rb + pick(g.height + 8),
                                   cb,
                                   cb + pick(g.width + 16),
                                   1,
                                   g.height,
                                   g.width,
                                   g.stride,
                                   f[0],
                                   f[1]};
      SCOPED_TRACE(::testing::Message()
                   << g.height << "x" << g.width << " rows " << args.row_begin
                   << ".." << args.row_end << " cols " << args.col_begin << ".."
                   << args.col_end);
      expect_twins_agree(args, seed + trial);
    }
  }
}

// Extreme flat blocks fill the narrow vector lanes fastest: a block of many
// rows must be flushed in time to keep its sums exact.
TEST(LowLightBlockTwins, NeonMatchesPortableOnExtremeFlatBlocks) {
  for (uint8_t value : {0, 59, 196, 255}) {
    Frame f({1030, 1024, 1280}, value);
    for (int32_t gradient = 0; gradient <= 1; ++gradient) {
      SCOPED_TRACE(::testing::Message() << int{value} << " " << gradient);
      expect_twins_agree(f.args({0, 1030, 0, 1024}, 1, 1, gradient), value);
    }
  }
}

// Larger distances read 2 dist row pairs down: the frame holds the
// dist - 1 row pairs below its last row that callers must provide.
TEST(LowLightBlockTwins, NeonMatchesPortableForLargerDistances) {
  for (int32_t dist : {2, 3, 7, 64, 65}) {
    const Geometry g{360, 1300, 1700};
    test::RandomFrame frame({g.height + 2 * (dist - 1), g.width, g.stride},
                            static_cast<uint32_t>(dist));
    for (const Rect &rect :
         {Rect{0, 360, 0, 1300}, Rect{6, 50, 8, 90}, Rect{33, 97, 400, 1290}}) {
      SCOPED_TRACE(::testing::Message()
                   << "dist " << dist << " rows " << rect.row_begin << " cols "
                   << rect.col_begin);
      for (int32_t stats = 0; stats <= 1; ++stats) {
        expect_twins_agree(
            {frame.data(), rect.row_begin, rect.row_end, rect.col_begin,
             rect.col_end, dist, g.height, g.width, g.stride, stats, 1},
            static_cast<uint32_t>(dist));
      }
    }
  }
}
#endif

}  // namespace
}  // namespace qlis

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "feature/feature_frames.h"
#include "support/host_hooks.h"

namespace qlis {
namespace {

using test::Geometry;
using test::PackedFrame;

class FeatureVsBase : public ::testing::Test {
 protected:
  void SetUp() override { sccount = 0; }
  void TearDown() override { sccount = 0; }

  static int32_t compare(const PackedFrame &f, double *score,
                         BlockFeatureSet *base) {
    const Geometry &g = f.geometry();
    return calc_feature_with_base_image(f.data(), score, base, g.height,
                                        g.width, g.stride);
  }
};

// A base made from the frame itself: no change, so sccount rises; the
// first two calls refresh the base with the frame's statistics set, from
// the third on the base is cleared and the score zeroed; the cleared base
// has level 0, so the next call reports a change and refreshes it.
TEST_F(FeatureVsBase, UnchangedCallsRefreshTwiceThenClearUntilAChange) {
  const PackedFrame f({64, 128, 160}, test::Noise{9});
  BlockFeatureSet own{};
  calc_feature_quality_with_sub(&own, 1, f.data(), 64, 128, 160);
  BlockFeatureSet base = own;
  const struct {
    int32_t result, count;
    bool cleared;
  } calls[] = {{3, 1, false}, {3, 2, false}, {3, 3, true}, {4, 0, false},
               {3, 1, false}, {3, 2, false}, {3, 3, true}};
  for (const auto &c : calls) {
    SCOPED_TRACE(&c - calls);
    double score = 7.0;  // written only when the base is cleared
    EXPECT_EQ(compare(f, &score, &base), c.result);
    EXPECT_EQ(sccount, c.count);
    EXPECT_EQ(score, c.cleared ? 0.0 : 7.0);
    EXPECT_TRUE(test::same_bytes(base, c.cleared ? BlockFeatureSet{} : own));
  }
}

// Flat frames against a base refreshed from a flat frame, preset to
// whole-block sums of 2.7 (which truncate to 2 and give differences of -2),
// or made from the frame's own sums moved by -a on block 0 and +b on
// block 2 (a squared difference of a^2 + b^2). Checkerboard sample counts
// after the clamp, by hand: 64 x 128 has 25 blocks of 16, 6 of 8 and 1 of
// 4 (level 452 v, squared difference 6800 d^2, a dark base: a change
// beyond 1000 times the level); 2048 x 1024 has 25 of 4096, 3 of 4032,
// 3 of 3840 and 1 of 3780: level 129796 v, 22,065,320 for v = 170, moved
// to just at and just above the 22,000,000 cut, with squared differences
// between 1000 and 1001 times the level, between 6500 and 6501 times, or
// between 1000 and 6500 times.
TEST_F(FeatureVsBase, ChangeThresholdScalesWithTheTruncatedBaseLevel) {
  const Geometry small{64, 128, 160}, large{2048, 1024, 1280};
  const struct {
    Geometry g;
    int base;  // a frame value, -1 for sums of 2.7, -2 for the moved frame
    uint8_t frame;
    int a, b;
    const char *iso0, *iso2;
    int32_t result;
  } cases[] = {{small, 100, 181, 0, 0, "45200", "44614800", 3},
               {small, 100, 182, 0, 0, "45200", "45723200", 4},
               {small, 100, 18, 0, 0, "45200", "45723200", 4},
               {small, -1, 0, 0, 0, "128", "256", 3},
               {large, -2, 170, 132327, 67007, "22000000", "22000372978", 4},
               {large, -2, 170, 298053, 232734, "22000001", "143000705565", 4},
               {large, -2, 170, 132326, 67007, "22000001", "22000108325", 3}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.g.height << " " << int{c.frame} << " " << c.a);
    const PackedFrame frame(c.g, c.frame);
    BlockFeatureSet base{};
    double score = 0.0;
    if (c.base == -1) {
      for (BlockFeature &b : base.block) b.sample_sum = 2.7;
    } else if (c.base == -2) {
      calc_feature_quality_with_sub(&base, 1, frame.data(), c.g.height, c.g.width,
                                    c.g.stride);
      base.block[0].sample_sum -= c.a;
      base.block[2].sample_sum += c.b;
    } else {
      EXPECT_EQ(compare(PackedFrame(c.g, static_cast<uint8_t>(c.base)), &score,
                        &base),
                4);
    }
    test::LogCapture log;
    EXPECT_EQ(compare(frame, &score, &base), c.result);
    EXPECT_EQ(log.texts("QLIS-I").at(1), std::string("\nondasi feature iso0 ") +
                                             c.iso0 + " \nondasi iso2 " +
                                             c.iso2);
  }
}

// A change from an empty base, then no change: every line of both calls in
// order at priority 6, elapsed milliseconds by pattern.
TEST_F(FeatureVsBase, TracesEveryCallWithTheDriversLinesAndItsOwn) {
  const PackedFrame f({64, 128, 160}, 100);
  BlockFeatureSet base{};
  double score = 0.0;
  test::LogCapture log;
  EXPECT_EQ(compare(f, &score, &base), 4);
  EXPECT_EQ(compare(f, &score, &base), 3);
  const std::string algo = "QLIS_ALGO", ms = "-?[0-9]+\\.[0-9]{6}";
  std::vector<std::pair<std::string, std::string>> want;
  for (const char *iso :
       {"0 \nondasi iso2 68000000", "45200 \nondasi iso2 0"}) {
    const bool changed = iso[0] == '0';
    want.insert(
        want.end(),
        {{algo, "Vrel_calc_feature_quality_with_sub_start"},
         {algo, "Vrel_valid_num:0"},
         {algo, "Vrel_feature_valid_num_64"},
         {"QLIS-I", "feature calc1:" + ms},
         {"QLIS-I", std::string("\nondasi feature iso0 ") + iso},
         {algo, changed ? "feature sccount 1 0" : "feature sccount 0 1"},
         {algo, "feature cal2:" + ms}});
  }
  const std::vector<test::LogLine> lines = log.lines();
  ASSERT_EQ(lines.size(), want.size());
  for (size_t k = 0; k < want.size(); ++k) {
    EXPECT_TRUE(lines[k].priority == 6 && lines[k].tag == want[k].first &&
                std::regex_match(lines[k].text, std::regex(want[k].second)))
        << k << ": " << lines[k].tag << " " << lines[k].text;
  }
}

}  // namespace
}  // namespace qlis

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

bool same_set(const BlockFeatureSet &a, const BlockFeatureSet &b) {
  for (int k = 0; k < 64; ++k) {
    if (!test::same_fields(a.block[k], b.block[k])) return false;
  }
  return true;
}

// A base made from the frame itself: no change, so sccount rises; the
// first two calls refresh the base with the frame's statistics set, from
// the third on the base is cleared and the score zeroed; the cleared base
// then has level 0, so the next call reports a change and refreshes it.
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
    const int64_t call = &c - calls;
    double score = 7.0;  // written only when the base is cleared
    EXPECT_EQ(compare(f, &score, &base), c.result) << call;
    EXPECT_EQ(sccount, c.count) << call;
    EXPECT_EQ(score, c.cleared ? 0.0 : 7.0) << call;
    EXPECT_TRUE(same_set(base, c.cleared ? BlockFeatureSet{} : own)) << call;
  }
}

// Flat frames against a base refreshed from a flat frame; d is the
// difference of the two values. Checkerboard sample counts after the
// clamp, by hand: 64 x 128 has 25 blocks of 16, 6 of 8 and 1 of 4 (level
// 452 v, squared difference 6800 d^2, a dark base: 1000 times the level);
// 2048 x 1024 has 25 of 4096, 3 of 4032, 3 of 3840 and 1 of 3780 (level
// 129796 v above 22000000, squared difference 526726672 d^2, 6500 times).
TEST_F(FeatureVsBase, ChangeThresholdScalesWithTheBaseLevel) {
  const Geometry small{64, 128, 160}, large{2048, 1024, 1280};
  const struct {
    Geometry g;
    uint8_t base, frame;
    const char *iso0, *iso2;
    int32_t result;
  } cases[] = {{small, 100, 181, "45200", "44614800", 3},
               {small, 100, 182, "45200", "45723200", 4},
               {small, 100, 18, "45200", "45723200", 4},
               // 1000 times the level would call this a change.
               {large, 200, 210, "25959200", "52672667200", 3},
               {large, 200, 217, "25959200", "152224008208", 3},
               {large, 200, 218, "25959200", "170659441728", 4}};
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.g.height << " " << int{c.frame});
    BlockFeatureSet base{};
    double score = 0.0;
    EXPECT_EQ(compare(PackedFrame(c.g, c.base), &score, &base), 4);
    test::LogCapture log;
    EXPECT_EQ(compare(PackedFrame(c.g, c.frame), &score, &base), c.result);
    const std::vector<std::string> info = log.texts("QLIS-I");
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info[1], std::string("\nondasi feature iso0 ") + c.iso0 +
                           " \nondasi iso2 " + c.iso2);
  }
}

// Block sums of a caller's base need not be whole: the base sums and the
// differences are truncated toward zero before they are added and squared.
TEST_F(FeatureVsBase, TruncatesBaseSumsAndDifferencesTowardZero) {
  BlockFeatureSet base{};
  for (BlockFeature &b : base.block) b.sample_sum = 2.7;
  double score = 0.0;
  test::LogCapture log;
  EXPECT_EQ(compare(PackedFrame({64, 128, 160}, 0), &score, &base), 3);
  EXPECT_EQ(log.texts("QLIS-I").at(1),
            "\nondasi feature iso0 128 \nondasi iso2 256");
}

// A change from an empty base, then no change: every line of both calls
// in order, priority 6, the elapsed milliseconds by pattern.
TEST_F(FeatureVsBase, TracesEveryCallWithTheDriversLinesAndItsOwn) {
  const PackedFrame f({64, 128, 160}, 100);
  BlockFeatureSet base{};
  double score = 0.0;
  test::LogCapture log;
  EXPECT_EQ(compare(f, &score, &base), 4);
  EXPECT_EQ(compare(f, &score, &base), 3);
  const std::string ms = "-?[0-9]+\\.[0-9]{6}";
  const std::vector<std::pair<std::string, std::string>> driver = {
      {"QLIS_ALGO", "Vrel_calc_feature_quality_with_sub_start"},
      {"QLIS_ALGO", "Vrel_valid_num:0"},
      {"QLIS_ALGO", "Vrel_feature_valid_num_64"},
      {"QLIS-I", "feature calc1:" + ms}};
  std::vector<std::pair<std::string, std::string>> want = driver;
  want.insert(want.end(),
              {{"QLIS-I", "\nondasi feature iso0 0 \nondasi iso2 68000000"},
               {"QLIS_ALGO", "feature sccount 1 0"},
               {"QLIS_ALGO", "feature cal2:" + ms}});
  want.insert(want.end(), driver.begin(), driver.end());
  want.insert(want.end(),
              {{"QLIS-I", "\nondasi feature iso0 45200 \nondasi iso2 0"},
               {"QLIS_ALGO", "feature sccount 0 1"},
               {"QLIS_ALGO", "feature cal2:" + ms}});
  const std::vector<test::LogLine> lines = log.lines();
  ASSERT_EQ(lines.size(), want.size());
  for (size_t k = 0; k < want.size(); ++k) {
    EXPECT_EQ(lines[k].priority, 6);
    EXPECT_EQ(lines[k].tag, want[k].first) << k;
    EXPECT_TRUE(std::regex_match(lines[k].text, std::regex(want[k].second)))
        << k << ": " << lines[k].text;
  }
}

}  // namespace
}  // namespace qlis

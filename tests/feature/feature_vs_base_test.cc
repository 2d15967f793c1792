#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "feature/feature_frames.h"
#include "support/host_hooks.h"

namespace qlis::test {
namespace {

int32_t compare(const PackedFrame &f, double *score, BlockFeatureSet *base) {
  const Geometry &g = f.geometry();
  return calc_feature_with_base_image(f.data(), score, base, g.height, g.width,
                                      g.stride);
}

// From an empty base a change; then no change, so sccount rises: the first
// two such calls refresh the base with the frame's statistics set, the
// third clears it and zeroes the score, and the cleared base (level 0)
// makes the next call a change. Every call traces the driver's lines and
// its own in order at priority 6, elapsed milliseconds by pattern.
TEST(FeatureVsBase, UnchangedCallsRefreshTwiceThenClearUntilAChange) {
  const PackedFrame f({64, 128, 160}, Noise{9});
  BlockFeatureSet own{}, base{};
  calc_feature_quality_with_sub(&own, 1, f.data(), 64, 128, 160);
  const struct {
    int32_t result, count;
  } calls[] = {{4, 0}, {3, 1}, {3, 2}, {3, 3}, {4, 0}, {3, 1}, {3, 2}, {3, 3}};
  const std::string ms = "-?[0-9]+\\.[0-9]{6}\\|";
  for (const auto &c : calls) {
    SCOPED_TRACE(&c - calls);
    double score = 7.0;  // written only when the base is cleared
    LogCapture log;
    EXPECT_EQ(compare(f, &score, &base), c.result);
    EXPECT_EQ(sccount, c.count);
    EXPECT_EQ(score, c.count == 3 ? 0.0 : 7.0);
    EXPECT_TRUE(same_bytes(base, c.count == 3 ? BlockFeatureSet{} : own));
    std::string trace;
    for (const LogLine &l : log.lines()) {
      trace += std::to_string(l.priority) + l.tag + " " + l.text + "|";
    }
    EXPECT_TRUE(std::regex_match(
        trace, std::regex("6QLIS_ALGO Vrel_calc_feature_quality_with_sub_start"
                          "\\|6QLIS_ALGO Vrel_valid_num:0\\|6QLIS_ALGO "
                          "Vrel_feature_valid_num_64\\|6QLIS-I feature calc1:" +
                          ms +
                          "6QLIS-I \nondasi feature iso0 [0-9]+ "
                          "\nondasi iso2 [0-9]+\\|6QLIS_ALGO feature sccount " +
                          std::to_string(c.result - 3) + " " +
                          std::to_string(c.count) +
                          "\\|6QLIS_ALGO feature cal2:" + ms)))
        << trace;
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
TEST(FeatureVsBase, ChangeThresholdScalesWithTheTruncatedBaseLevel) {
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
    SCOPED_TRACE(&c - cases);
    const PackedFrame frame(c.g, c.frame);
    BlockFeatureSet base{};
    double score = 0.0;
    if (c.base == -1) {
      for (BlockFeature &b : base.block) b.sample_sum = 2.7;
    } else {  // from an empty base: a change, so the base is refreshed
      compare(PackedFrame(c.g, uint8_t(c.base < 0 ? c.frame : c.base)), &score,
              &base);
      base.block[0].sample_sum -= c.a;
      base.block[2].sample_sum += c.b;
    }
    LogCapture log;
    EXPECT_EQ(compare(frame, &score, &base), c.result);
    EXPECT_EQ(log.texts("QLIS-I").at(1), std::string("\nondasi feature iso0 ") +
                                             c.iso0 + " \nondasi iso2 " +
                                             c.iso2);
  }
}

}  // namespace
}  // namespace qlis::test

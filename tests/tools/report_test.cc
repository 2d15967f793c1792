// The demo and its report: the demo's decisions against the stream's ground
// truth, and the self-contained page with the pictures written beside it,
// as headless Chromium renders it.
#include <algorithm>
#include <map>
#include <set>

#include "demo.h"
#include "report.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using namespace qlis::test;

class DemoDecisions : public testing::TestWithParam<uint64_t> {};

// What the library should get right on a hand-held stream, over several
// streams: it keeps one of the least blurred preview frames, it replaces a
// capture shaken far more than that, and it names the burst's least and
// most blurred frames (their smears lie several pixels apart).
TEST_P(DemoDecisions, AgreeWithTheGroundTruth) {
  DemoOptions options;
  options.seed = GetParam();
  options.width = 640, options.height = 480, options.frames = 12;
  const DemoReport r = run_demo(coffee(), "coffee.png", options);
  ASSERT_EQ(r.frames.size(), 12u);
  for (size_t i = 0; i < r.frames.size(); ++i) EXPECT_TRUE(r.frames[i].record.evaluated) << i;
  ASSERT_GE(r.kept_index, 0);
  EXPECT_LE(r.frames[static_cast<size_t>(r.kept_index)].truth.sharpness_rank, 3);
  EXPECT_GE(r.capture.truth.blur_length_px, 9.0);
  EXPECT_EQ(std::make_tuple(r.capture.record.status, r.capture.record.verdict, r.capture.record.replaced),
            std::make_tuple(0, 3, true));
  // The host got the kept frame back in place of its capture.
  EXPECT_EQ(r.capture.after.pixels, r.kept_preview.pixels);
  const auto less = [](const FrameTruth &a, const FrameTruth &b) { return a.blur_length_px < b.blur_length_px; };
  const std::vector<FrameTruth> &t = r.burst.truth;
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(r.burst.record.best_id, std::min_element(t.begin(), t.end(), less) - t.begin());
  EXPECT_EQ(r.burst.record.replace_id, std::max_element(t.begin(), t.end(), less) - t.begin());
  const std::string kept = "kept in bufmax: frame " + std::to_string(r.kept_index) + ",";  // what the user reads
  EXPECT_TRUE(std::any_of(r.account.begin(), r.account.end(), [&](const std::string &l) { return l.find(kept) == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Seeds, DemoDecisions, testing::Values(1, 2, 3));

// The page a user mails around: nothing fetched, every picture embedded
// as the PNG written beside it. Rendered by Debian's browser, only decoded
// pictures put thousands of pixels in the kept frame's outline colour
// (the page's colour keys bring a few hundred) and thousands of distinct
// colours on the screen (text on a plain page brings a few hundred).
TEST(ReportPage, IsSelfContainedAndRendersWithItsPictures) {
  for (const auto &[in, out] : std::map<std::string, std::string>{{"f", "Zg=="}, {"fo", "Zm8="}, {"\xff\xfe", "//4="}})
    EXPECT_EQ(base64(std::vector<uint8_t>(in.begin(), in.end())), out);
  ScopedFsRoot work;
  const ToolRun demo = run_tool(work.path(), "demo --frames 12 --out report");
  ASSERT_EQ(demo.status, 0) << demo.err;
  EXPECT_NE(demo.out.find("seed 1\n"), std::string::npos);  // the default stream
  const std::string dir = work.path() + "/report/", html = slurp(dir + kReportPage);
  // ':' and '"' are outside the base64 alphabet: no false hits in the data.
  for (const char *outside : {"http:", "https:", "src=\"file", "<script"}) EXPECT_EQ(html.find(outside), html.npos);
  for (const char *id : {"contact-sheet", "score-chart", "kept-frame", "heatmap", "capture-before", "capture-after",
                         "burst-before", "burst-after"}) {
    const std::string png = slurp(dir + id + ".png");
    EXPECT_NE(html.find("id=\"" + std::string(id) + "\" src=\"data:image/png;base64," +
                        base64(std::vector<uint8_t>(png.begin(), png.end())) + "\""), std::string::npos) << id;
  }
  // A session that kept nothing still gets a whole page: grey tiles for the
  // pictures never made, a blank strip for the burst never taken.
  write_report(DemoReport{}, work.path());
  EXPECT_EQ(read_png_rgb(work.path() + "/kept-frame.png").rgb, blank_rgb(160, 120, {220, 220, 220}).rgb);
  EXPECT_EQ(read_png_rgb(work.path() + "/burst-before.png").rgb, blank_rgb(1, 1, {255, 255, 255}).rgb);

  const std::string chromium = "/usr/bin/chromium", shot = work.path() + "/shot.png";
  if (!std::filesystem::exists(chromium)) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh --tests)";
  // A profile of its own, so that parallel runs do not share one.
  ASSERT_EQ(std::system((q(chromium) + " --headless --no-sandbox --disable-gpu --no-first-run --hide-scrollbars "
                         "--disable-background-networking --user-data-dir=" + q(work.path() + "/profile") +
                         " --screenshot=" + q(shot) + " --window-size=1280,4200 " + q("file://" + dir + kReportPage) +
                         " >/dev/null 2>&1").c_str()), 0);
  const RgbImage screen = read_png_rgb(shot);
  std::set<uint32_t> colours;
  size_t kept = 0;
  for (size_t i = 0; i + 2 < screen.rgb.size(); i += 3) {
    colours.insert(uint32_t{screen.rgb[i]} << 16 | uint32_t{screen.rgb[i + 1]} << 8 | screen.rgb[i + 2]);
    kept += screen.rgb[i] == kKeptColour.r && screen.rgb[i + 1] == kKeptColour.g && screen.rgb[i + 2] == kKeptColour.b;
  }
  EXPECT_GT(kept, 3000u);
  EXPECT_GT(colours.size(), 2000u);
}

}  // namespace

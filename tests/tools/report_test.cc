// The reports, the demo's and a replay's: the demo's decisions on its
// default stream, a replay of frames in the packing the library cannot
// read, and the self-contained pages with the pictures written beside
// them, as headless Chromium renders them.
#include "report.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using namespace qlis::test;

// The page a user mails around: nothing fetched, every picture embedded
// as the PNG written beside it. Rendered by Debian's browser, only decoded
// pictures put thousands of pixels in the kept frame's outline colour (the
// page's colour keys bring a few hundred).
void expect_self_contained(const std::string &work, const std::string &dir, const std::vector<std::string> &ids) {
  const std::string html = slurp(dir + kReportPage);
  // ':' and '"' are outside the base64 alphabet: no false hits in the data.
  for (const char *outside : {"http:", "https:", "src=\"file", "<script"}) EXPECT_EQ(html.find(outside), html.npos);
  for (const std::string &id : ids) {
    const std::string png = slurp(dir + id + ".png");
    EXPECT_NE(html.find("id=\"" + id + "\" src=\"data:image/png;base64," +
                        base64(std::vector<uint8_t>(png.begin(), png.end())) + "\""), std::string::npos) << id;
  }
  const std::string chromium = "/usr/bin/chromium", shot = work + "/shot.png";
  if (!std::filesystem::exists(chromium)) return;  // the callers skip, saying why
  // A profile of its own, so that parallel runs do not share one.
  ASSERT_EQ(std::system((q(chromium) + " --headless --no-sandbox --disable-gpu --no-first-run --hide-scrollbars "
                         "--disable-background-networking --user-data-dir=" + q(work + "/profile") +
                         " --screenshot=" + q(shot) + " --window-size=1280,4200 " + q("file://" + dir + kReportPage) +
                         " >/dev/null 2>&1").c_str()), 0);
  const std::vector<uint8_t> px = read_png_rgb(shot).rgb;
  size_t kept = 0;
  for (size_t i = 0; i + 2 < px.size(); i += 3)
    kept += px[i] == kKeptColour.r && px[i + 1] == kKeptColour.g && px[i + 2] == kKeptColour.b;
  EXPECT_GT(kept, 3000u) << dir;
}

const char *const kNoBrowser = "chromium is not installed (scripts/install-deps.sh --tests)";

TEST(ReportPage, DemoIsSelfContainedAndRendersWithItsPictures) {
  EXPECT_EQ(base64({'f'}) + base64({'f', 'o'}) + base64({0xff, 0xfe}), "Zg==Zm8=//4=");  // padding, '/'
  ScopedFsRoot work;
  const ToolRun demo = run_tool(work.path(), "demo --frames 12 --out report");
  ASSERT_EQ(demo.status, 0) << demo.err;
  // Seed 1 by default. Frame 5 (0.1 px, second sharpest) is kept and replaces
  // the capture (10.4 px); of the burst's smears 4.2, 7.4, 10.0 and 1.0 px the
  // fourth is the best and the third the worst.
  for (const char *decision : {"seed 1\n", "12 evaluated", "kept in bufmax: frame 5, blur 0.1 px, sharpness rank 2",
                               "verdict 3, replaced by the kept frame 5", "bestId 3, replaceId 2, no frame"})
    EXPECT_NE(demo.out.find(decision), std::string::npos) << decision;
  const std::string dir = work.path() + "/report/";
  // The host got the kept frame back in place of its capture.
  EXPECT_EQ(slurp(dir + "capture-after.png"), slurp(dir + "kept-frame.png"));
  expect_self_contained(work.path(), dir, {"contact-sheet", "score-chart", "rank-chart", "kept-frame", "heatmap",
                                           "capture-before", "capture-after", "burst-before", "burst-after"});
  // A session that kept nothing still gets a whole page: grey tiles for the
  // pictures never made, a blank strip for a burst of no frames.
  SessionReport empty;
  empty.burst.emplace();
  write_report(empty, work.path());
  EXPECT_EQ(read_png_rgb(work.path() + "/kept-frame.png").rgb, blank_rgb(160, 120, {220, 220, 220}).rgb);
  EXPECT_EQ(read_png_rgb(work.path() + "/burst-before.png").rgb, blank_rgb(1, 1, {255, 255, 255}).rgb);
  if (!std::filesystem::exists("/usr/bin/chromium")) GTEST_SKIP() << kNoBrowser;
}

// Frames whose sampled byte is noise: told once on standard error, in the
// JSON and on the page, and the run goes on. The manifest synth wrote
// beside them joins its truth to each frame.
TEST(ReportPage, ReplayOfMipiFramesSaysSoAndRendersWithItsPictures) {
  ScopedFsRoot work;
  ASSERT_EQ(run_tool(work.path(), "synth --packing mipi --width 320 --height 240 --frames 4 --out m").status, 0);
  const ToolRun r = run_tool(work.path(), "replay --json m --burst " + q("m/320X240_stride400_fmt15_index 1.yuv") +
                                              " " + q("m/320X240_stride400_fmt15_index 2.yuv") + " --report r");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.err.rfind("qlis: warning: in 6 of 6 RAW10 frames", 0) == 0 && r.err.find('\n') == r.err.size() - 1 &&
              r.err.find("the sampled byte holds the low bits; repack") != std::string::npos) << r.err;
  const nlohmann::json doc = nlohmann::json::parse(r.out), manifest = nlohmann::json::parse(slurp(work.path() + "/m/manifest.json"));
  EXPECT_EQ(doc["raw10_packing"]["finding"], "low bits");
  EXPECT_EQ(doc["summary"]["evaluated"], 4);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(doc["frames"][i]["truth"]["sharpness_rank"], manifest["frames"][i]["sharpness_rank"]) << i;
    EXPECT_GT(doc["frames"][i]["laplacian_variance"].get<double>(), 0.0);
  }
  const std::string dir = work.path() + "/r/";
  EXPECT_EQ(doc["report"], dir + kReportPage);
  EXPECT_NE(slurp(dir + kReportPage).find("low bits in 6 of 6 RAW10 frames: the library's decisions"), std::string::npos);
  expect_self_contained(work.path(), dir, {"contact-sheet", "score-chart", "rank-chart", "kept-frame", "heatmap",
                                           "burst-before", "burst-after"});
  if (!std::filesystem::exists("/usr/bin/chromium")) GTEST_SKIP() << kNoBrowser;
}

}  // namespace

// The demo and its report: the demo's decisions on its default stream, and
// the self-contained page with the pictures written beside it, as headless
// Chromium renders it.
#include "report.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using namespace qlis::test;

// The page a user mails around: nothing fetched, every picture embedded
// as the PNG written beside it. Rendered by Debian's browser, only decoded
// pictures put thousands of pixels in the kept frame's outline colour (the
// page's colour keys bring a few hundred).
TEST(ReportPage, IsSelfContainedAndRendersWithItsPictures) {
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
  const std::string dir = work.path() + "/report/", html = slurp(dir + kReportPage);
  // The host got the kept frame back in place of its capture.
  EXPECT_EQ(slurp(dir + "capture-after.png"), slurp(dir + "kept-frame.png"));
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
  const std::vector<uint8_t> px = read_png_rgb(shot).rgb;
  size_t kept = 0;
  for (size_t i = 0; i + 2 < px.size(); i += 3)
    kept += px[i] == kKeptColour.r && px[i + 1] == kKeptColour.g && px[i + 2] == kKeptColour.b;
  EXPECT_GT(kept, 3000u);
}

}  // namespace

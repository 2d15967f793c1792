// The demo's report as a person sees it: `qlis demo` writes it, headless
// Chromium renders it, and the rendered page must show every part with its
// pictures decoded.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "png_image.h"
#include "report.h"
#include "support/host_hooks.h"

namespace {

namespace fs = std::filesystem;
using namespace qlis::tool;

std::string slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int run(const std::string &command) {
  const int raw = std::system(command.c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// Debian's browser, found on the PATH.
std::string find_chromium() {
  const char *path = std::getenv("PATH");
  std::istringstream dirs(path ? path : "");
  for (std::string dir; std::getline(dirs, dir, ':');) {
    const fs::path candidate = fs::path(dir) / "chromium";
    std::error_code ec;
    if (!dir.empty() && fs::is_regular_file(candidate, ec)) return candidate;
  }
  return "";
}

constexpr int kWindowWidth = 1280;
constexpr int kWindowHeight = 4200;

TEST(ReportInBrowser, RendersEveryPartWithItsPicturesDecoded) {
  const std::string chromium = find_chromium();
  if (chromium.empty()) {
    GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh "
                    "--tests installs it)";
  }
  qlis::test::ScopedFsRoot work;
  const std::string out = work.path() + "/report";
  ASSERT_EQ(
      run(std::string("'") + QLIS_TOOL_EXE + "' demo --frames 12 --out '" +
          out + "' >'" + work.path() + "/stdout' 2>&1"),
      0)
      << slurp(work.path() + "/stdout");
  const std::string page = out + "/report.html";
  ASSERT_TRUE(fs::exists(page));

  // A profile of its own, so that parallel runs do not share one.
  const std::string browser =
      "'" + chromium +
      "' --headless --no-sandbox --disable-gpu --no-first-run "
      "--disable-background-networking --hide-scrollbars --user-data-dir='" +
      work.path() + "/profile' ";
  const std::string url = "'file://" + page + "'";
  ASSERT_EQ(run(browser + "--dump-dom " + url + " >'" + work.path() +
                "/dom.html' 2>/dev/null"),
            0);
  const std::string dom = slurp(work.path() + "/dom.html");
  for (const char *id :
       {"contact-sheet", "score-chart", "kept-frame", "heatmap",
        "capture-before", "capture-after", "burst-before", "burst-after"}) {
    EXPECT_NE(dom.find("<img id=\"" + std::string(id) +
                       "\" src=\"data:image/png;base64,"),
              std::string::npos)
        << id;
  }
  for (const char *id : {"capture-decision", "burst", "frames", "account"})
    EXPECT_NE(dom.find("id=\"" + std::string(id) + "\""), std::string::npos)
        << id;
  size_t rows = 0;
  for (size_t at = dom.find("<tr class="); at != std::string::npos;
       at = dom.find("<tr class=", at + 1))
    ++rows;
  EXPECT_EQ(rows, 12u);

  const std::string shot = work.path() + "/screenshot.png";
  ASSERT_EQ(run(browser + "--screenshot='" + shot +
                "' --window-size=" + std::to_string(kWindowWidth) + "," +
                std::to_string(kWindowHeight) + " " + url + " >/dev/null 2>&1"),
            0);
  const RgbImage screen = read_png_rgb(shot);
  ASSERT_EQ(screen.width, kWindowWidth);
  // Only decoded pictures can put these on the screen: the kept frame's
  // outline (contact sheet, burst strips, chart marker) covers thousands of
  // pixels, the page's own colour keys a few hundred; photographs, the
  // chart and the heatmap bring thousands of distinct colours, while text
  // on a plain page brings a few hundred at most.
  size_t kept = 0;
  std::set<uint32_t> colours;
  std::vector<size_t> inked_rows;  // per row: pixels darker than the page
  for (size_t i = 0; i + 2 < screen.rgb.size(); i += 3) {
    const uint8_t *p = screen.rgb.data() + i;
    kept +=
        p[0] == kKeptColour.r && p[1] == kKeptColour.g && p[2] == kKeptColour.b;
    colours.insert(uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2]);
    const size_t row = i / 3 / static_cast<size_t>(screen.width);
    if (inked_rows.size() <= row) inked_rows.resize(row + 1);
    if (p[0] < 230 || p[1] < 230 || p[2] < 230) ++inked_rows[row];
  }
  EXPECT_GT(kept, 3000u);
  EXPECT_GT(colours.size(), 2000u);
  // No stretch of the page is empty: every quarter of its rendered height
  // carries ink.
  size_t end = inked_rows.size();
  while (end > 0 && inked_rows[end - 1] == 0) --end;
  ASSERT_GT(end, 2000u);
  for (size_t q = 0; q < 4; ++q) {
    size_t ink = 0;
    for (size_t row = end * q / 4; row < end * (q + 1) / 4; ++row)
      ink += inked_rows[row];
    EXPECT_GT(ink, end / 4 * 100) << "quarter " << q;
  }
}

}  // namespace

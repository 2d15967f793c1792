// The demo and its report: the demo's decisions against the stream's ground
// truth, the report's pictures (previews, the library's watermark, contact
// sheet, chart, block heatmap), the self-contained page, and that page as
// headless Chromium renders it.
#include <cstring>
#include <set>

#include "demo.h"
#include "heatmap.h"
#include "report.h"
#include "tool_test.h"

namespace {

using namespace qlis::tool;
using qlis::test::slurp;

bool same(const RgbImage &image, int32_t x, int32_t y, Rgb c) {
  const uint8_t *p = image.rgb.data() + (static_cast<size_t>(y) * image.width + x) * 3;
  return p[0] == c.r && p[1] == c.g && p[2] == c.b;
}

size_t count_colour(const RgbImage &image, Rgb c) {
  size_t n = 0;
  for (int32_t i = 0; i < image.width * image.height; ++i) n += same(image, i, 0, c);
  return n;
}

GreyImage flat_grey(int32_t w, int32_t h, uint8_t v) { return {w, h, std::vector<uint8_t>(size_t(w) * h, v)}; }

// A packed RAW10 frame with code `code(x, y)` at every pixel.
std::vector<uint8_t> raw10(const FrameDesc &d, const std::function<int(int32_t, int32_t)> &code) {
  std::vector<uint8_t> bytes(static_cast<size_t>(d.height) * d.stride);
  std::vector<uint16_t> row(static_cast<size_t>(d.width));
  for (int32_t y = 0; y < d.height; ++y) {
    for (int32_t x = 0; x < d.width; ++x) row[static_cast<size_t>(x)] = static_cast<uint16_t>(code(x, y));
    pack_raw10(row.data(), static_cast<size_t>(d.width / 4), bytes.data() + static_cast<size_t>(y) * d.stride);
  }
  return bytes;
}

class DemoDecisions : public testing::TestWithParam<uint64_t> {};

// What the library should get right on a hand-held stream, over several
// streams: it keeps one of the least blurred preview frames, it replaces a
// capture shaken far more than that, and it names the burst's least and
// most blurred frames (their smears lie several pixels apart).
TEST_P(DemoDecisions, AgreeWithTheGroundTruth) {
  DemoOptions options;
  options.seed = GetParam();
  options.width = 640, options.height = 480, options.frames = 12;
  const DemoReport r = run_demo(qlis::test::coffee(), "coffee.png", options);
  ASSERT_EQ(r.frames.size(), 12u);
  for (size_t i = 0; i < r.frames.size(); ++i) EXPECT_TRUE(r.frames[i].record.evaluated) << i;
  EXPECT_EQ(r.frames[11].record.name, "frame 11");
  ASSERT_GE(r.kept_index, 0);
  EXPECT_LE(r.frames[static_cast<size_t>(r.kept_index)].truth.sharpness_rank, 3);
  EXPECT_GE(r.capture.truth.blur_length_px, 9.0);
  EXPECT_EQ(std::make_pair(r.capture.record.status, r.capture.record.verdict), std::make_pair(0, 3));
  EXPECT_TRUE(r.capture.record.replaced);
  // The host got the kept frame back in place of its capture.
  EXPECT_EQ(r.capture.after.pixels, r.kept_preview.pixels);
  EXPECT_NE(r.capture.before.pixels, r.capture.after.pixels);
  const auto less = [](const FrameTruth &a, const FrameTruth &b) { return a.blur_length_px < b.blur_length_px; };
  const std::vector<FrameTruth> &t = r.burst.truth;
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(r.burst.record.best_id, std::min_element(t.begin(), t.end(), less) - t.begin());
  EXPECT_EQ(r.burst.record.replace_id, std::max_element(t.begin(), t.end(), less) - t.begin());
  // The account tells the same story: the packing, each new best against
  // the base it beat, and the kept frame.
  std::string account;
  for (const std::string &line : r.account) {
    account += line + "\n";
    int i = -1;
    if (std::sscanf(line.c_str(), "  frame %d:", &i) != 1 || i < 1) continue;
    char base[64];
    std::snprintf(base, sizeof base, "against the base's %.4f", r.frames[i - 1].record.base_clarity);
    EXPECT_NE(line.find(base), std::string::npos) << line;
  }
  EXPECT_NE(account.find("byte 4 = high 8 bits of pixel 3"), std::string::npos);
  EXPECT_NE(account.find("kept in bufmax: frame " + std::to_string(r.kept_index)), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DemoDecisions, testing::Values(1, 2, 3));

TEST(ReportPicture, PreviewsDevelopBlackToZeroAndWhiteToFull) {
  const FrameDesc d{kFormatRaw10, 64, 32, 84};  // padded stride
  const GreyImage grey = develop_grey(d, raw10(d, [](int32_t x, int32_t) { return x < 32 ? 64 : 1023; }), 4);
  ASSERT_EQ(std::make_pair(grey.width, grey.height), std::make_pair(16, 8));
  for (int32_t y = 0; y < grey.height; ++y)  // the black level is no light, the white level full
    EXPECT_EQ(std::vector<uint8_t>(grey.pixels.begin() + y * 16, grey.pixels.begin() + y * 16 + 16),
              std::vector<uint8_t>({0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255}));
  // Codes below the black level are no light, not negative light.
  EXPECT_EQ(develop_grey(d, raw10(d, [](int32_t x, int32_t) { return x < 32 ? 0 : 10; }), 2).pixels[0], 0);
  EXPECT_THROW(develop_grey(d, std::vector<uint8_t>(32 * 84), 3), ToolError);  // whole Bayer quads only
  std::vector<uint8_t> plane(32, 10);
  plane[0] = 50;  // luma: block (0, 0) averages 10, 10, 10, 50 to 20
  EXPECT_EQ(develop_grey({13, 8, 4, 8}, plane, 2).pixels, std::vector<uint8_t>({20, 10, 10, 10, 10, 10, 10, 10}));
}

ReportFrame frame(int32_t index, double reblur, bool kept, bool low) {
  ReportFrame f;
  f.record.index = index;
  f.record.evaluated = f.record.handed_over = true;
  f.record.kept = kept;
  f.record.low_light = low;
  f.record.reblur = f.record.base_clarity = reblur;
  f.thumb = flat_grey(40, 30, static_cast<uint8_t>(60 + 10 * index));
  return f;
}

TEST(ReportPicture, ContactSheetAndChartMarkTheKeptFrame) {
  // Scores a few per cent apart, as frames of one scene are; frame 5 was
  // handed over but never judged.
  std::vector<ReportFrame> frames = {frame(0, 1.010, true, false), frame(1, 1.005, false, true),
                                     frame(2, 1.015, true, false), frame(3, 1.020, false, false),
                                     frame(4, 1.002, false, true), frame(5, 1.030, false, false)};
  frames[5].record.evaluated = false;
  const RgbImage sheet = render_contact_sheet(frames, 2, 3);
  EXPECT_EQ(std::make_pair(sheet.width, sheet.height), std::make_pair(3 * 48 + 8, 2 * 38 + 8));
  // Frame 2 (third column) is outlined as kept all round, frame 0 as a
  // former best; frame 1 is not outlined and the sheet shows beside it.
  EXPECT_TRUE(same(sheet, 2 * 48 + 6, 4, kKeptColour) && same(sheet, 3 * 48 + 2, 40, kKeptColour));
  EXPECT_TRUE(same(sheet, 6, 6, kBestColour) && !same(sheet, 48 + 6, 6, kBestColour));
  EXPECT_TRUE(same(sheet, 2 * 48, 20, {245, 245, 245}));
  // Each number is stamped by the library's watermark on a black box one
  // cell wider than the text all round ("1": 9 cells, 11 x 10 at scale 1).
  EXPECT_TRUE(same(sheet, 56 + 10, 8 + 9, {0, 0, 0}) && same(sheet, 56 + 11, 8 + 9, {70, 70, 70}));
  EXPECT_EQ(count_colour(sheet, {255, 255, 255}), 180u);  // the ink of "0" to "5"; the scores do not fit: left out
  EXPECT_EQ(count_colour(render_contact_sheet(frames, -1, 3), kKeptColour), 0u);
  // Thumbnails 150 pixels wide take their labels at twice the cell size.
  std::vector<ReportFrame> wide = {frame(0, 1.0, false, false)};
  wide[0].thumb = flat_grey(150, 100, 128);
  EXPECT_TRUE(same(render_contact_sheet(wide, -1, 1), 8 + 20, 8 + 18, {0, 0, 0}));

  const RgbImage chart = render_score_chart(frames, 2, 500, 200);
  // Each slot's bar on its centre column (plot from x = 70 to 484, rows 16
  // to 164) and the base line where it steps from frame 2 to frame 3.
  std::vector<int> bar(7);
  std::set<int> low_light;
  for (int i = 0; i < 6; ++i) {
    for (int32_t y = 0; y < chart.height; ++y) bar[i] += same(chart, 70 + (2 * i + 1) * 414 / 12, y, {120, 160, 200});
    if (same(chart, 70 + i * 414 / 6 + 3, 20, {255, 236, 180})) low_light.insert(i);
  }
  for (int32_t y = 0; y < chart.height; ++y) bar[6] += same(chart, 70 + 3 * 414 / 6, y, {20, 20, 20});
  // The axis spans the scores, so that bars rise with them, with headroom.
  EXPECT_TRUE(bar[3] > bar[2] && bar[2] > bar[0] && bar[0] > bar[1] && bar[1] > bar[4] && bar[4] > 0);
  EXPECT_TRUE(same(chart, 70 + 7 * 414 / 12, 17, {255, 255, 255}));
  EXPECT_TRUE(bar[5] == 0 && bar[6] > 20);  // no bar for the frame never judged; the base line's step
  EXPECT_EQ(low_light, (std::set<int>{1, 4}));
  EXPECT_TRUE(same(chart, 72, 16, {228, 228, 228}));  // the top grid line
  EXPECT_EQ(count_colour(chart, kKeptColour), 15u * 15);
  EXPECT_EQ(count_colour(chart, kBestColour), 9u * 9);  // frame 0's; the kept marker covers frame 2's
}

// A frame whose only texture lies in block (2, 5) of the 8 x 8 grid.
TEST(ReportPicture, HeatmapTintsTheTexturedBlockAndLabelsEveryBlock) {
  const FrameDesc d{kFormatRaw10, 640, 480, 800};
  std::mt19937 engine(5);
  const auto bytes = raw10(d, [&](int32_t x, int32_t y) {
    return x >= 412 && x < 468 && y >= 132 && y < 168 ? 496 + static_cast<int>(engine() % 32) : 512;
  });
  const auto energies = block_energies(d, bytes);
  const RgbImage map = render_heatmap(d, bytes);
  ASSERT_EQ(std::make_pair(map.width, map.height), std::make_pair(800, 600));  // 160 samples enlarged 5 times
  for (int32_t b = 0; b < 64; ++b) {
    long long red_minus_blue = 0, label = 0;
    for (int32_t y = b / 8 * 75; y < b / 8 * 75 + 75; ++y) {
      for (int32_t x = b % 8 * 100; x < b % 8 * 100 + 100; ++x) {
        red_minus_blue += map.rgb[(y * 800 + x) * 3] - map.rgb[(y * 800 + x) * 3 + 2];
        label += same(map, x, y, {255, 255, 255});
      }
    }
    EXPECT_EQ(std::make_pair(energies[b] > 0, red_minus_blue > 0), std::make_pair(b == 21, b == 21)) << b;
    EXPECT_GT(label, 0) << b;
  }
  // Grid lines between blocks; the textured block's value at twice the
  // cell size, reaching into the thirteenth row of its label.
  EXPECT_TRUE(same(map, 100, 60, {0, 0, 0}) && same(map, 50, 75, {0, 0, 0}));
  size_t low_ink = 0;
  for (int32_t x = 500; x < 600; ++x) low_ink += same(map, x, 150 + 4 + 12, {255, 255, 255});
  EXPECT_GT(low_ink, 0u);
  EXPECT_THROW(render_heatmap({kFormatYuv13, 640, 480, 640}, bytes), ToolError);
}

TEST(ReportPage, IsSelfContainedAndEmbedsThePicturesWrittenBesideIt) {
  const std::pair<const char *, const char *> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe", "//4="}};
  for (const auto &[in, out] : vectors) EXPECT_EQ(base64(std::vector<uint8_t>(in, in + std::strlen(in))), out);
  qlis::test::ScopedFsRoot work;
  DemoReport r;
  for (int i = 0; i < 4; ++i) r.frames.push_back(frame(i, 0.1 * i, i == 3, false));
  r.frames[1].record.handed_over = r.frames[1].record.evaluated = false;
  r.kept_index = 3;
  r.kept_preview = flat_grey(80, 60, 90);
  r.kept_heatmap = blank_rgb(80, 60, {200, 10, 10});
  r.capture.before = r.capture.after = flat_grey(80, 60, 50);
  r.burst.before = r.burst.after = {flat_grey(160, 30, 1), flat_grey(160, 30, 2)};
  r.burst.record.best_id = 0, r.burst.record.replace_id = 1;
  r.account = {"a line with <markup> & more"};
  // The burst as handed in looks the same whether or not a frame was replaced.
  std::filesystem::create_directories(work.path() + "/kept");
  write_report(r, work.path() + "/kept");
  r.burst.record.replaced = true;
  const std::string html = slurp(write_report(r, work.path()));
  EXPECT_EQ(slurp(work.path() + "/burst-before.png"), slurp(work.path() + "/kept/burst-before.png"));
  // ':' and '"' are outside the base64 alphabet: no false hits in the data.
  for (const char *outside : {"http:", "https:", "src=\"file", "<script"}) EXPECT_EQ(html.find(outside), html.npos);
  EXPECT_NE(html.find("a line with &lt;markup&gt; &amp; more"), std::string::npos);
  EXPECT_NE(html.find("dropped"), std::string::npos);
  for (const char *id : {"contact-sheet", "score-chart", "kept-frame", "heatmap", "capture-before", "capture-after",
                         "burst-before", "burst-after"}) {
    const std::string png = slurp(work.path() + "/" + id + ".png");
    EXPECT_NE(html.find("id=\"" + std::string(id) + "\" src=\"data:image/png;base64," +
                        base64(std::vector<uint8_t>(png.begin(), png.end())) + "\""), std::string::npos) << id;
  }
  EXPECT_EQ(read_png_rgb(work.path() + "/kept-frame.png").rgb, std::vector<uint8_t>(80 * 60 * 3, 90));
  for (const char *id : {"capture-decision", "burst", "frames", "account"})
    EXPECT_NE(html.find("id=\"" + std::string(id) + "\""), std::string::npos);
  EXPECT_EQ(qlis::test::occurrences(html, "<tr class="), 4u);
  // A session that kept nothing still gets a whole page: grey tiles for
  // the pictures never made, a blank strip for the burst never taken.
  std::filesystem::create_directories(work.path() + "/bare");
  write_report(DemoReport{}, work.path() + "/bare");
  EXPECT_EQ(read_png_rgb(work.path() + "/bare/kept-frame.png").rgb, blank_rgb(160, 120, {220, 220, 220}).rgb);
  EXPECT_EQ(read_png_rgb(work.path() + "/bare/burst-before.png").rgb, blank_rgb(1, 1, {255, 255, 255}).rgb);
}

// Debian's browser renders the demo's report: every part is there, and
// only decoded pictures put thousands of pixels in the kept frame's outline
// colour (contact sheet, burst strips, chart marker; the page's colour keys
// bring a few hundred) and thousands of distinct colours on the screen
// (text on a plain page brings a few hundred).
TEST(ReportPage, RendersInABrowserWithItsPicturesDecoded) {
  const std::string chromium = "/usr/bin/chromium";
  if (!std::filesystem::exists(chromium)) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh --tests)";
  qlis::test::ScopedFsRoot work;
  const qlis::test::ToolRun demo = qlis::test::run_tool(work.path(), "demo --frames 12 --out report");
  ASSERT_EQ(demo.status, 0) << demo.err;
  const std::string page = "file://" + work.path() + "/report/report.html", shot = work.path() + "/shot.png";
  EXPECT_NE(demo.out.find("seed 1\n"), std::string::npos);  // the default stream
  // A profile of its own, so that parallel runs do not share one.
  const std::string browser = qlis::test::q(chromium) + " --headless --no-sandbox --disable-gpu --no-first-run "
                              "--disable-background-networking --hide-scrollbars --user-data-dir=" +
                              qlis::test::q(work.path() + "/profile") + " ";
  ASSERT_EQ(std::system((browser + "--dump-dom " + qlis::test::q(page) + " >" + qlis::test::q(work.path() + "/dom") +
                         " 2>/dev/null").c_str()), 0);
  const std::string dom = slurp(work.path() + "/dom");
  // The sheet, chart, kept frame, heatmap, capture and burst before and after.
  EXPECT_EQ(qlis::test::occurrences(dom, "src=\"data:image/png;base64,"), 8u);
  ASSERT_EQ(std::system((browser + "--screenshot=" + qlis::test::q(shot) + " --window-size=1280,4200 " +
                         qlis::test::q(page) + " >/dev/null 2>&1").c_str()), 0);
  const RgbImage screen = read_png_rgb(shot);
  std::set<uint32_t> colours;
  for (size_t i = 0; i + 2 < screen.rgb.size(); i += 3)
    colours.insert(uint32_t{screen.rgb[i]} << 16 | uint32_t{screen.rgb[i + 1]} << 8 | screen.rgb[i + 2]);
  EXPECT_GT(count_colour(screen, kKeptColour), 3000u);
  EXPECT_GT(colours.size(), 2000u);
}

}  // namespace

#include "report.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "raw10_pack.h"
#include "support/host_hooks.h"
#include "tool_error.h"

namespace {

using namespace qlis::tool;
namespace fs = std::filesystem;

std::string slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool same(const uint8_t *p, Rgb c) {
  return p[0] == c.r && p[1] == c.g && p[2] == c.b;
}

size_t count_colour(const RgbImage &image, Rgb c) {
  size_t n = 0;
  for (size_t i = 0; i < image.rgb.size(); i += 3)
    n += same(image.rgb.data() + i, c) ? 1 : 0;
  return n;
}

// A packed RAW10 frame whose left half holds code `left`, right half `right`.
std::vector<uint8_t> raw10_halves(const FrameDesc &d, uint16_t left,
                                  uint16_t right) {
  std::vector<uint8_t> bytes(static_cast<size_t>(d.height) * d.stride);
  std::vector<uint16_t> row(static_cast<size_t>(d.width));
  for (int32_t x = 0; x < d.width; ++x) row[x] = x < d.width / 2 ? left : right;
  for (int32_t y = 0; y < d.height; ++y)
    pack_raw10(row.data(), static_cast<size_t>(d.width / 4),
               bytes.data() + static_cast<size_t>(y) * d.stride);
  return bytes;
}

GreyImage flat_grey(int32_t w, int32_t h, uint8_t v) {
  return {w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h, v)};
}

TEST(ReportBase64, MatchesTheStandardVectors) {
  const std::pair<const char *, const char *> cases[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"foobar", "Zm9vYmFy"},
                                                         {"\xff\xfe", "//4="}};
  for (const auto &[in, out] : cases) {
    const std::string text(in);
    EXPECT_EQ(base64(std::vector<uint8_t>(text.begin(), text.end())), out);
  }
}

TEST(ReportPreview, DevelopsBlackToZeroWhiteToFullAndKeepsHalvesApart) {
  const FrameDesc d{kFormatRaw10, 64, 32, 84};  // padded stride
  const GreyImage grey = develop_grey(d, raw10_halves(d, 64, 1023), 4);
  ASSERT_EQ(grey.width, 16);
  ASSERT_EQ(grey.height, 8);
  for (int32_t y = 0; y < grey.height; ++y) {
    EXPECT_EQ(grey.pixels[y * 16 + 0], 0);  // black level: no light
    EXPECT_EQ(grey.pixels[y * 16 + 7], 0);
    EXPECT_EQ(grey.pixels[y * 16 + 8], 255);  // white level
    EXPECT_EQ(grey.pixels[y * 16 + 15], 255);
  }
  // Codes below the black level are no light, not negative light.
  EXPECT_EQ(develop_grey(d, raw10_halves(d, 0, 10), 2).pixels[0], 0);

  const FrameDesc luma{kFormatYuv13, 8, 4, 8};
  std::vector<uint8_t> plane(32, 10);
  plane[0] = 50;  // block (0, 0) averages 10, 10, 10, 50 to 20
  const GreyImage small = develop_grey(luma, plane, 2);
  EXPECT_EQ(small.pixels,
            (std::vector<uint8_t>{20, 10, 10, 10, 10, 10, 10, 10}));

  EXPECT_THROW(develop_grey(d, raw10_halves(d, 0, 0), 3), ToolError);
  EXPECT_THROW(develop_grey({kFormatYuyv, 8, 4, 16}, plane, 2), ToolError);
  EXPECT_THROW(develop_grey(luma, std::vector<uint8_t>(31), 2), ToolError);
}

TEST(ReportStamp, DrawsTheLibraryGlyphInsideItsBoxOnly) {
  // Glyph "1" has 27 ink cells (rows 038 078 038 038 038 038 038 07C).
  GreyImage grey = flat_grey(40, 30, 128);
  stamp_label(grey, 5, 4, "1", 2);
  size_t ink = 0, black = 0;
  for (int32_t y = 0; y < 30; ++y) {
    for (int32_t x = 0; x < 40; ++x) {
      const uint8_t v = grey.pixels[y * 40 + x];
      const bool in_box = x >= 5 && x < 5 + 22 && y >= 4 && y < 4 + 20;
      if (!in_box) {
        EXPECT_EQ(v, 128) << x << "," << y;
      }
      ink += v == 255;
      black += v == 0;
    }
  }
  EXPECT_EQ(ink, 27u * 4);
  EXPECT_EQ(ink + black, 22u * 20);

  // Text that would overrun the picture is left out rather than clipped.
  GreyImage narrow = flat_grey(20, 30, 128);
  stamp_label(narrow, 0, 0, "11", 1);
  EXPECT_EQ(narrow.pixels, flat_grey(20, 30, 128).pixels);

  RgbImage rgb = blank_rgb(30, 12, {255, 255, 255});
  stamp_text(rgb, 1, 1, "1", 1, {10, 20, 30});
  EXPECT_EQ(count_colour(rgb, {10, 20, 30}), 27u);
  EXPECT_EQ(stamp_width("0.123", 2), 98);
}

ReportFrame frame(int32_t index, double reblur, bool kept, bool low) {
  ReportFrame f;
  f.record.index = index;
  f.record.evaluated = true;
  f.record.handed_over = true;
  f.record.verdict = kept ? 2 : 3;
  f.record.kept = kept;
  f.record.low_light = low;
  f.record.reblur = reblur;
  f.record.base_clarity = reblur;
  f.truth.index = index + 1;
  f.thumb = flat_grey(40, 30, static_cast<uint8_t>(60 + 10 * index));
  return f;
}

TEST(ReportPictures, OutlineTheKeptFrameAndChartEveryFrame) {
  const std::vector<ReportFrame> frames = {
      frame(0, 0.10, true, false), frame(1, 0.05, false, true),
      frame(2, 0.20, true, false), frame(3, 0.15, false, false),
      frame(4, 0.02, false, true)};
  const RgbImage sheet = render_contact_sheet(frames, 2, 3);
  EXPECT_EQ(sheet.width, 3 * 48 + 8);
  EXPECT_EQ(sheet.height, 2 * 38 + 8);
  // Frame 2 (third column) is outlined as kept, frame 0 as a former best;
  // the others are not outlined.
  EXPECT_TRUE(
      same(sheet.rgb.data() + (4 * sheet.width + 2 * 48 + 6) * 3, kKeptColour));
  EXPECT_TRUE(same(sheet.rgb.data() + (6 * sheet.width + 6) * 3, kBestColour));
  EXPECT_FALSE(
      same(sheet.rgb.data() + (6 * sheet.width + 48 + 6) * 3, kBestColour));
  EXPECT_EQ(count_colour(render_contact_sheet(frames, -1, 3), kKeptColour), 0u);

  const RgbImage chart = render_score_chart(frames, 2, 500, 200);
  ASSERT_EQ(chart.width, 500);
  // Bars rise with the score: count each slot's bar pixels on its centre
  // column (plot from x = 70 to 484, five slots).
  std::vector<int> bar_height;
  std::set<size_t> low_light_slots;
  for (int i = 0; i < 5; ++i) {
    const int32_t x = 70 + (2 * i + 1) * 414 / 10;
    int n = 0;
    for (int32_t y = 0; y < chart.height; ++y)
      n += same(chart.rgb.data() + (y * chart.width + x) * 3, {120, 160, 200});
    bar_height.push_back(n);
    const int32_t edge = 70 + i * 414 / 5 + 3;
    if (same(chart.rgb.data() + (20 * chart.width + edge) * 3, {255, 236, 180}))
      low_light_slots.insert(static_cast<size_t>(i));
  }
  EXPECT_GT(bar_height[2], bar_height[3]);
  EXPECT_GT(bar_height[3], bar_height[0]);
  EXPECT_GT(bar_height[0], bar_height[1]);
  EXPECT_GT(bar_height[1], bar_height[4]);
  EXPECT_EQ(low_light_slots, (std::set<size_t>{1, 4}));
  EXPECT_GT(count_colour(chart, kKeptColour), 0u);
  EXPECT_GT(count_colour(chart, kBestColour), 0u);
}

TEST(ReportPage, IsSelfContainedAndEmbedsThePicturesWrittenBesideIt) {
  qlis::test::ScopedFsRoot work;
  DemoReport r;
  r.photo = "coffee.png";
  r.desc = {kFormatRaw10, 160, 120, 200};
  r.packing = "low bits first";
  for (int i = 0; i < 4; ++i)
    r.frames.push_back(frame(i, 0.1 * i, i == 3, false));
  r.frames[1].record.handed_over = false;
  r.frames[1].record.evaluated = false;
  r.kept_index = 3;
  r.kept_preview = flat_grey(80, 60, 90);
  r.kept_heatmap = blank_rgb(80, 60, {200, 10, 10});
  r.capture.before = r.capture.after = flat_grey(80, 60, 50);
  r.capture.record.replaced = true;
  r.burst.before = r.burst.after = {flat_grey(40, 30, 1), flat_grey(40, 30, 2)};
  r.burst.truth.resize(2);
  r.account = {"a line with <markup> & more"};
  const std::string page = write_report(r, work.path());
  ASSERT_EQ(page, work.path() + "/report.html");
  const std::string html = slurp(page);

  // ':' and '"' are outside the base64 alphabet: no false hits in the data.
  EXPECT_EQ(html.find("http:"), std::string::npos);
  EXPECT_EQ(html.find("https:"), std::string::npos);
  EXPECT_EQ(html.find("src=\"file"), std::string::npos);
  EXPECT_EQ(html.find("<script"), std::string::npos);
  EXPECT_NE(html.find("a line with &lt;markup&gt; &amp; more"),
            std::string::npos);
  EXPECT_NE(html.find("dropped"), std::string::npos);
  for (const char *id :
       {"contact-sheet", "score-chart", "kept-frame", "heatmap",
        "capture-before", "capture-after", "burst-before", "burst-after"}) {
    SCOPED_TRACE(id);
    const std::string file = work.path() + "/" + id + ".png";
    ASSERT_TRUE(fs::exists(file));
    const std::string png = slurp(file);
    const std::string uri =
        "id=\"" + std::string(id) + "\" src=\"data:image/png;base64," +
        base64(std::vector<uint8_t>(png.begin(), png.end())) + "\"";
    EXPECT_NE(html.find(uri), std::string::npos);
  }
  for (const char *id : {"capture-decision", "burst", "frames", "account"})
    EXPECT_NE(html.find("id=\"" + std::string(id) + "\""), std::string::npos);
  size_t rows = 0;
  for (size_t at = html.find("<tr class="); at != std::string::npos;
       at = html.find("<tr class=", at + 1))
    ++rows;
  EXPECT_EQ(rows, 4u);

  // A session that kept nothing still gets a whole page.
  const std::string bare = work.path() + "/bare";
  fs::create_directories(bare);
  EXPECT_NO_THROW(write_report(DemoReport{}, bare));
  EXPECT_TRUE(fs::exists(bare + "/kept-frame.png"));
}

}  // namespace

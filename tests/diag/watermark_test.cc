#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace {

using qlis::test::LogCapture;

// Row r of glyph g of the font table as art, "#" for ink.
std::string table_row(int g, int r) {
  std::string art;
  for (int c = 0; c < 9; ++c) art += water[g * 72 + r * 9 + c] == 1 ? '#' : '.';
  return art;
}

// Every cell is ink or background, and every glyph's rows read as 9-bit
// numbers (the leftmost cell the top bit, so ..#####.. is 07C) and summed
// with weights 1 to 8 down the glyph: worked out from the font's drawings,
// one number per glyph, so that a glyph drawn mirrored, shifted or in
// another's place shows.
TEST(WaterFont, EveryGlyphHoldsTheRowsOfItsDrawing) {
  for (uint8_t cell : water) ASSERT_LE(cell, 1);
  const int kWeightedRows[38] = {
      6462,  2688,  4818,  3212,  4350,  4474,  8492,  2158, 5176, 3006,
      8579,  15481, 9832,  15624, 15471, 14959, 9843,  15048, 6111, 2311,
      14997, 14847, 15080, 14760, 9864,  14467, 9896,  15199, 7061, 1651,
      7299,  5638,  10969, 6741,  2787,  6910,  2286,  1176};
  for (int g = 0; g < 38; ++g) {
    int weighted = 0;
    for (int r = 0; r < 8; ++r) {
      int bits = 0;
      for (char c : table_row(g, r)) bits = 2 * bits + (c == '#' ? 1 : 0);
      weighted += (r + 1) * bits;
    }
    EXPECT_EQ(weighted, kWeightedRows[g]) << "glyph " << g;
  }
}

// How a drawer lays out a glyph: ink cells `cell` bytes wide and `cell`
// lines tall, glyph rows `scale` lines apart, characters 10 cells apart.
struct Drawer {
  const char *name;
  int32_t format;
  uint32_t scale;
  uint32_t bytes_per_pixel;  // 0: the RAW drawer, pitch = stride
  uint32_t cell() const {
    return scale * (bytes_per_pixel ? bytes_per_pixel : 1);
  }
};

const Drawer kDrawers[] = {
    {"8-bit", 10, 1, 1},
    {"8-bit scale 3", 13, 3, 1},
    {"2 bytes per pixel scale 2", 0, 2, 2},
    {"RAW scale 5", 15, 5, 0},
};

struct Stamp {
  const char *text;
  std::vector<int> glyphs;  // per character, -1 for a gap
  std::string errors;       // the unsupported characters logged, in order
};

const Stamp kStamps[] = {
    {" 5", {0, 5}, ""},
    {"1 2", {1, 1, 2}, ""},
    {"aA", {10, 10}, ""},
    {"+1", {-1, 1}, "+"},
    {"7+ ", {7, -1, 7}, "+"},
    {"09AZaz-.", {0, 9, 10, 35, 10, 35, 36, 37}, ""},
    {"/:@[`{", {-1, -1, -1, -1, -1, -1}, "/:@[`{"},
    {"", {}, ""},
};

constexpr uint32_t kX = 3, kY = 2;

// Whether byte dx of line dy, counted from the text's origin, is inked:
// found from the byte back to the cell, not by filling cells forward.
bool inked(const Drawer &d, const std::vector<int> &glyphs, size_t dy,
           size_t dx) {
  const size_t cell = d.cell(), slot = dx / (10 * cell),
               c = dx % (10 * cell) / cell;
  if (slot >= glyphs.size() || glyphs[slot] < 0 || c >= 9) return false;
  for (size_t r = 0; r < 8; ++r) {
    const bool covers = r * d.scale <= dy && dy < r * d.scale + cell;
    if (covers && table_row(glyphs[slot], static_cast<int>(r))[c] == '#')
      return true;
  }
  return false;
}

TEST(AddWaterMarking, DrawsEachCharacterTenCellsOnAndLogsTheRest) {
  for (const Drawer &d : kDrawers) {
    for (const Stamp &s : kStamps) {
      SCOPED_TRACE(std::string(d.name) + " \"" + s.text + "\"");
      const bool raw = d.bytes_per_pixel == 0;
      const uint32_t width =
          kX + 10 * d.scale * 9 + 4;  // pixels, or bytes for RAW
      const uint32_t line = raw ? width + 3 : width * d.bytes_per_pixel;
      const size_t lines = kY + 7 * d.scale + d.cell() + 2;
      const size_t x0 = raw ? kX : kX * d.bytes_per_pixel;
      std::vector<uint8_t> frame(lines * line), want(frame.size());
      for (size_t i = 0; i < frame.size(); ++i) {
        frame[i] = want[i] = static_cast<uint8_t>((i * 37 + 11) % 251);
        const size_t row = i / line, col = i % line;
        if (row >= kY && col >= x0 && inked(d, s.glyphs, row - kY, col - x0))
          want[i] = 255;
      }
      LogCapture log;
      // RAW gets a wrong width: it must go by the stride alone.
      add_water_marking(frame.data(), s.text, 0xDEADu, raw ? 1 : width, kX, kY,
                        d.scale, raw ? line : d.bytes_per_pixel, d.format);
      EXPECT_EQ(frame, want);
      std::vector<std::string> texts;
      for (const auto &l : log.lines()) texts.push_back(l.tag + ' ' + l.text);
      std::vector<std::string> expected{"QLIS-I watermark: E"};
      for (char ch : s.errors)
        expected.push_back(std::string("QLIS-E unsupport character ") + ch);
      expected.push_back("QLIS-I watermark: X");
      EXPECT_EQ(texts, expected);
    }
  }
}

TEST(AddWaterMarking, NullImageOrTextDrawsNothingAndLogsOnlyTheEntry) {
  for (int32_t format : {15, 10}) {
    std::vector<uint8_t> frame(64 * 16, 7);
    const std::vector<uint8_t> before = frame;
    LogCapture log;
    // The result is that of the last log call, the length of its line here.
    EXPECT_EQ(12, add_water_marking(frame.data(), nullptr, 16, 64, 0, 0, 1, 1,
                                    format));
    EXPECT_EQ(12, add_water_marking(nullptr, "5", 16, 64, 0, 0, 1, 1, format));
    EXPECT_EQ(frame, before);
    EXPECT_EQ(log.texts("QLIS-I"), std::vector<std::string>(2, "watermark: E"));
    EXPECT_EQ(log.lines().size(), 2u);
  }
}

}  // namespace

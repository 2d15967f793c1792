#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace {

using qlis::test::LogCapture;

// Cell c of row r of glyph g of the font table: 1 for ink.
uint8_t cell(int g, int r, int c) { return water[g * 72 + r * 9 + c]; }

// Every cell is ink or background, and every glyph's rows read as 9-bit
// numbers (the leftmost cell the top bit, so ..#####.. is 07C) and summed
// with weights 1 to 8 down the glyph: worked out from the font's drawings,
// one number per glyph, so that a glyph drawn mirrored, shifted or in
// another's place shows.
TEST(WaterFont, EveryGlyphHoldsTheRowsOfItsDrawing) {
  for (uint8_t c : water) ASSERT_LE(c, 1);
  const int kWeightedRows[38] = {
      6462,  2688,  4818,  3212,  4350,  4474,  8492,  2158, 5176, 3006,
      8579,  15481, 9832,  15624, 15471, 14959, 9843,  15048, 6111, 2311,
      14997, 14847, 15080, 14760, 9864,  14467, 9896,  15199, 7061, 1651,
      7299,  5638,  10969, 6741,  2787,  6910,  2286,  1176};
  for (int g = 0; g < 38; ++g) {
    int weighted = 0;
    for (int r = 0; r < 8; ++r) {
      int bits = 0;
      for (int c = 0; c < 9; ++c) bits = 2 * bits + cell(g, r, c);
      weighted += (r + 1) * bits;
    }
    EXPECT_EQ(weighted, kWeightedRows[g]) << "glyph " << g;
  }
}

// How a drawer lays out a glyph: ink cells `size` bytes wide and `size`
// lines tall, glyph rows `scale` lines apart, characters 10 cells apart.
// Bytes per pixel 0 stands for the RAW drawer (format 15): cells `scale`
// bytes wide, pitch = stride.
struct Drawer {
  int32_t format;
  uint32_t scale, bytes_per_pixel, size;
};
const Drawer kDrawers[] = {{10, 1, 1, 1}, {13, 3, 1, 3}, {0, 2, 2, 4}, {15, 5, 0, 5}};

// Per character its glyph, -1 for a gap; and the unsupported characters
// logged, in order. Lower case draws as upper case, a blank repeats the
// last glyph drawn (0 at the start), unsupported characters leave a gap.
struct Stamp {
  const char *text;
  std::vector<int> glyphs;
  std::string errors;
};
const Stamp kStamps[] = {
    {" 5 aA+ 1", {0, 5, 5, 10, 10, -1, 10, 1}, "+"},
    {"09AZaz-.", {0, 9, 10, 35, 10, 35, 36, 37}, ""},
    {"/:@[`{ ", {-1, -1, -1, -1, -1, -1, 0}, "/:@[`{"},
    {"", {}, ""},
};

constexpr uint32_t kX = 3, kY = 2;

// Whether byte dx of line dy, counted from the text's origin, is inked:
// found from the byte back to the cell, not by filling cells forward.
bool inked(const Drawer &d, const std::vector<int> &glyphs, size_t dy, size_t dx) {
  const size_t slot = dx / (10 * d.size), c = dx % (10 * d.size) / d.size;
  if (slot >= glyphs.size() || glyphs[slot] < 0 || c >= 9) return false;
  for (size_t r = 0; r < 8; ++r) {
    const bool covers = r * d.scale <= dy && dy < r * d.scale + d.size;
    if (covers && cell(glyphs[slot], static_cast<int>(r), static_cast<int>(c)) == 1)
      return true;
  }
  return false;
}

TEST(AddWaterMarking, DrawsEachCharacterTenCellsOnAndLogsTheRest) {
  for (const Drawer &d : kDrawers) {
    for (const Stamp &s : kStamps) {
      SCOPED_TRACE(std::to_string(d.format) + " \"" + s.text + "\"");
      const bool raw = d.bytes_per_pixel == 0;
      const uint32_t width = kX + 10 * d.scale * 9 + 4;  // pixels, or bytes for RAW
      const uint32_t line = raw ? width + 3 : width * d.bytes_per_pixel;
      const size_t x0 = raw ? kX : kX * d.bytes_per_pixel;
      std::vector<uint8_t> frame((kY + 7 * d.scale + d.size + 2) * line), want;
      for (size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<uint8_t>((i * 37 + 11) % 251);
        const size_t row = i / line, col = i % line;
        const bool ink = row >= kY && col >= x0 && inked(d, s.glyphs, row - kY, col - x0);
        want.push_back(ink ? 255 : frame[i]);
      }
      LogCapture log;
      // RAW gets a wrong width: it must go by the stride alone.
      add_water_marking(frame.data(), s.text, 0xDEADu, raw ? 1 : width, kX, kY,
                        d.scale, raw ? line : d.bytes_per_pixel, d.format);
      EXPECT_EQ(frame, want);
      std::vector<std::string> texts, expected{"QLIS-I watermark: E"};
      for (const auto &l : log.lines()) texts.push_back(l.tag + ' ' + l.text);
      for (char ch : s.errors) expected.push_back(std::string("QLIS-E unsupport character ") + ch);
      expected.push_back("QLIS-I watermark: X");
      EXPECT_EQ(texts, expected);
    }
  }
}

// The result is that of the last log call, the entry's, 12 characters.
TEST(AddWaterMarking, NullImageOrTextDrawsNothingAndLogsOnlyTheEntry) {
  std::vector<uint8_t> frame(64 * 16, 7);
  LogCapture log;
  EXPECT_EQ(12, add_water_marking(frame.data(), nullptr, 16, 64, 0, 0, 1, 1, 10));
  EXPECT_EQ(12, add_water_marking(nullptr, "5", 16, 64, 0, 0, 1, 1, 10));
  EXPECT_EQ(frame, std::vector<uint8_t>(64 * 16, 7));
  EXPECT_EQ(log.texts("QLIS-I"), std::vector<std::string>(2, "watermark: E"));
  EXPECT_EQ(log.lines().size(), 2u);
}

}  // namespace

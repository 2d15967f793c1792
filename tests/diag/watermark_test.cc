#include <gtest/gtest.h>

#include <bitset>
#include <string>
#include <utility>
#include <vector>

#include "ql_is/ql_is.h"
#include "support/host_hooks.h"

namespace {

using qlis::test::LogCapture;

// The font's rows re-typed from its description: glyph per line, the top bit
// of each 9-bit row the leftmost cell.
const char *const kHexRows[38] = {
    "07C 0C6 0C6 0C6 0C6 0C6 0C6 07C", "038 078 038 038 038 038 038 07C",
    "07C 0C6 006 00C 038 060 0C0 0FE", "07C 0C6 006 03C 004 006 0C6 07C",
    "018 038 058 098 1FE 018 018 03C", "0FE 0C0 080 0FC 006 006 0C6 07C",
    "030 060 0C0 0FC 186 186 0C6 07C", "1FE 086 00C 018 030 030 030 030",
    "038 044 044 038 0C6 0C6 0C6 07C", "07C 0C6 0C6 07E 01C 018 030 060",
    "010 038 06C 044 0FE 082 183 183", "1FC 182 181 1FE 182 181 182 1FC",
    "07E 0C7 180 180 180 183 0C6 07C", "1FC 1C6 183 183 183 183 1C6 1FC",
    "1FF 180 180 1FE 180 180 180 1FF", "1FF 180 180 1FC 180 180 180 1C0",
    "07E 0C7 180 180 180 187 0C3 07D", "183 183 183 1FF 1FF 183 183 183",
    "1FF 038 038 038 038 038 038 1FF", "0FF 018 018 018 018 018 058 078",
    "183 18C 198 1E0 1E0 198 186 183", "180 180 180 180 180 180 181 1FF",
    "183 1C7 1C7 1EF 1BB 193 183 183", "183 1C3 1E3 1B3 19B 18F 187 183",
    "07C 0C6 183 183 183 183 0C6 07C", "1FC 183 183 1FE 180 180 180 180",
    "07C 0C6 183 183 183 187 0C6 07D", "1FC 183 183 1FE 1E0 198 18C 183",
    "0FE 183 180 0FC 002 003 103 0FE", "1FF 092 010 010 010 010 010 038",
    "101 101 101 101 101 101 082 07C", "101 101 183 183 0C6 06C 038 010",
    "183 183 193 193 1BB 1AB 0EE 044", "183 0C6 06C 038 038 06C 0C6 183",
    "183 0C6 06C 038 038 038 038 038", "1FF 006 00C 018 030 060 0C1 1FF",
    "000 000 000 0FE 0FE 000 000 000", "000 000 000 000 000 038 038 038",
};

// Row r of glyph g as art, "#" for ink: "..#####.." for 07C.
std::string hex_row(int g, int r) {
  const std::string row(kHexRows[g] + 4 * r, 3);
  return std::bitset<9>(std::stoul(row, nullptr, 16)).to_string('.', '#');
}

std::string table_row(int g, int r) {
  std::string art;
  for (int c = 0; c < 9; ++c) art += water[g * 72 + r * 9 + c] == 1 ? '#' : '.';
  return art;
}

TEST(WaterFont, HoldsOnlyInkAndBackgroundInTheDescribedRows) {
  for (uint8_t cell : water) ASSERT_LE(cell, 1);
  for (int g = 0; g < 38; ++g) {
    for (int r = 0; r < 8; ++r)
      EXPECT_EQ(table_row(g, r), hex_row(g, r)) << g << ' ' << r;
  }
  const std::pair<int, std::vector<std::string>> drawn[] = {
      {0,
       {"..#####..", ".##...##.", ".##...##.", ".##...##.", ".##...##.",
        ".##...##.", ".##...##.", "..#####.."}},
      {4,
       {"....##...", "...###...", "..#.##...", ".#..##...", "########.",
        "....##...", "....##...", "...####.."}},
      {37,
       {".........", ".........", ".........", ".........", ".........",
        "...###...", "...###...", "...###..."}},
  };
  for (const auto &[g, rows] : drawn) {
    for (int r = 0; r < 8; ++r)
      EXPECT_EQ(table_row(g, r), rows[r]) << g << ' ' << r;
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
    {"2 bytes per pixel", 10, 1, 2},
    {"2 bytes per pixel scale 2", 0, 2, 2},
    {"RAW", 15, 1, 0},
    {"RAW scale 5", 15, 5, 0},
};

struct Stamp {
  const char *text;
  std::vector<int> glyphs;  // per character, -1 for a gap
  std::string errors;       // the unsupported characters logged, in order
};

const Stamp kStamps[] = {
    {"0.87", {0, 37, 8, 7}, ""},
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
    if (covers && hex_row(glyphs[slot], static_cast<int>(r))[c] == '#')
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

// Stamps a short text, typically a score, into a frame in white block
// letters from the `water` font. A debugging aid for the host: nothing in
// the library calls it, and nothing here checks bounds.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/log.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace {

constexpr int kGlyphRowCount = 8;
constexpr int kCellsPerRow = 9;
constexpr uint32_t kGlyphBytes = kGlyphRowCount * kCellsPerRow;
constexpr uint8_t kInk = 1;
constexpr uint8_t kWhite = 255;
// Nine cells of glyph and one of spacing per character.
constexpr uint32_t kAdvanceCells = 10;
constexpr int32_t kFormatRaw10 = 15;

constexpr int kFirstLetterGlyph = 10;
constexpr int kMinusGlyph = 36;
constexpr int kFullStopGlyph = 37;
constexpr int kNoGlyph = -1;

int glyph_index(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'A' && ch <= 'Z') return ch - 'A' + kFirstLetterGlyph;
  if (ch >= 'a' && ch <= 'z') return ch - 'a' + kFirstLetterGlyph;
  if (ch == '-') return kMinusGlyph;
  if (ch == '.') return kFullStopGlyph;
  return kNoGlyph;
}

// Each ink cell is a block of `cell` bytes on `cell` lines, while the glyph
// rows are `row_step` lines apart: with more than one byte per pixel the
// blocks are taller than the row spacing and overlap the next row, which is
// how the stamp has always looked.
void draw_glyph(uint8_t *origin, const uint8_t *glyph, uint32_t cell,
                uint32_t row_step, uint32_t pitch) {
  const size_t line_bytes = pitch;
  for (int r = 0; r < kGlyphRowCount; ++r) {
    const size_t row_offset = static_cast<size_t>(r) * row_step * line_bytes;
    for (int c = 0; c < kCellsPerRow; ++c) {
      if (glyph[r * kCellsPerRow + c] != kInk) continue;
      uint8_t *block = origin + row_offset + static_cast<size_t>(c) * cell;
      for (uint32_t line = 0; line < cell; ++line) {
        std::memset(block + line * line_bytes, kWhite, cell);
      }
    }
  }
}

}  // namespace
}  // namespace qlis

extern "C" void add_water_marking_one(uint8_t *image, uint32_t /*rows*/,
                                      uint32_t width, const uint8_t *glyph,
                                      uint32_t x, uint32_t y, uint32_t scale,
                                      uint32_t bytes_per_pixel) {
  const uint32_t cell = scale * bytes_per_pixel;
  const uint32_t pitch = width * bytes_per_pixel;
  const size_t pixel = static_cast<size_t>(y) * width + x;
  qlis::draw_glyph(image + pixel * bytes_per_pixel, glyph, cell, scale, pitch);
}

extern "C" void add_water_marking_one_raw(uint8_t *image, uint32_t /*rows*/,
                                          uint32_t /*width*/,
                                          const uint8_t *glyph, uint32_t x,
                                          uint32_t y, uint32_t scale,
                                          uint32_t stride) {
  // The packed groups are ignored: a square overwrites the low-bit bytes
  // too, so every pixel it touches reads as the brightest value.
  const size_t origin = static_cast<size_t>(y) * stride + x;
  qlis::draw_glyph(image + origin, glyph, scale, scale, stride);
}

extern "C" int32_t add_water_marking(uint8_t *image, const char *text,
                                     uint32_t rows, uint32_t width, uint32_t x,
                                     uint32_t y, uint32_t scale, uint32_t pitch,
                                     int32_t format) {
  using namespace qlis;
  const int opened = log_line(kTagInfo, "watermark: E");
  if (image == nullptr || text == nullptr) return opened;
  // There is no blank glyph: a blank repeats the last drawn glyph, or the
  // digit zero before any. Hosts' texts rely on this as it is.
  int current = 0;
  uint32_t pen = x;
  for (const char *p = text; *p != '\0'; ++p) {
    const int index = glyph_index(*p);
    if (index != kNoGlyph) current = index;
    if (index != kNoGlyph || *p == ' ') {
      const uint8_t *glyph =
          water + static_cast<uint32_t>(current) * kGlyphBytes;
      if (format == kFormatRaw10) {
        add_water_marking_one_raw(image, rows, width, glyph, pen, y, scale,
                                  pitch);
      } else {
        add_water_marking_one(image, rows, width, glyph, pen, y, scale, pitch);
      }
    } else {
      log_line(kTagError, "unsupport character %c", *p);
    }
    // Unsupported characters advance too, leaving a gap.
    pen += kAdvanceCells * scale;
  }
  return log_line(kTagInfo, "watermark: X");
}

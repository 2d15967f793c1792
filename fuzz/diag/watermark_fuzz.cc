// The score stamp: the text driver and both glyph drawers change only bytes
// inside the area the header lets them cover, and only to white. The frame
// ends on a page boundary with the last line that area may reach.
#include <vector>

#include "fuzz_target.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"

QLIS_FUZZ_TARGET(watermark) {
  qlis::fuzz::Input in(data, size);
  const int32_t mode = in.range(0, 2), format = in.range(10, 15);  // a text, a glyph, a RAW glyph
  const bool raw = mode == 2 || (mode == 0 && format == 15);
  const uint32_t scale = in.range(1, 4), bpp = raw ? 1 : in.range(1, 4), x = in.range(0, 20);
  const uint32_t y = in.range(0, 10), length = mode == 0 ? in.range(0, 8) : 1, ignored = in.range(0, 1 << 16);
  char text[9] = {};
  for (uint32_t k = 0; mode == 0 && k < length; ++k) text[k] = static_cast<char>(in.range(' ', '~'));
  const uint8_t *glyph = water + 72 * in.range(0, 37);
  // Pixels (bytes for RAW) across and lines down that the stamp may cover;
  // a RAW frame is a grid of `width` bytes a line.
  const uint32_t span = mode == 0 ? 10 * scale * length : 9 * scale, lines = 8 * scale + scale * bpp - scale;
  const uint32_t width = x + span + in.range(0, 20), line = width * bpp;
  qlis::test::PageEndBuffer f(static_cast<size_t>(y + lines) * line);
  in.fill(f.data(), f.size());
  const std::vector<uint8_t> before(f.data(), f.data() + f.size());
  if (mode == 0) {
    add_water_marking(f.data(), text, ignored, raw ? ignored : width, x, y, scale, raw ? width : bpp, format);
  }
  if (mode == 1) add_water_marking_one(f.data(), ignored, width, glyph, x, y, scale, bpp);
  if (mode == 2) add_water_marking_one_raw(f.data(), ignored, ignored, glyph, x, y, scale, width);
  for (size_t i = 0; i < f.size(); ++i) {
    const bool covered = i / line >= y && i % line >= x * bpp && i % line < (x + span) * bpp;
    QLIS_FUZZ_CHECK(f.data()[i] == before[i] || (covered && f.data()[i] == 255));
  }
}

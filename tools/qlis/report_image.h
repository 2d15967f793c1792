// The pictures of the demo's report: grey previews developed from frames,
// text stamped with the library's own watermark font, and the few drawing
// primitives the contact sheet and the chart are made of.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame_file.h"
#include "png_image.h"

namespace qlis::tool {

struct GreyImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;  // rows of `width` bytes
};

struct Rgb {
  uint8_t r = 0, g = 0, b = 0;
};

// A grey preview `factor` times smaller on each side. RAW10 is unpacked and
// developed (black level off, the four Bayer colours of each block averaged
// in linear light, sRGB coded), so it shows what the sensor saw rather than
// the one byte the library samples; luma planes (formats 10, 13) are
// averaged. `factor` is even and at least 2, so that every block holds whole
// Bayer quads. Throws ToolError for other formats.
GreyImage develop_grey(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                       int32_t factor);

// Even reduction factor that brings `width` close to `target` pixels.
int32_t preview_factor(int32_t width, int32_t target);

// develop_grey at the factor that brings the frame close to `width` pixels.
inline GreyImage develop_preview(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                                 int32_t width) {
  return develop_grey(desc, bytes, preview_factor(desc.width, width));
}

// Width in pixels of `text` stamped at `scale`: the watermark advances ten
// cells per character and its last glyph is nine cells wide.
int32_t stamp_width(const std::string &text, int32_t scale);
inline int32_t stamp_height(int32_t scale) { return 8 * scale; }

// Stamps `text` in white through add_water_marking (format 0, one byte per
// pixel) on a black box one cell wider than the text on every side. Text
// that would not fit inside the image is left out.
void stamp_label(GreyImage &image, int32_t x, int32_t y,
                 const std::string &text, int32_t scale);
// Stamps `text` in `ink` on an RGB picture: the watermark draws into a mask
// of the picture's size and the mask's ink pixels take the colour.
void stamp_text(RgbImage &image, int32_t x, int32_t y, const std::string &text,
                int32_t scale, Rgb ink);

RgbImage to_rgb(const GreyImage &grey);
RgbImage blank_rgb(int32_t width, int32_t height, Rgb fill);
// Copies `from` into `to` with its top-left corner at (x, y), clipped.
void paste(RgbImage &to, const RgbImage &from, int32_t x, int32_t y);
// Fills the rectangle [x0, x1) x [y0, y1), clipped to the image.
void fill_rect(RgbImage &image, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
               Rgb colour);
// A frame of `thickness` pixels just inside the rectangle.
void outline_rect(RgbImage &image, int32_t x0, int32_t y0, int32_t x1,
                  int32_t y1, int32_t thickness, Rgb colour);
// A straight line `thickness` pixels wide (a square pen), clipped.
void draw_line(RgbImage &image, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
               int32_t thickness, Rgb colour);

}  // namespace qlis::tool

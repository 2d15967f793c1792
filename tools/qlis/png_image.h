// Photographs in and pictures out: PNG files through libpng's simplified
// interface, as 8-bit sRGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qlis::tool {

// 8-bit sRGB, three bytes per pixel, rows of 3 * width bytes, top row first.
struct RgbImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> rgb;
};

// Any PNG: gray, RGB, palette (expanded), with or without alpha
// (composited onto black), 8 or 16 bits (16-bit data is taken as sRGB
// coded unless the file says otherwise). Throws ToolError for a missing,
// unreadable, non-PNG or implausibly large file.
RgbImage read_png_rgb(const std::string &path);

// `data` has `row_bytes` bytes per row (at least width, or 3 * width for
// RGB). Throws ToolError when the file cannot be written.
void write_png_gray(const std::string &path, int32_t width, int32_t height,
                    const uint8_t *data, size_t row_bytes);
void write_png_rgb(const std::string &path, int32_t width, int32_t height,
                   const uint8_t *data, size_t row_bytes);

}  // namespace qlis::tool

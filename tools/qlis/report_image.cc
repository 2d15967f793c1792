#include "report_image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "ql_is/ql_is.h"
#include "raw10_pack.h"
#include "scene.h"
#include "synth.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr int32_t kGlyphAdvanceCells = 10;
constexpr int32_t kGlyphWidthCells = 9;
constexpr uint8_t kInk = 255;
// Any format but 15 selects the watermark's byte-per-pixel drawer.
constexpr int32_t kPlaneFormat = 0;
constexpr uint32_t kOneBytePerPixel = 1;

// Linear light of every RAW10 code under the generator's sensor model.
std::array<float, 1024> raw10_linear_table() {
  const SensorModel sensor;
  const float black = static_cast<float>(sensor.black_level);
  const float range = static_cast<float>(sensor.white_level) - black;
  std::array<float, 1024> table{};
  for (size_t code = 0; code < table.size(); ++code)
    table[code] = std::max(0.0f, (static_cast<float>(code) - black) / range);
  return table;
}

GreyImage develop_raw10(const FrameDesc &d, const std::vector<uint8_t> &bytes,
                        int32_t factor) {
  static const std::array<float, 1024> linear = raw10_linear_table();
  GreyImage out{d.width / factor, d.height / factor, {}};
  const size_t w = static_cast<size_t>(out.width);
  out.pixels.resize(w * static_cast<size_t>(out.height));
  std::vector<uint16_t> row(static_cast<size_t>(d.width / kRaw10GroupPixels) *
                            kRaw10GroupPixels);
  std::vector<float> sums(w);
  const float share = 1.0f / static_cast<float>(factor * factor);
  for (int32_t oy = 0; oy < out.height; ++oy) {
    std::fill(sums.begin(), sums.end(), 0.0f);
    for (int32_t k = 0; k < factor; ++k) {
      const size_t y = static_cast<size_t>(oy * factor + k);
      unpack_raw10(bytes.data() + y * static_cast<size_t>(d.stride),
                   row.size() / kRaw10GroupPixels, row.data());
      for (size_t x = 0; x < w * static_cast<size_t>(factor); ++x)
        sums[x / static_cast<size_t>(factor)] += linear[row[x]];
    }
    for (size_t x = 0; x < w; ++x)
      out.pixels[static_cast<size_t>(oy) * w + x] =
          linear_to_srgb(sums[x] * share);
  }
  return out;
}

GreyImage average_luma(const FrameDesc &d, const std::vector<uint8_t> &bytes,
                       int32_t factor) {
  GreyImage out{d.width / factor, d.height / factor, {}};
  const size_t w = static_cast<size_t>(out.width);
  out.pixels.resize(w * static_cast<size_t>(out.height));
  const int32_t area = factor * factor;
  for (int32_t oy = 0; oy < out.height; ++oy) {
    for (size_t ox = 0; ox < w; ++ox) {
      int32_t sum = 0;
      for (int32_t k = 0; k < factor; ++k) {
        const uint8_t *p = bytes.data() +
                           static_cast<size_t>(oy * factor + k) *
                               static_cast<size_t>(d.stride) +
                           ox * static_cast<size_t>(factor);
        for (int32_t j = 0; j < factor; ++j) sum += p[j];
      }
      out.pixels[static_cast<size_t>(oy) * w + ox] =
          static_cast<uint8_t>((sum + area / 2) / area);
    }
  }
  return out;
}

bool fits(int32_t width, int32_t height, int32_t x, int32_t y,
          const std::string &text, int32_t scale) {
  return !text.empty() && scale > 0 && x >= 0 && y >= 0 &&
         x + stamp_width(text, scale) <= width &&
         y + stamp_height(scale) <= height;
}

// The watermark's call: an 8-bit plane `width` pixels wide.
void watermark(uint8_t *plane, int32_t width, int32_t height, int32_t x,
               int32_t y, const std::string &text, int32_t scale) {
  add_water_marking(plane, text.c_str(), static_cast<uint32_t>(height),
                    static_cast<uint32_t>(width), static_cast<uint32_t>(x),
                    static_cast<uint32_t>(y), static_cast<uint32_t>(scale),
                    kOneBytePerPixel, kPlaneFormat);
}

void put(RgbImage &image, int32_t x, int32_t y, Rgb c) {
  if (x < 0 || y < 0 || x >= image.width || y >= image.height) return;
  uint8_t *p = image.rgb.data() +
               (static_cast<size_t>(y) * static_cast<size_t>(image.width) +
                static_cast<size_t>(x)) *
                   3;
  p[0] = c.r;
  p[1] = c.g;
  p[2] = c.b;
}

}  // namespace

GreyImage develop_grey(const FrameDesc &desc, const std::vector<uint8_t> &bytes,
                       int32_t factor) {
  if (factor < 2 || factor % 2 != 0)
    throw ToolError("a preview reduces by an even factor");
  if (bytes.size() < plane_bytes(desc))
    throw ToolError("the frame is shorter than its geometry");
  if (desc.format == kFormatRaw10) return develop_raw10(desc, bytes, factor);
  if (desc.format == kFormatYuv10 || desc.format == kFormatYuv13)
    return average_luma(desc, bytes, factor);
  throw ToolError(std::string("no preview for ") + format_name(desc.format) +
                  " frames");
}

int32_t preview_factor(int32_t width, int32_t target) {
  const int32_t half = std::max(1, (width + target) / (2 * target));
  return 2 * half;
}

int32_t stamp_width(const std::string &text, int32_t scale) {
  if (text.empty()) return 0;
  return (static_cast<int32_t>(text.size() - 1) * kGlyphAdvanceCells +
          kGlyphWidthCells) *
         scale;
}

void stamp_label(GreyImage &image, int32_t x, int32_t y,
                 const std::string &text, int32_t scale) {
  const int32_t box_w = stamp_width(text, scale) + 2 * scale;
  const int32_t box_h = stamp_height(scale) + 2 * scale;
  if (!fits(image.width, image.height, x, y, text, scale) ||
      x + box_w > image.width || y + box_h > image.height) {
    return;
  }
  for (int32_t row = y; row < y + box_h; ++row) {
    std::fill_n(
        image.pixels.begin() + static_cast<ptrdiff_t>(row) * image.width + x,
        box_w, uint8_t{0});
  }
  watermark(image.pixels.data(), image.width, image.height, x + scale,
            y + scale, text, scale);
}

void stamp_text(RgbImage &image, int32_t x, int32_t y, const std::string &text,
                int32_t scale, Rgb ink) {
  if (!fits(image.width, image.height, x, y, text, scale)) return;
  std::vector<uint8_t> mask(static_cast<size_t>(image.width) *
                            static_cast<size_t>(image.height));
  watermark(mask.data(), image.width, image.height, x, y, text, scale);
  for (int32_t row = y; row < y + stamp_height(scale); ++row) {
    for (int32_t col = x; col < x + stamp_width(text, scale); ++col) {
      if (mask[static_cast<size_t>(row) * static_cast<size_t>(image.width) +
               static_cast<size_t>(col)] == kInk)
        put(image, col, row, ink);
    }
  }
}

RgbImage to_rgb(const GreyImage &grey) {
  RgbImage out{grey.width, grey.height, {}};
  out.rgb.resize(grey.pixels.size() * 3);
  for (size_t i = 0; i < grey.pixels.size(); ++i)
    std::fill_n(out.rgb.begin() + static_cast<ptrdiff_t>(3 * i), 3,
                grey.pixels[i]);
  return out;
}

RgbImage blank_rgb(int32_t width, int32_t height, Rgb fill) {
  RgbImage out{width, height, {}};
  out.rgb.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
  fill_rect(out, 0, 0, width, height, fill);
  return out;
}

void paste(RgbImage &to, const RgbImage &from, int32_t x, int32_t y) {
  for (int32_t row = 0; row < from.height; ++row) {
    for (int32_t col = 0; col < from.width; ++col) {
      const uint8_t *p =
          from.rgb.data() + (static_cast<size_t>(row) * from.width + col) * 3;
      put(to, x + col, y + row, {p[0], p[1], p[2]});
    }
  }
}

void fill_rect(RgbImage &image, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
               Rgb colour) {
  for (int32_t y = std::max(0, y0); y < std::min(y1, image.height); ++y) {
    for (int32_t x = std::max(0, x0); x < std::min(x1, image.width); ++x)
      put(image, x, y, colour);
  }
}

void outline_rect(RgbImage &image, int32_t x0, int32_t y0, int32_t x1,
                  int32_t y1, int32_t thickness, Rgb colour) {
  fill_rect(image, x0, y0, x1, y0 + thickness, colour);
  fill_rect(image, x0, y1 - thickness, x1, y1, colour);
  fill_rect(image, x0, y0, x0 + thickness, y1, colour);
  fill_rect(image, x1 - thickness, y0, x1, y1, colour);
}

void draw_line(RgbImage &image, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
               int32_t thickness, Rgb colour) {
  const int32_t steps = std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1});
  const int32_t lo = -(thickness - 1) / 2, hi = thickness / 2;
  for (int32_t s = 0; s <= steps; ++s) {
    const int32_t x = x0 + static_cast<int32_t>(std::lround(
                               static_cast<double>(x1 - x0) * s / steps));
    const int32_t y = y0 + static_cast<int32_t>(std::lround(
                               static_cast<double>(y1 - y0) * s / steps));
    fill_rect(image, x + lo, y + lo, x + hi + 1, y + hi + 1, colour);
  }
}

}  // namespace qlis::tool

#include "heatmap.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "ql_is/ql_is.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr int32_t kGrid = 8;
constexpr int32_t kGradientDist = 1;
constexpr int32_t kSampleByte = 4;
constexpr int32_t kGroupBytes = 5;
constexpr int32_t kPreviewStep = 4;  // every fourth pixel, every fourth row
constexpr int32_t kPreviewFirstRow = 3;
constexpr int32_t kMinSide = 32;
// The watermark font: glyphs 10 pixels apart and 8 rows tall per scale.
constexpr int32_t kGlyphAdvance = 10;
constexpr int32_t kGlyphRows = 8;
constexpr int32_t kTextMargin = 4;
constexpr uint8_t kInk = 255;
constexpr int32_t kWatermarkGrey = 0;  // any format but RAW10: byte planes
// Tint over the grey: the grey keeps this share of each pixel.
constexpr float kGreyShare = 0.55f;

// Short enough for a block: "912K" for 912,345; digits below 10,000.
std::string energy_text(uint32_t e) {
  char text[16];
  if (e < 10000) {
    std::snprintf(text, sizeof text, "%u", e);
  } else if (e < 10000000) {
    std::snprintf(text, sizeof text, "%uK", e / 1000);
  } else {
    std::snprintf(text, sizeof text, "%uM", e / 1000000);
  }
  return text;
}

// Blue (0) through green to red (1).
void tint(float t, float rgb[3]) {
  t = std::clamp(t, 0.0f, 1.0f);
  rgb[0] = 255.0f * std::clamp(2.0f * t - 0.5f, 0.0f, 1.0f);
  rgb[1] = 255.0f * (1.0f - std::abs(2.0f * t - 1.0f));
  rgb[2] = 255.0f * std::clamp(1.5f - 2.0f * t, 0.0f, 1.0f);
}

}  // namespace

std::array<uint32_t, 64> block_energies(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  std::array<uint32_t, 64> energies{};
  const int32_t bw = d.width >> 3;
  const int32_t bh = d.height >> 3;
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      uint64_t sum = 0, dev = 0;
      double cv = 0.0, bright = 0.0, dark = 0.0;
      const int32_t e = image_feature_quality_for_raw_10bit_continuous_3(
          &sum, &dev, &cv, &bright, &dark, bytes.data(), r * bh, (r + 1) * bh, c * bw,
          (c + 1) * bw, kGradientDist, d.height, d.width, d.stride, 0, 1);
      energies[static_cast<size_t>(kGrid * r + c)] = static_cast<uint32_t>(e);
    }
  }
  return energies;
}

RgbImage render_heatmap(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  if (d.format != kFormatRaw10) {
    throw ToolError(std::string("the block heatmap reads RAW10 frames, not ") +
                    format_name(d.format));
  }
  validate_frame(d);
  if (bytes.size() < plane_bytes(d)) throw ToolError("the frame's bytes are short of its geometry");
  if (d.width < kMinSide || d.height < kMinSide) {
    throw ToolError("a frame of " + std::to_string(d.width) + "x" + std::to_string(d.height) +
                    " is too small for a heatmap");
  }
  const std::array<uint32_t, 64> energies = block_energies(d, bytes);
  const uint32_t top = std::max(1u, *std::max_element(energies.begin(), energies.end()));

  const int32_t pw = d.width / kPreviewStep;
  const int32_t ph = d.height / kPreviewStep;
  const int32_t k = (kHeatmapMinWidth + pw - 1) / pw;
  RgbImage out{pw * k, ph * k, {}};
  out.rgb.resize(static_cast<size_t>(out.width) * static_cast<size_t>(out.height) * 3);
  // Block edges in preview pixels: the driver's pixel rectangles over four.
  auto block_col = [&](int32_t x) {
    return std::min(kGrid - 1, (x / k) * kPreviewStep / std::max(1, d.width >> 3));
  };
  auto block_row = [&](int32_t y) {
    return std::min(kGrid - 1, (y / k) * kPreviewStep / std::max(1, d.height >> 3));
  };
  for (int32_t y = 0; y < out.height; ++y) {
    const size_t row = static_cast<size_t>(kPreviewFirstRow + kPreviewStep * (y / k)) *
                       static_cast<size_t>(d.stride);
    const int32_t br = block_row(y);
    const bool edge_row = y > 0 && block_row(y - 1) != br;
    for (int32_t x = 0; x < out.width; ++x) {
      const uint8_t grey = bytes[row + static_cast<size_t>(kGroupBytes * (x / k) + kSampleByte)];
      const int32_t bc = block_col(x);
      const bool edge = edge_row || (x > 0 && block_col(x - 1) != bc);
      float rgb[3];
      tint(static_cast<float>(energies[static_cast<size_t>(kGrid * br + bc)]) /
               static_cast<float>(top),
           rgb);
      uint8_t *px = &out.rgb[(static_cast<size_t>(y) * out.width + x) * 3];
      for (int ch = 0; ch < 3; ++ch) {
        const float v = kGreyShare * grey + (1.0f - kGreyShare) * rgb[ch];
        px[ch] = edge ? 0 : static_cast<uint8_t>(std::clamp(v, 0.0f, 255.0f));
      }
    }
  }

  // The values are stamped into a plane of their own with the library's
  // watermark, then laid over the picture in white with a dark shadow.
  std::vector<uint8_t> ink(static_cast<size_t>(out.width) * out.height, 0);
  for (int32_t r = 0; r < kGrid; ++r) {
    for (int32_t c = 0; c < kGrid; ++c) {
      const std::string text = energy_text(energies[static_cast<size_t>(kGrid * r + c)]);
      const int32_t x0 = (c * (d.width >> 3) / kPreviewStep) * k + kTextMargin;
      const int32_t y0 = (r * (d.height >> 3) / kPreviewStep) * k + kTextMargin;
      const int32_t room_x = ((d.width >> 3) / kPreviewStep) * k - 2 * kTextMargin;
      const int32_t room_y = ((d.height >> 3) / kPreviewStep) * k - 2 * kTextMargin;
      const int32_t wide = static_cast<int32_t>(text.size()) * kGlyphAdvance;
      int32_t scale = 2;
      while (scale > 0 && (wide * scale > room_x || kGlyphRows * scale > room_y)) --scale;
      if (scale == 0) continue;  // the block is too small to be labelled
      add_water_marking(ink.data(), text.c_str(), static_cast<uint32_t>(out.height),
                        static_cast<uint32_t>(out.width), static_cast<uint32_t>(x0),
                        static_cast<uint32_t>(y0), static_cast<uint32_t>(scale), 1,
                        kWatermarkGrey);
    }
  }
  for (int32_t y = 0; y < out.height; ++y) {
    for (int32_t x = 0; x < out.width; ++x) {
      const size_t i = static_cast<size_t>(y) * out.width + x;
      uint8_t *px = &out.rgb[i * 3];
      if (ink[i] == kInk) {
        std::memset(px, 255, 3);
      } else if (x > 0 && y > 0 && ink[i - out.width - 1] == kInk) {
        std::memset(px, 0, 3);
      }
    }
  }
  return out;
}

}  // namespace qlis::tool

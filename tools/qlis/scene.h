// The scene the synthetic camera looks at: a photograph in linear light,
// cropped to the frame's aspect ratio and resampled to the frame's size
// plus a margin on every side, so that shifted and smeared frames never
// read past its edge.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "png_image.h"

namespace qlis::tool {

struct LinearScene {
  int32_t width = 0;   // frame width + 2 * margin
  int32_t height = 0;  // frame height + 2 * margin
  int32_t margin = 0;
  std::array<std::vector<float>, 3>
      planes;  // R, G, B in [0, 1], rows of `width`
};

LinearScene make_scene(const RgbImage &photo, int32_t frame_width,
                       int32_t frame_height, int32_t margin);

// The sRGB transfer curve and its inverse.
float srgb_to_linear(uint8_t coded);
// `linear` is clamped to [0, 1]; the result is rounded to 8 bits.
uint8_t linear_to_srgb(float linear);

}  // namespace qlis::tool

#include "support/scenes.h"

#include <algorithm>

namespace qlis::test {
namespace {

int level_at(const Scene &s, int32_t x, int32_t span, int32_t y) {
  int bx = static_cast<int>(static_cast<int64_t>(x) * 8 / span);
  const int by = static_cast<int>(static_cast<int64_t>(y) * 8 / s.height);
  if (s.mirrored) bx = 7 - bx;
  return s.base_level + s.level_step * ((bx + 2 * by) % 5);
}

uint8_t textured(const Scene &s, int level, int32_t unit) {
  const int v = level + ((unit % 2 == 0) ? s.amplitude : -s.amplitude);
  return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

}  // namespace

std::vector<uint8_t> raw10_scene(const Scene &s) {
  std::vector<uint8_t> frame(static_cast<size_t>(s.height) * s.stride, 0);
  const int32_t groups = s.width / 4;
  for (int32_t y = 0; y < s.height; ++y) {
    for (int32_t g = 0; g < groups; ++g) {
      const uint8_t v = textured(s, level_at(s, g, groups, y), g);
      for (int k = 0; k < 5; ++k) frame[static_cast<size_t>(y) * s.stride + 5 * g + k] = v;
    }
  }
  return frame;
}

std::vector<uint8_t> yuv_scene(const Scene &s) {
  std::vector<uint8_t> frame(static_cast<size_t>(s.height) * s.stride * 3 / 2, 128);
  for (int32_t y = 0; y < s.height; ++y) {
    for (int32_t x = 0; x < s.width; ++x) {
      frame[static_cast<size_t>(y) * s.stride + x] = textured(s, level_at(s, x, s.width, y), x);
    }
  }
  return frame;
}

}  // namespace qlis::test

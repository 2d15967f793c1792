#include "scene.h"

#include <algorithm>
#include <cmath>

namespace qlis::tool {
namespace {

// Output sample i of a resampled axis: a run of source samples from `first`
// with normalised weights.
struct AxisTaps {
  int32_t first = 0;
  std::vector<float> weights;
};

// A tent filter whose radius grows with the reduction factor, so that
// reducing averages every source sample (no aliasing) and enlarging is
// plain linear interpolation. Source positions are clamped to the edge.
std::vector<AxisTaps> axis_taps(int32_t out_len, double crop_start,
                                double crop_len) {
  const double scale = crop_len / out_len;
  const double radius = std::max(1.0, scale);
  std::vector<AxisTaps> taps(static_cast<size_t>(out_len));
  for (int32_t i = 0; i < out_len; ++i) {
    const double centre = crop_start + (i + 0.5) * scale - 0.5;
    const int32_t lo = static_cast<int32_t>(std::floor(centre - radius)) + 1;
    const int32_t hi = static_cast<int32_t>(std::floor(centre + radius));
    AxisTaps &t = taps[static_cast<size_t>(i)];
    t.first = lo;
    double total = 0.0;
    for (int32_t j = lo; j <= hi; ++j) {
      const double w = std::max(0.0, 1.0 - std::abs(j - centre) / radius);
      t.weights.push_back(static_cast<float>(w));
      total += w;
    }
    for (float &w : t.weights) w = static_cast<float>(w / total);
  }
  return taps;
}

int32_t clamp_index(int32_t i, int32_t len) {
  return std::clamp(i, 0, len - 1);
}

const std::array<float, 256> &linear_table() {
  static const std::array<float, 256> table = [] {
    std::array<float, 256> t{};
    for (int v = 0; v < 256; ++v) {
      const double c = v / 255.0;
      t[static_cast<size_t>(v)] = static_cast<float>(
          c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4));
    }
    return t;
  }();
  return table;
}

// Enough steps that neighbouring codes never share an entry in the dark.
constexpr int kCodedSteps = 16384;

const std::vector<uint8_t> &coded_table() {
  static const std::vector<uint8_t> table = [] {
    std::vector<uint8_t> t(kCodedSteps + 1);
    for (int i = 0; i <= kCodedSteps; ++i) {
      const double l = static_cast<double>(i) / kCodedSteps;
      const double c =
          l <= 0.0031308 ? l * 12.92 : 1.055 * std::pow(l, 1.0 / 2.4) - 0.055;
      t[static_cast<size_t>(i)] = static_cast<uint8_t>(std::lround(c * 255.0));
    }
    return t;
  }();
  return table;
}

}  // namespace

float srgb_to_linear(uint8_t coded) { return linear_table()[coded]; }

uint8_t linear_to_srgb(float linear) {
  const float clamped = std::clamp(linear, 0.0f, 1.0f);
  const auto step = static_cast<size_t>(std::lround(clamped * kCodedSteps));
  return coded_table()[step];
}

LinearScene make_scene(const RgbImage &photo, int32_t frame_width,
                       int32_t frame_height, int32_t margin) {
  LinearScene scene;
  scene.margin = margin;
  scene.width = frame_width + 2 * margin;
  scene.height = frame_height + 2 * margin;
  // The largest centred part of the photograph with the scene's aspect.
  const double aspect = static_cast<double>(scene.width) / scene.height;
  double crop_w = photo.width, crop_h = photo.height;
  if (crop_w / crop_h > aspect) {
    crop_w = crop_h * aspect;
  } else {
    crop_h = crop_w / aspect;
  }
  const std::vector<AxisTaps> xs =
      axis_taps(scene.width, (photo.width - crop_w) / 2, crop_w);
  const std::vector<AxisTaps> ys =
      axis_taps(scene.height, (photo.height - crop_h) / 2, crop_h);

  const size_t sw = static_cast<size_t>(scene.width);
  for (int c = 0; c < 3; ++c) {
    // Along rows first, into a scene-wide, photograph-high plane.
    std::vector<float> rows(sw * static_cast<size_t>(photo.height));
    for (int32_t y = 0; y < photo.height; ++y) {
      const uint8_t *src =
          photo.rgb.data() + static_cast<size_t>(y) * photo.width * 3 + c;
      for (int32_t x = 0; x < scene.width; ++x) {
        const AxisTaps &t = xs[static_cast<size_t>(x)];
        float sum = 0.0f;
        for (size_t k = 0; k < t.weights.size(); ++k) {
          const int32_t sx =
              clamp_index(t.first + static_cast<int32_t>(k), photo.width);
          sum +=
              t.weights[k] * srgb_to_linear(src[static_cast<size_t>(sx) * 3]);
        }
        rows[static_cast<size_t>(y) * sw + static_cast<size_t>(x)] = sum;
      }
    }
    std::vector<float> &plane = scene.planes[static_cast<size_t>(c)];
    plane.assign(sw * static_cast<size_t>(scene.height), 0.0f);
    for (int32_t y = 0; y < scene.height; ++y) {
      const AxisTaps &t = ys[static_cast<size_t>(y)];
      float *out = plane.data() + static_cast<size_t>(y) * sw;
      for (size_t k = 0; k < t.weights.size(); ++k) {
        const int32_t sy =
            clamp_index(t.first + static_cast<int32_t>(k), photo.height);
        const float *in = rows.data() + static_cast<size_t>(sy) * sw;
        const float w = t.weights[k];
        for (size_t x = 0; x < sw; ++x) out[x] += w * in[x];
      }
    }
  }
  return scene;
}

}  // namespace qlis::tool

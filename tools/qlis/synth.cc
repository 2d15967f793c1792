#include "synth.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <numeric>
#include <string>
#include <utility>

#include "raw10_pack.h"
#include "scene.h"
#include "tool_error.h"

namespace qlis::tool {
namespace {

constexpr int32_t kMinSide = 16;
// The linear level the per-frame noise figure is quoted at.
constexpr double kMidGrey = 0.18;
// A smear shorter than this is none; a tap lighter than this is dropped.
constexpr double kSharpBelow = 1e-9;
constexpr double kNegligibleWeight = 1e-9;

// SplitMix64: tiny, fast, and the same sequence on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, 1).
  double uniform() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
  // Close to a standard normal: the sum of four 16-bit uniforms (Irwin-Hall),
  // centred and scaled to unit variance. Integer work only, so the noise is
  // bit-identical everywhere, and one draw per sample.
  float gaussian() {
    const uint64_t r = next();
    const int64_t sum = static_cast<int64_t>((r & 0xFFFF) + (r >> 16 & 0xFFFF) +
                                             (r >> 32 & 0xFFFF) + (r >> 48));
    constexpr int64_t kMean = 2 * 0xFFFF;
    constexpr float kUnit = 1.7320508f / 65536.0f;  // sqrt(3) / 2^16
    return static_cast<float>(sum - kMean) * kUnit;
  }

 private:
  uint64_t state_;
};

// Turns linear scene light into noisy codes: shot noise from the electron
// count, read noise on top, black level added, clipped at white.
struct Exposure {
  explicit Exposure(const SensorModel &s)
      : black(static_cast<float>(s.black_level)),
        white(static_cast<float>(s.white_level)),
        range(white - black),
        dn_per_electron(static_cast<float>(range / s.full_well_electrons)),
        read_variance(static_cast<float>(s.read_noise_dn * s.read_noise_dn)) {}

  uint16_t code(float linear, float z) const {
    const float signal = std::max(linear, 0.0f) * range;
    const float sigma = std::sqrt(signal * dn_per_electron + read_variance);
    const float value = std::clamp(black + signal + sigma * z, 0.0f, white);
    return static_cast<uint16_t>(std::lround(value));
  }
  float back_to_linear(uint16_t code) const { return (code - black) / range; }

  float black, white, range, dn_per_electron, read_variance;
};

// One tap of a smear: a scene sample at a fixed offset from the pixel.
struct Tap {
  ptrdiff_t offset;
  float weight;
};

// A straight smear of `length` pixels: ceil(length) + 1 equally weighted
// points along the line (at most a pixel apart), each spread over its four
// neighbours. Merging taps that land on the same pixel keeps the per-pixel
// cost near two loads per point.
std::vector<Tap> smear_taps(double length, double angle_deg,
                            int32_t scene_width) {
  const int points =
      length < kSharpBelow ? 1 : static_cast<int>(std::ceil(length)) + 1;
  const double angle = angle_deg * (std::numbers::pi / 180.0);
  std::map<std::pair<int, int>, double> weights;
  for (int k = 0; k < points; ++k) {
    const double t =
        points == 1 ? 0.0
                    : length * (static_cast<double>(k) / (points - 1) - 0.5);
    const double dx = t * std::cos(angle), dy = t * std::sin(angle);
    const int x0 = static_cast<int>(std::floor(dx)),
              y0 = static_cast<int>(std::floor(dy));
    const double fx = dx - x0, fy = dy - y0, share = 1.0 / points;
    weights[{x0, y0}] += (1 - fx) * (1 - fy) * share;
    weights[{x0 + 1, y0}] += fx * (1 - fy) * share;
    weights[{x0, y0 + 1}] += (1 - fx) * fy * share;
    weights[{x0 + 1, y0 + 1}] += fx * fy * share;
  }
  std::vector<Tap> taps;
  for (const auto &[at, w] : weights) {
    if (w < kNegligibleWeight) continue;
    taps.push_back({static_cast<ptrdiff_t>(at.second) * scene_width + at.first,
                    static_cast<float>(w)});
  }
  return taps;
}

// The smeared scene light at frame pixel (x, y) of channel c.
struct Smear {
  const LinearScene &scene;
  std::vector<Tap> taps;
  ptrdiff_t origin;  // scene index of frame pixel (0, 0) after the shift

  float at(int c, int32_t x, int32_t y) const {
    const float *p = scene.planes[static_cast<size_t>(c)].data() + origin +
                     static_cast<ptrdiff_t>(y) * scene.width + x;
    float sum = 0.0f;
    for (const Tap &t : taps) sum += t.weight * p[t.offset];
    return sum;
  }
};

Smear make_smear(const LinearScene &scene, const FrameTruth &t) {
  const ptrdiff_t origin =
      static_cast<ptrdiff_t>(scene.margin + t.shift_y) * scene.width +
      scene.margin + t.shift_x;
  return {scene, smear_taps(t.blur_length_px, t.blur_angle_deg, scene.width),
          origin};
}

// RGGB: red on even rows and even columns, blue on odd rows and odd columns.
constexpr int kBayer[2][2] = {{0, 1}, {1, 2}};

void render_raw10(const Smear &smear, const Exposure &exposure, Random &noise,
                  const FrameDesc &d, Raw10Packing packing, uint8_t *out) {
  std::vector<uint16_t> row(static_cast<size_t>(d.width));
  for (int32_t y = 0; y < d.height; ++y) {
    for (int32_t x = 0; x < d.width; ++x) {
      const float light = smear.at(kBayer[y & 1][x & 1], x, y);
      row[static_cast<size_t>(x)] = exposure.code(light, noise.gaussian());
    }
    pack_raw10(row.data(), static_cast<size_t>(d.width / kRaw10GroupPixels),
               out + static_cast<size_t>(y) * static_cast<size_t>(d.stride),
               packing);
  }
}

// Full-range BT.601 from sRGB-coded values.
uint8_t luma(float r, float g, float b) {
  return static_cast<uint8_t>(
      std::clamp(std::lround(0.299f * r + 0.587f * g + 0.114f * b), 0L, 255L));
}
uint8_t blue_diff(float r, float g, float b) {
  return static_cast<uint8_t>(
      std::clamp(std::lround(128.0f - 0.168736f * r - 0.331264f * g + 0.5f * b),
                 0L, 255L));
}
uint8_t red_diff(float r, float g, float b) {
  return static_cast<uint8_t>(
      std::clamp(std::lround(128.0f + 0.5f * r - 0.418688f * g - 0.081312f * b),
                 0L, 255L));
}

// A simple camera pipeline: every pixel gets all three channels through the
// same sensor noise, then sRGB coding, then YCbCr. YUV 4:2:0 is written as
// the luma plane (height rows of `stride` bytes) followed by (height + 1) / 2
// rows of interleaved Cb Cr, one pair per 2x2 block; YUYV as Y0 Cb Y1 Cr per
// horizontal pixel pair.
void render_developed(const Smear &smear, const Exposure &exposure,
                      Random &noise, const FrameDesc &d, uint8_t *out) {
  const size_t w = static_cast<size_t>(d.width),
               h = static_cast<size_t>(d.height);
  const size_t stride = static_cast<size_t>(d.stride);
  std::vector<float> rgb(w * h * 3);
  for (int32_t y = 0; y < d.height; ++y) {
    for (int32_t x = 0; x < d.width; ++x) {
      float *px = rgb.data() +
                  (static_cast<size_t>(y) * w + static_cast<size_t>(x)) * 3;
      for (int c = 0; c < 3; ++c) {
        const uint16_t code =
            exposure.code(smear.at(c, x, y), noise.gaussian());
        px[c] = linear_to_srgb(exposure.back_to_linear(code));
      }
    }
  }
  auto px = [&](size_t x, size_t y) { return rgb.data() + (y * w + x) * 3; };
  if (d.format == kFormatYuyv) {
    for (size_t y = 0; y < h; ++y) {
      uint8_t *row = out + y * stride;
      for (size_t x = 0; x < w; x += 2) {
        const float *a = px(x, y), *b = px(x + 1, y);
        const float r = (a[0] + b[0]) / 2, g = (a[1] + b[1]) / 2,
                    bl = (a[2] + b[2]) / 2;
        row[2 * x] = luma(a[0], a[1], a[2]);
        row[2 * x + 1] = blue_diff(r, g, bl);
        row[2 * x + 2] = luma(b[0], b[1], b[2]);
        row[2 * x + 3] = red_diff(r, g, bl);
      }
    }
    return;
  }
  for (size_t y = 0; y < h; ++y) {
    for (size_t x = 0; x < w; ++x)
      out[y * stride + x] = luma(px(x, y)[0], px(x, y)[1], px(x, y)[2]);
  }
  uint8_t *chroma = out + h * stride;
  for (size_t y = 0; y < h; y += 2) {
    const size_t y1 = std::min(y + 1, h - 1);
    for (size_t x = 0; x < w; x += 2) {
      float sum[3] = {};
      for (const float *p :
           {px(x, y), px(x + 1, y), px(x, y1), px(x + 1, y1)}) {
        for (int c = 0; c < 3; ++c) sum[c] += p[c] / 4;
      }
      chroma[(y / 2) * stride + x] = blue_diff(sum[0], sum[1], sum[2]);
      chroma[(y / 2) * stride + x + 1] = red_diff(sum[0], sum[1], sum[2]);
    }
  }
}

int32_t scene_margin(const SynthParams &p) {
  return p.max_shift_px + static_cast<int32_t>(std::ceil(p.max_blur_px / 2)) +
         2;
}

}  // namespace

FrameDesc synth_frame_desc(const SynthParams &p) {
  FrameDesc d{p.format, p.width, p.height, p.width};
  if (p.format == kFormatRaw10)
    d.stride = p.width / kRaw10GroupPixels * kRaw10GroupBytes;
  if (p.format == kFormatYuyv) d.stride = 2 * p.width;
  return d;
}

void validate_synth(const SynthParams &p) {
  if (p.format != kFormatRaw10 && p.format != kFormatYuv13 &&
      p.format != kFormatYuyv) {
    throw ToolError(
        std::string("the generator writes raw10, yuv or yuyv, not ") +
        format_name(p.format));
  }
  if (p.width < kMinSide || p.height < kMinSide || p.width % 4 != 0 ||
      p.height % 2 != 0) {
    throw ToolError("cannot generate " + std::to_string(p.width) + "x" +
                    std::to_string(p.height) +
                    " frames: the width must be a multiple of 4 " +
                    "and the height even, both at least " +
                    std::to_string(kMinSide));
  }
  if (p.frames < 1 || p.frames > kSynthMaxFrames) {
    throw ToolError("cannot generate " + std::to_string(p.frames) +
                    " frames: 1 to " + std::to_string(kSynthMaxFrames) +
                    " are possible");
  }
  if (!(p.max_blur_px >= 0.0 && p.max_blur_px <= kSynthBlurLimit)) {
    throw ToolError("the longest blur must be 0 to " +
                    std::to_string(static_cast<int>(kSynthBlurLimit)) +
                    " pixels, not " + std::to_string(p.max_blur_px));
  }
  if (p.max_shift_px < 0 || p.max_shift_px > kSynthBlurLimit) {
    throw ToolError("the largest shift must be 0 to 64 pixels");
  }
  const FrameDesc d = synth_frame_desc(p);
  validate_frame(d);
  if (frame_bytes(d) > kImageBufferBytes) {
    throw ToolError(
        "a " + std::to_string(p.width) + "x" + std::to_string(p.height) +
        " YUV frame with its chroma needs " + std::to_string(frame_bytes(d)) +
        " bytes, more than the library's image buffer");
  }
}

std::vector<FrameTruth> plan_frames(const SynthParams &p) {
  validate_synth(p);
  const Exposure exposure(p.sensor);
  const float grey = static_cast<float>(kMidGrey) * exposure.range;
  const double sigma =
      std::sqrt(grey * exposure.dn_per_electron + exposure.read_variance);
  Random random(p.seed);
  std::vector<FrameTruth> plan(static_cast<size_t>(p.frames));
  const uint64_t shifts = 2 * static_cast<uint64_t>(p.max_shift_px) + 1;
  for (size_t i = 0; i < plan.size(); ++i) {
    FrameTruth &t = plan[i];
    t.index = static_cast<int32_t>(i) + 1;
    // Squaring favours short smears, as a steady hand does, with the
    // occasional long one; tenths of a pixel keep the manifest readable.
    const double u = random.uniform();
    t.blur_length_px = std::round(p.max_blur_px * u * u * 10.0) / 10.0;
    t.blur_angle_deg = std::floor(random.uniform() * 180.0);
    t.shift_x = static_cast<int32_t>(random.next() % shifts) - p.max_shift_px;
    t.shift_y = static_cast<int32_t>(random.next() % shifts) - p.max_shift_px;
    t.noise_sigma_dn = std::round(sigma * 100.0) / 100.0;
  }
  std::vector<size_t> order(plan.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return plan[a].blur_length_px < plan[b].blur_length_px;
  });
  for (size_t r = 0; r < order.size(); ++r)
    plan[order[r]].sharpness_rank = static_cast<int32_t>(r) + 1;
  return plan;
}

void generate_frames(const RgbImage &photo, const SynthParams &p,
                     const std::function<void(SynthFrame &&)> &sink) {
  const std::vector<FrameTruth> plan = plan_frames(p);
  const LinearScene scene =
      make_scene(photo, p.width, p.height, scene_margin(p));
  const Exposure exposure(p.sensor);
  const FrameDesc desc = synth_frame_desc(p);
  for (const FrameTruth &truth : plan) {
    // Each frame's noise has its own stream, so a frame does not depend on
    // how many frames came before it.
    Random noise(p.seed ^
                 (0xD1B54A32D192ED03ull * static_cast<uint64_t>(truth.index)));
    SynthFrame frame{
        desc, truth,
        std::vector<uint8_t>(static_cast<size_t>(frame_bytes(desc)))};
    const Smear smear = make_smear(scene, truth);
    if (desc.format == kFormatRaw10) {
      render_raw10(smear, exposure, noise, desc, p.packing, frame.bytes.data());
    } else {
      render_developed(smear, exposure, noise, desc, frame.bytes.data());
    }
    sink(std::move(frame));
  }
}

std::vector<SynthFrame> synthesize(const RgbImage &photo,
                                   const SynthParams &p) {
  std::vector<SynthFrame> frames;
  generate_frames(photo, p,
                  [&](SynthFrame &&f) { frames.push_back(std::move(f)); });
  return frames;
}

}  // namespace qlis::tool

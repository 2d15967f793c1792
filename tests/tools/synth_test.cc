#include "synth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <vector>

#include "png_image.h"
#include "raw10_pack.h"
#include "support/host_hooks.h"
#include "tool_error.h"

namespace {

using qlis::tool::RgbImage;
using qlis::tool::SynthFrame;
using qlis::tool::SynthParams;

const RgbImage &coffee() {
  static const RgbImage photo =
      qlis::tool::read_png_rgb(QLIS_TOOL_DATA_DIR "/coffee.png");
  return photo;
}

RgbImage flat(uint8_t r, uint8_t g, uint8_t b) {
  RgbImage image{8, 6, {}};
  for (int i = 0; i < 8 * 6; ++i) image.rgb.insert(image.rgb.end(), {r, g, b});
  return image;
}

SynthParams small(int32_t format, uint64_t seed) {
  SynthParams p;
  p.width = 160;
  p.height = 120;
  p.frames = 3;
  p.format = format;
  p.seed = seed;
  return p;
}

std::vector<uint16_t> unpacked(const SynthFrame &f) {
  const size_t groups = static_cast<size_t>(f.desc.width / 4);
  std::vector<uint16_t> pixels(groups * 4 * static_cast<size_t>(f.desc.height));
  for (int32_t y = 0; y < f.desc.height; ++y) {
    qlis::tool::unpack_raw10(
        f.bytes.data() + static_cast<size_t>(y) * f.desc.stride, groups,
        pixels.data() + groups * 4 * static_cast<size_t>(y));
  }
  return pixels;
}

TEST(Raw10Packing, RoundTripsAndPutsPixelThreesHighBitsInByteFour) {
  constexpr size_t kGroups = 4096;
  std::mt19937 engine(11);
  std::vector<uint16_t> pixels(kGroups * 4);
  for (uint16_t &p : pixels) p = static_cast<uint16_t>(engine() & 0x3FF);
  std::vector<uint8_t> packed(kGroups * 5);
  qlis::tool::pack_raw10(pixels.data(), kGroups, packed.data());
  for (size_t g = 0; g < kGroups; ++g) {
    const uint16_t *p = &pixels[4 * g];
    const uint8_t *b = &packed[5 * g];
    ASSERT_EQ(b[4], p[3] >> 2);
    ASSERT_EQ(b[1], p[0] >> 2);
    ASSERT_EQ(b[0],
              (p[0] & 3) | (p[1] & 3) << 2 | (p[2] & 3) << 4 | (p[3] & 3) << 6);
  }
  std::vector<uint16_t> back(pixels.size());
  qlis::tool::unpack_raw10(packed.data(), kGroups, back.data());
  EXPECT_EQ(back, pixels);
  // Bits above the tenth are not stored.
  const uint16_t wide[4] = {0xFFFF, 0x0400, 0x0401, 0x83FF};
  uint8_t group[5];
  uint16_t narrow[4];
  qlis::tool::pack_raw10(wide, 1, group);
  qlis::tool::unpack_raw10(group, 1, narrow);
  EXPECT_EQ(std::vector<uint16_t>(narrow, narrow + 4),
            (std::vector<uint16_t>{1023, 0, 1, 1023}));
}

TEST(Synth, SensorModelAndRggbMosaicWithoutNoiseOrShake) {
  SynthParams p = small(15, 1);
  p.max_blur_px = 0.0;
  p.sensor.read_noise_dn = 0.0;
  p.sensor.full_well_electrons = 1e30;
  // sRGB 128 is linear 0.21586; black 64 + 0.21586 * (1023 - 64) = 271.0.
  for (const SynthFrame &f : qlis::tool::synthesize(flat(128, 128, 128), p)) {
    const std::vector<uint16_t> px = unpacked(f);
    EXPECT_TRUE(
        std::all_of(px.begin(), px.end(), [](uint16_t v) { return v == 271; }));
  }
  const SynthFrame red = qlis::tool::synthesize(flat(255, 0, 0), p).front();
  const std::vector<uint16_t> px = unpacked(red);
  for (size_t y = 0; y < 4; ++y) {
    for (size_t x = 0; x < 4; ++x) {
      EXPECT_EQ(px[y * 160 + x], (y % 2 == 0 && x % 2 == 0) ? 1023 : 64)
          << x << "," << y;
    }
  }
}

TEST(Synth, SameSeedSameBytesOtherSeedOtherStream) {
  for (int32_t format : {15, 13, 20}) {
    SCOPED_TRACE(format);
    const auto a = qlis::tool::synthesize(coffee(), small(format, 5));
    const auto b = qlis::tool::synthesize(coffee(), small(format, 5));
    const auto c = qlis::tool::synthesize(coffee(), small(format, 6));
    ASSERT_EQ(a.size(), 3u);
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_EQ(a[i].bytes, b[i].bytes);
      EXPECT_NE(a[i].bytes, c[i].bytes);
      EXPECT_EQ(a[i].bytes.size(), qlis::tool::frame_bytes(a[i].desc));
    }
  }
}

TEST(Synth, YuvAndYuyvCarryTheSameLumaAtTheirOwnPlaces) {
  const auto yuv = qlis::tool::synthesize(coffee(), small(13, 9)).front();
  const auto yuyv = qlis::tool::synthesize(coffee(), small(20, 9)).front();
  ASSERT_EQ(yuv.desc.stride, 160);
  ASSERT_EQ(yuyv.desc.stride, 320);
  for (size_t y = 0; y < 120; ++y) {
    for (size_t x = 0; x < 160; ++x) {
      ASSERT_EQ(yuv.bytes[y * 160 + x], yuyv.bytes[y * 320 + 2 * x])
          << x << "," << y;
    }
  }
}

// Gradient energy of the bytes the library samples: byte 4 of each group.
double sampled_energy(const SynthFrame &f) {
  double energy = 0.0;
  const int32_t groups = f.desc.width / 4;
  for (int32_t y = 0; y + 1 < f.desc.height; ++y) {
    const uint8_t *row =
        f.bytes.data() + static_cast<size_t>(y) * f.desc.stride + 4;
    for (int32_t g = 0; g + 1 < groups; ++g) {
      const double dx = row[5 * (g + 1)] - row[5 * g];
      const double dy = row[f.desc.stride + 5 * g] - row[5 * g];
      energy += dx * dx + dy * dy;
    }
  }
  return energy;
}

std::vector<double> ranks(const std::vector<double> &v) {
  std::vector<size_t> order(v.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return v[a] < v[b]; });
  std::vector<double> r(v.size());
  for (size_t i = 0; i < order.size(); ++i)
    r[order[i]] = static_cast<double>(i);
  return r;
}

// The ground truth as a consumer uses it: the frames ranked sharpest hold
// the most gradient energy in the bytes the library samples.
TEST(Synth, SharpnessRankFollowsTheSampledGradientEnergy) {
  SynthParams p;
  p.width = 480;
  p.height = 360;
  p.frames = 16;
  p.seed = 3;
  std::vector<double> truth, energies;
  double longest = 0.0;
  for (const SynthFrame &f : qlis::tool::synthesize(coffee(), p)) {
    truth.push_back(f.truth.sharpness_rank - 1);
    energies.push_back(sampled_energy(f));
    longest = std::max(longest, f.truth.blur_length_px);
  }
  ASSERT_GT(longest, 6.0);
  ASSERT_EQ(ranks(truth), truth);  // a permutation of 0 .. n-1
  // Spearman's rank correlation; the sharpest frame has rank 0.
  const std::vector<double> re = ranks(energies);
  double d2 = 0.0;
  for (size_t i = 0; i < truth.size(); ++i) {
    d2 += (truth[i] - re[i]) * (truth[i] - re[i]);
  }
  const double n = static_cast<double>(truth.size());
  EXPECT_LT(1.0 - 6.0 * d2 / (n * (n * n - 1.0)), -0.9);
}

TEST(Synth, RefusesParametersItCannotHonour) {
  const std::vector<std::function<void(SynthParams &)>> changes = {
      // Not a whole number of RAW10 groups; odd rows for 4:2:0; too small.
      [](SynthParams &p) { p.width = 162; },
      [](SynthParams &p) { p.height = 121; },
      [](SynthParams &p) { p.width = 12; },
      [](SynthParams &p) { p.frames = 0; },
      [](SynthParams &p) { p.frames = 2001; },
      [](SynthParams &p) { p.format = 10; },
      [](SynthParams &p) { p.max_blur_px = -1.0; },
      [](SynthParams &p) { p.max_blur_px = NAN; },
      // 24 MB of luma and 12 MB of chroma.
      [](SynthParams &p) { p.width = 6000, p.height = 4000, p.format = 13; },
  };
  EXPECT_NO_THROW(qlis::tool::validate_synth(small(15, 1)));
  for (size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(i);
    SynthParams p = small(15, 1);
    changes[i](p);
    EXPECT_THROW(qlis::tool::validate_synth(p), qlis::tool::ToolError);
  }
}

TEST(PngImage, WritesAndReadsGrayAndRgbAndRefusesOtherFiles) {
  qlis::test::ScopedFsRoot dir;
  const std::vector<uint8_t> rgb = {255, 0, 0, 0, 255, 0, 0, 0, 255,
                                    9,   8, 7, 0, 0,   0, 1, 2, 3};
  qlis::tool::write_png_rgb(dir.path() + "/rgb.png", 3, 2, rgb.data(), 9);
  const RgbImage back = qlis::tool::read_png_rgb(dir.path() + "/rgb.png");
  EXPECT_EQ(back.width, 3);
  EXPECT_EQ(back.height, 2);
  EXPECT_EQ(back.rgb, rgb);
  const std::vector<uint8_t> gray = {0,  100, 200, 99,
                                     17, 255, 0,   0};  // rows of 4, 3 used
  qlis::tool::write_png_gray(dir.path() + "/gray.png", 3, 2, gray.data(), 4);
  EXPECT_EQ(qlis::tool::read_png_rgb(dir.path() + "/gray.png").rgb,
            (std::vector<uint8_t>{0, 0, 0, 100, 100, 100, 200, 200, 200, 17, 17,
                                  17, 255, 255, 255, 0, 0, 0}));
  for (const std::string &bad :
       std::vector<std::string>{dir.path() + "/missing.png",
                                QLIS_TOOL_DATA_DIR "/coffee.LICENSE.md"}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(qlis::tool::read_png_rgb(bad), qlis::tool::ToolError);
  }
}

}  // namespace

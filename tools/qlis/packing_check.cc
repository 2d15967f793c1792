#include "packing_check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "raw10_pack.h"

namespace qlis::tool {
namespace {

// Correlation of neighbouring bytes: in a picture well above the first
// mark even four pixels apart, in the low bits of a noisy sensor near 0.
constexpr double kAgrees = 0.5;
constexpr double kNoise = 0.2;
// Rows and groups a row looked at: pairs enough for a steady estimate, a
// pass cheap enough for every frame of a paced replay, and sums of squares
// whose products stay well inside 64 bits for any frame the library takes.
constexpr int32_t kRowsSampled = 256;
constexpr int32_t kGroupsSampled = 1024;
constexpr int kSampledByte = kRaw10GroupBytes - 1;

constexpr const char *kMeaning[3] = {
    "byte 4 of each group carries the picture, as the library expects",
    "the library's decisions on these frames are not meaningful: the sampled byte "
    "holds the low bits",
    "neither byte 4 nor bytes 0 to 3 clearly hold a picture (a flat or dark frame): "
    "the packing cannot be judged"};
constexpr const char *kAdvice =
    "repack the frames so that byte 4 holds pixel 3's high bits, or dump them as the "
    "library expects";

// Pearson correlation of the pairs added so far; 0 where either side
// never varies.
struct Agreement {
  int64_t n = 0, sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
  void add(int64_t a, int64_t b) { ++n, sa += a, sb += b, saa += a * a, sbb += b * b, sab += a * b; }
  double value() const {
    const double va = static_cast<double>(n * saa - sa * sa), vb = static_cast<double>(n * sbb - sb * sb);
    if (n == 0 || va <= 0.0 || vb <= 0.0) return 0.0;
    return static_cast<double>(n * sab - sa * sb) / std::sqrt(va * vb);
  }
};

}  // namespace

const char *finding_name(PackingFinding f) {
  switch (f) {
    case PackingFinding::kPicture: return "picture";
    case PackingFinding::kLowBits: return "low bits";
    default: return "could not tell";
  }
}

PackingFinding check_raw10_packing(const FrameDesc &d, const std::vector<uint8_t> &bytes) {
  Agreement at[kRaw10GroupBytes];
  const int32_t groups = d.width / kRaw10GroupPixels;
  // Neighbours of one Bayer colour: the next group (four columns on) and
  // the same group two rows down.
  const int32_t step = std::max<int32_t>(1, (d.height - 2) / kRowsSampled);
  const int32_t across = std::max<int32_t>(1, groups / kGroupsSampled);
  const auto pair = [&](const uint8_t *a, const uint8_t *b) {
    // Clipped pixels make even low bits agree: a run of 0x00 or 0xFF in
    // byte 4 says nothing about the packing.
    for (const uint8_t *g : {a, b})
      if (g[kSampledByte] == 0x00 || g[kSampledByte] == 0xFF) return;
    for (int k = 0; k < kRaw10GroupBytes; ++k) at[k].add(a[k], b[k]);
  };
  for (int32_t y = 0; y + 2 < d.height; y += step) {
    const uint8_t *row = bytes.data() + static_cast<size_t>(y) * static_cast<size_t>(d.stride);
    const uint8_t *below = row + 2 * static_cast<size_t>(d.stride);
    for (int32_t g = 0; g < groups; g += across) {
      const uint8_t *here = row + static_cast<size_t>(g) * kRaw10GroupBytes;
      if (g + 1 < groups) pair(here, here + kRaw10GroupBytes);
      pair(here, below + static_cast<size_t>(g) * kRaw10GroupBytes);
    }
  }
  double others = 0.0;
  for (int k = 0; k < kSampledByte; ++k) others = std::max(others, at[k].value());
  const double sampled = at[kSampledByte].value();
  if (sampled >= kAgrees) return PackingFinding::kPicture;
  if (sampled <= kNoise && others >= kAgrees) return PackingFinding::kLowBits;
  return PackingFinding::kCannotTell;
}

void PackingWatch::add(const FrameDesc &desc, const std::vector<uint8_t> &bytes) {
  if (desc.format == kFormatRaw10) ++counts_[static_cast<int>(check_raw10_packing(desc, bytes))];
}

PackingFinding PackingWatch::finding() const {
  if (counts_[static_cast<int>(PackingFinding::kLowBits)] > 0) return PackingFinding::kLowBits;
  if (counts_[static_cast<int>(PackingFinding::kPicture)] > 0) return PackingFinding::kPicture;
  return PackingFinding::kCannotTell;
}

void PackingWatch::warn() const {
  if (finding() != PackingFinding::kLowBits) return;
  const int32_t total = counts_[0] + counts_[1] + counts_[2];
  std::fflush(stdout);  // after the output it qualifies, on a shared terminal
  std::fprintf(stderr,
               "qlis: warning: in %d of %d RAW10 frames byte 4 of each group, the byte the "
               "library samples, is noise while bytes 0 to 3 hold a picture (high bits first): "
               "%s; %s\n",
               counts_[static_cast<int>(PackingFinding::kLowBits)], total,
               kMeaning[static_cast<int>(PackingFinding::kLowBits)], kAdvice);
}

std::string PackingWatch::summary() const {
  const int32_t total = counts_[0] + counts_[1] + counts_[2];
  if (total == 0) return "no RAW10 frame was read: nothing to check";
  const PackingFinding f = finding();
  const int i = static_cast<int>(f);
  std::string text = std::string(finding_name(f)) + " in " + std::to_string(counts_[i]) + " of " +
                     std::to_string(total) + " RAW10 frames: " + kMeaning[i];
  return f == PackingFinding::kLowBits ? text + "; " + kAdvice : text;
}

nlohmann::json PackingWatch::to_json() const {
  if (counts_[0] + counts_[1] + counts_[2] == 0) return nullptr;
  const PackingFinding f = finding();
  return {{"finding", finding_name(f)},
          {"frames_picture", counts_[static_cast<int>(PackingFinding::kPicture)]},
          {"frames_low_bits", counts_[static_cast<int>(PackingFinding::kLowBits)]},
          {"frames_could_not_tell", counts_[static_cast<int>(PackingFinding::kCannotTell)]},
          {"meaning", kMeaning[static_cast<int>(f)]},
          {"advice", f == PackingFinding::kLowBits ? nlohmann::json(kAdvice) : nlohmann::json()}};
}

}  // namespace qlis::tool

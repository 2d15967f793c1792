// Frames and base images for the judgement tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "compare/scratch_arena.h"
#include "ql_is/ql_is.h"

namespace qlis::test {

// A 256 x 192 packed RAW10 frame with a padded stride. The block features
// read byte 4 of each group on the even rows, the re-blur comparison byte 4
// of each group on rows 3, 7, 11, ...: texture and sharpness can be set
// apart. Blocks are 24 rows by 32 pixels (12 row pairs by 8 groups).
struct JudgedFrame {
  static constexpr int32_t kHeight = 192;
  static constexpr int32_t kWidth = 256;
  static constexpr int32_t kStride = 320;
  static constexpr int32_t kRowPairs = kHeight / 2;
  static constexpr int32_t kGroups = kWidth / 4;

  std::vector<uint8_t> bytes = std::vector<uint8_t>(kHeight * kStride, 0);

  // value(i, g) for the sample of row pair i, group g.
  template <typename Value>
  JudgedFrame &features(Value value) {
    for (int32_t i = 0; i < kRowPairs; ++i)
      for (int32_t g = 0; g < kGroups; ++g)
        bytes[2 * i * kStride + 5 * g + 4] = value(i, g);
    return *this;
  }
  // value(i, j) for the re-blur sample of row 4 i + 3, group j.
  template <typename Value>
  JudgedFrame &sharpness(Value value) {
    for (int32_t i = 0; i < kHeight / 4; ++i)
      for (int32_t j = 0; j < kGroups; ++j)
        bytes[(4 * i + 3) * kStride + 5 * j + 4] = value(i, j);
    return *this;
  }
  const uint8_t *data() const { return bytes.data(); }
};

inline auto constant(uint8_t v) {
  return [v](int32_t, int32_t) { return v; };
}
// Alternating samples: each block of even size has the mean (a + b) / 2 and
// the same sum as a flat block of that mean.
inline auto checker(uint8_t a, uint8_t b) {
  return [a, b](int32_t i, int32_t g) { return (i + g) % 2 != 0 ? b : a; };
}

// Every block half at 200 (bright) and half at 50 (dark), mean 125. In low
// light only every second row pair of a block is read; with an even first
// row pair the checker alternates along the groups, so the same holds
// there. The sharp variant has texture in the re-blur samples too.
inline const JudgedFrame kTextured =
    JudgedFrame().features(checker(50, 200)).sharpness(constant(128));
inline const JudgedFrame kTexturedSharp =
    JudgedFrame().features(checker(50, 200)).sharpness(checker(40, 220));

inline bool same(const BlockFeatureSet &a, const BlockFeatureSet &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

inline bool same(const std::vector<DiffHistogram> &a,
                 const std::vector<DiffHistogram> &b) {
  return a.size() == b.size() &&
         std::memcmp(a.data(), b.data(), a.size() * sizeof(DiffHistogram)) == 0;
}

// Re-blur score of a plane of 128s: the 11 x 11 average comes out as 127
// everywhere, so the score is n / (128 n) exactly.
inline constexpr double kPlaneOf128Score = 1.0 / 128.0;

// The session-sized arena, one block for all the tests.
inline ScratchArena test_arena() {
  static std::vector<uint8_t> block(kScratchArenaBytes);
  return {block.data(), kScratchArenaBytes, 0};
}

// The base image of a session, preset with recognisable bytes where a test
// needs to see whether they were written.
struct BaseImage {
  int64_t quality = 0;
  BlockFeatureSet features{};
  std::vector<DiffHistogram> hist = std::vector<DiffHistogram>(64);
  std::vector<uint8_t> raw = std::vector<uint8_t>(2560, 0);
  double clarity = 0.0;

  void scribble() {
    quality = 0x1234;
    std::memset(&features, 0x5a, sizeof features);
    std::memset(hist.data(), 0x3c, hist.size() * sizeof(DiffHistogram));
    std::memset(raw.data(), 0x77, raw.size());
    clarity = 0.75;
  }
  bool same_as(const BaseImage &o) const {
    return quality == o.quality && same(features, o.features) &&
           same(hist, o.hist) && raw == o.raw &&
           std::memcmp(&clarity, &o.clarity, 8) == 0;
  }
};

}  // namespace qlis::test

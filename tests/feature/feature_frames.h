// Frames, block arguments and record comparisons shared by the feature and
// metrics tests.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "feature/block_args.h"
#include "ql_is/ql_is.h"
#include "support/frames.h"
#include "support/page_end_buffer.h"

namespace qlis::test {

// Seed of a frame of random bytes.
struct Noise {
  uint32_t seed;
};

// A packed frame on a page-end buffer: every byte `fill`, or random bytes
// (so that reading anything but the samples shows), with RAW10 samples
// (i, g) = byte 4 of group g on row 2 i set on top.
class PackedFrame {
 public:
  PackedFrame(Geometry g, uint8_t fill) : PackedFrame(g) {
    std::memset(buffer_->data(), fill, buffer_->size());
  }
  PackedFrame(Geometry g, Noise noise) : PackedFrame(g) {
    std::mt19937 engine(noise.seed);
    fill_random(buffer_->data(), buffer_->size(), engine);
  }
  void set(int32_t i, int32_t g, uint8_t v) {
    set_raw10_sample(buffer_->data(), geometry_.stride, i, g, v);
  }
  // Every sample of the frame to value(i, g).
  template <typename Value>
  PackedFrame &samples(Value value) {
    for (int32_t i = 0; i < geometry_.height / 2; ++i) {
      for (int32_t g = 0; g < geometry_.width / 4; ++g) set(i, g, value(i, g));
    }
    return *this;
  }
  const uint8_t *data() const { return buffer_->data(); }
  const Geometry &geometry() const { return geometry_; }

 private:
  explicit PackedFrame(Geometry g)
      : geometry_(g),
        buffer_(std::make_unique<PageEndBuffer>(
            static_cast<size_t>(g.height) * static_cast<size_t>(g.stride))) {}
  Geometry geometry_;
  std::unique_ptr<PageEndBuffer> buffer_;  // movable frames
};

// 0 and 255 alternating: the largest gradient every sample can have.
inline uint8_t checker_0_255(int32_t i, int32_t g) {
  return (i + g) % 2 != 0 ? 255 : 0;
}

// A block rectangle in pixels (RAW10) or bytes (planes), ends exclusive.
struct BlockRect {
  int32_t row_begin, row_end, col_begin, col_end;
};

inline BlockArgs block_args(const uint8_t *data, Geometry g, BlockRect r,
                            int32_t dist = 1, int32_t stats_flag = 1,
                            int32_t gradient_flag = 1) {
  return {data,     r.row_begin, r.row_end, r.col_begin, r.col_end,    dist,
          g.height, g.width,     g.stride,  stats_flag,  gradient_flag};
}

template <typename Frame>
BlockArgs block_args(const Frame &f, BlockRect r, int32_t dist = 1,
                     int32_t stats_flag = 1, int32_t gradient_flag = 1) {
  return block_args(f.data(), f.geometry(), r, dist, stats_flag, gradient_flag);
}

// The flag pairs the twins are compared under: the three that compute and
// two that do not.
inline constexpr int32_t kTwinFlagPairs[5][2] = {
    {1, 1}, {1, 0}, {0, 1}, {0, 0}, {2, 1}};

// The whole frame and `count` random rectangles, whose ends may lie past
// the frame's.
inline std::vector<BlockRect> twin_rects(Geometry g, int count, uint32_t seed) {
  std::mt19937 engine(seed);
  const auto pick = [&](int32_t hi) {
    return std::uniform_int_distribution<int32_t>(0, hi)(engine);
  };
  std::vector<BlockRect> rects = {{0, g.height, 0, g.width}};
  for (int k = 0; k < count; ++k) {
    const int32_t row = pick(g.height);
    const int32_t col = pick(g.width);
    rects.push_back(
        {row, row + pick(g.height + 8), col, col + pick(g.width + 16)});
  }
  return rects;
}

// A copy of the first `bytes` bytes of a frame, ending a page: a kernel
// that reads past the last byte its block needs crashes. A block that
// reads nothing gets one byte.
template <typename Frame>
std::unique_ptr<PageEndBuffer> cut_after(const Frame &frame, size_t bytes) {
  auto cut = std::make_unique<PageEndBuffer>(bytes == 0 ? 1 : bytes);
  if (bytes != 0) std::memcpy(cut->data(), frame.data(), bytes);
  return cut;
}

// One past the last byte of a RAW10 block's samples: sample rows i0..last_row
// and groups g0..last_group of them (the gradient's neighbours included).
inline size_t raw10_end_of_reads(int32_t stride, int32_t last_row,
                                 int32_t last_group) {
  return 2 * static_cast<size_t>(last_row) * static_cast<size_t>(stride) +
         5 * static_cast<size_t>(last_group) + 5;
}

template <typename T>
bool same_bytes(const T &a, const T &b) {
  static_assert(std::is_trivially_copyable_v<T>, "compare the elements");
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Records are preset to this pattern, which no producer writes.
inline const double kUnwritten = std::bit_cast<double>(0x5a5a5a5a5a5a5a5aull);

inline BlockFeatureSet unwritten_records() {
  BlockFeatureSet set;
  std::memset(&set, 0x5a, sizeof set);
  return set;
}

// Field by field by bit pattern, except that any NaN matches any NaN: the
// sign of a computed NaN differs between targets.
inline bool same_fields(const BlockFeature &got, const BlockFeature &want) {
  const double *g = &got.sample_sum;
  const double *w = &want.sample_sum;
  for (int f = 0; f < 6; ++f) {
    const bool same = std::isnan(w[f])
                          ? std::isnan(g[f])
                          : std::bit_cast<uint64_t>(g[f]) ==
                                std::bit_cast<uint64_t>(w[f]);
    if (!same) return false;
  }
  return true;
}

// Blocks (r, c) with r + c even.
inline bool on_checkerboard(int block) {
  return (block / 8 + block % 8) % 2 == 0;
}

}  // namespace qlis::test

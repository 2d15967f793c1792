// What the feature targets share: one frame and one block of it drawn from
// the input, and the page-end copy that holds a block kernel to the bytes
// its block needs.
#pragma once

#include <cstring>
#include <memory>

#include "feature/block_args.h"
#include "fuzz_target.h"
#include "support/page_end_buffer.h"

namespace qlis::fuzz {

// A RAW10 frame (four pixels and five bytes a group, up to 15 bytes of
// padding) or an 8-bit plane (width and stride in bytes, as wide as the
// same number of groups has pixels) on a page-end buffer with `below` more
// readable rows, and a block whose rectangle may be empty or reach past it,
// under any flag pair of 0..2. Mostly up to 64 groups by 64 rows; one input
// in 64 up to 2100 groups by `wide_rows` rows, one in 64 up to 330 groups
// by 1040 rows, where the kernels' strips, spans and narrow lanes turn over
// (the seeds hold such frames). The pixels are what is left of the input.
struct BlockCase {
  BlockCase(Input &in, bool raw10, int32_t dist, int32_t below = 0, int32_t wide_rows = 160) {
    const int32_t shape = in.range(0, 63);
    const int32_t groups = shape == 0 ? 2100 : shape == 1 ? 330 : 64;
    const int32_t width = raw10 ? 4 * in.range(0, groups) : in.range(0, 4 * groups);
    const int32_t height = in.range(0, shape == 0 ? wide_rows : shape == 1 ? 1040 : 64);
    const int32_t stride = (raw10 ? width / 4 * 5 : width) + in.range(0, 15);
    const int32_t top = in.range(0, height + 8), bottom = top + in.range(-8, height + 8);
    const int32_t left = in.range(0, width + 16), right = left + in.range(-8, width + 16);
    const int32_t stats = in.range(0, 2), gradient = in.range(0, 2);
    args = {nullptr, top, bottom, left, right, dist, height, width, stride, stats, gradient};
    mode = static_cast<uint32_t>(in.range(0, 3));
    bytes = std::make_unique<test::PageEndBuffer>(static_cast<size_t>(height + below) * static_cast<size_t>(stride));
    in.fill(bytes->data(), bytes->size());
    args.data = bytes->data();
  }
  BlockArgs args;
  uint32_t mode;  // for the frame drivers
  std::unique_ptr<test::PageEndBuffer> bytes;
};

// Calls an exported block extractor with its outputs, then `data` and the
// block's rectangle, distance, geometry and flags.
template <typename Extractor, typename... Outputs>
auto extract(Extractor f, const BlockArgs &a, const uint8_t *data, Outputs... out) {
  return f(out..., data, a.row_begin, a.row_end, a.col_begin, a.col_end, a.dist, a.height, a.width, a.stride,
           a.stats_flag, a.gradient_flag);
}

// The first `end` bytes of a frame on their own, the last of them the last
// readable byte: a kernel given the copy faults on reading further.
struct Cut : test::PageEndBuffer {
  Cut(const uint8_t *frame, size_t end) : PageEndBuffer(end) { std::memcpy(data(), frame, end); }
};

// One past RAW10 sample (row pair, group).
inline size_t raw10_end(int32_t stride, int32_t row, int32_t group) {
  return 2 * static_cast<size_t>(row) * static_cast<size_t>(stride) + 5 * static_cast<size_t>(group) + 5;
}

template <typename T>
bool same(const T &a, const T &b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

}  // namespace qlis::fuzz

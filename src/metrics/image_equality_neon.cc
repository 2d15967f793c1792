// NEON twin of the gradient energy of an interleaved 8-bit image. Per line
// the columns go 16 at a time (32, as two vectors, on a luma plane): each
// lane's absolute difference is chosen between the two wrap-around
// differences by an unsigned compare, widened 8 -> 16 -> 32 bits into four
// 4-lane accumulators, and the accumulators are folded pairwise at the end
// of the line. The columns after the last whole step go one by one.
#include <utility>

#include "metrics/image_equality.h"
#include "platform/neon.h"

namespace qlis::neon {
namespace {

constexpr int64_t kLanes = 16;
// A luma plane takes two vectors per step.
constexpr int64_t kPlaneStep = 2 * kLanes;

// Both wrap-around differences are computed; where a > b (unsigned) a - b is
// the absolute difference, elsewhere b - a is.
inline uint8x16_t abs_diff(uint8x16_t a, uint8x16_t b) {
  return vbslq_u8(vcgtq_u8(a, b), vsubq_u8(a, b), vsubq_u8(b, a));
}

inline uint32_t abs_diff(uint8_t a, uint8_t b) {
  return a > b ? static_cast<uint32_t>(a - b) : static_cast<uint32_t>(b - a);
}

// One line's four 4-lane accumulators. A lane gains at most 2 x 255 per
// vector and may wrap on an extremely wide line; it wraps modulo 2^32
// exactly as the scalar uint32_t sum does, and sums modulo 2^32 do not
// depend on the order of the terms, so the folded total is bit-exact with
// the portable one for every width.
struct LineSum {
  uint32x4_t acc[4] = {vdupq_n_u32(0), vdupq_n_u32(0), vdupq_n_u32(0),
                       vdupq_n_u32(0)};

  void add(uint8x16_t s, uint8x16_t right, uint8x16_t below) {
    const uint8x16_t dv = abs_diff(s, below);
    const uint8x16_t dh = abs_diff(s, right);
    // Two differences of at most 255 each fit a 16-bit lane.
    const uint16x8_t low = vaddl_u8(vget_low_u8(dv), vget_low_u8(dh));
    const uint16x8_t high = vaddl_u8(vget_high_u8(dv), vget_high_u8(dh));
    acc[0] = vaddw_u16(acc[0], vget_low_u16(low));
    acc[1] = vaddw_u16(acc[1], vget_high_u16(low));
    acc[2] = vaddw_u16(acc[2], vget_low_u16(high));
    acc[3] = vaddw_u16(acc[3], vget_high_u16(high));
  }

  uint32_t fold() const {
#if QLIS_NEON_A64
    const uint32x4_t pairs =
        vpaddq_u32(vpaddq_u32(acc[0], acc[1]), vpaddq_u32(acc[2], acc[3]));
    return vaddvq_u32(pairs);
#else
    const uint32x4_t both = vaddq_u32(vaddq_u32(acc[0], acc[1]),
                                      vaddq_u32(acc[2], acc[3]));
    const uint32x2_t pairs = vpadd_u32(vget_low_u32(both), vget_high_u32(both));
    return vget_lane_u32(vpadd_u32(pairs, pairs), 0);
#endif
  }
};

// Loaders of the samples of 16 consecutive pixels starting at p; each reads
// only bytes of those 16 pixels.
struct PlaneLoad {
  uint8x16_t operator()(const uint8_t *p) const { return vld1q_u8(p); }
};

// The even bytes of 32: the luma of 16 YUYV pixels. A64 unzips two plain
// loads (SIMDe turns that into one shuffle where it would copy a
// de-interleaving load byte by byte); A32 keeps the de-interleaving load.
struct EvenByteLoad {
  uint8x16_t operator()(const uint8_t *p) const {
#if QLIS_NEON_A64
    return vuzp1q_u8(vld1q_u8(p), vld1q_u8(p + kLanes));
#else
    return vld2q_u8(p).val[0];
#endif
  }
};

// One byte every `step` bytes, lane by lane, for pixel sizes without a
// de-interleaving load.
template <int... kLane>
inline uint8x16_t gather(const uint8_t *p, size_t step,
                         std::integer_sequence<int, kLane...>) {
  uint8x16_t v = vdupq_n_u8(0);
  ((v = vld1q_lane_u8(p + static_cast<size_t>(kLane) * step, v, kLane)), ...);
  return v;
}

struct StridedLoad {
  size_t step;
  uint8x16_t operator()(const uint8_t *p) const {
    return gather(p, step, std::make_integer_sequence<int, kLanes>());
  }
};

// The sum of one line, kVectors loads of 16 pixels per step.
template <int64_t kVectors, typename Load>
uint32_t line_sum(const EqualityRect &r, int64_t y, Load load) {
  constexpr int64_t kStep = kVectors * kLanes;
  const size_t vector_bytes = static_cast<size_t>(kLanes * r.bytes_per_pixel);
  const uint8_t *s = r.pixel(r.left, y);
  const uint8_t *right = r.pixel(r.left + r.distance, y);
  const uint8_t *below = r.pixel(r.left, y + r.distance);
  LineSum acc;
  int64_t x = r.left;
  for (; x + kStep - 1 <= r.right; x += kStep) {
    for (int64_t v = 0; v < kVectors; ++v) {
      acc.add(load(s), load(right), load(below));
      s += vector_bytes;
      right += vector_bytes;
      below += vector_bytes;
    }
  }
  uint32_t sum = acc.fold();
  for (; x <= r.right; ++x) {
    const uint8_t c = *r.pixel(x, y);
    sum += abs_diff(c, *r.pixel(x, y + r.distance));
    sum += abs_diff(c, *r.pixel(x + r.distance, y));
  }
  return sum;
}

template <int64_t kVectors, typename Load>
uint32_t rect_sum(const EqualityRect &r, Load load) {
  if (r.empty()) return 0;
  uint32_t sum = 0;
  for (int64_t y = r.top; y <= r.bottom; ++y) {
    sum += line_sum<kVectors>(r, y, load);
  }
  return sum;
}

}  // namespace

uint32_t plane_gradient_sum(const EqualityRect &r) {
  return rect_sum<kPlaneStep / kLanes>(r, PlaneLoad{});
}

uint32_t strided_gradient_sum(const EqualityRect &r) {
  switch (r.bytes_per_pixel) {
    case 1:
      return rect_sum<1>(r, PlaneLoad{});
    case 2:
      return rect_sum<1>(r, EvenByteLoad{});
    default:
      return rect_sum<1>(r, StridedLoad{static_cast<size_t>(r.bytes_per_pixel)});
  }
}

uint32_t yuyv_gradient_sum(const EqualityRect &r) {
  return rect_sum<1>(r, EvenByteLoad{});
}

}  // namespace qlis::neon

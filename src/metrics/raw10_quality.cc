// RAW10 rectangle metrics over frames whose rows are width * 10 / 8 bytes
// apart. A plain scalar loop: these metrics are not on the live path.
#include "metrics/raw10_quality.h"

#include <cstddef>

#include "ql_is/ql_is.h"

namespace qlis {
namespace {

constexpr int64_t kGroupBytes = 5;
constexpr int64_t kSampleOffset = 4;

// Half-rows [t0, t1) and groups [g0, g1), as mathematical integers so that
// no distance or bound can overflow the clamp.
struct SampleSpan {
  int64_t t0;
  int64_t t1;
  int64_t g0;
  int64_t g1;
};

// Pulls the far edges in so that the neighbours stay inside the frame, one
// sample wider than they need: a rectangle reaching the bottom or right
// edge loses its last two half-rows or groups. Kept, because block values
// of edge blocks depend on it.
bool clamp_span(SampleSpan &s, int64_t distance, int32_t height,
                int32_t width) {
  const int64_t half_rows = height >> 1;
  const int64_t groups = width >> 2;
  if (half_rows <= s.t1 + distance) s.t1 = half_rows - 1 - distance;
  if (s.t1 <= s.t0) return false;
  if (groups <= s.g1 + distance) s.g1 = groups - 1 - distance;
  return s.g0 < s.g1;
}

// Visits every sample of the span, half-rows outer, groups inner, and adds
// term(c, right, down). The sum is kept in 32 bits and wraps on very large
// rectangles of extreme contrast; callers rely on the wrapped value.
template <typename Term>
uint32_t visit(const uint8_t *frame, int32_t width, const SampleSpan &s,
               int64_t distance, Term term) {
  // Unpadded rows: the pitch follows from the width.
  const int64_t pitch = static_cast<int64_t>(width) * 10 / 8;
  const int64_t down = 2 * distance * pitch;
  const int64_t right = kGroupBytes * distance;
  uint32_t sum = 0;
  for (int64_t t = s.t0; t < s.t1; ++t) {
    const uint8_t *line = frame + static_cast<ptrdiff_t>(2 * t * pitch);
    for (int64_t k = s.g0; k < s.g1; ++k) {
      const uint8_t *c = line + static_cast<ptrdiff_t>(kGroupBytes * k +
                                                       kSampleOffset);
      sum += term(c[0], c[right], c[down]);
    }
  }
  return sum;
}

}  // namespace

int32_t raw10_squared_gradient(const Raw10MetricArgs &a, uint32_t distance) {
  SampleSpan s{a.top >> 1, a.bottom >> 1, a.left >> 2, a.right >> 2};
  if (!clamp_span(s, distance, a.height, a.width)) return kRaw10MetricEmpty;
  const uint32_t sum =
      visit(a.frame, a.width, s, distance,
            [](int32_t c, int32_t right, int32_t down) {
              return static_cast<uint32_t>((right - c) * (right - c) +
                                           (down - c) * (down - c));
            });
  return static_cast<int32_t>(sum);
}

int32_t raw10_absolute_gradient(const Raw10MetricArgs &a) {
  constexpr int64_t kDistance = 1;
  SampleSpan s{a.top / 2, a.bottom / 2, a.left / 4, a.right / 4};
  if (!clamp_span(s, kDistance, a.height, a.width)) return kRaw10MetricEmpty;
  const uint32_t sum =
      visit(a.frame, a.width, s, kDistance,
            [](int32_t c, int32_t right, int32_t down) {
              const int32_t dh = right > c ? right - c : c - right;
              const int32_t dv = down > c ? down - c : c - down;
              return static_cast<uint32_t>(dh + dv);
            });
  return static_cast<int32_t>(sum);
}

}  // namespace qlis

extern "C" {

QL_IS_API int32_t image_quality_for_raw_10bit_continuous_2(
    const uint8_t *frame, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t distance, int32_t height, int32_t width) {
  return qlis::raw10_squared_gradient(
      {frame, top, bottom, left, right, height, width}, distance);
}

// The distance argument stays in the signature; this metric always looks
// one sample on.
QL_IS_API int32_t image_quality_for_raw_10bit_continuous_2_true_pitch1(
    const uint8_t *frame, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t /*distance*/, int32_t height, int32_t width) {
  return qlis::raw10_absolute_gradient(
      {frame, top, bottom, left, right, height, width});
}

}  // extern "C"

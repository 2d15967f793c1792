// Portable gradient energy of an interleaved 8-bit image, and the three
// exported names that measure a luma plane, any pixel size and YUYV.
#include "metrics/image_equality.h"

#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"

namespace qlis {
namespace portable {
namespace {

inline uint32_t abs_diff(uint8_t a, uint8_t b) {
  return a > b ? static_cast<uint32_t>(a - b) : static_cast<uint32_t>(b - a);
}

// The sum wraps at 32 bits for large rectangles of extreme contrast; the
// wrapped value is the result.
uint32_t gradient_sum(const EqualityRect &r) {
  if (r.empty()) return 0;
  uint32_t sum = 0;
  for (int64_t y = r.top; y <= r.bottom; ++y) {
    for (int64_t x = r.left; x <= r.right; ++x) {
      const uint8_t s = *r.pixel(x, y);
      sum += abs_diff(s, *r.pixel(x, y + r.distance));
      sum += abs_diff(s, *r.pixel(x + r.distance, y));
    }
  }
  return sum;
}

}  // namespace

uint32_t plane_gradient_sum(const EqualityRect &r) { return gradient_sum(r); }
uint32_t strided_gradient_sum(const EqualityRect &r) { return gradient_sum(r); }
uint32_t yuyv_gradient_sum(const EqualityRect &r) { return gradient_sum(r); }

}  // namespace portable

namespace {

constexpr uint64_t kPlaneBytesPerPixel = 1;
constexpr uint64_t kYuyvBytesPerPixel = 2;

EqualityRect equality_rect(const uint8_t *frame, int32_t top, int32_t bottom,
                           uint32_t left, int32_t right, int32_t distance,
                           uint32_t width, uint64_t bytes_per_pixel) {
  return {frame, top, bottom, left, right, distance, width, bytes_per_pixel};
}

}  // namespace
}  // namespace qlis

extern "C" {

QL_IS_API int32_t image_equality(const uint8_t *frame, int32_t top,
                                 int32_t bottom, uint32_t left, int32_t right,
                                 int32_t distance, uint32_t /*extra*/,
                                 uint32_t width) {
  const uint32_t sum = qlis::kernels::plane_gradient_sum(
      qlis::equality_rect(frame, top, bottom, left, right, distance, width,
                          qlis::kPlaneBytesPerPixel));
  return static_cast<int32_t>(sum);
}

QL_IS_API uint32_t image_equality_common(const uint8_t *frame, int32_t top,
                                         int32_t bottom, uint32_t left,
                                         int32_t right, int32_t distance,
                                         uint32_t bytes_per_pixel,
                                         uint32_t /*extra*/, uint32_t width) {
  return qlis::kernels::strided_gradient_sum(qlis::equality_rect(
      frame, top, bottom, left, right, distance, width, bytes_per_pixel));
}

QL_IS_API uint32_t image_equality_for_yuyv(const uint8_t *frame, int32_t top,
                                           int32_t bottom, uint32_t left,
                                           int32_t right, int32_t distance,
                                           uint32_t /*extra*/,
                                           uint32_t width) {
  return qlis::kernels::yuyv_gradient_sum(
      qlis::equality_rect(frame, top, bottom, left, right, distance, width,
                          qlis::kYuyvBytesPerPixel));
}

}  // extern "C"

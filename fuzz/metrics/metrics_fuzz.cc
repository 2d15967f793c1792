// The whole-image metrics. Gradient energy: the kernel in use matches the
// portable one bit for bit at every pixel size, the plane and YUYV exports
// agree with the common one, distance 0 gives 0, and an empty rectangle gives
// 0 without reading a byte, whatever its bounds. The RAW10 metrics and the
// block figures read only their unpadded frame, and the block worker writes
// exactly the blocks of its rows whose mask byte is 1, in all 8 columns
// whatever the grid arguments say.
#include <climits>
#include <vector>

#include "fuzz_target.h"
#include "metrics/image_equality.h"
#include "platform/simd_dispatch.h"
#include "ql_is/ql_is.h"
#include "support/page_end_buffer.h"

QLIS_FUZZ_TARGET(metrics) {
  qlis::fuzz::Input in(data, size);
  if (in.flag()) {
    const uint32_t bpp = in.range(0, 5), distance = in.range(0, 4), width = in.range(distance + 1, 300);
    int32_t top = in.range(0, 8), bottom = top + in.range(0, 24), right = in.range(0, width - distance - 1);
    uint32_t left = in.range(0, right);
    // One rectangle in eight takes any bounds at all, kept when they make
    // it empty; its frame is then the first unreadable byte.
    const bool any = in.range(0, 7) == 0;
    if (any) {
      top = in.range(INT32_MIN, INT32_MAX), bottom = in.range(INT32_MIN, INT32_MAX);
      left = in.range(INT32_MIN, INT32_MAX), right = in.range(INT32_MIN, INT32_MAX);
      if (top <= bottom && right >= int64_t{left}) return;
    }
    // Up to the last byte of the last pixel the neighbours reach.
    qlis::test::PageEndBuffer frame(any ? 0 : bpp == 0 ? 1 : bpp * ((bottom + distance) * width + right + 1));
    in.fill(frame.data(), frame.size());
    const uint8_t *f = frame.data();
    const qlis::EqualityRect r{f, top, bottom, left, right, distance, width, bpp};
    const uint32_t common = image_equality_common(f, top, bottom, left, right, distance, bpp, 0, width);
    QLIS_FUZZ_CHECK(qlis::kernels::strided_gradient_sum(r) == qlis::portable::strided_gradient_sum(r));
    QLIS_FUZZ_CHECK((!any && distance != 0) || common == 0);
    QLIS_FUZZ_CHECK(bpp != 1 || static_cast<uint32_t>(image_equality(f, top, bottom, left, right, distance, 0,
                                                                     width)) == common);
    QLIS_FUZZ_CHECK(bpp != 2 ||
                    image_equality_for_yuyv(f, top, bottom, left, right, distance, 0, width) == common);
    return;
  }

  const int32_t height = in.range(0, 48), width = in.range(0, 160), first_row = in.range(0, 8);
  const int32_t end_row = in.range(0, 8), top = in.range(0, height + 4), bottom = in.range(-4, height + 4);
  const int32_t left = in.range(0, width + 8), right = in.range(-8, width + 8), grid = in.range(0, 8);
  const uint32_t distance = in.flag() ? in.range(0, 8) : in.range(INT32_MIN, INT32_MAX);
  std::vector<int32_t> rects(4 * 64);  // top, bottom, left, right
  for (size_t k = 0; k < rects.size(); ++k) rects[k] = in.range(0, (k & 2 ? width : height) + 8);
  uint8_t mask[64];
  for (uint8_t &m : mask) m = static_cast<uint8_t>(in.range(0, 2));
  qlis::test::PageEndBuffer frame(static_cast<size_t>(height) * static_cast<size_t>(width * 10 / 8));
  in.fill(frame.data(), frame.size());
  const uint8_t *f = frame.data();
  image_quality_for_raw_10bit_continuous_2(f, top, bottom, left, right, distance, height, width);
  image_quality_for_raw_10bit_continuous_2_true_pitch1(f, top, bottom, left, right, distance, height, width);
  std::vector<int64_t> results(64, INT64_MIN);  // a value no weighted block reaches
  QLIS_FUZZ_CHECK(calc_quality_with_sub_inner(f, first_row, end_row, rects.data(), results.data(), mask, grid,
                                              grid, height, width) == 1);
  for (int32_t k = 0; k < 64; ++k) {
    QLIS_FUZZ_CHECK((results[k] != INT64_MIN) == (k / 8 >= first_row && k / 8 < end_row && mask[k] == 1));
  }
  // Four threads of its own per call, slow to start under emulation: one
  // input in sixteen.
  if (in.range(0, 15) == 0) calc_quality_with_sub(f, height, width);
}

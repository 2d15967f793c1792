// The YUV frame driver on a 1920x1080 plane, against a read pass over the
// cache lines of exactly the rows it reads.
#include <benchmark/benchmark.h>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using qlis::bench::kYuvHeight;
using qlis::bench::kYuvStride;
using qlis::bench::kYuvWidth;

// Each block reads every fourth row from its first one, plus the row below
// each of those for the lower neighbours; the bottom blocks stop two rows
// short of the frame's end (the extractor's edge clamp).
constexpr int32_t kRowStep = 4;
constexpr int32_t kBlockRows = kYuvHeight >> 3;
constexpr size_t kRowBytes = kYuvWidth;

uint64_t touch_driver_rows(const uint8_t *frame) {
  uint64_t sum = 0;
  for (int32_t r = 0; r < 8; ++r) {
    const int32_t begin = r * kBlockRows;
    int32_t end = begin + kBlockRows;
    if (end + 1 >= kYuvHeight) end = kYuvHeight - 2;
    sum += qlis::bench::touch_rows(frame, begin, end, kRowStep, kYuvStride,
                                   kRowBytes);
    sum += qlis::bench::touch_rows(frame, begin + 1, end + 1, kRowStep,
                                   kYuvStride, kRowBytes);
  }
  return sum;
}

using qlis::bench::Cache;

void BM_YuvDriver(benchmark::State &state, Cache cache) {
  const uint8_t *frame = qlis::bench::yuv_frame();
  BlockFeatureSet features;
  qlis::bench::iterate(state, cache, [&] {
    benchmark::DoNotOptimize(
        calc_feature_quality_with_sub_yuv(&features, frame, kYuvHeight, kYuvWidth, kYuvStride));
    benchmark::ClobberMemory();
  });
}

void BM_YuvDriverFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = qlis::bench::yuv_frame();
  qlis::bench::iterate(state, cache,
                       [&] { benchmark::DoNotOptimize(touch_driver_rows(frame)); });
}

QLIS_COLD(BM_YuvDriverFloor);
QLIS_COLD(BM_YuvDriver);
QLIS_WARM(BM_YuvDriverFloor);
QLIS_WARM(BM_YuvDriver);

[[maybe_unused]] const bool kRegistered =
    (qlis::bench::compare("BM_YuvDriver/cold", "BM_YuvDriverFloor/cold", 0),
     qlis::bench::compare("BM_YuvDriver/warm", "BM_YuvDriverFloor/warm", 0), true);

}  // namespace

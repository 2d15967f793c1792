// The whole-image metrics: the gradient energy of 8-bit images on the
// 1920x1080 luma plane against a read pass over its bytes, and the
// threaded RAW10 block figure on the 4000x3000 frame against the same work
// on one thread and against a read pass over the lines it reads.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

// The luma plane as a whole: every line but the last (the lower neighbours
// of the last line measured), every column but the last (the right
// neighbours). The same 1920-byte lines are read as 960 YUYV pixels, or as
// 640 three-byte pixels for the gathering path of the common function.
constexpr int32_t kDistance = 1;
constexpr int32_t kBottom = kYuvHeight - 1 - kDistance;
constexpr uint32_t kExtra = 0;

uint32_t plane_columns(uint32_t bytes_per_pixel) {
  return static_cast<uint32_t>(kYuvStride) / bytes_per_pixel;
}

// Every byte of every line is read (with 3-byte pixels, only the first
// byte of each pixel, which still touches every cache line).
uint64_t touch_plane(const uint8_t *frame) {
  return touch_rows(frame, 0, kYuvHeight, 1, kYuvStride, kYuvStride);
}

void BM_ImageEquality(benchmark::State &state, Cache cache) {
  const uint8_t *frame = yuv_frame();
  const uint32_t width = plane_columns(1);
  const int32_t right = static_cast<int32_t>(width) - 1 - kDistance;
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(image_equality(frame, 0, kBottom, 0, right,
                                            kDistance, kExtra, width));
  });
}

void BM_ImageEqualityYuyv(benchmark::State &state, Cache cache) {
  const uint8_t *frame = yuv_frame();
  const uint32_t width = plane_columns(2);
  const int32_t right = static_cast<int32_t>(width) - 1 - kDistance;
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(image_equality_for_yuyv(
        frame, 0, kBottom, 0, right, kDistance, kExtra, width));
  });
}

void run_common(benchmark::State &state, Cache cache,
                uint32_t bytes_per_pixel) {
  const uint8_t *frame = yuv_frame();
  const uint32_t width = plane_columns(bytes_per_pixel);
  const int32_t right = static_cast<int32_t>(width) - 1 - kDistance;
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(image_equality_common(frame, 0, kBottom, 0, right,
                                                   kDistance, bytes_per_pixel,
                                                   kExtra, width));
  });
}

void BM_ImageEqualityCommon2(benchmark::State &state, Cache cache) {
  run_common(state, cache, 2);
}
void BM_ImageEqualityCommon3(benchmark::State &state, Cache cache) {
  run_common(state, cache, 3);
}

void BM_ImageEqualityFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = yuv_frame();
  iterate(state, cache,
          [&] { benchmark::DoNotOptimize(touch_plane(frame)); });
}

// The figure's rows are width * 10 / 8 = 5000 bytes apart, the benchmark
// frame's stride. The clamp stops two sample rows and columns short of
// the frame's end: even lines 0 .. kRawHeight - 4 and groups 0 ..
// kRawWidth / 4 - 2 (the last one as a right neighbour) are read.
static_assert(kRawWidth * 10 / 8 == kRawStride);
constexpr int32_t kLinesRead = kRawHeight - 2;
constexpr size_t kLineBytes = 5 * (kRawWidth / 4 - 1);

void BM_QualityWithSub(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(
        calc_quality_with_sub(frame, kRawHeight, kRawWidth));
  });
}

// The same 64 blocks, rectangles and mask measured by the worker on the
// calling thread, without thread creation, logging or the fold.
void BM_QualityWithSubOneThread(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  constexpr int32_t kGrid = 8;
  const int32_t hb = kRawHeight >> 3;
  const int32_t wb = kRawWidth >> 3;
  int32_t rects[4 * kGrid * kGrid];
  for (int32_t i = 0; i < kGrid; ++i) {
    for (int32_t j = 0; j < kGrid; ++j) {
      int32_t *r = rects + 4 * (kGrid * i + j);
      r[0] = i * hb;
      r[1] = (i + 1) * hb;
      r[2] = j * wb;
      r[3] = (j + 1) * wb;
    }
  }
  uint8_t mask[kGrid * kGrid];
  for (uint8_t &m : mask) m = 1;
  int64_t results[kGrid * kGrid] = {};
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(
        calc_quality_with_sub_inner(frame, 0, kGrid, rects, results, mask,
                                    kGrid, kGrid, kRawHeight, kRawWidth));
    benchmark::ClobberMemory();
  });
}

void BM_QualityWithSubFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(
        touch_rows(frame, 0, kLinesRead, 2, kRawStride, kLineBytes));
  });
}

QLIS_BOTH(BM_ImageEqualityFloor);
QLIS_BOTH(BM_ImageEquality);
QLIS_BOTH(BM_ImageEqualityYuyv);
QLIS_BOTH(BM_ImageEqualityCommon2);
QLIS_BOTH(BM_ImageEqualityCommon3);
QLIS_BOTH(BM_QualityWithSubFloor);
QLIS_BOTH(BM_QualityWithSubOneThread);
QLIS_BOTH(BM_QualityWithSub);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_ImageEquality/cold", "BM_ImageEqualityFloor/cold", 0),
     compare("BM_ImageEqualityYuyv/cold", "BM_ImageEqualityFloor/cold", 0),
     compare("BM_ImageEqualityCommon2/cold", "BM_ImageEqualityFloor/cold", 0),
     compare("BM_ImageEqualityCommon3/cold", "BM_ImageEqualityFloor/cold", 0),
     compare("BM_ImageEquality/warm", "BM_ImageEqualityFloor/warm", 0),
     compare("BM_ImageEqualityYuyv/warm", "BM_ImageEqualityFloor/warm", 0),
     compare("BM_ImageEqualityCommon2/warm", "BM_ImageEqualityFloor/warm", 0),
     compare("BM_ImageEqualityCommon3/warm", "BM_ImageEqualityFloor/warm", 0),
     compare("BM_QualityWithSub/cold", "BM_QualityWithSubOneThread/cold", 0),
     compare("BM_QualityWithSub/warm", "BM_QualityWithSubOneThread/warm", 0),
     compare("BM_QualityWithSub/cold", "BM_QualityWithSubFloor/cold", 0),
     compare("BM_QualityWithSubOneThread/cold", "BM_QualityWithSubFloor/cold", 0),
     true);

}  // namespace

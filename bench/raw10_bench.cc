// The normal-light RAW10 frame driver on a full 4000x3000 frame, against a
// read pass over the cache lines that it must touch.
#include <benchmark/benchmark.h>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using namespace qlis::bench;

// The clamp stops two sample rows and columns short of the frame's end:
// the driver reads even rows 0 .. kRawHeight - 4 and, in each, groups
// 0 .. kRawWidth / 4 - 2 (the last one as a right neighbour).
constexpr int32_t kRowsRead = kRawHeight - 2;
constexpr size_t kRowBytes = 5 * (kRawWidth / 4 - 1);

void run_driver(benchmark::State &state, Cache cache, uint32_t mode) {
  const uint8_t *frame = raw10_frame();
  BlockFeatureSet features;
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(calc_feature_quality_with_sub(&features, mode, frame, kRawHeight,
                                                           kRawWidth, kRawStride));
    benchmark::ClobberMemory();
  });
}

void BM_Raw10Mode0(benchmark::State &state, Cache cache) { run_driver(state, cache, 0); }
void BM_Raw10Mode1(benchmark::State &state, Cache cache) { run_driver(state, cache, 1); }
void BM_Raw10Mode2(benchmark::State &state, Cache cache) { run_driver(state, cache, 2); }

void BM_Raw10EvenRowsFloor(benchmark::State &state, Cache cache) {
  const uint8_t *frame = raw10_frame();
  iterate(state, cache, [&] {
    benchmark::DoNotOptimize(touch_rows(frame, 0, kRowsRead, 2, kRawStride, kRowBytes));
  });
}

QLIS_COLD(BM_Raw10EvenRowsFloor);
QLIS_COLD(BM_Raw10Mode0);
QLIS_COLD(BM_Raw10Mode1);
QLIS_COLD(BM_Raw10Mode2);
QLIS_WARM(BM_Raw10EvenRowsFloor);
QLIS_WARM(BM_Raw10Mode0);

[[maybe_unused]] const bool kRegistered =
    (compare("BM_Raw10Mode0/cold", "BM_Raw10EvenRowsFloor/cold", 1.5),
     compare("BM_Raw10Mode1/cold", "BM_Raw10EvenRowsFloor/cold", 0),
     compare("BM_Raw10Mode2/cold", "BM_Raw10EvenRowsFloor/cold", 0),
     compare("BM_Raw10Mode0/warm", "BM_Raw10EvenRowsFloor/warm", 0), true);

}  // namespace

// The normal-light RAW10 frame driver on a full 4000x3000 frame, against a
// read pass over the cache lines that it must touch.
#include <benchmark/benchmark.h>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using qlis::bench::kRawHeight;
using qlis::bench::kRawStride;
using qlis::bench::kRawWidth;

// The clamp stops two sample rows and columns short of the frame's end:
// the driver reads even rows 0 .. kRawHeight - 4 and, in each, groups
// 0 .. kRawWidth / 4 - 2 (the last one as a right neighbour).
constexpr int32_t kRowsRead = kRawHeight - 2;
constexpr size_t kRowBytes = 5 * (kRawWidth / 4 - 1);

void run_driver(benchmark::State &state, uint32_t mode) {
  const uint8_t *frame = qlis::bench::raw10_frame();
  BlockFeatureSet features;
  for (auto _ : state) {
    benchmark::DoNotOptimize(calc_feature_quality_with_sub(
        &features, mode, frame, kRawHeight, kRawWidth, kRawStride));
    benchmark::ClobberMemory();
  }
}

void BM_Raw10Mode0(benchmark::State &state) { run_driver(state, 0); }
void BM_Raw10Mode1(benchmark::State &state) { run_driver(state, 1); }
void BM_Raw10Mode2(benchmark::State &state) { run_driver(state, 2); }

void BM_Raw10EvenRowsFloor(benchmark::State &state) {
  const uint8_t *frame = qlis::bench::raw10_frame();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        qlis::bench::touch_rows(frame, 0, kRowsRead, 2, kRawStride, kRowBytes));
  }
}

BENCHMARK(BM_Raw10EvenRowsFloor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Raw10Mode0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Raw10Mode1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Raw10Mode2)->Unit(benchmark::kMillisecond);

[[maybe_unused]] const bool kRegistered =
    (qlis::bench::compare("BM_Raw10Mode0", "BM_Raw10EvenRowsFloor", 1.5),
     qlis::bench::compare("BM_Raw10Mode1", "BM_Raw10EvenRowsFloor", 0),
     qlis::bench::compare("BM_Raw10Mode2", "BM_Raw10EvenRowsFloor", 0), true);

}  // namespace

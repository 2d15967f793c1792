// The low-light frame driver on a full-resolution packed RAW10 frame,
// against a read pass over the cache lines of the rows it reads.
#include <benchmark/benchmark.h>

#include <vector>

#include "harness.h"
#include "ql_is/ql_is.h"

namespace {

using qlis::bench::kRawHeight;
using qlis::bench::kRawStride;
using qlis::bench::kRawWidth;

// The blocks visit every second row pair: one frame row in four, over the
// bytes of the row's groups.
constexpr int32_t kRowStep = 4;
constexpr size_t kRowBytes = 5 * (kRawWidth / 4);

void run_driver(benchmark::State &state, uint32_t mode) {
  const uint8_t *frame = qlis::bench::raw10_frame();
  BlockFeatureSet features;
  std::vector<DiffHistogram> hists(64);
  for (auto _ : state) {
    benchmark::DoNotOptimize(calc_feature_quality_with_sub_low_light(
        &features, hists.data(), mode, frame, kRawHeight, kRawWidth,
        kRawStride));
    benchmark::ClobberMemory();
  }
}

// Statistics only: the mode the burst selection runs on every frame.
void BM_LowLightMode1(benchmark::State &state) { run_driver(state, 1); }

// Statistics and difference histograms.
void BM_LowLightMode0(benchmark::State &state) { run_driver(state, 0); }

void BM_LowLightFloor(benchmark::State &state) {
  const uint8_t *frame = qlis::bench::raw10_frame();
  for (auto _ : state) {
    benchmark::DoNotOptimize(qlis::bench::touch_rows(
        frame, 0, kRawHeight, kRowStep, kRawStride, kRowBytes));
  }
}

BENCHMARK(BM_LowLightFloor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LowLightMode1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LowLightMode0)->Unit(benchmark::kMillisecond);

[[maybe_unused]] const bool kRegistered =
    (qlis::bench::compare("BM_LowLightMode1", "BM_LowLightFloor", 2.0),
     qlis::bench::compare("BM_LowLightMode0", "BM_LowLightFloor", 0.0), true);

}  // namespace
